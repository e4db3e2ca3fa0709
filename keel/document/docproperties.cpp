#include "keel/document/docproperties.h"

namespace keel {

const CRuntimeClass QDocProperties::c_runtimeClass{
    "QDocProperties", 1, &CRuntimeClass::Make<QDocProperties>, &CDocItem::c_runtimeClass};

namespace {
const CClassRegistration s_docPropertiesRegistration(QDocProperties::c_runtimeClass);
} // namespace

} // namespace keel
