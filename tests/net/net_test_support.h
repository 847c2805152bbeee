// Shared pieces of the network export tests: a recording fake of the share-connection
// calls, and the folder behind \\nas\backup.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>
#include <winnetwk.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "boot/boot_test_support.h"
#include "support/import_hook.h"
#include "support/wine_env.h"

namespace nettest {

using Lines = std::vector<std::string>;
inline Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
inline std::string N(const wchar_t* text) { return text ? wrtest::Narrow(text) : ""; }
inline std::string U(DWORD value) { return std::to_string(value); }

// How the connection calls answer, and what they were asked.
struct WNet {
    std::vector<DWORD> adds = {};  // answers of the connection attempts in order, then 0
    int reachableAfter = -1;       // the attempt whose success makes \\nas\backup exist; 0: it exists already
    DWORD cancels = 0, openEnum = 0;
    std::vector<std::pair<const wchar_t*, const wchar_t*>> connected = {};  // enumerated (remote, local)
    Lines calls = {};
    int attempts = 0;
};
inline WNet* g_wnet = nullptr;

// Wine serves \\nas\backup from the prefix's "unc" device folder.
inline std::wstring ShareFolder() {
    std::wstring prefix(MAX_PATH, L'\0');
    prefix.resize(GetEnvironmentVariableW(L"WINEPREFIX", prefix.data(), MAX_PATH));
    EXPECT_FALSE(prefix.empty()) << "WINEPREFIX is not set: \\\\nas\\backup cannot be served";
    for (wchar_t& c : prefix) c = c == L'/' ? L'\\' : c;
    return L"Z:" + prefix + L"\\dosdevices\\unc\\nas\\backup";
}

inline DWORD WINAPI FakeAdd(NETRESOURCEW* r, LPCWSTR password, LPCWSTR user, DWORD flags) {
    g_wnet->calls.push_back("add " + U(r->dwScope) + "/" + U(r->dwType) + "/" + U(r->dwDisplayType) + "/" +
                            U(r->dwUsage) + " " + (r->lpLocalName ? N(r->lpLocalName) : "-") + " " +
                            N(r->lpRemoteName) + " " + N(user) + ":" + N(password) + " " + U(flags));
    const size_t i = g_wnet->attempts++;
    const DWORD answer = i < g_wnet->adds.size() ? g_wnet->adds[i] : 0;
    if (answer == 0 && g_wnet->attempts == g_wnet->reachableAfter) wrtest::MakeDirs(ShareFolder() + L"\\pc1");
    return answer;
}
inline DWORD WINAPI FakeCancel(LPCWSTR name, DWORD flags, BOOL force) {
    g_wnet->calls.push_back("cancel " + N(name) + " " + U(flags) + " " + U(force));
    return g_wnet->cancels;
}
inline DWORD WINAPI FakeOpenEnum(DWORD scope, DWORD type, DWORD usage, NETRESOURCEW*, HANDLE* handle) {
    g_wnet->calls.push_back("open " + U(scope) + "/" + U(type) + "/" + U(usage));
    *handle = g_wnet->openEnum ? nullptr : reinterpret_cast<HANDLE>(0x5150);
    return g_wnet->openEnum;
}
// Every entry in the first answer, then the end of the enumeration.
inline DWORD WINAPI FakeEnum(HANDLE, DWORD* count, void* buffer, DWORD*) {
    if (g_wnet->connected.empty()) return ERROR_NO_MORE_ITEMS;
    auto* entry = static_cast<NETRESOURCEW*>(buffer);
    for (const auto& [remote, local] : g_wnet->connected)
        *entry++ = {0, 0, 0, 0, const_cast<LPWSTR>(local), const_cast<LPWSTR>(remote), nullptr, nullptr};
    *count = static_cast<DWORD>(std::exchange(g_wnet->connected, {}).size());
    return NO_ERROR;
}
inline DWORD WINAPI FakeCloseEnum(HANDLE) {
    g_wnet->calls.push_back("close");
    return NO_ERROR;
}

// The fake in place of the connection calls for one case.
class WNetHooks {
public:
    explicit WNetHooks(WNet& scenario, bool enumeration = false) {
        g_wnet = &scenario;
        wrtest::RemoveTree(ShareFolder());
        if (scenario.reachableAfter == 0) wrtest::MakeDirs(ShareFolder() + L"\\pc1");
        if (!enumeration) return;
        for (auto [name, fake] : {std::pair<const char*, void*>{"WNetOpenEnumW", (void*)FakeOpenEnum},
                                  {"WNetEnumResourceW", (void*)FakeEnum}, {"WNetCloseEnum", (void*)FakeCloseEnum}})
            enum_.push_back(std::make_unique<wrtest::ImportHook>("MPR.dll", name, fake));
    }
    ~WNetHooks() {
        // The probe cleans up after itself: once the test's own entries go, the share is empty.
        DeleteFileW((ShareFolder() + L"\\pc1\\image.dat").c_str());
        RemoveDirectoryW((ShareFolder() + L"\\pc1").c_str());
        if (!RemoveDirectoryW(ShareFolder().c_str())) {
            EXPECT_NE(145u, GetLastError()) << "left in \\\\nas\\backup";
        }
        wrtest::RemoveTree(ShareFolder());
        g_wnet = nullptr;
    }

private:
    wrtest::ImportHook add_{"MPR.dll", "WNetAddConnection2W", reinterpret_cast<void*>(FakeAdd)};
    wrtest::ImportHook cancel_{"MPR.dll", "WNetCancelConnection2W", reinterpret_cast<void*>(FakeCancel)};
    std::vector<std::unique_ptr<wrtest::ImportHook>> enum_;
};

// A platform call that fails with `error`.
template <DWORD error, typename... A>
BOOL WINAPI Fail(A...) {
    SetLastError(error);
    return FALSE;
}

}  // namespace nettest
