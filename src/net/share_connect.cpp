#include <windows.h>
#include <winnetwk.h>

#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "net/net.h"

using namespace wrenkits;

namespace {

constexpr char kConnect[] = "ZN_ConnectNetworkPath";
constexpr char kDisconnect[] = "ZN_DisconnectNetworkPath";
constexpr char kMap[] = "ZN_MapNetDrive";

bool IsUnc(const wchar_t* path) { return path[0] == L'\\' && path[1] == L'\\'; }
const wchar_t* OrEmpty(const wchar_t* text) { return text ? text : L""; }

void LogTooLong(const char* user, const wchar_t* text) {
    LogW(L"%S text %s is longer than %d characters, refused", user, text, static_cast<int>(kPathChars - 1));
}

// Shares are cancelled with force and dropped from the user's profile as well.
DWORD CancelShare(const wchar_t* name) { return ::WNetCancelConnection2W(name, CONNECT_UPDATE_PROFILE, TRUE); }

// One connection attempt on the share. A user name the server rejects as malformed
// (2202) is tried once more as the caller spelled it, before any domain was put in
// front. The password is logged on purpose: support needs to see what was tried.
void ConnectShare(wchar_t* share, const wchar_t* user, const wchar_t* qualifiedUser, const wchar_t* password) {
    NETRESOURCEW resource = {};
    resource.dwScope = RESOURCE_GLOBALNET;
    resource.dwType = RESOURCETYPE_DISK;
    resource.dwUsage = RESOURCEUSAGE_CONNECTABLE;
    resource.lpRemoteName = share;
    DWORD result = ::WNetAddConnection2W(&resource, password, qualifiedUser, 0);
    if (result == NO_ERROR) return;
    const wchar_t* tried = qualifiedUser;
    if (result == ERROR_BAD_USERNAME) {
        result = ::WNetAddConnection2W(&resource, password, user, 0);
        if (result == NO_ERROR) return;
        tried = user;
    }
    LogW(L"%S connect %s with %s:%s return %d", kConnect, share, tried, password, result);
}

// The narrow exports hand their text on in 260-character wide buffers; a text that
// does not fit is refused rather than cut.
bool Widen(const char* user, const char* text, wchar_t (&wide)[kPathChars]) {
    wide[0] = L'\0';
    if (::MultiByteToWideChar(CP_ACP, 0, text, -1, wide, static_cast<int>(kPathChars)) != 0) return true;
    LogA("%s text %s is longer than %d characters, refused", user, text, static_cast<int>(kPathChars - 1));
    return false;
}

}  // namespace

DWORD CheckPathWrite(LPCWSTR folder, DWORD checkWrite) {
    if (!checkWrite) {
        if (::GetFileAttributesW(folder) != INVALID_FILE_ATTRIBUTES) return 0;
        LogW(L"CheckPathWrite get %s path attributes failed, error: %d", folder, ::GetLastError());
        return ERROR_BAD_NETPATH;
    }

    // The temporary name is only a name nobody uses yet; the file the call creates is
    // removed again, and the test itself is a directory, which works on shares that
    // refuse to truncate or overwrite files.
    wchar_t name[kPathChars] = {};
    if (!::GetTempFileNameW(folder, L"tmp", 0, name)) {
        if (::GetLastError() == ERROR_DISK_FULL) return ERROR_DISK_FULL;
        if (_snwprintf_s(name, kPathChars, _TRUNCATE, L"%s\\test_qrb_write", folder) < 0) {
            LogTooLong("CheckPathWrite", folder);
            return ERROR_FILENAME_EXCED_RANGE;
        }
    }
    ::DeleteFileW(name);
    if (::CreateDirectoryW(name, nullptr)) {
        if (!::RemoveDirectoryW(name)) LogW(L"%s delete %s error: %d", L"CheckPathWrite", name, ::GetLastError());
        return 0;
    }
    const DWORD error = ::GetLastError();
    if (error == ERROR_ALREADY_EXISTS) {
        LogW(L"%s temp file already exists %s", L"CheckPathWrite", name);
        return 0;
    }
    if (error == ERROR_ACCESS_DENIED) return ERROR_ACCESS_DENIED;
    LogW(L"CheckPathWrite create %s failed, error: %d", name, error);
    return ERROR_BAD_NETPATH;
}

