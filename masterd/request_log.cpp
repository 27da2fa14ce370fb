#include "masterd/request_log.h"

#include "masterd/clock.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace masterd {

namespace {

constexpr std::size_t TARGET_MAX_BYTES = 512;

void appendEscaped(std::string& line, std::string_view text)
{
    for (const char c : text) {
        if (c > ' ' && c < 0x7f && c != '"' && c != '\\') {
            line += c;
            continue;
        }
        std::array<char, 8> escaped{};
        std::snprintf(escaped.data(), escaped.size(), "\\x%02x", static_cast<unsigned char>(c));
        line += escaped.data();
    }
}

void appendField(std::string& line, std::string_view text)
{
    line += ' ';
    if (text.empty())
        line += '-';
    else
        appendEscaped(line, text);
}

std::string formatTime(std::int64_t now)
{
    const std::time_t seconds = now;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text.data();
}

} // namespace

std::string formatRequestLine(const LoggedRequest& request, std::int64_t now)
{
    std::string line = formatTime(now);
    appendField(line, request.client);
    line += " \"";
    appendEscaped(line, request.method.empty() ? "-" : request.method);
    appendField(line, std::string_view(request.target).substr(0, TARGET_MAX_BYTES));
    line += request.target.size() > TARGET_MAX_BYTES ? "...\" " : "\" ";
    line += std::to_string(request.status);
    appendField(line, request.identity);
    appendField(line, request.certificate);
    if (!request.fault.empty())
        appendField(line, request.fault);
    return line;
}

void RequestLog::write(const LoggedRequest& request) const
{
    if (descriptor_ < 0)
        return;
    // A log that cannot be written (a full disk, a closed pipe) is no reason to refuse a host.
    [[maybe_unused]] const bool written =
        tq::writeAll(descriptor_, formatRequestLine(request, unixNow()) + '\n');
}

} // namespace masterd
