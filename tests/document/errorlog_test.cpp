#include "tests/support/homefolder.h"

#include "keel/document/errorlog.h"
#include "keel/document/winapp.h"
#include "keel/platform/registry.h"
#include "keel/platform/uiservices.h"

#include <deque>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using test::ReadText;
using test::WriteText;
using Lines = std::vector<std::string>;

CString PathText(const fs::path& path) {
    return CString::FromUtf8(path.string());
}

// The log lines of a file, each without its leading "HH:MM:SS ".
Lines LoggedLines(const fs::path& path) {
    static const std::regex line(R"(^\d\d:\d\d:\d\d (.*)$)");
    Lines lines;
    std::istringstream in(ReadText(path));
    for (std::string text; std::getline(in, text);) {
        std::smatch match;
        if (std::regex_match(text, match, line))
            lines.push_back(match[1]);
    }
    return lines;
}

bool Matches(const CString& text, const char* pattern) {
    return std::regex_match(text.ToUtf8(), std::regex(pattern));
}

class TestApp : public QWinApp {
public:
    CString AppName() const override { return u"Tester"; }
    CString FileVersion() const override { return u"1.2.3.4"; }
    CString ProductVersion() const override { return u"5.6"; }
    CString FileDescription() const override { return u"Test program"; }
};

struct Box {
    CString text;
    CString caption;
    unsigned flags;
    bool operator==(const Box&) const = default;
};

void PrintTo(const Box& box, std::ostream* out) {
    *out << box.text.ToUtf8() << " [" << box.caption.ToUtf8() << "] " << box.flags;
}

// The pending messages of a log, "type:text" each.
Lines Pending(const QErrorLog& log) {
    Lines lines;
    for (int i = 0; i < log.GetSize(); ++i)
        lines.push_back(log.ErrorType(i)->Description().ToUtf8() + ":" + log.Message(i).ToUtf8());
    return lines;
}

// Records what the library shows; answers boxes from a script, then with the default button.
class ScriptedHost : public IUIServices {
public:
    bool HasDisplay() const override { return display; }
    int MessageBox(const CString& text, const CString& caption, unsigned flags) override {
        boxes.push_back(Box{text, caption, flags});
        if (answers.empty())
            return DefaultButtonAnswer(flags);
        const int answer = answers.front();
        answers.pop_front();
        return answer;
    }
    void ShowPendingMessages(const std::vector<CPendingMessage>& messages) override {
        shownLists.push_back(messages);
        if (onShow)
            onShow();
    }
    bool Customise(CCheckList&, CCheckList&, const std::function<void()>&) override {
        ++customiseCalls;
        return false;
    }
    bool OpenFile(const CString& path) override {
        openedFiles.push_back(path);
        return true;
    }
    void RefreshErrorButtons() override {}

    bool display = true;
    std::deque<int> answers;
    std::function<void()> onShow;

    std::vector<Box> boxes;
    std::vector<std::vector<CPendingMessage>> shownLists;
    std::vector<CString> openedFiles;
    int customiseCalls = 0;
};

// Each test has a fresh folder as home, data and configuration folder, an application object
// named "Tester", a scripted host, and the process's log pointed at a file of its own.
class ErrorLogTest : public test::HomeFolderTest {
protected:
    void SetUp() override {
        HomeFolderTest::SetUp();
        m_environment.Set("USER", "tester");
        SetUIServices(&m_host);
        m_app = std::make_unique<TestApp>();
        QErrorType::ReloadErrorLogOnly();
        QErrorLog& processLog = TheErrorLog();
        processLog.DiscardPendingMessages();
        processLog.CloseLogFile();
        processLog.SetFilename(PathText(ProcessLogPath()));
        m_host = ScriptedHost();
    }

    void TearDown() override {
        m_host.answers.clear();
        TheErrorLog().DiscardPendingMessages();
        TheErrorLog().CloseLogFile();
        SetNoEvalReportErrors(false);
        m_app.reset();
        SetUIServices(nullptr);
        QErrorType::ReloadErrorLogOnly();
        HomeFolderTest::TearDown();
    }

    fs::path LogsFolder() const { return m_root / "data" / "keel" / "Logs"; }
    fs::path ProcessLogPath() const { return m_root / "process-log.txt"; }
    static fs::path PathOf(const QErrorLog& log) { return log.FilenameFullPath().ToUtf8(); }

    ScriptedHost m_host;
    std::unique_ptr<TestApp> m_app;
};

