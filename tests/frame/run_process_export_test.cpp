// One-shot child processes through the real DLL: exit codes, creation errors, refused input.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "Wrenkits.h"
#include "support/log_capture.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

namespace {

const std::wstring kCmd = wrtest::SystemDir() + L"\\cmd.exe";

TEST(RunProcess, PassesTheExitCodeAndLogsOnlyFailures) {
    struct Case {
        const wchar_t* arguments;
        DWORD code;
    } cases[] = {{L"/c exit 0", 0}, {L"/c exit 1", 1}, {L"/c exit 3", 3}, {L"/c exit 259", 259}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        wrtest::LogCapture log;
        EXPECT_EQ(c.code, ZN_RunProcess(kCmd.c_str(), c.arguments, 1));
        const auto lines = log.Messages();
        if (c.code == 0) {
            EXPECT_TRUE(lines.empty());
        } else {
            ASSERT_EQ(1u, lines.size());
            EXPECT_EQ("[Wrenkit] ZN_RunProcess process " + wrtest::Narrow(kCmd) + " " +
                          wrtest::Narrow(c.arguments) + " result: " + std::to_string(c.code),
                      lines[0]);
        }
        // The narrow twin tells the same with its own name.
        wrtest::LogCapture logA;
        EXPECT_EQ(c.code, ZN_RunProcessA(wrtest::Narrow(kCmd).c_str(), wrtest::Narrow(c.arguments).c_str(), 1));
        EXPECT_EQ(c.code == 0 ? 0u : 1u, logA.Containing("[Wrenkit] ZN_RunProcessA process ").size());
    }
}

TEST(RunProcess, ProgramMayCarryItsOwnArguments) {
    EXPECT_EQ(4u, ZN_RunProcess((kCmd + L" /c exit 4").c_str(), nullptr, 1));
    EXPECT_EQ(5u, ZN_RunProcess((kCmd + L" /c exit 5").c_str(), L"", 1));
}

TEST(RunProcess, EmptyProgramWithArgumentsRunsThemBehindABlank) {
    wrtest::LogCapture log;
    const DWORD code = ZN_RunProcess(L"", L"C:\\no\\tool.exe /x", 1);
    // Wine refuses the leading blank where Windows skips it; either way the command
    // line the library built is " arguments".
    if (code != 0) {
        EXPECT_TRUE(log.Has("[Wrenkit] ZN_RunProcess create process  C:\\no\\tool.exe /x error: " +
                            std::to_string(code)));
    }
    EXPECT_NE(87u, code);
}

TEST(RunProcess, WithoutWaitingTheResultIsZero) {
    wrtest::ToolDouble tools;
    tools.OnCommand("bcdedit", "", "7");
    const std::wstring bcdedit = wrtest::SystemDir() + L"\\bcdedit.exe";
    wrtest::LogCapture log;
    EXPECT_EQ(0u, ZN_RunProcess(bcdedit.c_str(), L"/enum", 0));
    EXPECT_TRUE(wrtest::ToolDouble::WaitForExit("bcdedit", 10000));
    EXPECT_EQ(1u, tools.Commands("bcdedit").size());
    EXPECT_TRUE(log.Containing("result").empty()) << "the exit code 7 was never looked at";
}

TEST(RunProcess, ChildThatCannotBeCreatedGivesTheSystemCode) {
    wrtest::LogCapture log;
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ZN_RunProcess(L"C:\\no\\such\\tool.exe", L"/x", 1));
    EXPECT_TRUE(log.Has("[Wrenkit] ZN_RunProcess create process C:\\no\\such\\tool.exe /x error: 2"));
    wrtest::LogCapture logA;
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ZN_RunProcessA("C:\\no\\such\\tool.exe", nullptr, 1));
    EXPECT_TRUE(logA.Has("[Wrenkit] ZN_RunProcessA create process C:\\no\\such\\tool.exe error: 2"));
}

TEST(RunProcess, EmptyOrMissingCommandIsRefusedSilently) {
    wrtest::LogCapture log;
    EXPECT_EQ(87u, ZN_RunProcess(L"", nullptr, 1));
    EXPECT_EQ(87u, ZN_RunProcess(L"", L"", 1));
    EXPECT_EQ(87u, ZN_RunProcess(nullptr, L"/c exit 1", 1));
    EXPECT_EQ(87u, ZN_RunProcessA("", nullptr, 1));
    EXPECT_EQ(87u, ZN_RunProcessA(nullptr, nullptr, 1));
    EXPECT_TRUE(log.Messages().empty());
}

TEST(RunProcess, OverLongCommandLineIsRefusedNeverRunCut) {
    wrtest::ToolDouble tools;
    const std::wstring bcdedit = wrtest::SystemDir() + L"\\bcdedit.exe";
    // Exactly 519 characters still run; one more is refused whole.
    const size_t fits = 519 - bcdedit.size() - 1;
    const std::wstring fitting(fits, L'a');
    EXPECT_EQ(0u, ZN_RunProcess(bcdedit.c_str(), fitting.c_str(), 1));
    ASSERT_EQ(1u, tools.Arguments("bcdedit").size());
    EXPECT_EQ(wrtest::Narrow(fitting), tools.Arguments("bcdedit")[0]);

    wrtest::LogCapture log;
    const std::wstring tooLong(fits + 1, L'a');
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILENAME_EXCED_RANGE), ZN_RunProcess(bcdedit.c_str(), tooLong.c_str(), 1));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILENAME_EXCED_RANGE),
              ZN_RunProcessA(wrtest::Narrow(bcdedit).c_str(), wrtest::Narrow(tooLong).c_str(), 1));
    EXPECT_EQ(1u, tools.Commands("bcdedit").size()) << "nothing more was run";
    EXPECT_TRUE(log.Has("[Wrenkit] ZN_RunProcess refused: command line is longer than 519 characters"));
    EXPECT_TRUE(log.Has("[Wrenkit] ZN_RunProcessA refused: command line is longer than 519 characters"));
}

}  // namespace
