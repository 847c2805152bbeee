// A stand-in for the OS tools the library runs (bcdedit, bcdboot, diskpart, netsh, ...).
// Copied under the tool's name, it journals how it was called and answers from a
// scenario that the test wrote.
//
// Folder: %WRENKITS_DOUBLE_DIR% (default C:\wrenkits-double), holding
//   journal.txt   appended, UTF-8, one line per event: "tool<TAB>kind<TAB>text"
//                 kind "cmd": the full command line; kind "line": one line read from stdin
//   scenario.txt  UTF-8, one rule per line: "tool<TAB>kind<TAB>pattern<TAB>action<TAB>text"
//                 tool: the tool's name or "*"; pattern: a substring of the command line
//                 or input line, empty for any; text: printed, with \r \n \\ escapes.
//                 kind "cmd":  action = exit code or "hang"; the first match decides.
//                 kind "line": in prompt mode, the reply to an input line.
//                 kind "exit": action "hang" makes the tool ignore "exit".
// The tool runs in prompt mode (reading commands from stdin after a banner and the
// prompt "DISKPART> ") when it is diskpart or when the scenario gives it a line rule.
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <vector>

// The tests' own file and text helpers, built into the double as well.
#include "support/wine_env.h"

namespace {

using wrtest::Narrow;

std::wstring Folder() {
    wchar_t buf[MAX_PATH] = {};
    const DWORD n = GetEnvironmentVariableW(L"WRENKITS_DOUBLE_DIR", buf, MAX_PATH);
    return n == 0 || n >= MAX_PATH ? L"C:\\wrenkits-double" : buf;
}

void Journal(const std::string& tool, const char* kind, const std::string& text) {
    HANDLE f = CreateFileW((Folder() + L"\\journal.txt").c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                           nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    const std::string line = tool + "\t" + kind + "\t" + text + "\n";
    DWORD written = 0;
    WriteFile(f, line.data(), DWORD(line.size()), &written, nullptr);
    CloseHandle(f);
}

struct Rule {
    std::string kind, pattern, action, text;
};

std::vector<Rule> LoadScenario(const std::string& tool) {
    const std::string all = wrtest::ReadFileBytes(Folder() + L"\\scenario.txt");
    std::vector<Rule> rules;
    for (size_t start = 0, end; (end = all.find('\n', start)) != std::string::npos; start = end + 1) {
        std::string field[5];
        for (size_t i = 0, p = start; i < 5 && p <= end; ++i) {
            const size_t t = i < 4 ? std::min(all.find('\t', p), end) : end;
            field[i] = all.substr(p, t - p);
            p = t + 1;
        }
        std::string text;  // unescaped
        for (size_t i = 0; i < field[4].size(); ++i) {
            char c = field[4][i];
            if (c == '\\' && i + 1 < field[4].size()) c = field[4][++i], c = c == 'r' ? '\r' : c == 'n' ? '\n' : c;
            text += c;
        }
        if (field[0] == "*" || field[0] == tool) rules.push_back({field[1], field[2], field[3], text});
    }
    return rules;
}

const Rule* Find(const std::vector<Rule>& rules, const char* kind, const std::string& subject) {
    for (const auto& r : rules)
        if (r.kind == kind && (r.pattern.empty() || subject.find(r.pattern) != std::string::npos)) return &r;
    return nullptr;
}

void Print(const std::string& text) {
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text.data(), DWORD(text.size()), &written, nullptr);
}

[[noreturn]] void Hang() {
    for (;;) Sleep(INFINITE);
}

bool ReadLine(std::string& line) {
    line.clear();
    char c;
    DWORD got = 0;
    bool any = false;
    while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), &c, 1, &got, nullptr) && got == 1) {
        any = true;
        if (c == '\n') break;
        if (c != '\r') line += c;
    }
    return any;
}

int PromptMode(const std::string& tool, const std::vector<Rule>& rules) {
    Print("\r\nDouble DiskPart\r\n\r\nDISKPART> ");
    for (std::string line; ReadLine(line); Print("DISKPART> ")) {
        Journal(tool, "line", line);
        if (_stricmp(line.c_str(), "exit") == 0) {
            if (Find(rules, "exit", "")) Hang();
            Print("\r\nLeaving DiskPart...\r\n");
            return 0;
        }
        if (const Rule* reply = Find(rules, "line", line)) Print(reply->text);
    }
    return 0;
}

}  // namespace

int wmain() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring name = path;
    name = name.substr(name.find_last_of(L"\\/") + 1);
    std::string tool = Narrow(name.substr(0, name.rfind(L'.')), CP_UTF8);
    for (auto& c : tool) c = char(tolower(static_cast<unsigned char>(c)));

    const std::string commandLine = Narrow(GetCommandLineW(), CP_UTF8);
    Journal(tool, "cmd", commandLine);
    const std::vector<Rule> rules = LoadScenario(tool);
    bool promptMode = tool == "diskpart";
    for (const auto& r : rules) promptMode |= r.kind == "line";
    if (promptMode) return PromptMode(tool, rules);

    const Rule* rule = Find(rules, "cmd", commandLine);
    if (!rule) return 0;
    Print(rule->text);
    if (rule->action == "hang") Hang();
    return atoi(rule->action.c_str());
}