TEST_F(ErrorLogTest, ANameIsInTheLogsFolderOfTheDataFolderAndAFullPathIsKept) {
    QErrorLog log(u"mine.txt");
    EXPECT_EQ(log.Filename(), u"mine.txt");
    EXPECT_EQ(PathOf(log), LogsFolder() / "mine.txt");
    log.SetFilename(PathText(m_root / "elsewhere" / "log.txt"));
    EXPECT_EQ(PathOf(log), m_root / "elsewhere" / "log.txt");

    m_app.reset();
    EXPECT_TRUE(QErrorLog(u"mine.txt").FilenameFullPath().IsEmpty()) << "no application";
}

std::string WithoutTimes(const std::string& text) {
    const std::string date = std::regex_replace(
        text, std::regex(R"(Error Log: \d\d-\d\d-\d\d \d\d:\d\d:\d\d)"), "Error Log: <time>");
    return std::regex_replace(date, std::regex(R"((^|\n)\d\d:\d\d:\d\d )"), "$1<clock> ");
}

const std::string c_dashes = "--------------------------------------------------------\n";
const std::string c_header = "Tester - Error Log: <time>\n"
                             "File Version: 1.2.3.4\n"
                             "Product Version:           5.6\n"
                             "User Name:    tester\n";
const std::string c_advice = c_dashes +
                             "Please turn on 'Word Wrap' from the 'Format' menu\n"
                             "To print, select 'Print' from the 'File' menu\n" +
                             c_dashes + "\n";

// The first message makes the folder and the file, which starts with a header. An interactive run
// replaces a file of the same name; a server adds to it, without the advice, but a file it starts
// has the advice.
TEST_F(ErrorLogTest, TheHeaderFollowsTheKindOfRunAndTheFileThere) {
    const struct {
        const char* name;
        bool server, earlier;
        std::string header;
    } cases[] = {
        {"again.txt", false, true, "\n" + c_header + c_advice},
        {"server.txt", true, true, "earlier run\n\n" + c_header},
        {"server-new.txt", true, false, "\n" + c_header + c_advice},
    };
    for (const auto& c : cases) {
        if (c.earlier)
            WriteText(LogsFolder() / c.name, "earlier run\n");
        m_app->SetServer(c.server);
        QErrorLog log(CString::FromUtf8(c.name));
        log.Log(log.Register(u"Formula"), u"Bad value");
        EXPECT_EQ(WithoutTimes(ReadText(PathOf(log))), c.header + "<clock> Formula:Bad value\n")
            << c.name;
    }
}

// A server only logs, even a type that is neither shown nor logged.
TEST_F(ErrorLogTest, AServerOnlyLogs) {
    m_app->SetServer(true);
    QErrorLog log(u"server.txt");
    QErrorType* formula = log.Register(u"Formula");
    formula->DisplayOrLog(u"First");
    QErrorType* silent = log.Register(u"Silent");
    silent->SetIsDisplay(false);
    silent->SetIsLog(false);
    silent->DisplayOrLog(u"Logged all the same");
    EXPECT_TRUE(log.IsLogOnly());
    EXPECT_EQ(log.GetSize(), 0);
    EXPECT_EQ(LoggedLines(PathOf(log)), Lines({"Formula:First", "Silent:Logged all the same"}));
    EXPECT_TRUE(m_host.boxes.empty());
}

// A file that cannot be made or written is reported once, with a stop box, and display goes on.
TEST_F(ErrorLogTest, AFileThatCannotBeWrittenIsReportedOnce) {
    WriteText(m_root / "data" / "keel", "a file where the data folder should be");
    QErrorLog log(u"never.txt");
    QErrorType* formula = log.Register(u"Formula");
    formula->DisplayOrLog(u"First");
    formula->DisplayOrLog(u"Second");
    log.Log(formula, u"Third");
    EXPECT_TRUE(log.IsOpen());
    EXPECT_FALSE(log.IsWritten());
    EXPECT_EQ(Pending(log), Lines({"Formula:First", "Formula:Second"}));

    QErrorLog full(u"/dev/full");
    full.Log(full.Register(u"Formula"), u"First");
    full.Log(full.Register(u"Formula"), u"Second");
    EXPECT_FALSE(full.IsWritten());

    m_app.reset();
    QErrorLog nowhere(u"nowhere.txt");
    nowhere.Log(nowhere.Register(u"Formula"), u"First");
    const CString panic = u"Panic: Cannot create errorlog file <";
    EXPECT_EQ(m_host.boxes,
              (std::vector<Box>{{panic + PathText(LogsFolder() / "never.txt") + u">", u"Tester",
                                 MB_OK | MB_ICONSTOP},
                                {panic + u"/dev/full>", u"Tester", MB_OK | MB_ICONSTOP},
                                {panic + u">", u"Keel", MB_OK | MB_ICONSTOP}}));
}

