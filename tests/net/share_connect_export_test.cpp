// Share connections on the recorded connection calls; the write probe runs against
// the real folder Wine serves as \\nas\backup.
#include <functional>
#include <optional>

#include "Wrenkits.h"
#include "net/net_test_support.h"
#include "support/log_capture.h"

using namespace nettest;

namespace {

const std::string kShare = "\\\\nas\\backup", kIpc = "\\\\nas\\IPC$";
std::string Cancel(const std::string& name) { return "cancel " + name + " 1 1"; }
std::string Add(const std::string& user, const std::string& password = "pw") {
    return "add 2/1/0/1 - " + kShare + " " + user + ":" + password + " 0";
}
std::string Log(const std::string& text) { return "ZN_ConnectNetworkPath " + text; }
const Lines kClear = {Cancel(kIpc), Cancel(kShare)}, kRetry = {Cancel(kShare), Add("nas\\admin")};
const Lines kCleared = {Log("disconnect \\\\nas\\IPC$ reutrn 0"), Log("disconnect \\\\nas\\backup reutrn 0")};
const std::string kAsAdmin = Log("---> \\\\nas\\backup user: nas\\admin"), kGuest = Log("connect " + kShare + " with ");
const std::string kMissing = "CheckPathWrite create \\\\nas\\backup\\test_qrb_write failed, error: 3";

struct ShareCase {
    const char* name;
    std::function<DWORD()> call;
    WNet wnet = {};
    DWORD result = 0;
    Lines calls = {}, log = {};
    const char* probeFails = nullptr;  // the probe's platform call that fails: disk full or access denied
};

void Check(ShareCase c) {
    SCOPED_TRACE(c.name);
    WNetHooks hooks(c.wnet);
    std::optional<wrtest::ImportHook> probe;
    if (c.probeFails)
        probe.emplace("KERNEL32.dll", c.probeFails,
                      *c.probeFails == 'G' ? (void*)Fail<ERROR_DISK_FULL, LPCWSTR, LPCWSTR, UINT, LPWSTR>
                                           : (void*)Fail<ERROR_ACCESS_DENIED, LPCWSTR, LPSECURITY_ATTRIBUTES>);
    wrtest::LogCapture log;
    EXPECT_EQ(c.result, c.call());
    EXPECT_EQ(c.calls, c.wnet.calls);
    boottest::ExpectLog(log, c.log);
}

auto Connect(const wchar_t* user, DWORD write = 1, const wchar_t* path = L"\\\\nas\\backup\\pc1") {
    return [=] { return ZN_ConnectNetworkPath(path, user, L"pw", write); };
}

TEST(ConnectNetworkPath, CredentialRoundsAndProbe) {
    const std::string refused = kGuest + "nas\\admin:pw return 1326", badEmpty = kGuest + ":pw return 2202";
    const ShareCase cases[] = {
        {"local path: no network call", Connect(L"admin", 1, L"D:\\Backup")},
        {"server without share", Connect(L"admin", 1, L"\\\\server"), {}, 87, {}, {Log("path \\\\server is not a valid share")}},
        {"null user", Connect(nullptr), {}, 87},
        {"old sessions go, nas\\admin connects", Connect(L"admin", 0), {.reachableAfter = 1}, 0,
         kClear + Lines{Add("nas\\admin")},
         Lines{kAsAdmin, "CheckPathWrite get \\\\nas\\backup path attributes failed, error: 2"} + kCleared},
        {"2202: the user as given", Connect(L"admin"), {.adds = {2202}, .reachableAfter = 2}, 0,
         kClear + Lines{Add("nas\\admin"), Add("admin")}, Lines{kAsAdmin, kMissing} + kCleared},
        {"already reachable: nothing cancelled", Connect(L"admin"), {.reachableAfter = 0}, 0, {}, {kAsAdmin}},
        {"empty user: 2202 retries it as is; every round and Guest fail", Connect(L""),
         {.adds = {2202, 2202, 2202, 2202, 2202, 2202, 1326}}, 53,
         kClear + Lines{Add(""), Add(""), Cancel(kShare), Add(""), Add(""), Cancel(kShare), Add(""), Add(""),
                        Cancel(kShare), Add("Guest", "")},
         Lines{Log("---> \\\\nas\\backup user: "), kMissing} + kCleared +
             Lines{badEmpty, kMissing, badEmpty, kMissing, badEmpty, kGuest + "guest account return 1326", kMissing}},
        {"other failures name the qualified user; Guest gets in", Connect(L"admin"),
         {.adds = {1326, 1326, 1326}, .reachableAfter = 4}, 0,
         kClear + Lines{Add("nas\\admin")} + kRetry + kRetry + Lines{Cancel(kShare), Add("Guest", "")},
         Lines{kAsAdmin, kMissing} + kCleared +
             Lines{refused, kMissing, refused, kMissing, refused, kGuest + "guest account return 0"}},
        {"read-only share: 5 after the Guest round", Connect(L"admin"), {.reachableAfter = 0}, 5,
         kClear + Lines{Add("nas\\admin")} + kRetry + kRetry + Lines{Cancel(kShare), Add("Guest", "")},
         Lines{kAsAdmin} + kCleared + Lines{kGuest + "guest account return 0"}, "CreateDirectoryW"},
        {"disk full", Connect(L"admin"), {}, 112, {}, {kAsAdmin}, "GetTempFileNameW"},
        {"narrow twin", [] { return ZN_ConnectNetworkPathA("\\\\nas\\backup\\pc1", "admin", "pw", 1); },
         {.adds = {2202}, .reachableAfter = 2}, 0, kClear + Lines{Add("nas\\admin"), Add("admin")},
         Lines{kAsAdmin, kMissing} + kCleared},
        {"narrow text that does not fit",
         [] { return ZN_ConnectNetworkPathA(("\\\\nas\\" + std::string(300, 's')).c_str(), "a", "b", 1); }, {}, 206,
         {}, {"ZN_ConnectNetworkPathA refused: text is longer than 259 characters"}},
    };
    for (const ShareCase& c : cases) Check(c);
}

TEST(ConnectNetworkPath, DisconnectsAndMappedDrives) {
    const std::string map = "add 0/1/0/0 z: \\\\nas\\backup ";
    auto mapZ = [] { return ZN_MapNetDrive(L"\\\\nas\\backup", L'z', L"admin", L"pw"); };
    const ShareCase cases[] = {
        {"disconnect cancels the share", [] { return ZN_DisconnectNetworkPath(L"\\\\nas\\backup\\pc1"); }, {}, 0,
         {Cancel(kShare)}, {"ZN_DisconnectNetworkPath ---> \\\\nas\\backup"}},
        {"narrow disconnect of a server", [] { return ZN_DisconnectNetworkPathA("\\\\server"); }, {}, 0, {},
         {"ZN_DisconnectNetworkPath path \\\\server is not a valid share"}},
        {"disconnect of a local path", [] { return ZN_DisconnectNetworkPath(L"D:\\x"); }},
        {"map z: as nas\\admin", mapZ, {}, 0, kClear + Lines{map + "nas\\admin:pw 0"}},
        {"map: 2202, then the user as given fails", mapZ, {.adds = {2202, 53}}, 53,
         kClear + Lines{map + "nas\\admin:pw 0", map + "admin:pw 0"},
         {"ZN_MapNetDrive map \\\\nas\\backup to z: with admin:pw error: 53"}},
        {"map to no letter", [] { return ZN_MapNetDrive(L"\\\\nas\\backup", L'1', L"", L""); }, {}, 87, {},
         {"ZN_MapNetDrive refused: drive letter is missing or not valid"}},
        {"unmap a letter that is not connected", [] { return ZN_DisconnectNetDrive(L'q'); }, {.cancels = 2250}, 2250,
         {"cancel q: 1 1"}, {"ZN_DisconnectNetDrive cancel connect q: error: 2250"}},
    };
    for (const ShareCase& c : cases) Check(c);
}

}  // namespace
