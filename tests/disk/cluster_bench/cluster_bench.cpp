// How fast the highest used cluster is found on the largest bitmap a 32-bit cluster
// count allows, measured against memchr over the same buffer in the same process, for
// an empty bitmap (the whole buffer is read: the scan must keep at least half of
// memchr's speed), one used to the last cluster and one used to the middle. Every
// answer is checked against a plain bit-by-bit scan.
//
//   wine cluster_bench.exe [MiB]      (default 512)
#include <windows.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cstdint>

#include "disk/disk_volumes.h"

namespace {

double Now() {
    static LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return static_cast<double>(t.QuadPart) / static_cast<double>(frequency.QuadPart);
}

// The best of a few runs, in seconds: the least disturbed by the other programs on the machine.
template <typename Fn>
double Best(Fn fn) {
    double best = 1e9;
    for (int i = 0; i < 5; ++i) {
        const double start = Now();
        fn();
        best = std::min(best, Now() - start);
    }
    return best;
}

std::uint64_t BitByBit(const std::uint8_t* bytes, std::uint64_t bits) {
    std::uint64_t highest = 0;
    for (std::uint64_t i = 0; i < bits; ++i)
        if (bytes[i >> 3] >> (i & 7) & 1) highest = i;
    return highest;
}

}  // namespace

int main(int argc, char** argv) {
    const std::uint64_t mib = argc > 1 ? strtoull(argv[1], nullptr, 10) : 512;
    const size_t bytes = static_cast<size_t>(mib) << 20;
    const std::uint64_t bits = static_cast<std::uint64_t>(bytes) * 8;
    auto* buffer = static_cast<std::uint8_t*>(VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    if (!buffer || bytes == 0) {
        fprintf(stderr, "cannot allocate %llu MiB\n", static_cast<unsigned long long>(mib));
        return 2;
    }
    printf("bitmap of %llu MiB (%llu clusters); ratio = memchr time / scan time\n",
           static_cast<unsigned long long>(mib), static_cast<unsigned long long>(bits));

    struct Shape {
        const char* name;
        size_t usedBytes;  // 0xFF from the start, zero behind
        double goal;       // the least ratio accepted (0: reported only)
    } shapes[] = {
        {"empty", 0, 0.5},
        {"used to the last cluster", bytes, 0},
        {"used to the middle", bytes / 2, 0},
    };
    int failures = 0;
    for (const Shape& s : shapes) {
        memset(buffer, 0xFF, s.usedBytes);
        memset(buffer + s.usedBytes, 0, bytes - s.usedBytes);
        const std::span<const std::uint8_t> span(buffer, bytes);

        // A byte that never occurs: memchr reads the whole buffer every time. Called
        // through a pointer the compiler cannot see through, so it is not folded away.
        using Search = void* (*)(const void*, int, size_t);
        static Search volatile search = &memchr;
        volatile const void* sink = nullptr;
        const double baseline = Best([&] { sink = search(buffer, 0x5A, bytes); });
        std::uint64_t answer = 0;
        const double scan = Best([&] { answer = wrenkits::HighestUsedCluster(span, bits); });
        (void)sink;
        const std::uint64_t expected = BitByBit(buffer, bits);
        const double ratio = baseline / std::max(scan, 1e-9);

        const bool right = answer == expected, fast = ratio >= s.goal;
        failures += !right + !fast;
        printf("%-26s highest %-11llu memchr %9.3f ms  scan %9.3f ms  ratio %10.2f%s%s\n", s.name,
               static_cast<unsigned long long>(answer), baseline * 1e3, scan * 1e3, ratio,
               right ? "" : "  WRONG ANSWER", fast ? "" : "  TOO SLOW");
    }
    VirtualFree(buffer, 0, MEM_RELEASE);
    return failures ? 1 : 0;
}
