// Reading a fuzzer's bytes as the inputs of one call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

namespace fuzz {

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    template <typename T>
    T Take() {
        T value{};
        const std::size_t n = size_ < sizeof value ? size_ : sizeof value;
        std::memcpy(&value, data_, n);
        data_ += n;
        size_ -= n;
        return value;
    }
    // Text up to the next zero (or the end), without it: bytes for char, 16-bit units
    // (as Windows' wide characters) for wchar_t.
    template <typename Char>
    std::basic_string<Char> Text() {
        using Unit = typename std::conditional<sizeof(Char) == 1, std::uint8_t, std::uint16_t>::type;
        std::basic_string<Char> text;
        while (size_ >= sizeof(Unit)) {
            const Unit c = Take<Unit>();
            if (c == 0) break;
            text.push_back(static_cast<Char>(c));
        }
        return text;
    }
    const std::uint8_t* data() const { return data_; }
    std::size_t size() const { return size_; }

private:
    const std::uint8_t* data_;
    std::size_t size_;
};

// Aborts with the fuzzer's crash report when a property does not hold.
#define FUZZ_CHECK(condition)                                                          \
    do {                                                                               \
        if (!(condition)) {                                                            \
            __builtin_printf("property failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__); \
            std::abort();                                                              \
        }                                                                              \
    } while (0)

}  // namespace fuzz
