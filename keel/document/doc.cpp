#include "keel/document/doc.h"

#include "keel/document/appservices.h"
#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/document/usertrace.h"
#include "keel/platform/schema.h"
#include "keel/platform/uiservices.h"
#include "keel/system/currentdirectory.h"
#include "keel/system/fsfile.h"
#include "keel/system/pathop.h"

#include <algorithm>
#include <cstdint>

namespace keel {

namespace {

constexpr const char16_t* kMessageBoxContext = u"Message box";
constexpr const char16_t* kLoadingContext = u"Status bar (docTitle, version)";
constexpr const char16_t* kSavingContext = u"Status bar (title)";
// A yes/no question with the question mark and No as the default.
constexpr unsigned kKeepPartialFlags = MB_YESNO | MB_ICONQUESTION | MB_DEFBUTTON2;

constexpr unsigned kCreateFlags = CFile::modeCreate | CFile::shareExclusive | CFile::modeReadWrite;
constexpr unsigned kReadFlags = CFile::shareExclusive | CFile::modeRead;
constexpr unsigned kCommitFlags = CStorage::commitOverwrite | CStorage::commitConsolidate;
constexpr unsigned kArchiveBuffer = 4096;

constexpr const char16_t* kDialogTitleContext = u"Dialog title";

// ".kdoc;.kbak" as the patterns of a file dialog: "*.kdoc;*.kbak".
CString FilterPatterns(const CString& extensions) {
    CString patterns;
    int start = 0;
    while (start <= extensions.GetLength()) {
        int end = extensions.Find(u';', start);
        if (end < 0)
            end = extensions.GetLength();
        const CString extension = extensions.Mid(start, end - start);
        if (!extension.IsEmpty())
            patterns += (patterns.IsEmpty() ? u"*" : u";*") + extension;
        start = end + 1;
    }
    return patterns;
}

QDoc* s_activeDocument = nullptr;
// How many documents are being serialised inside one another; only the outermost shows progress.
int s_serializeDepth = 0;

bool TracingDocuments() {
    return IsTracing(USER_TRACE_DOCUMENTS);
}

template <class... Args>
void Trace(const CString& format, const Args&... args) {
    if (TracingDocuments())
        UserTraceWriteLine(CString::Formatted(format, args...));
}

CString ProductName() {
    const CString product = AppServices().ProductName();
    return product.IsEmpty() ? AppServices().AppName() : product;
}

CString Translated(const CString& text, const char16_t* context = kMessageBoxContext) {
    return TranslateString(text, CString(), context);
}

// A progress display of the outermost document, closed with the text its end calls for.
class DocumentProgress {
public:
    DocumentProgress(int depth, const CString& text, int count) {
        if (depth < 2)
            m_handle = AppServices().ProgressCreate(text, 0, count, false);
    }
    ~DocumentProgress() { Close(CString()); }
    DocumentProgress(const DocumentProgress&) = delete;
    DocumentProgress& operator=(const DocumentProgress&) = delete;

    void Step() {
        if (m_handle >= 0)
            AppServices().ProgressStepIt(m_handle);
    }
    void Close(const CString& text) {
        if (m_handle >= 0)
            AppServices().ProgressDestroy(m_handle, text, false);
        m_handle = -1;
    }

private:
    int m_handle = -1;
};

class SerializeDepth {
public:
    SerializeDepth() : m_depth(++s_serializeDepth) {}
    ~SerializeDepth() { --s_serializeDepth; }
    SerializeDepth(const SerializeDepth&) = delete;
    SerializeDepth& operator=(const SerializeDepth&) = delete;
    int Depth() const { return m_depth; }

private:
    int m_depth;
};

// Puts the document into the archive for the items that need it, and the former one back.
class ArchiveDocument {
public:
    ArchiveDocument(CArchive& archive, QDoc* document)
        : m_archive(archive), m_saved(archive.m_pDocument) {
        archive.m_pDocument = document;
    }
    ~ArchiveDocument() { m_archive.m_pDocument = m_saved; }
    ArchiveDocument(const ArchiveDocument&) = delete;
    ArchiveDocument& operator=(const ArchiveDocument&) = delete;

private:
    CArchive& m_archive;
    void* m_saved;
};

// Copies every element of `from` into `to`, nested storages with all they hold.
void CopyStorage(CStorage& from, CStorage& to) {
    to.SetClassID(from.GetClassID());
    for (const CStorageElement& element : from.EnumElements()) {
        CFileException failure;
        if (element.m_type == CStorageElement::typeStorage) {
            std::unique_ptr<CStorage> source =
                from.OpenStorage(element.m_strName, kReadFlags, &failure);
            std::unique_ptr<CStorage> target =
                source ? to.CreateStorage(element.m_strName, kCreateFlags, &failure) : nullptr;
            if (!target)
                throw failure;
            CopyStorage(*source, *target);
            continue;
        }
        CStreamFile source;
        CStreamFile target;
        if (!source.OpenStream(from, element.m_strName, kReadFlags, &failure) ||
            !target.CreateStream(to, element.m_strName, kCreateFlags, &failure))
            throw failure;
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(source.GetLength()));
        if (!bytes.empty()) {
            source.Read(bytes.data(), static_cast<unsigned>(bytes.size()));
            target.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
        }
    }
}

} // namespace

