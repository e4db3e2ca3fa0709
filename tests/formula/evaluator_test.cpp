#include "tests/support/anyvalues.h"
#include "tests/support/environment.h"

#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/document/usertrace.h"
#include "keel/document/winapp.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"
#include "keel/values/formulahook.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using test::MessageOf;

std::string U8(const CString& text) {
    return text.ToUtf8();
}

// Functions that fail in each of the ways an evaluation can: with no message and no value
// ("quiet"), leaving an error value without a message ("broken") or with one ("refused"), by
// throwing ("thrown", "runaway"), or after turning the process-wide report switch off
// ("silenced"). They take no arguments.
class FailingEvaluator : public QEvaluator {
public:
    using QEvaluator::QEvaluator;

    bool IsDerivedClassDefined(FullId name) override {
        for (const char* known : {"quiet", "broken", "refused", "thrown", "runaway", "silenced"})
            if (name == FullId(known))
                return true;
        return false;
    }

    bool EvaluateSimpleFunctionDerived(QAnyValue& result, FullId name) override {
        const std::string called = U8(name.ToString());
        if (called == "quiet")
            return false;
        if (called == "broken") {
            result.MakeError(u"broken");
            return false;
        }
        if (called == "refused") {
            result.MakeError(u"refused");
            return ErrorEvaluatingFunction(name.ToString());
        }
        if (called == "thrown")
            ThrowInvalidArgument("thrown on purpose");
        if (called == "runaway")
            throw std::runtime_error("runaway evaluation");
        SetNoEvalReportErrors(true);
        return ErrorEvaluatingFunction(name.ToString());
    }
};

// A context that answers from a table of its own; without a name of its own it says so through
// SimpleWhoAmI.
class EvaluatorContext : public QFormulaContext {
public:
    explicit EvaluatorContext(const char* name = "Frame", QFormulaContext* parent = nullptr)
        : m_name(name), m_parent(parent) {}

    CString SimpleTypeName() const override { return u"Context"; }
    CString SimpleWhoAmI() const override { return m_name; }
    QProperties* Properties() const override { return nullptr; }
    QFormulaContext* ParentContext() override { return m_parent; }
    const QFormulaContext* ParentContext() const override { return m_parent; }

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool&, QCacheState&,
                                 bool) override {
        ++m_lookups;
        return m_values.Lookup(name, value);
    }

    void Set(const char* name, const QAnyValue& value) { m_values[PropId(name)] = value; }
    int Lookups() const { return m_lookups; }

private:
    CString m_name;
    QFormulaContext* m_parent;
    QMap<PropId, QAnyValue> m_values;
    int m_lookups = 0;
};

struct Outcome {
    bool ok = false;
    QAnyValue result;
    std::string message;
};

struct Report {
    std::string heading;
    std::string text;
};

class EvaluatorTest : public testing::Test {
protected:
    void SetUp() override {
        m_logPath =
            fs::temp_directory_path() / ("keel-evaluator-" + std::to_string(::getpid()) + ".txt");
        TheErrorLog().SetFilename(CString::FromUtf8(m_logPath.string()));
        TheErrorLog().DiscardPendingMessages();
        SetNoEvalReportErrors(false);
    }

    void TearDown() override {
        TheErrorLog().DiscardPendingMessages();
        SetNoEvalReportErrors(false);
        SetEvaluatorFactory(nullptr);
        std::error_code ignored;
        fs::remove(m_logPath, ignored);
    }

    static Outcome Run(const char* formula, bool report = true,
                       QFormulaContext* context = nullptr) {
        Outcome outcome;
        FailingEvaluator evaluator(outcome.result, FormulaText(formula), context, false, report,
                                   false);
        outcome.ok = evaluator.Evaluate();
        outcome.message = U8(evaluator.Message());
        return outcome;
    }

    static std::vector<Report> Reports() {
        std::vector<Report> reports;
        QErrorLog& log = TheErrorLog();
        for (int i = 0; i < log.GetSize(); ++i)
            reports.push_back({U8(log.ErrorType(i)->Description()), U8(log.Message(i))});
        return reports;
    }

