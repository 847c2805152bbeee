#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "sysinfo/sysinfo.h"

using namespace wrenkits;

namespace {

constexpr char kClientKey[] = "SOFTWARE\\Zenthra\\Paravane\\Client";
constexpr char kServerKey[] = "SOFTWARE\\Zenthra\\Paravane\\Server";
constexpr char kCreateName[] = "ZN_CreateInterface";
constexpr DWORD kImageInterface = 5;
constexpr WORD kUnknownImageMajor = 9;

// Cuts a path after its last backslash (keeping it) or, with `keepSlash` false, at it.
// False when there is no backslash left to cut at.
template <typename Char>
bool CutAtLastSlash(Char* path, bool keepSlash) {
    Char* slash = nullptr;
    for (Char* p = path; *p; ++p)
        if (*p == '\\') slash = p;
    if (!slash) return false;
    slash[keepSlash ? 1 : 0] = 0;
    return true;
}

// This module's own file, wherever the process loaded it from.
HMODULE ThisModule() {
    HMODULE self = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<LPCWSTR>(&ThisModule), &self);
    return self;
}

// A module's path; false when it does not fit (a cut path names another file).
bool ModulePathA(HMODULE module, char* path) {
    const DWORD length = ::GetModuleFileNameA(module, path, kPathChars);
    return length != 0 && length < kPathChars;
}

// The image-file object of the product's library, released through its first slot.
struct ImageInfo {
    DWORD size;
    WORD major, minor;
    BYTE rest[3084];
};
static_assert(sizeof(ImageInfo) == 3092 && offsetof(ImageInfo, major) == 4 && offsetof(ImageInfo, minor) == 6);

using ReleaseFn = ULONG(WINAPI*)(void*);
using GetImgFileInfoFn = DWORD(WINAPI*)(void*, LPCWSTR, ImageInfo*);
using CreateObjectFn = DWORD(WINAPI*)(DWORD, DWORD, void**);

class ImageObject {
public:
    ImageObject() = default;
    ImageObject(const ImageObject&) = delete;
    ImageObject& operator=(const ImageObject&) = delete;
    ~ImageObject() {
        if (object_) Slot<ReleaseFn>(0)(object_);
    }
    void** put() { return &object_; }
    DWORD GetImgFileInfo(LPCWSTR path, ImageInfo& info) { return Slot<GetImgFileInfoFn>(12)(object_, path, &info); }

private:
    template <typename Fn>
    Fn Slot(int index) const {
        return reinterpret_cast<Fn>((*reinterpret_cast<void***>(object_))[index]);
    }
    void* object_ = nullptr;
};

// Loads `dllName` from this library's folder and has its factory create `interfaceId`.
DWORD CreateFrom(const wchar_t* dllName, DWORD interfaceId, void** object) {
    wchar_t path[kPathChars];
    const DWORD length = ::GetModuleFileNameW(ThisModule(), path, kPathChars);
    if (length == 0 || length >= kPathChars || !CutAtLastSlash(path, true))
        return RefuseTooLong(kCreateName, "the library folder", kPathChars - 1);
    const size_t folderChars = wcslen(path);
    if (!FormatWholeW(path + folderChars, kPathChars - folderChars, L"%s", dllName))
        return RefuseTooLong(kCreateName, "the image library path", kPathChars - 1);
    LogW(L"%S try to load %s", kCreateName, path);
    // Never unloaded: objects created by it may outlive this call.
    const HMODULE library = ::LoadLibraryW(path);
    if (!library) {
        const DWORD error = ::GetLastError();
        LogW(L"%S load %s error: %d", kCreateName, path, error);
        return error;
    }
    const auto create = RoutineAs<CreateObjectFn>(::GetProcAddress(library, "QOCreateObject"));
    if (!create) {
        const DWORD error = ::GetLastError();
        LogW(L"%S get QOCreateObject in %s error: %d", kCreateName, path, error);
        return error;
    }
    const DWORD status = create(256, interfaceId, object);
    if (status == 0) return 0;
    *object = nullptr;
    LogA("%s create image file interface error: 0x%x", kCreateName, status);
    return status;
}

}  // namespace

