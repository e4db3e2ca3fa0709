#pragma once

#include <cstddef>
#include <string_view>

namespace keel {

class CArchive;
class CObject;

// A schema with this bit set lets a class read objects stored under any other schema: the
// archive then hands the stored one to Serialize through its object schema.
inline constexpr unsigned VERSIONABLE_SCHEMA = 0x80000000;

// What an archive knows of a class: its name, the schema its objects are stored with (the low
// 16 bits, perhaps with VERSIONABLE_SCHEMA), how to make an empty one and the class it derives
// from. Built at compile time, so that a static one can be registered from any static object.
struct CRuntimeClass {
    using Factory = CObject* (*)();

    // Class names longer than this are refused by the registry and by a loading archive.
    static constexpr std::size_t c_maxNameLength = 63;

    const char* m_lpszClassName;
    unsigned m_wSchema;
    Factory m_pfnCreateObject;
    const CRuntimeClass* m_pBaseClass;

    // The factory of a class that is made with `new T`.
    template <class T>
    static CObject* Make() {
        return new T;
    }

    std::string_view Name() const { return m_lpszClassName; }
    // The schema as it is stored: 16 bits, without VERSIONABLE_SCHEMA.
    unsigned StoredSchema() const { return m_wSchema & 0xFFFF; }
    // Whether objects stored under `schema` may be read into this class.
    bool AcceptsSchema(unsigned schema) const {
        return schema == StoredSchema() || (m_wSchema & VERSIONABLE_SCHEMA) != 0;
    }
    // An empty object of this class, owned by the caller; nullptr for an abstract class.
    CObject* CreateObject() const { return m_pfnCreateObject ? m_pfnCreateObject() : nullptr; }
    bool IsDerivedFrom(const CRuntimeClass* base) const;

    // The class registered under `name`, or nullptr.
    static const CRuntimeClass* FromName(std::string_view name);
};

// Adds a class to the process's registry, under which a loading archive finds it by name. A class
// registered twice stays once; another class under a registered name, a name longer than
// c_maxNameLength, or a schema of more than 16 bits is an invalid argument.
void RegisterClass(const CRuntimeClass& runtimeClass);
// Takes a class out of the registry; a class not in it is left alone.
void UnregisterClass(const CRuntimeClass& runtimeClass);

// Registers a class for the life of a (usually static) object:
//   static const CClassRegistration registration(MyItem::c_runtimeClass);
class CClassRegistration {
public:
    explicit CClassRegistration(const CRuntimeClass& runtimeClass);
    ~CClassRegistration();
    CClassRegistration(const CClassRegistration&) = delete;
    CClassRegistration& operator=(const CClassRegistration&) = delete;

private:
    const CRuntimeClass& m_class;
};

// Base of the objects an archive stores with their class: each class gives its runtime class
// and writes and reads its own fields in Serialize.
class CObject {
public:
    static const CRuntimeClass c_runtimeClass;

    virtual ~CObject() = default;

    virtual const CRuntimeClass* GetRuntimeClass() const { return &c_runtimeClass; }
    virtual void Serialize(CArchive& /*archive*/) {}

    bool IsKindOf(const CRuntimeClass* runtimeClass) const {
        return GetRuntimeClass()->IsDerivedFrom(runtimeClass);
    }

protected:
    CObject() = default;
    CObject(const CObject&) = default;
    CObject& operator=(const CObject&) = default;
};

// Base of the items a document keeps in its list. A blank item holds nothing worth storing and is
// left out when the document is saved.
class CDocItem : public CObject {
public:
    static const CRuntimeClass c_runtimeClass;

    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }
    virtual bool IsBlank() const { return false; }
};

} // namespace keel
