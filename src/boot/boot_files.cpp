#include <wchar.h>

#include "Wrenkits.h"
#include "boot/boot.h"
#include "frame/log.h"

using namespace wrenkits;

extern "C" DWORD WINAPI ZN_GenerateBootFiles(WCHAR windowsLetter, WCHAR targetLetter, INT uefi) {
    // A letter of 0 would end the argument text early and run the generator with
    // whatever is left of it.
    if (!IsDriveLetter(windowsLetter) || !IsDriveLetter(targetLetter)) {
        return RefuseInvalid("ZN_GenerateBootFiles", "drive letter");
    }
    wchar_t generator[kPathChars] = {};
    const DWORD length = ::GetModuleFileNameW(nullptr, generator, kPathChars);
    // A cut host path would place the generator in some other folder: as unknown as none.
    if (length == 0 || length >= kPathChars) {
        LogA("%s call GetModuleFileNameW error: %d", "ZN_GenerateBootFiles", ::GetLastError());
        return ERROR_FILE_NOT_FOUND;
    }
    if (wchar_t* slash = wcsrchr(generator, L'\\')) *slash = L'\0';

    // The product ships a generator beside its programs for systems whose own is older
    // than the Windows being restored; it is preferred to the system's.
    wchar_t host[kPathChars] = {};
    const bool hostFits = _snwprintf_s(host, kPathChars, _TRUNCATE, L"%s\\bcdboot.exe", generator) >= 0;
    if (hostFits)
        LogW(L"%S ==> %s", "ZN_GenerateBootFiles", host);
    else
        RefuseTooLong("ZN_GenerateBootFiles", "host bcdboot path", kPathChars - 1);

    wchar_t arguments[kPathChars] = {};
    FormatPathW(arguments, L"%c:\\windows /s %c: /f%s /addlast", windowsLetter, targetLetter,
                uefi ? L" UEFI" : L" BIOS");
    LogW(L"%S ==> %s", "ZN_GenerateBootFiles", arguments);

    DWORD result = hostFits ? ZN_RunProcess(host, arguments, TRUE) : ERROR_FILENAME_EXCED_RANGE;
    if (result != 0) {
        wchar_t system[kPathChars] = {};
        ::GetSystemDirectoryW(system, kPathChars);
        FormatPathW(generator, L"%s\\bcdboot.exe", system);
        LogW(L"%S ==> %s", "ZN_GenerateBootFiles", generator);
        result = ZN_RunProcess(generator, arguments, TRUE);
    }
    return result;
}
