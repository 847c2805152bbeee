// The display name over plain version facts: the family and edition tables, the
// 2000/XP/2003 branches, the architectures, truncation and "Unknown".
#include <gtest/gtest.h>

#include <string>

#include "sysinfo/sysinfo.h"

namespace {

struct Row {
    DWORD major = 6, minor = 1, build = 7601;
    BYTE type = 1;
    DWORD edition = 1;
    WORD suite = 0, arch = 9;
    const wchar_t* sp = L"";
    bool r2 = false, productInfo = true;
    DWORD platform = 2, chars = 128;
    std::wstring name;
    DWORD result = 0;
};

void Expect(const Row& r) {
    SCOPED_TRACE(testing::Message() << r.major << "." << r.minor << " type " << int(r.type) << " edition " << r.edition << " suite " << r.suite << " arch " << r.arch);
    wchar_t buffer[140];
    wmemset(buffer, 0xBDBD, 140);
    const wrenkits::VersionFacts f{r.major, r.minor, r.build, r.platform, r.sp, r.suite, r.type, r.arch, r.r2, r.productInfo, r.edition};
    EXPECT_EQ(r.result, wrenkits::BuildDisplayName(f, buffer, r.chars));
    EXPECT_EQ(r.name, std::wstring(buffer));
    EXPECT_EQ(0xBDBD, buffer[r.chars]) << "nothing written past the capacity";
}

TEST(VersionName, EditionTableWithItsGaps) {
    // By product-info type; 26 lies past the table and Professional (0x30) outside it: no text.
    const wchar_t* editions[] = {L"", L"Ultimate Edition", L"Home Basic Edition", L"Home Premium Edition", L"Enterprise Edition", L"",
        L"Business Edition", L"Standard Edition", L"Datacenter Edition", L"Small Business Server", L"Enterprise Edition", L"Starter Edition",
        L"Datacenter Edition (core installation)", L"Standard Edition (core installation)", L"Enterprise Edition (core installation)",
        L"Enterprise Edition for Itanium-based Systems", L"", L"Web Server Edition", L"Cluster Server Edition", L"", L"", L"", L"", L"", L"",
        L"Small Business Server Premium Edition", L""};
    for (DWORD e = 0; e <= 26; ++e) Expect({.edition = e, .name = L"Microsoft Windows 7 " + std::wstring(editions[e]) + L", 64-bit (build 7601)"});
    Expect({.edition = 0x30, .sp = L"Service Pack 1", .name = L"Microsoft Windows 7 , 64-bit Service Pack 1 (build 7601)"});
}

TEST(VersionName, FamiliesBranchesArchitecturesAndCapacity) {
    const Row rows[] = {
        {.sp = L"Service Pack 1", .name = L"Microsoft Windows 7 Ultimate Edition, 64-bit Service Pack 1 (build 7601)"},
        // family names by minor and product type
        {.minor = 0, .build = 6002, .name = L"Microsoft Windows Vista Ultimate Edition, 64-bit (build 6002)"},
        {.minor = 0, .type = 3, .edition = 0, .name = L"Microsoft Windows Server 2008 , 64-bit (build 7601)"},
        {.type = 2, .edition = 0, .name = L"Microsoft Windows Server 2008 R2 , 64-bit (build 7601)"},
        {.minor = 2, .edition = 0, .arch = 0, .name = L"Microsoft Windows 8 , 32-bit (build 7601)"},
        {.minor = 2, .type = 3, .edition = 0, .arch = 6, .name = L"Microsoft Windows Server 2012  (build 7601)"},
        {.minor = 3, .build = 9600, .edition = 4, .name = L"Microsoft Enterprise Edition, 64-bit (build 9600)"},
        {.major = 10, .minor = 0, .build = 19045, .name = L"Microsoft  (build 19045)"},
        {.productInfo = false, .name = L"Microsoft Windows 7 ", .result = ERROR_MOD_NOT_FOUND},
        // 2000 and XP: no edition lookup, no bitness
        {.major = 5, .minor = 0, .build = 2195, .name = L"Microsoft Windows 2000 Professional (build 2195)"},
        {.major = 5, .minor = 0, .type = 2, .suite = 0x82, .name = L"Microsoft Windows 2000 Datacenter Server (build 7601)"},
        {.major = 5, .minor = 0, .type = 3, .suite = 2, .name = L"Microsoft Windows 2000 Advanced Server (build 7601)"},
        {.major = 5, .minor = 0, .type = 3, .name = L"Microsoft Windows 2000 Server (build 7601)"},
        {.major = 5, .build = 2600, .arch = 0, .productInfo = false, .name = L"Microsoft Windows XP Professional (build 2600)"},
        {.major = 5, .suite = 0x200, .sp = L"Service Pack 3", .name = L"Microsoft Windows XP Home Edition Service Pack 3 (build 7601)"},
        {.major = 5, .minor = 3, .name = L"Microsoft  (build 7601)"},
        // 2003: R2 first, storage server only on the exact mask, then x64 workstation
        {.major = 5, .minor = 2, .type = 3, .suite = 0x2000, .arch = 0, .name = L"Microsoft Windows Storage Server 2003Standard Edition (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .suite = 0x2002, .arch = 0, .name = L"Microsoft Windows Server 2003, Enterprise Edition (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .suite = 0x2000, .r2 = true, .name = L"Microsoft Windows Server 2003 R2, Standard x64 Edition (build 7601)"},
        {.major = 5, .minor = 2, .sp = L"Service Pack 2", .name = L"Microsoft Windows XP Professional x64 Edition Service Pack 2 (build 7601)"},
        {.major = 5, .minor = 2, .arch = 0, .name = L"Microsoft Windows Server 2003,  (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .suite = 0x82, .arch = 6, .name = L"Microsoft Windows Server 2003, Datacenter Edition for Itanium-based Systems (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .suite = 2, .arch = 6, .name = L"Microsoft Windows Server 2003, Enterprise Edition for Itanium-based Systems (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .arch = 6, .name = L"Microsoft Windows Server 2003,  (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .suite = 0x82, .name = L"Microsoft Windows Server 2003, Datacenter x64 Edition (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .suite = 2, .name = L"Microsoft Windows Server 2003, Enterprise x64 Edition (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .suite = 0x4082, .arch = 0, .name = L"Microsoft Windows Server 2003, Compute Cluster Edition (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .suite = 0x82, .arch = 0, .name = L"Microsoft Windows Server 2003, Datacenter Edition (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .suite = 0x402, .arch = 0, .name = L"Microsoft Windows Server 2003, Enterprise Edition (build 7601)"},
        {.major = 5, .minor = 2, .type = 3, .suite = 0x400, .arch = 0, .name = L"Microsoft Windows Server 2003, Web Edition (build 7601)"},
        // Unknown systems and capacities
        {.major = 4, .name = L"Unknown"},
        {.platform = 1, .chars = 4, .name = L"Unk"},
        {.chars = 10, .name = L"Microsoft"},
        {.chars = 1, .name = L""},
        {.sp = L"Service Pack 1", .chars = 56, .name = L"Microsoft Windows 7 Ultimate Edition, 64-bit Service Pa"},
    };
    for (const Row& r : rows) Expect(r);
    for (DWORD none : {0u, 0x80000000u}) {
        wchar_t poisoned[4] = {L'x', L'y', L'z', 0};
        wrenkits::BuildDisplayName({.platform = 1}, poisoned, none);
        EXPECT_EQ(std::wstring(L"xyz"), poisoned) << "capacity " << none << " writes nothing";
    }
}

}  // namespace
