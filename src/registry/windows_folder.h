// The running system's Windows folder, the model for an offline installation's one.
#pragma once

#include <windows.h>

#include "frame/text.h"

namespace wrenkits {

// Reads the Windows folder without a trailing backslash (a root install reads "C:\").
// False, with the last error set, when the system cannot say.
inline bool ReadWindowsFolder(wchar_t (&folder)[kPathChars]) {
    const UINT length = ::GetWindowsDirectoryW(folder, kPathChars);
    if (length == 0 || length >= kPathChars) {
        if (length) ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
        folder[0] = L'\0';
        return false;
    }
    if (folder[length - 1] == L'\\') folder[length - 1] = L'\0';
    return true;
}

}  // namespace wrenkits
