/// The external command that is running under a guard, as the handler of a signal sees it.
#pragma once

namespace tq {

/// Ends the running command, if there is one, with everything it started, and waits up to a second for that.
/// For the handler of a signal that ends this process; the handler must block all other signals.
void endRunningCommand() noexcept;

} // namespace tq
