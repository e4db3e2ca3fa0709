#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace keel::test {
namespace {

class ExchangeTreeTest : public ExchangeFileTest {
protected:
    std::string Export(const FakeTree& tree, bool minimal, const std::string& name,
                       QSmartPtr<QExportSelection> selection = nullptr) {
        EXPECT_TRUE(tree.ExportData(PathOf(name), minimal, false, selection));
        return ReadFileBytes(Path(name));
    }
    static std::string Golden(const std::string& name) { return ReadFileBytes(ExchangeData(name)); }
};

// Each export of the tree, byte for byte, under the flags that shape the file.
struct GoldenCase {
    const char* file;
    bool minimal;
    std::initializer_list<int> flags;
};

TEST_F(ExchangeTreeTest, ExportsMatchTheirGoldenFilesByteForByte) {
    const GoldenCase cases[] = {
        {"tree-full.tab", false, {}},           {"tree-minimal.tab", true, {}},
        {"tree-context-first.tab", false, {2}}, {"tree-sorted.tab", false, {4}},
        {"tree-relative-ids.tab", false, {1}},  {"tree-values-with-formulas.tab", true, {6}},
    };
    FakeTree tree;
    PopulateSampleTree(tree);
    for (const GoldenCase& c : cases) {
        ExportFlagsScope flags(c.flags);
        const std::string written = Export(tree, c.minimal, c.file);
        EXPECT_EQ(written, Golden(c.file)) << c.file;
        if (std::getenv("KEEL_WRITE_GOLDEN"))
            WriteFileBytes(ExchangeData(c.file), written);
    }
    EXPECT_TRUE(PendingReports().empty());
}

// Read back into an empty tree (full) or a default one (minimal) and written again, each file
// comes out as it went in.
TEST_F(ExchangeTreeTest, RoundTripsFullAndMinimalAndContextFirst) {
    const GoldenCase cases[] = {
        {"tree-full.tab", false, {}},
        {"tree-minimal.tab", true, {}},
        {"tree-context-first.tab", false, {2}},
        {"tree-sorted.tab", false, {4}},
    };
    for (const GoldenCase& c : cases) {
        ExportFlagsScope flags(c.flags);
        WriteFileBytes(Path(c.file), Golden(c.file));
        FakeTree tree;
        EXPECT_TRUE(tree.ImportOrMergeFrom(PathOf(c.file), false, nullptr)) << c.file;
        EXPECT_EQ(Export(tree, c.minimal, std::string("again-") + c.file), Golden(c.file))
            << c.file;
        ASSERT_EQ(tree.groups.size(), 2u) << c.file;
        EXPECT_EQ(tree.groups[1]->widthFormula.ToString(), "2*300mm") << c.file;
        EXPECT_EQ(tree.bag.entries.at(0).value.Type(), QAnyValue::TYPE_DOUBLE) << c.file;
        EXPECT_EQ(tree.title, CString(u"Kitchen\tplan")) << c.file;
    }
    // Equal reports that wait together are kept once.
    const std::vector<Report> summary{{"Import", "Import completed with no errors."}};
    EXPECT_EQ(PendingReports(), summary);
}

// Text files from other editors: CRLF line ends, and UTF-16 with a byte order mark.
TEST_F(ExchangeTreeTest, ReadsCrlfAndUtf16WithByteOrderMark) {
    const std::string lf = Golden("tree-full.tab");
    std::string crlf;
    for (char ch : lf)
        crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
    const CString text = CString::FromUtf8(lf);
    std::string utf16 = "\xFF\xFE";
    for (int i = 0; i < text.GetLength(); ++i) {
        utf16 += static_cast<char>(text[i] & 0xFF);
        utf16 += static_cast<char>(text[i] >> 8);
    }
    for (const auto& [name, bytes] : {std::pair{"crlf.tab", crlf}, std::pair{"utf16.tab", utf16}}) {
        WriteFileBytes(Path(name), bytes);
        FakeTree tree;
        EXPECT_TRUE(tree.ImportOrMergeFrom(PathOf(name), false, nullptr)) << name;
        EXPECT_EQ(Export(tree, false, std::string("out-") + name), lf) << name;
    }
}

TEST_F(ExchangeTreeTest, SelectionWritesTheChosenGroupWithEverythingBelowIt) {
    FakeTree tree;
    PopulateSampleTree(tree);
    const std::string written =
        Export(tree, false, "selected.tab", new QExportSelection{CString(u"Wall")});
    EXPECT_NE(written.find("Group|Wall"), std::string::npos);
    EXPECT_EQ(written.find("Group|Base"), std::string::npos);
    EXPECT_NE(written.find("title"), std::string::npos);
    const std::string sinks =
        Export(tree, false, "base.tab", new QExportSelection{CString(u"Base")});
    EXPECT_NE(sinks.find("label\t\"\"\"sink\"\"\"\t\tGroup|Base|1\n"), std::string::npos);
    // Identifiers are compared with case.
    EXPECT_EQ(
        Export(tree, false, "none.tab", new QExportSelection{CString(u"wall")}).find("Group|"),
        std::string::npos);
}

TEST_F(ExchangeTreeTest, ExtraAttributeLoadsAndIsReportedAsUnmatched) {
    WriteFileBytes(Path("extra.tab"), "title\t\"\"\"x\"\"\"\t\t\n"
                                      "width\t5\t\tGroup|Base\n"
                                      "colour\t\"red\"\t\tGroup|Base\n"
                                      "width\t7\t\tGroup|Base\n");
    FakeTree tree;
    tree.AddGroup(u"Base").shelves = 4;
    EXPECT_FALSE(tree.ImportOrMergeFrom(PathOf("extra.tab"), true, nullptr));
    ASSERT_EQ(tree.groups.size(), 1u);
    EXPECT_EQ(tree.groups[0]->width.Type(), QAnyValue::TYPE_INT);
    EXPECT_EQ(tree.groups[0]->width.MakeInt(), 5);
    EXPECT_EQ(tree.groups[0]->shelves, 4) << "an attribute the file lacks stays as it was";
    EXPECT_EQ(tree.title, CString(u"x"));
    const std::vector<Report> expected{
        {"Import error", "Unmatched content for Group:Base\n\n\tcolour\t\n\twidth\t"},
        {"Import", "Some errors occurred during import. See error log for details."}};
    EXPECT_EQ(PendingReports(), expected);
    EXPECT_TRUE(tree.deleteCalls.empty()) << "a merge without a selection empties nothing";
}

TEST_F(ExchangeTreeTest, ImportEmptiesFirstAndStopsWhenThatFails) {
    WriteFileBytes(Path("one.tab"), "title\t\"new\"\t\t\n");
    FakeTree tree;
    tree.title = u"old";
    tree.refuseDelete = true;
    EXPECT_FALSE(tree.ImportOrMergeFrom(PathOf("one.tab"), false, nullptr));
    EXPECT_EQ(tree.title, CString(u"old"));
    EXPECT_FALSE(tree.ImportOrMergeFrom(PathOf("one.tab"), true, new QExportSelection{u"a"}));
    EXPECT_EQ(tree.deleteCalls, (std::vector<int>{-1, 1}));
    const Report failed{"Import",
                        "Failed preparation for import - drawing may have changed too much"};
    // The log keeps one of two equal reports that wait together.
    EXPECT_EQ(PendingReports(), (std::vector<Report>{failed}));
}

TEST_F(ExchangeTreeTest, FileNamesThatCannotBeUsedFailWithTheirMessages) {
    FakeTree tree;
    EXPECT_FALSE(tree.ExportData(PathOf("tree.csv"), false, false, nullptr));
    EXPECT_FALSE(std::filesystem::exists(Path("tree.csv")));
    EXPECT_FALSE(tree.ImportOrMergeFrom(PathOf("tree.txt"), false, nullptr));
    EXPECT_TRUE(tree.deleteCalls.empty());
    const CString missingFolder = PathOf("no/such/folder/tree.tab");
    EXPECT_FALSE(tree.ExportData(missingFolder, false, false, nullptr));
    const std::vector<Report> reports = PendingReports();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0], (Report{"Export", "Unrecognized file extension: .csv"}));
    EXPECT_EQ(reports[1], (Report{"Import", "Unrecognized file extension: .txt"}));
    EXPECT_EQ(reports[2].heading, "Export");
    EXPECT_EQ(reports[2].message.rfind("Cannot write export data to '" + missingFolder.ToUtf8() +
                                           "'\nReason given is: ",
                                       0),
              0u)
        << reports[2].message;
}

