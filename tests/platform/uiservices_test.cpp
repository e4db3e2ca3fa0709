#include "tests/support/environment.h"

#include "keel/platform/reentrancy.h"
#include "keel/platform/uiservices.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

// What a headless host wrote, read back from a temporary file.
class HeadlessOutput {
public:
    HeadlessOutput() : m_file(std::tmpfile()) {}
    ~HeadlessOutput() { std::fclose(m_file); }
    HeadlessOutput(const HeadlessOutput&) = delete;
    HeadlessOutput& operator=(const HeadlessOutput&) = delete;

    std::FILE* File() const { return m_file; }
    std::string Text() const {
        std::rewind(m_file);
        std::string text;
        for (int ch = std::fgetc(m_file); ch != EOF; ch = std::fgetc(m_file))
            text += static_cast<char>(ch);
        return text;
    }

private:
    std::FILE* m_file;
};

using test::ScopedEnvironment;

// --- Buttons and default answers ----------------------------------------------------------------

struct DefaultButtonCase {
    const char* name;
    unsigned flags;
    int answer;
};

const DefaultButtonCase kDefaultButtonCases[] = {
    {"OK", MB_OK, IDOK},
    {"OK with icon", MB_OK | MB_ICONSTOP, IDOK},
    {"OK, default button 2 that it does not have", MB_OK | MB_DEFBUTTON2, IDOK},
    {"OK/Cancel", MB_OKCANCEL, IDOK},
    {"OK/Cancel, default 2", MB_OKCANCEL | MB_DEFBUTTON2, IDCANCEL},
    {"OK/Cancel, default 3 that it does not have", MB_OKCANCEL | MB_DEFBUTTON3, IDOK},
    {"Yes/No", MB_YESNO | MB_ICONQUESTION, IDYES},
    {"Yes/No, default 2 (the error log's single message)", 0x114, IDNO},
    {"Yes/No/Cancel", MB_YESNOCANCEL, IDYES},
    {"Yes/No/Cancel, default 2", MB_YESNOCANCEL | MB_DEFBUTTON2, IDNO},
    {"Yes/No/Cancel, default 3", MB_YESNOCANCEL | MB_DEFBUTTON3, IDCANCEL},
    {"Abort/Retry/Ignore, default 3", MB_ABORTRETRYIGNORE | MB_DEFBUTTON3, IDIGNORE},
    {"Retry/Cancel", MB_RETRYCANCEL, IDRETRY},
    {"unknown type shows OK", 0x7, IDOK},
};

TEST(UIServicesTest, DefaultButtonAnswerFollowsTypeAndDefaultButton) {
    for (const DefaultButtonCase& c : kDefaultButtonCases)
        EXPECT_EQ(DefaultButtonAnswer(c.flags), c.answer) << c.name;
}

TEST(UIServicesTest, ButtonsInTheOrderShown) {
    EXPECT_EQ(MessageBoxButtons(MB_OK), std::vector<int>({IDOK}));
    EXPECT_EQ(MessageBoxButtons(MB_YESNOCANCEL | MB_ICONEXCLAMATION),
              std::vector<int>({IDYES, IDNO, IDCANCEL}));
    EXPECT_EQ(MessageBoxButtons(MB_ABORTRETRYIGNORE),
              std::vector<int>({IDABORT, IDRETRY, IDIGNORE}));
}

TEST(UIServicesTest, AnswerNames) {
    EXPECT_EQ(AnswerName(IDOK), u"OK");
    EXPECT_EQ(AnswerName(IDCANCEL), u"Cancel");
    EXPECT_EQ(AnswerName(IDYES), u"Yes");
    EXPECT_EQ(AnswerName(IDNO), u"No");
    EXPECT_EQ(AnswerName(IDRETRY), u"Retry");
    EXPECT_TRUE(AnswerName(0).IsEmpty());
    EXPECT_TRUE(AnswerName(42).IsEmpty());
}

// --- The headless host --------------------------------------------------------------------------

TEST(HeadlessUIServicesTest, HasNoDisplay) {
    const CHeadlessUIServices host;
    EXPECT_FALSE(host.HasDisplay());
}

TEST(HeadlessUIServicesTest, AnswersWithTheDefaultButtonAndWritesOneLineABox) {
    HeadlessOutput output;
    CHeadlessUIServices host(output.File());

    EXPECT_EQ(host.MessageBox(u"Disk is full", u"Keel", MB_OK | MB_ICONSTOP), IDOK);
    EXPECT_EQ(host.MessageBox(u"Cannot open it.\n\nChange error reporting options?",
                              u"Keel - Error - 10:11:12", 0x114),
              IDNO);
    EXPECT_EQ(host.MessageBox(u"Save changes?", u"Drawing", MB_YESNOCANCEL), IDYES);

    EXPECT_EQ(output.Text(), "[Keel] Disk is full => OK\n"
                             "[Keel - Error - 10:11:12] Cannot open it.\\n\\nChange error "
                             "reporting options? => No\n"
                             "[Drawing] Save changes? => Yes\n");
    EXPECT_EQ(host.AnsweredBoxes(), 3);
}

