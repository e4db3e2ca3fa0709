#include "tests/support/anyvalues.h"
#include "tests/support/archivebytes.h"
#include "tests/support/quantities.h"
#include "tests/support/tables.h"

#include "keel/platform/archive.h"
#include "keel/platform/file.h"
#include "keel/platform/schema.h"
#include "keel/values/anyvalue.h"
#include "keel/values/ratevalue.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {

namespace {

using V = QAnyValue;

using test::Array;
using test::Bytes;
using test::Concat;
using test::DoubleBytes;
using test::Stored;
using test::Utf8;

QAnyValue Loaded(const Bytes& bytes) {
    CMemFile file(bytes);
    CArchive archive(&file, CArchive::load);
    archive.SetFileName(u"values.doc");
    QAnyValue value(u"overwritten");
    archive >> value;
    return value;
}

// The cause and file name of the archive exception that `action` raises.
template <class Action>
std::pair<int, std::string> FailureOf(Action action) {
    try {
        action();
    } catch (const CArchiveException& failure) {
        return {failure.m_cause, Utf8(failure.m_strFileName)};
    }
    return {CArchiveException::none, ""};
}

// Documents of a current schema, so that lengths and angles are stored as doubles.
class AnyValueArchiveTest : public ::testing::Test {
protected:
    void SetUp() override {
        QSchema::SetDefaultSchema(200);
        m_previousSource = SetTableHandleSource(&m_tables);
        m_previousTrace = SetLimitDoubleTrace(nullptr);
        m_previousReporter = SetLimitDoubleFailedReporter(&Report);
        reported.clear();
    }
    void TearDown() override {
        QSchema::SetDefaultSchema(m_schema);
        SetTableHandleSource(m_previousSource);
        SetLimitDoubleTrace(m_previousTrace);
        SetLimitDoubleFailedReporter(m_previousReporter);
    }

    static void Report(CArchive&, const CString& what) { reported.push_back(what.ToUtf8()); }
    static inline std::vector<std::string> reported;

    test::NamedTableSource m_tables;

private:
    int m_schema = QSchema::DefaultVersion();
    QTableHandleSource* m_previousSource = nullptr;
    LimitDoubleTrace m_previousTrace = nullptr;
    LimitDoubleFailedReporter m_previousReporter = nullptr;
};

TEST_F(AnyValueArchiveTest, EachTypeByteForByte) {
    const struct {
        const char* what;
        QAnyValue value;
        Bytes bytes;
    } cases[] = {
        {"empty", V(), {0x00}},
        {"string", V(u"ab"), {0x01, 0xFF, 0xFE, 0xFF, 0x02, 'a', 0, 'b', 0}},
        {"empty string", V(u""), {0x01, 0xFF, 0xFE, 0xFF, 0x00}},
        {"true", V(true), {0x02, 1, 0, 0, 0}},
        {"whole number", V(-2), {0x03, 0xFE, 0xFF, 0xFF, 0xFF}},
        {"number", V(1.5), Concat({{0x04}, DoubleBytes(1.5)})},
        {"money", V(QMoney::FromRaw(150)), {0x05, 0x96, 0, 0, 0}},
        {"time", V(QTime::FromRaw(3600)), {0x06, 0x10, 0x0E, 0, 0}},
        {"length", V(QLength(2.5, QLength::LU_MM)), Concat({{0x07}, DoubleBytes(2.5)})},
        {"area", V(QArea(2, QArea::AU_SQM)), Concat({{0x08}, DoubleBytes(2)})},
        {"angle", V(QAngle(90, QAngle::ANGU_DEG)), Concat({{0x09}, DoubleBytes(90)})},
        {"array",
         Array({1, u"a"}),
         {0x0A, 0x02, 0x00, 0x03, 1, 0, 0, 0, 0x01, 0xFF, 0xFE, 0xFF, 0x01, 'a', 0}},
        {"empty array", Array({}), {0x0A, 0x00, 0x00}},
        {"table",
         V(QTableHandlePtr(new test::NamedTable(u"t"))),
         {0x0B, 0xFF, 0xFE, 0xFF, 0x01, 't', 0}},
        {"date", V(QDateTime(2.0)), Concat({{0x0C, 0, 0, 0, 0}, DoubleBytes(2)})},
        {"volume", V(QVolume(0.5, QVolume::VU_CBM)), Concat({{0x0D}, DoubleBytes(0.5)})},
        {"rate", V(QRateValue(V(QMoney::FromRaw(1)), V(QLength(1)))), {0x0E}},
        {"colour", V(0x00FF8040ul), {0x0F, 0x40, 0x80, 0xFF, 0x00}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Stored(c.value), c.bytes) << c.what;
        const QAnyValue back = Loaded(c.bytes);
        if (!c.value.IsRate()) {
            EXPECT_TRUE(back.Identical(c.value)) << c.what << " read back";
        }
    }
}

TEST_F(AnyValueArchiveTest, ErrorAndNotAvailableLoseTheirStateAndNarrowStringsRead) {
    QAnyValue error;
    error.MakeError(u"the message is not stored");
    EXPECT_EQ(Stored(error), Bytes{0xFF});
    QAnyValue na;
    na.MakeNA();
    EXPECT_EQ(Stored(na), Bytes{0xFE});

    const QAnyValue errorBack = Loaded({0xFF});
    EXPECT_EQ(static_cast<int>(errorBack.Type()), 255) << "neither an error nor empty";

    const QAnyValue naBack = Loaded({0xFE});
    EXPECT_EQ(static_cast<int>(naBack.Type()), 254);

    EXPECT_EQ(Stored(errorBack), Bytes{0xFF}) << "written again as it came";
    EXPECT_TRUE(Loaded({0x01, 0x02, 'h', 'i'}).Identical(V(u"hi")));
    EXPECT_TRUE(Loaded({0x02, 5, 0, 0, 0}).Identical(V(true)));
    EXPECT_TRUE(Loaded({0x02, 0, 0, 0, 0x80}).Identical(V(true)));
    QAnyValue rate = Loaded({0x0E});
    ASSERT_TRUE(rate.IsRate());
    EXPECT_TRUE(rate.MakeRate().Num().IsEmpty());
    EXPECT_TRUE(rate.MakeRate().Den().IsEmpty());
    QAnyValue back;
    CMemFile file(Bytes{0x03, 42, 0, 0, 0});
    CArchive archive(&file, CArchive::load);
    back.Serialize(archive);
    EXPECT_TRUE(back.Identical(V(42))) << "Serialize follows the direction";
}

TEST_F(AnyValueArchiveTest, LongStringsOutOfRangeNumbersAndOlderSchemasOfLengthsAndAngles) {
    const CString text(u'x', 300);
    const Bytes bytes = Stored(V(text));
    ASSERT_EQ(bytes.size(), 1u + 4u + 2u + 600u);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 7),
              (Bytes{0x01, 0xFF, 0xFE, 0xFF, 0xFF, 0x2C, 0x01}));
    EXPECT_TRUE(Loaded(bytes).Identical(V(text)));
    EXPECT_TRUE(Loaded(Concat({{0x04}, DoubleBytes(1e30)})).Identical(V(0.0)));
    EXPECT_TRUE(Loaded(Concat({{0x04}, DoubleBytes(1e15)})).Identical(V(1e15)));
    reported.clear();
    EXPECT_TRUE(Loaded(Concat({{0x07}, DoubleBytes(1e30)})).Identical(V(QLength())));
    EXPECT_EQ(reported, std::vector<std::string>{"length"});
    QAnyValue number(1e30);
    EXPECT_TRUE(QAnyValue::LimitDoubleAlways(number, u"test"));
    EXPECT_TRUE(number.Identical(V(0.0)));
    QAnyValue rate(QRateValue(V(QMoney::FromRaw(1)), V(QLength(1e40))));
    ASSERT_TRUE(rate.IsRate());
    EXPECT_TRUE(QAnyValue::LimitDoubleAlways(rate, u"test"));
    EXPECT_TRUE(rate.MakeRate().Den().Identical(V(QLength())));
    QAnyValue angle(QAngle(1e30));
    EXPECT_FALSE(QAnyValue::LimitDoubleAlways(angle, u"test")) << "angles are not guarded here";
    QAnyValue array = Array({1e30});
    EXPECT_FALSE(QAnyValue::LimitDoubleAlways(array, u"test"));
    QSchema::SetDefaultSchema(16);
    EXPECT_TRUE(Loaded({0x07, 10, 0, 0, 0}).Identical(V(QLength(1.0, QLength::LU_MM))))
        << "a length of an old document in tenths of a millimetre";
}

