#include "tests/support/anyvalues.h"

#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::Array;
using test::MessageOf;

// A context that answers from a table of its own, counts what it is asked, and may have a parent.
// Without a name it keeps its type name for look-ups but says it has no name of its own.
class CountingContext : public QFormulaContext {
public:
    explicit CountingContext(const char* name = "Test", QFormulaContext* parent = nullptr,
                             bool named = true)
        : m_name(name), m_parent(parent), m_named(named) {}

    CString SimpleTypeName() const override { return m_name; }
    CString SimpleWhoAmI() const override { return m_named ? m_name : CString(); }
    bool IsAbleToHaveName() const override { return m_named; }
    QProperties* Properties() const override { return nullptr; }
    QFormulaContext* ParentContext() override { return m_parent; }
    const QFormulaContext* ParentContext() const override { return m_parent; }

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool& error, QCacheState& state,
                                 bool) override {
        ++m_lookups[name.UniqueId()];
        const auto entry = m_entries.find(name.UniqueId());
        if (entry == m_entries.end())
            return false;
        value = entry->second.value;
        error = entry->second.failing;
        keel::RaiseCacheState(state, entry->second.state);
        return true;
    }

    bool LookupValue(FullId name, QAnyValue& value, bool& error, QCacheState& state,
                     bool passthrough, bool debug, bool useCache) override {
        m_asked.push_back(name.ToString().ToUtf8());
        return QFormulaContext::LookupValue(name, value, error, state, passthrough, debug,
                                            useCache);
    }

    void Set(const char* name, const QAnyValue& value, QCacheState state = QCS_Stable) {
        m_entries[PropId(name).UniqueId()] = Entry{value, state, false};
    }
    void SetFailing(const char* name) {
        m_entries[PropId(name).UniqueId()] = Entry{QAnyValue(), QCS_Stable, true};
    }
    int LookupsOf(const char* name) const {
        const auto count = m_lookups.find(PropId(name).UniqueId());
        return count == m_lookups.end() ? 0 : count->second;
    }
    int AllLookups() const {
        int total = 0;
        for (const auto& [id, count] : m_lookups)
            total += count;
        return total;
    }
    const std::vector<std::string>& Asked() const { return m_asked; }

private:
    struct Entry {
        QAnyValue value;
        QCacheState state = QCS_Stable;
        bool failing = false;
    };

    CString m_name;
    QFormulaContext* m_parent;
    bool m_named;
    std::map<int, Entry> m_entries;
    std::map<int, int> m_lookups;
    std::vector<std::string> m_asked;
};

struct Outcome {
    bool ok = false;
    QAnyValue value;
    std::string message;
    QCacheState state = QCS_Stable;
};

Outcome Evaluated(const char* formula, QFormulaContext* context = nullptr, bool report = false,
                  bool action = false) {
    Outcome outcome;
    QEvaluator evaluator(outcome.value, FormulaText(formula), context, false, report, action);
    outcome.ok = evaluator.Evaluate();
    outcome.message = evaluator.Message().ToUtf8();
    outcome.state = evaluator.CacheState();
    return outcome;
}

Outcome EvaluatedNoEval(const char* formula, QFormulaContext* context = nullptr) {
    Outcome outcome;
    QEvaluator evaluator(outcome.value, FormulaText(formula), context, false, false, false);
    outcome.ok = evaluator.EvaluateNoEval();
    outcome.message = evaluator.Message().ToUtf8();
    return outcome;
}

std::string Text(const QAnyValue& value) {
    return value.TypeName().ToUtf8() + " " + value.Format().ToUtf8();
}

testing::AssertionResult Gives(const char* formula, const QAnyValue& expected,
                               QFormulaContext* context = nullptr) {
    const Outcome outcome = Evaluated(formula, context);
    if (!outcome.ok)
        return testing::AssertionFailure() << formula << " failed: " << outcome.message;
    if (!(outcome.value == expected))
        return testing::AssertionFailure()
               << formula << " gives " << Text(outcome.value) << ", not " << Text(expected);
    return testing::AssertionSuccess();
}

testing::AssertionResult FailsWith(const char* formula, const std::string& message,
                                   QFormulaContext* context = nullptr, bool report = false) {
    const Outcome outcome = Evaluated(formula, context, report);
    if (outcome.ok)
        return testing::AssertionFailure() << formula << " succeeded with " << Text(outcome.value);
    if (outcome.message != message)
        return testing::AssertionFailure() << formula << " failed with \"" << outcome.message
                                           << "\", not \"" << message << "\"";
    if (MessageOf(outcome.value) != message)
        return testing::AssertionFailure() << formula << " left " << Text(outcome.value);
    return testing::AssertionSuccess();
}

QAnyValue Bool(bool value) {
    return QAnyValue(value);
}

QAnyValue String(const char* text) {
    return QAnyValue(text);
}

double RawLength(const QAnyValue& value) {
    return QAnyValue(value).MakeLength().GetRaw();
}

// --- Precedence
// -----------------------------------------------------------------------------------

struct ValueCase {
    const char* formula;
    QAnyValue expected;
};

class ExpressionsPrecedence : public testing::TestWithParam<ValueCase> {};

TEST_P(ExpressionsPrecedence, GivesTheValueOfItsLevels) {
    EXPECT_TRUE(Gives(GetParam().formula, GetParam().expected));
}

// Each pair would come out differently if the two levels it crosses were swapped.
INSTANTIATE_TEST_SUITE_P(
    Levels, ExpressionsPrecedence,
    testing::Values(ValueCase{"1+2*3", QAnyValue(7)}, ValueCase{"(1+2)*3", QAnyValue(9)},
                    ValueCase{"-2^2", QAnyValue(4)}, ValueCase{"2^3^2", QAnyValue(64)},
                    ValueCase{"2*3^2", QAnyValue(18)}, ValueCase{"1+2 & 3+4", String("37")},
                    ValueCase{"10-4-3", QAnyValue(3)}, ValueCase{"100 / 10 / 5", QAnyValue(2.0)},
                    ValueCase{"7 \\ 2", QAnyValue(3)}, ValueCase{"7 mod 3 * 2", QAnyValue(2)},
                    ValueCase{"10 minus 2 plus 1", QAnyValue(9)},
                    ValueCase{"10 less 3", QAnyValue(7)}, ValueCase{"'a' & 'b' = 'ab'", Bool(true)},
                    ValueCase{"2 + 3 = 5", Bool(true)}, ValueCase{"not 1 = 2", Bool(true)},
                    ValueCase{"! 1 = 2", Bool(true)}, ValueCase{"1 or 0 and 0", Bool(true)},
                    ValueCase{"1 || 0 && 0", Bool(true)}, ValueCase{"1 xor 1 or 1", Bool(false)},
                    ValueCase{"0 = 1 ? 2 : 3", QAnyValue(3)}, ValueCase{"1 + !0", QAnyValue(2.0)},
                    ValueCase{"--2", QAnyValue(2)}, ValueCase{"+-2", QAnyValue(-2)},
                    ValueCase{"50% * 4", QAnyValue(2.0)}, ValueCase{"2^200%", QAnyValue(4)},
                    ValueCase{"2 & 3 & 4", String("234")}));

