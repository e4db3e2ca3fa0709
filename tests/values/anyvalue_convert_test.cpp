#include "tests/support/anyvalues.h"
#include "tests/support/samevalue.h"
#include "tests/support/tables.h"
#include "tests/support/valuesettings.h"

#include "keel/platform/exceptions.h"
#include "keel/values/anyvalue.h"
#include "keel/values/formulahook.h"
#include "keel/values/ratevalue.h"

#include <gtest/gtest.h>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace keel {

namespace {

using V = QAnyValue;

using test::Array;
using test::Cents;
using test::Describe;
using test::Error;
using test::MessageOf;
using test::Mm;
using test::NA;
using test::Seconds;
using test::Utf8;

using T = QAnyValue::TYPE;

QAnyValue Converted(QAnyValue value, T type) {
    value.ChangeType(type);
    return value;
}

using test::FakeEvaluator;

// The built-in defaults, days first in dates, and a fake evaluator that knows no plain numbers.
class AnyValueConvertTest : public ::testing::Test {
protected:
    void SetUp() override { QDateTime::SetLocaleFormats(u"%d/%m/%Y", u"%H:%M:%S"); }

private:
    test::ScopedValueSettings m_settings{false};
};

struct Row {
    T target;
    QAnyValue expected;
};

// Converts `source` to each target and compares without promotion.
void ExpectRow(const char* source, const QAnyValue& value, std::span<const Row> row) {
    for (const Row& cell : row) {
        const QAnyValue result = Converted(value, cell.target);
        EXPECT_TRUE(result.Identical(cell.expected))
            << source << " to " << Utf8(QAnyValue::TypeToString(cell.target)) << ": got "
            << Describe(result) << ", expected " << Describe(cell.expected);
    }
}

void ExpectRow(const char* source, const QAnyValue& value, std::initializer_list<Row> row) {
    ExpectRow(source, value, std::span<const Row>(row.begin(), row.size()));
}

TEST_F(AnyValueConvertTest, FromBoolIntNumberAndUnitsThroughTheDefaultUnits) {
    // Every target once, from true; each other source then needs only its own text, its own
    // zero and the number it hands on.
    const Row fromTrue[] = {
        {T::TYPE_STRING, V(u"Yes")},   {T::TYPE_INT, V(1)},
        {T::TYPE_DOUBLE, V(1.0)},      {T::TYPE_MONEY, Cents(100)},
        {T::TYPE_TIME, Seconds(3600)}, {T::TYPE_LENGTH, Mm(1)},
        {T::TYPE_AREA, V(QArea(1))},   {T::TYPE_VOLUME, V(QVolume(1))},
        {T::TYPE_ANGLE, V(QAngle(1))}, {T::TYPE_DATETIME, V(QDateTime(1.0))},
        {T::TYPE_COLOR, V(1ul)},       {T::TYPE_ARRAY, Array({true})},
    };
    ExpectRow("true", V(true), fromTrue);
    ExpectRow("false", V(false), {{T::TYPE_STRING, V(u"No")}, {T::TYPE_DOUBLE, V(0.0)}});
    QAnyValue rateOfTrue = Converted(V(true), T::TYPE_RATE);
    ASSERT_TRUE(rateOfTrue.IsRate());
    EXPECT_TRUE(rateOfTrue.MakeRate().Num().Identical(V(1))) << "0 or 1 as numerator";
    ExpectRow("3", V(3),
              {{T::TYPE_STRING, V(u"3")},
               {T::TYPE_BOOL, V(true)},
               {T::TYPE_DOUBLE, V(3.0)},
               {T::TYPE_COLOR, V(3ul)}});
    ExpectRow("-1", V(-1), {{T::TYPE_COLOR, V(0xFFFFFFFFul)}, {T::TYPE_BOOL, V(true)}});
    ExpectRow("0", V(0), {{T::TYPE_BOOL, V(false)}});
    ExpectRow("2.9", V(2.9),
              {{T::TYPE_STRING, V(u"2.9")},
               {T::TYPE_BOOL, V(true)},
               {T::TYPE_INT, V(2)},
               {T::TYPE_COLOR, V(2ul)}});
    ExpectRow("-2.5", V(-2.5), {{T::TYPE_INT, V(-2)}});
    ExpectRow("0.0001", V(0.0001), {{T::TYPE_BOOL, V(true)}});
    ExpectRow("1e20", V(1e20), {{T::TYPE_STRING, V(u"100000000000000000000")}});
    ExpectRow("1e-7", V(1e-7), {{T::TYPE_STRING, V(u"0")}});
    ExpectRow("3.0", V(3.0), {{T::TYPE_STRING, V(u"3")}});
    ExpectRow("$1.50", Cents(150),
              {{T::TYPE_STRING, V(u"$1.50")}, {T::TYPE_BOOL, V(true)}, {T::TYPE_DOUBLE, V(1.5)}});
    ExpectRow("1.5 h", Seconds(5400), {{T::TYPE_STRING, V(u"1.5")}, {T::TYPE_DOUBLE, V(1.5)}});
    ExpectRow("1000 mm", Mm(1000), {{T::TYPE_STRING, V(u"1000")}, {T::TYPE_DOUBLE, V(1000.0)}});
    ExpectRow("0.005 mm", Mm(0.005), {{T::TYPE_BOOL, V(false)}});
    ExpectRow("2 m2", V(QArea(2)), {{T::TYPE_STRING, V(u"2.00")}, {T::TYPE_DOUBLE, V(2.0)}});
    QAnyValue rateOfLength = Converted(Mm(2), T::TYPE_RATE);
    ASSERT_TRUE(rateOfLength.IsRate());
    EXPECT_TRUE(rateOfLength.MakeRate().Num().Identical(Mm(2)))
        << "the value itself is the numerator";
}

TEST_F(AnyValueConvertTest, ANumberFollowsTheDefaultUnit) {
    QLength::SetDefaultUnits(QLength::LU_METRE);
    EXPECT_TRUE(Converted(Mm(1000), T::TYPE_DOUBLE).Identical(V(1.0)));
    EXPECT_TRUE(Converted(V(2), T::TYPE_LENGTH).Identical(Mm(2000)));
    QLength::SetDefaultUnits(QLength::LU_MM);
    EXPECT_TRUE(Converted(Mm(1000), T::TYPE_DOUBLE).Identical(V(1000.0)));
}

TEST_F(AnyValueConvertTest, FromDateColorAndRate) {
    const QDateTime date(2026, 11, 21, 12, 0, 0);
    const double days = date.GetOleDate();
    ExpectRow("a date", V(date),
              {{T::TYPE_STRING, V(u"21/11/2026 12:00:00")}, {T::TYPE_DOUBLE, V(days)}});
    ExpectRow("day 0", V(QDateTime(0.0)), {{T::TYPE_BOOL, V(false)}});
    QDateTime invalid(5.0);
    invalid.SetStatus(QDateTime::invalid);
    ExpectRow("an invalid date", V(invalid), {{T::TYPE_STRING, V(u"Invalid DateTime")}});
    ExpectRow(
        "red", V(0x0000FFul),
        {{T::TYPE_STRING, V(u"rgb(255,0,0)")}, {T::TYPE_INT, V(255)}, {T::TYPE_DOUBLE, V(255.0)}});
    ExpectRow("white with a high byte", V(0xFFFFFFFFul),
              {{T::TYPE_INT, V(-1)}, {T::TYPE_DOUBLE, V(4294967295.0)}});
    EXPECT_EQ(Utf8(QAnyValue::ToRGBString(0x123456)), "rgb(86,52,18)");
    const QAnyValue rate(QRateValue(Cents(300), Mm(2)));
    ASSERT_TRUE(rate.IsRate());
    ExpectRow("$3 per 2 mm", rate, {{T::TYPE_STRING, V(u"$3.00/2")}, {T::TYPE_DOUBLE, V(1.5)}});
    ExpectRow("a zero rate", V(QRateValue(Cents(0), Mm(2))),
              {{T::TYPE_BOOL, V(false)}, {T::TYPE_STRING, V(u"$0.00/2")}});
}

TEST_F(AnyValueConvertTest, ErrorsStayErrorsAndStringsBecomeErrorsStatesDatesOrParsedValues) {
    const T targets[] = {T::TYPE_EMPTY, T::TYPE_STRING, T::TYPE_INT, T::TYPE_NA};
    for (const T target : targets) {
        const QAnyValue converted = Converted(Error("kept"), target);
        EXPECT_EQ(MessageOf(converted), "kept") << Utf8(QAnyValue::TypeToString(target));
    }
    QAnyValue error = Error("kept");
    QArray<QAnyValue>& elements = error.MakeArray();
    ASSERT_EQ(elements.GetCount(), 1);
    EXPECT_EQ(MessageOf(elements[0]), "kept");
    EXPECT_EQ(MessageOf(Converted(V(u"my message"), T::TYPE_ERROR)), "my message");
    EXPECT_TRUE(Converted(V(u"#err!"), T::TYPE_INT).IsError());
    EXPECT_TRUE(Converted(V(u"#n/a"), T::TYPE_LENGTH).IsNA());
    EXPECT_TRUE(Converted(V(u"#Empty"), T::TYPE_DOUBLE).IsEmpty());
    EXPECT_TRUE(Converted(V(u"#N/A"), T::TYPE_ARRAY).IsNA()) << "the words come before the target";
    EXPECT_TRUE(Converted(V(u"anything"), T::TYPE_EMPTY).IsEmpty());
    EXPECT_TRUE(Converted(V(u"x"), T::TYPE_ARRAY).Identical(Array({u"x"})));
    EXPECT_TRUE(FakeEvaluator::asked.empty());
    const QAnyValue date = Converted(V(u"21/11/2026"), T::TYPE_DATETIME);
    EXPECT_TRUE(date.Identical(V(QDateTime(2026, 11, 21))));
    EXPECT_EQ(MessageOf(Converted(V(u"soon"), T::TYPE_DATETIME)), "Invalid DateTime");
    const struct {
        const char* text;
        T target;
        QAnyValue expected;
    } cases[] = {
        {"", T::TYPE_DOUBLE, V(0.0)},
        {"42", T::TYPE_INT, V(42)},
        {"3'", T::TYPE_LENGTH, V(QLength(3, QLength::LU_FOOT))},
        {"$1,234.50", T::TYPE_MONEY, Cents(123450)},
        {"90 s", T::TYPE_TIME, Seconds(90)},
        {"yes", T::TYPE_BOOL, V(true)},
        {"rgb(255, 128, 0)", T::TYPE_COLOR, V(0x0080FFul)},
        {"RGB(1,2,3)", T::TYPE_COLOR, V(0x030201ul)},
        {"255", T::TYPE_COLOR, V(255ul)},
    };
    for (const auto& c : cases) {
        const QAnyValue result = Converted(V(c.text), c.target);
        EXPECT_TRUE(result.Identical(c.expected))
            << "\"" << c.text << "\": got " << Describe(result);
    }
    EXPECT_TRUE(FakeEvaluator::asked.empty()) << "no text needed the evaluator";
}

TEST_F(AnyValueConvertTest, StatesEmptyArraysAndTablesConvert) {
    EXPECT_TRUE(Converted(NA(), T::TYPE_EMPTY).IsNA());
    EXPECT_TRUE(Converted(NA(), T::TYPE_ERROR).IsError());
    EXPECT_TRUE(Converted(NA(), T::TYPE_ARRAY).Identical(Array({NA()})));
    EXPECT_TRUE(Converted(V(), T::TYPE_INT).Identical(V(0)));
    EXPECT_TRUE(Converted(V(), T::TYPE_ARRAY).Identical(Array({})))
        << "an empty value becomes an empty array, not an array of one";
    EXPECT_EQ(MessageOf(Converted(V(3), T::TYPE_ERROR)), "");
    const QAnyValue noTable = Converted(V(3), T::TYPE_LOOKUPTABLE);
    ASSERT_TRUE(noTable.IsLookupTable());
    EXPECT_EQ(Utf8(noTable.Format()), "") << "no noTable";
    const QAnyValue array = Array({2.5, u"a \"b\"", V(), Mm(3)});
    EXPECT_TRUE(Converted(array, T::TYPE_STRING).Identical(V(u"[2.5,\"a \"\"b\"\"\",,3]")));
    EXPECT_TRUE(Converted(array, T::TYPE_INT).Identical(V(2))) << "the first element counts";
    EXPECT_TRUE(Converted(Array({Error("first")}), T::TYPE_INT).IsError());
    EXPECT_TRUE(Converted(Array({}), T::TYPE_STRING).Identical(V(u"[]")));
    EXPECT_THROW(Converted(Array({}), T::TYPE_INT), InvalidArgumentException);
    const QAnyValue table(QTableHandlePtr(new test::NamedTable(u"/tables/prices.vlt")));
    EXPECT_TRUE(Converted(table, T::TYPE_STRING).Identical(V(u"/tables/prices.vlt")));
    EXPECT_TRUE(Converted(table, T::TYPE_INT).Identical(V(0)));
    EXPECT_TRUE(Converted(V(QTableHandlePtr()), T::TYPE_STRING).Identical(V(u"")));
}

TEST_F(AnyValueConvertTest, TheFormulaStepItsFailuresAndRunningAsAFormulaWhichSkipsTheParser) {
    EXPECT_TRUE(Converted(V(u"=1+1"), T::TYPE_DOUBLE).Identical(V(2.0)));
    EXPECT_EQ(FakeEvaluator::asked, std::vector<std::string>{"1+1"}) << "without the =";
    FakeEvaluator::asked.clear();
    EXPECT_TRUE(Converted(V(u"1+1"), T::TYPE_DOUBLE).Identical(V(2.0))) << "after the parse fails";
    EXPECT_EQ(FakeEvaluator::asked, std::vector<std::string>{"1+1"});
    EXPECT_TRUE(Converted(V(u"=42"), T::TYPE_INT).IsError())
        << "= skips the parser, and the fake evaluator knows no numbers";

    QAnyValue feet = Converted(V(u"3 ft"), T::TYPE_DOUBLE);
    ASSERT_TRUE(feet.IsDouble()) << "3 feet as a number in the default unit";
    EXPECT_DOUBLE_EQ(feet.MakeDouble(), 914.4);
    EXPECT_TRUE(Converted(V(u"red"), T::TYPE_COLOR).Identical(V(0xFFul)));
    EXPECT_TRUE(Converted(V(u"five"), T::TYPE_INT).Identical(V(5)))
        << "a string result is converted in turn";
    EXPECT_TRUE(Converted(V(u"missing"), T::TYPE_INT).IsNA());
    EXPECT_EQ(MessageOf(Converted(V(u"broken"), T::TYPE_INT)), "inner failure");
    EXPECT_TRUE(Converted(V(u"="), T::TYPE_INT).Identical(V(0)));
    EXPECT_EQ(MessageOf(Converted(V(u"abc"), T::TYPE_DOUBLE)), "Could not evaluate formula\nabc");
    const QAnyValue pingPong = Converted(V(u"ping"), T::TYPE_INT);
    EXPECT_EQ(MessageOf(pingPong).rfind("Could not evaluate formula (looping)\n", 0), 0u)
        << MessageOf(pingPong);
    EXPECT_EQ(MessageOf(Converted(V(u"rgb(256,0,0)"), T::TYPE_COLOR)),
              "Could not evaluate formula\nrgb(256,0,0)");
    SetFormulaEvaluatorHook(nullptr);
    EXPECT_EQ(MessageOf(Converted(V(u"1+1"), T::TYPE_DOUBLE)), "Could not evaluate formula\n1+1");
}

TEST_F(AnyValueConvertTest, ParseOfOneTypeSetsTheTypeEvenWhenItFailsAndParseTriesTheTypesInOrder) {
    QAnyValue value(u"old");
    EXPECT_EQ(value.Parse(u"abc", T::TYPE_LENGTH), PARSE_NONE);
    EXPECT_TRUE(value.Identical(Mm(0)));
    EXPECT_EQ(value.Parse(u"4", T::TYPE_LENGTH), PARSE_DEFAULTED);
    EXPECT_TRUE(value.Identical(Mm(4)));
    EXPECT_EQ(value.Parse(u"4cm", T::TYPE_LENGTH), PARSE_EXACT);
    EXPECT_TRUE(value.Identical(Mm(40)));
    EXPECT_EQ(value.Parse(u"any text", T::TYPE_STRING), PARSE_EXACT);
    EXPECT_TRUE(value.Identical(V(u"any text")));
    EXPECT_EQ(value.Parse(u"x", T::TYPE_ARRAY), PARSE_NONE);
    EXPECT_EQ(value.Parse(u"21/11/2026", T::TYPE_DATETIME), PARSE_EXACT);
    EXPECT_EQ(value.Parse(u"no digits", T::TYPE_DATETIME), PARSE_NONE);
    EXPECT_EQ(value.Parse(u"$2 / hr", T::TYPE_RATE), PARSE_EXACT);
    const struct {
        const char* text;
        PARSERESULT result;
        QAnyValue expected;
    } cases[] = {
        {"yes", PARSE_EXACT, V(true)},
        {"12", PARSE_EXACT, V(true)},
        {"0", PARSE_EXACT, V(false)},
        {"1.5", PARSE_EXACT, V(1.5)},
        {"$1.50", PARSE_EXACT, Cents(150)},
        {"3 s", PARSE_EXACT, Seconds(3)},
        {"3 mm", PARSE_EXACT, Mm(3)},
        {"3 sqm", PARSE_EXACT, V(QArea(3))},
        {"3 cbm", PARSE_EXACT, V(QVolume(3))},
        {"90 deg", PARSE_EXACT, V(QAngle(90))},
        {"yes please", PARSE_DEFAULTED, V(true)},
        {"hello", PARSE_EXACT, V(u"hello")},
        {"", PARSE_EXACT, V(u"")},
    };
    for (const auto& c : cases) {
        QAnyValue value;
        EXPECT_EQ(value.Parse(CString(c.text)), c.result) << c.text;
        EXPECT_TRUE(value.Identical(c.expected)) << "\"" << c.text << "\": " << Describe(value);
    }
    QAnyValue rate;
    EXPECT_EQ(rate.Parse(u"$5 / hr"), PARSE_EXACT);
    EXPECT_TRUE(rate.IsRate());
}

TEST_F(AnyValueConvertTest, ParseBoolParseIntAndParseDouble) {
    const struct {
        const char* text;
        PARSERESULT result;
        bool value;
    } cases[] = {
        {" YES ", PARSE_EXACT, true},       {"No", PARSE_EXACT, false},
        {"yess", PARSE_EXACT, true},        {"ye", PARSE_EXACT, true},
        {"on", PARSE_EXACT, false},         {"nope", PARSE_DEFAULTED, false},
        {"yes sir", PARSE_DEFAULTED, true}, {"42", PARSE_EXACT, true},
        {"0", PARSE_EXACT, false},
    };
    for (const auto& c : cases) {
        bool value = !c.value;
        EXPECT_EQ(QAnyValue::ParseBool(value, CString(c.text)), c.result) << c.text;
        EXPECT_EQ(value, c.value) << c.text;
    }
    for (const char* text : {"maybe", "", "1.5", "true"}) {
        bool value = true;
        EXPECT_EQ(QAnyValue::ParseBool(value, CString(text)), PARSE_NONE) << text;
        EXPECT_TRUE(value) << "left alone: " << text;
    }
    int whole = 0;
    EXPECT_TRUE(QAnyValue::ParseInt(whole, u" -12 "));
    EXPECT_EQ(whole, -12);
    for (const char* text : {"12x", "12 x", "1.5", "", "x"}) {
        whole = 99;
        EXPECT_FALSE(QAnyValue::ParseInt(whole, CString(text))) << text;
        EXPECT_EQ(whole, 99) << text;
    }
    double number = 0;
    EXPECT_TRUE(QAnyValue::ParseDouble(number, u" -2e3 "));
    EXPECT_EQ(number, -2000.0);
    EXPECT_TRUE(QAnyValue::ParseDouble(number, u"7"));
    EXPECT_EQ(number, 7.0);
    for (const char* text : {"1.5.2", "1.5 m", "", "inf", "nan"}) {
        number = 99;
        EXPECT_FALSE(QAnyValue::ParseDouble(number, CString(text))) << text;
        EXPECT_EQ(number, 99.0) << text;
    }
}

} // namespace

} // namespace keel
