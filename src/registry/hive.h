// Offline hives for the rest of the library: the base-block repair and a scoped mount.
#pragma once

#include <windows.h>

#include "registry/hive_header.h"

namespace wrenkits {

// How a mounted hive is unmounted: through ZN_UnLoadRegistry (privilege retry, failure
// logged), or with a bare RegUnLoadKeyA for the one caller whose unload is silent.
enum class HiveUnload { Library, PlatformNarrow };

// A hive mounted under HKEY_LOCAL_MACHINE through ZN_LoadRegistry for the life of the
// object, unmounted when it goes, but only if the mount succeeded: a caller whose load
// failed must not unload (the name may belong to somebody else's mount).
//
// Declare keys opened inside the hive after this object, so that they are closed
// before the unmount: Windows refuses to unload a hive with open keys.
//
//     MountedHive hive(path, L"ZNRegKey");
//     if (!hive) return hive.result();
//     unique_hkey key;  // after the hive
class MountedHive {
public:
    // `keyName` must outlive the object (the library's mount names are literals).
    MountedHive(LPCWSTR hiveFile, LPCWSTR keyName, HiveUnload unload = HiveUnload::Library) noexcept;
    MountedHive(const MountedHive&) = delete;
    MountedHive& operator=(const MountedHive&) = delete;
    ~MountedHive() { (void)Unmount(); }

    // Unmounts now, for callers that go on working after the hive is no longer needed;
    // keys inside must be closed already. Returns the unload's code, or 0 when nothing
    // is mounted. The object forgets the mount even when the unload fails: retrying is
    // the unload's own business, and a second try from the destructor would only log twice.
    DWORD Unmount() noexcept;

    // ZN_LoadRegistry's code: 0 while mounted.
    [[nodiscard]] DWORD result() const noexcept { return result_; }
    [[nodiscard]] explicit operator bool() const noexcept { return mounted_; }

private:
    LPCWSTR name_;
    HiveUnload unload_;
    DWORD result_;
    bool mounted_;
};

}  // namespace wrenkits
