#include "tests/support/paths.h"
#include "tests/support/propertysets.h"

#include "keel/document/olepropertyset.h"
#include "keel/document/propertyset.h"
#include "keel/document/summaryinformation.h"
#include "keel/formula/evaluator.h"
#include "keel/platform/guid.h"
#include "keel/values/datetime.h"
#include "keel/values/length.h"
#include "keel/values/money.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

using Summary = QSummaryInformationPropertySet;
using test::PutU32;
using test::StreamBytes;
using test::WrittenStream;

std::string U8(const CString& text) {
    return text.ToUtf8();
}

StreamBytes SummaryFixture() {
    return test::ReadHexFixture(test::TestDataFolder() + "/document/summary_stream.hex");
}

bool ReadInto(QPropertySet& set, const StreamBytes& bytes) {
    CMemFile file(bytes);
    return set.ReadFromPropertyStream(file);
}

// Exposes the packing of set names.
struct PackedNames : QPropertySet {
    using QPropertySet::NameToGUID;
};

constexpr std::uint32_t c_anyId = 40;

struct GetValueCase {
    const char* what;
    std::function<void(QPropertySet&)> store;
    bool found;
    QAnyValue expected;
};

template <class T>
std::function<void(QPropertySet&)> Stored(T value, std::uint32_t type) {
    return [value, type](QPropertySet& set) { ASSERT_TRUE(set.Set(c_anyId, &value, type)); };
}

std::function<void(QPropertySet&)> StoredText(const char* text, std::uint32_t type) {
    return [text, type](QPropertySet& set) { ASSERT_TRUE(set.Set(c_anyId, text, type)); };
}

TEST(PropertySet, GetValueFollowsTheVariantTypeTable) {
    const GetValueCase cases[] = {
        {"empty", [](QPropertySet& s) { s.Set(c_anyId, nullptr, VT_EMPTY); }, true, QAnyValue()},
        {"16-bit int", Stored<std::int16_t>(-2, VT_I2), true, QAnyValue(-2)},
        {"32-bit int", Stored<std::int32_t>(70000, VT_I4), true, QAnyValue(70000)},
        {"float", Stored(1.5f, VT_R4), true, QAnyValue(1.5)},
        {"double", Stored(2.25, VT_R8), true, QAnyValue(2.25)},
        {"currency in ten-thousandths", Stored<std::int64_t>(123456, VT_CY), true,
         QAnyValue(QMoney::FromRaw(1235))},
        {"date", Stored(45293.5, VT_DATE), true, QAnyValue(QDateTime(2024, 1, 2, 12))},
        {"narrow string", StoredText("x y", VT_LPSTR), true, QAnyValue(u"x y")},
        {"wide string", [](QPropertySet& s) { ASSERT_TRUE(s.Set(c_anyId, u"Ωide", VT_LPWSTR)); },
         true, QAnyValue(u"Ωide")},
        {"bool -1 is true", Stored<std::int16_t>(-1, VT_BOOL), true, QAnyValue(true)},
        {"bool 0 is false", Stored<std::int16_t>(0, VT_BOOL), true, QAnyValue(false)},
        {"file time", Stored(FILETIME::FromTicks(133486704000000000ull), VT_FILETIME), true,
         QAnyValue(QDateTime(2024, 1, 2, 12))},
        {"unknown type",
         [](QPropertySet& s) {
             CProperty raw;
             raw.SetID(c_anyId);
             raw.SetBlock(71, {1, 2, 3, 4});
             s.GetCurrentSection()->AddProperty(raw);
         },
         false, QAnyValue()},
        {"missing", [](QPropertySet&) {}, false, QAnyValue()},
    };
    for (const GetValueCase& c : cases) {
        SCOPED_TRACE(c.what);
        QPropertySet set(u"Custom", nullptr);
        c.store(set);
        QAnyValue value(u"stale");
        EXPECT_EQ(set.GetValue(c_anyId, value), c.found);
        EXPECT_EQ(value.Type(), c.expected.Type());
        EXPECT_EQ(U8(value.AsFormulaText()), U8(c.expected.AsFormulaText()));
    }
}

