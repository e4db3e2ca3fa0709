#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/document/winapp.h"
#include "keel/platform/fpstatus.h"
#include "keel/platform/registry.h"
#include "keel/platform/uiservices.h"

#include <cfenv>
#include <cfloat>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;

std::string ReadBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

CString PathText(const fs::path& path) {
    return CString::FromUtf8(path.string());
}

std::string Utf8(const CString& text) {
    return text.ToUtf8();
}

// The log lines of a file, each without its leading "HH:MM:SS ".
std::vector<std::string> LoggedLines(const fs::path& path) {
    static const std::regex line(R"(^\d\d:\d\d:\d\d (.*)$)");
    std::vector<std::string> lines;
    std::istringstream in(ReadBytes(path));
    for (std::string text; std::getline(in, text);) {
        std::smatch match;
        if (std::regex_match(text, match, line))
            lines.push_back(match[1]);
    }
    return lines;
}

std::string LocalTimeText(const char* format) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[64];
    std::strftime(text, sizeof text, format, &local);
    return text;
}

class TestApp : public QWinApp {
public:
    CString AppName() const override { return u"Tester"; }
    CString FileVersion() const override { return u"1.2.3.4"; }
    CString ProductVersion() const override { return u"5.6"; }
    CString Comments() const override { return u"No comment"; }
    CString CompanyName() const override { return u"Test Company"; }
    CString FileDescription() const override { return u"Test program"; }
    CString InternalName() const override { return u"tester"; }
    CString LegalCopyright() const override { return u"(c) Testers"; }
    CString LegalTrademarks() const override { return u"TM"; }
    CString OriginalFilename() const override { return u"tester.bin"; }
    CString PrivateBuild() const override { return u"private"; }
    CString SpecialBuild() const override { return u"special"; }
    CString ProductName() const override { return u"Tester Suite"; }
};

struct Box {
    CString text;
    CString caption;
    unsigned flags;
};

// Records what the library shows; answers boxes from a script, then with the default button.
class RecordingHost : public IUIServices {
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
    bool Customise(CCheckList& displayFlags, CCheckList& logFlags,
                   const std::function<void()>& viewLogFile) override {
        ++customiseCalls;
        return customise ? customise(displayFlags, logFlags, viewLogFile) : false;
    }
    bool OpenFile(const CString& path) override {
        openedFiles.push_back(path);
        return true;
    }
    void RefreshErrorButtons() override { ++refreshes; }

    void Forget() {
        boxes.clear();
        shownLists.clear();
        openedFiles.clear();
        customiseCalls = 0;
        refreshes = 0;
    }

    bool display = true;
    std::deque<int> answers;
    std::function<void()> onShow;
    std::function<bool(CCheckList&, CCheckList&, const std::function<void()>&)> customise;

    std::vector<Box> boxes;
    std::vector<std::vector<CPendingMessage>> shownLists;
    std::vector<CString> openedFiles;
    int customiseCalls = 0;
    int refreshes = 0;
};

// Each test has a fresh folder as home, data and configuration folder, an application object
// named "Tester", a recording host, and the process's log pointed at a file of its own.
class ErrorLogTest : public testing::Test {
protected:
    void SetUp() override {
        m_folder = fs::temp_directory_path() /
                   ("keel-errorlog-" + std::to_string(::getpid()) + "-" +
                    testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_folder);
        fs::create_directories(m_folder);
        for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"})
            ::setenv(variable, m_folder.c_str(), 1);
        ::setenv("USER", "tester", 1);
        SetUIServices(&m_host);
        m_app = std::make_unique<TestApp>();
        QErrorType::ReloadErrorLogOnly();
        QErrorLog& processLog = TheErrorLog();
        processLog.DiscardPendingMessages();
        processLog.CloseLogFile();
        processLog.SetFilename(PathText(ProcessLogPath()));
        m_host.Forget();
    }

    void TearDown() override {
        m_host.answers.clear();
        TheErrorLog().DiscardPendingMessages();
        TheErrorLog().CloseLogFile();
        SetNoEvalReportErrors(false);
        m_app.reset();
        SetUIServices(nullptr);
        QErrorType::ReloadErrorLogOnly();
        fs::remove_all(m_folder);
    }

    fs::path LogsFolder() const { return m_folder / "keel" / "Logs"; }
    fs::path ProcessLogPath() const { return m_folder / "process-log.txt"; }
    fs::path PathOf(const QErrorLog& log) const { return fs::path(Utf8(log.FilenameFullPath())); }

    void WriteOption(const char16_t* key, int value) {
        ASSERT_TRUE(CRegistry::Current().WriteProfileInt(u"Options", key, value));
    }
    void WriteOption(const char16_t* key, const char16_t* value) {
        ASSERT_TRUE(CRegistry::Current().WriteProfileString(u"Options", key, value));
    }

    fs::path m_folder;
    RecordingHost m_host;
    std::unique_ptr<TestApp> m_app;
};

// --- File name and folder -----------------------------------------------------------------------

TEST_F(ErrorLogTest, FileNameIsTheLocalTimeWithEnglishMonth) {
    const std::string before = LocalTimeText("errorlog_%d-%b-%y_%H%M%S.txt");
    const QErrorLog log;
    const std::string after = LocalTimeText("errorlog_%d-%b-%y_%H%M%S.txt");

    const std::string name = Utf8(log.Filename());
    EXPECT_TRUE(name == before || name == after) << name;
    EXPECT_TRUE(std::regex_match(
        name,
        std::regex(
            R"(errorlog_\d\d-(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec)-\d\d_\d{6}\.txt)")))
        << name;
}

TEST_F(ErrorLogTest, FullPathIsInTheLogsFolderOfTheDataFolder) {
    QErrorLog log(u"mine.txt");
    EXPECT_EQ(log.Filename(), u"mine.txt");
    EXPECT_EQ(PathOf(log), LogsFolder() / "mine.txt");

    log.SetFilename(u"other.txt");
    EXPECT_EQ(PathOf(log), LogsFolder() / "other.txt");
}

TEST_F(ErrorLogTest, FullPathSetIsKept) {
    QErrorLog log;
    log.SetFilename(PathText(m_folder / "elsewhere" / "log.txt"));
    EXPECT_EQ(PathOf(log), m_folder / "elsewhere" / "log.txt");
}

TEST_F(ErrorLogTest, WithoutApplicationThereIsNoLogsFolder) {
    m_app.reset();
    const QErrorLog log(u"mine.txt");
    EXPECT_TRUE(log.FilenameFullPath().IsEmpty());
}

