#pragma once

#include "keel/formula/state.h"
#include "keel/platform/lock.h"
#include "keel/platform/stdiofileex.h"
#include "keel/values/anyvalue.h"
#include "keel/values/array.h"
#include "keel/values/map.h"
#include "keel/values/tablehandle.h"

#include <memory>

namespace keel {

class QFormulaContext;
class QLookupTableData;
class QRowLineReader;

// Keys of the label indexes are equal when they compare equal; values that cannot be compared
// are equal only when identical, and otherwise ordered by type.
inline int COMPARE(const QAnyValue& a, const QAnyValue& b) {
    bool failed = false;
    const int order = a.Compare(b, failed);
    if (!failed)
        return order;
    if (a.Identical(b))
        return 0;
    return a.Type() < b.Type() ? -1 : 1;
}

// Settings shared by every table of the process.
struct QLookupTableDataStatics {
    // Tables of at least this many rows are parsed row by row on demand and keep a label index;
    // 0 or below switches both off. The application sets it from the option "TableCacheOverSize".
    static inline int c_TableCacheOverSize = 20;

    static bool IsTableCacheOverSize(int count) {
        return c_TableCacheOverSize >= 1 && count >= c_TableCacheOverSize;
    }
    // The option "VltForceAscii": tables are then written in the narrow code page instead of
    // UTF-8. Read once through the application, false without one.
    static bool IsForceAsciiWrite();
    // Forgets what IsForceAsciiWrite read, so that the next call reads the option again.
    static void ForgetForceAsciiWrite();
};

// The contents of one table file, shared by every handle that names it. Each object enters the
// process-wide list when it is made and leaves it only through CleanupCache.
class QLookupTableData : public QTableHandle {
public:
    using TYPE = QAnyValue::TYPE;

    QLookupTableData();
    ~QLookupTableData() override;
    QLookupTableData(const QLookupTableData&) = delete;
    QLookupTableData& operator=(const QLookupTableData&) = delete;

    // --- The list of tables -----------------------------------------------------------------

    // The first table of the list named so, ignoring case; null when there is none.
    static QSmartPtr<QLookupTableData> Find(const CString& fullName);
    // Drops every table that only the list still holds.
    static void CleanupCache();
    // Marks every table to be read again at its next SetName or Reload.
    static void SetAllReloadRequired();
    // How many tables the list holds.
    static int ListCount();

    // --- Life of the contents ---------------------------------------------------------------

    // Frees the contents and reads the named file; see the handle's SetName.
    bool SetName(const CString& fullName, bool forWriting, bool sortRows, bool repairCounts);
    // Frees labels, types, cells and indexes, and empties both comments; the name, the top-left
    // description and the lock stay.
    void Delete();
    // One row "New Row", one column "New Column", both string-typed, one empty cell, sorted.
    void CreateNewFile();
    bool IsValid() const;

    CString Name() const override { return m_strName; }
    bool IsNamed(const CString& name) const { return m_strName.CompareNoCase(name) == 0; }
    bool IsSameNameAs(const QLookupTableData& other) const {
        return this == &other || IsNamed(other.m_strName);
    }
    CString LastError() const { return m_strLastError; }
    // The message of the first label or cell of the file that did not read (and holds an error
    // value instead), for the rows read so far; empty when every one did.
    CString FirstBadToken() const { return m_strFirstBadToken; }
    CString Comment() const { return m_strComment; }
    void SetComment(const CString& comment) { m_strComment = comment; }
    CString SecondComment() const { return m_strSecondComment; }
    void SetSecondComment(const CString& comment) { m_strSecondComment = comment; }
    CString TLDesc() const { return m_strTLDesc; }
    void SetTLDesc(const CString& description) { m_strTLDesc = description; }
    bool IsSorted() const { return m_bSorted; }
    void SetIsSorted(bool sorted) { m_bSorted = sorted; }

    int RowCount() const { return m_nRows; }
    int ColCount() const { return m_nCols; }
    TYPE RowLabelType() const { return m_rowLabelType; }
    TYPE ColLabelType() const { return m_colLabelType; }
    void UpdateRowLabelType(TYPE type) { m_rowLabelType = type; }
    // Changes the column label type and rebuilds the label index.
    void UpdateColLabelType(TYPE type);
    // False for an index out of range.
    bool ColType(int col, TYPE& type) const;
    bool UpdateColType(int col, TYPE type);

