#include <windows.h>

#include <stdarg.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"
#include "frame/process.h"
#include "frame/text.h"
#include "frame/unique_any.h"
#include "net/net.h"

using namespace wrenkits;

namespace {

constexpr wchar_t kInterfaceKey[] = L"SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\%s";
constexpr wchar_t kLegacyKey[] = L"SYSTEM\\CurrentControlSet\\Services\\%s\\Parameters\\Tcpip";
constexpr wchar_t kConnectionKey[] =
    L"SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E972-E325-11CE-BFC1-08002BE10318}\\%s\\Connection";
constexpr char kSet[] = "ZN_SetNetworkAdapter";

// Formats a key path or a command into a 260-character buffer; a text that would be
// cut is refused (and logged), never used.
bool Format(const char* user, const char* what, wchar_t (&out)[kPathChars], const wchar_t* format, const wchar_t* a,
            const wchar_t* b = nullptr, const wchar_t* c = nullptr, const wchar_t* d = nullptr) {
    if (FormatWholeW(out, kPathChars, format, a, b, c, d)) return true;
    RefuseTooLong(user, what, kPathChars - 1);
    return false;
}

// Reads a string value into a field of `chars` characters. The read is bounded by the
// field's bytes; a value that fills them without a terminator does not fit (234), and
// the field keeps what it held. For a multi-string the field gets its first string.
LSTATUS ReadText(HKEY key, const wchar_t* value, wchar_t* field, size_t chars) {
    wchar_t text[kPathChars + 1] = {};
    DWORD bytes = static_cast<DWORD>(chars * sizeof(wchar_t));
    LSTATUS status = ::RegQueryValueExW(key, value, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &bytes);
    if (status == ERROR_SUCCESS && wcsnlen(text, chars) == chars) status = ERROR_MORE_DATA;
    if (status == ERROR_SUCCESS) wcscpy_s(field, chars, text);
    return status;
}

template <size_t N>
bool Terminated(const wchar_t (&field)[N]) {
    return wcsnlen(field, N) < N;
}

bool WholeRecord(const AdapterInfo& a) {
    return Terminated(a.ServiceName) && Terminated(a.IpAddress) && Terminated(a.SubnetMask) &&
           Terminated(a.DefaultGateway) && Terminated(a.PrimaryDns) && Terminated(a.SecondaryDns);
}

// An adapter's key (`format` filled with its service name) opened for writing; a path
// that does not fit or a failed open is logged under the caller's name.
class AdapterKey {
public:
    AdapterKey(const char* user, const wchar_t* format, const wchar_t* serviceName) {
        if (!Format(user, "key path", path_, format, serviceName)) {
            status_ = ERROR_FILENAME_EXCED_RANGE;
            return;
        }
        status_ = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path_, 0, KEY_WRITE, key_.put());
        if (status_ != ERROR_SUCCESS) LogW(L"%S open %s error: %d", user, path_, status_);
    }
    LSTATUS status() const { return status_; }
    HKEY get() const { return key_.get(); }
    const wchar_t* path() const { return path_; }

private:
    wchar_t path_[kPathChars] = {};
    unique_hkey key_;
    LSTATUS status_ = ERROR_SUCCESS;
};

// A one-string multi-string: the characters, their terminator and the list's.
void WriteSingleMultiString(HKEY key, const wchar_t* value, const wchar_t* text) {
    wchar_t list[22] = {};
    wcscpy_s(list, text);
    const DWORD bytes = static_cast<DWORD>((wcslen(list) + 2) * sizeof(wchar_t));
    ::RegSetValueExW(key, value, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(list), bytes);
}

void WriteDword(HKEY key, const wchar_t* value, DWORD data) {
    ::RegSetValueExW(key, value, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&data), sizeof(data));
}

void WriteStaticAddresses(HKEY key, const AdapterInfo& adapter) {
    WriteSingleMultiString(key, L"IPAddress", adapter.IpAddress);
    WriteSingleMultiString(key, L"SubnetMask", adapter.SubnetMask);
    WriteSingleMultiString(key, L"DefaultGateway", adapter.DefaultGateway);
    WriteDword(key, L"EnableDHCP", 0);
}

// One card of the network-cards key, with its interface's settings. False for a card
// that lacks any of them: such a card is not listed.
bool ReadCard(HKEY cards, const wchar_t* subkey, AdapterInfo& record) {
    unique_hkey card;
    if (::RegOpenKeyExW(cards, subkey, 0, KEY_READ, card.put()) != ERROR_SUCCESS) return false;
    record = {};
    return ReadText(card.get(), L"Description", record.Description, 128) == ERROR_SUCCESS &&
           ReadText(card.get(), L"ServiceName", record.ServiceName, 64) == ERROR_SUCCESS &&
           GetNetworkAdapterInfo(record.ServiceName, &record) == ERROR_SUCCESS;
}

