#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "boot/boot.h"

using wrenkits::CopyAnswer;
using wrenkits::ExtractCopiedEntryId;

namespace {

const std::string kCommand = "bcdedit /copy {bootmgr} /d \"Windows Boot Manager\"\r\n";
const std::string kGuid = "{0f3c2a5e-91b7-11ee-b962-0242ac120002}";
const std::string kCopied = "The entry was successfully copied to " + kGuid + ".\r\n\r\n";
const std::string kPrompt = "C:\\Windows\\system32>";

struct Case {
    const char* name;
    std::string answer;
    CopyAnswer kind;
    std::string id;
};

std::string Braced(size_t chars) { return "{" + std::string(chars - 2, 'a') + "}"; }

TEST(ExtractCopiedEntryId, ReadsTheIdentifierBehindTheCommandsLength) {
    const Case cases[] = {
        // Windows' interpreter echoes the command, whose "{bootmgr}" must be skipped.
        {"windows echo", kCommand + kCopied + kPrompt, CopyAnswer::Identifier, kGuid},
        // Wine's does not: the identifier is found only when the answer is long enough.
        {"no echo, long answer", "Double bcdedit copying the boot manager entry now.\r\n" + kCopied + kPrompt,
         CopyAnswer::Identifier, kGuid},
        {"no echo, identifier inside the command's length", kCopied + kPrompt, CopyAnswer::NoIdentifier, ""},
        {"braces missing", kCommand + "The store could not be opened.\r\n\r\n" + kPrompt, CopyAnswer::NoIdentifier, ""},
        {"only the opening brace", kCommand + "copied to {0f3c2a5e-91b7\r\n\r\n" + kPrompt, CopyAnswer::NoIdentifier,
         ""},
        {"stray closing brace first", kCommand + "} then " + kGuid + kPrompt, CopyAnswer::Identifier, kGuid},
        {"shorter than the command", kPrompt, CopyAnswer::Short, ""},
        {"exactly the command", kCommand, CopyAnswer::Short, ""},
        {"empty", "", CopyAnswer::Short, ""},
        {"identifier of 259 characters", kCommand + Braced(259) + kPrompt, CopyAnswer::Identifier, Braced(259)},
        {"identifier of 260 characters", kCommand + Braced(260) + kPrompt, CopyAnswer::TooLong, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        char id[MAX_PATH + 16];
        memset(id, 0xbd, sizeof id);
        EXPECT_EQ(c.kind, ExtractCopiedEntryId(c.answer.c_str(), kCommand.size(), id, MAX_PATH));
        EXPECT_EQ(c.id, id);
        for (size_t i = MAX_PATH; i < sizeof id; ++i) ASSERT_EQ('\xbd', id[i]) << "written past the buffer at " << i;
    }
}

TEST(ExtractCopiedEntryId, NullAnswerIsShort) {
    char id[MAX_PATH] = "poison";
    EXPECT_EQ(CopyAnswer::Short, ExtractCopiedEntryId(nullptr, kCommand.size(), id, sizeof id));
    EXPECT_STREQ("", id);
}

}  // namespace
