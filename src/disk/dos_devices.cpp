#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <optional>
#include <type_traits>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "registry/hive.h"

using namespace wrenkits;

namespace {

constexpr wchar_t kMountName[] = L"ZNRegKey";
constexpr char kRunningKey[] = "SYSTEM\\MountedDevices";
constexpr int kLetters = 26;
constexpr size_t kValueNameChars = 20;
constexpr DWORD kRepairDataBytes = 1024;
constexpr DWORD kMapDataBytes = 512;

// Where the offline SYSTEM hive lies: the running system's system folder, or its
// Windows folder plus "system32" (the letter map's way), on the caller's letter. So
// the offline installation is taken to sit in the same folder as the running one.
enum class HiveFolder { System, Windows };

// Mounts the offline SYSTEM hive as ZNRegKey into `hive`; 0, or the error already logged.
DWORD MountTargetHive(const char* name, wchar_t letter, HiveFolder folder, std::optional<MountedHive>& hive) {
    wchar_t running[kPathChars] = {}, path[kPathChars];
    const bool system = folder == HiveFolder::System;
    const UINT length =
        system ? ::GetSystemDirectoryW(running, kPathChars) : ::GetWindowsDirectoryW(running, kPathChars);
    if (length == 0 || length >= kPathChars ||
        !FormatWholeW(path, kPathChars, L"%s%s", running, system ? L"\\config\\system" : L"\\system32\\config\\system"))
        return RefuseTooLong(name, "hive path", kPathChars - 1);
    path[0] = letter;
    hive.emplace(path, kMountName);
    if (*hive) return ERROR_SUCCESS;
    LogW(L"%S load %s error: %d", name, path, hive->result());
    return hive->result();
}

DWORD RefuseDrive(const char* name) { return RefuseInvalid(name, "system drive"); }
DWORD RefuseMap(const char* name) { return RefuseInvalid(name, "letter map"); }

void ValueName(char (&out)[kValueNameChars], char letter) { _snprintf_s(out, _TRUNCATE, "\\DosDevices\\%c:", letter); }
void ValueName(wchar_t (&out)[kValueNameChars], wchar_t letter) {
    _snwprintf_s(out, _TRUNCATE, L"\\DosDevices\\%c:", letter);
}

// The repair's two widths differ in their registry calls, their messages and the
// offline key they open; everything else is one body. The calls of one width, each
// still made through the import table:
template <auto OpenKey, auto EnumValue, auto DeleteValue, auto QueryValue, auto SetValue>
struct RegistryCalls {
    static LSTATUS Open(const auto* path, REGSAM access, HKEY* key) {
        return OpenKey(HKEY_LOCAL_MACHINE, path, 0, access, key);
    }
    static LSTATUS FirstValue(HKEY key, auto* name, DWORD* chars) {
        return EnumValue(key, 0, name, chars, nullptr, nullptr, nullptr, nullptr);
    }
    static LSTATUS Delete(HKEY key, const auto* name) { return DeleteValue(key, name); }
    static LSTATUS Query(HKEY key, const auto* name, DWORD* type, BYTE* data, DWORD* bytes) {
        return QueryValue(key, name, nullptr, type, data, bytes);
    }
    static LSTATUS Set(HKEY key, const auto* name, DWORD type, const BYTE* data, DWORD bytes) {
        return SetValue(key, name, 0, type, data, bytes);
    }
};

struct WideRepair
    : RegistryCalls<::RegOpenKeyExW, ::RegEnumValueW, ::RegDeleteValueW, ::RegQueryValueExW, ::RegSetValueExW> {
    using Char = wchar_t;
    static constexpr char kName[] = "ZN_RepairDosDevice";
    static constexpr wchar_t kRunningKey[] = L"SYSTEM\\MountedDevices";
    static void TargetKey(wchar_t (&out)[kPathChars]) {
        _snwprintf_s(out, _TRUNCATE, L"%s\\MountedDevices", kMountName);
    }
    static void LogOpenFailed(const wchar_t* path, LSTATUS s) { LogW(L"%S open %s error: %d", kName, path, s); }
    static void LogQueryFailed(const wchar_t* v, LSTATUS s) { LogW(L"%S query %s error: %d", kName, v, s); }
    static void LogSetFailed(const wchar_t* v, LSTATUS s) { LogW(L"%S set value of %s error: %d", kName, v, s); }
    static void LogMapped(wchar_t from, wchar_t to) { LogW(L"%S %c ==> %c", kName, from, to); }
};

struct NarrowRepair
    : RegistryCalls<::RegOpenKeyExA, ::RegEnumValueA, ::RegDeleteValueA, ::RegQueryValueExA, ::RegSetValueExA> {
    using Char = char;
    static constexpr char kName[] = "ZN_RepairDosDeviceA";
    static constexpr char kRunningKey[] = "SYSTEM\\MountedDevices";
    // Kept as the narrow variant has always behaved: its key path takes only the
    // mount name's first character, so it opens HKEY_LOCAL_MACHINE\Z\MountedDevices,
    // which normally does not exist. Callers know the variant by that failure.
    static void TargetKey(char (&out)[kPathChars]) {
        _snprintf_s(out, _TRUNCATE, "%c\\MountedDevices", static_cast<char>(kMountName[0]));
    }
    static void LogOpenFailed(const char* path, LSTATUS s) { LogA("%s open %s error: %d", kName, path, s); }
    static void LogQueryFailed(const char* v, LSTATUS s) { LogA("%s query %s error: %d", kName, v, s); }
    static void LogSetFailed(const char* v, LSTATUS s) { LogA("%s set value of %s error: %d", kName, v, s); }
    static void LogMapped(char from, char to) { LogA("%s %c ==> %c", kName, from, to); }
};

// Every value goes, letters and volume entries alike: the target is to know exactly
// the volumes the map gives it. A value that cannot be deleted ends the clearing,
// which would otherwise meet the same value again for ever.
template <typename W>
void DeleteAllValues(HKEY key) {
    for (;;) {
        typename W::Char name[kPathChars] = {};
        DWORD chars = kPathChars;
        if (W::FirstValue(key, name, &chars) != ERROR_SUCCESS) return;
        if (W::Delete(key, name) != ERROR_SUCCESS) return;
    }
}

template <typename W>
DWORD RepairDosDevice(typename W::Char systemDrive, const typename W::Char* letterMap) {
    using Char = typename W::Char;
    if (!IsDriveLetter(static_cast<std::make_unsigned_t<Char>>(systemDrive))) return RefuseDrive(W::kName);
    if (!letterMap) return RefuseMap(W::kName);

    std::optional<MountedHive> hive;
    // A narrow letter is widened as a signed character; only ASCII letters get here.
    if (const DWORD error = MountTargetHive(W::kName, static_cast<wchar_t>(systemDrive), HiveFolder::System, hive))
        return error;

    // Both keys are declared after the hive, so they are closed before the unmount.
    Char targetPath[kPathChars];
    W::TargetKey(targetPath);
    unique_hkey target;
    LSTATUS status = W::Open(targetPath, KEY_ALL_ACCESS, target.put());
    if (status != ERROR_SUCCESS) {
        W::LogOpenFailed(targetPath, status);
        return status;
    }
    // Emptied before the running system's key is known to open: on that failure the
    // target is left to assign letters afresh, which beats keeping stale ones.
    DeleteAllValues<W>(target.get());

    unique_hkey running;
    status = W::Open(W::kRunningKey, KEY_READ, running.put());
    if (status != ERROR_SUCCESS) {
        LogA("%s open SYSTEM\\MountedDevices error: %d", W::kName, status);
        return status;
    }

    for (int i = 0; i < kLetters; ++i) {
        const Char to = letterMap[i];
        if (!IsDriveLetter(static_cast<std::make_unsigned_t<Char>>(to))) continue;
        const Char from = static_cast<Char>('A' + i);
        Char name[kValueNameChars];
        ValueName(name, from);
        BYTE data[kRepairDataBytes] = {};
        DWORD type = REG_BINARY, bytes = kRepairDataBytes;
        status = W::Query(running.get(), name, &type, data, &bytes);
        if (status != ERROR_SUCCESS) {
            W::LogQueryFailed(name, status);
            continue;
        }
        // A later map entry naming the same target letter overwrites this one.
        ValueName(name, static_cast<Char>(UpperLetter(static_cast<wchar_t>(to))));
        status = W::Set(target.get(), name, type, data, bytes);
        if (status != ERROR_SUCCESS)
            W::LogSetFailed(name, status);
        else
            W::LogMapped(from, to);
    }
    return ERROR_SUCCESS;
}

}  // namespace

