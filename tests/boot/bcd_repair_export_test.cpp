#include <gtest/gtest.h>

#include <string>
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
const std::string kBiosS = "S:\\Boot\\BCD";
const std::string kUefiW = "W:\\EFI\\Microsoft\\Boot\\BCD";
const std::string kOrderKey = "ZNRegKey\\Objects\\{9dea862c-5cdd-4e70-acc1-f32b344d4795}\\Elements\\24000001";

// What lies at the store path.
enum class Store { Missing, Junk, NoDisplayOrder, DisplayOrder };

// One editor run (its arguments and exit code) or one other log line, in order.
struct Event {
    std::string arguments;
    int code;
    std::string line;
};
Event Cmd(const std::string& store, const std::string& rest, int code = 0) {
    return {"/store " + store + " " + rest, code, ""};
}
Event Line(const std::string& line) { return {"", 0, line}; }

using Events = std::vector<Event>;
Events operator+(Events a, const Events& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The boot manager's two commands that open the main path.
Events Manager(const std::string& store, bool uefi, char boot = 'S') {
    return {Cmd(store, std::string("/set {bootmgr} device partition=") + boot + ":"),
            Cmd(store, uefi ? "/set {bootmgr} path \\EFI\\Microsoft\\Boot\\bootmgfw.efi"
                            : "/set {bootmgr} path \\Boot\\bootmgr.exe")};
}
// The listed entry pointed at the system partition W.
Events Listed(const std::string& store, bool uefi, const std::string& id) {
    return {
        Cmd(store, "/default " + id), Cmd(store, "/set " + id + " device partition=W:"),
        Cmd(store, "/set " + id +
                       (uefi ? " path \\Windows\\system32\\winload.efi" : " path \\Windows\\system32\\winload.exe")),
        Cmd(store, "/set " + id + " osdevice partition=W:")};
}
Events Delete(const std::string& store, const std::string& id, int code = 0) {
    return {Cmd(store, "/delete " + id + " /f /cleanup", code)};
}
// The fallback through {default}, all succeeding.
Events Fallback(const std::string& store) {
    return {Cmd(store, "/set {bootmgr} device partition=S:"), Cmd(store, "/set {default} device partition=W:"),
            Cmd(store, "/set {default} osdevice partition=W:")};
}

struct Rule {
    std::string pattern, code;
};

struct RepairCase {
    const char* name;
    Store store = Store::DisplayOrder;
    std::vector<std::string> order = {};  // the display order, when the store holds one
    std::vector<Rule> rules = {};         // editor exit codes by command
    DWORD result = 0;
    Events events = {};
    WCHAR boot = L'S', system = L'W';
    DWORD uefi = 1;
    std::string generatorCode = {};  // the generator's exit code; empty when it is not run
};

std::wstring StorePath(const RepairCase& c) {
    const wchar_t letter = (c.boot >= L'A' && c.boot <= L'z') ? c.boot : c.system;
    return std::wstring(1, letter) + (c.uefi ? L":\\EFI\\Microsoft\\Boot\\BCD" : L":\\Boot\\BCD");
}

void WriteStore(const RepairCase& c) {
    const std::string key = "Objects\\{9dea862c-5cdd-4e70-acc1-f32b344d4795}\\Elements\\24000001";
    const std::wstring path = StorePath(c);
    switch (c.store) {
        case Store::Missing:
            break;
        case Store::Junk:
            wrtest::MakeDirs(path.substr(0, path.find_last_of(L'\\')));
            ASSERT_TRUE(wrtest::WriteFileBytes(path, "this is no registry hive\r\n"));
            break;
        case Store::NoDisplayOrder:
            ASSERT_TRUE(wrtest::TextHive()
                            .Key("Objects\\{a5a30fa2-3d06-4e9f-b5f4-a01df9d1fcba}\\Elements\\12000004")
                            .Sz("Element", "Windows Boot Manager")
                            .Write(path));
            break;
        case Store::DisplayOrder:
            ASSERT_TRUE(wrtest::TextHive().Key(key).MultiSz("Element", c.order).Write(path));
            break;
    }
}

void RemoveStores() {
    for (const wchar_t* folder : {L"S:\\EFI", L"S:\\Boot", L"W:\\EFI", L"W:\\Boot"}) wrtest::RemoveTree(folder);
}

class RepairBcdEntry : public testing::Test {
protected:
    void SetUp() override { Reset(); }
    void TearDown() override { Reset(); }
    static void Reset() {
        RemoveStores();
        wrtest::RemoveHklmKey(L"ZNRegKey");
        wrtest::SetProcessPrivilege(L"SeBackupPrivilege", false);
        wrtest::SetProcessPrivilege(L"SeRestorePrivilege", false);
    }

    static void Check(const RepairCase& c) {
        SCOPED_TRACE(c.name);
        WriteStore(c);
        wrtest::ToolDouble tools;
        for (const Rule& r : c.rules) tools.OnCommand("bcdedit", r.pattern, r.code);
        if (!c.generatorCode.empty()) tools.OnCommand("bcdboot", "", c.generatorCode);
        wrtest::LogCapture log;

        EXPECT_EQ(c.result, ZN_RepairBcdEntry(c.boot, c.system, c.uefi));

        std::vector<std::string> arguments;
        std::vector<std::string> expected = {boottest::UseEditor()};
        const std::string generator = std::string("bcdboot.exe ") + static_cast<char>(c.system) + ":\\Windows /s " +
                                      static_cast<char>(c.system) + ":";
        const bool generatorFailed = !c.generatorCode.empty() && c.generatorCode != "0";
        if (generatorFailed) expected.push_back(Failed(generator, std::stoi(c.generatorCode)));
        for (const Event& e : c.events) {
            if (e.arguments.empty()) {
                expected.push_back(e.line);
                continue;
            }
            arguments.push_back(e.arguments);
            expected.push_back(e.code ? Failed(Editor() + " " + e.arguments, e.code)
                                      : "ZN_RepairBcdEntry " + e.arguments + " successfully");
        }
        EXPECT_EQ(arguments, tools.Arguments("bcdedit"));
        EXPECT_EQ(c.generatorCode.empty() ? std::vector<std::string>{} : std::vector<std::string>{generator},
                  tools.Commands("bcdboot"));
        boottest::ExpectLog(log, expected);

        // Only a failed generator run leaves the privileges on; everything else drops them.
        EXPECT_EQ(generatorFailed, wrtest::ProcessPrivilegeEnabled(L"SeBackupPrivilege"));
        EXPECT_EQ(generatorFailed, wrtest::ProcessPrivilegeEnabled(L"SeRestorePrivilege"));
        // Wine leaves an empty key behind a failed load; that one is no mount of ours.
        if (c.store != Store::Junk) {
            EXPECT_FALSE(wrtest::HklmKeyExists(L"ZNRegKey"));
        }
        Reset();
    }
};

TEST_F(RepairBcdEntry, MainPathRepointsTheListedEntryAndDropsTheOthers) {
    const std::string longId = "{" + std::string(228, 'e') + "}";
    const RepairCase cases[] = {
        {.name = "full UEFI repair",
         .order = {kA, kB, kC},
         .events = Manager(kUefiS, true) + Listed(kUefiS, true, kA) + Delete(kUefiS, kB) + Delete(kUefiS, kC)},
        // "%C": lower-case letters reach the editor upper-cased.
        {.name = "full BIOS repair, lower-case letters",
         .order = {kA, kB, kC},
         .events = Manager(kBiosS, false) + Listed(kBiosS, false, kA) + Delete(kBiosS, kB) + Delete(kBiosS, kC),
         .boot = L's',
         .system = L'w',
         .uefi = 0},
        {.name = "one entry, nothing deleted",
         .order = {kA},
         .events = Manager(kUefiS, true) + Listed(kUefiS, true, kA)},
        {.name = "empty display order", .order = {}, .events = Manager(kUefiS, true)},
        {.name = "a failing delete does not stop the loop",
         .order = {kA, kB, kC},
         .rules = {{"/delete " + kB, "1"}},
         .events = Manager(kUefiS, true) + Listed(kUefiS, true, kA) + Delete(kUefiS, kB, 1) + Delete(kUefiS, kC)},
        {.name = "failing path commands are ignored",
         .order = {kA, kB},
         .rules = {{" path \\", "3"}},
         .events = {Cmd(kUefiS, "/set {bootmgr} device partition=S:"),
                    Cmd(kUefiS, "/set {bootmgr} path \\EFI\\Microsoft\\Boot\\bootmgfw.efi", 3),
                    Cmd(kUefiS, "/default " + kA), Cmd(kUefiS, "/set " + kA + " device partition=W:"),
                    Cmd(kUefiS, "/set " + kA + " path \\Windows\\system32\\winload.efi", 3),
                    Cmd(kUefiS, "/set " + kA + " osdevice partition=W:"), Delete(kUefiS, kB)[0]}},
        // No boot letter: fresh boot files on the system partition, whose store is used.
        {.name = "generator makes the store",
         .order = {kA, kB},
         .events = Manager(kUefiW, true, 'W') + Listed(kUefiW, true, kA) + Delete(kUefiW, kB),
         .boot = 0,
         .system = L'w',
         .generatorCode = "0"},
        {.name = "generator fails",
         .store = Store::Missing,
         .result = 3,
         .boot = L'2',
         .system = L'w',
         .generatorCode = "3"},
        {.name = "identifier too long for a command",
         .order = {longId},
         .events = Manager(kUefiS, true) +
                   Events{Line("ZN_RepairBcdEntry argument text longer than 259 characters, not run: " +
                               ("/store " + kUefiS + " /default " + longId).substr(0, 259))} +
                   Fallback(kUefiS)},
    };
    for (const RepairCase& c : cases) Check(c);
}

TEST_F(RepairBcdEntry, EveryFailureOnTheMainPathFallsBack) {
    const std::string open = "ZN_RepairBcdEntry open " + kOrderKey + " error: 2";
    const std::string read = "ZN_RepairBcdEntry read Element in " + kOrderKey + " error: 234";
    const RepairCase cases[] = {
        {.name = "store missing",
         .store = Store::Missing,
         .events = Events{Line("ZN_RepairBcdEntry find " + kUefiS + " error: 3")} + Fallback(kUefiS)},
        {.name = "boot manager device fails twice",
         .order = {kA},
         .rules = {{"{bootmgr} device", "1"}},
         .result = 1,
         .events = {Cmd(kUefiS, "/set {bootmgr} device partition=S:", 1),
                    Cmd(kUefiS, "/set {bootmgr} device partition=S:", 1)}},
        {.name = "store is no hive",
         .store = Store::Junk,
         .events = Manager(kUefiS, true) + Events{Line("ZN_LoadRegistry load " + kUefiS + " to ZNRegKey error: 1017")} +
                   Fallback(kUefiS)},
        {.name = "display order key missing",
         .store = Store::NoDisplayOrder,
         .events = Manager(kUefiS, true) + Events{Line(open)} + Fallback(kUefiS)},
        {.name = "display order over 520 bytes",
         .order = {kA, kB, kC, kA, kB, kC, kA},
         .events = Manager(kUefiS, true) + Events{Line(read)} + Fallback(kUefiS)},
        {.name = "default command fails",
         .order = {kA, kB},
         .rules = {{"/default", "1"}},
         .events = Manager(kUefiS, true) + Events{Cmd(kUefiS, "/default " + kA, 1)} + Fallback(kUefiS)},
        {.name = "device command fails",
         .order = {kA, kB},
         .rules = {{kA + " device", "1"}},
         .events = Manager(kUefiS, true) +
                   Events{Cmd(kUefiS, "/default " + kA), Cmd(kUefiS, "/set " + kA + " device partition=W:", 1)} +
                   Fallback(kUefiS)},
        {.name = "osdevice command fails",
         .order = {kA, kB},
         .rules = {{kA + " osdevice", "1"}},
         .events = Manager(kUefiS, true) +
                   Events{Cmd(kUefiS, "/default " + kA), Cmd(kUefiS, "/set " + kA + " device partition=W:"),
                          Cmd(kUefiS, "/set " + kA + " path \\Windows\\system32\\winload.efi"),
                          Cmd(kUefiS, "/set " + kA + " osdevice partition=W:", 1)} +
                   Fallback(kUefiS)},
    };
    for (const RepairCase& c : cases) Check(c);
}

TEST_F(RepairBcdEntry, FallbackOutcomes) {
    const Events head = {Line("ZN_RepairBcdEntry find " + kUefiS + " error: 3"),
                         Cmd(kUefiS, "/set {bootmgr} device partition=S:")};
    const RepairCase cases[] = {
        {.name = "{default} osdevice decides",
         .store = Store::Missing,
         .rules = {{"{default} osdevice", "9"}},
         .result = 9,
         .events = head + Events{Cmd(kUefiS, "/set {default} device partition=W:"),
                                 Cmd(kUefiS, "/set {default} osdevice partition=W:", 9)}},
        {.name = "{current} when {default} fails",
         .store = Store::Missing,
         .rules = {{"{default} device", "1"}},
         .events = head + Events{Cmd(kUefiS, "/set {default} device partition=W:", 1),
                                 Cmd(kUefiS, "/set {current} device partition=W:"),
                                 Cmd(kUefiS, "/set {current} osdevice partition=W:")}},
        {.name = "{current} fails too",
         .store = Store::Missing,
         .rules = {{"{default} device", "1"}, {"{current} device", "7"}},
         .result = 7,
         .events = head + Events{Cmd(kUefiS, "/set {default} device partition=W:", 1),
                                 Cmd(kUefiS, "/set {current} device partition=W:", 7)}},
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
