#include "support/log_capture.h"

#include <algorithm>

#include "support/wine_env.h"

namespace wrtest {

namespace {
size_t FileSize(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
    return data.nFileSizeLow;  // the log stays far below 4 GiB
}
}  // namespace

LogCapture::LogCapture() : LogCapture(ExeDir() + L"\\QRB.log") {}

LogCapture::LogCapture(std::wstring path) : path_(std::move(path)), start_(FileSize(path_)) {}

std::vector<std::string> LogCapture::Messages() const {
    const std::string all = ReadFileBytes(path_);
    std::vector<std::string> out;
    for (size_t pos = all.size() < start_ ? 0 : start_, end; (end = all.find("\r\n", pos)) != std::string::npos;
         pos = end + 2) {
        std::string line = all.substr(pos, end - pos);
        // "[YYYY-MM-DD hh:mm:ss]  " is 23 characters.
        out.push_back(line.size() >= 23 && line[0] == '[' && line[20] == ']' ? line.substr(23) : line);
    }
    return out;
}

bool LogCapture::Has(const std::string& message) const {
    const auto all = Messages();
    return std::find(all.begin(), all.end(), message) != all.end();
}

}  // namespace wrtest