// --- Levels 1 to 5
// --------------------------------------------------------------------------------

TEST(ExpressionsConditional, ScalarConditionTakesOneBranch) {
    EXPECT_TRUE(Gives("1 ? 'yes' : 'no'", String("yes")));
    EXPECT_TRUE(Gives("0 ? 'yes' : 'no'", String("no")));
    EXPECT_TRUE(Gives("1 ? 0 ? 1 : 2 : 3", QAnyValue(2)));
}

TEST(ExpressionsConditional, BranchNotTakenIsNeitherLookedUpNorReported) {
    CountingContext context;
    context.Set("a", QAnyValue(5));
    context.Set("x", String("x"));
    EXPECT_TRUE(Gives("a > 3 ? x : y", String("x"), &context));
    EXPECT_EQ(context.LookupsOf("a"), 1);
    EXPECT_EQ(context.LookupsOf("y"), 0);

    CountingContext other;
    other.Set("a", QAnyValue(1));
    other.Set("y", String("y"));
    EXPECT_TRUE(Gives("a > 3 ? x : y", String("y"), &other));
    EXPECT_EQ(other.LookupsOf("x"), 0);
}

TEST(ExpressionsConditional, ErrorConditionEvaluatesBothAndTakesTheTrueBranch) {
    CountingContext context;
    context.Set("x", QAnyValue(1));
    context.Set("y", QAnyValue(2));
    EXPECT_TRUE(Gives("#err! ? x : y", QAnyValue(1), &context));
    EXPECT_EQ(context.LookupsOf("x"), 1);
    EXPECT_EQ(context.LookupsOf("y"), 1);
}

TEST(ExpressionsConditional, ArrayConditions) {
    EXPECT_TRUE(Gives("[1, 0, 1] ? 'a' : 'b'", Array({String("a"), String("b"), String("a")})));
    EXPECT_TRUE(Gives("[1, 0] ? [1, 2] : [3, 4]", Array({QAnyValue(1), QAnyValue(4)})));
    CountingContext context;
    EXPECT_TRUE(Gives("[1, 1] ? 'a' : x", Array({String("a"), String("a")}), &context));
    EXPECT_TRUE(Gives("[0, 0] ? x : 'b'", Array({String("b"), String("b")}), &context));
    EXPECT_EQ(context.AllLookups(), 0);
}

TEST(ExpressionsConditional, MissingColon) {
    EXPECT_TRUE(FailsWith("1 ? 2", "Expecting a matching ':' for the '?' in expr ? cond : "
                                   "expr\nbut found end of formula"));
    EXPECT_TRUE(FailsWith("1 ? 2 3", "Expecting a matching ':' for the '?' in expr ? cond : "
                                     "expr\nbut found\n\t3"));
}

TEST(ExpressionsWhere, KeepsTheElementsWhoseConditionIsTrue) {
    EXPECT_TRUE(Gives("[1, 2, 3, 4] where [1, 0, 1, 0]", Array({QAnyValue(1), QAnyValue(3)})));
    EXPECT_TRUE(Gives("[1, 2, 3] where [1, 2, 3] > 1", Array({QAnyValue(2), QAnyValue(3)})));
    EXPECT_TRUE(Gives("[1, 2] where 0", Array({})));
    EXPECT_TRUE(Gives("5 where 1", Array({QAnyValue(5)})));
}

TEST(ExpressionsLogic, OrShortCircuitsOnTrue) {
    CountingContext context;
    EXPECT_TRUE(Gives("1 or x", Bool(true), &context));
    EXPECT_TRUE(Gives("1 || x || y", Bool(true), &context));
    EXPECT_EQ(context.AllLookups(), 0);
}

TEST(ExpressionsLogic, AndShortCircuitsOnFalse) {
    CountingContext context;
    EXPECT_TRUE(Gives("0 and x", Bool(false), &context));
    EXPECT_TRUE(Gives("0 && x && y", Bool(false), &context));
    EXPECT_EQ(context.AllLookups(), 0);
}

TEST(ExpressionsLogic, ScalarResultSimplyBecomesTheRightValue) {
    EXPECT_TRUE(Gives("0 or 5", Bool(true)));
    EXPECT_TRUE(Gives("0 or 0", Bool(false)));
    EXPECT_TRUE(Gives("1 and 0", Bool(false)));
    EXPECT_TRUE(Gives("1 and 7", Bool(true)));
    // An error on the left is replaced by the right operand.
    EXPECT_TRUE(Gives("#err! or 0", Bool(false)));
    EXPECT_TRUE(Gives("#err! and 1", Bool(true)));
}

TEST(ExpressionsLogic, ArraysCombineElementByElement) {
    EXPECT_TRUE(Gives("[1, 0] or [0, 0]", Array({Bool(true), Bool(false)})));
    EXPECT_TRUE(Gives("[1, 1] and [0, 1]", Array({Bool(false), Bool(true)})));
}

TEST(ExpressionsLogic, XorEqvImpOnBooleans) {
    EXPECT_TRUE(Gives("1 xor 0", Bool(true)));
    EXPECT_TRUE(Gives("2 xor 3", Bool(false)));
    EXPECT_TRUE(Gives("1 eqv 0", Bool(false)));
    EXPECT_TRUE(Gives("0 eqv 0", Bool(true)));
    EXPECT_TRUE(Gives("1 imp 0", Bool(false)));
    EXPECT_TRUE(Gives("0 imp 0", Bool(true)));
    EXPECT_TRUE(Gives("1 xor 0 xor 1", Bool(false)));
}

