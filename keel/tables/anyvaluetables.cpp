#include "keel/values/anyvalue.h"

namespace keel {

namespace {

using TableEdit = bool (*)(QTableHandle& table, const QAnyValue& row, const QAnyValue& col,
                           const QAnyValue& value);

bool IsPassedThrough(const QAnyValue& value) {
    return value.IsErrorOrNA() || value.IsEmpty();
}

// The first of table, row key and column key that is an error, N/A or empty, if any.
const QAnyValue* PassedThroughOf(const QAnyValue& table, const QAnyValue& row,
                                 const QAnyValue& col) {
    for (const QAnyValue* value : {&table, &row, &col})
        if (IsPassedThrough(*value))
            return value;
    return nullptr;
}

void UpdateCell(QAnyValue& table, const QAnyValue& row, const QAnyValue& col,
                const QAnyValue& value, TableEdit edit) {
    if (const QAnyValue* passed = PassedThroughOf(table, row, col)) {
        table = QAnyValue(*passed);
        return;
    }
    if (table.IsArray() || row.IsArray() || col.IsArray()) {
        QAnyValue rows(row);
        QAnyValue cols(col);
        const int count = QAnyValue::ExtendArrays(table, rows, cols);
        QArray<QAnyValue> results;
        for (int i = 0; i < count; ++i) {
            QAnyValue one(table.MakeArray()[i]);
            UpdateCell(one, rows.MakeArray()[i], cols.MakeArray()[i], value, edit);
            results.Add(one);
        }
        table = QAnyValue(results);
        return;
    }
    const QTableHandlePtr handle = table.MakeLookupTable();
    if (!handle)
        return;
    table = edit(*handle, row, col, value);
}

QAnyValue& RunTransaction(QAnyValue& table, bool (QTableHandle::*operation)(),
                          const char16_t* word) {
    if (table.IsErrorOrNA())
        return table;
    const QTableHandlePtr handle = table.MakeLookupTable();
    if (!handle)
        return table;
    if (((*handle).*operation)())
        table = true;
    else
        table.MakeError(CString(u"Failed ") + word + u" for " + handle->Name());
    return table;
}

} // namespace

QAnyValue& QAnyValue::UPDATEEXACTit(const QAnyValue& row, const QAnyValue& col,
                                    const QAnyValue& value, QFormulaContext*) {
    UpdateCell(*this, row, col, value,
               [](QTableHandle& table, const QAnyValue& r, const QAnyValue& c, const QAnyValue& v) {
                   return table.UpdateExact(r, c, v);
               });
    return *this;
}

QAnyValue& QAnyValue::UPDATEBYINDEXit(const QAnyValue& row, const QAnyValue& col,
                                      const QAnyValue& value, QFormulaContext*) {
    UpdateCell(*this, row, col, value,
               [](QTableHandle& table, const QAnyValue& r, const QAnyValue& c, const QAnyValue& v) {
                   QAnyValue rowIndex(r);
                   QAnyValue colIndex(c);
                   return table.UpdateByIndex(rowIndex.MakeInt() - 1, colIndex.MakeInt() - 1, v);
               });
    return *this;
}

QAnyValue& QAnyValue::BEGINTRANSit() {
    return RunTransaction(*this, &QTableHandle::BeginTrans, u"BEGINTRANS");
}

QAnyValue& QAnyValue::COMMITTRANSit() {
    return RunTransaction(*this, &QTableHandle::CommitTrans, u"COMMITTRANS");
}

QAnyValue& QAnyValue::ROLLBACKit() {
    return RunTransaction(*this, &QTableHandle::Rollback, u"ROLLBACK");
}

QAnyValue& QAnyValue::RELOADit() {
    return RunTransaction(*this, &QTableHandle::Reload, u"RELOAD");
}

} // namespace keel
