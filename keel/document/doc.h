#pragma once

#include "keel/document/docproperties.h"
#include "keel/document/filehandlerdoc.h"
#include "keel/document/summaryinformation.h"
#include "keel/platform/archive.h"
#include "keel/platform/compoundstorage.h"
#include "keel/platform/cstring.h"
#include "keel/platform/event.h"
#include "keel/platform/object.h"
#include "keel/platform/reentrancy.h"

#include <exception>
#include <functional>
#include <memory>
#include <vector>

namespace keel {

class QExportable;

// The base of an application's documents. Its data is a list of items, stored in the document's
// "Contents" stream as a small header (the magic 0xBABA and the schema the stream was written
// with), the count of items that are not blank, and then each of those items with its class.
// Reading rules on versions: a stream newer than this release writes, or one as old as the newest
// version no longer supported (QSchema), is refused with a message; a stream that breaks in the
// middle of its items may be kept in part if the person says so.
//
// In its compound file the document keeps, beside "Contents", the page images in "FileHandlers"
// and the summary properties in their own property set stream.
class QDoc : public QFileHandlerDoc {
public:
    using ItemList = std::vector<std::unique_ptr<CDocItem>>;

    static constexpr std::uint16_t c_magic = 0xBABA;
    static constexpr const char16_t* c_contentsStreamName = u"Contents";

    QDoc();
    ~QDoc() override;

    // The document of the active view. The application sets it whenever a view becomes active,
    // and clears it when that document closes.
    static QDoc* TheActiveDocument();
    static void SetActiveDocument(QDoc* document);

    // The file of the document; empty until it has one. The fallback path names the document in
    // texts while it has none.
    const CString& GetPathName() const { return m_strPathName; }
    void SetPathName(const CString& path) { m_strPathName = path; }
    const CString& GetFallbackPath() const { return m_fallbackPath; }
    void SetFallbackPath(const CString& path) { m_fallbackPath = path; }
    // The path, or else the fallback path, cut to its file name without the extension.
    CString ShortName() const;

    // The name the document goes by while it has no path: a save without a name starts from it.
    const CString& GetTitle() const { return m_strTitle; }
    void SetTitle(const CString& title) { m_strTitle = title; }
    // A document embedded in another takes the name it is saved under as its path, copy or not.
    bool IsEmbedded() const { return m_bEmbedded; }
    void SetEmbedded(bool embedded) { m_bEmbedded = embedded; }

    // The items, in the order they are stored.
    const ItemList& Items() const { return m_items; }
    int GetItemCount() const { return static_cast<int>(m_items.size()); }
    CDocItem* AddItem(std::unique_ptr<CDocItem> item);
    // Hands the item back to the caller; nullptr when it is not in this document.
    std::unique_ptr<CDocItem> RemoveItem(const CDocItem* item);
    void DeleteAllItems() { m_items.clear(); }

    // Items in the stream being read or written, and those still to come.
    int ItemsTotal() const { return m_nItemsTotal; }
    int ItemsToLoad() const { return m_nItemsToLoad; }

    // The schema of the stream last read; -1 until one is read.
    int VersionLoaded() const { return m_versionLoaded; }
    void SetVersionLoaded(int version) { m_versionLoaded = version; }

    // Signalled from another thread, it stops a load at the next boundary between items, with the
    // items read so far kept. The load resets it when it ends.
    CEvent& AbortEvent() { return m_abortEvent; }
    bool IsRunningThread() const { return m_bRunningThread; }
    void SetRunningThread(bool running) { m_bRunningThread = running; }

    void EnableViewAndItemUpdates(bool enable) { m_bUpdatesEnabled = enable; }
    bool AreViewAndItemUpdatesEnabled() const { return m_bUpdatesEnabled; }

    // Turns view and item updates off for its life and puts the former setting back at its end.
    class DisableViewAndItemUpdates {
    public:
        explicit DisableViewAndItemUpdates(QDoc* document);
        ~DisableViewAndItemUpdates();
        DisableViewAndItemUpdates(const DisableViewAndItemUpdates&) = delete;
        DisableViewAndItemUpdates& operator=(const DisableViewAndItemUpdates&) = delete;

    private:
        QDoc* m_document;
        bool m_wasEnabled;
    };

    // Writes or reads the "Contents" stream. A loading archive adds the items it reads to the
    // list. Progress is shown only for the outermost document being serialised, and with trace
    // bit 0x2000 each step is traced.
    virtual void Serialize(CArchive& archive);
    // Storing writes the magic and the default schema and sets the archive's schema to it;
    // loading checks the magic (a wrong one fails as generic) and puts the schema read into the
    // archive.
    void SerializeHeader(CArchive& archive) override;

