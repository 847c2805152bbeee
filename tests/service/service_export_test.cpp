// Requests to Wine's real service manager on a test service made from the service double,
// and service keys written straight into a SYSTEM hive. The library's clock is faked, so
// every bounded wait ends at once and its sleeps can be read back; what Wine cannot do
// (start a driver, report or refuse for a dependant, write a mounted hive back) comes
// from hooks.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "service/service_test_support.h"
#include "support/log_capture.h"
#include "support/registry_fixture.h"

using svctest::FakeClock;
using svctest::TestService;
using Lines = std::vector<std::string>;

namespace {

constexpr DWORD kGone = 0;  // as the state afterwards: the service cannot be opened any more
// Each row's service has a name of its own: Wine deletes a service only once the double's
// process has ended and the manager has noticed, which a next row cannot wait for. Logs and
// settings read back name it WrTestMain.
std::wstring gName;
const wchar_t* Name() { return gName.c_str(); }
std::string Plain(std::string s) {
    const std::string name = wrtest::Narrow(gName);
    for (size_t at = s.find(name); at != std::string::npos; at = s.find(name, at + 10)) s.replace(at, name.size(), "WrTestMain");
    return s;
}
const char* const kDriverPath = "C:\\windows\\system32\\drivers\\wrtest.sys";
const char* const kImage = "C:\\Program Files\\Wr\\svc.exe";

// The service before the call: None (no such service), Stopped, HoldsStart (stopped; its next
// start stays pending with hint 3000 and check point 1 until released), Running, StartPending
// (started and held so), Paused, StopPending (stopping, held with hint 20000), StopReleased (so,
// released during the library's first sleep), WithDependant (running, with a running dependant
// that only a hook reports: Wine reports none), RefusesOnce (running; the first stop request is
// refused with 1051), Driver (a registered kernel driver), DriverMarked (a driver marked for
// deletion, held open by the test).
enum Before { None, Stopped, HoldsStart, Running, StartPending, Paused, StopPending, StopReleased, WithDependant,
              RefusesOnce, Driver, DriverMarked };

// Afterwards: the service's state, the library's sleeps in milliseconds, the driver starts with
// their answers (an answer given instead of Wine's where startAnswer says), and its settings in
// the manager where config says.
struct Case {
    const char* name;
    Before before;
    std::function<DWORD()> call;
    DWORD result;
    Lines log;
    DWORD after = kGone;
    std::vector<DWORD> sleeps = {};
    Lines starts = {};
    std::optional<DWORD> startAnswer = {};
    std::string config = "";
};

Lines Starts;
std::optional<DWORD> StartAnswer;
int Refusals = 0;
std::wstring Dependant;
BOOL WINAPI AnsweringStart(SC_HANDLE h, DWORD n, LPCSTR* args) {
    const BOOL ok = StartAnswer ? *StartAnswer == 0 : StartServiceA(h, n, args);
    const DWORD error = StartAnswer ? *StartAnswer : ok ? 0 : GetLastError();
    Starts.push_back("start " + std::to_string(error));
    SetLastError(error);
    return ok;
}
// The library's starts return once the double has reported its first state, as a quick
// service's would: Wine answers before the double has run at all.
BOOL WINAPI ReadyStart(SC_HANDLE h, DWORD n, LPCWSTR* args) {
    if (!StartServiceW(h, n, args)) return FALSE;
    EXPECT_TRUE(svctest::Release(Name(), L"ready")) << "the double did not report";
    return TRUE;
}
// Wine ends the double's process once it reports stopped, at times before the answer to the
// stop request has left it (109): the stop took place, as the status shows.
BOOL WINAPI RefusingControl(SC_HANDLE h, DWORD control, SERVICE_STATUS* status) {
    if (control == SERVICE_CONTROL_STOP && Refusals-- > 0) return SetLastError(ERROR_DEPENDENT_SERVICES_RUNNING), FALSE;
    if (ControlService(h, control, status)) return TRUE;
    if (GetLastError() != ERROR_BROKEN_PIPE) return FALSE;
    return QueryServiceStatus(h, status) && status->dwCurrentState == SERVICE_STOPPED;
}
BOOL WINAPI ReportingDependants(SC_HANDLE, DWORD, ENUM_SERVICE_STATUSW* out, DWORD size, DWORD* needed, DWORD* n) {
    const size_t nameBytes = (Dependant.size() + 1) * sizeof(wchar_t);
    *needed = DWORD(sizeof(ENUM_SERVICE_STATUSW) + nameBytes), *n = 0;
    if (Dependant.empty()) return TRUE;
    if (size < *needed) return SetLastError(ERROR_MORE_DATA), FALSE;
    auto* name = reinterpret_cast<wchar_t*>(out + 1);
    memcpy(name, Dependant.c_str(), nameBytes);
    *out = {name, name, {SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0, 0, 0, 0}}, *n = 1;
    return TRUE;
}

// Every value of a key as "name=data", sorted: text with each terminator shown as '|'.
Lines ReadValues(const std::wstring& path) {
    Lines out;
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key);
    wchar_t name[64], data[256];
    for (DWORD i = 0, chars = 64, bytes = sizeof data, type = 0;
         key && !RegEnumValueW(key, i, name, &chars, nullptr, &type, reinterpret_cast<BYTE*>(data), &bytes);
         ++i, chars = 64, bytes = sizeof data) {
        std::wstring text(data, bytes / 2);
        std::replace(text.begin(), text.end(), L'\0', L'|');
        const std::string number = "dword:" + std::to_string(data[0] | DWORD(data[1]) << 16);
        out.push_back(wrtest::Narrow(name) + "=" + (type == REG_DWORD ? number : wrtest::Narrow(text)));
    }
    RegCloseKey(key);
    std::sort(out.begin(), out.end());
    return out;
}

