#pragma once

#include "keel/platform/cstring.h"
#include "keel/platform/exceptions.h"
#include "keel/platform/file.h"
#include "keel/platform/reentrancy.h"
#include "keel/platform/uiservices.h"
#include "keel/values/array.h"

#include <chrono>
#include <exception>
#include <string>

namespace keel {

class QErrorLog;

// A kind of error, named by its description (the heading of its messages). Its two flags decide
// whether its messages are shown to the person and whether they are written to the log file.
class QErrorType {
public:
    // Joins `log`, or the process's log when `log` is null; the log owns the type from then on.
    // A description listed in the option "ErrorLogOnly" is never shown.
    QErrorType(QErrorLog* log, const CString& description);
    virtual ~QErrorType();
    QErrorType(const QErrorType&) = delete;
    QErrorType& operator=(const QErrorType&) = delete;

    QErrorLog* ErrorLog() const { return m_pErrorLog; }
    const CString& Description() const { return m_description; }
    bool IsDisplay() const { return m_bIsDisplay; }
    bool IsLog() const { return m_bIsLog; }
    void SetIsDisplay(bool display) { m_bIsDisplay = display; }
    void SetIsLog(bool log) { m_bIsLog = log; }

    // The way to report an error: written to the log file and queued for showing, as the flags
    // of the type and of its log say. Returns 1.
    int DisplayOrLog(const CString& message);

    // "ErrorLogOnly" is read once per process, by the first type made; this reads it again for
    // the types made from now on.
    static void ReloadErrorLogOnly();

private:
    friend class QErrorLog;

    QErrorLog* m_pErrorLog;
    CString m_description;
    bool m_bIsDisplay = true;
    bool m_bIsLog = true;
};

// The error log of an application: a file of every error, in the user's data folder under
// "Logs", and a list of the errors waiting to be shown.
class QErrorLog {
public:
    using TimeStamp = std::chrono::system_clock::time_point;

    struct MessageRecord {
        TimeStamp m_time;
        QErrorType* m_pType = nullptr;
        CString m_message;
    };

    static constexpr int c_maxPendingMessages = 1000;

    // An empty file name is made from the current local time, as
    // "errorlog_%d-%b-%y_%H%M%S.txt" with English month abbreviations. A verbose log heads its
    // file with all the version information of the application.
    explicit QErrorLog(const CString& fileName = CString(), bool verbose = false);
    // Deletes the registered types and closes the file without asking anything; an application
    // calls CloseLogFile before it ends, so that the person sees what is pending.
    ~QErrorLog();
    QErrorLog(const QErrorLog&) = delete;
    QErrorLog& operator=(const QErrorLog&) = delete;

    const CString& Filename() const { return m_filename; }
    void SetFilename(const CString& name) { m_filename = name; }
    // A full path is kept; a plain name is joined to the "Logs" folder of the application's data
    // folder. Without an application object there is no such folder, and the result is empty.
    CString FilenameFullPath() const;

    // Whether the open step has run, even if it failed to create the file.
    bool IsOpen() const { return m_bOpen; }
    // Whether the file has been created and headed.
    bool IsWritten() const { return m_bWritten; }
    // While set, messages are only written to the file and never shown. It starts set, and the
    // open step decides: it stays set only for a server whose option "ServerErrors" is off.
    bool IsLogOnly() const { return m_bLogOnly; }

    // The pending messages, oldest first.
    int GetSize() const { return m_pending.GetCount(); }
    TimeStamp Time(int index) const { return m_pending[index].m_time; }
    QErrorType* ErrorType(int index) const { return m_pending[index].m_pType; }
    const CString& Message(int index) const { return m_pending[index].m_message; }

    // The type of that description, made if it is new.
    QErrorType* Register(const CString& description);
    // Adds the type unless it is there already; the log then owns it, and the log that owned it
    // before lets it go.
    void Register(QErrorType* type);
    // Takes the type out of the list; the caller owns it again.
    void Unregister(QErrorType* type);
    int GetTypeCount() const { return m_types.GetCount(); }

    // Writes a line to the file: the time, the type and the message. A message equal to the last
    // one written of the same type is left out.
    void Log(QErrorType* type, const CString& message);
    // Queues the message to be shown, unless the same message of the same type is queued already.
    // Beyond c_maxPendingMessages messages one overflow message is queued and the rest dropped.
    void Display(QErrorType* type, const CString& message);

    // Shows the pending messages and empties the list. Several messages are shown in one list;
    // with `ask` the person is first asked whether to see them now, and on any answer but Yes
    // they stay pending. A report raised while they are shown only queues.
    void DisplayPendingMessages(bool ask);
    // One message in a box that offers to change the error reporting options.
    void DisplaySingleMessage(int index);
    void DiscardPendingMessages();
    // Shows what is pending, offers to view a log file that was written, and closes it; a next
    // message opens the file again.
    void CloseLogFile();
    void DisplayLogfile();
    // Lets the person change which types are shown and which are logged.
    void Customise();

    // One row a type, in the order of registration.
    void FillWithDisplayFlags(CCheckList& list) const;
    void FillWithLogFlags(CCheckList& list) const;
    // From rows filled by the functions above; a list of another length is an invalid argument.
    void UpdateDisplayFlags(const CCheckList& list);
    void UpdateLogFlags(const CCheckList& list);

    // The same, on the process's log.
    static bool TheLogHasPendingMessages();
    static void DisplayThePendingMessages(bool ask);
    static void DiscardThePendingMessages();

private:
    void OpenIfNecessary();
    bool CreateLogFile(const CString& path);
    CString HeaderText(bool fileWasEmpty) const;
    // Appends to the file; a failure closes it for good.
    bool WriteToFile(const CString& text);
    QErrorType* FindType(const CString& description) const;
    bool IsPending(const QErrorType* type, const CString& message) const;
    void CheckListLength(const CCheckList& list, const char* operation) const;

