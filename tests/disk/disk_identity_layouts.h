// Drive layouts as the disk driver reports them, for the identity-copy tests.
#pragma once

#include <windows.h>
#include <winioctl.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace disktest {

// One partition: its number and the byte its 16 identity bytes are filled with.
struct Part {
    DWORD number;
    std::uint8_t id;
    bool rewrite = false;
};

// An 8192-byte layout buffer; `disk` fills the disk identity, `salt` shifts the
// partitions' offsets so that a copied entry shows.
inline std::vector<std::uint8_t> Layout(PARTITION_STYLE style, std::uint8_t disk, const std::vector<Part>& parts,
                                        int salt = 0) {
    std::vector<std::uint8_t> buffer(8192);
    auto* layout = reinterpret_cast<DRIVE_LAYOUT_INFORMATION_EX*>(buffer.data());
    layout->PartitionStyle = style;
    layout->PartitionCount = static_cast<DWORD>(parts.size());
    std::memset(buffer.data() + 8, disk, 16);
    if (style == PARTITION_STYLE_GPT) layout->Gpt.MaxPartitionCount = 128;
    for (size_t i = 0; i < parts.size(); ++i) {
        auto* e = reinterpret_cast<PARTITION_INFORMATION_EX*>(buffer.data() + 48 + i * 144);
        e->PartitionStyle = style;
        e->StartingOffset.QuadPart = (LONGLONG(i) * 100 + salt + 1) << 20;
        e->PartitionLength.QuadPart = LONGLONG(99) << 20;
        e->PartitionNumber = parts[i].number;
        e->RewritePartition = parts[i].rewrite;
        if (style == PARTITION_STYLE_GPT) {
            e->Gpt.PartitionType = {0xebd0a0a2, 0xb9e5, 0x4433, {0x87, 0xc0, 0x68, 0xb6, 0xb7, 0x26, 0x99, 0xc7}};
            wcscpy(e->Gpt.Name, L"Basic data partition");
        } else if (parts[i].number) {
            e->Mbr.PartitionType = 7;
            e->Mbr.RecognizedPartition = TRUE;
        }
        std::memset(buffer.data() + 48 + i * 144 + 48, parts[i].id, 16);
    }
    return buffer;
}

// The bytes a driver returns for it: header and entries.
inline DWORD LayoutBytes(const std::vector<Part>& parts) { return DWORD(48 + 144 * parts.size()); }

}  // namespace disktest
