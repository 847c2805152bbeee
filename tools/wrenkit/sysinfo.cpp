// Commands for system facts: the report a support engineer reads first, and the
// single questions behind it.
#include <stdio.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

const wchar_t* Bits(DWORD is64) { return is64 ? L"64-bit" : L"32-bit"; }

int Info(const Args&) {
    wchar_t text[MAX_PATH] = L"";
    const DWORD named = ZN_GetOSVersion(text, MAX_PATH);
    wprintf(L"running Windows    %ls%ls\n", text, named ? L" (name incomplete)" : L"");
    DWORD major = 0, minor = 0, reportedMajor = 0, reportedMinor = 0;
    ZN_GetSystemVersionEx(&major, &minor);
    ZN_GetSystemVersion(&reportedMajor, &reportedMinor);
    wchar_t sysDir[MAX_PATH] = L"";
    GetSystemDirectoryW(sysDir, MAX_PATH);
    DWORD is64 = 0;
    ZN_GetOsVersionEx(sysDir[0], nullptr, nullptr, &is64, nullptr, 0, nullptr, 0);
    wprintf(L"version            %lu.%lu (reported to programs: %lu.%lu), %ls\n", major, minor, reportedMajor,
            reportedMinor, Bits(is64));

    const DWORD drives = GetLogicalDrives();
    for (int i = 2; i < 26; ++i) {
        const WCHAR letter = static_cast<WCHAR>(L'A' + i);
        if (!(drives & (1u << i)) || !ZN_IsSystemPartition(letter)) continue;
        wchar_t product[MAX_PATH] = L"", path[MAX_PATH] = L"";
        const DWORD read = ZN_GetOsVersionEx(letter, &major, &minor, &is64, product, MAX_PATH - 1, nullptr, 0);
        // The folder is asked for on its own: some installations never recorded it.
        if (ZN_GetOsVersionEx(letter, nullptr, nullptr, nullptr, nullptr, 0, path, MAX_PATH - 1))
            lstrcpyW(path, L"an unrecorded folder");
        if (read) wprintf(L"installation %lc:    unreadable (result %lu)\n", letter, read);
        else wprintf(L"installation %lc:    %ls %lu.%lu %ls in %ls\n", letter, product, major, minor, Bits(is64), path);
    }

    wprintf(L"preinstallation    %ls\n", ZN_IsUnderPE() ? L"yes (Windows PE)" : L"no");
    ZN_GetProductName(text);
    wprintf(L"product            %ls, type %lu, language %lu\n", text, ZN_GetProductType(), ZN_GetLanguageID());
    const WCHAR free = ZN_GetFreeDriveLetter();
    if (free) wprintf(L"free drive letter  %lc:\n", free);
    else wprintf(L"free drive letter  none\n");
    return 0;
}

int Boot(const Args& a) {
    WCHAR letter = 0;
    if (!a.letter(0, letter)) return a.usage();
    const BOOL boot = ZN_IsBootPartition(letter);
    wprintf(L"%lc: %ls\n", letter, boot ? L"is the boot partition" : L"is not the boot partition");
    return boot;
}

int ImageVersion(const Args& a) {
    WORD minor = 0;
    const WORD major = ZN_GetImageVersion(a.at(0), &minor);
    wprintf(L"image format %u.%u\n", major, minor);
    return major;
}

const CommandTable kTable{
    {L"info", L"", L"running Windows, installations on every letter, PE, product and a free letter", Info},
    {L"partition boot", L"D", L"tell whether a volume is the firmware's boot partition (exit code 1 = yes)", Boot},
    {L"image version", L"FILE", L"read an image file's format version through Qorlib (exit code = major)",
     ImageVersion},
};

}  // namespace