TEST_F(ErrorLogTest, DisplayQueuesEachTextOfATypeOnce) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    log.Display(formula, u"Bad value");
    log.Display(formula, u"Other value");
    log.Display(formula, u"Bad value");
    log.Display(log.Register(u"Table"), u"Bad value");

    ASSERT_EQ(log.GetSize(), 3);
    EXPECT_EQ(log.ErrorType(0), formula);
    EXPECT_EQ(log.Message(0), u"Bad value");
    EXPECT_EQ(log.ErrorType(2)->Description(), u"Table");
    EXPECT_TRUE(m_host.boxes.empty());
}

TEST_F(ErrorLogTest, ThousandMessagesThenOverflowThenDropThenRoomAgain) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    for (int i = 0; i < QErrorLog::c_maxPendingMessages; ++i)
        log.Display(formula, CString::Formatted(u"Message %d", i));
    ASSERT_EQ(log.GetSize(), 1000);
    EXPECT_EQ(log.Message(999), u"Message 999");

    log.Display(formula, u"One too many");
    ASSERT_EQ(log.GetSize(), 1001);
    EXPECT_EQ(log.ErrorType(1000)->Description(), u"Error log overflow");
    EXPECT_EQ(log.Message(1000), u"Exceeded maximum number of error messages in log");

    log.Display(log.Register(u"Table"), u"Dropped");
    EXPECT_EQ(log.GetSize(), 1001);

    log.DiscardPendingMessages();
    EXPECT_EQ(log.GetSize(), 0);
    log.Display(formula, u"Room again");
    ASSERT_EQ(log.GetSize(), 1);
    EXPECT_EQ(log.Message(0), u"Room again");
}

// A message is written and queued. The log starts as log-only, and the first message decides:
// a type that is neither shown nor logged vanishes, unless the log is log-only.
TEST_F(ErrorLogTest, DisplayOrLogWritesAndQueues) {
    QErrorLog log(u"both.txt");
    QErrorType* quiet = log.Register(u"Quiet");
    quiet->SetIsLog(false);
    EXPECT_TRUE(log.IsLogOnly());
    EXPECT_EQ(quiet->DisplayOrLog(u"First"), 1);
    quiet->DisplayOrLog(u"Second");
    EXPECT_FALSE(log.IsLogOnly());
    QErrorType* formula = log.Register(u"Formula");
    EXPECT_EQ(formula->DisplayOrLog(u"Bad value"), 1);
    QErrorType* silent = log.Register(u"Silent");
    silent->SetIsDisplay(false);
    silent->SetIsLog(false);
    silent->DisplayOrLog(u"Vanishes");

    EXPECT_EQ(LoggedLines(PathOf(log)), Lines({"Quiet:First", "Formula:Bad value"}));
    ASSERT_EQ(log.GetSize(), 3);
    EXPECT_EQ(log.Message(2), u"Bad value");
}

TEST_F(ErrorLogTest, DescriptionsInErrorLogOnlyAreLoggedAndNeverShown) {
    ASSERT_TRUE(
        CRegistry::Current().WriteProfileString(u"Options", u"ErrorLogOnly", u";Quiet;Silent;"));
    QErrorType::ReloadErrorLogOnly();
    QErrorLog log(u"errorlogonly.txt");
    QErrorType* quiet = log.Register(u"Quiet");
    EXPECT_FALSE(quiet->IsDisplay());
    EXPECT_TRUE(quiet->IsLog());
    EXPECT_FALSE(log.Register(u"Silent")->IsDisplay());
    EXPECT_TRUE(log.Register(u"Quie")->IsDisplay());
    EXPECT_TRUE(log.Register(u"uiet")->IsDisplay());
    quiet->DisplayOrLog(u"First");
    quiet->DisplayOrLog(u"Second");
    EXPECT_EQ(LoggedLines(PathOf(log)), Lines({"Quiet:First", "Quiet:Second"}));
    EXPECT_EQ(log.GetSize(), 0);
}

TEST_F(ErrorLogTest, ATypeIsRegisteredOnceByItsDescription) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    EXPECT_EQ(log.Register(u"Formula"), formula);
    EXPECT_NE(log.Register(u"formula"), formula);
    EXPECT_EQ(log.GetTypeCount(), 2);
    delete log.Register(u"formula");
    EXPECT_EQ(log.GetTypeCount(), 1) << "deleting a registered type unregisters it";
}

