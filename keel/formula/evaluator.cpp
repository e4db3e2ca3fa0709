#include "keel/formula/evaluator.h"

#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/document/usertrace.h"
#include "keel/formula/compiledformula.h"
#include "keel/formula/evaluatingdata.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"
#include "keel/values/formulahook.h"

#include <atomic>
#include <climits>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace keel {

namespace {

std::atomic<int> c_nestingCount{0};

// The levels of QEvaluator::NestingLevel and QEvaluator::RoutineLevel in force on this thread.
thread_local int t_nestingDepth = 0;
thread_local int t_routineDepth = 0;

// The lines of ExtraContextInfoForErrors in force, innermost last; a guard that has one line
// keeps an empty second.
std::mutex c_extraContextMutex;
std::vector<std::pair<CString, CString>> c_extraContextLines;

bool TraceEvaluations() {
    return IsTracing(USER_TRACE_EVALUATIONS);
}

// The count is process-wide and, as evaluators run on one thread, not locked: a plain read and
// write serve.
void RaiseNestingCount() {
    c_nestingCount.store(c_nestingCount.load(std::memory_order_relaxed) + 1,
                         std::memory_order_relaxed);
}

void LowerNestingCount() {
    const int count = c_nestingCount.load(std::memory_order_relaxed);
    if (count > 0)
        c_nestingCount.store(count - 1, std::memory_order_relaxed);
}

// The process-wide report switch is written only when it changes: a write costs far more than a
// read, and most evaluations leave it as it is.
void SetReportSwitch(bool noReports) {
    if (NoEvalReportErrors() != noReports)
        SetNoEvalReportErrors(noReports);
}

void PushExtraContext(const CString& line, const CString& second) {
    std::lock_guard<std::mutex> lock(c_extraContextMutex);
    c_extraContextLines.emplace_back(line, second);
}

CString FoundOrEndOfFormula(const CString& found) {
    return found.IsEmpty() ? CString(u" end of formula") : u"\n\t" + found;
}

CString ExpectingText(const CString& what, const CString& in, const CString& found) {
    CString text = u"Expecting " + what;
    if (!in.IsEmpty())
        text += u" in " + in;
    return text + u"\nbut found" + FoundOrEndOfFormula(found);
}

// The four forms of one kind of failure report: by whether there is a message, and whether a
// fragment near the failure is worth showing beside the whole formula.
struct FailureForms {
    const QTString& plain;
    const QTString& near;
    const QTString& message;
    const QTString& messageNear;
};

const FailureForms& SyntaxFailureForms() {
    static const QTString plain(u"Error in formula\n\t%s", u"Message box (formula)");
    static const QTString near(u"Error in formula\n\t%s\nnear\n\t%s",
                               u"Message box (formula,expr)");
    static const QTString message(u"%s\nin formula\n\t%s", u"Message box (msg,formula)");
    static const QTString messageNear(u"%s\nin formula\n\t%s\nnear\n\t%s",
                                      u"Message box (msg,formula,expr)");
    static const FailureForms forms{plain, near, message, messageNear};
    return forms;
}

const FailureForms& ErrorValueForms() {
    static const QTString plain(u"Error evaluating\n\t%s", u"Message box (formula)");
    static const QTString near(u"Error evaluating\n\t%s\nwhile evaluating\n\t%s",
                               u"Message box (formula,expr)");
    static const QTString message(u"%s\nevaluating\n\t%s", u"Message box (msg,formula)");
    static const QTString messageNear(u"%s\nevaluating\n\t%s\nwhile evaluating\n\t%s",
                                      u"Message box (msg,formula,expr)");
    static const FailureForms forms{plain, near, message, messageNear};
    return forms;
}

CString ComposeFailure(const FailureForms& forms, const CString& message, const CString& formula,
                       const CString& fragment) {
    const bool showFragment = !fragment.IsEmpty() && fragment != formula;
    if (message.IsEmpty())
        return showFragment ? CString::Formatted(forms.near, formula, fragment)
                            : CString::Formatted(forms.plain, formula);
    return showFragment ? CString::Formatted(forms.messageNear, message, formula, fragment)
                        : CString::Formatted(forms.message, message, formula);
}

// The compiled form of the evaluator's formula when it may run it instead of the walk.
const QCompiledFormula* CompiledFormOf(QEvaluator& evaluator) {
    const QFormulaCompilation mode = FormulaCompilation();
    if (mode == QFormulaCompilation::Off)
        return nullptr;
    const QCompiledFormula* compiled = evaluator.Stream()->Compiled(mode);
    return compiled && compiled->CanRun(evaluator) ? compiled : nullptr;
}

// Tokenises and runs the whole formula. On failure `failure` gives the reason when the tokeniser
// or an exception has one; otherwise a reporter has written the evaluator's message.
bool ParseAndEvaluate(QEvaluator& evaluator, CString& failure) {
    try {
        if (!evaluator.Create(failure))
            return false;
        failure.Empty();
        if (evaluator.IsEmpty())
            return true;
        evaluator.MarkOKUpToHere();
        if (const QCompiledFormula* compiled = CompiledFormOf(evaluator))
            return compiled->Run(evaluator);
        if (!evaluator.EvaluateBlockOrFunction(evaluator.Result()))
            return false;
        return evaluator.PastEOF() || evaluator.ExpectingButFoundIn(
                                          u"end of formula", evaluator.ThisCharPlus(20), CString());
    } catch (const std::bad_alloc&) {
        failure = u"Out of memory";
        return false;
    } catch (const std::exception& exception) { // CException among them
        failure = ErrorMessage(exception);
        return false;
    }
}

// The text of a string value made a number: data, whoever asks for the number.
bool EvaluateThroughHook(const FormulaText& formula, QFormulaContext* context, QAnyValue& result) {
    const QEvaluatingData evaluatingData;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(result, formula, context, false, false, false));
    return evaluator->Evaluate();
}

} // namespace

