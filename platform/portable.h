/// Portable forms of C-library functions, and an owner for the texts that such functions allocate.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <memory>

namespace tq {

struct MallocRelease {
    void operator()(char* text) const { std::free(text); }
};

/// A text that is released with free() at the end of its scope.
using MallocText = std::unique_ptr<char, MallocRelease>;

} // namespace tq

/// A unique path "directory/prefix<pid>.<32 hexadecimal digits>" that the caller releases with free(). The
/// file is not made; no environment variable moves it. A process's first call removes files of that prefix in
/// that directory whose process is gone and that are over a minute old. Null when memory is short.
char* V_tempnam(const char* directory, const char* prefix);

/// Bounded formatting and scanning; the buffer is always terminated when its size is not 0.
int V_snprintf(char* buffer, std::size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));
int V_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));
int V_sscanf(const char* text, const char* format, ...) __attribute__((format(scanf, 2, 3)));

/// Part of a path after its last "/", pointing into the path; null for a null path and when nothing stands
/// after the last "/".
const char* V_basename(const char* path);

/// Locale name of a category (LC_MESSAGES and so on) as the environment asks for it: LC_ALL, then the
/// category's variable, then LANG, the first that is set and not empty; "C" when none is. Cut to the buffer.
/// The process's own locale stays "C".
void V_locale_name(int category, char* buffer, std::size_t size);
