#include "tools/keel/commands.h"

#include "keel/document/errorlog.h"
#include "keel/document/winapp.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/tokeniser.h"
#include "keel/values/angle.h"
#include "keel/values/area.h"
#include "keel/values/datetime.h"
#include "keel/values/length.h"
#include "keel/values/money.h"
#include "keel/values/ratevalue.h"
#include "keel/values/time.h"
#include "keel/values/volume.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace keel::tool {

namespace {

constexpr std::string_view c_evalUsage =
    "eval takes [--json] [--action] [--length-units N] [--area-units N] [--volume-units N] "
    "[--angle-units N] [--inch-fraction N] [--table-dir DIR] [--set NAME=FORMULA]... [--] "
    "FORMULA...";

// ---- JSON ---------------------------------------------------------------------------------------

void AppendJsonString(std::string& out, std::string_view utf8) {
    out += '"';
    for (const char ch : utf8) {
        switch (ch) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(ch) < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned char>(ch));
                out += escaped;
            } else {
                out += ch;
            }
        }
    }
    out += '"';
}

void AppendJsonString(std::string& out, const CString& text) {
    AppendJsonString(out, text.ToUtf8());
}

// Full precision, so that the stored double reads back exactly; JSON has no infinity or NaN.
void AppendJsonDouble(std::string& out, double value) {
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.17g", value);
    out += digits;
}

void AppendJsonInteger(std::string& out, long long value) {
    out += std::to_string(value);
}

void AppendJsonValue(std::string& out, const QAnyValue& value);

// The stored payload: counts as integers, measures as doubles in their raw units, texts as
// texts; arrays and rates as objects of further values.
void AppendJsonRaw(std::string& out, const QAnyValue& value) {
    QAnyValue copy = value;
    switch (value.Type()) {
    case QAnyValue::TYPE_ERROR: {
        CString message;
        copy.IsErrorAndGetMessage(message);
        AppendJsonString(out, message);
        break;
    }
    case QAnyValue::TYPE_STRING:
    case QAnyValue::TYPE_LOOKUPTABLE:
        AppendJsonString(out, copy.MakeCString());
        break;
    case QAnyValue::TYPE_BOOL:
        AppendJsonInteger(out, copy.MakeBool() ? 1 : 0);
        break;
    case QAnyValue::TYPE_INT:
        AppendJsonInteger(out, copy.MakeInt());
        break;
    case QAnyValue::TYPE_DOUBLE:
        AppendJsonDouble(out, copy.MakeDouble());
        break;
    case QAnyValue::TYPE_MONEY:
        AppendJsonInteger(out, copy.MakeMoney().GetRaw());
        break;
    case QAnyValue::TYPE_TIME:
        AppendJsonInteger(out, copy.MakeTime().GetRaw());
        break;
    case QAnyValue::TYPE_LENGTH:
        AppendJsonDouble(out, copy.MakeLength().GetRaw());
        break;
    case QAnyValue::TYPE_AREA:
        AppendJsonDouble(out, copy.MakeArea().GetRaw());
        break;
    case QAnyValue::TYPE_VOLUME:
        AppendJsonDouble(out, copy.MakeVolume().GetRaw());
        break;
    case QAnyValue::TYPE_ANGLE:
        AppendJsonDouble(out, copy.MakeAngle().GetRaw());
        break;
    case QAnyValue::TYPE_DATETIME:
        AppendJsonDouble(out, copy.MakeDateTime().GetOleDate());
        break;
    case QAnyValue::TYPE_COLOR:
        AppendJsonInteger(out, static_cast<long long>(copy.MakeColor()));
        break;
    case QAnyValue::TYPE_ARRAY: {
        out += "{\"elements\":[";
        const QArray<QAnyValue>& elements = copy.MakeArray();
        for (int i = 0; i < elements.GetSize(); ++i) {
            if (i > 0)
                out += ',';
            AppendJsonValue(out, elements[i]);
        }
        out += "]}";
        break;
    }
    case QAnyValue::TYPE_RATE: {
        const QRateValue& rate = copy.MakeRate();
        out += "{\"num\":";
        AppendJsonValue(out, rate.Num());
        out += ",\"den\":";
        AppendJsonValue(out, rate.Den());
        out += '}';
        break;
    }
    default:
        out += "null";
        break;
    }
}

// The fields that every value has: "type", "typeNumber", "text" and "raw".
void AppendJsonValueFields(std::string& out, const QAnyValue& value) {
    out += "\"type\":";
    AppendJsonString(out, value.TypeName());
    out += ",\"typeNumber\":";
    AppendJsonInteger(out, value.Type());
    out += ",\"text\":";
    AppendJsonString(out, QAnyValue(value).MakeCString());
    out += ",\"raw\":";
    AppendJsonRaw(out, value);
}

void AppendJsonValue(std::string& out, const QAnyValue& value) {
    out += '{';
    AppendJsonValueFields(out, value);
    out += '}';
}

std::string JsonLine(std::string_view formula, bool ok, const CString& message,
                     const QAnyValue& value) {
    std::string line = "{\"formula\":";
    AppendJsonString(line, formula);
    line += ok ? ",\"ok\":true" : ",\"ok\":false";
    line += ",\"message\":";
    AppendJsonString(line, message);
    line += ',';
    AppendJsonValueFields(line, value);
    line += '}';
    return line;
}