    fs::path m_logPath;
};

// ---------------------------------------------------------------------------------------------
// What Evaluate shows when it fails

struct FailureCase {
    const char* formula;
    std::string shown;
};

// A failure is told in one of eight forms: a syntax failure or an error value, each with or
// without a message, each with or without the fragment from the last good position on.
const FailureCase c_failureForms[] = {
    {"quiet()", "Error in formula\n\tquiet()"},
    {"1; quiet()", "Error in formula\n\t1; quiet()\nnear\n\tquiet()"},
    {"1 +", "Expecting a number, string, name or (expression)\nbut found end of formula"
            "\nin formula\n\t1 +"},
    {"1; 2 +", "Expecting a number, string, name or (expression)\nbut found end of formula"
               "\nin formula\n\t1; 2 +\nnear\n\t2 +"},
    {"broken()", "Error evaluating\n\tbroken()"},
    {"1; broken()", "Error evaluating\n\t1; broken()\nwhile evaluating\n\tbroken()"},
    {"refused()", "Error in calling function refused\nevaluating\n\trefused()"},
    {"1; refused()", "Error in calling function refused\nevaluating\n\t1; refused()"
                     "\nwhile evaluating\n\trefused()"},
};

TEST_F(EvaluatorTest, AFailureIsShownUnderFormulaInTheFormThatFitsIt) {
    for (const FailureCase& c : c_failureForms) {
        TheErrorLog().DiscardPendingMessages();
        const Outcome outcome = Run(c.formula);
        EXPECT_FALSE(outcome.ok) << c.formula;
        const std::vector<Report> reports = Reports();
        ASSERT_EQ(reports.size(), 1u) << c.formula;
        EXPECT_EQ(reports[0].heading, "Formula");
        EXPECT_EQ(reports[0].text, c.shown) << c.formula;
    }
}

TEST_F(EvaluatorTest, TheFormsPassThroughTranslationUnderTheirOwnContexts) {
    struct Form {
        const char* original;
        const char* context;
        const char* translated;
    };
    const Form forms[] = {
        {"Error in formula\\n\\t%s", "formula", "SYNTAX %s"},
        {"Error in formula\\n\\t%s\\nnear\\n\\t%s", "formula,expr", "SYNTAX %s NEAR %s"},
        {"%s\\nin formula\\n\\t%s", "msg,formula", "%s IN %s"},
        {"%s\\nin formula\\n\\t%s\\nnear\\n\\t%s", "msg,formula,expr", "%s IN %s NEAR %s"},
        {"Error evaluating\\n\\t%s", "formula", "VALUE %s"},
        {"Error evaluating\\n\\t%s\\nwhile evaluating\\n\\t%s", "formula,expr",
         "VALUE %s WHILE %s"},
        {"%s\\nevaluating\\n\\t%s", "msg,formula", "%s EVALUATING %s"},
        {"%s\\nevaluating\\n\\t%s\\nwhile evaluating\\n\\t%s", "msg,formula,expr",
         "%s EVALUATING %s WHILE %s"},
    };
    // Each text has a decoy match first, so that only its own context picks the translation.
    std::string file;
    for (const Form& form : forms) {
        file += std::string(form.original) + "\t\tWRONG\tMessage box \\(nothing\\)\t\n";
        file += std::string(form.original) + "\t\t" + form.translated + "\tMessage box \\(" +
                form.context + "\\)\t\n";
    }
    const fs::path path = m_logPath.string() + ".translations.txt";
    test::WriteText(path, file);
    ASSERT_TRUE(SwitchToTranslationFile(CString::FromUtf8(path.string()), true, false));

    const std::string expected[] = {
        "SYNTAX quiet()",
        "SYNTAX 1; quiet() NEAR quiet()",
        "Expecting a number, string, name or (expression)\nbut found end of formula IN 1 +",
        "Expecting a number, string, name or (expression)\nbut found end of formula IN 1; 2 + "
        "NEAR 2 +",
        "VALUE broken()",
        "VALUE 1; broken() WHILE broken()",
        "Error in calling function refused EVALUATING refused()",
        "Error in calling function refused EVALUATING 1; refused() WHILE refused()",
    };
    for (int i = 0; i < 8; ++i) {
        TheErrorLog().DiscardPendingMessages();
        Run(c_failureForms[i].formula);
        const std::vector<Report> reports = Reports();
        ASSERT_EQ(reports.size(), 1u) << c_failureForms[i].formula;
        EXPECT_EQ(reports[0].text, expected[i]);
    }
    SwitchToTranslationFile(CString(), true, false);
    fs::remove(path);
}

