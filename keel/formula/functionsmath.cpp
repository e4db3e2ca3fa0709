#include "keel/formula/builtins.h"

#include <cmath>
#include <cstdint>

namespace keel {

namespace {

bool Abs(QBuiltinCall& call) {
    call.result = call.args[0].ABS();
    return true;
}

bool Sign(QBuiltinCall& call) {
    call.result = call.args[0].SIGN();
    return true;
}

bool Trunc(QBuiltinCall& call) {
    call.result = call.args[0].TRUNC();
    return true;
}

// ceiling, floor and mround: the multiple defaults to 1.
bool ToMultiple(QBuiltinCall& call, QAnyValue (QAnyValue::*operation)(const QAnyValue&) const) {
    if (call.Count() == 1)
        return CallWithDefault(call, QAnyValue(1));
    call.result = (call.args[0].*operation)(call.args[1]);
    return true;
}

bool Ceiling(QBuiltinCall& call) {
    return ToMultiple(call, &QAnyValue::CEILING);
}

bool Floor(QBuiltinCall& call) {
    return ToMultiple(call, &QAnyValue::FLOOR);
}

bool MRound(QBuiltinCall& call) {
    return ToMultiple(call, &QAnyValue::MROUND);
}

bool Even(QBuiltinCall& call) {
    call.result = call.args[0].CEILING(QAnyValue(2));
    return true;
}

// The next odd whole number away from zero: the ceiling to an even number of the magnitude plus
// one, less one, and the sign put back.
bool Odd(QBuiltinCall& call) {
    double number = 0;
    if (!call.Get(0, number))
        return true;
    QAnyValue odd(std::fabs(number) + 1);
    odd.CEILINGit(QAnyValue(2));
    odd -= QAnyValue(1);
    if (number < 0)
        odd.NEGit();
    call.result = odd;
    return true;
}

bool Sqrt(QBuiltinCall& call) {
    double number = 0;
    if (call.Get(0, number))
        call.result = QAnyValue(number).SQRT();
    return true;
}

bool Power(QBuiltinCall& call) {
    call.result = call.args[0].POW(call.args[1]);
    return true;
}

bool Mod(QBuiltinCall& call) {
    call.result = call.args[0].MOD(call.args[1]);
    return true;
}

bool Quotient(QBuiltinCall& call) {
    call.result = call.args[0].DIV(call.args[1]);
    return true;
}

bool RandBetween(QBuiltinCall& call) {
    call.result = call.args[0].RANDBETWEEN(call.args[1]);
    return true;
}

bool Sin(QBuiltinCall& call) {
    QAngle angle;
    if (call.Get(0, angle))
        call.result = angle.Sin();
    return true;
}

bool Cos(QBuiltinCall& call) {
    QAngle angle;
    if (call.Get(0, angle))
        call.result = angle.Cos();
    return true;
}

// The cosine of 90 degrees comes out of the doubles as about 6e-17, not as 0.
constexpr double c_zeroCosine = 1e-12;

bool Tan(QBuiltinCall& call) {
    QAngle angle;
    if (!call.Get(0, angle))
        return true;
    if (std::fabs(angle.Cos()) < c_zeroCosine)
        call.result.MakeError(u"Cannot take tan of " + QAnyValue(angle).Format());
    else
        call.result = angle.Sin() / angle.Cos();
    return true;
}

// An inverse function outside its domain is an error, as a floating-point fault is elsewhere.
bool InverseTrigonometric(QBuiltinCall& call, double (*function)(double), const char16_t* word) {
    double number = 0;
    if (!call.Get(0, number))
        return true;
    QAnyValue::FPFaultScope faults;
    const double radians = function(number);
    if (faults.Faulted())
        call.result.MakeError(CString(u"Cannot ") + word + u"() due to " + faults.Message());
    else
        call.result = QAngle(radians, QAngle::ANGU_RAD);
    return true;
}

bool ASin(QBuiltinCall& call) {
    return InverseTrigonometric(
        call, [](double x) { return std::asin(x); }, u"ASIN");
}

bool ACos(QBuiltinCall& call) {
    return InverseTrigonometric(
        call, [](double x) { return std::acos(x); }, u"ACOS");
}

bool ATan(QBuiltinCall& call) {
    return InverseTrigonometric(
        call, [](double x) { return std::atan(x); }, u"ATAN");
}

bool ATan2(QBuiltinCall& call) {
    double y = 0;
    double x = 0;
    if (call.Get(0, y) && call.Get(1, x))
        call.result = QAngle(std::atan2(y, x), QAngle::ANGU_RAD);
    return true;
}

bool Hypot(QBuiltinCall& call) {
    double a = 0;
    double b = 0;
    if (!call.Get(0, a) || !call.Get(1, b))
        return true;
    call.result = std::hypot(a, b);
    if (call.args[0].IsLength() || call.args[1].IsLength())
        call.result.ChangeType(QAnyValue::TYPE_LENGTH);
    return true;
}

bool Area(QBuiltinCall& call) {
    QLength a;
    QLength b;
    if (!call.Get(0, a) || !call.Get(1, b))
        return true;
    call.result = a;
    call.result *= QAnyValue(b);
    return true;
}

// 0x00BBGGRR, each part cut to a byte.
bool Rgb(QBuiltinCall& call) {
    int red = 0;
    int green = 0;
    int blue = 0;
    if (!call.Get(0, red) || !call.Get(1, green) || !call.Get(2, blue))
        return true;
    const std::uint32_t color = (static_cast<std::uint32_t>(red) & 0xFF) |
                                ((static_cast<std::uint32_t>(green) & 0xFF) << 8) |
                                ((static_cast<std::uint32_t>(blue) & 0xFF) << 16);
    call.result = static_cast<int>(color);
    return true;
}

// Mode 0 excludes both limits, 2 includes the lower, 3 both; 1 and any other the upper only.
bool Between(QBuiltinCall& call) {
    if (call.Count() == 3)
        return CallWithDefault(call, QAnyValue(1));
    int mode = 1;
    if (TakeErrorArgument(call) || !call.Get(3, mode))
        return true;
    const QAnyValue& value = call.args[0];
    const QAnyValue& low = call.args[1];
    const QAnyValue& high = call.args[2];
    const bool aboveLow = (mode == 2 || mode == 3) ? low <= value : low < value;
    const bool belowHigh = (mode == 0 || mode == 2) ? value < high : value <= high;
    call.result = aboveLow && belowHigh;
    return true;
}

constexpr QBuiltinFunction c_functions[] = {
    {u"abs", 1, 1, u"v", false, ServeAlways<Abs>},
    {u"sign", 1, 1, u"v", false, ServeAlways<Sign>},
    {u"sgn", 1, 1, u"v", false, ServeAlways<Sign>},
    {u"trunc", 1, 1, u"v", false, ServeAlways<Trunc>},
    {u"ceiling", 1, 2, u"v [, multiple]", false, ServeAlways<Ceiling>},
    {u"floor", 1, 2, u"v [, multiple]", false, ServeAlways<Floor>},
    {u"mround", 1, 2, u"v [, multiple]", false, ServeAlways<MRound>},
    {u"even", 1, 1, u"v", false, ServeAlways<Even>},
    {u"odd", 1, 1, u"v", false, ServeAlways<Odd>},
    {u"sqrt", 1, 1, u"v", false, ServeAlways<Sqrt>},
    {u"sqr", 1, 1, u"v", false, ServeAlways<Sqrt>},
    {u"power", 2, 2, u"a, b", false, ServeAlways<Power>},
    {u"mod", 2, 2, u"a, b", false, ServeAlways<Mod>},
    {u"quotient", 2, 2, u"a, b", false, ServeAlways<Quotient>},
    {u"randbetween", 2, 2, u"a, b", false, ServeAlways<RandBetween>},
    {u"sin", 1, 1, u"angle", false, ServeAlways<Sin>},
    {u"cos", 1, 1, u"angle", false, ServeAlways<Cos>},
    {u"tan", 1, 1, u"angle", false, ServeAlways<Tan>},
    {u"asin", 1, 1, u"x", false, ServeAlways<ASin>},
    {u"acos", 1, 1, u"x", false, ServeAlways<ACos>},
    {u"atan", 1, 1, u"x", false, ServeAlways<ATan>},
    {u"atn", 1, 1, u"x", false, ServeAlways<ATan>},
    {u"atan2", 2, 2, u"y, x", false, ServeAlways<ATan2>},
    {u"hypot", 2, 2, u"a, b", false, ServeAlways<Hypot>},
    {u"area", 2, 2, u"a, b", false, ServeAlways<Area>},
    {u"rgb", 3, 3, u"r, g, b", false, ServeAlways<Rgb>},
    {u"between", 3, 4, u"v, a, b [, mode]", false, ServeAlways<Between>},
};

} // namespace

const QBuiltinGroup& MathFunctions() {
    static const QBuiltinGroup group{u"Mathematics", c_functions};
    return group;
}

} // namespace keel
