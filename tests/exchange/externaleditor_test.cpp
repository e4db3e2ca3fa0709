#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"
#include "tests/support/uihosts.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace keel::test {
namespace {

namespace fs = std::filesystem;

using ExternalEditorTest = ExchangeFileTest;

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
