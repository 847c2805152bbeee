#include <stddef.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/unique_any.h"
#include "service/service_wait.h"

using namespace wrenkits;

namespace {

constexpr wchar_t kStart[] = L"ZN_StartService";
constexpr wchar_t kStop[] = L"ZN_StopService";
constexpr wchar_t kDependants[] = L"StopDependentServices";

// The stop request reports into the same record the queries fill, so that its
// answer counts as the last known state.
static_assert(offsetof(SERVICE_STATUS_PROCESS, dwCurrentState) == offsetof(SERVICE_STATUS, dwCurrentState) &&
              offsetof(SERVICE_STATUS_PROCESS, dwWaitHint) == offsetof(SERVICE_STATUS, dwWaitHint));

bool Query(SC_HANDLE service, SERVICE_STATUS_PROCESS& status) {
    DWORD needed = 0;
    return ::QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                                  &needed) != FALSE;
}

bool SendStop(SC_HANDLE service, SERVICE_STATUS_PROCESS& status) {
    return ::ControlService(service, SERVICE_CONTROL_STOP, reinterpret_cast<SERVICE_STATUS*>(&status)) != FALSE;
}

DWORD LogQueryFailure(const wchar_t* user, LPCWSTR serviceName) {
    const DWORD error = ::GetLastError();
    LogW(L"%s query status of service %s error: %d", user, serviceName, error);
    return error;
}

// Opens the manager and the service, logging a failure under `user`; 0 or the error.
DWORD OpenService(const wchar_t* user, LPCWSTR serviceName, DWORD access, unique_schandle& manager,
                  unique_schandle& service) {
    if (!serviceName || !*serviceName) {
        LogW(L"%s open service %s error: %d", user, L"", ERROR_INVALID_PARAMETER);
        return ERROR_INVALID_PARAMETER;
    }
    manager.reset(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        const DWORD error = ::GetLastError();
        LogA("%S open sc manager error: %d", user, error);
        return error;
    }
    service.reset(::OpenServiceW(manager.get(), serviceName, access));
    if (!service) {
        const DWORD error = ::GetLastError();
        LogW(L"%s open service %s error: %d", user, serviceName, error);
        return error;
    }
    return ERROR_SUCCESS;
}

// Stops one dependant and waits until it has stopped; false on any failure or once
// the shared bound since `startTick` is spent.
bool StopDependant(SC_HANDLE manager, LPCWSTR name, DWORD startTick) {
    unique_schandle dependant(::OpenServiceW(manager, name, SERVICE_STOP | SERVICE_QUERY_STATUS));
    if (!dependant) return false;
    SERVICE_STATUS_PROCESS status = {};
    if (!SendStop(dependant.get(), status)) return false;
    while (status.dwCurrentState != SERVICE_STOPPED) {
        ::Sleep(status.dwWaitHint);
        if (!Query(dependant.get(), status)) return false;
        if (status.dwCurrentState == SERVICE_STOPPED) break;
        if (MoreThan(kStopBoundMs, startTick, ::GetTickCount())) return false;
    }
    return true;
}

// Stops the active services that depend on `service` (not theirs in turn), one
// after the other, within one bound for all of them.
bool StopDependentServices(SC_HANDLE manager, SC_HANDLE service) {
    const DWORD startTick = ::GetTickCount();
    DWORD bytes = 0, count = 0;
    if (::EnumDependentServicesW(service, SERVICE_ACTIVE, nullptr, 0, &bytes, &count)) return true;
    if (::GetLastError() != ERROR_MORE_DATA) return false;

    unique_heap buffer = HeapAllocZeroed(bytes);
    if (!buffer) return false;
    auto* dependants = static_cast<ENUM_SERVICE_STATUSW*>(buffer.get());
    if (!::EnumDependentServicesW(service, SERVICE_ACTIVE, dependants, bytes, &bytes, &count)) return false;
    for (DWORD i = 0; i < count; ++i) {
        LogW(L"%s ----> %s", kDependants, dependants[i].lpServiceName);
        if (!StopDependant(manager, dependants[i].lpServiceName, startTick)) return false;
    }
    return true;
}

}  // namespace

