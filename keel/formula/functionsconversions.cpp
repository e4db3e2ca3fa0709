#include "keel/document/errorlog.h"
#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"

#include <memory>
#include <system_error>

namespace keel {

namespace {

bool Text(QBuiltinCall& call) {
    call.result = call.args[0];
    call.result.MakeCString();
    return true;
}

// A quantity's number without its unit, so "2 ft" gives "609.6" where the default unit is mm.
bool TextNoUnit(QBuiltinCall& call) {
    QAnyValue value = call.args[0];
    if (value.IsNumeric())
        value = value.MakeDouble();
    value.MakeCString();
    call.result = value;
    return true;
}

bool Formula(QBuiltinCall& call) {
    if (!TakeErrorArgument(call))
        call.result = call.args[0].AsFormulaText();
    return true;
}

bool Value(QBuiltinCall& call) {
    call.result = call.args[0];
    call.result.MakeNumeric();
    return true;
}

// The number of decimals only shapes a display form, which a formula result does not keep.
constexpr int c_dollarDecimals = 2;

bool Dollar(QBuiltinCall& call) {
    call.result = call.args[0].DOLLAR(c_dollarDecimals, false);
    return true;
}

bool DollarNoUnit(QBuiltinCall& call) {
    call.result = call.args[0].DOLLAR(c_dollarDecimals, true);
    return true;
}

bool Length(QBuiltinCall& call, bool noUnit) {
    if (call.Count() == 1)
        return CallWithDefault(call, QAnyValue(0));
    int decimals = 0;
    if (call.Get(1, decimals))
        call.result = call.args[0].LENGTH(decimals, noUnit);
    return true;
}

bool LengthWithUnit(QBuiltinCall& call) {
    return Length(call, false);
}

bool LengthNoUnit(QBuiltinCall& call) {
    return Length(call, true);
}

bool AngleIn(QBuiltinCall& call, QAngle::ANGLEUNITS unit) {
    double number = 0;
    if (call.Get(0, number))
        call.result = QAngle(number, unit);
    return true;
}

bool Degrees(QBuiltinCall& call) {
    return AngleIn(call, QAngle::ANGU_DEG);
}

bool Radians(QBuiltinCall& call) {
    return AngleIn(call, QAngle::ANGU_RAD);
}

// The type tests answer for any value, errors included.
bool Answer(QBuiltinCall& call, bool truth) {
    call.result = QAnyValue();
    call.result.TRUEFALSEit(truth);
    return true;
}

bool IsBlank(QBuiltinCall& call) {
    return Answer(call, call.args[0].IsEmptyOrEmptyString());
}

bool IsLogical(QBuiltinCall& call) {
    return Answer(call, call.args[0].IsBool());
}

bool IsText(QBuiltinCall& call) {
    return Answer(call, call.args[0].IsString());
}

bool IsNumber(QBuiltinCall& call) {
    return Answer(call, call.args[0].IsNumeric());
}

bool IsNonText(QBuiltinCall& call) {
    return Answer(call, !call.args[0].IsEmpty() && !call.args[0].IsString());
}

bool IsNA(QBuiltinCall& call) {
    return Answer(call, call.args[0].IsNA());
}

bool IsErr(QBuiltinCall& call) {
    return Answer(call, call.args[0].IsError());
}

bool IsError(QBuiltinCall& call) {
    return Answer(call, call.args[0].IsErrorOrNA());
}

// Parity is of the whole number, so 2.5 is even; a value that has none stays as it is.
bool Parity(QBuiltinCall& call, bool even) {
    int number = 0;
    if (call.Get(0, number))
        Answer(call, (number % 2 == 0) == even);
    return true;
}

bool IsEven(QBuiltinCall& call) {
    return Parity(call, true);
}

bool IsOdd(QBuiltinCall& call) {
    return Parity(call, false);
}

bool CvErr(QBuiltinCall& call) {
    CString message;
    if (call.Get(0, message))
        call.result.MakeError(message);
    return true;
}

// The text of an error, or the system's message for an error number.
bool Error(QBuiltinCall& call) {
    CString message;
    if (call.args[0].IsErrorAndGetMessage(message)) {
        call.result = message;
        return true;
    }
    int code = 0;
    if (call.Get(0, code))
        call.result = CString::FromUtf8(std::system_category().message(code));
    return true;
}

// A string is run as a formula where the call stands; a failure is shown and gives nothing.
bool Indirect(QBuiltinCall& call) {
    const QAnyValue& argument = call.args[0];
    if (!argument.IsString()) {
        call.result = argument;
        return true;
    }
    QEvaluator& caller = call.evaluator;
    QAnyValue value;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(value, FormulaText(argument.AsStringOrFormula()), caller.Context(),
                        caller.IsPassThrough(), caller.IsReportErrors(), caller.IsAction()));
    if (evaluator->Evaluate()) {
        caller.RaiseCacheState(evaluator->CacheState());
        call.result = value;
        return true;
    }
    CString function = call.name.ToString();
    QMessageBoxExceptServer(function.MakeUpper(), evaluator->Message());
    call.result = QAnyValue();
    return true;
}

constexpr QBuiltinFunction c_functions[] = {
    {u"text", 1, 1, u"v", false, ServeAlways<Text>},
    {u"textnounit", 1, 1, u"v", false, ServeAlways<TextNoUnit>},
    {u"formula", 1, 1, u"v", false, ServeAlways<Formula>},
    {u"value", 1, 1, u"v", false, ServeAlways<Value>},
    {u"dollar", 1, 1, u"v", false, ServeAlways<Dollar>},
    {u"dollarnounit", 1, 1, u"v", false, ServeAlways<DollarNoUnit>},
    {u"length", 1, 2, u"v [, decimals]", false, ServeAlways<LengthWithUnit>},
    {u"lengthnounit", 1, 2, u"v [, decimals]", false, ServeAlways<LengthNoUnit>},
    {u"degrees", 1, 1, u"n", false, ServeAlways<Degrees>},
    {u"radians", 1, 1, u"n", false, ServeAlways<Radians>},
    {u"isblank", 1, 1, u"v", false, ServeAlways<IsBlank>},
    {u"islogical", 1, 1, u"v", false, ServeAlways<IsLogical>},
    {u"istext", 1, 1, u"v", false, ServeAlways<IsText>},
    {u"isnumber", 1, 1, u"v", false, ServeAlways<IsNumber>},
    {u"isnontext", 1, 1, u"v", false, ServeAlways<IsNonText>},
    {u"iseven", 1, 1, u"n", false, ServeAlways<IsEven>},
    {u"isodd", 1, 1, u"n", false, ServeAlways<IsOdd>},
    {u"isna", 1, 1, u"v", false, ServeAlways<IsNA>},
    {u"iserr", 1, 1, u"v", false, ServeAlways<IsErr>},
    {u"iserror", 1, 1, u"v", false, ServeAlways<IsError>},
    {u"cverr", 1, 1, u"s", false, ServeAlways<CvErr>},
    {u"error", 1, 1, u"v", false, ServeAlways<Error>},
    {u"indirect", 1, 1, u"s", false, ServeAlways<Indirect>},
    {u"val", 1, 1, u"s", false, ServeAlways<Indirect>},
    {u"eval", 1, 1, u"s", false, ServeAlways<Indirect>},
};

} // namespace

const QBuiltinGroup& ConversionFunctions() {
    static const QBuiltinGroup group{u"Conversions and tests", c_functions};
    return group;
}

} // namespace keel
