// Stands in for the command runner, the seams of the utilities, and the reading of release and configuration
// files.
#include "fuzz/support/described_host.h"

#include "fuzz/support/target.h"
#include "hostinfo/text_file.h"
#include "platform/config_file.h"
#include "platform/platformname.h"
#include "platform/status.h"
#include "sysinfo/system_cmd.h"
#include "utils/tqclntdb_utils.h"
#include "utils/tqclntdb_utils_real.h"

#include <cerrno>

namespace fuzz {

DescribedHost& host()
{
    static DescribedHost described;
    return described;
}

void describeOutputs(std::string_view text)
{
    host() = DescribedHost();
    for (Parts parts(text); !parts.isAtEnd();) {
        std::string_view output = parts.next();
        const bool fails = !output.empty() && output.front() == '!';
        host().outputs.push_back({std::string(output.substr(fails ? 1 : 0)), fails ? 1 : 0});
    }
}

void describeEveryOutput(std::string_view text)
{
    host() = DescribedHost();
    host().everyOutput = text;
}

CommandOutput run(const std::string& command)
{
    DescribedHost& described = host();
    described.commands.push_back(command);
    if (described.everyOutput)
        return {*described.everyOutput, 0};
    if (described.outputs.empty())
        return {"", 1};
    CommandOutput output = std::move(described.outputs.front());
    described.outputs.pop_front();
    return output;
}

} // namespace fuzz

bool TQCLNTDB::exists(const char* path)
{
    return fuzz::host().files.count(path) != 0;
}

std::optional<std::istringstream> TQCLNTDB::openLines(const std::string& path)
{
    const auto found = fuzz::host().files.find(path);
    if (found == fuzz::host().files.end())
        return std::nullopt;
    return std::istringstream(found->second);
}

int tq::readConfigFile(const std::string& path, ConfigText& config, const char* /*context*/)
{
    const auto found = fuzz::host().files.find(path);
    if (found == fuzz::host().files.end())
        return EC_file_open_failed;
    config = parseConfigText(found->second);
    return EC_success;
}

namespace SYSINFO_NAMESPACE {

SystemCmd::SystemCmd(const char* program, const char* arguments, bool /*forceCLocale*/)
    : plainCommand_(std::string(program) + " " + arguments)
{
}

SystemCmd::~SystemCmd() = default;

int SystemCmd::Execute(std::list<std::string>* /*errorLines*/)
{
    fuzz::CommandOutput output = fuzz::run(plainCommand_);
    status_ = output.exitStatus;
    stdOutPath_ = std::move(output.text); // read from memory: the text takes the place of the file
    if (!stdOutPath_.empty())
        stdOut_.reset(fmemopen(stdOutPath_.data(), stdOutPath_.size(), "r"));
    return EC_success;
}

char* SystemCmd::GetStdOutLine(char* buffer, int size)
{
    return stdOut_ ? std::fgets(buffer, size, stdOut_.get()) : nullptr;
}

char* SystemCmd::GetStdErrLine(char* /*buffer*/, int /*size*/)
{
    return nullptr;
}

} // namespace SYSINFO_NAMESPACE

namespace T {

int getTQInstalledVersionStr(std::string& out)
{
    return tqclntdb_utils::getTQInstalledVersionStr(out);
}

bool isDebianUbuntu()
{
    return tqclntdb_utils::isDebianUbuntu();
}

bool isHostTQUnixClient()
{
    return tqclntdb_utils::isHostTQUnixClient();
}

int readTorquenixVersionFile(const std::string& path, std::string& out)
{
    return tqclntdb_utils::readTorquenixVersionFile(path, out);
}

int readUnixTorquenixBinVersionFile(std::string& out)
{
    return tqclntdb_utils::readUnixTorquenixBinVersionFile(out);
}

int run_command_and_capture_output(const char* command, std::string& output, int* status)
{
    fuzz::CommandOutput run = fuzz::run(command);
    output = std::move(run.text);
    *status = run.exitStatus;
    return EC_success;
}

const char* getOsHdwName(int identifier)
{
    return ::getOsHdwName(identifier);
}

bool isValidKqupdateOsHdwNamesIdentifier(int identifier)
{
    return ::isValidKqupdateOsHdwNamesIdentifier(identifier);
}

const char* get_TQ_binary_version2()
{
    return tqclntdb_utils::get_TQ_binary_version2();
}

int stat(const char* path, struct ::stat* attributes)
{
    if (fuzz::host().files.count(path) == 0) {
        errno = ENOENT;
        return -1;
    }
    *attributes = {};
    attributes->st_mode = S_IFREG | 0644;
    return 0;
}

} // namespace T