    // The base's streams, then the items from "Contents". A missing "Contents" is a
    // fileNotFound CFileException.
    void LoadFromStorage(CStorage& root) override;
    void SaveToStorage(CStorage& root) override { SaveToStorage(root, nullptr); }
    // The base's streams and the summary properties, then "Contents" written by `object` (the
    // document itself when null), committed. A "Contents" that cannot be created because
    // something is not found is a badSchema CArchiveException.
    void SaveToStorage(CStorage& root, CObject* object);

    // The whole document to or from the compound file at `path`. The file is written once, by
    // one commit, after everything was written in memory: a save that fails leaves it as it
    // was. Failures are thrown as CFileException or CArchiveException. A save dates the summary
    // (its create date at the first save, its last-save date and edit time at each); a load
    // starts the count of the edit time, and gives a file without a readable summary an empty
    // one.
    void SaveDocument(const CString& path);
    void LoadDocument(const CString& path);

    // Saves under `name`; `replace` makes it the document's path (Save As), otherwise a copy is
    // written and the path stays. Without a name, one is asked for through the host's file
    // dialog, starting from SuggestedSaveName; no answer saves nothing. A relative name is taken
    // from the current folder. Folders missing on the way to the file are made, the ancillary
    // files follow the document to a new name, and an embedded document takes the name as its
    // path. False when nothing was saved; a failure is reported through ReportSaveLoadException.
    virtual bool DoSave(const CString& name, bool replace = true);
    // The name a save asks with: the path, or for a document without one that is saved in its
    // place, the title up to its first character of " #%;/\" with the extension of the filter
    // list that ExtensionNumberToUse picks.
    CString SuggestedSaveName(bool replace);
    // Writes the file through SaveDocument. False when that failed, after reporting why.
    virtual bool OnSaveDocument(const CString& path);
    // Save and Save As, run in the application's folder of the last open or save, which then
    // becomes the folder of the document's path. Save gives OnFileSaveAction the first say and
    // otherwise saves under the path, asking for a name when there is none; Save As saves under
    // `name`, asked for when empty. False when nothing was saved.
    bool OnFileSave();
    bool OnFileSaveAs(const CString& name = CString());

    QSummaryInformationPropertySet& SummaryInformation() { return m_summary; }
    const QSummaryInformationPropertySet& SummaryInformation() const { return m_summary; }

    // The answers kept with the document; nullptr while it keeps none.
    const QProperties* GetDocProperties() const;
    // Replaces the answers kept with the document by a copy of `properties`.
    void SetDocProperties(const QProperties& properties);

    // Hooks of the application, with what a document without reports, views or ancillary files
    // answers.
    virtual CString GetLastMessage() const { return CString(); }
    virtual void InvalidateAllViews() {}
    virtual void InvalidateAllGLViews() {}
    // Lets the person choose reports to produce from `reports`; false when none was chosen.
    virtual bool PromptForReports(std::vector<CString>& /*reports*/) { return false; }

    // --- Reports ---------------------------------------------------------------------------
    //
    // A report is produced by the kind of its file, which its extension tells, in any case:
    // Crystal reports (".rpt", and ".rtx" for one kept as text), RDL reports (".rdl", ".rdlc")
    // run by the external viewer, and XML reports (".xml", and ".xmlbatch" for a batch) that
    // are the document's own export.
    static bool IsCrystalReport(const CString& path);
    static bool IsRDLReport(const CString& path);
    static bool IsXMLReport(const CString& path);
    static bool IsXMLBatchReport(const CString& path);
    // The extensions of a kind, ';' between them; ReportFileExts has those of every kind.
    static CString CrystalReportFileExts();
    static CString RDLReportFileExts();
    static CString XMLReportFileExts();
    static CString ReportFileExts();

    // The trace bit of the viewer's command line, and the option that names the viewer: a path,
    // taken from the program folder when relative.
    static constexpr unsigned c_reportTraceBit = 0x8;
    static constexpr const char16_t* c_reportViewerSection = u"Options";
    static constexpr const char16_t* c_reportViewerKey = u"RdlViewer";
    static constexpr const char16_t* c_reportViewerDefault = u"RdlViewer";
    // The viewer program that the option names, whether or not it is there.
    static CString ReportViewerPath();

