#include "Wrenkits.h"

namespace {

using IsWow64ProcessFn = BOOL(WINAPI*)(HANDLE, PBOOL);
using DisableFn = BOOL(WINAPI*)(PVOID*);
using RevertFn = BOOL(WINAPI*)(PVOID);

// Looked up at run time: older systems lack the WOW64 entry points.
template <typename Fn>
Fn KernelFunction(const char* module, const char* name) {
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA(module), name)));
}

}  // namespace

// The library is built only for 64-bit processors, so there is nothing to ask.
extern "C" BOOL WINAPI ZN_IsX64Cpu(void) { return TRUE; }

extern "C" BOOL WINAPI ZN_IsWow64(void) {
    BOOL wow64 = FALSE;
    if (auto isWow64 = KernelFunction<IsWow64ProcessFn>("kernel32", "IsWow64Process"))
        isWow64(::GetCurrentProcess(), &wow64);
    return wow64;
}

extern "C" DWORD WINAPI ZN_EnableWow64Redirection(BOOL enable, PVOID* savedValue) {
    if (!savedValue) return ERROR_INVALID_PARAMETER;
    BOOL switched = FALSE;
    if (enable) {
        auto revert = KernelFunction<RevertFn>("kernel32.dll", "Wow64RevertWow64FsRedirection");
        if (!revert) return ::GetLastError();
        switched = revert(*savedValue);
    } else {
        auto disable = KernelFunction<DisableFn>("kernel32.dll", "Wow64DisableWow64FsRedirection");
        if (!disable) return ::GetLastError();
        switched = disable(savedValue);
    }
    return switched ? 0 : ::GetLastError();
}
