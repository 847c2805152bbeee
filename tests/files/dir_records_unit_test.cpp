// The directory record converters, on records whose every field holds a different value,
// written into records filled with 0xbd so that an untouched field shows.
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "Wrenkits.h"

namespace {

template <typename T>
T Poisoned() {
    T r;
    memset(&r, 0xbd, sizeof r);
    return r;
}

std::string Text(const wchar_t* s, size_t n) { return wmemchr(s, 0, n) ? "'" + std::string(s, s + wcslen(s)) + "'" : "?"; }

// Every field of an entry record; "untouched" for a record still all poison.
std::string Show(const DirEntryRecord& e) {
    if (const auto poison = Poisoned<DirEntryRecord>(); !memcmp(&e, &poison, sizeof e)) return "untouched";
    char out[256];
    _snprintf_s(out, sizeof out, _TRUNCATE, "%lu %lu %llu %llu %llu | %lu %lu %lx %lx %lu %lu %lu %lu | %u %u %u %x | %s %llx %u %s",
                e.E1, e.E2, e.E3, e.E4, e.E5, e.E6, e.E7, e.E8, e.E9, e.E10, e.E11, e.E12, e.E13, e.E14, e.E15, e.E16,
                e.E17, Text(e.E18, 14).c_str(), e.E19, e.E20, Text(e.E21, 260).c_str());
    return out;
}

const DirEntryRecord kEntry = {1, 16, 3, 4, 5, 6, 7, 0x88, 0x99, 10, 11, 12, 13, 14, 15, 16, 0x17, L"FOLDER~1", 0x1919, 20, L"folder"};

// Layout 1 to a poisoned entry record and, where asked, back; the way back shows the
// older record's fourth 16-bit field and name too.
std::string FromLayout1(DWORD attributes, const wchar_t* name, DWORD& result, bool back = false) {
    DirDataRecord c = {1, attributes, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0x0f, 16, {}};
    wcsncpy(c.C17, name, 260);
    auto e = Poisoned<DirEntryRecord>();
    result = ZN_CopyDirData(&c, &e, TRUE) | (back ? ZN_CopyDirData(&c, &e, FALSE) : 0);
    return Show(e) + (back ? " / C15 " + std::to_string(c.C15) + " C17 " + Text(c.C17, 260) : "");
}

// The entry record to a poisoned layout 2 or 3 and back into a poisoned entry record;
// "changed" when a second trip out alters the older record.
template <typename Older>
std::string ThroughOlder(DWORD (*convert)(Older*, DirEntryRecord*, BOOL), DWORD& result) {
    auto c = Poisoned<Older>();
    auto e = kEntry, back = Poisoned<DirEntryRecord>();
    result = convert(&c, &e, FALSE);
    const Older first = c;
    result |= convert(&c, &back, TRUE) | convert(&c, &back, FALSE);
    return Show(back) + (memcmp(&first, &c, sizeof c) ? " changed" : "");
}

TEST(CopyDirData, ConvertersMoveEveryFieldToItsPlace) {
    DWORD r = 0xdeadbeef;
    auto c = Poisoned<DirDataRecord>();
    auto e = Poisoned<DirEntryRecord>();
    const DWORD nulls = ZN_CopyDirData(nullptr, &e, TRUE) | ZN_CopyDirData(&c, nullptr, FALSE) |
                        ZN_CopyDirDataX(nullptr, &e, TRUE) | ZN_CopyDirDataX2(nullptr, &e, TRUE);
    const std::wstring unterminated(260, L'n');
    const struct {
        const char* name;
        std::string shown;
        DWORD result;
        std::string expected;
        DWORD expectedResult = 0;
    } cases[] = {
        {"layout 1 folder: E8/E9 repeat C6/C8, 0x100 added, no short name, E19 untouched", FromLayout1(16, L"folder", r), r,
         "1 16 3 4 5 | 6 7 6 8 8 9 10 11 | 12 13 14 10f | '' bdbdbdbdbdbdbdbd 16 'folder'"},
        {"layout 1 file: E8 and E9 stay 0; round trip keeps the 0x100 bit", FromLayout1(32, L"a.txt", r, true), r,
         "1 32 3 4 5 | 6 7 0 0 8 9 10 11 | 12 13 14 10f | '' bdbdbdbdbdbdbdbd 16 'a.txt' / C15 271 C17 'a.txt'"},
        {"entry to layout 2 and back: E8, E9, E19 dropped, short name and E20 carried, the 0x100 mark kept on the way out",
         ThroughOlder<DirDataXRecord>(ZN_CopyDirDataX, r), r,
         "1 16 3 4 5 | 6 7 6 a 10 11 12 13 | 14 15 16 117 | 'FOLDER~1' bdbdbdbdbdbdbdbd 20 'folder' changed"},
        {"layout 3 round trip changes nothing; towards the entry E19 is 0 and E17 unmarked",
         ThroughOlder<DirDataX2Record>(ZN_CopyDirDataX2, r), r,
         "1 16 3 4 5 | 6 7 88 99 10 11 12 13 | 14 15 16 17 | 'FOLDER~1' 0 20 'folder'"},
        {"null pointers: 87, nothing written", Show(e), nulls, "untouched", 87},
        {"a name without its terminator: 206, nothing written", FromLayout1(16, unterminated.c_str(), r), r, "untouched",
         206},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.expected, row.shown);
        EXPECT_EQ(row.expectedResult, row.result);
    }
}

}  // namespace
