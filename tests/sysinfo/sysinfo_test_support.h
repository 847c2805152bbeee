// Helpers shared by the system-information tests, over the network tests' line helpers.
#pragma once

#include "net/net_test_support.h"

namespace sitest {

using namespace nettest;
// Expected log messages, tagged as the library writes them.
inline Lines Tagged(Lines texts) {
    for (std::string& t : texts) t = wrtest::Tagged(t);
    return texts;
}

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
