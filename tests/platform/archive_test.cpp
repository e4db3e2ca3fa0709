#include "tests/support/archivebytes.h"
#include "tests/support/compoundprobe.h"

#include "keel/platform/archive.h"
#include "keel/platform/file.h"
#include "keel/platform/schema.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::Bytes;
using test::Concat;
using test::Hex;
using test::Loading;
using test::Stored;
using test::WideUnits;
using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

struct PrimitiveCase {
    const char* name;
    std::function<void(CArchive&)> write;
    Bytes expected;
};

// One value of type T stored alone, and the bytes it gives.
template <class T>
PrimitiveCase P(const char* name, T value, const char* bytes) {
    return {name, [value](CArchive& ar) { ar << value; }, Hex(bytes)};
}

TEST(ArchivePrimitives, WriteLittleEndianBytes) {
    // long is std::int64_t on this platform and writes 8 bytes, never 4.
    const auto nan = std::bit_cast<double>(std::uint64_t{0x7FF4000000000123});
    for (const PrimitiveCase& test :
         {P("bool true", true, "01"), P("int16 -2", std::int16_t{-2}, "FE FF"),
          P("char16_t euro", u'\u20AC', "AC 20"),
          P("uint32", std::uint32_t{0xDEADBEEF}, "EF BE AD DE"),
          P("uint64", std::uint64_t{0x0102030405060708}, "08 07 06 05 04 03 02 01"),
          P("long", 5L, "05 00 00 00 00 00 00 00"), P("float -2.5", -2.5f, "00 00 20 C0"),
          P("double 0.1", 0.1, "9A 99 99 99 99 99 B9 3F"),
          P("double NaN payload", nan, "23 01 00 00 00 00 F4 7F")}) {
        SCOPED_TRACE(test.name);
        EXPECT_EQ(Stored(test.write), test.expected);
    }
}

TEST(ArchivePrimitives, AnyNonZeroByteReadsAsTrue) {
    Loading loading({0x00, 0x01, 0x7F, 0xFF});
    for (const bool expected : {false, true, true, true}) {
        bool value = !expected;
        loading.archive >> value;
        EXPECT_EQ(value, expected);
    }
}

// Every primitive type: its limits come back bit for bit (NaN payloads and the sign of zero
// count), and a read or write in the wrong direction or past the end fails with its cause and
// the file's name.
template <class T>
class ArchiveTyped : public ::testing::Test {};

using ArchiveTypes =
    ::testing::Types<bool, char, std::int8_t, std::uint8_t, std::int16_t, std::uint16_t, char16_t,
                     std::int32_t, std::uint32_t, std::int64_t, std::uint64_t, long long,
                     unsigned long long, float, double>;
TYPED_TEST_SUITE(ArchiveTyped, ArchiveTypes);

TYPED_TEST(ArchiveTyped, LimitsSurviveBitForBit) {
    using T = TypeParam;
    using Limits = std::numeric_limits<T>;
    std::vector<T> values = {T{}, Limits::min(), Limits::max(), Limits::lowest()};
    if constexpr (std::is_floating_point_v<T>) {
        values.insert(values.end(),
                      {-T{0}, Limits::infinity(), -Limits::infinity(), Limits::denorm_min(),
                       Limits::quiet_NaN(), -Limits::quiet_NaN(), Limits::epsilon()});
        if constexpr (sizeof(T) == 8)
            values.push_back(std::bit_cast<T>(std::uint64_t{0x7FF4000000000123}));
        else
            values.push_back(std::bit_cast<T>(std::uint32_t{0xFFA00001}));
    }
    for (const T value : values) {
        const Bytes bytes = Stored([&](CArchive& ar) { ar << value; });
        EXPECT_EQ(bytes.size(), sizeof(T));
        Loading loading(bytes);
        T back{};
        loading.archive >> back;
        EXPECT_EQ(std::memcmp(&back, &value, sizeof(T)), 0);
        EXPECT_TRUE(loading.archive.IsBufferEmpty());
    }
}

