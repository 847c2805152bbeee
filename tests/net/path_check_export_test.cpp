// The target check on real local folders and on \\nas\backup, with the connection calls
// recorded and the optical drive served.
#include <optional>

#include "Wrenkits.h"
#include "net/net_test_support.h"
#include "support/log_capture.h"

using namespace nettest;

namespace {

const std::wstring kLocal = L"C:\\wrenkits-net\\Backup";
const std::string kShare = "\\\\nas\\backup";
std::string CheckLog(const std::string& text) { return "ZN_CheckPath " + text; }
std::string g_root;
UINT WINAPI Optical(LPCWSTR root) {
    g_root = N(root);
    return DRIVE_CDROM;
}
// Wine has no volume behind a share; the served one is NTFS.
BOOL WINAPI ShareVolume(LPCWSTR, LPWSTR, DWORD, LPDWORD, LPDWORD, LPDWORD, LPWSTR name, DWORD chars) {
    return wcscpy_s(name, chars, L"NTFS") == 0;
}

struct PathCase {
    const char* name;
    std::wstring path;
    const wchar_t* user = L"admin";
    WNet wnet = {.reachableAfter = 0, .openEnum = ERROR_NO_NETWORK};
    DWORD result = 3;
    DWORD network = 1, optical = 0, folder = 0, ntfs = 0;
    Lines calls = {};
    Lines log = {};
    bool denied = false;
};

TEST(CheckPath, ClassifiesTargets) {
    // The session clean-up and the connection as `user`, and the connection's removal.
    auto connected = [](const std::string& user) {
        return Lines{"cancel \\\\nas\\IPC$ 0 1", "cancel " + kShare + " 0 1",
                     "add 2/1/0/1 - " + kShare + " " + user + ":pw 0", "cancel " + kShare + " 0 1"};
    };
    auto logged = [](const std::string& user, DWORD answer) {
        return Lines{CheckLog("disconnect \\\\nas\\IPC$ return 0"), CheckLog("---> " + kShare + " user: " + user),
                     CheckLog("disconnect " + kShare + " return 0"),
                     CheckLog("connect " + kShare + " return " + std::to_string(answer) + " with " + user)};
    };
    const Lines open = {"open 1/0/0"};
    const std::string ntfs = "ZN_GetFSType FS type of C:\\ is NTFS";
    const Lines shareNtfs = {"ZN_GetFSType FS type of \\\\nas\\backup\\ is NTFS"};
    const PathCase cases[] = {
        {.name = "empty", .path = L"", .network = 0},
        {.name = "one character", .path = L"C", .network = 0},
        {.name = "optical drive", .path = L"e:\\image", .network = 0, .optical = 1},
        {.name = "local folder on NTFS", .path = kLocal, .result = 1, .network = 0, .folder = 1, .ntfs = 1, .log = {ntfs}},
        {.name = "local file", .path = kLocal + L"\\image.dat", .result = 1, .network = 0, .ntfs = 1, .log = {ntfs}},
        {.name = "local path missing", .path = kLocal + L"\\none", .network = 0},
        {.name = "server already mapped: \\\\nas2\\x matches \\\\nas", .path = L"\\\\nas\\backup\\pc1",
         .wnet = {.connected = {{L"\\\\nas2\\x", L"Z:"}}}, .result = 1, .calls = open + Lines{"close"},
         .log = {"NetPathIsMounted network path \\\\nas2\\x has mounted to: Z:"}},
        {.name = "mapping without a letter does not count; writable folder", .path = L"\\\\nas\\backup\\pc1",
         .wnet = {.reachableAfter = 0, .connected = {{L"\\\\nas\\other", nullptr}}}, .result = 1, .folder = 1,
         .ntfs = 1, .calls = open + Lines{"close"} + connected("nas\\admin"),
         .log = Lines{"NetPathIsMounted network path \\\\nas\\other has mounted to: "} + logged("nas\\admin", 0) +
                shareNtfs},
        {.name = "1219 counts as connected; the probe is denied", .path = L"\\\\nas\\backup\\pc1", .user = L"CORP\\admin",
         .wnet = {.adds = {1219}, .reachableAfter = 0, .openEnum = ERROR_NO_NETWORK}, .result = 5, .folder = 1,
         .ntfs = 1, .calls = open + connected("CORP\\admin"), .log = logged("CORP\\admin", 1219) + shareNtfs,
         .denied = true},
        {.name = "network path that is a file", .path = L"\\\\nas\\backup\\pc1\\image.dat", .result = 0, .ntfs = 1,
         .calls = open + connected("nas\\admin"), .log = logged("nas\\admin", 0) + shareNtfs},
        {.name = "network folder missing", .path = L"\\\\nas\\backup\\none", .ntfs = 1,
         .calls = open + connected("nas\\admin"), .log = logged("nas\\admin", 0) + shareNtfs},
        {.name = "wrong password", .path = L"\\\\nas\\backup\\pc1", .user = L"corp/admin",
         .wnet = {.adds = {1326}, .reachableAfter = 0, .openEnum = ERROR_NO_NETWORK}, .result = 5,
         .calls = open + connected("corp/admin"), .log = logged("corp/admin", 1326)},
        {.name = "unknown server", .path = L"\\\\nas\\backup\\pc1", .user = L"",
         .wnet = {.adds = {53}, .reachableAfter = 0, .openEnum = ERROR_NO_NETWORK}, .result = 3,
         .calls = open + connected(""), .log = logged("", 53)},
        {.name = "no network", .path = L"\\\\nas\\backup\\pc1", .wnet = {.adds = {1222}, .reachableAfter = 0, .openEnum = 1222},
         .result = 4, .calls = open + connected("nas\\admin"), .log = logged("nas\\admin", 1222)},
        {.name = "another error", .path = L"\\\\nas\\backup\\pc1", .wnet = {.adds = {1244}, .reachableAfter = 0, .openEnum = 1222},
         .result = 67, .calls = open + connected("nas\\admin"), .log = logged("nas\\admin", 1244)},
    };
    wrtest::MakeDirs(kLocal);
    wrtest::WriteFileBytes(kLocal + L"\\image.dat", "image");
    for (PathCase c : cases) {
        SCOPED_TRACE(c.name);
        WNetHooks hooks(c.wnet, true);
        wrtest::WriteFileBytes(ShareFolder() + L"\\pc1\\image.dat", "image");
        std::optional<wrtest::ImportHook> drive, probe, volume;
        if (c.network) volume.emplace("KERNEL32.dll", "GetVolumeInformationW", reinterpret_cast<void*>(ShareVolume));
        g_root.clear();
        if (c.optical) drive.emplace("KERNEL32.dll", "GetDriveTypeW", reinterpret_cast<void*>(Optical));
        if (c.denied)
            probe.emplace("KERNEL32.dll", "CreateDirectoryW", (void*)Fail<ERROR_ACCESS_DENIED, LPCWSTR, LPSECURITY_ATTRIBUTES>);
        wrtest::LogCapture log;
        DWORD network = 7, optical = 7, folder = 7, ntfs = 7;
        EXPECT_EQ(c.result, ZN_CheckPath(c.path.c_str(), c.user, L"pw", &network, &optical, &folder, &ntfs));
        EXPECT_EQ(std::vector<DWORD>({c.network, c.optical, c.folder, c.ntfs}),
                  std::vector<DWORD>({network, optical, folder, ntfs}));
        EXPECT_EQ(c.optical ? "E:\\" : "", g_root);
        EXPECT_EQ(c.calls, c.wnet.calls);
        boottest::ExpectLog(log, c.log);
    }
    wrtest::RemoveTree(L"C:\\wrenkits-net");
    DWORD flag = 7;
    EXPECT_EQ(87u, ZN_CheckPath(L"C:\\", nullptr, nullptr, &flag, &flag, &flag, nullptr));
}

}  // namespace
