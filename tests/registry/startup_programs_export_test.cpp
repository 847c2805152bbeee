// Startup programs of the running installation and of an offline one on a mapped drive.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/files_offline.h"
#include "support/log_capture.h"
#include "support/registry_fixture.h"
#include "support/wine_env.h"

namespace {

using Lines = std::vector<std::string>;
const std::wstring kHive = L"T:\\windows\\system32\\config\\software";
const std::string kRun = "Microsoft\\Windows\\CurrentVersion\\Run";
const wchar_t kLiveRun[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";
const Lines kMount = {"load software", "unload ZNRegKey"};
// Adding leaves the privileges to the load, which is refused once and enables them.
const Lines kAddMount = {"load software", "load software", "unload ZNRegKey"};

struct StartupCase {
    const char* name;
    bool add = true;
    WCHAR letter = L'T';
    const wchar_t* value = L"Agent";
    const wchar_t* program = L"C:\\Tools\\agent.exe";
    const wchar_t* arguments = nullptr;
    DWORD result = 0;
    std::string stored = "";  // the value's data afterwards; empty when it is absent
    Lines calls = kMount;
    Lines log = {};
};

// The data of `value` in the Run key the row addresses: live for C:, else in the hive file.
std::string Stored(WCHAR letter, const wchar_t* value) {
    if ((letter | 0x20) == L'c') {
        wchar_t data[600] = {};
        DWORD bytes = sizeof data;
        if (RegGetValueW(HKEY_LOCAL_MACHINE, kLiveRun, value, RRF_RT_REG_SZ, nullptr, data, &bytes)) return "";
        return wrtest::Narrow(data);
    }
    const std::string prefix = kRun + "\\" + wrtest::Narrow(value ? value : L"") + " = sz:";
    for (const std::string& line : wrtest::DumpHive(kHive))
        if (line.rfind(prefix, 0) == 0) return line.substr(prefix.size());
    return "";
}

class StartupPrograms : public testing::Test {
protected:
    // W: stands for a drive without an installation, whatever earlier tests left there.
    void SetUp() override { wrtest::ClearDrive(L'W'); }
    void TearDown() override {
        wrtest::ClearDrive(L'T');
        HKEY run = nullptr;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kLiveRun, 0, KEY_WRITE, &run) == ERROR_SUCCESS) {
            RegDeleteValueW(run, L"Agent");
            RegCloseKey(run);
        }
        wrtest::SetProcessPrivilege(L"SeBackupPrivilege", false);
        wrtest::SetProcessPrivilege(L"SeRestorePrivilege", false);
    }

    void Check(const StartupCase& c) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(wrtest::TextHive().Key(kRun).Sz("Existing", "\"C:\\old.exe\"").Write(kHive));
        wrtest::SavingHiveCalls hives;
        wrtest::LogCapture log;

        EXPECT_EQ(c.result, c.add ? ZN_AddStartupProcess(c.letter, c.value, c.program, c.arguments)
                                  : ZN_RemoveStartupProcess(c.letter, c.value));

        EXPECT_EQ(c.calls, hives.calls());
        EXPECT_EQ(c.stored, Stored(c.letter, c.add ? c.value : L"Existing"));
        Lines logged;
        for (const std::string& m : log.Messages()) logged.push_back(m.substr(10));
        EXPECT_EQ(c.log, logged);
        TearDown();
    }
};

TEST_F(StartupPrograms, AddAndRemoveOnTheRunningAndAnOfflineInstallation) {
    const std::wstring tooLong(520, L'a');
    const std::string agent = "\"C:\\Tools\\agent.exe\"";
    const StartupCase cases[] = {
        {.name = "running system by its lower-case letter: live key, no hive", .letter = L'c',
         .arguments = L" -boot", .stored = agent + " -boot", .calls = {},
         .log = {"ZN_AddStartupProcess --> Agent " + agent + " -boot"}},
        {.name = "offline, arguments touch the closing quote", .arguments = L"-boot", .stored = agent + "-boot", .calls = kAddMount,
         .log = {"ZN_AddStartupProcess --> Agent " + agent + "-boot"}},
        {.name = "offline, no arguments", .stored = agent, .calls = kAddMount, .log = {"ZN_AddStartupProcess --> Agent " + agent}},
        {.name = "offline remove", .add = false, .value = L"Existing"},
        {.name = "removing a missing value", .add = false, .result = 2, .stored = "\"C:\\old.exe\"",
         .log = {"ZN_RemoveStartupProcess delete Agent under ZNRegKey\\" + kRun + " error: 2"}},
        {.name = "no installation on the drive", .letter = L'W', .result = 3, .calls = {"load software"},
         .log = {"ZN_LoadRegistry load W:\\windows\\system32\\config\\software to ZNRegKey error: 3",
                 "ZN_AddStartupProcess load W:\\windows\\system32\\config\\software error: 3"}},
        {.name = "data longer than a command line", .arguments = tooLong.c_str(), .result = 206, .calls = {},
         .log = {"ZN_AddStartupProcess refused: program and arguments is longer than 519 characters"}},
        // Refused without a word: the caller's own mistake.
        {.name = "empty program", .program = L"", .result = 87, .calls = {}},
        {.name = "empty value name", .value = L"", .result = 87, .calls = {}},
        {.name = "no letter", .letter = L'1', .result = 87, .calls = {}},
        {.name = "remove without a name", .add = false, .value = nullptr, .result = 87,
         .stored = "\"C:\\old.exe\"", .calls = {}},
    };
    for (const StartupCase& c : cases) Check(c);
}

}  // namespace
