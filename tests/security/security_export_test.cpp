// Privileges, tokens, logon, user-session launch and shutdown through the real DLL under
// Wine. What Wine cannot steer comes from hooked imports: failing token calls, group
// lists, logons, the process list, ExitWindowsEx. The builtin shutdown tool would end
// the whole prefix and never runs.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/secproc_fakes.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

namespace {

using Lines = std::vector<std::string>;
using Names = std::vector<std::wstring>;
bool Enabled(const wchar_t* privilege) { return wrtest::ProcessPrivilegeEnabled(privilege); }
// The messages logged since `log` began, untagged; a leading number reads "#".
Lines Logged(const wrtest::LogCapture& log) {
    Lines out;
    for (const std::string& m : log.Messages()) out.push_back(std::regex_replace(m.substr(10), std::regex("^-?[0-9]+ "), "# "));
    return out;
}

// Fails one advapi32 call of the DLL with 6 on its `at`th call; the others stay real.
struct { int at, calls; void* real; } g_fault;
template <typename Fn, typename... Args>
BOOL FailOrPass(Args... args) {
    if (++g_fault.calls == g_fault.at) return SetLastError(ERROR_INVALID_HANDLE), FALSE;
    return reinterpret_cast<Fn>(g_fault.real)(args...);
}
BOOL WINAPI FailOpen(HANDLE p, DWORD a, PHANDLE t) { return FailOrPass<decltype(&OpenProcessToken)>(p, a, t); }
BOOL WINAPI FailLookup(LPCWSTR s, LPCWSTR n, PLUID l) { return FailOrPass<decltype(&LookupPrivilegeValueW)>(s, n, l); }
BOOL WINAPI FailAdjust(HANDLE t, BOOL a, PTOKEN_PRIVILEGES s, DWORD l, PTOKEN_PRIVILEGES p, PDWORD r) { return FailOrPass<decltype(&AdjustTokenPrivileges)>(t, a, s, l, p, r); }
struct Fault {
    Fault(const char* function, int at) {
        for (auto [name, fake] : {std::pair<const char*, void*>{"OpenProcessToken", (void*)FailOpen}, {"LookupPrivilegeValueW", (void*)FailLookup}, {"AdjustTokenPrivileges", (void*)FailAdjust}})
            if (function && !strcmp(function, name)) hook.emplace("ADVAPI32.dll", name, fake);
        g_fault = {at, 0, hook ? hook->original<void*>() : nullptr};
    }
    std::optional<wrtest::ImportHook> hook;
};

enum Call { Set, Enable, Disable };

TEST(Privileges, SwitchTheOwnTokenAndLogTheFailingStepWithoutRollingBack) {
    // Set rows run for both widths and start with SeDebugPrivilege the other way round;
    // Enable rows start with backup and restore off, Disable rows with both on.
    const struct { Call call; const char* privilege; BOOL on; const char* fault; int at; BOOL result; const char* line; const char* after; bool impersonate = false; } cases[] = {
        {Set, "SeDebugPrivilege", TRUE, nullptr, 0, TRUE, "", "D"},
        {Set, "SeDebugPrivilege", FALSE, nullptr, 0, TRUE, "", ""},
        {Set, "SeDebugPrivilege", TRUE, nullptr, 0, TRUE, "", "", true},  // an impersonating thread adjusts its own token
        {Set, "SeCreateTokenPrivilege", TRUE, nullptr, 0, TRUE, "", ""},   // not held: the system still says "done"
        {Set, "SeBogusPrivilege", TRUE, nullptr, 0, FALSE, " call LookupPrivilegeValue SeBogusPrivilege failed, error: 1313\n", ""},
        {Set, nullptr, TRUE, nullptr, 0, FALSE, " refused: privilege name is missing or not valid", ""},
        {Set, "SeDebugPrivilege", TRUE, "OpenProcessToken", 1, FALSE, " call OpenProcessToken failed, error: 6", ""},
        {Set, "SeDebugPrivilege", TRUE, "AdjustTokenPrivileges", 1, FALSE, " call AdjustTokenPrivileges SeDebugPrivilege failed, error: 6\n", ""},
        {Enable, nullptr, TRUE, nullptr, 0, TRUE, "", "BR"},
        {Enable, nullptr, TRUE, "OpenProcessToken", 1, FALSE, " call open process or thread failed, error: 6", ""},
        {Enable, nullptr, TRUE, "LookupPrivilegeValueW", 1, FALSE, " call LookupPrivilegeValue failed, error: 6", ""},
        {Enable, nullptr, TRUE, "AdjustTokenPrivileges", 1, FALSE, " call AdjustTokenPrivileges(backup) failed, error: 6", ""},
        {Enable, nullptr, TRUE, "LookupPrivilegeValueW", 2, FALSE, " call LookupPrivilegeValue failed, error: 6", "B"},
        {Enable, nullptr, TRUE, "AdjustTokenPrivileges", 2, FALSE, " call AdjustTokenPrivileges(restore) failed, error: 6", "B"},
        {Disable, nullptr, FALSE, nullptr, 0, TRUE, "", ""},
        {Disable, nullptr, FALSE, "OpenProcessToken", 1, FALSE, " call open process or thread failed, error: 6", "BR"},
        {Disable, nullptr, FALSE, "LookupPrivilegeValueW", 1, FALSE, " call LookupPrivilegeValue failed, error: 6", "BR"},
        {Disable, nullptr, FALSE, "AdjustTokenPrivileges", 1, FALSE, " call AdjustTokenPrivileges(backup) failed, error: 6", "BR"},
        {Disable, nullptr, FALSE, "LookupPrivilegeValueW", 2, FALSE, "# call LookupPrivilegeValue failed, error: 6", "R"},  // "%d" of the name
        {Disable, nullptr, FALSE, "AdjustTokenPrivileges", 2, FALSE, " call AdjustTokenPrivileges(restore) failed, error: 6", "R"},
    };
    for (const auto& c : cases) {
        for (const std::string& fn : c.call == Set ? Lines{"ZN_SetPrivilegeW", "ZN_SetPrivilegeA"} : Lines{c.call == Enable ? "ZN_EnableBackupRestorePrivilege" : "ZN_DisableBackupRestorePrivilege"}) {
            SCOPED_TRACE(fn + " " + (c.privilege ? c.privilege : "") + (c.fault ? c.fault : "") + std::to_string(c.at) + (c.impersonate ? " impersonating" : ""));
            wrtest::SetProcessPrivilege(L"SeDebugPrivilege", c.call == Set && !c.on);
            for (const wchar_t* p : {L"SeBackupPrivilege", L"SeRestorePrivilege"}) wrtest::SetProcessPrivilege(p, c.call == Disable);
            wrtest::LogCapture log;
            BOOL result;
            {
                Fault fault(c.fault, c.at);
                if (c.impersonate) ImpersonateSelf(SecurityImpersonation);
                if (c.call == Set) result = fn.back() == 'A' ? ZN_SetPrivilegeA(c.privilege, c.on) : ZN_SetPrivilegeW(c.privilege ? wrtest::Widen(c.privilege).c_str() : nullptr, c.on);
                else result = c.call == Enable ? ZN_EnableBackupRestorePrivilege() : ZN_DisableBackupRestorePrivilege();
                if (c.impersonate) RevertToSelf();
            }
            EXPECT_EQ(c.result, result);
            std::string after;
            for (auto [name, letter] : {std::pair{L"SeDebugPrivilege", 'D'}, {L"SeBackupPrivilege", 'B'}, {L"SeRestorePrivilege", 'R'}})
                if (Enabled(name)) after += letter;
            EXPECT_EQ(c.after, after) << "enabled in the process token afterwards";
            EXPECT_EQ(*c.line ? Lines{(*c.line == '#' ? "" : fn) + c.line} : Lines{}, Logged(log));
        }
    }
    for (const wchar_t* p : {L"SeDebugPrivilege", L"SeBackupPrivilege", L"SeRestorePrivilege"}) wrtest::SetProcessPrivilege(p, false);
}

// What the hooked GetTokenInformation reports for every token: the administrators group
// with owner bit missing, no such group, 122 first, or SYSTEM as the user.
enum Groups { Real, NotOwner, Missing, GrowsFirst, SystemUser };
enum Export { System, Admin, Explorer, ExplorerNullOut, Logon, Pop };
struct TokenCase {
    const char* name;
    Export call;
    std::optional<Names> list = {};  // the process list; unset: Wine's own
    Groups groups = Real;
    std::wstring text = L"";  // the user to log on, or the command line to run
    BOOL admin = FALSE;       // ZN_PopWindow's choice of token
    BYTE major = 6;           // GetVersion's
    BOOL batch = TRUE, interactive = TRUE;  // the logons that succeed
    DWORD result = 0;        // of ZN_GetExplorerToken and ZN_PopWindow
    bool token = false;      // a token was handed out
    Names opened = {};       // the processes opened
    std::string calls = "";  // GetTokenInformation and LogonUserW calls: "groups 1024, user 1024, logon 4, "
    Lines log = {};
};
const TokenCase* g_case;
std::string g_calls;
void* g_realInfo;

BOOL WINAPI FakeTokenInfo(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID out, DWORD size, PDWORD needed) {
    g_calls += (what == TokenUser ? "user " : "groups ") + std::to_string(size) + ", ";
    static BYTE admins[SECURITY_MAX_SID_SIZE], world[SECURITY_MAX_SID_SIZE], system[SECURITY_MAX_SID_SIZE];
    DWORD n = SECURITY_MAX_SID_SIZE;
    CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, admins, &n);
    CreateWellKnownSid(WinWorldSid, nullptr, world, &n);
    CreateWellKnownSid(WinLocalSystemSid, nullptr, system, &n);
    if (what == TokenUser && g_case->groups != SystemUser) return reinterpret_cast<decltype(&GetTokenInformation)>(g_realInfo)(token, what, out, size, needed);
    if (what == TokenUser) return *static_cast<TOKEN_USER*>(out) = {{system, 0}}, TRUE;
    if (g_case->groups == GrowsFirst && size < 1100) return *needed = 1100, SetLastError(122), FALSE;
    auto* groups = static_cast<TOKEN_GROUPS*>(out);
    groups->GroupCount = g_case->groups == Missing ? 1 : 2;
    groups->Groups[0] = {world, 0xF};
    (&groups->Groups[0])[1] = {admins, g_case->groups == NotOwner ? 0x7u : 0xFu};  // the block has room past the declared array
    return TRUE;
}
const HANDLE kLogonToken = reinterpret_cast<HANDLE>(0x1234);
DWORD WINAPI FakeGetVersion() { return g_case->major; }
BOOL WINAPI FakeLogonUser(LPCWSTR, LPCWSTR, LPCWSTR, DWORD type, DWORD, PHANDLE token) {
    g_calls += "logon " + std::to_string(type) + ", ";
    const BOOL ok = type == LOGON32_LOGON_BATCH ? g_case->batch : g_case->interactive;
    if (ok) *token = kLogonToken;
    return ok ? TRUE : (SetLastError(type == LOGON32_LOGON_BATCH ? 1385 : 1326), FALSE);
}

