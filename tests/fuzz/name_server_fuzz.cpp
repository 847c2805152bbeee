// fuzz-sources: src/net/name_server.cpp
// Any "NameServer" text (16-bit units, as the registry holds it) split into two fields.
#include "fuzz_input.h"
#include "net/name_server.h"

#include <cwchar>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input in(data, size);
    const std::wstring text = in.Text<wchar_t>();
    // Each field in an allocation of exactly 20 characters, pre-filled with a mark.
    std::unique_ptr<wchar_t[]> primary(new wchar_t[20]), secondary(new wchar_t[20]);
    std::wmemset(primary.get(), L'#', 20);
    std::wmemset(secondary.get(), L'#', 20);
    auto& p = *reinterpret_cast<wchar_t(*)[20]>(primary.get());
    auto& s = *reinterpret_cast<wchar_t(*)[20]>(secondary.get());
    const bool whole = wrenkits::SplitNameServer(text.c_str(), p, s);

    const std::size_t comma = text.find(L',');
    const std::wstring first = text.substr(0, comma);
    const std::wstring second = comma == std::wstring::npos ? L"" : text.substr(comma + 1);
    FUZZ_CHECK(whole == (first.size() < 20 && second.size() < 20));
    for (const auto& [field, part] : {std::pair{primary.get(), first}, std::pair{secondary.get(), second}}) {
        if (part.empty() || part.size() >= 20)
            FUZZ_CHECK(field[0] == L'#');  // left alone
        else
            FUZZ_CHECK(part == field);
    }
    return 0;
}
