// Formula texts from anywhere: tokenising, parsing and evaluating with no context, then the same
// text as a syntax check with evaluation counted off. A failed evaluation must leave an error.
//
// The language has no bound of its own on work: "while true do 1 wend" never ends, a range
// "[1 to 1e9]" or "rept('x', 1e9)" exhausts memory, and a string made a number is run as a
// formula again while it gives a string. So the harness leaves out texts that name a loop, a
// range, a repetition or a function with effects outside the process (a shell, files, boxes),
// checks every formula that an evaluation runs on the way (eval(), a string made numeric) the
// same way through an evaluator factory, and allows each input a budget of such evaluations.
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace {

using namespace keel;

constexpr std::size_t c_maxInputBytes = 4096;
// Parentheses, brackets and braces deeper than this would only measure the stack.
constexpr int c_maxNesting = 100;
constexpr int c_maxEvaluationsPerInput = 1000;

constexpr std::u16string_view c_unboundedWords[] = {
    u"while",
    u"repeat",
    u"do",
    u"for",
    u"loop",
    u"until",
    u"to",
    u"downto",
    u"rept",
    u"setarrayvalue",
    u"shell",
    u"shellwait",
    u"readandincrement",
    u"call",
    u"msgbox",
    u"msgboxlog",
    u"alert",
    u"confirm",
    u"edittext",
    u"debug",
};

// Words are taken as runs of the letters a to z after the text is lowered the way names are
// folded, which can only find more of them than the tokeniser does: "2while" and "_do" count.
bool IsUnboundedWord(std::u16string_view word) {
    if (word.starts_with(u"db")) // the database functions reach outside the process
        return true;
    for (const std::u16string_view unbounded : c_unboundedWords)
        if (word == unbounded)
            return true;
    return false;
}

bool NamesUnboundedWork(const CString& text) {
    CString lowered = text;
    lowered.MakeLower();
    const std::u16string_view view = lowered.View();
    std::size_t start = 0;
    for (std::size_t i = 0; i <= view.size(); ++i) {
        const bool letter = i < view.size() && view[i] >= u'a' && view[i] <= u'z';
        if (letter)
            continue;
        if (i > start && IsUnboundedWord(view.substr(start, i - start)))
            return true;
        start = i + 1;
    }
    return false;
}

bool NestsTooDeeply(const CString& text) {
    int depth = 0;
    for (const char16_t ch : text.View()) {
        if (ch == u'(' || ch == u'[' || ch == u'{')
            ++depth;
        else if (ch == u')' || ch == u']' || ch == u'}')
            --depth;
        if (depth > c_maxNesting)
            return true;
    }
    return false;
}

bool IsBounded(const CString& text) {
    return !NamesUnboundedWork(text) && !NestsTooDeeply(text);
}

int c_evaluationsLeft = 0;

// Every evaluator made on the way goes through here; a formula out of bounds, or one beyond the
// budget, is replaced by the empty formula, whose value is empty.
class GuardingFactory : public QEvaluatorFactory {
public:
    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        if (--c_evaluationsLeft < 0 || !IsBounded(formula.ToString()))
            formula = FormulaText();
        return new QEvaluator(result, formula, context, passThrough, reportErrors, isAction);
    }
    CString FolderForConstant(QConstantFolder) const override { return CString(); }
};

void EvaluateChecked(const FormulaText& formula, bool noEval) {
    QAnyValue result;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(result, formula, nullptr, false, false, false));
    const bool ok = noEval ? evaluator->EvaluateNoEval() : evaluator->Evaluate();
    if (!ok && !result.IsError())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    static GuardingFactory factory;
    SetEvaluatorFactory(&factory);
    QEvaluator::InstallAsFormulaHook();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > c_maxInputBytes)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const CString text = CString::FromUtf8(bytes);
    if (text.ToUtf8() != bytes || !IsBounded(text))
        return 0;

    const FormulaText formula(text);
    c_evaluationsLeft = c_maxEvaluationsPerInput;
    EvaluateChecked(formula, false);
    EvaluateChecked(formula, true);
    // The interned text stays, but its tokens need not.
    if (!formula.IsEmpty())
        QTokeniser::ForceRetokenise(formula.UniqueId());
    return 0;
}
