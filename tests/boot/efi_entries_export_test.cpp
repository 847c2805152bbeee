#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "boot/boot_test_support.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

using boottest::Editor;
using boottest::ExpectLog;
using boottest::Failed;
using boottest::UseEditor;

namespace {

struct Rule {
    std::string pattern, code;
};

const std::string kListing = "";
const std::string kSysstore = "/sysstore \\Device\\HarddiskVolume3";
const std::string kCopy = "/copy {bootmgr} /d \"Windows Boot Manager\"";
const std::string kDevice = "/set {bootmgr} device partition=\\Device\\HarddiskVolume3";
const std::string kFirst = "/set {fwbootmgr} displayorder {bootmgr} /addfirst";

std::string Ok(const std::string& arguments) { return "ZN_SetEfiEntry --> bcdedit " + arguments + " successfully"; }

struct SetEfiCase {
    const char* name;
    INT copy = 0;
    std::vector<Rule> rules = {};
    DWORD result = 0;
    std::vector<std::string> arguments = {};
    std::vector<std::string> log = {};
};

TEST(SetEfiEntry, RunsTheEditorCommandsInOrder) {
    const auto failed = [](const std::string& arguments, int code) { return Failed(Editor() + " " + arguments, code); };
    const SetEfiCase cases[] = {
        {.name = "device set",
         .arguments = {kListing, kSysstore, kDevice, kFirst},
         .log = {UseEditor(), Ok(kSysstore), Ok(kDevice)}},
        {.name = "device set after a copy",
         .copy = 1,
         .arguments = {kListing, kSysstore, kCopy, kDevice, kFirst},
         .log = {UseEditor(), Ok(kSysstore), Ok(kCopy), Ok(kDevice)}},
        {.name = "device fails",
         .rules = {{"{bootmgr} device", "5"}},
         .result = 5,
         .arguments = {kListing, kSysstore, kDevice},
         .log = {UseEditor(), Ok(kSysstore), failed(kDevice, 5)}},
        {.name = "device fails after a copy",
         .copy = 1,
         .rules = {{"{bootmgr} device", "5"}},
         .result = 5,
         .arguments = {kListing, kSysstore, kCopy, kDevice},
         .log = {UseEditor(), Ok(kSysstore), Ok(kCopy), failed(kDevice, 5)}},
        // The "successfully" line stands for the failed listing.
        {.name = "listing fails",
         .rules = {{" /", "0"}, {"", "1"}},
         .arguments = {kListing, kSysstore, kDevice, kFirst},
         .log = {UseEditor(), Failed(Editor(), 1), "ZN_SetEfiEntry --> run " + Editor() + " successfully",
                 Ok(kSysstore), Ok(kDevice)}},
        {.name = "store switch, copy and order failures do not count",
         .copy = 1,
         .rules = {{"/sysstore", "2"}, {"/copy", "3"}, {"displayorder", "4"}},
         .arguments = {kListing, kSysstore, kCopy, kDevice, kFirst},
         .log = {UseEditor(), failed(kSysstore, 2), failed(kCopy, 3), Ok(kDevice), failed(kFirst, 4)}},
    };
    for (const SetEfiCase& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ToolDouble tools;
        for (const Rule& r : c.rules) tools.OnCommand("bcdedit", r.pattern, r.code);
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_SetEfiEntry(3, c.copy));
        EXPECT_EQ(c.arguments, tools.Arguments("bcdedit"));
        ExpectLog(log, c.log);
    }
}

// ---------------------------------------------------------------------------

const std::string kGuid = "{6a7e3c1d-4b2f-11ee-be56-0242ac120002}";
// Wine's interpreter prints no echo of the command, so the identifier has to stand
// further into the answer than the command is long.
const std::string kPreamble = "Double bcdedit copying the boot manager entry now.\r\n";
const std::string kCopyLine = "bcdedit /copy {bootmgr} /d \"Windows Boot Manager\"";

