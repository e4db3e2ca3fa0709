#pragma once

#include "keel/exchange/exportattribute.h"
#include "keel/exchange/exportselection.h"
#include "keel/values/smartptr.h"

#include <cstdint>
#include <memory>

namespace keel {

class QExportable;
class QNewLevelExportable;

// One level of an export file under construction: the object it stands for takes attributes
// and children through it, and a format turns them into its syntax. The root level stands for
// the exported object, which need not open a level of its own.
class QExportFormatLevel {
public:
    QExportFormatLevel(const QExportable& exportable, bool minimal,
                       QSmartPtr<QExportSelection> selection);
    virtual ~QExportFormatLevel() = default;
    QExportFormatLevel(const QExportFormatLevel&) = delete;
    QExportFormatLevel& operator=(const QExportFormatLevel&) = delete;

    virtual std::unique_ptr<QExportFormatLevel>
    CreateSubLevel(const QNewLevelExportable& child) = 0;
    virtual bool AddExportableAttributeInternal(const QExportAttribute& attribute) = 0;

    // A minimal level leaves out an attribute without a formula whose value is its default; in
    // array mode the name becomes "name[index]".
    bool AddExportableAttribute(const QExportAttribute& attribute);
    // A child with a level of its own gets a sub-level, unless a selection leaves it out
    // (`force` sets the selection aside); any other child writes into this level.
    bool AddExportable(const QExportable* child, bool force);
    bool IsMinimal() const { return m_minimal; }

    // While set, attribute names carry the index.
    void SetArrayMode(bool arrayMode, std::int32_t index = 0) {
        m_arrayMode = arrayMode;
        m_arrayIndex = index;
    }
    bool IsArrayMode() const { return m_arrayMode; }
    std::int32_t ArrayIndex() const { return m_arrayIndex; }
    bool Success() const { return m_success; }
    const QExportable& Exportable() const { return m_exportable; }
    // The object as one with a level of its own; nullptr for a root that has none.
    const QNewLevelExportable* NewLevelExportable() const;
    const QSmartPtr<QExportSelection>& Selection() const { return m_selection; }

private:
    bool IsSelected(const QNewLevelExportable& child) const;

    const QExportable& m_exportable;
    bool m_minimal;
    bool m_arrayMode = false;
    std::int32_t m_arrayIndex = 0;
    bool m_success = false;
    QSmartPtr<QExportSelection> m_selection;
};

// The name an attribute takes in array mode.
CString ArrayAttributeName(const CString& name, std::int32_t index);

} // namespace keel
