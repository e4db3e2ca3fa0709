#pragma once

#include "keel/platform/lock.h"
#include "keel/values/anyvalue.h"

#include <deque>
#include <map>
#include <memory>

namespace keel {

template <class T, int N>
class QWithFormula;

// Evaluation handed to the background worker "EnsureUpToDateWorker". Inside a deferred stretch
// (a QDeferEnsureUpToDateEvaluation guard alive on this thread) a value that is read while stale
// is not evaluated; it enters c_mpPending under its address, and the worker brings it up to date
// later, one evaluation at a time under c_csDeferredEvalCriticalSection.
namespace QDeferredEval {

class PendingEvaluationBase {
public:
    virtual ~PendingEvaluationBase() = default;
    virtual void Run() = 0;
    virtual QAnyValue Value() const = 0;
};

template <class T>
class PendingEvaluation;

template <>
class PendingEvaluation<const QWithFormula<QAnyValue, 0>> : public PendingEvaluationBase {
public:
    explicit PendingEvaluation(const QWithFormula<QAnyValue, 0>* value) : m_pValue(value) {}
    void Run() override;
    QAnyValue Value() const override;

private:
    const QWithFormula<QAnyValue, 0>* m_pValue;
};

// Held by the main thread while any guard lives, and by the worker for one evaluation.
extern CCriticalSection c_csDeferredEvalCriticalSection;
// Guards c_qDeleted.
extern CCriticalSection c_csDeleted;
// Under c_csDeferredEvalCriticalSection.
extern std::map<const void*, std::unique_ptr<PendingEvaluationBase>> c_mpPending;
// The addresses of values that died while pending; the worker drops them before it runs
// anything.
extern std::deque<const void*> c_qDeleted;

// Whether this thread is in a deferred stretch.
bool IsDeferred();
bool HasPendingEvaluation(const void* address);
// Queues the address in c_qDeleted, so that the worker drops the evaluation.
void RemovePendingEvaluation(const void* address);
void RemoveAllPendingEvaluations();
// Enters the value's evaluation unless one is pending already.
void AddPendingEvaluation(const QWithFormula<QAnyValue, 0>* value);

// Called by the worker, under c_csDeferredEvalCriticalSection, when an evaluation changed a
// value; the application sets it to pass the news to its user-interface thread.
using ValueChangedHandler = void (*)(const void* address);
void SetValueChangedHandler(ValueChangedHandler handler);

// The number of evaluations the worker has run; for watching it from outside.
long WorkerEvaluationCount();
// Waits until the worker has stopped, when it was started.
void WaitForWorker();

} // namespace QDeferredEval

// Makes a stretch of code deferred on this thread. The first guard of the process takes
// c_csDeferredEvalCriticalSection (waiting for the worker's current evaluation); the last one
// to go lets it go and starts the worker when evaluations are pending.
class QDeferEnsureUpToDateEvaluation {
public:
    QDeferEnsureUpToDateEvaluation();
    ~QDeferEnsureUpToDateEvaluation();
    QDeferEnsureUpToDateEvaluation(const QDeferEnsureUpToDateEvaluation&) = delete;
    QDeferEnsureUpToDateEvaluation& operator=(const QDeferEnsureUpToDateEvaluation&) = delete;

    // How many guards are alive in the process.
    static long GuardCount();

private:
    bool m_bWasDeferred;
};

} // namespace keel
