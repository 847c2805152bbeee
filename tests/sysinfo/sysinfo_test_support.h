// Helpers shared by the system-information tests.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "support/log_capture.h"

namespace sitest {

// Expected log messages, tagged as the library writes them.
inline std::vector<std::string> Lines(const std::vector<std::string>& texts) {
    std::vector<std::string> lines;
    for (const std::string& t : texts) lines.push_back(wrtest::Tagged(t));
    return lines;
}

// HKLM values for the length of a test: keys it made are deleted, values it changed put back.
class MachineKeys {
public:
    MachineKeys() = default;
    MachineKeys(const MachineKeys&) = delete;
    MachineKeys& operator=(const MachineKeys&) = delete;
    ~MachineKeys() {
        for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
            if (it->had) RegSetKeyValueW(HKEY_LOCAL_MACHINE, it->key.c_str(), it->name.c_str(), it->type,
                                         it->bytes.data(), DWORD(it->bytes.size()));
            else RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, it->key.c_str(), it->name.c_str());
        }
        for (const std::wstring& key : made_) RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
    }
    // Sets a value (a null name only makes the key); a null `data` removes the value.
    void Set(const std::wstring& key, const wchar_t* name, DWORD type = 0, const void* data = nullptr, DWORD bytes = 0) {
        HKEY k;
        DWORD how = 0;
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, &how);
        if (how == REG_CREATED_NEW_KEY) made_.insert(made_.begin(), key);
        if (name && how != REG_CREATED_NEW_KEY) {
            Saved s{key, name, false, 0, std::string(2048, '\0')};
            DWORD size = DWORD(s.bytes.size());
            s.had = RegQueryValueExW(k, name, nullptr, &s.type, reinterpret_cast<BYTE*>(&s.bytes[0]), &size) == 0;
            s.bytes.resize(size);
            saved_.push_back(s);
        }
        if (name && data) RegSetValueExW(k, name, 0, type, static_cast<const BYTE*>(data), bytes);
        else if (name) RegDeleteValueW(k, name);
        RegCloseKey(k);
    }
    void Sz(const std::wstring& key, const wchar_t* name, const std::wstring& text) {
        Set(key, name, REG_SZ, text.c_str(), DWORD(text.size() * 2 + 2));
    }

private:
    struct Saved { std::wstring key, name; bool had; DWORD type; std::string bytes; };
    std::vector<std::wstring> made_;
    std::vector<Saved> saved_;
};

}  // namespace sitest
