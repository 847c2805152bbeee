// Commands for folder trees, startup programs and the post-restore repair.
#include <stdio.h>
#include <wchar.h>

#include <string>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

int Repair(const Args& a) {
    WCHAR letter = 0;
    const wchar_t* version = a.option(L"--version");
    const wchar_t* dot = wcschr(version, L'.');
    std::wstring major(version, dot ? dot - version : 0);
    DWORD majorNumber = 0, minorNumber = 0;
    if (!a.letter(0, letter)) return a.usage();
    if (!dot || !ParseNumber(major.c_str(), majorNumber) || !ParseNumber(dot + 1, minorNumber)) {
        fwprintf(stderr, L"wrenkit: --version \"%ls\" is not MAJOR.MINOR\n", version);
        return a.usage();
    }
    return Result(ZN_RepairFileRegistry(letter, majorNumber, minorNumber));
}

int StartupAdd(const Args& a) {
    WCHAR letter = 0;
    if (!a.letter(0, letter)) return a.usage();
    return Result(ZN_AddStartupProcess(letter, a.at(1), a.at(2), a.option(L"--args")));
}

int StartupRemove(const Args& a) {
    WCHAR letter = 0;
    if (!a.letter(0, letter)) return a.usage();
    return Result(ZN_RemoveStartupProcess(letter, a.at(1)));
}

int PathCreate(const Args& a) {
    return Result(a.flag(L"--file") ? ZN_CreateFilePath(a.at(0)) : ZN_CreatePath(a.at(0)));
}

int PathRemove(const Args& a) { return Result(ZN_RemoveDirectory(a.at(0))); }

int PathEmpty(const Args& a) {
    const BOOL empty = ZN_IsEmptyFolder(a.at(0));
    wprintf(L"%ls\n", empty ? L"empty" : L"not empty");
    return empty ? 0 : 1;
}

int FolderCopy(const Args& a) {
    return Result(ZN_CopyFolderEx(a.at(0), a.at(1), a.flag(L"--keep") ? TRUE : FALSE));
}

int ActiveX(const Args& a) {
    return Result(ZN_RegActiveX(a.at(0), a.flag(L"--recurse") ? 1 : 0, a.flag(L"--unregister") ? 1 : 0));
}

const CommandTable kTable{
    {L"repair offline", L"D --version MAJOR.MINOR",
     L"repair a restored installation on drive D: before its first start", Repair},
    {L"startup add", L"D NAME PROGRAM [--args TEXT]",
     L"start PROGRAM at every logon of the installation on D: (TEXT follows the quoted path as given)", StartupAdd},
    {L"startup remove", L"D NAME", L"stop starting NAME at logon on the installation on D:", StartupRemove},
    {L"path create", L"PATH [--file]", L"create a folder with its parents (--file: the folder holding PATH)",
     PathCreate},
    {L"path remove", L"PATH", L"delete a folder tree whatever its attributes, without entering junctions", PathRemove},
    {L"path empty", L"FOLDER\\", L"say whether a folder holds nothing but junctions (exit code 0 = empty)", PathEmpty},
    {L"folder copy", L"SOURCE TARGET [--keep]", L"copy a folder tree (--keep: existing target files stay)",
     FolderCopy},
    {L"activex", L"FOLDER [--recurse] [--unregister]", L"register every .ocx in a folder with regsvr32", ActiveX},
};

}  // namespace