TYPED_TEST(ArchiveTyped, WrongDirectionAndEndOfFileFail) {
    TypeParam value{};
    const char* name = "/drawings/site plan.kdf";
    CMemFile file;
    file.SetFilePath(CString(name));
    CArchive storing(&file, CArchive::store);
    Loading loading({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, 4096, CString(name));
    Loading empty({}, 4096, u"empty.kdf");
    CString text;
    char raw[2];
    for (const auto& read : std::initializer_list<std::function<void()>>{
             [&] { storing >> value; }, [&] { storing >> text; }, [&] { storing.ReadCount(); },
             [&] { storing.Read(raw, 2); }})
        EXPECT_EQ(test::ArchiveCauseOf(read, name), CArchiveException::writeOnly);
    for (const auto& write : std::initializer_list<std::function<void()>>{
             [&] { loading.archive << value; }, [&] { loading.archive << CString(u"s"); },
             [&] { loading.archive.WriteCount(1); }, [&] { loading.archive.Write("ab", 2); }})
        EXPECT_EQ(test::ArchiveCauseOf(write, name), CArchiveException::readOnly);
    EXPECT_EQ(loading.file.Bytes().size(), 10u);
    for (const auto& read : std::initializer_list<std::function<void()>>{
             [&] { empty.archive >> value; }, [&] { empty.archive >> text; },
             [&] { empty.archive.ReadCount(); }})
        EXPECT_EQ(test::ArchiveCauseOf(read, "empty.kdf"), CArchiveException::endOfFile);
}

struct CountCase {
    std::uint64_t count;
    Bytes bytes;
    bool shortest = true; // the form that is written; the others are only read
};

const CountCase kCountCases[] = {
    {0, {0x00, 0x00}},
    {0xFFFE, {0xFE, 0xFF}},
    {0xFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}},
    {0xFFFFFFFE, {0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF}},
    {0xFFFFFFFF, Concat({Bytes(6, 0xFF), {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00}})},
    {0x123456789A, Concat({Bytes(6, 0xFF), {0x9A, 0x78, 0x56, 0x34, 0x12, 0x00, 0x00, 0x00}})},
    {UINT64_MAX, Bytes(14, 0xFF)},
    {5, {0xFF, 0xFF, 0x05, 0x00, 0x00, 0x00}, false}};

TEST(ArchiveCount, WritesTheShortestFormAndReadsEveryForm) {
    for (const CountCase& test : kCountCases) {
        SCOPED_TRACE(test.count);
        if (test.shortest) {
            EXPECT_EQ(Stored([&](CArchive& ar) { ar.WriteCount(test.count); }), test.bytes);
        }
        Loading loading(test.bytes);
        EXPECT_EQ(loading.archive.ReadCount(), test.count);
        EXPECT_TRUE(loading.archive.IsBufferEmpty());
    }
}

struct StringCase {
    std::string name;
    std::u16string text;
    Bytes bytes;
    bool written = true; // the form that is written; the others are only read
};

// A text of `length` units after the wide marker and the given length prefix.
StringCase Long(int length, const Bytes& prefix) {
    std::u16string text;
    for (int i = 0; i < length; ++i)
        text.push_back(static_cast<char16_t>(0x20 + i % 0x3000));
    return {std::to_string(length), text, Concat({{0xFF, 0xFE, 0xFF}, prefix, WideUnits(text)})};
}

// The narrow form holds bytes of code page 1252.
StringCase NarrowC1() {
    Bytes bytes = {0x20};
    for (int byte = 0x80; byte <= 0x9F; ++byte)
        bytes.push_back(static_cast<std::uint8_t>(byte));
    return {"narrow 0x80-0x9F",
            u"\u20AC\u0081\u201A\u0192\u201E\u2026\u2020\u2021"
            u"\u02C6\u2030\u0160\u2039\u0152\u008D\u017D\u008F"
            u"\u0090\u2018\u2019\u201C\u201D\u2022\u2013\u2014"
            u"\u02DC\u2122\u0161\u203A\u0153\u009D\u017E\u0178",
            bytes, false};
}

const std::vector<StringCase> kStringCases = {
    {"empty", u"", {0xFF, 0xFE, 0xFF, 0x00}},
    {"abc", u"abc", {0xFF, 0xFE, 0xFF, 0x03, 'a', 0, 'b', 0, 'c', 0}},
    {"embedded null", std::u16string(u"a\0b", 3), {0xFF, 0xFE, 0xFF, 0x03, 'a', 0, 0, 0, 'b', 0}},
    Long(254, {0xFE}),
    Long(255, {0xFF, 0xFF, 0x00}),
    Long(0xFFFD, {0xFF, 0xFD, 0xFF}),
    Long(0xFFFE, {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}),
    Long(0x10005, {0xFF, 0xFF, 0xFF, 0x05, 0x00, 0x01, 0x00}),
    {"narrow empty", u"", {0x00}, false},
    {"narrow latin-1", u"\u00E9\u00FF\u00A0", {0x03, 0xE9, 0xFF, 0xA0}, false},
    NarrowC1(),
    {"narrow 16-bit length", std::u16string(256, u'z'),
     Concat({{0xFF, 0x00, 0x01}, Bytes(256, 'z')}), false},
    {"narrow 32-bit length", u"xy", {0xFF, 0xFF, 0xFF, 0x02, 0x00, 0x00, 0x00, 'x', 'y'}, false},
    {"narrow 64-bit length", u"q", Hex("FF FF FF FF FF FF FF 01 00 00 00 00 00 00 00 71"), false},
    {"wide 16-bit length", u"hi", {0xFF, 0xFE, 0xFF, 0xFF, 0x02, 0x00, 'h', 0, 'i', 0}, false},
    {"wide 64-bit length", u"hi",
     Concat({{0xFF, 0xFE}, Bytes(8, 0xFF), {0x02, 0, 0, 0, 0, 0, 0, 0, 'h', 0, 'i', 0}}), false}};

