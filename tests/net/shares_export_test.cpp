// Share connections, mapped drives and the target check on recorded connection calls;
// the write probe runs against the real folder Wine serves as \\nas\backup.
#include <functional>
#include <optional>

#include "Wrenkits.h"
#include "net/net_test_support.h"

using namespace nettest;

namespace {

// How the connection calls answer, and what they were asked.
struct WNet {
    std::vector<DWORD> adds = {};  // answers of the connection attempts in order, then 0
    int reachableAfter = -1;       // the attempt whose success makes \\nas\backup exist; 0: it exists already
    DWORD cancels = 0, openEnum = ERROR_NO_NETWORK;
    std::vector<std::pair<const wchar_t*, const wchar_t*>> connected = {};  // enumerated (remote, local)
    Lines calls = {};
    int attempts = 0;
} * g;

// Wine serves \\nas\backup from the prefix's "unc" device folder.
const std::wstring kShareDir = [] {
    std::wstring prefix(MAX_PATH, L'\0');
    prefix.resize(GetEnvironmentVariableW(L"WINEPREFIX", prefix.data(), MAX_PATH));
    for (wchar_t& c : prefix) c = c == L'/' ? L'\\' : c;
    return L"Z:" + prefix + L"\\dosdevices\\unc\\nas\\backup";
}();

DWORD WINAPI Add(NETRESOURCEW* r, LPCWSTR password, LPCWSTR user, DWORD flags) {
    g->calls.push_back("add " + U(r->dwScope) + "/" + U(r->dwType) + "/" + U(r->dwUsage) + " " +
                       (r->lpLocalName ? N(r->lpLocalName) : "-") + " " + N(r->lpRemoteName) + " " + N(user) + ":" + N(password) + " " + U(flags));
    const size_t i = g->attempts++;
    const DWORD answer = i < g->adds.size() ? g->adds[i] : 0;
    if (answer == 0 && g->attempts == g->reachableAfter) wrtest::MakeDirs(kShareDir + L"\\pc1");
    return answer;
}
DWORD WINAPI Cancel(LPCWSTR name, DWORD flags, BOOL force) {
    g->calls.push_back("cancel " + N(name) + " " + U(flags) + " " + U(force));
    return g->cancels;
}
DWORD WINAPI OpenEnum(DWORD scope, DWORD type, DWORD usage, NETRESOURCEW*, HANDLE* handle) {
    g->calls.push_back("open " + U(scope) + "/" + U(type) + "/" + U(usage));
    *handle = g->openEnum ? nullptr : reinterpret_cast<HANDLE>(0x5150);
    return g->openEnum;
}
// Every entry in the first answer, then the end of the enumeration.
DWORD WINAPI Enum(HANDLE, DWORD* count, void* buffer, DWORD*) {
    auto* entry = static_cast<NETRESOURCEW*>(buffer);
    for (const auto& [remote, local] : g->connected)
        *entry++ = {0, 0, 0, 0, const_cast<LPWSTR>(local), const_cast<LPWSTR>(remote), nullptr, nullptr};
    *count = static_cast<DWORD>(std::exchange(g->connected, {}).size());
    return *count ? NO_ERROR : ERROR_NO_MORE_ITEMS;
}
DWORD WINAPI CloseEnum(HANDLE) { return g->calls.push_back("close"), NO_ERROR; }
UINT WINAPI Optical(LPCWSTR root) { return g->calls.push_back("drive type of " + N(root)), DRIVE_CDROM; }
// Wine has no volume behind a share; the served one is NTFS.
BOOL WINAPI Ntfs(LPCWSTR, LPWSTR, DWORD, LPDWORD, LPDWORD, LPDWORD, LPWSTR name, DWORD chars) {
    return wcscpy_s(name, chars, L"NTFS") == 0;
}

// A KERNEL32 call in place for one row: its name and the fake.
using Fake = std::pair<const char*, void*>;
const Fake kDiskFull = {"GetTempFileNameW", (void*)Fail<ERROR_DISK_FULL, LPCWSTR, LPCWSTR, UINT, LPWSTR>};
const Fake kDenied = {"CreateDirectoryW", (void*)Fail<ERROR_ACCESS_DENIED, LPCWSTR, LPSECURITY_ATTRIBUTES>};
const Fake kOptical = {"GetDriveTypeW", (void*)Optical};

struct Row {
    const char* name;
    std::function<DWORD()> call;
    WNet wnet = {};
    DWORD result = 0;
    Lines calls = {}, log = {};
    Fake fake = {nullptr, nullptr};
};

void Expect(const Row& row) {
    SCOPED_TRACE(row.name);
    WNet wnet = row.wnet;
    g = &wnet;
    wrtest::RemoveTree(kShareDir);
    if (wnet.reachableAfter == 0) wrtest::MakeDirs(kShareDir + L"\\pc1");
    wrtest::WriteFileBytes(kShareDir + L"\\pc1\\image.dat", "image");
    wrtest::ImportHook hooks[] = {
        {"MPR.dll", "WNetAddConnection2W", (void*)Add}, {"MPR.dll", "WNetCancelConnection2W", (void*)Cancel},
        {"MPR.dll", "WNetOpenEnumW", (void*)OpenEnum}, {"MPR.dll", "WNetEnumResourceW", (void*)Enum},
        {"MPR.dll", "WNetCloseEnum", (void*)CloseEnum}, {"KERNEL32.dll", "GetVolumeInformationW", (void*)Ntfs}};
    std::optional<wrtest::ImportHook> fake;
    if (row.fake.first) fake.emplace("KERNEL32.dll", row.fake.first, row.fake.second);
    wrtest::LogCapture log;
    EXPECT_EQ(row.result, row.call());
    EXPECT_EQ(row.calls, wnet.calls);
    ExpectLog(log, row.log);
    // The probe cleans up after itself: once the test's own entries go, the share is empty.
    DeleteFileW((kShareDir + L"\\pc1\\image.dat").c_str());
    RemoveDirectoryW((kShareDir + L"\\pc1").c_str());
    EXPECT_TRUE(RemoveDirectoryW(kShareDir.c_str()) || GetLastError() != 145) << "left in \\\\nas\\backup";
    wrtest::RemoveTree(kShareDir);
}

const std::string kShare = "\\\\nas\\backup", kIpc = "\\\\nas\\IPC$";
std::string Dropped(const std::string& name) { return "cancel " + name + " 1 1"; }
std::string Tried(const std::string& user, const std::string& password = "pw") {
    return "add 2/1/1 - " + kShare + " " + user + ":" + password + " 0";
}
std::string Log(const std::string& text) { return "ZN_ConnectNetworkPath " + text; }
auto Connect(const wchar_t* user, DWORD write = 1, const wchar_t* path = L"\\\\nas\\backup\\pc1") {
    return [=] { return ZN_ConnectNetworkPath(path, user, L"pw", write); };
}

TEST(ConnectNetworkPath, CredentialRoundsAndProbe) {
    const Lines clear = {Dropped(kIpc), Dropped(kShare)}, retry = {Dropped(kShare), Tried("nas\\admin")};
    const Lines cleared = {Log("disconnect \\\\nas\\IPC$ reutrn 0"), Log("disconnect \\\\nas\\backup reutrn 0")};
    const Lines guestRound = retry + retry + Lines{Dropped(kShare), Tried("Guest", "")};
    const std::string asAdmin = Log("---> \\\\nas\\backup user: nas\\admin"), guest = Log("connect " + kShare + " with ");
    const std::string missing = "CheckPathWrite create \\\\nas\\backup\\test_qrb_write failed, error: 3";
    const std::string refused = guest + "nas\\admin:pw return 1326";
    const Row rows[] = {
        {"local path: no network call", Connect(L"admin", 1, L"D:\\Backup")},
        {"server without share", Connect(L"admin", 1, L"\\\\server"), {}, 87, {}, {Log("path \\\\server is not a valid share")}},
        {"null user", Connect(nullptr), {}, 87},
        {"old sessions go; on 2202 the user as given; no write check", Connect(L"admin", 0), {.adds = {2202}, .reachableAfter = 2}, 0, clear + Lines{Tried("nas\\admin"), Tried("admin")}, Lines{asAdmin, "CheckPathWrite get \\\\nas\\backup path attributes failed, error: 2"} + cleared},
        {"already reachable: nothing cancelled", Connect(L"admin"), {.reachableAfter = 0}, 0, {}, {asAdmin}},
        {"other failures name the qualified user; Guest gets in", Connect(L"admin"), {.adds = {1326, 1326, 1326}, .reachableAfter = 4}, 0, clear + Lines{Tried("nas\\admin")} + guestRound, Lines{asAdmin, missing} + cleared + Lines{refused, missing, refused, missing, refused, guest + "guest account return 0"}},
        {"read-only share: 5 after the Guest round", Connect(L"admin"), {.reachableAfter = 0}, 5, clear + Lines{Tried("nas\\admin")} + guestRound, Lines{asAdmin} + cleared + Lines{guest + "guest account return 0"}, kDenied},
        {"disk full", Connect(L"admin"), {}, 112, {}, {asAdmin}, kDiskFull},
        {"narrow twin", [] { return ZN_ConnectNetworkPathA("\\\\nas\\backup\\pc1", "admin", "pw", 1); }, {.reachableAfter = 0}, 0, {}, {asAdmin}},
        {"narrow text that does not fit", [] { return ZN_ConnectNetworkPathA(("\\\\nas\\" + std::string(300, 's')).c_str(), "a", "b", 1); }, {}, 206, {}, {"ZN_ConnectNetworkPathA refused: text is longer than 259 characters"}},
    };
    for (const Row& row : rows) Expect(row);
}

TEST(ConnectNetworkPath, DisconnectsAndMappedDrives) {
    const std::string map = "add 0/1/0 z: \\\\nas\\backup ";
    auto mapZ = [] { return ZN_MapNetDrive(L"\\\\nas\\backup", L'z', L"admin", L"pw"); };
    const Row rows[] = {
        {"disconnect cancels the share", [] { return ZN_DisconnectNetworkPath(L"\\\\nas\\backup\\pc1"); }, {}, 0, {Dropped(kShare)}, {"ZN_DisconnectNetworkPath ---> \\\\nas\\backup"}},
        {"narrow disconnect of a server", [] { return ZN_DisconnectNetworkPathA("\\\\server"); }, {}, 0, {}, {"ZN_DisconnectNetworkPath path \\\\server is not a valid share"}},
        {"disconnect of a local path", [] { return ZN_DisconnectNetworkPath(L"D:\\x"); }},
        {"map z: as nas\\admin", mapZ, {}, 0, Lines{Dropped(kIpc), Dropped(kShare), map + "nas\\admin:pw 0"}},
        {"map: 2202, then the user as given fails", mapZ, {.adds = {2202, 53}}, 53, {Dropped(kIpc), Dropped(kShare), map + "nas\\admin:pw 0", map + "admin:pw 0"}, {"ZN_MapNetDrive map \\\\nas\\backup to z: with admin:pw error: 53"}},
        {"map to no letter", [] { return ZN_MapNetDrive(L"\\\\nas\\backup", L'1', L"", L""); }, {}, 87, {}, {"ZN_MapNetDrive refused: drive letter is missing or not valid"}},
        {"unmap a letter that is not connected", [] { return ZN_DisconnectNetDrive(L'q'); }, {.cancels = 2250}, 2250, {"cancel q: 1 1"}, {"ZN_DisconnectNetDrive cancel connect q: error: 2250"}},
    };
    for (const Row& row : rows) Expect(row);
}

// ZN_CheckPath's answer and its four flags, recorded after the calls it made.
auto Check(const std::wstring& path, const wchar_t* user = L"admin") {
    return [=] {
        DWORD f[4] = {7, 7, 7, 7};
        const DWORD result = ZN_CheckPath(path.c_str(), user, L"pw", f, f + 1, f + 2, f + 3);
        g->calls.push_back("network optical folder ntfs: " + U(f[0]) + U(f[1]) + U(f[2]) + U(f[3]));
        return result;
    };
}

TEST(CheckPath, ClassifiesTargets) {
    const std::wstring local = L"C:\\wrenkits-net\\Backup", pc1 = L"\\\\nas\\backup\\pc1";
    auto flags = [](const char* f) { return "network optical folder ntfs: " + std::string(f); };
    // The enumeration, the session clean-up, the connection as `user` and its removal.
    auto connected = [&](const std::string& user, const char* f, bool listed = false) {
        return Lines{"open 1/0/0"} + (listed ? Lines{"close"} : Lines{}) +
               Lines{"cancel " + kIpc + " 0 1", "cancel " + kShare + " 0 1", "add 2/1/1 - " + kShare + " " + user + ":pw 0",
                     "cancel " + kShare + " 0 1", flags(f)};
    };
    auto logged = [](const std::string& user, DWORD answer) {
        const std::string c = "ZN_CheckPath ";
        return Lines{c + "disconnect \\\\nas\\IPC$ return 0", c + "---> " + kShare + " user: " + user,
                     c + "disconnect " + kShare + " return 0", c + "connect " + kShare + " return " + U(answer) + " with " + user};
    };
    const std::string ntfs = "ZN_GetFSType FS type of C:\\ is NTFS", shareNtfs = "ZN_GetFSType FS type of \\\\nas\\backup\\ is NTFS";
    const Row rows[] = {
        {"one character", Check(L"C"), {}, 3, {flags("0000")}},
        {"optical drive", Check(L"e:\\image"), {}, 3, {"drive type of E:\\", flags("0100")}, {}, kOptical},
        {"local folder on NTFS", Check(local), {}, 1, {flags("0011")}, {ntfs}},
        {"local file", Check(local + L"\\image.dat"), {}, 1, {flags("0001")}, {ntfs}},
        {"local path missing", Check(local + L"\\none"), {}, 3, {flags("0000")}},
        {"server already mapped: \\\\nas2\\x matches \\\\nas", Check(pc1), {.openEnum = 0, .connected = {{L"\\\\nas2\\x", L"Z:"}}}, 1, {"open 1/0/0", "close", flags("1000")}, {"NetPathIsMounted network path \\\\nas2\\x has mounted to: Z:"}},
        {"mapping without a letter does not count; writable folder", Check(pc1), {.reachableAfter = 0, .openEnum = 0, .connected = {{L"\\\\nas\\other", nullptr}}}, 1, connected("nas\\admin", "1011", true), Lines{"NetPathIsMounted network path \\\\nas\\other has mounted to: "} + logged("nas\\admin", 0) + Lines{shareNtfs}},
        {"1219 counts as connected; the probe is denied", Check(pc1, L"CORP\\admin"), {.adds = {1219}, .reachableAfter = 0}, 5, connected("CORP\\admin", "1011"), logged("CORP\\admin", 1219) + Lines{shareNtfs}, kDenied},
        {"network path that is a file", Check(pc1 + L"\\image.dat"), {.reachableAfter = 0}, 0, connected("nas\\admin", "1001"), logged("nas\\admin", 0) + Lines{shareNtfs}},
        {"network folder missing", Check(L"\\\\nas\\backup\\none"), {.reachableAfter = 0}, 3, connected("nas\\admin", "1001"), logged("nas\\admin", 0) + Lines{shareNtfs}},
        {"wrong password: the error's class", Check(pc1, L"corp/admin"), {.adds = {1326}, .reachableAfter = 0}, 5, connected("corp/admin", "1000"), logged("corp/admin", 1326)},
        {"no flag outputs", [] { DWORD f = 7; return ZN_CheckPath(L"C:\\", nullptr, nullptr, &f, &f, &f, nullptr); }, {}, 87, {}, {"ZN_CheckPath refused: flag output is missing or not valid"}},
    };
    wrtest::MakeDirs(local);
    wrtest::WriteFileBytes(local + L"\\image.dat", "image");
    for (const Row& row : rows) Expect(row);
    wrtest::RemoveTree(L"C:\\wrenkits-net");
}

}  // namespace
