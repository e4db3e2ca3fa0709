#include "keel/values/anyvalue.h"
#include "keel/values/formulahook.h"
#include "keel/values/ratevalue.h"

#include <cmath>
#include <mutex>
#include <string>

namespace keel {

namespace {

std::mutex g_yesNoLock;
CString g_yesString(u"Yes");
CString g_noString(u"No");

// A formula whose result is a string that is run again in turn; a chain this deep is a loop.
constexpr int kMaxFormulaDepth = 64;
thread_local int t_formulaDepth = 0;

class FormulaDepthGuard {
public:
    FormulaDepthGuard() { ++t_formulaDepth; }
    ~FormulaDepthGuard() { --t_formulaDepth; }
    FormulaDepthGuard(const FormulaDepthGuard&) = delete;
    FormulaDepthGuard& operator=(const FormulaDepthGuard&) = delete;

    bool TooDeep() const { return t_formulaDepth > kMaxFormulaDepth; }
};

CString NumberText(double number) {
    CString text = CString::Formatted(u"%f", number);
    return StripRedundantDecimalPlaces(text);
}

// A leading word made of the letters of `letters`: exact when nothing follows it.
PARSERESULT ScanWordOfLetters(const std::string& text, bool yes) {
    char word[8] = {};
    char extra[2] = {};
    const int got = yes ? quantity_text::Scan(text, " %6[YESyes] %1s", word, extra)
                        : quantity_text::Scan(text, " %4[NOno] %1s", word, extra);
    if (got == 1)
        return PARSE_EXACT;
    return got == 2 ? PARSE_DEFAULTED : PARSE_NONE;
}

// "rgb(r,g,b)" in any case and spacing, or a whole number that is the colour itself.
bool ParseColor(std::uint32_t& color, const CString& text) {
    CString lowered = text;
    lowered.MakeLower();
    int red = 0;
    int green = 0;
    int blue = 0;
    char extra[2] = {};
    const std::string utf8 = quantity_text::TrimmedUtf8(lowered);
    if (quantity_text::Scan(utf8, "rgb ( %d , %d , %d ) %1s", &red, &green, &blue, extra) == 3) {
        const auto inRange = [](int part) { return part >= 0 && part <= 255; };
        if (!inRange(red) || !inRange(green) || !inRange(blue))
            return false;
        color = static_cast<std::uint32_t>(red | (green << 8) | (blue << 16));
        return true;
    }
    int whole = 0;
    if (!QAnyValue::ParseInt(whole, text))
        return false;
    color = static_cast<std::uint32_t>(whole);
    return true;
}

} // namespace

// --- Yes and No --------------------------------------------------------------------------------

CString QAnyValue::GetYesString() {
    const std::lock_guard lock(g_yesNoLock);
    return g_yesString;
}

CString QAnyValue::GetNoString() {
    const std::lock_guard lock(g_yesNoLock);
    return g_noString;
}

void QAnyValue::SetYesNoStrings(const CString& yes, const CString& no) {
    const std::lock_guard lock(g_yesNoLock);
    g_yesString = yes;
    g_noString = no;
}

CString QAnyValue::ToRGBString(std::uint32_t color) {
    return CString::Formatted(u"rgb(%u,%u,%u)", color & 0xFF, (color >> 8) & 0xFF,
                              (color >> 16) & 0xFF);
}

// --- ChangeType --------------------------------------------------------------------------------

void QAnyValue::ChangeType(TYPE type) {
    if (type == m_type)
        return;
    switch (m_type) {
    case TYPE_NA:
        ChangeTypeFromNA(type);
        break;
    case TYPE_ERROR:
        ChangeTypeFromError(type);
        break;
    case TYPE_STRING:
        ChangeTypeFromString(type, false);
        break;
    case TYPE_BOOL:
        ChangeTypeFromBool(type);
        break;
    case TYPE_INT:
        ChangeTypeFromInt(type);
        break;
    case TYPE_DOUBLE:
        ChangeTypeFromDouble(type);
        break;
    case TYPE_MONEY:
        ChangeTypeFromMoney(type);
        break;
    case TYPE_TIME:
        ChangeTypeFromTime(type);
        break;
    case TYPE_LENGTH:
        ChangeTypeFromLength(type);
        break;
    case TYPE_AREA:
        ChangeTypeFromArea(type);
        break;
    case TYPE_ANGLE:
        ChangeTypeFromAngle(type);
        break;
    case TYPE_ARRAY:
        ChangeTypeFromArray(type);
        break;
    case TYPE_LOOKUPTABLE:
        ChangeTypeFromLookup(type);
        break;
    case TYPE_DATETIME:
        ChangeTypeFromDateTime(type);
        break;
    case TYPE_VOLUME:
        ChangeTypeFromVolume(type);
        break;
    case TYPE_RATE:
        ChangeTypeFromRate(type);
        break;
    case TYPE_COLOR:
        ChangeTypeFromColor(type);
        break;
    default:
        SetType(type);
        break;
    }
}

void QAnyValue::ChangeTypeFromNA(TYPE type) {
    if (type == TYPE_ARRAY)
        ChangeToArrayOfSelf();
    else if (type == TYPE_ERROR)
        MakeError(CString());
}

void QAnyValue::ChangeTypeFromError(TYPE type) {
    if (type == TYPE_ARRAY)
        ChangeToArrayOfSelf();
}

void QAnyValue::ChangeToArrayOfSelf() {
    QArray<QAnyValue> elements;
    elements.Add(std::move(*this));
    *this = QAnyValue(elements);
}

void QAnyValue::ChangeToRateOfSelf() {
    const QAnyValue numerator = IsBool() ? QAnyValue(m_scalar.m_bool ? 1 : 0) : *this;
    const QRateValue rate(numerator);
    Destroy();
    m_type = TYPE_RATE;
    m_scalar.m_pRate = new QRateValue(rate);
}

void QAnyValue::ChangeTypeFromNumber(TYPE type, double number, const CString& text, bool isZero) {
    switch (type) {
    case TYPE_STRING:
        *this = QAnyValue(text);
        break;
    case TYPE_BOOL:
        SetBool(!isZero);
        break;
    case TYPE_INT:
        SetInt(TruncateToInt32(number));
        break;
    case TYPE_DOUBLE:
        SetDouble(number);
        break;
    case TYPE_MONEY:
        *this = QAnyValue(QMoney::FromRaw(QMoney::double_to_raw(number)));
        break;
    case TYPE_TIME:
        *this = QAnyValue(QTime::FromRaw(QTime::double_to_raw(number)));
        break;
    case TYPE_LENGTH:
        *this = QAnyValue(QLength(number));
        break;
    case TYPE_AREA:
        *this = QAnyValue(QArea(number));
        break;
    case TYPE_VOLUME:
        *this = QAnyValue(QVolume(number));
        break;
    case TYPE_ANGLE:
        *this = QAnyValue(QAngle(number));
        break;
    case TYPE_DATETIME:
        *this = QAnyValue(QDateTime(number));
        break;
    case TYPE_RATE:
        ChangeToRateOfSelf();
        break;
    case TYPE_COLOR:
        SetColor(static_cast<std::uint32_t>(TruncateToInt32(number)));
        break;
    case TYPE_ARRAY:
        ChangeToArrayOfSelf();
        break;
    case TYPE_ERROR:
        MakeError(CString());
        break;
    default:
        SetType(type);
        break;
    }
}

void QAnyValue::ChangeTypeFromBool(TYPE type) {
    const bool value = m_scalar.m_bool;
    ChangeTypeFromNumber(type, value ? 1 : 0, value ? GetYesString() : GetNoString(), !value);
}

void QAnyValue::ChangeTypeFromInt(TYPE type) {
    const int value = m_scalar.m_int;
    if (type == TYPE_COLOR) {
        SetColor(static_cast<std::uint32_t>(value));
        return;
    }
    ChangeTypeFromNumber(type, value,
                         type == TYPE_STRING ? CString::Formatted(u"%d", value) : CString(),
                         value == 0);
}

void QAnyValue::ChangeTypeFromDouble(TYPE type) {
    const double value = m_scalar.m_double;
    ChangeTypeFromNumber(type, value, type == TYPE_STRING ? NumberText(value) : CString(),
                         value == 0);
}

void QAnyValue::ChangeTypeFromMoney(TYPE type) {
    ChangeTypeFromQuantity(type, QMoney(m_object.m_money));
}

void QAnyValue::ChangeTypeFromTime(TYPE type) {
    ChangeTypeFromQuantity(type, QTime(m_object.m_time));
}

void QAnyValue::ChangeTypeFromLength(TYPE type) {
    ChangeTypeFromQuantity(type, QLength(m_object.m_length));
}

void QAnyValue::ChangeTypeFromArea(TYPE type) {
    ChangeTypeFromQuantity(type, QArea(m_object.m_area));
}

void QAnyValue::ChangeTypeFromVolume(TYPE type) {
    ChangeTypeFromQuantity(type, QVolume(m_object.m_volume));
}

void QAnyValue::ChangeTypeFromAngle(TYPE type) {
    ChangeTypeFromQuantity(type, QAngle(m_object.m_angle));
}

void QAnyValue::ChangeTypeFromDateTime(TYPE type) {
    const QDateTime date = m_object.m_date;
    const double days = date.GetOleDate();
    ChangeTypeFromNumber(type, days, type == TYPE_STRING ? date.Format() : CString(), days == 0);
}

void QAnyValue::ChangeTypeFromColor(TYPE type) {
    const std::uint32_t color = m_scalar.m_color;
    if (type == TYPE_INT) {
        SetInt(static_cast<std::int32_t>(color));
        return;
    }
    ChangeTypeFromNumber(type, color, type == TYPE_STRING ? ToRGBString(color) : CString(),
                         color == 0);
}

void QAnyValue::ChangeTypeFromRate(TYPE type) {
    const QRateValue& rate = *m_scalar.m_pRate;
    ChangeTypeFromNumber(type, Double(rate), type == TYPE_STRING ? rate.Format() : CString(),
                         rate.IsZero());
}

void QAnyValue::ChangeTypeFromLookup(TYPE type) {
    if (type == TYPE_ARRAY) {
        ChangeToArrayOfSelf();
        return;
    }
    const CString name =
        type == TYPE_STRING && m_object.m_table ? m_object.m_table->Name() : CString();
    SetType(type);
    if (type == TYPE_STRING)
        m_object.m_string = name;
}

void QAnyValue::ChangeTypeFromArray(TYPE type) {
    switch (type) {
    case TYPE_EMPTY:
        MakeEmpty();
        return;
    case TYPE_NA:
        MakeNA();
        return;
    case TYPE_STRING:
        *this = QAnyValue(ArrayText(*m_object.m_pArray));
        return;
    default:
        break;
    }
    if (m_object.m_pArray->IsEmpty())
        ThrowInvalidArgument("QAnyValue::ChangeType: an empty array has no first element");
    QAnyValue first = std::move(m_object.m_pArray->GetAt(0));
    first.ChangeType(type);
    *this = std::move(first);
}

CString QAnyValue::ArrayText(const QArray<QAnyValue>& elements) {
    CString text(u'[');
    for (int i = 0; i < elements.GetCount(); ++i) {
        if (i > 0)
            text += u',';
        if (!elements[i].IsEmpty())
            text += elements[i].AsFormulaText();
    }
    text += u']';
    return text;
}

// --- From a string -----------------------------------------------------------------------------

void QAnyValue::ChangeTypeFromString(TYPE type, bool runAsFormula) {
    const CString text = m_object.m_string;
    if (type == TYPE_ERROR) {
        MakeError(text);
        return;
    }
    if (ChangeTypeFromSpecialWord(text))
        return;
    switch (type) {
    case TYPE_LOOKUPTABLE: {
        CString error;
        const QTableHandlePtr table = OpenTable(text, true, error);
        if (table)
            *this = QAnyValue(table);
        else
            MakeError(u"Error with lookup table named " + text);
        return;
    }
    case TYPE_EMPTY:
        MakeEmpty();
        return;
    case TYPE_NA:
        MakeNA();
        return;
    case TYPE_DATETIME: {
        QDateTime date;
        if (date.Parse(text))
            *this = QAnyValue(date);
        else
            MakeError(u"Invalid DateTime");
        return;
    }
    case TYPE_ARRAY:
        ChangeToArrayOfSelf();
        return;
    default:
        ChangeTypeFromStringText(type, text, runAsFormula);
        return;
    }
}

bool QAnyValue::ChangeTypeFromSpecialWord(const CString& text) {
    if (text.CompareNoCase(u"#ERR!") == 0)
        MakeError(CString());
    else if (text.CompareNoCase(u"#N/A") == 0)
        MakeNA();
    else if (text.CompareNoCase(u"#EMPTY") == 0)
        MakeEmpty();
    else
        return false;
    return true;
}

void QAnyValue::ChangeTypeFromStringText(TYPE type, const CString& text, bool runAsFormula) {
    if (text.IsEmpty()) {
        SetType(type);
        return;
    }
    CString body = text;
    bool asFormula = runAsFormula;
    if (body[0] == u'=') {
        asFormula = true;
        body.Delete(0);
    }
    if (!asFormula) {
        QAnyValue parsed;
        if (parsed.Parse(body, type) != PARSE_NONE) {
            *this = std::move(parsed);
            return;
        }
    }
    RunFormulaForType(type, body);
}

void QAnyValue::RunFormulaForType(TYPE type, const CString& text) {
    const FormulaText formula(text);
    if (formula.IsEmpty()) {
        SetType(type);
        return;
    }
    const FormulaDepthGuard depth;
    if (depth.TooDeep()) {
        MakeError(u"Could not evaluate formula (looping)\n" + text);
        return;
    }
    QAnyValue result;
    if (!EvaluateFormula(formula, nullptr, result)) {
        MakeError(u"Could not evaluate formula\n" + text);
        return;
    }
    if (result.IsString() && result.m_object.m_string == text) {
        MakeError(u"Could not evaluate formula (looping)\n" + text);
        return;
    }
    *this = std::move(result);
    if (!IsErrorOrNA())
        ChangeType(type);
}

// --- Parsing -----------------------------------------------------------------------------------

PARSERESULT QAnyValue::Parse(const CString& text, TYPE type) {
    SetType(type);
    PARSERESULT unitResult = PARSE_NONE;
    if (VisitUnitMember(type, [this, &text, &unitResult](auto member) {
            unitResult = (m_object.*member).Parse(text);
        }))
        return unitResult;
    switch (type) {
    case TYPE_STRING:
        m_object.m_string = text;
        return PARSE_EXACT;
    case TYPE_BOOL:
        return ParseBool(m_scalar.m_bool, text);
    case TYPE_INT:
        return ParseInt(m_scalar.m_int, text) ? PARSE_EXACT : PARSE_NONE;
    case TYPE_DOUBLE:
        return ParseDouble(m_scalar.m_double, text) ? PARSE_EXACT : PARSE_NONE;
    case TYPE_DATETIME:
        return m_object.m_date.Parse(text) ? PARSE_EXACT : PARSE_NONE;
    case TYPE_RATE:
        return m_scalar.m_pRate->Parse(text);
    case TYPE_COLOR:
        return ParseColor(m_scalar.m_color, text) ? PARSE_EXACT : PARSE_NONE;
    default:
        return PARSE_NONE;
    }
}

PARSERESULT QAnyValue::Parse(const CString& text) {
    static constexpr TYPE kOrder[] = {TYPE_BOOL,   TYPE_INT,  TYPE_DOUBLE, TYPE_MONEY, TYPE_TIME,
                                      TYPE_LENGTH, TYPE_AREA, TYPE_VOLUME, TYPE_ANGLE, TYPE_RATE};
    QAnyValue defaulted;
    bool haveDefaulted = false;
    for (const TYPE type : kOrder) {
        QAnyValue candidate;
        const PARSERESULT result = candidate.Parse(text, type);
        if (result == PARSE_EXACT) {
            *this = std::move(candidate);
            return PARSE_EXACT;
        }
        if (result == PARSE_DEFAULTED && !haveDefaulted) {
            defaulted = std::move(candidate);
            haveDefaulted = true;
        }
    }
    if (haveDefaulted) {
        *this = std::move(defaulted);
        return PARSE_DEFAULTED;
    }
    *this = QAnyValue(text);
    return PARSE_EXACT;
}

PARSERESULT QAnyValue::ParseBool(bool& value, const CString& text) {
    CString trimmed = text;
    trimmed.Trim();
    const CString yesWords[] = {GetYesString(), u"Yes", u"y"};
    const CString noWords[] = {GetNoString(), u"No", u"n"};
    for (int i = 0; i < 3; ++i) {
        if (trimmed.CompareNoCase(yesWords[i]) == 0) {
            value = true;
            return PARSE_EXACT;
        }
        if (trimmed.CompareNoCase(noWords[i]) == 0) {
            value = false;
            return PARSE_EXACT;
        }
    }
    const std::string utf8 = trimmed.ToUtf8();
    for (const bool yes : {true, false}) {
        const PARSERESULT result = ScanWordOfLetters(utf8, yes);
        if (result != PARSE_NONE) {
            value = yes;
            return result;
        }
    }
    int whole = 0;
    if (ParseInt(whole, text)) {
        value = whole != 0;
        return PARSE_EXACT;
    }
    return PARSE_NONE;
}

bool QAnyValue::ParseInt(int& value, const CString& text) {
    int scanned = 0;
    char extra[2] = {};
    if (quantity_text::Scan(text.ToUtf8(), " %d %1s", &scanned, extra) != 1)
        return false;
    value = scanned;
    return true;
}

bool QAnyValue::ParseDouble(double& value, const CString& text) {
    double scanned = 0;
    char extra[2] = {};
    if (quantity_text::Scan(text.ToUtf8(), " %lf %1s", &scanned, extra) != 1 ||
        !std::isfinite(scanned))
        return false;
    value = scanned;
    return true;
}

} // namespace keel
