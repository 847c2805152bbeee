#include <stdio.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/unique_any.h"

using namespace wrenkits;

namespace {

constexpr char kInstalled[] = "ZN_ServiceInstalled";
constexpr char kIsRunning[] = "ZN_ServiceIsRunning";
constexpr char kInstall[] = "ZN_InstallService";
constexpr char kInstallEx[] = "ZN_InstallServiceEx";
constexpr char kRemove[] = "ZN_RemoveService";
constexpr char kControl[] = "ZN_ControlService";

constexpr WORD kOperationStart = 1;
constexpr WORD kOperationStop = 2;
constexpr WORD kOperationStopAndDelete = 3;

// The key the manager keeps a service's settings in, with room for the longest
// service name the manager accepts.
constexpr wchar_t kServiceKeyFormat[] = L"SYSTEM\\CurrentControlSet\\Services\\%s";
constexpr size_t kServiceKeyChars = 34 + 256 + 1;

bool Empty(LPCWSTR text) { return !text || !*text; }

// Opens the manager for the query and removal functions, whose failure lines read
// "... failed, error: %d"; 0 or the error.
DWORD OpenManager(const char* user, unique_schandle& manager) {
    manager.reset(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (manager) return ERROR_SUCCESS;
    const DWORD error = ::GetLastError();
    LogA("%s open service manager failed, error: %d", user, error);
    return error;
}

// Opens a service after its manager; a null or empty name is refused with 87 on the
// same line as a name the manager does not know.
DWORD OpenNamed(const char* user, LPCWSTR serviceName, DWORD access, unique_schandle& manager,
                unique_schandle& service) {
    if (Empty(serviceName)) {
        LogW(L"%S open service %s failed, error: %d", user, L"", ERROR_INVALID_PARAMETER);
        return ERROR_INVALID_PARAMETER;
    }
    if (const DWORD error = OpenManager(user, manager)) return error;
    service.reset(::OpenServiceW(manager.get(), serviceName, access));
    if (service) return ERROR_SUCCESS;
    const DWORD error = ::GetLastError();
    LogW(L"%S open service %s failed, error: %d", user, serviceName, error);
    return error;
}

// The description lives beside the manager's own settings; the service works
// without it, so a failure here is not reported.
void WriteDescription(LPCWSTR serviceName, LPCWSTR description) {
    wchar_t path[kServiceKeyChars];
    if (_snwprintf_s(path, _countof(path), _TRUNCATE, kServiceKeyFormat, serviceName) < 0) return;
    unique_hkey key;
    if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                          key.put(), nullptr) != ERROR_SUCCESS) {
        return;
    }
    const DWORD bytes = static_cast<DWORD>((wcslen(description) + 1) * sizeof(wchar_t));
    ::RegSetValueExW(key.get(), L"Description", 0, REG_SZ, reinterpret_cast<const BYTE*>(description), bytes);
}

DWORD Install(const char* user, LPCWSTR serviceName, LPCWSTR description, LPCWSTR binaryPath, DWORD serviceType,
              LPCWSTR group) {
    const LPCWSTR shownDescription = description ? description : L"";
    if (Empty(serviceName) || Empty(binaryPath)) {
        LogW(L"%S create service %s %s %s failed, error: %d", user, serviceName ? serviceName : L"", shownDescription,
             binaryPath ? binaryPath : L"", ERROR_INVALID_PARAMETER);
        return ERROR_INVALID_PARAMETER;
    }
    unique_schandle manager;
    if (const DWORD error = OpenManager(user, manager)) return error;
    // No dependencies: a list holding only its closing empty string.
    unique_schandle service(::CreateServiceW(manager.get(), serviceName, serviceName, SERVICE_ALL_ACCESS, serviceType,
                                             SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, binaryPath, group, nullptr,
                                             L"\0", nullptr, nullptr));
    if (!service) {
        const DWORD error = ::GetLastError();
        LogW(L"%S create service %s %s %s failed, error: %d", user, serviceName, shownDescription, binaryPath, error);
        return error;
    }
    WriteDescription(serviceName, shownDescription);
    return ERROR_SUCCESS;
}

}  // namespace

