// Commands for the library frame: the machine report, sizes, comparisons, child processes.
#include <stdio.h>
#include <stdlib.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

int Report(const Args&) {
    wprintf(L"Wrenkits report\n");

    wchar_t module[MAX_PATH] = {};
    GetModuleFileNameW(GetModuleHandleW(L"Wrenkits.dll"), module, MAX_PATH);
    wprintf(L"  library            %ls\n", module);

    ULARGE_INTEGER total = {}, freeBytes = {};
    wchar_t systemDir[MAX_PATH] = {};
    GetSystemDirectoryW(systemDir, MAX_PATH);
    wchar_t root[4] = {systemDir[0], L':', L'\\', 0};
    if (GetDiskFreeSpaceExW(root, nullptr, &total, &freeBytes)) {
        wchar_t t[32] = {}, f[32] = {};
        ZN_TranslateSize(static_cast<LONGLONG>(total.QuadPart), t, 32);
        ZN_TranslateSize(static_cast<LONGLONG>(freeBytes.QuadPart), f, 32);
        wprintf(L"  system drive       %ls %ls, %ls free\n", root, t, f);
    }

    const BOOL backup = ZN_EnableBackupRestorePrivilege();
    wprintf(L"  backup privileges  %ls\n", backup ? L"can be enabled" : L"cannot be enabled");
    if (backup) ZN_DisableBackupRestorePrivilege();
    const BOOL debug = ZN_SetPrivilegeW(L"SeDebugPrivilege", TRUE);
    wprintf(L"  debug privilege    %ls\n", debug ? L"can be enabled" : L"cannot be enabled");
    if (debug) ZN_SetPrivilegeW(L"SeDebugPrivilege", FALSE);

    wchar_t cmd[MAX_PATH + 16] = {};
    _snwprintf_s(cmd, MAX_PATH + 16, _TRUNCATE, L"%s\\cmd.exe", systemDir);
    const DWORD code = ZN_RunProcess(cmd, L"/c exit 0", 1);
    wprintf(L"  child processes    %ls\n", code == 0 ? L"run and report their exit code" : L"do not run");
    return 0;
}

int Size(const Args& a) {
    if (!a.at(0)) return Usage(L"size");
    wchar_t text[64] = {};
    const int written = ZN_TranslateSize(_wtoi64(a.at(0)), text, 64);
    if (written < 0) {
        fwprintf(stderr, L"cannot translate %ls\n", a.at(0));
        return 1;
    }
    wprintf(L"%ls\n", text);
    return 0;
}

int Compare(const Args& a) {
    if (!a.at(1)) return Usage(L"compare");
    const int result = ZN_CompareStringW(a.at(0), a.at(1), Is(a.at(2), L"tail"));
    wprintf(L"%d\n", result);
    return result;
}

int Run(const Args& a) {
    if (!a.at(0)) return Usage(L"run");
    const DWORD code = ZN_RunProcess(a.at(0), nullptr, !Is(a.at(1), L"nowait"));
    wprintf(L"exit code %lu\n", code);
    return static_cast<int>(code);
}

const CommandTable kTable{
    {L"report", L"", L"what the library can tell about this machine", Report},
    {L"size", L"BYTES", L"a byte count as a short readable size (3221225472 -> 3.00 G)", Size},
    {L"compare", L"FIRST SECOND [tail]",
     L"case-insensitive comparison: 0 equal, -1/1 head (or tail) of the other, 15 neither", Compare},
    {L"run", L"\"COMMAND LINE\" [nowait]", L"run a program without a window; exits with its exit code", Run},
};

}  // namespace