TEST(PropertySet, SetValueChoosesTheReverseTypeAndReadsBack) {
    struct Case {
        const char* what;
        QAnyValue value;
        std::uint32_t existing; // VT_EMPTY: no property before
        std::uint32_t expectedType;
    };
    const Case cases[] = {
        {"int", QAnyValue(5), VT_EMPTY, VT_I4},
        {"int keeps 16 bits", QAnyValue(-5), VT_I2, VT_I2},
        {"int too wide for 16 bits", QAnyValue(70000), VT_I2, VT_I4},
        {"double", QAnyValue(2.5), VT_EMPTY, VT_R8},
        {"double keeps single", QAnyValue(2.5), VT_R4, VT_R4},
        {"money", QAnyValue(QMoney(12.34)), VT_EMPTY, VT_CY},
        {"date", QAnyValue(QDateTime(2024, 1, 2, 3, 4, 5)), VT_EMPTY, VT_FILETIME},
        {"date keeps date", QAnyValue(QDateTime(2024, 1, 2, 3, 4, 5)), VT_DATE, VT_DATE},
        {"string", QAnyValue(u"Zoë"), VT_EMPTY, VT_LPSTR},
        {"string keeps wide", QAnyValue(u"Ωmega"), VT_LPWSTR, VT_LPWSTR},
        {"bool", QAnyValue(true), VT_EMPTY, VT_BOOL},
        {"empty", QAnyValue(), VT_I4, VT_EMPTY},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        QPropertySet set(u"Custom", nullptr);
        if (c.existing != VT_EMPTY) {
            // A zero of the type: 2 bytes for I2, 4 for R4, a lone null for a wide string.
            const std::size_t size = c.existing == VT_I2 || c.existing == VT_LPWSTR ? 2
                                     : c.existing == VT_R4                          ? 4
                                                                                    : 8;
            CProperty before;
            before.SetID(c_anyId);
            before.SetBlock(c.existing, StreamBytes(size, 0));
            set.GetCurrentSection()->AddProperty(before);
        }
        ASSERT_TRUE(set.SetValue(c_anyId, c.value));
        std::uint32_t type = 0;
        ASSERT_TRUE(set.GetType(c_anyId, type));
        EXPECT_EQ(type, c.expectedType);
        QAnyValue back;
        EXPECT_TRUE(set.GetValue(c_anyId, back));
        EXPECT_EQ(U8(back.AsFormulaText()), U8(c.value.AsFormulaText()));
    }
    QPropertySet set(u"Custom", nullptr);
    EXPECT_FALSE(set.SetValue(c_anyId, QAnyValue(QLength(10.0))));
    std::uint32_t type = 0;
    EXPECT_FALSE(set.GetType(c_anyId, type));
}

TEST(PropertySet, SetValueConvertsToTheKindOfAnExistingProperty) {
    Summary summary;
    ASSERT_TRUE(summary.SetValue(Summary::PID_PAGECOUNT, QAnyValue(u"12")));
    EXPECT_EQ(summary.GetPageCount(), 12);
    ASSERT_TRUE(summary.SetValue(Summary::PID_TITLE, QAnyValue(7)));
    EXPECT_EQ(U8(summary.GetTitle()), "7");
    summary.SetCreateDate(FILETIME::FromTicks(133486704000000000ull));
    EXPECT_FALSE(summary.SetValue(Summary::PID_CREATE_DTM, QAnyValue(u"no date")));
    EXPECT_EQ(summary.GetCreateDate().Ticks(), 133486704000000000ull);
}

TEST(PropertySet, BlocksKeepTheAmountInTenThousandthsAndTheStringWithItsNull) {
    QPropertySet set(u"Custom", nullptr);
    ASSERT_TRUE(set.SetValue(c_anyId, QAnyValue(QMoney(12.34))));
    const StreamBytes expected = {0x08, 0xE2, 0x01, 0, 0, 0, 0, 0}; // 123400
    std::uint32_t size = 0;
    const std::uint8_t* block = set.Get(c_anyId, &size);
    ASSERT_EQ(size, 8u);
    EXPECT_EQ(StreamBytes(block, block + size), expected);
    // A narrow string keeps its terminating null, which its count includes.
    ASSERT_TRUE(set.Set(c_anyId + 1, "ab", VT_LPSTR));
    block = set.Get(c_anyId + 1, &size);
    EXPECT_EQ(StreamBytes(block, block + size), (StreamBytes{'a', 'b', 0}));
}

