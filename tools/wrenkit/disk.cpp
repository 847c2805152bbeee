// Commands for partitions, volumes and drives: diskpart letters, volume numbers and
// disks, shrink sizes, and where a path or a letter lives. The predicates exit with
// their answer (1 true, 0 false), the other commands with the export's result.
#include <stdio.h>
#include <stdlib.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

// "0", "12": a disk or partition number; anything else is none.
bool ParseNumber(const wchar_t* text, DWORD& value) {
    if (!text || !*text) return false;
    wchar_t* end = nullptr;
    const unsigned long v = wcstoul(text, &end, 10);
    if (*end || text[0] == L'-') return false;
    value = static_cast<DWORD>(v);
    return true;
}

int Mount(const Args& a, bool remove, const wchar_t* name) {
    DWORD disk = 0, partition = 0;
    WCHAR letter = 0;
    const wchar_t* given = a.option(L"--letter");
    if (!ParseNumber(a.at(0), disk) || !ParseNumber(a.at(1), partition)) return Usage(name);
    if ((given || remove) && !ParseLetter(given, letter)) return Usage(name);
    const DWORD code = ZN_MountPartition(disk, partition, &letter, remove);
    if (code == 0 && !remove) wprintf(L"letter %lc:\n", letter);
    return Result(code);
}
int MountCommand(const Args& a) { return Mount(a, false, L"disk mount"); }
int UnmountCommand(const Args& a) { return Mount(a, true, L"disk unmount"); }

int VolumeNumber(const Args& a) {
    DWORD disk = 0, partition = 0, volume = 0;
    if (!ParseNumber(a.at(0), disk) || !ParseNumber(a.at(1), partition)) return Usage(L"disk volume");
    const DWORD code = ZN_GetVolumeNum(disk, partition, &volume);
    if (code == 0) wprintf(L"\\\\.\\HarddiskVolume%lu\n", volume);
    return Result(code);
}

int VolumeDisk(const Args& a) {
    WCHAR letter = 0;
    if (!ParseLetter(a.at(0), letter)) return Usage(L"volume disk");
    DWORD disk = 0xFFFFFFFF;
    const DWORD code = ZN_GetVolumeDisk(letter, &disk);
    // A failed extent query answers 0 without a disk.
    if (code == 0 && disk != 0xFFFFFFFF) wprintf(L"disk %lu\n", disk);
    return Result(code);
}

int MinSize(const Args& a) {
    WCHAR letter = 0;
    if (!ParseLetter(a.at(0), letter)) return Usage(L"volume minsize");
    ULONGLONG bytes = 0;
    const DWORD code = ZN_GetVolumeMinSize(letter, a.flag(L"--exact"), &bytes);
    if (code == 0) wprintf(L"%llu bytes\n", bytes);
    return Result(code);
}

int FsType(const Args& a) {
    if (!a.at(0)) return Usage(L"drive fstype");
    wchar_t name[MAX_PATH] = {};
    const BOOL ok = ZN_GetFSType(a.at(0), name);
    wprintf(L"%ls\n", ok ? name : L"failed");
    return ok;
}

int Usb(const Args& a) {
    WCHAR letter = 0;
    if (!ParseLetter(a.at(0), letter)) return Usage(L"drive usb");
    const BOOL usb = ZN_IsUsbPartition(letter);
    wprintf(L"%ls\n", usb ? L"usb or removable" : L"not usb");
    return usb;
}

int PathType(const Args& a) {
    if (!a.at(0)) return Usage(L"drive pathtype");
    const int type = ZN_GetPathType(a.at(0));
    static const wchar_t* const kNames[] = {L"invalid", L"local", L"unc", L"optical", L"usb"};
    wprintf(L"%d %ls\n", type, type >= -1 && type <= 3 ? kNames[type + 1] : L"?");
    return type;
}

int Remote(const Args& a) {
    WCHAR letter = 0;
    if (!ParseLetter(a.at(0), letter)) return Usage(L"drive remote");
    wchar_t share[MAX_PATH] = {};
    const BOOL remote = ZN_IsRemoteDrive(letter, share);
    wprintf(L"%ls\n", remote ? share : L"not a network drive");
    return remote;
}

const CommandTable kTable{
    {L"disk mount", L"DISK PARTITION [--letter L]",
     L"give a partition a letter through diskpart (the first free one without --letter)", MountCommand},
    {L"disk unmount", L"DISK PARTITION --letter L", L"take a partition's letter away through diskpart",
     UnmountCommand},
    {L"disk volume", L"DISK PARTITION", L"the \\\\.\\HarddiskVolumeN that lies on a partition", VolumeNumber},
    {L"volume disk", L"L", L"the physical disk that holds a volume's first extent", VolumeDisk},
    {L"volume minsize", L"L [--exact]", L"the size a volume could shrink to (--exact: from its NTFS bitmap)",
     MinSize},
    {L"drive fstype", L"PATH", L"the file system of the volume that holds a path or share", FsType},
    {L"drive usb", L"L", L"whether a drive is removable or on USB", Usb},
    {L"drive pathtype", L"PATH", L"-1 invalid, 0 local, 1 UNC, 2 optical, 3 USB", PathType},
    {L"drive remote", L"L", L"whether a letter is a mapped network drive, and its share", Remote},
};

}  // namespace
