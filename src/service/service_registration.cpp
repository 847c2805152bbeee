#include <wchar.h>

#include <optional>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "registry/hive.h"

using namespace wrenkits;

namespace {

constexpr char kName[] = "ZN_AddService";
constexpr wchar_t kMountName[] = L"ZNRegKey";
constexpr wchar_t kDefaultWindows[] = L"C:\\Windows";

// A string value is written with one wide character beyond its terminator: the byte
// count of (characters + 2) wide characters.
DWORD ValueBytes(size_t chars) { return static_cast<DWORD>((chars + 2) * sizeof(wchar_t)); }

// The running system's Windows folder without a trailing backslash.
void ReadWindowsFolder(wchar_t (&folder)[kPathChars]) {
    const UINT length = ::GetWindowsDirectoryW(folder, kPathChars);
    if (length == 0 || length >= kPathChars) {
        LogA("%s get windows directory error: %d, use C:\\Windows for default", kName, ::GetLastError());
        wcscpy_s(folder, kDefaultWindows);
        return;
    }
    const size_t end = wcslen(folder);
    if (end > 0 && folder[end - 1] == L'\\') folder[end - 1] = 0;
}

class ServiceKeyWriter {
public:
    explicit ServiceKeyWriter(HKEY key) : key_(key) {}

    // Writes `bytes` of `data` as REG_SZ; the failure line shows `shown`.
    DWORD Text(const wchar_t* value, const wchar_t* data, DWORD bytes, const wchar_t* shown) {
        const LSTATUS status = ::RegSetValueExW(key_, value, 0, REG_SZ, reinterpret_cast<const BYTE*>(data), bytes);
        if (status != ERROR_SUCCESS) LogW(L"%S set %s %s error: %d", kName, value, shown, status);
        return static_cast<DWORD>(status);
    }

    DWORD Number(const wchar_t* value, DWORD number) {
        const LSTATUS status =
            ::RegSetValueExW(key_, value, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
        if (status != ERROR_SUCCESS) LogW(L"%S set %s %d error: %d", kName, value, number, status);
        return static_cast<DWORD>(status);
    }

private:
    HKEY key_;
};

// Writes the eight values in their fixed order; the first failure ends the writing.
DWORD WriteServiceValues(HKEY key, LPCWSTR imagePath, LPCWSTR displayName, LPCWSTR description) {
    const size_t imageChars = wcslen(imagePath);
    const size_t descriptionChars = wcslen(description);
    const size_t displayChars = wcslen(displayName);
    // Room for each text and the extra character behind its terminator, zero-filled,
    // so that nothing is read beyond what this function owns.
    const size_t workChars = (displayChars > descriptionChars ? displayChars : descriptionChars) + 2;
    unique_heap image = HeapAllocZeroed(ValueBytes(imageChars));
    unique_heap work = HeapAllocZeroed(workChars * sizeof(wchar_t));
    if (!image || !work) return ERROR_NOT_ENOUGH_MEMORY;
    auto* imageText = static_cast<wchar_t*>(image.get());
    auto* workText = static_cast<wchar_t*>(work.get());
    wmemcpy(imageText, imagePath, imageChars);
    wmemcpy(workText, description, descriptionChars);
    static const wchar_t kLocalSystem[] = L"LocalSystem\0";

    ServiceKeyWriter writer(key);
    const DWORD descriptionBytes = ValueBytes(descriptionChars);
    if (DWORD e = writer.Text(L"ImagePath", imageText, ValueBytes(imageChars), imagePath)) return e;
    if (DWORD e = writer.Text(L"Description", workText, descriptionBytes, workText)) return e;
    // The display name takes the description's place in the work text and is written
    // with the description's byte count: a shorter one carries the rest of the
    // description behind its terminator, a longer one is cut without a terminator.
    wcscpy_s(workText, workChars, displayName);
    if (DWORD e = writer.Text(L"DisplayName", workText, descriptionBytes, workText)) return e;
    if (DWORD e = writer.Text(L"ObjectName", kLocalSystem, ValueBytes(wcslen(kLocalSystem)), kLocalSystem)) return e;
    if (DWORD e = writer.Number(L"ErrorControl", SERVICE_ERROR_NORMAL)) return e;
    if (DWORD e = writer.Number(L"Start", SERVICE_AUTO_START)) return e;
    if (DWORD e = writer.Number(L"Type", SERVICE_WIN32_OWN_PROCESS)) return e;
    return writer.Number(L"WOW64", 1);
}

bool Empty(LPCWSTR text) { return !text || !*text; }

}  // namespace

extern "C" DWORD WINAPI ZN_AddService(WCHAR driveLetter, LPCWSTR serviceName, LPCWSTR imagePath, LPCWSTR displayName,
                                     LPCWSTR description) {
    if (!IsDriveLetter(driveLetter) || Empty(serviceName) || Empty(imagePath)) return ERROR_INVALID_PARAMETER;
    if (Empty(displayName)) displayName = serviceName;
    if (Empty(description)) description = serviceName;

    wchar_t windows[kPathChars];
    ReadWindowsFolder(windows);
    const bool offline = UpperLetter(windows[0]) != UpperLetter(driveLetter);

    // A cut key path would name another service's key, a cut hive path another file.
    wchar_t keyPath[kPathChars];
    wchar_t hivePath[kPathChars];
    const bool fits = offline ? FormatWholeW(keyPath, kPathChars, L"%s\\ControlSet001\\Services\\%s", kMountName,
                                             serviceName) &&
                                    FormatWholeW(hivePath, kPathChars, L"%s\\system32\\config\\system", windows)
                              : FormatWholeW(keyPath, kPathChars, L"SYSTEM\\CurrentControlSet\\Services\\%s",
                                             serviceName);
    if (!fits) return RefuseTooLong(kName, "service key or hive path", kPathChars - 1);

    std::optional<MountedHive> hive;  // before the key: the key is closed first
    if (offline) {
        hivePath[0] = driveLetter;
        hive.emplace(hivePath, kMountName);
        if (!*hive) {
            LogW(L"%S load %s error: %d", kName, hivePath, hive->result());
            return hive->result();
        }
    }

    unique_hkey key;
    const LSTATUS created = ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                              KEY_ALL_ACCESS, nullptr, key.put(), nullptr);
    if (created != ERROR_SUCCESS) {
        LogW(L"%S create %s error: %d", kName, keyPath, created);
        return static_cast<DWORD>(created);
    }
    const DWORD result = WriteServiceValues(key.get(), imagePath, displayName, description);
    if (result == ERROR_SUCCESS) ::RegFlushKey(key.get());
    return result;
}
