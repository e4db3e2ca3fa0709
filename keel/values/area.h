#pragma once

#include "keel/values/length.h"

namespace keel {

// An area; raw unit the square metre.
class QArea : public TMeasured<QArea> {
public:
    enum AREAUNITS : int {
        AU_DEFAULT = -1,
        AU_RAW = 0,
        AU_SQHIMETRIC = 1,
        AU_SQLOMETRIC = 2,
        AU_SQMM = 3,
        AU_SQCM = 4,
        AU_SQIN = 5,
        AU_SQFT = 6,
        AU_SQM = 7,
    };

    static constexpr double Eps = 0.0001;
    static const QArea Zero;

    constexpr QArea() = default;
    explicit QArea(double value, AREAUNITS unit = AU_DEFAULT)
        : TMeasured(double_to_raw(value, unit)) {}

    double AsDouble(AREAUNITS unit = AU_DEFAULT) const { return raw_to_double(GetRaw(), unit); }

    // A unit of -1 (AU_DEFAULT) is an invalid argument here.
    static constexpr double Factor(AREAUNITS unit) {
        constexpr double factors[] = {
            1, 1.0000000000000002e-10, 1e-8, 1e-6, 0.0001, 0.00064516, 0.09290304, 1};
        if (unit < AU_RAW || unit > AU_SQM)
            ThrowInvalidArgument("area unit " + std::to_string(unit));
        return factors[unit];
    }
    static AREAUNITS DefaultUnits() { return c_defunits; }
    static void SetDefaultUnits(AREAUNITS unit);
    // Square millimetres, centimetres and metres.
    static bool DefaultUnitsAreMetric();
    static AREAUNITS Resolve(AREAUNITS unit) { return unit == AU_DEFAULT ? c_defunits : unit; }

    static double double_to_raw(double value, AREAUNITS unit) {
        return value * Factor(Resolve(unit));
    }
    static double double_to_raw(double value) { return double_to_raw(value, AU_DEFAULT); }
    static double raw_to_double(double raw, AREAUNITS unit) { return raw / Factor(Resolve(unit)); }
    static double raw_to_double(double raw) { return raw_to_double(raw, AU_DEFAULT); }
    static constexpr double Convert(double value, AREAUNITS from, AREAUNITS to) {
        return value * Factor(from) / Factor(to);
    }

