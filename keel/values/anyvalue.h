#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/cstring.h"
#include "keel/values/angle.h"
#include "keel/values/area.h"
#include "keel/values/array.h"
#include "keel/values/datetime.h"
#include "keel/values/length.h"
#include "keel/values/money.h"
#include "keel/values/stringunique.h"
#include "keel/values/tablehandle.h"
#include "keel/values/time.h"
#include "keel/values/volume.h"

#include <cstdint>
#include <memory>
#include <type_traits>

namespace keel {

class QRateValue;
class QFormulaContext;
// How long an evaluated value stays good; keel/formula/state.h gives the levels.
enum QCacheState : int;

// The one value type of the system: what a formula yields, what a property holds, what a table
// cell contains. A tagged union whose types include physical units, so that "2 ft + 3 in" and a
// length times a length being an area happen here and not in the evaluator. Besides its sixteen
// types it has two states that are no values, error (with a message) and not-available, and
// these travel through arithmetic as values: nothing here throws for a bad value.
//
// Numbers, booleans and units live inside the value; only a rate allocates by itself, and
// arrays and strings by their nature. Every operation works in place on the receiver (`+=`, the
// `NAMEit` members); the functional forms copy first and then call the in-place one.
class QAnyValue {
public:
    // The numbers are part of the archive format. A value read from an archive can carry the
    // byte of an error or N/A as 255 or 254; such a value is neither, and has no content.
    enum TYPE : int {
        TYPE_NA = -2,
        TYPE_ERROR = -1,
        TYPE_EMPTY = 0,
        TYPE_STRING = 1,
        TYPE_BOOL = 2,
        TYPE_INT = 3,
        TYPE_DOUBLE = 4,
        TYPE_MONEY = 5,
        TYPE_TIME = 6,
        TYPE_LENGTH = 7,
        TYPE_AREA = 8,
        TYPE_ANGLE = 9,
        TYPE_ARRAY = 10,
        TYPE_LOOKUPTABLE = 11,
        TYPE_DATETIME = 12,
        TYPE_VOLUME = 13,
        TYPE_RATE = 14,
        TYPE_COLOR = 15,
    };

    // --- Construction and assignment -----------------------------------------------------------

    QAnyValue() noexcept {}
    QAnyValue(const CString& text);
    QAnyValue(const char16_t* text);
    // UTF-8; also keeps a narrow literal from turning into a boolean.
    QAnyValue(const char* utf8);
    QAnyValue(const QMoney& money);
    QAnyValue(const QDateTime& date);
    QAnyValue(const QTime& time);
    QAnyValue(const QLength& length);
    QAnyValue(const QArea& area);
    QAnyValue(const QVolume& volume);
    QAnyValue(const QAngle& angle);
    // A colour, 0x00BBGGRR.
    QAnyValue(unsigned long color);
    QAnyValue(int value);
    QAnyValue(bool value);
    QAnyValue(double value);
    QAnyValue(const QArray<QAnyValue>& elements);
    QAnyValue(const QTableHandlePtr& table);
    // A rate whose halves can be divided, neither being a rate itself, becomes their quotient.
    QAnyValue(const QRateValue& rate);
    // An array of copies of the `count` values at `values`.
    QAnyValue(const QAnyValue* values, int count);
    // Any other pointer would silently become a boolean.
    QAnyValue(const void*) = delete;

    // A value that owns nothing (a number, a unit quantity, empty) is copied and dropped inline:
    // those are most of what formulas pass around.
    QAnyValue(const QAnyValue& other) {
        if (OwnsNothing(other.m_type))
            CopyPlainFrom(other);
        else
            CopyContentFrom(other);
    }
    QAnyValue(QAnyValue&& other) noexcept;
    ~QAnyValue() {
        if (!OwnsNothing(m_type))
            Destroy();
    }

    QAnyValue& operator=(const QAnyValue& other) {
        if (OwnsNothing(m_type) && OwnsNothing(other.m_type)) {
            CopyPlainFrom(other);
            return *this;
        }
        return AssignFrom(other);
    }
    QAnyValue& operator=(QAnyValue&& other) noexcept;
    // Everything a value can be built from; besides, char, unsigned char, short and long are
    // whole numbers, float a number and unsigned long a colour.
    template <class T>
    QAnyValue& operator=(const T& value) {
        if constexpr (std::is_same_v<T, bool>)
            SetBool(value);
        else if constexpr (std::is_same_v<T, unsigned long>)
            SetColor(static_cast<std::uint32_t>(value));
        else if constexpr (std::is_same_v<T, char> || std::is_same_v<T, unsigned char> ||
                           std::is_same_v<T, short> || std::is_same_v<T, int> ||
                           std::is_same_v<T, long>)
            SetInt(static_cast<int>(value));
        else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>)
            SetDouble(value);
        else
            *this = QAnyValue(value);
        return *this;
    }

    // In-place setters that keep the storage when the type does not change.
    void SetBool(bool value);
    void SetInt(int value);
    void SetDouble(double value);
    void SetColor(std::uint32_t color);

    // --- Type and state ------------------------------------------------------------------------