TEST(ArchiveString, WritesTheWideFormAndReadsEveryAcceptedForm) {
    for (const StringCase& test : kStringCases) {
        for (const int bufferSize : {7, 4096}) {
            SCOPED_TRACE(test.name + " buffer " + std::to_string(bufferSize));
            if (test.written) {
                EXPECT_EQ(Stored([&](CArchive& ar) { ar << CString(test.text); }, bufferSize),
                          test.bytes);
            }
            Loading loading(test.bytes, bufferSize);
            CString text = u"old";
            loading.archive >> text;
            EXPECT_EQ(text.View(), test.text);
            EXPECT_TRUE(loading.archive.IsBufferEmpty());
        }
    }
}

struct BadStringCase {
    const char* name;
    Bytes bytes;
    int cause;
};

// A length the stream cannot supply is an end of file, found after reading at most what is
// there; a length no string can have (above INT_MAX) or a repeated wide marker is a corrupt
// stream, reported as genericException before anything is allocated.
constexpr int c_eof = CArchiveException::endOfFile;
constexpr int c_corrupt = CArchiveException::genericException;
const BadStringCase kBadStringCases[] = {
    {"nothing", {}, c_eof},
    {"half a word", Hex("FF FE"), c_eof},
    {"marker only", Hex("FF FE FF"), c_eof},
    {"wide, units missing", Hex("FF FE FF 03 61 00 62 00"), c_eof},
    {"narrow, bytes missing", Hex("05 61 62"), c_eof},
    {"16-bit length cut", Hex("FF FF"), c_eof},
    {"INT_MAX units, few there", Hex("FF FE FF FF FF FF FF FF FF 7F 61 00"), c_eof},
    {"above INT_MAX", Hex("FF FE FF FF FF FF 00 00 00 80 61 00"), c_corrupt},
    {"64-bit huge", Hex("FF FE FF FF FF FF FF FF FF FF 00 00 00 00 00 01 00 00"), c_corrupt},
    {"narrow 64-bit huge", Bytes(15, 0xFF), c_corrupt},
    {"marker twice", Hex("FF FE FF FF FE FF 00"), c_corrupt}};

TEST(ArchiveString, MalformedInputFailsWithACause) {
    for (const BadStringCase& test : kBadStringCases) {
        SCOPED_TRACE(test.name);
        Loading loading(test.bytes, 4096, u"broken.kdf");
        CString text;
        EXPECT_EQ(test::ArchiveCauseOf([&] { loading.archive >> text; }, "broken.kdf"), test.cause);
    }
}

TEST(ArchiveRaw, ReadIsShortOnlyAtTheEnd) {
    Bytes bytes(10000);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    Loading loading(bytes, 64);
    std::uint8_t head[3];
    EXPECT_EQ(loading.archive.Read(head, 3), 3u);
    Bytes rest(20000);
    EXPECT_EQ(loading.archive.Read(rest.data(), 20000), 9997u);
    rest.resize(9997);
    EXPECT_TRUE(std::equal(rest.begin(), rest.end(), bytes.begin() + 3));
    EXPECT_EQ(loading.archive.Read(head, 3), 0u);
}

TEST(ArchiveRaw, LargeAndSmallWritesKeepTheirOrder) {
    Bytes big(300, 0xAB);
    const Bytes bytes = Stored(
        [&](CArchive& ar) {
            ar << std::uint8_t{1};
            ar.Write(big.data(), static_cast<unsigned>(big.size()));
            ar << std::uint8_t{2};
            ar.Write(big.data(), 10);
        },
        16);
    EXPECT_EQ(bytes, Concat({{1}, big, {2}, Bytes(10, 0xAB)}));
}

TEST(ArchiveBuffering, StoringKeepsBytesUntilFlushCloseOrDestructionButNotAbort) {
    CMemFile file;
    CArchive archive(&file, CArchive::store, 4);
    EXPECT_TRUE(archive.IsBufferEmpty());
    archive << std::int16_t{0x0102};
    EXPECT_FALSE(archive.IsBufferEmpty());
    EXPECT_TRUE(file.Bytes().empty());
    archive.Flush();
    EXPECT_TRUE(archive.IsBufferEmpty());
    EXPECT_EQ(file.Bytes(), (Bytes{0x02, 0x01}));
    archive << std::int16_t{-1};
    archive.Close();
    EXPECT_EQ(archive.GetFile(), nullptr);
    EXPECT_EQ(file.Bytes(), (Bytes{0x02, 0x01, 0xFF, 0xFF}));
    EXPECT_EQ(test::ArchiveCauseOf([&] { archive << 2.0; }), CArchiveException::genericException);

    for (const bool abort : {false, true}) {
        CMemFile other;
        {
            CArchive scoped(&other, CArchive::store);
            scoped << std::int16_t{-1};
            if (abort)
                scoped.Abort();
        }
        EXPECT_EQ(other.Bytes(), abort ? Bytes() : Bytes(2, 0xFF));
    }
}

