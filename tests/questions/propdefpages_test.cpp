#include "tests/support/namescontext.h"
#include "tests/support/questiondefs.h"

#include "keel/questions/propdeftabgroupset.h"
#include "keel/questions/pscategory.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace keel::test {
namespace {

// The tab index of each page, -1 for the default page.
std::vector<int> PageIndices(const QPSCategory& category) {
    std::vector<int> indices;
    for (const QPropPageClass& page : category.GetPages())
        indices.push_back(page.IsDefaultPropPage() ? -1 : page.tabIndex);
    return indices;
}

QPropDefTab EnabledTab(const char* name, const char* enabled, const char* alternative) {
    QPropDefTab tab = Tab(name);
    tab.SetEnabledFormula(FormulaText(enabled));
    tab.SetEnabledAlternativeFormula(FormulaText(alternative));
    return tab;
}

// Three tabs: the first and last enabled when there is more than one door, the middle one in
// views that use the alternative formulas.
QPropDefTabGroup Doors() {
    return Group("Doors",
                 {EnabledTab("Front", "doors>1", "doors>2"),
                  EnabledTab("Side", "doors>2", "doors>1"), EnabledTab("Back", "doors>1", "0")});
}

// Each tab enabled in the view gives the page of its index, or the default page stands in; edit
// mode offers every tab. Groups are found by their exact names alone.
TEST(QPropDefTabGroupSetCategory, AGroupFoundByItsExactNameGivesAFriendlyCategoryOfItsPages) {
    QPropDefTabGroupSet set = Set(
        {Group("Closed", {EnabledTab("Shut", "doors>5", "doors>5"), EnabledTab("Never", "0", "0")}),
         Doors()});
    const struct {
        const char* name;
        int doors;
        bool editMode, alternative;
        std::vector<int> pages; // none: no category
    } cases[] = {
        {"Doors", 2, false, false, {0, 2}}, {"Doors", 2, false, true, {1}},
        {"Doors", 0, false, true, {-1}},    {"Doors", 0, true, true, {0, 1, 2}},
        {"Closed", 2, false, false, {-1}},  {"Closed", 2, true, false, {0, 1}},
        {"doors", 2, false, false, {}},     {"Missing", 2, true, false, {}},
    };
    for (const auto& c : cases) {
        NamesContext context;
        context.Set("doors", QAnyValue(c.doors));
        set.SetEditMode(c.editMode);
        const QPSCategoryPtr category = set.GetCategory(CString(c.name), &context, c.alternative);
        const std::string what = std::string(c.name) + " " + std::to_string(c.doors) + " " +
                                 std::to_string(c.editMode) + std::to_string(c.alternative);
        ASSERT_EQ(category.Get() != nullptr, !c.pages.empty()) << what;
        if (!category)
            continue;
        EXPECT_EQ(category->GetName().ToUtf8(), c.name);
        EXPECT_TRUE(category->IsFriendly()) << what;
        EXPECT_EQ(PageIndices(*category), c.pages) << what;
    }
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