QDoc::QDoc() = default;

QDoc::~QDoc() {
    if (s_activeDocument == this)
        s_activeDocument = nullptr;
}

QDoc* QDoc::TheActiveDocument() {
    return s_activeDocument;
}

void QDoc::SetActiveDocument(QDoc* document) {
    s_activeDocument = document;
}

CString QDoc::ShortName() const {
    return QPathOp::FileSpecWithoutDotExt(m_strPathName.IsEmpty() ? m_fallbackPath : m_strPathName);
}

CDocItem* QDoc::AddItem(std::unique_ptr<CDocItem> item) {
    if (item == nullptr)
        ThrowInvalidArgument("QDoc::AddItem: no item");
    m_items.push_back(std::move(item));
    return m_items.back().get();
}

std::unique_ptr<CDocItem> QDoc::RemoveItem(const CDocItem* item) {
    const auto found = std::find_if(m_items.begin(), m_items.end(),
                                    [item](const auto& held) { return held.get() == item; });
    if (found == m_items.end())
        return nullptr;
    std::unique_ptr<CDocItem> removed = std::move(*found);
    m_items.erase(found);
    return removed;
}

QDoc::DisableViewAndItemUpdates::DisableViewAndItemUpdates(QDoc* document)
    : m_document(document), m_wasEnabled(document->AreViewAndItemUpdatesEnabled()) {
    m_document->EnableViewAndItemUpdates(false);
}

QDoc::DisableViewAndItemUpdates::~DisableViewAndItemUpdates() {
    m_document->EnableViewAndItemUpdates(m_wasEnabled);
}

CString QDoc::GetWhoAmI(const CObject* object) const {
    return object == nullptr ? CString(u"NULL")
                             : CString::FromUtf8(object->GetRuntimeClass()->m_lpszClassName);
}

void QDoc::Serialize(CArchive& archive) {
    const CString title = ShortName();
    const SerializeDepth depth;
    Trace(u"QDoc::Serialize #%d %s %s", depth.Depth(),
          archive.IsLoading() ? u"loading" : u"storing", m_strPathName);
    const CWaitCursor wait;
    const ArchiveDocument document(archive, this);

    SerializeHeader(archive);
    const int version = QSchema::Version(archive);
    SetVersionLoaded(version);
    if (archive.IsLoading() && version > QSchema::DefaultVersion()) {
        static const QTString newer(
            u"This document can only be opened in a more recent release of %s.\n\n%s data has a "
            u"v%i schema data,\nand this release can only open v%i or older.\n\nHint: If you "
            u"must open in this version, try Export Ascii Minimal\nfrom later release, then make "
            u"a new empty drawing in this older\nversion and Merge Ascii",
            u"Message box (productName,docTitle,docVersion,appVersion)");
        RefuseVersion(
            CString::Formatted(newer, ProductName(), title, version, QSchema::DefaultVersion()));
    }
    if (archive.IsLoading() && version <= QSchema::UnsupportedVersion()) {
        static const QTString older(
            u"This document is a schema ver %i drawing which is too old to be\nopened in the "
            u"current release of %s.\n\nPlease open it in an older (intermediate) version and "
            u"resave, thentry again.\n\nContact support for further assistance.",
            u"Message box (version,productName)");
        RefuseVersion(CString::Formatted(older, version, ProductName()));
    }
    const CString suffix = version == QSchema::DefaultVersion()
                               ? CString()
                               : CString::Formatted(u"  [old schema ver=%d]", version);
    if (archive.IsLoading())
        SerializeIn(archive, depth.Depth(), title, suffix);
    else
        SerializeOut(archive, depth.Depth(), title);
}

