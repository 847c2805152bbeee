// The offline-hive exports against the real DLL under Wine: mounting with its repairs,
// startup programs, and the post-restore repair of an installation on a mapped drive.
// Wine mounts only its text hives and never answers 1009, so the repair path runs on a
// scripted RegLoadKeyW and is checked on the file's bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "service/service_test_support.h"
#include "support/files_offline.h"
#include "support/log_capture.h"
#include "support/registry_fixture.h"
#include "support/wine_env.h"

namespace {

using Lines = std::vector<std::string>;
Lines operator+(Lines a, const Lines& b) { return a.insert(a.end(), b.begin(), b.end()), a; }
constexpr LONG kPass = -1;  // scripted answer: the real call's

Lines Logged(const wrtest::LogCapture& log) {
    Lines out;
    for (const std::string& m : log.Messages()) out.push_back(m.substr(10));  // without the tag
    return out;
}

const std::pair<const wchar_t*, char> kPrivileges[] = {{L"SeBackupPrivilege", 'B'}, {L"SeRestorePrivilege", 'R'},
                                                      {L"SeSystemProfilePrivilege", 'P'}, {L"SeTakeOwnershipPrivilege", 'O'}};
// The letters of the privileges the process has enabled.
std::string Held() {
    std::string held;
    for (auto [name, letter] : kPrivileges)
        if (wrtest::ProcessPrivilegeEnabled(name)) held += letter;
    return held;
}
void DropPrivileges() {
    for (auto [name, letter] : kPrivileges) wrtest::SetProcessPrivilege(name, false);
}

// One scripted registry call of the DLL: its answers in turn, and what each call saw.
struct Script {
    std::vector<LONG> codes, answered;
    std::vector<std::wstring> targets;  // "name file"
    std::vector<std::string> held;
    void* real;
    template <typename Real>
    LONG Answer(LPCWSTR name, LPCWSTR file, Real real) {
        const LONG next = answered.size() < codes.size() ? codes[answered.size()] : kPass;
        targets.push_back(std::wstring(name) + (file ? L" " + std::wstring(file) : L""));
        held.push_back(Held());
        return answered.emplace_back(next == kPass ? real() : next);
    }
} g_load, g_unload;
void* g_kernel;  // the real function behind a failing KERNEL32 hook

LONG WINAPI FakeLoad(HKEY root, LPCWSTR name, LPCWSTR file) {
    return g_load.Answer(name, file, [&] { return reinterpret_cast<decltype(&RegLoadKeyW)>(g_load.real)(root, name, file); });
}
LONG WINAPI FakeUnload(HKEY root, LPCWSTR name) {
    return g_unload.Answer(name, nullptr, [&] { return reinterpret_cast<decltype(&RegUnLoadKeyW)>(g_unload.real)(root, name); });
}
BOOL WINAPI FailingCopy(LPCWSTR, LPCWSTR, BOOL) { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }
// Only the header's write fails; the log's own writes go through.
BOOL WINAPI FailingWrite(HANDLE file, LPCVOID data, DWORD size, LPDWORD done, LPOVERLAPPED overlapped) {
    if (size == 512) return SetLastError(ERROR_DISK_FULL), FALSE;
    return reinterpret_cast<decltype(&WriteFile)>(g_kernel)(file, data, size, done, overlapped);
}

// A base block whose other words are zero, then the rest of the file.
std::string Block(const char* signature, DWORD primary, DWORD secondary, DWORD lastWord, DWORD sum, const char* tail) {
    const auto word = [](DWORD v) { return std::string(reinterpret_cast<const char*>(&v), 4); };
    return signature + word(primary) + word(secondary) + std::string(492, '\0') + word(lastWord) + word(sum) + tail;
}

const std::wstring kDir = wrtest::ExeDir() + L"\\hive_mount";
const std::string kText = wrtest::TextHive().Key("Microsoft\\Windows NT\\CurrentVersion").Sz("ProductName", "Windows 10 Pro").Text();
// With "\" and ".BAK" the backup path is 261 characters: cut to 260 it names the decoy "{hive}.BA".
const std::wstring kLongName = std::wstring(256 - kDir.size() - 102, L'l') + L"\\" + std::wstring(100, L'h');

struct HiveCase {
    const char* name;
    std::optional<std::string> hive, backup;  // the files' bytes; unset: no file
    std::vector<LONG> loads;                  // RegLoadKeyW's answers, one per call expected
    DWORD result;
    std::optional<std::vector<LONG>> unloads;  // then ZN_UnLoadRegistry, with RegUnLoadKeyW's answers
    Lines log;                                 // "{hive}" stands for the hive file's path
    std::optional<std::string> after = {};     // the hive's bytes afterwards; unset: unchanged
    const char* fails = nullptr;               // this KERNEL32 call fails: CopyFileW with 5, WriteFile with 112
    const wchar_t *file = L"SOFTWARE", *key = L"ZNRegKey";
};

TEST(HiveMount, LoadRetriesForPrivilegesRepairsACorruptHiveAndUnloadRetriesWithThreePrivileges) {
    const std::string damaged = Block("junk", 4, 2, 0x1000, 0x12345678, "tail"), fixed = Block("regf", 4, 4, 0x1000, 0x66677572, "tail");
    const std::string backup = Block("regf", 9, 8, 0x66676572, 0xDEADBEEF, "bak"), backupFixed = Block("regf", 9, 9, 0x66676572, 0, "bak");
    const std::string loadError = "ZN_LoadRegistry load {hive} to ZNRegKey error: ", noBak = "ZN_LoadRegistry not exist {hive}.BAK";
    const std::string rewrite = "ZN_LoadRegistry {hive} old checksum: 0x12345678, new checksum: 0x66677572";
    const std::string useBak = "ZN_LoadRegistry use the backup file: {hive}.BAK", unloadError = "ZN_UnLoadRegistry unload ZNRegKey error: ";
    const HiveCase cases[] = {
        {"refused for privileges: both retried once with them, two left on", kText, {}, {kPass, kPass}, 0, {{1314, kPass}}, {}},
        {"access denied: both retried, the unload fails again", kText, {}, {ERROR_ACCESS_DENIED, kPass}, 0, {{5, 5}}, {unloadError + "5"}},
        {"other codes are logged, not retried", kText, {}, {1017}, 1017, {}, {loadError + "1017"}},
        {"corrupt: the backup replaces it; other unload codes not retried", damaged, kText, {1314, ERROR_BADDB, kPass}, 0, {{6}}, {useBak, unloadError + "6"}, kText},
        {"no backup: header rewritten, last load fails", damaged, {}, {ERROR_BADDB, 1017}, 1017, {}, {noBak, rewrite, loadError + "1017"}, fixed},
        {"backup loads no better: rewritten in place, XOR 0 stored as 0", damaged, backup, {ERROR_BADDB, ERROR_BADDB, 0}, 0, {}, {useBak, loadError + "1009", "ZN_LoadRegistry {hive} old checksum: 0xDEADBEEF, new checksum: 0x0"}, backupFixed},
        {"backup cannot be copied", damaged, kText, {ERROR_BADDB, 0}, 0, {}, {"ZN_LoadRegistry copy {hive}.BAK to {hive} error: 5", rewrite}, fixed, "CopyFileW"},
        {"short file: not rewritten, last load still tried", "short", {}, {ERROR_BADDB, ERROR_BADDB}, ERROR_BADDB, {}, {noBak, "ZN_LoadRegistry read {hive} error: 0, readed size: 5", loadError + "1009"}},
        {"header write fails: its code, no last load", damaged, {}, {ERROR_BADDB}, ERROR_DISK_FULL, {}, {noBak, rewrite, "ZN_LoadRegistry write {hive} error: 112"}, {}, "WriteFile"},
        {"hive gone: open fails, no last load", {}, {}, {ERROR_BADDB}, 2, {}, {noBak, "ZN_LoadRegistry open {hive} error: 2"}},
        {"backup path too long: refused, never the decoy", damaged, {}, {ERROR_BADDB, 0}, 0, {}, {"ZN_LoadRegistry refused: backup path is longer than 259 characters", rewrite}, fixed, nullptr, kLongName.c_str()},
        {"no hive file", {}, {}, {}, 87, {}, {"ZN_LoadRegistry load  to ZNRegKey error: 87"}, {}, nullptr, nullptr},
        {"no key name", kText, {}, {}, 87, std::vector<LONG>{}, {"ZN_LoadRegistry load {hive} to  error: 87", "ZN_UnLoadRegistry unload  error: 87"}, {}, nullptr, L"SOFTWARE", nullptr},
        {"empty key name", kText, {}, {}, 87, std::vector<LONG>{}, {"ZN_LoadRegistry load {hive} to  error: 87", "ZN_UnLoadRegistry unload  error: 87"}, {}, nullptr, L"SOFTWARE", L""},
    };
    for (const HiveCase& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::RemoveTree(kDir);
        DropPrivileges();
        const std::wstring hive = kDir + L"\\" + (c.file && *c.file ? c.file : L"SOFTWARE");
        wrtest::MakeDirs(hive.substr(0, hive.rfind(L'\\')));
        ASSERT_TRUE(wrtest::WriteFileBytes(hive + L".BA", kText));
        ASSERT_TRUE(!c.hive || wrtest::WriteFileBytes(hive, *c.hive));
        ASSERT_TRUE(!c.backup || wrtest::WriteFileBytes(hive + L".BAK", *c.backup));
        wrtest::LogCapture log;
        {
            wrtest::ImportHook load("ADVAPI32.dll", "RegLoadKeyW", (void*)FakeLoad);
            g_load = {c.loads, {}, {}, {}, load.original<void*>()};
            std::optional<wrtest::ImportHook> fail;
            if (c.fails) fail.emplace("KERNEL32.dll", c.fails, *c.fails == 'W' ? (void*)FailingWrite : (void*)FailingCopy);
            g_kernel = fail ? fail->original<void*>() : nullptr;
            EXPECT_EQ(c.result, ZN_LoadRegistry(c.file && *c.file ? hive.c_str() : c.file, c.key));
        }
        EXPECT_EQ(std::vector<std::wstring>(c.loads.size(), L"ZNRegKey " + hive), g_load.targets) << "the loads made";
        EXPECT_EQ(c.after.value_or(c.hive.value_or("")), wrtest::ReadFileBytes(hive));
        const bool mounted = c.result == 0 && c.loads.back() == kPass;
        EXPECT_EQ(mounted, wrtest::HklmKeyExists(L"ZNRegKey")) << "mounted only by a real last load";
        if (c.unloads) {
            wrtest::ImportHook unload("ADVAPI32.dll", "RegUnLoadKeyW", (void*)FakeUnload);
            g_unload = {*c.unloads, {}, {}, {}, unload.original<void*>()};
            const LONG last = c.unloads->empty() ? 87 : c.unloads->back();
            EXPECT_EQ(DWORD(last == kPass ? 0 : last), ZN_UnLoadRegistry(c.key));
            EXPECT_EQ(c.unloads->size() == 2 ? "BRPO" : "", g_unload.held.size() == 2 ? g_unload.held[1] : "") << "all three for the retry";
        }
        const bool retried = !g_load.answered.empty() && (g_load.answered[0] == 5 || g_load.answered[0] == 1314);
        EXPECT_EQ(retried ? "BR" : "", Held()) << "backup and restore stay on after a retry, the other two do not";
        wrtest::RemoveHklmKey(L"ZNRegKey");  // left mounted by a scripted unload failure
        // Nothing holds the hive open: it opens for writing without sharing.
        HANDLE file = CreateFileW(hive.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_EQ(c.hive.has_value(), file != INVALID_HANDLE_VALUE) << GetLastError();
        if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
        Lines expected = c.log;
        for (std::string& line : expected)
            for (size_t at; (at = line.find("{hive}")) != std::string::npos;) line.replace(at, 6, wrtest::Narrow(hive));
        EXPECT_EQ(expected, Logged(log)) << "a successful load or unload is silent";
    }
    wrtest::RemoveTree(kDir);
}

// An installation on a mapped drive, as keys, values and files: "software KEY", "system
// KEY = VALUE", "file PATH", and "live Agent = DATA" for the running system's Run value.
std::set<std::string> Snapshot(const std::wstring& drive, const std::wstring& windows) {
    std::set<std::string> all;
    for (const std::string hive : {"software", "system"})
        for (const std::string& e : wrtest::DumpHive(windows + L"\\system32\\config\\" + wrtest::Widen(hive))) all.insert(hive + " " + e);
    for (const std::string& e : wrtest::ListTree(drive)) all.insert("file " + e);
    wchar_t live[600] = {};
    DWORD bytes = sizeof live;
    if (!RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run", L"Agent", RRF_RT_REG_SZ, nullptr, live, &bytes))
        all.insert("live Agent = " + wrtest::Narrow(live));
    return all;
}
// "-" and what went, "+" and what came.
std::set<std::string> Changes(const std::set<std::string>& before, const std::set<std::string>& after) {
    std::set<std::string> out;
    for (const std::string& e : wrtest::Minus(before, after)) out.insert("-" + e);
    for (const std::string& e : wrtest::Minus(after, before)) out.insert("+" + e);
    return out;
}

// Startup programs of the running installation (C:) and of an offline one on T:.
const std::string kRun = "Microsoft\\Windows\\CurrentVersion\\Run", kAgent = "\"C:\\Tools\\agent.exe\"";

struct StartupCase {
    const char* name;
    bool add = true;
    WCHAR letter = L'T';
    const wchar_t *value = L"Agent", *program = L"C:\\Tools\\agent.exe", *arguments = nullptr;
    DWORD result = 0;
    Lines changes = {};
    // Adding leaves the privileges to the load, which is refused once and enables them.
    Lines calls = {"load software", "load software", "unload ZNRegKey"}, log = {};
};

TEST(StartupPrograms, AddAndRemoveOnTheRunningAndAnOfflineInstallation) {
    const std::wstring tooLong(520, L'a');
    const Lines removeMount = {"load software", "unload ZNRegKey"};
    const StartupCase cases[] = {
        {.name = "running system by its lower-case letter: live key, no hive", .letter = L'c', .changes = {"+live Agent = " + kAgent}, .calls = {}, .log = {"ZN_AddStartupProcess --> Agent " + kAgent}},
        {.name = "offline, arguments touch the closing quote", .arguments = L"-boot", .changes = {"+software " + kRun + "\\Agent = sz:" + kAgent + "-boot"}, .log = {"ZN_AddStartupProcess --> Agent " + kAgent + "-boot"}},
        {.name = "offline remove enables the privileges first", .add = false, .value = L"Existing", .changes = {"-software " + kRun + "\\Existing = sz:\"C:\\old.exe\""}, .calls = removeMount},
        {.name = "removing a missing value", .add = false, .result = 2, .calls = removeMount, .log = {"ZN_RemoveStartupProcess delete Agent under ZNRegKey\\" + kRun + " error: 2"}},
        {.name = "no installation on the drive", .letter = L'W', .result = 3, .calls = {"load software"}, .log = {"ZN_LoadRegistry load W:\\windows\\system32\\config\\software to ZNRegKey error: 3", "ZN_AddStartupProcess load W:\\windows\\system32\\config\\software error: 3"}},
        {.name = "data longer than a command line", .arguments = tooLong.c_str(), .result = 206, .calls = {}, .log = {"ZN_AddStartupProcess refused: program and arguments is longer than 519 characters"}},
        // Refused without a word: the caller's own mistake.
        {.name = "no letter", .letter = L'1', .result = 87, .calls = {}},
        {.name = "remove without a name", .add = false, .value = nullptr, .result = 87, .calls = {}},
    };
    wrtest::ClearDrive(L'W');  // a drive without an installation
    for (const StartupCase& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(wrtest::TextHive().Key(kRun).Sz("Existing", "\"C:\\old.exe\"").Write(L"T:\\windows\\system32\\config\\software"));
        DropPrivileges();
        const auto before = Snapshot(L"T:", L"T:\\windows");
        wrtest::SavingHiveCalls hives;
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, c.add ? ZN_AddStartupProcess(c.letter, c.value, c.program, c.arguments) : ZN_RemoveStartupProcess(c.letter, c.value));
        EXPECT_EQ(c.calls, hives.calls());
        EXPECT_EQ(std::set<std::string>(c.changes.begin(), c.changes.end()), Changes(before, Snapshot(L"T:", L"T:\\windows")));
        EXPECT_EQ(c.log, Logged(log));
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run", L"Agent");
    }
    wrtest::ClearDrive(L'T');
    DropPrivileges();
}

// The post-restore repair on an installation built on T: (X: for a root install).
const std::string kPolicies = "Microsoft\\Windows\\CurrentVersion\\Policies", kIntel = "Wow6432Node\\Intel\\irstrt\\Parameters";
const std::string kReliability = "Microsoft\\Windows\\CurrentVersion\\Reliability", kStamp = "hex(3):00,80,3e,d5,de,b1,9d,01";

// A `bare` installation has no policies, Shutdown or Intel keys and a bootstat.dat shorter than a block.
void Build(const std::wstring& windows, const std::wstring& drive, bool bare) {
    wrtest::TextHive software, system;
    if (!bare) software.Key(kPolicies + "\\System\\UIPCLogon").Key(kPolicies + "\\Explorer").Key("Wow6432Node\\" + kPolicies + "\\System").Key(kReliability + "\\Shutdown").Key(kIntel).Dword("CriticalBatteryEnabled", 0);
    ASSERT_TRUE(software.Key(kReliability).Binary("LastAliveStamp", std::string("\x00\x80\x3e\xd5\xde\xb1\x9d\x01", 8)).Write(windows + L"\\system32\\config\\software"));
    for (const std::string set : {"ControlSet001", "ControlSet002"}) system.Key(set + "\\Enum\\STORAGE\\Volume\\{9a1}").Key(set + "\\Enum\\STORAGE\\Floppy");
    ASSERT_TRUE(system.Key("ControlSet001\\Enum\\STORAGE\\VolumeSnapshot").Write(windows + L"\\system32\\config\\system"));
    std::string bootstat(bare ? 100 : 2048, '\0');
    for (size_t i = 0; i < bootstat.size(); ++i) bootstat[i] = char(i % 251);
    ASSERT_TRUE(wrtest::WriteFileBytes(windows + L"\\bootstat.dat", bootstat));
    // A profile named "." and a plain file under Users are no profiles.
    for (const std::wstring file : {L"\\Users\\alice\\AppData\\Local\\IconCache.db", L"\\Users\\.x\\AppData\\Local\\IconCache.db", L"\\Users\\desktop.ini",
                                    L"\\Users\\bob\\AppData\\Local\\Other.db", L"\\NTDS\\edb.log", L"\\NTDS\\edb.chk", L"\\NTDS\\ntds.dit"}) {
        const std::wstring path = (file[1] == L'N' ? windows : drive) + file;
        wrtest::MakeDirs(path.substr(0, path.rfind(L'\\')));
        ASSERT_TRUE(wrtest::WriteFileBytes(path, "x"));
    }
    SetFileAttributesW((drive + L"\\Users\\alice\\AppData\\Local\\IconCache.db").c_str(), FILE_ATTRIBUTE_READONLY);
}

// The running Windows folder a hooked GetWindowsDirectoryW reports ("": it fails).
const wchar_t* g_windows;
UINT WINAPI FakeWindowsDirectory(LPWSTR out, UINT chars) {
    if (!*g_windows) return SetLastError(ERROR_ACCESS_DENIED), 0;
    return wcscpy_s(out, chars, g_windows) ? 0 : UINT(wcslen(out));
}

const Lines kSystem = {"-system ControlSet001\\Enum\\STORAGE\\Volume", "-system ControlSet001\\Enum\\STORAGE\\Volume\\{9a1}", "-system ControlSet001\\Enum\\STORAGE\\VolumeSnapshot",
                       "-system ControlSet002\\Enum\\STORAGE\\Volume", "-system ControlSet002\\Enum\\STORAGE\\Volume\\{9a1}",
                       "-software " + kReliability + "\\LastAliveStamp = " + kStamp, "-file Users\\alice\\AppData\\Local\\IconCache.db"};
const Lines kNoAd = kSystem + Lines{"-software " + kPolicies + "\\System", "-software " + kPolicies + "\\System\\UIPCLogon", "-software Wow6432Node\\" + kPolicies + "\\System",
    "-software " + kIntel + "\\CriticalBatteryEnabled = dword:00000000", "+software " + kIntel + "\\CriticalBatteryEnabled = dword:00000001",
    "+software " + kIntel + "\\TimerEnabled = dword:00000001", "+software " + kReliability + "\\Shutdown\\Comment = sz:Tidemark System Deploy",
    "+software " + kReliability + "\\Shutdown\\ReasonCode = dword:85000000", "+software " + kReliability + "\\Shutdown\\Timestamp = " + kStamp};
const Lines kLog = {"ZN_RepairFileRegistry windows dir: T:\\windows", "RemoveRegistryUnderSystemHive open ZNRegKey\\CurrentControlSet\\Enum\\STORAGE failed, error: 2",
                    "RemoveRegistryUnderSystemHive delete key VolumeSnapshot error: 2", "RepairIntelRST set CriticalBatteryEnabled to 1", "RepairIntelRST set TimerEnabled to 1"};

struct RepairCase {
    const char* name;
    WCHAR letter = L'T';
    DWORD major = 6, minor = 2;
    const wchar_t* windows = nullptr;  // the hooked running Windows folder; unset: the real C:\windows
    DWORD result = 0;
    Lines changes = kNoAd + Lines{"-file windows\\NTDS\\edb.chk", "-file windows\\NTDS\\edb.log"};
    bool bootFlag = true;
    Lines calls = {"load software", "unload ZNRegKey", "load software", "unload ZNRegKey", "load system", "unload ZNRegKey", "load software", "unload ZNRegKey"};
    Lines log = kLog + Lines{"RemoveADFiles remove T:\\windows\\NTDS\\edb.log", "RemoveADFiles remove T:\\windows\\NTDS\\edb.chk"};
};

TEST(RepairFileRegistry, EachStepDoesItsJobOnTheOfflineInstallation) {
    const RepairCase cases[] = {
        {.name = "Windows 8 (6.2): every repair, directory logs removed"},
        {.name = "Windows 7 (6.1) keeps the directory logs", .minor = 1, .changes = kNoAd, .log = kLog},
        {.name = "Windows 10 (10.0) keeps the directory logs", .major = 10, .minor = 0, .changes = kNoAd, .log = kLog},
        // A root install: "C:\" loses its backslash, so the hives lie under X:\system32.
        {.name = "8.1 root install: missing keys only logged, short bootstat.dat untouched", .letter = L'X', .minor = 3, .windows = L"C:\\", .changes = kSystem + Lines{"-file NTDS\\edb.chk", "-file NTDS\\edb.log"}, .bootFlag = false,
         .log = {"ZN_RepairFileRegistry windows dir: X:", "RegOpenKeyEx ZNRegKey\\" + kPolicies + " failed, return 2, error: *", "RegOpenKeyEx ZNRegKey\\Wow6432Node\\" + kPolicies + " failed, return 2, error: *",
                 "RepairShutdownEvent open Shutdown under ZNRegKey\\microsoft\\windows\\currentversion\\Reliability error: 2", "RepairBootstat read X:\\bootstat.dat error: 0", kLog[1], kLog[2],
                 "RepairIntelRST open ZNRegKey\\" + kIntel + " error: 2", "RemoveADFiles remove X:\\NTDS\\edb.log", "RemoveADFiles remove X:\\NTDS\\edb.chk"}},
        {.name = "Windows folder unknown: nothing done", .windows = L"", .result = 5, .changes = {}, .bootFlag = false, .calls = {}, .log = {"ZN_RepairFileRegistry get windows directory error: 5"}},
        {.name = "not a letter", .letter = L'1', .windows = L"", .result = 87, .changes = {}, .bootFlag = false, .calls = {}, .log = {"ZN_RepairFileRegistry refused: drive letter is missing or not valid"}},
    };
    for (const RepairCase& c : cases) {
        SCOPED_TRACE(c.name);
        const std::wstring drive = c.letter == L'X' ? L"X:" : L"T:", windows = c.windows ? drive : drive + L"\\windows";
        Build(windows, drive, c.windows && *c.windows);
        const auto before = Snapshot(drive, windows);
        std::string bootstat = wrtest::ReadFileBytes(windows + L"\\bootstat.dat");
        g_windows = c.windows;
        std::optional<wrtest::ImportHook> folder;
        if (c.windows) folder.emplace("KERNEL32.dll", "GetWindowsDirectoryW", (void*)FakeWindowsDirectory);
        wrtest::SavingHiveCalls hives;
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_RepairFileRegistry(c.letter, c.major, c.minor));
        EXPECT_EQ(c.calls, hives.calls());
        EXPECT_EQ(std::set<std::string>(c.changes.begin(), c.changes.end()), Changes(before, Snapshot(drive, windows)));
        if (c.bootFlag) bootstat[11] = 1;
        EXPECT_EQ(bootstat, wrtest::ReadFileBytes(windows + L"\\bootstat.dat"));
        Lines logged = Logged(log);
        // The open line reports whatever last error the thread holds; only its place is checked.
        for (std::string& m : logged)
            if (m.rfind("RegOpenKeyEx", 0) == 0) m = m.substr(0, m.rfind(' ') + 1) + "*";
        EXPECT_EQ(c.log, logged);
        EXPECT_EQ("", Held()) << "backup and restore are switched off after the series";
        wrtest::ClearDrive(L'T'), wrtest::ClearDrive(L'X');
    }
}

// The directory database is re-copied while a service double named NTDS is stopped.
TEST(ReCopyNtdsFiles, StopsCopiesToTheOtherLetterAndStarts) {
    Lines stall(16, "ZN_StopService service NTDS stop pending");
    stall = stall + Lines{"ZN_StopService service NTDS stop timeout", "ZN_StopService control of service NTDS error: 1061", "ZN_StopService service NTDS stop timeout"};
    const struct { const char* name; const wchar_t* source; WCHAR letter; const wchar_t* options; DWORD result; Lines copied, log; } cases[] = {
        {"running: stopped, copied, started", L"S:\\windows\\NTDS", L't', L"", 0, {"windows\\", "windows\\NTDS\\", "windows\\NTDS\\edb.log", "windows\\NTDS\\ntds.dit"},
         {"ZN_ReCopyNtdsFiles ==> t:\\windows\\NTDS", "ZN_StopService service NTDS stop successfully", "ZN_StartService start service NTDS is pendding", "ZN_StartService start service NTDS successfully"}},
        {"a stop that times out twice: 1460, nothing copied", L"S:\\windows\\NTDS", L't', L"--hold-stop 20000", 1460, {}, Lines{"ZN_ReCopyNtdsFiles ==> t:\\windows\\NTDS"} + stall + stall},
        {"no source", L"", L't', nullptr, 87, {}, {"ZN_ReCopyNtdsFiles refused: source folder is missing or not valid"}},
        {"no letter", L"S:\\windows\\NTDS", L'2', nullptr, 87, {}, {"ZN_ReCopyNtdsFiles refused: destination letter is missing or not valid"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ClearDrive(L'S'), wrtest::ClearDrive(L'T');
        wrtest::MakeDirs(L"S:\\windows\\NTDS");
        for (const wchar_t* file : {L"S:\\windows\\NTDS\\ntds.dit", L"S:\\windows\\NTDS\\edb.log"}) ASSERT_TRUE(wrtest::WriteFileBytes(file, "db"));
        std::optional<svctest::TestService> ntds;
        std::optional<svctest::FakeClock> clock;
        if (c.options) ntds.emplace(L"NTDS", c.options), ntds->Start();
        if (c.result == ERROR_TIMEOUT) {  // a stop that never ends is under way
            EXPECT_EQ(0u, ntds->Send(SERVICE_CONTROL_STOP));
            clock.emplace();
        }
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_ReCopyNtdsFiles(c.source, c.letter));
        const auto target = wrtest::ListTree(L"T:");
        EXPECT_EQ(c.copied, Lines(target.begin(), target.end()));
        EXPECT_EQ(c.log, Logged(log));
    }
    wrtest::ClearDrive(L'S'), wrtest::ClearDrive(L'T');
}

}  // namespace
