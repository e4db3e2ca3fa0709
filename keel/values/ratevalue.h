#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"

namespace keel {

// A unit over a unit: dollars per foot, square metres per hour. The two halves are whole values
// and all arithmetic on them is the values' own, so the units of the result follow from the
// units of the halves. A rate is kept as it is; only a value built from it is reduced to the
// plain quotient where the halves can be divided (QAnyValue::CanDiv).
class QRateValue {
public:
    // Both halves empty.
    QRateValue() = default;
    // The number over the whole number 1.
    QRateValue(int value);
    QRateValue(double value);
    explicit QRateValue(const QAnyValue& numerator);
    QRateValue(const QAnyValue& numerator, const QAnyValue& denominator);

    QRateValue& operator=(int value);
    QRateValue& operator=(double value);

    const QAnyValue& Num() const { return m_num; }
    QAnyValue& Num() { return m_num; }
    const QAnyValue& Den() const { return m_den; }
    QAnyValue& Den() { return m_den; }

    // Cross-multiplied: a/b + c/d is (a*d + c*b) / (b*d).
    QRateValue& operator+=(const QRateValue& other);
    QRateValue& operator-=(const QRateValue& other);
    // Numerators and denominators multiply separately.
    QRateValue& operator*=(const QRateValue& other);
    // By the reciprocal.
    QRateValue& operator/=(const QRateValue& other);
    // The numerator alone changes.
    QRateValue& operator*=(int factor);
    QRateValue& operator*=(double factor);
    QRateValue& operator/=(int divisor);
    QRateValue& operator/=(double divisor);

    friend QRateValue operator+(QRateValue a, const QRateValue& b) { return a += b; }
    friend QRateValue operator-(QRateValue a, const QRateValue& b) { return a -= b; }
    friend QRateValue operator*(QRateValue a, const QRateValue& b) { return a *= b; }
    friend QRateValue operator/(QRateValue a, const QRateValue& b) { return a /= b; }
    friend QRateValue operator*(QRateValue a, int factor) { return a *= factor; }
    friend QRateValue operator*(QRateValue a, double factor) { return a *= factor; }
    friend QRateValue operator/(QRateValue a, int divisor) { return a /= divisor; }
    friend QRateValue operator/(QRateValue a, double divisor) { return a /= divisor; }
    QRateValue operator-() const;
    QRateValue operator+() const { return *this; }
    // Whether the rate is zero: its numerator is.
    bool operator!() const { return IsZero(); }
    bool IsZero() const { return m_num.IsZero(); }

    // The halves exchanged.
    QRateValue Reciprocal() const;

    // Negative, 0 or positive by the quotients as numbers in the default units.
    int Compare(const QRateValue& other) const;
    friend bool operator==(const QRateValue& a, const QRateValue& b) { return a.Compare(b) == 0; }
    friend bool operator!=(const QRateValue& a, const QRateValue& b) { return a.Compare(b) != 0; }
    friend bool operator<(const QRateValue& a, const QRateValue& b) { return a.Compare(b) < 0; }
    friend bool operator<=(const QRateValue& a, const QRateValue& b) { return a.Compare(b) <= 0; }
    friend bool operator>(const QRateValue& a, const QRateValue& b) { return a.Compare(b) > 0; }
    friend bool operator>=(const QRateValue& a, const QRateValue& b) { return a.Compare(b) >= 0; }

    unsigned HashKey() const { return m_num.HashKey() ^ m_den.HashKey(); }

    // "amount / unit": the text is split at "/", skipping a first stroke that belongs to a
    // fraction of a length ("1 1/2' / 3 s"). Each side is read as a value; a bare unit word on
    // the right ("sec", "hr", "ft", "sqm", "cbft", ...) means one of that unit. A side that is no
    // value of any type makes the whole text no rate.
    PARSERESULT Parse(const CString& text);
    // The numerator's text, "/", the denominator's text; a denominator of one of a unit shows as
    // the unit's word, and a zero amount of money as "$0.00".
    CString Format() const;

    // Both halves as whole values.
    void Serialize(CArchive& archive);

    // The unit words of a denominator and the value of one of each.
    static bool UnitWordValue(const CString& word, QAnyValue& one);
    static CString UnitWordOf(const QAnyValue& denominator);

private:
    QAnyValue m_num;
    QAnyValue m_den;
};

// The quotient as a number, each half in its default unit; 0 for a zero denominator.
double Double(const QRateValue& rate);

CArchive& operator<<(CArchive& archive, const QRateValue& rate);
CArchive& operator>>(CArchive& archive, QRateValue& rate);

} // namespace keel
