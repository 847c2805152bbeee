#include "support/log_capture.h"

#include <windows.h>

#include "support/wine_env.h"

namespace wrtest {

namespace {
unsigned long long FileSize(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return 0;
    return (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}
}  // namespace

LogCapture::LogCapture() : LogCapture(ExeDir() + L"\\QRB.log") {}

LogCapture::LogCapture(std::wstring path) : path_(std::move(path)), start_(FileSize(path_)) {}

std::string LogCapture::Raw() const {
    std::string all = ReadFileBytes(path_);
    if (all.size() < start_) return all;  // emptied at the size limit since
    return all.substr(start_);
}

std::vector<std::string> LogCapture::Messages() const {
    std::vector<std::string> out;
    const std::string raw = Raw();
    size_t pos = 0;
    while (pos < raw.size()) {
        size_t end = raw.find("\r\n", pos);
        if (end == std::string::npos) break;
        std::string line = raw.substr(pos, end - pos);
        pos = end + 2;
        // "[YYYY-MM-DD hh:mm:ss]  " is 23 characters.
        if (line.size() >= 23 && line[0] == '[' && line[20] == ']') line = line.substr(23);
        out.push_back(line);
    }
    return out;
}

bool LogCapture::Has(const std::string& message) const {
    for (const auto& m : Messages())
        if (m == message) return true;
    return false;
}

std::vector<std::string> LogCapture::Containing(const std::string& part) const {
    std::vector<std::string> out;
    for (const auto& m : Messages())
        if (m.find(part) != std::string::npos) out.push_back(m);
    return out;
}

}  // namespace wrtest
