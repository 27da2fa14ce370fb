/// Entries of the debug log and lines of the master server's request log: no text may forge one. The parts of
/// an input are the context, or the request's client, and texts.
#include "fuzz/support/target.h"
#include "masterd/request_log.h"
#include "platform/log_entry.h"

#include <algorithm>
#include <chrono>

namespace {

using fuzz::require;

void checkEntry(std::string_view context, std::string_view text)
{
    const std::chrono::system_clock::time_point time(std::chrono::seconds(1'800'000'000));
    const std::string entry = tq::formatLogEntry(time, 16, context, text);
    fuzz::requireLogEntry(entry);
    require(entry.size() <= tq::LOG_ENTRY_MAX_BYTES, "an entry has its limit");
    const auto lines = std::count(entry.begin(), entry.end(), '\n');
    require(lines <= std::count(text.begin(), text.end(), '\n') + 1, "a line comes from a line of the text",
            entry);
}

void checkRequestLine(const masterd::LoggedRequest& request)
{
    const std::string line = masterd::formatRequestLine(request, 1'800'000'000);
    require(std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; }),
            "a request's line is printable", line);
    require(std::count(line.begin(), line.end(), '"') == 2, "only the request itself stands in quotes", line);
    // Of a text in quotes only the blanks between its words may be raw.
    const std::size_t words = request.fault.empty() ? 7 : 8;
    require(static_cast<std::size_t>(std::count(line.begin(), line.end(), ' ')) + 1 >= words,
            "a line has all its fields", line);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::Parts parts(fuzz::textOf(data, size));
    const std::string_view context = parts.next();
    const std::string_view text = parts.next();
    checkEntry(context, text);
    checkEntry(text, context);
    const auto word = [&] { return std::string(parts.next()); };
    checkRequestLine({std::string(context), std::string(text), word(), 200, word(), word(), word()});
    return 0;
}