    TYPE Type() const { return m_type; }
    bool IsType(TYPE type) const { return m_type == type; }
    // Changing to another type drops the content and sets the new type's default: empty string,
    // false, 0, 0.0, zero units, an angle of 0 with cosine 1 and sine 0, an empty array, no
    // table, a zero date, an empty rate. The same type keeps the content; a number outside
    // -1..15 sets the type and no content.
    void SetType(TYPE type);
    // Frees the content and leaves the value empty.
    void Clear();

    bool IsEmpty() const { return m_type == TYPE_EMPTY; }
    bool IsEmptyOrEmptyString() const;
    bool IsError() const { return m_type == TYPE_ERROR; }
    bool IsNA() const { return m_type == TYPE_NA; }
    bool IsErrorOrNA() const { return IsError() || IsNA(); }
    bool IsString() const { return m_type == TYPE_STRING; }
    bool IsBool() const { return m_type == TYPE_BOOL; }
    bool IsInt() const { return m_type == TYPE_INT; }
    bool IsDouble() const { return m_type == TYPE_DOUBLE; }
    bool IsMoney() const { return m_type == TYPE_MONEY; }
    bool IsDateTime() const { return m_type == TYPE_DATETIME; }
    bool IsTime() const { return m_type == TYPE_TIME; }
    bool IsLength() const { return m_type == TYPE_LENGTH; }
    bool IsArea() const { return m_type == TYPE_AREA; }
    bool IsVolume() const { return m_type == TYPE_VOLUME; }
    bool IsAngle() const { return m_type == TYPE_ANGLE; }
    bool IsColor() const { return m_type == TYPE_COLOR; }
    bool IsArray() const { return m_type == TYPE_ARRAY; }
    bool IsRate() const { return m_type == TYPE_RATE; }
    bool IsLookupTable() const { return m_type == TYPE_LOOKUPTABLE; }

    // Whole number and number.
    bool IsSimpleNumeric() const { return IsSimpleNumericType(m_type); }
    // Money, time, length, area, angle, volume and rate.
    bool IsNumericWithUnits() const { return IsNumericWithUnitsType(m_type); }
    bool IsNumeric() const { return IsSimpleNumeric() || IsNumericWithUnits(); }
    bool IsLengthAreaOrVolume() const {
        return m_type == TYPE_LENGTH || m_type == TYPE_AREA || m_type == TYPE_VOLUME;
    }
    static bool IsSimpleNumericType(TYPE type) { return type == TYPE_INT || type == TYPE_DOUBLE; }
    static bool IsNumericWithUnitsType(TYPE type);

    // The element count of an array, 1 for any other value.
    int GetSize() const;

    // "#N/A", "#ERR!", "<none>", "String", "Yes or No", "Whole Number", "Number", "Money",
    // "Time", "Length", "Area", "Angle", "Array", "Lookup Table", "Date and Time", "Volume",
    // "Rate", "Color"; "#EMPTY" for any other number.
    static CString TypeToString(TYPE type);
    CString TypeName() const { return TypeToString(m_type); }
    // The type of a name, ignoring case; empty for an unknown name.
    static TYPE StringToType(const CString& name);
    // 0..15 as they are, anything else empty.
    static TYPE IntToType(int number);
    // The rank of a type in promotion; negative types have none and rank as 0.
    static int TypeRank(TYPE type);
    // The difference of the two ranks; 0 when either type is negative.
    int CompareTypeWith(const QAnyValue& other) const;
    // The column type of a report database: string 202, boolean 11, whole number 3, number 5,
    // all else 0.
    static int TypeToADOXEnum(TYPE type);

    // --- Error, not-available and empty --------------------------------------------------------

    // Makes this an error holding the message and returns the message.
    CString MakeError(const CString& message);
    // Makes any other value an error (a string keeps its text as the message) and returns the
    // message held.
    CString MakeError();
    // Whether this is an error; `message` becomes its message, or empty.
    bool IsErrorAndGetMessage(CString& message) const;
    void MakeNA();
    void MakeEmpty() {
        if (OwnsNothing(m_type))
            m_type = TYPE_EMPTY;
        else
            Destroy();
    }

    // The first step of every binary operation: true, and the operation ends, when this value is
    // an error or N/A (it stays so), or when `argument` is one (this becomes a copy of it).
    bool ApplyErrorRule(const QAnyValue& argument);
    // The first step of a unary operation: true when this value is an error or N/A.
    bool ApplyErrorRule() const { return IsErrorOrNA(); }
    // The array step of a binary member: when this value or `argument` is an array, both are
    // brought to one length by ExtendArrays and `operation` runs position by position, and true
    // is returned. With an empty array on either side there is no work and this value becomes
    // an empty array.
    bool ApplyArrayRule(const QAnyValue& argument,
                        QAnyValue& (QAnyValue::*operation)(const QAnyValue&));
    // The same for a unary member.
    bool ApplyArrayRule(QAnyValue& (QAnyValue::*operation)());

    // --- Conversion in place -------------------------------------------------------------------

