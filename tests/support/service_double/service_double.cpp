// A real service for the service tests. Its command line (the service's image path)
// sets how it behaves:
//   servicedouble.exe NAME [--hold-start HINT] [--hold-stop HINT] [--pausable]
// --hold-start: report start pending (check point 1, wait hint HINT) until the test
//   sets the event "Global\wrsvc-NAME-start"; --hold-stop: the same for a stop, with
//   "Global\wrsvc-NAME-stop". Without them the double changes state at once. Every
//   hold ends by itself after a minute, so a failed test cannot leave it stuck.
// Once it has reported its first state (the held start, or running) it sets
// "Global\wrsvc-NAME-ready": Wine answers a start before the service has run at all.
#include <windows.h>

#include <stdlib.h>
#include <wchar.h>

namespace {

constexpr DWORD kHoldLimitMs = 60000;
constexpr DWORD kAnswerGraceMs = 3000;

bool holdStart = false, holdStop = false, pausable = false;
DWORD startHint = 0, stopHint = 0;
SERVICE_STATUS_HANDLE statusHandle = nullptr;
HANDLE stopRequested = nullptr;

void Report(DWORD state, DWORD waitHint = 0) {
    // A held start can be stopped, so that a test's clean-up never waits on the hold.
    const DWORD accepted = state == SERVICE_STOPPED                            ? 0
                           : pausable && state != SERVICE_START_PENDING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE
                                                                          : SERVICE_ACCEPT_STOP;
    // A pending state reports check point 1; the others 0.
    SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, state, accepted, NO_ERROR, 0, waitHint ? 1u : 0u, waitHint};
    SetServiceStatus(statusHandle, &status);
}

HANDLE Event(const wchar_t* name, const wchar_t* which) {
    wchar_t full[300];
    _snwprintf_s(full, _countof(full), _TRUNCATE, L"Global\\wrsvc-%s-%s", name, which);
    return CreateEventW(nullptr, TRUE, FALSE, full);
}

DWORD WINAPI Handler(DWORD control, DWORD, void*, void*) {
    if (control == SERVICE_CONTROL_STOP) {
        holdStop ? Report(SERVICE_STOP_PENDING, stopHint) : Report(SERVICE_STOPPED);
        SetEvent(stopRequested);
    } else if (control == SERVICE_CONTROL_PAUSE || control == SERVICE_CONTROL_CONTINUE) {
        Report(control == SERVICE_CONTROL_PAUSE ? SERVICE_PAUSED : SERVICE_RUNNING);
    } else if (control != SERVICE_CONTROL_INTERROGATE) {
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD, wchar_t** argv) {
    stopRequested = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE startRelease = Event(argv[0], L"start"), stopRelease = Event(argv[0], L"stop"), ready = Event(argv[0], L"ready");
    statusHandle = RegisterServiceCtrlHandlerExW(argv[0], Handler, nullptr);
    HANDLE holdEnds[] = {startRelease, stopRequested};
    if (holdStart) Report(SERVICE_START_PENDING, startHint), SetEvent(ready), WaitForMultipleObjects(2, holdEnds, FALSE, kHoldLimitMs);
    if (WaitForSingleObject(stopRequested, 0) == WAIT_TIMEOUT) Report(SERVICE_RUNNING), SetEvent(ready);
    WaitForSingleObject(stopRequested, INFINITE);
    // The handler reported an unheld stop itself; its answer to the manager must leave
    // this process before the process ends, or the stop request fails with 109.
    if (holdStop) WaitForSingleObject(stopRelease, kHoldLimitMs), Report(SERVICE_STOPPED);
    else Sleep(kAnswerGraceMs);
    CloseHandle(startRelease), CloseHandle(stopRelease), CloseHandle(ready);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) return ERROR_INVALID_PARAMETER;
    for (int i = 2; i < argc; ++i) {
        if (!wcscmp(argv[i], L"--pausable")) pausable = true;
        else if (i + 1 < argc && !wcscmp(argv[i], L"--hold-start")) holdStart = true, startHint = wcstoul(argv[++i], nullptr, 10);
        else if (i + 1 < argc && !wcscmp(argv[i], L"--hold-stop")) holdStop = true, stopHint = wcstoul(argv[++i], nullptr, 10);
    }
    SERVICE_TABLE_ENTRYW table[] = {{argv[1], ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : static_cast<int>(GetLastError());
}