TEST(Tokens, ScansLogonAndSessionLaunch) {
    const Names two = {L"first.exe", L"second.exe"};
    const Lines admin = {"ZN_GetAdminToken use the token of process: first.exe"};
    const std::string bothRead = "groups 1024, user 1024, groups 1024, user 1024, ", batch = "ZN_LogonAsUser logon user alice error: 1385";
    const std::wstring cmd = wrtest::SystemDir() + L"\\cmd.exe /c exit ";
    const std::string run = "ZN_PopWindow run " + wrtest::Narrow(cmd);
    const TokenCase cases[] = {
        {.name = "Wine's list has no winlogon: the last token opened", .call = System, .token = true},
        {.name = "winlogon found, any case; the scan stops there", .call = System, .list = Names{L"a.exe", L"WinLogon.exe", L"b.exe"}, .token = true, .opened = {L"a.exe", L"WinLogon.exe"}, .log = {"ZN_GetSystemToken use the token of process: WinLogon.exe"}},
        {.name = "no process opens", .call = System, .list = Names{L"gone:winlogon.exe"}, .opened = {L"winlogon.exe"}, .log = {"ZN_GetSystemToken not find the winlogon.exe process, last error: 18"}},
        {.name = "empty list", .call = System, .list = Names{}},
        {.name = "Wine's process token is an administrator's", .call = Admin, .list = two, .token = true, .opened = {L"first.exe"}, .log = admin},
        {.name = "group block grows once to the size asked for", .call = Admin, .list = two, .groups = GrowsFirst, .token = true, .opened = {L"first.exe"}, .calls = "groups 1024, groups 1100, user 1100, ", .log = admin},
        {.name = "owner bit missing: last token opened", .call = Admin, .list = two, .groups = NotOwner, .token = true, .opened = two, .calls = bothRead},
        {.name = "no administrators group: last token opened", .call = Admin, .list = two, .groups = Missing, .token = true, .opened = two, .calls = bothRead},
        {.name = "SYSTEM never counts", .call = Admin, .list = two, .groups = SystemUser, .token = true, .opened = two, .calls = bothRead},
        {.name = "explorer found, any case, handed out as opened", .call = Explorer, .list = Names{L"a.exe", L"Explorer.exe", L"explorer.exe"}, .token = true, .opened = {L"Explorer.exe"}},
        {.name = "null out pointer", .call = ExplorerNullOut, .result = 1},
        {.name = "nobody logged on", .call = Explorer, .list = Names{L"a.exe"}, .result = 1168},
        {.name = "explorer cannot be opened", .call = Explorer, .list = Names{L"gone:explorer.exe"}, .result = 1168, .opened = {L"explorer.exe"}, .log = {"ZN_GetExplorerToken open token error: 87"}},
        {.name = "batch logon from Vista on", .call = Logon, .text = L"alice", .token = true, .calls = "logon 4, "},
        {.name = "then interactive", .call = Logon, .text = L"alice", .major = 10, .batch = FALSE, .token = true, .calls = "logon 4, logon 2, ", .log = {batch}},
        {.name = "neither", .call = Logon, .text = L"alice", .batch = FALSE, .interactive = FALSE, .calls = "logon 4, logon 2, ", .log = {batch, "ZN_LogonAsUser logon user alice error: 1326"}},
        {.name = "XP: interactive only", .call = Logon, .text = L"alice", .major = 5, .batch = FALSE, .token = true, .calls = "logon 2, "},
        {.name = "no user", .call = Logon, .log = {"ZN_LogonAsUser refused: the user name is missing or not valid"}},
        {.name = "run as the logged-on user", .call = Pop, .list = Names{L"explorer.exe"}, .text = cmd + L"3", .result = 3, .opened = {L"explorer.exe"}, .log = {run + "3 return: 3"}},
        {.name = "run with an administrator's token", .call = Pop, .list = Names{L"me.exe"}, .text = cmd + L"0", .admin = TRUE, .opened = {L"me.exe"}, .log = {"ZN_GetAdminToken use the token of process: me.exe"}},
        {.name = "no token: runs as itself", .call = Pop, .list = Names{}, .text = cmd + L"4", .result = 4, .log = {"ZN_PopWindow ImpersonateLoggedOnUser error: 18", run + "4 return: 4"}},
        {.name = "no such program", .call = Pop, .list = Names{L"explorer.exe"}, .text = L"C:\\no\\such.exe", .result = 2, .opened = {L"explorer.exe"}, .log = {"ZN_PopWindow run C:\\no\\such.exe error: 2"}},
        {.name = "no folder", .call = Pop, .list = Names{}, .text = L"cmd.exe /c exit 3", .result = 87, .log = {"ZN_PopWindow refused: the command line's folder is missing or not valid"}},
        {.name = "command too long", .call = Pop, .list = Names{}, .text = L"C:\\" + std::wstring(257, L'x'), .result = 206, .log = {"ZN_PopWindow refused: the command line is longer than 259 characters"}},
    };
    for (const TokenCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<wrtest::FakeProcessList> list;
        if (c.list) list.emplace(*c.list);
        std::optional<wrtest::ImportHook> info, version, logon;
        if (c.groups != Real) info.emplace("ADVAPI32.dll", "GetTokenInformation", (void*)FakeTokenInfo);
        if (c.call == Logon) version.emplace("KERNEL32.dll", "GetVersion", (void*)FakeGetVersion), logon.emplace("ADVAPI32.dll", "LogonUserW", (void*)FakeLogonUser);
        g_case = &c, g_calls.clear(), g_realInfo = info ? info->original<void*>() : nullptr;
        wrtest::LogCapture log;
        HANDLE token = nullptr;
        DWORD result = 0;
        if (c.call == System) token = ZN_GetSystemToken();
        if (c.call == Admin) token = ZN_GetAdminToken();
        if (c.call == Explorer || c.call == ExplorerNullOut) result = ZN_GetExplorerToken(c.call == Explorer ? &token : nullptr);
        if (c.call == Logon) token = ZN_LogonAsUser(c.text.c_str(), L"pw", L".");
        if (c.call == Pop) result = ZN_PopWindow(c.text.c_str(), c.admin, TRUE);
        EXPECT_EQ(c.result, result);
        // The scans hand out primary duplicates; explorer's own token is a primary one too.
        TOKEN_TYPE type = TokenImpersonation;
        DWORD n = 0;
        EXPECT_EQ(c.token, token == kLogonToken || (token && GetTokenInformation(token, TokenType, &type, sizeof type, &n) && type == TokenPrimary));
        if (token && token != kLogonToken) CloseHandle(token);
        EXPECT_EQ(c.opened, list ? list->Opened() : Names{});
        EXPECT_EQ(c.calls, g_calls);
        EXPECT_EQ(c.log, Logged(log));
        EXPECT_FALSE(Enabled(L"SeDebugPrivilege"));
        HANDLE thread = nullptr;
        EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &thread)) << "still impersonating";
    }
}

