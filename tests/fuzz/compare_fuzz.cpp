// fuzz-sources:
// ZN_CompareString's decisions over two narrow or two wide texts, with the
// case-insensitive runtime functions the host offers in place of Microsoft's.
#include "frame/text_rules.h"
#include "fuzz_input.h"

#include <strings.h>

#include <cwchar>

namespace {

int Mirror(int result) { return result == 1 || result == -1 ? -result : result; }

template <typename Char, typename Len, typename Cmp, typename NCmp>
void Check(const std::basic_string<Char>& a, const std::basic_string<Char>& b, int tail, Len len, Cmp cmp, NCmp ncmp) {
    const int ab = wrenkits::CompareText(a.c_str(), b.c_str(), tail, len, cmp, ncmp);
    FUZZ_CHECK(ab == 0 || ab == -1 || ab == 1 || ab == 15);
    FUZZ_CHECK(wrenkits::CompareText(b.c_str(), a.c_str(), tail, len, cmp, ncmp) == Mirror(ab));
    if (ab == 0) FUZZ_CHECK(cmp(a.c_str(), b.c_str()) == 0);
    if (ab == -1) FUZZ_CHECK(a.size() < b.size());
    // Without the tail rule only heads match, so the answer can only be less specific.
    if (tail) {
        const int head = wrenkits::CompareText(a.c_str(), b.c_str(), 0, len, cmp, ncmp);
        FUZZ_CHECK(head == ab || head == 15);
    }
    FUZZ_CHECK(wrenkits::CompareText<Char>(nullptr, b.c_str(), tail, len, cmp, ncmp) == 15);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input in(data, size);
    const auto mode = in.Take<std::uint8_t>();
    if (mode & 2) {
        const std::wstring a = in.Text<wchar_t>(), b = in.Text<wchar_t>();
        Check(a, b, mode & 1, wcslen, wcscasecmp, wcsncasecmp);
    } else {
        const std::string a = in.Text<char>(), b = in.Text<char>();
        Check(a, b, mode & 1, strlen, strcasecmp, strncasecmp);
    }
    return 0;
}
