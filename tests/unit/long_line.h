/// A line that is longer than any buffer.
#pragma once

#include <string>

/// Ten megabytes of one character, without a line end.
inline std::string longLine(char character)
{
    std::string line;
    line.resize(10'000'000, character);
    return line;
}
