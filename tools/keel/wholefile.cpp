#include "tools/keel/wholefile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

namespace keel::tool {

bool ReadWholeFile(const std::string& path, std::string& bytes, std::string& reason,
                   std::size_t mostBytes) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error) {
        reason = error.message();
        return false;
    }
    if (!std::filesystem::is_regular_file(status)) {
        reason = "it is not a regular file";
        return false;
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file) {
        reason = std::strerror(errno);
        return false;
    }
    std::string read;
    char buffer[65536];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, file.get())) > 0;) {
        if (read.size() + n > mostBytes) {
            reason = "it is larger than " + std::to_string(mostBytes >> 20) + " MB";
            return false;
        }
        read.append(buffer, n);
    }
    if (std::ferror(file.get())) {
        reason = std::strerror(errno);
        return false;
    }
    bytes = std::move(read);
    return true;
}

} // namespace keel::tool