TEST(ArchiveBuffering, LoadingFlushGivesUnreadBytesBack) {
    Loading loading({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    std::uint8_t byte = 0;
    loading.archive >> byte;
    EXPECT_EQ(byte, 1);
    loading.archive.Flush();
    EXPECT_TRUE(loading.archive.IsBufferEmpty());
    EXPECT_EQ(loading.file.GetPosition(), 1u);
    loading.archive >> byte;
    EXPECT_EQ(byte, 2);
}

TEST(ArchiveState, SchemaAndFileName) {
    CMemFile other;
    other.SetFilePath(u"/plans/house.kdf");
    CArchive loading(&other, CArchive::load);
    // The schema starts as none and is consumed by reading it.
    EXPECT_EQ(loading.GetObjectSchema(), 0xFFFFFFFFu);
    loading.SetObjectSchema(3);
    EXPECT_EQ(loading.GetObjectSchema(), 3u);
    EXPECT_EQ(loading.GetObjectSchema(), CArchive::noSchema);
    // The file name comes from the file and can be changed; failures report the new one.
    EXPECT_EQ(loading.GetFileName(), u"/plans/house.kdf");
    loading.SetFileName(u"renamed.kdf");
    std::uint8_t byte;
    EXPECT_EQ(test::ArchiveCauseOf([&] { loading >> byte; }, "renamed.kdf"),
              CArchiveException::endOfFile);
    EXPECT_THAT([] { ThrowArchiveException(CArchiveException::badSchema, u"doc.kdf"); },
                ThrowsMessage<CArchiveException>(AllOf(HasSubstr("schema"), HasSubstr("doc.kdf"))));
}

// The schema numbers a test sets are put back after it.
class SchemaTest : public ::testing::Test {
protected:
    // An archive whose schema field holds `schema`.
    CArchive& With(unsigned schema) {
        m_archive.SetObjectSchema(schema);
        return m_archive;
    }

    test::ScopedSchema m_restore{QSchema::DefaultVersion()};
    CMemFile m_file;
    CArchive m_archive{&m_file, CArchive::load};
};

TEST_F(SchemaTest, VersionIsTheArchivesSchemaOrTheDefaultAndStaysThere) {
    EXPECT_EQ(QSchema::Version(With(CArchive::noSchema)), -1);
    QSchema::SetDefaultSchema(120);

    CArchive& archive = With(17);
    EXPECT_EQ(QSchema::Version(archive), 17);
    EXPECT_EQ(QSchema::Version(archive), 17) << "reading the version consumed it";
    EXPECT_EQ(archive.GetObjectSchema(), 17u);
    // A negative schema is replaced by the default, which is stored.
    for (const unsigned none : {CArchive::noSchema, 0x80000000u}) {
        EXPECT_EQ(QSchema::Version(With(none)), 120);
        EXPECT_EQ(m_archive.GetObjectSchema(), 120u);
    }
}

TEST_F(SchemaTest, ComparisonsAgainstTheArchivesVersion) {
    using Compare = std::function<bool(CArchive&, int)>;
    const struct {
        const char* name;
        Compare compare;
        bool below, equal, above; // the archive's version 10 against 11, 10 and 9
    } rows[] = {
        {"IsVersion", QSchema::IsVersion, false, true, false},
        {"IsUptoVersion", QSchema::IsUptoVersion, true, true, false},
        {"IsAtLeastVersion", QSchema::IsAtLeastVersion, false, true, true},
        {"IsBeforeVersion", QSchema::IsBeforeVersion, true, false, false},
        {"IsAfterVersion", QSchema::IsAfterVersion, false, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.compare(With(10), 11), row.below);
        EXPECT_EQ(row.compare(With(10), 10), row.equal);
        EXPECT_EQ(row.compare(With(10), 9), row.above);
        QSchema::SetDefaultSchema(10);
        EXPECT_EQ(row.compare(With(10), -1), row.equal) << "-1 stands for the default";
        EXPECT_EQ(row.compare(With(CArchive::noSchema), 10), row.equal)
            << "an archive without a schema has the default";
    }
}

} // namespace
} // namespace keel
