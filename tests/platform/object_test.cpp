#include "tests/support/archivebytes.h"
#include "tests/support/docitems.h"

#include "keel/platform/archive.h"
#include "keel/platform/object.h"

#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <vector>

namespace keel {
namespace {

using test::Bytes;
using test::Concat;
using test::Hex;
using test::Loading;
using test::NewClassRecord;
using test::Stored;
using test::TestGroup;
using test::TestNote;
using test::TestShape;
using test::WideString;

// Reads top-level objects and owns each new one, however many times it comes back.
class ReadObjects {
public:
    std::vector<CObject*> From(CArchive& archive, int count) {
        std::vector<CObject*> read;
        for (int i = 0; i < count; ++i) {
            CObject* object = archive.ReadObject();
            if (object != nullptr && m_seen.insert(object).second)
                m_owned.emplace_back(object);
            read.push_back(object);
        }
        return read;
    }

private:
    std::set<CObject*> m_seen;
    std::vector<std::unique_ptr<CObject>> m_owned;
};

struct LayoutCase {
    const char* name;
    // Writes the objects, keeping them alive in `keep`.
    void (*write)(CArchive& archive, std::vector<std::unique_ptr<CObject>>& keep);
    int objects;
    Bytes bytes;
};

CObject* Keep(std::vector<std::unique_ptr<CObject>>& keep, CObject* object) {
    keep.emplace_back(object);
    return object;
}

const Bytes c_noteHi = WideString(u"Hi");

const LayoutCase c_layouts[] = {
    {"null", [](CArchive& a, auto&) { a.WriteObject(nullptr); }, 1, {0x00, 0x00}},
    // A second object of a known class, and objects read before, take the next free indices.
    {"classes and objects share the indices",
     [](CArchive& a, auto& keep) {
         a << Keep(keep, new TestNote(u"Hi")) << Keep(keep, new TestShape(0x01020304))
           << Keep(keep, new TestNote(u"")) << Keep(keep, new TestShape(-1));
         a << keep[1].get() << keep[3].get();
     },
     6,
     Concat({NewClassRecord(1, "TestNote"),
             c_noteHi,
             NewClassRecord(3, "TestShape"),
             {0x04, 0x03, 0x02, 0x01},
             {0x01, 0x80},
             WideString(u""),
             {0x03, 0x80, 0xFF, 0xFF, 0xFF, 0xFF},
             {0x04, 0x00, 0x06, 0x00}})},
    {"objects inside an object",
     [](CArchive& a, auto& keep) {
         auto* group = new TestGroup;
         group->m_children.emplace_back(new TestNote(u"Hi"));
         group->m_children.emplace_back(new TestShape(7));
         group->m_children.emplace_back(new TestNote(u"Yo"));
         a << Keep(keep, group);
     },
     1,
     Concat({NewClassRecord(1, "TestGroup"),
             {0x03, 0x00},
             NewClassRecord(1, "TestNote"),
             c_noteHi,
             NewClassRecord(3, "TestShape"),
             {0x07, 0x00, 0x00, 0x00},
             {0x03, 0x80},
             WideString(u"Yo")})},
};

TEST(ObjectLayouts, AreWrittenByteForByteAndReadBackToTheSameBytes) {
    for (const LayoutCase& layout : c_layouts) {
        SCOPED_TRACE(layout.name);
        std::vector<std::unique_ptr<CObject>> keep;
        EXPECT_EQ(Stored([&](CArchive& a) { layout.write(a, keep); }), layout.bytes);
        Loading loading(layout.bytes);
        ReadObjects reader;
        const std::vector<CObject*> read = reader.From(loading.archive, layout.objects);
        EXPECT_TRUE(loading.archive.IsBufferEmpty());
        EXPECT_EQ(Stored([&](CArchive& a) {
                      for (CObject* object : read)
                          a << object;
                  }),
                  layout.bytes);
    }
}

// Index 0x7FFE is the last that fits a tag of 16 bits; from 0x7FFF on, objects are written as
// 0x7FFF and the index, classes as 0x7FFF and 0x80000000 | the index.
TEST(ObjectIndices, PastTheSmallTagsTheBigFormsTakeOver) {
    constexpr int notes = 0x7FFE; // objects 2 to 0x7FFF after the class at 1
    std::vector<std::unique_ptr<CObject>> keep;
    for (int i = 0; i < notes; ++i)
        keep.emplace_back(new TestNote);
    keep.emplace_back(new TestShape(5));
    keep.emplace_back(new TestShape(6));
    const Bytes bytes = Stored([&](CArchive& a) {
        for (int i = 0; i < notes; ++i)
            a << keep[i].get();
        a << keep[notes - 2].get() << keep[notes - 1].get() << keep[notes].get()
          << keep[notes + 1].get();
    });

    const Bytes tail = Concat({{0xFE, 0x7F},                         // object 0x7FFE
                               {0xFF, 0x7F, 0xFF, 0x7F, 0x00, 0x00}, // object 0x7FFF
                               NewClassRecord(3, "TestShape"),       // class 0x8000
                               {0x05, 0x00, 0x00, 0x00},             // object 0x8001
                               {0xFF, 0x7F, 0x00, 0x80, 0x00, 0x80}, // class 0x8000
                               {0x06, 0x00, 0x00, 0x00}});
    ASSERT_GT(bytes.size(), tail.size());
    EXPECT_EQ(Bytes(bytes.end() - static_cast<long>(tail.size()), bytes.end()), tail);

    Loading loading(bytes);
    ReadObjects reader;
    const std::vector<CObject*> read = reader.From(loading.archive, notes + 4);
    EXPECT_EQ(read[notes], read[notes - 2]);
    EXPECT_EQ(read[notes + 1], read[notes - 1]);
    ASSERT_TRUE(read[notes + 3]->IsKindOf(&TestShape::c_runtimeClass));
    EXPECT_EQ(static_cast<TestShape*>(read[notes + 3])->m_size, 6);
    EXPECT_EQ(Stored([&](CArchive& a) {
                  for (CObject* object : read)
                      a << object;
              }),
              bytes);
}

// A versionable class reads an older schema, which it is given through the archive, and the
// archive's own schema is back afterwards; a later object of the same class gets the same one.
TEST(ObjectSchemas, AVersionableClassIsGivenTheStoredSchema) {
    const Bytes bytes =
        Concat({NewClassRecord(1, "TestShape"), {0x34, 0x12}, {0x01, 0x80, 0xFE, 0xFF}});
    Loading loading(bytes, 4096, CString(), 42);
    ReadObjects reader;
    const std::vector<CObject*> read = reader.From(loading.archive, 2);
    const auto* first = static_cast<TestShape*>(read[0]);
    const auto* second = static_cast<TestShape*>(read[1]);
    EXPECT_EQ(first->m_loadedSchema, 1u);
    EXPECT_EQ(first->m_size, 0x1234);
    EXPECT_EQ(second->m_loadedSchema, 1u);
    EXPECT_EQ(second->m_size, -2);
    EXPECT_EQ(loading.archive.GetObjectSchema(), 42u);
}

struct HostileCase {
    const char* name;
    Bytes bytes;
    int cause;
};

// A group that says it holds one child.
const Bytes GroupOfOne = Concat({NewClassRecord(1, "TestGroup"), {0x01, 0x00}});

Bytes NestedGroups(int depth) {
    Bytes bytes = GroupOfOne;
    for (int i = 1; i < depth; ++i)
        bytes.insert(bytes.end(), {0x01, 0x80, 0x01, 0x00});
    return bytes;
}

constexpr int c_badClass = CArchiveException::badClass;
constexpr int c_badIndex = CArchiveException::badIndex;
constexpr int c_eof = CArchiveException::endOfFile;

const HostileCase c_hostile[] = {
    {"unknown class", NewClassRecord(1, "NoSuchClass"), c_badClass},
    {"base class that no one registered", NewClassRecord(0xFFFF, "CDocItem"), c_badClass},
    {"name of length 0", NewClassRecord(1, ""), c_badClass},
    {"name longer than 63", Concat({Hex("FF FF 01 00 40 00"), Bytes(64, 'A')}), c_badClass},
    {"schema the class does not read", Concat({NewClassRecord(2, "TestNote"), c_noteHi}),
     CArchiveException::badSchema},
    {"object index not read yet", Hex("01 00"), c_badIndex},
    {"class index not read yet", Hex("01 80"), c_badIndex},
    {"big object index not read yet", Hex("FF 7F 01 00 00 00"), c_badIndex},
    {"huge big index", Hex("FF 7F FF FF FF 7F"), c_badIndex},
    {"a class index that names an object", Concat({GroupOfOne, Hex("02 80")}), c_badIndex},
    {"an object index that names a class", Concat({GroupOfOne, Hex("01 00")}), c_badIndex},
    {"truncated tag", Hex("FF"), c_eof},
    {"truncated object", Concat({NewClassRecord(1, "TestNote"), Hex("FF FE FF 05 48")}), c_eof},
    {"huge count of children", Concat({NewClassRecord(1, "TestGroup"), Hex("FF FF FE FF FF FF")}),
     c_eof},
    {"nesting past the limit", NestedGroups(CArchive::c_maxObjectDepth + 1),
     CArchiveException::genericException},
    {"nesting at the limit ends in the stream", NestedGroups(CArchive::c_maxObjectDepth), c_eof},
};

TEST(HostileObjects, FailWithTheirCauseAndTheFileName) {
    for (const HostileCase& hostile : c_hostile) {
        SCOPED_TRACE(hostile.name);
        Loading loading(hostile.bytes, 4096, u"evil.doc");
        ReadObjects reader;
        EXPECT_EQ(test::ArchiveCauseOf([&] { reader.From(loading.archive, 2); }, "evil.doc"),
                  hostile.cause);
    }
}

TEST(ObjectReading, ARequestedClassRefusesOthers) {
    const Bytes bytes = Concat({NewClassRecord(1, "TestNote"), c_noteHi, {0x02, 0x00}});
    Loading wrongNew(bytes);
    EXPECT_EQ(
        test::ArchiveCauseOf([&] { wrongNew.archive.ReadObject(&TestGroup::c_runtimeClass); }),
        CArchiveException::badClass);

    Loading wrongKnown(bytes);
    std::unique_ptr<CObject> note = wrongKnown.archive.ReadNewObject(&CDocItem::c_runtimeClass);
    EXPECT_EQ(static_cast<TestNote*>(note.get())->m_text, CString(u"Hi"));
    EXPECT_EQ(
        test::ArchiveCauseOf([&] { wrongKnown.archive.ReadObject(&TestShape::c_runtimeClass); }),
        CArchiveException::badClass);
}

// An owner takes only new objects: one read before is owned elsewhere already.
TEST(ObjectReading, ANewObjectIsNeverOneReadBefore) {
    Loading loading(Concat({NewClassRecord(1, "TestNote"), c_noteHi, {0x00, 0x00, 0x02, 0x00}}));
    std::unique_ptr<CObject> note = loading.archive.ReadNewObject();
    ASSERT_NE(note, nullptr);
    EXPECT_EQ(loading.archive.ReadNewObject(), nullptr);
    EXPECT_EQ(test::ArchiveCauseOf([&] { loading.archive.ReadNewObject(); }),
              CArchiveException::badIndex);
}

class LocalItem : public CDocItem {
public:
    static const CRuntimeClass c_runtimeClass;
    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }
};
const CRuntimeClass LocalItem::c_runtimeClass{"LocalItem", 4, &CRuntimeClass::Make<LocalItem>,
                                              &CDocItem::c_runtimeClass};

TEST(ClassRegistry, ClassesAreFoundByNameWhileRegistered) {
    EXPECT_EQ(CRuntimeClass::FromName("testnote"), nullptr);
    EXPECT_EQ(CRuntimeClass::FromName("LocalItem"), nullptr);
    const Bytes bytes = NewClassRecord(4, "LocalItem");
    {
        const CClassRegistration registration(LocalItem::c_runtimeClass);
        EXPECT_EQ(CRuntimeClass::FromName("LocalItem"), &LocalItem::c_runtimeClass);
        Loading loading(bytes);
        EXPECT_TRUE(loading.archive.ReadNewObject()->IsKindOf(&LocalItem::c_runtimeClass));
    }
    EXPECT_EQ(CRuntimeClass::FromName("LocalItem"), nullptr);
    Loading loading(bytes);
    EXPECT_EQ(test::ArchiveCauseOf([&] { loading.archive.ReadObject(); }),
              CArchiveException::badClass);
}

} // namespace
} // namespace keel
