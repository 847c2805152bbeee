#include <algorithm>
#include <cstring>

#include "disk/disk_rules.h"

namespace wrenkits {

namespace {

std::uint64_t Word(const std::uint8_t* at) {
    std::uint64_t w;
    std::memcpy(&w, at, sizeof w);  // unaligned-safe; compiles to one load
    return w;
}

// Index of the highest set bit of a non-zero little-endian word.
unsigned HighestBit(std::uint64_t w) { return 63u - static_cast<unsigned>(__builtin_clzll(w)); }

}  // namespace

std::uint64_t HighestUsedCluster(std::span<const std::uint8_t> bitmap, std::uint64_t bitCount) {
    bitCount = std::min<std::uint64_t>(bitCount, static_cast<std::uint64_t>(bitmap.size()) * 8);
    const std::uint8_t* base = bitmap.data();
    std::size_t bytes = static_cast<std::size_t>(bitCount / 8);

    // The answer is the highest set bit, so only the free tail behind it is read:
    // from the end backwards. A partial last byte first, masked to the counted bits.
    if (const unsigned rest = bitCount % 8) {
        const std::uint8_t last = base[bytes] & static_cast<std::uint8_t>((1u << rest) - 1);
        if (last) return bytes * 8ull + (31u - static_cast<unsigned>(__builtin_clz(last)));
    }
    // Bytes down to a word boundary of the span, then four words per step: an empty
    // tail costs one OR-chain per 32 bytes.
    while (bytes % 8) {
        --bytes;
        if (base[bytes]) return bytes * 8ull + (31u - static_cast<unsigned>(__builtin_clz(base[bytes])));
    }
    while (bytes >= 32) {
        const std::uint8_t* block = base + bytes - 32;
        if ((Word(block) | Word(block + 8) | Word(block + 16) | Word(block + 24)) != 0) break;
        bytes -= 32;
    }
    while (bytes >= 8) {
        bytes -= 8;
        if (const std::uint64_t w = Word(base + bytes)) return bytes * 8ull + HighestBit(w);
    }
    return 0;
}

std::uint64_t MinSizeClusters(std::uint64_t highestUsed, std::uint32_t totalClusters, std::uint32_t freeClusters,
                              std::uint64_t bitmapClusters) {
    if (highestUsed > totalClusters) return totalClusters;
    const std::uint32_t used = totalClusters - freeClusters;
    if (highestUsed < used) return bitmapClusters;
    return std::min(highestUsed + kClusterMargin, bitmapClusters);
}

}  // namespace wrenkits
