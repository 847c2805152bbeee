#include <wchar.h>

#include "Wrenkits.h"
#include "frame/unique_any.h"
#include "sysinfo/sysinfo.h"

using namespace wrenkits;

namespace wrenkits {

bool IsPeCommandLine(const wchar_t* cmdLine) {
    // The PE shell is started bare; Pecmd-built environments start their shell
    // with a script argument, so only its name is compared.
    return _wcsicmp(cmdLine, L"winpeshl.exe") == 0 || _wcsnicmp(cmdLine, L"Pecmd.exe", 9) == 0;
}

}  // namespace wrenkits

extern "C" BOOL WINAPI ZN_IsUnderPE() {
    unique_hkey setup;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\SETUP", 0, KEY_READ, setup.put()) != ERROR_SUCCESS) return FALSE;
    // One spare character keeps a value that fills the whole buffer terminated.
    wchar_t cmdLine[MAX_PATH + 1] = {};
    DWORD bytes = MAX_PATH * sizeof(wchar_t);
    if (::RegQueryValueExW(setup.get(), L"CmdLine", nullptr, nullptr, reinterpret_cast<BYTE*>(cmdLine), &bytes) !=
        ERROR_SUCCESS)
        return FALSE;
    return IsPeCommandLine(cmdLine) ? TRUE : FALSE;
}
