#pragma once

#include "tests/support/program.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <sys/wait.h>

namespace keel::test {

// Whether xmllint, the independent reader that tests compare documents with, is installed.
inline bool HasXmllint() {
    return std::system("command -v xmllint >/dev/null 2>&1") == 0;
}

// The canonical form of an XML file as xmllint reads it, blanks between elements dropped: two
// files with the same canonical form hold the same document. Nothing when xmllint refuses it.
inline std::optional<std::string> CanonicalXml(const std::string& path) {
    const std::string command =
        "xmllint --nonet --noblanks --c14n " + ShellQuoted(path) + " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return std::nullopt;
    std::string canonical;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        canonical.append(buffer, n);
    const int status = pclose(pipe);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return std::nullopt;
    return canonical;
}

} // namespace keel::test
