#include "utils/tqclntdb_utils.h"

#include "platform/debuglog.h"
#include "platform/portable.h"
#include "platform/status.h"
#include "utils/tqclntdb_utils_real.h"

#include <algorithm>

namespace tqclntdb_utils {
namespace {

/// The dotted number that a text begins with, without dots behind its last digit.
std::string leadingDottedNumber(const std::string& text)
{
    std::string number = text.substr(0, text.find_first_not_of("0123456789."));
    number.erase(number.find_last_not_of('.') + 1);
    return number;
}

} // namespace

int tqReleaseVersionStringToNumber(const std::string& version)
{
    const std::size_t separator = version.find('_');
    if (separator == std::string::npos)
        return -1;
    const std::string number = leadingDottedNumber(version.substr(separator + 1));
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    unsigned e = 0;
    unsigned f = 0;
    if (V_sscanf(number.c_str(), "%u.%u.%u.%u.%u.%u", &a, &b, &c, &d, &e, &f) < 1)
        return -1;
    // Only the last digits count, so that 9.10 equals 9.0: numbers stay comparable with those that earlier
    // releases made.
    const auto lastDigit = [](unsigned component) { return static_cast<int>(component) % 10; };
    return static_cast<int>(a) % 100 * 100000 + lastDigit(b) * 10000 + lastDigit(c) * 1000 +
           lastDigit(d) * 100 + lastDigit(e) * 10 + lastDigit(f);
}

std::string getInstalledPackagesVersionNumberStr(int components)
{
    constexpr const char* CONTEXT = "tqclntdb_utils::getInstalledPackagesVersionNumberStr";
    std::string full;
    if (const int status = T::getTQInstalledVersionStr(full); status != EC_success) {
        LogLine(LogLevel::error, CONTEXT)
            << "Failed to get Torquenix installed version with status: [" << status << "].";
        return "";
    }
    LogLine(LogLevel::progress, CONTEXT) << "Full version string: [" << full << "]";
    const std::size_t separator = full.rfind('_');
    if (separator == std::string::npos) {
        LogLine(LogLevel::error, CONTEXT) << "Invalid version string.";
        return "";
    }
    LogLine(LogLevel::progress, CONTEXT) << "Extracted version string: [" << full.substr(separator) << "]";
    return padTorquenixVersionNumberStr(full.c_str() + separator + 1, components);
}

std::string padTorquenixVersionNumberStr(const char* text, int components)
{
    // The log knows this operation by its earlier name, which support staff search for.
    constexpr const char* CONTEXT = "tqclntdb_utils::padVersionNumberStr";
    const std::string input = text ? text : "";
    LogLine(LogLevel::progress, CONTEXT) << "Input versionNumberStr: [" << input << "]";
    if (input.empty() || input.front() < '0' || input.front() > '9') {
        LogLine(LogLevel::error, CONTEXT)
            << "Invalid version string: [" << input << "], should start with number.";
        return "";
    }
    std::string padded = leadingDottedNumber(input);
    LogLine(LogLevel::progress, CONTEXT) << "Filtered version string: [" << padded << "]";
    for (auto count = 1 + std::count(padded.begin(), padded.end(), '.'); count < components; ++count)
        padded += ".0";
    LogLine(LogLevel::progress, CONTEXT) << "Padded version string: [" << padded << "]";
    return padded;
}

} // namespace tqclntdb_utils
