// Commands for boot configuration.
#include <stdio.h>
#include <stdlib.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

// "-" (or a missing option) stands for "no letter".
bool LetterOption(const Args& a, const wchar_t* name, WCHAR& letter) {
    const wchar_t* text = a.option(name);
    letter = 0;
    return text && (Is(text, L"-") || ParseLetter(text, letter));
}

int Repair(const Args& a) {
    WCHAR boot = 0, system = 0;
    if (!LetterOption(a, L"--boot", boot) || !LetterOption(a, L"--system", system) || !system)
        return Usage(L"bcd repair");
    return Result(ZN_RepairBcdEntry(boot, system, a.flag(L"--uefi") ? 1 : 0));
}

int BootFiles(const Args& a) {
    WCHAR windows = 0, target = 0;
    if (!LetterOption(a, L"--windows", windows) || !LetterOption(a, L"--target", target) || !windows || !target)
        return Usage(L"bcd bootfiles");
    return Result(ZN_GenerateBootFiles(windows, target, a.flag(L"--uefi") ? 1 : 0));
}

int EfiSet(const Args& a) {
    if (!a.at(0)) return Usage(L"bcd efi-set");
    return Result(ZN_SetEfiEntry(wcstoul(a.at(0), nullptr, 10), a.flag(L"--copy") ? 1 : 0));
}

int EfiAdd(const Args& a) {
    if (!a.at(0)) return Usage(L"bcd efi-add");
    wchar_t id[MAX_PATH] = {};
    const DWORD code = ZN_AddEfiEntry(wcstoul(a.at(0), nullptr, 10), 0, id);
    if (code == 0) wprintf(L"new entry %ls\n", id[0] ? id : L"(none reported)");
    return Result(code);
}

int Remove(const Args& a) {
    if (!a.at(0)) return Usage(L"bcd remove");
    return Result(ZN_RemoveBcdEntry(a.at(0)));
}

const CommandTable kTable{
    {L"bcd repair", L"--boot L|- --system L [--uefi]",
     L"repoint a restored system's boot store at its partitions (- : the boot partition has no letter)", Repair},
    {L"bcd bootfiles", L"--windows L --target L [--uefi]", L"generate boot files for a Windows partition", BootFiles},
    {L"bcd efi-set", L"VOLUME [--copy]", L"point the firmware boot manager at \\Device\\HarddiskVolumeN", EfiSet},
    {L"bcd efi-add", L"VOLUME", L"copy the boot manager entry onto a volume, print its identifier", EfiAdd},
    {L"bcd remove", L"ID", L"delete a boot entry", Remove},
};

}  // namespace
