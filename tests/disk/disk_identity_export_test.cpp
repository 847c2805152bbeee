// ZN_CopyDiskGuid against fake physical disks: the import hooks answer the layout
// requests with real platform records and keep the bytes the library writes.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "disk/disk_identity_layouts.h"
#include "support/import_hook.h"
#include "support/log_capture.h"

namespace {

using disktest::Layout;
using disktest::LayoutBytes;
using disktest::Part;

struct FakeDisk {
    std::vector<std::uint8_t> layout;
    DWORD bytes = 0;
    DWORD getError = 0, setError = 0;
};

// The fakes' shared state: the disks by number, the open handles and what was asked.
struct Drives {
    std::map<DWORD, FakeDisk> disks;
    std::map<HANDLE, DWORD> open;
    std::vector<std::string> calls;
    std::vector<std::uint8_t> written;
} g;

HANDLE WINAPI FakeCreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES sa, DWORD disposition,
                              DWORD flags, HANDLE model) {
    DWORD n = 0;
    if (swscanf(path, L"\\\\.\\PhysicalDrive%lu", &n) != 1)
        return CreateFileW(path, access, share, sa, disposition, flags, model);
    const bool shared = share == (FILE_SHARE_READ | FILE_SHARE_WRITE) && disposition == OPEN_EXISTING;
    g.calls.push_back("open " + std::to_string(n) + (access == GENERIC_READ ? " read" : " read/write") +
                      (shared ? "" : " badly"));
    if (!g.disks.count(n)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    HANDLE h = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    g.open[h] = n;
    return h;
}

BOOL WINAPI FakeDeviceIoControl(HANDLE h, DWORD code, LPVOID in, DWORD inBytes, LPVOID out, DWORD outBytes,
                                LPDWORD returned, LPOVERLAPPED) {
    const DWORD n = g.open.at(h);
    FakeDisk& disk = g.disks[n];
    const bool get = code == IOCTL_DISK_GET_DRIVE_LAYOUT_EX;
    g.calls.push_back((get ? "get " : code == IOCTL_DISK_SET_DRIVE_LAYOUT_EX ? "set " : "other ") + std::to_string(n));
    DWORD error = get ? disk.getError : disk.setError;
    if (get && !error && outBytes < disk.bytes) error = ERROR_INSUFFICIENT_BUFFER;
    if (get && !error) {
        memcpy(out, disk.layout.data(), disk.bytes);
        *returned = disk.bytes;
    }
    if (!get) g.written.assign(static_cast<std::uint8_t*>(in), static_cast<std::uint8_t*>(in) + inBytes);
    SetLastError(error);
    return !error;
}

BOOL WINAPI FakeCloseHandle(HANDLE h) {
    if (g.open.count(h)) g.calls.push_back("close " + std::to_string(g.open[h]));
    g.open.erase(h);
    return CloseHandle(h);
}

struct CopyCase {
    const char* name;
    PARTITION_STYLE sourceStyle = PARTITION_STYLE_GPT, destinationStyle = PARTITION_STYLE_GPT;
    std::vector<Part> source = {}, destination = {};
    DWORD from = 0, to = 1;  // disk numbers; only 0 and 1 exist
    DWORD sourceGetError = 0, destinationGetError = 0, setError = 0;
    DWORD result = 0;
    std::vector<std::string> calls;
    std::vector<Part> written = {};  // the destination entries in the layout written
    std::vector<std::string> log = {};
};

const std::vector<std::string> kWhole = {"open 0 read", "get 0", "open 1 read/write", "get 1", "set 1", "close 1",
                                         "close 0"};
const std::vector<std::string> kNoWrite = {"open 0 read", "get 0", "open 1 read/write", "get 1", "close 1", "close 0"};

TEST(CopyDiskGuid, WritesTheSourceIdentityOntoTheDestinationLayout) {
    const std::vector<Part> many(60, Part{1, 0xb1});  // a layout larger than the request's buffer
    const CopyCase cases[] = {
        {.name = "MBR clone", .sourceStyle = PARTITION_STYLE_MBR, .destinationStyle = PARTITION_STYLE_MBR,
         .source = {{1, 0xa1}, {2, 0xa2}}, .destination = {{1, 0xb1}, {0, 0}, {2, 0xb2}}, .calls = kWhole,
         .written = {{1, 0xa1, true}, {0, 0}, {2, 0xa2, true}}},
        {.name = "GPT partner missing: partial layout written, 2", .source = {{1, 0xa1}, {3, 0xa3}},
         .destination = {{1, 0xb1}, {2, 0xb2}, {3, 0xb3}}, .result = 2, .calls = kWhole,
         .written = {{1, 0xa1, true}, {2, 0xb2}, {3, 0xb3}},
         .log = {"ZN_CopyDiskGuid partition 2 on destination disk is not found on source disk"}},
        {.name = "no destination partitions: disk identity only", .source = {{1, 0xa1}}, .calls = kWhole},
        {.name = "styles differ", .sourceStyle = PARTITION_STYLE_MBR, .source = {{1, 0xa1}}, .destination = {{1, 0xb1}},
         .result = 13, .calls = kNoWrite, .log = {"ZN_CopyDiskGuid partition style of disk 0 and 1 is not same"}},
        {.name = "no source disk", .from = 7, .result = 2, .calls = {"open 7 read"},
         .log = {"ZN_CopyDiskGuid open \\\\.\\PhysicalDrive7 error: 2"}},
        {.name = "no destination disk", .to = 9, .result = 2, .calls = {"open 0 read", "get 0", "open 9 read/write", "close 0"},
         .log = {"ZN_CopyDiskGuid open \\\\.\\PhysicalDrive9 error: 2"}},
        {.name = "source not ready", .sourceGetError = ERROR_NOT_READY, .result = 21, .calls = {"open 0 read", "get 0", "close 0"},
         .log = {"ZN_CopyDiskGuid get layout of \\\\.\\PhysicalDrive0 error: 21"}},
        {.name = "destination layout over 8192 bytes", .destination = many, .result = 122,
         .calls = {"open 0 read", "get 0", "open 1 read/write", "get 1", "close 1", "close 0"},
         .log = {"ZN_CopyDiskGuid get layout of \\\\.\\PhysicalDrive1 error: 122"}},
        {.name = "write protected", .source = {{1, 0xa1}}, .destination = {{1, 0xb1}}, .setError = ERROR_WRITE_PROTECT,
         .result = 19, .calls = kWhole, .written = {{1, 0xa1, true}},
         .log = {"ZN_CopyDiskGuid set layout of \\\\.\\PhysicalDrive1 error: 19"}},
    };
    for (const CopyCase& c : cases) {
        SCOPED_TRACE(c.name);
        g = {};
        auto add = [](DWORD n, PARTITION_STYLE style, std::uint8_t disk, const std::vector<Part>& parts, int salt) {
            auto layout = Layout(style, disk, parts.size() < 56 ? parts : std::vector<Part>{}, salt);
            g.disks[n] = {layout, LayoutBytes(parts)};
        };
        add(0, c.sourceStyle, 0x5a, c.source, 7);
        add(1, c.destinationStyle, 0x3c, c.destination, 0);
        g.disks[0].getError = c.sourceGetError;
        g.disks[1].setError = c.setError;
        wrtest::ImportHook open("kernel32.dll", "CreateFileW", reinterpret_cast<void*>(FakeCreateFileW));
        wrtest::ImportHook control("kernel32.dll", "DeviceIoControl", reinterpret_cast<void*>(FakeDeviceIoControl));
        wrtest::ImportHook close("kernel32.dll", "CloseHandle", reinterpret_cast<void*>(FakeCloseHandle));
        wrtest::LogCapture log;

        EXPECT_EQ(c.result, ZN_CopyDiskGuid(c.from, c.to));

        EXPECT_EQ(c.calls, g.calls);
        EXPECT_TRUE(g.open.empty()) << "a disk handle was left open";
        std::vector<std::uint8_t> expected;
        if (c.calls.size() > 4 && c.calls[4] == "set 1") {
            expected = Layout(c.destinationStyle, 0x5a, c.written);
            expected.resize(LayoutBytes(c.written));
        }
        EXPECT_EQ(expected, g.written);
        std::vector<std::string> tagged;
        for (const auto& line : c.log) tagged.push_back(wrtest::Tagged(line));
        EXPECT_EQ(tagged, log.Messages());
    }
}

}  // namespace