void QDoc::SerializeHeader(CArchive& archive) {
    if (archive.IsStoring()) {
        archive << c_magic << static_cast<std::int32_t>(QSchema::DefaultVersion());
        QSchema::SetSchemaDefault(archive);
        return;
    }
    std::uint16_t magic = 0;
    archive >> magic;
    if (magic != c_magic)
        ThrowArchiveException(CArchiveException::genericException, archive.GetFileName());
    std::int32_t version = 0;
    archive >> version;
    QSchema::SetSchemaDirect(archive, version);
}

void QDoc::LoadFromStorage(CStorage& root) {
    QFileHandlerDoc::LoadFromStorage(root);
    CStreamFile stream;
    CFileException failure;
    if (!stream.OpenStream(root, c_contentsStreamName, kReadFlags, &failure))
        throw failure;
    CArchive archive(&stream, CArchive::load, kArchiveBuffer);
    archive.SetFileName(m_strPathName);
    Serialize(archive);
    archive.Close();
}

void QDoc::SaveToStorage(CStorage& root, CObject* object) {
    QFileHandlerDoc::SaveToStorage(root);
    if (!m_summary.WriteToStorage(root))
        ThrowFileException(CFileException::genericException, -1, m_summary.GetStreamName());
    CStreamFile stream;
    CFileException failure;
    if (!stream.CreateStream(root, c_contentsStreamName, kCreateFlags, &failure)) {
        if (failure.m_cause == CFileException::fileNotFound)
            ThrowArchiveException(CArchiveException::badSchema, c_contentsStreamName);
        throw failure;
    }
    {
        CArchive archive(&stream, CArchive::store, kArchiveBuffer);
        archive.SetFileName(m_strPathName);
        try {
            if (object != nullptr)
                object->Serialize(archive);
            else
                Serialize(archive);
        } catch (...) {
            archive.Abort();
            throw;
        }
        archive.Close();
    }
    stream.Close();
    if (!root.Commit(kCommitFlags, &failure))
        throw failure;
}

void QDoc::SaveDocument(const CString& path) {
    const CString formerPath = m_strPathName;
    m_strPathName = path;
    m_summary.RecordSave();
    try {
        CFileException failure;
        std::unique_ptr<CStorage> staging = CStorage::OpenBytes({}, kCreateFlags, &failure);
        if (!staging)
            throw failure;
        SaveToStorage(*staging);
        std::unique_ptr<CStorage> file = CStorage::CreateFile(path, kCreateFlags, &failure);
        if (!file)
            throw failure;
        CopyStorage(*staging, *file);
        if (!file->Commit(kCommitFlags, &failure))
            throw failure;
    } catch (...) {
        m_strPathName = formerPath;
        throw;
    }
}

void QDoc::LoadDocument(const CString& path) {
    CFileException failure;
    std::unique_ptr<CStorage> root = CStorage::OpenFile(path, kReadFlags, &failure);
    if (!root)
        throw failure;
    m_strPathName = path;
    LoadFromStorage(*root);
    // A file without a summary, or with one that cannot be read, gets a fresh one.
    if (!m_summary.ReadFromStorage(*root))
        m_summary.Reset();
    m_summary.StartEditTimeCount();
}

CString QDoc::SuggestedSaveName(bool replace) {
    CString name = m_strPathName;
    if (!replace || !name.IsEmpty())
        return name;
    name = m_strTitle;
    const int bad = name.FindOneOf(u" #%;/\\");
    if (bad >= 0)
        name = name.Left(bad);
    CString extension = GetFilterExtensions();
    if (extension.IsEmpty())
        return name;
    for (int skip = ExtensionNumberToUse(); skip > 0; --skip) {
        const int semicolon = extension.Find(u';');
        if (semicolon < 0)
            break;
        extension = extension.Mid(semicolon + 1);
    }
    const int semicolon = extension.Find(u';');
    return name + (semicolon >= 0 ? extension.Left(semicolon) : extension);
}

bool QDoc::DoSave(const CString& name, bool replace) {
    const QReentrancyWriter writer(m_saveCounter, "QDoc::DoSave");
    CString target = name;
    if (target.IsEmpty() && !AskForSaveName(replace, target))
        return false;
    if (!QPathOp::HasRoot(target))
        target = QPathOp::FolderPlusPath(QCurrentDirectory::Get(), target);
    QFSFile::CreateContainingFolderIfRequired(target);
    QFSFile::ClearFileStatusCache();
    const CString formerPath = m_strPathName;
    if (target != formerPath)
        CopyRenameAncillaryFiles(formerPath, target);
    if (m_bEmbedded)
        m_strPathName = target;
    if (!OnSaveDocument(target))
        return false;
    if (!replace && !m_bEmbedded)
        m_strPathName = formerPath;
    return true;
}

