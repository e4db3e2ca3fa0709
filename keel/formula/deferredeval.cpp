#include "keel/formula/deferredeval.h"

#include "keel/document/appservices.h"
#include "keel/formula/withformula.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <pthread.h>
#include <thread>

namespace keel {

namespace QDeferredEval {

CCriticalSection c_csDeferredEvalCriticalSection;
CCriticalSection c_csDeleted;
std::map<const void*, std::unique_ptr<PendingEvaluationBase>> c_mpPending;
std::deque<const void*> c_qDeleted;

namespace {

constexpr char c_workerName[] = "EnsureUpToDateWorker";

thread_local bool t_bDeferred = false;
std::atomic<long> c_nGuards{0};
// The size of c_mpPending, readable without the lock: a value that dies while nothing is pending
// (the common case) takes no lock.
std::atomic<std::size_t> c_nPending{0};
std::atomic<long> c_nWorkerEvaluations{0};
std::atomic<ValueChangedHandler> c_valueChangedHandler{nullptr};

bool IsApplicationQuitting() {
    return AppServices().IsClosing();
}

// Under c_csDeferredEvalCriticalSection, after each change of the map.
void NotePendingCount() {
    c_nPending.store(c_mpPending.size());
}

// Under c_csDeferredEvalCriticalSection.
void DropDeletedValues() {
    CSingleLock deletedLock(&c_csDeleted, true);
    for (const void* address : c_qDeleted)
        c_mpPending.erase(address);
    c_qDeleted.clear();
    NotePendingCount();
}

// Under c_csDeferredEvalCriticalSection.
bool IsQueuedAsDeleted(const void* address) {
    CSingleLock deletedLock(&c_csDeleted, true);
    return std::find(c_qDeleted.begin(), c_qDeleted.end(), address) != c_qDeleted.end();
}

// One round. A value cannot die while it is evaluated here: its destructor needs
// c_csDeferredEvalCriticalSection to queue itself. False when nothing was left to do.
bool RunOnePendingEvaluation() {
    CSingleLock evalLock(&c_csDeferredEvalCriticalSection, true);
    DropDeletedValues();
    if (c_mpPending.empty())
        return false;
    const auto first = c_mpPending.begin();
    const void* address = first->first;
    PendingEvaluationBase& pending = *first->second;
    const QAnyValue before = pending.Value();
    pending.Run();
    ++c_nWorkerEvaluations;
    const bool changed = !before.Identical(pending.Value());
    c_mpPending.erase(address);
    NotePendingCount();
    if (changed) {
        if (ValueChangedHandler handler = c_valueChangedHandler.load())
            handler(address);
    }
    return true;
}

bool IsMapEmpty() {
    CSingleLock evalLock(&c_csDeferredEvalCriticalSection, true);
    return c_mpPending.empty();
}

// The worker thread: started when the last guard goes and evaluations are pending, ended when
// nothing is left (or the application is quitting); it can be started again.
class Worker {
public:
    ~Worker() {
        m_bStopping.store(true);
        Join();
    }

    void StartIfIdle() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_bRunning.load())
            return;
        if (m_thread.joinable())
            m_thread.join();
        m_bRunning.store(true);
        m_thread = std::thread([this] { Loop(); });
    }

    void Join() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_thread.joinable())
            m_thread.join();
    }

private:
    void Loop() {
        SetThreadName();
        while (!m_bStopping.load() && !IsApplicationQuitting() && RunOnePendingEvaluation())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        m_bRunning.store(false);
    }

    // The system keeps 15 characters of a thread's name.
    static void SetThreadName() {
        char name[16] = {};
        std::copy_n(c_workerName, sizeof(name) - 1, name);
        pthread_setname_np(pthread_self(), name);
    }

    std::mutex m_mutex;
    std::thread m_thread;
    std::atomic<bool> m_bRunning{false};
    std::atomic<bool> m_bStopping{false};
};

// Last in this file: it is destroyed first, and stops the worker before the maps go.
Worker c_worker;

void StartWorkerIfPending() {
    if (!IsMapEmpty())
        c_worker.StartIfIdle();
}

} // namespace

void PendingEvaluation<const QWithFormula<QAnyValue, 0>>::Run() {
    if (m_pValue)
        m_pValue->EnsureUpToDate();
}

QAnyValue PendingEvaluation<const QWithFormula<QAnyValue, 0>>::Value() const {
    return m_pValue ? m_pValue->ValueNoEnsureUpToDate() : QAnyValue();
}

bool IsDeferred() {
    return t_bDeferred;
}

bool HasPendingEvaluation(const void* address) {
    CSingleLock evalLock(&c_csDeferredEvalCriticalSection, true);
    return c_mpPending.contains(address) && !IsQueuedAsDeleted(address);
}

void RemovePendingEvaluation(const void* address) {
    if (c_nPending.load() == 0)
        return;
    CSingleLock evalLock(&c_csDeferredEvalCriticalSection, true);
    if (!c_mpPending.contains(address))
        return;
    CSingleLock deletedLock(&c_csDeleted, true);
    c_qDeleted.push_back(address);
}

void RemoveAllPendingEvaluations() {
    CSingleLock evalLock(&c_csDeferredEvalCriticalSection, true);
    CSingleLock deletedLock(&c_csDeleted, true);
    c_mpPending.clear();
    c_qDeleted.clear();
    NotePendingCount();
}

void AddPendingEvaluation(const QWithFormula<QAnyValue, 0>* value) {
    CSingleLock evalLock(&c_csDeferredEvalCriticalSection, true);
    // A dead value's entry under the same address goes first.
    DropDeletedValues();
    if (c_mpPending.contains(value))
        return;
    c_mpPending.emplace(
        value, std::make_unique<PendingEvaluation<const QWithFormula<QAnyValue, 0>>>(value));
    NotePendingCount();
}

void SetValueChangedHandler(ValueChangedHandler handler) {
    c_valueChangedHandler.store(handler);
}

long WorkerEvaluationCount() {
    return c_nWorkerEvaluations.load();
}

void WaitForWorker() {
    c_worker.Join();
}

} // namespace QDeferredEval

QDeferEnsureUpToDateEvaluation::QDeferEnsureUpToDateEvaluation()
    : m_bWasDeferred(QDeferredEval::t_bDeferred) {
    QDeferredEval::t_bDeferred = true;
    if (++QDeferredEval::c_nGuards == 1)
        QDeferredEval::c_csDeferredEvalCriticalSection.Lock();
}

QDeferEnsureUpToDateEvaluation::~QDeferEnsureUpToDateEvaluation() {
    QDeferredEval::StartWorkerIfPending();
    if (--QDeferredEval::c_nGuards == 0)
        QDeferredEval::c_csDeferredEvalCriticalSection.Unlock();
    QDeferredEval::t_bDeferred = m_bWasDeferred;
}

long QDeferEnsureUpToDateEvaluation::GuardCount() {
    return QDeferredEval::c_nGuards.load();
}

} // namespace keel
