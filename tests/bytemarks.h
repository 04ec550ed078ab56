#pragma once

#include <cstddef>

// Marks one byte in every 1 KB of a block (so every page is touched), each
// from the seed and its offset, and checks them again after a move.
inline void markBytes(void *p, std::size_t bytes, unsigned char seed)
{
    auto *c = static_cast<unsigned char *>(p);
    for (std::size_t i = 0; i < bytes; i += 1024)
        c[i] = static_cast<unsigned char>(seed + i / 1024);
}

inline bool hasMarks(const void *p, std::size_t bytes, unsigned char seed)
{
    const auto *c = static_cast<const unsigned char *>(p);
    for (std::size_t i = 0; i < bytes; i += 1024) {
        if (c[i] != static_cast<unsigned char>(seed + i / 1024))
            return false;
    }
    return true;
}
