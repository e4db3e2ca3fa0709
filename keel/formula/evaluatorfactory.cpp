#include "keel/formula/evaluatorfactory.h"

#include <atomic>

namespace keel {

namespace {

std::atomic<QEvaluatorFactory*> g_evaluatorFactory{nullptr};

} // namespace

QEvaluatorFactory* SetEvaluatorFactory(QEvaluatorFactory* factory) {
    return g_evaluatorFactory.exchange(factory);
}

QEvaluatorFactory* GetEvaluatorFactory() {
    return g_evaluatorFactory.load();
}

} // namespace keel
