// The frame's internals on data and pipes the test owns: size text and comparison, bounded
// formatting, the log file's lines, console sessions.
#include <gtest/gtest.h>

#include <functional>
#include <regex>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/process.h"
#include "frame/text.h"
#include "support/log_capture.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

namespace {

TEST(TranslateSize, UnitsBoundsAndRefusals) {
    // text: the buffer afterwards, nullptr when untouched; the character behind its end stays '#'.
    const struct { LONGLONG bytes; DWORD capacity; int result; const wchar_t* text; } cases[] = {
        {1, 64, 6, L"1.00 B"}, {1023, 64, 9, L"1023.00 B"}, {1024, 64, 6, L"1.00 K"}, {1536, 64, 6, L"1.50 K"},
        {1048575, 64, 9, L"1024.00 K"}, {1048576, 64, 6, L"1.00 M"}, {3221225472LL, 64, 6, L"3.00 G"},
        {1LL << 40, 64, 6, L"1.00 T"}, {1LL << 62, 64, 12, L"4194304.00 T"},
        {0, 2, 0, L"0"}, {0, 1, -1, nullptr}, {5, 0, -1, nullptr},  // "0" whatever the capacity, if it fits
        {-5, 8, -1, L""}, {3221225472LL, 4, -1, L"3.0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        wchar_t text[64];
        wmemset(text, L'#', 64);
        EXPECT_EQ(c.result, ZN_TranslateSize(c.bytes, text, c.capacity));
        const std::wstring expected = c.text ? std::wstring(c.text) + L'\0' + L'#' : L"#";
        EXPECT_EQ(expected, std::wstring(text, expected.size()));
    }
    EXPECT_EQ(-1, ZN_TranslateSize(5, nullptr, 8));
}

TEST(CompareText, NarrowAndWideAgree) {
    const struct { const char *first, *second; int matchTail, expected; } cases[] = {
        {"C:\\Windows", "c:\\windows", 0, 0},     {"C:\\Windows", "c:\\windows\\system32", 0, -1},
        {"c:\\windows\\system32", "C:\\Windows", 0, 1}, {"system32", "C:\\Windows\\System32", 0, 15},
        {"system32", "C:\\Windows\\System32", 1, -1},   {"C:\\Windows\\System32", "SYSTEM32", 1, 1},
        {"C:\\Windows\\System32", "SYSTEM32", 0, 15},   {"abcd", "abce", 1, 15}, {"", "anything", 0, -1},
        {"anything", "", 1, 1}, {"", "", 0, 0}, {"xyz", "abcdef", 1, 15}, {nullptr, "a", 1, 15}, {"a", nullptr, 1, 15},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.first ? c.first : "null") + " | " + (c.second ? c.second : "null"));
        EXPECT_EQ(c.expected, ZN_CompareStringA(c.first, c.second, c.matchTail));
        const std::wstring f = c.first ? std::wstring(c.first, c.first + strlen(c.first)) : L"";
        const std::wstring s = c.second ? std::wstring(c.second, c.second + strlen(c.second)) : L"";
        EXPECT_EQ(c.expected, ZN_CompareStringW(c.first ? f.c_str() : nullptr, c.second ? s.c_str() : nullptr,
                                                c.matchTail));
    }
}

TEST(BoundedFormat, CutsAtItsFixedCapacity) {
    wchar_t path[300], small[30];
    wmemset(path, L'#', 300), wmemset(small, L'#', 30);
    FormatPathW(path, L"%s\\x", std::wstring(400, L'p').c_str());
    FormatShortW(small, L"%c:\\%s", L'S', L"0123456789012345678901234");
    EXPECT_EQ(std::wstring(259, L'p') + L'\0' + L'#', std::wstring(path, 261));
    EXPECT_EQ(L"S:\\0123456789012345" + std::wstring(1, L'\0') + L'#', std::wstring(small, 21));
}

const std::wstring kPath = wrtest::ExeDir() + L"\\log-unit.log";

// What reaches the debugger, caught from the exception OutputDebugStringA raises.
std::vector<std::string> g_debugger;
LONG CALLBACK CatchDebugPrint(EXCEPTION_POINTERS* ep) {
    const auto* rec = ep->ExceptionRecord;
    if (rec->ExceptionCode == DBG_PRINTEXCEPTION_C)
        g_debugger.push_back(reinterpret_cast<const char*>(rec->ExceptionInformation[1]));
    return rec->ExceptionCode == DBG_PRINTEXCEPTION_C || rec->ExceptionCode == 0x4001000A /* wide print */
               ? EXCEPTION_CONTINUE_EXECUTION
               : EXCEPTION_CONTINUE_SEARCH;
}

