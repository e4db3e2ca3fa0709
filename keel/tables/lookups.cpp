#include "keel/formula/evaluatingdata.h"
#include "keel/formula/stringtovalue.h"
#include "keel/platform/exceptions.h"
#include "keel/tables/lookuptable.h"

#include <initializer_list>
#include <optional>

namespace keel {

namespace {

using TYPE = QAnyValue::TYPE;

// The rows or the columns of a table, so that each search and list is written once and serves
// both directions. A position `i` along the axis and `j` across it name one cell.
class Axis {
public:
    Axis(QLookupTableData& table, bool rows) : m_table(table), m_rows(rows) {}

    Axis Across() const { return Axis(m_table, !m_rows); }
    int Count() const { return m_rows ? m_table.RowCount() : m_table.ColCount(); }
    bool IsInRange(int i) const { return i >= 0 && i < Count(); }

    bool Label(int i, QAnyValue& label, QFormulaContext* context, QCacheState* state) const {
        return m_rows ? m_table.RowLabel(i, label, context, state)
                      : m_table.ColLabel(i, label, context, state);
    }
    bool Cell(int i, int j, QAnyValue& value, QFormulaContext* context, QCacheState* state) const {
        return m_rows ? m_table.LookupByIndex(i, j, value, context, state)
                      : m_table.LookupByIndex(j, i, value, context, state);
    }
    int FindExact(const QAnyValue& key, QFormulaContext* context) const {
        return m_rows ? m_table.FindRowExact(key, context) : m_table.FindColExact(key, context);
    }
    int FindExactInCache(const QAnyValue& key, QFormulaContext* context) const {
        return m_rows ? m_table.FindRowExactInCache(key, context)
                      : m_table.FindColExactInCache(key, context);
    }
    int FindNearest(const QAnyValue& key, QFormulaContext* context) const {
        return m_rows ? m_table.FindRow(key, context) : m_table.FindCol(key, context);
    }

private:
    QLookupTableData& m_table;
    bool m_rows;
};

// A conversion that the value cannot take (an empty array made a number) leaves an error value
// in the cell read, instead of failing the whole table.
void ChangeTypeOrError(QAnyValue& value, QAnyValue::TYPE type) {
    try {
        value.ChangeType(type);
    } catch (const InvalidArgumentException& failure) {
        value.MakeError(CString::FromUtf8(failure.what()));
    }
}

CString TextOf(const QAnyValue& label) {
    return ValueToString(label);
}

// An exact match: an empty label catches every key, a string label is compared as text
// ignoring case, anything else by Equivalent.
bool MatchesExactly(const QAnyValue& label, const QAnyValue& key, const CString& keyText) {
    if (label.IsEmptyOrEmptyString())
        return true;
    if (label.IsType(QAnyValue::TYPE_STRING))
        return TextOf(label).CompareNoCase(keyText) == 0;
    return key.Equivalent(label);
}

// A nearest match: a string label that begins the key's text, or the first label at or above the
// key.
bool MatchesNearest(const QAnyValue& label, const QAnyValue& key, const CString& keyText) {
    if (label.IsEmptyOrEmptyString())
        return true;
    if (label.IsType(QAnyValue::TYPE_STRING)) {
        const CString text = TextOf(label);
        return text.GetLength() <= keyText.GetLength() &&
               keyText.Left(text.GetLength()).CompareNoCase(text) == 0;
    }
    bool failed = false;
    const int order = key.Compare(label, failed);
    return !failed && order <= 0;
}

template <class Matches>
int WalkLabels(const Axis& axis, const QAnyValue& key, QFormulaContext* context, Matches matches) {
    const CString keyText = TextOf(key);
    for (int i = 0; i < axis.Count(); ++i) {
        QAnyValue label;
        if (axis.Label(i, label, context, nullptr) && matches(label, key, keyText))
            return i;
    }
    return -1;
}

int FindExactIn(const Axis& axis, const QAnyValue& key, QFormulaContext* context) {
    const int hit = axis.FindExactInCache(key, context);
    return hit >= 0 ? hit : WalkLabels(axis, key, context, MatchesExactly);
}

int FindNearestIn(const Axis& axis, const QAnyValue& key, QFormulaContext* context) {
    const int hit = axis.FindExactInCache(key, context);
    return hit >= 0 ? hit : WalkLabels(axis, key, context, MatchesNearest);
}

// Items joined by "|", each the display text of a value. CString's number formatting always
// runs under the "C" locale, so a number prints with a point whatever the user's settings and
// the lists need no switch of locale; money keeps the application's currency symbols.
class ItemList {
public:
    explicit ItemList(CString& list) : m_list(list) { m_list.Empty(); }

