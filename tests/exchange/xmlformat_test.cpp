#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"
#include "tests/support/xmloracle.h"

#include "keel/exchange/exportformatxml.h"
#include "keel/exchange/importformatxml.h"

#include <gtest/gtest.h>
#include <set>

namespace keel::test {
namespace {

TEST(XMLNameMangling, BracketsBlanksAndLeadingDigits) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"width[3]", u"width__3__"},
        {u"door width", u"doorwidth"},
        {u" a\tb ", u"ab"},
        {u"3d", u"_3d"},
        {u" 3d", u"_3d"},
        {u"", u""},
        {u"a-b.c", u"a-b.c"},
    };
    for (const auto& [name, mangled] : cases)
        EXPECT_EQ(QXMLMangledName(name), CString(mangled)) << CString(name).ToUtf8();
}

TEST(XMLTypedValue, ConvertsByTypeNameOrStaysAString) {
    struct Case {
        const char16_t* text;
        const char16_t* type;
        QAnyValue::TYPE expected;
    };
    const Case cases[] = {
        {u"12", u"Whole Number", QAnyValue::TYPE_INT},
        {u"12", u"whole number", QAnyValue::TYPE_INT},
        {u"", u"<none>", QAnyValue::TYPE_EMPTY},
        {u"abc", u"Whole Number", QAnyValue::TYPE_STRING},
        {u"12", u"Bogus", QAnyValue::TYPE_STRING},
    };
    for (const Case& c : cases) {
        const QAnyValue value = QImportFormatLevelXML::TypedValue(c.text, c.type);
        EXPECT_EQ(value.Type(), c.expected)
            << CString(c.text).ToUtf8() << " as " << CString(c.type).ToUtf8();
        if (c.expected == QAnyValue::TYPE_STRING) {
            EXPECT_EQ(QAnyValue(value).MakeCString(), CString(c.text));
        }
    }
}

class XmlFormatTest : public ExchangeFileTest {
protected:
    void SetUp() override {
        ExchangeFileTest::SetUp();
        if (!HasXmllint())
            GTEST_SKIP() << "xmllint is not installed";
    }

    // The canonical form of the export, blanks between elements dropped.
    std::string Export(const QExportable& object, bool minimal, const std::string& name,
                       QSmartPtr<QExportSelection> selection = nullptr) {
        EXPECT_TRUE(object.ExportData(PathOf(name), minimal, false, selection)) << name;
        return CanonicalXml(Path(name)).value_or("<not XML>");
    }
    bool Import(QImportable& object, const std::string& xml, bool merge = true) {
        WriteFileBytes(Path("import.xml"), xml);
        return object.ImportOrMergeFrom(PathOf("import.xml"), merge, nullptr);
    }
};

// A group "G" of the style with a width and an extra of any type, each with or without a formula.
FakeTree StyledTree(int style, bool withFormulas) {
    FakeTree tree;
    FakeGroup& group = tree.AddGroup(u"G");
    group.xmlStyle = style;
    group.width = QAnyValue(QLength(25.5));
    group.extras = std::make_unique<FakeBag>();
    group.extras->entries.push_back({u"Run", QAnyValue(QLength(12.5)), FormulaText()});
    if (withFormulas) {
        group.widthFormula = FormulaText(u"x*2");
        group.extras->entries.back().formula = FormulaText(u"3mm");
    }
    return tree;
}