    // Each converts this value to its type and returns the content. When the value cannot take
    // the type (an error or N/A stays what it is) the result is a fixed default.
    bool MakeBool();
    int MakeInt();
    unsigned char MakeByte();
    double MakeDouble();
    // "#ERR!" for an error and "#N/A" for not-available, which stay as they are.
    CString MakeCString();
    QMoney MakeMoney();
    QTime MakeTime();
    QLength MakeLength();
    QArea MakeArea();
    QVolume MakeVolume();
    QAngle MakeAngle();
    QDateTime MakeDateTime();
    unsigned long MakeColor();
    // Always succeeds: an error or N/A becomes a one-element array of itself.
    QArray<QAnyValue>& MakeArray();
    // A value that cannot be a rate becomes the error "Cannot convert to a rate", and the result
    // is then an empty rate of this thread's own.
    QRateValue& MakeRate();
    // A name becomes the table of that name, or the error "Cannot find lookup table " and the
    // name.
    QTableHandlePtr MakeLookupTable();
    // The same, but a table that cannot be found leaves the value as it was, and nobody is told.
    QTableHandlePtr MakeLookupTableNoError();
    void MakeSameTypeAs(const QAnyValue& other);

    template <class T>
    T Make();

    // The same, going down into arrays element by element; an array stays an array.
    QAnyValue& MakeAllCString();
    QAnyValue& MakeAllMoney();
    QAnyValue& MakeAllTime();
    QAnyValue& MakeAllDateTime();
    QAnyValue& MakeAllLength();
    QAnyValue& MakeAllArea();
    QAnyValue& MakeAllVolume();
    QAnyValue& MakeAllRate();
    QAnyValue& MakeAllAngle();
    QAnyValue& MakeAllBool();
    QAnyValue& MakeAllInt();
    QAnyValue& MakeAllDouble();
    QAnyValue& MakeAllError();
    QAnyValue& MakeAllNA();
    QAnyValue& MakeAllEmpty();
    QAnyValue& MakeAllLookupTable();
    QAnyValue& MakeAllNumeric();
    QAnyValue& MakeAllArray();

    // Leaves whole numbers, numbers and units alone, and an empty value too, which takes its
    // type from the other operand in arithmetic. A string is run as a formula in no context,
    // again while the result is a string (an empty text is the whole number 0). Anything else is
    // made a number, so a boolean, a date and a colour count as plain numbers.
    void MakeNumeric();

    // Turns the value into `type`; a value of that type already is left alone. An error stays
    // an error but for an array target; N/A becomes an error for an error target, and stays
    // otherwise. Only an empty array made a scalar fails, as an invalid argument.
    void ChangeType(TYPE type);
    // A string to `type`: the words "#ERR!", "#N/A" and "#EMPTY" first, then the type's own
    // parser, then, when that fails, the text begins with "=" or `runAsFormula` is set, the text
    // as a formula run in no context.
    void ChangeTypeFromString(TYPE type, bool runAsFormula);

    // Sets the type and reads the text by that type's parser; the value keeps the type's default
    // when the text does not fit.
    PARSERESULT Parse(const CString& text, TYPE type);
    // Tries boolean, whole number, number, money, time, length, area, volume, angle and rate in
    // turn: the first exact fit wins, else the first fit with a default assumed; with none the
    // value is the text as a string and the result an exact fit.
    PARSERESULT Parse(const CString& text);
    // The translated Yes and No words, then "Yes", "y", "No", "n", then a leading word made of the
    // letters of yes or of no, then a whole number for its truth.
    static PARSERESULT ParseBool(bool& value, const CString& text);
    static bool ParseInt(int& value, const CString& text);
    static bool ParseDouble(double& value, const CString& text);

    // The words for booleans; "Yes" and "No" until the application gives translations.
    static CString GetYesString();
    static CString GetNoString();
    static void SetYesNoStrings(const CString& yes, const CString& no);

    // --- Text forms ----------------------------------------------------------------------------

    // A formula that evaluates back to this value. Formula texts are interned without regard to
    // case, so the text of one may be spelled as an earlier formula was: what writes the text
    // out takes AsFormulaText, which is spelled as this value is.
    FormulaText AsFormula() const;
    CString AsFormulaText() const;
    // A string's own text, the formula text of anything else.
    CString AsStringOrFormula() const;
    // What serialised text uses: the same as AsStringOrFormula.
    CString MakeCStringUntranslated() const { return AsStringOrFormula(); }
    // The display text, leaving this value as it is.
    CString Format() const;
    // The text for a report tool's formula: "\"#N/A\"" for not-available, units as plain numbers,
    // a string as a double-quoted literal with its double quotes doubled.
    CString AsCrystalFormula() const;
    // Backslash, newline, carriage return and tab become \\, \n, \r and \t.
    static CString InsertEscapeSequences(const CString& text);
    // InsertEscapeSequences, then each double quote is doubled and the whole enclosed in double
    // quotes.
    static CString InsertEscapesDoubleQuotesAndEnclose(const CString& text);
    // "rgb(r,g,b)" of a colour 0x00BBGGRR, the form the formula function reads.
    static CString ToRGBString(std::uint32_t color);

    // --- Truth ---------------------------------------------------------------------------------

    // An error or N/A is neither true nor false. An array is true (false) when every element is;
    // an empty array is both. Other values are tested as a copy made boolean.
    bool IsTRUE() const;
    bool IsFALSE() const;
    // Empty, a false boolean, a zero of the type's own test (lengths and angles with their
    // tolerance), an empty string or "0", a rate with a zero numerator, an array of zeros.
    bool IsZero() const;
    bool IsNotZero() const { return !IsZero(); }