TEST(HeadlessUIServicesTest, WritesPendingMessagesOneLineEach) {
    HeadlessOutput output;
    CHeadlessUIServices host(output.File());

    host.ShowPendingMessages({{u"09:00:01", u"Error", u"Bad formula"},
                              {u"09:00:02", u"Table", u"Missing row\r\nin table"}});

    EXPECT_EQ(output.Text(), "[09:00:01 Error] Bad formula\n"
                             "[09:00:02 Table] Missing row\\nin table\n");
    EXPECT_EQ(host.ShownMessages(), 2);
    EXPECT_EQ(host.AnsweredBoxes(), 0);
}

TEST(HeadlessUIServicesTest, CustomiseIsCancelledAndLeavesTheListsAlone) {
    HeadlessOutput output;
    CHeadlessUIServices host(output.File());
    CCheckList display = {{u"Error", true}};
    CCheckList log = {{u"Error", false}};
    bool viewed = false;

    EXPECT_FALSE(host.Customise(display, log, [&viewed] { viewed = true; }));

    EXPECT_TRUE(display[0].checked);
    EXPECT_FALSE(log[0].checked);
    EXPECT_FALSE(viewed);
    EXPECT_EQ(output.Text(), "");
}

TEST(HeadlessUIServicesTest, OpenFileTellsThePathAndFails) {
    HeadlessOutput output;
    CHeadlessUIServices host(output.File());

    EXPECT_FALSE(host.OpenFile(u"/tmp/Logs/errorlog_01-Jan-24_000000.txt"));

    EXPECT_EQ(output.Text(), "[open file] /tmp/Logs/errorlog_01-Jan-24_000000.txt\n");
}

TEST(HeadlessUIServicesTest, WritesTextAsUtf8) {
    HeadlessOutput output;
    CHeadlessUIServices host(output.File());

    host.MessageBox(u"Gr\u00F6\u00DFe \u20AC", u"K\u00E9el", MB_OK);

    EXPECT_EQ(output.Text(), "[K\xC3\xA9"
                             "el] Gr\xC3\xB6\xC3\x9F"
                             "e \xE2\x82\xAC => OK\n");
}

// --- The installed host -------------------------------------------------------------------------

class RecordingHost : public IUIServices {
public:
    bool HasDisplay() const override { return true; }
    int MessageBox(const CString& text, const CString&, unsigned) override {
        texts.push_back(text);
        return IDCANCEL;
    }
    void ShowPendingMessages(const std::vector<CPendingMessage>&) override {}
    bool Customise(CCheckList&, CCheckList&, const std::function<void()>&) override {
        return false;
    }
    bool OpenFile(const CString&) override { return true; }

    std::vector<CString> texts;
};

TEST(UIServicesTest, HeadlessUntilAHostIsInstalledAndAgainAfterNull) {
    EXPECT_FALSE(UIServices().HasDisplay());

    RecordingHost host;
    SetUIServices(&host);
    EXPECT_EQ(&UIServices(), &host);
    EXPECT_EQ(UIServices().MessageBox(u"Sure?", u"Keel", MB_OKCANCEL), IDCANCEL);
    EXPECT_EQ(host.texts, std::vector<CString>({u"Sure?"}));

    SetUIServices(nullptr);
    EXPECT_NE(&UIServices(), &host);
    EXPECT_FALSE(UIServices().HasDisplay());
}

// --- Debug output -------------------------------------------------------------------------------

TEST(DebugOutputTest, WrittenToStandardErrorOnlyWhenAskedFor) {
    {
        ScopedEnvironment debug("KEEL_DEBUG_OUTPUT", nullptr);
        testing::internal::CaptureStderr();
        OutputDebugText(u"hidden\n");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }
    {
        ScopedEnvironment debug("KEEL_DEBUG_OUTPUT", "1");
        testing::internal::CaptureStderr();
        OutputDebugText(u"shown \u00E9\n");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "shown \xC3\xA9\n");
    }
}

// --- Reentrancy guards --------------------------------------------------------------------------

TEST(ReentrancyTest, CountsNestedWritersAndTellsTheInnerOnes) {
    QReentrancyCounter counter;
    EXPECT_FALSE(counter.IsEntered());
    {
        const QReentrancyWriter outer(counter, "Outer");
        EXPECT_FALSE(outer.IsReentered());
        EXPECT_EQ(counter.Count(), 1);
        {
            const QReentrancyWriter inner(counter, "Inner");
            EXPECT_TRUE(inner.IsReentered());
            EXPECT_EQ(counter.Count(), 2);
        }
        EXPECT_EQ(counter.Count(), 1);
    }
    EXPECT_EQ(counter.Count(), 0);
    const QReentrancyWriter again(counter, "Again");
    EXPECT_FALSE(again.IsReentered());
}

TEST(ReentrancyTest, ReportsReentryByNameToTheDebugOutput) {
    ScopedEnvironment debug("KEEL_DEBUG_OUTPUT", "1");
    QReentrancyCounter counter;
    testing::internal::CaptureStderr();
    {
        const QReentrancyWriter outer(counter, "QErrorLog::Display");
        const QReentrancyWriter inner(counter, "QErrorLog::Display");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Reentrancy in QErrorLog::Display (depth 2)\n");
}

TEST(ReentrancyTest, CountersAreIndependent) {
    QReentrancyCounter first;
    QReentrancyCounter second;
    const QReentrancyWriter a(first, "First");
    const QReentrancyWriter b(second, "Second");
    EXPECT_FALSE(b.IsReentered());
    EXPECT_EQ(first.Count(), 1);
    EXPECT_EQ(second.Count(), 1);
}

} // namespace
} // namespace keel
