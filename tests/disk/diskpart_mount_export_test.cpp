// ZN_MountPartition against the diskpart double: the exact lines the tool reads, in
// order, for each way a call can go.
#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

namespace {

const char kPartitions[] =
    "\r\n  Partition ###  Type              Size     Offset\r\n"
    "  -------------  ----------------  -------  -------\r\n"
    "  Partition 1    System             100 MB  1024 KB\r\n"
    "  Partition 2    Primary             49 GB   101 MB\r\n\r\n";
const char kDetail[] =
    "\r\nPartition 2\r\nType  : 07\r\n\r\n"
    "  Volume ###  Ltr  Label        Fs     Type        Size     Status     Info\r\n"
    "  ----------  ---  -----------  -----  ----------  -------  ---------  --------\r\n"
    "* Volume 3     C                NTFS   Partition     49 GB  Healthy\r\n\r\n";
const char kNoVolume[] = "\r\nPartition 2\r\nType  : 07\r\n\r\nThere is no volume associated with this partition.\r\n\r\n";

DWORD g_drives;
DWORD WINAPI FakeDrives() { return g_drives; }
// Stands in for GetWindowsDirectoryW, CreatePipe or CreateProcessW: on x64 one calling
// convention serves every signature, and each of them reports failure as 0.
BOOL WINAPI Fail() { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }

struct MountCase {
    const char* name;
    DWORD partition;
    WCHAR letter;
    DWORD remove;
    DWORD result;
    WCHAR letterAfter;
    std::vector<std::string> lines;  // what diskpart read, "exit" included
    std::vector<std::string> log;    // lines the log must hold (diskpart's answers come between them)
    const char* detail = kDetail;
    DWORD drives = 0x0400000C;       // A B unused, C D used, Z used
    const char* failing = nullptr;  // the platform call that fails
};

TEST(MountPartition, CommandsSentToDiskpart) {
    const std::vector<std::string> toVolume = {"sel disk 0", "list partition", "sel partition 2", "detail partition",
                                               "sel vol 3"};
    auto Then = [&](std::vector<std::string> more) {
        auto all = toVolume;
        all.insert(all.end(), more.begin(), more.end());
        return all;
    };
    const MountCase cases[] = {
        {"assign a given letter", 2, L'e', 0, 0, L'e', Then({"assign letter=e:", "exit"}), {}},
        {"remove, partition 0 is the first row, fixed path when the windows folder is unknown", 0, L'F', 1, 0, L'F',
         {"sel disk 0", "list partition", "sel partition 1", "detail partition", "sel vol 3", "remove letter=F:", "exit"},
         {"ZN_MountPartition get windows directory error: 5"}, kDetail, 0x0400000C, "GetWindowsDirectoryW"},
        {"partition beyond the rows", 3, L'E', 0, ERROR_FILE_NOT_FOUND, L'E', {"sel disk 0", "list partition", "exit"}, {}},
        {"partition without a volume", 2, L'E', 0, ERROR_NOT_FOUND, L'E',
         {"sel disk 0", "list partition", "sel partition 2", "detail partition", "exit"}, {}, kNoVolume},
        {"no letter picks the first free one from C", 2, 0, 0, 0, L'E', Then({"assign letter=E:", "exit"}), {}},
        {"no letter free: '*' handed back and sent", 2, L'?', 0, 0, L'*', Then({"assign letter=*:", "exit"}), {},
         kDetail, 0x03FFFFFF},
        {"pipe cannot be made", 2, L'E', 0, ERROR_ACCESS_DENIED, L'E', {}, {"ZN_MountPartition create stdout pipe error: 5"},
         kDetail, 0, "CreatePipe"},
        {"diskpart cannot start", 2, L'E', 0, ERROR_ACCESS_DENIED, L'E', {}, {"ZN_MountPartition run diskpart error: 5"},
         kDetail, 0, "CreateProcessW"},
        {"removing a non-letter is refused before diskpart runs", 2, L'1', 1, ERROR_INVALID_PARAMETER, L'1', {},
         {"ZN_MountPartition refused: drive letter is missing or not valid"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ToolDouble tools;
        tools.OnLine("diskpart", "list partition", kPartitions).OnLine("diskpart", "detail partition", c.detail);
        g_drives = c.drives;
        wrtest::ImportHook drives("KERNEL32.dll", "GetLogicalDrives", reinterpret_cast<void*>(&FakeDrives));
        std::unique_ptr<wrtest::ImportHook> fault;
        if (c.failing) fault = std::make_unique<wrtest::ImportHook>("KERNEL32.dll", c.failing, reinterpret_cast<void*>(&Fail));
        wrtest::LogCapture log;
        WCHAR letter = c.letter;

        EXPECT_EQ(c.result, ZN_MountPartition(0, c.partition, &letter, c.remove));
        EXPECT_EQ(c.letterAfter, letter);
        EXPECT_EQ(c.lines, tools.Lines("diskpart"));
        if (!c.lines.empty()) {
            wchar_t windows[MAX_PATH] = L"C:\\Windows";
            if (!c.failing) GetWindowsDirectoryW(windows, MAX_PATH);
            EXPECT_EQ(std::vector<std::string>{wrtest::Narrow(windows) + "\\System32\\diskpart.exe"},
                      tools.Commands("diskpart"));
        }
        for (const auto& line : c.log) EXPECT_TRUE(log.Has(wrtest::Tagged(line))) << line;
    }
    EXPECT_EQ(DWORD(ERROR_INVALID_PARAMETER), ZN_MountPartition(0, 1, nullptr, 0)) << "no place for the letter";
}

}  // namespace
