#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"

namespace keel {

namespace {

using namespace builtin;

// Gives the call its result; the functions of this group do not fail the evaluation.
// An error or N/A given where a whole number is wanted becomes the result, as a value operation
// would make it.
bool ErrorAsPosition(QBuiltinCall& call, std::size_t index, bool& succeeded) {
    const QAnyValue& position = call.args[index];
    return position.IsErrorOrNA() && Done(call, position, succeeded);
}

int Position(const QBuiltinCall& call, std::size_t index) {
    return QAnyValue(call.args[index]).MakeInt();
}

bool Count(QBuiltinCall& call, bool& succeeded) {
    return Done(call, call.args[0].GETSIZE(), succeeded);
}

bool First(QBuiltinCall& call, bool& succeeded) {
    if (call.args.size() == 1) {
        succeeded = CallWithDefault(call, QAnyValue(1));
        return true;
    }
    return ErrorAsPosition(call, 1, succeeded) ||
           Done(call, call.args[0].FIRST(Position(call, 1)), succeeded);
}

bool Last(QBuiltinCall& call, bool& succeeded) {
    if (call.args.size() == 1) {
        succeeded = CallWithDefault(call, QAnyValue(1));
        return true;
    }
    return ErrorAsPosition(call, 1, succeeded) ||
           Done(call, call.args[0].LAST(Position(call, 1)), succeeded);
}

// Without a count, the rest of the array from the start.
bool Middle(QBuiltinCall& call, bool& succeeded) {
    if (call.args.size() == 2) {
        succeeded = CallWithDefault(call, call.args[0].GetSize());
        return true;
    }
    return ErrorAsPosition(call, 1, succeeded) || ErrorAsPosition(call, 2, succeeded) ||
           Done(call, call.args[0].MIDDLE(Position(call, 1), Position(call, 2)), succeeded);
}

bool GetAt(QBuiltinCall& call, bool& succeeded) {
    return ErrorAsPosition(call, 1, succeeded) ||
           Done(call, call.args[0].GETAT(Position(call, 1)), succeeded);
}

bool Reverse(QBuiltinCall& call, bool& succeeded) {
    return Done(call, call.args[0].REVERSE(), succeeded);
}

bool Sort(QBuiltinCall& call, bool& succeeded) {
    return Done(call, call.args[0].SORT(), succeeded);
}

bool Uniq(QBuiltinCall& call, bool& succeeded) {
    return Done(call, call.args[0].UNIQ(), succeeded);
}

bool ComparesEqual(const QAnyValue& a, const QAnyValue& b) {
    bool failed = false;
    const int order = a.Compare(b, failed);
    return !failed && order == 0;
}

// The elements that differ from the value given, by default the empty value.
bool Compact(QBuiltinCall& call, bool& succeeded) {
    if (call.args.size() == 1) {
        succeeded = CallWithDefault(call, QAnyValue());
        return true;
    }
    if (call.args[0].IsErrorOrNA())
        return Done(call, call.args[0], succeeded);
    QAnyValue elements = call.args[0];
    QAnyValue kept{QArray<QAnyValue>()};
    for (const QAnyValue& element : elements.MakeArray())
        if (!ComparesEqual(element, call.args[1]))
            kept.APPENDITEMit(element);
    return Done(call, kept, succeeded);
}

// The array variable named by text: a local variable of the formula, else a name of the context.
// `local` tells which one it was.
bool FindArrayVariable(QEvaluator& evaluator, const CString& name, QAnyValue& value, bool& local) {
    local = name.Find(u'.') < 0 && evaluator.GetVar(PropId(name), value);
    if (!local) {
        QFormulaContext* context = evaluator.Context();
        bool error = false;
        QCacheState state = QCS_Stable;
        if (!context ||
            !context->LookupValue(FullId(name), value, error, state, evaluator.IsPassThrough(),
                                  evaluator.IsDebug(), false) ||
            error)
            return false;
    }
    return value.IsArray();
}

// setarrayvalue(name, i, v): the element changes in the variable itself, which holds the new
// array afterwards; that array is also the result.
bool SetArrayValue(QBuiltinCall& call, bool& succeeded) {
    const CString name = QAnyValue(call.args[0]).MakeCString();
    QAnyValue array;
    bool local = false;
    if (!FindArrayVariable(call.evaluator, name, array, local))
        return Done(call, ErrorValue(u"param1 not a valid array name [" + name + u"]"), succeeded);
    if (ErrorAsPosition(call, 1, succeeded))
        return true;
    array.SETARRAYVALUEit(Position(call, 1), call.args[2]);
    if (array.IsError())
        return Done(call, array, succeeded);
    if (local)
        call.evaluator.SetVar(PropId(name), array);
    else if (!call.evaluator.Context()->SetValue(FullId(name), array))
        array.MakeError(u"Failed to set new value for " + name);
    return Done(call, array, succeeded);
}

} // namespace

const QBuiltinGroup& ArrayFunctions() {
    static constexpr QBuiltinFunction functions[] = {
        {u"count", 1, 1, u"a", false, Count},
        {u"first", 1, 2, u"a [, n = 1]", false, First},
        {u"last", 1, 2, u"a [, n = 1]", false, Last},
        {u"middle", 2, 3, u"a, i [, n = to the end]", false, Middle},
        {u"getat", 2, 2, u"a, i", false, GetAt},
        {u"reverse", 1, 1, u"a", false, Reverse},
        {u"sort", 1, 1, u"a", false, Sort},
        {u"uniq", 1, 1, u"a", false, Uniq},
        {u"compact", 1, 2, u"a [, v = empty]", false, Compact},
        {u"setarrayvalue", 3, 3, u"name, i, v", true, SetArrayValue},
    };
    static const QBuiltinGroup group{u"Arrays", functions};
    return group;
}

} // namespace keel
