// The diagnostic log: every message goes to the debugger output and, when the
// operator placed a QRB.log beside the host executable, to that file.
#pragma once

#include <windows.h>

// Narrow and wide printf-style messages; the text is prefixed with the library's tag.
void LogA(const char* format, ...);
void LogW(const wchar_t* format, ...);

// Appends one timestamped line to the open log file. Only LogA/LogW call it, and
// only while the file is open.
BOOL WriteLogLine(const char* text);

namespace wrenkits {

inline constexpr char kLogTag[] = "[Wrenkit] ";
inline constexpr DWORD kLogResetSize = 0x200000;  // a larger file is emptied first

// Opens QRB.log beside the host executable if it already exists (process attach).
void OpenLogBesideHost();
// Opens an existing file as the log; never creates it. Used by the attach path and by tests.
void OpenLogFile(const char* path);
// Closes the log file if open (process detach).
void CloseLog();
bool LogIsOpen();

}  // namespace wrenkits
