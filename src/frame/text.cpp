#include "frame/text.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"

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
    int n = 0;
    LONGLONG divisor = 1;
    while (n < 5) {
        divisor *= 1024;
        ++n;
        if (bytes / divisor < 1) break;
    }
    const double value = static_cast<double>(bytes) / static_cast<double>(divisor / 1024);
    return _snwprintf_s(text, textChars, _TRUNCATE, L"%.2f %s", value, kUnits[n - 1]);
}

namespace {

template <typename Char, typename Len, typename Cmp, typename NCmp>
int CompareText(const Char* first, const Char* second, INT matchTail, Len len, Cmp cmp, NCmp ncmp) {
    if (!first || !second) return 15;
    if (cmp(first, second) == 0) return 0;
    const size_t lf = len(first);
    const size_t ls = len(second);
    if (ls > lf) {
        if (ncmp(second, first, lf) == 0) return -1;
        if (!matchTail) return 15;
        return ncmp(second + (ls - lf), first, lf) == 0 ? -1 : 15;
    }
    if (ls == lf) return 15;
    if (ncmp(first, second, ls) == 0) return 1;
    if (!matchTail) return 15;
    return ncmp(first + (lf - ls), second, ls) == 0 ? 1 : 15;
}

}  // namespace

extern "C" int WINAPI ZN_CompareStringA(LPCSTR first, LPCSTR second, INT matchTail) {
    return CompareText(first, second, matchTail, strlen, _stricmp, _strnicmp);
}

extern "C" int WINAPI ZN_CompareStringW(LPCWSTR first, LPCWSTR second, INT matchTail) {
    return CompareText(first, second, matchTail, wcslen, _wcsicmp, _wcsnicmp);
}
