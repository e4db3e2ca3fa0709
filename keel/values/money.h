#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/cstring.h"
#include "keel/values/length.h"
#include "keel/values/wholeraw.h"

#include <compare>
#include <cstdint>

namespace keel {

// An amount of money; raw unit the cent, held in 32 bits. Results that leave the 32-bit range
// saturate at its ends instead of wrapping.
class QMoney : public TWholeRaw<QMoney> {
public:
    enum MONEYUNITS : int {
        MU_DEFAULT = -1,
        MU_RAW = 0,
        MU_CENTS = 1,
        MU_DOLLARS = 2,
    };

    static const QMoney Zero;

    constexpr QMoney() = default;
    explicit QMoney(double value, MONEYUNITS unit = MU_DEFAULT)
        : TWholeRaw(double_to_raw(value, unit)) {}

    double AsDouble(MONEYUNITS unit = MU_DEFAULT) const { return raw_to_double(GetRaw(), unit); }

    static MONEYUNITS DefaultUnits() { return c_defunits; }
    // Only 0, 1 and 2 can be the default; anything else is an invalid argument.
    static void SetDefaultUnits(MONEYUNITS unit);
    static MONEYUNITS Resolve(MONEYUNITS unit) { return unit == MU_DEFAULT ? c_defunits : unit; }

    // Raw and cents: the floor of the value plus 0.5. Dollars: dollar_to_raw. Any other unit
    // truncates.
    static std::int32_t double_to_raw(double value, MONEYUNITS unit);
    static std::int32_t double_to_raw(double value) { return double_to_raw(value, MU_DEFAULT); }
    // The floor of the value times 100 plus 0.5: 0.005 is 1 cent, -0.005 is 0 cents.
    static std::int32_t dollar_to_raw(double dollars);
    // Dollars divide by 100; every other unit is the raw number itself.
    static double raw_to_double(std::int32_t raw, MONEYUNITS unit);
    static double raw_to_double(std::int32_t raw) { return raw_to_double(raw, MU_DEFAULT); }

    // The currency symbol, thousands separator and decimal point of the user's locale, read on
    // first use. A locale without a currency (the "C" and POSIX locales) gives "$", "," and ".".
    struct LocaleSymbols {
        CString symbol;
        CString thousands;
        CString decimal;
    };
    static LocaleSymbols GetLocaleSymbols();
    // Fixes the symbols for the process, whatever the locale says.
    static void SetLocaleSymbols(const CString& symbol, const CString& thousands,
                                 const CString& decimal);
    // Forgets fixed or read symbols: the next use reads the locale of the environment again.
    static void ResetLocaleSymbols();

    // Trims the text, removes the currency symbol and the thousands separators, takes the
    // locale's decimal point as '.', and reads " %f %1s" as dollars: a further non-blank
    // character fails. The number is read as a double, so cents survive in large amounts. On
    // success the amount is set and PARSE_EXACT returned; otherwise it is left as it was.
    PARSERESULT Parse(const CString& text);
    // The sign, the currency symbol, the dollars grouped by threes with the thousands separator,
    // the decimal point and two digits of cents: "$1,234.50", "-$0.05". Parse reads it back.
    CString Format() const;

private:
    static inline MONEYUNITS c_defunits = MU_DOLLARS;
};

inline constexpr QMoney QMoney::Zero{};

} // namespace keel
