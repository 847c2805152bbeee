#include "support/files_offline.h"

#include <stdio.h>

#include <algorithm>
#include <iterator>
#include <map>

#include "support/import_hook.h"
#include "support/wine_env.h"

namespace wrtest {

namespace {

using LoadFn = LONG(WINAPI*)(HKEY, LPCWSTR, LPCWSTR);
using UnloadFn = LONG(WINAPI*)(HKEY, LPCWSTR);

struct State {
    LoadFn load = nullptr;
    UnloadFn unload = nullptr;
    std::map<std::wstring, std::wstring> files;  // mount name -> hive file
    std::vector<std::string> calls;
} g;

LONG WINAPI LoadKey(HKEY root, LPCWSTR name, LPCWSTR file) {
    const std::wstring path = file;
    g.calls.push_back("load " + Narrow(path.substr(path.find_last_of(L'\\') + 1)));
    const LONG result = g.load(root, name, file);
    if (result == ERROR_SUCCESS) g.files[name] = file;
    return result;
}

// Saves the mounted hive beside its file first, and moves it over the file once unmounted.
LONG WINAPI UnloadKey(HKEY root, LPCWSTR name) {
    g.calls.push_back("unload " + Narrow(name));
    const auto mounted = g.files.find(name);
    if (mounted == g.files.end()) return g.unload(root, name);
    const std::wstring saved = mounted->second + L".saved";
    HKEY key = nullptr;
    DeleteFileW(saved.c_str());
    const bool backup = ProcessPrivilegeEnabled(L"SeBackupPrivilege");
    SetProcessPrivilege(L"SeBackupPrivilege", true);
    if (RegOpenKeyExW(root, name, 0, KEY_READ, &key) == ERROR_SUCCESS) RegSaveKeyW(key, saved.c_str(), nullptr);
    RegCloseKey(key);
    SetProcessPrivilege(L"SeBackupPrivilege", backup);
    const LONG result = g.unload(root, name);
    if (result != ERROR_SUCCESS) return result;
    MoveFileExW(saved.c_str(), mounted->second.c_str(), MOVEFILE_REPLACE_EXISTING);
    g.files.erase(mounted);
    return result;
}

std::string Render(DWORD type, const BYTE* data, DWORD bytes) {
    char out[16];
    if (type == REG_DWORD && bytes == 4) {
        _snprintf_s(out, sizeof out, _TRUNCATE, "dword:%08lx", *reinterpret_cast<const unsigned long*>(data));
        return out;
    }
    if (type == REG_SZ) return "sz:" + Narrow(std::wstring(reinterpret_cast<const wchar_t*>(data), bytes / 2).c_str());
    _snprintf_s(out, sizeof out, _TRUNCATE, "hex(%lu):", type);
    std::string text = out;
    for (DWORD i = 0; i < bytes; ++i) _snprintf_s(out, sizeof out, _TRUNCATE, i ? ",%02x" : "%02x", data[i]), text += out;
    return text;
}

void DumpKey(HKEY key, const std::string& path, std::set<std::string>& out) {
    if (!path.empty()) out.insert(path);
    const std::string prefix = path.empty() ? "" : path + "\\";
    wchar_t name[256];
    BYTE data[2048];
    for (DWORD i = 0, chars = 256, type = 0, bytes = sizeof data;
         RegEnumValueW(key, i, name, &chars, nullptr, &type, data, &bytes) == ERROR_SUCCESS;
         ++i, chars = 256, bytes = sizeof data) {
        out.insert(prefix + Narrow(name) + " = " + Render(type, data, bytes));
    }
    for (DWORD i = 0, chars = 256; RegEnumKeyExW(key, i, name, &chars, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++i, chars = 256) {
        HKEY child = nullptr;
        if (RegOpenKeyExW(key, name, 0, KEY_READ, &child) == ERROR_SUCCESS) DumpKey(child, prefix + Narrow(name), out);
        RegCloseKey(child);
    }
}

}  // namespace

SavingHiveCalls::SavingHiveCalls()
    : load_("advapi32.dll", "RegLoadKeyW", reinterpret_cast<void*>(LoadKey)),
      unload_("advapi32.dll", "RegUnLoadKeyW", reinterpret_cast<void*>(UnloadKey)) {
    g = {load_.original<LoadFn>(), unload_.original<UnloadFn>(), {}, {}};
}
std::vector<std::string> SavingHiveCalls::calls() const { return g.calls; }

std::set<std::string> DumpHive(const std::wstring& file) {
    std::set<std::string> out;
    const bool restore = ProcessPrivilegeEnabled(L"SeRestorePrivilege");
    SetProcessPrivilege(L"SeRestorePrivilege", true);
    HKEY key = nullptr;
    if (RegLoadKeyW(HKEY_LOCAL_MACHINE, L"WrenkitsCheck", file.c_str()) != ERROR_SUCCESS) out.insert("<no hive>");
    else if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"WrenkitsCheck", 0, KEY_READ, &key) == ERROR_SUCCESS) DumpKey(key, "", out);
    RegCloseKey(key);
    RegUnLoadKeyW(HKEY_LOCAL_MACHINE, L"WrenkitsCheck");
    SetProcessPrivilege(L"SeRestorePrivilege", restore);
    return out;
}

std::set<std::string> ListTree(const std::wstring& root) {
    std::set<std::string> out;
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((root + L"\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return out;
    do {
        const std::wstring name = found.cFileName;
        const bool folder = found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
        if (name == L"." || name == L"..") continue;
        out.insert(Narrow(name) + (folder ? "\\" : ""));
        for (const std::string& inner : folder ? ListTree(root + L"\\" + name) : std::set<std::string>{})
            out.insert(Narrow(name) + "\\" + inner);
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return out;
}

void ClearDrive(wchar_t letter) {
    const std::wstring root = std::wstring(1, letter) + L":\\";
    for (const std::string& entry : ListTree(root.substr(0, 2))) {
        if (entry.find('\\') < entry.size() - 1) continue;  // inside a top-level folder
        const std::wstring path = root + Widen(entry);
        SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (entry.back() == '\\') RemoveTree(path.substr(0, path.size() - 1));
        else DeleteFileW(path.c_str());
    }
}

std::vector<std::string> Minus(const std::set<std::string>& a, const std::set<std::string>& b) {
    std::vector<std::string> out;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

}  // namespace wrtest
