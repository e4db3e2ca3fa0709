#pragma once

#include "tools/keel/rootcontext.h"

#include "keel/values/anyvalue.h"
#include "keel/values/smartptr.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace keel::tool {

// Each subcommand takes the arguments after its name and returns the exit status:
// 0 done, 1 failed, 2 bad usage.
int RunComplete(std::span<const std::string_view> args);
int RunDemo(std::span<const std::string_view> args);
// `keel db query DB SQL [--json]` and `keel db exec DB SQL`: statements on an SQLite database.
int RunDb(std::span<const std::string_view> args);
int RunEval(std::span<const std::string_view> args);
// `keel doc info FILE [--json]` and `keel doc save FILE`: a document's streams, items and
// summary, and a document holding the root's answers.
int RunDoc(std::span<const std::string_view> args);
// `keel export FILE`: the root's answers, from --set and --import, into a .tab or .xml file.
int RunExport(std::span<const std::string_view> args);
// `keel geometry info|classify|offset|collide`.
int RunGeometry(std::span<const std::string_view> args);
// `keel help functions`: every built-in function with its argument words and counts.
// `keel page convert`: a world point in page, logical, client and screen coordinates.
int RunPage(std::span<const std::string_view> args);
int RunHelpFunctions(std::span<const std::string_view> args);
int RunOptions(std::span<const std::string_view> args);
// `keel questions show|check|convert|merge`.
int RunQuestions(std::span<const std::string_view> args);
// Prints the groups, tabs and questions of a question file, or one JSON object with `json`; 1
// when the file cannot be read.
int ShowQuestionFile(std::string_view path, bool json);
// `keel render SCENE --out FILE`: a scene of JSON drawn on a page, to PNG, SVG or PDF.
int RunRender(std::span<const std::string_view> args);
int RunRepl(std::span<const std::string_view> args);
int RunRun(std::span<const std::string_view> args);
// `keel table show|check|lookup|convert`.
int RunTable(std::span<const std::string_view> args);
int RunTranslate(std::span<const std::string_view> args);

// The schema of the documents the program writes; it opens none older or newer.
inline constexpr int c_documentSchema = 1;
// Fixes the document schemas of the program; before any document is read or written.
void PrepareDocuments();

// Says what is wrong with the command line, on stderr, and gives 2: "keel: MESSAGE", or with a
// subcommand "keel COMMAND: MESSAGE".
int UsageError(std::string_view message);
int UsageError(std::string_view command, std::string_view message);

// Interns every non-blank line of a UTF-8 file as a name offered for completion; gives the
// number of lines taken, or -1 (with a message on stderr) when the file cannot be read.
int InternWordsFile(std::string_view path);

// What `keel eval`, `keel run` and `keel repl` share.
struct EvalOptions {
    bool json = false;
    bool action = false;
    // Every formula runs in this one root, which holds the properties given with --set and
    // --import.
    QSmartPtr<QRootContext> root;
    // An --import ended with errors; what it could read is in the root all the same.
    bool importFailed = false;
};

// Loads the stored options (the default units among them) and lets the values run formulas
// through the evaluator; comes before ParseEvalOptions, whose unit options override.
void PrepareEvaluation();
// Reads the options of `keel eval`, applying the unit options as they come and storing each
// --set property on the root context, which it makes; the other arguments are the formulas.
// Returns 0, or the exit status of bad usage after saying what is wrong of `command`.
int ParseEvalOptions(std::string_view command, std::span<const std::string_view> args,
                     EvalOptions& options, std::vector<std::string_view>& formulas);
// Reads the answers of an export file into the options' root, merged over what is there. A FILE
// that is no text file that can be read is refused with the reason on stderr, and false returned.
// What the import itself reports waits in the error log; an import that ends with errors, or
// whose answers hold values that do not evaluate or formulas that do not parse, sets
// `importFailed`.
bool ImportAnswersFile(std::string_view command, std::string_view path, EvalOptions& options);
// Reads the answers kept in the document at `path` into the options' root, merged over what is
// there. A file that is no document that can be read is refused with the reason on stderr, and
// false returned.
bool LoadDocumentAnswers(std::string_view command, std::string_view path, EvalOptions& options);
// The formula's syntax, checked with evaluation off; gives the evaluator's message.
bool FormulaParses(FormulaText formula, QFormulaContext* context, CString& message);
// Evaluates a formula in `context` (which may be null) into `result`. The failure's message is
// composed, as with reports on, but neither shown nor logged: it comes back in `message`. True
// when the formula evaluated.
bool EvaluateQuietly(std::string_view formula, QFormulaContext* context, bool action,
                     QAnyValue& result, CString& message);
// Evaluates one formula in the options' root context and prints its line: the type name, a tab
// and the display text (an error value's message), or with `json` one JSON object. A failure's
// message goes to stderr in the plain form, naming the formula by its text or by `shownAs` when
// given. True when the formula evaluated to a value that is no error value.
bool EvaluateAndPrint(std::string_view formula, const EvalOptions& options,
                      std::string_view shownAs = {});

} // namespace keel::tool
