#include "keel/formula/compiledformula.h"

#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorshared.h"
#include "keel/formula/tokeniser.h"
#include "keel/platform/fpstatus.h"

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <typeinfo>
#include <utility>
#include <vector>

namespace keel {

namespace {

std::atomic<QFormulaCompilation> c_compilation{QFormulaCompilation::Repeated};
thread_local long t_compiledRuns = 0;

using namespace walk;

} // namespace

void SetFormulaCompilation(QFormulaCompilation mode) {
    c_compilation.store(mode, std::memory_order_relaxed);
}

QFormulaCompilation FormulaCompilation() {
    return c_compilation.load(std::memory_order_relaxed);
}

long CompiledEvaluationCount() {
    return t_compiledRuns;
}

// --- Running ------------------------------------------------------------------------------------

// A name as the walk's look-up takes it, made once: the name, the same as one identifier when it
// has no dot, and as the formula text of the context's cache. Whether it is one of the evaluator's
// constants is known beforehand, as an evaluator that runs compiled formulas has no others.
struct NameToLookUp {
    explicit NameToLookUp(const CString& text, bool simple)
        : name(text), simpleId(simple ? PropId(text) : PropId()), asFormula(name.ToString()),
          isConstant(simple && QEvaluator::IsBuiltInConstant(simpleId)) {}

    FullId name;
    PropId simpleId;
    FormulaText asFormula;
    bool isConstant;
};

// One run of a compiled formula inside its evaluator: what the nodes reach of the evaluator's
// state. The levels of nesting the walk would have in force are put in place around each call
// out of the formula, where a formula evaluated inside sees them.
class QCompiledRun {
public:
    explicit QCompiledRun(QEvaluator& evaluator)
        : m_evaluator(evaluator), m_baseDepth(QEvaluator::ThreadNestingDepth()) {}

    QEvaluator& Evaluator() { return m_evaluator; }

    // Puts the cursor and the last good position where the walk has them at this point, for the
    // report of a failure.
    void At(short cursor, short mark) {
        m_evaluator.RestoreCursor(cursor);
        m_evaluator.m_lastGood = mark;
    }

    // As the walk looks a name up: a local variable, a constant, then the context.
    bool LookUpName(QAnyValue& result, const NameToLookUp& name, int depth) {
        if (!name.simpleId.IsEmpty() && !m_evaluator.m_vars.IsEmpty() &&
            m_evaluator.GetVar(name.simpleId, result))
            return true;
        const DepthInForce levels(m_baseDepth + depth);
        if (name.isConstant && m_evaluator.EvaluateNamedConstant(result, name.simpleId))
            return true;
        return m_evaluator.LookUpInContext(result, name.name, &name.asFormula);
    }

    void RemoveVar(PropId name) { m_evaluator.m_vars.RemoveKey(name); }

    bool Call(QAnyValue& result, const FullId& name, const std::vector<QAnyValue>& arguments,
              int depth) {
        const DepthInForce levels(m_baseDepth + depth);
        return CallFunction(m_evaluator, result, name, arguments);
    }

    // An argument of a function that asks whether it fails: run with reports off, a failure is
    // an error value holding the message.
    bool RunQuietly(const QCompiledFormula::Node& argument, QAnyValue& value);

private:
    class DepthInForce {
    public:
        explicit DepthInForce(int depth)
            : m_slot(QEvaluator::ThreadNestingDepth()), m_saved(m_slot) {
            m_slot = depth;
        }
        ~DepthInForce() { m_slot = m_saved; }
        DepthInForce(const DepthInForce&) = delete;
        DepthInForce& operator=(const DepthInForce&) = delete;

    private:
        int& m_slot;
        int m_saved;
    };

