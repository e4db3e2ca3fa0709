#include "tests/support/quantities.h"

#include "keel/values/angle.h"
#include "keel/values/area.h"
#include "keel/values/compare.h"
#include "keel/values/length.h"
#include "keel/values/volume.h"

#include <gtest/gtest.h>
#include <numbers>
#include <string>
#include <vector>

// Lengths, areas, volumes and angles each keep one double in a raw unit, compare it within a
// tolerance, read a number with a unit word and archive the double: one typed suite, with the
// figures of each in its own table. What only lengths or angles do is in their own files.

namespace keel {
namespace {

using test::Bytes;
using test::DoubleBytes;
using test::Int32Bytes;
using test::Loaded;
using test::Stored;
using Reports = test::LimitDoubleReports;

template <class Units>
struct UnitRow {
    Units unit;
    double rawSize; // raw units in one unit
    bool metric;
    const char* word;
};

struct CompareRow {
    double a, b;
    bool equal, less, greater;
};

template <class Units>
struct ParseRow {
    const char* text;
    Units defaultUnit;
    PARSERESULT result;
    double raw;
};

struct LoadRow {
    unsigned schema;
    Bytes bytes;
    double raw;
};

template <class Units>
struct FormatRow {
    double raw;
    Units unit;
    bool showUnit;
    const char* text;
};

// What loading and then storing a double out of range tells the reporter.
struct HugeReports {
    std::vector<std::string> reported, files;
    Bytes stored;
};

const Bytes kOneAndAHalf = {0, 0, 0, 0, 0, 0, 0xF8, 0x3F};

struct LengthFigures {
    using Quantity = QLength;
    using Units = QLength::LENGTHUNITS;
    static constexpr Units kStart = QLength::LU_MM, kDefault = QLength::LU_DEFAULT,
                           kOther = QLength::LU_INCH, kInvalid = static_cast<Units>(8);
    static constexpr unsigned kDoubleSchema = 18;
    static CString Word(Units unit = kDefault) { return QLength::LengthUnitSuffix(unit); }
    static inline const UnitRow<Units> kUnits[] = {
        {QLength::LU_RAW, 1, false, ""},        {QLength::LU_HIMETRIC, 0.01, false, ""},
        {QLength::LU_LOMETRIC, 0.1, false, ""}, {QLength::LU_MM, 1, true, "mm"},
        {QLength::LU_CM, 10, true, "cm"},       {QLength::LU_INCH, 25.4, false, "\""},
        {QLength::LU_FOOT, 304.8, false, "'"},  {QLength::LU_METRE, 1000, true, "m"},
    };
    static inline const CompareRow kCompares[] = {
        {0, 0, true, false, false},         {0.0099, 0, true, false, false},
        {0.01, 0, true, false, true},       {0.0101, 0, false, false, true},
        {-0.01, 0, true, true, false},      {-0.0101, 0, false, true, false},
        {0.008, 0.016, true, false, false}, {0, 0.016, false, true, false},
    };
    static constexpr Units mm = QLength::LU_MM, inch = QLength::LU_INCH;
    static inline const ParseRow<Units> kParses[] = {
        {"  3.5  ", mm, PARSE_DEFAULTED, 3.5}, {"3 mm", inch, PARSE_EXACT, 3},
        {"2cm", mm, PARSE_EXACT, 20},          {"2.5 m", mm, PARSE_EXACT, 2500},
        {"2\"", mm, PARSE_EXACT, 50.8},        {"2 '", mm, PARSE_EXACT, 609.6},
        {"3/4", mm, PARSE_DEFAULTED, 0.75},    {"3 / 4", mm, PARSE_DEFAULTED, 0.75},
        {"1/2\"", mm, PARSE_EXACT, 12.7},      {"1 3/4", mm, PARSE_DEFAULTED, 1.75},
        {"-1 1/2", mm, PARSE_DEFAULTED, -1.5}, {"1 1/2\"", mm, PARSE_EXACT, 38.1},
        {"2", inch, PARSE_DEFAULTED, 50.8},    {"3/4", inch, PARSE_DEFAULTED, 19.05},
        {"2mm", inch, PARSE_EXACT, 2},         {"", mm, PARSE_NONE, 0},
        {"3 in", mm, PARSE_NONE, 0},           {"3 m'", mm, PARSE_NONE, 0},
        {"3mm x", mm, PARSE_NONE, 0},          {"3/4 x", mm, PARSE_NONE, 0},
        {"3/4\" 5", mm, PARSE_NONE, 0},        {"1 3/4 x", mm, PARSE_NONE, 0},
        {"1 3/4\" x", mm, PARSE_NONE, 0},      {"1/0", mm, PARSE_NONE, 0},
        {"1 1/0", mm, PARSE_NONE, 0},          {"inf", mm, PARSE_NONE, 0},
        {"- 1/2", mm, PARSE_NONE, 0},          {"1,5", mm, PARSE_NONE, 0},
    };
    // Tenths of a millimetre up to schema 16, 320ths up to 17, then a double.
    static inline const LoadRow kLoads[] = {
        {0, Int32Bytes(15), 1.5},           {16, Int32Bytes(-25), -2.5},
        {16, {0x0F, 0, 0, 0}, 1.5},         {17, Int32Bytes(-32), -0.1},
        {17, {0xE0, 0x01, 0, 0}, 1.5},      {18, kOneAndAHalf, 1.5},
        {250, DoubleBytes(-12.25), -12.25},
    };
    static inline const HugeReports kHuge = {
        {"length", "length storing"},
        {"loaded.drw", "stored.drw"},
        DoubleBytes(0.0),
    };
};

struct AreaFigures {
    using Quantity = QArea;
    using Units = QArea::AREAUNITS;
    static constexpr Units kStart = QArea::AU_SQM, kDefault = QArea::AU_DEFAULT,
                           kOther = QArea::AU_SQFT, kInvalid = static_cast<Units>(8);
    static constexpr unsigned kDoubleSchema = 0;
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
    static inline const CompareRow kCompares[] = {
        {0, 0, true, false, false},      {0.000099, 0, true, false, false},
        {0.0001, 0, true, false, true},  {0.000101, 0, false, false, true},
        {-0.0001, 0, true, true, false}, {-0.000101, 0, false, true, false},
    };
    static constexpr Units sqm = QArea::AU_SQM, sqft = QArea::AU_SQFT;
    static inline const ParseRow<Units> kParses[] = {
        {"2", sqft, PARSE_DEFAULTED, 0.18580608},
        {"2 sqm", sqft, PARSE_EXACT, 2},
        {"2 sqft", sqm, PARSE_EXACT, 0.18580608},
        {"150 sqcm", sqm, PARSE_EXACT, 0.015},
        {"-2 sqin", sqm, PARSE_EXACT, -0.00129032},
        {"1.1 sqm", sqm, PARSE_EXACT, static_cast<double>(1.1f)}, // read as a float
        {"2 SQM", sqm, PARSE_NONE, 0},
        {"2 sqmmx", sqm, PARSE_NONE, 0},
        {"1e39", sqm, PARSE_NONE, 0},
    };
    // Always a double, also at the schemas where lengths and angles still read tenths.
    static inline const LoadRow kLoads[] = {
        {16, DoubleBytes(-0.25), -0.25},
        {107, kOneAndAHalf, 1.5},
        {CArchive::noSchema, DoubleBytes(-0.25), -0.25},
    };
    static inline const FormatRow<Units> kFormats[] = {
        {1.5, sqm, false, "1.50"},          {1.5, sqm, true, "1.50 sqm"},
        {1.005, sqm, false, "1.00"},        {0.09290304 * 2.5, sqft, true, "2.50 sqft"},
        {1.5, QArea::AU_RAW, true, "1.50"},
    };
    static inline const HugeReports kHuge = {{"area"}, {"loaded.drw"}, DoubleBytes(1e30)};
};

struct VolumeFigures {
    using Quantity = QVolume;
    using Units = QVolume::VOLUMEUNITS;
    static constexpr Units kStart = QVolume::VU_CBM, kDefault = QVolume::VU_DEFAULT,
                           kOther = QVolume::VU_CBFT, kInvalid = static_cast<Units>(8);
    static constexpr unsigned kDoubleSchema = 0;
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
    static inline const CompareRow kCompares[] = {
        {0, 0, true, false, false},    {0.99e-6, 0, true, false, false},
        {1e-6, 0, true, false, true},  {1.01e-6, 0, false, false, true},
        {-1e-6, 0, true, true, false}, {-1.01e-6, 0, false, true, false},
    };
    static constexpr Units cbm = QVolume::VU_CBM, cbft = QVolume::VU_CBFT;
    static inline const ParseRow<Units> kParses[] = {
        {"2", cbft, PARSE_DEFAULTED, 0.056633693184},
        {"2 cbm", cbft, PARSE_EXACT, 2},
        {"2 cbft", cbm, PARSE_EXACT, 0.056633693184},
        {"500 cbcm", cbm, PARSE_EXACT, 0.0005},
        {"-2 cbin", cbm, PARSE_EXACT, -3.2774128e-5},
        {"2 CBM", cbm, PARSE_NONE, 0},
        {"2 cbmmx", cbm, PARSE_NONE, 0},
        {"inf cbm", cbm, PARSE_NONE, 0},
    };
    static inline const LoadRow kLoads[] = {
        {16, kOneAndAHalf, 1.5},
        {107, DoubleBytes(-0.25), -0.25},
        {CArchive::noSchema, kOneAndAHalf, 1.5},
    };
    static inline const FormatRow<Units> kFormats[] = {
        {1.5, cbm, true, "1.50 cbm"},
        {0.028316846592 * 2.5, cbft, true, "2.50 cbft"},
        {1e-6, QVolume::VU_CBCM, true, "1.00 cbcm"},
    };
    static inline const HugeReports kHuge = {{"volume"}, {"loaded.drw"}, DoubleBytes(1e30)};
};

struct AngleFigures {
    using Quantity = QAngle;
    using Units = QAngle::ANGLEUNITS;
    static constexpr Units kStart = QAngle::ANGU_DEG, kDefault = QAngle::ANGU_DEFAULT,
                           kOther = QAngle::ANGU_RAD, kInvalid = static_cast<Units>(4);
    static constexpr unsigned kDoubleSchema = 108;
    static CString Word(Units unit = kDefault) { return QAngle::AngleUnitSuffix(unit); }
    static inline const UnitRow<Units> kUnits[] = {
        {QAngle::ANGU_RAW, 1, true, ""},
        {QAngle::ANGU_TENTHDEG, 0.1, true, ""},
        {QAngle::ANGU_DEG, 1, true, "deg"},
        {QAngle::ANGU_RAD, 180 / std::numbers::pi, true, "rad"},
    };
    // Equal within Eps; otherwise ordered the short way round, and not normalised first.
    static inline const CompareRow kCompares[] = {
        {0, 0, true, false, false},        {1e-5, 0, true, false, false},
        {1.01e-5, 0, false, false, true},  {-1e-5, 0, true, false, false},
        {-1.01e-5, 0, false, true, false}, {360, 0, false, true, false},
        {350, 10, false, true, false},     {100, 90, false, false, true},
        {10, 350, false, false, true},     {0, 179, false, true, false},
        {0, 181, false, false, true},      {181, 0, false, true, false},
        {0, 180, false, false, false},     {180, 0, false, false, false},
        {10, 10.0001, false, true, false}, {370, 10, false, true, false},
    };
    static constexpr Units deg = QAngle::ANGU_DEG, rad = QAngle::ANGU_RAD;
    static constexpr double kRadian = 180 / std::numbers::pi;
    static inline const ParseRow<Units> kParses[] = {
        {" 45.5 ", deg, PARSE_DEFAULTED, 45.5},
        {"45 deg", rad, PARSE_EXACT, 45},
        {"1 rad", deg, PARSE_EXACT, kRadian},
        {"1", rad, PARSE_DEFAULTED, kRadian},
        {"455", QAngle::ANGU_TENTHDEG, PARSE_DEFAULTED, 45.5},
        {"90 DEG", deg, PARSE_NONE, 0},
        {"90 d", deg, PARSE_NONE, 0},
    };
    // Tenths of a degree up to schema 107, then a double.
    static inline const LoadRow kLoads[] = {
        {0, Int32Bytes(905), 90.5},       {107, Int32Bytes(905), 90.5},
        {107, Int32Bytes(-15), -1.5},     {107, {0x89, 0x03, 0, 0}, 90.5},
        {108, DoubleBytes(90.5), 90.5},   {108, {0, 0, 0, 0, 0, 0x80, 0x56, 0x40}, 90},
        {500, DoubleBytes(-0.25), -0.25},
    };
    static inline const FormatRow<Units> kFormats[] = {
        {45, kDefault, false, "45.00"},
        {45, deg, true, "45.00 deg"},
        {45, rad, true, "0.79 rad"},
        {45, QAngle::ANGU_TENTHDEG, true, "450.00"},
    };
    static inline const HugeReports kHuge = {
        {"angle", "angle storing"},
        {"loaded.drw", "stored.drw"},
        DoubleBytes(0.0),
    };
};

template <class Figures>
class QuantityTest : public ::testing::Test {
protected:
    using Quantity = typename Figures::Quantity;
    using Units = typename Figures::Units;

