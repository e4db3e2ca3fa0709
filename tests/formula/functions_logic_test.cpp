#include "tests/support/anyvalues.h"
#include "tests/support/functioncalls.h"
#include "tests/support/namescontext.h"

#include "keel/document/errorlog.h"
#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"
#include "keel/platform/random.h"
#include "keel/platform/uiservices.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace keel {
namespace {

using test::Array;
using test::MessageOf;

std::string U8(const CString& text) {
    return text.ToUtf8();
}

using LogicContext = test::NamesContext;

// Serves the reserved name "report" with one value, and "len" with two, through its extras.
class ExtrasEvaluator : public QEvaluator {
public:
    using QEvaluator::QEvaluator;

    bool EvaluateUnaryFunctionExtras(QAnyValue& result, FullId name, const QAnyValue& a1) override {
        if (name != FullId("report"))
            return false;
        result = u"reported " + QAnyValue(a1).MakeCString();
        return true;
    }
    bool EvaluateBinaryFunctionExtras(QAnyValue& result, FullId name, const QAnyValue& a1,
                                      const QAnyValue& a2) override {
        if (name != FullId("len"))
            return false;
        result = QAnyValue(a1).MakeCString().GetLength() + QAnyValue(a2).MakeInt();
        return true;
    }
    // Never asked for a name of the known-function map.
    bool IsDerivedClassDefined(FullId) override {
        ++c_derivedAsked;
        return false;
    }

    static inline int c_derivedAsked = 0;
};

class ExtrasFactory : public QEvaluatorFactory {
public:
    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        return new ExtrasEvaluator(result, formula, context, passThrough, reportErrors, isAction);
    }
    CString FolderForConstant(QConstantFolder) const override { return CString(); }
};

// A host with a display, so that boxes are put to it rather than logged.
class RecordingUI : public IUIServices {
public:
    bool HasDisplay() const override { return true; }
    int MessageBox(const CString& text, const CString&, unsigned) override {
        boxes.push_back(U8(text));
        return 1;
    }
    void ShowPendingMessages(const std::vector<CPendingMessage>&) override {}
    bool Customise(CCheckList&, CCheckList&, const std::function<void()>&) override {
        return false;
    }
    bool OpenFile(const CString&) override { return false; }

    std::vector<std::string> boxes;
};

using Outcome = test::CallOutcome;

class FunctionsLogicTest : public test::FunctionCallTest {
protected:
    static std::vector<std::string> Pending() {
        std::vector<std::string> messages;
        for (int i = 0; i < TheErrorLog().GetSize(); ++i)
            messages.push_back(U8(TheErrorLog().Message(i)));
        return messages;
    }

    struct FailureCase {
        const char* formula;
        const char* message;
    };
    static void ExpectFailures(std::initializer_list<FailureCase> cases) {
        for (const FailureCase& c : cases) {
            const Outcome outcome = Run(c.formula);
            EXPECT_FALSE(outcome.ok) << c.formula;
            EXPECT_EQ(outcome.message, c.message) << c.formula;
        }
    }
};

const char* const c_reservedNames[] = {
    "_oneditchange",     "_onopenpage",   "_systemaction",    "_updateprops",
    "addtocatalog",      "addtolibrary",  "averagecolor",     "export",
    "exportdata",        "exportdatamin", "exportdoc3d",      "exportitem3d",
    "hascatalog",        "merge",         "previewcurrent",   "previewdonorfaceshadows",
    "previewelevation",  "previewhilite", "previewmachining", "previewshowmachining",
    "previewtype",       "report",        "savedrawing",      "transformtolocalx",
    "transformtolocaly", "writehostdxf"};

const char* const c_variableArgumentNames[] = {
    "debug",   "defined", "iff",   "if",      "and",         "or",   "min",    "max",
    "average", "sum",     "sumsq", "product", "concatenate", "join", "choose", "array"};

// ---------------------------------------------------------------------------------------------
// The known-function map

// The database functions come with database access; until then they are no known names, and
// the map holds the rest of the 192.
constexpr const char* c_namesServedLater[] = {
    "dbexecute",         "dblookup",    "dblookupcol",      "dblookupcollabels",
    "dblookupcolvalues", "dblookuprow", "dblookuprowvalues"};

