#include "sysinfo/cat_file.h"

namespace SYSINFO_NAMESPACE {

CatFile::CatFile(const char* path) : command_("/bin/cat", path, true)
{
    command_.Execute(nullptr);
}

bool CatFile::nextLine(std::string& line)
{
    char buffer[2048];
    if (!command_.GetStdOutLine(buffer, sizeof buffer))
        return false;
    line = buffer;
    return true;
}

} // namespace SYSINFO_NAMESPACE
