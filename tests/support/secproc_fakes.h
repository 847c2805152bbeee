// Process lists and helper processes for the token and process tests.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "support/import_hook.h"
#include "support/log_capture.h"

namespace wrtest {

// Expects exactly `lines` (untagged) to have been logged since `log` began.
void ExpectLog(const LogCapture& log, const std::vector<std::string>& lines);

// Replaces the DLL's process snapshot with `names`. Every listed process is this test
// process, except those named "gone:NAME", which cannot be opened (87); the names of the
// processes the DLL opened are recorded.
class FakeProcessList {
public:
    explicit FakeProcessList(std::vector<std::wstring> names);
    ~FakeProcessList();
    std::vector<std::wstring> Opened() const;

private:
    ImportHook snapshot_, first_, next_, open_;
};

// An idle helper process named `exeName`: a copy of the tool double, so a ToolDouble
// told to hang must be in scope. Ended and waited for when it goes out of scope.
class IdleProcess {
public:
    explicit IdleProcess(const std::wstring& exeName);
    ~IdleProcess();
    DWORD pid() const { return info_.dwProcessId; }
    HANDLE handle() const { return info_.hProcess; }

private:
    std::wstring path_;
    PROCESS_INFORMATION info_ = {};
};

}  // namespace wrtest