TEST(PropertySet, NameToGUIDKnowsTheSummarySetsAndPacksOtherNames) {
    EXPECT_EQ(PackedNames::NameToGUID(u"SummaryInformation"), FMTID_SummaryInformation);
    EXPECT_EQ(PackedNames::NameToGUID(u"DocumentSummaryInformation"), FMTID_DocSummaryInformation);
    // "ab": a is 0 in bits 0-4, b is 1 in bits 5-9, so the first byte is 0x20.
    const GUID ab = PackedNames::NameToGUID(u"ab");
    EXPECT_EQ(U8(ab.ToString()), "{00000020-0000-0000-0000-000000000000}");
    EXPECT_EQ(PackedNames::NameToGUID(u"AB"), ab);
    // Twenty-six fives fill all 128 bits; characters past them count for nothing.
    const CString fives(u'5', 26);
    EXPECT_EQ(U8(PackedNames::NameToGUID(fives).ToString()),
              "{FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF}");
    EXPECT_EQ(PackedNames::NameToGUID(fives + u"abc"), PackedNames::NameToGUID(fives));
    QPropertySet custom(u"ab", nullptr);
    EXPECT_EQ(custom.GetFormatID(), ab);
    EXPECT_EQ(custom.GetStreamName(), CString(u"\x05"
                                              u"ab"));
}

TEST(SummaryInformation, ReadsTheHandWrittenStreamAndAddsWhatIsMissing) {
    Summary summary;
    ASSERT_TRUE(ReadInto(summary, SummaryFixture()));
    EXPECT_EQ(U8(summary.GetTitle()), "Plan");
    EXPECT_EQ(U8(summary.GetAuthor()), "Zoë");
    EXPECT_EQ(summary.GetEditTime().Ticks(), 90ull * 60 * c_fileTimeTicksPerSecond);
    EXPECT_EQ(summary.GetPageCount(), 12);
    QAnyValue created;
    ASSERT_TRUE(summary.GetValue(Summary::PID_CREATE_DTM, created));
    EXPECT_EQ(created.MakeDateTime(), QDateTime(2024, 1, 2, 3, 4, 5));
    std::uint32_t type = 0;
    ASSERT_TRUE(summary.GetType(Summary::PID_THUMBNAIL, type));
    EXPECT_EQ(type, 71u);
    for (std::uint32_t id = Summary::c_firstId; id <= Summary::c_lastId; ++id) {
        SCOPED_TRACE(id);
        EXPECT_EQ(summary.GetName(id), Summary::NameOf(id));
        ASSERT_TRUE(summary.GetType(id, type));
        if (id != Summary::PID_THUMBNAIL) {
            EXPECT_EQ(type, Summary::TypeOf(id));
        }
    }
    EXPECT_TRUE(summary.GetSubject().IsEmpty());
    EXPECT_EQ(U8(summary.GetCurrentSection()->GetSectionName()), "SummaryInformation");

    // The thumbnail's raw bytes go out and come back as they were.
    CMemFile written;
    ASSERT_TRUE(summary.WriteToPropertyStream(written));
    Summary back;
    ASSERT_TRUE(ReadInto(back, written.Bytes()));
    std::uint32_t size = 0;
    const std::uint8_t* thumbnail = back.Get(Summary::PID_THUMBNAIL, &size);
    ASSERT_EQ(size, 12u);
    const StreamBytes expected = {8, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 3, 0, 0, 0};
    EXPECT_EQ(StreamBytes(thumbnail, thumbnail + size), expected);
}

TEST(SummaryInformation, FailingStreamsGiveFalse) {
    Summary summary;
    summary.SetTitle(u"Plan");
    CMemFile whole;
    ASSERT_TRUE(summary.WriteToPropertyStream(whole));
    const std::size_t size = whole.Bytes().size();
    for (const std::size_t limit : {std::size_t{0}, std::size_t{27}, std::size_t{28},
                                    std::size_t{48}, std::size_t{100}, size - 1}) {
        test::FailingMemFile full(limit);
        EXPECT_FALSE(summary.WriteToPropertyStream(full)) << limit;
    }
    test::FailingMemFile enough(size);
    EXPECT_TRUE(summary.WriteToPropertyStream(enough));

    for (const std::size_t readLimit : {std::size_t{0}, std::size_t{28}, std::size_t{60}}) {
        test::FailingMemFile broken(SIZE_MAX, whole.Bytes(), readLimit);
        Summary reader;
        EXPECT_FALSE(reader.ReadFromPropertyStream(broken)) << readLimit;
        EXPECT_EQ(reader.GetCount(), 0);
    }
}

