// Helpers shared by the system-information tests.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/wine_env.h"

namespace sitest {

using Lines = std::vector<std::string>;
// Expected log messages, tagged as the library writes them.
inline Lines Tagged(Lines texts) {
    for (std::string& t : texts) t = wrtest::Tagged(t);
    return texts;
}
inline Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
inline std::string U(DWORD value) { return std::to_string(value); }

// HKLM keys a test makes (none of them exists in the prefix), deleted whole when it ends.
struct MadeKeys {
    std::vector<std::wstring> keys;
    ~MadeKeys() {
        for (const std::wstring& key : keys) RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
    }
};
inline void Put(const std::wstring& key, const wchar_t* name, const std::wstring& text) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, REG_SZ, text.c_str(), DWORD(text.size() * 2 + 2));
}
inline void Put(const std::wstring& key, const wchar_t* name, DWORD value) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, REG_DWORD, &value, 4);
}

}  // namespace sitest
