// A 64-bit checksum of byte streams (the XXH64 function, seed 0): the saved
// bytes of a drive and their copy on disk are checked with it. Fast enough
// that checking a region costs little beside reading it.
#pragma once

#include <cstddef>
#include <cstdint>

class Hash64 {
public:
    Hash64();
    void Update(const void* data, size_t size);
    // The checksum of everything given so far; more may follow.
    uint64_t Digest() const;

    static uint64_t Of(const void* data, size_t size);

private:
    uint64_t lanes[4];
    uint64_t total = 0;
    unsigned char pending[32];
    size_t pendingSize = 0;
};
