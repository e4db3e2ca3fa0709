#include "tests/support/environment.h"

#include "keel/platform/file.h"
#include "keel/values/money.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace keel {
namespace {

using Units = QMoney::MONEYUNITS;
constexpr std::int32_t kMaxRaw = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kMinRaw = std::numeric_limits<std::int32_t>::min();

class MoneyTest : public ::testing::Test {
protected:
    void SetUp() override { QMoney::SetLocaleSymbols(u"$", u",", u"."); }
    void TearDown() override {
        QMoney::SetDefaultUnits(m_units);
        QMoney::ResetLocaleSymbols();
    }

private:
    Units m_units = QMoney::DefaultUnits();
};

using test::ScopedEnvironment;

TEST_F(MoneyTest, StartsInDollars) {
    EXPECT_EQ(QMoney::DefaultUnits(), QMoney::MU_DOLLARS);
    EXPECT_EQ(QMoney::DefaultUnits(), 2);
    EXPECT_EQ(QMoney(1.0).GetRaw(), 100);
    EXPECT_EQ(QMoney(0.01).GetRaw(), 1);
}

TEST_F(MoneyTest, RawToDoubleDividesOnlyDollars) {
    const struct {
        Units unit;
        double expected;
    } rows[] = {
        {QMoney::MU_RAW, 1234},
        {QMoney::MU_CENTS, 1234},
        {QMoney::MU_DOLLARS, 12.34},
        {static_cast<Units>(7), 1234},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.unit);
        EXPECT_DOUBLE_EQ(QMoney::raw_to_double(1234, row.unit), row.expected);
        EXPECT_DOUBLE_EQ(QMoney::FromRaw(1234).AsDouble(row.unit), row.expected);
    }
}

TEST_F(MoneyTest, DoubleToRawRoundsByTheFloorOfValuePlusAHalf) {
    const struct {
        double value;
        Units unit;
        std::int32_t raw;
    } rows[] = {
        {2.5, QMoney::MU_RAW, 3},          {2.4999, QMoney::MU_RAW, 2},
        {-2.5, QMoney::MU_RAW, -2},        {-2.5001, QMoney::MU_RAW, -3},
        {2.5, QMoney::MU_CENTS, 3},        {-0.5, QMoney::MU_CENTS, 0},
        {0.125, QMoney::MU_DOLLARS, 13},   {-0.125, QMoney::MU_DOLLARS, -12},
        {0.005, QMoney::MU_DOLLARS, 1},    {-0.005, QMoney::MU_DOLLARS, 0},
        {-0.0051, QMoney::MU_DOLLARS, -1}, {12.34, QMoney::MU_DOLLARS, 1234},
        {2.9, static_cast<Units>(7), 2},   {-2.9, static_cast<Units>(7), -2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.value << " in unit " << row.unit);
        EXPECT_EQ(QMoney::double_to_raw(row.value, row.unit), row.raw);
    }
    EXPECT_EQ(QMoney::dollar_to_raw(0.005), 1);
    EXPECT_EQ(QMoney::dollar_to_raw(-0.005), 0);
}

TEST_F(MoneyTest, AmountsBeyondThirtyTwoBitsOfCentsSaturate) {
    EXPECT_EQ(QMoney::dollar_to_raw(21474836.47), kMaxRaw);
    EXPECT_EQ(QMoney::dollar_to_raw(3e7), kMaxRaw);
    EXPECT_EQ(QMoney::dollar_to_raw(-21474836.48), kMinRaw);
    EXPECT_EQ(QMoney::dollar_to_raw(-3e7), kMinRaw);
    EXPECT_EQ(QMoney::double_to_raw(1e300, QMoney::MU_CENTS), kMaxRaw);
    EXPECT_EQ(QMoney::double_to_raw(std::nan(""), QMoney::MU_DOLLARS), 0);
    EXPECT_EQ(QMoney::double_to_raw(-1e300, static_cast<Units>(9)), kMinRaw);
}

