#include "support/tool_double.h"

#include <windows.h>
#include <tlhelp32.h>

#include "support/wine_env.h"

namespace wrtest {

ToolDouble::ToolDouble() {
    static int counter = 0;
    folder_ = L"C:\\wrenkits-double\\" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++counter);
    RemoveTree(folder_);
    MakeDirs(folder_);
    SetEnvironmentVariableW(L"WRENKITS_DOUBLE_DIR", folder_.c_str());
}

ToolDouble::~ToolDouble() {
    SetEnvironmentVariableW(L"WRENKITS_DOUBLE_DIR", nullptr);
    RemoveTree(folder_);
}

ToolDouble& ToolDouble::AddRule(const std::string& tool, const std::string& kind, const std::string& pattern,
                                const std::string& action, const std::string& text) {
    std::string escaped;
    for (char c : text) escaped += c == '\r' ? "\\r" : c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
    const std::wstring scenario = folder_ + L"\\scenario.txt";
    WriteFileBytes(scenario, ReadFileBytes(scenario) + tool + "\t" + kind + "\t" + pattern + "\t" + action + "\t" +
                                 escaped + "\n");
    return *this;
}

ToolDouble& ToolDouble::OnCommand(const std::string& tool, const std::string& pattern, const std::string& exitCode,
                                  const std::string& text) {
    return AddRule(tool, "cmd", pattern, exitCode, text);
}

ToolDouble& ToolDouble::OnLine(const std::string& tool, const std::string& pattern, const std::string& text) {
    return AddRule(tool, "line", pattern, "reply", text);
}

ToolDouble& ToolDouble::HangOnExit(const std::string& tool) { return AddRule(tool, "exit", "", "hang", ""); }

// The journal holds one "tool<TAB>kind<TAB>text" line per event.
std::vector<std::string> ToolDouble::Journal(const std::string& tool, const std::string& kind) const {
    std::vector<std::string> out;
    const std::string all = ReadFileBytes(folder_ + L"\\journal.txt"), head = tool + "\t" + kind + "\t";
    for (size_t pos = 0, end; (end = all.find('\n', pos)) != std::string::npos; pos = end + 1)
        if (all.compare(pos, head.size(), head) == 0)
            out.push_back(all.substr(pos + head.size(), end - pos - head.size()));
    return out;
}

std::vector<std::string> ToolDouble::Commands(const std::string& tool) const { return Journal(tool, "cmd"); }

std::vector<std::string> ToolDouble::Lines(const std::string& tool) const { return Journal(tool, "line"); }

std::vector<std::string> ToolDouble::Arguments(const std::string& tool) const {
    std::vector<std::string> out;
    for (const auto& c : Commands(tool)) {
        // Paths hold no blanks here.
        const size_t exe = c.find(".exe"), blank = c.find(' ', exe == std::string::npos ? 0 : exe);
        out.push_back(blank == std::string::npos ? "" : c.substr(blank + 1));
    }
    return out;
}

bool ToolDouble::WaitForExit(const std::string& tool, unsigned long timeoutMs) {
    const std::wstring exe = Widen(tool) + L".exe";
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    bool allEnded = true;
    PROCESSENTRY32W pe = {};
    pe.dwSize = sizeof pe;
    for (BOOL ok = Process32FirstW(snap, &pe); ok; ok = Process32NextW(snap, &pe)) {
        HANDLE p = _wcsicmp(pe.szExeFile, exe.c_str()) ? nullptr : OpenProcess(SYNCHRONIZE, FALSE, pe.th32ProcessID);
        if (p && WaitForSingleObject(p, timeoutMs) != WAIT_OBJECT_0) allEnded = false;
        if (p) CloseHandle(p);
    }
    CloseHandle(snap);
    return allEnded;
}

}  // namespace wrtest
