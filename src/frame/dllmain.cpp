#include <windows.h>

#include "frame/log.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    switch (reason) {
    case DLL_PROCESS_ATTACH:
        wrenkits::OpenLogBesideHost();
        break;
    case DLL_PROCESS_DETACH:
        wrenkits::CloseLog();
        break;
    default:
        break;
    }
    return TRUE;
}
