#include "keel/platform/exceptions.h"
#include "keel/platform/muldiv.h"
#include "keel/platform/random.h"
#include "keel/values/anyvalue.h"
#include "keel/values/ratevalue.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <type_traits>
#include <utility>

namespace keel {

namespace {

// How far CEILING and FLOOR move a quotient before rounding it, so that a value already on a
// multiple does not round to the next one through floating error.
constexpr double kMultipleNudge = 0.000001;

CString GuardFailureText(const char16_t* name, const CString& cause) {
    if (cause.IsEmpty())
        return CString(u"Cannot ") + name + u"(), unknown error";
    return CString(u"Cannot ") + name + u"() due to " + cause;
}

// Runs `work` on `value` watching the floating-point faults: a fault it raises, or a failure it
// throws, makes `value` an error that names the member.
template <class Work>
void RunGuarded(QAnyValue& value, const char16_t* name, Work work) {
    try {
        QAnyValue::FPFaultScope faults;
        work();
        if (faults.Faulted())
            value.MakeError(GuardFailureText(name, faults.Message()));
    } catch (const CException& failure) {
        value.MakeError(GuardFailureText(name, CString::FromUtf8(failure.what())));
    }
}

// A zero keeps no sign, which would otherwise show as "-0".
double WithoutSignedZero(double number) {
    return number == 0 ? 0.0 : number;
}

// The scalar step of the functions with a second value: both are read as numbers in their
// default units and the result is given `resultType`. A value that cannot be read as a number
// ends the step with its error in `value`.
template <class Operation>
void ApplyToNumbers(QAnyValue& value, const QAnyValue& argument, QAnyValue::TYPE resultType,
                    Operation operation) {
    QAnyValue other(argument);
    const double first = value.MakeDouble();
    const double second = other.MakeDouble();
    if (value.ApplyErrorRule(other))
        return;
    value.SetDouble(WithoutSignedZero(operation(first, second)));
    value.ChangeType(resultType);
}

// The quotient by `multiple`, rounded by `round`, times `multiple`. A quotient that is no finite
// number is given back as it is: its fault is the division's, and multiplying it back would only
// raise another.
template <class Round>
double ToMultiple(double number, double multiple, Round round) {
    const double quotient = number / multiple;
    if (!std::isfinite(quotient))
        return quotient;
    return round(quotient) * multiple;
}

double CeilingToMultiple(double number, double multiple) {
    return ToMultiple(number, multiple, [](double quotient) {
        return std::ceil(quotient + (quotient >= 0 ? -kMultipleNudge : kMultipleNudge));
    });
}

double FloorToMultiple(double number, double multiple) {
    return ToMultiple(number, multiple, [](double quotient) {
        return std::floor(quotient + (quotient >= 0 ? kMultipleNudge : -kMultipleNudge));
    });
}

// Halves away from zero.
double RoundToMultiple(double number, double multiple) {
    return ToMultiple(number, multiple, [](double quotient) { return std::round(quotient); });
}

int WrapToInt(std::int64_t number) {
    return static_cast<int>(number);
}

int ClampToInt(std::int64_t number) {
    return static_cast<int>(std::clamp<std::int64_t>(number, std::numeric_limits<int>::min(),
                                                     std::numeric_limits<int>::max()));
}

int SignOf(double number) {
    return number < 0 ? -1 : (number > 0 ? 1 : 0);
}

// Applies `operation` to each element of an array value; false for any other value.
template <class Operation>
bool SpreadOverElements(QAnyValue& value, Operation operation) {
    if (!value.IsArray())
        return false;
    for (QAnyValue& element : value.MakeArray())
        operation(element);
    return true;
}

// The value as the type `type`, or the error `message` when it cannot be one.
void ConvertOrFail(QAnyValue& value, QAnyValue::TYPE type, const char16_t* message) {
    value.ChangeType(type);
    if (!value.IsType(type))
        value.MakeError(message);
}

// Both sides made booleans and combined by `combine`; a side that cannot be read as a boolean
// gives its error.
void CombineTruths(QAnyValue& value, const QAnyValue& argument, bool (*combine)(bool, bool)) {
    QAnyValue other(argument);
    const bool first = value.MakeBool();
    const bool second = other.MakeBool();
    if (value.ApplyErrorRule(other))
        return;
    value.SetBool(combine(first, second));
}

// The folding members: an array becomes its first element combined with each next one by
// `combine`, or `unit` when it has none. Any other value stays.
QAnyValue& FoldElements(QAnyValue& value, QAnyValue& (QAnyValue::*combine)(const QAnyValue&),
                        const QAnyValue& unit) {
    if (!value.IsArray())
        return value;
    QArray<QAnyValue> elements(std::move(value.MakeArray()));
    if (elements.IsEmpty()) {
        value = unit;
        return value;
    }
    value = std::move(elements[0]);
    for (int i = 1; i < elements.GetCount(); ++i)
        (value.*combine)(elements[i]);
    return value;
}

// The array members work on the array itself; an error, N/A or empty value is left alone.
bool LeftAloneByArrayMembers(const QAnyValue& value) {
    return value.IsErrorOrNA() || value.IsEmpty();
}

CString OutOfBoundsText(int position, int count) {
    return CString(u"Array subscript out of bounds ") +
           CString::Formatted(u"[%d] but should be in range [1 to %d]", position, count);
}

bool InBounds(int position, int count) {
    return position >= 1 && position <= count;
}

// Where Compare cannot order two elements their places in the array do, so that the sort sees
// one total order while it runs.
int CompareForSort(const QAnyValue* a, const QAnyValue* b) {
    bool failed = false;
    const int order = a->Compare(*b, failed);
    if (!failed)
        return order;
    if (std::less<const QAnyValue*>()(a, b))
        return -1;
    return a == b ? 0 : 1;
}

bool EqualForUniq(const QAnyValue& a, const QAnyValue& b) {
    bool failed = false;
    return a.Compare(b, failed) == 0 && !failed;
}

} // namespace

// --- Numeric functions with a second value -----------------------------------------------------

QAnyValue& QAnyValue::DIVit(const QAnyValue& divisor) {
    if (ApplyErrorRule(divisor) || ApplyArrayRule(divisor, &QAnyValue::DIVit))
        return *this;
    RunGuarded(*this, u"DIV", [&] {
        ApplyToNumbers(*this, divisor, TYPE_INT, [](double a, double b) { return a / b; });
    });
    return *this;
}

QAnyValue QAnyValue::DIV(const QAnyValue& divisor) const {
    QAnyValue copy(*this);
    return copy.DIVit(divisor);
}

QAnyValue& QAnyValue::MODit(const QAnyValue& divisor) {
    if (ApplyErrorRule(divisor) || ApplyArrayRule(divisor, &QAnyValue::MODit))
        return *this;
    RunGuarded(*this, u"MOD", [&] {
        ApplyToNumbers(*this, divisor, divisor.Type(),
                       [](double a, double b) { return std::fmod(a, b); });
    });
    return *this;
}

QAnyValue QAnyValue::MOD(const QAnyValue& divisor) const {
    QAnyValue copy(*this);
    return copy.MODit(divisor);
}

QAnyValue& QAnyValue::CEILINGit(const QAnyValue& multiple) {
    if (ApplyErrorRule(multiple) || ApplyArrayRule(multiple, &QAnyValue::CEILINGit))
        return *this;
    RunGuarded(*this, u"CEILING",
               [&] { ApplyToNumbers(*this, multiple, multiple.Type(), CeilingToMultiple); });
    return *this;
}

QAnyValue QAnyValue::CEILING(const QAnyValue& multiple) const {
    QAnyValue copy(*this);
    return copy.CEILINGit(multiple);
}

QAnyValue& QAnyValue::FLOORit(const QAnyValue& multiple) {
    if (ApplyErrorRule(multiple) || ApplyArrayRule(multiple, &QAnyValue::FLOORit))
        return *this;
    RunGuarded(*this, u"FLOOR",
               [&] { ApplyToNumbers(*this, multiple, multiple.Type(), FloorToMultiple); });
    return *this;
}

QAnyValue QAnyValue::FLOOR(const QAnyValue& multiple) const {
    QAnyValue copy(*this);
    return copy.FLOORit(multiple);
}

QAnyValue& QAnyValue::MROUNDit(const QAnyValue& multiple) {
    if (ApplyErrorRule(multiple) || ApplyArrayRule(multiple, &QAnyValue::MROUNDit))
        return *this;
    ApplyToNumbers(*this, multiple, multiple.Type(), RoundToMultiple);
    return *this;
}

QAnyValue QAnyValue::MROUND(const QAnyValue& multiple) const {
    QAnyValue copy(*this);
    return copy.MROUNDit(multiple);
}

QAnyValue& QAnyValue::RANDBETWEENit(const QAnyValue& upper) {
    if (ApplyErrorRule(upper) || ApplyArrayRule(upper, &QAnyValue::RANDBETWEENit))
        return *this;
    QAnyValue other(upper);
    const int low = MakeInt();
    const int high = other.MakeInt();
    if (ApplyErrorRule(other))
        return *this;
    const int span = WrapToInt(std::int64_t{high} - low);
    SetInt(WrapToInt(std::int64_t{low} + MulDiv(keel::rand(), span, RAND_MAX_VALUE)));
    return *this;
}

QAnyValue QAnyValue::RANDBETWEEN(const QAnyValue& upper) const {
    QAnyValue copy(*this);
    return copy.RANDBETWEENit(upper);
}

QAnyValue& QAnyValue::POWit(const QAnyValue& exponent) {
    if (ApplyErrorRule(exponent) || ApplyArrayRule(exponent, &QAnyValue::POWit))
        return *this;
    const TYPE ownType = m_type;
    RunGuarded(*this, u"POW", [&] {
        ApplyToNumbers(*this, exponent, ownType, [](double a, double b) { return std::pow(a, b); });
    });
    return *this;
}

QAnyValue QAnyValue::POW(const QAnyValue& exponent) const {
    QAnyValue copy(*this);
    return copy.POWit(exponent);
}

// --- Numeric functions of one value ------------------------------------------------------------

QAnyValue& QAnyValue::ABSit() {
    if (ApplyErrorRule() || ApplyArrayRule(&QAnyValue::ABSit))
        return *this;
    switch (m_type) {
    case TYPE_INT:
        m_scalar.m_int = WrapToInt(std::abs(std::int64_t{m_scalar.m_int}));
        break;
    case TYPE_DOUBLE:
        m_scalar.m_double = std::fabs(m_scalar.m_double);
        break;
    case TYPE_MONEY:
        if (m_object.m_money.GetRaw() < 0)
            m_object.m_money = -m_object.m_money;
        break;
    case TYPE_TIME:
        if (m_object.m_time.GetRaw() < 0)
            m_object.m_time = -m_object.m_time;
        break;
    case TYPE_LENGTH:
        m_object.m_length = QLength::FromRaw(std::fabs(m_object.m_length.GetRaw()));
        break;
    case TYPE_AREA:
        m_object.m_area = QArea::FromRaw(std::fabs(m_object.m_area.GetRaw()));
        break;
    case TYPE_VOLUME:
        m_object.m_volume = QVolume::FromRaw(std::fabs(m_object.m_volume.GetRaw()));
        break;
    case TYPE_ANGLE:
        m_object.m_angle = QAngle::FromRaw(std::fabs(m_object.m_angle.GetRaw()));
        break;
    case TYPE_RATE:
        if (Double(*m_scalar.m_pRate) < 0)
            *m_scalar.m_pRate = -*m_scalar.m_pRate;
        break;
    default:
        MakeError(u"Cannot ABS() value when not numeric");
        break;
    }
    return *this;
}

QAnyValue QAnyValue::ABS() const {
    QAnyValue copy(*this);
    return copy.ABSit();
}

QAnyValue& QAnyValue::SIGNit() {
    if (ApplyErrorRule() || ApplyArrayRule(&QAnyValue::SIGNit))
        return *this;
    if (IsInt())
        SetInt(SignOf(m_scalar.m_int));
    else if (IsDouble())
        SetInt(SignOf(m_scalar.m_double));
    else if (IsNumericWithUnits())
        SetInt(SignOf(RawNumber()));
    else
        MakeError(u"Cannot SIGN() when not numeric");
    return *this;
}

QAnyValue QAnyValue::SIGN() const {
    QAnyValue copy(*this);
    return copy.SIGNit();
}

QAnyValue& QAnyValue::SQRTit() {
    if (ApplyErrorRule() || ApplyArrayRule(&QAnyValue::SQRTit))
        return *this;
    if (!IsNumeric()) {
        MakeError(u"Cannot SQRT() when not numeric");
        return *this;
    }
    RunGuarded(*this, u"SQRT", [this] { SetDouble(std::sqrt(MakeDouble())); });
    return *this;
}

QAnyValue QAnyValue::SQRT() const {
    QAnyValue copy(*this);
    return copy.SQRTit();
}

// Units are cut to a whole number of their default unit and keep their type; a rate cuts its
// numerator.
QAnyValue& QAnyValue::TRUNCit() {
    if (ApplyErrorRule() || ApplyArrayRule(&QAnyValue::TRUNCit))
        return *this;
    MakeNumeric();
    if (VisitUnitMember(m_type, [this](auto member) {
            using Quantity = std::remove_cvref_t<decltype(m_object.*member)>;
            *this = Quantity(std::trunc((m_object.*member).AsDouble()));
        }))
        return *this;
    switch (m_type) {
    case TYPE_NA:
    case TYPE_ERROR:
    case TYPE_INT:
        break;
    case TYPE_DOUBLE:
        m_scalar.m_double = WithoutSignedZero(std::trunc(m_scalar.m_double));
        break;
    case TYPE_RATE:
        m_scalar.m_pRate->Num().TRUNCit();
        break;
    default:
        MakeError(u"Cannot TRUNC() when not numeric");
        break;
    }
    return *this;
}

QAnyValue QAnyValue::TRUNC() const {
    QAnyValue copy(*this);
    return copy.TRUNCit();
}

// --- Conversions with a display form -----------------------------------------------------------
//
// The value holds no display form, so the decimals are for the caller that shows it.

QAnyValue& QAnyValue::DOLLARit(int decimals, bool noUnit) {
    if (ApplyErrorRule() ||
        SpreadOverElements(*this, [&](QAnyValue& e) { e.DOLLARit(decimals, noUnit); }))
        return *this;
    ConvertOrFail(*this, noUnit ? TYPE_DOUBLE : TYPE_MONEY, u"Cannot DOLLAR() when not numeric");
    return *this;
}

QAnyValue QAnyValue::DOLLAR(int decimals, bool noUnit) const {
    QAnyValue copy(*this);
    return copy.DOLLARit(decimals, noUnit);
}

QAnyValue& QAnyValue::LENGTHit(int decimals, bool noUnit) {
    if (ApplyErrorRule() ||
        SpreadOverElements(*this, [&](QAnyValue& e) { e.LENGTHit(decimals, noUnit); }))
        return *this;
    ConvertOrFail(*this, noUnit ? TYPE_DOUBLE : TYPE_LENGTH, u"Cannot LENGTH() when not numeric");
    return *this;
}

QAnyValue QAnyValue::LENGTH(int decimals, bool noUnit) const {
    QAnyValue copy(*this);
    return copy.LENGTHit(decimals, noUnit);
}

// Only a string changes, so that a table's numeric label stays a number in its index.
QAnyValue& QAnyValue::LOWERNOCVTit() {
    if (ApplyErrorRule() || ApplyArrayRule(&QAnyValue::LOWERNOCVTit))
        return *this;
    if (IsString())
        m_object.m_string.MakeLower();
    return *this;
}

QAnyValue QAnyValue::LOWERNOCVT() const {
    QAnyValue copy(*this);
    return copy.LOWERNOCVTit();
}

QAnyValue& QAnyValue::UPPERNOCVTit() {
    if (ApplyErrorRule() || ApplyArrayRule(&QAnyValue::UPPERNOCVTit))
        return *this;
    if (IsString())
        m_object.m_string.MakeUpper();
    return *this;
}

QAnyValue QAnyValue::UPPERNOCVT() const {
    QAnyValue copy(*this);
    return copy.UPPERNOCVTit();
}

// --- Logic -------------------------------------------------------------------------------------
//
// Both sides are always evaluated here; the evaluator short-circuits above these.

QAnyValue& QAnyValue::ANDit(const QAnyValue& other) {
    if (ApplyErrorRule(other) || ApplyArrayRule(other, &QAnyValue::ANDit))
        return *this;
    CombineTruths(*this, other, [](bool a, bool b) { return a && b; });
    return *this;
}

QAnyValue QAnyValue::AND(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.ANDit(other);
}

QAnyValue& QAnyValue::ORit(const QAnyValue& other) {
    if (ApplyErrorRule(other) || ApplyArrayRule(other, &QAnyValue::ORit))
        return *this;
    CombineTruths(*this, other, [](bool a, bool b) { return a || b; });
    return *this;
}

QAnyValue QAnyValue::OR(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.ORit(other);
}

QAnyValue& QAnyValue::XORit(const QAnyValue& other) {
    if (ApplyErrorRule(other) || ApplyArrayRule(other, &QAnyValue::XORit))
        return *this;
    CombineTruths(*this, other, [](bool a, bool b) { return a != b; });
    return *this;
}

QAnyValue QAnyValue::XOR(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.XORit(other);
}

QAnyValue& QAnyValue::EQVit(const QAnyValue& other) {
    if (ApplyErrorRule(other) || ApplyArrayRule(other, &QAnyValue::EQVit))
        return *this;
    CombineTruths(*this, other, [](bool a, bool b) { return a == b; });
    return *this;
}

QAnyValue QAnyValue::EQV(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.EQVit(other);
}

QAnyValue& QAnyValue::IMPit(const QAnyValue& other) {
    if (ApplyErrorRule(other) || ApplyArrayRule(other, &QAnyValue::IMPit))
        return *this;
    CombineTruths(*this, other, [](bool a, bool b) { return !a || b; });
    return *this;
}

QAnyValue QAnyValue::IMP(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.IMPit(other);
}

// --- Least and greatest ------------------------------------------------------------------------

QAnyValue& QAnyValue::MINit(const QAnyValue& other) {
    if (ApplyErrorRule(other) || ApplyArrayRule(other, &QAnyValue::MINit))
        return *this;
    bool failed = false;
    const int order = Compare(other, failed);
    if (failed)
        MakeError(u"Cannot compare in MIN()");
    else if (order > 0)
        *this = other;
    return *this;
}

QAnyValue QAnyValue::MIN(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.MINit(other);
}

QAnyValue& QAnyValue::MAXit(const QAnyValue& other) {
    if (ApplyErrorRule(other) || ApplyArrayRule(other, &QAnyValue::MAXit))
        return *this;
    bool failed = false;
    const int order = Compare(other, failed);
    if (failed)
        MakeError(u"Cannot compare in MAX()");
    else if (order < 0)
        *this = other;
    return *this;
}

QAnyValue QAnyValue::MAX(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.MAXit(other);
}

// --- Folding an array into one value -----------------------------------------------------------

QAnyValue& QAnyValue::SUMOVERit() {
    return FoldElements(*this, &QAnyValue::operator+=, QAnyValue(0));
}

QAnyValue QAnyValue::SUMOVER() const {
    QAnyValue copy(*this);
    return copy.SUMOVERit();
}

QAnyValue& QAnyValue::AVERAGEOVERit() {
    if (!IsArray())
        return *this;
    const int count = GetSize();
    FoldElements(*this, &QAnyValue::operator+=, QAnyValue());
    if (count > 0)
        *this /= QAnyValue(count);
    return *this;
}

QAnyValue QAnyValue::AVERAGEOVER() const {
    QAnyValue copy(*this);
    return copy.AVERAGEOVERit();
}

QAnyValue& QAnyValue::MINOVERit() {
    return FoldElements(*this, &QAnyValue::MINit, QAnyValue());
}

QAnyValue QAnyValue::MINOVER() const {
    QAnyValue copy(*this);
    return copy.MINOVERit();
}

QAnyValue& QAnyValue::MAXOVERit() {
    return FoldElements(*this, &QAnyValue::MAXit, QAnyValue());
}

QAnyValue QAnyValue::MAXOVER() const {
    QAnyValue copy(*this);
    return copy.MAXOVERit();
}

QAnyValue& QAnyValue::ANDOVERit() {
    return FoldElements(*this, &QAnyValue::ANDit, QAnyValue(true));
}

QAnyValue QAnyValue::ANDOVER() const {
    QAnyValue copy(*this);
    return copy.ANDOVERit();
}

QAnyValue& QAnyValue::OROVERit() {
    return FoldElements(*this, &QAnyValue::ORit, QAnyValue(false));
}

QAnyValue QAnyValue::OROVER() const {
    QAnyValue copy(*this);
    return copy.OROVERit();
}

QAnyValue& QAnyValue::CONCATENATEOVERit() {
    return FoldElements(*this, &QAnyValue::CONCATit, QAnyValue(CString()));
}

QAnyValue QAnyValue::CONCATENATEOVER() const {
    QAnyValue copy(*this);
    return copy.CONCATENATEOVERit();
}

// --- Arrays as arrays --------------------------------------------------------------------------

QAnyValue& QAnyValue::GETSIZEit() {
    if (!LeftAloneByArrayMembers(*this))
        SetInt(GetSize());
    return *this;
}

QAnyValue QAnyValue::GETSIZE() const {
    QAnyValue copy(*this);
    return copy.GETSIZEit();
}

QAnyValue& QAnyValue::GETATit(int position) {
    if (LeftAloneByArrayMembers(*this))
        return *this;
    QArray<QAnyValue>& elements = MakeArray();
    if (!InBounds(position, elements.GetCount())) {
        MakeError(OutOfBoundsText(position, elements.GetCount()));
        return *this;
    }
    QAnyValue element(std::move(elements[position - 1]));
    *this = std::move(element);
    return *this;
}

QAnyValue QAnyValue::GETAT(int position) const {
    QAnyValue copy(*this);
    return copy.GETATit(position);
}

// Arrays do not grow by it.
QAnyValue& QAnyValue::SETARRAYVALUEit(int position, const QAnyValue& value) {
    if (LeftAloneByArrayMembers(*this))
        return *this;
    QAnyValue stored(value);
    QArray<QAnyValue>& elements = MakeArray();
    if (!InBounds(position, elements.GetCount())) {
        MakeError(OutOfBoundsText(position, elements.GetCount()));
        return *this;
    }
    elements[position - 1] = std::move(stored);
    return *this;
}

QAnyValue QAnyValue::SETARRAYVALUE(int position, const QAnyValue& value) const {
    QAnyValue copy(*this);
    return copy.SETARRAYVALUEit(position, value);
}

// An array is added as one element.
QAnyValue& QAnyValue::APPENDITEMit(const QAnyValue& value) {
    if (LeftAloneByArrayMembers(*this))
        return *this;
    const QAnyValue item(value);
    MakeArray().Add(item);
    return *this;
}

QAnyValue QAnyValue::APPENDITEM(const QAnyValue& value) const {
    QAnyValue copy(*this);
    return copy.APPENDITEMit(value);
}

// The elements of an array are added one by one.
QAnyValue& QAnyValue::JOINit(const QAnyValue& value) {
    if (ApplyErrorRule(value))
        return *this;
    if (IsEmpty()) {
        *this = value;
        return *this;
    }
    QAnyValue added(value);
    QArray<QAnyValue>& elements = MakeArray();
    if (added.IsArray())
        elements.Append(added.MakeArray());
    else
        elements.Add(added);
    return *this;
}

QAnyValue QAnyValue::JOIN(const QAnyValue& value) const {
    QAnyValue copy(*this);
    return copy.JOINit(value);
}

// A start before the first position takes the count with it; the count is cut to what exists,
// and nothing left gives an empty array.
QAnyValue& QAnyValue::MIDDLEit(int start, int count) {
    if (LeftAloneByArrayMembers(*this))
        return *this;
    QArray<QAnyValue>& elements = MakeArray();
    std::int64_t first = start;
    std::int64_t taken = count;
    if (first < 1) {
        taken -= 1 - first;
        first = 1;
    }
    taken = std::min<std::int64_t>(taken, elements.GetCount() - first + 1);
    if (taken <= 0) {
        elements.RemoveAll();
        return *this;
    }
    const int from = static_cast<int>(first) - 1;
    const int end = from + static_cast<int>(taken);
    elements.RemoveAt(end, elements.GetCount() - end);
    elements.RemoveAt(0, from);
    return *this;
}

QAnyValue QAnyValue::MIDDLE(int start, int count) const {
    QAnyValue copy(*this);
    return copy.MIDDLEit(start, count);
}

QAnyValue& QAnyValue::FIRSTit(int count) {
    return MIDDLEit(1, count);
}

QAnyValue QAnyValue::FIRST(int count) const {
    QAnyValue copy(*this);
    return copy.FIRSTit(count);
}

QAnyValue& QAnyValue::LASTit(int count) {
    return MIDDLEit(ClampToInt(std::int64_t{GetSize()} - count + 1), count);
}

QAnyValue QAnyValue::LAST(int count) const {
    QAnyValue copy(*this);
    return copy.LASTit(count);
}

QAnyValue& QAnyValue::REVERSEit() {
    if (LeftAloneByArrayMembers(*this))
        return *this;
    QArray<QAnyValue>& elements = MakeArray();
    std::reverse(elements.begin(), elements.end());
    return *this;
}

QAnyValue QAnyValue::REVERSE() const {
    QAnyValue copy(*this);
    return copy.REVERSEit();
}

// Not stable: equal elements may change places.
QAnyValue& QAnyValue::SORTit() {
    if (LeftAloneByArrayMembers(*this))
        return *this;
    MakeArray().SortUsing(CompareForSort);
    return *this;
}

QAnyValue QAnyValue::SORT() const {
    QAnyValue copy(*this);
    return copy.SORTit();
}

// Drops each element that compares equal to the one kept before it: after SORT, the values are
// unique.
QAnyValue& QAnyValue::UNIQit() {
    if (LeftAloneByArrayMembers(*this))
        return *this;
    QArray<QAnyValue>& elements = MakeArray();
    if (elements.IsEmpty())
        return *this;
    int last = 0;
    for (int i = 1; i < elements.GetCount(); ++i) {
        if (EqualForUniq(elements[i], elements[last]))
            continue;
        ++last;
        if (last != i)
            elements[last] = std::move(elements[i]);
    }
    elements.RemoveAt(last + 1, elements.GetCount() - last - 1);
    return *this;
}

QAnyValue QAnyValue::UNIQ() const {
    QAnyValue copy(*this);
    return copy.UNIQit();
}

QAnyValue& QAnyValue::CONCATit(const QAnyValue& value) {
    if (ApplyErrorRule(value) || ApplyArrayRule(value, &QAnyValue::CONCATit))
        return *this;
    QAnyValue other(value);
    const CString joined = MakeCString() + other.MakeCString();
    *this = joined;
    return *this;
}

QAnyValue QAnyValue::CONCAT(const QAnyValue& value) const {
    QAnyValue copy(*this);
    return copy.CONCATit(value);
}

bool QAnyValue::EquivalentNoCase(const QAnyValue& a, const QAnyValue& b) {
    if (a.IsString() && b.IsString())
        return a.m_object.m_string.CompareNoCase(b.m_object.m_string) == 0;
    return a.Equivalent(b);
}

} // namespace keel
