#pragma once

#include <cstddef>
#include <limits>
#include <string>

namespace keel::tool {

// The whole of a regular file, or false with the reason: also when it holds more than
// `mostBytes`, which is then said in megabytes.
bool ReadWholeFile(const std::string& path, std::string& bytes, std::string& reason,
                   std::size_t mostBytes = std::numeric_limits<std::size_t>::max());

} // namespace keel::tool
