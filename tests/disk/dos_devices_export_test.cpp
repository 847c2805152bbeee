// The drive-letter exports on an offline text SYSTEM hive on W: and on the running
// system's MountedDevices, seeded with the tests' own letters and cleaned after. The
// hive is read back from its file, which a hooked unload writes first, as Windows does.
#include <functional>

#include "Wrenkits.h"
#include "disk/volume_device_fake.h"
#include "support/registry_fixture.h"

namespace {

using Values = std::map<std::string, std::string>;  // value name -> data

const std::wstring kHive = L"W:\\windows\\system32\\config\\system";
std::string L(char c) { return std::string("\\DosDevices\\") + c + ":"; }
// Offline C: is a prefix of running D:, offline E: a copy of it.
const Values kOffline = {{L('C'), "disk-d"}, {L('E'), "disk-d-long"}, {L('F'), "disk-f"}, {"\\??\\Volume{1}", "vol"}};
const Values kRunning = {{L('A'), "disk-f"}, {L('D'), "disk-d-long"}, {L('E'), "disk-e"}, {L('F'), "disk-f"}, {L('G'), "disk-f"}, {L('K'), "disk-f"}};
char g_map[26];

// Writes `values` into HKLM\path (created), or reads its values when there are none to write.
Values Key(const wchar_t* path, const Values& values = {}) {
    HKEY key;
    Values read;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr)) return read;
    for (const auto& [name, data] : values) RegSetValueExA(key, name.c_str(), 0, REG_BINARY, (const BYTE*)data.data(), DWORD(data.size()));
    char name[260], data[1024];
    for (DWORD i = 0, n = 260, size = 1024; values.empty() && !RegEnumValueA(key, i, name, &n, 0, 0, (BYTE*)data, &size); ++i, n = 260, size = 1024)
        read[name] = std::string(data, size);
    return RegCloseKey(key), read;
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
std::wstring Map(const char* pairs) {  // "De" maps the running D: to e
    std::wstring map(26, L'\0');
    for (; *pairs; pairs += 2) map[pairs[0] - 'A'] = pairs[1];
    return map;
}
std::string MapA(const char* pairs) { return wrtest::Narrow(Map(pairs)); }

