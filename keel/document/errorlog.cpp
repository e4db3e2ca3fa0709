#include "keel/document/errorlog.h"

#include "keel/document/appservices.h"
#include "keel/document/translate.h"
#include "keel/platform/fpstatus.h"
#include "keel/platform/registry.h"
#include "keel/system/folders.h"
#include "keel/system/pathop.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <optional>
#include <pwd.h>
#include <unistd.h>

namespace keel {

namespace {

constexpr const char16_t* kMessageBoxContext = u"Message box";

// The last line written to any log, so that a repeated error gives one line.
const QErrorType* g_lastLoggedType = nullptr;
CString g_lastLoggedMessage;

// The option "ServerErrors": a server shows its errors instead of only logging them.
bool g_bServerErrors = false;

std::mutex g_errorLogOnlyMutex;
std::optional<CString> g_errorLogOnly;

// Evaluators run on one thread and set this around every evaluation: it is not a lock, so it
// needs no ordering, only freedom from torn reads.
std::atomic<bool> g_bNoEvalReportErrors{false};

std::atomic<unsigned> g_fpControlWordBits{FP_EXCEPTION_BITS};

CString ErrorLogOnlyOption() {
    std::lock_guard<std::mutex> lock(g_errorLogOnlyMutex);
    if (!g_errorLogOnly)
        g_errorLogOnly =
            CRegistry::Current().GetProfileString(u"Options", u"ErrorLogOnly", CString());
    return *g_errorLogOnly;
}

std::tm LocalTime(QErrorLog::TimeStamp time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local{};
    localtime_r(&seconds, &local);
    return local;
}

// "%H:%M:%S"
CString ClockText(const std::tm& time) {
    return CString::Formatted(u"%02d:%02d:%02d", time.tm_hour, time.tm_min, time.tm_sec);
}

// "%d-%m-%y %H:%M:%S"
CString DateAndClockText(const std::tm& time) {
    return CString::Formatted(u"%02d-%02d-%02d ", time.tm_mday, time.tm_mon + 1,
                              time.tm_year % 100) +
           ClockText(time);
}

// "errorlog_%d-%b-%y_%H%M%S.txt", with the month in English whatever the locale.
CString LogFileNameFor(const std::tm& time) {
    static constexpr const char16_t* kMonths[] = {u"Jan", u"Feb", u"Mar", u"Apr", u"May", u"Jun",
                                                  u"Jul", u"Aug", u"Sep", u"Oct", u"Nov", u"Dec"};
    return CString::Formatted(u"errorlog_%02d-%s-%02d_%02d%02d%02d.txt", time.tm_mday,
                              kMonths[time.tm_mon], time.tm_year % 100, time.tm_hour, time.tm_min,
                              time.tm_sec);
}

CString UserName() {
    if (const char* user = std::getenv("USER"); user && *user)
        return CString::FromUtf8(user);
    if (const passwd* entry = ::getpwuid(::getuid()))
        return CString::FromUtf8(entry->pw_name);
    return CString();
}

bool RunsAsServer() {
    return AppServices().IsServer();
}

// A server, and a program that has no display, answer boxes without asking anybody.
bool AnswersWithoutAsking() {
    return RunsAsServer() || !UIServices().HasDisplay();
}

CString Translated(const CString& text, const char16_t* context = kMessageBoxContext) {
    return TranslateString(text, u"", context);
}

CString JoinNonEmpty(std::initializer_list<CString> parts, const char16_t* separator) {
    CString joined;
    for (const CString& part : parts) {
        if (part.IsEmpty())
            continue;
        if (!joined.IsEmpty())
            joined += separator;
        joined += part;
    }
    return joined;
}

void LogAsServer(const CString& text) {
    QErrorLog& log = TheErrorLog();
    log.Log(log.Register(Translated(u"Server")), text);
}

CString ServerAnswerText(int answer) {
    const CString name = AnswerName(answer);
    return name.IsEmpty() ? CString::Formatted(u"<unknown %d>", answer) : Translated(name);
}

} // namespace

CString ApplicationNameOrDefault() {
    return AppServices().AppName();
}

// --- QErrorType ------------------------------------------------------------------------------

QErrorType::QErrorType(QErrorLog* log, const CString& description)
    : m_pErrorLog(log ? log : &TheErrorLog()), m_description(description) {
    if (ErrorLogOnlyOption().Find(u";" + description + u";") >= 0)
        m_bIsDisplay = false;
    m_pErrorLog->Register(this);
}

QErrorType::~QErrorType() {
    if (m_pErrorLog)
        m_pErrorLog->Unregister(this);
    if (g_lastLoggedType == this)
        g_lastLoggedType = nullptr;
}

int QErrorType::DisplayOrLog(const CString& message) {
    QErrorLog& log = *m_pErrorLog;
    // Log runs the open step, which decides the log-only flag: test it again afterwards.
    if (log.IsLogOnly() || m_bIsLog)
        log.Log(this, message);
    if (!log.IsLogOnly() && m_bIsDisplay)
        log.Display(this, message);
    return 1;
}

void QErrorType::ReloadErrorLogOnly() {
    std::lock_guard<std::mutex> lock(g_errorLogOnlyMutex);
    g_errorLogOnly.reset();
}

// --- QErrorLog -------------------------------------------------------------------------------

QErrorLog::QErrorLog(const CString& fileName, bool verbose)
    : m_filename(fileName.IsEmpty() ? LogFileNameFor(LocalTime(std::chrono::system_clock::now()))
                                    : fileName),
      m_bVerbose(verbose) {}

QErrorLog::~QErrorLog() {
    QArray<QErrorType*> types = std::move(m_types);
    m_types.RemoveAll();
    for (QErrorType* type : types) {
        type->m_pErrorLog = nullptr;
        delete type;
    }
}

CString QErrorLog::FilenameFullPath() const {
    if (QPathOp::HasRoot(m_filename))
        return QPathOp::NormalForm(m_filename);
    if (!AppServices().IsApplication())
        return CString();
    return QPathOp::FolderPlusFileSpec(QPathOp::FolderPlusFolder(QFolders::DataDir(), u"Logs"),
                                       m_filename);
}

QErrorType* QErrorLog::Register(const CString& description) {
    if (QErrorType* type = FindType(description))
        return type;
    return new QErrorType(this, description);
}

void QErrorLog::Register(QErrorType* type) {
    if (type->m_pErrorLog != this) {
        if (type->m_pErrorLog)
            type->m_pErrorLog->Unregister(type);
        type->m_pErrorLog = this;
    }
    QReentrancyWriter writer(m_typesCounter, "QErrorLog::Register");
    if (m_types.Find(type) < 0)
        m_types.Add(type);
}

void QErrorLog::Unregister(QErrorType* type) {
    QReentrancyWriter writer(m_typesCounter, "QErrorLog::Unregister");
    if (const int index = m_types.Find(type); index >= 0)
        m_types.RemoveAt(index);
}

QErrorType* QErrorLog::FindType(const CString& description) const {
    for (QErrorType* type : m_types) {
        if (type->Description() == description)
            return type;
    }
    return nullptr;
}

void QErrorLog::Log(QErrorType* type, const CString& message) {
    Register(type);
    OpenIfNecessary();
    if (!m_bWritten)
        return;
    if (type == g_lastLoggedType && message == g_lastLoggedMessage)
        return;
    g_lastLoggedType = type;
    g_lastLoggedMessage = message;

    QReentrancyWriter writer(m_fileCounter, "QErrorLog::Log");
    const std::tm now = LocalTime(std::chrono::system_clock::now());
    WriteToFile(ClockText(now) + u" " + type->Description() + u":" + message + u"\n");
}

void QErrorLog::OpenIfNecessary() {
    if (m_bOpen)
        return;
    m_bOpen = true;
    g_bServerErrors = CRegistry::Current().GetProfileInt(u"Options", u"ServerErrors",
                                                         g_bServerErrors ? 1 : 0) != 0;
    m_bLogOnly = RunsAsServer() && !g_bServerErrors;

    const CString path = FilenameFullPath();
    if (CreateLogFile(path))
        return;
    static const QTString panic(u"Panic: Cannot create errorlog file <%s>",
                                u"Message box (fileName)");
    UIServices().MessageBox(CString::Formatted(panic, path), ApplicationNameOrDefault(),
                            MB_OK | MB_ICONSTOP);
}

bool QErrorLog::CreateLogFile(const CString& path) {
    if (path.IsEmpty())
        return false;
    std::error_code ignored;
    std::filesystem::create_directories(QPathOp::PathWithoutFileSpec(path).ToUtf8(), ignored);
    // A server may be started many times under one log name: it adds to the file.
    unsigned flags = CFile::modeCreate | CFile::modeWrite | CFile::shareDenyNone;
    if (RunsAsServer())
        flags |= CFile::modeNoTruncate;
    if (!m_logFile.Open(path, flags))
        return false;
    const bool fileWasEmpty = m_logFile.SeekToEnd() == 0;
    m_bWritten = WriteToFile(HeaderText(fileWasEmpty));
    return m_bWritten;
}

CString QErrorLog::HeaderText(bool fileWasEmpty) const {
    const QAppServices& app = AppServices();
    const auto version = [&app](CString (QAppServices::*reader)() const) {
        return (app.*reader)();
    };

    CString header = u"\n";
    header += ApplicationNameOrDefault() + u" - Error Log: " +
              DateAndClockText(LocalTime(std::chrono::system_clock::now())) + u"\n";
    header += u"File Version: " + version(&QAppServices::FileVersion) + u"\n";
    header += u"Product Version:           " + version(&QAppServices::ProductVersion) + u"\n";
    header += u"User Name:    " + UserName() + u"\n";
    if (m_bVerbose) {
        header += u"Description:  " + version(&QAppServices::FileDescription) + u"\n";
        header += u"Copyright:    " + version(&QAppServices::LegalCopyright) + u"\n";
        header += u"Other version information\n";
        header += u"  Comments:                  " + version(&QAppServices::Comments) + u"\n";
        header += u"  Company Name:              " + version(&QAppServices::CompanyName) + u"\n";
        header += u"  Internal Name:             " + version(&QAppServices::InternalName) + u"\n";
        header +=
            u"  Legal Trademarks:          " + version(&QAppServices::LegalTrademarks) + u"\n";
        header +=
            u"  Original Filename:         " + version(&QAppServices::OriginalFilename) + u"\n";
        header += u"  Private Build Description: " + version(&QAppServices::PrivateBuild) + u"\n";
        header += u"  Product Name:              " + version(&QAppServices::ProductName) + u"\n";
        header += u"  S)pecial Build Description: " + version(&QAppServices::SpecialBuild) + u"\n";
    }
    if (fileWasEmpty) {
        const CString dashes = CString(u'-', 56) + u"\n";
        header += dashes;
        header += u"Please turn on 'Word Wrap' from the 'Format' menu\n";
        header += u"To print, select 'Print' from the 'File' menu\n";
        header += dashes;
        header += u"\n";
    }
    return header;
}

bool QErrorLog::WriteToFile(const CString& text) {
    const std::string bytes = text.ToUtf8();
    try {
        m_logFile.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
        return true;
    } catch (const CFileException&) {
        m_logFile.Abort();
        m_bWritten = false;
        return false;
    }
}

void QErrorLog::Display(QErrorType* type, const CString& message) {
    QReentrancyWriter writer(m_pendingCounter, "QErrorLog::Display");
    const int count = GetSize();
    const TimeStamp now = std::chrono::system_clock::now();
    if (count < c_maxPendingMessages) {
        Register(type);
        if (!IsPending(type, message))
            m_pending.Add(MessageRecord{now, type, message});
        if (g_bServerErrors)
            DisplayPendingMessages(true);
    } else if (count == c_maxPendingMessages) {
        static const QTString overflowType(u"Error log overflow", kMessageBoxContext);
        static const QTString overflowText(u"Exceeded maximum number of error messages in log",
                                           kMessageBoxContext);
        m_pending.Add(MessageRecord{now, Register(overflowType), overflowText});
    }
}

bool QErrorLog::IsPending(const QErrorType* type, const CString& message) const {
    for (const MessageRecord& record : m_pending) {
        if (record.m_pType == type && record.m_message == message)
            return true;
    }
    return false;
}

void QErrorLog::DisplayPendingMessages(bool ask) {
    static QReentrancyCounter c_showing;
    QReentrancyWriter writer(c_showing, "QErrorLog::DisplayPendingMessages");
    if (writer.IsReentered() || GetSize() == 0)
        return;

    if (GetSize() == 1) {
        DisplaySingleMessage(0);
    } else {
        static const QTString question(
            u"Several errors have occurred.\nDo you want to see them now?", kMessageBoxContext);
        if (ask && UIServices().MessageBox(question, ApplicationNameOrDefault(),
                                           MB_YESNO | MB_ICONQUESTION) != IDYES)
            return;
        std::vector<CPendingMessage> messages;
        for (const MessageRecord& record : m_pending)
            messages.push_back(CPendingMessage{ClockText(LocalTime(record.m_time)),
                                               record.m_pType->Description(), record.m_message});
        UIServices().ShowPendingMessages(messages);
    }
    m_pending.RemoveAll();
    UIServices().RefreshErrorButtons();
}

void QErrorLog::DisplaySingleMessage(int index) {
    const MessageRecord record = m_pending[index];
    if (AppServices().IsClosing()) {
        UIServices().MessageBox(record.m_message, ApplicationNameOrDefault(), MB_OK | MB_ICONSTOP);
        return;
    }
    static const QTString offer(u"Change error reporting options?", kMessageBoxContext);
    const CString text = record.m_message + u"\n\n" + CString(offer);
    const CString caption = JoinNonEmpty({ApplicationNameOrDefault(), record.m_pType->Description(),
                                          ClockText(LocalTime(record.m_time))},
                                         u" - ");
    if (UIServices().MessageBox(text, caption, MB_YESNO | MB_ICONSTOP | MB_DEFBUTTON2) == IDYES)
        Customise();
}

void QErrorLog::DiscardPendingMessages() {
    m_pending.RemoveAll();
    UIServices().RefreshErrorButtons();
}

void QErrorLog::CloseLogFile() {
    if (!m_bOpen)
        return;
    DisplayPendingMessages(false);
    if (m_bWritten && AppServices().IsApplication() && !m_bLogOnly) {
        static const QTString offer(
            u"An error log has been created.  Do you want to view or print it now?",
            kMessageBoxContext);
        if (UIServices().MessageBox(offer, ApplicationNameOrDefault(),
                                    MB_YESNO | MB_ICONQUESTION) == IDYES)
            DisplayLogfile();
    }
    m_logFile.Abort();
    m_bOpen = false;
    m_bWritten = false;
}

void QErrorLog::DisplayLogfile() {
    UIServices().OpenFile(FilenameFullPath());
}

void QErrorLog::Customise() {
    CCheckList displayFlags;
    CCheckList logFlags;
    FillWithDisplayFlags(displayFlags);
    FillWithLogFlags(logFlags);
    if (!UIServices().Customise(displayFlags, logFlags, [this] { DisplayLogfile(); }))
        return;
    UpdateDisplayFlags(displayFlags);
    UpdateLogFlags(logFlags);
}

void QErrorLog::FillWithDisplayFlags(CCheckList& list) const {
    list.clear();
    for (const QErrorType* type : m_types)
        list.push_back(CCheckListItem{type->Description(), type->IsDisplay()});
}

void QErrorLog::FillWithLogFlags(CCheckList& list) const {
    list.clear();
    for (const QErrorType* type : m_types)
        list.push_back(CCheckListItem{type->Description(), type->IsLog()});
}

void QErrorLog::UpdateDisplayFlags(const CCheckList& list) {
    CheckListLength(list, "QErrorLog::UpdateDisplayFlags");
    for (int i = 0; i < m_types.GetCount(); ++i)
        m_types[i]->SetIsDisplay(list[static_cast<std::size_t>(i)].checked);
}

void QErrorLog::UpdateLogFlags(const CCheckList& list) {
    CheckListLength(list, "QErrorLog::UpdateLogFlags");
    for (int i = 0; i < m_types.GetCount(); ++i)
        m_types[i]->SetIsLog(list[static_cast<std::size_t>(i)].checked);
}

void QErrorLog::CheckListLength(const CCheckList& list, const char* operation) const {
    if (list.size() != static_cast<std::size_t>(m_types.GetCount()))
        ThrowInvalidArgument(std::string(operation) + ": " + std::to_string(list.size()) +
                             " rows for " + std::to_string(m_types.GetCount()) + " types");
}

bool QErrorLog::TheLogHasPendingMessages() {
    return TheErrorLog().GetSize() > 0;
}

void QErrorLog::DisplayThePendingMessages(bool ask) {
    TheErrorLog().DisplayPendingMessages(ask);
}

void QErrorLog::DiscardThePendingMessages() {
    TheErrorLog().DiscardPendingMessages();
}

QErrorLog& TheErrorLog() {
    static QErrorLog log(CString(), true);
    return log;
}

// --- Reporting functions ---------------------------------------------------------------------

int QMessageBoxOrLog(const CString& message, const CString& heading, bool alreadyTranslated) {
    const CString text = alreadyTranslated ? message : Translated(message);
    const CString title = alreadyTranslated ? heading : Translated(heading);
    const int result = TheErrorLog().Register(title)->DisplayOrLog(text);
    UIServices().RefreshErrorButtons();
    return result;
}

int QMessageBoxOrLog(const CString& message, unsigned) {
    return QMessageBoxOrLog(message, u"Error");
}

int QMessageBoxOrLogUnlessNoEvalReportErrors(const CString& message, const CString& heading,
                                             bool alreadyTranslated) {
    if (NoEvalReportErrors())
        return 0;
    return QMessageBoxOrLog(message, heading, alreadyTranslated);
}

void SetNoEvalReportErrors(bool noReports) {
    g_bNoEvalReportErrors.store(noReports, std::memory_order_relaxed);
}

bool NoEvalReportErrors() {
    return g_bNoEvalReportErrors.load(std::memory_order_relaxed);
}

int QMessageBoxExceptServer(const CString& function, const CString& prompt, unsigned flags) {
    if (!AnswersWithoutAsking())
        return UIServices().MessageBox(prompt, ApplicationNameOrDefault(), flags);
    LogAsServer(CString::Formatted(Translated(u"Ignoring %s: %s", u"Message box (function,prompt)"),
                                   function, prompt));
    return DefaultButtonAnswer(flags);
}

int QMessageBoxYesNoExceptServer(const CString& function, const CString& prompt, int serverAnswer,
                                 unsigned flags) {
    if (!AnswersWithoutAsking())
        return UIServices().MessageBox(prompt, ApplicationNameOrDefault(), flags);
    LogAsServer(CString::Formatted(Translated(u"Ignoring %s: %s", u"Message box (function,prompt)"),
                                   function, prompt));
    return serverAnswer;
}

int QMessageBoxYesNoAlwaysCancel(const CString& prompt, int serverAnswer, unsigned flags) {
    if (!AnswersWithoutAsking())
        return UIServices().MessageBox(prompt, ApplicationNameOrDefault(), flags);
    LogAsServer(CString::Formatted(
        Translated(u"Ignoring: %s [returning %s]", u"Message box (prompt,return)"), prompt,
        ServerAnswerText(serverAnswer)));
    return serverAnswer;
}

CString ErrorMessage(const std::exception& exception) {
    constexpr int kBufferSize = 512;
    return CString::FromUtf8(exception.what()).Left(kBufferSize - 1);
}

// --- Floating point --------------------------------------------------------------------------

CString FPExceptionMessage() {
    const unsigned status = ClearFPStatus();
    CString message;
    for (const FPStatusText& entry : c_fpStatusTexts) {
        if (status & entry.bit)
            message += u", " + Translated(entry.text);
    }
    return message.IsEmpty() ? message : message.Mid(2);
}

bool GetFPExceptions() {
    return (GetFPExceptionsControlWordBits() & FP_EXCEPTION_BITS) == 0;
}

void SetFPExceptions(bool enable) {
    ClearFPStatus();
    SetFPExceptionsControlWordBits(enable ? 0 : FP_EXCEPTION_BITS);
    ClearFPStatus();
}

bool GetFPExceptionsSimple() {
    return (GetFPExceptionsControlWordBits() & FP_SIMPLE_EXCEPTION_BITS) == 0;
}

void SetFPExceptionsSimple(bool enable) {
    ClearFPStatus();
    SetFPExceptionsControlWordBits(enable ? FP_EXCEPTION_BITS & ~FP_SIMPLE_EXCEPTION_BITS
                                          : FP_EXCEPTION_BITS);
    ClearFPStatus();
}

unsigned GetFPExceptionsControlWordBits() {
    return g_fpControlWordBits.load();
}

void SetFPExceptionsControlWordBits(unsigned bits) {
    g_fpControlWordBits.store(bits & FP_EXCEPTION_BITS);
}

namespace {

void RestoreFPControlWord(unsigned bits) {
    ClearFPStatus();
    SetFPExceptionsControlWordBits(bits);
    ClearFPStatus();
}

} // namespace

QFPExceptions::QFPExceptions(bool enable) : m_savedBits(GetFPExceptionsControlWordBits()) {
    SetFPExceptions(enable);
}

QFPExceptions::~QFPExceptions() {
    RestoreFPControlWord(m_savedBits);
}

QFPExceptionsSimple::QFPExceptionsSimple(bool enable)
    : m_savedBits(GetFPExceptionsControlWordBits()) {
    SetFPExceptionsSimple(enable);
}

QFPExceptionsSimple::~QFPExceptionsSimple() {
    RestoreFPControlWord(m_savedBits);
}

// --- ExceptionDescr --------------------------------------------------------------------------

ExceptionDescr::ExceptionDescr(const char* file, int line)
    : CException(std::string()), m_file(file ? file : ""), m_line(line) {}

ExceptionDescr::ExceptionDescr(const char* file, int line, const CString& description)
    : CException(description.ToUtf8()), m_file(file ? file : ""), m_line(line),
      m_description(description), m_bHasDescription(true) {}

ExceptionDescr::ExceptionDescr(const char* file, int line, long code)
    : CException(std::string()), m_file(file ? file : ""), m_line(line), m_code(code),
      m_bHasCode(true) {}

ExceptionDescr::ExceptionDescr(const char* file, int line, const CString& description, long code)
    : CException(description.ToUtf8()), m_file(file ? file : ""), m_line(line),
      m_description(description), m_code(code), m_bHasDescription(true), m_bHasCode(true) {}

void WriteThrowLocation(const char* file, int line) {
    OutputDebugText(CString::Formatted(u"==> Throw at %.256hs %d\n", file ? file : "", line));
}

} // namespace keel