// Each style writes N, N-formula and N-type, or elements N with "formula" and "type", the value
// only without a formula or under flag 6; read back, a value that was not written leaves the
// target alone.
TEST_F(XmlFormatTest, BothStylesWriteAndReadValuesFormulasAndTypes) {
    struct Case {
        int style;
        bool formulas;
        bool flag6;
        const char* xml;
    };
    const Case cases[] = {
        {0, false, false,
         R"(<Export><Group Run="12.5 mm" Run-type="Length" id="G" width="25.5 mm"></Group></Export>)"},
        {0, true, false,
         R"(<Export><Group Run-formula="3mm" id="G" width-formula="x*2"></Group></Export>)"},
        {0, true, true,
         R"(<Export><Group Run="12.5 mm" Run-formula="3mm" Run-type="Length" id="G" width="25.5 mm" )"
         R"(width-formula="x*2"></Group></Export>)"},
        {1, false, false,
         R"(<Export><Group id="G"><width>25.5 mm</width><Run type="Length">12.5 mm</Run></Group>)"
         R"(</Export>)"},
        {1, true, false,
         R"(<Export><Group id="G"><width formula="x*2"></width><Run formula="3mm"></Run>)"
         R"(</Group></Export>)"},
        {1, true, true,
         R"(<Export><Group id="G"><width formula="x*2">25.5 mm</width>)"
         R"(<Run formula="3mm" type="Length">12.5 mm</Run></Group></Export>)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "style " << c.style << (c.formulas ? " formulas" : "")
                                        << (c.flag6 ? " flag 6" : ""));
        ExportFlagsScope flags(c.flag6 ? std::initializer_list<int>{6}
                                       : std::initializer_list<int>{});
        const std::string written = Export(StyledTree(c.style, c.formulas), true, "styled.xml");
        EXPECT_EQ(written, c.xml);

        FakeTree back = StyledTree(c.style, false);
        FakeGroup& group = *back.groups[0];
        group.width = QAnyValue(u"untouched");
        group.extras->entries.clear();
        WriteFileBytes(Path("back.xml"), ReadFileBytes(Path("styled.xml")));
        EXPECT_TRUE(back.ImportOrMergeFrom(PathOf("back.xml"), true, nullptr));
        const bool valueWritten = !c.formulas || c.flag6;
        EXPECT_EQ(QAnyValue(group.width).MakeCString(),
                  CString(valueWritten ? u"25.5 mm" : u"untouched"));
        EXPECT_EQ(group.widthFormula.ToString(), c.formulas ? "x*2" : "");
        ASSERT_EQ(group.extras->entries.size(), 1u);
        const FakeBag::Entry& run = group.extras->entries[0];
        EXPECT_EQ(run.name, CString(u"Run"));
        EXPECT_EQ(run.value.Type(), valueWritten ? QAnyValue::TYPE_LENGTH : QAnyValue::TYPE_EMPTY);
        EXPECT_EQ(run.formula.ToString(), c.formulas ? "3mm" : "");
        EXPECT_EQ(PendingReports(), std::vector<Report>{c_importCompleted});
        TheErrorLog().DiscardPendingMessages();
    }
}

// The attributes of one name are gathered in one pass, in whatever order the file has them.
TEST_F(XmlFormatTest, UnmatchedAttributesInAnyOrderMakeTheSameEntries) {
    const char* files[] = {
        R"(<Export Doors="2" Doors-type="Whole Number" Doors-formula="1+1" Shade="light"/>)",
        R"(<Export Doors-formula="1+1" Shade="light" Doors-type="Whole Number" Doors="2"/>)",
    };
    for (const char* file : files) {
        FakeTree tree;
        EXPECT_TRUE(Import(tree, file)) << file;
        std::set<std::string> entries;
        for (const FakeBag::Entry& entry : tree.bag.entries)
            entries.insert(entry.name.ToUtf8() + "=" + entry.value.TypeName().ToUtf8() + ":" +
                           QAnyValue(entry.value).MakeCString().ToUtf8() + ":" +
                           entry.formula.ToString().ToUtf8());
        EXPECT_EQ(entries,
                  (std::set<std::string>{"Doors=Whole Number:2:1+1", "Shade=String:light:"}))
            << file;
    }
}

// Children are found by identifier and new ones made from the file; without an identifier each
// level takes the first element of its name and consumes it, so the next level takes the next.
TEST_F(XmlFormatTest, ChildrenAreFoundByIdOrTakenInTurn) {
    FakeTree unnamed;
    unnamed.AddGroup(CString());
    unnamed.AddGroup(CString());
    EXPECT_TRUE(Import(unnamed, R"(<Export><Group shelves="2"/><Group shelves="3"/></Export>)"));
    EXPECT_EQ(unnamed.groups[0]->shelves, 2);
    EXPECT_EQ(unnamed.groups[1]->shelves, 3);
    FakeTree tree;
    tree.AddGroup(u"Wall");
    EXPECT_TRUE(Import(tree, R"(<Export><Group id="Base" shelves="4"><Item id="1" label="a"/>)"
                             R"(</Group><Group id="Wall" shelves="5"/></Export>)"));
    ASSERT_EQ(tree.groups.size(), 2u);
    EXPECT_EQ(tree.groups[0]->shelves, 5);
    EXPECT_EQ(tree.groups[1]->name, CString(u"Base"));
    EXPECT_EQ(tree.groups[1]->shelves, 4);
    ASSERT_EQ(tree.groups[1]->items.size(), 1u);
    EXPECT_EQ(tree.groups[1]->items[0]->label, CString(u"a"));
}

