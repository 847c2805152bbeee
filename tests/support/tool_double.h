// Steers the tool double (bcdedit, bcdboot, diskpart, ...) for one test: a fresh
// folder for its journal and scenario, announced to the child processes through
// the environment they inherit.
#pragma once

#include <string>
#include <vector>

namespace wrtest {

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
    ToolDouble& OnLine(const std::string& tool, const std::string& pattern, const std::string& text);
    // The tool ignores "exit" and never ends by itself.
    ToolDouble& HangOnExit(const std::string& tool);

    // The command lines the tool was started with, in order.
    std::vector<std::string> Commands(const std::string& tool) const;
    // The same without the program part (up to the first blank after the executable).
    std::vector<std::string> Arguments(const std::string& tool) const;
    // The lines the tool read from its standard input.
    std::vector<std::string> Lines(const std::string& tool) const;

    // Waits, up to `timeoutMs`, for every running copy of the tool to end (for
    // children the library started without waiting). False when one still runs.
    static bool WaitForExit(const std::string& tool, unsigned long timeoutMs);

private:
    ToolDouble& AddRule(const std::string& tool, const std::string& kind, const std::string& pattern,
                        const std::string& action, const std::string& text);
    std::vector<std::string> Journal(const std::string& tool, const std::string& kind) const;
    std::wstring folder_;
};

}  // namespace wrtest