TEST_F(FunctionsLogicTest, TheKnownMapHoldsTheWholeListAndTheReservedNames) {
    for (const char* name : c_namesServedLater)
        EXPECT_EQ(FindBuiltinFunction(FullId(name)), nullptr) << name;
    EXPECT_EQ(KnownFunctionCount() + static_cast<int>(std::size(c_namesServedLater)), 192);
}

TEST_F(FunctionsLogicTest, TheReservedNamesAreKnownAndHaveNoBodyHere) {
    EXPECT_EQ(ApplicationFunctions().functions.size(), 26u);
    LogicContext context;
    for (const char* name : c_reservedNames) {
        const QBuiltinFunction* row = FindBuiltinFunction(FullId(name));
        ASSERT_NE(row, nullptr) << name;
        EXPECT_EQ(row->body, nullptr) << name;
        // A property of the same name is not called instead.
        context.Set(name, QAnyValue(u"%1"));
        const Outcome outcome = Run(std::string(name) + "(1)", &context);
        EXPECT_FALSE(outcome.ok) << name;
        EXPECT_EQ(outcome.message, WrongCount(name, "one value"));
    }
}

TEST_F(FunctionsLogicTest, TheVariableArgumentFunctionsAreOutsideTheKnownMap) {
    ASSERT_EQ(VariableArgumentFunctions().functions.size(), std::size(c_variableArgumentNames));
    for (std::size_t i = 0; i < std::size(c_variableArgumentNames); ++i) {
        const char* name = c_variableArgumentNames[i];
        EXPECT_EQ(FindBuiltinFunction(FullId(name)), nullptr) << name;
        EXPECT_EQ(U8(VariableArgumentFunctions().functions[i].name), name);
    }
    EXPECT_EQ(FindBuiltinFunction(FullId("nosuchfunction")), nullptr);
}

TEST_F(FunctionsLogicTest, TheGroupsAreSearchedInTheirOrder) {
    const auto groups = BuiltinGroups();
    ASSERT_EQ(groups.size(), 10u);
    EXPECT_EQ(groups[0], &LogicFunctions());
    EXPECT_EQ(groups[1], &ConversionFunctions());
    EXPECT_EQ(groups[2], &MathFunctions());
    EXPECT_EQ(groups[3], &StringFunctions());
    EXPECT_EQ(groups[4], &ArrayFunctions());
    EXPECT_EQ(groups[5], &TableFunctions());
    EXPECT_EQ(groups[6], &FileFunctions());
    EXPECT_EQ(groups[9], &ApplicationFunctions());
    EXPECT_EQ(FindBuiltinFunction(FullId("LEN")), &StringFunctions().functions[4])
        << "names are found in any case";
}

TEST_F(FunctionsLogicTest, AnApplicationServesReservedNamesAndOtherCountsThroughItsExtras) {
    ExtrasFactory factory;
    SetEvaluatorFactory(&factory);
    ExtrasEvaluator::c_derivedAsked = 0;
    ExpectValues({{"report(5)", QAnyValue(u"reported 5")},
                  {"len(\"abc\", 10)", QAnyValue(13)},
                  {"len(\"abcd\")", QAnyValue(4)}});
    EXPECT_EQ(ExtrasEvaluator::c_derivedAsked, 0);
    ExpectFailures({{"report(1, 2)", "Expecting report in correct number of values\nbut found\n\t"
                                     "two values"},
                    {"len(1, 2, 3)", "Expecting len in correct number of values\nbut found\n\t"
                                     "three values"}});
}

// ---------------------------------------------------------------------------------------------
// Arrays spread over functions of scalars

