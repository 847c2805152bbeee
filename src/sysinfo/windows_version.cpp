#include <stdlib.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "sysinfo/sysinfo.h"

using namespace wrenkits;

namespace {

constexpr char kNameOsVersion[] = "ZN_GetOSVersion";
constexpr char kNameOsVersionEx[] = "ZN_GetOsVersionEx";
constexpr wchar_t kMountName[] = L"ZNRegKey";
constexpr DWORD kMaxCapacity = 0x7FFFFFFF;

using GetProductInfoFn = BOOL(WINAPI*)(DWORD, DWORD, DWORD, DWORD, PDWORD);
using GetNativeSystemInfoFn = void(WINAPI*)(LPSYSTEM_INFO);

FARPROC Kernel32Routine(const char* name) {
    const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
    return kernel ? ::GetProcAddress(kernel, name) : nullptr;
}

bool ReadVersionRecord(OSVERSIONINFOEXW& record) {
    record = {};
    record.dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXW);
    if (::GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&record))) return true;
    // Systems before the extended record only fill the plain one.
    record.dwOSVersionInfoSize = sizeof(OSVERSIONINFOW);
    return ::GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&record)) != FALSE;
}

// The offline SOFTWARE hive, loaded straight with RegLoadKeyW: this caller wants
// no hive repair, only the one privilege retry, and gives the privileges back itself.
class OfflineSoftware {
public:
    OfflineSoftware() = default;
    OfflineSoftware(const OfflineSoftware&) = delete;
    OfflineSoftware& operator=(const OfflineSoftware&) = delete;
    ~OfflineSoftware() {
        if (mounted_) ::RegUnLoadKeyW(HKEY_LOCAL_MACHINE, kMountName);
        if (privilegesEnabled_) ZN_DisableBackupRestorePrivilege();
    }
    LONG Load(LPCWSTR hiveFile) {
        LONG result = ::RegLoadKeyW(HKEY_LOCAL_MACHINE, kMountName, hiveFile);
        if (result == ERROR_ACCESS_DENIED || result == ERROR_PRIVILEGE_NOT_HELD) {
            privilegesEnabled_ = ZN_EnableBackupRestorePrivilege() != FALSE;
            result = ::RegLoadKeyW(HKEY_LOCAL_MACHINE, kMountName, hiveFile);
        }
        mounted_ = result == ERROR_SUCCESS;
        return result;
    }

private:
    bool mounted_ = false, privilegesEnabled_ = false;
};

LONG ReadDword(HKEY key, LPCWSTR name, DWORD& value) {
    DWORD bytes = sizeof value;
    return ::RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &bytes);
}

// Windows 10 and later hold the version as two numbers; older systems only as "6.1".
LONG ReadVersionNumbers(HKEY key, DWORD& major, DWORD& minor) {
    DWORD workingMajor = 0, workingMinor = 0;
    if (ReadDword(key, L"CurrentMajorVersionNumber", workingMajor) == ERROR_SUCCESS &&
        ReadDword(key, L"CurrentMinorVersionNumber", workingMinor) == ERROR_SUCCESS) {
        major = workingMajor;
        minor = workingMinor;
        return ERROR_SUCCESS;
    }
    wchar_t text[51] = {};  // one spare character keeps a full value terminated
    DWORD bytes = 50 * sizeof(wchar_t);
    const LONG result = ::RegQueryValueExW(key, L"CurrentVersion", nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes);
    if (result != ERROR_SUCCESS) {
        LogA("%s get CurrentVersion error: %d", kNameOsVersionEx, result);
        return result;
    }
    ParseVersionText(text, workingMajor, workingMinor);
    major = workingMajor;
    minor = workingMinor;
    return ERROR_SUCCESS;
}

// Fills a caller's buffer with a string value as stored; the caller's capacity is the limit.
LONG ReadText(HKEY key, LPCWSTR name, LPWSTR out, DWORD chars, const char* message) {
    DWORD bytes = (chars > kMaxCapacity / 2 ? kMaxCapacity : chars) * sizeof(wchar_t);
    const LONG result = ::RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(out), &bytes);
    if (result != ERROR_SUCCESS) LogA(message, kNameOsVersionEx, result);
    return result;
}

}  // namespace

namespace wrenkits {

void ParseVersionText(const wchar_t* text, DWORD& major, DWORD& minor) {
    const wchar_t* dot = wcschr(text, L'.');
    major = static_cast<DWORD>(_wtoi(text));
    if (dot) minor = static_cast<DWORD>(_wtoi(dot + 1));
}

}  // namespace wrenkits

extern "C" BOOL WINAPI ZN_IsUpVista() { return LOBYTE(LOWORD(::GetVersion())) > 5 ? TRUE : FALSE; }

