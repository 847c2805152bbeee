// Bounded formatting and small text tests shared by the library's functions.
#pragma once

#include <windows.h>

namespace wrenkits {

inline constexpr size_t kPathChars = MAX_PATH;  // one path
inline constexpr size_t kShortChars = 20;       // a number or a drive root

// A drive letter is an ASCII letter; wide characters beyond one byte are none.
inline bool IsDriveLetter(unsigned int c) { return c < 128 && ((c | 0x20) >= 'a' && (c | 0x20) <= 'z'); }

// Upper-cases a drive letter for the "%C" formats; anything else is returned unchanged.
inline wchar_t UpperLetter(wchar_t c) { return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - 32) : c; }

// Refusals: input the classic contract would have cut or trusted is refused, never cut,
// with one log line shape per kind, so support engineers can search the log for them:
//   87  "<function> refused: <what> is missing or not valid"
//   206 "<function> refused: <what> is longer than <limit> characters"
// Both return their code so a caller can write `return RefuseInvalid(...)`.
DWORD RefuseInvalid(const char* function, const char* what);
DWORD RefuseTooLong(const char* function, const char* what, size_t limit);

// Formats into `out` (`outChars` wide characters) and tells whether the whole text
// fit; a cut text must not be used (callers refuse with 206).
bool FormatWholeW(LPWSTR out, size_t outChars, LPCWSTR format, ...);
bool FormatWholeA(LPSTR out, size_t outChars, LPCSTR format, ...);

// Most narrow exports convert their text into a 260-character wide buffer and call
// the wide export. A NULL text stays NULL (the wide export refuses it); a text that
// would not fit is not converted and `error()` is 206.
class WidePath {
public:
    explicit WidePath(LPCSTR text) noexcept;
    WidePath(const WidePath&) = delete;
    WidePath& operator=(const WidePath&) = delete;
    LPCWSTR get() const noexcept { return null_ ? nullptr : text_; }
    DWORD error() const noexcept { return error_; }

private:
    wchar_t text_[kPathChars] = {};
    bool null_ = false;
    DWORD error_ = 0;
};

}  // namespace wrenkits

// Format into a buffer of 260 (FormatPathW) or 20 (FormatShortW) characters; the
// output is cut, never written past its capacity, and always terminated.
void FormatPathW(LPWSTR out, LPCWSTR format, ...);
void FormatShortW(LPWSTR out, LPCWSTR format, ...);