    QEvaluator& m_evaluator;
    int m_baseDepth;
};

struct QCompiledFormula::Node {
    virtual ~Node() = default;
    // Gives the value into `result`, the object the walk's level would fill.
    virtual bool Run(QCompiledRun& run, QAnyValue& result) const = 0;
    virtual const QAnyValue* ConstantValue() const { return nullptr; }
    virtual bool ClearsFPStatus() const { return false; }
    // Whether a failure of the node leaves the walk's cursor behind all of its tokens: a name or
    // an argument, which fail once they are read whole.
    virtual bool FailsAtItsEnd() const { return ConstantValue() != nullptr; }
};

bool QCompiledRun::RunQuietly(const QCompiledFormula::Node& argument, QAnyValue& value) {
    bool evaluated = false;
    {
        const QEvaluator::QuietReports quiet(m_evaluator);
        evaluated = argument.Run(*this, value);
    }
    if (!evaluated) {
        value.MakeError(m_evaluator.m_message);
        m_evaluator.m_message.Empty();
    }
    return true;
}

namespace {

using Node = QCompiledFormula::Node;
using NodePtr = QCompiledFormula::NodePtr;

// Where the walk's cursor and last good position stand when a node does its work.
struct Position {
    short cursor = 0;
    short mark = 0;
};

// A value known when compiling: a literal, or operations on numbers folded. Folding may leave the
// floating-point flags cleared, as the division's guard does; a folded value does that again.
class Constant final : public Node {
public:
    Constant(const QAnyValue& value, bool clearsFPStatus)
        : m_value(value), m_clearsFPStatus(clearsFPStatus) {}
    bool Run(QCompiledRun&, QAnyValue& result) const override {
        result = m_value;
        if (m_clearsFPStatus)
            ClearFPStatus();
        return true;
    }
    const QAnyValue* ConstantValue() const override { return &m_value; }
    bool ClearsFPStatus() const override { return m_clearsFPStatus; }

private:
    QAnyValue m_value;
    bool m_clearsFPStatus;
};

enum class UnaryOp { Negate, Not, Dollar, Percent, Unit };

void ApplyUnary(UnaryOp op, const UnitWord* unit, QAnyValue& value) {
    switch (op) {
    case UnaryOp::Negate:
        value.NEGit();
        break;
    case UnaryOp::Not:
        value.NOTit();
        break;
    case UnaryOp::Dollar:
        ApplyDollarSign(value);
        break;
    case UnaryOp::Percent:
        value.PERCENTit();
        break;
    case UnaryOp::Unit:
        ApplyUnit(value, *unit);
        break;
    }
}

class Unary final : public Node {
public:
    Unary(UnaryOp op, const UnitWord* unit, NodePtr operand, Position at)
        : m_op(op), m_unit(unit), m_operand(std::move(operand)), m_at(at) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        if (!m_operand->Run(run, result))
            return false;
        run.At(m_at.cursor, m_at.mark);
        ApplyUnary(m_op, m_unit, result);
        return true;
    }

private:
    UnaryOp m_op;
    const UnitWord* m_unit;
    NodePtr m_operand;
    Position m_at;
};

enum class BinaryOp {
    Add,
    Subtract,
    Multiply,
    Divide,
    WholeDivide,
    Modulo,
    Power,
    Concat,
    Xor,
    Eqv,
    Imp
};

void ApplyBinary(BinaryOp op, QAnyValue& left, QAnyValue& right) {
    switch (op) {
    case BinaryOp::Add:
        left += right;
        break;
    case BinaryOp::Subtract:
        left -= right;
        break;
    case BinaryOp::Multiply:
        left *= right;
        break;
    case BinaryOp::Divide:
        left /= right;
        break;
    case BinaryOp::WholeDivide:
        left.DIVit(right);
        break;
    case BinaryOp::Modulo:
        left.MODit(right);
        break;
    case BinaryOp::Power:
        left.POWit(right);
        break;
    case BinaryOp::Concat:
        left.CONCATit(right);
        break;
    case BinaryOp::Xor:
        left.MakeAllBool().XORit(right.MakeAllBool());
        break;
    case BinaryOp::Eqv:
        left.MakeAllBool().EQVit(right.MakeAllBool());
        break;
    case BinaryOp::Imp:
        left.MakeAllBool().IMPit(right.MakeAllBool());
        break;
    }
}

class Binary final : public Node {
public:
    Binary(BinaryOp op, NodePtr left, NodePtr right, Position at)
        : m_op(op), m_left(std::move(left)), m_right(std::move(right)), m_at(at) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        if (!m_left->Run(run, result))
            return false;
        QAnyValue right;
        if (!m_right->Run(run, right))
            return false;
        run.At(m_at.cursor, m_at.mark);
        ApplyBinary(m_op, result, right);
        return true;
    }

private:
    BinaryOp m_op;
    NodePtr m_left;
    NodePtr m_right;
    Position m_at;
};

// "or" and "and": the right side runs only when the left one leaves the outcome open.
class ShortCircuit final : public Node {
public:
    ShortCircuit(bool isOr, NodePtr left, NodePtr right)
        : m_isOr(isOr), m_left(std::move(left)), m_right(std::move(right)) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        if (!m_left->Run(run, result))
            return false;
        result.MakeAllBool();
        if (m_isOr ? result.IsTRUE() : result.IsFALSE())
            return true;
        QAnyValue right;
        if (!m_right->Run(run, right))
            return false;
        right.MakeAllBool();
        if (!result.IsArray() && !right.IsArray())
            result = right;
        else if (m_isOr)
            result.ORit(right);
        else
            result.ANDit(right);
        return true;
    }

private:
    bool m_isOr;
    NodePtr m_left;
    NodePtr m_right;
};

// The right side of a comparison may say "it" for the left value: while it runs, the variable
// holds the left value, and afterwards it is put back. A right side that reads no name cannot
// tell, and runs without.
class Comparing : public Node {
public:
    Comparing(NodePtr left, bool readsNames, Position at)
        : m_left(std::move(left)), m_readsNames(readsNames), m_at(at) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        if (!m_left->Run(run, result))
            return false;
        if (!m_readsNames)
            return CompareRight(run, result);
        QEvaluator& evaluator = run.Evaluator();
        const PropId& it = ExpressionWord().it;
        QAnyValue savedIt;
        const bool hadIt = evaluator.GetVar(it, savedIt);
        evaluator.SetVar(it, result);
        const bool ok = CompareRight(run, result);
        if (hadIt)
            evaluator.SetVar(it, savedIt);
        else
            run.RemoveVar(it);
        return ok;
    }

protected:
    virtual bool CompareRight(QCompiledRun& run, QAnyValue& left) const = 0;
    const Position& At() const { return m_at; }

private:
    NodePtr m_left;
    bool m_readsNames;
    Position m_at;
};

class Compare final : public Comparing {
public:
    Compare(walk::Comparison comparison, NodePtr left, NodePtr right, bool readsNames, Position at)
        : Comparing(std::move(left), readsNames, at), m_comparison(comparison),
          m_right(std::move(right)) {}

private:
    bool CompareRight(QCompiledRun& run, QAnyValue& left) const override {
        QAnyValue right;
        if (!m_right->Run(run, right))
            return false;
        run.At(At().cursor, At().mark);
        ApplyComparison(left, m_comparison, right);
        return true;
    }

