#pragma once

#include "keel/formula/state.h"
#include "keel/formula/tokeniser.h"
#include "keel/values/anyvalue.h"
#include "keel/values/map.h"

#include <cstdint>
#include <vector>

namespace keel {

class QFormulaContext;

// Parses and evaluates a formula in one pass over its cached token stream: recursive descent
// with no syntax tree, a branch not taken being parsed with evaluation counted off. One
// evaluator serves one evaluation; applications derive from it to add constants and functions
// and install a factory that makes their own (see evaluatorfactory.h).
//
// The work is spread over four files: evaluator.cpp (entry points, reporters, arguments and
// variables), evaluatorexpressions.cpp (the thirteen levels of expressions and names),
// evaluatorstatements.cpp (blocks and statements), evaluatorconstants.cpp (named constants
// and the static entry points) and evaluatorfunctions.cpp (calls).
class QEvaluator : public QTokeniser {
public:
    enum LANGUAGE_STYLE {
        LS_NONE = 0,
        LS_BRACES = 2,
        LS_WORDS = 3,
    };

    // The result is made empty. Raises the process-wide nesting count and sets the process-wide
    // report switch to `reportErrors`; the destructor puts both back.
    QEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context, bool passThrough,
               bool reportErrors, bool isAction);
    ~QEvaluator() override;

    // --- Extension points, in this order -------------------------------------------------------

    // Reads a name at the cursor; puts the cursor back when there is none.
    virtual bool ParseVarnameWithContext(PropId& name);
    virtual bool FindContextForAtOperator(QAnyValue& result);
    // An application's own constants: true when `name` is one (the result is then set only when
    // evaluation is on).
    virtual bool EvaluateNamedConstantExtras(QAnyValue& result, PropId name);
    // An application's bodies for names of the known-function map that have none here: true
    // when the name and count are served.
    virtual bool EvaluateSimpleFunctionExtras(QAnyValue& result, FullId name);
    virtual bool EvaluateUnaryFunctionExtras(QAnyValue& result, FullId name, const QAnyValue& a1);
    virtual bool EvaluateBinaryFunctionExtras(QAnyValue& result, FullId name, const QAnyValue& a1,
                                              const QAnyValue& a2);
    virtual bool EvaluateTernaryFunctionExtras(QAnyValue& result, FullId name, const QAnyValue& a1,
                                               const QAnyValue& a2, const QAnyValue& a3);
    virtual bool EvaluateQuadaryFunctionExtras(QAnyValue& result, FullId name, const QAnyValue& a1,
                                               const QAnyValue& a2, const QAnyValue& a3,
                                               const QAnyValue& a4);
    // An application's functions outside the known-function map: when IsDerivedClassDefined
    // says so, the Derived dispatcher of the call's count gives the whole result (its return is
    // the call's success).
    virtual bool IsDerivedClassDefined(FullId name);
    virtual bool EvaluateSimpleFunctionDerived(QAnyValue& result, FullId name);
    virtual bool EvaluateUnaryFunctionDerived(QAnyValue& result, FullId name, const QAnyValue& a1);
    virtual bool EvaluateBinaryFunctionDerived(QAnyValue& result, FullId name, const QAnyValue& a1,
                                               const QAnyValue& a2);
    virtual bool EvaluateTernaryFunctionDerived(QAnyValue& result, FullId name, const QAnyValue& a1,
                                                const QAnyValue& a2, const QAnyValue& a3);
    virtual bool EvaluateQuadaryFunctionDerived(QAnyValue& result, FullId name, const QAnyValue& a1,
                                                const QAnyValue& a2, const QAnyValue& a3,
                                                const QAnyValue& a4);
    virtual bool EvaluateQuintaryFunctionDerived(QAnyValue& result, FullId name,
                                                 const QAnyValue& a1, const QAnyValue& a2,
                                                 const QAnyValue& a3, const QAnyValue& a4,
                                                 const QAnyValue& a5);
    virtual bool EvaluateSextaryFunctionDerived(QAnyValue& result, FullId name, const QAnyValue& a1,
                                                const QAnyValue& a2, const QAnyValue& a3,
                                                const QAnyValue& a4, const QAnyValue& a5,
                                                const QAnyValue& a6);
    virtual bool EvaluateSeptaryFunctionDerived(QAnyValue& result, FullId name, const QAnyValue& a1,
                                                const QAnyValue& a2, const QAnyValue& a3,
                                                const QAnyValue& a4, const QAnyValue& a5,
                                                const QAnyValue& a6, const QAnyValue& a7);

