// Privilege switching through the real DLL under Wine: effects on the token, and
// every failure line, with the token calls scripted through the DLL's imports.
#include <gtest/gtest.h>

#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/wine_env.h"

namespace {

using wrtest::Tagged;

bool Enabled(const wchar_t* privilege) { return wrtest::ProcessPrivilegeEnabled(privilege); }

// The one advapi32 call a case breaks, on its Nth call; the others stay real (OpenThreadToken
// already fails while the thread does not impersonate).
enum class Break { None, Token, Lookup, Adjust };
struct {
    int failsAt, calls;
    DWORD code;
    void* real;
} g_fault;

template <typename Fn, typename... Args>
BOOL FailOrPass(Args... args) {
    if (++g_fault.calls == g_fault.failsAt) return SetLastError(g_fault.code), FALSE;
    return reinterpret_cast<Fn>(g_fault.real)(args...);
}
BOOL WINAPI FakeOpen(HANDLE p, DWORD a, PHANDLE t) { return FailOrPass<decltype(&OpenProcessToken)>(p, a, t); }
BOOL WINAPI FakeLookup(LPCWSTR s, LPCWSTR n, PLUID l) { return FailOrPass<decltype(&LookupPrivilegeValueW)>(s, n, l); }
BOOL WINAPI FakeAdjust(HANDLE t, BOOL a, PTOKEN_PRIVILEGES s, DWORD l, PTOKEN_PRIVILEGES p, PDWORD r) {
    return FailOrPass<decltype(&AdjustTokenPrivileges)>(t, a, s, l, p, r);
}

struct FaultHook {
    FaultHook(Break what, int failsAt, DWORD code) {
        static const char* const names[] = {"", "OpenProcessToken", "LookupPrivilegeValueW", "AdjustTokenPrivileges"};
        static void* const fakes[] = {nullptr, reinterpret_cast<void*>(FakeOpen), reinterpret_cast<void*>(FakeLookup),
                                      reinterpret_cast<void*>(FakeAdjust)};
        if (what != Break::None) hook_.emplace("ADVAPI32.dll", names[int(what)], fakes[int(what)]);
        g_fault = {failsAt, 0, code, hook_ ? hook_->original<void*>() : nullptr};
    }
    std::optional<wrtest::ImportHook> hook_;
};

BOOL SetPrivilege(bool narrow, const char* name, BOOL on) {
    return narrow ? ZN_SetPrivilegeA(name, on) : ZN_SetPrivilegeW(name ? wrtest::Widen(name).c_str() : nullptr, on);
}

class Privileges : public testing::Test {
protected:
    void SetUp() override { TearDown(); }
    void TearDown() override {
        for (const wchar_t* p : {L"SeDebugPrivilege", L"SeBackupPrivilege", L"SeRestorePrivilege",
                                 L"SeSystemProfilePrivilege", L"SeTakeOwnershipPrivilege"})
            wrtest::SetProcessPrivilege(p, false);
    }
};

TEST_F(Privileges, SwitchTheProcessTokenBothWaysSilently) {
    wrtest::LogCapture log;
    for (const char* name : {"SeDebugPrivilege", "SeSystemProfilePrivilege", "SeTakeOwnershipPrivilege"}) {
        for (bool narrow : {false, true}) {
            SCOPED_TRACE(std::string(name) + (narrow ? " A" : " W"));
            EXPECT_EQ(TRUE, SetPrivilege(narrow, name, TRUE));
            EXPECT_TRUE(Enabled(wrtest::Widen(name).c_str()));
            EXPECT_EQ(TRUE, SetPrivilege(narrow, name, FALSE));
            EXPECT_FALSE(Enabled(wrtest::Widen(name).c_str()));
        }
    }
    EXPECT_EQ(TRUE, ZN_EnableBackupRestorePrivilege());
    EXPECT_TRUE(Enabled(L"SeBackupPrivilege") && Enabled(L"SeRestorePrivilege"));
    EXPECT_EQ(TRUE, ZN_DisableBackupRestorePrivilege());
    EXPECT_FALSE(Enabled(L"SeBackupPrivilege") || Enabled(L"SeRestorePrivilege"));
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(Privileges, SetPrivilegeJudgesOnlyTheAdjustmentCallAndLogsWhatFailed) {
    const struct {
        const char* name;  // nullptr: no name at all
        Break what;
        BOOL result;
        const char* line;  // after "ZN_SetPrivilegeX"; nullptr: nothing logged
    } cases[] = {
        {"SeBogusPrivilege", Break::None, FALSE, " call LookupPrivilegeValue SeBogusPrivilege failed, error: 1313\n"},
        {"SeCreateTokenPrivilege", Break::None, TRUE, nullptr},  // not held: the system still says "done"
        {"", Break::None, FALSE, " call LookupPrivilegeValue  failed, error: 1313\n"},  // the platform's own code
        {nullptr, Break::None, FALSE, " refused: privilege name is missing or not valid"},
        {"SeDebugPrivilege", Break::Token, FALSE, " call OpenProcessToken failed, error: 5"},
        {"SeDebugPrivilege", Break::Adjust, FALSE, " call AdjustTokenPrivileges SeDebugPrivilege failed, error: 5\n"},
    };
    for (const auto& c : cases) {
        for (bool narrow : {false, true}) {
            SCOPED_TRACE(testing::Message() << (c.name ? c.name : "(null)") << (narrow ? " A " : " W ") << int(c.what));
            wrtest::LogCapture log;
            BOOL result;
            {
                FaultHook hook(c.what, 1, ERROR_ACCESS_DENIED);
                result = SetPrivilege(narrow, c.name, TRUE);
            }
            EXPECT_EQ(c.result, result);
            const std::string fn = narrow ? "ZN_SetPrivilegeA" : "ZN_SetPrivilegeW";
            EXPECT_EQ(c.line ? std::vector{Tagged(fn + c.line)} : std::vector<std::string>{}, log.Messages());
            EXPECT_FALSE(Enabled(L"SeDebugPrivilege"));
        }
    }
    EXPECT_FALSE(Enabled(L"SeCreateTokenPrivilege"));
}

TEST_F(Privileges, BackupRestoreFailuresAreLoggedAndNotRolledBack) {
    const struct {
        Break what;
        int failsAt;       // the first call is for backup, the second for restore
        const char* line;  // after the function's name
    } steps[] = {
        {Break::Token, 1, " call open process or thread failed, error: 6"},
        {Break::Lookup, 1, " call LookupPrivilegeValue failed, error: 6"},
        {Break::Adjust, 1, " call AdjustTokenPrivileges(backup) failed, error: 6"},
        {Break::Lookup, 2, " call LookupPrivilegeValue failed, error: 6"},
        {Break::Adjust, 2, " call AdjustTokenPrivileges(restore) failed, error: 6"},
    };
    for (bool enable : {true, false}) {
        for (int i = 0; i < 5; ++i) {
            const std::string fn = enable ? "ZN_EnableBackupRestorePrivilege" : "ZN_DisableBackupRestorePrivilege";
            SCOPED_TRACE(fn + steps[i].line);
            // Start from the opposite state so every switch that happened shows.
            wrtest::SetProcessPrivilege(L"SeBackupPrivilege", !enable);
            wrtest::SetProcessPrivilege(L"SeRestorePrivilege", !enable);
            wrtest::LogCapture log;
            BOOL result;
            {
                FaultHook hook(steps[i].what, steps[i].failsAt, ERROR_INVALID_HANDLE);
                result = enable ? ZN_EnableBackupRestorePrivilege() : ZN_DisableBackupRestorePrivilege();
            }
            EXPECT_EQ(FALSE, result);
            const auto lines = log.Messages();
            ASSERT_EQ(1u, lines.size());
            if (!enable && i == 3) {  // this line prints a number for the name
                EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(\[Wrenkit\] -?\d+)" + std::string(steps[i].line))))
                    << lines[0];
            } else {
                EXPECT_EQ(Tagged(fn + steps[i].line), lines[0]);
            }
            EXPECT_EQ(enable == (i >= 3), Enabled(L"SeBackupPrivilege"));
            EXPECT_EQ(!enable, Enabled(L"SeRestorePrivilege"));
        }
    }
}

TEST_F(Privileges, AnImpersonatingThreadAdjustsItsOwnToken) {
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    struct Revert {
        ~Revert() { RevertToSelf(); }
    } revert;
    EXPECT_EQ(TRUE, ZN_SetPrivilegeW(L"SeDebugPrivilege", TRUE));
    HANDLE thread = nullptr;
    PRIVILEGE_SET debug = {1, PRIVILEGE_SET_ALL_NECESSARY, {}};
    BOOL held = FALSE;
    ASSERT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &thread));
    EXPECT_TRUE(LookupPrivilegeValueW(nullptr, L"SeDebugPrivilege", &debug.Privilege[0].Luid) &&
                PrivilegeCheck(thread, &debug, &held) && held);
    CloseHandle(thread);
    EXPECT_FALSE(Enabled(L"SeDebugPrivilege")) << "the process token is left alone";
}

}  // namespace
