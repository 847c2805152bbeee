// Folder trees: creating a folder with its missing parents, removing, copying and
// testing a tree, and registering the ActiveX controls in it. The tree operations
// are best effort: one entry that fails does not stop the others.
#include <stdarg.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"

using wrenkits::kPathChars;
using wrenkits::unique_find;

namespace {

constexpr char kCreatePath[] = "ZN_CreatePath";
constexpr char kRemoveDirectory[] = "ZN_RemoveDirectory";
constexpr char kCopyFolder[] = "ZN_CopyFolder";
constexpr char kIsEmptyFolder[] = "ZN_IsEmptyFolder";
constexpr char kRegActiveX[] = "ZN_RegActiveX";

using PathBuffer = wchar_t[kPathChars];

// Forms a path into a 260-character buffer. A cut path would name some other file or
// folder, which would then be deleted, overwritten or registered, so a path that does
// not fit is logged and not used.
bool FormPath(const char* who, PathBuffer& out, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const int written = _vsnwprintf_s(out, kPathChars, _TRUNCATE, format, args);
    va_end(args);
    if (written >= 0) return true;
    wrenkits::RefuseTooLong(who, "path", kPathChars - 1);
    return false;
}

bool IsDots(const wchar_t* name) { return wcscmp(name, L".") == 0 || wcscmp(name, L"..") == 0; }

bool Refused(const char* who, const wchar_t* path) {
    if (path && *path) return false;
    // An empty folder name would make every search below start at the current folder.
    wrenkits::RefuseInvalid(who, "folder");
    return true;
}

// Creates one folder; a folder that is already there counts as made.
DWORD MakeFolder(const wchar_t* path) {
    if (::CreateDirectoryW(path, nullptr)) return ERROR_SUCCESS;
    const DWORD error = ::GetLastError();
    return error == ERROR_ALREADY_EXISTS ? ERROR_SUCCESS : error;
}

// False when the folder's own search pattern does not fit.
bool RemoveTree(const wchar_t* folder) {
    PathBuffer pattern;
    if (!FormPath(kRemoveDirectory, pattern, L"%s\\*.*", folder)) return false;
    WIN32_FIND_DATAW found;
    {
        unique_find search(::FindFirstFileW(pattern, &found));
        if (!search) return true;  // nothing to list, the folder itself is left in place
        do {
            if (IsDots(found.cFileName)) continue;
            PathBuffer path;
            if (!FormPath(kRemoveDirectory, path, L"%s\\%s", folder, found.cFileName)) continue;
            if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
                ::SetFileAttributesW(path, 0);  // read-only, hidden and system files go too
                ::DeleteFileW(path);
            } else if (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) {
                // A junction or link goes as an entry; what it points at is somebody else's.
                ::SetFileAttributesW(path, 0);
                ::RemoveDirectoryW(path);
                ::DeleteFileW(path);
            } else {
                RemoveTree(path);
            }
        } while (::FindNextFileW(search.get(), &found));
    }
    // The search is closed first: a folder with an open search cannot go.
    ::SetFileAttributesW(folder, 0);
    ::RemoveDirectoryW(folder);
    return true;
}

// False when the source's own search pattern does not fit.
bool CopyTree(const wchar_t* source, const wchar_t* target, BOOL failIfExists) {
    ZN_CreatePath(target);
    PathBuffer pattern;
    if (!FormPath(kCopyFolder, pattern, L"%s\\*.*", source)) return false;
    WIN32_FIND_DATAW found;
    unique_find search(::FindFirstFileW(pattern, &found));
    if (!search) return true;
    do {
        if (_wcsicmp(found.cFileName, L".") == 0 || _wcsicmp(found.cFileName, L"..") == 0) continue;
        PathBuffer from, to;
        if (!FormPath(kCopyFolder, from, L"%s\\%s", source, found.cFileName) ||
            !FormPath(kCopyFolder, to, L"%s\\%s", target, found.cFileName))
            continue;
        // Junctions are followed like folders; the path bound ends a loop through one.
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            CopyTree(from, to, failIfExists);
        else
            ::CopyFileW(from, to, failIfExists);
    } while (::FindNextFileW(search.get(), &found));
    return true;
}

// `folder` ends with a backslash.
void RegisterControls(const wchar_t* folder, DWORD recurse, DWORD unregister) {
    WIN32_FIND_DATAW found;
    PathBuffer pattern;
    if (FormPath(kRegActiveX, pattern, L"%s*.ocx", folder)) {
        unique_find search(::FindFirstFileW(pattern, &found));
        if (search) {
            do {
                PathBuffer command;
                const wchar_t* format = unregister ? L"regsvr32 \"%s%s\" /u /s" : L"regsvr32 \"%s%s\" /s";
                // The tool's exit code says nothing the caller could act on.
                if (FormPath(kRegActiveX, command, format, folder, found.cFileName))
                    ZN_RunProcess(command, L"", TRUE);
            } while (::FindNextFileW(search.get(), &found));
        }
    }
    if (!recurse || !FormPath(kRegActiveX, pattern, L"%s*.*", folder)) return;
    unique_find search(::FindFirstFileW(pattern, &found));
    if (!search) return;
    do {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) || IsDots(found.cFileName)) continue;
        PathBuffer child;
        if (FormPath(kRegActiveX, child, L"%s%s\\", folder, found.cFileName)) RegisterControls(child, recurse, unregister);
    } while (::FindNextFileW(search.get(), &found));
}

