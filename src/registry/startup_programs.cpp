// Programs the machine starts at every logon: values of the machine Run key of the
// running installation, or of an offline one whose software hive is mounted for it.
#include <wchar.h>

#include <optional>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "registry/hive.h"
#include "registry/windows_folder.h"

using namespace wrenkits;

namespace {

constexpr wchar_t kMountName[] = L"ZNRegKey";
constexpr wchar_t kLiveRunKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
// A Run value is a command line, and holds what a command line holds.
constexpr size_t kDataChars = 520;

// The Run key of one call, open for writing while this object lives: the live key, or
// the key inside the offline software hive, which stays mounted as long.
class RunKeyTarget {
public:
    // Mounts the offline hive when needed and opens the Run key for writing. 0, or the
    // code of the mount or open that failed (logged).
    DWORD Open(const wchar_t* name, WCHAR letter, bool enableBeforeMount) {
        DWORD result = ERROR_SUCCESS;
        if (!Prepare(name, letter, enableBeforeMount, result)) return result;
        result = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath_, 0, KEY_WRITE, key_.put());
        if (result != ERROR_SUCCESS) LogW(L"%s open %s error: %d", name, keyPath_, result);
        return result;
    }
    HKEY key() const { return key_.get(); }
    const wchar_t* keyPath() const { return keyPath_; }

private:
    // Mounts the offline hive when the letter is not the running system's. False
    // (logged) when the mount failed; its code is in `result`.
    bool Prepare(const wchar_t* name, WCHAR letter, bool enableBeforeMount, DWORD& result) {
        wchar_t windows[kPathChars];
        if (!ReadWindowsFolder(windows)) {
            LogA("%S get windows directory error: %d, use C:\\Windows for default", name, ::GetLastError());
            wcscpy_s(windows, L"C:\\Windows");
        }
        if (UpperLetter(windows[0]) == UpperLetter(letter)) {
            wcscpy_s(keyPath_, kLiveRunKey);
            return true;
        }
        // The offline installation is taken to use the running one's folder name.
        wchar_t hivePath[kPathChars];
        FormatPathW(hivePath, L"%s\\system32\\config\\software", windows);
        hivePath[0] = letter;
        if (enableBeforeMount) ZN_EnableBackupRestorePrivilege();
        result = hive_.emplace(hivePath, kMountName).result();
        if (result != ERROR_SUCCESS) {
            LogW(L"%s load %s error: %d", name, hivePath, result);
            return false;
        }
        FormatPathW(keyPath_, L"%s\\Microsoft\\Windows\\CurrentVersion\\Run", kMountName);
        return true;
    }

    std::optional<MountedHive> hive_;
    wchar_t keyPath_[kPathChars] = {};
    unique_hkey key_;  // after the hive: closed before it is unmounted
};

bool ValidInput(WCHAR letter, LPCWSTR valueName) { return IsDriveLetter(letter) && valueName && *valueName; }

}  // namespace

extern "C" DWORD WINAPI ZN_AddStartupProcess(WCHAR driveLetter, LPCWSTR valueName, LPCWSTR programPath,
                                            LPCWSTR arguments) {
    constexpr wchar_t kName[] = L"ZN_AddStartupProcess";
    if (!ValidInput(driveLetter, valueName) || !programPath || !*programPath) return ERROR_INVALID_PARAMETER;

    // The caller supplies any blank between the program and its arguments.
    wchar_t data[kDataChars];
    if (!FormatWholeW(data, kDataChars, L"\"%s\"%s", programPath, arguments ? arguments : L""))
        return RefuseTooLong("ZN_AddStartupProcess", "program and arguments", kDataChars - 1);

    RunKeyTarget target;
    if (const DWORD opened = target.Open(kName, driveLetter, false)) return opened;
    LogW(L"%s --> %s %s", kName, valueName, data);
    const DWORD bytes = static_cast<DWORD>((wcslen(data) + 1) * sizeof(wchar_t));
    const DWORD result =
        ::RegSetValueExW(target.key(), valueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(data), bytes);
    if (result != ERROR_SUCCESS)
        LogW(L"%s set %s %s error: %d", kName, valueName, data, result);
    else
        ::RegFlushKey(target.key());
    return result;
}

extern "C" DWORD WINAPI ZN_RemoveStartupProcess(WCHAR driveLetter, LPCWSTR valueName) {
    constexpr wchar_t kName[] = L"ZN_RemoveStartupProcess";
    if (!ValidInput(driveLetter, valueName)) return ERROR_INVALID_PARAMETER;

    RunKeyTarget target;
    if (const DWORD opened = target.Open(kName, driveLetter, true)) return opened;
    const DWORD result = ::RegDeleteValueW(target.key(), valueName);
    if (result != ERROR_SUCCESS) LogW(L"%s delete %s under %s error: %d", kName, valueName, target.keyPath(), result);
    return result;
}
