#include <windows.h>
#include <tlhelp32.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/unique_any.h"
#include "security/tokens.h"

using namespace wrenkits;

namespace {

struct sid_traits {
    using type = PSID;
    static type invalid() noexcept { return nullptr; }
    static void close(type sid) noexcept { ::FreeSid(sid); }
};
using unique_sid = unique_any<sid_traits>;

constexpr DWORD kTokenBlockBytes = 1024;
constexpr DWORD kAllAdminBits = SE_GROUP_MANDATORY | SE_GROUP_ENABLED_BY_DEFAULT | SE_GROUP_ENABLED | SE_GROUP_OWNER;
constexpr DWORD kAdminTokenAccess = TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES |
                                    TOKEN_ADJUST_GROUPS | TOKEN_ADJUST_DEFAULT | TOKEN_ADJUST_SESSIONID | READ_CONTROL;
constexpr DWORD kExplorerTokenAccess = TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY;
static_assert(kAdminTokenAccess == 0x201EB && kExplorerTokenAccess == 15 && kAllAdminBits == 0x0F);

bool HoldsEnabledAdministrators(const TOKEN_GROUPS& groups, PSID administrators) {
    bool found = false;
    // Every entry is looked at: a token may list the group more than once.
    for (DWORD i = 0; i < groups.GroupCount; ++i)
        if (::EqualSid(groups.Groups[i].Sid, administrators) &&
            (groups.Groups[i].Attributes & kAllAdminBits) == kAllAdminBits)
            found = true;
    return found;
}

bool BelongsToSystem(HANDLE token, HLOCAL block, DWORD blockBytes) {
    DWORD needed = 0;
    if (!::GetTokenInformation(token, TokenUser, block, blockBytes, &needed)) return false;
    wchar_t name[512], domain[MAX_PATH];
    DWORD nameChars = _countof(name), domainChars = _countof(domain);
    SID_NAME_USE use;
    if (!::LookupAccountSidW(nullptr, static_cast<TOKEN_USER*>(block)->User.Sid, name, &nameChars, domain,
                             &domainChars, &use))
        return false;
    return _wcsicmp(name, L"SYSTEM") == 0;
}

// Walks the rest of a snapshot, opening each process's token until `stop` accepts
// one. Deliberately a single variable that is never reset or closed here: tokens of
// processes that do not match stay open, and when nothing matches the last token
// opened is the one the caller gets to use.
template <typename Stop>
HANDLE ScanProcessTokens(HANDLE snapshot, PROCESSENTRY32W& entry, DWORD access, Stop stop) {
    HANDLE token = nullptr;
    do {
        unique_handle process(::OpenProcess(MAXIMUM_ALLOWED, FALSE, entry.th32ProcessID));
        if (!process) continue;
        HANDLE opened = nullptr;
        const bool ok = ::OpenProcessToken(process.get(), access, &opened);
        if (ok) token = opened;
        process.reset();
        if (ok && stop(token, entry)) break;
    } while (::Process32NextW(snapshot, &entry));
    return token;
}

// Consumes `source`; the duplicate is the caller's to close.
HANDLE DuplicatePrimary(HANDLE source) {
    unique_handle owned(source);
    HANDLE duplicate = nullptr;
    if (!::DuplicateTokenEx(source, MAXIMUM_ALLOWED, nullptr, SecurityIdentification, TokenPrimary, &duplicate)) {
        LogA("GetAdminToken DuplicateToken failed, error: %d", ::GetLastError());
        return nullptr;
    }
    return duplicate;
}

}  // namespace

