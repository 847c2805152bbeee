// fuzz-sources: src/boot/guid_extract.cpp
// The editor's answer to the copy command, the command's length and the id buffer's size.
#include "boot/guid_extract.h"
#include "fuzz_input.h"

#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input in(data, size);
    const std::size_t commandBytes = in.Take<std::uint8_t>();
    const std::size_t idBytes = 2 + in.Take<std::uint8_t>() % 64;
    const std::string answer = in.Text<char>();
    // Exactly the size claimed, so a write past it is a heap overflow.
    std::unique_ptr<char[]> id(new char[idBytes]);
    const auto kind = wrenkits::ExtractCopiedEntryId(answer.c_str(), commandBytes, id.get(), idBytes);
    const std::size_t length = strnlen(id.get(), idBytes);
    FUZZ_CHECK(length < idBytes);
    if (kind == wrenkits::CopyAnswer::Identifier) {
        FUZZ_CHECK(length >= 2 && id[0] == '{' && id[length - 1] == '}');
        FUZZ_CHECK(answer.find(id.get(), commandBytes) != std::string::npos);
    } else {
        FUZZ_CHECK(length == 0);
    }
    return 0;
}
