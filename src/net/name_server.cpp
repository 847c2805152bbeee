#include "net/name_server.h"

#include <wchar.h>

namespace wrenkits {

bool CopyPart(wchar_t* out, size_t capacity, const wchar_t* text, size_t count) {
    if (count >= capacity) return false;
    wmemcpy(out, text, count);
    out[count] = L'\0';
    return true;
}

bool SplitNameServer(const wchar_t* text, wchar_t (&primary)[20], wchar_t (&secondary)[20]) {
    const size_t firstLength = wcscspn(text, L",");
    bool whole = true;
    if (firstLength > 0) whole = CopyPart(primary, 20, text, firstLength) && whole;
    if (text[firstLength] == L',') {
        const wchar_t* rest = text + firstLength + 1;
        if (*rest) whole = CopyPart(secondary, 20, rest, wcslen(rest)) && whole;
    }
    return whole;
}

}  // namespace wrenkits
