// ZN_CopyDiskGuid on the fake machine's physical disks 0 and 1, whose layouts are the
// platform's records; the layout written to disk 1 is read back.
#include "Wrenkits.h"
#include "disk/volume_device_fake.h"

namespace {

constexpr auto MBR = PARTITION_STYLE_MBR, GPT = PARTITION_STYLE_GPT;
struct Part { DWORD number; BYTE id; bool rewrite = false; };  // a partition: its number, the byte filling its 16 identity bytes, its rewrite flag
using Parts = std::vector<Part>;

// The layout as the driver returns it. `disk` fills the disk identity; `salt` moves the
// partitions, so that an entry copied whole shows.
std::string Layout(PARTITION_STYLE style, BYTE disk, const Parts& parts, int salt = 0) {
    std::string bytes(48 + 144 * parts.size(), '\0');
    auto* layout = reinterpret_cast<DRIVE_LAYOUT_INFORMATION_EX*>(bytes.data());
    layout->PartitionStyle = style;
    layout->PartitionCount = DWORD(parts.size());
    memset(bytes.data() + 8, disk, 16);
    for (size_t i = 0; i < parts.size(); ++i) {
        auto& e = layout->PartitionEntry[i];
        e.PartitionStyle = style;
        e.StartingOffset.QuadPart = LONGLONG(i * 100 + salt + 1) << 20;
        e.PartitionNumber = parts[i].number;
        e.RewritePartition = parts[i].rewrite;
        memset(&e.Gpt.PartitionId, parts[i].id, 16);
    }
    return bytes;
}

// Copies disk `from`'s identity onto disk `to`: the result, and whether the layout
// written is disk 1's with `written` entries and disk 0's identity ("-": none written).
std::function<std::string()> Copy(PARTITION_STYLE style, const Parts& source, PARTITION_STYLE toStyle, const Parts& destination,
                                  const Parts& written, DWORD from = 0, DWORD to = 1, DWORD setError = 0) {
    return [=] {
        auto& answers = disktest::Machine::self->answers;
        answers["\\\\.\\PhysicalDrive0 70050"] = {0, Layout(style, 0x5a, source, 7)};
        answers["\\\\.\\PhysicalDrive1 70050"] = {0, Layout(toStyle, 0x3c, destination)};
        answers["\\\\.\\PhysicalDrive1 7c054"] = {setError};
        const DWORD result = ZN_CopyDiskGuid(from, to);
        const std::string& input = disktest::Machine::self->input;
        return std::to_string(result) + (input.empty() ? " -" : input == Layout(toStyle, 0x5a, written) ? " written" : " wrong layout");
    };
}

TEST(CopyDiskGuid, WritesTheSourceIdentityOntoTheDestinationLayout) {
    // Each layout read into 8192 bytes, the source opened to read, the destination to write too.
    const std::string read = "\\\\.\\PhysicalDrive0 70050 out 8192|\\\\.\\PhysicalDrive1 70050 out 8192", all = read + "|\\\\.\\PhysicalDrive1 7c054 out 0";
    const std::string name = "ZN_CopyDiskGuid ";
    disktest::Run({
        {"MBR: unused slots skipped, paired by number not position", Copy(MBR, {{0, 0xa0}, {2, 0xa2}, {1, 0xa1}}, MBR, {{1, 0xb1}, {0, 0xb0}, {2, 0xb2}}, {{1, 0xa1, true}, {0, 0xb0}, {2, 0xa2, true}}), "0 written", all, ""},
        {"GPT partner missing: partial layout written, 2", Copy(GPT, {{1, 0xa1}, {3, 0xa3}}, GPT, {{1, 0xb1}, {2, 0xb2}, {3, 0xb3}}, {{1, 0xa1, true}, {2, 0xb2}, {3, 0xb3}}), "2 written", all, name + "partition 2 on destination disk is not found on source disk"},
        {"no destination partitions: the disk identity alone", Copy(GPT, {{1, 0xa1}}, GPT, {}, {}), "0 written", all, ""},
        {"styles differ: nothing written", Copy(GPT, {{1, 0xa1}}, MBR, {{1, 0xb1}}, {}), "13 -", read, name + "partition style of disk 0 and 1 is not same"},
        {"destination layout over 8192 bytes", Copy(MBR, {}, MBR, Parts(60, {1, 0xb1}), {}), "234 -", read, name + "get layout of \\\\.\\PhysicalDrive1 error: 234"},
        {"write protected", Copy(MBR, {{1, 0xa1}}, MBR, {{1, 0xb1}}, {{1, 0xa1, true}}, 0, 1, ERROR_WRITE_PROTECT), "19 written", all, name + "set layout of \\\\.\\PhysicalDrive1 error: 19"},
        {"no destination disk", Copy(MBR, {}, MBR, {}, {}, 0, 9), "2 -", "\\\\.\\PhysicalDrive0 70050 out 8192", name + "open \\\\.\\PhysicalDrive9 error: 2"},
        {"no source disk", Copy(MBR, {}, MBR, {}, {}, 7, 1), "2 -", "", name + "open \\\\.\\PhysicalDrive7 error: 2"},
    }, [](disktest::Machine& m) { m.answers = {{"open \\\\.\\PhysicalDrive0 80000000", {}}, {"open \\\\.\\PhysicalDrive1 c0000000", {}}}; });
}

}  // namespace
