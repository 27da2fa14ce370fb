#include "utils/tqclntdb_utils.h"

#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/paths.h"
#include "platform/release.h"
#include "platform/status.h"
#include "utils/product_names.h"
#include "utils/tqclntdb_utils_real.h"

#include <optional>
#include <sstream>

namespace tqclntdb_utils {
namespace {

const std::string VERSION_KEY = "VERSION";

/// Logs the opening of a version file and gives its text, as far as it can be read; absent when it cannot be
/// opened.
std::optional<std::string> openVersionFile(const std::string& path, const char* context)
{
    LogLine(LogLevel::notice, context) << "Reading Torquenix version file: [" << path << "].";
    std::optional<std::string> text = tq::readFileStart(path);
    if (!text)
        LogLine(LogLevel::error, context) << "Unable to open version file: [" << path << "].";
    return text;
}

bool isDigitAt(const std::string& text, std::size_t position)
{
    return position < text.size() && text[position] >= '0' && text[position] <= '9';
}

/// The one shape of every complaint about a version line.
int invalidFormat(const std::string& line, const std::string& complaint, const char* context)
{
    LogLine(LogLevel::error, context)
        << "Invalid format for the Torquenix version: [" << line << "]; " << complaint;
    return EC_file_read_failed;
}

} // namespace

int readUnixTorquenixBinVersionFile(std::string& out)
{
    constexpr const char* CONTEXT = "tqclntdb_utils::readUnixTorquenixBinVersionFile";
    const std::optional<std::string> text = openVersionFile(TQ_BIN_VERSION_FILE, CONTEXT);
    if (!text)
        return EC_version_file_not_opened;

    const std::string line = text->substr(0, text->find('\n'));
    LogLine(LogLevel::progress, CONTEXT) << "Version file line: [" << line << "].";
    std::string product;
    if (!findProductStr(line, product))
        return invalidFormat(line, "does not begin with: [" + TORQUENIX_STR + "-].", CONTEXT);

    out = line;
    LogLine(LogLevel::progress, CONTEXT) << "Raw tqInstalledVersion: [" << out << "].";
    const std::size_t blank = out.find(' ', product.size() + 1);
    if (blank == std::string::npos) {
        out.clear();
        return invalidFormat(line, "no blank separator found.", CONTEXT);
    }
    if (!isDigitAt(out, blank + 1)) {
        out.clear();
        return invalidFormat(line, "no version number found.", CONTEXT);
    }
    // "-" and the platform word, up to the blank, give way to the separator of an installed version.
    out.replace(product.size(), blank + 1 - product.size(), "_");
    LogLine(LogLevel::progress, CONTEXT) << "Formatted tqInstalledVersion: [" << out << "].";
    return EC_success;
}

namespace {

constexpr const char* READ_CONTEXT = "tqclntdb_utils::readTorquenixVersionFile";

int readBinVersionFile(const std::string& path, std::string& out)
{
    LogLine(LogLevel::progress, READ_CONTEXT) << "Called with Torquenix Unix bin version file path: [" << path
                                              << "]. Calling readUnixTorquenixBinVersionFile()";
    const int status = T::readUnixTorquenixBinVersionFile(out);
    if (status != EC_success) {
        LogLine(LogLevel::error, READ_CONTEXT)
            << "Error occurred executing readUnixTorquenixBinVersionFile(), error status: [" << status
            << "].";
    }
    return status;
}

/// The first line that begins with the key; absent when none does.
std::optional<std::string> findVersionLine(const std::string& text)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        LogLine(LogLevel::progress, READ_CONTEXT) << "Version file line: [" << line << "].";
        if (line.rfind(VERSION_KEY, 0) == 0)
            return line;
    }
    return std::nullopt;
}

} // namespace

int readTorquenixVersionFile(const std::string& path, std::string& out)
{
    LogLine(LogLevel::progress, READ_CONTEXT) << "Called with tqVersionFilePath: [" << path << "].";
    if (path == TQ_BIN_VERSION_FILE)
        return readBinVersionFile(path, out);

    const std::optional<std::string> text = openVersionFile(path, READ_CONTEXT);
    if (!text)
        return EC_version_file_not_opened;
    const std::optional<std::string> line = findVersionLine(*text);
    if (!line) {
        LogLine(LogLevel::error, READ_CONTEXT)
            << "Torquenix version not found in version file: [" << path << "].";
        return EC_file_read_failed;
    }

    const std::string name = TORQUENIX_STR + " ";
    const std::size_t start = line->find(name, VERSION_KEY.size());
    if (start == std::string::npos)
        return invalidFormat(*line, "does not contain: [" + name + "].", READ_CONTEXT);
    out = line->substr(start);
    LogLine(LogLevel::progress, READ_CONTEXT) << "Raw tqInstalledVersion: [" << out << "].";
    if (!isDigitAt(out, name.size()))
        return invalidFormat(*line, "no version number after: [" + name + "].", READ_CONTEXT);
    out[TORQUENIX_STR.size()] = '_';
    LogLine(LogLevel::progress, READ_CONTEXT) << "Formatted tqInstalledVersion: [" << out << "].";
    return EC_success;
}

namespace {

constexpr const char* INSTALLED_CONTEXT = "tqclntdb_utils::getTQInstalledVersionStr";

int readVersion(const char* path, std::string& out)
{
    const int status = T::readTorquenixVersionFile(path, out);
    if (status != EC_success) {
        LogLine(LogLevel::error, INSTALLED_CONTEXT)
            << "Error occurred in readTorquenixVersionFile() when reading version file: [" << path
            << "], error status: [" << status << "].";
    }
    return status;
}

/// A server has a version file of the product itself. Its version stands in for a binary directory's version
/// that could not be read, and replaces a lower one.
void considerServerVersion(int& status, std::string& out)
{
    LogLine(LogLevel::progress, INSTALLED_CONTEXT) << "Host is not a Unix Torquenix client.";
    std::string serverVersion;
    const int serverStatus = readVersion(TQ_VERSION_FILE, serverVersion);
    LogLine(LogLevel::progress, INSTALLED_CONTEXT)
        << "tqInstalledVersion: [" << out << "]; "
        << "torquenixVersionFileVersion (empty if host is a Unix client): [" << serverVersion << "]";
    if (serverStatus != EC_success)
        return;
    if (status != EC_success ||
        tqReleaseVersionStringToNumber(out) < tqReleaseVersionStringToNumber(serverVersion))
        out = serverVersion;
    status = EC_success;
}

} // namespace

int getTQInstalledVersionStr(std::string& out)
{
    out.clear();
    int status = readVersion(TQ_BIN_VERSION_FILE, out);
    if (!T::isHostTQUnixClient())
        considerServerVersion(status, out);
    if (status != EC_success) {
        LogLine(LogLevel::notice, INSTALLED_CONTEXT)
            << "Failed to read the installed version from the version file. Using the static version string.";
        out = T::get_TQ_binary_version2();
        status = EC_success;
        if (out.empty()) {
            LogLine(LogLevel::error, INSTALLED_CONTEXT) << "Empty Torquenix version static string.";
            status = EC_no_installed_version;
        }
    }
    LogLine(LogLevel::progress, INSTALLED_CONTEXT) << "Final tqInstalledVersion: [" << out << "].";
    return status;
}

const char* get_TQ_binary_version2()
{
    return TQ_BINARY_VERSION;
}

} // namespace tqclntdb_utils