    walk::Comparison m_comparison;
    NodePtr m_right;
};

class Between final : public Comparing {
public:
    Between(NodePtr left, NodePtr low, NodePtr high, bool exclusive, bool negate, bool readsNames,
            Position at)
        : Comparing(std::move(left), readsNames, at), m_low(std::move(low)),
          m_high(std::move(high)), m_exclusive(exclusive), m_negate(negate) {}

private:
    bool CompareRight(QCompiledRun& run, QAnyValue& left) const override {
        QAnyValue low;
        QAnyValue high;
        if (!m_low->Run(run, low) || !m_high->Run(run, high))
            return false;
        run.At(At().cursor, At().mark);
        ApplyBetween(left, low, high, m_exclusive, m_negate);
        return true;
    }

    NodePtr m_low;
    NodePtr m_high;
    bool m_exclusive;
    bool m_negate;
};

// "condition ? whenTrue : whenFalse": a branch runs when the condition does not rule it out, so
// both run for a condition that is neither true nor false.
class Conditional final : public Node {
public:
    Conditional(NodePtr condition, NodePtr whenTrue, NodePtr whenFalse)
        : m_condition(std::move(condition)), m_whenTrue(std::move(whenTrue)),
          m_whenFalse(std::move(whenFalse)) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        if (!m_condition->Run(run, result))
            return false;
        const bool needTrue = !result.IsFALSE();
        const bool needFalse = !result.IsTRUE();
        QAnyValue whenTrue;
        QAnyValue whenFalse;
        if (needTrue && !m_whenTrue->Run(run, whenTrue))
            return false;
        if (needFalse && !m_whenFalse->Run(run, whenFalse))
            return false;
        ChooseBranch(result, needTrue, needFalse, whenTrue, whenFalse);
        return true;
    }

private:
    NodePtr m_condition;
    NodePtr m_whenTrue;
    NodePtr m_whenFalse;
};

// The one branch of a conditional whose condition is known: it fills a value of its own, as the
// walk's branch does, which becomes the result.
class Branch final : public Node {
public:
    explicit Branch(NodePtr branch) : m_branch(std::move(branch)) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        QAnyValue value;
        if (!m_branch->Run(run, value))
            return false;
        result = std::move(value);
        return true;
    }

private:
    NodePtr m_branch;
};

// Statements separated by ";" or ":", each into the same value.
class Statements final : public Node {
public:
    explicit Statements(std::vector<NodePtr> statements) : m_statements(std::move(statements)) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        for (const NodePtr& statement : m_statements)
            if (!statement->Run(run, result))
                return false;
        return true;
    }

private:
    std::vector<NodePtr> m_statements;
};

class Name final : public Node {
public:
    Name(const CString& text, bool simple, int depth, Position at)
        : m_name(text, simple), m_depth(depth), m_at(at) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        run.At(m_at.cursor, m_at.mark);
        return run.LookUpName(result, m_name, m_depth);
    }

    bool FailsAtItsEnd() const override { return true; }

private:
    NameToLookUp m_name;
    int m_depth;
    Position m_at;
};

// "name(arguments)" of a function that takes its arguments evaluated: each is evaluated in turn,
// then the function is called as the walk calls it.
class Call final : public Node {
public:
    Call(const FullId& name, std::vector<NodePtr> arguments, bool quiet, int depth, Position at)
        : m_name(name), m_arguments(std::move(arguments)), m_quiet(quiet), m_depth(depth),
          m_at(at) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        std::vector<QAnyValue> values(m_arguments.size());
        for (std::size_t i = 0; i < m_arguments.size(); ++i) {
            if (m_quiet)
                run.RunQuietly(*m_arguments[i], values[i]);
            else if (!m_arguments[i]->Run(run, values[i]))
                return false;
        }
        run.At(m_at.cursor, m_at.mark);
        return run.Call(result, m_name, values, m_depth);
    }

private:
    FullId m_name;
    std::vector<NodePtr> m_arguments;
    bool m_quiet;
    int m_depth;
    Position m_at;
};

// "%N".
class Argument final : public Node {
public:
    Argument(int index, Position at) : m_index(index), m_at(at) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        if (run.Evaluator().GetArg(m_index, result))
            return true;
        run.At(m_at.cursor, m_at.mark);
        return UnknownArgument(run.Evaluator(), m_index);
    }
    bool FailsAtItsEnd() const override { return true; }

private:
    int m_index;
    Position m_at;
};

// "iff(condition, then, else)", also spelt "if": only the branch taken runs, the else-branch
// when the condition is not true.
class Iff final : public Node {
public:
    Iff(NodePtr condition, NodePtr whenTrue, NodePtr whenFalse)
        : m_condition(std::move(condition)), m_whenTrue(std::move(whenTrue)),
          m_whenFalse(std::move(whenFalse)) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        QAnyValue condition;
        if (!m_condition->Run(run, condition))
            return false;
        QAnyValue value;
        if (!(condition.IsTRUE() ? m_whenTrue : m_whenFalse)->Run(run, value))
            return false;
        result = std::move(value);
        return true;
    }

private:
    NodePtr m_condition;
    NodePtr m_whenTrue;
    NodePtr m_whenFalse;
};