    // --- Running -------------------------------------------------------------------------------

    // True when nothing failed; on failure the result is an error holding the message, which is
    // also shown when reports are on.
    bool Evaluate();
    // The same with evaluation counted off: a syntax check.
    bool EvaluateNoEval();
    operator QAnyValue&() { return m_result; }
    QAnyValue& Result() { return m_result; }
    QCacheState CacheState() const { return m_cacheState; }
    void RaiseCacheState(QCacheState state);
    const CString& Message() const { return m_message; }
    QFormulaContext* Context() const { return m_context; }

    // Arguments read by %1, %2, ...: one-based.
    void SetArg(int i, const QAnyValue& value);
    bool GetArg(int i, QAnyValue& value) const;
    int ArgCount() const { return m_args.GetSize(); }
    bool GetVar(PropId name, QAnyValue& value) const;
    void SetVar(PropId name, const QAnyValue& value);
    bool HasVar(PropId name) const;

    bool IsNoEval() const { return m_noEval > 0; }
    bool IsEval() const { return m_noEval <= 0; }
    void BeginNoEval() { ++m_noEval; }
    void EndNoEval() { --m_noEval; }
    class NoEval {
    public:
        explicit NoEval(QEvaluator& evaluator) : m_evaluator(evaluator) {
            m_evaluator.BeginNoEval();
        }
        ~NoEval() { m_evaluator.EndNoEval(); }
        NoEval(const NoEval&) = delete;
        NoEval& operator=(const NoEval&) = delete;

    private:
        QEvaluator& m_evaluator;
    };

    bool IsRunning() const { return Flag(c_running); }
    bool IsFailed() const { return Flag(c_failed); }
    bool IsPassThrough() const { return Flag(c_passThrough); }
    bool IsReportErrors() const { return Flag(c_reportErrors); }
    bool IsDebug() const { return Flag(c_debug); }
    void SetDebug(bool debug) { SetFlag(c_debug, debug); }
    bool IsAction() const { return Flag(c_action); }

    // Records the cursor as the last good position for error messages.
    void MarkOKUpToHere() { m_lastGood = SaveCursor(); }

    // Reports are off while it lives, for the functions that ask whether their argument fails.
    class QuietReports {
    public:
        explicit QuietReports(QEvaluator& evaluator);
        ~QuietReports();
        QuietReports(const QuietReports&) = delete;
        QuietReports& operator=(const QuietReports&) = delete;

    private:
        QEvaluator& m_evaluator;
        bool m_reportErrors;
        bool m_noReports;
    };

    // Adds a line of context to every error report made while it lives.
    class ExtraContextInfoForErrors {
    public:
        explicit ExtraContextInfoForErrors(const CString& line);
        ExtraContextInfoForErrors(const CString& line, const CString& second);
        ~ExtraContextInfoForErrors();
        ExtraContextInfoForErrors(const ExtraContextInfoForErrors&) = delete;
        ExtraContextInfoForErrors& operator=(const ExtraContextInfoForErrors&) = delete;
    };
    // "\nin\n\t%s" or "\nin\n\t%s\n\t%s" for each line in force, innermost last; empty when
    // `include` is false or there are none.
    static CString ContextInfo(bool include);

    // --- Failure reporters: all write the message and return false -----------------------------

