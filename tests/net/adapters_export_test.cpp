// Adapter listing and switching on registry cards and interfaces, with netsh as the
// tool double. Wine's own cards are moved aside for each case and put back after it.
#include <string.h>

#include "Wrenkits.h"
#include "net/net_test_support.h"
#include "support/tool_double.h"

using namespace nettest;
using namespace std::string_literals;

namespace {

const std::wstring kCards = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\NetworkCards", kBackup = L"Software\\WrenkitsNetTest";
const std::wstring kServices = L"SYSTEM\\CurrentControlSet\\Services\\", kInterfaces = kServices + L"Tcpip\\Parameters\\Interfaces";
const std::wstring kNetwork = L"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E972-E325-11CE-BFC1-08002BE10318}\\";
std::wstring Guid(char c) { return L"{0000000"s + wchar_t(c) + L"-0000-0000-0000-0000000000AA}"; }

void Copy(HKEY fromRoot, const std::wstring& from, HKEY toRoot, const std::wstring& to) {
    HKEY source, target;
    if (RegOpenKeyExW(fromRoot, from.c_str(), 0, KEY_READ, &source)) return;
    RegCreateKeyExW(toRoot, to.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &target, nullptr);
    RegCopyTreeW(source, nullptr, target);
    RegCloseKey(target);
    RegCloseKey(source);
}
void Put(const std::wstring& key, const wchar_t* name, DWORD type, const std::wstring& data) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, type, data.c_str(), static_cast<DWORD>(data.size() * 2));
}
// One card with its interface (no "EnableDHCP" for a negative `dhcp`), its legacy key and its connection name.
void Card(char c, const wchar_t* description, int dhcp, const std::wstring& ip, const wchar_t* dns, const wchar_t* connection) {
    const std::wstring interface = kInterfaces + L"\\" + Guid(c);
    Put(kCards + L"\\" + wchar_t(c), L"Description", REG_SZ, description + L"\0"s);
    Put(kCards + L"\\" + wchar_t(c), L"ServiceName", REG_SZ, Guid(c) + L'\0');
    if (dhcp >= 0) RegSetKeyValueW(HKEY_LOCAL_MACHINE, interface.c_str(), L"EnableDHCP", REG_DWORD, &dhcp, 4);
    Put(interface, L"IPAddress", REG_MULTI_SZ, ip + L"\0\0"s);
    Put(interface, L"SubnetMask", REG_MULTI_SZ, L"255.255.0.0\0\0"s);
    Put(interface, L"DefaultGateway", REG_MULTI_SZ, L"10.9.0.1\0\0"s);
    Put(interface, L"NameServer", REG_SZ, dns + L"\0"s);
    Put(kServices + Guid(c) + L"\\Parameters\\Tcpip", nullptr, REG_SZ, L"");
    Put(kNetwork + Guid(c) + L"\\Connection", connection ? L"Name" : L"PnpInstanceID", REG_SZ, (connection ? connection : L"") + L"\0"s);
}
// Four cards: static, DHCP, one without "EnableDHCP" (not listed), one with two addresses (234).
struct Cards {
    Cards() {
        Copy(HKEY_LOCAL_MACHINE, kCards, HKEY_CURRENT_USER, kBackup);
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kCards.c_str());
        Card('A', L"Ethernet A", 0, L"10.9.0.5", L"10.0.0.1,10.0.0.2", L"Ethernet A");
        Card('B', L"Wireless B", 1, L"169.254.1.1", L"10.0.0.1", L"Wi-Fi");
        Card('C', L"No DHCP value", -1, L"10.9.0.6", L"", nullptr);
        Card('D', L"Two addresses", 0, L"192.168.100.10\0""192.168.100.11"s, L"10.0.0.1 10.0.0.2", L"D");
    }
    ~Cards() {
        for (char c : {'A', 'B', 'C', 'D'})
            for (const std::wstring& key : {kCards, kInterfaces, kServices + Guid(c), kNetwork + Guid(c)}) RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
        Copy(HKEY_CURRENT_USER, kBackup, HKEY_LOCAL_MACHINE, kCards);
        RegDeleteTreeW(HKEY_CURRENT_USER, kBackup.c_str());
    }
};

// A record of card `c`: service name, description, DHCP, address, mask, gateway, DNS servers.
AdapterInfo Record(char c, AdapterInfo r) {
    wcscpy_s(r.ServiceName, Guid(c).c_str());
    return r;
}