// The "interface ip" context of the system's network shell. Every command of one
// change is formatted before the first one runs, so that a change is refused whole
// rather than left half applied.
class NetworkShell {
public:
    bool Locate() {
        wchar_t system[kPathChars] = {};
        ::GetSystemDirectoryW(system, kPathChars);
        if (!Format(kSet, "program", program_, L"%s\\netsh.exe interface ip", system)) return false;
        LogW(L"%S ==> %s", kSet, program_);
        return true;
    }
    bool Add(const wchar_t* format, const wchar_t* connection, const wchar_t* a = nullptr,
             const wchar_t* b = nullptr, const wchar_t* c = nullptr) {
        return Format(kSet, "netsh command", commands_[count_++], format, connection, a, b, c);
    }
    DWORD Run(int index) const { return ZN_RunProcess(program_, commands_[index], TRUE); }
    int count() const { return count_; }

private:
    wchar_t program_[kPathChars] = {};
    wchar_t commands_[4][kPathChars] = {};
    int count_ = 0;
};

DWORD ApplyStatic(NetworkShell& shell, const AdapterInfo& adapter, const wchar_t* connection) {
    if (!adapter.IpAddress[0] || !adapter.SubnetMask[0] || !adapter.DefaultGateway[0]) return ERROR_INVALID_PARAMETER;
    const bool primary = adapter.PrimaryDns[0] != L'\0', secondary = adapter.SecondaryDns[0] != L'\0';
    bool whole = shell.Add(L"set address name=\"%s\" source=static addr=%s mask=%s gateway=%s", connection,
                           adapter.IpAddress, adapter.SubnetMask, adapter.DefaultGateway);
    if (primary)
        whole = whole && shell.Add(L"set dns name=\"%s\" source=static addr=%s register=primary", connection,
                                   adapter.PrimaryDns);
    if (secondary)
        whole = whole && shell.Add(L"set dns name=\"%s\" source=static addr=%s index=2", connection, adapter.SecondaryDns);
    if (!primary && !secondary) whole = whole && shell.Add(L"set dns \"%s\" dhcp", connection);
    if (!whole) return ERROR_FILENAME_EXCED_RANGE;

    const DWORD result = shell.Run(0);
    if (result != 0) return result;
    // The DNS servers are a convenience: their failure does not undo the address.
    for (int i = 1; i < shell.count(); ++i) shell.Run(i);
    SetStaticIp(&adapter);
    return 0;
}

DWORD ApplyDhcp(NetworkShell& shell, const AdapterInfo& adapter, const wchar_t* connection) {
    AdapterInfo current = {};
    if (GetNetworkAdapterInfo(adapter.ServiceName, &current) == ERROR_SUCCESS && current.DhcpEnabled) return 0;
    if (!shell.Add(L"set dns \"%s\" dhcp", connection) || !shell.Add(L"set address name=\"%s\" source=dhcp", connection))
        return ERROR_FILENAME_EXCED_RANGE;
    shell.Run(0);
    const DWORD result = shell.Run(1);
    // Deliberate: `current` never got a service name, so "EnableDHCP" lands on the
    // Interfaces key itself. The shell has already switched the adapter; the product
    // has always left the adapter's own key to the system.
    if (result == 0) EnableDhcp(&current);
    return result;
}

}  // namespace

DWORD GetNetworkAdapterInfo(LPCWSTR serviceName, AdapterInfo* info) {
    constexpr char kName[] = "GetNetworkAdapterInfo";
    if (!serviceName || !*serviceName || !info) return ERROR_INVALID_PARAMETER;
    wchar_t path[kPathChars];
    if (!Format(kName, "key path", path, kInterfaceKey, serviceName)) return ERROR_FILENAME_EXCED_RANGE;
    unique_hkey key;
    LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, key.put());
    if (status != ERROR_SUCCESS) {
        LogW(L"%S open %s error: %d", kName, path, status);
        return status;
    }

    DWORD dhcp = 0, bytes = sizeof(dhcp);
    const LSTATUS dhcpStatus =
        ::RegQueryValueExW(key.get(), L"EnableDHCP", nullptr, nullptr, reinterpret_cast<BYTE*>(&dhcp), &bytes);
    if (dhcpStatus != ERROR_SUCCESS) {
        char narrowPath[kPathChars] = {};
        ::WideCharToMultiByte(CP_ACP, 0, path, -1, narrowPath, sizeof(narrowPath), nullptr, nullptr);
        LogA("%s get EnableDHCP in %s error: %d", kName, narrowPath, dhcpStatus);
    }
    if (dhcp == 0) {
        info->DhcpEnabled = 0;
        if ((status = ReadText(key.get(), L"IPAddress", info->IpAddress, 20)) != ERROR_SUCCESS)
            LogW(L"%S get IPAddress in %s error: %d", kName, path, status);
        if ((status = ReadText(key.get(), L"SubnetMask", info->SubnetMask, 20)) != ERROR_SUCCESS)
            LogW(L"%S get SubnetMask in %s error: %d", kName, path, status);
        if ((status = ReadText(key.get(), L"DefaultGateway", info->DefaultGateway, 20)) != ERROR_SUCCESS)
            LogW(L"%S get DefaultGateway in %s error: %d", kName, path, status);
    } else {
        info->DhcpEnabled = 1;
    }

    wchar_t servers[101] = {};
    bytes = 100 * sizeof(wchar_t);
    status = ::RegQueryValueExW(key.get(), L"NameServer", nullptr, nullptr, reinterpret_cast<BYTE*>(servers), &bytes);
    if (status == ERROR_SUCCESS && !SplitNameServer(servers, info->PrimaryDns, info->SecondaryDns))
        status = ERROR_MORE_DATA;
    if (status != ERROR_SUCCESS) LogW(L"%S get NameServer in %s error: %d", kName, path, status);
    return dhcpStatus;
}

