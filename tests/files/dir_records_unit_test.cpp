// The directory record converters, on records whose every field holds a different value.
#include <gtest/gtest.h>

#include <string.h>

#include <functional>
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

std::string Text(const wchar_t* s, size_t n) { return wmemchr(s, 0, n) ? "'" + std::string(s, s + wcslen(s)) + "'" : "<unterminated>"; }

std::string Show(const DirEntryRecord& e) {
    char out[256];
    snprintf(out, sizeof out, "%lu %lu %llu %llu %llu | %lu %lu %lx %lx %lu %lu %lu %lu | %u %u %u %x | %s %llx %u %s", e.E1,
             e.E2, e.E3, e.E4, e.E5, e.E6, e.E7, e.E8, e.E9, e.E10, e.E11, e.E12, e.E13, e.E14, e.E15, e.E16, e.E17,
             Text(e.E18, 14).c_str(), e.E19, e.E20, Text(e.E21, 260).c_str());
    return out;
}
std::string Show(const DirDataRecord& c) {
    char out[256];
    snprintf(out, sizeof out, "%lu %lu %llu %llu %llu | %lu %lu %lu %lu %lu %lu | %u %u %u %x %u %s", c.C1, c.C2, c.C3,
             c.C4, c.C5, c.C6, c.C7, c.C8, c.C9, c.C10, c.C11, c.C12, c.C13, c.C14, c.C15, c.C16,
             Text(c.C17, 260).c_str());
    return out;
}

struct ConvertCase {
    const char* name;
    std::function<std::string(DWORD&)> convert;  // runs the converter, shows the record written
    DWORD result;
    std::string shown;
};

TEST(CopyDirData, ConvertersMoveEveryFieldToItsPlace) {
    const ConvertCase cases[] = {
        {"layout 1 folder: E8/E9 repeat C6/C8, 0x100 added, no short name, E19 untouched",
         [](DWORD& r) {
             auto c = Older12<DirDataRecord>(16);
             c.C16 = 16, wcscpy(c.C17, L"folder");
             auto e = Poisoned<DirEntryRecord>();
             r = ZN_CopyDirData(&c, &e, TRUE);
             return Show(e);
         },
         0, "1 16 3 4 5 | 6 7 6 8 8 9 10 11 | 12 13 14 10f | '' bdbdbdbdbdbdbdbd 16 'folder'"},
        {"layout 1 file: E8 and E9 stay 0",
         [](DWORD& r) {
             auto c = Older12<DirDataRecord>(FILE_ATTRIBUTE_ARCHIVE);
             c.C16 = 16, wcscpy(c.C17, L"a.txt");
             auto e = Poisoned<DirEntryRecord>();
             r = ZN_CopyDirData(&c, &e, TRUE);
             return Show(e);
         },
         0, "1 32 3 4 5 | 6 7 0 0 8 9 10 11 | 12 13 14 10f | '' bdbdbdbdbdbdbdbd 16 'a.txt'"},
        {"layout 1 round trip: the fourth 16-bit field comes back with 0x100",
         [](DWORD& r) {
             auto c = Older12<DirDataRecord>(16);
             c.C16 = 16, wcscpy(c.C17, L"folder");
             auto e = Poisoned<DirEntryRecord>();
             r = ZN_CopyDirData(&c, &e, TRUE) | ZN_CopyDirData(&c, &e, FALSE);
             return Show(c);
         },
         0, "1 16 3 4 5 | 6 7 8 9 10 11 | 12 13 14 10f 16 'folder'"},
        {"entry to layout 2: E8, E9, E19 dropped, short name and E20 carried",
         [](DWORD& r) {
             auto c = Poisoned<DirDataXRecord>();
             auto e = Entry();
             r = ZN_CopyDirDataX(&c, &e, FALSE);
             auto back = Poisoned<DirEntryRecord>();
             ZN_CopyDirDataX(&c, &back, TRUE);
             return Show(back);
         },
         0, "1 16 3 4 5 | 6 7 6 a 10 11 12 13 | 14 15 16 117 | 'FOLDER~1' bdbdbdbdbdbdbdbd 20 'folder'"},
        {"layout 3 round trip changes nothing; towards the entry E19 is 0 and E17 unmarked",
         [](DWORD& r) {
             auto c = Poisoned<DirDataX2Record>();
             auto e = Entry();
             r = ZN_CopyDirDataX2(&c, &e, FALSE);
             const auto before = c;
             auto back = Poisoned<DirEntryRecord>();
             r |= ZN_CopyDirDataX2(&c, &back, TRUE) | ZN_CopyDirDataX2(&c, &back, FALSE);
             return Show(back) + (memcmp(&before, &c, sizeof c) ? " changed" : " same");
         },
         0, "1 16 3 4 5 | 6 7 88 99 10 11 12 13 | 14 15 16 17 | 'FOLDER~1' 0 20 'folder' same"},
        {"null pointers: 87, nothing written",
         [](DWORD& r) {
             auto c = Poisoned<DirDataRecord>();
             auto e = Poisoned<DirEntryRecord>();
             r = ZN_CopyDirData(nullptr, &e, TRUE) | ZN_CopyDirData(&c, nullptr, FALSE) |
                 ZN_CopyDirDataX(nullptr, &e, TRUE) | ZN_CopyDirDataX2(nullptr, &e, TRUE) |
                 ZN_CopyDirDataX2(reinterpret_cast<DirDataX2Record*>(&c), nullptr, FALSE);
             return Show(e) == Show(Poisoned<DirEntryRecord>()) ? "untouched" : Show(e);
         },
         87, "untouched"},
        {"a name without its terminator: 206, nothing written",
         [](DWORD& r) {
             auto c = Older12<DirDataRecord>(16);
             wmemset(c.C17, L'n', 260);
             auto e = Poisoned<DirEntryRecord>();
             r = ZN_CopyDirData(&c, &e, TRUE);
             return Show(e) == Show(Poisoned<DirEntryRecord>()) ? "untouched" : Show(e);
         },
         206, "untouched"},
    };
    for (const ConvertCase& c : cases) {
        SCOPED_TRACE(c.name);
        DWORD result = 0xdeadbeef;
        EXPECT_EQ(c.shown, c.convert(result));
        EXPECT_EQ(c.result, result);
    }
}

}  // namespace
