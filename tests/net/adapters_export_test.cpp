// Adapter listing and switching on registry fixtures of network cards and interfaces,
// with netsh as the tool double. Every key the tests touch is put back afterwards.
#include <string.h>

#include "Wrenkits.h"
#include "net/net_test_support.h"
#include "support/log_capture.h"
#include "support/tool_double.h"

using namespace nettest;

namespace {

const std::wstring kCards = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\NetworkCards";
const std::wstring kServices = L"SYSTEM\\CurrentControlSet\\Services\\";
const std::wstring kInterfaces = kServices + L"Tcpip\\Parameters\\Interfaces";
const std::wstring kNetwork = L"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E972-E325-11CE-BFC1-08002BE10318}\\";
std::wstring Guid(char c) { return L"{0000000" + std::wstring(1, c) + L"-0000-0000-0000-0000000000AA}"; }

// HKLM keys moved aside for one test and put back as they were, whatever it did to them.
class SavedKeys {
public:
    SavedKeys() {
        for (char c : {'A', 'B', 'C', 'D', 'E'}) keys_.insert(keys_.end(), {kServices + Guid(c), kNetwork + Guid(c)});
        for (size_t i = 0; i < keys_.size(); ++i) Move(HKEY_LOCAL_MACHINE, keys_[i], HKEY_CURRENT_USER, Backup(i));
    }
    ~SavedKeys() {
        for (size_t i = 0; i < keys_.size(); ++i) Move(HKEY_CURRENT_USER, Backup(i), HKEY_LOCAL_MACHINE, keys_[i]);
    }

private:
    static std::wstring Backup(size_t i) { return L"Software\\WrenkitsNetTest\\" + std::to_wstring(i); }
    // Replaces `to` by a copy of `from` (nothing, when `from` is missing) and deletes `from`.
    static void Move(HKEY fromRoot, const std::wstring& from, HKEY toRoot, const std::wstring& to) {
        RegDeleteTreeW(toRoot, to.c_str());
        RegDeleteKeyW(toRoot, to.c_str());
        HKEY source, target;
        if (RegOpenKeyExW(fromRoot, from.c_str(), 0, KEY_READ, &source)) return;
        RegCreateKeyExW(toRoot, to.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &target, nullptr);
        RegCopyTreeW(source, nullptr, target);
        RegCloseKey(target);
        RegCloseKey(source);
        RegDeleteTreeW(fromRoot, from.c_str());
        RegDeleteKeyW(fromRoot, from.c_str());
    }
    std::vector<std::wstring> keys_ = {kCards, kInterfaces};
};

void Put(const std::wstring& key, const wchar_t* name, DWORD type, const std::wstring& data) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, type, data.c_str(), static_cast<DWORD>(data.size() * 2));
}
void Put(const std::wstring& key, const wchar_t* name, DWORD data) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, REG_DWORD, &data, sizeof data);
}
using namespace std::string_literals;
// One card with its interface (no "EnableDHCP" for a negative `dhcp`) and its connection name.
void Card(char c, const wchar_t* description, int dhcp, const std::wstring& ip, const wchar_t* servers,
          const wchar_t* connection) {
    const std::wstring card = kCards + L"\\" + std::to_wstring(c - 'A' + 1), interface = kInterfaces + L"\\" + Guid(c);
    Put(card, L"Description", REG_SZ, description + L"\0"s);
    Put(card, L"ServiceName", REG_SZ, Guid(c) + L'\0');
    if (dhcp >= 0) Put(interface, L"EnableDHCP", static_cast<DWORD>(dhcp));
    Put(interface, L"IPAddress", REG_MULTI_SZ, ip + L"\0\0"s);
    Put(interface, L"SubnetMask", REG_MULTI_SZ, L"255.255.0.0\0\0"s);
    Put(interface, L"DefaultGateway", REG_MULTI_SZ, L"10.9.0.1\0\0"s);
    Put(interface, L"NameServer", REG_SZ, servers + L"\0"s);
    HKEY legacy;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, (kServices + Guid(c) + L"\\Parameters\\Tcpip").c_str(), 0, nullptr, 0,
                    KEY_WRITE, nullptr, &legacy, nullptr);
    RegCloseKey(legacy);
    Put(kNetwork + Guid(c) + L"\\Connection", connection ? L"Name" : L"PnpInstanceID", REG_SZ,
        (connection ? connection : L"") + L"\0"s);
}
void Cards() {
    Card('A', L"Ethernet A", 0, L"10.9.0.5", L"10.0.0.1,10.0.0.2", L"Ethernet A");
    Card('B', L"Wireless B", 1, L"169.254.1.1", L"10.0.0.1", L"Wi-Fi");
    Card('C', L"No DHCP value", -1, L"10.9.0.6", L"", nullptr);
    Card('D', L"Two addresses", 0, L"192.168.100.10\0""192.168.100.11"s, L"10.0.0.1 10.0.0.2", L"D");
}