// ZN_AddService writes a service key itself. Wine never writes a mounted hive back, so the
// unload is hooked to keep the offline key's values; FailValue names a value whose write
// fails with 5 ("key": the key's creation fails).
Lines AtUnload;
std::wstring FailValue;
LSTATUS WINAPI SavingUnload(HKEY root, LPCWSTR name) {
    AtUnload = ReadValues(L"ZNRegKey\\ControlSet001\\Services\\" + gName);
    return RegUnLoadKeyW(root, name);
}
LSTATUS WINAPI FailingSet(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD bytes) {
    return name == FailValue ? ERROR_ACCESS_DENIED : RegSetValueExW(key, name, reserved, type, data, bytes);
}
LSTATUS WINAPI FailingCreate(HKEY root, LPCWSTR path, DWORD reserved, LPWSTR cls, DWORD options, REGSAM access,
                             SECURITY_ATTRIBUTES* sa, HKEY* key, DWORD* disposition) {
    if (FailValue == L"key") return ERROR_ACCESS_DENIED;
    return RegCreateKeyExW(root, path, reserved, cls, options, access, sa, key, disposition);
}

// The service's key as Wine's manager keeps it, or as ZN_AddService wrote it into the hive
// ("at unmount: "), one line.
std::string Settings() {
    std::string out = AtUnload.empty() ? "" : "at unmount: ";
    for (const std::string& value : AtUnload.empty() ? ReadValues(L"SYSTEM\\CurrentControlSet\\Services\\" + gName) : AtUnload)
        out += Plain(value) + "; ";
    return out;
}

