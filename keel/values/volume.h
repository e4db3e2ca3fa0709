#pragma once

#include "keel/values/length.h"

namespace keel {

// A volume; raw unit the cubic metre.
class QVolume : public TMeasured<QVolume> {
public:
    enum VOLUMEUNITS : int {
        VU_DEFAULT = -1,
        VU_RAW = 0,
        VU_CBHIMETRIC = 1,
        VU_CBLOMETRIC = 2,
        VU_CBMM = 3,
        VU_CBCM = 4,
        VU_CBIN = 5,
        VU_CBFT = 6,
        VU_CBM = 7,
    };

    static constexpr double Eps = 1e-06;
    static const QVolume Zero;

    constexpr QVolume() = default;
    explicit QVolume(double value, VOLUMEUNITS unit = VU_DEFAULT)
        : TMeasured(double_to_raw(value, unit)) {}

    double AsDouble(VOLUMEUNITS unit = VU_DEFAULT) const { return raw_to_double(GetRaw(), unit); }

    // A unit of -1 (VU_DEFAULT) is an invalid argument here.
    static constexpr double Factor(VOLUMEUNITS unit) {
        constexpr double factors[] = {1,
                                      1.0000000000000003e-15,
                                      1e-12,
                                      1e-9,
                                      1.0000000000000002e-6,
                                      1.6387064e-5,
                                      0.028316846592000004,
                                      1};
        if (unit < VU_RAW || unit > VU_CBM)
            ThrowInvalidArgument("volume unit " + std::to_string(unit));
        return factors[unit];
    }
    static VOLUMEUNITS DefaultUnits() { return c_defunits; }
    static void SetDefaultUnits(VOLUMEUNITS unit);
    // Cubic millimetres, centimetres and metres.
    static bool DefaultUnitsAreMetric();
    static VOLUMEUNITS Resolve(VOLUMEUNITS unit) { return unit == VU_DEFAULT ? c_defunits : unit; }

    static double double_to_raw(double value, VOLUMEUNITS unit) {
        return value * Factor(Resolve(unit));
    }
    static double double_to_raw(double value) { return double_to_raw(value, VU_DEFAULT); }
    static double raw_to_double(double raw, VOLUMEUNITS unit) {
        return raw / Factor(Resolve(unit));
    }
    static double raw_to_double(double raw) { return raw_to_double(raw, VU_DEFAULT); }
    static constexpr double Convert(double value, VOLUMEUNITS from, VOLUMEUNITS to) {
        return value * Factor(from) / Factor(to);
    }

