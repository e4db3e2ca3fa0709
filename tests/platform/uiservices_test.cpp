#include "tests/support/environment.h"
#include "tests/support/uihosts.h"

#include "keel/platform/reentrancy.h"
#include "keel/platform/uiservices.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::ScopedEnvironment;

TEST(UIServicesTest, DefaultButtonsButtonsAndAnswerNames) {
    const struct {
        unsigned flags;
        int answer;
    } cases[] = {{MB_OK | MB_DEFBUTTON2, IDOK}, // a default button the box does not have
                 {MB_OKCANCEL | MB_DEFBUTTON2, IDCANCEL},
                 {MB_OKCANCEL | MB_DEFBUTTON3, IDOK},
                 {0x114, IDNO}, // the error log's single message
                 {MB_YESNOCANCEL | MB_DEFBUTTON3, IDCANCEL},
                 {MB_ABORTRETRYIGNORE | MB_DEFBUTTON3, IDIGNORE},
                 {MB_RETRYCANCEL, IDRETRY},
                 {0x7, IDOK}}; // an unknown type shows OK
    for (const auto& c : cases)
        EXPECT_EQ(DefaultButtonAnswer(c.flags), c.answer) << std::hex << c.flags;
    EXPECT_EQ(MessageBoxButtons(MB_ABORTRETRYIGNORE | MB_ICONEXCLAMATION),
              std::vector<int>({IDABORT, IDRETRY, IDIGNORE}));
    const struct {
        int answer;
        const char16_t* name;
    } names[] = {{IDCANCEL, u"Cancel"}, {IDRETRY, u"Retry"}, {0, u""}, {42, u""}};
    for (const auto& n : names)
        EXPECT_EQ(AnswerName(n.answer), n.name) << n.answer;
}

// What a headless host writes, one line a box, message, or file to open, as UTF-8.
TEST(HeadlessUIServicesTest, AnswersWithTheDefaultButtonAndWritesOneLineEach) {
    std::FILE* output = std::tmpfile();
    CHeadlessUIServices host(output);
    EXPECT_FALSE(host.HasDisplay());
    EXPECT_EQ(host.MessageBox(u"Disk is full", u"Keel", MB_OK | MB_ICONSTOP), IDOK);
    EXPECT_EQ(host.MessageBox(u"Cannot open it.\n\nChange error reporting options?",
                              u"Keel - Error - 10:11:12", 0x114),
              IDNO);
    EXPECT_EQ(host.MessageBox(u"Save changes?", u"Drawing", MB_YESNOCANCEL), IDYES);
    host.MessageBox(u"Gr\u00F6\u00DFe \u20AC", u"K\u00E9el", MB_OK);
    EXPECT_EQ(host.AnsweredBoxes(), 4);
    host.ShowPendingMessages({{u"09:00:01", u"Error", u"Bad formula"},
                              {u"09:00:02", u"Table", u"Missing row\r\nin table"}});
    EXPECT_EQ(host.ShownMessages(), 2);
    EXPECT_EQ(host.AnsweredBoxes(), 4);
    // Customise is cancelled and leaves the lists alone; opening a file tells the path and fails.
    CCheckList display = {{u"Error", true}};
    CCheckList log = {{u"Error", false}};
    bool viewed = false;
    EXPECT_FALSE(host.Customise(display, log, [&viewed] { viewed = true; }));
    EXPECT_TRUE(display[0].checked);
    EXPECT_FALSE(log[0].checked);
    EXPECT_FALSE(viewed);
    EXPECT_FALSE(host.OpenFile(u"/tmp/Logs/errorlog_01-Jan-24_000000.txt"));

    std::rewind(output);
    std::string text;
    for (int ch = std::fgetc(output); ch != EOF; ch = std::fgetc(output))
        text += static_cast<char>(ch);
    std::fclose(output);
    EXPECT_EQ(text, "[Keel] Disk is full => OK\n"
                    "[Keel - Error - 10:11:12] Cannot open it.\\n\\nChange error reporting "
                    "options? => No\n"
                    "[Drawing] Save changes? => Yes\n"
                    "[K\xC3\xA9"
                    "el] Gr\xC3\xB6\xC3\x9F"
                    "e \xE2\x82\xAC => OK\n"
                    "[09:00:01 Error] Bad formula\n"
                    "[09:00:02 Table] Missing row\\nin table\n"
                    "[open file] /tmp/Logs/errorlog_01-Jan-24_000000.txt\n");
}

TEST(UIServicesTest, HeadlessUntilAHostIsInstalledAndAgainAfterNull) {
    EXPECT_FALSE(UIServices().HasDisplay());
    test::RecordingHost host(IDCANCEL);
    SetUIServices(&host);
    EXPECT_EQ(&UIServices(), &host);
    EXPECT_EQ(UIServices().MessageBox(u"Sure?", u"Keel", MB_OKCANCEL), IDCANCEL);
    EXPECT_EQ(host.boxes, std::vector<std::string>({"Sure?"}));
    SetUIServices(nullptr);
    EXPECT_NE(&UIServices(), &host);
    EXPECT_FALSE(UIServices().HasDisplay());
}

TEST(DebugOutputTest, WrittenToStandardErrorOnlyWhenAskedFor) {
    for (const char* setting : {static_cast<const char*>(nullptr), "1"}) {
        ScopedEnvironment debug("KEEL_DEBUG_OUTPUT", setting);
        testing::internal::CaptureStderr();
        OutputDebugText(u"shown \u00E9\n");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), setting ? "shown \xC3\xA9\n" : "");
    }
}

TEST(ReentrancyTest, CountsNestedWritersAndReportsReentryByName) {
    ScopedEnvironment debug("KEEL_DEBUG_OUTPUT", "1");
    QReentrancyCounter counter;
    QReentrancyCounter other;
    testing::internal::CaptureStderr();
    {
        const QReentrancyWriter outer(counter, "QErrorLog::Display");
        EXPECT_FALSE(outer.IsReentered());
        {
            const QReentrancyWriter inner(counter, "QErrorLog::Display");
            EXPECT_TRUE(inner.IsReentered());
            EXPECT_EQ(counter.Count(), 2);
            const QReentrancyWriter independent(other, "Other");
            EXPECT_FALSE(independent.IsReentered());
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Reentrancy in QErrorLog::Display (depth 2)\n");
    EXPECT_EQ(counter.Count(), 0);
}

} // namespace
} // namespace keel