    bool Unknown(const CString& what, const CString& found);
    bool ActionOnly(const CString& found);
    bool ExpectingButFoundIn(const CString& what, const CString& found, const CString& in);
    bool ExpectingAfterButFound(const CString& what, const CString& after, const CString& found);
    bool ExpectingMatchingButFound(const CString& what, const CString& forWhat,
                                   const CString& found);
    bool ExpectingMatchingButFoundIn(const CString& what, const CString& forWhat,
                                     const CString& found, const CString& in);
    bool ExpectingCommaOrParenthesisButFoundIn(const CString& found, const CString& in);
    bool ErrorEvaluating(const CString& id);
    bool ErrorEvaluatingFunction(const CString& id);
    bool ErrorEvaluatingAtOrHash(const CString& op);
    bool ErrorEvaluatingWithFormula(const CString& id, const CString& formula);

    // The first context at or above `context` that has a name; null when there is none.
    static QFormulaContext* FindContextWithName(QFormulaContext* context);
    // The integer that ends a name, -1 when it ends in no digit.
    static int FindReverseInt(const CString& name);

    // --- Expressions (evaluatorexpressions.cpp) ------------------------------------------------

    bool EvaluateExpression(QAnyValue& result);
    bool EvaluateConditional(QAnyValue& result);
    bool EvaluateXOREQVIMPop(QAnyValue& result);
    bool EvaluateORop(QAnyValue& result);
    bool EvaluateANDop(QAnyValue& result);
    bool EvaluateNOTop(QAnyValue& result);
    bool EvaluateComparison(QAnyValue& result);
    bool EvaluateConcat(QAnyValue& result);
    bool EvaluateAddSub(QAnyValue& result);
    bool EvaluateMulDiv(QAnyValue& result);
    bool EvaluateExponentiation(QAnyValue& result, bool allowSubscript = true);
    bool EvaluatePercent(QAnyValue& result, bool allowSubscript = true);
    bool EvaluateNegPos(QAnyValue& result, bool allowSubscript = true);
    bool EvaluateSuffix(QAnyValue& result, bool allowSubscript);
    bool EvaluateSimple(QAnyValue& result);

    // Names: `the` is skipped and bracketed parts are evaluated and joined on, "a[2]".
    bool ParseVarname(PropId& name);
    bool ParseVarnameWithDot(FullId& name, bool& simple);
    // "width of frame" is "frame.width".
    bool ParseVarnameWithOf(FullId& name, bool& simple);
    bool ParseVarnameFull(FullId& name, bool& simple) { return ParseVarnameWithOf(name, simple); }
    bool FindContextForHashOperator(QAnyValue& result);

    // --- Statements (evaluatorstatements.cpp) --------------------------------------------------

    bool EvaluateBlockOrFunction(QAnyValue& result);
    // With `requireOpener`, a block that has neither an opener nor a statement fails.
    bool EvaluateBlock(QAnyValue& result, bool requireOpener = false);
    bool EvaluateStatement(QAnyValue& result, bool flag = false);
    bool EvaluateStatementHelper(QAnyValue& result, bool flag);
    bool HandleDoBegin(LANGUAGE_STYLE& style);
    LANGUAGE_STYLE BlockStyle() const;
    void UpdateBlockStyle(LANGUAGE_STYLE& style) const;
    bool EvaluateCaseAllowSubscripts(QAnyValue& result);
    bool EvaluateCaseNoSubscripts(QAnyValue& result);
    bool EvaluateConditionalOrSimplerForCase(QAnyValue& result, LANGUAGE_STYLE style);

    // --- Calls (evaluatorfunctions.cpp) --------------------------------------------------------

