// Offline hives for the rest of the library: the base-block repair and a scoped mount.
#pragma once

#include <windows.h>

#include "registry/hive_header.h"

namespace wrenkits {

// Longest mount name kept, terminator included; registry key names stop at 255 characters.
inline constexpr size_t kHiveNameChars = 256;

// A hive mounted under HKEY_LOCAL_MACHINE through ZN_LoadRegistry, unmounted through
// ZN_UnLoadRegistry when the object goes, but only if the mount succeeded: a caller
// whose load failed must not unload (the name may belong to somebody else's mount).
//
// Declare keys opened inside the hive after this object, so that they are closed
// before the unmount: Windows refuses to unload a hive with open keys.
//
//     MountedHive hive(path, L"ZNRegKey");
//     if (!hive) return hive.result();
//     unique_hkey key;  // after the hive
class MountedHive {
public:
    MountedHive() noexcept = default;
    MountedHive(LPCWSTR hiveFile, LPCWSTR keyName) noexcept { result_ = Mount(hiveFile, keyName); }
    MountedHive(const MountedHive&) = delete;
    MountedHive& operator=(const MountedHive&) = delete;
    MountedHive(MountedHive&& other) noexcept;
    MountedHive& operator=(MountedHive&& other) noexcept;
    ~MountedHive() { (void)Unmount(); }

    // Mounts `hiveFile` as HKLM\keyName, after unmounting whatever this object held.
    // Returns ZN_LoadRegistry's code, or ERROR_INVALID_PARAMETER (logged, nothing
    // mounted) for a name too long to keep for the unmount.
    [[nodiscard]] DWORD Mount(LPCWSTR hiveFile, LPCWSTR keyName) noexcept;

    // Unmounts now, for callers that need the unload's result; keys inside must be
    // closed already. Returns ZN_UnLoadRegistry's code, or 0 when nothing is mounted.
    // The object forgets the mount even when the unload fails: retrying is the
    // unload's own business, and a second try from the destructor would only log twice.
    DWORD Unmount() noexcept;

    // The last Mount's code: 0 while mounted; ERROR_INVALID_HANDLE before any Mount.
    [[nodiscard]] DWORD result() const noexcept { return result_; }
    [[nodiscard]] bool mounted() const noexcept { return mounted_; }
    [[nodiscard]] explicit operator bool() const noexcept { return mounted_; }
    // The mount name, for key paths such as "%s\Microsoft\Windows NT\CurrentVersion".
    [[nodiscard]] const wchar_t* name() const noexcept { return name_; }

private:
    wchar_t name_[kHiveNameChars] = {};
    DWORD result_ = ERROR_INVALID_HANDLE;
    bool mounted_ = false;
};

}  // namespace wrenkits