TEST_F(ErrorLogTest, FirstLogMakesTheLogsFolderAndTheFile) {
    QErrorLog log(u"made.txt");
    EXPECT_FALSE(log.IsOpen());
    EXPECT_FALSE(fs::exists(LogsFolder()));

    log.Log(log.Register(u"Formula"), u"Bad value");

    EXPECT_TRUE(log.IsOpen());
    EXPECT_TRUE(log.IsWritten());
    EXPECT_TRUE(fs::is_regular_file(LogsFolder() / "made.txt"));
    EXPECT_TRUE(m_host.boxes.empty());
}

// --- Header and lines ---------------------------------------------------------------------------

std::string WithoutTimes(const std::string& text) {
    const std::string date = std::regex_replace(
        text, std::regex(R"(Error Log: \d\d-\d\d-\d\d \d\d:\d\d:\d\d)"), "Error Log: <time>");
    return std::regex_replace(date, std::regex(R"((^|\n)\d\d:\d\d:\d\d )"), "$1<clock> ");
}

const char* const kDashes = "--------------------------------------------------------\n";

TEST_F(ErrorLogTest, HeaderOfANewFile) {
    QErrorLog log(u"header.txt");
    log.Log(log.Register(u"Formula"), u"Bad value");

    EXPECT_EQ(WithoutTimes(ReadBytes(PathOf(log))), std::string("\n"
                                                                "Tester - Error Log: <time>\n"
                                                                "File Version: 1.2.3.4\n"
                                                                "Product Version:           5.6\n"
                                                                "User Name:    tester\n") +
                                                        kDashes +
                                                        "Please turn on 'Word Wrap' from the "
                                                        "'Format' menu\n"
                                                        "To print, select 'Print' from the "
                                                        "'File' menu\n" +
                                                        kDashes +
                                                        "\n"
                                                        "<clock> Formula:Bad value\n");
}

TEST_F(ErrorLogTest, VerboseHeaderListsTheVersionBlock) {
    QErrorLog log(u"verbose.txt", true);
    log.Log(log.Register(u"Formula"), u"Bad value");

    EXPECT_EQ(WithoutTimes(ReadBytes(PathOf(log))),
              std::string("\n"
                          "Tester - Error Log: <time>\n"
                          "File Version: 1.2.3.4\n"
                          "Product Version:           5.6\n"
                          "User Name:    tester\n"
                          "Description:  Test program\n"
                          "Copyright:    (c) Testers\n"
                          "Other version information\n"
                          "  Comments:                  No comment\n"
                          "  Company Name:              Test Company\n"
                          "  Internal Name:             tester\n"
                          "  Legal Trademarks:          TM\n"
                          "  Original Filename:         tester.bin\n"
                          "  Private Build Description: private\n"
                          "  Product Name:              Tester Suite\n"
                          "  S)pecial Build Description: special\n") +
                  kDashes +
                  "Please turn on 'Word Wrap' from the 'Format' menu\n"
                  "To print, select 'Print' from the 'File' menu\n" +
                  kDashes + "\n<clock> Formula:Bad value\n");
}

TEST_F(ErrorLogTest, HeaderTimeIsTheLocalDateAndTime) {
    const std::string before = LocalTimeText("%d-%m-%y %H:%M:%S");
    QErrorLog log(u"time.txt");
    log.Log(log.Register(u"Formula"), u"Bad value");
    const std::string after = LocalTimeText("%d-%m-%y %H:%M:%S");

    const std::string text = ReadBytes(PathOf(log));
    const bool stamped = text.find("Error Log: " + before + "\n") != std::string::npos ||
                         text.find("Error Log: " + after + "\n") != std::string::npos;
    EXPECT_TRUE(stamped) << text;
}

TEST_F(ErrorLogTest, ServerAddsToAnExistingFileWithoutTheDashes) {
    fs::create_directories(LogsFolder());
    WriteBytes(LogsFolder() / "server.txt", "earlier run\n");
    m_app->SetServer(true);

    QErrorLog log(u"server.txt");
    log.Log(log.Register(u"Formula"), u"Bad value");

    EXPECT_EQ(WithoutTimes(ReadBytes(PathOf(log))), "earlier run\n"
                                                    "\n"
                                                    "Tester - Error Log: <time>\n"
                                                    "File Version: 1.2.3.4\n"
                                                    "Product Version:           5.6\n"
                                                    "User Name:    tester\n"
                                                    "<clock> Formula:Bad value\n");
}

TEST_F(ErrorLogTest, ServerStartingAnEmptyFileWritesTheDashes) {
    m_app->SetServer(true);
    QErrorLog log(u"server-new.txt");
    log.Log(log.Register(u"Formula"), u"Bad value");

    EXPECT_NE(ReadBytes(PathOf(log)).find(kDashes), std::string::npos);
}

TEST_F(ErrorLogTest, AnInteractiveRunReplacesAFileOfTheSameName) {
    fs::create_directories(LogsFolder());
    WriteBytes(LogsFolder() / "again.txt", "earlier run\n");

    QErrorLog log(u"again.txt");
    log.Log(log.Register(u"Formula"), u"Bad value");

    const std::string text = ReadBytes(PathOf(log));
    EXPECT_EQ(text.find("earlier run"), std::string::npos);
    EXPECT_NE(text.find(kDashes), std::string::npos);
}

TEST_F(ErrorLogTest, SameMessageTwiceInARowWritesOneLine) {
    QErrorLog log(u"twice.txt");
    QErrorType* formula = log.Register(u"Formula");
    log.Log(formula, u"Division by zero");
    log.Log(formula, u"Division by zero");

    EXPECT_EQ(LoggedLines(PathOf(log)), std::vector<std::string>({"Formula:Division by zero"}));
}

TEST_F(ErrorLogTest, SameMessageWithAnotherBetweenWritesThreeLines) {
    QErrorLog log(u"between.txt");
    QErrorType* formula = log.Register(u"Formula");
    log.Log(formula, u"Division by zero");
    log.Log(formula, u"Missing table");
    log.Log(formula, u"Division by zero");

    EXPECT_EQ(LoggedLines(PathOf(log)),
              std::vector<std::string>({"Formula:Division by zero", "Formula:Missing table",
                                        "Formula:Division by zero"}));
}

TEST_F(ErrorLogTest, SameMessageOfAnotherTypeIsWritten) {
    QErrorLog log(u"types.txt");
    log.Log(log.Register(u"Formula"), u"Division by zero");
    log.Log(log.Register(u"Table"), u"Division by zero");

    EXPECT_EQ(LoggedLines(PathOf(log)),
              std::vector<std::string>({"Formula:Division by zero", "Table:Division by zero"}));
}