// ---- Options ------------------------------------------------------------------------------------

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

int ApplyUnitOption(const UnitOption& option, std::string_view value) {
    int unit = 0;
    if (!ParseWholeNumber(value, unit) || unit < option.first || unit > option.last)
        return UsageError(std::string(option.name) + " takes a unit number from " +
                          std::to_string(option.first) + " to " + std::to_string(option.last));
    option.apply(unit);
    return 0;
}

// Inches are shown as decimals (0) or as sixteenths or thirty-seconds; 1 stands for 32, as in
// the options file.
int ApplyInchFraction(std::string_view value) {
    int fraction = 0;
    if (!ParseWholeNumber(value, fraction) ||
        (fraction != 0 && fraction != 1 && fraction != 16 && fraction != 32))
        return UsageError("--inch-fraction takes 0, 1, 16 or 32");
    QLength::c_InchHandlerType = fraction == 1 ? 32 : fraction;
    return 0;
}

int ApplyTableDir(std::string_view value) {
    std::error_code error;
    if (!std::filesystem::is_directory(std::filesystem::path(value), error))
        return UsageError("--table-dir needs a folder that exists: '" + std::string(value) + "'");
    const std::string folder = std::filesystem::absolute(std::filesystem::path(value)).string();
    QWinApp::GetApp()->OverrideFileLocation(QFileLocation::Table, CString::FromUtf8(folder));
    return 0;
}

void TrimBlanks(std::string_view& text) {
    const std::string_view::size_type first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        text = {};
        return;
    }
    text = text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// A name that a formula can refer to: the text is one identifier token and nothing else.
bool IsName(std::string_view text) {
    QTokeniser tokeniser{FormulaText(CString::FromUtf8(text))};
    CString error;
    PropId name;
    return tokeniser.Create(error) && tokeniser.ParseId(name) && tokeniser.PastEOF();
}

// The formula's syntax, checked with evaluation off; gives the evaluator's message.
bool FormulaParses(std::string_view formula, QFormulaContext* context, CString& message) {
    QAnyValue scratch;
    const std::unique_ptr<QEvaluator> evaluator(QEvaluator::New(
        scratch, FormulaText(CString::FromUtf8(formula)), context, false, true, false));
    SetNoEvalReportErrors(true);
    const bool ok = evaluator->EvaluateNoEval();
    message = evaluator->Message();
    return ok;
}

// Stores a property with the formula of NAME=FORMULA on the root context. A formula that does
// not parse is refused here, where it is given, rather than when something reads it.
int ApplySet(std::string_view setting, EvalOptions& options) {
    const std::string_view::size_type equals = setting.find('=');
    if (equals == std::string_view::npos)
        return UsageError("--set takes NAME=FORMULA");
    std::string_view name = setting.substr(0, equals);
    TrimBlanks(name);
    std::string_view formula = setting.substr(equals + 1);
    if (name.empty() || formula.find_first_not_of(" \t") == std::string_view::npos)
        return UsageError("--set takes NAME=FORMULA");
    if (!IsName(name))
        return UsageError("--set takes NAME=FORMULA, and '" + std::string(name) +
                          "' is not a name");
    CString message;
    if (!FormulaParses(formula, options.root, message))
        return UsageError("--set cannot store the formula of " + std::string(name) + ": " +
                          message.ToUtf8());
    options.root->SetPropertyFormula(PropId(CString::FromUtf8(name)),
                                     FormulaText(CString::FromUtf8(formula)));
    return 0;
}

bool TakesValue(std::string_view option) {
    return FindUnitOption(option) || option == "--inch-fraction" || option == "--table-dir" ||
           option == "--set";
}

int ApplyOptionWithValue(std::string_view option, std::string_view value, EvalOptions& options) {
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

int ParseEvalOptions(std::span<const std::string_view> args, EvalOptions& options,
                     std::vector<std::string_view>& formulas) {
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
                return UsageError(std::string(arg) + " needs a value");
            if (const int status = ApplyOptionWithValue(arg, args[++i], options))
                return status;
        } else {
            return UsageError("unknown option '" + std::string(arg) + "' of eval");
        }
    }
    return 0;
}

bool EvaluateQuietly(std::string_view formula, QFormulaContext* context, bool action,
                     QAnyValue& result, CString& message) {
    // The evaluator's report flag makes it compose its messages; the process-wide switch, off
    // until the evaluator is gone, keeps it from showing them.
    const std::unique_ptr<QEvaluator> evaluator(QEvaluator::New(
        result, FormulaText(CString::FromUtf8(formula)), context, false, true, action));
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
        return ok;
    }
    std::printf("%s\t%s\n", result.TypeName().ToUtf8().c_str(),
                QAnyValue(result).MakeCString().ToUtf8().c_str());
    if (!ok)
        ReportFailure(shownAs.empty() ? formula : shownAs, message);
    return ok;
}

int RunEval(std::span<const std::string_view> args) {
    PrepareEvaluation();
    EvalOptions options;
    std::vector<std::string_view> formulas;
    if (const int status = ParseEvalOptions(args, options, formulas))
        return status;
    if (formulas.empty())
        return UsageError(c_evalUsage);
    bool allOk = true;
    for (const std::string_view formula : formulas)
        allOk = EvaluateAndPrint(formula, options) && allOk;
    return allOk ? 0 : 1;
}

} // namespace keel::tool
