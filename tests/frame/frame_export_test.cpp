// One-shot runs, console-session failures and the library's lifetime, through the real DLL.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/import_hook.h"
#include "support/secproc_fakes.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

namespace {

using Lines = std::vector<std::string>;
const std::wstring kCmd = wrtest::SystemDir() + L"\\cmd.exe", kEditor = wrtest::SystemDir() + L"\\bcdedit.exe";
const std::wstring kCmd4 = kCmd + L" /c exit 4", kFits(519 - kEditor.size() - 1, L'a'), kTooLong = kFits + L"a";

std::string Text(const wchar_t* w) { return w ? wrtest::Narrow(w) : ""; }

TEST(RunProcess, WideAndNarrowTwinsAgree) {
    // log: lines after the export's own name; the editor double answers 7.
    const struct { const wchar_t *program, *arguments; BOOL wait; DWORD result; Lines log; size_t runs; } cases[] = {
        {kCmd.c_str(), L"/c exit 0", 1, 0, {}, 0},
        {kCmd.c_str(), L"/c exit 3", 1, 3, {" process " + Text(kCmd.c_str()) + " /c exit 3 result: 3"}, 0},
        {kCmd4.c_str(), L"", 1, 4, {" process " + Text(kCmd.c_str()) + " /c exit 4 result: 4"}, 0},
        {kEditor.c_str(), L"/enum", 0, 0, {}, 1},  // the exit code 7 is never looked at
        {L"C:\\no\\such.exe", L"/x", 1, 2, {" create process C:\\no\\such.exe /x error: 2"}, 0},
        {L"", L"C:\\no\\tool.exe", 1, 2, {" create process  C:\\no\\tool.exe error: 2"}, 0},  // behind a blank
        {L"", nullptr, 1, 87, {}, 0}, {L"", L"", 1, 87, {}, 0}, {nullptr, L"/c exit 1", 1, 87, {}, 0},
        {kEditor.c_str(), kFits.c_str(), 1, 0, {}, 1},
        {kEditor.c_str(), kTooLong.c_str(), 1, 206, {" refused: command line is longer than 519 characters"}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Text(c.program) + " | " + Text(c.arguments).substr(0, 20));
        for (const char* name : {"ZN_RunProcess", "ZN_RunProcessA"}) {
            wrtest::ToolDouble tools;
            tools.OnCommand("bcdedit", "/enum", "7");
            wrtest::LogCapture log;
            const std::string program = Text(c.program), arguments = Text(c.arguments);
            const char* narrow[] = {c.program ? program.c_str() : nullptr, c.arguments ? arguments.c_str() : nullptr};
            EXPECT_EQ(c.result, std::string(name).back() == 'A' ? ZN_RunProcessA(narrow[0], narrow[1], c.wait)
                                                                 : ZN_RunProcess(c.program, c.arguments, c.wait));
            EXPECT_TRUE(c.wait || wrtest::ToolDouble::WaitForExit("bcdedit", 10000));
            EXPECT_EQ(c.runs ? Lines{Text(c.arguments)} : Lines{}, tools.Arguments("bcdedit"));
            Lines expected;
            for (const auto& line : c.log) expected.push_back(name + line);
            wrtest::ExpectLog(log, expected);
        }
    }
}

// Fails the n-th CreatePipe, every CreateProcessW, the answer buffer's allocation, or the
// write of diskpart's first command; everything else passes through.
int g_pipeCalls, g_failPipe;
BOOL WINAPI FailPipe(PHANDLE r, PHANDLE w, LPSECURITY_ATTRIBUTES sa, DWORD size) {
    return ++g_pipeCalls == g_failPipe ? (SetLastError(ERROR_ACCESS_DENIED), FALSE) : CreatePipe(r, w, sa, size);
}
BOOL WINAPI FailCreate() { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }
LPVOID WINAPI FailBigAlloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
    return bytes >= 0x100000 ? nullptr : HeapAlloc(heap, flags, bytes);
}
BOOL WINAPI FailSelect(HANDLE file, LPCVOID data, DWORD bytes, LPDWORD written, LPOVERLAPPED overlapped) {
    if (bytes > 4 && memcmp(data, "sel ", 4) == 0) return SetLastError(ERROR_NO_DATA), FALSE;
    return WriteFile(file, data, bytes, written, overlapped);
}