TEST_F(FunctionsLogicTest, AnArrayWhereAScalarIsTakenGivesACallPerElement) {
    ExpectValues({
        {"len(array(1, 22))", Array({QAnyValue(1), QAnyValue(2)})},
        {"abs(array(-1, 2))", Array({QAnyValue(1), QAnyValue(2)})},
        {"left(array(\"ab\", \"cd\"))", Array({QAnyValue(u"a"), QAnyValue(u"c")})},
        {"left(\"abc\", array(1, 2))", Array({QAnyValue(u"a"), QAnyValue(u"ab")})},
        {"len(array())", Array({})},
        // Position 1 of arraytostring takes the whole array.
        {"arraytostring(array(1, 2), \"-\")", QAnyValue(u"1-2")},
        // Two arrays with two values: the value operation decides.
        {"power(array(2, 3), array(2, 3))", Array({QAnyValue(4), QAnyValue(27)})},
        // With three values the arrays are brought to one length, the shorter padded with its
        // last element.
        {"mid(array(\"abc\", \"def\", \"ghi\"), array(1, 2), 1)",
         Array({QAnyValue(u"a"), QAnyValue(u"e"), QAnyValue(u"h")})},
        {"between(array(1, 5), 0, array(2, 4))", Array({QAnyValue(true), QAnyValue(false)})},
    });
}

TEST_F(FunctionsLogicTest, CountTakesTheWholeArray) {
    ExpectValues({{"count(array(1, 2))", QAnyValue(2)}});
}

TEST_F(FunctionsLogicTest, AFailingElementEndsTheSpreadCall) {
    ExpectFailures({{"rand(array(1, 2))",
                     "Expecting rand in correct number of values\nbut found\n\tone value"}});
}

TEST_F(FunctionsLogicTest, WithEvaluationOffNoBodyRuns) {
    QAnyValue result;
    QEvaluator evaluator(result, FormulaText("cverr(nosuch) & len(rand(1, 2))"), nullptr, false,
                         true, false);
    EXPECT_TRUE(evaluator.EvaluateNoEval()) << U8(evaluator.Message());
    EXPECT_TRUE(result.IsEmpty());
    ExpectValues({{"iff(1, 7, len(nosuch, 9))", QAnyValue(7)}});
}

// ---------------------------------------------------------------------------------------------
// Variable arguments

TEST_F(FunctionsLogicTest, AndOrStopEvaluatingOnceTheOutcomeIsFixed) {
    ExpectValues({
        {"and(1, 2 > 1)", QAnyValue(true)},
        {"and(1, 0, 1)", QAnyValue(false)},
        {"and(0, nosuch)", QAnyValue(false)},
        {"or(0, 0)", QAnyValue(false)},
        {"or(0, 1, 0)", QAnyValue(true)},
        {"or(1, nosuch)", QAnyValue(true)},
        {"and(array(1, 1), 1)", QAnyValue(true)},
        {"and(array(1, 0), 1)", QAnyValue(false)},
        {"or(array(0, 0), 0)", QAnyValue(false)},
        {"or(array(0, 1))", QAnyValue(true)},
        {"AND(5)", QAnyValue(true)},
    });
    ExpectFailures({{"and(1, nosuch)", "Unknown name\n\tnosuch"},
                    {"or(0, nosuch)", "Unknown name\n\tnosuch"},
                    {"and(1]", "Expecting a ',' or ')' in ]\nbut found\n\tand"}});
    const Outcome error = Run("and(#err!, 1)");
    EXPECT_TRUE(error.ok);
    EXPECT_TRUE(error.result.IsError()) << "an error is neither true nor false and stays";
}

TEST_F(FunctionsLogicTest, MinAndMaxCompareNumericValues) {
    ExpectValues({
        {"min(3, 1, 2)", QAnyValue(1)},
        {"max(3, 1, 2)", QAnyValue(3)},
        {"max(array(1, 7), 3)", QAnyValue(7)},
        {"min(array(4, 2), 3)", QAnyValue(2)},
        {"min(5)", QAnyValue(5)},
        {"max(\"2\", 1)", QAnyValue(2)},
        {"min(2 ft, 1 m)", QAnyValue(QLength(609.6, QLength::LU_MM))},
    });
    for (const auto& [formula, message] :
         {std::pair{"min(1, #err!)", "Cannot compare in MIN()"},
          std::pair{"max(1, #err!)", "Cannot compare in MAX()"},
          std::pair{"max(1, \"abc\")", "Cannot compare in MAX()"},
          std::pair{"min(#N/A, 1, 0)", "Cannot compare in MIN()"}}) {
        const Outcome outcome = Run(formula);
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
        EXPECT_EQ(MessageOf(outcome.result), message) << formula;
    }
}

