#include <wchar.h>

#include <optional>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"

using namespace wrenkits;

namespace {

constexpr char kName[] = "ZN_PopWindow";

// The program starts in the folder its command line names, so the text must name
// one: up to its last backslash. Returns 0, or the refusal's code.
DWORD SplitCommand(LPCWSTR commandLine, wchar_t (&command)[kPathChars], wchar_t (&folder)[kPathChars]) {
    if (!commandLine || !*commandLine) return RefuseInvalid(kName, "the command line");
    if (wcslen(commandLine) >= kPathChars) return RefuseTooLong(kName, "the command line", kPathChars - 1);
    wcscpy_s(command, commandLine);
    wcscpy_s(folder, commandLine);
    wchar_t* lastSlash = wcsrchr(folder, L'\\');
    if (!lastSlash) return RefuseInvalid(kName, "the command line's folder");
    *lastSlash = 0;
    return 0;
}

}  // namespace

extern "C" DWORD WINAPI ZN_PopWindow(LPCWSTR commandLine, BOOL useAdminToken, BOOL wait) {
    wchar_t command[kPathChars], folder[kPathChars];
    if (const DWORD refused = SplitCommand(commandLine, command, folder)) return refused;

    unique_handle token;
    if (useAdminToken)
        token.reset(ZN_GetAdminToken());
    else
        ZN_GetExplorerToken(token.put());
    // Declared after the token: the thread reverts before the token is closed.
    std::optional<scoped_impersonation> impersonation;
    if (token) impersonation.emplace(token.get());
    if (!impersonation || !*impersonation)
        LogA("%s ImpersonateLoggedOnUser error: %d", kName, ::GetLastError());

    wchar_t desktop[] = L"winsta0\\default";
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.lpDesktop = desktop;
    unique_process_information started;
    if (!::CreateProcessAsUserW(token.get(), nullptr, command, nullptr, nullptr, FALSE,
                                CREATE_NEW_CONSOLE | NORMAL_PRIORITY_CLASS, nullptr, folder, &startup, started.put())) {
        const DWORD error = ::GetLastError();
        LogW(L"%S run %s error: %d", kName, commandLine, error);
        return error;
    }
    unique_handle process = started.take_process();

    DWORD code = 0;
    if (wait) {
        ::WaitForSingleObject(process.get(), INFINITE);
        ::GetExitCodeProcess(process.get(), &code);
        if (code != 0) LogW(L"%S run %s return: %d", kName, commandLine, code);
    }
    return code;
}
