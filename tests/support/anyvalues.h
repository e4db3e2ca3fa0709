#pragma once

#include "keel/values/anyvalue.h"

#include <initializer_list>
#include <string>

namespace keel::test {

// Small builders of variant values for tables of cases.

inline std::string Utf8(const CString& text) {
    return text.ToUtf8();
}

inline std::string MessageOf(const QAnyValue& value) {
    CString message;
    return value.IsErrorAndGetMessage(message) ? message.ToUtf8() : "<no error>";
}

// A value as a failing check shows it: its type and formula text, or its error message.
inline std::string DescribeValue(const QAnyValue& value) {
    CString message;
    if (value.IsErrorAndGetMessage(message))
        return "error \"" + message.ToUtf8() + "\"";
    return value.TypeName().ToUtf8() + " " + value.AsStringOrFormula().ToUtf8();
}

inline QAnyValue Array(std::initializer_list<QAnyValue> elements) {
    return QAnyValue(QArray<QAnyValue>(elements));
}

inline QAnyValue Error(const char* message) {
    QAnyValue value;
    value.MakeError(CString(message));
    return value;
}

inline QAnyValue NA() {
    QAnyValue value;
    value.MakeNA();
    return value;
}

inline QAnyValue Mm(double mm) {
    return QAnyValue(QLength(mm, QLength::LU_MM));
}

inline QAnyValue Feet(double feet) {
    return QAnyValue(QLength(feet, QLength::LU_FOOT));
}

inline QAnyValue SquareMetres(double value) {
    return QAnyValue(QArea(value, QArea::AU_SQM));
}

inline QAnyValue CubicMetres(double value) {
    return QAnyValue(QVolume(value, QVolume::VU_CBM));
}

inline QAnyValue Degrees(double degrees) {
    return QAnyValue(QAngle(degrees, QAngle::ANGU_DEG));
}

inline QAnyValue Color(unsigned long color) {
    return QAnyValue(color);
}

inline QAnyValue Cents(int cents) {
    return QAnyValue(QMoney::FromRaw(cents));
}

inline QAnyValue Seconds(int seconds) {
    return QAnyValue(QTime::FromRaw(seconds));
}

} // namespace keel::test
