// ZN_GetBitLockerVolumes against fake WMI objects handed out by a hooked
// CoCreateInstance, and once against Wine's own WMI, which lacks the namespace.
// The fakes use the C view of the interfaces: unused methods share one stub.
#define CINTERFACE
#include <windows.h>
#include <stddef.h>
#include <wbemcli.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/wine_env.h"

namespace {

using Lines = std::vector<std::string>;

// The export tests link no WMI GUID library: the locator's identities, spelled out.
const CLSID kLocatorClass = {0x4590f811, 0x1d3a, 0x11d0, {0x89, 0x1f, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24}};
const IID kLocatorInterface = {0xdc12a687, 0x737f, 0x11cf, {0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24}};

struct Volume {
    char letter;  // 0: no mount path
    LONG status = 1;
    HRESULT statusRead = S_OK, method = S_OK, idRead = S_OK;
};

// The fakes' shared state for one call.
struct Wmi {
    HRESULT create = S_OK, connect = S_OK, blanket = S_OK, query = S_OK, end = WBEM_S_FALSE;
    std::vector<Volume> volumes = {};
    size_t next = 0;
    Lines calls = {}, log = {};
    int live = 0;  // fake objects not yet released
} g;

std::string Utf8(const std::wstring& w) { return wrtest::Narrow(w, CP_UTF8); }
std::wstring Id(char letter) {
    return L"\\\\?\\Volume{" + std::wstring(8, wchar_t(letter ? letter : '0')) + L"-1111-2222-3333-444444444444}\\";
}

struct Object {
    void** vtbl;
    LONG refs;
    size_t volume;
};

HRESULT STDMETHODCALLTYPE NotImpl() { return E_NOTIMPL; }
ULONG STDMETHODCALLTYPE AddRef(Object* o) { return ++o->refs; }
ULONG STDMETHODCALLTYPE Release(Object* o) {
    if (--o->refs) return o->refs;
    --g.live;
    delete o;
    return 0;
}
HRESULT STDMETHODCALLTYPE QueryInterface(Object* o, REFIID, void** out) {
    *out = o;
    AddRef(o);
    return S_OK;
}

// A vtable of `slots` entries; the members named by offset get their fakes.
struct Vtable {
    void* slots[32];
    Vtable(std::initializer_list<std::pair<size_t, void*>> fakes) {
        for (void*& s : slots) s = reinterpret_cast<void*>(NotImpl);
        slots[0] = reinterpret_cast<void*>(QueryInterface);
        slots[1] = reinterpret_cast<void*>(AddRef);
        slots[2] = reinterpret_cast<void*>(Release);
        for (auto [offset, fake] : fakes) slots[offset / sizeof(void*)] = fake;
    }
};
template <typename T>
T* New(Vtable& table, size_t volume = 0) {
    ++g.live;
    return reinterpret_cast<T*>(new Object{table.slots, 1, volume});
}

HRESULT STDMETHODCALLTYPE VolumeGet(Object* o, LPCWSTR name, LONG, VARIANT* value, CIMTYPE*, LONG*) {
    const Volume& v = g.volumes[o->volume];
    if (std::wstring(name) != L"DeviceID") return WBEM_E_NOT_FOUND;
    if (FAILED(v.idRead)) return v.idRead;
    value->vt = VT_BSTR;
    value->bstrVal = SysAllocString(Id(v.letter).c_str());
    return S_OK;
}
HRESULT STDMETHODCALLTYPE StatusGet(Object* o, LPCWSTR name, LONG, VARIANT* value, CIMTYPE*, LONG*) {
    const Volume& v = g.volumes[o->volume];
    if (std::wstring(name) != L"ProtectionStatus") return WBEM_E_NOT_FOUND;
    if (FAILED(v.statusRead)) return v.statusRead;
    value->vt = VT_I4;
    value->lVal = v.status;
    return S_OK;
}
Vtable kVolume{{offsetof(IWbemClassObjectVtbl, Get), reinterpret_cast<void*>(VolumeGet)}};
Vtable kStatus{{offsetof(IWbemClassObjectVtbl, Get), reinterpret_cast<void*>(StatusGet)}};

HRESULT STDMETHODCALLTYPE Next(Object*, LONG timeout, ULONG count, IWbemClassObject** out, ULONG* returned) {
    EXPECT_TRUE(timeout == LONG(WBEM_INFINITE) && count == 1);
    *returned = 0;
    if (g.next == g.volumes.size()) return g.end;
    *out = New<IWbemClassObject>(kVolume, g.next++);
    *returned = 1;
    return S_OK;
}
Vtable kEnum{{offsetof(IEnumWbemClassObjectVtbl, Next), reinterpret_cast<void*>(Next)}};

HRESULT STDMETHODCALLTYPE ExecQuery(Object*, BSTR language, BSTR query, LONG flags, IWbemContext*,
                                    IEnumWbemClassObject** out) {
    g.calls.push_back("query " + Utf8(language) + " " + Utf8(query) + " " + std::to_string(flags));
    if (SUCCEEDED(g.query)) *out = New<IEnumWbemClassObject>(kEnum);
    return g.query;
}
HRESULT STDMETHODCALLTYPE ExecMethod(Object*, BSTR path, BSTR method, LONG flags, IWbemContext*, IWbemClassObject* in,
                                     IWbemClassObject** out, IWbemCallResult**) {
    g.calls.push_back("exec " + Utf8(path) + " " + Utf8(method) + (flags || in ? " with arguments" : ""));
    const size_t volume = g.next - 1;
    if (SUCCEEDED(g.volumes[volume].method)) *out = New<IWbemClassObject>(kStatus, volume);
    return g.volumes[volume].method;
}
Vtable kServices{{offsetof(IWbemServicesVtbl, ExecQuery), reinterpret_cast<void*>(ExecQuery)},
                 {offsetof(IWbemServicesVtbl, ExecMethod), reinterpret_cast<void*>(ExecMethod)}};

HRESULT STDMETHODCALLTYPE ConnectServer(Object*, BSTR space, BSTR user, BSTR password, BSTR locale, LONG flags,
                                        BSTR authority, IWbemContext* context, IWbemServices** out) {
    const bool plain = !user && !password && !locale && !flags && !authority && !context;
    g.calls.push_back("connect " + Utf8(space) + (plain ? "" : " with arguments"));
    if (SUCCEEDED(g.connect)) *out = New<IWbemServices>(kServices);
    return g.connect;
}
Vtable kLocator{{offsetof(IWbemLocatorVtbl, ConnectServer), reinterpret_cast<void*>(ConnectServer)}};

HRESULT WINAPI FakeCoCreateInstance(REFCLSID clsid, LPUNKNOWN outer, DWORD context, REFIID iid, void** out) {
    const bool locator = IsEqualCLSID(clsid, kLocatorClass) && IsEqualIID(iid, kLocatorInterface) && !outer &&
                         context == CLSCTX_INPROC_SERVER;
    g.calls.push_back(locator ? "create locator" : "create something else");
    if (SUCCEEDED(g.create)) *out = New<IWbemLocator>(kLocator);
    return g.create;
}
HRESULT WINAPI FakeCoSetProxyBlanket(IUnknown*, DWORD authn, DWORD authz, OLECHAR* principal, DWORD level, DWORD imp,
                                     RPC_AUTH_IDENTITY_HANDLE identity, DWORD capabilities) {
    g.calls.push_back("blanket " + std::to_string(authn) + " " + std::to_string(authz) + " " + std::to_string(level) +
                      " " + std::to_string(imp) + (principal || identity || capabilities ? " with more" : ""));
    return g.blanket;
}
BOOL WINAPI FakeGetVolumePathNames(LPCWSTR id, LPWCH paths, DWORD chars, PDWORD length) {
    for (const Volume& v : g.volumes) {
        if (Id(v.letter) != id) continue;
        const wchar_t list[] = {wchar_t(v.letter), L':', L'\\', 0, 0};
        const DWORD need = v.letter ? 5 : 1;
        *length = need;
        if (chars < need) return SetLastError(ERROR_MORE_DATA), FALSE;
        memcpy(paths, v.letter ? list : list + 3, need * sizeof(wchar_t));
        return TRUE;
    }
    return SetLastError(ERROR_FILE_NOT_FOUND), FALSE;
}
// The library's messages, wide ones exactly as formatted (the log file holds them in
// the system code page, which has no ideographic space).
void WINAPI CaptureA(LPCSTR text) { g.log.push_back(text); }
void WINAPI CaptureW(LPCWSTR text) { g.log.push_back(Utf8(text)); }

const Lines kSetup = {"create locator", "connect ROOT\\CIMV2\\Security\\MicrosoftVolumeEncryption", "blanket 10 0 3 3",
                      "query WQL SELECT * FROM Win32_EncryptableVolume 48"};
Lines FirstSteps(size_t steps) { return Lines(kSetup.begin(), kSetup.begin() + steps); }
std::string Path(char letter) {
    return "Win32_EncryptableVolume.DeviceID='\\\\?\\" + Utf8(Id(letter).substr(4)) + "'";
}
std::string Exec(char letter) { return "exec " + Path(letter) + " GetProtectionStatus"; }
Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
const std::string kTag = "[Wrenkit] ZN_GetBitLockerVolumes ";

struct LockerCase {
    const char* name;
    std::vector<Volume> volumes = {};
    HRESULT result = WBEM_S_FALSE;
    DWORD mask = 0;
    Lines calls = kSetup;
    Lines log = {};
    HRESULT create = S_OK, connect = S_OK, blanket = S_OK, query = S_OK, end = WBEM_S_FALSE;
};

TEST(GetBitLockerVolumes, MarksTheLettersOfProtectedAndLockedVolumes) {
    const HRESULT locked = HRESULT(0x80310000);
    const LockerCase cases[] = {
        {.name = "unprotected C, protected D, lettered-less, locked E, state 3 on F, unknown G",
         .volumes = {{'C', 0}, {'D', 1}, {0, 1}, {'E', 0, locked}, {'F', 3}, {'G', 2}}, .mask = 0x58,
         .calls = kSetup + Lines{Exec('C'), Exec('D'), Exec(0), Exec('E'), Exec('F'), Exec('G')},
         .log = {kTag + "get protect status of " + Path('E') + " error: 0x80310000",
                 kTag + "volume " + Utf8(Id('F')) + " F:\\ state:\xE3\x80\x80" "3"}},
        {.name = "no volumes"},
        {.name = "method fails: volume skipped", .volumes = {{'C', 1, S_OK, HRESULT(WBEM_E_ACCESS_DENIED)}, {'D'}}, .mask = 8,
         .calls = kSetup + Lines{Exec('C'), Exec('D')},
         .log = {kTag + "get protect status of " + Path('C') + " error: 0x80041003"}},
        {.name = "status read fails: volume skipped", .volumes = {{'C', 1, HRESULT(WBEM_E_NOT_FOUND)}}, .calls = kSetup + Lines{Exec('C')},
         .log = {kTag + "get protect status of " + Path('C') + " error: 0x80041002"}},
        {.name = "DeviceID read fails: walk ends, bits kept", .volumes = {{'D'}, {'E', 1, S_OK, S_OK, E_FAIL}, {'F'}},
         .result = E_FAIL, .mask = 8, .calls = kSetup + Lines{Exec('D')}, .log = {kTag + "get DeviceID error: 0x80004005"}},
        {.name = "enumeration breaks", .volumes = {{'D'}}, .result = HRESULT(WBEM_E_TRANSPORT_FAILURE), .mask = 8,
         .calls = kSetup + Lines{Exec('D')}, .end = HRESULT(WBEM_E_TRANSPORT_FAILURE)},
        {.name = "no locator", .result = REGDB_E_CLASSNOTREG, .calls = FirstSteps(1),
         .log = {kTag + "call CoCreateInstance error: 0x80040154"}, .create = REGDB_E_CLASSNOTREG},
        {.name = "no namespace", .result = HRESULT(WBEM_E_INVALID_NAMESPACE), .calls = FirstSteps(2),
         .log = {kTag + "call ConnectServer error: 0x8004100e"}, .connect = HRESULT(WBEM_E_INVALID_NAMESPACE)},
        {.name = "proxy security refused", .result = E_ACCESSDENIED, .calls = FirstSteps(3),
         .log = {kTag + "call CoSetProxyBlanket error: 0x80070005"}, .blanket = E_ACCESSDENIED},
        {.name = "query refused", .result = HRESULT(WBEM_E_INVALID_QUERY), .calls = FirstSteps(4),
         .log = {kTag + "call ExecQuery error: 0x80041017"}, .query = HRESULT(WBEM_E_INVALID_QUERY)},
    };
    for (const LockerCase& c : cases) {
        SCOPED_TRACE(c.name);
        g = {.create = c.create, .connect = c.connect, .blanket = c.blanket, .query = c.query, .end = c.end,
             .volumes = c.volumes};
        wrtest::ImportHook create("ole32.dll", "CoCreateInstance", reinterpret_cast<void*>(FakeCoCreateInstance));
        wrtest::ImportHook blanket("ole32.dll", "CoSetProxyBlanket", reinterpret_cast<void*>(FakeCoSetProxyBlanket));
        wrtest::ImportHook paths("kernel32.dll", "GetVolumePathNamesForVolumeNameW",
                                 reinterpret_cast<void*>(FakeGetVolumePathNames));
        wrtest::ImportHook logA("kernel32.dll", "OutputDebugStringA", reinterpret_cast<void*>(CaptureA));
        wrtest::ImportHook logW("kernel32.dll", "OutputDebugStringW", reinterpret_cast<void*>(CaptureW));
        DWORD mask = 0xdeadbeef;

        EXPECT_EQ(c.result, ZN_GetBitLockerVolumes(&mask));

        EXPECT_EQ(c.mask, mask);
        EXPECT_EQ(c.calls, g.calls);
        EXPECT_EQ(c.log, g.log);
        EXPECT_EQ(0, g.live) << "a WMI object was not released";
        // The call left the multithreaded apartment it joined.
        EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
        CoUninitialize();
    }
}

TEST(GetBitLockerVolumes, WineHasNoEncryptionNamespaceAndAnApartmentThreadIsRefused) {
    g = {};
    wrtest::ImportHook logA("kernel32.dll", "OutputDebugStringA", reinterpret_cast<void*>(CaptureA));
    DWORD mask = 0xdeadbeef;
    EXPECT_EQ(HRESULT(WBEM_E_INVALID_NAMESPACE), ZN_GetBitLockerVolumes(&mask));
    EXPECT_EQ(0u, mask);

    ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    mask = 0xdeadbeef;
    EXPECT_EQ(RPC_E_CHANGED_MODE, ZN_GetBitLockerVolumes(&mask));
    EXPECT_EQ(0u, mask);
    CoUninitialize();

    EXPECT_EQ(E_INVALIDARG, ZN_GetBitLockerVolumes(nullptr));
    EXPECT_EQ((Lines{kTag + "call ConnectServer error: 0x8004100e", kTag + "call CoInitializeEx error: 0x80010106",
                     kTag + "refused: letter mask is missing or not valid"}),
              g.log);
}

}  // namespace
