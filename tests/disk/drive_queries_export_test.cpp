// Drive and file-system queries against the real DLL, with the drive types, file
// systems, storage adapters and network connections Wine cannot give served at the
// DLL's import table.
#include <gtest/gtest.h>
#include <windows.h>
#include <winnetwk.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Wrenkits.h"
#include "disk/volume_device_fake.h"

using disktest::Call;
using disktest::Devices;
using disktest::Drives;

namespace {

const std::string kAdapterQuery("\x01\0\0\0\0\0\0\0\0\0\0\0", 12);  // adapter property, standard query

std::string Adapter(BYTE bus) {
    STORAGE_ADAPTER_DESCRIPTOR a = {};
    a.Version = a.Size = sizeof a;
    a.BusType = bus;
    return disktest::Bytes(a);
}

struct QueryCase {
    const char* name;
    std::function<int()> call;
    int result;
    std::vector<std::string> asked;  // drive questions, in order
    std::vector<std::string> log = {};
    std::vector<Call> requests = {};
    DWORD lastError = 0;  // checked when set: the refusals name theirs
};

TEST(DriveQueries, FileSystemPathTypeAndUsbAnswers) {
    static wchar_t fs[MAX_PATH];
    auto FsType = [](const wchar_t* path) { return [=] { return int(ZN_GetFSType(path, fs)); }; };
    auto PathType = [](const wchar_t* path) { return [=] { return ZN_GetPathType(path); }; };
    const std::wstring longShare = L"\\\\nas\\" + std::wstring(260, L's') + L"\\file.img";
    const QueryCase cases[] = {
        {"UNC file asks for its share", FsType(L"\\\\nas\\backup\\pc1\\file.img"), 1,
         {"GetVolumeInformationW \\\\nas\\backup\\ 260"}, {"ZN_GetFSType FS type of \\\\nas\\backup\\ is NTFS"}},
        {"bare share gets its backslash", FsType(L"\\\\nas\\backup"), 1, {"GetVolumeInformationW \\\\nas\\backup\\ 260"},
         {"ZN_GetFSType FS type of \\\\nas\\backup\\ is NTFS"}},
        {"only the first character of a local path counts", FsType(L"Elephant"), 1,
         {"GetVolumeInformationW E:\\ 260"}, {"ZN_GetFSType FS type of E:\\ is FAT32"}},
        {"failed volume query", FsType(L"q:"), 0, {"GetVolumeInformationW q:\\ 260"},
         {"ZN_GetFSType call GetVolumeInformationW on q:\\ error: 3"}},
        {"null and empty paths ask nothing", [] { return ZN_GetFSType(nullptr, fs) + ZN_GetFSType(L"", fs); }, 0, {}},
        {"share name too long for a root is refused, not cut", FsType(longShare.c_str()), 0, {},
         {"ZN_GetFSType refused: share of the path is longer than 259 characters"},
         {}, ERROR_FILENAME_EXCED_RANGE},
        {"two backslashes are a UNC path", PathType(L"\\\\"), 1, {}},
        {"one character is no path", PathType(L"C"), -1, {}},
        {"null path", PathType(nullptr), -1, {}},
        {"optical drive", PathType(L"D:\\setup.exe"), 2, {"GetDriveTypeW D:\\"}},
        {"USB disk reported as fixed", PathType(L"E:\\img"), 3, {"GetDriveTypeW E:\\", "GetDriveTypeW E:\\"}, {},
         {{"\\\\.\\E:", IOCTL_STORAGE_QUERY_PROPERTY, kAdapterQuery}}},
        {"card reader counts without asking the device", PathType(L"f:\\"), 3,
         {"GetDriveTypeW f:\\", "GetDriveTypeW f:\\"}},
        {"SATA disk is local", PathType(L"G:"), 0, {"GetDriveTypeW G:\\", "GetDriveTypeW G:\\"}, {},
         {{"\\\\.\\G:", IOCTL_STORAGE_QUERY_PROPERTY, kAdapterQuery}}},
        {"lower-case letter opens the upper-cased device", [] { return int(ZN_IsUsbPartition(L'e')); }, 1,
         {"GetDriveTypeW e:\\"}, {}, {{"\\\\.\\E:", IOCTL_STORAGE_QUERY_PROPERTY, kAdapterQuery}}},
        {"device that cannot be opened", [] { return int(ZN_IsUsbPartition(L'H')); }, 0, {"GetDriveTypeW H:\\"},
         {"ZN_IsUsbPartition open device \\\\.\\H: error: 5"}},
        {"failed adapter query", [] { return int(ZN_IsUsbPartition(L'I')); }, 0, {"GetDriveTypeW I:\\"}, {},
         {{"\\\\.\\I:", IOCTL_STORAGE_QUERY_PROPERTY, kAdapterQuery}}, ERROR_INVALID_FUNCTION},
        {"network drive is no USB drive", [] { return int(ZN_IsUsbPartition(L'N')); }, 0, {"GetDriveTypeW N:\\"}},
        {"a digit is no drive", [] { return int(ZN_IsUsbPartition(L'1')); }, 0, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Drives drives;
        drives.Type("D:\\", DRIVE_CDROM).Type("E:\\", DRIVE_FIXED).Type("e:\\", DRIVE_FIXED)
            .Type("f:\\", DRIVE_REMOVABLE).Type("G:\\", DRIVE_FIXED).Type("H:\\", DRIVE_FIXED)
            .Type("I:\\", DRIVE_FIXED).Type("N:\\", DRIVE_REMOTE)
            .FileSystem("\\\\nas\\backup\\", "NTFS").FileSystem("E:\\", "FAT32").FileSystem("q:\\", "", 3);
        Devices devices;
        devices.On("\\\\.\\E:", IOCTL_STORAGE_QUERY_PROPERTY, {0, Adapter(BusTypeUsb)})
            .On("\\\\.\\G:", IOCTL_STORAGE_QUERY_PROPERTY, {0, Adapter(BusTypeSata)})
            .On("\\\\.\\I:", IOCTL_STORAGE_QUERY_PROPERTY, {ERROR_INVALID_FUNCTION, ""})
            .Refuse("\\\\.\\H:", ERROR_ACCESS_DENIED);
        wrtest::LogCapture log;
        SetLastError(0xDEADBEEF);

        EXPECT_EQ(c.result, c.call());
        if (c.lastError) {
            EXPECT_EQ(c.lastError, GetLastError());
        }
        EXPECT_EQ(c.asked, drives.asked);
        EXPECT_EQ(c.requests, devices.calls);
        EXPECT_EQ(0, devices.open) << "device left open";
        for (const auto& o : devices.opened) EXPECT_EQ(" 0", o.substr(o.size() - 2)) << "asks no access: " << o;
        EXPECT_EQ(c.log, disktest::Untagged(log));
    }
}

// Connected network resources as WNetEnumResourceW hands them out, in batches.
struct Connections {
    DWORD openError = 0;
    std::vector<std::vector<std::pair<std::wstring, std::wstring>>> batches;  // remote, local
    size_t next = 0;
    std::vector<std::string> seen;  // what the library asked for
    int open = 0;
} g_net;

DWORD WINAPI FakeOpenEnum(DWORD scope, DWORD type, DWORD usage, LPNETRESOURCEW, LPHANDLE handle) {
    g_net.seen.push_back("open " + std::to_string(scope) + " " + std::to_string(type) + " " + std::to_string(usage));
    if (g_net.openError) return g_net.openError;
    ++g_net.open;
    *handle = reinterpret_cast<HANDLE>(0x4E37);
    return NO_ERROR;
}
DWORD WINAPI FakeEnum(HANDLE, LPDWORD count, LPVOID block, LPDWORD size) {
    bool zeroed = true;
    for (DWORD i = 0; i < *size; ++i) zeroed &= static_cast<BYTE*>(block)[i] == 0;
    g_net.seen.push_back("enum " + std::to_string(int(*count)) + " " + std::to_string(*size) + (zeroed ? "" : " dirty"));
    if (g_net.next == g_net.batches.size()) return ERROR_NO_MORE_ITEMS;
    const auto& batch = g_net.batches[g_net.next++];
    auto* entries = static_cast<NETRESOURCEW*>(block);
    auto* text = reinterpret_cast<wchar_t*>(entries + batch.size());
    memset(block, 0xBD, *size);  // the platform leaves no zeroes the library could rely on
    for (size_t i = 0; i < batch.size(); ++i) {
        entries[i] = {};
        const std::wstring* parts[] = {&batch[i].first, &batch[i].second};
        LPWSTR* slots[] = {&entries[i].lpRemoteName, &entries[i].lpLocalName};
        for (int p = 0; p < 2; ++p) {
            *slots[p] = text;
            text += parts[p]->size() + 1;
            memcpy(*slots[p], parts[p]->c_str(), (parts[p]->size() + 1) * sizeof(wchar_t));
        }
    }
    *count = static_cast<DWORD>(batch.size());
    return NO_ERROR;
}
DWORD WINAPI FakeCloseEnum(HANDLE) { return --g_net.open, NO_ERROR; }

TEST(DriveQueries, RemoteDriveFromTheConnectedResources) {
    const std::wstring longRemote = L"\\\\nas\\" + std::wstring(260, L'r');
    const std::vector<std::pair<std::wstring, std::wstring>> first = {{L"\\\\nas\\backup", L"Y:"}, {L"\\\\srv\\ipc$", L""}},
                                                             second = {{L"\\\\nas\\pc1", L"z:"}};
    const std::string mounted = "ZN_IsRemoteDrive network path ";
    struct RemoteCase {
        const char* name;
        WCHAR letter;
        bool withBuffer;
        DWORD openError;
        decltype(g_net.batches) batches;
        BOOL result;
        std::wstring remote;  // the buffer afterwards
        std::vector<std::string> seen, log;
    } cases[] = {
        {"local disk logs its type", L'c', true, 0, {}, FALSE, L"untouched", {}, {"ZN_IsRemoteDrive type of C is 3"}},
        {"found in the second batch, lower-case local name", L'z', true, 0, {first, second}, TRUE, L"\\\\nas\\pc1",
         {"open 1 0 0", "enum -1 16384", "enum -1 16384"},
         {mounted + "\\\\nas\\backup has mounted to: Y:", mounted + "\\\\srv\\ipc$ has mounted to: ",
          mounted + "\\\\nas\\pc1 has mounted to: z:"}},
        {"no buffer for the name", L'Y', false, 0, {first}, TRUE, L"untouched", {"open 1 0 0", "enum -1 16384"},
         {mounted + "\\\\nas\\backup has mounted to: Y:"}},
        {"not among the connections", L'Z', true, 0, {first}, FALSE, L"untouched",
         {"open 1 0 0", "enum -1 16384", "enum -1 16384"},
         {mounted + "\\\\nas\\backup has mounted to: Y:", mounted + "\\\\srv\\ipc$ has mounted to: "}},
        {"enumeration cannot be opened", L'Z', true, ERROR_NO_NETWORK, {}, FALSE, L"untouched", {"open 1 0 0"}, {}},
        {"remote name too long for the buffer is refused, not cut", L'Z', true, 0, {{{longRemote, L"Z:"}}}, FALSE,
         L"untouched", {"open 1 0 0", "enum -1 16384"},
         {mounted + wrtest::Narrow(longRemote) + " has mounted to: Z:",
          "ZN_IsRemoteDrive refused: remote name is longer than 259 characters"}},
        {"a digit is no drive", L'7', true, 0, {}, FALSE, L"untouched", {},
         {"ZN_IsRemoteDrive refused: drive letter is missing or not valid"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Drives drives;
        drives.Type("C:\\", DRIVE_FIXED).Type("Y:\\", DRIVE_REMOTE).Type("Z:\\", DRIVE_REMOTE);
        g_net = Connections{};
        g_net.openError = c.openError, g_net.batches = c.batches;
        wrtest::ImportHook open("MPR.dll", "WNetOpenEnumW", reinterpret_cast<void*>(&FakeOpenEnum)),
            enumerate("MPR.dll", "WNetEnumResourceW", reinterpret_cast<void*>(&FakeEnum)),
            close("MPR.dll", "WNetCloseEnum", reinterpret_cast<void*>(&FakeCloseEnum));
        wchar_t remote[MAX_PATH + 1] = L"untouched";
        remote[MAX_PATH] = L'#';
        wrtest::LogCapture log;

        EXPECT_EQ(c.result, ZN_IsRemoteDrive(c.letter, c.withBuffer ? remote : nullptr));
        EXPECT_EQ(c.remote, remote);
        EXPECT_EQ(L'#', remote[MAX_PATH]);
        EXPECT_EQ(c.seen, g_net.seen);
        EXPECT_EQ(0, g_net.open) << "enumeration left open";
        EXPECT_EQ(c.log, disktest::Untagged(log));
    }
}

}  // namespace
