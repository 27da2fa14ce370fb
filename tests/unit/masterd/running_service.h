/// A master server of a test's own, on a free port of 127.0.0.1, and the hosts that talk to it.
#pragma once

#include "masterd/master_service.h"
#include "tests/unit/scratch_directory.h"

#include <httplib.h>
#include <jansson.h>
#include <memory>
#include <string>
#include <thread>

namespace tests {

/// Member of a JSON object's text: a string as it is, a number in digits; empty when there is none.
std::string jsonMember(const std::string& text, const char* key);

/// A JSON object of texts.
std::string jsonObject(const std::vector<std::pair<std::string, std::string>>& members);

class RunningService {
public:
    explicit RunningService(const masterd::ConnectionLimits& limits = {});
    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;
    ~RunningService();

    [[nodiscard]] int port() const { return service_->port(); }
    [[nodiscard]] const masterd::DataFolder& folder() const { return folder_; }
    [[nodiscard]] const masterd::Authority& authority() const { return authority_; }
    /// The database, as another process would open it.
    masterd::Store& store() { return store_; }
    [[nodiscard]] std::string requestLog() const { return readText(scratch_.file("requests")); }
    masterd::MasterService& service() { return *service_; }

    /// Stops it and waits for its end; the result of run().
    bool stop();

private:
    ScratchDirectory scratch_;
    masterd::DataFolder folder_;
    masterd::Authority authority_;
    masterd::Store store_;
    std::unique_ptr<masterd::MasterService> service_;
    std::thread thread_;
    bool result_ = false;
};

/// A host with a key and, once it is enrolled, a certificate and a token.
class Host {
public:
    explicit Host(RunningService& service) : service_(service), key_(tq::generateKey()) {}
    /// Invites, enrols and takes a token; the test fails where that fails.
    Host(RunningService& service, const std::string& hostName);

    /// A client without, or with, this host's certificate; it trusts the service's authority alone.
    std::unique_ptr<httplib::SSLClient> anonymous() const;
    std::unique_ptr<httplib::SSLClient> client() const;

    httplib::Result enroll(const std::string& invitation) const;
    void takeToken();

    [[nodiscard]] httplib::Headers bearer() const { return {{"Authorization", "Bearer " + token}}; }
    [[nodiscard]] std::string path() const { return "/torquenix/config/hosts/" + hostId; }
    [[nodiscard]] std::string request() const { return tq::makeCertificateRequest(*key_, "anything"); }
    [[nodiscard]] EVP_PKEY& key() const { return *key_; }

    tq::Certificate certificate;
    std::string hostId;
    std::string token;

private:
    RunningService& service_;
    tq::Key key_;
};

} // namespace tests
