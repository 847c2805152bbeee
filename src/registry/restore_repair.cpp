// Repairs a Windows installation that was just restored or deployed to another
// volume, before its first start: stale device caches, the record of the image
// source's last shutdown, the boot-status flag, policy keys, storage-driver settings,
// icon caches and directory-service transaction logs. Each step mounts the hive it
// needs under the one fixed name and unmounts it before the next step begins.
#include <stdint.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "registry/hive.h"
#include "registry/windows_folder.h"

using namespace wrenkits;

namespace {

constexpr wchar_t kMountName[] = L"ZNRegKey";
constexpr wchar_t kSoftwareHive[] = L"%s\\system32\\config\\software";
constexpr wchar_t kSystemHive[] = L"%s\\system32\\config\\system";
constexpr DWORD kBootstatBlock = 512;
constexpr DWORD kBootstatFlagOffset = 11;
// Planned, clean-UI and comment-required flags with the reason "other".
constexpr DWORD kPlannedShutdownReason = 0x85000000;

using PathBuffer = wchar_t[kPathChars];

// One hive of the target, mounted as ZNRegKey for one step; a failed load is logged
// in the step's words.
class TargetHive : public MountedHive {
public:
    TargetHive(const wchar_t* step, const wchar_t* hivePath) : MountedHive(hivePath, kMountName) {
        if (result() != ERROR_SUCCESS) LogW(L"%s load %s error: %d", step, hivePath, result());
    }
};

struct HivePath {
    HivePath(const wchar_t* format, const wchar_t* windows) { FormatPathW(text, format, windows); }
    PathBuffer text;
};

DWORD UnmountLoggingFailure(MountedHive& hive, const char* step) {
    const DWORD result = hive.Unmount();
    if (result != ERROR_SUCCESS) LogA("%s unload key failed, error: %d, %d", step, result, ::GetLastError());
    return result;
}

DWORD RepairRegForIE(const wchar_t* windows) {
    TargetHive hive(L"RepairRegForIE", HivePath(kSoftwareHive, windows).text);
    if (!hive) return hive.result();
    for (const wchar_t* format : {L"%s\\Microsoft\\Windows\\CurrentVersion\\Policies",
                                  L"%s\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Policies"}) {
        PathBuffer keyPath;
        FormatPathW(keyPath, format, kMountName);
        unique_hkey key;
        const LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_ALL_ACCESS, key.put());
        if (status != ERROR_SUCCESS) {
            LogW(L"RegOpenKeyEx %s failed, return %d, error: %d", keyPath, status, ::GetLastError());
            continue;
        }
        ::RegDeleteTreeW(key.get(), L"System");  // a policy set without System restrictions is fine
    }
    return UnmountLoggingFailure(hive, "RepairRegForIE");
}

// Reliability's "Shutdown" key is written as if the last run had ended with a
// planned, commented shutdown, so the first start asks nobody why it stopped.
DWORD RepairShutdownEvent(const wchar_t* windows) {
    constexpr wchar_t kStep[] = L"RepairShutdownEvent";
    TargetHive hive(kStep, HivePath(kSoftwareHive, windows).text);
    const DWORD mounted = hive.result();
    if (!hive) return mounted;

    PathBuffer keyPath;
    FormatPathW(keyPath, L"%s\\microsoft\\windows\\currentversion\\Reliability", kMountName);
    unique_hkey reliability;
    LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_READ | KEY_WRITE, reliability.put());
    if (status != ERROR_SUCCESS) {
        LogW(L"%s open %s error: %d", kStep, keyPath, status);
        return mounted;
    }
    BYTE stamp[520] = {};
    DWORD type = 0, bytes = sizeof stamp;
    status = ::RegQueryValueExW(reliability.get(), L"LastAliveStamp", nullptr, &type, stamp, &bytes);
    if (status != ERROR_SUCCESS) {
        LogW(L"%s read LastAliveStamp in %s error: %d", kStep, keyPath, status);
        return mounted;
    }
    ::RegDeleteValueW(reliability.get(), L"LastAliveStamp");
    unique_hkey shutdown;
    status = ::RegOpenKeyExW(reliability.get(), L"Shutdown", 0, KEY_READ | KEY_WRITE, shutdown.put());
    if (status != ERROR_SUCCESS) {
        LogW(L"%s open Shutdown under %s error: %d", kStep, keyPath, status);
        return mounted;
    }
    static const wchar_t kComment[] = L"Tidemark System Deploy";
    const DWORD reason = kPlannedShutdownReason;
    ::RegSetValueExW(shutdown.get(), L"Timestamp", 0, type, stamp, bytes);
    ::RegSetValueExW(shutdown.get(), L"Comment", 0, REG_SZ, reinterpret_cast<const BYTE*>(kComment), sizeof kComment);
    ::RegSetValueExW(shutdown.get(), L"ReasonCode", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&reason),
                     sizeof reason);
    return mounted;  // the keys close, then the hive goes, whatever the unload says
}

