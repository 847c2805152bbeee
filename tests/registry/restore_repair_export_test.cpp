// The post-restore repair on an offline installation built on a mapped drive: every
// effect is read back from the hives and files, and each hive is unmounted before
// the next step mounts one.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/files_offline.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/registry_fixture.h"
#include "support/wine_env.h"
#include "service/service_test_support.h"

namespace {

using Lines = std::vector<std::string>;
const std::string kPolicies = "Microsoft\\Windows\\CurrentVersion\\Policies";
const std::string kReliability = "Microsoft\\Windows\\CurrentVersion\\Reliability";
const std::string kIntel = "Wow6432Node\\Intel\\irstrt\\Parameters";
const std::string kStamp = "hex(3):00,80,3e,d5,de,b1,9d,01";

// What lies on the offline drive besides what every installation has.
struct Install {
    bool policies = true, shutdownKey = true, intel = true;
    size_t bootstat = 2048;
};

// The running system's Windows folder, as a hooked GetWindowsDirectoryW reports it.
const wchar_t* gWindows = nullptr;
UINT WINAPI FakeWindowsDirectory(LPWSTR out, UINT chars) {
    if (!*gWindows) return SetLastError(ERROR_ACCESS_DENIED), 0;
    return wcscpy_s(out, chars, gWindows) == 0 ? UINT(wcslen(out)) : 0;
}

void Build(const std::wstring& windows, const std::wstring& drive, const Install& in) {
    wrtest::TextHive software;
    if (in.policies)
        software.Key(kPolicies + "\\Explorer").Dword("NoDriveTypeAutoRun", 0x91)
            .Key(kPolicies + "\\System").Dword("EnableLUA", 0).Key(kPolicies + "\\System\\UIPCLogon").Dword("On", 1)
            .Key("Wow6432Node\\" + kPolicies + "\\System").Dword("ConsentPromptBehaviorAdmin", 0);
    software.Key(kReliability).Binary("LastAliveStamp", std::string("\x00\x80\x3e\xd5\xde\xb1\x9d\x01", 8));
    if (in.shutdownKey) software.Key(kReliability + "\\Shutdown");
    if (in.intel) software.Key(kIntel).Dword("CriticalBatteryEnabled", 0);
    ASSERT_TRUE(software.Write(windows + L"\\system32\\config\\software"));
    wrtest::TextHive system;
    system.Key("Select").Dword("Current", 1);
    for (const char* set : {"ControlSet001", "ControlSet002"})
        system.Key(set + std::string("\\Enum\\STORAGE\\Volume\\{9a1}")).Dword("Capabilities", 0)
            .Key(set + std::string("\\Enum\\STORAGE\\Floppy")).Dword("Keep", 1);
    system.Key("ControlSet001\\Enum\\STORAGE\\VolumeSnapshot\\HarddiskVolumeSnapshot1").Dword("Capabilities", 0);
    ASSERT_TRUE(system.Write(windows + L"\\system32\\config\\system"));
    std::string bootstat(in.bootstat, '\0');
    for (size_t i = 0; i < bootstat.size(); ++i) bootstat[i] = char(i % 251);
    ASSERT_TRUE(wrtest::WriteFileBytes(windows + L"\\bootstat.dat", bootstat));
    // A profile named "." and a plain file under Users are no profiles.
    for (const wchar_t* cache : {L"\\Users\\alice\\AppData\\Local\\IconCache.db", L"\\Users\\.x\\AppData\\Local\\IconCache.db",
                                 L"\\Users\\desktop.ini", L"\\Users\\bob\\AppData\\Local\\Other.db"}) {
        wrtest::MakeDirs(drive + std::wstring(cache).substr(0, std::wstring(cache).find_last_of(L'\\')));
        ASSERT_TRUE(wrtest::WriteFileBytes(drive + cache, "cache"));
    }
    SetFileAttributesW((drive + L"\\Users\\alice\\AppData\\Local\\IconCache.db").c_str(),
                       FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    wrtest::MakeDirs(windows + L"\\NTDS");
    for (const wchar_t* file : {L"\\NTDS\\edb.log", L"\\NTDS\\edb.chk", L"\\NTDS\\ntds.dit"})
        ASSERT_TRUE(wrtest::WriteFileBytes(windows + file, "ntds"));
}

// Drops the entries below a removed key: the key names them all.
Lines Topmost(const Lines& removed) {
    Lines out;
    for (const std::string& e : removed) {
        bool under = false;
        for (const std::string& key : removed) under |= key.find(" = ") == std::string::npos && e.rfind(key + "\\", 0) == 0;
        if (!under) out.push_back(e);
    }
    return out;
}

struct RepairCase {
    const char* name;
    WCHAR letter = L'T', fixture = 0;  // the drive the installation is built on, when not `letter`
    DWORD major = 6, minor = 2;
    const wchar_t* windows = nullptr;  // hooked running Windows folder; the real C:\windows otherwise
    Install install = {};
    DWORD result = 0;
    Lines softwareRemoved = {}, softwareAdded = {}, systemRemoved = {}, filesRemoved = {};
    bool bootFlagSet = true;
    Lines calls = {"load software", "unload ZNRegKey", "load software", "unload ZNRegKey", "load system",
                   "unload ZNRegKey", "load software", "unload ZNRegKey"};
    Lines log = {};
};

const Lines kSoftwareRemoved = {kPolicies + "\\System", kReliability + "\\LastAliveStamp = " + kStamp,
                                kIntel + "\\CriticalBatteryEnabled = dword:00000000",
                                "Wow6432Node\\" + kPolicies + "\\System"};
const Lines kSoftwareAdded = {kReliability + "\\Shutdown\\Comment = sz:Tidemark System Deploy",
                              kReliability + "\\Shutdown\\ReasonCode = dword:85000000",
                              kReliability + "\\Shutdown\\Timestamp = " + kStamp,
                              kIntel + "\\CriticalBatteryEnabled = dword:00000001",
                              kIntel + "\\TimerEnabled = dword:00000001"};
const Lines kSystemRemoved = {"ControlSet001\\Enum\\STORAGE\\Volume", "ControlSet001\\Enum\\STORAGE\\VolumeSnapshot",
                              "ControlSet002\\Enum\\STORAGE\\Volume"};
const Lines kCaches = {"Users\\alice\\AppData\\Local\\IconCache.db"};
Lines Logged(const std::string& windows, bool adFiles) {
    Lines log = {"ZN_RepairFileRegistry windows dir: " + windows,
                 "RemoveRegistryUnderSystemHive open ZNRegKey\\CurrentControlSet\\Enum\\STORAGE failed, error: 2",
                 "RemoveRegistryUnderSystemHive delete key VolumeSnapshot error: 2",
                 "RepairIntelRST set CriticalBatteryEnabled to 1", "RepairIntelRST set TimerEnabled to 1"};
    if (adFiles) log.insert(log.end(), {"RemoveADFiles remove " + windows + "\\NTDS\\edb.log", "RemoveADFiles remove " + windows + "\\NTDS\\edb.chk"});
    return log;
}

class RepairFileRegistry : public testing::Test {
protected:
    void TearDown() override {
        for (wchar_t drive : {L'T', L'X'}) wrtest::ClearDrive(drive);
        wrtest::SetProcessPrivilege(L"SeBackupPrivilege", false);
        wrtest::SetProcessPrivilege(L"SeRestorePrivilege", false);
    }

    void Check(const RepairCase& c) {
        SCOPED_TRACE(c.name);
        const std::wstring drive = std::wstring(1, c.fixture ? c.fixture : c.letter) + L":";
        const std::wstring windows = c.windows ? drive : drive + L"\\windows";
        Build(windows, drive, c.install);
        const auto software = wrtest::DumpHive(windows + L"\\system32\\config\\software");
        const auto system = wrtest::DumpHive(windows + L"\\system32\\config\\system");
        const auto files = wrtest::ListTree(drive);
        const std::string bootstat = wrtest::ReadFileBytes(windows + L"\\bootstat.dat");
        gWindows = c.windows;
        std::optional<wrtest::ImportHook> folder;
        if (c.windows) folder.emplace("kernel32.dll", "GetWindowsDirectoryW", reinterpret_cast<void*>(FakeWindowsDirectory));
        wrtest::SavingHiveCalls hives;
        wrtest::LogCapture log;

        EXPECT_EQ(c.result, ZN_RepairFileRegistry(c.letter, c.major, c.minor));

        EXPECT_EQ(c.calls, hives.calls());
        EXPECT_EQ(c.softwareRemoved, Topmost(wrtest::Minus(software, wrtest::DumpHive(windows + L"\\system32\\config\\software"))));
        EXPECT_EQ(c.softwareAdded, wrtest::Minus(wrtest::DumpHive(windows + L"\\system32\\config\\software"), software));
        EXPECT_EQ(c.systemRemoved, Topmost(wrtest::Minus(system, wrtest::DumpHive(windows + L"\\system32\\config\\system"))));
        EXPECT_EQ(c.filesRemoved, wrtest::Minus(files, wrtest::ListTree(drive)));
        EXPECT_EQ(Lines{}, wrtest::Minus(wrtest::ListTree(drive), files)) << "nothing added";
        std::string expected = bootstat;
        if (c.bootFlagSet) expected[11] = 1;
        EXPECT_EQ(expected, wrtest::ReadFileBytes(windows + L"\\bootstat.dat"));
        Lines logged;
        // The open line reports whatever last error the thread holds; only its place is checked.
        for (const std::string& m : log.Messages())
            logged.push_back(m.rfind("[Wrenkit] RegOpenKeyEx", 0) ? m.substr(10) : m.substr(10, m.rfind(' ') - 9) + "*");
        EXPECT_EQ(c.log, logged);
        EXPECT_FALSE(wrtest::ProcessPrivilegeEnabled(L"SeBackupPrivilege"));
        EXPECT_FALSE(wrtest::ProcessPrivilegeEnabled(L"SeRestorePrivilege"));
        TearDown();
    }
};

TEST_F(RepairFileRegistry, EachStepDoesItsJobOnTheOfflineInstallation) {
    const Lines ntds = {"windows\\NTDS\\edb.chk", "windows\\NTDS\\edb.log"};
    const RepairCase cases[] = {
        {.name = "Windows 8 (6.2): every repair, directory logs removed", .softwareRemoved = kSoftwareRemoved,
         .softwareAdded = kSoftwareAdded, .systemRemoved = kSystemRemoved, .filesRemoved = {kCaches[0], ntds[0], ntds[1]},
         .log = Logged("T:\\windows", true)},
        {.name = "Windows 7 (6.1) keeps the directory logs", .minor = 1, .softwareRemoved = kSoftwareRemoved,
         .softwareAdded = kSoftwareAdded, .systemRemoved = kSystemRemoved, .filesRemoved = kCaches,
         .log = Logged("T:\\windows", false)},
        {.name = "Windows 10 (10.0) keeps the directory logs", .major = 10, .minor = 0,
         .softwareRemoved = kSoftwareRemoved, .softwareAdded = kSoftwareAdded, .systemRemoved = kSystemRemoved,
         .filesRemoved = kCaches, .log = Logged("T:\\windows", false)},
        // A root install: "C:\" loses its backslash, so the hives lie under X:\system32.
        {.name = "8.1 root install: missing keys only logged, short bootstat.dat untouched", .letter = L'X', .minor = 3,
         .windows = L"C:\\", .install = {.policies = false, .shutdownKey = false, .intel = false, .bootstat = 100},
         .softwareRemoved = {kReliability + "\\LastAliveStamp = " + kStamp}, .systemRemoved = kSystemRemoved,
         .filesRemoved = {"NTDS\\edb.chk", "NTDS\\edb.log", kCaches[0]}, .bootFlagSet = false,
         .log = {"ZN_RepairFileRegistry windows dir: X:",
                 "RegOpenKeyEx ZNRegKey\\" + kPolicies + " failed, return 2, error: *",
                 "RegOpenKeyEx ZNRegKey\\Wow6432Node\\" + kPolicies + " failed, return 2, error: *",
                 "RepairShutdownEvent open Shutdown under ZNRegKey\\microsoft\\windows\\currentversion\\Reliability error: 2",
                 "RepairBootstat read X:\\bootstat.dat error: 0",
                 "RemoveRegistryUnderSystemHive open ZNRegKey\\CurrentControlSet\\Enum\\STORAGE failed, error: 2",
                 "RemoveRegistryUnderSystemHive delete key VolumeSnapshot error: 2",
                 "RepairIntelRST open ZNRegKey\\" + kIntel + " error: 2",
                 "RemoveADFiles remove X:\\NTDS\\edb.log", "RemoveADFiles remove X:\\NTDS\\edb.chk"}},
        {.name = "Windows folder unknown: nothing done", .windows = L"", .result = ERROR_ACCESS_DENIED,
         .bootFlagSet = false, .calls = {}, .log = {"ZN_RepairFileRegistry get windows directory error: 5"}},
        {.name = "not a letter", .letter = L'1', .fixture = L'T', .windows = L"", .result = ERROR_INVALID_PARAMETER, .bootFlagSet = false,
         .calls = {}, .log = {"ZN_RepairFileRegistry refused: drive letter is missing or not valid"}},
    };
    for (const RepairCase& c : cases) Check(c);
}

// The directory database is re-copied while a service double named NTDS is stopped.
struct NtdsCase {
    const char* name;
    const wchar_t* source = L"S:\\windows\\NTDS";
    WCHAR letter = L't';
    const wchar_t* options = L"";  // the double's; null: no NTDS service at all
    bool stopPending = false;     // a stop that never ends is under way
    DWORD result = 0;
    Lines copied = {}, log = {};
};

TEST(ReCopyNtdsFiles, StopsCopiesToTheOtherLetterAndStarts) {
    const std::string stopped = "ZN_StopService service NTDS stop pending";
    Lines stall(16, stopped);
    stall.insert(stall.end(), {"ZN_StopService service NTDS stop timeout",
                               "ZN_StopService control of service NTDS error: 1061", "ZN_StopService service NTDS stop timeout"});
    Lines twice = {"ZN_ReCopyNtdsFiles ==> t:\\windows\\NTDS"};
    twice.insert(twice.end(), stall.begin(), stall.end());
    twice.insert(twice.end(), stall.begin(), stall.end());
    const NtdsCase cases[] = {
        {.name = "running: stopped, copied, started", .copied = {"windows\\", "windows\\NTDS\\", "windows\\NTDS\\edb.log",
                                                                  "windows\\NTDS\\ntds.dit"},
         .log = {"ZN_ReCopyNtdsFiles ==> t:\\windows\\NTDS", "ZN_StopService service NTDS stop successfully",
                 "ZN_StartService start service NTDS is pendding", "ZN_StartService start service NTDS successfully"}},
        {.name = "a stop that times out twice: 1460, nothing copied", .options = L"--hold-stop 20000",
         .stopPending = true, .result = ERROR_TIMEOUT, .log = twice},
        {.name = "no such service", .options = nullptr, .result = ERROR_SERVICE_DOES_NOT_EXIST,
         .log = {"ZN_ReCopyNtdsFiles ==> t:\\windows\\NTDS", "ZN_StopService open service NTDS error: 1060"}},
        {.name = "no source", .source = L"", .result = 87,
         .log = {"ZN_ReCopyNtdsFiles refused: source folder is missing or not valid"}},
        {.name = "no letter", .letter = L'2', .result = 87,
         .log = {"ZN_ReCopyNtdsFiles refused: destination letter is missing or not valid"}},
    };
    for (const NtdsCase& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ClearDrive(L'S'), wrtest::ClearDrive(L'T');
        wrtest::MakeDirs(L"S:\\windows\\NTDS");
        for (const wchar_t* file : {L"S:\\windows\\NTDS\\ntds.dit", L"S:\\windows\\NTDS\\edb.log"})
            ASSERT_TRUE(wrtest::WriteFileBytes(file, "db"));
        std::optional<svctest::TestService> ntds;
        if (c.options) {
            ntds.emplace(L"NTDS", c.options);
            ntds->Start();
            if (c.stopPending) {
                EXPECT_EQ(0u, ntds->Send(SERVICE_CONTROL_STOP));
            }
        }
        std::optional<svctest::FakeClock> clock;
        if (c.stopPending) clock.emplace();
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_ReCopyNtdsFiles(c.source, c.letter));
        const auto target = wrtest::ListTree(L"T:");
        EXPECT_EQ(c.copied, Lines(target.begin(), target.end()));
        Lines logged;
        for (const std::string& m : log.Messages()) logged.push_back(m.substr(10));
        EXPECT_EQ(c.log, logged);
        if (ntds && !c.stopPending) {
            EXPECT_EQ(DWORD(SERVICE_RUNNING), ntds->state());
        }
    }
    wrtest::ClearDrive(L'S'), wrtest::ClearDrive(L'T');
}

}  // namespace