void Check(const Case& c) {
    SCOPED_TRACE(c.name);
    static int rows = 0;
    gName = L"WrTestMain" + std::to_wstring(++rows);
    svctest::RemoveService(gName);  // left by an aborted run
    std::optional<TestService> service, dependant;
    SC_HANDLE driver = nullptr;
    const Before b = c.before;
    if (b >= Driver) {
        driver = CreateServiceW(svctest::Manager(), Name(), Name(), SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER,
                                SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, wrtest::Widen(kDriverPath).c_str(),
                                nullptr, nullptr, nullptr, nullptr, nullptr);
        if (b == DriverMarked) DeleteService(driver);
    } else if (b != None) {
        const bool holdsStop = b == StopPending || b == StopReleased;
        service.emplace(Name(), b == HoldsStart || b == StartPending ? L"--hold-start 3000"
                               : holdsStop                          ? L"--hold-stop 20000"
                                                                    : L"--pausable");
        if (b >= Running) service->Start();
        EXPECT_EQ(0u, b == Paused ? service->Send(SERVICE_CONTROL_PAUSE) : holdsStop ? service->Send(SERVICE_CONTROL_STOP) : 0);
        if (b == WithDependant) dependant.emplace(L"WrTestDep", L"", Name()), dependant->Start();
    }
    AtUnload.clear(), FailValue.clear(), Starts.clear(), StartAnswer = c.startAnswer, Refusals = b == RefusesOnce, Dependant = dependant ? L"WrTestDep" : L"";
    wrtest::ImportHook start("ADVAPI32.dll", "StartServiceA", reinterpret_cast<void*>(&AnsweringStart));
    wrtest::ImportHook startW("ADVAPI32.dll", "StartServiceW", reinterpret_cast<void*>(&ReadyStart));
    wrtest::ImportHook control("ADVAPI32.dll", "ControlService", reinterpret_cast<void*>(&RefusingControl));
    wrtest::ImportHook enumerate("ADVAPI32.dll", "EnumDependentServicesW", reinterpret_cast<void*>(&ReportingDependants));
    wrtest::ImportHook unload("ADVAPI32.dll", "RegUnLoadKeyW", reinterpret_cast<void*>(&SavingUnload));
    wrtest::ImportHook set("ADVAPI32.dll", "RegSetValueExW", reinterpret_cast<void*>(&FailingSet));
    wrtest::ImportHook create("ADVAPI32.dll", "RegCreateKeyExW", reinterpret_cast<void*>(&FailingCreate));
    FakeClock clock;
    if (b == StopReleased) FakeClock::onSleep = [](size_t n) { if (n == 1) svctest::FinishStop(Name()); };
    const DWORD pid = svctest::Status(Name()).dwProcessId;
    wrtest::LogCapture log;

    EXPECT_EQ(c.result, c.call());

    Lines logged;
    for (const std::string& m : log.Messages()) logged.push_back(Plain(m.substr(10)));  // past "[Wrenkit] "
    EXPECT_EQ(c.log, logged);
    EXPECT_EQ(c.sleeps, FakeClock::sleeps);
    EXPECT_EQ(c.starts, Starts);
    EXPECT_EQ(c.config, c.config.empty() ? c.config : Settings());
    EXPECT_FALSE(wrtest::HklmKeyExists(L"ZNRegKey")) << "hive left mounted";
    if (driver) CloseServiceHandle(driver);
    if (c.after == kGone || c.after == SERVICE_STOPPED) svctest::AwaitExit(pid);
    EXPECT_EQ(c.after, svctest::Status(Name()).dwCurrentState);
    EXPECT_EQ(dependant ? DWORD(SERVICE_STOPPED) : kGone, svctest::Status(L"WrTestDep").dwCurrentState);
    svctest::RemoveService(Name());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (L"SYSTEM\\CurrentControlSet\\Services\\" + gName).c_str());
}

DWORD Control(WORD operation) { return ZN_ControlService(Name(), operation); }
// 2 for installed, plus 1 for running.
DWORD Installed() { return 2 * ZN_ServiceInstalled(Name()) + ZN_ServiceIsRunning(Name()); }
DWORD Install(DWORD type) {
    return type ? ZN_InstallServiceEx(Name(), L"Desc", L"C:\\wr\\svc.exe", type) : ZN_InstallService(Name(), L"Desc", L"C:\\wr\\svc.exe");
}

TEST(ServiceControl, SendsOneRequestQueriesInstallsAndRemovesWithoutWaiting) {
    // As the manager keeps an install: the description with its terminator (10 bytes).
    const auto installed = [](const std::string& group, const std::string& type) {
        return "Description=Desc|; DisplayName=WrTestMain|; ErrorControl=dword:1; Group=" + group +
               "|; ImagePath=C:\\wr\\svc.exe|; ObjectName=LocalSystem|; PreshutdownTimeout=dword:180000; Start=dword:2; Type=dword:" + type + "; ";
    };
    const std::string unknown = " open service WrTestMain failed, error: 1060";
    const Case cases[] = {
        {"start twice: 1056 counts as done", Stopped, [] { return Control(1) + Control(1); }, 0, {}, SERVICE_RUNNING},
        {"stop", Running, [] { return Control(2); }, 0, {}, SERVICE_STOPPED},
        {"stop and delete", Running, [] { return Control(3); }, 0, {}, kGone},
        {"stop and delete a stopped one: not deleted", Stopped, [] { return Control(3); }, 1062, {"ZN_ControlService stop service error: 1062"}, SERVICE_STOPPED},
        {"operations 0 and 4, no name", Running, [] { return Control(0) + Control(4) + ZN_ControlService(L"", 1) + ZN_ControlService(nullptr, 1); }, 2 * 50 + 2 * 87, {}, SERVICE_RUNNING},
        {"control: unknown service", None, [] { return Control(1); }, 1060, {"ZN_ControlService open service WrTestMain error: 1060"}},
        {"running", Running, Installed, 3, {}, SERVICE_RUNNING},
        {"start pending counts as running", StartPending, Installed, 3, {}, SERVICE_START_PENDING},
        {"paused is not running", Paused, Installed, 2, {}, SERVICE_PAUSED},
        {"query and remove: unknown", None, [] { return Installed() + ZN_RemoveService(Name()); }, 1060, {"ZN_ServiceInstalled" + unknown, "ZN_ServiceIsRunning" + unknown, "ZN_RemoveService" + unknown}},
        {"install, then over it", None, [] { return Install(0) + Install(0); }, 1073, {"ZN_InstallService create service WrTestMain Desc C:\\wr\\svc.exe failed, error: 1073"}, SERVICE_STOPPED, {}, {}, {}, installed("Filter", "16")},
        {"install ex: the caller's type, no group", None, [] { return Install(SERVICE_WIN32_SHARE_PROCESS); }, 0, {}, SERVICE_STOPPED, {}, {}, {}, installed("", "32")},
        {"no name, no binary path", None, [] { return ZN_ServiceInstalled(L"") + ZN_InstallService(Name(), L"D", L""); }, 87, {"ZN_ServiceInstalled refused: service name is missing or not valid", "ZN_InstallService refused: binary path is missing or not valid"}},
        {"remove a running service", Running, [] { return ZN_RemoveService(Name()); }, 0, {}, kGone},
    };
    for (const Case& c : cases) Check(c);
}

