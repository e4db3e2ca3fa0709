#include "tests/support/evaluations.h"
#include "tests/support/namescontext.h"

#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"

#include <gtest/gtest.h>
#include <string>

namespace keel {
namespace {

using test::MessageOf;

// The expressions that need more than a context of names; the rest are in
// tests/formula/cases/expressions.txt.

using test::Evaluated;
using test::Evaluation;

// "#" and "@" look at the named contexts above: the room Room1 holds the shelf Shelf3, which
// holds a panel without a name.
class ExpressionsHashAndAt : public testing::Test {
protected:
    ExpressionsHashAndAt() {
        room.Set("width", QAnyValue(4000));
        shelf.Set("width", QAnyValue(600));
        panel.Set("width", QAnyValue(20));
        panel.MakeNameless();
    }

    test::NamesContext room{"Room1", nullptr, true};
    test::NamesContext shelf{"Shelf3", &room, true};
    test::NamesContext panel{"Panel", &shelf};
};

TEST_F(ExpressionsHashAndAt, GiveTheNumbersAndValuesOfTheContextsAbove) {
    EXPECT_EQ(Evaluated("#", &shelf).state, QCS_BySeq);
    EXPECT_EQ(Evaluated("#width", &shelf).state, QCS_BySeq);
    struct Case {
        const char* formula;
        bool fromPanel;
        int expected;
    } const cases[] = {
        {"#", false, 1},          {"@", false, 3},
        {"#width", false, 4000},  {"@width + width", false, 1200},
        {"#(Room1)", false, 1},   {"#(room1) width", false, 4000},
        {"@", true, 3},           {"@width", true, 600},
        {"#", true, 3},           {"##", true, 1},
        {"## width", true, 4000},
    };
    for (const Case& c : cases) {
        const Evaluation outcome = Evaluated(c.formula, c.fromPanel ? &panel : &shelf);
        EXPECT_TRUE(outcome.ok && outcome.value == QAnyValue(c.expected))
            << c.formula << ": " << outcome.message;
    }
}

TEST_F(ExpressionsHashAndAt, FailuresSayWhatIsMissing) {
    test::NamesContext plain{"Plain"};
    const std::pair<const char*, const char*> cases[] = {
        {"#(Nowhere)", "Error in finding value for #"},
        {"#(", "Expecting name in #()\nbut found end of formula"},
        {"#(Room1", "Expecting a matching ')' for the '(' in #()\nbut found end of formula"},
    };
    for (const auto& [formula, message] : cases) {
        const Evaluation outcome = Evaluated(formula, &shelf);
        EXPECT_FALSE(outcome.ok) << formula;
        EXPECT_EQ(outcome.message, message);
        EXPECT_EQ(MessageOf(outcome.value), message);
    }
    EXPECT_EQ(Evaluated("@", &plain).message, "Error in finding value for @");
}

} // namespace
} // namespace keel
