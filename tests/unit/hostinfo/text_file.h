/// Files that a test puts on the host of its sandbox.
#pragma once

#include <fstream>
#include <string>

namespace fakes {

/// Writes a file whole, any bytes.
inline void writeFile(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

} // namespace fakes
