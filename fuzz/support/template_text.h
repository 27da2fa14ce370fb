/// Inputs with marks for what a process makes anew each time: keys, certificates, tokens.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fuzz {

/// Marks such as "@token@" and what stands for them.
using TemplateValues = std::vector<std::pair<std::string, std::string>>;

inline std::string expanded(std::string_view text, const TemplateValues& values)
{
    std::string result(text);
    for (const auto& [mark, value] : values) {
        for (std::size_t at = result.find(mark); at != std::string::npos;
             at = result.find(mark, at + value.size()))
            result.replace(at, mark.size(), value);
    }
    return result;
}

/// A PEM text as it stands between the quotes of a JSON text.
inline std::string jsonEscaped(std::string_view pem)
{
    std::string escaped;
    for (const char byte : pem)
        escaped += byte == '\n' ? std::string("\\n") : std::string(1, byte);
    return escaped;
}

} // namespace fuzz
