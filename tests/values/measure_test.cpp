#include "tests/support/quantities.h"

#include "keel/values/area.h"
#include "keel/values/volume.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

// Areas and volumes behave alike but for their units: one typed suite, with the figures of each
// in its own table.

namespace keel {
namespace {

using test::Bytes;
using test::DoubleBytes;
using test::Loaded;
using test::Stored;
using Reports = test::LimitDoubleReports;

template <class Units>
struct UnitRow {
    Units unit;
    double rawSize; // square or cubic metres in one unit
    bool metric;
    const char* word;
};

template <class Units>
struct ParseRow {
    const char* text;
    Units defaultUnit;
    PARSERESULT result;
    double raw;
};

template <class Units>
struct FormatRow {
    double raw;
    Units unit;
    bool showUnit;
    const char* text;
};

struct AreaFigures {
    using Quantity = QArea;
    using Units = QArea::AREAUNITS;
    static constexpr Units kStart = QArea::AU_SQM, kDefault = QArea::AU_DEFAULT,
                           kFeet = QArea::AU_SQFT, kCentimetres = QArea::AU_SQCM;
    static constexpr double kEps = 0.0001, kFoot = 0.09290304;
    static CString Word(Units unit = kDefault) { return QArea::AreaUnitSuffix(unit); }
    static inline const UnitRow<Units> kUnits[] = {
        {QArea::AU_RAW, 1, false, ""},
        {QArea::AU_SQHIMETRIC, 0.00001 * 0.00001, false, ""},
        {QArea::AU_SQLOMETRIC, 0.0001 * 0.0001, false, ""},
        {QArea::AU_SQMM, 0.001 * 0.001, true, "sqmm"},
        {QArea::AU_SQCM, 0.01 * 0.01, true, "sqcm"},
        {QArea::AU_SQIN, 0.0254 * 0.0254, false, "sqin"},
        {QArea::AU_SQFT, 0.3048 * 0.3048, false, "sqft"},
        {QArea::AU_SQM, 1, true, "sqm"},
    };
    static inline const ParseRow<Units> kParses[] = {
        {"2", QArea::AU_SQM, PARSE_DEFAULTED, 2},
        {"  2.5  ", QArea::AU_SQM, PARSE_DEFAULTED, 2.5},
        {"2", QArea::AU_SQFT, PARSE_DEFAULTED, 0.18580608},
        {"2 sqm", QArea::AU_SQFT, PARSE_EXACT, 2},
        {"2sqm", QArea::AU_SQFT, PARSE_EXACT, 2},
        {"2 sqft", QArea::AU_SQM, PARSE_EXACT, 0.18580608},
        {"150 sqcm", QArea::AU_SQM, PARSE_EXACT, 0.015},
        {"4 sqmm", QArea::AU_SQM, PARSE_EXACT, 4e-6},
        {"-2 sqin", QArea::AU_SQM, PARSE_EXACT, -0.00129032},
        {"", QArea::AU_SQM, PARSE_NONE, 0},
        {"sqm", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 SQM", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 sq", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 cm", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 sqmmx", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 sqm 3", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 sqyd", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 m2", QArea::AU_SQM, PARSE_NONE, 0},
        {"2 cbm", QArea::AU_SQM, PARSE_NONE, 0},
        {"1e39", QArea::AU_SQM, PARSE_NONE, 0},
        {"nan", QArea::AU_SQM, PARSE_NONE, 0},
    };
    static inline const FormatRow<Units> kFormats[] = {
        {1.5, QArea::AU_SQM, false, "1.50"},
        {1.5, QArea::AU_SQM, true, "1.50 sqm"},
        {1.005, QArea::AU_SQM, false, "1.00"},
        {0.09290304 * 2.5, QArea::AU_SQFT, true, "2.50 sqft"},
        {0.0001, QArea::AU_SQCM, true, "1.00 sqcm"},
        {1.5, QArea::AU_RAW, true, "1.50"},
        {-3, QArea::AU_SQM, false, "-3.00"},
    };
    static constexpr const char* kWhere = "Area CArchive>> reading";
    static constexpr const char* kWhat = "area";
};

struct VolumeFigures {
    using Quantity = QVolume;
    using Units = QVolume::VOLUMEUNITS;
    static constexpr Units kStart = QVolume::VU_CBM, kDefault = QVolume::VU_DEFAULT,
                           kFeet = QVolume::VU_CBFT, kCentimetres = QVolume::VU_CBCM;
    static constexpr double kEps = 1e-06, kFoot = 0.028316846592;
    static CString Word(Units unit = kDefault) { return QVolume::VolumeUnitSuffix(unit); }
    static inline const UnitRow<Units> kUnits[] = {
        {QVolume::VU_RAW, 1, false, ""},
        {QVolume::VU_CBHIMETRIC, 0.00001 * 0.00001 * 0.00001, false, ""},
        {QVolume::VU_CBLOMETRIC, 0.0001 * 0.0001 * 0.0001, false, ""},
        {QVolume::VU_CBMM, 0.001 * 0.001 * 0.001, true, "cbmm"},
        {QVolume::VU_CBCM, 0.01 * 0.01 * 0.01, true, "cbcm"},
        {QVolume::VU_CBIN, 0.0254 * 0.0254 * 0.0254, false, "cbin"},
        {QVolume::VU_CBFT, 0.3048 * 0.3048 * 0.3048, false, "cbft"},
        {QVolume::VU_CBM, 1, true, "cbm"},
    };
    static inline const ParseRow<Units> kParses[] = {
        {"2", QVolume::VU_CBM, PARSE_DEFAULTED, 2},
        {"  2.5  ", QVolume::VU_CBM, PARSE_DEFAULTED, 2.5},
        {"2", QVolume::VU_CBFT, PARSE_DEFAULTED, 0.056633693184},
        {"2 cbm", QVolume::VU_CBFT, PARSE_EXACT, 2},
        {"2cbm", QVolume::VU_CBFT, PARSE_EXACT, 2},
        {"2 cbft", QVolume::VU_CBM, PARSE_EXACT, 0.056633693184},
        {"500 cbcm", QVolume::VU_CBM, PARSE_EXACT, 0.0005},
        {"4 cbmm", QVolume::VU_CBM, PARSE_EXACT, 4e-9},
        {"-2 cbin", QVolume::VU_CBM, PARSE_EXACT, -3.2774128e-5},
        {"", QVolume::VU_CBM, PARSE_NONE, 0},
        {"cbm", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 CBM", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 cb", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 sqm", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 cbmmx", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 cbm 3", QVolume::VU_CBM, PARSE_NONE, 0},
        {"2 m3", QVolume::VU_CBM, PARSE_NONE, 0},
        {"1e39", QVolume::VU_CBM, PARSE_NONE, 0},
        {"inf cbm", QVolume::VU_CBM, PARSE_NONE, 0},
    };
    static inline const FormatRow<Units> kFormats[] = {
        {1.5, QVolume::VU_CBM, false, "1.50"},
        {1.5, QVolume::VU_CBM, true, "1.50 cbm"},
        {1.005, QVolume::VU_CBM, false, "1.00"},
        {0.028316846592 * 2.5, QVolume::VU_CBFT, true, "2.50 cbft"},
        {1e-6, QVolume::VU_CBCM, true, "1.00 cbcm"},
        {1.5, QVolume::VU_RAW, true, "1.50"},
        {-3, QVolume::VU_CBM, false, "-3.00"},
    };
    static constexpr const char* kWhere = "Volume CArchive>> reading";
    static constexpr const char* kWhat = "volume";
};

template <class Figures>
class MeasureTest : public ::testing::Test {
protected:
    using Quantity = typename Figures::Quantity;
    using Units = typename Figures::Units;

