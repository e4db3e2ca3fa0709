#include "tests/support/anyvalues.h"
#include "tests/support/namescontext.h"

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

using CountingContext = test::NamesContext;

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
// Each pair would come out differently if the two levels it crosses were swapped.

// --- Levels 1 to 5

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
    CountingContext context;
    EXPECT_TRUE(Gives("[1, 1] ? 'a' : x", Array({String("a"), String("a")}), &context));
    EXPECT_TRUE(Gives("[0, 0] ? x : 'b'", Array({String("b"), String("b")}), &context));
    EXPECT_EQ(context.AllLookups(), 0);
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

// --- Level 6

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

TEST(ExpressionsComparisonWords, ItIsTheLeftValueOnTheRightSideOnly) {
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

TEST(ExpressionsArithmetic, DivisionByZeroIsAnErrorValueButAFractionOfZeroIsASyntaxFailure) {
    const Outcome spaced = Evaluated("1 / 0");
    ASSERT_TRUE(spaced.ok) << spaced.message;
    EXPECT_EQ(MessageOf(spaced.value), "Division by zero");

    const Outcome fraction = Evaluated("1/0");
    EXPECT_FALSE(fraction.ok);
    EXPECT_EQ(fraction.message.rfind("Expecting a number, string, name or (expression)", 0), 0u)
        << fraction.message;
}

TEST(ExpressionsUnary, DollarSignMakesMoney) {
    CountingContext context;
    context.Set("price", QAnyValue(2.555));
    EXPECT_TRUE(Gives("$price", QAnyValue(QMoney::FromRaw(256)), &context));
}

TEST(ExpressionsUnary, MinusBindsTighterThanAUnitLess) {
    const Outcome outcome = Evaluated("-3 mm");
    ASSERT_TRUE(outcome.ok) << outcome.message;
    ASSERT_TRUE(outcome.value.IsLength()) << Text(outcome.value);
    EXPECT_DOUBLE_EQ(RawLength(outcome.value), -3);
}

// --- Level 12

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

// --- Level 13

TEST(ExpressionsSimple, WordValuesAfterHash) {
    const Outcome error = Evaluated("#err!");
    ASSERT_TRUE(error.ok) << error.message;
    EXPECT_EQ(MessageOf(error.value), "#ERR!");
}

// --- Arguments

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

// --- Names

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

class ExpressionsHashAndAt : public testing::Test {
protected:
    ExpressionsHashAndAt() {
        room.Set("width", QAnyValue(4000));
        shelf.Set("width", QAnyValue(600));
        panel.Set("width", QAnyValue(20));
        panel.MakeNameless();
    }

    CountingContext room{"Room1", nullptr, true};
    CountingContext shelf{"Shelf3", &room, true};
    CountingContext panel{"Panel", &shelf};
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
