#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"

namespace keel {

// Values that an object answers by name for the formulas of the context that owns it, beside the
// context's own properties: the context's InThis hooks ask it before they give up on a name.
class QNamedValues {
public:
    virtual ~QNamedValues() = default;

    // False when the object has no value of that name.
    virtual bool Lookup(QAnyValue& value, const CString& name) = 0;
    // False when the object has no value of that name or cannot hold the value.
    virtual bool Set(const QAnyValue& value, const CString& name) = 0;
};

} // namespace keel