extern "C" DWORD WINAPI ZN_RepairDosDevice(WCHAR systemDrive, const WCHAR* letterMap) {
    return RepairDosDevice<WideRepair>(systemDrive, letterMap);
}

extern "C" DWORD WINAPI ZN_RepairDosDeviceA(CHAR systemDrive, const CHAR* letterMap) {
    return RepairDosDevice<NarrowRepair>(systemDrive, letterMap);
}

extern "C" DWORD WINAPI ZN_ClearDosDevice(WCHAR systemDrive, DWORD letterMask) {
    constexpr char kName[] = "ZN_ClearDosDevice";
    if (!IsDriveLetter(systemDrive)) return RefuseDrive(kName);

    std::optional<MountedHive> hive;
    if (const DWORD error = MountTargetHive(kName, systemDrive, HiveFolder::System, hive)) return error;

    wchar_t targetPath[kPathChars];
    WideRepair::TargetKey(targetPath);
    unique_hkey target;  // after the hive: closed before the unmount
    const LSTATUS opened = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, targetPath, 0, KEY_ALL_ACCESS, target.put());
    if (opened != ERROR_SUCCESS) {
        LogW(L"%S open %s error: %d", kName, targetPath, opened);
        return opened;
    }
    for (int i = 0; i < kLetters; ++i) {
        if (!(letterMask & (1u << i))) continue;
        wchar_t name[kValueNameChars];
        ValueName(name, static_cast<wchar_t>(L'A' + i));
        const LSTATUS status = ::RegDeleteValueW(target.get(), name);
        if (status != ERROR_SUCCESS)
            LogW(L"%S delete %s error: %d", kName, name, status);
        else
            LogW(L"%S delete %s successfully", kName, name);
    }
    return ERROR_SUCCESS;
}

