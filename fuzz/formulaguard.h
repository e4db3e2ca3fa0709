#pragma once

// What keeps a harness that runs formulas from running for ever or leaving the process: the
// language has no bound of its own on work ("while true do 1 wend" never ends, a range
// "[1 to 1e9]" or "rept('x', 1e9)" exhausts memory), and some functions reach outside (a shell,
// files, boxes). Texts that name a loop, a range, a repetition or such a function are left out,
// and every evaluator made on the way goes through a factory that checks its formula the same
// way and counts it against a budget for the input. Nesting is not limited here: the evaluator
// bounds it itself, and deep texts are what shows that it does.
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace keel::fuzz {

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
inline bool IsUnboundedWord(std::u16string_view word) {
    if (word.starts_with(u"db")) // the database functions reach outside the process
        return true;
    for (const std::u16string_view unbounded : c_unboundedWords)
        if (word == unbounded)
            return true;
    return false;
}

inline bool NamesUnboundedWork(const CString& text) {
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

inline bool IsBounded(const CString& text) {
    return !NamesUnboundedWork(text);
}

// A formula out of bounds, or one beyond the budget, is replaced by the empty formula, whose
// value is empty. Only the table folder is named, and only when one is set.
class GuardingFactory : public QEvaluatorFactory {
public:
    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        if (--m_evaluationsLeft < 0 || !IsBounded(formula.ToString()))
            formula = FormulaText();
        return new QEvaluator(result, formula, context, passThrough, reportErrors, isAction);
    }
    CString FolderForConstant(QConstantFolder folder) const override {
        return folder == QConstantFolder::Table ? m_tableFolder : CString();
    }

    void StartInput(int evaluationBudget) { m_evaluationsLeft = evaluationBudget; }
    void SetTableFolder(const CString& folder) { m_tableFolder = folder; }

private:
    int m_evaluationsLeft = 0;
    CString m_tableFolder;
};

// The one guard of a harness.
inline GuardingFactory& Guard() {
    static GuardingFactory guard;
    return guard;
}

// Makes the guard the evaluator factory, and evaluation the formula hook.
inline void InstallGuard() {
    SetEvaluatorFactory(&Guard());
    QEvaluator::InstallAsFormulaHook();
}

// The input as a formula's text: false when it is longer than `maxBytes`, is not UTF-8 that
// reads back the same, or names unbounded work.
inline bool ReadBoundedFormula(const std::uint8_t* data, std::size_t size, std::size_t maxBytes,
                               CString& text) {
    if (size > maxBytes)
        return false;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    text = CString::FromUtf8(bytes);
    return text.ToUtf8() == bytes && IsBounded(text);
}

} // namespace keel::fuzz
