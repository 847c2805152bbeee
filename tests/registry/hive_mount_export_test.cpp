// ZN_LoadRegistry / ZN_UnLoadRegistry against the real DLL under Wine. Wine mounts
// only its text hives and never answers 1009, so the repair path is driven through
// a scripted RegLoadKeyW and checked on the file's bytes.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/registry_fixture.h"
#include "support/wine_env.h"

namespace {

using wrtest::Tagged;

constexpr LONG kPass = -1;  // script entry: let the real function answer
constexpr const wchar_t* kPrivileges[] = {L"SeRestorePrivilege", L"SeBackupPrivilege", L"SeSystemProfilePrivilege",
                                          L"SeTakeOwnershipPrivilege"};
const wchar_t kValueKey[] = L"ZNRegKey\\Microsoft\\Windows NT\\CurrentVersion";

bool Enabled(const wchar_t* privilege) { return wrtest::ProcessPrivilegeEnabled(privilege); }

// What a scripted registry call saw and answered.
struct Call {
    bool hklm;
    std::wstring name, file;
    LONG result;
    bool restore, profile, ownership;  // privileges enabled at the time of the call
};

struct Script {
    std::vector<LONG> codes;
    std::vector<Call> calls;
    void* original = nullptr;
    LONG Next() const { return calls.size() < codes.size() ? codes[calls.size()] : kPass; }
    void Record(HKEY root, LPCWSTR name, LPCWSTR file, LONG result) {
        calls.push_back({root == HKEY_LOCAL_MACHINE, name ? name : L"", file ? file : L"", result,
                         Enabled(L"SeRestorePrivilege"), Enabled(L"SeSystemProfilePrivilege"),
                         Enabled(L"SeTakeOwnershipPrivilege")});
    }
};
Script g_load, g_unload;

LONG WINAPI FakeLoad(HKEY root, LPCWSTR name, LPCWSTR file) {
    LONG code = g_load.Next();
    if (code == kPass) code = reinterpret_cast<decltype(&RegLoadKeyW)>(g_load.original)(root, name, file);
    g_load.Record(root, name, file, code);
    return code;
}

LONG WINAPI FakeUnload(HKEY root, LPCWSTR name) {
    LONG code = g_unload.Next();
    if (code == kPass) code = reinterpret_cast<decltype(&RegUnLoadKeyW)>(g_unload.original)(root, name);
    g_unload.Record(root, name, nullptr, code);
    return code;
}

BOOL WINAPI FailingCopy(LPCWSTR, LPCWSTR, BOOL) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

// Scripts one advapi32 registry call of the DLL for the lifetime of the object.
class Scripted {
public:
    Scripted(Script& script, const char* function, void* fake, std::vector<LONG> codes)
        : hook_("ADVAPI32.dll", function, fake) {
        script = Script{std::move(codes), {}, hook_.original<void*>()};
    }
    bool active() const { return hook_.active(); }

private:
    wrtest::ImportHook hook_;
};

// A base block with the given fields (all other words zero) followed by `tail`.
std::string BaseBlock(const char* signature, DWORD primary, DWORD secondary, size_t extraOffset, DWORD extra,
                      DWORD checksum, const std::string& tail) {
    std::string b(512, '\0');
    auto put = [&b](size_t offset, DWORD v) {
        for (int i = 0; i < 4; ++i) b[offset + i] = static_cast<char>(v >> (8 * i));
    };
    b.replace(0, 4, signature);
    put(4, primary);
    put(8, secondary);
    put(extraOffset, extra);
    put(508, checksum);
    return b + tail;
}

std::string Replace(std::string s, const std::string& from, const std::string& to) {
    for (size_t p = s.find(from); p != std::string::npos; p = s.find(from, p + to.size())) s.replace(p, from.size(), to);
    return s;
}

std::wstring ReadProductName() {
    wchar_t value[64] = {};
    DWORD size = sizeof value;
    LONG rc = RegGetValueW(HKEY_LOCAL_MACHINE, kValueKey, L"ProductName", RRF_RT_REG_SZ, nullptr, value, &size);
    return rc == ERROR_SUCCESS ? value : L"<error " + std::to_wstring(rc) + L">";
}

class HiveMount : public testing::Test {
protected:
    void SetUp() override {
        dir_ = wrtest::ExeDir() + L"\\hive_mount";
        wrtest::RemoveTree(dir_);
        wrtest::MakeDirs(dir_);
        hive_ = dir_ + L"\\SOFTWARE";
        // Wine answers 1314 to a load or unload while SeRestore is off, as Windows does.
        for (const wchar_t* p : kPrivileges) wrtest::SetProcessPrivilege(p, false);
        text_ = wrtest::TextHive()
                    .Key("Microsoft\\Windows NT\\CurrentVersion")
                    .Sz("ProductName", "Windows 10 Pro")
                    .Dword("CurrentMajorVersionNumber", 10)
                    .Text();
    }
    void TearDown() override { wrtest::RemoveTree(dir_); }