// An export replaces the old file in one step, keeping its mode, and leaves it as it was, with
// nothing beside it, when the new one cannot be put there.
TEST_F(ExchangeTreeTest, AnExportReplacesTheOldFileWholeOrNotAtAll) {
    namespace fs = std::filesystem;
    const fs::path folder = Path("replaced");
    fs::create_directory(folder);
    const auto in = [&folder](const char* name) {
        return CString::FromUtf8((folder / name).string());
    };
    FakeTree tree;
    PopulateSampleTree(tree);
    WriteFileBytes((folder / "kept.tab").string(), "old");
    fs::permissions(folder / "kept.tab", fs::perms(0640));
    ASSERT_TRUE(tree.ExportData(in("kept.tab"), false, false, nullptr));
    EXPECT_NE(ReadFileBytes((folder / "kept.tab").string()), "old");
    EXPECT_EQ(fs::status(folder / "kept.tab").permissions(), fs::perms(0640));

    fs::create_directory(folder / "taken.xml");
    EXPECT_FALSE(tree.ExportData(in("taken.xml"), false, false, nullptr));
    EXPECT_TRUE(fs::is_directory(folder / "taken.xml"));
    const std::vector<Report> reports = PendingReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].message.rfind("Cannot write export data to '" +
                                           (folder / "taken.xml").string() + "'\nReason given is: ",
                                       0),
              0u)
        << reports[0].message;
    const auto entries = std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    EXPECT_EQ(entries, 2) << "no temporary file is left beside the export";
    fs::remove_all(folder);
}

} // namespace
} // namespace keel::test
