// Shared pieces of the boot export tests.
#pragma once

#include <windows.h>

#include <string>

#include "support/secproc_fakes.h"
#include "support/wine_env.h"

namespace boottest {

using wrtest::ExpectLog;
// The editor and generator doubles the prefix set-up put into the system folder.
inline std::string SystemTool(const char* exe) { return wrtest::Narrow(wrtest::SystemDir()) + "\\" + exe; }
inline std::string Editor() { return SystemTool("bcdedit.exe"); }
inline std::string UseEditor() { return "GetBcdexePath use " + Editor(); }
// ZN_RunProcess's line for a tool that ended with `code`.
inline std::string Failed(const std::string& commandLine, int code) {
    return "ZN_RunProcess process " + commandLine + " result: " + std::to_string(code);
}

// A copy of the tool double under another name for the length of a test.
struct PlacedDouble {
    explicit PlacedDouble(std::wstring at) : path(std::move(at)) {
        CopyFileW((wrtest::ExeDir() + L"\\tooldouble.exe").c_str(), path.c_str(), FALSE);
    }
    ~PlacedDouble() { DeleteFileW(path.c_str()); }
    std::wstring path;
};

}  // namespace boottest