bool QDoc::OnSaveDocument(const CString& path) {
    try {
        SaveDocument(path);
        return true;
    } catch (const std::exception& failure) {
        ReportSaveLoadException(path, &failure, true, c_failedToSaveDocument);
    }
    return false;
}

bool QDoc::OnFileSave() {
    return InLastOpenSaveDir([this] { return OnFileSaveAction() || DoSave(m_strPathName); });
}

bool QDoc::OnFileSaveAs(const CString& name) {
    return InLastOpenSaveDir([this, &name] { return DoSave(name); });
}

bool QDoc::InLastOpenSaveDir(const std::function<bool()>& save) {
    QAppServices& services = AppServices();
    const CString lastFolder = services.LastOpenSaveDir();
    if (lastFolder.IsEmpty())
        return save();
    bool saved = false;
    {
        const QSaveAndRestoreCurrentDirectory folder(lastFolder);
        saved = save();
    }
    if (!m_strPathName.IsEmpty())
        services.SetLastOpenSaveDir(QPathOp::PathWithoutFileSpec(m_strPathName));
    return saved;
}

bool QDoc::AskForSaveName(bool replace, CString& name) {
    static const QTString saveAs(u"Save As", kDialogTitleContext);
    static const QTString saveCopyAs(u"Save Copy As", kDialogTitleContext);
    const CString patterns = FilterPatterns(GetFilterExtensions());
    const CString suggested = SuggestedSaveName(replace);
    CString chosen = suggested;
    if (!UIServices().PickExportFile(true, replace ? saveAs : saveCopyAs,
                                     patterns.IsEmpty() ? CString()
                                                        : patterns + u"|" + patterns + u"||",
                                     QPathOp::DotExt(suggested).Mid(1), chosen) ||
        chosen.IsEmpty())
        return false;
    name = chosen;
    return true;
}

const QProperties* QDoc::GetDocProperties() const {
    for (const auto& item : m_items) {
        if (const auto* properties = dynamic_cast<const QDocProperties*>(item.get()))
            return &properties->Properties();
    }
    return nullptr;
}

void QDoc::SetDocProperties(const QProperties& properties) {
    for (auto& item : m_items) {
        if (dynamic_cast<QDocProperties*>(item.get()) != nullptr) {
            item = std::make_unique<QDocProperties>(properties);
            return;
        }
    }
    AddItem(std::make_unique<QDocProperties>(properties));
}

void QDoc::RefuseVersion(const CString& message) {
    QMessageBoxOrLog(message, Translated(u"Error"), true);
    ThrowArchiveException(CArchiveException::badSchema, m_strPathName);
}

void QDoc::SerializeOut(CArchive& archive, int depth, const CString& title) {
    const auto count = static_cast<int>(std::count_if(
        m_items.begin(), m_items.end(), [](const auto& item) { return !item->IsBlank(); }));
    m_nItemsTotal = m_nItemsToLoad = count;
    archive << static_cast<std::int32_t>(count);

    static const QTString saving(u"Saving %s", kSavingContext);
    static const QTString saved(u"Saved %s", kSavingContext);
    static const QTString failedToSave(u"Failed to save %s", kSavingContext);
    static const QTString failedItem(
        u"Failed during attempt to save document item %d of %d\n\nSystem Message:\n%s",
        u"Message box (itemNum,itemCount,errMsg)");
    DocumentProgress progress(depth, CString::Formatted(saving, title), count);
    int number = 0;
    for (const auto& item : m_items) {
        if (item->IsBlank())
            continue;
        --m_nItemsToLoad;
        ++number;
        progress.Step();
        try {
            archive.WriteObject(item.get());
        } catch (const std::exception& failure) {
            QMessageBoxOrLog(CString::Formatted(failedItem, number, count, ErrorMessage(failure)),
                             Translated(u"Error"), true);
            progress.Close(CString::Formatted(failedToSave, title));
            throw;
        }
    }
    progress.Close(CString::Formatted(saved, title));
}