TEST_F(ErrorLogTest, LogTakesOverATypeOfAnotherLog) {
    QErrorLog log(u"register.txt");
    QErrorLog other(u"other.txt");
    QErrorType* stranger = other.Register(u"Stranger");

    log.Log(stranger, u"Hello");

    EXPECT_EQ(stranger->ErrorLog(), &log);
    EXPECT_EQ(log.GetTypeCount(), 1);
    EXPECT_EQ(other.GetTypeCount(), 0);
}

// --- Failure to create the file -----------------------------------------------------------------

TEST_F(ErrorLogTest, UnwritableLogsFolderIsReportedOnceAndDisplayGoesOn) {
    WriteBytes(m_folder / "keel", "a file where the data folder should be");
    QErrorLog log(u"never.txt");
    QErrorType* formula = log.Register(u"Formula");

    formula->DisplayOrLog(u"First");
    formula->DisplayOrLog(u"Second");
    log.Log(formula, u"Third");

    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].text, u"Panic: Cannot create errorlog file <" +
                                        PathText(LogsFolder() / "never.txt") + u">");
    EXPECT_EQ(m_host.boxes[0].caption, u"Tester");
    EXPECT_EQ(m_host.boxes[0].flags, MB_OK | MB_ICONSTOP);
    EXPECT_TRUE(log.IsOpen());
    EXPECT_FALSE(log.IsWritten());
    EXPECT_EQ(log.GetSize(), 2);
    EXPECT_EQ(log.Message(1), u"Second");
}

TEST_F(ErrorLogTest, FileThatCannotBeWrittenIsReportedOnce) {
    QErrorLog log(u"/dev/full");
    QErrorType* formula = log.Register(u"Formula");

    log.Log(formula, u"First");
    log.Log(formula, u"Second");

    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].text, u"Panic: Cannot create errorlog file </dev/full>");
    EXPECT_FALSE(log.IsWritten());
}

TEST_F(ErrorLogTest, WithoutApplicationTheLogCannotBeCreated) {
    m_app.reset();
    QErrorLog log(u"nowhere.txt");
    log.Log(log.Register(u"Formula"), u"First");

    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].text, u"Panic: Cannot create errorlog file <>");
    EXPECT_EQ(m_host.boxes[0].caption, u"Keel");
}

// --- Pending messages ---------------------------------------------------------------------------

TEST_F(ErrorLogTest, DisplayQueuesWithTimeTypeAndText) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    const auto before = std::chrono::system_clock::now();
    log.Display(formula, u"Bad value");
    const auto after = std::chrono::system_clock::now();

    ASSERT_EQ(log.GetSize(), 1);
    EXPECT_EQ(log.ErrorType(0), formula);
    EXPECT_EQ(log.Message(0), u"Bad value");
    EXPECT_GE(log.Time(0), before);
    EXPECT_LE(log.Time(0), after);
    EXPECT_TRUE(m_host.boxes.empty());
}

TEST_F(ErrorLogTest, SameTextOfTheSameTypeIsPendingOnce) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    log.Display(formula, u"Bad value");
    log.Display(formula, u"Other value");
    log.Display(formula, u"Bad value");

    EXPECT_EQ(log.GetSize(), 2);
}

TEST_F(ErrorLogTest, SameTextOfTwoTypesIsPendingTwice) {
    QErrorLog log;
    log.Display(log.Register(u"Formula"), u"Bad value");
    log.Display(log.Register(u"Table"), u"Bad value");

    ASSERT_EQ(log.GetSize(), 2);
    EXPECT_EQ(log.ErrorType(1)->Description(), u"Table");
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

    log.Display(formula, u"Dropped");
    log.Display(log.Register(u"Table"), u"Dropped too");
    EXPECT_EQ(log.GetSize(), 1001);

    log.DiscardPendingMessages();
    EXPECT_EQ(log.GetSize(), 0);
    log.Display(formula, u"Room again");
    ASSERT_EQ(log.GetSize(), 1);
    EXPECT_EQ(log.Message(0), u"Room again");
}

// --- DisplayOrLog -------------------------------------------------------------------------------

TEST_F(ErrorLogTest, DisplayOrLogWritesAndQueues) {
    QErrorLog log(u"both.txt");
    QErrorType* formula = log.Register(u"Formula");

    EXPECT_EQ(formula->DisplayOrLog(u"Bad value"), 1);

    EXPECT_EQ(LoggedLines(PathOf(log)), std::vector<std::string>({"Formula:Bad value"}));
    ASSERT_EQ(log.GetSize(), 1);
    EXPECT_EQ(log.Message(0), u"Bad value");
    EXPECT_FALSE(log.IsLogOnly());
}

TEST_F(ErrorLogTest, LogOnlyFlagStartsSetAndTheFirstMessageDecides) {
    QErrorLog log(u"first.txt");
    QErrorType* quiet = log.Register(u"Quiet");
    quiet->SetIsLog(false);
    EXPECT_TRUE(log.IsLogOnly());

    quiet->DisplayOrLog(u"First");
    quiet->DisplayOrLog(u"Second");

    EXPECT_FALSE(log.IsLogOnly());
    EXPECT_EQ(LoggedLines(PathOf(log)), std::vector<std::string>({"Quiet:First"}));
    EXPECT_EQ(log.GetSize(), 2);
}

TEST_F(ErrorLogTest, NeitherShownNorLoggedDisappears) {
    QErrorLog log(u"vanish.txt");
    log.Register(u"Formula")->DisplayOrLog(u"Opens the log");
    QErrorType* silent = log.Register(u"Silent");
    silent->SetIsDisplay(false);
    silent->SetIsLog(false);

    silent->DisplayOrLog(u"Vanishes");

    EXPECT_EQ(LoggedLines(PathOf(log)), std::vector<std::string>({"Formula:Opens the log"}));
    EXPECT_EQ(log.GetSize(), 1);
}

TEST_F(ErrorLogTest, NeitherShownNorLoggedIsLoggedWhenLogOnly) {
    m_app->SetServer(true);
    QErrorLog log(u"logonly.txt");
    log.Register(u"Formula")->DisplayOrLog(u"Opens the log");
    QErrorType* silent = log.Register(u"Silent");
    silent->SetIsDisplay(false);
    silent->SetIsLog(false);

    silent->DisplayOrLog(u"Logged all the same");

    EXPECT_TRUE(log.IsLogOnly());
    EXPECT_EQ(LoggedLines(PathOf(log)),
              std::vector<std::string>({"Formula:Opens the log", "Silent:Logged all the same"}));
    EXPECT_EQ(log.GetSize(), 0);
}

