#include "hostinfo/text_file.h"

#include "platform/file_io.h"

#include <utility>

namespace TQCLNTDB {

std::optional<std::istringstream> openLines(const std::string& path)
{
    std::optional<std::string> text = tq::readFileStart(path);
    if (!text)
        return std::nullopt;
    return std::istringstream(std::move(*text));
}

} // namespace TQCLNTDB
