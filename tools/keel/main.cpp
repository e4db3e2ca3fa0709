#include "tools/keel/commands.h"

#include "keel/document/errorlog.h"
#include "keel/document/winapp.h"

#include <cstdio>
#include <exception>
#include <new>
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
                                its value, one line each; an error value shows its
                                message (exit 1 if any fails or gives an error value):
    --json                      one JSON object a line: formula, ok, error (true for
                                an error value), message, type, typeNumber, text and
                                raw (the stored payload)
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
    --import FILE               read the properties of an export file (.tab or .xml)
                                into the root context, in order with --set; what
                                the file holds beside them, values that do not
                                evaluate and formulas that do not parse are
                                reported and give exit 1, a file that cannot be
                                read or is not text stops the command (exit 1)
    --doc FILE                  read the properties kept in a document (see doc save)
                                into the root context, in order with --set and
                                --import; a file that is no such document stops
                                the command (exit 1)
  repl [OPTIONS]                the same, a line at a time, with history and Tab
                                completion of names; reads plain lines from a pipe
  run FILE [OPTIONS]            evaluate the formula file FILE (UTF-8, a byte order
                                mark skipped), a block of statements, with the options
                                of eval, and print its line as eval does; exit 1 when
                                FILE holds a NUL byte, 2 when it cannot be read
  export FILE [OPTIONS] [--minimal]
                                write the root context's properties, given with
                                --set and --import (the options of eval), to FILE:
                                .tab or .xml by its extension; the root is the level
                                "Root", whose properties are .tab lines without a
                                context and elements of the XML root element; exit 1
                                when the file cannot be written
  doc info FILE [--json]        show a document file: its streams with their sizes,
                                the schema, the count of items and their classes, the
                                sizes of its page images and its summary properties;
                                --json prints one object {"streams": [{"name", "size"}],
                                "schema", "items", "classes", "images", "summary"}
  doc save FILE [OPTIONS] [--title T] [--author A]
                                write a document holding the root context's properties,
                                given with --set and --import (the options of eval), and
                                a summary with that title and author; the file is
                                replaced only once the whole document was written
  db query DB SQL [--json]      run one statement on the SQLite database file DB and
                                print its records: a line of field names, then a
                                line a record, fields parted by tabs (a blob shows
                                as X'hex'); --json prints one object a record
  db exec DB SQL                run the statements of SQL on DB (made when missing) and
                                print how many records they changed; exit 1 with
                                the database's message when one fails
  table show FILE               print a lookup table: its comment, counts, headings with
                                their types, and every row
  table check FILE              read the whole table; every message of the reader is
                                shown, exit 1 when one is fatal
  table lookup FILE ROW COL [--exact]
                                the cell found by nearest (or exact) match of ROW and
                                COL, each a formula ("7", "3 ft") or else a text
  table convert FOLDER          rewrite every .vlt file under FOLDER in the current
                                format; exit 1 when any fails
  questions show FILE [--json]  print the groups of a question file (.viq, .viqx or .tab),
                                their tabs and, a line each, every question's name,
                                type, control kind, label, default and enable mode
                                (a formula that needs a document shows as "=FORMULA");
                                --json prints one object {"groups": [{"name", "tabs":
                                [{"name", "questions": [...]}]}]}
  questions check FILE          read the file and count its groups, tabs and questions;
                                every message of the reader is shown, exit 1 when the
                                file cannot be read or the reader reported anything
  questions convert IN OUT      rewrite a question file in the form OUT's extension
                                names: .viqx (XML) or .tab; .viq is only read, so an OUT
                                ending .viq is written as .viqx, and the line says so
  questions merge TARGET SOURCE --out FILE [--keep|--overwrite]
                                merge the groups of SOURCE into TARGET and write FILE:
                                new groups and tabs are added, a tab of the same name
                                that differs is kept (--keep, the default) or replaced
                                whole (--overwrite); a line for each tab says which
  geometry info POLYGON [--json]
                                area (m2), perimeter (mm), orientation (+1 counter-
                                clockwise, -1 clockwise) and bounds (mm) of a polygon;
                                --json prints one object {"area", "perimeter",
                                "orientation", "bounds": [left, bottom, right, top]}
  geometry classify POLYGON POLYGON
                                how two polygons lie: cross (their insides overlap),
                                touch (only their edges meet) or disjoint; each is
                                points "x,y" in mm, as "0,0 100,0 100,100"
  geometry offset POLYGON WIDTH [--json]
                                each edge moved WIDTH mm to the left of its direction
                                (inward for a counter-clockwise polygon), as polygon text;
                                --json prints {"points": TEXT}
  geometry collide FILE [--json]
                                the pairs of solids of the JSON file FILE ([{"name",
                                "points", "bottom", "top"}], in mm) that are not
                                disjoint, each as NAME<tab>NAME<tab>cross or touch, in
                                the order of the file; only cross is a collision;
                                --json prints [{"first", "second", "classification"}]
  page convert --scale N --zoom Z --world X,Y [--page W,H] [--origin X,Y] [--json]
                                one world point (mm) on a page of W by H mm (210,297) at
                                1:N, shown at Z % in a window of 800 by 600 pixels whose
                                client area is at X,Y on the screen (0,0): its page,
                                logical (0.01 mm), client and screen coordinates
  render SCENE --out FILE [--scale N] [--zoom Z] [--page WxH] [--dpi D]
                                draw the JSON scene SCENE ({"polygons": [{"points",
                                "fill", "stroke"}], "texts": [{"at", "text",
                                "height"}]}, world mm) on a page of W by H mm (297x210)
                                at 1:N (the page's default scale) to FILE: PNG or SVG
                                of the page at Z % (100) and D dots an inch (96), or a
                                PDF page of that size; FILE is replaced only once the
                                whole drawing is written
  demo [--words FILE] [--tables FOLDER] [--questions FILE] [--plan FILE]
       [--plan-out FILE]
                                a short tour of what the library does so far, ending
                                with the plan of a kitchen drawn to build/kitchen.png

Exit status: 0 done; 1 failed (for eval, repl and run: a formula failed or gave an
error value); 2 bad usage. Messages that wait for the user are shown on stderr when
the command ends.
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

int UsageError(std::string_view command, std::string_view message) {
    std::fprintf(stderr, "keel %.*s: %.*s\nTry 'keel help'.\n", static_cast<int>(command.size()),
                 command.data(), static_cast<int>(message.size()), message.data());
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
    if (command == "export")
        return RunExport(rest);
    if (command == "doc")
        return RunDoc(rest);
    if (command == "db")
        return RunDb(rest);
    if (command == "repl")
        return RunRepl(rest);
    if (command == "run")
        return RunRun(rest);
    if (command == "table")
        return RunTable(rest);
    if (command == "questions")
        return RunQuestions(rest);
    if (command == "geometry")
        return RunGeometry(rest);
    if (command == "page")
        return RunPage(rest);
    if (command == "render")
        return RunRender(rest);
    return UsageError("unknown command '" + std::string(command) + "'");
}

// What escapes a command is its failure: said in the program's words, never a crash.
int DispatchGuarded(std::string_view command, std::span<const std::string_view> rest) {
    try {
        return Dispatch(command, rest);
    } catch (const std::bad_alloc&) {
        std::fflush(stdout);
        std::fputs("keel: Out of memory\n", stderr);
    } catch (const std::exception& failure) {
        std::fflush(stdout);
        std::fprintf(stderr, "keel: %s\n", failure.what());
    }
    return 1;
}

// Messages wait for the application to have time; a command has it when it is done. Each is
// shown once, on its own, without the offers of the boxes that would show it on a desktop.
void ShowPendingMessages() {
    QErrorLog& log = TheErrorLog();
    for (int i = 0; i < log.GetSize(); ++i) {
        std::string text = log.Message(i).ToUtf8();
        text.erase(text.find_last_not_of(" \t\r\n") + 1);
        std::fprintf(stderr, "keel: %s: %s\n", log.ErrorType(i)->Description().ToUtf8().c_str(),
                     text.c_str());
    }
    log.DiscardPendingMessages();
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
    PrepareDocuments();
    const int status = DispatchGuarded(args.front(), std::span(args).subspan(1));
    // Messages wait for the application to have time; a command has it when it is done.
    std::fflush(stdout);
    ShowPendingMessages();
    application.ExitInstance();
    return status;
}
