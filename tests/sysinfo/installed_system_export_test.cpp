// Installations on mapped letters through the real DLL under Wine: the four readers of
// an installation's SOFTWARE hive side by side, each row one prepared drive, with the
// unloads they made and every line they logged.
#include <optional>

#include "Wrenkits.h"
#include "support/registry_fixture.h"
#include "sysinfo/sysinfo_test_support.h"

using namespace sitest;

namespace {

constexpr DWORD kPoison = 0xDEADBEEF;
std::string V(DWORD value) { return value == kPoison || value == 0xEE ? "-" : U(value); }  // "-": untouched
Lines g_unloads;
void* g_realA;
void* g_realW;
LONG WINAPI UnloadA(HKEY root, LPCSTR name) {
    g_unloads.push_back(std::string("A ") + name);
    return reinterpret_cast<decltype(&RegUnLoadKeyA)>(g_realA)(root, name);
}
LONG WINAPI UnloadW(HKEY root, LPCWSTR name) {
    g_unloads.push_back("W " + wrtest::Narrow(name));
    return reinterpret_cast<decltype(&RegUnLoadKeyW)>(g_realW)(root, name);
}

std::string Software(const char* version, bool pair, bool withVersion = true) {
    wrtest::TextHive h;
    h.Key("Microsoft\\Windows NT\\CurrentVersion").Sz("ProductName", pair ? "Windows 10 Pro" : "Windows 7 Professional");
    h.Sz("PathName", pair ? "C:\\Windows" : "D:\\WINDOWS");
    if (withVersion) h.Sz("CurrentVersion", version);
    if (pair) h.Dword("CurrentMajorVersionNumber", 10).Dword("CurrentMinorVersionNumber", 0);
    return h.Text();
}

TEST(InstalledSystem, OfflineInstallationsAreReadFromTheirHiveAndAlwaysUnmounted) {
    const std::string libLoad = "ZN_LoadRegistry load S:\\";
    const Lines all = {"W ZNRegKey", "W ZNSoftware", "W ZNRegKey", "A ZNSoftware"};
    // What each reader answers: ZN_GetOsVersionEx "result major minor x64 product|path",
    // ZN_GetSystemInfoFromPartition "result major minor x64", ZN_GetSystemInfo "result major minor path".
    const struct { const char* name; wchar_t letter; std::optional<std::string> hive; bool drivers, x64; std::string ex, part, info; BOOL system; Lines unloads, log; } rows[] = {
        {"DWORD pair, 64-bit", L'S', Software("6.3", true), true, true, "0 10 0 1 Windows 10 Pro|C:\\Windows", "1 6 3 1", "1 6 3 S:\\Windows", TRUE, all, {"ZN_GetSystemInfoFromPartition ---#--> S: X64: 1, system version: 6 3"}},
        {"\"6.1\" only, 32-bit", L's', Software("6.1", false), true, false, "0 6 1 0 Windows 7 Professional|D:\\WINDOWS", "1 6 1 0", "1 6 1 s:\\WINDOWS", TRUE, all, {"ZN_GetSystemInfoFromPartition ---#--> s: X64: 0, system version: 6 1"}},
        {"no drivers folder: silent 0 where it is required", L'S', Software("10.0", false), false, true, "0 10 0 1 Windows 7 Professional|D:\\WINDOWS", "0 0 0 1", "1 10 0 S:\\WINDOWS", FALSE, {"W ZNRegKey", "W ZNRegKey"}, {}},
        {"key without CurrentVersion: failed, still unmounted", L'S', Software("", false, false), true, false, "2 - - - |", "0 0 0 0", "0 - - ", FALSE, all, {"ZN_GetOsVersionEx get CurrentVersion error: 2", "ZN_GetSystemInfoFromPartition get CurrentVersion in registry error: 2", "ZN_GetSystemInfo get CurrentVersion from ZNRegKey\\Microsoft\\Windows NT\\CurrentVersion error: 2"}},
        {"hive that will not load", L'S', "junk", true, false, "1017 - - - |", "0 0 0 0", "0 - - ", FALSE, {}, {"ZN_GetOsVersionEx load S:\\Windows\\System32\\Config\\SOFTWARE error: 1017", libLoad + "WINDOWS\\system32\\config\\SOFTWARE to ZNSoftware error: 1017", "ZN_GetSystemInfoFromPartition load S error: 1017", libLoad + "Windows\\System32\\Config\\SOFTWARE to ZNRegKey error: 1017", libLoad + "WINDOWS\\system32\\config\\SOFTWARE to ZNSoftware error: 1017", "ZN_IsSystemPartition load S:\\WINDOWS\\system32\\config\\SOFTWARE error: 1017"}},
        // Wine records no "PathName": the outputs read before it keep their values.
        {"the running system in lower case: nothing mounted", L'c', {}, true, true, "2 6 1 1 Microsoft Windows 7|", "1 6 1 1", "0 6 1 ", TRUE, {}, {"ZN_GetOsVersionEx get PathName error: 2", "ZN_GetSystemInfo get PathName from SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion error: 2"}},
        {"a digit is no letter", L'1', {}, false, false, "87 - - - |", "0 0 0 0", "0 - - ", FALSE, {}, {"ZN_GetSystemInfo refused: the drive letter is missing or not valid", "ZN_IsSystemPartition refused: the drive letter is missing or not valid"}},
    };
    wrtest::ImportHook a("ADVAPI32.dll", "RegUnLoadKeyA", reinterpret_cast<void*>(UnloadA));
    wrtest::ImportHook w("ADVAPI32.dll", "RegUnLoadKeyW", reinterpret_cast<void*>(UnloadW));
    g_realA = a.original<void*>();
    g_realW = w.original<void*>();
    // Each reader on its own: Wine leaves an empty key behind a failed load.
    const auto clean = [] { for (const wchar_t* n : wrtest::kMountNames) wrtest::RemoveHklmKey(n); };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        if (r.hive) {
            wrtest::RemoveTree(L"S:\\Windows");
            wrtest::RemoveTree(L"S:\\Program Files (x86)");
            wrtest::MakeDirs(L"S:\\Windows\\System32\\Config");
            ASSERT_TRUE(wrtest::WriteFileBytes(L"S:\\Windows\\System32\\Config\\SOFTWARE", *r.hive));
            if (r.drivers) wrtest::MakeDirs(L"S:\\Windows\\System32\\drivers");
            if (r.x64) wrtest::MakeDirs(L"S:\\Windows\\SysWOW64"), wrtest::MakeDirs(L"S:\\Program Files (x86)");
        }
        g_unloads.clear();
        wrtest::LogCapture log;
        wrtest::SetProcessPrivilege(L"SeRestorePrivilege", false);
        DWORD major = kPoison, minor = kPoison, is64 = kPoison;
        wchar_t product[64] = L"", path[64] = L"";
        const DWORD ex = ZN_GetOsVersionEx(r.letter, &major, &minor, &is64, product, 64, path, 64);
        EXPECT_EQ(r.ex, U(ex) + " " + V(major) + " " + V(minor) + " " + V(is64) + " " + wrtest::Narrow(product) + "|" + wrtest::Narrow(path));
        EXPECT_FALSE(wrtest::ProcessPrivilegeEnabled(L"SeRestorePrivilege")) << "privileges given back";
        clean();
        const BOOL part = ZN_GetSystemInfoFromPartition(char(r.letter), &major, &minor, &is64);
        EXPECT_EQ(r.part, U(part) + " " + U(major) + " " + U(minor) + " " + U(is64));
        clean();
        BYTE im = 0xEE, in = 0xEE;
        wchar_t installed[100] = L"";
        const BOOL info = ZN_GetSystemInfo(r.letter, &im, &in, nullptr, nullptr, installed);
        EXPECT_EQ(r.info, U(info) + " " + V(im) + " " + V(in) + " " + wrtest::Narrow(installed));
        clean();
        EXPECT_EQ(r.system, ZN_IsSystemPartition(r.letter));
        clean();
        EXPECT_EQ(r.unloads, g_unloads);
        EXPECT_EQ(Tagged(r.log), log.Messages());
    }
    wrtest::RemoveTree(L"S:\\Windows");
    wrtest::RemoveTree(L"S:\\Program Files (x86)");
}

}  // namespace
