#include "keel/platform/reentrancy.h"
#include "keel/platform/uiservices.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

namespace keel {
namespace {

TEST(UIServicesTest, TheDefaultButtonAnswersForTheBox) {
    const struct {
        unsigned flags;
        int answer;
    } cases[] = {{MB_OK | MB_DEFBUTTON2, IDOK}, // a default button the box does not have
                 {MB_OKCANCEL | MB_DEFBUTTON2, IDCANCEL},
                 {0x114, IDNO}, // the error log's single message
                 {MB_YESNOCANCEL | MB_DEFBUTTON3, IDCANCEL},
                 {MB_RETRYCANCEL, IDRETRY},
                 {0x7, IDOK}}; // an unknown type shows OK
    for (const auto& c : cases)
        EXPECT_EQ(DefaultButtonAnswer(c.flags), c.answer) << std::hex << c.flags;
}

// A headless host answers with the default button and writes one line a box, message, or file
// to open, line breaks escaped.
TEST(HeadlessUIServicesTest, AnswersWithTheDefaultButtonAndWritesOneLineEach) {
    std::FILE* output = std::tmpfile();
    CHeadlessUIServices host(output);
    EXPECT_FALSE(host.HasDisplay());
    EXPECT_EQ(host.MessageBox(u"Cannot open it.\n\nChange error reporting options?",
                              u"Keel - Error - 10:11:12", 0x114),
              IDNO);
    host.ShowPendingMessages({{u"09:00:02", u"Table", u"Missing row\r\nin table"}});
    EXPECT_EQ(host.ShownMessages(), 1);
    EXPECT_EQ(host.AnsweredBoxes(), 1);
    // Customise is cancelled and leaves the lists alone; opening a file tells the path and fails.
    CCheckList display = {{u"Error", true}};
    CCheckList log = {{u"Error", false}};
    bool viewed = false;
    EXPECT_FALSE(host.Customise(display, log, [&viewed] { viewed = true; }));
    EXPECT_TRUE(display[0].checked);
    EXPECT_FALSE(log[0].checked);
    EXPECT_FALSE(viewed);
    EXPECT_FALSE(host.OpenFile(u"/tmp/Logs/errorlog.txt"));

    std::rewind(output);
    std::string text;
    for (int ch = std::fgetc(output); ch != EOF; ch = std::fgetc(output))
        text += static_cast<char>(ch);
    std::fclose(output);
    EXPECT_EQ(text, "[Keel - Error - 10:11:12] Cannot open it.\\n\\nChange error reporting "
                    "options? => No\n"
                    "[09:00:02 Table] Missing row\\nin table\n"
                    "[open file] /tmp/Logs/errorlog.txt\n");
}

TEST(ReentrancyTest, CountsNestedWriters) {
    QReentrancyCounter counter;
    {
        const QReentrancyWriter outer(counter, "QErrorLog::Display");
        EXPECT_FALSE(outer.IsReentered());
        {
            const QReentrancyWriter inner(counter, "QErrorLog::Display");
            EXPECT_TRUE(inner.IsReentered());
            EXPECT_EQ(counter.Count(), 2);
        }
    }
    EXPECT_EQ(counter.Count(), 0);
}

} // namespace
} // namespace keel
