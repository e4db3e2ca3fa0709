#pragma once

#include "keel/tables/lookuptable.h"

#include <functional>
#include <vector>

namespace keel {

// What the table editor does to a table, without its window. Messages for the person are shown
// through QMessageBoxExceptServer, and the amount of a markup is asked through the host's text
// dialog.

// One cell of a table, both indexes from 0.
struct QTableCell {
    int row = 0;
    int col = 0;
};

enum class QMarkup {
    FixedAmount, // the amount is added
    Multiplier,  // the cell is multiplied by the amount
    Percentage,  // the cell grows by the amount in percent
};

// "Markup by fixed amount", "Markup by multiplier", "Markup by percentage".
CString MarkupTitle(QMarkup markup);

// Marks one value up by the amount. Only plain numbers, whole numbers, money, lengths, areas and
// volumes take a markup, and each keeps its type (a whole number is rounded back); formula
// cells, texts, booleans, dates, times, angles and empty cells do not. False, with `cell`
// unchanged, when the cell cannot take it.
bool MarkupValue(QAnyValue& cell, QMarkup markup, const QAnyValue& amount);

// Runs `change` on each listed cell in turn, storing what it leaves when it returns true. Returns
// how many cells took the change; cells out of range count as not taking it.
int DoForEachSelectedCell(QLookupTable& table, const std::vector<QTableCell>& cells,
                          const std::function<bool(QAnyValue& cell)>& change);

// Asks the amount under the markup's title and marks up every listed cell. False when the person
// cancelled, when the amount is no number ("Invalid markup amount.", no cell changed) and when
// no cell could take it ("None of the selection could be marked up by that amount.").
bool MarkupHelper(QLookupTable& table, QMarkup markup, const std::vector<QTableCell>& cells);

// Copies a row, or a column, under a new label, which must differ, ignoring case, from every
// label of its kind: else "Please specify a unique row label." (or column) and false. The copy
// goes where AddRow (AddCol) puts the label; `index` is where it went.
bool DuplicateRow(QLookupTable& table, int row, const QAnyValue& label, int& index);
bool DuplicateCol(QLookupTable& table, int col, const QAnyValue& label, int& index);

// Opens the named table for editing, locked for writing when it can be: plainly, else with its
// counts repaired, when the person is told "This table contained an incorrect row or column
// count which has now been fixed.\nYou should save the table to keep this change.". A failure
// shows "Failed to open file: \n\t%s\n%s" with the name and the table's message.
bool TryOpen(QLookupTable& table, const CString& name);

// The sort command: the table is read again with its rows sorted, or in the file's order when
// they were sorted, and the sorted flag follows. Sorting a table first asks "Sorting rows
// requires the file to be re-read. Include changes since the last save?": Yes writes the changes
// first, No drops them, Cancel leaves everything as it was and gives false.
bool ToggleSortRows(QLookupTable& table);

// Whether some value is a number with a fractional part, which whole numbers would lose.
bool HoldsFractions(const std::vector<QAnyValue>& values);

// Change the type of the column labels, or of a column's cells. Making labels or cells that
// hold fractions whole numbers first asks "Type conversion will lose some fractional amounts.
// Continue anyway?", and anything but Yes changes nothing and gives false.
bool SelectColumnHeadingType(QLookupTable& table, QAnyValue::TYPE type);
bool SelectColumnType(QLookupTable& table, int col, QAnyValue::TYPE type);

struct QConversionFailure {
    CString path;
    // The message of the table: why it did not read, or why it could not be written as it is.
    CString reason;
};

struct QBatchConversion {
    int converted = 0;
    int failed = 0;
    std::vector<QConversionFailure> failures;
};

// Rewrites every "*.vlt" under the folder, in all its subfolders, in the current format: each is
// opened plainly, or else with its counts repaired, then written by a transaction. A file that
// fails is left as it was, byte for byte, and its error logged, and the next one is tried: one
// with a label or cell that does not read, one that would not read back as it was read, one
// whose owner cannot be kept. A symbolic link stays a link to the rewritten file. `status` sees
// "Finding files...", "Converting %d/%d %s" for each file, "Fixed row/col counts for %s" for each
// repair, "Converted %d files" and, when any failed,
// "Failed to convert %d files.\nSee error log for details".
QBatchConversion BatchConvertTables(const CString& folder,
                                    const std::function<void(const CString& status)>& status);

} // namespace keel