extern "C" DWORD WINAPI ZN_StartService(LPCWSTR serviceName) {
    unique_schandle manager, service;
    if (const DWORD error = OpenService(kStart, serviceName, SERVICE_ALL_ACCESS, manager, service)) return error;

    SERVICE_STATUS_PROCESS status = {};
    if (!Query(service.get(), status)) return LogQueryFailure(kStart, serviceName);
    // Paused and pending services count as started: only a stopped or stopping
    // service is started here.
    if (status.dwCurrentState != SERVICE_STOPPED && status.dwCurrentState != SERVICE_STOP_PENDING) {
        LogW(L"%s service %s is runing", kStart, serviceName);
        return ERROR_SUCCESS;
    }

    ProgressWatch stopping(::GetTickCount(), status.dwCheckPoint);
    while (status.dwCurrentState == SERVICE_STOP_PENDING) {
        ::Sleep(PollInterval(status.dwWaitHint));
        if (!Query(service.get(), status)) {
            if (const DWORD error = LogQueryFailure(kStart, serviceName)) return error;
            break;
        }
        // Only a service still stopping is judged by its progress: one that has
        // stopped reports check point and wait hint 0 and would look stuck.
        if (status.dwCurrentState == SERVICE_STOP_PENDING && !stopping.Progressing(::GetTickCount(), status)) {
            return ERROR_TIMEOUT;
        }
    }

    if (!::StartServiceW(service.get(), 0, nullptr)) {
        const DWORD error = ::GetLastError();
        LogW(L"%s start service %s error: %d", kStart, serviceName, error);
        return error;
    }
    LogW(L"%s start service %s is pendding", kStart, serviceName);
    if (!Query(service.get(), status)) return LogQueryFailure(kStart, serviceName);

    DWORD result = ERROR_SUCCESS;
    ProgressWatch starting(::GetTickCount(), status.dwCheckPoint);
    while (status.dwCurrentState == SERVICE_START_PENDING) {
        ::Sleep(PollInterval(status.dwWaitHint));
        if (!Query(service.get(), status)) {
            result = LogQueryFailure(kStart, serviceName);
            break;
        }
        if (!starting.Progressing(::GetTickCount(), status)) break;
    }

    if (status.dwCurrentState == SERVICE_RUNNING) {
        LogW(L"%s start service %s successfully", kStart, serviceName);
    } else {
        LogW(L"%s service %s is not started, current state: %d", kStart, serviceName, status.dwCurrentState);
    }
    // A service still pending after its own wait hint is no failure of this call.
    return result;
}

extern "C" DWORD WINAPI ZN_StopService(LPCWSTR serviceName) {
    unique_schandle manager, service;
    const DWORD access = SERVICE_STOP | SERVICE_QUERY_STATUS | SERVICE_ENUMERATE_DEPENDENTS;
    if (const DWORD error = OpenService(kStop, serviceName, access, manager, service)) return error;

    SERVICE_STATUS_PROCESS status = {};
    if (!Query(service.get(), status)) return LogQueryFailure(kStop, serviceName);
    if (status.dwCurrentState == SERVICE_STOPPED) {
        LogW(L"%s service %s is already stoped", kStop, serviceName);
        return ERROR_SUCCESS;
    }

    DWORD result = ERROR_SUCCESS;
    const DWORD startTick = ::GetTickCount();
    while (status.dwCurrentState == SERVICE_STOP_PENDING) {
        LogW(L"%s service %s stop pending", kStop, serviceName);
        ::Sleep(PollInterval(status.dwWaitHint));
        if (!Query(service.get(), status)) {
            result = LogQueryFailure(kStop, serviceName);
            break;
        }
        if (status.dwCurrentState == SERVICE_STOPPED) {
            LogW(L"%s service %s is stoped", kStop, serviceName);
            return result;
        }
        if (MoreThan(kStopBoundMs, startTick, ::GetTickCount())) {
            // The stop request below still goes out.
            LogW(L"%s service %s stop timeout", kStop, serviceName);
            result = ERROR_TIMEOUT;
            break;
        }
    }
    if (status.dwCurrentState == SERVICE_STOPPED) {
        LogW(L"%s service %s is stoped", kStop, serviceName);
        return result;
    }

    (void)StopDependentServices(manager.get(), service.get());

    for (int attempt = 0; attempt < kStopAttempts; ++attempt) {
        if (SendStop(service.get(), status)) break;
        const DWORD error = ::GetLastError();
        // A dependant that started meanwhile; this answer stays the result even if
        // a later request succeeds.
        result = error;
        if (error != ERROR_DEPENDENT_SERVICES_RUNNING) {
            LogW(L"%s control of service %s error: %d", kStop, serviceName, error);
            break;
        }
        ::Sleep(kDependantRetryMs);
    }

    while (status.dwCurrentState != SERVICE_STOPPED) {
        ::Sleep(status.dwWaitHint);
        if (!Query(service.get(), status)) {
            result = LogQueryFailure(kStop, serviceName);
            break;
        }
        if (status.dwCurrentState == SERVICE_STOPPED) break;
        if (MoreThan(kStopBoundMs, startTick, ::GetTickCount())) {
            LogW(L"%s service %s stop timeout", kStop, serviceName);
            return ERROR_TIMEOUT;
        }
    }

    if (result == ERROR_SUCCESS) LogW(L"%s service %s stop successfully", kStop, serviceName);
    return result;
}