// "min(...)" or "max(...)": each value taken as soon as it is evaluated.
class ExtremeOf final : public Node {
public:
    ExtremeOf(bool isMin, std::vector<NodePtr> arguments)
        : m_isMin(isMin), m_arguments(std::move(arguments)) {}
    bool Run(QCompiledRun& run, QAnyValue& result) const override {
        Extreme extreme(m_isMin);
        for (const NodePtr& argument : m_arguments) {
            QAnyValue value;
            if (!argument->Run(run, value))
                return false;
            extreme.Take(value);
        }
        result = extreme.Result();
        return true;
    }

private:
    bool m_isMin;
    std::vector<NodePtr> m_arguments;
};

// --- Folding ------------------------------------------------------------------------------------

// A number, or a quantity in units: values whose operations depend on nothing but themselves.
bool IsFoldable(const QAnyValue& value) {
    switch (value.Type()) {
    case QAnyValue::TYPE_BOOL:
    case QAnyValue::TYPE_INT:
    case QAnyValue::TYPE_DOUBLE:
    case QAnyValue::TYPE_MONEY:
    case QAnyValue::TYPE_TIME:
    case QAnyValue::TYPE_LENGTH:
    case QAnyValue::TYPE_AREA:
    case QAnyValue::TYPE_VOLUME:
    case QAnyValue::TYPE_ANGLE:
        return true;
    default:
        return false;
    }
}

bool IsFoldedResult(const QAnyValue& value) {
    return IsFoldable(value) || value.IsError();
}

// Runs `operation` as the formula would and tells what it does to the floating-point flags: false
// when it raises any (it is then left to run each time); else `clears` says whether it clears
// them. The flags in force are put back.
template <class Operation>
bool FoldInto(QAnyValue& value, Operation operation, bool& clears) {
    const int saved = std::fetestexcept(FE_ALL_EXCEPT);
    bool foldable = false;
    try {
        std::feclearexcept(FE_ALL_EXCEPT);
        QAnyValue fromClear = operation();
        const int raisedFromClear = std::fetestexcept(FE_ALL_EXCEPT);
        std::feraiseexcept(FE_ALL_EXCEPT);
        QAnyValue fromRaised = operation();
        const int leftFromRaised = std::fetestexcept(FE_ALL_EXCEPT);
        foldable = raisedFromClear == 0 &&
                   (leftFromRaised == 0 || leftFromRaised == FE_ALL_EXCEPT) &&
                   IsFoldedResult(fromClear);
        clears = leftFromRaised == 0;
        if (foldable)
            value = fromClear;
    } catch (...) {
        foldable = false;
    }
    std::feclearexcept(FE_ALL_EXCEPT);
    std::feraiseexcept(saved);
    return foldable;
}

const QAnyValue* PlainConstant(const NodePtr& node) {
    const QAnyValue* value = node->ConstantValue();
    return value && IsFoldable(*value) ? value : nullptr;
}

} // namespace

// --- Compiling ----------------------------------------------------------------------------------

namespace {

// A recursive descent over the tokens that follows the walk step by step, building the nodes of
// what the walk would evaluate. Anything it does not compile, or cannot parse, gives null.
class Compiler {
public:
    explicit Compiler(const QTokenStream& stream) : m_stream(stream) {}

    NodePtr Formula() {
        const QToken* first = Token();
        if (first && first->IsId() && (first->Id() == m_function || first->Id() == m_sub))
            return nullptr;
        NodePtr root = Block();
        return root && m_stream.PastEOF(m_pos) ? std::move(root) : nullptr;
    }

    int Depth() const { return m_maxDepth; }
    short End() const { return m_pos; }
    short LastMark() const { return m_mark; }

private:
    // One level of the walk's nesting count for its lifetime. Past the walk's limit the formula
    // fails whatever runs it, so it is left to the walk, which says so.
    class Level {
    public:
        explicit Level(Compiler& compiler) : m_compiler(compiler) {
            m_compiler.m_maxDepth = std::max(m_compiler.m_maxDepth, ++m_compiler.m_depth);
        }
        ~Level() { --m_compiler.m_depth; }
        Level(const Level&) = delete;
        Level& operator=(const Level&) = delete;
        bool TooDeep() const { return m_compiler.m_depth > QEvaluator::c_maxNestingDepth; }

    private:
        Compiler& m_compiler;
    };

    enum class NameParse { None, Name, Refused };

    // --- Tokens ---

    int Key(int ahead = 0) const { return m_stream.MatchKeyAt(static_cast<short>(m_pos + ahead)); }
    const QToken* Token() const { return m_stream.GetToken(m_pos); }
    static int IdKey(PropId id) {
        return id.IsEmpty() ? -3 : QTokenStream::c_idKeyBase + id.UniqueId();
    }
    bool TestChar(char16_t c) const { return Key() == c; }
    bool MatchChar(char16_t c) {
        if (!TestChar(c))
            return false;
        ++m_pos;
        return true;
    }
    bool TestCharPair(char16_t first, char16_t second) const {
        return Key() == first && Key(1) == second;
    }
    bool MatchCharPair(char16_t first, char16_t second) {
        if (!TestCharPair(first, second))
            return false;
        m_pos = static_cast<short>(m_pos + 2);
        return true;
    }
    bool TestId(PropId id) const { return Key() == IdKey(id); }
    bool MatchId(PropId id) {
        if (!TestId(id))
            return false;
        ++m_pos;
        return true;
    }
    const QToken* IdToken() const {
        const QToken* token = Token();
        return token && token->IsId() ? token : nullptr;
    }
    Position Here() const { return {m_pos, m_mark}; }

