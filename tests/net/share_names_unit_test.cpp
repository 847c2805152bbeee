// The text decisions of the network functions, on plain strings.
#include <gtest/gtest.h>

#include <string>

#include "net/net.h"

namespace {

using wrenkits::ShareCut;

TEST(ShareNames, ShareIpcAndUserFromAPath) {
    const std::wstring x300(300, L'x');
    struct {
        std::wstring path;
        const wchar_t* user;
        ShareCut cut;
        const wchar_t *share, *ipc, *qualified, *keepingDomain;  // "" where the text is refused
    } cases[] = {
        {L"\\\\nas\\backup\\pc1", L"admin", ShareCut::Share, L"\\\\nas\\backup", L"\\\\nas\\IPC$", L"nas\\admin", L"nas\\admin"},
        {L"\\\\nas\\b", nullptr, ShareCut::Share, L"\\\\nas\\b", L"\\\\nas\\IPC$", L"", L""},
        {L"\\\\nas\\b\\c", L"CORP\\admin", ShareCut::Share, L"\\\\nas\\b", L"\\\\nas\\IPC$", L"nas\\CORP\\admin", L"CORP\\admin"},
        {L"\\\\nas\\b", L"corp/admin", ShareCut::Share, L"\\\\nas\\b", L"\\\\nas\\IPC$", L"nas\\corp/admin", L"corp/admin"},
        {L"\\\\\\x", L"u", ShareCut::NoShare, L"", L"\\\\\\x\\IPC$", L"\\u", L"\\u"},  // the server takes one character
        {L"\\\\nas\\b\\" + x300, L"", ShareCut::Share, L"\\\\nas\\b", L"\\\\nas\\IPC$", L"", L""},
        {L"\\\\nas\\" + x300, L"", ShareCut::TooLong, L"", L"\\\\nas\\IPC$", L"", L""},
        {L"\\\\" + x300.substr(0, 254), x300.c_str(), ShareCut::NoShare, L"", L"", L"", L""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.path.substr(0, 30)));
        wchar_t share[MAX_PATH], ipc[MAX_PATH], name[MAX_PATH], kept[MAX_PATH];
        EXPECT_EQ(c.cut, wrenkits::ShareName(c.path.c_str(), share));
        EXPECT_EQ(*c.ipc != 0, wrenkits::IpcName(c.path.c_str(), ipc));
        EXPECT_EQ(*c.ipc != 0, wrenkits::QualifiedUser(c.path.c_str(), c.user, name));
        EXPECT_EQ(*c.ipc != 0, wrenkits::QualifiedUserKeepingDomain(c.path.c_str(), c.user, kept));
        for (auto [expected, actual] : {std::pair{c.share, share}, {c.ipc, ipc}, {c.qualified, name}, {c.keepingDomain, kept}})
            EXPECT_STREQ(expected, actual);
    }
}

TEST(ShareNames, ConnectionErrorsMapToPathCheckCodes) {
    const std::pair<DWORD, std::vector<DWORD>> groups[] = {
        {3, {53, 1203, 67, 267, 1223, 64, 2250}}, {4, {1222}}, {5, {5, 86, 87, 1326, 2202}}, {67, {0, 1219, 1231}}};
    for (const auto& [code, errors] : groups)
        for (DWORD error : errors) EXPECT_EQ(code, wrenkits::ClassifyConnectionError(error)) << "error " << error;
}

// "NameServer" split at its first comma (both fields hold "old" before) and joined back.
TEST(NameServer, SplitAtTheFirstCommaAndJoinBack) {
    const struct { const wchar_t* text; bool whole; const wchar_t *primary, *secondary, *joined; } cases[] = {
        {L"10.0.0.1,10.0.0.2", true, L"10.0.0.1", L"10.0.0.2", L"10.0.0.1,10.0.0.2"},
        {L"10.0.0.1 10.0.0.2", true, L"10.0.0.1 10.0.0.2", L"old", L"10.0.0.1 10.0.0.2,old"},
        {L",1.1.1.1,2.2.2.2", true, L"old", L"1.1.1.1,2.2.2.2", L"old,1.1.1.1,2.2.2.2"},
        {L"10.0.0.1,100.100.100.100,10.2", false, L"10.0.0.1", L"old", L"10.0.0.1,old"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(c.text)));
        wchar_t primary[20] = L"old", secondary[20] = L"old", joined[100];
        EXPECT_EQ(c.whole, wrenkits::SplitNameServer(c.text, primary, secondary));
        wrenkits::JoinNameServer(primary, secondary, joined);
        for (auto [expected, actual] : {std::pair{c.primary, primary}, {c.secondary, secondary}, {c.joined, joined}})
            EXPECT_STREQ(expected, actual);
    }
    wchar_t joined[100];
    wrenkits::JoinNameServer(L"", L"10.0.0.2", joined);
    EXPECT_STREQ(L"10.0.0.2", joined) << "no comma without a primary";
}

}  // namespace
