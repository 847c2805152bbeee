// The text decisions of the network functions, on plain strings.
#include <gtest/gtest.h>

#include <string>

#include "net/net.h"

namespace {

using wrenkits::ShareCut;
const std::wstring k300(300, L'x');

TEST(ShareNames, ShareIpcAndUserFromAPath) {
    struct Case {
        std::wstring path, user;
        ShareCut cut;
        const wchar_t *share, *ipc, *qualified, *keepingDomain;
    } cases[] = {
        {L"\\\\nas\\backup\\pc1", L"admin", ShareCut::Share, L"\\\\nas\\backup", L"\\\\nas\\IPC$", L"nas\\admin",
         L"nas\\admin"},
        {L"\\\\nas\\backup", L"", ShareCut::Share, L"\\\\nas\\backup", L"\\\\nas\\IPC$", L"", L""},
        {L"\\\\nas\\backup\\pc1", L"CORP\\admin", ShareCut::Share, L"\\\\nas\\backup", L"\\\\nas\\IPC$",
         L"nas\\CORP\\admin", L"CORP\\admin"},
        {L"\\\\nas\\backup", L"corp/admin", ShareCut::Share, L"\\\\nas\\backup", L"\\\\nas\\IPC$", L"nas\\corp/admin",
         L"corp/admin"},
        // The server name takes at least one character, so "\\\x" has no share.
        {L"\\\\server", L"u", ShareCut::NoShare, L"", L"\\\\server\\IPC$", L"server\\u", L"server\\u"},
        {L"\\\\\\x", L"u", ShareCut::NoShare, L"", L"\\\\\\x\\IPC$", L"\\u", L"\\u"},
        // A long path is fine as long as its share fits; a share that would be cut is not.
        {L"\\\\nas\\backup\\" + k300, L"", ShareCut::Share, L"\\\\nas\\backup", L"\\\\nas\\IPC$", L"", L""},
        {L"\\\\nas\\" + k300, L"", ShareCut::TooLong, L"", L"\\\\nas\\IPC$", L"", L""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.path.begin(), c.path.begin() + std::min<size_t>(c.path.size(), 40)));
        wchar_t share[wrenkits::kPathChars], ipc[wrenkits::kPathChars], name[wrenkits::kPathChars];
        EXPECT_EQ(c.cut, wrenkits::ShareName(c.path.c_str(), share));
        EXPECT_STREQ(c.share, share);
        EXPECT_TRUE(wrenkits::IpcName(c.path.c_str(), ipc));
        EXPECT_STREQ(c.ipc, ipc);
        EXPECT_TRUE(wrenkits::QualifiedUser(c.path.c_str(), c.user.c_str(), name));
        EXPECT_STREQ(c.qualified, name);
        EXPECT_TRUE(wrenkits::QualifiedUserKeepingDomain(c.path.c_str(), c.user.c_str(), name));
        EXPECT_STREQ(c.keepingDomain, name);
    }
    wchar_t name[wrenkits::kPathChars];
    EXPECT_TRUE(wrenkits::QualifiedUser(L"\\\\nas\\b", nullptr, name));
    EXPECT_STREQ(L"", name);
    EXPECT_FALSE(wrenkits::QualifiedUser(L"\\\\nas\\b", std::wstring(256, L'u').c_str(), name)) << "nas\\ + 256";
    EXPECT_FALSE(wrenkits::IpcName((L"\\\\" + std::wstring(254, L's')).c_str(), name)) << "256 + \\IPC$";
}

TEST(ShareNames, ConnectionErrorsMapToPathCheckCodes) {
    const std::pair<DWORD, DWORD> cases[] = {
        {53, 3}, {1203, 3}, {67, 3}, {267, 3}, {1223, 3}, {64, 3}, {2250, 3}, {1222, 4}, {5, 5},
        {86, 5}, {87, 5},   {1326, 5}, {2202, 5}, {1219, 67}, {1, 67}, {0, 67}, {1231, 67},
    };
    for (auto [error, code] : cases) EXPECT_EQ(code, wrenkits::ClassifyConnectionError(error)) << "error " << error;
}

TEST(NameServer, SplitAtTheFirstCommaAndJoinBack) {
    struct Case {
        const wchar_t* text;
        bool whole;
        const wchar_t *primary, *secondary, *joined;  // fields start as "old"
    } cases[] = {
        {L"10.0.0.1,10.0.0.2", true, L"10.0.0.1", L"10.0.0.2", L"10.0.0.1,10.0.0.2"},
        {L"10.0.0.1", true, L"10.0.0.1", L"old", L"10.0.0.1,old"},
        {L"10.0.0.1 10.0.0.2", true, L"10.0.0.1 10.0.0.2", L"old", L"10.0.0.1 10.0.0.2,old"},
        {L",10.0.0.2", true, L"old", L"10.0.0.2", L"old,10.0.0.2"},
        {L"", true, L"old", L"old", L"old,old"},
        {L"1.1.1.1,2.2.2.2,3.3.3.3", true, L"1.1.1.1", L"2.2.2.2,3.3.3.3", L"1.1.1.1,2.2.2.2,3.3.3.3"},
        {L"10.0.0.1,100.100.100.100,10.2", false, L"10.0.0.1", L"old", L"10.0.0.1,old"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(c.text)));
        wchar_t primary[20] = L"old", secondary[20] = L"old", joined[100];
        EXPECT_EQ(c.whole, wrenkits::SplitNameServer(c.text, primary, secondary));
        EXPECT_STREQ(c.primary, primary);
        EXPECT_STREQ(c.secondary, secondary);
        wrenkits::JoinNameServer(primary, secondary, joined);
        EXPECT_STREQ(c.joined, joined);
    }
    wchar_t joined[100];
    wrenkits::JoinNameServer(L"", L"10.0.0.2", joined);
    EXPECT_STREQ(L"10.0.0.2", joined) << "no comma without a primary";
    wrenkits::JoinNameServer(L"", L"", joined);
    EXPECT_STREQ(L"", joined);
}

}  // namespace