namespace wrenkits {

bool IsPeCommandLine(const wchar_t* cmdLine) {
    // The PE shell is started bare; Pecmd-built environments start their shell
    // with a script argument, so only its name is compared.
    return _wcsicmp(cmdLine, L"winpeshl.exe") == 0 || _wcsnicmp(cmdLine, L"Pecmd.exe", 9) == 0;
}

const wchar_t* QorlibFor(WORD major, WORD minor) {
    if (major < 9) return L"Qorlib_8.dll";
    if (major == 9 && minor < 3) return L"Qorlib_9_0.dll";
    if (major == 9 && minor == 3) return L"Qorlib_9_1.dll";
    return L"Qorlib.dll";
}

}  // namespace wrenkits

extern "C" DWORD WINAPI ZN_GetUniversalDriversPack(LPSTR folder) {
    constexpr char kName[] = "ZN_GetUniversalDriversPack";
    if (!folder) return RefuseInvalid(kName, "the folder buffer");
    char base[kPathChars];
    if (!ModulePathA(ThisModule(), base) || !CutAtLastSlash(base, false))
        return RefuseTooLong(kName, "the library path", kPathChars - 1);
    // The library's own folder first, then the client's and the console's beside it.
    static const char* const kCandidates[] = {"%s\\Bootres\\DriversPack", "%s\\Client\\Bootres\\DriversPack",
                                              "%s\\Console\\Bootres\\DriversPack"};
    for (int i = 0; i < 3; ++i) {
        if (i == 1 && !CutAtLastSlash(base, false)) break;
        // Two characters stay free for the double terminator of a one-path list.
        if (!FormatWholeA(folder, kPathChars - 1, kCandidates[i], base))
            return RefuseTooLong(kName, "the drivers pack path", kPathChars - 2);
        ::OutputDebugStringA(folder);
        if (::GetFileAttributesA(folder) != INVALID_FILE_ATTRIBUTES) {
            LogA("%s get path: %s", kName, folder);
            folder[strlen(folder) + 1] = '\0';
            return ERROR_SUCCESS;
        }
    }
    LogA("%s the Bootres folder can not found!", kName);
    return ERROR_FILE_NOT_FOUND;
}

extern "C" DWORD WINAPI ZN_GetLanguageID() {
    constexpr char kName[] = "ZN_GetLanguageID";
    constexpr DWORD kDefaultLanguage = 1033;
    // Settings lie beside the product's programs: above the image library's folder
    // when the product loaded it, else beside the host.
    char ini[kPathChars];
    const HMODULE qorlib = ::GetModuleHandleA("Qorlib");
    if (qorlib) {
        if (!ModulePathA(qorlib, ini) || !CutAtLastSlash(ini, false) || !CutAtLastSlash(ini, false))
            return kDefaultLanguage;
    } else if (!ModulePathA(nullptr, ini) || !CutAtLastSlash(ini, false)) {
        return kDefaultLanguage;
    }
    const size_t folderChars = strlen(ini);
    if (!FormatWholeA(ini + folderChars, kPathChars - folderChars, "%s", "\\Dispatch.ini")) {
        RefuseTooLong(kName, "the settings file path", kPathChars - 1);
        return kDefaultLanguage;
    }
    LogA("%s ini file: %s", kName, ini);
    const UINT useType = ::GetPrivateProfileIntA("OPERATE_START", "useType", 2, ini);
    const char* keyPath = useType == 2 ? kClientKey : kServerKey;

    unique_hkey key;
    if (const LONG result = ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_READ, key.put())) {
        LogA("%s open key %s error: %d", kName, keyPath, result);
        return kDefaultLanguage;
    }
    DWORD language = 0, bytes = sizeof language;
    if (const LONG result =
            ::RegQueryValueExA(key.get(), "Language", nullptr, nullptr, reinterpret_cast<BYTE*>(&language), &bytes)) {
        LogA("%s query Language in %s error: %d", kName, keyPath, result);
        return kDefaultLanguage;
    }
    return language;
}

