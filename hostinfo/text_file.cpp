#include "hostinfo/text_file.h"

#include "platform/file_io.h"
#include "utils/tqclntdb_utils_real.h"

#include <utility>

namespace TQCLNTDB {

bool exists(const char* path)
{
    struct ::stat attributes;
    return T::stat(path, &attributes) == 0;
}

std::optional<std::istringstream> openLines(const std::string& path)
{
    std::optional<std::string> text = tq::readFileStart(path);
    if (!text)
        return std::nullopt;
    return std::istringstream(std::move(*text));
}

} // namespace TQCLNTDB
