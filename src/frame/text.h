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

}  // namespace wrenkits

// Format into a buffer of 260 (FormatPathW) or 20 (FormatShortW) characters; the
// output is cut, never written past its capacity, and always terminated.
void FormatPathW(LPWSTR out, LPCWSTR format, ...);
void FormatShortW(LPWSTR out, LPCWSTR format, ...);
