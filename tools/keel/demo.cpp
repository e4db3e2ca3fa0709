#include "tools/keel/commands.h"
#include "tools/keel/rootcontext.h"
#include "tools/keel/scene.h"

#include "keel/document/winapp.h"
#include "keel/formula/evaluator.h"
#include "keel/system/fsfile.h"
#include "keel/values/anyvalue.h"
#include "keel/values/stringunique.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <span>
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

// A user's text made a typed value, as a question page reads an answer.
QAnyValue Typed(const char16_t* text) {
    QAnyValue value;
    value.Parse(text);
    return value;
}

std::string Shown(QAnyValue value) {
    const CString type = value.TypeName();
    CString message;
    if (value.IsErrorAndGetMessage(message)) {
        message.Replace(u"\n\t", u" ");
        message.Replace(u"\n", u": ");
        return (type + u" \"" + message + u"\"").ToUtf8();
    }
    return (type + u" " + value.MakeCString()).ToUtf8();
}

void ShowValues() {
    std::printf("\nValues know their units (lengths in mm, areas in m2 by default)\n");
    struct Step {
        const char* what;
        QAnyValue a;
        char op;
        QAnyValue b;
    };
    const Step steps[] = {
        {"wall 2400 mm by 3.5 m", Typed(u"2400mm"), '*', Typed(u"3.5m")},
        {"two runs of skirting", Typed(u"1250mm"), '+', Typed(u"80cm")},
        {"board cut in three", Typed(u"2.4m"), '/', QAnyValue(3)},
        {"price $12.50 for 4", Typed(u"$12.50"), '*', QAnyValue(4)},
        {"text times a number", Typed(u"Maple"), '*', QAnyValue(2)},
        {"one number over zero", QAnyValue(1), '/', QAnyValue(0)},
    };
    for (const Step& step : steps) {
        QAnyValue result = step.a;
        switch (step.op) {
        case '+':
            result += step.b;
            break;
        case '*':
            result *= step.b;
            break;
        default:
            result /= step.b;
            break;
        }
        std::printf("  %-22s %s %c %s = %s\n", step.what, Shown(step.a).c_str(), step.op,
                    Shown(step.b).c_str(), Shown(result).c_str());
    }
}

void ShowFormulas() {
    QEvaluator::InstallAsFormulaHook();
    std::printf("\nFormulas with units (the suffix binds tighter than any operator)\n");
    const char* formulas[] = {
        "1 + 2 * 3",       "2 ft + 3 in",         "5'6\" + 1 ft",
        "3 m * 2 m",       "12 ft * 10 ft",       "3 m * 2 m * 50 cm",
        "$12.50 * 4",      "1 hour + 30 minutes", "90 deg - 30 deg",
        "[1, 2, 3] * 2 m", "x := 2.4 m; x / 3",   "2 m > 6 ft ? 'longer' : 'shorter'",
        "1 / 0",
    };
    for (const char* formula : formulas) {
        QAnyValue result;
        CString message;
        EvaluateQuietly(formula, nullptr, false, result, message);
        std::printf("  %-36s %s\n", formula, Shown(result).c_str());
    }
}

struct Estimated {
    const char* name;
    const char* formula;
};

// Each value is read through its context, which brings it up to date when something changed
// since the last read.
void ShowEstimateLines(QRootContext& root, std::span<const Estimated> lines,
                       int formulaWidth = 30) {
    for (const Estimated& line : lines) {
        QAnyValue value;
        bool error = false;
        QCacheState state = QCS_Stable;
        root.GetPropertyValue(PropId(line.name), value, error, &state);
        std::printf("  %-14s %-*s %s\n", line.name, formulaWidth, line.formula,
                    Shown(value).c_str());
    }
}

void ShowEstimate() {
    std::printf("\nAn estimate made of properties that refer to each other\n");
    Estimated lines[] = {
        {"length", "5.2 m"},
        {"width", "3.8 m"},
        {"area", "length * width"},
        {"price_per_sqm", "$45.00"},
        {"total", "area / 1 sqm * price_per_sqm"},
    };
    const QSmartPtr<QRootContext> root(new QRootContext);
    // Stored from the total back to the sizes: a property may name one that is not there yet.
    for (auto line = std::rbegin(lines); line != std::rend(lines); ++line)
        root->SetPropertyFormula(PropId(line->name), FormulaText(line->formula));
    ShowEstimateLines(*root, lines);

    const Estimated wider = {"width", "4.1 m"};
    root->SetPropertyFormula(PropId(wider.name), FormulaText(wider.formula));
    std::printf("\nThe width changed to %s: nothing is recalculated until it is read\n",
                wider.formula);
    lines[1] = wider;
    ShowEstimateLines(*root, lines);
}

