// The identity copy over two layout buffers, on layouts built with the platform records.
#include <gtest/gtest.h>

#include "disk/disk_identity.h"
#include "disk/disk_identity_layouts.h"

namespace {

using disktest::Layout;
using disktest::Part;

TEST(CopyLayoutIdentity, PairsByNumberAndStopsAtTheFirstMissingPartner) {
    constexpr auto MBR = PARTITION_STYLE_MBR, GPT = PARTITION_STYLE_GPT;
    struct Case {
        const char* name;
        PARTITION_STYLE sourceStyle, destinationStyle;
        std::vector<Part> source, destination;
        DWORD result, missing;
        std::vector<Part> after;  // the destination's entries afterwards
        bool diskCopied = true;
    } cases[] = {
        {"GPT: every partition paired, extra source partitions ignored", GPT, GPT, {{1, 0xa1}, {2, 0xa2}, {3, 0xa3}},
         {{1, 0xb1}, {2, 0xb2}}, 0, 0, {{1, 0xa1, true}, {2, 0xa2, true}}},
        {"MBR: unused slots skipped, paired by number not position", MBR, MBR, {{0, 0xa0}, {2, 0xa2}, {1, 0xa1}},
         {{1, 0xb1}, {0, 0xb0}, {2, 0xb2}, {0, 0xb3}}, 0, 0, {{1, 0xa1, true}, {0, 0xb0}, {2, 0xa2, true}, {0, 0xb3}}},
        {"styles differ: nothing changes", MBR, GPT, {{1, 0xa1}}, {{1, 0xb1}}, 13, 0, {{1, 0xb1}}, false},
        {"no destination partitions: the disk identity alone", GPT, GPT, {{1, 0xa1}}, {}, 0, 0, {}},
        {"missing partner: earlier entries copied, later ones untouched", GPT, GPT, {{1, 0xa1}, {3, 0xa3}},
         {{1, 0xb1}, {2, 0xb2}, {3, 0xb3}}, 2, 2, {{1, 0xa1, true}, {2, 0xb2}, {3, 0xb3}}},
        {"empty source", MBR, MBR, {}, {{1, 0xb1}}, 2, 1, {{1, 0xb1}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto source = Layout(c.sourceStyle, 0x5a, c.source, 7);
        auto destination = Layout(c.destinationStyle, 0x3c, c.destination);

        const auto copy = wrenkits::CopyLayoutIdentity(wrenkits::ConstLayoutBuffer(source.data(), 8192),
                                                       wrenkits::LayoutBuffer(destination.data(), 8192));
        EXPECT_EQ(c.result, copy.result);
        EXPECT_EQ(c.missing, copy.missingPartition);
        // Offsets, lengths, types and names stay the destination's own.
        EXPECT_EQ(Layout(c.destinationStyle, c.diskCopied ? 0x5a : 0x3c, c.after), destination);
    }
}

}  // namespace
