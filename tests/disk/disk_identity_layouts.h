// Drive layouts as the disk driver reports them (the platform's records), for the
// identity-copy tests.
#pragma once

#include <windows.h>
#include <winioctl.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace disktest {

constexpr auto MBR = PARTITION_STYLE_MBR, GPT = PARTITION_STYLE_GPT;

// A partition: its number, the byte filling its 16 identity bytes, its rewrite flag.
struct Part {
    DWORD number;
    std::uint8_t id;
    bool rewrite = false;
};

// The layout's bytes as the driver returns them (header and entries), or the whole
// 8192-byte request buffer. `disk` fills the disk identity; `salt` moves the
// partitions, so that an entry copied whole shows.
inline std::vector<std::uint8_t> Layout(PARTITION_STYLE style, std::uint8_t disk, const std::vector<Part>& parts,
                                        int salt = 0, bool whole = false) {
    std::vector<std::uint8_t> bytes(whole ? 8192 : 48 + 144 * parts.size());
    auto* layout = reinterpret_cast<DRIVE_LAYOUT_INFORMATION_EX*>(bytes.data());
    layout->PartitionStyle = style;
    layout->PartitionCount = DWORD(parts.size());
    std::memset(bytes.data() + 8, disk, 16);
    for (size_t i = 0; i < parts.size(); ++i) {
        auto* e = reinterpret_cast<PARTITION_INFORMATION_EX*>(bytes.data() + 48 + i * 144);
        e->PartitionStyle = style;
        e->StartingOffset.QuadPart = LONGLONG(i * 100 + salt + 1) << 20;
        e->PartitionLength.QuadPart = 99 << 20;
        e->PartitionNumber = parts[i].number;
        e->RewritePartition = parts[i].rewrite;
        e->Mbr.PartitionType = style == MBR && parts[i].number ? 7 : 0;  // NTFS; in GPT the type GUID's first byte
        std::memset(bytes.data() + 48 + i * 144 + 48, parts[i].id, 16);
    }
    return bytes;
}

}  // namespace disktest
