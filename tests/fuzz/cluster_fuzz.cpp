// fuzz-sources: src/disk/volume_bitmap.cpp
// A volume bitmap of any length, any claimed bit count, and any cluster counts.
#include "disk/disk_rules.h"
#include "fuzz_input.h"

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input in(data, size);
    const auto bitCount = in.Take<std::uint64_t>();
    const auto total = in.Take<std::uint32_t>();
    const auto free = in.Take<std::uint32_t>();
    const auto bitmapClusters = in.Take<std::uint64_t>();
    // Its own allocation of exactly the remaining bytes, so a read past it is caught.
    const std::vector<std::uint8_t> bitmap(in.data(), in.data() + in.size());
    const std::uint64_t highest = wrenkits::HighestUsedCluster(bitmap, bitCount);

    std::uint64_t expected = 0;
    const std::uint64_t bits = std::min<std::uint64_t>(bitCount, bitmap.size() * 8ull);
    for (std::uint64_t bit = bits; bit-- > 0;) {
        if (bitmap[bit / 8] >> (bit % 8) & 1) {
            expected = bit;
            break;
        }
    }
    FUZZ_CHECK(highest == expected);

    const std::uint64_t clusters = wrenkits::MinSizeClusters(highest, total, free, bitmapClusters);
    const std::uint32_t used = total - free;
    const std::uint64_t rule = highest > total ? total
                               : highest < used ? bitmapClusters
                                                : std::min(highest + wrenkits::kClusterMargin, bitmapClusters);
    FUZZ_CHECK(clusters == rule);
    return 0;
}
