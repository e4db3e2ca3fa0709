#include "tests/support/errorreports.h"
#include "tests/support/questiondefs.h"
#include "tests/support/uihosts.h"

#include "keel/questions/propdeftabgroupset.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel::test {
namespace {

using Col = QPropDefTab::QColumnSize;

TEST(QPropDefTabColumns, EachItemOfTheTextIsReadByItsPrefix) {
    const std::pair<const char*, const char*> cases[] = {
        {"fixed:7", "Fixed:7"}, {"FIXED:", "Fixed:0"}, {"percent:-5", "Percent:-5"},
        {"Fixed", "Fill"},      {"", "Fill"},          {"Width:3", "Fill"},
    };
    for (const auto& [text, written] : cases)
        EXPECT_EQ(Col::FromString(CString(text)).AsString().ToUtf8(), written) << text;
}

TEST(QPropDefTabGroupNames, UniqueNamesCountFromTwoAndCompareWithCase) {
    QPropDefTabGroup group(u"G");
    EXPECT_EQ(group.MakeUniqueTabName(u"New Tab").ToUtf8(), "New Tab");
    EXPECT_EQ(group.AddNewEmptyTab(), 0);
    EXPECT_EQ(group.AddNewEmptyTab(), 1);
    EXPECT_EQ(TabNames(group), "New Tab,New Tab 2");
    EXPECT_EQ(group.MakeUniqueTabName(u"new tab").ToUtf8(), "new tab") << "names keep case";

    group.SetNameAt(1, u"New Tab");
    EXPECT_EQ(TabNames(group), "New Tab,New Tab 3") << "a taken name is made unique";
    group.SetNameAt(1, u"New Tab 3");
    EXPECT_EQ(TabNames(group), "New Tab,New Tab 3") << "an unchanged name stays";
}

// Only "T" and "T <n>" for n from 2, written as %d writes it, take a number of the family "T".
TEST(QPropDefTabGroupNames, TheFirstFreeNumberOfTheFamilyIsGiven) {
    const struct {
        std::vector<const char*> names;
        const char* unique;
    } cases[] = {
        {{}, "T"},
        {{"T 2"}, "T"},
        {{"T", "T 3"}, "T 2"},
        {{"T", "T 2", "T 3", "T 4"}, "T 5"},
        {{"T", "T 1"}, "T 2"},
        {{"T", "T 02", "T  2", "T 2x", "T2", "t 2", "T 2 "}, "T 2"},
        {{"T", "T 2", "T 99999999999999999999"}, "T 3"},
    };
    for (const auto& c : cases) {
        QPropDefTabGroup group(u"G");
        QPropDefTabGroupSet set;
        for (const char* name : c.names) {
            const QPropDefTab tab{CString(name)};
            group.Add(&tab);
            const QPropDefTabGroup named{CString(name)};
            set.Add(&named);
        }
        EXPECT_EQ(group.MakeUniqueTabName(u"T").ToUtf8(), c.unique) << TabNames(group);
        EXPECT_EQ(set.MakeUniqueGroupName(u"T").ToUtf8(), c.unique) << TabNames(group);
    }
}

TEST(QPropDefTabGroupNames, AddingATabOfATakenNameReplacesIt) {
    QPropDefTabGroup group(u"G");
    QPropDefTab first = Tab("Main", {"a"});
    QPropDefTab lower = Tab("main", {"b"});
    QPropDefTab again = Tab("Main", {"c", "d"});
    EXPECT_EQ(group.Add(&first), 0);
    EXPECT_EQ(group.Add(&lower), 1) << "names compare with case";
    EXPECT_EQ(group.Add(&again), 0);
    EXPECT_EQ(group.GetCount(), 2);
    EXPECT_EQ(group.GetAt(0)->GetCount(), 2);
    EXPECT_EQ(group.Find(u"MAIN"), -1);
    EXPECT_EQ(group.Lookup(u"main")->GetAt(0)->Name(), ControlId(u"b"));
}

TEST(QPropDefTabDefinitions, ReadingByIndexNumbersTheDefinitionAndRemovalClearsTheOrigin) {
    QPropDefTab tab = Tab("T", {"a", "b", "c"});
    EXPECT_EQ(tab.GetAt(2)->PropDefIndex(), 3);
    EXPECT_EQ(tab.GetAt(3), nullptr);
    EXPECT_EQ(tab.Lookup(ControlId(u"B")), tab.GetAt(1)) << "control names fold case";
    tab.SetIsFromTemplate(true);
    tab.SetIsFromLibrary(true);
    tab.RemoveAllWithNoChange();
    EXPECT_TRUE(tab.IsFromTemplate() && tab.IsFromLibrary());
    tab = Tab("T", {"a", "b", "a"});
    tab.SetIsFromTemplate(true);
    tab.SetIsFromLibrary(true);
    EXPECT_TRUE(tab.RemoveName(ControlId(u"a")));
    EXPECT_EQ(tab.GetCount(), 1);
    EXPECT_FALSE(tab.IsFromTemplate() || tab.IsFromLibrary()) << "a changed tab is the user's";
}

TEST(QPropDefTabGroupNames, DeletingByOriginWalksEveryTabAndDropsEmptyGroups) {
    QPropDefTabGroupSet set;
    QPropDefTabGroup mixed(u"Mixed");
    QPropDefTabGroup templated(u"Templated");
    for (const char* name : {"t1", "user", "t2", "lib"}) {
        QPropDefTab tab = Tab(name);
        tab.SetIsFromTemplate(name[0] == 't');
        tab.SetIsFromLibrary(name[0] == 'l');
        mixed.Add(&tab);
        if (name[0] == 't')
            templated.Add(&tab);
    }
    set.Add(&mixed);
    set.Add(&templated);
    set.DeleteTemplateTabs();
    ASSERT_EQ(set.GetCount(), 1) << "a group left empty goes";
    EXPECT_EQ(TabNames(*set.GetAt(0)), "user,lib");
    set.DeleteLibraryTabs();
    EXPECT_EQ(TabNames(*set.GetAt(0)), "user");
    EXPECT_EQ(set.GetTotalNumTabs(), 1);
}

TEST(QPropDefTabEquality, EachFieldOfATabCounts) {
    const QPropDefTab base = Tab("T", {"a", "b"});
    const std::vector<std::pair<const char*, void (*)(QPropDefTab&)>> changes = {
        {"name", [](QPropDefTab& t) { t.SetName(u"U"); }},
        {"enabled", [](QPropDefTab& t) { t.SetEnabledFormula(FormulaText(u"1")); }},
        {"alternative", [](QPropDefTab& t) { t.SetEnabledAlternativeFormula(FormulaText(u"1")); }},
        {"action", [](QPropDefTab& t) { t.SetAction(FormulaText(u"1")); }},
        {"on show", [](QPropDefTab& t) { t.SetOnShow(FormulaText(u"1")); }},
        {"template", [](QPropDefTab& t) { t.SetIsFromTemplate(true); }},
        {"library", [](QPropDefTab& t) { t.SetIsFromLibrary(true); }},
        {"first column",
         [](QPropDefTab& t) {
             t.SetColumnSize(0, {Col::Percent, 0});
         }},
        {"last column",
         [](QPropDefTab& t) {
             t.SetColumnSize(5, {Col::Fixed, 1});
         }},
        {"columns", [](QPropDefTab& t) { t.SetColumnCount(7); }},
        {"order",
         [](QPropDefTab& t) {
             const QPropDef first = *t.GetAt(0);
             t.RemoveAt(0);
             t.Add(&first);
         }},
        {"definition", [](QPropDefTab& t) { t.GetAt(1)->SetQuestion(u"other"); }},
        {"count", [](QPropDefTab& t) { t.RemoveAllWithNoChange(); }},
    };
    EXPECT_EQ(QPropDefTab(base), base);
    for (const auto& [what, change] : changes) {
        QPropDefTab changed(base);
        change(changed);
        EXPECT_NE(changed, base) << what;
    }
    QPropDefTab renumbered(base);
    renumbered.GetAt(0)->SetPropDefIndex(40);
    EXPECT_EQ(renumbered, base) << "the index is no field";
}

TEST(QPropDefTabEquality, GroupsAndSetsMatchByNameInAnyOrder) {
    const QPropDefTabGroup one = Group("G", {Tab("A", {"x"}), Tab("B", {"y"})});
    QPropDefTabGroup two = Group("G", {Tab("B", {"y"}), Tab("A", {"x"})});
    EXPECT_EQ(one, two);
    two.SetCurrentTab(1);
    two.SetRowLocked(true);
    EXPECT_EQ(one, two) << "only name, formulas and tabs count";
    const QPropDefTab other = Tab("B", {"z"});
    two.Add(&other);
    EXPECT_NE(one, two);

    const QPropDefTabGroupSet left = Set({one, Group("H", {})});
    QPropDefTabGroupSet right = Set({Group("H", {}), one});
    EXPECT_EQ(left, right);
    right.GetAt(1)->SetName(u"I");
    EXPECT_NE(left, right);
}

class QPropDefTabMergeTest : public ErrorReportsTest {};

TEST_F(QPropDefTabMergeTest, ATabIsReplacedWholeByStrategyOrNotAtAll) {
    const struct {
        QMergeResolutionStrategy strategy;
        int answer;
        const char* kept;
        int boxes;
    } cases[] = {
        {MERGE_OVERWRITE, IDOK, "new", 0},
        {MERGE_KEEP_EXISTING, IDYES, "old", 0},
        {MERGE_ASK, IDYES, "new", 1},
        {MERGE_ASK, IDNO, "old", 1},
    };
    for (const auto& c : cases) {
        RecordingHost host(c.answer);
        ScopedUIServices scope(host);
        QPropDefTabGroup target = Group("Cabinet", {Tab("Doors", {"old"})});
        const QPropDefTabGroup source = Group("Cabinet", {Tab("Doors", {"new", "more"})});
        target.Merge(&source, c.strategy, false, false, false);
        const std::string kept = target.GetAt(0)->GetAt(0)->Name().ToString().ToUtf8();
        EXPECT_EQ(kept, c.kept) << c.strategy << " " << c.answer;
        ASSERT_EQ(host.boxes.size(), static_cast<std::size_t>(c.boxes));
        if (c.boxes) {
            EXPECT_EQ(host.boxes[0], "Replace tab for\n'Doors'\nin group\n'Cabinet'");
        }
    }
}

TEST_F(QPropDefTabMergeTest, EqualTabsAskNothingAndTheDeleteMarkerRemovesOnlyOnOverwrite) {
    RecordingHost host(IDYES);
    ScopedUIServices scope(host);
    for (QMergeResolutionStrategy strategy : {MERGE_OVERWRITE, MERGE_KEEP_EXISTING, MERGE_ASK}) {
        QPropDefTabGroup target = Group("G", {Tab("Same", {"a"}), Tab(":DeleteMe:", {"z"})});
        const QPropDefTabGroup source = Group("G", {Tab("Same", {"a"}), Tab(":deleteme:")});
        const QPropDefTabGroup exactSource = Group("G", {Tab(":DeleteMe:")});
        target.Merge(&exactSource, strategy, false, false, false);
        const bool removed = strategy == MERGE_OVERWRITE;
        EXPECT_EQ(TabNames(target), removed ? "Same" : "Same,:DeleteMe:") << strategy;
        target.Merge(&source, strategy, false, false, false);
        EXPECT_EQ(target.GetAt(0)->GetCount(), 1);
    }
    EXPECT_TRUE(host.boxes.empty()) << "equal tabs and markers ask nothing";
}

TEST_F(QPropDefTabMergeTest, OriginFlagsFollowTheArgumentsOrTheSource) {
    const struct {
        bool asTemplate, asLibrary, keepOrigin, sourceTemplate, sourceLibrary;
        bool wantTemplate, wantLibrary;
    } cases[] = {
        {false, false, false, true, true, false, false},
        {true, false, false, false, false, true, false},
        {false, true, false, false, false, false, true},
        {false, false, true, false, true, false, true},
    };
    for (const auto& c : cases) {
        for (bool existing : {false, true}) {
            QPropDefTab tab = Tab("T", {"new"});
            tab.SetIsFromTemplate(c.sourceTemplate);
            tab.SetIsFromLibrary(c.sourceLibrary);
            QPropDefTabGroup target = existing ? Group("G", {Tab("T", {"old"})}) : Group("G", {});
            const QPropDefTabGroup source = Group("G", {tab});
            target.Merge(&source, MERGE_OVERWRITE, c.asTemplate, c.asLibrary, c.keepOrigin);
            EXPECT_EQ(target.GetAt(0)->IsFromTemplate(), c.wantTemplate) << existing;
            EXPECT_EQ(target.GetAt(0)->IsFromLibrary(), c.wantLibrary) << existing;
        }
    }
}

TEST_F(QPropDefTabMergeTest, ASetAddsNewGroupsMergesKnownOnesAndTakesTheWidth) {
    QPropDefTabGroupSet target = Set({Group("Known", {Tab("A", {"old"})})});
    QPropDefTabGroupSet source =
        Set({Group("Known", {Tab("B", {"b"})}), Group("Fresh", {Tab("A", {"old"})})});
    source.SetMinimumWidth(320);

    QPropDefTabGroupSet empty;
    empty.SetMinimumWidth(99);
    target.Merge(&empty, MERGE_OVERWRITE, false, false, false);
    EXPECT_EQ(target.MinimumWidth(), 0) << "an empty source does nothing";

    target.Merge(&source, MERGE_OVERWRITE, true, false, true);
    ASSERT_EQ(target.GetCount(), 2);
    EXPECT_EQ(TabNames(*target.Lookup(u"Known")), "A,B");
    EXPECT_TRUE(target.Lookup(u"Fresh")->GetAt(0)->IsFromTemplate());
    EXPECT_TRUE(target.Lookup(u"Known")->GetAt(1)->IsFromTemplate());
    EXPECT_FALSE(target.Lookup(u"Known")->GetAt(0)->IsFromTemplate()) << "untouched";
    EXPECT_EQ(target.MinimumWidth(), 320);
    QPropDefTabGroupSet library;
    library.Merge(&source, MERGE_OVERWRITE, false, true, true);
    EXPECT_TRUE(library.Lookup(u"Fresh")->GetAt(0)->IsFromLibrary());
}

TEST(QPropDefTabControllers, EveryDefinitionOfTheKeyIsNamedWithItsGroupAndTab) {
    QPropDefTab sizes = Tab("Sizes");
    QPropDefTab front = Tab("Front");
    const QPropDef width = Def("Width", "How wide?");
    const QPropDef other = Def("Depth", "How deep?");
    sizes.Add(&other);
    sizes.Add(&width);
    front.Add(&width);
    const QPropDefTabGroupSet set = Set({Group("Body", {sizes}), Group("Doors", {front})});
    EXPECT_EQ(set.GetControllingFriendlyPageQuestion(PropId(u"Width")).ToUtf8(),
              "Body:Sizes:How wide?;Doors:Front:How wide?");
    EXPECT_EQ(set.GetControllingFriendlyPageQuestion(PropId(u"Height")).ToUtf8(), "");
}

} // namespace
} // namespace keel::test