// --- Construction -------------------------------------------------------------------------------

QEvaluator::QEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                       bool passThrough, bool reportErrors, bool isAction)
    : QTokeniser(formula), m_result(result), m_context(context) {
    m_result.MakeEmpty();
    SetFlag(c_passThrough, passThrough);
    SetFlag(c_reportErrors, reportErrors);
    SetFlag(c_action, isAction);
    SetFlag(c_savedReportErrors, !NoEvalReportErrors());
    SetReportSwitch(!reportErrors);
    RaiseNestingCount();
}

QEvaluator::~QEvaluator() {
    SetReportSwitch(!Flag(c_savedReportErrors));
    LowerNestingCount();
}

QEvaluator* QEvaluator::New(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                            bool passThrough, bool reportErrors, bool isAction) {
    if (QEvaluatorFactory* factory = GetEvaluatorFactory())
        return factory->NewQEvaluator(result, formula, context, passThrough, reportErrors,
                                      isAction);
    return new QEvaluator(result, formula, context, passThrough, reportErrors, isAction);
}

void QEvaluator::InstallAsFormulaHook() {
    SetFormulaEvaluatorHook(&EvaluateThroughHook);
}

int QEvaluator::NestingCount() {
    return c_nestingCount.load(std::memory_order_relaxed);
}

// --- Limits of nesting --------------------------------------------------------------------------

int QEvaluator::NestingDepth() {
    return t_nestingDepth;
}

int& QEvaluator::ThreadNestingDepth() {
    return t_nestingDepth;
}

QEvaluator::NestingLevel::NestingLevel() {
    ++t_nestingDepth;
}

QEvaluator::NestingLevel::~NestingLevel() {
    --t_nestingDepth;
}

bool QEvaluator::NestingLevel::IsTooDeep() const {
    return t_nestingDepth > c_maxNestingDepth;
}

bool QEvaluator::NestedTooDeeply() {
    m_message = u"Formula nested too deeply";
    return false;
}

int QEvaluator::RoutineDepth() {
    return t_routineDepth;
}

QEvaluator::RoutineLevel::RoutineLevel() {
    ++t_routineDepth;
}

QEvaluator::RoutineLevel::~RoutineLevel() {
    --t_routineDepth;
}

bool QEvaluator::RoutineLevel::IsTooDeep() const {
    return t_routineDepth > c_maxRoutineDepth;
}

// --- Extension points: the base serves nothing of its own ---------------------------------------

bool QEvaluator::EvaluateNamedConstantExtras(QAnyValue&, PropId) {
    return false;
}

bool QEvaluator::EvaluateSimpleFunctionExtras(QAnyValue&, FullId) {
    return false;
}

bool QEvaluator::EvaluateUnaryFunctionExtras(QAnyValue&, FullId, const QAnyValue&) {
    return false;
}

bool QEvaluator::EvaluateBinaryFunctionExtras(QAnyValue&, FullId, const QAnyValue&,
                                              const QAnyValue&) {
    return false;
}

bool QEvaluator::EvaluateTernaryFunctionExtras(QAnyValue&, FullId, const QAnyValue&,
                                               const QAnyValue&, const QAnyValue&) {
    return false;
}

