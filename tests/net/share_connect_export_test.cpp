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
const Lines kClear = {Cancel(kIpc), Cancel(kShare)};
const Lines kCleared = {Log("disconnect \\\\nas\\IPC$ reutrn 0"), Log("disconnect \\\\nas\\backup reutrn 0")};
const std::string kAsAdmin = Log("---> \\\\nas\\backup user: nas\\admin");
const std::string kMissing = "CheckPathWrite create \\\\nas\\backup\\test_qrb_write failed, error: 3";
const std::string kGuestIn = Log("connect \\\\nas\\backup with guest account return 0");

enum class Probe { Real, Denied, DiskFull };
struct ShareCase {
    const char* name;
    std::function<DWORD()> call;
    WNet wnet = {};
    DWORD result = 0;
    Lines calls = {};
    Lines log = {};
    Probe probe = Probe::Real;
};

void Check(ShareCase c) {
    SCOPED_TRACE(c.name);
    WNetHooks hooks(c.wnet);
    using TempName = Fails<LPCWSTR, LPCWSTR, UINT, LPWSTR>;
    using MakeDir = Fails<LPCWSTR, LPSECURITY_ATTRIBUTES>;
    TempName::error = ERROR_DISK_FULL;
    MakeDir::error = ERROR_ACCESS_DENIED;
    std::optional<wrtest::ImportHook> probe;
    if (c.probe == Probe::DiskFull) probe.emplace("KERNEL32.dll", "GetTempFileNameW", (void*)TempName::Call);
    if (c.probe == Probe::Denied) probe.emplace("KERNEL32.dll", "CreateDirectoryW", (void*)MakeDir::Call);
    wrtest::LogCapture log;
    EXPECT_EQ(c.result, c.call());
    EXPECT_EQ(c.calls, c.wnet.calls);
    boottest::ExpectLog(log, c.log);
}

auto Connect(const wchar_t* user, DWORD write = 1, const wchar_t* path = L"\\\\nas\\backup\\pc1",
             const wchar_t* password = L"pw") {
    return [=] { return ZN_ConnectNetworkPath(path, user, password, write); };
}

TEST(ConnectNetworkPath, CredentialRoundsAndProbe) {
    const Lines retry = {Cancel(kShare), Add("nas\\admin")};
    const std::string refused = Log("connect \\\\nas\\backup with nas\\admin:pw return 1326");
    const std::string badEmpty = Log("connect \\\\nas\\backup with :pw return 2202");
    const ShareCase cases[] = {
        {.name = "local path: no network call", .call = Connect(L"admin", 1, L"D:\\Backup")},
        {.name = "server without share", .call = Connect(L"admin", 1, L"\\\\server"), .result = 87,
         .log = {Log("path \\\\server is not a valid share")}},
        {.name = "null password", .call = Connect(L"admin", 1, L"\\\\nas\\backup", nullptr), .result = 87},
        {.name = "old sessions go, nas\\admin connects", .call = Connect(L"admin", 0), .wnet = {.reachableAfter = 1},
         .calls = kClear + Lines{Add("nas\\admin")},
         .log = Lines{kAsAdmin, "CheckPathWrite get \\\\nas\\backup path attributes failed, error: 2"} + kCleared},
        {.name = "2202: the user as given", .call = Connect(L"admin"), .wnet = {.adds = {2202}, .reachableAfter = 2},
         .calls = kClear + Lines{Add("nas\\admin"), Add("admin")}, .log = Lines{kAsAdmin, kMissing} + kCleared},
        {.name = "already reachable: nothing cancelled", .call = Connect(L"admin"), .wnet = {.reachableAfter = 0},
         .log = {kAsAdmin}},
        {.name = "empty user: 2202 retries it as is; every round and Guest fail", .call = Connect(L""),
         .wnet = {.adds = {2202, 2202, 2202, 2202, 2202, 2202, 1326}}, .result = 53,
         .calls = kClear + Lines{Add(""), Add(""), Cancel(kShare), Add(""), Add(""), Cancel(kShare), Add(""), Add(""),
                                 Cancel(kShare), Add("Guest", "")},
         .log = Lines{Log("---> \\\\nas\\backup user: "), kMissing} + kCleared +
                Lines{badEmpty, kMissing, badEmpty, kMissing, badEmpty,
                      Log("connect \\\\nas\\backup with guest account return 1326"), kMissing}},
        {.name = "other failures name the qualified user; Guest gets in", .call = Connect(L"admin"),
         .wnet = {.adds = {1326, 1326, 1326}, .reachableAfter = 4},
         .calls = kClear + Lines{Add("nas\\admin")} + retry + retry + Lines{Cancel(kShare), Add("Guest", "")},
         .log = Lines{kAsAdmin, kMissing} + kCleared + Lines{refused, kMissing, refused, kMissing, refused, kGuestIn}},
        {.name = "read-only share: 5 after the Guest round", .call = Connect(L"admin"), .wnet = {.reachableAfter = 0},
         .result = 5, .calls = kClear + Lines{Add("nas\\admin")} + retry + retry + Lines{Cancel(kShare), Add("Guest", "")},
         .log = Lines{kAsAdmin} + kCleared + Lines{kGuestIn}, .probe = Probe::Denied},
        {.name = "disk full", .call = Connect(L"admin"), .result = 112, .log = {kAsAdmin}, .probe = Probe::DiskFull},
        {.name = "narrow twin", .call = [] { return ZN_ConnectNetworkPathA("\\\\nas\\backup\\pc1", "admin", "pw", 1); },
         .wnet = {.adds = {2202}, .reachableAfter = 2}, .calls = kClear + Lines{Add("nas\\admin"), Add("admin")},
         .log = Lines{kAsAdmin, kMissing} + kCleared},
        {.name = "narrow text that does not fit",
         .call = [] { return ZN_ConnectNetworkPathA(("\\\\nas\\" + std::string(300, 's')).c_str(), "a", "b", 1); },
         .result = 206, .log = {"ZN_ConnectNetworkPathA refused: text is longer than 259 characters"}},
    };
    for (const ShareCase& c : cases) Check(c);
}