TEST_F(EvaluatorTest, OnFailureTheResultIsAnErrorHoldingTheMessage) {
    const Outcome outcome = Run("1 +");
    EXPECT_TRUE(outcome.result.IsError());
    EXPECT_EQ(MessageOf(outcome.result), outcome.message);
    EXPECT_EQ(outcome.message,
              "Expecting a number, string, name or (expression)\nbut found end of formula");

    // An error value left by the failing part is replaced by the message too.
    const Outcome refused = Run("refused()");
    EXPECT_EQ(MessageOf(refused.result), "Error in calling function refused");
}

TEST_F(EvaluatorTest, NothingIsShownWithoutTheReportFlag) {
    const Outcome outcome = Run("1 +", false);
    EXPECT_FALSE(outcome.ok);
    EXPECT_TRUE(outcome.result.IsError());
    EXPECT_TRUE(Reports().empty());
}

TEST_F(EvaluatorTest, NothingIsShownWhenTheProcessWideSwitchIsOff) {
    const Outcome outcome = Run("silenced()");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Error in calling function silenced");
    EXPECT_TRUE(Reports().empty());
    // The evaluator put the switch back as it found it.
    EXPECT_FALSE(NoEvalReportErrors());
}

TEST_F(EvaluatorTest, TokensLeftOverAreExpectingEndOfFormula) {
    const Outcome outcome = Run("(1)) * 2");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Expecting end of formula\nbut found\n\t) * 2");
}

TEST_F(EvaluatorTest, ATokeniserFailureIsASyntaxFailureWithItsText) {
    const Outcome outcome = Run("'abc");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "Mismatched quotes");
    const std::vector<Report> reports = Reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].text, "Mismatched quotes\nin formula\n\t'abc");
}

TEST_F(EvaluatorTest, ExceptionsOfThePlatformAreCaughtAndCountAsFailure) {
    const Outcome invalid = Run("thrown()");
    EXPECT_FALSE(invalid.ok);
    EXPECT_EQ(invalid.message, "Invalid argument: thrown on purpose");
    EXPECT_EQ(MessageOf(invalid.result), "Invalid argument: thrown on purpose");

    const Outcome runaway = Run("runaway()");
    EXPECT_FALSE(runaway.ok);
    EXPECT_EQ(runaway.message, "runaway evaluation");
    ASSERT_EQ(Reports().size(), 2u);
    EXPECT_EQ(Reports()[1].text, "runaway evaluation\nin formula\n\trunaway()");
}

TEST_F(EvaluatorTest, AFormulaWithNoTokensSucceedsWithAnEmptyResult) {
    for (const char* formula : {"", "   \t\n ", "// only a remark", "/* a remark */", "  /**/ "}) {
        const Outcome outcome = Run(formula);
        EXPECT_TRUE(outcome.ok) << '[' << formula << ']';
        EXPECT_TRUE(outcome.result.IsEmpty()) << '[' << formula << ']';
        EXPECT_EQ(outcome.message, "");
    }
    QAnyValue result(7);
    QEvaluator evaluator(result, FormulaText(), nullptr, false, true, false);
    EXPECT_TRUE(result.IsEmpty()) << "the constructor empties the result";
    EXPECT_TRUE(evaluator.Evaluate());
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_TRUE(Reports().empty());
}