    // --- Blocks and statements ---

    bool AtEndOfList() const {
        const QToken* token = Token();
        if (!token)
            return true;
        if (token->IsChar()) {
            const char16_t c = token->Char();
            return c == u'}' || c == u')' || c == u']' || c == u',';
        }
        return token->IsId() && EndsStatementList(token->Id());
    }

    bool AtSeparator() const { return TestChar(u';') || TestChar(u':'); }

    // A block without an opener: a list of statements.
    NodePtr Block() {
        if (TestChar(u'{') || TestId(m_begin))
            return nullptr;
        std::vector<NodePtr> statements;
        while (!AtEndOfList()) {
            if (AtSeparator()) {
                ++m_pos;
                continue;
            }
            NodePtr statement = Statement();
            if (!statement || (!AtSeparator() && !AtEndOfList()))
                return nullptr;
            statements.push_back(std::move(statement));
        }
        if (statements.size() == 1)
            return std::move(statements.front());
        return std::make_unique<Statements>(std::move(statements));
    }

    // Only a statement that is an expression is compiled.
    NodePtr Statement() {
        const Level level(*this);
        if (level.TooDeep())
            return nullptr;
        m_mark = m_pos;
        if (TestChar(u'{') || TestId(m_begin))
            return nullptr;
        if (const QToken* word = IdToken(); word && IsStatementWord(word->Id()))
            return nullptr;
        const short start = m_pos;
        switch (StatementName()) {
        case NameParse::Refused:
            return nullptr;
        case NameParse::Name:
            if (!IsNoAssignment())
                return nullptr;
            break;
        case NameParse::None:
            break;
        }
        m_pos = start;
        m_mark = m_pos;
        return ConditionalLevel();
    }

    // The name a statement may assign to; brackets in it are evaluated, and are left to the walk.
    NameParse StatementName() {
        while (MatchId(m_the)) {
        }
        if (!IdToken())
            return NameParse::None;
        ++m_pos;
        return TestChar(u'[') ? NameParse::Refused : NameParse::Name;
    }

    // After the name: true when the statement is no assignment. "=" assigns when the value
    // behind it ends the statement; the walk parses the value to see.
    bool IsNoAssignment() {
        if (TestCharPair(u':', u'='))
            return false;
        if (TestCharPair(u'=', u'=') || !MatchChar(u'='))
            return true;
        const NodePtr value = ExpressionTrial();
        return value && !EndsAssignment();
    }

    NodePtr ExpressionTrial() {
        m_mark = m_pos;
        return ConditionalLevel();
    }

    bool EndsAssignment() const {
        if (TestChar(u';') || TestChar(u':') || TestChar(u'}'))
            return true;
        const QToken* token = IdToken();
        return token && EndsAssignmentWord(token->Id());
    }

    // --- Expressions, level by level ---

    NodePtr ConditionalLevel() {
        const Level level(*this);
        if (level.TooDeep())
            return nullptr;
        NodePtr condition = XorLevel();
        if (!condition || TestId(Words().where))
            return nullptr;
        if (!MatchChar(u'?'))
            return condition;
        NodePtr whenTrue = ConditionalLevel();
        if (!whenTrue || !MatchChar(u':'))
            return nullptr;
        NodePtr whenFalse = ConditionalLevel();
        if (!whenFalse)
            return nullptr;
        if (NodePtr chosen = ChosenBranch(condition, whenTrue, whenFalse))
            return chosen;
        return std::make_unique<Conditional>(std::move(condition), std::move(whenTrue),
                                             std::move(whenFalse));
    }

    // A condition known when compiling that is true or false runs one branch only, and the other
    // is never evaluated: that branch alone is the value. A condition that clears the
    // floating-point flags keeps its node, which clears them.
    static NodePtr ChosenBranch(const NodePtr& condition, NodePtr& whenTrue, NodePtr& whenFalse) {
        const QAnyValue* known = condition->ConstantValue();
        if (!known || condition->ClearsFPStatus() || known->IsArray())
            return nullptr;
        const bool needTrue = !known->IsFALSE();
        const bool needFalse = !known->IsTRUE();
        if (needTrue == needFalse)
            return nullptr;
        NodePtr& chosen = needTrue ? whenTrue : whenFalse;
        if (chosen->ConstantValue())
            return std::move(chosen);
        return std::make_unique<Branch>(std::move(chosen));
    }

    NodePtr XorLevel() {
        NodePtr left = OrLevel();
        while (left) {
            BinaryOp op;
            if (MatchId(Words().xorWord))
                op = BinaryOp::Xor;
            else if (MatchId(Words().eqv))
                op = BinaryOp::Eqv;
            else if (MatchId(Words().imp))
                op = BinaryOp::Imp;
            else
                return left;
            NodePtr right = OrLevel();
            left = right ? MakeBinary(op, std::move(left), std::move(right)) : nullptr;
        }
        return nullptr;
    }

    NodePtr OrLevel() {
        NodePtr left = AndLevel();
        while (left && (MatchId(Words().orWord) || MatchCharPair(u'|', u'|'))) {
            NodePtr right = AndLevel();
            left = right ? std::make_unique<ShortCircuit>(true, std::move(left), std::move(right))
                         : nullptr;
        }
        return left;
    }

    NodePtr AndLevel() {
        NodePtr left = NotLevel();
        while (left && (MatchId(Words().andWord) || MatchCharPair(u'&', u'&'))) {
            NodePtr right = NotLevel();
            left = right ? std::make_unique<ShortCircuit>(false, std::move(left), std::move(right))
                         : nullptr;
        }
        return left;
    }

