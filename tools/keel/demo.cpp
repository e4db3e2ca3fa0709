#include "tools/keel/commands.h"

#include "keel/formula/evaluator.h"
#include "keel/values/anyvalue.h"
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
        EvaluateQuietly(formula, false, result, message);
        std::printf("  %-36s %s\n", formula, Shown(result).c_str());
    }
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
    ShowValues();
    ShowFormulas();
    return 0;
}

} // namespace keel::tool
