// The drive-letter exports on an offline text SYSTEM hive on W: and on the running
// system's MountedDevices, seeded with the tests' own values and restored after.
// The hive is read back from its file: a hooked unload saves it first, as Windows does.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/registry_fixture.h"
#include "support/wine_env.h"

namespace {

using Values = std::map<std::string, std::string>;  // value name -> data bytes
using Lines = std::vector<std::string>;

const std::wstring kHive = L"W:\\windows\\system32\\config\\system";
const std::string kVolume = "\\??\\Volume{5a1e0c2b-0000-0000-0000-100000000000}";
const Values kOffline = {{"\\DosDevices\\C:", "old-c"}, {"\\DosDevices\\E:", "old-e"}, {kVolume, "old-volume"}};
std::string Letter(char c) { return std::string("\\DosDevices\\") + c + ":"; }

Values ReadValues(const wchar_t* path) {
    Values values;
    HKEY key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key)) return values;
    char name[260];
    BYTE data[1024];
    for (DWORD i = 0, chars = 260, bytes = 1024; !RegEnumValueA(key, i, name, &chars, nullptr, nullptr, data, &bytes);
         ++i, chars = 260, bytes = 1024)
        values[name] = std::string(reinterpret_cast<char*>(data), bytes);
    RegCloseKey(key);
    return values;
}

// What Windows does on unload and Wine does not: write the hive back to its file.
LONG WINAPI SavingUnload(HKEY root, LPCWSTR name) {
    HKEY key;
    if (!RegOpenKeyExW(root, name, 0, KEY_READ, &key)) {
        DeleteFileW(kHive.c_str());
        EXPECT_EQ(0, RegSaveKeyW(key, kHive.c_str(), nullptr));
        RegCloseKey(key);
    }
    return RegUnLoadKeyW(root, name);
}

class Letters : public testing::Test {
protected:
    const Values running_ = {{Letter('A'), "disk-f"}, {Letter('D'), "disk-d-long"}, {Letter('E'), "disk-e"},
                             {Letter('F'), "disk-f"}, {Letter('G'), "disk-f"},      {Letter('K'), "disk-f"}};
    Values saved_;

