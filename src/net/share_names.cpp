#include <string.h>
#include <wchar.h>

#include "net/net.h"

namespace wrenkits {

namespace {

// The server name: the text after the leading two backslashes up to the next one.
void ServerPart(const wchar_t* path, const wchar_t*& server, size_t& length) {
    const size_t skip = wcsnlen(path, 2);
    server = path + skip;
    length = wcscspn(server, L"\\");
}

}  // namespace

ShareCut ShareName(const wchar_t* path, wchar_t (&share)[kPathChars]) {
    share[0] = L'\0';
    const size_t length = wcslen(path);
    // Searching from the fourth character on leaves the server at least one character.
    const wchar_t* afterServer = length > 3 ? wcschr(path + 3, L'\\') : nullptr;
    if (!afterServer) return ShareCut::NoShare;
    const wchar_t* afterShare = wcschr(afterServer + 1, L'\\');
    const size_t count = afterShare ? static_cast<size_t>(afterShare - path) : length;
    return CopyPart(share, kPathChars, path, count) ? ShareCut::Share : ShareCut::TooLong;
}

bool IpcName(const wchar_t* path, wchar_t (&ipc)[kPathChars]) {
    ipc[0] = L'\0';
    size_t count = wcslen(path);
    if (count > 3) {
        if (const wchar_t* afterServer = wcschr(path + 3, L'\\')) count = static_cast<size_t>(afterServer - path);
    }
    constexpr wchar_t kIpc[] = L"\\IPC$";
    if (count + wcslen(kIpc) >= kPathChars) return false;
    wmemcpy(ipc, path, count);
    wcscpy_s(ipc + count, kPathChars - count, kIpc);
    return true;
}

bool QualifiedUser(const wchar_t* path, const wchar_t* user, wchar_t (&name)[kPathChars]) {
    name[0] = L'\0';
    if (!user || !*user) return true;
    const wchar_t* server = nullptr;
    size_t serverLength = 0;
    ServerPart(path, server, serverLength);
    const size_t userLength = wcslen(user);
    if (serverLength + 1 + userLength >= kPathChars) return false;
    wmemcpy(name, server, serverLength);
    name[serverLength] = L'\\';
    wcscpy_s(name + serverLength + 1, kPathChars - serverLength - 1, user);
    return true;
}

bool QualifiedUserKeepingDomain(const wchar_t* path, const wchar_t* user, wchar_t (&name)[kPathChars]) {
    if (user && wcspbrk(user, L"\\/")) {
        name[0] = L'\0';
        return CopyPart(name, kPathChars, user, wcslen(user));
    }
    return QualifiedUser(path, user, name);
}

DWORD ClassifyConnectionError(DWORD error) {
    switch (error) {
    case ERROR_BAD_NETPATH:            // 53
    case ERROR_NO_NET_OR_BAD_PATH:     // 1203
    case ERROR_BAD_NET_NAME:           // 67
    case ERROR_DIRECTORY:              // 267
    case ERROR_CANCELLED:              // 1223
    case ERROR_NETNAME_DELETED:        // 64
    case 2250:                         // NERR_UseNotFound
        return 3;
    case ERROR_NO_NETWORK:  // 1222
        return 4;
    case ERROR_ACCESS_DENIED:          // 5
    case ERROR_INVALID_PASSWORD:       // 86
    case ERROR_INVALID_PARAMETER:      // 87
    case ERROR_LOGON_FAILURE:          // 1326
    case ERROR_BAD_USERNAME:           // 2202
        return 5;
    default:
        return 67;
    }
}

void JoinNameServer(const wchar_t* primary, const wchar_t* secondary, wchar_t (&text)[100]) {
    // Each field holds at most 19 characters, so the joined text always fits.
    const wchar_t* comma = *primary && *secondary ? L"," : L"";
    _snwprintf_s(text, 100, _TRUNCATE, L"%s%s%s", primary, comma, secondary);
}

}  // namespace wrenkits
