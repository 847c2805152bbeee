// Folder trees on a mapped drive: creation prefix by prefix, removal and copy of a
// tree with a read-only file and a junction, the emptiness test and ActiveX registration.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/files_offline.h"
#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

namespace {

using Lines = std::vector<std::string>;

Lines Logged(const wrtest::LogCapture& log) {
    Lines out;
    for (const std::string& m : log.Messages()) out.push_back(m.substr(10));
    return out;
}

// Creation attempts. The share \\nas\backup exists; below it a folder can be made once
// its parent is there, except under "denied".
Lines gAttempts;
std::set<std::wstring> gMade;
BOOL WINAPI FakeCreateDirectory(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
    gAttempts.push_back(wrtest::Narrow(path));
    const std::wstring p = path;
    if (p.rfind(L"\\\\", 0) != 0) return CreateDirectoryW(path, security);
    const std::wstring parent = p.substr(0, p.find_last_of(L'\\'));
    if (gMade.count(p)) return SetLastError(ERROR_ALREADY_EXISTS), FALSE;
    if (p.find(L"denied") != std::wstring::npos) return SetLastError(ERROR_ACCESS_DENIED), FALSE;
    if (parent != L"\\\\nas\\backup" && !gMade.count(parent)) return SetLastError(ERROR_PATH_NOT_FOUND), FALSE;
    gMade.insert(p);
    return TRUE;
}

struct CreateCase {
    const char* name;
    std::function<DWORD()> call;
    DWORD result;
    Lines attempts, log = {};
};

class FolderTree : public testing::Test {
protected:
    void SetUp() override { wrtest::ClearDrive(L'S'); }
    void TearDown() override { wrtest::ClearDrive(L'S'); }
};

TEST_F(FolderTree, CreatePathTriesEachPrefixBehindTheShareOrRoot) {
    ASSERT_TRUE(wrtest::WriteFileBytes(L"S:\\file.txt", "x"));
    const std::wstring longPath = L"S:\\" + std::wstring(258, L'a');
    const std::string longNarrow = "S:\\" + std::string(258, 'a');
    const CreateCase cases[] = {
        {"UNC path: \\\\nas\\backup is never created", [] { return ZN_CreatePath(L"\\\\nas\\backup\\pc1\\daily"); }, 0,
         {"\\\\nas\\backup\\pc1\\daily", "\\\\nas\\backup\\pc1", "\\\\nas\\backup\\pc1\\daily"}},
        {"UNC prefix refused", [] { return ZN_CreatePath(L"\\\\nas\\backup\\denied\\x"); }, 5,
         {"\\\\nas\\backup\\denied\\x", "\\\\nas\\backup\\denied"},
         {"------------------> 0: \\\\nas\\backup\\denied -- 5"}},
        {"trailing backslash: no final creation", [] { return ZN_CreatePath(L"S:\\a\\b\\"); }, 0,
         {"S:\\a\\b\\", "S:\\a", "S:\\a\\b"}},
        {"an existing file counts", [] { return ZN_CreatePath(L"S:\\file.txt"); }, 0, {}},
        {"a file in the way of the last folder", [] { return ZN_CreatePath(L"S:\\file.txt\\sub"); }, 3,
         {"S:\\file.txt\\sub", "S:\\file.txt", "S:\\file.txt\\sub"}, {"------------------> 2: S:\\file.txt\\sub -- 3"}},
        {"261 characters", [&] { return ZN_CreatePath((longPath + L"\\b").c_str()); }, 87, {},
         {"ZN_CreatePath refused: path is longer than 260 characters"}},
        {"file path: its folder is made", [] { return ZN_CreateFilePath(L"S:\\dir\\f.txt"); }, 0, {"S:\\dir"}},
        {"file path without a backslash", [] { return ZN_CreateFilePath(L"report.txt"); }, 87, {},
         {"ZN_CreateFilePath file path report.txt is invalid"}},
        {"narrow file path without a backslash", [] { return ZN_CreateFilePathA("report.txt"); }, 87, {},
         {"ZN_CreateFilePathA file path report.txt is invalid"}},
        {"narrow file path of 261 characters", [&] { return ZN_CreateFilePathA((longNarrow + "\\b").c_str()); }, 87, {}},
        {"narrow file path: its folder is made", [] { return ZN_CreateFilePathA("S:\\dir\\f.txt"); }, 0, {"S:\\dir"}},
    };
    for (const CreateCase& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ImportHook hook("kernel32.dll", "CreateDirectoryW", reinterpret_cast<void*>(FakeCreateDirectory));
        gAttempts.clear(), gMade.clear();
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, c.call());
        EXPECT_EQ(c.attempts, gAttempts);
        EXPECT_EQ(c.log, Logged(log));
        RemoveDirectoryW(L"S:\\dir");
    }
}

// Wine makes no junctions: the search reports folders named "junction..." as reparse points.
using FindFirst = HANDLE(WINAPI*)(LPCWSTR, LPWIN32_FIND_DATAW);
using FindNext = BOOL(WINAPI*)(HANDLE, LPWIN32_FIND_DATAW);
FindFirst gFirst;
FindNext gNext;
void MarkJunction(LPWIN32_FIND_DATAW found) {
    if (wcsncmp(found->cFileName, L"junction", 8) == 0) found->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
}
HANDLE WINAPI FakeFindFirst(LPCWSTR pattern, LPWIN32_FIND_DATAW found) {
    HANDLE h = gFirst(pattern, found);
    if (h != INVALID_HANDLE_VALUE) MarkJunction(found);
    return h;
}
BOOL WINAPI FakeFindNext(HANDLE h, LPWIN32_FIND_DATAW found) {
    const BOOL ok = gNext(h, found);
    if (ok) MarkJunction(found);
    return ok;
}

