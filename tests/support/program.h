#pragma once

#include "tests/support/environment.h"
#include "tests/support/paths.h"

#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace keel::test {

// What a run of the built program gave.
struct ProgramOutcome {
    std::string out;
    std::string err;
    int status = -1;
};

inline std::string ShellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char ch : text)
        quoted += ch == '\'' ? std::string("'\\''") : std::string(1, ch);
    return quoted + "'";
}

// Runs a shell command and gives what it wrote to stdout and its exit status (-1 when it did not
// exit).
inline ProgramOutcome Piped(const std::string& command) {
    ProgramOutcome outcome;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return outcome;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        outcome.out.append(buffer, n);
    const int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

// Runs `keel` in a home of its own for each test: its options file, logs and data stay there and
// go with the test.
class KeelProgramTest : public testing::Test {
protected:
    void SetUp() override {
        m_home = std::filesystem::temp_directory_path() /
                 ("keel-program-" + std::to_string(::getpid()) + "-" +
                  testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(m_home);
        std::filesystem::create_directories(m_home / "config" / "keel");
    }
    void TearDown() override { std::filesystem::remove_all(m_home); }

    // The home, the options and data folders of the test, the C locale and the fonts text is
    // drawn with, for the shell.
    std::string Environment() const {
        return "HOME=" + ShellQuoted(m_home.string()) +
               " XDG_CONFIG_HOME=" + ShellQuoted((m_home / "config").string()) +
               " XDG_DATA_HOME=" + ShellQuoted((m_home / "data").string()) + " LC_ALL=C" +
               " FONTCONFIG_FILE=" +
               ShellQuoted(
                   (std::filesystem::path(TestDataFolder()) / "render/fonts.conf").string());
    }

    // Whether the program was built with its JSON reader: without it, the commands that read
    // JSON say so and give 2.
    bool ProgramReadsJson() const {
        const ProgramOutcome outcome = Run({"geometry", "collide", "nothing.json"});
        return outcome.err.find("built without a JSON reader") == std::string::npos;
    }

    // `keel` with the given words; `input` is piped to its stdin. `shellSetup` goes ahead of the
    // command as the shell reads it: limits ("ulimit -t 30; ") or a wrapper that takes the
    // environment's assignments ("timeout 10 env ").
    ProgramOutcome Run(const std::vector<std::string>& words, const std::string& input = "",
                       const std::string& shellSetup = "") const {
        const std::filesystem::path errFile = m_home / "stderr.txt";
        const std::filesystem::path inFile = m_home / "stdin.txt";
        WriteText(inFile, input);
        std::string command = shellSetup + Environment() + " " + ShellQuoted(ProgramPath());
        for (const std::string& word : words)
            command += " " + ShellQuoted(word);
        command += " <" + ShellQuoted(inFile.string()) + " 2>" + ShellQuoted(errFile.string());
        ProgramOutcome outcome = Piped(command);
        outcome.err = ReadText(errFile);
        return outcome;
    }

    std::string FileOfTest(const std::string& name, const std::string& text) const {
        WriteText(m_home / name, text);
        return (m_home / name).string();
    }

    std::filesystem::path m_home;
};

} // namespace keel::test
