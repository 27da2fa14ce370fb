/// The HTTP client linked into a test, where the program would load it.
#pragma once

#include <functional>

namespace fakes {

/// What happens, once, as the next transport is opened: after the look into the identity store, and before
/// the files that it names are read.
extern std::function<void()> whenATransportOpens;

} // namespace fakes
