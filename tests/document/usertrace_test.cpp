#include "tests/support/homefolder.h"

#include "keel/document/usertrace.h"
#include "keel/document/winapp.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <regex>
#include <string>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;

class TestApp : public QWinApp {
public:
    CString AppName() const override { return u"Tester"; }
};

// Each test traces into a fresh data folder, with an application named "Tester", the mask
// cleared and no trace file open.
class UserTraceTest : public test::HomeFolderTest {
protected:
    void SetUp() override {
        HomeFolderTest::SetUp();
        m_savedMask = QWinApp::c_UserTraceMask;
        QWinApp::c_UserTraceMask = 0;
        m_app = std::make_unique<TestApp>();
        UserTraceRestart();
    }

    void TearDown() override {
        UserTraceRestart();
        m_app.reset();
        QWinApp::c_UserTraceMask = m_savedMask;
        HomeFolderTest::TearDown();
    }

    fs::path DataFolder() const { return m_root / "data" / "keel"; }

    int FilesInDataFolder() const {
        return fs::is_directory(DataFolder()) ? static_cast<int>(Listing("data/keel").size()) : 0;
    }

    unsigned m_savedMask = 0;
    std::unique_ptr<TestApp> m_app;
};

// The file is named by the local time in the data folder, and opens with a checkpoint of empty
// text; closing ends tracing for the run, and a restart opens a new file.
TEST_F(UserTraceTest, TheFileIsNamedByTheLocalTimeAndOpensWithACheckpoint) {
    EXPECT_TRUE(UserTraceFilePath().IsEmpty());
    const std::string before = test::LocalTimeText("!Trace!_%Y%m%d_%H%M%S.txt");
    UserTraceWriteLine(u"hello");
    const std::string after = test::LocalTimeText("!Trace!_%Y%m%d_%H%M%S.txt");
    const fs::path path = UserTraceFilePath().ToUtf8();
    EXPECT_EQ(path.parent_path(), DataFolder());
    EXPECT_TRUE(path.filename() == before || path.filename() == after) << path;
    const std::vector<std::string> lines = test::ClosedTraceLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(T \d\d:\d\d:\d\d\.\d{3}\t\d{6}\t)")))
        << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(R"(T \d\d:\d\d:\d\d\.\d{3}\t\d{6}\thello)")))
        << lines[1];

    const std::string closed = test::ReadText(path);
    UserTraceWriteLine(u"after");
    UserTraceCheckpoint(u"after");
    EXPECT_TRUE(UserTraceFilePath().IsEmpty());
    EXPECT_EQ(test::ReadText(path), closed);
    EXPECT_EQ(FilesInDataFolder(), 1);

    UserTraceRestart();
    UserTraceWriteLine(u"second run");
    EXPECT_FALSE(UserTraceFilePath().IsEmpty());
    const std::vector<std::string> second = test::ClosedTraceLines();
    ASSERT_EQ(second.size(), 2u);
    EXPECT_NE(second[1].find("second run"), std::string::npos);
}

// A checkpoint closes every level: the lines after it show the outermost column alone.
TEST_F(UserTraceTest, ACheckpointClosesEveryLevel) {
    QWinApp::c_UserTraceMask = USER_TRACE_COLUMNS;
    UserTraceWriteLineStart(u"start");
    UserTraceCheckpoint(u"checkpoint");
    UserTraceWriteLine(u"after");
    const std::vector<std::string> lines = test::ClosedTraceLines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(R"(\t\d{6}\t\t\d{6}\tstart)"))) << lines[1];
    EXPECT_TRUE(std::regex_match(lines[3], std::regex(R"(\t\d{6}\tafter)"))) << lines[3];
}

} // namespace
} // namespace keel