    // --- Arithmetic ----------------------------------------------------------------------------

    // Each keeps an error or N/A receiver, or takes over an error or N/A operand; goes element by
    // element through arrays; makes both sides numeric, an error made on the way travelling like
    // an operand's. Then dates move by spans, sums need one type after promotion, a length times
    // a length is an area (and so on), and division, never an integer one, turns a floating-point
    // fault into an error. Every failure is an error value with its own message.
    QAnyValue& operator+=(const QAnyValue& other);
    QAnyValue& operator-=(const QAnyValue& other);
    QAnyValue& operator*=(const QAnyValue& other);
    QAnyValue& operator/=(const QAnyValue& other);
    friend QAnyValue operator+(QAnyValue a, const QAnyValue& b) { return a += b; }
    friend QAnyValue operator-(QAnyValue a, const QAnyValue& b) { return a -= b; }
    friend QAnyValue operator*(QAnyValue a, const QAnyValue& b) { return a *= b; }
    friend QAnyValue operator/(QAnyValue a, const QAnyValue& b) { return a /= b; }

    QAnyValue& PERCENTit();
    QAnyValue PERCENT() const;
    QAnyValue& NOTit();
    QAnyValue operator!() const;
    QAnyValue& NEGit();
    QAnyValue NEG() const;
    QAnyValue& POSit() { return *this; }
    QAnyValue POS() const { return *this; }
    QAnyValue operator-() const { return NEG(); }
    QAnyValue operator+() const { return *this; }

    // Brings both values to one type: arrays to one length, element by element; errors and N/A
    // to both sides; an empty side to the other's type; units to the unit side; a string beside
    // a number to a number, as a formula; else the lower rank to the higher. Two different units
    // become the error "Units not compatible". Rates stay as they are.
    static void PromoteToSameType(QAnyValue& a, QAnyValue& b);
    // Whether `numerator` / `denominator` gives a value that is no rate: both numeric, neither a
    // rate, a non-zero denominator, and a plain number below, the same type on both sides, or
    // area over length, volume over length, volume over area.
    static bool CanDiv(const QAnyValue& numerator, const QAnyValue& denominator);

    // Each value that is no array becomes a one-element array, and each array shorter than the
    // longest is padded with copies of its last element; an empty array stays empty. Returns the
    // length of the longest.
    static int ExtendArrays(QAnyValue& a, QAnyValue& b);
    static int ExtendArrays(QAnyValue& a, QAnyValue& b, QAnyValue& c);
    static int ExtendArrays(QAnyValue& a, QAnyValue& b, QAnyValue& c, QAnyValue& d);
    // 0 does nothing; otherwise the value becomes an array of at least `count` elements, padded
    // with copies of its last one.
    void ExtendArray(int count);

    // --- Comparison ----------------------------------------------------------------------------

    // Negative, 0 or positive after both copies are promoted to one type; `failed` when they
    // cannot be compared (the result is then 0). Strings ignore case unless the option
    // "UseCompareNoCase" is 0; units compare with their tolerance; dates within half a second
    // are equal.
    int Compare(const QAnyValue& other, bool& failed) const;
    friend bool operator<(const QAnyValue& a, const QAnyValue& b) { return a.CompareIs(b, -1); }
    friend bool operator<=(const QAnyValue& a, const QAnyValue& b) { return a.CompareIsNot(b, 1); }
    friend bool operator>(const QAnyValue& a, const QAnyValue& b) { return a.CompareIs(b, 1); }
    friend bool operator>=(const QAnyValue& a, const QAnyValue& b) { return a.CompareIsNot(b, -1); }
    // Same type and same content, without promotion: the whole number 1 and the number 1.0 are
    // not identical although they compare equal. All errors are identical to each other, as are
    // all N/A.
    bool Identical(const QAnyValue& other) const;
    friend bool operator==(const QAnyValue& a, const QAnyValue& b) { return a.Identical(b); }
    friend bool operator!=(const QAnyValue& a, const QAnyValue& b) { return !a.Identical(b); }
    // Compare, with lengths also equal within the display tolerance "LengthDisplayEps".
    bool Equivalent(const QAnyValue& other) const;

    // The formula's comparison operators: the receiver becomes the boolean result, an array
    // element by element, or the error "Cannot compare".
    QAnyValue& EQit(const QAnyValue& other);
    QAnyValue& NEit(const QAnyValue& other);
    QAnyValue& LTit(const QAnyValue& other);
    QAnyValue& LEit(const QAnyValue& other);
    QAnyValue& GTit(const QAnyValue& other);
    QAnyValue& GEit(const QAnyValue& other);
    QAnyValue EQ(const QAnyValue& other) const;
    QAnyValue NE(const QAnyValue& other) const;
    QAnyValue LT(const QAnyValue& other) const;
    QAnyValue LE(const QAnyValue& other) const;
    QAnyValue GT(const QAnyValue& other) const;
    QAnyValue GE(const QAnyValue& other) const;

    // Set the boolean result of IsTRUE, IsFALSE, or of the given truth, passing errors and going
    // through arrays.
    QAnyValue& TRUEit();
    QAnyValue& FALSEit();
    QAnyValue& TRUEFALSEit(int truth);

