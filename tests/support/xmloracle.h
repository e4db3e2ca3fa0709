#pragma once

#include "tests/support/paths.h"
#include "tests/support/program.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
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

// What a command prints on its standard output and standard error, and whether it succeeded.
inline bool RunCapturing(const std::string& command, std::string& output) {
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (!pipe)
        return false;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, n);
    const int status = pclose(pipe);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Whether xmllint finds a written question file valid against the grammar of question files in
// schemas/; its complaint when not. Every test that writes a .viqx file checks it so.
inline ::testing::AssertionResult IsValidQuestionFile(const std::string& path) {
    if (!HasXmllint())
        return ::testing::AssertionFailure() << "xmllint is not installed";
    const std::string schema = TestDataFolder() + "/../../schemas/viqx.rng";
    std::string output;
    if (RunCapturing("xmllint --nonet --noout --relaxng " + ShellQuoted(schema) + " " +
                         ShellQuoted(path),
                     output))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << path << " is not a valid question file:\n" << output;
}

} // namespace keel::test