    // Starts the report engine's job on a report that is not RDL or XML. There is no engine
    // here: it reports so and fails; an application with one overrides this.
    virtual bool OpenReportJob(const CString& reportPath);
    // The comments of a report: of the summary properties of a report that is a compound file,
    // of the description of an RDL report; empty for any other, or one that cannot be read.
    virtual CString GetReportSummaryInfoComments(const CString& reportPath);
    // The images string of the report, with its filter and parameter names (QReportMarkers). A
    // Crystal report is read as text unless it is a compound file, whose summary comments are
    // read instead. A report that cannot be read is reported, and everything comes back empty.
    virtual CString GetReportImagesFilterAndParamsStrings(const CString& reportPath,
                                                          CString& filterOut, CString& paramsOut);
    // Produces the report on screen, or `copies` times on the printer. An XML report is the
    // document's export (GetReportExportable) written to the report's path and then opened, or
    // printed, by the desktop; a batch is written only. An RDL report is started in the viewer
    // (ReportViewerPath) with the report, the report database, the images and filter strings,
    // and "-p" with the parameters that the document supplies as Name=value. Other reports go
    // to OpenReportJob. Each failure is reported and gives false.
    virtual bool ProduceReport(const CString& reportPath, bool toPrinter, int copies);
    // The database that the document writes for its reports: by default the document's path,
    // or its fallback path, with the extension ".mdb"; empty without either.
    virtual CString GetReportDatabasePath() const;
    // The value of a report parameter that the document supplies: "UserName" (the login name),
    // "DocumentPath" and "DocumentTitle" (the title, or the short name without one). False for
    // any other name, which the report then fills itself.
    virtual bool GetReportParameterValue(const CString& name, CString& value) const;
    // Writes the pictures that the images string of an RDL report asks for into the report
    // database (QReportPictures), before the viewer starts; false stops the report, after
    // reporting why. The pictures belong to the application: by default there are none.
    virtual bool WriteReportImages(const CString& /*reportPath*/, const CString& /*images*/) {
        return true;
    }
    // What an XML report exports; none by default.
    virtual const QExportable* GetReportExportable() const { return nullptr; }
    // The failure of the latest reading of a report's markers; empty when it was read.
    const CString& GetLastReportReadError() const { return m_lastReportReadError; }

    virtual void SetCrystalFormulas() {}
    virtual bool AllowPrintControls() { return true; }
    // Files that go with the document (images, databases) follow it to a new path.
    virtual void CopyRenameAncillaryFiles(const CString& /*oldPath*/, const CString& /*newPath*/) {}
    // The extensions of the document's kind, ';' between them (".kdoc;.kbak"): the filter of
    // the file dialog. None by default.
    virtual CString GetFilterExtensions() const { return CString(); }
    // Which extension of the filter list a new name gets.
    virtual int ExtensionNumberToUse() { return 0; }
    // How an object of the document names itself in traces: its class name by default.
    virtual CString GetWhoAmI(const CObject* object) const;
    // The application's own save; false lets the framework's save run.
    virtual bool OnFileSaveAction() { return false; }
    virtual void OnFileLoadAction() {}
    virtual void NotifyDocChanged() {}

    // What ReportSaveLoadException is told of a failed save.
    static constexpr int c_failedToSaveDocument = 1;
    // Reports a failed save or load: the text of the exception, or "Unknown error during
    // ReportSaveLoadException" without one. A bad schema was reported where it was found and is
    // not reported again.
    virtual void ReportSaveLoadException(const CString& name, const std::exception* failure,
                                         bool saving, int defaultId);

protected:
    // Writes the items that are not blank, preceded by their count.
    virtual void SerializeOut(CArchive& archive, int depth, const CString& title);
    // Reads the count and the items; see Serialize.
    virtual void SerializeIn(CArchive& archive, int depth, const CString& title,
                             const CString& suffix);

    int m_nItemsTotal = 0;
    int m_nItemsToLoad = 0;
    QReentrancyCounter m_saveCounter;
    QReentrancyCounter m_loadCounter;

private:
    bool ProduceXMLReport(const CString& reportPath, bool toPrinter, int copies);
    bool ProduceRDLReport(const CString& reportPath, bool toPrinter, int copies);
    // The viewer's arguments for an RDL report; false when the report could not be read.
    bool RDLViewerArguments(const CString& reportPath, std::vector<CString>& arguments);

    // Shows why the stream cannot be read and fails as a bad schema.
    [[noreturn]] void RefuseVersion(const CString& message);
    // Asks whether to keep the items read before `failure`; true to keep them.
    bool KeepPartialDocument(const std::exception& failure);

    // The application's folder of the last open or save, entered for `save`, and made the
    // folder of the path afterwards.
    bool InLastOpenSaveDir(const std::function<bool()>& save);
    // Asks the host's file dialog for the name of a save; false when none was given.
    bool AskForSaveName(bool replace, CString& name);

    CString m_strPathName;
    CString m_fallbackPath;
    CString m_strTitle;
    ItemList m_items;
    QSummaryInformationPropertySet m_summary;
    int m_versionLoaded = -1;
    CEvent m_abortEvent;
    bool m_bRunningThread = false;
    bool m_bUpdatesEnabled = true;
    bool m_bEmbedded = false;
    CString m_lastReportReadError;
};

// Reports a numeric field of an item that failed its range check while `archive` read or wrote
// it, under the heading "Corruption": as a file from a newer release when the archive's schema is
// newer than this release writes, and otherwise as a bad `what` in the file. The value is not
// refused by this. The application object installs it as the reporter that the quantities'
// QMessageBoxOrLog_LimitDoubleFailed calls.
void ReportLimitDoubleFailed(CArchive& archive, const CString& what);

} // namespace keel
