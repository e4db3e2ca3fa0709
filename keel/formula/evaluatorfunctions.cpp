#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"

#include <array>
#include <memory>
#include <vector>

namespace keel {

namespace {

using Arguments = std::vector<QAnyValue>;

constexpr int c_maxArguments = 7;

const char16_t* const c_countWords[] = {u"no value",     u"one value",   u"two values",
                                        u"three values", u"four values", u"five values",
                                        u"six values",   u"seven values"};

// The names that the dispatchers serve, with bodies here or in an application's extras. A name
// outside it is looked for among the application's own functions and the context's properties.
constexpr std::array<const char16_t*, 0> c_knownFunctionNames{};

// The functions that take a whole array at the first argument.
constexpr std::array c_arrayAwareFunctionNames{u"arraytostring",
                                               u"count",
                                               u"first",
                                               u"getat",
                                               u"setarrayvalue",
                                               u"last",
                                               u"middle",
                                               u"reverse",
                                               u"sort",
                                               u"compact",
                                               u"uniq",
                                               u"setvalue",
                                               u"showfriendlypages",
                                               u"showfriendlywizard"};

template <std::size_t N>
QMap<FullId, bool> MapOfNames(const std::array<const char16_t*, N>& names, unsigned buckets) {
    QMap<FullId, bool> map;
    map.InitHashTable(buckets);
    for (const char16_t* name : names)
        map[FullId(name)] = true;
    return map;
}

bool IsKnownFunction(FullId name) {
    static const QMap<FullId, bool> known = MapOfNames(c_knownFunctionNames, 199);
    return known.PLookup(name) != nullptr;
}

// Whether the function takes a whole array at that one-based position, so that an array there is
// not spread over calls.
bool IsArrayArgument(FullId name, int position) {
    static const QMap<FullId, bool> arrayAware = MapOfNames(c_arrayAwareFunctionNames, 17);
    static const FullId setvalue(u"setvalue");
    static const FullId showfriendlypages(u"showfriendlypages");
    static const FullId showfriendlywizard(u"showfriendlywizard");
    switch (position) {
    case 1:
        return arrayAware.PLookup(name) != nullptr;
    case 2:
        return name == setvalue;
    case 3:
    case 4:
        return name == showfriendlypages || name == showfriendlywizard;
    default:
        return false;
    }
}

CString CountWord(std::size_t count) {
    return c_countWords[count];
}

// --- The variable-argument functions, which parse their own arguments ---------------------------

bool EvaluateBranch(QEvaluator& evaluator, QAnyValue& value, bool taken) {
    if (taken)
        return evaluator.EvaluateBlock(value, true);
    QEvaluator::NoEval noEval(evaluator);
    return evaluator.EvaluateBlock(value, true);
}

// iff(c, a, b): only the branch taken runs; an error as a condition is not true, so the
// else-clause runs, as in the if statement.
bool EvaluateIff(QEvaluator& evaluator, QAnyValue& result) {
    static const CString iffFunction(u"IFF function");
    QAnyValue condition;
    if (!evaluator.EvaluateConditional(condition))
        return false;
    if (!evaluator.MatchChar(u','))
        return evaluator.ExpectingButFoundIn(u"',' between condition and then-clause",
                                             evaluator.ThisCharPlus(20), iffFunction);
    const bool evaluating = evaluator.IsEval();
    const bool takeThen = evaluating && condition.IsTRUE();
    QAnyValue thenValue;
    if (!EvaluateBranch(evaluator, thenValue, takeThen))
        return false;
    if (!evaluator.MatchChar(u','))
        return evaluator.ExpectingButFoundIn(u"',' between then-clause and else-clause",
                                             evaluator.ThisCharPlus(20), iffFunction);
    QAnyValue elseValue;
    if (!EvaluateBranch(evaluator, elseValue, evaluating && !takeThen))
        return false;
    if (!evaluator.MatchChar(u')'))
        return evaluator.ExpectingMatchingButFoundIn(u"')'", u"'('", evaluator.ThisCharPlus(20),
                                                     iffFunction);
    if (evaluating)
        result = takeThen ? thenValue : elseValue;
    return true;
}

// `handled` tells whether the name is one of them; the result is then the call's success.
bool EvaluateVariableArgumentFunction(QEvaluator& evaluator, QAnyValue& result, FullId name,
                                      bool& handled) {
    static const FullId iff(u"iff");
    static const FullId ifFunction(u"if");
    handled = true;
    if (name == iff || name == ifFunction)
        return EvaluateIff(evaluator, result);
    handled = false;
    return false;
}

// --- Bodies by count ----------------------------------------------------------------------------

bool WrongCount(QEvaluator& evaluator, FullId name, std::size_t count) {
    return evaluator.ExpectingButFoundIn(name.ToString(), CountWord(count),
                                         u"correct number of values");
}

bool CallBodies(QEvaluator& evaluator, QAnyValue& result, FullId name, const Arguments& a) {
    bool served = false;
    switch (a.size()) {
    case 0:
        served = evaluator.EvaluateSimpleFunctionExtras(result, name);
        break;
    case 1:
        served = evaluator.EvaluateUnaryFunctionExtras(result, name, a[0]);
        break;
    case 2:
        served = evaluator.EvaluateBinaryFunctionExtras(result, name, a[0], a[1]);
        break;
    case 3:
        served = evaluator.EvaluateTernaryFunctionExtras(result, name, a[0], a[1], a[2]);
        break;
    case 4:
        served = evaluator.EvaluateQuadaryFunctionExtras(result, name, a[0], a[1], a[2], a[3]);
        break;
    default:
        break;
    }
    return served || WrongCount(evaluator, name, a.size());
}

bool CallDerived(QEvaluator& evaluator, QAnyValue& result, FullId name, const Arguments& a) {
    switch (a.size()) {
    case 0:
        return evaluator.EvaluateSimpleFunctionDerived(result, name);
    case 1:
        return evaluator.EvaluateUnaryFunctionDerived(result, name, a[0]);
    case 2:
        return evaluator.EvaluateBinaryFunctionDerived(result, name, a[0], a[1]);
    case 3:
        return evaluator.EvaluateTernaryFunctionDerived(result, name, a[0], a[1], a[2]);
    case 4:
        return evaluator.EvaluateQuadaryFunctionDerived(result, name, a[0], a[1], a[2], a[3]);
    case 5:
        return evaluator.EvaluateQuintaryFunctionDerived(result, name, a[0], a[1], a[2], a[3],
                                                         a[4]);
    case 6:
        return evaluator.EvaluateSextaryFunctionDerived(result, name, a[0], a[1], a[2], a[3], a[4],
                                                        a[5]);
    default:
        return evaluator.EvaluateSeptaryFunctionDerived(result, name, a[0], a[1], a[2], a[3], a[4],
                                                        a[5], a[6]);
    }
}

// --- Array spreading ----------------------------------------------------------------------------

// Runs the bodies once a position, the arguments at `spread` taking their element there.
bool CallPerPosition(QEvaluator& evaluator, QAnyValue& result, FullId name, const Arguments& a,
                     const std::vector<std::size_t>& spread, int length) {
    QAnyValue elements{QArray<QAnyValue>()};
    for (int position = 1; position <= length; ++position) {
        Arguments atPosition = a;
        for (std::size_t i : spread)
            atPosition[i] = a[i].GETAT(position);
        QAnyValue element;
        if (!CallBodies(evaluator, element, name, atPosition))
            return false;
        elements.APPENDITEMit(element);
    }
    result = elements;
    return true;
}

int ExtendSpreadArrays(Arguments& a, const std::vector<std::size_t>& spread) {
    switch (spread.size()) {
    case 2:
        return QAnyValue::ExtendArrays(a[spread[0]], a[spread[1]]);
    case 3:
        return QAnyValue::ExtendArrays(a[spread[0]], a[spread[1]], a[spread[2]]);
    default:
        return QAnyValue::ExtendArrays(a[spread[0]], a[spread[1]], a[spread[2]], a[spread[3]]);
    }
}

// An array where the function takes a scalar is spread: one array gives a call per element;
// with three or four arguments, several arrays are brought to one length and spread together.
// Anything else runs unchanged, and the value operations decide what arrays mean.
bool CallSpreadingArrays(QEvaluator& evaluator, QAnyValue& result, FullId name,
                         const Arguments& a) {
    std::vector<std::size_t> spread;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i].IsArray() && !IsArrayArgument(name, static_cast<int>(i) + 1))
            spread.push_back(i);
    if (spread.size() == 1)
        return CallPerPosition(evaluator, result, name, a, spread, a[spread[0]].GetSize());
    if (spread.size() >= 2 && (a.size() == 3 || a.size() == 4)) {
        Arguments extended = a;
        const int length = ExtendSpreadArrays(extended, spread);
        return CallPerPosition(evaluator, result, name, extended, spread, length);
    }
    return CallBodies(evaluator, result, name, a);
}

