// Shared pieces of the service export tests: real test services on Wine's service
// manager (the service double), a fake clock in the library's import table, and the
// log comparison.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/wine_env.h"

namespace svctest {

// Every test service's name starts so; leftovers of an aborted run are removed by it.
inline const std::wstring kPrefix = L"WrTest";

inline void ExpectLog(const wrtest::LogCapture& log, const std::vector<std::string>& expected) {
    std::vector<std::string> tagged;
    for (const auto& e : expected) tagged.push_back(wrtest::Tagged(e));
    EXPECT_EQ(tagged, log.Messages());
}

inline SC_HANDLE Manager() {
    static SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    return manager;
}

inline void SetReleaseEvent(const std::wstring& name, const wchar_t* which) {
    const std::wstring event = L"Global\\wrsvc-" + name + L"-" + which;
    if (HANDLE h = CreateEventW(nullptr, TRUE, FALSE, event.c_str())) {
        SetEvent(h);
        CloseHandle(h);
    }
}

inline SERVICE_STATUS_PROCESS Status(const std::wstring& name) {
    SERVICE_STATUS_PROCESS s = {};
    DWORD needed = 0;
    if (SC_HANDLE h = OpenServiceW(Manager(), name.c_str(), SERVICE_QUERY_STATUS)) {
        QueryServiceStatusEx(h, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&s), sizeof s, &needed);
        CloseServiceHandle(h);
    }
    return s;
}

// Ends a held stop and waits (bounded) until the service's process is gone.
inline void FinishStop(const std::wstring& name) {
    const DWORD pid = Status(name).dwProcessId;
    HANDLE process = pid ? OpenProcess(SYNCHRONIZE, FALSE, pid) : nullptr;
    SetReleaseEvent(name, L"stop");
    if (process) {
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, 10000)) << wrtest::Narrow(name) << " did not stop";
        CloseHandle(process);
    }
}

// Stops (releasing any hold) and deletes a service; a missing one is fine.
inline void RemoveService(const std::wstring& name) {
    SetReleaseEvent(name, L"start");
    SC_HANDLE h = OpenServiceW(Manager(), name.c_str(), SERVICE_ALL_ACCESS);
    if (!h) return;
    SERVICE_STATUS s = {};
    ControlService(h, SERVICE_CONTROL_STOP, &s);
    FinishStop(name);
    DeleteService(h);
    CloseServiceHandle(h);
}

// Removes the test services an aborted earlier run left behind; returns their names.
inline std::vector<std::wstring> RemoveLeftovers() {
    std::vector<std::wstring> found;
    DWORD bytes = 0, count = 0, resume = 0;
    EnumServicesStatusExW(Manager(), SC_ENUM_PROCESS_INFO, SERVICE_TYPE_ALL, SERVICE_STATE_ALL, nullptr, 0, &bytes,
                          &count, &resume, nullptr);
    std::vector<BYTE> buffer(bytes + 1024);
    resume = 0;
    if (!EnumServicesStatusExW(Manager(), SC_ENUM_PROCESS_INFO, SERVICE_TYPE_ALL, SERVICE_STATE_ALL, buffer.data(),
                               DWORD(buffer.size()), &bytes, &count, &resume, nullptr)) {
        return found;
    }
    auto* entries = reinterpret_cast<ENUM_SERVICE_STATUS_PROCESSW*>(buffer.data());
    for (DWORD i = 0; i < count; ++i) {
        if (std::wstring(entries[i].lpServiceName).rfind(kPrefix, 0) == 0) found.push_back(entries[i].lpServiceName);
    }
    for (const auto& name : found) RemoveService(name);
    return found;
}

// A service double registered with the real manager for the length of a test.
class TestService {
public:
    TestService(const std::wstring& name, const std::wstring& options = L"", const std::wstring& dependsOn = L"")
        : name_(name) {
        RemoveService(name_);
        const std::wstring image = L"\"" + wrtest::ExeDir() + L"\\servicedouble.exe\" " + name_ + L" " + options;
        const std::wstring dependencies = dependsOn + L'\0';
        SC_HANDLE h = CreateServiceW(Manager(), name_.c_str(), name_.c_str(), SERVICE_ALL_ACCESS,
                                     SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                     image.c_str(), nullptr, nullptr, dependencies.c_str(), nullptr, nullptr);
        EXPECT_TRUE(h) << "create " << wrtest::Narrow(name_) << " error " << GetLastError();
        if (h) CloseServiceHandle(h);
    }
    TestService(const TestService&) = delete;
    TestService& operator=(const TestService&) = delete;
    ~TestService() { RemoveService(name_); }

    const std::wstring& name() const { return name_; }
    std::string narrow() const { return wrtest::Narrow(name_); }
    DWORD state() const { return Status(name_).dwCurrentState; }
    // Sends a control straight to the manager, not through the library.
    DWORD Send(DWORD control) const {
        SC_HANDLE h = OpenServiceW(Manager(), name_.c_str(), SERVICE_ALL_ACCESS);
        SERVICE_STATUS s = {};
        const DWORD error = ControlService(h, control, &s) ? 0 : GetLastError();
        CloseServiceHandle(h);
        return error;
    }
    void Start() const {
        SC_HANDLE h = OpenServiceW(Manager(), name_.c_str(), SERVICE_START);
        EXPECT_TRUE(StartServiceW(h, 0, nullptr)) << "start " << narrow() << " error " << GetLastError();
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
        : tick_(kHookedDll, "GetTickCount", reinterpret_cast<void*>(&Tick)),
          sleep_(kHookedDll, "Sleep", reinterpret_cast<void*>(&Sleep)) {
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
    static constexpr const char* kHookedDll = "KERNEL32.dll";
    static DWORD WINAPI Tick() { return now; }
    static void WINAPI Sleep(DWORD ms) {
        sleeps.push_back(ms);
        now += ms;
        if (onSleep) onSleep(sleeps.size());
    }
    wrtest::ImportHook tick_, sleep_;
};

}  // namespace svctest