TEST_F(AnyValueArchiveTest, ATableNeedsASource) {
    const QAnyValue table(QTableHandlePtr(new test::NamedTable(u"t")));
    const Bytes bytes = Stored(table);
    SetTableHandleSource(nullptr);
    EXPECT_EQ(FailureOf([&] { Loaded(bytes); }),
              std::make_pair(int(CArchiveException::badClass), std::string("values.doc")));
    QAnyValue noTable;
    noTable.SetType(QAnyValue::TYPE_LOOKUPTABLE);
    EXPECT_THROW(Stored(noTable), CArchiveException);
    SetTableHandleSource(&m_tables);
    EXPECT_EQ(Stored(noTable), (Bytes{0x0B, 0xFF, 0xFE, 0xFF, 0x00}))
        << "with a source, a value without a table writes the empty table";
}

TEST_F(AnyValueArchiveTest, BadStreamsAndTheWrongDirectionRaiseTheArchiveException) {
    using Failure = std::pair<int, std::string>;
    EXPECT_EQ(FailureOf([] { Loaded({0x10}); }),
              Failure(CArchiveException::badClass, "values.doc"));
    EXPECT_EQ(FailureOf([] { Loaded({0x03, 1, 0}); }).first, CArchiveException::endOfFile);
    CMemFile file;
    CArchive storing(&file, CArchive::store);
    storing.SetFileName(u"out.doc");
    QAnyValue value;
    EXPECT_EQ(FailureOf([&] { storing >> value; }),
              Failure(CArchiveException::writeOnly, "out.doc"));
    CMemFile input(Bytes{0x00});
    CArchive loading(&input, CArchive::load);
    loading.SetFileName(u"in.doc");
    EXPECT_EQ(FailureOf([&] { loading << V(1); }), Failure(CArchiveException::readOnly, "in.doc"));
}

TEST_F(AnyValueArchiveTest, ARateArchivesItsHalvesOnItsOwn) {
    const QRateValue rate(V(QMoney::FromRaw(250)), V(QTime::FromRaw(60)));
    const Bytes bytes = test::Stored(rate);
    EXPECT_EQ(bytes, (Bytes{0x05, 0xFA, 0, 0, 0, 0x06, 0x3C, 0, 0, 0}));
    CMemFile input(bytes);
    CArchive archive(&input, CArchive::load);
    QRateValue back;
    back.Serialize(archive);
    EXPECT_TRUE(back.Num().Identical(V(QMoney::FromRaw(250))));
    EXPECT_TRUE(back.Den().Identical(V(QTime::FromRaw(60))));
}

} // namespace

} // namespace keel
