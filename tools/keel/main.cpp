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
  help functions                list the built-in functions of formulas with their
                                arguments and the counts they take
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
  eval [OPTIONS] [--] FORMULA...
                                evaluate each FORMULA and print its type, a tab and
                                its value, one line each (exit 1 if any fails):
    --json                      one JSON object a line: formula, ok, message, type,
                                typeNumber, text and raw (the stored payload)
    --action                    run the formulas as action fields
    --length-units N            the default units: length 1-7 (3 mm, 5 in, 7 m),
    --area-units N              area and volume 1-7 (7 square or cubic metres),
    --volume-units N            angle 1-3 (2 degrees)
    --angle-units N
    --inch-fraction N           inches shown as decimals (0) or fractions (16, 32)
    --table-dir DIR             the folder where formulas find lookup tables by name
    --set NAME=FORMULA          store a property with that formula on the root
                                context the formulas run in (in order, before
                                they run); properties may refer to each other
  repl [OPTIONS]                the same, a line at a time, with history and Tab
                                completion of names; reads plain lines from a pipe
  run FILE [OPTIONS]            evaluate the formula file FILE, a block of statements,
                                with the options of eval, and print its line as eval
                                does; exit 2 when FILE cannot be read
  table show FILE               print a lookup table: its comment, counts, headings with
                                their types, and every row
  table check FILE              read the whole table; every message of the reader is
                                shown, exit 1 when one is fatal
  table lookup FILE ROW COL [--exact]
                                the cell found by nearest (or exact) match of ROW and
                                COL, each a formula ("7", "3 ft") or else a text
  table convert FOLDER          rewrite every .vlt file under FOLDER in the current
                                format; exit 1 when any fails
  demo [--words FILE] [--tables FOLDER]
                                a short tour of what the library does so far

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
    if (command == "help" && !rest.empty() && rest.front() == "functions")
        return RunHelpFunctions(rest.subspan(1));
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
    if (command == "eval")
        return RunEval(rest);
    if (command == "repl")
        return RunRepl(rest);
    if (command == "run")
        return RunRun(rest);
    if (command == "table")
        return RunTable(rest);
    return UsageError("unknown command '" + std::string(command) + "'");
}

} // namespace
} // namespace keel::tool

int main(int argc, char** argv) {
    using namespace keel::tool;
    // The program is an application of the library: its options, error log and folders are
    // those of an application named "Keel".
    // It starts as an application does, without a command line of its own: the arguments are
    // the subcommand's.
    keel::QWinApp application;
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    if (args.empty())
        return UsageError("no command given");
    if (!application.InitInstance()) {
        std::fprintf(stderr, "keel: the application did not start\n");
        return 1;
    }
    const int status = Dispatch(args.front(), std::span(args).subspan(1));
    // Messages wait for the application to have time; a command has it when it is done.
    std::fflush(stdout);
    keel::QErrorLog::DisplayThePendingMessages(false);
    application.ExitInstance();
    return status;
}
