// The machine's first address from a served adapter list, and its domain or
// workgroup from Wine itself and from served policy answers.
#include <iphlpapi.h>
#include <lm.h>
#include <ntsecapi.h>

#include <optional>

#include "Wrenkits.h"
#include "net/net_test_support.h"

using namespace nettest;

namespace {

std::vector<std::pair<UINT, const char*>> g_adapters;  // type and address of each served adapter
std::vector<ULONG> g_offered;                          // the buffer sizes the library offered, in records
ULONG g_failingCall;                                   // this query answers 8

// Fills the caller's buffer with a real chain of adapter records, or asks for more room.
ULONG WINAPI AdaptersInfo(IP_ADAPTER_INFO* list, ULONG* bytes) {
    g_offered.push_back(*bytes / sizeof(IP_ADAPTER_INFO));
    if (g_offered.size() == g_failingCall) return ERROR_NOT_ENOUGH_MEMORY;
    const ULONG need = static_cast<ULONG>(g_adapters.size() * sizeof(IP_ADAPTER_INFO));
    if (*bytes < need) return *bytes = need, ERROR_BUFFER_OVERFLOW;
    for (size_t i = 0; i < g_adapters.size(); ++i) {
        list[i] = {};
        list[i].Type = g_adapters[i].first;
        strcpy_s(list[i].IpAddressList.IpAddress.String, g_adapters[i].second);
        list[i].Next = i + 1 < g_adapters.size() ? &list[i + 1] : nullptr;
    }
    return NO_ERROR;
}

TEST(GetFirstIpAddress, WalksTheAdapterList) {
    auto seen = [](UINT type, const char* address) { return "ZN_GetFirstIpAddress ----> type: " + U(type) + ", " + address; };
    const struct { const char* name; decltype(g_adapters) adapters; BOOL result; const wchar_t* address; std::vector<ULONG> offered; Lines log; ULONG failingCall; } cases[] = {
        {"0.0.0.0 and loopback skipped, wireless taken after a second allocation", {{6, "0.0.0.0"}, {24, "127.0.0.1"}, {6, "127.0.0.1"}, {71, "192.168.1.7"}, {6, "10.0.0.9"}}, TRUE, L"192.168.1.7", {1, 5}, {seen(6, "0.0.0.0"), seen(24, "127.0.0.1"), seen(6, "127.0.0.1"), seen(71, "192.168.1.7")}, 0},
        {"nothing usable in one block: output untouched", {{23, "10.0.0.1"}}, FALSE, L"canary", {1}, {seen(23, "10.0.0.1")}, 0},
        {"second query fails", {{6, "0.0.0.0"}, {6, "10.1.2.3"}}, FALSE, L"canary", {1, 2}, {"ZN_GetFirstIpAddress call GetAdaptersInfo error: 8"}, 2},
    };
    wrtest::ImportHook hook("IPHLPAPI.DLL", "GetAdaptersInfo", reinterpret_cast<void*>(AdaptersInfo));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        g_adapters = c.adapters;
        g_failingCall = c.failingCall;
        g_offered.clear();
        wrtest::LogCapture log;
        wchar_t address[16] = L"canary";
        EXPECT_EQ(c.result, ZN_GetFirstIpAddress(address));
        EXPECT_STREQ(c.address, address);
        EXPECT_EQ(c.offered, g_offered);
        ExpectLog(log, c.log);
    }
}

// Served policy answers; what the library frees is counted, not handed to the system.
POLICY_PRIMARY_DOMAIN_INFO g_domain;
BYTE g_sid[12] = {1, 1, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0};
int g_freed = 0;
NTSTATUS WINAPI QueryPolicy(LSA_HANDLE, POLICY_INFORMATION_CLASS, void** out) { return *out = &g_domain, 0; }
NTSTATUS WINAPI Free(void* p) { return g_freed += p == &g_domain, 0; }
NET_API_STATUS WINAPI Workstation(LPWSTR, DWORD, BYTE**) { return 2138; }

TEST(GetDomainName, DomainWorkgroupOrNeither) {
    wchar_t computer[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD chars = MAX_COMPUTERNAME_LENGTH + 1;
    ASSERT_TRUE(GetComputerNameW(computer, &chars));
    // `served`: the primary domain name served (nullptr: Wine answers), with a SID when `sid`.
    const struct { const char* name; const wchar_t* served; bool sid, workstationDown; DWORD result, inDomain, inWorkgroup; const wchar_t* out; Lines log; } cases[] = {
        {"a domain SID: in the domain", L"CORP", true, false, 0, 1, 0, L"CORP", {}},
        {"workgroup named like the computer: neither", computer, false, false, 0, 0, 0, computer, {}},
        {"workstation service down", nullptr, false, true, 2138, 0, 0, L"canary", {"ZN_GetDomainName call NetWkstaGetInfo error: 2138"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<wrtest::ImportHook> query, free, workstation;
        if (c.served) {
            g_domain.Name.Buffer = const_cast<PWSTR>(c.served);
            g_domain.Name.Length = g_domain.Name.MaximumLength = static_cast<USHORT>(wcslen(c.served) * 2);
            g_domain.Sid = c.sid ? g_sid : nullptr;
            query.emplace("ADVAPI32.dll", "LsaQueryInformationPolicy", reinterpret_cast<void*>(QueryPolicy));
            free.emplace("ADVAPI32.dll", "LsaFreeMemory", reinterpret_cast<void*>(Free));
        }
        if (c.workstationDown) workstation.emplace("NETAPI32.dll", "NetWkstaGetInfo", reinterpret_cast<void*>(Workstation));
        g_freed = 0;
        wrtest::LogCapture log;
        wchar_t name[MAX_PATH] = L"canary";
        DWORD inDomain = 7, inWorkgroup = 7;
        EXPECT_EQ(c.result, ZN_GetDomainName(name, &inDomain, &inWorkgroup));
        EXPECT_EQ(N(c.out) + " " + U(c.inDomain) + U(c.inWorkgroup), N(name) + " " + U(inDomain) + U(inWorkgroup));
        EXPECT_EQ(c.served != nullptr, g_freed == 1) << "the policy answer is freed once";
        ExpectLog(log, c.log);
    }
}

}  // namespace
