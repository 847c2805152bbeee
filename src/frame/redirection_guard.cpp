#include "frame/process.h"

namespace wrenkits {

namespace {
using IsWow64ProcessFn = BOOL(WINAPI*)(HANDLE, PBOOL);
using DisableFn = BOOL(WINAPI*)(PVOID*);
using RevertFn = BOOL(WINAPI*)(PVOID);
}  // namespace

// Looked up at run time so that a 32-bit build of the same sources runs on systems
// that lack the WOW64 entry points; in the 64-bit build the guard never switches.
RedirectionGuard::RedirectionGuard(Variant variant) {
    BOOL wow64 = FALSE;
    if (auto isWow64 = reinterpret_cast<IsWow64ProcessFn>(
            reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA("kernel32"), "IsWow64Process"))))
        isWow64(::GetCurrentProcess(), &wow64);
    if (!wow64) return;

    auto disable = reinterpret_cast<DisableFn>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleA("kernel32.dll"), "Wow64DisableWow64FsRedirection")));
    if (disable && disable(&oldValue_))
        switched_ = true;
    else
        switched_ = variant == Variant::CountSilentFailure && ::GetLastError() == 0;
}

void RedirectionGuard::End() {
    if (!switched_) return;
    switched_ = false;
    if (auto revert = reinterpret_cast<RevertFn>(reinterpret_cast<void*>(
            ::GetProcAddress(::GetModuleHandleA("kernel32.dll"), "Wow64RevertWow64FsRedirection"))))
        revert(oldValue_);
}

}  // namespace wrenkits
