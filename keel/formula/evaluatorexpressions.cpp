#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorshared.h"
#include "keel/formula/formulacontext.h"
#include "keel/formula/withformula.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <vector>

namespace keel {

namespace {

// How many deferred string formulas are being evaluated inside each other, process-wide.
std::atomic<int> c_deferredDepth{0};

} // namespace

namespace walk {

const ExpressionWords& ExpressionWord() {
    static const ExpressionWords words;
    return words;
}

// --- Unit words ---------------------------------------------------------------------------------

struct UnitSpelling {
    PropId id;
    const UnitWord* unit;
};

const std::vector<UnitSpelling>& UnitSpellings() {
    static const std::vector<UnitSpelling> spellings = [] {
        std::vector<UnitSpelling> all;
        for (const UnitWord& unit : UnitWords())
            for (const char16_t* spelling : unit.spellings)
                if (spelling != nullptr)
                    all.push_back({PropId(spelling), &unit});
        return all;
    }();
    return spellings;
}

const UnitWord* UnitWordOf(const QToken* token) {
    if (token == nullptr || !token->IsId())
        return nullptr;
    const PropId id = token->Id();
    for (const UnitSpelling& spelling : UnitSpellings())
        if (spelling.id == id)
            return spelling.unit;
    return nullptr;
}

void ApplyUnit(QAnyValue& value, const UnitWord& unit) {
    if (value.IsErrorOrNA() || value.IsEmpty() || value.IsType(unit.alreadyType))
        return;
    value = ValueInUnit(value.MakeDouble(), unit);
}

// --- Operators ----------------------------------------------------------------------------------

Comparison Negated(Comparison comparison) {
    switch (comparison) {
    case Comparison::EQ:
        return Comparison::NE;
    case Comparison::NE:
        return Comparison::EQ;
    case Comparison::LT:
        return Comparison::GE;
    case Comparison::GE:
        return Comparison::LT;
    case Comparison::LE:
        return Comparison::GT;
    case Comparison::GT:
        return Comparison::LE;
    case Comparison::None:
        break;
    }
    return Comparison::None;
}

// The pairs first, so that ">=" is not taken for ">".
Comparison MatchComparisonOperator(QEvaluator& evaluator) {
    if (evaluator.MatchCharPair(u'>', u'='))
        return Comparison::GE;
    if (evaluator.MatchCharPair(u'<', u'='))
        return Comparison::LE;
    if (evaluator.MatchCharPair(u'<', u'>') || evaluator.MatchCharPair(u'!', u'='))
        return Comparison::NE;
    if (evaluator.MatchCharPair(u'=', u'=') || evaluator.MatchChar(u'='))
        return Comparison::EQ;
    if (evaluator.MatchChar(u'>'))
        return Comparison::GT;
    if (evaluator.MatchChar(u'<'))
        return Comparison::LT;
    return Comparison::None;
}

void ApplyComparison(QAnyValue& left, Comparison comparison, const QAnyValue& right) {
    switch (comparison) {
    case Comparison::EQ:
        left.EQit(right);
        break;
    case Comparison::NE:
        left.NEit(right);
        break;
    case Comparison::LT:
        left.LTit(right);
        break;
    case Comparison::LE:
        left.LEit(right);
        break;
    case Comparison::GT:
        left.GTit(right);
        break;
    case Comparison::GE:
        left.GEit(right);
        break;
    case Comparison::None:
        break;
    }
}

void ApplyBetween(QAnyValue& value, const QAnyValue& low, const QAnyValue& high, bool exclusive,
                  bool negate) {
    bool lowFailed = false;
    bool highFailed = false;
    const int lowSign = low.Compare(value, lowFailed);
    const int highSign = high.Compare(value, highFailed);
    if (lowFailed || highFailed) {
        value.MakeError(CString(u"Cannot compare with limits in BETWEEN"));
        return;
    }
    const bool inside = exclusive ? lowSign < 0 && highSign > 0 : lowSign <= 0 && highSign >= 0;
    value.TRUEFALSEit(inside != negate ? 1 : 0);
}

bool UnknownArgument(QEvaluator& evaluator, int index) {
    return evaluator.Unknown(u"argument",
                             CString::Formatted(u"%%%d\n\tOr maybe caused by User Defined "
                                                u"Function trying to evaluate parameter %%%d "
                                                u"when %d",
                                                index, index, evaluator.ArgCount()));
}

} // namespace walk

namespace {

using namespace walk;

// The unit word at the cursor, taken; null when the next token is none.
const UnitWord* MatchUnitWord(QEvaluator& evaluator) {
    const UnitWord* unit = UnitWordOf(evaluator.ThisToken());
    if (unit != nullptr)
        evaluator.NextToken();
    return unit;
}

const ExpressionWords& Word() {
    return ExpressionWord();
}

bool CompareWithRight(QEvaluator& evaluator, QAnyValue& left, Comparison comparison) {
    QAnyValue right;
    if (!evaluator.EvaluateConcat(right))
        return false;
    if (evaluator.IsEval())
        ApplyComparison(left, comparison, right);
    return true;
}

// "between low and high", optionally "inclusive" (the default) or "exclusive".
bool ParseBetween(QEvaluator& evaluator, QAnyValue& left, bool negate) {
    const ExpressionWords& w = Word();
    QAnyValue low;
    QAnyValue high;
    if (!evaluator.EvaluateConcat(low))
        return false;
    if (!evaluator.MatchId(w.andWord))
        return evaluator.ExpectingAfterButFound(u"'and'", u"'is between'",
                                                evaluator.ThisCharPlus());
    if (!evaluator.EvaluateConcat(high))
        return false;
    const bool exclusive = !evaluator.MatchId(w.inclusive) && evaluator.MatchId(w.exclusive);
    if (evaluator.IsEval())
        ApplyBetween(left, low, high, exclusive, negate);
    return true;
}

// The words after "is" that name a comparison; none means equality with the value that follows.
bool MatchIsWords(QEvaluator& evaluator, Comparison& comparison, bool& between) {
    const ExpressionWords& w = Word();
    comparison = Comparison::EQ;
    between = false;
    if (evaluator.MatchId(w.equal)) {
        if (!evaluator.MatchId(w.to))
            return evaluator.ExpectingAfterButFound(u"'to'", u"'equal'", evaluator.ThisCharPlus());
    } else if (evaluator.MatchId(w.at)) {
        if (evaluator.MatchId(w.least))
            comparison = Comparison::GE;
        else if (evaluator.MatchId(w.most))
            comparison = Comparison::LE;
        else
            return evaluator.ExpectingAfterButFound(u"'least' or 'most'", u"'at'",
                                                    evaluator.ThisCharPlus());
    } else if (evaluator.MatchId(w.greater) || evaluator.MatchId(w.more)) {
        if (!evaluator.MatchId(w.than))
            return evaluator.ExpectingAfterButFound(u"'than'", u"'greater' or 'more'",
                                                    evaluator.ThisCharPlus());
        comparison = Comparison::GT;
    } else if (evaluator.MatchId(w.less) || evaluator.MatchId(w.fewer)) {
        if (!evaluator.MatchId(w.than))
            return evaluator.ExpectingAfterButFound(u"'than'", u"'less' or 'fewer'",
                                                    evaluator.ThisCharPlus());
        comparison = Comparison::LT;
    } else {
        between = evaluator.MatchId(w.between);
    }
    return true;
}

// Everything after "is": an optional "not" that inverts, the words, and the right side.
bool ParseIsForm(QEvaluator& evaluator, QAnyValue& left) {
    const bool negate = evaluator.MatchId(Word().notWord);
    Comparison comparison = Comparison::EQ;
    bool between = false;
    if (!MatchIsWords(evaluator, comparison, between))
        return false;
    if (between)
        return ParseBetween(evaluator, left, negate);
    return CompareWithRight(evaluator, left, negate ? Negated(comparison) : comparison);
}

// "%N": the argument N of the evaluator.
bool EvaluateArgument(QEvaluator& evaluator, QAnyValue& result) {
    QAnyValue number;
    if (!evaluator.ParseValue(number) || !number.IsSimpleNumeric())
        return evaluator.ExpectingAfterButFound(u"valid digit", u"'%'", evaluator.ThisCharPlus());
    const int index = number.MakeInt();
    return evaluator.IsNoEval() || evaluator.GetArg(index, result) ||
           UnknownArgument(evaluator, index);
}

// "#N/A", "#err!" and "#empty" after the "#"; false, with the cursor where it was, for others.
bool MatchHashValue(QEvaluator& evaluator, QAnyValue& result) {
    const ExpressionWords& w = Word();
    const short start = evaluator.SaveCursor();
    if (evaluator.MatchId(w.n) && evaluator.MatchChar(u'/') && evaluator.MatchId(w.a)) {
        result.MakeNA();
        return true;
    }
    evaluator.RestoreCursor(start);
    if (evaluator.MatchId(w.err) && evaluator.MatchChar(u'!')) {
        result.MakeError(CString(u"#ERR!"));
        return true;
    }
    evaluator.RestoreCursor(start);
    if (evaluator.MatchId(w.empty)) {
        result.MakeEmpty();
        return true;
    }
    return false;
}

// A level of the ladder, called through the evaluator.
using Level = bool (QEvaluator::*)(QAnyValue&);

// The branch of "?:" or of a short-circuit that is not needed is parsed with evaluation off.
bool ParseSkipped(QEvaluator& evaluator, Level level, QAnyValue& scratch) {
    QEvaluator::NoEval off(evaluator);
    return (evaluator.*level)(scratch);
}

bool ParseBranch(QEvaluator& evaluator, QAnyValue& value, bool needed) {
    if (needed)
        return evaluator.EvaluateConditional(value);
    return ParseSkipped(evaluator, &QEvaluator::EvaluateConditional, value);
}

} // namespace

void walk::ChooseBranch(QAnyValue& result, bool needTrue, bool needFalse, QAnyValue& whenTrue,
                        QAnyValue& whenFalse) {
    if (!result.IsArray()) {
        result = needTrue ? whenTrue : whenFalse;
        return;
    }
    if (!needTrue && !needFalse)
        return; // an empty array of conditions selects nothing
    if (!needTrue || !needFalse) {
        QAnyValue& chosen = needTrue ? whenTrue : whenFalse;
        QAnyValue::ExtendArrays(result, chosen);
        result = chosen;
        return;
    }
    const int count = QAnyValue::ExtendArrays(result, whenTrue, whenFalse);
    const QArray<QAnyValue>& conditions = result.MakeArray();
    const QArray<QAnyValue>& trues = whenTrue.MakeArray();
    const QArray<QAnyValue>& falses = whenFalse.MakeArray();
    QArray<QAnyValue> chosen;
    for (int i = 0; i < count; ++i)
        chosen.Add(conditions[i].IsFALSE() ? falses[i] : trues[i]);
    result = QAnyValue(chosen);
}

namespace {

// "values where condition": the elements whose condition is true.
void ApplyWhere(QAnyValue& result, QAnyValue& condition) {
    condition.MakeAllBool();
    QAnyValue values(result);
    QAnyValue::ExtendArrays(values, condition);
    const QArray<QAnyValue>& elements = values.MakeArray();
    const QArray<QAnyValue>& tests = condition.MakeArray();
    QArray<QAnyValue> kept;
    const int count = std::min(elements.GetSize(), tests.GetSize());
    for (int i = 0; i < count; ++i)
        if (tests[i].IsTRUE())
            kept.Add(elements[i]);
    result = QAnyValue(kept);
}

void ApplySubscript(QAnyValue& value, const QAnyValue& index) {
    if (!index.IsArray()) {
        value.GETATit(QAnyValue(index).MakeInt());
        return;
    }
    QAnyValue positions(index);
    QArray<QAnyValue> picked;
    for (const QAnyValue& position : positions.MakeArray())
        picked.Add(value.GETAT(QAnyValue(position).MakeInt()));
    value = QAnyValue(picked);
}

} // namespace

void walk::ApplyDollarSign(QAnyValue& value) {
    if (value.IsMoney() || value.IsEmpty() || value.IsErrorOrNA())
        return;
    value = QAnyValue(QMoney::FromRaw(QMoney::dollar_to_raw(value.MakeDouble())));
}

namespace {

// An array literal spreads its ranges into at most this many elements; a range that goes on
// would take gigabytes before it ended.
constexpr int c_maxRangeElements = 1'000'000;

// The values from `start` to `end` by `step`, rising or falling by the sign of the step. A step
// that does not move the value ends the range after its first value. False when the elements
// would pass the limit of a range.
bool AppendRange(QArray<QAnyValue>& elements, const QAnyValue& start, const QAnyValue& end,
                 const QAnyValue& step) {
    bool failed = false;
    const bool rising = step.Compare(QAnyValue(0), failed) >= 0;
    QAnyValue value(start);
    for (;;) {
        const int sign = value.Compare(end, failed);
        if (failed || (rising ? sign > 0 : sign < 0))
            return true;
        if (elements.GetSize() >= c_maxRangeElements)
            return false;
        elements.Add(value);
        QAnyValue next(value);
        next += step;
        if (next.Compare(value, failed) == 0)
            return true;
        value = next;
    }
}

// One element of an array literal, or a range "start to end step s" spread into elements;
// `fits` is cleared when a range passes the limit.
bool EvaluateArrayElement(QEvaluator& evaluator, QArray<QAnyValue>& elements, bool& fits) {
    const ExpressionWords& w = Word();
    QAnyValue start;
    if (!evaluator.EvaluateBlock(start))
        return false;
    const bool rising = evaluator.MatchId(w.to);
    if (!rising && !evaluator.MatchId(w.downto)) {
        if (evaluator.IsEval())
            elements.Add(start);
        return true;
    }
    QAnyValue end;
    if (!evaluator.EvaluateBlock(end))
        return false;
    QAnyValue step(rising ? 1 : -1);
    if (evaluator.MatchId(w.step) && !evaluator.EvaluateBlock(step))
        return false;
    if (evaluator.IsEval() && fits)
        fits = AppendRange(elements, start, end, step);
    return true;
}

// An array literal after its "[": elements separated by ",", an empty position an empty element.
// A literal whose ranges pass the limit is the error "Out of memory".
bool EvaluateArrayLiteral(QEvaluator& evaluator, QAnyValue& result) {
    QArray<QAnyValue> elements;
    bool fits = true;
    if (!evaluator.MatchChar(u']')) {
        do {
            if (evaluator.TestChar(u',') || evaluator.TestChar(u']'))
                elements.Add(QAnyValue());
            else if (!EvaluateArrayElement(evaluator, elements, fits))
                return false;
        } while (evaluator.MatchChar(u','));
        if (!evaluator.MatchChar(u']'))
            return evaluator.ExpectingMatchingButFoundIn(u"']'", u"'['", evaluator.ThisCharPlus(),
                                                         u"array value");
    }
    if (evaluator.IsEval() && fits)
        result = QAnyValue(elements);
    else if (evaluator.IsEval())
        result.MakeError(u"Out of memory");
    return true;
}

// Whether a simple expression can start at the cursor, for "#" and "@" standing alone.
bool SimpleValueFollows(const QEvaluator& evaluator) {
    const QToken* token = evaluator.ThisToken();
    if (token == nullptr)
        return false;
    if (!token->IsChar())
        return true;
    switch (token->Char()) {
    case u'(':
    case u'[':
    case u'#':
    case u'@':
    case u'%':
        return true;
    default:
        return false;
    }
}

// Puts another context in the evaluator's place for its lifetime.
class ContextSwap {
public:
    ContextSwap(QFormulaContext*& slot, QFormulaContext* context) : m_slot(slot), m_saved(slot) {
        m_slot = context;
    }
    ~ContextSwap() { m_slot = m_saved; }
    ContextSwap(const ContextSwap&) = delete;
    ContextSwap& operator=(const ContextSwap&) = delete;

private:
    QFormulaContext*& m_slot;
    QFormulaContext* m_saved;
};

// Evaluates the simple expression behind "#" or "@" with `target` as the context, or, when none
// follows, gives the number that ends the target's name.
bool EvaluateInContext(QEvaluator& evaluator, QFormulaContext*& contextSlot,
                       QFormulaContext* target, QAnyValue& result, const CString& op) {
    const QEvaluator::NestingLevel level;
    if (level.IsTooDeep())
        return evaluator.NestedTooDeeply();
    const bool valueFollows = SimpleValueFollows(evaluator);
    if (evaluator.IsNoEval())
        return !valueFollows || evaluator.EvaluateSimple(result);
    if (target == nullptr)
        return evaluator.ErrorEvaluatingAtOrHash(op);
    evaluator.RaiseCacheState(QCS_BySeq);
    if (!valueFollows) {
        const int index = QEvaluator::FindReverseInt(target->SimpleWhoAmI());
        if (index < 0)
            return evaluator.ErrorEvaluatingAtOrHash(op);
        result = index;
        return true;
    }
    const ContextSwap swap(contextSlot, target);
    return evaluator.EvaluateSimple(result);
}

// `levels` named contexts up from `context`.
QFormulaContext* NamedContextUp(QFormulaContext* context, int levels) {
    for (int i = 0; i < levels && context != nullptr; ++i)
        context = QEvaluator::FindContextWithName(context->ParentContext());
    return context;
}

bool IsDeferredStringFormula(const QAnyValue& value) {
    if (!value.IsString())
        return false;
    const CString text = QAnyValue(value).MakeCString();
    return !text.IsEmpty() && (text[0] == u'=' || text[0] == u':');
}

void LowerDeferredDepth() {
    int depth = c_deferredDepth.load();
    while (depth > 0 && !c_deferredDepth.compare_exchange_weak(depth, depth - 1)) {
    }
}

} // namespace

int QEvaluator::DeferredDepth() {
    return c_deferredDepth.load();
}

// --- Levels 1 to 5 ------------------------------------------------------------------------------

bool QEvaluator::EvaluateExpression(QAnyValue& result) {
    MarkOKUpToHere();
    return EvaluateConditional(result);
}

bool QEvaluator::EvaluateConditional(QAnyValue& result) {
    const NestingLevel level;
    if (level.IsTooDeep())
        return NestedTooDeeply();
    if (!EvaluateXOREQVIMPop(result))
        return false;
    if (MatchId(Word().where)) {
        QAnyValue condition;
        if (!EvaluateConditional(condition))
            return false;
        if (IsEval())
            ApplyWhere(result, condition);
        return true;
    }
    if (!MatchChar(u'?'))
        return true;
    bool needTrue = true;
    bool needFalse = true;
    if (IsEval()) {
        needTrue = !result.IsFALSE();
        needFalse = !result.IsTRUE();
    }
    QAnyValue whenTrue;
    QAnyValue whenFalse;
    if (!ParseBranch(*this, whenTrue, needTrue))
        return false;
    if (!MatchChar(u':'))
        return ExpectingMatchingButFoundIn(u"':'", u"'?'", ThisCharPlus(), u"expr ? cond : expr");
    if (!ParseBranch(*this, whenFalse, needFalse))
        return false;
    if (IsEval())
        ChooseBranch(result, needTrue, needFalse, whenTrue, whenFalse);
    return true;
}

bool QEvaluator::EvaluateXOREQVIMPop(QAnyValue& result) {
    if (!EvaluateORop(result))
        return false;
    for (;;) {
        QAnyValue& (QAnyValue::*operation)(const QAnyValue&) = nullptr;
        if (MatchId(Word().xorWord))
            operation = &QAnyValue::XORit;
        else if (MatchId(Word().eqv))
            operation = &QAnyValue::EQVit;
        else if (MatchId(Word().imp))
            operation = &QAnyValue::IMPit;
        else
            return true;
        QAnyValue right;
        if (!EvaluateORop(right))
            return false;
        if (IsEval())
            (result.MakeAllBool().*operation)(right.MakeAllBool());
    }
}

bool QEvaluator::EvaluateORop(QAnyValue& result) {
    if (!EvaluateANDop(result))
        return false;
    bool shortCircuit = false;
    while (MatchId(Word().orWord) || MatchCharPair(u'|', u'|')) {
        if (IsEval())
            result.MakeAllBool();
        QAnyValue right;
        if (shortCircuit || (IsEval() && result.IsTRUE())) {
            shortCircuit = true;
            if (!ParseSkipped(*this, &QEvaluator::EvaluateANDop, right))
                return false;
            continue;
        }
        if (!EvaluateANDop(right))
            return false;
        if (IsNoEval())
            continue;
        right.MakeAllBool();
        if (result.IsArray() || right.IsArray())
            result.ORit(right);
        else
            result = right;
    }
    return true;
}

bool QEvaluator::EvaluateANDop(QAnyValue& result) {
    if (!EvaluateNOTop(result))
        return false;
    bool shortCircuit = false;
    while (MatchId(Word().andWord) || MatchCharPair(u'&', u'&')) {
        if (IsEval())
            result.MakeAllBool();
        QAnyValue right;
        if (shortCircuit || (IsEval() && result.IsFALSE())) {
            shortCircuit = true;
            if (!ParseSkipped(*this, &QEvaluator::EvaluateNOTop, right))
                return false;
            continue;
        }
        if (!EvaluateNOTop(right))
            return false;
        if (IsNoEval())
            continue;
        right.MakeAllBool();
        if (result.IsArray() || right.IsArray())
            result.ANDit(right);
        else
            result = right;
    }
    return true;
}

bool QEvaluator::EvaluateNOTop(QAnyValue& result) {
    if (!MatchId(Word().notWord) && !MatchChar(u'!'))
        return EvaluateComparison(result);
    const NestingLevel level;
    if (level.IsTooDeep())
        return NestedTooDeeply();
    if (!EvaluateNOTop(result))
        return false;
    if (IsEval())
        result.NOTit();
    return true;
}

// --- Level 6 ------------------------------------------------------------------------------------

bool QEvaluator::EvaluateComparison(QAnyValue& result) {
    if (!EvaluateConcat(result))
        return false;
    const bool isForm = MatchId(Word().is);
    const Comparison comparison = isForm ? Comparison::None : MatchComparisonOperator(*this);
    if (!isForm && comparison == Comparison::None)
        return true;
    const auto parseRight = [&] {
        return isForm ? ParseIsForm(*this, result) : CompareWithRight(*this, result, comparison);
    };
    if (IsNoEval())
        return parseRight();

    // The right side may say "it" for the left value; the variable is put back afterwards.
    const PropId& it = Word().it;
    QAnyValue savedIt;
    const bool hadIt = GetVar(it, savedIt);
    SetVar(it, result);
    const bool ok = parseRight();
    if (hadIt)
        SetVar(it, savedIt);
    else
        m_vars.RemoveKey(it);
    return ok;
}

// --- Levels 7 to 12 -----------------------------------------------------------------------------

bool QEvaluator::EvaluateConcat(QAnyValue& result) {
    if (!EvaluateAddSub(result))
        return false;
    // "&&" belongs to the level of "and".
    while (!TestCharPair(u'&', u'&') && MatchChar(u'&')) {
        QAnyValue right;
        if (!EvaluateAddSub(right))
            return false;
        if (IsEval())
            result.CONCATit(right);
    }
    return true;
}

bool QEvaluator::EvaluateAddSub(QAnyValue& result) {
    if (!EvaluateMulDiv(result))
        return false;
    for (;;) {
        bool subtract;
        if (MatchChar(u'+') || MatchId(Word().plus))
            subtract = false;
        else if (MatchChar(u'-') || MatchId(Word().minus) || MatchId(Word().less))
            subtract = true;
        else
            return true;
        QAnyValue right;
        if (!EvaluateMulDiv(right))
            return false;
        if (IsNoEval())
            continue;
        if (subtract)
            result -= right;
        else
            result += right;
    }
}

bool QEvaluator::EvaluateMulDiv(QAnyValue& result) {
    if (!EvaluateExponentiation(result))
        return false;
    for (;;) {
        QAnyValue& (QAnyValue::*operation)(const QAnyValue&) = nullptr;
        if (MatchChar(u'*'))
            operation = &QAnyValue::operator*=;
        else if (MatchChar(u'/'))
            operation = &QAnyValue::operator/=;
        else if (MatchChar(u'\\'))
            operation = &QAnyValue::DIVit;
        else if (MatchId(Word().mod))
            operation = &QAnyValue::MODit;
        else
            return true;
        QAnyValue right;
        if (!EvaluateExponentiation(right))
            return false;
        if (IsEval())
            (result.*operation)(right);
    }
}

bool QEvaluator::EvaluateExponentiation(QAnyValue& result, bool allowSubscript) {
    if (!EvaluatePercent(result, allowSubscript))
        return false;
    while (MatchChar(u'^')) {
        QAnyValue exponent;
        if (!EvaluatePercent(exponent, allowSubscript))
            return false;
        if (IsEval())
            result.POWit(exponent);
    }
    return true;
}

bool QEvaluator::EvaluatePercent(QAnyValue& result, bool allowSubscript) {
    if (!EvaluateNegPos(result, allowSubscript))
        return false;
    if (MatchChar(u'%') && IsEval())
        result.PERCENTit();
    return true;
}

bool QEvaluator::EvaluateNegPos(QAnyValue& result, bool allowSubscript) {
    void (*operation)(QAnyValue&) = nullptr;
    if (MatchChar(u'-'))
        operation = [](QAnyValue& value) { value.NEGit(); };
    else if (MatchChar(u'!'))
        operation = [](QAnyValue& value) { value.NOTit(); };
    else if (MatchChar(u'$'))
        operation = &ApplyDollarSign;
    else if (!MatchChar(u'+'))
        return EvaluateSuffix(result, allowSubscript);
    const NestingLevel level;
    if (level.IsTooDeep())
        return NestedTooDeeply();
    if (!EvaluateNegPos(result, allowSubscript))
        return false;
    if (operation != nullptr && IsEval())
        operation(result);
    return true;
}

bool QEvaluator::EvaluateSuffix(QAnyValue& result, bool allowSubscript) {
    if (!EvaluateSimple(result))
        return false;
    if (const UnitWord* unit = MatchUnitWord(*this)) {
        if (IsEval())
            ApplyUnit(result, *unit);
        return true;
    }
    if (!allowSubscript || !MatchChar(u'('))
        return true;
    QAnyValue index;
    if (!EvaluateBlock(index))
        return false;
    if (!MatchChar(u')'))
        return ExpectingMatchingButFoundIn(u"')'", u"'('", ThisCharPlus(), u"array subscript");
    if (IsEval() && !result.IsEmpty() && !result.IsErrorOrNA())
        ApplySubscript(result, index);
    return true;
}

// --- Level 13 -----------------------------------------------------------------------------------

bool QEvaluator::EvaluateSimple(QAnyValue& result) {
    if (MatchChar(u'%'))
        return EvaluateArgument(*this, result);
    if (MatchChar(u'#'))
        return MatchHashValue(*this, result) || FindContextForHashOperator(result);
    if (MatchChar(u'@'))
        return FindContextForAtOperator(result);
    if (MatchChar(u'(')) {
        if (!EvaluateBlock(result))
            return false;
        if (!MatchChar(u')'))
            return ExpectingMatchingButFound(u"')'", u"'('", ThisCharPlus());
        return true;
    }
    if (MatchChar(u'['))
        return EvaluateArrayLiteral(*this, result);

    const short start = SaveCursor();
    FullId name;
    bool simple = true;
    if (ParseVarnameWithOf(name, simple)) {
        if (MatchChar(u'('))
            return EvaluateFunction(result, name);
        return EvaluateName(result, name, simple);
    }
    if (SaveCursor() != start)
        return false;
    if (ParseValue(result))
        return true;
    return ExpectingButFoundIn(u"a number, string, name or (expression)", ThisCharPlus(),
                               CString());
}

// --- Names --------------------------------------------------------------------------------------

bool QEvaluator::ParseVarname(PropId& name) {
    while (MatchId(Word().the)) {
    }
    PropId id;
    if (!ParseId(id))
        return false;
    CString text = id.ToString();
    while (MatchChar(u'[')) {
        QAnyValue part;
        if (!EvaluateExpression(part))
            return false;
        if (!MatchChar(u']'))
            return ExpectingMatchingButFound(u"']'", u"'['", ThisCharPlus());
        text += u"[" + (IsEval() ? part.MakeCString() : CString()) + u"]";
    }
    name = PropId(text);
    return true;
}

bool QEvaluator::ParseVarnameWithContext(PropId& name) {
    SaveRestoreCursor attempt(Iterator());
    if (!ParseVarname(name))
        return false;
    attempt.DoNoRestore();
    return true;
}

bool QEvaluator::ParseVarnameWithDot(FullId& name, bool& simple) {
    PropId part;
    if (!ParseVarnameWithContext(part))
        return false;
    CString text = part.ToString();
    simple = true;
    while (MatchChar(u'.')) {
        if (!ParseVarnameWithContext(part))
            return ExpectingAfterButFound(u"name", u"'.'", ThisCharPlus());
        text += u"." + part.ToString();
        simple = false;
    }
    name = FullId(text);
    return true;
}

bool QEvaluator::ParseVarnameWithOf(FullId& name, bool& simple) {
    if (!ParseVarnameWithDot(name, simple))
        return false;
    if (!MatchId(Word().of))
        return true;
    const NestingLevel level;
    if (level.IsTooDeep())
        return NestedTooDeeply();
    const short start = SaveCursor();
    FullId context;
    bool contextSimple = true;
    if (!ParseVarnameWithOf(context, contextSimple))
        return SaveCursor() != start ? false
                                     : ExpectingAfterButFound(u"context", u"'of'", ThisCharPlus());
    name = FullId(context.ToString() + u"." + name.ToString());
    simple = false;
    return true;
}

// --- The "#" and "@" operators ----------------------------------------------------------------

bool QEvaluator::FindContextForHashOperator(QAnyValue& result) {
    int levels = 1;
    while (MatchChar(u'#'))
        ++levels;
    QFormulaContext* target = nullptr;
    if (levels == 1 && MatchChar(u'(')) {
        const short start = SaveCursor();
        FullId name;
        bool simple = true;
        if (!ParseVarnameWithOf(name, simple))
            return SaveCursor() != start ? false
                                         : ExpectingButFoundIn(u"name", ThisCharPlus(), u"#()");
        if (!MatchChar(u')'))
            return ExpectingMatchingButFoundIn(u"')'", u"'('", ThisCharPlus(), u"#()");
        QCacheState state = QCS_Stable;
        if (IsEval() && m_context != nullptr && m_context->LookupContext(name, target, state))
            RaiseCacheState(state);
        else
            target = nullptr;
    } else if (IsEval() && m_context != nullptr) {
        target = NamedContextUp(m_context, levels);
    }
    return EvaluateInContext(*this, m_context, target, result, CString(u"#"));
}

bool QEvaluator::FindContextForAtOperator(QAnyValue& result) {
    QFormulaContext* target = IsEval() ? FindContextWithName(m_context) : nullptr;
    return EvaluateInContext(*this, m_context, target, result, CString(u"@"));
}

// --- Look-up of a name --------------------------------------------------------------------------

bool QEvaluator::EvaluateName(QAnyValue& result, const FullId& name, bool simple) {
    if (IsNoEval())
        return true;
    return LookUpName(result, name, simple ? PropId(name.ToString()) : PropId(), nullptr);
}

bool QEvaluator::LookUpName(QAnyValue& result, const FullId& name, const PropId& simpleId,
                            const FormulaText* asFormulaText) {
    if (!simpleId.IsEmpty() &&
        (GetVar(simpleId, result) || EvaluateNamedConstant(result, simpleId)))
        return true;
    return LookUpInContext(result, name, asFormulaText);
}

bool QEvaluator::LookUpInContext(QAnyValue& result, const FullId& name,
                                 const FormulaText* asFormulaText) {
    if (m_context == nullptr)
        return Unknown(u"name", name.ToString());

    m_context->EnsureUpToDate();
    const FormulaText asFormula = asFormulaText ? *asFormulaText : FormulaText(name.ToString());
    const bool useCaches = !IsDebug() && !IsAction();
    QCacheState state = QCS_Stable;
    QAnyValue value;
    if (useCaches && m_context->HeresAFormulaValueIPreparedEarlier(value, state, asFormula)) {
        RaiseCacheState(state);
        result = value;
        return true;
    }
    bool error = false;
    const bool found =
        m_context->LookupValue(name, value, error, state, IsPassThrough(), IsDebug(), !IsAction());
    RaiseCacheState(state);
    if (!found)
        return Unknown(u"name", name.ToString());
    if (error)
        return FailedLookUp(name, value);
    if (IsDeferredStringFormula(value) && !EvaluateDeferredStringFormula(value, name))
        return false;
    if (useCaches && state != QCS_NotCacheable)
        m_context->RememberThisFormulaValueForNextTime(value, asFormula, state);
    result = value;
    return true;
}

// A value in a loop of formulas says so itself; any other failed value is named.
bool QEvaluator::FailedLookUp(const FullId& name, const QAnyValue& value) {
    if (!QWithFormula<QAnyValue>::IsRecursiveFormulaError(value))
        return ErrorEvaluating(name.ToString());
    m_message = QAnyValue(value).MakeError();
    return false;
}

bool QEvaluator::EvaluateDeferredStringFormula(QAnyValue& value, const FullId& name) {
    const FormulaText formula(value.MakeCString().Mid(1));
    if (++c_deferredDepth > c_maxDeferredDepth) {
        c_deferredDepth = c_maxDeferredDepth;
        static const QTString looping(
            u"Stack depth exceeded, formula looping trying to evaluate [%s] deferred string "
            u"formula:\n%s",
            u"Message box (id,formula)");
        m_message = CString::Formatted(looping, name.ToString(), formula.ToString());
        return false;
    }
    QAnyValue deferred;
    bool ok = false;
    {
        const std::unique_ptr<QEvaluator> evaluator(
            New(deferred, formula, m_context, IsPassThrough(), IsReportErrors(), IsAction()));
        evaluator->SetDebug(IsDebug());
        ok = evaluator->Evaluate();
        RaiseCacheState(evaluator->CacheState());
    }
    LowerDeferredDepth();
    if (ok) {
        value = deferred;
        return true;
    }
    const bool told = !m_message.IsEmpty();
    ErrorEvaluatingWithFormula(name.ToString(), formula.ToString());
    if (!IsReportErrors() || told)
        return false;
    static const QTString failed(u"Error evaluating deferred string formula [",
                                 u"Message box (id)");
    m_message = CString(failed) + name.ToString() + u"], " + m_message + ContextInfo(true);
    if (!NoEvalReportErrors()) {
        static const QTString heading(u"Formula", u"Message box");
        QMessageBoxOrLog(m_message, heading, true);
    }
    return false;
}

} // namespace keel
