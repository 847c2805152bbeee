#include <windows.h>

#include <tlhelp32.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "process/process_control.h"

using namespace wrenkits;

namespace {

constexpr DWORD kTokenAccess = TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY;

// Terminating another account's process needs the debug privilege. It stays on
// afterwards; the process token is tried before the thread's.
void EnableDebugPrivilege(const char* name) {
    unique_handle token;
    if (!::OpenProcessToken(::GetCurrentProcess(), kTokenAccess, token.put()) &&
        !::OpenThreadToken(::GetCurrentThread(), kTokenAccess, TRUE, token.put())) {
        LogA("%s open process or thread token error: %d", name, ::GetLastError());
        return;
    }
    TOKEN_PRIVILEGES set = {};
    set.PrivilegeCount = 1;
    set.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    // Not checked: the open or the termination reports what the privilege could not do.
    if (::LookupPrivilegeValueW(nullptr, L"SeDebugPrivilege", &set.Privileges[0].Luid))
        ::AdjustTokenPrivileges(token.get(), FALSE, &set, sizeof set, nullptr, nullptr);
}

}  // namespace

extern "C" BOOL WINAPI ZN_ProcessExist(LPCWSTR name, LPDWORD processId) {
    constexpr char kName[] = "ZN_ProcessExist";
    if (processId) *processId = 0;
    if (!name) {
        ::SetLastError(RefuseInvalid(kName, "the process name"));
        return FALSE;
    }
    unique_handle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) {
        LogA("%s call CreateToolhelp32Snapshot error: %d", kName, ::GetLastError());
        return FALSE;
    }
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    if (!::Process32FirstW(snapshot.get(), &entry)) {
        LogA("%s call Process32FirstW error: %d", kName, ::GetLastError());
        return FALSE;
    }
    // A prefix test on purpose: callers ask for "note" and mean notepad.exe.
    const size_t length = wcslen(name);
    do {
        if (_wcsnicmp(entry.szExeFile, name, length) == 0) {
            if (processId) *processId = entry.th32ProcessID;
            return TRUE;
        }
    } while (::Process32NextW(snapshot.get(), &entry));
    return FALSE;
}

extern "C" DWORD WINAPI ZN_StopProcess(LPCWSTR name) {
    constexpr char kName[] = "ZN_StopProcess";
    // An empty name matches every process: stopping "the first one" is never meant.
    if (!name || !*name) return RefuseInvalid(kName, "the process name");
    DWORD processId = 0;
    if (!ZN_ProcessExist(name, &processId)) return 0;

    EnableDebugPrivilege(kName);
    unique_handle process(::OpenProcess(PROCESS_TERMINATE, FALSE, processId));
    if (!process) {
        const DWORD error = ::GetLastError();
        LogA("%s open process of ID %d error: %d", kName, processId, error);
        return error;
    }
    if (!::TerminateProcess(process.get(), 0)) {
        const DWORD error = ::GetLastError();
        LogW(L"%S terminate process %s error: %d", kName, name, error);
        return error;
    }
    return 0;
}

BOOL CALLBACK FindProcessWindow(HWND window, LPARAM param) {
    auto* search = reinterpret_cast<WindowSearch*>(param);
    DWORD owner = 0;
    ::GetWindowThreadProcessId(window, &owner);
    if (owner != search->processId) return TRUE;
    search->found = window;
    return FALSE;
}

extern "C" DWORD WINAPI ZN_ShowProcessWind(DWORD processId) {
    WindowSearch search = {nullptr, processId};
    ::EnumWindows(FindProcessWindow, reinterpret_cast<LPARAM>(&search));
    if (!search.found) return ERROR_NOT_FOUND;
    // The first window wins, visible or not: a hidden main window is what needs showing.
    ::ShowWindow(search.found, SW_SHOW);
    return 0;
}