TEST(ExpressionsLogic, Not) {
    EXPECT_TRUE(Gives("not 0", Bool(true)));
    EXPECT_TRUE(Gives("!1", Bool(false)));
    EXPECT_TRUE(Gives("not not 5", Bool(true)));
}

// --- Level 6
// --------------------------------------------------------------------------------------

class ExpressionsComparison : public testing::TestWithParam<ValueCase> {};

TEST_P(ExpressionsComparison, Compares) {
    EXPECT_TRUE(Gives(GetParam().formula, GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    Operators, ExpressionsComparison,
    testing::Values(
        ValueCase{"3 >= 3", Bool(true)}, ValueCase{"2 >= 3", Bool(false)},
        ValueCase{"3 <= 3", Bool(true)}, ValueCase{"4 <= 3", Bool(false)},
        ValueCase{"3 <> 3", Bool(false)}, ValueCase{"3 <> 4", Bool(true)},
        ValueCase{"3 != 4", Bool(true)}, ValueCase{"3 == 3", Bool(true)},
        ValueCase{"3 = 4", Bool(false)}, ValueCase{"4 > 3", Bool(true)},
        ValueCase{"3 > 3", Bool(false)}, ValueCase{"3 < 4", Bool(true)},
        ValueCase{"'abc' = 'ABC'", Bool(true)}, ValueCase{"1 + 1", QAnyValue(2)},
        ValueCase{"3 is 3", Bool(true)}, ValueCase{"3 is not 3", Bool(false)},
        ValueCase{"3 is equal to 3", Bool(true)}, ValueCase{"3 is not equal to 3", Bool(false)},
        ValueCase{"3 is at least 3", Bool(true)}, ValueCase{"2 is at least 3", Bool(false)},
        ValueCase{"3 is not at least 3", Bool(false)}, ValueCase{"2 is not at least 3", Bool(true)},
        ValueCase{"3 is at most 3", Bool(true)}, ValueCase{"4 is at most 3", Bool(false)},
        ValueCase{"3 is not at most 3", Bool(false)}, ValueCase{"4 is not at most 3", Bool(true)},
        ValueCase{"4 is greater than 3", Bool(true)}, ValueCase{"3 is more than 3", Bool(false)},
        ValueCase{"3 is not greater than 3", Bool(true)}, ValueCase{"2 is less than 3", Bool(true)},
        ValueCase{"3 is fewer than 3", Bool(false)}, ValueCase{"3 is not less than 3", Bool(true)},
        ValueCase{"3 is between 1 and 3", Bool(true)},
        ValueCase{"3 is between 1 and 3 inclusive", Bool(true)},
        ValueCase{"3 is between 1 and 3 exclusive", Bool(false)},
        ValueCase{"2 is between 1 and 3 exclusive", Bool(true)},
        ValueCase{"1 is between 1 and 3 exclusive", Bool(false)},
        ValueCase{"0 is between 1 and 3", Bool(false)},
        ValueCase{"3 is not between 1 and 3 exclusive", Bool(true)},
        ValueCase{"3 is not between 1 and 3", Bool(false)},
        ValueCase{"2 is between 1 + 0 and 1 + 1", Bool(true)}));

TEST(ExpressionsComparisonWords, ComparisonsDoNotChain) {
    EXPECT_FALSE(Evaluated("1 < 2 < 3").ok);
    EXPECT_FALSE(Evaluated("1 is 1 is 1").ok);
}

TEST(ExpressionsComparisonWords, BetweenWithAVariable) {
    CountingContext context;
    context.Set("x", QAnyValue(3));
    EXPECT_TRUE(Gives("x is between 1 and 3 exclusive", Bool(false), &context));
    EXPECT_TRUE(Gives("x is between 1 and 3", Bool(true), &context));
}

TEST(ExpressionsComparisonWords, LimitsThatCannotBeComparedGiveAnErrorValue) {
    const Outcome outcome = Evaluated("2 sqm is between 1 mm and 3 mm");
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(MessageOf(outcome.value), "Cannot compare with limits in BETWEEN");
}

TEST(ExpressionsComparisonWords, MissingSecondWords) {
    EXPECT_TRUE(FailsWith("3 is equal 3", "Expecting 'to' after 'equal'\nbut found\n\t3"));
    EXPECT_TRUE(FailsWith("3 is at 3", "Expecting 'least' or 'most' after 'at'\nbut found\n\t3"));
    EXPECT_TRUE(
        FailsWith("3 is greater 2", "Expecting 'than' after 'greater' or 'more'\nbut found\n\t2"));
    EXPECT_TRUE(FailsWith("3 is more", "Expecting 'than' after 'greater' or 'more'\nbut found end "
                                       "of formula"));
    EXPECT_TRUE(
        FailsWith("3 is fewer 2", "Expecting 'than' after 'less' or 'fewer'\nbut found\n\t2"));
    EXPECT_TRUE(
        FailsWith("3 is between 1 or 5", "Expecting 'and' after 'is between'\nbut found\n\tor 5"));
}

TEST(ExpressionsComparisonWords, ItIsTheLeftValueOnTheRightSideOnly) {
    EXPECT_TRUE(Gives("7 > it - 1", Bool(true)));
    EXPECT_TRUE(Gives("7 is it", Bool(true)));
    EXPECT_TRUE(Gives("7 is between it - 1 and it + 1 exclusive", Bool(true)));
    CountingContext context;
    context.Set("it", QAnyValue(100));
    EXPECT_TRUE(Gives("(7 = it) & it", String("Yes100"), &context));
    EXPECT_EQ(context.LookupsOf("it"), 1);
}

TEST(ExpressionsComparisonWords, ItIsPutBackAfterTheComparison) {
    QAnyValue result;
    QEvaluator evaluator(result, FormulaText("(2 = it + 1) & it"), nullptr, false, false, false);
    evaluator.SetVar(PropId("it"), QAnyValue(5));
    ASSERT_TRUE(evaluator.Evaluate()) << evaluator.Message().ToUtf8();
    EXPECT_TRUE(result == String("No5")) << Text(result);
}

// --- Levels 7 to 11
// -------------------------------------------------------------------------------

TEST(ExpressionsArithmetic, DivisionByZeroIsAnErrorValueButAFractionOfZeroIsASyntaxFailure) {
    const Outcome spaced = Evaluated("1 / 0");
    ASSERT_TRUE(spaced.ok) << spaced.message;
    EXPECT_EQ(MessageOf(spaced.value), "Division by zero");

    const Outcome fraction = Evaluated("1/0");
    EXPECT_FALSE(fraction.ok);
    EXPECT_EQ(fraction.message.rfind("Expecting a number, string, name or (expression)", 0), 0u)
        << fraction.message;
}

TEST(ExpressionsArithmetic, ConcatenationMakesText) {
    EXPECT_TRUE(Gives("'it''s' & '!'", String("it's!")));
    EXPECT_TRUE(Gives("1 & 2", String("12")));
}

TEST(ExpressionsUnary, DollarSignMakesMoney) {
    CountingContext context;
    context.Set("price", QAnyValue(2.555));
    EXPECT_TRUE(Gives("$price", QAnyValue(QMoney::FromRaw(256)), &context));
    EXPECT_TRUE(Gives("$5", QAnyValue(QMoney::FromRaw(500))));
    EXPECT_TRUE(Gives("$ 7", QAnyValue(QMoney::FromRaw(700))));
    EXPECT_TRUE(Gives("$ $5", QAnyValue(QMoney::FromRaw(500))));
    EXPECT_TRUE(Gives("$ #empty", QAnyValue()));
    EXPECT_TRUE(Gives("-$5", QAnyValue(QMoney::FromRaw(-500))));
}

TEST(ExpressionsUnary, MinusBindsTighterThanAUnitLess) {
    const Outcome outcome = Evaluated("-3 mm");
    ASSERT_TRUE(outcome.ok) << outcome.message;
    ASSERT_TRUE(outcome.value.IsLength()) << Text(outcome.value);
    EXPECT_DOUBLE_EQ(RawLength(outcome.value), -3);
}

// --- Level 12
// -------------------------------------------------------------------------------------

struct UnitCase {
    const char* formula;
    QAnyValue::TYPE type;
    double raw;
};

double RawOf(const QAnyValue& value) {
    QAnyValue copy(value);
    switch (value.Type()) {
    case QAnyValue::TYPE_MONEY:
        return copy.MakeMoney().GetRaw();
    case QAnyValue::TYPE_LENGTH:
        return copy.MakeLength().GetRaw();
    case QAnyValue::TYPE_AREA:
        return copy.MakeArea().GetRaw();
    case QAnyValue::TYPE_VOLUME:
        return copy.MakeVolume().GetRaw();
    case QAnyValue::TYPE_TIME:
        return copy.MakeTime().GetRaw();
    case QAnyValue::TYPE_ANGLE:
        return copy.MakeAngle().GetRaw();
    default:
        return copy.MakeDouble();
    }
}

class ExpressionsUnits : public testing::TestWithParam<UnitCase> {};

TEST_P(ExpressionsUnits, MakeTheTypeWithTheFactorToRaw) {
    const Outcome outcome = Evaluated(GetParam().formula);
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(outcome.value.Type(), GetParam().type) << Text(outcome.value);
    EXPECT_DOUBLE_EQ(RawOf(outcome.value), GetParam().raw);
}

INSTANTIATE_TEST_SUITE_P(
    Words, ExpressionsUnits,
    testing::Values(
        UnitCase{"2.5 dollar", QAnyValue::TYPE_MONEY, 250},
        UnitCase{"2 dollars", QAnyValue::TYPE_MONEY, 200},
        UnitCase{"2.5 c", QAnyValue::TYPE_MONEY, 3}, UnitCase{"7 cent", QAnyValue::TYPE_MONEY, 7},
        UnitCase{"7.4 cents", QAnyValue::TYPE_MONEY, 7},
        UnitCase{"2 in", QAnyValue::TYPE_LENGTH, 50.800000000000004},
        UnitCase{"1 inch", QAnyValue::TYPE_LENGTH, 25.400000000000002},
        UnitCase{"1 inches", QAnyValue::TYPE_LENGTH, 25.400000000000002},
        UnitCase{"2 mm", QAnyValue::TYPE_LENGTH, 2},
        UnitCase{"2 millimetre", QAnyValue::TYPE_LENGTH, 2},
        UnitCase{"2 millimetres", QAnyValue::TYPE_LENGTH, 2},
        UnitCase{"2 cm", QAnyValue::TYPE_LENGTH, 20},
        UnitCase{"2 centimetre", QAnyValue::TYPE_LENGTH, 20},
        UnitCase{"2 centimetres", QAnyValue::TYPE_LENGTH, 20},
        UnitCase{"2 ft", QAnyValue::TYPE_LENGTH, 609.6},
        UnitCase{"2 foot", QAnyValue::TYPE_LENGTH, 609.6},
        UnitCase{"2 feet", QAnyValue::TYPE_LENGTH, 609.6},
        UnitCase{"2 m", QAnyValue::TYPE_LENGTH, 2000},
        UnitCase{"2 metre", QAnyValue::TYPE_LENGTH, 2000},
        UnitCase{"2 metres", QAnyValue::TYPE_LENGTH, 2000},
        UnitCase{"2 sqmm", QAnyValue::TYPE_AREA, 2e-6},
        UnitCase{"2 sqcm", QAnyValue::TYPE_AREA, 2e-4},
        UnitCase{"2 sqin", QAnyValue::TYPE_AREA, 0.00129032},
        UnitCase{"2 sqft", QAnyValue::TYPE_AREA, 0.18580608},
        UnitCase{"2 sqm", QAnyValue::TYPE_AREA, 2},
        UnitCase{"2 cbmm", QAnyValue::TYPE_VOLUME, 2e-9},
        UnitCase{"2 cbcm", QAnyValue::TYPE_VOLUME, 2.0000000000000004e-6},
        UnitCase{"2 cbin", QAnyValue::TYPE_VOLUME, 3.2774128e-5},
        UnitCase{"2 cbft", QAnyValue::TYPE_VOLUME, 0.05663369318400001},
        UnitCase{"2 cbm", QAnyValue::TYPE_VOLUME, 2}, UnitCase{"2 hr", QAnyValue::TYPE_TIME, 7200},
        UnitCase{"0.5 hour", QAnyValue::TYPE_TIME, 1800},
        UnitCase{"2 hours", QAnyValue::TYPE_TIME, 7200},
        UnitCase{"2 mn", QAnyValue::TYPE_TIME, 120},
        UnitCase{"2 minute", QAnyValue::TYPE_TIME, 120},
        UnitCase{"1.5 minutes", QAnyValue::TYPE_TIME, 90}, UnitCase{"2 s", QAnyValue::TYPE_TIME, 2},
        UnitCase{"2.5 sec", QAnyValue::TYPE_TIME, 3},
        UnitCase{"2.4 second", QAnyValue::TYPE_TIME, 2},
        UnitCase{"2 seconds", QAnyValue::TYPE_TIME, 2},
        UnitCase{"90 deg", QAnyValue::TYPE_ANGLE, 90},
        UnitCase{"90 degrees", QAnyValue::TYPE_ANGLE, 90},
        UnitCase{"1 rad", QAnyValue::TYPE_ANGLE, 57.295779513082323},
        UnitCase{"1 radians", QAnyValue::TYPE_ANGLE, 57.295779513082323},
        UnitCase{"2 ft + 3 in", QAnyValue::TYPE_LENGTH, 685.8},
        UnitCase{"2 * 3 mm", QAnyValue::TYPE_LENGTH, 6},
        UnitCase{"2 MM", QAnyValue::TYPE_LENGTH, 2}));

TEST(ExpressionsUnitWords, AValueOfTheUnitsTypeIsLeftAlone) {
    CountingContext context;
    context.Set("len", QAnyValue(QLength::FromRaw(5)));
    context.Set("area", QAnyValue(QArea::FromRaw(2)));
    context.Set("vol", QAnyValue(QVolume::FromRaw(3)));
    EXPECT_TRUE(Gives("len m", QAnyValue(QLength::FromRaw(5)), &context));
    EXPECT_TRUE(Gives("area sqft", QAnyValue(QArea::FromRaw(2)), &context));
    // The cubic words look for an area, not a volume: an area is left alone under them.
    EXPECT_TRUE(Gives("area cbm", QAnyValue(QArea::FromRaw(2)), &context));
    EXPECT_TRUE(Gives("area cbft", QAnyValue(QArea::FromRaw(2)), &context));
}

TEST(ExpressionsUnitWords, ErrorNotAvailableAndEmptyStayAsTheyAre) {
    EXPECT_TRUE(Gives("#empty mm", QAnyValue()));
    EXPECT_TRUE(Gives("#N/A mm", test::NA()));
    const Outcome error = Evaluated("#err! ft");
    ASSERT_TRUE(error.ok) << error.message;
    EXPECT_EQ(MessageOf(error.value), "#ERR!");
}

TEST(ExpressionsUnitWords, OnlyOneSuffixAndOnlyBehindAValue) {
    EXPECT_FALSE(Evaluated("2 ft in").ok);
    CountingContext context;
    context.Set("metres", QAnyValue(4));
    EXPECT_TRUE(Gives("metres + 1", QAnyValue(5), &context));
    EXPECT_TRUE(Gives("metres metres", QAnyValue(QLength::FromRaw(4000)), &context));
}

TEST(ExpressionsSubscript, ScalarAndArrayIndexes) {
    EXPECT_TRUE(Gives("[10, 20, 30](2)", QAnyValue(20)));
    EXPECT_TRUE(Gives("[10, 20, 30]([3, 1])", Array({QAnyValue(30), QAnyValue(10)})));
    EXPECT_TRUE(Gives("[10, 20, 30](1 + 1)", QAnyValue(20)));
    EXPECT_TRUE(Gives("5(1)", QAnyValue(5)));
    EXPECT_TRUE(Gives("#empty(3)", QAnyValue()));
}

TEST(ExpressionsSubscript, MissingClosingParenthesis) {
    EXPECT_TRUE(FailsWith("[1, 2](1",
                          "Expecting a matching ')' for the '(' in array subscript\nbut found "
                          "end of formula"));
}

// --- Level 13
// -------------------------------------------------------------------------------------

TEST(ExpressionsSimple, WordValuesAfterHash) {
    EXPECT_TRUE(Gives("#N/A", test::NA()));
    EXPECT_TRUE(Gives("#n/a", test::NA()));
    EXPECT_TRUE(Gives("#empty", QAnyValue()));
    const Outcome error = Evaluated("#err!");
    ASSERT_TRUE(error.ok) << error.message;
    EXPECT_EQ(MessageOf(error.value), "#ERR!");
}

TEST(ExpressionsSimple, StringsAndNumbers) {
    EXPECT_TRUE(Gives("'it''s'", String("it's")));
    EXPECT_TRUE(Gives(".5", QAnyValue(0.5)));
    EXPECT_TRUE(Gives("\"x\"", String("x")));
}

TEST(ExpressionsSimple, NothingUsableIsAnExpectingFailure) {
    EXPECT_TRUE(FailsWith("+", "Expecting a number, string, name or (expression)\nbut found end "
                               "of formula"));
    EXPECT_TRUE(FailsWith("2 * )", "Expecting a number, string, name or (expression)\nbut "
                                   "found\n\t)"));
    EXPECT_TRUE(FailsWith(".", "Expecting a number, string, name or (expression)\nbut found\n\t."));
}

TEST(ExpressionsSimple, Parentheses) {
    EXPECT_TRUE(Gives("((2))", QAnyValue(2)));
    EXPECT_TRUE(FailsWith("(1 + 2", "Expecting a matching ')' for the '('\nbut found end of "
                                    "formula"));
}

TEST(ExpressionsArrays, Literals) {
    EXPECT_TRUE(Gives("[]", Array({})));
    EXPECT_TRUE(Gives("[1, 'a']", Array({QAnyValue(1), String("a")})));
    EXPECT_TRUE(Gives("[1, , 3]", Array({QAnyValue(1), QAnyValue(), QAnyValue(3)})));
    EXPECT_TRUE(Gives("[, 2]", Array({QAnyValue(), QAnyValue(2)})));
    EXPECT_TRUE(Gives("[1, ]", Array({QAnyValue(1), QAnyValue()})));
    EXPECT_TRUE(Gives("[[1, 2], 3]", Array({Array({QAnyValue(1), QAnyValue(2)}), QAnyValue(3)})));
}

TEST(ExpressionsArrays, Ranges) {
    EXPECT_TRUE(Gives("[1 to 4]", Array({QAnyValue(1), QAnyValue(2), QAnyValue(3), QAnyValue(4)})));
    EXPECT_TRUE(Gives("[5 downto 3]", Array({QAnyValue(5), QAnyValue(4), QAnyValue(3)})));
    EXPECT_TRUE(Gives("[1 to 10 step 4]", Array({QAnyValue(1), QAnyValue(5), QAnyValue(9)})));
    EXPECT_TRUE(Gives("[0 to 1 step 0.5]", Array({QAnyValue(0), QAnyValue(0.5), QAnyValue(1.0)})));
    EXPECT_TRUE(Gives("[3 to 1]", Array({})));
    EXPECT_TRUE(
        Gives("[0, 1 to 2, 9]", Array({QAnyValue(0), QAnyValue(1), QAnyValue(2), QAnyValue(9)})));
    EXPECT_TRUE(Gives("[4 to 1 step -2]", Array({QAnyValue(4), QAnyValue(2)})));
    EXPECT_TRUE(Gives("[1 to 3 step 0]", Array({QAnyValue(1)})));
}

TEST(ExpressionsArrays, MissingClosingBracket) {
    EXPECT_TRUE(FailsWith("[1, 2", "Expecting a matching ']' for the '[' in array value\nbut "
                                   "found end of formula"));
}

// --- Arguments
// ------------------------------------------------------------------------------------

TEST(ExpressionsArguments, PercentNumberReadsTheArgument) {
    QAnyValue result;
    QEvaluator evaluator(result, FormulaText("%1 * 2 + %2"), nullptr, false, false, false);
    evaluator.SetArg(1, QAnyValue(10));
    evaluator.SetArg(2, QAnyValue(1));
    ASSERT_TRUE(evaluator.Evaluate()) << evaluator.Message().ToUtf8();
    EXPECT_TRUE(result == QAnyValue(21)) << Text(result);
}

TEST(ExpressionsArguments, MissingArgumentSaysWhichAndHowMany) {
    QAnyValue result;
    QEvaluator evaluator(result, FormulaText("%3"), nullptr, false, true, false);
    evaluator.SetArg(1, QAnyValue(10));
    EXPECT_FALSE(evaluator.Evaluate());
    EXPECT_EQ(evaluator.Message().ToUtf8(),
              "Unknown argument\n\t%3\n\tOr maybe caused by User Defined Function trying to "
              "evaluate parameter %3 when 1");
}

TEST(ExpressionsArguments, PercentNeedsANumber) {
    EXPECT_TRUE(FailsWith("%x", "Expecting valid digit after '%'\nbut found\n\tx"));
    EXPECT_TRUE(FailsWith("%", "Expecting valid digit after '%'\nbut found end of formula"));
}

// --- Names
// ----------------------------------------------------------------------------------------

TEST(ExpressionsNames, LocalVariableComesBeforeTheContext) {
    CountingContext context;
    context.Set("x", QAnyValue(100));
    QAnyValue result;
    QEvaluator evaluator(result, FormulaText("x + 1"), &context, false, false, false);
    evaluator.SetVar(PropId("x"), QAnyValue(3));
    ASSERT_TRUE(evaluator.Evaluate()) << evaluator.Message().ToUtf8();
    EXPECT_TRUE(result == QAnyValue(4)) << Text(result);
    EXPECT_EQ(context.LookupsOf("x"), 0);
}

TEST(ExpressionsNames, ALocalVariableHidesAConstantWhichHidesAProperty) {
    CountingContext context;
    context.Set("pi", QAnyValue(3));
    const Outcome constant = Evaluated("pi + 0", &context);
    ASSERT_TRUE(constant.ok) << constant.message;
    EXPECT_DOUBLE_EQ(QAnyValue(constant.value).MakeDouble(), 3.141592653589793);
    EXPECT_EQ(context.LookupsOf("pi"), 0);

    QAnyValue result;
    QEvaluator evaluator(result, FormulaText("pi * 1"), &context, false, false, false);
    evaluator.SetVar(PropId("PI"), QAnyValue(1));
    ASSERT_TRUE(evaluator.Evaluate()) << evaluator.Message().ToUtf8();
    EXPECT_TRUE(result == QAnyValue(1)) << Text(result);
}

TEST(ExpressionsNames, TheIsSkippedAndOfMakesADottedName) {
    CountingContext context;
    context.Set("x", QAnyValue(5));
    EXPECT_TRUE(Gives("the x", QAnyValue(5), &context));
    EXPECT_TRUE(Gives("the the x + 1", QAnyValue(6), &context));

    // The second read of x above came from the formula cache.
    Evaluated("the width of the frame", &context);
    Evaluated("a.b.c", &context);
    Evaluated("depth of door of house", &context);
    Evaluated("x.y of z", &context);
    EXPECT_EQ(context.Asked(),
              (std::vector<std::string>{"x", "frame.width", "a.b.c", "house.door.depth", "z.x.y"}));
}

TEST(ExpressionsNames, BracketsAreEvaluatedIntoTheName) {
    CountingContext context;
    context.Set("a[2]", QAnyValue(7));
    context.Set("b[x]", QAnyValue(8));
    EXPECT_TRUE(Gives("a[1 + 1]", QAnyValue(7), &context));
    EXPECT_TRUE(Gives("b['x']", QAnyValue(8), &context));
}

TEST(ExpressionsNames, FailuresInNames) {
    CountingContext context;
    EXPECT_TRUE(FailsWith("a.", "Expecting name after '.'\nbut found end of formula", &context));
    EXPECT_TRUE(FailsWith("a. + 1", "Expecting name after '.'\nbut found\n\t+ 1", &context));
    EXPECT_TRUE(
        FailsWith("width of", "Expecting context after 'of'\nbut found end of formula", &context));
    EXPECT_TRUE(FailsWith("width of 3", "Expecting context after 'of'\nbut found\n\t3", &context));
    EXPECT_EQ(context.AllLookups(), 0);
}

TEST(ExpressionsNames, UnknownNameIsReportedOnlyWithTheReportFlag) {
    CountingContext context;
    EXPECT_TRUE(FailsWith("nosuch + 1", "Unknown name\n\tnosuch", &context, true));
    const Outcome quiet = Evaluated("nosuch + 1", &context);
    EXPECT_FALSE(quiet.ok);
    EXPECT_EQ(quiet.message, "");
    EXPECT_TRUE(FailsWith("nosuch", "Unknown name\n\tnosuch", nullptr, true));
}

TEST(ExpressionsNames, NameWithAFailedValue) {
    CountingContext context;
    context.SetFailing("bad");
    EXPECT_TRUE(FailsWith("bad + 1", "Error in value of bad", &context));
}

TEST(ExpressionsNames, AnErrorValueIsAValue) {
    CountingContext context;
    QAnyValue error;
    error.MakeError(CString(u"broken"));
    context.Set("e", error);
    const Outcome outcome = Evaluated("e + 1", &context);
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(MessageOf(outcome.value), "broken");
}

TEST(ExpressionsNames, APlainIdentifierIsAnsweredFromTheFormulaCache) {
    CountingContext context;
    context.RememberThisFormulaValueForNextTime(QAnyValue(42), FormulaText("x"), QCS_Stable);
    EXPECT_TRUE(Gives("x + 0", QAnyValue(42), &context));
    EXPECT_EQ(context.LookupsOf("x"), 0);
}

TEST(ExpressionsNames, AValueLookedUpIsRememberedForTheNextRead) {
    CountingContext context;
    context.Set("x", QAnyValue(2));
    EXPECT_TRUE(Gives("x + x", QAnyValue(4), &context));
    EXPECT_EQ(context.LookupsOf("x"), 1);
    QAnyValue cached;
    QCacheState state = QCS_Stable;
    EXPECT_TRUE(context.HeresAFormulaValueIPreparedEarlier(cached, state, FormulaText("x")));
    EXPECT_TRUE(cached == QAnyValue(2));
}

TEST(ExpressionsNames, ActionFormulasNeitherAskNorFillTheCache) {
    CountingContext context;
    context.Set("x", QAnyValue(2));
    const Outcome outcome = Evaluated("x + x", &context, false, true);
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(context.LookupsOf("x"), 2);
    QAnyValue cached;
    QCacheState state = QCS_Stable;
    EXPECT_FALSE(context.HeresAFormulaValueIPreparedEarlier(cached, state, FormulaText("x")));
}

TEST(ExpressionsNames, AnUncacheableValueIsNotRememberedAndRaisesTheState) {
    CountingContext context;
    context.Set("now", QAnyValue(1), QCS_NotCacheable);
    context.Set("seq", QAnyValue(1), QCS_BySeq);
    const Outcome outcome = Evaluated("now + now", &context);
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(context.LookupsOf("now"), 2);
    EXPECT_EQ(outcome.state, QCS_NotCacheable);
    EXPECT_EQ(Evaluated("seq", &context).state, QCS_BySeq);
    EXPECT_EQ(Evaluated("1 + 1", &context).state, QCS_Stable);
}

TEST(ExpressionsNames, WithoutAContextANameIsUnknown) {
    const Outcome outcome = Evaluated("x", nullptr, true);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Unknown name\n\tx");
}

// --- Deferred string formulas
// ---------------------------------------------------------------------

TEST(ExpressionsDeferred, AStringStartingWithEqualsOrColonIsRunAsAFormula) {
    CountingContext context;
    context.Set("y", QAnyValue(2));
    context.Set("x", String("=y + 1"));
    context.Set("z", String(":y * 10"));
    context.Set("plain", String("y + 1"));
    EXPECT_TRUE(Gives("x * 2", QAnyValue(6), &context));
    EXPECT_TRUE(Gives("z", QAnyValue(20), &context));
    EXPECT_TRUE(Gives("plain", String("y + 1"), &context));
    EXPECT_EQ(QEvaluator::DeferredDepth(), 0);
}

TEST(ExpressionsDeferred, AFailureNamesTheIdentifierAndTheFormula) {
    CountingContext context;
    context.Set("x", String("=1 +"));
    EXPECT_TRUE(FailsWith("x", "Error in value of x\n\t1 +", &context));
    EXPECT_EQ(QEvaluator::DeferredDepth(), 0);
}

TEST(ExpressionsDeferred, WithReportsTheFailureIsToldWithTheIdentifier) {
    CountingContext context;
    context.Set("x", String("=1 +"));
    const Outcome outcome = Evaluated("x", &context, true);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message,
              "Error evaluating deferred string formula [x], Error in value of x\n\t1 +");
}

// Remembers the message of every evaluator it made, so that the innermost failure of a chain can
// be seen.
class RecordingFactory : public QEvaluatorFactory {
public:
    class Evaluator : public QEvaluator {
    public:
        Evaluator(RecordingFactory& factory, QAnyValue& result, FormulaText formula,
                  QFormulaContext* context, bool passThrough, bool reportErrors, bool isAction)
            : QEvaluator(result, formula, context, passThrough, reportErrors, isAction),
              m_factory(factory) {}
        ~Evaluator() override { m_factory.messages.push_back(Message().ToUtf8()); }

    private:
        RecordingFactory& m_factory;
    };

    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        return new Evaluator(*this, result, formula, context, passThrough, reportErrors, isAction);
    }
    CString FolderForConstant(QConstantFolder) const override { return CString(); }

    std::vector<std::string> messages;
};

