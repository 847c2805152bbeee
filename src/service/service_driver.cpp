#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/unique_any.h"

using wrenkits::unique_schandle;

namespace {

// A driver marked for deletion goes once its last handle closes; it is removed and
// created again this many times at most.
constexpr int kCreateAttempts = 3;

bool Empty(LPCSTR text) { return !text || !*text; }

}  // namespace

extern "C" DWORD WINAPI ZN_LoadNtDriver(LPCSTR driverName, LPCSTR driverPath) {
    if (Empty(driverName) || Empty(driverPath)) {
        LogA("LoadNtDriver create service %s %s error: %d", driverName ? driverName : "",
             driverPath ? driverPath : "", ERROR_INVALID_PARAMETER);
        return ERROR_INVALID_PARAMETER;
    }
    unique_schandle manager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        const DWORD error = ::GetLastError();
        LogA("LoadNtDriver open sc manager error: %d", error);
        return error;
    }

    unique_schandle driver;
    for (int attempt = 1; !driver; ++attempt) {
        driver.reset(::CreateServiceA(manager.get(), driverName, driverName, SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER,
                                      SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, driverPath, nullptr, nullptr,
                                      nullptr, nullptr, nullptr));
        if (driver) break;
        const DWORD error = ::GetLastError();
        if (error == ERROR_SERVICE_MARKED_FOR_DELETE) {
            // Its own lines say how the removal went; the next create tells whether it helped.
            (void)ZN_RemoverNtDriver(driverName);
            if (attempt == kCreateAttempts) return error;
        } else if (error == ERROR_SERVICE_EXISTS) {
            driver.reset(::OpenServiceA(manager.get(), driverName, SERVICE_ALL_ACCESS));
            if (!driver) {
                const DWORD openError = ::GetLastError();
                LogA("LoadNtDriver open service %s error: %d", driverName, openError);
                return openError;
            }
        } else {
            LogA("LoadNtDriver create service %s %s error: %d", driverName, driverPath, error);
            return error;
        }
    }

    if (!::StartServiceA(driver.get(), 0, nullptr)) {
        const DWORD error = ::GetLastError();
        if (error != ERROR_SERVICE_ALREADY_RUNNING) {
            LogA("LoadNtDriver start service %s error: %d", driverName, error);
            return error;
        }
    }
    LogA("LoadNtDriver %s %s successfully.", driverName, driverPath);
    return ERROR_SUCCESS;
}

extern "C" DWORD WINAPI ZN_RemoverNtDriver(LPCSTR driverName) {
    if (Empty(driverName)) {
        LogA("RemoverNtDriver open service %s error: %d", "", ERROR_INVALID_PARAMETER);
        return ERROR_INVALID_PARAMETER;
    }
    unique_schandle manager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        const DWORD error = ::GetLastError();
        LogA("RemoverNtDriver open sc manager error: %d", error);
        return error;
    }
    unique_schandle driver(::OpenServiceA(manager.get(), driverName, SERVICE_ALL_ACCESS));
    if (!driver) {
        const DWORD error = ::GetLastError();
        LogA("RemoverNtDriver open service %s error: %d", driverName, error);
        return error;
    }
    SERVICE_STATUS status = {};
    (void)::ControlService(driver.get(), SERVICE_CONTROL_STOP, &status);
    // Callers only ever see 0 here, and the failure line names error 0: they tell
    // a failed deletion from the log's wording, not from a code.
    if (::DeleteService(driver.get())) {
        LogA("RemoverNtDriver %s successfully.", driverName);
    } else {
        LogA("RemoverNtDriver delete service %s error: %d", driverName, 0);
    }
    return ERROR_SUCCESS;
}
