// One request at a time to Wine's real service manager: control, queries, install,
// removal and kernel drivers. Drivers cannot run under Wine, so their start answers
// come from a hook where a row says so.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "service/service_test_support.h"

using svctest::TestService;

namespace {

constexpr DWORD kGone = 0;  // as the state afterwards: no such service any more

// The service's state, or kGone once it cannot be opened.
DWORD StateAfter(const std::wstring& name) {
    SC_HANDLE h = OpenServiceW(svctest::Manager(), name.c_str(), SERVICE_QUERY_STATUS);
    if (!h) return kGone;
    CloseServiceHandle(h);
    return svctest::Status(name).dwCurrentState;
}

// The manager's settings and the description value, as one line.
std::string Config(const std::wstring& name) {
    SC_HANDLE h = OpenServiceW(svctest::Manager(), name.c_str(), SERVICE_QUERY_CONFIG);
    if (!h) return "none";
    BYTE buffer[8192];
    DWORD needed = 0;
    auto* c = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
    QueryServiceConfigW(h, c, sizeof buffer, &needed);
    CloseServiceHandle(h);
    wchar_t description[64] = {};
    DWORD bytes = sizeof description;
    const bool described = RegGetValueW(HKEY_LOCAL_MACHINE, (L"SYSTEM\\CurrentControlSet\\Services\\" + name).c_str(),
                                        L"Description", RRF_RT_ANY | RRF_NOEXPAND, nullptr, description,
                                        &bytes) == ERROR_SUCCESS;
    return "type " + std::to_string(c->dwServiceType) + ", start " + std::to_string(c->dwStartType) + ", error " +
           std::to_string(c->dwErrorControl) + ", group '" + wrtest::Narrow(c->lpLoadOrderGroup) + "', display " +
           wrtest::Narrow(c->lpDisplayName) + ", path " + wrtest::Narrow(c->lpBinaryPathName) +
           (described ? ", description '" + wrtest::Narrow(description) + "' in " + std::to_string(bytes) + " bytes"
                      : ", no description");
}

enum class Before { None, Stopped, Running, StartPending, Paused, Driver, DriverMarked };

struct Case {
    const char* name;
    Before before;
    std::function<DWORD()> call;
    DWORD result = 0;
    std::vector<std::string> log = {};
    DWORD after = kGone;         // state of the row's service afterwards
    std::string config = "";     // its settings afterwards, where the row looks at them
    std::vector<std::string> calls = {};  // driver creates and starts, with their answers
    std::optional<DWORD> startAnswer = {};  // a driver start's answer instead of Wine's
};

std::vector<std::string> Calls;
std::optional<DWORD> StartAnswer;
SC_HANDLE WINAPI RecordingCreate(SC_HANDLE m, LPCSTR name, LPCSTR display, DWORD access, DWORD type, DWORD start,
                                 DWORD error, LPCSTR path, LPCSTR group, DWORD* tag, LPCSTR deps, LPCSTR user,
                                 LPCSTR password) {
    SC_HANDLE h = CreateServiceA(m, name, display, access, type, start, error, path, group, tag, deps, user, password);
    Calls.push_back("create " + std::to_string(h ? 0 : GetLastError()));
    return h;
}
BOOL WINAPI AnsweringStart(SC_HANDLE h, DWORD n, LPCSTR* args) {
    const BOOL ok = StartAnswer ? *StartAnswer == 0 : StartServiceA(h, n, args);
    const DWORD error = StartAnswer ? *StartAnswer : ok ? 0 : GetLastError();
    Calls.push_back("start " + std::to_string(error));
    SetLastError(error);
    return ok;
}

const wchar_t* const kName = L"WrTestCtl";
const char* const kDriverPath = "C:\\windows\\system32\\drivers\\wrtest.sys";

void Check(const Case& c) {
    SCOPED_TRACE(c.name);
    std::optional<TestService> service;
    SC_HANDLE marked = nullptr;
    if (c.before == Before::Driver || c.before == Before::DriverMarked) {
        svctest::RemoveService(kName);
        marked = CreateServiceW(svctest::Manager(), kName, kName, SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER,
                                SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, wrtest::Widen(kDriverPath).c_str(),
                                nullptr, nullptr, nullptr, nullptr, nullptr);
        if (c.before == Before::DriverMarked) DeleteService(marked);  // held open: only marked
    } else if (c.before != Before::None) {
        service.emplace(kName, c.before == Before::StartPending ? L"--hold-start 3000" : L"--pausable");
        if (c.before != Before::Stopped) service->Start();
        EXPECT_EQ(0u, c.before == Before::Paused ? service->Send(SERVICE_CONTROL_PAUSE) : 0u);
    }
    Calls.clear();
    StartAnswer = c.startAnswer;
    wrtest::ImportHook create("ADVAPI32.dll", "CreateServiceA", reinterpret_cast<void*>(&RecordingCreate));
    wrtest::ImportHook start("ADVAPI32.dll", "StartServiceA", reinterpret_cast<void*>(&AnsweringStart));
    const DWORD pid = svctest::Status(kName).dwProcessId;
    wrtest::LogCapture log;

    EXPECT_EQ(c.result, c.call());

    svctest::ExpectLog(log, c.log);
    EXPECT_EQ(c.calls, Calls);
    EXPECT_EQ(c.config, c.config.empty() ? c.config : Config(kName));
    if (marked) CloseServiceHandle(marked);
    // A deleted service goes with its process; a stopped double's process ends soon after.
    HANDLE process = pid && (c.after == kGone || c.after == SERVICE_STOPPED) ? OpenProcess(SYNCHRONIZE, FALSE, pid)
                                                                            : nullptr;
    if (process) {
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, 10000));
        CloseHandle(process);
    }
    EXPECT_EQ(c.after, StateAfter(kName));
    svctest::RemoveService(kName);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\WrTestCtl");
}