TEST(ExpressionsDeferred, AChainDeeperThanTheLimitFailsAndTheNextEvaluationSucceeds) {
    CountingContext context;
    context.Set("x", String("=x"), QCS_NotCacheable);
    RecordingFactory factory;
    QEvaluatorFactory* previous = SetEvaluatorFactory(&factory);
    const Outcome outcome = Evaluated("x", &context);
    SetEvaluatorFactory(previous);

    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Error in value of x\n\tx");
    EXPECT_EQ(QEvaluator::DeferredDepth(), 0);
    // The evaluation asked for is the first of 101; the factory made the 100 nested ones.
    ASSERT_EQ(factory.messages.size(), 100u);
    EXPECT_EQ(factory.messages.front(),
              "Stack depth exceeded, formula looping trying to evaluate [x] deferred string "
              "formula:\nx");
    EXPECT_EQ(factory.messages.back(), "Error in value of x\n\tx");

    context.Set("y", String("=1 + 1"));
    EXPECT_TRUE(Gives("y", QAnyValue(2), &context));
}

TEST(ExpressionsDeferred, AChainAtTheLimitSucceeds) {
    CountingContext context;
    for (int i = 0; i < QEvaluator::c_maxDeferredDepth; ++i) {
        const std::string name = "v" + std::to_string(i);
        const std::string next = "=v" + std::to_string(i + 1);
        context.Set(name.c_str(), String(next.c_str()));
    }
    context.Set(("v" + std::to_string(QEvaluator::c_maxDeferredDepth)).c_str(), QAnyValue(9));
    EXPECT_TRUE(Gives("v0", QAnyValue(9), &context));
    EXPECT_EQ(QEvaluator::DeferredDepth(), 0);
}

