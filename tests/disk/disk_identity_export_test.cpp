// ZN_CopyDiskGuid against fake physical disks 0 and 1: hooked imports answer the
// layout requests with the platform's records and keep the bytes written.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "Wrenkits.h"
#include "disk/disk_identity_layouts.h"
#include "support/import_hook.h"
#include "support/log_capture.h"

namespace {

using namespace disktest;
using Lines = std::vector<std::string>;

struct Drives {
    std::vector<std::uint8_t> layouts[2];
    DWORD setError = 0;
    std::map<HANDLE, DWORD> open = {};
    Lines calls = {};
    std::vector<std::uint8_t> written = {};
} g;

HANDLE WINAPI FakeCreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD,
                              HANDLE) {
    DWORD n = 0;
    swscanf(path, L"\\\\.\\PhysicalDrive%lu", &n);
    const bool shared = share == (FILE_SHARE_READ | FILE_SHARE_WRITE) && disposition == OPEN_EXISTING;
    g.calls.push_back("open " + std::to_string(n) + (access == GENERIC_READ ? " r" : " rw") + (shared ? "" : " badly"));
    if (n > 1) return SetLastError(ERROR_FILE_NOT_FOUND), INVALID_HANDLE_VALUE;
    HANDLE h = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    g.open[h] = n;
    return h;
}

BOOL WINAPI FakeDeviceIoControl(HANDLE h, DWORD code, LPVOID in, DWORD inBytes, LPVOID out, DWORD outBytes,
                                LPDWORD returned, LPOVERLAPPED) {
    const DWORD n = g.open.at(h);
    const bool get = code == IOCTL_DISK_GET_DRIVE_LAYOUT_EX;
    g.calls.push_back((get ? "get " : code == IOCTL_DISK_SET_DRIVE_LAYOUT_EX ? "set " : "? ") + std::to_string(n));
    const auto& layout = g.layouts[n];
    DWORD error = get ? (outBytes < layout.size() ? ERROR_INSUFFICIENT_BUFFER : 0) : g.setError;
    if (get && !error) memcpy(out, layout.data(), *returned = DWORD(layout.size()));
    if (!get) g.written.assign((std::uint8_t*)in, (std::uint8_t*)in + inBytes);
    return SetLastError(error), !error;
}

BOOL WINAPI FakeCloseHandle(HANDLE h) {
    if (g.open.count(h)) g.calls.push_back("close " + std::to_string(g.open[h]));
    g.open.erase(h);
    return CloseHandle(h);
}

TEST(CopyDiskGuid, WritesTheSourceIdentityOntoTheDestinationLayout) {
    const Lines all = {"open 0 r", "get 0", "open 1 rw", "get 1", "set 1", "close 1", "close 0"};
    const Lines unwritten = {"open 0 r", "get 0", "open 1 rw", "get 1", "close 1", "close 0"};
    const std::string tag = "[Wrenkit] ZN_CopyDiskGuid ";
    struct Case {
        const char* name;
        std::vector<Part> source, destination, written;  // written: the destination entries sent
        DWORD result;
        Lines calls, log = {};
        PARTITION_STYLE style = MBR;  // both disks'; for a 13 the destination's is MBR
        DWORD from = 0, to = 1, setError = 0;
    } cases[] = {
        {"MBR clone", {{1, 0xa1}, {2, 0xa2}}, {{1, 0xb1}, {0, 0}, {2, 0xb2}},
         {{1, 0xa1, true}, {0, 0}, {2, 0xa2, true}}, 0, all},
        {"GPT partner missing: partial layout written, 2", {{1, 0xa1}}, {{1, 0xb1}, {2, 0xb2}},
         {{1, 0xa1, true}, {2, 0xb2}}, 2, all,
         {tag + "partition 2 on destination disk is not found on source disk"}, GPT},
        {"no destination partitions: the disk identity alone", {{1, 0xa1}}, {}, {}, 0, all},
        {"styles differ: nothing written", {{1, 0xa1}}, {{1, 0xb1}}, {}, 13, unwritten,
         {tag + "partition style of disk 0 and 1 is not same"}, GPT},
        {"no source disk", {}, {}, {}, 2, {"open 7 r"}, {tag + "open \\\\.\\PhysicalDrive7 error: 2"}, MBR, 7},
        {"no destination disk", {}, {}, {}, 2, {"open 0 r", "get 0", "open 9 rw", "close 0"},
         {tag + "open \\\\.\\PhysicalDrive9 error: 2"}, MBR, 0, 9},
        {"destination layout over 8192 bytes", {}, std::vector<Part>(60, {1, 0xb1}), {}, 122, unwritten,
         {tag + "get layout of \\\\.\\PhysicalDrive1 error: 122"}},
        {"write protected", {{1, 0xa1}}, {{1, 0xb1}}, {{1, 0xa1, true}}, 19, all,
         {tag + "set layout of \\\\.\\PhysicalDrive1 error: 19"}, MBR, 0, 1, ERROR_WRITE_PROTECT},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const PARTITION_STYLE destination = c.result == 13 ? MBR : c.style;
        g = {{Layout(c.style, 0x5a, c.source, 7), Layout(destination, 0x3c, c.destination)}, c.setError};
        wrtest::ImportHook open("kernel32.dll", "CreateFileW", reinterpret_cast<void*>(FakeCreateFileW));
        wrtest::ImportHook control("kernel32.dll", "DeviceIoControl", reinterpret_cast<void*>(FakeDeviceIoControl));
        wrtest::ImportHook close("kernel32.dll", "CloseHandle", reinterpret_cast<void*>(FakeCloseHandle));
        wrtest::LogCapture log;

        EXPECT_EQ(c.result, ZN_CopyDiskGuid(c.from, c.to));

        EXPECT_EQ(c.calls, g.calls);
        EXPECT_TRUE(g.open.empty()) << "a disk handle was left open";
        const bool set = c.calls.size() > 4 && c.calls[4] == "set 1";
        EXPECT_EQ(set ? Layout(destination, 0x5a, c.written) : std::vector<std::uint8_t>{}, g.written);
        EXPECT_EQ(c.log, log.Messages());
    }
}

}  // namespace
