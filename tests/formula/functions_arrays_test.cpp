#include "tests/support/anyvalues.h"
#include "tests/support/namescontext.h"

#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace keel {
namespace {

using test::Array;
using testing::HasSubstr;

using ArraysContext = test::NamesContext;

// A value as the tables below write it: "(3, 1)" for an array, "<empty>", "#ERR <message>",
// texts in quotes, anything else in its display form.
std::string Shown(const QAnyValue& value) {
    if (value.IsArray()) {
        std::string shown = "(";
        for (int i = 1; i <= value.GetSize(); ++i)
            shown += (i > 1 ? ", " : "") + Shown(value.GETAT(i));
        return shown + ")";
    }
    if (value.IsEmpty())
        return "<empty>";
    if (value.IsError())
        return "#ERR " + test::MessageOf(value);
    if (value.IsString())
        return "\"" + QAnyValue(value).MakeCString().ToUtf8() + "\"";
    return QAnyValue(value).MakeCString().ToUtf8();
}

struct Outcome {
    bool ok = false;
    QAnyValue value;
    std::string message;
};

Outcome Evaluated(const char* formula, QFormulaContext* context, bool action) {
    Outcome outcome;
    QEvaluator evaluator(outcome.value, FormulaText(formula), context, false, false, action);
    outcome.ok = evaluator.Evaluate();
    outcome.message = evaluator.Message().ToUtf8();
    return outcome;
}

class FunctionsArrays : public testing::Test {
protected:
    FunctionsArrays() {
        m_shelf.Set("a", Array({3, 1, 2, 1}));
        m_shelf.Set("b", Array({1, 2}));
        m_shelf.Set("holes", Array({1, QAnyValue(), 2}));
        m_shelf.Set("s", 5);
        m_shelf.Set("locked", Array({1, 2}));
        m_shelf.Set("broken", test::Error("no such thing"));
    }

    std::string ValueOf(const char* formula, bool action = false) {
        const Outcome outcome = Evaluated(formula, &m_shelf, action);
        return outcome.ok ? Shown(outcome.value) : "failed: " + outcome.message;
    }

    ArraysContext m_shelf;
};

struct ArrayCase {
    const char* formula;
    const char* expected;
};

class FunctionsArraysValues : public FunctionsArrays,
                              public testing::WithParamInterface<ArrayCase> {};

TEST_P(FunctionsArraysValues, GiveTheirValue) {
    EXPECT_EQ(ValueOf(GetParam().formula), GetParam().expected) << GetParam().formula;
}

INSTANTIATE_TEST_SUITE_P(
    Table, FunctionsArraysValues,
    testing::Values(
        ArrayCase{"count(a)", "4"}, ArrayCase{"count(s)", "1"},
        ArrayCase{"count(broken)", "#ERR no such thing"},
        // first and last take one element unless told
        ArrayCase{"first(a)", "(3)"}, ArrayCase{"first(a, 2)", "(3, 1)"},
        ArrayCase{"first(a, 9)", "(3, 1, 2, 1)"}, ArrayCase{"last(a)", "(1)"},
        ArrayCase{"last(a, 3)", "(1, 2, 1)"}, ArrayCase{"last(a, broken)", "#ERR no such thing"},
        ArrayCase{"first(a, broken)", "#ERR no such thing"},
        // middle without a count runs to the end; a start before 1 shortens the count
        ArrayCase{"middle(a, 2)", "(1, 2, 1)"}, ArrayCase{"middle(a, 2, 2)", "(1, 2)"},
        ArrayCase{"middle(a, 0, 2)", "(3)"}, ArrayCase{"middle(a, 5)", "()"},
        ArrayCase{"getat(a, 3)", "2"},
        ArrayCase{"getat(a, 5)",
                  "#ERR Array subscript out of bounds [5] but should be in range [1 to 4]"},
        ArrayCase{"getat(a, 0)",
                  "#ERR Array subscript out of bounds [0] but should be in range [1 to 4]"},
        // only the first argument is taken whole: an array of positions is spread
        ArrayCase{"getat(a, b)", "(3, 1)"}, ArrayCase{"reverse(a)", "(1, 2, 1, 3)"},
        ArrayCase{"sort(a)", "(1, 1, 2, 3)"}, ArrayCase{"uniq(a)", "(3, 1, 2, 1)"},
        ArrayCase{"uniq(sort(a))", "(1, 2, 3)"}, ArrayCase{"reverse(s)", "(5)"},
        ArrayCase{"sort(broken)", "#ERR no such thing"},
        // compact drops the empty elements, or those equal to the value given
        ArrayCase{"compact(holes)", "(1, 2)"}, ArrayCase{"compact(a, 1)", "(3, 2)"},
        ArrayCase{"compact(a, 7)", "(3, 1, 2, 1)"},
        ArrayCase{"compact(broken)", "#ERR no such thing"}));

TEST_F(FunctionsArrays, SetArrayValueChangesTheContextsArray) {
    EXPECT_EQ(ValueOf("setarrayvalue(\"a\", 2, 9)", true), "(3, 9, 2, 1)");
    EXPECT_EQ(Shown(m_shelf.Get("a")), "(3, 9, 2, 1)");
}

TEST_F(FunctionsArrays, SetArrayValueChangesALocalArray) {
    EXPECT_EQ(ValueOf("x := a; setarrayvalue(\"x\", 1, \"new\"); x", true), "(\"new\", 1, 2, 1)");
    EXPECT_EQ(Shown(m_shelf.Get("a")), "(3, 1, 2, 1)");
}

struct SetArrayFailure {
    const char* formula;
    const char* message;
};

class FunctionsArraysSetFailures : public FunctionsArrays,
                                   public testing::WithParamInterface<SetArrayFailure> {};

TEST_P(FunctionsArraysSetFailures, GiveAnErrorValue) {
    const Outcome outcome = Evaluated(GetParam().formula, &m_shelf, true);
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(test::MessageOf(outcome.value), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FunctionsArraysSetFailures,
    testing::Values(
        SetArrayFailure{"setarrayvalue(\"s\", 1, 2)", "param1 not a valid array name [s]"},
        SetArrayFailure{"setarrayvalue(\"nowhere\", 1, 2)",
                        "param1 not a valid array name [nowhere]"},
        SetArrayFailure{"setarrayvalue(\"locked\", 1, 2)", "Failed to set new value for locked"},
        SetArrayFailure{"setarrayvalue(\"a\", 5, 2)",
                        "Array subscript out of bounds [5] but should be in range [1 to 4]"}));

TEST_F(FunctionsArrays, SetArrayValueIsOnlyForActionFields) {
    const Outcome outcome = Evaluated("setarrayvalue(\"a\", 2, 9)", &m_shelf, false);
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.message, HasSubstr("Only allowed in an action field"));
    EXPECT_EQ(Shown(m_shelf.Get("a")), "(3, 1, 2, 1)");
}

TEST_F(FunctionsArrays, ACountOutsideTheRangeIsRefused) {
    for (const char* formula :
         {"count()", "count(a, 1)", "first(a, 1, 2)", "last()", "middle(a)", "getat(a)",
          "reverse()", "sort(a, 1)", "uniq(a, 1)", "compact(a, 1, 2)", "setarrayvalue(\"a\", 1)"}) {
        const Outcome outcome = Evaluated(formula, &m_shelf, true);
        EXPECT_FALSE(outcome.ok) << formula;
        EXPECT_THAT(outcome.message, HasSubstr("correct number of values")) << formula;
    }
}

} // namespace
} // namespace keel
