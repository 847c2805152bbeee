// Move-only owners for the library's OS resources. Each owner closes exactly once,
// and closing never disturbs the thread's last-error code: many log lines report
// GetLastError() after a failure, and a destructor that runs in between must not
// overwrite it.
#pragma once

#include <windows.h>
#include <oleauto.h>
#include <winnetwk.h>

#include <utility>

namespace wrenkits {

// Traits: `type`, `invalid()`, `close(type)`.
template <typename Traits>
class unique_any {
public:
    using type = typename Traits::type;

    unique_any() noexcept = default;
    explicit unique_any(type value) noexcept : value_(value) {}
    unique_any(const unique_any&) = delete;
    unique_any& operator=(const unique_any&) = delete;
    unique_any(unique_any&& other) noexcept : value_(other.release()) {}
    unique_any& operator=(unique_any&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    ~unique_any() { reset(); }

    type get() const noexcept { return value_; }
    bool valid() const noexcept { return !is_invalid(value_); }
    explicit operator bool() const noexcept { return valid(); }

    [[nodiscard]] type release() noexcept { return std::exchange(value_, Traits::invalid()); }

    void reset(type value = Traits::invalid()) noexcept {
        type old = std::exchange(value_, value);
        if (!is_invalid(old)) {
            const DWORD saved = ::GetLastError();
            Traits::close(old);
            ::SetLastError(saved);
        }
    }

    // For out-parameters: closes what is held and hands out the slot.
    type* put() noexcept {
        reset();
        return &value_;
    }
    type* addressof() noexcept { return &value_; }

private:
    static bool is_invalid(type v) noexcept {
        if constexpr (requires { Traits::is_invalid(v); }) {
            return Traits::is_invalid(v);
        } else {
            return v == Traits::invalid();
        }
    }
    type value_ = Traits::invalid();
};

namespace traits {
// Kernel handles: creating calls answer failure with NULL (CreateEvent, OpenProcess,
// CreateProcess's outputs) or INVALID_HANDLE_VALUE (CreateFile, snapshots). Both
// count as "no handle", so `if (!h)` is right whatever call filled it.
struct kernel_handle {
    using type = HANDLE;
    static type invalid() noexcept { return nullptr; }
    static bool is_invalid(type h) noexcept { return h == nullptr || h == INVALID_HANDLE_VALUE; }
    static void close(type h) noexcept { ::CloseHandle(h); }
};
struct reg_key {
    using type = HKEY;
    static type invalid() noexcept { return nullptr; }
    static void close(type h) noexcept { ::RegCloseKey(h); }
};
struct service_handle {
    using type = SC_HANDLE;
    static type invalid() noexcept { return nullptr; }
    static void close(type h) noexcept { ::CloseServiceHandle(h); }
};
struct find_handle {
    using type = HANDLE;
    static type invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void close(type h) noexcept { ::FindClose(h); }
};
struct find_volume_handle {
    using type = HANDLE;
    static type invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void close(type h) noexcept { ::FindVolumeClose(h); }
};
struct wnet_enum {
    using type = HANDLE;
    static type invalid() noexcept { return nullptr; }
    static void close(type h) noexcept { ::WNetCloseEnum(h); }
};
struct module_handle {
    using type = HMODULE;
    static type invalid() noexcept { return nullptr; }
    static void close(type h) noexcept { ::FreeLibrary(h); }
};
struct heap_block {
    using type = void*;
    static type invalid() noexcept { return nullptr; }
    static void close(type p) noexcept { ::HeapFree(::GetProcessHeap(), 0, p); }
};
struct local_block {
    using type = HLOCAL;
    static type invalid() noexcept { return nullptr; }
    static void close(type p) noexcept { ::LocalFree(p); }
};
struct global_block {
    using type = HGLOBAL;
    static type invalid() noexcept { return nullptr; }
    static void close(type p) noexcept { ::GlobalFree(p); }
};
struct bstr {
    using type = BSTR;
    static type invalid() noexcept { return nullptr; }
    static void close(type p) noexcept { ::SysFreeString(p); }
};
}  // namespace traits

using unique_handle = unique_any<traits::kernel_handle>;  // process, thread, token, event, file, snapshot
using unique_hkey = unique_any<traits::reg_key>;
using unique_schandle = unique_any<traits::service_handle>;
using unique_find = unique_any<traits::find_handle>;
using unique_find_volume = unique_any<traits::find_volume_handle>;
using unique_wnet_enum = unique_any<traits::wnet_enum>;
using unique_module = unique_any<traits::module_handle>;
using unique_heap = unique_any<traits::heap_block>;
using unique_local = unique_any<traits::local_block>;
using unique_global = unique_any<traits::global_block>;
using unique_bstr = unique_any<traits::bstr>;

// Both handles of a started process. CreateProcess fills `*put()`; the thread handle
// is rarely wanted, so `release_thread()` lets a caller close it at once.
class unique_process_information {
public:
    unique_process_information() noexcept = default;
    unique_process_information(const unique_process_information&) = delete;
    unique_process_information& operator=(const unique_process_information&) = delete;
    ~unique_process_information() { reset(); }