TEST(ConnectNetworkPath, DisconnectsAndMappedDrives) {
    const Lines mapClear = {Cancel(kIpc), Cancel(kShare)};
    const std::string mapAdd = "add 0/1/0/0 z: \\\\nas\\backup ";
    const ShareCase cases[] = {
        {.name = "disconnect cancels the share", .call = [] { return ZN_DisconnectNetworkPath(L"\\\\nas\\backup\\pc1"); },
         .calls = {Cancel(kShare)}, .log = {"ZN_DisconnectNetworkPath ---> \\\\nas\\backup"}},
        {.name = "narrow disconnect of a server", .call = [] { return ZN_DisconnectNetworkPathA("\\\\server"); },
         .log = {"ZN_DisconnectNetworkPath path \\\\server is not a valid share"}},
        {.name = "disconnect of a local path", .call = [] { return ZN_DisconnectNetworkPath(L"D:\\x"); }},
        {.name = "map z: as nas\\admin", .call = [] { return ZN_MapNetDrive(L"\\\\nas\\backup", L'z', L"admin", L"pw"); },
         .calls = mapClear + Lines{mapAdd + "nas\\admin:pw 0"}},
        {.name = "map: 2202, then the user as given fails",
         .call = [] { return ZN_MapNetDrive(L"\\\\nas\\backup", L'z', L"admin", L"pw"); }, .wnet = {.adds = {2202, 53}},
         .result = 53, .calls = mapClear + Lines{mapAdd + "nas\\admin:pw 0", mapAdd + "admin:pw 0"},
         .log = {"ZN_MapNetDrive map \\\\nas\\backup to z: with admin:pw error: 53"}},
        {.name = "map to no letter", .call = [] { return ZN_MapNetDrive(L"\\\\nas\\backup", L'1', L"", L""); },
         .result = 87, .log = {"ZN_MapNetDrive refused: drive letter is missing or not valid"}},
        {.name = "unmap a letter that is not connected", .call = [] { return ZN_DisconnectNetDrive(L'q'); },
         .wnet = {.cancels = 2250}, .result = 2250, .calls = {"cancel q: 1 1"},
         .log = {"ZN_DisconnectNetDrive cancel connect q: error: 2250"}},
    };
    for (const ShareCase& c : cases) Check(c);
}

}  // namespace
