#include <windows.h>
#include <iphlpapi.h>
#include <lm.h>
#include <ntsecapi.h>

#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "frame/unique_any.h"

using namespace wrenkits;

namespace {

struct NetApiBufferTraits {
    using type = void*;
    static type invalid() noexcept { return nullptr; }
    static void close(type p) noexcept { ::NetApiBufferFree(p); }
};
struct LsaHandleTraits {
    using type = LSA_HANDLE;
    static type invalid() noexcept { return nullptr; }
    static void close(type h) noexcept { ::LsaClose(h); }
};
struct LsaMemoryTraits {
    using type = void*;
    static type invalid() noexcept { return nullptr; }
    static void close(type p) noexcept { ::LsaFreeMemory(p); }
};
using unique_netapi_buffer = unique_any<NetApiBufferTraits>;
using unique_lsa_handle = unique_any<LsaHandleTraits>;
using unique_lsa_memory = unique_any<LsaMemoryTraits>;

constexpr char kFirstIp[] = "ZN_GetFirstIpAddress";
constexpr char kDomain[] = "ZN_GetDomainName";

// Only wired and wireless cards carry the address the product shows to the user;
// an unconfigured card reports 0.0.0.0, which the length test rules out.
bool UsableAddress(const IP_ADAPTER_INFO& adapter, const char* address) {
    if (adapter.Type != MIB_IF_TYPE_ETHERNET && adapter.Type != IF_TYPE_IEEE80211) return false;
    return strlen(address) > 7 && _stricmp(address, "127.0.0.1") != 0;
}

}  // namespace

extern "C" BOOL WINAPI ZN_GetFirstIpAddress(LPWSTR address) {
    if (!address) {
        RefuseInvalid(kFirstIp, "address buffer");
        return FALSE;
    }

    ULONG bytes = sizeof(IP_ADAPTER_INFO);
    unique_global block(::GlobalAlloc(GPTR, bytes));
    if (!block) {
        LogA("%s call GlobalAlloc error: %d", kFirstIp, ::GetLastError());
        return FALSE;
    }
    // The adapter query answers with its status rather than the thread's last error,
    // so the status is what the log reports.
    DWORD status = ::GetAdaptersInfo(static_cast<IP_ADAPTER_INFO*>(block.get()), &bytes);
    if (status == ERROR_BUFFER_OVERFLOW) {
        block.reset();
        block.reset(::GlobalAlloc(GPTR, bytes));
        if (!block) {
            LogA("%s call GlobalAlloc(%d) error: %d", kFirstIp, static_cast<int>(bytes), ::GetLastError());
            return FALSE;
        }
        status = ::GetAdaptersInfo(static_cast<IP_ADAPTER_INFO*>(block.get()), &bytes);
    }
    if (status != NO_ERROR) {
        LogA("%s call GetAdaptersInfo error: %d", kFirstIp, status);
        return FALSE;
    }

    for (auto* adapter = static_cast<const IP_ADAPTER_INFO*>(block.get()); adapter; adapter = adapter->Next) {
        // The platform's text field is 16 bytes with no room promised for a terminator.
        char text[sizeof(adapter->IpAddressList.IpAddress.String) + 1] = {};
        memcpy(text, adapter->IpAddressList.IpAddress.String, sizeof(adapter->IpAddressList.IpAddress.String));
        LogA("%s ----> type: %d, %s", kFirstIp, static_cast<int>(adapter->Type), text);
        if (UsableAddress(*adapter, text)) {
            _snwprintf_s(address, 16, _TRUNCATE, L"%S", text);
            return TRUE;
        }
    }
    return FALSE;
}

extern "C" DWORD WINAPI ZN_GetDomainName(LPWSTR name, LPDWORD inDomain, LPDWORD inWorkgroup) {
    if (!name || !inDomain || !inWorkgroup) return RefuseInvalid(kDomain, "output");
    *inDomain = 0;
    *inWorkgroup = 0;

    unique_netapi_buffer workstation;
    const NET_API_STATUS netStatus = ::NetWkstaGetInfo(nullptr, 100, reinterpret_cast<BYTE**>(workstation.put()));
    if (netStatus != NERR_Success) {
        LogA("%s call NetWkstaGetInfo error: %d", kDomain, static_cast<int>(netStatus));
        return netStatus;
    }

    LSA_OBJECT_ATTRIBUTES attributes = {};
    unique_lsa_handle policy;
    NTSTATUS status = ::LsaOpenPolicy(nullptr, &attributes, GENERIC_READ | POLICY_VIEW_LOCAL_INFORMATION, policy.put());
    if (status != 0) {
        const DWORD error = ::LsaNtStatusToWinError(status);
        LogA("%s call LsaOpenPolicy error: %d", kDomain, static_cast<int>(error));
        return error;
    }
    unique_lsa_memory information;
    status = ::LsaQueryInformationPolicy(policy.get(), PolicyPrimaryDomainInformation, information.put());
    if (status != 0) {
        const DWORD error = ::LsaNtStatusToWinError(status);
        LogA("%s call LsaQueryInformationPolicy error: %d", kDomain, static_cast<int>(error));
        return error;
    }

    const auto* primary = static_cast<const POLICY_PRIMARY_DOMAIN_INFO*>(information.get());
    const size_t chars = primary->Name.Buffer ? primary->Name.Length / sizeof(WCHAR) : 0;
    if (chars >= kPathChars) return RefuseTooLong(kDomain, "domain name", kPathChars - 1);
    if (chars) wmemcpy(name, primary->Name.Buffer, chars);
    name[chars] = L'\0';

    if (primary->Sid) {
        *inDomain = 1;
    } else {
        // A stand-alone machine reports its workgroup here; one that reports its own
        // name is in neither.
        const wchar_t* computer = static_cast<const WKSTA_INFO_100*>(workstation.get())->wki100_computername;
        if (wcsncmp(name, computer, wcslen(computer)) != 0) *inWorkgroup = 1;
    }
    return 0;
}
