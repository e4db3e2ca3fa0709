#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorshared.h"
#include "keel/formula/formulacontext.h"
#include "keel/values/tablehandle.h"

#include <optional>
#include <unordered_set>

namespace keel {

namespace {

using LANGUAGE_STYLE = QEvaluator::LANGUAGE_STYLE;

// The words of statements, each interned once so that a test is one integer comparison.
struct Words {
    PropId option{u"option"};
    PropId explicitWord{u"explicit"};
    PropId breakWord{u"break"};
    PropId exit{u"exit"};
    PropId exitdo{u"exitdo"};
    PropId exitwhile{u"exitwhile"};
    PropId exitfor{u"exitfor"};
    PropId exitsub{u"exitsub"};
    PropId exitfunction{u"exitfunction"};
    PropId continueWord{u"continue"};
    PropId continuedo{u"continuedo"};
    PropId continuefor{u"continuefor"};
    PropId continuewhile{u"continuewhile"};
    PropId ifWord{u"if"};
    PropId then{u"then"};
    PropId elseWord{u"else"};
    PropId elseif{u"elseif"};
    PropId endif{u"endif"};
    PropId end{u"end"};
    PropId whileWord{u"while"};
    PropId wend{u"wend"};
    PropId repeat{u"repeat"};
    PropId until{u"until"};
    PropId doWord{u"do"};
    PropId loop{u"loop"};
    PropId forWord{u"for"};
    PropId each{u"each"};
    PropId in{u"in"};
    PropId to{u"to"};
    PropId downto{u"downto"};
    PropId step{u"step"};
    PropId next{u"next"};
    PropId endfor{u"endfor"};
    PropId tryWord{u"try"};
    PropId catchWord{u"catch"};
    PropId endtry{u"endtry"};
    PropId endcatch{u"endcatch"};
    PropId switchWord{u"switch"};
    PropId caseWord{u"case"};
    PropId select{u"select"};
    PropId of{u"of"};
    PropId defaultWord{u"default"};
    PropId is{u"is"};
    PropId endselect{u"endselect"};
    PropId reload{u"reload"};
    PropId vlt{u"vlt"};
    PropId begintrans{u"begintrans"};
    PropId begin{u"begin"};
    PropId transaction{u"transaction"};
    PropId committrans{u"committrans"};
    PropId commit{u"commit"};
    PropId rollback{u"rollback"};
    PropId update{u"update"};
    PropId cell{u"cell"};
    PropId where{u"where"};
    PropId row{u"row"};
    PropId col{u"col"};
    PropId rowindex{u"rowindex"};
    PropId colindex{u"colindex"};
    PropId andWord{u"and"};
    PropId set{u"set"};
    PropId value{u"value"};
    PropId formula{u"formula"};
    PropId dim{u"dim"};
    PropId var{u"var"};
    PropId let{u"let"};
    PropId function{u"function"};
    PropId sub{u"sub"};
    PropId endfunction{u"endfunction"};
    PropId endsub{u"endsub"};
    PropId voidWord{u"void"};
    PropId thisWord{u"this"};
};

const Words& Word() {
    static const Words words;
    return words;
}

using WordSet = std::unordered_set<PropId>;

// Every word that can start a statement: a name that is none of them is an assignment or an
// expression after this one look-up.
const WordSet& StatementWords() {
    const Words& w = Word();
    static const WordSet words{
        w.option,      w.breakWord,    w.exit,         w.exitdo,     w.exitwhile,   w.exitfor,
        w.exitsub,     w.exitfunction, w.continueWord, w.continuedo, w.continuefor, w.continuewhile,
        w.ifWord,      w.whileWord,    w.repeat,       w.doWord,     w.forWord,     w.tryWord,
        w.switchWord,  w.caseWord,     w.select,       w.reload,     w.begintrans,  w.begin,
        w.committrans, w.commit,       w.rollback,     w.update,     w.set,         w.dim,
        w.var,         w.let,
    };
    return words;
}

// The words before which a statement list ends, left for the construct that owns them. "end"
// stands for every "end ..." pair and for the closer of a "begin" block.
const WordSet& BlockEndWords() {
    const Words& w = Word();
    static const WordSet words{
        w.catchWord, w.elseWord,  w.elseif, w.endcatch, w.endfor, w.endfunction,
        w.endif,     w.endselect, w.endsub, w.endtry,   w.loop,   w.next,
        w.then,      w.until,     w.wend,   w.end,
    };
    return words;
}

// An array literal's range, "[1 to 5 step 2]", is made of blocks too.
const WordSet& RangeWords() {
    const Words& w = Word();
    static const WordSet words{w.to, w.downto, w.step};
    return words;
}

bool IsCaseLabelWord(PropId word) {
    return word == Word().caseWord || word == Word().defaultWord;
}

} // namespace

bool walk::IsStatementWord(PropId word) {
    return StatementWords().contains(word);
}

bool walk::EndsStatementList(PropId word) {
    return BlockEndWords().contains(word) || RangeWords().contains(word);
}

bool walk::EndsAssignmentWord(PropId word) {
    return BlockEndWords().contains(word) || IsCaseLabelWord(word);
}

namespace {

bool AtEndOfList(const QEvaluator& evaluator, bool stopAtCaseLabel) {
    const QToken* token = evaluator.ThisToken();
    if (!token)
        return true;
    if (token->IsChar()) {
        const char16_t c = token->Char();
        return c == u'}' || c == u')' || c == u']' || c == u',';
    }
    if (!token->IsId())
        return false;
    const PropId word = token->Id();
    return BlockEndWords().contains(word) || RangeWords().contains(word) ||
           (stopAtCaseLabel && IsCaseLabelWord(word));
}

bool AtSeparator(const QEvaluator& evaluator) {
    return evaluator.TestChar(u';') || evaluator.TestChar(u':');
}

// Statements separated by ';' or ':'. A separator may also stand at either end or twice, as an
// empty statement: an action run from a variable is the variable's text behind a ':'.
bool StatementList(QEvaluator& evaluator, QAnyValue& result, bool stopAtCaseLabel) {
    while (!AtEndOfList(evaluator, stopAtCaseLabel)) {
        if (AtSeparator(evaluator)) {
            evaluator.NextToken();
            continue;
        }
        if (!evaluator.EvaluateStatement(result))
            return false;
        if (!AtSeparator(evaluator) && !AtEndOfList(evaluator, stopAtCaseLabel))
            return evaluator.ExpectingButFoundIn(u"statement", evaluator.ThisCharPlus(),
                                                 u"stat-list");
    }
    return true;
}

bool MatchAssign(QEvaluator& evaluator) {
    return evaluator.MatchCharPair(u':', u'=') || evaluator.MatchChar(u'=');
}

// A keyword written as one word or as two: "endif" or "end if".
bool TestJoined(const QEvaluator& evaluator, PropId joined, PropId first, PropId second) {
    return evaluator.TestId(joined) || evaluator.TestIdPair(first, second);
}

bool MatchJoined(QEvaluator& evaluator, PropId joined, PropId first, PropId second) {
    return evaluator.MatchId(joined) || evaluator.MatchIdPair(first, second);
}

// The text from a position on, as the reporters quote it.
CString TextAt(QEvaluator& evaluator, short position) {
    const short here = evaluator.SaveCursor();
    evaluator.RestoreCursor(position);
    CString text = evaluator.ThisCharPlus();
    evaluator.RestoreCursor(here);
    return text;
}

// Runs a parse, or with evaluation off into a scratch value when `run` is false.
template <class Parse>
bool ParseInto(QEvaluator& evaluator, QAnyValue& result, bool run, Parse parse) {
    if (run)
        return parse(result);
    QEvaluator::NoEval off(evaluator);
    QAnyValue scratch;
    return parse(scratch);
}

bool BlockInto(QEvaluator& evaluator, QAnyValue& result, bool run) {
    return ParseInto(evaluator, result, run,
                     [&evaluator](QAnyValue& value) { return evaluator.EvaluateBlock(value); });
}

bool StatementInto(QEvaluator& evaluator, QAnyValue& result, bool run) {
    return ParseInto(evaluator, result, run,
                     [&evaluator](QAnyValue& value) { return evaluator.EvaluateStatement(value); });
}

bool ConditionalInto(QEvaluator& evaluator, QAnyValue& result, bool run) {
    return ParseInto(evaluator, result, run, [&evaluator](QAnyValue& value) {
        return evaluator.EvaluateConditional(value);
    });
}

bool SimpleInto(QEvaluator& evaluator, QAnyValue& result, bool run) {
    return ParseInto(evaluator, result, run,
                     [&evaluator](QAnyValue& value) { return evaluator.EvaluateSimple(value); });
}

// The control flags of one evaluator, by name.
struct ControlFlags {
    std::uint8_t& routine;
    std::uint8_t& forLoop;
    std::uint8_t& doLoop;
    std::uint8_t& whileLoop;
    std::uint8_t& selection;
    std::uint8_t& continuing;

