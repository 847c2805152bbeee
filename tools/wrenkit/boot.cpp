// Commands for boot configuration.
#include <stdio.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

// "-" stands for "no letter".
bool LetterOrNone(const Args& a, const wchar_t* name, WCHAR& letter) {
    letter = 0;
    return Is(a.option(name), L"-") || a.letterOption(name, letter);
}

int Repair(const Args& a) {
    WCHAR boot = 0, system = 0;
    if (!LetterOrNone(a, L"--boot", boot) || !a.letterOption(L"--system", system)) return a.usage();
    return Result(ZN_RepairBcdEntry(boot, system, a.flag(L"--uefi") ? 1 : 0));
}

int BootFiles(const Args& a) {
    WCHAR windows = 0, target = 0;
    if (!a.letterOption(L"--windows", windows) || !a.letterOption(L"--target", target)) return a.usage();
    return Result(ZN_GenerateBootFiles(windows, target, a.flag(L"--uefi") ? 1 : 0));
}

int EfiSet(const Args& a) {
    DWORD volume = 0;
    if (!a.number(0, volume)) return a.usage();
    return Result(ZN_SetEfiEntry(volume, a.flag(L"--copy") ? 1 : 0));
}

int EfiAdd(const Args& a) {
    DWORD volume = 0;
    if (!a.number(0, volume)) return a.usage();
    wchar_t id[MAX_PATH] = {};
    const DWORD code = ZN_AddEfiEntry(volume, 0, id);
    if (code == 0) wprintf(L"new entry %ls\n", id[0] ? id : L"(none reported)");
    return Result(code);
}

int Remove(const Args& a) { return Result(ZN_RemoveBcdEntry(a.at(0))); }

const CommandTable kTable{
    {L"bcd repair", L"--boot D|- --system D [--uefi]",
     L"repoint a restored system's boot store at its partitions (- : the boot partition has no letter)", Repair},
    {L"bcd bootfiles", L"--windows D --target D [--uefi]", L"generate boot files for a Windows partition", BootFiles},
    {L"bcd efi-set", L"VOLUME [--copy]", L"point the firmware boot manager at \\Device\\HarddiskVolumeN", EfiSet},
    {L"bcd efi-add", L"VOLUME", L"copy the boot manager entry onto a volume, print its identifier", EfiAdd},
    {L"bcd remove", L"{ID}", L"delete a boot entry", Remove},
};

}  // namespace
