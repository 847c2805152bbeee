#include <stdint.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
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

}  // namespace

// The enable and disable pair word their messages differently on purpose (the texts
// are what support engineers search the logs for), so each writes its own lines at
// its own steps. Neither rolls back the first privilege when the second step fails.
extern "C" BOOL WINAPI ZN_EnableBackupRestorePrivilege(void) {
    unique_handle token = OpenOwnToken();
    if (!token) {
        LogA("%s call open process or thread failed, error: %d", "ZN_EnableBackupRestorePrivilege", ::GetLastError());
        return FALSE;
    }
    LUID luid;
    if (!::LookupPrivilegeValueW(nullptr, L"SeBackupPrivilege", &luid)) {
        LogA("ZN_EnableBackupRestorePrivilege call LookupPrivilegeValue failed, error: %u", ::GetLastError());
        return FALSE;
    }
    if (!Adjust(token.get(), luid, SE_PRIVILEGE_ENABLED)) {
        LogA("ZN_EnableBackupRestorePrivilege call AdjustTokenPrivileges(backup) failed, error: %u", ::GetLastError());
        return FALSE;
    }
    if (!::LookupPrivilegeValueW(nullptr, L"SeRestorePrivilege", &luid)) {
        LogA("ZN_EnableBackupRestorePrivilege call LookupPrivilegeValue failed, error: %u", ::GetLastError());
        return FALSE;
    }
    if (!Adjust(token.get(), luid, SE_PRIVILEGE_ENABLED)) {
        LogA("ZN_EnableBackupRestorePrivilege call AdjustTokenPrivileges(restore) failed, error: %u", ::GetLastError());
        return FALSE;
    }
    return TRUE;
}

extern "C" BOOL WINAPI ZN_DisableBackupRestorePrivilege(void) {
    static constexpr char kName[] = "ZN_DisableBackupRestorePrivilege";
    unique_handle token = OpenOwnToken();
    if (!token) {
        LogA("%s call open process or thread failed, error: %d", kName, ::GetLastError());
        return FALSE;
    }
    LUID luid;
    if (!::LookupPrivilegeValueW(nullptr, L"SeBackupPrivilege", &luid)) {
        LogA("%s call LookupPrivilegeValue failed, error: %u", kName, ::GetLastError());
        return FALSE;
    }
    if (!Adjust(token.get(), luid, 0)) {
        LogA("%s call AdjustTokenPrivileges(backup) failed, error: %u", kName, ::GetLastError());
        return FALSE;
    }
    if (!::LookupPrivilegeValueW(nullptr, L"SeRestorePrivilege", &luid)) {
        // Kept as written: "%d" takes the name's address, so this line shows a number.
        LogA("%d call LookupPrivilegeValue failed, error: %u", static_cast<int>(reinterpret_cast<intptr_t>(kName)),
             ::GetLastError());
        return FALSE;
    }
    if (!Adjust(token.get(), luid, 0)) {
        LogA("%s call AdjustTokenPrivileges(restore) failed, error: %u", kName, ::GetLastError());
        return FALSE;
    }
    return TRUE;
}

namespace {

// Unlike most narrow exports, the two named-privilege exports do not convert and call
// each other: each looks the name up in its own width and logs in its own width under
// its own name, so both keep one body through this glue.
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
    // An empty name goes to the look-up, which answers with the platform's own code.
    if (!privilegeName) {
        ::SetLastError(wrenkits::RefuseInvalid(W::kName, "privilege name"));
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
