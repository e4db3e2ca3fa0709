#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"
#include "tests/support/uihosts.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace keel::test {
namespace {

namespace fs = std::filesystem;

using ExternalEditorTest = ExchangeFileTest;

// Each save of the editor's file is merged back, and the editor stays known, until it ends.
TEST_F(ExternalEditorTest, ItsSavesAreMergedBackUntilItEnds) {
    ExportDialogHost host;
    ScopedUIServices installed(host);
    FakeTree tree;
    tree.title = u"before";
    ASSERT_TRUE(tree.EditUsingExternalEditor(nullptr));
    ASSERT_EQ(host.shellCalls.size(), 1u);
    const std::string edited = host.shellCalls[0].path;
    EXPECT_EQ(ExternalEditorCount(), 1);

    std::ofstream(edited, std::ios::binary) << "title\t\"\"\"after\"\"\"\t\t\n";
    fs::last_write_time(edited, fs::last_write_time(edited) + std::chrono::seconds(2));
    ProcessUpdatesFromExternalEditors();
    EXPECT_EQ(tree.title, CString(u"after"));
    EXPECT_EQ(ExternalEditorCount(), 1);

    host.processesRunning = false;
    ProcessUpdatesFromExternalEditors();
    EXPECT_EQ(ExternalEditorCount(), 0);
    EXPECT_FALSE(fs::exists(edited)) << "the file goes with its editor";
}

TEST_F(ExternalEditorTest, NoEditorMeansNoInstanceAndNoFileLeft) {
    ExportDialogHost host;
    host.startProcesses = false;
    ScopedUIServices installed(host);
    {
        FakeTree tree;
        EXPECT_FALSE(tree.EditUsingExternalEditor(nullptr));
        EXPECT_EQ(ExternalEditorCount(), 0);
        ASSERT_EQ(host.shellCalls.size(), 1u);
        EXPECT_FALSE(fs::exists(host.shellCalls[0].path));
        host.startProcesses = true;
        ASSERT_TRUE(tree.EditUsingExternalEditor(nullptr));
        EXPECT_EQ(ExternalEditorCount(), 1);
    }
    EXPECT_EQ(ExternalEditorCount(), 0) << "an object that dies takes its editors along";
    EXPECT_FALSE(fs::exists(host.shellCalls[1].path));
}

} // namespace
} // namespace keel::test
