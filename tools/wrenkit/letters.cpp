// Commands for drive letters of an offline system, disk identities and BitLocker.
#include <stdio.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

int Map(const Args& a) {
    WCHAR drive = 0;
    if (!a.letter(0, drive)) return a.usage();
    CHAR map[26] = {};
    const DWORD code = ZN_GetDoscharMapA(static_cast<CHAR>(drive), map);
    for (int i = 0; i < 26; ++i)
        if (map[i]) wprintf(L"%c: is %c: on the offline system\n", L'A' + i, static_cast<wchar_t>(map[i]));
    return Result(code);
}

// With no pairs every letter keeps its own; "DE" gives the running system's D: the letter E:.
int Repair(const Args& a) {
    WCHAR drive = 0;
    if (!a.letter(0, drive)) return a.usage();
    WCHAR wide[26] = {};
    bool any = false;
    for (int i = 1; i < a.count(); ++i) {
        const wchar_t* pair = a.at(i);
        const wchar_t from[2] = {pair[0], 0};
        WCHAR source = 0, target = 0;
        if (wcslen(pair) != 2 || !ParseLetter(from, source) || !ParseLetter(pair + 1, target)) {
            fwprintf(stderr, L"wrenkit: \"%ls\" is not a pair of drive letters\n", pair);
            return a.usage();
        }
        wide[source - L'A'] = target;
        any = true;
    }
    if (!any)
        for (int i = 0; i < 26; ++i) wide[i] = static_cast<WCHAR>(L'A' + i);
    if (!a.flag(L"--narrow")) return Result(ZN_RepairDosDevice(drive, wide));
    CHAR map[26];
    for (int i = 0; i < 26; ++i) map[i] = static_cast<CHAR>(wide[i]);
    return Result(ZN_RepairDosDeviceA(static_cast<CHAR>(drive), map));
}

int Clear(const Args& a) {
    WCHAR drive = 0, letter = 0;
    if (!a.letter(0, drive)) return a.usage();
    DWORD mask = 0;
    for (int i = 1; i < a.count(); ++i) {
        if (!a.letter(i, letter)) return a.usage();
        mask |= 1u << (letter - L'A');
    }
    return Result(ZN_ClearDosDevice(drive, mask));
}

int CopyId(const Args& a) {
    DWORD source = 0, destination = 0;
    if (!a.number(0, source) || !a.number(1, destination)) return a.usage();
    return Result(ZN_CopyDiskGuid(source, destination));
}

int BitLocker(const Args&) {
    DWORD mask = 0;
    const HRESULT code = ZN_GetBitLockerVolumes(&mask);
    for (int i = 0; i < 26; ++i)
        if (mask & (1u << i)) wprintf(L"%c: is protected\n", L'A' + i);
    if (FAILED(code)) wprintf(L"error 0x%08lx\n", static_cast<unsigned long>(code));
    return Result(static_cast<DWORD>(code));
}

const CommandTable kTable{
    {L"letters map", L"D",
     L"show, per running-system letter, the letter the offline system on D: gives that volume", Map},
    {L"letters repair", L"D [XY ...] [--narrow]",
     L"give the offline system on D: the running system's letters, X re-lettered as Y (none: all kept)", Repair},
    {L"letters clear", L"D LETTER [LETTER ...]", L"delete letters from the offline system on D:", Clear},
    {L"disk copy-id", L"SOURCE DESTINATION", L"copy disk and partition identities from one disk number to another",
     CopyId},
    {L"bitlocker", L"", L"list the letters of BitLocker-protected or locked volumes", BitLocker},
};

}  // namespace
