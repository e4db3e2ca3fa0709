#include "tests/support/environment.h"
#include "tests/support/quantities.h"

#include "keel/values/money.h"
#include "keel/values/time.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

// Money and spans of time both keep a whole raw number in 32 bits that saturates: one typed
// suite, with the figures of each in its own table.

namespace keel {
namespace {

using test::Bytes;
using test::Loaded;
using test::Stored;

constexpr std::int32_t kMaxRaw = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kMinRaw = std::numeric_limits<std::int32_t>::min();

template <class Units>
struct ToDoubleRow {
    Units unit;
    double value; // of the raw sample
};

template <class Units>
struct ToRawRow {
    double value;
    Units unit;
    std::int32_t raw;
};

template <class Units>
struct ParseRow {
    const char* text;
    Units defaultUnit;
    PARSERESULT result;
    std::int32_t raw;
};

template <class Units>
struct FormatRow {
    std::int32_t raw;
    Units unit;
    bool showUnit;
    const char* text;
};

struct MoneyFigures {
    using Quantity = QMoney;
    using Units = QMoney::MONEYUNITS;
    static constexpr Units kStart = QMoney::MU_DOLLARS, kDefault = QMoney::MU_DEFAULT,
                           kOther = QMoney::MU_CENTS, kFirstInvalid = static_cast<Units>(3);
    static constexpr std::int32_t kRawSample = 1234, kOneAndAHalf = 150;
    static constexpr double kOtherValue = 2.5; // in kOther
    static constexpr std::int32_t kOtherRaw = 3;
    static CString Format(const QMoney& money, Units, bool) { return money.Format(); }
    static inline const ToDoubleRow<Units> kToDouble[] = {
        {QMoney::MU_RAW, 1234},
        {QMoney::MU_CENTS, 1234},
        {QMoney::MU_DOLLARS, 12.34},
        {static_cast<Units>(7), 1234},
    };
    static inline const ToRawRow<Units> kToRaw[] = {
        {2.5, QMoney::MU_RAW, 3},
        {2.4999, QMoney::MU_RAW, 2},
        {-2.5, QMoney::MU_RAW, -2},
        {-2.5001, QMoney::MU_RAW, -3},
        {0.125, QMoney::MU_DOLLARS, 13},
        {-2.9, static_cast<Units>(7), -2},
        {21474836.47, QMoney::MU_DOLLARS, kMaxRaw},
        {-21474836.48, QMoney::MU_DOLLARS, kMinRaw},
        {std::nan(""), QMoney::MU_DOLLARS, 0},
        {-1e300, static_cast<Units>(9), kMinRaw},
    };
    // The default unit plays no part in reading money.
    static constexpr Units kDollars = QMoney::MU_DOLLARS, kCents = QMoney::MU_CENTS;
    static inline const ParseRow<Units> kParses[] = {
        {"$1,234.50", kDollars, PARSE_EXACT, 123450},
        {"12.5", kCents, PARSE_EXACT, 1250},
        {"-$0.05", kDollars, PARSE_EXACT, -5},
        {"1,2,3", kDollars, PARSE_EXACT, 12300},
        {"$21,474,836.47", kDollars, PARSE_EXACT, kMaxRaw},
        {"$", kDollars, PARSE_NONE, 0},
        {"12.5 x", kDollars, PARSE_NONE, 0},
        {"nan", kDollars, PARSE_NONE, 0},
    };
    static inline const FormatRow<Units> kFormats[] = {
        {5, kDollars, false, "$0.05"},
        {-5, kDollars, false, "-$0.05"},
        {100000, kDollars, false, "$1,000.00"},
        {kMaxRaw, kDollars, false, "$21,474,836.47"},
        {kMinRaw, kDollars, false, "-$21,474,836.48"},
    };
};

struct TimeFigures {
    using Quantity = QTime;
    using Units = QTime::TIMEUNITS;
    static constexpr Units kStart = QTime::TU_HOURS, kDefault = QTime::TU_DEFAULT,
                           kOther = QTime::TU_MINUTES, kFirstInvalid = static_cast<Units>(4);
    static constexpr std::int32_t kRawSample = 5400, kOneAndAHalf = 5400;
    static constexpr double kOtherValue = 1.5;
    static constexpr std::int32_t kOtherRaw = 90;
    static CString Format(const QTime& time, Units unit, bool showUnit) {
        return time.Format(unit, showUnit);
    }
    static inline const ToDoubleRow<Units> kToDouble[] = {
        {QTime::TU_RAW, 5400},  {QTime::TU_SECONDS, 5400},     {QTime::TU_MINUTES, 90},
        {QTime::TU_HOURS, 1.5}, {static_cast<Units>(8), 5400},
    };
    static inline const ToRawRow<Units> kToRaw[] = {
        {2.5, QTime::TU_RAW, 3},
        {0.125, QTime::TU_MINUTES, 8},
        {1.5, QTime::TU_HOURS, 5400},
        {1.0 / 7200 + 1e-9, QTime::TU_HOURS, 1},
        {1.0 / 7200 - 1e-9, QTime::TU_HOURS, 0},
        {-2.9, static_cast<Units>(8), -2},
        {1e12, QTime::TU_HOURS, kMaxRaw},
        {-1e12, QTime::TU_MINUTES, kMinRaw},
    };
    static constexpr Units kHours = QTime::TU_HOURS, kMinutes = QTime::TU_MINUTES,
                           kSeconds = QTime::TU_SECONDS;
    static inline const ParseRow<Units> kParses[] = {
        {"2", kHours, PARSE_EXACT, 7200},       {"2", kMinutes, PARSE_EXACT, 120},
        {"-2", kSeconds, PARSE_EXACT, -2},      {"90 s", kHours, PARSE_EXACT, 90},
        {"2 mn", kHours, PARSE_EXACT, 120},     {"1.5 hr", kSeconds, PARSE_EXACT, 5400},
        {"0.25hr", kMinutes, PARSE_EXACT, 900}, {"hr", kHours, PARSE_NONE, 0},
        {"2 HR", kHours, PARSE_NONE, 0},        {"2 m", kHours, PARSE_NONE, 0},
        {"2 hrs", kHours, PARSE_NONE, 0},
    };
    static inline const FormatRow<Units> kFormats[] = {
        {5400, kHours, false, "1.5"},        {5400, kHours, true, "1.5 hr"},
        {5400, kMinutes, true, "90 mn"},     {5400, kSeconds, true, "5400 s"},
        {5400, QTime::TU_RAW, true, "5400"}, {1, kHours, true, "0.000278 hr"},
        {7200, kDefault, false, "2"},
    };
};

template <class Figures>
class WholeRawTest : public ::testing::Test {
protected:
    using Quantity = typename Figures::Quantity;
    using Units = typename Figures::Units;

