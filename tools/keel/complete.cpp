#include "tools/keel/commands.h"

#include "keel/values/stringunique.h"

#include <charconv>
#include <cstdio>
#include <fstream>
#include <string>

namespace keel::tool {

int InternWordsFile(std::string_view path) {
    std::ifstream file{std::string(path)};
    if (!file) {
        std::fprintf(stderr, "keel: cannot read the words file '%.*s'\n",
                     static_cast<int>(path.size()), path.data());
        return -1;
    }
    int count = 0;
    for (std::string line; std::getline(file, line);) {
        const PropId word(CString::FromUtf8(line));
        if (!word.IsEmpty())
            ++count;
    }
    return count;
}

namespace {

constexpr std::string_view c_completeUsage = "usage: keel complete PREFIX [N] --words FILE";

struct CompleteArgs {
    std::string_view prefix;
    int n = 0;
    std::string_view wordsFile;
};

bool ParseCount(std::string_view text, int& n) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), n);
    return error == std::errc() && end == text.data() + text.size() && n >= 0;
}

int ParseCompleteArgs(std::span<const std::string_view> args, CompleteArgs& parsed) {
    int positional = 0;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--words") {
            if (++i == args.size())
                return UsageError("complete", "--words needs a file name");
            parsed.wordsFile = args[i];
        } else if (args[i].starts_with("--")) {
            return UsageError("complete", "unknown option '" + std::string(args[i]) + "'");
        } else if (positional == 0) {
            parsed.prefix = args[i];
            ++positional;
        } else if (positional == 1) {
            if (!ParseCount(args[i], parsed.n))
                return UsageError("complete", "N must be a whole number of 0 or more");
            ++positional;
        } else {
            return UsageError("complete", c_completeUsage);
        }
    }
    if (positional == 0 || parsed.wordsFile.empty())
        return UsageError("complete", c_completeUsage);
    return 0;
}

} // namespace

int RunComplete(std::span<const std::string_view> args) {
    CompleteArgs parsed;
    if (const int status = ParseCompleteArgs(args, parsed))
        return status;
    if (InternWordsFile(parsed.wordsFile) < 0)
        return 1;
    CString text = CString::FromUtf8(parsed.prefix);
    const int position = QStringUniqueCommon::SuggestCompletion(text, parsed.n);
    if (position < 0) {
        std::fprintf(stderr, "keel: no completion for '%.*s'\n",
                     static_cast<int>(parsed.prefix.size()), parsed.prefix.data());
        return 1;
    }
    std::printf("%s\n", QStringUniqueCommon::StringAt(position).ToUtf8().c_str());
    return 0;
}

} // namespace keel::tool