extern "C" DWORD WINAPI ZN_ConnectNetworkPath(LPCWSTR path, LPCWSTR user, LPCWSTR password, DWORD checkWrite) {
    if (!path || !user || !password) return ERROR_INVALID_PARAMETER;
    if (!IsUnc(path)) return 0;  // a local folder needs no connection

    wchar_t share[kPathChars], ipc[kPathChars], qualifiedUser[kPathChars];
    switch (ShareName(path, share)) {
    case ShareCut::NoShare:
        LogW(L"%S path %s is not a valid share", kConnect, path);
        return ERROR_INVALID_PARAMETER;
    case ShareCut::TooLong:
        LogTooLong(kConnect, path);
        return ERROR_FILENAME_EXCED_RANGE;
    case ShareCut::Share:
        break;
    }
    if (!IpcName(path, ipc)) {
        LogTooLong(kConnect, path);
        return ERROR_FILENAME_EXCED_RANGE;
    }
    if (!QualifiedUser(path, user, qualifiedUser)) {
        LogTooLong(kConnect, user);
        return ERROR_FILENAME_EXCED_RANGE;
    }
    LogW(L"%S ---> %s user: %s", kConnect, share, qualifiedUser);

    DWORD probe = CheckPathWrite(share, checkWrite);
    if (probe == 0) return 0;  // reachable as things are: no session of anyone else is dropped
    if (probe == ERROR_DISK_FULL) return probe;

    // Sessions to the server made with other credentials would make the server
    // refuse ours (1219), so they go first.
    LogW(L"%S disconnect %s reutrn %d", kConnect, ipc, CancelShare(ipc));
    LogW(L"%S disconnect %s reutrn %d", kConnect, share, CancelShare(share));
    ConnectShare(share, user, qualifiedUser, password);
    for (int round = 0; round < 2; ++round) {
        if (CheckPathWrite(share, checkWrite) == 0) return 0;
        CancelShare(share);
        ConnectShare(share, user, qualifiedUser, password);
    }

    CancelShare(share);
    NETRESOURCEW resource = {};
    resource.dwScope = RESOURCE_GLOBALNET;
    resource.dwType = RESOURCETYPE_DISK;
    resource.dwUsage = RESOURCEUSAGE_CONNECTABLE;
    resource.lpRemoteName = share;
    const DWORD guest = ::WNetAddConnection2W(&resource, L"", L"Guest", 0);
    LogW(L"%S connect %s with guest account return %d", kConnect, share, guest);
    // Deliberate: a Guest connection that succeeded stays for the caller to use.
    probe = CheckPathWrite(share, checkWrite);
    return probe;
}

extern "C" DWORD WINAPI ZN_ConnectNetworkPathA(LPCSTR path, LPCSTR user, LPCSTR password, DWORD checkWrite) {
    if (!path || !user || !password) return ERROR_INVALID_PARAMETER;
    wchar_t widePath[kPathChars], wideUser[kPathChars], widePassword[kPathChars];
    constexpr char kName[] = "ZN_ConnectNetworkPathA";
    if (!Widen(kName, path, widePath) || !Widen(kName, user, wideUser) || !Widen(kName, password, widePassword))
        return ERROR_FILENAME_EXCED_RANGE;
    return ZN_ConnectNetworkPath(widePath, wideUser, widePassword, checkWrite);
}

extern "C" DWORD WINAPI ZN_DisconnectNetworkPath(LPCWSTR path) {
    if (!path || wcsnlen(path, 2) < 2 || !IsUnc(path)) return 0;
    wchar_t share[kPathChars];
    switch (ShareName(path, share)) {
    case ShareCut::NoShare:
        LogW(L"%S path %s is not a valid share", kDisconnect, path);
        return 0;
    case ShareCut::TooLong:
        LogTooLong(kDisconnect, path);
        return ERROR_FILENAME_EXCED_RANGE;
    case ShareCut::Share:
        break;
    }
    LogW(L"%S ---> %s", kDisconnect, share);
    CancelShare(share);
    return 0;
}

extern "C" DWORD WINAPI ZN_DisconnectNetworkPathA(LPCSTR path) {
    if (!path) return 0;
    wchar_t widePath[kPathChars];
    if (!Widen("ZN_DisconnectNetworkPathA", path, widePath)) return ERROR_FILENAME_EXCED_RANGE;
    return ZN_DisconnectNetworkPath(widePath);
}

extern "C" DWORD WINAPI ZN_MapNetDrive(LPCWSTR share, WCHAR driveLetter, LPCWSTR user, LPCWSTR password) {
    if (!share || !*share || !IsDriveLetter(driveLetter)) return ERROR_INVALID_PARAMETER;
    wchar_t ipc[kPathChars], qualifiedUser[kPathChars];
    if (!IpcName(share, ipc)) {
        LogTooLong(kMap, share);
        return ERROR_FILENAME_EXCED_RANGE;
    }
    if (!QualifiedUser(share, user, qualifiedUser)) {
        LogTooLong(kMap, user);
        return ERROR_FILENAME_EXCED_RANGE;
    }
    CancelShare(ipc);
    CancelShare(share);

    wchar_t local[] = {driveLetter, L':', L'\0'};
    NETRESOURCEW resource = {};
    resource.dwType = RESOURCETYPE_DISK;
    resource.lpLocalName = local;
    resource.lpRemoteName = const_cast<LPWSTR>(share);
    DWORD result = ::WNetAddConnection2W(&resource, password, qualifiedUser, 0);
    if (result == NO_ERROR) return 0;
    const wchar_t* tried = qualifiedUser;
    if (result == ERROR_BAD_USERNAME) {
        result = ::WNetAddConnection2W(&resource, password, user, 0);
        if (result == NO_ERROR) return 0;
        tried = OrEmpty(user);
    }
    LogW(L"%S map %s to %s with %s:%s error: %d", kMap, share, local, tried, OrEmpty(password), result);
    return result;
}

extern "C" DWORD WINAPI ZN_DisconnectNetDrive(WCHAR driveLetter) {
    if (!IsDriveLetter(driveLetter)) return ERROR_INVALID_PARAMETER;
    const wchar_t local[] = {driveLetter, L':', L'\0'};
    const DWORD result = ::WNetCancelConnection2W(local, CONNECT_UPDATE_PROFILE, TRUE);
    if (result != NO_ERROR) LogW(L"%S cancel connect %s error: %d", "ZN_DisconnectNetDrive", local, result);
    return result;
}