TEST(DriveLetters, RepairClearAndMapOnTheOfflineSystemHive) {
    const std::string noHive = "T:\\windows\\system32\\config\\system", wide = "ZN_RepairDosDevice ", narrow = "ZN_RepairDosDeviceA ";
    const std::string refused = " refused: system drive is missing or not valid", noMap = " refused: letter map is missing or not valid";
    // Each row: the offline MountedDevices afterwards, the log, ZN_GetDoscharMapA's answer ('.' for 0), HKLM\Z\MountedDevices afterwards.
    const struct { const char* name; std::function<DWORD()> call; DWORD result; Values offline; std::string log, map = "##########################"; Values z = {}; } cases[] = {
        {"repair re-letters and skips", [] { return ZN_RepairDosDevice(L'W', Map("DeEDF*").c_str()); }, 0, {{L('E'), "disk-d-long"}, {L('D'), "disk-e"}}, wide + "D ==> e|" + wide + "E ==> D"},
        {"two entries name H, a running value is missing", [] { return ZN_RepairDosDevice(L'W', Map("DHEHQQ").c_str()); }, 0, {{L('H'), "disk-e"}}, wide + "D ==> H|" + wide + "E ==> H|" + wide + "query \\DosDevices\\Q: error: 2"},
        {"no hive", [] { return ZN_RepairDosDevice(L'T', Map("DD").c_str()); }, 3, kOffline, "ZN_LoadRegistry load " + noHive + " to ZNRegKey error: 3|ZN_RepairDosDevice load " + noHive + " error: 3"},
        {"drive no letter", [] { return ZN_RepairDosDevice(L'1', Map("DD").c_str()); }, 87, kOffline, "ZN_RepairDosDevice" + refused},
        {"narrow: no map", [] { return ZN_RepairDosDeviceA('W', nullptr); }, 87, kOffline, "ZN_RepairDosDeviceA" + noMap},
        {"narrow: HKLM\\Z\\MountedDevices missing", [] { return ZN_RepairDosDeviceA('W', MapA("DD").c_str()); }, 2, kOffline, narrow + "open Z\\MountedDevices error: 2"},
        {"narrow: works in HKLM\\Z\\MountedDevices", [] { return Key(L"Z\\MountedDevices", {{"stale", "x"}}), ZN_RepairDosDeviceA('W', MapA("DeQQ").c_str()); }, 0, kOffline, narrow + "D ==> e|" + narrow + "query \\DosDevices\\Q: error: 2", "##########################", {{L('E'), "disk-d-long"}}},
        {"clear: mask 0 deletes nothing", [] { return ZN_ClearDosDevice(L'W', 0); }, 0, kOffline, ""},
        {"clear C, a missing D, bits past Z", [] { return ZN_ClearDosDevice(L'W', 0xfc00000c); }, 0, {{L('E'), "disk-d-long"}, {L('F'), "disk-f"}, {"\\??\\Volume{1}", "vol"}}, "ZN_ClearDosDevice delete \\DosDevices\\C: successfully|ZN_ClearDosDevice delete \\DosDevices\\D: error: 2"},
        {"clear: drive no letter", [] { return ZN_ClearDosDevice(WCHAR(0x157), 4); }, 87, kOffline, "ZN_ClearDosDevice" + refused},
        {"map: A never looked at, K no drive, lowest prefix wins", [] { return ZN_GetDoscharMapA('W', g_map); }, 0, kOffline, "ZN_GetDoscharMapA  D ---> C|ZN_GetDoscharMapA  F ---> F|ZN_GetDoscharMapA  G ---> F", "...C.FF..................."},
        {"map: drive no letter, map untouched", [] { return ZN_GetDoscharMapA(':', g_map); }, 87, kOffline, "ZN_GetDoscharMapA" + refused},
        {"map: no map", [] { return ZN_GetDoscharMapA('W', nullptr); }, 87, kOffline, "ZN_GetDoscharMapA" + noMap},
    };
    for (auto privilege : {L"SeBackupPrivilege", L"SeRestorePrivilege"}) wrtest::SetProcessPrivilege(privilege, true);
    Key(L"SYSTEM\\MountedDevices", kRunning);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::TextHive hive = wrtest::TextHive().Key("MountedDevices");
        for (const auto& [name, data] : kOffline) hive.Binary(name, data);
        EXPECT_TRUE(hive.Write(kHive));
        memset(g_map, '#', 26);
        wrtest::LogCapture log;
        wrtest::ImportHook unload("advapi32.dll", "RegUnLoadKeyW", reinterpret_cast<void*>(SavingUnload));  // the library's calls only
        disktest::Machine m;
        m.drives = 0x1 | 0x8 | 0x10 | 0x20 | 0x40;  // A D E F G: K has a value but no drive
        EXPECT_EQ(c.result, c.call());
        for (char& e : g_map) e = e ? e : '.';
        EXPECT_EQ(c.map, std::string(g_map, 26));
        EXPECT_EQ(c.log, disktest::Logged(log));
        EXPECT_EQ(c.z, Key(L"Z\\MountedDevices"));
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Z");
        EXPECT_EQ(0, RegLoadKeyW(HKEY_LOCAL_MACHINE, L"WrenLettersCheck", kHive.c_str()));
        EXPECT_EQ(c.offline, Key(L"WrenLettersCheck\\MountedDevices"));
        RegUnLoadKeyW(HKEY_LOCAL_MACHINE, L"WrenLettersCheck");
    }
    for (const auto& seeded : kRunning) RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, "SYSTEM\\MountedDevices", seeded.first.c_str());
    for (auto privilege : {L"SeBackupPrivilege", L"SeRestorePrivilege"}) wrtest::SetProcessPrivilege(privilege, false);
}

}  // namespace
