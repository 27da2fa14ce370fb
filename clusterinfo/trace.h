/// Trace of the cluster discovery: it writes no log of its own, the program that runs it sets where lines go.
#pragma once

#include <string>

namespace libclusterinfo {

using TraceFunction = void (*)(const char* line);

/// Sets the process's trace function, once, before discovery starts; null switches tracing off. The line that
/// the function gets carries the line end of its format.
void SetTraceFunc(TraceFunction function);

/// Writes one line, indented by four blanks for each level above 0; the message is cut at 1023 bytes.
void Trace(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Traces the enter and exit lines of a scope. With a depth, the lines stand at the level that it holds and
/// what is traced inside at that level stands one step deeper; without one both stand at level 0.
class TraceMethod {
public:
    TraceMethod(const char* name, int* depth);
    TraceMethod(const TraceMethod&) = delete;
    TraceMethod& operator=(const TraceMethod&) = delete;
    virtual ~TraceMethod();

private:
    std::string name_;
    int* depth_;
};

} // namespace libclusterinfo
