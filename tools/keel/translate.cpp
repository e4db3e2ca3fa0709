#include "keel/document/translate.h"

#include "tools/keel/commands.h"

#include <cstdio>
#include <vector>

namespace keel::tool {

namespace {

struct TranslateArgs {
    std::string_view file;
    std::string_view qualifier;
    bool partial = false;
    std::vector<std::string_view> texts;
};

int ParseTranslateArgs(std::span<const std::string_view> args, TranslateArgs& parsed) {
    constexpr std::string_view usage =
        "usage: keel translate --file FILE [--qualifier Q] [--partial] TEXT CONTEXT";
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--file" || args[i] == "--qualifier") {
            if (i + 1 == args.size())
                return UsageError("translate", usage);
            std::string_view& value = args[i] == "--file" ? parsed.file : parsed.qualifier;
            value = args[++i];
        } else if (args[i] == "--partial") {
            parsed.partial = true;
        } else {
            parsed.texts.push_back(args[i]);
        }
    }
    if (parsed.file.empty() || parsed.texts.size() != 2)
        return UsageError("translate", usage);
    return 0;
}

} // namespace

int RunTranslate(std::span<const std::string_view> args) {
    TranslateArgs parsed;
    if (const int status = ParseTranslateArgs(args, parsed))
        return status;
    if (!SwitchToTranslationFile(CString::FromUtf8(parsed.file), false, false)) {
        std::fprintf(stderr, "keel: cannot read the translation file '%.*s'\n",
                     static_cast<int>(parsed.file.size()), parsed.file.data());
        return 1;
    }
    EnablePartialTranslations(parsed.partial);
    const CString translated =
        TranslateString(CString::FromUtf8(parsed.texts[0]), CString::FromUtf8(parsed.qualifier),
                        CString::FromUtf8(parsed.texts[1]));
    std::printf("%s\n", translated.ToUtf8().c_str());
    return 0;
}

} // namespace keel::tool
