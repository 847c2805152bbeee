// The highest used cluster against a plain bit-by-bit scan, and the shrink rule on
// hand-worked volumes.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "disk/disk_volumes.h"

namespace {

std::uint64_t BitByBit(const std::uint8_t* bytes, std::uint64_t bits) {
    std::uint64_t highest = 0;
    for (std::uint64_t i = 0; i < bits; ++i)
        if (bytes[i / 8] >> (i % 8) & 1) highest = i;
    return highest;
}

TEST(HighestUsedCluster, MatchesABitByBitScanForEveryBitLengthAndAlignment) {
    std::vector<std::uint8_t> buffer(112);
    for (std::size_t offset = 0; offset < 8; ++offset) {
        for (std::size_t bytes = 0; offset + bytes <= 104; bytes += 1 + bytes / 16) {
            const std::span<const std::uint8_t> span(buffer.data() + offset, bytes);
            for (std::uint64_t counted : {bytes * 8, bytes > 0 ? bytes * 8 - 3 : 0, bytes * 8 + 64}) {
                // One bit set at each place in turn, with a used neighbour before it and
                // a set bit just outside the span (or outside the counted bits) after it.
                for (std::size_t bit = 0; bit < bytes * 8; ++bit) {
                    std::fill(buffer.begin(), buffer.end(), 0);
                    buffer[offset + bytes] = 0xFF;
                    if (bit > 5) buffer[offset + (bit - 5) / 8] |= 1 << ((bit - 5) % 8);
                    buffer[offset + bit / 8] |= 1 << (bit % 8);
                    const std::uint64_t limit = std::min<std::uint64_t>(counted, bytes * 8);
                    ASSERT_EQ(BitByBit(span.data(), limit), wrenkits::HighestUsedCluster(span, counted))
                        << "offset " << offset << ", " << bytes << " bytes, " << counted << " bits counted, bit "
                        << bit;
                }
            }
        }
    }
}

TEST(MinSizeClusters, KeepsTheMarginBehindTheLastUsedClusterUnlessTheVolumeIsPacked) {
    struct Case {
        const char* name;
        std::uint64_t highest;
        DWORD total, free;
        std::uint64_t bitmap, clusters;
    } cases[] = {
        {"last used 10,000 of 1,000,000", 10000, 1000000, 995000, 1000000, 61200},
        {"last used equals the used count", 5000, 1000000, 995000, 1000000, 56200},
        {"packed from 0 without gaps: whole volume", 4999, 1000000, 995000, 1000000, 1000000},
        {"margin would pass the end", 990000, 1000000, 995000, 1000000, 1000000},
        {"bitmap names clusters past the volume", 1000001, 1000000, 995000, 1000040, 1000000},
        {"empty bitmap of an empty volume", 0, 1000000, 1000000, 1000000, 51200},
        {"empty bitmap while clusters are used", 0, 1000000, 999000, 1000000, 1000000},
        {"more free than total wraps the used count", 100, 1000, 2000, 1000, 1000},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.clusters, wrenkits::MinSizeClusters(c.highest, c.total, c.free, c.bitmap)) << c.name;
}

}  // namespace
