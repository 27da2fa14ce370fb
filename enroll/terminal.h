/// What tqenroll says to whom started it, and to the debug log.
#pragma once

#include "enroll/enroll_failure.h"

#include <iosfwd>
#include <string>
#include <string_view>

namespace enroll {

inline constexpr const char* PROGRAM = "tqenroll";

/// Writes a result. Throws Failure (1) when it does not get out; `what` begins its sentence.
void show(std::ostream& out, const std::string& text, const std::string& what);

/// Writes the sentence of a failure, and at its end what caused it. Needs no memory, which may be the cause.
void complain(std::ostream& err, std::string_view sentence, std::string_view cause = {});

/// Opens the debug log of this program. Without it, what would be logged is dropped.
void openLog();

} // namespace enroll