TEST_F(ErrorLogTest, ServerOnlyLogs) {
    m_app->SetServer(true);
    QErrorLog log(u"server-only.txt");
    QErrorType* formula = log.Register(u"Formula");

    formula->DisplayOrLog(u"First");
    formula->DisplayOrLog(u"Second");

    EXPECT_TRUE(log.IsLogOnly());
    EXPECT_EQ(log.GetSize(), 0);
    EXPECT_EQ(LoggedLines(PathOf(log)),
              std::vector<std::string>({"Formula:First", "Formula:Second"}));
    EXPECT_TRUE(m_host.boxes.empty());
}

TEST_F(ErrorLogTest, ServerWithServerErrorsShowsEachMessageAtOnce) {
    WriteOption(u"ServerErrors", 1);
    m_app->SetServer(true);
    QErrorLog log(u"server-errors.txt");
    QErrorType* formula = log.Register(u"Formula");

    formula->DisplayOrLog(u"Shown at once");

    EXPECT_FALSE(log.IsLogOnly());
    EXPECT_EQ(log.GetSize(), 0);
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].text, u"Shown at once\n\nChange error reporting options?");

    // The option is kept in a static whose default is its former value: put it back.
    WriteOption(u"ServerErrors", 0);
    QErrorLog resetting(u"reset.txt");
    resetting.Log(resetting.Register(u"Formula"), u"Reads the option again");
}

TEST_F(ErrorLogTest, DescriptionInErrorLogOnlyIsLoggedAndNeverShown) {
    WriteOption(u"ErrorLogOnly", u";Quiet;Silent;");
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

    EXPECT_EQ(LoggedLines(PathOf(log)), std::vector<std::string>({"Quiet:First", "Quiet:Second"}));
    EXPECT_EQ(log.GetSize(), 0);
}

TEST_F(ErrorLogTest, ErrorLogOnlyIsReadOncePerProcess) {
    WriteOption(u"ErrorLogOnly", u";Quiet;");
    QErrorType::ReloadErrorLogOnly();
    QErrorLog log;
    EXPECT_FALSE(log.Register(u"Quiet")->IsDisplay());

    WriteOption(u"ErrorLogOnly", u";Later;");
    EXPECT_TRUE(log.Register(u"Later")->IsDisplay());

    QErrorType::ReloadErrorLogOnly();
    QErrorLog other;
    EXPECT_FALSE(other.Register(u"Later")->IsDisplay());
}

// --- Types --------------------------------------------------------------------------------------

TEST_F(ErrorLogTest, RegisterByDescriptionMakesATypeOnce) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    EXPECT_EQ(log.Register(u"Formula"), formula);
    EXPECT_NE(log.Register(u"formula"), formula);
    EXPECT_EQ(log.GetTypeCount(), 2);
    EXPECT_EQ(formula->ErrorLog(), &log);
    EXPECT_EQ(formula->Description(), u"Formula");
    EXPECT_TRUE(formula->IsDisplay());
    EXPECT_TRUE(formula->IsLog());
}

TEST_F(ErrorLogTest, RegisterTypeAddsItOnceAndUnregisterHandsItBack) {
    QErrorLog log;
    auto* own = new QErrorType(&log, u"Own");
    EXPECT_EQ(log.GetTypeCount(), 1);
    log.Register(own);
    EXPECT_EQ(log.GetTypeCount(), 1);

    log.Unregister(own);
    EXPECT_EQ(log.GetTypeCount(), 0);
    EXPECT_NE(log.Register(u"Own"), own);
    delete own;
    EXPECT_EQ(log.GetTypeCount(), 1);
}

TEST_F(ErrorLogTest, DeletingARegisteredTypeUnregistersIt) {
    QErrorLog log;
    delete log.Register(u"Gone");
    EXPECT_EQ(log.GetTypeCount(), 0);
}

TEST_F(ErrorLogTest, TypeWithoutLogJoinsTheProcessLog) {
    const int before = TheErrorLog().GetTypeCount();
    auto* type = new QErrorType(nullptr, u"Orphan");
    EXPECT_EQ(type->ErrorLog(), &TheErrorLog());
    EXPECT_EQ(TheErrorLog().GetTypeCount(), before + 1);
    delete type;
    EXPECT_EQ(TheErrorLog().GetTypeCount(), before);
}

// --- Showing pending messages -------------------------------------------------------------------

TEST_F(ErrorLogTest, DisplayPendingMessagesWithNothingPendingShowsNothing) {
    QErrorLog log;
    log.DisplayPendingMessages(true);
    log.DisplayPendingMessages(false);

    EXPECT_TRUE(m_host.boxes.empty());
    EXPECT_TRUE(m_host.shownLists.empty());
}

TEST_F(ErrorLogTest, SingleMessageOffersTheOptionsWithNoAsDefault) {
    QErrorLog log;
    log.Display(log.Register(u"Formula"), u"Bad value");

    log.DisplayPendingMessages(true);

    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].text, u"Bad value\n\nChange error reporting options?");
    EXPECT_TRUE(std::regex_match(Utf8(m_host.boxes[0].caption),
                                 std::regex(R"(Tester - Formula - \d\d:\d\d:\d\d)")))
        << Utf8(m_host.boxes[0].caption);
    EXPECT_EQ(m_host.boxes[0].flags, 0x114u);
    EXPECT_EQ(m_host.customiseCalls, 0);
    EXPECT_EQ(log.GetSize(), 0);
    EXPECT_EQ(m_host.refreshes, 1);
}

TEST_F(ErrorLogTest, SingleMessageAnsweredYesOpensTheOptions) {
    QErrorLog log;
    log.Display(log.Register(u"Formula"), u"Bad value");
    m_host.answers = {IDYES};

    log.DisplayPendingMessages(false);

    EXPECT_EQ(m_host.customiseCalls, 1);
    EXPECT_EQ(log.GetSize(), 0);
}

TEST_F(ErrorLogTest, SingleMessageCaptionLeavesOutEmptyParts) {
    QErrorLog log;
    log.Display(log.Register(CString()), u"No heading");

    log.DisplaySingleMessage(0);

    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_TRUE(
        std::regex_match(Utf8(m_host.boxes[0].caption), std::regex(R"(Tester - \d\d:\d\d:\d\d)")))
        << Utf8(m_host.boxes[0].caption);
    EXPECT_EQ(log.GetSize(), 1);
}

TEST_F(ErrorLogTest, SingleMessageWhileClosingIsAPlainStopBox) {
    m_app->SetClosing(true);
    QErrorLog log;
    log.Display(log.Register(u"Formula"), u"Bad value");

    log.DisplayPendingMessages(true);

    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].text, u"Bad value");
    EXPECT_EQ(m_host.boxes[0].caption, u"Tester");
    EXPECT_EQ(m_host.boxes[0].flags, MB_OK | MB_ICONSTOP);
}

