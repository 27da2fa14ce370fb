#include "hostinfo/tqclntdb_hostinfo.h"

#include "platform/json.h"
#include "tests/fakes/platform/fake_platform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using fakes::LogEntry;
using fakes::platform;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::CHostInformation;
using TQCLNTDB::JSONConverter;

namespace {

constexpr int PROGRESS = 2;
constexpr int ERROR = 16;

CHostInformation fullRecord()
{
    CHostInformation record("m1", CERT_TYPE_HOST);
    record.hostName = "h1";
    record.hostId = "6f0f";
    record.osType = "UNIX";
    record.osVersion = "Linux (6.1) x";
    record.osReleaseVersion = "8.4";
    record.installedHFXs = {"H1", "H2"};
    record.installedPackages = {"P1", "P2"};
    record.kqUpdatePlatform = "linux";
    record.hwDescription = "V M, 2 CPUs";
    record.cpuArchitecture = "x86_64";
    record.tquVersion = "Torquenix_9.1.0.1";
    record.isSecureEnabled = true;
    record.servers = {"m1", "m2"};
    record.clusterSharedNames = {"c1", "c2"};
    record.trustVersion = "7";
    record.machineType = "PHYSICAL";
    record.hypervisorType = "NONE";
    record.machineTquType = "media";
    return record;
}

/// A record whose every field holds something that no text below does.
CHostInformation markedRecord()
{
    CHostInformation record("old master", CERT_TYPE_CLUSTER);
    for (std::string* field :
         {&record.hostName, &record.hostId, &record.osType, &record.osVersion, &record.osReleaseVersion,
          &record.kqUpdatePlatform, &record.hwDescription, &record.cpuArchitecture, &record.tquVersion,
          &record.trustVersion, &record.machineType, &record.hypervisorType, &record.machineTquType})
        *field = "old";
    for (std::vector<std::string>* list :
         {&record.installedHFXs, &record.installedPackages, &record.servers, &record.clusterSharedNames})
        *list = {"old"};
    record.isSecureEnabled = true;
    return record;
}

std::string wrapped(const std::string& text)
{
    return "[" + text + "]";
}

std::set<std::string> keysOf(const std::string& text)
{
    const tq::JsonRef object(json_loads(text.c_str(), 0, nullptr));
    std::set<std::string> keys;
    const char* key = nullptr;
    json_t* value = nullptr;
    json_object_foreach(object.get(), key, value) keys.insert(key);
    return keys;
}

/// Both ways of reading the first record of a text: from a converter that holds it, and from the text.
enum class Form { converter, text };

int read(CHostInformation& record, const std::string& text, Form form)
{
    if (form == Form::text)
        return record.getHostObj(text);
    JSONConverter converter;
    EXPECT_TRUE(converter.LoadJSON(text.c_str()));
    return record.getHostObj(converter, 0);
}

constexpr Form BOTH_FORMS[] = {Form::converter, Form::text};

class HostRecord : public testing::Test {
protected:
    void SetUp() override { fakes::reset(); }
};
class HostWriting : public HostRecord {};
class HostReading : public HostRecord {};

// Construction and copying

TEST_F(HostRecord, DefaultsAreEmpty)
{
    const CHostInformation record{};
    EXPECT_EQ(record, CHostInformation("", CERT_TYPE_NONE));
    EXPECT_EQ(record.masterServer, "");
    EXPECT_EQ(record.certType, CERT_TYPE_NONE);
    EXPECT_FALSE(record.isSecureEnabled);
    EXPECT_THAT(record.servers, IsEmpty());
    EXPECT_EQ(static_cast<int>(record.certType), 0);
}

TEST_F(HostRecord, ConstructorStoresServerAndType)
{
    const CHostInformation record("m1", CERT_TYPE_CLUSTER);
    EXPECT_EQ(record.masterServer, "m1");
    EXPECT_EQ(record.certType, CERT_TYPE_CLUSTER);
    EXPECT_EQ(record.hostName, "");
}

TEST_F(HostRecord, CopiesAreDeepAndCarryEveryField)
{
    CHostInformation source = fullRecord();
    const CHostInformation copy(source);
    CHostInformation assigned;
    assigned = source;
    for (const CHostInformation* other : {&copy, static_cast<const CHostInformation*>(&assigned)}) {
        EXPECT_EQ(other->getJSON(true, true), source.getJSON(true, true));
        EXPECT_EQ(other->certType, CERT_TYPE_HOST);
    }
    source.servers[0] = "changed";
    source.hostName = "changed";
    EXPECT_THAT(copy.servers, ElementsAre("m1", "m2"));
    EXPECT_EQ(assigned.hostName, "h1");
}

TEST_F(HostRecord, SelfAssignmentChangesNothing)
{
    CHostInformation record = fullRecord();
    const CHostInformation& itself = record;
    record = itself;
    EXPECT_EQ(record.getJSON(true, true), fullRecord().getJSON(true, true));
}

TEST_F(HostRecord, GetInstalledPackagesReplacesTheArgument)
{
    std::vector<std::string> out{"x", "y", "z"};
    fullRecord().getInstalledPackages(out);
    EXPECT_THAT(out, ElementsAre("P1", "P2"));
}

TEST_F(HostRecord, StreamOutputIsTheJsonWithTheHostIdAndNothingElse)
{
    std::ostringstream stream;
    const CHostInformation record = fullRecord();
    EXPECT_EQ(&(stream << record), &stream);
    EXPECT_EQ(stream.str(), record.getJSON(true, true));
}

// getJSON

TEST_F(HostWriting, DefaultRecordHasEveryKeyButIdentityAndMachineTquType)
{
    EXPECT_EQ(CHostInformation().getJSON(false, false),
              R"({"masterServer":"","osType":"","osVersion":"","osReleaseVersion":"","installedHFXs":"",)"
              R"("installedPackages":"","kqUpdatePlatform":"","hwDescription":"","cpuArchitecture":"",)"
              R"("tquVersion":"","servers":[],"clusterSharedNames":[],"isSecureEnabled":false,)"
              R"("trustVersion":"","machineType":"","hypervisorType":""})");
    EXPECT_EQ(CHostInformation().getJSON(false, true), CHostInformation().getJSON(false, false));
}

TEST_F(HostWriting, FullRecordIsWrittenInTheFixedOrder)
{
    EXPECT_EQ(
        fullRecord().getJSON(true, true),
        R"({"hostId":"6f0f","hostName":"h1","masterServer":"m1","osType":"UNIX","osVersion":"Linux (6.1) x",)"
        R"("osReleaseVersion":"8.4","installedHFXs":"H1,H2","installedPackages":"P1,P2",)"
        R"("kqUpdatePlatform":"linux","hwDescription":"V M, 2 CPUs","cpuArchitecture":"x86_64",)"
        R"("tquVersion":"Torquenix_9.1.0.1","servers":["m1","m2"],"clusterSharedNames":["c1","c2"],)"
        R"("isSecureEnabled":true,"trustVersion":"7","machineType":"PHYSICAL","hypervisorType":"NONE",)"
        R"("machineTquType":"media"})");
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(HostWriting, IdentityKeyIsHostIdOrUuid)
{
    const std::string withHostId = fullRecord().getJSON(true, true);
    std::string withUuid = fullRecord().getJSON(true, false);
    ASSERT_EQ(withUuid.rfind(R"({"uuid":"6f0f","hostName":"h1")", 0), 0U);
    withUuid.replace(1, 6, "\"hostId\"");
    EXPECT_EQ(withUuid, withHostId);
}

TEST_F(HostWriting, ValueThatIsNotUtf8IsSilentlyLeftOut)
{
    CHostInformation record = fullRecord();
    record.hwDescription = "\xff";
    record.servers = {"m1", "\xff", "m2"};
    const std::set<std::string> keys = keysOf(record.getJSON(false, false));
    EXPECT_EQ(keys.count("hwDescription"), 0U);
    EXPECT_EQ(keys.count("osVersion"), 1U);
    EXPECT_THAT(record.getJSON(false, false), testing::HasSubstr(R"("servers":["m1","m2"])"));
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(HostWriting, ListEntryWithACommaIsNotEscaped)
{
    CHostInformation record;
    record.installedHFXs = {"a,b", "c,"};
    EXPECT_THAT(record.getJSON(false, false), testing::HasSubstr(R"("installedHFXs":"a,b,c")"));
}

// getHostObj

TEST_F(HostReading, ConverterFormReadsEveryFieldOfItsRecord)
{
    JSONConverter converter;
    ASSERT_TRUE(converter.LoadJSON(("[{}," + fullRecord().getJSON(true, false) + "]").c_str()));
    CHostInformation record;
    EXPECT_EQ(record.getHostObj(converter, 1), 1);
    EXPECT_EQ(record.getJSON(true, true), fullRecord().getJSON(true, true));
    EXPECT_EQ(record.osReleaseVersion, "8.4");
    EXPECT_EQ(record.certType, CERT_TYPE_NONE) << "never read";
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(HostReading, TextFormDeliberatelyKeepsTheReleaseItHad)
{
    CHostInformation record("m2", CERT_TYPE_CLUSTER);
    record.osReleaseVersion = "before";
    EXPECT_EQ(record.getHostObj(wrapped(fullRecord().getJSON(true, false))), 1);
    EXPECT_EQ(record.osReleaseVersion, "before");
    EXPECT_EQ(record.certType, CERT_TYPE_CLUSTER);
    EXPECT_TRUE(record == fullRecord());
    EXPECT_THAT(record.clusterSharedNames, ElementsAre("c1", "c2"));
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(HostReading, HostIdKeyIsNeverRead)
{
    for (const Form form : BOTH_FORMS) {
        CHostInformation record;
        record.hostId = "before";
        EXPECT_EQ(read(record, wrapped(fullRecord().getJSON(true, true)), form), 1);
        EXPECT_EQ(record.hostId, "before");
        EXPECT_EQ(record.hostName, "h1");
    }
}

TEST_F(HostReading, ListEntriesWithCommasComeBackSplitOrCut)
{
    CHostInformation written;
    written.installedHFXs = {"a,b", "c,"};
    CHostInformation record;
    EXPECT_EQ(record.getHostObj(wrapped(written.getJSON(true, false))), 1);
    EXPECT_THAT(record.installedHFXs, ElementsAre("a", "b", "c"));
}

TEST_F(HostReading, BareObjectGivesZeroAndLeavesTheRecord)
{
    CHostInformation record = markedRecord();
    EXPECT_EQ(record.getHostObj(fullRecord().getJSON(true, false)), 0);
    EXPECT_EQ(record.getJSON(true, true), markedRecord().getJSON(true, true));
    ASSERT_EQ(platform().log.size(), 1U);
    EXPECT_EQ(platform().log[0].context, "JSONConverter::LoadJSON");
}

TEST_F(HostReading, DamagedTextGivesZeroAndLeavesTheRecord)
{
    const std::string whole = wrapped(fullRecord().getJSON(true, false));
    for (const std::string& text : {std::string(), std::string("["), std::string("no"), whole + "x",
                                    whole.substr(0, whole.size() / 2), std::string("[\"\xff\"]")}) {
        SCOPED_TRACE(text);
        CHostInformation record = markedRecord();
        EXPECT_EQ(record.getHostObj(text), 0);
        EXPECT_EQ(record.getJSON(true, true), markedRecord().getJSON(true, true));
    }
}

TEST_F(HostReading, MissingAndMistypedKeysLeaveTheirFields)
{
    const std::string mistyped =
        R"([{"uuid":1,"hostName":null,"masterServer":[],"osType":{},"osVersion":true,"osReleaseVersion":2,)"
        R"("installedHFXs":["a"],"installedPackages":3,"kqUpdatePlatform":4,"hwDescription":5,)"
        R"("cpuArchitecture":6,"tquVersion":7,"servers":"a","clusterSharedNames":8,"isSecureEnabled":"yes",)"
        R"("trustVersion":9,"machineType":10,"hypervisorType":11,"machineTquType":12}])";
    for (const std::string& text : {std::string("[{}]"), mistyped, std::string("[]"), std::string("[7]")}) {
        for (const Form form : BOTH_FORMS) {
            SCOPED_TRACE(text);
            CHostInformation record = markedRecord();
            EXPECT_EQ(read(record, text, form), 1);
            EXPECT_EQ(record.getJSON(true, true), markedRecord().getJSON(true, true));
            EXPECT_EQ(record.certType, CERT_TYPE_CLUSTER);
        }
    }
}

/// The complete log of reading an empty object, with the key that each form looks up for the release.
std::vector<LogEntry> logOfAnEmptyObject(const std::string& releaseKey)
{
    std::vector<LogEntry> log;
    const auto text = [&](const std::string& key) {
        log.push_back({ERROR, "Invalid JSON string for key and rec num:" + key + ",0\n",
                       "JSONConverter::GetStringValue"});
    };
    for (const char* key : {"uuid", "hostName", "masterServer", "osType", "osVersion"})
        text(key);
    text(releaseKey);
    for (const char* key : {"installedHFXs", "installedPackages", "kqUpdatePlatform", "hwDescription",
                            "cpuArchitecture", "tquVersion"})
        text(key);
    for (const char* key : {"servers", "clusterSharedNames"})
        log.push_back({ERROR, "Invalid JSON array for key and rec num:" + std::string(key) + ",0\n",
                       "JSONConverter::GetObjectValue"});
    log.push_back({ERROR, "Invalid JSON boolean for key and rec num:isSecureEnabled,0\n",
                   "JSONConverter::GetBooleanValue"});
    for (const char* key : {"trustVersion", "machineType", "hypervisorType"})
        text(key);
    log.push_back(
        {PROGRESS, "No value found for key and rec num:machineTquType,0\n", "JSONConverter::GetStringValue"});
    return log;
}

TEST_F(HostReading, EveryMissingKeyIsLoggedInOrderAndReadingGoesOn)
{
    CHostInformation record;
    EXPECT_EQ(read(record, "[{}]", Form::converter), 1);
    EXPECT_EQ(platform().log, logOfAnEmptyObject("osReleaseVersion"));
}

TEST_F(HostReading, TextFormDeliberatelyLooksUpTheVersionTwice)
{
    CHostInformation record;
    EXPECT_EQ(read(record, "[{}]", Form::text), 1);
    EXPECT_EQ(platform().log, logOfAnEmptyObject("osVersion"));
}

TEST_F(HostReading, MissingPackagesDeliberatelyBecomeTheHotfixes)
{
    for (const Form form : BOTH_FORMS) {
        CHostInformation record = markedRecord();
        EXPECT_EQ(read(record, R"([{"installedHFXs":"A,B"}])", form), 1);
        EXPECT_THAT(record.installedHFXs, ElementsAre("A", "B"));
        EXPECT_THAT(record.installedPackages, ElementsAre("A", "B"));
    }
}

TEST_F(HostReading, MistypedPackagesDeliberatelyBecomeTheHotfixes)
{
    for (const Form form : BOTH_FORMS) {
        for (const std::string packages : {"3", "null", "true", "[\"P\"]", "{}"}) {
            SCOPED_TRACE(packages);
            CHostInformation record = markedRecord();
            EXPECT_EQ(read(record, R"([{"installedHFXs":"A,B","installedPackages":)" + packages + "}]", form),
                      1);
            EXPECT_THAT(record.installedHFXs, ElementsAre("A", "B"));
            EXPECT_THAT(record.installedPackages, ElementsAre("A", "B"));
        }
    }
}

TEST_F(HostReading, EmptyPackagesTextEmptiesTheScratchTextAndLeavesTheList)
{
    for (const Form form : BOTH_FORMS) {
        CHostInformation record = markedRecord();
        EXPECT_EQ(read(record, R"([{"installedHFXs":"A,B","installedPackages":""}])", form), 1);
        EXPECT_THAT(record.installedHFXs, ElementsAre("A", "B"));
        EXPECT_THAT(record.installedPackages, ElementsAre("old"));
    }
}

TEST_F(HostReading, EmptyHotfixTextLeavesTheList)
{
    for (const Form form : BOTH_FORMS) {
        CHostInformation record = markedRecord();
        EXPECT_EQ(read(record, R"([{"installedHFXs":"","installedPackages":"P,"}])", form), 1);
        EXPECT_THAT(record.installedHFXs, ElementsAre("old"));
        EXPECT_THAT(record.installedPackages, ElementsAre("P", ""));
    }
}

TEST_F(HostReading, ArraysReplaceTheLists)
{
    for (const Form form : BOTH_FORMS) {
        CHostInformation record = markedRecord();
        EXPECT_EQ(read(record, R"([{"servers":["a","b"],"clusterSharedNames":[]}])", form), 1);
        EXPECT_THAT(record.servers, ElementsAre("a", "b"));
        EXPECT_THAT(record.clusterSharedNames, IsEmpty());
    }
}

TEST_F(HostReading, ArrayElementThatIsNoStringThrowsAndLeavesTheList)
{
    for (const Form form : BOTH_FORMS) {
        CHostInformation record = markedRecord();
        EXPECT_THROW(read(record, R"([{"servers":["a",1]}])", form), std::logic_error);
        EXPECT_THAT(record.servers, ElementsAre("old"));
    }
}

TEST_F(HostReading, ThrowingListLeavesItselfAndWhatIsReadAfterIt)
{
    const std::string begin = R"([{"uuid":"new","tquVersion":"new","isSecureEnabled":false,)"
                              R"("trustVersion":"new","machineTquType":"new",)";
    const std::pair<std::string, std::string> rows[] = {
        {R"("servers":[1],"clusterSharedNames":["c1"]}])", "old"},
        {R"("servers":["m1"],"clusterSharedNames":["c1",null]}])", "m1"},
    };
    for (const auto& [lists, server] : rows) {
        for (const Form form : BOTH_FORMS) {
            SCOPED_TRACE(lists);
            CHostInformation record = markedRecord();
            EXPECT_THROW(read(record, begin + lists, form), std::logic_error);
            EXPECT_EQ(record.hostId, "new");
            EXPECT_EQ(record.tquVersion, "new");
            EXPECT_THAT(record.servers, ElementsAre(server));
            EXPECT_THAT(record.clusterSharedNames, ElementsAre("old"));
            EXPECT_TRUE(record.isSecureEnabled);
            EXPECT_EQ(record.trustVersion, "old");
            EXPECT_EQ(record.machineTquType, "old");
        }
    }
}

TEST_F(HostReading, FalseFlagIsRead)
{
    for (const Form form : BOTH_FORMS) {
        CHostInformation record = markedRecord();
        EXPECT_EQ(read(record, R"([{"isSecureEnabled":false}])", form), 1);
        EXPECT_FALSE(record.isSecureEnabled);
    }
}

TEST_F(HostReading, EmptyTextsAreReadAsEmpty)
{
    CHostInformation record = markedRecord();
    EXPECT_EQ(read(record, R"([{"hostName":"","machineTquType":""}])", Form::text), 1);
    EXPECT_EQ(record.hostName, "");
    EXPECT_EQ(record.machineTquType, "");
}

} // namespace
