#include <windows.h>
#include <winnetwk.h>

#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "net/net.h"

using namespace wrenkits;

namespace {

constexpr char kName[] = "ZN_CheckPath";

// The entries one enumeration call may return at once.
constexpr DWORD kEnumBytes = 16384;

// Copies the first `count` characters of `path`; false when they would not fit.
bool CopyPrefix(const wchar_t* path, size_t count, wchar_t (&out)[kPathChars]) {
    out[0] = L'\0';
    if (count >= kPathChars) return false;
    wmemcpy(out, path, count);
    out[count] = L'\0';
    return true;
}

// The length of the path up to its n-th backslash (the whole path with fewer).
size_t UpToBackslash(const wchar_t* path, size_t from, int n) {
    size_t i = from;
    for (int seen = 0; path[i]; ++i)
        if (path[i] == L'\\' && ++seen == n) break;
    return i;
}

bool IsNtfs(LPCWSTR path) {
    wchar_t fileSystem[kPathChars] = {};
    return ZN_GetFSType(path, fileSystem) && _wcsicmp(fileSystem, L"NTFS") == 0;
}

// Cancels without touching the user's profile: the check only undoes what it did.
DWORD CancelAndLog(const wchar_t* name) {
    const DWORD result = ::WNetCancelConnection2W(name, 0, TRUE);
    LogW(L"%S disconnect %s return %d", kName, name, result);
    return result;
}

// A server that already has a drive mapped is taken as usable: the product will go
// through that mapping and must not disturb it.
bool ServerHasMappedDrive(const wchar_t* server) {
    unique_wnet_enum enumeration;
    if (::WNetOpenEnumW(RESOURCE_CONNECTED, RESOURCETYPE_ANY, 0, nullptr, enumeration.put()) != NO_ERROR) return false;
    HANDLE handle = enumeration.release();
    return NetPathIsMounted(server, &handle) != FALSE;
}

DWORD ClassifyConnectedPath(LPCWSTR path, const wchar_t* share, LPDWORD isFolder, LPDWORD isNtfs) {
    DWORD code = 0;  // a file where a folder was expected
    const DWORD attributes = ::GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        code = 3;
    } else if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
        *isFolder = 1;
        // Deliberate: the share root is probed for writing, not the folder itself.
        const DWORD probe = CheckPathWrite(share, 1);
        code = probe == 0 ? 1 : probe == ERROR_ACCESS_DENIED ? 5 : 2;
    }
    if (IsNtfs(path)) *isNtfs = 1;
    return code;
}

}  // namespace

BOOL NetPathIsMounted(LPCWSTR serverPrefix, HANDLE* enumeration) {
    unique_wnet_enum owned(*enumeration);
    *enumeration = nullptr;
    unique_heap block = HeapAllocZeroed(kEnumBytes);
    if (!block) return FALSE;
    const size_t prefixLength = wcslen(serverPrefix);
    for (;;) {
        ZeroMemory(block.get(), kEnumBytes);
        DWORD entries = static_cast<DWORD>(-1), bytes = kEnumBytes;
        if (::WNetEnumResourceW(owned.get(), &entries, block.get(), &bytes) != NO_ERROR || entries == 0) return FALSE;
        const auto* resources = static_cast<const NETRESOURCEW*>(block.get());
        for (DWORD i = 0; i < entries; ++i) {
            const wchar_t* remote = resources[i].lpRemoteName ? resources[i].lpRemoteName : L"";
            const wchar_t* local = resources[i].lpLocalName ? resources[i].lpLocalName : L"";
            LogW(L"%S network path %s has mounted to: %s", "NetPathIsMounted", remote, local);
            if (*local && _wcsnicmp(remote, serverPrefix, prefixLength) == 0) return TRUE;
        }
    }
}

extern "C" DWORD WINAPI ZN_CheckPath(LPCWSTR path, LPCWSTR user, LPCWSTR password, LPDWORD isNetwork,
                                     LPDWORD isOptical, LPDWORD isFolder, LPDWORD isNtfs) {
    if (!isNetwork || !isOptical || !isFolder || !isNtfs) return RefuseInvalid(kName, "flag output");
    *isNetwork = *isOptical = *isFolder = *isNtfs = 0;
    if (!path || wcsnlen(path, 2) < 2) return 3;

    if (path[0] != L'\\' || path[1] != L'\\') {
        const wchar_t root[] = {UpperLetter(path[0]), L':', L'\\', L'\0'};
        if (::GetDriveTypeW(root) == DRIVE_CDROM) {
            *isOptical = 1;
            return 3;
        }
        const DWORD attributes = ::GetFileAttributesW(path);
        if (attributes == INVALID_FILE_ATTRIBUTES) return 3;
        *isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) ? 1 : 0;
        if (IsNtfs(path)) *isNtfs = 1;
        return 1;  // a file is usable too
    }
    *isNetwork = 1;

    wchar_t server[kPathChars], ipc[kPathChars], share[kPathChars], userName[kPathChars];
    if (!CopyPrefix(path, UpToBackslash(path, 2, 1), server) || !IpcName(server, ipc) ||
        !CopyPrefix(path, UpToBackslash(path, 0, 4), share) || !QualifiedUserKeepingDomain(path, user, userName))
        return RefuseTooLong(kName, "share or user name", kPathChars - 1);
    if (ServerHasMappedDrive(server)) return 1;

    CancelAndLog(ipc);
    LogW(L"%S ---> %s user: %s", kName, share, userName);
    CancelAndLog(share);

    NETRESOURCEW resource = wrenkits::ShareResource(share);
    const DWORD connected = ::WNetAddConnection2W(&resource, password, userName, 0);
    LogW(L"%S connect %s return %d with %s", kName, share, connected, userName);

    const DWORD code = connected == NO_ERROR || connected == ERROR_SESSION_CREDENTIAL_CONFLICT
                           ? ClassifyConnectedPath(path, share, isFolder, isNtfs)
                           : ClassifyConnectionError(connected);
    ::WNetCancelConnection2W(share, 0, TRUE);
    return code;
}
