#include <stdio.h>
#include <wchar.h>

#include <array>
#include <cstdint>
#include <utility>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "registry/hive.h"

using wrenkits::unique_handle;

namespace {

constexpr wchar_t kLoadName[] = L"ZN_LoadRegistry";
constexpr wchar_t kUnloadName[] = L"ZN_UnLoadRegistry";
constexpr wchar_t kProfilePrivilege[] = L"SeSystemProfilePrivilege";
constexpr wchar_t kOwnershipPrivilege[] = L"SeTakeOwnershipPrivilege";

bool NeedsPrivilege(LONG result) { return result == ERROR_ACCESS_DENIED || result == ERROR_PRIVILEGE_NOT_HELD; }

LONG LoadHive(LPCWSTR hiveFile, LPCWSTR keyName) { return ::RegLoadKeyW(HKEY_LOCAL_MACHINE, keyName, hiveFile); }

void LogLoadFailure(LPCWSTR hiveFile, LPCWSTR keyName, LONG result) {
    LogW(L"%s load %s to %s error: %d", kLoadName, hiveFile, keyName, result);
}

// First repair: put the ".BAK" twin in the hive's place (the damaged file is not
// kept) and mount that. True once it is mounted.
bool LoadFromBackup(LPCWSTR hiveFile, LPCWSTR keyName) {
    wchar_t backup[wrenkits::kPathChars];
    // A backup path cut to fit would name some other file, which would then be
    // copied over the hive. Without a usable path the header rewrite still has a chance.
    if (_snwprintf_s(backup, _countof(backup), _TRUNCATE, L"%s.BAK", hiveFile) < 0) {
        wrenkits::RefuseTooLong("ZN_LoadRegistry", "backup path", wrenkits::kPathChars - 1);
        return false;
    }
    if (::GetFileAttributesW(backup) == INVALID_FILE_ATTRIBUTES) {
        LogW(L"%s not exist %s", kLoadName, backup);
        return false;
    }
    if (!::CopyFileW(backup, hiveFile, FALSE)) {
        LogW(L"%s copy %s to %s error: %d", kLoadName, backup, hiveFile, ::GetLastError());
        return false;
    }
    LogW(L"%s use the backup file: %s", kLoadName, backup);
    const LONG result = LoadHive(hiveFile, keyName);
    if (result == ERROR_SUCCESS) return true;
    LogLoadFailure(hiveFile, keyName, result);
    return false;
}

// Second repair: make the base block self-consistent in place. Returns the error
// that makes another load pointless, or 0.
DWORD RewriteHeader(LPCWSTR hiveFile) {
    // Readers may look on, but nobody may write the header while it is rewritten.
    unique_handle file(::CreateFileW(hiveFile, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        const DWORD error = ::GetLastError();
        LogW(L"%s open %s error: %d", kLoadName, hiveFile, error);
        return error;
    }

    std::array<std::uint8_t, wrenkits::kHiveHeaderBytes> header = {};
    const DWORD size = static_cast<DWORD>(header.size());
    DWORD done = 0;
    // A short read or write with no system error behind it reports 0 and the last
    // load is still tried; a code left over from the backup step must not stand in.
    ::SetLastError(ERROR_SUCCESS);
    if (!::ReadFile(file.get(), header.data(), size, &done, nullptr) || done < size) {
        const DWORD error = ::GetLastError();
        LogW(L"%s read %s error: %d, readed size: %d", kLoadName, hiveFile, error, done);
        return error;
    }

    const wrenkits::HiveChecksums sums = wrenkits::RepairHiveHeader(header);
    LogW(L"%s %s old checksum: 0x%X, new checksum: 0x%X", kLoadName, hiveFile, sums.oldChecksum, sums.newChecksum);

    ::SetFilePointer(file.get(), 0, nullptr, FILE_BEGIN);
    ::SetLastError(ERROR_SUCCESS);
    done = 0;
    if (!::WriteFile(file.get(), header.data(), size, &done, nullptr) || done < size) {
        const DWORD error = ::GetLastError();
        LogW(L"%s write %s error: %d", kLoadName, hiveFile, error);
        return error;
    }
    return ERROR_SUCCESS;
}

// Profile and take-ownership rights are wanted for one unload attempt only; they
// are switched off again in the order they were switched on.
class UnloadPrivileges {
public:
    UnloadPrivileges() {
        ZN_SetPrivilegeW(kProfilePrivilege, TRUE);
        ZN_SetPrivilegeW(kOwnershipPrivilege, TRUE);
    }
    UnloadPrivileges(const UnloadPrivileges&) = delete;
    UnloadPrivileges& operator=(const UnloadPrivileges&) = delete;
    ~UnloadPrivileges() {
        ZN_SetPrivilegeW(kProfilePrivilege, FALSE);
        ZN_SetPrivilegeW(kOwnershipPrivilege, FALSE);
    }
};

}  // namespace

extern "C" DWORD WINAPI ZN_LoadRegistry(LPCWSTR hiveFile, LPCWSTR keyName) {
    // Refused before any registry call: a load at an empty name would address
    // HKLM itself. The line is the ordinary load line, so log searches find it.
    if (!hiveFile || !*hiveFile || !keyName || !*keyName) {
        LogLoadFailure(hiveFile ? hiveFile : L"", keyName ? keyName : L"", ERROR_INVALID_PARAMETER);
        return ERROR_INVALID_PARAMETER;
    }
    // Every repair path works on the file name in a path buffer; a longer one is not
    // handed to the registry at all (Wine's loader crashes on one past NT path length).
    if (wcsnlen(hiveFile, wrenkits::kPathChars) >= wrenkits::kPathChars)
        return wrenkits::RefuseTooLong("ZN_LoadRegistry", "hive path", wrenkits::kPathChars - 1);

    LONG result = LoadHive(hiveFile, keyName);
    if (NeedsPrivilege(result)) {
        // Backup and restore stay enabled: the caller goes on to work in the hive
        // and unloads it later.
        ZN_EnableBackupRestorePrivilege();
        result = LoadHive(hiveFile, keyName);
    }
    if (result == ERROR_SUCCESS) return ERROR_SUCCESS;
    if (result != ERROR_BADDB) {
        LogLoadFailure(hiveFile, keyName, result);
        return result;
    }

    // A corrupt database: the repairs change the file on disk even if the hive
    // still will not load afterwards.
    if (LoadFromBackup(hiveFile, keyName)) return ERROR_SUCCESS;
    if (const DWORD pending = RewriteHeader(hiveFile)) return pending;

    result = LoadHive(hiveFile, keyName);
    if (result != ERROR_SUCCESS) LogLoadFailure(hiveFile, keyName, result);
    return result;
}

extern "C" DWORD WINAPI ZN_UnLoadRegistry(LPCWSTR keyName) {
    if (!keyName || !*keyName) {
        LogW(L"%s unload %s error: %d", kUnloadName, L"", ERROR_INVALID_PARAMETER);
        return ERROR_INVALID_PARAMETER;
    }

    LONG result = ::RegUnLoadKeyW(HKEY_LOCAL_MACHINE, keyName);
    if (NeedsPrivilege(result)) {
        // Backup and restore stay enabled, as after a load.
        ZN_EnableBackupRestorePrivilege();
        UnloadPrivileges held;
        result = ::RegUnLoadKeyW(HKEY_LOCAL_MACHINE, keyName);
    }
    if (result != ERROR_SUCCESS) LogW(L"%s unload %s error: %d", kUnloadName, keyName, result);
    return result;
}

namespace wrenkits {

MountedHive::MountedHive(LPCWSTR hiveFile, LPCWSTR keyName, HiveUnload unload) noexcept
    : name_(keyName), unload_(unload), result_(ZN_LoadRegistry(hiveFile, keyName)), mounted_(result_ == 0) {}

DWORD MountedHive::Unmount() noexcept {
    if (!std::exchange(mounted_, false)) return ERROR_SUCCESS;
    if (unload_ == HiveUnload::Library) return ZN_UnLoadRegistry(name_);
    char narrow[256] = {};
    if (!::WideCharToMultiByte(CP_ACP, 0, name_, -1, narrow, sizeof narrow, nullptr, nullptr))
        return ::GetLastError();
    return static_cast<DWORD>(::RegUnLoadKeyA(HKEY_LOCAL_MACHINE, narrow));
}

}  // namespace wrenkits
