// Every export called with hostile arguments, one argument position at a time, the
// others benign: no crash, the documented refusal, nothing written past a buffer and,
// for a refusal, no output touched. The kinds of argument come from each parameter's
// type; a row names the export and what each position must answer.
#include <windows.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/tool_double.h"

namespace {

constexpr unsigned char kCanary = 0xbd;
constexpr size_t kCanaryBytes = 16;

// The blocks of one call: each buffer is followed by canary bytes, and its first
// contents are kept to tell whether the export wrote it.
class Arena {
public:
    void* Block(size_t bytes, const void* init = nullptr) {
        auto& b = blocks_.emplace_back(std::vector<unsigned char>(bytes + kCanaryBytes, kCanary));
        if (init) memcpy(b.data(), init, bytes);
        firsts_.push_back(b);
        return b.data();
    }
    std::string Overrun() const {
        for (size_t i = 0; i < blocks_.size(); ++i)
            for (size_t at = blocks_[i].size() - kCanaryBytes; at < blocks_[i].size(); ++at)
                if (blocks_[i][at] != kCanary) return "written past buffer " + std::to_string(i);
        return "";
    }
    bool Untouched() const { return blocks_ == firsts_; }

private:
    std::vector<std::vector<unsigned char>> blocks_, firsts_;
};

// Which part of a position's expectation applies: null, empty, long (32767), over the
// limit (261; the long part unless a fourth is given), other (259, 260: unchecked).
enum Class { kNull, kEmpty, kLong, kOverLimit, kOther };
template <typename T>
struct Kind {
    const char* label;
    Class cls;
    std::function<T(Arena&)> make;
};

bool g_unc = false;  // the row in progress takes network paths

template <typename Char>
const Char* Text(Arena& a, size_t chars) {  // "Q:\aaa..." or "\\s\aaa...", `chars` characters long
    std::basic_string<Char> s(chars, Char('a'));
    const char* head = g_unc ? "\\\\s\\" : "Q:\\";
    for (size_t i = 0; head[i] && i < chars; ++i) s[i] = Char(head[i]);
    return static_cast<const Char*>(a.Block((chars + 1) * sizeof(Char), s.c_str()));
}

template <typename T, typename = void>
struct Kinds;  // by parameter type
template <typename Char>
struct TextKinds {
    static const Char* Base(Arena& a) { return Text<Char>(a, 8); }
    static std::vector<Kind<const Char*>> Hostile() {
        std::vector<Kind<const Char*>> k = {{"NULL", kNull, [](Arena&) { return nullptr; }}};
        for (auto [label, cls, n] : {std::tuple<const char*, Class, size_t>{"empty", kEmpty, 0}, {"259 chars", kOther, 259},
                                     {"260 chars", kOther, 260}, {"261 chars", kOverLimit, 261}, {"32767 chars", kLong, 32767}})
            k.push_back({label, cls, [n](Arena& a) { return Text<Char>(a, n); }});
        return k;
    }
};
template <> struct Kinds<const wchar_t*> : TextKinds<wchar_t> {};
template <> struct Kinds<const char*> : TextKinds<char> {};

// What the row in progress gives its exports: text buffers' size and the benign letter.
size_t g_textChars = MAX_PATH;
char g_letter = 'Q';

template <typename T>  // outputs: text buffers of the documented size, single records, a count of 1
struct Kinds<T*, std::enable_if_t<!std::is_const_v<T>>> {
    static T* Base(Arena& a) {
        using E = std::conditional_t<std::is_void_v<T>, char, T>;
        const DWORD one = 1;
        if constexpr (std::is_same_v<E, DWORD>) return static_cast<T*>(a.Block(sizeof(DWORD), &one));
        constexpr bool text = std::is_same_v<E, char> || std::is_same_v<E, wchar_t>;
        return static_cast<T*>(a.Block(sizeof(E) * (text ? g_textChars : 1)));
    }
    static std::vector<Kind<T*>> Hostile() { return {{"NULL", kNull, [](Arena&) { return nullptr; }}}; }
};
template <>  // an input record of canary bytes: every text field unterminated
struct Kinds<const AdapterInfo*> {
    static const AdapterInfo* Base(Arena& a) { return static_cast<AdapterInfo*>(a.Block(sizeof(AdapterInfo))); }
    static std::vector<Kind<const AdapterInfo*>> Hostile() { return {{"NULL", kNull, [](Arena&) { return nullptr; }}}; }
};

template <typename T>
std::vector<Kind<T>> Values(std::initializer_list<std::pair<const char*, T>> values) {
    std::vector<Kind<T>> k;
    for (auto [label, v] : values) k.push_back({label, kNull, [v](Arena&) { return v; }});
    return k;
}
template <typename T>  // drive letters by value
struct Kinds<T, std::enable_if_t<std::is_same_v<T, wchar_t> || std::is_same_v<T, char>>> {
    static T Base(Arena&) { return g_letter; }
    static std::vector<Kind<T>> Hostile() {
        return Values<T>({{"letter 0", 0}, {"letter '1'", '1'}, {"letter '?'", '?'},
                             {"letter 0xE9", static_cast<T>(0xE9)}, {"letter 0xFFFF", static_cast<T>(0xFFFF)}});
    }
};
template <typename T>  // numbers: disks, partitions, volumes, operations, versions, capacities, flags
struct Kinds<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, wchar_t> && !std::is_same_v<T, char>>> {
    static T Base(Arena&) { return std::is_same_v<T, LONGLONG> ? 1536 : std::is_same_v<T, DWORD> ? MAX_PATH : 1; }
    static std::vector<Kind<T>> Hostile() {
        if constexpr (sizeof(T) == 1) return Values<T>({{"0", 0}, {"255", 255}});
        if constexpr (std::is_same_v<T, LONGLONG>)
            return Values<T>({{"0", 0}, {"-1", -1}, {"max", LLONG_MAX}, {"min", LLONG_MIN}});
        return Values<T>({{"0", 0}, {"4", 4}, {"499", 499}, {"500", 500}, {"all ones", static_cast<T>(~0ull)}});
    }
};

// One position's expectation: "null/empty/long[/261]", each part "-" (any), a number, "F"
// (zero result), "FN" (zero result, last error N) or "T" (non-zero result).
bool Meets(const std::string& want, long long result, DWORD error) {
    if (want == "-") return true;
    if (want == "T") return result != 0;
    if (want[0] == 'F') return result == 0 && (want.size() == 1 || error == std::stoul(want.substr(1)));
    return result == std::stoll(want);
}
std::string Part(const std::string& token, Class cls) {
    std::vector<std::string> parts;
    std::stringstream in(token);
    for (std::string p; std::getline(in, p, '/');) parts.push_back(p);
    if (cls == kOther || parts.empty()) return "-";
    if (cls == kLong) return parts.size() > 2 ? parts[2] : "-";
    if (cls == kOverLimit) return parts.size() > 3 ? parts[3] : parts.size() > 2 ? parts[2] : "-";
    return cls == kEmpty && parts.size() > 1 ? parts[1] : parts[0];
}
bool IsRefusal(const std::string& want) { return want == "87" || want == "206" || want == "F87" || want == "F206"; }

template <typename R>
long long AsNumber(R r) {
    if constexpr (std::is_pointer_v<R>) {
        if (std::is_same_v<R, HANDLE> && r) CloseHandle(r);  // a token handed to the caller
        return r != nullptr;
    } else {
        return static_cast<long long>(r);
    }
}

struct Row {
    const char* name;
    std::function<void(const Row&)> sweep;
    const char* expect;  // one token per argument position, blank-separated
    bool writesBeforeRefusing = false;
    size_t textChars = MAX_PATH;
    char letter = 'Q';  // no such drive: nothing found, nothing acted on; 'C' for exports that only read
    bool unc = false;
};

template <size_t I, typename R, typename... A>
void SweepPosition(const Row& row, R(WINAPI* fn)(A...), const std::string& token) {
    using T = std::tuple_element_t<I, std::tuple<A...>>;
    for (const Kind<T>& kind : Kinds<T>::Hostile()) {
        Arena arena;
        std::tuple<A...> args{Kinds<A>::Base(arena)...};
        std::get<I>(args) = kind.make(arena);
        SetLastError(0xdeadbeef);
        const long long result = AsNumber(std::apply(fn, args));
        const DWORD error = GetLastError();
        const std::string want = Part(token, kind.cls);
        const std::string where = std::string(row.name) + " argument " + std::to_string(I + 1) + " " + kind.label;
        EXPECT_TRUE(Meets(want, result, error)) << where << ": got " << result << " (last error " << error << "), want " << want;
        EXPECT_EQ("", arena.Overrun()) << where;
        EXPECT_TRUE(!IsRefusal(want) || row.writesBeforeRefusing || arena.Untouched()) << where << ": refused but wrote an output";
    }
}

template <typename R, typename... A>
std::function<void(const Row&)> Sweep(R(WINAPI* fn)(A...)) {
    return [fn](const Row& row) {
        std::stringstream in(row.expect);
        std::vector<std::string> tokens;
        for (std::string t; in >> t;) tokens.push_back(t);
        tokens.resize(sizeof...(A), "-");
        if constexpr (sizeof...(A) == 0) {
            (void)AsNumber(fn());
        } else {
            [&]<size_t... I>(std::index_sequence<I...>) { (SweepPosition<I>(row, fn, tokens[I]), ...); }
            (std::index_sequence_for<A...>{});
        }
    };
}

#define ROW(fn, ...) Row{#fn, Sweep(&fn), __VA_ARGS__}

// Whatever would act on the machine answers as a machine without it would. On x64 the
// caller removes the arguments, so a fake that ignores them need not declare them.
BOOL WINAPI Denied() { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }
BOOL WINAPI NoDevice() { return SetLastError(ERROR_INVALID_FUNCTION), FALSE; }
DWORD WINAPI NoNetwork() { return ERROR_NO_NETWORK; }
HRESULT WINAPI NoClass(REFCLSID, void*, DWORD, REFIID, LPVOID* out) { return *out = nullptr, REGDB_E_CLASSNOTREG; }

const Row kRows[] = {
    ROW(ZN_RunProcess, "87/-/206/- -/-/206/-"),
    ROW(ZN_RunProcessA, "87/-/206/- -/-/206/-"),
    ROW(ZN_TranslateSize, "- -1"),
    ROW(ZN_CompareStringA, "15/-1 15/1"),
    ROW(ZN_CompareStringW, "15/-1 15/1"),
    ROW(ZN_SetEfiEntry, "-"),
    ROW(ZN_AddEfiEntry, "-"),
    ROW(ZN_RemoveBcdEntry, "87/87/206"),
    ROW(ZN_GenerateBootFiles, "87 87"),
    ROW(ZN_RepairBcdEntry, "- 87"),
    ROW(ZN_MountPartition, "- - 87"),
    ROW(ZN_GetVolumeNum, "- - 87"),
    ROW(ZN_GetVolumeDisk, "87 87", false, MAX_PATH, 'C'),
    ROW(ZN_GetVolumeMinSize, "87 - 87", false, MAX_PATH, 'C'),
    ROW(ZN_GetFSType, "F F87"),
    ROW(ZN_IsUsbPartition, "F"),
    ROW(ZN_GetPathType, "-1/-1"),
    ROW(ZN_IsRemoteDrive, "F87", false, MAX_PATH, 'C'),
    ROW(ZN_RepairDosDevice, "87 87/-"),
    ROW(ZN_RepairDosDeviceA, "87 87/-"),
    ROW(ZN_ClearDosDevice, "87"),
    ROW(ZN_GetDoscharMapA, "87 87", false, ZN_LETTER_MAP_CHARS),
    ROW(ZN_CopyDiskGuid, "-"),
    ROW(ZN_IsSystemPartition, "F"),
    ROW(ZN_IsBootPartition, "F"),
    ROW(ZN_GetFreeDriveLetter, "-"),
    ROW(ZN_GetBitLockerVolumes, "-2147024809"),
    ROW(ZN_CreatePath, "0/0/87"),
    ROW(ZN_CreateFilePath, "0/0/87"),
    ROW(ZN_CreateFilePathA, "0/0/87"),
    ROW(ZN_RemoveDirectory, "87/87/206"),
    ROW(ZN_CopyFolder, "87/87/206 87/87"),
    ROW(ZN_CopyFolderEx, "87/87/206 87/87"),
    ROW(ZN_IsEmptyFolder, "T/T/T"),
    ROW(ZN_RegActiveX, "87/87/206"),
    ROW(ZN_CheckPath, "-/-/206 -/-/206 - 87 87 87 87", true, MAX_PATH, 'Q', true),  // flags set as it classifies
    ROW(ZN_CopyDirData, "87 87 206"),
    ROW(ZN_CopyDirDataX, "87 87 206"),
    ROW(ZN_CopyDirDataX2, "87 87 206"),
    ROW(ZN_ConnectNetworkPath, "87/-/206 87/-/206 87/-", false, MAX_PATH, 'Q', true),
    ROW(ZN_ConnectNetworkPathA, "87/-/206 87/-/206 87/-/206", false, MAX_PATH, 'Q', true),
    ROW(ZN_DisconnectNetworkPath, "0/0", false, MAX_PATH, 'Q', true),
    ROW(ZN_DisconnectNetworkPathA, "0/0/206", false, MAX_PATH, 'Q', true),
    ROW(ZN_GetFirstIpAddress, "F", false, 16),
    ROW(ZN_GetDomainName, "87 87 87"),
    ROW(ZN_MapNetDrive, "87/87 87 -/-/206", false, MAX_PATH, 'Q', true),
    ROW(ZN_DisconnectNetDrive, "87"),
    ROW(ZN_EnumNetworkAdapters, "- 87"),
    ROW(ZN_SetNetworkAdapter, "87"),
    ROW(ZN_IsUpVista, "-"),
    ROW(ZN_GetOSVersion, "87"),
    ROW(ZN_GetOsVersionEx, "87", false, MAX_PATH, 'C'),
    ROW(ZN_GetSystemInfoFromPartition, "F", false, MAX_PATH, 'C'),
    ROW(ZN_GetSystemVersion, "F F"),
    ROW(ZN_GetSystemVersionEx, "F F"),
    ROW(ZN_GetSystemInfo, "F", false, 100, 'C'),
    ROW(ZN_GetNtdsFolder, "87"),
    ROW(ZN_TestDotNetFramework, "F F"),
    ROW(ZN_GetVssSystemProvider, "F"),
    ROW(ZN_GetUniversalDriversPack, "87"),
    ROW(ZN_GetLanguageID, "-"),
    ROW(ZN_IsUnderPE, "-"),
    ROW(ZN_CreateInterface, "- - - 87"),
    ROW(ZN_GetImageVersion, "9/9"),
    ROW(ZN_GetProductName, "87"),
    ROW(ZN_GetProductType, "-"),
    ROW(ZN_EnableBackupRestorePrivilege, "-"),
    ROW(ZN_DisableBackupRestorePrivilege, "-"),
    ROW(ZN_SetPrivilegeA, "F87/F"),
    ROW(ZN_SetPrivilegeW, "F87/F"),
    ROW(ZN_LogonAsUser, "F87/F87"),
    ROW(ZN_GetSystemToken, "-"),
    ROW(ZN_GetExplorerToken, "1"),
    ROW(ZN_GetAdminToken, "-"),
    ROW(ZN_PopWindow, "87/87/206"),
    ROW(ZN_ShutDown, "-"),
    ROW(ZN_LoadRegistry, "87/87/206 87/87"),
    ROW(ZN_UnLoadRegistry, "87/87"),
    ROW(ZN_AddStartupProcess, "87 87/87 87/87/206/- -/-/206/-"),
    ROW(ZN_RemoveStartupProcess, "87 87/87"),
    ROW(ZN_RepairFileRegistry, "87"),
    ROW(ZN_ReCopyNtdsFiles, "87/87/206 87"),
    ROW(ZN_ProcessExist, "F87/T", true),  // the identifier is zeroed first
    ROW(ZN_StopProcess, "87/87"),
    ROW(ZN_IsX64Cpu, "-"),
    ROW(ZN_IsWow64, "-"),
    ROW(ZN_EnableWow64Redirection, "- 87"),
    ROW(ZN_ShowProcessWind, "1168"),
    ROW(ZN_ServiceInstalled, "F/F"),
    ROW(ZN_ServiceIsRunning, "F/F"),
    ROW(ZN_InstallService, "87/87 - 87/87"),
    ROW(ZN_InstallServiceEx, "87/87 - 87/87"),
    ROW(ZN_RemoveService, "87/87"),
    ROW(ZN_ControlService, "87/87"),
    ROW(ZN_LoadNtDriver, "87/87 87/87"),
    ROW(ZN_RemoverNtDriver, "87/87"),
    ROW(ZN_StartService, "87/87"),
    ROW(ZN_StopService, "87/87"),
    ROW(ZN_AddService, "87 87/87/206 87/87"),
};

TEST(Sweep, EveryExportRefusesHostileArgumentsWithoutHarm) {
    wrtest::ToolDouble tools;
    wrtest::ImportHook hooks[] = {
        {"USER32.dll", "ExitWindowsEx", (void*)Denied},       {"ADVAPI32.dll", "LogonUserW", (void*)Denied},
        {"KERNEL32.dll", "DeviceIoControl", (void*)NoDevice}, {"MPR.dll", "WNetAddConnection2W", (void*)NoNetwork},
        {"MPR.dll", "WNetCancelConnection2W", (void*)NoNetwork}, {"MPR.dll", "WNetOpenEnumW", (void*)NoNetwork},
        {"ole32.dll", "CoCreateInstance", (void*)NoClass},    {"ADVAPI32.dll", "CreateServiceW", (void*)Denied},
        {"ADVAPI32.dll", "CreateServiceA", (void*)Denied},
    };
    for (const auto& hook : hooks) ASSERT_TRUE(hook.active());
    for (const Row& row : kRows) {
        g_textChars = row.textChars;
        g_letter = row.letter;
        g_unc = row.unc;
        row.sweep(row);
    }
    EXPECT_EQ(std::vector<std::string>{}, tools.Commands("shutdown"));
}

// Found by the sweep's buffer rows: a product name that fills its 200-byte buffer was
// handed back without a terminator. The running system's key holds such a value here,
// stored as bytes: Wine, unlike Windows, answers 234 for a string that fills the buffer.
TEST(Sweep, GetSystemInfoRefusesAValueThatFillsItsBuffer) {
    HKEY key = nullptr;
    ASSERT_EQ(0, RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", 0,
                               KEY_QUERY_VALUE | KEY_SET_VALUE, &key));
    wchar_t saved[MAX_PATH] = {};
    DWORD savedBytes = sizeof saved, type = 0;
    const bool had = RegQueryValueExW(key, L"ProductName", nullptr, &type, reinterpret_cast<BYTE*>(saved), &savedBytes) == 0;
    const std::wstring full(100, L'x');
    ASSERT_EQ(0, RegSetValueExW(key, L"ProductName", 0, REG_BINARY, reinterpret_cast<const BYTE*>(full.data()), 200));
    Arena arena;
    auto* name = static_cast<wchar_t*>(arena.Block(200));
    const BOOL ok = ZN_GetSystemInfo(L'C', nullptr, nullptr, nullptr, name, nullptr);
    if (had) RegSetValueExW(key, L"ProductName", 0, type, reinterpret_cast<BYTE*>(saved), savedBytes);
    if (!had) RegDeleteValueW(key, L"ProductName");
    RegCloseKey(key);
    EXPECT_FALSE(ok);
    EXPECT_EQ(L'\0', name[0]);
    EXPECT_EQ("", arena.Overrun());
}

}  // namespace