// --- The "#" and "@" operators
// --------------------------------------------------------------------

class ExpressionsHashAndAt : public testing::Test {
protected:
    ExpressionsHashAndAt() {
        room.Set("width", QAnyValue(4000));
        shelf.Set("width", QAnyValue(600));
        panel.Set("width", QAnyValue(20));
    }

    CountingContext room{"Room1"};
    CountingContext shelf{"Shelf3", &room};
    CountingContext panel{"Panel", &shelf, false};
};

TEST_F(ExpressionsHashAndAt, HashAloneIsTheNumberEndingTheNameAbove) {
    EXPECT_TRUE(Gives("#", QAnyValue(1), &shelf));
    EXPECT_TRUE(Gives("# * 10", QAnyValue(10), &shelf));
    EXPECT_TRUE(Gives("@", QAnyValue(3), &shelf));
    EXPECT_TRUE(Gives("(@)", QAnyValue(3), &shelf));
}

TEST_F(ExpressionsHashAndAt, HashEvaluatesTheNextSimpleExpressionAbove) {
    EXPECT_TRUE(Gives("#width", QAnyValue(4000), &shelf));
    EXPECT_TRUE(Gives("@width + width", QAnyValue(1200), &shelf));
}

TEST_F(ExpressionsHashAndAt, ContextsWithoutANameAreSkipped) {
    EXPECT_TRUE(Gives("@", QAnyValue(3), &panel));
    EXPECT_TRUE(Gives("@width", QAnyValue(600), &panel));
    EXPECT_TRUE(Gives("#", QAnyValue(3), &panel));
    EXPECT_TRUE(Gives("##", QAnyValue(1), &panel));
    EXPECT_TRUE(Gives("## width", QAnyValue(4000), &panel));
}

