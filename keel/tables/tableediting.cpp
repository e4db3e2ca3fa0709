#include "keel/tables/tableediting.h"

#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/formula/stringtovalue.h"
#include "keel/platform/uiservices.h"
#include "keel/system/pathop.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <utility>

namespace keel {

namespace {

// Where a new label goes among sorted labels: before the first label it sorts below, or at the
// end. -1 when an equal label is already there.
int SortedPlace(const QArray<QAnyValue>& labels, const QAnyValue& label) {
    for (int i = 0; i < labels.GetCount(); ++i) {
        bool failed = false;
        const int order = label.Compare(labels[i], failed);
        if (failed)
            continue;
        if (order == 0)
            return -1;
        if (order < 0)
            return i;
    }
    return labels.GetCount();
}

template <class T>
void SwapAt(QArray<T>& items, int a, int b) {
    std::swap(items[a], items[b]);
}

} // namespace

bool QLookupTableData::AddRow(const QAnyValue& label, int& index) {
    if (!IsValid())
        return false;
    int at = m_nRows;
    if (m_bSorted) {
        QArray<QAnyValue> labels;
        for (int row = 0; row < m_nRows; ++row) {
            QAnyValue typed;
            RowLabel(row, typed, nullptr, nullptr);
            labels.Add(typed);
        }
        at = SortedPlace(labels, label);
        if (at < 0)
            return false;
    }
    m_rowLabels.InsertAt(at, label);
    m_cells.InsertAt(at * m_nCols, QAnyValue(), m_nCols);
    // Rows still held as text keep one entry each; a table read whole may keep none.
    if (m_pendingRowText.GetCount() == m_nRows)
        m_pendingRowText.InsertAt(at, CString());
    ++m_nRows;
    RecreateCache();
    index = at;
    return true;
}

bool QLookupTableData::AddCol(const QAnyValue& label, TYPE type, int& index) {
    // Every row gets a cell, so rows still held as text are parsed first.
    if (!IsValid() || !LoadRowsIfNecessary())
        return false;
    for (int row = m_nRows - 1; row >= 0; --row)
        m_cells.InsertAt((row + 1) * m_nCols, QAnyValue());
    m_colLabels.Add(label);
    m_colTypes.Add(type);
    index = m_nCols++;
    RecreateCache();
    return true;
}

bool QLookupTableData::RemoveRowByIndex(int row) {
    if (!IsValid() || row < 0 || row >= m_nRows)
        return false;
    m_rowLabels.RemoveAt(row);
    m_cells.RemoveAt(row * m_nCols, m_nCols);
    if (m_pendingRowText.GetCount() == m_nRows)
        m_pendingRowText.RemoveAt(row);
    --m_nRows;
    RecreateCache();
    return true;
}

bool QLookupTableData::RemoveRow(const QAnyValue& label, QFormulaContext* context) {
    return RemoveRowByIndex(FindRowExact(label, context));
}

bool QLookupTableData::RemoveColByIndex(int col) {
    if (!IsValid() || col < 0 || col >= m_nCols || !LoadRowsIfNecessary())
        return false;
    for (int row = m_nRows - 1; row >= 0; --row)
        m_cells.RemoveAt(row * m_nCols + col);
    m_colLabels.RemoveAt(col);
    m_colTypes.RemoveAt(col);
    --m_nCols;
    RecreateCache();
    return true;
}

bool QLookupTableData::RemoveCol(const QAnyValue& label, QFormulaContext* context) {
    return RemoveColByIndex(FindColExact(label, context));
}

bool QLookupTableData::MoveRowUp(int row) {
    if (!IsValid() || row < 1 || row >= m_nRows)
        return false;
    SwapAt(m_rowLabels, row - 1, row);
    for (int col = 0; col < m_nCols; ++col)
        std::swap(Cell(row - 1, col), Cell(row, col));
    if (m_pendingRowText.GetCount() == m_nRows)
        SwapAt(m_pendingRowText, row - 1, row);
    RecreateCache();
    return true;
}

bool QLookupTableData::MoveRowDown(int row) {
    return row >= 0 && row < m_nRows - 1 && MoveRowUp(row + 1);
}

bool QLookupTableData::MoveColLeft(int col) {
    if (!IsValid() || col < 1 || col >= m_nCols || !LoadRowsIfNecessary())
        return false;
    SwapAt(m_colLabels, col - 1, col);
    SwapAt(m_colTypes, col - 1, col);
    for (int row = 0; row < m_nRows; ++row)
        std::swap(Cell(row, col - 1), Cell(row, col));
    RecreateCache();
    return true;
}

bool QLookupTableData::MoveColRight(int col) {
    return col >= 0 && col < m_nCols - 1 && MoveColLeft(col + 1);
}

// --- The editor's operations -------------------------------------------------------------------

namespace {

constexpr const char16_t* c_editorContext = u"Table editor";

CString Translated(const CString& text) {
    return TranslateString(text, CString(), c_editorContext);
}

void Tell(const CString& message) {
    QMessageBoxExceptServer(c_editorContext, Translated(message), MB_OK | MB_ICONEXCLAMATION);
}

bool TakesMarkup(const QAnyValue& cell) {
    switch (cell.Type()) {
    case QAnyValue::TYPE_INT:
    case QAnyValue::TYPE_DOUBLE:
    case QAnyValue::TYPE_MONEY:
    case QAnyValue::TYPE_LENGTH:
    case QAnyValue::TYPE_AREA:
    case QAnyValue::TYPE_VOLUME:
        return true;
    default:
        return false;
    }
}

QAnyValue MarkedUp(const QAnyValue& cell, QMarkup markup, const QAnyValue& amount) {
    switch (markup) {
    case QMarkup::FixedAmount:
        return cell + amount;
    case QMarkup::Multiplier:
        return cell * amount;
    case QMarkup::Percentage:
        return cell * (QAnyValue(1.0) + QAnyValue(amount).MakeDouble() / 100.0);
    }
    return cell;
}

bool AskMarkupAmount(QMarkup markup, QAnyValue& amount) {
    CString text;
    if (!UIServices().EditText(text, Translated(MarkupTitle(markup))))
        return false;
    if (!StringToValue(amount, text.Trim(), nullptr, true, nullptr) || !amount.IsNumeric()) {
        Tell(u"Invalid markup amount.");
        return false;
    }
    return true;
}

// Whether the label's text differs, ignoring case, from each of the labels.
template <class LabelAt>
bool IsUniqueLabel(const QAnyValue& label, int count, LabelAt labelAt) {
    const CString text = ValueToString(label);
    for (int i = 0; i < count; ++i) {
        QAnyValue existing;
        if (labelAt(i, existing) && ValueToString(existing).CompareNoCase(text) == 0)
            return false;
    }
    return true;
}

// Every file under the folder whose name matches the mask, in a stable order.
std::vector<CString> FilesUnder(const CString& folder, const CString& mask) {
    namespace fs = std::filesystem;
    std::vector<CString> files;
    std::error_code error;
    const auto options = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator it(folder.ToUtf8(), options, error), end;
         !error && it != end; it.increment(error)) {
        const CString name = CString::FromUtf8(it->path().filename().string());
        if (it->is_regular_file(error) && MatchWildcardExpression(name, mask))
            files.push_back(CString::FromUtf8(it->path().string()));
    }
    std::sort(files.begin(), files.end());
    return files;
}

// The table's own message: its last error without the name ahead of it.
CString MessageOf(const QLookupTable& table) {
    const CString error = table.LastError();
    return error.Mid(error.Find(u'\n') + 1);
}

// Opens, checks and rewrites one table; on failure `reason` says why and the file is as it was.
bool ConvertTable(const CString& path, const std::function<void(const CString&)>& status,
                  CString& reason) {
    QLookupTable table;
    if (!table.SetName(path, false, false, false)) {
        // The failed table stays in the list under its name and is read again only when told.
        if (table.Data())
            table.Data()->SetReloadRequired(true);
        if (!table.SetName(path, false, false, true)) {
            reason = MessageOf(table);
            return false;
        }
        status(CString::Formatted(Translated(u"Fixed row/col counts for %s"), path));
    }
    // A label or cell that did not read holds an error value, which would be written over it.
    if (!table.LoadRowsIfNecessary() || !table.Data()->FirstBadToken().IsEmpty()) {
        reason = table.Data()->FirstBadToken().IsEmpty() ? MessageOf(table)
                                                         : table.Data()->FirstBadToken();
        return false;
    }
    if (table.BeginTrans() && table.CommitTrans())
        return true;
    reason = MessageOf(table);
    table.Rollback();
    return false;
}

bool MayLoseFractions(const std::vector<QAnyValue>& values, QAnyValue::TYPE type) {
    if (type != QAnyValue::TYPE_INT || !HoldsFractions(values))
        return true;
    return QMessageBoxYesNoExceptServer(
               c_editorContext,
               Translated(u"Type conversion will lose some fractional amounts. Continue anyway?"),
               IDNO, MB_YESNO | MB_DEFBUTTON2 | MB_ICONEXCLAMATION) == IDYES;
}

} // namespace