DWORD Control(const wchar_t* name, WORD operation) { return ZN_ControlService(name, operation); }

TEST(ServiceControl, SendsOneRequestAndNeverWaits) {
    const Case cases[] = {
        {"empty name", Before::Running, [] { return Control(L"", 1) + Control(nullptr, 1); },
         2 * ERROR_INVALID_PARAMETER, {}, SERVICE_RUNNING},
        {"start a stopped service", Before::Stopped, [] { return Control(kName, 1); }, 0, {}, SERVICE_RUNNING},
        {"start a running one: 1056 counts as done", Before::Running, [] { return Control(kName, 1); }, 0, {},
         SERVICE_RUNNING},
        {"stop", Before::Running, [] { return Control(kName, 2); }, 0, {}, SERVICE_STOPPED},
        {"stop a stopped one", Before::Stopped, [] { return Control(kName, 2); }, ERROR_SERVICE_NOT_ACTIVE,
         {"ZN_ControlService stop service error: 1062"}, SERVICE_STOPPED},
        {"stop and delete", Before::Running, [] { return Control(kName, 3); }, 0, {}, kGone},
        {"stop and delete a stopped one: not deleted", Before::Stopped, [] { return Control(kName, 3); },
         ERROR_SERVICE_NOT_ACTIVE, {"ZN_ControlService stop service error: 1062"}, SERVICE_STOPPED},
        {"operations 0 and 4", Before::Running, [] { return Control(kName, 0) + Control(kName, 4); },
         2 * ERROR_NOT_SUPPORTED, {}, SERVICE_RUNNING},
        {"unknown service", Before::None, [] { return Control(L"WrTestNone", 1); }, ERROR_SERVICE_DOES_NOT_EXIST,
         {"ZN_ControlService open service WrTestNone error: 1060"}},
    };
    for (const Case& c : cases) Check(c);
}

