#pragma once

#include "keel/formula/toplevelcontext.h"
#include "keel/platform/cstring.h"
#include "keel/questions/properties.h"

namespace keel::tool {

// The root of the program's one tree of contexts: the formulas of a command run in it, and the
// properties given with --set live on it.
class QRootContext : public QTopLevelFormulaContext {
public:
    QRootContext();
    ~QRootContext() override;

    CString SimpleTypeName() const override;
    QProperties* Properties() const override;
    // A value below that catches up with a change puts the root in step with its own counter;
    // since this root holds properties itself, its value caches must go at that moment, as any
    // other context's do when it is found behind.
    void OnNotifyChildMadeUpToDate() const override;
    // The program keeps no undo and has no screen to refresh: a change needs nothing from it.
    void ProcessPreChangeFromChildHelper() override {}
    void ProcessChangedFromChildHelper() override {}

private:
    // Properties() hands the bag out from a const context.
    mutable QProperties m_properties{this};
};

} // namespace keel::tool