// --- Names that are no built-in function --------------------------------------------------------

// "function taking no values" is plural, unlike the count word of no arguments.
CString FunctionTaking(std::size_t count) {
    return count == 0 ? CString(u"function taking no values")
                      : u"function taking " + CountWord(count);
}

// The value of the name in the context, for a call with `count` arguments.
bool LookUpFunctionValue(QEvaluator& evaluator, QAnyValue& value, FullId name, std::size_t count) {
    QFormulaContext* context = evaluator.Context();
    if (!context)
        return evaluator.Unknown(FunctionTaking(count), name.ToString());
    bool error = false;
    QCacheState state = QCS_Stable;
    const bool found = context->LookupValue(name, value, error, state, false, evaluator.IsDebug(),
                                            !evaluator.IsAction());
    evaluator.RaiseCacheState(state);
    if (!found)
        return evaluator.Unknown(FunctionTaking(count), name.ToString());
    if (error)
        return evaluator.ErrorEvaluatingFunction(name.ToString());
    error = false;
    state = QCS_Stable;
    const bool foundAgain =
        context->LookupValue(name, value, error, state, evaluator.IsPassThrough(),
                             evaluator.IsDebug(), !evaluator.IsAction());
    evaluator.RaiseCacheState(state);
    // The one-argument form of this report has always said "one values".
    if (!foundAgain)
        return evaluator.Unknown(count == 1 ? CString(u"function taking one values")
                                            : FunctionTaking(count),
                                 name.ToString());
    if (error)
        return evaluator.ErrorEvaluatingFunction(name.ToString());
    return true;
}

