// The drive-letter exports on an offline text SYSTEM hive on W: and on the running
// system's MountedDevices, seeded with the tests' own letters and cleaned after. The
// hive is read back from its file, which a hooked unload writes first, as Windows does.
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/registry_fixture.h"
#include "support/wine_env.h"

namespace {

using Values = std::map<std::string, std::string>;  // value name -> data
using Lines = std::vector<std::string>;

const std::wstring kHive = L"W:\\windows\\system32\\config\\system";
std::string L(char c) { return std::string("\\DosDevices\\") + c + ":"; }
// Offline C: is a prefix of running D:, offline E: a copy of it.
const Values kOffline = {{L('C'), "disk-d"}, {L('E'), "disk-d-long"}, {L('F'), "disk-f"}, {"\\??\\Volume{1}", "vol"}};
const Values kRunning = {{L('A'), "disk-f"}, {L('D'), "disk-d-long"}, {L('E'), "disk-e"},
                         {L('F'), "disk-f"}, {L('G'), "disk-f"},      {L('K'), "disk-f"}};
const DWORD kDrives = 0x1 | 0x8 | 0x10 | 0x20 | 0x40;  // A D E F G: K has a value but no drive

Values Read(const wchar_t* path, bool write = false, const Values& values = {}) {
    HKEY key;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr)) return {};
    for (const auto& [name, data] : values)
        RegSetValueExA(key, name.c_str(), 0, REG_BINARY, (const BYTE*)data.data(), DWORD(data.size()));
    Values read;
    char name[260], data[1024];
    for (DWORD i = 0, n = 260, size = 1024; !write && !RegEnumValueA(key, i, name, &n, 0, 0, (BYTE*)data, &size);
         ++i, n = 260, size = 1024)
        read[name] = std::string(data, size);
    RegCloseKey(key);
    return read;
}
LONG WINAPI SavingUnload(HKEY root, LPCWSTR name) {
    HKEY key;
    if (!RegOpenKeyExW(root, name, 0, KEY_READ, &key)) {
        DeleteFileW(kHive.c_str());
        EXPECT_EQ(0, RegSaveKeyW(key, kHive.c_str(), nullptr));
        RegCloseKey(key);
    }
    return RegUnLoadKeyW(root, name);
}
DWORD WINAPI FakeDrives() { return kDrives; }

std::wstring Map(const char* pairs) {  // "De" maps the running D: to e
    std::wstring map(26, L'\0');
    for (; *pairs; pairs += 2) map[pairs[0] - 'A'] = pairs[1];
    return map;
}
std::string MapA(const char* pairs) { return wrtest::Narrow(Map(pairs)); }
char g_map[26];

struct Case {
    const char* name;
    std::function<DWORD()> call;
    DWORD result;
    Values offline;  // the offline MountedDevices afterwards
    Lines log;
    std::string map = "";  // ZN_GetDoscharMapA's answer, '.' for 0
    Values z = {};         // HKLM\Z\MountedDevices afterwards
};

class Letters : public testing::Test {
protected:
    void SetUp() override {
        wrtest::SetProcessPrivilege(L"SeBackupPrivilege", true);
        wrtest::SetProcessPrivilege(L"SeRestorePrivilege", true);
        Read(L"SYSTEM\\MountedDevices", true, kRunning);
    }
    void TearDown() override {
        HKEY key;
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\MountedDevices", 0, KEY_ALL_ACCESS, &key);
        for (const auto& seeded : kRunning) RegDeleteValueA(key, seeded.first.c_str());
        RegCloseKey(key);
        wrtest::SetProcessPrivilege(L"SeBackupPrivilege", false);
        wrtest::SetProcessPrivilege(L"SeRestorePrivilege", false);
    }
    void Check(const Case& c) {
        SCOPED_TRACE(c.name);
        wrtest::TextHive hive;
        hive.Key("MountedDevices");
        for (const auto& [name, data] : kOffline) hive.Binary(name, data);
        ASSERT_TRUE(hive.Write(kHive));
        memset(g_map, '#', 26);
        wrtest::LogCapture log;
        {
            wrtest::ImportHook unload("advapi32.dll", "RegUnLoadKeyW", reinterpret_cast<void*>(SavingUnload));
            wrtest::ImportHook drives("kernel32.dll", "GetLogicalDrives", reinterpret_cast<void*>(FakeDrives));
            EXPECT_EQ(c.result, c.call());
        }
        for (char& e : g_map) e = e ? e : '.';
        EXPECT_EQ(c.map.empty() ? std::string(g_map, 26) : c.map, std::string(g_map, 26));
        EXPECT_EQ(c.log, log.Messages());
        EXPECT_EQ(c.z, Read(L"Z\\MountedDevices"));
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Z");
        ASSERT_EQ(0, RegLoadKeyW(HKEY_LOCAL_MACHINE, L"WrenLettersCheck", kHive.c_str()));
        EXPECT_EQ(c.offline, Read(L"WrenLettersCheck\\MountedDevices"));
        RegUnLoadKeyW(HKEY_LOCAL_MACHINE, L"WrenLettersCheck");
    }
};