TEST_F(EvaluatorTest, ASuccessLeavesNoMessageAndClearsTheFailedFlag) {
    const Outcome outcome = Run("1 + 2 * 3");
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.message, "");
    EXPECT_EQ(outcome.result.Type(), QAnyValue::TYPE_INT);
    EXPECT_EQ(QAnyValue(outcome.result).MakeInt(), 7);

    QAnyValue result;
    FailingEvaluator evaluator(result, FormulaText("quiet()"), nullptr, false, false, false);
    EXPECT_FALSE(evaluator.Evaluate());
    EXPECT_TRUE(evaluator.IsFailed());
    EXPECT_FALSE(evaluator.IsRunning());
}

TEST_F(EvaluatorTest, ANoEvalRunChecksTheSyntaxOnly) {
    QAnyValue result;
    QEvaluator names(result, FormulaText("nosuchname + 1"), nullptr, false, true, false);
    EXPECT_TRUE(names.EvaluateNoEval());
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_FALSE(names.IsNoEval()) << "the count is lowered again";

    QEvaluator broken(result, FormulaText("nosuchname +"), nullptr, false, false, false);
    EXPECT_FALSE(broken.EvaluateNoEval());
}

// ---------------------------------------------------------------------------------------------
// Failure reporters

TEST_F(EvaluatorTest, EachReporterWritesItsTextAndReturnsFalse) {
    QAnyValue result;
    QEvaluator e(result, FormulaText("1"), nullptr, false, true, false);
    struct Case {
        bool returned;
        std::string message;
    };
    const auto after = [&](bool returned) { return Case{returned, U8(e.Message())}; };
    const std::vector<std::pair<Case, std::string>> cases = {
        {after(e.Unknown(u"name", u"widht")), "Unknown name\n\twidht"},
        {after(e.ActionOnly(u"set value x")), "Only allowed in an action field\n\tset value x"},
        {after(e.ActionOnly(u"")), "Only allowed in an action field end of formula"},
        {after(e.ExpectingButFoundIn(u"'then'", u"x + 1", u"")),
         "Expecting 'then'\nbut found\n\tx + 1"},
        {after(e.ExpectingButFoundIn(u"statement", u"", u"stat-list")),
         "Expecting statement in stat-list\nbut found end of formula"},
        {after(e.ExpectingAfterButFound(u"'to'", u"'equal'", u"3")),
         "Expecting 'to' after 'equal'\nbut found\n\t3"},
        {after(e.ExpectingMatchingButFound(u"'}'", u"'{'", u"")),
         "Expecting a matching '}' for the '{'\nbut found end of formula"},
        {after(e.ExpectingMatchingButFoundIn(u"')'", u"'('", u"; 2", u"array subscript")),
         "Expecting a matching ')' for the '(' in array subscript\nbut found\n\t; 2"},
        {after(e.ExpectingCommaOrParenthesisButFoundIn(u"3)", u"max")),
         "Expecting a ',' or ')' in max\nbut found\n\t3)"},
        {after(e.ErrorEvaluating(u"width")), "Error in value of width"},
        {after(e.ErrorEvaluatingFunction(u"area")), "Error in calling function area"},
        {after(e.ErrorEvaluatingAtOrHash(u"#")), "Error in finding value for #"},
        {after(e.ErrorEvaluatingWithFormula(u"depth", u"width * 2")),
         "Error in value of depth\n\twidth * 2"},
    };
    for (const auto& [c, expected] : cases) {
        EXPECT_FALSE(c.returned) << expected;
        EXPECT_EQ(c.message, expected);
    }
}

TEST_F(EvaluatorTest, UnknownComposesNothingWithoutTheReportFlag) {
    QAnyValue result;
    QEvaluator quiet(result, FormulaText("1"), nullptr, false, false, false);
    EXPECT_FALSE(quiet.Unknown(u"name", u"widht"));
    EXPECT_EQ(U8(quiet.Message()), "");
    EXPECT_FALSE(quiet.ErrorEvaluating(u"width")) << "the other reporters always write";
    EXPECT_EQ(U8(quiet.Message()), "Error in value of width");
}

// ---------------------------------------------------------------------------------------------
// Context lines of reports

