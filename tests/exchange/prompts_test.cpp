#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"
#include "tests/support/uihosts.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace keel::test {
namespace {

namespace fs = std::filesystem;

class PromptsTest : public ExchangeFileTest {
protected:
    void SetUp() override {
        ExchangeFileTest::SetUp();
        m_path = Path("prompts.tab");
    }

    std::string m_path;
    ExportDialogHost m_host;
};

TEST_F(PromptsTest, ExportPromptAsksWithTheFilterAndTitleOfItsKind) {
    ScopedUIServices installed(m_host);
    FakeTree tree;
    tree.title = u"t";
    EXPECT_FALSE(tree.ExportPrompt(true, nullptr)) << "cancelled";
    m_host.chosenPath = m_path;
    EXPECT_TRUE(tree.ExportPrompt(false, nullptr));
    EXPECT_TRUE(fs::exists(m_path));
    ASSERT_EQ(m_host.dialogs.size(), 2u);
    EXPECT_TRUE(m_host.dialogs[0].save);
    EXPECT_EQ(m_host.dialogs[1].filter, "ASCII Export (*.tab)|*.tab|XML Export (*.xml)|*.xml||");
    EXPECT_EQ(m_host.dialogs[1].defaultExt, ".tab");
    EXPECT_EQ(QExportable::LastExportType(), QExportTypeASCII);
    EXPECT_TRUE(m_host.shellCalls.empty());
}

TEST_F(PromptsTest, ImportAndMergePromptsAskUnlessGivenAFile) {
    ScopedUIServices installed(m_host);
    FakeTree source;
    source.title = u"from file";
    ASSERT_TRUE(source.ExportData(CString::FromUtf8(m_path), false, true, nullptr));
    ASSERT_EQ(m_host.shellCalls.size(), 1u);
    EXPECT_EQ(m_host.shellCalls[0].verb, "open");

    FakeTree tree;
    EXPECT_FALSE(tree.ImportPrompt());
    m_host.chosenPath = m_path;
    EXPECT_TRUE(tree.MergePrompt());
    EXPECT_EQ(tree.title, CString(u"from file"));
    tree.title = u"changed";
    EXPECT_TRUE(tree.ImportOrMergePrompt(false, CString::FromUtf8(m_path)));
    EXPECT_EQ(tree.title, CString(u"from file"));
    ASSERT_EQ(m_host.dialogs.size(), 2u);
    EXPECT_FALSE(m_host.dialogs[0].save);
    EXPECT_EQ(m_host.dialogs[1].filter, "Export files (*.tab,*.xml)|*.tab;*.xml||");
    EXPECT_EQ(tree.deleteCalls, (std::vector<int>{-1})) << "only the import empties the tree";
}

TEST_F(PromptsTest, AnExternalEditorsSavesAreMergedBackUntilItEnds) {
    ScopedUIServices installed(m_host);
    FakeTree tree;
    tree.title = u"before";
    ASSERT_TRUE(tree.EditUsingExternalEditor(nullptr));
    ASSERT_EQ(m_host.shellCalls.size(), 1u);
    EXPECT_EQ(m_host.shellCalls[0].verb, "edit");
    const std::string edited = m_host.shellCalls[0].path;
    EXPECT_EQ(fs::path(edited).extension(), ".tab");
    EXPECT_EQ(ExternalEditorCount(), 1);

    ProcessUpdatesFromExternalEditors();
    EXPECT_TRUE(PendingReports().empty()) << "an unchanged file is not merged";

    std::ofstream(edited, std::ios::binary) << "title\t\"\"\"after\"\"\"\t\t\n";
    fs::last_write_time(edited, fs::last_write_time(edited) + std::chrono::seconds(2));
    ProcessUpdatesFromExternalEditors();
    EXPECT_EQ(tree.title, CString(u"after"));
    EXPECT_EQ(ExternalEditorCount(), 1);

    m_host.processesRunning = false;
    ProcessUpdatesFromExternalEditors();
    EXPECT_EQ(ExternalEditorCount(), 0);
    EXPECT_FALSE(fs::exists(edited)) << "the file goes with its editor";
}

TEST_F(PromptsTest, NoEditorMeansNoInstanceAndNoFileLeft) {
    m_host.startProcesses = false;
    ScopedUIServices installed(m_host);
    {
        FakeTree tree;
        EXPECT_FALSE(tree.EditUsingExternalEditor(nullptr));
        EXPECT_EQ(ExternalEditorCount(), 0);
        ASSERT_EQ(m_host.shellCalls.size(), 1u);
        EXPECT_FALSE(fs::exists(m_host.shellCalls[0].path));
        m_host.startProcesses = true;
        ASSERT_TRUE(tree.EditUsingExternalEditor(nullptr));
        EXPECT_EQ(ExternalEditorCount(), 1);
    }
    EXPECT_EQ(ExternalEditorCount(), 0) << "an object that dies takes its editors along";
    EXPECT_FALSE(fs::exists(m_host.shellCalls[1].path));
}

} // namespace
} // namespace keel::test
