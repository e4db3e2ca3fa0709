// The report operations of QDoc.

#include "keel/document/appservices.h"
#include "keel/document/doc.h"
#include "keel/document/errorlog.h"
#include "keel/document/reportmarkers.h"
#include "keel/document/translate.h"
#include "keel/document/usertrace.h"
#include "keel/exchange/importexport.h"
#include "keel/platform/compoundstorage.h"
#include "keel/platform/registry.h"
#include "keel/platform/uiservices.h"
#include "keel/system/folders.h"
#include "keel/system/pathop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace keel {

namespace {

constexpr const char16_t* kReportHeading = u"Report";
constexpr const char16_t* kCrystalExts = u".rpt;.rtx";
constexpr const char16_t* kRDLExts = u".rdl;.rdlc";
constexpr const char16_t* kXMLBatchExts = u".xmlbatch";
constexpr const char16_t* kXMLExts = u".xml;.xmlbatch";
constexpr const char16_t* kReportDatabaseExt = u".mdb";
// The shell's answers from 33 up are starts.
constexpr int kFirstShellStart = 33;
// More copies than a print dialog offers are a mistake, not a print run.
constexpr int kMostReportCopies = 999;
constexpr std::array<unsigned char, 8> kCompoundFileSignature = {0xD0, 0xCF, 0x11, 0xE0,
                                                                 0xA1, 0xB1, 0x1A, 0xE1};

bool HasExtensionAmong(const CString& path, const CString& extensions) {
    int start = 0;
    while (start < extensions.GetLength()) {
        int end = extensions.Find(u';', start);
        if (end < 0)
            end = extensions.GetLength();
        if (QPathOp::MatchDotExt(path, extensions.Mid(start, end - start)))
            return true;
        start = end + 1;
    }
    return false;
}

void ReportFailure(const CString& message) {
    QMessageBoxOrLog(message, TranslateString(kReportHeading, CString(), u"Message box"), true);
}

CString NotFoundMessage(const CString& reportPath) {
    static const QTString notFound(u"The \"%s\" report could not be found.",
                                   u"Message box (reportfile)");
    return CString::Formatted(notFound, reportPath);
}

bool IsRegularFile(const CString& path) {
    struct stat status {};
    return stat(path.ToUtf8().c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool IsProgram(const CString& path) {
    return IsRegularFile(path) && access(path.ToUtf8().c_str(), X_OK) == 0;
}

// The whole file, up to the size a report may have. False with the message of the failure.
bool ReadReportBytes(const CString& reportPath, std::string& bytes, CString& failure) {
    if (!IsRegularFile(reportPath)) {
        failure = NotFoundMessage(reportPath);
        return false;
    }
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(reportPath.ToUtf8(), error);
    if (!error && size > QReportMarkers::c_maxReportBytes) {
        static const QTString tooLarge(u"The \"%s\" report is larger than %d MB and was not read.",
                                       u"Message box (reportfile,megabytes)");
        failure = CString::Formatted(tooLarge, reportPath,
                                     static_cast<int>(QReportMarkers::c_maxReportBytes >> 20));
        return false;
    }
    std::ifstream in(reportPath.ToUtf8(), std::ios::binary);
    const int openError = in.is_open() ? 0 : errno;
    if (in.is_open())
        bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (error || !in.is_open() || in.bad()) {
        static const QTString unreadable(u"The \"%s\" report could not be read: %s",
                                         u"Message box (reportfile,reason)");
        const std::string reason = error       ? error.message()
                                   : openError ? std::strerror(openError)
                                               : "the file cannot be read";
        failure = CString::Formatted(unreadable, reportPath, CString::FromUtf8(reason));
        return false;
    }
    return true;
}

bool StartsAsCompoundFile(const std::string& bytes) {
    return bytes.size() >= kCompoundFileSignature.size() &&
           std::equal(kCompoundFileSignature.begin(), kCompoundFileSignature.end(), bytes.begin(),
                      [](unsigned char expected, char byte) {
                          return expected == static_cast<unsigned char>(byte);
                      });
}

// The command line as a trace shows it: the arguments between blanks, those that are empty or
// hold blanks or quotes in double quotes.
CString CommandLineText(const std::vector<CString>& arguments) {
    CString line;
    for (const CString& argument : arguments) {
        if (!line.IsEmpty())
            line += u" ";
        const bool plain = !argument.IsEmpty() && argument.FindOneOf(u" \t\"") < 0;
        if (plain) {
            line += argument;
            continue;
        }
        CString quoted = argument;
        quoted.Replace(u"\"", u"\\\"");
        line += CString(u"\"") + quoted + u"\"";
    }
    return line;
}

// Starts the file in the desktop's shell: once to show it, or `copies` times (1 to 999) with the
// verb "print". When nothing here prints that file, it is started once to be shown instead.
bool StartInShell(const CString& file, const std::vector<CString>& arguments, bool toPrinter,
                  int copies) {
    int result = 0;
    if (toPrinter) {
        for (int copy = 0; copy < std::clamp(copies, 1, kMostReportCopies); ++copy) {
            result = UIServices().ShellExecuteNoWait(file, arguments, u"print");
            if (result == SE_ERR_NOASSOC) {
                result = UIServices().ShellExecuteNoWait(file, arguments, u"open");
                break;
            }
            if (result < kFirstShellStart)
                break;
        }
    } else {
        result = UIServices().ShellExecuteNoWait(file, arguments, u"open");
    }
    if (result >= kFirstShellStart)
        return true;
    static const QTString cannotStart(u"\"%s\" could not be started for the report (error %d).",
                                      u"Message box (program,error)");
    ReportFailure(CString::Formatted(cannotStart, file, result));
    return false;
}

} // namespace

// --- Kinds of report ----------------------------------------------------------------------

bool QDoc::IsCrystalReport(const CString& path) {
    return HasExtensionAmong(path, kCrystalExts);
}

bool QDoc::IsRDLReport(const CString& path) {
    return HasExtensionAmong(path, kRDLExts);
}

bool QDoc::IsXMLReport(const CString& path) {
    return HasExtensionAmong(path, kXMLExts);
}

bool QDoc::IsXMLBatchReport(const CString& path) {
    return HasExtensionAmong(path, kXMLBatchExts);
}

CString QDoc::CrystalReportFileExts() {
    return kCrystalExts;
}

CString QDoc::RDLReportFileExts() {
    return kRDLExts;
}

CString QDoc::XMLReportFileExts() {
    return kXMLExts;
}

CString QDoc::ReportFileExts() {
    return CrystalReportFileExts() + u";" + RDLReportFileExts() + u";" + XMLReportFileExts();
}

CString QDoc::ReportViewerPath() {
    CString viewer = CRegistry::Current().GetProfileString(c_reportViewerSection, c_reportViewerKey,
                                                           c_reportViewerDefault);
    viewer.Trim();
    if (viewer.IsEmpty() || QPathOp::HasRoot(viewer))
        return viewer;
    return QPathOp::FolderPlusPath(QFolders::ProgramDir(), viewer);
}

// --- Reading reports ----------------------------------------------------------------------

bool QDoc::OpenReportJob(const CString& reportPath) {
    static const QTString noEngine(u"There is no report engine here to produce the \"%s\" report.",
                                   u"Message box (reportfile)");
    ReportFailure(CString::Formatted(noEngine, reportPath));
    return false;
}

CString QDoc::GetReportSummaryInfoComments(const CString& reportPath) {
    std::string bytes;
    CString failure;
    if (!ReadReportBytes(reportPath, bytes, failure))
        return CString();
    if (IsRDLReport(reportPath))
        return ReportDescriptionFromRDL(bytes);
    if (!StartsAsCompoundFile(bytes))
        return CString();
    CFileException error;
    const std::unique_ptr<CStorage> root = CStorage::OpenBytes(
        std::vector<std::uint8_t>(bytes.begin(), bytes.end()), CFile::modeRead, &error);
    QSummaryInformationPropertySet summary;
    if (!root || !summary.ReadFromStorage(*root))
        return CString();
    return summary.GetComments();
}

CString QDoc::GetReportImagesFilterAndParamsStrings(const CString& reportPath, CString& filterOut,
                                                    CString& paramsOut) {
    filterOut.Empty();
    paramsOut.Empty();
    m_lastReportReadError.Empty();
    std::string bytes;
    QReportMarkers markers;
    if (!ReadReportBytes(reportPath, bytes, m_lastReportReadError)) {
        ReportFailure(m_lastReportReadError);
        return CString();
    }
    if (IsRDLReport(reportPath)) {
        CString reason;
        if (!QReportMarkers::FromRDL(bytes, markers, reason)) {
            static const QTString notXML(u"The \"%s\" report could not be read: %s",
                                         u"Message box (reportfile,reason)");
            m_lastReportReadError = CString::Formatted(notXML, reportPath, reason);
            ReportFailure(m_lastReportReadError);
            return CString();
        }
    } else if (StartsAsCompoundFile(bytes)) {
        markers = QReportMarkers::FromText(GetReportSummaryInfoComments(reportPath).ToUtf8());
    } else {
        markers = QReportMarkers::FromText(bytes);
    }
    filterOut = markers.filter;
    paramsOut = markers.params;
    return markers.images;
}

CString QDoc::GetReportDatabasePath() const {
    const CString path = m_strPathName.IsEmpty() ? m_fallbackPath : m_strPathName;
    if (path.IsEmpty())
        return CString();
    return QPathOp::ChangeDotExt(path, kReportDatabaseExt);
}

bool QDoc::GetReportParameterValue(const CString& name, CString& value) const {
    if (name == u"UserName")
        value = AppServices().CurrentUserName();
    else if (name == u"DocumentPath")
        value = m_strPathName;
    else if (name == u"DocumentTitle")
        value = m_strTitle.IsEmpty() ? ShortName() : m_strTitle;
    else
        return false;
    return true;
}

// --- Producing reports --------------------------------------------------------------------

bool QDoc::ProduceReport(const CString& reportPath, bool toPrinter, int copies) {
    if (IsXMLReport(reportPath))
        return ProduceXMLReport(reportPath, toPrinter, copies);
    if (IsRDLReport(reportPath))
        return ProduceRDLReport(reportPath, toPrinter, copies);
    static const QTString opening(u"Opening %s report...", u"Status bar (reportName)");
    UIServices().SetStatusBarText(
        CString::Formatted(opening, QPathOp::FileSpecWithoutDotExt(reportPath)));
    if (!IsRegularFile(reportPath)) {
        ReportFailure(NotFoundMessage(reportPath));
        UIServices().SetStatusBarText(CString());
        return false;
    }
    const bool opened = OpenReportJob(reportPath);
    if (opened)
        SetCrystalFormulas();
    UIServices().SetStatusBarText(CString());
    return opened;
}

bool QDoc::ProduceXMLReport(const CString& reportPath, bool toPrinter, int copies) {
    const QExportable* exportable = GetReportExportable();
    if (!exportable) {
        static const QTString nothing(u"The document has nothing to export to the \"%s\" report.",
                                      u"Message box (reportfile)");
        ReportFailure(CString::Formatted(nothing, reportPath));
        return false;
    }
    const CString exportPath = QPathOp::ChangeDotExt(reportPath, u".xml");
    if (!exportable->ExportData(exportPath, false, false, nullptr))
        return false;
    return IsXMLBatchReport(reportPath) || StartInShell(exportPath, {}, toPrinter, copies);
}

bool QDoc::ProduceRDLReport(const CString& reportPath, bool toPrinter, int copies) {
    const CString viewer = ReportViewerPath();
    if (!IsProgram(viewer)) {
        static const QTString notInstalled(
            u"RDL reporting has not been installed, you need %s copied into your ProgramFolder",
            u"Message box (viewer)");
        const CString name = QPathOp::FileSpec(viewer);
        ReportFailure(CString::Formatted(notInstalled,
                                         name.IsEmpty() ? CString(c_reportViewerDefault) : name));
        return false;
    }
    std::vector<CString> arguments;
    if (!RDLViewerArguments(reportPath, arguments))
        return false;
    if (IsTracing(c_reportTraceBit))
        UserTraceWriteLine(u"QDoc::ProduceReport RDL args: " + CommandLineText(arguments));
    if (!WriteReportImages(reportPath, arguments[2]))
        return false;
    return StartInShell(viewer, arguments, toPrinter, copies);
}

bool QDoc::RDLViewerArguments(const CString& reportPath, std::vector<CString>& arguments) {
    m_lastReportReadError.Empty();
    CString filter;
    CString params;
    const CString images = GetReportImagesFilterAndParamsStrings(reportPath, filter, params);
    if (!m_lastReportReadError.IsEmpty())
        return false;
    // The images string stays third: the pictures are written from it.
    arguments = {reportPath, GetReportDatabasePath(), images, filter};
    std::vector<CString> supplied;
    for (const CString& name : ReportParameterNames(params)) {
        CString value;
        if (GetReportParameterValue(name, value))
            supplied.push_back(name + u"=" + value);
    }
    if (!supplied.empty()) {
        arguments.push_back(u"-p");
        arguments.insert(arguments.end(), supplied.begin(), supplied.end());
    }
    return true;
}

} // namespace keel
