#include "enroll/terminal.h"

#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/paths.h"

#include <cerrno>
#include <ostream>

namespace enroll {

void show(std::ostream& out, const std::string& text, const std::string& what)
{
    errno = 0;
    out << text << std::flush;
    const int cause = errno;
    if (!out)
        throw Failure(ExitStatus::failed, what + " could not be written to standard output" +
                                              (cause != 0 ? ": " + tq::errorText(cause) : ""));
}

void complain(std::ostream& err, std::string_view sentence, std::string_view cause)
{
    err << PROGRAM << ": " << sentence << cause << ".\n";
}

void openLog()
{
    constexpr int MODE = 0644;
    int unused = 0;
    open_debug_log(TQ_LOG_DIR, TQ_LOG_SUBDIR, PROGRAM, MODE, &unused);
}

} // namespace enroll
