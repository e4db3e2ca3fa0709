#include "keel/tables/celltokens.h"

#include "keel/document/usertrace.h"
#include "keel/formula/evaluatingdata.h"
#include "keel/formula/stringtovalue.h"
#include "keel/platform/exceptions.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/plaincell.h"
#include "keel/tables/tabtokens.h"
#include "keel/values/length.h"
#include "keel/values/stringunique.h"

#include <charconv>
#include <string>
#include <vector>

namespace keel {

namespace {

using TYPE = QAnyValue::TYPE;

bool ReadTokenText(const CString& token, QAnyValue& value, bool quiet) {
    return ReadPlainCellToken(token.View(), value) || ReadCellTokenAsFormula(token, value, quiet);
}

// The shortest digits that read back as the same double; the formula language has no exponents.
CString Digits(double number) {
    char buffer[400];
    const std::to_chars_result result =
        std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::fixed);
    if (result.ec != std::errc())
        return CString();
    return CString::FromUtf8(std::string(buffer, result.ptr));
}

CString WithUnit(double number, const char16_t* unit) {
    const CString digits = Digits(number);
    return digits.IsEmpty() ? CString() : digits + u' ' + unit;
}

// A length in the current units with their word, which the units question of the write decides,
// and in millimetres when that does not read back exactly.
std::vector<CString> LengthForms(double millimetres) {
    struct Unit {
        QLength::LENGTHUNITS units;
        double perUnit;
        const char16_t* word;
    };
    static constexpr Unit c_units[] = {{QLength::LU_CM, 10, u"cm"},
                                       {QLength::LU_INCH, 25.400000000000002, u"in"},
                                       {QLength::LU_FOOT, 304.8, u"ft"},
                                       {QLength::LU_METRE, 1000, u"m"}};
    std::vector<CString> forms;
    for (const Unit& unit : c_units)
        if (unit.units == QLength::DefaultUnits())
            forms.push_back(WithUnit(millimetres / unit.perUnit, unit.word));
    forms.push_back(WithUnit(millimetres, u"mm"));
    return forms;
}

// The display text; the value itself is left as it is.
CString Printed(const QAnyValue& value) {
    return QAnyValue(value).MakeCString();
}

// The texts that may give the value back, most readable first.
std::vector<CString> TokenForms(const QAnyValue& value) {
    QAnyValue copy(value);
    switch (value.Type()) {
    case QAnyValue::TYPE_STRING:
    case QAnyValue::TYPE_DATETIME:
        return {DoubleQuotesAndEnclose(InsertEscapesDoubleQuotesAndEnclose(Printed(value)))};
    case QAnyValue::TYPE_BOOL:
        return {copy.MakeBool() ? u"true" : u"false"};
    case QAnyValue::TYPE_INT:
        return {Printed(value), CString::Formatted(u"%d", copy.MakeInt())};
    case QAnyValue::TYPE_DOUBLE:
        return {Printed(value), Digits(copy.MakeDouble())};
    case QAnyValue::TYPE_MONEY:
        return {Printed(value), CString::Formatted(u"%lld cents", static_cast<long long>(
                                                                      copy.MakeMoney().GetRaw()))};
    case QAnyValue::TYPE_TIME:
        return {
            CString::Formatted(u"%lld seconds", static_cast<long long>(copy.MakeTime().GetRaw()))};
    case QAnyValue::TYPE_LENGTH:
        return LengthForms(copy.MakeLength().GetRaw());
    case QAnyValue::TYPE_AREA:
        return {WithUnit(copy.MakeArea().GetRaw(), u"sqm")};
    case QAnyValue::TYPE_VOLUME:
        return {WithUnit(copy.MakeVolume().GetRaw(), u"cbm")};
    case QAnyValue::TYPE_ANGLE:
        return {WithUnit(copy.MakeAngle().GetRaw(), u"deg")};
    default:
        return {value.AsFormulaText()};
    }
}

// Same type and content, texts in the same case; errors are never the same as anything.
bool IsSameValue(const QAnyValue& a, const QAnyValue& b) {
    if (a.IsErrorOrNA() || b.IsErrorOrNA() || !a.Identical(b))
        return false;
    return !a.IsString() || QAnyValue(a).MakeCString() == QAnyValue(b).MakeCString();
}

bool ReadsBackAs(const CString& token, const QAnyValue& value, TYPE type) {
    if (token.IsEmpty())
        return false;
    QAnyValue readBack;
    return ReadTokenText(token, readBack, true) && IsSameCell(readBack, value, type);
}

// A value whose number means something only with its units.
bool IsMeasure(const QAnyValue& value) {
    switch (value.Type()) {
    case QAnyValue::TYPE_LENGTH:
    case QAnyValue::TYPE_AREA:
    case QAnyValue::TYPE_VOLUME:
    case QAnyValue::TYPE_ANGLE:
    case QAnyValue::TYPE_TIME:
        return true;
    default:
        return false;
    }
}

QAnyValue MadeType(const QAnyValue& value, TYPE type) {
    QAnyValue made(value);
    if (type == QAnyValue::TYPE_EMPTY || value.IsEmpty() || QLookupTableData::IsValueFormula(value))
        return made;
    try {
        made.ChangeType(type);
    } catch (const InvalidArgumentException&) {
        made = value;
    }
    return made;
}

} // namespace

bool ReadPlainCellToken(std::u16string_view token, QAnyValue& value) {
    return !IsTracing(USER_TRACE_EVALUATIONS) && ReadPlainCell(token, value);
}

bool ReadCellTokenAsFormula(const CString& token, QAnyValue& value, bool quiet) {
    const CString text = IsEnclosedByQuotes(token) ? UndoDoubleQuotesAndEnclose(token) : token;
    if (!text.IsEmpty())
        FormulaTextAsSpelled(text);
    const QEvaluatingData evaluatingData;
    return StringToValue(value, text, nullptr, quiet, nullptr);
}

bool ReadCellToken(CString& line, QAnyValue& value, CString& token, bool quiet) {
    GetTabDelimToken(line, token);
    return ReadTokenText(token, value, quiet);
}

CString CellToken(const QAnyValue& value, TYPE type) {
    if (value.IsEmptyOrEmptyString())
        return CString();
    const QAnyValue converted = MadeType(value, type);
    // A conversion into or out of units would tie the file to the units of this writer.
    const bool changesUnits =
        (IsMeasure(value) || IsMeasure(converted)) && converted.Type() != value.Type();
    for (const QAnyValue* candidate : {changesUnits ? &value : &converted, &value})
        for (const CString& token : TokenForms(*candidate))
            if (ReadsBackAs(token, value, type))
                return token;
    const std::vector<CString> asItStands = TokenForms(value);
    return asItStands.front();
}

bool IsSameCell(const QAnyValue& read, const QAnyValue& original, TYPE type) {
    const bool formula = QLookupTableData::IsValueFormula(original);
    if (formula || QLookupTableData::IsValueFormula(read))
        return formula && QLookupTableData::IsValueFormula(read) && IsSameValue(read, original);
    if (read.IsEmptyOrEmptyString() || original.IsEmptyOrEmptyString())
        return read.IsEmptyOrEmptyString() && original.IsEmptyOrEmptyString();
    return IsSameValue(MadeType(read, type), MadeType(original, type)) &&
           IsSameValue(MadeType(read, original.Type()), original);
}

} // namespace keel