    bool IsWritable() const { return m_bWritable; }
    bool IsFileOpen() const { return m_bFileOpen; }
    bool IsReloadRequired() const { return m_bReloadRequired; }
    void SetReloadRequired(bool required) { m_bReloadRequired = required; }
    bool IsTakenFromArchive() const { return m_bTakenFromArchive; }
    bool AreAllRowsLoaded() const { return m_bAllRowsLoaded; }
    bool HasRowIndex() const { return m_rowIndex != nullptr; }
    bool HasColIndex() const { return m_colIndex != nullptr; }

    // --- Locking: the open file is the lock ---------------------------------------------------

    bool Lock(bool forWriting);
    void Unlock();
    // Writes the table into its file, then unlocks.
    bool UnlockAndWrite();

    class LockAndUnlock {
    public:
        LockAndUnlock(QLookupTableData& data, bool forWriting)
            : m_data(data), m_locked(data.Lock(forWriting)) {}
        ~LockAndUnlock() { m_data.Unlock(); }
        LockAndUnlock(const LockAndUnlock&) = delete;
        LockAndUnlock& operator=(const LockAndUnlock&) = delete;
        explicit operator bool() const { return m_locked; }

    private:
        QLookupTableData& m_data;
        bool m_locked;
    };

    // --- Reporting -----------------------------------------------------------------------------

    // Keeps the name and the message as the last error, and shows them when the evaluation
    // reports errors. An untranslated message goes through the key "Lookup table error".
    void ReportError(const CString& message, bool translated = false);
    // The messages with a row ("Bad row %d label"), a column, or both; counted from 1.
    void ReportErrorRow(const CString& format, int row);
    void ReportErrorCol(const CString& format, int col);
    void ReportErrorRowCol(const CString& format, int row, int col);

    // --- The file --------------------------------------------------------------------------------

    // Writes the whole table to an open file in the current format.
    bool WriteToFile(CStdioFileEx& file);
    // The document form of the table.
    void Serialize(CArchive& archive) override;

    // --- Rows read on demand ---------------------------------------------------------------------

    bool LoadRowIfNecessary(int row);
    bool LoadRowsIfNecessary();
    // Rebuilds both label indexes from the labels.
    void RecreateCache();

    // --- Look-ups; indexes count from 0 ------------------------------------------------------

    // A formula cell is a string that starts with "=" or ":".
    static bool IsValueFormula(const QAnyValue& value);
    // Evaluates a formula cell and applies the type; see the tables' rules for the context.
    static bool EvaluateCell(QAnyValue& value, TYPE type, QFormulaContext* context,
                             QCacheState* state);

    int FindRowExactInCache(const QAnyValue& value, QFormulaContext* context);
    int FindColExactInCache(const QAnyValue& value, QFormulaContext* context);
    int FindRowExact(const QAnyValue& value, QFormulaContext* context);
    int FindColExact(const QAnyValue& value, QFormulaContext* context);
    int FindRow(const QAnyValue& value, QFormulaContext* context);
    int FindCol(const QAnyValue& value, QFormulaContext* context);

    bool Lookup(const QAnyValue& rowKey, const QAnyValue& colKey, QAnyValue& value,
                QFormulaContext* context, QCacheState* state);
    bool LookupExact(const QAnyValue& rowKey, const QAnyValue& colKey, QAnyValue& value,
                     QFormulaContext* context, QCacheState* state);
    bool LookupByIndex(int row, int col, QAnyValue& value, QFormulaContext* context,
                       QCacheState* state);
    bool LookupByIndexNoEval(int row, int col, QAnyValue& value);
    bool IsValueFormulaControlled(int row, int col);
    bool UpdateByIndex(int row, int col, const QAnyValue& value) override;
    bool UpdateExact(const QAnyValue& rowKey, const QAnyValue& colKey, const QAnyValue& value,
                     QFormulaContext* context) override;

    bool RowLabel(int row, QAnyValue& label, QFormulaContext* context, QCacheState* state);
    bool ColLabel(int col, QAnyValue& label, QFormulaContext* context, QCacheState* state);
    bool UpdateRowLabel(int row, const QAnyValue& label);
    bool UpdateColLabel(int col, const QAnyValue& label);

