#include <string.h>

#include "frame/log.h"
#include "frame/process.h"

namespace wrenkits {

void ReadToPrompt(HANDLE pipe, char* buffer, size_t bufferBytes) {
    memset(buffer, 0, bufferBytes);
    if (bufferBytes < 2) return;
    // One byte per read, so reading stops exactly at the prompt and never waits for
    // bytes that will not come. The '>' stays in the answer.
    size_t used = 0;
    DWORD got = 0;
    while (used < bufferBytes - 1 && ::ReadFile(pipe, buffer + used, 1, &got, nullptr) && got == 1) {
        if (buffer[used++] == '>') break;
    }
    // Logged as text, never as a format: a tool's answer may hold a '%'.
    LogA("%s", buffer);
}

SessionOpen ConsoleSession::Open(LPCWSTR commandLine, LPCWSTR workingDirectory, size_t answerBytes) {
    SECURITY_ATTRIBUTES sa = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};

    if (!::CreatePipe(outRead_.put(), outWrite_.put(), &sa, 0)) {
        const DWORD error = ::GetLastError();
        LogA("%s create stdout pipe error: %d", user_, error);
        return {SessionStage::StdoutPipe, error};
    }
    ::SetHandleInformation(outRead_.get(), HANDLE_FLAG_INHERIT, 0);

    if (!::CreatePipe(inRead_.put(), inWrite_.put(), &sa, 0)) {
        const DWORD error = ::GetLastError();
        LogA("%s create stdin pipe error: %d", user_, error);
        return {SessionStage::StdinPipe, error};
    }
    ::SetHandleInformation(inWrite_.get(), HANDLE_FLAG_INHERIT, 0);

    STARTUPINFOW si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = inRead_.get();
    si.hStdOutput = outWrite_.get();
    si.hStdError = outWrite_.get();

    // CreateProcessW may write into the command line, so it gets a copy.
    wchar_t line[kCommandLineChars] = {};
    if (!commandLine || wcscpy_s(line, kCommandLineChars, commandLine) != 0) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return {SessionStage::Process, ERROR_INVALID_PARAMETER};
    }
    unique_process_information child;
    if (!::CreateProcessW(nullptr, line, nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, workingDirectory, &si,
                          child.put())) {
        return {SessionStage::Process, ::GetLastError()};
    }
    process_ = child.take_process();

    buffer_ = HeapAllocZeroed(answerBytes);
    if (!buffer_) {
        // HeapAlloc does not set the last error; report what the platform would have said.
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        LogA("%s new buffer error: %d", user_, ERROR_NOT_ENOUGH_MEMORY);
        return {SessionStage::Buffer, ERROR_NOT_ENOUGH_MEMORY};
    }
    bufferBytes_ = answerBytes;
    ReadToPrompt(outRead_.get(), static_cast<char*>(buffer_.get()), bufferBytes_);
    return {SessionStage::Open, 0};
}

DWORD ConsoleSession::Send(const char* command) {
    if (!buffer_) return ERROR_WRITE_FAULT;
    return ::WriteCmd(inWrite_.get(), command, outRead_.get(), static_cast<char*>(buffer_.get()), bufferBytes_);
}

void ConsoleSession::Close() {
    if (inWrite_ && (exit_ == SessionExit::Always || buffer_)) {
        DWORD written = 0;
        ::WriteFile(inWrite_.get(), "exit\r\n", 6, &written, nullptr);
    }
    buffer_.reset();
    bufferBytes_ = 0;
    outRead_.reset();
    outWrite_.reset();
    inRead_.reset();
    inWrite_.reset();
    if (process_) {
        if (::WaitForSingleObject(process_.get(), 2000) != WAIT_OBJECT_0) ::TerminateProcess(process_.get(), 0);
        process_.reset();
    }
}

}  // namespace wrenkits

DWORD WriteCmd(HANDLE input, const char* command, HANDLE output, char* answer, size_t answerBytes) {
    if (command && *command) {
        ::OutputDebugStringA(command);
        const DWORD length = static_cast<DWORD>(strlen(command));
        DWORD written = 0;
        if (!::WriteFile(input, command, length, &written, nullptr) || written < length) {
            LogA("%s write %s to pipe error: %d", "WriteCmd", command, ::GetLastError());
            return ERROR_WRITE_FAULT;
        }
    }
    wrenkits::ReadToPrompt(output, answer, answerBytes);
    return 0;
}