TEST_F(MoneyTest, TheDefaultUnitServesWhereNoneIsGiven) {
    QMoney::SetDefaultUnits(QMoney::MU_CENTS);
    EXPECT_EQ(QMoney(2.5).GetRaw(), 3);
    EXPECT_EQ(QMoney::double_to_raw(250), 250);
    EXPECT_DOUBLE_EQ(QMoney::raw_to_double(250), 250);
    EXPECT_DOUBLE_EQ(QMoney::FromRaw(250).AsDouble(), 250);
    EXPECT_EQ(QMoney::Resolve(QMoney::MU_DEFAULT), QMoney::MU_CENTS);
    EXPECT_EQ(QMoney::Resolve(QMoney::MU_DOLLARS), QMoney::MU_DOLLARS);
}

TEST_F(MoneyTest, OnlyTheThreeUnitsCanBeTheDefault) {
    EXPECT_THROW(QMoney::SetDefaultUnits(QMoney::MU_DEFAULT), InvalidArgumentException);
    EXPECT_THROW(QMoney::SetDefaultUnits(static_cast<Units>(3)), InvalidArgumentException);
    EXPECT_EQ(QMoney::DefaultUnits(), QMoney::MU_DOLLARS);
    QMoney::SetDefaultUnits(QMoney::MU_RAW);
    EXPECT_EQ(QMoney::DefaultUnits(), QMoney::MU_RAW);
}

TEST_F(MoneyTest, AddsAndSubtractsCents) {
    const QMoney a = QMoney::FromRaw(1050);
    const QMoney b = QMoney::FromRaw(-75);
    EXPECT_EQ((a + b).GetRaw(), 975);
    EXPECT_EQ((a - b).GetRaw(), 1125);
    EXPECT_EQ((-a).GetRaw(), -1050);
    EXPECT_EQ((+b).GetRaw(), -75);
    EXPECT_EQ((QMoney::FromRaw(kMaxRaw) + QMoney::FromRaw(1)).GetRaw(), kMaxRaw);
    EXPECT_EQ((QMoney::FromRaw(kMinRaw) - QMoney::FromRaw(1)).GetRaw(), kMinRaw);
    EXPECT_EQ((-QMoney::FromRaw(kMinRaw)).GetRaw(), kMaxRaw);
}

TEST_F(MoneyTest, MultipliesByIntegersExactlyAndByDoublesWithTheFloorRule) {
    const struct {
        std::int32_t raw;
        double factor;
        std::int32_t product;
    } byDouble[] = {
        {3, 0.5, 2},      {-3, 0.5, -1}, {5, 1.5, 8},        {-5, 1.5, -7},
        {100, 0.333, 33}, {7, -0.5, -3}, {1, 1e12, kMaxRaw},
    };
    for (const auto& row : byDouble) {
        SCOPED_TRACE(testing::Message() << row.raw << " * " << row.factor);
        EXPECT_EQ((QMoney::FromRaw(row.raw) * row.factor).GetRaw(), row.product);
        EXPECT_EQ((row.factor * QMoney::FromRaw(row.raw)).GetRaw(), row.product);
    }
    EXPECT_EQ((QMoney::FromRaw(-7) * 3).GetRaw(), -21);
    EXPECT_EQ((3 * QMoney::FromRaw(7)).GetRaw(), 21);
    EXPECT_EQ((QMoney::FromRaw(kMaxRaw / 2 + 1) * 2).GetRaw(), kMaxRaw);
    EXPECT_EQ((QMoney::FromRaw(kMaxRaw) * -2).GetRaw(), kMinRaw);
}

TEST_F(MoneyTest, DividesWithTheFloorRuleForIntegersAndDoubles) {
    const struct {
        std::int32_t raw;
        int divisor;
        std::int32_t quotient;
    } rows[] = {
        {5, 2, 3}, {-5, 2, -2}, {7, 2, 4}, {-7, 2, -3}, {10, 4, 3}, {9, 4, 2}, {5, -2, -2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.raw << " / " << row.divisor);
        EXPECT_EQ((QMoney::FromRaw(row.raw) / row.divisor).GetRaw(), row.quotient);
        EXPECT_EQ((QMoney::FromRaw(row.raw) / static_cast<double>(row.divisor)).GetRaw(),
                  row.quotient);
    }
    EXPECT_EQ((QMoney::FromRaw(100) / 0.25).GetRaw(), 400);
    EXPECT_EQ((QMoney::FromRaw(1) / 0).GetRaw(), kMaxRaw);
    EXPECT_EQ((QMoney::FromRaw(0) / 0).GetRaw(), 0);
    EXPECT_DOUBLE_EQ(QMoney::FromRaw(300) / QMoney::FromRaw(120), 2.5);
}

