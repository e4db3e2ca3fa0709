#include "tools/keel/rootcontext.h"

#include "keel/exchange/exportformatlevel.h"
#include "keel/exchange/importformatlevel.h"

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

CString QRootContext::GetImportExportLevelName() const {
    return SimpleTypeName();
}

bool QRootContext::AddAttributesAndChildrenToExport(QExportFormatLevel& level) const {
    return level.AddExportable(&m_properties, false);
}

bool QRootContext::ImportAttributesAndChildren(QImportFormatLevel& level) {
    const BatchNotifications batch(this);
    return level.MergeImportableIfPresent(&m_properties);
}

} // namespace keel::tool
