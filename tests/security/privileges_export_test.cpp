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

constexpr const wchar_t* kTouched[] = {L"SeDebugPrivilege", L"SeBackupPrivilege", L"SeRestorePrivilege",
                                       L"SeSystemProfilePrivilege", L"SeTakeOwnershipPrivilege"};

bool Enabled(const wchar_t* privilege) { return wrtest::ProcessPrivilegeEnabled(privilege); }

bool TokenHasEnabled(HANDLE token, const wchar_t* privilege) {
    LUID luid;
    DWORD size = 0;
    GetTokenInformation(token, TokenPrivileges, nullptr, 0, &size);
    std::vector<BYTE> buffer(size);
    if (!LookupPrivilegeValueW(nullptr, privilege, &luid) ||
        !GetTokenInformation(token, TokenPrivileges, buffer.data(), size, &size))
        return false;
    const auto* set = reinterpret_cast<const TOKEN_PRIVILEGES*>(buffer.data());
    for (DWORD i = 0; i < set->PrivilegeCount; ++i)
        if (set->Privileges[i].Luid.LowPart == luid.LowPart && set->Privileges[i].Luid.HighPart == luid.HighPart)
            return (set->Privileges[i].Attributes & SE_PRIVILEGE_ENABLED) != 0;
    return false;
}

// What the scripted advapi32 calls should break.
struct Faults {
    const wchar_t* lookupName = nullptr;  // LookupPrivilegeValueW fails for this name
    int adjustFailsAt = 0;                // AdjustTokenPrivileges fails on this call (1-based)
    int adjustCalls = 0;
    DWORD code = 0;
    void* lookup = nullptr;
    void* adjust = nullptr;
};
Faults g_faults;

BOOL WINAPI FakeLookup(LPCWSTR system, LPCWSTR name, PLUID luid) {
    if (g_faults.lookupName && wcscmp(name, g_faults.lookupName) == 0) {
        SetLastError(g_faults.code);
        return FALSE;
    }
    return reinterpret_cast<decltype(&LookupPrivilegeValueW)>(g_faults.lookup)(system, name, luid);
}

BOOL WINAPI FakeAdjust(HANDLE token, BOOL all, PTOKEN_PRIVILEGES set, DWORD length, PTOKEN_PRIVILEGES previous,
                       PDWORD returned) {
    if (++g_faults.adjustCalls == g_faults.adjustFailsAt) {
        SetLastError(g_faults.code);
        return FALSE;
    }
    return reinterpret_cast<decltype(&AdjustTokenPrivileges)>(g_faults.adjust)(token, all, set, length, previous,
                                                                               returned);
}

BOOL WINAPI NoProcessToken(HANDLE, DWORD, PHANDLE) {
    SetLastError(g_faults.code);
    return FALSE;
}

BOOL WINAPI NoThreadToken(HANDLE, DWORD, BOOL, PHANDLE) {
    SetLastError(ERROR_NO_TOKEN);
    return FALSE;
}

enum class Break { Token, Lookup, Adjust };

// Installs the hooks one case needs; all are removed when it goes.
class FaultHooks {
public:
    FaultHooks(Break what, const wchar_t* lookupName, int adjustFailsAt, DWORD code) {
        g_faults = Faults{lookupName, adjustFailsAt, 0, code};
        if (what == Break::Token) {
            process_.emplace("ADVAPI32.dll", "OpenProcessToken", reinterpret_cast<void*>(NoProcessToken));
            thread_.emplace("ADVAPI32.dll", "OpenThreadToken", reinterpret_cast<void*>(NoThreadToken));
        }
        if (what == Break::Lookup) {
            lookup_.emplace("ADVAPI32.dll", "LookupPrivilegeValueW", reinterpret_cast<void*>(FakeLookup));
            g_faults.lookup = lookup_->original<void*>();
        }
        if (what == Break::Adjust) {
            adjust_.emplace("ADVAPI32.dll", "AdjustTokenPrivileges", reinterpret_cast<void*>(FakeAdjust));
            g_faults.adjust = adjust_->original<void*>();
        }
    }
    bool active() const {
        return (!process_ || (process_->active() && thread_->active())) && (!lookup_ || lookup_->active()) &&
               (!adjust_ || adjust_->active());
    }

private:
    std::optional<wrtest::ImportHook> process_, thread_, lookup_, adjust_;
};

