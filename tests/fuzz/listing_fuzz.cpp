// fuzz-sources: src/disk/diskpart_listing.cpp
// diskpart's answer as it comes through the pipe, and any row number.
#include <climits>

#include "disk/disk_rules.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input in(data, size);
    const unsigned row = in.Take<std::uint8_t>();
    const std::string answer = in.Text<char>();
    const int number = wrenkits::ParseListingNumber(answer.c_str(), row);
    FUZZ_CHECK(number >= -1);
    if (number >= 0) FUZZ_CHECK(answer.find("------") != std::string::npos);
    return 0;
}
