// Reads what the library appended to its log file since the capture began.
#pragma once

#include <string>
#include <vector>

namespace wrtest {

class LogCapture {
public:
    // The log beside the test executable (where the DLL's attach path opens it), or another file.
    LogCapture();
    explicit LogCapture(std::wstring path);
    // The messages of the complete lines appended (from the start if the file was emptied),
    // timestamps and "\r\n" removed.
    std::vector<std::string> Messages() const;
    // Whether `message` (with the "[Wrenkit] " tag) was logged exactly.
    bool Has(const std::string& message) const;

private:
    std::wstring path_;
    size_t start_;
};

// Every message as the library writes it: "[Wrenkit] " + text.
inline std::string Tagged(const std::string& text) { return "[Wrenkit] " + text; }

}  // namespace wrtest
