#pragma once

#include <filesystem>
#include <string>
#include <unistd.h>

namespace keel::bench {

// A folder of this run's own under the temporary folder, "keel_NAME_PID", made now.
inline std::filesystem::path NewBenchFolder(const std::string& name) {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("keel_" + name + "_" + std::to_string(::getpid()));
    std::filesystem::create_directories(path);
    return path;
}

} // namespace keel::bench
