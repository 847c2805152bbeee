#include <objbase.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <optional>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "registry/hive.h"
#include "sysinfo/sysinfo.h"

using namespace wrenkits;

namespace {

constexpr char kFromPartition[] = "ZN_GetSystemInfoFromPartition";
constexpr wchar_t kSystemInfo[] = L"ZN_GetSystemInfo";
constexpr wchar_t kVssName[] = L"ZN_GetVssSystemProvider";
constexpr wchar_t kVssProviders[] = L"SYSTEM\\CurrentControlSet\\services\\VSS\\Providers";
constexpr DWORD kRecordBytes = sizeof(OSVERSIONINFOEXW);  // 284
constexpr DWORD kPlainRecordBytes = sizeof(OSVERSIONINFOW);  // 276
static_assert(kRecordBytes == 284 && kPlainRecordBytes == 276);

// GetVersionExW as the calling process sees the system, extended record first.
bool ReadVersion(const char* name, DWORD& major, DWORD& minor) {
    OSVERSIONINFOEXW record = {};
    record.dwOSVersionInfoSize = kRecordBytes;
    if (!::GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&record))) {
        record.dwOSVersionInfoSize = kPlainRecordBytes;
        if (!::GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&record))) {
            LogA("%s call GetVersionEx failed, error: %d", name, ::GetLastError());
            return false;
        }
    }
    major = record.dwMajorVersion;
    minor = record.dwMinorVersion;
    return true;
}

bool PathExistsA(char letter, const char* pathFromRoot) {
    char path[kPathChars];
    _snprintf_s(path, kPathChars, _TRUNCATE, "%c%s", letter, pathFromRoot);
    return ::GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

// Reads the offline installation's "CurrentVersion" through the narrow calls; true
// when the numbers were read. The hive is mounted and unmounted by the caller.
bool ReadOfflineVersion(DWORD& major, DWORD& minor) {
    const char keyPath[] = "ZNSoftware\\Microsoft\\Windows NT\\CurrentVersion";
    unique_hkey key;
    if (const LONG result = ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_ALL_ACCESS, key.put())) {
        LogA("%s RegOpenKeyExA %s error: %d", kFromPartition, keyPath, result);
        return false;
    }
    char text[101] = {};  // one spare byte keeps a full value terminated
    DWORD bytes = 100;
    if (const LONG result =
            ::RegQueryValueExA(key.get(), "CurrentVersion", nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes)) {
        LogA("%s get CurrentVersion in registry error: %d", kFromPartition, result);
        return false;
    }
    char* dot = strchr(text, '.');
    if (dot) *dot = '\0';
    major = static_cast<DWORD>(atoi(text));
    if (dot) minor = static_cast<DWORD>(atoi(dot + 1));
    return true;
}

LONG ReadString(HKEY key, LPCWSTR name, LPWSTR out, DWORD bytes) {
    return ::RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(out), &bytes);
}

}  // namespace

extern "C" BOOL WINAPI ZN_GetSystemInfoFromPartition(CHAR driveLetter, LPDWORD major, LPDWORD minor,
                                                     LPDWORD is64Bit) {
    if (!major || !minor || !is64Bit) {
        RefuseInvalid(kFromPartition, "an output");
        return FALSE;
    }
    *major = *minor = *is64Bit = 0;
    if (!IsDriveLetter(static_cast<unsigned char>(driveLetter))) return FALSE;
    // Judged for every partition, the running system's included.
    if (PathExistsA(driveLetter, ":\\Program Files (x86)")) *is64Bit = 1;

    char systemDir[kPathChars] = {};
    ::GetSystemDirectoryA(systemDir, kPathChars - 1);
    if (UpperLetter(static_cast<unsigned char>(systemDir[0])) == UpperLetter(static_cast<unsigned char>(driveLetter)))
        return ReadVersion(kFromPartition, *major, *minor) ? TRUE : FALSE;

    if (!PathExistsA(driveLetter, ":\\WINDOWS\\system32\\drivers")) return FALSE;
    wchar_t hivePath[kPathChars];
    _snwprintf_s(hivePath, kPathChars, _TRUNCATE, L"%c:\\WINDOWS\\system32\\config\\SOFTWARE",
                 static_cast<wchar_t>(static_cast<unsigned char>(driveLetter)));
    bool read = false;
    {
        MountedHive hive(hivePath, L"ZNSoftware");
        if (!hive) {
            // The wide path through the narrow "%s" shows only its drive letter; the
            // line has always read that way and log searches rely on it.
            LogA("%s load %s error: %d", kFromPartition, hivePath, hive.result());
            return FALSE;
        }
        read = ReadOfflineVersion(*major, *minor);
    }
    if (!read) return FALSE;
    LogA("%s ---#--> %c: X64: %d, system version: %d %d", kFromPartition, driveLetter, *is64Bit, *major, *minor);
    return TRUE;
}