class Privileges : public testing::Test {
protected:
    void SetUp() override { Reset(); }
    void TearDown() override { Reset(); }
    static void Reset() {
        for (const wchar_t* p : kTouched) wrtest::SetProcessPrivilege(p, false);
    }
};

TEST_F(Privileges, SetPrivilegeSwitchesTheProcessTokenBothWays) {
    for (const wchar_t* name : {L"SeDebugPrivilege", L"SeSystemProfilePrivilege", L"SeTakeOwnershipPrivilege"}) {
        for (bool narrow : {false, true}) {
            SCOPED_TRACE(wrtest::Narrow(name) + (narrow ? " A" : " W"));
            const std::string n = wrtest::Narrow(name);
            auto set = [&](BOOL on) { return narrow ? ZN_SetPrivilegeA(n.c_str(), on) : ZN_SetPrivilegeW(name, on); };
            wrtest::LogCapture log;
            EXPECT_EQ(TRUE, set(TRUE));
            EXPECT_TRUE(Enabled(name));
            EXPECT_EQ(TRUE, set(FALSE));
            EXPECT_FALSE(Enabled(name)) << "present but disabled again";
            EXPECT_TRUE(log.Messages().empty());
        }
    }
}

TEST_F(Privileges, BackupRestorePairSwitchesBoth) {
    wrtest::LogCapture log;
    EXPECT_EQ(TRUE, ZN_EnableBackupRestorePrivilege());
    EXPECT_TRUE(Enabled(L"SeBackupPrivilege") && Enabled(L"SeRestorePrivilege"));
    EXPECT_EQ(TRUE, ZN_DisableBackupRestorePrivilege());
    EXPECT_FALSE(Enabled(L"SeBackupPrivilege") || Enabled(L"SeRestorePrivilege"));
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(Privileges, SetPrivilegeJudgesOnlyTheAdjustmentCall) {
    struct Case {
        const char* name;  // nullptr: no name at all
        BOOL result;
        const char* line;  // after "ZN_SetPrivilegeX"; nullptr: nothing logged
    } cases[] = {
        {"SeBogusPrivilege", FALSE, " call LookupPrivilegeValue SeBogusPrivilege failed, error: 1313\n"},
        {"SeCreateTokenPrivilege", TRUE, nullptr},  // not held: the system still says "done"
        {"", FALSE, " call LookupPrivilegeValue  failed, error: 87\n"},
        {nullptr, FALSE, " call LookupPrivilegeValue  failed, error: 87\n"},
    };
    for (const auto& c : cases) {
        for (bool narrow : {false, true}) {
            SCOPED_TRACE(std::string(c.name ? c.name : "(null)") + (narrow ? " A" : " W"));
            const std::wstring wide = c.name ? wrtest::Widen(c.name) : L"";
            wrtest::LogCapture log;
            const BOOL result = narrow ? ZN_SetPrivilegeA(c.name, TRUE) : ZN_SetPrivilegeW(c.name ? wide.c_str() : nullptr, TRUE);
            EXPECT_EQ(c.result, result);
            std::vector<std::string> expected;
            if (c.line) expected.push_back(Tagged(std::string(narrow ? "ZN_SetPrivilegeA" : "ZN_SetPrivilegeW") + c.line));
            EXPECT_EQ(expected, log.Messages());
        }
    }
    EXPECT_FALSE(Enabled(L"SeCreateTokenPrivilege"));
}

TEST_F(Privileges, SetPrivilegeFailuresNameTheFunction) {
    struct Case {
        Break what;
        const char* line;  // after "ZN_SetPrivilegeX"
    } cases[] = {
        {Break::Token, " call OpenProcessToken failed, error: 5"},
        {Break::Adjust, " call AdjustTokenPrivileges SeDebugPrivilege failed, error: 5\n"},
    };
    for (const auto& c : cases) {
        for (bool narrow : {false, true}) {
            SCOPED_TRACE(std::string(c.line) + (narrow ? " A" : " W"));
            wrtest::LogCapture log;
            BOOL result;
            {
                FaultHooks hooks(c.what, nullptr, 1, ERROR_ACCESS_DENIED);
                ASSERT_TRUE(hooks.active());
                result = narrow ? ZN_SetPrivilegeA("SeDebugPrivilege", TRUE) : ZN_SetPrivilegeW(L"SeDebugPrivilege", TRUE);
            }
            EXPECT_EQ(FALSE, result);
            const std::string fn = narrow ? "ZN_SetPrivilegeA" : "ZN_SetPrivilegeW";
            EXPECT_EQ(std::vector<std::string>{Tagged(fn + c.line)}, log.Messages());
            EXPECT_FALSE(Enabled(L"SeDebugPrivilege"));
        }
    }
}

TEST_F(Privileges, BackupRestoreFailuresAreLoggedAndNotRolledBack) {
    struct Case {
        bool enable;
        Break what;
        const wchar_t* lookupName;
        int adjustFailsAt;
        const char* line;  // a pattern for the one line that prints a number for the name
        bool regex;
        bool firstSwitched;  // SeBackup already switched when the failure hit
    } cases[] = {
        {true, Break::Token, nullptr, 0, "ZN_EnableBackupRestorePrivilege call open process or thread failed, error: 6", false, false},
        {true, Break::Lookup, L"SeBackupPrivilege", 0, "ZN_EnableBackupRestorePrivilege call LookupPrivilegeValue failed, error: 6", false, false},
        {true, Break::Adjust, nullptr, 1, "ZN_EnableBackupRestorePrivilege call AdjustTokenPrivileges(backup) failed, error: 6", false, false},
        {true, Break::Lookup, L"SeRestorePrivilege", 0, "ZN_EnableBackupRestorePrivilege call LookupPrivilegeValue failed, error: 6", false, true},
        {true, Break::Adjust, nullptr, 2, "ZN_EnableBackupRestorePrivilege call AdjustTokenPrivileges(restore) failed, error: 6", false, true},
        {false, Break::Token, nullptr, 0, "ZN_DisableBackupRestorePrivilege call open process or thread failed, error: 6", false, false},
        {false, Break::Lookup, L"SeBackupPrivilege", 0, "ZN_DisableBackupRestorePrivilege call LookupPrivilegeValue failed, error: 6", false, false},
        {false, Break::Adjust, nullptr, 1, "ZN_DisableBackupRestorePrivilege call AdjustTokenPrivileges(backup) failed, error: 6", false, false},
        {false, Break::Lookup, L"SeRestorePrivilege", 0, R"(-?\d+ call LookupPrivilegeValue failed, error: 6)", true, true},
        {false, Break::Adjust, nullptr, 2, "ZN_DisableBackupRestorePrivilege call AdjustTokenPrivileges(restore) failed, error: 6", false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        // Start from the opposite state so every switch that happened shows.
        wrtest::SetProcessPrivilege(L"SeBackupPrivilege", !c.enable);
        wrtest::SetProcessPrivilege(L"SeRestorePrivilege", !c.enable);
        wrtest::LogCapture log;
        BOOL result;
        {
            FaultHooks hooks(c.what, c.lookupName, c.adjustFailsAt, ERROR_INVALID_HANDLE);
            ASSERT_TRUE(hooks.active());
            result = c.enable ? ZN_EnableBackupRestorePrivilege() : ZN_DisableBackupRestorePrivilege();
        }
        EXPECT_EQ(FALSE, result);
        const auto lines = log.Messages();
        ASSERT_EQ(1u, lines.size());
        if (c.regex) {
            EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(\[Wrenkit\] )" + std::string(c.line)))) << lines[0];
        } else {
            EXPECT_EQ(Tagged(c.line), lines[0]);
        }
        EXPECT_EQ(c.firstSwitched == c.enable, Enabled(L"SeBackupPrivilege"));
        EXPECT_EQ(!c.enable, Enabled(L"SeRestorePrivilege"));
    }
}

TEST_F(Privileges, AnImpersonatingThreadAdjustsItsOwnToken) {
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    struct Revert {
        ~Revert() { RevertToSelf(); }
    } revert;
    EXPECT_EQ(TRUE, ZN_SetPrivilegeW(L"SeDebugPrivilege", TRUE));
    HANDLE thread = nullptr;
    ASSERT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &thread));
    EXPECT_TRUE(TokenHasEnabled(thread, L"SeDebugPrivilege"));
    CloseHandle(thread);
    EXPECT_FALSE(Enabled(L"SeDebugPrivilege")) << "the process token is left alone";
}

}  // namespace