struct AddCase {
    const char* name;
    std::string answer;  // what the editor prints for the copy
    DWORD result = 0;
    bool callerBuffer = true;
    std::wstring id = {};  // the caller's buffer afterwards
    std::vector<std::string> commands = {};
    std::vector<std::string> logged = {};  // lines among the session's own
};

TEST(AddEfiEntry, CopiesThroughTheInterpreterAndPlacesTheCopy) {
    const std::wstring poison(MAX_PATH - 1, L'\xbdbd');
    const std::string copied = kPreamble + "The entry was successfully copied to " + kGuid + ".\r\n";
    const std::string place = "bcdedit /set " + kGuid + " device partition=\\Device\\HarddiskVolume7";
    const AddCase cases[] = {
        {.name = "identifier into the caller's buffer",
         .answer = copied,
         .id = wrtest::Widen(kGuid),
         .commands = {kCopyLine, place},
         .logged = {"CopyBootMgr new guid: " + kGuid}},
        {.name = "no caller buffer",
         .answer = copied,
         .callerBuffer = false,
         .commands = {kCopyLine, place},
         .logged = {"CopyBootMgr new guid: " + kGuid}},
        {.name = "answer without an identifier",
         .answer = kPreamble + "The boot configuration data store could not be opened.\r\n",
         .id = L"",
         .commands = {kCopyLine}},
        {.name = "identifier too long to use",
         .answer = kPreamble + "copied to {" + std::string(300, 'a') + "}\r\n",
         .id = L"",
         .commands = {kCopyLine},
         .logged = {"CopyBootMgr new guid longer than 259 characters, not used"}},
        // Only the prompt comes back: shorter than the command, so no answer at all.
        {.name = "silent editor",
         .answer = "",
         .result = ERROR_INVALID_PARAMETER,
         .id = poison,
         .commands = {kCopyLine}},
    };
    for (const AddCase& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ToolDouble tools;
        tools.OnCommand("bcdedit", "/copy", "0", c.answer);
        wrtest::LogCapture log;
        wchar_t id[MAX_PATH + 8];
        wmemset(id, L'\xbdbd', MAX_PATH + 8);
        id[MAX_PATH - 1] = L'\0';
        EXPECT_EQ(c.result, ZN_AddEfiEntry(7, 0, c.callerBuffer ? id : nullptr));
        EXPECT_EQ(c.commands, tools.Commands("bcdedit"));
        if (c.callerBuffer) {
            EXPECT_EQ(c.id, std::wstring(id));
        }
        for (size_t i = MAX_PATH; i < MAX_PATH + 8; ++i) ASSERT_EQ(L'\xbdbd', id[i]);
        for (const auto& line : c.logged) EXPECT_TRUE(log.Has(wrtest::Tagged(line))) << line;
        EXPECT_TRUE(log.Containing("CopyBootMgr run cmd error").empty());
    }
}

// ---------------------------------------------------------------------------

struct RemoveCase {
    const char* name;
    const wchar_t* id;
    std::vector<Rule> rules = {};
    DWORD result = 0;
    std::vector<std::string> arguments = {};
    std::vector<std::string> log = {};
};

