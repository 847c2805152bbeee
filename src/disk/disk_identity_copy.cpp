#include <stddef.h>
#include <stdio.h>
#include <windows.h>
#include <winioctl.h>

#include "Wrenkits.h"
#include "disk/disk_identity.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"

using namespace wrenkits;

// The offsets the identity copy works with are the platform record's.
static_assert(offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionCount) == kLayoutCountOffset &&
              offsetof(DRIVE_LAYOUT_INFORMATION_EX, Gpt.DiskId) == kLayoutIdentityOffset &&
              offsetof(DRIVE_LAYOUT_INFORMATION_EX, Mbr.Signature) == kLayoutIdentityOffset &&
              offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionEntry) == kLayoutEntriesOffset);
static_assert(sizeof(PARTITION_INFORMATION_EX) == kLayoutEntryBytes &&
              offsetof(PARTITION_INFORMATION_EX, PartitionNumber) == kEntryNumberOffset &&
              offsetof(PARTITION_INFORMATION_EX, RewritePartition) == kEntryRewriteOffset &&
              offsetof(PARTITION_INFORMATION_EX, Gpt.PartitionId) == kEntryIdentityOffset);

namespace {

constexpr char kName[] = "ZN_CopyDiskGuid";

// One physical disk: its open handle and its layout as the driver last reported it.
// Declared per disk, so each disk's handle and buffer go together on every path.
struct Disk {
    wchar_t path[32] = {};  // room for any 32-bit number
    unique_handle handle;
    unique_heap layout;
    DWORD layoutBytes = 0;

    std::uint8_t* bytes() const { return static_cast<std::uint8_t*>(layout.get()); }
    LayoutBuffer buffer() const { return LayoutBuffer(bytes(), kLayoutBufferBytes); }

    DWORD Open(DWORD number, DWORD access) {
        _snwprintf_s(path, _countof(path), _TRUNCATE, L"\\\\.\\PhysicalDrive%d", number);
        handle.reset(::CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
        if (handle) return ERROR_SUCCESS;
        const DWORD error = ::GetLastError();
        LogW(L"%S open %s error: %d", kName, path, error);
        return error;
    }

    DWORD ReadLayout() {
        layout = HeapAllocZeroed(kLayoutBufferBytes);
        if (!layout) {
            const DWORD error = ::GetLastError();
            LogA("%s new buffer error: %d", kName, error);
            return error;
        }
        if (::DeviceIoControl(handle.get(), IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, bytes(),
                              static_cast<DWORD>(kLayoutBufferBytes), &layoutBytes, nullptr))
            return ERROR_SUCCESS;
        const DWORD error = ::GetLastError();
        LogW(L"%S get layout of %s error: %d", kName, path, error);
        return error;
    }
};

}  // namespace

extern "C" DWORD WINAPI ZN_CopyDiskGuid(DWORD sourceDisk, DWORD destinationDisk) {
    Disk source, destination;
    if (const DWORD error = source.Open(sourceDisk, GENERIC_READ)) return error;
    if (const DWORD error = source.ReadLayout()) return error;
    if (const DWORD error = destination.Open(destinationDisk, GENERIC_READ | GENERIC_WRITE)) return error;
    if (const DWORD error = destination.ReadLayout()) return error;

    const IdentityCopy copy = CopyLayoutIdentity(source.buffer(), destination.buffer());
    if (copy.result == ERROR_INVALID_DATA) {
        LogA("%s partition style of disk %d and %d is not same", kName, sourceDisk, destinationDisk);
        return copy.result;
    }
    if (copy.result == ERROR_FILE_NOT_FOUND)
        LogA("%s partition %d on destination disk is not found on source disk", kName, copy.missingPartition);

    // Written even after a missing partner: the partitions paired so far and the disk
    // identity still belong on the clone, and the caller learns of the gap from the 2.
    DWORD written = 0;
    if (!::DeviceIoControl(destination.handle.get(), IOCTL_DISK_SET_DRIVE_LAYOUT_EX, destination.bytes(),
                           destination.layoutBytes, nullptr, 0, &written, nullptr)) {
        const DWORD error = ::GetLastError();
        LogW(L"%S set layout of %s error: %d", kName, destination.path, error);
        return error;
    }
    return copy.result;
}
