#include "tools/keel/rootcontext.h"

namespace keel::tool {

QRootContext::QRootContext() = default;

QRootContext::~QRootContext() = default;

CString QRootContext::SimpleTypeName() const {
    return CString(u"Root");
}

QProperties* QRootContext::Properties() const {
    return &m_properties;
}

void QRootContext::OnNotifyChildMadeUpToDate() const {
    if (!IsUpToDate())
        OnEnsureUpToDate();
    QTopLevelFormulaContext::OnNotifyChildMadeUpToDate();
}

} // namespace keel::tool