    // A loop stops on any of these, not only on its own: the others would leave it spinning
    // with every statement of its body skipped.
    bool AnyLeaving() const {
        return routine != 0 || forLoop != 0 || doLoop != 0 || whileLoop != 0 || selection != 0;
    }
};

// Clears a control flag for the life of a construct and then puts back what it was.
class ControlFlagScope {
public:
    explicit ControlFlagScope(std::uint8_t& flag) : m_flag(flag), m_saved(flag) { m_flag = 0; }
    ~ControlFlagScope() { m_flag = m_saved; }
    ControlFlagScope(const ControlFlagScope&) = delete;
    ControlFlagScope& operator=(const ControlFlagScope&) = delete;

private:
    std::uint8_t& m_flag;
    std::uint8_t m_saved;
};

// --- Routines -----------------------------------------------------------------------------------

bool AtRoutine(const QEvaluator& evaluator) {
    return evaluator.TestId(Word().function) || evaluator.TestId(Word().sub);
}

// One argument name, taking the value given by SetArg or else its default.
bool RoutineArgument(QEvaluator& evaluator, int index) {
    PropId name;
    if (!evaluator.ParseVarnameWithContext(name))
        return evaluator.ExpectingButFoundIn(u"arg name", evaluator.ThisCharPlus(),
                                             u"list of function args");
    QAnyValue value;
    const bool given = evaluator.GetArg(index, value);
    if (MatchAssign(evaluator) && !ConditionalInto(evaluator, value, !given))
        return false;
    if (evaluator.IsEval())
        evaluator.SetVar(name, value);
    return true;
}

bool RoutineArguments(QEvaluator& evaluator) {
    if (!evaluator.MatchChar(u'('))
        return true;
    if (!evaluator.MatchId(Word().voidWord) && !evaluator.TestChar(u')')) {
        int index = 0;
        do {
            if (!RoutineArgument(evaluator, ++index))
                return false;
        } while (evaluator.MatchChar(u','));
    }
    if (!evaluator.MatchChar(u')'))
        return evaluator.ExpectingMatchingButFoundIn(u"')'", u"'('", evaluator.ThisCharPlus(),
                                                     u"list of function args");
    return true;
}

bool Routine(QEvaluator& evaluator, QAnyValue& result) {
    const Words& w = Word();
    const bool isSub = evaluator.MatchId(w.sub);
    if (!isSub)
        evaluator.MatchId(w.function);
    if (!RoutineArguments(evaluator))
        return false;
    MatchAssign(evaluator);
    if (!evaluator.EvaluateBlock(result))
        return false;
    if (isSub) {
        if (!MatchJoined(evaluator, w.endsub, w.end, w.sub))
            return evaluator.ExpectingMatchingButFoundIn(
                u"'end sub'", u"'sub'", evaluator.ThisCharPlus(), u"subroutine definition");
        result.Clear();
        return true;
    }
    if (!MatchJoined(evaluator, w.endfunction, w.end, w.function))
        return evaluator.ExpectingMatchingButFoundIn(
            u"'end function'", u"'function'", evaluator.ThisCharPlus(), u"function definition");
    if (evaluator.IsEval())
        evaluator.GetVar(w.thisWord, result);
    return true;
}

// --- Statements ---------------------------------------------------------------------------------

enum class CompareOp { EQ, NE, LT, LE, GT, GE };

// A label's operator applied between the subject and the label's value.
bool Compared(CompareOp op, const QAnyValue& subject, const QAnyValue& value) {
    switch (op) {
    case CompareOp::EQ:
        return subject.EQ(value).MakeBool();
    case CompareOp::NE:
        return subject.NE(value).MakeBool();
    case CompareOp::LT:
        return subject.LT(value).MakeBool();
    case CompareOp::LE:
        return subject.LE(value).MakeBool();
    case CompareOp::GT:
        return subject.GT(value).MakeBool();
    case CompareOp::GE:
        return subject.GE(value).MakeBool();
    }
    return false;
}

enum class TableKey { Row, Col, RowIndex, ColIndex };

bool IsRowKey(TableKey key) {
    return key == TableKey::Row || key == TableKey::RowIndex;
}

bool IsLabelKey(TableKey key) {
    return key == TableKey::Row || key == TableKey::Col;
}

// The statements that start with a keyword, and assignments, for one statement of one
// evaluator: the parser works through the evaluator's public operations and the control flags
// it was handed.
class Statements {
public:
    Statements(QEvaluator& evaluator, ControlFlags flags, bool optionExplicit)
        : m_ev(evaluator), m_flags(flags), m_optionExplicit(optionExplicit) {}

