// Volume devices Wine cannot offer, served at Wrenkits.dll's import table: named
// devices open to fake handles, each control code answers with real platform
// records, every request's input bytes are recorded, and closes are counted so a
// test sees each opened handle released.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>
#include <winioctl.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/wine_env.h"

namespace disktest {

struct Answer {
    DWORD error = 0;    // non-zero: the request fails with this code
    std::string bytes;  // what the device writes (cut to the caller's buffer, as ERROR_MORE_DATA)
};

template <typename Record>
std::string Bytes(const Record& r) { return std::string(reinterpret_cast<const char*>(&r), sizeof r); }

// A volume on `disks` (one extent each); no disks: the count alone, zero.
inline std::string Extents(std::vector<DWORD> disks) {
    std::string out(8, '\0');
    const DWORD count = static_cast<DWORD>(disks.size());
    std::memcpy(out.data(), &count, 4);
    for (DWORD d : disks) {
        DISK_EXTENT e = {d, {{0x100000, 0}}, {{0x40000000, 0}}};
        out += Bytes(e);
    }
    return out;
}

inline std::string PartitionNumber(DWORD number) {
    PARTITION_INFORMATION_EX p = {};
    p.PartitionStyle = PARTITION_STYLE_MBR;
    p.PartitionNumber = number;
    p.StartingOffset.QuadPart = 0x100000;
    return Bytes(p);
}

struct Call {
    std::string device;
    DWORD code;
    std::string input;
    bool operator==(const Call&) const = default;
};
inline void PrintTo(const Call& c, std::ostream* os) {
    *os << c.device << " 0x" << std::hex << c.code << std::dec << " in " << c.input.size() << " bytes";
}

class Devices {
public:
    // `path` as the library names it ("\\.\C:", "\\.\HarddiskVolume5").
    Devices& On(const std::string& path, DWORD code, Answer answer) {
        auto& d = devices_[Key(path)];
        if (!d.handle) d.handle = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x7E570000 + 8 * devices_.size()));
        d.answers[code] = std::move(answer);
        return *this;
    }
    // The device exists but cannot be opened.
    Devices& Refuse(const std::string& path, DWORD error) {
        devices_[Key(path)].openError = error;
        return *this;
    }

    std::vector<Call> calls;
    std::vector<std::string> opened;  // "path access"
    int open = 0;                     // fake handles not yet closed

    Devices() : createHook_("KERNEL32.dll", "CreateFileW", reinterpret_cast<void*>(&FakeCreate)),
                ioctlHook_("KERNEL32.dll", "DeviceIoControl", reinterpret_cast<void*>(&FakeIoctl)),
                closeHook_("KERNEL32.dll", "CloseHandle", reinterpret_cast<void*>(&FakeClose)) {
        EXPECT_TRUE(createHook_.active() && ioctlHook_.active() && closeHook_.active());
        current_ = this;
    }
    ~Devices() { current_ = nullptr; }

private:
    struct Device {
        HANDLE handle = nullptr;
        DWORD openError = 0;
        std::map<DWORD, Answer> answers;
    };
    static std::string Key(const std::string& path) {
        std::string k = path;
        for (auto& c : k) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
        return k;
    }
    Device* ByHandle(HANDLE h, std::string* name) {
        for (auto& [path, d] : devices_)
            if (d.handle == h) return *name = path, &d;
        return nullptr;
    }

    static HANDLE WINAPI FakeCreate(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES sa, DWORD how,
                                    DWORD flags, HANDLE tmpl) {
        Devices* self = current_;
        const std::string path = Key(wrtest::Narrow(name));
        auto it = self->devices_.find(path);
        if (it == self->devices_.end()) {
            // Numbered volume devices are ours alone: Wine has none to open.
            if (path.rfind("\\\\.\\HARDDISKVOLUME", 0) == 0) return SetLastError(ERROR_FILE_NOT_FOUND), INVALID_HANDLE_VALUE;
            return self->createHook_.original<decltype(&CreateFileW)>()(name, access, share, sa, how, flags, tmpl);
        }
        self->opened.push_back(wrtest::Narrow(name) + " " + std::to_string(access));
        if (it->second.openError) return SetLastError(it->second.openError), INVALID_HANDLE_VALUE;
        ++self->open;
        return it->second.handle;
    }
    static BOOL WINAPI FakeIoctl(HANDLE h, DWORD code, LPVOID in, DWORD inBytes, LPVOID out, DWORD outBytes,
                                 LPDWORD returned, LPOVERLAPPED ov) {
        Devices* self = current_;
        std::string path;
        Device* d = self->ByHandle(h, &path);
        if (!d) return self->ioctlHook_.original<decltype(&DeviceIoControl)>()(h, code, in, inBytes, out, outBytes,
                                                                               returned, ov);
        self->calls.push_back({path, code, std::string(static_cast<const char*>(in), in ? inBytes : 0)});
        auto a = d->answers.find(code);
        if (a == d->answers.end()) return SetLastError(ERROR_INVALID_FUNCTION), FALSE;
        if (a->second.error) return SetLastError(a->second.error), FALSE;
        const DWORD n = static_cast<DWORD>(std::min<size_t>(a->second.bytes.size(), outBytes));
        std::memcpy(out, a->second.bytes.data(), n);
        if (returned) *returned = n;
        if (n < a->second.bytes.size()) return SetLastError(ERROR_MORE_DATA), FALSE;
        return TRUE;
    }
    static BOOL WINAPI FakeClose(HANDLE h) {
        Devices* self = current_;
        std::string path;
        if (!self->ByHandle(h, &path)) return self->closeHook_.original<decltype(&CloseHandle)>()(h);
        --self->open;
        return TRUE;
    }

    std::map<std::string, Device> devices_;
    wrtest::ImportHook createHook_, ioctlHook_, closeHook_;
    static inline Devices* current_ = nullptr;
};

