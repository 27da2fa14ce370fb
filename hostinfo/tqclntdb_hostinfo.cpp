#include "hostinfo/tqclntdb_hostinfo.h"

#include <ostream>
#include <utility>

namespace TQCLNTDB {
namespace {

/// Separator of the lists that travel as one text.
constexpr char LIST_SEPARATOR = ',';

/// Reads an array of strings in place of a list; leaves the list when there is none.
void readArray(JSONConverter& converter, const char* key, std::size_t index, std::vector<std::string>& list)
{
    std::vector<std::string> read;
    if (converter.GetObjectValue(read, key, index))
        list = std::move(read);
}

void readFlag(JSONConverter& converter, const char* key, std::size_t index, bool& flag)
{
    bool read = false;
    if (converter.GetBooleanValue(read, key, index))
        flag = read;
}

/// Reads a list that travels as one text. `scratch` keeps its text when the key is missing, and a scratch
/// text that is empty leaves the list.
void readJoinedList(JSONConverter& converter, const char* key, std::size_t index, std::string& scratch,
                    std::vector<std::string>& list)
{
    converter.GetStringValue(scratch, key, index, true);
    if (!scratch.empty())
        list = CHostInformation::stringToVector(scratch, LIST_SEPARATOR);
}

/// Reads every field. The key and the field of the release are the caller's. A missing or mistyped key is
/// logged by the converter and reading goes on.
void readRecord(CHostInformation& record, JSONConverter& converter, std::size_t index, const char* releaseKey,
                std::string& releaseField)
{
    const auto readText = [&](const char* key, std::string& field) {
        converter.GetStringValue(field, key, index, true);
    };
    readText("uuid", record.hostId);
    readText("hostName", record.hostName);
    readText("masterServer", record.masterServer);
    readText("osType", record.osType);
    readText("osVersion", record.osVersion);
    readText(releaseKey, releaseField);

    // One scratch text for both lists, on purpose: a record without packages takes its hotfixes for them.
    std::string scratch;
    readJoinedList(converter, "installedHFXs", index, scratch, record.installedHFXs);
    readJoinedList(converter, "installedPackages", index, scratch, record.installedPackages);

    readText("kqUpdatePlatform", record.kqUpdatePlatform);
    readText("hwDescription", record.hwDescription);
    readText("cpuArchitecture", record.cpuArchitecture);
    readText("tquVersion", record.tquVersion);
    readArray(converter, "servers", index, record.servers);
    readArray(converter, "clusterSharedNames", index, record.clusterSharedNames);
    readFlag(converter, "isSecureEnabled", index, record.isSecureEnabled);
    readText("trustVersion", record.trustVersion);
    readText("machineType", record.machineType);
    readText("hypervisorType", record.hypervisorType);
    converter.GetStringValue(record.machineTquType, "machineTquType", index, false);
}

} // namespace

CHostInformation::CHostInformation(const std::string& server, cert_type type)
    : masterServer(server), certType(type)
{
}

std::string CHostInformation::getJSON(bool withIdentity, bool useHostIdKey) const
{
    JSONConverter converter;
    const auto addText = [&](const char* key, const std::string& value) {
        converter.convertToJSONObject(key, value.c_str());
    };
    const auto addJoinedList = [&](const char* key, const std::vector<std::string>& list) {
        addText(key, SeparateStringValuesByTok(list, std::string(1, LIST_SEPARATOR)));
    };
    const auto addArray = [&](const char* key, const std::vector<std::string>& list) {
        converter.convertToJSONObject(key, converter.ConvertVectorToJSONArray(list));
    };
    if (withIdentity) {
        addText(useHostIdKey ? "hostId" : "uuid", hostId);
        addText("hostName", hostName);
    }
    addText("masterServer", masterServer);
    addText("osType", osType);
    addText("osVersion", osVersion);
    addText("osReleaseVersion", osReleaseVersion);
    addJoinedList("installedHFXs", installedHFXs);
    addJoinedList("installedPackages", installedPackages);
    addText("kqUpdatePlatform", kqUpdatePlatform);
    addText("hwDescription", hwDescription);
    addText("cpuArchitecture", cpuArchitecture);
    addText("tquVersion", tquVersion);
    addArray("servers", servers);
    addArray("clusterSharedNames", clusterSharedNames);
    converter.convertToJSONObject("isSecureEnabled", isSecureEnabled);
    addText("trustVersion", trustVersion);
    addText("machineType", machineType);
    addText("hypervisorType", hypervisorType);
    if (!machineTquType.empty())
        addText("machineTquType", machineTquType);
    return converter.getJSONintoString();
}

int CHostInformation::getHostObj(JSONConverter& converter, std::size_t index)
{
    readRecord(*this, converter, index, "osReleaseVersion", osReleaseVersion);
    return 1;
}

int CHostInformation::getHostObj(const std::string& text)
{
    JSONConverter converter;
    if (!converter.LoadJSON(text.c_str()))
        return 0;
    // "osVersion" a second time, on purpose: a record read from a cached text keeps its own release.
    readRecord(*this, converter, 0, "osVersion", osVersion);
    return 1;
}

void CHostInformation::getInstalledPackages(std::vector<std::string>& out) const
{
    out = installedPackages;
}

std::ostream& operator<<(std::ostream& stream, const CHostInformation& record)
{
    return stream << record.getJSON(true, true);
}

} // namespace TQCLNTDB
