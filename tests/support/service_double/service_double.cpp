// A real service for the service tests. Its command line (the service's image path)
// sets how it behaves:
//   servicedouble.exe NAME [--hold-start HINT] [--hold-stop HINT] [--pausable]
// --hold-start: report start pending (check point 1, wait hint HINT) until the test
//   sets the event "Global\wrsvc-NAME-start"; --hold-stop: the same for a stop, with
//   "Global\wrsvc-NAME-stop". Without them the double changes state at once. Every
//   hold ends by itself after a minute, so a failed test cannot leave it stuck.
#include <windows.h>

#include <stdlib.h>
#include <wchar.h>

namespace {

constexpr DWORD kHoldLimitMs = 60000;
constexpr DWORD kAnswerGraceMs = 3000;

struct Options {
    bool holdStart = false, holdStop = false, pausable = false;
    DWORD startHint = 0, stopHint = 0;
} options;

SERVICE_STATUS_HANDLE statusHandle = nullptr;
SERVICE_STATUS status = {};
HANDLE stopRequested = nullptr;

void Report(DWORD state, DWORD checkPoint = 0, DWORD waitHint = 0) {
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_START_PENDING || state == SERVICE_STOPPED
                                    ? 0
                                    : SERVICE_ACCEPT_STOP | (options.pausable ? SERVICE_ACCEPT_PAUSE_CONTINUE : 0);
    status.dwWin32ExitCode = NO_ERROR;
    status.dwCheckPoint = checkPoint;
    status.dwWaitHint = waitHint;
    SetServiceStatus(statusHandle, &status);
}

HANDLE ReleaseEvent(const wchar_t* name, const wchar_t* which) {
    wchar_t full[300];
    _snwprintf_s(full, _countof(full), _TRUNCATE, L"Global\\wrsvc-%s-%s", name, which);
    return CreateEventW(nullptr, TRUE, FALSE, full);
}

DWORD WINAPI Handler(DWORD control, DWORD, void*, void*) {
    switch (control) {
    case SERVICE_CONTROL_STOP:
        if (options.holdStop) {
            Report(SERVICE_STOP_PENDING, 1, options.stopHint);
        } else {
            Report(SERVICE_STOPPED);
        }
        SetEvent(stopRequested);
        return NO_ERROR;
    case SERVICE_CONTROL_PAUSE:
        Report(SERVICE_PAUSED);
        return NO_ERROR;
    case SERVICE_CONTROL_CONTINUE:
        Report(SERVICE_RUNNING);
        return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
        return NO_ERROR;
    default:
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void WINAPI ServiceMain(DWORD, wchar_t** argv) {
    const wchar_t* name = argv[0];
    stopRequested = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE startRelease = ReleaseEvent(name, L"start");
    HANDLE stopRelease = ReleaseEvent(name, L"stop");
    statusHandle = RegisterServiceCtrlHandlerExW(name, Handler, nullptr);
    if (options.holdStart) {
        Report(SERVICE_START_PENDING, 1, options.startHint);
        WaitForSingleObject(startRelease, kHoldLimitMs);
    }
    Report(SERVICE_RUNNING);
    WaitForSingleObject(stopRequested, INFINITE);
    if (options.holdStop) {
        WaitForSingleObject(stopRelease, kHoldLimitMs);
        Report(SERVICE_STOPPED);
    } else {
        // The handler reported the stop itself; its answer to the manager must leave
        // this process before the process ends, or the stop request fails with 109.
        Sleep(kAnswerGraceMs);
    }
    CloseHandle(startRelease);
    CloseHandle(stopRelease);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) return ERROR_INVALID_PARAMETER;
    for (int i = 2; i < argc; ++i) {
        if (!wcscmp(argv[i], L"--hold-start") && i + 1 < argc) {
            options.holdStart = true;
            options.startHint = wcstoul(argv[++i], nullptr, 10);
        } else if (!wcscmp(argv[i], L"--hold-stop") && i + 1 < argc) {
            options.holdStop = true;
            options.stopHint = wcstoul(argv[++i], nullptr, 10);
        } else if (!wcscmp(argv[i], L"--pausable")) {
            options.pausable = true;
        }
    }
    SERVICE_TABLE_ENTRYW table[] = {{argv[1], ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : static_cast<int>(GetLastError());
}
