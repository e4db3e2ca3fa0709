#include "tests/support/archivebytes.h"
#include "tests/support/exchangetests.h"
#include "tests/support/paths.h"
#include "tests/support/questiondefs.h"
#include "tests/support/questiondump.h"
#include "tests/support/uihosts.h"
#include "tests/support/xmloracle.h"

#include "keel/exchange/exportselection.h"
#include "keel/platform/schema.h"
#include "keel/questions/propdeftabgroupset.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <type_traits>
#include <vector>

namespace keel::test {
namespace {

using D = QPropDef;

std::string QuestionData(const std::string& name) {
    return TestDataFolder() + "/questions/" + name;
}

// The messages that reached the log, each "heading: message".
std::string ReportLines() {
    std::string lines;
    for (const Report& report : PendingReports())
        lines += report.heading + ": " + report.message + "\n";
    return lines;
}

// The legacy file of every kind, read with its values, and given by hand what the legacy form
// cannot hold: size tweaks, overlap, transparency, a colour button, quoted texts, style bits.
QPropDefTabGroupSet EveryField() {
    QPropDefTabGroupSet set;
    EXPECT_TRUE(set.ReadFromFile(CString::FromUtf8(QuestionData("every-kind.viq")),
                                 Strings({"wide", "walnut"}), Strings({"width", "finish"})));
    set.SetMinimumWidth(250);
    QPropDefTab& body = *set.GetAt(0)->GetAt(0);
    body.SetColumnSizesFromString(u"Fixed:120|Percent:25|Fill");
    body.SetIsFromLibrary(true);
    body.GetAt(0)->SetStyle(D::StyleBold | D::AlignCenter);
    body.GetAt(0)->SetIsGroupboxFullWidth(false);
    body.GetAt(0)->SetAnswerSizeTweaks({1, 1, 0, 0});
    body.GetAt(1)->SetQuestion(u"=\"Plinth \" & plinth");
    body.GetAt(1)->SetAllowControlOverlap(true);
    QPropDef& width = *body.GetAt(2);
    width.SetStyle(D::AlignRight | D::StyleItalic);
    width.SetEnabledFormula(FormulaText(u"width>3"));
    width.SetAction(FormulaText(u"plinth:=plinth+1"));
    width.SetTooltip(u"How deep, \"inside\"");
    width.SetQuestionSizeTweaks({-1, 2, -3, 4});
    body.GetAt(4)->SetComboSource(D::ComboFolderNames);
    body.GetAt(4)->SetComboValue(D::ComboIndex);
    body.GetAt(6)->SetQuestion(u"");
    body.GetAt(6)->SetExtra1(u"RGB(0,0,255)");
    body.GetAt(10)->SetIsTransparent(true);
    set.GetAt(1)->SetFormat(QPropDefTabGroup::c_formEditorFormat);
    set.GetAt(1)->SetDefaultVlt(u"rows.vlt");
    set.GetAt(1)->GetAt(0)->SetIsFromTemplate(true);
    return set;
}

class QuestionFileTest : public ExchangeFileTest {
protected:
    CString Written(const std::string& name, const std::string& bytes) {
        const std::string path = Path(name);
        WriteFileBytes(path, bytes);
        return CString::FromUtf8(path);
    }
};

// Each legacy fixture read with its values, against the definitions it holds. In every kind:
// markers take the numbered and named values. Fields a kind has no use for are dropped; a
// height kept in a width field, the picture of a thumbnail and an edit's own widths stay. A
// lone blank was the old empty question. Two options of one name share it by value; the next
// name starts a group of its own. "[tab]Fittings" is the old form of a tab line. In the
// question lines: a line that fills every field; a blank line is skipped; a default that does
// not parse is kept as text; letters, digits, blanks, markers and the underscore start a
// question; an old empty static is a placeholder and numbers out of range fall back.
TEST_F(QuestionFileTest, EachLegacyFixtureIsReadWithTheOlderConversions) {
    const struct {
        const char* name;
        QArray<CString> values;
        QArray<CString> names;
    } fixtures[] = {
        {"every-kind", Strings({"wide", "walnut"}), Strings({"width", "finish"})},
        {"question-lines", Strings({"cabinet", "Height"}), {}},
    };
    for (const auto& fixture : fixtures) {
        QPropDefTabGroupSet set;
        const CString path = CString::FromUtf8(QuestionData(fixture.name + std::string(".viq")));
        ASSERT_TRUE(set.ReadFromFile(path, fixture.values, fixture.names)) << ReportLines();
        EXPECT_EQ(set.FileName(), path);
        EXPECT_TRUE(set.HasSubstitutions());
        EXPECT_EQ(SetLines(set), ReadFileBytes(QuestionData(fixture.name + std::string(".dump"))));
        EXPECT_EQ(D::SubstituteValues(u"~1~").ToUtf8(), "~1~") << "arrays emptied after the read";
    }
}

TEST_F(QuestionFileTest, BytesThatAreNotUtf8AreReadInTheWesternCodePage) {
    QPropDefTabGroupSet set;
    ASSERT_TRUE(set.ReadFromFile(Written("coded.viq", "[group]\tCaf\xe9\n[tab]\tT\n")));
    EXPECT_EQ(set.GetAt(0)->Name(), CString(u"Caf\u00e9"));
}

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
            group.ReadFromFile(path, Strings({"x"}), {}, c.wanted ? CString(c.wanted) : CString());
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
    EXPECT_THROW(set.ReadFromFile(Written("bad.viq", "nothing\n"), Strings({"x"})), CFileException);
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

// A legacy path is written in the current form; values substituted on reading are lost only
// when the user agrees, and a path is asked for when none is given.
TEST_F(QuestionFileTest, TheLegacyFormIsNeverWritten) {
    QPropDefTabGroupSet set;
    ASSERT_TRUE(set.ReadFromFile(CString::FromUtf8(QuestionData("every-kind.viq"))));
    const std::string current = Path("a.viqx");
    ASSERT_TRUE(set.WriteToFile(CString::FromUtf8(Path("a.viq"))));
    EXPECT_FALSE(std::filesystem::exists(Path("a.viq")));
    EXPECT_TRUE(IsValidQuestionFile(current));
    EXPECT_NE(ReadFileBytes(current).find("<Questions"), std::string::npos);
    EXPECT_EQ(set.FileName().ToUtf8(), current);
    ASSERT_TRUE(set.GetAt(0)->WriteToFile(CString::FromUtf8(Path("g.viq"))));
    EXPECT_TRUE(IsValidQuestionFile(Path("g.viqx")));

    ASSERT_TRUE(
        set.ReadFromFile(CString::FromUtf8(QuestionData("every-kind.viq")), Strings({"wide"})));
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
    EXPECT_FALSE(plain.WriteToFile(CString())) << "the dialog was cancelled";
    dialog.chosenPath = Path("chosen.viq");
    ASSERT_TRUE(plain.WriteToFile(CString()));
    EXPECT_TRUE(IsValidQuestionFile(Path("chosen.viqx"))) << "an empty set is valid";
}

// One change to a valid file, each of which the grammar of question files refuses.
void ExpectRefusedChanges(const std::string& valid, const std::string& path) {
    const struct {
        const char* from;
        const char* to;
    } changes[] = {
        {"controltype=\"Edit\"", "controltype=\"Editor\""},
        {"type=\"String\"", "type=\"Text\""},
        {"qwidth=\"4\"", "qwidth=\"four\""},
        {"colsizes=\"Fill|", "colsizes=\"Wide|"},
        {"tooltip=\"\"", "tooltip=\"\" colour=\"red\""},
        {"<Control id=\"1\"", "<Row id=\"1\""},
    };
    for (const auto& change : changes) {
        const std::size_t at = valid.find(change.from);
        ASSERT_NE(at, std::string::npos) << change.from;
        std::string changed = valid;
        changed.replace(at, std::string(change.from).size(), change.to);
        if (std::string(change.from).starts_with("<Control"))
            changed = std::regex_replace(changed, std::regex("(<Row [^>]*)/>"), "$1></Row>",
                                         std::regex_constants::format_first_only);
        WriteFileBytes(path, changed);
        EXPECT_FALSE(IsValidQuestionFile(path)) << change.to;
    }
}

// Every field of every kind goes through both export formats (.viqx is the XML one), full and
// minimal, and the document's archive, and reads back the same; the numbers of the definitions
// are their places again. A minimal file leaves out defaults; a .tab file knows each level by its
// identifiers alone; the grammar of question files refuses each change of a list value or an
// unknown attribute.
TEST_F(QuestionFileTest, EveryFieldGoesThroughEachExportFormatWhole) {
    const QPropDefTabGroupSet written = EveryField();
    const struct {
        const char* name;
        std::vector<std::string> present, absent;
    } files[] = {
        {"full.tab", {"colsizes\t\"\"\"Fill|Fill|"}, {}},
        {"minimal.tab",
         {"\tQuestions\n", "\tQuestions|Cabinet\n", "\tQuestions|Cabinet|Body\n",
          "\tQuestions|Cabinet|Body|2\n", "\tQuestions|Empty|Only\n", "colsizes\t\"\"\"Fixed:120|",
          "defaultvlt\t\"\"\"rows.vlt\"\"\"\t\tQuestions|Empty\n"},
         {"Page", "Control", "Fill|Fill", "rowlocked\tfalse"}},
        {"full.viqx", {}, {}},
        {"minimal.viqx",
         {"<Questions", "<Group id=\"Empty\"", "<Page id=\"Body\"", "<Control id=\"2\""},
         {}},
    };
    for (const auto& file : files) {
        const CString path = PathOf(file.name);
        ASSERT_TRUE(written.ExportData(path, file.name[0] == 'm', false, nullptr)) << file.name;
        const std::string text = ReadFileBytes(path.ToUtf8());
        for (const std::string& mark : file.present)
            EXPECT_NE(text.find(mark), std::string::npos) << file.name << ": " << mark;
        for (const std::string& mark : file.absent)
            EXPECT_EQ(text.find(mark), std::string::npos) << file.name << ": " << mark;
        if (path.Right(5) == CString(u".viqx")) {
            EXPECT_TRUE(IsValidQuestionFile(path.ToUtf8()));
            if (file.name[0] == 'f')
                ExpectRefusedChanges(text, Path("changed.viqx"));
        }
        QPropDefTabGroupSet read;
        ASSERT_TRUE(read.ReadFromFile(path)) << file.name << "\n" << ReportLines();
        EXPECT_EQ(read, written) << file.name;
        EXPECT_EQ(SetLines(read), SetLines(written)) << file.name;
        EXPECT_FALSE(read.HasSubstitutions());
        EXPECT_EQ(read.GetAt(0)->GetAt(0)->GetAt(5)->PropDefIndex(), 6) << file.name;
        EXPECT_EQ(ReportLines(), "Import: Import completed with no errors.\n") << file.name;
        TheErrorLog().DiscardPendingMessages();
    }
    // The document's archive keeps no default values.
    QPropDefTabGroupSet archived = written;
    archived.GetAt(0)->GetAt(0)->GetAt(2)->SetDefaultValue(QAnyValue());
    const Bytes bytes = Store(archived);
    QPropDefTabGroupSet read = LoadAt<QPropDefTabGroupSet>(bytes, 110);
    EXPECT_EQ(read, archived);
    EXPECT_EQ(Store(read), bytes);
}

// Controls numbered in the file: the place each one takes, and how often the refusal is told.
TEST_F(QuestionFileTest, ControlNumbersPlaceDefinitionsUpToTheCap) {
    const auto file = [](std::initializer_list<const char*> ids) {
        std::string xml = "<?xml version=\"1.0\"?>\n<Questions><Group id=\"G\"><Page id=\"P\">";
        for (const char* id : ids)
            xml += std::string("<Control id=\"") + id + "\" controltype=\"Edit\" name=\"n" + id +
                   "\"/>";
        return xml + "</Page></Group></Questions>\n";
    };
    const struct {
        std::initializer_list<const char*> ids;
        const char* names; // "." for an empty definition made to fill a gap; none: 501 of them
        bool refused;
    } cases[] = {
        {{"1", "2"}, "n1,n2", false},
        {{"3"}, ".,.,n3", false},
        {{"1", "0", "0"}, "n1,n0,n0", false},
        {{"1", "-1"}, "n1,.,n_1", false},
        {{"501"}, "", false},
        {{"502", "1", "600", "-7"}, "n1", true},
    };
    for (const auto& c : cases) {
        QPropDefTabGroupSet set;
        set.ReadFromFile(Written("controls.xml", file(c.ids)));
        const QPropDefTab& tab = *set.GetAt(0)->GetAt(0);
        std::string names;
        for (int i = 0; i < tab.GetCount(); ++i)
            names +=
                (i ? "," : "") + (tab.GetAt(i)->HasName() ? NameText(tab.GetAt(i)->Name()) : ".");
        if (*c.names)
            EXPECT_EQ(names, c.names);
        else
            EXPECT_EQ(tab.GetCount(), 501) << names;
        EXPECT_EQ(ReportLines(), (c.refused ? "Import error: Friendly page has too many controls, "
                                              "import file may be corrupt\n"
                                            : "") +
                                     std::string("Import: Import completed with no errors.\n"))
            << c.names;
        TheErrorLog().DiscardPendingMessages();
    }
}

// Every attribute takes the values, named or numbered; ` quotes a value as a formula's text.
// Unknown kinds are edit boxes; the texts of alignment and style are read without case; of two
// attributes for one field the last wins; a width that is no number becomes 0, a whole number's
// default, and the import still succeeds. A default table means the editor's format.
TEST_F(QuestionFileTest, EveryAttributeTakesSubstitutions) {
    const CString path = Written(
        "subst.xml",
        "<?xml version=\"1.0\"?>\n<Questions minimumwidth=\"~2~\"><Group id=\"G\" "
        "defaultvlt=\"~table~\"><Page id=\"P\" enabledformula=\"w&gt;~1~\" "
        "colsizes=\"Fixed:~2~|Fill\"><Control id=\"1\" controltype=\"Edit\" name=\"~n~\" "
        "question=\"How ~n~?\" qwidth=\"~2~\" enabledformula=\"~n~&gt;`4`\" defaultval=\"~2~\"/>"
        "<Control id=\"2\" controltype=\"Thumbnail\" imgpath=\"~4~\" source=\"last.png\" "
        "keepaspect=\"~3~\"/><Control id=\"3\" controltype=\"Knob\" align=\"center\" "
        "style=\"bold\" awidth=\"wide\"/></Page></Group></Questions>\n");
    QPropDefTabGroupSet set;
    ASSERT_TRUE(set.ReadFromFile(path, Strings({"Plinth", "7", "Yes", "oak.png", "t.vlt"}),
                                 Strings({"n", "w", "", "", "table"})));
    EXPECT_EQ(SetLines(set), "minimumwidth=7\n"
                             "group G format=1 vlt=t.vlt\n"
                             "  tab P enabled=w>Plinth columns=Fixed:7|Fill\n"
                             "    Edit name=plinth question=How Plinth? enabled=Plinth>\"oak.png\" "
                             "qwidth=7 default=String:7\n"
                             "    Thumbnail extra=last.png qwidth=0 style=1\n"
                             "    Edit awidth=0 style=6\n");
    EXPECT_TRUE(set.HasSubstitutions());
    EXPECT_EQ(D::SubstituteValues(u"~1~").ToUtf8(), "~1~") << "arrays emptied after";
}

TEST(QPropDefTabImport, EmptyingBeforeAnImportKeepsTheTreeAndHonoursTheSelection) {
    QPropDefTabGroupSet set = Set({Group("Cabinet", {Tab("Body", {"Width", "Depth"}), Tab("E")}),
                                   Group("Rows", {Tab("Row", {"Height"})})});
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

constexpr int c_currentSchema = 110;

// One row of the archive cases: read, compared, written again in the current layout and read
// back; in the current layout also written back byte for byte, without a default value, and
// refused as an archive when cut short.
template <class T>
void CheckLayout(int schema, const Bytes& bytes, const std::string& expected,
                 std::string (*text)(const T&)) {
    D::ForgetPreviousOption();
    T loaded = LoadAt<T>(bytes, schema);
    EXPECT_EQ(text(loaded), expected);
    const Bytes rewritten = Store(loaded);
    T again = LoadAt<T>(rewritten, c_currentSchema);
    EXPECT_TRUE(again == loaded);
    EXPECT_EQ(Store(again), rewritten);
    if (schema < c_currentSchema)
        return;
    if constexpr (std::is_same_v<T, QPropDef>)
        loaded.SetDefaultValue(QAnyValue(5));
    EXPECT_EQ(Store(loaded), bytes);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        Loading loading(Bytes(bytes.begin(), bytes.begin() + static_cast<long>(size)), 4096,
                        CString(), c_currentSchema);
        T shortened;
        EXPECT_THROW(shortened.Serialize(loading.archive), CArchiveException) << size;
    }
}

TEST(QuestionArchive, EachLayoutOfTheCasesIsReadAndWrittenAgainInTheCurrentOne) {
    Loading tooMany(Hex("00 00 00 00  ff ff 00 00 01 00"), 4096, CString(), c_currentSchema);
    QPropDefTabGroupSet hostile;
    EXPECT_THROW(hostile.Serialize(tooMany.archive), CArchiveException)
        << "a count beyond the bytes";
    for (const auto& row : CaseRows("questions/archives.txt")) {
        SCOPED_TRACE(row[0] + " " + row[1] + ": " + row[3]);
        const int schema = std::stoi(row[1]);
        const Bytes bytes = ArchiveText(row[2]);
        const std::string expected = std::regex_replace(row[3], std::regex(R"(\\n)"), "\n");
        if (row[0] == "definition")
            CheckLayout<QPropDef>(schema, bytes, expected, &DefinitionLine);
        else if (row[0] == "tab")
            CheckLayout<QPropDefTab>(schema, bytes, expected, &TabLines);
        else if (row[0] == "group")
            CheckLayout<QPropDefTabGroup>(schema, bytes, expected, &GroupLines);
        else
            CheckLayout<QPropDefTabGroupSet>(schema, bytes, expected, &SetLines);
    }
}

// A page builds at most 1000 controls, but a file may give a tab more definitions than that,
// and a group any number of tabs: the group reads in one pass, loads again from the document's
// archive, and names a new tab without trying each number in turn.
TEST_F(QuestionFileTest, ManyTabsAndDefinitionsReadAndLoadAgainFromTheArchive) {
    constexpr int c_definitions = 1500;
    constexpr int c_tabs = 20000;
    std::string text = "[group]\tG\n[tab]\tT\n";
    for (int number = 1; number <= c_definitions; ++number)
        text += "Q" + std::to_string(number) + "\tQuestion\t\t2\n";
    for (int number = 2; number <= c_tabs; ++number)
        text += "[tab]\tT " + std::to_string(number) + "\n";
    QPropDefTabGroupSet set;
    ASSERT_TRUE(set.ReadFromFile(Written("many.viq", text))) << ReportLines();
    QPropDefTabGroup& group = *set.GetAt(0);
    ASSERT_EQ(group.GetCount(), c_tabs);
    ASSERT_EQ(group.GetAt(0)->GetCount(), c_definitions);
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
