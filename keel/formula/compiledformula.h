#pragma once

#include "keel/values/anyvalue.h"

#include <memory>

namespace keel {

class QEvaluator;
class QTokenStream;

// When formulas are compiled, process-wide: never, when a cached formula is evaluated the second
// time (the default: a formula run once is not worth compiling), or at its first evaluation.
enum class QFormulaCompilation { Off, Repeated, Always };
void SetFormulaCompilation(QFormulaCompilation mode);
QFormulaCompilation FormulaCompilation();
// How many evaluations ran compiled, process-wide, since the start.
long CompiledEvaluationCount();

// A formula made once into a tree of operations over values, so that an evaluation need not
// parse the tokens again. It gives exactly what the walk of the tokens gives (the value, the
// failure and its message, the calls into the context, in the same order), and covers
// expressions of values, arguments, names, units and operators; a formula with anything else (a
// statement, an assignment, a call, "#", "@", an array, a syntax error) is left to the walk.
//
// Only an evaluator of the base class runs it: a derived one may parse names its own way.
class QCompiledFormula {
public:
    struct Node;
    using NodePtr = std::unique_ptr<const Node>;

    // Null when the formula has a construct left to the walk.
    static std::unique_ptr<QCompiledFormula> Compile(const QTokenStream& stream);
    ~QCompiledFormula();
    QCompiledFormula(const QCompiledFormula&) = delete;
    QCompiledFormula& operator=(const QCompiledFormula&) = delete;

    // Whether `evaluator` may run it now: an evaluator of the base class, evaluating, neither
    // debugging nor running an action, with room for the formula's levels of nesting.
    bool CanRun(const QEvaluator& evaluator) const;
    // Runs it as the walk runs the whole formula: true when nothing failed, else the message is
    // the evaluator's.
    bool Run(QEvaluator& evaluator) const;

private:
    QCompiledFormula(NodePtr root, int depth, short end, short lastMark);

    NodePtr m_root;
    // The deepest level of nesting the walk reaches.
    int m_depth;
    // Where the walk's cursor and its last good position stand at the end.
    short m_end;
    short m_lastMark;
};

} // namespace keel