TEST(SummaryInformation, StreamWithoutItsSectionEmptiesTheSet) {
    QPropertySet other(u"Other", nullptr);
    other.SetName(2, u"x");
    other.SetInt(2, 1);
    CMemFile file;
    ASSERT_TRUE(other.WriteToPropertyStream(file));

    Summary summary;
    summary.SetTitle(u"kept?");
    EXPECT_FALSE(ReadInto(summary, file.Bytes()));
    EXPECT_EQ(summary.GetCount(), 0);
    EXPECT_EQ(summary.GetCurrentSection(), nullptr);
    QAnyValue value(u"stale");
    EXPECT_FALSE(summary.GetValue(Summary::PID_TITLE, value));
    EXPECT_TRUE(value.IsEmpty());
    EXPECT_FALSE(summary.Lookup(value, u"title"));
    summary.SetTitle(u"nowhere");
    EXPECT_TRUE(summary.GetTitle().IsEmpty());

    summary.Reset();
    summary.SetTitle(u"again");
    EXPECT_EQ(U8(summary.GetTitle()), "again");
}

TEST(SummaryInformation, EditTimeAddsElapsedStepsAndWritesOncePerTick) {
    test::AnswerDocument document;
    Summary summary(&document);
    std::uint64_t now = 1'000'000'000;
    summary.SetClock([&now] { return FILETIME::FromTicks(now); });
    summary.SetEditTime(FILETIME::FromTicks(0xFFFFFFF0ull));
    summary.StartEditTimeCount();

    now += 0x20;
    const int changesBefore = document.m_changes;
    EXPECT_TRUE(summary.AddCountToEditTime());
    // The low half overflows into the high one.
    EXPECT_EQ(summary.GetEditTime().dwHighDateTime, 1u);
    EXPECT_EQ(summary.GetEditTime().dwLowDateTime, 0x10u);
    EXPECT_EQ(document.m_changes, changesBefore + 1);

    EXPECT_TRUE(summary.AddCountToEditTime());
    EXPECT_EQ(summary.GetEditTime().Ticks(), 0x100000010ull);
    EXPECT_EQ(document.m_changes, changesBefore + 1);

    now += 3 * 60 * c_fileTimeTicksPerSecond;
    EXPECT_TRUE(summary.AddCountToEditTime());
    EXPECT_EQ(summary.GetEditTime().Ticks(), 0x100000010ull + 3 * 60 * c_fileTimeTicksPerSecond);
    EXPECT_EQ(document.m_changes, changesBefore + 2);
}

TEST(SummaryInformation, FormulasReadAndSetPropertiesByName) {
    test::NamedValuesDocument document;
    Summary summary(&document);
    document.SetSource(&summary);
    summary.SetTitle(u"Plan");
    summary.SetPageCount(4);
    EXPECT_EQ(U8(QEvaluator::EvaluateFormulaAsString(FormulaText("title & \" of \" & pagecount"),
                                                     &document, false, false, false)),
              "Plan of 4");
    EXPECT_TRUE(summary.Set(QAnyValue(u"Ann"), u"AUTHOR"));
    EXPECT_EQ(U8(summary.GetAuthor()), "Ann");
    EXPECT_FALSE(summary.Set(QAnyValue(1), u"nosuchname"));
    std::uint32_t id = 0;
    EXPECT_FALSE(summary.GetID(u"nosuchname", id));
}

TEST(SummaryInformation, MergeTakesOrKeepsPropertiesByStrategy) {
    Summary source;
    source.SetTitle(u"From source");
    source.SetName(30, u"client");
    source.SetString(30, u"Acme");
    Summary keeping;
    keeping.SetTitle(u"Mine");
    keeping.Merge(source, MERGE_KEEP_EXISTING);
    EXPECT_EQ(U8(keeping.GetTitle()), "Mine");
    EXPECT_EQ(U8(keeping.GetString(30)), "Acme");
    EXPECT_EQ(U8(keeping.GetName(30)), "client");

    Summary overwriting;
    overwriting.SetTitle(u"Mine");
    overwriting.Merge(source, MERGE_OVERWRITE);
    EXPECT_EQ(U8(overwriting.GetTitle()), "From source");
}

