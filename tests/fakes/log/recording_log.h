/// A debug log for unit tests of the platform itself: it defines what platform/debuglog.h declares and
/// nothing else, and keeps each entry. Link it before `platform`.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace fakes {

struct RecordedEntry {
    int level = 0;
    std::string text;
    std::string context;
    bool operator==(const RecordedEntry&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const RecordedEntry& entry);

/// The entries since the last clear(), in order; a test that begins with an empty log clears it.
std::vector<RecordedEntry>& recordedLog();

/// How many recorded entries have this level (0 for any) and hold this text somewhere.
std::size_t countRecorded(int level, const std::string& part);

} // namespace fakes
