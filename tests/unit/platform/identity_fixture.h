/// An identity store of its own for each test.
#pragma once

#include "platform/identity_store.h"
#include "platform/paths.h"
#include "tests/fakes/log/recording_log.h"
#include "tests/unit/test_files.h"

#include <gtest/gtest.h>

namespace tests {

class IdentityFixture : public testing::Test {
protected:
    IdentityFixture()
    {
        freshDirectory(TQ_VAR_DIR);
        freshDirectory(directory, 0700);
        fakes::recordedLog().clear();
    }
    void TearDown() override { std::filesystem::remove_all(TQ_IDENTITY_DIR); }

    static tq::Identity identity(const std::string& server, cert_type certType = CERT_TYPE_HOST)
    {
        tq::Identity made;
        made.server = server;
        made.certType = certType;
        made.hostId = "id-of-" + server;
        made.hostName = "h1.example";
        made.trustVersion = "1";
        return made;
    }

    static tq::IdentityPem pem(const std::string& mark)
    {
        return {"certificate " + mark, "key " + mark, "authority " + mark};
    }

    /// Stores an identity; its certificate, key and authority hold the mark.
    static tq::Identity store(const tq::Identity& added, const std::string& mark)
    {
        tq::Identity stored;
        EXPECT_EQ(tq::saveIdentity(added, pem(mark), &stored), 0);
        return stored;
    }

    const std::string directory = TQ_IDENTITY_DIR;
    const std::string storeFile = directory + "/identity.json";
};

} // namespace tests
