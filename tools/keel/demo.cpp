#include "tools/keel/commands.h"

#include "keel/values/stringunique.h"

#include <cstdio>
#include <string>

namespace keel::tool {

namespace {

void ShowInterning() {
    std::printf("Names are interned: one index each, spelling folded for case\n");
    const char* texts[] = {"Width", "WIDTH", "My Var-2", "3D", "Room.Area", " 1+2 "};
    for (const char* text : texts) {
        const PropId id(text);
        const FullId full(text);
        const FormulaText formula(text);
        std::printf("  %-12s PropId %-12s #%-3d FullId %-12s FormulaText \"%s\"\n",
                    ("\"" + std::string(text) + "\"").c_str(), id.ToString().ToUtf8().c_str(),
                    id.UniqueId(), full.ToString().ToUtf8().c_str(),
                    formula.ToString().ToUtf8().c_str());
    }
}

void ShowCompletions(const char* prefix) {
    std::printf("  %-6s", prefix);
    for (int n = 0; n < 4; ++n) {
        CString text = CString::FromUtf8(prefix);
        const int position = QStringUniqueCommon::SuggestCompletion(text, n);
        if (position < 0) {
            std::printf(" (none)");
            break;
        }
        std::printf(" %s", QStringUniqueCommon::StringAt(position).ToUtf8().c_str());
    }
    std::printf("\n");
}

} // namespace

int RunDemo(std::span<const std::string_view> args) {
    std::string_view wordsFile = "examples/estimating-words.txt";
    if (args.size() == 2 && args[0] == "--words")
        wordsFile = args[1];
    else if (!args.empty())
        return UsageError("demo takes [--words FILE]");

    ShowInterning();
    const int count = InternWordsFile(wordsFile);
    if (count < 0)
        return 1;
    std::printf("\nCompletion over %d words of %.*s (the first four matches)\n", count,
                static_cast<int>(wordsFile.size()), wordsFile.data());
    for (const char* prefix : {"wi", "Cab", "door_", "ROO", "pri", "zz"})
        ShowCompletions(prefix);
    return 0;
}

} // namespace keel::tool
