#include "sysinfo/log_message.h"

#include "platform/portable.h"

#include <cstdarg>

namespace SYSINFO_NAMESPACE {

void logMessage(LogLevel level, const char* function, const char* format, ...)
{
    char text[1025];
    va_list arguments;
    va_start(arguments, format);
    V_vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    logmsg(static_cast<int>(level), text, function);
}

} // namespace SYSINFO_NAMESPACE