// Shared by the wide and narrow forms; `filePath` is at most 260 characters.
template <typename LogInvalid>
DWORD CreateHoldingFolder(const wchar_t* filePath, LogInvalid logInvalid) {
    wchar_t folder[kPathChars + 1];
    wcscpy_s(folder, _countof(folder), filePath);
    wchar_t* last = wcsrchr(folder, L'\\');
    if (!last) {
        logInvalid();
        return ERROR_INVALID_PARAMETER;
    }
    *last = L'\0';
    return ZN_CreatePath(folder);
}

}  // namespace

extern "C" DWORD WINAPI ZN_CreatePath(LPCWSTR path) {
    if (!path || !*path) return ERROR_SUCCESS;
    if (::GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES) return ERROR_SUCCESS;  // a file of that name counts
    const size_t length = wcslen(path);
    if (length > kPathChars) {
        wrenkits::RefuseTooLong(kCreatePath, "path", kPathChars);
        return ERROR_INVALID_PARAMETER;  // the long-standing code for this refusal
    }
    if (MakeFolder(path) == ERROR_SUCCESS) return ERROR_SUCCESS;

    // Parent by parent. A share (\\server\share) and a drive root cannot be created,
    // so the walk starts behind them: at the fifth backslash of a UNC path, the
    // second of any other.
    const bool unc = path[0] == L'\\' && path[1] == L'\\';
    const int firstCreated = unc ? 5 : 2;
    wchar_t prefix[kPathChars + 1] = {};
    int backslashes = 0;
    for (size_t i = 0; i < length; ++i) {
        if (path[i] == L'\\' && ++backslashes >= firstCreated) {
            if (const DWORD error = MakeFolder(prefix)) {
                LogW(unc ? L"------------------> 0: %s -- %d" : L"------------------> 1: %s -- %d", prefix, error);
                return error;
            }
        }
        prefix[i] = path[i];
    }
    if (path[length - 1] == L'\\') return ERROR_SUCCESS;  // the last folder was made in the walk
    if (const DWORD error = MakeFolder(path)) {
        LogW(L"------------------> 2: %s -- %d", path, error);
        return error;
    }
    return ERROR_SUCCESS;
}

extern "C" DWORD WINAPI ZN_CreateFilePath(LPCWSTR filePath) {
    if (!filePath || !*filePath) return ERROR_SUCCESS;
    if (wcslen(filePath) > kPathChars) return ERROR_INVALID_PARAMETER;
    return CreateHoldingFolder(filePath, [&] { LogA("%s file path %S is invalid", "ZN_CreateFilePath", filePath); });
}

extern "C" DWORD WINAPI ZN_CreateFilePathA(LPCSTR filePath) {
    if (!filePath || !*filePath) return ERROR_SUCCESS;
    if (strlen(filePath) > kPathChars) return ERROR_INVALID_PARAMETER;
    const wrenkits::WidePath wide(filePath);
    if (wide.error()) return wrenkits::RefuseTooLong("ZN_CreateFilePathA", "file path", kPathChars - 1);
    return CreateHoldingFolder(wide.get(), [&] { LogA("%s file path %s is invalid", "ZN_CreateFilePathA", filePath); });
}

extern "C" DWORD WINAPI ZN_RemoveDirectory(LPCWSTR path) {
    if (Refused(kRemoveDirectory, path)) return ERROR_INVALID_PARAMETER;
    return RemoveTree(path) ? ERROR_SUCCESS : ERROR_FILENAME_EXCED_RANGE;
}

extern "C" DWORD WINAPI ZN_CopyFolder(LPCWSTR source, LPCWSTR target) { return ZN_CopyFolderEx(source, target, FALSE); }

extern "C" DWORD WINAPI ZN_CopyFolderEx(LPCWSTR source, LPCWSTR target, BOOL failIfExists) {
    if (Refused(kCopyFolder, source) || Refused(kCopyFolder, target)) return ERROR_INVALID_PARAMETER;
    return CopyTree(source, target, failIfExists) ? ERROR_SUCCESS : ERROR_FILENAME_EXCED_RANGE;
}

extern "C" BOOL WINAPI ZN_IsEmptyFolder(LPCWSTR folderWithSlash) {
    PathBuffer pattern;
    // What cannot be searched counts as empty.
    if (Refused(kIsEmptyFolder, folderWithSlash) || !FormPath(kIsEmptyFolder, pattern, L"%s*.*", folderWithSlash))
        return TRUE;
    WIN32_FIND_DATAW found;
    unique_find search(::FindFirstFileW(pattern, &found));
    if (!search) return TRUE;
    do {
        if (!IsDots(found.cFileName) && !(found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) return FALSE;
    } while (::FindNextFileW(search.get(), &found));
    return TRUE;
}

extern "C" DWORD WINAPI ZN_RegActiveX(LPCWSTR folder, DWORD recurse, DWORD unregister) {
    if (Refused(kRegActiveX, folder)) return ERROR_INVALID_PARAMETER;
    PathBuffer withSlash;
    const size_t length = wcslen(folder);
    if (!FormPath(kRegActiveX, withSlash, folder[length - 1] == L'\\' ? L"%s" : L"%s\\", folder))
        return ERROR_FILENAME_EXCED_RANGE;
    RegisterControls(withSlash, recurse, unregister);
    return ERROR_SUCCESS;
}