    NodePtr NotLevel() {
        if (!MatchId(Words().notWord) && !MatchChar(u'!'))
            return ComparisonLevel();
        const Level level(*this);
        if (level.TooDeep())
            return nullptr;
        NodePtr operand = NotLevel();
        return operand ? MakeUnary(UnaryOp::Not, nullptr, std::move(operand)) : nullptr;
    }

    NodePtr ComparisonLevel() {
        NodePtr left = ConcatLevel();
        if (!left)
            return nullptr;
        if (MatchId(Words().is))
            return IsForm(std::move(left));
        const walk::Comparison comparison = MatchComparisonOperator();
        if (comparison == walk::Comparison::None)
            return left;
        return CompareWith(comparison, std::move(left));
    }

    // The pairs first, so that ">=" is not taken for ">".
    walk::Comparison MatchComparisonOperator() {
        using walk::Comparison;
        if (MatchCharPair(u'>', u'='))
            return Comparison::GE;
        if (MatchCharPair(u'<', u'='))
            return Comparison::LE;
        if (MatchCharPair(u'<', u'>') || MatchCharPair(u'!', u'='))
            return Comparison::NE;
        if (MatchCharPair(u'=', u'=') || MatchChar(u'='))
            return Comparison::EQ;
        if (MatchChar(u'>'))
            return Comparison::GT;
        if (MatchChar(u'<'))
            return Comparison::LT;
        return Comparison::None;
    }

    NodePtr CompareWith(walk::Comparison comparison, NodePtr left) {
        const int namesBefore = m_names;
        NodePtr right = ConcatLevel();
        if (!right)
            return nullptr;
        const bool readsNames = m_names != namesBefore;
        const Position at = Here();
        if (!readsNames) {
            NodePtr folded = Fold(left, right, [comparison](QAnyValue& a, QAnyValue& b) {
                ApplyComparison(a, comparison, b);
            });
            if (folded)
                return folded;
        }
        return std::make_unique<Compare>(comparison, std::move(left), std::move(right), readsNames,
                                         at);
    }

    // Everything after "is": an optional "not", the words of the comparison, the right side.
    NodePtr IsForm(NodePtr left) {
        using walk::Comparison;
        const ExpressionWords& w = Words();
        const bool negate = MatchId(w.notWord);
        Comparison comparison = Comparison::EQ;
        if (MatchId(w.equal)) {
            if (!MatchId(w.to))
                return nullptr;
        } else if (MatchId(w.at)) {
            if (MatchId(w.least))
                comparison = Comparison::GE;
            else if (MatchId(w.most))
                comparison = Comparison::LE;
            else
                return nullptr;
        } else if (MatchId(w.greater) || MatchId(w.more)) {
            if (!MatchId(w.than))
                return nullptr;
            comparison = Comparison::GT;
        } else if (MatchId(w.less) || MatchId(w.fewer)) {
            if (!MatchId(w.than))
                return nullptr;
            comparison = Comparison::LT;
        } else if (MatchId(w.between)) {
            return BetweenForm(std::move(left), negate);
        }
        return CompareWith(negate ? Negated(comparison) : comparison, std::move(left));
    }

    NodePtr BetweenForm(NodePtr left, bool negate) {
        const ExpressionWords& w = Words();
        const int namesBefore = m_names;
        NodePtr low = ConcatLevel();
        if (!low || !MatchId(w.andWord))
            return nullptr;
        NodePtr high = ConcatLevel();
        if (!high)
            return nullptr;
        const bool exclusive = !MatchId(w.inclusive) && MatchId(w.exclusive);
        return std::make_unique<Between>(std::move(left), std::move(low), std::move(high),
                                         exclusive, negate, m_names != namesBefore, Here());
    }

    NodePtr ConcatLevel() {
        NodePtr left = AddSubLevel();
        while (left && !TestCharPair(u'&', u'&') && MatchChar(u'&')) {
            NodePtr right = AddSubLevel();
            left = right ? std::make_unique<Binary>(BinaryOp::Concat, std::move(left),
                                                    std::move(right), Here())
                         : nullptr;
        }
        return left;
    }

    NodePtr AddSubLevel() {
        const ExpressionWords& w = Words();
        NodePtr left = MulDivLevel();
        while (left) {
            BinaryOp op;
            if (MatchChar(u'+') || MatchId(w.plus))
                op = BinaryOp::Add;
            else if (MatchChar(u'-') || MatchId(w.minus) || MatchId(w.less))
                op = BinaryOp::Subtract;
            else
                return left;
            NodePtr right = MulDivLevel();
            left = right ? MakeBinary(op, std::move(left), std::move(right)) : nullptr;
        }
        return nullptr;
    }

    NodePtr MulDivLevel() {
        NodePtr left = PowerLevel();
        while (left) {
            BinaryOp op;
            if (MatchChar(u'*'))
                op = BinaryOp::Multiply;
            else if (MatchChar(u'/'))
                op = BinaryOp::Divide;
            else if (MatchChar(u'\\'))
                op = BinaryOp::WholeDivide;
            else if (MatchId(Words().mod))
                op = BinaryOp::Modulo;
            else
                return left;
            NodePtr right = PowerLevel();
            left = right ? MakeBinary(op, std::move(left), std::move(right)) : nullptr;
        }
        return nullptr;
    }