TEST(SummaryInformation, WeAndLibgsfReadBackWhatWeWrite) {
    Summary summary;
    summary.SetTitle(u"Café plans");
    summary.SetPageCount(3);
    summary.SetCreateDate(FILETIME::FromTicks(133486704000000000ull));
    summary.SetEditTime(FILETIME::FromTicks(90ull * 60 * c_fileTimeTicksPerSecond));

    summary.SetWordCount(321);
    CMemFile file;
    ASSERT_TRUE(summary.WriteToPropertyStream(file));

    // We read back every value: written again, they give the same bytes.
    Summary back;
    ASSERT_TRUE(ReadInto(back, file.Bytes()));
    CMemFile again;
    ASSERT_TRUE(back.WriteToPropertyStream(again));
    EXPECT_EQ(again.Bytes(), file.Bytes());

    const test::GsfSummary read = test::ReadSummaryWithGsf(file.Bytes());
    ASSERT_TRUE(read.read);
    // Our dictionary names every summary property, and libgsf then reports those names.
    EXPECT_EQ(read.texts.at("title"), "Café plans");
    EXPECT_EQ(read.integers.at("pagecount"), 3);
    EXPECT_EQ(read.times.at("create_dtm"), 1704196800); // 2024-01-02 12:00 UTC
    // libgsf reads every file time as a point in time, the edit time too; the span shows as the
    // difference from a zero file time, which the last printed date still is.
    EXPECT_EQ(read.times.at("edittime") - read.times.at("lastprinted"), 90 * 60);
}

TEST(SummaryInformation, WeReadWhatLibgsfWrites) {
    const StreamBytes bytes = test::WriteWithGsf("Report", "Bob", 1700000000, 7);
    ASSERT_FALSE(bytes.empty());
    Summary summary;
    ASSERT_TRUE(ReadInto(summary, bytes));
    EXPECT_EQ(U8(summary.GetTitle()), "Report");
    EXPECT_EQ(U8(summary.GetAuthor()), "Bob");
    EXPECT_EQ(summary.GetPageCount(), 7);
    EXPECT_EQ(summary.GetCreateDate().Ticks(), 116444736000000000ull + 1700000000ull * 10000000);

    // libgsf's document summary stream has the other standard id: the summary set finds no
    // section there, the document summary set does.
    const StreamBytes document = test::WriteWithGsf("Report", "Bob", 1700000000, 7, true);
    EXPECT_FALSE(ReadInto(summary, document));
    QPropertySet documentSet(u"DocumentSummaryInformation", nullptr);
    ASSERT_TRUE(ReadInto(documentSet, document));
    int codePage = 0;
    EXPECT_TRUE(documentSet.GetInt(c_codePagePropertyId, codePage));
    EXPECT_EQ(codePage, 1252);
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

CPropertySection* DocSummaryInCodePage(CPropertySet& set, std::int16_t codePage) {
    CPropertySection* section = set.AddSection(FMTID_DocSummaryInformation);
    section->Set(c_codePagePropertyId, &codePage, VT_I2);
    return section;
}

// Null when the stream does not read.
const CPropertySection* DocSummaryReadBack(const StreamBytes& bytes, CPropertySet& back) {
    return ReadsSet(bytes, back) ? back.GetSection(FMTID_DocSummaryInformation) : nullptr;
}

TEST(OlePropertySet, UnicodeCodePageDictionaryPadsEachNameAndReadsBack) {
    CPropertySet set;
    CPropertySection* section = DocSummaryInCodePage(set, 1200);
    section->SetName(5, u"Größe");
    section->SetName(6, u"ab");
    const char16_t wide[] = u"Ωmega";
    section->Set(5, wide, VT_LPWSTR);
    const StreamBytes first = WrittenStream(set);

    CPropertySet back;
    const CPropertySection* read = DocSummaryReadBack(first, back);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->GetName(5), CString(u"Größe"));
    EXPECT_EQ(read->GetName(6), CString(u"ab"));
    EXPECT_EQ(WrittenStream(back), first);
    // Header 8, three entries 24, the code page 8, "Ωmega" 4 + 4 + 12; the dictionary: count 4,
    // "Größe" 8 + 12 (6 units with the null), "ab" 8 + 6 padded to 8.
    EXPECT_EQ(read->GetSize(), 8u + 24u + 8u + 20u + 4u + 20u + 16u);
}

// US-ASCII writes both "\u00e9X" and "\u00fcx" as "?x", which a reader takes as one name: the
// later one is written, as a reader would keep it, and the stream reads back as written.
TEST(OlePropertySet, NamesAlikeInTheNarrowCodePageAreWrittenOnceAsTheyReadBack) {
    CPropertySet set;
    CPropertySection* section = DocSummaryInCodePage(set, 20127);
    section->SetName(5, u"\u00e9X");
    section->SetName(6, u"b");
    section->SetName(7, u"\u00fcx");
    const StreamBytes first = WrittenStream(set);

    CPropertySet back;
    const CPropertySection* read = DocSummaryReadBack(first, back);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->GetNames(), (CPropertySection::NameList{{6, u"b"}, {7, u"?x"}}));
    EXPECT_EQ(WrittenStream(back), first);
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