    // A hash by type: strings by their text, scalars by one Lehmer step of their (truncated)
    // value, arrays and rates by the XOR of their parts, tables by name; 0 for empty and
    // invalid dates. Lengths that compare equal can hash differently.
    unsigned HashKey() const;

    // --- Options -------------------------------------------------------------------------------

    // How the options "UseCompareNoCase" and "LengthDisplayEps" of section "Options" are read:
    // the application installs a reader of its options. Each is read once, when first needed,
    // and kept; until a reader is installed the built-in defaults hold (compare ignoring case, a
    // display tolerance of 0.8 mm) and nothing is kept.
    using ProfileIntReader = int (*)(const CString& section, const CString& key, int defaultValue);
    static ProfileIntReader SetProfileIntReader(ProfileIntReader reader);
    // Forgets what was read, so that the next use reads the options again.
    static void ReloadOptions();
    static bool UseCompareNoCase();
    // In raw length units.
    static double LengthDisplayEps();

    // --- Archive -------------------------------------------------------------------------------

    // A type byte and the type's payload. A rate stores nothing and reads back empty; an error
    // stores no message and reads back as type 255 (N/A as 254), which is neither an error nor
    // N/A. Numbers, units and rates read back out of range are set to 0.
    void Serialize(CArchive& archive);
    // Clamps a corrupt number, length, area, volume or the halves of a rate to 0; true when it
    // did.
    static bool LimitDoubleAlways(QAnyValue& value, const CString& where);

    // --- The function library (anyvaluefunctions.cpp) ------------------------------------------
    //
    // Shared rule: an error or N/A receiver stays; an error or N/A argument is copied into the
    // receiver; arrays go position by position after ExtendArrays; then the scalar operation.

    QAnyValue& DIVit(const QAnyValue& divisor);
    QAnyValue DIV(const QAnyValue& divisor) const;
    QAnyValue& MODit(const QAnyValue& divisor);
    QAnyValue MOD(const QAnyValue& divisor) const;
    QAnyValue& CEILINGit(const QAnyValue& multiple);
    QAnyValue CEILING(const QAnyValue& multiple) const;
    QAnyValue& FLOORit(const QAnyValue& multiple);
    QAnyValue FLOOR(const QAnyValue& multiple) const;
    QAnyValue& MROUNDit(const QAnyValue& multiple);
    QAnyValue MROUND(const QAnyValue& multiple) const;
    QAnyValue& RANDBETWEENit(const QAnyValue& upper);
    QAnyValue RANDBETWEEN(const QAnyValue& upper) const;
    QAnyValue& POWit(const QAnyValue& exponent);
    QAnyValue POW(const QAnyValue& exponent) const;

    QAnyValue& ABSit();
    QAnyValue ABS() const;
    QAnyValue& SIGNit();
    QAnyValue SIGN() const;
    QAnyValue& SQRTit();
    QAnyValue SQRT() const;
    QAnyValue& TRUNCit();
    QAnyValue TRUNC() const;

    QAnyValue& DOLLARit(int decimals, bool noUnit);
    QAnyValue DOLLAR(int decimals, bool noUnit) const;
    QAnyValue& LENGTHit(int decimals, bool noUnit);
    QAnyValue LENGTH(int decimals, bool noUnit) const;
    QAnyValue& LOWERNOCVTit();
    QAnyValue LOWERNOCVT() const;
    QAnyValue& UPPERNOCVTit();
    QAnyValue UPPERNOCVT() const;

    QAnyValue& ANDit(const QAnyValue& other);
    QAnyValue AND(const QAnyValue& other) const;
    QAnyValue& ORit(const QAnyValue& other);
    QAnyValue OR(const QAnyValue& other) const;
    QAnyValue& XORit(const QAnyValue& other);
    QAnyValue XOR(const QAnyValue& other) const;
    QAnyValue& EQVit(const QAnyValue& other);
    QAnyValue EQV(const QAnyValue& other) const;
    QAnyValue& IMPit(const QAnyValue& other);
    QAnyValue IMP(const QAnyValue& other) const;

    QAnyValue& MINit(const QAnyValue& other);
    QAnyValue MIN(const QAnyValue& other) const;
    QAnyValue& MAXit(const QAnyValue& other);
    QAnyValue MAX(const QAnyValue& other) const;

    QAnyValue& SUMOVERit();
    QAnyValue SUMOVER() const;
    QAnyValue& AVERAGEOVERit();
    QAnyValue AVERAGEOVER() const;
    QAnyValue& MINOVERit();
    QAnyValue MINOVER() const;
    QAnyValue& MAXOVERit();
    QAnyValue MAXOVER() const;
    QAnyValue& ANDOVERit();
    QAnyValue ANDOVER() const;
    QAnyValue& OROVERit();
    QAnyValue OROVER() const;
    QAnyValue& CONCATENATEOVERit();
    QAnyValue CONCATENATEOVER() const;

