#include "wine_env.h"

namespace wrtest {

std::wstring ExeDir() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring p = path;
    return p.substr(0, p.find_last_of(L'\\'));
}

std::wstring SystemDir() {
    wchar_t path[MAX_PATH] = {};
    GetSystemDirectoryW(path, MAX_PATH);
    return path;
}

std::string Narrow(const std::wstring& w, UINT codePage) {
    std::string s(w.size() * 4, '\0');
    s.resize(WideCharToMultiByte(codePage, 0, w.c_str(), int(w.size()), s.data(), int(s.size()), nullptr, nullptr));
    return s;
}

std::wstring Widen(const std::string& s, UINT codePage) {
    std::wstring w(s.size(), L'\0');
    w.resize(MultiByteToWideChar(codePage, 0, s.c_str(), int(s.size()), w.data(), int(w.size())));
    return w;
}

bool WriteFileBytes(const std::wstring& path, const std::string& bytes) {
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    BOOL ok = WriteFile(f, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(f);
    return ok && written == bytes.size();
}

std::string ReadFileBytes(const std::wstring& path) {
    HANDLE f = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f == INVALID_HANDLE_VALUE) return {};
    std::string all;
    char buf[65536];
    DWORD got = 0;
    while (ReadFile(f, buf, sizeof buf, &got, nullptr) && got) all.append(buf, got);
    CloseHandle(f);
    return all;
}

bool FileExists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

void MakeDirs(const std::wstring& path) {
    for (size_t pos = path.find(L'\\', 3); ; pos = path.find(L'\\', pos + 1)) {
        CreateDirectoryW(path.substr(0, pos).c_str(), nullptr);
        if (pos == std::wstring::npos) break;
    }
}

void RemoveTree(const std::wstring& path) {
    WIN32_FIND_DATAW fd;
    HANDLE find = FindFirstFileW((path + L"\\*").c_str(), &fd);
    for (BOOL more = find != INVALID_HANDLE_VALUE; more; more = FindNextFileW(find, &fd)) {
        const std::wstring name = fd.cFileName, child = path + L"\\" + name;
        if (name == L"." || name == L"..") continue;
        if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) RemoveTree(child);
        SetFileAttributesW(child.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileW(child.c_str());
    }
    if (find != INVALID_HANDLE_VALUE) FindClose(find);
    RemoveDirectoryW(path.c_str());
}

bool SetProcessPrivilege(const wchar_t* name, bool enable) {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token)) return false;
    TOKEN_PRIVILEGES tp = {};
    tp.PrivilegeCount = 1;
    tp.Privileges[0].Attributes = enable ? SE_PRIVILEGE_ENABLED : 0;
    bool ok = LookupPrivilegeValueW(nullptr, name, &tp.Privileges[0].Luid) &&
              AdjustTokenPrivileges(token, FALSE, &tp, sizeof tp, nullptr, nullptr);
    CloseHandle(token);
    return ok;
}

bool ProcessPrivilegeEnabled(const wchar_t* name) {
    HANDLE token = nullptr;
    LUID luid = {};
    alignas(8) BYTE buf[4096];  // a process holds some thirty privileges
    DWORD size = 0;
    bool enabled = false;
    if (LookupPrivilegeValueW(nullptr, name, &luid) && OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) &&
        GetTokenInformation(token, TokenPrivileges, buf, sizeof buf, &size)) {
        const auto* tp = reinterpret_cast<const TOKEN_PRIVILEGES*>(buf);
        for (DWORD i = 0; i < tp->PrivilegeCount; ++i)
            if (tp->Privileges[i].Luid.LowPart == luid.LowPart && tp->Privileges[i].Luid.HighPart == luid.HighPart)
                enabled = (tp->Privileges[i].Attributes & SE_PRIVILEGE_ENABLED) != 0;
    }
    if (token) CloseHandle(token);
    return enabled;
}

}  // namespace wrtest
