// Shared pieces of the network export tests: a recording fake of the share-connection
// calls, the folder behind \\nas\backup, and HKLM keys put back after a test.
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
inline std::string N(const wchar_t* text) { return text ? wrtest::Narrow(text) : "(null)"; }

// How the connection calls answer, and what they did.
struct WNet {
    std::vector<DWORD> adds = {};  // answers of the connection attempts in order; 0 past the end
    int reachableAfter = -1;     // the attempt whose success makes \\nas\backup exist; 0: it exists already
    DWORD cancels = 0;           // every cancellation's answer
    std::vector<std::pair<const wchar_t*, const wchar_t*>> connected = {};  // enumerated (remote, local)
    DWORD openEnum = 0;
    Lines calls = {};
    int attempts = 0;
    int enumerations = 0;
};
inline WNet* g_wnet = nullptr;

// \\nas\backup is a folder of the prefix's "unc" device folder, which Wine serves as
// the server "nas".
inline std::wstring ShareFolder() {
    std::wstring prefix(MAX_PATH, L'\0');
    prefix.resize(GetEnvironmentVariableW(L"WINEPREFIX", prefix.data(), MAX_PATH));
    EXPECT_FALSE(prefix.empty()) << "WINEPREFIX is not set: \\nas\backup cannot be served";
    for (wchar_t& c : prefix) c = c == L'/' ? L'\\' : c;
    return L"Z:" + prefix + L"\\dosdevices\\unc\\nas\\backup";
}
inline void MakeShare() { wrtest::MakeDirs(ShareFolder() + L"\\pc1"); }

inline DWORD WINAPI FakeAdd(NETRESOURCEW* r, LPCWSTR password, LPCWSTR user, DWORD flags) {
    g_wnet->calls.push_back("add " + std::to_string(r->dwScope) + "/" + std::to_string(r->dwType) + "/" +
                            std::to_string(r->dwDisplayType) + "/" + std::to_string(r->dwUsage) + " " +
                            (r->lpLocalName ? N(r->lpLocalName) : "-") + " " + N(r->lpRemoteName) + " " + N(user) +
                            ":" + N(password) + " " + std::to_string(flags));
    const size_t i = g_wnet->attempts++;
    const DWORD answer = i < g_wnet->adds.size() ? g_wnet->adds[i] : 0;
    if (answer == 0 && g_wnet->attempts == g_wnet->reachableAfter) MakeShare();
    return answer;
}
inline DWORD WINAPI FakeCancel(LPCWSTR name, DWORD flags, BOOL force) {
    g_wnet->calls.push_back("cancel " + N(name) + " " + std::to_string(flags) + " " + std::to_string(force));
    return g_wnet->cancels;
}
inline DWORD WINAPI FakeOpenEnum(DWORD scope, DWORD type, DWORD usage, NETRESOURCEW*, HANDLE* handle) {
    g_wnet->calls.push_back("open " + std::to_string(scope) + "/" + std::to_string(type) + "/" + std::to_string(usage));
    *handle = g_wnet->openEnum ? nullptr : reinterpret_cast<HANDLE>(0x5150);
    return g_wnet->openEnum;
}
// All entries in the first answer, then the end of the enumeration.
inline DWORD WINAPI FakeEnum(HANDLE, DWORD* count, void* buffer, DWORD*) {
    if (g_wnet->enumerations++ || g_wnet->connected.empty()) return ERROR_NO_MORE_ITEMS;
    auto* entries = static_cast<NETRESOURCEW*>(buffer);
    for (const auto& [remote, local] : g_wnet->connected) {
        *entries = {};
        entries->lpRemoteName = const_cast<LPWSTR>(remote);
        (entries++)->lpLocalName = const_cast<LPWSTR>(local);
    }
    *count = static_cast<DWORD>(g_wnet->connected.size());
    return NO_ERROR;
}
inline DWORD WINAPI FakeCloseEnum(HANDLE) {
    g_wnet->calls.push_back("close");
    return NO_ERROR;
}

// Puts the fake in place of the connection calls for one case.
class WNetHooks {
public:
    explicit WNetHooks(WNet& scenario, bool enumeration = false) {
        g_wnet = &scenario;
        wrtest::RemoveTree(ShareFolder());
        if (scenario.reachableAfter == 0) MakeShare();
        if (!enumeration) return;
        for (auto [name, fake] : {std::pair<const char*, void*>{"WNetOpenEnumW", reinterpret_cast<void*>(FakeOpenEnum)},
                                  {"WNetEnumResourceW", reinterpret_cast<void*>(FakeEnum)},
                                  {"WNetCloseEnum", reinterpret_cast<void*>(FakeCloseEnum)}})
            enum_.push_back(std::make_unique<wrtest::ImportHook>("MPR.dll", name, fake));
    }
    ~WNetHooks() {
        // The probe cleans up after itself: the share holds only what the test put there.
        EXPECT_EQ(Lines({"pc1"}), Children(ShareFolder())) << "left behind in \\\\nas\\backup";
        wrtest::RemoveTree(ShareFolder());
        g_wnet = nullptr;
    }
    static Lines Children(const std::wstring& folder) {
        WIN32_FIND_DATAW found;
        HANDLE find = FindFirstFileW((folder + L"\\*").c_str(), &found);
        if (find == INVALID_HANDLE_VALUE) return {"pc1"};  // no share, nothing left behind
        Lines names;
        do {
            if (wcscmp(found.cFileName, L".") && wcscmp(found.cFileName, L"..")) names.push_back(N(found.cFileName));
        } while (FindNextFileW(find, &found));
        FindClose(find);
        return names;
    }

private:
    wrtest::ImportHook add_{"MPR.dll", "WNetAddConnection2W", reinterpret_cast<void*>(FakeAdd)};
    wrtest::ImportHook cancel_{"MPR.dll", "WNetCancelConnection2W", reinterpret_cast<void*>(FakeCancel)};
    std::vector<std::unique_ptr<wrtest::ImportHook>> enum_;
};

// A platform call that fails with `error`, for the probe's platform calls.
template <typename... A>
struct Fails {
    static inline DWORD error = 0;
    static BOOL WINAPI Call(A...) {
        SetLastError(error);
        return FALSE;
    }
};

}  // namespace nettest