TEST_F(FunctionsLogicTest, SumsAndProductsFoldArraysFirst) {
    ExpectValues({
        {"sum(1, 2, 3)", QAnyValue(6)},
        {"sum(array(1, 2), 3)", QAnyValue(6)},
        {"sum(array())", QAnyValue(0)},
        {"sum(1 ft, 6 in)", QAnyValue(QLength(457.2, QLength::LU_MM))},
        {"product(2, array(3, 4))", QAnyValue(24)},
        {"product(array())", QAnyValue(1)},
        {"sumsq(3, array(1, 2))", QAnyValue(14)},
        {"sumsq(array())", QAnyValue(0)},
        {"average(1, 2)", QAnyValue(1.5)},
        {"average(array(1, 2, 3), 5)", QAnyValue(3.5)},
        {"average(4)", QAnyValue(4.0)},
    });
    const Outcome error = Run("sum(1, #N/A, 2)");
    EXPECT_TRUE(error.result.IsNA());
    ExpectFailures({{"sum()", "Expecting '{' or 'begin' in block\nbut found\n\t)"}});
}

TEST_F(FunctionsLogicTest, ConcatenateJoinAndArrayCollectTheirValues) {
    ExpectValues({
        {"concatenate(\"a\", 1, array(\"b\", \"c\"))", QAnyValue(u"a1bc")},
        {"concatenate(7)", QAnyValue(u"7")},
        {"join(1, array(2, 3))", Array({QAnyValue(1), QAnyValue(2), QAnyValue(3)})},
        {"join(1)", QAnyValue(1)},
        {"join(array(1), #N/A)", test::NA()},
        {"array(1, \"x\")", Array({QAnyValue(1), QAnyValue(u"x")})},
        {"array()", Array({})},
        {"array(array(1, 2))", Array({Array({QAnyValue(1), QAnyValue(2)})})},
    });
}

TEST_F(FunctionsLogicTest, ChooseEvaluatesOnlyTheValueItPicks) {
    ExpectValues({
        {"choose(2, 10, 20, 30)", QAnyValue(20)},
        {"choose(1, 10, nosuch)", QAnyValue(10)},
        {"choose(2, nosuch, 5)", QAnyValue(5)},
        {"choose(2.9, 10, 20, 30)", QAnyValue(20)},
        {"choose(5, 1, 2)", QAnyValue()},
        {"choose(0, 1, 2)", QAnyValue()},
        {"choose(#N/A, nosuch, 2)", test::NA()},
    });
    const Outcome error = Run("choose(cverr(\"bad index\"), 1)");
    EXPECT_EQ(MessageOf(error.result), "bad index");
    ExpectFailures({
        {"choose(1]", "Expecting ',' after index value in choose\nbut found\n\t]"},
        {"choose(1, 2]", "Expecting a ',' or ')' in ]\nbut found\n\tchoose"},
        {"choose(1, 2, 3 +)", "Expecting a number, string, name or (expression)\nbut found\n\t)"},
    });
}

TEST_F(FunctionsLogicTest, DefinedAsksForANameWithoutEvaluatingIt) {
    LogicContext context;
    context.Set("width", QAnyValue(5));
    ExpectValues({{"defined(nosuch)", QAnyValue(false)},
                  {"x := 1; defined(x)", QAnyValue(true)},
                  {"defined(width)", QAnyValue(true)},
                  {"defined(height)", QAnyValue(false)}},
                 &context);
    ExpectFailures({
        {"defined(1)", "Expecting variable name in DEFINED function\nbut found\n\t1)"},
        {"defined(a.)", "Expecting name after '.'\nbut found\n\t)"},
        {"defined(x y)",
         "Expecting a matching ')' for the '(' in DEFINED function\nbut found\n\ty)"},
    });
}

TEST_F(FunctionsLogicTest, DebugShowsTheLookUpsOfItsExpression) {
    LogicContext context;
    context.Set("width", QAnyValue(5));
    QMessageBoxOrLog(u"an earlier message", u"Error");
    const Outcome outcome = Run("debug(width * 2)", &context);
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_TRUE(outcome.result.Identical(QAnyValue(10)));
    const std::vector<std::string> pending = Pending();
    bool shown = false;
    for (const std::string& message : pending) {
        EXPECT_EQ(message.find("an earlier message"), std::string::npos)
            << "what was pending is discarded first";
        shown = shown || message.find("width\nfound with value\n\t5") != std::string::npos;
    }
    EXPECT_TRUE(shown) << "the look-up of width is shown";

    TheErrorLog().DiscardPendingMessages();
    EXPECT_TRUE(Run("width * 2", &context).ok);
    EXPECT_TRUE(Pending().empty()) << "the debug flag ends with the call";
    ExpectFailures({{"debug(1, 2)",
                     "Expecting a matching ')' for the '(' in DEBUG function\nbut found\n\t, 2)"}});
}

