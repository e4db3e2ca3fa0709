#include "tools/keel/commands.h"

#include "keel/values/stringunique.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <readline.h>
#include <string>
#include <unistd.h>

namespace keel::tool {

namespace {

constexpr const char* c_prompt = "keel> ";
// Beyond this many names a completion list is no help.
constexpr int c_maxCompletions = 200;

// Names are letters, digits, "_" and the "." of a full name; everything else ends a word.
char c_wordBreaks[] = " \t\n\"'`@#$%^&*()-+=[]{}|\\;:,<>/?!~";

struct CompletionState {
    CString prefix;
    int n = 0;
    int first = -1;
};
CompletionState c_completion;

// The generator readline calls with `state` 0 for a new word, then again until it gives null:
// the n-th interned name that starts with the word, stopping where the matches wrap round.
char* NextCompletion(const char* word, int state) {
    if (state == 0)
        c_completion = {CString::FromUtf8(word), 0, -1};
    if (c_completion.n >= c_maxCompletions)
        return nullptr;
    CString added = c_completion.prefix;
    const int position = QStringUniqueCommon::SuggestCompletion(added, c_completion.n++);
    if (position < 0 || position == c_completion.first)
        return nullptr;
    if (c_completion.first < 0)
        c_completion.first = position;
    return strdup(QStringUniqueCommon::StringAt(position).ToUtf8().c_str());
}

char** CompleteName(const char* word, int /*start*/, int /*end*/) {
    rl_attempted_completion_over = 1;
    return rl_completion_matches(word, NextCompletion);
}

void SetUpLineEditing() {
    rl_readline_name = "keel";
    rl_completer_word_break_characters = c_wordBreaks;
    rl_attempted_completion_function = CompleteName;
}

bool IsBlank(const std::string& line) {
    return line.find_first_not_of(" \t\r") == std::string::npos;
}

// With a person at a terminal: line editing, history and completion.
bool RunInteractive(const EvalOptions& options) {
    SetUpLineEditing();
    std::printf("Keel formulas: one a line, Tab completes a name, Ctrl-D ends.\n");
    bool allOk = true;
    while (char* input = readline(c_prompt)) {
        const std::string line = input;
        std::free(input);
        if (IsBlank(line))
            continue;
        add_history(line.c_str());
        allOk = EvaluateAndPrint(line, options) && allOk;
        std::fflush(stdout);
    }
    std::printf("\n");
    return allOk;
}

// From a pipe or a file: plain lines, no prompt.
bool RunFromStream(const EvalOptions& options) {
    bool allOk = true;
    int number = 0;
    for (std::string line; std::getline(std::cin, line);) {
        ++number;
        if (IsBlank(line))
            continue;
        // The evaluator's text ends at a NUL: the rest of the line would be lost without a word.
        if (line.find('\0') != std::string::npos) {
            std::fflush(stdout);
            std::fprintf(stderr, "keel: line %d holds a NUL byte\n", number);
            allOk = false;
            continue;
        }
        allOk = EvaluateAndPrint(line, options) && allOk;
    }
    return allOk;
}

} // namespace

int RunRepl(std::span<const std::string_view> args) {
    PrepareEvaluation();
    EvalOptions options;
    std::vector<std::string_view> formulas;
    if (const int status = ParseEvalOptions("repl", args, options, formulas))
        return status;
    if (!formulas.empty())
        return UsageError("repl", "takes the options of eval and no FORMULA");
    const bool allOk = isatty(STDIN_FILENO) ? RunInteractive(options) : RunFromStream(options);
    return allOk && !options.importFailed ? 0 : 1;
}

} // namespace keel::tool