const std::string kTag = "[Wrenkit] ", kNoHive = "T:\\windows\\system32\\config\\system";
Lines NoHive(const char* name) {
    return {kTag + "ZN_LoadRegistry load " + kNoHive + " to ZNRegKey error: 3",
            kTag + name + " load " + kNoHive + " error: 3"};
}
std::string Refused(const char* name, const char* what) {
    return kTag + name + " refused: " + what + " is missing or not valid";
}

TEST_F(Letters, RepairReplacesEveryTargetValueByTheMappedRunningLetters) {
    const std::string wide = kTag + "ZN_RepairDosDevice ", narrow = kTag + "ZN_RepairDosDeviceA ";
    const Case cases[] = {
        {"re-letters and skips", [] { return ZN_RepairDosDevice(L'W', Map("DeEDF*").c_str()); }, 0,
         {{L('E'), "disk-d-long"}, {L('D'), "disk-e"}}, {wide + "D ==> e", wide + "E ==> D"}},
        {"two entries name H, a running value is missing",
         [] { return ZN_RepairDosDevice(L'W', Map("DHEHQQ").c_str()); }, 0, {{L('H'), "disk-e"}},
         {wide + "D ==> H", wide + "E ==> H", wide + "query \\DosDevices\\Q: error: 2"}},
        {"no hive", [] { return ZN_RepairDosDevice(L'T', Map("DD").c_str()); }, 3, kOffline,
         NoHive("ZN_RepairDosDevice")},
        {"drive no letter", [] { return ZN_RepairDosDevice(L'1', Map("DD").c_str()); }, 87, kOffline,
         {Refused("ZN_RepairDosDevice", "system drive")}},
        {"no map", [] { return ZN_RepairDosDeviceA('W', nullptr); }, 87, kOffline,
         {Refused("ZN_RepairDosDeviceA", "letter map")}},
        {"narrow: HKLM\\Z\\MountedDevices missing", [] { return ZN_RepairDosDeviceA('W', MapA("DD").c_str()); }, 2,
         kOffline, {narrow + "open Z\\MountedDevices error: 2"}},
        {"narrow: works in HKLM\\Z\\MountedDevices",
         [] {
             Read(L"Z\\MountedDevices", true, {{"stale", "x"}});
             return ZN_RepairDosDeviceA('W', MapA("DeQQ").c_str());
         },
         0, kOffline, {narrow + "D ==> e", narrow + "query \\DosDevices\\Q: error: 2"}, "", {{L('E'), "disk-d-long"}}},
    };
    for (const Case& c : cases) Check(c);
}

TEST_F(Letters, ClearDeletesTheMaskedLetters) {
    const Values withoutC = {{L('E'), "disk-d-long"}, {L('F'), "disk-f"}, {"\\??\\Volume{1}", "vol"}};
    const Case cases[] = {
        {"mask 0", [] { return ZN_ClearDosDevice(L'W', 0); }, 0, kOffline, {}},
        {"C, a missing D, bits past Z", [] { return ZN_ClearDosDevice(L'W', 0xfc00000c); }, 0, withoutC,
         {kTag + "ZN_ClearDosDevice delete \\DosDevices\\C: successfully",
          kTag + "ZN_ClearDosDevice delete \\DosDevices\\D: error: 2"}},
        {"drive no letter", [] { return ZN_ClearDosDevice(WCHAR(0x157), 4); }, 87, kOffline,
         {Refused("ZN_ClearDosDevice", "system drive")}},
    };
    for (const Case& c : cases) Check(c);
}

TEST_F(Letters, MapFindsTheLowestTargetLetterWhoseValueStartsTheRunningOne) {
    const std::string name = kTag + "ZN_GetDoscharMapA  ";
    const Case cases[] = {
        {"A never looked at, K no drive", [] { return ZN_GetDoscharMapA('W', g_map); }, 0, kOffline,
         {name + "D ---> C", name + "F ---> F", name + "G ---> F"}, "...C.FF..................."},
        {"drive no letter: map untouched", [] { return ZN_GetDoscharMapA(':', g_map); }, 87, kOffline,
         {Refused("ZN_GetDoscharMapA", "system drive")}, "##########################"},
        {"no map", [] { return ZN_GetDoscharMapA('W', nullptr); }, 87, kOffline,
         {Refused("ZN_GetDoscharMapA", "letter map")}},
    };
    for (const Case& c : cases) Check(c);
}

}  // namespace
