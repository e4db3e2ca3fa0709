#include "tests/support/evaluations.h"
#include "tests/support/tempfolder.h"

#include "keel/document/errorlog.h"
#include "keel/document/winapp.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/uiservices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace keel {
namespace {

using testing::ElementsAre;

// A host without a display that writes down whatever the functions ask of the person.
class DialogHost : public CHeadlessUIServices {
public:
    int MessageBox(const CString& text, const CString&, unsigned) override {
        boxes.push_back(text.ToUtf8());
        return IDOK;
    }
    void ShowPendingMessages(const std::vector<CPendingMessage>&) override {}
    bool EditText(CString& text, const CString&) override { return Asked("edit " + text.ToUtf8()); }
    bool PickColor(unsigned long&) override { return Asked("color"); }
    bool BrowseForFile(const CString& title, const CString&, const CString&, CString&) override {
        return Asked("browse " + title.ToUtf8());
    }
    PageSelection SelectCategoryAndPage(const CString& category, const CString&) override {
        Asked("page " + category.ToUtf8());
        return PageSelection::NoSheet;
    }
    bool Asked(const std::string& what) {
        asked.push_back(what);
        return false;
    }

    std::vector<std::string> boxes;
    std::vector<std::string> asked;
};

// Each test has its own home, an application object, the recording host and the process's log
// in a file of its own.
class FunctionsWindows : public test::HomeFolderTest {
protected:
    void SetUp() override {
        HomeFolderTest::SetUp();
        // The log of earlier tests is closed before the recording host is in place: closing a
        // log that holds errors offers to show it, and that box is none of this test's.
        QErrorLog& log = TheErrorLog();
        log.DiscardPendingMessages();
        log.CloseLogFile();
        SetUIServices(&m_host);
        m_app = std::make_unique<QWinApp>();
        QErrorType::ReloadErrorLogOnly();
        log.SetFilename(PathOf("log.txt"));
    }
    void TearDown() override {
        TheErrorLog().DiscardPendingMessages();
        TheErrorLog().CloseLogFile();
        m_app.reset();
        SetUIServices(nullptr);
        QErrorType::ReloadErrorLogOnly();
        HomeFolderTest::TearDown();
    }

    test::Evaluation Evaluated(const std::string& formula) {
        return test::Evaluated(formula, nullptr, {.action = true});
    }
    std::string ValueOf(const std::string& formula) { return Evaluated(formula).Shown(); }
    // The lines of the log file without their times: "Server:Ignoring ...". Closing the log
    // asks whether to view it, so boxes are to be looked at before.
    std::vector<std::string> Logged() const {
        TheErrorLog().CloseLogFile();
        static const std::regex line(R"(^\d\d:\d\d:\d\d (.*)$)");
        std::vector<std::string> lines;
        std::istringstream in(test::ReadText(m_root / "log.txt"));
        for (std::string text; std::getline(in, text);) {
            std::smatch match;
            if (std::regex_match(text, match, line))
                lines.push_back(match[1]);
        }
        return lines;
    }

    DialogHost m_host;
    std::unique_ptr<QWinApp> m_app;
};

struct ServerCase {
    const char* formula;
    const char* value;
    const char* logged;
};

class FunctionsWindowsWithoutDisplay : public FunctionsWindows,
                                       public testing::WithParamInterface<ServerCase> {};

// Without a display the functions answer as a server does: nothing is asked, the request is
// logged as ignored and the value is what a cancelled dialog gives.
TEST_P(FunctionsWindowsWithoutDisplay, LogTheRequestAsIgnored) {
    EXPECT_EQ(ValueOf(GetParam().formula), GetParam().value) << GetParam().formula;
    EXPECT_TRUE(m_host.asked.empty());
    EXPECT_TRUE(m_host.boxes.empty());
    EXPECT_THAT(Logged(), ElementsAre(GetParam().logged)) << GetParam().formula;
}

INSTANTIATE_TEST_SUITE_P(
    Table, FunctionsWindowsWithoutDisplay,
    testing::Values(
        ServerCase{"edittext(\"draft\")", "draft", "Server:Ignoring EDITTEXT: draft"},
        ServerCase{"pickcolor(255)", "255", "Server:Ignoring PICKCOLOR: 255"},
        ServerCase{"browsefile(\"a.dat\")", "a.dat", "Server:Ignoring BROWSEFILE: Browse for File"},
        ServerCase{"browseimage()", "", "Server:Ignoring BROWSEIMAGE: Browse for Texture"},
        ServerCase{"browsemodel()", "", "Server:Ignoring BROWSEMODEL: Browse for Model"},
        ServerCase{"msgbox(\"Hello\")", "Yes", "Server:Ignoring MSGBOX: Hello"},
        ServerCase{"confirm(\"Sure?\")", "Yes", "Server:Ignoring CONFIRM: Sure?"},
        ServerCase{"showfriendlypages(\"Doors\")", "No",
                   "Server:Ignoring SHOWFRIENDLYPAGES: Doors"},
        ServerCase{"showfriendlywizard(\"Doors\", 1, 2, 3, 4)", "No",
                   "Server:Ignoring SHOWFRIENDLYWIZARD: Doors"}));

TEST_F(FunctionsWindows, MsgBoxLogReportsUnderItsHeading) {
    EXPECT_EQ(ValueOf("msgboxlog(\"Careful\", \"Checks\")"), "Yes");
    EXPECT_EQ(ValueOf("msgboxlog(\"Again\")"), "Yes");
    QErrorLog& log = TheErrorLog();
    ASSERT_EQ(log.GetSize(), 2);
    EXPECT_EQ(log.Message(0).ToUtf8(), "Careful");
    EXPECT_EQ(log.ErrorType(0)->Description().ToUtf8(), "Checks");
    EXPECT_EQ(log.Message(1).ToUtf8(), "Again");
    EXPECT_EQ(log.ErrorType(1)->Description().ToUtf8(), "Error");
}

} // namespace
} // namespace keel
