#include "tests/support/paths.h"
#include "tests/support/propertysets.h"

#include "keel/document/olepropertyset.h"
#include "keel/platform/guid.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace keel {
namespace {

using test::PutU32;
using test::StreamBytes;
using test::WrittenStream;

StreamBytes SummaryFixture() {
    return test::ReadHexFixture(test::TestDataFolder() + "/document/summary_stream.hex");
}

bool ReadsSet(const StreamBytes& bytes, CPropertySet& set) {
    CMemFile file(bytes);
    return set.ReadFromStream(file);
}

TEST(OlePropertySet, HandWrittenSummaryStreamReadsAndWritesBackByteForByte) {
    const StreamBytes fixture = SummaryFixture();
    ASSERT_EQ(fixture.size(), 0xF0u);
    CPropertySet set;
    ASSERT_TRUE(ReadsSet(fixture, set));
    const CPropertySection* section = set.GetSection(FMTID_SummaryInformation);
    ASSERT_NE(section, nullptr);
    EXPECT_EQ(section->GetCount(), 8);
    EXPECT_EQ(section->GetSize(), 0xC0u);
    EXPECT_EQ(section->GetCodePage(), 1252u);
    EXPECT_EQ(section->GetName(2), CString(u"title"));
    EXPECT_EQ(section->GetName(4), CString(u"author"));
    EXPECT_EQ(set.GetOSVersion(), 0x00020106u);
    const CProperty* thumbnail = section->GetProperty(17);
    ASSERT_NE(thumbnail, nullptr);
    EXPECT_EQ(thumbnail->GetType(), 71u);
    EXPECT_EQ(thumbnail->Block().size(), 12u);

    EXPECT_EQ(WrittenStream(set), fixture);
}

TEST(OlePropertySet, EmptySetIsTheHeaderAlone) {
    CPropertySet set;
    StreamBytes expected = {0xFE, 0xFF, 0x00, 0x00, 0x06, 0x01, 0x02, 0x00};
    expected.resize(28, 0);
    EXPECT_EQ(WrittenStream(set), expected);

    CPropertySet back;
    ASSERT_TRUE(ReadsSet(expected, back));
    EXPECT_EQ(back.GetCount(), 0);
}

TEST(OlePropertySet, SectionWithoutPropertiesWritesTheDictionaryAsPropertyZero) {
    CPropertySet set;
    set.AddSection(FMTID_SummaryInformation);
    const StreamBytes bytes = WrittenStream(set);
    ASSERT_EQ(bytes.size(), 48u + 20u);
    const StreamBytes section(bytes.begin() + 48, bytes.end());
    const StreamBytes expected = {
        20, 0, 0, 0, 1,  0, 0, 0, // size and count
        0,  0, 0, 0, 16, 0, 0, 0, // id 0 at 16
        0,  0, 0, 0,              // no names
    };
    EXPECT_EQ(section, expected);
}

TEST(OlePropertySet, UnicodeCodePageDictionaryPadsEachNameAndReadsBack) {
    CPropertySet set;
    CPropertySection* section = set.AddSection(FMTID_DocSummaryInformation);
    const std::int16_t unicode = 1200;
    section->Set(c_codePagePropertyId, &unicode, VT_I2);
    section->SetName(5, u"Größe");
    section->SetName(6, u"ab");
    const char16_t wide[] = u"Ωmega";
    section->Set(5, wide, VT_LPWSTR);
    const StreamBytes first = WrittenStream(set);

    CPropertySet back;
    ASSERT_TRUE(ReadsSet(first, back));
    const CPropertySection* read = back.GetSection(FMTID_DocSummaryInformation);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->GetName(5), CString(u"Größe"));
    EXPECT_EQ(read->GetName(6), CString(u"ab"));
    EXPECT_EQ(WrittenStream(back), first);
    // Header 8, three entries 24, the code page 8, "Ωmega" 4 + 4 + 12; the dictionary: count 4,
    // "Größe" 8 + 12 (6 units with the null), "ab" 8 + 6 padded to 8.
    EXPECT_EQ(read->GetSize(), 8u + 24u + 8u + 20u + 4u + 20u + 16u);
}

TEST(OlePropertySet, NamesAreUniqueAndFoundWithoutRegardToCase) {
    CPropertySection section;
    section.SetName(2, u"Title");
    section.SetName(3, u"title");
    std::uint32_t id = 0;
    ASSERT_TRUE(section.GetID(u"TITLE", id));
    EXPECT_EQ(id, 3u);
    EXPECT_TRUE(section.GetName(2).IsEmpty());
    section.SetName(3, CString());
    EXPECT_FALSE(section.GetID(u"title", id));
}

// Each case spoils the fixture in one place; every one must give false and an empty set.
struct HostileCase {
    const char* name;
    std::function<void(StreamBytes&)> spoil;
};

