#include "masterd/request_framing.h"

#include <algorithm>
#include <charconv>
#include <strings.h>

namespace masterd {

namespace {

/// Far more than a chunk's size and an honest extension need.
constexpr std::size_t CHUNK_LINE_MAX_BYTES = 1024;
constexpr std::size_t CHUNK_SIZE_MAX_DIGITS = 8;
constexpr std::string_view BLANKS = " \t";

bool isTokenCharacter(char c)
{
    constexpr std::string_view MARKS = "!#$%&'*+-.^_`|~";
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           MARKS.find(c) != std::string_view::npos;
}

bool isControlCharacter(char c)
{
    return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f';
}

bool equalsWithoutCase(std::string_view text, std::string_view lowerCase)
{
    return text.size() == lowerCase.size() && strncasecmp(text.data(), lowerCase.data(), text.size()) == 0;
}

std::string_view withoutBlanksAround(std::string_view text)
{
    const std::size_t begin = std::min(text.find_first_not_of(BLANKS), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(BLANKS) + 1);
}

} // namespace

bool RequestFraming::take(std::string_view bytes)
{
    while (!bytes.empty() && part_ != Part::fault) {
        if (part_ == Part::body || part_ == Part::chunk) {
            bytes.remove_prefix(takeBody(bytes.size()));
            continue;
        }
        ++(isHead() ? headBytes_ : bodyBytes_);
        if (!takeOfLine(bytes.front()))
            part_ = Part::fault;
        bytes.remove_prefix(1);
    }
    return part_ != Part::fault;
}

/// How many of so many bytes were the body's.
std::size_t RequestFraming::takeBody(std::size_t size)
{
    if (part_ == Part::chunk) {
        size = std::min(size, chunkLeft_);
        chunkLeft_ -= size;
        if (chunkLeft_ == 0)
            part_ = Part::chunkEnd;
    }
    bodyBytes_ += size;
    return size;
}

bool RequestFraming::takeOfLine(char c)
{
    const bool isAfterCr = !line_.empty() && line_.back() == '\r';
    if (isAfterCr != (c == '\n'))
        return false;
    if (isAfterCr) {
        line_.pop_back();
        part_ = partAfterLine();
        line_.clear();
        return part_ != Part::fault;
    }
    line_ += c;
    if (c == '\r')
        return part_ != Part::nothing;
    return !isControlCharacter(c) &&
           (isHead() || (part_ == Part::chunkSize && line_.size() <= CHUNK_LINE_MAX_BYTES));
}

RequestFraming::Part RequestFraming::partAfterLine()
{
    switch (part_) {
    case Part::requestLine:
        return Part::header;
    case Part::header:
        return partAfterHeader();
    case Part::chunkSize:
        return partAfterChunkSize();
    case Part::chunkEnd: // this line and the last one are empty: takeOfLine() lets nothing else pass
        return Part::chunkSize;
    case Part::lastLine:
        return Part::nothing;
    default:
        return Part::fault;
    }
}

RequestFraming::Part RequestFraming::partAfterHeader()
{
    if (line_.empty())
        return isChunked_ ? Part::chunkSize : Part::body;
    const std::string_view line = line_;
    const std::size_t colon = line.find(':');
    const std::string_view name = line.substr(0, colon);
    if (colon == std::string_view::npos || name.empty() ||
        !std::all_of(name.begin(), name.end(), isTokenCharacter))
        return Part::fault;
    if (equalsWithoutCase(name, "transfer-encoding"))
        isChunked_ = equalsWithoutCase(withoutBlanksAround(line.substr(colon + 1)), "chunked");
    return Part::header;
}

RequestFraming::Part RequestFraming::partAfterChunkSize()
{
    const std::string_view line = line_;
    const std::string_view digits = withoutBlanksAround(line.substr(0, line.find(';')));
    const char* const end = digits.data() + digits.size();
    const auto [stop, fault] = std::from_chars(digits.data(), end, chunkLeft_, 16);
    if (fault != std::errc() || stop != end || digits.size() > CHUNK_SIZE_MAX_DIGITS)
        return Part::fault;
    return chunkLeft_ == 0 ? Part::lastLine : Part::chunk;
}

} // namespace masterd
