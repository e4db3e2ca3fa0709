#include "keel/exchange/importexport.h"

#include "keel/document/errorlog.h"
#include "keel/exchange/exportformatascii.h"
#include "keel/exchange/exportformatxml.h"
#include "keel/exchange/importformatascii.h"
#include "keel/exchange/importformatxml.h"
#include "keel/platform/stdiofileex.h"
#include "keel/platform/uiservices.h"
#include "keel/system/fsfile.h"
#include "keel/system/pathop.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

namespace keel {

QExportType QExportable::c_LastExportType = QExportTypeASCII;

namespace {

bool IsAsciiPath(const CString& path) {
    return QPathOp::MatchDotExt(path, u".tab");
}

bool IsXMLPath(const CString& path) {
    return QPathOp::MatchDotExt(path, u".xml") || QPathOp::MatchDotExt(path, u".viqx");
}

void ReportUnrecognizedExtension(const CString& path, const CString& title) {
    QMessageBoxOrLog(CString::Formatted(u"Unrecognized file extension: %s", QPathOp::DotExt(path)),
                     title);
}

void ReportCannotWrite(const CString& path, const CString& reason) {
    if (reason.IsEmpty())
        QMessageBoxOrLog(CString::Formatted(u"Cannot write export data to '%s'", path), u"Export");
    else
        QMessageBoxOrLog(
            CString::Formatted(u"Cannot write export data to '%s'\nReason given is: %s", path,
                               reason),
            u"Export");
}

CString ReasonOf(const CFileException& error) {
    return ErrorMessage(error);
}

std::vector<std::unique_ptr<QExportEditorInstance>>& EditorInstances() {
    static std::vector<std::unique_ptr<QExportEditorInstance>> instances;
    return instances;
}

// The time the file was last written, in the file system's own ticks; 0 when it is gone.
long long LastWriteTime(const CString& path) {
    std::error_code error;
    const auto time = std::filesystem::last_write_time(path.ToUtf8(), error);
    return error ? 0 : static_cast<long long>(time.time_since_epoch().count());
}

// What became of an export written to disk.
struct WriteOutcome {
    bool replaced = false; // the file now holds the export
    bool complete = false; // the format wrote every part of the object
    CString reason;        // why the file could not be written; may be empty
};

// The export is written beside the file it replaces and renamed over it once all of it is on
// disk, so that a failed or interrupted export leaves the old file as it was.
WriteOutcome WriteThroughTemporaryFile(QExportFormat& format, const CString& path) {
    WriteOutcome outcome;
    const CString target = QFSFile::FollowLinks(path);
    const CString folder = QPathOp::PathWithoutFileSpec(target);
    const CString temporary = QFSFile::GenerateTempPath(folder.IsEmpty() ? CString(u".") : folder);
    CStdioFileEx file;
    file.SetCodePage(CStdioFileEx::c_codePageUtf8);
    file.SetWriteBOM(false);
    CFileException error;
    if (!file.Open(temporary,
                   CFile::modeCreate | CFile::modeWrite | CFile::typeText |
                       CStdioFileEx::modeUseCodePage,
                   &error)) {
        outcome.reason = ReasonOf(error);
        return outcome;
    }
    unsigned long long length = 0;
    bool closed = false;
    try {
        outcome.complete = format.WriteToFile(file);
        file.Flush();
        length = file.GetPosition();
        file.Close();
        closed = true;
    } catch (const CFileException& writeError) {
        file.Abort();
        outcome.reason = ReasonOf(writeError);
    }
    std::error_code diskError;
    if (closed &&
        (std::filesystem::file_size(temporary.ToUtf8(), diskError) != length || diskError))
        outcome.reason = u"what was written is not all on disk";
    else if (closed)
        outcome.replaced = QFSFile::ReplaceWithWritten(temporary, target, outcome.reason);
    if (!outcome.replaced)
        std::filesystem::remove(temporary.ToUtf8(), diskError);
    return outcome;
}

std::unique_ptr<QImportFormat> MakeImportFormat(const CString& path, CStdioFileEx& file,
                                                QImportable& importable) {
    if (IsAsciiPath(path))
        return std::make_unique<QImportFormatASCII>(file, importable);
    if (IsXMLPath(path))
        return std::make_unique<QImportFormatXML>(file, importable);
    return nullptr;
}

bool IsImportPathKnown(const CString& path) {
    return IsAsciiPath(path) || IsXMLPath(path);
}

} // namespace

const QNewLevelExportable* QExportable::GetNewLevelExportable() const {
    return nullptr;
}

bool QExportable::ExportData(const CString& path, bool minimal, bool openAfterwards,
                             QSmartPtr<QExportSelection> selection) const {
    std::unique_ptr<QExportFormat> format;
    QExportType type = QExportTypeASCII;
    if (IsAsciiPath(path)) {
        format = std::make_unique<QExportFormatASCII>(*this, minimal, selection);
    } else if (IsXMLPath(path)) {
        format = std::make_unique<QExportFormatXML>(*this, minimal, selection);
        type = QExportTypeXML;
    } else {
        ReportUnrecognizedExtension(path, u"Export");
        return false;
    }
    const WriteOutcome outcome = WriteThroughTemporaryFile(*format, path);
    if (!outcome.replaced) {
        ReportCannotWrite(path, outcome.reason);
        return false;
    }
    c_LastExportType = type;
    if (openAfterwards)
        UIServices().ShellOpenNoWait(path, u"open");
    return outcome.complete;
}

bool QExportable::ExportPrompt(bool minimal, QSmartPtr<QExportSelection> selection) const {
    const CString title = minimal ? u"Export Minimal data to file" : u"Export Full data to file";
    const CString defaultExt = c_LastExportType == QExportTypeXML ? u".xml" : u".tab";
    CString path;
    if (!UIServices().PickExportFile(true, title,
                                     u"ASCII Export (*.tab)|*.tab|XML Export (*.xml)|*.xml||",
                                     defaultExt, path))
        return false;
    return ExportData(path, minimal, false, selection);
}

bool QImportable::SetupNewChildImportable(QNewLevelImportable*, const CString&, const CString&) {
    return true;
}

QNewLevelImportable* QImportable::GetNewLevelImportable() {
    return nullptr;
}

bool QImportable::DeleteContentsPreImport(QSmartPtr<QExportSelection>) {
    return true;
}

bool QImportable::ImportOrMergeFrom(const CString& path, bool merge,
                                    QSmartPtr<QExportSelection> selection) {
    // An unknown kind of file must not empty the object first.
    if (!IsImportPathKnown(path)) {
        ReportUnrecognizedExtension(path, u"Import");
        return false;
    }
    if ((!merge || selection) && !DeleteContentsPreImport(selection)) {
        QMessageBoxOrLog(u"Failed preparation for import - drawing may have changed too much",
                         u"Import");
        return false;
    }
    bool imported = false;
    CStdioFileEx file;
    file.SetCodePage(CStdioFileEx::c_codePageUtf8);
    CFileException error;
    if (!file.Open(path, CFile::modeRead | CFile::typeText | CStdioFileEx::modeUseCodePage,
                   &error)) {
        QMessageBoxOrLog(ReasonOf(error), u"Import");
    } else {
        try {
            imported = MakeImportFormat(path, file, *this)->ImportToImportable();
        } catch (const CFileException& readError) {
            QMessageBoxOrLog(ReasonOf(readError), u"Import");
        }
    }
    QMessageBoxOrLog(imported ? u"Import completed with no errors."
                              : u"Some errors occurred during import. See error log for details.",
                     u"Import");
    return imported;
}

bool QImportable::ImportPrompt() {
    return ImportOrMergePrompt(false, CString());
}

bool QImportable::MergePrompt() {
    return ImportOrMergePrompt(true, CString());
}

bool QImportable::ImportOrMergePrompt(bool merge, const CString& path) {
    CString chosen = path;
    if (chosen.IsEmpty()) {
        const CString title = merge ? u"Merge from Export file" : u"Import from Export file";
        const CString defaultExt =
            QExportable::LastExportType() == QExportTypeXML ? u".xml" : u".tab";
        if (!UIServices().PickExportFile(false, title, u"Export files (*.tab,*.xml)|*.tab;*.xml||",
                                         defaultExt, chosen))
            return false;
    }
    return ImportOrMergeFrom(chosen, merge, nullptr);
}

QImportableExportable::~QImportableExportable() {
    auto& instances = EditorInstances();
    std::erase_if(instances, [this](const std::unique_ptr<QExportEditorInstance>& instance) {
        return instance->Object() == this;
    });
}

bool QImportableExportable::EditUsingExternalEditor(QSmartPtr<QExportSelection> selection) {
    const CString dotExt = c_LastExportType == QExportTypeXML ? u".xml" : u".tab";
    const CString path = QPathOp::ChangeDotExt(QFSFile::GenerateTempPath(CString()), dotExt);
    if (!ExportData(path, false, false, selection))
        return false;
    const long process = UIServices().ShellOpenNoWait(path, u"edit");
    if (process == 0) {
        std::error_code error;
        std::filesystem::remove(path.ToUtf8(), error);
        return false;
    }
    EditorInstances().push_back(
        std::make_unique<QExportEditorInstance>(*this, path, process, selection));
    return true;
}

QExportEditorInstance::QExportEditorInstance(QImportableExportable& object, const CString& path,
                                             long process, QSmartPtr<QExportSelection> selection)
    : m_object(object), m_path(path), m_process(process), m_selection(std::move(selection)),
      m_lastWriteTime(LastWriteTime(path)) {}

QExportEditorInstance::~QExportEditorInstance() {
    std::error_code error;
    std::filesystem::remove(m_path.ToUtf8(), error);
}

bool QExportEditorInstance::WasWrittenSinceLastTime() {
    const long long written = LastWriteTime(m_path);
    if (written == 0 || written == m_lastWriteTime)
        return false;
    m_lastWriteTime = written;
    return true;
}

bool QExportEditorInstance::ProcessUpdates() {
    if (WasWrittenSinceLastTime())
        m_object.ImportOrMergeFrom(m_path, true, m_selection);
    return UIServices().IsProcessRunning(m_process);
}

void ProcessUpdatesFromExternalEditors() {
    auto& instances = EditorInstances();
    const auto find = [&instances](const QExportEditorInstance* instance) {
        return std::find_if(instances.begin(), instances.end(),
                            [instance](const auto& held) { return held.get() == instance; });
    };
    // A merge may show a box that lets the application idle again: work through a copy.
    std::vector<QExportEditorInstance*> current;
    for (const auto& instance : instances)
        current.push_back(instance.get());
    for (QExportEditorInstance* instance : current) {
        if (find(instance) == instances.end() || instance->ProcessUpdates())
            continue;
        const auto ended = find(instance);
        if (ended != instances.end())
            instances.erase(ended);
    }
}

int ExternalEditorCount() {
    return static_cast<int>(EditorInstances().size());
}

} // namespace keel