    NodePtr PowerLevel() {
        NodePtr left = PercentLevel();
        while (left && MatchChar(u'^')) {
            NodePtr right = PercentLevel();
            left = right ? MakeBinary(BinaryOp::Power, std::move(left), std::move(right)) : nullptr;
        }
        return left;
    }

    NodePtr PercentLevel() {
        NodePtr operand = PrefixLevel();
        if (operand && MatchChar(u'%'))
            return MakeUnary(UnaryOp::Percent, nullptr, std::move(operand));
        return operand;
    }

    NodePtr PrefixLevel() {
        UnaryOp op = UnaryOp::Negate;
        bool plus = false;
        if (MatchChar(u'-'))
            op = UnaryOp::Negate;
        else if (MatchChar(u'!'))
            op = UnaryOp::Not;
        else if (MatchChar(u'$'))
            op = UnaryOp::Dollar;
        else if (MatchChar(u'+'))
            plus = true;
        else
            return SuffixLevel();
        const Level level(*this);
        if (level.TooDeep())
            return nullptr;
        NodePtr operand = PrefixLevel();
        if (!operand || plus)
            return operand;
        return MakeUnary(op, nullptr, std::move(operand));
    }

    // A unit word after the value; a subscript is left to the walk.
    NodePtr SuffixLevel() {
        NodePtr value = SimpleLevel();
        if (!value)
            return nullptr;
        if (const UnitWord* unit = UnitWordOf(Token())) {
            ++m_pos;
            return MakeUnary(UnaryOp::Unit, unit, std::move(value));
        }
        return TestChar(u'(') ? nullptr : std::move(value);
    }

    NodePtr SimpleLevel() {
        if (MatchChar(u'%'))
            return ArgumentNumber();
        if (TestChar(u'#') || TestChar(u'@') || TestChar(u'['))
            return nullptr;
        if (MatchChar(u'(')) {
            NodePtr block = Block();
            return block && MatchChar(u')') ? std::move(block) : nullptr;
        }
        const short start = m_pos;
        CString name;
        bool simple = true;
        switch (FullName(name, simple)) {
        case NameParse::Refused:
            return nullptr;
        case NameParse::Name:
            if (MatchChar(u'('))
                return CallForm(FullId(name));
            ++m_names;
            return std::make_unique<Name>(name, simple, m_depth, Here());
        case NameParse::None:
            break;
        }
        m_pos = start;
        const QToken* token = Token();
        if (!token || !token->IsValue())
            return nullptr;
        ++m_pos;
        return std::make_unique<Constant>(token->Value(), false);
    }

    // After "name(": the arguments, each a block, up to the ")". A function that parses its own
    // arguments is left to the walk, and so is a call with more arguments than any function
    // takes. A function that asks whether its argument fails keeps going after a failure from
    // wherever the argument stopped, so only an argument that fails at its end is compiled.
    NodePtr CallForm(const FullId& name) {
        switch (OwnArgumentsOf(name)) {
        case OwnArguments::None:
            break;
        case OwnArguments::Iff:
            return IffForm();
        case OwnArguments::Min:
            return ExtremeForm(true);
        case OwnArguments::Max:
            return ExtremeForm(false);
        case OwnArguments::Other:
            return nullptr;
        }
        const bool quiet = QEvaluator::RequiresEvaluationWithNoErrorReporting(name);
        std::vector<NodePtr> arguments;
        if (!MatchChar(u')')) {
            while (true) {
                if (AtEndOfList())
                    return nullptr;
                const short start = m_pos;
                NodePtr argument = Block();
                if (!argument || (quiet && !FailsAtItsEnd(*argument, start)))
                    return nullptr;
                arguments.push_back(std::move(argument));
                if (MatchChar(u')'))
                    break;
                if (arguments.size() == c_maxArguments || !MatchChar(u','))
                    return nullptr;
            }
        }
        // A call may read the variables, "it" among them.
        ++m_names;
        return std::make_unique<Call>(name, std::move(arguments), quiet, m_depth, Here());
    }

    // An argument of a call: a block, which may not be missing.
    NodePtr ArgumentBlock() { return AtEndOfList() ? nullptr : Block(); }

    // "iff(condition, then, else)": the condition is an expression, each branch a block.
    NodePtr IffForm() {
        NodePtr condition = ConditionalLevel();
        if (!condition || !MatchChar(u','))
            return nullptr;
        NodePtr whenTrue = ArgumentBlock();
        if (!whenTrue || !MatchChar(u','))
            return nullptr;
        NodePtr whenFalse = ArgumentBlock();
        if (!whenFalse || !MatchChar(u')'))
            return nullptr;
        ++m_names;
        return std::make_unique<Iff>(std::move(condition), std::move(whenTrue),
                                     std::move(whenFalse));
    }

    // "min(...)" and "max(...)": any number of blocks.
    NodePtr ExtremeForm(bool isMin) {
        std::vector<NodePtr> arguments;
        while (true) {
            NodePtr argument = ArgumentBlock();
            if (!argument)
                return nullptr;
            arguments.push_back(std::move(argument));
            if (MatchChar(u')'))
                break;
            if (!MatchChar(u','))
                return nullptr;
        }
        ++m_names;
        return std::make_unique<ExtremeOf>(isMin, std::move(arguments));
    }

