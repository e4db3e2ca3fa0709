#pragma once

#include "tests/support/paths.h"
#include "tests/support/program.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>

namespace keel::test {

// Whether xmllint, the independent reader that tests compare documents with, is installed.
inline bool HasXmllint() {
    return std::system("command -v xmllint >/dev/null 2>&1") == 0;
}

// The canonical form of an XML file as xmllint reads it, blanks between elements dropped: two
// files with the same canonical form hold the same document. Nothing when xmllint refuses it.
inline std::optional<std::string> CanonicalXml(const std::string& path) {
    ProgramOutcome run =
        Piped("xmllint --nonet --noblanks --c14n " + ShellQuoted(path) + " 2>/dev/null");
    return run.status == 0 ? std::optional(std::move(run.out)) : std::nullopt;
}

// Whether xmllint finds a written question file valid against the grammar of question files in
// schemas/; its complaint when not. Every test that writes a .viqx file checks it so.
inline ::testing::AssertionResult IsValidQuestionFile(const std::string& path) {
    if (!HasXmllint())
        return ::testing::AssertionFailure() << "xmllint is not installed";
    const std::string schema = TestDataFolder() + "/../../schemas/viqx.rng";
    const ProgramOutcome run = Piped("xmllint --nonet --noout --relaxng " + ShellQuoted(schema) +
                                     " " + ShellQuoted(path) + " 2>&1");
    if (run.status == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << path << " is not a valid question file:\n" << run.out;
}

} // namespace keel::test
