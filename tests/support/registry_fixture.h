// Offline-installation fixtures: Wine text hives, and the checks that no test
// leaves a hive mounted under the library's fixed names.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace wrtest {

// Builds a hive file in Wine's text format, the only format Wine's RegLoadKeyW reads.
// Key paths are relative to the mount point, with single backslashes.
class TextHive {
public:
    TextHive& Key(const std::string& path);
    TextHive& Sz(const std::string& name, const std::string& value);
    TextHive& Dword(const std::string& name, DWORD value);
    TextHive& Binary(const std::string& name, const std::string& bytes);
    // A multi-string: the strings in order, stored with the closing empty string.
    TextHive& MultiSz(const std::string& name, const std::vector<std::string>& strings);
    // Writes the file (creating its folders).
    bool Write(const std::wstring& path) const;
    std::string Text() const;

private:
    TextHive& Value(const std::string& name, const std::string& data);
    std::vector<std::string> lines_;
};

// The library's fixed mount names.
inline const wchar_t* const kMountNames[] = {L"ZNRegKey", L"ZNSoftware"};

// Whether HKLM\name exists (mounted, or left behind by a failed Wine load).
bool HklmKeyExists(const wchar_t* name);
// Unmounts or deletes HKLM\name, whatever it is; used by fixtures to start and end clean.
void RemoveHklmKey(const wchar_t* name);

}  // namespace wrtest
