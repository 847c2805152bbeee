#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
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

const std::string kGuid = "{6a7e3c1d-4b2f-11ee-be56-0242ac120002}";

std::string EditorFailed(const std::string& arguments, int code) { return Failed(Editor() + " " + arguments, code); }

// One call of an export that runs the editor directly.
struct EditorCase {
    const char* name;
    INT copy = 0;                 // ZN_SetEfiEntry's input
    const wchar_t* id = nullptr;  // ZN_RemoveBcdEntry's input
    std::vector<std::pair<std::string, std::string>> rules = {};  // the editor's exit code by command
    DWORD result = 0;
    std::vector<std::string> arguments = {}, log = {};
};

void Check(const EditorCase& c, const std::function<DWORD()>& call) {
    SCOPED_TRACE(c.name);
    wrtest::ToolDouble tools;
    for (const auto& [pattern, code] : c.rules) tools.OnCommand("bcdedit", pattern, code);
    wrtest::LogCapture log;
    EXPECT_EQ(c.result, call());
    EXPECT_EQ(c.arguments, tools.Arguments("bcdedit"));
    ExpectLog(log, c.log);
}

TEST(SetEfiEntry, RunsTheEditorCommandsInOrder) {
    const std::string store = "/sysstore \\Device\\HarddiskVolume3";
    const std::string copy = "/copy {bootmgr} /d \"Windows Boot Manager\"";
    const std::string device = "/set {bootmgr} device partition=\\Device\\HarddiskVolume3";
    const std::string first = "/set {fwbootmgr} displayorder {bootmgr} /addfirst";
    const auto ok = [](const std::string& a) { return "ZN_SetEfiEntry --> bcdedit " + a + " successfully"; };
    const EditorCase cases[] = {
        {.name = "device set", .arguments = {"", store, device, first}, .log = {UseEditor(), ok(store), ok(device)}},
        {.name = "device set after a copy", .copy = 1, .arguments = {"", store, copy, device, first},
         .log = {UseEditor(), ok(store), ok(copy), ok(device)}},
        {.name = "device fails", .rules = {{"{bootmgr} device", "5"}}, .result = 5, .arguments = {"", store, device},
         .log = {UseEditor(), ok(store), EditorFailed(device, 5)}},
        {.name = "device fails after a copy", .copy = 1, .rules = {{"{bootmgr} device", "5"}}, .result = 5,
         .arguments = {"", store, copy, device}, .log = {UseEditor(), ok(store), ok(copy), EditorFailed(device, 5)}},
        // The "successfully" line stands for the failed listing.
        {.name = "listing fails", .rules = {{" /", "0"}, {"", "1"}}, .arguments = {"", store, device, first},
         .log = {UseEditor(), Failed(Editor(), 1), "ZN_SetEfiEntry --> run " + Editor() + " successfully", ok(store),
                 ok(device)}},
        {.name = "store switch, copy and order failures do not count", .copy = 1,
         .rules = {{"/sysstore", "2"}, {"/copy", "3"}, {"displayorder", "4"}},
         .arguments = {"", store, copy, device, first},
         .log = {UseEditor(), EditorFailed(store, 2), EditorFailed(copy, 3), ok(device), EditorFailed(first, 4)}},
    };
    for (const EditorCase& c : cases) Check(c, [&] { return ZN_SetEfiEntry(3, c.copy); });
}

