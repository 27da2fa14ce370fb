/// Names that the authority writes into certificates.
#pragma once

#include <string_view>

namespace masterd {

/// Whether a text can be a host's name: 1 to 253 letters, digits, "-", "_" and ".", beginning and ending
/// with a letter, a digit or "_".
bool isHostName(std::string_view name);

} // namespace masterd