    // clang-format off
    static constexpr double sqhimetric_to_sqlometric(double value) { return Convert(value, AU_SQHIMETRIC, AU_SQLOMETRIC); }
    static constexpr double sqhimetric_to_sqmm(double value) { return Convert(value, AU_SQHIMETRIC, AU_SQMM); }
    static constexpr double sqhimetric_to_sqcm(double value) { return Convert(value, AU_SQHIMETRIC, AU_SQCM); }
    static constexpr double sqhimetric_to_sqin(double value) { return Convert(value, AU_SQHIMETRIC, AU_SQIN); }
    static constexpr double sqhimetric_to_sqft(double value) { return Convert(value, AU_SQHIMETRIC, AU_SQFT); }
    static constexpr double sqhimetric_to_sqm(double value) { return Convert(value, AU_SQHIMETRIC, AU_SQM); }
    static constexpr double sqlometric_to_sqhimetric(double value) { return Convert(value, AU_SQLOMETRIC, AU_SQHIMETRIC); }
    static constexpr double sqlometric_to_sqmm(double value) { return Convert(value, AU_SQLOMETRIC, AU_SQMM); }
    static constexpr double sqlometric_to_sqcm(double value) { return Convert(value, AU_SQLOMETRIC, AU_SQCM); }
    static constexpr double sqlometric_to_sqin(double value) { return Convert(value, AU_SQLOMETRIC, AU_SQIN); }
    static constexpr double sqlometric_to_sqft(double value) { return Convert(value, AU_SQLOMETRIC, AU_SQFT); }
    static constexpr double sqlometric_to_sqm(double value) { return Convert(value, AU_SQLOMETRIC, AU_SQM); }
    static constexpr double sqmm_to_sqhimetric(double value) { return Convert(value, AU_SQMM, AU_SQHIMETRIC); }
    static constexpr double sqmm_to_sqlometric(double value) { return Convert(value, AU_SQMM, AU_SQLOMETRIC); }
    static constexpr double sqmm_to_sqcm(double value) { return Convert(value, AU_SQMM, AU_SQCM); }
    static constexpr double sqmm_to_sqin(double value) { return Convert(value, AU_SQMM, AU_SQIN); }
    static constexpr double sqmm_to_sqft(double value) { return Convert(value, AU_SQMM, AU_SQFT); }
    static constexpr double sqmm_to_sqm(double value) { return Convert(value, AU_SQMM, AU_SQM); }
    static constexpr double sqcm_to_sqhimetric(double value) { return Convert(value, AU_SQCM, AU_SQHIMETRIC); }
    static constexpr double sqcm_to_sqlometric(double value) { return Convert(value, AU_SQCM, AU_SQLOMETRIC); }
    static constexpr double sqcm_to_sqmm(double value) { return Convert(value, AU_SQCM, AU_SQMM); }
    static constexpr double sqcm_to_sqin(double value) { return Convert(value, AU_SQCM, AU_SQIN); }
    static constexpr double sqcm_to_sqft(double value) { return Convert(value, AU_SQCM, AU_SQFT); }
    static constexpr double sqcm_to_sqm(double value) { return Convert(value, AU_SQCM, AU_SQM); }
    static constexpr double sqin_to_sqhimetric(double value) { return Convert(value, AU_SQIN, AU_SQHIMETRIC); }
    static constexpr double sqin_to_sqlometric(double value) { return Convert(value, AU_SQIN, AU_SQLOMETRIC); }
    static constexpr double sqin_to_sqmm(double value) { return Convert(value, AU_SQIN, AU_SQMM); }
    static constexpr double sqin_to_sqcm(double value) { return Convert(value, AU_SQIN, AU_SQCM); }
    static constexpr double sqin_to_sqft(double value) { return Convert(value, AU_SQIN, AU_SQFT); }
    static constexpr double sqin_to_sqm(double value) { return Convert(value, AU_SQIN, AU_SQM); }
    static constexpr double sqft_to_sqhimetric(double value) { return Convert(value, AU_SQFT, AU_SQHIMETRIC); }
    static constexpr double sqft_to_sqlometric(double value) { return Convert(value, AU_SQFT, AU_SQLOMETRIC); }
    static constexpr double sqft_to_sqmm(double value) { return Convert(value, AU_SQFT, AU_SQMM); }
    static constexpr double sqft_to_sqcm(double value) { return Convert(value, AU_SQFT, AU_SQCM); }
    static constexpr double sqft_to_sqin(double value) { return Convert(value, AU_SQFT, AU_SQIN); }
    static constexpr double sqft_to_sqm(double value) { return Convert(value, AU_SQFT, AU_SQM); }
    static constexpr double sqm_to_sqhimetric(double value) { return Convert(value, AU_SQM, AU_SQHIMETRIC); }
    static constexpr double sqm_to_sqlometric(double value) { return Convert(value, AU_SQM, AU_SQLOMETRIC); }
    static constexpr double sqm_to_sqmm(double value) { return Convert(value, AU_SQM, AU_SQMM); }
    static constexpr double sqm_to_sqcm(double value) { return Convert(value, AU_SQM, AU_SQCM); }
    static constexpr double sqm_to_sqin(double value) { return Convert(value, AU_SQM, AU_SQIN); }
    static constexpr double sqm_to_sqft(double value) { return Convert(value, AU_SQM, AU_SQFT); }
    // clang-format on

    // "sqmm", "sqcm", "sqin", "sqft", "sqm", and empty for the other units.
    static CString AreaUnitSuffix(AREAUNITS unit = AU_DEFAULT);

    // A number, optionally followed by a unit word; a number alone is taken in `unit`. On
    // success the area is set; otherwise it is left as it was.
    PARSERESULT Parse(const CString& text, AREAUNITS unit = AU_DEFAULT);
    // Two decimals ("%.2f"), then, if asked, a space and the unit word.
    CString Format(AREAUNITS unit = AU_DEFAULT, bool showUnit = false) const;

    static bool LimitDoubleAlways(QArea& area, const CString& where);

private:
    static inline AREAUNITS c_defunits = AU_SQM;
};

inline constexpr QArea QArea::Zero{};

// 8 bytes of double.
CArchive& operator<<(CArchive& archive, const QArea& area);
CArchive& operator>>(CArchive& archive, QArea& area);

} // namespace keel