// ---------------------------------------------------------------------------------------------
// No arguments

TEST_F(FunctionsLogicTest, RandAndRandomScaleTheGeneratorDifferently) {
    keel::srand(1);
    const int first = keel::rand();
    keel::srand(1);
    ExpectValues({{"rand()", QAnyValue(first / 32768.0)}});
    keel::srand(1);
    ExpectValues({{"random()", QAnyValue(first / 32767.0)}});
    for (int i = 0; i < 200; ++i) {
        const Outcome outcome = Run("rand()");
        ASSERT_TRUE(outcome.result.IsDouble());
        const double value = QAnyValue(outcome.result).MakeDouble();
        EXPECT_GE(value, 0.0);
        EXPECT_LT(value, 1.0);
    }
    ExpectCountsTaken({{"rand", 0, 0}, {"random", 0, 0}});
}

// ---------------------------------------------------------------------------------------------
// Conversions and tests

TEST_F(FunctionsLogicTest, ConversionsGiveTheirTypes) {
    ExpectValues({
        {"text(5)", QAnyValue(u"5")},
        {"text(#N/A)", test::NA()},
        {"textnounit(2 ft)", QAnyValue(u"609.6")},
        {"textnounit(\"ab\")", QAnyValue(u"ab")},
        {"textnounit(7)", QAnyValue(u"7")},
        {"formula(\"a\")", QAnyValue(u"\"a\"")},
        {"formula(5)", QAnyValue(u"5")},
        {"value(\"12\")", QAnyValue(12)},
        {"value(\"3 + 4\")", QAnyValue(7)},
        {"dollar(5)", test::Cents(500)},
        {"dollarnounit($5)", QAnyValue(5.0)},
        {"length(1000)", test::Mm(1000)},
        {"length(1000, 2)", test::Mm(1000)},
        {"lengthnounit(2 ft)", QAnyValue(609.6)},
        {"degrees(90)", QAnyValue(QAngle(90.0, QAngle::ANGU_DEG))},
        {"radians(0.5)", QAnyValue(QAngle(0.5, QAngle::ANGU_RAD))},
        {"cverr(\"bad\")", test::Error("bad")},
        {"error(cverr(\"bad\"))", QAnyValue(u"bad")},
        {"error(2)", QAnyValue(u"No such file or directory")},
    });
    for (const auto& [formula, message] :
         {std::pair{"dollar(\"x\")", "Cannot DOLLAR() when not numeric"},
          std::pair{"dollarnounit(\"x\")", "Cannot DOLLAR() when not numeric"},
          std::pair{"length(\"x\")", "Cannot LENGTH() when not numeric"},
          std::pair{"lengthnounit(\"x\")", "Cannot LENGTH() when not numeric"},
          std::pair{"value(\"abc\")", "Could not evaluate formula\nabc"},
          std::pair{"degrees(\"abc\")", "Could not evaluate formula\nabc"},
          std::pair{"length(1, \"x\")", "Could not evaluate formula\nx"},
          std::pair{"formula(cverr(\"passed\"))", "passed"},
          std::pair{"radians(cverr(\"passed\"))", "passed"},
          std::pair{"cverr(cverr(\"passed\"))", "passed"},
          std::pair{"error(\"x\")", "Could not evaluate formula\nx"}}) {
        const Outcome outcome = Run(formula);
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
        EXPECT_EQ(MessageOf(outcome.result).substr(0, std::string(message).size()), message)
            << formula;
    }
    ExpectCountsTaken({{"text", 1, 1},
                       {"textnounit", 1, 1},
                       {"formula", 1, 1},
                       {"value", 1, 1},
                       {"dollar", 1, 1},
                       {"dollarnounit", 1, 1},
                       {"length", 1, 2},
                       {"lengthnounit", 1, 2},
                       {"degrees", 1, 1},
                       {"radians", 1, 1},
                       {"cverr", 1, 1},
                       {"error", 1, 1}});
}

