// Move-only owners for the library's OS resources. Each owner closes exactly once,
// and closing never disturbs the thread's last-error code: many log lines report
// GetLastError() after a failure, and a destructor that runs in between must not
// overwrite it.
#pragma once

#include <windows.h>

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
    bool valid() const noexcept { return value_ != Traits::invalid(); }
    explicit operator bool() const noexcept { return valid(); }

    [[nodiscard]] type release() noexcept { return std::exchange(value_, Traits::invalid()); }

    void reset(type value = Traits::invalid()) noexcept {
        type old = std::exchange(value_, value);
        if (old != Traits::invalid()) {
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
    type value_ = Traits::invalid();
};

namespace traits {
struct handle_null {
    using type = HANDLE;
    static type invalid() noexcept { return nullptr; }
    static void close(type h) noexcept { ::CloseHandle(h); }
};
struct handle_invalid {
    using type = HANDLE;
    static type invalid() noexcept { return INVALID_HANDLE_VALUE; }
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
}  // namespace traits

using unique_handle = unique_any<traits::handle_null>;    // process, thread, token, event
using unique_file = unique_any<traits::handle_invalid>;   // CreateFile, snapshots
using unique_hkey = unique_any<traits::reg_key>;
using unique_schandle = unique_any<traits::service_handle>;
using unique_find = unique_any<traits::find_handle>;
using unique_heap = unique_any<traits::heap_block>;
using unique_local = unique_any<traits::local_block>;
using unique_global = unique_any<traits::global_block>;

// Allocates a zero-filled block from the process heap.
inline unique_heap HeapAllocZeroed(SIZE_T bytes) {
    return unique_heap(::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, bytes));
}

}  // namespace wrenkits
