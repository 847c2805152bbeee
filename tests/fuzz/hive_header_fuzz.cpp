// fuzz-sources: src/registry/hive_header.cpp
// Any 512 bytes as a hive's base block.
#include "fuzz_input.h"
#include "registry/hive_header.h"

#include <array>

namespace {
std::uint32_t Word(const std::array<std::uint8_t, 512>& b, std::size_t at) {
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<std::uint32_t>(b[at + 3]) << 24;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::array<std::uint8_t, 512> header{};
    std::memcpy(header.data(), data, size < header.size() ? size : header.size());
    const auto before = header;
    const auto sums = wrenkits::RepairHiveHeader(header);
    FUZZ_CHECK(sums.oldChecksum == Word(before, 508) && sums.newChecksum == Word(header, 508));
    FUZZ_CHECK(Word(header, 0) == wrenkits::kHiveSignature && Word(header, 8) == Word(header, 4));
    std::uint32_t all = 0;
    for (std::size_t at = 0; at < 512; at += 4) all ^= Word(header, at);
    FUZZ_CHECK(all == 0);
    FUZZ_CHECK(std::memcmp(header.data() + 12, before.data() + 12, 508 - 12) == 0 && Word(header, 4) == Word(before, 4));
    // A repaired header needs no second repair.
    const auto again = header;
    FUZZ_CHECK(wrenkits::RepairHiveHeader(header).oldChecksum == sums.newChecksum && header == again);
    return 0;
}