bool LookUpSimpleFunctionValue(QEvaluator& evaluator, QAnyValue& value, FullId name) {
    QFormulaContext* context = evaluator.Context();
    if (!context)
        return evaluator.Unknown(FunctionTaking(0), name.ToString());
    bool error = false;
    QCacheState state = QCS_Stable;
    const bool found = context->LookupValue(name, value, error, state, evaluator.IsPassThrough(),
                                            evaluator.IsDebug(), !evaluator.IsAction());
    evaluator.RaiseCacheState(state);
    if (!found)
        return evaluator.Unknown(FunctionTaking(0), name.ToString());
    if (error)
        return evaluator.ErrorEvaluatingFunction(name.ToString());
    return true;
}

// A local variable or a constant called with arguments: its value, as a context's would be.
bool FindLocalValue(QEvaluator& evaluator, QAnyValue& value, FullId name) {
    const CString text = name.ToString();
    if (text.Find(u'.') >= 0)
        return false;
    const PropId simple(text);
    if (evaluator.GetVar(simple, value))
        return true;
    return evaluator.EvaluateNamedConstant(value, simple);
}

// An array called with one argument is subscripted by it, from 1.
void Subscript(QAnyValue& result, const QAnyValue& array, const QAnyValue& index) {
    if (index.IsErrorOrNA()) {
        result = index;
        return;
    }
    if (!index.IsArray()) {
        result = array;
        result.GETATit(QAnyValue(index).MakeInt());
        return;
    }
    QAnyValue elements{QArray<QAnyValue>()};
    QAnyValue indexes = index;
    for (QAnyValue& position : indexes.MakeArray())
        elements.APPENDITEMit(array.GETAT(position.MakeInt()));
    result = elements;
}

// A property's text run as a function: the arguments are %1, %2, ... of the body.
bool CallUserDefinedFunction(QEvaluator& evaluator, QAnyValue& result, FullId name, QAnyValue& body,
                             const Arguments& a) {
    CString text = body.MakeCString();
    text.TrimLeft(u"=:");
    const FormulaText formula(text);
    QFormulaContext* context = evaluator.Context();
    context->ForgetThisFormulaValueForNextTime(formula);
    bool succeeded = false;
    {
        const std::unique_ptr<QEvaluator> inner(
            QEvaluator::New(result, formula, context, evaluator.IsPassThrough(),
                            evaluator.IsReportErrors(), evaluator.IsAction()));
        for (std::size_t i = 0; i < a.size(); ++i)
            inner->SetArg(static_cast<int>(i) + 1, a[i]);
        inner->SetDebug(evaluator.IsDebug());
        succeeded = inner->Evaluate();
        evaluator.RaiseCacheState(inner->CacheState());
    }
    context->ForgetThisFormulaValueForNextTime(formula);
    return succeeded || evaluator.ErrorEvaluatingFunction(name.ToString());
}

bool CallUnknownFunction(QEvaluator& evaluator, QAnyValue& result, FullId name,
                         const Arguments& a) {
    if (evaluator.IsDerivedClassDefined(name))
        return CallDerived(evaluator, result, name, a);
    QAnyValue value;
    if (a.empty()) {
        if (!LookUpSimpleFunctionValue(evaluator, value, name))
            return false;
    } else if (!FindLocalValue(evaluator, value, name) &&
               !LookUpFunctionValue(evaluator, value, name, a.size())) {
        return false;
    }
    if (value.IsArray() && a.size() == 1) {
        Subscript(result, value, a[0]);
        return true;
    }
    if (!evaluator.Context())
        return evaluator.Unknown(FunctionTaking(a.size()), name.ToString());
    return CallUserDefinedFunction(evaluator, result, name, value, a);
}