bool TryOpen(QLookupTable& table, const CString& name) {
    if (table.SetName(name, true, false, false))
        return true;
    // The failed table stays in the list under its name and is read again only when told.
    if (table.Data())
        table.Data()->SetReloadRequired(true);
    if (table.SetName(name, true, false, true)) {
        Tell(u"This table contained an incorrect row or column count which has now been "
             u"fixed.\nYou should save the table to keep this change.");
        return true;
    }
    const CString format = TranslateString(u"Failed to open file: \n\t%s\n%s", CString(),
                                           u"Table editor (filename,error)");
    QMessageBoxExceptServer(c_editorContext, CString::Formatted(format, name, MessageOf(table)),
                            MB_OK | MB_ICONEXCLAMATION);
    return false;
}

bool ToggleSortRows(QLookupTable& table) {
    if (!table.IsValid())
        return false;
    const bool sorted = table.IsSorted();
    if (!sorted) {
        const int answer = QMessageBoxExceptServer(
            c_editorContext,
            TranslateString(u"Sorting rows requires the file to be re-read. Include changes "
                            u"since the last save?",
                            CString(), u"File save prompt"),
            MB_YESNOCANCEL | MB_ICONQUESTION);
        if (answer == IDCANCEL)
            return false;
        if (answer == IDYES && table.Data()->IsWritable() && !table.CommitTrans())
            return false;
    }
    if (!table.Reload(!sorted))
        return false;
    return table.SetIsSorted(!sorted);
}