// ZN_ShutDown meets only hooks and the shutdown double: "flags reason" of every ExitWindowsEx
// call, its answer, the programs that do not start (error 2).
struct { Lines exits; BOOL exitOk; Names failStarts; void* createProcess; } g_shut;

BOOL WINAPI FakeExitWindows(UINT flags, DWORD reason) {
    char call[40];
    _snprintf_s(call, _TRUNCATE, "0x%x 0x%lx", flags, reason);
    g_shut.exits.push_back(call);
    return g_shut.exitOk ? TRUE : (SetLastError(ERROR_ACCESS_DENIED), FALSE);
}
// Only the tool double ever starts: the builtin shutdown tool must never run.
BOOL WINAPI GuardedCreate(LPCWSTR app, LPWSTR command, LPSECURITY_ATTRIBUTES pa, LPSECURITY_ATTRIBUTES ta, BOOL inherit, DWORD flags, LPVOID env, LPCWSTR dir, LPSTARTUPINFOW si, LPPROCESS_INFORMATION pi) {
    for (const std::wstring& failing : g_shut.failStarts)
        if (std::wstring(command).rfind(failing, 0) == 0) return SetLastError(ERROR_FILE_NOT_FOUND), FALSE;
    if (!wcsstr(command, L"shutdown.exe /s /t 0")) return SetLastError(ERROR_ACCESS_DENIED), FALSE;
    return reinterpret_cast<decltype(&CreateProcessW)>(g_shut.createProcess)(app, command, pa, ta, inherit, flags, env, dir, si, pi);
}

