#include "frame/log.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

// Written only by the loader-serialised attach and detach paths.
HANDLE g_logFile = INVALID_HANDLE_VALUE;

constexpr size_t kMessageChars = 1024;
constexpr size_t kTagChars = sizeof(wrenkits::kLogTag) - 1;

}  // namespace

namespace wrenkits {

void OpenLogFile(const char* path) {
    // OPEN_EXISTING is the opt-in switch: without a file placed by somebody, the
    // library logs to the debugger only and never creates one.
    g_logFile = ::CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

void OpenLogBesideHost() {
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    if (char* slash = strrchr(path, '\\')) *slash = '\0';
    strncat_s(path, MAX_PATH, "\\QRB.log", _TRUNCATE);
    OpenLogFile(path);
}

void CloseLog() {
    if (g_logFile != INVALID_HANDLE_VALUE) {
        ::CloseHandle(g_logFile);
        g_logFile = INVALID_HANDLE_VALUE;
    }
}

bool LogIsOpen() { return g_logFile != INVALID_HANDLE_VALUE; }

}  // namespace wrenkits

BOOL WriteLogLine(const char* text) {
    // No rotation: past the limit the old content is simply discarded.
    if (::GetFileSize(g_logFile, nullptr) > wrenkits::kLogResetSize) {
        ::SetFilePointer(g_logFile, 0, nullptr, FILE_BEGIN);
        ::SetEndOfFile(g_logFile);
    }
    ::SetFilePointer(g_logFile, 0, nullptr, FILE_END);

    SYSTEMTIME now;
    ::GetLocalTime(&now);
    char line[1024] = {};
    // A line longer than 1023 bytes is cut there and loses its "\r\n"; that is intended.
    _snprintf_s(line, sizeof line, sizeof line - 1, "[%.4d-%.2d-%.2d %.2d:%.2d:%.2d]  %s\r\n", now.wYear,
                now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, text);
    DWORD written = 0;
    return ::WriteFile(g_logFile, line, static_cast<DWORD>(strlen(line)), &written, nullptr);
}

// Both keep the thread's last error: callers often log a failure and then return
// GetLastError(), and the file and debugger calls here would overwrite it.
void LogA(const char* format, ...) {
    const DWORD saved = ::GetLastError();
    char message[kMessageChars] = {};
    memcpy(message, wrenkits::kLogTag, kTagChars);
    va_list args;
    va_start(args, format);
    _vsnprintf_s(message + kTagChars, kMessageChars - kTagChars, kMessageChars - 1 - kTagChars, format, args);
    va_end(args);
    ::OutputDebugStringA(message);
    if (wrenkits::LogIsOpen()) WriteLogLine(message);
    ::SetLastError(saved);
}

void LogW(const wchar_t* format, ...) {
    const DWORD saved = ::GetLastError();
    wchar_t message[kMessageChars] = {};
    _snwprintf_s(message, kMessageChars, _TRUNCATE, L"%S", wrenkits::kLogTag);
    va_list args;
    va_start(args, format);
    _vsnwprintf_s(message + kTagChars, kMessageChars - kTagChars, kMessageChars - 1 - kTagChars, format, args);
    va_end(args);
    ::OutputDebugStringW(message);
    if (wrenkits::LogIsOpen()) {
        char narrow[kMessageChars] = {};
        ::WideCharToMultiByte(CP_ACP, 0, message, -1, narrow, kMessageChars - 1, nullptr, nullptr);
        WriteLogLine(narrow);
    }
    ::SetLastError(saved);
}
