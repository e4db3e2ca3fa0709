#include "tests/support/quantities.h"

#include "keel/platform/file.h"
#include "keel/platform/schema.h"
#include "keel/values/length.h"

#include <clocale>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace keel {

namespace {

using test::DoubleBytes;
using test::Int32Bytes;
using test::Loaded;
using LU = QLength::LENGTHUNITS;

// Puts back every process-wide setting a test may change.
class LengthTest : public ::testing::Test {
protected:
    void TearDown() override {
        QLength::SetDefaultUnits(m_units);
        QLength::c_InchHandlerType = m_inchHandler;
        QSchema::SetDefaultSchema(m_schema);
        DoLimitDouble(m_limitDouble);
    }

private:
    LU m_units = QLength::DefaultUnits();
    int m_inchHandler = QLength::c_InchHandlerType;
    int m_schema = QSchema::DefaultVersion();
    bool m_limitDouble = IsLimitDouble();
    test::LimitDoubleHooksGuard m_hooks;
};

TEST_F(LengthTest, ParseReadsAPointWhateverTheUserLocale) {
    const std::string previous = std::setlocale(LC_ALL, nullptr);
    if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr &&
        std::setlocale(LC_ALL, "de_DE.utf8") == nullptr &&
        std::setlocale(LC_ALL, "fr_FR.UTF-8") == nullptr)
        GTEST_SKIP() << "no locale with a decimal comma installed";
    QLength length;
    const PARSERESULT point = length.Parse(u"1.5");
    const double raw = length.GetRaw();
    const PARSERESULT comma = length.Parse(u"1,5");
    const CString text = QLength::FromRaw(1.25).Format(u"%.2f");
    std::setlocale(LC_ALL, previous.c_str());
    EXPECT_EQ(point, PARSE_DEFAULTED);
    EXPECT_DOUBLE_EQ(raw, 1.5);
    EXPECT_EQ(comma, PARSE_NONE);
    EXPECT_EQ(text, u"1.25");
}

struct FormatRow {
    double raw;
    const char16_t* specifier;
    LU unit;
    const char16_t* text;
};

TEST_F(LengthTest, FormatWritesEachUnitsPrecisionFractionsAndDecimals) {
    const LU mm = QLength::LU_MM;
    const LU inch = QLength::LU_INCH, cm = QLength::LU_CM, m = QLength::LU_METRE,
             ft = QLength::LU_FOOT;
    const double inf = std::numeric_limits<double>::infinity();
    const FormatRow rows[] = {
        {1234.56, u"", mm, u"1234.6"},
        {1234.04, u"%F", mm, u"1234mm"},
        {1234.5, u"%F", cm, u"123.45cm"},
        {1234.56789, u"%F", m, u"1.2346m"},
        {1.234, u"%F", QLength::LU_HIMETRIC, u"123"},
        {38.1, u"%F", inch, u"1 1/2\""},
        {457.2, u"%F", ft, u"1 1/2'"},
        {304.8 + 25.4 / 32, u"%F", ft, u"1 1/384'"},
        {1.5, u"%F", QLength::LU_RAW, u"1.500000"},
        {1.3, u"%/8f", mm, u"1 1/4"},
        {-0.5, u"%/2f", mm, u"-1/2"},
        {-1.5, u"%/4f", mm, u"-1 1/2"},
        {-0.001, u"%/16f", mm, u"0"},
        {1.5, u"%/1f", mm, u"2"},
        {1.49, u"%/1f", mm, u"1"},
        {1.25, u"%/0f", mm, u"1 1/4"},
        {1 + 1.0 / 96, u"%/f", mm, u"1 1/96"},
        {1.5, u"%.3f", mm, u"1.5"},
        {2, u"%.3f", mm, u"2"},
        {1.25, u"100% of %.2f", mm, u"100% of 1.25"},
        {12.5, u"%x", mm, u"12.5%x"},
        {12.5, u"%.2.3f", mm, u"12.5%.2.3f"},
        {1.5, u"%+.2f", mm, u"+1.50"},
        {12.5, u"W=%.1F!", mm, u"W=12.5mm!"},
        {12.5, u"%-F", mm, u"mm"},
        {12.5, u"%-f", mm, u""},
        {12.5, u"abc", mm, u"12.5abc"},
        {inf, u"%/16f", inch, u"inf"},
        {1e20, u"%/32f", mm, u"100000000000000000000"},
        {1.5, u"%/99999999999999f", mm, u"1 1073741824/2147483647"},
    };
    for (const FormatRow& row : rows) {
        SCOPED_TRACE(CString(row.specifier).ToUtf8() + " of " + std::to_string(row.raw) +
                     " in unit " + std::to_string(row.unit));
        EXPECT_EQ(QLength::FromRaw(row.raw).Format(row.specifier, row.unit).ToUtf8(),
                  CString(row.text).ToUtf8());
    }
}

