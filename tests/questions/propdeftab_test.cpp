#include "tests/support/exchangetests.h"
#include "tests/support/namescontext.h"
#include "tests/support/questiondefs.h"
#include "tests/support/questiondump.h"
#include "tests/support/uihosts.h"
#include "tests/support/xmloracle.h"

#include "keel/exchange/exportselection.h"
#include "keel/questions/propdeftabgroupset.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel::test {
namespace {

using Col = QPropDefTab::QColumnSize;

// --- Columns ----------------------------------------------------------------------------------

TEST(QPropDefTabColumns, ANewTabHasSixFillColumnsAndOutOfRangeIsFill) {
    QPropDefTab tab;
    ASSERT_EQ(tab.ColumnCount(), 6);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(tab.ColumnSize(i), Col());
    tab.SetColumnSize(0, {Col::Fixed, 120});
    EXPECT_EQ(tab.ColumnSize(99), Col()) << "beyond the end";
    EXPECT_EQ(tab.ColumnSize(-1), Col());
    tab.SetColumnSize(6, {Col::Fixed, 7});
    EXPECT_EQ(tab.ColumnCount(), 6) << "setting out of range does nothing";
    tab.SetColumnCount(8);
    EXPECT_EQ(tab.ColumnSize(0), (Col{Col::Fixed, 120}));
    EXPECT_EQ(tab.ColumnSize(7), Col()) << "added columns fill";
    tab.SetColumnCount(2);
    EXPECT_EQ(tab.ColumnCount(), 2);
}

TEST(QPropDefTabColumns, EachItemOfTheTextIsReadByItsPrefix) {
    const struct {
        const char* text;
        Col column;
        const char* written;
    } cases[] = {
        {"Fixed:120", {Col::Fixed, 120}, "Fixed:120"},
        {"fixed:7", {Col::Fixed, 7}, "Fixed:7"},
        {"FIXED:", {Col::Fixed, 0}, "Fixed:0"},
        {"Percent:25", {Col::Percent, 25}, "Percent:25"},
        {"percent:-5", {Col::Percent, -5}, "Percent:-5"},
        {"Fixed", {}, "Fill"},
        {"Percent25", {}, "Fill"},
        {"Fill", {}, "Fill"},
        {"", {}, "Fill"},
        {"Width:3", {}, "Fill"},
    };
    for (const auto& c : cases) {
        const Col column = Col::FromString(CString(c.text));
        EXPECT_EQ(column, c.column) << c.text;
        EXPECT_EQ(column.AsString().ToUtf8(), c.written) << c.text;
    }
}

TEST(QPropDefTabColumns, TheWholeArrayIsOneTextJoinedByBars) {
    QPropDefTab tab;
    EXPECT_EQ(tab.ColumnSizesAsString().ToUtf8(), "Fill|Fill|Fill|Fill|Fill|Fill");
    tab.SetColumnSizesFromString(u"Fixed:120|Percent:25|Fill");
    ASSERT_EQ(tab.ColumnCount(), 3);
    EXPECT_EQ(tab.ColumnSize(1), (Col{Col::Percent, 25}));
    EXPECT_EQ(tab.ColumnSizesAsString().ToUtf8(), "Fixed:120|Percent:25|Fill");
}

// --- Names and indices ------------------------------------------------------------------------

TEST(QPropDefTabGroupNames, UniqueNamesCountFromTwoAndCompareWithCase) {
    QPropDefTabGroup group(u"G");
    EXPECT_EQ(group.MakeUniqueTabName(u"New Tab").ToUtf8(), "New Tab");
    EXPECT_EQ(group.AddNewEmptyTab(), 0);
    EXPECT_EQ(group.AddNewEmptyTab(), 1);
    EXPECT_EQ(TabNames(group), "New Tab,New Tab 2");
    EXPECT_EQ(group.MakeUniqueTabName(u"New Tab").ToUtf8(), "New Tab 3");
    EXPECT_EQ(group.MakeUniqueTabName(u"new tab").ToUtf8(), "new tab") << "names keep case";

    group.SetNameAt(1, u"New Tab");
    EXPECT_EQ(TabNames(group), "New Tab,New Tab 3") << "a taken name is made unique";
    group.SetNameAt(1, u"New Tab 3");
    EXPECT_EQ(TabNames(group), "New Tab,New Tab 3") << "an unchanged name stays";
    group.SetNameAt(5, u"X");
    EXPECT_EQ(TabNames(group), "New Tab,New Tab 3");

    QPropDefTabGroupSet set;
    set.AddNewEmptyGroup();
    set.AddNewEmptyGroup();
    EXPECT_EQ(set.Name(0).ToUtf8(), "New Group");
    EXPECT_EQ(set.Name(1).ToUtf8(), "New Group 2");
    EXPECT_EQ(set.MakeUniqueGroupName(u"New Group").ToUtf8(), "New Group 3");
    EXPECT_EQ(set.Name(7).ToUtf8(), "");
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
    EXPECT_NE(group.GetAt(0), &again) << "the group holds a copy";
    EXPECT_EQ(group.Find(u"MAIN"), -1);
    EXPECT_EQ(group.Lookup(u"main")->GetAt(0)->Name(), ControlId(u"b"));
}

TEST(QPropDefTabGroupNames, TheCurrentTabIsClampedToTheTabs) {
    QPropDefTabGroup group(u"G");
    for (int asked : {3, 0, -2}) {
        group.SetCurrentTab(asked);
        EXPECT_EQ(group.CurrentTab(), -1) << "an empty group, " << asked;
    }
    EXPECT_EQ(group.CurrentTabPtr(), nullptr);
    group.AddNewEmptyTab();
    group.AddNewEmptyTab();
    const struct {
        int asked;
        int given;
    } cases[] = {{5, 1}, {2, 1}, {1, 1}, {0, 0}, {-4, 0}};
    for (const auto& c : cases) {
        group.SetCurrentTab(c.asked);
        EXPECT_EQ(group.CurrentTab(), c.given) << c.asked;
    }
    EXPECT_EQ(group.CurrentTabPtr(), group.GetAt(0));
}

TEST(QPropDefTabDefinitions, ReadingByIndexNumbersTheDefinitionAndRemovalClearsTheOrigin) {
    QPropDefTab tab = Tab("T", {"a", "b", "c"});
    EXPECT_EQ(tab.GetAt(2)->PropDefIndex(), 3);
    EXPECT_EQ(tab.GetAt(3), nullptr);
    EXPECT_EQ(tab.Find(tab.GetAt(1)), 1);
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

// --- Equality ---------------------------------------------------------------------------------

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
        {"column",
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
    two.SetEnabledAlternativeFormula(FormulaText(u"x>1"));
    EXPECT_NE(one, two);
    two.SetEnabledAlternativeFormula(FormulaText());
    const QPropDefTab other = Tab("B", {"z"});
    two.Add(&other);
    EXPECT_NE(one, two);

    const QPropDefTabGroupSet left = Set({one, Group("H", {})});
    QPropDefTabGroupSet right = Set({Group("H", {}), one});
    EXPECT_EQ(left, right);
    right.GetAt(1)->SetName(u"I");
    EXPECT_NE(left, right);
}

// --- Merge ------------------------------------------------------------------------------------

class QPropDefTabMergeTest : public ErrorReportsTest {};

// What a merge leaves of a tab that both groups hold, by strategy and answer.
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
        {false, false, true, true, false, true, false},
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
}

TEST_F(QPropDefTabMergeTest, TheGroupClipboardMergesIntoTheNamedOrTheCurrentGroup) {
    Group("Copied", {Tab("Extra"), Tab("Kept", {"new"})}).CopyToClipboard();
    const struct {
        const char* groupName;
        QMergeResolutionStrategy strategy;
        std::string first, second, firstKept;
    } cases[] = {
        {"", MERGE_KEEP_EXISTING, "Kept,Extra", "Kept", "old"},
        {"", MERGE_OVERWRITE, "Kept,Extra", "Kept", "new"},
        {"Second", MERGE_OVERWRITE, "Kept", "Kept,Extra", "old"},
        {"second", MERGE_OVERWRITE, "Kept", "Kept", "old"},
    };
    for (const auto& c : cases) {
        QPropDefTabGroupSet set;
        const QPropDefTabGroup first = Group("First", {Tab("Kept", {"old"})});
        const QPropDefTabGroup second = Group("Second", {Tab("Kept", {"old"})});
        set.Add(&first);
        set.Add(&second);
        set.SetCurrentTabGroup(0);
        set.MergeFromClipboard(c.strategy, CString(c.groupName));
        EXPECT_EQ(TabNames(*set.GetAt(0)), c.first) << c.groupName;
        EXPECT_EQ(TabNames(*set.GetAt(1)), c.second) << c.groupName;
        EXPECT_EQ(set.GetAt(0)->GetAt(0)->GetAt(0)->Name().ToString().ToUtf8(), c.firstKept)
            << c.groupName << " " << c.strategy;
        EXPECT_FALSE(set.GetAt(0)->GetAt(0)->IsFromTemplate());
    }
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

TEST(QPropDefTabEnabling, EachTabIsEnabledByItsFormulaOrAlwaysInEditMode) {
    NamesContext context;
    context.Set("doors", QAnyValue(2));
    QPropDefTabGroup group(u"G");
    QPropDefTab two = Tab("Two");
    two.SetEnabledFormula(FormulaText(u"doors>1"));
    two.SetEnabledAlternativeFormula(FormulaText(u"doors>2"));
    QPropDefTab three = Tab("Three");
    three.SetEnabledFormula(FormulaText(u"doors>2"));
    three.SetEnabledAlternativeFormula(FormulaText(u"doors>1"));
    group.Add(&two);
    group.Add(&three);
    const struct {
        int index;
        bool enabled, alternative;
    } cases[] = {{0, true, false}, {1, false, true}, {2, false, false}, {-1, false, false}};
    for (const auto& c : cases) {
        EXPECT_EQ(group.IsEnabled(c.index, &context), c.enabled) << c.index;
        EXPECT_EQ(group.IsEnabledAlternative(c.index, &context), c.alternative) << c.index;
        EXPECT_EQ(group.IsEnabledInActiveView(c.index, &context, false), c.enabled);
        EXPECT_EQ(group.IsEnabledInActiveView(c.index, &context, true), c.alternative);
    }
    group.SetEditMode(true);
    EXPECT_TRUE(group.IsEnabledInActiveView(1, &context, false));
}

// --- Export and import ------------------------------------------------------------------------

class QPropDefTabExchangeTest : public ExchangeFileTest {
protected:
    static QPropDefTabGroupSet Sample() {
        QPropDefTabGroupSet set;
        set.SetMinimumWidth(480);
        QPropDefTabGroup plain(u"Cabinet");
        plain.SetEnabledFormula(FormulaText(u"show>0"));
        QPropDefTab body = Tab("Body", {"Width", "Depth"});
        body.SetOnShow(FormulaText(u"beep()"));
        body.SetColumnSizesFromString(u"Fixed:120|Percent:25|Fill");
        body.SetIsFromLibrary(true);
        plain.Add(&body);
        const QPropDefTab empty = Tab("Empty");
        plain.Add(&empty);
        QPropDefTabGroup editor(u"Rows");
        editor.SetDefaultVlt(u"rows.vlt");
        editor.SetFormat(QPropDefTabGroup::c_formEditorFormat);
        editor.SetAutoSortRows(false);
        editor.SetQuoteRowHeadings(true);
        const QPropDefTab row = Tab("Row", {"Height"});
        editor.Add(&row);
        set.Add(&plain);
        set.Add(&editor);
        return set;
    }
};

TEST_F(QPropDefTabExchangeTest, ASetGoesThroughEachExportFormatWhole) {
    const QPropDefTabGroupSet sample = Sample();
    for (const char* name : {"set.tab", "set.xml", "set.viqx"}) {
        const CString path = PathOf(name);
        ASSERT_TRUE(sample.ExportData(path, false, false, nullptr)) << name;
        if (path.Right(5) == CString(u".viqx")) {
            EXPECT_TRUE(IsValidQuestionFile(path.ToUtf8()));
        }
        QPropDefTabGroupSet read;
        ASSERT_TRUE(read.ImportOrMergeFrom(path, false, nullptr)) << name;
        EXPECT_EQ(read, sample) << name;
        EXPECT_EQ(SetLines(read), SetLines(sample)) << name;
        EXPECT_EQ(read.Lookup(u"Cabinet")->GetAt(0)->GetAt(1)->PropDefIndex(), 2);
    }
}

TEST_F(QPropDefTabExchangeTest, LevelsAreNamedAndTabContextsCarryIdentifiersOnly) {
    const std::string path = Path("levels.tab");
    ASSERT_TRUE(Sample().ExportData(CString::FromUtf8(path), true, false, nullptr));
    const std::string text = ReadFileBytes(path);
    EXPECT_NE(text.find("Questions"), std::string::npos);
    EXPECT_NE(text.find("minimumwidth"), std::string::npos);
    EXPECT_EQ(text.find("Group"), std::string::npos) << text;
    EXPECT_EQ(text.find("Page"), std::string::npos) << text;
    EXPECT_EQ(text.find("Control"), std::string::npos) << text;
    EXPECT_NE(text.find("\tQuestions|Cabinet|Body|2\n"), std::string::npos) << text;
    EXPECT_NE(text.find("colsizes"), std::string::npos);
    EXPECT_EQ(text.find("Fill|Fill"), std::string::npos) << "the default columns are dropped";
    EXPECT_NE(text.find("defaultvlt"), std::string::npos);
    EXPECT_EQ(text.find("rowlocked"), std::string::npos) << "a default of the editor format";

    const std::string xml = Path("levels.xml");
    ASSERT_TRUE(Sample().ExportData(CString::FromUtf8(xml), true, false, nullptr));
    const std::string bytes = ReadFileBytes(xml);
    for (const char* element :
         {"<Questions", "<Group id=\"Rows\"", "<Page id=\"Body\"", "<Control id=\"2\""})
        EXPECT_NE(bytes.find(element), std::string::npos) << element << "\n" << bytes;
}

// Controls numbered in the file: the place each one takes, and how often the refusal is told.
TEST_F(QPropDefTabExchangeTest, ControlNumbersPlaceDefinitionsUpToTheCap) {
    const auto file = [](std::initializer_list<const char*> ids) {
        std::string xml = "<?xml version=\"1.0\"?>\n<Questions><Group id=\"G\"><Page id=\"P\">";
        for (const char* id : ids)
            xml += std::string("<Control id=\"") + id + "\" controltype=\"Edit\" name=\"n" + id +
                   "\"/>";
        return xml + "</Page></Group></Questions>\n";
    };
    const struct {
        std::initializer_list<const char*> ids;
        const char* names; // "." for an empty definition made to fill a gap
        int refusals;
    } cases[] = {
        {{"1", "2"}, "n1,n2", 0},     {{"3"}, ".,.,n3", 0}, {{"1", "0", "0"}, "n1,n0,n0", 0},
        {{"1", "-1"}, "n1,.,n_1", 0}, {{"501"}, "", 0},     {{"502", "1", "600", "-7"}, "n1", 1},
    };
    for (const auto& c : cases) {
        const std::string path = Path("controls.xml");
        WriteFileBytes(path, file(c.ids));
        QPropDefTabGroupSet set;
        set.ReadFromFile(CString::FromUtf8(path));
        const QPropDefTab* tab = set.GetAt(0)->GetAt(0);
        if (std::string(c.names).empty()) {
            EXPECT_EQ(tab->GetCount(), 501);
            EXPECT_EQ(tab->GetAt(500)->Name(), ControlId(u"n501"));
        } else {
            std::string names;
            for (int i = 0; i < tab->GetCount(); ++i) {
                const CString name = tab->GetAt(i)->Name().ToString();
                names += (i ? "," : "") + (name.IsEmpty() ? std::string(".") : name.ToUtf8());
            }
            EXPECT_EQ(names, c.names);
        }
        int refusals = 0;
        for (const Report& report : PendingReports())
            if (report.message == "Friendly page has too many controls, import file may be "
                                  "corrupt") {
                EXPECT_EQ(report.heading, "Import error");
                ++refusals;
            }
        EXPECT_EQ(refusals, c.refusals) << c.names;
        TheErrorLog().DiscardPendingMessages();
    }
}

TEST_F(QPropDefTabExchangeTest, AttributesOfTabsAndGroupsTakeSubstitutions) {
    const std::string path = Path("subst.xml");
    WriteFileBytes(path, "<?xml version=\"1.0\"?>\n<Questions minimumwidth=\"~2~\">"
                         "<Group id=\"G\" defaultvlt=\"~table~\"><Page id=\"P\" "
                         "enabledformula=\"w&gt;~1~\" colsizes=\"Fixed:~1~|Fill\"/>"
                         "</Group></Questions>\n");
    QPropDefTabGroupSet set;
    QArray<CString> values;
    QArray<CString> names;
    for (const auto& [value, name] :
         {std::pair{u"40", u"w"}, {u"300", u"width"}, {u"t.vlt", u"table"}}) {
        values.Add(CString(value));
        names.Add(CString(name));
    }
    ASSERT_TRUE(set.ReadFromFile(CString::FromUtf8(path), values, names));
    // A default table means the editor's format.
    EXPECT_EQ(SetLines(set), "minimumwidth=300\n"
                             "group G format=1 vlt=t.vlt\n"
                             "  tab P enabled=w>40 columns=Fixed:40|Fill\n");
    EXPECT_TRUE(set.HasSubstitutions());
    EXPECT_EQ(QPropDef::SubstituteValues(u"~1~").ToUtf8(), "~1~") << "arrays emptied after";
}

TEST_F(QPropDefTabExchangeTest, EmptyingBeforeAnImportKeepsTheTreeAndHonoursTheSelection) {
    QPropDefTabGroupSet set = Sample();
    const QSmartPtr<QExportSelection> selection(new QExportSelection{u"Width", u"Height"});
    EXPECT_TRUE(set.DeleteContentsPreImport(selection));
    EXPECT_EQ(set.Lookup(u"Cabinet")->GetAt(0)->GetCount(), 1);
    EXPECT_EQ(set.Lookup(u"Rows")->GetAt(0)->GetCount(), 0);

    QPropDefTab unnamed = Tab("T", {"Width"});
    const QPropDef anonymous;
    unnamed.Add(&anonymous);
    EXPECT_TRUE(unnamed.DeleteContentsPreImport(selection));
    EXPECT_EQ(unnamed.GetCount(), 2) << "a definition without a name keeps the tab whole";

    EXPECT_TRUE(set.DeleteContentsPreImport(nullptr));
    EXPECT_EQ(set.GetCount(), 2);
    EXPECT_EQ(set.GetTotalNumTabs(), 3);
    EXPECT_EQ(set.Lookup(u"Cabinet")->GetAt(0)->GetCount(), 0);
}

} // namespace
} // namespace keel::test
