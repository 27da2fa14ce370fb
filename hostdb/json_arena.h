/// Memory for the JSON values of one large reply.
#pragma once

#include <cstddef>

namespace TQCLNTDB {

/// While it lives, jansson's small blocks come one after the other from one region of memory, which is given
/// back whole at the end: a reply of a whole fleet is millions of blocks, and an allocator that keeps account
/// of each costs more than reading the text. A block that is released before the end is not used again. Large
/// blocks, and all that the region has no room for, come from the C library as always.
///
/// No value that was made meanwhile may be touched after the end. One at a time in a process, which then uses
/// jansson in one thread only.
class JsonArena {
public:
    /// For a reply of so many bytes. Takes address space only: a page is used when a block lies in it.
    /// Without address space everything comes from the C library.
    explicit JsonArena(std::size_t replyBytes);
    JsonArena(const JsonArena&) = delete;
    JsonArena& operator=(const JsonArena&) = delete;
    ~JsonArena();
};

} // namespace TQCLNTDB
