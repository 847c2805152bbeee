#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"

using namespace wrenkits;

namespace {

constexpr char kName[] = "ZN_ShutDown";
// Planned, operating system, maintenance: what the event log shows as the reason.
constexpr DWORD kShutdownReason = 0x80020001;

// A preinstallation environment has no session to end; its own tool powers the
// machine off. Always a shutdown, whatever flags were asked for. True once started.
bool ShutDownWithTool() {
    wchar_t tool[kPathChars];
    const UINT chars = ::GetSystemDirectoryW(tool, kPathChars);
    if (chars == 0 || chars >= kPathChars) return false;
    if (wcscat_s(tool, L"\\shutdown.exe") == 0 && ZN_RunProcess(tool, L"/s /t 0", 0) == 0) return true;
    // Some environments carry the tool only in the 32-bit system folder.
    _snwprintf_s(tool, _TRUNCATE, L"%c:\\Windows\\SysWOW64\\shutdown.exe", tool[0]);
    return ZN_RunProcess(tool, L"/s /t 0", 0) == 0;
}

// The code is taken before the line is written: writing the log may change the last error.
DWORD Failed(const char* format) {
    const DWORD error = ::GetLastError();
    LogA(format, kName, error);
    return error;
}

}  // namespace

extern "C" DWORD WINAPI ZN_ShutDown(WORD exitFlags) {
    // Shutting down is asked for by the process, not by whoever the thread stands in for.
    ::RevertToSelf();
    if (ZN_IsUnderPE() && ShutDownWithTool()) return 0;

    unique_handle token;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.put()))
        return Failed("%s open process token error: %d");
    TOKEN_PRIVILEGES set = {};
    set.PrivilegeCount = 1;
    set.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (!::LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &set.Privileges[0].Luid))
        return Failed("%s look privilege SE_SHUTDOWN_NAME error: %d");
    if (!::AdjustTokenPrivileges(token.get(), FALSE, &set, 0, nullptr, nullptr))
        return Failed("%s enable privilege SE_SHUTDOWN_NAME error: %d");

    if (::ExitWindowsEx(exitFlags | EWX_FORCE, kShutdownReason)) return 0;
    const DWORD error = ::GetLastError();
    LogA("%s exit windows 0x%x error: %d", kName, exitFlags, error);
    return error;
}