    // Expected log messages, with {hive} and {bak} standing for the paths in use.
    std::vector<std::string> Lines(const std::vector<std::string>& texts, const std::wstring& hive) const {
        std::vector<std::string> out;
        for (const auto& t : texts)
            out.push_back(Tagged(Replace(Replace(t, "{hive}", wrtest::Narrow(hive)), "{bak}",
                                         wrtest::Narrow(hive + L".BAK"))));
        return out;
    }

    std::wstring dir_, hive_;
    std::string text_;
};

TEST_F(HiveMount, LoadsATextHiveAfterEnablingRestoreAndUnloadsItSilently) {
    ASSERT_TRUE(wrtest::WriteFileBytes(hive_, text_));
    ASSERT_FALSE(Enabled(L"SeRestorePrivilege"));
    wrtest::LogCapture log;
    {
        Scripted load(g_load, "RegLoadKeyW", reinterpret_cast<void*>(FakeLoad), {});  // records only
        ASSERT_TRUE(load.active());
        EXPECT_EQ(0u, ZN_LoadRegistry(hive_.c_str(), L"ZNRegKey"));
    }
    ASSERT_EQ(2u, g_load.calls.size());
    EXPECT_EQ(ERROR_PRIVILEGE_NOT_HELD, g_load.calls[0].result);
    EXPECT_TRUE(g_load.calls[1].restore) << "the retry runs with restore enabled";
    EXPECT_EQ(0, g_load.calls[1].result);
    EXPECT_TRUE(Enabled(L"SeRestorePrivilege")) << "stays enabled for the caller's work";
    EXPECT_TRUE(Enabled(L"SeBackupPrivilege"));
    EXPECT_EQ(L"Windows 10 Pro", ReadProductName());

    EXPECT_EQ(0u, ZN_UnLoadRegistry(L"ZNRegKey"));
    EXPECT_FALSE(wrtest::HklmKeyExists(L"ZNRegKey"));
    EXPECT_EQ(text_, wrtest::ReadFileBytes(hive_)) << "a good hive is not touched";
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(HiveMount, LoadFailuresOtherThanACorruptDatabaseAreLoggedAndReturned) {
    struct Case {
        const char* name;
        bool fileExists;
        std::vector<LONG> codes;
        DWORD result;
        size_t calls;
        bool logged;
    } cases[] = {
        {"missing file, real answer", false, {}, ERROR_FILE_NOT_FOUND, 1, true},
        {"access denied is retried once", true, {ERROR_ACCESS_DENIED, 0}, 0, 2, false},
        {"privilege still not held", true, {ERROR_PRIVILEGE_NOT_HELD, ERROR_PRIVILEGE_NOT_HELD}, 1314, 2, true},
        {"other codes are not retried", true, {ERROR_NOT_REGISTRY_FILE}, ERROR_NOT_REGISTRY_FILE, 1, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        if (c.fileExists) {
            ASSERT_TRUE(wrtest::WriteFileBytes(hive_, text_));
        }
        wrtest::LogCapture log;
        {
            Scripted load(g_load, "RegLoadKeyW", reinterpret_cast<void*>(FakeLoad), c.codes);
            EXPECT_EQ(c.result, ZN_LoadRegistry(hive_.c_str(), L"ZNRegKey"));
        }
        ASSERT_EQ(c.calls, g_load.calls.size());
        for (const auto& call : g_load.calls) {
            EXPECT_TRUE(call.hklm);
            EXPECT_EQ(L"ZNRegKey", call.name);
            EXPECT_EQ(hive_, call.file);
        }
        if (c.calls == 2) {
            EXPECT_TRUE(g_load.calls[1].restore);
        }
        std::vector<std::string> expected;
        if (c.logged) expected = Lines({"ZN_LoadRegistry load {hive} to ZNRegKey error: " + std::to_string(c.result)}, hive_);
        EXPECT_EQ(expected, log.Messages());
        if (c.fileExists) {
            EXPECT_EQ(text_, wrtest::ReadFileBytes(hive_));
        }
        EXPECT_FALSE(wrtest::HklmKeyExists(L"ZNRegKey"));
    }
}

TEST_F(HiveMount, SecondLoadUnderTheSameNameIsRefused) {
    ASSERT_TRUE(wrtest::WriteFileBytes(hive_, text_));
    ASSERT_EQ(0u, ZN_LoadRegistry(hive_.c_str(), L"ZNRegKey"));
    wrtest::LogCapture log;
    EXPECT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), ZN_LoadRegistry(hive_.c_str(), L"ZNRegKey"));
    EXPECT_EQ(Lines({"ZN_LoadRegistry load {hive} to ZNRegKey error: 183"}, hive_), log.Messages());
    EXPECT_EQ(L"Windows 10 Pro", ReadProductName()) << "the first mount is left alone";
    EXPECT_EQ(0u, ZN_UnLoadRegistry(L"ZNRegKey"));
}

TEST_F(HiveMount, RefusesMissingArgumentsWithoutCallingTheRegistry) {
    Scripted load(g_load, "RegLoadKeyW", reinterpret_cast<void*>(FakeLoad), {});
    Scripted unload(g_unload, "RegUnLoadKeyW", reinterpret_cast<void*>(FakeUnload), {});
    const std::wstring path = hive_;
    struct Case {
        const wchar_t* hive;
        const wchar_t* key;
        const char* line;
    } cases[] = {
        {nullptr, L"ZNRegKey", "ZN_LoadRegistry load  to ZNRegKey error: 87"},
        {L"", L"ZNRegKey", "ZN_LoadRegistry load  to ZNRegKey error: 87"},
        {path.c_str(), nullptr, "ZN_LoadRegistry load {hive} to  error: 87"},
        {path.c_str(), L"", "ZN_LoadRegistry load {hive} to  error: 87"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        wrtest::LogCapture log;
        EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), ZN_LoadRegistry(c.hive, c.key));
        EXPECT_EQ(Lines({c.line}, hive_), log.Messages());
    }
    for (const wchar_t* key : {static_cast<const wchar_t*>(nullptr), L""}) {
        wrtest::LogCapture log;
        EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), ZN_UnLoadRegistry(key));
        EXPECT_EQ(Lines({"ZN_UnLoadRegistry unload  error: 87"}, hive_), log.Messages());
    }
    EXPECT_TRUE(g_load.calls.empty());
    EXPECT_TRUE(g_unload.calls.empty());
}