    // Lists: items joined by "|".
    bool RowLabels(CString& list, QFormulaContext* context, QCacheState* state);
    bool ColLabels(CString& list, QFormulaContext* context, QCacheState* state);
    bool RowLabelsForVal(CString& list, const QAnyValue& value, bool same, QFormulaContext* context,
                         QCacheState* state);
    bool ColLabelsForVal(CString& list, const QAnyValue& value, bool same, QFormulaContext* context,
                         QCacheState* state);
    bool RowLabelsForCol(CString& list, const QAnyValue& colKey, const QAnyValue& value, bool same,
                         QFormulaContext* context, QCacheState* state);
    bool ColLabelsForRow(CString& list, const QAnyValue& rowKey, const QAnyValue& value, bool same,
                         QFormulaContext* context, QCacheState* state);
    bool RowLabelsForCol2(CString& list, const QAnyValue& key1, const QAnyValue& value1, bool same1,
                          const QAnyValue& key2, const QAnyValue& value2, bool same2,
                          QFormulaContext* context, QCacheState* state);
    bool ColLabelsForRow2(CString& list, const QAnyValue& key1, const QAnyValue& value1, bool same1,
                          const QAnyValue& key2, const QAnyValue& value2, bool same2,
                          QFormulaContext* context, QCacheState* state);
    bool RowValues(const QAnyValue& rowKey, CString& list, QFormulaContext* context,
                   QCacheState* state);
    bool ColValues(const QAnyValue& colKey, CString& list, QFormulaContext* context,
                   QCacheState* state);
    bool RowValuesByIndex(int row, CString& list, QFormulaContext* context, QCacheState* state);
    bool ColValuesByIndex(int col, CString& list, QFormulaContext* context, QCacheState* state);
    bool RowValuesFilterByRow2(const QAnyValue& rowKey, CString& list, const QAnyValue& filterKey,
                               const QAnyValue& filterValue, bool same, QFormulaContext* context,
                               QCacheState* state);
    bool ColValuesFilterByCol2(const QAnyValue& colKey, CString& list, const QAnyValue& filterKey,
                               const QAnyValue& filterValue, bool same, QFormulaContext* context,
                               QCacheState* state);

    // --- Editing
    // -----------------------------------------------------------------------------------

    bool AddRow(const QAnyValue& label, int& index);
    bool AddCol(const QAnyValue& label, TYPE type, int& index);
    bool AddCol(const QAnyValue& label, int& index) { return AddCol(label, TYPE(0), index); }
    bool RemoveRowByIndex(int row);
    bool RemoveRow(const QAnyValue& label, QFormulaContext* context);
    bool RemoveColByIndex(int col);
    bool RemoveCol(const QAnyValue& label, QFormulaContext* context);
    bool MoveRowUp(int row);
    bool MoveRowDown(int row);
    bool MoveColLeft(int col);
    bool MoveColRight(int col);

    // --- What a table value asks of its table --------------------------------------------------

    bool BeginTrans() override;
    bool CommitTrans() override;
    bool Rollback() override;
    bool Reload() override;

private:
    friend class QLookupTable;

    // The file: reading, one row, the checked write of UnlockAndWrite.
    bool ReadFromFile(bool sortRows, bool repairCounts, int forcedRows, int forcedCols);
    bool LoadRow(int row, CString& rest);
    bool WriteToFile();
    bool HasLengthPrecisionErrors();
    bool AllocateArrays(int rows, int cols);

    QAnyValue& Cell(int row, int col) { return m_cells[row * m_nCols + col]; }

    using LabelIndex = QMap<QAnyValue, int>;
    std::unique_ptr<LabelIndex> MakeLabelIndex(const QArray<QAnyValue>& labels, TYPE type) const;

    CString m_strName;
    CString m_strComment;
    CString m_strSecondComment;
    CString m_strTLDesc;
    int m_nRows = 0;
    int m_nCols = 0;
    QArray<QAnyValue> m_rowLabels;
    QArray<QAnyValue> m_colLabels;
    TYPE m_rowLabelType = TYPE(0);
    TYPE m_colLabelType = TYPE(0);
    QArray<TYPE> m_colTypes;
    QArray<QAnyValue> m_cells;
    CStdioFileEx m_file;
    CString m_strLastError;
    int m_nLockCount = 0;
    bool m_bWritable = false;
    bool m_bFileOpen = false;
    bool m_bReloadRequired = false;
    bool m_bSorted = false;
    std::unique_ptr<LabelIndex> m_rowIndex;
    std::unique_ptr<LabelIndex> m_colIndex;
    QArray<CString> m_pendingRowText;
    bool m_bAllRowsLoaded = false;
    bool m_bRowLoadFailed = false;
    bool m_bTakenFromArchive = false;
    bool m_bArraysAllocated = false;

