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
    ExportDialogHost m_host;
};

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