TEST_F(FunctionsLogicTest, TypeTestsAnswerForAnyValue) {
    const auto yes = QAnyValue(true);
    const auto no = QAnyValue(false);
    ExpectValues({
        {"isblank(\"\")", yes},       {"isblank(#empty)", yes},
        {"isblank(\" \")", no},       {"isblank(0)", no},
        {"islogical(1 = 1)", yes},    {"islogical(1)", no},
        {"istext(\"a\")", yes},       {"istext(1)", no},
        {"isnumber(2 ft)", yes},      {"isnumber(2.5)", yes},
        {"isnumber(\"1\")", no},      {"isnumber(#N/A)", no},
        {"isnontext(1)", yes},        {"isnontext(\"\")", no},
        {"isnontext(#empty)", no},    {"isnontext(#err!)", yes},
        {"iseven(2)", yes},           {"iseven(3)", no},
        {"iseven(-4)", yes},          {"iseven(2.5)", yes},
        {"isodd(-3)", yes},           {"isodd(0)", no},
        {"isna(#N/A)", yes},          {"isna(#err!)", no},
        {"iserr(#err!)", yes},        {"iserr(#N/A)", no},
        {"iserror(#N/A)", yes},       {"iserror(#err!)", yes},
        {"iserror(0)", no},           {"isna(1)", no},
        {"iseven(#N/A)", test::NA()}, {"isodd(array(1, 2))", Array({yes, no})},
    });
    const Outcome bad = Run("iseven(\"x\")");
    EXPECT_EQ(MessageOf(bad.result), "Could not evaluate formula\nx");
    ExpectCountsTaken({{"isblank", 1, 1},
                       {"islogical", 1, 1},
                       {"istext", 1, 1},
                       {"isnumber", 1, 1},
                       {"isnontext", 1, 1},
                       {"iseven", 1, 1},
                       {"isodd", 1, 1},
                       {"isna", 1, 1},
                       {"iserr", 1, 1},
                       {"iserror", 1, 1}});
}

TEST_F(FunctionsLogicTest, TheErrorTestsTakeAFailingArgumentQuietly) {
    for (const auto& [formula, truth] :
         {std::pair{"isna(nosuch)", false}, std::pair{"iserr(nosuch)", true},
          std::pair{"iserror(1 +)", true}, std::pair{"iserr(1 / 0)", true}}) {
        const Outcome outcome = Run(formula);
        EXPECT_TRUE(outcome.ok) << formula << ": " << outcome.message;
        EXPECT_TRUE(outcome.result.Identical(QAnyValue(truth))) << formula;
        EXPECT_EQ(outcome.message, "") << formula;
    }
    EXPECT_TRUE(Pending().empty());
    ExpectFailures({{"istext(nosuch)", "Unknown name\n\tnosuch"}});
}

TEST_F(FunctionsLogicTest, IndirectRunsAStringAsAFormulaInTheContext) {
    LogicContext context;
    context.Set("width", QAnyValue(5));
    ExpectValues({{"indirect(\"width + 1\")", QAnyValue(6)},
                  {"val(\"2 * 3\")", QAnyValue(6)},
                  {"eval(\"\"\"w\"\" & \"\"idth\"\"\")", QAnyValue(u"width")},
                  {"eval(\"wid\" & \"th\")", QAnyValue(5)},
                  {"eval(5)", QAnyValue(5)},
                  {"indirect(#N/A)", test::NA()}},
                 &context);

    RecordingUI ui;
    SetUIServices(&ui);
    const Outcome failed = Run("val(\"1 +\")");
    EXPECT_TRUE(failed.ok) << failed.message;
    EXPECT_TRUE(failed.result.IsEmpty());
    ASSERT_EQ(ui.boxes.size(), 1u);
    EXPECT_EQ(ui.boxes[0], "Expecting a number, string, name or (expression)\nbut found end of "
                           "formula");
    ExpectCountsTaken({{"indirect", 1, 1}, {"val", 1, 1}, {"eval", 1, 1}});
}

} // namespace
} // namespace keel
