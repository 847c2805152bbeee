// Row numbers read from diskpart's tables as the tool prints them.
#include <gtest/gtest.h>

#include "disk/disk_volumes.h"

namespace {

const char kPartitions[] =
    "\r\n  Partition ###  Type              Size     Offset\r\n"
    "  -------------  ----------------  -------  -------\r\n"
    "  Partition 1    System             100 MB  1024 KB\r\n"
    "  Partition 2    Primary             49 GB   101 MB\r\n"
    "  Partition 4    Recovery           522 MB    49 GB\r\n\r\nDISKPART>";
const char kGermanVolume[] =
    "\r\nPartition 2\r\nTyp         : 07\r\nVersteckt   : Nein\r\nAktiv       : Nein\r\n"
    "Offset in Byte: 105906176\r\n\r\n"
    "  Volume ###  Bst  Bezeichnung  DS     Typ         Größe    Status     Info\r\n"
    "  ----------  ---  -----------  -----  ----------  -------  ---------  --------\r\n"
    "* Volume 3     C                NTFS   Partition     49 GB  Fehlerfre  Startpar\r\n\r\nDISKPART>";

TEST(ParseListingNumber, ReadsTheFirstNumberOfTheSelectedRow) {
    struct Case {
        const char* name;
        const char* answer;
        unsigned row;
        int number;
    } cases[] = {
        {"row 0 is the first row", kPartitions, 0, 1},
        {"row 1 is the first row too", kPartitions, 1, 1},
        {"rows count lines, not partition numbers", kPartitions, 3, 4},
        {"beyond the rows", kPartitions, 4, -1},
        {"far beyond the rows", kPartitions, 0xFFFFFFFF, -1},
        {"asterisk and word passed over, any language", kGermanVolume, 0, 3},
        {"no table", "\r\nThere is no volume associated with this partition.\r\n\r\nDISKPART>", 0, -1},
        {"a number ending its line is none; the search runs on", "--------\r\n  abc 7\r\n  x 9 y\r\n", 1, 9},
        {"underline at the very end", "  ###\r\n  ------", 0, -1},
        {"no text", nullptr, 0, -1},
    };
    for (const auto& c : cases) EXPECT_EQ(c.number, wrenkits::ParseListingNumber(c.answer, c.row)) << c.name;
}

}  // namespace