TEST(EnumNetworkAdapters, CountsFillsAndSkips) {
    const AdapterInfo listed[] = {Record('A', {L"", L"Ethernet A", 0, L"10.9.0.5", L"255.255.0.0", L"10.9.0.1", L"10.0.0.1", L"10.0.0.2"}),
                                  Record('B', {L"", L"Wireless B", 1, L"", L"", L"", L"10.0.0.1", L""}),
                                  Record('D', {L"", L"Two addresses", 0, L"", L"255.255.0.0", L"10.9.0.1", L"10.0.0.1 10.0.0.2", L""})};
    auto in = [](char c) { return " in " + N((kInterfaces + L"\\" + Guid(c)).c_str()) + " error: "; };
    const Lines skipped = {"GetNetworkAdapterInfo get EnableDHCP" + in('C') + "2", "GetNetworkAdapterInfo get IPAddress" + in('D') + "234"};
    const struct { const char* name; bool array, cards; DWORD room, result, count, stored; Lines log; } cases[] = {
        {"null array: only the count", false, true, 7, 0, 3, 0, skipped},
        {"room for one of three: 122, the first stored", true, true, 1, 122, 3, 1, skipped},
        {"room for all", true, true, 4, 0, 3, 3, skipped},
        {"no network-cards key", true, false, 4, 2, 4, 0, {"ZN_EnumNetworkAdapters open " + N(kCards.c_str()) + " error: 2"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Cards cards;
        if (!c.cards) RegDeleteTreeW(HKEY_LOCAL_MACHINE, kCards.c_str());
        AdapterInfo out[5], expected[5];
        memset(out, 0xbd, sizeof out);
        memset(expected, 0xbd, sizeof expected);
        std::copy(listed, listed + c.stored, expected);
        DWORD count = c.room;
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_EnumNetworkAdapters(c.array ? out : nullptr, &count));
        EXPECT_EQ(c.count, count);
        EXPECT_EQ(0, memcmp(expected, out, sizeof out)) << "the records stored";
        ExpectLog(log, c.log);
    }
    EXPECT_EQ(87u, ZN_EnumNetworkAdapters(nullptr, nullptr));
}

// The values the change is judged by, as "name=data" with every NUL shown as '|'.
std::string Dump(const std::wstring& key) {
    std::string out;
    for (const wchar_t* name : {L"EnableDHCP", L"IPAddress", L"SubnetMask", L"DefaultGateway", L"NameServer"}) {
        BYTE data[200] = {};
        DWORD bytes = sizeof data, type = 0;
        if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_ANY | RRF_NOEXPAND, &type, data, &bytes)) continue;
        std::wstring text(reinterpret_cast<wchar_t*>(data), bytes / 2);
        for (wchar_t& ch : text) ch = ch ? ch : L'|';
        out += N(name) + "=" + (type == REG_DWORD ? U(*reinterpret_cast<DWORD*>(data)) : N(text.c_str())) + " ";
    }
    return out;
}

TEST(SetNetworkAdapter, NetshCommandsAndRegistry) {
    const std::string before = "EnableDHCP=0 IPAddress=10.9.0.5|| SubnetMask=255.255.0.0|| DefaultGateway=10.9.0.1|| NameServer=10.0.0.1,10.0.0.2| ";
    const std::string st = "EnableDHCP=0 IPAddress=10.1.1.5|| SubnetMask=255.255.255.0|| DefaultGateway=10.1.1.1|| ";
    const std::string address = "set address name=\"Ethernet A\" source=static addr=10.1.1.5 mask=255.255.255.0 gateway=10.1.1.1";
    const std::string netsh = N(wrtest::SystemDir().c_str()) + "\\netsh.exe interface ip", shell = "ZN_SetNetworkAdapter ==> " + netsh;
    const struct { const char* name; AdapterInfo record; const char* refused; DWORD result; Lines commands; std::string a, legacy, root; Lines log; } cases[] = {
        {"static with two DNS servers", Record('A', {L"", L"", 0, L"10.1.1.5", L"255.255.255.0", L"10.1.1.1", L"8.8.8.8", L"8.8.4.4"}), "", 0, {address, "set dns name=\"Ethernet A\" source=static addr=8.8.8.8 register=primary", "set dns name=\"Ethernet A\" source=static addr=8.8.4.4 index=2"}, st + "NameServer=8.8.8.8,8.8.4.4| ", st, "", {shell}},
        {"static without DNS: servers from DHCP, NameServer empty", Record('A', {L"", L"", 0, L"10.1.1.5", L"255.255.255.0", L"10.1.1.1", L"", L""}), "", 0, {address, "set dns \"Ethernet A\" dhcp"}, st + "NameServer=| ", st, "", {shell}},
        {"netsh refuses the address: nothing written", Record('A', {L"", L"", 0, L"10.1.1.5", L"255.255.255.0", L"10.1.1.1", L"8.8.8.8", L""}), "set address", 1, {address}, before, "", "", {shell, "ZN_RunProcess process " + netsh + " " + address + " result: 1"}},
        {"static with an empty mask", Record('A', {L"", L"", 0, L"10.1.1.5", L"", L"10.1.1.1", L"", L""}), "", 87, {}, before, "", "", {shell}},
        {"to DHCP: EnableDHCP lands on the Interfaces key", Record('A', {L"", L"", 1, L"", L"", L"", L"", L""}), "", 0, {"set dns \"Ethernet A\" dhcp", "set address name=\"Ethernet A\" source=dhcp"}, before, "", "EnableDHCP=1 ", {shell}},
        {"already DHCP: nothing run", Record('B', {L"", L"", 1, L"", L"", L"", L"", L""}), "", 0, {}, before, "", "", {shell}},
        {"unknown adapter: 87, not the open error", Record('E', {L"", L"", 1, L"", L"", L"", L"", L""}), "", 87, {}, before, "", "", {"ZN_SetNetworkAdapter open " + N((kNetwork + Guid('E') + L"\\Connection").c_str()) + " error: 2"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Cards cards;
        wrtest::ToolDouble tools;
        if (*c.refused) tools.OnCommand("netsh", c.refused, "1");
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_SetNetworkAdapter(&c.record));
        Lines expected;
        for (const std::string& command : c.commands) expected.push_back("interface ip " + command);
        EXPECT_EQ(expected, tools.Arguments("netsh"));
        EXPECT_EQ(c.a, Dump(kInterfaces + L"\\" + Guid('A')));
        EXPECT_EQ(c.legacy, Dump(kServices + Guid('A') + L"\\Parameters\\Tcpip"));
        EXPECT_EQ(c.root, Dump(kInterfaces));
        ExpectLog(log, c.log);
    }
    EXPECT_EQ(87u, ZN_SetNetworkAdapter(nullptr));
}

}  // namespace
