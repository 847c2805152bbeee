#include <stdarg.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "boot/boot.h"
#include "frame/log.h"
#include "frame/process.h"
#include "frame/unique_any.h"
#include "registry/hive.h"

using namespace wrenkits;

namespace {

constexpr char kName[] = "ZN_RepairBcdEntry";
constexpr wchar_t kMountName[] = L"ZNRegKey";
// The boot manager object and its display-order element, under the mounted store.
constexpr wchar_t kDisplayOrderKey[] = L"ZNRegKey\\Objects\\{9dea862c-5cdd-4e70-acc1-f32b344d4795}\\Elements\\24000001";
constexpr DWORD kDisplayOrderBytes = 520;

// Where UEFI and BIOS firmware look for the store, the boot manager and the loader.
struct Firmware {
    const wchar_t* store;
    const wchar_t* bootManagerPath;
    const wchar_t* loaderPath;
};
constexpr Firmware kUefi = {L"%c:\\EFI\\Microsoft\\Boot\\BCD",
                            L"/store %s /set {bootmgr} path \\EFI\\Microsoft\\Boot\\bootmgfw.efi",
                            L"/store %s /set %s path \\Windows\\system32\\winload.efi"};
constexpr Firmware kBios = {L"%c:\\Boot\\BCD", L"/store %s /set {bootmgr} path \\Boot\\bootmgr.exe",
                            L"/store %s /set %s path \\Windows\\system32\\winload.exe"};

// Held from the first step to the last, so that the offline store may be mounted.
class BackupRestorePrivileges {
public:
    BackupRestorePrivileges() { ZN_EnableBackupRestorePrivilege(); }
    BackupRestorePrivileges(const BackupRestorePrivileges&) = delete;
    BackupRestorePrivileges& operator=(const BackupRestorePrivileges&) = delete;
    ~BackupRestorePrivileges() {
        if (disableOnExit_) ZN_DisableBackupRestorePrivilege();
    }
    void LeaveEnabled() { disableOnExit_ = false; }

private:
    bool disableOnExit_ = true;
};

// Runs the editor on one offline store. A success is logged here; a failure was
// logged by ZN_RunProcess with its exit code.
class StoreEditor {
public:
    explicit StoreEditor(LPCWSTR editor) : editor_(editor) {}

    DWORD Run(const wchar_t* format, ...) {
        wchar_t arguments[kPathChars] = {};
        va_list args;
        va_start(args, format);
        // An identifier from the store can be long enough to push the command past
        // its buffer; a cut command would edit some other entry, so it is not run.
        const bool whole = FormatEditorArgumentsV(kName, arguments, format, args);
        va_end(args);
        if (!whole) return ERROR_FILENAME_EXCED_RANGE;
        const DWORD result = ZN_RunProcess(editor_, arguments, TRUE);
        if (result == 0) LogW(L"%S %s successfully", kName, arguments);
        return result;
    }

private:
    LPCWSTR editor_;
};

// Reads the boot manager's display order out of the store. `order` holds at least
// two characters more than the value may fill, so the list always ends in "\0\0".
bool ReadDisplayOrder(LPCWSTR store, wchar_t* order) {
    MountedHive hive(store, kMountName);
    if (!hive) return false;

    LSTATUS status;
    {
        unique_hkey key;
        status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kDisplayOrderKey, 0, KEY_READ, key.put());
        if (status != ERROR_SUCCESS) {
            LogW(L"%S open %s error: %d", kName, kDisplayOrderKey, status);
            return false;
        }
        DWORD bytes = kDisplayOrderBytes;
        status = ::RegQueryValueExW(key.get(), L"Element", nullptr, nullptr, reinterpret_cast<BYTE*>(order), &bytes);
    }
    // The key is closed before the unmount: an unload fails under an open key.
    hive.Unmount();
    if (status != ERROR_SUCCESS) {
        LogW(L"%S read Element in %s error: %d", kName, kDisplayOrderKey, status);
        return false;
    }
    return true;
}

