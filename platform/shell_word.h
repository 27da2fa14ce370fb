/// The rule for words that come from a tool's output and go into a shell command.
#pragma once

#include <string_view>

namespace tq {

/// Whether a word may stand in a command line as it is: not empty, not beginning with "-", and made of
/// letters, digits and ._:@%+,/=- alone, so that no shell and no option parser sees more in it than a name.
bool isPlainShellWord(std::string_view word);

} // namespace tq