bool QEvaluator::EvaluateQuadaryFunctionExtras(QAnyValue&, FullId, const QAnyValue&,
                                               const QAnyValue&, const QAnyValue&,
                                               const QAnyValue&) {
    return false;
}

bool QEvaluator::IsDerivedClassDefined(FullId) {
    return false;
}

bool QEvaluator::EvaluateSimpleFunctionDerived(QAnyValue&, FullId) {
    return false;
}

bool QEvaluator::EvaluateUnaryFunctionDerived(QAnyValue&, FullId, const QAnyValue&) {
    return false;
}

bool QEvaluator::EvaluateBinaryFunctionDerived(QAnyValue&, FullId, const QAnyValue&,
                                               const QAnyValue&) {
    return false;
}

bool QEvaluator::EvaluateTernaryFunctionDerived(QAnyValue&, FullId, const QAnyValue&,
                                                const QAnyValue&, const QAnyValue&) {
    return false;
}

bool QEvaluator::EvaluateQuadaryFunctionDerived(QAnyValue&, FullId, const QAnyValue&,
                                                const QAnyValue&, const QAnyValue&,
                                                const QAnyValue&) {
    return false;
}

bool QEvaluator::EvaluateQuintaryFunctionDerived(QAnyValue&, FullId, const QAnyValue&,
                                                 const QAnyValue&, const QAnyValue&,
                                                 const QAnyValue&, const QAnyValue&) {
    return false;
}

bool QEvaluator::EvaluateSextaryFunctionDerived(QAnyValue&, FullId, const QAnyValue&,
                                                const QAnyValue&, const QAnyValue&,
                                                const QAnyValue&, const QAnyValue&,
                                                const QAnyValue&) {
    return false;
}

bool QEvaluator::EvaluateSeptaryFunctionDerived(QAnyValue&, FullId, const QAnyValue&,
                                                const QAnyValue&, const QAnyValue&,
                                                const QAnyValue&, const QAnyValue&,
                                                const QAnyValue&, const QAnyValue&) {
    return false;
}

// --- Running ------------------------------------------------------------------------------------

bool QEvaluator::Evaluate() {
    const bool trace = TraceEvaluations();
    if (trace)
        UserTraceWriteLineStart(u"Evaluate{");
    SetFlag(c_running, true);
    SetFlag(c_failed, false);
    m_message.Empty();

    // A syntax check neither reads nor fills the context's cache: it evaluates nothing.
    const bool cacheable = m_context && !m_context->CanBeSharedOrIsDestructing() && IsEval();
    if (m_context)
        m_context->EnsureUpToDate();
    const bool answeredFromCache =
        cacheable && !IsDebug() && !IsAction() &&
        m_context->HeresAFormulaValueIPreparedEarlier(m_result, m_cacheState, m_formula);
    if (!answeredFromCache) {
        CString failure;
        if (!ParseAndEvaluate(*this, failure)) {
            if (!failure.IsEmpty())
                m_message = failure;
            ReportFailure();
        } else if (cacheable && !IsAction() && m_cacheState != QCS_NotCacheable)
            m_context->RememberThisFormulaValueForNextTime(m_result, m_formula, m_cacheState);
    }

    // Running means inside Evaluate, so it ends with it.
    SetFlag(c_running, false);
    if (trace) {
        const CString value = m_result.IsEmpty()
                                  ? CString(u"EMPTY }Evaluate==>")
                                  : u"}Evaluate==>" + QAnyValue(m_result).MakeCString();
        UserTraceWriteLineStop(value + ContextInfo(true));
    }
    return !IsFailed();
}

void QEvaluator::ReportFailure() {
    SetFlag(c_failed, true);
    const bool valueIsError = m_result.IsError();
    m_result.MakeError(m_message);
    if (!IsReportErrors() || NoEvalReportErrors())
        return;
    const CString fragment = Stream() ? FormulaStringBetween(m_lastGood, SaveCursor()) : CString();
    const CString text = ComposeFailure(valueIsError ? ErrorValueForms() : SyntaxFailureForms(),
                                        m_message, m_formula.ToString(), fragment);
    static const QTString heading(u"Formula", u"Message box");
    QMessageBoxOrLog(text + ContextInfo(true), heading, true);
}

bool QEvaluator::EvaluateNoEval() {
    NoEval noEval(*this);
    return Evaluate();
}

void QEvaluator::RaiseCacheState(QCacheState state) {
    keel::RaiseCacheState(m_cacheState, state);
}

// --- Arguments and variables --------------------------------------------------------------------

void QEvaluator::SetArg(int i, const QAnyValue& value) {
    if (i >= 1)
        m_args.SetAtGrow(i - 1, value);
}

