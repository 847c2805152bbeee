// Commands for the library frame: the machine report, sizes, comparisons, child processes.
#include <stdio.h>
#include <stdlib.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

// What the report tells; the text and the JSON form print the same facts.
struct Facts {
    wchar_t library[MAX_PATH] = {};
    wchar_t version[32] = L"unknown";
    wchar_t root[4] = {};
    bool haveDrive = false;
    ULARGE_INTEGER total = {}, free = {};
    wchar_t totalText[32] = {}, freeText[32] = {};
    bool backup = false, debug = false, children = false;
};

// The library's file version from its version resource.
void ReadVersion(const wchar_t* path, wchar_t (&version)[32]) {
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(path, &ignored);
    if (!size) return;
    void* block = malloc(size);
    VS_FIXEDFILEINFO* info = nullptr;
    UINT length = 0;
    if (block && GetFileVersionInfoW(path, 0, size, block) &&
        VerQueryValueW(block, L"\\", reinterpret_cast<void**>(&info), &length) && info) {
        _snwprintf_s(version, _TRUNCATE, L"%lu.%lu.%lu", HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS),
                     HIWORD(info->dwFileVersionLS));
    }
    free(block);
}

Facts Gather() {
    Facts f;
    wchar_t systemDir[MAX_PATH] = {};
    GetSystemDirectoryW(systemDir, MAX_PATH);
    f.root[0] = systemDir[0];
    f.root[1] = L':';
    f.root[2] = L'\\';
    f.haveDrive = GetDiskFreeSpaceExW(f.root, nullptr, &f.total, &f.free);
    if (f.haveDrive) {
        ZN_TranslateSize(static_cast<LONGLONG>(f.total.QuadPart), f.totalText, 32);
        ZN_TranslateSize(static_cast<LONGLONG>(f.free.QuadPart), f.freeText, 32);
    }

    f.backup = ZN_EnableBackupRestorePrivilege();
    if (f.backup) ZN_DisableBackupRestorePrivilege();
    f.debug = ZN_SetPrivilegeW(L"SeDebugPrivilege", TRUE);
    if (f.debug) ZN_SetPrivilegeW(L"SeDebugPrivilege", FALSE);

    wchar_t cmd[MAX_PATH + 16] = {};
    _snwprintf_s(cmd, MAX_PATH + 16, _TRUNCATE, L"%s\\cmd.exe", systemDir);
    f.children = ZN_RunProcess(cmd, L"/c exit 0", 1) == 0;

    // The DLL is loaded by now (on the first call above).
    GetModuleFileNameW(GetModuleHandleW(L"Wrenkits.dll"), f.library, MAX_PATH);
    ReadVersion(f.library, f.version);
    return f;
}

const wchar_t* Can(bool yes) { return yes ? L"can be enabled" : L"cannot be enabled"; }

void PrintText(const Facts& f) {
    wprintf(L"Wrenkits report\n");
    wprintf(L"  library            %ls\n", f.library);
    wprintf(L"  version            %ls\n", f.version);
    if (f.haveDrive) wprintf(L"  system drive       %ls %ls, %ls free\n", f.root, f.totalText, f.freeText);
    wprintf(L"  backup privileges  %ls\n", Can(f.backup));
    wprintf(L"  debug privilege    %ls\n", Can(f.debug));
    wprintf(L"  child processes    %ls\n", f.children ? L"run and report their exit code" : L"do not run");
}

// A JSON string in plain ASCII: anything else as \uXXXX, whatever the console's code page.
void JsonString(const wchar_t* text) {
    putwchar(L'"');
    for (const wchar_t* p = text; *p; ++p) {
        if (*p == L'"' || *p == L'\\') wprintf(L"\\%lc", *p);
        else if (*p < 0x20 || *p > 0x7e) wprintf(L"\\u%04x", static_cast<unsigned>(*p));
        else putwchar(*p);
    }
    putwchar(L'"');
}

void JsonField(const wchar_t* name, const wchar_t* text, bool last = false) {
    wprintf(L"  \"%ls\": ", name);
    JsonString(text);
    wprintf(last ? L"\n" : L",\n");
}

void PrintJson(const Facts& f) {
    wprintf(L"{\n");
    JsonField(L"library", f.library);
    JsonField(L"version", f.version);
    if (f.haveDrive) {
        JsonField(L"systemDrive", f.root);
        wprintf(L"  \"systemDriveBytes\": %llu,\n  \"systemDriveFreeBytes\": %llu,\n", f.total.QuadPart, f.free.QuadPart);
        JsonField(L"systemDriveSize", f.totalText);
        JsonField(L"systemDriveFree", f.freeText);
    }
    wprintf(L"  \"backupPrivileges\": %ls,\n", f.backup ? L"true" : L"false");
    wprintf(L"  \"debugPrivilege\": %ls,\n", f.debug ? L"true" : L"false");
    wprintf(L"  \"childProcesses\": %ls\n}\n", f.children ? L"true" : L"false");
}

int Report(const Args& a) {
    const Facts facts = Gather();
    if (a.flag(L"--json")) PrintJson(facts);
    else PrintText(facts);
    return 0;
}

int Size(const Args& a) {
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
    if (a.at(2) && !Is(a.at(2), L"tail")) return a.usage();
    const int result = ZN_CompareStringW(a.at(0), a.at(1), Is(a.at(2), L"tail"));
    wprintf(L"%d\n", result);
    return result;
}

int Run(const Args& a) {
    if (a.at(1) && !Is(a.at(1), L"nowait")) return a.usage();
    const DWORD code = ZN_RunProcess(a.at(0), nullptr, !Is(a.at(1), L"nowait"));
    wprintf(L"exit code %lu\n", code);
    return static_cast<int>(code);
}

const CommandTable kTable{
    {L"report", L"[--json]", L"what the library can tell about this machine (--json: as one JSON object)", Report},
    {L"size", L"BYTES", L"a byte count as a short readable size (3221225472 -> 3.00 G)", Size},
    {L"compare", L"FIRST SECOND [tail]",
     L"case-insensitive comparison: 0 equal, -1/1 head (or tail) of the other, 15 neither", Compare},
    {L"run", L"\"COMMAND LINE\" [nowait]", L"run a program without a window; exits with its exit code", Run},
};

}  // namespace
