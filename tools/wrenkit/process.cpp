// Commands for processes, the user's session and shutting down.
#include <stdio.h>
#include <stdlib.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

int Find(const Args& a) {
    if (!a.at(0)) return Usage(L"proc find");
    DWORD pid = 0;
    const BOOL found = ZN_ProcessExist(a.at(0), &pid);
    if (found) wprintf(L"pid %lu\n", pid);
    return Result(found);
}

int Stop(const Args& a) {
    if (!a.at(0)) return Usage(L"proc stop");
    return Result(ZN_StopProcess(a.at(0)));
}

int Show(const Args& a) {
    wchar_t* end = nullptr;
    const unsigned long pid = a.at(0) ? wcstoul(a.at(0), &end, 10) : 0;
    if (!a.at(0) || *end) return Usage(L"proc show");
    return Result(ZN_ShowProcessWind(pid));
}

int PopWindow(const Args& a) {
    if (!a.at(0)) return Usage(L"popwindow");
    return Result(ZN_PopWindow(a.at(0), a.flag(L"--admin"), !a.flag(L"--nowait")));
}

// Ending the session is never done by a slip of the keyboard: the switch must be given.
int ShutDown(const Args& a) {
    const wchar_t* flags = a.option(L"--flags");
    wchar_t* end = nullptr;
    const unsigned long value = flags ? wcstoul(flags, &end, 0) : 0;
    if (!flags || *end || value > 0xFFFF || !a.flag(L"--really")) return Usage(L"shutdown");
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