TEST(AddEfiEntry, CopiesThroughTheInterpreterAndPlacesTheCopy) {
    // Wine's interpreter prints no echo of the command, so the identifier has to stand
    // further into the answer than the command is long.
    const std::string preamble = "Double bcdedit copying the boot manager entry now.\r\n";
    const std::string copied = preamble + "The entry was successfully copied to " + kGuid + ".\r\n";
    const std::string copy = "bcdedit /copy {bootmgr} /d \"Windows Boot Manager\"";
    const std::string place = "bcdedit /set " + kGuid + " device partition=\\Device\\HarddiskVolume7";
    const std::string newGuid = "CopyBootMgr new guid: " + kGuid;
    const std::wstring poison(MAX_PATH - 1, L'\xbdbd');
    const struct {
        const char* name;
        std::string answer;  // what the editor prints for the copy
        DWORD result;
        bool callerBuffer;
        std::wstring id;                            // the caller's buffer afterwards
        std::vector<std::string> commands, logged;  // logged: lines among the session's own
    } cases[] = {
        {"identifier into the caller's buffer", copied, 0, true, wrtest::Widen(kGuid), {copy, place}, {newGuid}},
        {"no caller buffer", copied, 0, false, poison, {copy, place}, {newGuid}},
        {"answer without an identifier", preamble + "The boot configuration data store could not be opened.\r\n", 0,
         true, L"", {copy}, {}},
        {"identifier too long to use", preamble + "copied to {" + std::string(300, 'a') + "}\r\n", 0, true, L"",
         {copy}, {"CopyBootMgr new guid longer than 259 characters, not used"}},
        // Only the prompt comes back: shorter than the command, so no answer at all.
        {"silent editor", "", ERROR_INVALID_PARAMETER, true, poison, {copy}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ToolDouble tools;
        tools.OnCommand("bcdedit", "/copy", "0", c.answer);
        wrtest::LogCapture log;
        wchar_t id[MAX_PATH + 8];
        wmemset(id, L'\xbdbd', MAX_PATH + 8);
        id[MAX_PATH - 1] = L'\0';
        EXPECT_EQ(c.result, ZN_AddEfiEntry(7, 0, c.callerBuffer ? id : nullptr));
        EXPECT_EQ(c.commands, tools.Commands("bcdedit"));
        EXPECT_EQ(c.id, std::wstring(id));
        EXPECT_EQ(std::wstring(8, L'\xbdbd'), std::wstring(id + MAX_PATH, 8)) << "written past the buffer";
        for (const auto& line : c.logged) EXPECT_TRUE(log.Has(wrtest::Tagged(line))) << line;
    }
}

TEST(RemoveBcdEntry, DeletesTheEntryOrRefusesTheIdentifier) {
    const std::wstring guid = wrtest::Widen(kGuid);
    const std::wstring fits = L"{" + std::wstring(249, L'f') + L"}";  // "/delete " + 251 = 259
    const std::wstring cut = L"{" + std::wstring(250, L'f') + L"}";
    const std::string del = "/delete " + kGuid, delFits = "/delete " + wrtest::Narrow(fits);
    const std::string empty = "ZN_RemoveBcdEntry refused: entry id is missing or not valid";
    const auto ok = [](const std::string& a) { return "ZN_RemoveBcdEntry --> bcdedit " + a + " successfully"; };
    const EditorCase cases[] = {
        {.name = "deleted", .id = guid.c_str(), .arguments = {del}, .log = {UseEditor(), ok(del)}},
        {.name = "editor fails", .id = guid.c_str(), .rules = {{"/delete", "2"}}, .result = 2, .arguments = {del},
         .log = {UseEditor(), EditorFailed(del, 2)}},
        {.name = "null identifier", .id = nullptr, .result = ERROR_INVALID_PARAMETER, .log = {empty}},
        {.name = "empty identifier", .id = L"", .result = ERROR_INVALID_PARAMETER, .log = {empty}},
        {.name = "longest identifier that fits", .id = fits.c_str(), .arguments = {delFits},
         .log = {UseEditor(), ok(delFits)}},
        {.name = "identifier that would be cut", .id = cut.c_str(), .result = 206,
         .log = {"ZN_RemoveBcdEntry refused: argument text is longer than 259 characters"}},
    };
    for (const EditorCase& c : cases) Check(c, [&] { return ZN_RemoveBcdEntry(c.id); });
}

std::vector<std::wstring> g_missing;

DWORD WINAPI GetFileAttributesMissing(LPCWSTR path) {
    for (const auto& missing : g_missing)
        if (_wcsicmp(missing.c_str(), path) == 0) return SetLastError(ERROR_FILE_NOT_FOUND), INVALID_FILE_ATTRIBUTES;
    return GetFileAttributesW(path);
}

TEST(GetBcdexePath, PrefersTheSystemFolderThenSysWow64ThenTheLibrarysFolder) {
    const std::wstring system32 = wrtest::SystemDir() + L"\\bcdedit.exe";
    const std::wstring wow64 = wrtest::SystemDir().substr(0, 1) + L":\\Windows\\SysWOW64\\bcdedit.exe";
    const std::wstring beside = wrtest::ExeDir() + L"\\bcdedit.exe";
    // The last candidate is taken without a look: the hook would refuse it too.
    const struct { const char* name; std::vector<std::wstring> missing; std::wstring chosen; } cases[] = {
        {"system folder", {}, system32}, {"SysWOW64", {system32}, wow64},
        {"library's folder", {system32, wow64, beside}, beside}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<boottest::PlacedDouble> placed;
        if (c.chosen != system32) placed.emplace(c.chosen);
        g_missing = c.missing;
        wrtest::ImportHook hook("KERNEL32.dll", "GetFileAttributesW",
                                reinterpret_cast<void*>(GetFileAttributesMissing));
        wrtest::ToolDouble tools;
        wrtest::LogCapture log;
        EXPECT_EQ(0u, ZN_RemoveBcdEntry(L"{b}"));
        EXPECT_EQ(std::vector<std::string>{wrtest::Narrow(c.chosen) + " /delete {b}"}, tools.Commands("bcdedit"));
        std::vector<std::string> expected;
        for (const auto& path : c.missing)
            if (path != c.chosen) expected.push_back("GetBcdexePath find " + wrtest::Narrow(path) + " error: 2");
        expected.push_back("GetBcdexePath use " + wrtest::Narrow(c.chosen));
        expected.push_back("ZN_RemoveBcdEntry --> bcdedit /delete {b} successfully");
        ExpectLog(log, expected);
    }
}

}  // namespace