TEST(RemoveBcdEntry, DeletesTheEntryOrRefusesTheIdentifier) {
    const std::wstring fits = L"{" + std::wstring(249, L'f') + L"}";  // "/delete " + 251 = 259
    const std::wstring cut = L"{" + std::wstring(250, L'f') + L"}";
    const std::string del = "/delete " + kGuid, delFits = "/delete " + wrtest::Narrow(fits);
    const std::string empty = "ZN_RemoveBcdEntry entry id is empty, nothing deleted";
    const RemoveCase cases[] = {
        {.name = "deleted",
         .id = L"{6a7e3c1d-4b2f-11ee-be56-0242ac120002}",
         .arguments = {del},
         .log = {UseEditor(), "ZN_RemoveBcdEntry --> bcdedit " + del + " successfully"}},
        {.name = "editor fails",
         .id = L"{6a7e3c1d-4b2f-11ee-be56-0242ac120002}",
         .rules = {{"/delete", "2"}},
         .result = 2,
         .arguments = {del},
         .log = {UseEditor(), Failed(Editor() + " " + del, 2)}},
        {.name = "null identifier", .id = nullptr, .result = ERROR_INVALID_PARAMETER, .log = {empty}},
        {.name = "empty identifier", .id = L"", .result = ERROR_INVALID_PARAMETER, .log = {empty}},
        {.name = "longest identifier that fits",
         .id = fits.c_str(),
         .arguments = {delFits},
         .log = {UseEditor(), "ZN_RemoveBcdEntry --> bcdedit " + delFits + " successfully"}},
        {.name = "identifier that would be cut",
         .id = cut.c_str(),
         .result = 206,
         .log = {"ZN_RemoveBcdEntry argument text longer than 259 characters, not run: " +
                 ("/delete " + wrtest::Narrow(cut)).substr(0, 259)}},
    };
    for (const RemoveCase& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ToolDouble tools;
        for (const Rule& r : c.rules) tools.OnCommand("bcdedit", r.pattern, r.code);
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_RemoveBcdEntry(c.id));
        EXPECT_EQ(c.arguments, tools.Arguments("bcdedit"));
        ExpectLog(log, c.log);
    }
}

// ---------------------------------------------------------------------------

std::vector<std::wstring> MissingPaths;

DWORD WINAPI GetFileAttributesMissing(LPCWSTR path) {
    for (const auto& missing : MissingPaths) {
        if (_wcsicmp(missing.c_str(), path) == 0) {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return INVALID_FILE_ATTRIBUTES;
        }
    }
    return GetFileAttributesW(path);
}

TEST(GetBcdexePath, PrefersTheSystemFolderThenSysWow64ThenTheLibrarysFolder) {
    const std::wstring system32 = wrtest::SystemDir() + L"\\bcdedit.exe";
    const std::wstring wow64 = wrtest::SystemDir().substr(0, 1) + L":\\Windows\\SysWOW64\\bcdedit.exe";
    const std::wstring beside = wrtest::ExeDir() + L"\\bcdedit.exe";
    struct Case {
        const char* name;
        std::vector<std::wstring> missing;
        std::wstring chosen;
        std::vector<std::string> notFound;
    } cases[] = {
        {"system folder", {}, system32, {}},
        {"SysWOW64", {system32}, wow64, {wrtest::Narrow(system32)}},
        // The last candidate is taken without a look: the hook would refuse it too.
        {"library's folder", {system32, wow64, beside}, beside, {wrtest::Narrow(system32), wrtest::Narrow(wow64)}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<boottest::PlacedDouble> placed;
        if (c.chosen != system32) placed.emplace(c.chosen);
        MissingPaths = c.missing;
        wrtest::ImportHook hook("KERNEL32.dll", "GetFileAttributesW",
                                reinterpret_cast<void*>(GetFileAttributesMissing));
        ASSERT_TRUE(hook.active());
        wrtest::ToolDouble tools;
        wrtest::LogCapture log;
        EXPECT_EQ(0u, ZN_RemoveBcdEntry(L"{b}"));
        EXPECT_EQ(std::vector<std::string>{wrtest::Narrow(c.chosen) + " /delete {b}"}, tools.Commands("bcdedit"));
        std::vector<std::string> expected;
        for (const auto& path : c.notFound) expected.push_back("GetBcdexePath find " + path + " error: 2");
        expected.push_back("GetBcdexePath use " + wrtest::Narrow(c.chosen));
        expected.push_back("ZN_RemoveBcdEntry --> bcdedit /delete {b} successfully");
        ExpectLog(log, expected);
    }
}

}  // namespace
