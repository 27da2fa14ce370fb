#include "platform/portable.h"

#include "platform/stale_files.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <utility>

namespace {

constexpr std::pair<int, const char*> CATEGORY_VARIABLES[] = {
    {LC_COLLATE, "LC_COLLATE"},   {LC_CTYPE, "LC_CTYPE"},     {LC_MESSAGES, "LC_MESSAGES"},
    {LC_MONETARY, "LC_MONETARY"}, {LC_NUMERIC, "LC_NUMERIC"}, {LC_TIME, "LC_TIME"},
};

const char* variableOf(int category)
{
    for (const auto& [known, variable] : CATEGORY_VARIABLES) {
        if (known == category)
            return variable;
    }
    return nullptr;
}

/// Value of a variable that is set and not empty, else null.
const char* textOf(const char* variable)
{
    const char* value = variable ? std::getenv(variable) : nullptr;
    return value && *value ? value : nullptr;
}

void sweepOnce(const char* directory, const char* prefix)
{
    static bool swept = false;
    if (!std::exchange(swept, true))
        tq::removeStaleFiles(directory, prefix);
}

} // namespace

char* V_tempnam(const char* directory, const char* prefix)
{
    if (!directory || !prefix)
        return nullptr;
    try {
        sweepOnce(directory, prefix);
        return strdup((std::string(directory) + "/" + tq::uniqueFileName(prefix)).c_str());
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

int V_snprintf(char* buffer, std::size_t size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = V_vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

int V_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments)
{
    const int length = std::vsnprintf(buffer, size, format, arguments);
    if (length < 0 && size > 0)
        buffer[0] = '\0'; // the C library leaves it open what a failed call wrote
    return length;
}

int V_sscanf(const char* text, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int fields = std::vsscanf(text, format, arguments);
    va_end(arguments);
    return fields;
}

const char* V_basename(const char* path)
{
    if (!path)
        return nullptr;
    const char* slash = std::strrchr(path, '/');
    const char* name = slash ? slash + 1 : path;
    return *name ? name : nullptr;
}

void V_locale_name(int category, char* buffer, std::size_t size)
{
    const char* name = textOf("LC_ALL");
    if (!name)
        name = textOf(variableOf(category));
    if (!name)
        name = textOf("LANG");
    V_snprintf(buffer, size, "%s", name ? name : "C");
}
