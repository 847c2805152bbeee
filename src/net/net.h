// Network: the pieces shared by the share, path-check and adapter functions, and the
// decisions over plain text that need no OS.
#pragma once

#include <windows.h>
#include <winnetwk.h>

#include "Wrenkits.h"
#include "frame/text.h"
#include "net/name_server.h"

// Whether `folder` is reachable and, when `checkWrite` is non-zero, writable: a
// directory is created in it and removed again. 0 reachable (and writable), 112 disk
// full, 5 access denied, 53 unreachable or not writable for another reason, 206 when
// the probe's name would not fit a path.
DWORD CheckPathWrite(LPCWSTR folder, DWORD checkWrite);

// True when a connected resource whose remote name begins with `serverPrefix`
// (ignoring case) has a drive letter. Ends and closes `enumeration` in any case.
BOOL NetPathIsMounted(LPCWSTR serverPrefix, HANDLE* enumeration);

// Fills DhcpEnabled, the address fields and the DNS fields of `info` from the
// interface key of `serviceName`; returns the status of reading "EnableDHCP".
DWORD GetNetworkAdapterInfo(LPCWSTR serviceName, AdapterInfo* info);
// Sets "EnableDHCP" to 1 under the interface key of the record's service name.
DWORD EnableDhcp(const AdapterInfo* adapter);
// Writes the record's static settings under the interface key and the legacy key.
DWORD SetStaticIp(const AdapterInfo* adapter);

namespace wrenkits {

// The connectable disk resource a share connection without a drive letter asks for.
inline NETRESOURCEW ShareResource(wchar_t* share) {
    NETRESOURCEW resource = {};
    resource.dwScope = RESOURCE_GLOBALNET;
    resource.dwType = RESOURCETYPE_DISK;
    resource.dwUsage = RESOURCEUSAGE_CONNECTABLE;
    resource.lpRemoteName = share;
    return resource;
}

// What a UNC path gives when its share part is cut out of it.
enum class ShareCut {
    Share,    // `share` holds \\server\share
    NoShare,  // no backslash follows the server name
    TooLong,  // \\server\share is longer than a path may be
};

// \\server\share: the path up to the backslash that follows the share's name, the
// server name being at least one character long.
ShareCut ShareName(const wchar_t* path, wchar_t (&share)[kPathChars]);
// \\server\IPC$, the session every share of the server rides on. False when it
// would not fit a path.
bool IpcName(const wchar_t* path, wchar_t (&ipc)[kPathChars]);
// "server\user" for a user given without domain, the server taken from the path;
// empty for an empty (or null) user. False when the name would not fit.
bool QualifiedUser(const wchar_t* path, const wchar_t* user, wchar_t (&name)[kPathChars]);
// As QualifiedUser, but a user that names its domain ("CORP\admin", "corp/admin")
// is taken as it stands.
bool QualifiedUserKeepingDomain(const wchar_t* path, const wchar_t* user, wchar_t (&name)[kPathChars]);

// The path check's answer for a connection error other than 0 and 1219.
DWORD ClassifyConnectionError(DWORD error);

// The "NameServer" text of two DNS fields: "primary,secondary", without the comma
// when either is empty.
void JoinNameServer(const wchar_t* primary, const wchar_t* secondary, wchar_t (&text)[100]);

}  // namespace wrenkits
