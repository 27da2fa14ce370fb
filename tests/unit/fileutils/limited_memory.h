/// Memory as a small machine has it: what is plainly too much cannot be had, under sanitizers too, which
/// would end the program instead.
#pragma once

#include <cstddef>

namespace fakes {

/// Largest single allocation of this program.
inline constexpr std::size_t LARGEST_ALLOCATION = std::size_t{1} << 30;

} // namespace fakes