TEST(ServiceControl, LoadsAndRemovesKernelDrivers) {
    const std::string done = "LoadNtDriver WrTestMain " + std::string(kDriverPath) + " successfully.";
    const std::string notDeleted = "RemoverNtDriver delete service WrTestMain error: 0";
    const std::string config = "DisplayName=WrTestMain|; ErrorControl=dword:1; ImagePath=" + std::string(kDriverPath) +
                               "|; ObjectName=LocalSystem|; PreshutdownTimeout=dword:180000; Start=dword:3; Type=dword:1; ";
    const auto load = [] { return ZN_LoadNtDriver(wrtest::Narrow(gName).c_str(), kDriverPath); };
    const auto remove = [] { return ZN_RemoverNtDriver(wrtest::Narrow(gName).c_str()); };
    const Case cases[] = {
        {"new driver", None, load, 0, {done}, SERVICE_STOPPED, {}, {"start 0"}, 0, config},
        {"Wine cannot start it", None, load, 1114, {"LoadNtDriver start service WrTestMain error: 1114"}, SERVICE_STOPPED, {}, {"start 1114"}},
        {"registered and running", Driver, load, 0, {done}, SERVICE_STOPPED, {}, {"start 1056"}, 1056},
        // Still marked while the test holds its handle: three removals that cannot delete.
        {"marked for deletion", DriverMarked, load, 1072, {notDeleted, notDeleted, notDeleted}},
        {"remove", Driver, remove, 0, {"RemoverNtDriver WrTestMain successfully."}},
        {"remove: deletion fails, logs 0, returns 0", DriverMarked, remove, 0, {notDeleted}},
        {"remove: unknown", None, remove, 1060, {"RemoverNtDriver open service WrTestMain error: 1060"}},
    };
    for (const Case& c : cases) Check(c);
}

TEST(ServiceStartStop, WaitOnlyWhileTheServiceProgressesAndStopsGiveUpAfterThirtySeconds) {
    const std::string started = "ZN_StartService start service WrTestMain is pendding";
    const std::string done = "ZN_StartService start service WrTestMain successfully";
    const std::string pending = "ZN_StopService service WrTestMain stop pending";
    const std::string timeout = "ZN_StopService service WrTestMain stop timeout";
    const auto start = [] { return ZN_StartService(Name()); };
    const auto stop = [] { return ZN_StopService(Name()); };
    Lines beyond(16, pending);
    beyond.insert(beyond.end(), {timeout, "ZN_StopService control of service WrTestMain error: 1061", timeout});
    std::vector<DWORD> beyondSleeps(16, 2000);
    beyondSleeps.push_back(20000);
    const Case cases[] = {
        {"start: start pending counts as running", StartPending, start, 0, {"ZN_StartService service WrTestMain is runing"}, SERVICE_START_PENDING},
        {"start: stopped", Stopped, start, 0, {started, done}, SERVICE_RUNNING},
        // Check point 1 never grows: the wait ends once more than the 3000 ms hint has passed.
        {"start: stays start pending", HoldsStart, start, 0, {started, "ZN_StartService service WrTestMain is not started, current state: 2"}, SERVICE_START_PENDING, {1000, 1000, 1000, 1000}},
        {"start: a stop in progress is waited out first", StopReleased, start, 0, {started, done}, SERVICE_RUNNING, {2000}},
        // A tenth of the 20000 ms hint per look; stalled once more than the hint has passed.
        {"start: a stop in progress that stalls", StopPending, start, ERROR_TIMEOUT, {}, SERVICE_STOP_PENDING, std::vector<DWORD>(11, 2000)},
        {"start: unknown service", None, start, 1060, {"ZN_StartService open service WrTestMain error: 1060"}},
        {"stop: already stopped", Stopped, stop, 0, {"ZN_StopService service WrTestMain is already stoped"}, SERVICE_STOPPED},
        {"stop: running", Running, stop, 0, {"ZN_StopService service WrTestMain stop successfully"}, SERVICE_STOPPED},
        {"stop: its running dependant goes first", WithDependant, stop, 0, {"StopDependentServices ----> WrTestDep", "ZN_StopService service WrTestMain stop successfully"}, SERVICE_STOPPED},
        // The refusal stays the result though the second request stops the service.
        {"stop: a dependant refuses once", RefusesOnce, stop, 1051, {}, SERVICE_STOPPED, {2000}},
        {"stop: a stop in progress ends", StopReleased, stop, 0, {pending, "ZN_StopService service WrTestMain is stoped"}, SERVICE_STOPPED, {2000}},
        // 16 looks of 2000 ms pass the bound; the request still goes out (and is refused while
        // stopping), and the second wait (the 20000 ms hint as it stands) ends on the same bound.
        {"stop: pending beyond the bound", StopPending, stop, ERROR_TIMEOUT, beyond, SERVICE_STOP_PENDING, beyondSleeps},
        {"stop: unknown service", None, stop, 1060, {"ZN_StopService open service WrTestMain error: 1060"}},
    };
    for (const Case& c : cases) Check(c);
}

