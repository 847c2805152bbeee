// The disk decisions that read only bytes: diskpart's listings and the volume
// bitmap. No OS calls, so they build and are fuzzed natively too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace wrenkits {

// Reads diskpart's tables, whose header is underlined by runs of "-": the first
// all-digit word of row `row` below the underline (rows 0 and 1 both mean the first),
// or -1 when there is no underline, no such row or no number in it. Only the
// underline, blanks and digits count, so the answer's language does not matter.
int ParseListingNumber(const char* answer, unsigned row);

// Free clusters kept behind the last used one when a volume is shrunk.
inline constexpr std::uint64_t kClusterMargin = 0xC800;

// The highest set bit among the first `bitCount` bits of a volume bitmap (bit i in
// byte i/8, least significant first; set = in use), or 0 when none is set. Bits past
// the span are never read, whatever `bitCount` claims.
std::uint64_t HighestUsedCluster(std::span<const std::uint8_t> bitmap, std::uint64_t bitCount);

// The clusters a volume can shrink to. A volume whose highest used cluster lies below
// the used count (packed without gaps, or the counts disagree) cannot shrink at all;
// otherwise the margin is kept behind the highest used cluster, never past the bitmap.
// `used` is taken in 32 bits, as the cluster counts are.
std::uint64_t MinSizeClusters(std::uint64_t highestUsed, std::uint32_t totalClusters, std::uint32_t freeClusters,
                              std::uint64_t bitmapClusters);

}  // namespace wrenkits
