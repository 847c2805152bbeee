// fuzz-sources:
// ZN_TranslateSize's scaling of any positive byte count, and the text it formats.
#include "frame/text_rules.h"
#include "fuzz_input.h"

#include <charconv>
#include <cmath>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input in(data, size);
    const auto bytes = in.Take<long long>();
    if (bytes <= 0) return 0;  // refused before the scaling
    const wrenkits::ScaledSize scaled = wrenkits::ScaleSize(bytes);
    FUZZ_CHECK(scaled.unit >= 0 && scaled.unit <= 4);
    FUZZ_CHECK(scaled.value >= 1 && (scaled.unit == 4 || scaled.value < 1024));
    FUZZ_CHECK(std::fabs(scaled.value * std::ldexp(1.0, 10 * scaled.unit) - static_cast<double>(bytes)) <=
               static_cast<double>(bytes) * 1e-12);
    // "%.2f %s": the longest text (8 EiB in T) must fit the host's 16-character buffers.
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, scaled.value, std::chars_format::fixed, 2);
    FUZZ_CHECK(end.ec == std::errc() && end.ptr - text + 2 < 16);
    return 0;
}