    QAnyValue& GETSIZEit();
    QAnyValue GETSIZE() const;
    // Positions count from 1.
    QAnyValue& GETATit(int position);
    QAnyValue GETAT(int position) const;
    QAnyValue& SETARRAYVALUEit(int position, const QAnyValue& value);
    QAnyValue SETARRAYVALUE(int position, const QAnyValue& value) const;
    QAnyValue& APPENDITEMit(const QAnyValue& value);
    QAnyValue APPENDITEM(const QAnyValue& value) const;
    QAnyValue& JOINit(const QAnyValue& value);
    QAnyValue JOIN(const QAnyValue& value) const;
    QAnyValue& MIDDLEit(int start, int count);
    QAnyValue MIDDLE(int start, int count) const;
    QAnyValue& FIRSTit(int count);
    QAnyValue FIRST(int count) const;
    QAnyValue& LASTit(int count);
    QAnyValue LAST(int count) const;
    QAnyValue& REVERSEit();
    QAnyValue REVERSE() const;
    QAnyValue& SORTit();
    QAnyValue SORT() const;
    QAnyValue& UNIQit();
    QAnyValue UNIQ() const;
    QAnyValue& CONCATit(const QAnyValue& value);
    QAnyValue CONCAT(const QAnyValue& value) const;

    // --- Lookup-table members (keel/tables/anyvaluetables.cpp) ----------------------------------
    //
    // They are defined in the tables layer, not here: a link-time edge from the values (and the
    // formulas that call them) up to the tables that no include shows, kept as the one such seam.
    //
    // The receiver is the table, by value or by name. Errors, N/A and empty in the receiver or a
    // key pass through, arrays spread; a name that is no table gives "Cannot find lookup table "
    // and the name. Updates give a boolean; the index forms count from 1.

    // The cell found by nearest match, by exact match, or by position; the cell is evaluated in
    // `context`, and the evaluation raises `state`. A miss is N/A.
    QAnyValue& LOOKUPit(const QAnyValue& row, const QAnyValue& col, QFormulaContext* context,
                        QCacheState* state);
    QAnyValue& LOOKUPEXACTit(const QAnyValue& row, const QAnyValue& col, QFormulaContext* context,
                             QCacheState* state);
    QAnyValue& LOOKUPBYINDEXit(const QAnyValue& row, const QAnyValue& col, QFormulaContext* context,
                               QCacheState* state);
    QAnyValue& ROWLABELit(const QAnyValue& index, QFormulaContext* context, QCacheState* state);
    QAnyValue& COLLABELit(const QAnyValue& index, QFormulaContext* context, QCacheState* state);
    // The lists are strings of items joined by "|".
    QAnyValue& ROWLABELSit(QFormulaContext* context, QCacheState* state);
    QAnyValue& COLLABELSit(QFormulaContext* context, QCacheState* state);
    QAnyValue& ROWLABELSFORVALit(const QAnyValue& value, bool same, QFormulaContext* context,
                                 QCacheState* state);
    QAnyValue& COLLABELSFORVALit(const QAnyValue& value, bool same, QFormulaContext* context,
                                 QCacheState* state);
    QAnyValue& ROWLABELSFORCOLit(const QAnyValue& col, const QAnyValue& value, bool same,
                                 QFormulaContext* context, QCacheState* state);
    QAnyValue& COLLABELSFORROWit(const QAnyValue& row, const QAnyValue& value, bool same,
                                 QFormulaContext* context, QCacheState* state);
    QAnyValue& ROWLABELSFORCOL2it(const QAnyValue& col1, const QAnyValue& value1, bool same1,
                                  const QAnyValue& col2, const QAnyValue& value2, bool same2,
                                  QFormulaContext* context, QCacheState* state);
    QAnyValue& COLLABELSFORROW2it(const QAnyValue& row1, const QAnyValue& value1, bool same1,
                                  const QAnyValue& row2, const QAnyValue& value2, bool same2,
                                  QFormulaContext* context, QCacheState* state);
    QAnyValue& ROWVALUESit(const QAnyValue& row, QFormulaContext* context, QCacheState* state);
    QAnyValue& COLVALUESit(const QAnyValue& col, QFormulaContext* context, QCacheState* state);
    QAnyValue& ROWVALUESBYINDEXit(const QAnyValue& index, QFormulaContext* context,
                                  QCacheState* state);
    QAnyValue& COLVALUESBYINDEXit(const QAnyValue& index, QFormulaContext* context,
                                  QCacheState* state);
    QAnyValue& ROWVALUESFILTERBYROW2it(const QAnyValue& row, const QAnyValue& filterRow,
                                       const QAnyValue& filterValue, bool same,
                                       QFormulaContext* context, QCacheState* state);
    QAnyValue& COLVALUESFILTERBYCOL2it(const QAnyValue& col, const QAnyValue& filterCol,
                                       const QAnyValue& filterValue, bool same,
                                       QFormulaContext* context, QCacheState* state);
    // Whole numbers; N/A for a table that failed.
    QAnyValue& ROWCOUNTit();
    QAnyValue& COLCOUNTit();
    // The edits give true, or N/A when the table refused.
    QAnyValue& ADDROWit(const QAnyValue& label);
    QAnyValue& REMOVEROWit(const QAnyValue& label, QFormulaContext* context);
    QAnyValue& REMOVEROWBYINDEXit(const QAnyValue& index);
    // `type` is a type number; the empty value stands for 0.
    QAnyValue& ADDCOLit(const QAnyValue& label, const QAnyValue& type);
    QAnyValue& REMOVECOLit(const QAnyValue& label, QFormulaContext* context);
    QAnyValue& REMOVECOLBYINDEXit(const QAnyValue& index);
    QAnyValue& UPDATEEXACTit(const QAnyValue& row, const QAnyValue& col, const QAnyValue& value,
                             QFormulaContext* context);
    QAnyValue& UPDATEBYINDEXit(const QAnyValue& row, const QAnyValue& col, const QAnyValue& value,
                               QFormulaContext* context);
    // True, or the error "Failed BEGINTRANS for " (COMMITTRANS, ROLLBACK, RELOAD) and the name.
    QAnyValue& BEGINTRANSit();
    QAnyValue& COMMITTRANSit();
    QAnyValue& ROLLBACKit();
    QAnyValue& RELOADit();

