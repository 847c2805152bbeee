// fuzz-sources: src/disk/disk_identity.cpp
// Two drive-layout buffers whose heads (style, count, entries) come from the input.
#include "disk/disk_identity.h"
#include "fuzz_input.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace wrenkits;
    std::vector<std::uint8_t> source(kLayoutBufferBytes), destination(kLayoutBufferBytes);
    const std::size_t half = size / 2;
    std::memcpy(source.data(), data, std::min(half, kLayoutBufferBytes));
    std::memcpy(destination.data(), data + half, std::min(size - half, kLayoutBufferBytes));
    const auto before = destination;

    const IdentityCopy copy = CopyLayoutIdentity(ConstLayoutBuffer(source.data(), kLayoutBufferBytes),
                                                 LayoutBuffer(destination.data(), kLayoutBufferBytes));
    FUZZ_CHECK(copy.result == 0 || copy.result == 2 || copy.result == 13);
    FUZZ_CHECK((copy.result == 2) == (copy.missingPartition != 0));
    if (copy.result == 13) FUZZ_CHECK(destination == before);
    // Only the disk identity and, per entry, its identity and rewrite flag may change:
    // with those taken over from the result, the rest must equal the layout before.
    auto allowed = before;
    const auto take = [&](std::size_t at, std::size_t bytes) {
        std::memcpy(allowed.data() + at, destination.data() + at, bytes);
    };
    take(kLayoutIdentityOffset, kLayoutIdentityBytes);
    for (std::size_t at = kLayoutEntriesOffset; at + kLayoutEntryBytes <= kLayoutBufferBytes; at += kLayoutEntryBytes) {
        take(at + kEntryRewriteOffset, 1);
        take(at + kEntryIdentityOffset, kEntryIdentityBytes);
    }
    FUZZ_CHECK(allowed == destination);
    return 0;
}
