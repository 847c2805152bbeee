// Commands for partitions, volumes and drives: diskpart letters, volume numbers and
// disks, shrink sizes, and where a path or a letter lives. The predicates exit with
// their answer (1 true, 0 false), the other commands with the export's result.
#include <stdio.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

int Mount(const Args& a, bool remove) {
    DWORD disk = 0, partition = 0;
    WCHAR letter = 0;
    if (!a.number(0, disk) || !a.number(1, partition)) return a.usage();
    if ((remove || a.option(L"--letter")) && !a.letterOption(L"--letter", letter)) return a.usage();
    const DWORD code = ZN_MountPartition(disk, partition, &letter, remove);
    if (code == 0 && !remove) wprintf(L"letter %lc:\n", letter);
    return Result(code);
}
int MountCommand(const Args& a) { return Mount(a, false); }
int UnmountCommand(const Args& a) { return Mount(a, true); }

int VolumeNumber(const Args& a) {
    DWORD disk = 0, partition = 0, volume = 0;
    if (!a.number(0, disk) || !a.number(1, partition)) return a.usage();
    const DWORD code = ZN_GetVolumeNum(disk, partition, &volume);
    if (code == 0) wprintf(L"\\\\.\\HarddiskVolume%lu\n", volume);
    return Result(code);
}

int VolumeDisk(const Args& a) {
    WCHAR letter = 0;
    if (!a.letter(0, letter)) return a.usage();
    DWORD disk = 0xFFFFFFFF;
    const DWORD code = ZN_GetVolumeDisk(letter, &disk);
    // A failed extent query answers 0 without a disk.
    if (code == 0 && disk != 0xFFFFFFFF) wprintf(L"disk %lu\n", disk);
    return Result(code);
}

int MinSize(const Args& a) {
    WCHAR letter = 0;
    if (!a.letter(0, letter)) return a.usage();
    ULONGLONG bytes = 0;
    const DWORD code = ZN_GetVolumeMinSize(letter, a.flag(L"--exact"), &bytes);
    if (code == 0) wprintf(L"%llu bytes\n", bytes);
    return Result(code);
}

int FsType(const Args& a) {
    wchar_t name[MAX_PATH] = {};
    const BOOL ok = ZN_GetFSType(a.at(0), name);
    wprintf(L"%ls\n", ok ? name : L"failed");
    return ok;
}

int Usb(const Args& a) {
    WCHAR letter = 0;
    if (!a.letter(0, letter)) return a.usage();
    const BOOL usb = ZN_IsUsbPartition(letter);
    wprintf(L"%ls\n", usb ? L"usb or removable" : L"not usb");
    return usb;
}

int PathType(const Args& a) {
    const int type = ZN_GetPathType(a.at(0));
    static const wchar_t* const kNames[] = {L"invalid", L"local", L"unc", L"optical", L"usb"};
    wprintf(L"%d %ls\n", type, type >= -1 && type <= 3 ? kNames[type + 1] : L"?");
    return type;
}

int Remote(const Args& a) {
    WCHAR letter = 0;
    if (!a.letter(0, letter)) return a.usage();
    wchar_t share[MAX_PATH] = {};
    const BOOL remote = ZN_IsRemoteDrive(letter, share);
    wprintf(L"%ls\n", remote ? share : L"not a network drive");
    return remote;
}

const CommandTable kTable{
    {L"disk mount", L"DISK PARTITION [--letter D]",
     L"give a partition a letter through diskpart (the first free one without --letter)", MountCommand},
    {L"disk unmount", L"DISK PARTITION --letter D", L"take a partition's letter away through diskpart",
     UnmountCommand},
    {L"disk volume", L"DISK PARTITION", L"the \\\\.\\HarddiskVolumeN that lies on a partition", VolumeNumber},
    {L"volume disk", L"D", L"the physical disk that holds a volume's first extent", VolumeDisk},
    {L"volume minsize", L"D [--exact]", L"the size a volume could shrink to (--exact: from its NTFS bitmap)",
     MinSize},
    {L"drive fstype", L"PATH", L"the file system of the volume that holds a path or share", FsType},
    {L"drive usb", L"D", L"whether a drive is removable or on USB (exit code 1 = yes)", Usb},
    {L"drive pathtype", L"PATH", L"-1 invalid, 0 local, 1 UNC, 2 optical, 3 USB (the exit code too)", PathType},
    {L"drive remote", L"D", L"whether a letter is a mapped network drive, and its share (exit code 1 = yes)", Remote},
};

}  // namespace
