#pragma once

#include "keel/values/anyvalue.h"
#include "keel/values/stringunique.h"

#include <span>

namespace keel {

// Values kept in data files (the value column of an import file, the cells of a table file) are
// formula texts, evaluated when the file is read. A reader holds one of these while it evaluates
// them: as long as one is alive on a thread, every evaluation on that thread, however deeply
// nested (eval, call, a table read on the way), refuses the functions that would act outside the
// value being read (run a program, reach a database, change a file, a context or a shared table,
// or ask the user) as action-only functions are refused outside an action field. Guards nest;
// other threads are not affected.
//
// An application whose own evaluator serves further functions of that kind refuses them itself
// while InForce is true.
class QEvaluatingData {
public:
    QEvaluatingData();
    ~QEvaluatingData();
    QEvaluatingData(const QEvaluatingData&) = delete;
    QEvaluatingData& operator=(const QEvaluatingData&) = delete;

    // Whether a guard is alive on this thread.
    static bool InForce();
    // Whether the function is refused while a guard is in force.
    static bool Refuses(FullId function);
    // The names Refuses is true for, in lower case.
    static std::span<const char16_t* const> RefusedFunctions();
    // A data file's formula text evaluated in no context under a guard, spelled as written.
    static QAnyValue Evaluate(const CString& text);
};

} // namespace keel
