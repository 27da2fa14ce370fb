/// The pause between two attempts as tests see it: it is kept, not waited for.
#pragma once

#include <vector>

namespace fakes {

/// Seconds of every pause, in order; cleared by the test.
std::vector<int>& waits();

} // namespace fakes
