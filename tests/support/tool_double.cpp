#include "support/tool_double.h"

#include <windows.h>
#include <tlhelp32.h>

#include "support/wine_env.h"

namespace wrtest {

namespace {
std::string Escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '\r') out += "\\r";
        else if (c == '\n') out += "\\n";
        else if (c == '\t') out += "\\t";
        else if (c == '\\') out += "\\\\";
        else out += c;
    }
    return out;
}
}  // namespace

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

void ToolDouble::AddRule(const std::string& tool, const std::string& kind, const std::string& pattern,
                         const std::string& action, const std::string& text) {
    std::string all = ReadFileBytes(folder_ + L"\\scenario.txt");
    all += tool + "\t" + kind + "\t" + pattern + "\t" + action + "\t" + Escape(text) + "\n";
    WriteFileBytes(folder_ + L"\\scenario.txt", all);
}

ToolDouble& ToolDouble::OnCommand(const std::string& tool, const std::string& pattern, const std::string& exitCode,
                                  const std::string& text) {
    AddRule(tool, "cmd", pattern, exitCode, text);
    return *this;
}

ToolDouble& ToolDouble::OnLine(const std::string& tool, const std::string& pattern, const std::string& text,
                               const std::string& action) {
    AddRule(tool, "line", pattern, action, text);
    return *this;
}

ToolDouble& ToolDouble::Banner(const std::string& tool, const std::string& text) {
    AddRule(tool, "banner", "", "", text);
    return *this;
}

ToolDouble& ToolDouble::Prompt(const std::string& tool, const std::string& text) {
    AddRule(tool, "prompt", "", "", text);
    return *this;
}

ToolDouble& ToolDouble::HangOnExit(const std::string& tool) {
    AddRule(tool, "exit", "", "hang", "");
    return *this;
}

std::vector<JournalEntry> ToolDouble::Journal() const {
    std::vector<JournalEntry> out;
    const std::string all = ReadFileBytes(folder_ + L"\\journal.txt");
    size_t pos = 0;
    while (pos < all.size()) {
        size_t end = all.find('\n', pos);
        if (end == std::string::npos) end = all.size();
        std::string line = all.substr(pos, end - pos);
        pos = end + 1;
        size_t t1 = line.find('\t');
        size_t t2 = t1 == std::string::npos ? t1 : line.find('\t', t1 + 1);
        if (t2 == std::string::npos) continue;
        out.push_back({line.substr(0, t1), line.substr(t1 + 1, t2 - t1 - 1), line.substr(t2 + 1)});
    }
    return out;
}

std::vector<std::string> ToolDouble::Commands(const std::string& tool) const {
    std::vector<std::string> out;
    for (const auto& e : Journal())
        if (e.tool == tool && e.kind == "cmd") out.push_back(e.text);
    return out;
}

std::vector<std::string> ToolDouble::Arguments(const std::string& tool) const {
    std::vector<std::string> out;
    for (const auto& c : Commands(tool)) {
        // The program part ends at the first blank after ".exe" (paths hold no blanks here).
        size_t exe = c.find(".exe");
        size_t blank = c.find(' ', exe == std::string::npos ? 0 : exe);
        out.push_back(blank == std::string::npos ? "" : c.substr(blank + 1));
    }
    return out;
}

std::vector<std::string> ToolDouble::Lines(const std::string& tool) const {
    std::vector<std::string> out;
    for (const auto& e : Journal())
        if (e.tool == tool && e.kind == "line") out.push_back(e.text);
    return out;
}

}  // namespace wrtest

namespace wrtest {

bool ToolDouble::WaitForExit(const std::string& tool, unsigned long timeoutMs) {
    const std::wstring exe = Widen(tool) + L".exe";
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snap == INVALID_HANDLE_VALUE) return false;
    bool allEnded = true;
    PROCESSENTRY32W pe = {};
    pe.dwSize = sizeof pe;
    for (BOOL ok = Process32FirstW(snap, &pe); ok; ok = Process32NextW(snap, &pe)) {
        if (_wcsicmp(pe.szExeFile, exe.c_str()) != 0) continue;
        if (HANDLE p = OpenProcess(SYNCHRONIZE, FALSE, pe.th32ProcessID)) {
            if (WaitForSingleObject(p, timeoutMs) != WAIT_OBJECT_0) allEnded = false;
            CloseHandle(p);
        }
    }
    CloseHandle(snap);
    return allEnded;
}

}  // namespace wrtest
