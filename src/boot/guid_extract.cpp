#include <string.h>

#include "boot/guid_extract.h"

namespace wrenkits {

CopyAnswer ExtractCopiedEntryId(const char* answer, size_t commandBytes, char* id, size_t idBytes) {
    id[0] = '\0';
    const size_t length = answer ? strlen(answer) : 0;
    if (length <= commandBytes) return CopyAnswer::Short;

    const char* open = strchr(answer + commandBytes, '{');
    // The closing brace is looked for behind the opening one: a stray "}" before it
    // closes nothing.
    const char* close = open ? strchr(open, '}') : nullptr;
    if (!close) return CopyAnswer::NoIdentifier;

    const size_t chars = static_cast<size_t>(close - open) + 1;
    // A cut identifier names another entry or none; handing it on would have the
    // editor act on the wrong one, so it is not used at all.
    if (chars > idBytes - 1) return CopyAnswer::TooLong;
    memcpy(id, open, chars);
    id[chars] = '\0';
    return CopyAnswer::Identifier;
}

}  // namespace wrenkits
