#include "support/registry_fixture.h"

#include <stdio.h>

#include "support/wine_env.h"

namespace wrtest {

namespace {
std::string Escaped(const std::string& s) {
    std::string out;
    for (char c : s) out += c == '\\' || c == '"' ? std::string{'\\', c} : std::string{c};
    return out;
}
std::string Hex(const std::string& bytes) {
    std::string out;
    char b[4];
    for (unsigned char c : bytes) _snprintf_s(b, _TRUNCATE, out.empty() ? "%02x" : ",%02x", c), out += b;
    return out;
}
}  // namespace

TextHive& TextHive::Key(const std::string& path) { return lines_.push_back("\n[" + Escaped(path) + "]"), *this; }
TextHive& TextHive::Value(const std::string& name, const std::string& data) {
    return lines_.push_back("\"" + Escaped(name) + "\"=" + data), *this;
}
TextHive& TextHive::Sz(const std::string& name, const std::string& value) { return Value(name, "\"" + Escaped(value) + "\""); }
TextHive& TextHive::Binary(const std::string& name, const std::string& bytes) { return Value(name, "hex:" + Hex(bytes)); }
TextHive& TextHive::Dword(const std::string& name, DWORD value) {
    char v[20];
    _snprintf_s(v, _TRUNCATE, "dword:%08lx", static_cast<unsigned long>(value));
    return Value(name, v);
}
TextHive& TextHive::MultiSz(const std::string& name, const std::vector<std::string>& strings) {
    std::string utf16;
    for (const auto& s : strings) utf16 += std::string(reinterpret_cast<const char*>(Widen(s).c_str()), 2 * s.size() + 2);
    return Value(name, "hex(7):" + Hex(utf16 + std::string(2, '\0')));
}

std::string TextHive::Text() const {
    std::string text = "WINE REGISTRY Version 2\n\n#arch=win64\n";
    for (const auto& l : lines_) text += l + "\n";
    return text;
}

bool TextHive::Write(const std::wstring& path) const {
    MakeDirs(path.substr(0, path.find_last_of(L'\\')));
    return WriteFileBytes(path, Text());
}

bool HklmKeyExists(const wchar_t* name) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, name, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    return RegCloseKey(key), true;
}

void RemoveHklmKey(const wchar_t* name) {
    if (!HklmKeyExists(name)) return;
    const bool wasEnabled = ProcessPrivilegeEnabled(L"SeRestorePrivilege");
    SetProcessPrivilege(L"SeRestorePrivilege", true);
    // Wine unloads a mount and deletes a plain key of that name alike.
    if (RegUnLoadKeyW(HKEY_LOCAL_MACHINE, name) != ERROR_SUCCESS) RegDeleteTreeW(HKEY_LOCAL_MACHINE, name);
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, name);
    SetProcessPrivilege(L"SeRestorePrivilege", wasEnabled);
}

}  // namespace wrtest