BOOL IsAdminToken(PHANDLE token) {
    constexpr char kName[] = "IsAdminToken";
    if (!token || !*token) return FALSE;
    SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
    unique_sid administrators;
    if (!::AllocateAndInitializeSid(&ntAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0,
                                    0, 0, 0, administrators.put())) {
        LogA("%s AllocateAndInitializeSid error: %d", kName, ::GetLastError());
        return FALSE;
    }
    unique_local block(::LocalAlloc(LMEM_ZEROINIT, kTokenBlockBytes));
    if (!block) {
        LogA("%s LocalAlloc error: %d", kName, ::GetLastError());
        return FALSE;
    }
    DWORD blockBytes = kTokenBlockBytes, needed = 0;
    BOOL read = ::GetTokenInformation(*token, TokenGroups, block.get(), blockBytes, &needed);
    if (!read && ::GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        // A fixed block reallocated without LMEM_MOVEABLE may only grow in place, which
        // fails whenever its neighbour is taken; the group list would then go unread.
        HLOCAL grown = ::LocalReAlloc(block.get(), needed, LMEM_MOVEABLE);
        if (!grown) {
            LogA("%s LocalReAlloc error: %d", kName, ::GetLastError());
            return FALSE;
        }
        (void)block.release();  // moved to `grown` by the reallocation
        block.reset(grown);
        blockBytes = needed;
        read = ::GetTokenInformation(*token, TokenGroups, block.get(), blockBytes, &needed);
    }
    if (!read) {
        LogA("%s GetTokenInformation error: %d", kName, ::GetLastError());
        return FALSE;
    }
    const bool admin = HoldsEnabledAdministrators(*static_cast<TOKEN_GROUPS*>(block.get()), administrators.get());
    const bool system = BelongsToSystem(*token, block.get(), blockBytes);
    return admin && !system;
}

extern "C" HANDLE WINAPI ZN_GetSystemToken(void) {
    unique_handle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return nullptr;
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    if (!::Process32FirstW(snapshot.get(), &entry)) return nullptr;

    ZN_SetPrivilegeW(L"SeDebugPrivilege", TRUE);
    HANDLE token = ScanProcessTokens(snapshot.get(), entry, TOKEN_DUPLICATE, [](HANDLE, const PROCESSENTRY32W& e) {
        if (_wcsicmp(e.szExeFile, L"winlogon.exe") != 0) return false;
        LogW(L"%S use the token of process: %s", "ZN_GetSystemToken", e.szExeFile);
        return true;
    });
    snapshot.reset();

    HANDLE duplicate = nullptr;
    if (token)
        duplicate = DuplicatePrimary(token);
    else
        LogA("%s not find the winlogon.exe process, last error: %d", "ZN_GetSystemToken", ::GetLastError());
    ZN_SetPrivilegeW(L"SeDebugPrivilege", FALSE);
    return duplicate;
}

extern "C" HANDLE WINAPI ZN_GetAdminToken(void) {
    unique_handle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return nullptr;
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    if (!::Process32FirstW(snapshot.get(), &entry)) return nullptr;

    HANDLE token = ScanProcessTokens(snapshot.get(), entry, kAdminTokenAccess, [](HANDLE t, const PROCESSENTRY32W& e) {
        if (!IsAdminToken(&t)) return false;
        LogW(L"%S use the token of process: %s", "ZN_GetAdminToken", e.szExeFile);
        return true;
    });
    snapshot.reset();
    return token ? DuplicatePrimary(token) : nullptr;
}

extern "C" DWORD WINAPI ZN_GetExplorerToken(PHANDLE token) {
    if (!token) return 1;
    *token = nullptr;
    unique_handle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return ERROR_NOT_FOUND;
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    BOOL more = ::Process32FirstW(snapshot.get(), &entry);
    while (more && _wcsicmp(entry.szExeFile, L"explorer.exe") != 0) more = ::Process32NextW(snapshot.get(), &entry);
    if (!more) return ERROR_NOT_FOUND;

    unique_handle process(::OpenProcess(MAXIMUM_ALLOWED, FALSE, entry.th32ProcessID));
    unique_handle opened;
    if (!process || !::OpenProcessToken(process.get(), kExplorerTokenAccess, opened.put())) {
        LogA("%s open token error: %d", "ZN_GetExplorerToken", ::GetLastError());
        return ERROR_NOT_FOUND;
    }
    // Deliberately left open on success, as callers of this export have always had it.
    (void)snapshot.release();
    (void)process.release();
    // Handed out as opened, deliberately not duplicated: the caller closes it.
    *token = opened.release();
    return 0;
}
