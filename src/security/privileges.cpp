#include <stdint.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/unique_any.h"

using wrenkits::unique_handle;

namespace {

constexpr DWORD kTokenAccess = TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY;

// An impersonating thread adjusts its impersonation token; everybody else the
// process token. The caller does not choose.
unique_handle OpenOwnToken() {
    unique_handle token;
    if (::OpenThreadToken(::GetCurrentThread(), kTokenAccess, TRUE, token.put())) return token;
    ::OpenProcessToken(::GetCurrentProcess(), kTokenAccess, token.put());
    return token;
}

// Success is judged by the call's result alone: a token that lacks the privilege
// reports ERROR_NOT_ALL_ASSIGNED with success, and that still counts as done.
BOOL Adjust(HANDLE token, const LUID& luid, DWORD attributes) {
    TOKEN_PRIVILEGES set = {};
    set.PrivilegeCount = 1;
    set.Privileges[0].Luid = luid;
    set.Privileges[0].Attributes = attributes;
    return ::AdjustTokenPrivileges(token, FALSE, &set, sizeof set, nullptr, nullptr);
}

static_assert(sizeof(TOKEN_PRIVILEGES) == 16, "one-entry privilege set");

// The enable and disable pair word their messages differently on purpose; the
// texts are what support engineers search the logs for.
struct BackupRestoreMessages {
    const char* name;
    const char* tokenFailed;
    const char* firstLookupFailed;
    const char* backupFailed;
    const char* secondLookupFailed;
    const char* restoreFailed;
    bool secondLookupTakesNumber;
    // The enable texts spell the name out after the token line: they take the error alone.
    bool stepsSpellName;
};

constexpr BackupRestoreMessages kEnableMessages = {
    "ZN_EnableBackupRestorePrivilege",
    "%s call open process or thread failed, error: %d",
    "ZN_EnableBackupRestorePrivilege call LookupPrivilegeValue failed, error: %u",
    "ZN_EnableBackupRestorePrivilege call AdjustTokenPrivileges(backup) failed, error: %u",
    "ZN_EnableBackupRestorePrivilege call LookupPrivilegeValue failed, error: %u",
    "ZN_EnableBackupRestorePrivilege call AdjustTokenPrivileges(restore) failed, error: %u",
    false,
    true,
};

constexpr BackupRestoreMessages kDisableMessages = {
    "ZN_DisableBackupRestorePrivilege",
    "%s call open process or thread failed, error: %d",
    "%s call LookupPrivilegeValue failed, error: %u",
    "%s call AdjustTokenPrivileges(backup) failed, error: %u",
    // Kept as written: the line shows the name's address as a number.
    "%d call LookupPrivilegeValue failed, error: %u",
    "%s call AdjustTokenPrivileges(restore) failed, error: %u",
    true,
    false,
};

void LogStepFailure(const BackupRestoreMessages& m, const char* format, DWORD error) {
    if (m.stepsSpellName)
        LogA(format, error);
    else
        LogA(format, m.name, error);
}

BOOL SetBackupRestore(DWORD attributes, const BackupRestoreMessages& m) {
    unique_handle token = OpenOwnToken();
    if (!token) {
        LogA(m.tokenFailed, m.name, ::GetLastError());
        return FALSE;
    }
    LUID luid;
    if (!::LookupPrivilegeValueW(nullptr, L"SeBackupPrivilege", &luid)) {
        LogStepFailure(m, m.firstLookupFailed, ::GetLastError());
        return FALSE;
    }
    if (!Adjust(token.get(), luid, attributes)) {
        LogStepFailure(m, m.backupFailed, ::GetLastError());
        return FALSE;
    }
    if (!::LookupPrivilegeValueW(nullptr, L"SeRestorePrivilege", &luid)) {
        const DWORD error = ::GetLastError();
        if (m.secondLookupTakesNumber)
            LogA(m.secondLookupFailed, static_cast<int>(reinterpret_cast<intptr_t>(m.name)), error);
        else
            LogStepFailure(m, m.secondLookupFailed, error);
        return FALSE;
    }
    if (!Adjust(token.get(), luid, attributes)) {
        LogStepFailure(m, m.restoreFailed, ::GetLastError());
        return FALSE;
    }
    return TRUE;
}

}  // namespace

extern "C" BOOL WINAPI ZN_EnableBackupRestorePrivilege(void) {
    return SetBackupRestore(SE_PRIVILEGE_ENABLED, kEnableMessages);
}

extern "C" BOOL WINAPI ZN_DisableBackupRestorePrivilege(void) { return SetBackupRestore(0, kDisableMessages); }

namespace {

// Character-width glue so both named-privilege exports share one body; each logs
// in its own width under its own name.
struct NarrowPrivilege {
    using Char = char;
    static constexpr const char* kName = "ZN_SetPrivilegeA";
    static BOOL Lookup(const char* name, LUID* luid) { return ::LookupPrivilegeValueA(nullptr, name, luid); }
    static void LogOpenFailed(DWORD error) { LogA("%s call OpenProcessToken failed, error: %u", kName, error); }
    static void LogLookupFailed(const char* name, DWORD error) {
        LogA("%s call LookupPrivilegeValue %s failed, error: %d\n", kName, name, error);
    }
    static void LogAdjustFailed(const char* name, DWORD error) {
        LogA("%s call AdjustTokenPrivileges %s failed, error: %d\n", kName, name, error);
    }
};

struct WidePrivilege {
    using Char = wchar_t;
    static constexpr const char* kName = "ZN_SetPrivilegeW";
    static BOOL Lookup(const wchar_t* name, LUID* luid) { return ::LookupPrivilegeValueW(nullptr, name, luid); }
    static void LogOpenFailed(DWORD error) { LogW(L"%S call OpenProcessToken failed, error: %u", kName, error); }
    static void LogLookupFailed(const wchar_t* name, DWORD error) {
        LogW(L"%S call LookupPrivilegeValue %s failed, error: %d\n", kName, name, error);
    }
    static void LogAdjustFailed(const wchar_t* name, DWORD error) {
        LogW(L"%S call AdjustTokenPrivileges %s failed, error: %d\n", kName, name, error);
    }
};

template <typename W>
BOOL SetPrivilege(const typename W::Char* privilegeName, BOOL enable) {
    static constexpr typename W::Char kEmpty[] = {0};
    if (!privilegeName || !*privilegeName) {
        W::LogLookupFailed(kEmpty, ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    unique_handle token = OpenOwnToken();
    if (!token) {
        W::LogOpenFailed(::GetLastError());
        return FALSE;
    }
    LUID luid;
    if (!W::Lookup(privilegeName, &luid)) {
        W::LogLookupFailed(privilegeName, ::GetLastError());
        return FALSE;
    }
    if (!Adjust(token.get(), luid, enable ? SE_PRIVILEGE_ENABLED : 0)) {
        W::LogAdjustFailed(privilegeName, ::GetLastError());
        return FALSE;
    }
    return TRUE;
}

}  // namespace

extern "C" BOOL WINAPI ZN_SetPrivilegeA(LPCSTR privilegeName, BOOL enable) {
    return SetPrivilege<NarrowPrivilege>(privilegeName, enable);
}

extern "C" BOOL WINAPI ZN_SetPrivilegeW(LPCWSTR privilegeName, BOOL enable) {
    return SetPrivilege<WidePrivilege>(privilegeName, enable);
}
