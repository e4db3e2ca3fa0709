#include "tools/keel/commands.h"

#include "keel/formula/builtins.h"

#include <cstdio>
#include <string>

namespace keel::tool {

namespace {

constexpr int c_signatureWidth = 40;

std::string Utf8(const char16_t* text) {
    return CString(text).ToUtf8();
}

std::string Counts(const QBuiltinFunction& function) {
    if (function.maxArgs == c_builtinAnyCount)
        return std::to_string(function.minArgs) + " or more";
    if (function.maxArgs == function.minArgs)
        return std::to_string(function.minArgs);
    return std::to_string(function.minArgs) + "-" + std::to_string(function.maxArgs);
}

// "  name(arguments)   counts[  action][  (the application's)]"
void PrintFunction(const QBuiltinFunction& function, bool parsesOwnArguments) {
    std::string signature = "  " + Utf8(function.name) + "(" + Utf8(function.arguments) + ")";
    if (signature.size() < c_signatureWidth)
        signature.resize(c_signatureWidth, ' ');
    else
        signature += ' ';
    std::string line = signature + Counts(function);
    if (function.actionOnly)
        line += "  action";
    if (!function.body && !parsesOwnArguments)
        line += "  (the application's)";
    std::printf("%s\n", line.c_str());
}

void PrintGroup(const QBuiltinGroup& group, bool parsesOwnArguments) {
    std::printf("%s\n", Utf8(group.title).c_str());
    for (const QBuiltinFunction& function : group.functions)
        PrintFunction(function, parsesOwnArguments);
    std::printf("\n");
}

} // namespace

int RunHelpFunctions(std::span<const std::string_view> args) {
    if (!args.empty())
        return UsageError("help functions", "takes no arguments");
    std::printf("The built-in functions: name(arguments), then the counts of arguments taken.\n"
                "'action': only in an action field. '(the application's)': reserved for an\n"
                "application's evaluator, which gives the body.\n\n");
    std::printf("== Parsing their own arguments ==\n\n");
    PrintGroup(VariableArgumentFunctions(), true);
    std::printf("== The known-function map: %d names ==\n\n", KnownFunctionCount());
    for (const QBuiltinGroup* group : BuiltinGroups())
        PrintGroup(*group, false);
    return 0;
}

} // namespace keel::tool
