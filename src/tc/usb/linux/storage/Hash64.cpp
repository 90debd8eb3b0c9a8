#include "tc/usb/linux/storage/Hash64.h"

#include <cstring>

namespace {

const uint64_t prime1 = 0x9E3779B185EBCA87ULL;
const uint64_t prime2 = 0xC2B2AE3D27D4EB4FULL;
const uint64_t prime3 = 0x165667B19E3779F9ULL;
const uint64_t prime4 = 0x85EBCA77C2B2AE63ULL;
const uint64_t prime5 = 0x27D4EB2F165667C5ULL;

inline uint64_t RotateLeft(uint64_t value, int bits) { return (value << bits) | (value >> (64 - bits)); }

// The function is defined on little-endian words.
inline uint64_t Read64(const unsigned char* p) {
    uint64_t value;
    std::memcpy(&value, p, 8);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    value = __builtin_bswap64(value);
#endif
    return value;
}

inline uint32_t Read32(const unsigned char* p) {
    uint32_t value;
    std::memcpy(&value, p, 4);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    value = __builtin_bswap32(value);
#endif
    return value;
}

inline uint64_t Round(uint64_t lane, uint64_t input) {
    lane += input * prime2;
    return RotateLeft(lane, 31) * prime1;
}

inline uint64_t Merge(uint64_t hash, uint64_t lane) {
    hash ^= Round(0, lane);
    return hash * prime1 + prime4;
}

// Consumes whole 32-byte stripes; gives the bytes used.
size_t Stripes(uint64_t* lanes, const unsigned char* p, size_t size) {
    const size_t whole = size - size % 32;
    uint64_t a = lanes[0], b = lanes[1], c = lanes[2], d = lanes[3];
    for (size_t i = 0; i < whole; i += 32) {
        a = Round(a, Read64(p + i));
        b = Round(b, Read64(p + i + 8));
        c = Round(c, Read64(p + i + 16));
        d = Round(d, Read64(p + i + 24));
    }
    lanes[0] = a, lanes[1] = b, lanes[2] = c, lanes[3] = d;
    return whole;
}

}  // namespace

Hash64::Hash64() : lanes{prime1 + prime2, prime2, 0, 0 - prime1}, pending{} {}

void Hash64::Update(const void* data, size_t size) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    total += size;
    if (pendingSize > 0) {
        const size_t take = size < 32 - pendingSize ? size : 32 - pendingSize;
        std::memcpy(pending + pendingSize, p, take);
        pendingSize += take;
        p += take;
        size -= take;
        if (pendingSize < 32) return;
        Stripes(lanes, pending, 32);
        pendingSize = 0;
    }
    const size_t used = Stripes(lanes, p, size);
    std::memcpy(pending, p + used, size - used);
    pendingSize = size - used;
}

uint64_t Hash64::Digest() const {
    uint64_t hash;
    if (total >= 32) {
        hash = RotateLeft(lanes[0], 1) + RotateLeft(lanes[1], 7) + RotateLeft(lanes[2], 12) + RotateLeft(lanes[3], 18);
        for (uint64_t lane : lanes) hash = Merge(hash, lane);
    } else {
        hash = prime5;
    }
    hash += total;
    const unsigned char* p = pending;
    size_t left = pendingSize;
    for (; left >= 8; p += 8, left -= 8) hash = RotateLeft(hash ^ Round(0, Read64(p)), 27) * prime1 + prime4;
    if (left >= 4) {
        hash = RotateLeft(hash ^ (Read32(p) * prime1), 23) * prime2 + prime3;
        p += 4;
        left -= 4;
    }
    for (; left > 0; ++p, --left) hash = RotateLeft(hash ^ (*p * prime5), 11) * prime1;
    hash ^= hash >> 33;
    hash *= prime2;
    hash ^= hash >> 29;
    hash *= prime3;
    return hash ^ (hash >> 32);
}

uint64_t Hash64::Of(const void* data, size_t size) {
    Hash64 hash;
    hash.Update(data, size);
    return hash.Digest();
}
