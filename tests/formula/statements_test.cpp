#include "tests/support/anyvalues.h"
#include "tests/support/environment.h"
#include "tests/support/tables.h"

#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"
#include "keel/values/tablehandle.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <initializer_list>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

namespace keel {
namespace {

using test::MessageOf;

// A name as the maps below keep it: interned names keep the spelling seen first, in any test.
std::string Key(PropId name) {
    CString text = name.ToString();
    return text.MakeLower().ToUtf8();
}

// A context that keeps the values and formulas written to it, and answers look-ups from the
// values.
class SheetContext : public QFormulaContext {
public:
    CString SimpleTypeName() const override { return u"Sheet"; }
    QProperties* Properties() const override { return nullptr; }

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool&, QCacheState&,
                                 bool) override {
        const auto entry = m_values.find(Key(name));
        if (entry == m_values.end())
            return false;
        value = entry->second;
        return true;
    }
    bool SimpleSetValueInThis(PropId name, const QAnyValue& value) override {
        m_values[Key(name)] = value;
        return true;
    }
    bool SimpleSetFormulaInThis(PropId name, FormulaText formula) override {
        m_formulas[Key(name)] = formula.ToString().ToUtf8();
        return true;
    }

    std::map<std::string, QAnyValue> m_values;
    std::map<std::string, std::string> m_formulas;
};

struct Outcome {
    bool ok = false;
    QAnyValue value;
    std::string message;
};

struct Setting {
    QFormulaContext* context = nullptr;
    bool action = false;
    std::vector<QAnyValue> args;
};

Outcome Evaluated(const char* formula, const Setting& setting = {}) {
    Outcome outcome;
    QEvaluator evaluator(outcome.value, FormulaText(formula), setting.context, false, false,
                         setting.action);
    for (std::size_t i = 0; i < setting.args.size(); ++i)
        evaluator.SetArg(static_cast<int>(i) + 1, setting.args[i]);
    outcome.ok = evaluator.Evaluate();
    outcome.message = evaluator.Message().ToUtf8();
    return outcome;
}

Outcome Action(const char* formula, QFormulaContext* context = nullptr) {
    return Evaluated(formula, Setting{context, true, {}});
}

Outcome WithArgs(const char* formula, std::initializer_list<QAnyValue> args) {
    return Evaluated(formula, Setting{nullptr, false, args});
}

Outcome SyntaxChecked(const char* formula, bool action = false) {
    Outcome outcome;
    QEvaluator evaluator(outcome.value, FormulaText(formula), nullptr, false, false, action);
    outcome.ok = evaluator.EvaluateNoEval();
    outcome.message = evaluator.Message().ToUtf8();
    return outcome;
}

std::string Text(const QAnyValue& value) {
    return value.TypeName().ToUtf8() + " " + value.Format().ToUtf8();
}

testing::AssertionResult HasValue(const char* formula, const Outcome& outcome,
                                  const QAnyValue& expected) {
    if (!outcome.ok)
        return testing::AssertionFailure() << formula << " failed: " << outcome.message;
    if (!(outcome.value == expected))
        return testing::AssertionFailure()
               << formula << " gives " << Text(outcome.value) << ", not " << Text(expected);
    return testing::AssertionSuccess();
}

testing::AssertionResult Gives(const char* formula, const QAnyValue& expected) {
    return HasValue(formula, Evaluated(formula), expected);
}

testing::AssertionResult Fails(const char* formula, const Outcome& outcome,
                               const std::string& message) {
    if (outcome.ok)
        return testing::AssertionFailure() << formula << " succeeded with " << Text(outcome.value);
    if (outcome.message != message)
        return testing::AssertionFailure() << formula << " failed with \"" << outcome.message
                                           << "\", not \"" << message << "\"";
    return testing::AssertionSuccess();
}

testing::AssertionResult FailsWith(const char* formula, const std::string& message) {
    return Fails(formula, Evaluated(formula), message);
}

testing::AssertionResult ActionFailsWith(const char* formula, const std::string& message) {
    return Fails(formula, Action(formula), message);
}

QAnyValue Int(int value) {
    return QAnyValue(value);
}

QAnyValue Bool(bool value) {
    return QAnyValue(value);
}

struct ValueCase {
    const char* formula;
    QAnyValue expected;
};

std::ostream& operator<<(std::ostream& out, const ValueCase& valueCase) {
    return out << valueCase.formula;
}

struct MessageCase {
    const char* formula;
    const char* message;
};

std::ostream& operator<<(std::ostream& out, const MessageCase& messageCase) {
    return out << messageCase.formula;
}

// --- Blocks and statement lists
// -------------------------------------------------------------------

class StatementsValues : public testing::TestWithParam<ValueCase> {};

TEST_P(StatementsValues, GiveTheValueOfTheLastStatementRun) {
    EXPECT_TRUE(Gives(GetParam().formula, GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    Blocks, StatementsValues,
    testing::Values(ValueCase{"1; 2", Int(2)}, ValueCase{"1: 2", Int(2)},
                    ValueCase{"1; 2;", Int(2)}, ValueCase{":1", Int(1)},
                    ValueCase{"; 1;; 2", Int(2)}, ValueCase{"{ 1; 2 }", Int(2)},
                    ValueCase{"{ 1; 2; }", Int(2)}, ValueCase{"begin 1; 2 end", Int(2)},
                    ValueCase{"{ 1; { 2; 3 } }", Int(3)}, ValueCase{"(1; 2) * 10", Int(20)},
                    ValueCase{"1; {}", Int(1)}, ValueCase{"x := 3; x * 2", Int(6)},
                    ValueCase{"WHILE 0 DO 1 WEND; 7", Int(7)},
                    ValueCase{"dimension := 3; dimension", Int(3)},
                    ValueCase{"wendy := 4; wendy + 1", Int(5)}));

TEST(StatementsBlocks, AnEmptyFormulaHasAnEmptyValue) {
    const Outcome outcome = Evaluated("");
    EXPECT_TRUE(outcome.ok);
    EXPECT_TRUE(outcome.value.IsEmpty());
}

class StatementsFailures : public testing::TestWithParam<MessageCase> {};

TEST_P(StatementsFailures, ReportWhatWasExpected) {
    const Outcome outcome = Evaluated(GetParam().formula);
    EXPECT_TRUE(Fails(GetParam().formula, outcome, GetParam().message));
    EXPECT_EQ(MessageOf(outcome.value), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Blocks, StatementsFailures,
    testing::Values(
        MessageCase{"1 2", "Expecting statement in stat-list\nbut found\n\t2"},
        // A formula that opens with a brace is that one block.
        MessageCase{"{ 1 }; 2", "Expecting end of formula\nbut found\n\t; 2"},
        MessageCase{"x := 1 y := 2", "Expecting statement in stat-list\nbut found\n\ty := 2"},
        MessageCase{"{ 1; 2", "Expecting a matching '}' for the '{'\nbut found end of formula"},
        MessageCase{"{ 1 ]", "Expecting a matching '}' for the '{'\nbut found\n\t]"},
        MessageCase{"begin 1; 2",
                    "Expecting a matching 'end' for the 'begin'\nbut found end of formula"},
        MessageCase{"abs(1, )", "Expecting '{' or 'begin' in block\nbut found\n\t)"}));

// --- Assignment or expression
// ---------------------------------------------------------------------

INSTANTIATE_TEST_SUITE_P(Assignments, StatementsValues,
                         testing::Values(ValueCase{"x := 2; x = 3", Bool(false)},
                                         ValueCase{"x := 3; x = 3", Bool(true)},
                                         ValueCase{"x = 3;", Int(3)}, ValueCase{"x := 3", Int(3)},
                                         ValueCase{"x = 3; x + 1", Int(4)},
                                         ValueCase{"x = 3: x", Int(3)},
                                         ValueCase{"x := 1; (x = 2)", Bool(false)},
                                         ValueCase{"x := 1; x == 1", Bool(true)},
                                         ValueCase{"x := 1; x = 1 ? 5 : 6", Int(5)},
                                         ValueCase{"if 1 then x = 3 endif; x", Int(3)},
                                         ValueCase{"x := 0; { x = 4 }; x", Int(4)},
                                         ValueCase{"x := 5; y := x * 2; x + y", Int(15)}));

TEST(StatementsAssignment, AFinalEqualsAloneIsAComparison) {
    SheetContext sheet;
    sheet.m_values["x"] = Int(2);
    EXPECT_TRUE(HasValue("x = 3", Evaluated("x = 3", Setting{&sheet, false, {}}), Bool(false)));
    EXPECT_TRUE(HasValue("x = 2", Evaluated("x = 2", Setting{&sheet, false, {}}), Bool(true)));
    EXPECT_TRUE(HasValue("x = 3;", Evaluated("x = 3;", Setting{&sheet, false, {}}), Int(3)));
    EXPECT_TRUE(sheet.m_values["x"] == Int(2));
}

TEST(StatementsAssignment, OptionExplicitWantsNamesThatExist) {
    EXPECT_TRUE(
        FailsWith("option explicit; x := 1",
                  "Expecting an existing variable name in assignment\nbut found\n\tx := 1"));
    EXPECT_TRUE(
        FailsWith("option explicit; y = 2;",
                  "Expecting an existing variable name in assignment\nbut found\n\ty = 2;"));
    EXPECT_TRUE(Gives("option explicit; dim x; x := 1; x + 1", Int(2)));
    EXPECT_TRUE(Gives("x := 1; option explicit; x := 5", Int(5)));
}

TEST(StatementsAssignment, OptionExplicitIsNotCheckedWithEvaluationOff) {
    EXPECT_TRUE(SyntaxChecked("option explicit; x := 1").ok);
}

// --- dim, var, let
// --------------------------------------------------------------------------------

INSTANTIATE_TEST_SUITE_P(Declarations, StatementsValues,
                         testing::Values(ValueCase{"a := 4; dim a; a", Int(4)},
                                         ValueCase{"var a = 2, b; a", Int(2)},
                                         ValueCase{"var a := 2, b = 3; a + b", Int(5)},
                                         ValueCase{"var a; let a = 5; a", Int(5)},
                                         ValueCase{"a := 1; let a := a + 1", Int(2)}));

TEST(StatementsDeclarations, DimAndVarGiveEmptyValues) {
    const Outcome dim = Evaluated("dim a, b; b");
    EXPECT_TRUE(dim.ok) << dim.message;
    EXPECT_TRUE(dim.value.IsEmpty());
    const Outcome var = Evaluated("var c; c");
    EXPECT_TRUE(var.ok) << var.message;
    EXPECT_TRUE(var.value.IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Declarations, StatementsFailures,
    testing::Values(
        MessageCase{"dim 1", "Expecting a variable name in dim\nbut found\n\t1"},
        MessageCase{"dim a, 2", "Expecting a variable name in dim\nbut found\n\t2"},
        MessageCase{"var 1", "Expecting a variable name in var\nbut found\n\t1"},
        MessageCase{"var a; var a", "Expecting a new variable name in var\nbut found\n\ta"},
        MessageCase{"let 1", "Expecting a variable name in let\nbut found\n\t1"},
        MessageCase{"let b = 1", "Expecting an existing variable name in let\nbut found\n\tb = 1"},
        MessageCase{"dim b; let b 1", "Expecting '=' or ':=' between variable name and value in "
                                      "let\nbut found\n\t1"}));

// --- if
// -------------------------------------------------------------------------------------------

INSTANTIATE_TEST_SUITE_P(
    If, StatementsValues,
    testing::Values(ValueCase{"if 1 > 0 then 10 else 20 endif", Int(10)},
                    ValueCase{"if 1 < 0 then 10 else 20 end if", Int(20)},
                    ValueCase{"if 1 < 0 then 10 elseif 2 > 1 then 30 else 20 endif", Int(30)},
                    ValueCase{"if 1 < 0 then 10 else if 2 > 1 then 30 else 20 endif", Int(30)},
                    ValueCase{"if 1 > 0 then 10 elseif 2 > 1 then 30 else 20 endif", Int(10)},
                    ValueCase{"if 0 then 10 elseif 0 then 30 else 20 endif", Int(20)},
                    ValueCase{"5; if 0 then 10 endif", Int(5)},
                    ValueCase{"if 1 then x := 1; x + 1; endif", Int(2)},
                    ValueCase{"if (1 > 0) 10 else 20", Int(10)},
                    ValueCase{"if (0) 10 else 20", Int(20)},
                    ValueCase{"if (0) { 10 } else { 20 }", Int(20)},
                    ValueCase{"if (1) x := 1; else x := 2; x", Int(1)},
                    ValueCase{"if (0) x := 1; else x := 2; x", Int(2)},
                    ValueCase{"if (0) 1 else if (1) 2 else 3", Int(2)},
                    ValueCase{"if 1 / 0 then 10 else 20 endif", Int(20)},
                    ValueCase{"if (1 / 0) 10 else 20", Int(20)},
                    ValueCase{"if(1 > 0, 10, 20)", Int(10)},
                    ValueCase{"if(0, 10, 20) + 1", Int(21)}));

TEST(StatementsIf, BranchesNotTakenAreOnlyParsed) {
    EXPECT_TRUE(Gives("if 1 then 2 else unknown endif", Int(2)));
    EXPECT_TRUE(Gives("if 0 then unknown elseif 0 then unknown2 else 4 endif", Int(4)));
    EXPECT_TRUE(Gives("if 1 then 2 elseif unknown then unknown endif", Int(2)));
    EXPECT_TRUE(
        FailsWith("if 1 then 2 else 3 * * 4 endif",
                  "Expecting a number, string, name or (expression)\nbut found\n\t* 4 endif"));
}

INSTANTIATE_TEST_SUITE_P(
    If, StatementsFailures,
    testing::Values(
        MessageCase{"if 1 then 2", "Expecting a matching 'end if' for the 'if'\nbut found end "
                                   "of formula"},
        MessageCase{"if 1 then 2 else 3 else 4 endif",
                    "Expecting a matching 'end if' for the 'if'\nbut found\n\telse 4 endif"},
        MessageCase{"if 0 then 1 elseif 1 2 endif",
                    "Expecting 'then' in no 'then'\nbut found\n\t2 endif"}));

// --- Loops
// ----------------------------------------------------------------------------------------

INSTANTIATE_TEST_SUITE_P(
    While, StatementsValues,
    testing::Values(
        ValueCase{"i := 0; sum := 0; while i < 5 do i := i + 1; sum := sum + i wend; sum", Int(15)},
        ValueCase{"i := 0; while i < 3 i := i + 1 wend; i", Int(3)},
        ValueCase{"i := 0; while (i < 3) { i := i + 1 }; i", Int(3)},
        ValueCase{"i := 0; while i < 3 do begin i := i + 1 end wend; i", Int(3)},
        ValueCase{"i := 5; while i < 3 do i := i + 1 wend; i", Int(5)},
        ValueCase{"i := 0; while 1 / 0 do i := 1 wend; i", Int(0)}));

INSTANTIATE_TEST_SUITE_P(
    Repeat, StatementsValues,
    testing::Values(ValueCase{"i := 0; repeat i := i + 1 until i >= 4; i", Int(4)},
                    ValueCase{"i := 10; repeat i := i + 1 until 1 = 1; i", Int(11)},
                    ValueCase{"i := 0; repeat i := i + 1 until 1 / 0; i", Int(1)}));

INSTANTIATE_TEST_SUITE_P(
    Do, StatementsValues,
    testing::Values(ValueCase{"i := 0; do while i < 3 i := i + 1 loop; i", Int(3)},
                    ValueCase{"i := 0; do until i = 3 i := i + 1 loop; i", Int(3)},
                    ValueCase{"i := 0; do i := i + 1 loop while i < 3; i", Int(3)},
                    ValueCase{"i := 0; do i := i + 1 loop until i = 4; i", Int(4)},
                    ValueCase{"i := 0; do { i := i + 1 } while (i < 5); i", Int(5)},
                    ValueCase{"i := 7; do i := i + 1 loop while i < 3; i", Int(8)},
                    ValueCase{"i := 7; do { i := i + 1 } while (i < 3); i", Int(8)},
                    ValueCase{"i := 7; do while i < 3 i := i + 1 loop; i", Int(7)},
                    ValueCase{"i := 7; do until i > 3 i := i + 1 loop; i", Int(7)}));

INSTANTIATE_TEST_SUITE_P(
    ForTo, StatementsValues,
    testing::Values(
        ValueCase{"sum := 0; for i = 1 to 4 do sum := sum + i next; sum", Int(10)},
        ValueCase{"sum := 0; for i := 1 to 4 sum := sum + i next i; sum", Int(10)},
        ValueCase{"sum := 0; for i = 10 downto 7 sum := sum + i endfor; sum", Int(34)},
        ValueCase{"sum := 0; for i = 1 to 10 step 3 sum := sum + i end for; sum", Int(22)},
        ValueCase{"sum := 0; for i = 10 to 1 step -4 sum := sum + i next; sum", Int(18)},
        ValueCase{"sum := 0; for i = 1 to 3 { sum := sum + i }; sum", Int(6)},
        ValueCase{"for i = 1 to 3 do i * 10 next", Int(30)},
        ValueCase{"for i = 1 to 3 do 0 next; i", Int(4)},
        ValueCase{"n := 0; for i = 1 to 1 / 0 do n := n + 1 next; n", Int(0)},
        ValueCase{"n := 0; for i = 1 to 10 do n := n + 1; i := i + 1 next; n", Int(5)},
        ValueCase{"sum := 0; for i = 1 to 2 do for j = 1 to 3 do sum := sum + 1 next "
                  "next; sum",
                  Int(6)}));

TEST(StatementsForTo, ARangeThatIsEmptyRunsNoRoundButParsesTheBody) {
    EXPECT_TRUE(Gives("sum := 0; for i = 1 to 0 do sum := sum + unknown next; sum", Int(0)));
    EXPECT_TRUE(Gives("for i = 3 downto 4 do 1 next; i", Int(3)));
    EXPECT_TRUE(
        FailsWith("for i = 1 to 0 do 1 * * 2 next",
                  "Expecting a number, string, name or (expression)\nbut found\n\t* 2 next"));
}

INSTANTIATE_TEST_SUITE_P(
    ForEach, StatementsValues,
    testing::Values(ValueCase{"sum := 0; for each x in [1, 2, 3] do sum := sum + x next; sum",
                              Int(6)},
                    ValueCase{"sum := 0; for each x in [4, 5] { sum := sum + x }; sum", Int(9)},
                    ValueCase{"sum := ''; for each x in ['a', 'b'] sum := sum & x end for; sum",
                              QAnyValue("ab")},
                    ValueCase{"sum := 0; for each x in 7 do sum := sum + x next; sum", Int(7)}));

TEST(StatementsForEach, AnEmptyArrayRunsNoRoundButParsesTheBody) {
    EXPECT_TRUE(Gives("sum := 0; for each x in [] do sum := sum + unknown next; sum", Int(0)));
    EXPECT_TRUE(
        FailsWith("for each x in [] do 1 * * 2 next",
                  "Expecting a number, string, name or (expression)\nbut found\n\t* 2 next"));
}

INSTANTIATE_TEST_SUITE_P(
    ForClauses, StatementsValues,
    testing::Values(
        ValueCase{"sum := 0; for (i := 0; i < 4; i := i + 1) sum := sum + i; sum", Int(6)},
        ValueCase{"sum := 0; for (i = 0; i < 4; i = i + 1) { sum := sum + i }; sum", Int(6)},
        ValueCase{"sum := 5; for (i := 0; i < 0; i := i + 1) sum := 0; sum", Int(5)},
        ValueCase{"i := 0; for (; i < 3; ) i := i + 1; i", Int(3)},
        ValueCase{"i := 0; for (; i < 3; i := i + 1) {}; i", Int(3)}));

INSTANTIATE_TEST_SUITE_P(
    Loops, StatementsFailures,
    testing::Values(
        MessageCase{"while 0 do 1",
                    "Expecting a matching 'wend' for the 'while'\nbut found end of formula"},
        MessageCase{"repeat 1",
                    "Expecting a matching 'until' for the 'repeat'\nbut found end of formula"},
        MessageCase{"do 1", "Expecting a matching 'loop' for the 'do' in do...loop\nbut found end "
                            "of formula"},
        MessageCase{"do { 1 } while 0", "Expecting '(' in do...while\nbut found\n\t0"},
        MessageCase{"for each 1 in [1] next",
                    "Expecting loop variable name in for each\nbut found\n\t1 in [1] next"},
        MessageCase{"for each x 1 next", "Expecting 'in' between variable name and array "
                                         "value in for each\nbut found\n\t1 next"},
        MessageCase{"for each x in [1] do 1",
                    "Expecting a matching 'next' or 'end for' for the 'for'\nbut found end of "
                    "formula"},
        MessageCase{"for 1 = 1 to 2 next",
                    "Expecting loop variable name in for loop\nbut found\n\t1 = 1 to 2 next"},
        MessageCase{"for i 1 to 2 next", "Expecting '=' or ':=' between variable name and "
                                         "initial value in for loop\nbut found\n\t1 to 2 next"},
        MessageCase{"for i = 1 2 next", "Expecting 'to' or 'downto' between initial and final "
                                        "values in for loop\nbut found\n\t2 next"},
        MessageCase{"for i = 1 to 2 next",
                    "Expecting statement(s) before 'next' in for loop\nbut found\n\tnext"},
        MessageCase{"for i = 1 to 2 do next",
                    "Expecting statement(s) before 'next' in for loop\nbut found\n\tnext"},
        MessageCase{"for i = 1 to 2 do 1",
                    "Expecting a matching 'next' or 'end for' for the 'for'\nbut found end of "
                    "formula"},
        MessageCase{"for (i := 0 i < 1; ) 1",
                    "Expecting ';' between initial and test in for(;;)\nbut found\n\ti < 1; ) 1"},
        MessageCase{"for (; 1 1) 2",
                    "Expecting ';' between test and iter in for(;;)\nbut found\n\t1) 2"},
        MessageCase{"for (;; 2", "Expecting a matching ')' for the '(' in for(;;)\nbut found end "
                                 "of formula"}));

// --- break, continue, exit
// ------------------------------------------------------------------------

TEST(StatementsBreak, LeavesTheLoopAndSkipsWhatFollowsIt) {
    // sum * 100 after the loop is skipped too: the do and case flags are still set.
    EXPECT_TRUE(Gives("sum := 0; for i = 1 to 5 do if i = 3 then break endif; sum := sum + i next; "
                      "sum * 100",
                      Int(3)));
}

TEST(StatementsBreak, SetsTheFlagsOfFourKindsAtOnce) {
    // The while restores only its own flag: the for counts as left as well, so its body's
    // increment never runs, and nothing after the for runs either.
    EXPECT_TRUE(Gives("sum := 0; for i = 1 to 3 do while 1 = 1 do break wend; sum := sum + 1 next; "
                      "sum + 100",
                      Int(0)));
    // The inner for restores its flag; the do it stands in ends at its close.
    EXPECT_TRUE(Gives("n := 0; do for i = 1 to 3 do break next; n := n + 1 loop while n < 5; "
                      "n + 100",
                      Int(0)));
    // A break in a word-style select leaves the loop around it too.
    EXPECT_TRUE(Gives("sum := 0; for i = 1 to 3 do select case i case 2: break end select; "
                      "sum := sum + i next; sum + 100",
                      Int(1)));
}

TEST(StatementsBreak, SkippedStatementsAreStillSyntaxChecked) {
    EXPECT_TRUE(FailsWith("for i = 1 to 2 do break next; 1 +",
                          "Expecting a number, string, name or (expression)\nbut found end of "
                          "formula"));
    EXPECT_TRUE(FailsWith("for i = 1 to 2 do break; 1 2 next",
                          "Expecting statement in stat-list\nbut found\n\t2 next"));
    EXPECT_TRUE(Gives("for i = 1 to 2 do i; break; unknown next", Int(1)));
}

TEST(StatementsContinue, SkipsTheRestOfTheRoundOnly) {
    EXPECT_TRUE(Gives("sum := 0; for i = 1 to 5 do if i = 2 then continue endif; sum := sum + i "
                      "next; sum",
                      Int(13)));
    EXPECT_TRUE(Gives("i := 0; sum := 0; while i < 5 do i := i + 1; if i = 3 then continue for "
                      "endif; sum := sum + i wend; sum",
                      Int(12)));
    EXPECT_TRUE(
        Gives("i := 0; sum := 0; do i := i + 1; if i < 3 then continuedo endif; sum := sum + "
              "i loop until i = 4; sum",
              Int(7)));
    EXPECT_TRUE(Gives(
        "sum := 0; for each x in [1, 2, 3] do continue while; sum := sum + x next; sum", Int(0)));
    EXPECT_TRUE(Gives("sum := 0; for (i := 0; i < 4; i := i + 1) { if (i = 1) continue; sum := sum "
                      "+ i }; sum",
                      Int(5)));
}

INSTANTIATE_TEST_SUITE_P(
    Exit, StatementsValues,
    testing::Values(
        ValueCase{
            "sum := 0; for i = 1 to 5 do if i = 4 then exit for endif; sum := sum + i next; sum",
            Int(6)},
        ValueCase{
            "sum := 0; for i = 1 to 5 do if i = 4 then exitfor endif; sum := sum + i next; sum",
            Int(6)},
        ValueCase{"i := 0; do i := i + 1; if i = 3 then exitdo endif loop; i", Int(3)},
        ValueCase{"i := 0; do i := i + 1; if i = 3 then exit do endif loop; i", Int(3)},
        ValueCase{"i := 0; repeat i := i + 1; if i = 2 then exit do endif until i > 9; i", Int(2)},
        ValueCase{"i := 0; while 1 = 1 do i := i + 1; if i = 4 then exit while endif wend; i",
                  Int(4)},
        ValueCase{"i := 0; while 1 = 1 do i := i + 1; if i = 4 then exitwhile endif wend; i",
                  Int(4)},
        ValueCase{"i := 0; while 1 = 1 do i := i + 1; if i = 2 then exit function endif wend",
                  Int(2)},
        ValueCase{"1; exit sub; 2", Int(1)}));

// --- try
// ------------------------------------------------------------------------------------------

INSTANTIATE_TEST_SUITE_P(Try, StatementsValues,
                         testing::Values(ValueCase{"try 1 / 0 catch 5 endtry", Int(5)},
                                         ValueCase{"try 2 catch 5 end try", Int(2)},
                                         ValueCase{"try 1 / 0 catch 5 endcatch", Int(5)},
                                         ValueCase{"try 1 / 0 catch 5 end catch", Int(5)},
                                         ValueCase{"try 2 catch unknown endtry", Int(2)},
                                         ValueCase{"try { x := 1; 1 / 0 } catch { x + 1 } endtry",
                                                   Int(2)}));

TEST(StatementsTry, ASyntaxFailureIsNotCaught) {
    EXPECT_TRUE(FailsWith("try 1 * * 2 catch 5 endtry",
                          "Expecting a number, string, name or (expression)\nbut found\n\t* 2 "
                          "catch 5 endtry"));
}

INSTANTIATE_TEST_SUITE_P(
    Try, StatementsFailures,
    testing::Values(MessageCase{"try 1 endtry", "Expecting 'catch'\nbut found\n\tendtry"},
                    MessageCase{"try 1 catch 2", "Expecting a matching 'end try' for the "
                                                 "'try'\nbut found end of formula"}));

// --- select
// ---------------------------------------------------------------------------------------

INSTANTIATE_TEST_SUITE_P(
    SelectWords, StatementsValues,
    testing::Values(
        ValueCase{"select case 2 case 1: 10 case 2: 20 case else: 30 end select", Int(20)},
        ValueCase{"select case 9 case 1: 10 case 2: 20 case else 30 end select", Int(30)},
        ValueCase{"select 9 case 1: 10 else 30 endselect", Int(30)},
        ValueCase{"switch 3 case 1, 3: 13 default 0 endselect", Int(13)},
        ValueCase{"case 3 of case 1 to 3: 1 else 2 endselect", Int(1)},
        ValueCase{"select case 4 case 1 to 3: 1 else 2 endselect", Int(2)},
        ValueCase{"select case 0 case 1 to 3: 1 else 2 endselect", Int(2)},
        ValueCase{"select case 610 mm case 2 ft: 1 else 2 endselect", Int(1)},
        ValueCase{"select case 612 mm case 2 ft: 1 else 2 endselect", Int(2)},
        ValueCase{"select case 'Abc' case 'abc': 1 else 2 endselect", Int(1)},
        ValueCase{"select case 5 case is > 3: 1 else 2 endselect", Int(1)},
        ValueCase{"select case 5 case < 3: 1 case >= 5: 2 endselect", Int(2)},
        ValueCase{"select case 5 case <> 5: 1 case != 4: 2 endselect", Int(2)},
        ValueCase{"select case 5 case == 5: 1 endselect", Int(1)},
        ValueCase{"select case 5 case = 4: 1 case is = 5: 2 endselect", Int(2)},
        ValueCase{"select case 5 case is <= 4: 1 case is < 6: 2 endselect", Int(2)},
        ValueCase{"select case 5 case 1, 2, is > 4: 1 endselect", Int(1)},
        ValueCase{"select case 1 case 1: 10 case 1: 20 endselect", Int(10)},
        ValueCase{"7; select case 9 case 1: 10 endselect", Int(7)},
        ValueCase{"r := 0; select case 1 case 1: r := r + 1 case 2: r := r + 10 end select; r",
                  Int(1)},
        ValueCase{"select case 2 case 1: unknown case 2: 20 case unknown2: 30 endselect",
                  Int(20)}));

INSTANTIATE_TEST_SUITE_P(
    SelectBraces, StatementsValues,
    testing::Values(
        ValueCase{"switch (2) { case 1: 10; break; case 2: 20; break; default: 30 }", Int(20)},
        ValueCase{"switch (9) { case 1: 10; break; default: 30 }", Int(30)},
        ValueCase{"5; switch (9) { case 1: 10 }", Int(5)},
        ValueCase{"switch (1 + 1) { case 1: 10; break; case 2: 20 }", Int(20)},
        ValueCase{"switch (2) { case 1, 2: 12; break; case 3: 30 }", Int(12)},
        ValueCase{"switch (2) { case 1 to 3: 13; break; default: 30 }", Int(13)},
        ValueCase{"switch (2) { case > 1: 1; break; default: 30 }", Int(1)},
        // From the matching label on, control falls through until a break.
        ValueCase{"r := 0; switch (1) { case 1: r := r + 1; case 2: r := r + 10; break; case 3: "
                  "r := r + 100 }",
                  Int(11)},
        ValueCase{"r := 0; switch (2) { case 1: r := r + 1; case 2: r := r + 10; case 3: r := "
                  "r + 100 }",
                  Int(110)},
        ValueCase{"switch (1) { case 1: case 2: 12; break; default: 0 }", Int(12)}));

INSTANTIATE_TEST_SUITE_P(
    Select, StatementsFailures,
    testing::Values(
        MessageCase{"select case 1 case 1 2 endselect",
                    "Expecting ':' in select case\nbut found\n\t2 endselect"},
        // A label that is not followed by its ':' is read again, more simply.
        MessageCase{"select case 1 case 1 ? 2 : 3 4 endselect",
                    "Expecting ':' in select case\nbut found\n\t? 2 : 3 4 endselect"},
        MessageCase{"switch (3) { case 1 + 2: 1 }",
                    "Expecting ':' in switch {..}\nbut found\n\t+ 2: 1 }"},
        MessageCase{"select case 1 case is 1: 2 endselect",
                    "Expecting operator in select case\nbut found\n\t1: 2 endselect"},
        MessageCase{"select case 1 case 1: 2",
                    "Expecting a matching 'end select' for the 'select' in select case\nbut found "
                    "end of formula"},
        MessageCase{"select case 1 3 endselect",
                    "Expecting a matching 'end select' for the 'select' in select case\nbut found"
                    "\n\t3 endselect"},
        MessageCase{"switch (1) { case 1 2 }", "Expecting ':' in switch {..}\nbut found\n\t2 }"},
        MessageCase{"switch (1) { default 2 }", "Expecting ':' in switch {..}\nbut found\n\t2 }"},
        MessageCase{"switch (1) { case is 1: 2 }",
                    "Expecting operator in switch {..}\nbut found\n\t1: 2 }"},
        MessageCase{"switch (1) { case 1: 2 endif }",
                    "Expecting a matching 'break' for the 'case'\nbut found\n\tendif }"},
        MessageCase{"switch (1) { 2 }",
                    "Expecting 'case' or 'default' in switch {..}\nbut found\n\t2 }"}));

// --- Routines
// -------------------------------------------------------------------------------------

TEST(StatementsRoutines, ArgumentsComeFromSetArgOrTheirDefaults) {
    const char* product = "function(a, b) a * b end function";
    EXPECT_TRUE(HasValue(product, WithArgs(product, {Int(3), Int(4)}), Int(12)));
    const char* withDefault = "function(a, b = 10) a + b endfunction";
    EXPECT_TRUE(HasValue(withDefault, WithArgs(withDefault, {Int(1)}), Int(11)));
    EXPECT_TRUE(HasValue(withDefault, WithArgs(withDefault, {Int(1), Int(2)}), Int(3)));
    const char* percent = "function(a) a + %1 end function";
    EXPECT_TRUE(HasValue(percent, WithArgs(percent, {Int(5)}), Int(10)));
    const Outcome missing = WithArgs("function(a) a end function", {});
    EXPECT_TRUE(missing.ok) << missing.message;
    EXPECT_TRUE(missing.value.IsEmpty());
}

TEST(StatementsRoutines, ADefaultIsOnlyEvaluatedWhenNoArgumentIsGiven) {
    const char* formula = "function(a := 1 / 0) a end function";
    EXPECT_TRUE(HasValue(formula, WithArgs(formula, {Int(7)}), Int(7)));
    const Outcome fallback = WithArgs(formula, {});
    EXPECT_TRUE(fallback.ok) << fallback.message;
    EXPECT_EQ(MessageOf(fallback.value), "Division by zero");
}

INSTANTIATE_TEST_SUITE_P(Routines, StatementsValues,
                         testing::Values(ValueCase{"function(void) 5 end function", Int(5)},
                                         ValueCase{"function() 5 end function", Int(5)},
                                         ValueCase{"function = 5 end function", Int(5)},
                                         ValueCase{"function 5 end function", Int(5)},
                                         ValueCase{"function := x := 2; x * 3 endfunction", Int(6)},
                                         ValueCase{"function 1 end function { 3 }", Int(3)},
                                         ValueCase{"function(a) this := 4; 99 end function",
                                                   Int(4)}));

TEST(StatementsRoutines, AFunctionReturnsThisWhenItIsSet) {
    const char* formula = "function(a) this := a * 2; 99 end function";
    EXPECT_TRUE(HasValue(formula, WithArgs(formula, {Int(4)}), Int(8)));
}

TEST(StatementsRoutines, ASubYieldsEmpty) {
    for (const char* formula :
         {"sub(a) a * 2 end sub", "sub 5 endsub", "function 1 end function sub 2 end sub"}) {
        const Outcome outcome = WithArgs(formula, {Int(3)});
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
        EXPECT_TRUE(outcome.value.IsEmpty()) << formula << ": " << Text(outcome.value);
    }
}

TEST(StatementsRoutines, ExitFunctionSkipsTheRestOfTheRoutine) {
    const char* formula =
        "function(a) if a > 2 then exit function endif; this := 1; 7 end function";
    const Outcome left = WithArgs(formula, {Int(5)});
    EXPECT_TRUE(left.ok) << left.message;
    EXPECT_TRUE(left.value.IsEmpty()) << Text(left.value);
    EXPECT_TRUE(HasValue(formula, WithArgs(formula, {Int(1)}), Int(1)));
    const char* sub = "sub(a) exitsub; unknown end sub";
    EXPECT_TRUE(WithArgs(sub, {Int(1)}).ok);
}

INSTANTIATE_TEST_SUITE_P(
    Routines, StatementsFailures,
    testing::Values(
        MessageCase{"function(a b) a end function",
                    "Expecting a matching ')' for the '(' in list of function args\nbut "
                    "found\n\tb) a end function"},
        MessageCase{"function(1) 2 end function",
                    "Expecting arg name in list of function args\nbut found\n\t1) 2 end function"},
        MessageCase{"sub 1", "Expecting a matching 'end sub' for the 'sub' in subroutine "
                             "definition\nbut found end of formula"},
        MessageCase{"function 1", "Expecting a matching 'end function' for the 'function' in "
                                  "function definition\nbut found end of formula"},
        MessageCase{"function 1 end sub", "Expecting a matching 'end function' for the "
                                          "'function' in function definition\nbut found\n\tend "
                                          "sub"},
        MessageCase{"function 1 end function 2", "Expecting function or sub\nbut found\n\t2"}));

// --- set value and set formula
// --------------------------------------------------------------------

TEST(StatementsSet, SetValueWritesToTheContext) {
    SheetContext sheet;
    const Outcome outcome = Action("set value width = 2 + 3", &sheet);
    EXPECT_TRUE(HasValue("set value", outcome, Int(5)));
    EXPECT_TRUE(sheet.m_values["width"] == Int(5));
    EXPECT_TRUE(
        HasValue("set value :=", Action("set value depth := 7; depth * 2", &sheet), Int(14)));
}

TEST(StatementsSet, SetFormulaWritesTheTextAsAFormula) {
    SheetContext sheet;
    const Outcome outcome = Action("set formula height = 'depth * 2'", &sheet);
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(sheet.m_formulas["height"], FormulaText("depth * 2").ToString().ToUtf8());
    EXPECT_TRUE(sheet.m_values.empty());
}

TEST(StatementsSet, ARefusedWriteIsAnErrorValue) {
    SheetContext sheet;
    const Outcome value = Action("set value nosuchsheet.width = 1", &sheet);
    EXPECT_TRUE(value.ok) << value.message;
    EXPECT_EQ(MessageOf(value.value), "SetValue fails to set new value for nosuchsheet.width");
    const Outcome formula = Action("set formula nosuchsheet.width = '1'", &sheet);
    EXPECT_TRUE(formula.ok) << formula.message;
    EXPECT_EQ(MessageOf(formula.value),
              "SetFormula fails to set new formula for nosuchsheet.width");
}

TEST(StatementsSet, WithoutAContextASetFailsAsARefusedWrite) {
    EXPECT_EQ(MessageOf(Action("set value loosevalue = 1").value),
              "SetValue fails to set new value for loosevalue");
    EXPECT_EQ(MessageOf(Action("set formula loosevalue = 1").value),
              "SetFormula fails to set new formula for loosevalue");
}

TEST(StatementsSet, OnlyInAnActionField) {
    SheetContext sheet;
    EXPECT_TRUE(Fails("set value", Evaluated("set value w = 1", Setting{&sheet, false, {}}),
                      "Only allowed in an action field\n\tset value w = 1"));
    EXPECT_TRUE(sheet.m_values.empty());
    EXPECT_TRUE(FailsWith("if 0 then set value w = 1 endif",
                          "Only allowed in an action field\n\tset value w = 1 endi"));
}

TEST(StatementsSet, NothingIsWrittenWithEvaluationOff) {
    SheetContext sheet;
    EXPECT_TRUE(HasValue("if", Action("if 0 then set value w = 1 endif; 2", &sheet), Int(2)));
    EXPECT_TRUE(sheet.m_values.empty());
}

INSTANTIATE_TEST_SUITE_P(Set, StatementsFailures,
                         testing::Values(MessageCase{
                             "set w = 1", "Only allowed in an action field\n\tset w = 1"}));

class StatementsSetFailures : public testing::TestWithParam<MessageCase> {};

TEST_P(StatementsSetFailures, ReportWhatWasExpected) {
    EXPECT_TRUE(ActionFailsWith(GetParam().formula, GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    Set, StatementsSetFailures,
    testing::Values(
        MessageCase{"set w = 1", "Expecting 'Value' or 'Formula' in set value\nbut found\n\tw = 1"},
        MessageCase{"set value = 1", "Expecting fullname in set value\nbut found\n\t= 1"},
        MessageCase{"set value w 1",
                    "Expecting '=' or ':=' between name and value in set value\nbut found\n\t1"}));

// --- Lookup-table statements
// ----------------------------------------------------------------------

// Writes down, at each transaction, the extra context lines in force.
class ContextRecordingTable : public test::NamedTable {
public:
    explicit ContextRecordingTable(const CString& name) : NamedTable(name) {}
    bool BeginTrans() override { return Record(NamedTable::BeginTrans()); }
    bool CommitTrans() override { return Record(NamedTable::CommitTrans()); }
    bool Rollback() override { return Record(NamedTable::Rollback()); }
    bool Reload() override { return Record(NamedTable::Reload()); }
    bool UpdateExact(const QAnyValue& row, const QAnyValue& col, const QAnyValue& value,
                     QFormulaContext* context) override {
        return Record(NamedTable::UpdateExact(row, col, value, context));
    }

    std::vector<std::string> m_contexts;

private:
    bool Record(bool succeeded) {
        m_contexts.push_back(QEvaluator::ContextInfo(true).ToUtf8());
        return succeeded;
    }
};

class ContextRecordingSource : public test::NamedTableSource {
public:
    QTableHandlePtr Open(const CString& name, bool, CString&) override {
        m_tables.push_back(QSmartPtr<ContextRecordingTable>(new ContextRecordingTable(name)));
        return QTableHandlePtr(m_tables.back().Get());
    }

    std::vector<QSmartPtr<ContextRecordingTable>> m_tables;
};

class StatementsTables : public testing::Test {
protected:
    void SetUp() override { m_previous = SetTableHandleSource(&m_source); }
    void TearDown() override { SetTableHandleSource(m_previous); }

    // Every journal entry of every table opened, in order.
    std::vector<std::string> Journal() const {
        std::vector<std::string> entries;
        for (const QSmartPtr<test::NamedTable>& table : m_source.m_opened)
            entries.insert(entries.end(), table->m_journal.begin(), table->m_journal.end());
        return entries;
    }

    test::NamedTableSource m_source;
    QTableHandleSource* m_previous = nullptr;
};

using Entries = std::vector<std::string>;

TEST_F(StatementsTables, TransactionsRunOnTheTable) {
    EXPECT_TRUE(HasValue("begin", Action("begin transaction vlt 'prices'"), Bool(true)));
    EXPECT_TRUE(HasValue("begintrans", Action("begintrans vlt 'prices'"), Bool(true)));
    EXPECT_TRUE(HasValue("commit", Action("commit transaction vlt 'prices'"), Bool(true)));
    EXPECT_TRUE(HasValue("committrans", Action("committrans vlt 'prices'"), Bool(true)));
    EXPECT_TRUE(HasValue("rollback", Action("rollback vlt 'prices'"), Bool(true)));
    EXPECT_TRUE(HasValue("reload", Action("reload vlt 'prices'"), Bool(true)));
    EXPECT_EQ(Journal(), (Entries{"BeginTrans", "BeginTrans", "CommitTrans", "CommitTrans",
                                  "Rollback", "Reload"}));
}

TEST_F(StatementsTables, BeginTransactionAtStatementStartIsNoBlock) {
    EXPECT_TRUE(HasValue("begin", Action("x := 'p'; begin transaction vlt x; 3"), Int(3)));
    EXPECT_EQ(Journal(), Entries{"BeginTrans"});
    EXPECT_TRUE(FailsWith("begin transaction vlt 'p'",
                          "Only allowed in an action field\n\tbegin transaction vl"));
}

TEST_F(StatementsTables, UpdateByLabelsOrByIndexes) {
    EXPECT_TRUE(HasValue("update",
                         Action("update vlt 'p' set cell = 5 where row = 'a' and "
                                "col = 'b'"),
                         Bool(true)));
    EXPECT_TRUE(HasValue("update",
                         Action("update vlt 'p' set cell := 2 * 3 where col = 'b' "
                                "and row = 'a'"),
                         Bool(true)));
    EXPECT_TRUE(HasValue("update",
                         Action("update vlt 'p' set cell = 6 where rowindex = 3 and "
                                "colindex = 2"),
                         Bool(true)));
    EXPECT_TRUE(HasValue("update",
                         Action("update vlt 'p' set cell = 7 where colindex = 1 and "
                                "rowindex = 1 + 1"),
                         Bool(true)));
    EXPECT_EQ(Journal(), (Entries{"UpdateExact a b 5", "UpdateExact a b 6", "UpdateByIndex 2 1 6",
                                  "UpdateByIndex 1 0 7"}));
}

TEST_F(StatementsTables, ReloadAllTables) {
    EXPECT_TRUE(Action("reload vlt *").ok);
    EXPECT_EQ(m_source.m_reloadAllCount, 1);
    EXPECT_TRUE(Action("if 0 then reload vlt * endif").ok);
    EXPECT_EQ(m_source.m_reloadAllCount, 1);
}

TEST_F(StatementsTables, NothingRunsWithEvaluationOff) {
    EXPECT_TRUE(Action("if 0 then begintrans vlt 'p'; update vlt 'p' set cell = 1 where row "
                       "= 1 and col = 2 endif")
                    .ok);
    EXPECT_TRUE(SyntaxChecked("rollback vlt 'p'", true).ok);
    EXPECT_TRUE(Journal().empty());
}

TEST_F(StatementsTables, AnUnknownTableIsAnErrorValue) {
    test::NamedTableSource known({"prices"});
    SetTableHandleSource(&known);
    const Outcome outcome = Action("rollback vlt 'costs'");
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(MessageOf(outcome.value), "Cannot find lookup table costs");
}

TEST_F(StatementsTables, EachRunsUnderItsContextLine) {
    ContextRecordingSource recording;
    SetTableHandleSource(&recording);
    for (const char* formula :
         {"begintrans vlt 'p'", "committrans vlt 'p'", "rollback vlt 'p'", "reload vlt 'p'",
          "update vlt 'p' set cell = 1 where row = 1 and col = 2"})
        EXPECT_TRUE(Action(formula).ok) << formula;
    std::vector<std::string> contexts;
    for (const auto& table : recording.m_tables)
        contexts.insert(contexts.end(), table->m_contexts.begin(), table->m_contexts.end());
    EXPECT_EQ(contexts,
              (std::vector<std::string>{"\nin\n\tBEGINTRANS VLT", "\nin\n\tCOMMITTRANS VLT",
                                        "\nin\n\tROLLBACK VLT", "\nin\n\tRELOAD VLT",
                                        "\nin\n\tUPDATE VLT\n\tUPDATE VLT ERROR"}));
    EXPECT_EQ(QEvaluator::ContextInfo(true).ToUtf8(), "");
}

TEST_F(StatementsTables, OnlyInAnActionField) {
    EXPECT_TRUE(FailsWith("rollback vlt 'p'", "Only allowed in an action field\n\trollback vlt "
                                              "'p'"));
    EXPECT_TRUE(FailsWith("reload vlt *", "Only allowed in an action field\n\treload vlt *"));
    EXPECT_TRUE(FailsWith("update vlt 'p' set cell = 1",
                          "Only allowed in an action field\n\tupdate vlt 'p' set c"));
    EXPECT_TRUE(Journal().empty());
}

TEST_F(StatementsTables, CommitAloneIsNoStatement) {
    EXPECT_TRUE(HasValue("commit", Action("commit := 2; commit + 1"), Int(3)));
}

INSTANTIATE_TEST_SUITE_P(
    Tables, StatementsSetFailures,
    testing::Values(
        MessageCase{"begin transaction 'p'",
                    "Expecting 'vlt' in begin transaction\nbut found\n\t'p'"},
        MessageCase{"begintrans 'p'", "Expecting 'vlt' in begin transaction\nbut found\n\t'p'"},
        MessageCase{"commit transaction 'p'",
                    "Expecting 'vlt' in commit transaction\nbut found\n\t'p'"},
        MessageCase{"committrans 'p'", "Expecting 'vlt' in commit transaction\nbut found\n\t'p'"},
        MessageCase{"rollback 'p'", "Expecting 'vlt' in rollback\nbut found\n\t'p'"},
        MessageCase{"reload 'p'", "Expecting 'vlt' in reload\nbut found\n\t'p'"},
        MessageCase{"update 'p'", "Expecting 'vlt' in update\nbut found\n\t'p'"},
        MessageCase{"update vlt 'p' cell", "Expecting 'set' in update\nbut found\n\tcell"},
        MessageCase{"update vlt 'p' set x", "Expecting 'cell' in update\nbut found\n\tx"},
        MessageCase{"update vlt 'p' set cell 1", "Expecting '=' or ':=' in update\nbut found\n\t1"},
        MessageCase{"update vlt 'p' set cell = 1 row",
                    "Expecting 'where' in update\nbut found\n\trow"},
        MessageCase{"update vlt 'p' set cell = 1 where x = 1",
                    "Expecting 'row', 'col', 'rowindex', 'colindex' in update .. where "
                    "...\nbut found\n\tx = 1"},
        MessageCase{"update vlt 'p' set cell = 1 where row 1",
                    "Expecting '=' in update .. where row = <value>\nbut found\n\t1"},
        MessageCase{"update vlt 'p' set cell = 1 where rowindex 1",
                    "Expecting '=' in update .. where row = <value>\nbut found\n\t1"},
        MessageCase{"update vlt 'p' set cell = 1 where col 1",
                    "Expecting '=' in update .. where col = <value>\nbut found\n\t1"},
        MessageCase{"update vlt 'p' set cell = 1 where row = 1 col = 2",
                    "Expecting 'and' in update ... where ...\nbut found\n\tcol = 2"},
        MessageCase{"update vlt 'p' set cell = 1 where row = 1 and row = 2",
                    "Expecting 'row', 'col', 'rowindex', 'colindex' in update .. where "
                    "...\nbut found\n\trow = 2"},
        MessageCase{"update vlt 'p' set cell = 1 where row = 1 and colindex = 2",
                    "Expecting 'row', 'col', 'rowindex', 'colindex' in update .. where "
                    "...\nbut found\n\tcolindex = 2"}));

// --- Debug display ------------------------------------------------------------------------------

TEST(StatementsDebug, EachStatementRunIsShownWithItsValue) {
    namespace fs = std::filesystem;
    const fs::path folder =
        fs::temp_directory_path() / ("keel-statements-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    test::ScopedEnvironment environment;
    for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"})
        environment.Set(variable, folder.string());
    QErrorLog& log = TheErrorLog();
    const CString previousFilename = log.Filename();
    log.DiscardPendingMessages();
    log.CloseLogFile();
    log.SetFilename(CString::FromUtf8((folder / "errors.txt").string()));

    QAnyValue result;
    QEvaluator evaluator(result, FormulaText("x := 2; if 0 then 5 endif; x * 3"), nullptr, false,
                         false, false);
    evaluator.SetDebug(true);
    EXPECT_TRUE(evaluator.Evaluate()) << evaluator.Message().ToUtf8();
    std::vector<std::string> shown;
    for (int i = 0; i < log.GetSize(); ++i)
        if (log.ErrorType(i)->Description() == CString(u"Formula Debug"))
            shown.push_back(log.Message(i).ToUtf8());
    EXPECT_EQ(shown, (std::vector<std::string>{"x := 2\nevaluates to\n\t2",
                                               "if 0 then 5 endif\nevaluates to\n\t2",
                                               "x * 3\nevaluates to\n\t6"}));

    log.DiscardPendingMessages();
    log.CloseLogFile();
    log.SetFilename(previousFilename);
    fs::remove_all(folder);
}

// --- The evaluation-off check
// ---------------------------------------------------------------------

TEST(StatementsNoEval, EveryStatementParsesWithoutRunning) {
    for (const char* formula :
         {"for i = 1 to 3 do x := i next; x", "while unknown do 1 wend", "do 1 loop until unknown",
          "repeat 1 until unknown", "for each x in unknown do 1 next",
          "for (i := 0; unknown; i := i + 1) 1", "try unknown catch 2 endtry",
          "select case unknown case 1: 1 endselect", "switch (unknown) { case 1: 1 }",
          "let unknown = 1", "var a; var a", "break; continue; exit for"}) {
        const Outcome outcome = SyntaxChecked(formula);
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
    }
    EXPECT_FALSE(SyntaxChecked("while 1 do 1 +").ok);
}

} // namespace
} // namespace keel
