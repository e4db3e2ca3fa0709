#include "tests/support/evaluations.h"
#include "tests/support/functioncalls.h"
#include "tests/support/namescontext.h"

#include "keel/formula/builtins.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/random.h"

#include <gtest/gtest.h>
#include <string>

namespace keel {
namespace {

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

using ExtrasFactory = test::EvaluatorFactoryOf<ExtrasEvaluator>;

using Outcome = test::CallOutcome;

using FunctionsLogicTest = test::FunctionCallTest;

TEST_F(FunctionsLogicTest, TheReservedNamesAreKnownAndHaveNoBodyHere) {
    LogicContext context;
    for (const QBuiltinFunction& row : ApplicationFunctions().functions) {
        const std::string name = CString(row.name).ToUtf8();
        EXPECT_EQ(FindBuiltinFunction(FullId(row.name)), &row) << name;
        EXPECT_EQ(row.body, nullptr) << name;
        // A property of the same name is not called instead.
        context.Set(name.c_str(), QAnyValue(u"%1"));
        const Outcome outcome = Run(name + "(1)", &context);
        EXPECT_FALSE(outcome.ok) << name;
        EXPECT_EQ(outcome.message, WrongCount(name, "one value"));
    }
}

TEST_F(FunctionsLogicTest, AnApplicationServesReservedNamesAndOtherCountsThroughItsExtras) {
    ExtrasFactory factory;
    SetEvaluatorFactory(&factory);
    ExtrasEvaluator::c_derivedAsked = 0;
    ExpectValues({{"report(5)", QAnyValue(u"reported 5")},
                  {"len(\"abc\", 10)", QAnyValue(13)},
                  {"len(\"abcd\")", QAnyValue(4)}});
    EXPECT_EQ(ExtrasEvaluator::c_derivedAsked, 0);
    EXPECT_EQ(Run("report(1, 2)").message, WrongCount("report", "two values"));
    EXPECT_EQ(Run("len(1, 2, 3)").message, WrongCount("len", "three values"));
}

TEST_F(FunctionsLogicTest, RandAndRandomScaleTheGeneratorDifferently) {
    keel::srand(1);
    const int first = keel::rand();
    keel::srand(1);
    ExpectValues({{"rand()", QAnyValue(first / 32768.0)}});
    keel::srand(1);
    ExpectValues({{"random()", QAnyValue(first / 32767.0)}});
}

// The draw itself is the value's rule; the call must hand it its limits in order.
TEST_F(FunctionsLogicTest, RandBetweenDrawsBetweenItsLimitsInOrder) {
    keel::srand(3);
    const QAnyValue drawn = QAnyValue(1).RANDBETWEEN(QAnyValue(1000));
    keel::srand(3);
    ExpectValues({{"randbetween(1, 1000)", drawn}});
}

} // namespace
} // namespace keel
