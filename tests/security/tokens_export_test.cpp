// Token scans, logon and user-session launch through the real DLL under Wine. Wine
// lists no winlogon.exe and fakes logons, so those come from hooked imports.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/secproc_fakes.h"
#include "support/wine_env.h"

namespace {

using Lines = std::vector<std::string>;
using Names = std::vector<std::wstring>;

// What the hooked GetTokenInformation reports for every token: the administrators
// group's attributes (0: no such group), 122 first, or SYSTEM as the user.
enum Groups { Real, Enabled, NotOwner, DenyOnly, Missing, GrowsFirst, SystemUser };
struct {
    Groups kind;
    std::string calls;
    void* real;
} g_info;

BOOL WINAPI FakeTokenInfo(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID out, DWORD size, PDWORD needed) {
    g_info.calls += (what == TokenUser ? "user " : "groups ") + std::to_string(size) + ", ";
    static BYTE admins[SECURITY_MAX_SID_SIZE], world[SECURITY_MAX_SID_SIZE], system[SECURITY_MAX_SID_SIZE];
    DWORD n = SECURITY_MAX_SID_SIZE;
    CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, admins, &n);
    CreateWellKnownSid(WinWorldSid, nullptr, world, &n);
    CreateWellKnownSid(WinLocalSystemSid, nullptr, system, &n);
    if (what == TokenUser && g_info.kind != SystemUser)
        return reinterpret_cast<decltype(&GetTokenInformation)>(g_info.real)(token, what, out, size, needed);
    if (what == TokenUser) return *static_cast<TOKEN_USER*>(out) = {{system, 0}}, TRUE;
    if (g_info.kind == GrowsFirst && size < 1100) return *needed = 1100, SetLastError(122), FALSE;
    const DWORD attributes[] = {0, 0xF, 0x7, SE_GROUP_USE_FOR_DENY_ONLY, 0, 0xF, 0xF};
    auto* groups = static_cast<TOKEN_GROUPS*>(out);
    groups->GroupCount = g_info.kind == Missing ? 1 : 2;
    groups->Groups[0] = {world, 0xF};
    (&groups->Groups[0])[1] = {admins, attributes[g_info.kind]};  // the block has room past the declared array
    return TRUE;
}

enum Export { System, Admin, Explorer, ExplorerNullOut };