// Every file under S:\ with its content, folders ending in "\".
Lines Contents() {
    Lines out;
    for (const std::string& entry : wrtest::ListTree(L"S:"))
        out.push_back(entry.back() == '\\' ? entry : entry + "=" + wrtest::ReadFileBytes(L"S:\\" + wrtest::Widen(entry)));
    return out;
}

struct TreeCase {
    const char* name;
    std::function<DWORD()> call;
    DWORD result;
    Lines after, log = {};
};

TEST_F(FolderTree, TreesAreRemovedCopiedAndTestedWithoutEnteringJunctions) {
    const Lines tree = {"tree\\", "tree\\junction\\", "tree\\junction\\keep.txt=keep", "tree\\only\\",
                        "tree\\only\\junction\\", "tree\\ro.txt=new", "tree\\sub\\", "tree\\sub\\b.txt=new"};
    // The tree copied beside itself, the copy's b.txt holding `b`.
    auto copyWith = [&](const std::string& b) {
        Lines out = tree;
        for (const std::string& e : tree) out.push_back(e == "tree\\sub\\b.txt=new" ? "copy\\sub\\b.txt=" + b : "copy" + e.substr(4));
        std::sort(out.begin(), out.end());
        return out;
    };
    const TreeCase cases[] = {
        {"remove: read-only file gone, the junction's target untouched", [] { return ZN_RemoveDirectory(L"S:\\tree"); },
         0, {"tree\\", "tree\\junction\\", "tree\\junction\\keep.txt=keep"}},
        {"copy overwrites, follows junctions", [] { return ZN_CopyFolder(L"S:\\tree", L"S:\\copy"); }, 0,
         copyWith("new")},
        {"copy-ex with failIfExists keeps target files", [] { return ZN_CopyFolderEx(L"S:\\tree", L"S:\\copy", TRUE); },
         0, copyWith("old")},
        {"only a junction: empty", [] { return DWORD(ZN_IsEmptyFolder(L"S:\\tree\\only\\")); }, 1, tree},
        {"a file inside: not empty", [] { return DWORD(ZN_IsEmptyFolder(L"S:\\tree\\sub\\")); }, 0, tree},
        {"no trailing backslash: the parent holds names starting so", [] { return DWORD(ZN_IsEmptyFolder(L"S:\\tree\\su")); },
         0, tree},
        {"empty folder name refused", [] { return ZN_RemoveDirectory(L""); }, 87, tree,
         {"ZN_RemoveDirectory refused: folder is missing or not valid"}},
    };
    for (const TreeCase& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        for (const wchar_t* dir : {L"S:\\tree\\sub", L"S:\\tree\\junction", L"S:\\tree\\only\\junction"})
            wrtest::MakeDirs(dir);
        ASSERT_TRUE(wrtest::WriteFileBytes(L"S:\\tree\\ro.txt", "new"));
        ASSERT_TRUE(wrtest::WriteFileBytes(L"S:\\tree\\sub\\b.txt", "new"));
        ASSERT_TRUE(wrtest::WriteFileBytes(L"S:\\tree\\junction\\keep.txt", "keep"));
        SetFileAttributesW(L"S:\\tree\\ro.txt", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
        if (c.after != tree && c.after.size() > 3) {
            wrtest::MakeDirs(L"S:\\copy\\sub");
            ASSERT_TRUE(wrtest::WriteFileBytes(L"S:\\copy\\sub\\b.txt", "old"));
        }
        wrtest::ImportHook first("kernel32.dll", "FindFirstFileW", reinterpret_cast<void*>(FakeFindFirst));
        wrtest::ImportHook next("kernel32.dll", "FindNextFileW", reinterpret_cast<void*>(FakeFindNext));
        gFirst = first.original<FindFirst>(), gNext = next.original<FindNext>();
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, c.call());
        EXPECT_EQ(c.after, Contents());
        EXPECT_EQ(c.log, Logged(log));
    }
}

TEST_F(FolderTree, RegActiveXRunsRegsvr32ForEachControl) {
    struct {
        const char* name;
        const wchar_t* folder;
        DWORD recurse, unregister;
        Lines commands;
    } cases[] = {
        {"the folder itself only", L"S:\\ax", 0, 0, {"regsvr32 \"S:\\ax\\a.ocx\" /s"}},
        {"recursive unregistration", L"S:\\ax\\", 1, 1,
         {"regsvr32 \"S:\\ax\\a.ocx\" /u /s", "regsvr32 \"S:\\ax\\sub\\b.ocx\" /u /s"}},
    };
    wrtest::MakeDirs(L"S:\\ax\\sub");
    for (const wchar_t* file : {L"S:\\ax\\a.ocx", L"S:\\ax\\sub\\b.ocx", L"S:\\ax\\readme.txt"})
        ASSERT_TRUE(wrtest::WriteFileBytes(file, "x"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ToolDouble tools;
        EXPECT_EQ(0u, ZN_RegActiveX(c.folder, c.recurse, c.unregister));
        EXPECT_EQ(c.commands, tools.Commands("regsvr32"));
    }
}

}  // namespace