    CString m_filename;
    CFile m_logFile;
    bool m_bOpen = false;
    bool m_bWritten = false;
    bool m_bVerbose;
    bool m_bLogOnly = true;
    QArray<QErrorType*> m_types;
    QArray<MessageRecord> m_pending;
    QReentrancyCounter m_fileCounter;
    QReentrancyCounter m_typesCounter;
    QReentrancyCounter m_pendingCounter;
};

// The process's error log, made on first use.
QErrorLog& TheErrorLog();

// The name that captions boxes and heads logs: the application object's, or "Keel" without one.
CString ApplicationNameOrDefault();

// Reports an error: translated (with the context "Message box") unless `alreadyTranslated`, and
// handed to the type named by the heading. Returns 1.
int QMessageBoxOrLog(const CString& message, const CString& heading,
                     bool alreadyTranslated = false);
// The same under the heading "Error". A queued message has no buttons, so the flags of the box
// that the call once was change nothing.
int QMessageBoxOrLog(const CString& message, unsigned flags = MB_OK);
// The same as QMessageBoxOrLog, unless the evaluator has switched its reports off; returns 0 then.
int QMessageBoxOrLogUnlessNoEvalReportErrors(const CString& message, const CString& heading,
                                             bool alreadyTranslated = false);
// The evaluator's switch for its reports.
void SetNoEvalReportErrors(bool noReports);
bool NoEvalReportErrors();

// A box for the person; a server, or a program without a display, logs "Ignoring function:
// prompt" under the type "Server" instead and answers with the default button of the flags.
int QMessageBoxExceptServer(const CString& function, const CString& prompt, unsigned flags = MB_OK);
// The same for a question, which a server answers with `serverAnswer`.
int QMessageBoxYesNoExceptServer(const CString& function, const CString& prompt, int serverAnswer,
                                 unsigned flags = MB_YESNO);
// The same; a server logs "Ignoring: prompt [returning answer]".
int QMessageBoxYesNoAlwaysCancel(const CString& prompt, int serverAnswer,
                                 unsigned flags = MB_YESNOCANCEL);

// The exception's own message, at most 511 characters; empty when it gives none.
CString ErrorMessage(const std::exception& exception);

// The floating-point faults raised since the status was last cleared, as a list such as
// "result was not exact, division by zero", and clears them. Empty when none was raised.
CString FPExceptionMessage();

// The exception mask of the floating-point control word. Faults are never trapped on this
// platform: the word is kept for the process so that code can save, change and restore it as it
// would elsewhere, and a set bit masks its fault as there. It starts with every bit set.
inline constexpr unsigned FP_EXCEPTION_BITS = 0x8001F;
// The faults that always mean a wrong result: overflow, division by zero, invalid operation.
inline constexpr unsigned FP_SIMPLE_EXCEPTION_BITS = 0x1C;

// Whether all faults of FP_EXCEPTION_BITS are unmasked.
bool GetFPExceptions();
// Unmasks (true) or masks (false) all of FP_EXCEPTION_BITS, clearing the status before and after.
void SetFPExceptions(bool enable);
// Whether the faults of FP_SIMPLE_EXCEPTION_BITS are unmasked.
bool GetFPExceptionsSimple();
// Unmasks (true) only the faults of FP_SIMPLE_EXCEPTION_BITS, or masks all (false), clearing
// the status before and after.
void SetFPExceptionsSimple(bool enable);
unsigned GetFPExceptionsControlWordBits();
// Bits outside FP_EXCEPTION_BITS are ignored.
void SetFPExceptionsControlWordBits(unsigned bits);

// Sets the exception mask for a scope and restores it at the end, clearing the floating-point
// status on the way in and out; inside, FPExceptionMessage tells what went wrong.
class QFPExceptions {
public:
    explicit QFPExceptions(bool enable);
    ~QFPExceptions();
    QFPExceptions(const QFPExceptions&) = delete;
    QFPExceptions& operator=(const QFPExceptions&) = delete;

private:
    unsigned m_savedBits;
};

// The same with the mask of SetFPExceptionsSimple.
class QFPExceptionsSimple {
public:
    explicit QFPExceptionsSimple(bool enable);
    ~QFPExceptionsSimple();
    QFPExceptionsSimple(const QFPExceptionsSimple&) = delete;
    QFPExceptionsSimple& operator=(const QFPExceptionsSimple&) = delete;

private:
    unsigned m_savedBits;
};

// What low-level code throws when the system fails it: where, and optionally what and a code.
class ExceptionDescr : public CException {
public:
    ExceptionDescr(const char* file, int line);
    ExceptionDescr(const char* file, int line, const CString& description);
    ExceptionDescr(const char* file, int line, long code);
    ExceptionDescr(const char* file, int line, const CString& description, long code);

    const std::string& File() const { return m_file; }
    int Line() const { return m_line; }
    bool HasDescription() const { return m_bHasDescription; }
    const CString& Description() const { return m_description; }
    bool HasCode() const { return m_bHasCode; }
    long Code() const { return m_code; }

private:
    std::string m_file;
    int m_line;
    CString m_description;
    long m_code = 0;
    bool m_bHasDescription = false;
    bool m_bHasCode = false;
};

// Writes "==> Throw at <file> <line>" to the debug output.
void WriteThrowLocation(const char* file, int line);
// Tells the debug output where, then throws an ExceptionDescr made of the same arguments.
template <class... Details>
[[noreturn]] void ThrowExceptionDescr(const char* file, int line, const Details&... details) {
    WriteThrowLocation(file, line);
    throw ExceptionDescr(file, line, details...);
}

} // namespace keel
