// Steers the tool double (bcdedit, bcdboot, diskpart, ...) for one test: a fresh
// folder for its journal and scenario, announced to the child processes through
// the environment they inherit.
#pragma once

#include <string>
#include <vector>

namespace wrtest {

struct JournalEntry {
    std::string tool;  // "bcdedit", "bcdboot", "diskpart", ...
    std::string kind;  // "cmd" (the command line it was started with) or "line" (read from stdin)
    std::string text;
};

class ToolDouble {
public:
    ToolDouble();
    ToolDouble(const ToolDouble&) = delete;
    ToolDouble& operator=(const ToolDouble&) = delete;
    ~ToolDouble();

    // The first rule whose pattern the command line contains decides: exit code
    // ("hang" never ends) and printed text (\r \n escapes allowed).
    ToolDouble& OnCommand(const std::string& tool, const std::string& pattern, const std::string& exitCode,
                          const std::string& text = "");
    // Prompt mode: reply to an input line that contains `pattern`.
    ToolDouble& OnLine(const std::string& tool, const std::string& pattern, const std::string& text,
                       const std::string& action = "reply");
    ToolDouble& Banner(const std::string& tool, const std::string& text);
    ToolDouble& Prompt(const std::string& tool, const std::string& text);
    // The tool ignores "exit" and never ends by itself.
    ToolDouble& HangOnExit(const std::string& tool);

    std::vector<JournalEntry> Journal() const;
    // The command lines the tool was started with, in order.
    std::vector<std::string> Commands(const std::string& tool) const;
    // The arguments only: each command line with its program part (up to the first
    // blank after the executable) removed.
    std::vector<std::string> Arguments(const std::string& tool) const;
    // The lines the tool read from its standard input.
    std::vector<std::string> Lines(const std::string& tool) const;

    // Waits, up to `timeoutMs`, for every running copy of the tool to end (for
    // children the library started without waiting). False when one still runs.
    static bool WaitForExit(const std::string& tool, unsigned long timeoutMs);

    const std::wstring& folder() const { return folder_; }

private:
    void AddRule(const std::string& tool, const std::string& kind, const std::string& pattern,
                 const std::string& action, const std::string& text);
    std::wstring folder_;
};

}  // namespace wrtest