extern "C" DWORD WINAPI ZN_GetDoscharMapA(CHAR systemDrive, CHAR* letterMap) {
    constexpr char kName[] = "ZN_GetDoscharMapA";
    if (!letterMap) return RefuseMap(kName);
    if (!IsDriveLetter(static_cast<unsigned char>(systemDrive))) return RefuseDrive(kName);
    memset(letterMap, 0, kLetters);

    std::optional<MountedHive> hive;
    if (const DWORD error = MountTargetHive(kName, static_cast<wchar_t>(systemDrive), HiveFolder::Windows, hive))
        return error;

    // Both keys after the hive: closed before the unmount.
    unique_hkey running;
    LSTATUS status = ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, kRunningKey, 0, KEY_ALL_ACCESS, running.put());
    if (status != ERROR_SUCCESS) {
        LogA("%s open SYSTEM\\MountedDevices error: %d", kName, status);
        return status;
    }
    wchar_t targetPath[kPathChars];
    WideRepair::TargetKey(targetPath);
    unique_hkey target;
    status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, targetPath, 0, KEY_ALL_ACCESS, target.put());
    if (status != ERROR_SUCCESS) {
        LogW(L"%S open %s error: %d", kName, targetPath, status);
        return status;
    }

    const DWORD drives = ::GetLogicalDrives();
    for (char from = 'C'; from <= 'Z'; ++from) {
        if (!(drives & (1u << (from - 'A')))) continue;
        char name[kValueNameChars];
        ValueName(name, from);
        BYTE wanted[kMapDataBytes] = {};
        DWORD bytes = kMapDataBytes;
        if (::RegQueryValueExA(running.get(), name, nullptr, nullptr, wanted, &bytes) != ERROR_SUCCESS) continue;

        BYTE known[kMapDataBytes] = {};
        for (char to = 'C'; to <= 'Z'; ++to) {
            ValueName(name, to);
            bytes = kMapDataBytes;
            if (::RegQueryValueExA(target.get(), name, nullptr, nullptr, known, &bytes) != ERROR_SUCCESS) continue;
            // Over the target's own length: a target value that is a prefix of the
            // running system's counts as the same volume. The lowest letter wins.
            if (memcmp(known, wanted, bytes) == 0) {
                letterMap[from - 'A'] = to;
                LogA("%s  %c ---> %c", kName, from, to);
                break;
            }
        }
    }
    return ERROR_SUCCESS;
}
