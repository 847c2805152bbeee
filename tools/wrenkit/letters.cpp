// Commands for drive letters of an offline system, disk identities and BitLocker.
#include <stdio.h>
#include <wchar.h>
#include <wctype.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

bool ParseNumber(const wchar_t* text, DWORD& number) {
    if (!text || !*text) return false;
    wchar_t* end = nullptr;
    number = wcstoul(text, &end, 10);
    return *end == 0 && iswdigit(text[0]);
}

int Map(const Args& a) {
    WCHAR drive = 0;
    if (!ParseLetter(a.at(0), drive) || a.at(1)) return Usage(L"letters map");
    CHAR map[26] = {};
    const DWORD code = ZN_GetDoscharMapA(static_cast<CHAR>(drive), map);
    for (int i = 0; i < 26; ++i)
        if (map[i]) wprintf(L"%c: is %c: on the offline system\n", L'A' + i, static_cast<wchar_t>(map[i]));
    return Result(code);
}

// With no pairs every letter keeps its own; "DE" gives the running system's D: the letter E:.
int Repair(const Args& a) {
    WCHAR drive = 0;
    if (!ParseLetter(a.at(0), drive)) return Usage(L"letters repair");
    const bool narrow = a.flag(L"--narrow");
    WCHAR wide[26] = {};
    for (int i = 1; i < a.count; ++i) {
        const wchar_t* pair = a.at(i);
        if (Is(pair, L"--narrow")) continue;
        if (wcslen(pair) != 2 || !iswalpha(pair[0]) || !iswalpha(pair[1]) || pair[0] > 0x7f || pair[1] > 0x7f)
            return Usage(L"letters repair");
        wide[towupper(pair[0]) - L'A'] = pair[1];
    }
    bool any = false;
    for (WCHAR c : wide) any = any || c;
    if (!any)
        for (int i = 0; i < 26; ++i) wide[i] = static_cast<WCHAR>(L'A' + i);
    if (!narrow) return Result(ZN_RepairDosDevice(drive, wide));
    CHAR map[26];
    for (int i = 0; i < 26; ++i) map[i] = static_cast<CHAR>(wide[i]);
    return Result(ZN_RepairDosDeviceA(static_cast<CHAR>(drive), map));
}

int Clear(const Args& a) {
    WCHAR drive = 0, letter = 0;
    if (!ParseLetter(a.at(0), drive) || !a.at(1)) return Usage(L"letters clear");
    DWORD mask = 0;
    for (int i = 1; i < a.count; ++i) {
        if (!ParseLetter(a.at(i), letter)) return Usage(L"letters clear");
        mask |= 1u << (letter - L'A');
    }
    return Result(ZN_ClearDosDevice(drive, mask));
}

int CopyId(const Args& a) {
    DWORD source = 0, destination = 0;
    if (!ParseNumber(a.at(0), source) || !ParseNumber(a.at(1), destination) || a.at(2)) return Usage(L"disk copy-id");
    return Result(ZN_CopyDiskGuid(source, destination));
}

int BitLocker(const Args& a) {
    if (a.at(0)) return Usage(L"bitlocker");
    DWORD mask = 0;
    const HRESULT code = ZN_GetBitLockerVolumes(&mask);
    for (int i = 0; i < 26; ++i)
        if (mask & (1u << i)) wprintf(L"%c: is protected\n", L'A' + i);
    if (FAILED(code)) wprintf(L"error 0x%08lx\n", static_cast<unsigned long>(code));
    return Result(static_cast<DWORD>(code));
}

const CommandTable kTable{
    {L"letters map", L"DRIVE",
     L"show, per running-system letter, the letter the offline system on DRIVE gives that volume", Map},
    {L"letters repair", L"DRIVE [XY ...] [--narrow]",
     L"give the offline system on DRIVE the running system's letters, X re-lettered as Y (none: all kept)", Repair},
    {L"letters clear", L"DRIVE LETTER [LETTER ...]", L"delete letters from the offline system on DRIVE", Clear},
    {L"disk copy-id", L"SOURCE DESTINATION", L"copy disk and partition identities from one disk number to another",
     CopyId},
    {L"bitlocker", L"", L"list the letters of BitLocker-protected or locked volumes", BitLocker},
};

}  // namespace