// One message is shown in a box that offers the options, No the default, and captioned with the
// application, the type and the time, leaving out empty parts.
TEST_F(ErrorLogTest, ASingleMessageOffersTheOptions) {
    QErrorLog log;
    log.DisplayPendingMessages(true);
    log.DisplayPendingMessages(false);
    EXPECT_TRUE(m_host.boxes.empty()) << "nothing pending, nothing shown";
    EXPECT_TRUE(m_host.shownLists.empty());

    log.Display(log.Register(u"Formula"), u"Bad value");
    log.DisplayPendingMessages(true);
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].text, u"Bad value\n\nChange error reporting options?");
    EXPECT_TRUE(Matches(m_host.boxes[0].caption, R"(Tester - Formula - \d\d:\d\d:\d\d)"));
    EXPECT_EQ(m_host.boxes[0].flags, 0x114u);
    EXPECT_EQ(m_host.customiseCalls, 0);
    EXPECT_EQ(log.GetSize(), 0);

    log.Display(log.Register(u"Formula"), u"Bad value");
    m_host.answers = {IDYES};
    log.DisplayPendingMessages(false);
    EXPECT_EQ(m_host.customiseCalls, 1);
    EXPECT_EQ(log.GetSize(), 0);

    // While the application closes it is a plain stop box.
    m_app->SetClosing(true);
    log.Display(log.Register(CString()), u"No heading");
    log.DisplayPendingMessages(true);
    EXPECT_EQ(m_host.boxes.back().text, u"No heading");
    EXPECT_EQ(m_host.boxes.back().caption, u"Tester");
    EXPECT_EQ(m_host.boxes.back().flags, MB_OK | MB_ICONSTOP);
}

// Several messages are shown in one list, after a question when asked for; on No they stay.
TEST_F(ErrorLogTest, SeveralMessagesAreShownInOneList) {
    QErrorLog log;
    log.Display(log.Register(u"Formula"), u"First");
    log.Display(log.Register(u"Table"), u"Second");
    m_host.answers = {IDNO, IDYES};
    log.DisplayPendingMessages(true);
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].text, u"Several errors have occurred.\nDo you want to see them now?");
    EXPECT_EQ(m_host.boxes[0].flags, MB_YESNO | MB_ICONQUESTION);
    EXPECT_TRUE(m_host.shownLists.empty());
    EXPECT_EQ(log.GetSize(), 2);

    log.DisplayPendingMessages(true);
    ASSERT_EQ(m_host.shownLists.size(), 1u);
    const std::vector<CPendingMessage>& shown = m_host.shownLists[0];
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[0].type, u"Formula");
    EXPECT_EQ(shown[0].text, u"First");
    EXPECT_EQ(shown[1].type, u"Table");
    EXPECT_EQ(shown[1].text, u"Second");
    EXPECT_TRUE(Matches(shown[1].time, R"(\d\d:\d\d:\d\d)"));
    EXPECT_EQ(log.GetSize(), 0);

    // Without asking they are shown at once; one raised while they are shown only queues.
    log.Display(log.Register(u"Formula"), u"First");
    log.Display(log.Register(u"Formula"), u"Second");
    int pendingWhileShowing = 0;
    m_host.onShow = [&] {
        log.Display(log.Register(u"Formula"), u"Raised while showing");
        pendingWhileShowing = log.GetSize();
        log.DisplayPendingMessages(false);
    };
    log.DisplayPendingMessages(false);
    EXPECT_EQ(m_host.boxes.size(), 2u);
    EXPECT_EQ(pendingWhileShowing, 3);
    EXPECT_EQ(m_host.shownLists.size(), 2u);
}

// Nothing is asked for a log never opened, a log-only one, or without an application.
TEST_F(ErrorLogTest, CloseAsksNothingWhenThereIsNoFileToOffer) {
    QErrorLog never;
    never.Display(never.Register(u"Formula"), u"Pending");
    never.CloseLogFile();
    EXPECT_EQ(never.GetSize(), 1);

    m_app->SetServer(true);
    QErrorLog server(u"reopen.txt");
    QErrorType* formula = server.Register(u"Formula");
    formula->DisplayOrLog(u"Before");
    server.CloseLogFile();
    EXPECT_FALSE(server.IsOpen());
    server.Log(formula, u"After");
    EXPECT_TRUE(server.IsWritten());
    EXPECT_EQ(LoggedLines(PathOf(server)), Lines({"Formula:Before", "Formula:After"}));

    m_app->SetServer(false);
    QErrorLog noApp(PathText(m_root / "no-app.txt"));
    noApp.Log(noApp.Register(u"Formula"), u"Bad value");
    m_app.reset();
    noApp.CloseLogFile();
    EXPECT_TRUE(m_host.boxes.empty());
}

