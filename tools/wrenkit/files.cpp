// Commands for folder trees, startup programs and the post-restore repair.
#include <stdio.h>
#include <stdlib.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

int Repair(const Args& a) {
    WCHAR letter = 0;
    const wchar_t* version = a.option(L"--version");
    wchar_t* dot = nullptr;
    const unsigned long major = version ? wcstoul(version, &dot, 10) : 0;
    if (!ParseLetter(a.at(0), letter) || !version || *dot != L'.') return Usage(L"repair offline");
    return Result(ZN_RepairFileRegistry(letter, major, wcstoul(dot + 1, nullptr, 10)));
}

int StartupAdd(const Args& a) {
    WCHAR letter = 0;
    if (!ParseLetter(a.at(0), letter) || !a.at(2)) return Usage(L"startup add");
    return Result(ZN_AddStartupProcess(letter, a.at(1), a.at(2), a.option(L"--args")));
}

int StartupRemove(const Args& a) {
    WCHAR letter = 0;
    if (!ParseLetter(a.at(0), letter) || !a.at(1)) return Usage(L"startup remove");
    return Result(ZN_RemoveStartupProcess(letter, a.at(1)));
}

int PathCreate(const Args& a) {
    if (!a.at(0)) return Usage(L"path create");
    return Result(a.flag(L"--file") ? ZN_CreateFilePath(a.at(0)) : ZN_CreatePath(a.at(0)));
}

int PathRemove(const Args& a) {
    if (!a.at(0)) return Usage(L"path remove");
    return Result(ZN_RemoveDirectory(a.at(0)));
}

int PathEmpty(const Args& a) {
    if (!a.at(0)) return Usage(L"path empty");
    const BOOL empty = ZN_IsEmptyFolder(a.at(0));
    wprintf(L"%ls\n", empty ? L"empty" : L"not empty");
    return empty ? 0 : 1;
}

int FolderCopy(const Args& a) {
    if (!a.at(1)) return Usage(L"folder copy");
    return Result(ZN_CopyFolderEx(a.at(0), a.at(1), a.flag(L"--keep") ? TRUE : FALSE));
}

int ActiveX(const Args& a) {
    if (!a.at(0)) return Usage(L"activex");
    return Result(ZN_RegActiveX(a.at(0), a.flag(L"--recurse") ? 1 : 0, a.flag(L"--unregister") ? 1 : 0));
}

const CommandTable kTable{
    {L"repair offline", L"L --version MAJOR.MINOR",
     L"repair a restored installation on drive L before its first start", Repair},
    {L"startup add", L"L NAME PROGRAM [--args TEXT]",
     L"start PROGRAM at every logon of the installation on L (TEXT follows the quoted path as given)", StartupAdd},
    {L"startup remove", L"L NAME", L"stop starting NAME at logon on the installation on L", StartupRemove},
    {L"path create", L"PATH [--file]", L"create a folder with its parents (--file: the folder holding PATH)",
     PathCreate},
    {L"path remove", L"PATH", L"delete a folder tree whatever its attributes, without entering junctions", PathRemove},
    {L"path empty", L"FOLDER\\", L"say whether a folder holds nothing but junctions", PathEmpty},
    {L"folder copy", L"SOURCE TARGET [--keep]", L"copy a folder tree (--keep: existing target files stay)",
     FolderCopy},
    {L"activex", L"FOLDER [--recurse] [--unregister]", L"register every .ocx in a folder with regsvr32", ActiveX},
};

}  // namespace