TEST(ServiceControl, QueriesInstallsAndRemoves) {
    const std::string path = "C:\\wr\\svc.exe";
    const auto install = [](DWORD type) {
        return type ? ZN_InstallServiceEx(kName, L"Desc", L"C:\\wr\\svc.exe", type)
                    : ZN_InstallService(kName, L"Desc", L"C:\\wr\\svc.exe");
    };
    const Case cases[] = {
        {"installed", Before::Stopped, [] { return DWORD(ZN_ServiceInstalled(kName)); }, TRUE, {}, SERVICE_STOPPED},
        {"not installed", Before::None, [] { return DWORD(ZN_ServiceInstalled(L"WrTestNone")); }, FALSE,
         {"ZN_ServiceInstalled open service WrTestNone failed, error: 1060"}},
        {"installed: empty name", Before::None, [] { return DWORD(ZN_ServiceInstalled(L"")); }, FALSE,
         {"ZN_ServiceInstalled refused: service name is missing or not valid"}},
        {"running", Before::Running, [] { return DWORD(ZN_ServiceIsRunning(kName)); }, TRUE, {}, SERVICE_RUNNING},
        {"start pending counts as running", Before::StartPending, [] { return DWORD(ZN_ServiceIsRunning(kName)); },
         TRUE, {}, SERVICE_START_PENDING},
        {"paused is not running", Before::Paused, [] { return DWORD(ZN_ServiceIsRunning(kName)); }, FALSE, {},
         SERVICE_PAUSED},
        {"stopped is not running", Before::Stopped, [] { return DWORD(ZN_ServiceIsRunning(kName)); }, FALSE, {},
         SERVICE_STOPPED},
        {"running: unknown", Before::None, [] { return DWORD(ZN_ServiceIsRunning(L"WrTestNone")); }, FALSE,
         {"ZN_ServiceIsRunning open service WrTestNone failed, error: 1060"}},
        {"install", Before::None, [&] { return install(0); }, 0, {}, SERVICE_STOPPED,
         "type 16, start 2, error 1, group 'Filter', display WrTestCtl, path " + path +
             ", description 'Desc' in 10 bytes"},
        {"install ex: the caller's type, no group", Before::None, [&] { return install(SERVICE_WIN32_SHARE_PROCESS); },
         0, {}, SERVICE_STOPPED,
         "type 32, start 2, error 1, group '', display WrTestCtl, path " + path + ", description 'Desc' in 10 bytes"},
        {"install over an existing one", Before::Stopped, [&] { return install(0); }, ERROR_SERVICE_EXISTS,
         {"ZN_InstallService create service WrTestCtl Desc " + path + " failed, error: 1073"}, SERVICE_STOPPED},
        {"install: no binary path", Before::None, [] { return ZN_InstallService(kName, L"Desc", L""); },
         ERROR_INVALID_PARAMETER, {"ZN_InstallService refused: binary path is missing or not valid"}, kGone, "none"},
        {"remove a running service", Before::Running, [] { return ZN_RemoveService(kName); }, 0, {}, kGone},
        {"remove: unknown", Before::None, [] { return ZN_RemoveService(L"WrTestNone"); },
         ERROR_SERVICE_DOES_NOT_EXIST, {"ZN_RemoveService open service WrTestNone failed, error: 1060"}},
    };
    for (const Case& c : cases) Check(c);
}

TEST(ServiceControl, LoadsAndRemovesKernelDrivers) {
    const std::string done = "LoadNtDriver WrTestCtl " + std::string(kDriverPath) + " successfully.";
    const auto load = [] { return ZN_LoadNtDriver("WrTestCtl", kDriverPath); };
    const std::string notDeleted = "RemoverNtDriver delete service WrTestCtl error: 0";
    const Case cases[] = {
        {.name = "new driver", .before = Before::None, .call = load, .log = {done}, .after = SERVICE_STOPPED,
         .config = "type 1, start 3, error 1, group '', display WrTestCtl, path " + std::string(kDriverPath) +
                   ", no description",
         .calls = {"create 0", "start 0"}, .startAnswer = 0},
        {.name = "Wine cannot start it", .before = Before::None, .call = load, .result = ERROR_DLL_INIT_FAILED,
         .log = {"LoadNtDriver start service WrTestCtl error: 1114"}, .after = SERVICE_STOPPED,
         .calls = {"create 0", "start 1114"}},
        {.name = "registered and running", .before = Before::Driver, .call = load, .log = {done},
         .after = SERVICE_STOPPED, .calls = {"create 1073", "start 1056"},
         .startAnswer = ERROR_SERVICE_ALREADY_RUNNING},
        // Still marked while the test holds its handle: three removals that cannot delete.
        {.name = "marked for deletion", .before = Before::DriverMarked, .call = load,
         .result = ERROR_SERVICE_MARKED_FOR_DELETE, .log = {notDeleted, notDeleted, notDeleted},
         .calls = {"create 1072", "create 1072", "create 1072"}},
        {.name = "remove", .before = Before::Driver, .call = [] { return ZN_RemoverNtDriver("WrTestCtl"); },
         .log = {"RemoverNtDriver WrTestCtl successfully."}},
        {.name = "remove: deletion fails, still 0", .before = Before::DriverMarked,
         .call = [] { return ZN_RemoverNtDriver("WrTestCtl"); }, .log = {notDeleted}},
        {.name = "remove: unknown", .before = Before::None, .call = [] { return ZN_RemoverNtDriver("WrTestNone"); },
         .result = ERROR_SERVICE_DOES_NOT_EXIST, .log = {"RemoverNtDriver open service WrTestNone error: 1060"}},
    };
    for (const Case& c : cases) Check(c);
}

}  // namespace