TEST_F(HiveMount, UnloadOfANameNotMountedReturnsTheRegistryError) {
    wrtest::LogCapture log;
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ZN_UnLoadRegistry(L"ZNRegKey"));
    EXPECT_EQ(Lines({"ZN_UnLoadRegistry unload ZNRegKey error: 2"}, hive_), log.Messages());
    EXPECT_FALSE(Enabled(L"SeSystemProfilePrivilege"));
    EXPECT_FALSE(Enabled(L"SeTakeOwnershipPrivilege"));
}

TEST_F(HiveMount, UnloadRetriesOnceWithPrivilegesAndSwitchesTheExtraOnesOff) {
    struct Case {
        const char* name;
        std::vector<LONG> codes;
        DWORD result;
        size_t calls;
    } cases[] = {
        {"retry succeeds", {ERROR_PRIVILEGE_NOT_HELD, kPass}, 0, 2},
        {"retry fails too", {ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED}, ERROR_ACCESS_DENIED, 2},
        {"other codes are not retried", {ERROR_INVALID_HANDLE}, ERROR_INVALID_HANDLE, 1},
    };
    ASSERT_TRUE(wrtest::WriteFileBytes(hive_, text_));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(0u, ZN_LoadRegistry(hive_.c_str(), L"ZNRegKey"));
        for (const wchar_t* p : kPrivileges) wrtest::SetProcessPrivilege(p, false);
        wrtest::LogCapture log;
        {
            Scripted unload(g_unload, "RegUnLoadKeyW", reinterpret_cast<void*>(FakeUnload), c.codes);
            EXPECT_EQ(c.result, ZN_UnLoadRegistry(L"ZNRegKey"));
        }
        ASSERT_EQ(c.calls, g_unload.calls.size());
        EXPECT_TRUE(g_unload.calls[0].hklm);
        EXPECT_EQ(L"ZNRegKey", g_unload.calls[0].name);
        if (c.calls == 2) {
            EXPECT_EQ(L"ZNRegKey", g_unload.calls[1].name);
            EXPECT_TRUE(g_unload.calls[1].restore && g_unload.calls[1].profile && g_unload.calls[1].ownership)
                << "all three enabled for the retry";
            EXPECT_TRUE(Enabled(L"SeRestorePrivilege")) << "restore stays enabled";
        }
        EXPECT_FALSE(Enabled(L"SeSystemProfilePrivilege"));
        EXPECT_FALSE(Enabled(L"SeTakeOwnershipPrivilege"));
        std::vector<std::string> expected;
        if (c.result) expected = Lines({"ZN_UnLoadRegistry unload ZNRegKey error: " + std::to_string(c.result)}, hive_);
        EXPECT_EQ(expected, log.Messages());
        EXPECT_EQ(c.result == 0, !wrtest::HklmKeyExists(L"ZNRegKey"));
        wrtest::RemoveHklmKey(L"ZNRegKey");  // the scripted failures left it mounted
    }
}

