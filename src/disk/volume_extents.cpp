// Where a volume lies (its disk, its \\.\HarddiskVolumeN) and how small it could be
// made, from the volume's extents and its cluster bitmap.
#include <windows.h>
#include <winioctl.h>

#include <wchar.h>

#include "Wrenkits.h"
#include "disk/disk_volumes.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"

using namespace wrenkits;

namespace {

// The extents block holds the count and as many extents as fit; the volume scan asks
// for exactly one, so a volume spanning disks fails there for want of room.
constexpr DWORD kExtentsBlockBytes = 128;
static_assert(sizeof(VOLUME_DISK_EXTENTS) == 32);
static_assert(sizeof(PARTITION_INFORMATION_EX) == 144);
constexpr int kVolumeDevices = 500;

constexpr DWORD kBitmapControl = 0x9006F;  // FSCTL_GET_VOLUME_BITMAP
static_assert(kBitmapControl == FSCTL_GET_VOLUME_BITMAP);
constexpr DWORD kBitmapHeaderBytes = offsetof(VOLUME_BITMAP_BUFFER, Buffer);
static_assert(kBitmapHeaderBytes == 16);

}  // namespace

extern "C" DWORD WINAPI ZN_GetVolumeNum(DWORD diskNumber, DWORD partitionNumber, LPDWORD volumeNumber) {
    if (!volumeNumber) return RefuseInvalid("ZN_GetVolumeNum", "volume number pointer");

    for (int n = 0; n < kVolumeDevices; ++n) {
        wchar_t device[kPathChars] = {};
        FormatPathW(device, L"\\\\.\\HarddiskVolume%d", n);
        // Volume numbers have gaps: a missing device is passed over silently.
        unique_handle volume(::CreateFileW(device, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!volume) continue;

        PARTITION_INFORMATION_EX partition = {};
        DWORD returned = 0;
        if (!::DeviceIoControl(volume.get(), IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0, &partition,
                               sizeof partition, &returned, nullptr)) {
            LogW(L"%s get partition info of %s error: %d", L"ZN_GetVolumeNum", device, ::GetLastError());
            continue;  // an unanswered record names no partition
        }
        if (partition.PartitionNumber != partitionNumber) continue;

        VOLUME_DISK_EXTENTS extents = {};
        if (!::DeviceIoControl(volume.get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, &extents,
                               sizeof extents, &returned, nullptr)) {
            LogW(L"%s get volume extents of %s error: %d", L"ZN_GetVolumeNum", device, ::GetLastError());
            continue;
        }
        if (extents.NumberOfDiskExtents < 1 || extents.Extents[0].DiskNumber != diskNumber) continue;

        LogW(L"%s disk %d, partition %d, %s", L"ZN_GetVolumeNum", diskNumber, partitionNumber, device);
        *volumeNumber = static_cast<DWORD>(n);
        return 0;
    }
    LogA("%s find no volume of partition %d on disk %d", "ZN_GetVolumeNum", partitionNumber, diskNumber);
    return ERROR_NOT_FOUND;
}

extern "C" DWORD WINAPI ZN_GetVolumeDisk(WCHAR driveLetter, LPDWORD diskNumber) {
    if (!IsDriveLetter(driveLetter)) return ERROR_INVALID_PARAMETER;
    if (!diskNumber) return RefuseInvalid("ZN_GetVolumeDisk", "disk number pointer");

    wchar_t device[50] = {};
    _snwprintf_s(device, _countof(device), _TRUNCATE, L"\\\\.\\%c:", driveLetter);
    unique_handle volume(::CreateFileW(device, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!volume) {
        const DWORD error = ::GetLastError();
        LogW(L"%s open %s error: %d", L"ZN_GetVolumeDisk", device, error);
        return error;
    }
    unique_heap block = HeapAllocZeroed(kExtentsBlockBytes);
    if (!block) return ERROR_NOT_ENOUGH_MEMORY;

    DWORD returned = 0;
    const auto* extents = static_cast<const VOLUME_DISK_EXTENTS*>(block.get());
    if (!::DeviceIoControl(volume.get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, block.get(),
                           kExtentsBlockBytes, &returned, nullptr)) {
        // Deliberate: a failed query is logged, yet the result stays 0 and the caller's
        // value is left as it was. Callers of the product rely on this answer.
        LogW(L"%s get volume extents of %s error: %d", L"ZN_GetVolumeDisk", device, ::GetLastError());
        return 0;
    }
    if (extents->NumberOfDiskExtents == 0) return ERROR_FILE_NOT_FOUND;
    *diskNumber = extents->Extents[0].DiskNumber;
    return 0;
}

namespace {

DWORD MinSizeFromBitmap(WCHAR letter, const wchar_t* root, PULONGLONG minSizeBytes) {
    DWORD sectorsPerCluster = 0, bytesPerSector = 0, freeClusters = 0, totalClusters = 0;
    if (!::GetDiskFreeSpaceW(root, &sectorsPerCluster, &bytesPerSector, &freeClusters, &totalClusters)) {
        const DWORD error = ::GetLastError();
        LogW(L"%s get disk free space for cluster of %s error: %d", L"ZN_GetVolumeMinSize", root, error);
        return error;
    }
    // One bit per cluster, the division in whole 32-bit numbers, and room for the header.
    const DWORD bufferBytes = totalClusters / 8 + 100;
    unique_heap bitmap(::HeapAlloc(::GetProcessHeap(), 0, bufferBytes));
    if (!bitmap) {
        LogA("%s new buffer for bitmap error: %d", "ZN_GetVolumeMinSize", ERROR_NOT_ENOUGH_MEMORY);
        return ERROR_NOT_ENOUGH_MEMORY;
    }

    wchar_t device[kShortChars] = {};
    FormatShortW(device, L"\\\\.\\%c:", UpperLetter(letter));
    unique_handle volume(::CreateFileW(device, FILE_READ_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!volume) {
        const DWORD error = ::GetLastError();
        LogW(L"%s open %s error: %d", L"ZN_GetVolumeMinSize", device, error);
        return error;
    }

    // A bitmap larger than the buffer fails here too: the counts and the bitmap disagree.
    STARTING_LCN_INPUT_BUFFER start = {};
    DWORD returned = 0;
    if (!::DeviceIoControl(volume.get(), kBitmapControl, &start, sizeof start, bitmap.get(), bufferBytes, &returned,
                           nullptr)) {
        const DWORD error = ::GetLastError();
        LogA("%s get volume bitmap error: %d", "ZN_GetVolumeMinSize", error);
        return error;
    }
    const auto* answer = static_cast<const VOLUME_BITMAP_BUFFER*>(bitmap.get());
    const std::uint64_t bitmapClusters = static_cast<std::uint64_t>(answer->BitmapSize.QuadPart);
    const std::uint64_t highest = HighestUsedCluster(
        {static_cast<const std::uint8_t*>(bitmap.get()) + kBitmapHeaderBytes, bufferBytes - kBitmapHeaderBytes},
        bitmapClusters);
    const std::uint64_t clusters = MinSizeClusters(highest, totalClusters, freeClusters, bitmapClusters);

    *minSizeBytes = static_cast<ULONGLONG>(bytesPerSector) * sectorsPerCluster * clusters;
    LogA("%s volume %c min size in cluster: %I64dM", "ZN_GetVolumeMinSize", static_cast<char>(letter),
         *minSizeBytes >> 20);
    return 0;
}

}  // namespace

extern "C" DWORD WINAPI ZN_GetVolumeMinSize(WCHAR driveLetter, INT exact, PULONGLONG minSizeBytes) {
    if (!IsDriveLetter(driveLetter)) return RefuseInvalid("ZN_GetVolumeMinSize", "drive letter");
    if (!minSizeBytes) return RefuseInvalid("ZN_GetVolumeMinSize", "size pointer");

    wchar_t root[kShortChars] = {};
    FormatShortW(root, L"%c:\\", UpperLetter(driveLetter));
    wchar_t fileSystem[20] = {};
    if (!::GetVolumeInformationW(root, nullptr, 0, nullptr, nullptr, nullptr, fileSystem, _countof(fileSystem))) {
        const DWORD error = ::GetLastError();
        LogA("%s get volume info of %c error: %d", "ZN_GetVolumeMinSize", static_cast<char>(driveLetter), error);
        return error;
    }

    if (exact) {
        if (_wcsicmp(fileSystem, L"NTFS") != 0) return ERROR_NOT_SUPPORTED;
        return MinSizeFromBitmap(driveLetter, root, minSizeBytes);
    }

    ULARGE_INTEGER total = {}, totalFree = {};
    if (!::GetDiskFreeSpaceExW(root, nullptr, &total, &totalFree)) {
        const DWORD error = ::GetLastError();
        LogA("%s get free space of %c: error: %d", "ZN_GetVolumeMinSize", static_cast<char>(driveLetter), error);
        return error;
    }
    *minSizeBytes = total.QuadPart - totalFree.QuadPart;
    LogA("%s volume %c min size: %I64dM", "ZN_GetVolumeMinSize", static_cast<char>(driveLetter),
         *minSizeBytes >> 20);
    return 0;
}
