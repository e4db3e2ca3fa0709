#include "keel/values/ratevalue.h"

#include <algorithm>
#include <cmath>

namespace keel {

namespace {

struct UnitWord {
    const char16_t* word;
    QAnyValue (*one)();
};

// The words a denominator may be written as, each meaning one of its unit.
const UnitWord kUnitWords[] = {
    {u"mm", [] { return QAnyValue(QLength(1, QLength::LU_MM)); }},
    {u"cm", [] { return QAnyValue(QLength(1, QLength::LU_CM)); }},
    {u"m", [] { return QAnyValue(QLength(1, QLength::LU_METRE)); }},
    {u"in", [] { return QAnyValue(QLength(1, QLength::LU_INCH)); }},
    {u"ft", [] { return QAnyValue(QLength(1, QLength::LU_FOOT)); }},
    {u"sqmm", [] { return QAnyValue(QArea(1, QArea::AU_SQMM)); }},
    {u"sqcm", [] { return QAnyValue(QArea(1, QArea::AU_SQCM)); }},
    {u"sqin", [] { return QAnyValue(QArea(1, QArea::AU_SQIN)); }},
    {u"sqft", [] { return QAnyValue(QArea(1, QArea::AU_SQFT)); }},
    {u"sqm", [] { return QAnyValue(QArea(1, QArea::AU_SQM)); }},
    {u"cbmm", [] { return QAnyValue(QVolume(1, QVolume::VU_CBMM)); }},
    {u"cbcm", [] { return QAnyValue(QVolume(1, QVolume::VU_CBCM)); }},
    {u"cbin", [] { return QAnyValue(QVolume(1, QVolume::VU_CBIN)); }},
    {u"cbft", [] { return QAnyValue(QVolume(1, QVolume::VU_CBFT)); }},
    {u"cbm", [] { return QAnyValue(QVolume(1, QVolume::VU_CBM)); }},
    {u"sec", [] { return QAnyValue(QTime(1, QTime::TU_SECONDS)); }},
    {u"min", [] { return QAnyValue(QTime(1, QTime::TU_MINUTES)); }},
    {u"hr", [] { return QAnyValue(QTime(1, QTime::TU_HOURS)); }},
};

// Where the amount ends: at the first stroke, unless that stroke belongs to a fraction of a
// length ahead of a second stroke.
int SplitPosition(const CString& text) {
    const int first = text.Find(u'/');
    if (first < 0)
        return -1;
    const int second = text.Find(u'/', first + 1);
    if (second < 0)
        return first;
    QLength probe;
    return probe.Parse(text.Left(second)) != PARSE_NONE ? second : first;
}

// Whether `value` is `one` of the same unit. The units' own tolerances are too coarse for the
// small units (a square millimetre is within an area's tolerance of a square centimetre), so
// the numbers must agree to within rounding.
bool IsOneOf(const QAnyValue& value, const QAnyValue& one) {
    if (value.Type() != one.Type())
        return false;
    QAnyValue mine = value;
    QAnyValue unit = one;
    const double expected = unit.MakeDouble();
    return std::fabs(mine.MakeDouble() - expected) <= 1e-9 * std::fabs(expected);
}

// A side of a rate: any value but a plain string.
PARSERESULT ParseSide(QAnyValue& side, const CString& text) {
    const PARSERESULT result = side.Parse(text);
    return side.IsString() ? PARSE_NONE : result;
}

} // namespace

QRateValue::QRateValue(int value) : m_num(value), m_den(1) {}

QRateValue::QRateValue(double value) : m_num(value), m_den(1) {}

QRateValue::QRateValue(const QAnyValue& numerator) : m_num(numerator), m_den(1) {}

QRateValue::QRateValue(const QAnyValue& numerator, const QAnyValue& denominator)
    : m_num(numerator), m_den(denominator) {}

QRateValue& QRateValue::operator=(int value) {
    return *this = QRateValue(value);
}

QRateValue& QRateValue::operator=(double value) {
    return *this = QRateValue(value);
}

QRateValue& QRateValue::operator+=(const QRateValue& other) {
    QAnyValue crossed = other.m_num * m_den;
    m_num *= other.m_den;
    m_num += crossed;
    m_den *= other.m_den;
    return *this;
}

QRateValue& QRateValue::operator-=(const QRateValue& other) {
    QAnyValue crossed = other.m_num * m_den;
    m_num *= other.m_den;
    m_num -= crossed;
    m_den *= other.m_den;
    return *this;
}

QRateValue& QRateValue::operator*=(const QRateValue& other) {
    m_num *= other.m_num;
    m_den *= other.m_den;
    return *this;
}

QRateValue& QRateValue::operator/=(const QRateValue& other) {
    return *this *= other.Reciprocal();
}

QRateValue& QRateValue::operator*=(int factor) {
    m_num *= QAnyValue(factor);
    return *this;
}

QRateValue& QRateValue::operator*=(double factor) {
    m_num *= QAnyValue(factor);
    return *this;
}

QRateValue& QRateValue::operator/=(int divisor) {
    m_num /= QAnyValue(divisor);
    return *this;
}

QRateValue& QRateValue::operator/=(double divisor) {
    m_num /= QAnyValue(divisor);
    return *this;
}

QRateValue QRateValue::operator-() const {
    return QRateValue(m_num.NEG(), m_den);
}

QRateValue QRateValue::Reciprocal() const {
    return QRateValue(m_den, m_num);
}

int QRateValue::Compare(const QRateValue& other) const {
    const double mine = Double(*this);
    const double theirs = Double(other);
    if (mine < theirs)
        return -1;
    return mine > theirs ? 1 : 0;
}

double Double(const QRateValue& rate) {
    QAnyValue denominator = rate.Den();
    const double below = denominator.MakeDouble();
    if (below == 0)
        return 0;
    QAnyValue numerator = rate.Num();
    return numerator.MakeDouble() / below;
}

bool QRateValue::UnitWordValue(const CString& word, QAnyValue& one) {
    CString trimmed = word;
    trimmed.Trim();
    for (const UnitWord& unit : kUnitWords) {
        if (trimmed.CompareNoCase(unit.word) == 0) {
            one = unit.one();
            return true;
        }
    }
    return false;
}

CString QRateValue::UnitWordOf(const QAnyValue& denominator) {
    for (const UnitWord& unit : kUnitWords)
        if (IsOneOf(denominator, unit.one()))
            return unit.word;
    return CString();
}

PARSERESULT QRateValue::Parse(const CString& text) {
    const int split = SplitPosition(text);
    if (split < 0)
        return PARSE_NONE;
    QAnyValue numerator;
    const PARSERESULT numeratorFit = ParseSide(numerator, text.Left(split));
    if (numeratorFit == PARSE_NONE)
        return PARSE_NONE;
    QAnyValue denominator;
    PARSERESULT denominatorFit = PARSE_EXACT;
    if (!UnitWordValue(text.Mid(split + 1), denominator))
        denominatorFit = ParseSide(denominator, text.Mid(split + 1));
    if (denominatorFit == PARSE_NONE)
        return PARSE_NONE;
    m_num = std::move(numerator);
    m_den = std::move(denominator);
    return std::min(numeratorFit, denominatorFit);
}

CString QRateValue::Format() const {
    const CString amount = m_num.IsMoney() && m_num.IsZero() ? CString(u"$0.00") : m_num.Format();
    const CString word = UnitWordOf(m_den);
    return amount + u"/" + (word.IsEmpty() ? m_den.Format() : word);
}

void QRateValue::Serialize(CArchive& archive) {
    if (archive.IsStoring())
        archive << *this;
    else
        archive >> *this;
}

CArchive& operator<<(CArchive& archive, const QRateValue& rate) {
    return archive << rate.Num() << rate.Den();
}

CArchive& operator>>(CArchive& archive, QRateValue& rate) {
    return archive >> rate.Num() >> rate.Den();
}

} // namespace keel
