// ZN_GetBitLockerVolumes against fake WMI objects from a hooked CoCreateInstance. The
// fakes use the C view of the interfaces, so unused methods share one stub.
#define CINTERFACE
#include <windows.h>
#include <stddef.h>
#include <wbemcli.h>

#include "Wrenkits.h"
#include "disk/volume_device_fake.h"

namespace {

using disktest::Lines;

struct Volume { char letter; LONG status = 1; HRESULT read = S_OK, method = S_OK, id = S_OK; };  // letter 0: no mount path
enum Step { kCreate, kConnect, kBlanket, kQuery, kNone, kApartment, kNoMask };  // where a call fails
// The failing step and its result, the enumeration's last result, the volumes and the next one handed out,
// the set-up calls and log lines seen, and the fake objects not yet released.
struct Wmi { Step failing = kNone; HRESULT result = S_OK, end = WBEM_S_FALSE; std::vector<Volume> volumes = {}; size_t next = 0; Lines calls = {}, log = {}; int live = 0; } g;

std::string Utf8(const std::wstring& w) { return wrtest::Narrow(w, CP_UTF8); }
std::wstring Id(char c) { return L"\\\\?\\Volume{" + std::wstring(8, wchar_t(c ? c : '0')) + L"-0-0-0-0}\\"; }
void* F(auto fn) { return reinterpret_cast<void*>(fn); }
HRESULT At(Step step) { return g.failing == step ? g.result : S_OK; }

struct Object { void** vtable; LONG refs; size_t volume; };
// Every slot fails but the IUnknown ones and the fakes given at their byte offsets.
struct Vtable {
    void* slots[32];
    Vtable(std::initializer_list<std::pair<size_t, void*>> fakes) {
        for (void*& s : slots) s = F(+[] { return E_NOTIMPL; });
        slots[1] = F(+[](Object* o) { return ULONG(++o->refs); });
        slots[2] = F(+[](Object* o) { return --o->refs ? 1ul : (--g.live, delete o, 0ul); });
        for (auto [offset, fake] : fakes) slots[offset / sizeof(void*)] = fake;
    }
};
template <typename T>
HRESULT Hand(HRESULT result, T** out, Vtable& table, size_t volume = 0) {
    if (SUCCEEDED(result)) ++g.live, *out = reinterpret_cast<T*>(new Object{table.slots, 1, volume});
    return result;
}

HRESULT STDMETHODCALLTYPE Get(Object* o, LPCWSTR name, LONG, VARIANT* value, CIMTYPE*, LONG*) {
    const Volume& v = g.volumes[o->volume];
    if (std::wstring(name) == L"DeviceID") return value->vt = VT_BSTR, value->bstrVal = SysAllocString(Id(v.letter).c_str()), v.id;
    return value->vt = VT_I4, value->lVal = v.status, v.read;
}
Vtable kVolume({{offsetof(IWbemClassObjectVtbl, Get), F(Get)}});
HRESULT STDMETHODCALLTYPE Next(Object*, LONG timeout, ULONG count, IWbemClassObject** out, ULONG* returned) {
    EXPECT_TRUE(timeout == LONG(WBEM_INFINITE) && count == 1);
    return (*returned = g.next < g.volumes.size()) ? Hand(S_OK, out, kVolume, g.next++) : g.end;
}
Vtable kEnum({{offsetof(IEnumWbemClassObjectVtbl, Next), F(Next)}});
HRESULT STDMETHODCALLTYPE Query(Object*, BSTR language, BSTR query, LONG flags, IWbemContext*, IEnumWbemClassObject** out) {
    g.calls.push_back(Utf8(language) + " " + Utf8(query) + " " + std::to_string(flags));
    return Hand(At(kQuery), out, kEnum);
}
HRESULT STDMETHODCALLTYPE Method(Object*, BSTR, BSTR method, LONG, IWbemContext*, IWbemClassObject*, IWbemClassObject** out, IWbemCallResult**) {
    EXPECT_EQ("GetProtectionStatus", Utf8(method));  // the object path shows in the failing volumes' lines
    return Hand(g.volumes[g.next - 1].method, out, kVolume, g.next - 1);
}
Vtable kServices({{offsetof(IWbemServicesVtbl, ExecQuery), F(Query)}, {offsetof(IWbemServicesVtbl, ExecMethod), F(Method)}});
HRESULT STDMETHODCALLTYPE Connect(Object*, BSTR space, BSTR, BSTR, BSTR, LONG, BSTR, IWbemContext*, IWbemServices** out) {
    return g.calls.push_back(Utf8(space)), Hand(At(kConnect), out, kServices);
}
Vtable kLocator({{offsetof(IWbemLocatorVtbl, ConnectServer), F(Connect)}});
HRESULT WINAPI Create(REFCLSID clsid, LPUNKNOWN, DWORD context, REFIID, void** out) {  // the WMI locator, in-process
    g.calls.push_back(clsid.Data1 == 0x4590f811 && context == CLSCTX_INPROC_SERVER ? "create locator" : "create other");
    return Hand(At(kCreate), reinterpret_cast<IWbemLocator**>(out), kLocator);
}
HRESULT WINAPI Blanket(IUnknown*, DWORD authn, DWORD authz, OLECHAR*, DWORD level, DWORD imp, void*, DWORD) {
    return g.calls.push_back("blanket " + std::to_string(authn) + std::to_string(authz) + std::to_string(level) + std::to_string(imp)), At(kBlanket);
}
BOOL WINAPI Paths(LPCWSTR id, LPWCH paths, DWORD chars, PDWORD length) {
    const wchar_t letter = id[11] == '0' ? 0 : id[11], list[] = {letter, L':', L'\\', 0, 0};
    return memcpy(paths, letter ? list : list + 3, (*length = letter ? 5 : 1) * sizeof(wchar_t)), chars >= *length;
}
// Wide messages as formatted: the log file holds them in the system code page, which has no ideographic space.
void WINAPI CaptureA(LPCSTR text) { g.log.push_back(text + 10); }
void WINAPI CaptureW(LPCWSTR text) { g.log.push_back(Utf8(text + 10)); }

TEST(GetBitLockerVolumes, MarksTheLettersOfProtectedAndLockedVolumes) {
    // "blanket 10033": NTLM, no authorisation, call level, impersonation.
    const Lines setUp = {"create locator", "ROOT\\CIMV2\\Security\\MicrosoftVolumeEncryption", "blanket 10033", "WQL SELECT * FROM Win32_EncryptableVolume 48"};
    auto Path = [](char c) { return "Win32_EncryptableVolume.DeviceID='\\\\?\\" + Utf8(Id(c).substr(4)) + "'"; };
    const std::string name = "ZN_GetBitLockerVolumes ", status = name + "get protect status of ";
    const Lines walked = {status + Path('E') + " error: 0x80310000", name + "volume " + Utf8(Id('F')) + " F:\\ state:\xE3\x80\x80" "3", status + Path('H') + " error: 0x80041002", status + Path('I') + " error: 0x80070005"};
    const struct { const char* name; std::vector<Volume> volumes; Step failing; HRESULT result; DWORD mask; Lines log; } cases[] = {
        {"unprotected C, protected D, no letter, locked E, state 3 on F, unknown G, failing H and I", {{'C', 0}, {'D'}, {0}, {'E', 0, HRESULT(0x80310000)}, {'F', 3}, {'G', 2}, {'H', 1, HRESULT(WBEM_E_NOT_FOUND)}, {'I', 1, S_OK, E_ACCESSDENIED}}, kNone, WBEM_S_FALSE, 0x58, walked},
        {"DeviceID read fails: walk ends, bits kept", {{'D'}, {'E', 1, S_OK, S_OK, E_FAIL}, {'F'}}, kNone, E_FAIL, 8, {name + "get DeviceID error: 0x80004005"}},
        {"enumeration breaks", {{'D'}}, kNone, RPC_E_DISCONNECTED, 8, {}},
        {"no locator", {}, kCreate, REGDB_E_CLASSNOTREG, 0, {name + "call CoCreateInstance error: 0x80040154"}},
        {"no namespace", {}, kConnect, HRESULT(WBEM_E_INVALID_NAMESPACE), 0, {name + "call ConnectServer error: 0x8004100e"}},
        {"proxy security refused", {}, kBlanket, E_ACCESSDENIED, 0, {name + "call CoSetProxyBlanket error: 0x80070005"}},
        {"query refused", {}, kQuery, HRESULT(WBEM_E_INVALID_QUERY), 0, {name + "call ExecQuery error: 0x80041017"}},
        {"thread in a single-threaded apartment", {}, kApartment, RPC_E_CHANGED_MODE, 0, {name + "call CoInitializeEx error: 0x80010106"}},
        {"no mask", {}, kNoMask, E_INVALIDARG, 0xdeadbeef, {name + "refused: letter mask is missing or not valid"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // A walk that ends without a failed step ends with the row's result.
        g = {.failing = c.failing, .result = c.result, .end = c.failing == kNone ? c.result : HRESULT(WBEM_S_FALSE), .volumes = c.volumes};
        wrtest::ImportHook hooks[] = {{"ole32.dll", "CoCreateInstance", F(Create)}, {"ole32.dll", "CoSetProxyBlanket", F(Blanket)}, {"kernel32.dll", "GetVolumePathNamesForVolumeNameW", F(Paths)},
                                      {"kernel32.dll", "OutputDebugStringA", F(CaptureA)}, {"kernel32.dll", "OutputDebugStringW", F(CaptureW)}};
        if (c.failing == kApartment) CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        DWORD mask = 0xdeadbeef;
        EXPECT_EQ(c.result, ZN_GetBitLockerVolumes(c.failing == kNoMask ? nullptr : &mask));
        if (c.failing == kApartment) CoUninitialize();
        EXPECT_EQ(c.mask, mask);
        const int asked = c.failing > kNone ? 0 : std::min(c.failing + 1, int(kNone));  // the set-up steps reached
        EXPECT_EQ(Lines(setUp.begin(), setUp.begin() + asked), g.calls);
        EXPECT_EQ(c.log, g.log);
        EXPECT_EQ(0, g.live) << "a WMI object was not released";
        EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) << "the apartment was not left";
        CoUninitialize();
    }
}

}  // namespace
