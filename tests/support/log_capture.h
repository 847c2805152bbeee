// Reads what the library appended to its log file since the capture began.
#pragma once

#include <string>
#include <vector>

namespace wrtest {

class LogCapture {
public:
    // The log beside the test executable (where the DLL's attach path opens it).
    LogCapture();
    explicit LogCapture(std::wstring path);

    // Raw bytes appended since construction (from the start if the file was emptied).
    std::string Raw() const;
    // The messages of the complete lines appended, timestamps and "\r\n" removed.
    std::vector<std::string> Messages() const;
    // Whether `message` (with the "[Wrenkit] " tag) was logged exactly.
    bool Has(const std::string& message) const;
    // The messages that contain `part`.
    std::vector<std::string> Containing(const std::string& part) const;
    const std::wstring& path() const { return path_; }

private:
    std::wstring path_;
    unsigned long long start_ = 0;
};

// Every message as the library writes it: "[Wrenkit] " + text.
inline std::string Tagged(const std::string& text) { return "[Wrenkit] " + text; }

}  // namespace wrtest