extern "C" BOOL WINAPI ZN_GetSystemVersion(LPDWORD major, LPDWORD minor) {
    if (!major || !minor) {
        RefuseInvalid("ZN_GetSystemVersion", "an output");
        return FALSE;
    }
    return ReadVersion("ZN_GetSystemVersion", *major, *minor) ? TRUE : FALSE;
}

extern "C" BOOL WINAPI ZN_GetSystemVersionEx(LPDWORD major, LPDWORD minor) {
    if (!major || !minor) {
        RefuseInvalid("ZN_GetSystemVersionEx", "an output");
        return FALSE;
    }
    using RtlGetVersionFn = LONG(WINAPI*)(OSVERSIONINFOEXW*);
    const HMODULE ntdll = ::GetModuleHandleA("ntdll.dll");
    const auto rtlGetVersion = RoutineAs<RtlGetVersionFn>(ntdll ? ::GetProcAddress(ntdll, "RtlGetVersion") : nullptr);
    if (!rtlGetVersion) return FALSE;
    // The true version, whatever compatibility view the process gets from GetVersionExW.
    OSVERSIONINFOEXW record = {};
    record.dwOSVersionInfoSize = kRecordBytes;
    if (rtlGetVersion(&record) != 0) return FALSE;
    *major = record.dwMajorVersion;
    *minor = record.dwMinorVersion;
    return TRUE;
}

extern "C" BOOL WINAPI ZN_GetSystemInfo(WCHAR driveLetter, PBYTE major, PBYTE minor, LPDWORD is64Bit,
                                        LPWSTR productName, LPWSTR pathName) {
    if (!IsDriveLetter(driveLetter)) {
        RefuseInvalid("ZN_GetSystemInfo", "the drive letter");
        return FALSE;
    }
    constexpr DWORD kValueBytes = 200;
    wchar_t systemDir[kPathChars] = {};
    ::GetSystemDirectoryW(systemDir, kPathChars);

    std::optional<MountedHive> hive;
    wchar_t keyPath[kPathChars] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    if (UpperLetter(systemDir[0]) != UpperLetter(driveLetter)) {
        wchar_t hivePath[kPathChars];
        _snwprintf_s(hivePath, kPathChars, _TRUNCATE, L"%c:\\Windows\\System32\\Config\\SOFTWARE", driveLetter);
        if (!hive.emplace(hivePath, L"ZNRegKey")) return FALSE;  // the load has logged
        FormatPathW(keyPath, L"%s\\Microsoft\\Windows NT\\CurrentVersion", L"ZNRegKey");
    }
    unique_hkey key;  // after the hive: closed before the unmount
    if (const LONG result = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_READ, key.put())) {
        LogW(L"%s open %s error: %d", kSystemInfo, keyPath, result);
        return FALSE;
    }
    if (major || minor) {
        wchar_t text[21] = {};  // one spare character keeps a full value terminated
        if (const LONG result = ReadString(key.get(), L"CurrentVersion", text, 40)) {
            LogW(L"%s get CurrentVersion from %s error: %d", kSystemInfo, keyPath, result);
            return FALSE;
        }
        DWORD versionMajor = 0, versionMinor = 0;
        ParseVersionText(text, versionMajor, versionMinor);
        if (major) *major = static_cast<BYTE>(versionMajor);
        if (minor) *minor = static_cast<BYTE>(versionMinor);
    }
    if (is64Bit) {
        wchar_t programs[] = L"C:\\Program Files (x86)";
        programs[0] = driveLetter;
        *is64Bit = ::GetFileAttributesW(programs) != INVALID_FILE_ATTRIBUTES ? 1 : 0;
    }
    // A value that fills its buffer has no terminator: handing it on would have the
    // caller read past the buffer, so it is emptied and refused.
    constexpr size_t kValueChars = kValueBytes / sizeof(wchar_t);
    const auto unterminated = [](LPWSTR text, const char* what) {
        if (wcsnlen(text, kValueChars) < kValueChars) return false;
        text[0] = L'\0';
        RefuseTooLong("ZN_GetSystemInfo", what, kValueChars - 1);
        return true;
    };
    if (productName) {
        if (const LONG result = ReadString(key.get(), L"ProductName", productName, kValueBytes)) {
            LogW(L"%s get ProductName from %s error: %d", kSystemInfo, keyPath, result);
            return FALSE;
        }
        if (unterminated(productName, "the product name")) return FALSE;
    }
    if (pathName) {
        if (const LONG result = ReadString(key.get(), L"PathName", pathName, kValueBytes)) {
            LogW(L"%s get PathName from %s error: %d", kSystemInfo, keyPath, result);
            return FALSE;
        }
        if (unterminated(pathName, "the installation path")) return FALSE;
        // The installation as it is seen now: recorded as C:\Windows, found on E:.
        pathName[0] = driveLetter;
    }
    return TRUE;
}

