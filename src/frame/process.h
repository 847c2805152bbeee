// Running tools as child processes: one-shot runs and interactive console sessions.
#pragma once

#include <windows.h>

#include "frame/unique_any.h"

namespace wrenkits {

// Command lines of one-shot runs hold this many characters, terminator included.
inline constexpr size_t kCommandLineChars = 520;

// Which open step of a console session failed (Open: none). Each user maps these to its
// own result: diskpart answers with the step's error, the command interpreter with 87.
enum class SessionStage { Open, StdoutPipe, StdinPipe, Process, Buffer };

struct SessionOpen {
    SessionStage stage;
    DWORD error;  // the failed step's last-error code (8 for the buffer); 0 when open
    bool ok() const { return stage == SessionStage::Open; }
};

// When the close steps say "exit" to the tool: whenever its input pipe exists, or only
// when the session got as far as its answer buffer (the command interpreter's rule).
enum class SessionExit { Always, OnlyWithBuffer };

// An interactive console tool whose standard input and output are pipes. The tool is
// fed one command line at a time; each answer is collected up to the tool's next
// prompt character '>'. The destructor runs the close steps in their fixed order.
class ConsoleSession {
public:
    // `user` names the caller in the session's log lines.
    ConsoleSession(const char* user, SessionExit exit) : user_(user), exit_(exit) {}
    ConsoleSession(const ConsoleSession&) = delete;
    ConsoleSession& operator=(const ConsoleSession&) = delete;
    ~ConsoleSession() { Close(); }

    // Creates the pipes, starts the tool, allocates the answer buffer and reads the
    // tool's banner up to its first prompt. On failure, returns the step that failed
    // with its error; the pipe and buffer failures are logged here, the process
    // creation failure is left for the user to log in its own words. The close steps
    // run in the destructor whatever Open returned.
    [[nodiscard]] SessionOpen Open(LPCWSTR commandLine, LPCWSTR workingDirectory, size_t answerBytes);

    // Sends one command (already ending in "\r\n"; NULL or empty only collects output)
    // and collects the answer. Returns 0, or 29 when the command was not written whole.
    DWORD Send(const char* command);

    // The last answer, NUL-terminated.
    const char* Answer() const { return static_cast<const char*>(buffer_.get()); }
    size_t AnswerCapacity() const { return bufferBytes_; }

    // The close steps: "exit", free the buffer, close the pipe ends, wait up to
    // two seconds for the tool and terminate it if it has not ended.
    void Close();

private:
    const char* user_;
    unique_handle outRead_, outWrite_, inRead_, inWrite_;
    unique_handle process_;
    unique_heap buffer_;
    size_t bufferBytes_ = 0;
    SessionExit exit_;
};

// Reads one answer from `pipe` into `buffer` up to and including the prompt '>'.
// The buffer is zeroed first and never filled past `bufferBytes - 1`, so the answer
// stays terminated; an answer that does not fit ends early and its rest is read
// as part of the next one.
void ReadToPrompt(HANDLE pipe, char* buffer, size_t bufferBytes);

// Switches file-system redirection off for a 32-bit process on 64-bit Windows, so
// that the 64-bit system directory's tools are run; restores it on destruction.
class RedirectionGuard {
public:
    enum class Variant {
        Plain,
        // Also counts a switch that is missing or fails with last-error 0 as done.
        CountSilentFailure,
    };
    explicit RedirectionGuard(Variant variant = Variant::Plain);
    RedirectionGuard(const RedirectionGuard&) = delete;
    RedirectionGuard& operator=(const RedirectionGuard&) = delete;
    ~RedirectionGuard() { End(); }
    void End();
    bool switched() const { return switched_; }

private:
    bool switched_ = false;
    PVOID oldValue_ = nullptr;
};

}  // namespace wrenkits

// Writes `command` to the tool's input and collects its answer up to the next prompt.
DWORD WriteCmd(HANDLE input, const char* command, HANDLE output, char* answer, size_t answerBytes);
