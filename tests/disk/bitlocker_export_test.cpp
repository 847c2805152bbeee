// ZN_GetBitLockerVolumes against fake WMI objects from a hooked CoCreateInstance, and
// once against Wine's own WMI, which lacks the namespace. The fakes use the C view of
// the interfaces so that unused methods share one stub.
#define CINTERFACE
#include <windows.h>
#include <stddef.h>
#include <wbemcli.h>

#include <gtest/gtest.h>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/wine_env.h"

namespace {

using Lines = std::vector<std::string>;

struct Volume {
    char letter;  // 0: no mount path
    LONG status = 1;
    HRESULT read = S_OK, method = S_OK, id = S_OK;
};
// The fakes' shared state: failures of the four set-up steps, the volumes, what was asked.
struct Wmi {
    HRESULT fail[4] = {}, end = WBEM_S_FALSE;  // create, connect, blanket, query
    std::vector<Volume> volumes = {};
    size_t next = 0;
    Lines calls = {}, log = {};
    int live = 0;  // fake objects not yet released
} g;

std::string Utf8(const std::wstring& w) { return wrtest::Narrow(w, CP_UTF8); }
std::wstring Id(char c) { return L"\\\\?\\Volume{" + std::wstring(8, wchar_t(c ? c : '0')) + L"-0-0-0-0}\\"; }

struct Object {
    void** vtable;
    LONG refs;
    size_t volume;
};
HRESULT STDMETHODCALLTYPE NotImpl() { return E_NOTIMPL; }
ULONG STDMETHODCALLTYPE AddRef(Object* o) { return ++o->refs; }
ULONG STDMETHODCALLTYPE Release(Object* o) {
    if (--o->refs == 0) --g.live, delete o;
    return 0;
}
struct Vtable {
    void* slots[32];
    Vtable(size_t offset, void* fake, size_t offset2 = 0, void* fake2 = nullptr) {
        for (void*& s : slots) s = reinterpret_cast<void*>(NotImpl);
        slots[1] = reinterpret_cast<void*>(AddRef), slots[2] = reinterpret_cast<void*>(Release);
        slots[offset / sizeof(void*)] = fake;
        if (fake2) slots[offset2 / sizeof(void*)] = fake2;
    }
};
template <typename T>
HRESULT Hand(HRESULT result, T** out, Vtable& table, size_t volume = 0) {
    if (SUCCEEDED(result)) ++g.live, *out = reinterpret_cast<T*>(new Object{table.slots, 1, volume});
    return result;
}

HRESULT STDMETHODCALLTYPE Get(Object* o, LPCWSTR name, LONG, VARIANT* value, CIMTYPE*, LONG*) {
    const Volume& v = g.volumes[o->volume];
    const bool id = std::wstring(name) == L"DeviceID";
    if (FAILED(id ? v.id : v.read)) return id ? v.id : v.read;
    if (id) value->vt = VT_BSTR, value->bstrVal = SysAllocString(Id(v.letter).c_str());
    if (!id) value->vt = VT_I4, value->lVal = v.status;
    return S_OK;
}
Vtable kObject(offsetof(IWbemClassObjectVtbl, Get), reinterpret_cast<void*>(Get));
HRESULT STDMETHODCALLTYPE Next(Object*, LONG timeout, ULONG count, IWbemClassObject** out, ULONG* returned) {
    EXPECT_TRUE(timeout == LONG(WBEM_INFINITE) && count == 1);
    *returned = g.next < g.volumes.size();
    return *returned ? Hand(S_OK, out, kObject, g.next++) : g.end;
}
Vtable kEnum(offsetof(IEnumWbemClassObjectVtbl, Next), reinterpret_cast<void*>(Next));
HRESULT STDMETHODCALLTYPE ExecQuery(Object*, BSTR language, BSTR query, LONG flags, IWbemContext*,
                                    IEnumWbemClassObject** out) {
    g.calls.push_back(Utf8(language) + " " + Utf8(query) + " " + std::to_string(flags));
    return Hand(g.fail[3], out, kEnum);
}
// The object path and method show in the log lines of the volumes that fail.
HRESULT STDMETHODCALLTYPE ExecMethod(Object*, BSTR path, BSTR method, LONG, IWbemContext*, IWbemClassObject*,
                                     IWbemClassObject** out, IWbemCallResult**) {
    EXPECT_EQ("GetProtectionStatus", Utf8(method)) << Utf8(path);
    return Hand(g.volumes[g.next - 1].method, out, kObject, g.next - 1);
}
Vtable kServices(offsetof(IWbemServicesVtbl, ExecQuery), reinterpret_cast<void*>(ExecQuery),
                 offsetof(IWbemServicesVtbl, ExecMethod), reinterpret_cast<void*>(ExecMethod));
HRESULT STDMETHODCALLTYPE Connect(Object*, BSTR space, BSTR, BSTR, BSTR, LONG, BSTR, IWbemContext*,
                                  IWbemServices** out) {
    g.calls.push_back(Utf8(space));
    return Hand(g.fail[1], out, kServices);
}
Vtable kLocator(offsetof(IWbemLocatorVtbl, ConnectServer), reinterpret_cast<void*>(Connect));

HRESULT WINAPI FakeCreate(REFCLSID clsid, LPUNKNOWN, DWORD context, REFIID, void** out) {
    // The WMI locator's class, as an in-process server.
    g.calls.push_back(clsid.Data1 == 0x4590f811 && context == CLSCTX_INPROC_SERVER ? "create locator" : "create other");
    return Hand(g.fail[0], reinterpret_cast<IWbemLocator**>(out), kLocator);
}
HRESULT WINAPI FakeBlanket(IUnknown*, DWORD authn, DWORD authz, OLECHAR*, DWORD level, DWORD imp, void*, DWORD) {
    g.calls.push_back("blanket " + std::to_string(authn) + std::to_string(authz) + std::to_string(level) +
                      std::to_string(imp));
    return g.fail[2];
}
BOOL WINAPI FakePaths(LPCWSTR id, LPWCH paths, DWORD chars, PDWORD length) {
    const char letter = id[11] == '0' ? 0 : char(id[11]);
    const wchar_t list[] = {wchar_t(letter), L':', L'\\', 0, 0};
    memcpy(paths, letter ? list : list + 3, (*length = letter ? 5 : 1) * sizeof(wchar_t));
    return chars >= *length;
}
// Wide messages as formatted: the log file holds them in the system code page, which
// has no ideographic space.
void WINAPI CaptureA(LPCSTR text) { g.log.push_back(text + 10); }
void WINAPI CaptureW(LPCWSTR text) { g.log.push_back(Utf8(text + 10)); }

// "blanket 10033": NTLM, no authorisation, call level, impersonation.
const Lines kSetup = {"create locator", "ROOT\\CIMV2\\Security\\MicrosoftVolumeEncryption", "blanket 10033",
                      "WQL SELECT * FROM Win32_EncryptableVolume 48"};
std::string Path(char c) { return "Win32_EncryptableVolume.DeviceID='\\\\?\\" + Utf8(Id(c).substr(4)) + "'"; }
const std::string kName = "ZN_GetBitLockerVolumes ";

TEST(GetBitLockerVolumes, MarksTheLettersOfProtectedAndLockedVolumes) {
    const HRESULT locked = HRESULT(0x80310000), notFound = HRESULT(WBEM_E_NOT_FOUND);
    struct Case {
        const char* name;
        std::vector<Volume> volumes;
        HRESULT result;
        DWORD mask;
        Lines log;
        int failing = 4;  // the set-up step that fails with `result`; 4: none
        HRESULT end = WBEM_S_FALSE;
    } cases[] = {
        {"unprotected C, protected D, no letter, locked E, state 3 on F, unknown G, failing H and I",
         {{'C', 0}, {'D'}, {0}, {'E', 0, locked}, {'F', 3}, {'G', 2}, {'H', 1, notFound},
          {'I', 1, S_OK, E_ACCESSDENIED}},
         WBEM_S_FALSE, 0x58,
         {kName + "get protect status of " + Path('E') + " error: 0x80310000",
          kName + "volume " + Utf8(Id('F')) + " F:\\ state:\xE3\x80\x80" "3",
          kName + "get protect status of " + Path('H') + " error: 0x80041002",
          kName + "get protect status of " + Path('I') + " error: 0x80070005"}},
        {"DeviceID read fails: walk ends, bits kept", {{'D'}, {'E', 1, S_OK, S_OK, E_FAIL}, {'F'}}, E_FAIL, 8,
         {kName + "get DeviceID error: 0x80004005"}},
        {"enumeration breaks", {{'D'}}, RPC_E_DISCONNECTED, 8, {}, 4, RPC_E_DISCONNECTED},
        {"no locator", {}, REGDB_E_CLASSNOTREG, 0, {kName + "call CoCreateInstance error: 0x80040154"}, 0},
        {"proxy security refused", {}, E_ACCESSDENIED, 0, {kName + "call CoSetProxyBlanket error: 0x80070005"}, 2},
        {"query refused", {}, HRESULT(WBEM_E_INVALID_QUERY), 0, {kName + "call ExecQuery error: 0x80041017"}, 3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        g = {.end = c.end, .volumes = c.volumes};
        if (c.failing < 4) g.fail[c.failing] = c.result;
        wrtest::ImportHook hooks[] = {
            {"ole32.dll", "CoCreateInstance", reinterpret_cast<void*>(FakeCreate)},
            {"ole32.dll", "CoSetProxyBlanket", reinterpret_cast<void*>(FakeBlanket)},
            {"kernel32.dll", "GetVolumePathNamesForVolumeNameW", reinterpret_cast<void*>(FakePaths)},
            {"kernel32.dll", "OutputDebugStringA", reinterpret_cast<void*>(CaptureA)},
            {"kernel32.dll", "OutputDebugStringW", reinterpret_cast<void*>(CaptureW)}};
        DWORD mask = 0xdeadbeef;
        EXPECT_EQ(c.result, ZN_GetBitLockerVolumes(&mask));
        EXPECT_EQ(c.mask, mask);
        EXPECT_EQ(Lines(kSetup.begin(), kSetup.begin() + std::min(c.failing + 1, 4)), g.calls);
        EXPECT_EQ(c.log, g.log);
        EXPECT_EQ(0, g.live) << "a WMI object was not released";
        EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) << "the apartment was not left";
        CoUninitialize();
    }
}

TEST(GetBitLockerVolumes, WineLacksTheNamespaceAndAnApartmentThreadIsRefused) {
    g = {};
    wrtest::ImportHook capture("kernel32.dll", "OutputDebugStringA", reinterpret_cast<void*>(CaptureA));
    DWORD mask = 0xdeadbeef;
    EXPECT_EQ(HRESULT(WBEM_E_INVALID_NAMESPACE), ZN_GetBitLockerVolumes(&mask));
    EXPECT_EQ(0u, mask);
    ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    EXPECT_EQ(RPC_E_CHANGED_MODE, ZN_GetBitLockerVolumes(&mask));
    CoUninitialize();
    EXPECT_EQ(E_INVALIDARG, ZN_GetBitLockerVolumes(nullptr));
    EXPECT_EQ((Lines{kName + "call ConnectServer error: 0x8004100e", kName + "call CoInitializeEx error: 0x80010106",
                     kName + "refused: letter mask is missing or not valid"}),
              g.log);
}

}  // namespace