extern "C" DWORD WINAPI ZN_GetOSVersion(LPWSTR name, DWORD nameChars) {
    if (!name && nameChars != 0 && nameChars <= kMaxCapacity) return RefuseInvalid(kNameOsVersion, "the name buffer");
    OSVERSIONINFOEXW record;
    if (!ReadVersionRecord(record)) {
        LogA("%s call GetVersionExW error: %d", kNameOsVersion, ::GetLastError());
        return ERROR_NOT_SUPPORTED;
    }
    // The native view, so that a 32-bit host on 64-bit Windows still reports x64.
    SYSTEM_INFO system = {};
    if (auto native = RoutineAs<GetNativeSystemInfoFn>(Kernel32Routine("GetNativeSystemInfo"))) native(&system);
    else ::GetSystemInfo(&system);

    VersionFacts facts;
    facts.major = record.dwMajorVersion;
    facts.minor = record.dwMinorVersion;
    facts.build = record.dwBuildNumber;
    facts.platform = record.dwPlatformId;
    facts.servicePack = record.szCSDVersion;
    facts.suiteMask = record.wSuiteMask;
    facts.productType = record.wProductType;
    facts.architecture = system.wProcessorArchitecture;
    if (facts.platform == VER_PLATFORM_WIN32_NT && facts.major == 5 && facts.minor == 2)
        facts.serverR2 = ::GetSystemMetrics(SM_SERVERR2) != 0;
    if (facts.platform == VER_PLATFORM_WIN32_NT && facts.major == 6) {
        auto productInfo = RoutineAs<GetProductInfoFn>(Kernel32Routine("GetProductInfo"));
        if (!productInfo) {
            const DWORD error = ::GetLastError();
            BuildDisplayName(facts, name, nameChars);
            LogA("%s load GetProductInfo in kernel32.dll error: %d", kNameOsVersion, error);
            return ERROR_MOD_NOT_FOUND;
        }
        facts.hasProductInfo = true;
        productInfo(facts.major, facts.minor, 0, 0, &facts.edition);
    }
    return BuildDisplayName(facts, name, nameChars);
}

extern "C" DWORD WINAPI ZN_GetOsVersionEx(WCHAR driveLetter, LPDWORD major, LPDWORD minor, LPDWORD is64Bit,
                                          LPWSTR productName, DWORD productNameChars, LPWSTR pathName,
                                          DWORD pathNameChars) {
    if (!IsDriveLetter(driveLetter)) return ERROR_INVALID_PARAMETER;
    if (!major && !minor && !is64Bit && !productName && !pathName) return ERROR_INVALID_PARAMETER;

    wchar_t systemDir[kPathChars] = {};
    if (::GetSystemDirectoryW(systemDir, kPathChars) == 0) {
        const DWORD error = ::GetLastError();
        LogA("%s get system dir error: %d", kNameOsVersionEx, error);
        return error;
    }

    // Declared before the key, so that the key is closed before the hive goes.
    OfflineSoftware hive;
    wchar_t keyPath[100] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    if (UpperLetter(driveLetter) != UpperLetter(systemDir[0])) {
        wchar_t hivePath[kPathChars];
        // The folder is always "Windows": an installation elsewhere is not found here.
        _snwprintf_s(hivePath, kPathChars, _TRUNCATE, L"%c:\\Windows\\System32\\Config\\SOFTWARE", driveLetter);
        if (const LONG result = hive.Load(hivePath)) {
            LogW(L"%S load %s error: %d", kNameOsVersionEx, hivePath, result);
            return result;
        }
        _snwprintf_s(keyPath, _countof(keyPath), _TRUNCATE, L"%s\\Microsoft\\Windows NT\\CurrentVersion", kMountName);
    }

    unique_hkey key;
    if (const LONG result = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_READ, key.put())) {
        LogW(L"%S open %s error: %d", kNameOsVersionEx, keyPath, result);
        return result;
    }
    if (major || minor) {
        DWORD versionMajor = 0, versionMinor = 0;
        if (const LONG result = ReadVersionNumbers(key.get(), versionMajor, versionMinor)) return result;
        if (major) *major = versionMajor;
        if (minor) *minor = versionMinor;
    }
    if (is64Bit) {
        wchar_t wow[kPathChars];
        FormatPathW(wow, L"%c:\\Windows\\SysWOW64", driveLetter);
        *is64Bit = ::GetFileAttributesW(wow) != INVALID_FILE_ATTRIBUTES ? 1 : 0;
    }
    if (productName) {
        if (const LONG result =
                ReadText(key.get(), L"ProductName", productName, productNameChars, "%s get ProductName error: %d"))
            return result;
    }
    if (pathName) {
        if (const LONG result = ReadText(key.get(), L"PathName", pathName, pathNameChars, "%s get PathName error: %d"))
            return result;
    }
    return ERROR_SUCCESS;
}
