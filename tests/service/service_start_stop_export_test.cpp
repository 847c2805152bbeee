// Starting and stopping real test services, with the library's clock faked so that
// every bounded wait ends at once and its sleeps can be read back.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Wrenkits.h"
#include "service/service_test_support.h"

using svctest::FakeClock;
using svctest::TestService;

namespace {

// No test run may leave a test service behind, whatever a test did.
class NoServiceLeftBehind : public testing::Environment {
    void SetUp() override { svctest::RemoveLeftovers(); }
    void TearDown() override { EXPECT_TRUE(svctest::RemoveLeftovers().empty()) << "test services left behind"; }
};
testing::Environment* const kCleanup = testing::AddGlobalTestEnvironment(new NoServiceLeftBehind);

enum class Before { Stopped, Running, StartPending, StopPending, Missing };

struct Case {
    const char* name;
    std::wstring options = L"";  // the double's behaviour
    Before before = Before::Stopped;
    DWORD result = 0;
    std::vector<std::string> log = {};  // whole lines, service "WrTestMain", dependant "WrTestDep"
    std::vector<DWORD> sleeps = {};     // the library's sleeps, in milliseconds
    DWORD after = SERVICE_STOPPED;      // the service's state afterwards
    bool releaseOnFirstSleep = false;   // the held state ends during the first sleep
    int startCalls = 0;
    bool dependant = false;  // a running dependant reported by the manager
    int refusals = 0;        // stop requests answered 1051 before the manager sees one
};

std::vector<std::string> Repeat(size_t n, const std::string& line) { return std::vector<std::string>(n, line); }
template <typename T>
std::vector<T> operator+(std::vector<T> a, const std::vector<T>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Recorded calls and manager answers Wine cannot give.
int StartCalls = 0, Refusals = 0;
std::wstring Dependant;
BOOL WINAPI CountingStart(SC_HANDLE h, DWORD n, LPCWSTR* args) {
    ++StartCalls;
    return StartServiceW(h, n, args);
}
BOOL WINAPI RefusingControl(SC_HANDLE h, DWORD control, SERVICE_STATUS* status) {
    if (control == SERVICE_CONTROL_STOP && Refusals > 0) {
        --Refusals;
        SetLastError(ERROR_DEPENDENT_SERVICES_RUNNING);
        return FALSE;
    }
    return ControlService(h, control, status);
}
// Wine always answers "none"; this reports Dependant as the one active dependant.
BOOL WINAPI ReportingDependants(SC_HANDLE, DWORD, ENUM_SERVICE_STATUSW* out, DWORD size, DWORD* needed, DWORD* n) {
    const size_t nameBytes = (Dependant.size() + 1) * sizeof(wchar_t);
    *needed = DWORD(sizeof(ENUM_SERVICE_STATUSW) + nameBytes);
    *n = 0;
    if (Dependant.empty()) return TRUE;
    if (size < *needed) return SetLastError(ERROR_MORE_DATA), FALSE;
    auto* name = reinterpret_cast<wchar_t*>(out + 1);
    memcpy(name, Dependant.c_str(), nameBytes);
    *out = {name, name, {SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0, 0, 0, 0}};
    *n = 1;
    return TRUE;
}

void Check(DWORD (*call)(LPCWSTR), const Case& c) {
    SCOPED_TRACE(c.name);
    TestService main(L"WrTestMain", c.options);
    TestService dependant(L"WrTestDep", L"", c.dependant ? L"WrTestMain" : L"");
    if (c.before == Before::Missing) svctest::RemoveService(main.name());
    if (c.before != Before::Stopped && c.before != Before::Missing) main.Start();
    if (c.dependant) dependant.Start();
    if (c.before == Before::StopPending) {
        EXPECT_EQ(0u, main.Send(SERVICE_CONTROL_STOP));
    }
    StartCalls = 0;
    Refusals = c.refusals;
    Dependant = c.dependant ? dependant.name() : L"";
    wrtest::ImportHook start("ADVAPI32.dll", "StartServiceW", reinterpret_cast<void*>(&CountingStart));
    wrtest::ImportHook control("ADVAPI32.dll", "ControlService", reinterpret_cast<void*>(&RefusingControl));
    wrtest::ImportHook enumerate("ADVAPI32.dll", "EnumDependentServicesW",
                                 reinterpret_cast<void*>(&ReportingDependants));
    FakeClock clock;
    if (c.releaseOnFirstSleep) {
        FakeClock::onSleep = [&](size_t n) {
            if (n == 1) svctest::FinishStop(main.name());
        };
    }
    wrtest::LogCapture log;

    EXPECT_EQ(c.result, call(c.before == Before::Missing ? L"WrTestNone" : main.name().c_str()));

    svctest::ExpectLog(log, c.log);
    EXPECT_EQ(c.sleeps, FakeClock::sleeps);
    EXPECT_EQ(c.startCalls, StartCalls);
    EXPECT_EQ(c.after, c.before == Before::Missing ? c.after : main.state());
    EXPECT_EQ(c.dependant ? DWORD(SERVICE_STOPPED) : dependant.state(), dependant.state());
}

const std::wstring kHoldStart = L"--hold-start 3000";
const std::wstring kHoldStop = L"--hold-stop 20000";
const std::string kStarted = "ZN_StartService start service WrTestMain is pendding";

TEST(ServiceStart, StartsAStoppedServiceAndWaitsOnlyAsLongAsItProgresses) {
    const Case cases[] = {
        {.name = "running: nothing to do", .before = Before::Running,
         .log = {"ZN_StartService service WrTestMain is runing"}, .after = SERVICE_RUNNING},
        {.name = "start pending counts as running", .options = kHoldStart, .before = Before::StartPending,
         .log = {"ZN_StartService service WrTestMain is runing"}, .after = SERVICE_START_PENDING},
        {.name = "stopped: started", .log = {kStarted, "ZN_StartService start service WrTestMain successfully"},
         .after = SERVICE_RUNNING, .startCalls = 1},
        // Check point 1 never grows: the wait ends once more than the 3000 ms hint has passed.
        {.name = "stays start pending", .options = kHoldStart,
         .log = {kStarted, "ZN_StartService service WrTestMain is not started, current state: 2"},
         .sleeps = {1000, 1000, 1000, 1000}, .after = SERVICE_START_PENDING, .startCalls = 1},
        {.name = "a stop in progress is waited out first", .options = kHoldStop, .before = Before::StopPending,
         .log = {kStarted, "ZN_StartService start service WrTestMain successfully"}, .sleeps = {2000},
         .after = SERVICE_RUNNING, .releaseOnFirstSleep = true, .startCalls = 1},
        // A tenth of the 20000 ms hint per look; stalled once more than the hint has passed.
        {.name = "a stop in progress that stalls", .options = kHoldStop, .before = Before::StopPending,
         .result = ERROR_TIMEOUT, .sleeps = std::vector<DWORD>(11, 2000), .after = SERVICE_STOP_PENDING},
        {.name = "unknown service", .before = Before::Missing, .result = ERROR_SERVICE_DOES_NOT_EXIST,
         .log = {"ZN_StartService open service WrTestNone error: 1060"}},
    };
    for (const Case& c : cases) Check(ZN_StartService, c);
}

TEST(ServiceStop, StopsDependantsFirstAndGivesUpAfterThirtySeconds) {
    const std::string pending = "ZN_StopService service WrTestMain stop pending";
    const std::string timeout = "ZN_StopService service WrTestMain stop timeout";
    const Case cases[] = {
        {.name = "already stopped", .log = {"ZN_StopService service WrTestMain is already stoped"}},
        {.name = "running: stopped", .before = Before::Running,
         .log = {"ZN_StopService service WrTestMain stop successfully"}},
        {.name = "its running dependant goes first", .before = Before::Running,
         .log = {"StopDependentServices ----> WrTestDep", "ZN_StopService service WrTestMain stop successfully"},
         .dependant = true},
        // The refusal stays the result though the second request stops the service.
        {.name = "a dependant refuses once", .before = Before::Running, .result = ERROR_DEPENDENT_SERVICES_RUNNING,
         .sleeps = {2000}, .refusals = 1},
        {.name = "a stop in progress ends", .options = kHoldStop, .before = Before::StopPending,
         .log = {pending, "ZN_StopService service WrTestMain is stoped"}, .sleeps = {2000},
         .releaseOnFirstSleep = true},
        // 16 looks of 2000 ms pass the bound; the request still goes out (and is refused
        // while stopping), and the second wait (the 20000 ms hint as it stands) ends on the same bound.
        {.name = "stop pending beyond the bound", .options = kHoldStop, .before = Before::StopPending,
         .result = ERROR_TIMEOUT, .log = Repeat(16, pending) + std::vector<std::string>{timeout, "ZN_StopService control of service WrTestMain error: 1061", timeout},
         .sleeps = std::vector<DWORD>(16, 2000) + std::vector<DWORD>{20000}, .after = SERVICE_STOP_PENDING},
        {.name = "unknown service", .before = Before::Missing, .result = ERROR_SERVICE_DOES_NOT_EXIST,
         .log = {"ZN_StopService open service WrTestNone error: 1060"}},
    };
    for (const Case& c : cases) Check(ZN_StopService, c);
}

}  // namespace