void QDoc::SerializeIn(CArchive& archive, int depth, const CString& title, const CString& suffix) {
    const QReentrancyWriter writer(m_loadCounter, "QDoc::SerializeIn");
    Trace(u"QDoc::SerializeIn started");
    std::int32_t count = 0;
    archive >> count;
    if (count < 0)
        ThrowArchiveException(CArchiveException::genericException, archive.GetFileName());
    m_nItemsTotal = m_nItemsToLoad = count;
    const DisableViewAndItemUpdates noUpdates(this);

    static const QTString loading(u"Loading %s %s", kLoadingContext);
    static const QTString loaded(u"Loaded %s %s", kLoadingContext);
    static const QTString loadFailed(u"Load %s failed%s", kLoadingContext);
    DocumentProgress progress(depth, CString::Formatted(loading, title, suffix), count);
    try {
        while (m_nItemsToLoad > 0) {
            Trace(u"QDoc::SerializeIn %s, get next item, m_nItemsToLoad=%d", title, m_nItemsToLoad);
            std::unique_ptr<CObject> object = archive.ReadNewObject(&CDocItem::c_runtimeClass);
            Trace(u"QDoc::SerializeIn, after get next item, m_nItemsToLoad=%d, 0x%8.8x->[%s]",
                  m_nItemsToLoad - 1,
                  static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(object.get())),
                  GetWhoAmI(object.get()));
            // A null item is no item: it takes its place in the count and nothing else.
            if (object != nullptr)
                AddItem(std::unique_ptr<CDocItem>(static_cast<CDocItem*>(object.release())));
            --m_nItemsToLoad;
            progress.Step();
            if (m_abortEvent.Lock(0))
                break;
        }
        progress.Close(CString::Formatted(loaded, title, suffix));
    } catch (const std::exception& failure) {
        progress.Close(CString::Formatted(loadFailed, title, suffix));
        if (!KeepPartialDocument(failure))
            throw;
    }
    m_abortEvent.ResetEvent();
    Trace(u"QDoc::SerializeIn finished");
}

bool QDoc::KeepPartialDocument(const std::exception& failure) {
    static const QTString question(
        u"Document corrupted, %d of %d read\n%s\n\nA possible cause of this is trying to read a "
        u"drawing saved with a later version of\n  %s\nThe current version is %s\n\nCheck "
        u"version where drawing was last saved by selecting 'About' from the 'Help' menu\nand "
        u"comparing the \"File Version\" shown\n\nKeep partial document?",
        u"Message box (numLoaded,numNeeded,errorMsg,productName,productVersion)");
    const CString text =
        CString::Formatted(question, m_nItemsTotal - m_nItemsToLoad, m_nItemsTotal,
                           ErrorMessage(failure), ProductName(), AppServices().ProductVersion());
    return UIServices().MessageBox(text, ApplicationNameOrDefault(), kKeepPartialFlags) == IDYES;
}

void QDoc::ReportSaveLoadException(const CString& /*name*/, const std::exception* failure,
                                   bool /*saving*/, int /*defaultId*/) {
    const auto* archiveFailure = dynamic_cast<const CArchiveException*>(failure);
    if (archiveFailure != nullptr && archiveFailure->m_cause == CArchiveException::badSchema)
        return;
    static const QTString unknown(u"Unknown error during ReportSaveLoadException",
                                  kMessageBoxContext);
    const CString text = failure != nullptr ? ErrorMessage(*failure) : CString(unknown);
    QMessageBoxOrLog(text, Translated(u"Error"), true);
}

void ReportLimitDoubleFailed(CArchive& archive, const CString& what) {
    const CString path = archive.GetFileName();
    const int version = QSchema::Version(archive);
    CString text;
    if (version > QSchema::DefaultVersion()) {
        static const QTString newer(
            u"This item can only be opened correctly in a more recent release.\n\n%s has a v%i "
            u"schema,\nand this release can only open v%i or older.\n\nHint: This may occur "
            u"when you use a file created in a later release.\n\nCheck your %ss and try again.",
            kMessageBoxContext);
        CString extension = QPathOp::DotExt(path);
        if (!extension.IsEmpty())
            extension = extension.Mid(1);
        text = CString::Formatted(newer, path, version, QSchema::DefaultVersion(), extension);
    } else {
        static const QTString bad(u"A bad ", kMessageBoxContext);
        static const QTString stored(u" was stored in this file;\n\n%s\n\nPlease re-save to fix",
                                     kMessageBoxContext);
        text = CString(bad) + what + CString::Formatted(stored, path);
    }
    QMessageBoxOrLog(text, Translated(u"Corruption"), true);
}

} // namespace keel
