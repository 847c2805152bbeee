#include "disk/disk_identity.h"

#include <string.h>

#include <algorithm>

namespace wrenkits {
namespace {

// The Win32 codes the export hands on: ERROR_INVALID_DATA and ERROR_FILE_NOT_FOUND.
constexpr std::uint32_t kStylesDiffer = 13;
constexpr std::uint32_t kNoPartner = 2;

std::uint32_t ReadDword(ConstLayoutBuffer bytes, size_t offset) {
    std::uint32_t value;
    memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

// A driver's count is trusted only as far as the buffer really holds entries.
size_t EntryCount(ConstLayoutBuffer layout) {
    constexpr size_t kRoom = (kLayoutBufferBytes - kLayoutEntriesOffset) / kLayoutEntryBytes;
    return std::min<size_t>(ReadDword(layout, kLayoutCountOffset), kRoom);
}

size_t EntryOffset(size_t index) { return kLayoutEntriesOffset + index * kLayoutEntryBytes; }

}  // namespace

IdentityCopy CopyLayoutIdentity(ConstLayoutBuffer source, LayoutBuffer destination) {
    if (ReadDword(source, kLayoutStyleOffset) != ReadDword(destination, kLayoutStyleOffset))
        return {kStylesDiffer, 0};

    memcpy(destination.data() + kLayoutIdentityOffset, source.data() + kLayoutIdentityOffset, kLayoutIdentityBytes);

    const size_t sourceCount = EntryCount(source);
    const size_t destinationCount = EntryCount(destination);
    for (size_t d = 0; d < destinationCount; ++d) {
        std::uint8_t* entry = destination.data() + EntryOffset(d);
        const std::uint32_t number = ReadDword(destination, EntryOffset(d) + kEntryNumberOffset);
        if (number == 0) continue;  // an unused MBR slot
        // Paired by number alone: offsets, lengths and types may differ on a clone.
        size_t s = 0;
        while (s < sourceCount && ReadDword(source, EntryOffset(s) + kEntryNumberOffset) != number) ++s;
        if (s == sourceCount) return {kNoPartner, number};
        memcpy(entry + kEntryIdentityOffset, source.data() + EntryOffset(s) + kEntryIdentityOffset,
               kEntryIdentityBytes);
        entry[kEntryRewriteOffset] = 1;
    }
    return {0, 0};
}

}  // namespace wrenkits
