// Size translation, prefix/suffix comparison and bounded formatting on plain data.
#include <gtest/gtest.h>

#include <string>

#include "Wrenkits.h"
#include "frame/text.h"

namespace {

TEST(TranslateSize, PicksTheLargestUnitBelow1024) {
    struct Case {
        LONGLONG bytes;
        const wchar_t* text;
    } cases[] = {
        {1, L"1.00 B"},
        {500, L"500.00 B"},
        {1023, L"1023.00 B"},
        {1024, L"1.00 K"},
        {1536, L"1.50 K"},
        {1048575, L"1024.00 K"},
        {1048576, L"1.00 M"},
        {3221225472LL, L"3.00 G"},
        {1099511627776LL, L"1.00 T"},
        {1LL << 50, L"1024.00 T"},
        {1LL << 62, L"4194304.00 T"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        wchar_t text[64];
        wmemset(text, L'#', 64);
        EXPECT_EQ(static_cast<int>(wcslen(c.text)), ZN_TranslateSize(c.bytes, text, 64));
        EXPECT_STREQ(c.text, text);
    }
}

TEST(TranslateSize, ZeroIsWrittenAsIsWhateverTheCapacity) {
    wchar_t text[4] = {L'#', L'#', L'#', L'#'};
    EXPECT_EQ(0, ZN_TranslateSize(0, text, 2));
    EXPECT_STREQ(L"0", text);
    EXPECT_EQ(L'#', text[2]);
}

TEST(TranslateSize, RefusesWhatItCannotWriteSafely) {
    wchar_t text[8];
    wmemset(text, L'#', 8);
    EXPECT_EQ(-1, ZN_TranslateSize(-5, text, 8)) << "negative sizes have no unit";
    EXPECT_EQ(L'\0', text[0]);
    EXPECT_EQ(-1, ZN_TranslateSize(5, nullptr, 8));
    EXPECT_EQ(-1, ZN_TranslateSize(0, nullptr, 8));
    wmemset(text, L'#', 8);
    EXPECT_EQ(-1, ZN_TranslateSize(0, text, 1)) << "\"0\" needs two characters";
    EXPECT_EQ(L'#', text[0]);
    EXPECT_EQ(-1, ZN_TranslateSize(5, text, 0));
    EXPECT_EQ(L'#', text[0]);
}

TEST(TranslateSize, TooSmallBufferStaysTerminatedWithinItsCapacity) {
    wchar_t text[8];
    wmemset(text, L'#', 8);
    EXPECT_LT(ZN_TranslateSize(3221225472LL, text, 4), 0);
    EXPECT_EQ(L'\0', text[3]);
    EXPECT_EQ(L'#', text[4]);
}

struct CompareCase {
    const char* first;
    const char* second;
    int matchTail;
    int expected;
};

const CompareCase kCompareCases[] = {
    {"C:\\Windows", "c:\\windows", 0, 0},
    {"C:\\Windows", "c:\\windows\\system32", 0, -1},
    {"c:\\windows\\system32", "C:\\Windows", 0, 1},
    {"system32", "C:\\Windows\\System32", 0, 15},
    {"system32", "C:\\Windows\\System32", 1, -1},
    {"C:\\Windows\\System32", "SYSTEM32", 1, 1},
    {"C:\\Windows\\System32", "SYSTEM32", 0, 15},
    {"abcd", "abce", 0, 15},
    {"abcd", "abce", 1, 15},
    {"", "anything", 0, -1},
    {"anything", "", 1, 1},
    {"", "", 0, 0},
    {"xyz", "abcdef", 1, 15},
};

TEST(CompareText, NarrowAndWideAgree) {
    for (const auto& c : kCompareCases) {
        SCOPED_TRACE(std::string(c.first) + " | " + c.second);
        EXPECT_EQ(c.expected, ZN_CompareStringA(c.first, c.second, c.matchTail));
        std::wstring f(c.first, c.first + strlen(c.first)), s(c.second, c.second + strlen(c.second));
        EXPECT_EQ(c.expected, ZN_CompareStringW(f.c_str(), s.c_str(), c.matchTail));
    }
}

TEST(CompareText, NullIsNoMatch) {
    EXPECT_EQ(15, ZN_CompareStringA(nullptr, "a", 1));
    EXPECT_EQ(15, ZN_CompareStringW(L"a", nullptr, 1));
}

TEST(BoundedFormat, CutsAtItsFixedCapacity) {
    wchar_t path[300];
    wmemset(path, L'#', 300);
    const std::wstring longText(400, L'p');
    FormatPathW(path, L"%s\\x", longText.c_str());
    EXPECT_EQ(259u, wcslen(path));
    EXPECT_EQ(L'#', path[260]);

    wchar_t small[30];
    wmemset(small, L'#', 30);
    FormatShortW(small, L"%c:\\%s", L'S', L"0123456789012345678901234");
    EXPECT_EQ(19u, wcslen(small));
    EXPECT_EQ(L'#', small[20]);
}

TEST(DriveLetter, OnlyAsciiLettersCount) {
    for (unsigned c : {'a', 'z', 'A', 'Z', 'm'}) EXPECT_TRUE(wrenkits::IsDriveLetter(c)) << c;
    for (unsigned c : {0u, unsigned('1'), unsigned('@'), unsigned('['), unsigned('`'), unsigned('{'), 0xC4u, 0x141u,
                       0x10041u})
        EXPECT_FALSE(wrenkits::IsDriveLetter(c)) << c;
    EXPECT_EQ(L'S', wrenkits::UpperLetter(L's'));
    EXPECT_EQ(L'1', wrenkits::UpperLetter(L'1'));
}

}  // namespace
