#include "tools/keel/commands.h"

#include "keel/document/errorlog.h"
#include "keel/document/winapp.h"

#include <cstdio>
#include <string_view>
#include <vector>

namespace keel::tool {

namespace {

constexpr std::string_view c_help = R"(keel: the command-line program of the Keel library

Usage: keel COMMAND [ARGUMENTS]

Commands:
  help                          show this list
  --version                     print the version
  complete PREFIX [N] --words FILE
                                intern the words of FILE (one a line) as names and
                                complete PREFIX with the N-th match (counting from 0,
                                wrapping round the matches), as a formula editor does
  options                       show the options the library reads, where they come
                                from (the options file or the defaults), the default
                                units and the file locations
  translate --file FILE [--qualifier Q] [--partial] TEXT CONTEXT
                                translate TEXT, said in CONTEXT, with the translation
                                file FILE
  demo [--words FILE]           a short tour of what the library does so far

Exit status: 0 done, 1 failed, 2 bad usage.
)";

int PrintHelp() {
    std::fputs(c_help.data(), stdout);
    return 0;
}

int PrintVersion() {
    std::printf("keel %s\n", KEEL_VERSION);
    return 0;
}

} // namespace

int UsageError(std::string_view message) {
    std::fprintf(stderr, "keel: %.*s\nTry 'keel help'.\n", static_cast<int>(message.size()),
                 message.data());
    return 2;
}

} // namespace keel::tool

namespace keel::tool {
namespace {

int Dispatch(std::string_view command, std::span<const std::string_view> rest) {
    if (command == "help" || command == "--help" || command == "-h")
        return PrintHelp();
    if (command == "--version" || command == "version")
        return PrintVersion();
    if (command == "complete")
        return RunComplete(rest);
    if (command == "options")
        return RunOptions(rest);
    if (command == "translate")
        return RunTranslate(rest);
    if (command == "demo")
        return RunDemo(rest);
    return UsageError("unknown command '" + std::string(command) + "'");
}

} // namespace
} // namespace keel::tool

int main(int argc, char** argv) {
    using namespace keel::tool;
    // The program is an application of the library: its options, error log and folders are
    // those of an application named "Keel".
    keel::QWinApp application;
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    if (args.empty())
        return UsageError("no command given");
    const int status = Dispatch(args.front(), std::span(args).subspan(1));
    // Messages wait for the application to have time; a command has it when it is done.
    std::fflush(stdout);
    keel::QErrorLog::DisplayThePendingMessages(false);
    application.ExitInstance();
    return status;
}
