#include "platform/identity_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// An entry with one key changed: `key` is left out when `value` is empty, else it has this JSON value.
std::string entryWith(const std::string& key = "", const std::string& value = "")
{
    const std::pair<std::string, std::string> standard[] = {
        {"server", "\"master1.example\""},
        {"certType", "\"host\""},
        {"hostId", "\"6f0f\""},
        {"hostName", "\"h1.example\""},
        {"trustVersion", "\"1\""},
        {"caMode", "\"internal\""},
        {"certificate", "\"host.m1.crt\""},
        {"privateKey", "\"host.m1.key\""},
        {"caCertificates", "\"host.m1.ca\""},
    };
    std::ostringstream text;
    const char* separator = "{";
    for (const auto& [name, usual] : standard) {
        const std::string& shown = name == key ? value : usual;
        if (shown.empty())
            continue;
        text << separator << '"' << name << "\": " << shown;
        separator = ", ";
    }
    text << '}';
    return text.str();
}

std::string storeWith(const std::string& entries)
{
    return R"({"version": 1, "identities": [)" + entries + "]}";
}

/// Fault of a text, "" when it is read.
std::string faultOf(const std::string& text)
{
    tq::IdentityDocument document;
    std::string fault;
    return tq::parseIdentityDocument(text, document, fault) ? "" : fault;
}

} // namespace

TEST(IdentityDocument, ReadsEveryKey)
{
    tq::IdentityDocument document;
    std::string fault;
    ASSERT_TRUE(tq::parseIdentityDocument(storeWith(entryWith()), document, fault)) << fault;
    ASSERT_EQ(document.identities.size(), 1U);
    const tq::Identity& identity = document.identities.front();
    EXPECT_EQ(identity.server, "master1.example");
    EXPECT_EQ(identity.certType, CERT_TYPE_HOST);
    EXPECT_EQ(identity.hostId, "6f0f");
    EXPECT_EQ(identity.hostName, "h1.example");
    EXPECT_EQ(identity.trustVersion, "1");
    EXPECT_EQ(identity.caMode, CA_USAGE_INTERNAL);
    EXPECT_EQ(identity.certificate, "host.m1.crt");
    EXPECT_EQ(identity.privateKey, "host.m1.key");
    EXPECT_EQ(identity.caCertificates, "host.m1.ca");
}

TEST(IdentityDocument, WordsOfTypesAndModes)
{
    const auto first = [](const std::string& key, const std::string& value) {
        tq::IdentityDocument document;
        std::string fault;
        EXPECT_TRUE(tq::parseIdentityDocument(storeWith(entryWith(key, value)), document, fault)) << fault;
        return document.identities.at(0);
    };
    EXPECT_EQ(first("certType", "\"cluster\"").certType, CERT_TYPE_CLUSTER);
    EXPECT_EQ(first("caMode", "\"external\"").caMode, CA_USAGE_EXTERNAL);
    EXPECT_EQ(first("caMode", "\"none\"").caMode, CA_USAGE_NONE);
    EXPECT_EQ(first("trustVersion", "").trustVersion, std::nullopt);
    EXPECT_EQ(first("trustVersion", "\"\"").trustVersion, std::nullopt);
}

TEST(IdentityDocument, EmptyListAndUnknownKeysAreFine)
{
    EXPECT_EQ(faultOf(storeWith("")), "");
    EXPECT_EQ(faultOf(R"({"version": 1, "identities": [], "later": {"a": [1]}})"), "");
}