bool HoldsFractions(const std::vector<QAnyValue>& values) {
    return std::any_of(values.begin(), values.end(), [](const QAnyValue& value) {
        if (!value.IsNumeric() || value.IsType(QAnyValue::TYPE_INT))
            return false;
        const double number = QAnyValue(value).MakeDouble();
        return std::isfinite(number) && number != std::floor(number);
    });
}

bool SelectColumnHeadingType(QLookupTable& table, QAnyValue::TYPE type) {
    int cols = 0;
    if (!table.ColCount(cols))
        return false;
    std::vector<QAnyValue> labels(static_cast<std::size_t>(cols));
    for (int col = 0; col < cols; ++col)
        table.ColLabel(col, labels[static_cast<std::size_t>(col)], nullptr, nullptr);
    return MayLoseFractions(labels, type) && table.UpdateColLabelType(type);
}

bool SelectColumnType(QLookupTable& table, int col, QAnyValue::TYPE type) {
    int rows = 0;
    QAnyValue::TYPE current = QAnyValue::TYPE_EMPTY;
    if (!table.RowCount(rows) || !table.ColType(col, current))
        return false;
    std::vector<QAnyValue> cells(static_cast<std::size_t>(rows));
    for (int row = 0; row < rows; ++row)
        table.LookupByIndex(row, col, cells[static_cast<std::size_t>(row)], nullptr, nullptr);
    return MayLoseFractions(cells, type) && table.UpdateColType(col, type);
}

CString MarkupTitle(QMarkup markup) {
    switch (markup) {
    case QMarkup::FixedAmount:
        return u"Markup by fixed amount";
    case QMarkup::Multiplier:
        return u"Markup by multiplier";
    case QMarkup::Percentage:
        return u"Markup by percentage";
    }
    return CString();
}

