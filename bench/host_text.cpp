#include "bench/host_text.h"

#include <array>
#include <cstdio>
#include <string_view>

namespace bench {

namespace {

struct System {
    const char* version;
    const char* release;
};

constexpr std::array<System, 4> SYSTEMS{{
    {"RedHat Linux (4.18.0-553.22.1.el8_10.x86_64)", "8.10"},
    {"SuSE Linux (5.14.21-150500.55.88-default)", "15.5"},
    {"Ubuntu (5.15.0-122-generic)", "22.04"},
    {"RedHat Linux (5.14.0-427.40.1.el9_4.x86_64)", "9.4"},
}};
constexpr std::array<const char*, 3> RELEASES{"9.1.0.1", "10.0.0.1", "10.1.1"};

template <typename... Values>
std::string formatted(const char* format, Values... values)
{
    std::array<char, 256> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

void addText(std::string& record, std::string_view key, std::string_view value)
{
    record += record.size() > 1 ? ",\"" : "\"";
    record.append(key).append("\":\"").append(value).append("\"");
}

void addList(std::string& record, std::string_view key, std::string_view first, std::string_view second)
{
    record.append(",\"").append(key).append("\":[");
    if (!first.empty())
        record.append("\"").append(first).append("\"");
    if (!second.empty())
        record.append(",\"").append(second).append("\"");
    record += ']';
}

void addFields(std::string& record, std::uint64_t host, std::uint64_t change)
{
    const System& system = SYSTEMS[host % SYSTEMS.size()];
    const std::string release = RELEASES[host % RELEASES.size()];
    addText(record, "masterServer", "master1.example");
    addText(record, "osType", "UNIX");
    addText(record, "osVersion", system.version);
    addText(record, "osReleaseVersion", system.release);
    addText(record, "installedHFXs", host % 3 != 0 ? "" : "HFX_Torquenix_" + release + "_SET_1");
    addText(record, "installedPackages",
            "XRVNddagt_15.0.2,XRVNtqclt_" + release + ",XRVNbrk_1.15.1.0,XRVNtqcfg_" + release +
                ",XRVNtqpck_" + release);
    addText(record, "kqUpdatePlatform", "Linux-x86_64");
    addText(record, "hwDescription",
            formatted("GenuineIntel Intel(R) Xeon(R) Gold 6338 CPU @ 2.00GHz, %02u CPUs",
                      2U << static_cast<unsigned>(host % 5)));
    addText(record, "cpuArchitecture", "x86_64");
    addText(record, "tquVersion",
            formatted("Torquenix_%s.%010llu", release.c_str(), static_cast<unsigned long long>(change)));
    addList(record, "servers", "master1.example",
            formatted("media%02u.example", static_cast<unsigned>(host % 40)));
    addList(record, "clusterSharedNames", host % 10 == 0 ? "cluster.example" : "", "");
    record += ",\"isSecureEnabled\":true";
    addText(record, "trustVersion", "1");
    addText(record, "machineType", host % 4 == 0 ? "PHYSICAL" : "VIRTUAL");
    addText(record, "hypervisorType", host % 4 == 0 ? "NONE" : "VMWARE");
    // Set on half of the fleet; a reader notes each host that lacks it.
    if (host % 2 == 0)
        addText(record, "machineTquType", "CLIENT");
}

} // namespace

std::string hostNameOf(std::uint64_t host)
{
    return formatted("host%07llu.dc%llu.example", static_cast<unsigned long long>(host),
                     static_cast<unsigned long long>(host % 7));
}

std::string hostIdOf(std::uint64_t host)
{
    // A step of a well-mixing generator, so that identifiers come in no order as real ones do.
    std::uint64_t mixed = host + 0x9e3779b97f4a7c15ULL;
    mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9ULL;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebULL;
    mixed ^= mixed >> 31U;
    return formatted("%08llx-%04llx-4000-8000-%012llx", static_cast<unsigned long long>(mixed >> 32U),
                     static_cast<unsigned long long>(mixed & 0xffffU), static_cast<unsigned long long>(host));
}

std::string recordOf(std::uint64_t host, std::uint64_t change)
{
    std::string record = "{";
    addFields(record, host, change);
    return record += '}';
}

std::string listedRecordOf(std::uint64_t host)
{
    std::string record = "{";
    addText(record, "uuid", hostIdOf(host));
    addText(record, "hostName", hostNameOf(host));
    addFields(record, host, 0);
    return record += '}';
}

} // namespace bench