TEST_F(ErrorLogTest, SeveralMessagesAskFirstAndStayPendingOnNo) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    log.Display(formula, u"First");
    log.Display(formula, u"Second");
    m_host.answers = {IDNO};

    log.DisplayPendingMessages(true);

    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].text, u"Several errors have occurred.\nDo you want to see them now?");
    EXPECT_EQ(m_host.boxes[0].flags, MB_YESNO | MB_ICONQUESTION);
    EXPECT_TRUE(m_host.shownLists.empty());
    EXPECT_EQ(log.GetSize(), 2);
}

TEST_F(ErrorLogTest, SeveralMessagesAreShownInOneList) {
    QErrorLog log;
    log.Display(log.Register(u"Formula"), u"First");
    log.Display(log.Register(u"Table"), u"Second");
    m_host.answers = {IDYES};

    log.DisplayPendingMessages(true);

    ASSERT_EQ(m_host.shownLists.size(), 1u);
    const std::vector<CPendingMessage>& shown = m_host.shownLists[0];
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[0].type, u"Formula");
    EXPECT_EQ(shown[0].text, u"First");
    EXPECT_EQ(shown[1].type, u"Table");
    EXPECT_EQ(shown[1].text, u"Second");
    EXPECT_TRUE(std::regex_match(Utf8(shown[1].time), std::regex(R"(\d\d:\d\d:\d\d)")));
    EXPECT_EQ(log.GetSize(), 0);
}

TEST_F(ErrorLogTest, SeveralMessagesWithoutAskingAreShownAtOnce) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    log.Display(formula, u"First");
    log.Display(formula, u"Second");

    log.DisplayPendingMessages(false);

    EXPECT_TRUE(m_host.boxes.empty());
    EXPECT_EQ(m_host.shownLists.size(), 1u);
}

TEST_F(ErrorLogTest, MessageRaisedWhileShowingOnlyQueues) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    log.Display(formula, u"First");
    log.Display(formula, u"Second");
    int pendingWhileShowing = 0;
    m_host.onShow = [&] {
        log.Display(formula, u"Raised while showing");
        pendingWhileShowing = log.GetSize();
        log.DisplayPendingMessages(false);
    };

    log.DisplayPendingMessages(false);

    EXPECT_EQ(pendingWhileShowing, 3);
    EXPECT_EQ(m_host.shownLists.size(), 1u);
}

TEST_F(ErrorLogTest, HeadlessHostShowsPendingMessages) {
    std::FILE* output = std::tmpfile();
    CHeadlessUIServices headless(output);
    SetUIServices(&headless);
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    log.Display(formula, u"First");
    log.Display(formula, u"Second");

    log.DisplayPendingMessages(true);

    EXPECT_EQ(headless.AnsweredBoxes(), 1);
    EXPECT_EQ(headless.ShownMessages(), 2);
    EXPECT_EQ(log.GetSize(), 0);
    SetUIServices(&m_host);
    std::fclose(output);
}

// --- Closing ------------------------------------------------------------------------------------

TEST_F(ErrorLogTest, CloseShowsWhatIsPendingAndOffersTheFile) {
    QErrorLog log(u"close.txt");
    log.Register(u"Formula")->DisplayOrLog(u"Bad value");
    m_host.answers = {IDNO, IDYES};

    log.CloseLogFile();

    ASSERT_EQ(m_host.boxes.size(), 2u);
    EXPECT_EQ(m_host.boxes[0].text, u"Bad value\n\nChange error reporting options?");
    EXPECT_EQ(m_host.boxes[1].text,
              u"An error log has been created.  Do you want to view or print it now?");
    EXPECT_EQ(m_host.boxes[1].flags, MB_YESNO | MB_ICONQUESTION);
    EXPECT_EQ(m_host.openedFiles, std::vector<CString>({PathText(LogsFolder() / "close.txt")}));
    EXPECT_FALSE(log.IsOpen());
    EXPECT_FALSE(log.IsWritten());
    EXPECT_EQ(log.GetSize(), 0);
}

TEST_F(ErrorLogTest, CloseAnsweredNoOpensNothing) {
    QErrorLog log(u"close-no.txt");
    log.Log(log.Register(u"Formula"), u"Bad value");
    m_host.answers = {IDNO};

    log.CloseLogFile();

    EXPECT_EQ(m_host.boxes.size(), 1u);
    EXPECT_TRUE(m_host.openedFiles.empty());
    EXPECT_FALSE(log.IsOpen());
}

TEST_F(ErrorLogTest, CloseOfALogNeverOpenedDoesNothing) {
    QErrorLog log;
    log.Display(log.Register(u"Formula"), u"Pending");

    log.CloseLogFile();

    EXPECT_TRUE(m_host.boxes.empty());
    EXPECT_EQ(log.GetSize(), 1);
}

TEST_F(ErrorLogTest, CloseOfALogOnlyLogAsksNothing) {
    m_app->SetServer(true);
    QErrorLog log(u"close-server.txt");
    log.Register(u"Formula")->DisplayOrLog(u"Bad value");

    log.CloseLogFile();

    EXPECT_TRUE(m_host.boxes.empty());
    EXPECT_FALSE(log.IsOpen());
}

TEST_F(ErrorLogTest, CloseWithoutApplicationAsksNothing) {
    QErrorLog log(PathText(m_folder / "no-app.txt"));
    log.Log(log.Register(u"Formula"), u"Bad value");
    m_app.reset();

    log.CloseLogFile();

    EXPECT_TRUE(m_host.boxes.empty());
}

TEST_F(ErrorLogTest, AfterCloseTheNextMessageOpensTheFileAgain) {
    m_app->SetServer(true);
    QErrorLog log(u"reopen.txt");
    QErrorType* formula = log.Register(u"Formula");
    log.Log(formula, u"Before");
    log.CloseLogFile();

    log.Log(formula, u"After");

    EXPECT_TRUE(log.IsWritten());
    EXPECT_EQ(LoggedLines(PathOf(log)),
              std::vector<std::string>({"Formula:Before", "Formula:After"}));
}

// --- Options of the types -----------------------------------------------------------------------

TEST_F(ErrorLogTest, CheckListsHaveOneRowATypeInOrder) {
    QErrorLog log;
    log.Register(u"Formula")->SetIsDisplay(false);
    log.Register(u"Table")->SetIsLog(false);

    CCheckList display = {{u"stale", true}};
    CCheckList logged;
    log.FillWithDisplayFlags(display);
    log.FillWithLogFlags(logged);

    ASSERT_EQ(display.size(), 2u);
    EXPECT_EQ(display[0].text, u"Formula");
    EXPECT_FALSE(display[0].checked);
    EXPECT_EQ(display[1].text, u"Table");
    EXPECT_TRUE(display[1].checked);
    ASSERT_EQ(logged.size(), 2u);
    EXPECT_TRUE(logged[0].checked);
    EXPECT_FALSE(logged[1].checked);
}