bool MarkupValue(QAnyValue& cell, QMarkup markup, const QAnyValue& amount) {
    if (!TakesMarkup(cell) || !amount.IsNumeric())
        return false;
    QAnyValue result = MarkedUp(cell, markup, amount);
    if (result.IsErrorOrNA())
        return false;
    if (cell.IsType(QAnyValue::TYPE_INT))
        result = static_cast<int>(std::lround(result.MakeDouble()));
    else
        result.ChangeType(cell.Type());
    if (result.IsErrorOrNA())
        return false;
    cell = result;
    return true;
}

int DoForEachSelectedCell(QLookupTable& table, const std::vector<QTableCell>& cells,
                          const std::function<bool(QAnyValue& cell)>& change) {
    if (!table.IsValid())
        return 0;
    int changed = 0;
    for (const QTableCell& at : cells) {
        QAnyValue cell;
        if (table.LookupByIndexNoEval(at.row, at.col, cell) && change(cell) &&
            table.UpdateByIndex(at.row, at.col, cell))
            ++changed;
    }
    return changed;
}

bool MarkupHelper(QLookupTable& table, QMarkup markup, const std::vector<QTableCell>& cells) {
    QAnyValue amount;
    if (!AskMarkupAmount(markup, amount))
        return false;
    const int changed = DoForEachSelectedCell(
        table, cells, [&](QAnyValue& cell) { return MarkupValue(cell, markup, amount); });
    if (changed == 0) {
        Tell(u"None of the selection could be marked up by that amount.");
        return false;
    }
    return true;
}

bool DuplicateRow(QLookupTable& table, int row, const QAnyValue& label, int& index) {
    int rows = 0;
    if (!table.RowCount(rows) || row < 0 || row >= rows)
        return false;
    const bool unique = IsUniqueLabel(label, rows, [&](int i, QAnyValue& existing) {
        return table.RowLabel(i, existing, nullptr, nullptr);
    });
    if (!unique) {
        Tell(u"Please specify a unique row label.");
        return false;
    }
    if (!table.AddRow(label, index))
        return false;
    const int from = index <= row ? row + 1 : row;
    int cols = 0;
    table.ColCount(cols);
    for (int col = 0; col < cols; ++col) {
        QAnyValue cell;
        table.LookupByIndexNoEval(from, col, cell);
        table.UpdateByIndex(index, col, cell);
    }
    return true;
}

bool DuplicateCol(QLookupTable& table, int col, const QAnyValue& label, int& index) {
    int cols = 0;
    QAnyValue::TYPE type = QAnyValue::TYPE_EMPTY;
    if (!table.ColCount(cols) || !table.ColType(col, type))
        return false;
    const bool unique = IsUniqueLabel(label, cols, [&](int i, QAnyValue& existing) {
        return table.ColLabel(i, existing, nullptr, nullptr);
    });
    if (!unique) {
        Tell(u"Please specify a unique column label.");
        return false;
    }
    if (!table.AddCol(label, type, index))
        return false;
    int rows = 0;
    table.RowCount(rows);
    for (int row = 0; row < rows; ++row) {
        QAnyValue cell;
        table.LookupByIndexNoEval(row, col, cell);
        table.UpdateByIndex(row, index, cell);
    }
    return true;
}

QBatchConversion BatchConvertTables(const CString& folder,
                                    const std::function<void(const CString& status)>& status) {
    QBatchConversion result;
    status(Translated(u"Finding files..."));
    const std::vector<CString> files = FilesUnder(folder, u"*.vlt");
    const int count = static_cast<int>(files.size());
    for (int i = 0; i < count; ++i) {
        const CString& path = files[i];
        status(CString::Formatted(Translated(u"Converting %d/%d %s"), i + 1, count, path));
        CString reason;
        if (ConvertTable(path, status, reason)) {
            ++result.converted;
        } else {
            ++result.failed;
            result.failures.push_back({path, reason});
            QMessageBoxOrLog(path + u"\n" + reason, u"Lookup Table", true);
        }
        QLookupTableData::CleanupCache();
    }
    status(CString::Formatted(Translated(u"Converted %d files"), result.converted));
    if (result.failed > 0)
        status(CString::Formatted(
            Translated(u"Failed to convert %d files.\nSee error log for details"), result.failed));
    return result;
}

} // namespace keel