    // Whether the node, read from `start` to here, fails only at its end. A parenthesis or a
    // separator around a name would leave the walk before them.
    bool FailsAtItsEnd(const Node& node, short start) const {
        if (node.ConstantValue())
            return true;
        for (short i = start; i < m_pos; ++i) {
            const int key = m_stream.MatchKeyAt(i);
            if (key >= 0 && key < QTokenStream::c_idKeyBase && key != u'.' && key != u'%')
                return false;
        }
        return node.FailsAtItsEnd();
    }

    NodePtr ArgumentNumber() {
        const QToken* token = Token();
        if (!token || !token->IsValue() || !token->Value().IsSimpleNumeric())
            return nullptr;
        ++m_pos;
        const int index = QAnyValue(token->Value()).MakeInt();
        return std::make_unique<Argument>(index, Here());
    }

    // "the" words, then an identifier; a name with brackets is left to the walk.
    NameParse NamePart(CString& text) {
        const short start = m_pos;
        while (MatchId(m_the)) {
        }
        const QToken* token = IdToken();
        if (!token) {
            m_pos = start;
            return NameParse::None;
        }
        ++m_pos;
        if (TestChar(u'['))
            return NameParse::Refused;
        text = token->Id().ToString();
        return NameParse::Name;
    }

    // A dotted name, "a.b.c", then "of" and the context's name: "width of frame" is
    // "frame.width".
    NameParse FullName(CString& text, bool& simple) {
        const NameParse first = NamePart(text);
        if (first != NameParse::Name)
            return first;
        simple = true;
        while (MatchChar(u'.')) {
            CString part;
            if (NamePart(part) != NameParse::Name)
                return NameParse::Refused;
            text += u"." + part;
            simple = false;
        }
        if (!MatchId(m_of))
            return NameParse::Name;
        const Level level(*this);
        if (level.TooDeep())
            return NameParse::Refused;
        CString context;
        bool contextSimple = true;
        if (FullName(context, contextSimple) != NameParse::Name)
            return NameParse::Refused;
        text = context + u"." + text;
        simple = false;
        return NameParse::Name;
    }

    // --- Nodes ---

    template <class Operation>
    NodePtr Fold(const NodePtr& left, const NodePtr& right, Operation operation) {
        const QAnyValue* a = PlainConstant(left);
        const QAnyValue* b = right ? PlainConstant(right) : nullptr;
        if (!a || (right && !b))
            return nullptr;
        QAnyValue value;
        bool clears = false;
        const bool folded = FoldInto(
            value,
            [&] {
                QAnyValue result(*a);
                QAnyValue other = b ? *b : QAnyValue();
                operation(result, other);
                return result;
            },
            clears);
        if (!folded)
            return nullptr;
        clears = clears || left->ClearsFPStatus() || (right && right->ClearsFPStatus());
        return std::make_unique<Constant>(value, clears);
    }

    NodePtr MakeBinary(BinaryOp op, NodePtr left, NodePtr right) {
        if (op != BinaryOp::Concat) {
            NodePtr folded =
                Fold(left, right, [op](QAnyValue& a, QAnyValue& b) { ApplyBinary(op, a, b); });
            if (folded)
                return folded;
        }
        return std::make_unique<Binary>(op, std::move(left), std::move(right), Here());
    }

    NodePtr MakeUnary(UnaryOp op, const UnitWord* unit, NodePtr operand) {
        if (op != UnaryOp::Dollar) {
            NodePtr folded = Fold(operand, nullptr, [op, unit](QAnyValue& a, QAnyValue&) {
                ApplyUnary(op, unit, a);
            });
            if (folded)
                return folded;
        }
        return std::make_unique<Unary>(op, unit, std::move(operand), Here());
    }

    static const ExpressionWords& Words() { return ExpressionWord(); }

    const QTokenStream& m_stream;
    short m_pos = 0;
    // The walk's last good position: where its latest statement or expression began.
    short m_mark = 0;
    int m_depth = 0;
    int m_maxDepth = 0;
    // The names compiled so far.
    int m_names = 0;
    const PropId m_the{u"the"};
    const PropId m_of{u"of"};
    const PropId m_begin{u"begin"};
    const PropId m_function{u"function"};
    const PropId m_sub{u"sub"};
};

} // namespace

// --- The compiled formula -----------------------------------------------------------------------

QCompiledFormula::QCompiledFormula(NodePtr root, int depth, short end, short lastMark)
    : m_root(std::move(root)), m_depth(depth), m_end(end), m_lastMark(lastMark) {}

QCompiledFormula::~QCompiledFormula() = default;

std::unique_ptr<QCompiledFormula> QCompiledFormula::Compile(const QTokenStream& stream) {
    if (stream.Count() == 0)
        return nullptr;
    Compiler compiler(stream);
    NodePtr root = compiler.Formula();
    if (!root)
        return nullptr;
    return std::unique_ptr<QCompiledFormula>(new QCompiledFormula(
        std::move(root), compiler.Depth(), compiler.End(), compiler.LastMark()));
}

bool QCompiledFormula::CanRun(const QEvaluator& evaluator) const {
    return typeid(evaluator) == typeid(QEvaluator) && evaluator.IsEval() && !evaluator.IsDebug() &&
           !evaluator.IsAction() &&
           QEvaluator::NestingDepth() + m_depth <= QEvaluator::c_maxNestingDepth;
}

bool QCompiledFormula::Run(QEvaluator& evaluator) const {
    ++t_compiledRuns;
    QCompiledRun run(evaluator);
    if (!m_root->Run(run, evaluator.Result()))
        return false;
    run.At(m_end, m_lastMark);
    return true;
}

} // namespace keel
