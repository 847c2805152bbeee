// The machine every disk test runs on, served at Wrenkits.dll's import table: devices
// ("\\.\E:", "\\.\PhysicalDrive1") answer control codes with the platform's records,
// drive roots their type, file system and cluster counts; the drive mask and the
// network connections are the test's. The library's questions are journaled in order.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>
#include <winioctl.h>
#include <winnetwk.h>

#include <charconv>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/import_hook.h"
#include "support/log_capture.h"
#include "support/wine_env.h"

namespace disktest {

using Lines = std::vector<std::string>;
template <typename... Records>
std::string Bytes(const Records&... r) { return (std::string(reinterpret_cast<const char*>(&r), sizeof r) + ...); }
inline std::string Hex(unsigned long long v) {
    char s[17] = {};
    return std::to_chars(s, s + 16, v, 16), s;
}
// The lines joined by "|", each without its log tag.
inline std::string Join(const Lines& lines) {
    std::string out;
    for (const auto& l : lines) out += (out.empty() ? "" : "|") + l.substr(l.rfind("[Wrenkit] ", 0) == 0 ? 10 : 0);
    return out;
}
inline std::string Logged(const wrtest::LogCapture& log) { return Join(log.Messages()); }

// A failing call's error (for "type": the drive type), and what a call writes.
struct Answer { DWORD code = 0; std::string bytes = ""; };

struct Machine {
    // Keys: "open PATH ACCESS" (hex; opened otherwise, a device does not exist), "PATH CODE"
    // (hex), "type ROOT", "fs ROOT" (the name), "clusters ROOT" (sectors per cluster, bytes
    // per sector, free and total clusters, for GetDiskFreeSpaceExW too), "WNetOpenEnumW 100" (its failure).
    // A root not named has no drive: type 1, error 3.
    std::map<std::string, Answer> answers;
    std::vector<std::vector<std::pair<std::wstring, std::wstring>>> connections;  // batches of (remote, local)
    DWORD drives = 0;
    Lines journal;  // "\\.\E: 2d1400 in 01000000.. out 1024" (inputs of 16 bytes at most shown), "fs q:\", ...
    std::string input;  // the last control request's
    std::map<HANDLE, std::string> open;  // devices and enumerations not closed
    static inline Machine* self = nullptr;
    Machine() { self = this; }
    ~Machine() { self = nullptr; }

private:
    static const Answer* Ask(const std::string& key, bool journaled = true) {
        if (journaled) self->journal.push_back(key);
        auto it = self->answers.find(key);
        return it == self->answers.end() ? nullptr : &it->second;
    }
    static BOOL Fail(const Answer* a) { return SetLastError(a ? a->code : ERROR_PATH_NOT_FOUND), FALSE; }
    static HANDLE WINAPI Create(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES sa, DWORD how, DWORD flags, HANDLE t) {
        const std::string path = wrtest::Narrow(name);
        if (path.rfind("\\\\.\\", 0) != 0) return CreateFileW(name, access, share, sa, how, flags, t);  // the log file
        const Answer* a = Ask("open " + path + " " + Hex(access), false);
        if (!a || a->code) return SetLastError(a ? a->code : ERROR_FILE_NOT_FOUND), INVALID_HANDLE_VALUE;
        HANDLE h = reinterpret_cast<HANDLE>(0x7E570000 + 8 * ++self->handles_);
        return self->open[h] = path, h;
    }
    static BOOL WINAPI Control(HANDLE h, DWORD code, LPVOID in, DWORD inBytes, LPVOID out, DWORD outBytes, LPDWORD returned, LPOVERLAPPED) {
        std::string shown = (self->input.assign(static_cast<char*>(in), in ? inBytes : 0)).empty() ? "" : " in ";
        for (unsigned char b : self->input) shown += Hex(b >> 4) + Hex(b & 15);
        self->journal.push_back(self->open[h] + " " + Hex(code) + (inBytes > 16 ? "" : shown) + " out " + std::to_string(outBytes));
        const Answer* a = Ask(self->open[h] + " " + Hex(code), false);
        if (!a || a->code) return SetLastError(a ? a->code : ERROR_INVALID_FUNCTION), FALSE;
        *returned = static_cast<DWORD>(std::min<size_t>(a->bytes.size(), outBytes));
        memcpy(out, a->bytes.data(), *returned);
        return *returned < a->bytes.size() ? SetLastError(ERROR_MORE_DATA), FALSE : TRUE;
    }
    static BOOL WINAPI Close(HANDLE h) { return self->open.erase(h) ? TRUE : CloseHandle(h); }
    static UINT WINAPI Type(LPCWSTR root) {
        const Answer* a = Ask("type " + wrtest::Narrow(root));
        return a ? a->code : DRIVE_NO_ROOT_DIR;
    }
    static BOOL WINAPI Info(LPCWSTR root, LPWSTR, DWORD, LPDWORD, LPDWORD, LPDWORD, LPWSTR fs, DWORD fsChars) {
        const Answer* a = Ask("fs " + wrtest::Narrow(root));
        return !a || a->code ? Fail(a) : !wcsncpy_s(fs, fsChars, wrtest::Widen(a->bytes).c_str(), _TRUNCATE);
    }
    static BOOL WINAPI Clusters(LPCWSTR root, LPDWORD sectors, LPDWORD bytes, LPDWORD freeClusters, LPDWORD total) {
        const Answer* a = Ask("clusters " + wrtest::Narrow(root));
        if (!a || a->code) return Fail(a);
        DWORD* outs[] = {sectors, bytes, freeClusters, total};
        for (int i = 0; i < 4; ++i) memcpy(outs[i], a->bytes.data() + 4 * i, 4);
        return TRUE;
    }
    // The quick size from the same counts; the caller's quota is nothing, which shows should it be read.
    static BOOL WINAPI Space(LPCWSTR root, PULARGE_INTEGER quota, PULARGE_INTEGER total, PULARGE_INTEGER totalFree) {
        DWORD c[4];
        if (!Clusters(root, &c[0], &c[1], &c[2], &c[3])) return FALSE;
        if (quota) quota->QuadPart = 0;
        return total->QuadPart = 1ull * c[0] * c[1] * c[3], totalFree->QuadPart = 1ull * c[0] * c[1] * c[2], TRUE;
    }
    static DWORD WINAPI Drives() { return self->drives; }
    static DWORD WINAPI OpenEnum(DWORD scope, DWORD type, DWORD usage, LPNETRESOURCEW, LPHANDLE h) {
        const Answer* a = Ask("WNetOpenEnumW " + std::to_string(scope) + std::to_string(type) + std::to_string(usage));
        if (a && a->code) return a->code;
        return self->open[*h = reinterpret_cast<HANDLE>(0x4E37)] = "enumeration", NO_ERROR;
    }
    // Each call hands out the next batch, its texts behind its records, as the platform does.
    static DWORD WINAPI Enum(HANDLE, LPDWORD count, LPVOID block, LPDWORD size) {
        Ask("WNetEnumResourceW " + std::to_string(int(*count)) + " " + std::to_string(*size));
        if (self->batch_ == self->connections.size()) return ERROR_NO_MORE_ITEMS;
        const auto& batch = self->connections[self->batch_++];
        auto* entries = static_cast<NETRESOURCEW*>(block);
        auto* text = reinterpret_cast<wchar_t*>(entries + (*count = static_cast<DWORD>(batch.size())));
        for (size_t i = 0; i < batch.size(); ++i) {
            entries[i] = {};
            entries[i].lpRemoteName = wcscpy(text, batch[i].first.c_str()), text += batch[i].first.size() + 1;
            entries[i].lpLocalName = wcscpy(text, batch[i].second.c_str()), text += batch[i].second.size() + 1;
        }
        return NO_ERROR;
    }
    static DWORD WINAPI CloseEnum(HANDLE h) { return self->open.erase(h), NO_ERROR; }

