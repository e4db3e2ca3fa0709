#pragma once

#include "keel/formula/literals.h"
#include "keel/values/anyvalue.h"
#include "keel/values/stringunique.h"

#include <cstddef>
#include <vector>

namespace keel {

class QEvaluator;
class QToken;

// The pieces of the evaluator's walk that its compiled form (compiledformula.h) runs too, so that
// both give a value by the very same operations.
namespace walk {

// The keywords of expressions, each interned once so that a test is one integer comparison.
struct ExpressionWords {
    PropId where{u"where"};
    PropId xorWord{u"xor"};
    PropId eqv{u"eqv"};
    PropId imp{u"imp"};
    PropId orWord{u"or"};
    PropId andWord{u"and"};
    PropId notWord{u"not"};
    PropId is{u"is"};
    PropId it{u"it"};
    PropId equal{u"equal"};
    PropId to{u"to"};
    PropId at{u"at"};
    PropId least{u"least"};
    PropId most{u"most"};
    PropId greater{u"greater"};
    PropId more{u"more"};
    PropId than{u"than"};
    PropId less{u"less"};
    PropId fewer{u"fewer"};
    PropId between{u"between"};
    PropId inclusive{u"inclusive"};
    PropId exclusive{u"exclusive"};
    PropId plus{u"plus"};
    PropId minus{u"minus"};
    PropId mod{u"mod"};
    PropId n{u"N"};
    PropId a{u"A"};
    PropId err{u"err"};
    PropId empty{u"empty"};
    PropId downto{u"downto"};
    PropId step{u"step"};
    PropId the{u"the"};
    PropId of{u"of"};
};

const ExpressionWords& ExpressionWord();

using UnitWord = QUnitWord;
// The unit the token spells; null when it is no unit word.
const UnitWord* UnitWordOf(const QToken* token);
// Gives a plain number the unit; a value that has the unit's type already, an error, N/A and the
// empty value are left as they are.
void ApplyUnit(QAnyValue& value, const UnitWord& unit);

enum class Comparison { None, EQ, NE, LT, LE, GT, GE };
Comparison Negated(Comparison comparison);
void ApplyComparison(QAnyValue& left, Comparison comparison, const QAnyValue& right);
// "value is [not] between low and high [inclusive|exclusive]".
void ApplyBetween(QAnyValue& value, const QAnyValue& low, const QAnyValue& high, bool exclusive,
                  bool negate);
// The value of "condition ? whenTrue : whenFalse" once both branches are parsed; `result` holds
// the condition.
void ChooseBranch(QAnyValue& result, bool needTrue, bool needFalse, QAnyValue& whenTrue,
                  QAnyValue& whenFalse);
// "$x": a number made money.
void ApplyDollarSign(QAnyValue& value);

// A word that starts a statement of its own, rather than an assignment or an expression.
bool IsStatementWord(PropId word);
// A word before which a list of statements ends (outside the labels of a case).
bool EndsStatementList(PropId word);
// A word that ends the value of an assignment, so that "name = value" before it assigns.
bool EndsAssignmentWord(PropId word);

// The most arguments a call takes.
constexpr std::size_t c_maxArguments = 7;
// Whether the function parses its own arguments, and which of those the compiled form runs
// too: "iff" (and "if"), "min" and "max".
enum class OwnArguments { None, Iff, Min, Max, Other };
OwnArguments OwnArgumentsOf(FullId name);

// min(...) or max(...) taking each value in turn, as it is evaluated.
class Extreme {
public:
    explicit Extreme(bool isMin) : m_isMin(isMin) {}
    void Take(QAnyValue& value);
    const QAnyValue& Result() const { return m_best; }

private:
    bool m_isMin;
    bool m_first = true;
    QAnyValue m_best;
};
// A call of a function that takes its arguments evaluated, once they are, as the walk makes it.
bool CallFunction(QEvaluator& evaluator, QAnyValue& result, FullId name,
                  const std::vector<QAnyValue>& arguments);

// The failure of "%N" when the evaluator has no argument N.
bool UnknownArgument(QEvaluator& evaluator, int index);

} // namespace walk
} // namespace keel
