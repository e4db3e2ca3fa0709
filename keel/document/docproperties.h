#pragma once

#include "keel/platform/object.h"
#include "keel/questions/properties.h"

namespace keel {

// The answers of a document, kept as one of its items so that they are stored with it. Blank, and
// so not stored, while it holds none.
class QDocProperties : public CDocItem {
public:
    static const CRuntimeClass c_runtimeClass;

    QDocProperties() = default;
    explicit QDocProperties(const QProperties& properties) : m_properties(properties, nullptr) {}

    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }
    bool IsBlank() const override { return m_properties.PropertyCount() == 0; }
    void Serialize(CArchive& archive) override { m_properties.Serialize(archive); }

    const QProperties& Properties() const { return m_properties; }

private:
    QProperties m_properties;
};

} // namespace keel
