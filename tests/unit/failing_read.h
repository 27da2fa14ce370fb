/// A file whose reading fails half-way. A test program that uses it wraps the C library's read().
#pragma once

/// While one lives, this many calls of read() are handed on and all later ones fail with EIO.
class ReadsFailAfter {
public:
    explicit ReadsFailAfter(int calls);
    ReadsFailAfter(const ReadsFailAfter&) = delete;
    ReadsFailAfter& operator=(const ReadsFailAfter&) = delete;
    ~ReadsFailAfter();
};
