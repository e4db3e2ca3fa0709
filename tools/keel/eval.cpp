#include "tools/keel/commands.h"
#include "tools/keel/output.h"

#include "keel/document/errorlog.h"
#include "keel/document/winapp.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/tokeniser.h"
#include "keel/values/angle.h"
#include "keel/values/area.h"
#include "keel/values/length.h"
#include "keel/values/volume.h"

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace keel::tool {

namespace {

constexpr std::string_view c_evalUsage =
    "usage: keel eval [--json] [--action] [--length-units N] [--area-units N] "
    "[--volume-units N] [--angle-units N] [--inch-fraction N] [--table-dir DIR] "
    "[--set NAME=FORMULA]... [--import FILE]... [--doc FILE]... [--] FORMULA...";

// Formula text typed by a person is interned as spelled, so that "a" is not shown as the "A"
// that another formula interned before it.
FormulaText PersonsFormula(std::string_view utf8) {
    return FormulaText(CString::FromUtf8(utf8), false, true);
}

// ---- Options ------------------------------------------------------------------------------------

// Each option that takes a value applies it and gives an empty text, or gives what is wrong.

bool ParseWholeNumber(std::string_view text, int& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// A unit option: its numbers run from `first` to `last`, and `apply` makes one the default.
struct UnitOption {
    std::string_view name;
    int first;
    int last;
    void (*apply)(int unit);
};

const UnitOption c_unitOptions[] = {
    {"--length-units", QLength::LU_HIMETRIC, QLength::LU_METRE,
     [](int unit) { QLength::SetDefaultUnits(static_cast<QLength::LENGTHUNITS>(unit)); }},
    {"--area-units", QArea::AU_SQHIMETRIC, QArea::AU_SQM,
     [](int unit) { QArea::SetDefaultUnits(static_cast<QArea::AREAUNITS>(unit)); }},
    {"--volume-units", QVolume::VU_CBHIMETRIC, QVolume::VU_CBM,
     [](int unit) { QVolume::SetDefaultUnits(static_cast<QVolume::VOLUMEUNITS>(unit)); }},
    {"--angle-units", QAngle::ANGU_TENTHDEG, QAngle::ANGU_RAD,
     [](int unit) { QAngle::SetDefaultUnits(static_cast<QAngle::ANGLEUNITS>(unit)); }},
};

const UnitOption* FindUnitOption(std::string_view name) {
    for (const UnitOption& option : c_unitOptions)
        if (option.name == name)
            return &option;
    return nullptr;
}

std::string ApplyUnitOption(const UnitOption& option, std::string_view value) {
    int unit = 0;
    if (!ParseWholeNumber(value, unit) || unit < option.first || unit > option.last)
        return std::string(option.name) + " takes a unit number from " +
               std::to_string(option.first) + " to " + std::to_string(option.last);
    option.apply(unit);
    return {};
}

// Inches are shown as decimals (0) or as sixteenths or thirty-seconds; 1 stands for 32, as in
// the options file.
std::string ApplyInchFraction(std::string_view value) {
    int fraction = 0;
    if (!ParseWholeNumber(value, fraction) ||
        (fraction != 0 && fraction != 1 && fraction != 16 && fraction != 32))
        return "--inch-fraction takes 0, 1, 16 or 32";
    QLength::c_InchHandlerType = fraction == 1 ? 32 : fraction;
    return {};
}

std::string ApplyTableDir(std::string_view value) {
    std::error_code error;
    if (!std::filesystem::is_directory(std::filesystem::path(value), error))
        return "--table-dir needs a folder that exists: '" + std::string(value) + "'";
    const std::string folder = std::filesystem::absolute(std::filesystem::path(value)).string();
    QWinApp::GetApp()->OverrideFileLocation(QFileLocation::Table, CString::FromUtf8(folder));
    return {};
}

void TrimBlanks(std::string_view& text) {
    const std::string_view::size_type first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        text = {};
        return;
    }
    text = text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The C0 and C1 controls and DEL.
bool HoldsControlCharacter(const CString& text) {
    for (int i = 0; i < text.GetLength(); ++i)
        if (text[i] < 0x20 || (text[i] >= 0x7F && text[i] <= 0x9F))
            return true;
    return false;
}

// A name that a formula can refer to: the text is one identifier token and nothing else.
bool IsName(const CString& text) {
    QTokeniser tokeniser{FormulaText(text)};
    CString error;
    PropId name;
    return tokeniser.Create(error) && tokeniser.ParseId(name) && tokeniser.PastEOF();
}

// Whether the formula made of the name alone reads the property of that name. A keyword does not
// parse as a name, and a named constant or a function comes before any property; the probe runs
// in a root of its own, which holds that one property.
bool ReadsAsProperty(const CString& name) {
    const CString marker = u"keel --set probe";
    const QSmartPtr<QRootContext> probe = new QRootContext;
    probe->SetPropertyFormula(PropId(name),
                              FormulaText(QAnyValue::InsertEscapesDoubleQuotesAndEnclose(marker)));
    QAnyValue value;
    CString message;
    return EvaluateQuietly(name.ToUtf8(), probe, false, value, message) && value.IsString() &&
           value.MakeCString() == marker;
}

// Stores a property with the formula of NAME=FORMULA on the root context. A formula that does
// not parse is refused here, where it is given, rather than when something reads it.
std::string ApplySet(std::string_view setting, EvalOptions& options) {
    const std::string_view::size_type equals = setting.find('=');
    if (equals == std::string_view::npos)
        return "--set takes NAME=FORMULA";
    std::string_view name = setting.substr(0, equals);
    TrimBlanks(name);
    std::string_view formula = setting.substr(equals + 1);
    if (name.empty() || formula.find_first_not_of(" \t") == std::string_view::npos)
        return "--set takes NAME=FORMULA";
    const CString spelled = CString::FromUtf8(name);
    if (HoldsControlCharacter(spelled))
        return "--set takes NAME=FORMULA, and the NAME given holds a control character";
    if (!IsName(spelled))
        return "--set takes NAME=FORMULA, and '" + std::string(name) + "' is not a name";
    if (!ReadsAsProperty(spelled))
        return "--set takes NAME=FORMULA, and '" + std::string(name) +
               "' is a keyword, a named constant or a function, which no formula reads as a "
               "property";
    CString message;
    if (!FormulaParses(PersonsFormula(formula), options.root, message))
        return "--set cannot store the formula of " + std::string(name) + ": " + message.ToUtf8();
    options.root->SetPropertyFormula(PropId(spelled), PersonsFormula(formula));
    return {};
}

bool TakesValue(std::string_view option) {
    return FindUnitOption(option) || option == "--inch-fraction" || option == "--table-dir" ||
           option == "--set" || option == "--import" || option == "--doc";
}

std::string ApplyOptionWithValue(std::string_view option, std::string_view value,
                                 EvalOptions& options) {
    if (const UnitOption* unit = FindUnitOption(option))
        return ApplyUnitOption(*unit, value);
    if (option == "--inch-fraction")
        return ApplyInchFraction(value);
    if (option == "--table-dir")
        return ApplyTableDir(value);
    return ApplySet(value, options);
}

bool IsOption(std::string_view arg) {
    return arg.size() > 2 && arg.starts_with("--");
}

// The plain form's failure, on stderr after the line it belongs to.
void ReportFailure(std::string_view formula, const CString& message) {
    std::fflush(stdout);
    std::fprintf(stderr, "keel: cannot evaluate '%.*s'%s%s\n", static_cast<int>(formula.size()),
                 formula.data(), message.IsEmpty() ? "" : "\n", message.ToUtf8().c_str());
}

} // namespace

void PrepareEvaluation() {
    QEvaluator::InstallAsFormulaHook();
}

int ParseEvalOptions(std::string_view command, std::span<const std::string_view> args,
                     EvalOptions& options, std::vector<std::string_view>& formulas) {
    if (!options.root)
        options.root = new QRootContext;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string_view arg = args[i];
        if (arg == "--") {
            formulas.insert(formulas.end(), args.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                            args.end());
            break;
        }
        if (!IsOption(arg)) {
            formulas.push_back(arg);
        } else if (arg == "--json") {
            options.json = true;
        } else if (arg == "--action") {
            options.action = true;
        } else if (TakesValue(arg)) {
            if (i + 1 == args.size())
                return UsageError(command, std::string(arg) + " needs a value");
            if (arg == "--import") {
                if (!ImportAnswersFile(command, args[++i], options))
                    return 1;
                continue;
            }
            if (arg == "--doc") {
                if (!LoadDocumentAnswers(command, args[++i], options))
                    return 1;
                continue;
            }
            const std::string wrong = ApplyOptionWithValue(arg, args[++i], options);
            if (!wrong.empty())
                return UsageError(command, wrong);
        } else {
            return UsageError(command, "unknown option '" + std::string(arg) + "'");
        }
    }
    return 0;
}

bool FormulaParses(FormulaText formula, QFormulaContext* context, CString& message) {
    QAnyValue scratch;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(scratch, formula, context, false, true, false));
    SetNoEvalReportErrors(true);
    const bool ok = evaluator->EvaluateNoEval();
    message = evaluator->Message();
    return ok;
}