TEST_F(ExpressionsHashAndAt, HashByName) {
    EXPECT_TRUE(Gives("#(Room1)", QAnyValue(1), &shelf));
    EXPECT_TRUE(Gives("#(room1) width", QAnyValue(4000), &shelf));
}

TEST_F(ExpressionsHashAndAt, RaisesTheCacheState) {
    EXPECT_EQ(Evaluated("#", &shelf).state, QCS_BySeq);
    EXPECT_EQ(Evaluated("#width", &shelf).state, QCS_BySeq);
}

TEST_F(ExpressionsHashAndAt, NoNumberNoContextOrNoSuchName) {
    CountingContext plain{"Plain"};
    EXPECT_TRUE(FailsWith("@", "Error in finding value for @", &plain));
    EXPECT_TRUE(FailsWith("#", "Error in finding value for #"));
    EXPECT_TRUE(FailsWith("@ + 1", "Error in finding value for @"));
    EXPECT_TRUE(FailsWith("#(Nowhere)", "Error in finding value for #", &shelf));
}

TEST_F(ExpressionsHashAndAt, SyntaxOfTheNamedForm) {
    EXPECT_TRUE(FailsWith("#(", "Expecting name in #()\nbut found end of formula", &shelf));
    EXPECT_TRUE(FailsWith("#(3)", "Expecting name in #()\nbut found\n\t3)", &shelf));
    EXPECT_TRUE(FailsWith("#(Room1",
                          "Expecting a matching ')' for the '(' in #()\nbut found end "
                          "of formula",
                          &shelf));
}

