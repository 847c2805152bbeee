// ZN_LoadRegistry / ZN_UnLoadRegistry against the real DLL under Wine. Wine mounts
// only its text hives and never answers 1009, so the repair path is driven through
// a scripted RegLoadKeyW and checked on the file's bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/registry_fixture.h"
#include "support/wine_env.h"

namespace {

constexpr LONG kPass = -1;  // script entry: let the real function answer
const std::string kLoadError = "ZN_LoadRegistry load {hive} to ZNRegKey error: ";

bool Enabled(const wchar_t* privilege) { return wrtest::ProcessPrivilegeEnabled(privilege); }

// What a scripted registry call saw ("HKLM\name file") and answered, and the
// privileges enabled at the time.
struct Call { std::wstring target; LONG result; bool restore, profile, ownership; };

struct Script {
    std::vector<LONG> codes;  // the answers in turn
    std::vector<Call> calls;
    void* real = nullptr;
    template <typename Real>
    LONG Answer(HKEY root, LPCWSTR name, LPCWSTR file, Real callReal) {
        const LONG next = calls.size() < codes.size() ? codes[calls.size()] : kPass;
        const LONG code = next == kPass ? callReal() : next;
        calls.push_back({(root == HKEY_LOCAL_MACHINE ? L"HKLM\\" : L"?\\") + std::wstring(name ? name : L"") +
                             (file ? L" " + std::wstring(file) : L""),
                         code, Enabled(L"SeRestorePrivilege"), Enabled(L"SeSystemProfilePrivilege"),
                         Enabled(L"SeTakeOwnershipPrivilege")});
        return code;
    }
} g_load, g_unload;

LONG WINAPI FakeLoad(HKEY root, LPCWSTR name, LPCWSTR file) {
    const auto real = reinterpret_cast<decltype(&RegLoadKeyW)>(g_load.real);
    return g_load.Answer(root, name, file, [&] { return real(root, name, file); });
}
LONG WINAPI FakeUnload(HKEY root, LPCWSTR name) {
    const auto real = reinterpret_cast<decltype(&RegUnLoadKeyW)>(g_unload.real);
    return g_unload.Answer(root, name, nullptr, [&] { return real(root, name); });
}
BOOL WINAPI FailingCopy(LPCWSTR, LPCWSTR, BOOL) { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }

// Scripts one advapi32 registry call of the DLL for the lifetime of the object.
struct Scripted : wrtest::ImportHook {
    Scripted(Script& script, const char* function, void* fake, std::vector<LONG> codes)
        : ImportHook("ADVAPI32.dll", function, fake) {
        script = {std::move(codes), {}, original<void*>()};
    }
};

// A base block with the given fields (all other words zero) followed by `tail`.
std::string BaseBlock(const char* signature, DWORD primary, DWORD secondary, size_t extraOffset, DWORD extra,
                      DWORD checksum, const std::string& tail) {
    std::string b(512, '\0');
    b.replace(0, 4, signature);
    for (auto [at, v] : {std::pair<size_t, DWORD>{4, primary}, {8, secondary}, {extraOffset, extra}, {508, checksum}})
        std::memcpy(&b[at], &v, 4);
    return b + tail;
}

// Expected log messages, with {hive} standing for the hive's path.
std::vector<std::string> Lines(std::vector<std::string> texts, const std::wstring& hive) {
    for (auto& t : texts) {
        for (size_t p; (p = t.find("{hive}")) != std::string::npos;) t.replace(p, 6, wrtest::Narrow(hive));
        t = wrtest::Tagged(t);
    }
    return texts;
}

std::wstring ReadProductName() {
    wchar_t value[64] = {};
    DWORD size = sizeof value;
    const LONG rc = RegGetValueW(HKEY_LOCAL_MACHINE, L"ZNRegKey\\Microsoft\\Windows NT\\CurrentVersion",
                                 L"ProductName", RRF_RT_REG_SZ, nullptr, value, &size);
    return rc == ERROR_SUCCESS ? value : L"<error " + std::to_wstring(rc) + L">";
}

struct LoadCase {
    const char* name;
    std::optional<std::string> hive, backup;  // the files' bytes; unset: no file
    std::vector<LONG> codes;                  // RegLoadKeyW's answers, one per expected call
    DWORD result;
    std::vector<std::string> lines;
    std::optional<std::string> hiveAfter = {};  // unset: unchanged
    bool copyFails = false, longPath = false;
};

class HiveMount : public testing::Test {
protected:
    void SetUp() override {
        wrtest::RemoveTree(dir_);
        wrtest::MakeDirs(dir_);
        DropPrivileges();
    }
    void TearDown() override { wrtest::RemoveTree(dir_); }
    // Wine answers 1314 to a load or unload while SeRestore is off, as Windows does.
    static void DropPrivileges() {
        for (const wchar_t* p : {L"SeRestorePrivilege", L"SeBackupPrivilege", L"SeSystemProfilePrivilege",
                                 L"SeTakeOwnershipPrivilege"})
            wrtest::SetProcessPrivilege(p, false);
    }