DWORD RepairBootstat(const wchar_t* windows) {
    constexpr wchar_t kStep[] = L"RepairBootstat";
    PathBuffer path;
    FormatPathW(path, L"%s\\bootstat.dat", windows);
    unique_handle file(::CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        const DWORD error = ::GetLastError();
        LogW(L"%s open %s error: %d", kStep, path, error);
        return error;
    }
    BYTE block[kBootstatBlock] = {};
    DWORD done = 0;
    // A short file is left alone: only a whole first block is rewritten.
    ::SetLastError(ERROR_SUCCESS);
    if (!::ReadFile(file.get(), block, kBootstatBlock, &done, nullptr) || done < kBootstatBlock) {
        LogW(L"%s read %s error: %d", kStep, path, ::GetLastError());
        return ERROR_SUCCESS;
    }
    block[kBootstatFlagOffset] = 1;
    ::SetFilePointer(file.get(), 0, nullptr, FILE_BEGIN);
    ::SetLastError(ERROR_SUCCESS);
    if (!::WriteFile(file.get(), block, kBootstatBlock, &done, nullptr) || done < kBootstatBlock)
        LogW(L"%s write %s error: %d", kStep, path, ::GetLastError());
    return ERROR_SUCCESS;
}

// The copy must find its volumes afresh: the image source's volume and snapshot
// devices are dropped from every control set.
DWORD RemoveRegistryUnderSystemHive(const wchar_t* windows) {
    constexpr wchar_t kStep[] = L"RemoveRegistryUnderSystemHive";
    TargetHive hive(kStep, HivePath(kSystemHive, windows).text);
    if (!hive) return hive.result();
    // An offline hive has no CurrentControlSet link; its failed open is logged like any other.
    for (const wchar_t* controlSet : {L"CurrentControlSet", L"ControlSet001", L"ControlSet002"}) {
        PathBuffer keyPath;
        FormatPathW(keyPath, L"%s\\%s\\Enum\\STORAGE", kMountName, controlSet);
        unique_hkey key;
        const LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_ALL_ACCESS, key.put());
        if (status != ERROR_SUCCESS) {
            LogW(L"%s open %s failed, error: %d", kStep, keyPath, status);
            continue;
        }
        for (const wchar_t* subkey : {L"Volume", L"VolumeSnapshot"}) {
            const LSTATUS deleted = ::RegDeleteTreeW(key.get(), subkey);
            if (deleted != ERROR_SUCCESS) LogA("%S delete key %S error: %d", kStep, subkey, deleted);
        }
    }
    return UnmountLoggingFailure(hive, "RemoveRegistryUnderSystemHive");
}

DWORD RepairIntelRST(const wchar_t* windows) {
    constexpr wchar_t kStep[] = L"RepairIntelRST";
    TargetHive hive(kStep, HivePath(kSoftwareHive, windows).text);
    if (!hive) return hive.result();
    PathBuffer keyPath;
    FormatPathW(keyPath, L"%s\\Wow6432Node\\Intel\\irstrt\\Parameters", kMountName);
    unique_hkey key;  // never created: a machine without the driver has nothing to repair
    LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_ALL_ACCESS, key.put());
    if (status != ERROR_SUCCESS) {
        LogW(L"%s open %s error: %d", kStep, keyPath, status);
        return status;
    }
    const DWORD one = 1;
    for (const wchar_t* value : {L"CriticalBatteryEnabled", L"TimerEnabled"}) {
        status = ::RegSetValueExW(key.get(), value, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), sizeof one);
        if (status == ERROR_SUCCESS)
            LogA("%S set %S to 1", kStep, value);
        else
            LogA("%S set %S error: %d", kStep, value, status);
    }
    return status;
}