    void SetUp() override {
        wrtest::SetProcessPrivilege(L"SeBackupPrivilege", true);
        wrtest::SetProcessPrivilege(L"SeRestorePrivilege", true);
        HKEY key;
        ASSERT_EQ(0, RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\MountedDevices", 0, KEY_ALL_ACCESS, &key));
        saved_ = ReadValues(L"SYSTEM\\MountedDevices");
        for (const auto& [name, data] : running_)
            RegSetValueExA(key, name.c_str(), 0, REG_BINARY, reinterpret_cast<const BYTE*>(data.data()), DWORD(data.size()));
        RegCloseKey(key);
    }
    void TearDown() override {
        HKEY key;
        RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\MountedDevices", 0, KEY_ALL_ACCESS, &key);
        for (const auto& [name, data] : running_) {
            const auto old = saved_.find(name);
            if (old == saved_.end())
                RegDeleteValueA(key, name.c_str());
            else
                RegSetValueExA(key, name.c_str(), 0, REG_BINARY, reinterpret_cast<const BYTE*>(old->second.data()),
                               DWORD(old->second.size()));
        }
        RegCloseKey(key);
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Z");
        wrtest::SetProcessPrivilege(L"SeBackupPrivilege", false);
        wrtest::SetProcessPrivilege(L"SeRestorePrivilege", false);
    }

    // Writes the offline hive, runs `call` with the unload hooked, and checks its
    // result, its log and what the offline MountedDevices holds afterwards.
    template <typename Call>
    void Run(DWORD result, const Lines& log, const Values& offline, Call call, const Values& before = kOffline) {
        wrtest::TextHive hive;
        hive.Key("MountedDevices");
        for (const auto& [name, data] : before) hive.Binary(name, data);
        ASSERT_TRUE(hive.Key("Select").Dword("Current", 1).Write(kHive));
        wrtest::LogCapture capture;
        {
            wrtest::ImportHook unload("advapi32.dll", "RegUnLoadKeyW", reinterpret_cast<void*>(SavingUnload));
            EXPECT_EQ(result, call());
        }
        Lines tagged;
        for (const auto& line : log) tagged.push_back(wrtest::Tagged(line));
        EXPECT_EQ(tagged, capture.Messages());
        EXPECT_EQ(0, RegLoadKeyW(HKEY_LOCAL_MACHINE, L"WrenLettersCheck", kHive.c_str()));
        EXPECT_EQ(offline, ReadValues(L"WrenLettersCheck\\MountedDevices"));
        RegUnLoadKeyW(HKEY_LOCAL_MACHINE, L"WrenLettersCheck");
    }
};

const std::string kNoHive = "T:\\windows\\system32\\config\\system";
const Lines kNoHiveLog = {"ZN_LoadRegistry load " + kNoHive + " to ZNRegKey error: 3"};

TEST_F(Letters, RepairReplacesTheTargetLettersThroughTheMap) {
    struct Case {
        const char* name;
        std::map<char, char> map = {};  // running letter -> map entry
        DWORD result = 0;
        Values offline = {};
        Lines log = {};
        bool narrow = false, zKey = false, nullMap = false;
        char drive = 'W';
        Values z = {};  // HKLM\Z\MountedDevices afterwards
    } cases[] = {
        {.name = "re-letters, skips, drops every other entry", .map = {{'D', 'e'}, {'E', 'D'}, {'F', '*'}},
         .offline = {{Letter('E'), "disk-d-long"}, {Letter('D'), "disk-e"}},
         .log = {"ZN_RepairDosDevice D ==> e", "ZN_RepairDosDevice E ==> D"}},
        {.name = "two entries name one target, a running value is missing", .map = {{'D', 'H'}, {'E', 'H'}, {'Q', 'Q'}},
         .offline = {{Letter('H'), "disk-e"}},
         .log = {"ZN_RepairDosDevice D ==> H", "ZN_RepairDosDevice E ==> H",
                 "ZN_RepairDosDevice query \\DosDevices\\Q: error: 2"}},
        {.name = "empty map still empties the target"},
        {.name = "no hive", .map = {{'D', 'D'}}, .result = 3, .offline = kOffline,
         .log = {kNoHiveLog[0], "ZN_RepairDosDevice load " + kNoHive + " error: 3"}, .drive = 'T'},
        {.name = "drive is no letter", .result = 87, .offline = kOffline,
         .log = {"ZN_RepairDosDevice refused: system drive is missing or not valid"}, .drive = '1'},
        {.name = "no map", .result = 87, .offline = kOffline,
         .log = {"ZN_RepairDosDevice refused: letter map is missing or not valid"}, .nullMap = true},
        {.name = "narrow: opens HKLM\\Z\\MountedDevices, which is missing", .map = {{'D', 'D'}}, .result = 2,
         .offline = kOffline, .log = {"ZN_RepairDosDeviceA open Z\\MountedDevices error: 2"}, .narrow = true},
        {.name = "narrow: works on HKLM\\Z\\MountedDevices when it exists", .map = {{'D', 'e'}, {'Q', 'Q'}},
         .offline = kOffline, .log = {"ZN_RepairDosDeviceA D ==> e", "ZN_RepairDosDeviceA query \\DosDevices\\Q: error: 2"},
         .narrow = true, .zKey = true, .z = {{Letter('E'), "disk-d-long"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.zKey) {
            HKEY key;
            ASSERT_EQ(0, RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Z\\MountedDevices", 0, nullptr, 0, KEY_ALL_ACCESS,
                                         nullptr, &key, nullptr));
            RegSetValueExA(key, "stale", 0, REG_BINARY, reinterpret_cast<const BYTE*>("x"), 1);
            RegCloseKey(key);
        }
        wchar_t wide[26] = {};
        char narrow[26] = {};
        for (auto [from, to] : c.map) narrow[from - 'A'] = wide[from - 'A'] = to;
        Run(c.result, c.log, c.offline, [&] {
            return c.narrow ? ZN_RepairDosDeviceA(c.drive, c.nullMap ? nullptr : narrow)
                            : ZN_RepairDosDevice(c.drive, c.nullMap ? nullptr : wide);
        });
        EXPECT_EQ(c.z, ReadValues(L"Z\\MountedDevices"));
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Z");
    }
}

TEST_F(Letters, ClearDeletesTheMaskedLetters) {
    struct Case {
        const char* name;
        DWORD mask;
        DWORD result;
        Values offline;
        Lines log;
        WCHAR drive = L'W';
    } cases[] = {
        {"mask 0", 0, 0, kOffline, {}},
        {"C, a missing D, and bits past Z", (1u << 2) | (1u << 3) | 0xfc000000u, 0,
         {{Letter('E'), "old-e"}, {kVolume, "old-volume"}},
         {"ZN_ClearDosDevice delete \\DosDevices\\C: successfully", "ZN_ClearDosDevice delete \\DosDevices\\D: error: 2"}},
        {"no hive", 4, 3, kOffline, {kNoHiveLog[0], "ZN_ClearDosDevice load " + kNoHive + " error: 3"}, L'T'},
        {"drive is no letter", 4, 87, kOffline, {"ZN_ClearDosDevice refused: system drive is missing or not valid"},
         WCHAR(0x100 + L'W')},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Run(c.result, c.log, c.offline, [&] { return ZN_ClearDosDevice(c.drive, c.mask); });
    }
}

DWORD g_drives;
DWORD WINAPI FakeGetLogicalDrives() { return g_drives; }

TEST_F(Letters, MapFindsTheTargetLetterOfEachRunningVolume) {
    // Offline C: is a prefix of running D:, and E: is a copy of it: the lower letter wins.
    // F: matches A: (never looked at) and K: (no drive), and G: and F: alike.
    struct Case {
        const char* name;
        DWORD result;
        std::string map;  // the 26 entries, '.' for 0
        Lines log;
        char drive = 'W';
        bool nullMap = false;
    } cases[] = {
        {"prefix match, lowest letter, unlisted drives skipped", 0, "...C.FF...................",
         {"ZN_GetDoscharMapA  D ---> C", "ZN_GetDoscharMapA  F ---> F", "ZN_GetDoscharMapA  G ---> F"}},
        {"no hive: map cleared", 3, "..........................",
         {kNoHiveLog[0], "ZN_GetDoscharMapA load " + kNoHive + " error: 3"}, 'T'},
        {"drive is no letter: map untouched", 87, "##########################",
         {"ZN_GetDoscharMapA refused: system drive is missing or not valid"}, ':'},
        {"no map", 87, "##########################", {"ZN_GetDoscharMapA refused: letter map is missing or not valid"},
         'W', true},
    };
    const Values offline = {{Letter('C'), "disk-d"}, {Letter('E'), "disk-d-long"}, {Letter('F'), "disk-f"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        g_drives = 0x1 | 0x8 | 0x10 | 0x20 | 0x40;  // A D E F G
        std::string map(26, '#');
        wrtest::ImportHook drives("kernel32.dll", "GetLogicalDrives", reinterpret_cast<void*>(FakeGetLogicalDrives));
        Run(c.result, c.log, offline, [&] { return ZN_GetDoscharMapA(c.drive, c.nullMap ? nullptr : map.data()); },
            offline);
        for (char& e : map) e = e ? e : '.';
        EXPECT_EQ(c.map, map);
    }
}

}  // namespace
