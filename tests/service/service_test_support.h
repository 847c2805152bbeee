// Shared pieces of the service tests: test services made from the service double on Wine's
// real service manager, and a fake clock in the library's import table.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "support/import_hook.h"
#include "support/wine_env.h"

namespace svctest {

inline SC_HANDLE Manager() {
    static SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    return manager;
}

// All zero (state 0) for a service that cannot be opened: missing or marked for deletion.
inline SERVICE_STATUS_PROCESS Status(const std::wstring& name) {
    SERVICE_STATUS_PROCESS s = {};
    DWORD needed = 0;
    SC_HANDLE h = OpenServiceW(Manager(), name.c_str(), SERVICE_QUERY_STATUS);
    QueryServiceStatusEx(h, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&s), sizeof s, &needed);
    CloseServiceHandle(h);
    return s;
}

// Waits, bounded, until a stopped or deleted double's process is gone.
inline void AwaitExit(DWORD pid) {
    HANDLE process = pid ? OpenProcess(SYNCHRONIZE, FALSE, pid) : nullptr;
    if (!process) return;
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, 10000)) << "service process " << pid << " did not end";
    CloseHandle(process);
}

// Ends the double's held start or stop ("start" or "stop"), or waits (bounded) until it is
// "ready": it has reported its first state after a start.
inline bool Release(const std::wstring& name, const wchar_t* which) {
    HANDLE h = CreateEventW(nullptr, TRUE, FALSE, (L"Global\\wrsvc-" + name + L"-" + which).c_str());
    const bool done = wcscmp(which, L"ready") ? SetEvent(h) : WaitForSingleObject(h, 10000) == WAIT_OBJECT_0;
    CloseHandle(h);
    return done;
}

inline void FinishStop(const std::wstring& name) {
    const DWORD pid = Status(name).dwProcessId;
    Release(name, L"stop");
    AwaitExit(pid);
}

// Stops (releasing any hold) and deletes a service; a missing one is fine.
inline void RemoveService(const std::wstring& name) {
    Release(name, L"start");
    SC_HANDLE h = OpenServiceW(Manager(), name.c_str(), SERVICE_ALL_ACCESS);
    if (!h) return;
    SERVICE_STATUS s = {};
    ControlService(h, SERVICE_CONTROL_STOP, &s);
    FinishStop(name);
    DeleteService(h);
    CloseServiceHandle(h);
}

// A service double registered with the real manager for the length of a test; its
// options are the double's command line switches.
class TestService {
public:
    TestService(const std::wstring& name, const std::wstring& options = L"", const std::wstring& dependsOn = L"")
        : name_(name) {
        RemoveService(name_);
        const std::wstring image = L"\"" + wrtest::ExeDir() + L"\\servicedouble.exe\" " + name_ + L" " + options;
        SC_HANDLE h = CreateServiceW(Manager(), name_.c_str(), name_.c_str(), SERVICE_ALL_ACCESS,
                                     SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                     image.c_str(), nullptr, nullptr, (dependsOn + L'\0').c_str(), nullptr, nullptr);
        EXPECT_TRUE(h) << "create " << wrtest::Narrow(name_) << " error " << GetLastError();
        CloseServiceHandle(h);
    }
    ~TestService() { RemoveService(name_); }

    DWORD state() const { return Status(name_).dwCurrentState; }
    // A control sent straight to the manager, not through the library; 0 or the error.
    DWORD Send(DWORD control) const {
        SC_HANDLE h = OpenServiceW(Manager(), name_.c_str(), SERVICE_ALL_ACCESS);
        SERVICE_STATUS s = {};
        const DWORD error = ControlService(h, control, &s) ? 0 : GetLastError();
        CloseServiceHandle(h);
        return error;
    }
    void Start() const {
        SC_HANDLE h = OpenServiceW(Manager(), name_.c_str(), SERVICE_START);
        EXPECT_TRUE(StartServiceW(h, 0, nullptr)) << "start " << wrtest::Narrow(name_) << " error " << GetLastError();
        EXPECT_TRUE(Release(name_, L"ready")) << wrtest::Narrow(name_) << " did not report";
        CloseServiceHandle(h);
    }

private:
    std::wstring name_;
};

// The library's clock, replaced in its import table: ticks move only when it sleeps,
// and each sleep is recorded and may run the test's next step (releasing a double).
class FakeClock {
public:
    FakeClock()
        : tick_("KERNEL32.dll", "GetTickCount", reinterpret_cast<void*>(&Tick)),
          sleep_("KERNEL32.dll", "Sleep", reinterpret_cast<void*>(&Sleep)) {
        EXPECT_TRUE(tick_.active() && sleep_.active());
        now = 0xFFFFC000;  // a few seconds before the counter wraps
        sleeps.clear();
        onSleep = nullptr;
    }
    ~FakeClock() { onSleep = nullptr; }

    static inline DWORD now = 0;
    static inline std::vector<DWORD> sleeps;
    static inline std::function<void(size_t)> onSleep;  // gets the sleep's number, from 1

private:
    static DWORD WINAPI Tick() { return now; }
    static void WINAPI Sleep(DWORD ms) {
        sleeps.push_back(ms);
        now += ms;
        if (onSleep) onSleep(sleeps.size());
    }
    wrtest::ImportHook tick_, sleep_;
};

}  // namespace svctest
