#pragma once

#include "keel/formula/toplevelcontext.h"
#include "keel/questions/properties.h"

#include <functional>

namespace keel::test {

// The top-level context of an application with answers of its own. The helper that the
// application writes for a change counts its calls and may run `onChanged` besides.
class AnswerDocument : public QTopLevelFormulaContext {
public:
    CString SimpleTypeName() const override { return u"Document"; }
    QProperties* Properties() const override { return &m_answers; }
    void ProcessPreChangeFromChildHelper() override {}
    void ProcessChangedFromChildHelper() override {
        ++m_changes;
        if (onChanged)
            onChanged();
    }

    QProperties& Answers() { return m_answers; }

    int m_changes = 0;
    std::function<void()> onChanged;

private:
    mutable QProperties m_answers{this};
};

// A context under any parent whose answers are a QProperties of its own.
class AnswerContext : public QFormulaContext {
public:
    explicit AnswerContext(const char* type = "Box") : m_type(type) {}

    CString SimpleTypeName() const override { return m_type; }
    QProperties* Properties() const override { return &m_answers; }
    QFormulaContext* ParentContext() override { return m_parent; }
    const QFormulaContext* ParentContext() const override { return m_parent; }
    void DoSetParentContextAlways(QFormulaContext* parent) override { m_parent = parent; }

    QProperties& Answers() { return m_answers; }

private:
    CString m_type;
    QFormulaContext* m_parent = nullptr;
    mutable QProperties m_answers{this};
};

} // namespace keel::test
