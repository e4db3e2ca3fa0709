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

TEST_F(FunctionsLogicTest, WithEvaluationOffNoBodyRuns) {
    QAnyValue result;
    QEvaluator evaluator(result, FormulaText("cverr(nosuch) & len(rand(1, 2))"), nullptr, false,
                         true, false);
    EXPECT_TRUE(evaluator.EvaluateNoEval()) << U8(evaluator.Message());
    EXPECT_TRUE(result.IsEmpty());
}

// ---------------------------------------------------------------------------------------------
// Variable arguments

TEST_F(FunctionsLogicTest, AndOrStopEvaluatingOnceTheOutcomeIsFixed) {
    const Outcome error = Run("and(#err!, 1)");
    EXPECT_TRUE(error.ok);
    EXPECT_TRUE(error.result.IsError()) << "an error is neither true nor false and stays";
}

TEST_F(FunctionsLogicTest, MinAndMaxCompareNumericValues) {
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
    const Outcome error = Run("sum(1, #N/A, 2)");
    EXPECT_TRUE(error.result.IsNA());
}

TEST_F(FunctionsLogicTest, ChooseEvaluatesOnlyTheValueItPicks) {
    const Outcome error = Run("choose(cverr(\"bad index\"), 1)");
    EXPECT_EQ(MessageOf(error.result), "bad index");
}

TEST_F(FunctionsLogicTest, DefinedAsksForANameWithoutEvaluatingIt) {
    LogicContext context;
    context.Set("width", QAnyValue(5));
    ExpectValues({{"defined(nosuch)", QAnyValue(false)},
                  {"x := 1; defined(x)", QAnyValue(true)},
                  {"defined(width)", QAnyValue(true)},
                  {"defined(height)", QAnyValue(false)}},
                 &context);
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
}

// ---------------------------------------------------------------------------------------------
// Conversions and tests

TEST_F(FunctionsLogicTest, ConversionsGiveTheirTypes) {
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
}

TEST_F(FunctionsLogicTest, TypeTestsAnswerForAnyValue) {
    const auto yes = QAnyValue(true);
    const auto no = QAnyValue(false);
    const Outcome bad = Run("iseven(\"x\")");
    EXPECT_EQ(MessageOf(bad.result), "Could not evaluate formula\nx");
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
}

} // namespace
} // namespace keel
