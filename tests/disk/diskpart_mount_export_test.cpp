// ZN_MountPartition against the diskpart double: the program started and the exact
// lines it read, in order, for each way a call can go.
#include <memory>

#include "Wrenkits.h"
#include "disk/volume_device_fake.h"
#include "support/tool_double.h"

namespace {

const char kPartitions[] =
    "\r\n  Partition ###  Type              Size     Offset\r\n  -------------  ----------------  -------  -------\r\n"
    "  Partition 1    System             100 MB  1024 KB\r\n  Partition 2    Primary             49 GB   101 MB\r\n"
    "  Partition 4    Recovery           522 MB    49 GB\r\n\r\n";
// A German diskpart: only the underline, blanks and digits are read.
const char kVolume[] =
    "\r\nPartition 4\r\nTyp         : 07\r\n\r\n  Volume ###  Bst  Bezeichnung  DS     Typ         Größe    Status\r\n"
    "  ----------  ---  -----------  -----  ----------  -------  ---------\r\n* Volume 3     C                NTFS   Partition     49 GB  Fehlerfre\r\n";
const char kNoVolume[] = "\r\nPartition 4\r\nType  : 07\r\n\r\nThere is no volume associated with this partition.\r\n";

// Stands in for GetWindowsDirectoryW, CreatePipe or CreateProcessW: on x64 one calling
// convention serves every signature, and each of them reports failure as 0.
BOOL WINAPI Fail() { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }

TEST(MountPartition, CommandsSentToDiskpart) {
    const std::string program = "\\System32\\diskpart.exe|sel disk 0|list partition", run = "C:\\windows" + program, select = run + "|sel partition ";
    // Each row: the platform call that fails; the result and letter afterwards; the program and lines read; a logged line.
    const struct { const char* name; DWORD partition, remove, drives; WCHAR letter; const char* failing; std::string answer, diskpart, log; const char* volume = kVolume; } cases[] = {
        {"given letter; row 3 is partition 4", 3, 0, 0, L'e', nullptr, "0 e", select + "4|detail partition|sel vol 3|assign letter=e:|exit", ""},
        {"no letter: first free from C, A and B never", 2, 0, 0x8, 0, nullptr, "0 C", select + "2|detail partition|sel vol 3|assign letter=C:|exit", ""},
        {"none free: '*' handed back and sent", 2, 0, 0x3FFFFFF, L'?', nullptr, "0 *", select + "2|detail partition|sel vol 3|assign letter=*:|exit", ""},
        {"remove; partition 0 is row 1; windows folder unknown", 0, 1, 0, L'F', "GetWindowsDirectoryW", "0 F", "C:\\Windows" + program + "|sel partition 1|detail partition|sel vol 3|remove letter=F:|exit", "ZN_MountPartition get windows directory error: 5"},
        {"partition beyond the rows", 4, 0, 0, L'E', nullptr, "2 E", run + "|exit", ""},
        {"partition without a volume", 2, 0, 0, L'E', nullptr, "1168 E", select + "2|detail partition|exit", "", kNoVolume},
        {"no pipe", 2, 0, 0, L'E', "CreatePipe", "5 E", "", "ZN_MountPartition create stdout pipe error: 5"},
        {"diskpart cannot start", 2, 0, 0, L'E', "CreateProcessW", "5 E", "", "ZN_MountPartition run diskpart error: 5"},
        {"removing a non-letter", 2, 1, 0, L'1', nullptr, "87 1", "", "ZN_MountPartition refused: drive letter is missing or not valid"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ToolDouble tools;
        tools.OnLine("diskpart", "list partition", kPartitions).OnLine("diskpart", "detail partition", c.volume);
        disktest::Machine machine;
        machine.drives = c.drives;
        std::unique_ptr<wrtest::ImportHook> fault;
        if (c.failing) fault = std::make_unique<wrtest::ImportHook>("KERNEL32.dll", c.failing, reinterpret_cast<void*>(&Fail));
        wrtest::LogCapture log;
        WCHAR letter = c.letter;

        const DWORD result = ZN_MountPartition(0, c.partition, &letter, c.remove);
        EXPECT_EQ(c.answer, std::to_string(result) + " " + char(letter));
        auto diskpart = tools.Commands("diskpart");
        for (const auto& line : tools.Lines("diskpart")) diskpart.push_back(line);
        EXPECT_EQ(c.diskpart, disktest::Join(diskpart));
        EXPECT_TRUE(c.log.empty() || log.Has(wrtest::Tagged(c.log))) << c.log;  // diskpart's answers come around it
    }
    EXPECT_EQ(87u, ZN_MountPartition(0, 1, nullptr, 0)) << "no place for the letter";
}

}  // namespace
