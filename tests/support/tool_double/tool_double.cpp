// A stand-in for the OS tools the library runs (bcdedit, bcdboot, diskpart, netsh, ...).
// Copied under the tool's name, it journals how it was called and answers from a
// scenario that the test wrote.
//
// Folder: %WRENKITS_DOUBLE_DIR% (default C:\wrenkits-double), holding
//   journal.txt   appended, UTF-8, one line per event: "tool<TAB>kind<TAB>text"
//                 kind "cmd": the full command line; kind "line": one line read from stdin
//   scenario.txt  UTF-8, one rule per line: "tool<TAB>kind<TAB>pattern<TAB>action<TAB>text"
//                 tool: the tool's name or "*"; pattern: a substring of the command line
//                 or input line, empty or "*" for any; text: printed, with \r \n \t \\ escapes.
//                 kind "cmd":    action = exit code or "hang"; the first match decides.
//                 kind "banner", "prompt": the text printed first / after every answer in
//                                prompt mode (defaults "\r\nDouble DiskPart\r\n\r\n", "DISKPART> ").
//                 kind "line":   a reply to an input line in prompt mode; action "hang" never replies.
//                 kind "exit":   action "hang" makes the tool ignore "exit".
// The tool runs in prompt mode (reading commands from stdin) when it is diskpart or
// when the scenario gives it a banner, prompt or line rule.
#include <windows.h>

#include <stdlib.h>

#include <string>
#include <vector>

namespace {

std::string ToUtf8(const std::wstring& w) {
    if (w.empty()) return {};
    int n = WideCharToMultiByte(CP_UTF8, 0, w.c_str(), static_cast<int>(w.size()), nullptr, 0, nullptr, nullptr);
    std::string s(n, '\0');
    WideCharToMultiByte(CP_UTF8, 0, w.c_str(), static_cast<int>(w.size()), s.data(), n, nullptr, nullptr);
    return s;
}

std::wstring Folder() {
    wchar_t buf[MAX_PATH] = {};
    DWORD n = GetEnvironmentVariableW(L"WRENKITS_DOUBLE_DIR", buf, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) return L"C:\\wrenkits-double";
    return buf;
}

std::string ToolName() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring p = path;
    size_t slash = p.find_last_of(L"\\/");
    if (slash != std::wstring::npos) p = p.substr(slash + 1);
    size_t dot = p.rfind(L'.');
    if (dot != std::wstring::npos) p = p.substr(0, dot);
    std::string s = ToUtf8(p);
    for (auto& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

void Journal(const std::string& tool, const char* kind, const std::string& text) {
    std::wstring path = Folder() + L"\\journal.txt";
    HANDLE f = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f == INVALID_HANDLE_VALUE) return;
    std::string line = tool + "\t" + kind + "\t" + text + "\n";
    DWORD written = 0;
    WriteFile(f, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    CloseHandle(f);
}

struct Rule {
    std::string tool, kind, pattern, action, text;
};

std::string Unescape(const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '\\' || i + 1 == s.size()) {
            out += s[i];
            continue;
        }
        char c = s[++i];
        out += c == 'r' ? '\r' : c == 'n' ? '\n' : c == 't' ? '\t' : c;
    }
    return out;
}

std::vector<Rule> LoadScenario(const std::string& tool) {
    std::vector<Rule> rules;
    std::wstring path = Folder() + L"\\scenario.txt";
    HANDLE f = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f == INVALID_HANDLE_VALUE) return rules;
    std::string all;
    char buf[4096];
    DWORD got = 0;
    while (ReadFile(f, buf, sizeof buf, &got, nullptr) && got) all.append(buf, got);
    CloseHandle(f);
    size_t start = 0;
    while (start < all.size()) {
        size_t end = all.find('\n', start);
        if (end == std::string::npos) end = all.size();
        std::string line = all.substr(start, end - start);
        start = end + 1;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        std::vector<std::string> f5;
        size_t p = 0;
        for (int i = 0; i < 4; ++i) {
            size_t t = line.find('\t', p);
            if (t == std::string::npos) break;
            f5.push_back(line.substr(p, t - p));
            p = t + 1;
        }
        if (f5.size() != 4) continue;
        f5.push_back(line.substr(p));
        Rule r{f5[0], f5[1], f5[2], f5[3], Unescape(f5[4])};
        if (r.tool == "*" || r.tool == tool) rules.push_back(r);
    }
    return rules;
}

const Rule* Find(const std::vector<Rule>& rules, const char* kind, const std::string& subject) {
    for (const auto& r : rules)
        if (r.kind == kind && (r.pattern.empty() || r.pattern == "*" || subject.find(r.pattern) != std::string::npos))
            return &r;
    return nullptr;
}

void Print(const std::string& text) {
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

[[noreturn]] void Hang() {
    for (;;) Sleep(INFINITE);
}

bool ReadLine(std::string& line) {
    line.clear();
    HANDLE in = GetStdHandle(STD_INPUT_HANDLE);
    char c;
    DWORD got = 0;
    bool any = false;
    while (ReadFile(in, &c, 1, &got, nullptr) && got == 1) {
        any = true;
        if (c == '\n') break;
        if (c != '\r') line += c;
    }
    return any;
}

int PromptMode(const std::string& tool, const std::vector<Rule>& rules) {
    const Rule* banner = Find(rules, "banner", "");
    const Rule* prompt = Find(rules, "prompt", "");
    const std::string promptText = prompt ? prompt->text : "DISKPART> ";
    Print(banner ? banner->text : "\r\nDouble DiskPart\r\n\r\n");
    Print(promptText);
    std::string line;
    while (ReadLine(line)) {
        Journal(tool, "line", line);
        if (_stricmp(line.c_str(), "exit") == 0) {
            const Rule* exitRule = Find(rules, "exit", "");
            if (exitRule && exitRule->action == "hang") Hang();
            Print("\r\nLeaving DiskPart...\r\n");
            return 0;
        }
        const Rule* reply = Find(rules, "line", line);
        if (reply && reply->action == "hang") Hang();
        if (reply) Print(reply->text);
        Print(promptText);
    }
    return 0;
}

}  // namespace

int wmain() {
    const std::string tool = ToolName();
    const std::string commandLine = ToUtf8(GetCommandLineW());
    Journal(tool, "cmd", commandLine);
    const std::vector<Rule> rules = LoadScenario(tool);

    bool promptMode = tool == "diskpart";
    for (const auto& r : rules)
        if (r.kind == "banner" || r.kind == "prompt" || r.kind == "line") promptMode = true;
    if (promptMode) return PromptMode(tool, rules);

    const Rule* rule = Find(rules, "cmd", commandLine);
    if (!rule) return 0;
    Print(rule->text);
    if (rule->action == "hang") Hang();
    return atoi(rule->action.c_str());
}
