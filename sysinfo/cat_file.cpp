#include "sysinfo/cat_file.h"

#include "sysinfo/log_message.h"

namespace SYSINFO_NAMESPACE {

CatFile::CatFile(const char* path) : command_("/bin/cat", path, true)
{
    command_.Execute(nullptr);
}

CatFile::CatFile(const char* path, const char* context, LogLevel failureLevel) : CatFile(path)
{
    if (status() != 0)
        logMessage(failureLevel, context, "cat command failed");
}

bool CatFile::nextLine(std::string& line)
{
    char buffer[2048];
    if (status() != 0 || !command_.GetStdOutLine(buffer, sizeof buffer))
        return false;
    line = buffer;
    return true;
}

} // namespace SYSINFO_NAMESPACE