// Drive roots as the library asks about them ("E:\\", "\\\\nas\\backup\\"): the type, the
// file system and the cluster counts a test gives; roots it does not name go to Wine.
struct Geometry {
    DWORD sectorsPerCluster, bytesPerSector, freeClusters, totalClusters;
};
class Drives {
public:
    Drives& Type(const std::string& root, UINT type) { return types_[root] = type, *this; }
    // A file-system name, or "" with `error` for a failed query.
    Drives& FileSystem(const std::string& root, const std::string& name, DWORD error = 0) {
        return fileSystems_[root] = {error, name}, *this;
    }
    Drives& Clusters(const std::string& root, Geometry g, DWORD error = 0) {
        return geometry_[root] = {g, error}, *this;
    }
    std::vector<std::string> asked;  // "GetDriveTypeW E:\\", "GetVolumeInformationW ...", ...

    Drives() { current_ = this; }
    ~Drives() { current_ = nullptr; }

private:
    static UINT WINAPI FakeType(LPCWSTR root) {
        Drives* self = current_;
        const std::string r = wrtest::Narrow(root);
        self->asked.push_back("GetDriveTypeW " + r);
        auto it = self->types_.find(r);
        return it != self->types_.end() ? it->second : self->typeHook_.original<decltype(&GetDriveTypeW)>()(root);
    }
    static BOOL WINAPI FakeInfo(LPCWSTR root, LPWSTR label, DWORD labelChars, LPDWORD serial, LPDWORD maxName,
                                LPDWORD flags, LPWSTR fs, DWORD fsChars) {
        Drives* self = current_;
        const std::string r = wrtest::Narrow(root);
        self->asked.push_back("GetVolumeInformationW " + r + " " + std::to_string(fsChars));
        auto it = self->fileSystems_.find(r);
        if (it == self->fileSystems_.end())
            return self->infoHook_.original<decltype(&GetVolumeInformationW)>()(root, label, labelChars, serial,
                                                                                maxName, flags, fs, fsChars);
        if (it->second.error) return SetLastError(it->second.error), FALSE;
        const std::wstring name = wrtest::Widen(it->second.bytes);
        wcsncpy_s(fs, fsChars, name.c_str(), _TRUNCATE);
        return TRUE;
    }
    static BOOL WINAPI FakeFree(LPCWSTR root, LPDWORD spc, LPDWORD bps, LPDWORD freeClusters, LPDWORD total) {
        Drives* self = current_;
        const std::string r = wrtest::Narrow(root);
        self->asked.push_back("GetDiskFreeSpaceW " + r);
        auto it = self->geometry_.find(r);
        if (it == self->geometry_.end())
            return self->freeHook_.original<decltype(&GetDiskFreeSpaceW)>()(root, spc, bps, freeClusters, total);
        if (it->second.second) return SetLastError(it->second.second), FALSE;
        const Geometry& g = it->second.first;
        *spc = g.sectorsPerCluster, *bps = g.bytesPerSector, *freeClusters = g.freeClusters, *total = g.totalClusters;
        return TRUE;
    }

    std::map<std::string, UINT> types_;
    std::map<std::string, Answer> fileSystems_;
    std::map<std::string, std::pair<Geometry, DWORD>> geometry_;
    wrtest::ImportHook typeHook_{"KERNEL32.dll", "GetDriveTypeW", reinterpret_cast<void*>(&FakeType)};
    wrtest::ImportHook infoHook_{"KERNEL32.dll", "GetVolumeInformationW", reinterpret_cast<void*>(&FakeInfo)};
    wrtest::ImportHook freeHook_{"KERNEL32.dll", "GetDiskFreeSpaceW", reinterpret_cast<void*>(&FakeFree)};
    static inline Drives* current_ = nullptr;
};

// The messages logged since `log` began, without their tag.
inline std::vector<std::string> Untagged(const wrtest::LogCapture& log) {
    std::vector<std::string> out;
    for (auto m : log.Messages()) out.push_back(m.rfind("[Wrenkit] ", 0) == 0 ? m.substr(10) : m);
    return out;
}

}  // namespace disktest
