// Reading the copied entry's identifier out of the editor's answer: text in, text
// out, no OS calls, so it builds and is fuzzed natively too.
#pragma once

#include <stddef.h>

namespace wrenkits {

// What the editor's answer to the copy command held.
enum class CopyAnswer {
    Short,         // no longer than the command: no answer worth reading
    NoIdentifier,  // an answer, but no "{...}" behind the command's length
    Identifier,    // `id` holds the braced identifier
    TooLong,       // "{...}" found but longer than an identifier may be
};

// The identifier is looked for behind the first `commandBytes` bytes, where
// Windows' interpreter echoes the command (which holds "{bootmgr}" itself).
// `id` (idBytes > 1) is always terminated; it stays empty unless Identifier.
CopyAnswer ExtractCopiedEntryId(const char* answer, size_t commandBytes, char* id, size_t idBytes);

}  // namespace wrenkits
