#include <gtest/gtest.h>

#include <algorithm>
#include <cwctype>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Wrenkits.h"
#include "boot/boot_test_support.h"
#include "support/log_capture.h"
#include "support/registry_fixture.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

using boottest::Editor;
using boottest::Failed;

namespace {

const std::string kA = "{3b0e8a21-6c4d-11ee-8c99-0242ac120002}";
const std::string kB = "{3b0e8a22-6c4d-11ee-8c99-0242ac120002}";
const std::string kC = "{3b0e8a23-6c4d-11ee-8c99-0242ac120002}";
const std::string kUefiS = "S:\\EFI\\Microsoft\\Boot\\BCD";
const std::string kOrderKey = "Objects\\{9dea862c-5cdd-4e70-acc1-f32b344d4795}\\Elements\\24000001";

// In order, the editor's arguments after "/store <store> " (they start with "/") and
// the other lines logged between its runs.
using Events = std::vector<std::string>;
Events operator+(Events a, const Events& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The boot manager's two commands that open the main path.
Events Manager(bool uefi = true, char boot = 'S') {
    const char* path = uefi ? "\\EFI\\Microsoft\\Boot\\bootmgfw.efi" : "\\Boot\\bootmgr.exe";
    return {std::string("/set {bootmgr} device partition=") + boot + ":", std::string("/set {bootmgr} path ") + path};
}
// The listed entry pointed at the system partition W.
Events Listed(const std::string& id, bool uefi = true) {
    return {"/default " + id, "/set " + id + " device partition=W:",
            "/set " + id + " path \\Windows\\system32\\winload." + (uefi ? "efi" : "exe"),
            "/set " + id + " osdevice partition=W:"};
}
std::string Delete(const std::string& id) { return "/delete " + id + " /f /cleanup"; }
const Events kFallback = {"/set {bootmgr} device partition=S:", "/set {default} device partition=W:",
                          "/set {default} osdevice partition=W:"};

enum class Store { Missing, Junk, NoDisplayOrder, DisplayOrder };  // what lies at the store path

struct RepairCase {
    const char* name;
    Store store = Store::DisplayOrder;
    std::vector<std::string> order = {};                 // the display order, when the store holds one
    std::vector<std::pair<std::string, int>> rules = {};  // the editor's exit code by command
    DWORD result = 0;
    Events events = {};
    WCHAR boot = L'S', system = L'W';
    DWORD uefi = 1;
    std::optional<int> generator = {};  // its exit code, when it is run
};

class RepairBcdEntry : public testing::Test {
protected:
    void SetUp() override { TearDown(); }
    void TearDown() override {
        for (const wchar_t* folder : {L"S:\\EFI", L"S:\\Boot", L"W:\\EFI", L"W:\\Boot"}) wrtest::RemoveTree(folder);
        wrtest::RemoveHklmKey(L"ZNRegKey");
        wrtest::SetProcessPrivilege(L"SeBackupPrivilege", false);
        wrtest::SetProcessPrivilege(L"SeRestorePrivilege", false);
    }

    void Check(const RepairCase& c) {
        SCOPED_TRACE(c.name);
        SetUp();
        // The editor sees the letters upper-cased ("%C").
        const char letter = char(towupper(c.boot >= L'A' && c.boot <= L'z' ? c.boot : c.system));
        const std::string store = letter + std::string(c.uefi ? ":\\EFI\\Microsoft\\Boot\\BCD" : ":\\Boot\\BCD");
        const std::wstring path = wrtest::Widen(store);
        if (c.store == Store::Junk) {
            wrtest::MakeDirs(path.substr(0, path.find_last_of(L'\\')));
            ASSERT_TRUE(wrtest::WriteFileBytes(path, "this is no registry hive\r\n"));
        } else if (c.store == Store::NoDisplayOrder) {
            ASSERT_TRUE(wrtest::TextHive().Key("Objects\\{a5a30fa2-3d06-4e9f-b5f4-a01df9d1fcba}\\Elements\\12000004")
                            .Sz("Element", "Windows Boot Manager").Write(path));
        } else if (c.store == Store::DisplayOrder) {
            ASSERT_TRUE(wrtest::TextHive().Key(kOrderKey).MultiSz("Element", c.order).Write(path));
        }
        wrtest::ToolDouble tools;
        for (const auto& [pattern, code] : c.rules) tools.OnCommand("bcdedit", pattern, std::to_string(code));
        if (c.generator) tools.OnCommand("bcdboot", "", std::to_string(*c.generator));
        wrtest::LogCapture log;

        EXPECT_EQ(c.result, ZN_RepairBcdEntry(c.boot, c.system, c.uefi));

        const std::string system(1, char(c.system));
        const std::string generator = "bcdboot.exe " + system + ":\\Windows /s " + system + ":";
        const bool generatorFailed = c.generator.value_or(0) != 0;
        Events arguments, expected = {boottest::UseEditor()};
        if (generatorFailed) expected.push_back(Failed(generator, *c.generator));
        for (const std::string& e : c.events) {
            if (e[0] != '/') {
                expected.push_back(e);
                continue;
            }
            arguments.push_back("/store " + store + " " + e);
            // The editor answers by the first rule the command line contains, as the double does.
            const auto rule = std::find_if(c.rules.begin(), c.rules.end(), [&](const auto& r) {
                return arguments.back().find(r.first) != std::string::npos;
            });
            const int code = rule == c.rules.end() ? 0 : rule->second;
            expected.push_back(code ? Failed(Editor() + " " + arguments.back(), code)
                                    : "ZN_RepairBcdEntry " + arguments.back() + " successfully");
        }
        EXPECT_EQ(arguments, tools.Arguments("bcdedit"));
        EXPECT_EQ(c.generator ? Events{generator} : Events{}, tools.Commands("bcdboot"));
        boottest::ExpectLog(log, expected);

        // Only a failed generator run leaves the privileges on; everything else drops them.
        EXPECT_EQ(generatorFailed, wrtest::ProcessPrivilegeEnabled(L"SeBackupPrivilege"));
        EXPECT_EQ(generatorFailed, wrtest::ProcessPrivilegeEnabled(L"SeRestorePrivilege"));
        // Wine leaves an empty key behind a failed load; that one is no mount of ours.
        EXPECT_TRUE(c.store == Store::Junk || !wrtest::HklmKeyExists(L"ZNRegKey"));
    }
};

TEST_F(RepairBcdEntry, MainPathRepointsTheListedEntryAndDropsTheOthers) {
    const std::string longId = "{" + std::string(228, 'e') + "}";
    const RepairCase cases[] = {
        {.name = "full UEFI repair", .order = {kA, kB, kC},
         .events = Manager() + Listed(kA) + Events{Delete(kB), Delete(kC)}},
        {.name = "full BIOS repair, lower-case letters", .order = {kA, kB, kC},
         .events = Manager(false) + Listed(kA, false) + Events{Delete(kB), Delete(kC)}, .boot = L's', .system = L'w',
         .uefi = 0},
        {.name = "one entry, nothing deleted", .order = {kA}, .events = Manager() + Listed(kA)},
        {.name = "empty display order", .order = {}, .events = Manager()},
        {.name = "a failing delete does not stop the loop", .order = {kA, kB, kC}, .rules = {{"/delete " + kB, 1}},
         .events = Manager() + Listed(kA) + Events{Delete(kB), Delete(kC)}},
        {.name = "failing path commands are ignored", .order = {kA, kB}, .rules = {{" path \\", 3}},
         .events = Manager() + Listed(kA) + Events{Delete(kB)}},
        // No boot letter: fresh boot files on the system partition, whose store is used.
        {.name = "generator makes the store", .order = {kA, kB},
         .events = Manager(true, 'W') + Listed(kA) + Events{Delete(kB)}, .boot = 0, .system = L'w', .generator = 0},
        {.name = "generator fails", .store = Store::Missing, .result = 3, .boot = L'2', .system = L'w', .generator = 3},
        {.name = "identifier too long for a command", .order = {longId},
         .events = Manager() +
                   Events{"ZN_RepairBcdEntry refused: argument text is longer than 259 characters"} +
                   kFallback},
    };
    for (const RepairCase& c : cases) Check(c);
}

TEST_F(RepairBcdEntry, EveryFailureOnTheMainPathFallsBack) {
    const RepairCase cases[] = {
        {.name = "store missing", .store = Store::Missing,
         .events = Events{"ZN_RepairBcdEntry find " + kUefiS + " error: 3"} + kFallback},
        {.name = "boot manager device fails twice", .order = {kA}, .rules = {{"{bootmgr} device", 1}}, .result = 1,
         .events = {Manager()[0], Manager()[0]}},
        {.name = "store is no hive", .store = Store::Junk,
         .events = Manager() + Events{"ZN_LoadRegistry load " + kUefiS + " to ZNRegKey error: 1017"} + kFallback},
        {.name = "display order key missing", .store = Store::NoDisplayOrder,
         .events = Manager() + Events{"ZN_RepairBcdEntry open ZNRegKey\\" + kOrderKey + " error: 2"} + kFallback},
        {.name = "display order over 520 bytes", .order = {kA, kB, kC, kA, kB, kC, kA},
         .events = Manager() + Events{"ZN_RepairBcdEntry read Element in ZNRegKey\\" + kOrderKey + " error: 234"} +
                   kFallback},
        {.name = "default command fails", .order = {kA, kB}, .rules = {{"/default", 1}},
         .events = Manager() + Events{Listed(kA)[0]} + kFallback},
        {.name = "device command fails", .order = {kA, kB}, .rules = {{kA + " device", 1}},
         .events = Manager() + Events{Listed(kA)[0], Listed(kA)[1]} + kFallback},
        {.name = "osdevice command fails", .order = {kA, kB}, .rules = {{kA + " osdevice", 1}},
         .events = Manager() + Listed(kA) + kFallback},
    };
    for (const RepairCase& c : cases) Check(c);
}

TEST_F(RepairBcdEntry, FallbackOutcomes) {
    const Events head = {"ZN_RepairBcdEntry find " + kUefiS + " error: 3", kFallback[0], kFallback[1]};
    const RepairCase cases[] = {
        {.name = "{default} osdevice decides", .store = Store::Missing, .rules = {{"{default} osdevice", 9}},
         .result = 9, .events = head + Events{kFallback[2]}},
        {.name = "{current} when {default} fails", .store = Store::Missing, .rules = {{"{default} device", 1}},
         .events = head + Events{"/set {current} device partition=W:", "/set {current} osdevice partition=W:"}},
        {.name = "{current} fails too", .store = Store::Missing,
         .rules = {{"{default} device", 1}, {"{current} device", 7}}, .result = 7,
         .events = head + Events{"/set {current} device partition=W:"}},
    };
    for (const RepairCase& c : cases) Check(c);
}

TEST(RepairBcdEntryInput, SystemLetterThatIsNoLetterIsRefused) {
    for (WCHAR system : {WCHAR(0), WCHAR(L'1'), WCHAR(0x100 + L'W')}) {
        SCOPED_TRACE(static_cast<int>(system));
        wrtest::ToolDouble tools;
        wrtest::LogCapture log;
        EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), ZN_RepairBcdEntry(L'S', system, 1));
        EXPECT_TRUE(tools.Journal().empty());
        boottest::ExpectLog(log, {"ZN_RepairBcdEntry system partition is invalid"});
    }
}

}  // namespace