    // clang-format off
    static constexpr double cbhimetric_to_cblometric(double value) { return Convert(value, VU_CBHIMETRIC, VU_CBLOMETRIC); }
    static constexpr double cbhimetric_to_cbmm(double value) { return Convert(value, VU_CBHIMETRIC, VU_CBMM); }
    static constexpr double cbhimetric_to_cbcm(double value) { return Convert(value, VU_CBHIMETRIC, VU_CBCM); }
    static constexpr double cbhimetric_to_cbin(double value) { return Convert(value, VU_CBHIMETRIC, VU_CBIN); }
    static constexpr double cbhimetric_to_cbft(double value) { return Convert(value, VU_CBHIMETRIC, VU_CBFT); }
    static constexpr double cbhimetric_to_cbm(double value) { return Convert(value, VU_CBHIMETRIC, VU_CBM); }
    static constexpr double cblometric_to_cbhimetric(double value) { return Convert(value, VU_CBLOMETRIC, VU_CBHIMETRIC); }
    static constexpr double cblometric_to_cbmm(double value) { return Convert(value, VU_CBLOMETRIC, VU_CBMM); }
    static constexpr double cblometric_to_cbcm(double value) { return Convert(value, VU_CBLOMETRIC, VU_CBCM); }
    static constexpr double cblometric_to_cbin(double value) { return Convert(value, VU_CBLOMETRIC, VU_CBIN); }
    static constexpr double cblometric_to_cbft(double value) { return Convert(value, VU_CBLOMETRIC, VU_CBFT); }
    static constexpr double cblometric_to_cbm(double value) { return Convert(value, VU_CBLOMETRIC, VU_CBM); }
    static constexpr double cbmm_to_cbhimetric(double value) { return Convert(value, VU_CBMM, VU_CBHIMETRIC); }
    static constexpr double cbmm_to_cblometric(double value) { return Convert(value, VU_CBMM, VU_CBLOMETRIC); }
    static constexpr double cbmm_to_cbcm(double value) { return Convert(value, VU_CBMM, VU_CBCM); }
    static constexpr double cbmm_to_cbin(double value) { return Convert(value, VU_CBMM, VU_CBIN); }
    static constexpr double cbmm_to_cbft(double value) { return Convert(value, VU_CBMM, VU_CBFT); }
    static constexpr double cbmm_to_cbm(double value) { return Convert(value, VU_CBMM, VU_CBM); }
    static constexpr double cbcm_to_cbhimetric(double value) { return Convert(value, VU_CBCM, VU_CBHIMETRIC); }
    static constexpr double cbcm_to_cblometric(double value) { return Convert(value, VU_CBCM, VU_CBLOMETRIC); }
    static constexpr double cbcm_to_cbmm(double value) { return Convert(value, VU_CBCM, VU_CBMM); }
    static constexpr double cbcm_to_cbin(double value) { return Convert(value, VU_CBCM, VU_CBIN); }
    static constexpr double cbcm_to_cbft(double value) { return Convert(value, VU_CBCM, VU_CBFT); }
    static constexpr double cbcm_to_cbm(double value) { return Convert(value, VU_CBCM, VU_CBM); }
    static constexpr double cbin_to_cbhimetric(double value) { return Convert(value, VU_CBIN, VU_CBHIMETRIC); }
    static constexpr double cbin_to_cblometric(double value) { return Convert(value, VU_CBIN, VU_CBLOMETRIC); }
    static constexpr double cbin_to_cbmm(double value) { return Convert(value, VU_CBIN, VU_CBMM); }
    static constexpr double cbin_to_cbcm(double value) { return Convert(value, VU_CBIN, VU_CBCM); }
    static constexpr double cbin_to_cbft(double value) { return Convert(value, VU_CBIN, VU_CBFT); }
    static constexpr double cbin_to_cbm(double value) { return Convert(value, VU_CBIN, VU_CBM); }
    static constexpr double cbft_to_cbhimetric(double value) { return Convert(value, VU_CBFT, VU_CBHIMETRIC); }
    static constexpr double cbft_to_cblometric(double value) { return Convert(value, VU_CBFT, VU_CBLOMETRIC); }
    static constexpr double cbft_to_cbmm(double value) { return Convert(value, VU_CBFT, VU_CBMM); }
    static constexpr double cbft_to_cbcm(double value) { return Convert(value, VU_CBFT, VU_CBCM); }
    static constexpr double cbft_to_cbin(double value) { return Convert(value, VU_CBFT, VU_CBIN); }
    static constexpr double cbft_to_cbm(double value) { return Convert(value, VU_CBFT, VU_CBM); }
    static constexpr double cbm_to_cbhimetric(double value) { return Convert(value, VU_CBM, VU_CBHIMETRIC); }
    static constexpr double cbm_to_cblometric(double value) { return Convert(value, VU_CBM, VU_CBLOMETRIC); }
    static constexpr double cbm_to_cbmm(double value) { return Convert(value, VU_CBM, VU_CBMM); }
    static constexpr double cbm_to_cbcm(double value) { return Convert(value, VU_CBM, VU_CBCM); }
    static constexpr double cbm_to_cbin(double value) { return Convert(value, VU_CBM, VU_CBIN); }
    static constexpr double cbm_to_cbft(double value) { return Convert(value, VU_CBM, VU_CBFT); }
    // clang-format on

    // "cbmm", "cbcm", "cbin", "cbft", "cbm", and empty for the other units.
    static CString VolumeUnitSuffix(VOLUMEUNITS unit = VU_DEFAULT);

    // A number, optionally followed by a unit word; a number alone is taken in `unit`. On
    // success the volume is set; otherwise it is left as it was.
    PARSERESULT Parse(const CString& text, VOLUMEUNITS unit = VU_DEFAULT);
    // Two decimals ("%.2f"), then, if asked, a space and the unit word.
    CString Format(VOLUMEUNITS unit = VU_DEFAULT, bool showUnit = false) const;

    static bool LimitDoubleAlways(QVolume& volume, const CString& where);

private:
    static inline VOLUMEUNITS c_defunits = VU_CBM;
};

inline constexpr QVolume QVolume::Zero{};

// 8 bytes of double.
CArchive& operator<<(CArchive& archive, const QVolume& volume);
CArchive& operator>>(CArchive& archive, QVolume& volume);

} // namespace keel
