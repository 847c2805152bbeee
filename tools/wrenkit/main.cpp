// wrenkit: a command-line host for Wrenkits.dll, for support engineers and for
// trying the library's exports by hand. Every subcommand prints the export's result;
// the library's own account of what it did goes to QRB.log beside this program
// (when that file exists) and to the debugger output.
#include <windows.h>

#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

#include "Wrenkits.h"

namespace {

// mingw's wprintf follows C99 rules: %ls is the wide string there.
const wchar_t kUsage[] =
    L"usage: wrenkit COMMAND [ARGS]\n"
    L"  report                           what the library can tell about this machine\n"
    L"  size BYTES                       a byte count as a short readable size (3221225472 -> 3.00 G)\n"
    L"  compare FIRST SECOND [tail]      case-insensitive comparison: 0 equal, -1/1 prefix (or suffix\n"
    L"                                   with tail) of the other, 15 neither\n"
    L"  run \"COMMAND LINE\" [nowait]      run a program without a window and print its exit code\n"
    L"  priv backup on|off               switch the backup and restore privileges\n"
    L"  priv set NAME on|off             switch one privilege, e.g. SeDebugPrivilege\n"
    L"  hive load FILE NAME              mount a hive file under HKLM\\NAME (repairing a damaged header)\n"
    L"  hive unload NAME                 unmount HKLM\\NAME\n"
    L"  bcd repair --boot L --system L [--uefi]\n"
    L"                                   repoint a restored system's boot store at its partitions\n"
    L"                                   (a boot letter of - means the boot partition has no letter)\n"
    L"  bcd bootfiles --windows L --target L [--uefi]\n"
    L"                                   generate boot files for a Windows partition\n"
    L"  bcd efi-set VOLUME [--copy]      point the firmware boot manager at \\Device\\HarddiskVolumeN\n"
    L"  bcd efi-add VOLUME               copy the boot manager entry onto a volume, print its identifier\n"
    L"  bcd remove ID                    delete a boot entry\n";

int Usage() {
    fwprintf(stderr, L"%ls", kUsage);
    return 2;
}

bool Is(const wchar_t* a, const wchar_t* b) { return _wcsicmp(a, b) == 0; }

int PrintCode(DWORD code) {
    wprintf(L"result %lu\n", code);
    return code == 0 ? 0 : 1;
}

bool OnOff(const wchar_t* word, BOOL& value) {
    if (Is(word, L"on")) value = TRUE;
    else if (Is(word, L"off")) value = FALSE;
    else return false;
    return true;
}

// Finds "--name VALUE" among the arguments.
const wchar_t* Option(int argc, wchar_t** argv, const wchar_t* name) {
    for (int i = 0; i + 1 < argc; ++i)
        if (Is(argv[i], name)) return argv[i + 1];
    return nullptr;
}

bool Flag(int argc, wchar_t** argv, const wchar_t* name) {
    for (int i = 0; i < argc; ++i)
        if (Is(argv[i], name)) return true;
    return false;
}

// A drive letter argument; "-" (or anything else) stands for "no letter".
WCHAR Letter(const wchar_t* text) { return text && text[0] && text[1] == 0 ? text[0] : L'\0'; }

int Size(int argc, wchar_t** argv) {
    if (argc < 3) return Usage();
    wchar_t text[64] = {};
    const int written = ZN_TranslateSize(_wtoi64(argv[2]), text, 64);
    if (written < 0) {
        fwprintf(stderr, L"cannot translate %ls\n", argv[2]);
        return 1;
    }
    wprintf(L"%ls\n", text);
    return 0;
}

int Compare(int argc, wchar_t** argv) {
    if (argc < 4) return Usage();
    const int tail = argc > 4 && Is(argv[4], L"tail");
    wprintf(L"%d\n", ZN_CompareStringW(argv[2], argv[3], tail));
    return 0;
}

int Run(int argc, wchar_t** argv) {
    if (argc < 3) return Usage();
    const int wait = !(argc > 3 && Is(argv[3], L"nowait"));
    wprintf(L"exit code %lu\n", ZN_RunProcess(argv[2], nullptr, wait));
    return 0;
}

int Privilege(int argc, wchar_t** argv) {
    BOOL on = FALSE;
    if (argc == 4 && Is(argv[2], L"backup") && OnOff(argv[3], on)) {
        const BOOL ok = on ? ZN_EnableBackupRestorePrivilege() : ZN_DisableBackupRestorePrivilege();
        wprintf(L"%ls\n", ok ? L"done" : L"failed");
        return ok ? 0 : 1;
    }
    if (argc == 5 && Is(argv[2], L"set") && OnOff(argv[4], on)) {
        const BOOL ok = ZN_SetPrivilegeW(argv[3], on);
        wprintf(L"%ls\n", ok ? L"done" : L"failed");
        return ok ? 0 : 1;
    }
    return Usage();
}

int Hive(int argc, wchar_t** argv) {
    if (argc == 5 && Is(argv[2], L"load")) return PrintCode(ZN_LoadRegistry(argv[3], argv[4]));
    if (argc == 4 && Is(argv[2], L"unload")) return PrintCode(ZN_UnLoadRegistry(argv[3]));
    return Usage();
}

int Bcd(int argc, wchar_t** argv) {
    if (argc < 3) return Usage();
    const wchar_t* verb = argv[2];
    const bool uefi = Flag(argc, argv, L"--uefi");
    if (Is(verb, L"repair")) {
        const wchar_t* boot = Option(argc, argv, L"--boot");
        const wchar_t* system = Option(argc, argv, L"--system");
        if (!system) return Usage();
        return PrintCode(ZN_RepairBcdEntry(Letter(boot), Letter(system), uefi ? 1 : 0));
    }
    if (Is(verb, L"bootfiles")) {
        const wchar_t* windows = Option(argc, argv, L"--windows");
        const wchar_t* target = Option(argc, argv, L"--target");
        if (!windows || !target) return Usage();
        return PrintCode(ZN_GenerateBootFiles(Letter(windows), Letter(target), uefi ? 1 : 0));
    }
    if (Is(verb, L"efi-set") && argc >= 4)
        return PrintCode(ZN_SetEfiEntry(wcstoul(argv[3], nullptr, 10), Flag(argc, argv, L"--copy") ? 1 : 0));
    if (Is(verb, L"efi-add") && argc >= 4) {
        wchar_t id[MAX_PATH] = {};
        const DWORD code = ZN_AddEfiEntry(wcstoul(argv[3], nullptr, 10), 0, id);
        if (code == 0) wprintf(L"new entry %ls\n", id[0] ? id : L"(none reported)");
        return PrintCode(code);
    }
    if (Is(verb, L"remove") && argc >= 4) return PrintCode(ZN_RemoveBcdEntry(argv[3]));
    return Usage();
}

int Report() {
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

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) return Usage();
    const wchar_t* cmd = argv[1];
    if (Is(cmd, L"report")) return Report();
    if (Is(cmd, L"size")) return Size(argc, argv);
    if (Is(cmd, L"compare")) return Compare(argc, argv);
    if (Is(cmd, L"run")) return Run(argc, argv);
    if (Is(cmd, L"priv")) return Privilege(argc, argv);
    if (Is(cmd, L"hive")) return Hive(argc, argv);
    if (Is(cmd, L"bcd")) return Bcd(argc, argv);
    return Usage();
}
