// Folder trees on a mapped drive: creation prefix by prefix, removal and copy of a tree
// with a read-only file and a junction, the emptiness test and ActiveX registration.
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

struct Case {
    const char* name;
    std::function<DWORD()> call;
    DWORD result;
    Lines seen;  // what the table looks at afterwards
    Lines log = {};
};

void Check(const Case& c, const std::function<Lines()>& seen) {
    SCOPED_TRACE(c.name);
    wrtest::LogCapture log;
    EXPECT_EQ(c.result, c.call());
    EXPECT_EQ(c.seen, seen());
    Lines logged;
    for (const std::string& m : log.Messages()) logged.push_back(m.substr(10));
    EXPECT_EQ(c.log, logged);
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

TEST(FolderTree, CreatePathTriesEachPrefixBehindTheShareOrRoot) {
    wrtest::ClearDrive(L'S');
    ASSERT_TRUE(wrtest::WriteFileBytes(L"S:\\file.txt", "x"));
    const std::string longPath = "S:\\" + std::string(258, 'a') + "\\b";
    const Case cases[] = {
        {"UNC path: \\\\nas\\backup is never created", [] { return ZN_CreatePath(L"\\\\nas\\backup\\pc1\\daily"); }, 0, {"\\\\nas\\backup\\pc1\\daily", "\\\\nas\\backup\\pc1", "\\\\nas\\backup\\pc1\\daily"}},
        {"UNC prefix refused", [] { return ZN_CreatePath(L"\\\\nas\\backup\\denied\\x"); }, 5, {"\\\\nas\\backup\\denied\\x", "\\\\nas\\backup\\denied"}, {"------------------> 0: \\\\nas\\backup\\denied -- 5"}},
        {"trailing backslash: no final creation", [] { return ZN_CreatePath(L"S:\\a\\b\\"); }, 0, {"S:\\a\\b\\", "S:\\a", "S:\\a\\b"}},
        {"an existing file counts", [] { return ZN_CreatePath(L"S:\\file.txt"); }, 0, {}},
        {"a file in the way of the last folder", [] { return ZN_CreatePath(L"S:\\file.txt\\sub"); }, 3, {"S:\\file.txt\\sub", "S:\\file.txt", "S:\\file.txt\\sub"}, {"------------------> 2: S:\\file.txt\\sub -- 3"}},
        {"263 characters, wide and narrow", [&] { return ZN_CreatePath(wrtest::Widen(longPath).c_str()) + ZN_CreateFilePathA(longPath.c_str()); }, 2 * 87, {}, {"ZN_CreatePath refused: path is longer than 260 characters"}},
        {"file paths, wide and narrow: the folder is made", [] { return ZN_CreateFilePath(L"S:\\dir\\f.txt") + ZN_CreateFilePathA("S:\\dir2\\f.txt"); }, 0, {"S:\\dir", "S:\\dir2"}},
        {"file paths without a backslash", [] { return ZN_CreateFilePath(L"report.txt") + ZN_CreateFilePathA("report.txt"); }, 2 * 87, {}, {"ZN_CreateFilePath file path report.txt is invalid", "ZN_CreateFilePathA file path report.txt is invalid"}},
    };
    wrtest::ImportHook hook("kernel32.dll", "CreateDirectoryW", reinterpret_cast<void*>(FakeCreateDirectory));
    for (const Case& c : cases) {
        gAttempts.clear(), gMade.clear();
        Check(c, [] { return gAttempts; });
    }
    wrtest::ClearDrive(L'S');
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

// Copies the tree onto a copy whose sub\b.txt already holds "old".
DWORD OntoOld(BOOL failIfExists) {
    wrtest::MakeDirs(L"S:\\copy\\sub");
    if (!wrtest::WriteFileBytes(L"S:\\copy\\sub\\b.txt", "old")) return ERROR_WRITE_FAULT;
    return failIfExists ? ZN_CopyFolderEx(L"S:\\tree", L"S:\\copy", TRUE) : ZN_CopyFolder(L"S:\\tree", L"S:\\copy");
}

TEST(FolderTree, TreesAreRemovedCopiedTestedAndRegisteredWithoutEnteringJunctions) {
    // Made before each row: folders end in "\", files show their content.
    const Lines tree = {"tree\\", "tree\\a.ocx=x", "tree\\junction\\", "tree\\junction\\keep.txt=keep", "tree\\only\\",
                        "tree\\only\\junction\\", "tree\\ro.txt=new", "tree\\sub\\", "tree\\sub\\b.txt=new", "tree\\sub\\c.ocx=x"};
    // The tree copied beside itself, the copy's b.txt holding `b`.
    const auto copyWith = [&](const std::string& b) {
        Lines out = tree;
        for (const std::string& e : tree) out.push_back(e == "tree\\sub\\b.txt=new" ? "copy\\sub\\b.txt=" + b : "copy" + e.substr(4));
        std::sort(out.begin(), out.end());
        return out;
    };
    const auto ran = [&](const Lines& commands) {
        Lines out = tree;
        out.insert(out.end(), commands.begin(), commands.end());
        return out;
    };
    const Case cases[] = {
        {"remove: read-only file gone, the junction's target untouched", [] { return ZN_RemoveDirectory(L"S:\\tree"); }, 0, {"tree\\", "tree\\junction\\", "tree\\junction\\keep.txt=keep"}},
        {"copy overwrites, follows junctions", [] { return OntoOld(FALSE); }, 0, copyWith("new")},
        {"copy-ex with failIfExists keeps target files", [] { return OntoOld(TRUE); }, 0, copyWith("old")},
        {"only a junction: empty", [] { return DWORD(ZN_IsEmptyFolder(L"S:\\tree\\only\\")); }, 1, tree},
        {"a file inside: not empty", [] { return DWORD(ZN_IsEmptyFolder(L"S:\\tree\\sub\\")); }, 0, tree},
        {"no trailing backslash: the parent holds names starting so", [] { return DWORD(ZN_IsEmptyFolder(L"S:\\tree\\su")); }, 0, tree},
        {"empty folder name refused", [] { return ZN_RemoveDirectory(L""); }, 87, tree, {"ZN_RemoveDirectory refused: folder is missing or not valid"}},
        {"ActiveX: the folder itself only", [] { return ZN_RegActiveX(L"S:\\tree", 0, 0); }, 0, ran({"regsvr32 \"S:\\tree\\a.ocx\" /s"})},
        {"ActiveX: recursive unregistration", [] { return ZN_RegActiveX(L"S:\\tree\\", 1, 1); }, 0, ran({"regsvr32 \"S:\\tree\\a.ocx\" /u /s", "regsvr32 \"S:\\tree\\sub\\c.ocx\" /u /s"})},
    };
    for (const Case& c : cases) {
        wrtest::ClearDrive(L'S');
        for (const std::string& e : tree) {
            const std::wstring path = L"S:\\" + wrtest::Widen(e.substr(0, e.find('=')));
            if (e.back() == '\\') wrtest::MakeDirs(path);
            else ASSERT_TRUE(wrtest::WriteFileBytes(path, e.substr(e.find('=') + 1)));
        }
        SetFileAttributesW(L"S:\\tree\\ro.txt", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
        wrtest::ImportHook first("kernel32.dll", "FindFirstFileW", reinterpret_cast<void*>(FakeFindFirst));
        wrtest::ImportHook next("kernel32.dll", "FindNextFileW", reinterpret_cast<void*>(FakeFindNext));
        gFirst = first.original<FindFirst>(), gNext = next.original<FindNext>();
        wrtest::ToolDouble tools;
        // Everything under S:\ with its content, then the regsvr32 commands run.
        Check(c, [&] {
            Lines out;
            for (const std::string& e : wrtest::ListTree(L"S:"))
                out.push_back(e.back() == '\\' ? e : e + "=" + wrtest::ReadFileBytes(L"S:\\" + wrtest::Widen(e)));
            const Lines commands = tools.Commands("regsvr32");
            out.insert(out.end(), commands.begin(), commands.end());
            return out;
        });
    }
    wrtest::ClearDrive(L'S');
}

}  // namespace