    // Two strings compared by their text ignoring case; anything else by Equivalent.
    static bool EquivalentNoCase(const QAnyValue& a, const QAnyValue& b);

    // Watches the floating-point faults that mean a wrong result (overflow, division by zero,
    // an invalid operation) over its life, for the members that must turn them into errors.
    class FPFaultScope {
    public:
        FPFaultScope();
        ~FPFaultScope();
        FPFaultScope(const FPFaultScope&) = delete;
        FPFaultScope& operator=(const FPFaultScope&) = delete;

        // Forgets what was raised so far, so that only what follows counts.
        void Restart();
        bool Faulted() const;
        // "result was too big", "division by zero", "result was not a number", joined by ", ";
        // empty when nothing was raised.
        CString Message() const;
    };

private:
    friend CArchive& operator<<(CArchive& archive, const QAnyValue& value);
    friend CArchive& operator>>(CArchive& archive, QAnyValue& value);

    void ConstructDefault(TYPE type);
    void Destroy() noexcept;
    void CopyContentFrom(const QAnyValue& other);
    QAnyValue& AssignFrom(const QAnyValue& other);
    static constexpr bool OwnsNothing(TYPE type) {
        return type != TYPE_ERROR && type != TYPE_STRING && type != TYPE_ARRAY &&
               type != TYPE_LOOKUPTABLE && type != TYPE_DATETIME && type != TYPE_RATE;
    }
    // Copies a value that owns nothing over one that owns nothing, as CopyContentFrom would.
    void CopyPlainFrom(const QAnyValue& other) {
        m_type = other.m_type;
        if (!VisitUnitMember(m_type, [this, &other](auto member) {
                std::construct_at(&(m_object.*member), other.m_object.*member);
            }))
            m_scalar = other.m_scalar;
    }
    void MoveFrom(QAnyValue&& other) noexcept;
    template <class Op>
    QAnyValue& ForEachElement(Op op);

    static QTableHandlePtr OpenTable(const CString& name, bool reportErrors, CString& error);
    void EvaluateStringAsNumber();
    static CString ArrayText(const QArray<QAnyValue>& elements);
    // Cents, seconds, mm, m², m³ or degrees of a unit type; the quotient of a rate.
    double RawNumber() const;

    void AddOrSubtract(const QAnyValue& other, bool subtract);
    bool AddDateOrTime(const QAnyValue& other, bool subtract);
    void AddSameType(const QAnyValue& other, bool subtract);
    void MultiplyNumeric(QAnyValue& other);
    void MultiplyByNumber(const QAnyValue& factor);
    void DivideNumeric(QAnyValue& other);
    void DivideByNumber(const QAnyValue& divisor);
    bool MultiplyOrDivideUnits(const QAnyValue& other, bool divide);

    static int CompareStrings(const CString& a, const CString& b);
    static int CompareRates(const QRateValue& a, const QRateValue& b, bool& failed);
    static int CompareArrays(const QArray<QAnyValue>& a, const QArray<QAnyValue>& b, bool& failed);
    static bool SameTable(const QTableHandlePtr& a, const QTableHandlePtr& b);
    int CompareSameType(const QAnyValue& other, bool& failed) const;
    bool IdenticalSameType(const QAnyValue& other) const;
    bool CompareIs(const QAnyValue& other, int sign) const;
    bool CompareIsNot(const QAnyValue& other, int sign) const;
    QAnyValue& CompareIt(const QAnyValue& other, bool (*test)(int),
                         QAnyValue& (QAnyValue::*self)(const QAnyValue&));

