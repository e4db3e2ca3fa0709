#pragma once

#include "tests/support/environment.h"
#include "tests/support/tempfolder.h"

#include "keel/document/usertrace.h"

#include <chrono>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace keel::test {

// What the tests of the application's services read back: times and traces. Their fixture is
// HomeFolderTest (tempfolder.h).

// The local time now in a strftime format, by the clock the library reads (time() may lag it by
// a tick across a second's change).
inline std::string LocalTimeText(const char* format) {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local{};
    localtime_r(&now, &local);
    char text[64];
    std::strftime(text, sizeof text, format, &local);
    return text;
}

// Closes the trace file and gives its lines; none when no trace was open.
inline std::vector<std::string> ClosedTraceLines() {
    const std::string path = UserTraceFilePath().ToUtf8();
    UserTraceClose();
    std::vector<std::string> lines;
    if (path.empty())
        return lines;
    std::istringstream in(ReadText(path));
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

} // namespace keel::test
