#include "keel/platform/archive.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace keel {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Stored(const std::function<void(CArchive&)>& write, int bufferSize = 4096) {
    CMemFile file;
    CArchive archive(&file, CArchive::store, bufferSize);
    write(archive);
    archive.Close();
    return file.Bytes();
}

CMemFile* Named(CMemFile& file, const CString& name) {
    file.SetFilePath(name);
    return &file;
}

// A loading archive over bytes, with the memory file it reads.
struct Loading {
    explicit Loading(Bytes bytes, int bufferSize = 4096, const CString& name = CString())
        : file(std::move(bytes)), archive(Named(file, name), CArchive::load, bufferSize) {}
    CMemFile file;
    CArchive archive;
};

Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes WideUnits(const std::u16string& text) {
    Bytes bytes;
    for (const char16_t unit : text) {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return bytes;
}

int CauseOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const CArchiveException& failure) {
        return failure.m_cause;
    }
    return CArchiveException::none;
}

// --- Primitives, byte for byte ---------------------------------------------------------------

struct PrimitiveCase {
    const char* name;
    std::function<void(CArchive&)> write;
    Bytes expected;
};

const PrimitiveCase kPrimitiveCases[] = {
    {"bool true", [](CArchive& ar) { ar << true; }, {0x01}},
    {"bool false", [](CArchive& ar) { ar << false; }, {0x00}},
    {"char", [](CArchive& ar) { ar << 'A'; }, {0x41}},
    {"int8 -1", [](CArchive& ar) { ar << std::int8_t{-1}; }, {0xFF}},
    {"uint8", [](CArchive& ar) { ar << std::uint8_t{0xAB}; }, {0xAB}},
    {"int16 -2", [](CArchive& ar) { ar << std::int16_t{-2}; }, {0xFE, 0xFF}},
    {"uint16", [](CArchive& ar) { ar << std::uint16_t{0x1234}; }, {0x34, 0x12}},
    {"char16_t euro", [](CArchive& ar) { ar << u'\u20AC'; }, {0xAC, 0x20}},
    {"int32 min", [](CArchive& ar) { ar << std::int32_t{INT32_MIN}; }, {0x00, 0x00, 0x00, 0x80}},
    {"int32 -2", [](CArchive& ar) { ar << -2; }, {0xFE, 0xFF, 0xFF, 0xFF}},
    {"uint32", [](CArchive& ar) { ar << std::uint32_t{0xDEADBEEF}; }, {0xEF, 0xBE, 0xAD, 0xDE}},
    {"int64 min",
     [](CArchive& ar) { ar << std::int64_t{INT64_MIN}; },
     {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80}},
    {"uint64",
     [](CArchive& ar) { ar << std::uint64_t{0x0102030405060708}; },
     {0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01}},
    // long is std::int64_t on this platform and writes 8 bytes, never 4.
    {"long", [](CArchive& ar) { ar << 5L; }, {0x05, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}},
    {"unsigned long",
     [](CArchive& ar) { ar << 0x0102UL; },
     {0x02, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}},
    {"long long -1",
     [](CArchive& ar) { ar << -1LL; },
     {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
    {"unsigned long long",
     [](CArchive& ar) { ar << 0x8000000000000001ULL; },
     {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80}},
    {"float 1", [](CArchive& ar) { ar << 1.0f; }, {0x00, 0x00, 0x80, 0x3F}},
    {"float -2.5", [](CArchive& ar) { ar << -2.5f; }, {0x00, 0x00, 0x20, 0xC0}},
    {"double 1", [](CArchive& ar) { ar << 1.0; }, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF0, 0x3F}},
    {"double -0",
     [](CArchive& ar) { ar << -0.0; },
     {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80}},
    {"double 0.1",
     [](CArchive& ar) { ar << 0.1; },
     {0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F}},
    {"sequence",
     [](CArchive& ar) { ar << std::uint8_t{1} << std::int16_t{2} << 3; },
     {0x01, 0x02, 0x00, 0x03, 0x00, 0x00, 0x00}},
};

TEST(ArchivePrimitives, WriteLittleEndianBytes) {
    for (const PrimitiveCase& test : kPrimitiveCases) {
        SCOPED_TRACE(test.name);
        EXPECT_EQ(Stored(test.write), test.expected);
    }
}

template <class T>
class ArchiveRoundTrip : public ::testing::Test {};

using RoundTripTypes =
    ::testing::Types<bool, char, std::int8_t, std::uint8_t, std::int16_t, std::uint16_t, char16_t,
                     std::int32_t, std::uint32_t, std::int64_t, std::uint64_t, long long,
                     unsigned long long, float, double>;
TYPED_TEST_SUITE(ArchiveRoundTrip, RoundTripTypes);

template <class T>
std::vector<T> LimitValues() {
    using Limits = std::numeric_limits<T>;
    std::vector<T> values = {T{}, Limits::min(), Limits::max(), Limits::lowest()};
    if constexpr (std::is_floating_point_v<T>) {
        values.push_back(-T{0});
        values.push_back(Limits::infinity());
        values.push_back(-Limits::infinity());
        values.push_back(Limits::denorm_min());
        values.push_back(Limits::quiet_NaN());
        values.push_back(-Limits::quiet_NaN());
        values.push_back(Limits::epsilon());
    }
    return values;
}

// Floating values compare by bit pattern, so NaN payloads and the sign of zero count.
template <class T>
bool SameBits(T a, T b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

TYPED_TEST(ArchiveRoundTrip, LimitsSurviveBitForBit) {
    for (const TypeParam value : LimitValues<TypeParam>()) {
        const Bytes bytes = Stored([&](CArchive& ar) { ar << value; });
        EXPECT_EQ(bytes.size(), sizeof(TypeParam));
        Loading loading(bytes);
        TypeParam back{};
        loading.archive >> back;
        EXPECT_TRUE(SameBits(back, value));
        EXPECT_TRUE(loading.archive.IsBufferEmpty());
    }
}

TEST(ArchiveRoundTripNaN, PayloadIsKept) {
    const auto doubleBits = std::uint64_t{0x7FF4000000000123};
    const auto floatBits = std::uint32_t{0xFFA00001};
    const Bytes bytes = Stored([&](CArchive& ar) {
        ar << std::bit_cast<double>(doubleBits) << std::bit_cast<float>(floatBits);
    });
    EXPECT_EQ(bytes,
              (Bytes{0x23, 0x01, 0x00, 0x00, 0x00, 0x00, 0xF4, 0x7F, 0x01, 0x00, 0xA0, 0xFF}));
    Loading loading(bytes);
    double d = 0;
    float f = 0;
    loading.archive >> d >> f;
    EXPECT_EQ(std::bit_cast<std::uint64_t>(d), doubleBits);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(f), floatBits);
}

TEST(ArchivePrimitives, AnyNonZeroByteReadsAsTrue) {
    Loading loading({0x00, 0x01, 0x7F, 0xFF});
    bool values[4] = {};
    for (bool& value : values)
        loading.archive >> value;
    EXPECT_FALSE(values[0]);
    EXPECT_TRUE(values[1]);
    EXPECT_TRUE(values[2]);
    EXPECT_TRUE(values[3]);
}

// --- Counts ---------------------------------------------------------------------------------

struct CountCase {
    std::uint64_t count;
    Bytes expected;
};

const CountCase kCountCases[] = {
    {0, {0x00, 0x00}},
    {0x1234, {0x34, 0x12}},
    {0xFFFE, {0xFE, 0xFF}},
    {0xFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}},
    {0x10000, {0xFF, 0xFF, 0x00, 0x00, 0x01, 0x00}},
    {0xFFFFFFFE, {0xFF, 0xFF, 0xFE, 0xFF, 0xFF, 0xFF}},
    {0xFFFFFFFF,
     {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00}},
    {0x123456789A,
     {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x9A, 0x78, 0x56, 0x34, 0x12, 0x00, 0x00, 0x00}},
    {UINT64_MAX,
     {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
};

TEST(ArchiveCount, WritesTheShortestForm) {
    for (const CountCase& test : kCountCases) {
        SCOPED_TRACE(test.count);
        EXPECT_EQ(Stored([&](CArchive& ar) { ar.WriteCount(test.count); }), test.expected);
    }
}

TEST(ArchiveCount, ReadsEveryForm) {
    for (const CountCase& test : kCountCases) {
        SCOPED_TRACE(test.count);
        Loading loading(test.expected);
        EXPECT_EQ(loading.archive.ReadCount(), test.count);
        EXPECT_TRUE(loading.archive.IsBufferEmpty());
    }
}

TEST(ArchiveCount, AcceptsLongerFormsThanNeeded) {
    Loading loading({0xFF, 0xFF, 0x05, 0x00, 0x00, 0x00});
    EXPECT_EQ(loading.archive.ReadCount(), 5u);
}

// --- Strings --------------------------------------------------------------------------------

struct StringCase {
    const char* name;
    std::u16string text;
    Bytes expected;
};

const StringCase kStringCases[] = {
    {"empty", u"", {0xFF, 0xFE, 0xFF, 0x00}},
    {"abc", u"abc", {0xFF, 0xFE, 0xFF, 0x03, 'a', 0, 'b', 0, 'c', 0}},
    {"euro and e acute", u"\u20AC\u00E9", {0xFF, 0xFE, 0xFF, 0x02, 0xAC, 0x20, 0xE9, 0x00}},
    {"surrogate pair", u"\U0001F600", {0xFF, 0xFE, 0xFF, 0x02, 0x3D, 0xD8, 0x00, 0xDE}},
    {"embedded null", std::u16string(u"a\0b", 3), {0xFF, 0xFE, 0xFF, 0x03, 'a', 0, 0, 0, 'b', 0}},
};

TEST(ArchiveString, WritesTheWideForm) {
    for (const StringCase& test : kStringCases) {
        SCOPED_TRACE(test.name);
        EXPECT_EQ(Stored([&](CArchive& ar) { ar << CString(test.text); }), test.expected);
    }
}

TEST(ArchiveString, ReadsTheWideForm) {
    for (const StringCase& test : kStringCases) {
        SCOPED_TRACE(test.name);
        Loading loading(test.expected);
        CString text = u"old";
        loading.archive >> text;
        EXPECT_EQ(text.View(), test.text);
        EXPECT_TRUE(loading.archive.IsBufferEmpty());
    }
}

struct LengthCase {
    int length;
    Bytes prefix;
};

const LengthCase kLengthCases[] = {
    {254, {0xFF, 0xFE, 0xFF, 0xFE}},
    {255, {0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0x00}},
    {256, {0xFF, 0xFE, 0xFF, 0xFF, 0x00, 0x01}},
    {0xFFFD, {0xFF, 0xFE, 0xFF, 0xFF, 0xFD, 0xFF}},
    {0xFFFE, {0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}},
    {0x10005, {0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0x05, 0x00, 0x01, 0x00}},
};

std::u16string PatternText(int length) {
    std::u16string text;
    for (int i = 0; i < length; ++i)
        text.push_back(static_cast<char16_t>(0x20 + i % 0x3000));
    return text;
}

TEST(ArchiveString, LengthPrefixBoundaries) {
    for (const LengthCase& test : kLengthCases) {
        SCOPED_TRACE(test.length);
        const std::u16string text = PatternText(test.length);
        const Bytes bytes = Stored([&](CArchive& ar) { ar << CString(text); }, 100);
        EXPECT_EQ(bytes, Concat({test.prefix, WideUnits(text)}));
        Loading loading(bytes, 100);
        CString back;
        loading.archive >> back;
        EXPECT_EQ(back.View(), text);
    }
}

struct ReadCase {
    const char* name;
    Bytes bytes;
    std::u16string expected;
};

Bytes NarrowLongForm() {
    Bytes bytes = {0xFF, 0x00, 0x01};
    bytes.insert(bytes.end(), 256, 'z');
    return bytes;
}

const ReadCase kReadCases[] = {
    {"narrow abc", {0x03, 'a', 'b', 'c'}, u"abc"},
    {"narrow empty", {0x00}, u""},
    {"narrow latin-1", {0x03, 0xE9, 0xFF, 0xA0}, u"\u00E9\u00FF\u00A0"},
    {"narrow euro", {0x01, 0x80}, u"\u20AC"},
    {"narrow 16-bit length", NarrowLongForm(), std::u16string(256, u'z')},
    {"narrow 32-bit length", {0xFF, 0xFF, 0xFF, 0x02, 0x00, 0x00, 0x00, 'x', 'y'}, u"xy"},
    {"narrow 64-bit length",
     {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01, 0, 0, 0, 0, 0, 0, 0, 'q'},
     u"q"},
    {"wide 16-bit length for a short text",
     {0xFF, 0xFE, 0xFF, 0xFF, 0x02, 0x00, 'h', 0, 'i', 0},
     u"hi"},
    {"wide 64-bit length",
     {0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x02,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 'h',  0,    'i',  0},
     u"hi"},
};

TEST(ArchiveString, ReadsEveryAcceptedForm) {
    for (const ReadCase& test : kReadCases) {
        SCOPED_TRACE(test.name);
        Loading loading(test.bytes);
        CString text;
        loading.archive >> text;
        EXPECT_EQ(text.View(), test.expected);
        EXPECT_TRUE(loading.archive.IsBufferEmpty());
    }
}

TEST(ArchiveString, NarrowBytesDecodeAsWindows1252) {
    const std::u16string expected = u"\u20AC\u0081\u201A\u0192\u201E\u2026\u2020\u2021"
                                    u"\u02C6\u2030\u0160\u2039\u0152\u008D\u017D\u008F"
                                    u"\u0090\u2018\u2019\u201C\u201D\u2022\u2013\u2014"
                                    u"\u02DC\u2122\u0161\u203A\u0153\u009D\u017E\u0178";
    Bytes bytes = {0x20};
    for (int byte = 0x80; byte <= 0x9F; ++byte)
        bytes.push_back(static_cast<std::uint8_t>(byte));
    Loading loading(bytes);
    CString text;
    loading.archive >> text;
    EXPECT_EQ(text.View(), expected);
}

TEST(ArchiveString, StringsFollowEachOtherAndOtherValues) {
    const Bytes bytes = Stored(
        [](CArchive& ar) { ar << CString(u"one") << 7 << CString(u"") << CString(u"three"); });
    Loading loading(bytes, 5);
    CString one, empty, three;
    int seven = 0;
    loading.archive >> one >> seven >> empty >> three;
    EXPECT_EQ(one, u"one");
    EXPECT_EQ(seven, 7);
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_EQ(three, u"three");
}

struct BadStringCase {
    const char* name;
    Bytes bytes;
    int cause;
};

// A length the stream cannot supply is an end of file, found after reading at most what is
// there; a length no string can have (above INT_MAX) or a repeated wide marker is a corrupt
// stream, reported as genericException before anything is allocated.
const BadStringCase kBadStringCases[] = {
    {"nothing", {}, CArchiveException::endOfFile},
    {"escape only", {0xFF}, CArchiveException::endOfFile},
    {"half a word", {0xFF, 0xFE}, CArchiveException::endOfFile},
    {"marker only", {0xFF, 0xFE, 0xFF}, CArchiveException::endOfFile},
    {"wide, units missing", {0xFF, 0xFE, 0xFF, 0x03, 'a', 0, 'b', 0}, CArchiveException::endOfFile},
    {"wide, half a unit", {0xFF, 0xFE, 0xFF, 0x01, 'a'}, CArchiveException::endOfFile},
    {"narrow, bytes missing", {0x05, 'a', 'b'}, CArchiveException::endOfFile},
    {"16-bit length cut", {0xFF, 0xFF}, CArchiveException::endOfFile},
    {"32-bit length cut", {0xFF, 0xFF, 0xFF, 0x01, 0x00}, CArchiveException::endOfFile},
    {"INT_MAX units, few there",
     {0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 'a', 0},
     CArchiveException::endOfFile},
    {"above INT_MAX",
     {0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x80, 'a', 0},
     CArchiveException::genericException},
    {"64-bit huge",
     {0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x01, 0x00, 0x00},
     CArchiveException::genericException},
    {"narrow 64-bit huge",
     {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
     CArchiveException::genericException},
    {"marker twice",
     {0xFF, 0xFE, 0xFF, 0xFF, 0xFE, 0xFF, 0x00},
     CArchiveException::genericException},
};

TEST(ArchiveString, MalformedInputFailsWithACause) {
    for (const BadStringCase& test : kBadStringCases) {
        SCOPED_TRACE(test.name);
        Loading loading(test.bytes, 4096, u"broken.kdf");
        CString text;
        try {
            loading.archive >> text;
            ADD_FAILURE() << "no exception";
        } catch (const CArchiveException& failure) {
            EXPECT_EQ(failure.m_cause, test.cause);
            EXPECT_EQ(failure.m_strFileName, u"broken.kdf");
        }
    }
}

// --- Direction and end of file ------------------------------------------------------------

struct OperationCase {
    const char* name;
    std::function<void(CArchive&)> operation;
};

const OperationCase kReads[] = {
    {"bool",
     [](CArchive& ar) {
         bool v;
         ar >> v;
     }},
    {"char",
     [](CArchive& ar) {
         char v;
         ar >> v;
     }},
    {"int8",
     [](CArchive& ar) {
         std::int8_t v;
         ar >> v;
     }},
    {"uint8",
     [](CArchive& ar) {
         std::uint8_t v;
         ar >> v;
     }},
    {"int16",
     [](CArchive& ar) {
         std::int16_t v;
         ar >> v;
     }},
    {"uint16",
     [](CArchive& ar) {
         std::uint16_t v;
         ar >> v;
     }},
    {"char16_t",
     [](CArchive& ar) {
         char16_t v;
         ar >> v;
     }},
    {"int32",
     [](CArchive& ar) {
         std::int32_t v;
         ar >> v;
     }},
    {"uint32",
     [](CArchive& ar) {
         std::uint32_t v;
         ar >> v;
     }},
    {"int64",
     [](CArchive& ar) {
         std::int64_t v;
         ar >> v;
     }},
    {"uint64",
     [](CArchive& ar) {
         std::uint64_t v;
         ar >> v;
     }},
    {"long long",
     [](CArchive& ar) {
         long long v;
         ar >> v;
     }},
    {"unsigned long long",
     [](CArchive& ar) {
         unsigned long long v;
         ar >> v;
     }},
    {"float",
     [](CArchive& ar) {
         float v;
         ar >> v;
     }},
    {"double",
     [](CArchive& ar) {
         double v;
         ar >> v;
     }},
    {"string",
     [](CArchive& ar) {
         CString v;
         ar >> v;
     }},
    {"count", [](CArchive& ar) { ar.ReadCount(); }},
    {"raw",
     [](CArchive& ar) {
         char v[2];
         ar.Read(v, 2);
     }},
};

const OperationCase kWrites[] = {
    {"bool", [](CArchive& ar) { ar << true; }},
    {"char", [](CArchive& ar) { ar << 'c'; }},
    {"int8", [](CArchive& ar) { ar << std::int8_t{1}; }},
    {"uint8", [](CArchive& ar) { ar << std::uint8_t{1}; }},
    {"int16", [](CArchive& ar) { ar << std::int16_t{1}; }},
    {"uint16", [](CArchive& ar) { ar << std::uint16_t{1}; }},
    {"char16_t", [](CArchive& ar) { ar << u'x'; }},
    {"int32", [](CArchive& ar) { ar << 1; }},
    {"uint32", [](CArchive& ar) { ar << 1u; }},
    {"int64", [](CArchive& ar) { ar << std::int64_t{1}; }},
    {"uint64", [](CArchive& ar) { ar << std::uint64_t{1}; }},
    {"long long", [](CArchive& ar) { ar << 1LL; }},
    {"unsigned long long", [](CArchive& ar) { ar << 1ULL; }},
    {"float", [](CArchive& ar) { ar << 1.0f; }},
    {"double", [](CArchive& ar) { ar << 1.0; }},
    {"string", [](CArchive& ar) { ar << CString(u"s"); }},
    {"count", [](CArchive& ar) { ar.WriteCount(1); }},
    {"raw", [](CArchive& ar) { ar.Write("ab", 2); }},
};

TEST(ArchiveDirection, ReadingFromAStoringArchiveIsWriteOnly) {
    for (const OperationCase& test : kReads) {
        SCOPED_TRACE(test.name);
        CMemFile file;
        file.SetFilePath(u"/drawings/site plan.kdf");
        CArchive archive(&file, CArchive::store);
        try {
            test.operation(archive);
            ADD_FAILURE() << "no exception";
        } catch (const CArchiveException& failure) {
            EXPECT_EQ(failure.m_cause, CArchiveException::writeOnly);
            EXPECT_EQ(failure.m_cause, 4);
            EXPECT_EQ(failure.m_strFileName, u"/drawings/site plan.kdf");
            EXPECT_NE(std::string(failure.what()).find("/drawings/site plan.kdf"),
                      std::string::npos);
        }
    }
}

TEST(ArchiveDirection, WritingToALoadingArchiveIsReadOnly) {
    for (const OperationCase& test : kWrites) {
        SCOPED_TRACE(test.name);
        Loading loading({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, 4096, u"/drawings/site plan.kdf");
        try {
            test.operation(loading.archive);
            ADD_FAILURE() << "no exception";
        } catch (const CArchiveException& failure) {
            EXPECT_EQ(failure.m_cause, CArchiveException::readOnly);
            EXPECT_EQ(failure.m_cause, 2);
            EXPECT_EQ(failure.m_strFileName, u"/drawings/site plan.kdf");
        }
        EXPECT_EQ(loading.file.Bytes().size(), 10u);
    }
}

TEST(ArchiveEndOfFile, EveryReadPastTheEndFails) {
    for (const OperationCase& test : kReads) {
        if (std::string(test.name) == "raw")
            continue; // raw reads report a short count instead
        SCOPED_TRACE(test.name);
        Loading loading({}, 4096, u"empty.kdf");
        try {
            test.operation(loading.archive);
            ADD_FAILURE() << "no exception";
        } catch (const CArchiveException& failure) {
            EXPECT_EQ(failure.m_cause, CArchiveException::endOfFile);
            EXPECT_EQ(failure.m_cause, 3);
            EXPECT_EQ(failure.m_strFileName, u"empty.kdf");
            EXPECT_NE(std::string(failure.what()).find("empty.kdf"), std::string::npos);
        }
    }
}

TEST(ArchiveEndOfFile, PartialValueFailsAfterEarlierValuesRead) {
    Loading loading({0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00}, 3);
    int first = 0;
    loading.archive >> first;
    EXPECT_EQ(first, 1);
    EXPECT_EQ(CauseOf([&] {
                  int second;
                  loading.archive >> second;
              }),
              CArchiveException::endOfFile);
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

// --- Buffering ------------------------------------------------------------------------------

// A memory file that counts the calls reaching it.
class CountingFile : public CMemFile {
public:
    using CMemFile::CMemFile;
    unsigned Read(void* buffer, unsigned count) override {
        ++reads;
        return CMemFile::Read(buffer, count);
    }
    void Write(const void* buffer, unsigned count) override {
        ++writes;
        CMemFile::Write(buffer, count);
    }
    int reads = 0;
    int writes = 0;
};

TEST(ArchiveBuffering, FieldsAreGatheredIntoFewFileCalls) {
    CountingFile file;
    {
        CArchive archive(&file, CArchive::store);
        for (int i = 0; i < 1000; ++i)
            archive << i;
        archive.Close();
    }
    EXPECT_EQ(file.GetLength(), 4000u);
    EXPECT_EQ(file.writes, 1);

    CountingFile source(file.Bytes());
    CArchive archive(&source, CArchive::load);
    for (int i = 0; i < 1000; ++i) {
        int value = -1;
        archive >> value;
        ASSERT_EQ(value, i);
    }
    EXPECT_LE(source.reads, 2);
}

TEST(ArchiveBuffering, StoringKeepsBytesUntilFlush) {
    CMemFile file;
    CArchive archive(&file, CArchive::store);
    EXPECT_TRUE(archive.IsBufferEmpty());
    archive << 0x01020304;
    EXPECT_FALSE(archive.IsBufferEmpty());
    EXPECT_TRUE(file.Bytes().empty());
    archive.Flush();
    EXPECT_TRUE(archive.IsBufferEmpty());
    EXPECT_EQ(file.Bytes(), (Bytes{0x04, 0x03, 0x02, 0x01}));
}

TEST(ArchiveBuffering, DestructorFlushesAStoringArchive) {
    CMemFile file;
    {
        CArchive archive(&file, CArchive::store);
        archive << std::int16_t{-1};
    }
    EXPECT_EQ(file.Bytes(), (Bytes{0xFF, 0xFF}));
}

TEST(ArchiveBuffering, AbortDropsPendingBytes) {
    CMemFile file;
    {
        CArchive archive(&file, CArchive::store);
        archive << std::int16_t{-1};
        archive.Abort();
    }
    EXPECT_TRUE(file.Bytes().empty());
}

TEST(ArchiveBuffering, LoadingFlushGivesUnreadBytesBack) {
    Loading loading({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    std::uint8_t first = 0;
    loading.archive >> first;
    EXPECT_EQ(first, 1);
    EXPECT_EQ(loading.file.GetPosition(), 10u);
    EXPECT_FALSE(loading.archive.IsBufferEmpty());
    loading.archive.Flush();
    EXPECT_TRUE(loading.archive.IsBufferEmpty());
    EXPECT_EQ(loading.file.GetPosition(), 1u);
    std::uint8_t second = 0;
    loading.archive >> second;
    EXPECT_EQ(second, 2);
}

TEST(ArchiveBuffering, TinyBufferRoundTripsMixedValues) {
    for (const int bufferSize : {1, 2, 3, 7, 8, 9, 4096}) {
        SCOPED_TRACE(bufferSize);
        const Bytes bytes = Stored(
            [](CArchive& ar) {
                ar << std::uint8_t{0x11} << -3.5 << CString(u"buffer") << std::int64_t{-9};
                ar.WriteCount(0x12345);
            },
            bufferSize);
        Loading loading(bytes, bufferSize);
        std::uint8_t byte = 0;
        double number = 0;
        CString text;
        std::int64_t wide = 0;
        loading.archive >> byte >> number >> text >> wide;
        EXPECT_EQ(byte, 0x11);
        EXPECT_EQ(number, -3.5);
        EXPECT_EQ(text, u"buffer");
        EXPECT_EQ(wide, -9);
        EXPECT_EQ(loading.archive.ReadCount(), 0x12345u);
    }
}

TEST(ArchiveLifetime, ClosedArchiveNoLongerReachesTheFile) {
    CMemFile file;
    CArchive archive(&file, CArchive::store, 4);
    archive << 1;
    archive.Close();
    EXPECT_EQ(archive.GetFile(), nullptr);
    EXPECT_EQ(file.Bytes().size(), 4u);
    EXPECT_EQ(CauseOf([&] { archive << 2.0; }), CArchiveException::genericException);
}

TEST(ArchiveLifetime, ConstructorRejectsMissingFileAndEmptyBuffer) {
    CMemFile file;
    EXPECT_THROW(CArchive(nullptr, CArchive::load), InvalidArgumentException);
    EXPECT_THROW(CArchive(&file, CArchive::load, 0), InvalidArgumentException);
}

// --- Mode, schema, file name ----------------------------------------------------------------

TEST(ArchiveState, ModeValuesAndQueries) {
    EXPECT_EQ(CArchive::store, 0);
    EXPECT_EQ(CArchive::load, 1);
    CMemFile file;
    CArchive storing(&file, CArchive::store);
    EXPECT_TRUE(storing.IsStoring());
    EXPECT_FALSE(storing.IsLoading());
    EXPECT_EQ(storing.GetFile(), &file);
    CMemFile other;
    CArchive loading(&other, CArchive::load);
    EXPECT_TRUE(loading.IsLoading());
    EXPECT_FALSE(loading.IsStoring());
}

TEST(ArchiveState, SchemaStartsAsNoneAndIsConsumedByReading) {
    CMemFile file;
    CArchive archive(&file, CArchive::load);
    EXPECT_EQ(archive.m_nObjectSchema, 0xFFFFFFFFu);
    EXPECT_EQ(archive.GetObjectSchema(), 0xFFFFFFFFu);
    archive.SetObjectSchema(3);
    EXPECT_EQ(archive.GetObjectSchema(), 3u);
    EXPECT_EQ(archive.GetObjectSchema(), CArchive::noSchema);
}

TEST(ArchiveState, FileNameComesFromTheFileAndCanBeChanged) {
    CMemFile file;
    file.SetFilePath(u"/plans/house.kdf");
    CArchive archive(&file, CArchive::load);
    EXPECT_EQ(archive.GetFileName(), u"/plans/house.kdf");
    archive.SetFileName(u"renamed.kdf");
    EXPECT_EQ(archive.m_strFileName, u"renamed.kdf");
    try {
        std::uint8_t byte;
        archive >> byte;
        ADD_FAILURE() << "no exception";
    } catch (const CArchiveException& failure) {
        EXPECT_EQ(failure.m_strFileName, u"renamed.kdf");
    }
    EXPECT_EQ(archive.m_pDocument, nullptr);
}

TEST(ArchiveException, CauseValuesAndText) {
    EXPECT_EQ(CArchiveException::none, 0);
    EXPECT_EQ(CArchiveException::genericException, 1);
    EXPECT_EQ(CArchiveException::readOnly, 2);
    EXPECT_EQ(CArchiveException::endOfFile, 3);
    EXPECT_EQ(CArchiveException::writeOnly, 4);
    EXPECT_EQ(CArchiveException::badIndex, 5);
    EXPECT_EQ(CArchiveException::badClass, 6);
    EXPECT_EQ(CArchiveException::badSchema, 7);
    try {
        ThrowArchiveException(CArchiveException::badSchema, u"doc.kdf");
    } catch (const CException& failure) {
        const std::string text = failure.what();
        EXPECT_NE(text.find("schema"), std::string::npos);
        EXPECT_NE(text.find("doc.kdf"), std::string::npos);
    }
}

// --- On disk --------------------------------------------------------------------------------

class ArchiveDisk : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "keel-archive-XXXXXX");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_directory = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_directory); }

    std::filesystem::path m_directory;
};

TEST_F(ArchiveDisk, RoundTripThroughAFile) {
    const std::string path = (m_directory / "values.kdf").string();
    const CString name = CString::FromUtf8(path);
    {
        CFile file(name, CFile::modeCreate | CFile::modeWrite | CFile::typeBinary);
        CArchive archive(&file, CArchive::store);
        EXPECT_EQ(archive.GetFileName(), name);
        archive << CString(u"Wall \u2013 north") << 2.75 << std::int32_t{-40};
        archive.WriteCount(70000);
        archive.Close();
        file.Close();
    }
    std::ifstream stream(path, std::ios::binary);
    const Bytes onDisk((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    EXPECT_EQ(onDisk, Concat({{0xFF, 0xFE, 0xFF, 0x0C},
                              WideUnits(u"Wall \u2013 north"),
                              {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x40},
                              {0xD8, 0xFF, 0xFF, 0xFF},
                              {0xFF, 0xFF, 0x70, 0x11, 0x01, 0x00}}));

    CFile file(name, CFile::modeRead | CFile::shareDenyWrite);
    CArchive archive(&file, CArchive::load);
    CString text;
    double length = 0;
    std::int32_t offset = 0;
    archive >> text >> length >> offset;
    EXPECT_EQ(text, u"Wall \u2013 north");
    EXPECT_EQ(length, 2.75);
    EXPECT_EQ(offset, -40);
    EXPECT_EQ(archive.ReadCount(), 70000u);
    EXPECT_EQ(CauseOf([&] {
                  std::uint8_t byte;
                  archive >> byte;
              }),
              CArchiveException::endOfFile);
}

} // namespace
} // namespace keel
