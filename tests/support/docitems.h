#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/object.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace keel::test {

// Document items of four test classes, registered for the whole program by static objects.
//
// A note holds a text and is blank when the text is empty; its schema is 1 and no other is read.
class TestNote : public CDocItem {
public:
    static const CRuntimeClass c_runtimeClass;

    TestNote() = default;
    explicit TestNote(const CString& text) : m_text(text) {}

    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }
    bool IsBlank() const override { return m_text.IsEmpty(); }
    void Serialize(CArchive& archive) override {
        if (archive.IsStoring())
            archive << m_text;
        else
            archive >> m_text;
    }

    CString m_text;
};

// A shape stores its size in 32 bits under schema 3; schemas 1 and 2 kept it in 16. It reads any
// schema and remembers the one it was read with.
class TestShape : public CDocItem {
public:
    static const CRuntimeClass c_runtimeClass;

    TestShape() = default;
    explicit TestShape(std::int32_t size) : m_size(size) {}

    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }
    void Serialize(CArchive& archive) override {
        if (archive.IsStoring()) {
            archive << m_size;
            return;
        }
        m_loadedSchema = archive.GetObjectSchema();
        if (m_loadedSchema >= 3) {
            archive >> m_size;
        } else {
            std::int16_t narrow = 0;
            archive >> narrow;
            m_size = narrow;
        }
    }

    std::int32_t m_size = 0;
    unsigned m_loadedSchema = CArchive::noSchema;
};

// A group owns the items inside it: their count, then each as an object.
class TestGroup : public CDocItem {
public:
    static const CRuntimeClass c_runtimeClass;

    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }
    bool IsBlank() const override { return m_children.empty(); }
    void Serialize(CArchive& archive) override {
        if (archive.IsStoring()) {
            archive.WriteCount(m_children.size());
            for (const auto& child : m_children)
                archive.WriteObject(child.get());
            return;
        }
        // Each child costs at least two bytes, so a corrupt count ends at the end of the stream.
        for (std::uint64_t left = archive.ReadCount(); left > 0; --left) {
            std::unique_ptr<CObject> child = archive.ReadNewObject(&CDocItem::c_runtimeClass);
            m_children.emplace_back(static_cast<CDocItem*>(child.release()));
        }
    }

    std::vector<std::unique_ptr<CDocItem>> m_children;
};

// An item that cannot be stored: writing it fails as a full disk would.
class TestBroken : public CDocItem {
public:
    static const CRuntimeClass c_runtimeClass;

    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }
    void Serialize(CArchive& archive) override {
        if (archive.IsStoring())
            throw CFileException(CFileException::diskFull, -1, u"broken.doc");
    }
};

inline const CRuntimeClass TestNote::c_runtimeClass{"TestNote", 1, &CRuntimeClass::Make<TestNote>,
                                                    &CDocItem::c_runtimeClass};
inline const CRuntimeClass TestShape::c_runtimeClass{"TestShape", VERSIONABLE_SCHEMA | 3,
                                                     &CRuntimeClass::Make<TestShape>,
                                                     &CDocItem::c_runtimeClass};
inline const CRuntimeClass TestGroup::c_runtimeClass{
    "TestGroup", 1, &CRuntimeClass::Make<TestGroup>, &CDocItem::c_runtimeClass};

inline const CRuntimeClass TestBroken::c_runtimeClass{
    "TestBroken", 1, &CRuntimeClass::Make<TestBroken>, &CDocItem::c_runtimeClass};

inline const CClassRegistration c_testNoteRegistration(TestNote::c_runtimeClass);
inline const CClassRegistration c_testShapeRegistration(TestShape::c_runtimeClass);
inline const CClassRegistration c_testGroupRegistration(TestGroup::c_runtimeClass);

} // namespace keel::test