void RemoveIconCache(wchar_t letter) {
    PathBuffer pattern;
    FormatPathW(pattern, L"%c:\\Users\\*.*", letter);
    WIN32_FIND_DATAW found;
    unique_find search(::FindFirstFileW(pattern, &found));
    if (!search) return;
    do {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) || found.cFileName[0] == L'.') continue;
        PathBuffer cache;
        if (_snwprintf_s(cache, kPathChars, _TRUNCATE, L"%c:\\Users\\%s\\AppData\\Local\\IconCache.db", letter,
                         found.cFileName) < 0)
            continue;  // a cut path would name some other file
        // Most profiles have no cache; nothing to report either way.
        ::SetFileAttributesW(cache, 0);
        ::DeleteFileW(cache);
    } while (::FindNextFileW(search.get(), &found));
}

// Transaction logs and checkpoints of the directory database would be replayed over
// the restored database at its first start.
void RemoveADFiles(const wchar_t* windows) {
    constexpr wchar_t kStep[] = L"RemoveADFiles";
    PathBuffer folder;
    FormatPathW(folder, L"%s\\NTDS", windows);
    for (const wchar_t* mask : {L"*.log", L"*.chk"}) {
        PathBuffer path;
        FormatPathW(path, L"%s\\%s", folder, mask);
        WIN32_FIND_DATAW found;
        unique_find search(::FindFirstFileW(path, &found));
        if (!search) {
            LogW(L"%s find %s error: %d", kStep, path, ::GetLastError());
            continue;
        }
        do {
            if (_snwprintf_s(path, kPathChars, _TRUNCATE, L"%s\\%s", folder, found.cFileName) < 0) continue;
            if (::DeleteFileW(path))
                LogW(L"%s remove %s", kStep, path);
            else
                LogW(L"%s remove %s error: %d", kStep, path, ::GetLastError());
        } while (::FindNextFileW(search.get(), &found));
    }
}

// The backup and restore privileges are held for the whole series and dropped after it.
class SeriesPrivileges {
public:
    SeriesPrivileges() { ZN_EnableBackupRestorePrivilege(); }
    SeriesPrivileges(const SeriesPrivileges&) = delete;
    SeriesPrivileges& operator=(const SeriesPrivileges&) = delete;
    ~SeriesPrivileges() { ZN_DisableBackupRestorePrivilege(); }
};

}  // namespace

extern "C" DWORD WINAPI ZN_RepairFileRegistry(WCHAR driveLetter, DWORD majorVersion, DWORD minorVersion) {
    constexpr char kName[] = "ZN_RepairFileRegistry";
    if (!IsDriveLetter(driveLetter)) return RefuseInvalid(kName, "drive letter");
    wchar_t windows[kPathChars];
    if (!ReadWindowsFolder(windows)) {
        const DWORD error = ::GetLastError();
        LogA("%s get windows directory error: %d", kName, error);
        return error;
    }
    // The target is taken to live in the running system's folder, on its own letter.
    windows[0] = driveLetter;
    LogW(L"%S windows dir: %s", kName, windows);

    SeriesPrivileges privileges;
    // Each step logs its own failures; none of them stops the series.
    RepairRegForIE(windows);
    RepairShutdownEvent(windows);
    RepairBootstat(windows);
    RemoveRegistryUnderSystemHive(windows);
    RepairIntelRST(windows);
    RemoveIconCache(driveLetter);
    // Windows 8 to 8.1 and Server 2012 (R2) only; 10.0 keeps its logs.
    if (majorVersion == 6 && minorVersion >= 2) RemoveADFiles(windows);
    return ERROR_SUCCESS;
}

extern "C" DWORD WINAPI ZN_ReCopyNtdsFiles(LPCWSTR sourceFolder, WCHAR destinationLetter) {
    constexpr char kName[] = "ZN_ReCopyNtdsFiles";
    if (!sourceFolder || !*sourceFolder) return RefuseInvalid(kName, "source folder");
    if (!IsDriveLetter(destinationLetter)) return RefuseInvalid(kName, "destination letter");
    // The same folder on the other letter.
    PathBuffer destination;
    if (!FormatWholeW(destination, kPathChars, L"%c%s", destinationLetter, sourceFolder + 1))
        return RefuseTooLong(kName, "source folder", kPathChars - 1);
    LogW(L"%S ==> %s", kName, destination);

    // The database files are only consistent while the directory service is stopped.
    DWORD result = ZN_StopService(L"NTDS");
    if (result == ERROR_TIMEOUT) result = ZN_StopService(L"NTDS");
    if (result != ERROR_SUCCESS) return result;
    ZN_CopyFolder(sourceFolder, destination);
    return ZN_StartService(L"NTDS");
}