TEST(ConsoleSession, EachStepFailsWithItsUsersResult) {
    // diskpart's user passes the failed step's code on; the interpreter's always says 87.
    // log: among the session's own lines (the command keeps its line end in its message).
    const struct { const char* hook; int pipe; bool diskpart; DWORD result; std::string log; Lines lines; } cases[] = {
        {"CreatePipe", 1, true, 5, "ZN_MountPartition create stdout pipe error: 5", {}},
        {"CreatePipe", 2, true, 5, "ZN_MountPartition create stdin pipe error: 5", {}},
        {"CreateProcessW", 0, true, 5, "ZN_MountPartition run diskpart error: 5", {}},
        {"HeapAlloc", 0, true, 8, "ZN_MountPartition new buffer error: 8", {"exit"}},
        {"WriteFile", 0, true, 29, "WriteCmd write sel disk 0", {"exit"}},
        {"CreatePipe", 1, false, 87, "CopyBootMgr create stdout pipe error: 5", {}},
        {"CreatePipe", 2, false, 87, "CopyBootMgr create stdin pipe error: 5", {}},
        {"CreateProcessW", 0, false, 87, "CopyBootMgr run cmd error: 5", {}},
        {"HeapAlloc", 0, false, 87, "CopyBootMgr new buffer error: 8", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.log);
        g_pipeCalls = 0, g_failPipe = c.pipe;
        void* fake = c.pipe ? (void*)FailPipe : c.hook[0] == 'H' ? (void*)FailBigAlloc
                                             : c.hook[0] == 'W' ? (void*)FailSelect : (void*)FailCreate;
        wrtest::ToolDouble tools;
        wrtest::LogCapture log;
        {
            wrtest::ImportHook hook("KERNEL32.dll", c.hook, fake);
            WCHAR letter = L'E', id[MAX_PATH] = L"untouched";
            EXPECT_EQ(c.result, c.diskpart ? ZN_MountPartition(0, 2, &letter, 0) : ZN_AddEfiEntry(7, 0, id));
            EXPECT_STREQ(L"untouched", id);
        }
        EXPECT_EQ(c.lines, tools.Lines("diskpart"));
        EXPECT_TRUE(log.Has(wrtest::Tagged(c.log)));
    }
}

// Records which files the DLL closes.
std::vector<std::wstring> g_closed;
BOOL WINAPI RecordClose(HANDLE handle) {
    wchar_t name[MAX_PATH] = {};
    if (GetFinalPathNameByHandleW(handle, name, MAX_PATH, 0)) g_closed.push_back(name);
    return CloseHandle(handle);
}
DWORD WINAPI Idle(LPVOID) { return 0; }

TEST(Lifetime, ThreadsLeaveTheLogOpenAndDetachClosesIt) {
    const std::wstring copy = wrtest::ExeDir() + L"\\wrenkits-lifetime.dll";
    ASSERT_TRUE(CopyFileW((wrtest::ExeDir() + L"\\Wrenkits.dll").c_str(), copy.c_str(), FALSE));
    HMODULE module = LoadLibraryW(copy.c_str());  // a second instance, opening QRB.log itself
    ASSERT_NE(nullptr, module);
    g_closed.clear();
    ASSERT_NE(nullptr, wrtest::PatchImport(module, "KERNEL32.dll", "CloseHandle", (void*)RecordClose));
    HANDLE thread = CreateThread(nullptr, 0, Idle, nullptr, 0, nullptr);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 10000));
    CloseHandle(thread);
    EXPECT_EQ(std::vector<std::wstring>{}, g_closed) << "closed on a thread notification";
    FreeLibrary(module);
    ASSERT_EQ(1u, g_closed.size());
    EXPECT_EQ(L"\\QRB.log", g_closed[0].substr(g_closed[0].size() - 8));
    DeleteFileW(copy.c_str());
}

TEST(Lifetime, TheLogBesideTheHostIsUsedButNeverCreated) {
    const std::wstring folder = L"C:\\wrenkits-lifetime", log = folder + L"\\QRB.log";
    const struct { bool present; std::string content; } cases[] = {
        {true, "]  [Wrenkit] ZN_RunProcess create process C:\\no\\such.exe error: 2\r\n"}, {false, ""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.present);
        wrtest::RemoveTree(folder);
        wrtest::MakeDirs(folder);
        for (const wchar_t* file : {L"\\wrenkit.exe", L"\\Wrenkits.dll"})
            ASSERT_TRUE(CopyFileW((wrtest::ExeDir() + file).c_str(), (folder + file).c_str(), FALSE));
        if (c.present) wrtest::WriteFileBytes(log, "");
        // The host's copy of the DLL logs beside the host, if at all.
        EXPECT_EQ(2u, ZN_RunProcess((folder + L"\\wrenkit.exe run C:\\no\\such.exe").c_str(), nullptr, 1));
        EXPECT_EQ(c.present, wrtest::FileExists(log));
        const std::string written = wrtest::ReadFileBytes(log);
        EXPECT_EQ(c.content, written.substr(std::min<size_t>(written.size(), 20)));
    }
    wrtest::RemoveTree(folder);
}

}  // namespace
