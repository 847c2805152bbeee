// Small pieces the network export tests share: text of recorded calls and the log check.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/wine_env.h"

namespace nettest {

using Lines = std::vector<std::string>;
inline Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
inline std::string N(const wchar_t* text) { return text ? wrtest::Narrow(text) : ""; }
inline std::string U(DWORD value) { return std::to_string(value); }
inline void ExpectLog(const wrtest::LogCapture& log, Lines expected) {
    for (std::string& line : expected) line = wrtest::Tagged(line);
    EXPECT_EQ(expected, log.Messages());
}

// A platform call that fails with `error`.
template <DWORD error, typename... A>
BOOL WINAPI Fail(A...) {
    SetLastError(error);
    return FALSE;
}

}  // namespace nettest
