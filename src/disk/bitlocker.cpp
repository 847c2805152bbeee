#include <windows.h>

#include <objbase.h>
#include <oleauto.h>
#include <stdio.h>
#include <wbemcli.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"

using namespace wrenkits;

namespace {

constexpr char kName[] = "ZN_GetBitLockerVolumes";
constexpr size_t kDeviceIdChars = 128;
constexpr size_t kMountPathChars = 50;
constexpr size_t kObjectPathChars = 128;
// What reading a locked volume's protection status answers.
constexpr HRESULT kVolumeLocked = static_cast<HRESULT>(0x80310000);

enum ProtectionStatus : LONG { kUnprotected = 0, kProtected = 1, kUnknown = 2 };

// Keeps the thread in the multithreaded apartment for the call and leaves it after.
class MultithreadedApartment {
public:
    MultithreadedApartment() : result_(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    MultithreadedApartment(const MultithreadedApartment&) = delete;
    MultithreadedApartment& operator=(const MultithreadedApartment&) = delete;
    ~MultithreadedApartment() {
        if (SUCCEEDED(result_)) ::CoUninitialize();
    }
    HRESULT result() const { return result_; }

private:
    HRESULT result_;
};

HRESULT Failed(const char* call, HRESULT result) {
    LogA("%s call %s error: 0x%x", kName, call, result);
    return result;
}

// The strings handed to WMI are the caller's system strings.
HRESULT MakeBstr(const wchar_t* text, unique_bstr& out) {
    out.reset(::SysAllocString(text));
    if (out) return S_OK;
    LogA("%s allocate string error: 0x%x", kName, E_OUTOFMEMORY);
    return E_OUTOFMEMORY;
}

// The first mount path's drive letter as a mask bit, or 0 for a volume without one.
DWORD LetterBit(const wchar_t* mountPaths) {
    const wchar_t letter = mountPaths[0];
    if (letter >= L'a' && letter <= L'z') return 1u << (letter - L'a');
    if (letter >= L'A' && letter <= L'Z') return 1u << (letter - L'A');
    return 0;
}

// Asks one volume for its protection status and marks its letter when it is
// protected or locked. Failures here skip the volume only.
void CheckVolume(IWbemServices* services, const wchar_t* deviceId, BSTR method, DWORD& mask) {
    wchar_t mountPaths[kMountPathChars] = {};
    DWORD length = 0;
    // A volume with more paths than fit counts as one without a letter.
    if (!::GetVolumePathNamesForVolumeNameW(deviceId, mountPaths, kMountPathChars, &length)) mountPaths[0] = 0;

    wchar_t objectPath[kObjectPathChars] = {};
    if (wcslen(deviceId) < 4 ||
        _snwprintf_s(objectPath, _TRUNCATE, L"Win32_EncryptableVolume.DeviceID='\\\\?\\%s'", deviceId + 4) < 0) {
        // A cut path would ask some other object; this volume is not looked at.
        LogW(L"%S DeviceID %s not usable", kName, deviceId);
        return;
    }
    unique_bstr path;
    if (FAILED(MakeBstr(objectPath, path))) return;
    com_ptr<IWbemClassObject> out;
    HRESULT result = services->ExecMethod(path.get(), method, 0, nullptr, nullptr, out.put(), nullptr);
    if (FAILED(result)) {
        LogW(L"%S get protect status of %s error: 0x%x", kName, objectPath, result);
        return;
    }
    unique_variant status;
    result = out ? out->Get(L"ProtectionStatus", 0, status.put(), nullptr, nullptr) : E_POINTER;
    if (FAILED(result)) LogW(L"%S get protect status of %s error: 0x%x", kName, objectPath, result);

    if (result == kVolumeLocked) {
        mask |= LetterBit(mountPaths);
        return;
    }
    if (FAILED(result)) return;
    // A status that is no number (null) marks nothing, like an unprotected volume.
    const VARTYPE type = status.get().vt;
    const bool number = type == VT_I4 || type == VT_UI4 || type == VT_INT || type == VT_UINT;
    const LONG value = number ? status.get().lVal : kUnprotected;
    if (value == kProtected || value == kUnknown)
        mask |= LetterBit(mountPaths);
    else if (value != kUnprotected)
        // The blank before the number is an ideographic space (U+3000): the line has always read so.
        LogW(L"%S volume %s %s state:\u3000%d", kName, deviceId, mountPaths, value);
}

HRESULT ListProtectedVolumes(DWORD& mask) {
    // Declared in the order they are obtained, so they are released in reverse.
    com_ptr<IWbemLocator> locator;
    HRESULT result =
        ::CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator, locator.put_void());
    if (FAILED(result)) return Failed("CoCreateInstance", result);

    unique_bstr space, language, query, method;
    if (FAILED(result = MakeBstr(L"ROOT\\CIMV2\\Security\\MicrosoftVolumeEncryption", space)) ||
        FAILED(result = MakeBstr(L"WQL", language)) ||
        FAILED(result = MakeBstr(L"SELECT * FROM Win32_EncryptableVolume", query)) ||
        FAILED(result = MakeBstr(L"GetProtectionStatus", method)))
        return result;

    com_ptr<IWbemServices> services;
    result = locator->ConnectServer(space.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, services.put());
    if (FAILED(result)) return Failed("ConnectServer", result);

    result = ::CoSetProxyBlanket(services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                 RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    if (FAILED(result)) return Failed("CoSetProxyBlanket", result);

    com_ptr<IEnumWbemClassObject> volumes;
    result = services->ExecQuery(language.get(), query.get(), WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                 nullptr, volumes.put());
    if (FAILED(result)) return Failed("ExecQuery", result);

    for (;;) {
        com_ptr<IWbemClassObject> volume;
        ULONG returned = 0;
        result = volumes->Next(WBEM_INFINITE, 1, volume.put(), &returned);
        if (returned == 0) return result;

        unique_variant id;
        result = volume->Get(L"DeviceID", 0, id.put(), nullptr, nullptr);
        if (FAILED(result)) {
            LogA("%s get DeviceID error: 0x%x", kName, result);
            return result;
        }
        const wchar_t* name = id.get().vt == VT_BSTR && id.get().bstrVal ? id.get().bstrVal : L"";
        wchar_t deviceId[kDeviceIdChars] = {};
        if (_snwprintf_s(deviceId, _TRUNCATE, L"%s", name) < 0) {
            LogW(L"%S DeviceID %s not usable", kName, name);
            continue;
        }
        CheckVolume(services.get(), deviceId, method.get(), mask);
    }
}

}  // namespace

extern "C" HRESULT WINAPI ZN_GetBitLockerVolumes(LPDWORD letterMask) {
    if (!letterMask) {
        const DWORD refused = RefuseInvalid(kName, "letter mask");
        return HRESULT_FROM_WIN32(refused);  // 87 in its COM form, E_INVALIDARG
    }
    *letterMask = 0;
    MultithreadedApartment apartment;
    if (FAILED(apartment.result())) {
        LogA("%s call CoInitializeEx error: 0x%x", kName, apartment.result());
        return apartment.result();
    }
    // Fails when the process has set its security already; the defaults then stand.
    const HRESULT security = ::CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                                    RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    if (FAILED(security)) LogA("%s call CoInitializeSecurity error: 0x%x", kName, security);
    return ListProtectedVolumes(*letterMask);
}
