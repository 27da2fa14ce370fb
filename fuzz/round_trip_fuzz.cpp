/// Any record written to JSON and read back is the same. Outside the rule are texts that are not UTF-8, list
/// entries with commas (the lists travel joined with them), and empty entries at a joined list's end.
#include "fuzz/support/byte_source.h"
#include "fuzz/support/json_blocks.h"
#include "fuzz/support/target.h"
#include "hostdb/tqclntdb_json.h"
#include "hostinfo/tqclntdb_hostinfo.h"

namespace {

using fuzz::ByteSource;
using fuzz::require;
using TQCLNTDB::CHostInformation;
using TQCLNTDB::JSONConverter;

constexpr std::size_t MOST_CHARACTERS = 40;
constexpr std::size_t MOST_ENTRIES = 6;

constexpr std::string CHostInformation::*TEXTS[] = {
    &CHostInformation::hostName,         &CHostInformation::hostId,
    &CHostInformation::masterServer,     &CHostInformation::osType,
    &CHostInformation::osVersion,        &CHostInformation::osReleaseVersion,
    &CHostInformation::kqUpdatePlatform, &CHostInformation::hwDescription,
    &CHostInformation::cpuArchitecture,  &CHostInformation::tquVersion,
    &CHostInformation::trustVersion,     &CHostInformation::machineType,
    &CHostInformation::hypervisorType,   &CHostInformation::machineTquType};

std::vector<std::string> makeList(ByteSource& bytes, char32_t without)
{
    std::vector<std::string> list(bytes.number(MOST_ENTRIES));
    for (std::string& entry : list)
        entry = bytes.text(MOST_CHARACTERS, without);
    return list;
}

std::vector<std::string> makeJoinedList(ByteSource& bytes)
{
    std::vector<std::string> list = makeList(bytes, ',');
    while (!list.empty() && list.back().empty())
        list.pop_back();
    return list;
}

CHostInformation makeRecord(ByteSource& bytes)
{
    CHostInformation record;
    for (const auto text : TEXTS)
        record.*text = bytes.text(MOST_CHARACTERS);
    record.installedHFXs = makeJoinedList(bytes);
    record.installedPackages = makeJoinedList(bytes);
    record.servers = makeList(bytes, 0);
    record.clusterSharedNames = makeList(bytes, 0);
    record.isSecureEnabled = bytes.flag();
    return record;
}

void requireSame(const CHostInformation& read, const CHostInformation& written, const std::string& json)
{
    require(read == written && written == read, "a record read back equals the one written", json);
    for (const auto text : TEXTS)
        require(read.*text == written.*text, "a text is the same", json);
    require(read.installedHFXs == written.installedHFXs &&
                read.installedPackages == written.installedPackages && read.servers == written.servers &&
                read.clusterSharedNames == written.clusterSharedNames &&
                read.isSecureEnabled == written.isSecureEnabled,
            "lists and flags are the same", json);
    require(read.getJSON(true, false) == json, "it is written the same again", json);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const fuzz::JsonScope scope;
    ByteSource bytes(data, size);
    const CHostInformation written = makeRecord(bytes);
    const std::string json = written.getJSON(true, false);
    require(fuzz::isJson(json), "a record is written as JSON", json);

    JSONConverter converter;
    require(converter.LoadJSON(("[" + json + "]").c_str()), "a reply of it loads", json);
    CHostInformation reply;
    require(reply.getHostObj(converter, 0) == 1, "a reply of it is read", json);
    requireSame(reply, written, json);

    CHostInformation cached;
    require(cached.getHostObj("[" + json + "]") == 1, "a text of it is read", json);
    // A text keeps the reader's release, deliberately.
    require(cached.osReleaseVersion.empty(), "a text does not bring its release", json);
    cached.osReleaseVersion = written.osReleaseVersion;
    requireSame(cached, written, json);

    // The display and the update differ in the identity's keys only.
    CHostInformation nameless = written;
    nameless.hostId.clear();
    nameless.hostName.clear();
    CHostInformation update;
    require(update.getHostObj("[" + written.getJSON(false, false) + "]") == 1, "an update's text is read",
            json);
    update.osReleaseVersion = written.osReleaseVersion;
    require(update == nameless, "an update carries no identity", json);
    return 0;
}
