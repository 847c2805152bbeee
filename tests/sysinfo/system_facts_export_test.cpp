// The running system's facts through the real DLL under Wine: its name and version
// (the version calls steered through the DLL's imports), the machine keys it reports
// on, and the partition and drive-letter answers from hooked device calls.
#include <cstring>
#include <optional>

#include "Wrenkits.h"
#include "sysinfo/sysinfo_test_support.h"

#include <winioctl.h>

using namespace sitest;

namespace {

Lines g_calls;  // what the hooked calls were asked
struct {
    void* real;
    int failVersion;  // GetVersionExW calls to fail with 5
    std::optional<PARTITION_INFORMATION_EX> partition;  // unset: the request fails with 1
    DWORD drives;
} g;

BOOL WINAPI FakeVersion(LPOSVERSIONINFOW record) {
    g_calls.push_back("GetVersionExW " + U(record->dwOSVersionInfoSize));
    if (g.failVersion-- > 0) return SetLastError(ERROR_ACCESS_DENIED), FALSE;
    return reinterpret_cast<decltype(&GetVersionExW)>(g.real)(record);
}
FARPROC WINAPI FakeProcAddress(HMODULE module, LPCSTR name) {
    if (HIWORD(name) && strcmp(name, "GetProductInfo") == 0) return SetLastError(ERROR_PROC_NOT_FOUND), nullptr;
    return reinterpret_cast<decltype(&GetProcAddress)>(g.real)(module, name);
}
BOOL WINAPI FakeIoctl(HANDLE, DWORD code, LPVOID in, DWORD inBytes, LPVOID out, DWORD outBytes, LPDWORD done, LPOVERLAPPED) {
    g_calls.push_back("ioctl " + U(code) + " in " + U(inBytes) + (in ? "+" : "") + " out " + U(outBytes));
    if (!g.partition) return SetLastError(ERROR_INVALID_FUNCTION), FALSE;
    std::memcpy(out, &*g.partition, sizeof *g.partition);
    *done = sizeof *g.partition;
    return TRUE;
}
DWORD WINAPI FakeDrives() { return g.drives; }

struct Hook : wrtest::ImportHook {
    Hook(const char* function, void* fake) : ImportHook("KERNEL32.dll", function, fake) { g.real = original<void*>(); }
};

TEST(SystemFacts, RunningSystemNameAndVersionAsWineReportsThemOrTheVersionCallsFail) {
    const Lines both = {"GetVersionExW 284", "GetVersionExW 276"};
    const struct { const char* hook; int failVersion; DWORD chars, result; std::wstring name; Lines calls, log; } rows[] = {
        {nullptr, 0, 10, 0, L"Microsoft", {}, {}},
        // The plain record carries no product type: the system reads as a server.
        {"GetVersionExW", 1, 100, 0, L"Microsoft Windows Server 2008 R2 , 64-bit Service Pack 1 (build 7601)", both, {}},
        {"GetVersionExW", 2, 100, 50, L"", both, {"ZN_GetOSVersion call GetVersionExW error: 5"}},
        {"GetProcAddress", 0, 100, 126, L"Microsoft Windows 7 ", {}, {"ZN_GetOSVersion load GetProductInfo in kernel32.dll error: 127"}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << (r.hook ? r.hook : "no hook") << " failing " << r.failVersion);
        std::optional<Hook> hook;
        if (r.hook) hook.emplace(r.hook, r.hook[3] == 'V' ? reinterpret_cast<void*>(FakeVersion) : reinterpret_cast<void*>(FakeProcAddress));
        g.failVersion = r.failVersion;
        g_calls.clear();
        wrtest::LogCapture log;
        wchar_t name[100] = L"";
        EXPECT_EQ(r.result, ZN_GetOSVersion(name, r.chars));
        EXPECT_EQ(r.name, name);
        EXPECT_EQ(r.calls, g_calls);
        EXPECT_EQ(Tagged(r.log), log.Messages());
    }
    DWORD major = 0, minor = 0;
    Hook failing("GetVersionExW", reinterpret_cast<void*>(FakeVersion));
    g.failVersion = 2;
    wrtest::LogCapture log;
    EXPECT_FALSE(ZN_GetSystemVersion(&major, &minor));
    EXPECT_EQ(Tagged({"ZN_GetSystemVersion call GetVersionEx failed, error: 5"}), log.Messages());
}

TEST(SystemFacts, BootPartitionIsTheActiveMbrOrTheEfiSystemPartitionAndFreeLettersStartAtC) {
    PARTITION_INFORMATION_EX mbr = {}, active = {}, esp = {}, data = {}, raw = {};
    active.Mbr.BootIndicator = raw.Mbr.BootIndicator = TRUE;  // what a raw disk's union holds does not count
    esp.PartitionStyle = data.PartitionStyle = PARTITION_STYLE_GPT;
    raw.PartitionStyle = PARTITION_STYLE_RAW;
    esp.Gpt.PartitionType = {0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};
    data.Gpt.PartitionType = {0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
    const Lines ask = {"ioctl " + U(IOCTL_DISK_GET_PARTITION_INFO_EX) + " in 0 out 144"};
    const struct { const char* name; wchar_t letter; std::optional<PARTITION_INFORMATION_EX> info; BOOL boot; Lines calls, log; } rows[] = {
        {"MBR active", L'c', active, TRUE, ask, {}},
        {"MBR inactive", L'C', mbr, FALSE, ask, {}},
        {"GPT EFI system partition", L'c', esp, TRUE, ask, {}},
        {"GPT basic data", L'c', data, FALSE, ask, {}},
        {"raw", L'c', raw, FALSE, ask, {}},
        {"request fails", L'c', {}, FALSE, ask, {"ZN_IsBootPartition get partition infoex of \\\\.\\c: error: 1"}},
        {"no such volume", L'q', {}, FALSE, {}, {"ZN_IsBootPartition open \\\\.\\q: error: 2"}},
    };
    Hook ioctl("DeviceIoControl", reinterpret_cast<void*>(FakeIoctl));
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        g.partition = r.info;
        g_calls.clear();
        wrtest::LogCapture log;
        EXPECT_EQ(r.boot, ZN_IsBootPartition(r.letter));
        EXPECT_EQ(r.calls, g_calls);
        EXPECT_EQ(Tagged(r.log), log.Messages());
    }
    Hook drives("GetLogicalDrives", reinterpret_cast<void*>(FakeDrives));
    for (auto [mask, letter] : {std::pair<DWORD, WCHAR>{0x0200000C, L'E'}, {0, L'C'}, {0x03FFFFFC, 0}, {0x01FFFFFF, L'Z'}}) {
        g.drives = mask;
        EXPECT_EQ(letter, ZN_GetFreeDriveLetter()) << "mask 0x" << std::hex << mask;
    }
}

TEST(SystemFacts, NtdsFolderDotNetVersionsAndTheFirstSystemShadowCopyProvider) {
    const std::wstring ntds = L"SYSTEM\\CurrentControlSet\\Services\\NTDS";
    const struct { const wchar_t* value; DWORD result; std::wstring folder; std::string line; } rows[] = {
        {L"C:\\Windows\\NTDS\\", 0, L"C:\\Windows\\NTDS", "ZN_GetNtdsFolder return C:\\Windows\\NTDS"},
        {L"D:\\NTDS", 0, L"D:\\NTDS", "ZN_GetNtdsFolder return D:\\NTDS"},
        {L"", 87, L"", "ZN_GetNtdsFolder return "},
        {nullptr, 2, L"", "ZN_GetNtdsFolder open ntds service key error: 2"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.line);
        MadeKeys keys{{ntds}};
        if (r.value) Put(ntds + L"\\Parameters", L"DSA Working Directory", r.value);
        wrtest::LogCapture log;
        wchar_t folder[260] = L"";
        EXPECT_EQ(r.result, ZN_GetNtdsFolder(folder));
        EXPECT_EQ(r.folder, folder);
        EXPECT_EQ(Tagged({r.line}), log.Messages());
    }

    const std::wstring ndp = L"SOFTWARE\\Microsoft\\NET Framework Setup\\NDP\\", vss = L"SYSTEM\\CurrentControlSet\\services\\VSS\\Providers";
    MadeKeys keys{{L"SOFTWARE\\Microsoft\\NET Framework Setup", L"SYSTEM\\CurrentControlSet\\services\\VSS"}};
    for (const wchar_t* version : {L"v2.0.50727", L"v4.0"}) Put(ndp + version, nullptr, L"");
    wrtest::LogCapture log;
    EXPECT_TRUE(ZN_TestDotNetFramework(2, 5)) << "2.x is always v2.0.50727";
    EXPECT_TRUE(ZN_TestDotNetFramework(4, 0));
    SetLastError(1234);
    EXPECT_FALSE(ZN_TestDotNetFramework(3, 5));
    EXPECT_EQ(Tagged({"ZN_TestDotNetFramework open key \"" + wrtest::Narrow(ndp) + "v3.5\" error: 1234"}), log.Messages()) << "the thread's last error, not the open's code";

    const std::string first = "{b5946137-7b9f-4925-af80-51abd60b20d5}", p = wrtest::Narrow(vss), a1 = "{a1000000-0000-0000-0000-000000000000}";
    Put(vss + L"\\{a0000000-0000-0000-0000-000000000000}", L"Type", 2);
    Put(vss + L"\\" + wrtest::Widen(first), L"Type", 1);
    Put(vss + L"\\{c5946137-7b9f-4925-af80-51abd60b20d5}", L"Type", 1);
    Put(vss + L"\\" + wrtest::Widen(a1), L"Other", 1);
    wrtest::LogCapture vssLog;
    GUID guid;
    std::memset(&guid, 0xBD, sizeof guid);
    EXPECT_EQ(&guid, ZN_GetVssSystemProvider(&guid));
    EXPECT_TRUE(IsEqualGUID(GUID{0xb5946137, 0x7b9f, 0x4925, {0xaf, 0x80, 0x51, 0xab, 0xd6, 0x0b, 0x20, 0xd5}}, guid));
    const std::string v = "ZN_GetVssSystemProvider ";
    EXPECT_EQ(Tagged({v + "provider {a0000000-0000-0000-0000-000000000000} type: 2", v + "provider " + a1 + " type: 0", v + "get Type of " + a1 + " under " + p + " error: 2", v + "provider " + first + " type: 1", v + "use the system provider: " + first}), vssLog.Messages());
}

}  // namespace
