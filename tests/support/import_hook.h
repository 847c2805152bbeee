// Replaces one import of a loaded module (Wrenkits.dll) with a test fake for the
// lifetime of the hook, for calls Wine cannot serve or that a test must steer.
#pragma once

#include <windows.h>

namespace wrtest {

// Swaps the import `function` of `dll` in `module`'s import table; returns the
// previous entry, or nullptr when the module does not import it.
void* PatchImport(HMODULE module, const char* dll, const char* function, void* replacement);

class ImportHook {
public:
    ImportHook(const char* dll, const char* function, void* replacement, const wchar_t* module = L"Wrenkits.dll");
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;
    ~ImportHook() { PatchImport(module_, dll_, function_, original_); }
    bool active() const { return original_ != nullptr; }
    // The real function, for fakes that pass through.
    template <typename Fn>
    Fn original() const {
        return reinterpret_cast<Fn>(original_);
    }

private:
    HMODULE module_;
    const char *dll_, *function_;
    void* original_;
};

}  // namespace wrtest
