// Test entry point: GoogleTest plus a listener that catches, at the test that
// caused it, a hive left mounted under the library's names or a tool double left running.
#include <windows.h>
#include <tlhelp32.h>

#include <gtest/gtest.h>

#include "support/registry_fixture.h"
#include "support/wine_env.h"

namespace {

// Ends running doubles and reports their names.
std::string KillDoubles() {
    std::string found;
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W pe = {};
    pe.dwSize = sizeof pe;
    for (BOOL ok = Process32FirstW(snap, &pe); ok; ok = Process32NextW(snap, &pe)) {
        for (const wchar_t* name : {L"bcdedit.exe", L"bcdboot.exe", L"diskpart.exe", L"netsh.exe", L"regsvr32.exe",
                                    L"shutdown.exe"}) {
            HANDLE p = _wcsicmp(pe.szExeFile, name) ? nullptr : OpenProcess(PROCESS_TERMINATE, FALSE, pe.th32ProcessID);
            if (!p) continue;
            found += wrtest::Narrow(name) + " ";
            TerminateProcess(p, 1);
            CloseHandle(p);
        }
    }
    CloseHandle(snap);
    return found;
}

// Runs before the default printer's end-of-test line (end events go to listeners in
// reverse order), so a failure added here fails the very test that leaked.
class LeakListener : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo&) override {
        for (const wchar_t* name : wrtest::kMountNames) {
            if (!wrtest::HklmKeyExists(name)) continue;
            ADD_FAILURE() << "leak: HKLM\\" << wrtest::Narrow(name) << " is still mounted or present";
            wrtest::RemoveHklmKey(name);
        }
        const std::string doubles = KillDoubles();
        if (!doubles.empty()) ADD_FAILURE() << "leak: tool double still running: " << doubles;
    }
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    for (const wchar_t* name : wrtest::kMountNames) wrtest::RemoveHklmKey(name);
    testing::UnitTest::GetInstance()->listeners().Append(new LeakListener);
    return RUN_ALL_TESTS();
}
