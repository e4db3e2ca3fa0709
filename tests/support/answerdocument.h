#pragma once

#include "keel/formula/toplevelcontext.h"
#include "keel/questions/properties.h"

#include <functional>

namespace keel::test {

// The top-level context of an application with answers of its own, and the two helpers that the
// application writes: each counts its calls, and a change may run `onChanged` besides.
class AnswerDocument : public QTopLevelFormulaContext {
public:
    CString SimpleTypeName() const override { return u"Document"; }
    QProperties* Properties() const override { return &m_answers; }
    void ProcessPreChangeFromChildHelper() override { ++m_preChanges; }
    void ProcessChangedFromChildHelper() override {
        ++m_changes;
        if (onChanged)
            onChanged();
    }

    QProperties& Answers() { return m_answers; }

    int m_preChanges = 0;
    int m_changes = 0;
    std::function<void()> onChanged;

private:
    mutable QProperties m_answers{this};
};

} // namespace keel::test
