#include <windows.h>
#include <winnetwk.h>

#include <string.h>
#include <wchar.h>

#include <initializer_list>

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

constexpr size_t kLongest = kPathChars - 1;

// Shares are cancelled with force and dropped from the user's profile as well.
DWORD CancelShare(const wchar_t* name) { return ::WNetCancelConnection2W(name, CONNECT_UPDATE_PROFILE, TRUE); }

// One connection attempt on the share. A user name the server rejects as malformed
// (2202) is tried once more as the caller spelled it, before any domain was put in
// front. The password is logged on purpose: support needs to see what was tried.
void ConnectShare(wchar_t* share, const wchar_t* user, const wchar_t* qualifiedUser, const wchar_t* password) {
    NETRESOURCEW resource = wrenkits::ShareResource(share);
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
        if (!FormatWholeW(name, kPathChars, L"%s\\test_qrb_write", folder))
            return RefuseTooLong("CheckPathWrite", "folder", kLongest - wcslen(L"\\test_qrb_write"));
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
        return RefuseTooLong(kConnect, "share", kLongest);
    case ShareCut::Share:
        break;
    }
    if (!IpcName(path, ipc)) return RefuseTooLong(kConnect, "server name", kLongest - wcslen(L"\\IPC$"));
    if (!QualifiedUser(path, user, qualifiedUser)) return RefuseTooLong(kConnect, "server\\user", kLongest);
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
    NETRESOURCEW resource = wrenkits::ShareResource(share);
    const DWORD guest = ::WNetAddConnection2W(&resource, L"", L"Guest", 0);
    LogW(L"%S connect %s with guest account return %d", kConnect, share, guest);
    // Deliberate: a Guest connection that succeeded stays for the caller to use.
    probe = CheckPathWrite(share, checkWrite);
    return probe;
}

extern "C" DWORD WINAPI ZN_ConnectNetworkPathA(LPCSTR path, LPCSTR user, LPCSTR password, DWORD checkWrite) {
    const WidePath widePath(path), wideUser(user), widePassword(password);
    for (const WidePath* text : {&widePath, &wideUser, &widePassword})
        if (text->error()) return RefuseTooLong("ZN_ConnectNetworkPathA", "text", kLongest);
    return ZN_ConnectNetworkPath(widePath.get(), wideUser.get(), widePassword.get(), checkWrite);
}

extern "C" DWORD WINAPI ZN_DisconnectNetworkPath(LPCWSTR path) {
    if (!path || wcsnlen(path, 2) < 2 || !IsUnc(path)) return 0;
    wchar_t share[kPathChars];
    switch (ShareName(path, share)) {
    case ShareCut::NoShare:
        LogW(L"%S path %s is not a valid share", kDisconnect, path);
        return 0;
    case ShareCut::TooLong:
        return RefuseTooLong(kDisconnect, "share", kLongest);
    case ShareCut::Share:
        break;
    }
    LogW(L"%S ---> %s", kDisconnect, share);
    CancelShare(share);
    return 0;
}

extern "C" DWORD WINAPI ZN_DisconnectNetworkPathA(LPCSTR path) {
    const WidePath widePath(path);
    if (widePath.error()) return RefuseTooLong("ZN_DisconnectNetworkPathA", "path", kLongest);
    return ZN_DisconnectNetworkPath(widePath.get());
}

extern "C" DWORD WINAPI ZN_MapNetDrive(LPCWSTR share, WCHAR driveLetter, LPCWSTR user, LPCWSTR password) {
    if (!share || !*share) return RefuseInvalid(kMap, "share");
    if (!IsDriveLetter(driveLetter)) return RefuseInvalid(kMap, "drive letter");
    wchar_t ipc[kPathChars], qualifiedUser[kPathChars];
    if (!IpcName(share, ipc)) return RefuseTooLong(kMap, "server name", kLongest - wcslen(L"\\IPC$"));
    if (!QualifiedUser(share, user, qualifiedUser)) return RefuseTooLong(kMap, "server\\user", kLongest);
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
    if (!IsDriveLetter(driveLetter)) return RefuseInvalid("ZN_DisconnectNetDrive", "drive letter");
    const wchar_t local[] = {driveLetter, L':', L'\0'};
    const DWORD result = ::WNetCancelConnection2W(local, CONNECT_UPDATE_PROFILE, TRUE);
    if (result != NO_ERROR) LogW(L"%S cancel connect %s error: %d", "ZN_DisconnectNetDrive", local, result);
    return result;
}
