// The directory record converters, on records whose every field holds a different value.
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

// Layouts 1 and 2 share their head: field n holds n, the fourth 16-bit field 0x0f.
template <typename Older>
Older Older12(DWORD attributes) {
    auto r = Poisoned<Older>();
    r.C1 = 1, r.C2 = attributes, r.C3 = 3, r.C4 = 4, r.C5 = 5, r.C6 = 6, r.C7 = 7, r.C8 = 8, r.C9 = 9, r.C10 = 10;
    r.C11 = 11, r.C12 = 12, r.C13 = 13, r.C14 = 14, r.C15 = 0x0f;
    return r;
}

DirEntryRecord Entry() {
    auto e = Poisoned<DirEntryRecord>();
    e.E1 = 1, e.E2 = 16, e.E3 = 3, e.E4 = 4, e.E5 = 5, e.E6 = 6, e.E7 = 7, e.E8 = 0x88, e.E9 = 0x99, e.E10 = 10;
    e.E11 = 11, e.E12 = 12, e.E13 = 13, e.E14 = 14, e.E15 = 15, e.E16 = 16, e.E17 = 0x17, e.E19 = 0x1919, e.E20 = 20;
    wcscpy(e.E18, L"FOLDER~1"), wcscpy(e.E21, L"folder");
    return e;
}

std::string Text(const wchar_t* s, size_t n) { return wmemchr(s, 0, n) ? "'" + std::string(s, s + wcslen(s)) + "'" : "?"; }

// Every field of an entry record; "untouched" for a record still all poison.
std::string Show(const DirEntryRecord& e) {
    const auto poison = Poisoned<DirEntryRecord>();
    if (!memcmp(&e, &poison, sizeof e)) return "untouched";
    char out[256];
    snprintf(out, sizeof out, "%lu %lu %llu %llu %llu | %lu %lu %lx %lx %lu %lu %lu %lu | %u %u %u %x | %s %llx %u %s", e.E1,
             e.E2, e.E3, e.E4, e.E5, e.E6, e.E7, e.E8, e.E9, e.E10, e.E11, e.E12, e.E13, e.E14, e.E15, e.E16, e.E17,
             Text(e.E18, 14).c_str(), e.E19, e.E20, Text(e.E21, 260).c_str());
    return out;
}

// Layout 1 to the entry record; the round trip shows the older record's fourth 16-bit field too.
std::string FromLayout1(DWORD attributes, const wchar_t* name, DWORD& result, bool back = false) {
    auto c = Older12<DirDataRecord>(attributes);
    c.C16 = 16, wcsncpy(c.C17, name, 260);
    auto e = Poisoned<DirEntryRecord>();
    result = ZN_CopyDirData(&c, &e, TRUE);
    if (back) result |= ZN_CopyDirData(&c, &e, FALSE);
    return Show(e) + (back ? " / C15 " + std::to_string(c.C15) + " C17 " + Text(c.C17, 260) : "");
}

// The entry record to layout 2 or 3 and back into a fresh entry record.
template <typename Older, typename Convert>
std::string ThroughOlder(Convert convert, DWORD& result, bool twice = false) {
    auto c = Poisoned<Older>();
    auto e = Entry(), back = Poisoned<DirEntryRecord>();
    result = convert(&c, &e, FALSE);
    const Older first = c;
    result |= convert(&c, &back, TRUE);
    if (twice) result |= convert(&c, &back, FALSE);
    return Show(back) + (twice && memcmp(&first, &c, sizeof c) ? " changed" : "");
}

TEST(CopyDirData, ConvertersMoveEveryFieldToItsPlace) {
    DWORD r = 0xdeadbeef;
    const auto nulls = [](DWORD& r) {
        auto c = Poisoned<DirDataRecord>();
        auto e = Poisoned<DirEntryRecord>();
        r = ZN_CopyDirData(nullptr, &e, TRUE) | ZN_CopyDirData(&c, nullptr, FALSE) | ZN_CopyDirDataX(nullptr, &e, TRUE) |
            ZN_CopyDirDataX2(nullptr, &e, TRUE);
        return Show(e);
    };
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
        {"entry to layout 2 and back: E8, E9, E19 dropped, short name and E20 carried",
         ThroughOlder<DirDataXRecord>(ZN_CopyDirDataX, r), r,
         "1 16 3 4 5 | 6 7 6 a 10 11 12 13 | 14 15 16 117 | 'FOLDER~1' bdbdbdbdbdbdbdbd 20 'folder'"},
        {"layout 3 round trip changes nothing; towards the entry E19 is 0 and E17 unmarked",
         ThroughOlder<DirDataX2Record>(ZN_CopyDirDataX2, r, true), r,
         "1 16 3 4 5 | 6 7 88 99 10 11 12 13 | 14 15 16 17 | 'FOLDER~1' 0 20 'folder'"},
        {"null pointers: 87, nothing written", nulls(r), r, "untouched", 87},
        {"a name without its terminator: 206, nothing written", FromLayout1(16, unterminated.c_str(), r), r, "untouched",
         206},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, c.shown);
        EXPECT_EQ(c.expectedResult, c.result);
    }
}

}  // namespace
