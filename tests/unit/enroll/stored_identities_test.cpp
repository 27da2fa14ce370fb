#include "enroll/stored_identities.h"

#include "tests/fakes/tls/test_pki.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

using enroll::readCertificateFile;

TEST(ReadCertificateFile, IsTheFirstCertificateOfAFile)
{
    const std::string path = "/tmp/stored_identities_test.crt";
    const fakes::Issued made = fakes::makeSelfSigned({.commonName = "x"});
    std::ofstream(path) << made.pem() << fakes::makeSelfSigned({.commonName = "y"}).pem();
    const tq::Certificate certificate = readCertificateFile(path);
    ASSERT_TRUE(certificate);
    EXPECT_EQ(tq::certificateToPem(*certificate), made.pem());

    std::ofstream(path) << "no certificate";
    EXPECT_FALSE(readCertificateFile(path));
    std::filesystem::remove(path);
    EXPECT_FALSE(readCertificateFile(path));
}
