// The first 512 bytes of a registry hive file (its base block), as far as the
// mount repair reads and rewrites them. Plain data in, plain data out: no OS calls,
// so the rules can be checked byte for byte without a hive or a registry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace wrenkits {

inline constexpr std::size_t kHiveHeaderBytes = 512;

// Little-endian 32-bit fields at these offsets; everything between the secondary
// sequence number and the checksum is carried over untouched.
inline constexpr std::size_t kHiveSignatureOffset = 0;
inline constexpr std::size_t kHivePrimarySequenceOffset = 4;
inline constexpr std::size_t kHiveSecondarySequenceOffset = 8;
inline constexpr std::size_t kHiveChecksumOffset = 508;

inline constexpr std::uint32_t kHiveSignature = 0x66676572;  // "regf" read as a little-endian word

struct HiveChecksums {
    std::uint32_t oldChecksum;  // the word found at the checksum offset
    std::uint32_t newChecksum;  // the word stored there now
};

// Forces the signature, makes the secondary sequence number equal the primary one,
// and stores the XOR of the 127 words before the checksum as the new checksum.
// Unlike the system's own loader, 0 and 0xFFFFFFFF are kept as computed: the repair
// only has to make the header self-consistent enough for the next load attempt.
HiveChecksums RepairHiveHeader(std::span<std::uint8_t, kHiveHeaderBytes> header);

}  // namespace wrenkits
