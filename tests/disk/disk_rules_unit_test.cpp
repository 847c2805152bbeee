// The rules that need no device: diskpart's row numbers where its answers are odd,
// the highest used cluster against a plain bit-by-bit scan, and the shrink rule.
#include <gtest/gtest.h>

#include <vector>

#include "disk/disk_volumes.h"

TEST(ParseListingNumber, ReadsTheFirstNumberOfTheSelectedRow) {
    EXPECT_EQ(9, wrenkits::ParseListingNumber("--------\r\n  abc 7\r\n  x 9 y\r\n", 1)) << "a number ending its line is none";
    EXPECT_EQ(-1, wrenkits::ParseListingNumber("  ###\r\n  ------", 0)) << "underline at the very end";
    EXPECT_EQ(-1, wrenkits::ParseListingNumber("-----\r\n  1 \r\n", 0)) << "no underline";
    EXPECT_EQ(-1, wrenkits::ParseListingNumber("------\r\n 1 \r\n", 0xFFFFFFFF)) << "far beyond the rows";
    EXPECT_EQ(-1, wrenkits::ParseListingNumber(nullptr, 0));
}

TEST(HighestUsedCluster, MatchesABitByBitScanForEveryBitLengthAndAlignment) {
    std::vector<std::uint8_t> buffer(112);
    for (std::size_t offset = 0; offset < 8; ++offset)
        for (std::size_t bytes = 0; offset + bytes <= 104; bytes += 1 + bytes / 16)
            for (std::uint64_t counted : {bytes * 8, bytes > 0 ? bytes * 8 - 3 : 0, bytes * 8 + 64})
                // One bit set at each place in turn, with a used neighbour before it and set
                // bits just past the span (or the counted bits).
                for (std::size_t bit = 0; bit < bytes * 8; ++bit) {
                    std::fill(buffer.begin(), buffer.end(), 0);
                    buffer[offset + bytes] = 0xFF;
                    if (bit > 5) buffer[offset + (bit - 5) / 8] |= 1 << ((bit - 5) % 8);
                    buffer[offset + bit / 8] |= 1 << (bit % 8);
                    std::uint64_t expected = 0;
                    for (std::uint64_t i = 0; i < std::min<std::uint64_t>(counted, bytes * 8); ++i)
                        expected = buffer[offset + i / 8] >> (i % 8) & 1 ? i : expected;
                    ASSERT_EQ(expected, wrenkits::HighestUsedCluster({buffer.data() + offset, bytes}, counted))
                        << "offset " << offset << ", " << bytes << " bytes, " << counted << " bits counted, bit " << bit;
                }
}

TEST(MinSizeClusters, KeepsTheMarginBehindTheLastUsedClusterUnlessTheVolumeIsPacked) {
    using wrenkits::MinSizeClusters;
    EXPECT_EQ(56200u, MinSizeClusters(5000, 1000000, 995000, 1000000)) << "last used equals the used count";
    EXPECT_EQ(1000000u, MinSizeClusters(990000, 1000000, 995000, 1000000)) << "margin would pass the end";
    EXPECT_EQ(1000000u, MinSizeClusters(1000001, 1000000, 995000, 1000040)) << "bitmap names clusters past the volume";
    EXPECT_EQ(51200u, MinSizeClusters(0, 1000000, 1000000, 1000000)) << "empty bitmap of an empty volume";
    EXPECT_EQ(1000000u, MinSizeClusters(0, 1000000, 999000, 1000000)) << "empty bitmap while clusters are used";
    EXPECT_EQ(1000u, MinSizeClusters(100, 1000, 2000, 1000)) << "more free than total wraps the used count";
}
