// Internals of the process subsystem.
#pragma once

#include <windows.h>

// What ZN_ShowProcessWind looks for: the first top-level window of one process.
struct WindowSearch {
    HWND found;
    DWORD processId;
};

// EnumWindows callback over a WindowSearch: stops at the first window of the process.
BOOL CALLBACK FindProcessWindow(HWND window, LPARAM search);