// The same kind of estimate, priced from the lookup tables of the tables folder: the finish's
// price by exact row, and the cutting allowance by the first area at least the floor's.
constexpr int c_tableFormulaWidth = 47;

void ShowTablePricedEstimate(std::string_view tablesFolder) {
    std::printf("\nThe estimate priced from the lookup tables of %.*s\n",
                static_cast<int>(tablesFolder.size()), tablesFolder.data());
    QWinApp::GetApp()->OverrideFileLocation(
        QFileLocation::Table,
        CString::FromUtf8(std::filesystem::absolute(std::filesystem::path(tablesFolder)).string()));
    Estimated lines[] = {
        {"finish", "\"Oak\""},
        {"length", "5.2 m"},
        {"width", "3.8 m"},
        {"area", "length * width"},
        {"price_per_sqm", "lookupexact(\"flooring\", finish, \"Price\")"},
        {"allowance", "lookup(\"wastage\", area, \"Allowance\")"},
        {"total", "area * (1 + allowance) / 1 sqm * price_per_sqm"},
    };
    const QSmartPtr<QRootContext> root(new QRootContext);
    for (const Estimated& line : lines)
        root->SetPropertyFormula(PropId(line.name), FormulaText(line.formula));
    ShowEstimateLines(*root, lines, c_tableFormulaWidth);

    const Estimated tiles = {"finish", "\"Tiles\""};
    root->SetPropertyFormula(PropId(tiles.name), FormulaText(tiles.formula));
    std::printf("\nThe finish changed to %s\n", tiles.formula);
    lines[0] = tiles;
    ShowEstimateLines(*root, lines, c_tableFormulaWidth);
}

// The plan of the kitchen drawn as `keel render` draws a scene, on the default page.
int ShowPlan(std::string_view planFile, std::string_view imageFile) {
    std::printf("\nThe plan of the kitchen, drawn from %.*s\n", static_cast<int>(planFile.size()),
                planFile.data());
    if (!HasJsonReader()) {
        std::printf("  left out: this keel was built without a JSON reader\n");
        return 0;
    }
    std::fflush(stdout);
    QFSFile::CreateContainingFolderIfRequired(CString::FromUtf8(imageFile));
    const std::array<std::string_view, 3> args = {planFile, "--out", imageFile};
    if (const int status = RunRender(args))
        return status;
    std::printf("Open %.*s to see it.\n", static_cast<int>(imageFile.size()), imageFile.data());
    return 0;
}

} // namespace

int RunDemo(std::span<const std::string_view> args) {
    std::string_view wordsFile = "examples/estimating-words.txt";
    std::string_view tablesFolder = "examples/tables";
    std::string_view questionsFile = "examples/questions/kitchen.viq";
    std::string_view planFile = "examples/kitchen/plan.json";
    std::string_view imageFile = "build/kitchen.png";
    for (std::size_t i = 0; i < args.size(); i += 2) {
        if (i + 1 < args.size() && args[i] == "--words")
            wordsFile = args[i + 1];
        else if (i + 1 < args.size() && args[i] == "--tables")
            tablesFolder = args[i + 1];
        else if (i + 1 < args.size() && args[i] == "--questions")
            questionsFile = args[i + 1];
        else if (i + 1 < args.size() && args[i] == "--plan")
            planFile = args[i + 1];
        else if (i + 1 < args.size() && args[i] == "--plan-out")
            imageFile = args[i + 1];
        else
            return UsageError("demo", "usage: keel demo [--words FILE] [--tables FOLDER] "
                                      "[--questions FILE] [--plan FILE] [--plan-out FILE]");
    }

    ShowInterning();
    const int count = InternWordsFile(wordsFile);
    if (count < 0)
        return 1;
    std::printf("\nCompletion over %d words of %.*s (the first four matches)\n", count,
                static_cast<int>(wordsFile.size()), wordsFile.data());
    for (const char* prefix : {"wi", "Cab", "door_", "ROO", "pri", "zz"})
        ShowCompletions(prefix);
    ShowValues();
    ShowFormulas();
    ShowEstimate();
    ShowTablePricedEstimate(tablesFolder);
    std::printf("\nThe questions of %.*s, as `keel questions show` gives them: a line a question "
                "with its name, type, control kind, label, default and enable mode\n",
                static_cast<int>(questionsFile.size()), questionsFile.data());
    std::fflush(stdout);
    const int questions = ShowQuestionFile(questionsFile, false);
    const int plan = ShowPlan(planFile, imageFile);
    return questions ? questions : plan;
}

} // namespace keel::tool
