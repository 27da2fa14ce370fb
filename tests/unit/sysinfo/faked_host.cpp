#include "tests/unit/sysinfo/faked_host.h"

#include <ace/OS_NS_sys_utsname.h>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <unistd.h>

namespace faked_host {
namespace {

constexpr const char* PRODUCT_DIR = "/usr/torqv/torquenix";
constexpr const char* STAND_INS = "/tmp/stand-ins";

Host theHost;

std::string standIn(const std::string& path)
{
    return STAND_INS + path;
}

void write(const std::string& path, const std::string& text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

} // namespace

Host& host()
{
    return theHost;
}

void reset()
{
    fakes::reset();
    theHost = Host{};
    std::filesystem::remove_all(STAND_INS);
    std::filesystem::remove_all(PRODUCT_DIR);
    std::filesystem::create_directory(PRODUCT_DIR);
}

void setFile(const std::string& path, const std::string& text)
{
    theHost.files[path] = standIn(path);
    write(standIn(path), text);
}

void removeFile(const std::string& path)
{
    theHost.files[path] = standIn(path);
    std::filesystem::remove(standIn(path));
}

void setConfiguration(const std::string& text)
{
    write("/usr/torqv/torquenix/kx.conf", text);
}

std::vector<fakes::LogEntry> log()
{
    static const std::regex temporaryFile("/usr/torqv/torquenix/SystemCmd[0-9]+\\.[0-9a-f]{32}");
    std::vector<fakes::LogEntry> entries = fakes::platform().log;
    for (fakes::LogEntry& entry : entries)
        entry.text = std::regex_replace(entry.text, temporaryFile, "FILE");
    return entries;
}

std::vector<fakes::LogEntry> catEntries(const std::string& path, int rawStatus)
{
    constexpr const char* CONTEXT = "SystemCmd::Execute";
    return {{2, "Executing cmd (/bin/cat " + path + ")", CONTEXT},
            {2, "Executing redirected cmd (LC_ALL=C /bin/cat " + path + " </dev/null >FILE 2>FILE)", CONTEXT},
            {2, "Command status: " + std::to_string(rawStatus), CONTEXT}};
}

} // namespace faked_host

using faked_host::host;

// The linker's names for a call that is wrapped and for what stands behind it.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_system(const char* command);
long __real_sysconf(int name);
char* __real__Z9V_tempnamPKcS0_(const char* directory, const char* prefix);

int __wrap_system(const char* command)
{
    std::string line = command;
    host().shellLines.push_back(line);
    if (host().shellFails)
        return -1;
    for (const auto& [path, standIn] : host().files) {
        if (const std::size_t at = line.find(path); at != std::string::npos)
            line.replace(at, path.size(), standIn);
    }
    return __real_system(line.c_str());
}

char* __wrap__Z9V_tempnamPKcS0_(const char* directory, const char* prefix)
{
    host().temporaryNameCalls.push_back(std::string(directory) + " " + prefix);
    if (host().temporaryNames.empty())
        return __real__Z9V_tempnamPKcS0_(directory, prefix);
    const std::optional<std::string> name = host().temporaryNames.front();
    host().temporaryNames.pop_front();
    return name ? strdup(name->c_str()) : nullptr;
}

int __wrap_gethostname(char* name, std::size_t size) noexcept
{
    if (host().hostNameFails || host().hostName.size() >= size) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(name, host().hostName.c_str(), host().hostName.size() + 1);
    return 0;
}

long __wrap_sysconf(int name) noexcept
{
    return name == _SC_NPROCESSORS_ONLN ? host().processorsOnline : __real_sysconf(name);
}
}
// NOLINTEND(bugprone-reserved-identifier)

// Stands before the one of the library.
int ACE_OS::uname(ACE_utsname* names)
{
    if (host().unameFails)
        return -1;
    const auto set = [](auto& field, const std::string& text) {
        std::strncpy(field, text.c_str(), sizeof field - 1);
        field[sizeof field - 1] = '\0';
    };
    *names = {};
    set(names->sysname, host().systemName);
    set(names->release, host().release);
    set(names->machine, host().machine);
    return 0;
}
