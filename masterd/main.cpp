#include "masterd/command_line.h"
#include "platform/process.h"

#include <filesystem>
#include <system_error>

int main(int argc, char** argv)
{
    // Before the process leaves it: an administrator's relative paths count from here. Empty when it cannot
    // be read.
    std::error_code ignored;
    const std::string startFolder = std::filesystem::current_path(ignored).string();
    tq::prepareProcess();
    return masterd::runCommandLine(argc, argv, startFolder);
}
