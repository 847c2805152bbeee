// Gives a partition a drive letter, or takes it away, by scripting diskpart. The
// answers are logged, not interpreted: 0 means every command was delivered, and
// callers check the letter themselves.
#include <windows.h>

#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "disk/disk_volumes.h"
#include "frame/log.h"
#include "frame/process.h"
#include "frame/text.h"

using namespace wrenkits;

namespace {

constexpr char kName[] = "ZN_MountPartition";
constexpr size_t kDiskpartAnswerBytes = 0x100000;

// The first free letter from C to Z, or '*' when all are taken (diskpart rejects it,
// and the caller sees the '*' it was handed back).
wchar_t FreeLetter() {
    const DWORD used = ::GetLogicalDrives();
    for (int bit = 2; bit <= 25; ++bit)
        if (!(used & (1u << bit))) return static_cast<wchar_t>(L'A' + bit);
    return L'*';
}

// Sends one formatted command; every one of them is short enough for its buffer.
DWORD Send(ConsoleSession& session, const char* format, int value) {
    char command[kPathChars] = {};
    _snprintf_s(command, sizeof command, _TRUNCATE, format, value);
    return session.Send(command);
}

}  // namespace

extern "C" DWORD WINAPI ZN_MountPartition(DWORD diskNumber, DWORD partitionNumber, WCHAR* driveLetter,
                                          DWORD removeLetter) {
    if (!driveLetter) return RefuseInvalid(kName, "drive letter pointer");
    // A removal names the letter to drop; a non-letter would reach diskpart as a
    // broken command line (a NUL ends it before its line end and the tool never answers).
    if (removeLetter && !IsDriveLetter(*driveLetter)) return RefuseInvalid(kName, "drive letter");

    RedirectionGuard guard;

    wchar_t windows[kPathChars] = {};
    if (!::GetWindowsDirectoryW(windows, kPathChars)) {
        LogA("%s get windows directory error: %d", kName, ::GetLastError());
        wcscpy_s(windows, L"C:\\Windows");  // a fixed fallback on purpose
    }
    if (const size_t length = wcslen(windows); length && windows[length - 1] == L'\\') windows[length - 1] = 0;
    wchar_t diskpart[kPathChars] = {};
    if (!FormatWholeW(diskpart, kPathChars, L"%s\\System32\\diskpart.exe", windows))
        return RefuseTooLong(kName, "diskpart path", kPathChars - 1);
    ::OutputDebugStringW(diskpart);

    // Declared after the guard: the session's close steps run before redirection is restored.
    ConsoleSession session(kName, SessionExit::Always);
    const SessionOpen open = session.Open(diskpart, nullptr, kDiskpartAnswerBytes);
    if (open.stage == SessionStage::Process) LogW(L"%S run diskpart error: %d", kName, open.error);
    if (!open.ok()) return open.error;

    if (DWORD r = Send(session, "sel disk %d\r\n", static_cast<int>(diskNumber))) return r;
    if (DWORD r = session.Send("list partition\r\n")) return r;
    const int row = ParseListingNumber(session.Answer(), partitionNumber);
    if (row < 0) return ERROR_FILE_NOT_FOUND;

    if (DWORD r = Send(session, "sel partition %d\r\n", row)) return r;
    if (DWORD r = session.Send("detail partition\r\n")) return r;
    const int volume = ParseListingNumber(session.Answer(), 0);
    if (volume < 0) return ERROR_NOT_FOUND;
    if (DWORD r = Send(session, "sel vol %d\r\n", volume)) return r;

    if (removeLetter) return Send(session, "remove letter=%c:\r\n", static_cast<char>(*driveLetter));
    if (!IsDriveLetter(*driveLetter)) *driveLetter = FreeLetter();
    return Send(session, "assign letter=%c:\r\n", static_cast<char>(*driveLetter));
}
