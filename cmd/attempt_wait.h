/// The pause between two attempts of an update. It stands alone so that a test can link one of its own.
#pragma once

namespace TQCLNTDB {

/// Sleeps once. A signal that interrupts the sleep ends it: it is not resumed.
void waitBeforeNextAttempt(int seconds);

} // namespace TQCLNTDB
