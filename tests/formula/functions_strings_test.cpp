#include "tests/support/anyvalues.h"
#include "tests/support/functioncalls.h"

#include "keel/document/errorlog.h"
#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"
#include "keel/values/datetime.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace keel {
namespace {

using test::Array;
using test::MessageOf;

QAnyValue Text(const char* text) {
    return QAnyValue(CString::FromUtf8(text));
}

QAnyValue Texts(std::initializer_list<const char*> texts) {
    QArray<QAnyValue> elements;
    for (const char* text : texts)
        elements.Add(Text(text));
    return QAnyValue(elements);
}

using Outcome = test::CallOutcome;

// Formula texts that differ only in case share their tokens, string literals included, so no
// two formulas here differ only in case.
class FunctionsStringsTest : public test::FunctionCallTest {
protected:
    void SetUp() override {
        FunctionCallTest::SetUp();
        QDateTime::SetLocaleFormats(u"%d/%m/%Y", u"%H:%M:%S");
    }
    void TearDown() override {
        QDateTime::ResetLocale();
        FunctionCallTest::TearDown();
    }

    // Every string function can take a text first.
    static void ExpectCountsTaken(std::initializer_list<CountCase> cases) {
        FunctionCallTest::ExpectCountsTaken(cases, "\"a\"");
    }
};

TEST_F(FunctionsStringsTest, CharactersAndTheirCodes) {
    ExpectValues({
        {"char(65)", Text("A")},
        {"chr(97)", Text("a")},
        {"char(8364)", Text("€")},
        {"code(\"A\")", QAnyValue(65)},
        {"asc(\"bc\")", QAnyValue(98)},
        {"code(\"\")", QAnyValue(0)},
        {"code(5)", QAnyValue(53)},
        // Above 127 the code is read as a byte.
        {"code(\"é\")", QAnyValue(233)},
        {"asc(\"€\")", QAnyValue(0xAC)},
        {"len(\"abc\")", QAnyValue(3)},
        {"len(\"\")", QAnyValue(0)},
        {"len(123)", QAnyValue(3)},
        {"len(array(1, 22))", Array({QAnyValue(1), QAnyValue(2)})},
    });
    ExpectErrors({
        {"char(\"x\")", "Could not evaluate formula\nx"},
        {"chr(#err!)", "#ERR!"},
        {"code(cverr(\"passed\"))", "passed"},
        {"asc(cverr(\"passed\"))", "passed"},
        {"len(cverr(\"passed\"))", "passed"},
    });
    ExpectValues({{"len(#N/A)", test::NA()}});
    ExpectCountsTaken(
        {{"char", 1, 1}, {"chr", 1, 1}, {"code", 1, 1}, {"asc", 1, 1}, {"len", 1, 1}});
}

TEST_F(FunctionsStringsTest, CaseChangesTheTextOrOnlyStrings) {
    ExpectValues({
        {"lower(\"AbC\")", Text("abc")},
        {"lcase(\"DeF\")", Text("def")},
        {"upper(\"gHi\")", Text("GHI")},
        {"ucase(\"jK\")", Text("JK")},
        {"lower(5)", Text("5")},
        {"upper(2 ft)", Text("609.6")},
        {"lowernocvt(\"MN\")", Text("mn")},
        {"uppernocvt(\"op\")", Text("OP")},
        // Other types stay exactly as they are.
        {"lowernocvt(5)", QAnyValue(5)},
        {"uppernocvt(2.5)", QAnyValue(2.5)},
        {"uppernocvt(#N/A)", test::NA()},
    });
    ExpectErrors({
        {"lower(cverr(\"passed\"))", "passed"},
        {"lcase(cverr(\"passed\"))", "passed"},
        {"upper(cverr(\"passed\"))", "passed"},
        {"ucase(cverr(\"passed\"))", "passed"},
        {"lowernocvt(cverr(\"passed\"))", "passed"},
    });
    ExpectCountsTaken({{"lower", 1, 1},
                       {"lcase", 1, 1},
                       {"upper", 1, 1},
                       {"ucase", 1, 1},
                       {"lowernocvt", 1, 1},
                       {"uppernocvt", 1, 1}});
}

TEST_F(FunctionsStringsTest, TrimRemovesWhiteSpaceOrASet) {
    ExpectValues({
        {"ltrim(\"  a  \")", Text("a  ")},
        {"rtrim(\"  a  \")", Text("  a")},
        {"trim(\" \\t a \\n \")", Text("a")},
        {"trim(\"xxaxx\", \"x\")", Text("a")},
        {"ltrim(\"abcab\", \"ba\")", Text("cab")},
        {"rtrim(\"abcab\", \"ba\")", Text("abc")},
        {"trim(\" a \", \"\")", Text(" a ")},
        {"trim(12, 1)", Text("2")},
    });
    ExpectErrors({
        {"ltrim(cverr(\"passed\"))", "passed"},
        {"rtrim(\"a\", cverr(\"passed\"))", "passed"},
        {"trim(cverr(\"passed\"), \"x\")", "passed"},
    });
    ExpectCountsTaken({{"ltrim", 1, 2}, {"rtrim", 1, 2}, {"trim", 1, 2}});
}

TEST_F(FunctionsStringsTest, PartsOfATextCountFromOne) {
    ExpectValues({
        {"left(\"abc\")", Text("a")},
        {"left(\"abc\", 2)", Text("ab")},
        {"left(\"abc\", 10)", Text("abc")},
        {"left(\"abc\", -1)", Text("")},
        {"right(\"abc\")", Text("c")},
        {"right(\"abc\", 2)", Text("bc")},
        {"right(\"abc\", 0)", Text("")},
        {"mid(\"abcdef\", 2)", Text("bcdef")},
        {"mid(\"abcdef\", 2, 3)", Text("bcd")},
        {"mid(\"abcdef\", 5, 9)", Text("ef")},
        {"mid(\"abc\", 9)", Text("")},
        {"mid(\"abc\", 0, 2)", Text("ab")},
        {"rept(\"ab\", 3)", Text("ababab")},
        {"rept(\"ab\", 0)", Text("")},
        {"rept(\"ab\", -2)", Text("")},
        {"replace(\"abcdef\", 2, 3, \"X\")", Text("aXef")},
        {"replace(\"abc\", 4, 0, \"d\")", Text("abcd")},
        {"replace(\"abc\", 1, 0, \"z\")", Text("zabc")},
        {"replace(\"abc\", 2, 99, \"\")", Text("a")},
    });
    ExpectErrors({
        {"left(cverr(\"passed\"))", "passed"},
        {"right(\"abc\", cverr(\"passed\"))", "passed"},
        {"left(\"abc\", \"x\")", "Could not evaluate formula\nx"},
        {"mid(\"abc\", cverr(\"passed\"))", "passed"},
        {"mid(\"abc\", 1, cverr(\"passed\"))", "passed"},
        {"rept(cverr(\"passed\"), 2)", "passed"},
        {"replace(\"abc\", 1, 1, cverr(\"passed\"))", "passed"},
    });
    ExpectCountsTaken(
        {{"left", 1, 2}, {"right", 1, 2}, {"mid", 2, 3}, {"rept", 2, 2}, {"replace", 4, 4}});
}

TEST_F(FunctionsStringsTest, ExactComparesWithCase) {
    ExpectValues({
        {"exact(\"a\", \"a\")", QAnyValue(true)},
        {"exact(\"b\", \"B\")", QAnyValue(false)},
        {"exact(1, \"1\")", QAnyValue(true)},
        {"exact(\"ab\", \"abc\")", QAnyValue(false)},
    });
    ExpectErrors({{"exact(\"a\", cverr(\"passed\"))", "passed"}});
    ExpectCountsTaken({{"exact", 2, 2}});
}

TEST_F(FunctionsStringsTest, FindAndSearchGiveAPositionOrZero) {
    ExpectValues({
        {"find(\"b\", \"abcb\")", QAnyValue(2)},
        {"find(\"b\", \"abcb\", 3)", QAnyValue(4)},
        {"find(\"b\", \"abcb\", 5)", QAnyValue(0)},
        {"find(\"z\", \"abc\")", QAnyValue(0)},
        {"find(\"\", \"abc\")", QAnyValue(1)},
        {"find(\"C\", \"abc\")", QAnyValue(0)},
        {"instr(\"c\", \"abc\")", QAnyValue(3)},
        {"instr(\"c\", \"abcc\", 4)", QAnyValue(4)},
        // A carriage return and line feed count as one character.
        {"find(\"x\", \"a\\r\\nx\")", QAnyValue(3)},
        {"find(\"\\r\\n\", \"a\\r\\nx\")", QAnyValue(2)},
        {"search(\"B\", \"abc\")", QAnyValue(2)},
        {"search(\"c\", \"ABCc\", 4)", QAnyValue(4)},
        {"search(\"x\", \"a\\r\\nx\")", QAnyValue(4)},
        {"findoneof(\"xc\", \"abcx\")", QAnyValue(3)},
        {"findoneof(\"a\", \"abca\", 2)", QAnyValue(4)},
        {"findoneof(\"qz\", \"abc\")", QAnyValue(0)},
    });
    ExpectErrors({
        {"find(cverr(\"passed\"), \"abc\")", "passed"},
        {"instr(\"a\", cverr(\"passed\"))", "passed"},
        {"search(\"a\", \"abc\", cverr(\"passed\"))", "passed"},
        {"findoneof(cverr(\"passed\"), \"abc\")", "passed"},
    });
    ExpectCountsTaken({{"find", 2, 3}, {"instr", 2, 3}, {"search", 2, 3}, {"findoneof", 2, 3}});
}

TEST_F(FunctionsStringsTest, SubstituteReplacesAllOrOneOccurrence) {
    ExpectValues({
        {"substitute(\"a-b-c\", \"-\", \"+\")", Text("a+b+c")},
        {"substitute(\"a-b-c\", \"-\", \"+\", 0)", Text("a+b+c")},
        {"substitute(\"a-b-c\", \"-\", \"+\", 2)", Text("a-b+c")},
        {"substitute(\"a-b-c\", \"-\", \"+\", 5)", Text("a-b-c")},
        {"substitute(\"aaa\", \"aa\", \"b\")", Text("ba")},
        {"substitute(\"abc\", \"\", \"x\")", Text("abc")},
    });
    ExpectErrors({{"substitute(\"a\", \"a\", cverr(\"passed\"))", "passed"}});
    ExpectCountsTaken({{"substitute", 3, 4}});
}

TEST_F(FunctionsStringsTest, FieldsAreSeparatedByAVerticalBarUnlessTold) {
    ExpectValues({
        {"field(\"a|b|c\", 2)", Text("b")},
        {"field(\"a,b\", 2, \",\")", Text("b")},
        {"field(\"a::b::c\", 3, \"::\")", Text("c")},
        {"field(\"a|b\", 5)", Text("")},
        {"field(\"a|b\", 0)", Text("")},
        {"field(\"a||c\", 2)", Text("")},
        {"fieldcount(\"a|b|c\")", QAnyValue(3)},
        {"fieldcount(\"\")", QAnyValue(0)},
        {"fieldcount(\"a|\")", QAnyValue(2)},
        {"fieldcount(\"a;b\", \";\")", QAnyValue(2)},
        {"fieldcount(\"a;b\", \"\")", QAnyValue(1)},
        {"stringtoarray(\"a|b\")", Texts({"a", "b"})},
        {"stringtoarray(\"1,2\", \",\")", Texts({"1", "2"})},
        {"stringtoarray(\"\")", Array({})},
        {"arraytostring(array(1, 2))", Text("12")},
        {"arraytostring(array(1, 2), \", \")", Text("1, 2")},
        {"arraytostring(stringtoarray(\"x|y\"), \"+\")", Text("x+y")},
        {"arraytostring(5)", Text("5")},
        {"arraytostring(array())", Text("")},
    });
    ExpectErrors({
        {"field(cverr(\"passed\"), 1)", "passed"},
        {"field(\"a\", cverr(\"passed\"))", "passed"},
        {"fieldcount(\"a\", cverr(\"passed\"))", "passed"},
        {"stringtoarray(cverr(\"passed\"))", "passed"},
        {"arraytostring(cverr(\"passed\"))", "passed"},
    });
    ExpectCountsTaken(
        {{"field", 2, 3}, {"fieldcount", 1, 2}, {"stringtoarray", 1, 2}, {"arraytostring", 1, 2}});
}

TEST_F(FunctionsStringsTest, FormatWritesADateByAFormOrAText) {
    // Day 45000 is 15 March 2023, a Wednesday.
    ExpectValues({
        {"format(45000, \"%Y-%m-%d\")", Text("2023-03-15")},
        {"format(45000.5, \"%H:%M\")", Text("12:00")},
        {"format(45000, 0)", Text("15/03/2023 00:00:00")},
        {"format(45000, 2)", Text("15/03/2023")},
        {"format(45000.25, 3)", Text("06:00:00")},
        {"format(45000, 4)", Text("4")},
        {"format(45000, \"2\")", Text("2")},
    });
    const Outcome longDate = Run("format(45000, 1)");
    ASSERT_TRUE(longDate.ok) << longDate.message;
    const std::string text = QAnyValue(longDate.result).MakeCString().ToUtf8();
    EXPECT_NE(text.find("Wednesday"), std::string::npos) << text;
    EXPECT_NE(text.find("2023"), std::string::npos) << text;
    ExpectErrors({{"format(cverr(\"passed\"), 1)", "passed"},
                  {"format(45000, cverr(\"passed\"))", "passed"}});
    ExpectCountsTaken({{"format", 2, 2}});
}

} // namespace
} // namespace keel
