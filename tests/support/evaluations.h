#pragma once

#include "tests/support/anyvalues.h"

#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace keel::test {

// What one evaluation gave: whether it succeeded, its value, its message and its cache state.
struct Evaluation {
    bool ok = false;
    QAnyValue value;
    std::string message;
    QCacheState state = QCS_Stable;

    // The value's text, its error message after "#ERR ", or the failure after "failed: ".
    std::string Shown() const {
        if (!ok)
            return "failed: " + message;
        if (value.IsError())
            return "#ERR " + MessageOf(value);
        return QAnyValue(value).MakeCString().ToUtf8();
    }
};

struct EvaluationFlags {
    bool report = false;
    bool action = false;
    bool passThrough = false;
    bool eval = true; // false: the syntax alone is checked
};

// Evaluates the formula with an evaluator of the installed factory.
inline Evaluation Evaluated(const std::string& formula, QFormulaContext* context = nullptr,
                            EvaluationFlags flags = {}) {
    Evaluation outcome;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(outcome.value, FormulaText(CString::FromUtf8(formula)), context,
                        flags.passThrough, flags.report, flags.action));
    outcome.ok = flags.eval ? evaluator->Evaluate() : evaluator->EvaluateNoEval();
    outcome.message = evaluator->Message().ToUtf8();
    outcome.state = evaluator->CacheState();
    return outcome;
}

// A factory of evaluators of class E that writes down what each was made with; its folders are
// those `folders` gives (none when it is empty).
template <class E = QEvaluator>
class EvaluatorFactoryOf : public QEvaluatorFactory {
public:
    struct Made {
        std::string formula;
        QFormulaContext* context;
        bool passThrough;
        bool report;
        bool action;
    };

    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        made.push_back({formula.ToString().ToUtf8(), context, passThrough, reportErrors, isAction});
        return new E(result, formula, context, passThrough, reportErrors, isAction);
    }
    CString FolderForConstant(QConstantFolder folder) const override {
        return folders ? folders(folder) : CString();
    }

    std::function<CString(QConstantFolder)> folders;
    std::vector<Made> made;
};

// Installs a factory for a scope, and the one it replaced again after it.
class ScopedEvaluatorFactory {
public:
    explicit ScopedEvaluatorFactory(QEvaluatorFactory& factory)
        : m_previous(SetEvaluatorFactory(&factory)) {}
    ~ScopedEvaluatorFactory() { SetEvaluatorFactory(m_previous); }
    ScopedEvaluatorFactory(const ScopedEvaluatorFactory&) = delete;
    ScopedEvaluatorFactory& operator=(const ScopedEvaluatorFactory&) = delete;

private:
    QEvaluatorFactory* m_previous;
};

} // namespace keel::test
