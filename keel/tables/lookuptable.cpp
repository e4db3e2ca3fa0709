#include "keel/tables/lookuptable.h"

#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/document/usertrace.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/schema.h"
#include "keel/system/fsfile.h"
#include "keel/system/pathop.h"
#include "keel/tables/tablebasedon.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <mutex>
#include <new>
#include <thread>
#include <unistd.h>

namespace keel {

namespace {

constexpr int c_openTries = 10;
constexpr auto c_openRetryWait = std::chrono::milliseconds(100);
// The "second comment" of a table is archived from this document schema on.
constexpr int c_secondCommentSchema = 109;

CCriticalSection& ListLock() {
    static CCriticalSection section;
    return section;
}

QSmartPtrArray<QLookupTableData>& TheList() {
    static QSmartPtrArray<QLookupTableData> list;
    return list;
}

void TraceTables(const char16_t* word) {
    if (IsTracing(USER_TRACE_EVALUATIONS))
        UserTraceWriteLine(word);
}

// -1 until the option has been read.
std::atomic<int> c_forceAsciiWrite{-1};

bool IsPrime(unsigned number) {
    if (number < 2)
        return false;
    for (unsigned divisor = 2; divisor <= number / divisor; ++divisor)
        if (number % divisor == 0)
            return false;
    return true;
}

// The smallest prime above `number`.
unsigned NextBiggerPrime(unsigned number) {
    unsigned candidate = number + 1;
    while (!IsPrime(candidate))
        ++candidate;
    return candidate;
}

CString TableFolder() {
    const QEvaluatorFactory* factory = GetEvaluatorFactory();
    return factory ? factory->FolderForConstant(QConstantFolder::Table) : CString();
}

// Names as given, resolved to full paths in one table folder.
struct NameMemo {
    std::mutex mutex;
    CString folder;
    QMap<CString, CString> fullNames;
};

NameMemo& TheNameMemo() {
    static NameMemo memo;
    return memo;
}

// Steps 2 to 6 of attaching a handle to a table by its full path.
bool AttachByFullName(QSmartPtr<QLookupTableData>& data, const CString& fullName, bool forWriting,
                      bool sortRows, bool repairCounts) {
    bool result = false;
    if (data && !fullName.IsEmpty() && data->IsNamed(fullName) && !data->IsReloadRequired() &&
        !repairCounts) {
        result = true;
    } else {
        if (QSmartPtr<QLookupTableData> found = QLookupTableData::Find(fullName)) {
            data = found;
            result = data->IsValid();
            if (forWriting || data->IsReloadRequired())
                result = data->SetName(fullName, forWriting, sortRows, repairCounts);
        } else {
            QLookupTableData* made = new (std::nothrow) QLookupTableData;
            if (!made)
                return false;
            data = made;
            result = data->SetName(fullName, forWriting, sortRows, repairCounts);
        }
        result = result && data->IsValid();
    }
    data->SetReloadRequired(false);
    return result;
}

} // namespace

// --- Settings ------------------------------------------------------------------------------------

bool QLookupTableDataStatics::IsForceAsciiWrite() {
    const int known = c_forceAsciiWrite.load();
    if (known >= 0)
        return known != 0;
    const QEvaluatorFactory* factory = GetEvaluatorFactory();
    if (!factory)
        return false;
    const bool forced = factory->ProfileInt(u"Options", u"VltForceAscii", 0) != 0;
    c_forceAsciiWrite.store(forced ? 1 : 0);
    return forced;
}

void QLookupTableDataStatics::ForgetForceAsciiWrite() {
    c_forceAsciiWrite.store(-1);
}

// --- The list of tables --------------------------------------------------------------------------

QLookupTableData::QLookupTableData() {
    CSingleLock lock(&ListLock(), true);
    TheList().Add(QSmartPtr<QLookupTableData>(this));
}

QLookupTableData::~QLookupTableData() {
    CloseFile();
}

// Whatever is still buffered goes out; a failure to write it leaves the file closed all the same.
void QLookupTableData::CloseFile() {
    if (!m_file.IsOpen())
        return;
    try {
        m_file.Close();
    } catch (const CFileException&) {
        m_file.Abort();
    }
}

QSmartPtr<QLookupTableData> QLookupTableData::Find(const CString& fullName) {
    if (fullName.IsEmpty())
        return {};
    CSingleLock lock(&ListLock(), true);
    for (const QSmartPtr<QLookupTableData>& entry : TheList())
        if (entry && entry->IsNamed(fullName))
            return entry;
    return {};
}

void QLookupTableData::CleanupCache() {
    CSingleLock lock(&ListLock(), true);
    QSmartPtrArray<QLookupTableData>& list = TheList();
    for (int i = list.GetSize() - 1; i >= 0; --i)
        if (!list[i] || list[i]->IsSinglyReferenced())
            list.RemoveAt(i);
    TraceTables(u"VLTCLEANUPCACHE");
}

void QLookupTableData::SetAllReloadRequired() {
    CSingleLock lock(&ListLock(), true);
    for (const QSmartPtr<QLookupTableData>& entry : TheList())
        if (entry)
            entry->SetReloadRequired(true);
    TraceTables(u"VLTSETALLRELOADREQUIRED");
}

void QLookupTableData::LeaveList(const QLookupTableData* data) {
    CSingleLock lock(&ListLock(), true);
    QSmartPtrArray<QLookupTableData>& list = TheList();
    for (int i = list.GetSize() - 1; i >= 0; --i)
        if (list[i].Get() == data)
            list.RemoveAt(i);
}

int QLookupTableData::ListCount() {
    CSingleLock lock(&ListLock(), true);
    return TheList().GetSize();
}

// --- Life of the contents ------------------------------------------------------------------------

bool QLookupTableData::SetName(const CString& fullName, bool forWriting, bool sortRows,
                               bool repairCounts) {
    if (fullName.IsEmpty()) {
        ReportError(u"No name supplied");
        return false;
    }
    Delete();
    m_strName = fullName;
    if (forWriting && !Lock(true) && !Lock(false)) {
        ReportError(u"Could not open for writing");
        Delete();
        return false;
    }
    if (!ReadFromFile(sortRows, repairCounts, -1, -1)) {
        Delete();
        return false;
    }
    return true;
}

void QLookupTableData::Delete() {
    m_rowLabels.RemoveAll();
    m_colLabels.RemoveAll();
    m_colTypes.RemoveAll();
    m_cells.RemoveAll();
    m_pendingRowText.RemoveAll();
    m_rowIndex.reset();
    m_colIndex.reset();
    m_nRows = 0;
    m_nCols = 0;
    m_rowLabelType = TYPE(0);
    m_colLabelType = TYPE(0);
    m_strComment.Empty();
    m_strSecondComment.Empty();
    m_bAllRowsLoaded = false;
    m_bRowLoadFailed = false;
    m_bArraysAllocated = false;
    m_strFirstBadToken.Empty();
}

void QLookupTableData::CreateNewFile() {
    Delete();
    AllocateArrays(1, 1);
    m_rowLabels[0] = QAnyValue(u"New Row");
    m_colLabels[0] = QAnyValue(u"New Column");
    m_rowLabelType = QAnyValue::TYPE_STRING;
    m_colLabelType = QAnyValue::TYPE_STRING;
    m_colTypes[0] = QAnyValue::TYPE_STRING;
    m_bSorted = true;
    m_bAllRowsLoaded = true;
    m_bWritable = false;
    m_bReloadRequired = false;
    CloseFile();
    m_bFileOpen = false;
    m_nLockCount = 0;
    RecreateCache();
}

bool QLookupTableData::IsValid() const {
    return m_bArraysAllocated && m_nRows >= 1 && m_nCols >= 1;
}

void QLookupTableData::UpdateColLabelType(TYPE type) {
    m_colLabelType = type;
    RecreateCache();
}

bool QLookupTableData::ColType(int col, TYPE& type) const {
    if (!IsValid() || col < 0 || col >= m_nCols)
        return false;
    type = m_colTypes[col];
    return true;
}

bool QLookupTableData::UpdateColType(int col, TYPE type) {
    if (!IsValid() || col < 0 || col >= m_nCols)
        return false;
    m_colTypes[col] = type;
    return true;
}

bool QLookupTableData::AllocateArrays(int rows, int cols) {
    const long long cells = static_cast<long long>(rows) * cols;
    if (rows < 0 || cols < 0 || cells > INT_MAX) {
        ReportError(u"Out of memory");
        return false;
    }
    try {
        m_rowLabels.RemoveAll();
        m_colLabels.RemoveAll();
        m_colTypes.RemoveAll();
        m_cells.RemoveAll();
        m_rowLabels.SetSize(rows);
        m_colLabels.SetSize(cols);
        m_colTypes.SetSize(cols);
        m_cells.SetSize(static_cast<int>(cells));
    } catch (const std::bad_alloc&) {
        Delete();
        ReportError(u"Out of memory");
        return false;
    }
    m_nRows = rows;
    m_nCols = cols;
    m_bArraysAllocated = true;
    return true;
}

// --- Locking -------------------------------------------------------------------------------------

namespace {

constexpr unsigned c_openForWriting = CFile::modeReadWrite | CFile::modeCreate |
                                      CFile::modeNoTruncate | CFile::typeText |
                                      CFile::shareDenyWrite;
constexpr unsigned c_openForReading = CFile::modeRead | CFile::typeText | CFile::shareDenyWrite;

bool OpenWithRetries(CStdioFileEx& file, const CString& path, unsigned flags) {
    for (int attempt = 1;; ++attempt) {
        if (file.Open(path, flags))
            return true;
        if (attempt == c_openTries)
            return false;
        std::this_thread::sleep_for(c_openRetryWait);
    }
}

} // namespace

bool QLookupTableData::Lock(bool forWriting) {
    ++m_nLockCount;
    const bool upgrading = forWriting && !m_bWritable;
    if (m_nLockCount > 1 && !upgrading)
        return m_bFileOpen;
    CloseFile();
    m_bFileOpen = false;
    if (!QFSFile::Exists(m_strName, true, false)) {
        if (!forWriting) {
            if (OpenFromArchive())
                return true;
            --m_nLockCount;
            return false;
        }
        if (!m_bTakenFromArchive || !WriteOwnFileFromMemory()) {
            --m_nLockCount;
            return false;
        }
    }
    if (!OpenWithRetries(m_file, m_strName, forWriting ? c_openForWriting : c_openForReading)) {
        --m_nLockCount;
        return false;
    }
    m_bFileOpen = true;
    if (forWriting)
        m_bWritable = true;
    return true;
}

void QLookupTableData::Unlock() {
    if (--m_nLockCount >= 1)
        return;
    CloseFile();
    m_bFileOpen = false;
    m_nLockCount = 0;
}

bool QLookupTableData::UnlockAndWrite() {
    const bool written = WriteToFile();
    Unlock();
    return written;
}

// The file is extracted to a temporary file, which is unlinked as soon as it is open: the open
// file stays readable and nothing is left behind.
bool QLookupTableData::OpenFromArchive() {
    const VZLib* archive = QTableBasedOn::TableBasedOnZip();
    if (!archive)
        return false;
    const CString memberName = QTableBasedOn::FileNameInBasedOnZip(m_strName);
    const CString tempPath = QPathOp::ChangeDotExt(QFSFile::GenerateTempPath(CString()), u".vlt");
    CFile extracted;
    if (!extracted.Open(tempPath, CFile::modeCreate | CFile::modeWrite | CFile::typeBinary))
        return false;
    const bool whole = archive->Extract(memberName, extracted);
    extracted.Abort(); // written straight through, nothing is buffered
    const bool opened = whole && m_file.Open(tempPath, c_openForReading);
    ::unlink(tempPath.ToUtf8().c_str());
    if (!opened)
        return false;
    m_bWritable = false;
    m_bFileOpen = true;
    m_bTakenFromArchive = true;
    return true;
}

bool QLookupTableData::WriteOwnFileFromMemory() {
    QFSFolder::CreateIfRequired(QPathOp::PathWithoutFileSpec(m_strName));
    CStdioFileEx file;
    if (!file.Open(m_strName, CFile::modeCreate | CFile::modeWrite | CFile::typeText))
        return false;
    bool written = false;
    try {
        written = WriteToFile(file);
        file.Close();
    } catch (const CFileException&) {
        file.Abort();
        written = false;
    }
    QFSFile::ClearFileStatusCache();
    if (written)
        m_bTakenFromArchive = false;
    return written;
}

// --- Reporting -----------------------------------------------------------------------------------

void QLookupTableData::ReportError(const CString& message, bool translated) {
    const CString text =
        translated ? message : TranslateString(message, CString(), u"Lookup table error");
    m_strLastError = m_strName + u"\n" + text;
    QMessageBoxOrLogUnlessNoEvalReportErrors(m_strLastError, u"Lookup Table", true);
}

void QLookupTableData::ReportErrorRow(const CString& format, int row) {
    ReportError(CString::Formatted(TranslateString(format, CString(), u"Lookup table error (row)"),
                                   row + 1),
                true);
}

void QLookupTableData::ReportErrorCol(const CString& format, int col) {
    ReportError(CString::Formatted(TranslateString(format, CString(), u"Lookup table error (col)"),
                                   col + 1),
                true);
}

void QLookupTableData::ReportErrorRowCol(const CString& format, int row, int col) {
    ReportError(
        CString::Formatted(TranslateString(format, CString(), u"Lookup table error (row,col)"),
                           row + 1, col + 1),
        true);
}

// --- The document form ---------------------------------------------------------------------------

void QLookupTableData::Serialize(CArchive& archive) {
    const bool withSecondComment = QSchema::IsAtLeastVersion(archive, c_secondCommentSchema);
    if (archive.IsStoring()) {
        LoadRowsIfNecessary();
        archive << m_strName << m_strComment << m_strTLDesc;
        archive << static_cast<std::int32_t>(m_nRows) << static_cast<std::int32_t>(m_nCols);
        if (withSecondComment)
            archive << m_strSecondComment;
        for (const QAnyValue& label : m_colLabels)
            archive << label;
        for (const QAnyValue& label : m_rowLabels)
            archive << label;
        for (const QAnyValue& cell : m_cells)
            archive << cell;
        return;
    }
    Delete();
    std::int32_t rows = 0;
    std::int32_t cols = 0;
    archive >> m_strName >> m_strComment >> m_strTLDesc;
    archive >> rows >> cols;
    if (!AllocateArrays(rows, cols))
        ThrowArchiveException(CArchiveException::badIndex, archive.GetFileName());
    if (withSecondComment)
        archive >> m_strSecondComment;
    for (QAnyValue& label : m_colLabels)
        archive >> label;
    for (QAnyValue& label : m_rowLabels)
        archive >> label;
    for (QAnyValue& cell : m_cells)
        archive >> cell;
    m_bAllRowsLoaded = true;
    m_bReloadRequired = false;
    RecreateCache();
}

// --- Rows read on demand -------------------------------------------------------------------------

bool QLookupTableData::LoadRowIfNecessary(int row) {
    if (m_bAllRowsLoaded)
        return true;
    if (row < 0 || row >= m_pendingRowText.GetSize()) {
        ReportError(u"Not enough rows of data");
        return false;
    }
    if (m_pendingRowText[row].IsEmpty())
        return true;
    return LoadRow(row, m_pendingRowText[row]);
}

bool QLookupTableData::LoadRowsIfNecessary() {
    if (m_bAllRowsLoaded)
        return true;
    for (int row = 0; row < m_nRows; ++row) {
        if (row >= m_pendingRowText.GetSize()) {
            m_bRowLoadFailed = true;
            ReportError(u"Not enough rows of data");
            return false;
        }
        if (!m_pendingRowText[row].IsEmpty() && !LoadRow(row, m_pendingRowText[row]))
            return false;
    }
    m_bAllRowsLoaded = true;
    return true;
}

void QLookupTableData::RecreateCache() {
    m_rowIndex.reset();
    m_colIndex.reset();
    if (QLookupTableDataStatics::IsTableCacheOverSize(m_nRows))
        m_rowIndex = MakeLabelIndex(m_rowLabels, m_rowLabelType);
    if (QLookupTableDataStatics::IsTableCacheOverSize(m_nCols))
        m_colIndex = MakeLabelIndex(m_colLabels, m_colLabelType);
}

std::unique_ptr<QLookupTableData::LabelIndex>
QLookupTableData::MakeLabelIndex(const QArray<QAnyValue>& labels, TYPE type) const {
    auto index = std::make_unique<LabelIndex>(10);
    index->InitHashTable(NextBiggerPrime(static_cast<unsigned>(labels.GetSize() * 1.2)));
    for (int i = 0; i < labels.GetSize(); ++i) {
        QAnyValue key(labels[i]);
        EvaluateCell(key, type, nullptr, nullptr);
        key.LOWERNOCVTit();
        (*index)[key] = i;
    }
    return index;
}

// --- What a table value asks of its table --------------------------------------------------------

bool QLookupTableData::BeginTrans() {
    QLookupTable handle(this);
    return handle.BeginTrans();
}

bool QLookupTableData::CommitTrans() {
    QLookupTable handle(this);
    return handle.CommitTrans();
}

// A nameless table starts again as a new table of its own: the values that hold it keep it.
bool QLookupTableData::Rollback() {
    if (m_strName.IsEmpty()) {
        CreateNewFile();
        return true;
    }
    QLookupTable handle(this);
    return handle.Rollback();
}

bool QLookupTableData::Reload() {
    QLookupTable handle(this);
    return handle.Reload(false);
}

// --- The handle ----------------------------------------------------------------------------------

QLookupTable::QLookupTable(const QTableHandlePtr& handle)
    : m_data(dynamic_cast<QLookupTableData*>(handle.Get())) {}

CString QLookupTable::ResolveName(const CString& name) {
    if (name.IsEmpty())
        return CString();
    const CString folder = TableFolder();
    NameMemo& memo = TheNameMemo();
    std::lock_guard<std::mutex> lock(memo.mutex);
    if (folder != memo.folder) {
        memo.fullNames.RemoveAll();
        memo.folder = folder;
    }
    CString fullName;
    if (memo.fullNames.Lookup(name, fullName))
        return fullName;
    fullName = QPathOp::FolderPlusPath(folder, name);
    QPathOp::FixupDotExt(fullName, u".vlt");
    memo.fullNames[name] = fullName;
    return fullName;
}

bool QLookupTable::SetName(const CString& name, bool forWriting, bool sortRows, bool repairCounts) {
    const CString fullName = ResolveName(name);
    if (fullName.IsEmpty()) {
        if (!m_data)
            m_data = new QLookupTableData;
        m_data->ReportError(u"No name supplied");
        return false;
    }
    return AttachByFullName(m_data, fullName, forWriting, sortRows, repairCounts);
}

void QLookupTable::CreateNewFile() {
    m_data = new QLookupTableData;
    m_data->CreateNewFile();
}

bool QLookupTable::BeginTrans() {
    if (!m_data || m_data->Name().IsEmpty())
        return false;
    if (!SetName(m_data->Name(), true, false, false))
        return false;
    return m_data->IsWritable() || m_data->Lock(true);
}

bool QLookupTable::CommitTrans() {
    if (!m_data)
        return false;
    if (m_data->Name().IsEmpty())
        return true;
    return m_data->IsWritable() && m_data->UnlockAndWrite();
}

bool QLookupTable::Rollback() {
    if (!m_data)
        return false;
    if (m_data->Name().IsEmpty()) {
        CreateNewFile();
        return true;
    }
    m_data->Unlock();
    return Reload(m_data->IsSorted());
}

bool QLookupTable::Reload(bool sortRows) {
    if (!m_data)
        return false;
    m_data->SetReloadRequired(true);
    const CString fullName = ResolveName(m_data->Name());
    if (fullName.IsEmpty()) {
        m_data->SetReloadRequired(false);
        m_data->ReportError(u"No name supplied");
        return false;
    }
    return AttachByFullName(m_data, fullName, false, sortRows, false);
}

bool QLookupTable::SetComment(const CString& comment) {
    if (!IsValid())
        return false;
    m_data->SetComment(comment);
    return true;
}

bool QLookupTable::SetTLDesc(const CString& description) {
    if (!IsValid())
        return false;
    m_data->SetTLDesc(description);
    return true;
}

bool QLookupTable::SetIsSorted(bool sorted) {
    if (!IsValid())
        return false;
    m_data->SetIsSorted(sorted);
    return true;
}

bool QLookupTable::RowCount(int& count) const {
    if (!IsValid())
        return false;
    count = m_data->RowCount();
    return true;
}

bool QLookupTable::ColCount(int& count) const {
    if (!IsValid())
        return false;
    count = m_data->ColCount();
    return true;
}

bool QLookupTable::RowLabelType(TYPE& type) const {
    if (!IsValid())
        return false;
    type = m_data->RowLabelType();
    return true;
}

bool QLookupTable::UpdateRowLabelType(TYPE type) {
    if (!IsValid())
        return false;
    m_data->UpdateRowLabelType(type);
    return true;
}

bool QLookupTable::ColLabelType(TYPE& type) const {
    if (!IsValid())
        return false;
    type = m_data->ColLabelType();
    return true;
}

bool QLookupTable::UpdateColLabelType(TYPE type) {
    if (!IsValid())
        return false;
    m_data->UpdateColLabelType(type);
    return true;
}

// A null handle writes or reads a table of its own, so that the archive stays in step.
void QLookupTable::Serialize(CArchive& archive) {
    if (!m_data)
        m_data = new QLookupTableData;
    m_data->Serialize(archive);
}

} // namespace keel