// ZN_AddService's values as written: the texts carry a second terminator.
std::string Written(const std::string& description, const std::string& display) {
    return "Description=" + description + "; DisplayName=" + display + "; ErrorControl=dword:1; ImagePath=" + kImage +
           "||; ObjectName=LocalSystem||; Start=dword:2; Type=dword:16; WOW64=dword:1; ";
}
DWORD Add(WCHAR letter, const wchar_t* display, const wchar_t* description, const wchar_t* failValue = L"") {
    FailValue = failValue;
    return ZN_AddService(letter, Name(), wrtest::Widen(kImage).c_str(), display, description);
}

// W holds an offline installation, X none, C is the running system.
TEST(AddService, WritesTheServiceKeyIntoTheRunningOrAnOfflineSystem) {
    const std::string hive = "X:\\windows\\system32\\config\\system", set = "ZN_AddService set ", image = kImage;
    const std::string unmount = "at unmount: ";
    const Case cases[] = {
        // The display name takes the description's byte count: the rest of the description follows it.
        {"offline, shorter display name", None, [] { return Add(L'W', L"Ab", L"Longer text"); }, 0, {}, kGone, {}, {}, {}, unmount + Written("Longer text||", "Ab|ger text||")},
        {"offline by lower-case letter, longer display name cut without terminator", None, [] { return Add(L'w', L"A much longer name", L"Desc"); }, 0, {}, kGone, {}, {}, {}, unmount + Written("Desc||", "A much")},
        {"running system by lower-case letter, defaults to the service name", None, [] { return Add(L'c', nullptr, L""); }, 0, {}, kGone, {}, {}, {}, Written("WrTestMain||", "WrTestMain||")},
        {"hive cannot be mounted", None, [] { return Add(L'X', L"Ab", L"Longer text"); }, 3, {"ZN_LoadRegistry load " + hive + " to ZNRegKey error: 3", "ZN_AddService load " + hive + " error: 3"}},
        {"key cannot be created", None, [] { return Add(L'W', L"Ab", L"Longer text", L"key"); }, 5, {"ZN_AddService create ZNRegKey\\ControlSet001\\Services\\WrTestMain error: 5"}},
        {"a text value fails: later ones are not written", None, [] { return Add(L'W', L"Ab", L"Longer text", L"DisplayName"); }, 5, {set + "DisplayName Ab error: 5"}, kGone, {}, {}, {}, unmount + "Description=Longer text||; ImagePath=" + image + "||; "},
        {"a number value fails", None, [] { return Add(L'W', L"Ab", L"Longer text", L"Start"); }, 5, {set + "Start 2 error: 5"}, kGone, {}, {}, {}, unmount + "Description=Longer text||; DisplayName=Ab|ger text||; ErrorControl=dword:1; ImagePath=" + image + "||; ObjectName=LocalSystem||; "},
    };
    ASSERT_TRUE(wrtest::TextHive().Key("Select").Dword("Current", 1).Key("ControlSet001\\Services\\Other")
                    .Dword("Type", 16).Write(L"W:\\windows\\system32\\config\\system"));
    for (const Case& c : cases) Check(c);
    wrtest::RemoveTree(L"W:\\windows");
}

}  // namespace