TEST_F(ErrorLogTest, UpdateFlagsFromCheckLists) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    QErrorType* table = log.Register(u"Table");

    log.UpdateDisplayFlags({{u"Formula", false}, {u"Table", true}});
    log.UpdateLogFlags({{u"Formula", true}, {u"Table", false}});

    EXPECT_FALSE(formula->IsDisplay());
    EXPECT_TRUE(table->IsDisplay());
    EXPECT_TRUE(formula->IsLog());
    EXPECT_FALSE(table->IsLog());
}

TEST_F(ErrorLogTest, UpdateFromAListOfAnotherLengthIsRefused) {
    QErrorLog log;
    log.Register(u"Formula");
    EXPECT_THROW(log.UpdateDisplayFlags({}), InvalidArgumentException);
    EXPECT_THROW(log.UpdateLogFlags({{u"Formula", true}, {u"Extra", true}}),
                 InvalidArgumentException);
}

TEST_F(ErrorLogTest, CustomiseAppliesWhatThePersonTicked) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    QErrorType* table = log.Register(u"Table");
    m_host.customise = [](CCheckList& display, CCheckList& logged, const std::function<void()>&) {
        display[0].checked = false;
        logged[1].checked = false;
        return true;
    };

    log.Customise();

    EXPECT_FALSE(formula->IsDisplay());
    EXPECT_TRUE(formula->IsLog());
    EXPECT_TRUE(table->IsDisplay());
    EXPECT_FALSE(table->IsLog());
}

TEST_F(ErrorLogTest, CustomiseCancelledChangesNothing) {
    QErrorLog log;
    QErrorType* formula = log.Register(u"Formula");
    m_host.customise = [](CCheckList& display, CCheckList&, const std::function<void()>&) {
        display[0].checked = false;
        return false;
    };

    log.Customise();

    EXPECT_TRUE(formula->IsDisplay());
}

TEST_F(ErrorLogTest, CustomiseCanOpenTheLogFile) {
    QErrorLog log(u"view.txt");
    log.Register(u"Formula");
    m_host.customise = [](CCheckList&, CCheckList&, const std::function<void()>& viewLogFile) {
        viewLogFile();
        return false;
    };

    log.Customise();

    EXPECT_EQ(m_host.openedFiles, std::vector<CString>({PathText(LogsFolder() / "view.txt")}));
}

// --- The process's log and the reporting functions ----------------------------------------------

TEST_F(ErrorLogTest, MessageBoxOrLogReportsUnderTheHeading) {
    EXPECT_EQ(QMessageBoxOrLog(u"Cannot open the table", u"Table"), 1);

    QErrorLog& log = TheErrorLog();
    ASSERT_EQ(log.GetSize(), 1);
    EXPECT_EQ(log.ErrorType(0)->Description(), u"Table");
    EXPECT_EQ(log.Message(0), u"Cannot open the table");
    EXPECT_EQ(LoggedLines(ProcessLogPath()),
              std::vector<std::string>({"Table:Cannot open the table"}));
    EXPECT_EQ(m_host.refreshes, 1);
}

TEST_F(ErrorLogTest, MessageBoxOrLogWithFlagsUsesTheHeadingError) {
    QMessageBoxOrLog(u"Something failed", MB_OK | MB_ICONEXCLAMATION);
    QMessageBoxOrLog(u"Something else failed");

    QErrorLog& log = TheErrorLog();
    ASSERT_EQ(log.GetSize(), 2);
    EXPECT_EQ(log.ErrorType(0)->Description(), u"Error");
    EXPECT_EQ(log.ErrorType(1)->Description(), u"Error");
}

TEST_F(ErrorLogTest, EvaluatorReportsCanBeSwitchedOff) {
    SetNoEvalReportErrors(true);
    EXPECT_TRUE(NoEvalReportErrors());
    EXPECT_EQ(QMessageBoxOrLogUnlessNoEvalReportErrors(u"Hidden", u"Formula"), 0);
    EXPECT_FALSE(QErrorLog::TheLogHasPendingMessages());

    SetNoEvalReportErrors(false);
    EXPECT_EQ(QMessageBoxOrLogUnlessNoEvalReportErrors(u"Shown", u"Formula"), 1);
    EXPECT_TRUE(QErrorLog::TheLogHasPendingMessages());
}

TEST_F(ErrorLogTest, StaticsActOnTheProcessLog) {
    QMessageBoxOrLog(u"First", u"Formula");
    QMessageBoxOrLog(u"Second", u"Formula");
    EXPECT_TRUE(QErrorLog::TheLogHasPendingMessages());

    QErrorLog::DisplayThePendingMessages(false);
    EXPECT_EQ(m_host.shownLists.size(), 1u);
    EXPECT_FALSE(QErrorLog::TheLogHasPendingMessages());

    QMessageBoxOrLog(u"Third", u"Formula");
    QErrorLog::DiscardThePendingMessages();
    EXPECT_FALSE(QErrorLog::TheLogHasPendingMessages());
    EXPECT_EQ(m_host.shownLists.size(), 1u);
}

TEST_F(ErrorLogTest, ExceptServerShowsABoxWhenThereIsSomebody) {
    m_host.answers = {IDCANCEL};
    EXPECT_EQ(QMessageBoxExceptServer(u"Save", u"Disk is full", MB_OKCANCEL), IDCANCEL);

    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].text, u"Disk is full");
    EXPECT_EQ(m_host.boxes[0].caption, u"Tester");
    EXPECT_EQ(m_host.boxes[0].flags, MB_OKCANCEL);
    EXPECT_FALSE(fs::exists(ProcessLogPath()));
}

TEST_F(ErrorLogTest, ExceptServerLogsOnAServer) {
    m_app->SetServer(true);
    EXPECT_EQ(QMessageBoxExceptServer(u"Save", u"Disk is full", MB_OKCANCEL | MB_DEFBUTTON2),
              IDCANCEL);

    EXPECT_TRUE(m_host.boxes.empty());
    EXPECT_EQ(LoggedLines(ProcessLogPath()),
              std::vector<std::string>({"Server:Ignoring Save: Disk is full"}));
}

TEST_F(ErrorLogTest, ExceptServerLogsWithoutADisplay) {
    m_host.display = false;
    EXPECT_EQ(QMessageBoxExceptServer(u"Delete", u"Can't delete file a.txt"), IDOK);

    EXPECT_TRUE(m_host.boxes.empty());
    EXPECT_EQ(LoggedLines(ProcessLogPath()),
              std::vector<std::string>({"Server:Ignoring Delete: Can't delete file a.txt"}));
}