TEST_F(MoneyTest, ComparesByCents) {
    const QMoney one = QMoney::FromRaw(1);
    const QMoney two = QMoney::FromRaw(2);
    EXPECT_TRUE(one < two);
    EXPECT_TRUE(two > one);
    EXPECT_TRUE(one <= one);
    EXPECT_TRUE(one >= one);
    EXPECT_TRUE(one == QMoney(0.01));
    EXPECT_TRUE(one != two);
    EXPECT_FALSE(two < one);
    EXPECT_TRUE(!QMoney::Zero);
    EXPECT_FALSE(!one);
    EXPECT_TRUE(QMoney().IsZero());
}

TEST_F(MoneyTest, ParseReadsDollarsWithTheLocaleSymbols) {
    const struct {
        const char* text;
        PARSERESULT result;
        std::int32_t raw;
    } rows[] = {
        {"$1,234.50", PARSE_EXACT, 123450},
        {" 12.5 ", PARSE_EXACT, 1250},
        {"12", PARSE_EXACT, 1200},
        {"-$0.05", PARSE_EXACT, -5},
        {"$-3", PARSE_EXACT, -300},
        {"$ 7", PARSE_EXACT, 700},
        {"7$", PARSE_EXACT, 700},
        {"0.005", PARSE_EXACT, 1},
        {"-0.005", PARSE_EXACT, 0},
        {"1,2,3", PARSE_EXACT, 12300},
        {"1e3", PARSE_EXACT, 100000},
        {"$21,474,836.47", PARSE_EXACT, kMaxRaw},
        {"$1234567.89", PARSE_EXACT, 123456789},
        {"", PARSE_NONE, 0},
        {"$", PARSE_NONE, 0},
        {"abc", PARSE_NONE, 0},
        {"12.5 x", PARSE_NONE, 0},
        {"12.5 3", PARSE_NONE, 0},
        {"$12 dollars", PARSE_NONE, 0},
        {"nan", PARSE_NONE, 0},
        {"inf", PARSE_NONE, 0},
        {"\xE2\x82\xAC"
         "5",
         PARSE_NONE, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        QMoney money = QMoney::FromRaw(-42);
        EXPECT_EQ(money.Parse(CString::FromUtf8(row.text)), row.result);
        EXPECT_EQ(money.GetRaw(), row.result == PARSE_NONE ? -42 : row.raw);
    }
}

TEST_F(MoneyTest, ParseIgnoresTheDefaultUnit) {
    QMoney::SetDefaultUnits(QMoney::MU_CENTS);
    QMoney money;
    EXPECT_EQ(money.Parse(u"12.5"), PARSE_EXACT);
    EXPECT_EQ(money.GetRaw(), 1250);
}

TEST_F(MoneyTest, ParseFollowsSymbolsThatDifferFromTheDefaults) {
    QMoney::SetLocaleSymbols(CString::FromUtf8("\xE2\x82\xAC"), u".", u",");
    const struct {
        const char* text;
        PARSERESULT result;
        std::int32_t raw;
    } rows[] = {
        {"\xE2\x82\xAC"
         "1.234,50",
         PARSE_EXACT, 123450},
        {"1,5", PARSE_EXACT, 150},
        {"-\xE2\x82\xAC"
         "0,05",
         PARSE_EXACT, -5},
        {"1.5", PARSE_EXACT, 1500},
        {"$5", PARSE_NONE, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        QMoney money;
        EXPECT_EQ(money.Parse(CString::FromUtf8(row.text)), row.result);
        EXPECT_EQ(money.GetRaw(), row.raw);
    }
}

TEST_F(MoneyTest, FormatWritesSignSymbolGroupedDollarsAndTwoDigitsOfCents) {
    const struct {
        std::int32_t raw;
        const char* text;
    } rows[] = {
        {0, "$0.00"},
        {5, "$0.05"},
        {-5, "-$0.05"},
        {99999, "$999.99"},
        {100000, "$1,000.00"},
        {123450, "$1,234.50"},
        {-100000000, "-$1,000,000.00"},
        {kMaxRaw, "$21,474,836.47"},
        {kMinRaw, "-$21,474,836.48"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.raw);
        EXPECT_EQ(QMoney::FromRaw(row.raw).Format().ToUtf8(), row.text);
    }
}

TEST_F(MoneyTest, FormatUsesTheSymbolsInForce) {
    QMoney::SetLocaleSymbols(CString::FromUtf8("\xE2\x82\xAC"), u".", u",");
    EXPECT_EQ(QMoney::FromRaw(-123450).Format().ToUtf8(), "-\xE2\x82\xAC"
                                                          "1.234,50");
    QMoney::SetLocaleSymbols(u"$", CString(), u".");
    EXPECT_EQ(QMoney::FromRaw(123450).Format().ToUtf8(), "$1234.50");
}

TEST_F(MoneyTest, FormattedAmountsParseBack) {
    const std::vector<std::vector<CString>> symbolSets = {
        {u"$", u",", u"."},
        {CString::FromUtf8("\xE2\x82\xAC"), u".", u","},
        {u"kr", CString::FromUtf8("\xC2\xA0"), u","},
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
}

TEST_F(MoneyTest, TheCLocaleHasNoCurrencySoTheDollarFormsServe) {
    const ScopedEnvironment cLocale("LC_ALL", "C");
    QMoney::ResetLocaleSymbols();
    const QMoney::LocaleSymbols symbols = QMoney::GetLocaleSymbols();
    EXPECT_EQ(symbols.symbol.ToUtf8(), "$");
    EXPECT_EQ(symbols.thousands.ToUtf8(), ",");
    EXPECT_EQ(symbols.decimal.ToUtf8(), ".");
    EXPECT_EQ(QMoney::FromRaw(123450).Format().ToUtf8(), "$1,234.50");
    QMoney money;
    EXPECT_EQ(money.Parse(u"$1,234.50"), PARSE_EXACT);
    EXPECT_EQ(money.GetRaw(), 123450);
}

TEST_F(MoneyTest, SymbolsSetByHandStayUntilReset) {
    QMoney::SetLocaleSymbols(u"CHF", u"'", u".");
    const QMoney::LocaleSymbols symbols = QMoney::GetLocaleSymbols();
    EXPECT_EQ(symbols.symbol.ToUtf8(), "CHF");
    EXPECT_EQ(symbols.thousands.ToUtf8(), "'");
    EXPECT_EQ(QMoney::FromRaw(123450).Format().ToUtf8(), "CHF1'234.50");
    const ScopedEnvironment cLocale("LC_ALL", "C");
    QMoney::ResetLocaleSymbols();
    EXPECT_EQ(QMoney::GetLocaleSymbols().symbol.ToUtf8(), "$");
}

TEST_F(MoneyTest, ArchiveHoldsTheCentsInFourLittleEndianBytes) {
    CMemFile file;
    {
        CArchive archive(&file, CArchive::store);
        archive << QMoney::FromRaw(-2) << QMoney::FromRaw(0x01020304);
        archive.Close();
    }
    const std::vector<std::uint8_t> expected = {0xFE, 0xFF, 0xFF, 0xFF, 0x04, 0x03, 0x02, 0x01};
    EXPECT_EQ(file.Bytes(), expected);
    CMemFile input(expected);
    CArchive archive(&input, CArchive::load);
    QMoney first;
    QMoney second;
    archive >> first >> second;
    EXPECT_EQ(first.GetRaw(), -2);
    EXPECT_EQ(second.GetRaw(), 0x01020304);
}

} // namespace
} // namespace keel