TEST_F(EvaluatorTest, ContextInfoHasALineForEachGuardInForceInnermostLast) {
    EXPECT_EQ(U8(QEvaluator::ContextInfo(true)), "");
    {
        QEvaluator::ExtraContextInfoForErrors outer(u"reading table doors.vlt");
        {
            QEvaluator::ExtraContextInfoForErrors inner(u"UPDATE VLT", u"row 3");
            EXPECT_EQ(U8(QEvaluator::ContextInfo(true)),
                      "\nin\n\treading table doors.vlt\nin\n\tUPDATE VLT\n\trow 3");
            EXPECT_EQ(U8(QEvaluator::ContextInfo(false)), "");
        }
        EXPECT_EQ(U8(QEvaluator::ContextInfo(true)), "\nin\n\treading table doors.vlt");
    }
    EXPECT_EQ(U8(QEvaluator::ContextInfo(true)), "");
}

TEST_F(EvaluatorTest, AShownFailureEndsWithTheContextLines) {
    QEvaluator::ExtraContextInfoForErrors line(u"question Width");
    Run("1 +");
    const std::vector<Report> reports = Reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].text, "Expecting a number, string, name or (expression)\nbut found end "
                               "of formula\nin formula\n\t1 +\nin\n\tquestion Width");
}

// ---------------------------------------------------------------------------------------------
// Process-wide counts and the report switch

TEST_F(EvaluatorTest, TheNestingCountFollowsTheLivingEvaluators) {
    const int before = QEvaluator::NestingCount();
    QAnyValue a;
    QAnyValue b;
    {
        QEvaluator outer(a, FormulaText("1"), nullptr, false, true, false);
        EXPECT_EQ(QEvaluator::NestingCount(), before + 1);
        {
            QEvaluator inner(b, FormulaText("2"), nullptr, false, true, false);
            EXPECT_EQ(QEvaluator::NestingCount(), before + 2);
        }
        EXPECT_EQ(QEvaluator::NestingCount(), before + 1);
    }
    EXPECT_EQ(QEvaluator::NestingCount(), before);
}

TEST_F(EvaluatorTest, EachEvaluatorSetsTheReportSwitchAndPutsItBack) {
    QAnyValue a;
    QAnyValue b;
    SetNoEvalReportErrors(false);
    {
        QEvaluator quiet(a, FormulaText("1"), nullptr, false, false, false);
        EXPECT_TRUE(NoEvalReportErrors());
        {
            QEvaluator loud(b, FormulaText("2"), nullptr, false, true, false);
            EXPECT_FALSE(NoEvalReportErrors());
        }
        EXPECT_TRUE(NoEvalReportErrors());
    }
    EXPECT_FALSE(NoEvalReportErrors());

    SetNoEvalReportErrors(true);
    {
        QEvaluator loud(a, FormulaText("1"), nullptr, false, true, false);
        EXPECT_FALSE(NoEvalReportErrors());
    }
    EXPECT_TRUE(NoEvalReportErrors());
}

// ---------------------------------------------------------------------------------------------
// Arguments and local variables

TEST_F(EvaluatorTest, ArgumentsAreOneBasedAndGrowTheArray) {
    QAnyValue result;
    QEvaluator e(result, FormulaText("1"), nullptr, false, true, false);
    QAnyValue value;
    EXPECT_FALSE(e.GetArg(1, value));
    e.SetArg(3, QAnyValue(30));
    EXPECT_EQ(e.ArgCount(), 3);
    ASSERT_TRUE(e.GetArg(3, value));
    EXPECT_EQ(value.MakeInt(), 30);
    ASSERT_TRUE(e.GetArg(2, value));
    EXPECT_TRUE(value.IsEmpty());
    EXPECT_FALSE(e.GetArg(4, value));
    EXPECT_FALSE(e.GetArg(0, value));
    e.SetArg(0, QAnyValue(1));
    EXPECT_EQ(e.ArgCount(), 3) << "there is no argument 0";
}

TEST_F(EvaluatorTest, LocalVariablesAreKeptByInternedName) {
    QAnyValue result;
    QEvaluator e(result, FormulaText("1"), nullptr, false, true, false);
    QAnyValue value;
    EXPECT_FALSE(e.GetVar(PropId("count"), value));
    EXPECT_FALSE(e.HasVar(PropId("count")));
    e.SetVar(PropId("Count"), QAnyValue(4));
    EXPECT_TRUE(e.HasVar(PropId("COUNT")));
    ASSERT_TRUE(e.GetVar(PropId("count"), value));
    EXPECT_EQ(value.MakeInt(), 4);
}