    void CheckLoad(const LoadCase& c) {
        SCOPED_TRACE(c.name);
        SetUp();
        std::wstring hive = hive_;
        if (c.longPath) {
            const std::wstring folder = dir_ + L"\\" + std::wstring(256 - dir_.size() - 2 - 100, L'l');
            wrtest::MakeDirs(folder);
            hive = folder + L"\\" + std::wstring(100, L'h');
            ASSERT_EQ(256u, hive.size());
            ASSERT_TRUE(wrtest::WriteFileBytes(hive + L".BA", text_));
        }
        ASSERT_TRUE(!c.hive || wrtest::WriteFileBytes(hive, *c.hive));
        ASSERT_TRUE(!c.backup || wrtest::WriteFileBytes(hive + L".BAK", *c.backup));

        wrtest::LogCapture log;
        DWORD result;
        {
            Scripted load(g_load, "RegLoadKeyW", reinterpret_cast<void*>(FakeLoad), c.codes);
            std::optional<wrtest::ImportHook> copy;
            if (c.copyFails) copy.emplace("KERNEL32.dll", "CopyFileW", reinterpret_cast<void*>(FailingCopy));
            result = ZN_LoadRegistry(hive.c_str(), L"ZNRegKey");
        }
        EXPECT_EQ(c.result, result);
        ASSERT_EQ(c.codes.size(), g_load.calls.size()) << "one load per step, the last one only after a rewrite";
        for (const Call& call : g_load.calls) EXPECT_EQ(L"HKLM\\ZNRegKey " + hive, call.target);
        // A load refused for want of privileges is retried with restore; backup and restore stay on for the caller.
        const bool retried = g_load.calls[0].result == ERROR_ACCESS_DENIED || g_load.calls[0].result == 1314;
        EXPECT_TRUE(!retried || g_load.calls[1].restore);
        EXPECT_EQ(retried, Enabled(L"SeRestorePrivilege") && Enabled(L"SeBackupPrivilege"));

        EXPECT_EQ(c.hiveAfter ? *c.hiveAfter : c.hive.value_or(""), wrtest::ReadFileBytes(hive));
        EXPECT_EQ(c.backup.value_or(""), wrtest::ReadFileBytes(hive + L".BAK")) << "the backup is only read";
        EXPECT_EQ(c.longPath ? text_ : "", wrtest::ReadFileBytes(hive + L".BA")) << "the decoy is never used";
        if (g_load.calls.back().result == 0 && c.codes.back() == kPass) {
            EXPECT_EQ(L"Windows 10 Pro", ReadProductName());
            EXPECT_EQ(0u, ZN_UnLoadRegistry(L"ZNRegKey"));
        }
        EXPECT_FALSE(wrtest::HklmKeyExists(L"ZNRegKey"));
        EXPECT_EQ(Lines(c.lines, hive), log.Messages()) << "a successful unload is silent";
    }

