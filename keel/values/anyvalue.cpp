#include "keel/values/anyvalue.h"

#include "keel/platform/fpstatus.h"
#include "keel/values/formulahook.h"
#include "keel/values/ratevalue.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <memory>
#include <new>
#include <utility>

namespace keel {

namespace {

std::atomic<QTableHandleSource*> g_tableSource{nullptr};

std::atomic<QAnyValue::ProfileIntReader> g_profileIntReader{nullptr};
constexpr int kUnread = INT_MIN;
std::atomic<int> g_useCompareNoCase{kUnread};
std::atomic<int> g_lengthDisplayEps{kUnread};
constexpr int kDefaultLengthDisplayEps = 80;

// A string made numeric whose formula gives another string is run again; a chain this long is
// taken for a loop.
constexpr int kMaxFormulaChain = 64;

constexpr unsigned kFaultBits = SW_OVERFLOW | SW_ZERODIVIDE | SW_INVALID;

struct TypeInfo {
    QAnyValue::TYPE type;
    const char16_t* name;
    int rank;
    bool withUnits; // a number with a unit: money, time, the measures and rates
    int adoxType;   // the column type of database tables, 0 for none
};

constexpr TypeInfo kTypes[] = {
    {QAnyValue::TYPE_NA, u"#N/A", 0, false, 0},
    {QAnyValue::TYPE_ERROR, u"#ERR!", 0, false, 0},
    {QAnyValue::TYPE_EMPTY, u"<none>", 0, false, 0},
    {QAnyValue::TYPE_STRING, u"String", 0, false, 202},
    {QAnyValue::TYPE_BOOL, u"Yes or No", 1, false, 11},
    {QAnyValue::TYPE_INT, u"Whole Number", 2, false, 3},
    {QAnyValue::TYPE_DOUBLE, u"Number", 3, false, 5},
    {QAnyValue::TYPE_MONEY, u"Money", 6, true, 0},
    {QAnyValue::TYPE_TIME, u"Time", 6, true, 0},
    {QAnyValue::TYPE_LENGTH, u"Length", 6, true, 0},
    {QAnyValue::TYPE_AREA, u"Area", 7, true, 0},
    {QAnyValue::TYPE_ANGLE, u"Angle", 5, true, 0},
    {QAnyValue::TYPE_ARRAY, u"Array", 5, false, 0},
    {QAnyValue::TYPE_LOOKUPTABLE, u"Lookup Table", 10, false, 0},
    {QAnyValue::TYPE_DATETIME, u"Date and Time", 0, false, 0},
    {QAnyValue::TYPE_VOLUME, u"Volume", 6, true, 0},
    {QAnyValue::TYPE_RATE, u"Rate", 8, true, 0},
    {QAnyValue::TYPE_COLOR, u"Color", 9, false, 0},
};

const TypeInfo* FindType(QAnyValue::TYPE type) {
    for (const TypeInfo& info : kTypes)
        if (info.type == type)
            return &info;
    return nullptr;
}

std::int32_t WrappingAdd(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

std::int32_t WrappingSubtract(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

std::int32_t WrappingMultiply(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

int Sign(double difference) {
    return difference < 0 ? -1 : (difference > 0 ? 1 : 0);
}

template <class Unit>
void AddOrSubtractUnit(Unit& unit, const Unit& other, bool subtract) {
    if (subtract)
        unit -= other;
    else
        unit += other;
}

// Money and time by a whole number multiply exactly, by a number to the nearest raw unit.
template <class Counted>
void MultiplyCounted(Counted& amount, bool wholeFactor, int whole, double number) {
    if (wholeFactor)
        amount *= whole;
    else
        amount *= number;
}

// A whole number and a number, either way round.
bool IsWholeAndNumber(const QAnyValue& a, const QAnyValue& b) {
    return (a.IsInt() && b.IsDouble()) || (a.IsDouble() && b.IsInt());
}

template <class T>
int CompareOrdered(const T& a, const T& b) {
    if (a < b)
        return -1;
    if (b < a)
        return 1;
    return 0;
}

} // namespace

// --- Seams -------------------------------------------------------------------------------------

QTableHandleSource* SetTableHandleSource(QTableHandleSource* source) {
    return g_tableSource.exchange(source);
}

QTableHandleSource* GetTableHandleSource() {
    return g_tableSource.load();
}

// --- Floating-point faults ---------------------------------------------------------------------

QAnyValue::FPFaultScope::FPFaultScope() {
    ClearFPStatus();
}

QAnyValue::FPFaultScope::~FPFaultScope() {
    ClearFPStatus();
}

void QAnyValue::FPFaultScope::Restart() {
    ClearFPStatus();
}

bool QAnyValue::FPFaultScope::Faulted() const {
    return (ReadFPStatus() & kFaultBits) != 0;
}

CString QAnyValue::FPFaultScope::Message() const {
    const unsigned status = ReadFPStatus() & kFaultBits;
    CString message;
    for (const FPStatusText& entry : c_fpStatusTexts) {
        if ((status & entry.bit) == 0)
            continue;
        if (!message.IsEmpty())
            message += u", ";
        message += entry.text;
    }
    return message;
}

// --- Types -------------------------------------------------------------------------------------

CString QAnyValue::TypeToString(TYPE type) {
    const TypeInfo* info = FindType(type);
    return info ? CString(info->name) : CString(u"#EMPTY");
}

QAnyValue::TYPE QAnyValue::StringToType(const CString& name) {
    for (const TypeInfo& info : kTypes)
        if (name.CompareNoCase(info.name) == 0)
            return info.type;
    return TYPE_EMPTY;
}

QAnyValue::TYPE QAnyValue::IntToType(int number) {
    return number >= TYPE_EMPTY && number <= TYPE_COLOR ? static_cast<TYPE>(number) : TYPE_EMPTY;
}

int QAnyValue::TypeRank(TYPE type) {
    const TypeInfo* info = FindType(type);
    return info ? info->rank : 0;
}

int QAnyValue::CompareTypeWith(const QAnyValue& other) const {
    if (m_type < 0 || other.m_type < 0)
        return 0;
    return TypeRank(m_type) - TypeRank(other.m_type);
}

int QAnyValue::TypeToADOXEnum(TYPE type) {
    const TypeInfo* info = FindType(type);
    return info ? info->adoxType : 0;
}

bool QAnyValue::IsNumericWithUnitsType(TYPE type) {
    const TypeInfo* info = FindType(type);
    return info && info->withUnits;
}

// --- Storage -----------------------------------------------------------------------------------

void QAnyValue::ConstructDefault(TYPE type) {
    m_type = type;
    if (VisitObjectMember(type, [this](auto member) { std::construct_at(&(m_object.*member)); }))
        return;
    switch (type) {
    case TYPE_BOOL:
        m_scalar.m_bool = false;
        break;
    case TYPE_INT:
        m_scalar.m_int = 0;
        break;
    case TYPE_DOUBLE:
        m_scalar.m_double = 0;
        break;
    case TYPE_COLOR:
        m_scalar.m_color = 0;
        break;
    case TYPE_ARRAY:
        m_object.m_pArray = new QArray<QAnyValue>();
        break;
    case TYPE_RATE:
        m_scalar.m_pRate = new QRateValue();
        break;
    default:
        break;
    }
}

void QAnyValue::Destroy() noexcept {
    VisitObjectMember(m_type, [this](auto member) { std::destroy_at(&(m_object.*member)); });
    if (m_type == TYPE_ARRAY)
        delete m_object.m_pArray;
    else if (m_type == TYPE_RATE)
        delete m_scalar.m_pRate;
    m_type = TYPE_EMPTY;
}

void QAnyValue::CopyContentFrom(const QAnyValue& other) {
    m_type = other.m_type;
    if (VisitObjectMember(m_type, [this, &other](auto member) {
            std::construct_at(&(m_object.*member), other.m_object.*member);
        }))
        return;
    if (m_type == TYPE_ARRAY)
        m_object.m_pArray = new QArray<QAnyValue>(*other.m_object.m_pArray);
    else if (m_type == TYPE_RATE)
        m_scalar.m_pRate = new QRateValue(*other.m_scalar.m_pRate);
    else
        m_scalar = other.m_scalar;
}

void QAnyValue::MoveFrom(QAnyValue&& other) noexcept {
    m_type = other.m_type;
    switch (m_type) {
    case TYPE_ERROR:
    case TYPE_STRING:
        new (&m_object.m_string) CString(std::move(other.m_object.m_string));
        break;
    case TYPE_LOOKUPTABLE:
        new (&m_object.m_table) QTableHandlePtr(std::move(other.m_object.m_table));
        break;
    case TYPE_ARRAY:
        m_object.m_pArray = std::exchange(other.m_object.m_pArray, nullptr);
        other.m_type = TYPE_EMPTY;
        return;
    case TYPE_RATE:
        m_scalar.m_pRate = std::exchange(other.m_scalar.m_pRate, nullptr);
        other.m_type = TYPE_EMPTY;
        return;
    default:
        CopyContentFrom(other);
        break;
    }
    other.Destroy();
}

QAnyValue::QAnyValue(const CString& text) {
    m_type = TYPE_STRING;
    new (&m_object.m_string) CString(text);
}

QAnyValue::QAnyValue(const char16_t* text) : QAnyValue(CString(text)) {}

QAnyValue::QAnyValue(const char* utf8) : QAnyValue(CString::FromUtf8(utf8 ? utf8 : "")) {}

QAnyValue::QAnyValue(const QMoney& money) {
    m_type = TYPE_MONEY;
    new (&m_object.m_money) QMoney(money);
}

QAnyValue::QAnyValue(const QDateTime& date) {
    m_type = TYPE_DATETIME;
    new (&m_object.m_date) QDateTime(date);
}

QAnyValue::QAnyValue(const QTime& time) {
    m_type = TYPE_TIME;
    new (&m_object.m_time) QTime(time);
}

QAnyValue::QAnyValue(const QLength& length) {
    m_type = TYPE_LENGTH;
    new (&m_object.m_length) QLength(length);
}

QAnyValue::QAnyValue(const QArea& area) {
    m_type = TYPE_AREA;
    new (&m_object.m_area) QArea(area);
}

QAnyValue::QAnyValue(const QVolume& volume) {
    m_type = TYPE_VOLUME;
    new (&m_object.m_volume) QVolume(volume);
}

QAnyValue::QAnyValue(const QAngle& angle) {
    m_type = TYPE_ANGLE;
    new (&m_object.m_angle) QAngle(angle);
}

QAnyValue::QAnyValue(unsigned long color) {
    m_type = TYPE_COLOR;
    m_scalar.m_color = static_cast<std::uint32_t>(color);
}

QAnyValue::QAnyValue(int value) {
    m_type = TYPE_INT;
    m_scalar.m_int = value;
}

QAnyValue::QAnyValue(bool value) {
    m_type = TYPE_BOOL;
    m_scalar.m_bool = value;
}

QAnyValue::QAnyValue(double value) {
    m_type = TYPE_DOUBLE;
    m_scalar.m_double = value;
}

QAnyValue::QAnyValue(const QArray<QAnyValue>& elements) {
    m_type = TYPE_ARRAY;
    m_object.m_pArray = new QArray<QAnyValue>(elements);
}

QAnyValue::QAnyValue(const QTableHandlePtr& table) {
    m_type = TYPE_LOOKUPTABLE;
    new (&m_object.m_table) QTableHandlePtr(table);
}

QAnyValue::QAnyValue(const QRateValue& rate) {
    const QAnyValue& numerator = rate.Num();
    const QAnyValue& denominator = rate.Den();
    if (!numerator.IsRate() && !denominator.IsRate() && CanDiv(numerator, denominator)) {
        CopyContentFrom(numerator);
        *this /= denominator;
        return;
    }
    m_type = TYPE_RATE;
    m_scalar.m_pRate = new QRateValue(rate);
}

QAnyValue::QAnyValue(const QAnyValue* values, int count) {
    m_type = TYPE_ARRAY;
    m_object.m_pArray = new QArray<QAnyValue>();
    for (int i = 0; i < count; ++i)
        m_object.m_pArray->Add(values[i]);
}

QAnyValue::QAnyValue(QAnyValue&& other) noexcept {
    MoveFrom(std::move(other));
}

QAnyValue& QAnyValue::AssignFrom(const QAnyValue& other) {
    if (this == &other)
        return *this;
    if (m_type != other.m_type || m_type == TYPE_ARRAY || m_type == TYPE_RATE) {
        // `other` may live inside this value's array or rate: copy it before letting go.
        QAnyValue copy(other);
        return *this = std::move(copy);
    }
    if (!VisitObjectMember(
            m_type, [this, &other](auto member) { m_object.*member = other.m_object.*member; }))
        m_scalar = other.m_scalar;
    return *this;
}

QAnyValue& QAnyValue::operator=(QAnyValue&& other) noexcept {
    if (this == &other)
        return *this;
    // `other` may live inside this value's array or rate: take it out before letting go.
    QAnyValue taken(std::move(other));
    Destroy();
    MoveFrom(std::move(taken));
    return *this;
}

void QAnyValue::SetType(TYPE type) {
    if (type == m_type)
        return;
    Destroy();
    ConstructDefault(type);
}

void QAnyValue::Clear() {
    Destroy();
}

void QAnyValue::SetBool(bool value) {
    SetType(TYPE_BOOL);
    m_scalar.m_bool = value;
}

void QAnyValue::SetInt(int value) {
    SetType(TYPE_INT);
    m_scalar.m_int = value;
}

void QAnyValue::SetDouble(double value) {
    SetType(TYPE_DOUBLE);
    m_scalar.m_double = value;
}

void QAnyValue::SetColor(std::uint32_t color) {
    SetType(TYPE_COLOR);
    m_scalar.m_color = color;
}

bool QAnyValue::IsEmptyOrEmptyString() const {
    return IsEmpty() || (IsString() && m_object.m_string.IsEmpty());
}

int QAnyValue::GetSize() const {
    return IsArray() ? m_object.m_pArray->GetCount() : 1;
}

// --- Error, not-available and empty ------------------------------------------------------------

CString QAnyValue::MakeError(const CString& message) {
    SetType(TYPE_ERROR);
    m_object.m_string = message;
    return message;
}

CString QAnyValue::MakeError() {
    ChangeType(TYPE_ERROR);
    return m_object.m_string;
}

bool QAnyValue::IsErrorAndGetMessage(CString& message) const {
    if (!IsError()) {
        message.Empty();
        return false;
    }
    message = m_object.m_string;
    return true;
}

void QAnyValue::MakeNA() {
    SetType(TYPE_NA);
}

bool QAnyValue::ApplyErrorRule(const QAnyValue& argument) {
    if (IsErrorOrNA())
        return true;
    if (!argument.IsErrorOrNA())
        return false;
    *this = argument;
    return true;
}

bool QAnyValue::ApplyArrayRule(const QAnyValue& argument,
                               QAnyValue& (QAnyValue::*operation)(const QAnyValue&)) {
    if (!IsArray() && !argument.IsArray())
        return false;
    QAnyValue other(argument);
    ExtendArrays(*this, other);
    QArray<QAnyValue>& mine = *m_object.m_pArray;
    const QArray<QAnyValue>& theirs = *other.m_object.m_pArray;
    if (mine.GetCount() != theirs.GetCount()) {
        mine.RemoveAll();
        return true;
    }
    for (int i = 0; i < mine.GetCount(); ++i)
        (mine[i].*operation)(theirs[i]);
    return true;
}

bool QAnyValue::ApplyArrayRule(QAnyValue& (QAnyValue::*operation)()) {
    if (!IsArray())
        return false;
    for (QAnyValue& element : *m_object.m_pArray)
        (element.*operation)();
    return true;
}

int QAnyValue::ExtendArrays(QAnyValue& a, QAnyValue& b) {
    const int count = std::max(a.GetSize(), b.GetSize());
    a.ExtendArray(count);
    b.ExtendArray(count);
    return count;
}

int QAnyValue::ExtendArrays(QAnyValue& a, QAnyValue& b, QAnyValue& c) {
    const int count = std::max({a.GetSize(), b.GetSize(), c.GetSize()});
    a.ExtendArray(count);
    b.ExtendArray(count);
    c.ExtendArray(count);
    return count;
}

int QAnyValue::ExtendArrays(QAnyValue& a, QAnyValue& b, QAnyValue& c, QAnyValue& d) {
    const int count = std::max({a.GetSize(), b.GetSize(), c.GetSize(), d.GetSize()});
    a.ExtendArray(count);
    b.ExtendArray(count);
    c.ExtendArray(count);
    d.ExtendArray(count);
    return count;
}

void QAnyValue::ExtendArray(int count) {
    if (count <= 0)
        return;
    QArray<QAnyValue>& elements = MakeArray();
    if (elements.IsEmpty() || elements.GetCount() >= count)
        return;
    const QAnyValue last = elements.GetTail();
    elements.InsertAt(elements.GetCount(), last, count - elements.GetCount());
}

// --- Conversion in place -----------------------------------------------------------------------

bool QAnyValue::MakeBool() {
    if (!IsBool())
        ChangeType(TYPE_BOOL);
    return IsBool() && m_scalar.m_bool;
}

int QAnyValue::MakeInt() {
    if (!IsInt())
        ChangeType(TYPE_INT);
    return IsInt() ? m_scalar.m_int : 0;
}

unsigned char QAnyValue::MakeByte() {
    return static_cast<unsigned char>(MakeInt());
}

double QAnyValue::MakeDouble() {
    if (!IsDouble())
        ChangeType(TYPE_DOUBLE);
    return IsDouble() ? m_scalar.m_double : 0.0;
}

CString QAnyValue::MakeCString() {
    if (IsErrorOrNA())
        return IsError() ? u"#ERR!" : u"#N/A";
    ChangeType(TYPE_STRING);
    return m_object.m_string;
}

QMoney QAnyValue::MakeMoney() {
    if (!IsMoney())
        ChangeType(TYPE_MONEY);
    return IsMoney() ? m_object.m_money : QMoney();
}

QTime QAnyValue::MakeTime() {
    if (!IsTime())
        ChangeType(TYPE_TIME);
    return IsTime() ? m_object.m_time : QTime();
}

QLength QAnyValue::MakeLength() {
    if (!IsLength())
        ChangeType(TYPE_LENGTH);
    return IsLength() ? m_object.m_length : QLength();
}

QArea QAnyValue::MakeArea() {
    if (!IsArea())
        ChangeType(TYPE_AREA);
    return IsArea() ? m_object.m_area : QArea();
}

QVolume QAnyValue::MakeVolume() {
    if (!IsVolume())
        ChangeType(TYPE_VOLUME);
    return IsVolume() ? m_object.m_volume : QVolume();
}

QAngle QAnyValue::MakeAngle() {
    if (!IsAngle())
        ChangeType(TYPE_ANGLE);
    return IsAngle() ? m_object.m_angle : QAngle();
}

QDateTime QAnyValue::MakeDateTime() {
    if (!IsDateTime())
        ChangeType(TYPE_DATETIME);
    return IsDateTime() ? m_object.m_date : QDateTime();
}

unsigned long QAnyValue::MakeColor() {
    if (!IsColor())
        ChangeType(TYPE_COLOR);
    return IsColor() ? m_scalar.m_color : 0;
}

QArray<QAnyValue>& QAnyValue::MakeArray() {
    if (!IsArray())
        ChangeType(TYPE_ARRAY);
    return *m_object.m_pArray;
}

QRateValue& QAnyValue::MakeRate() {
    if (!IsRate())
        ChangeType(TYPE_RATE);
    if (IsRate())
        return *m_scalar.m_pRate;
    MakeError(u"Cannot convert to a rate");
    thread_local QRateValue emptyRate;
    emptyRate = QRateValue();
    return emptyRate;
}

QTableHandlePtr QAnyValue::MakeLookupTable() {
    if (IsLookupTable())
        return m_object.m_table;
    if (IsErrorOrNA())
        return QTableHandlePtr();
    const CString name = IsString() ? m_object.m_string : CString();
    ChangeType(TYPE_LOOKUPTABLE);
    if (IsLookupTable())
        return m_object.m_table;
    MakeError(u"Cannot find lookup table " + name);
    return QTableHandlePtr();
}

QTableHandlePtr QAnyValue::MakeLookupTableNoError() {
    if (IsLookupTable())
        return m_object.m_table;
    if (!IsString())
        return MakeLookupTable();
    CString error;
    QTableHandlePtr table = OpenTable(m_object.m_string, false, error);
    if (table)
        *this = QAnyValue(table);
    return table;
}

QTableHandlePtr QAnyValue::OpenTable(const CString& name, bool reportErrors, CString& error) {
    QTableHandleSource* source = GetTableHandleSource();
    if (!source) {
        error = u"No lookup tables available";
        return QTableHandlePtr();
    }
    return source->Open(name, reportErrors, error);
}

void QAnyValue::MakeSameTypeAs(const QAnyValue& other) {
    ChangeType(other.m_type);
}

template <class Op>
QAnyValue& QAnyValue::ForEachElement(Op op) {
    if (!IsArray()) {
        op(*this);
        return *this;
    }
    for (QAnyValue& element : *m_object.m_pArray)
        element.ForEachElement(op);
    return *this;
}

QAnyValue& QAnyValue::MakeAllCString() {
    return ForEachElement([](QAnyValue& v) { v.MakeCString(); });
}

QAnyValue& QAnyValue::MakeAllMoney() {
    return ForEachElement([](QAnyValue& v) { v.MakeMoney(); });
}

QAnyValue& QAnyValue::MakeAllTime() {
    return ForEachElement([](QAnyValue& v) { v.MakeTime(); });
}

QAnyValue& QAnyValue::MakeAllDateTime() {
    return ForEachElement([](QAnyValue& v) { v.MakeDateTime(); });
}

QAnyValue& QAnyValue::MakeAllLength() {
    return ForEachElement([](QAnyValue& v) { v.MakeLength(); });
}

QAnyValue& QAnyValue::MakeAllArea() {
    return ForEachElement([](QAnyValue& v) { v.MakeArea(); });
}

QAnyValue& QAnyValue::MakeAllVolume() {
    return ForEachElement([](QAnyValue& v) { v.MakeVolume(); });
}

QAnyValue& QAnyValue::MakeAllRate() {
    return ForEachElement([](QAnyValue& v) { v.MakeRate(); });
}

QAnyValue& QAnyValue::MakeAllAngle() {
    return ForEachElement([](QAnyValue& v) { v.MakeAngle(); });
}

QAnyValue& QAnyValue::MakeAllBool() {
    return ForEachElement([](QAnyValue& v) { v.MakeBool(); });
}

QAnyValue& QAnyValue::MakeAllInt() {
    return ForEachElement([](QAnyValue& v) { v.MakeInt(); });
}

QAnyValue& QAnyValue::MakeAllDouble() {
    return ForEachElement([](QAnyValue& v) { v.MakeDouble(); });
}

QAnyValue& QAnyValue::MakeAllError() {
    return ForEachElement([](QAnyValue& v) { v.MakeError(); });
}

QAnyValue& QAnyValue::MakeAllNA() {
    return ForEachElement([](QAnyValue& v) { v.MakeNA(); });
}

QAnyValue& QAnyValue::MakeAllEmpty() {
    return ForEachElement([](QAnyValue& v) { v.MakeEmpty(); });
}

QAnyValue& QAnyValue::MakeAllLookupTable() {
    return ForEachElement([](QAnyValue& v) { v.MakeLookupTable(); });
}

QAnyValue& QAnyValue::MakeAllNumeric() {
    return ForEachElement([](QAnyValue& v) { v.MakeNumeric(); });
}

QAnyValue& QAnyValue::MakeAllArray() {
    return ForEachElement([](QAnyValue& v) { v.MakeArray(); });
}

void QAnyValue::MakeNumeric() {
    if (IsNumeric() || IsEmpty() || IsErrorOrNA())
        return;
    if (IsString())
        EvaluateStringAsNumber();
    if (!IsNumeric() && !IsErrorOrNA())
        ChangeType(TYPE_DOUBLE);
}

void QAnyValue::EvaluateStringAsNumber() {
    for (int step = 0; IsString(); ++step) {
        const CString text = m_object.m_string;
        if (step == kMaxFormulaChain) {
            MakeError(u"Could not evaluate formula (looping)\n" + text);
            return;
        }
        const FormulaText formula(text);
        if (formula.IsEmpty()) {
            SetInt(0);
            return;
        }
        QAnyValue result;
        if (!EvaluateFormula(formula, nullptr, result)) {
            MakeError(u"Could not evaluate formula\n" + formula.ToString());
            return;
        }
        if (result.IsString() && result.m_object.m_string == text) {
            MakeError(u"Could not evaluate formula (looping)\n" + text);
            return;
        }
        *this = std::move(result);
    }
}

// --- Text forms --------------------------------------------------------------------------------

CString QAnyValue::InsertEscapeSequences(const CString& text) {
    CString escaped;
    for (const char16_t ch : text.View()) {
        switch (ch) {
        case u'\\':
            escaped += u"\\\\";
            break;
        case u'\n':
            escaped += u"\\n";
            break;
        case u'\r':
            escaped += u"\\r";
            break;
        case u'\t':
            escaped += u"\\t";
            break;
        default:
            escaped += ch;
            break;
        }
    }
    return escaped;
}

CString QAnyValue::InsertEscapesDoubleQuotesAndEnclose(const CString& text) {
    CString result = InsertEscapeSequences(text);
    result.Replace(CString(u"\""), CString(u"\"\""));
    return CString(u'"') + result + u'"';
}

CString QAnyValue::AsFormulaText() const {
    if (IsString())
        return InsertEscapesDoubleQuotesAndEnclose(m_object.m_string);
    const CString text = Format();
    if (IsDateTime()) {
        const char16_t quote = text.Find(u'"') >= 0 ? u'\'' : u'"';
        return quote + text + quote;
    }
    return text;
}

FormulaText QAnyValue::AsFormula() const {
    return FormulaText(AsFormulaText());
}

CString QAnyValue::AsStringOrFormula() const {
    return IsString() ? m_object.m_string : AsFormulaText();
}

CString QAnyValue::Format() const {
    QAnyValue copy(*this);
    return copy.MakeCString();
}

CString QAnyValue::AsCrystalFormula() const {
    if (IsNA())
        return u"\"#N/A\"";
    if (IsString()) {
        CString doubled = m_object.m_string;
        doubled.Replace(CString(u"\""), CString(u"\"\""));
        return u"\"" + doubled + u"\"";
    }
    QAnyValue copy(*this);
    if (copy.IsNumericWithUnits())
        copy.ChangeType(TYPE_DOUBLE);
    return copy.MakeCString();
}

// --- Truth -------------------------------------------------------------------------------------

bool QAnyValue::IsTRUE() const {
    switch (m_type) {
    case TYPE_ERROR:
    case TYPE_NA:
    case TYPE_EMPTY:
        return false;
    case TYPE_BOOL:
        return m_scalar.m_bool;
    case TYPE_ARRAY:
        for (const QAnyValue& element : *m_object.m_pArray)
            if (!element.IsTRUE())
                return false;
        return true;
    default: {
        QAnyValue copy(*this);
        return copy.MakeBool();
    }
    }
}

bool QAnyValue::IsFALSE() const {
    switch (m_type) {
    case TYPE_ERROR:
    case TYPE_NA:
        return false;
    case TYPE_EMPTY:
        return true;
    case TYPE_BOOL:
        return !m_scalar.m_bool;
    case TYPE_ARRAY:
        for (const QAnyValue& element : *m_object.m_pArray)
            if (!element.IsFALSE())
                return false;
        return true;
    default: {
        QAnyValue copy(*this);
        const bool value = copy.MakeBool();
        return copy.IsBool() && !value;
    }
    }
}

bool QAnyValue::IsZero() const {
    switch (m_type) {
    case TYPE_ERROR:
    case TYPE_NA:
        return false;
    case TYPE_BOOL:
        return !m_scalar.m_bool;
    case TYPE_ARRAY:
        for (const QAnyValue& element : *m_object.m_pArray)
            if (!element.IsZero())
                return false;
        return true;
    case TYPE_STRING:
        return m_object.m_string.IsEmpty() || m_object.m_string == u"0";
    case TYPE_INT:
        return m_scalar.m_int == 0;
    case TYPE_DOUBLE:
        return m_scalar.m_double == 0;
    case TYPE_COLOR:
        return m_scalar.m_color == 0;
    case TYPE_MONEY:
        return m_object.m_money.GetRaw() == 0;
    case TYPE_TIME:
        return m_object.m_time.GetRaw() == 0;
    case TYPE_LENGTH:
        return m_object.m_length.IsZero();
    case TYPE_AREA:
        return m_object.m_area.IsZero();
    case TYPE_VOLUME:
        return m_object.m_volume.IsZero();
    case TYPE_ANGLE:
        return m_object.m_angle.IsZero();
    case TYPE_DATETIME:
        return m_object.m_date.GetOleDate() == 0;
    case TYPE_RATE:
        return m_scalar.m_pRate->IsZero();
    case TYPE_LOOKUPTABLE:
        return !m_object.m_table;
    default:
        return true;
    }
}

QAnyValue& QAnyValue::TRUEit() {
    if (!IsErrorOrNA())
        SetBool(IsTRUE());
    return *this;
}

QAnyValue& QAnyValue::FALSEit() {
    if (!IsErrorOrNA())
        SetBool(IsFALSE());
    return *this;
}

QAnyValue& QAnyValue::TRUEFALSEit(int truth) {
    if (IsErrorOrNA())
        return *this;
    if (IsArray()) {
        for (QAnyValue& element : *m_object.m_pArray)
            element.TRUEFALSEit(truth);
        return *this;
    }
    SetBool(truth != 0);
    return *this;
}

// --- Arithmetic --------------------------------------------------------------------------------

QAnyValue& QAnyValue::operator+=(const QAnyValue& other) {
    AddOrSubtract(other, false);
    return *this;
}

QAnyValue& QAnyValue::operator-=(const QAnyValue& other) {
    AddOrSubtract(other, true);
    return *this;
}

void QAnyValue::AddOrSubtract(const QAnyValue& other, bool subtract) {
    if (m_type == other.m_type && IsNumeric()) {
        AddSameType(other, subtract);
        return;
    }
    if (IsWholeAndNumber(*this, other)) {
        // The whole number is promoted to a number, as below, by the same steps.
        const double number = other.IsInt() ? other.m_scalar.m_int : other.m_scalar.m_double;
        SetDouble(IsInt() ? m_scalar.m_int : m_scalar.m_double);
        m_scalar.m_double += subtract ? -number : number;
        return;
    }
    if (ApplyErrorRule(other))
        return;
    if (ApplyArrayRule(other, subtract ? &QAnyValue::operator-= : &QAnyValue::operator+=))
        return;
    if (AddDateOrTime(other, subtract))
        return;
    QAnyValue b(other);
    MakeNumeric();
    b.MakeNumeric();
    PromoteToSameType(*this, b);
    if (m_type != b.m_type) {
        MakeError(subtract ? u"Cannot - when types do not match"
                           : u"Cannot + when types do not match");
        return;
    }
    AddSameType(b, subtract);
}

bool QAnyValue::AddDateOrTime(const QAnyValue& other, bool subtract) {
    if (IsDateTime()) {
        if (subtract && other.IsDateTime()) {
            const QTime span = m_object.m_date - other.m_object.m_date;
            *this = QAnyValue(span);
            return true;
        }
        QAnyValue span(other);
        span.MakeTime();
        if (!span.IsTime()) {
            *this = std::move(span);
            return true;
        }
        if (subtract)
            m_object.m_date = m_object.m_date - span.m_object.m_time;
        else
            m_object.m_date = m_object.m_date + span.m_object.m_time;
        return true;
    }
    if (subtract || !other.IsDateTime())
        return false;
    MakeTime();
    if (IsTime())
        *this = QAnyValue(other.m_object.m_date + m_object.m_time);
    return true;
}

void QAnyValue::AddSameType(const QAnyValue& other, bool subtract) {
    if (VisitUnitMember(m_type, [this, &other, subtract](auto member) {
            AddOrSubtractUnit(m_object.*member, other.m_object.*member, subtract);
        }))
        return;
    switch (m_type) {
    case TYPE_INT:
        m_scalar.m_int = subtract ? WrappingSubtract(m_scalar.m_int, other.m_scalar.m_int)
                                  : WrappingAdd(m_scalar.m_int, other.m_scalar.m_int);
        break;
    case TYPE_DOUBLE:
        m_scalar.m_double += subtract ? -other.m_scalar.m_double : other.m_scalar.m_double;
        break;
    case TYPE_RATE: {
        QRateValue sum = *m_scalar.m_pRate;
        if (subtract)
            sum -= *other.m_scalar.m_pRate;
        else
            sum += *other.m_scalar.m_pRate;
        *this = QAnyValue(sum);
        break;
    }
    case TYPE_ERROR:
    case TYPE_NA:
        break;
    default:
        MakeError(subtract ? u"Cannot - when not numeric" : u"Cannot + when not numeric");
        break;
    }
}

QAnyValue& QAnyValue::operator*=(const QAnyValue& other) {
    if (m_type == other.m_type && IsSimpleNumeric()) {
        if (IsInt())
            m_scalar.m_int = WrappingMultiply(m_scalar.m_int, other.m_scalar.m_int);
        else
            m_scalar.m_double *= other.m_scalar.m_double;
        return *this;
    }
    if (IsWholeAndNumber(*this, other)) {
        // What MultiplyByNumber does with the two.
        const double number = other.IsInt() ? other.m_scalar.m_int : other.m_scalar.m_double;
        SetDouble(IsInt() ? m_scalar.m_int : m_scalar.m_double);
        m_scalar.m_double *= number;
        return *this;
    }
    if (other.IsSimpleNumeric() && IsNumericWithUnits() && !IsRate()) {
        MultiplyByNumber(other);
        return *this;
    }
    if (ApplyErrorRule(other))
        return *this;
    if (ApplyArrayRule(other, &QAnyValue::operator*=))
        return *this;
    QAnyValue b(other);
    MakeNumeric();
    b.MakeNumeric();
    if (!ApplyErrorRule(b))
        MultiplyNumeric(b);
    return *this;
}

void QAnyValue::MultiplyNumeric(QAnyValue& other) {
    if (!IsNumeric() || !other.IsNumeric()) {
        MakeError(u"Cannot * when not numeric");
        return;
    }
    if (IsRate() || other.IsRate()) {
        QRateValue product = MakeRate();
        product *= other.MakeRate();
        *this = QAnyValue(product);
        return;
    }
    if (MultiplyOrDivideUnits(other, false))
        return;
    if (IsNumericWithUnits() && other.IsNumericWithUnits()) {
        MakeDouble();
        other.MakeDouble();
    }
    if (other.IsNumericWithUnits()) {
        other.MultiplyByNumber(*this);
        *this = std::move(other);
        return;
    }
    MultiplyByNumber(other);
}

void QAnyValue::MultiplyByNumber(const QAnyValue& factor) {
    if (IsInt() && factor.IsDouble())
        SetDouble(m_scalar.m_int);
    const double number = factor.IsInt() ? factor.m_scalar.m_int : factor.m_scalar.m_double;
    switch (m_type) {
    case TYPE_INT:
        m_scalar.m_int = WrappingMultiply(m_scalar.m_int, factor.m_scalar.m_int);
        break;
    case TYPE_DOUBLE:
        m_scalar.m_double *= number;
        break;
    case TYPE_MONEY:
        MultiplyCounted(m_object.m_money, factor.IsInt(), factor.m_scalar.m_int, number);
        break;
    case TYPE_TIME:
        MultiplyCounted(m_object.m_time, factor.IsInt(), factor.m_scalar.m_int, number);
        break;
    case TYPE_LENGTH:
        m_object.m_length *= number;
        break;
    case TYPE_AREA:
        m_object.m_area *= number;
        break;
    case TYPE_VOLUME:
        m_object.m_volume *= number;
        break;
    case TYPE_ANGLE:
        m_object.m_angle.SetRaw(m_object.m_angle.GetRaw() * number);
        m_object.m_angle.Normalize();
        break;
    default:
        MakeError(u"Cannot * when not numeric");
        break;
    }
}

// Length by length is an area, length by area a volume; area over length is a length, volume
// over length an area, volume over area a length. Raw units are mm, m² and m³.
bool QAnyValue::MultiplyOrDivideUnits(const QAnyValue& other, bool divide) {
    const TYPE a = m_type;
    const TYPE b = other.m_type;
    if (!divide) {
        if (a == TYPE_LENGTH && b == TYPE_LENGTH) {
            *this =
                QArea::FromRaw(m_object.m_length.GetRaw() * other.m_object.m_length.GetRaw() / 1e6);
            return true;
        }
        if ((a == TYPE_LENGTH && b == TYPE_AREA) || (a == TYPE_AREA && b == TYPE_LENGTH)) {
            const double mm =
                a == TYPE_LENGTH ? m_object.m_length.GetRaw() : other.m_object.m_length.GetRaw();
            const double squareMetres =
                a == TYPE_AREA ? m_object.m_area.GetRaw() : other.m_object.m_area.GetRaw();
            *this = QVolume::FromRaw(mm / 1000 * squareMetres);
            return true;
        }
        return false;
    }
    if (a == TYPE_AREA && b == TYPE_LENGTH) {
        *this = QLength::FromRaw(m_object.m_area.GetRaw() * 1e6 / other.m_object.m_length.GetRaw());
        return true;
    }
    if (a == TYPE_VOLUME && b == TYPE_LENGTH) {
        *this =
            QArea::FromRaw(m_object.m_volume.GetRaw() * 1000 / other.m_object.m_length.GetRaw());
        return true;
    }
    if (a == TYPE_VOLUME && b == TYPE_AREA) {
        *this =
            QLength::FromRaw(m_object.m_volume.GetRaw() / other.m_object.m_area.GetRaw() * 1000);
        return true;
    }
    return false;
}

QAnyValue& QAnyValue::operator/=(const QAnyValue& other) {
    if (ApplyErrorRule(other))
        return *this;
    if (ApplyArrayRule(other, &QAnyValue::operator/=))
        return *this;
    QAnyValue b(other);
    try {
        MakeNumeric();
        b.MakeNumeric();
        if (ApplyErrorRule(b))
            return *this;
        if (b.IsZero()) {
            MakeError(u"Division by zero");
            return *this;
        }
        FPFaultScope faults;
        DivideNumeric(b);
        if (faults.Faulted())
            MakeError(u"Cannot /, " + faults.Message());
    } catch (const CException& failure) {
        MakeError(u"Cannot / due to " + CString::FromUtf8(failure.what()));
    }
    return *this;
}

void QAnyValue::DivideNumeric(QAnyValue& other) {
    if (IsRate() || other.IsRate()) {
        if (!IsNumeric() || !other.IsNumeric()) {
            MakeError(u"Cannot / when not numeric");
            return;
        }
        QRateValue quotient = MakeRate();
        quotient /= other.MakeRate();
        *this = QAnyValue(quotient);
        return;
    }
    if (MultiplyOrDivideUnits(other, true))
        return;
    if (IsSimpleNumeric() && other.IsSimpleNumeric()) {
        const double dividend = MakeDouble();
        SetDouble(dividend / other.MakeDouble());
        return;
    }
    if (other.IsSimpleNumeric()) {
        DivideByNumber(other);
        return;
    }
    if (m_type == other.m_type) {
        if (IsNumericWithUnits())
            SetDouble(RawNumber() / other.RawNumber());
        else
            MakeError(u"Cannot / when not numeric");
        return;
    }
    if (IsNumericWithUnits() && other.IsNumericWithUnits()) {
        *this = QAnyValue(QRateValue(*this, other));
        return;
    }
    MakeError(u"Cannot / when not same type");
}

void QAnyValue::DivideByNumber(const QAnyValue& divisor) {
    const double number = divisor.IsInt() ? divisor.m_scalar.m_int : divisor.m_scalar.m_double;
    switch (m_type) {
    case TYPE_MONEY:
        m_object.m_money /= number;
        break;
    case TYPE_TIME:
        m_object.m_time /= number;
        break;
    case TYPE_LENGTH:
        m_object.m_length /= number;
        break;
    case TYPE_AREA:
        m_object.m_area /= number;
        break;
    case TYPE_VOLUME:
        m_object.m_volume /= number;
        break;
    case TYPE_ANGLE:
        m_object.m_angle.SetRaw(m_object.m_angle.GetRaw() / number);
        m_object.m_angle.Normalize();
        break;
    default:
        MakeError(u"Cannot / when not numeric");
        break;
    }
}

// The raw number of a unit type: cents, seconds, mm, m², m³ or degrees.
double QAnyValue::RawNumber() const {
    double raw = 0;
    if (VisitUnitMember(m_type, [this, &raw](auto member) { raw = (m_object.*member).GetRaw(); }))
        return raw;
    return m_type == TYPE_RATE ? Double(*m_scalar.m_pRate) : 0;
}

QAnyValue& QAnyValue::PERCENTit() {
    if (ApplyErrorRule() || ApplyArrayRule(&QAnyValue::PERCENTit))
        return *this;
    ChangeType(TYPE_DOUBLE);
    if (!IsDouble()) {
        MakeError(u"Cannot PERCENT() when not numeric");
        return *this;
    }
    m_scalar.m_double /= 100;
    return *this;
}

QAnyValue QAnyValue::PERCENT() const {
    QAnyValue copy(*this);
    return copy.PERCENTit();
}

QAnyValue& QAnyValue::NOTit() {
    if (ApplyErrorRule() || ApplyArrayRule(&QAnyValue::NOTit))
        return *this;
    const bool value = MakeBool();
    if (IsBool())
        m_scalar.m_bool = !value;
    return *this;
}

QAnyValue QAnyValue::operator!() const {
    QAnyValue copy(*this);
    return copy.NOTit();
}

QAnyValue& QAnyValue::NEGit() {
    if (ApplyErrorRule() || ApplyArrayRule(&QAnyValue::NEGit))
        return *this;
    if (VisitUnitMember(m_type, [this](auto member) { m_object.*member = -(m_object.*member); }))
        return *this;
    switch (m_type) {
    case TYPE_INT:
        m_scalar.m_int = WrappingSubtract(0, m_scalar.m_int);
        break;
    case TYPE_DOUBLE:
        m_scalar.m_double = -m_scalar.m_double;
        break;
    case TYPE_RATE:
        *m_scalar.m_pRate = -*m_scalar.m_pRate;
        break;
    default:
        MakeError(u"Cannot negate when not numeric");
        break;
    }
    return *this;
}

QAnyValue QAnyValue::NEG() const {
    QAnyValue copy(*this);
    return copy.NEGit();
}

// --- Promotion ---------------------------------------------------------------------------------

namespace {

// Both become errors; a side that was no error takes the message of the other.
void MakeBothErrors(QAnyValue& a, QAnyValue& b) {
    CString message;
    if (!a.IsErrorAndGetMessage(message))
        b.IsErrorAndGetMessage(message);
    if (!a.IsError())
        a.MakeError(message);
    if (!b.IsError())
        b.MakeError(message);
}

} // namespace

void QAnyValue::PromoteToSameType(QAnyValue& a, QAnyValue& b) {
    if (a.m_type == b.m_type)
        return;
    if (a.IsArray() || b.IsArray()) {
        ExtendArrays(a, b);
        QArray<QAnyValue>& first = *a.m_object.m_pArray;
        QArray<QAnyValue>& second = *b.m_object.m_pArray;
        if (first.GetCount() == second.GetCount())
            for (int i = 0; i < first.GetCount(); ++i)
                PromoteToSameType(first[i], second[i]);
        return;
    }
    if (a.IsError() || b.IsError()) {
        MakeBothErrors(a, b);
        return;
    }
    if (a.IsNA() || b.IsNA()) {
        (a.IsNA() ? b : a).MakeNA();
        return;
    }
    if (a.IsRate() || b.IsRate())
        return;
    if (a.IsEmpty())
        a.ChangeType(b.m_type);
    else if (b.IsEmpty())
        b.ChangeType(a.m_type);
    else if (a.IsNumericWithUnits() && b.IsNumericWithUnits()) {
        a.MakeError(u"Units not compatible");
        b.MakeError(u"Units not compatible");
    } else if (a.IsSimpleNumeric() && b.IsString()) {
        a.ChangeType(TYPE_DOUBLE);
        b.ChangeTypeFromString(TYPE_DOUBLE, true);
    } else if (b.IsSimpleNumeric() && a.IsString()) {
        b.ChangeType(TYPE_DOUBLE);
        a.ChangeTypeFromString(TYPE_DOUBLE, true);
    } else if (a.IsNumericWithUnits())
        b.ChangeType(a.m_type);
    else if (b.IsNumericWithUnits())
        a.ChangeType(b.m_type);
    else if (a.CompareTypeWith(b) < 0)
        a.ChangeType(b.m_type);
    else
        b.ChangeType(a.m_type);
    if (a.m_type != b.m_type)
        MakeBothErrors(a, b);
}

bool QAnyValue::CanDiv(const QAnyValue& numerator, const QAnyValue& denominator) {
    if (!numerator.IsNumeric() || !denominator.IsNumeric() || numerator.IsRate() ||
        denominator.IsRate() || denominator.IsZero())
        return false;
    const TYPE a = numerator.m_type;
    const TYPE b = denominator.m_type;
    return denominator.IsSimpleNumeric() || a == b || (a == TYPE_AREA && b == TYPE_LENGTH) ||
           (a == TYPE_VOLUME && b == TYPE_LENGTH) || (a == TYPE_VOLUME && b == TYPE_AREA);
}

// --- Comparison --------------------------------------------------------------------------------

int QAnyValue::Compare(const QAnyValue& other, bool& failed) const {
    failed = false;
    if (m_type == other.m_type && m_type != TYPE_ARRAY && m_type != TYPE_RATE)
        return CompareSameType(other, failed);
    QAnyValue a(*this);
    QAnyValue b(other);
    PromoteToSameType(a, b);
    if (a.m_type != b.m_type) {
        failed = true;
        return 0;
    }
    return a.CompareSameType(b, failed);
}

int QAnyValue::CompareStrings(const CString& a, const CString& b) {
    return UseCompareNoCase() ? a.CompareNoCase(b) : a.Compare(b);
}

int QAnyValue::CompareSameType(const QAnyValue& other, bool& failed) const {
    switch (m_type) {
    case TYPE_EMPTY:
        return 0;
    case TYPE_STRING:
        return Sign(CompareStrings(m_object.m_string, other.m_object.m_string));
    case TYPE_BOOL:
        return CompareOrdered(m_scalar.m_bool, other.m_scalar.m_bool);
    case TYPE_INT:
        return CompareOrdered(m_scalar.m_int, other.m_scalar.m_int);
    case TYPE_DOUBLE:
        return CompareOrdered(m_scalar.m_double, other.m_scalar.m_double);
    case TYPE_COLOR:
        return CompareOrdered(m_scalar.m_color, other.m_scalar.m_color);
    case TYPE_MONEY:
        return CompareOrdered(m_object.m_money.GetRaw(), other.m_object.m_money.GetRaw());
    case TYPE_TIME:
        return CompareOrdered(m_object.m_time.GetRaw(), other.m_object.m_time.GetRaw());
    case TYPE_DATETIME:
        return CompareOrdered(m_object.m_date, other.m_object.m_date);
    case TYPE_LENGTH:
        return CompareOrdered(m_object.m_length, other.m_object.m_length);
    case TYPE_AREA:
        return CompareOrdered(m_object.m_area, other.m_object.m_area);
    case TYPE_VOLUME:
        return CompareOrdered(m_object.m_volume, other.m_object.m_volume);
    case TYPE_ANGLE:
        return CompareOrdered(m_object.m_angle, other.m_object.m_angle);
    case TYPE_RATE:
        return CompareRates(*m_scalar.m_pRate, *other.m_scalar.m_pRate, failed);
    case TYPE_ARRAY:
        return CompareArrays(*m_object.m_pArray, *other.m_object.m_pArray, failed);
    case TYPE_LOOKUPTABLE:
        return SameTable(m_object.m_table, other.m_object.m_table) ? 0 : 1;
    default:
        failed = true;
        return 0;
    }
}

int QAnyValue::CompareRates(const QRateValue& a, const QRateValue& b, bool& failed) {
    bool numeratorsFailed = false;
    bool denominatorsFailed = false;
    a.Num().Compare(b.Num(), numeratorsFailed);
    a.Den().Compare(b.Den(), denominatorsFailed);
    if (numeratorsFailed || denominatorsFailed) {
        failed = true;
        return 0;
    }
    return Sign(a.Compare(b));
}

int QAnyValue::CompareArrays(const QArray<QAnyValue>& a, const QArray<QAnyValue>& b, bool& failed) {
    const int shorter = std::min(a.GetCount(), b.GetCount());
    int result = 0;
    for (int i = 0; i < shorter && result == 0; ++i) {
        bool elementFailed = false;
        result = a[i].Compare(b[i], elementFailed);
        failed = failed || elementFailed;
    }
    if (result != 0)
        return result;
    return CompareOrdered(a.GetCount(), b.GetCount());
}

bool QAnyValue::SameTable(const QTableHandlePtr& a, const QTableHandlePtr& b) {
    if (a && b)
        return a->IsSameNameAs(*b);
    const CString nameA = a ? a->Name() : CString();
    const CString nameB = b ? b->Name() : CString();
    return nameA.CompareNoCase(nameB) == 0;
}

bool QAnyValue::CompareIs(const QAnyValue& other, int sign) const {
    bool failed = false;
    const int result = Compare(other, failed);
    return !failed && Sign(result) == sign;
}

bool QAnyValue::CompareIsNot(const QAnyValue& other, int sign) const {
    bool failed = false;
    const int result = Compare(other, failed);
    return !failed && Sign(result) != sign;
}

bool QAnyValue::Identical(const QAnyValue& other) const {
    return m_type == other.m_type && IdenticalSameType(other);
}

bool QAnyValue::IdenticalSameType(const QAnyValue& other) const {
    switch (m_type) {
    case TYPE_STRING:
        return CompareStrings(m_object.m_string, other.m_object.m_string) == 0;
    case TYPE_BOOL:
        return m_scalar.m_bool == other.m_scalar.m_bool;
    case TYPE_INT:
        return m_scalar.m_int == other.m_scalar.m_int;
    case TYPE_DOUBLE:
        return m_scalar.m_double == other.m_scalar.m_double;
    case TYPE_COLOR:
        return m_scalar.m_color == other.m_scalar.m_color;
    case TYPE_MONEY:
        return m_object.m_money.GetRaw() == other.m_object.m_money.GetRaw();
    case TYPE_TIME:
        return m_object.m_time.GetRaw() == other.m_object.m_time.GetRaw();
    case TYPE_DATETIME:
        return m_object.m_date == other.m_object.m_date;
    case TYPE_LENGTH:
        return m_object.m_length == other.m_object.m_length;
    case TYPE_AREA:
        return m_object.m_area == other.m_object.m_area;
    case TYPE_VOLUME:
        return m_object.m_volume == other.m_object.m_volume;
    case TYPE_ANGLE:
        return m_object.m_angle == other.m_object.m_angle;
    case TYPE_RATE:
        return *m_scalar.m_pRate == *other.m_scalar.m_pRate;
    case TYPE_LOOKUPTABLE:
        return SameTable(m_object.m_table, other.m_object.m_table);
    case TYPE_ARRAY: {
        const QArray<QAnyValue>& mine = *m_object.m_pArray;
        const QArray<QAnyValue>& theirs = *other.m_object.m_pArray;
        if (mine.GetCount() != theirs.GetCount())
            return false;
        for (int i = 0; i < mine.GetCount(); ++i)
            if (!mine[i].Identical(theirs[i]))
                return false;
        return true;
    }
    default:
        return true;
    }
}

bool QAnyValue::Equivalent(const QAnyValue& other) const {
    bool failed = false;
    if (Compare(other, failed) == 0 && !failed)
        return true;
    QAnyValue a(*this);
    QAnyValue b(other);
    PromoteToSameType(a, b);
    if (!a.IsLength() || !b.IsLength())
        return false;
    const QLength difference = a.m_object.m_length - b.m_object.m_length;
    const double eps = LengthDisplayEps();
    return difference < QLength::FromRaw(eps) && difference > QLength::FromRaw(-eps);
}

QAnyValue& QAnyValue::CompareIt(const QAnyValue& other, bool (*test)(int),
                                QAnyValue& (QAnyValue::*self)(const QAnyValue&)) {
    if (ApplyErrorRule(other) || ApplyArrayRule(other, self))
        return *this;
    bool failed = false;
    const int result = Compare(other, failed);
    if (failed)
        MakeError(u"Cannot compare");
    else
        SetBool(test(Sign(result)));
    return *this;
}

QAnyValue& QAnyValue::EQit(const QAnyValue& other) {
    return CompareIt(
        other, [](int sign) { return sign == 0; }, &QAnyValue::EQit);
}

QAnyValue& QAnyValue::NEit(const QAnyValue& other) {
    return CompareIt(
        other, [](int sign) { return sign != 0; }, &QAnyValue::NEit);
}

QAnyValue& QAnyValue::LTit(const QAnyValue& other) {
    return CompareIt(
        other, [](int sign) { return sign < 0; }, &QAnyValue::LTit);
}

QAnyValue& QAnyValue::LEit(const QAnyValue& other) {
    return CompareIt(
        other, [](int sign) { return sign <= 0; }, &QAnyValue::LEit);
}

QAnyValue& QAnyValue::GTit(const QAnyValue& other) {
    return CompareIt(
        other, [](int sign) { return sign > 0; }, &QAnyValue::GTit);
}

QAnyValue& QAnyValue::GEit(const QAnyValue& other) {
    return CompareIt(
        other, [](int sign) { return sign >= 0; }, &QAnyValue::GEit);
}

QAnyValue QAnyValue::EQ(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.EQit(other);
}

QAnyValue QAnyValue::NE(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.NEit(other);
}

QAnyValue QAnyValue::LT(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.LTit(other);
}

QAnyValue QAnyValue::LE(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.LEit(other);
}

QAnyValue QAnyValue::GT(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.GTit(other);
}

QAnyValue QAnyValue::GE(const QAnyValue& other) const {
    QAnyValue copy(*this);
    return copy.GEit(other);
}

// --- Hashing -----------------------------------------------------------------------------------

unsigned QAnyValue::HashKey() const {
    switch (m_type) {
    case TYPE_STRING:
        return keel::HashKey(m_object.m_string);
    case TYPE_BOOL:
        return ScalarHashKey(m_scalar.m_bool ? 1 : 0);
    case TYPE_INT:
        return ScalarHashKey(m_scalar.m_int);
    case TYPE_COLOR:
        return ScalarHashKey(static_cast<std::int32_t>(m_scalar.m_color));
    case TYPE_DOUBLE:
        return ScalarHashKey(TruncateToInt32(m_scalar.m_double));
    case TYPE_LENGTH:
    case TYPE_AREA:
    case TYPE_VOLUME:
    case TYPE_ANGLE:
        return ScalarHashKey(TruncateToInt32(RawNumber()));
    case TYPE_MONEY:
        return m_object.m_money.HashKey();
    case TYPE_TIME:
        return m_object.m_time.HashKey();
    case TYPE_DATETIME:
        return m_object.m_date.HashKey();
    case TYPE_ARRAY: {
        unsigned hash = 0;
        for (const QAnyValue& element : *m_object.m_pArray)
            hash ^= element.HashKey();
        return hash;
    }
    case TYPE_LOOKUPTABLE:
        return m_object.m_table ? m_object.m_table->HashKey() : keel::HashKey(CString());
    case TYPE_RATE:
        return m_scalar.m_pRate->HashKey();
    default:
        return 0;
    }
}

// --- Options -----------------------------------------------------------------------------------

QAnyValue::ProfileIntReader QAnyValue::SetProfileIntReader(ProfileIntReader reader) {
    const ProfileIntReader previous = g_profileIntReader.exchange(reader);
    ReloadOptions();
    return previous;
}

void QAnyValue::ReloadOptions() {
    g_useCompareNoCase = kUnread;
    g_lengthDisplayEps = kUnread;
}

namespace {

// The option, read through the installed reader on first use and kept; the default while no
// reader is installed.
int ReadOnce(std::atomic<int>& cache, const char16_t* key, int defaultValue) {
    const int cached = cache.load();
    if (cached != kUnread)
        return cached;
    const QAnyValue::ProfileIntReader reader = g_profileIntReader.load();
    if (!reader)
        return defaultValue;
    const int value = reader(u"Options", key, defaultValue);
    cache = value == kUnread ? defaultValue : value;
    return cache.load();
}

} // namespace

bool QAnyValue::UseCompareNoCase() {
    return ReadOnce(g_useCompareNoCase, u"UseCompareNoCase", 1) != 0;
}

double QAnyValue::LengthDisplayEps() {
    return ReadOnce(g_lengthDisplayEps, u"LengthDisplayEps", kDefaultLengthDisplayEps) * 0.01;
}

} // namespace keel
