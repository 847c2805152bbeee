// Volume extents, volume numbers and minimum sizes against the real DLL, with the
// partition records, extents and cluster bitmaps served by the device fake.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "Wrenkits.h"
#include "disk/volume_device_fake.h"

using disktest::Answer;
using disktest::Call;
using disktest::Devices;
using disktest::Drives;

namespace {

const DWORD kPartInfo = IOCTL_DISK_GET_PARTITION_INFO_EX, kExtents = IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS;
const std::string kVolume = "\\\\.\\HARDDISKVOLUME";  // the fake records names upper-cased
const DWORD kUntouched = 0xDEADBEEF;

struct VolumeCase {
    const char* name;
    WCHAR letter;            // ZN_GetVolumeDisk's letter; 0: ZN_GetVolumeNum of disk 0, partition 2
    DWORD result, out;
    std::vector<Call> calls;
    std::vector<std::string> log;
};

TEST(VolumeExtents, VolumeNumberAndDiskFromTheExtents) {
    const std::string none = "ZN_GetVolumeNum find no volume of partition 2 on disk 0";
    const VolumeCase cases[] = {
        {"scan passes gaps and the other disk's partition 2", 0, 0, 5,
         {{kVolume + "1", kPartInfo, ""}, {kVolume + "2", kPartInfo, ""}, {kVolume + "2", kExtents, ""},
          {kVolume + "5", kPartInfo, ""}, {kVolume + "5", kExtents, ""}},
         {"ZN_GetVolumeNum disk 0, partition 2, \\\\.\\HarddiskVolume5"}},
        {"spanned volume: its extent query fails for want of room", 0, ERROR_NOT_FOUND, kUntouched,
         {{kVolume + "1", kPartInfo, ""}, {kVolume + "2", kPartInfo, ""}, {kVolume + "2", kExtents, ""},
          {kVolume + "3", kPartInfo, ""}, {kVolume + "5", kPartInfo, ""}, {kVolume + "5", kExtents, ""}},
         {"ZN_GetVolumeNum get partition info of \\\\.\\HarddiskVolume3 error: 50",
          "ZN_GetVolumeNum get volume extents of \\\\.\\HarddiskVolume5 error: 234", none}},
        {"volume on two disks reports the first extent's", L'e', 0, 3, {{"\\\\.\\E:", kExtents, ""}}, {}},
        {"failed extent query still answers 0", L'F', 0, kUntouched, {{"\\\\.\\F:", kExtents, ""}},
         {"ZN_GetVolumeDisk get volume extents of \\\\.\\F: error: 1"}},
        {"no extents", L'G', ERROR_FILE_NOT_FOUND, kUntouched, {{"\\\\.\\G:", kExtents, ""}}, {}},
        {"volume cannot be opened", L'H', ERROR_ACCESS_DENIED, kUntouched, {}, {"ZN_GetVolumeDisk open \\\\.\\H: error: 5"}},
        {"a digit is no letter", L'1', ERROR_INVALID_PARAMETER, kUntouched, {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const bool spanned = std::string(c.name).rfind("spanned", 0) == 0;
        Devices devices;
        devices.On(kVolume + "1", kPartInfo, {0, disktest::PartitionNumber(1)})
            .On(kVolume + "2", kPartInfo, {0, disktest::PartitionNumber(2)})
            .On(kVolume + "2", kExtents, {0, disktest::Extents({1})})
            .On(kVolume + "5", kPartInfo, {0, disktest::PartitionNumber(2)})
            .On(kVolume + "5", kExtents, spanned ? Answer{0, disktest::Extents({0, 1})} : Answer{0, disktest::Extents({0})})
            .On("\\\\.\\E:", kExtents, {0, disktest::Extents({3, 1})})
            .On("\\\\.\\F:", kExtents, {ERROR_INVALID_FUNCTION, ""})
            .On("\\\\.\\G:", kExtents, {0, disktest::Extents({})})
            .Refuse("\\\\.\\H:", ERROR_ACCESS_DENIED);
        if (spanned) devices.On(kVolume + "3", kPartInfo, {ERROR_NOT_SUPPORTED, ""});
        wrtest::LogCapture log;
        DWORD out = kUntouched;

        EXPECT_EQ(c.result, c.letter ? ZN_GetVolumeDisk(c.letter, &out) : ZN_GetVolumeNum(0, 2, &out));
        EXPECT_EQ(c.out, out);
        EXPECT_EQ(c.calls, devices.calls);
        EXPECT_EQ(0, devices.open) << "device left open";
        EXPECT_EQ(c.log, disktest::Untagged(log));
    }
}

// A bitmap answer: header, then `bytes` with clusters [0, used) and `highest` set.
std::string Bitmap(std::uint64_t clusters, std::uint64_t used, std::uint64_t highest, size_t extraBytes = 0) {
    std::string out(16 + (clusters + 7) / 8 + extraBytes, '\0');
    std::memcpy(&out[8], &clusters, 8);
    for (std::uint64_t i = 0; i < used; ++i) out[16 + i / 8] |= char(1 << (i % 8));
    if (highest) out[16 + highest / 8] |= char(1 << (highest % 8));
    return out;
}

TEST(VolumeExtents, ExactMinimumSizeFromTheClusterBitmap) {
    const std::string bitmapLine = "ZN_GetVolumeMinSize volume X min size in cluster: ";
    const std::vector<Call> asked = {{"\\\\.\\X:", FSCTL_GET_VOLUME_BITMAP, std::string(8, '\0')}};
    struct MinCase {
        const char* name;
        WCHAR letter;
        INT exact;
        DWORD freeClusters;
        Answer bitmap;
        DWORD result;
        ULONGLONG bytes;  // 4096-byte clusters
        std::vector<Call> calls;
        std::vector<std::string> log;
    } cases[] = {
        {"last used 10,000 of 1,000,000 keeps the margin", L'X', 1, 995000, {0, Bitmap(1000000, 4999, 10000)}, 0,
         61200ull * 4096, asked, {bitmapLine + "239M"}},
        {"packed from 0 cannot shrink", L'x', 1, 995000, {0, Bitmap(1000000, 5000, 0)}, 0, 1000000ull * 4096, asked,
         {"ZN_GetVolumeMinSize volume x min size in cluster: 3906M"}},
        {"empty bitmap of an empty volume", L'X', 1, 1000000, {0, Bitmap(1000000, 0, 0)}, 0, 51200ull * 4096, asked,
         {bitmapLine + "200M"}},
        {"bitmap request fails", L'X', 1, 995000, {ERROR_NOT_SUPPORTED, ""}, ERROR_NOT_SUPPORTED, kUntouched, asked,
         {"ZN_GetVolumeMinSize get volume bitmap error: 50"}},
        {"bitmap larger than the counts say", L'X', 1, 995000, {0, Bitmap(1000000, 1, 0, 200)}, ERROR_MORE_DATA,
         kUntouched, asked, {"ZN_GetVolumeMinSize get volume bitmap error: 234"}},
        {"exact method on FAT32", L'Y', 1, 0, {}, ERROR_NOT_SUPPORTED, kUntouched, {}, {}},
        {"cluster counts cannot be read", L'W', 1, 0, {}, 21, kUntouched, {},
         {"ZN_GetVolumeMinSize get disk free space for cluster of W:\\ error: 21"}},
        {"volume information cannot be read", L'q', 0, 0, {}, 3, kUntouched, {},
         {"ZN_GetVolumeMinSize get volume info of q error: 3"}},
        {"a digit is no letter", L'1', 1, 0, {}, ERROR_INVALID_PARAMETER, kUntouched, {},
         {"ZN_GetVolumeMinSize refused: drive letter is missing or not valid"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Drives drives;
        drives.FileSystem("X:\\", "ntfs").FileSystem("W:\\", "NTFS").FileSystem("Y:\\", "FAT32")
            .FileSystem("Q:\\", "", 3).Clusters("X:\\", {8, 512, c.freeClusters, 1000000}).Clusters("W:\\", {}, 21);
        Devices devices;
        devices.On("\\\\.\\X:", FSCTL_GET_VOLUME_BITMAP, c.bitmap);
        wrtest::LogCapture log;
        ULONGLONG bytes = kUntouched;

        EXPECT_EQ(c.result, ZN_GetVolumeMinSize(c.letter, c.exact, &bytes));
        EXPECT_EQ(c.bytes, bytes);
        EXPECT_EQ(c.calls, devices.calls);
        EXPECT_EQ(0, devices.open) << "device left open";
        for (const auto& o : devices.opened) EXPECT_EQ("\\\\.\\X: 1", o) << "upper-cased, read data only";
        EXPECT_EQ(c.log, disktest::Untagged(log));
    }
}

TEST(VolumeExtents, QuickMinimumSizeIsTheBytesInUseOfARealDrive) {
    ULARGE_INTEGER total = {}, free = {};
    ASSERT_TRUE(GetDiskFreeSpaceExW(L"C:\\", nullptr, &total, &free));
    wrtest::LogCapture log;
    ULONGLONG bytes = 0;
    ASSERT_EQ(0u, ZN_GetVolumeMinSize(L'c', 0, &bytes));
    // The host's free space moves while other programs write; the log must match exactly.
    EXPECT_NEAR(double(total.QuadPart - free.QuadPart), double(bytes), 512.0 * 1024 * 1024);
    EXPECT_EQ(std::vector<std::string>{"ZN_GetVolumeMinSize volume c min size: " + std::to_string(bytes >> 20) + "M"},
              disktest::Untagged(log));
}

}  // namespace