    void SetUp() override { QMoney::SetLocaleSymbols(u"$", u",", u"."); }
    void TearDown() override {
        Quantity::SetDefaultUnits(m_units);
        QMoney::ResetLocaleSymbols();
    }

    static Quantity Raw(std::int32_t raw) { return Quantity::FromRaw(raw); }

private:
    Units m_units = Quantity::DefaultUnits();
};

using WholeRaws = ::testing::Types<MoneyFigures, TimeFigures>;
TYPED_TEST_SUITE(WholeRawTest, WholeRaws);

TYPED_TEST(WholeRawTest, UnitsConvertByTheFloorOfValuePlusAHalfAndTheDefaultServesWhereNoneIs) {
    using Quantity = typename TestFixture::Quantity;
    EXPECT_EQ(Quantity::DefaultUnits(), TypeParam::kStart);
    EXPECT_EQ(Quantity(1.5).GetRaw(), TypeParam::kOneAndAHalf);
    for (const auto& row : TypeParam::kToDouble) {
        SCOPED_TRACE(row.unit);
        EXPECT_DOUBLE_EQ(Quantity::raw_to_double(TypeParam::kRawSample, row.unit), row.value);
        EXPECT_DOUBLE_EQ(Quantity::FromRaw(TypeParam::kRawSample).AsDouble(row.unit), row.value);
    }
    for (const auto& row : TypeParam::kToRaw) {
        SCOPED_TRACE(testing::Message() << row.value << " in unit " << row.unit);
        EXPECT_EQ(Quantity::double_to_raw(row.value, row.unit), row.raw);
    }
    Quantity::SetDefaultUnits(TypeParam::kOther);
    EXPECT_EQ(Quantity(TypeParam::kOtherValue).GetRaw(), TypeParam::kOtherRaw);
    EXPECT_EQ(Quantity::double_to_raw(TypeParam::kOtherValue), TypeParam::kOtherRaw);
    EXPECT_EQ(Quantity::Resolve(TypeParam::kDefault), TypeParam::kOther);
    EXPECT_THROW(Quantity::SetDefaultUnits(TypeParam::kDefault), InvalidArgumentException);
    EXPECT_THROW(Quantity::SetDefaultUnits(TypeParam::kFirstInvalid), InvalidArgumentException);
    EXPECT_EQ(Quantity::DefaultUnits(), TypeParam::kOther);
}

TYPED_TEST(WholeRawTest, ArithmeticFollowsTheFloorRuleAndSaturates) {
    using Quantity = typename TestFixture::Quantity;
    const auto raw = [](const Quantity& q) { return q.GetRaw(); };
    const auto R = TestFixture::Raw;
    const struct {
        const char* what;
        std::int32_t result, expected;
    } rows[] = {
        {"sum", raw(R(1050) + R(-75)), 975},
        {"difference", raw(R(1050) - R(-75)), 1125},
        {"negation", raw(-R(1050)), -1050},
        {"sum at the top", raw(R(kMaxRaw) + R(1)), kMaxRaw},
        {"difference at the bottom", raw(R(kMinRaw) - R(1)), kMinRaw},
        {"negated bottom", raw(-R(kMinRaw)), kMaxRaw},
        {"times a whole number", raw(R(-7) * 3), -21},
        {"doubled past the top", raw(R(kMaxRaw / 2 + 1) * 2), kMaxRaw},
        {"doubled past the bottom", raw(R(kMaxRaw) * -2), kMinRaw},
        {"half of 3", raw(R(3) * 0.5), 2},
        {"half of -3", raw(R(-3) * 0.5), -1},
        {"7 by -0.5", raw(R(7) * -0.5), -3},
        {"1 by 1e12", raw(R(1) * 1e12), kMaxRaw},
        {"5 / 2", raw(R(5) / 2), 3},
        {"-5 / 2", raw(R(-5) / 2), -2},
        {"5 / -2", raw(R(5) / -2), -2},
        {"1 / 0", raw(R(1) / 0), kMaxRaw},
        {"0 / 0", raw(R(0) / 0), 0},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.result, row.expected) << row.what;
    EXPECT_DOUBLE_EQ(R(300) / R(120), 2.5);
}

TYPED_TEST(WholeRawTest, ComparesByTheRawNumberAndArchivesItInFourLittleEndianBytes) {
    using Quantity = typename TestFixture::Quantity;
    const Quantity one = Quantity::FromRaw(1);
    const Quantity two = Quantity::FromRaw(2);
    EXPECT_TRUE(one < two);
    EXPECT_TRUE(two > one);
    EXPECT_TRUE(one == Quantity::FromRaw(1));
    EXPECT_TRUE(!Quantity::Zero);
    EXPECT_FALSE(!one);
    EXPECT_TRUE(Quantity().IsZero());
    EXPECT_EQ(Stored(Quantity::FromRaw(-2)), (Bytes{0xFE, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(Stored(Quantity::FromRaw(0x01020304)), (Bytes{0x04, 0x03, 0x02, 0x01}));
    EXPECT_EQ(Loaded<Quantity>({0xFE, 0xFF, 0xFF, 0xFF}).GetRaw(), -2);
    EXPECT_EQ(Loaded<Quantity>({0x04, 0x03, 0x02, 0x01}).GetRaw(), 0x01020304);
}

TYPED_TEST(WholeRawTest, ParseReadsANumberAndAUnitWordAndFormatWritesThem) {
    using Quantity = typename TestFixture::Quantity;
    for (const auto& row : TypeParam::kParses) {
        SCOPED_TRACE(row.text);
        Quantity::SetDefaultUnits(row.defaultUnit);
        Quantity value = Quantity::FromRaw(-42);
        EXPECT_EQ(value.Parse(CString::FromUtf8(row.text)), row.result);
        EXPECT_EQ(value.GetRaw(), row.result == PARSE_NONE ? -42 : row.raw);
    }
    Quantity::SetDefaultUnits(TypeParam::kStart);
    for (const auto& row : TypeParam::kFormats)
        EXPECT_EQ(TypeParam::Format(Quantity::FromRaw(row.raw), row.unit, row.showUnit).ToUtf8(),
                  row.text);
}

class MoneyTest : public WholeRawTest<MoneyFigures> {};

TEST_F(MoneyTest, TextFollowsTheSymbolsInForceAndParsesBack) {
    QMoney::SetLocaleSymbols(u"\u20ac", u".", u",");
    EXPECT_EQ(QMoney::FromRaw(-123450).Format(), u"-\u20ac1.234,50");
    const struct {
        const char16_t* text;
        PARSERESULT result;
        std::int32_t raw;
    } rows[] = {
        {u"\u20ac1.234,50", PARSE_EXACT, 123450},
        {u"1,5", PARSE_EXACT, 150},
        {u"-\u20ac0,05", PARSE_EXACT, -5},
        {u"1.5", PARSE_EXACT, 1500},
        {u"$5", PARSE_NONE, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(CString(row.text).ToUtf8());
        QMoney money;
        EXPECT_EQ(money.Parse(row.text), row.result);
        EXPECT_EQ(money.GetRaw(), row.raw);
    }
    QMoney::SetLocaleSymbols(u"$", CString(), u".");
    EXPECT_EQ(QMoney::FromRaw(123450).Format().ToUtf8(), "$1234.50");

    const std::vector<std::vector<CString>> symbolSets = {
        {u"$", u",", u"."},
        {u"\u20ac", u".", u","},
        {u"kr", u"\u00a0", u","},
    };
    for (const auto& symbols : symbolSets) {
        QMoney::SetLocaleSymbols(symbols[0], symbols[1], symbols[2]);
        for (std::int32_t raw : {0, 1, -1, 99, 100, 123456789, -98765, kMaxRaw, kMinRaw}) {
            SCOPED_TRACE(testing::Message() << symbols[0].ToUtf8() << " " << raw);
            QMoney money;
            EXPECT_EQ(money.Parse(QMoney::FromRaw(raw).Format()), PARSE_EXACT);
            EXPECT_EQ(money.GetRaw(), raw);
        }
    }
    const test::ScopedEnvironment cLocale("LC_ALL", "C");
    QMoney::ResetLocaleSymbols();
    EXPECT_EQ(QMoney::FromRaw(123450).Format(), u"$1,234.50");
}

class TimeTest : public WholeRawTest<TimeFigures> {};

TEST_F(TimeTest, ParseTakesABareNumberInTheUnitAskedAndFormattedSpansReadBack) {
    QTime time;
    EXPECT_EQ(time.Parse(u"2", QTime::TU_SECONDS), PARSE_EXACT);
    EXPECT_EQ(time.GetRaw(), 2);
    EXPECT_EQ(time.Parse(u"2 hr", QTime::TU_SECONDS), PARSE_EXACT);
    EXPECT_EQ(time.GetRaw(), 7200);
    for (Units unit : {QTime::TU_SECONDS, QTime::TU_MINUTES, QTime::TU_HOURS}) {
        for (std::int32_t raw : {0, 1, 59, 61, 3599, 3601, 86399, -1, -7261, 1000003}) {
            SCOPED_TRACE(testing::Message() << raw << " in unit " << unit);
            EXPECT_EQ(time.Parse(QTime::FromRaw(raw).Format(unit, true)), PARSE_EXACT);
            EXPECT_EQ(time.GetRaw(), raw);
        }
    }
}

} // namespace
} // namespace keel