const HostileCase c_hostileCases[] = {
    {"byte order", [](StreamBytes& b) { b[0] = 0xFF, b[1] = 0xFE; }},
    {"section count past the stream", [](StreamBytes& b) { PutU32(b, 24, 0x7FFFFFFF); }},
    {"two sections in a table of one", [](StreamBytes& b) { PutU32(b, 24, 2); }},
    {"section offset past the end", [](StreamBytes& b) { PutU32(b, 44, 0xFFFFFFF0); }},
    {"section offset inside the table", [](StreamBytes& b) { PutU32(b, 44, 8); }},
    {"section size past the end", [](StreamBytes& b) { PutU32(b, 0x30, 0xC4); }},
    {"section size below its header", [](StreamBytes& b) { PutU32(b, 0x30, 4); }},
    {"property count past the section", [](StreamBytes& b) { PutU32(b, 0x34, 0x20000000); }},
    {"property offset past the section", [](StreamBytes& b) { PutU32(b, 0x3C, 0xBE); }},
    {"property offset inside the table", [](StreamBytes& b) { PutU32(b, 0x3C, 0x10); }},
    {"string longer than its room", [](StreamBytes& b) { PutU32(b, 0x30 + 0x78, 0xFFFFFFF0); }},
    {"string one byte too long", [](StreamBytes& b) { PutU32(b, 0x30 + 0x78, 9); }},
    {"dictionary count past its room", [](StreamBytes& b) { PutU32(b, 0x30 + 0x50, 0x10000000); }},
    {"dictionary name past its room", [](StreamBytes& b) { PutU32(b, 0x30 + 0x58, 0xFFFFFF00); }},
    {"wide string count doubled past room",
     [](StreamBytes& b) {
         b[0x30 + 0x74] = 31; // the title as a wide string of 5 units: 10 bytes in 8
     }},
};

class HostilePropertySet : public testing::TestWithParam<HostileCase> {};

TEST_P(HostilePropertySet, GivesFalseAndLeavesTheSetEmpty) {
    StreamBytes bytes = SummaryFixture();
    GetParam().spoil(bytes);
    CPropertySet set;
    set.AddSection(FMTID_DocSummaryInformation);
    EXPECT_FALSE(ReadsSet(bytes, set));
    EXPECT_EQ(set.GetCount(), 0);
}

INSTANTIATE_TEST_SUITE_P(Spoiled, HostilePropertySet, testing::ValuesIn(c_hostileCases),
                         [](const auto& info) {
                             std::string name = info.param.name;
                             for (char& ch : name)
                                 ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
                             return name;
                         });

TEST(OlePropertySet, EveryTruncationOfAValidStreamGivesFalse) {
    const StreamBytes fixture = SummaryFixture();
    for (std::size_t length = 0; length < fixture.size(); ++length) {
        CPropertySet set;
        EXPECT_FALSE(ReadsSet(StreamBytes(fixture.begin(), fixture.begin() + length), set))
            << length;
    }
}

TEST(Guid, BytesAndTextFollowTheStandardLayout) {
    const GUID::Bytes bytes = FMTID_SummaryInformation.ToBytes();
    const GUID::Bytes expected = {0xE0, 0x85, 0x9F, 0xF2, 0xF9, 0x4F, 0x68, 0x10,
                                  0xAB, 0x91, 0x08, 0x00, 0x2B, 0x27, 0xB3, 0xD9};
    EXPECT_EQ(bytes, expected);
    EXPECT_EQ(GUID::FromBytes(bytes.data()), FMTID_SummaryInformation);
    EXPECT_EQ(FMTID_SummaryInformation.ToString(),
              CString(u"{F29F85E0-4FF9-1068-AB91-08002B27B3D9}"));
    GUID parsed;
    ASSERT_TRUE(GUID::FromString(u"d5cdd502-2e9c-101b-9397-08002b2cf9ae", parsed));
    EXPECT_EQ(parsed, FMTID_DocSummaryInformation);
    EXPECT_FALSE(GUID::FromString(u"{D5CDD502-2E9C-101B-9397-08002B2CF9A}", parsed));
    EXPECT_FALSE(GUID::FromString(u"{D5CDD502+2E9C-101B-9397-08002B2CF9AE}", parsed));
    EXPECT_LT(FMTID_DocSummaryInformation, FMTID_SummaryInformation);
}

TEST(FileTime, ConvertsToAndFromOleDates) {
    struct Case {
        double oleDate;
        std::uint64_t ticks;
    };
    const Case cases[] = {
        {0.0, 109205ull * c_fileTimeTicksPerDay},                               // 30 December 1899
        {25569.0, 116444736000000000ull},                                       // 1 January 1970
        {-1.25, 109204ull * c_fileTimeTicksPerDay + c_fileTimeTicksPerDay / 4}, // 29 Dec 06:00
        {-109205.0, 0},                                                         // 1 January 1601
        {45293.5, 133486704000000000ull}, // 2 January 2024 12:00
    };
    for (const Case& c : cases) {
        FILETIME time;
        ASSERT_TRUE(OleDateToFileTime(c.oleDate, time)) << c.oleDate;
        EXPECT_EQ(time.Ticks(), c.ticks) << c.oleDate;
        EXPECT_DOUBLE_EQ(FileTimeToOleDate(FILETIME::FromTicks(c.ticks)), c.oleDate);
    }
    FILETIME time;
    EXPECT_FALSE(OleDateToFileTime(-109206.0, time));
    EXPECT_FALSE(OleDateToFileTime(1e300, time));
}

// The parts of a set are objects of their own classes, each made empty from its class.
TEST(OlePropertySet, PartsAreObjectsOfTheirOwnClasses) {
    const CRuntimeClass* classes[] = {&CProperty::c_runtimeClass, &CPropertySection::c_runtimeClass,
                                      &CPropertySet::c_runtimeClass};
    for (const CRuntimeClass* runtimeClass : classes) {
        const std::unique_ptr<CObject> object(runtimeClass->CreateObject());
        ASSERT_NE(object, nullptr) << runtimeClass->Name();
        EXPECT_EQ(object->GetRuntimeClass(), runtimeClass);
        EXPECT_TRUE(object->IsKindOf(&CObject::c_runtimeClass));
    }
    const CPropertySet set;
    const CPropertySection section;
    EXPECT_FALSE(set.IsKindOf(&CPropertySection::c_runtimeClass));
    EXPECT_FALSE(section.IsKindOf(&CPropertySet::c_runtimeClass));
}

} // namespace
} // namespace keel
