#include "keel/values/money.h"

#include <cmath>
#include <langinfo.h>
#include <limits>
#include <locale.h>
#include <mutex>
#include <optional>
#include <string>

namespace keel {

namespace {

std::mutex g_symbolsLock;
std::optional<QMoney::LocaleSymbols> g_symbols;

QMoney::LocaleSymbols NoCurrencySymbols() {
    return {u"$", u",", u"."};
}

// Locale texts are taken as UTF-8, the code set of the locales in use on this platform.
CString LocaleText(nl_item item, locale_t locale) {
    return CString::FromUtf8(nl_langinfo_l(item, locale));
}

// The locale writes where the symbol goes in front of it: '-' before the amount, '+' after it,
// '.' in place of the decimal point. Amounts here always carry it in front.
CString CurrencySymbol(locale_t locale) {
    const char* text = nl_langinfo_l(CRNCYSTR, locale);
    if (*text == '-' || *text == '+' || *text == '.')
        ++text;
    return CString::FromUtf8(text);
}

QMoney::LocaleSymbols ReadUserLocaleSymbols() {
    const locale_t locale = newlocale(LC_ALL_MASK, "", locale_t{});
    if (!locale)
        return NoCurrencySymbols();
    QMoney::LocaleSymbols symbols{CurrencySymbol(locale), LocaleText(MON_THOUSANDS_SEP, locale),
                                  LocaleText(MON_DECIMAL_POINT, locale)};
    freelocale(locale);
    if (symbols.symbol.IsEmpty())
        return NoCurrencySymbols();
    if (symbols.decimal.IsEmpty())
        symbols.decimal = u".";
    return symbols;
}

CString GroupedDigits(std::uint64_t whole, const CString& separator) {
    const std::string digits = std::to_string(whole);
    CString text;
    for (std::size_t at = 0; at < digits.size(); ++at) {
        if (at > 0 && (digits.size() - at) % 3 == 0)
            text += separator;
        text += static_cast<char16_t>(digits[at]);
    }
    return text;
}

} // namespace

void QMoney::SetDefaultUnits(MONEYUNITS unit) {
    if (unit < MU_RAW || unit > MU_DOLLARS)
        ThrowInvalidArgument("money unit " + std::to_string(unit));
    c_defunits = unit;
}

std::int32_t QMoney::double_to_raw(double value, MONEYUNITS unit) {
    switch (Resolve(unit)) {
    case MU_RAW:
    case MU_CENTS:
        return FloorHalfUpToInt32(value);
    case MU_DOLLARS:
        return dollar_to_raw(value);
    default:
        return TruncateToInt32(value);
    }
}

std::int32_t QMoney::dollar_to_raw(double dollars) {
    return FloorHalfUpToInt32(dollars * 100);
}

double QMoney::raw_to_double(std::int32_t raw, MONEYUNITS unit) {
    return Resolve(unit) == MU_DOLLARS ? raw / 100.0 : raw;
}

QMoney::LocaleSymbols QMoney::GetLocaleSymbols() {
    const std::lock_guard lock(g_symbolsLock);
    if (!g_symbols)
        g_symbols = ReadUserLocaleSymbols();
    return *g_symbols;
}

void QMoney::SetLocaleSymbols(const CString& symbol, const CString& thousands,
                              const CString& decimal) {
    const std::lock_guard lock(g_symbolsLock);
    g_symbols = LocaleSymbols{symbol, thousands, decimal};
}

void QMoney::ResetLocaleSymbols() {
    const std::lock_guard lock(g_symbolsLock);
    g_symbols.reset();
}

PARSERESULT QMoney::Parse(const CString& text) {
    const LocaleSymbols symbols = GetLocaleSymbols();
    CString plain = text;
    plain.Trim();
    if (!symbols.symbol.IsEmpty())
        plain.Replace(symbols.symbol, CString());
    if (!symbols.thousands.IsEmpty())
        plain.Replace(symbols.thousands, CString());
    if (!symbols.decimal.IsEmpty() && symbols.decimal != u".")
        plain.Replace(symbols.decimal, u".");
    double dollars = 0;
    char extra[2] = {};
    if (quantity_text::Scan(plain.ToUtf8(), " %lf %1s", &dollars, extra) != 1 ||
        !std::isfinite(dollars))
        return PARSE_NONE;
    SetRaw(dollar_to_raw(dollars));
    return PARSE_EXACT;
}

CString QMoney::Format() const {
    const LocaleSymbols symbols = GetLocaleSymbols();
    const std::int64_t cents = GetRaw();
    const std::uint64_t magnitude = static_cast<std::uint64_t>(cents < 0 ? -cents : cents);
    CString text = cents < 0 ? u"-" : u"";
    text += symbols.symbol;
    text += GroupedDigits(magnitude / 100, symbols.thousands);
    text += symbols.decimal;
    text += CString::Formatted(u"%02d", static_cast<int>(magnitude % 100));
    return text;
}

} // namespace keel