    // Entered after the "(" of `name(`.
    bool EvaluateFunction(QAnyValue& result, FullId name);
    bool EvaluateSimpleFunction(QAnyValue& result, FullId name);
    bool EvaluateUnaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1);
    bool EvaluateBinaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                const QAnyValue& a2);
    bool EvaluateTernaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                 const QAnyValue& a2, const QAnyValue& a3);
    bool EvaluateQuadaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                 const QAnyValue& a2, const QAnyValue& a3, const QAnyValue& a4);
    bool EvaluateQuintaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                  const QAnyValue& a2, const QAnyValue& a3, const QAnyValue& a4,
                                  const QAnyValue& a5);
    bool EvaluateSextaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                 const QAnyValue& a2, const QAnyValue& a3, const QAnyValue& a4,
                                 const QAnyValue& a5, const QAnyValue& a6);
    bool EvaluateSeptaryFunction(QAnyValue& result, FullId name, const QAnyValue& a1,
                                 const QAnyValue& a2, const QAnyValue& a3, const QAnyValue& a4,
                                 const QAnyValue& a5, const QAnyValue& a6, const QAnyValue& a7);

    // --- Constants and entry points (evaluatorconstants.cpp) -----------------------------------

    // True when `name` is a constant; the result is set only when evaluation is on.
    bool EvaluateNamedConstant(QAnyValue& result, PropId name);
    // Whether `name` is one of the constants this class knows (an application's extras aside).
    static bool IsBuiltInConstant(PropId name);

    // The formula's value changed to the type of T and made one, as the value's own Make does:
    // T is bool, int, double, QAngle, QLength or CString.
    template <class T>
    static T EvaluateFormulaAs(FormulaText formula, QFormulaContext* context, bool passThrough,
                               bool report, bool action);
    static bool EvaluateFormulaAsBool(FormulaText formula, QFormulaContext* context,
                                      bool passThrough, bool report, bool action) {
        return EvaluateFormulaAs<bool>(formula, context, passThrough, report, action);
    }
    static int EvaluateFormulaAsInt(FormulaText formula, QFormulaContext* context, bool passThrough,
                                    bool report, bool action) {
        return EvaluateFormulaAs<int>(formula, context, passThrough, report, action);
    }
    static double EvaluateFormulaAsDouble(FormulaText formula, QFormulaContext* context,
                                          bool passThrough, bool report, bool action) {
        return EvaluateFormulaAs<double>(formula, context, passThrough, report, action);
    }
    static QAngle EvaluateFormulaAsAngle(FormulaText formula, QFormulaContext* context,
                                         bool passThrough, bool report, bool action) {
        return EvaluateFormulaAs<QAngle>(formula, context, passThrough, report, action);
    }
    static QLength EvaluateFormulaAsLength(FormulaText formula, QFormulaContext* context,
                                           bool passThrough, bool report, bool action) {
        return EvaluateFormulaAs<QLength>(formula, context, passThrough, report, action);
    }
    static CString EvaluateFormulaAsString(FormulaText formula, QFormulaContext* context,
                                           bool passThrough, bool report, bool action) {
        return EvaluateFormulaAs<CString>(formula, context, passThrough, report, action);
    }
    static bool IsConstantFormula(FormulaText formula, QAnyValue& result);
    static bool ExecuteActionVariableIfAny(const CString& name, QFormulaContext* context);
    static bool RequiresEvaluationWithNoErrorReporting(FullId name);
    bool IsIdentifierDefined(FullId name);

    // Makes an evaluator through the installed factory, or a plain one.
    static QEvaluator* New(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                           bool passThrough, bool reportErrors, bool isAction);
    // Lets the values layer run formulas (a string made numeric) through this evaluator.
    static void InstallAsFormulaHook();

    // Process-wide counts.
    static int NestingCount();
    static int DeferredDepth();
    // Above this many nested deferred string formulas, the evaluation fails.
    static constexpr int c_maxDeferredDepth = 100;

    // The descent is recursive, so how deep a formula nests is bounded by the stack. The levels
    // are counted per thread over every formula evaluating on it, a formula run from inside
    // another included: a statement, a conditional expression, a prefix operator, a context
    // after "of", "#" or "@" each count one, so a parenthesis, a bracket or a call's argument,
    // which holds a statement and a conditional, counts two. Past the limit the formula fails
    // with "Formula nested too deeply".
    static constexpr int c_maxNestingDepth = 400;
    static int NestingDepth();
    // One level for its lifetime; a level past the limit is refused, and the caller fails with
    // NestedTooDeeply.
    class NestingLevel {
    public:
        NestingLevel();
        ~NestingLevel();
        NestingLevel(const NestingLevel&) = delete;
        NestingLevel& operator=(const NestingLevel&) = delete;
        bool IsTooDeep() const;
    };
    bool NestedTooDeeply();

    // User-defined functions, subroutines and called files running inside each other on one
    // thread: above this many, the call gives an error value instead of running.
    static constexpr int c_maxRoutineDepth = 100;
    static int RoutineDepth();
    class RoutineLevel {
    public:
        RoutineLevel();
        ~RoutineLevel();
        RoutineLevel(const RoutineLevel&) = delete;
        RoutineLevel& operator=(const RoutineLevel&) = delete;
        bool IsTooDeep() const;
    };

