// Shared pieces of the boot export tests.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/wine_env.h"

namespace boottest {

// The editor and generator doubles the prefix set-up put into the system folder.
inline std::string SystemTool(const char* exe) { return wrtest::Narrow(wrtest::SystemDir()) + "\\" + exe; }
inline std::string Editor() { return SystemTool("bcdedit.exe"); }
inline std::string UseEditor() { return "GetBcdexePath use " + Editor(); }
// ZN_RunProcess's line for a tool that ended with `code`.
inline std::string Failed(const std::string& commandLine, int code) {
    return "ZN_RunProcess process " + commandLine + " result: " + std::to_string(code);
}

// The messages logged since `log` began, without their tag, compared as a whole.
inline void ExpectLog(const wrtest::LogCapture& log, const std::vector<std::string>& expected) {
    std::vector<std::string> tagged;
    for (const auto& e : expected) tagged.push_back(wrtest::Tagged(e));
    EXPECT_EQ(tagged, log.Messages());
}

// A copy of the tool double under another name for the length of a test.
class PlacedDouble {
public:
    explicit PlacedDouble(std::wstring path) : path_(std::move(path)) {
        EXPECT_TRUE(CopyFileW((wrtest::ExeDir() + L"\\tooldouble.exe").c_str(), path_.c_str(), FALSE))
            << wrtest::Narrow(path_);
    }
    PlacedDouble(const PlacedDouble&) = delete;
    PlacedDouble& operator=(const PlacedDouble&) = delete;
    ~PlacedDouble() { DeleteFileW(path_.c_str()); }
    std::string path() const { return wrtest::Narrow(path_); }

private:
    std::wstring path_;
};

}  // namespace boottest