    bool Run(QAnyValue& result, bool forClause) {
        if (const std::optional<bool> done = Keyword(result))
            return *done;
        return AssignmentOrExpression(result, forClause);
    }

private:
    // No value when the keyword at the cursor starts none of its forms: the statement is then
    // an assignment or an expression after all.
    std::optional<bool> Keyword(QAnyValue& result);

    bool Expecting(const CString& what, const CString& in) {
        return m_ev.ExpectingButFoundIn(what, m_ev.ThisCharPlus(), in);
    }
    bool ActionAllowed() { return m_ev.IsAction() || m_ev.ActionOnly(m_ev.ThisCharPlus()); }
    void Raise(std::uint8_t& flag) {
        if (m_ev.IsEval())
            flag = 1;
    }

    std::optional<bool> Exit();
    std::optional<bool> Continue();
    bool Break();

    bool If(QAnyValue& result);
    bool IsFunctionFormOfIf();
    bool IfThen(QAnyValue& result, bool run);
    bool IfBraces(QAnyValue& result, bool run);

    bool While(QAnyValue& result);
    bool Repeat(QAnyValue& result);
    bool Do(QAnyValue& result);
    bool DoCondition(bool& go);
    bool DoClose(bool& go);
    bool For(QAnyValue& result);
    bool ForEach(QAnyValue& result);
    bool ForTo(QAnyValue& result);
    bool ForClauses(QAnyValue& result);
    bool ForTest(bool& go);
    bool CloseFor(LANGUAGE_STYLE style);
    void SkipNextName();

    bool Try(QAnyValue& result);

    bool Select(QAnyValue& result);
    bool IsBraceSubject();
    bool SelectWords(QAnyValue& result, const QAnyValue& subject);
    bool SelectBraces(QAnyValue& result, const QAnyValue& subject);
    bool Clause(QAnyValue& result, bool run);
    bool LabelList(const QAnyValue& subject, bool test, LANGUAGE_STYLE style, bool& matches);
    bool Label(const QAnyValue& subject, bool test, LANGUAGE_STYLE style, bool& matches);
    std::optional<CompareOp> MatchOperator();

    bool Reload(QAnyValue& result);
    bool Transaction(QAnyValue& result, const CString& statement, const CString& contextLine,
                     QAnyValue& (QAnyValue::*operation)());
    bool TableOperation(QAnyValue& result, const CString& contextLine,
                        QAnyValue& (QAnyValue::*operation)());
    bool Update(QAnyValue& result);
    bool UpdateKey(TableKey& key, QAnyValue& value);

    bool SetValueOrFormula(QAnyValue& result);
    bool Dim();
    bool Var();
    bool Let(QAnyValue& result);

    bool AssignmentOrExpression(QAnyValue& result, bool forClause);
    bool IsAssignment(bool forClause);
    bool EndsAssignment(bool forClause) const;
    bool Assign(QAnyValue& result, PropId name, short at);