    static void* F(auto fn) { return reinterpret_cast<void*>(fn); }
    size_t batch_ = 0, handles_ = 0;
    wrtest::ImportHook hooks_[11] = {
        {"KERNEL32.dll", "CreateFileW", F(Create)},         {"KERNEL32.dll", "DeviceIoControl", F(Control)},
        {"KERNEL32.dll", "CloseHandle", F(Close)},          {"KERNEL32.dll", "GetDriveTypeW", F(Type)},
        {"KERNEL32.dll", "GetVolumeInformationW", F(Info)}, {"KERNEL32.dll", "GetDiskFreeSpaceW", F(Clusters)},
        {"KERNEL32.dll", "GetDiskFreeSpaceExW", F(Space)},  {"KERNEL32.dll", "GetLogicalDrives", F(Drives)},
        {"MPR.dll", "WNetOpenEnumW", F(OpenEnum)},          {"MPR.dll", "WNetEnumResourceW", F(Enum)},
        {"MPR.dll", "WNetCloseEnum", F(CloseEnum)}};
};

// One table row: what a call answered (its result, then what it wrote), what it asked
// the machine, and what it logged.
struct Row {
    const char* name;
    std::function<std::string()> call;
    std::string answer, journal, log;
};
inline void Run(const std::vector<Row>& rows, const std::function<void(Machine&)>& setUp) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Machine machine;
        setUp(machine);
        wrtest::LogCapture log;
        EXPECT_EQ(row.answer, row.call());
        EXPECT_EQ(row.journal, Join(machine.journal));
        EXPECT_EQ(0u, machine.open.size()) << "a device or enumeration was left open";
        EXPECT_EQ(row.log, Logged(log));
    }
}

}  // namespace disktest
