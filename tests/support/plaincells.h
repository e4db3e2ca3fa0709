#pragma once

#include "keel/tables/celltokens.h"
#include "keel/values/anyvalue.h"

#include <bit>
#include <cstdint>
#include <string>

namespace keel::test {

// A cell token read both ways: directly, when the token is plain, and always as a formula. The
// two must give the same type, the same raw value to the bit and, for a string, the same
// spelling; a plain token must also be one that the formula reads without failing.

// The raw value, to the bit, as text; the spelling of a string.
inline std::string RawOf(const QAnyValue& value) {
    QAnyValue copy(value);
    const auto bits = [](double number) {
        return std::to_string(std::bit_cast<std::uint64_t>(number));
    };
    switch (value.Type()) {
    case QAnyValue::TYPE_EMPTY:
        return "";
    case QAnyValue::TYPE_BOOL:
        return copy.MakeBool() ? "true" : "false";
    case QAnyValue::TYPE_INT:
        return std::to_string(copy.MakeInt());
    case QAnyValue::TYPE_DOUBLE:
        return bits(copy.MakeDouble());
    case QAnyValue::TYPE_MONEY:
        return std::to_string(copy.MakeMoney().GetRaw());
    case QAnyValue::TYPE_TIME:
        return std::to_string(copy.MakeTime().GetRaw());
    case QAnyValue::TYPE_LENGTH:
        return bits(copy.MakeLength().GetRaw());
    case QAnyValue::TYPE_AREA:
        return bits(copy.MakeArea().GetRaw());
    case QAnyValue::TYPE_VOLUME:
        return bits(copy.MakeVolume().GetRaw());
    case QAnyValue::TYPE_ANGLE:
        return bits(copy.MakeAngle().GetRaw());
    default:
        return copy.MakeCString().ToUtf8();
    }
}

inline std::string DescribeCell(const QAnyValue& value) {
    return value.TypeName().ToUtf8() + " [" + RawOf(value) + "]";
}

struct CellReading {
    bool plain = false;
    // Empty when both ways agree, or when the token is not plain.
    std::string difference;
};

inline CellReading ReadCellBothWays(const CString& token) {
    CellReading reading;
    QAnyValue direct;
    reading.plain = ReadPlainCellToken(token.View(), direct);
    if (!reading.plain)
        return reading;
    QAnyValue formula;
    const bool read = ReadCellTokenAsFormula(token, formula, true);
    if (!read || direct.Type() != formula.Type() || RawOf(direct) != RawOf(formula))
        reading.difference = "token [" + token.ToUtf8() + "]: directly " + DescribeCell(direct) +
                             ", as a formula " + (read ? "" : "failing with ") +
                             DescribeCell(formula);
    return reading;
}

} // namespace keel::test
