#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/formula/builtins.h"
#include "keel/formula/evaluatingdata.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorshared.h"
#include "keel/formula/formulacontext.h"

#include <array>
#include <memory>
#include <utility>
#include <vector>

namespace keel {

namespace {

using Arguments = std::vector<QAnyValue>;

const char16_t* const c_countWords[] = {u"no value",     u"one value",   u"two values",
                                        u"three values", u"four values", u"five values",
                                        u"six values",   u"seven values"};

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

// The names that the dispatchers serve, with bodies here or in an application's extras. A name
// outside it is looked for among the application's own functions and the context's properties.
const QMap<FullId, const QBuiltinFunction*>& KnownFunctions() {
    static const QMap<FullId, const QBuiltinFunction*> known = [] {
        QMap<FullId, const QBuiltinFunction*> map;
        map.InitHashTable(199);
        for (const QBuiltinGroup* group : BuiltinGroups())
            for (const QBuiltinFunction& function : group->functions)
                if (!map.PLookup(FullId(function.name)))
                    map[FullId(function.name)] = &function;
        return map;
    }();
    return known;
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

// Parses the arguments up to the ")", each by `argument`, which returns false on a failure.
template <class Argument>
bool ParseArguments(QEvaluator& evaluator, FullId name, Argument argument) {
    while (true) {
        if (!argument())
            return false;
        if (evaluator.MatchChar(u')'))
            return true;
        if (!evaluator.MatchChar(u','))
            return evaluator.ExpectingCommaOrParenthesisButFoundIn(name.ToString(),
                                                                   evaluator.ThisCharPlus(20));
    }
}

// Every argument evaluated as a block; `take` sees each value when evaluation is on.
template <class Take>
bool ForEachValue(QEvaluator& evaluator, FullId name, Take take) {
    return ParseArguments(evaluator, name, [&] {
        QAnyValue value;
        if (!evaluator.EvaluateBlock(value, true))
            return false;
        if (evaluator.IsEval())
            take(value);
        return true;
    });
}

// and(...) and or(...): once the outcome is fixed the rest is only parsed.
bool EvaluateAndOr(QEvaluator& evaluator, QAnyValue& result, FullId name, bool isAnd) {
    QAnyValue outcome(isAnd);
    bool fixed = false;
    const bool parsed = ParseArguments(evaluator, name, [&] {
        QAnyValue value;
        if (fixed || evaluator.IsNoEval()) {
            QEvaluator::NoEval noEval(evaluator);
            return evaluator.EvaluateConditional(value);
        }
        if (!evaluator.EvaluateConditional(value))
            return false;
        if (isAnd) {
            outcome.ANDit(value.ANDOVERit());
            fixed = outcome.IsFALSE();
        } else {
            outcome.ORit(value.OROVERit());
            fixed = outcome.IsTRUE();
        }
        return true;
    });
    if (parsed && evaluator.IsEval())
        result = outcome;
    return parsed;
}

bool EvaluateMinMax(QEvaluator& evaluator, QAnyValue& result, FullId name, bool isMin) {
    walk::Extreme extreme(isMin);
    const bool parsed =
        ForEachValue(evaluator, name, [&](QAnyValue& value) { extreme.Take(value); });
    if (parsed && evaluator.IsEval())
        result = extreme.Result();
    return parsed;
}

// An array folded by `operation` from its first element; an empty one gives `unit`.
QAnyValue& FoldArray(QAnyValue& value, QAnyValue& (QAnyValue::*operation)(const QAnyValue&),
                     const QAnyValue& unit) {
    if (!value.IsArray())
        return value;
    const QArray<QAnyValue> elements = value.MakeArray();
    if (elements.GetSize() == 0)
        return value = unit;
    value = elements[0];
    for (int i = 1; i < elements.GetSize(); ++i)
        (value.*operation)(elements[i]);
    return value;
}

QAnyValue& Square(QAnyValue& value) {
    const QAnyValue factor = value;
    return value *= factor;
}

QAnyValue& SumOfSquares(QAnyValue& value) {
    if (!value.IsArray())
        return Square(value);
    for (QAnyValue& element : value.MakeArray())
        Square(element);
    return value.SUMOVERit();
}

enum class Total { Sum, SumOfSquares, Product, Average };

// Each value is folded first if it is an array; the first value is taken as it is and the
// others are added, or multiplied. The average divides by the count of values given.
bool EvaluateTotal(QEvaluator& evaluator, QAnyValue& result, FullId name, Total total) {
    QAnyValue outcome;
    int count = 0;
    const bool parsed = ForEachValue(evaluator, name, [&](QAnyValue& value) {
        switch (total) {
        case Total::Sum:
            value.SUMOVERit();
            break;
        case Total::SumOfSquares:
            SumOfSquares(value);
            break;
        case Total::Product:
            FoldArray(value, &QAnyValue::operator*=, QAnyValue(1));
            break;
        case Total::Average:
            value.AVERAGEOVERit();
            break;
        }
        if (count++ == 0)
            outcome = value;
        else if (total == Total::Product)
            outcome *= value;
        else
            outcome += value;
    });
    if (!parsed || evaluator.IsNoEval())
        return parsed;
    result = total == Total::Average ? outcome / QAnyValue(count) : outcome;
    return true;
}

bool EvaluateConcatenate(QEvaluator& evaluator, QAnyValue& result, FullId name) {
    QAnyValue text{CString()};
    const bool parsed = ForEachValue(
        evaluator, name, [&](QAnyValue& value) { text.CONCATit(value.CONCATENATEOVERit()); });
    if (parsed && evaluator.IsEval())
        result = text;
    return parsed;
}

bool EvaluateJoin(QEvaluator& evaluator, QAnyValue& result, FullId name) {
    QAnyValue joined;
    const bool parsed =
        ForEachValue(evaluator, name, [&](QAnyValue& value) { joined.JOINit(value); });
    if (parsed && evaluator.IsEval())
        result = joined;
    return parsed;
}

// array() with nothing between the parentheses is the empty array.
bool EvaluateArray(QEvaluator& evaluator, QAnyValue& result, FullId name) {
    QAnyValue elements{QArray<QAnyValue>()};
    const bool parsed =
        evaluator.MatchChar(u')') ||
        ForEachValue(evaluator, name, [&](QAnyValue& value) { elements.APPENDITEMit(value); });
    if (parsed && evaluator.IsEval())
        result = elements;
    return parsed;
}

// choose(i, a, b, ...): only the i-th value after the index is evaluated. An index that is an
// error or N/A is the result; one out of range gives the empty value.
bool EvaluateChoose(QEvaluator& evaluator, QAnyValue& result, FullId name) {
    QAnyValue index;
    if (!evaluator.EvaluateBlock(index, true))
        return false;
    if (!evaluator.MatchChar(u','))
        return evaluator.ExpectingAfterButFound(u"','", u"index value in choose",
                                                evaluator.ThisCharPlus(20));
    const bool evaluating = evaluator.IsEval();
    QAnyValue chosen;
    int wanted = 0;
    if (evaluating) {
        QAnyValue number = index;
        wanted = number.MakeInt();
        if (number.IsErrorOrNA())
            chosen = number;
    }
    int position = 0;
    const bool parsed = ParseArguments(evaluator, name, [&] {
        ++position;
        if (evaluating && position == wanted && !chosen.IsErrorOrNA())
            return evaluator.EvaluateBlock(chosen, true);
        QEvaluator::NoEval noEval(evaluator);
        QAnyValue skipped;
        return evaluator.EvaluateBlock(skipped, true);
    });
    if (parsed && evaluating)
        result = chosen;
    return parsed;
}

bool ExpectClosingParenthesis(QEvaluator& evaluator, const char16_t* in) {
    return evaluator.MatchChar(u')') ||
           evaluator.ExpectingMatchingButFoundIn(u"')'", u"'('", evaluator.ThisCharPlus(20), in);
}

// Whether the function is one that data being read must not call; it is then refused as an
// action-only function is outside an action field.
bool RefusedInData(QEvaluator& evaluator, FullId name) {
    return evaluator.IsEval() && QEvaluatingData::InForce() && QEvaluatingData::Refuses(name);
}

// debug(e): the value of e, with every look-up on the way shown.
bool EvaluateDebug(QEvaluator& evaluator, QAnyValue& result) {
    static const FullId debug(u"debug");
    if (RefusedInData(evaluator, debug))
        return evaluator.ActionOnly(evaluator.ThisCharPlus(20));
    if (evaluator.IsEval())
        TheErrorLog().DiscardPendingMessages();
    const bool wasDebug = evaluator.IsDebug();
    evaluator.SetDebug(true);
    QAnyValue value;
    const bool evaluated = evaluator.EvaluateBlock(value, true);
    evaluator.SetDebug(wasDebug);
    if (!evaluated || !ExpectClosingParenthesis(evaluator, u"DEBUG function"))
        return false;
    if (evaluator.IsEval())
        result = value;
    return true;
}

// defined(name): whether a variable or a name in the context exists; the name is not evaluated.
bool EvaluateDefined(QEvaluator& evaluator, QAnyValue& result) {
    const short start = evaluator.SaveCursor();
    FullId name;
    bool simple = true;
    if (!evaluator.ParseVarnameWithDot(name, simple))
        return evaluator.SaveCursor() != start
                   ? false
                   : evaluator.ExpectingButFoundIn(u"variable name", evaluator.ThisCharPlus(20),
                                                   u"DEFINED function");
    if (!ExpectClosingParenthesis(evaluator, u"DEFINED function"))
        return false;
    if (evaluator.IsEval())
        result = evaluator.IsIdentifierDefined(name);
    return true;
}

enum VariableArgumentFunction {
    Debug,
    Defined,
    Iff,
    And,
    Or,
    Min,
    Max,
    Sum,
    SumSq,
    Product,
    Average,
    Concatenate,
    Join,
    Choose,
    Array
};

const QMap<FullId, int>& VariableArgumentFunctionNames() {
    static const QMap<FullId, int> functions = [] {
        const std::pair<const char16_t*, VariableArgumentFunction> names[] = {
            {u"debug", Debug},
            {u"defined", Defined},
            {u"iff", Iff},
            {u"if", Iff},
            {u"and", And},
            {u"or", Or},
            {u"min", Min},
            {u"max", Max},
            {u"average", Average},
            {u"sum", Sum},
            {u"sumsq", SumSq},
            {u"product", Product},
            {u"concatenate", Concatenate},
            {u"join", Join},
            {u"choose", Choose},
            {u"array", Array}};
        QMap<FullId, int> map;
        for (const auto& [text, function] : names)
            map[FullId(text)] = function;
        return map;
    }();
    return functions;
}

// `handled` tells whether the name is one of them; the result is then the call's success.
bool EvaluateVariableArgumentFunction(QEvaluator& evaluator, QAnyValue& result, FullId name,
                                      bool& handled) {
    const QMap<FullId, int>& functions = VariableArgumentFunctionNames();
    const auto* found = functions.PLookup(name);
    handled = found != nullptr;
    if (!handled)
        return false;
    switch (static_cast<VariableArgumentFunction>(found->value)) {
    case Debug:
        return EvaluateDebug(evaluator, result);
    case Defined:
        return EvaluateDefined(evaluator, result);
    case Iff:
        return EvaluateIff(evaluator, result);
    case And:
        return EvaluateAndOr(evaluator, result, name, true);
    case Or:
        return EvaluateAndOr(evaluator, result, name, false);
    case Min:
        return EvaluateMinMax(evaluator, result, name, true);
    case Max:
        return EvaluateMinMax(evaluator, result, name, false);
    case Sum:
        return EvaluateTotal(evaluator, result, name, Total::Sum);
    case SumSq:
        return EvaluateTotal(evaluator, result, name, Total::SumOfSquares);
    case Product:
        return EvaluateTotal(evaluator, result, name, Total::Product);
    case Average:
        return EvaluateTotal(evaluator, result, name, Total::Average);
    case Concatenate:
        return EvaluateConcatenate(evaluator, result, name);
    case Join:
        return EvaluateJoin(evaluator, result, name);
    case Choose:
        return EvaluateChoose(evaluator, result, name);
    case Array:
        return EvaluateArray(evaluator, result, name);
    }
    return false;
}

// --- Bodies by count ----------------------------------------------------------------------------

bool WrongCount(QEvaluator& evaluator, FullId name, std::size_t count) {
    return evaluator.ExpectingButFoundIn(name.ToString(), CountWord(count),
                                         u"correct number of values");
}

bool CallExtras(QEvaluator& evaluator, QAnyValue& result, FullId name, const Arguments& a) {
    switch (a.size()) {
    case 0:
        return evaluator.EvaluateSimpleFunctionExtras(result, name);
    case 1:
        return evaluator.EvaluateUnaryFunctionExtras(result, name, a[0]);
    case 2:
        return evaluator.EvaluateBinaryFunctionExtras(result, name, a[0], a[1]);
    case 3:
        return evaluator.EvaluateTernaryFunctionExtras(result, name, a[0], a[1], a[2]);
    case 4:
        return evaluator.EvaluateQuadaryFunctionExtras(result, name, a[0], a[1], a[2], a[3]);
    default:
        return false;
    }
}

bool TakesCount(const QBuiltinFunction& function, std::size_t count) {
    const int n = static_cast<int>(count);
    return n >= function.minArgs &&
           (function.maxArgs == c_builtinAnyCount || n <= function.maxArgs);
}

// The function's own body, then the application's extras, then the report of the count.
bool CallBodies(QEvaluator& evaluator, QAnyValue& result, const QBuiltinFunction& function,
                FullId name, const Arguments& a) {
    if (function.body && TakesCount(function, a.size())) {
        if (function.actionOnly && !evaluator.IsAction())
            return evaluator.ActionOnly(evaluator.ThisCharPlus(20));
        QBuiltinCall call{evaluator, result, name, a};
        bool succeeded = false;
        if (function.body(call, succeeded))
            return succeeded;
    }
    return CallExtras(evaluator, result, name, a) || WrongCount(evaluator, name, a.size());
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
bool CallPerPosition(QEvaluator& evaluator, QAnyValue& result, const QBuiltinFunction& function,
                     FullId name, const Arguments& a, const std::vector<std::size_t>& spread,
                     int length) {
    QAnyValue elements{QArray<QAnyValue>()};
    for (int position = 1; position <= length; ++position) {
        Arguments atPosition = a;
        for (std::size_t i : spread)
            atPosition[i] = a[i].GETAT(position);
        QAnyValue element;
        if (!CallBodies(evaluator, element, function, name, atPosition))
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
bool CallSpreadingArrays(QEvaluator& evaluator, QAnyValue& result, const QBuiltinFunction& function,
                         FullId name, const Arguments& a) {
    std::vector<std::size_t> spread;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i].IsArray() && !IsArrayArgument(name, static_cast<int>(i) + 1))
            spread.push_back(i);
    if (spread.size() == 1)
        return CallPerPosition(evaluator, result, function, name, a, spread,
                               a[spread[0]].GetSize());
    if (spread.size() >= 2 && (a.size() == 3 || a.size() == 4)) {
        Arguments extended = a;
        const int length = ExtendSpreadArrays(extended, spread);
        return CallPerPosition(evaluator, result, function, name, extended, spread, length);
    }
    return CallBodies(evaluator, result, function, name, a);
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
    const QEvaluator::RoutineLevel level;
    if (level.IsTooDeep()) {
        static const QTString looping(
            u"Stack depth exceeded, formula looping calling function [%s]:\n%s",
            u"Message box (id,formula)");
        result.MakeError(CString::Formatted(looping, name.ToString(), text));
        return true;
    }
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
    if (RefusedInData(evaluator, name))
        return evaluator.ActionOnly(evaluator.ThisCharPlus(20));
    const QBuiltinFunction* function = FindBuiltinFunction(name);
    if (!function)
        return CallUnknownFunction(evaluator, result, name, a);
    return CallSpreadingArrays(evaluator, result, *function, name, a);
}

} // namespace

const QBuiltinGroup& ApplicationFunctions() {
    static constexpr QBuiltinFunction functions[] = {
        {u"_oneditchange", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"_onopenpage", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"_systemaction", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"_updateprops", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"addtocatalog", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"addtolibrary", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"averagecolor", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"export", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"exportdata", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"exportdatamin", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"exportdoc3d", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"exportitem3d", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"hascatalog", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"merge", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"previewcurrent", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"previewdonorfaceshadows", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"previewelevation", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"previewhilite", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"previewmachining", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"previewshowmachining", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"previewtype", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"report", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"savedrawing", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"transformtolocalx", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"transformtolocaly", 0, c_builtinAnyCount, u"...", false, nullptr},
        {u"writehostdxf", 0, c_builtinAnyCount, u"...", false, nullptr},
    };
    static const QBuiltinGroup group{u"Served by the application", functions};
    return group;
}

const QBuiltinGroup& VariableArgumentFunctions() {
    static constexpr QBuiltinFunction functions[] = {
        {u"debug", 1, 1, u"e", false, nullptr},
        {u"defined", 1, 1, u"name", false, nullptr},
        {u"iff", 3, 3, u"c, a, b", false, nullptr},
        {u"if", 3, 3, u"c, a, b", false, nullptr},
        {u"and", 1, c_builtinAnyCount, u"b, ...", false, nullptr},
        {u"or", 1, c_builtinAnyCount, u"b, ...", false, nullptr},
        {u"min", 1, c_builtinAnyCount, u"v, ...", false, nullptr},
        {u"max", 1, c_builtinAnyCount, u"v, ...", false, nullptr},
        {u"average", 1, c_builtinAnyCount, u"v, ...", false, nullptr},
        {u"sum", 1, c_builtinAnyCount, u"v, ...", false, nullptr},
        {u"sumsq", 1, c_builtinAnyCount, u"v, ...", false, nullptr},
        {u"product", 1, c_builtinAnyCount, u"v, ...", false, nullptr},
        {u"concatenate", 1, c_builtinAnyCount, u"v, ...", false, nullptr},
        {u"join", 1, c_builtinAnyCount, u"v, ...", false, nullptr},
        {u"choose", 2, c_builtinAnyCount, u"i, a, b, ...", false, nullptr},
        {u"array", 0, c_builtinAnyCount, u"v, ...", false, nullptr},
    };
    static const QBuiltinGroup group{u"Logic and control, variable arguments", functions};
    return group;
}

const QBuiltinFunction* FindBuiltinFunction(FullId name) {
    const auto* pair = KnownFunctions().PLookup(name);
    return pair ? pair->value : nullptr;
}

int KnownFunctionCount() {
    return KnownFunctions().GetCount();
}

std::span<const QBuiltinGroup* const> BuiltinGroups() {
    static const std::array<const QBuiltinGroup*, 11> groups{
        &LogicFunctions(),   &ConversionFunctions(), &MathFunctions(),       &StringFunctions(),
        &ArrayFunctions(),   &TableFunctions(),      &DatabaseFunctions(),   &FileFunctions(),
        &ContextFunctions(), &WindowFunctions(),     &ApplicationFunctions()};
    return groups;
}

bool TakeErrorArgument(QBuiltinCall& call) {
    for (const QAnyValue& argument : call.args)
        if (argument.IsErrorOrNA()) {
            call.result = argument;
            return true;
        }
    return false;
}

bool CallWithDefault(QBuiltinCall& call, const QAnyValue& defaultValue) {
    Arguments a = call.args;
    a.push_back(defaultValue);
    return Dispatch(call.evaluator, call.result, call.name, a);
}

QEvaluator::QuietReports::QuietReports(QEvaluator& evaluator)
    : m_evaluator(evaluator), m_reportErrors(evaluator.IsReportErrors()),
      m_noReports(NoEvalReportErrors()) {
    m_evaluator.SetFlag(c_reportErrors, false);
    SetNoEvalReportErrors(true);
}

QEvaluator::QuietReports::~QuietReports() {
    m_evaluator.SetFlag(c_reportErrors, m_reportErrors);
    SetNoEvalReportErrors(m_noReports);
}

void walk::Extreme::Take(QAnyValue& value) {
    value.MakeAllNumeric();
    if (m_isMin)
        value.MINOVERit();
    else
        value.MAXOVERit();
    if (m_first) {
        m_best = value;
        m_first = false;
        return;
    }
    bool failed = false;
    const int order = value.Compare(m_best, failed);
    if (failed)
        m_best.MakeError(m_isMin ? u"Cannot compare in MIN()" : u"Cannot compare in MAX()");
    else if (m_isMin ? order < 0 : order > 0)
        m_best = value;
}

walk::OwnArguments walk::OwnArgumentsOf(FullId name) {
    const auto* found = VariableArgumentFunctionNames().PLookup(name);
    if (!found)
        return OwnArguments::None;
    switch (static_cast<VariableArgumentFunction>(found->value)) {
    case Iff:
        return OwnArguments::Iff;
    case Min:
        return OwnArguments::Min;
    case Max:
        return OwnArguments::Max;
    default:
        return OwnArguments::Other;
    }
}

bool walk::CallFunction(QEvaluator& evaluator, QAnyValue& result, FullId name,
                        const std::vector<QAnyValue>& arguments) {
    return Dispatch(evaluator, result, name, arguments);
}

bool QEvaluator::EvaluateFunction(QAnyValue& result, FullId name) {
    bool handled = false;
    const bool succeeded = EvaluateVariableArgumentFunction(*this, result, name, handled);
    if (handled)
        return succeeded;
    if (MatchChar(u')'))
        return EvaluateSimpleFunction(result, name);

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
        if (a.size() == walk::c_maxArguments)
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
