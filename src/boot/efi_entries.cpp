#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "boot/boot.h"
#include "frame/log.h"
#include "frame/process.h"

using namespace wrenkits;

namespace {

// The interpreter finds the editor by its search path; the answer names the copy.
constexpr char kCopyCommand[] = "bcdedit /copy {bootmgr} /d \"Windows Boot Manager\"\r\n";
constexpr size_t kInterpreterAnswerBytes = 0x400000;

DWORD RunEditor(LPCWSTR editor, LPCWSTR arguments) { return ZN_RunProcess(editor, arguments, TRUE); }

}  // namespace

extern "C" DWORD WINAPI ZN_SetEfiEntry(DWORD volumeNumber, INT copyEntry) {
    RedirectionGuard guard(RedirectionGuard::Variant::CountSilentFailure);
    wchar_t editor[kPathChars] = {};
    GetBcdexePath(editor);
    const int volume = static_cast<int>(volumeNumber);

    // The listing's result stops nothing. Its line is written when the listing
    // failed, not when it succeeded: deliberate, logs in the field are read that way.
    if (RunEditor(editor, L"") != 0) LogW(L"%S --> run %s successfully", "ZN_SetEfiEntry", editor);

    wchar_t arguments[kPathChars] = {};
    FormatPathW(arguments, L"/sysstore \\Device\\HarddiskVolume%d", volume);
    if (RunEditor(editor, arguments) == 0) LogW(L"%S --> bcdedit %s successfully", "ZN_SetEfiEntry", arguments);

    if (copyEntry && RunEditor(editor, L"/copy {bootmgr} /d \"Windows Boot Manager\"") == 0)
        LogA("%s --> bcdedit /copy {bootmgr} /d \"Windows Boot Manager\" successfully", "ZN_SetEfiEntry");

    // Only the device command decides: the others prepare or follow it.
    FormatPathW(arguments, L"/set {bootmgr} device partition=\\Device\\HarddiskVolume%d", volume);
    const DWORD result = RunEditor(editor, arguments);
    if (result == 0) {
        LogW(L"%S --> bcdedit %s successfully", "ZN_SetEfiEntry", arguments);
        RunEditor(editor, L"/set {fwbootmgr} displayorder {bootmgr} /addfirst");
    }
    return result;
}

DWORD CopyBootMgr(int volume, LPWSTR newEntryId) {
    DWORD result = ERROR_INVALID_PARAMETER;

    wchar_t system[kPathChars] = {};
    ::GetSystemDirectoryW(system, kPathChars);
    wchar_t interpreter[kPathChars] = {};
    FormatPathW(interpreter, L"%s\\cmd.exe", system);

    ConsoleSession session("CopyBootMgr", SessionExit::OnlyWithBuffer);
    const SessionOpen open = session.Open(interpreter, system, kInterpreterAnswerBytes);
    if (open.stage == SessionStage::Process) LogA("%s run cmd error: %d", "CopyBootMgr", open.error);
    // Whatever failed, this user reports 87; the cause is in the log.
    if (!open.ok()) return result;

    // The write's own result does not decide anything: whatever the buffer holds
    // afterwards is read as the answer.
    (void)session.Send(kCopyCommand);

    char id[kPathChars] = {};
    const CopyAnswer answer = ExtractCopiedEntryId(session.Answer(), sizeof kCopyCommand - 1, id, sizeof id);
    if (answer == CopyAnswer::Short) return result;
    if (answer == CopyAnswer::TooLong)
        LogA("%s new guid longer than %d characters, not used", "CopyBootMgr", static_cast<int>(kPathChars - 1));
    if (answer == CopyAnswer::Identifier) {
        _snwprintf_s(newEntryId, kPathChars, _TRUNCATE, L"%S", id);
        LogA("%s new guid: %s", "CopyBootMgr", id);
        char command[kCommandLineChars] = {};
        _snprintf_s(command, sizeof command, _TRUNCATE,
                    "bcdedit /set %s device partition=\\Device\\HarddiskVolume%d\r\n", id, volume);
        session.Send(command);
    }
    // An answer without an identifier still counts: callers test the identifier.
    return 0;
}

extern "C" DWORD WINAPI ZN_AddEfiEntry(DWORD volumeNumber, ULONG_PTR /*reserved*/, LPWSTR newEntryId) {
    RedirectionGuard guard(RedirectionGuard::Variant::CountSilentFailure);
    wchar_t id[kPathChars] = {};
    const DWORD result = CopyBootMgr(static_cast<int>(volumeNumber), id);
    guard.End();
    if (result != 0) return result;
    if (newEntryId) wcscpy_s(newEntryId, kPathChars, id);
    return 0;
}

extern "C" DWORD WINAPI ZN_RemoveBcdEntry(LPCWSTR entryId) {
    // An empty identifier would leave "/delete" to the editor's own reading of it.
    if (!entryId || !*entryId) {
        return RefuseInvalid("ZN_RemoveBcdEntry", "entry id");
    }
    wchar_t arguments[kPathChars] = {};
    if (!FormatEditorArguments("ZN_RemoveBcdEntry", arguments, L"/delete %s", entryId)) return ERROR_FILENAME_EXCED_RANGE;

    RedirectionGuard guard;
    wchar_t editor[kPathChars] = {};
    GetBcdexePath(editor);
    const DWORD result = ZN_RunProcess(editor, arguments, TRUE);
    if (result == 0) LogW(L"%S --> bcdedit %s successfully", "ZN_RemoveBcdEntry", arguments);
    return result;
}
