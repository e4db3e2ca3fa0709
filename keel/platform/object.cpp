#include "keel/platform/object.h"

#include "keel/platform/exceptions.h"

#include <map>
#include <mutex>
#include <string>

namespace keel {

namespace {

class ClassRegistry {
public:
    static ClassRegistry& Instance() {
        static ClassRegistry registry;
        return registry;
    }

    void Add(const CRuntimeClass& runtimeClass) {
        const std::string_view name = runtimeClass.Name();
        if (name.empty() || name.size() > CRuntimeClass::c_maxNameLength)
            ThrowInvalidArgument("RegisterClass: class name length");
        if ((runtimeClass.m_wSchema & ~VERSIONABLE_SCHEMA) > 0xFFFF)
            ThrowInvalidArgument("RegisterClass: schema wider than 16 bits");
        std::lock_guard lock(m_mutex);
        const auto [found, added] = m_classes.emplace(name, &runtimeClass);
        if (!added && found->second != &runtimeClass)
            ThrowInvalidArgument("RegisterClass: another class is registered as " +
                                 std::string(name));
    }

    void Remove(const CRuntimeClass& runtimeClass) {
        std::lock_guard lock(m_mutex);
        const auto found = m_classes.find(runtimeClass.Name());
        if (found != m_classes.end() && found->second == &runtimeClass)
            m_classes.erase(found);
    }

    const CRuntimeClass* Find(std::string_view name) {
        std::lock_guard lock(m_mutex);
        const auto found = m_classes.find(name);
        return found == m_classes.end() ? nullptr : found->second;
    }

private:
    std::mutex m_mutex;
    std::map<std::string, const CRuntimeClass*, std::less<>> m_classes;
};

} // namespace

const CRuntimeClass CObject::c_runtimeClass{"CObject", 0xFFFF, nullptr, nullptr};
const CRuntimeClass CDocItem::c_runtimeClass{"CDocItem", 0xFFFF, nullptr, &CObject::c_runtimeClass};

bool CRuntimeClass::IsDerivedFrom(const CRuntimeClass* base) const {
    for (const CRuntimeClass* step = this; step != nullptr; step = step->m_pBaseClass) {
        if (step == base)
            return true;
    }
    return false;
}

const CRuntimeClass* CRuntimeClass::FromName(std::string_view name) {
    return ClassRegistry::Instance().Find(name);
}

void RegisterClass(const CRuntimeClass& runtimeClass) {
    ClassRegistry::Instance().Add(runtimeClass);
}

void UnregisterClass(const CRuntimeClass& runtimeClass) {
    ClassRegistry::Instance().Remove(runtimeClass);
}

CClassRegistration::CClassRegistration(const CRuntimeClass& runtimeClass) : m_class(runtimeClass) {
    RegisterClass(m_class);
}

CClassRegistration::~CClassRegistration() {
    UnregisterClass(m_class);
}

} // namespace keel
