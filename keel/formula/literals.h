#pragma once

#include "keel/values/anyvalue.h"

#include <array>
#include <string_view>
#include <vector>

namespace keel {

// The literals of the formula language that readers of data take without running a formula: the
// double a run of digits makes, and the unit words that may follow a number. The tokeniser and
// the evaluator use these, so a reader that does too gives exactly what a formula gives.

// The double nearest to a run of decimal digits; an infinity when it is too large for one.
double LiteralWholeValue(std::u16string_view digits);
// The whole number with the decimal digits behind it, the double nearest to that literal.
double LiteralWithDecimals(double whole, std::u16string_view decimals);

enum class QUnitKind {
    Dollars,
    Cents,
    Length,
    Area,
    Volume,
    Hours,
    Minutes,
    Seconds,
    Degrees,
    Radians
};

// A word such as "ft" or "dollars" after a value.
struct QUnitWord {
    // Unused places are null.
    std::array<const char16_t*, 4> spellings;
    QUnitKind kind;
    double factor;
    // A value of this type is left as it is.
    QAnyValue::TYPE alreadyType;
};

// Whether `word` is `lower` (in lower case) with any of its ASCII letters in upper case, as the
// formula language matches its words.
bool SameWordIgnoringCase(std::u16string_view word, std::u16string_view lower);

// Every unit word, in the order in which they are tested.
const std::vector<QUnitWord>& UnitWords();
// The unit word of that spelling in any case of its ASCII letters; null when there is none.
const QUnitWord* FindUnitWord(std::u16string_view word);
// What "number word" gives.
QAnyValue ValueInUnit(double number, const QUnitWord& unit);

} // namespace keel