TEST_F(EvaluatorTest, TheCacheStateOnlyRises) {
    QAnyValue result;
    QEvaluator e(result, FormulaText("1"), nullptr, false, true, false);
    EXPECT_EQ(e.CacheState(), QCS_Stable);
    e.RaiseCacheState(QCS_ByAcceptor);
    e.RaiseCacheState(QCS_BySeq);
    EXPECT_EQ(e.CacheState(), QCS_ByAcceptor);
}

// ---------------------------------------------------------------------------------------------
// The context's formula cache

TEST_F(EvaluatorTest, AValueKeptByTheContextAnswersAtOnce) {
    EvaluatorContext context;
    context.RememberThisFormulaValueForNextTime(QAnyValue(42), FormulaText("40 + 1"), QCS_Stable);
    const Outcome cached = Run("40 + 1", true, &context);
    EXPECT_TRUE(cached.ok);
    EXPECT_EQ(QAnyValue(cached.result).MakeInt(), 42);

    // A debug run and an action run always evaluate.
    for (const bool action : {false, true}) {
        QAnyValue result;
        QEvaluator e(result, FormulaText("40 + 1"), &context, false, true, action);
        e.SetDebug(!action);
        EXPECT_TRUE(e.Evaluate());
        EXPECT_EQ(result.MakeInt(), 41);
    }
}

TEST_F(EvaluatorTest, ASuccessIsKeptByTheContextUnlessItIsAnAction) {
    EvaluatorContext context;
    context.Set("depth", QAnyValue(20));
    const Outcome first = Run("depth * 2", true, &context);
    EXPECT_EQ(QAnyValue(first.result).MakeInt(), 40);
    QAnyValue kept;
    QCacheState state = QCS_Stable;
    ASSERT_TRUE(context.HeresAFormulaValueIPreparedEarlier(kept, state, FormulaText("depth * 2")));
    EXPECT_EQ(kept.MakeInt(), 40);

    QAnyValue result;
    QEvaluator action(result, FormulaText("depth * 3"), &context, false, true, true);
    EXPECT_TRUE(action.Evaluate());
    EXPECT_FALSE(context.HeresAFormulaValueIPreparedEarlier(kept, state, FormulaText("depth * 3")));
}

TEST_F(EvaluatorTest, ASyntaxCheckNeitherReadsNorFillsTheCache) {
    EvaluatorContext context;
    context.RememberThisFormulaValueForNextTime(QAnyValue(42), FormulaText("40 +"), QCS_Stable);
    QAnyValue result;
    QEvaluator check(result, FormulaText("40 +"), &context, false, false, false);
    EXPECT_FALSE(check.EvaluateNoEval());

    QEvaluator other(result, FormulaText("40 + 2"), &context, false, false, false);
    EXPECT_TRUE(other.EvaluateNoEval());
    QAnyValue kept;
    QCacheState state = QCS_Stable;
    EXPECT_FALSE(context.HeresAFormulaValueIPreparedEarlier(kept, state, FormulaText("40 + 2")));
}

// ---------------------------------------------------------------------------------------------
// Helpers

TEST_F(EvaluatorTest, TheContextWithANameIsTheFirstAtOrAboveThatHasOne) {
    EvaluatorContext root("Drawing");
    EvaluatorContext unnamed("", &root);
    EvaluatorContext frame("Frame", &unnamed);
    EvaluatorContext leaf("", &frame);
    EXPECT_EQ(QEvaluator::FindContextWithName(&frame), &frame);
    EXPECT_EQ(QEvaluator::FindContextWithName(&leaf), &frame);
    EXPECT_EQ(QEvaluator::FindContextWithName(&unnamed), &root);
    EXPECT_EQ(QEvaluator::FindContextWithName(nullptr), nullptr);
    EvaluatorContext lonely("");
    EXPECT_EQ(QEvaluator::FindContextWithName(&lonely), nullptr);
}

