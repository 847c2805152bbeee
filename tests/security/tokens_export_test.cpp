// Token scans, logon and user-session launch through the real DLL under Wine. Wine
// lists no winlogon.exe and fakes logons, so those come from hooked imports.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/secproc_fakes.h"
#include "support/wine_env.h"

namespace {

using Lines = std::vector<std::string>;
using Names = std::optional<std::vector<std::wstring>>;

void ExpectLog(const wrtest::LogCapture& log, const Lines& lines) {
    Lines tagged;
    for (const std::string& line : lines) tagged.push_back(wrtest::Tagged(line));
    EXPECT_EQ(tagged, log.Messages());
}

// What the hooked GetTokenInformation reports for every token.
enum class Groups { Real, Enabled, NotOwner, DenyOnly, Missing, GrowsFirst, SystemUser };
struct {
    Groups kind;
    std::string calls;
    void* real;
} g_info;

BOOL WINAPI FakeTokenInfo(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID out, DWORD size, PDWORD needed) {
    g_info.calls += (what == TokenUser ? "user " : "groups ") + std::to_string(size) + ", ";
    static BYTE admins[SECURITY_MAX_SID_SIZE], world[SECURITY_MAX_SID_SIZE], system[SECURITY_MAX_SID_SIZE];
    DWORD n = sizeof admins;
    CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, admins, &n);
    CreateWellKnownSid(WinWorldSid, nullptr, world, &(n = sizeof world));
    CreateWellKnownSid(WinLocalSystemSid, nullptr, system, &(n = sizeof system));
    if (what == TokenUser) {
        if (g_info.kind != Groups::SystemUser)
            return reinterpret_cast<decltype(&GetTokenInformation)>(g_info.real)(token, what, out, size, needed);
        *static_cast<TOKEN_USER*>(out) = {{system, 0}};
        return TRUE;
    }
    if (g_info.kind == Groups::GrowsFirst && size < 1100) return *needed = 1100, SetLastError(122), FALSE;
    const DWORD attributes[] = {0xF, 0xF, 0x7, SE_GROUP_USE_FOR_DENY_ONLY, 0xF, 0xF, 0xF};
    auto* groups = static_cast<TOKEN_GROUPS*>(out);
    groups->GroupCount = g_info.kind == Groups::Missing ? 1 : 2;
    groups->Groups[0] = {world, 0xF};
    // One entry past the declared array: the block has room for it.
    (&groups->Groups[0])[1] = {admins, attributes[int(g_info.kind)]};
    return TRUE;
}

enum class Export { System, Admin, Explorer, ExplorerNullOut };

struct TokenCase {
    const char* name;
    Export which;
    Names list = {};  // the faked process list; none: Wine's own
    Groups groups = Groups::Real;
    bool token = true;  // a token was handed out
    DWORD code = 0;     // ZN_GetExplorerToken's result
    std::vector<std::wstring> opened = {};
    std::string calls = {};  // GetTokenInformation calls with their block sizes
    Lines log = {};
};