// --- No evaluation
// --------------------------------------------------------------------------------

TEST(ExpressionsNoEval, ParsesWithoutLookingAnythingUp) {
    CountingContext context;
    const std::vector<const char*> formulas{
        "a > 3 ? x : y",   "nosuch + 1 mm",      "x is between a and b exclusive",
        "[a to b step c]", "#width + @",         "%7",
        "$x & y where z",  "the w of the frame", "a[b] or c and not d"};
    for (const char* formula : formulas) {
        const Outcome outcome = EvaluatedNoEval(formula, &context);
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
    }
    EXPECT_EQ(context.AllLookups(), 0);
    EXPECT_TRUE(context.Asked().empty());
}

TEST(ExpressionsNoEval, SyntaxFailuresStillHappen) {
    const Outcome outcome = EvaluatedNoEval("x is at 3");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Expecting 'least' or 'most' after 'at'\nbut found\n\t3");
    EXPECT_FALSE(EvaluatedNoEval("1 ? 2").ok);
    EXPECT_FALSE(EvaluatedNoEval("[1, 2").ok);
    EXPECT_FALSE(EvaluatedNoEval("(1").ok);
}

TEST(ExpressionsNoEval, DeferredFormulasAreNotRun) {
    CountingContext context;
    context.Set("x", String("=nosuch"));
    EXPECT_TRUE(EvaluatedNoEval("x", &context).ok);
    EXPECT_EQ(context.LookupsOf("nosuch"), 0);
}

// --- Reports
// --------------------------------------------------------------------------------------

TEST(ExpressionsReports, AFailureIsShownOnlyWithTheReportFlagOn) {
    QErrorLog::DiscardThePendingMessages();
    EXPECT_FALSE(Evaluated("1 +").ok);
    EXPECT_FALSE(Evaluated("nosuch").ok);
    EXPECT_FALSE(Evaluated("3 is at 3").ok);
    EXPECT_FALSE(QErrorLog::TheLogHasPendingMessages());

    EXPECT_FALSE(Evaluated("3 is at 3", nullptr, true).ok);
    EXPECT_TRUE(QErrorLog::TheLogHasPendingMessages());
    QErrorLog::DiscardThePendingMessages();
}

} // namespace
} // namespace keel