TEST_F(HiveMount, CorruptHiveIsReplacedByItsBackupOrHasItsHeaderRewritten) {
    const std::string tail(88, 't'), bakTail(40, 'b');
    const std::string damaged = BaseBlock("junk", 4, 2, 36, 0x1000, 0x11111111, tail);
    const std::string damagedFixed = BaseBlock("regf", 4, 4, 36, 0x1000, 0x66677572, tail);
    const std::string badBackup = BaseBlock("regf", 9, 8, 40, 0x200, 0xDEADBEEF, bakTail);
    const std::string badBackupFixed = BaseBlock("regf", 9, 9, 40, 0x200, 0x66676772, bakTail);
    const std::string shortHive(100, 's');
    const std::string rewritten = "ZN_LoadRegistry {hive} old checksum: 0x11111111, new checksum: 0x66677572";
    const std::string noBackup = "ZN_LoadRegistry not exist {bak}";

    struct Case {
        const char* name;
        std::optional<std::string> hive, backup;
        std::vector<LONG> codes;  // RegLoadKeyW answers in turn
        DWORD result;
        std::vector<std::string> lines;
        std::optional<std::string> hiveAfter;  // unset: unchanged
        bool copyFails = false;
        bool longPath = false;
    } cases[] = {
        {"good backup replaces the hive", damaged, text_, {ERROR_PRIVILEGE_NOT_HELD, ERROR_BADDB, kPass}, 0,
         {"ZN_LoadRegistry use the backup file: {bak}"}, text_},
        {"no backup: header rewritten, last load succeeds", damaged, {}, {ERROR_BADDB, 0}, 0,
         {noBackup, rewritten}, damagedFixed},
        {"no backup: last load fails", damaged, {}, {ERROR_BADDB, ERROR_NOT_REGISTRY_FILE}, ERROR_NOT_REGISTRY_FILE,
         {noBackup, rewritten, "ZN_LoadRegistry load {hive} to ZNRegKey error: 1017"}, damagedFixed},
        {"short file: no rewrite, last load still tried", shortHive, {}, {ERROR_BADDB, ERROR_BADDB}, ERROR_BADDB,
         {noBackup, "ZN_LoadRegistry read {hive} error: 0, readed size: 100",
          "ZN_LoadRegistry load {hive} to ZNRegKey error: 1009"},
         {}},
        {"backup that fails too is rewritten in place", damaged, badBackup, {ERROR_BADDB, ERROR_BADDB, 0}, 0,
         {"ZN_LoadRegistry use the backup file: {bak}", "ZN_LoadRegistry load {hive} to ZNRegKey error: 1009",
          "ZN_LoadRegistry {hive} old checksum: 0xDEADBEEF, new checksum: 0x66676772"},
         badBackupFixed},
        {"backup that cannot be copied", damaged, text_, {ERROR_BADDB, 0}, 0,
         {"ZN_LoadRegistry copy {bak} to {hive} error: 5", rewritten}, damagedFixed, true},
        {"hive file missing: no last load", {}, {}, {ERROR_BADDB}, ERROR_FILE_NOT_FOUND,
         {noBackup, "ZN_LoadRegistry open {hive} error: 2"}, {}},
        // "{hive}.BAK" needs 261 characters: a cut path would name the decoy beside it.
        {"backup path too long for 260 characters", damaged, {}, {ERROR_BADDB, 0}, 0,
         {"ZN_LoadRegistry backup path too long: {hive}.BAK", rewritten}, damagedFixed, false, true},
    };
    for (const auto& c : cases) {
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
        if (c.hive) {
            ASSERT_TRUE(wrtest::WriteFileBytes(hive, *c.hive));
        }
        if (c.backup) {
            ASSERT_TRUE(wrtest::WriteFileBytes(hive + L".BAK", *c.backup));
        }

        wrtest::LogCapture log;
        DWORD result;
        {
            Scripted load(g_load, "RegLoadKeyW", reinterpret_cast<void*>(FakeLoad), c.codes);
            std::optional<wrtest::ImportHook> copy;
            if (c.copyFails) copy.emplace("KERNEL32.dll", "CopyFileW", reinterpret_cast<void*>(FailingCopy));
            result = ZN_LoadRegistry(hive.c_str(), L"ZNRegKey");
        }
        EXPECT_EQ(c.result, result);
        EXPECT_EQ(Lines(c.lines, hive), log.Messages());
        ASSERT_EQ(c.codes.size(), g_load.calls.size()) << "one load per step, the last one only after a rewrite";
        for (const auto& call : g_load.calls) {
            EXPECT_TRUE(call.hklm);
            EXPECT_EQ(L"ZNRegKey", call.name);
            EXPECT_EQ(hive, call.file);
        }
        EXPECT_EQ(c.hiveAfter ? *c.hiveAfter : c.hive.value_or(""), wrtest::ReadFileBytes(hive));
        if (c.backup) {
            EXPECT_EQ(*c.backup, wrtest::ReadFileBytes(hive + L".BAK")) << "the backup is only read";
        }
        if (c.longPath) {
            EXPECT_EQ(text_, wrtest::ReadFileBytes(hive + L".BA")) << "the decoy is never used";
        }

        if (g_load.calls.back().result == 0 && c.codes.back() == kPass) {
            EXPECT_EQ(L"Windows 10 Pro", ReadProductName());
            EXPECT_EQ(0u, ZN_UnLoadRegistry(L"ZNRegKey"));
        }
        EXPECT_FALSE(wrtest::HklmKeyExists(L"ZNRegKey"));
    }
}

}  // namespace
