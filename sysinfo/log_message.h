/// Log entries of the system probes.
#pragma once

#include "platform/debuglog.h"

namespace SYSINFO_NAMESPACE {

/// Writes one entry, printf style. The text is cut to 1024 bytes, as every message of these probes is.
/// `function` is the entry's context: the qualified name of the operation that reports.
void logMessage(LogLevel level, const char* function, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

} // namespace SYSINFO_NAMESPACE
