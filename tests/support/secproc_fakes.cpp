#include "support/secproc_fakes.h"

#include <tlhelp32.h>

#include <gtest/gtest.h>

#include "support/wine_env.h"

namespace wrtest {

namespace {

constexpr DWORD kGonePid = 0xBAD0;  // a listed process that cannot be opened

struct {
    std::vector<std::wstring> names, opened;
    size_t next;
    std::wstring current;
    void* openProcess;
} g_list;

BOOL WINAPI FakeNext(HANDLE, PROCESSENTRY32W* entry) {
    if (g_list.next >= g_list.names.size()) return SetLastError(ERROR_NO_MORE_FILES), FALSE;
    const std::wstring& name = g_list.names[g_list.next++];
    const bool gone = name.rfind(L"gone:", 0) == 0;
    entry->th32ProcessID = gone ? kGonePid : GetCurrentProcessId();
    g_list.current = name.substr(gone ? 5 : 0);
    return wcscpy_s(entry->szExeFile, g_list.current.c_str()) == 0;
}
BOOL WINAPI FakeFirst(HANDLE snapshot, PROCESSENTRY32W* entry) { return g_list.next = 0, FakeNext(snapshot, entry); }
HANDLE WINAPI FakeSnapshot(DWORD, DWORD) { return CreateEventW(nullptr, TRUE, FALSE, nullptr); }
HANDLE WINAPI FakeOpenProcess(DWORD access, BOOL inherit, DWORD pid) {
    g_list.opened.push_back(g_list.current);
    if (pid == kGonePid) return SetLastError(ERROR_INVALID_PARAMETER), nullptr;
    return reinterpret_cast<decltype(&OpenProcess)>(g_list.openProcess)(access, inherit, pid);
}

}  // namespace

void ExpectLog(const LogCapture& log, const std::vector<std::string>& lines) {
    std::vector<std::string> tagged;
    for (const std::string& line : lines) tagged.push_back(Tagged(line));
    EXPECT_EQ(tagged, log.Messages());
}

FakeProcessList::FakeProcessList(std::vector<std::wstring> names)
    : snapshot_("KERNEL32.dll", "CreateToolhelp32Snapshot", reinterpret_cast<void*>(FakeSnapshot)),
      first_("KERNEL32.dll", "Process32FirstW", reinterpret_cast<void*>(FakeFirst)),
      next_("KERNEL32.dll", "Process32NextW", reinterpret_cast<void*>(FakeNext)),
      open_("KERNEL32.dll", "OpenProcess", reinterpret_cast<void*>(FakeOpenProcess)) {
    g_list = {std::move(names), {}, 0, {}, open_.original<void*>()};
}
FakeProcessList::~FakeProcessList() { g_list = {}; }
std::vector<std::wstring> FakeProcessList::Opened() const { return g_list.opened; }

IdleProcess::IdleProcess(const std::wstring& exeName) : path_(ExeDir() + L"\\" + exeName) {
    CopyFileW((ExeDir() + L"\\tooldouble.exe").c_str(), path_.c_str(), FALSE);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    std::wstring command = L"\"" + path_ + L"\" idle";
    CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup, &info_);
    CloseHandle(info_.hThread);
}

IdleProcess::~IdleProcess() {
    TerminateProcess(info_.hProcess, 1);
    WaitForSingleObject(info_.hProcess, 10000);
    CloseHandle(info_.hProcess);
    DeleteFileW(path_.c_str());
}

}  // namespace wrtest