bool QEvaluator::GetArg(int i, QAnyValue& value) const {
    if (i < 1 || i > m_args.GetSize())
        return false;
    value = m_args[i - 1];
    return true;
}

bool QEvaluator::GetVar(PropId name, QAnyValue& value) const {
    return m_vars.Lookup(name, value);
}

void QEvaluator::SetVar(PropId name, const QAnyValue& value) {
    m_vars[name] = value;
}

bool QEvaluator::HasVar(PropId name) const {
    return m_vars.PLookup(name) != nullptr;
}

// --- Context lines of reports -------------------------------------------------------------------

QEvaluator::ExtraContextInfoForErrors::ExtraContextInfoForErrors(const CString& line) {
    PushExtraContext(line, CString());
}

QEvaluator::ExtraContextInfoForErrors::ExtraContextInfoForErrors(const CString& line,
                                                                 const CString& second) {
    PushExtraContext(line, second);
}

QEvaluator::ExtraContextInfoForErrors::~ExtraContextInfoForErrors() {
    std::lock_guard<std::mutex> lock(c_extraContextMutex);
    if (!c_extraContextLines.empty())
        c_extraContextLines.pop_back();
}

CString QEvaluator::ContextInfo(bool include) {
    if (!include)
        return CString();
    std::lock_guard<std::mutex> lock(c_extraContextMutex);
    CString info;
    for (const auto& [line, second] : c_extraContextLines) {
        if (second.IsEmpty())
            info.AppendFormat(u"\nin\n\t%s", line);
        else
            info.AppendFormat(u"\nin\n\t%s\n\t%s", line, second);
    }
    return info;
}

// --- Failure reporters --------------------------------------------------------------------------

bool QEvaluator::Unknown(const CString& what, const CString& found) {
    if (IsReportErrors())
        m_message = u"Unknown " + what + u"\n\t" + found;
    return false;
}

bool QEvaluator::ActionOnly(const CString& found) {
    m_message = u"Only allowed in an action field" + FoundOrEndOfFormula(found);
    return false;
}

bool QEvaluator::ExpectingButFoundIn(const CString& what, const CString& found, const CString& in) {
    m_message = ExpectingText(what, in, found);
    return false;
}

bool QEvaluator::ExpectingAfterButFound(const CString& what, const CString& after,
                                        const CString& found) {
    m_message = ExpectingText(what + u" after " + after, CString(), found);
    return false;
}

bool QEvaluator::ExpectingMatchingButFound(const CString& what, const CString& forWhat,
                                           const CString& found) {
    m_message = ExpectingText(u"a matching " + what + u" for the " + forWhat, CString(), found);
    return false;
}

bool QEvaluator::ExpectingMatchingButFoundIn(const CString& what, const CString& forWhat,
                                             const CString& found, const CString& in) {
    m_message = ExpectingText(u"a matching " + what + u" for the " + forWhat, in, found);
    return false;
}

bool QEvaluator::ExpectingCommaOrParenthesisButFoundIn(const CString& found, const CString& in) {
    return ExpectingButFoundIn(u"a ',' or ')'", found, in);
}

bool QEvaluator::ErrorEvaluating(const CString& id) {
    m_message = u"Error in value of " + id;
    return false;
}

bool QEvaluator::ErrorEvaluatingFunction(const CString& id) {
    m_message = u"Error in calling function " + id;
    return false;
}

bool QEvaluator::ErrorEvaluatingAtOrHash(const CString& op) {
    m_message = u"Error in finding value for " + op;
    return false;
}

bool QEvaluator::ErrorEvaluatingWithFormula(const CString& id, const CString& formula) {
    m_message = u"Error in value of " + id + u"\n\t" + formula;
    return false;
}

// --- Helpers ------------------------------------------------------------------------------------

// A context has a name of its own when SimpleWhoAmI says something: WhoAmI would also count the
// names of its parents.
QFormulaContext* QEvaluator::FindContextWithName(QFormulaContext* context) {
    while (context && context->SimpleWhoAmI().IsEmpty())
        context = context->ParentContext();
    return context;
}

int QEvaluator::FindReverseInt(const CString& name) {
    int first = name.GetLength();
    while (first > 0 && name[first - 1] >= u'0' && name[first - 1] <= u'9')
        --first;
    if (first == name.GetLength())
        return -1;
    long long value = 0;
    for (int i = first; i < name.GetLength(); ++i) {
        value = value * 10 + (name[i] - u'0');
        if (value > INT_MAX)
            return INT_MAX;
    }
    return static_cast<int>(value);
}

} // namespace keel
