// Test entry point: GoogleTest plus a listener that catches, at the test that
// caused it, a hive left mounted under the library's names or a tool double left running.
#include <windows.h>
#include <tlhelp32.h>

#include <gtest/gtest.h>

#include <stdio.h>

#include "support/registry_fixture.h"

namespace {

const wchar_t* const kDoubleNames[] = {L"bcdedit.exe", L"bcdboot.exe", L"diskpart.exe",
                                       L"netsh.exe",   L"regsvr32.exe", L"shutdown.exe"};

int LeakCount = 0;

// Ends running doubles and reports their names.
std::string KillDoubles() {
    std::string found;
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snap == INVALID_HANDLE_VALUE) return found;
    PROCESSENTRY32W pe = {};
    pe.dwSize = sizeof pe;
    for (BOOL ok = Process32FirstW(snap, &pe); ok; ok = Process32NextW(snap, &pe)) {
        for (const wchar_t* name : kDoubleNames) {
            if (_wcsicmp(pe.szExeFile, name) != 0) continue;
            char n[64];
            _snprintf_s(n, sizeof n, _TRUNCATE, "%S ", name);
            found += n;
            if (HANDLE p = OpenProcess(PROCESS_TERMINATE, FALSE, pe.th32ProcessID)) {
                TerminateProcess(p, 1);
                CloseHandle(p);
            }
        }
    }
    CloseHandle(snap);
    return found;
}

class LeakListener : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo& info) override {
        for (const wchar_t* name : wrtest::kMountNames) {
            if (wrtest::HklmKeyExists(name)) {
                ++LeakCount;
                fprintf(stderr, "LEAK: HKLM\\%S still present after %s.%s\n", name, info.test_suite_name(),
                        info.name());
                wrtest::RemoveHklmKey(name);
            }
        }
        std::string doubles = KillDoubles();
        if (!doubles.empty()) {
            ++LeakCount;
            fprintf(stderr, "LEAK: tool double still running after %s.%s: %s\n", info.test_suite_name(),
                    info.name(), doubles.c_str());
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    for (const wchar_t* name : wrtest::kMountNames) wrtest::RemoveHklmKey(name);
    testing::UnitTest::GetInstance()->listeners().Append(new LeakListener);
    int result = RUN_ALL_TESTS();
    if (LeakCount) {
        fprintf(stderr, "%d leak(s) found after tests\n", LeakCount);
        return 1;
    }
    return result;
}
