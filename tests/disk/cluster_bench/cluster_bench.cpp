// How fast the highest used cluster is found on the largest bitmap a 32-bit cluster
// count allows, as a ratio to memchr over the same buffer in the same process: an
// empty bitmap (read whole) must keep at least half of memchr's speed; a full and a
// half-used one are reported. Every answer is checked against a bit-by-bit scan.
//   wine cluster_bench.exe [MiB]      (default 512)
#include <windows.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "disk/disk_volumes.h"

template <typename Fn>
double Best(Fn fn) {  // seconds, the least disturbed of five runs
    LARGE_INTEGER frequency, start, end;
    QueryPerformanceFrequency(&frequency);
    double best = 1e9;
    for (int i = 0; i < 5; ++i) {
        QueryPerformanceCounter(&start), fn(), QueryPerformanceCounter(&end);
        best = std::min(best, double(end.QuadPart - start.QuadPart) / double(frequency.QuadPart));
    }
    return best;
}

int main(int argc, char** argv) {
    const size_t bytes = size_t(argc > 1 ? strtoull(argv[1], nullptr, 10) : 512) << 20;
    auto* bitmap = static_cast<std::uint8_t*>(VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    if (!bitmap || !bytes) return fprintf(stderr, "cannot allocate the bitmap\n"), 2;
    printf("bitmap of %llu MiB; ratio = memchr time / scan time\n", (unsigned long long)(bytes >> 20));
    int failures = 0;
    struct Shape { const char* name; size_t used; double goal; };  // used: bytes of 0xFF from the start; goal: least ratio
    for (const auto& [name, used, goal] : {Shape{"empty", 0, 0.5}, {"used to the last cluster", bytes, 0}, {"used to the middle", bytes / 2, 0}}) {
        memset(bitmap, 0xFF, used);
        memset(bitmap + used, 0, bytes - used);
        // A byte that never occurs, through a pointer the compiler cannot fold away: memchr reads it all.
        static void* (*volatile search)(const void*, int, size_t) = memchr;
        const double baseline = Best([&] { search(bitmap, 0x5A, bytes); });
        std::uint64_t answer = 0, expected = 0;
        const double scan = Best([&] { answer = wrenkits::HighestUsedCluster({bitmap, bytes}, bytes * 8ull); });
        for (std::uint64_t i = 0; i < bytes * 8ull; ++i) expected = bitmap[i >> 3] >> (i & 7) & 1 ? i : expected;
        const double ratio = baseline / std::max(scan, 1e-9);
        failures += (answer != expected) + (ratio < goal);
        printf("%-26s highest %-11llu memchr %9.3f ms  scan %9.3f ms  ratio %8.2f%s%s\n", name, (unsigned long long)answer,
               baseline * 1e3, scan * 1e3, ratio, answer == expected ? "" : "  WRONG ANSWER", ratio < goal ? "  TOO SLOW" : "");
    }
    VirtualFree(bitmap, 0, MEM_RELEASE);
    return failures ? 1 : 0;
}
