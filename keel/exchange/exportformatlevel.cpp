#include "keel/exchange/exportformatlevel.h"

#include "keel/exchange/importexport.h"

#include <string>
#include <utility>

namespace keel {

QExportFormatLevel::QExportFormatLevel(const QExportable& exportable, bool minimal,
                                       QSmartPtr<QExportSelection> selection)
    : m_exportable(exportable), m_minimal(minimal), m_selection(std::move(selection)) {}

const QNewLevelExportable* QExportFormatLevel::NewLevelExportable() const {
    return m_exportable.GetNewLevelExportable();
}

bool QExportFormatLevel::AddExportableAttribute(const QExportAttribute& attribute) {
    if (m_minimal && !m_arrayMode && attribute.HasDefaultValue() && !attribute.HasFormula() &&
        attribute.GetValue().Identical(attribute.GetDefaultValue()))
        return true;
    bool result;
    if (m_arrayMode) {
        QExportAttribute named(attribute);
        named.SetName(ArrayAttributeName(attribute.GetName(), m_arrayIndex));
        result = AddExportableAttributeInternal(named);
    } else {
        result = AddExportableAttributeInternal(attribute);
    }
    m_success = m_success || result;
    return result;
}

bool QExportFormatLevel::IsSelected(const QNewLevelExportable& child) const {
    return !m_selection || m_selection->Contains(child.GetExportableIdentifier());
}

bool QExportFormatLevel::AddExportable(const QExportable* child, bool force) {
    if (child == nullptr)
        return true;
    const QNewLevelExportable* newLevel = dynamic_cast<const QNewLevelExportable*>(child);
    if (newLevel) {
        if (!force && !IsSelected(*newLevel))
            return true;
        std::unique_ptr<QExportFormatLevel> subLevel = CreateSubLevel(*newLevel);
        return child->AddAttributesAndChildrenToExport(*subLevel);
    }
    if (!force)
        return child->AddAttributesAndChildrenToExport(*this);
    QSmartPtr<QExportSelection> setAside = std::exchange(m_selection, nullptr);
    const bool result = child->AddAttributesAndChildrenToExport(*this);
    m_selection = setAside;
    return result;
}

CString ArrayAttributeName(const CString& name, std::int32_t index) {
    // Asked for on every attribute of an array, in and out: built without the formatter.
    CString named = name;
    named += u'[';
    named += std::to_string(index).c_str();
    named += u']';
    return named;
}

} // namespace keel