    void Add(const CString& item) {
        if (m_count++ > 0)
            m_list += u'|';
        m_list += item;
    }
    void Add(const QAnyValue& value) { Add(TextOf(value)); }
    // Whether the item is in the list as a whole item, compared with case.
    bool Holds(const CString& item) const {
        int start = 0;
        for (int i = 0; i < m_count; ++i) {
            int end = m_list.Find(u'|', start);
            if (end < 0)
                end = m_list.GetLength();
            if (m_list.Mid(start, end - start) == item)
                return true;
            start = end + 1;
        }
        return false;
    }

private:
    CString& m_list;
    int m_count = 0;
};

bool AddLabel(ItemList& list, const Axis& axis, int i, QFormulaContext* context,
              QCacheState* state) {
    QAnyValue label;
    if (!axis.Label(i, label, context, state))
        return false;
    list.Add(label);
    return true;
}

bool Labels(const Axis& axis, CString& out, QFormulaContext* context, QCacheState* state) {
    ItemList list(out);
    if (axis.Count() < 1)
        return false;
    for (int i = 0; i < axis.Count(); ++i)
        if (!AddLabel(list, axis, i, context, state))
            return false;
    return true;
}

// One test of a cell against a value: the cell matches when EquivalentNoCase gives `same`.
struct CellTest {
    int across;
    const QAnyValue& value;
    bool same;
};

bool Holds(const Axis& axis, int i, const CellTest& test, bool& holds, QFormulaContext* context,
           QCacheState* state) {
    QAnyValue cell;
    if (!axis.Cell(i, test.across, cell, context, state))
        return false;
    holds = QAnyValue::EquivalentNoCase(cell, test.value) == test.same;
    return true;
}

// The labels of the positions along `axis` where every test holds.
bool LabelsWhere(const Axis& axis, CString& out, std::initializer_list<CellTest> tests,
                 QFormulaContext* context, QCacheState* state) {
    ItemList list(out);
    for (const CellTest& test : tests)
        if (!axis.Across().IsInRange(test.across))
            return false;
    for (int i = 0; i < axis.Count(); ++i) {
        bool all = true;
        for (const CellTest& test : tests) {
            bool holds = false;
            if (!Holds(axis, i, test, holds, context, state))
                return false;
            all = all && holds;
        }
        if (all && !AddLabel(list, axis, i, context, state))
            return false;
    }
    return true;
}

// The labels of the positions along `axis` that hold at least one matching cell.
bool LabelsForValue(const Axis& axis, CString& out, const QAnyValue& value, bool same,
                    QFormulaContext* context, QCacheState* state) {
    ItemList list(out);
    if (axis.Count() < 1)
        return false;
    for (int i = 0; i < axis.Count(); ++i) {
        bool found = false;
        for (int j = 0; j < axis.Across().Count() && !found; ++j)
            if (!Holds(axis, i, CellTest{j, value, same}, found, context, state))
                return false;
        if (found && !AddLabel(list, axis, i, context, state))
            return false;
    }
    return true;
}

bool ValuesAt(const Axis& axis, int i, CString& out, QFormulaContext* context, QCacheState* state) {
    ItemList list(out);
    if (!axis.IsInRange(i))
        return false;
    for (int j = 0; j < axis.Across().Count(); ++j) {
        QAnyValue cell;
        if (!axis.Cell(i, j, cell, context, state))
            return false;
        list.Add(cell);
    }
    return true;
}

// The distinct non-empty texts of the cells of the key's position whose cell at the filter's
// position passes the test, in order.
bool FilteredValues(const Axis& axis, const QAnyValue& key, CString& out,
                    const QAnyValue& filterKey, const QAnyValue& filterValue, bool same,
                    QFormulaContext* context, QCacheState* state) {
    ItemList list(out);
    const int at = axis.FindNearest(key, context);
    const int filterAt = axis.FindNearest(filterKey, context);
    if (at < 0 || filterAt < 0)
        return false;
    const Axis across = axis.Across();
    for (int j = 0; j < across.Count(); ++j) {
        bool holds = false;
        if (!Holds(across, j, CellTest{filterAt, filterValue, same}, holds, context, state))
            return false;
        if (!holds)
            continue;
        QAnyValue cell;
        if (!axis.Cell(at, j, cell, context, state))
            return false;
        const CString text = TextOf(cell);
        if (!text.IsEmpty() && !list.Holds(text))
            list.Add(text);
    }
    return true;
}

} // namespace

bool QLookupTableData::IsValueFormula(const QAnyValue& value) {
    if (!value.IsType(QAnyValue::TYPE_STRING))
        return false;
    const CString text = TextOf(value);
    return !text.IsEmpty() && (text[0] == u'=' || text[0] == u':');
}

bool QLookupTableData::EvaluateCell(QAnyValue& value, TYPE type, QFormulaContext* context,
                                    QCacheState* state) {
    const bool formula = IsValueFormula(value);
    if (formula) {
        const CString whole = TextOf(value);
        // Without a context the cell is data alone; with one it is a formula of the table, and
        // runs as any formula of that context does.
        std::optional<QEvaluatingData> evaluatingData;
        if (!context)
            evaluatingData.emplace();
        if (!StringToValue(value, whole.Mid(1), context, context == nullptr, state)) {
            if (context)
                return false;
            value = whole;
        }
    }
    if (!value.IsEmpty() && type != QAnyValue::TYPE_EMPTY && (context || !formula))
        ChangeTypeOrError(value, type);
    return true;
}

int QLookupTableData::FindRowExactInCache(const QAnyValue& value, QFormulaContext* context) {
    if (!m_rowIndex)
        return -1;
    const LabelIndex::CPair* hit = m_rowIndex->PLookup(value.LOWERNOCVT());
    if (!hit)
        return -1;
    if (!context)
        return hit->value;
    // The index was built without a context: the label must still match with this one.
    QAnyValue label;
    if (!RowLabel(hit->value, label, context, nullptr))
        return -1;
    return MatchesExactly(label, value, TextOf(value)) ? hit->value : -1;
}

int QLookupTableData::FindColExactInCache(const QAnyValue& value, QFormulaContext* context) {
    if (!m_colIndex)
        return -1;
    const LabelIndex::CPair* hit = m_colIndex->PLookup(value.LOWERNOCVT());
    if (!hit)
        return -1;
    if (!context)
        return hit->value;
    QAnyValue label;
    if (!ColLabel(hit->value, label, context, nullptr))
        return -1;
    return MatchesExactly(label, value, TextOf(value)) ? hit->value : -1;
}

int QLookupTableData::FindRowExact(const QAnyValue& value, QFormulaContext* context) {
    return IsValid() ? FindExactIn(Axis(*this, true), value, context) : -1;
}

int QLookupTableData::FindColExact(const QAnyValue& value, QFormulaContext* context) {
    return IsValid() ? FindExactIn(Axis(*this, false), value, context) : -1;
}

int QLookupTableData::FindRow(const QAnyValue& value, QFormulaContext* context) {
    return IsValid() ? FindNearestIn(Axis(*this, true), value, context) : -1;
}

int QLookupTableData::FindCol(const QAnyValue& value, QFormulaContext* context) {
    return IsValid() ? FindNearestIn(Axis(*this, false), value, context) : -1;
}

bool QLookupTableData::Lookup(const QAnyValue& rowKey, const QAnyValue& colKey, QAnyValue& value,
                              QFormulaContext* context, QCacheState* state) {
    if (!IsValid())
        return false;
    const int row = FindRow(rowKey, context);
    const int col = FindCol(colKey, context);
    return LookupByIndex(row, col, value, context, state);
}

bool QLookupTableData::LookupExact(const QAnyValue& rowKey, const QAnyValue& colKey,
                                   QAnyValue& value, QFormulaContext* context, QCacheState* state) {
    if (!IsValid())
        return false;
    const int row = FindRowExact(rowKey, context);
    const int col = FindColExact(colKey, context);
    return LookupByIndex(row, col, value, context, state);
}

bool QLookupTableData::LookupByIndex(int row, int col, QAnyValue& value, QFormulaContext* context,
                                     QCacheState* state) {
    return LookupByIndexNoEval(row, col, value) &&
           EvaluateCell(value, m_colTypes[col], context, state);
}

bool QLookupTableData::LookupByIndexNoEval(int row, int col, QAnyValue& value) {
    if (!IsValid() || row < 0 || row >= m_nRows || col < 0 || col >= m_nCols)
        return false;
    if (!LoadRowIfNecessary(row))
        return false;
    value = Cell(row, col);
    return true;
}

bool QLookupTableData::IsValueFormulaControlled(int row, int col) {
    QAnyValue value;
    return LookupByIndexNoEval(row, col, value) && IsValueFormula(value);
}

bool QLookupTableData::UpdateByIndex(int row, int col, const QAnyValue& value) {
    if (!IsValid() || row < 0 || row >= m_nRows || col < 0 || col >= m_nCols)
        return false;
    // A row still held as text would overwrite the new cell when it is parsed.
    if (!LoadRowIfNecessary(row))
        return false;
    Cell(row, col) = value;
    return true;
}

bool QLookupTableData::UpdateExact(const QAnyValue& rowKey, const QAnyValue& colKey,
                                   const QAnyValue& value, QFormulaContext* context) {
    if (!IsValid())
        return false;
    return UpdateByIndex(FindRowExact(rowKey, context), FindColExact(colKey, context), value);
}

bool QLookupTableData::RowLabel(int row, QAnyValue& label, QFormulaContext* context,
                                QCacheState* state) {
    if (!IsValid() || row < 0 || row >= m_nRows)
        return false;
    label = m_rowLabels[row];
    return EvaluateCell(label, m_rowLabelType, context, state);
}

bool QLookupTableData::ColLabel(int col, QAnyValue& label, QFormulaContext* context,
                                QCacheState* state) {
    if (!IsValid() || col < 0 || col >= m_nCols)
        return false;
    label = m_colLabels[col];
    return EvaluateCell(label, m_colLabelType, context, state);
}

bool QLookupTableData::UpdateRowLabel(int row, const QAnyValue& label) {
    if (!IsValid() || row < 0 || row >= m_nRows)
        return false;
    m_rowLabels[row] = label;
    RecreateCache();
    return true;
}

bool QLookupTableData::UpdateColLabel(int col, const QAnyValue& label) {
    if (!IsValid() || col < 0 || col >= m_nCols)
        return false;
    m_colLabels[col] = label;
    RecreateCache();
    return true;
}

bool QLookupTableData::RowLabels(CString& list, QFormulaContext* context, QCacheState* state) {
    return Labels(Axis(*this, true), list, context, state);
}

bool QLookupTableData::ColLabels(CString& list, QFormulaContext* context, QCacheState* state) {
    return Labels(Axis(*this, false), list, context, state);
}

bool QLookupTableData::RowLabelsForVal(CString& list, const QAnyValue& value, bool same,
                                       QFormulaContext* context, QCacheState* state) {
    return LabelsForValue(Axis(*this, true), list, value, same, context, state);
}

bool QLookupTableData::ColLabelsForVal(CString& list, const QAnyValue& value, bool same,
                                       QFormulaContext* context, QCacheState* state) {
    return LabelsForValue(Axis(*this, false), list, value, same, context, state);
}

bool QLookupTableData::RowLabelsForCol(CString& list, const QAnyValue& colKey,
                                       const QAnyValue& value, bool same, QFormulaContext* context,
                                       QCacheState* state) {
    const Axis rows(*this, true);
    return LabelsWhere(rows, list, {{FindColExact(colKey, context), value, same}}, context, state);
}

bool QLookupTableData::ColLabelsForRow(CString& list, const QAnyValue& rowKey,
                                       const QAnyValue& value, bool same, QFormulaContext* context,
                                       QCacheState* state) {
    const Axis cols(*this, false);
    return LabelsWhere(cols, list, {{FindRowExact(rowKey, context), value, same}}, context, state);
}

bool QLookupTableData::RowLabelsForCol2(CString& list, const QAnyValue& key1,
                                        const QAnyValue& value1, bool same1, const QAnyValue& key2,
                                        const QAnyValue& value2, bool same2,
                                        QFormulaContext* context, QCacheState* state) {
    const Axis rows(*this, true);
    return LabelsWhere(rows, list,
                       {{FindColExact(key1, context), value1, same1},
                        {FindColExact(key2, context), value2, same2}},
                       context, state);
}

bool QLookupTableData::ColLabelsForRow2(CString& list, const QAnyValue& key1,
                                        const QAnyValue& value1, bool same1, const QAnyValue& key2,
                                        const QAnyValue& value2, bool same2,
                                        QFormulaContext* context, QCacheState* state) {
    const Axis cols(*this, false);
    return LabelsWhere(cols, list,
                       {{FindRowExact(key1, context), value1, same1},
                        {FindRowExact(key2, context), value2, same2}},
                       context, state);
}

bool QLookupTableData::RowValues(const QAnyValue& rowKey, CString& list, QFormulaContext* context,
                                 QCacheState* state) {
    return ValuesAt(Axis(*this, true), FindRowExact(rowKey, context), list, context, state);
}

bool QLookupTableData::ColValues(const QAnyValue& colKey, CString& list, QFormulaContext* context,
                                 QCacheState* state) {
    return ValuesAt(Axis(*this, false), FindColExact(colKey, context), list, context, state);
}

bool QLookupTableData::RowValuesByIndex(int row, CString& list, QFormulaContext* context,
                                        QCacheState* state) {
    return ValuesAt(Axis(*this, true), row, list, context, state);
}

bool QLookupTableData::ColValuesByIndex(int col, CString& list, QFormulaContext* context,
                                        QCacheState* state) {
    return ValuesAt(Axis(*this, false), col, list, context, state);
}

bool QLookupTableData::RowValuesFilterByRow2(const QAnyValue& rowKey, CString& list,
                                             const QAnyValue& filterKey,
                                             const QAnyValue& filterValue, bool same,
                                             QFormulaContext* context, QCacheState* state) {
    return FilteredValues(Axis(*this, true), rowKey, list, filterKey, filterValue, same, context,
                          state);
}

bool QLookupTableData::ColValuesFilterByCol2(const QAnyValue& colKey, CString& list,
                                             const QAnyValue& filterKey,
                                             const QAnyValue& filterValue, bool same,
                                             QFormulaContext* context, QCacheState* state) {
    return FilteredValues(Axis(*this, false), colKey, list, filterKey, filterValue, same, context,
                          state);
}

} // namespace keel
