#include "clusterinfo/trace.h"

#include "platform/portable.h"

#include <cstdarg>

namespace libclusterinfo {

namespace {

constexpr std::size_t MESSAGE_SIZE = 1024;
constexpr const char* INDENT = "    ";

TraceFunction traceFunction = nullptr;

} // namespace

void SetTraceFunc(TraceFunction function)
{
    traceFunction = function;
}

void Trace(int level, const char* format, ...)
{
    if (!traceFunction)
        return;
    char message[MESSAGE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    V_vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);

    std::string line;
    for (int step = 0; step < level; ++step)
        line += INDENT;
    traceFunction((line + message).c_str());
}

TraceMethod::TraceMethod(const char* name, int* depth) : name_(name), depth_(depth)
{
    Trace(depth_ ? *depth_ : 0, "[%s] ... Enter \n", name_.c_str());
    if (depth_)
        ++*depth_;
}

TraceMethod::~TraceMethod()
{
    if (depth_)
        --*depth_;
    // Two blanks at the end, unlike the enter line: support staff search for both as they are.
    Trace(depth_ ? *depth_ : 0, "[%s] ... Exit  \n", name_.c_str());
}

} // namespace libclusterinfo
