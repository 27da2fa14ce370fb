/// Memory that runs short when a test says so. Its source replaces the program's operators new and delete.
#pragma once

namespace tests {

/// From its making to its end no operator new succeeds.
class ShortMemory {
public:
    ShortMemory();
    ShortMemory(const ShortMemory&) = delete;
    ShortMemory& operator=(const ShortMemory&) = delete;
    ~ShortMemory();
};

} // namespace tests
