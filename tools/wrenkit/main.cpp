// wrenkit: a command-line host for Wrenkits.dll, for support engineers and for
// trying the library's exports by hand.
#include <windows.h>

#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

#include "Wrenkits.h"

namespace {

int Usage() {
    fwprintf(stderr,
             L"usage: wrenkit COMMAND [ARGS]\n"
             L"  report                      what the library can tell about this machine\n"
             L"  size BYTES                  a byte count as a short readable size\n"
             L"  compare FIRST SECOND [tail] case-insensitive prefix (or suffix) comparison\n"
             L"  run \"COMMAND LINE\" [nowait] run a program without a window, print its exit code\n");
    return 2;
}

int Size(const wchar_t* bytes) {
    wchar_t text[64] = {};
    ZN_TranslateSize(_wtoi64(bytes), text, 64);
    wprintf(L"%ls\n", text);
    return 0;
}

int Compare(int argc, wchar_t** argv) {
    if (argc < 4) return Usage();
    const int tail = argc > 4 && _wcsicmp(argv[4], L"tail") == 0;
    wprintf(L"%d\n", ZN_CompareStringW(argv[2], argv[3], tail));
    return 0;
}

int Run(int argc, wchar_t** argv) {
    if (argc < 3) return Usage();
    const int wait = !(argc > 3 && _wcsicmp(argv[3], L"nowait") == 0);
    const DWORD code = ZN_RunProcess(argv[2], nullptr, wait);
    wprintf(L"exit code %lu\n", code);
    return 0;
}

int Report() {
    wprintf(L"Wrenkits report\n");
    ULARGE_INTEGER total = {}, freeBytes = {};
    wchar_t root[] = L"C:\\";
    if (GetDiskFreeSpaceExW(root, nullptr, &total, &freeBytes)) {
        wchar_t t[32] = {}, f[32] = {};
        ZN_TranslateSize(static_cast<LONGLONG>(total.QuadPart), t, 32);
        ZN_TranslateSize(static_cast<LONGLONG>(freeBytes.QuadPart), f, 32);
        wprintf(L"  system drive %ls: %ls, %ls free\n", root, t, f);
    }
    return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) return Usage();
    const wchar_t* cmd = argv[1];
    if (!wcscmp(cmd, L"report")) return Report();
    if (!wcscmp(cmd, L"size") && argc > 2) return Size(argv[2]);
    if (!wcscmp(cmd, L"compare")) return Compare(argc, argv);
    if (!wcscmp(cmd, L"run")) return Run(argc, argv);
    return Usage();
}
