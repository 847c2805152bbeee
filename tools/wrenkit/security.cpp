// Commands for privileges.
#include <stdio.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

bool OnOff(const wchar_t* word, BOOL& value) {
    if (Is(word, L"on")) value = TRUE;
    else if (Is(word, L"off")) value = FALSE;
    else return false;
    return true;
}

int Done(BOOL ok) {
    wprintf(L"%ls\n", ok ? L"done" : L"failed");
    return ok;
}

int Backup(const Args& a) {
    BOOL on = FALSE;
    if (!OnOff(a.at(0), on)) return a.usage();
    return Done(on ? ZN_EnableBackupRestorePrivilege() : ZN_DisableBackupRestorePrivilege());
}

int Set(const Args& a) {
    BOOL on = FALSE;
    if (!OnOff(a.at(1), on)) return a.usage();
    return Done(ZN_SetPrivilegeW(a.at(0), on));
}

const CommandTable kTable{
    {L"priv backup", L"on|off", L"switch the backup and restore privileges (exit code 1 = done)", Backup},
    {L"priv set", L"NAME on|off", L"switch one privilege, e.g. SeDebugPrivilege (exit code 1 = done)", Set},
};

}  // namespace