TEST(IdentityDocument, DamagedTextsAreRefusedWithTheirFault)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", "it is not JSON: line 1"},
        {"{", "it is not JSON: line 1"},
        {std::string("\0\0\0", 3), "it is not JSON: line 1"},
        {storeWith(entryWith()) + "x", "it is not JSON"},
        {storeWith(entryWith()).substr(0, 60), "it is not JSON"},
        {storeWith(entryWith("hostId", "\"a\\u0000b\"")), "it is not JSON"},
        {storeWith(entryWith("hostId", "\"\xFF\"")), "it is not JSON"},
        {R"({"version": 1, "version": 1, "identities": []})", "duplicate"},
        {std::string(100'000, '['), "it is not JSON"},
        {"[]", "it is not a JSON object"},
        {"null", "it is not"},
        {R"({"identities": []})", "it has no version number"},
        {R"({"version": "1", "identities": []})", "it has no version number"},
        {R"({"version": 1.0, "identities": []})", "it has no version number"},
        {R"({"version": 2, "identities": []})",
         "it is of version 2, made by a newer release, and this one knows version 1; "
         "install that release again"},
        {R"({"version": 0, "identities": []})", "it is of version 0; this release knows 1 only"},
        {R"({"version": 1})", "it has no list \"identities\""},
        {R"({"version": 1, "identities": {}})", "it has no list \"identities\""},
        {storeWith("7"), "identity 1 is not a JSON object"},
        {storeWith(entryWith() + ", null"), "identity 2 is not a JSON object"},
    };
    for (const auto& [text, fault] : cases)
        EXPECT_THAT(faultOf(text), HasSubstr(fault)) << text.substr(0, 100);
}

TEST(IdentityDocument, MissingAndMistypedTexts)
{
    for (const char* key : {"server", "hostId", "hostName", "certificate", "privateKey", "caCertificates"}) {
        for (const char* value : {"", "7", "null", "[]"})
            EXPECT_EQ(faultOf(storeWith(entryWith(key, value))),
                      "identity 1 has no text for \"" + std::string(key) + "\"");
    }
    EXPECT_THAT(faultOf(storeWith(entryWith("trustVersion", "1"))),
                HasSubstr("\"trustVersion\" that is no text"));
    EXPECT_THAT(faultOf(storeWith(entryWith("hostId", "\"\""))), HasSubstr("empty \"hostId\""));
}

TEST(IdentityDocument, UnknownTypesAndModes)
{
    for (const char* value : {"", "\"\"", "\"HOST\"", "\"user\"", "1"})
        EXPECT_THAT(faultOf(storeWith(entryWith("certType", value))), HasSubstr("\"certType\" other than"))
            << value;
    for (const char* value : {"", "\"\"", "\"Internal\"", "\"unknown\"", "1"})
        EXPECT_THAT(faultOf(storeWith(entryWith("caMode", value))), HasSubstr("\"caMode\" other than"))
            << value;
}

TEST(IdentityDocument, FileNameHoldingASlashIsRefused)
{
    for (const char* key : {"certificate", "privateKey", "caCertificates"}) {
        for (const char* name : {"/etc/shadow", "../secret", "a/b"}) {
            EXPECT_EQ(faultOf(storeWith(entryWith(key, "\"" + std::string(name) + "\""))),
                      "identity 1 names the file [" + std::string(name) + "]: it holds a slash");
        }
        for (const char* name : {"", ".", "..", "identity.json", "identity.lock"})
            EXPECT_NE(faultOf(storeWith(entryWith(key, "\"" + std::string(name) + "\""))), "") << name;
    }
}

TEST(IdentityDocument, RefusedServerNamesAndSecondEntriesAreLeftOut)
{
    tq::IdentityDocument document;
    std::string fault;
    const std::string text =
        storeWith(entryWith("server", "\"a/b\"") + "," + entryWith("hostId", "\"first\"") + "," +
                  entryWith("hostId", "\"second\"") + "," + entryWith("certType", "\"cluster\"") + "," +
                  entryWith("server", "\"MASTER1.Example\"") + "," + entryWith("server", "\"m2\""));
    ASSERT_TRUE(tq::parseIdentityDocument(text, document, fault)) << fault;
    std::vector<std::string> found;
    for (const tq::Identity& identity : document.identities)
        found.push_back(identity.server + " " + tq::certTypeName(identity.certType) + " " + identity.hostId);
    EXPECT_THAT(found,
                ElementsAre("master1.example host first", "master1.example cluster 6f0f", "m2 host 6f0f"));
    EXPECT_THAT(
        document.leftOut,
        ElementsAre("identity 1 is left out: server name [a/b] is refused: it holds a slash",
                    "identity 3 is left out: server [master1.example] has an earlier identity of type host",
                    "identity 5 is left out: server [MASTER1.Example] has an earlier identity of type host"));
}

TEST(IdentityDocument, WrittenEntryIsReadBack)
{
    const tq::Identity identity{"m1",         CERT_TYPE_CLUSTER, "id",    "h\xC3\xA9 \"1\"",
                                std::nullopt, CA_USAGE_EXTERNAL, "c.crt", "c.key",
                                "c.ca"};
    tq::IdentityDocument document = tq::newIdentityDocument();
    json_array_append_new(tq::identityArray(document), tq::identityToJson(identity).release());
    const tq::JsonText text(json_dumps(document.json.get(), 0));
    tq::IdentityDocument read;
    std::string fault;
    ASSERT_TRUE(tq::parseIdentityDocument(text.get(), read, fault)) << fault;
    ASSERT_EQ(read.identities.size(), 1U);
    EXPECT_EQ(read.identities[0].hostName, identity.hostName);
    EXPECT_EQ(read.identities[0].certType, CERT_TYPE_CLUSTER);
    EXPECT_EQ(read.identities[0].trustVersion, std::nullopt);
    EXPECT_EQ(read.identities[0].caMode, CA_USAGE_EXTERNAL);
    EXPECT_EQ(read.identities[0].caCertificates, "c.ca");
}

TEST(IdentityDocument, TextThatJsonCannotHoldGivesNoEntry)
{
    tq::Identity identity;
    identity.hostName = "\xFF";
    EXPECT_EQ(tq::identityToJson(identity), nullptr);
    identity.hostName = std::string("a\0b", 3);
    EXPECT_EQ(tq::identityToJson(identity), nullptr);
}
