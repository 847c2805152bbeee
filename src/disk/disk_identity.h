// The identity of a disk as its drive layout carries it: the disk's own signature or
// GUID and each partition's GUID. Copying it onto a clone is a rule over two layout
// buffers, kept apart from the device requests that read and write them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace wrenkits {

// Where the drive-layout record (DRIVE_LAYOUT_INFORMATION_EX) keeps what is copied.
inline constexpr size_t kLayoutStyleOffset = 0;
inline constexpr size_t kLayoutCountOffset = 4;
inline constexpr size_t kLayoutIdentityOffset = 8;  // MBR signature and checksum, or the GPT disk GUID
inline constexpr size_t kLayoutIdentityBytes = 16;
inline constexpr size_t kLayoutEntriesOffset = 48;
inline constexpr size_t kLayoutEntryBytes = 144;  // PARTITION_INFORMATION_EX
inline constexpr size_t kEntryNumberOffset = 24;
inline constexpr size_t kEntryRewriteOffset = 28;
inline constexpr size_t kEntryIdentityOffset = 48;  // the GPT partition GUID
inline constexpr size_t kEntryIdentityBytes = 16;
// Each disk's layout is read into a buffer of this size; a larger layout fails its request.
inline constexpr size_t kLayoutBufferBytes = 8192;
using LayoutBuffer = std::span<std::uint8_t, kLayoutBufferBytes>;
using ConstLayoutBuffer = std::span<const std::uint8_t, kLayoutBufferBytes>;

struct IdentityCopy {
    std::uint32_t result;            // 0, ERROR_INVALID_DATA (styles differ) or ERROR_FILE_NOT_FOUND (no partner)
    std::uint32_t missingPartition;  // the destination partition without a source partner, when result is 2
};

// Copies the disk identity and, pairing entries by partition number, each partition's
// identity from `source` into `destination`, marking every paired entry for rewrite.
// Layouts of different styles leave `destination` untouched. The walk stops at the
// first destination partition the source lacks; the entries before it stay copied,
// so the caller may still write a partial identity. Entries are walked only as far
// as each buffer holds them.
IdentityCopy CopyLayoutIdentity(ConstLayoutBuffer source, LayoutBuffer destination);

}  // namespace wrenkits