TEST_F(ErrorLogTest, YesNoExceptServerAnswersWithTheServerAnswer) {
    m_app->SetServer(true);
    EXPECT_EQ(QMessageBoxYesNoExceptServer(u"Import", u"Overwrite the table?", IDNO), IDNO);
    EXPECT_EQ(LoggedLines(ProcessLogPath()),
              std::vector<std::string>({"Server:Ignoring Import: Overwrite the table?"}));

    m_app->SetServer(false);
    m_host.answers = {IDYES};
    EXPECT_EQ(QMessageBoxYesNoExceptServer(u"Import", u"Overwrite the table?", IDNO), IDYES);
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].flags, MB_YESNO);
}

TEST_F(ErrorLogTest, YesNoAlwaysCancelLogsTheAnswerGiven) {
    m_app->SetServer(true);
    EXPECT_EQ(QMessageBoxYesNoAlwaysCancel(u"Save changes?", IDNO), IDNO);
    EXPECT_EQ(QMessageBoxYesNoAlwaysCancel(u"Save changes?", IDCANCEL), IDCANCEL);
    EXPECT_EQ(QMessageBoxYesNoAlwaysCancel(u"Save changes?", 42), 42);

    EXPECT_EQ(
        LoggedLines(ProcessLogPath()),
        std::vector<std::string>({"Server:Ignoring: Save changes? [returning No]",
                                  "Server:Ignoring: Save changes? [returning Cancel]",
                                  "Server:Ignoring: Save changes? [returning <unknown 42>]"}));
}

TEST_F(ErrorLogTest, YesNoAlwaysCancelAsksWithThreeButtons) {
    m_host.answers = {IDCANCEL};
    EXPECT_EQ(QMessageBoxYesNoAlwaysCancel(u"Save changes?", IDNO), IDCANCEL);
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0].flags, MB_YESNOCANCEL);
}

// --- Translation --------------------------------------------------------------------------------

class ErrorLogTranslationTest : public ErrorLogTest {
protected:
    void SetUp() override {
        ErrorLogTest::SetUp();
        const fs::path file = m_folder / "translations_de.txt";
        WriteBytes(file,
                   "Cannot open\t\tKann nicht \xC3\xB6"
                   "ffnen\t^Message box$\tc\n"
                   "Cannot open\t\tFALSCH\t^Dialog item$\tc\n"
                   "Trouble\t\t\xC3\x84rger\t^Message box$\tc\n"
                   "Trouble\t\tFALSCH\t^Dialog item$\tc\n"
                   "Ignoring %s: %s\t\tIgnoriere %s: %s\t^Message box \\(function,prompt\\)$\tc\n"
                   "Ignoring %s: %s\t\tFALSCH %s %s\t^Message box$\tc\n");
        SwitchToTranslationFile(PathText(file), true, false);
    }
    void TearDown() override {
        SwitchToTranslationFile(CString(), true, false);
        ErrorLogTest::TearDown();
    }
};

TEST_F(ErrorLogTranslationTest, MessageAndHeadingAreTranslatedAsMessageBoxText) {
    QMessageBoxOrLog(u"Cannot open", u"Trouble");

    QErrorLog& log = TheErrorLog();
    ASSERT_EQ(log.GetSize(), 1);
    EXPECT_EQ(log.ErrorType(0)->Description(), u"\u00C4rger");
    EXPECT_EQ(log.Message(0), u"Kann nicht \u00F6ffnen");
}

TEST_F(ErrorLogTranslationTest, AlreadyTranslatedTextIsLeftAlone) {
    QMessageBoxOrLog(u"Cannot open", u"Trouble", true);

    QErrorLog& log = TheErrorLog();
    ASSERT_EQ(log.GetSize(), 1);
    EXPECT_EQ(log.ErrorType(0)->Description(), u"Trouble");
    EXPECT_EQ(log.Message(0), u"Cannot open");
}

TEST_F(ErrorLogTranslationTest, ServerIgnoringTextIsTranslatedInItsContext) {
    m_app->SetServer(true);
    QMessageBoxExceptServer(u"Save", u"Disk is full");
    EXPECT_EQ(LoggedLines(ProcessLogPath()),
              std::vector<std::string>({"Server:Ignoriere Save: Disk is full"}));
}

// --- Exception messages -------------------------------------------------------------------------

TEST(ErrorMessageTest, TheExceptionsOwnText) {
    EXPECT_EQ(ErrorMessage(CException("Disk is full")), u"Disk is full");
    EXPECT_EQ(ErrorMessage(InvalidArgumentException("QArray::GetAt")),
              u"Invalid argument: QArray::GetAt");
}

TEST(ErrorMessageTest, CutToTheBuffer) {
    const CString message = ErrorMessage(CException(std::string(600, 'x')));
    EXPECT_EQ(message, CString(u'x', 511));
}

TEST(ErrorMessageTest, EmptyWhenTheExceptionGivesNone) {
    EXPECT_TRUE(ErrorMessage(ExceptionDescr("pipe.cpp", 12)).IsEmpty());
    EXPECT_TRUE(ErrorMessage(ExceptionDescr("pipe.cpp", 12, 5L)).IsEmpty());
    EXPECT_EQ(ErrorMessage(ExceptionDescr("pipe.cpp", 12, u"STDOUT Pipe creation")),
              u"STDOUT Pipe creation");
}

// --- ExceptionDescr -----------------------------------------------------------------------------

TEST(ExceptionDescrTest, FourConstructors) {
    const ExceptionDescr where("shell.cpp", 10);
    EXPECT_EQ(where.File(), "shell.cpp");
    EXPECT_EQ(where.Line(), 10);
    EXPECT_FALSE(where.HasDescription());
    EXPECT_FALSE(where.HasCode());

    const ExceptionDescr described("shell.cpp", 11, u"STDOUT Pipe creation");
    EXPECT_TRUE(described.HasDescription());
    EXPECT_EQ(described.Description(), u"STDOUT Pipe creation");
    EXPECT_FALSE(described.HasCode());

    const ExceptionDescr coded("shell.cpp", 12, 109L);
    EXPECT_FALSE(coded.HasDescription());
    EXPECT_TRUE(coded.HasCode());
    EXPECT_EQ(coded.Code(), 109);

    const ExceptionDescr both("shell.cpp", 13, u"Read from pipe", 232L);
    EXPECT_EQ(both.Line(), 13);
    EXPECT_EQ(both.Description(), u"Read from pipe");
    EXPECT_EQ(both.Code(), 232);
}

TEST(ExceptionDescrTest, KeepsItsOwnCopyOfTheFileName) {
    std::string file = "first.cpp";
    const ExceptionDescr failure(file.c_str(), 1);
    file = "second.cpp";
    EXPECT_EQ(failure.File(), "first.cpp");
}