extern "C" BOOL WINAPI ZN_IsUnderPE() {
    unique_hkey setup;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\SETUP", 0, KEY_READ, setup.put()) != ERROR_SUCCESS) return FALSE;
    // One spare character keeps a value that fills the whole buffer terminated.
    wchar_t cmdLine[kPathChars + 1] = {};
    DWORD bytes = kPathChars * sizeof(wchar_t);
    if (::RegQueryValueExW(setup.get(), L"CmdLine", nullptr, nullptr, reinterpret_cast<BYTE*>(cmdLine), &bytes) !=
        ERROR_SUCCESS)
        return FALSE;
    return IsPeCommandLine(cmdLine) ? TRUE : FALSE;
}

extern "C" DWORD WINAPI ZN_CreateInterface(WORD major, WORD minor, DWORD interfaceId, void** object) {
    if (!object) return RefuseInvalid(kCreateName, "the object address");
    return CreateFrom(QorlibFor(major, minor), interfaceId, object);
}

extern "C" WORD WINAPI ZN_GetImageVersion(LPCWSTR imagePath, PWORD minorVersion) {
    constexpr wchar_t kName[] = L"ZN_GetImageVersion";
    if (minorVersion) *minorVersion = 3;
    if (!imagePath) {
        RefuseInvalid("ZN_GetImageVersion", "the image path");
        return kUnknownImageMajor;
    }
    // Every image format is read by the newest library, whatever the version asked.
    ImageObject image;
    if (CreateFrom(L"Qorlib.dll", kImageInterface, image.put()) != 0) return kUnknownImageMajor;
    ImageInfo info = {};
    info.size = sizeof info;
    if (const DWORD status = image.GetImgFileInfo(imagePath, info)) {
        LogW(L"%s GetImgFileInfo(%s) failed, error: 0x%x", kName, imagePath, status);
        return kUnknownImageMajor;
    }
    if (minorVersion) *minorVersion = info.minor;
    LogW(L"%s %s version: %d %d", kName, imagePath, info.major, info.minor);
    return info.major;
}

extern "C" DWORD WINAPI ZN_GetProductName(LPWSTR name) {
    constexpr char kName[] = "ZN_GetProductName";
    constexpr DWORD kNameChars = 260;
    constexpr wchar_t kDefaultProduct[] = L"Lumenkeep";
    if (!name) return RefuseInvalid(kName, "the name buffer");
    unique_hkey key;
    const char* keyPath = kClientKey;
    if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_READ, key.put()) != ERROR_SUCCESS) {
        keyPath = kServerKey;
        if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_READ, key.put()) != ERROR_SUCCESS)
            return wcscpy_s(name, kNameChars, kDefaultProduct), ERROR_SUCCESS;
    }
    DWORD bytes = kNameChars * sizeof(wchar_t);
    if (const LONG result =
            ::RegQueryValueExW(key.get(), L"ProductName", nullptr, nullptr, reinterpret_cast<BYTE*>(name), &bytes)) {
        // The language query's wording, as the product's log readers know it.
        LogA("%s query Language in %s error: %d", kName, keyPath, result);
        wcscpy_s(name, kNameChars, kDefaultProduct);
        return ERROR_SUCCESS;
    }
    if (wcsnlen(name, kNameChars) == kNameChars) {
        // A value that fills the buffer has no terminator: handing it on would read past it.
        name[0] = L'\0';
        return RefuseTooLong(kName, "the product name", kNameChars - 1);
    }
    return ERROR_SUCCESS;
}

extern "C" DWORD WINAPI ZN_GetProductType() {
    constexpr char kName[] = "ZN_GetProductType";
    unique_hkey key;
    if (const LONG result = ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, kClientKey, 0, KEY_READ, key.put())) {
        LogA("%s open registry SOFTWARE\\Zenthra\\Paravane\\Client error: %d", kName, result);
        return 0;
    }
    char text[261] = {};  // one spare byte keeps a full value terminated
    DWORD bytes = 260;
    if (const LONG result =
            ::RegQueryValueExA(key.get(), "PRODUCTTYPE", nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes)) {
        LogA("%s query PRODUCTTYPE from registry error: %d", kName, result);
        return 0;
    }
    DWORD type = 0;
    for (const char* p = text; *p >= '0' && *p <= '9'; ++p) type = type * 10 + static_cast<DWORD>(*p - '0');
    return type;
}