TEST_F(ErrorLogTest, MessageBoxOrLogReportsUnderTheHeading) {
    EXPECT_EQ(QMessageBoxOrLog(u"Cannot open the table", u"Table"), 1);
    QMessageBoxOrLog(u"Something failed", MB_OK | MB_ICONEXCLAMATION);
    QMessageBoxOrLog(u"Something else failed");
    EXPECT_EQ(Pending(TheErrorLog()),
              Lines({"Table:Cannot open the table", "Error:Something failed",
                     "Error:Something else failed"}));

    // The statics act on the process's log.
    QErrorLog::DisplayThePendingMessages(false);
    EXPECT_EQ(m_host.shownLists.size(), 1u);
    EXPECT_FALSE(QErrorLog::TheLogHasPendingMessages());
    QMessageBoxOrLog(u"Third", u"Formula");
    EXPECT_TRUE(QErrorLog::TheLogHasPendingMessages());
    QErrorLog::DiscardThePendingMessages();
    EXPECT_FALSE(QErrorLog::TheLogHasPendingMessages());
    EXPECT_EQ(m_host.shownLists.size(), 1u);
}

TEST_F(ErrorLogTest, EvaluatorReportsCanBeSwitchedOff) {
    SetNoEvalReportErrors(true);
    EXPECT_EQ(QMessageBoxOrLogUnlessNoEvalReportErrors(u"Hidden", u"Formula"), 0);
    EXPECT_FALSE(QErrorLog::TheLogHasPendingMessages());
    SetNoEvalReportErrors(false);
    EXPECT_EQ(QMessageBoxOrLogUnlessNoEvalReportErrors(u"Shown", u"Formula"), 1);
    EXPECT_TRUE(QErrorLog::TheLogHasPendingMessages());
}

// A box is shown when somebody can answer it; a server, or a run without a display, logs what
// it ignores and answers for itself.
TEST_F(ErrorLogTest, ExceptServerShowsABoxOnlyWhenThereIsSomebody) {
    m_host.answers = {IDCANCEL, IDYES, IDCANCEL};
    EXPECT_EQ(QMessageBoxExceptServer(u"Save", u"Disk is full", MB_OKCANCEL), IDCANCEL);
    EXPECT_EQ(QMessageBoxYesNoExceptServer(u"Import", u"Overwrite the table?", IDNO), IDYES);
    EXPECT_EQ(QMessageBoxYesNoAlwaysCancel(u"Save changes?", IDNO), IDCANCEL);
    const std::vector<Box> boxes = {{u"Disk is full", u"Tester", MB_OKCANCEL},
                                    {u"Overwrite the table?", u"Tester", MB_YESNO},
                                    {u"Save changes?", u"Tester", MB_YESNOCANCEL}};
    EXPECT_EQ(m_host.boxes, boxes);
    EXPECT_FALSE(fs::exists(ProcessLogPath()));

    m_host.display = false;
    EXPECT_EQ(QMessageBoxExceptServer(u"Delete", u"Can't delete file a.txt"), IDOK);
    m_host.display = true;
    m_app->SetServer(true);
    EXPECT_EQ(QMessageBoxExceptServer(u"Save", u"Disk is full", MB_OKCANCEL | MB_DEFBUTTON2),
              IDCANCEL);
    EXPECT_EQ(QMessageBoxYesNoExceptServer(u"Import", u"Overwrite the table?", IDNO), IDNO);
    EXPECT_EQ(QMessageBoxYesNoAlwaysCancel(u"Save changes?", IDNO), IDNO);
    EXPECT_EQ(m_host.boxes, boxes);
    EXPECT_EQ(
        LoggedLines(ProcessLogPath()),
        Lines({"Server:Ignoring Delete: Can't delete file a.txt",
               "Server:Ignoring Save: Disk is full", "Server:Ignoring Import: Overwrite the table?",
               "Server:Ignoring: Save changes? [returning No]"}));
}

TEST(ErrorMessageTest, IsTheExceptionsOwnTextCutToTheBuffer) {
    EXPECT_EQ(ErrorMessage(CException("Disk is full")), u"Disk is full");
    EXPECT_EQ(ErrorMessage(InvalidArgumentException("QArray::GetAt")),
              u"Invalid argument: QArray::GetAt");
    EXPECT_EQ(ErrorMessage(CException(std::string(600, 'x'))), CString(u'x', 511));
    EXPECT_TRUE(ErrorMessage(ExceptionDescr("pipe.cpp", 12)).IsEmpty());
    EXPECT_EQ(ErrorMessage(ExceptionDescr("pipe.cpp", 12, u"STDOUT Pipe creation")),
              u"STDOUT Pipe creation");
}

} // namespace
} // namespace keel
