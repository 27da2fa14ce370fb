#include "platform/shell_word.h"

namespace tq {

bool isPlainShellWord(std::string_view word)
{
    constexpr std::string_view ALLOWED = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
                                         "._:@%+,/=-";
    return !word.empty() && word.front() != '-' && word.find_first_not_of(ALLOWED) == std::string_view::npos;
}

} // namespace tq
