#include "tests/support/evaluations.h"
#include "tests/support/functioncalls.h"
#include "tests/support/namescontext.h"

#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formulacontext.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::MessageOf;

// An application's own constant, "answer", and the folders of an imagined installation.
class ProductEvaluator : public QEvaluator {
public:
    using QEvaluator::QEvaluator;

    bool EvaluateNamedConstantExtras(QAnyValue& result, PropId name) override {
        if (!(name == PropId("answer")))
            return false;
        if (IsEval())
            result = QAnyValue(42);
        return true;
    }
};

class ProductFactory : public test::EvaluatorFactoryOf<ProductEvaluator> {
public:
    ProductFactory() {
        folders = [](QConstantFolder folder) {
            return CString::Formatted(u"/product/folder%d", static_cast<int>(folder));
        };
    }
};

// Constants and the evaluator's entry points; the constants' values are in
// tests/formula/cases/constants.txt.
class ConstantsTest : public test::FunctionCallTest {
protected:
    void TearDown() override {
        QLength::SetDefaultUnits(QLength::LU_MM);
        FunctionCallTest::TearDown();
    }

    // The constant's value as the named-constant step gives it, or an error naming the miss.
    static QAnyValue Constant(const char* name) {
        QAnyValue ignored;
        QEvaluator evaluator(ignored, FormulaText("1"), nullptr, false, true, false);
        QAnyValue value;
        if (!evaluator.EvaluateNamedConstant(value, PropId(name)))
            value.MakeError(CString(u"no constant ") + CString(name));
        return value;
    }

    static QAnyValue Evaluated(const char* formula) {
        return test::Evaluated(formula, nullptr, {.report = true}).value;
    }
};

TEST_F(ConstantsTest, FoldersComeFromTheFactoryAndAreEmptyWithoutOne) {
    // The names and their folders are one table of the evaluator's; one plain name, one
    // spelled with underscores and the last folder show that each reaches the factory.
    const std::pair<const char*, QConstantFolder> folders[] = {
        {"programfolder", QConstantFolder::Program},
        {"table_folder", QConstantFolder::Table},
        {"mydocumentsproductfolder", QConstantFolder::MyDocumentsProduct},
    };
    for (const auto& [name, folder] : folders) {
        QAnyValue none = Constant(name);
        EXPECT_EQ(none.Type(), QAnyValue::TYPE_STRING) << name;
        EXPECT_EQ(none.MakeCString().ToUtf8(), "") << name;
    }
    ProductFactory factory;
    SetEvaluatorFactory(&factory);
    for (const auto& [name, folder] : folders)
        EXPECT_EQ(Constant(name).MakeCString().ToUtf8(),
                  "/product/folder" + std::to_string(static_cast<int>(folder)))
            << name;
}

TEST_F(ConstantsTest, AnApplicationAddsConstantsOfItsOwn) {
    EXPECT_TRUE(Evaluated("answer").IsError()) << "a plain evaluator has no such constant";
    TheErrorLog().DiscardPendingMessages();
    ProductFactory factory;
    SetEvaluatorFactory(&factory);
    EXPECT_EQ(Evaluated("answer * 2").MakeInt(), 84);
    EXPECT_EQ(QEvaluator::EvaluateFormulaAsInt(FormulaText("answer"), nullptr, false, true, false),
              42);
}

TEST_F(ConstantsTest, TheTypedEntryPointsChangeTheValueToTheirType) {
    const auto length = [](const char* formula) {
        return QEvaluator::EvaluateFormulaAsLength(FormulaText(formula), nullptr, false, true,
                                                   false)
            .GetRaw();
    };
    EXPECT_TRUE(
        QEvaluator::EvaluateFormulaAsBool(FormulaText("1 < 2"), nullptr, false, true, false));
    EXPECT_EQ(QEvaluator::EvaluateFormulaAsInt(FormulaText("3 * 4"), nullptr, false, true, false),
              12);
    EXPECT_DOUBLE_EQ(
        QEvaluator::EvaluateFormulaAsDouble(FormulaText("pi / 2"), nullptr, false, true, false),
        3.141592653589793 / 2);
    EXPECT_DOUBLE_EQ(length("2 ft"), 609.6);
    // A plain number is read in the default unit.
    QLength::SetDefaultUnits(QLength::LU_INCH);
    EXPECT_DOUBLE_EQ(length("5"), 127);
}

TEST_F(ConstantsTest, AFailedFormulaReportsAndGivesTheTypesDefault) {
    EXPECT_EQ(QEvaluator::EvaluateFormulaAsInt(FormulaText("3 *"), nullptr, false, true, false), 0);
    EXPECT_EQ(TheErrorLog().GetSize(), 1);
    EXPECT_EQ(QEvaluator::EvaluateFormulaAsInt(FormulaText("4 *"), nullptr, false, false, false),
              0);
    EXPECT_EQ(TheErrorLog().GetSize(), 1) << "without the report flag nothing more is shown";
}

TEST_F(ConstantsTest, AnActionVariableRunsAsAnActionWithAColonInFrontWhenItHoldsAText) {
    ProductFactory factory;
    SetEvaluatorFactory(&factory);
    test::NamesContext context;
    context.Set("go", QAnyValue(u"a := 1"));
    context.Set("stop", QAnyValue(u":a := 0"));
    EXPECT_TRUE(QEvaluator::ExecuteActionVariableIfAny(u"go", &context));
    ASSERT_EQ(factory.made.size(), 1u);
    EXPECT_EQ(factory.made[0].formula, ":a := 1");
    EXPECT_TRUE(factory.made[0].report);
    EXPECT_TRUE(factory.made[0].action);

    EXPECT_FALSE(QEvaluator::ExecuteActionVariableIfAny(u"stop", &context));
    ASSERT_EQ(factory.made.size(), 2u);
    EXPECT_EQ(factory.made[1].formula, ":a := 0") << "a colon is not doubled";

    // None runs for a missing or failing property.
    QAnyValue failing;
    failing.MakeError(u"bad");
    context.Set("broken", failing);
    EXPECT_FALSE(QEvaluator::ExecuteActionVariableIfAny(u"absent", &context));
    EXPECT_FALSE(QEvaluator::ExecuteActionVariableIfAny(u"broken", &context));
    EXPECT_FALSE(QEvaluator::ExecuteActionVariableIfAny(u"absent", nullptr));
    EXPECT_EQ(factory.made.size(), 2u);
}

} // namespace
} // namespace keel
