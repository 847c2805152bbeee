// ZN_ShutDown only ever meets hooks and the shutdown double: under Wine the real
// ExitWindowsEx and the builtin shutdown tool would end the whole prefix.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/secproc_fakes.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

namespace {

struct {
    std::vector<std::string> exits;  // "flags reason" of every ExitWindowsEx call
    BOOL exitOk;
    std::vector<std::wstring> failStarts;  // programs that do not start (error 2)
    void* createProcess;
} g_shut;

BOOL WINAPI FakeExitWindows(UINT flags, DWORD reason) {
    char call[40];
    _snprintf_s(call, _TRUNCATE, "0x%x 0x%lx", flags, reason);
    g_shut.exits.push_back(call);
    return g_shut.exitOk ? TRUE : (SetLastError(ERROR_ACCESS_DENIED), FALSE);
}
// Only the tool double ever starts: the builtin shutdown tool must never run.
BOOL WINAPI GuardedCreate(LPCWSTR app, LPWSTR command, LPSECURITY_ATTRIBUTES pa, LPSECURITY_ATTRIBUTES ta,
                          BOOL inherit, DWORD flags, LPVOID env, LPCWSTR dir, LPSTARTUPINFOW si,
                          LPPROCESS_INFORMATION pi) {
    const std::wstring line = command;
    for (const std::wstring& failing : g_shut.failStarts)
        if (line.rfind(failing, 0) == 0) return SetLastError(ERROR_FILE_NOT_FOUND), FALSE;
    if (line.find(L"shutdown.exe /s /t 0") == std::wstring::npos) return SetLastError(ERROR_ACCESS_DENIED), FALSE;
    return reinterpret_cast<decltype(&CreateProcessW)>(g_shut.createProcess)(app, command, pa, ta, inherit, flags,
                                                                            env, dir, si, pi);
}
BOOL WINAPI NoToken(HANDLE, DWORD, PHANDLE) { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }
BOOL WINAPI NoPrivilege(LPCWSTR, LPCWSTR, PLUID) { return SetLastError(ERROR_NO_SUCH_PRIVILEGE), FALSE; }

// Marks the running system as a preinstallation environment for as long as it lives.
struct PreinstallationEnvironment {
    PreinstallationEnvironment() {
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\Setup", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, &made);
        RegSetValueExW(key, L"CmdLine", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"winpeshl.exe"), 26);
    }
    ~PreinstallationEnvironment() {
        RegDeleteValueW(key, L"CmdLine");
        RegCloseKey(key);
        if (made == REG_CREATED_NEW_KEY) RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SYSTEM\\Setup");
    }
    HKEY key = nullptr;
    DWORD made = 0;
};

TEST(ShutDown, ToolUnderPreinstallationEnvironmentElseForcedExitWithReason) {
    const std::wstring sys32 = wrtest::SystemDir() + L"\\shutdown.exe", wow = L"C:\\Windows\\SysWOW64\\shutdown.exe";
    const std::string noStart = "ZN_RunProcess create process ", fails = " /s /t 0 error: 2";
    const std::string exit = "0x6 0x80020001";  // a restart asked for, forced, planned maintenance
    struct {
        const char* name;
        bool pe;
        std::vector<std::wstring> failStarts;
        const char* fault;  // the advapi32 call that fails
        void* fake;
        BOOL exitOk;
        DWORD result;
        std::wstring ran;  // the double's command line
        std::vector<std::string> exits, log;
    } const cases[] = {
        {"forced restart with the maintenance reason", false, {}, nullptr, nullptr, TRUE, 0, L"", {exit}, {}},
        {"refused exit", false, {}, nullptr, nullptr, FALSE, 5, L"", {exit}, {"ZN_ShutDown exit windows 0x2 error: 5"}},
        {"no process token", false, {}, "OpenProcessToken", (void*)NoToken, TRUE, 5, L"", {},
         {"ZN_ShutDown open process token error: 5"}},
        {"unknown privilege", false, {}, "LookupPrivilegeValueW", (void*)NoPrivilege, TRUE, 1313, L"", {},
         {"ZN_ShutDown look privilege SE_SHUTDOWN_NAME error: 1313"}},
        {"PE: the system folder's tool shuts down, never restarts", true, {}, nullptr, nullptr, TRUE, 0,
         sys32 + L" /s /t 0", {}, {}},
        {"PE: the 32-bit folder's tool when the first does not start", true, {sys32}, nullptr, nullptr, TRUE, 0,
         wow + L" /s /t 0", {}, {noStart + wrtest::Narrow(sys32) + fails}},
        {"PE: no tool starts, so the session is ended", true, {sys32, wow}, nullptr, nullptr, TRUE, 0, L"", {exit},
         {noStart + wrtest::Narrow(sys32) + fails, noStart + wrtest::Narrow(wow) + fails}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ImportHook exitHook("USER32.dll", "ExitWindowsEx", (void*)FakeExitWindows);
        wrtest::ImportHook createHook("KERNEL32.dll", "CreateProcessW", (void*)GuardedCreate);
        std::optional<wrtest::ImportHook> fault;
        if (c.fault) fault.emplace("ADVAPI32.dll", c.fault, c.fake);
        g_shut = {{}, c.exitOk, c.failStarts, createHook.original<void*>()};
        std::optional<PreinstallationEnvironment> pe;
        if (c.pe) pe.emplace();
        wrtest::ToolDouble tools;
        CopyFileW(sys32.c_str(), wow.c_str(), FALSE);
        wrtest::SetProcessPrivilege(SE_SHUTDOWN_NAME, false);
        wrtest::LogCapture log;

        EXPECT_EQ(c.result, ZN_ShutDown(EWX_REBOOT));

        EXPECT_TRUE(wrtest::ToolDouble::WaitForExit("shutdown", 10000));
        EXPECT_EQ(c.ran.empty() ? std::vector<std::string>{} : std::vector{wrtest::Narrow(c.ran)},
                  tools.Commands("shutdown"));
        EXPECT_EQ(c.exits, g_shut.exits);
        wrtest::ExpectLog(log, c.log);
        EXPECT_EQ(!c.exits.empty(), wrtest::ProcessPrivilegeEnabled(SE_SHUTDOWN_NAME));
        DeleteFileW(wow.c_str());
    }
    wrtest::SetProcessPrivilege(SE_SHUTDOWN_NAME, false);
}

}  // namespace
