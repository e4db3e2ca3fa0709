#pragma once

#include "keel/platform/cstring.h"

#include <cstdio>
#include <functional>
#include <vector>

namespace keel {

// Message box styles and answers, with the desktop framework's values so that flags pass through
// unchanged from code written against its boxes.
inline constexpr unsigned MB_OK = 0x0;
inline constexpr unsigned MB_OKCANCEL = 0x1;
inline constexpr unsigned MB_ABORTRETRYIGNORE = 0x2;
inline constexpr unsigned MB_YESNOCANCEL = 0x3;
inline constexpr unsigned MB_YESNO = 0x4;
inline constexpr unsigned MB_RETRYCANCEL = 0x5;
inline constexpr unsigned MB_TYPEMASK = 0xF;
inline constexpr unsigned MB_ICONSTOP = 0x10;
inline constexpr unsigned MB_ICONQUESTION = 0x20;
inline constexpr unsigned MB_ICONEXCLAMATION = 0x30;
inline constexpr unsigned MB_ICONINFORMATION = 0x40;
inline constexpr unsigned MB_DEFBUTTON1 = 0x000;
inline constexpr unsigned MB_DEFBUTTON2 = 0x100;
inline constexpr unsigned MB_DEFBUTTON3 = 0x200;
inline constexpr unsigned MB_DEFMASK = 0xF00;

// Answers of the shell's start of a file below 33: not found, and no application for the verb.
inline constexpr int SE_ERR_FNF = 2;
inline constexpr int SE_ERR_NOASSOC = 31;

inline constexpr int IDOK = 1;
inline constexpr int IDCANCEL = 2;
inline constexpr int IDABORT = 3;
inline constexpr int IDRETRY = 4;
inline constexpr int IDIGNORE = 5;
inline constexpr int IDYES = 6;
inline constexpr int IDNO = 7;

// The buttons of a box in the order they are shown, from the type bits of its flags; an unknown
// type shows OK alone.
std::vector<int> MessageBoxButtons(unsigned flags);
// The answer of the default button: the first, or the second or third with MB_DEFBUTTON2 or
// MB_DEFBUTTON3 when the box has that many buttons.
int DefaultButtonAnswer(unsigned flags);
// "OK", "Cancel", "Abort", "Retry", "Ignore", "Yes", "No"; empty for any other number.
CString AnswerName(int answer);

// One message waiting in the error log, as the list of pending messages shows it.
struct CPendingMessage {
    CString time;
    CString type;
    CString text;
};

// One row of a check list: a text and its tick.
struct CCheckListItem {
    CString text;
    bool checked = false;
};
using CCheckList = std::vector<CCheckListItem>;

// Everything the library shows to a person goes through the installed host: a desktop front end
// installs one with windows; without it the headless host answers.
//
// How a host without a display is treated: the library acts as a server without a display
// would. A box that exists only to tell something (QMessageBoxExceptServer and its kin) is not
// shown; its text goes to the error log as "Ignoring ..." and the caller gets the answer it
// would get from a server. Errors reported through QMessageBoxOrLog still queue in the error
// log, and the queue is shown through the host when it is displayed, which for the headless host
// means one line a message on its output. Boxes that the error log itself asks (several errors,
// view the log file, change the options) are put to the host, which answers with the default
// button.
class IUIServices {
public:
    virtual ~IUIServices() = default;

    virtual bool HasDisplay() const = 0;
    // A modal box; returns the answer (IDOK, IDYES, ...).
    virtual int MessageBox(const CString& text, const CString& caption, unsigned flags) = 0;
    // Shows the error log's pending messages together, in a list, and returns when the person
    // has seen them.
    virtual void ShowPendingMessages(const std::vector<CPendingMessage>& messages) = 0;
    // Lets the person tick which error types are shown and which are written to the log file;
    // `viewLogFile` opens the log file. Returns false when the person cancelled, and the lists
    // are then to be ignored.
    virtual bool Customise(CCheckList& displayFlags, CCheckList& logFlags,
                           const std::function<void()>& viewLogFile) = 0;
    // Opens a text file in the desktop's viewer. Returns false when it cannot.
    virtual bool OpenFile(const CString& path) = 0;
    // The count of pending errors changed: indicators that show it (status bars, table editors)
    // are brought up to date. A host without such indicators has nothing to do.
    virtual void RefreshErrorButtons() {}

    // The dialogs that formulas open. A host that has none of them keeps these answers: nothing
    // was chosen, nothing was opened. (The formula functions do not ask a host without a
    // display; they answer as a server does.)