TEST(ShutDown, ToolUnderPreinstallationEnvironmentElseForcedExitWithReason) {
    const std::wstring sys32 = wrtest::SystemDir() + L"\\shutdown.exe", wow = L"C:\\Windows\\SysWOW64\\shutdown.exe";
    const std::string noStart = "ZN_RunProcess create process ", fails = " /s /t 0 error: 2";
    const std::string exit = "0x6 0x80020001";  // a restart asked for, forced, planned maintenance
    const struct { const char* name; bool pe; Names failStarts; const char* fault; BOOL exitOk; DWORD result; std::wstring ran; Lines exits, log; } cases[] = {
        {"forced restart with the maintenance reason", false, {}, nullptr, TRUE, 0, L"", {exit}, {}},
        {"refused exit", false, {}, nullptr, FALSE, 5, L"", {exit}, {"ZN_ShutDown exit windows 0x2 error: 5"}},
        {"no process token", false, {}, "OpenProcessToken", TRUE, 6, L"", {}, {"ZN_ShutDown open process token error: 6"}},
        {"unknown privilege", false, {}, "LookupPrivilegeValueW", TRUE, 6, L"", {}, {"ZN_ShutDown look privilege SE_SHUTDOWN_NAME error: 6"}},
        {"privilege not enabled", false, {}, "AdjustTokenPrivileges", TRUE, 6, L"", {}, {"ZN_ShutDown enable privilege SE_SHUTDOWN_NAME error: 6"}},
        {"PE: the system folder's tool shuts down, never restarts", true, {}, nullptr, TRUE, 0, sys32 + L" /s /t 0", {}, {}},
        {"PE: the 32-bit folder's tool when the first does not start", true, {sys32}, nullptr, TRUE, 0, wow + L" /s /t 0", {}, {noStart + wrtest::Narrow(sys32) + fails}},
        {"PE: no tool starts, so the session is ended", true, {sys32, wow}, nullptr, TRUE, 0, L"", {exit}, {noStart + wrtest::Narrow(sys32) + fails, noStart + wrtest::Narrow(wow) + fails}},
    };
    HKEY setup = nullptr;  // a preinstallation environment names its shell here
    ASSERT_EQ(0, RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\Setup", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &setup, nullptr));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ImportHook exitHook("USER32.dll", "ExitWindowsEx", (void*)FakeExitWindows), createHook("KERNEL32.dll", "CreateProcessW", (void*)GuardedCreate);
        Fault fault(c.fault, 1);
        g_shut = {{}, c.exitOk, c.failStarts, createHook.original<void*>()};
        if (c.pe) RegSetValueExW(setup, L"CmdLine", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"winpeshl.exe"), 26);
        wrtest::ToolDouble tools;
        CopyFileW(sys32.c_str(), wow.c_str(), FALSE);
        wrtest::SetProcessPrivilege(SE_SHUTDOWN_NAME, false);
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_ShutDown(EWX_REBOOT));
        EXPECT_TRUE(wrtest::ToolDouble::WaitForExit("shutdown", 10000));
        EXPECT_EQ(c.ran.empty() ? Lines{} : Lines{wrtest::Narrow(c.ran)}, tools.Commands("shutdown"));
        EXPECT_EQ(c.exits, g_shut.exits);
        EXPECT_EQ(c.log, Logged(log));
        EXPECT_EQ(!c.exits.empty(), Enabled(SE_SHUTDOWN_NAME));
        RegDeleteValueW(setup, L"CmdLine");
        DeleteFileW(wow.c_str());
    }
    RegCloseKey(setup);
    wrtest::SetProcessPrivilege(SE_SHUTDOWN_NAME, false);
}

}  // namespace