    // --- Locking and the archive ---
    void CloseFile();
    // Takes the table out of "TableBasedOn.zip" into an open, read-only file.
    bool OpenFromArchive();
    // Gives a table taken from the archive a file of its own, written from memory.
    bool WriteOwnFileFromMemory();

    // --- Reading the file in steps, and writing it safely ---
    // How a step of the reader ended: go on, fail, or read again with a repaired count.
    enum class ReadStep { Good, Failed, Repair };
    // Every line from the first; Repair leaves the repaired count in forcedRows or forcedCols.
    ReadStep ReadLines(bool sortRows, bool repairCounts, int& forcedRows, int& forcedCols);
    // Line 2; a forced count replaces the count read when counts are repaired.
    bool ReadCountsLine(bool repairCounts, int forcedRows, int forcedCols, int& rows, int& cols);
    // Brings the counts within what the rest of the file can hold.
    void FitCountsToFile(const CString& headings, int& rows, int& cols);
    // Line 3 after the top-left description; sets forcedCols to the columns found on Repair.
    ReadStep ReadColumnHeadings(CString& line, bool repairCounts, int& forcedCols);
    // Line 4; the column label type is on it from format 2.1 on.
    bool ReadColumnTypes(bool withColLabelType);
    // The row lines; sets forcedRows to the rows found on Repair.
    ReadStep ReadRowLines(QRowLineReader& lines, bool lazy, bool repairCounts, int& forcedRows);
    // The lines after the last row; sets forcedRows to the rows the file holds on Repair.
    ReadStep ReadPastLastRow(QRowLineReader& lines, bool repairCounts, int& forcedRows);
    void SortRowsByLabel();
    bool AreRowLabelsAscending() const;
    // The types that an older file (and, for the column labels, a 2.0 file) does not give.
    bool DeduceTypes(bool olderFormat);
    // The file is written beside the table's own and renamed over it, so that a failed write
    // leaves the old file as it was; the lock's file is then opened again on the new one.
    bool WriteThroughTemporaryFile();
    bool ReadsBackAsItIs(const CString& writtenPath);
    CString DifferenceFrom(const QLookupTableData& other);
    bool ReplaceFileWith(const CString& writtenPath, const CString& target);
    // Takes a table that was never shared out of the list at once.
    static void LeaveList(const QLookupTableData* data);
    // The first label or cell of the file that did not read, as reported; empty when all did.
    CString m_strFirstBadToken;
    void NoteBadToken();
};

// A handle on a shared table: one pointer, copied freely. A null handle, or one on a table that
// is not valid, answers false and empty names.
class QLookupTable {
public:
    using TYPE = QAnyValue::TYPE;

    QLookupTable() = default;
    explicit QLookupTable(QLookupTableData* data) : m_data(data) {}
    // The table behind a table value; null when the value's handle is no lookup table.
    explicit QLookupTable(const QTableHandlePtr& handle);

    QLookupTableData* Data() const { return m_data.Get(); }
    // The handle as a table value holds it.
    QTableHandlePtr AsHandle() const { return QTableHandlePtr(m_data.Get()); }
    unsigned HashKey() const { return keel::HashKey(Name()); }

    // Attaches to the named table, reading it unless another handle already has. A name without
    // a folder is looked for in the table folder, with ".vlt" added when it has no extension.
    bool SetName(const CString& name, bool forWriting = false, bool sortRows = false,
                 bool repairCounts = false);
    // Detaches and makes a new nameless table of one row and one column.
    void CreateNewFile();
    bool BeginTrans();
    bool CommitTrans();
    bool Rollback();
    bool Reload(bool sortRows = false);

    // The full path a name resolves to in the current table folder.
    static CString ResolveName(const CString& name);

    bool IsValid() const { return m_data && m_data->IsValid(); }
    CString Name() const { return m_data ? m_data->Name() : CString(); }
    CString LastError() const { return m_data ? m_data->LastError() : CString(); }
    CString Comment() const { return IsValid() ? m_data->Comment() : CString(); }
    bool SetComment(const CString& comment);
    CString TLDesc() const { return IsValid() ? m_data->TLDesc() : CString(); }
    bool SetTLDesc(const CString& description);
    bool IsSameNameAs(const QLookupTable& other) const {
        return m_data && other.m_data && m_data->IsSameNameAs(*other.m_data);
    }
    bool IsSorted() const { return IsValid() && m_data->IsSorted(); }
    bool SetIsSorted(bool sorted);

