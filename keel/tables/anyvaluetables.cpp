#include "keel/tables/lookuptable.h"
#include "keel/values/anyvalue.h"

#include <functional>
#include <vector>

namespace keel {

namespace {

using Keys = std::vector<QAnyValue>;
// Runs on the table at one position, with the keys of that position; true with `result` set, or
// false for N/A.
using TableOperation =
    std::function<bool(const QTableHandlePtr& table, const Keys& keys, QAnyValue& result)>;

bool IsPassedThrough(const QAnyValue& value) {
    return value.IsErrorOrNA() || value.IsEmpty();
}

int ExtendToOneLength(QAnyValue& table, Keys& keys) {
    switch (keys.size()) {
    case 0:
        return table.MakeArray().GetCount();
    case 1:
        return QAnyValue::ExtendArrays(table, keys[0]);
    case 2:
        return QAnyValue::ExtendArrays(table, keys[0], keys[1]);
    default:
        return QAnyValue::ExtendArrays(table, keys[0], keys[1], keys[2]);
    }
}

// The steps every table member shares: errors, N/A and empty pass through, the table first and
// then the keys in order; arrays spread position by position; the receiver becomes a table or
// the error of the name; then the operation, whose refusal is N/A.
QAnyValue& RunOnTable(QAnyValue& table, Keys keys, const TableOperation& operation) {
    if (IsPassedThrough(table))
        return table;
    for (const QAnyValue& key : keys)
        if (IsPassedThrough(key)) {
            table = QAnyValue(key);
            return table;
        }
    bool spread = table.IsArray();
    for (const QAnyValue& key : keys)
        spread = spread || key.IsArray();
    if (spread) {
        const int count = ExtendToOneLength(table, keys);
        QArray<QAnyValue> results;
        for (int i = 0; i < count; ++i) {
            QAnyValue one(table.MakeArray()[i]);
            Keys at;
            for (QAnyValue& key : keys)
                at.push_back(key.MakeArray()[i]);
            RunOnTable(one, at, operation);
            results.Add(one);
        }
        table = QAnyValue(results);
        return table;
    }
    const QAnyValue asGiven(table);
    const QTableHandlePtr handle = table.MakeLookupTable();
    if (!handle) {
        // A value that is no name can turn into a table value that holds no table.
        if (!table.IsError())
            table.MakeError(u"Cannot find lookup table " + asGiven.Format());
        return table;
    }
    QAnyValue result;
    if (operation(handle, keys, result))
        table = result;
    else
        table.MakeNA();
    return table;
}

// An operation on the table contents; a handle that holds no valid lookup table refuses.
template <class Operation>
TableOperation OnData(Operation operation) {
    return [operation](const QTableHandlePtr& handle, const Keys& keys, QAnyValue& result) {
        const QLookupTable table(handle);
        return table.IsValid() && operation(*table.Data(), keys, result);
    };
}

// An operation that builds a list, which becomes the string result.
template <class Operation>
TableOperation ListOf(Operation operation) {
    return OnData([operation](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
        CString list;
        if (!operation(table, keys, list))
            return false;
        result = list;
        return true;
    });
}

// An index of the formula language, counted from 1, made one of the table, counted from 0.
int IndexFromOne(const QAnyValue& index) {
    return QAnyValue(index).MakeInt() - 1;
}

bool Succeeded(bool succeeded, QAnyValue& result) {
    result = true;
    return succeeded;
}

bool IsColumnType(int type) {
    return type >= QAnyValue::TYPE_EMPTY && type <= QAnyValue::TYPE_COLOR;
}

} // namespace

QAnyValue& QAnyValue::LOOKUPit(const QAnyValue& row, const QAnyValue& col, QFormulaContext* context,
                               QCacheState* state) {
    return RunOnTable(*this, {row, col},
                      OnData([=](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          return table.Lookup(keys[0], keys[1], result, context, state);
                      }));
}

QAnyValue& QAnyValue::LOOKUPEXACTit(const QAnyValue& row, const QAnyValue& col,
                                    QFormulaContext* context, QCacheState* state) {
    return RunOnTable(*this, {row, col},
                      OnData([=](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          return table.LookupExact(keys[0], keys[1], result, context, state);
                      }));
}

QAnyValue& QAnyValue::LOOKUPBYINDEXit(const QAnyValue& row, const QAnyValue& col,
                                      QFormulaContext* context, QCacheState* state) {
    return RunOnTable(*this, {row, col},
                      OnData([=](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          return table.LookupByIndex(IndexFromOne(keys[0]), IndexFromOne(keys[1]),
                                                     result, context, state);
                      }));
}

QAnyValue& QAnyValue::ROWLABELit(const QAnyValue& index, QFormulaContext* context,
                                 QCacheState* state) {
    return RunOnTable(*this, {index},
                      OnData([=](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          return table.RowLabel(IndexFromOne(keys[0]), result, context, state);
                      }));
}

QAnyValue& QAnyValue::COLLABELit(const QAnyValue& index, QFormulaContext* context,
                                 QCacheState* state) {
    return RunOnTable(*this, {index},
                      OnData([=](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          return table.ColLabel(IndexFromOne(keys[0]), result, context, state);
                      }));
}

QAnyValue& QAnyValue::ROWLABELSit(QFormulaContext* context, QCacheState* state) {
    return RunOnTable(*this, {}, ListOf([=](QLookupTableData& table, const Keys&, CString& list) {
        return table.RowLabels(list, context, state);
    }));
}

QAnyValue& QAnyValue::COLLABELSit(QFormulaContext* context, QCacheState* state) {
    return RunOnTable(*this, {}, ListOf([=](QLookupTableData& table, const Keys&, CString& list) {
        return table.ColLabels(list, context, state);
    }));
}

QAnyValue& QAnyValue::ROWLABELSFORVALit(const QAnyValue& value, bool same, QFormulaContext* context,
                                        QCacheState* state) {
    return RunOnTable(*this, {}, ListOf([=](QLookupTableData& table, const Keys&, CString& list) {
        return table.RowLabelsForVal(list, value, same, context, state);
    }));
}

QAnyValue& QAnyValue::COLLABELSFORVALit(const QAnyValue& value, bool same, QFormulaContext* context,
                                        QCacheState* state) {
    return RunOnTable(*this, {}, ListOf([=](QLookupTableData& table, const Keys&, CString& list) {
        return table.ColLabelsForVal(list, value, same, context, state);
    }));
}

QAnyValue& QAnyValue::ROWLABELSFORCOLit(const QAnyValue& col, const QAnyValue& value, bool same,
                                        QFormulaContext* context, QCacheState* state) {
    return RunOnTable(*this, {col},
                      ListOf([=](QLookupTableData& table, const Keys& keys, CString& list) {
                          return table.RowLabelsForCol(list, keys[0], value, same, context, state);
                      }));
}

QAnyValue& QAnyValue::COLLABELSFORROWit(const QAnyValue& row, const QAnyValue& value, bool same,
                                        QFormulaContext* context, QCacheState* state) {
    return RunOnTable(*this, {row},
                      ListOf([=](QLookupTableData& table, const Keys& keys, CString& list) {
                          return table.ColLabelsForRow(list, keys[0], value, same, context, state);
                      }));
}

QAnyValue& QAnyValue::ROWLABELSFORCOL2it(const QAnyValue& col1, const QAnyValue& value1, bool same1,
                                         const QAnyValue& col2, const QAnyValue& value2, bool same2,
                                         QFormulaContext* context, QCacheState* state) {
    return RunOnTable(*this, {col1, col2},
                      ListOf([=](QLookupTableData& table, const Keys& keys, CString& list) {
                          return table.RowLabelsForCol2(list, keys[0], value1, same1, keys[1],
                                                        value2, same2, context, state);
                      }));
}

QAnyValue& QAnyValue::COLLABELSFORROW2it(const QAnyValue& row1, const QAnyValue& value1, bool same1,
                                         const QAnyValue& row2, const QAnyValue& value2, bool same2,
                                         QFormulaContext* context, QCacheState* state) {
    return RunOnTable(*this, {row1, row2},
                      ListOf([=](QLookupTableData& table, const Keys& keys, CString& list) {
                          return table.ColLabelsForRow2(list, keys[0], value1, same1, keys[1],
                                                        value2, same2, context, state);
                      }));
}

QAnyValue& QAnyValue::ROWVALUESit(const QAnyValue& row, QFormulaContext* context,
                                  QCacheState* state) {
    return RunOnTable(*this, {row},
                      ListOf([=](QLookupTableData& table, const Keys& keys, CString& list) {
                          return table.RowValues(keys[0], list, context, state);
                      }));
}

QAnyValue& QAnyValue::COLVALUESit(const QAnyValue& col, QFormulaContext* context,
                                  QCacheState* state) {
    return RunOnTable(*this, {col},
                      ListOf([=](QLookupTableData& table, const Keys& keys, CString& list) {
                          return table.ColValues(keys[0], list, context, state);
                      }));
}

QAnyValue& QAnyValue::ROWVALUESBYINDEXit(const QAnyValue& index, QFormulaContext* context,
                                         QCacheState* state) {
    return RunOnTable(
        *this, {index}, ListOf([=](QLookupTableData& table, const Keys& keys, CString& list) {
            return table.RowValuesByIndex(IndexFromOne(keys[0]), list, context, state);
        }));
}

QAnyValue& QAnyValue::COLVALUESBYINDEXit(const QAnyValue& index, QFormulaContext* context,
                                         QCacheState* state) {
    return RunOnTable(
        *this, {index}, ListOf([=](QLookupTableData& table, const Keys& keys, CString& list) {
            return table.ColValuesByIndex(IndexFromOne(keys[0]), list, context, state);
        }));
}

QAnyValue& QAnyValue::ROWVALUESFILTERBYROW2it(const QAnyValue& row, const QAnyValue& filterRow,
                                              const QAnyValue& filterValue, bool same,
                                              QFormulaContext* context, QCacheState* state) {
    return RunOnTable(*this, {row, filterRow},
                      ListOf([=](QLookupTableData& table, const Keys& keys, CString& list) {
                          return table.RowValuesFilterByRow2(keys[0], list, keys[1], filterValue,
                                                             same, context, state);
                      }));
}

QAnyValue& QAnyValue::COLVALUESFILTERBYCOL2it(const QAnyValue& col, const QAnyValue& filterCol,
                                              const QAnyValue& filterValue, bool same,
                                              QFormulaContext* context, QCacheState* state) {
    return RunOnTable(*this, {col, filterCol},
                      ListOf([=](QLookupTableData& table, const Keys& keys, CString& list) {
                          return table.ColValuesFilterByCol2(keys[0], list, keys[1], filterValue,
                                                             same, context, state);
                      }));
}

QAnyValue& QAnyValue::ROWCOUNTit() {
    return RunOnTable(*this, {}, [](const QTableHandlePtr& handle, const Keys&, QAnyValue& result) {
        int count = 0;
        if (!QLookupTable(handle).RowCount(count))
            return false;
        result = count;
        return true;
    });
}

QAnyValue& QAnyValue::COLCOUNTit() {
    return RunOnTable(*this, {}, [](const QTableHandlePtr& handle, const Keys&, QAnyValue& result) {
        int count = 0;
        if (!QLookupTable(handle).ColCount(count))
            return false;
        result = count;
        return true;
    });
}

QAnyValue& QAnyValue::ADDROWit(const QAnyValue& label) {
    return RunOnTable(*this, {label},
                      OnData([](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          int index = 0;
                          return Succeeded(table.AddRow(keys[0], index), result);
                      }));
}

QAnyValue& QAnyValue::REMOVEROWit(const QAnyValue& label, QFormulaContext* context) {
    return RunOnTable(*this, {label},
                      OnData([=](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          return Succeeded(table.RemoveRow(keys[0], context), result);
                      }));
}

QAnyValue& QAnyValue::REMOVEROWBYINDEXit(const QAnyValue& index) {
    return RunOnTable(*this, {index},
                      OnData([](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          return Succeeded(table.RemoveRowByIndex(IndexFromOne(keys[0])), result);
                      }));
}

QAnyValue& QAnyValue::ADDCOLit(const QAnyValue& label, const QAnyValue& type) {
    const int typeNumber = QAnyValue(type).MakeInt();
    return RunOnTable(*this, {label},
                      OnData([=](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          int index = 0;
                          return IsColumnType(typeNumber) &&
                                 Succeeded(table.AddCol(keys[0], TYPE(typeNumber), index), result);
                      }));
}

QAnyValue& QAnyValue::REMOVECOLit(const QAnyValue& label, QFormulaContext* context) {
    return RunOnTable(*this, {label},
                      OnData([=](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          return Succeeded(table.RemoveCol(keys[0], context), result);
                      }));
}

QAnyValue& QAnyValue::REMOVECOLBYINDEXit(const QAnyValue& index) {
    return RunOnTable(*this, {index},
                      OnData([](QLookupTableData& table, const Keys& keys, QAnyValue& result) {
                          return Succeeded(table.RemoveColByIndex(IndexFromOne(keys[0])), result);
                      }));
}

// The updates reach the table through its handle, so that any kind of table can take them.
QAnyValue& QAnyValue::UPDATEEXACTit(const QAnyValue& row, const QAnyValue& col,
                                    const QAnyValue& value, QFormulaContext* context) {
    return RunOnTable(
        *this, {row, col}, [&](const QTableHandlePtr& handle, const Keys& keys, QAnyValue& result) {
            return Succeeded(handle->UpdateExact(keys[0], keys[1], value, context), result);
        });
}

QAnyValue& QAnyValue::UPDATEBYINDEXit(const QAnyValue& row, const QAnyValue& col,
                                      const QAnyValue& value, QFormulaContext*) {
    return RunOnTable(
        *this, {row, col}, [&](const QTableHandlePtr& handle, const Keys& keys, QAnyValue& result) {
            return Succeeded(
                handle->UpdateByIndex(IndexFromOne(keys[0]), IndexFromOne(keys[1]), value), result);
        });
}

namespace {

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
