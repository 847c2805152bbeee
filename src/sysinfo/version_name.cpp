#include <stdio.h>
#include <wchar.h>

#include "sysinfo/sysinfo.h"

namespace wrenkits {

namespace {

constexpr WORD kSuiteEnterprise = 0x0002, kSuiteDatacenter = 0x0080, kSuitePersonal = 0x0200, kSuiteBlade = 0x0400,
               kSuiteStorageServer = 0x2000, kSuiteComputeServer = 0x4000;
constexpr WORD kArchX86 = 0, kArchItanium = 6, kArchX64 = 9;

bool Usable(DWORD capacity) { return capacity != 0 && capacity <= 0x7FFFFFFF; }

// Edition names by product-info type; the empty rows are types the product never
// named (Professional, 0x30, lies outside the table and gets no text either).
constexpr const wchar_t* kEditions[] = {
    L"",
    L"Ultimate Edition",
    L"Home Basic Edition",
    L"Home Premium Edition",
    L"Enterprise Edition",
    L"",
    L"Business Edition",
    L"Standard Edition",
    L"Datacenter Edition",
    L"Small Business Server",
    L"Enterprise Edition",
    L"Starter Edition",
    L"Datacenter Edition (core installation)",
    L"Standard Edition (core installation)",
    L"Enterprise Edition (core installation)",
    L"Enterprise Edition for Itanium-based Systems",
    L"",
    L"Web Server Edition",
    L"Cluster Server Edition",
    L"", L"", L"", L"", L"", L"",
    L"Small Business Server Premium Edition",
};

const wchar_t* VistaFamilyName(DWORD minor, bool workstation) {
    switch (minor) {
    case 0: return workstation ? L"Windows Vista " : L"Windows Server 2008 ";
    case 1: return workstation ? L"Windows 7 " : L"Windows Server 2008 R2 ";
    case 2: return workstation ? L"Windows 8 " : L"Windows Server 2012 ";
    default: return L"";
    }
}

void Append2000(const VersionFacts& f, bool workstation, wchar_t* name, DWORD capacity) {
    AppendBounded(name, capacity, L"Windows 2000 ");
    if (workstation) AppendBounded(name, capacity, L"Professional");
    else if (f.suiteMask & kSuiteDatacenter) AppendBounded(name, capacity, L"Datacenter Server");
    else if (f.suiteMask & kSuiteEnterprise) AppendBounded(name, capacity, L"Advanced Server");
    else AppendBounded(name, capacity, L"Server");
}

const wchar_t* Server2003Edition(const VersionFacts& f) {
    const WORD suite = f.suiteMask;
    if (f.architecture == kArchItanium) {
        if (suite & kSuiteDatacenter) return L"Datacenter Edition for Itanium-based Systems";
        if (suite & kSuiteEnterprise) return L"Enterprise Edition for Itanium-based Systems";
        return L"";
    }
    if (f.architecture == kArchX64) {
        if (suite & kSuiteDatacenter) return L"Datacenter x64 Edition";
        if (suite & kSuiteEnterprise) return L"Enterprise x64 Edition";
        return L"Standard x64 Edition";
    }
    if (suite & kSuiteComputeServer) return L"Compute Cluster Edition";
    if (suite & kSuiteDatacenter) return L"Datacenter Edition";
    if (suite & kSuiteEnterprise) return L"Enterprise Edition";
    if (suite & kSuiteBlade) return L"Web Edition";
    return L"Standard Edition";
}

void Append2003(const VersionFacts& f, bool workstation, wchar_t* name, DWORD capacity) {
    if (f.serverR2) AppendBounded(name, capacity, L"Windows Server 2003 R2, ");
    // Equality, not a bit test: a storage server with any further suite bit is named
    // as a plain 2003 server, as the product always did.
    else if (f.suiteMask == kSuiteStorageServer) AppendBounded(name, capacity, L"Windows Storage Server 2003");
    else if (workstation && f.architecture == kArchX64)
        AppendBounded(name, capacity, L"Windows XP Professional x64 Edition");
    else AppendBounded(name, capacity, L"Windows Server 2003, ");
    if (!workstation) AppendBounded(name, capacity, Server2003Edition(f));
}

}  // namespace

void AppendBounded(wchar_t* buffer, DWORD capacity, const wchar_t* piece) {
    if (!Usable(capacity)) return;
    const size_t used = wcsnlen(buffer, capacity);
    if (used >= capacity) {
        buffer[capacity - 1] = L'\0';
        return;
    }
    const size_t room = capacity - 1 - used;
    const size_t take = wcsnlen(piece, room);
    wmemcpy(buffer + used, piece, take);
    buffer[used + take] = L'\0';
}

void CopyBounded(wchar_t* buffer, DWORD capacity, const wchar_t* text) {
    if (!Usable(capacity)) return;
    buffer[0] = L'\0';
    AppendBounded(buffer, capacity, text);
}

DWORD BuildDisplayName(const VersionFacts& f, wchar_t* name, DWORD capacity) {
    if (f.platform != VER_PLATFORM_WIN32_NT || f.major < 5) {
        CopyBounded(name, capacity, L"Unknown");
        return ERROR_SUCCESS;
    }
    const bool workstation = f.productType == VER_NT_WORKSTATION;
    CopyBounded(name, capacity, L"Microsoft ");
    if (f.major == 6) {
        AppendBounded(name, capacity, VistaFamilyName(f.minor, workstation));
        if (!f.hasProductInfo) return ERROR_MOD_NOT_FOUND;
        if (f.edition < _countof(kEditions)) AppendBounded(name, capacity, kEditions[f.edition]);
        // The bitness comes before the service pack, and only 6.x names carry it.
        if (f.architecture == kArchX64) AppendBounded(name, capacity, L", 64-bit");
        else if (f.architecture == kArchX86) AppendBounded(name, capacity, L", 32-bit");
    } else if (f.major == 5) {
        if (f.minor == 0) Append2000(f, workstation, name, capacity);
        else if (f.minor == 1)
            AppendBounded(name, capacity, (f.suiteMask & kSuitePersonal) ? L"Windows XP Home Edition"
                                                                         : L"Windows XP Professional");
        else if (f.minor == 2) Append2003(f, workstation, name, capacity);
    }
    if (f.servicePack[0]) {
        AppendBounded(name, capacity, L" ");
        AppendBounded(name, capacity, f.servicePack);
    }
    wchar_t build[80];
    _snwprintf_s(build, _countof(build), _TRUNCATE, L" (build %d)", static_cast<int>(f.build));
    AppendBounded(name, capacity, build);
    return ERROR_SUCCESS;
}

}  // namespace wrenkits
