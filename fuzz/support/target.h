/// What every fuzz target shares: its entry point, its way to report a finding, and ways to take an input
/// apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// One run of a target on any bytes. Returns 0; a property that does not hold ends the process.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

/// Ends the process with the property's words when it does not hold. `shown` is what it did not hold for.
void require(bool holds, const char* property, std::string_view shown = {});

/// The input as text.
std::string_view textOf(const std::uint8_t* data, std::size_t size);

bool isUtf8(std::string_view text);
bool isJson(std::string_view text);

/// Whether a byte is a control character of ASCII.
bool isControl(char byte);

/// Whether a UTF-8 text holds a control character of C1, a line separator of Unicode or one of its marks that
/// turn the direction of what follows.
bool holdsDisguise(std::string_view text);

/// Requires that an entry of the debug log is one line with its head, followed by lines that begin with a
/// tab, all UTF-8 and without any other control character or disguise.
void requireLogEntry(std::string_view entry);

/// An input in parts, each ended by the separator: seeds stay texts that a person can write.
class Parts {
public:
    static constexpr char SEPARATOR = '\x1e'; ///< between the parts of one thing
    static constexpr char NEXT = '\x1d';      ///< between things, each with parts of its own

    explicit Parts(std::string_view text, char separator = SEPARATOR) : rest_(text), separator_(separator) {}

    [[nodiscard]] bool isAtEnd() const { return atEnd_; }
    /// The next part; empty behind the last.
    std::string_view next();

private:
    std::string_view rest_;
    char separator_;
    bool atEnd_ = false;
};

} // namespace fuzz
