// Small facts about the test process and its Wine prefix.
#pragma once

#include <windows.h>

#include <string>

namespace wrtest {

// Folder of the running test executable (also where Wrenkits.dll and QRB.log lie).
std::wstring ExeDir();
// The running system's system folder, e.g. C:\windows\system32.
std::wstring SystemDir();
// Narrow/wide conversions in the system code page and UTF-8.
std::string Narrow(const std::wstring& w, UINT codePage = CP_ACP);
std::wstring Widen(const std::string& s, UINT codePage = CP_ACP);

// Whole-file helpers on Windows paths.
bool WriteFileBytes(const std::wstring& path, const std::string& bytes);
std::string ReadFileBytes(const std::wstring& path);
bool FileExists(const std::wstring& path);
// Creates every missing folder of `path`.
void MakeDirs(const std::wstring& path);
// Removes a folder tree; missing is fine.
void RemoveTree(const std::wstring& path);

// Switches a privilege of the test process itself (not through the library).
bool SetProcessPrivilege(const wchar_t* name, bool enable);
// Whether the process token has the privilege enabled.
bool ProcessPrivilegeEnabled(const wchar_t* name);

}  // namespace wrtest