    void TearDown() override { Quantity::SetDefaultUnits(m_units); }

private:
    Units m_units = Quantity::DefaultUnits();
    test::LimitDoubleHooksGuard m_hooks;
};

using Quantities = ::testing::Types<LengthFigures, AreaFigures, VolumeFigures, AngleFigures>;
TYPED_TEST_SUITE(QuantityTest, Quantities);

TYPED_TEST(QuantityTest, EachUnitHasItsSizeWordAndMetricFlagAndTheDefaultServesWhereNoneIsGiven) {
    using Quantity = typename TestFixture::Quantity;
    EXPECT_EQ(Quantity::DefaultUnits(), TypeParam::kStart);
    for (const auto& row : TypeParam::kUnits) {
        SCOPED_TRACE(row.unit);
        EXPECT_DOUBLE_EQ(Quantity::Factor(row.unit), row.rawSize);
        EXPECT_DOUBLE_EQ(Quantity(3, row.unit).GetRaw(), 3 * row.rawSize);
        EXPECT_EQ(TypeParam::Word(row.unit).ToUtf8(), row.word);
        Quantity::SetDefaultUnits(row.unit);
        EXPECT_EQ(Quantity::DefaultUnitsAreMetric(), row.metric);
        EXPECT_EQ(TypeParam::Word().ToUtf8(), row.word);
    }
    Quantity::SetDefaultUnits(TypeParam::kOther);
    const double size = Quantity::Factor(TypeParam::kOther);
    EXPECT_DOUBLE_EQ(Quantity(2).GetRaw(), 2 * size);
    EXPECT_DOUBLE_EQ(Quantity::FromRaw(size).AsDouble(), 1);
    EXPECT_THROW(Quantity::SetDefaultUnits(TypeParam::kDefault), InvalidArgumentException);
    EXPECT_THROW(Quantity::SetDefaultUnits(TypeParam::kInvalid), InvalidArgumentException);
    EXPECT_THROW(Quantity::Factor(TypeParam::kInvalid), InvalidArgumentException);
    EXPECT_THROW(TypeParam::Word(TypeParam::kInvalid), InvalidArgumentException);
    EXPECT_EQ(Quantity::DefaultUnits(), TypeParam::kOther);
}

TYPED_TEST(QuantityTest, ComparisonsHoldWithinTheToleranceAndArithmeticWorksOnTheRawValue) {
    using Quantity = typename TestFixture::Quantity;
    for (const CompareRow& row : TypeParam::kCompares) {
        SCOPED_TRACE(std::to_string(row.a) + " against " + std::to_string(row.b));
        const Quantity a = Quantity::FromRaw(row.a);
        const Quantity b = Quantity::FromRaw(row.b);
        EXPECT_EQ(a == b, row.equal);
        EXPECT_EQ(a != b, !row.equal);
        EXPECT_EQ(a < b, row.less);
        EXPECT_EQ(a > b, row.greater);
        EXPECT_EQ(a <= b, !row.greater);
        EXPECT_EQ(a >= b, !row.less);
        EXPECT_EQ(COMPARE(a, b), row.less ? -1 : row.greater ? 1 : 0);
        if (row.b == 0) {
            EXPECT_EQ(!a, row.equal);
            EXPECT_EQ(a.IsZero(), row.equal);
        }
    }
    // Nothing is normalised or rounded: 300 and 120 add to 420 degrees as well.
    const Quantity a = Quantity::FromRaw(300);
    const Quantity b = Quantity::FromRaw(120);
    EXPECT_DOUBLE_EQ((a + b).GetRaw(), 420);
    EXPECT_DOUBLE_EQ((a - b).GetRaw(), 180);
    EXPECT_DOUBLE_EQ((a * 2).GetRaw(), 600);
    EXPECT_DOUBLE_EQ((a / 4).GetRaw(), 75);
    EXPECT_DOUBLE_EQ(a / b, 2.5);
    EXPECT_DOUBLE_EQ((-a).GetRaw(), -300);
    Quantity c = a;
    c += b;
    c -= Quantity::FromRaw(60);
    c *= 3;
    c /= 4;
    EXPECT_DOUBLE_EQ(c.GetRaw(), 270);
}

TYPED_TEST(QuantityTest, ParseReadsANumberAndAUnitWordAndAFailureLeavesTheValueAlone) {
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
    EXPECT_EQ(value.Parse(u"2", TypeParam::kOther), PARSE_DEFAULTED) << "in the unit given";
    EXPECT_DOUBLE_EQ(value.GetRaw(), 2 * Quantity::Factor(TypeParam::kOther));
    if constexpr (requires { TypeParam::kFormats; }) {
        for (const auto& row : TypeParam::kFormats) {
            SCOPED_TRACE(row.text);
            EXPECT_EQ(Quantity::FromRaw(row.raw).Format(row.unit, row.showUnit).ToUtf8(), row.text);
        }
        Quantity::SetDefaultUnits(TypeParam::kOther);
        const CString text = Quantity::FromRaw(3).Format(TypeParam::kDefault, true);
        EXPECT_EQ(text, Quantity::FromRaw(3).Format(TypeParam::kOther, true))
            << "without a unit, the default";
        EXPECT_TRUE(text.Right(TypeParam::Word().GetLength()) == TypeParam::Word());
    }
}

TYPED_TEST(QuantityTest, ArchiveKeepsADoubleReadByTheSchemaAndOneOutOfRangeIsZeroWithAReport) {
    using Quantity = typename TestFixture::Quantity;
    EXPECT_EQ(Stored(Quantity::FromRaw(1.5)), kOneAndAHalf);
    for (const LoadRow& row : TypeParam::kLoads) {
        SCOPED_TRACE(row.schema);
        EXPECT_DOUBLE_EQ(Loaded<Quantity>(row.bytes, row.schema).GetRaw(), row.raw);
    }
    const unsigned schema = TypeParam::kDoubleSchema;
    EXPECT_EQ(Loaded<Quantity>(DoubleBytes(1e30), schema).GetRaw(), 0.0)
        << "silent without a reporter";
    Reports::Install();
    Stored(Quantity::FromRaw(12));
    Loaded<Quantity>(DoubleBytes(12), schema);
    EXPECT_TRUE(Reports::reported.empty()) << "a good value is not reported";
    EXPECT_EQ(Loaded<Quantity>(DoubleBytes(1e30), schema).GetRaw(), 0.0);
    EXPECT_EQ(Stored(Quantity::FromRaw(1e30)), TypeParam::kHuge.stored);
    EXPECT_EQ(Reports::reported, TypeParam::kHuge.reported);
    EXPECT_EQ(Reports::files, TypeParam::kHuge.files);
    Quantity value = Quantity::FromRaw(-1e-25);
    EXPECT_TRUE(Quantity::LimitDoubleAlways(value, u"test"));
    EXPECT_EQ(value.GetRaw(), 0.0);
    value = Quantity::FromRaw(1e-6);
    EXPECT_FALSE(Quantity::LimitDoubleAlways(value, u"test"));
    EXPECT_EQ(value.GetRaw(), 1e-6);
}

} // namespace
} // namespace keel