bool Dispatch(QEvaluator& evaluator, QAnyValue& result, FullId name, const Arguments& a) {
    if (evaluator.IsNoEval())
        return true;
    if (!IsKnownFunction(name))
        return CallUnknownFunction(evaluator, result, name, a);
    return CallSpreadingArrays(evaluator, result, name, a);
}

} // namespace

bool QEvaluator::EvaluateFunction(QAnyValue& result, FullId name) {
    bool handled = false;
    const bool succeeded = EvaluateVariableArgumentFunction(*this, result, name, handled);
    if (handled)
        return succeeded;
    if (MatchChar(u')'))
        return EvaluateSimpleFunction(result, name);

    // Reports are off for a scope, for the functions that ask whether their argument fails.
    class QuietReports {
    public:
        explicit QuietReports(QEvaluator& evaluator)
            : m_evaluator(evaluator), m_reportErrors(evaluator.IsReportErrors()),
              m_noReports(NoEvalReportErrors()) {
            m_evaluator.SetFlag(c_reportErrors, false);
            SetNoEvalReportErrors(true);
        }
        ~QuietReports() {
            m_evaluator.SetFlag(c_reportErrors, m_reportErrors);
            SetNoEvalReportErrors(m_noReports);
        }
        QuietReports(const QuietReports&) = delete;
        QuietReports& operator=(const QuietReports&) = delete;

    private:
        QEvaluator& m_evaluator;
        bool m_reportErrors;
        bool m_noReports;
    };

    const bool quiet = RequiresEvaluationWithNoErrorReporting(name);
    Arguments a;
    while (true) {
        QAnyValue value;
        if (quiet) {
            bool evaluated = false;
            {
                QuietReports quietReports(*this);
                evaluated = EvaluateBlock(value, true);
            }
            // The question is about the error, so a failure is the argument's value.
            if (!evaluated) {
                value.MakeError(m_message);
                m_message.Empty();
            }
        } else if (!EvaluateBlock(value, true)) {
            return false;
        }
        a.push_back(value);
        if (MatchChar(u')'))
            break;
        if (a.size() == c_maxArguments)
            return ExpectingButFoundIn(u"')'", ThisCharPlus(20), name.ToString());
        // The name goes in as what was found and the text that follows as where: the message
        // reads "in <text>, but found <name>", and users have long seen it so.
        if (!MatchChar(u','))
            return ExpectingCommaOrParenthesisButFoundIn(name.ToString(), ThisCharPlus(20));
    }
    return Dispatch(*this, result, name, a);
}

bool QEvaluator::EvaluateSimpleFunction(QAnyValue& result, FullId name) {
    return Dispatch(*this, result, name, {});
}

bool QEvaluator::EvaluateUnaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1) {
    return Dispatch(*this, result, name, {a1});
}

bool QEvaluator::EvaluateBinaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                        const QAnyValue& a2) {
    return Dispatch(*this, result, name, {a1, a2});
}

bool QEvaluator::EvaluateTernaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                         const QAnyValue& a2, const QAnyValue& a3) {
    return Dispatch(*this, result, name, {a1, a2, a3});
}

bool QEvaluator::EvaluateQuadaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                         const QAnyValue& a2, const QAnyValue& a3,
                                         const QAnyValue& a4) {
    return Dispatch(*this, result, name, {a1, a2, a3, a4});
}

bool QEvaluator::EvaluateQuintaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                          const QAnyValue& a2, const QAnyValue& a3,
                                          const QAnyValue& a4, const QAnyValue& a5) {
    return Dispatch(*this, result, name, {a1, a2, a3, a4, a5});
}

bool QEvaluator::EvaluateSextaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                         const QAnyValue& a2, const QAnyValue& a3,
                                         const QAnyValue& a4, const QAnyValue& a5,
                                         const QAnyValue& a6) {
    return Dispatch(*this, result, name, {a1, a2, a3, a4, a5, a6});
}

bool QEvaluator::EvaluateSeptaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                         const QAnyValue& a2, const QAnyValue& a3,
                                         const QAnyValue& a4, const QAnyValue& a5,
                                         const QAnyValue& a6, const QAnyValue& a7) {
    return Dispatch(*this, result, name, {a1, a2, a3, a4, a5, a6, a7});
}

} // namespace keel
