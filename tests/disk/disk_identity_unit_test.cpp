// The identity copy over two layout buffers built from the platform's records.
#include <gtest/gtest.h>

#include "disk/disk_identity.h"
#include "disk/disk_identity_layouts.h"

namespace {

using namespace disktest;

TEST(CopyLayoutIdentity, PairsByNumberAndStopsAtTheFirstMissingPartner) {
    struct Case {
        const char* name;
        PARTITION_STYLE sourceStyle, destinationStyle;
        std::vector<Part> source, destination;
        DWORD result, missing;
        std::vector<Part> after;  // the destination's entries afterwards; its offsets stay its own
    } cases[] = {
        {"GPT: all paired, extra source entries ignored", GPT, GPT, {{1, 0xa1}, {2, 0xa2}, {3, 0xa3}},
         {{1, 0xb1}, {2, 0xb2}}, 0, 0, {{1, 0xa1, true}, {2, 0xa2, true}}},
        {"MBR: unused slots skipped, paired by number not position", MBR, MBR, {{0, 0xa0}, {2, 0xa2}, {1, 0xa1}},
         {{1, 0xb1}, {0, 0xb0}, {2, 0xb2}}, 0, 0, {{1, 0xa1, true}, {0, 0xb0}, {2, 0xa2, true}}},
        {"styles differ: nothing changes", MBR, GPT, {{1, 0xa1}}, {{1, 0xb1}}, 13, 0, {{1, 0xb1}}},
        {"missing partner: earlier entries copied, later untouched", GPT, GPT, {{1, 0xa1}, {3, 0xa3}},
         {{1, 0xb1}, {2, 0xb2}, {3, 0xb3}}, 2, 2, {{1, 0xa1, true}, {2, 0xb2}, {3, 0xb3}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto source = Layout(c.sourceStyle, 0x5a, c.source, 7, true);
        auto destination = Layout(c.destinationStyle, 0x3c, c.destination, 0, true);
        const auto copy = wrenkits::CopyLayoutIdentity(wrenkits::ConstLayoutBuffer(source.data(), 8192),
                                                       wrenkits::LayoutBuffer(destination.data(), 8192));
        EXPECT_EQ(c.result, copy.result);
        EXPECT_EQ(c.missing, copy.missingPartition);
        EXPECT_EQ(Layout(c.destinationStyle, c.result == 13 ? 0x3c : 0x5a, c.after, 0, true), destination);
    }
}

}  // namespace