bool EvaluateQuietly(std::string_view formula, QFormulaContext* context, bool action,
                     QAnyValue& result, CString& message) {
    // The evaluator's report flag makes it compose its messages; the process-wide switch, off
    // until the evaluator is gone, keeps it from showing them.
    const FormulaText text = PersonsFormula(formula);
    // A value kept under this formula may have been made while it was spelled another way.
    if (context)
        context->ForgetThisFormulaValueForNextTime(text);
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(result, text, context, false, true, action));
    SetNoEvalReportErrors(true);
    const bool ok = evaluator->Evaluate();
    message = ok ? CString() : evaluator->Message();
    return ok;
}

bool EvaluateAndPrint(std::string_view formula, const EvalOptions& options,
                      std::string_view shownAs) {
    QAnyValue result;
    CString message;
    const bool ok = EvaluateQuietly(formula, options.root, options.action, result, message);
    if (options.json) {
        std::printf("%s\n", JsonLine(formula, ok, message, result).c_str());
    } else if (ok) {
        std::printf("%s\n", PlainLine(result).c_str());
    } else {
        // The failure's message goes to stderr, once.
        std::printf("%s\t%s\n", result.TypeName().ToUtf8().c_str(),
                    result.Format().ToUtf8().c_str());
        ReportFailure(shownAs.empty() ? formula : shownAs, message);
    }
    return ok && !result.IsError();
}

int RunEval(std::span<const std::string_view> args) {
    PrepareEvaluation();
    EvalOptions options;
    std::vector<std::string_view> formulas;
    if (const int status = ParseEvalOptions("eval", args, options, formulas))
        return status;
    if (formulas.empty())
        return UsageError("eval", c_evalUsage);
    bool allOk = true;
    for (const std::string_view formula : formulas)
        allOk = EvaluateAndPrint(formula, options) && allOk;
    return allOk && !options.importFailed ? 0 : 1;
}

} // namespace keel::tool