TEST_F(EvaluatorTest, TheReverseIntIsTheNumberThatEndsAName) {
    const std::pair<const char*, int> cases[] = {
        {"frame12", 12},
        {"frame", -1},
        {"a1b", -1},
        {"7", 7},
        {"", -1},
        {"door007", 7},
        {"x99999999999", 2147483647},
    };
    for (const auto& [name, expected] : cases)
        EXPECT_EQ(QEvaluator::FindReverseInt(CString(name)), expected) << name;
}

// ---------------------------------------------------------------------------------------------
// Making evaluators

class NamingFactory : public QEvaluatorFactory {
public:
    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        ++made;
        return new FailingEvaluator(result, formula, context, passThrough, reportErrors, isAction);
    }
    CString FolderForConstant(QConstantFolder) const override { return CString(); }

    int made = 0;
};

TEST_F(EvaluatorTest, NewMakesEvaluatorsThroughTheInstalledFactory) {
    QAnyValue result;
    std::unique_ptr<QEvaluator> plain(
        QEvaluator::New(result, FormulaText("refused()"), nullptr, false, true, false));
    EXPECT_FALSE(plain->Evaluate());
    EXPECT_EQ(U8(plain->Message()), "Unknown function taking no values\n\trefused") << "plain";

    NamingFactory factory;
    EXPECT_EQ(SetEvaluatorFactory(&factory), nullptr);
    std::unique_ptr<QEvaluator> derived(
        QEvaluator::New(result, FormulaText("refused()"), nullptr, true, false, true));
    EXPECT_EQ(factory.made, 1);
    EXPECT_TRUE(derived->IsPassThrough());
    EXPECT_TRUE(derived->IsAction());
    EXPECT_FALSE(derived->IsReportErrors());
    EXPECT_FALSE(derived->Evaluate());
    EXPECT_EQ(U8(derived->Message()), "Error in calling function refused");
    EXPECT_EQ(SetEvaluatorFactory(nullptr), &factory);
}

TEST_F(EvaluatorTest, TheFormulaHookRunsFormulasQuietly) {
    const QFormulaEvaluatorHook previous = GetFormulaEvaluatorHook();
    QEvaluator::InstallAsFormulaHook();
    QAnyValue value;
    EXPECT_TRUE(EvaluateFormula(FormulaText("2 + 3"), nullptr, value));
    EXPECT_EQ(value.MakeInt(), 5);
    EXPECT_FALSE(EvaluateFormula(FormulaText("2 +"), nullptr, value));
    EXPECT_TRUE(value.IsError());
    EXPECT_TRUE(Reports().empty());

    EvaluatorContext context;
    context.Set("depth", QAnyValue(8));
    EXPECT_TRUE(EvaluateFormula(FormulaText("depth + 1"), &context, value));
    EXPECT_EQ(value.MakeInt(), 9);
    SetFormulaEvaluatorHook(previous);
}

// ---------------------------------------------------------------------------------------------
// Tracing

TEST_F(EvaluatorTest, EveryEvaluationIsTracedWhenTheMaskAsksForIt) {
    const fs::path folder = m_logPath.string() + ".data";
    test::ScopedEnvironment environment("XDG_DATA_HOME", folder.c_str());
    UserTraceRestart();
    const unsigned mask = QWinApp::c_UserTraceMask;
    QWinApp::c_UserTraceMask = 0x1 | USER_TRACE_PLAIN_LINES;
    Run("2 * 21");
    Run("// nothing");
    QWinApp::c_UserTraceMask = 0;
    Run("3 * 3");
    const fs::path trace = U8(UserTraceFilePath());
    UserTraceClose();
    QWinApp::c_UserTraceMask = mask;

    const std::string text = test::ReadText(trace);
    EXPECT_NE(text.find("\tEvaluate{\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\t}Evaluate==>42\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\tEMPTY }Evaluate==>\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("==>9"), std::string::npos) << text;
    UserTraceRestart();
    fs::remove_all(folder);
}

} // namespace
} // namespace keel
