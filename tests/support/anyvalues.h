#pragma once

#include "keel/values/anyvalue.h"

#include <initializer_list>
#include <string>

namespace keel::test {

// Small builders of variant values for tables of cases.

inline std::string MessageOf(const QAnyValue& value) {
    CString message;
    return value.IsErrorAndGetMessage(message) ? message.ToUtf8() : "<no error>";
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

inline QAnyValue Cents(int cents) {
    return QAnyValue(QMoney::FromRaw(cents));
}

inline QAnyValue Seconds(int seconds) {
    return QAnyValue(QTime::FromRaw(seconds));
}

} // namespace keel::test
