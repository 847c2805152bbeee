// Process lookup, stopping, window showing and the 32/64-bit switches through the real
// DLL under Wine, on idle helper processes this test starts and always ends.
#include <windows.h>
#include <tlhelp32.h>

#include <gtest/gtest.h>
#include <string.h>

#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/secproc_fakes.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

namespace {

DWORD FirstListedPid() {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    Process32FirstW(snapshot, &entry);
    return CloseHandle(snapshot), entry.th32ProcessID;
}
HANDLE WINAPI DeniedOpen(DWORD, BOOL, DWORD) { return SetLastError(ERROR_ACCESS_DENIED), nullptr; }
BOOL WINAPI DeniedTerminate(HANDLE, UINT) { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }

TEST(Processes, FoundByPrefixAnyCaseAndOnlyTheFirstMatchStopped) {
    wrtest::ToolDouble tools;
    tools.OnCommand("*", "idle", "hang");
    wrtest::IdleProcess a(L"wkidlea.exe"), b(L"wkidleb.exe");
    const HANDLE both[] = {a.handle(), b.handle()};
    const struct { const wchar_t* name; bool withOut; BOOL found; DWORD pid; } finds[] = {
        {L"WKIDLEA.EXE", true, TRUE, a.pid()}, {L"wkIdleB", true, TRUE, b.pid()}, {L"wkidleb.exe", false, TRUE, 0},
        {L"wknosuch", true, FALSE, 0}, {L"", true, TRUE, FirstListedPid()},
    };
    wrtest::LogCapture log;
    for (const auto& f : finds) {
        SCOPED_TRACE(wrtest::Narrow(f.name));
        DWORD pid = 0xdeadbeef;
        EXPECT_EQ(f.found, ZN_ProcessExist(f.name, f.withOut ? &pid : nullptr));
        EXPECT_EQ(f.withOut ? f.pid : 0xdeadbeef, pid);
    }
    wrtest::ExpectLog(log, {});  // a name that runs nowhere is no failure
    using Lines = std::vector<std::string>;
    const struct { const wchar_t* name; const char* hook; void* fake; DWORD result; Lines log; } stops[] = {
        {L"wknosuch", nullptr, nullptr, 0, {}},
        {L"", nullptr, nullptr, 87, {"ZN_StopProcess refused: the process name is missing or not valid"}},
        {L"wkidlea", "OpenProcess", (void*)DeniedOpen, 5,
         {"ZN_StopProcess open process of ID " + std::to_string(a.pid()) + " error: 5"}},
        {L"wkidlea", "TerminateProcess", (void*)DeniedTerminate, 5,
         {"ZN_StopProcess terminate process wkidlea error: 5"}},
    };
    for (const auto& s : stops) {
        SCOPED_TRACE(s.result);
        wrtest::LogCapture stopLog;
        std::optional<wrtest::ImportHook> hook;
        if (s.hook) hook.emplace("KERNEL32.dll", s.hook, s.fake);
        EXPECT_EQ(s.result, ZN_StopProcess(s.name));
        wrtest::ExpectLog(stopLog, s.log);
    }
    EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(2, both, FALSE, 0)) << "a failed stop ended a helper";
    EXPECT_EQ(0u, ZN_StopProcess(L"wkidle"));
    const DWORD stopped = WaitForMultipleObjects(2, both, FALSE, 10000) - WAIT_OBJECT_0;
    ASSERT_LT(stopped, 2u);
    DWORD code = 1;
    EXPECT_TRUE(GetExitCodeProcess(both[stopped], &code) && code == 0);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(both[1 - stopped], 0)) << "only the first match is stopped";
    EXPECT_TRUE(wrtest::ProcessPrivilegeEnabled(L"SeDebugPrivilege"));  // left on
    wrtest::SetProcessPrivilege(L"SeDebugPrivilege", false);
}

// Wine has no display, so windows come from hooked calls: window N+1 belongs to owners[N].
std::vector<DWORD> g_owners;
int g_asked;
std::vector<std::pair<HWND, int>> g_shown;
BOOL WINAPI FakeEnumWindows(WNDENUMPROC callback, LPARAM search) {
    for (size_t i = 0; i < g_owners.size() && callback(reinterpret_cast<HWND>(i + 1), search); ++i) {}
    return TRUE;
}
DWORD WINAPI FakeOwner(HWND window, LPDWORD pid) { return ++g_asked, *pid = g_owners[size_t(window) - 1], 1; }
BOOL WINAPI FakeShow(HWND window, int how) { return g_shown.push_back({window, how}), TRUE; }

TEST(Windows, TheFirstWindowOfTheProcessIsShown) {
    EXPECT_EQ(1168u, ZN_ShowProcessWind(GetCurrentProcessId()));  // real: Wine enumerates no window
    wrtest::ImportHook enumerate("USER32.dll", "EnumWindows", (void*)FakeEnumWindows);
    wrtest::ImportHook owner("USER32.dll", "GetWindowThreadProcessId", (void*)FakeOwner);
    wrtest::ImportHook show("USER32.dll", "ShowWindow", (void*)FakeShow);
    const struct { DWORD pid, result; int asked; std::vector<std::pair<HWND, int>> shown; } cases[] = {
        {7, 0, 2, {{reinterpret_cast<HWND>(2), SW_SHOW}}}, {9, 1168, 3, {}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pid);
        g_owners = {5, 7, 7}, g_asked = 0, g_shown.clear();
        EXPECT_EQ(c.result, ZN_ShowProcessWind(c.pid));
        EXPECT_EQ(c.asked, g_asked);
        EXPECT_EQ(c.shown, g_shown);
    }
}

// A 64-bit process has no redirection to switch (Wine answers 1 like Windows); the
// saved value's round trip shows through faked entry points.
PVOID g_reverted;
BOOL WINAPI FakeDisable(PVOID* old) { return *old = reinterpret_cast<PVOID>(0x5a5a), TRUE; }
BOOL WINAPI FakeRevert(PVOID old) { return g_reverted = old, TRUE; }
FARPROC WINAPI FakeLookup(HMODULE, LPCSTR name) {
    const bool disable = strcmp(name, "Wow64DisableWow64FsRedirection") == 0;
    return disable || strcmp(name, "Wow64RevertWow64FsRedirection") == 0
               ? reinterpret_cast<FARPROC>(disable ? (void*)FakeDisable : (void*)FakeRevert) : nullptr;
}

TEST(Wow64, RedirectionSwitchesInPairs) {
    EXPECT_EQ(TRUE, ZN_IsX64Cpu());
    EXPECT_EQ(FALSE, ZN_IsWow64());
    PVOID saved = nullptr;
    EXPECT_EQ(87u, ZN_EnableWow64Redirection(FALSE, nullptr));
    EXPECT_EQ(1u, ZN_EnableWow64Redirection(FALSE, &saved));
    EXPECT_EQ(1u, ZN_EnableWow64Redirection(TRUE, &saved));
    wrtest::ImportHook lookup("KERNEL32.dll", "GetProcAddress", (void*)FakeLookup);
    EXPECT_EQ(0u, ZN_EnableWow64Redirection(FALSE, &saved));
    EXPECT_EQ(0u, ZN_EnableWow64Redirection(TRUE, &saved));
    EXPECT_EQ(reinterpret_cast<PVOID>(0x5a5a), g_reverted);
}

}  // namespace
