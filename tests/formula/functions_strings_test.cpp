#include "tests/support/functioncalls.h"

#include "keel/values/datetime.h"

#include <gtest/gtest.h>
#include <string>

namespace keel {
namespace {

// The forms of a date that follow the locale; tests/formula/cases/functions_strings.txt holds
// the other string functions.
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
};

TEST_F(FunctionsStringsTest, FormatWritesADateByAFormOrAText) {
    // Day 45000 is 15 March 2023, a Wednesday.
    ExpectValues({
        {"format(45000, \"%Y-%m-%d\")", QAnyValue(u"2023-03-15")},
        {"format(45000, 0)", QAnyValue(u"15/03/2023 00:00:00")},
        {"format(45000, 2)", QAnyValue(u"15/03/2023")},
        {"format(45000.25, 3)", QAnyValue(u"06:00:00")},
        {"format(45000, 4)", QAnyValue(u"4")},
        {"format(45000, \"2\")", QAnyValue(u"2")},
    });
    const test::CallOutcome longDate = Run("format(45000, 1)");
    ASSERT_TRUE(longDate.ok) << longDate.message;
    const std::string text = QAnyValue(longDate.result).MakeCString().ToUtf8();
    EXPECT_NE(text.find("Wednesday"), std::string::npos) << text;
    EXPECT_NE(text.find("2023"), std::string::npos) << text;
    ExpectErrors({{"format(cverr(\"passed\"), 1)", "passed"},
                  {"format(45000, cverr(\"passed\"))", "passed"}});
}

} // namespace
} // namespace keel
