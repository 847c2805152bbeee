// Process lookup, stopping, window showing and the 32/64-bit switches through the real
// DLL under Wine, on idle helper processes this test starts and always ends.
#include <windows.h>
#include <tlhelp32.h>
#include <gtest/gtest.h>
#include <string.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Wrenkits.h"
#include "support/secproc_fakes.h"
#include "support/tool_double.h"
#include "support/wine_env.h"


// Stands in for OpenProcess or TerminateProcess: on x64 one calling convention serves both, and both fail as 0.
BOOL WINAPI Denied() { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }

TEST(Processes, FoundByPrefixAnyCaseAndOnlyTheFirstMatchStopped) {
    wrtest::ToolDouble tools;
    tools.OnCommand("*", "idle", "hang");
    wrtest::IdleProcess a(L"wkidlea.exe"), b(L"wkidleb.exe");
    const HANDLE both[] = {a.handle(), b.handle()};
    // The out pid is cleared when nothing matches; an empty name matches the first process listed.
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W first = {sizeof(PROCESSENTRY32W), 0, 0, 0, 0, 0, 0, 0, 0, {}};
    EXPECT_TRUE(Process32FirstW(snapshot, &first) && CloseHandle(snapshot));
    const struct { const wchar_t* name; bool withOut; BOOL found; DWORD pid; } finds[] = {
        {L"WKIDLEA.EXE", true, TRUE, a.pid()}, {L"wkIdleB", false, TRUE, 0xdeadbeef}, {L"wknosuch", true, FALSE, 0}, {L"", true, TRUE, first.th32ProcessID}};
    for (const auto& f : finds) {
        DWORD pid = 0xdeadbeef;
        EXPECT_TRUE(ZN_ProcessExist(f.name, f.withOut ? &pid : nullptr) == f.found && pid == f.pid) << wrtest::Narrow(f.name) << " gave pid " << pid;
    }
    const struct { const wchar_t* name; const char* failing; DWORD result; std::vector<std::string> log; } stops[] = {
        {L"wknosuch", "", 0, {}},  // a name that runs nowhere is no failure
        {L"", "", 87, {"ZN_StopProcess refused: the process name is missing or not valid"}},
        {L"wkidlea", "OpenProcess", 5, {"ZN_StopProcess open process of ID " + std::to_string(a.pid()) + " error: 5"}},
        {L"wkidlea", "TerminateProcess", 5, {"ZN_StopProcess terminate process wkidlea error: 5"}}};
    for (const auto& s : stops) {
        wrtest::LogCapture log;
        std::optional<wrtest::ImportHook> hook;
        if (*s.failing) hook.emplace("KERNEL32.dll", s.failing, (void*)Denied);
        EXPECT_EQ(s.result, ZN_StopProcess(s.name)) << s.failing;
        wrtest::ExpectLog(log, s.log);
    }
    EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(2, both, FALSE, 0)) << "a failed stop ended a helper";
    EXPECT_EQ(0u, ZN_StopProcess(L"wkidle"));
    DWORD stopped = WaitForMultipleObjects(2, both, FALSE, 10000) - WAIT_OBJECT_0, other = 1 - stopped % 2, code = 1;
    EXPECT_TRUE(stopped < 2 && GetExitCodeProcess(both[stopped], &code) && code == 0 && WaitForSingleObject(both[other], 0) == WAIT_TIMEOUT) << "only the first match is stopped, with code 0";
    EXPECT_TRUE(wrtest::ProcessPrivilegeEnabled(L"SeDebugPrivilege") && wrtest::SetProcessPrivilege(L"SeDebugPrivilege", false)) << "left on";
}

// Wine has no display, so windows come from hooked calls: windows 1, 2 and 3, of processes 5, 7 and 7.
std::vector<std::pair<size_t, int>> g_calls;  // (window, 0) asked for its owner; (window, how) shown
BOOL WINAPI FakeEnumWindows(WNDENUMPROC next, LPARAM search) { return next(HWND(1), search) && next(HWND(2), search) && next(HWND(3), search), TRUE; }
DWORD WINAPI FakeOwner(HWND window, LPDWORD pid) { return g_calls.push_back({size_t(window), 0}), *pid = window == HWND(1) ? 5 : 7, 1; }
BOOL WINAPI FakeShow(HWND window, int how) { return g_calls.push_back({size_t(window), how}), TRUE; }

TEST(Windows, TheFirstWindowOfTheProcessIsShown) {
    wrtest::ImportHook hooks[] = {{"USER32.dll", "EnumWindows", (void*)FakeEnumWindows}, {"USER32.dll", "GetWindowThreadProcessId", (void*)FakeOwner}, {"USER32.dll", "ShowWindow", (void*)FakeShow}};
    const struct { DWORD pid, result; std::vector<std::pair<size_t, int>> calls; } cases[] = {{7, 0, {{1, 0}, {2, 0}, {2, SW_SHOW}}}, {9, 1168, {{1, 0}, {2, 0}, {3, 0}}}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.result, ZN_ShowProcessWind(c.pid)) << c.pid;
        EXPECT_EQ(c.calls, std::exchange(g_calls, {})) << c.pid;
    }
}

// A 64-bit process has no redirection to switch (Wine fails with 1, like Windows); the saved value's
// round trip shows through faked entry points.
PVOID g_reverted;
BOOL WINAPI FakeDisable(PVOID* old) { return *old = reinterpret_cast<PVOID>(0x5a5a), TRUE; }
BOOL WINAPI FakeRevert(PVOID old) { return g_reverted = old, TRUE; }
FARPROC WINAPI FakeLookup(HMODULE, LPCSTR name) { return strstr(name, "Wow64Disable") ? (FARPROC)(void*)FakeDisable : strstr(name, "Wow64Revert") ? (FARPROC)(void*)FakeRevert : nullptr; }

TEST(Wow64, RedirectionSwitchesInPairs) {
    EXPECT_TRUE(ZN_IsX64Cpu() && !ZN_IsWow64());
    PVOID saved = nullptr;
    EXPECT_EQ(87u, ZN_EnableWow64Redirection(FALSE, nullptr));
    EXPECT_EQ(1u, ZN_EnableWow64Redirection(FALSE, &saved)) << "the platform's failure passed on";
    wrtest::ImportHook lookup("KERNEL32.dll", "GetProcAddress", (void*)FakeLookup);
    EXPECT_EQ(0u, ZN_EnableWow64Redirection(FALSE, &saved));
    EXPECT_TRUE(ZN_EnableWow64Redirection(TRUE, &saved) == 0 && g_reverted == reinterpret_cast<PVOID>(0x5a5a)) << "the saved value goes back";
}

