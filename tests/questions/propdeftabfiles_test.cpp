#include "tests/support/archivebytes.h"
#include "tests/support/exchangetests.h"
#include "tests/support/paths.h"
#include "tests/support/questiondump.h"
#include "tests/support/uihosts.h"
#include "tests/support/xmloracle.h"

#include "keel/platform/schema.h"
#include "keel/questions/propdeftabgroupset.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace keel::test {
namespace {

using D = QPropDef;

std::string QuestionData(const std::string& name) {
    return TestDataFolder() + "/questions/" + name;
}

QArray<CString> Strings(std::initializer_list<const char16_t*> texts) {
    QArray<CString> array;
    for (const char16_t* text : texts)
        array.Add(CString(text));
    return array;
}

// The messages that reached the log, each "heading: message".
std::string ReportLines() {
    std::string lines;
    for (const Report& report : PendingReports())
        lines += report.heading + ": " + report.message + "\n";
    return lines;
}

class QuestionFileTest : public ExchangeFileTest {
protected:
    CString Written(const std::string& name, const std::string& bytes) {
        const std::string path = Path(name);
        WriteFileBytes(path, bytes);
        return CString::FromUtf8(path);
    }
};

// --- The legacy question file -----------------------------------------------------------------

TEST_F(QuestionFileTest, EveryKindOfControlIsReadWithTheOlderConversions) {
    QPropDefTabGroupSet set;
    const CString path = CString::FromUtf8(QuestionData("every-kind.viq"));
    ASSERT_TRUE(
        set.ReadFromFile(path, Strings({u"wide", u"walnut"}), Strings({u"width", u"finish"})))
        << ReportLines();
    EXPECT_EQ(set.FileName(), path);
    EXPECT_TRUE(set.HasSubstitutions());
    // Markers take the numbered and named values. Fields a kind has no use for are dropped; a
    // height kept in a width field, the picture of a thumbnail and an edit's own widths stay. A
    // lone blank was the old empty question. Two options of one name share it by value; the
    // next name starts a group of its own. "[tab]Fittings" is the old form of a tab line.
    EXPECT_EQ(SetLines(set), ReadFileBytes(QuestionData("every-kind.dump")));
    EXPECT_EQ(D::SubstituteValues(u"~1~").ToUtf8(), "~1~") << "arrays emptied after the read";
}

TEST_F(QuestionFileTest, BytesThatAreNotUtf8AreReadInTheWesternCodePage) {
    // UTF-8, UTF-8 after its byte order mark, and the Western code page.
    for (const char* name : {"Caf\xc3\xa9", "\xef\xbb\xbf[group]\tCaf\xc3\xa9", "Caf\xe9"}) {
        const std::string line = name[0] == 'C' ? std::string("[group]\t") + name : name;
        QPropDefTabGroupSet set;
        ASSERT_TRUE(set.ReadFromFile(Written("coded.viq", line + "\n[tab]\tT\n")));
        EXPECT_EQ(set.GetAt(0)->Name(), CString(u"Caf\u00e9")) << line;
    }
}

// A malformed file: what is reported, and that the load is given up whole.
TEST_F(QuestionFileTest, EachMalformedFileIsReportedAndUnwindsTheLoad) {
    const struct {
        const char* bytes;
        const char* wanted;
        int answer;
        const char* box;
        const char* report;
    } cases[] = {
        {"Width\tWidth\n", nullptr, IDYES, nullptr,
         "Error while reading question definitions\nExpecting [group] at start of groupname but "
         "found\nWidth\tWidth"},
        {"[group]\tG\n[tab]\tT\nW\tW\n#rest\n", nullptr, IDYES, nullptr,
         "Error while reading question definitions\nExpecting [tab] at start of tabname but "
         "found\n#rest"},
        {"[group]\tOther\n[tab]\tT\n", "Wanted", IDNO,
         "Trying to read Wanted, not found, but we can import Other\nProceed?",
         "Error while reading question definitions\nCould not find Wanted"},
        {"\n", "Wanted", IDYES, nullptr,
         "Error while reading question definitions\nCould not find Wanted"},
    };
    for (const auto& c : cases) {
        RecordingHost host(c.answer);
        ScopedUIServices scope(host);
        QPropDefTabGroup group;
        const CString path = Written("bad.viq", c.bytes);
        try {
            group.ReadFromFile(path, Strings({u"x"}), {}, c.wanted ? CString(c.wanted) : CString());
            ADD_FAILURE() << "no exception for " << c.report;
        } catch (const CFileException& error) {
            EXPECT_EQ(error.m_cause, CFileException::genericException);
            EXPECT_EQ(error.m_lOsError, -1);
        }
        EXPECT_EQ(ReportLines(), std::string("Define Questions: ") + c.report + "\n");
        EXPECT_EQ(host.boxes.size(), c.box ? 1u : 0u);
        if (c.box) {
            EXPECT_EQ(host.boxes[0], c.box);
        }
        EXPECT_EQ(D::SubstituteValues(u"~1~").ToUtf8(), "~1~");
        TheErrorLog().DiscardPendingMessages();
    }

    QPropDefTabGroupSet set;
    EXPECT_THROW(set.ReadFromFile(Written("bad.viq", "nothing\n"), Strings({u"x"})),
                 CFileException);
    EXPECT_TRUE(set.FileName().IsEmpty());
    EXPECT_FALSE(set.HasSubstitutions());
}

TEST_F(QuestionFileTest, AWantedGroupIsFoundOrAnotherTakenWhenTheUserAgrees) {
    const CString path = Written("two.viq", "[group]\tFirst\n[tab]\tA\n[group]\tSecond\n[tab]\tB\n"
                                            "[tab]\tC\n");
    QPropDefTabGroup second;
    ASSERT_TRUE(second.ReadFromFile(path, {}, {}, u"Second"));
    EXPECT_EQ(second.Name().ToUtf8(), "Second");
    EXPECT_EQ(second.GetCount(), 2);

    RecordingHost host(IDYES);
    ScopedUIServices scope(host);
    QPropDefTabGroup other;
    ASSERT_TRUE(other.ReadFromFile(path, {}, {}, u"Third"));
    EXPECT_EQ(other.Name().ToUtf8(), "First");
    EXPECT_EQ(host.boxes.at(0), "Trying to read Third, not found, but we can import First\n"
                                "Proceed?");
}

TEST_F(QuestionFileTest, AMissingOrEmptyFileIsReportedWithItsName) {
    QPropDefTabGroupSet set;
    const std::string missing = Path("missing.viq");
    EXPECT_FALSE(set.ReadFromFile(CString::FromUtf8(missing)));
    const CString empty = Written("empty.viq", "");
    EXPECT_FALSE(set.ReadFromFile(empty));
    EXPECT_EQ(ReportLines(), "Define Questions: Cannot find " + missing + "\n" +
                                 "Define Questions: Load fails for " + empty.ToUtf8() + "\n");
}

TEST_F(QuestionFileTest, TheLegacyFormIsNeverWritten) {
    QPropDefTabGroupSet set;
    ASSERT_TRUE(set.ReadFromFile(CString::FromUtf8(QuestionData("every-kind.viq"))));
    const std::string legacy = Path("a.viq");
    const std::string current = Path("a.viqx");
    ASSERT_TRUE(set.WriteToFile(CString::FromUtf8(legacy)));
    EXPECT_FALSE(std::filesystem::exists(legacy));
    EXPECT_TRUE(IsValidQuestionFile(current));
    EXPECT_NE(ReadFileBytes(current).find("<Questions"), std::string::npos);
    EXPECT_EQ(set.FileName().ToUtf8(), current);

    const std::string group = Path("g.viqx");
    ASSERT_TRUE(set.GetAt(0)->WriteToFile(CString::FromUtf8(Path("g.viq"))));
    EXPECT_TRUE(IsValidQuestionFile(group));
    EXPECT_NE(ReadFileBytes(group).find("<Group enabledformula"), std::string::npos);
    EXPECT_NE(ReadFileBytes(group).find("<Page id=\"Fittings\""), std::string::npos);

    const auto& extensions = QPropDefTabGroupSet::ExternalPropDefFileExts();
    ASSERT_EQ(extensions.GetSize(), 2);
    EXPECT_EQ(extensions[0].ToUtf8(), ".viqx");
    EXPECT_EQ(extensions[1].ToUtf8(), ".viq");
}

TEST_F(QuestionFileTest, SubstitutedValuesAreLostOnlyWhenTheUserAgreesAndAPathIsAskedFor) {
    QPropDefTabGroupSet set;
    ASSERT_TRUE(
        set.ReadFromFile(CString::FromUtf8(QuestionData("every-kind.viq")), Strings({u"wide"})));
    const std::string target = Path("kept.viqx");
    {
        RecordingHost host(IDNO);
        ScopedUIServices scope(host);
        EXPECT_FALSE(set.WriteToFile(CString::FromUtf8(target)));
        EXPECT_EQ(host.boxes.at(0), "Value substitutions will be lost. Continue with save?");
    }
    EXPECT_FALSE(std::filesystem::exists(target));

    QPropDefTabGroupSet plain;
    ExportDialogHost dialog;
    ScopedUIServices scope(dialog);
    dialog.chosenPath = Path("chosen.viq");
    ASSERT_TRUE(plain.WriteToFile(CString()));
    ASSERT_EQ(dialog.dialogs.size(), 1u);
    EXPECT_TRUE(dialog.dialogs[0].save);
    EXPECT_EQ(dialog.dialogs[0].title, "Export Questions");
    EXPECT_EQ(dialog.dialogs[0].filter, "Questions (*.viqx)|*.viqx||");
    EXPECT_EQ(dialog.dialogs[0].defaultExt, ".viqx");
    EXPECT_TRUE(IsValidQuestionFile(Path("chosen.viqx")));
}

TEST_F(QuestionFileTest, ALegacyFileSurvivesTheCurrentFileAndTheTabFileUnchanged) {
    QPropDefTabGroupSet legacy;
    ASSERT_TRUE(legacy.ReadFromFile(CString::FromUtf8(QuestionData("every-kind.viq")),
                                    Strings({u"wide", u"walnut"}), Strings({u"width", u"finish"})));
    legacy.SetMinimumWidth(250);
    const CString current = PathOf("trip.viqx");
    ASSERT_TRUE(legacy.ExportData(current, false, false, nullptr));
    EXPECT_TRUE(IsValidQuestionFile(current.ToUtf8()));
    QPropDefTabGroupSet fromCurrent;
    ASSERT_TRUE(fromCurrent.ReadFromFile(current)) << ReportLines();
    EXPECT_EQ(fromCurrent, legacy);
    EXPECT_FALSE(fromCurrent.HasSubstitutions());
    const CString tab = PathOf("trip.tab");
    ASSERT_TRUE(fromCurrent.ExportData(tab, false, false, nullptr));
    QPropDefTabGroupSet fromTab;
    ASSERT_TRUE(fromTab.ReadFromFile(tab)) << ReportLines();
    EXPECT_EQ(fromTab, legacy);
    EXPECT_EQ(fromTab.MinimumWidth(), 250);
    EXPECT_EQ(SetLines(fromTab), SetLines(legacy));
}

// --- Archive ----------------------------------------------------------------------------------

constexpr int c_currentSchema = 110;

// A tab "T" with action "a9", enabled "e9", alternative "f9", on show "s9", both origin flags,
// columns Fixed:120 and Fill, and no definitions.
const char c_currentTab[] = "ff fe ff 01 54 00  ff fe ff 02 65 00 39 00  ff fe ff 02 66 00 39 00 "
                            "ff fe ff 02 61 00 39 00  ff fe ff 02 73 00 39 00  03 "
                            "02 00  00 00 00 00 78 00 00 00  02 00 00 00 00 00 00 00  00 00";

QPropDefTab CurrentTab() {
    QPropDefTab tab(u"T");
    tab.SetEnabledFormula(FormulaText(u"e9"));
    tab.SetEnabledAlternativeFormula(FormulaText(u"f9"));
    tab.SetAction(FormulaText(u"a9"));
    tab.SetOnShow(FormulaText(u"s9"));
    tab.SetIsFromTemplate(true);
    tab.SetIsFromLibrary(true);
    tab.SetColumnCount(2);
    tab.SetColumnSize(0, {QPropDefTab::QColumnSize::Fixed, 120});
    return tab;
}

template <class T>
T LoadAt(const Bytes& bytes, int schema) {
    T object;
    Loading loading(bytes, 4096, CString(), static_cast<unsigned>(schema));
    object.Serialize(loading.archive);
    EXPECT_TRUE(loading.archive.IsBufferEmpty()) << "every byte is read, schema " << schema;
    return object;
}

template <class T>
Bytes Store(T& object) {
    return Stored([&object](CArchive& archive) { object.Serialize(archive); });
}

TEST(QPropDefTabArchive, TheCurrentLayoutsAreWrittenReadAndWrittenAgainByteForByte) {
    QPropDefTab tab = CurrentTab();
    EXPECT_EQ(Store(tab), Hex(c_currentTab));
    QPropDefTab read = LoadAt<QPropDefTab>(Hex(c_currentTab), c_currentSchema);
    EXPECT_EQ(read, tab);

    const std::string group = std::string("ff fe ff 01 47 00  ff fe ff 01 67 00  ff fe ff 00 "
                                          "01 00 ") +
                              c_currentTab;
    QPropDefTabGroup readGroup = LoadAt<QPropDefTabGroup>(Hex(group.c_str()), c_currentSchema);
    EXPECT_EQ(readGroup.Name().ToUtf8(), "G");
    EXPECT_EQ(readGroup.EnabledFormula().ToString().ToUtf8(), "g");
    EXPECT_EQ(*readGroup.GetAt(0), tab);
    EXPECT_EQ(Store(readGroup), Hex(group.c_str()));

    const std::string set = "e0 01 00 00  01 00 " + group;
    QPropDefTabGroupSet readSet = LoadAt<QPropDefTabGroupSet>(Hex(set.c_str()), c_currentSchema);
    EXPECT_EQ(readSet.MinimumWidth(), 480);
    EXPECT_EQ(*readSet.GetAt(0), readGroup);
    EXPECT_EQ(Store(readSet), Hex(set.c_str()));
}

TEST(QPropDefTabArchive, OlderTabLayoutsAreReadAndWrittenInTheCurrentOne) {
    const char* name = "ff fe ff 01 54 00 ";
    const char* formulas2 = "ff fe ff 02 65 00 39 00  ff fe ff 02 66 00 39 00 ";
    const char* action = "ff fe ff 02 61 00 39 00 ";
    const char* onShow = "ff fe ff 02 73 00 39 00 ";
    const struct {
        int schema;
        std::string bytes;
        const char* kept; // e enabled, f alternative, a action, s on show, o origin, c columns
    } cases[] = {
        {34, std::string(name) + "00 00", ""},
        {35, std::string(name) + action + "00 00", "a"},
        {37, std::string(name) + action + "00 00", "a"},
        {38, std::string(name) + action + "03  00 00", "ao"},
        {63, std::string(name) + formulas2 + action + "03  00 00", "efao"},
        {69, std::string(name) + formulas2 + action + onShow + "03  00 00", "efaso"},
        {103, c_currentTab, "efasoc"},
    };
    for (const auto& c : cases) {
        const QPropDefTab read = LoadAt<QPropDefTab>(Hex(c.bytes.c_str()), c.schema);
        const std::string kept = c.kept;
        const auto has = [&kept](char what) { return kept.find(what) != std::string::npos; };
        QPropDefTab expected = CurrentTab();
        if (!has('e'))
            expected.SetEnabledFormula(FormulaText());
        if (!has('f'))
            expected.SetEnabledAlternativeFormula(FormulaText());
        if (!has('a'))
            expected.SetAction(FormulaText());
        if (!has('s'))
            expected.SetOnShow(FormulaText());
        if (!has('o')) {
            expected.SetIsFromTemplate(false);
            expected.SetIsFromLibrary(false);
        }
        if (!has('c')) {
            QPropDefTab fresh;
            expected.SetColumnCount(0);
            expected.SetColumnCount(fresh.ColumnCount());
        }
        EXPECT_EQ(read, expected) << c.schema;
        QPropDefTab rewritten(read);
        EXPECT_EQ(Store(rewritten), Store(expected)) << c.schema;
    }
}

TEST(QPropDefTabArchive, OlderGroupsAndSetsDropWhatTheyDidNotHave) {
    const struct {
        int schema;
        const char* bytes;
        const char* enabled;
        const char* alternative;
    } groups[] = {
        {38, "ff fe ff 01 47 00  00 00", "", ""},
        {39, "ff fe ff 01 47 00  ff fe ff 01 67 00  00 00", "g", ""},
        {62, "ff fe ff 01 47 00  ff fe ff 01 67 00  00 00", "g", ""},
        {63, "ff fe ff 01 47 00  ff fe ff 01 67 00  ff fe ff 01 68 00  00 00", "g", "h"},
    };
    for (const auto& c : groups) {
        const QPropDefTabGroup read = LoadAt<QPropDefTabGroup>(Hex(c.bytes), c.schema);
        EXPECT_EQ(read.Name().ToUtf8(), "G") << c.schema;
        EXPECT_EQ(read.EnabledFormula().ToString().ToUtf8(), c.enabled) << c.schema;
        EXPECT_EQ(read.EnabledAlternativeFormula().ToString().ToUtf8(), c.alternative);
    }
    const QPropDefTabGroupSet old =
        LoadAt<QPropDefTabGroupSet>(Hex("ff fe ff 02 6f 00 6c 00  00 00"), 102);
    EXPECT_EQ(old.MinimumWidth(), 0) << "the old string is dropped";
    const QPropDefTabGroupSet current = LoadAt<QPropDefTabGroupSet>(Hex("40 01 00 00  00 00"), 103);
    EXPECT_EQ(current.MinimumWidth(), 320);
}

TEST(QPropDefTabArchive, DefinitionsGoThroughWholeAndABadCountOrAShortArchiveFails) {
    QPropDefTabGroupSet set;
    QPropDefTabGroup group(u"G");
    QPropDefTab tab = CurrentTab();
    QPropDef width;
    width.SetName(ControlId(u"Width"));
    width.SetQuestion(u"How wide?");
    tab.Add(&width);
    width.SetControlType(QPropDef::Checkbox);
    tab.Add(&width);
    group.Add(&tab);
    set.Add(&group);
    const Bytes bytes = Store(set);
    QPropDefTabGroupSet read = LoadAt<QPropDefTabGroupSet>(bytes, c_currentSchema);
    EXPECT_EQ(read, set);
    EXPECT_EQ(Store(read), bytes);

    for (std::size_t size = 0; size < bytes.size(); size += 7) {
        Loading loading(Bytes(bytes.begin(), bytes.begin() + static_cast<long>(size)), 4096,
                        CString(), c_currentSchema);
        QPropDefTabGroupSet shortened;
        EXPECT_THROW(shortened.Serialize(loading.archive), CArchiveException) << size;
    }
    Loading tooMany(Hex("00 00 00 00  ff ff 00 00 01 00"), 4096, CString(), c_currentSchema);
    QPropDefTabGroupSet hostile;
    EXPECT_THROW(hostile.Serialize(tooMany.archive), CArchiveException);
}

// A page builds at most 1000 controls, but a file may give a tab more definitions than that, and
// they must load again from the document's archive.
TEST_F(QuestionFileTest, ATabOfMoreDefinitionsThanAPageShowsLoadsAgainFromTheArchive) {
    constexpr int c_definitions = 1500;
    std::string text = "[group]\tG\n[tab]\tT\n";
    for (int number = 1; number <= c_definitions; ++number)
        text += "Q" + std::to_string(number) + "\tQuestion\t\t2\n";
    QPropDefTabGroupSet set;
    ASSERT_TRUE(set.ReadFromFile(Written("long.viq", text))) << ReportLines();
    ASSERT_EQ(set.GetAt(0)->GetAt(0)->GetCount(), c_definitions);

    const Bytes bytes = Store(set);
    QPropDefTabGroupSet read = LoadAt<QPropDefTabGroupSet>(bytes, c_currentSchema);
    EXPECT_EQ(read, set);
    EXPECT_EQ(Store(read), bytes);
}

// A file may give a group any number of tabs: the group reads in one pass, loads again from the
// document's archive, and names a new tab without trying each number in turn.
TEST_F(QuestionFileTest, AGroupOfManyTabsReadsAndLoadsAgainFromTheArchive) {
    constexpr int c_tabs = 20000;
    std::string text = "[group]\tG\n[tab]\tT\n";
    for (int number = 2; number <= c_tabs; ++number)
        text += "[tab]\tT " + std::to_string(number) + "\n";
    QPropDefTabGroupSet set;
    ASSERT_TRUE(set.ReadFromFile(Written("many.viq", text))) << ReportLines();
    QPropDefTabGroup& group = *set.GetAt(0);
    ASSERT_EQ(group.GetCount(), c_tabs);
    EXPECT_EQ(group.GetAt(c_tabs - 1)->Name().ToUtf8(), "T 20000");

    const Bytes bytes = Store(set);
    QPropDefTabGroupSet read = LoadAt<QPropDefTabGroupSet>(bytes, c_currentSchema);
    EXPECT_EQ(read, set);
    EXPECT_EQ(Store(read), bytes);

    EXPECT_EQ(group.MakeUniqueTabName(u"T").ToUtf8(), "T 20001");
    group.RemoveTab(u"T 777");
    group.SetNameAt(1, u"T");
    EXPECT_EQ(group.GetAt(1)->Name().ToUtf8(), "T 777") << "its own name is taken too";
}

} // namespace
} // namespace keel::test