extern "C" DWORD WINAPI ZN_GetNtdsFolder(LPWSTR folder) {
    constexpr char kName[] = "ZN_GetNtdsFolder";
    constexpr DWORD kFolderChars = 260;
    if (!folder) return RefuseInvalid(kName, "the folder buffer");
    unique_hkey key;
    if (const LONG result = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\NTDS\\Parameters",
                                            0, KEY_READ, key.put())) {
        LogA("%s open ntds service key error: %d", kName, result);
        return result;
    }
    if (const LONG result = ReadString(key.get(), L"DSA Working Directory", folder, kFolderChars * sizeof(wchar_t))) {
        LogA("%s get ntds directory error: %d", kName, result);
        return result;
    }
    const size_t length = wcsnlen(folder, kFolderChars);
    if (length == kFolderChars) {
        // A value that fills the buffer has no terminator: handing it on would read past it.
        folder[0] = L'\0';
        return RefuseTooLong(kName, "the ntds directory", kFolderChars - 1);
    }
    const DWORD result = length == 0 ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
    if (length > 0 && folder[length - 1] == L'\\') folder[length - 1] = L'\0';
    LogW(L"%S return %s", kName, folder);
    return result;
}

extern "C" BOOL WINAPI ZN_TestDotNetFramework(BYTE major, BYTE minor) {
    constexpr wchar_t kBase[] = L"SOFTWARE\\Microsoft\\NET Framework Setup\\NDP\\";
    wchar_t path[kPathChars];
    if (major == 2) FormatPathW(path, L"%sv2.0.50727", kBase);
    else FormatPathW(path, L"%sv%d.%d", kBase, major, minor);
    unique_hkey key;
    if (::RegOpenKeyW(HKEY_LOCAL_MACHINE, path, key.put()) != ERROR_SUCCESS) {
        LogW(L"%s open key \"%s\" error: %d", L"ZN_TestDotNetFramework", path, ::GetLastError());
        return FALSE;
    }
    return TRUE;
}

extern "C" GUID* WINAPI ZN_GetVssSystemProvider(GUID* providerId) {
    if (!providerId) {
        RefuseInvalid("ZN_GetVssSystemProvider", "the guid");
        return providerId;
    }
    *providerId = GUID{};
    unique_hkey providers;
    if (const LONG result = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kVssProviders, 0, KEY_READ, providers.put())) {
        LogW(L"%s open %s error: %d", kVssName, kVssProviders, result);
        return providerId;
    }
    DWORD count = 0;
    if (const LONG result = ::RegQueryInfoKeyW(providers.get(), nullptr, nullptr, nullptr, &count, nullptr, nullptr,
                                               nullptr, nullptr, nullptr, nullptr, nullptr)) {
        LogW(L"%s get subkey number of %s error: %d", kVssName, kVssProviders, result);
        return providerId;
    }
    for (DWORD index = 0; index < count; ++index) {
        wchar_t name[kPathChars + 1] = {};
        DWORD nameChars = kPathChars;
        if (::RegEnumKeyExW(providers.get(), index, name, &nameChars, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS)
            continue;
        DWORD type = 0;
        LONG read;
        {
            unique_hkey provider;
            if (const LONG result = ::RegOpenKeyExW(providers.get(), name, 0, KEY_READ, provider.put())) {
                LogW(L"%s open %s under %s error: %d", kVssName, name, kVssProviders, result);
                continue;
            }
            DWORD bytes = sizeof type;
            read = ::RegQueryValueExW(provider.get(), L"Type", nullptr, nullptr, reinterpret_cast<BYTE*>(&type), &bytes);
        }
        LogW(L"%s provider %s type: %d", kVssName, name, type);
        if (read != ERROR_SUCCESS) {
            LogW(L"%s get Type of %s under %s error: %d", kVssName, name, kVssProviders, read);
            continue;
        }
        if (type != 1) continue;
        // The first provider of type 1 in enumeration order is the system's.
        const HRESULT converted = ::IIDFromString(name, providerId);
        if (FAILED(converted)) {
            LogW(L"%s convert %s to guid error: 0x%x", kVssName, name, converted);
            *providerId = GUID{};
        } else {
            LogW(L"%s use the system provider: %s", kVssName, name);
        }
        break;
    }
    return providerId;
}
