#include <stdarg.h>
#include <wchar.h>

#include "boot/boot.h"
#include "frame/log.h"

namespace {

// Whether `path` names an existing file; a miss is logged with its cause.
bool Present(LPCWSTR path) {
    if (::GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES) return true;
    LogW(L"%S find %s error: %d", "GetBcdexePath", path, ::GetLastError());
    return false;
}

}  // namespace

DWORD GetBcdexePath(LPWSTR path) {
    wchar_t system[wrenkits::kPathChars] = {};
    const UINT length = ::GetSystemDirectoryW(system, wrenkits::kPathChars);
    FormatPathW(path, L"%s%sbcdedit.exe", system,
                (length && length < wrenkits::kPathChars && system[length - 1] == L'\\') ? L"" : L"\\");

    if (!Present(path)) {
        // A 32-bit editor on the system drive still edits the same store.
        FormatPathW(path, L"%c:\\Windows\\SysWOW64\\bcdedit.exe", path[0]);
        if (!Present(path)) {
            // A rescue medium may carry the editor beside the library. Taken on trust:
            // there is nothing better left to try, and the run reports a missing file.
            wchar_t module[wrenkits::kPathChars] = {};
            ::GetModuleFileNameW(::GetModuleHandleW(L"Wrenkits.dll"), module, wrenkits::kPathChars);
            module[wrenkits::kPathChars - 1] = L'\0';
            if (wchar_t* slash = wcsrchr(module, L'\\')) *slash = L'\0';
            FormatPathW(path, L"%s\\bcdedit.exe", module);
        }
    }
    LogW(L"%S use %s", "GetBcdexePath", path);
    return 0;
}

namespace wrenkits {

bool FormatEditorArgumentsV(const char* user, wchar_t (&out)[kPathChars], const wchar_t* format, va_list args) {
    if (_vsnwprintf_s(out, kPathChars, _TRUNCATE, format, args) >= 0) return true;
    RefuseTooLong(user, "argument text", kPathChars - 1);
    return false;
}

bool FormatEditorArguments(const char* user, wchar_t (&out)[kPathChars], const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const bool whole = FormatEditorArgumentsV(user, out, format, args);
    va_end(args);
    return whole;
}

}  // namespace wrenkits
