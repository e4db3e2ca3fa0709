#pragma once

#include "keel/values/anyvalue.h"
#include "keel/values/stringunique.h"

#include <cstddef>
#include <span>
#include <vector>

namespace keel {

class QEvaluator;

// One call of a built-in function, its arguments evaluated and any array already spread.
struct QBuiltinCall {
    QEvaluator& evaluator;
    QAnyValue& result;
    FullId name;
    const std::vector<QAnyValue>& args;

    std::size_t Count() const { return args.size(); }

    // The argument converted by QAnyValue::Make<T>. False when it is, or became on the way, an
    // error or N/A: the result is then that value, as the value functions pass errors on.
    template <class T>
    bool Get(std::size_t i, T& value) {
        QAnyValue copy(args[i]);
        value = copy.Make<T>();
        if (!copy.IsErrorOrNA())
            return true;
        result = copy;
        return false;
    }
};

// A body runs the function for the count of `call.args`: it returns false when it has no body
// for that count (the dispatcher then tries the application's extras and reports the count),
// else true with the call's success in `succeeded`.
using QBuiltinBody = bool (*)(QBuiltinCall& call, bool& succeeded);

// One row of the function list, and of `keel help functions`. The dispatcher calls the body only
// for a count from minArgs to maxArgs, and refuses an action-only function outside an action
// field before the body runs. A row without a body is a name reserved for applications.
struct QBuiltinFunction {
    const char16_t* name;
    int minArgs;
    int maxArgs;
    const char16_t* arguments;
    bool actionOnly;
    QBuiltinBody body;
};

// maxArgs of the functions that take any number of arguments.
constexpr int c_builtinAnyCount = -1;

struct QBuiltinGroup {
    const char16_t* title;
    std::span<const QBuiltinFunction> functions;
};

// functionslogic.cpp: the functions of no arguments.
const QBuiltinGroup& LogicFunctions();
// functionsconversions.cpp: conversions and tests.
const QBuiltinGroup& ConversionFunctions();
// functionsmath.cpp
const QBuiltinGroup& MathFunctions();
// functionsstrings.cpp
const QBuiltinGroup& StringFunctions();
// functionsarrays.cpp
const QBuiltinGroup& ArrayFunctions();
// functionstables.cpp: the lookup-table functions.
const QBuiltinGroup& TableFunctions();
// functionsfiles.cpp
const QBuiltinGroup& FileFunctions();
// functionsdatabase.cpp: the `db` functions, through the application's database access.
const QBuiltinGroup& DatabaseFunctions();
// functionscontext.cpp: variables, contexts and actions.
const QBuiltinGroup& ContextFunctions();
// functionswindows.cpp: dialogs and message boxes.
const QBuiltinGroup& WindowFunctions();
// evaluatorfunctions.cpp: the names an application's evaluator serves in its extras.
const QBuiltinGroup& ApplicationFunctions();

// evaluatorfunctions.cpp: the functions that parse their own arguments (name and argument words
// for help; they have no body row and are not in the known-function map).
const QBuiltinGroup& VariableArgumentFunctions();

// Every group of the known-function map, in the order the dispatcher searches them.
std::span<const QBuiltinGroup* const> BuiltinGroups();

// The row of a name of the known-function map; null for any other name.
const QBuiltinFunction* FindBuiltinFunction(FullId name);
int KnownFunctionCount();

// A body that serves every count its row allows; `Body` returns the call's success.
template <bool (*Body)(QBuiltinCall&)>
bool ServeAlways(QBuiltinCall& call, bool& succeeded) {
    succeeded = Body(call);
    return true;
}

// The rule of the value functions for a body that calls none: the first argument that is an
// error or N/A becomes the result, and true is returned.
bool TakeErrorArgument(QBuiltinCall& call);

// A body that has a default for its last argument re-enters the dispatcher of the next larger
// count with it.
bool CallWithDefault(QBuiltinCall& call, const QAnyValue& defaultValue);

// The small steps that many bodies share.
namespace builtin {

inline QAnyValue ErrorValue(const CString& message) {
    QAnyValue value;
    value.MakeError(message);
    return value;
}

// The call gives `value` and succeeded.
inline bool Done(QBuiltinCall& call, const QAnyValue& value, bool& succeeded) {
    call.result = value;
    succeeded = true;
    return true;
}

// The call re-enters with `defaultValue` for its missing last argument.
inline bool WithDefault(QBuiltinCall& call, const QAnyValue& defaultValue, bool& succeeded) {
    succeeded = CallWithDefault(call, defaultValue);
    return true;
}

// The display text of a value.
inline CString Text(const QAnyValue& value) {
    return QAnyValue(value).MakeCString();
}

// With evaluations traced, the trace lines of a call of a table or database function:
// "LOOKUP(prices, 7, b) = $4.00", and "LOOKUP ERROR" after one that gave an error or N/A.
void TraceCall(const QBuiltinCall& call, const QAnyValue& value);

// The items of `folder` in the library folder `library` (which ends in "/") for `librarylist`:
// see QEvaluatorFactory::LibraryList.
CString ListLibraryItems(const CString& library, const CString& folder, const CString& filter,
                         const CString& separator, const CString& type);

} // namespace builtin

} // namespace keel