    PROCESS_INFORMATION* put() noexcept {
        reset();
        return &info_;
    }
    const PROCESS_INFORMATION& get() const noexcept { return info_; }
    HANDLE process() const noexcept { return info_.hProcess; }
    HANDLE thread() const noexcept { return info_.hThread; }
    DWORD process_id() const noexcept { return info_.dwProcessId; }
    void close_thread() noexcept { unique_handle(std::exchange(info_.hThread, nullptr)); }
    // Hands the process handle to another owner; the thread handle is closed.
    [[nodiscard]] unique_handle take_process() noexcept {
        close_thread();
        return unique_handle(std::exchange(info_.hProcess, nullptr));
    }
    void reset() noexcept {
        close_thread();
        unique_handle(std::exchange(info_.hProcess, nullptr));
        info_ = {};
    }

private:
    PROCESS_INFORMATION info_ = {};
};

// A COM interface pointer, released when it goes.
template <typename T>
class com_ptr {
public:
    com_ptr() noexcept = default;
    explicit com_ptr(T* p) noexcept : p_(p) {}
    com_ptr(const com_ptr&) = delete;
    com_ptr& operator=(const com_ptr&) = delete;
    com_ptr(com_ptr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    com_ptr& operator=(com_ptr&& other) noexcept {
        if (this != &other) {
            reset();
            p_ = std::exchange(other.p_, nullptr);
        }
        return *this;
    }
    ~com_ptr() { reset(); }
    T* get() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    T** put() noexcept {
        reset();
        return &p_;
    }
    void** put_void() noexcept { return reinterpret_cast<void**>(put()); }
    void reset() noexcept {
        if (T* old = std::exchange(p_, nullptr)) old->Release();
    }

private:
    T* p_ = nullptr;
};

// A VARIANT cleared when it goes.
class unique_variant {
public:
    unique_variant() noexcept { ::VariantInit(&v_); }
    unique_variant(const unique_variant&) = delete;
    unique_variant& operator=(const unique_variant&) = delete;
    ~unique_variant() { ::VariantClear(&v_); }
    VARIANT* put() noexcept {
        ::VariantClear(&v_);
        return &v_;
    }
    const VARIANT& get() const noexcept { return v_; }

private:
    VARIANT v_;
};

// Impersonation on the calling thread, reverted when the object goes (only if it began).
class scoped_impersonation {
public:
    explicit scoped_impersonation(HANDLE token) noexcept : active_(::ImpersonateLoggedOnUser(token) != FALSE) {}
    scoped_impersonation(const scoped_impersonation&) = delete;
    scoped_impersonation& operator=(const scoped_impersonation&) = delete;
    ~scoped_impersonation() { end(); }
    explicit operator bool() const noexcept { return active_; }
    void end() noexcept {
        if (std::exchange(active_, false)) {
            const DWORD saved = ::GetLastError();
            ::RevertToSelf();
            ::SetLastError(saved);
        }
    }

private:
    bool active_;
};

// Allocates a zero-filled block from the process heap.
inline unique_heap HeapAllocZeroed(SIZE_T bytes) {
    return unique_heap(::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, bytes));
}

}  // namespace wrenkits
