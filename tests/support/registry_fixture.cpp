#include "support/registry_fixture.h"

#include <stdio.h>

#include "support/wine_env.h"

namespace wrtest {

namespace {
std::string EscapeText(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '\\' || c == '"') out += '\\';
        out += c;
    }
    return out;
}

std::string HexBytes(const std::string& bytes) {
    std::string out;
    char b[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        snprintf(b, sizeof b, "%02x", static_cast<unsigned char>(bytes[i]));
        if (i) out += ',';
        out += b;
    }
    return out;
}
}  // namespace

TextHive& TextHive::Key(const std::string& path) {
    lines_.push_back("");
    lines_.push_back("[" + EscapeText(path) + "]");
    return *this;
}

TextHive& TextHive::Sz(const std::string& name, const std::string& value) {
    lines_.push_back("\"" + EscapeText(name) + "\"=\"" + EscapeText(value) + "\"");
    return *this;
}

TextHive& TextHive::Dword(const std::string& name, DWORD value) {
    char v[16];
    snprintf(v, sizeof v, "%08lx", static_cast<unsigned long>(value));
    lines_.push_back("\"" + EscapeText(name) + "\"=dword:" + v);
    return *this;
}

TextHive& TextHive::Binary(const std::string& name, const std::string& bytes) {
    lines_.push_back("\"" + EscapeText(name) + "\"=hex:" + HexBytes(bytes));
    return *this;
}

TextHive& TextHive::MultiSz(const std::string& name, const std::vector<std::string>& strings) {
    std::string utf16;
    for (const auto& s : strings) {
        for (char c : s) utf16 += std::string{c, '\0'};
        utf16 += std::string(2, '\0');
    }
    utf16 += std::string(2, '\0');
    lines_.push_back("\"" + EscapeText(name) + "\"=hex(7):" + HexBytes(utf16));
    return *this;
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
    RegCloseKey(key);
    return true;
}

void RemoveHklmKey(const wchar_t* name) {
    if (!HklmKeyExists(name)) return;
    const bool wasEnabled = ProcessPrivilegeEnabled(L"SeRestorePrivilege");
    SetProcessPrivilege(L"SeRestorePrivilege", true);
    // Wine unloads a mount and deletes a plain key of that name alike.
    if (RegUnLoadKeyW(HKEY_LOCAL_MACHINE, name) != ERROR_SUCCESS) RegDeleteTreeW(HKEY_LOCAL_MACHINE, name);
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, name);
    if (!wasEnabled) SetProcessPrivilege(L"SeRestorePrivilege", false);
}

}  // namespace wrtest