AdapterInfo Record(char c, const wchar_t* description, DWORD dhcp, const wchar_t* ip, const wchar_t* dns1,
                   const wchar_t* dns2 = L"", const wchar_t* mask = L"255.255.0.0", const wchar_t* gw = L"10.9.0.1") {
    AdapterInfo r = {};
    wcscpy_s(r.ServiceName, Guid(c).c_str());
    wcscpy_s(r.Description, description);
    r.DhcpEnabled = dhcp;
    wcscpy_s(r.IpAddress, ip);
    wcscpy_s(r.SubnetMask, dhcp ? L"" : mask);
    wcscpy_s(r.DefaultGateway, dhcp ? L"" : gw);
    wcscpy_s(r.PrimaryDns, dns1);
    wcscpy_s(r.SecondaryDns, dns2);
    return r;
}
std::string In(char c) { return " in " + N((kInterfaces + L"\\" + Guid(c)).c_str()) + " error: "; }

TEST(EnumNetworkAdapters, CountsFillsAndSkips) {
    const AdapterInfo listed[] = {Record('A', L"Ethernet A", 0, L"10.9.0.5", L"10.0.0.1", L"10.0.0.2"),
                                  Record('B', L"Wireless B", 1, L"", L"10.0.0.1"),
                                  Record('D', L"Two addresses", 0, L"", L"10.0.0.1 10.0.0.2")};
    const Lines skipped = {"GetNetworkAdapterInfo get EnableDHCP" + In('C') + "2",
                           "GetNetworkAdapterInfo get IPAddress" + In('D') + "234"};
    struct Case {
        const char* name;
        bool array, cards;
        DWORD room, result, count, stored;
        Lines log;
    } cases[] = {
        {"null array: only the count", false, true, 7, 0, 3, 0, skipped},
        {"room for one of three: 122, the first stored", true, true, 1, 122, 3, 1, skipped},
        {"room for all", true, true, 4, 0, 3, 3, skipped},
        {"no network-cards key", true, false, 4, 2, 4, 0,
         {"ZN_EnumNetworkAdapters open SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\NetworkCards error: 2"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SavedKeys saved;
        if (c.cards) Cards();
        AdapterInfo out[5];
        memset(out, 0xbd, sizeof out);
        DWORD count = c.room;
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_EnumNetworkAdapters(c.array ? out : nullptr, &count));
        EXPECT_EQ(c.count, count);
        for (DWORD i = 0; i < 5; ++i) {
            AdapterInfo expected;
            memset(&expected, 0xbd, sizeof expected);
            if (i < c.stored) expected = listed[i];
            EXPECT_EQ(0, memcmp(&expected, &out[i], sizeof expected)) << "record " << i;
        }
        boottest::ExpectLog(log, c.log);
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
        out += N(name) + "=" + (type == REG_DWORD ? std::to_string(*reinterpret_cast<DWORD*>(data)) : N(text.c_str())) + " ";
    }
    return out;
}

TEST(SetNetworkAdapter, NetshCommandsAndRegistry) {
    const std::string a0 = "EnableDHCP=0 IPAddress=10.9.0.5|| SubnetMask=255.255.0.0|| DefaultGateway=10.9.0.1|| ";
    const std::string aBefore = a0 + "NameServer=10.0.0.1,10.0.0.2| ";
    const std::string st = "EnableDHCP=0 IPAddress=10.1.1.5|| SubnetMask=255.255.255.0|| DefaultGateway=10.1.1.1|| ";
    const std::string address = "set address name=\"Ethernet A\" source=static addr=10.1.1.5 mask=255.255.255.0 gateway=10.1.1.1";
    const std::string netsh = N(wrtest::SystemDir().c_str()) + "\\netsh.exe interface ip";
    const std::string shell = "ZN_SetNetworkAdapter ==> " + netsh;
    auto failed = [&](const std::string& command, int code) {
        return "ZN_RunProcess process " + netsh + " " + command + " result: " + std::to_string(code);
    };
    auto to = [](const wchar_t* dns1, const wchar_t* dns2, const wchar_t* mask = L"255.255.255.0") {
        return Record('A', L"", 0, L"10.1.1.5", dns1, dns2, mask, L"10.1.1.1");
    };
    struct Case {
        const char* name;
        AdapterInfo record;
        DWORD result;
        Lines commands;
        std::string a, legacy, root = "";
        Lines log;
        std::pair<std::string, int> rule = {"", 0};
    } cases[] = {
        {"static with two DNS servers", to(L"8.8.8.8", L"8.8.4.4"), 0,
         {address, "set dns name=\"Ethernet A\" source=static addr=8.8.8.8 register=primary",
          "set dns name=\"Ethernet A\" source=static addr=8.8.4.4 index=2"},
         st + "NameServer=8.8.8.8,8.8.4.4| ", st, "", {shell}},
        {"static without DNS: servers from DHCP, NameServer empty", to(L"", L""), 0,
         {address, "set dns \"Ethernet A\" dhcp"}, st + "NameServer=| ", st, "", {shell}},
        {"netsh refuses the address: nothing written", to(L"8.8.8.8", L""), 1, {address}, aBefore, "", "",
         {shell, failed(address, 1)}, {"set address", 1}},
        {"static with an empty mask", to(L"", L"", L""), 87, {}, aBefore, "", "", {shell}},
        {"to DHCP: EnableDHCP lands on the Interfaces key", Record('A', L"", 1, L"", L""), 0,
         {"set dns \"Ethernet A\" dhcp", "set address name=\"Ethernet A\" source=dhcp"}, aBefore, "", "EnableDHCP=1 ",
         {shell}},
        {"already DHCP: nothing run", Record('B', L"", 1, L"", L""), 0, {}, aBefore, "", "", {shell}},
        {"unknown adapter: 87, not the open error", Record('E', L"", 1, L"", L""), 87, {}, aBefore, "", "",
         {"ZN_SetNetworkAdapter open " + N((kNetwork + Guid('E') + L"\\Connection").c_str()) + " error: 2"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SavedKeys saved;
        Cards();
        wrtest::ToolDouble tools;
        if (c.rule.second) tools.OnCommand("netsh", c.rule.first, std::to_string(c.rule.second));
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_SetNetworkAdapter(&c.record));
        Lines expected;
        for (const std::string& command : c.commands) expected.push_back("interface ip " + command);
        EXPECT_EQ(expected, tools.Arguments("netsh"));
        EXPECT_EQ(c.a, Dump(kInterfaces + L"\\" + Guid('A')));
        EXPECT_EQ(c.legacy, Dump(kServices + Guid('A') + L"\\Parameters\\Tcpip"));
        EXPECT_EQ(c.root, Dump(kInterfaces));
        boottest::ExpectLog(log, c.log);
    }
    EXPECT_EQ(87u, ZN_SetNetworkAdapter(nullptr));
}

}  // namespace
