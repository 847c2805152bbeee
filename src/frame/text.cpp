#include "frame/text.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text_rules.h"

namespace wrenkits {

DWORD RefuseInvalid(const char* function, const char* what) {
    LogA("%s refused: %s is missing or not valid", function, what);
    return ERROR_INVALID_PARAMETER;
}

DWORD RefuseTooLong(const char* function, const char* what, size_t limit) {
    LogA("%s refused: %s is longer than %d characters", function, what, static_cast<int>(limit));
    return ERROR_FILENAME_EXCED_RANGE;
}

bool FormatWholeW(LPWSTR out, size_t outChars, LPCWSTR format, ...) {
    va_list args;
    va_start(args, format);
    const int written = _vsnwprintf_s(out, outChars, _TRUNCATE, format, args);
    va_end(args);
    return written >= 0;
}

bool FormatWholeA(LPSTR out, size_t outChars, LPCSTR format, ...) {
    va_list args;
    va_start(args, format);
    const int written = _vsnprintf_s(out, outChars, _TRUNCATE, format, args);
    va_end(args);
    return written >= 0;
}

WidePath::WidePath(LPCSTR text) noexcept {
    if (!text) {
        null_ = true;
        return;
    }
    if (!::MultiByteToWideChar(CP_ACP, 0, text, -1, text_, static_cast<int>(kPathChars))) {
        text_[0] = 0;
        error_ = ::GetLastError() == ERROR_INSUFFICIENT_BUFFER ? ERROR_FILENAME_EXCED_RANGE : ::GetLastError();
    }
}

}  // namespace wrenkits

void FormatPathW(LPWSTR out, LPCWSTR format, ...) {
    va_list args;
    va_start(args, format);
    _vsnwprintf_s(out, wrenkits::kPathChars, _TRUNCATE, format, args);
    va_end(args);
}

void FormatShortW(LPWSTR out, LPCWSTR format, ...) {
    va_list args;
    va_start(args, format);
    _vsnwprintf_s(out, wrenkits::kShortChars, _TRUNCATE, format, args);
    va_end(args);
}

extern "C" int WINAPI ZN_TranslateSize(LONGLONG bytes, LPWSTR text, DWORD textChars) {
    if (!text) return -1;
    if (bytes == 0) {
        // "0" is copied with the path capacity whatever textChars says; a caller buffer
        // too small for it is refused rather than written past.
        if (textChars < 2) return -1;
        return wcscpy_s(text, wrenkits::kPathChars, L"0");
    }
    if (textChars == 0) return -1;
    // Below zero there is no unit to print in.
    if (bytes < 0) {
        text[0] = 0;
        return -1;
    }

    static const wchar_t* const kUnits[] = {L"B", L"K", L"M", L"G", L"T"};
    const wrenkits::ScaledSize size = wrenkits::ScaleSize(bytes);
    return _snwprintf_s(text, textChars, _TRUNCATE, L"%.2f %s", size.value, kUnits[size.unit]);
}

extern "C" int WINAPI ZN_CompareStringA(LPCSTR first, LPCSTR second, INT matchTail) {
    return wrenkits::CompareText(first, second, matchTail, strlen, _stricmp, _strnicmp);
}

extern "C" int WINAPI ZN_CompareStringW(LPCWSTR first, LPCWSTR second, INT matchTail) {
    return wrenkits::CompareText(first, second, matchTail, wcslen, _wcsicmp, _wcsnicmp);
}