    QEvaluator& m_ev;
    ControlFlags m_flags;
    bool m_optionExplicit;
};

std::optional<bool> Statements::Keyword(QAnyValue& result) {
    const QToken* token = m_ev.ThisToken();
    if (!token || !token->IsId() || !StatementWords().contains(token->Id()))
        return std::nullopt;
    const Words& w = Word();
    const PropId word = token->Id();
    if (word == w.breakWord)
        return Break();
    if (word == w.ifWord)
        return If(result);
    if (word == w.whileWord)
        return While(result);
    if (word == w.repeat)
        return Repeat(result);
    if (word == w.doWord)
        return Do(result);
    if (word == w.forWord)
        return For(result);
    if (word == w.tryWord)
        return Try(result);
    if (word == w.switchWord || word == w.caseWord || word == w.select)
        return Select(result);
    if (word == w.reload)
        return Reload(result);
    if (TestJoined(m_ev, w.begintrans, w.begin, w.transaction))
        return Transaction(result, u"begin transaction", u"BEGINTRANS VLT",
                           &QAnyValue::BEGINTRANSit);
    if (TestJoined(m_ev, w.committrans, w.commit, w.transaction))
        return Transaction(result, u"commit transaction", u"COMMITTRANS VLT",
                           &QAnyValue::COMMITTRANSit);
    if (word == w.rollback)
        return Transaction(result, u"rollback", u"ROLLBACK VLT", &QAnyValue::ROLLBACKit);
    if (word == w.update)
        return Update(result);
    if (word == w.set)
        return SetValueOrFormula(result);
    if (word == w.dim)
        return Dim();
    if (word == w.var)
        return Var();
    if (word == w.let)
        return Let(result);
    if (const std::optional<bool> exited = Exit())
        return exited;
    return Continue();
}

// --- break, exit, continue ----------------------------------------------------------------------

bool Statements::Break() {
    m_ev.NextToken();
    Raise(m_flags.forLoop);
    Raise(m_flags.doLoop);
    Raise(m_flags.whileLoop);
    Raise(m_flags.selection);
    return true;
}

std::optional<bool> Statements::Exit() {
    const Words& w = Word();
    std::uint8_t* flag = nullptr;
    if (MatchJoined(m_ev, w.exitdo, w.exit, w.doWord))
        flag = &m_flags.doLoop;
    else if (MatchJoined(m_ev, w.exitwhile, w.exit, w.whileWord))
        flag = &m_flags.whileLoop;
    else if (MatchJoined(m_ev, w.exitfor, w.exit, w.forWord))
        flag = &m_flags.forLoop;
    else if (MatchJoined(m_ev, w.exitsub, w.exit, w.sub) ||
             MatchJoined(m_ev, w.exitfunction, w.exit, w.function))
        flag = &m_flags.routine;
    if (!flag)
        return std::nullopt;
    Raise(*flag);
    return true;
}

std::optional<bool> Statements::Continue() {
    const Words& w = Word();
    if (MatchJoined(m_ev, w.continuedo, w.continueWord, w.doWord) ||
        MatchJoined(m_ev, w.continuefor, w.continueWord, w.forWord) ||
        MatchJoined(m_ev, w.continuewhile, w.continueWord, w.whileWord) ||
        m_ev.MatchId(w.continueWord)) {
        Raise(m_flags.continuing);
        return true;
    }
    return std::nullopt;
}

// --- if -----------------------------------------------------------------------------------------

bool Statements::If(QAnyValue& result) {
    const short start = m_ev.SaveCursor();
    m_ev.NextToken();
    if (IsFunctionFormOfIf()) {
        m_ev.RestoreCursor(start);
        return m_ev.EvaluateExpression(result);
    }
    QAnyValue condition;
    const bool parsed =
        m_ev.TestChar(u'(') ? m_ev.EvaluateSimple(condition) : m_ev.EvaluateConditional(condition);
    if (!parsed)
        return false;
    const bool run = m_ev.IsEval() && condition.IsTRUE();
    return m_ev.MatchId(Word().then) ? IfThen(result, run) : IfBraces(result, run);
}

// "if(c, a, b)": a parenthesised condition directly followed by ','.
bool Statements::IsFunctionFormOfIf() {
    if (!m_ev.TestChar(u'('))
        return false;
    QTokeniser::SaveRestoreCursor probe(m_ev.Iterator());
    QEvaluator::NoEval off(m_ev);
    QAnyValue scratch;
    m_ev.NextToken();
    return m_ev.EvaluateBlock(scratch) && m_ev.TestChar(u',');
}

bool Statements::IfThen(QAnyValue& result, bool run) {
    const Words& w = Word();
    if (!BlockInto(m_ev, result, run))
        return false;
    bool taken = run;
    for (;;) {
        if (MatchJoined(m_ev, w.elseif, w.elseWord, w.ifWord)) {
            QAnyValue condition;
            if (!ConditionalInto(m_ev, condition, !taken))
                return false;
            if (!m_ev.MatchId(w.then))
                return Expecting(u"'then'", u"no 'then'");
            const bool runThis = !taken && m_ev.IsEval() && condition.IsTRUE();
            if (!BlockInto(m_ev, result, runThis))
                return false;
            taken = taken || runThis;
            continue;
        }
        if (m_ev.MatchId(w.elseWord) && !BlockInto(m_ev, result, !taken && m_ev.IsEval()))
            return false;
        break;
    }
    if (!MatchJoined(m_ev, w.endif, w.end, w.ifWord))
        return m_ev.ExpectingMatchingButFound(u"'end if'", u"'if'", m_ev.ThisCharPlus());
    return true;
}

// Each branch is one statement or block; "if (c) a; else b" may put a separator before the else.
bool Statements::IfBraces(QAnyValue& result, bool run) {
    const Words& w = Word();
    if (!StatementInto(m_ev, result, run))
        return false;
    if (m_ev.TestChar(u';')) {
        QTokeniser::SaveRestoreCursor separator(m_ev.Iterator());
        m_ev.NextToken();
        if (m_ev.TestId(w.elseWord))
            separator.DoNoRestore();
    }
    if (!m_ev.MatchId(w.elseWord))
        return true;
    return StatementInto(m_ev, result, !run && m_ev.IsEval());
}

// --- Loops --------------------------------------------------------------------------------------

bool Statements::While(QAnyValue& result) {
    m_ev.NextToken();
    ControlFlagScope own(m_flags.whileLoop);
    ControlFlagScope continuing(m_flags.continuing);
    const short top = m_ev.SaveCursor();
    for (;;) {
        m_ev.RestoreCursor(top);
        QAnyValue condition;
        if (!m_ev.EvaluateConditional(condition))
            return false;
        LANGUAGE_STYLE style = QEvaluator::LS_NONE;
        m_ev.HandleDoBegin(style);
        const bool go = m_ev.IsEval() && !m_flags.AnyLeaving() && condition.IsTRUE();
        if (!BlockInto(m_ev, result, go))
            return false;
        if (style != QEvaluator::LS_BRACES && !m_ev.MatchId(Word().wend))
            return m_ev.ExpectingMatchingButFound(u"'wend'", u"'while'", m_ev.ThisCharPlus());
        if (!go)
            return true;
        m_flags.continuing = 0;
    }
}

bool Statements::Repeat(QAnyValue& result) {
    m_ev.NextToken();
    ControlFlagScope own(m_flags.doLoop);
    ControlFlagScope continuing(m_flags.continuing);
    const short top = m_ev.SaveCursor();
    for (;;) {
        m_ev.RestoreCursor(top);
        const bool go = m_ev.IsEval();
        if (!BlockInto(m_ev, result, go))
            return false;
        if (!m_ev.MatchId(Word().until))
            return m_ev.ExpectingMatchingButFound(u"'until'", u"'repeat'", m_ev.ThisCharPlus());
        QAnyValue condition;
        if (!ConditionalInto(m_ev, condition, go))
            return false;
        if (!go || m_flags.AnyLeaving() || !condition.IsFALSE())
            return true;
        m_flags.continuing = 0;
    }
}

bool Statements::Do(QAnyValue& result) {
    m_ev.NextToken();
    ControlFlagScope own(m_flags.doLoop);
    ControlFlagScope continuing(m_flags.continuing);
    const short top = m_ev.SaveCursor();
    for (;;) {
        m_ev.RestoreCursor(top);
        bool go = m_ev.IsEval() && !m_flags.AnyLeaving();
        if (!DoCondition(go) || !BlockInto(m_ev, result, go) || !DoClose(go))
            return false;
        if (!go || m_flags.AnyLeaving())
            return true;
        m_flags.continuing = 0;
    }
}

// An optional "while" or "until" condition; `go` turns false when it says stop.
bool Statements::DoCondition(bool& go) {
    const Words& w = Word();
    const bool isUntil = m_ev.MatchId(w.until);
    if (!isUntil && !m_ev.MatchId(w.whileWord))
        return true;
    QAnyValue condition;
    if (!ConditionalInto(m_ev, condition, go))
        return false;
    go = go && (isUntil ? condition.IsFALSE() : condition.IsTRUE());
    return true;
}

// "loop" with an optional condition, or the brace form's "while (condition)".
bool Statements::DoClose(bool& go) {
    const Words& w = Word();
    if (m_ev.MatchId(w.loop))
        return DoCondition(go);
    if (!m_ev.MatchId(w.whileWord))
        return m_ev.ExpectingMatchingButFoundIn(u"'loop'", u"'do'", m_ev.ThisCharPlus(),
                                                u"do...loop");
    if (!m_ev.TestChar(u'('))
        return Expecting(u"'('", u"do...while");
    QAnyValue condition;
    if (!SimpleInto(m_ev, condition, go))
        return false;
    go = go && condition.IsTRUE();
    return true;
}

bool Statements::For(QAnyValue& result) {
    const short start = m_ev.SaveCursor();
    m_ev.NextToken();
    if (m_ev.MatchId(Word().each))
        return ForEach(result);
    if (m_ev.TestChar(u'('))
        return ForClauses(result);
    m_ev.RestoreCursor(start);
    return ForTo(result);
}

bool Statements::ForEach(QAnyValue& result) {
    PropId name;
    if (!m_ev.ParseVarnameWithContext(name))
        return Expecting(u"loop variable name", u"for each");
    if (!m_ev.MatchId(Word().in))
        return Expecting(u"'in' between variable name and array value", u"for each");
    QAnyValue elements;
    if (!m_ev.EvaluateConditional(elements))
        return false;
    LANGUAGE_STYLE style = QEvaluator::LS_NONE;
    m_ev.HandleDoBegin(style);
    ControlFlagScope own(m_flags.forLoop);
    ControlFlagScope continuing(m_flags.continuing);
    const int count = m_ev.IsEval() ? elements.GetSize() : 0;
    const short body = m_ev.SaveCursor();
    for (int i = 1;; ++i) {
        m_ev.RestoreCursor(body);
        const bool go = i <= count && !m_flags.AnyLeaving();
        if (go)
            m_ev.SetVar(name, elements.GETAT(i));
        if (!BlockInto(m_ev, result, go) || !CloseFor(style))
            return false;
        if (!go)
            return true;
        m_flags.continuing = 0;
    }
}

bool Statements::ForTo(QAnyValue& result) {
    const Words& w = Word();
    m_ev.NextToken();
    PropId name;
    if (!m_ev.ParseVarnameWithContext(name))
        return Expecting(u"loop variable name", u"for loop");
    if (!MatchAssign(m_ev))
        return Expecting(u"'=' or ':=' between variable name and initial value", u"for loop");
    QAnyValue start;
    if (!m_ev.EvaluateConditional(start))
        return false;
    QAnyValue step;
    if (m_ev.MatchId(w.to))
        step = QAnyValue(1);
    else if (m_ev.MatchId(w.downto))
        step = QAnyValue(-1);
    else
        return Expecting(u"'to' or 'downto' between initial and final values", u"for loop");
    QAnyValue last;
    if (!m_ev.EvaluateConditional(last))
        return false;
    if (m_ev.MatchId(w.step) && !m_ev.EvaluateConditional(step))
        return false;
    LANGUAGE_STYLE style = QEvaluator::LS_NONE;
    m_ev.HandleDoBegin(style);
    if (m_ev.TestId(w.next))
        return Expecting(u"statement(s) before 'next'", u"for loop");

    // Decided once; a step of 0 counts as rising, and such a loop only ends by its body.
    const bool rising = !(step < QAnyValue(0));
    if (m_ev.IsEval())
        m_ev.SetVar(name, start);
    ControlFlagScope own(m_flags.forLoop);
    ControlFlagScope continuing(m_flags.continuing);
    const short body = m_ev.SaveCursor();
    for (;;) {
        m_ev.RestoreCursor(body);
        // The variable is read again each round, so the body may move it.
        QAnyValue current;
        const bool go = m_ev.IsEval() && !m_flags.AnyLeaving() && m_ev.GetVar(name, current) &&
                        (rising ? current <= last : current >= last);
        if (!BlockInto(m_ev, result, go) || !CloseFor(style))
            return false;
        if (!go)
            return true;
        m_ev.GetVar(name, current);
        m_ev.SetVar(name, current + step);
        m_flags.continuing = 0;
    }
}

// for (init; test; step) statement. The step is parsed with evaluation off on the way to the
// body, and the cursor jumps between the three parts afterwards.
bool Statements::ForClauses(QAnyValue& result) {
    m_ev.NextToken();
    QAnyValue scratch;
    if (!m_ev.EvaluateStatement(scratch, true))
        return false;
    if (!m_ev.MatchChar(u';'))
        return Expecting(u"';' between initial and test", u"for(;;)");
    const short test = m_ev.SaveCursor();
    bool go = m_ev.IsEval();
    if (!ForTest(go))
        return false;
    if (!m_ev.MatchChar(u';'))
        return Expecting(u"';' between test and iter", u"for(;;)");
    const short step = m_ev.SaveCursor();
    {
        QEvaluator::NoEval off(m_ev);
        if (!m_ev.EvaluateStatement(scratch, true))
            return false;
    }
    if (!m_ev.MatchChar(u')'))
        return m_ev.ExpectingMatchingButFoundIn(u"')'", u"'('", m_ev.ThisCharPlus(), u"for(;;)");
    ControlFlagScope own(m_flags.forLoop);
    ControlFlagScope continuing(m_flags.continuing);
    const short body = m_ev.SaveCursor();
    for (;;) {
        m_ev.RestoreCursor(body);
        go = go && !m_flags.AnyLeaving();
        if (!StatementInto(m_ev, result, go))
            return false;
        if (!go)
            return true;
        m_flags.continuing = 0;
        m_ev.RestoreCursor(step);
        if (!m_ev.EvaluateStatement(scratch, true))
            return false;
        m_ev.RestoreCursor(test);
        if (!ForTest(go))
            return false;
    }
}

// An empty test is always true.
bool Statements::ForTest(bool& go) {
    if (m_ev.TestChar(u';'))
        return true;
    QAnyValue condition;
    if (!ConditionalInto(m_ev, condition, go))
        return false;
    go = go && condition.IsTRUE();
    return true;
}

// A brace-style body is closed by its '}'; otherwise "next" [name], "endfor" or "end for".
bool Statements::CloseFor(LANGUAGE_STYLE style) {
    const Words& w = Word();
    if (style == QEvaluator::LS_BRACES)
        return true;
    if (m_ev.MatchId(w.next)) {
        SkipNextName();
        return true;
    }
    if (MatchJoined(m_ev, w.endfor, w.end, w.forWord))
        return true;
    return m_ev.ExpectingMatchingButFound(u"'next' or 'end for'", u"'for'", m_ev.ThisCharPlus());
}

// "next i" may name the loop's variable; the name is not checked against the loop's.
void Statements::SkipNextName() {
    const QToken* token = m_ev.ThisToken();
    if (!token || !token->IsId())
        return;
    const PropId word = token->Id();
    if (!StatementWords().contains(word) && !BlockEndWords().contains(word) &&
        !IsCaseLabelWord(word))
        m_ev.NextToken();
}

// --- try ----------------------------------------------------------------------------------------

bool Statements::Try(QAnyValue& result) {
    const Words& w = Word();
    m_ev.NextToken();
    QAnyValue tried;
    if (!m_ev.EvaluateBlock(tried))
        return false;
    if (!m_ev.MatchId(w.catchWord))
        return Expecting(u"'catch'", CString());
    const bool caught = m_ev.IsEval() && tried.IsError();
    if (m_ev.IsEval())
        result = tried;
    if (!BlockInto(m_ev, result, caught))
        return false;
    if (MatchJoined(m_ev, w.endtry, w.end, w.tryWord) ||
        MatchJoined(m_ev, w.endcatch, w.end, w.catchWord))
        return true;
    return m_ev.ExpectingMatchingButFound(u"'end try'", u"'try'", m_ev.ThisCharPlus());
}

// --- select -------------------------------------------------------------------------------------

bool Statements::Select(QAnyValue& result) {
    const Words& w = Word();
    if (m_ev.MatchId(w.select))
        m_ev.MatchId(w.caseWord);
    else
        m_ev.NextToken();
    QAnyValue subject;
    if (IsBraceSubject()) {
        if (!m_ev.EvaluateSimple(subject))
            return false;
        m_ev.NextToken();
        return SelectBraces(result, subject);
    }
    if (!m_ev.EvaluateConditional(subject))
        return false;
    m_ev.MatchId(w.of);
    return SelectWords(result, subject);
}

// "switch (subject) {": a parenthesised subject directly followed by '{'.
bool Statements::IsBraceSubject() {
    if (!m_ev.TestChar(u'('))
        return false;
    QTokeniser::SaveRestoreCursor probe(m_ev.Iterator());
    QEvaluator::NoEval off(m_ev);
    QAnyValue scratch;
    return m_ev.EvaluateSimple(scratch) && m_ev.TestChar(u'{');
}

// The first clause whose label matches runs; the next label ends a clause.
bool Statements::SelectWords(QAnyValue& result, const QAnyValue& subject) {
    const Words& w = Word();
    ControlFlagScope own(m_flags.selection);
    bool matched = false;
    for (;;) {
        if (MatchJoined(m_ev, w.endselect, w.end, w.select))
            return true;
        const bool test = !matched && m_ev.IsEval();
        bool matches = false;
        if (m_ev.MatchIdPair(w.caseWord, w.elseWord) || m_ev.MatchId(w.elseWord) ||
            m_ev.MatchId(w.defaultWord)) {
            m_ev.MatchChar(u':');
            matches = true;
        } else if (m_ev.MatchId(w.caseWord)) {
            if (!LabelList(subject, test, QEvaluator::LS_WORDS, matches))
                return false;
            if (!m_ev.MatchChar(u':'))
                return Expecting(u"':'", u"select case");
        } else {
            return m_ev.ExpectingMatchingButFoundIn(u"'end select'", u"'select'",
                                                    m_ev.ThisCharPlus(), u"select case");
        }
        const bool run = test && matches;
        if (!Clause(result, run))
            return false;
        matched = matched || run;
    }
}

// From the first label that matches, control runs on through the clauses below it until a
// break, which makes every statement after it count as skipped.
bool Statements::SelectBraces(QAnyValue& result, const QAnyValue& subject) {
    const Words& w = Word();
    ControlFlagScope own(m_flags.selection);
    bool running = false;
    for (;;) {
        if (m_ev.MatchChar(u'}'))
            return true;
        const bool test = !running && m_ev.IsEval();
        bool matches = false;
        if (m_ev.MatchId(w.defaultWord)) {
            matches = true;
        } else if (m_ev.MatchId(w.caseWord)) {
            if (!LabelList(subject, test, QEvaluator::LS_BRACES, matches))
                return false;
        } else {
            return Expecting(u"'case' or 'default'", u"switch {..}");
        }
        if (!m_ev.MatchChar(u':'))
            return Expecting(u"':'", u"switch {..}");
        running = running || (test && matches);
        if (!Clause(result, running))
            return false;
        if (!m_ev.TestId(w.caseWord) && !m_ev.TestId(w.defaultWord) && !m_ev.TestChar(u'}'))
            return m_ev.ExpectingMatchingButFound(u"'break'", u"'case'", m_ev.ThisCharPlus());
    }
}

bool Statements::Clause(QAnyValue& result, bool run) {
    return ParseInto(m_ev, result, run,
                     [this](QAnyValue& value) { return StatementList(m_ev, value, true); });
}

// Labels separated by ','; once one matches, the rest are only parsed.
bool Statements::LabelList(const QAnyValue& subject, bool test, LANGUAGE_STYLE style,
                           bool& matches) {
    matches = false;
    do {
        bool one = false;
        if (!Label(subject, test && !matches, style, one))
            return false;
        matches = matches || one;
    } while (m_ev.MatchChar(u','));
    return true;
}

bool Statements::Label(const QAnyValue& subject, bool test, LANGUAGE_STYLE style, bool& matches) {
    const CString in = style == QEvaluator::LS_BRACES ? u"switch {..}" : u"select case";
    const bool sawIs = m_ev.MatchId(Word().is);
    const std::optional<CompareOp> op = MatchOperator();
    if (sawIs && !op)
        return Expecting(u"operator", in);
    QAnyValue value;
    const auto parseValue = [this, style](QAnyValue& v) {
        return m_ev.EvaluateConditionalOrSimplerForCase(v, style);
    };
    if (!ParseInto(m_ev, value, test, parseValue))
        return false;
    if (op) {
        if (test)
            matches = Compared(*op, subject, value);
        return true;
    }
    if (m_ev.MatchId(Word().to)) {
        QAnyValue high;
        if (!ParseInto(m_ev, high, test, parseValue))
            return false;
        if (test)
            matches = subject.GE(value).MakeBool() && subject.LE(high).MakeBool();
        return true;
    }
    if (test)
        matches = subject.Equivalent(value);
    return true;
}

std::optional<CompareOp> Statements::MatchOperator() {
    if (m_ev.MatchCharPair(u'>', u'='))
        return CompareOp::GE;
    if (m_ev.MatchCharPair(u'<', u'='))
        return CompareOp::LE;
    if (m_ev.MatchCharPair(u'<', u'>') || m_ev.MatchCharPair(u'!', u'='))
        return CompareOp::NE;
    if (m_ev.MatchCharPair(u'=', u'=') || m_ev.MatchChar(u'='))
        return CompareOp::EQ;
    if (m_ev.MatchChar(u'>'))
        return CompareOp::GT;
    if (m_ev.MatchChar(u'<'))
        return CompareOp::LT;
    return std::nullopt;
}

// --- Lookup tables ------------------------------------------------------------------------------

bool Statements::Reload(QAnyValue& result) {
    if (!ActionAllowed())
        return false;
    m_ev.NextToken();
    if (!m_ev.MatchId(Word().vlt))
        return Expecting(u"'vlt'", u"reload");
    if (!m_ev.MatchChar(u'*'))
        return TableOperation(result, u"RELOAD VLT", &QAnyValue::RELOADit);
    if (m_ev.IsEval())
        if (QTableHandleSource* source = GetTableHandleSource())
            source->ReloadAll();
    return true;
}

bool Statements::Transaction(QAnyValue& result, const CString& statement,
                             const CString& contextLine, QAnyValue& (QAnyValue::*operation)()) {
    const Words& w = Word();
    if (!ActionAllowed())
        return false;
    const bool oneWord =
        m_ev.TestId(w.begintrans) || m_ev.TestId(w.committrans) || m_ev.TestId(w.rollback);
    m_ev.NextToken();
    if (!oneWord)
        m_ev.NextToken();
    if (!m_ev.MatchId(w.vlt))
        return Expecting(u"'vlt'", statement);
    return TableOperation(result, contextLine, operation);
}

bool Statements::TableOperation(QAnyValue& result, const CString& contextLine,
                                QAnyValue& (QAnyValue::*operation)()) {
    QAnyValue table;
    if (!m_ev.EvaluateConditional(table))
        return false;
    if (m_ev.IsNoEval())
        return true;
    QEvaluator::ExtraContextInfoForErrors info(contextLine);
    (table.*operation)();
    result = table;
    return true;
}

// update vlt table set cell = value where row = r and col = c, the keys in either order, both
// labels or both indexes.
bool Statements::Update(QAnyValue& result) {
    const Words& w = Word();
    if (!ActionAllowed())
        return false;
    m_ev.NextToken();
    if (!m_ev.MatchId(w.vlt))
        return Expecting(u"'vlt'", u"update");
    QAnyValue table;
    if (!m_ev.EvaluateConditional(table))
        return false;
    if (!m_ev.MatchId(w.set))
        return Expecting(u"'set'", u"update");
    if (!m_ev.MatchId(w.cell))
        return Expecting(u"'cell'", u"update");
    if (!MatchAssign(m_ev))
        return Expecting(u"'=' or ':='", u"update");
    QAnyValue value;
    if (!m_ev.EvaluateXOREQVIMPop(value))
        return false;
    if (!m_ev.MatchId(w.where))
        return Expecting(u"'where'", u"update");
    TableKey firstKey = TableKey::Row;
    QAnyValue first;
    if (!UpdateKey(firstKey, first))
        return false;
    if (!m_ev.MatchId(w.andWord))
        return Expecting(u"'and'", u"update ... where ...");
    const short secondAt = m_ev.SaveCursor();
    TableKey secondKey = TableKey::Row;
    QAnyValue second;
    if (!UpdateKey(secondKey, second))
        return false;
    if (IsRowKey(firstKey) == IsRowKey(secondKey) || IsLabelKey(firstKey) != IsLabelKey(secondKey))
        return m_ev.ExpectingButFoundIn(u"'row', 'col', 'rowindex', 'colindex'",
                                        TextAt(m_ev, secondAt), u"update .. where ...");
    if (m_ev.IsNoEval())
        return true;
    const QAnyValue& row = IsRowKey(firstKey) ? first : second;
    const QAnyValue& col = IsRowKey(firstKey) ? second : first;
    QEvaluator::ExtraContextInfoForErrors info(u"UPDATE VLT", u"UPDATE VLT ERROR");
    if (IsLabelKey(firstKey))
        table.UPDATEEXACTit(row, col, value, m_ev.Context());
    else
        table.UPDATEBYINDEXit(row, col, value, m_ev.Context());
    result = table;
    return true;
}

bool Statements::UpdateKey(TableKey& key, QAnyValue& value) {
    const Words& w = Word();
    if (m_ev.MatchId(w.row))
        key = TableKey::Row;
    else if (m_ev.MatchId(w.col))
        key = TableKey::Col;
    else if (m_ev.MatchId(w.rowindex))
        key = TableKey::RowIndex;
    else if (m_ev.MatchId(w.colindex))
        key = TableKey::ColIndex;
    else
        return Expecting(u"'row', 'col', 'rowindex', 'colindex'", u"update .. where ...");
    if (!m_ev.MatchChar(u'='))
        return Expecting(u"'='", IsRowKey(key) ? u"update .. where row = <value>"
                                               : u"update .. where col = <value>");
    return m_ev.EvaluateConcat(value);
}

// --- set, dim, var, let -------------------------------------------------------------------------

bool Statements::SetValueOrFormula(QAnyValue& result) {
    const Words& w = Word();
    if (!ActionAllowed())
        return false;
    m_ev.NextToken();
    const bool isFormula = m_ev.MatchId(w.formula);
    if (!isFormula && !m_ev.MatchId(w.value))
        return Expecting(u"'Value' or 'Formula'", u"set value");
    const short at = m_ev.SaveCursor();
    FullId name;
    bool simple = true;
    if (!m_ev.ParseVarnameFull(name, simple))
        return m_ev.SaveCursor() != at ? false : Expecting(u"fullname", u"set value");
    if (!MatchAssign(m_ev))
        return Expecting(u"'=' or ':=' between name and value", u"set value");
    QAnyValue value;
    if (!m_ev.EvaluateExpression(value))
        return false;
    if (m_ev.IsNoEval())
        return true;
    QFormulaContext* context = m_ev.Context();
    result = value;
    if (isFormula) {
        if (!context || !context->SetFormula(name, FormulaText(value.MakeCStringUntranslated())))
            result.MakeError(u"SetFormula fails to set new formula for " + name.ToString());
    } else if (!context || !context->SetValue(name, value)) {
        result.MakeError(u"SetValue fails to set new value for " + name.ToString());
    }
    return true;
}

bool Statements::Dim() {
    m_ev.NextToken();
    do {
        PropId name;
        if (!m_ev.ParseVarnameWithContext(name))
            return Expecting(u"a variable name", u"dim");
        if (m_ev.IsEval() && !m_ev.HasVar(name))
            m_ev.SetVar(name, QAnyValue());
    } while (m_ev.MatchChar(u','));
    return true;
}

bool Statements::Var() {
    m_ev.NextToken();
    do {
        const short at = m_ev.SaveCursor();
        PropId name;
        if (!m_ev.ParseVarnameWithContext(name))
            return Expecting(u"a variable name", u"var");
        if (m_ev.IsEval() && m_ev.HasVar(name))
            return m_ev.ExpectingButFoundIn(u"a new variable name", TextAt(m_ev, at), u"var");
        QAnyValue value;
        if (MatchAssign(m_ev) && !m_ev.EvaluateExpression(value))
            return false;
        if (m_ev.IsEval())
            m_ev.SetVar(name, value);
    } while (m_ev.MatchChar(u','));
    return true;
}

bool Statements::Let(QAnyValue& result) {
    m_ev.NextToken();
    const short at = m_ev.SaveCursor();
    PropId name;
    if (!m_ev.ParseVarnameWithContext(name))
        return Expecting(u"a variable name", u"let");
    if (m_ev.IsEval() && !m_ev.HasVar(name))
        return m_ev.ExpectingButFoundIn(u"an existing variable name", TextAt(m_ev, at), u"let");
    if (!MatchAssign(m_ev))
        return Expecting(u"'=' or ':=' between variable name and value", u"let");
    QAnyValue value;
    if (!m_ev.EvaluateExpression(value))
        return false;
    if (m_ev.IsEval()) {
        m_ev.SetVar(name, value);
        result = value;
    }
    return true;
}

// --- Assignment or expression -------------------------------------------------------------------

bool Statements::AssignmentOrExpression(QAnyValue& result, bool forClause) {
    const short start = m_ev.SaveCursor();
    PropId name;
    if (m_ev.ParseVarnameWithContext(name) && IsAssignment(forClause))
        return Assign(result, name, start);
    m_ev.RestoreCursor(start);
    return m_ev.EvaluateExpression(result);
}

// After a name: ":=" always assigns. "=" assigns only when the statement ends behind the value,
// so that a formula's final "x = 3" is a comparison. The cursor is left behind the operator.
bool Statements::IsAssignment(bool forClause) {
    if (m_ev.MatchCharPair(u':', u'='))
        return true;
    if (m_ev.TestCharPair(u'=', u'=') || !m_ev.MatchChar(u'='))
        return false;
    const short value = m_ev.SaveCursor();
    bool ends = false;
    {
        QEvaluator::NoEval off(m_ev);
        QAnyValue scratch;
        ends = m_ev.EvaluateExpression(scratch) && EndsAssignment(forClause);
    }
    m_ev.RestoreCursor(value);
    return ends;
}

// A separator, the closer of a block or an ending word. The end of the formula is none: there
// the statement stands in value position.
bool Statements::EndsAssignment(bool forClause) const {
    if (m_ev.TestChar(u';') || m_ev.TestChar(u':') || m_ev.TestChar(u'}'))
        return true;
    if (forClause && m_ev.TestChar(u')'))
        return true;
    const QToken* token = m_ev.ThisToken();
    return token && token->IsId() && walk::EndsAssignmentWord(token->Id());
}

bool Statements::Assign(QAnyValue& result, PropId name, short at) {
    if (m_optionExplicit && m_ev.IsEval() && !m_ev.HasVar(name))
        return m_ev.ExpectingButFoundIn(u"an existing variable name", TextAt(m_ev, at),
                                        u"assignment");
    QAnyValue value;
    if (!m_ev.EvaluateExpression(value))
        return false;
    if (m_ev.IsEval()) {
        m_ev.SetVar(name, value);
        result = value;
    }
    return true;
}

} // namespace

// --- The evaluator's members --------------------------------------------------------------------

bool QEvaluator::AnyControlFlag() const {
    for (const std::uint8_t flag : m_control)
        if (flag != 0)
            return true;
    return false;
}

// A formula is a block, or routine definitions (with blocks between them).
bool QEvaluator::EvaluateBlockOrFunction(QAnyValue& result) {
    if (!AtRoutine(*this))
        return EvaluateBlock(result);
    while (!PastEOF()) {
        if (AtRoutine(*this)) {
            ControlFlagScope routine(m_control[CF_Routine]);
            if (!Routine(*this, result))
                return false;
        } else if (BlockStyle() == LS_NONE) {
            return ExpectingButFoundIn(u"function or sub", ThisCharPlus(), CString());
        } else if (!EvaluateBlock(result, true)) {
            return false;
        }
    }
    return true;
}

// Without an opener the block is a plain statement list; `requireOpener` then asks for at least
// one statement.
bool QEvaluator::EvaluateBlock(QAnyValue& result, bool requireOpener) {
    const LANGUAGE_STYLE style = BlockStyle();
    if (style != LS_NONE)
        NextToken();
    else if (requireOpener && AtEndOfList(*this, false))
        return ExpectingButFoundIn(u"'{' or 'begin'", ThisCharPlus(), u"block");
    if (!StatementList(*this, result, false))
        return false;
    if (style == LS_BRACES && !MatchChar(u'}'))
        return ExpectingMatchingButFound(u"'}'", u"'{'", ThisCharPlus());
    if (style == LS_WORDS && !MatchId(Word().end))
        return ExpectingMatchingButFound(u"'end'", u"'begin'", ThisCharPlus());
    return true;
}

// `forClause`: a part of a for(;;) header, which may be empty and ends at ';' or ')'.
bool QEvaluator::EvaluateStatement(QAnyValue& result, bool forClause) {
    const NestingLevel level;
    if (level.IsTooDeep())
        return NestedTooDeeply();
    MarkOKUpToHere();
    const short start = SaveCursor();
    if (!EvaluateStatementHelper(result, forClause))
        return false;
    if (IsDebug() && IsEval() && SaveCursor() > start) {
        CString text = FormulaStringBetween(start, static_cast<short>(SaveCursor() - 1));
        QMessageBoxOrLog(text.Trim() + u"\nevaluates to\n\t" + result.Format(), u"Formula Debug");
    }
    return true;
}

bool QEvaluator::EvaluateStatementHelper(QAnyValue& result, bool forClause) {
    // After a break, continue or exit the rest is still parsed, so still checked, but not run.
    if (AnyControlFlag() && IsEval()) {
        NoEval skipped(*this);
        QAnyValue scratch;
        return EvaluateStatementHelper(scratch, forClause);
    }
    MarkOKUpToHere();
    if (BlockStyle() != LS_NONE)
        return EvaluateBlock(result, true);
    if (forClause && (TestChar(u';') || TestChar(u')')))
        return true;
    if (MatchIdPair(Word().option, Word().explicitWord)) {
        if (IsEval())
            SetFlag(c_optionExplicit, true);
        return true;
    }
    const ControlFlags flags{m_control[CF_Routine], m_control[CF_For],  m_control[CF_Do],
                             m_control[CF_While],   m_control[CF_Case], m_control[CF_Continue]};
    Statements statements(*this, flags, Flag(c_optionExplicit));
    return statements.Run(result, forClause);
}

// Takes an optional "do"; the style is that of the block behind it.
bool QEvaluator::HandleDoBegin(LANGUAGE_STYLE& style) {
    const bool sawDo = MatchId(Word().doWord);
    UpdateBlockStyle(style);
    return sawDo;
}

QEvaluator::LANGUAGE_STYLE QEvaluator::BlockStyle() const {
    if (TestChar(u'{'))
        return LS_BRACES;
    if (TestId(Word().begin) && !TestIdPair(Word().begin, Word().transaction))
        return LS_WORDS;
    return LS_NONE;
}

void QEvaluator::UpdateBlockStyle(LANGUAGE_STYLE& style) const {
    const LANGUAGE_STYLE found = BlockStyle();
    if (found != LS_NONE)
        style = found;
}

bool QEvaluator::EvaluateCaseAllowSubscripts(QAnyValue& result) {
    return EvaluateExponentiation(result, true);
}

bool QEvaluator::EvaluateCaseNoSubscripts(QAnyValue& result) {
    return EvaluateExponentiation(result, false);
}

// A label's value. In word style a conditional would swallow the label's ':' after a '?' or a
// comparison, so when no ':', ',' or "to" follows it the value is read again, more simply.
bool QEvaluator::EvaluateConditionalOrSimplerForCase(QAnyValue& result, LANGUAGE_STYLE style) {
    if (style == LS_BRACES)
        return EvaluateCaseAllowSubscripts(result);
    const short start = SaveCursor();
    if (!EvaluateConditional(result))
        return false;
    if (TestChar(u':') || TestChar(u',') || TestId(Word().to))
        return true;
    RestoreCursor(start);
    return EvaluateCaseNoSubscripts(result);
}

} // namespace keel
