#include "support/import_hook.h"

#include <gtest/gtest.h>

#include <string.h>

namespace wrtest {

void* PatchImport(HMODULE module, const char* dll, const char* function, void* replacement) {
    auto* base = reinterpret_cast<BYTE*>(module);
    if (!base || !replacement) return nullptr;
    auto* nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const auto& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (!dir.VirtualAddress) return nullptr;
    for (auto* imp = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + dir.VirtualAddress); imp->Name; ++imp) {
        // mingw names them "KERNEL32.dll", "ADVAPI32.dll": compare without case.
        if (_stricmp(reinterpret_cast<char*>(base + imp->Name), dll) != 0) continue;
        auto* iat = reinterpret_cast<IMAGE_THUNK_DATA*>(base + imp->FirstThunk);
        const DWORD names = imp->OriginalFirstThunk ? imp->OriginalFirstThunk : imp->FirstThunk;
        auto* ilt = reinterpret_cast<IMAGE_THUNK_DATA*>(base + names);
        for (; ilt->u1.AddressOfData; ++ilt, ++iat) {
            if (IMAGE_SNAP_BY_ORDINAL(ilt->u1.Ordinal) ||
                strcmp(reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + ilt->u1.AddressOfData)->Name, function) != 0)
                continue;
            DWORD old = 0;
            if (!VirtualProtect(&iat->u1.Function, sizeof(void*), PAGE_READWRITE, &old)) return nullptr;
            void* previous = reinterpret_cast<void*>(iat->u1.Function);
            iat->u1.Function = reinterpret_cast<ULONG_PTR>(replacement);
            VirtualProtect(&iat->u1.Function, sizeof(void*), old, &old);
            return previous;
        }
    }
    return nullptr;
}

ImportHook::ImportHook(const char* dll, const char* function, void* replacement, const wchar_t* module)
    : module_(GetModuleHandleW(module)), dll_(dll), function_(function),
      original_(PatchImport(module_, dll, function, replacement)) {
    // A hook that patches nothing would let the real platform call run unnoticed.
    if (!original_) ADD_FAILURE() << "import hook: the module does not import " << dll << "!" << function;
}

}  // namespace wrtest