    // The text edit dialog, titled `title`: true with `text` changed when the person confirmed.
    virtual bool EditText(CString& /*text*/, const CString& /*title*/) { return false; }
    // The colour dialog starting at `color` (0x00BBGGRR): true with the colour chosen.
    virtual bool PickColor(unsigned long& /*color*/) { return false; }
    // A dialog that picks a file to open, starting in `folder` at `path`; `filter` is a list of
    // patterns such as "*.png;*.jpg", empty for all files. True with the full path chosen.
    virtual bool BrowseForFile(const CString& /*title*/, const CString& /*folder*/,
                               const CString& /*filter*/, CString& /*path*/) {
        return false;
    }
    // The form editor on a question file, and the table editor on a table file, both modal.
    // True when the editor was shown.
    virtual bool EditForm(const CString& /*path*/, const CString& /*group*/) { return false; }
    virtual bool EditTable(const CString& /*path*/) { return false; }
    // A dialog that picks a file to save to (`save`) or to open, titled `title`, with a filter
    // in the framework's form ("ASCII Export (*.tab)|*.tab|XML Export (*.xml)|*.xml||") and the
    // extension that a name without one gets. True with the full path chosen.
    virtual bool PickExportFile(bool /*save*/, const CString& /*title*/, const CString& /*filter*/,
                                const CString& /*defaultExt*/, CString& /*path*/) {
        return false;
    }
    // The busy cursor, shown from Begin to End; calls nest. A host without a pointer shows none.
    virtual void BeginWaitCursor() {}
    virtual void EndWaitCursor() {}
    // The text of the main window's status bar; a host without one has nothing to show.
    virtual void SetStatusBarText(const CString& /*text*/) {}
    // Opens the file with the desktop's application for the verb ("open", "edit") and returns
    // without waiting: the started process's number, or 0 when nothing could be started.
    virtual long ShellOpenNoWait(const CString& /*path*/, const CString& /*verb*/) { return 0; }
    // Whether a process that ShellOpenNoWait started is still running.
    virtual bool IsProcessRunning(long /*process*/) { return false; }
    // Starts `file` for the verb without waiting, as the desktop's shell does: a program is run
    // with `arguments`, any other file is opened ("open") by the desktop's opener. The answer is
    // the shell's: above 32 when something started, SE_ERR_NOASSOC when nothing here knows the
    // verb for that file (no program prints by itself), SE_ERR_FNF when the file is not there,
    // and 0 when it could not be started.
    virtual int ShellExecuteNoWait(const CString& file, const std::vector<CString>& arguments,
                                   const CString& verb);
    // Asks the active property sheet to show a page.
    enum class PageSelection { NoSheet, NotFound, Selected };
    virtual PageSelection SelectCategoryAndPage(const CString& /*category*/,
                                                const CString& /*page*/) {
        return PageSelection::NoSheet;
    }
};

// The installed host; the headless host until another is installed.
IUIServices& UIServices();
// Installs a host, which the caller keeps alive while it is installed; nullptr restores the
// headless host.
void SetUIServices(IUIServices* host);

// Shows the busy cursor of the installed host for a scope.
class CWaitCursor {
public:
    CWaitCursor() { UIServices().BeginWaitCursor(); }
    ~CWaitCursor() { UIServices().EndWaitCursor(); }
    CWaitCursor(const CWaitCursor&) = delete;
    CWaitCursor& operator=(const CWaitCursor&) = delete;
};

// The host of a program without a display. Each box is answered with its default button and
// written to the output as one line: "[caption] text => Answer", with line breaks of the text
// shown as "\n". Pending messages are written one line each: "[time type] text".
class CHeadlessUIServices : public IUIServices {
public:
    explicit CHeadlessUIServices(std::FILE* output = stderr) : m_output(output) {}

    bool HasDisplay() const override { return false; }
    int MessageBox(const CString& text, const CString& caption, unsigned flags) override;
    void ShowPendingMessages(const std::vector<CPendingMessage>& messages) override;
    // Nothing can be ticked without a display: always cancelled.
    bool Customise(CCheckList& displayFlags, CCheckList& logFlags,
                   const std::function<void()>& viewLogFile) override;
    // There is no viewer: the path is written to the output so that the person can find the
    // file, and the answer is false.
    bool OpenFile(const CString& path) override;

    int AnsweredBoxes() const { return m_answeredBoxes; }
    int ShownMessages() const { return m_shownMessages; }

private:
    void WriteLine(const CString& line);

    std::FILE* m_output;
    int m_answeredBoxes = 0;
    int m_shownMessages = 0;
};

// The debugger's output channel: the text goes to the standard error stream when the environment
// variable KEEL_DEBUG_OUTPUT is set (to anything), and nowhere otherwise.
void OutputDebugText(const CString& text);

} // namespace keel
