#include <climits>
#include <cstring>

#include "disk/disk_rules.h"

namespace wrenkits {

namespace {

// The start of the next line, or the end of the text when there is none.
const char* NextLine(const char* at) {
    const char* feed = std::strchr(at, '\n');
    return feed ? feed + 1 : at + std::strlen(at);
}

}  // namespace

int ParseListingNumber(const char* answer, unsigned row) {
    if (!answer) return -1;
    const char* at = std::strstr(answer, "------");
    if (!at) return -1;
    at = NextLine(at);
    for (unsigned skip = 1; skip < row && *at; ++skip) at = NextLine(at);

    // Only a blank ends a word, so a number that ends its line carries the line feed
    // and is no number; a row without one lets the search run on into the rows below.
    while (*at) {
        while (*at == ' ') ++at;
        const char* end = at;
        while (*end && *end != ' ') ++end;
        if (end > at && std::strspn(at, "0123456789") >= static_cast<std::size_t>(end - at)) {
            long long value = 0;
            for (const char* d = at; d < end && value <= INT_MAX; ++d) value = value * 10 + (*d - '0');
            return value > INT_MAX ? INT_MAX : static_cast<int>(value);
        }
        at = end;
    }
    return -1;
}

}  // namespace wrenkits