TEST_F(LengthTest, FormatWithoutAUnitTakesTheDefaultUnitAndInchAsFractionDecidesTheTextOfInches) {
    EXPECT_EQ(QLength::InchAsFraction(), 32);
    QLength::SetDefaultUnits(QLength::LU_INCH);
    EXPECT_EQ(QLength::FromRaw(38.1).Format(), u"1 1/2");
    EXPECT_EQ(QLength::FromRaw(38.1).Format(u"%F"), u"1 1/2\"");
    const struct {
        int handler;
        double inches;
        const char16_t* text;
    } rows[] = {
        {0, 1.23456, u"1.2346\""}, {16, 1.5, u"1 1/2\""},     {16, 1.0 / 32, u"1/16\""},
        {16, 1.0 / 33, u"0\""},    {32, 1.0 / 32, u"1/32\""}, {8, 1.5, u"1.500000\""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.handler);
        QLength::c_InchHandlerType = row.handler;
        EXPECT_EQ(QLength(row.inches, QLength::LU_INCH).Format(u"%F", QLength::LU_INCH).ToUtf8(),
                  CString(row.text).ToUtf8());
    }
}

TEST_F(LengthTest, FormattedTextParsesBackToTheSameLength) {
    const LU units[] = {QLength::LU_MM, QLength::LU_CM, QLength::LU_INCH, QLength::LU_FOOT,
                        QLength::LU_METRE};
    for (const LU unit : units) {
        QLength::SetDefaultUnits(unit);
        for (const double raw : {0.0, 12.7, -38.1, 914.4, 3048.0}) {
            SCOPED_TRACE(std::to_string(unit) + " " + std::to_string(raw));
            const QLength original = QLength::FromRaw(raw);
            for (const char16_t* specifier : {u"%f", u"%F"}) {
                QLength back;
                const CString text = original.Format(specifier);
                EXPECT_NE(back.Parse(text), PARSE_NONE) << text.ToUtf8();
                EXPECT_TRUE(back == original) << text.ToUtf8() << " read back as " << back.GetRaw();
            }
        }
    }
}

TEST_F(LengthTest, LimitDoubleZeroesAnExponentBeyondSixtyOnlyWhileSwitchedOnButAlwaysTraces) {
    const double inf = std::numeric_limits<double>::infinity();
    const struct {
        double value;
        bool clamped;
    } rows[] = {
        {0.0, false},
        {-0.0, false},
        {std::ldexp(1.0, 60), false},
        {std::ldexp(1.999, 60), false},
        {std::ldexp(1.0, 61), true},
        {-std::ldexp(1.0, 61), true},
        {std::ldexp(1.0, -60), false},
        {std::ldexp(1.999, -61), true},
        {inf, true},
        {std::numeric_limits<double>::quiet_NaN(), true},
        {std::numeric_limits<double>::denorm_min(), true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        double value = row.value;
        EXPECT_EQ(LimitDoubleAlways(value, u"test"), row.clamped);
        if (row.clamped)
            EXPECT_EQ(value, 0.0);
        else
            EXPECT_EQ(std::memcmp(&value, &row.value, sizeof value), 0);
    }
    EXPECT_TRUE(IsLimitDouble());
    double value = 1e30;
    DoLimitDouble(false);
    EXPECT_FALSE(IsLimitDouble());
    EXPECT_FALSE(LimitDouble(value, u"test"));
    EXPECT_EQ(value, 1e30);
    DoLimitDouble(true);
    EXPECT_TRUE(LimitDouble(value, u"test"));
    EXPECT_EQ(value, 0.0);
    value = 1e30;
    DoLimitDouble(false);
    EXPECT_TRUE(LimitDoubleAlways(value, u"test"));
}

TEST_F(LengthTest, WithoutASchemaTheArchiveReadsByTheDefaultSchema) {
    QSchema::SetDefaultSchema(16);
    EXPECT_DOUBLE_EQ(Loaded<QLength>(Int32Bytes(15), CArchive::noSchema).GetRaw(), 1.5);
    QSchema::SetDefaultSchema(18);
    EXPECT_DOUBLE_EQ(Loaded<QLength>(DoubleBytes(2.5), CArchive::noSchema).GetRaw(), 2.5);
}

} // namespace
} // namespace keel
