// Commands for processes, the user's session and shutting down.
#include <stdio.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

int Find(const Args& a) {
    DWORD pid = 0;
    const BOOL found = ZN_ProcessExist(a.at(0), &pid);
    if (found) wprintf(L"pid %lu\n", pid);
    return Result(found);
}

int Stop(const Args& a) {
    return Result(ZN_StopProcess(a.at(0)));
}

int Show(const Args& a) {
    DWORD pid = 0;
    if (!a.number(0, pid)) return a.usage();
    return Result(ZN_ShowProcessWind(pid));
}

int PopWindow(const Args& a) {
    return Result(ZN_PopWindow(a.at(0), a.flag(L"--admin"), !a.flag(L"--nowait")));
}

// Ending the session is never done by a slip of the keyboard: the switch must be given.
int ShutDown(const Args& a) {
    DWORD value = 0;
    if (!ParseNumber(a.option(L"--flags"), value, 0) || value > 0xFFFF) {
        fwprintf(stderr, L"wrenkit: --flags \"%ls\" is not a number up to 0xFFFF\n", a.option(L"--flags"));
        return a.usage();
    }
    return Result(ZN_ShutDown(static_cast<WORD>(value)));
}

const CommandTable kTable{
    {L"proc find", L"NAME", L"find a process whose executable name starts with NAME and print its pid", Find},
    {L"proc stop", L"NAME", L"terminate the first process whose executable name starts with NAME", Stop},
    {L"proc show", L"PID", L"show the first top-level window of a process", Show},
    {L"popwindow", L"\"COMMAND LINE\" [--admin] [--nowait]",
     L"start a program on the user's desktop (the command line must name its folder)", PopWindow},
    {L"shutdown", L"--flags N --really",
     L"shut the machine down with ExitWindowsEx flags N (forced); --really is required", ShutDown},
};

}  // namespace