// What no object took is reported for its level, with its text, and a file that is not a
// document imports nothing and says why; either way the import counts as failed.
TEST_F(XmlFormatTest, LeftoversAndUnparsableFilesAreReported) {
    const struct {
        std::string file;
        const char* report;
    } cases[] = {
        {R"(<Export><Group id="Base" colour="red" shelves="2"/></Export>)",
         "Unmatched content for Group:Base\ncolour=\"red\""},
        {R"(<Export><Group id="Base" width-type="Length"/></Export>)",
         "Unmatched content for Group:Base\nwidth-type=\"Length\""},
        {R"(<Export><Group id="Base"><!--note--></Group></Export>)",
         "Unmatched content for Group:Base\n<!--note-->"},
        {R"(<Export><Group id="Base"><Shelf n="1"><x>1</x></Shelf></Group></Export>)",
         "Unmatched content for Group:Base\n<Shelf n=\"1\"><x>1</x></Shelf>"},
        {R"(<Export><Shelf/><Group id="Base"/></Export>)", "Unmatched content for :\n<Shelf/>"},
        {R"(<!DOCTYPE r [<!ENTITY e "x">]><Export title="&e;"/>)",
         "The file is not an XML document: Line 1: entities are not accepted"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        FakeTree tree;
        tree.title = u"kept";
        tree.AddGroup(u"Base").items.push_back(std::make_unique<FakeItem>(1));
        EXPECT_FALSE(Import(tree, c.file));
        EXPECT_EQ(tree.title, CString(u"kept"));
        const std::vector<Report> reports = PendingReports();
        ASSERT_EQ(reports.size(), 2u);
        EXPECT_EQ(reports[0].heading, "Import error");
        EXPECT_EQ(reports[0].message, c.report);
        EXPECT_EQ(reports[1], c_importHadErrors);
        TheErrorLog().DiscardPendingMessages();
    }
}

TEST_F(XmlFormatTest, SelectionWritesTheChosenGroupWithEverythingBelowIt) {
    FakeTree tree;
    PopulateSampleTree(tree);
    EXPECT_EQ(
        Export(tree, true, "base.xml", new QExportSelection{CString(u"Base")}),
        R"(<Export Depth="600.5" Depth-type="Number" Doors-formula="1+1" )"
        R"(Finish="oak &quot;light&quot;" Finish-type="String" title="Kitchen&#x9;plan">)"
        R"(<Group id="Base" size__0__="0" size__1__="300" width="1200 mm"><Item count="2" id="1" )"
        R"(label="sink"></Item><Item id="2" label="=drawer"></Item></Group></Export>)");
    EXPECT_EQ(Export(tree, true, "none.xml", new QExportSelection{CString(u"wall")}).find("Group"),
              std::string::npos)
        << "identifiers are compared with case";
}

// Written, read into an empty tree and written again, a full and a minimal export come out the
// same, as .xml and as .viqx: the second export shows every value with its type.
TEST_F(XmlFormatTest, FullAndMinimalRoundTripsOfTheTree) {
    FakeTree tree;
    PopulateSampleTree(tree);
    for (const bool minimal : {false, true}) {
        for (const char* extension : {".xml", ".viqx"}) {
            const std::string name = std::string(minimal ? "minimal" : "full") + extension;
            SCOPED_TRACE(name);
            const std::string first = Export(tree, minimal, name);
            FakeTree back;
            EXPECT_TRUE(back.ImportOrMergeFrom(PathOf(name), false, nullptr));
            EXPECT_EQ(Export(back, minimal, "again-" + name), first);
        }
    }
    EXPECT_EQ(QExportable::LastExportType(), QExportTypeXML);
}

// A name or a value that XML cannot hold fails the export, and the rest is still written.
TEST_F(XmlFormatTest, NamesAndValuesXmlCannotHoldFailTheExport) {
    const std::pair<const char16_t*, QAnyValue> cases[] = {
        {u"a/b", QAnyValue(1)},
        {u"ok", QAnyValue(u"bell\x07")},
    };
    for (const auto& [name, value] : cases) {
        FakeTree tree;
        tree.title = u"kept";
        tree.bag.entries.push_back({name, value, FormulaText()});
        EXPECT_FALSE(tree.ExportData(PathOf("bad.xml"), false, false, nullptr))
            << CString(name).ToUtf8();
        EXPECT_EQ(CanonicalXml(Path("bad.xml")), R"(<Export title="kept"></Export>)");
    }
}

} // namespace
} // namespace keel::test
