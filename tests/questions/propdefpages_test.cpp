#include "tests/support/namescontext.h"
#include "tests/support/questiondefs.h"

#include "keel/questions/propdeftabgroupset.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace keel::test {
namespace {

// A tab is enabled by its formula, or by its alternative formula in views that use those; an
// index out of range is not enabled.
TEST(QPropDefTabGroupEnabled, ATabIsEnabledByItsFormulaOrItsAlternative) {
    QPropDefTab front = Tab("Front");
    front.SetEnabledFormula(FormulaText("doors>1"));
    front.SetEnabledAlternativeFormula(FormulaText("doors>2"));
    const QPropDefTabGroup doors = Group("Doors", {front});
    NamesContext two;
    two.Set("doors", QAnyValue(2));
    EXPECT_TRUE(doors.IsEnabled(0, &two));
    EXPECT_FALSE(doors.IsEnabledAlternative(0, &two));
    EXPECT_FALSE(doors.IsEnabled(1, &two) || doors.IsEnabledAlternative(-1, &two));
    NamesContext three;
    three.Set("doors", QAnyValue(3));
    EXPECT_TRUE(doors.IsEnabledAlternative(0, &three));
}

// An object of the class under the context, given the sample's fields.
template <class T>
T Under(QFormulaContext* context, const T& sample = T()) {
    T object;
    object.DoSetParentContextAlways(context);
    object = sample;
    return object;
}

// The sample is copied from an object under one context, which then changes, and pasted twice
// into objects under another: each paste is the sample, its definitions down to the innermost
// (which `innermost` finds) under the pasting object's context. The clipboard keeps no context.
template <class T, class Change, class Innermost>
void CheckClipboard(const T& sample, Change change, Innermost innermost) {
    NamesContext copiedFrom("Source");
    NamesContext pastedInto("Target");
    T source = Under(&copiedFrom, sample);
    source.CopyToClipboard();
    change(source);
    EXPECT_TRUE(T::Clipboard() == sample) << "the clipboard holds a copy";
    EXPECT_EQ(innermost(T::Clipboard()), nullptr) << "the clipboard keeps no context";
    for (int paste = 0; paste < 2; ++paste) {
        T target = Under<T>(&pastedInto);
        target.PasteFromClipboard();
        EXPECT_TRUE(target == sample) << "paste " << paste;
        EXPECT_FALSE(target == source) << "paste " << paste;
        EXPECT_EQ(target.ParentContext(), &pastedInto);
        EXPECT_EQ(innermost(target), &pastedInto);
    }
}

TEST(QuestionClipboard, APasteGivesWhatWasCopiedUnderThePastingObjectsContext) {
    CheckClipboard<QPropDefTabGroup>(
        Group("Body", {Tab("Sizes", {"Width"}), Tab("Finish", {"Colour"})}),
        [](QPropDefTabGroup& group) { group.RemoveAt(0); },
        [](const QPropDefTabGroup& group) { return group.GetAt(0)->GetAt(0)->ParentContext(); });
}

} // namespace
} // namespace keel::test
