#include "registry/hive_header.h"

namespace wrenkits {

namespace {

// Byte-wise so the result does not depend on the host's byte order or on the
// buffer's alignment.
std::uint32_t ReadWord(std::span<const std::uint8_t, kHiveHeaderBytes> header, std::size_t offset) {
    return static_cast<std::uint32_t>(header[offset]) | static_cast<std::uint32_t>(header[offset + 1]) << 8 |
           static_cast<std::uint32_t>(header[offset + 2]) << 16 | static_cast<std::uint32_t>(header[offset + 3]) << 24;
}

void WriteWord(std::span<std::uint8_t, kHiveHeaderBytes> header, std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) header[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

}  // namespace

HiveChecksums RepairHiveHeader(std::span<std::uint8_t, kHiveHeaderBytes> header) {
    HiveChecksums sums = {ReadWord(header, kHiveChecksumOffset), 0};

    // The checksum must cover the corrected fields, so they are fixed first.
    WriteWord(header, kHiveSignatureOffset, kHiveSignature);
    WriteWord(header, kHiveSecondarySequenceOffset, ReadWord(header, kHivePrimarySequenceOffset));

    for (std::size_t offset = 0; offset < kHiveChecksumOffset; offset += 4) sums.newChecksum ^= ReadWord(header, offset);
    WriteWord(header, kHiveChecksumOffset, sums.newChecksum);
    return sums;
}

}  // namespace wrenkits