// Points the entry the store lists first at the restored system and drops all
// others, so the machine boots straight into it. False sends the caller to the
// coarser fallback.
bool RepointListedEntry(StoreEditor& editor, const Firmware& firmware, LPCWSTR store, wchar_t boot, wchar_t system) {
    if (::GetFileAttributesW(store) == INVALID_FILE_ATTRIBUTES) {
        LogW(L"%S find %s error: %d", kName, store, ::GetLastError());
        return false;
    }
    if (editor.Run(L"/store %s /set {bootmgr} device partition=%c:", store, boot) != 0) return false;
    editor.Run(firmware.bootManagerPath, store);

    wchar_t order[kDisplayOrderBytes / sizeof(wchar_t) + 2] = {};
    if (!ReadDisplayOrder(store, order)) return false;
    const wchar_t* entry = order;
    if (!*entry) return true;  // nothing listed, nothing to repoint

    if (editor.Run(L"/store %s /default %s", store, entry) != 0) return false;
    if (editor.Run(L"/store %s /set %s device partition=%c:", store, entry, system) != 0) return false;
    editor.Run(firmware.loaderPath, store, entry);
    if (editor.Run(L"/store %s /set %s osdevice partition=%c:", store, entry, system) != 0) return false;

    // A delete that fails leaves one more menu entry; the others still go.
    for (const wchar_t* other = entry + wcslen(entry) + 1; *other; other += wcslen(other) + 1)
        editor.Run(L"/store %s /delete %s /f /cleanup", store, other);
    return true;
}

// Sets the entries every store knows by name when the listed one could not be used.
DWORD SetWellKnownEntries(StoreEditor& editor, LPCWSTR store, wchar_t boot, wchar_t system) {
    DWORD result = editor.Run(L"/store %s /set {bootmgr} device partition=%c:", store, boot);
    if (result != 0) return result;
    const wchar_t* osdevice = L"/store %s /set {default} osdevice partition=%c:";
    if (editor.Run(L"/store %s /set {default} device partition=%c:", store, system) != 0) {
        result = editor.Run(L"/store %s /set {current} device partition=%c:", store, system);
        if (result != 0) return result;
        osdevice = L"/store %s /set {current} osdevice partition=%c:";
    }
    return editor.Run(osdevice, store, system);
}

}  // namespace

extern "C" DWORD WINAPI ZN_RepairBcdEntry(WCHAR bootLetter, WCHAR systemLetter, DWORD uefi) {
    if (!IsDriveLetter(systemLetter)) {
        LogA("%s system partition is invalid", kName);
        return ERROR_INVALID_PARAMETER;
    }
    // Declared in this order so that the privileges are dropped before the guard ends.
    RedirectionGuard guard;
    BackupRestorePrivileges privileges;
    wchar_t editorPath[kPathChars] = {};
    GetBcdexePath(editorPath);

    // A boot partition without a letter gets fresh boot files and a fresh store on
    // the system partition, found by the generator's bare name.
    if (!IsDriveLetter(bootLetter)) {
        wchar_t generator[kPathChars] = {};
        FormatPathW(generator, L"bcdboot.exe %c:\\Windows /s %c:", systemLetter, systemLetter);
        const DWORD result = ZN_RunProcess(generator, L"", TRUE);
        if (result != 0) {
            privileges.LeaveEnabled();  // deliberate: this one way out keeps them enabled
            return result;
        }
        bootLetter = systemLetter;
    }

    const Firmware& firmware = uefi ? kUefi : kBios;
    const wchar_t boot = UpperLetter(bootLetter);
    const wchar_t system = UpperLetter(systemLetter);
    wchar_t store[kPathChars] = {};
    FormatPathW(store, firmware.store, boot);

    StoreEditor editor(editorPath);
    if (RepointListedEntry(editor, firmware, store, boot, system)) return 0;
    return SetWellKnownEntries(editor, store, boot, system);
}