TEST(ExceptionDescrTest, ThrowTellsTheDebugOutputWhereFirst) {
    ::setenv("KEEL_DEBUG_OUTPUT", "1", 1);
    testing::internal::CaptureStderr();
    try {
        ThrowExceptionDescr("pipe.cpp", 42, u"STDOUT Pipe creation");
        ADD_FAILURE() << "nothing thrown";
    } catch (const ExceptionDescr& failure) {
        EXPECT_EQ(failure.File(), "pipe.cpp");
        EXPECT_EQ(failure.Line(), 42);
        EXPECT_EQ(failure.Description(), u"STDOUT Pipe creation");
    }
    const std::string output = testing::internal::GetCapturedStderr();
    ::unsetenv("KEEL_DEBUG_OUTPUT");
    EXPECT_EQ(output, "==> Throw at pipe.cpp 42\n");
}

TEST(ExceptionDescrTest, ThrowLocationCutsTheFileNameAt256) {
    ::setenv("KEEL_DEBUG_OUTPUT", "1", 1);
    const std::string file(300, 'f');
    testing::internal::CaptureStderr();
    EXPECT_THROW(ThrowExceptionDescr(file.c_str(), 7, 3L), ExceptionDescr);
    const std::string output = testing::internal::GetCapturedStderr();
    ::unsetenv("KEEL_DEBUG_OUTPUT");
    EXPECT_EQ(output, "==> Throw at " + std::string(256, 'f') + " 7\n");
}

TEST(ExceptionDescrTest, NoDebugOutputUnlessAskedFor) {
    ::unsetenv("KEEL_DEBUG_OUTPUT");
    testing::internal::CaptureStderr();
    EXPECT_THROW(ThrowExceptionDescr("pipe.cpp", 1), ExceptionDescr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// --- Floating point -----------------------------------------------------------------------------

struct FPMessageCase {
    int raised;
    const char16_t* message;
};

const FPMessageCase kFPMessageCases[] = {
    {0, u""},
    {FE_DIVBYZERO, u"division by zero"},
    {FE_INEXACT | FE_DIVBYZERO, u"result was not exact, division by zero"},
    {FE_INEXACT, u"result was not exact"},
    {FE_UNDERFLOW, u"result was too small"},
    {FE_OVERFLOW | FE_INEXACT, u"result was not exact, result was too big"},
    {FE_INVALID, u"result was not a number"},
    {FE_ALL_EXCEPT,
     u"result was not exact, result was too small, result was too big, division by zero, result "
     u"was not a number"},
};

TEST(FPExceptionMessageTest, ListsTheRaisedFaultsInOrder) {
    for (const FPMessageCase& c : kFPMessageCases) {
        std::feclearexcept(FE_ALL_EXCEPT);
        std::feraiseexcept(c.raised);
        EXPECT_EQ(FPExceptionMessage(), c.message) << "raised " << c.raised;
    }
}

TEST(FPExceptionMessageTest, ClearsWhatItReported) {
    std::feclearexcept(FE_ALL_EXCEPT);
    std::feraiseexcept(FE_DIVBYZERO);
    EXPECT_EQ(FPExceptionMessage(), u"division by zero");
    EXPECT_EQ(FPExceptionMessage(), u"");
    EXPECT_EQ(ReadFPStatus(), 0u);
}

TEST(FPExceptionMessageTest, ReportsARealDivisionByZero) {
    const QFPExceptions guard(true);
    volatile double numerator = 1.0;
    volatile double zero = 0.0;
    const double result = numerator / zero;
    EXPECT_GT(result, DBL_MAX);
    EXPECT_EQ(FPExceptionMessage(), u"division by zero");
}

TEST(FPControlWordTest, StartsMaskedAndChangesOnlyItsBits) {
    EXPECT_EQ(GetFPExceptionsControlWordBits(), FP_EXCEPTION_BITS);
    EXPECT_FALSE(GetFPExceptions());
    EXPECT_FALSE(GetFPExceptionsSimple());

    SetFPExceptionsControlWordBits(0xFFFFFFFFu);
    EXPECT_EQ(GetFPExceptionsControlWordBits(), 0x8001Fu);
    SetFPExceptionsControlWordBits(0x10u);
    EXPECT_EQ(GetFPExceptionsControlWordBits(), 0x10u);
    EXPECT_FALSE(GetFPExceptions());
    SetFPExceptionsControlWordBits(FP_EXCEPTION_BITS);
}

TEST(FPControlWordTest, SetFPExceptionsUnmasksOrMasksAllAndClearsTheStatus) {
    std::feraiseexcept(FE_OVERFLOW);
    SetFPExceptions(true);
    EXPECT_EQ(GetFPExceptionsControlWordBits(), 0u);
    EXPECT_TRUE(GetFPExceptions());
    EXPECT_TRUE(GetFPExceptionsSimple());
    EXPECT_EQ(ReadFPStatus(), 0u);

    SetFPExceptions(false);
    EXPECT_EQ(GetFPExceptionsControlWordBits(), FP_EXCEPTION_BITS);
    EXPECT_FALSE(GetFPExceptions());
}

TEST(FPControlWordTest, SimpleUnmasksTheThreeSeriousFaults) {
    SetFPExceptionsSimple(true);
    EXPECT_EQ(GetFPExceptionsControlWordBits(), 0x80003u);
    EXPECT_TRUE(GetFPExceptionsSimple());
    EXPECT_FALSE(GetFPExceptions());

    SetFPExceptionsSimple(false);
    EXPECT_EQ(GetFPExceptionsControlWordBits(), FP_EXCEPTION_BITS);
}

TEST(FPControlWordTest, GuardsRestoreTheMaskAndClearTheStatus) {
    SetFPExceptionsControlWordBits(0x8u);
    std::feraiseexcept(FE_INEXACT);
    {
        const QFPExceptions guard(true);
        EXPECT_EQ(GetFPExceptionsControlWordBits(), 0u);
        EXPECT_EQ(FPExceptionMessage(), u"");
        {
            const QFPExceptionsSimple inner(false);
            EXPECT_EQ(GetFPExceptionsControlWordBits(), FP_EXCEPTION_BITS);
        }
        EXPECT_EQ(GetFPExceptionsControlWordBits(), 0u);
        std::feraiseexcept(FE_INVALID);
    }
    EXPECT_EQ(GetFPExceptionsControlWordBits(), 0x8u);
    EXPECT_EQ(ReadFPStatus(), 0u);
    SetFPExceptionsControlWordBits(FP_EXCEPTION_BITS);
}

} // namespace
} // namespace keel
