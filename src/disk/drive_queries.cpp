// Where does a path or a drive letter live: its file system, a USB or optical
// device, a UNC share, a mapped network drive. The product uses the answers to decide
// how to treat a backup target or source.
#include <windows.h>
#include <winioctl.h>
#include <winnetwk.h>

#include <stddef.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "disk/disk_volumes.h"
#include "frame/log.h"
#include "frame/unique_any.h"
#include "frame/text.h"

using namespace wrenkits;

namespace {

// The adapter's bus type is the one byte of the answer the USB test reads.
static_assert(offsetof(STORAGE_ADAPTER_DESCRIPTOR, BusType) == 24);
static_assert(sizeof(STORAGE_PROPERTY_QUERY) == 12);

constexpr DWORD kAdapterAnswerBytes = 1024;
constexpr DWORD kEnumBlockBytes = 16384;

// A UNC path's volume is its \\server\share\ part: everything up to and including
// the fourth backslash, or the whole path when it has fewer. False when that part
// and the backslash it may need do not fit a path buffer: a cut share name would
// ask about another volume.
bool UncRoot(LPCWSTR path, wchar_t (&root)[kPathChars]) {
    size_t length = 0;
    for (int backslashes = 0; path[length] && backslashes < 4; ++length)
        if (path[length] == L'\\') ++backslashes;
    const bool needsBackslash = path[length - 1] != L'\\';
    if (length + (needsBackslash ? 1 : 0) > kPathChars - 1) return false;
    wmemcpy(root, path, length);
    if (needsBackslash) root[length++] = L'\\';
    root[length] = 0;
    return true;
}

}  // namespace

extern "C" BOOL WINAPI ZN_GetFSType(LPCWSTR path, LPWSTR fsName) {
    if (!path || !*path) return FALSE;
    if (!fsName) {
        ::SetLastError(RefuseInvalid("ZN_GetFSType", "file-system name buffer"));
        return FALSE;
    }

    wchar_t root[kPathChars] = {};
    if (path[0] == L'\\' && path[1] == L'\\') {
        if (!UncRoot(path, root)) {
            ::SetLastError(RefuseTooLong("ZN_GetFSType", "share of the path", kPathChars - 1));
            return FALSE;
        }
    } else {
        // Only the first character of a local path names its volume.
        FormatPathW(root, L"%c:\\", path[0]);
    }

    if (!::GetVolumeInformationW(root, nullptr, 0, nullptr, nullptr, nullptr, fsName, kPathChars)) {
        LogW(L"%s call GetVolumeInformationW on %s error: %d", L"ZN_GetFSType", root, ::GetLastError());
        return FALSE;
    }
    LogW(L"%s FS type of %s is %s", L"ZN_GetFSType", root, fsName);
    return TRUE;
}

extern "C" BOOL WINAPI ZN_IsUsbPartition(WCHAR driveLetter) {
    if (!IsDriveLetter(driveLetter)) return FALSE;

    wchar_t root[kShortChars] = {};
    FormatShortW(root, L"%c:\\", driveLetter);
    const UINT type = ::GetDriveTypeW(root);
    // A card reader is removable and counts without asking the device.
    if (type == DRIVE_REMOVABLE) return TRUE;
    if (type != DRIVE_FIXED) return FALSE;

    // A USB hard disk reports itself as fixed; only its adapter's bus type tells.
    wchar_t device[kShortChars] = {};
    FormatShortW(device, L"\\\\.\\%c:", UpperLetter(driveLetter));
    unique_handle volume(::CreateFileW(device, 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                     nullptr));
    if (!volume) {
        LogW(L"%s open device %s error: %d", L"ZN_IsUsbPartition", device, ::GetLastError());
        return FALSE;
    }

    STORAGE_PROPERTY_QUERY query = {};
    query.PropertyId = StorageAdapterProperty;
    query.QueryType = PropertyStandardQuery;
    alignas(8) BYTE answer[kAdapterAnswerBytes] = {};
    DWORD returned = 0;
    const BOOL asked = ::DeviceIoControl(volume.get(), IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, answer,
                                         sizeof answer, &returned, nullptr);
    volume.reset();
    return asked && answer[offsetof(STORAGE_ADAPTER_DESCRIPTOR, BusType)] == BusTypeUsb;
}

extern "C" int WINAPI ZN_GetPathType(LPCWSTR path) {
    if (!path || !path[0] || !path[1]) return -1;
    if (path[0] == L'\\' && path[1] == L'\\') return 1;

    wchar_t root[kShortChars] = {};
    FormatShortW(root, L"%c:\\", path[0]);
    if (::GetDriveTypeW(root) == DRIVE_CDROM) return 2;
    return ZN_IsUsbPartition(path[0]) ? 3 : 0;
}

extern "C" BOOL WINAPI ZN_IsRemoteDrive(WCHAR driveLetter, LPWSTR remoteName) {
    const wchar_t letter = UpperLetter(driveLetter);
    if (!IsDriveLetter(letter)) {
        // The narrow log line could not show it, and no drive has such a name.
        ::SetLastError(RefuseInvalid("ZN_IsRemoteDrive", "drive letter"));
        return FALSE;
    }
    wchar_t root[kShortChars] = {};
    FormatShortW(root, L"%c:\\", letter);
    const UINT type = ::GetDriveTypeW(root);
    if (type != DRIVE_REMOTE) {
        LogA("%s type of %c is %d", "ZN_IsRemoteDrive", static_cast<char>(letter), static_cast<int>(type));
        return FALSE;
    }

    unique_wnet_enum connections;
    if (::WNetOpenEnumW(RESOURCE_CONNECTED, RESOURCETYPE_ANY, 0, nullptr, connections.put()) != NO_ERROR)
        return FALSE;
    unique_heap block = HeapAllocZeroed(kEnumBlockBytes);
    if (!block) return FALSE;

    for (;;) {
        memset(block.get(), 0, kEnumBlockBytes);
        DWORD count = static_cast<DWORD>(-1);
        DWORD size = kEnumBlockBytes;
        // Any failure, the end of the list included, means the letter was not found.
        if (::WNetEnumResourceW(connections.get(), &count, block.get(), &size) != NO_ERROR) return FALSE;

        const auto* entries = static_cast<const NETRESOURCEW*>(block.get());
        for (DWORD i = 0; i < count; ++i) {
            const NETRESOURCEW& entry = entries[i];
            const wchar_t* remote = entry.lpRemoteName ? entry.lpRemoteName : L"";
            const wchar_t* local = entry.lpLocalName ? entry.lpLocalName : L"";
            LogW(L"%s network path %s has mounted to: %s", L"ZN_IsRemoteDrive", remote, local);
            if (!local[0] || UpperLetter(local[0]) != letter) continue;

            if (!remoteName) return TRUE;
            const size_t length = wcsnlen(remote, kPathChars);
            if (length == kPathChars) {
                // A cut share name would name another share.
                ::SetLastError(RefuseTooLong("ZN_IsRemoteDrive", "remote name", kPathChars - 1));
                return FALSE;
            }
            wmemcpy(remoteName, remote, length + 1);
            return TRUE;
        }
    }
}
