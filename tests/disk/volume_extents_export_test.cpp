// Volume numbers, volume disks and minimum sizes from the partition records, extents
// and cluster bitmaps of the fake machine.
#include "Wrenkits.h"
#include "disk/volume_device_fake.h"

namespace {

using namespace disktest;

// The result, then the out value (hex; deadbeef: untouched).
template <typename Out, typename Call>
std::function<std::string()> Answered(Call call) {
    return [=] {
        Out out = 0xDEADBEEF;
        const DWORD result = call(&out);
        return std::to_string(result) + " " + Hex(out);
    };
}
std::string Extents(std::vector<DWORD> disks) {  // the count, then one extent per disk
    std::string out = Bytes(disks.size());
    for (DWORD d : disks) out += Bytes(DISK_EXTENT{d, {}, {}});
    return out;
}

TEST(VolumeExtents, VolumeNumberAndDiskFromTheExtents) {
    auto Num = [](DWORD disk, DWORD partition) { return Answered<DWORD>([=](DWORD* n) { return ZN_GetVolumeNum(disk, partition, n); }); };
    auto Disk = [](WCHAR letter) { return Answered<DWORD>([=](DWORD* n) { return ZN_GetVolumeDisk(letter, n); }); };
    const std::string num = "ZN_GetVolumeNum ", volume = "\\\\.\\HarddiskVolume", info = " 70048 out 144", extents = " 560000 out 32";
    const std::string spanned = num + "get volume extents of \\\\.\\HarddiskVolume6 error: 234|" + num + "get partition info of \\\\.\\HarddiskVolume7 error: 50|" + num + "find no volume of partition 3 on disk 0";
    disktest::Run({
        {"scan passes gaps and disk 1's partition 2", Num(0, 2), "0 5", volume + "1" + info + "|" + volume + "2" + info + "|" + volume + "2" + extents + "|" + volume + "5" + info + "|" + volume + "5" + extents, num + "disk 0, partition 2, \\\\.\\HarddiskVolume5"},
        {"spanned volume: no room for its second extent", Num(0, 3), "1168 deadbeef", volume + "1" + info + "|" + volume + "2" + info + "|" + volume + "5" + info + "|" + volume + "6" + info + "|" + volume + "6" + extents + "|" + volume + "7" + info, spanned},
        {"volume on four disks reports the first extent's", Disk(L'e'), "0 3", "\\\\.\\e: 560000 out 128", ""},
        {"failed extent query still answers 0", Disk(L'F'), "0 deadbeef", "\\\\.\\F: 560000 out 128", "ZN_GetVolumeDisk get volume extents of \\\\.\\F: error: 1"},
        {"no extents", Disk(L'G'), "2 deadbeef", "\\\\.\\G: 560000 out 128", ""},
        {"volume cannot be opened", Disk(L'H'), "5 deadbeef", "", "ZN_GetVolumeDisk open \\\\.\\H: error: 5"},
        {"no letter, silently", Disk(L'1'), "87 deadbeef", "", ""},
    }, [](disktest::Machine& m) {
        for (auto [n, partition, disks] : {std::tuple{1, 1, Extents({0})}, {2, 2, Extents({1})}, {5, 2, Extents({0})}, {6, 3, Extents({0, 1})}}) {
            PARTITION_INFORMATION_EX p = {};
            p.PartitionNumber = partition;
            m.answers["open \\\\.\\HarddiskVolume" + std::to_string(n) + " 80000000"] = {};
            m.answers["\\\\.\\HarddiskVolume" + std::to_string(n) + " 70048"] = {0, Bytes(p)};
            m.answers["\\\\.\\HarddiskVolume" + std::to_string(n) + " 560000"] = {0, disks};
        }
        m.answers.insert({{"open \\\\.\\HarddiskVolume7 80000000", {}}, {"\\\\.\\HarddiskVolume7 70048", {ERROR_NOT_SUPPORTED}},
                          {"open \\\\.\\e: 80000000", {}}, {"\\\\.\\e: 560000", {0, Extents({3, 1, 2, 0})}}, {"open \\\\.\\F: 80000000", {}},
                          {"open \\\\.\\G: 80000000", {}}, {"\\\\.\\G: 560000", {0, Extents({})}}, {"open \\\\.\\H: 80000000", {ERROR_ACCESS_DENIED}}});
    });
}

// A bitmap answer: its header, clusters [0, used) and `highest` set, `extra` bytes more.
std::string Bitmap(ULONGLONG used, ULONGLONG highest, size_t extra = 0) {
    std::string out = Bytes(0ull, 1000000ull) + std::string(1000000 / 8 + extra, '\0');
    for (ULONGLONG i = 0; i < used; ++i) out[16 + i / 8] |= char(1 << (i % 8));
    out[16 + highest / 8] |= char(highest ? 1 << (highest % 8) : 0);
    return out;
}

TEST(VolumeExtents, MinimumSizeFromTheClusterBitmapOrTheBytesInUse) {
    auto Exact = [](WCHAR letter, std::string bitmap) {
        return Answered<ULONGLONG>([=](ULONGLONG* bytes) {
            disktest::Machine::self->answers["\\\\.\\X: 9006f"] = {bitmap.empty() ? DWORD(ERROR_NOT_SUPPORTED) : 0, bitmap};
            return ZN_GetVolumeMinSize(letter, 1, bytes);
        });
    };
    auto Quick = [](WCHAR letter) { return Answered<ULONGLONG>([=](ULONGLONG* bytes) { return ZN_GetVolumeMinSize(letter, 0, bytes); }); };
    // Upper-cased, opened to read data only; the bitmap from cluster 0 into total / 8 + 100 bytes.
    const std::string asked = "fs X:\\|clusters X:\\|\\\\.\\X: 9006f in 0000000000000000 out 125100", size = "ZN_GetVolumeMinSize ";
    disktest::Run({
        {"last used 10,000 of 1,000,000 keeps the margin", Exact(L'X', Bitmap(4999, 10000)), "0 ef10000", asked, size + "volume X min size in cluster: 239M"},
        {"packed from 0 cannot shrink", Exact(L'x', Bitmap(5000, 0)), "0 f4240000", asked, size + "volume x min size in cluster: 3906M"},
        {"bitmap request fails", Exact(L'X', ""), "50 deadbeef", asked, size + "get volume bitmap error: 50"},
        {"bitmap larger than the counts say", Exact(L'X', Bitmap(1, 0, 200)), "234 deadbeef", asked, size + "get volume bitmap error: 234"},
        {"exact method on FAT32, silently", Exact(L'Y', ""), "50 deadbeef", "fs Y:\\", ""},
        {"cluster counts cannot be read", Exact(L'W', ""), "21 deadbeef", "fs W:\\|clusters W:\\", size + "get disk free space for cluster of W:\\ error: 21"},
        {"volume cannot be opened", Exact(L'V', ""), "5 deadbeef", "fs V:\\|clusters V:\\", size + "open \\\\.\\V: error: 5"},
        {"quick: the bytes in use of the whole volume, not the caller's share", Quick(L'x'), "0 1388000", "fs X:\\|clusters X:\\", size + "volume x min size: 19M"},
        {"quick: free space cannot be read", Quick(L'w'), "21 deadbeef", "fs W:\\|clusters W:\\", size + "get free space of w: error: 21"},
        {"volume information cannot be read", Exact(L'q', ""), "3 deadbeef", "fs Q:\\", size + "get volume info of q error: 3"},
    }, [](disktest::Machine& m) {
        const std::string clusters = Bytes(DWORD(8), DWORD(512), DWORD(995000), DWORD(1000000));
        m.answers = {{"fs X:\\", {0, "ntfs"}}, {"fs W:\\", {0, "NTFS"}}, {"fs V:\\", {0, "NTFS"}}, {"fs Y:\\", {0, "FAT32"}}, {"fs Q:\\", {3}},
                     {"clusters X:\\", {0, clusters}}, {"clusters V:\\", {0, clusters}}, {"clusters W:\\", {21}},
                     {"open \\\\.\\X: 1", {}}, {"open \\\\.\\V: 1", {ERROR_ACCESS_DENIED}}};
    });
}

}  // namespace