TEST(Tokens, ScansPickTheirProcessOrFallBackToTheLastTokenOpened) {
    using L = std::vector<std::wstring>;
    const L two = {L"first.exe", L"second.exe"};
    const std::string admin = "ZN_GetAdminToken use the token of process: first.exe";
    const std::string bothRead = "groups 1024, user 1024, groups 1024, user 1024, ";
    const TokenCase cases[] = {
        {.name = "system token on Wine's own list, which has no winlogon", .which = Export::System},
        {.name = "winlogon found, any case; the scan stops there", .which = Export::System,
         .list = L{L"services.exe", L"WinLogon.exe", L"after.exe"}, .opened = {L"services.exe", L"WinLogon.exe"},
         .log = {"ZN_GetSystemToken use the token of process: WinLogon.exe"}},
        {.name = "no process opens", .which = Export::System, .list = L{L"gone:winlogon.exe"}, .token = false,
         .opened = {L"winlogon.exe"}, .log = {"ZN_GetSystemToken not find the winlogon.exe process, last error: 18"}},
        {.name = "empty list", .which = Export::System, .list = L{}, .token = false},
        {.name = "failed snapshot", .which = Export::Admin, .list = L{wrtest::kNoSnapshot}, .token = false},
        {.name = "Wine's process token is an administrator's", .which = Export::Admin, .list = two,
         .opened = {L"first.exe"}, .log = {admin}},
        {.name = "enabled administrators", .which = Export::Admin, .list = two, .groups = Groups::Enabled,
         .opened = {L"first.exe"}, .calls = "groups 1024, user 1024, ", .log = {admin}},
        {.name = "block grows once to the size asked for", .which = Export::Admin, .list = two,
         .groups = Groups::GrowsFirst, .opened = {L"first.exe"}, .calls = "groups 1024, groups 1100, user 1100, ",
         .log = {admin}},
        {.name = "owner bit missing: last token opened", .which = Export::Admin, .list = two,
         .groups = Groups::NotOwner, .opened = two, .calls = bothRead},
        {.name = "deny-only group: last token opened", .which = Export::Admin, .list = two,
         .groups = Groups::DenyOnly, .opened = two, .calls = bothRead},
        {.name = "no administrators group: last token opened", .which = Export::Admin, .list = two,
         .groups = Groups::Missing, .opened = two, .calls = bothRead},
        {.name = "SYSTEM never counts", .which = Export::Admin, .list = two, .groups = Groups::SystemUser,
         .opened = two, .calls = bothRead},
        {.name = "nothing opens: no token, no line", .which = Export::Admin, .list = L{L"gone:a.exe"},
         .token = false, .opened = {L"a.exe"}},
        {.name = "explorer found, any case, handed out as opened", .which = Export::Explorer,
         .list = L{L"services.exe", L"Explorer.exe", L"explorer.exe"}, .opened = {L"Explorer.exe"}},
        {.name = "null out pointer", .which = Export::ExplorerNullOut, .token = false, .code = 1},
        {.name = "nobody logged on", .which = Export::Explorer, .list = L{L"services.exe"}, .token = false,
         .code = 1168},
        {.name = "explorer cannot be opened", .which = Export::Explorer, .list = L{L"gone:Explorer.EXE"},
         .token = false, .code = 1168, .opened = {L"Explorer.EXE"},
         .log = {"ZN_GetExplorerToken open token error: 87"}},
        {.name = "explorer behind a failed snapshot", .which = Export::Explorer, .list = L{wrtest::kNoSnapshot},
         .token = false, .code = 1168},
    };
    for (const TokenCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<wrtest::FakeProcessList> list;
        if (c.list) list.emplace(*c.list);
        std::optional<wrtest::ImportHook> info;
        if (c.groups != Groups::Real) info.emplace("ADVAPI32.dll", "GetTokenInformation", (void*)FakeTokenInfo);
        g_info = {c.groups, "", info ? info->original<void*>() : nullptr};
        wrtest::LogCapture log;

        HANDLE token = reinterpret_cast<HANDLE>(0xdeadbeef);
        DWORD code = 0;
        if (c.which == Export::System) token = ZN_GetSystemToken();
        if (c.which == Export::Admin) token = ZN_GetAdminToken();
        if (c.which == Export::Explorer) code = ZN_GetExplorerToken(&token);
        if (c.which == Export::ExplorerNullOut) code = ZN_GetExplorerToken(nullptr), token = nullptr;

        EXPECT_EQ(c.code, code);
        TOKEN_TYPE type = TokenImpersonation;
        DWORD n = 0;
        EXPECT_EQ(c.token, token && GetTokenInformation(token, TokenType, &type, sizeof type, &n));
        // The scans hand out primary duplicates; explorer's own token is a primary one too.
        if (c.token) {
            EXPECT_EQ(TokenPrimary, type);
            CloseHandle(token);
        }
        EXPECT_EQ(c.opened, list ? list->Opened() : c.opened);
        EXPECT_EQ(c.calls, g_info.calls);
        ExpectLog(log, c.log);
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
    struct {
        const wchar_t* user;
        BYTE major;
        BOOL batch, interactive;
        bool token;
        std::vector<DWORD> types;
        Lines log;
    } const cases[] = {
        {L"alice", 6, TRUE, TRUE, true, {4}, {}},
        {L"alice", 10, FALSE, TRUE, true, {4, 2}, {"ZN_LogonAsUser logon user alice error: 1385"}},
        {L"alice", 6, FALSE, FALSE, false, {4, 2},
         {"ZN_LogonAsUser logon user alice error: 1385", "ZN_LogonAsUser logon user alice error: 1326"}},
        {L"alice", 5, FALSE, TRUE, true, {2}, {}},
        {L"", 6, TRUE, TRUE, false, {}, {"ZN_LogonAsUser refused: the user name is missing or not valid"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "major " << int(c.major) << " batch " << c.batch << " user "
                                        << wrtest::Narrow(c.user));
        g_logon = {c.major, c.batch, c.interactive, {}};
        wrtest::LogCapture log;
        EXPECT_EQ(c.token ? reinterpret_cast<HANDLE>(0x1234) : nullptr, ZN_LogonAsUser(c.user, L"pw", L"."));
        EXPECT_EQ(c.types, g_logon.types);
        ExpectLog(log, c.log);
    }
}

TEST(PopWindow, RunsInTheUsersSessionAndReverts) {
    const std::wstring cmd = wrtest::SystemDir() + L"\\cmd.exe /c exit ";
    const std::string cmdA = wrtest::Narrow(cmd);
    const std::wstring tooLong = L"C:\\" + std::wstring(257, L'x');
    struct {
        std::wstring command;
        BOOL admin;
        Names list;
        DWORD result;
        Lines log;
    } const cases[] = {
        {cmd + L"3", FALSE, std::vector<std::wstring>{L"explorer.exe"}, 3, {"ZN_PopWindow run " + cmdA + "3 return: 3"}},
        {cmd + L"0", TRUE, std::vector<std::wstring>{L"me.exe"}, 0,
         {"ZN_GetAdminToken use the token of process: me.exe"}},
        {cmd + L"4", FALSE, std::vector<std::wstring>{}, 4,
         {"ZN_PopWindow ImpersonateLoggedOnUser error: 18", "ZN_PopWindow run " + cmdA + "4 return: 4"}},
        {L"cmd.exe /c exit 3", FALSE, {}, 87, {"ZN_PopWindow refused: the command line's folder is missing or not valid"}},
        {tooLong, FALSE, {}, 206, {"ZN_PopWindow refused: the command line is longer than 259 characters"}},
        {L"C:\\no\\such.exe", FALSE, {}, 2, {"ZN_PopWindow run C:\\no\\such.exe error: 2"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(wrtest::Narrow(c.command.substr(0, 60)));
        std::optional<wrtest::FakeProcessList> list;
        if (c.list) list.emplace(*c.list);
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_PopWindow(c.command.c_str(), c.admin, TRUE));
        ExpectLog(log, c.log);
        HANDLE thread = nullptr;
        EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &thread));
        EXPECT_EQ(ERROR_NO_TOKEN, GetLastError());
    }
}

}  // namespace