TEST(Tokens, ScansPickTheirProcessOrFallBackToTheLastTokenOpened) {
    const Names two = {L"first.exe", L"second.exe"};
    const Lines admin = {"ZN_GetAdminToken use the token of process: first.exe"};
    const std::string bothRead = "groups 1024, user 1024, groups 1024, user 1024, ";
    struct {
        const char* name;
        Export which;
        std::optional<Names> list;  // none: Wine's own list
        Groups groups;
        bool token;  // a token was handed out
        DWORD code;  // ZN_GetExplorerToken's result
        Names opened;
        std::string calls;  // GetTokenInformation calls with their block sizes
        Lines log;
    } const cases[] = {
        {"Wine's list, which has no winlogon", System, {}, Real, true, 0, {}, "", {}},
        {"winlogon found, any case; the scan stops there", System, Names{L"a.exe", L"WinLogon.exe", L"b.exe"}, Real,
         true, 0, {L"a.exe", L"WinLogon.exe"}, "", {"ZN_GetSystemToken use the token of process: WinLogon.exe"}},
        {"no process opens", System, Names{L"gone:winlogon.exe"}, Real, false, 0, {L"winlogon.exe"}, "",
         {"ZN_GetSystemToken not find the winlogon.exe process, last error: 18"}},
        {"empty list", System, Names{}, Real, false, 0, {}, "", {}},
        {"Wine's process token is an administrator's", Admin, two, Real, true, 0, {L"first.exe"}, "", admin},
        {"enabled administrators", Admin, two, Enabled, true, 0, {L"first.exe"}, "groups 1024, user 1024, ", admin},
        {"block grows once to the size asked for", Admin, two, GrowsFirst, true, 0, {L"first.exe"},
         "groups 1024, groups 1100, user 1100, ", admin},
        {"owner bit missing: last token opened", Admin, two, NotOwner, true, 0, two, bothRead, {}},
        {"deny-only group: last token opened", Admin, two, DenyOnly, true, 0, two, bothRead, {}},
        {"no administrators group: last token opened", Admin, two, Missing, true, 0, two, bothRead, {}},
        {"SYSTEM never counts", Admin, two, SystemUser, true, 0, two, bothRead, {}},
        {"nothing opens: no token, no line", Admin, Names{L"gone:a.exe"}, Real, false, 0, {L"a.exe"}, "", {}},
        {"explorer found, any case, handed out as opened", Explorer, Names{L"a.exe", L"Explorer.exe", L"explorer.exe"},
         Real, true, 0, {L"Explorer.exe"}, "", {}},
        {"null out pointer", ExplorerNullOut, {}, Real, false, 1, {}, "", {}},
        {"nobody logged on", Explorer, Names{L"a.exe"}, Real, false, 1168, {}, "", {}},
        {"explorer cannot be opened", Explorer, Names{L"gone:explorer.exe"}, Real, false, 1168, {L"explorer.exe"}, "",
         {"ZN_GetExplorerToken open token error: 87"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<wrtest::FakeProcessList> list;
        if (c.list) list.emplace(*c.list);
        std::optional<wrtest::ImportHook> info;
        if (c.groups != Real) info.emplace("ADVAPI32.dll", "GetTokenInformation", (void*)FakeTokenInfo);
        g_info = {c.groups, "", info ? info->original<void*>() : nullptr};
        wrtest::LogCapture log;

        HANDLE token = nullptr;
        DWORD code = 0;
        if (c.which == System) token = ZN_GetSystemToken();
        if (c.which == Admin) token = ZN_GetAdminToken();
        if (c.which >= Explorer) code = ZN_GetExplorerToken(c.which == Explorer ? &token : nullptr);

        EXPECT_EQ(c.code, code);
        // The scans hand out primary duplicates; explorer's own token is a primary one too.
        TOKEN_TYPE type = TokenImpersonation;
        DWORD n = 0;
        EXPECT_EQ(c.token, token && GetTokenInformation(token, TokenType, &type, sizeof type, &n) && type == TokenPrimary);
        if (token) CloseHandle(token);
        EXPECT_EQ(c.opened, list ? list->Opened() : c.opened);
        EXPECT_EQ(c.calls, g_info.calls);
        wrtest::ExpectLog(log, c.log);
        EXPECT_FALSE(wrtest::ProcessPrivilegeEnabled(L"SeDebugPrivilege"));
    }
}

struct {
    BYTE major;
    BOOL batch, interactive;
    std::vector<DWORD> types;
} g_logon;
DWORD WINAPI FakeGetVersion() { return g_logon.major; }
BOOL WINAPI FakeLogonUser(LPCWSTR, LPCWSTR, LPCWSTR, DWORD type, DWORD, PHANDLE token) {
    g_logon.types.push_back(type);
    const BOOL ok = type == LOGON32_LOGON_BATCH ? g_logon.batch : g_logon.interactive;
    if (ok) *token = reinterpret_cast<HANDLE>(0x1234);
    return ok ? TRUE : (SetLastError(type == LOGON32_LOGON_BATCH ? 1385 : 1326), FALSE);
}

TEST(Logon, BatchFirstFromVistaOnThenInteractive) {
    wrtest::ImportHook version("KERNEL32.dll", "GetVersion", (void*)FakeGetVersion);
    wrtest::ImportHook logon("ADVAPI32.dll", "LogonUserW", (void*)FakeLogonUser);
    const std::string batch = "ZN_LogonAsUser logon user alice error: 1385";
    struct {
        const wchar_t* user;
        BYTE major;
        BOOL batch, interactive;
        std::vector<DWORD> types;  // the logon types tried, in order
        Lines log;
    } const cases[] = {
        {L"alice", 6, TRUE, TRUE, {4}, {}},
        {L"alice", 10, FALSE, TRUE, {4, 2}, {batch}},
        {L"alice", 6, FALSE, FALSE, {4, 2}, {batch, "ZN_LogonAsUser logon user alice error: 1326"}},
        {L"alice", 5, FALSE, TRUE, {2}, {}},
        {L"", 6, TRUE, TRUE, {}, {"ZN_LogonAsUser refused: the user name is missing or not valid"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "major " << int(c.major) << " batch " << c.batch << " user "
                                        << wrtest::Narrow(c.user));
        g_logon = {c.major, c.batch, c.interactive, {}};
        wrtest::LogCapture log;
        const bool token = *c.user && (c.types.back() == 4 ? c.batch : c.interactive);
        EXPECT_EQ(token ? reinterpret_cast<HANDLE>(0x1234) : nullptr, ZN_LogonAsUser(c.user, L"pw", L"."));
        EXPECT_EQ(c.types, g_logon.types);
        wrtest::ExpectLog(log, c.log);
    }
}

TEST(PopWindow, RunsInTheUsersSessionAndReverts) {
    const std::wstring cmd = wrtest::SystemDir() + L"\\cmd.exe /c exit ";
    const std::string run = "ZN_PopWindow run " + wrtest::Narrow(cmd);
    struct {
        std::wstring command;
        BOOL admin;
        Names list;  // the process list the token comes from
        DWORD result;
        Lines log;
    } const cases[] = {
        {cmd + L"3", FALSE, {L"explorer.exe"}, 3, {run + "3 return: 3"}},
        {cmd + L"0", TRUE, {L"me.exe"}, 0, {"ZN_GetAdminToken use the token of process: me.exe"}},
        {cmd + L"4", FALSE, {}, 4, {"ZN_PopWindow ImpersonateLoggedOnUser error: 18", run + "4 return: 4"}},
        {L"C:\\no\\such.exe", FALSE, {L"explorer.exe"}, 2, {"ZN_PopWindow run C:\\no\\such.exe error: 2"}},
        {L"cmd.exe /c exit 3", FALSE, {}, 87, {"ZN_PopWindow refused: the command line's folder is missing or not valid"}},
        {L"C:\\" + std::wstring(257, L'x'), FALSE, {}, 206,
         {"ZN_PopWindow refused: the command line is longer than 259 characters"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(wrtest::Narrow(c.command.substr(0, 60)));
        wrtest::FakeProcessList list(c.list);
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_PopWindow(c.command.c_str(), c.admin, TRUE));
        wrtest::ExpectLog(log, c.log);
        HANDLE thread = nullptr;
        EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &thread)) << "still impersonating";
    }
}

}  // namespace
