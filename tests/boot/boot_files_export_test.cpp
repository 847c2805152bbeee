#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "boot/boot_test_support.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

using boottest::ExpectLog;
using boottest::Failed;

namespace {

struct GenerateCase {
    const char* name;
    WCHAR windows, target;
    INT uefi;
    bool besideHost;         // a generator lies beside the host executable
    std::string besideCode;  // its exit code
    std::string systemCode;  // the system folder's exit code
    DWORD result;
    std::vector<std::string> commands;
    std::vector<std::string> log;
};

std::vector<std::string> Join(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(GenerateBootFiles, PrefersTheGeneratorBesideTheHostThenTheSystemsOne) {
    const std::string beside = wrtest::Narrow(wrtest::ExeDir()) + "\\bcdboot.exe";
    const std::string system = boottest::SystemTool("bcdboot.exe");
    const std::string uefi = "D:\\windows /s S: /f UEFI /addlast";
    const std::string bios = "d:\\windows /s s: /f BIOS /addlast";
    const auto head = [&](const std::string& arguments) {
        return std::vector<std::string>{"ZN_GenerateBootFiles ==> " + beside, "ZN_GenerateBootFiles ==> " + arguments};
    };
    const std::string fallback = "ZN_GenerateBootFiles ==> " + system;
    const GenerateCase cases[] = {
        {"beside the host", L'D', L'S', 1, true, "0", "0", 0, {beside + " " + uefi}, head(uefi)},
        {"lower-case letters for BIOS stay as given",
         L'd',
         L's',
         0,
         true,
         "0",
         "0",
         0,
         {beside + " " + bios},
         head(bios)},
        {"beside the host fails",
         L'D',
         L'S',
         1,
         true,
         "4",
         "0",
         0,
         {beside + " " + uefi, system + " " + uefi},
         Join(head(uefi), {Failed(beside + " " + uefi, 4), fallback})},
        {"none beside the host",
         L'D',
         L'S',
         1,
         false,
         "0",
         "0",
         0,
         {system + " " + uefi},
         Join(head(uefi), {"ZN_RunProcess create process " + beside + " " + uefi + " error: 2", fallback})},
        {"both fail",
         L'd',
         L's',
         0,
         true,
         "4",
         "6",
         6,
         {beside + " " + bios, system + " " + bios},
         Join(head(bios), {Failed(beside + " " + bios, 4), fallback, Failed(system + " " + bios, 6)})},
    };
    for (const GenerateCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<boottest::PlacedDouble> placed;
        if (c.besideHost) placed.emplace(wrtest::Widen(beside));
        wrtest::ToolDouble tools;
        tools.OnCommand("bcdboot", beside, c.besideCode).OnCommand("bcdboot", system, c.systemCode);
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_GenerateBootFiles(c.windows, c.target, c.uefi));
        EXPECT_EQ(c.commands, tools.Commands("bcdboot"));
        ExpectLog(log, c.log);
    }
}

DWORD WINAPI GetModuleFileNameFails(HMODULE, LPWSTR, DWORD) {
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
}

TEST(GenerateBootFiles, UnknownHostPathIsFileNotFound) {
    wrtest::ImportHook hook("KERNEL32.dll", "GetModuleFileNameW", reinterpret_cast<void*>(GetModuleFileNameFails));
    ASSERT_TRUE(hook.active());
    wrtest::ToolDouble tools;
    wrtest::LogCapture log;
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ZN_GenerateBootFiles(L'D', L'S', 1));
    EXPECT_TRUE(tools.Journal().empty());
    ExpectLog(log, {"ZN_GenerateBootFiles call GetModuleFileNameW error: 5"});
}

TEST(GenerateBootFiles, LetterThatIsNoLetterRunsNothing) {
    const std::pair<WCHAR, WCHAR> cases[] = {{L'\0', L'S'}, {L'D', L'\0'}, {L'1', L'S'}, {L'D', 0x0130}};
    for (const auto& [windows, target] : cases) {
        SCOPED_TRACE(static_cast<int>(windows) * 1000 + target);
        wrtest::ToolDouble tools;
        wrtest::LogCapture log;
        EXPECT_EQ(87u, ZN_GenerateBootFiles(windows, target, 1));
        EXPECT_TRUE(tools.Journal().empty());
        ExpectLog(log, {"ZN_GenerateBootFiles refused: drive letter is missing or not valid"});
    }
}

}  // namespace
