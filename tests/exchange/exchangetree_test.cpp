#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace keel::test {
namespace {

namespace fs = std::filesystem;

class ExchangeTreeTest : public ExchangeFileTest {
protected:
    std::string Export(const FakeTree& tree, bool minimal, const std::string& name) {
        EXPECT_TRUE(tree.ExportData(PathOf(name), minimal, false, nullptr)) << name;
        return ReadFileBytes(Path(name));
    }
};

// Each export of the sample tree, byte for byte, under the flags that shape the file; read back
// into an empty tree and written again, each file comes out as it went in.
TEST_F(ExchangeTreeTest, ExportsMatchTheirGoldenFilesAndRoundTrip) {
    const struct {
        const char* file;
        bool minimal;
        std::initializer_list<int> flags;
    } cases[] = {
        {"tree-full.tab", false, {}},           {"tree-minimal.tab", true, {}},
        {"tree-context-first.tab", false, {2}}, {"tree-sorted.tab", false, {4}},
        {"tree-relative-ids.tab", false, {1}},
    };
    FakeTree tree;
    PopulateSampleTree(tree);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        ExportFlagsScope flags(c.flags);
        const std::string golden = ReadFileBytes(ExchangeData(c.file));
        const std::string written = Export(tree, c.minimal, c.file);
        EXPECT_EQ(written, golden);
        if (std::getenv("KEEL_WRITE_GOLDEN"))
            WriteFileBytes(ExchangeData(c.file), written);
        FakeTree back;
        EXPECT_TRUE(back.ImportOrMergeFrom(PathOf(c.file), false, nullptr));
        EXPECT_EQ(Export(back, c.minimal, std::string("again-") + c.file), golden);
    }
    // Equal reports that wait together are kept once.
    EXPECT_EQ(PendingReports(), std::vector<Report>{c_importCompleted});
}

TEST_F(ExchangeTreeTest, ExtraAttributeLoadsAndIsReportedAsUnmatched) {
    WriteFileBytes(Path("extra.tab"), "title\t\"\"\"x\"\"\"\t\t\nwidth\t5\t\tGroup|Base\n"
                                      "colour\t\"red\"\t\tGroup|Base\nwidth\t7\t\tGroup|Base\n");
    FakeTree tree;
    tree.AddGroup(u"Base").shelves = 4;
    EXPECT_FALSE(tree.ImportOrMergeFrom(PathOf("extra.tab"), true, nullptr));
    ASSERT_EQ(tree.groups.size(), 1u);
    EXPECT_TRUE(tree.groups[0]->width.Identical(QAnyValue(5)));
    EXPECT_EQ(tree.groups[0]->shelves, 4) << "an attribute the file lacks stays as it was";
    EXPECT_EQ(tree.title, CString(u"x"));
    const std::vector<Report> expected{
        {"Import error", "Unmatched content for Group:Base\n\n\tcolour\t\n\twidth\t"},
        c_importHadErrors};
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
    EXPECT_EQ(PendingReports(), (std::vector<Report>{failed}));
}

// A file name that cannot be used fails with its message; an export replaces the old file in one
// step, keeping its mode and any link to it, and leaves it as it was, with nothing beside it,
// when it cannot.
TEST_F(ExchangeTreeTest, AnExportReplacesTheOldFileWholeOrNotAtAll) {
    const fs::path folder = Path("replaced");
    fs::create_directory(folder);
    const auto in = [&folder](const char* name) { return (folder / name).string(); };
    FakeTree tree;
    PopulateSampleTree(tree);
    EXPECT_FALSE(tree.ExportData(CString::FromUtf8(in("tree.csv")), false, false, nullptr));
    EXPECT_FALSE(tree.ImportOrMergeFrom(CString::FromUtf8(in("tree.txt")), false, nullptr));
    EXPECT_TRUE(tree.deleteCalls.empty());
    WriteFileBytes(in("kept.tab"), "old");
    fs::permissions(in("kept.tab"), fs::perms(0640));
    ASSERT_TRUE(tree.ExportData(CString::FromUtf8(in("kept.tab")), false, false, nullptr));
    EXPECT_EQ(ReadFileBytes(in("kept.tab")), ReadFileBytes(ExchangeData("tree-full.tab")));
    EXPECT_EQ(fs::status(in("kept.tab")).permissions(), fs::perms(0640));
    WriteFileBytes(in("real.tab"), "old");
    fs::create_symlink("real.tab", in("link.tab"));
    ASSERT_TRUE(tree.ExportData(CString::FromUtf8(in("link.tab")), false, false, nullptr));
    EXPECT_TRUE(fs::is_symlink(in("link.tab"))) << "the link stays and its file is replaced";
    EXPECT_EQ(ReadFileBytes(in("real.tab")), ReadFileBytes(ExchangeData("tree-full.tab")));
    fs::create_directory(in("taken.xml"));
    EXPECT_FALSE(tree.ExportData(CString::FromUtf8(in("taken.xml")), false, false, nullptr));
    EXPECT_TRUE(fs::is_directory(in("taken.xml")));
    EXPECT_FALSE(tree.ExportData(CString::FromUtf8(in("no/such/tree.tab")), false, false, nullptr));
    const std::vector<Report> reports = PendingReports();
    ASSERT_EQ(reports.size(), 4u);
    EXPECT_EQ(reports[0], (Report{"Export", "Unrecognized file extension: .csv"}));
    EXPECT_EQ(reports[1], (Report{"Import", "Unrecognized file extension: .txt"}));
    for (const auto& [report, name] :
         {std::pair{reports[2], "taken.xml"}, std::pair{reports[3], "no/such/tree.tab"}})
        EXPECT_EQ(report.message.rfind(
                      "Cannot write export data to '" + in(name) + "'\nReason given is: ", 0),
                  0u)
            << report.message;
    const auto entries = std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    EXPECT_EQ(entries, 4) << "no temporary file is left beside the export";
    fs::remove_all(folder);
}

} // namespace
} // namespace keel::test
