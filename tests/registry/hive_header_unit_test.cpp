// The base-block repair on plain bytes. Expected checksums are worked out by hand
// from the few non-zero words of each header.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "registry/hive.h"

namespace {

using Header = std::array<std::uint8_t, wrenkits::kHiveHeaderBytes>;

static_assert(wrenkits::kHiveSignatureOffset == 0 && wrenkits::kHivePrimarySequenceOffset == 4 &&
              wrenkits::kHiveSecondarySequenceOffset == 8 && wrenkits::kHiveChecksumOffset == 508);

void Put(Header& h, size_t offset, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) h[offset + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

TEST(RepairHiveHeader, FixesSignatureAndSequenceAndStoresTheXorOfTheFirst127Words) {
    constexpr std::uint32_t regf = 0x66676572;
    struct Case {
        const char* name;
        std::vector<std::pair<size_t, std::uint32_t>> words;  // on an all-zero header
        std::uint32_t oldSum;
        std::uint32_t newSum;
    } cases[] = {
        {"zero header gets the signature", {}, 0, regf},
        {"wrong signature is replaced", {{0, 0x4B4E554A}, {508, 0xAAAAAAAA}}, 0xAAAAAAAA, regf},
        {"secondary takes the primary", {{0, regf}, {4, 5}, {8, 9}, {508, 0x12345678}}, 0x12345678, regf},
        {"zero result is stored as is", {{0, regf}, {4, 3}, {8, 3}, {12, regf}}, 0, 0},
        {"all-ones result is stored as is", {{0, regf}, {100, 0x99989A8D}}, 0, 0xFFFFFFFF},
        {"checksum already right", {{0, regf}, {4, 7}, {8, 7}, {48, 0x01020304}, {508, 0x67656676}}, 0x67656676,
         0x67656676},
        {"last word before the checksum counts", {{504, 0x80000001}}, 0, 0xE6676573},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Header h = {};
        for (auto [offset, value] : c.words) Put(h, offset, value);
        Header expected = h;
        const auto sums = wrenkits::RepairHiveHeader(h);
        EXPECT_EQ(c.oldSum, sums.oldChecksum);
        EXPECT_EQ(c.newSum, sums.newChecksum);

        Put(expected, 0, regf);
        for (int i = 0; i < 4; ++i) expected[8 + i] = expected[4 + i];
        Put(expected, 508, c.newSum);
        EXPECT_EQ(expected, h) << "only signature, secondary sequence and checksum may change";
    }
}

TEST(RepairHiveHeader, ReadsWordsLittleEndianByteByByte) {
    Header h = {};
    const std::uint8_t primary[] = {0x01, 0x02, 0x03, 0x04};
    std::copy(primary, primary + 4, h.begin() + 4);
    h[200] = 0xFF;  // a lone byte, low byte of its word
    const auto sums = wrenkits::RepairHiveHeader(h);
    // regf ^ primary ^ secondary(=primary) ^ 0x000000FF
    EXPECT_EQ(0x6667658Du, sums.newChecksum);
    EXPECT_EQ((Header::value_type)'r', h[0]);
    EXPECT_EQ((Header::value_type)'f', h[3]);
    EXPECT_EQ(0x8D, h[508]);
    EXPECT_EQ(0x66, h[511]);
    EXPECT_EQ(0x04, h[11]);
}

}  // namespace