    void TearDown() override { Quantity::SetDefaultUnits(m_units); }

private:
    Units m_units = Quantity::DefaultUnits();
    test::LimitDoubleHooksGuard m_hooks;
};

using Measures = ::testing::Types<AreaFigures, VolumeFigures>;
TYPED_TEST_SUITE(MeasureTest, Measures);

TYPED_TEST(MeasureTest, UnitsHaveTheirSizeAndWordAndComparisonsHoldWithinItsTolerance) {
    using Quantity = typename TestFixture::Quantity;
    EXPECT_EQ(Quantity::DefaultUnits(), TypeParam::kStart);
    for (const auto& row : TypeParam::kUnits) {
        SCOPED_TRACE(row.unit);
        EXPECT_DOUBLE_EQ(Quantity::Factor(row.unit), row.rawSize);
        EXPECT_DOUBLE_EQ(Quantity::double_to_raw(3, row.unit), 3 * row.rawSize);
        EXPECT_DOUBLE_EQ(Quantity::raw_to_double(3 * row.rawSize, row.unit), 3);
        EXPECT_EQ(TypeParam::Word(row.unit).ToUtf8(), row.word);
        Quantity::SetDefaultUnits(row.unit);
        EXPECT_EQ(Quantity::DefaultUnitsAreMetric(), row.metric);
    }
    EXPECT_THROW(Quantity::SetDefaultUnits(TypeParam::kDefault), InvalidArgumentException);
    EXPECT_THROW(Quantity::SetDefaultUnits(static_cast<typename TestFixture::Units>(8)),
                 InvalidArgumentException);
    EXPECT_THROW(Quantity::Factor(static_cast<typename TestFixture::Units>(8)),
                 InvalidArgumentException);
    Quantity::SetDefaultUnits(TypeParam::kFeet);
    EXPECT_DOUBLE_EQ(Quantity(2).GetRaw(), 2 * TypeParam::kFoot);
    EXPECT_DOUBLE_EQ(Quantity::double_to_raw(2), 2 * TypeParam::kFoot);
    EXPECT_DOUBLE_EQ(Quantity::raw_to_double(TypeParam::kFoot), 1);
    EXPECT_DOUBLE_EQ(Quantity::FromRaw(TypeParam::kFoot).AsDouble(), 1);
    EXPECT_EQ(TypeParam::Word(), TypeParam::Word(TypeParam::kFeet));
    using Quantity = typename TestFixture::Quantity;
    const double eps = TypeParam::kEps;
    EXPECT_EQ(Quantity::Eps, eps);
    const struct {
        double difference;
        bool equal, less, greater;
    } rows[] = {
        {0, true, false, false},           {0.99 * eps, true, false, false},
        {eps, true, false, true},          {1.01 * eps, false, false, true},
        {-0.99 * eps, true, false, false}, {-eps, true, true, false},
        {-1.01 * eps, false, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.difference);
        const Quantity a = Quantity::FromRaw(row.difference);
        EXPECT_EQ(a == Quantity::Zero, row.equal);
        EXPECT_EQ(a < Quantity::Zero, row.less);
        EXPECT_EQ(a > Quantity::Zero, row.greater);
        EXPECT_EQ(a <= Quantity::Zero, !row.greater);
        EXPECT_EQ(a >= Quantity::Zero, !row.less);
        EXPECT_EQ(!a, row.equal);
        EXPECT_EQ(a.IsZero(), row.equal);
    }
    const Quantity six = Quantity::FromRaw(6);
    const Quantity four = Quantity::FromRaw(4);
    EXPECT_DOUBLE_EQ((six + four).GetRaw(), 10);
    EXPECT_DOUBLE_EQ((six - four).GetRaw(), 2);
    EXPECT_DOUBLE_EQ((six * 2).GetRaw(), 12);
    EXPECT_DOUBLE_EQ((0.5 * six).GetRaw(), 3);
    EXPECT_DOUBLE_EQ((six / 4).GetRaw(), 1.5);
    EXPECT_DOUBLE_EQ(six / four, 1.5);
    EXPECT_DOUBLE_EQ((-six).GetRaw(), -6);
    EXPECT_DOUBLE_EQ((+six).GetRaw(), 6);
}

TYPED_TEST(MeasureTest, ParseReadsANumberAndAUnitWord) {
    using Quantity = typename TestFixture::Quantity;
    for (const auto& row : TypeParam::kParses) {
        SCOPED_TRACE(row.text);
        Quantity::SetDefaultUnits(row.defaultUnit);
        Quantity value = Quantity::FromRaw(42);
        EXPECT_EQ(value.Parse(CString(row.text)), row.result);
        EXPECT_DOUBLE_EQ(value.GetRaw(), row.result == PARSE_NONE ? 42 : row.raw);
    }
    Quantity::SetDefaultUnits(TypeParam::kStart);
    Quantity value;
    EXPECT_EQ(value.Parse(u"2", TypeParam::kCentimetres), PARSE_DEFAULTED);
    EXPECT_DOUBLE_EQ(value.GetRaw(), 2 * Quantity::Factor(TypeParam::kCentimetres));
    // The number is read as a float.
    EXPECT_EQ(value.Parse(u"1.1 " + TypeParam::Word()), PARSE_EXACT);
    EXPECT_EQ(value.GetRaw(), static_cast<double>(1.1f));
}

TYPED_TEST(MeasureTest, FormatWritesTwoDecimalsAndTheWordWhenAskedAndTheArchiveEightBytesOfDouble) {
    using Quantity = typename TestFixture::Quantity;
    for (const auto& row : TypeParam::kFormats)
        EXPECT_EQ(Quantity::FromRaw(row.raw).Format(row.unit, row.showUnit).ToUtf8(), row.text);
    using Quantity = typename TestFixture::Quantity;
    EXPECT_EQ(Stored(Quantity::FromRaw(1.5)), (Bytes{0, 0, 0, 0, 0, 0, 0xF8, 0x3F}));
    EXPECT_EQ(Stored(Quantity::FromRaw(-0.25)), DoubleBytes(-0.25));
    for (const unsigned schema : {0u, 16u, 17u, 107u, 108u, CArchive::noSchema}) {
        EXPECT_DOUBLE_EQ(Loaded<Quantity>({0, 0, 0, 0, 0, 0, 0xF8, 0x3F}, schema).GetRaw(), 1.5);
        EXPECT_DOUBLE_EQ(Loaded<Quantity>(DoubleBytes(-0.25), schema).GetRaw(), -0.25);
    }
    using Quantity = typename TestFixture::Quantity;
    Reports::Install();
    EXPECT_EQ(Stored(Quantity::FromRaw(1e30)), DoubleBytes(1e30));
    EXPECT_TRUE(Reports::reported.empty());
    EXPECT_EQ(Loaded<Quantity>(DoubleBytes(1e30)).GetRaw(), 0.0);
    EXPECT_EQ(Reports::traced, std::vector<std::string>{TypeParam::kWhere});
    EXPECT_EQ(Reports::reported, std::vector<std::string>{TypeParam::kWhat});
    EXPECT_EQ(Reports::files, std::vector<std::string>{"loaded.drw"});
    using Quantity = typename TestFixture::Quantity;
    Quantity value = Quantity::FromRaw(-1e-25);
    EXPECT_TRUE(Quantity::LimitDoubleAlways(value, u"test"));
    EXPECT_EQ(value.GetRaw(), 0.0);
    value = Quantity::FromRaw(1e-6);
    EXPECT_FALSE(Quantity::LimitDoubleAlways(value, u"test"));
    EXPECT_EQ(value.GetRaw(), 1e-6);
}

TEST(MeasureConversions, NamedConversionsFollowFromTheFactors) {
    EXPECT_DOUBLE_EQ(QArea::sqft_to_sqin(1), 144);
    EXPECT_DOUBLE_EQ(QArea::sqm_to_sqcm(1), 10000);
    EXPECT_DOUBLE_EQ(QArea::sqin_to_sqmm(1), 645.16);
    EXPECT_DOUBLE_EQ(QArea::sqft_to_sqm(1), 0.09290304);
    EXPECT_DOUBLE_EQ(QArea::sqhimetric_to_sqlometric(100), 1);
    EXPECT_DOUBLE_EQ(QArea::sqm_to_sqft(0.09290304), 1);
    EXPECT_DOUBLE_EQ(QVolume::cbft_to_cbin(1), 1728);
    EXPECT_DOUBLE_EQ(QVolume::cbm_to_cbcm(1), 1e6);
    EXPECT_DOUBLE_EQ(QVolume::cbin_to_cbcm(1), 16.387064);
    EXPECT_DOUBLE_EQ(QVolume::cbft_to_cbm(1), 0.028316846592);
    EXPECT_DOUBLE_EQ(QVolume::cbhimetric_to_cblometric(1000), 1);
    EXPECT_DOUBLE_EQ(QVolume::cbm_to_cbmm(1), 1e9);
}

} // namespace
} // namespace keel