DWORD EnableDhcp(const AdapterInfo* adapter) {
    constexpr char kName[] = "EnableDhcp";
    const AdapterKey key(kName, kInterfaceKey, adapter->ServiceName);
    if (key.status() != ERROR_SUCCESS) return key.status();
    const DWORD on = 1;
    const LSTATUS status =
        ::RegSetValueExW(key.get(), L"EnableDHCP", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&on), sizeof(on));
    if (status != ERROR_SUCCESS) LogW(L"%S set EnableDHCP under %s error: %d", kName, key.path(), status);
    return status;
}

DWORD SetStaticIp(const AdapterInfo* adapter) {
    constexpr char kName[] = "SetStaticIp";
    {
        const AdapterKey key(kName, kInterfaceKey, adapter->ServiceName);
        if (key.status() != ERROR_SUCCESS) return key.status();
        WriteStaticAddresses(key.get(), *adapter);
        wchar_t servers[100];
        JoinNameServer(adapter->PrimaryDns, adapter->SecondaryDns, servers);
        ::RegSetValueExW(key.get(), L"NameServer", 0, REG_SZ, reinterpret_cast<const BYTE*>(servers),
                         static_cast<DWORD>((wcslen(servers) + 1) * sizeof(wchar_t)));
    }

    // Older components read the adapter's own Tcpip key; it gets the same addresses.
    const AdapterKey legacy(kName, kLegacyKey, adapter->ServiceName);
    if (legacy.status() != ERROR_SUCCESS) return legacy.status();
    WriteStaticAddresses(legacy.get(), *adapter);
    return 0;
}

extern "C" DWORD WINAPI ZN_EnumNetworkAdapters(AdapterInfo* adapters, LPDWORD count) {
    if (!count) return ERROR_INVALID_PARAMETER;
    unique_hkey cards;
    const LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\NetworkCards",
                                           0, KEY_READ, cards.put());
    if (status != ERROR_SUCCESS) {
        LogA("%s open SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\NetworkCards error: %d", "ZN_EnumNetworkAdapters",
             status);
        return status;
    }

    const DWORD room = *count;
    DWORD found = 0;
    for (DWORD index = 0;; ++index) {
        wchar_t subkey[50];
        DWORD chars = 50;
        if (::RegEnumKeyExW(cards.get(), index, subkey, &chars, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        AdapterInfo record;
        if (!ReadCard(cards.get(), subkey, record)) continue;
        if (adapters && found < room) adapters[found] = record;
        ++found;
    }
    *count = found;
    return !adapters || room >= found ? 0 : ERROR_INSUFFICIENT_BUFFER;
}

extern "C" DWORD WINAPI ZN_SetNetworkAdapter(const AdapterInfo* adapter) {
    if (!adapter || !adapter->ServiceName[0]) return ERROR_INVALID_PARAMETER;
    if (!WholeRecord(*adapter)) return RefuseInvalid(kSet, "adapter record (a field without its terminator)");

    wchar_t path[kPathChars];
    if (!Format(kSet, "key path", path, kConnectionKey, adapter->ServiceName)) return ERROR_FILENAME_EXCED_RANGE;
    // One character more than the read may fill, so the name is always terminated.
    wchar_t connection[kPathChars + 1] = {};
    {
        unique_hkey key;
        LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, key.put());
        if (status != ERROR_SUCCESS) {
            LogW(L"%S open %s error: %d", kSet, path, status);
            return ERROR_INVALID_PARAMETER;  // deliberate: an unknown adapter is the caller's mistake
        }
        DWORD bytes = kPathChars * sizeof(wchar_t);
        status = ::RegQueryValueExW(key.get(), L"Name", nullptr, nullptr, reinterpret_cast<BYTE*>(connection), &bytes);
        if (status != ERROR_SUCCESS) {
            LogW(L"%S read Name for %s error: %d", kSet, adapter->ServiceName, status);
            return status;
        }
    }

    // A 32-bit host must start the 64-bit shell from the real system folder.
    RedirectionGuard guard;
    NetworkShell shell;
    if (!shell.Locate()) return ERROR_FILENAME_EXCED_RANGE;
    return adapter->DhcpEnabled ? ApplyDhcp(shell, *adapter, connection) : ApplyStatic(shell, *adapter, connection);
}
