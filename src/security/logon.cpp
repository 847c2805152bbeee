#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"

namespace {

constexpr char kName[] = "ZN_LogonAsUser";

void LogLogonFailed(LPCWSTR user, DWORD error) { LogA("%s logon user %S error: %d", kName, user, error); }

}  // namespace

extern "C" HANDLE WINAPI ZN_LogonAsUser(LPCWSTR user, LPCWSTR password, LPCWSTR domain) {
    if (!user || !*user) {
        ::SetLastError(wrenkits::RefuseInvalid(kName, "the user name"));
        return nullptr;
    }
    HANDLE token = nullptr;
    // From Vista on, an account without the batch logon right still gets in interactively.
    if (LOBYTE(LOWORD(::GetVersion())) > 5) {
        if (::LogonUserW(user, domain, password, LOGON32_LOGON_BATCH, LOGON32_PROVIDER_DEFAULT, &token)) return token;
        LogLogonFailed(user, ::GetLastError());
    }
    if (::LogonUserW(user, domain, password, LOGON32_LOGON_INTERACTIVE, LOGON32_PROVIDER_DEFAULT, &token))
        return token;
    LogLogonFailed(user, ::GetLastError());
    return nullptr;
}
