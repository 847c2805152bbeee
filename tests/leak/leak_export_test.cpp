// Every export without a lasting effect, called 1,000 times: whatever it opens or
// allocates through its imports must be closed or freed again. Wine keeps no handle
// count, so the library's own import table keeps the ledger: each opening call adds
// what it returns, each closing call takes it away.
#include <windows.h>
#include <ntsecapi.h>
#include <tlhelp32.h>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/import_hook.h"

namespace {

std::map<const void*, std::string> g_open;  // what is open or allocated, and by which call
bool g_counting = false;

template <typename T>
T Opened(T value, const char* by) {
    if (g_counting && value && value != INVALID_HANDLE_VALUE) g_open[reinterpret_cast<const void*>(value)] = by;
    return value;
}
void Closed(const void* value) { g_open.erase(value); }

// One original per hooked import, reached through the hook's slot.
std::map<std::string, void*> g_real;
template <typename Fn>
Fn Real(const char* name) { return reinterpret_cast<Fn>(g_real.at(name)); }

HANDLE WINAPI HCreateFileW(LPCWSTR a, DWORD b, DWORD c, LPSECURITY_ATTRIBUTES d, DWORD e, DWORD f, HANDLE g) {
    return Opened(Real<decltype(&CreateFileW)>("CreateFileW")(a, b, c, d, e, f, g), "CreateFileW");
}
HANDLE WINAPI HCreateFileA(LPCSTR a, DWORD b, DWORD c, LPSECURITY_ATTRIBUTES d, DWORD e, DWORD f, HANDLE g) {
    return Opened(Real<decltype(&CreateFileA)>("CreateFileA")(a, b, c, d, e, f, g), "CreateFileA");
}
HANDLE WINAPI HOpenProcess(DWORD a, BOOL b, DWORD c) { return Opened(Real<decltype(&OpenProcess)>("OpenProcess")(a, b, c), "OpenProcess"); }
HANDLE WINAPI HSnapshot(DWORD a, DWORD b) {
    return Opened(Real<decltype(&CreateToolhelp32Snapshot)>("CreateToolhelp32Snapshot")(a, b), "CreateToolhelp32Snapshot");
}
BOOL WINAPI HOpenProcessToken(HANDLE a, DWORD b, PHANDLE c) {
    const BOOL ok = Real<decltype(&OpenProcessToken)>("OpenProcessToken")(a, b, c);
    if (ok) Opened(*c, "OpenProcessToken");
    return ok;
}
BOOL WINAPI HOpenThreadToken(HANDLE a, DWORD b, BOOL c, PHANDLE d) {
    const BOOL ok = Real<decltype(&OpenThreadToken)>("OpenThreadToken")(a, b, c, d);
    if (ok) Opened(*d, "OpenThreadToken");
    return ok;
}
BOOL WINAPI HDuplicateTokenEx(HANDLE a, DWORD b, LPSECURITY_ATTRIBUTES c, SECURITY_IMPERSONATION_LEVEL d, TOKEN_TYPE e, PHANDLE f) {
    const BOOL ok = Real<decltype(&DuplicateTokenEx)>("DuplicateTokenEx")(a, b, c, d, e, f);
    if (ok) Opened(*f, "DuplicateTokenEx");
    return ok;
}
BOOL WINAPI HCloseHandle(HANDLE h) { return Closed(h), Real<decltype(&CloseHandle)>("CloseHandle")(h); }
HANDLE WINAPI HFindFirstFileW(LPCWSTR a, LPWIN32_FIND_DATAW b) {
    return Opened(Real<decltype(&FindFirstFileW)>("FindFirstFileW")(a, b), "FindFirstFileW");
}
BOOL WINAPI HFindClose(HANDLE h) { return Closed(h), Real<decltype(&FindClose)>("FindClose")(h); }
LONG WINAPI HRegOpenKeyExW(HKEY a, LPCWSTR b, DWORD c, REGSAM d, PHKEY e) {
    const LONG r = Real<decltype(&RegOpenKeyExW)>("RegOpenKeyExW")(a, b, c, d, e);
    if (r == 0) Opened(*e, "RegOpenKeyExW");
    return r;
}
LONG WINAPI HRegOpenKeyExA(HKEY a, LPCSTR b, DWORD c, REGSAM d, PHKEY e) {
    const LONG r = Real<decltype(&RegOpenKeyExA)>("RegOpenKeyExA")(a, b, c, d, e);
    if (r == 0) Opened(*e, "RegOpenKeyExA");
    return r;
}
LONG WINAPI HRegCloseKey(HKEY k) { return Closed(k), Real<decltype(&RegCloseKey)>("RegCloseKey")(k); }
SC_HANDLE WINAPI HOpenSCManagerW(LPCWSTR a, LPCWSTR b, DWORD c) {
    return Opened(Real<decltype(&OpenSCManagerW)>("OpenSCManagerW")(a, b, c), "OpenSCManagerW");
}
SC_HANDLE WINAPI HOpenServiceW(SC_HANDLE a, LPCWSTR b, DWORD c) {
    return Opened(Real<decltype(&OpenServiceW)>("OpenServiceW")(a, b, c), "OpenServiceW");
}
BOOL WINAPI HCloseServiceHandle(SC_HANDLE h) { return Closed(h), Real<decltype(&CloseServiceHandle)>("CloseServiceHandle")(h); }
NTSTATUS WINAPI HLsaOpenPolicy(PLSA_UNICODE_STRING a, PLSA_OBJECT_ATTRIBUTES b, ACCESS_MASK c, PLSA_HANDLE d) {
    const NTSTATUS s = Real<decltype(&LsaOpenPolicy)>("LsaOpenPolicy")(a, b, c, d);
    if (s == 0) Opened(*d, "LsaOpenPolicy");
    return s;
}
NTSTATUS WINAPI HLsaClose(LSA_HANDLE h) { return Closed(h), Real<decltype(&LsaClose)>("LsaClose")(h); }
void* __cdecl HMalloc(size_t n) { return Opened(Real<decltype(&malloc)>("malloc")(n), "malloc"); }
void* __cdecl HCalloc(size_t n, size_t m) { return Opened(Real<decltype(&calloc)>("calloc")(n, m), "calloc"); }
void* __cdecl HRealloc(void* p, size_t n) {
    void* q = Real<decltype(&realloc)>("realloc")(p, n);
    if (q || n == 0) Closed(p);
    return Opened(q, "realloc");
}
void __cdecl HFree(void* p) { Closed(p), Real<decltype(&free)>("free")(p); }
LPVOID WINAPI HHeapAlloc(HANDLE h, DWORD f, SIZE_T n) { return Opened(Real<decltype(&HeapAlloc)>("HeapAlloc")(h, f, n), "HeapAlloc"); }
BOOL WINAPI HHeapFree(HANDLE h, DWORD f, LPVOID p) { return Closed(p), Real<decltype(&HeapFree)>("HeapFree")(h, f, p); }
HLOCAL WINAPI HLocalAlloc(UINT f, SIZE_T n) { return Opened(Real<decltype(&LocalAlloc)>("LocalAlloc")(f, n), "LocalAlloc"); }
HLOCAL WINAPI HLocalFree(HLOCAL p) { return Closed(p), Real<decltype(&LocalFree)>("LocalFree")(p); }

struct Hooked {
    const char* dll;
    const char* name;
    void* fake;
};
const Hooked kHooked[] = {
    {"KERNEL32.dll", "CreateFileW", (void*)HCreateFileW},        {"KERNEL32.dll", "CreateFileA", (void*)HCreateFileA},
    {"KERNEL32.dll", "OpenProcess", (void*)HOpenProcess},        {"KERNEL32.dll", "CreateToolhelp32Snapshot", (void*)HSnapshot},
    {"ADVAPI32.dll", "OpenProcessToken", (void*)HOpenProcessToken}, {"ADVAPI32.dll", "OpenThreadToken", (void*)HOpenThreadToken},
    {"ADVAPI32.dll", "DuplicateTokenEx", (void*)HDuplicateTokenEx}, {"KERNEL32.dll", "CloseHandle", (void*)HCloseHandle},
    {"KERNEL32.dll", "FindFirstFileW", (void*)HFindFirstFileW},  {"KERNEL32.dll", "FindClose", (void*)HFindClose},
    {"ADVAPI32.dll", "RegOpenKeyExW", (void*)HRegOpenKeyExW},    {"ADVAPI32.dll", "RegOpenKeyExA", (void*)HRegOpenKeyExA},
    {"ADVAPI32.dll", "RegCloseKey", (void*)HRegCloseKey},        {"ADVAPI32.dll", "OpenSCManagerW", (void*)HOpenSCManagerW},
    {"ADVAPI32.dll", "OpenServiceW", (void*)HOpenServiceW},      {"ADVAPI32.dll", "CloseServiceHandle", (void*)HCloseServiceHandle},
    {"ADVAPI32.dll", "LsaOpenPolicy", (void*)HLsaOpenPolicy},    {"ADVAPI32.dll", "LsaClose", (void*)HLsaClose},
    {"msvcrt.dll", "malloc", (void*)HMalloc},                    {"msvcrt.dll", "calloc", (void*)HCalloc},
    {"msvcrt.dll", "realloc", (void*)HRealloc},                  {"msvcrt.dll", "free", (void*)HFree},
    {"KERNEL32.dll", "HeapAlloc", (void*)HHeapAlloc},            {"KERNEL32.dll", "HeapFree", (void*)HHeapFree},
    {"KERNEL32.dll", "LocalAlloc", (void*)HLocalAlloc},          {"KERNEL32.dll", "LocalFree", (void*)HLocalFree},
};

// A token handed to the caller is the caller's to close: it leaves the ledger here.
void CloseToken(HANDLE token) {
    if (token) g_open.erase(token), CloseHandle(token);
}

struct Call {
    const char* name;
    std::function<void()> call;
    size_t keptPerCall = 0;  // left open by contract
};

const Call kCalls[] = {
    {"ZN_TranslateSize", [] { wchar_t t[32]; ZN_TranslateSize(3221225472LL, t, 32); }},
    {"ZN_CompareStringA", [] { ZN_CompareStringA("C:\\Windows", "c:\\windows\\system32", 1); }},
    {"ZN_CompareStringW", [] { ZN_CompareStringW(L"system32", L"C:\\Windows\\System32", 1); }},
    {"ZN_GetVolumeDisk", [] { DWORD d; ZN_GetVolumeDisk(L'C', &d); }},
    {"ZN_GetVolumeMinSize", [] { ULONGLONG s; ZN_GetVolumeMinSize(L'C', 0, &s); }},
    {"ZN_GetFSType", [] { wchar_t fs[MAX_PATH]; ZN_GetFSType(L"C:\\", fs); }},
    {"ZN_IsUsbPartition", [] { ZN_IsUsbPartition(L'C'); }},
    {"ZN_GetPathType", [] { ZN_GetPathType(L"C:\\windows"); }},
    {"ZN_IsRemoteDrive", [] { wchar_t r[MAX_PATH]; ZN_IsRemoteDrive(L'C', r); }},
    {"ZN_IsSystemPartition", [] { ZN_IsSystemPartition(L'C'); }},
    {"ZN_IsBootPartition", [] { ZN_IsBootPartition(L'C'); }},
    {"ZN_GetFreeDriveLetter", [] { ZN_GetFreeDriveLetter(); }},
    {"ZN_IsEmptyFolder", [] { ZN_IsEmptyFolder(L"C:\\windows\\"); }},
    {"ZN_CopyDirData", [] { DirDataRecord r = {}; DirEntryRecord e = {}; ZN_CopyDirData(&r, &e, TRUE); }},
    {"ZN_CopyDirDataX", [] { DirDataXRecord r = {}; DirEntryRecord e = {}; ZN_CopyDirDataX(&r, &e, FALSE); }},
    {"ZN_CopyDirDataX2", [] { DirDataX2Record r = {}; DirEntryRecord e = {}; ZN_CopyDirDataX2(&r, &e, TRUE); }},
    {"ZN_GetFirstIpAddress", [] { wchar_t a[16]; ZN_GetFirstIpAddress(a); }},
    {"ZN_GetDomainName", [] { wchar_t n[MAX_PATH]; DWORD d, w; ZN_GetDomainName(n, &d, &w); }},
    {"ZN_EnumNetworkAdapters", [] { AdapterInfo a[4]; DWORD n = 4; ZN_EnumNetworkAdapters(a, &n); }},
    {"ZN_IsUpVista", [] { ZN_IsUpVista(); }},
    {"ZN_GetOSVersion", [] { wchar_t n[MAX_PATH]; ZN_GetOSVersion(n, MAX_PATH); }},
    {"ZN_GetOsVersionEx", [] { DWORD a, b, c; wchar_t p[MAX_PATH], w[MAX_PATH]; ZN_GetOsVersionEx(L'C', &a, &b, &c, p, MAX_PATH, w, MAX_PATH); }},
    {"ZN_GetSystemInfoFromPartition", [] { DWORD a, b, c; ZN_GetSystemInfoFromPartition('C', &a, &b, &c); }},
    {"ZN_GetSystemVersion", [] { DWORD a, b; ZN_GetSystemVersion(&a, &b); }},
    {"ZN_GetSystemVersionEx", [] { DWORD a, b; ZN_GetSystemVersionEx(&a, &b); }},
    {"ZN_GetSystemInfo", [] { BYTE a, b; DWORD c; wchar_t p[100]; ZN_GetSystemInfo(L'C', &a, &b, &c, p, nullptr); }},
    {"ZN_GetNtdsFolder", [] { wchar_t f[MAX_PATH]; ZN_GetNtdsFolder(f); }},
    {"ZN_TestDotNetFramework", [] { ZN_TestDotNetFramework(4, 0); }},
    {"ZN_GetVssSystemProvider", [] { GUID g; ZN_GetVssSystemProvider(&g); }},
    {"ZN_GetUniversalDriversPack", [] { char f[MAX_PATH]; ZN_GetUniversalDriversPack(f); }},
    {"ZN_GetLanguageID", [] { ZN_GetLanguageID(); }},
    {"ZN_IsUnderPE", [] { ZN_IsUnderPE(); }},
    {"ZN_GetImageVersion", [] { WORD m; ZN_GetImageVersion(L"C:\\none.img", &m); }},
    {"ZN_GetProductName", [] { wchar_t n[MAX_PATH]; ZN_GetProductName(n); }},
    {"ZN_GetProductType", [] { ZN_GetProductType(); }},
    {"ZN_Enable/DisableBackupRestorePrivilege", [] { ZN_EnableBackupRestorePrivilege(); ZN_DisableBackupRestorePrivilege(); }},
    {"ZN_SetPrivilegeA/W", [] { ZN_SetPrivilegeA("SeDebugPrivilege", TRUE); ZN_SetPrivilegeW(L"SeDebugPrivilege", FALSE); }},
    {"ZN_GetAdminToken", [] { CloseToken(ZN_GetAdminToken()); }},
    // Its snapshot and the process stay open on success, as callers have always had it.
    {"ZN_GetExplorerToken", [] { HANDLE t = nullptr; ZN_GetExplorerToken(&t); CloseToken(t); }, 2},
    // ZN_GetSystemToken is left out: it keeps the token of every process scanned before
    // winlogon.exe open by contract, a number the process list decides.
    {"ZN_ProcessExist", [] { DWORD pid; ZN_ProcessExist(L"winlogon", &pid); }},
    {"ZN_IsX64Cpu", [] { ZN_IsX64Cpu(); }},
    {"ZN_IsWow64", [] { ZN_IsWow64(); }},
    {"ZN_EnableWow64Redirection", [] { PVOID s; ZN_EnableWow64Redirection(FALSE, &s); ZN_EnableWow64Redirection(TRUE, &s); }},
    {"ZN_ShowProcessWind", [] { ZN_ShowProcessWind(0xFFFFFFF0); }},
    {"ZN_ServiceInstalled", [] { ZN_ServiceInstalled(L"RpcSs"); }},
    {"ZN_ServiceIsRunning", [] { ZN_ServiceIsRunning(L"RpcSs"); }},
};

TEST(Leak, ExportsWithoutLastingEffectCloseAndFreeWhatTheyOpen) {
    std::vector<std::unique_ptr<wrtest::ImportHook>> hooks;
    for (const Hooked& h : kHooked) {
        hooks.push_back(std::make_unique<wrtest::ImportHook>(h.dll, h.name, h.fake));
        ASSERT_TRUE(hooks.back()->active()) << h.name;
        g_real[h.name] = hooks.back()->original<void*>();
    }
    for (const Call& c : kCalls) {
        c.call();  // first-use state (caches, COM, the log) is allowed to stay
        g_open.clear();
        g_counting = true;
        for (int i = 0; i < 1000; ++i) c.call();
        g_counting = false;
        std::map<std::string, size_t> left;
        for (const auto& [value, by] : g_open) ++left[by];
        std::string text;
        for (const auto& [by, count] : left) text += by + " x" + std::to_string(count) + " ";
        EXPECT_EQ(c.keptPerCall * 1000, g_open.size()) << c.name << " left open after 1,000 calls: " << text;
    }
}

}  // namespace
