#pragma once

#include "tests/support/anyvalues.h"
#include "tests/support/archivebytes.h"
#include "tests/support/namescontext.h"

#include "keel/document/errorlog.h"
#include "keel/formula/compiledformula.h"
#include "keel/formula/evaluator.h"
#include "keel/platform/fpstatus.h"
#include "keel/platform/random.h"

#include <cfenv>
#include <memory>
#include <string>
#include <vector>

namespace keel::test {

// Everything a caller can see of one evaluation: whether it failed and with what message, the
// value's type and stored bytes, what went into the log, the names the context was asked, the
// cache state and the floating-point flags left behind.
struct FormulaRun {
    bool ok = false;
    std::string message;
    int type = 0;
    std::string shown;
    Bytes stored;
    std::vector<std::string> logged;
    std::vector<std::string> asked;
    int state = 0;
    unsigned fpStatus = 0;
    // Not compared: whether the compiled form ran.
    bool compiled = false;

    bool operator==(const FormulaRun& other) const {
        return ok == other.ok && message == other.message && type == other.type &&
               shown == other.shown && stored == other.stored && logged == other.logged &&
               asked == other.asked && state == other.state && fpStatus == other.fpStatus;
    }
};

inline std::string Describe(const FormulaRun& run) {
    std::string text = (run.ok ? "ok " : "failed \"" + run.message + "\" ") + run.shown +
                       " state " + std::to_string(run.state) + " fp " +
                       std::to_string(run.fpStatus) + " asked";
    for (const std::string& name : run.asked)
        text += " " + name;
    for (const std::string& line : run.logged)
        text += "\n  logged: " + line;
    return text;
}

// The same formula run with and without compiling, in the same surroundings: a context of a few
// names (numbers, a length, a text, a formula deferred in a string, one that fails), a local
// variable and two arguments.
class FormulaRunner {
public:
    FormulaRun Run(const std::string& formula, QFormulaCompilation mode, bool report = true) {
        SetFormulaCompilation(mode);
        NamesContext context;
        context.Set("a", QAnyValue(3));
        context.Set("b", QAnyValue(4.5));
        context.Set("w", QAnyValue(QLength(2, QLength::LU_METRE)));
        context.Set("s", QAnyValue(u"text"));
        context.Set("deferred", QAnyValue(u"=a * 2"));
        context.Set("flags", QAnyValue(true), QCS_BySeq);
        context.SetFailing("broken");
        TheErrorLog().DiscardPendingMessages();
        FormulaRun run;
        const long before = CompiledEvaluationCount();
        // A flag left by earlier work: a division clears it, and so must its folded form.
        std::feraiseexcept(FE_INEXACT);
        // "rnd" draws the same numbers each run.
        keel::srand(1);
        {
            const std::unique_ptr<QEvaluator> evaluator(QEvaluator::New(
                m_result, FormulaText(CString::FromUtf8(formula)), &context, false, report, false));
            evaluator->SetVar(PropId(u"v"), QAnyValue(7));
            evaluator->SetArg(1, QAnyValue(5));
            evaluator->SetArg(2, QAnyValue(u"x"));
            run.ok = evaluator->Evaluate();
            run.message = evaluator->Message().ToUtf8();
            run.state = evaluator->CacheState();
        }
        run.fpStatus = ClearFPStatus();
        run.compiled = CompiledEvaluationCount() != before;
        run.type = m_result.Type();
        run.shown = DescribeValue(m_result);
        run.stored = Stored([this](CArchive& archive) { archive << m_result; });
        for (int i = 0; i < TheErrorLog().GetSize(); ++i)
            run.logged.push_back(TheErrorLog().Message(i).ToUtf8());
        TheErrorLog().DiscardPendingMessages();
        run.asked = context.Asked();
        SetFormulaCompilation(QFormulaCompilation::Repeated);
        return run;
    }

private:
    QAnyValue m_result;
};

} // namespace keel::test
