#pragma once

#include "tests/support/namescontext.h"

#include "keel/formula/formulacontext.h"
#include "keel/tables/lookuptable.h"

#include <string>
#include <vector>

namespace keel::test {

using Cells = std::vector<std::vector<QAnyValue>>;

// A nameless, unsorted table built in memory through the table's own operations: the first row
// and column labels replace those of a new table and the others are appended. Labels and cells
// are typed 0, so they read back as they were stored.
inline QLookupTable MemoryTable(const std::vector<QAnyValue>& rows,
                                const std::vector<QAnyValue>& cols, const Cells& cells = {}) {
    QLookupTable table;
    table.CreateNewFile();
    table.SetIsSorted(false);
    table.UpdateRowLabelType(QAnyValue::TYPE_EMPTY);
    table.UpdateColLabelType(QAnyValue::TYPE_EMPTY);
    table.UpdateColType(0, QAnyValue::TYPE_EMPTY);
    table.UpdateRowLabel(0, rows[0]);
    table.UpdateColLabel(0, cols[0]);
    int index = 0;
    for (std::size_t i = 1; i < rows.size(); ++i)
        table.AddRow(rows[i], index);
    for (std::size_t j = 1; j < cols.size(); ++j)
        table.AddCol(cols[j], index);
    for (std::size_t r = 0; r < cells.size(); ++r)
        for (std::size_t c = 0; c < cells[r].size(); ++c)
            table.UpdateByIndex(static_cast<int>(r), static_cast<int>(c), cells[r][c]);
    return table;
}

// The cell as stored, as text, for comparisons.
inline std::string StoredText(const QLookupTable& table, int row, int col) {
    QAnyValue value;
    if (!table.LookupByIndexNoEval(row, col, value))
        return "<none>";
    return value.Format().ToUtf8();
}

// Every label of the rows, then "/", then the columns, then each row's stored cells.
inline std::string Shape(const QLookupTable& table) {
    CString rowLabels;
    CString colLabels;
    table.RowLabels(rowLabels, nullptr, nullptr);
    table.ColLabels(colLabels, nullptr, nullptr);
    std::string shape = rowLabels.ToUtf8() + " / " + colLabels.ToUtf8();
    int rows = 0;
    int cols = 0;
    table.RowCount(rows);
    table.ColCount(cols);
    for (int r = 0; r < rows; ++r) {
        shape += " /";
        for (int c = 0; c < cols; ++c)
            shape += " " + StoredText(table, r, c);
    }
    return shape;
}

// The type numbers of the row labels and the column labels, then of each column: "1/3: 1 4".
inline std::string Types(const QLookupTable& table) {
    QAnyValue::TYPE type = QAnyValue::TYPE_NA;
    table.RowLabelType(type);
    std::string types = std::to_string(type) + "/";
    table.ColLabelType(type);
    types += std::to_string(type) + ":";
    int cols = 0;
    table.ColCount(cols);
    for (int c = 0; c < cols; ++c) {
        type = QAnyValue::TYPE_NA;
        table.ColType(c, type);
        types += " " + std::to_string(type);
    }
    return types;
}

} // namespace keel::test
