// Console sessions: answers read up to the prompt, the close steps, and bounded answers.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame/log.h"
#include "frame/process.h"
#include "support/log_capture.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

using wrenkits::ConsoleSession;
using wrenkits::SessionExit;
using wrenkits::SessionStage;

namespace {

// An anonymous pipe pre-filled with `bytes`, read back through ReadToPrompt.
struct FilledPipe {
    explicit FilledPipe(const std::string& bytes) {
        CreatePipe(&read, &write, nullptr, 0);
        DWORD written = 0;
        WriteFile(write, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    }
    ~FilledPipe() {
        CloseHandle(read);
        if (write) CloseHandle(write);
    }
    HANDLE read = nullptr, write = nullptr;
};

TEST(ReadToPrompt, StopsAtEachPromptAndKeepsIt) {
    FilledPipe pipe("C:\\> dir a > b\r\nC:\\>");
    char answer[64];
    wrenkits::ReadToPrompt(pipe.read, answer, sizeof answer);
    EXPECT_STREQ("C:\\>", answer);
    wrenkits::ReadToPrompt(pipe.read, answer, sizeof answer);
    EXPECT_STREQ(" dir a >", answer) << "a '>' inside output ends the answer early";
    wrenkits::ReadToPrompt(pipe.read, answer, sizeof answer);
    EXPECT_STREQ(" b\r\nC:\\>", answer);
}

TEST(ReadToPrompt, NeverFillsPastTheBufferAndLeavesTheRestForLater) {
    FilledPipe pipe("abcdefg>");
    char answer[8];
    memset(answer, 0x7f, sizeof answer);
    wrenkits::ReadToPrompt(pipe.read, answer, 4);
    EXPECT_STREQ("abc", answer);
    EXPECT_EQ(0x7f, answer[4]) << "written past the given size";
    wrenkits::ReadToPrompt(pipe.read, answer, 8);
    EXPECT_STREQ("defg>", answer);
}

TEST(ReadToPrompt, EndOfInputEndsTheAnswer) {
    FilledPipe pipe("no prompt");
    CloseHandle(pipe.write);
    pipe.write = nullptr;
    char answer[32];
    wrenkits::ReadToPrompt(pipe.read, answer, sizeof answer);
    EXPECT_STREQ("no prompt", answer);
}

class Session : public testing::Test {
protected:
    wrtest::ToolDouble tools_;
};

TEST_F(Session, TalksToATool) {
    tools_.OnLine("diskpart", "list disk", "\r\n  Disk 0    Online\r\n\r\n");
    {
        ConsoleSession session("ZN_Test", SessionExit::Always);
        const wrenkits::SessionOpen open = session.Open(L"diskpart.exe", nullptr, 0x100000);
        ASSERT_TRUE(open.ok());
        EXPECT_EQ(0u, open.error);
        EXPECT_STREQ("\r\nDouble DiskPart\r\n\r\nDISKPART>", session.Answer());
        EXPECT_EQ(0u, session.Send("list disk\r\n"));
        EXPECT_STREQ(" \r\n  Disk 0    Online\r\n\r\nDISKPART>", session.Answer());
        EXPECT_EQ(0u, session.Send("select disk 0\r\n"));
        EXPECT_STREQ(" DISKPART>", session.Answer());
    }
    EXPECT_EQ((std::vector<std::string>{"list disk", "select disk 0", "exit"}), tools_.Lines("diskpart"));
}

TEST_F(Session, EmptyCommandOnlyCollectsOutput) {
    tools_.OnLine("diskpart", "detail", "a > b\r\n");
    ConsoleSession session("ZN_Test", SessionExit::Always);
    ASSERT_TRUE(session.Open(L"diskpart.exe", nullptr, 4096).ok());
    ASSERT_EQ(0u, session.Send("detail\r\n"));
    EXPECT_STREQ(" a >", session.Answer());
    ASSERT_EQ(0u, session.Send(nullptr));
    EXPECT_STREQ(" b\r\nDISKPART>", session.Answer());
}

TEST_F(Session, HangingToolIsTerminatedAfterExit) {
    tools_.HangOnExit("diskpart");
    ConsoleSession session("ZN_Test", SessionExit::Always);
    ASSERT_TRUE(session.Open(L"diskpart.exe", nullptr, 4096).ok());
    session.Close();
    // The test main's listener fails the test if a diskpart double is still running.
    EXPECT_EQ((std::vector<std::string>{"exit"}), tools_.Lines("diskpart"));
}

TEST_F(Session, ToolThatCannotStartReportsTheProcessStage) {
    ConsoleSession session("ZN_Test", SessionExit::Always);
    const wrenkits::SessionOpen open = session.Open(L"no-such-tool-here.exe", nullptr, 4096);
    EXPECT_EQ(SessionStage::Process, open.stage);
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), open.error);
    EXPECT_EQ(nullptr, session.Answer());
    EXPECT_EQ(static_cast<DWORD>(ERROR_WRITE_FAULT), session.Send("anything\r\n"));
}

TEST(WriteCmd, CommandThatCannotBeWrittenIsAWriteFault) {
    const std::wstring logPath = wrtest::ExeDir() + L"\\writecmd-unit.log";
    wrtest::WriteFileBytes(logPath, "");
    wrenkits::OpenLogFile(wrtest::Narrow(logPath).c_str());
    wrtest::LogCapture log(logPath);

    HANDLE read = nullptr, write = nullptr;
    ASSERT_TRUE(CreatePipe(&read, &write, nullptr, 0));
    CloseHandle(read);  // nobody listens any more
    char answer[16];
    EXPECT_EQ(static_cast<DWORD>(ERROR_WRITE_FAULT), WriteCmd(write, "list\r\n", nullptr, answer, sizeof answer));
    CloseHandle(write);
    wrenkits::CloseLog();

    // The command keeps its own line end inside the message.
    const std::string raw = log.Raw();
    EXPECT_NE(std::string::npos, raw.find("]  [Wrenkit] WriteCmd write list\r\n to pipe error: ")) << raw;
    DeleteFileW(logPath.c_str());
}

}  // namespace