TEST(LogFile, LinesSizeLimitAndCutsAndTheDebuggerHearsThem) {
    PVOID handler = AddVectoredExceptionHandler(1, CatchDebugPrint);
    SYSTEMTIME now;
    GetLocalTime(&now);
    char today[16];
    _snprintf_s(today, sizeof today, _TRUNCATE, "\\[%.4d-%.2d-%.2d", now.wYear, now.wMonth, now.wDay);
    // Every line's timestamp of today reads "[T]" in `after`.
    const std::regex stamp(std::string(today) + " \\d\\d:\\d\\d:\\d\\d\\]");
    const std::string x2M(0x200000, 'x');
    const struct { const char* name; std::string before; std::function<void()> log; std::string after; } cases[] = {
        {"narrow", "", [] { LogA("%s open %s error: %d", "ZN_Test", "C:\\x", 5); },
         "[T]  [Wrenkit] ZN_Test open C:\\x error: 5\r\n"},
        {"wide, outside the code page", "", [] { LogW(L"%s \u4e2d %S", L"wide", "narrow"); },
         "[T]  [Wrenkit] wide ? narrow\r\n"},
        {"2 MiB is kept", x2M, [] { LogA("after"); }, x2M + "[T]  [Wrenkit] after\r\n"},
        {"beyond 2 MiB it is emptied", x2M + "x", [] { LogA("after"); }, "[T]  [Wrenkit] after\r\n"},
        {"1023 bytes keep the line end", "", [] { LogA("%s", std::string(988, 'b').c_str()); },
         "[T]  [Wrenkit] " + std::string(988, 'b') + "\r\n"},
        {"a longer line is cut and loses it", "", [] { LogA("%s", std::string(2000, 'a').c_str()), LogA("next"); },
         "[T]  [Wrenkit] " + std::string(990, 'a') + "[T]  [Wrenkit] next\r\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(wrtest::WriteFileBytes(kPath, c.before));
        wrenkits::OpenLogFile(wrtest::Narrow(kPath).c_str());
        ASSERT_TRUE(wrenkits::LogIsOpen());
        c.log();
        wrenkits::CloseLog();
        const std::string after = std::regex_replace(wrtest::ReadFileBytes(kPath), stamp, "[T]");
        EXPECT_TRUE(after == c.after) << after.size() << ": " << after.substr(0, 80);
    }
    RemoveVectoredExceptionHandler(handler);
    DeleteFileW(kPath.c_str());
    EXPECT_EQ("[Wrenkit] ZN_Test open C:\\x error: 5", g_debugger.at(0));  // the debugger hears it too
}

TEST(ReadToPrompt, StopsAtEachPromptWithinTheBuffer) {
    // reads: the buffer size given and the answer; the byte behind that size stays untouched.
    const struct { std::string bytes; bool ended; std::vector<std::pair<size_t, std::string>> reads; } cases[] = {
        {"C:\\> dir a > b\r\nC:\\>", false, {{64, "C:\\>"}, {64, " dir a >"}, {64, " b\r\nC:\\>"}}},
        {"abcdefg>", false, {{4, "abc"}, {8, "defg>"}}},
        {"no prompt", true, {{32, "no prompt"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        HANDLE read = nullptr, write = nullptr;
        ASSERT_TRUE(CreatePipe(&read, &write, nullptr, 0));
        DWORD written = 0;
        WriteFile(write, c.bytes.data(), DWORD(c.bytes.size()), &written, nullptr);
        if (c.ended) CloseHandle(write);
        for (const auto& [size, answer] : c.reads) {
            char buffer[72];
            memset(buffer, 0x7f, sizeof buffer);
            wrenkits::ReadToPrompt(read, buffer, size);
            EXPECT_EQ(answer, buffer);
            EXPECT_EQ(0x7f, buffer[size]) << "written past the given size";
        }
        CloseHandle(read);
        if (!c.ended) CloseHandle(write);
    }
}

TEST(Session, TalksToAToolAndEndsItWhetherItLeavesOrNot) {
    for (bool hangs : {false, true}) {
        wrtest::ToolDouble tools;
        tools.OnLine("diskpart", "list disk", "\r\n  Disk 0 > b\r\n");
        if (hangs) tools.HangOnExit("diskpart");  // the test main fails a test that leaves it running
        {
            wrenkits::ConsoleSession session("ZN_Test", wrenkits::SessionExit::Always);
            ASSERT_TRUE(session.Open(L"diskpart.exe", nullptr, 4096).ok());
            EXPECT_STREQ("\r\nDouble DiskPart\r\n\r\nDISKPART>", session.Answer());
            EXPECT_EQ(0u, session.Send("list disk\r\n"));
            EXPECT_STREQ(" \r\n  Disk 0 >", session.Answer());
            EXPECT_EQ(0u, session.Send(nullptr));  // only collects the rest
            EXPECT_STREQ(" b\r\nDISKPART>", session.Answer());
        }
        EXPECT_EQ((std::vector<std::string>{"list disk", "exit"}), tools.Lines("diskpart"));
    }
}

}  // namespace
