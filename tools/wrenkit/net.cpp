// Commands for shares, mapped drives, the machine's address and domain, and adapters.
#include <stdio.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

const wchar_t* Or(const wchar_t* text, const wchar_t* otherwise) { return text ? text : otherwise; }

int Connect(const Args& a) {
    return Result(ZN_ConnectNetworkPath(a.at(0), Or(a.option(L"--user"), L""), Or(a.option(L"--password"), L""),
                                        a.flag(L"--write") ? 1 : 0));
}

int Check(const Args& a) {
    DWORD network = 0, optical = 0, folder = 0, ntfs = 0;
    const DWORD code = ZN_CheckPath(a.at(0), Or(a.option(L"--user"), L""), Or(a.option(L"--password"), L""), &network,
                                    &optical, &folder, &ntfs);
    wprintf(L"network %lu, optical %lu, folder %lu, NTFS %lu\n", network, optical, folder, ntfs);
    return Result(code);
}

int Disconnect(const Args& a) {
    return Result(ZN_DisconnectNetworkPath(a.at(0)));
}

int Map(const Args& a) {
    WCHAR letter = 0;
    if (!a.letter(1, letter)) return a.usage();
    return Result(ZN_MapNetDrive(a.at(0), letter, a.option(L"--user"), Or(a.option(L"--password"), L"")));
}

int Unmap(const Args& a) {
    WCHAR letter = 0;
    if (!a.letter(0, letter)) return a.usage();
    return Result(ZN_DisconnectNetDrive(letter));
}

int Ip(const Args&) {
    wchar_t address[16] = {};
    const BOOL found = ZN_GetFirstIpAddress(address);
    wprintf(L"%ls\n", found ? address : L"no usable address");
    return found;
}

int Domain(const Args&) {
    wchar_t name[MAX_PATH] = {};
    DWORD inDomain = 0, inWorkgroup = 0;
    const DWORD code = ZN_GetDomainName(name, &inDomain, &inWorkgroup);
    if (code == 0)
        wprintf(L"%ls (%ls)\n", name, inDomain ? L"domain" : inWorkgroup ? L"workgroup" : L"neither domain nor workgroup");
    return Result(code);
}

int Adapters(const Args&) {
    AdapterInfo adapters[32] = {};
    DWORD count = 32;
    const DWORD code = ZN_EnumNetworkAdapters(adapters, &count);
    for (DWORD i = 0; i < count && i < 32; ++i) {
        const AdapterInfo& n = adapters[i];
        wprintf(L"%ls  %ls\n  %ls", n.ServiceName, n.Description, n.DhcpEnabled ? L"DHCP" : L"static");
        if (!n.DhcpEnabled) wprintf(L" %ls mask %ls gateway %ls", n.IpAddress, n.SubnetMask, n.DefaultGateway);
        wprintf(L", DNS %ls %ls\n", n.PrimaryDns, n.SecondaryDns);
    }
    return Result(code);
}

// Copies a text into a record field; false when it is too long for it.
template <size_t N>
bool Field(const wchar_t* text, wchar_t (&field)[N]) {
    if (!text || wcslen(text) >= N) return false;
    wcscpy_s(field, text);
    return true;
}
template <size_t N>
bool Field(const Args& a, const wchar_t* name, wchar_t (&field)[N]) {
    return Field(Or(a.option(name), L""), field);
}

int SetStatic(const Args& a) {
    AdapterInfo adapter = {};
    if (!Field(a.at(0), adapter.ServiceName) || !Field(a, L"--ip", adapter.IpAddress) ||
        !Field(a, L"--mask", adapter.SubnetMask) || !Field(a, L"--gateway", adapter.DefaultGateway) ||
        !Field(a, L"--dns1", adapter.PrimaryDns) || !Field(a, L"--dns2", adapter.SecondaryDns))
        return a.usage();
    return Result(ZN_SetNetworkAdapter(&adapter));
}

int SetDhcp(const Args& a) {
    AdapterInfo adapter = {};
    if (!Field(a.at(0), adapter.ServiceName)) return a.usage();
    adapter.DhcpEnabled = 1;
    return Result(ZN_SetNetworkAdapter(&adapter));
}

const CommandTable kTable{
    {L"net connect", L"\\\\SERVER\\SHARE[\\FOLDER] [--user U] [--password P] [--write]",
     L"connect a share (user given without domain gets the server's), checking the folder is reachable or writable",
     Connect},
    {L"net check", L"PATH [--user U] [--password P]",
     L"classify a backup target: 1 usable, 0 network file, 2 not writable, 3 invalid or unreachable, 4 no network, "
     L"5 access refused, 67 other connection error",
     Check},
    {L"net disconnect", L"\\\\SERVER\\SHARE[\\FOLDER]", L"cancel the connection to a share", Disconnect},
    {L"net map", L"\\\\SERVER\\SHARE D [--user U] [--password P]", L"map a share to a drive letter", Map},
    {L"net unmap", L"D", L"disconnect a mapped drive letter", Unmap},
    {L"net ip", L"", L"print the first Ethernet or wireless IPv4 address (exit code 1 = found)", Ip},
    {L"net domain", L"", L"print the domain or workgroup name", Domain},
    {L"net adapters", L"", L"list the network adapters with their IPv4 settings", Adapters},
    {L"net set-static", L"{SERVICE-GUID} --ip A --mask M --gateway G [--dns1 D] [--dns2 D]",
     L"give an adapter a static address through netsh", SetStatic},
    {L"net set-dhcp", L"{SERVICE-GUID}", L"switch an adapter to DHCP through netsh", SetDhcp},
};

}  // namespace