    bool RowCount(int& count) const;
    bool ColCount(int& count) const;
    bool ColType(int col, TYPE& type) const { return IsValid() && m_data->ColType(col, type); }
    bool UpdateColType(int col, TYPE type) { return IsValid() && m_data->UpdateColType(col, type); }
    bool RowLabelType(TYPE& type) const;
    bool UpdateRowLabelType(TYPE type);
    bool ColLabelType(TYPE& type) const;
    bool UpdateColLabelType(TYPE type);

    bool WriteToFile(CStdioFileEx& file) const { return IsValid() && m_data->WriteToFile(file); }
    void Serialize(CArchive& archive);

    // --- Look-ups, updates and edits, forwarded; false on a handle without a valid table ---

    bool LoadRowIfNecessary(int row) const { return IsValid() && m_data->LoadRowIfNecessary(row); }
    bool LoadRowsIfNecessary() const { return IsValid() && m_data->LoadRowsIfNecessary(); }
    bool Lookup(const QAnyValue& rowKey, const QAnyValue& colKey, QAnyValue& value,
                QFormulaContext* context, QCacheState* state) const {
        return IsValid() && m_data->Lookup(rowKey, colKey, value, context, state);
    }
    bool LookupExact(const QAnyValue& rowKey, const QAnyValue& colKey, QAnyValue& value,
                     QFormulaContext* context, QCacheState* state) const {
        return IsValid() && m_data->LookupExact(rowKey, colKey, value, context, state);
    }
    bool LookupByIndex(int row, int col, QAnyValue& value, QFormulaContext* context,
                       QCacheState* state) const {
        return IsValid() && m_data->LookupByIndex(row, col, value, context, state);
    }
    bool LookupByIndexNoEval(int row, int col, QAnyValue& value) const {
        return IsValid() && m_data->LookupByIndexNoEval(row, col, value);
    }
    bool IsValueFormulaControlled(int row, int col) const {
        return IsValid() && m_data->IsValueFormulaControlled(row, col);
    }
    bool UpdateByIndex(int row, int col, const QAnyValue& value) const {
        return IsValid() && m_data->UpdateByIndex(row, col, value);
    }
    bool UpdateExact(const QAnyValue& rowKey, const QAnyValue& colKey, const QAnyValue& value,
                     QFormulaContext* context) const {
        return IsValid() && m_data->UpdateExact(rowKey, colKey, value, context);
    }
    bool RowLabel(int row, QAnyValue& label, QFormulaContext* context, QCacheState* state) const {
        return IsValid() && m_data->RowLabel(row, label, context, state);
    }
    bool ColLabel(int col, QAnyValue& label, QFormulaContext* context, QCacheState* state) const {
        return IsValid() && m_data->ColLabel(col, label, context, state);
    }
    bool UpdateRowLabel(int row, const QAnyValue& label) const {
        return IsValid() && m_data->UpdateRowLabel(row, label);
    }
    bool UpdateColLabel(int col, const QAnyValue& label) const {
        return IsValid() && m_data->UpdateColLabel(col, label);
    }
    bool RowLabels(CString& list, QFormulaContext* context, QCacheState* state) const {
        return IsValid() && m_data->RowLabels(list, context, state);
    }
    bool ColLabels(CString& list, QFormulaContext* context, QCacheState* state) const {
        return IsValid() && m_data->ColLabels(list, context, state);
    }
    bool RowLabelsForVal(CString& list, const QAnyValue& value, bool same, QFormulaContext* context,
                         QCacheState* state) const {
        return IsValid() && m_data->RowLabelsForVal(list, value, same, context, state);
    }
    bool ColLabelsForVal(CString& list, const QAnyValue& value, bool same, QFormulaContext* context,
                         QCacheState* state) const {
        return IsValid() && m_data->ColLabelsForVal(list, value, same, context, state);
    }
    bool RowLabelsForCol(CString& list, const QAnyValue& colKey, const QAnyValue& value, bool same,
                         QFormulaContext* context, QCacheState* state) const {
        return IsValid() && m_data->RowLabelsForCol(list, colKey, value, same, context, state);
    }
    bool ColLabelsForRow(CString& list, const QAnyValue& rowKey, const QAnyValue& value, bool same,
                         QFormulaContext* context, QCacheState* state) const {
        return IsValid() && m_data->ColLabelsForRow(list, rowKey, value, same, context, state);
    }
    bool RowLabelsForCol2(CString& list, const QAnyValue& key1, const QAnyValue& value1, bool same1,
                          const QAnyValue& key2, const QAnyValue& value2, bool same2,
                          QFormulaContext* context, QCacheState* state) const {
        return IsValid() && m_data->RowLabelsForCol2(list, key1, value1, same1, key2, value2, same2,
                                                     context, state);
    }
    bool ColLabelsForRow2(CString& list, const QAnyValue& key1, const QAnyValue& value1, bool same1,
                          const QAnyValue& key2, const QAnyValue& value2, bool same2,
                          QFormulaContext* context, QCacheState* state) const {
        return IsValid() && m_data->ColLabelsForRow2(list, key1, value1, same1, key2, value2, same2,
                                                     context, state);
    }
    bool RowValues(const QAnyValue& rowKey, CString& list, QFormulaContext* context,
                   QCacheState* state) const {
        return IsValid() && m_data->RowValues(rowKey, list, context, state);
    }
    bool ColValues(const QAnyValue& colKey, CString& list, QFormulaContext* context,
                   QCacheState* state) const {
        return IsValid() && m_data->ColValues(colKey, list, context, state);
    }
    bool RowValuesByIndex(int row, CString& list, QFormulaContext* context,
                          QCacheState* state) const {
        return IsValid() && m_data->RowValuesByIndex(row, list, context, state);
    }
    bool ColValuesByIndex(int col, CString& list, QFormulaContext* context,
                          QCacheState* state) const {
        return IsValid() && m_data->ColValuesByIndex(col, list, context, state);
    }
    bool RowValuesFilterByRow2(const QAnyValue& rowKey, CString& list, const QAnyValue& filterKey,
                               const QAnyValue& filterValue, bool same, QFormulaContext* context,
                               QCacheState* state) const {
        return IsValid() && m_data->RowValuesFilterByRow2(rowKey, list, filterKey, filterValue,
                                                          same, context, state);
    }
    bool ColValuesFilterByCol2(const QAnyValue& colKey, CString& list, const QAnyValue& filterKey,
                               const QAnyValue& filterValue, bool same, QFormulaContext* context,
                               QCacheState* state) const {
        return IsValid() && m_data->ColValuesFilterByCol2(colKey, list, filterKey, filterValue,
                                                          same, context, state);
    }
    bool AddRow(const QAnyValue& label, int& index) const {
        return IsValid() && m_data->AddRow(label, index);
    }
    bool AddCol(const QAnyValue& label, TYPE type, int& index) const {
        return IsValid() && m_data->AddCol(label, type, index);
    }
    bool AddCol(const QAnyValue& label, int& index) const {
        return IsValid() && m_data->AddCol(label, index);
    }
    bool RemoveRowByIndex(int row) const { return IsValid() && m_data->RemoveRowByIndex(row); }
    bool RemoveRow(const QAnyValue& label, QFormulaContext* context) const {
        return IsValid() && m_data->RemoveRow(label, context);
    }
    bool RemoveColByIndex(int col) const { return IsValid() && m_data->RemoveColByIndex(col); }
    bool RemoveCol(const QAnyValue& label, QFormulaContext* context) const {
        return IsValid() && m_data->RemoveCol(label, context);
    }
    bool MoveRowUp(int row) const { return IsValid() && m_data->MoveRowUp(row); }
    bool MoveRowDown(int row) const { return IsValid() && m_data->MoveRowDown(row); }
    bool MoveColLeft(int col) const { return IsValid() && m_data->MoveColLeft(col); }
    bool MoveColRight(int col) const { return IsValid() && m_data->MoveColRight(col); }
    // -1 on a handle without a valid table.
    int FindRowExact(const QAnyValue& value, QFormulaContext* context) const {
        return IsValid() ? m_data->FindRowExact(value, context) : -1;
    }
    // -1 on a handle without a valid table.
    int FindColExact(const QAnyValue& value, QFormulaContext* context) const {
        return IsValid() ? m_data->FindColExact(value, context) : -1;
    }
    // -1 on a handle without a valid table.
    int FindRow(const QAnyValue& value, QFormulaContext* context) const {
        return IsValid() ? m_data->FindRow(value, context) : -1;
    }
    // -1 on a handle without a valid table.
    int FindCol(const QAnyValue& value, QFormulaContext* context) const {
        return IsValid() ? m_data->FindCol(value, context) : -1;
    }

private:
    QSmartPtr<QLookupTableData> m_data;
};

} // namespace keel
