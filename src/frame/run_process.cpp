#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/process.h"

using namespace wrenkits;

namespace {

// Character-width glue so both exports share one body.
struct Wide {
    using Char = wchar_t;
    using StartupInfo = STARTUPINFOW;
    static constexpr const char* kName = "ZN_RunProcess";
    static size_t Length(const wchar_t* s) { return wcslen(s); }
    static void Format(wchar_t* out, const wchar_t* program, const wchar_t* arguments) {
        if (arguments && *arguments)
            _snwprintf_s(out, kCommandLineChars, _TRUNCATE, L"%s %s", program, arguments);
        else
            _snwprintf_s(out, kCommandLineChars, _TRUNCATE, L"%s", program);
    }
    static BOOL Create(wchar_t* commandLine, StartupInfo* si, PROCESS_INFORMATION* pi) {
        return ::CreateProcessW(nullptr, commandLine, nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                                nullptr, si, pi);
    }
    static void LogCreateFailed(const wchar_t* commandLine, DWORD error) {
        LogW(L"%S create process %s error: %d", kName, commandLine, error);
    }
    static void LogResult(const wchar_t* commandLine, DWORD code) {
        LogW(L"%S process %s result: %d", kName, commandLine, code);
    }
};

struct Narrow {
    using Char = char;
    using StartupInfo = STARTUPINFOA;
    static constexpr const char* kName = "ZN_RunProcessA";
    static size_t Length(const char* s) { return strlen(s); }
    static void Format(char* out, const char* program, const char* arguments) {
        if (arguments && *arguments)
            _snprintf_s(out, kCommandLineChars, _TRUNCATE, "%s %s", program, arguments);
        else
            _snprintf_s(out, kCommandLineChars, _TRUNCATE, "%s", program);
    }
    static BOOL Create(char* commandLine, StartupInfo* si, PROCESS_INFORMATION* pi) {
        return ::CreateProcessA(nullptr, commandLine, nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                                nullptr, si, pi);
    }
    static void LogCreateFailed(const char* commandLine, DWORD error) {
        LogA("%s create process %s error: %d", kName, commandLine, error);
    }
    static void LogResult(const char* commandLine, DWORD code) {
        LogA("%s process %s result: %d", kName, commandLine, code);
    }
};

template <typename W>
DWORD RunProcess(const typename W::Char* program, const typename W::Char* arguments, BOOL wait) {
    // Refused as silently as an empty command line.
    if (!program) return ERROR_INVALID_PARAMETER;

    // A cut command line could run something other than what was asked for, so an
    // over-long one is refused whole.
    size_t chars = W::Length(program);
    if (arguments && *arguments) chars += 1 + W::Length(arguments);
    if (chars > kCommandLineChars - 1) return RefuseTooLong(W::kName, "command line", kCommandLineChars - 1);

    typename W::Char commandLine[kCommandLineChars] = {};
    W::Format(commandLine, program, arguments);
    if (commandLine[0] == 0) return ERROR_INVALID_PARAMETER;

    // The start-up record stays all zero, its size field included: the child gets
    // no window-show mode and no standard handles of ours.
    typename W::StartupInfo si = {};
    unique_process_information child;
    if (!W::Create(commandLine, &si, child.put())) {
        const DWORD error = ::GetLastError();
        W::LogCreateFailed(commandLine, error);
        return error;
    }
    const unique_handle process = child.take_process();

    DWORD code = 0;
    if (wait) {
        ::WaitForSingleObject(process.get(), INFINITE);
        ::GetExitCodeProcess(process.get(), &code);
        if (code != 0) W::LogResult(commandLine, code);
    }
    return code;
}

}  // namespace

extern "C" DWORD WINAPI ZN_RunProcess(LPCWSTR program, LPCWSTR arguments, BOOL wait) {
    return RunProcess<Wide>(program, arguments, wait);
}

extern "C" DWORD WINAPI ZN_RunProcessA(LPCSTR program, LPCSTR arguments, BOOL wait) {
    return RunProcess<Narrow>(program, arguments, wait);
}
