#include "keel/document/usertrace.h"
#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/stringtovalue.h"

#include <functional>

namespace keel {

namespace {

using namespace builtin;

using Member = std::function<void(QAnyValue& table, QFormulaContext* context, QCacheState* state)>;

// Gives the result and traces it. The table functions never fail the evaluation: a failing step
// leaves its error, or N/A, as the result.
bool Give(QBuiltinCall& call, const QAnyValue& value, bool& succeeded) {
    call.result = value;
    TraceCall(call, value);
    succeeded = true;
    return true;
}

// Runs a table member on the table, which becomes the result.
bool ServeOn(QBuiltinCall& call, QAnyValue table, bool& succeeded, const Member& member) {
    QCacheState state = QCS_Stable;
    member(table, call.evaluator.Context(), &state);
    call.evaluator.RaiseCacheState(state);
    return Give(call, table, succeeded);
}

// Runs a table member on a copy of the first argument, which becomes the result.
bool Serve(QBuiltinCall& call, bool& succeeded, const Member& member) {
    return ServeOn(call, QAnyValue(call.args[0]), succeeded, member);
}

// A flag argument; an error or N/A there is given as the result, and false returned.
bool Flag(QBuiltinCall& call, std::size_t index, bool& flag, bool& succeeded) {
    if (call.Get(index, flag))
        return true;
    Give(call, call.result, succeeded);
    return false;
}

// A name made the table it names; false when no such table can be had. What a table member
// passes on stays as it is.
bool ReachTable(QAnyValue& table) {
    if (table.IsErrorOrNA() || table.IsEmpty() || table.IsArray() || table.IsLookupTable())
        return true;
    return static_cast<bool>(table.MakeLookupTableNoError());
}

using CellMember = QAnyValue& (QAnyValue::*)(const QAnyValue&, const QAnyValue&, QFormulaContext*,
                                             QCacheState*);

// lookup(t, r, c [, x]): with x, a table that cannot be found gives x.
bool ServeCell(QBuiltinCall& call, bool& succeeded, CellMember member) {
    const auto& a = call.args;
    QAnyValue table(a[0]);
    if (a.size() == 4 && !ReachTable(table))
        return Give(call, a[3], succeeded);
    return ServeOn(call, table, succeeded, [&](QAnyValue& t, QFormulaContext* c, QCacheState* s) {
        (t.*member)(a[1], a[2], c, s);
    });
}

bool Lookup(QBuiltinCall& call, bool& succeeded) {
    return ServeCell(call, succeeded, &QAnyValue::LOOKUPit);
}

bool LookupExact(QBuiltinCall& call, bool& succeeded) {
    return ServeCell(call, succeeded, &QAnyValue::LOOKUPEXACTit);
}

bool LookupByIndex(QBuiltinCall& call, bool& succeeded) {
    return ServeCell(call, succeeded, &QAnyValue::LOOKUPBYINDEXit);
}

bool RowCount(QBuiltinCall& call, bool& succeeded) {
    return Serve(call, succeeded,
                 [](QAnyValue& t, QFormulaContext*, QCacheState*) { t.ROWCOUNTit(); });
}

bool ColCount(QBuiltinCall& call, bool& succeeded) {
    return Serve(call, succeeded,
                 [](QAnyValue& t, QFormulaContext*, QCacheState*) { t.COLCOUNTit(); });
}

using KeyMember = QAnyValue& (QAnyValue::*)(const QAnyValue&, QFormulaContext*, QCacheState*);

bool ServeKey(QBuiltinCall& call, bool& succeeded, KeyMember member) {
    const QAnyValue& key = call.args[1];
    return Serve(call, succeeded,
                 [&](QAnyValue& t, QFormulaContext* c, QCacheState* s) { (t.*member)(key, c, s); });
}

bool RowLabel(QBuiltinCall& call, bool& succeeded) {
    return ServeKey(call, succeeded, &QAnyValue::ROWLABELit);
}

bool ColLabel(QBuiltinCall& call, bool& succeeded) {
    return ServeKey(call, succeeded, &QAnyValue::COLLABELit);
}

bool RowValues(QBuiltinCall& call, bool& succeeded) {
    return ServeKey(call, succeeded, &QAnyValue::ROWVALUESit);
}

bool ColValues(QBuiltinCall& call, bool& succeeded) {
    return ServeKey(call, succeeded, &QAnyValue::COLVALUESit);
}

bool RowValuesByIndex(QBuiltinCall& call, bool& succeeded) {
    return ServeKey(call, succeeded, &QAnyValue::ROWVALUESBYINDEXit);
}

bool ColValuesByIndex(QBuiltinCall& call, bool& succeeded) {
    return ServeKey(call, succeeded, &QAnyValue::COLVALUESBYINDEXit);
}

bool RowLabels(QBuiltinCall& call, bool& succeeded) {
    return Serve(call, succeeded,
                 [](QAnyValue& t, QFormulaContext* c, QCacheState* s) { t.ROWLABELSit(c, s); });
}

bool ColLabels(QBuiltinCall& call, bool& succeeded) {
    return Serve(call, succeeded,
                 [](QAnyValue& t, QFormulaContext* c, QCacheState* s) { t.COLLABELSit(c, s); });
}

using ForValMember = QAnyValue& (QAnyValue::*)(const QAnyValue&, bool, QFormulaContext*,
                                               QCacheState*);

// rowlabelsforval(t [, v = empty [, same = true]])
bool ServeForVal(QBuiltinCall& call, bool& succeeded, ForValMember member) {
    const auto& a = call.args;
    if (a.size() == 1)
        return WithDefault(call, QAnyValue(), succeeded);
    if (a.size() == 2)
        return WithDefault(call, QAnyValue(true), succeeded);
    bool same = true;
    if (!Flag(call, 2, same, succeeded))
        return true;
    return Serve(call, succeeded, [&](QAnyValue& t, QFormulaContext* c, QCacheState* s) {
        (t.*member)(a[1], same, c, s);
    });
}

bool RowLabelsForVal(QBuiltinCall& call, bool& succeeded) {
    return ServeForVal(call, succeeded, &QAnyValue::ROWLABELSFORVALit);
}

bool ColLabelsForVal(QBuiltinCall& call, bool& succeeded) {
    return ServeForVal(call, succeeded, &QAnyValue::COLLABELSFORVALit);
}

using ForKeyMember = QAnyValue& (QAnyValue::*)(const QAnyValue&, const QAnyValue&, bool,
                                               QFormulaContext*, QCacheState*);

// rowlabelsforcol(t, c [, v = empty [, same = true]])
bool ServeForKey(QBuiltinCall& call, bool& succeeded, ForKeyMember member) {
    const auto& a = call.args;
    if (a.size() == 2)
        return WithDefault(call, QAnyValue(), succeeded);
    if (a.size() == 3)
        return WithDefault(call, QAnyValue(true), succeeded);
    bool same = true;
    if (!Flag(call, 3, same, succeeded))
        return true;
    return Serve(call, succeeded, [&](QAnyValue& t, QFormulaContext* c, QCacheState* s) {
        (t.*member)(a[1], a[2], same, c, s);
    });
}

bool RowLabelsForCol(QBuiltinCall& call, bool& succeeded) {
    return ServeForKey(call, succeeded, &QAnyValue::ROWLABELSFORCOLit);
}

bool ColLabelsForRow(QBuiltinCall& call, bool& succeeded) {
    return ServeForKey(call, succeeded, &QAnyValue::COLLABELSFORROWit);
}

using TwoTestsMember = QAnyValue& (QAnyValue::*)(const QAnyValue&, const QAnyValue&, bool,
                                                 const QAnyValue&, const QAnyValue&, bool,
                                                 QFormulaContext*, QCacheState*);

// Two tests: (t, k1, k2) against empty cells, (t, k1, v1, k2, v2) for equal cells, or
// (t, k1, v1, same1, k2, v2, same2).
bool ServeTwoTests(QBuiltinCall& call, bool& succeeded, TwoTestsMember member) {
    const auto& a = call.args;
    QAnyValue key1, value1, key2, value2;
    bool same1 = true;
    bool same2 = true;
    switch (a.size()) {
    case 3:
        key1 = a[1];
        key2 = a[2];
        break;
    case 5:
        key1 = a[1];
        value1 = a[2];
        key2 = a[3];
        value2 = a[4];
        break;
    case 7:
        if (!Flag(call, 3, same1, succeeded) || !Flag(call, 6, same2, succeeded))
            return true;
        key1 = a[1];
        value1 = a[2];
        key2 = a[4];
        value2 = a[5];
        break;
    default:
        return false;
    }
    return Serve(call, succeeded, [&](QAnyValue& t, QFormulaContext* c, QCacheState* s) {
        (t.*member)(key1, value1, same1, key2, value2, same2, c, s);
    });
}

bool RowLabelsForCol2(QBuiltinCall& call, bool& succeeded) {
    return ServeTwoTests(call, succeeded, &QAnyValue::ROWLABELSFORCOL2it);
}

bool ColLabelsForRow2(QBuiltinCall& call, bool& succeeded) {
    return ServeTwoTests(call, succeeded, &QAnyValue::COLLABELSFORROW2it);
}

using FilterMember = QAnyValue& (QAnyValue::*)(const QAnyValue&, const QAnyValue&, const QAnyValue&,
                                               bool, QFormulaContext*, QCacheState*);

// rowvaluesfilterbyrow2(t, r, filter, value [, same = true])
bool ServeFilter(QBuiltinCall& call, bool& succeeded, FilterMember member) {
    const auto& a = call.args;
    if (a.size() == 4)
        return WithDefault(call, QAnyValue(true), succeeded);
    bool same = true;
    if (!Flag(call, 4, same, succeeded))
        return true;
    return Serve(call, succeeded, [&](QAnyValue& t, QFormulaContext* c, QCacheState* s) {
        (t.*member)(a[1], a[2], a[3], same, c, s);
    });
}

bool RowValuesFilterByRow2(QBuiltinCall& call, bool& succeeded) {
    return ServeFilter(call, succeeded, &QAnyValue::ROWVALUESFILTERBYROW2it);
}

bool ColValuesFilterByCol2(QBuiltinCall& call, bool& succeeded) {
    return ServeFilter(call, succeeded, &QAnyValue::COLVALUESFILTERBYCOL2it);
}

// An edit is never kept in a formula cache: each call must reach the table again.
bool ServeEdit(QBuiltinCall& call, bool& succeeded, const Member& member) {
    call.evaluator.RaiseCacheState(QCS_NotCacheable);
    return Serve(call, succeeded, member);
}

bool AddRow(QBuiltinCall& call, bool& succeeded) {
    const QAnyValue& label = call.args[1];
    return ServeEdit(call, succeeded,
                     [&](QAnyValue& t, QFormulaContext*, QCacheState*) { t.ADDROWit(label); });
}

bool RemoveRow(QBuiltinCall& call, bool& succeeded) {
    const QAnyValue& label = call.args[1];
    return ServeEdit(call, succeeded, [&](QAnyValue& t, QFormulaContext* c, QCacheState*) {
        t.REMOVEROWit(label, c);
    });
}

bool RemoveRowByIndex(QBuiltinCall& call, bool& succeeded) {
    const QAnyValue& index = call.args[1];
    return ServeEdit(call, succeeded, [&](QAnyValue& t, QFormulaContext*, QCacheState*) {
        t.REMOVEROWBYINDEXit(index);
    });
}

// addcol(t, label [, type = 0])
bool AddCol(QBuiltinCall& call, bool& succeeded) {
    const auto& a = call.args;
    if (a.size() == 2)
        return WithDefault(call, QAnyValue(0), succeeded);
    if (a[2].IsErrorOrNA())
        return Give(call, a[2], succeeded);
    return ServeEdit(call, succeeded,
                     [&](QAnyValue& t, QFormulaContext*, QCacheState*) { t.ADDCOLit(a[1], a[2]); });
}

bool RemoveCol(QBuiltinCall& call, bool& succeeded) {
    const QAnyValue& label = call.args[1];
    return ServeEdit(call, succeeded, [&](QAnyValue& t, QFormulaContext* c, QCacheState*) {
        t.REMOVECOLit(label, c);
    });
}

bool RemoveColByIndex(QBuiltinCall& call, bool& succeeded) {
    const QAnyValue& index = call.args[1];
    return ServeEdit(call, succeeded, [&](QAnyValue& t, QFormulaContext*, QCacheState*) {
        t.REMOVECOLBYINDEXit(index);
    });
}

constexpr QBuiltinFunction c_functions[] = {
    {u"lookup", 3, 4, u"t, r, c [, x]", false, Lookup},
    {u"lookupexact", 3, 4, u"t, r, c [, x]", false, LookupExact},
    {u"lookupbyindex", 3, 4, u"t, r, c [, x]", false, LookupByIndex},
    {u"rowcount", 1, 1, u"t", false, RowCount},
    {u"colcount", 1, 1, u"t", false, ColCount},
    {u"rowlabel", 2, 2, u"t, i", false, RowLabel},
    {u"collabel", 2, 2, u"t, i", false, ColLabel},
    {u"rowlabels", 1, 1, u"t", false, RowLabels},
    {u"collabels", 1, 1, u"t", false, ColLabels},
    {u"rowvalues", 2, 2, u"t, label", false, RowValues},
    {u"colvalues", 2, 2, u"t, label", false, ColValues},
    {u"rowvaluesbyindex", 2, 2, u"t, i", false, RowValuesByIndex},
    {u"colvaluesbyindex", 2, 2, u"t, i", false, ColValuesByIndex},
    {u"rowlabelsforval", 1, 3, u"t [, v = empty [, same = true]]", false, RowLabelsForVal},
    {u"collabelsforval", 1, 3, u"t [, v = empty [, same = true]]", false, ColLabelsForVal},
    {u"rowlabelsforcol", 2, 4, u"t, c [, v = empty [, same = true]]", false, RowLabelsForCol},
    {u"collabelsforrow", 2, 4, u"t, r [, v = empty [, same = true]]", false, ColLabelsForRow},
    {u"rowlabelsforcol2", 3, 7, u"t, c1, [v1, [same1,]] c2 [, v2 [, same2]]", false,
     RowLabelsForCol2},
    {u"collabelsforrow2", 3, 7, u"t, r1, [v1, [same1,]] r2 [, v2 [, same2]]", false,
     ColLabelsForRow2},
    {u"rowvaluesfilterbyrow2", 4, 5, u"t, r, filter, v [, same = true]", false,
     RowValuesFilterByRow2},
    {u"colvaluesfilterbycol2", 4, 5, u"t, c, filter, v [, same = true]", false,
     ColValuesFilterByCol2},
    {u"addrow", 2, 2, u"t, label", false, AddRow},
    {u"removerow", 2, 2, u"t, label", false, RemoveRow},
    {u"removerowbyindex", 2, 2, u"t, i", false, RemoveRowByIndex},
    {u"addcol", 2, 3, u"t, label [, type = 0]", false, AddCol},
    {u"removecol", 2, 2, u"t, label", false, RemoveCol},
    {u"removecolbyindex", 2, 2, u"t, i", false, RemoveColByIndex},
};

} // namespace

void builtin::TraceCall(const QBuiltinCall& call, const QAnyValue& value) {
    if (!IsTracing(USER_TRACE_EVALUATIONS))
        return;
    CString name = call.name.ToString();
    name.MakeUpper();
    CString text = name + u'(';
    for (std::size_t i = 0; i < call.args.size(); ++i) {
        if (i > 0)
            text += u", ";
        text += ValueToString(call.args[i]);
    }
    UserTraceWriteLine(text + u") = " + ValueToString(value));
    if (value.IsErrorOrNA())
        UserTraceWriteLine(name + u" ERROR");
}

const QBuiltinGroup& TableFunctions() {
    static const QBuiltinGroup group{u"Lookup tables", c_functions};
    return group;
}

} // namespace keel