protected:
    static constexpr std::uint8_t c_running = 1 << 0;
    static constexpr std::uint8_t c_failed = 1 << 1;
    static constexpr std::uint8_t c_passThrough = 1 << 2;
    static constexpr std::uint8_t c_reportErrors = 1 << 3;
    static constexpr std::uint8_t c_debug = 1 << 4;
    static constexpr std::uint8_t c_action = 1 << 5;
    static constexpr std::uint8_t c_savedReportErrors = 1 << 6;
    static constexpr std::uint8_t c_optionExplicit = 1 << 7;

    bool Flag(std::uint8_t bit) const { return (m_flags & bit) != 0; }
    void SetFlag(std::uint8_t bit, bool on) {
        m_flags = on ? static_cast<std::uint8_t>(m_flags | bit)
                     : static_cast<std::uint8_t>(m_flags & ~bit);
    }

    // The control flags of statements: leaving a routine, a for, a do or repeat, a while, a
    // case, and continuing. `break` sets four of them at once.
    enum ControlFlag {
        CF_Routine,
        CF_For,
        CF_Do,
        CF_While,
        CF_Case,
        CF_Continue,
        CF_Count,
    };
    bool AnyControlFlag() const;
    std::uint8_t m_control[CF_Count] = {};

    // Looks a name up (local variable, constant, context) into `result`, as level 13 does.
    bool EvaluateName(QAnyValue& result, const FullId& name, bool simple);
    // The look-up of EvaluateName with evaluation on: `simpleId` is the name as a variable or
    // constant, empty for a dotted name; `asFormula` is the name as a formula text of the
    // context's cache, made here when null.
    bool LookUpName(QAnyValue& result, const FullId& name, const PropId& simpleId,
                    const FormulaText* asFormula);
    // The part of LookUpName after the local variables and constants: the context's caches and
    // the context.
    bool LookUpInContext(QAnyValue& result, const FullId& name, const FormulaText* asFormula);
    // The failure of a name whose look-up gave an error.
    bool FailedLookUp(const FullId& name, const QAnyValue& value);
    // Runs a string found by look-up that begins with "=" or ":" as a formula in this context.
    bool EvaluateDeferredStringFormula(QAnyValue& value, const FullId& name);
    // Composes and shows the failure message of Evaluate.
    void ReportFailure();

    // The compiled form of a formula runs inside the evaluator and keeps its state as the walk
    // would.
    friend class QCompiledRun;
    static int& ThreadNestingDepth();

    short m_lastGood = 0;
    std::int32_t m_noEval = 0;
    std::uint8_t m_flags = 0;
    QCacheState m_cacheState = QCS_Stable;
    CString m_message;
    QAnyValue& m_result;
    QArray<QAnyValue> m_args;
    QMap<PropId, QAnyValue> m_vars;
    QFormulaContext* m_context;
};

} // namespace keel