    const std::wstring dir_ = wrtest::ExeDir() + L"\\hive_mount", hive_ = dir_ + L"\\SOFTWARE";
    const std::string text_ = wrtest::TextHive().Key("Microsoft\\Windows NT\\CurrentVersion")
                                  .Sz("ProductName", "Windows 10 Pro").Dword("CurrentMajorVersionNumber", 10).Text();
};

TEST_F(HiveMount, LoadRetriesOnceWhenRefusedForPrivilegesAndLogsOtherFailures) {
    const LoadCase cases[] = {
        {"real load, retried with restore", text_, {}, {kPass, kPass}, 0, {}},
        {"missing file, real answer", {}, {}, {kPass}, ERROR_FILE_NOT_FOUND, {kLoadError + "2"}},
        {"access denied is retried once", text_, {}, {ERROR_ACCESS_DENIED, 0}, 0, {}},
        {"privilege still not held", text_, {}, {ERROR_PRIVILEGE_NOT_HELD, ERROR_PRIVILEGE_NOT_HELD}, 1314,
         {kLoadError + "1314"}},
        {"other codes are not retried", text_, {}, {ERROR_NOT_REGISTRY_FILE}, 1017, {kLoadError + "1017"}},
    };
    for (const LoadCase& c : cases) CheckLoad(c);
}

TEST_F(HiveMount, CorruptHiveIsReplacedByItsBackupOrHasItsHeaderRewritten) {
    const std::string tail(88, 't'), bakTail(40, 'b');
    const std::string damaged = BaseBlock("junk", 4, 2, 36, 0x1000, 0x11111111, tail);
    const std::string damagedFixed = BaseBlock("regf", 4, 4, 36, 0x1000, 0x66677572, tail);
    const std::string badBackup = BaseBlock("regf", 9, 8, 40, 0x200, 0xDEADBEEF, bakTail);
    const std::string badBackupFixed = BaseBlock("regf", 9, 9, 40, 0x200, 0x66676772, bakTail);
    const std::string rewritten = "ZN_LoadRegistry {hive} old checksum: 0x11111111, new checksum: 0x66677572";
    const std::string noBackup = "ZN_LoadRegistry not exist {hive}.BAK";
    const std::string useBackup = "ZN_LoadRegistry use the backup file: {hive}.BAK";
    const LoadCase cases[] = {
        {"good backup replaces the hive", damaged, text_, {ERROR_PRIVILEGE_NOT_HELD, ERROR_BADDB, kPass}, 0,
         {useBackup}, text_},
        {"no backup: header rewritten, last load succeeds", damaged, {}, {ERROR_BADDB, 0}, 0, {noBackup, rewritten},
         damagedFixed},
        {"no backup: last load fails", damaged, {}, {ERROR_BADDB, ERROR_NOT_REGISTRY_FILE}, ERROR_NOT_REGISTRY_FILE,
         {noBackup, rewritten, kLoadError + "1017"}, damagedFixed},
        {"short file: no rewrite, last load still tried", std::string(100, 's'), {}, {ERROR_BADDB, ERROR_BADDB},
         ERROR_BADDB, {noBackup, "ZN_LoadRegistry read {hive} error: 0, readed size: 100", kLoadError + "1009"}},
        {"backup that fails too is rewritten in place", damaged, badBackup, {ERROR_BADDB, ERROR_BADDB, 0}, 0,
         {useBackup, kLoadError + "1009", "ZN_LoadRegistry {hive} old checksum: 0xDEADBEEF, new checksum: 0x66676772"},
         badBackupFixed},
        {"backup that cannot be copied", damaged, text_, {ERROR_BADDB, 0}, 0,
         {"ZN_LoadRegistry copy {hive}.BAK to {hive} error: 5", rewritten}, damagedFixed, true},
        {"hive file missing: no last load", {}, {}, {ERROR_BADDB}, ERROR_FILE_NOT_FOUND,
         {noBackup, "ZN_LoadRegistry open {hive} error: 2"}},
        // "{hive}.BAK" needs 261 characters: a cut path would name the decoy beside it.
        {"backup path too long for 260 characters", damaged, {}, {ERROR_BADDB, 0}, 0,
         {"ZN_LoadRegistry refused: backup path is longer than 259 characters", rewritten}, damagedFixed, false, true},
    };
    for (const LoadCase& c : cases) CheckLoad(c);
}

TEST_F(HiveMount, SecondLoadUnderTheSameNameIsRefused) {
    ASSERT_TRUE(wrtest::WriteFileBytes(hive_, text_));
    ASSERT_EQ(0u, ZN_LoadRegistry(hive_.c_str(), L"ZNRegKey"));
    wrtest::LogCapture log;
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, ZN_LoadRegistry(hive_.c_str(), L"ZNRegKey"));
    EXPECT_EQ(Lines({kLoadError + "183"}, hive_), log.Messages());
    EXPECT_EQ(L"Windows 10 Pro", ReadProductName()) << "the first mount is left alone";
    EXPECT_EQ(0u, ZN_UnLoadRegistry(L"ZNRegKey"));
}

