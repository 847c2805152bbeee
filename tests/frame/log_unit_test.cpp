// The diagnostic log's file format, size limit and truncation, on files the test owns.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame/log.h"
#include "support/log_capture.h"
#include "support/wine_env.h"

namespace {

// Collects what reaches the debugger output through the exception OutputDebugString raises.
class DebugCapture {
public:
    DebugCapture() {
        texts().clear();
        handler_ = AddVectoredExceptionHandler(1, &Handler);
    }
    ~DebugCapture() { RemoveVectoredExceptionHandler(handler_); }
    static std::vector<std::string>& texts() {
        static std::vector<std::string> t;
        return t;
    }

private:
    static LONG CALLBACK Handler(EXCEPTION_POINTERS* ep) {
        const auto* rec = ep->ExceptionRecord;
        if (rec->ExceptionCode == DBG_PRINTEXCEPTION_C && rec->NumberParameters >= 2) {
            texts().push_back(reinterpret_cast<const char*>(rec->ExceptionInformation[1]));
            return EXCEPTION_CONTINUE_EXECUTION;
        }
        if (rec->ExceptionCode == 0x4001000A /* wide debug print */) return EXCEPTION_CONTINUE_EXECUTION;
        return EXCEPTION_CONTINUE_SEARCH;
    }
    PVOID handler_;
};

class LogFile : public testing::Test {
protected:
    void SetUp() override {
        path_ = wrtest::ExeDir() + L"\\log-unit-" + std::to_wstring(GetCurrentProcessId()) + L".log";
        DeleteFileW(path_.c_str());
    }
    void TearDown() override {
        wrenkits::CloseLog();
        DeleteFileW(path_.c_str());
    }
    void Open(const std::string& content = "") {
        ASSERT_TRUE(wrtest::WriteFileBytes(path_, content));
        wrenkits::OpenLogFile(wrtest::Narrow(path_).c_str());
        ASSERT_TRUE(wrenkits::LogIsOpen());
    }
    std::string Content() const { return wrtest::ReadFileBytes(path_); }
    std::wstring path_;
};

TEST_F(LogFile, MissingFileIsNeverCreatedAndMessagesStillReachTheDebugger) {
    DebugCapture debug;
    wrenkits::OpenLogFile(wrtest::Narrow(path_).c_str());
    EXPECT_FALSE(wrenkits::LogIsOpen());
    LogA("%s only to the debugger: %d", "ZN_Test", 5);
    EXPECT_FALSE(wrtest::FileExists(path_));
    ASSERT_EQ(1u, debug.texts().size());
    EXPECT_EQ("[Wrenkit] ZN_Test only to the debugger: 5", debug.texts()[0]);
}

TEST_F(LogFile, LineHasLocalTimestampTagAndCrLf) {
    Open();
    SYSTEMTIME before;
    GetLocalTime(&before);
    LogA("%s open %s error: %d", "ZN_Test", "C:\\x", 5);
    const std::string line = Content();
    // "[YYYY-MM-DD hh:mm:ss]  " then the tagged message.
    ASSERT_EQ(23u + 36u + 2u, line.size()) << line;
    char date[16];
    _snprintf_s(date, sizeof date, _TRUNCATE, "[%.4d-%.2d-%.2d ", before.wYear, before.wMonth, before.wDay);
    EXPECT_EQ(date, line.substr(0, 12));
    EXPECT_EQ(':', line[14]);
    EXPECT_EQ(':', line[17]);
    EXPECT_EQ("]  [Wrenkit] ZN_Test open C:\\x error: 5\r\n", line.substr(20));
}

TEST_F(LogFile, WideMessageIsWrittenInTheCodePageWithReplacements) {
    Open();
    LogW(L"%s \u4e2d %S", L"wide", "narrow");
    const std::string all = Content();
    EXPECT_NE(std::string::npos, all.find("[Wrenkit] wide ? narrow\r\n")) << all;
}

TEST_F(LogFile, SizeLimitEmptiesOnlyFilesLargerThanTwoMebibytes) {
    struct Case {
        size_t size;
        bool emptied;
    } cases[] = {{0x200000, false}, {0x200001, true}, {0x200000 - 1, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.size);
        Open(std::string(c.size, 'x'));
        LogA("after");
        const std::string all = Content();
        wrenkits::CloseLog();
        const size_t expectedStart = c.emptied ? 0 : c.size;
        ASSERT_GT(all.size(), expectedStart);
        EXPECT_EQ(all.size() - expectedStart, 23u + 15u + 2u);
        EXPECT_EQ('[', all[expectedStart]);
        if (!c.emptied) {
            EXPECT_EQ('x', all[0]);
        }
    }
}

TEST_F(LogFile, OverLongMessageIsCutAndItsLineLosesTheLineEnd) {
    Open();
    const std::string text(2000, 'a');
    LogA("%s", text.c_str());
    LogA("next");
    const std::string all = Content();
    // The message is cut to 1023 characters, the line to 1023 bytes without "\r\n":
    // the next line follows on the same line of the file.
    ASSERT_GT(all.size(), 1023u);
    EXPECT_EQ(std::string(1023 - 23 - 10, 'a'), all.substr(23 + 10, 1023 - 23 - 10));
    EXPECT_EQ('[', all[1023]);
    EXPECT_EQ("[Wrenkit] next\r\n", all.substr(all.size() - 16));
}

TEST_F(LogFile, MessageJustUnderTheLimitKeepsItsLineEnd) {
    Open();
    // 23 (timestamp) + 10 (tag) + 988 + 2 = 1023 bytes: still a whole line.
    LogA("%s", std::string(988, 'b').c_str());
    const std::string all = Content();
    ASSERT_EQ(1023u, all.size());
    EXPECT_EQ("b\r\n", all.substr(1020));
}

}  // namespace
