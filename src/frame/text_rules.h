// The decisions of the size text and the text comparison, apart from the runtime's
// formatting and case folding, which the caller passes in. No OS calls, so they
// build and are fuzzed natively too.
#pragma once

#include <stddef.h>

namespace wrenkits {

// A positive byte count in the largest unit (0 B, 1 K, 2 M, 3 G, 4 T) it reaches at
// least once; terabytes are the largest unit, so their value may pass 1024.
struct ScaledSize {
    double value;
    int unit;
};

inline ScaledSize ScaleSize(long long bytes) {
    int n = 0;
    long long divisor = 1;
    while (n < 5) {
        divisor *= 1024;
        ++n;
        if (bytes / divisor < 1) break;
    }
    return {static_cast<double>(bytes) / static_cast<double>(divisor / 1024), n - 1};
}

// 0 equal, -1 first is the head (or, with matchTail, the tail) of second, 1 the
// reverse, 15 otherwise; `len`, `cmp` and `ncmp` are the runtime's (case-insensitive).
template <typename Char, typename Len, typename Cmp, typename NCmp>
int CompareText(const Char* first, const Char* second, int matchTail, Len len, Cmp cmp, NCmp ncmp) {
    if (!first || !second) return 15;
    if (cmp(first, second) == 0) return 0;
    const size_t lf = len(first);
    const size_t ls = len(second);
    if (ls > lf) {
        if (ncmp(second, first, lf) == 0) return -1;
        if (!matchTail) return 15;
        return ncmp(second + (ls - lf), first, lf) == 0 ? -1 : 15;
    }
    if (ls == lf) return 15;
    if (ncmp(first, second, ls) == 0) return 1;
    if (!matchTail) return 15;
    return ncmp(first + (lf - ls), second, ls) == 0 ? 1 : 15;
}

}  // namespace wrenkits
