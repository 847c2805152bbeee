// The machine's first address from a served adapter list, and its domain or
// workgroup from Wine itself and from served policy answers.
#include <iphlpapi.h>
#include <lm.h>
#include <ntsecapi.h>

#include <optional>

#include "Wrenkits.h"
#include "net/net_test_support.h"
#include "support/log_capture.h"

using namespace nettest;

namespace {

struct Adapter {
    UINT type;
    const char* address;
};
struct AddressCase {
    const char* name;
    std::vector<Adapter> adapters;
    BOOL result;
    const wchar_t* address;      // what `address` holds afterwards
    std::vector<ULONG> offered;  // the buffer sizes the library offered, in records
    Lines log;
    int failingCall = 0;         // this call (1 or 2) answers `error`
    DWORD error = 0;
};
const AddressCase* g_case;
std::vector<ULONG> g_offered;

// Fills the caller's buffer with a real chain of adapter records, or asks for more room.
ULONG WINAPI FakeAdaptersInfo(IP_ADAPTER_INFO* list, ULONG* bytes) {
    g_offered.push_back(*bytes / sizeof(IP_ADAPTER_INFO));
    if (static_cast<int>(g_offered.size()) == g_case->failingCall) return g_case->error;
    const ULONG need = static_cast<ULONG>(g_case->adapters.size() * sizeof(IP_ADAPTER_INFO));
    if (*bytes < need) {
        *bytes = need;
        return ERROR_BUFFER_OVERFLOW;
    }
    for (size_t i = 0; i < g_case->adapters.size(); ++i) {
        list[i] = {};
        list[i].Type = g_case->adapters[i].type;
        strcpy_s(list[i].IpAddressList.IpAddress.String, g_case->adapters[i].address);
        list[i].Next = i + 1 < g_case->adapters.size() ? &list[i + 1] : nullptr;
    }
    return NO_ERROR;
}

TEST(GetFirstIpAddress, WalksTheAdapterList) {
    auto seen = [](UINT type, const char* address) { return "ZN_GetFirstIpAddress ----> type: " + U(type) + ", " + address; };
    const AddressCase cases[] = {
        {"0.0.0.0 and loopback skipped, wireless taken after a second allocation",
         {{6, "0.0.0.0"}, {24, "127.0.0.1"}, {6, "127.0.0.1"}, {71, "192.168.1.7"}, {6, "10.0.0.9"}}, TRUE,
         L"192.168.1.7", {1, 5}, {seen(6, "0.0.0.0"), seen(24, "127.0.0.1"), seen(6, "127.0.0.1"), seen(71, "192.168.1.7")}},
        {"nothing usable in one block: output untouched", {{23, "10.0.0.1"}}, FALSE, L"canary", {1}, {seen(23, "10.0.0.1")}},
        {"second query fails", {{6, "0.0.0.0"}, {6, "10.1.2.3"}}, FALSE, L"canary", {1, 2},
         {"ZN_GetFirstIpAddress call GetAdaptersInfo error: 8"}, 2, 8},
    };
    for (const AddressCase& c : cases) {
        SCOPED_TRACE(c.name);
        g_case = &c;
        g_offered.clear();
        wrtest::ImportHook hook("IPHLPAPI.DLL", "GetAdaptersInfo", reinterpret_cast<void*>(FakeAdaptersInfo));
        wrtest::LogCapture log;
        wchar_t address[16] = L"canary";
        EXPECT_EQ(c.result, ZN_GetFirstIpAddress(address));
        EXPECT_STREQ(c.address, address);
        EXPECT_EQ(c.offered, g_offered);
        boottest::ExpectLog(log, c.log);
    }
}

// Served policy answers; what the library frees is counted, not handed to the system.
POLICY_PRIMARY_DOMAIN_INFO g_domain;
BYTE g_sid[12] = {1, 1, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0};
int g_freed = 0;
NTSTATUS WINAPI FakeQueryPolicy(LSA_HANDLE, POLICY_INFORMATION_CLASS, void** out) {
    *out = &g_domain;
    return 0;
}
NTSTATUS WINAPI FakeFree(void* p) {
    g_freed += p == &g_domain;
    return 0;
}
NET_API_STATUS WINAPI FakeWorkstation(LPWSTR, DWORD, BYTE**) { return 2138; }

TEST(GetDomainName, DomainWorkgroupOrNeither) {
    wchar_t computer[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD chars = MAX_COMPUTERNAME_LENGTH + 1;
    ASSERT_TRUE(GetComputerNameW(computer, &chars));
    enum class Serve { Nothing, Policy, FailingWorkstation };
    struct Case {
        const char* name;
        Serve serve;
        const wchar_t* served;  // the primary domain name served, with a SID when `sid`
        bool sid;
        DWORD result, inDomain, inWorkgroup;
        const wchar_t* out;
        Lines log;
    } cases[] = {
        {"Wine's own answer: a workgroup", Serve::Nothing, nullptr, false, 0, 0, 1, L"DOMAIN", {}},
        {"a domain SID: in the domain", Serve::Policy, L"CORP", true, 0, 1, 0, L"CORP", {}},
        {"workgroup named like the computer: neither", Serve::Policy, computer, false, 0, 0, 0, computer, {}},
        {"workstation service down", Serve::FailingWorkstation, nullptr, false, 2138, 0, 0, L"canary",
         {"ZN_GetDomainName call NetWkstaGetInfo error: 2138"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<wrtest::ImportHook> a, b;
        if (c.serve == Serve::Policy) {
            g_domain.Name.Buffer = const_cast<PWSTR>(c.served);
            g_domain.Name.Length = g_domain.Name.MaximumLength = static_cast<USHORT>(wcslen(c.served) * 2);
            g_domain.Sid = c.sid ? g_sid : nullptr;
            a.emplace("ADVAPI32.dll", "LsaQueryInformationPolicy", reinterpret_cast<void*>(FakeQueryPolicy));
            b.emplace("ADVAPI32.dll", "LsaFreeMemory", reinterpret_cast<void*>(FakeFree));
        }
        if (c.serve == Serve::FailingWorkstation)
            a.emplace("NETAPI32.dll", "NetWkstaGetInfo", reinterpret_cast<void*>(FakeWorkstation));
        g_freed = 0;
        wrtest::LogCapture log;
        wchar_t name[MAX_PATH] = L"canary";
        DWORD inDomain = 0xdeadbeef, inWorkgroup = 0xdeadbeef;
        EXPECT_EQ(c.result, ZN_GetDomainName(name, &inDomain, &inWorkgroup));
        EXPECT_STREQ(c.out, name);
        EXPECT_EQ(c.inDomain, inDomain);
        EXPECT_EQ(c.inWorkgroup, inWorkgroup);
        EXPECT_EQ(c.serve == Serve::Policy, g_freed == 1) << "the policy answer is freed once";
        boottest::ExpectLog(log, c.log);
    }
}

}  // namespace