extern "C" BOOL WINAPI ZN_ServiceInstalled(LPCWSTR serviceName) {
    unique_schandle manager, service;
    return OpenNamed(kInstalled, serviceName, DELETE | SERVICE_STOP, manager, service) == ERROR_SUCCESS;
}

extern "C" BOOL WINAPI ZN_ServiceIsRunning(LPCWSTR serviceName) {
    unique_schandle manager, service;
    if (OpenNamed(kIsRunning, serviceName, SERVICE_QUERY_STATUS, manager, service) != ERROR_SUCCESS) return FALSE;
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    if (!::QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                                sizeof status, &needed)) {
        LogW(L"%S query status of service %s failed, error: %d", kIsRunning, serviceName, ::GetLastError());
        return FALSE;
    }
    return status.dwCurrentState == SERVICE_RUNNING || status.dwCurrentState == SERVICE_START_PENDING;
}

extern "C" DWORD WINAPI ZN_InstallService(LPCWSTR serviceName, LPCWSTR description, LPCWSTR binaryPath) {
    return Install(kInstall, serviceName, description, binaryPath, SERVICE_WIN32_OWN_PROCESS, L"Filter");
}

extern "C" DWORD WINAPI ZN_InstallServiceEx(LPCWSTR serviceName, LPCWSTR description, LPCWSTR binaryPath,
                                           DWORD serviceType) {
    return Install(kInstallEx, serviceName, description, binaryPath, serviceType, L"");
}

extern "C" DWORD WINAPI ZN_RemoveService(LPCWSTR serviceName) {
    unique_schandle manager, service;
    if (const DWORD error = OpenNamed(kRemove, serviceName, DELETE | SERVICE_STOP, manager, service)) return error;
    // No wait for the stop: a service still running is only marked for deletion.
    SERVICE_STATUS status = {};
    (void)::ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
    if (!::DeleteService(service.get())) {
        const DWORD error = ::GetLastError();
        LogW(L"%S delete service %s failed, error: %d", kRemove, serviceName, error);
        return error;
    }
    return ERROR_SUCCESS;
}

extern "C" DWORD WINAPI ZN_ControlService(LPCWSTR serviceName, WORD operation) {
    if (Empty(serviceName)) return ERROR_INVALID_PARAMETER;
    unique_schandle manager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        const DWORD error = ::GetLastError();
        LogA("%s open sc manager error: %d", kControl, error);
        return error;
    }
    unique_schandle service(::OpenServiceW(manager.get(), serviceName, SERVICE_ALL_ACCESS));
    if (!service) {
        const DWORD error = ::GetLastError();
        LogA("%s open service %S error: %d", kControl, serviceName, error);
        return error;
    }

    SERVICE_STATUS status = {};
    switch (operation) {
    case kOperationStart:
        if (!::StartServiceW(service.get(), 0, nullptr)) {
            const DWORD error = ::GetLastError();
            if (error == ERROR_SERVICE_ALREADY_RUNNING) return ERROR_SUCCESS;
            LogA("%s start service error: %d", kControl, error);
            return error;
        }
        return ERROR_SUCCESS;
    case kOperationStop:
    case kOperationStopAndDelete:
        if (!::ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
            const DWORD error = ::GetLastError();
            LogA("%s stop service error: %d", kControl, error);
            return error;
        }
        if (operation == kOperationStop) return ERROR_SUCCESS;
        if (!::DeleteService(service.get())) {
            const DWORD error = ::GetLastError();
            LogA("%s delete service error: %d", kControl, error);
            return error;
        }
        return ERROR_SUCCESS;
    default:
        return ERROR_NOT_SUPPORTED;
    }
}