// A dictionary read from a stream holds what SetName leaves when given its entries in turn.
TEST(OlePropertySet, ADictionaryReadsAsItsEntriesSetInTurn) {
    const std::vector<std::pair<std::uint32_t, std::string>> entries = {
        {2, "Title"}, {3, "title"}, {4, "a"}, {5, "x"}, {6, "c"}, {7, "d"},
        {4, "B"},     {5, ""},      {6, "D"}, {8, "b"}, {9, "e"}, {8, "E"}};
    StreamBytes bytes(4);
    PutU32(bytes, 0, static_cast<std::uint32_t>(entries.size()));
    CPropertySection expected;
    for (const auto& [id, name] : entries) {
        bytes.resize(bytes.size() + 8);
        PutU32(bytes, bytes.size() - 8, id);
        PutU32(bytes, bytes.size() - 4, static_cast<std::uint32_t>(name.size() + 1));
        bytes.insert(bytes.end(), name.begin(), name.end() + 1);
        expected.SetName(id, CString::FromUtf8(name));
    }
    CMemFile file(bytes);
    CPropertySection read;
    ASSERT_TRUE(read.ReadNameDictFromStream(file, static_cast<std::uint32_t>(bytes.size())));
    EXPECT_EQ(read.GetNames(), (CPropertySection::NameList{{3, u"title"}, {6, u"D"}, {8, u"E"}}));
    EXPECT_EQ(read.GetNames(), expected.GetNames());
}

TEST(OlePropertySet, ASectionTakesTheLastValueOfAnIdInThePlaceOfItsFirst) {
    const std::vector<std::pair<std::uint32_t, std::uint32_t>> entries = {
        {2, 10}, {3, 20}, {2, 30}};
    StreamBytes bytes(8 + 16 * entries.size());
    PutU32(bytes, 0, static_cast<std::uint32_t>(bytes.size()));
    PutU32(bytes, 4, static_cast<std::uint32_t>(entries.size()));
    for (std::size_t at = 0; at < entries.size(); ++at) {
        const std::size_t property = 8 + 8 * entries.size() + 8 * at;
        PutU32(bytes, 8 + 8 * at, entries[at].first);
        PutU32(bytes, 12 + 8 * at, static_cast<std::uint32_t>(property));
        PutU32(bytes, property, VT_I4);
        PutU32(bytes, property + 4, entries[at].second);
    }
    CMemFile file(bytes);
    CPropertySection read;
    ASSERT_TRUE(read.ReadFromStream(file));
    ASSERT_EQ(read.GetCount(), 2);
    EXPECT_EQ(read.GetList()[0]->GetID(), 2u);
    EXPECT_EQ(read.GetList()[1]->GetID(), 3u);
    std::uint32_t size = 0;
    const std::uint8_t* value = read.Get(2, &size);
    ASSERT_EQ(size, 4u);
    EXPECT_EQ(value[0], 30);
}

// Each case spoils the fixture in one place; every one must give false and an empty set.
TEST(OlePropertySet, HostileStreamsGiveFalseAndLeaveTheSetEmpty) {
    const struct {
        const char* name;
        std::function<void(StreamBytes&)> spoil;
    } cases[] = {
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
        {"dictionary count past its room",
         [](StreamBytes& b) { PutU32(b, 0x30 + 0x50, 0x10000000); }},
        {"dictionary name past its room",
         [](StreamBytes& b) { PutU32(b, 0x30 + 0x58, 0xFFFFFF00); }},
        {"wide string count doubled past room",
         [](StreamBytes& b) {
             b[0x30 + 0x74] = 31; // the title as a wide string of 5 units: 10 bytes in 8
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        StreamBytes bytes = SummaryFixture();
        c.spoil(bytes);
        CPropertySet set;
        set.AddSection(FMTID_DocSummaryInformation);
        EXPECT_FALSE(ReadsSet(bytes, set));
        EXPECT_EQ(set.GetCount(), 0);
    }
}

TEST(OlePropertySet, EveryTruncationOfAValidStreamGivesFalse) {
    const StreamBytes fixture = SummaryFixture();
    for (std::size_t length = 0; length < fixture.size(); ++length) {
        CPropertySet set;
        EXPECT_FALSE(ReadsSet(StreamBytes(fixture.begin(), fixture.begin() + length), set))
            << length;
    }
}

} // namespace
} // namespace keel
