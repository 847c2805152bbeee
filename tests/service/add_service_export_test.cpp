// Service keys written straight into the running registry or an offline SYSTEM hive.
// Wine never writes a mounted hive back, so the unload is hooked to read the key first.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "service/service_test_support.h"
#include "support/registry_fixture.h"

using namespace std::string_literals;

namespace {

// Value name → (type, data bytes).
using Values = std::map<std::string, std::pair<DWORD, std::string>>;

Values ReadValues(const std::wstring& keyPath) {
    Values values;
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return values;
    wchar_t name[64];
    BYTE data[512];
    for (DWORD i = 0;; ++i) {
        DWORD nameChars = 64, bytes = sizeof data, type = 0;
        if (RegEnumValueW(key, i, name, &nameChars, nullptr, &type, data, &bytes) != ERROR_SUCCESS) break;
        values[wrtest::Narrow(name)] = {type, std::string(reinterpret_cast<char*>(data), bytes)};
    }
    RegCloseKey(key);
    return values;
}

const std::wstring kOfflineKey = L"ZNRegKey\\ControlSet001\\Services\\WrTestAdd";
const std::wstring kRunningKey = L"SYSTEM\\CurrentControlSet\\Services\\WrTestAdd";

// What the hooked platform calls saw and did.
Values AtUnload;
int Unloads = 0;
std::wstring FailValue;  // RegSetValueExW of this value fails with 5
bool FailCreate = false;

LSTATUS WINAPI SavingUnload(HKEY root, LPCWSTR name) {
    ++Unloads;
    AtUnload = ReadValues(kOfflineKey);
    return RegUnLoadKeyW(root, name);
}
LSTATUS WINAPI FailingSet(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD bytes) {
    return name == FailValue ? ERROR_ACCESS_DENIED : RegSetValueExW(key, name, reserved, type, data, bytes);
}
LSTATUS WINAPI FailingCreate(HKEY root, LPCWSTR path, DWORD reserved, LPWSTR cls, DWORD options, REGSAM access,
                             SECURITY_ATTRIBUTES* sa, HKEY* key, DWORD* disposition) {
    if (FailCreate) return ERROR_ACCESS_DENIED;
    return RegCreateKeyExW(root, path, reserved, cls, options, access, sa, key, disposition);
}

std::pair<DWORD, std::string> Sz(const std::wstring& data) {
    return {REG_SZ, std::string(reinterpret_cast<const char*>(data.data()), data.size() * sizeof(wchar_t))};
}
std::pair<DWORD, std::string> Dword(DWORD v) { return {REG_DWORD, std::string(reinterpret_cast<char*>(&v), 4)}; }

// Every value as a complete registration writes it; the strings carry two terminators.
Values Written(const std::wstring& description, const std::wstring& displayName) {
    return {{"ImagePath", Sz(L"C:\\Program Files\\Wr\\svc.exe\0\0"s)}, {"Description", Sz(description)},
            {"DisplayName", Sz(displayName)},  {"ObjectName", Sz(L"LocalSystem\0\0"s)},
            {"ErrorControl", Dword(1)},        {"Start", Dword(2)},
            {"Type", Dword(16)},               {"WOW64", Dword(1)}};
}
Values Only(Values all, const std::vector<std::string>& names) {
    Values some;
    for (const auto& n : names) some[n] = all[n];
    return some;
}

struct Case {
    const char* name;
    WCHAR letter = L'W';  // W holds an offline installation, X none, C is the running system
    const wchar_t* display = L"Ab";
    const wchar_t* description = L"Longer text";
    DWORD result = 0;
    std::vector<std::string> log = {};
    Values values = {};
    const wchar_t* failValue = L"";
    bool failCreate = false;
    const wchar_t* service = L"WrTestAdd";
    const wchar_t* image = L"C:\\Program Files\\Wr\\svc.exe";
};

const std::string kHive = "W:\\windows\\system32\\config\\system";

TEST(AddService, WritesTheServiceKeyIntoTheRunningOrAnOfflineSystem) {
    const Values full = Written(L"Longer text\0\0"s, L"Ab\0ger text\0\0"s);
    const Case cases[] = {
        // The display name takes the description's byte count: the rest of the description follows it.
        {.name = "offline, shorter display name", .values = full},
        {.name = "offline, lower-case letter, longer display name cut without terminator", .letter = L'w',
         .display = L"A much longer name", .description = L"Desc",
         .values = Written(L"Desc\0\0"s, L"A much"s)},
        {.name = "running system by lower-case letter, defaults to the service name", .letter = L'c',
         .display = nullptr, .description = L"", .values = Written(L"WrTestAdd\0\0"s, L"WrTestAdd\0\0"s)},
        {.name = "hive cannot be mounted", .letter = L'X', .result = ERROR_PATH_NOT_FOUND,
         .log = {"ZN_LoadRegistry load X:\\windows\\system32\\config\\system to ZNRegKey error: 3",
                 "ZN_AddService load X:\\windows\\system32\\config\\system error: 3"}},
        {.name = "key cannot be created", .result = ERROR_ACCESS_DENIED,
         .log = {"ZN_AddService create ZNRegKey\\ControlSet001\\Services\\WrTestAdd error: 5"}, .failCreate = true},
        {.name = "a text value fails: later ones are not written", .result = ERROR_ACCESS_DENIED,
         .log = {"ZN_AddService set DisplayName Ab error: 5"}, .values = Only(full, {"ImagePath", "Description"}),
         .failValue = L"DisplayName"},
        {.name = "a number value fails", .result = ERROR_ACCESS_DENIED, .log = {"ZN_AddService set Start 2 error: 5"},
         .values = Only(full, {"ImagePath", "Description", "DisplayName", "ObjectName", "ErrorControl"}),
         .failValue = L"Start"},
        {.name = "digit letter", .letter = L'1', .result = ERROR_INVALID_PARAMETER},
        {.name = "empty service name", .result = ERROR_INVALID_PARAMETER, .service = L""},
        {.name = "null image path", .result = ERROR_INVALID_PARAMETER, .image = nullptr},
    };
    ASSERT_TRUE(wrtest::TextHive().Key("Select").Dword("Current", 1).Key("ControlSet001\\Services\\Other")
                    .Dword("Type", 16).Write(wrtest::Widen(kHive)));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const bool offline = c.letter != L'c';
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kRunningKey.c_str());
        AtUnload.clear();
        Unloads = 0;
        FailValue = c.failValue;
        FailCreate = c.failCreate;
        wrtest::ImportHook unload("ADVAPI32.dll", "RegUnLoadKeyW", reinterpret_cast<void*>(&SavingUnload));
        wrtest::ImportHook set("ADVAPI32.dll", "RegSetValueExW", reinterpret_cast<void*>(&FailingSet));
        wrtest::ImportHook create("ADVAPI32.dll", "RegCreateKeyExW", reinterpret_cast<void*>(&FailingCreate));
        wrtest::LogCapture log;

        EXPECT_EQ(c.result, ZN_AddService(c.letter, c.service, c.image, c.display, c.description));

        svctest::ExpectLog(log, c.log);
        EXPECT_EQ(c.values, offline ? AtUnload : ReadValues(kRunningKey));
        // Mounted exactly when a hive was there to mount, and always unmounted again.
        const bool mounted = c.result != ERROR_INVALID_PARAMETER && (c.letter | 0x20) == L'w';
        EXPECT_EQ(mounted ? 1 : 0, Unloads);
        EXPECT_FALSE(wrtest::HklmKeyExists(L"ZNRegKey"));
        EXPECT_FALSE(offline && wrtest::HklmKeyExists(kRunningKey.c_str())) << "written into the running system";
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kRunningKey.c_str());
    }
    wrtest::RemoveTree(L"W:\\windows");
}

}  // namespace
