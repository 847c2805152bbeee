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

DWORD g_drives, g_failure;
DWORD WINAPI FakeDrives() { return g_drives; }
UINT WINAPI FailingWindowsDirectory(LPWSTR, UINT) { return SetLastError(g_failure), 0; }
BOOL WINAPI FailingPipe(PHANDLE, PHANDLE, LPSECURITY_ATTRIBUTES, DWORD) { return SetLastError(g_failure), FALSE; }
BOOL WINAPI FailingStart(LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID, LPCWSTR,
                         LPSTARTUPINFOW, LPPROCESS_INFORMATION) {
    return SetLastError(g_failure), FALSE;
}

enum class Fault { None, WindowsDirectory, Pipe, Start };

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
    Fault fault = Fault::None;
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
         {"ZN_MountPartition get windows directory error: 5"}, kDetail, 0x0400000C, Fault::WindowsDirectory},
        {"partition beyond the rows", 3, L'E', 0, ERROR_FILE_NOT_FOUND, L'E', {"sel disk 0", "list partition", "exit"}, {}},
        {"partition without a volume", 2, L'E', 0, ERROR_NOT_FOUND, L'E',
         {"sel disk 0", "list partition", "sel partition 2", "detail partition", "exit"}, {}, kNoVolume},
        {"no letter picks the first free one from C", 2, 0, 0, 0, L'E', Then({"assign letter=E:", "exit"}), {}},
        {"no letter free: '*' handed back and sent", 2, L'?', 0, 0, L'*', Then({"assign letter=*:", "exit"}), {},
         kDetail, 0x03FFFFFF},
        {"pipe cannot be made", 2, L'E', 0, ERROR_ACCESS_DENIED, L'E', {}, {"ZN_MountPartition create stdout pipe error: 5"},
         kDetail, 0, Fault::Pipe},
        {"diskpart cannot start", 2, L'E', 0, ERROR_ACCESS_DENIED, L'E', {}, {"ZN_MountPartition run diskpart error: 5"},
         kDetail, 0, Fault::Start},
        {"removing a non-letter is refused before diskpart runs", 2, L'1', 1, ERROR_INVALID_PARAMETER, L'1', {},
         {"ZN_MountPartition refused: drive letter is missing or not valid"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ToolDouble tools;
        tools.OnLine("diskpart", "list partition", kPartitions).OnLine("diskpart", "detail partition", c.detail);
        g_drives = c.drives, g_failure = ERROR_ACCESS_DENIED;
        wrtest::ImportHook drives("KERNEL32.dll", "GetLogicalDrives", reinterpret_cast<void*>(&FakeDrives));
        std::unique_ptr<wrtest::ImportHook> fault;
        if (c.fault == Fault::WindowsDirectory)
            fault.reset(new wrtest::ImportHook("KERNEL32.dll", "GetWindowsDirectoryW",
                                               reinterpret_cast<void*>(&FailingWindowsDirectory)));
        if (c.fault == Fault::Pipe)
            fault.reset(new wrtest::ImportHook("KERNEL32.dll", "CreatePipe", reinterpret_cast<void*>(&FailingPipe)));
        if (c.fault == Fault::Start)
            fault.reset(
                new wrtest::ImportHook("KERNEL32.dll", "CreateProcessW", reinterpret_cast<void*>(&FailingStart)));
        wrtest::LogCapture log;
        WCHAR letter = c.letter;

        EXPECT_EQ(c.result, ZN_MountPartition(0, c.partition, &letter, c.remove));
        EXPECT_EQ(c.letterAfter, letter);
        EXPECT_EQ(c.lines, tools.Lines("diskpart"));
        if (!c.lines.empty()) {
            wchar_t windows[MAX_PATH] = L"C:\\Windows";
            if (c.fault != Fault::WindowsDirectory) GetWindowsDirectoryW(windows, MAX_PATH);
            EXPECT_EQ(std::vector<std::string>{wrtest::Narrow(windows) + "\\System32\\diskpart.exe"},
                      tools.Commands("diskpart"));
        }
        for (const auto& line : c.log) EXPECT_TRUE(log.Has(wrtest::Tagged(line))) << line;
    }
    EXPECT_EQ(DWORD(ERROR_INVALID_PARAMETER), ZN_MountPartition(0, 1, nullptr, 0)) << "no place for the letter";
}

}  // namespace