TEST_F(HiveMount, RefusesMissingArgumentsWithoutCallingTheRegistry) {
    Scripted load(g_load, "RegLoadKeyW", reinterpret_cast<void*>(FakeLoad), {});
    Scripted unload(g_unload, "RegUnLoadKeyW", reinterpret_cast<void*>(FakeUnload), {});
    const struct { bool unload; const wchar_t *hive, *key; const char* line; } cases[] = {
        {false, nullptr, L"ZNRegKey", "ZN_LoadRegistry load  to ZNRegKey error: 87"},
        {false, L"", L"ZNRegKey", "ZN_LoadRegistry load  to ZNRegKey error: 87"},
        {false, hive_.c_str(), nullptr, "ZN_LoadRegistry load {hive} to  error: 87"},
        {false, hive_.c_str(), L"", "ZN_LoadRegistry load {hive} to  error: 87"},
        {true, nullptr, nullptr, "ZN_UnLoadRegistry unload  error: 87"},
        {true, nullptr, L"", "ZN_UnLoadRegistry unload  error: 87"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        wrtest::LogCapture log;
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, c.unload ? ZN_UnLoadRegistry(c.key) : ZN_LoadRegistry(c.hive, c.key));
        EXPECT_EQ(Lines({c.line}, hive_), log.Messages());
    }
    EXPECT_TRUE(g_load.calls.empty());
    EXPECT_TRUE(g_unload.calls.empty());
}

TEST_F(HiveMount, UnloadRetriesOnceWithPrivilegesAndSwitchesTheExtraOnesOff) {
    // `codes`: RegUnLoadKeyW's answers, one per expected call.
    const struct { const char* name; bool mounted; std::vector<LONG> codes; DWORD result; } cases[] = {
        {"not mounted: the real answers", false, {kPass, kPass}, ERROR_FILE_NOT_FOUND},
        {"retry succeeds", true, {ERROR_PRIVILEGE_NOT_HELD, kPass}, 0},
        {"retry fails too", true, {ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED}, ERROR_ACCESS_DENIED},
        {"other codes are not retried", true, {ERROR_INVALID_HANDLE}, ERROR_INVALID_HANDLE},
    };
    ASSERT_TRUE(wrtest::WriteFileBytes(hive_, text_));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(0u, c.mounted ? ZN_LoadRegistry(hive_.c_str(), L"ZNRegKey") : 0u);
        DropPrivileges();
        wrtest::LogCapture log;
        {
            Scripted unload(g_unload, "RegUnLoadKeyW", reinterpret_cast<void*>(FakeUnload), c.codes);
            EXPECT_EQ(c.result, ZN_UnLoadRegistry(L"ZNRegKey"));
        }
        ASSERT_EQ(c.codes.size(), g_unload.calls.size());
        for (const Call& call : g_unload.calls) EXPECT_EQ(L"HKLM\\ZNRegKey", call.target);
        if (c.codes.size() == 2) {
            EXPECT_TRUE(g_unload.calls[1].restore && g_unload.calls[1].profile && g_unload.calls[1].ownership)
                << "all three enabled for the retry";
            EXPECT_TRUE(Enabled(L"SeRestorePrivilege")) << "restore stays enabled";
        }
        EXPECT_FALSE(Enabled(L"SeSystemProfilePrivilege") || Enabled(L"SeTakeOwnershipPrivilege"));
        std::vector<std::string> expected;
        if (c.result) expected = {"ZN_UnLoadRegistry unload ZNRegKey error: " + std::to_string(c.result)};
        EXPECT_EQ(Lines(expected, hive_), log.Messages());
        EXPECT_EQ(c.mounted && c.result != 0, wrtest::HklmKeyExists(L"ZNRegKey"));
        wrtest::RemoveHklmKey(L"ZNRegKey");  // the scripted failures left it mounted
    }
}

}  // namespace