    void ChangeTypeFromNA(TYPE type);
    void ChangeTypeFromError(TYPE type);
    void ChangeTypeFromBool(TYPE type);
    void ChangeTypeFromInt(TYPE type);
    void ChangeTypeFromDouble(TYPE type);
    void ChangeTypeFromMoney(TYPE type);
    void ChangeTypeFromTime(TYPE type);
    void ChangeTypeFromLength(TYPE type);
    void ChangeTypeFromArea(TYPE type);
    void ChangeTypeFromAngle(TYPE type);
    void ChangeTypeFromArray(TYPE type);
    void ChangeTypeFromLookup(TYPE type);
    void ChangeTypeFromDateTime(TYPE type);
    void ChangeTypeFromVolume(TYPE type);
    void ChangeTypeFromRate(TYPE type);
    void ChangeTypeFromColor(TYPE type);
    // What the numeric sources share: the value as a number in its default unit, its text and
    // its zero test decide every target.
    void ChangeTypeFromNumber(TYPE type, double number, const CString& text, bool isZero);
    // A quantity converts by its number in its default unit, and to a string by its own text.
    template <class Quantity>
    void ChangeTypeFromQuantity(TYPE type, const Quantity& quantity) {
        ChangeTypeFromNumber(type, quantity.AsDouble(),
                             type == TYPE_STRING ? quantity.Format() : CString(),
                             quantity.IsZero());
    }
    void ChangeToArrayOfSelf();
    void ChangeToRateOfSelf();
    bool ChangeTypeFromSpecialWord(const CString& text);
    void ChangeTypeFromStringText(TYPE type, const CString& text, bool runAsFormula);
    void RunFormulaForType(TYPE type, const CString& text);

    void ReadPayload(CArchive& archive, std::uint8_t typeByte);
    void WritePayload(CArchive& archive) const;

    union Scalar {
        bool m_bool;
        int m_int;
        double m_double;
        std::uint32_t m_color;
        QRateValue* m_pRate;
    };
    union Object {
        Object() noexcept {}
        ~Object() {}
        CString m_string;
        QMoney m_money;
        QTime m_time;
        QLength m_length;
        QArea m_area;
        QVolume m_volume;
        QAngle m_angle;
        QArray<QAnyValue>* m_pArray;
        QTableHandlePtr m_table;
        QDateTime m_date;
    };

    // Calls `visit` with the member of Object (a pointer to member) that holds a money, time,
    // length, area, volume or angle and returns true; false for the other types.
    template <class Visit>
    static bool VisitUnitMember(TYPE type, Visit&& visit);
    // The same for every type held in place in Object: those, strings, errors, tables and dates.
    template <class Visit>
    static bool VisitObjectMember(TYPE type, Visit&& visit);

    TYPE m_type = TYPE_EMPTY;
    Scalar m_scalar{};
    Object m_object;
};

template <class Visit>
bool QAnyValue::VisitUnitMember(TYPE type, Visit&& visit) {
    switch (type) {
    case TYPE_MONEY:
        visit(&Object::m_money);
        return true;
    case TYPE_TIME:
        visit(&Object::m_time);
        return true;
    case TYPE_LENGTH:
        visit(&Object::m_length);
        return true;
    case TYPE_AREA:
        visit(&Object::m_area);
        return true;
    case TYPE_VOLUME:
        visit(&Object::m_volume);
        return true;
    case TYPE_ANGLE:
        visit(&Object::m_angle);
        return true;
    default:
        return false;
    }
}

template <class Visit>
bool QAnyValue::VisitObjectMember(TYPE type, Visit&& visit) {
    switch (type) {
    case TYPE_ERROR:
    case TYPE_STRING:
        visit(&Object::m_string);
        return true;
    case TYPE_LOOKUPTABLE:
        visit(&Object::m_table);
        return true;
    case TYPE_DATETIME:
        visit(&Object::m_date);
        return true;
    default:
        return VisitUnitMember(type, visit);
    }
}

// The type byte, then the payload of the type, little-endian.
CArchive& operator<<(CArchive& archive, const QAnyValue& value);
// Reading from a storing archive raises the archive exception with the file name; a type byte
// that is none of the types is the archive exception of a bad class.
CArchive& operator>>(CArchive& archive, QAnyValue& value);

inline unsigned HashKey(const QAnyValue& value) {
    return value.HashKey();
}

template <class T>
T QAnyValue::Make() {
    if constexpr (std::is_same_v<T, QAnyValue>)
        return *this;
    else if constexpr (std::is_same_v<T, bool>)
        return MakeBool();
    else if constexpr (std::is_same_v<T, int>)
        return MakeInt();
    else if constexpr (std::is_same_v<T, unsigned char>)
        return MakeByte();
    else if constexpr (std::is_same_v<T, double>)
        return MakeDouble();
    else if constexpr (std::is_same_v<T, CString>)
        return MakeCString();
    else if constexpr (std::is_same_v<T, QMoney>)
        return MakeMoney();
    else if constexpr (std::is_same_v<T, QTime>)
        return MakeTime();
    else if constexpr (std::is_same_v<T, QLength>)
        return MakeLength();
    else if constexpr (std::is_same_v<T, QArea>)
        return MakeArea();
    else if constexpr (std::is_same_v<T, QVolume>)
        return MakeVolume();
    else if constexpr (std::is_same_v<T, QAngle>)
        return MakeAngle();
    else if constexpr (std::is_same_v<T, QDateTime>)
        return MakeDateTime();
    else if constexpr (std::is_same_v<T, unsigned long>)
        return MakeColor();
    else if constexpr (std::is_same_v<T, QArray<QAnyValue>>)
        return MakeArray();
    else if constexpr (std::is_same_v<T, QRateValue>)
        return MakeRate();
    else if constexpr (std::is_same_v<T, QTableHandlePtr>)
        return MakeLookupTable();
    else
        static_assert(sizeof(T) == 0, "QAnyValue::Make: no such content type");
}

} // namespace keel
