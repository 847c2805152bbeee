// Owners for COM objects and the strings and variants handed to them.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include "frame/unique_any.h"

namespace wrenkits {

namespace traits {
template <typename Interface>
struct com_pointer {
    using type = Interface*;
    static type invalid() noexcept { return nullptr; }
    static void close(type p) noexcept { p->Release(); }
};
struct bstr {
    using type = BSTR;
    static type invalid() noexcept { return nullptr; }
    static void close(type s) noexcept { ::SysFreeString(s); }
};
}  // namespace traits

template <typename Interface>
using unique_com = unique_any<traits::com_pointer<Interface>>;
using unique_bstr = unique_any<traits::bstr>;

// A VARIANT that is cleared when it goes.
class unique_variant {
public:
    unique_variant() noexcept { ::VariantInit(&value_); }
    unique_variant(const unique_variant&) = delete;
    unique_variant& operator=(const unique_variant&) = delete;
    ~unique_variant() { ::VariantClear(&value_); }
    VARIANT* put() noexcept {
        ::VariantClear(&value_);
        return &value_;
    }
    const VARIANT& get() const noexcept { return value_; }

private:
    VARIANT value_;
};

}  // namespace wrenkits
