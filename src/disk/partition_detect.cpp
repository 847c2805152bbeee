#include <windows.h>
#include <winioctl.h>
#include <stdio.h>
#include <string.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "registry/hive.h"

using namespace wrenkits;

namespace {

bool Exists(LPCWSTR path) { return ::GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES; }

// The firmware boots an MBR disk's active partition, a GPT disk's EFI system partition.
bool IsFirmwareBootPartition(const PARTITION_INFORMATION_EX& info) {
    if (info.PartitionStyle == PARTITION_STYLE_MBR) return info.Mbr.BootIndicator != FALSE;
    if (info.PartitionStyle != PARTITION_STYLE_GPT) return false;
    // C12A7328-F81F-11D2-BA4B-00A0C93EC93B, as the two halves the GUID is laid out in.
    static const GUID kEsp = {0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};
    unsigned long long type[2], esp[2];
    memcpy(type, &info.Gpt.PartitionType, sizeof type);
    memcpy(esp, &kEsp, sizeof esp);
    return type[0] == esp[0] && type[1] == esp[1];
}

}  // namespace

extern "C" BOOL WINAPI ZN_IsSystemPartition(WCHAR driveLetter) {
    constexpr wchar_t kName[] = L"ZN_IsSystemPartition";
    if (!IsDriveLetter(driveLetter)) {
        RefuseInvalid("ZN_IsSystemPartition", "the drive letter");
        return FALSE;
    }
    wchar_t path[kPathChars] = {};
    ::GetSystemDirectoryW(path, kPathChars);
    if (UpperLetter(path[0]) == UpperLetter(driveLetter)) return TRUE;

    FormatPathW(path, L"%c:\\WINDOWS\\system32\\drivers", driveLetter);
    if (!Exists(path)) return FALSE;
    FormatPathW(path, L"%c:\\WINDOWS\\system32\\config\\SOFTWARE", driveLetter);
    if (!Exists(path)) return FALSE;

    // Unmounted with a bare RegUnLoadKeyA: no privilege retry and no line, on purpose.
    MountedHive hive(path, L"ZNSoftware", HiveUnload::PlatformNarrow);
    if (!hive) {
        LogW(L"%s load %s error: %d", kName, path, hive.result());
        return FALSE;
    }
    unique_hkey key;  // after the hive: closed before the unmount
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"ZNSoftware\\Microsoft\\Windows NT\\CurrentVersion", 0, KEY_READ,
                        key.put()) != ERROR_SUCCESS)
        return FALSE;
    DWORD bytes = 0;
    return ::RegQueryValueExW(key.get(), L"CurrentVersion", nullptr, nullptr, nullptr, &bytes) == ERROR_SUCCESS;
}

extern "C" BOOL WINAPI ZN_IsBootPartition(WCHAR driveLetter) {
    constexpr wchar_t kName[] = L"ZN_IsBootPartition";
    if (!IsDriveLetter(driveLetter)) {
        RefuseInvalid("ZN_IsBootPartition", "the drive letter");
        return FALSE;
    }
    wchar_t device[kShortChars];
    FormatShortW(device, L"\\\\.\\%c:", driveLetter);
    unique_handle volume(::CreateFileW(device, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                       nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!volume) {
        LogW(L"%s open %s error: %d", kName, device, ::GetLastError());
        return FALSE;
    }
    PARTITION_INFORMATION_EX info = {};
    static_assert(sizeof info == 144);
    DWORD returned = 0;
    if (!::DeviceIoControl(volume.get(), IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0, &info, sizeof info, &returned,
                           nullptr)) {
        LogW(L"%s get partition infoex of %s error: %d", kName, device, ::GetLastError());
        return FALSE;
    }
    return IsFirmwareBootPartition(info) ? TRUE : FALSE;
}

extern "C" WCHAR WINAPI ZN_GetFreeDriveLetter() {
    const DWORD used = ::GetLogicalDrives();
    // A: and B: are never offered: they stay the floppy letters.
    for (int index = 2; index < 26; ++index)
        if (!(used & (1u << index))) return static_cast<WCHAR>(L'A' + index);
    return 0;
}
