#include "tests/support/answerdocument.h"
#include "tests/support/exchangetests.h"
#include "tests/support/samevalue.h"

#include "keel/questions/properties.h"
#include "keel/values/angle.h"
#include "keel/values/area.h"
#include "keel/values/datetime.h"
#include "keel/values/length.h"
#include "keel/values/money.h"
#include "keel/values/ratevalue.h"
#include "keel/values/time.h"
#include "keel/values/volume.h"

#include <climits>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel::test {
namespace {

QAnyValue Colour(unsigned long colour) {
    return QAnyValue(colour);
}

QAnyValue ArrayOf(std::initializer_list<QAnyValue> elements) {
    QArray<QAnyValue> array;
    for (const QAnyValue& element : elements)
        array.Add(element);
    return QAnyValue(array);
}

struct Answer {
    const char* key;
    QAnyValue value;
    const char16_t* formula;
};

QAnyValue NotAvailable() {
    QAnyValue na;
    na.MakeNA();
    return na;
}

// Answers of every type that a file keeps exactly, at the edges of their ranges, with formulas
// among them and texts that need every escape. Their text is in answers.tab, sorted by key
// without regard to case, and with the values of the formulas in answers-with-values.tab.
std::vector<Answer> EveryKindOfAnswer() {
    const double third = 1.0 / 3.0;
    return {
        {"yes", QAnyValue(true), nullptr},
        {"no", QAnyValue(false), nullptr},
        {"count", QAnyValue(-12), nullptr},
        {"int_max", QAnyValue(INT_MAX), nullptr},
        {"int_min", QAnyValue(INT_MIN), nullptr},
        {"third", QAnyValue(third), nullptr},
        {"whole_ratio", QAnyValue(3.0), nullptr},
        {"tiny", QAnyValue(1e-7), nullptr},
        {"huge", QAnyValue(1e20), nullptr},
        {"width", QAnyValue(QLength::FromRaw(1234.5678901234567)), nullptr},
        {"floor", QAnyValue(QArea::FromRaw(12.345678912)), nullptr},
        {"tank", QAnyValue(QVolume::FromRaw(0.001)), nullptr},
        {"pitch", QAnyValue(QAngle::FromRaw(45.123456789)), nullptr},
        {"money_min", QAnyValue(QMoney::FromRaw(INT_MIN)), nullptr},
        {"time_min", QAnyValue(QTime::FromRaw(INT_MIN)), nullptr},
        {"per_foot",
         QAnyValue(QRateValue(QAnyValue(QMoney::FromRaw(1250)), QAnyValue(QLength(304.8)))),
         nullptr},
        {"black", Colour(0), nullptr},
        {"none", ArrayOf({}), nullptr},
        {"pieces",
         ArrayOf({QAnyValue(QLength(700.0)), QAnyValue(QLength::FromRaw(0.1)), QAnyValue(u"a, b"),
                  ArrayOf({QAnyValue(u"x"), QAnyValue(false), QAnyValue(QMoney::FromRaw(1))})}),
         nullptr},
        {"note", QAnyValue(u"tab\there, \"quoted\", new\nline, back\\slash, cr\r"), nullptr},
        {"digits", QAnyValue(u"12"), nullptr},
        {"starts_odd", QAnyValue(u"=not a formula"), nullptr},
        {"empty_text", QAnyValue(u""), nullptr},
        {"unknown", NotAvailable(), nullptr},
        {"depth", QAnyValue(QLength(600.0)), u"width / 2 + 17 mm"},
        {"label", QAnyValue(u""), u"\"w=\" & text(width) & tab & '\"'"},
        {"Mixed_Case", QAnyValue(2), u"count * -1"},
    };
}

void Fill(QProperties& answers, const std::vector<Answer>& list) {
    for (const Answer& answer : list)
        answers.SetPropertyValueWithFormula(PropId(answer.key), answer.value,
                                            answer.formula ? FormulaText(answer.formula)
                                                           : FormulaText());
}

// One export format: the extension that picks it.
struct FormatCase {
    const char* extension;
};

const FormatCase c_formats[] = {{".tab"}, {".xml"}};

class AnswersExchangeTest : public ExchangeFileTest {
protected:
    // Exports the answers of `from` and imports them into a fresh document; gives the bytes.
    std::string RoundTrip(AnswerDocument& from, AnswerDocument& to, const FormatCase& format,
                          bool minimal, const std::string& name) {
        const std::string file = name + format.extension;
        EXPECT_TRUE(from.Answers().ExportData(PathOf(file), minimal, false, nullptr)) << file;
        EXPECT_TRUE(to.Answers().ImportOrMergeFrom(PathOf(file), false, nullptr)) << file;
        return ReadFileBytes(Path(file));
    }

    // Each answer of `to` is the one of `from`: key, type, value and formula; an answer with a
    // formula has the same value when evaluated.
    static void ExpectSameAnswers(const AnswerDocument& from, const AnswerDocument& to,
                                  const std::string& what) {
        QProperties& source = *from.Properties();
        QProperties& copy = *to.Properties();
        ASSERT_EQ(copy.PropertyCount(), source.PropertyCount()) << what;
        for (int i = 0; i < source.PropertyCount(); ++i) {
            PropId key;
            QAnyValue expected;
            FormulaText formula;
            source.GetAtPropertyValueWithFormulaWithNoEnsureUpToDate(i, key, expected, formula);
            SCOPED_TRACE(what + ": " + key.ToString().ToUtf8());
            QAnyValue actual;
            FormulaText actualFormula;
            ASSERT_TRUE(
                copy.GetPropertyValueWithFormulaWithNoEnsureUpToDate(key, actual, actualFormula));
            EXPECT_EQ(actualFormula.ToString().ToUtf8(), formula.ToString().ToUtf8());
            if (formula.IsEmpty()) {
                EXPECT_TRUE(Same(actual, expected));
                continue;
            }
            bool error = false;
            QAnyValue evaluatedSource;
            QAnyValue evaluatedCopy;
            source.GetPropertyValue(key, evaluatedSource, error, nullptr);
            copy.GetPropertyValue(key, evaluatedCopy, error, nullptr);
            EXPECT_TRUE(Same(evaluatedCopy, evaluatedSource));
        }
    }
};

// Each answer is written as a text that reads back to the same type and value, and a file read
// is written again byte for byte; a .tab file is the golden one of its mode. The texts give every
// digit, so a payload that changed by its last bit would be written again otherwise.
TEST_F(AnswersExchangeTest, EveryKindOfAnswerComesBackFullMinimalAndWithValues) {
    struct Mode {
        const char* name;
        bool minimal;
        std::initializer_list<int> flags;
        const char* golden;
    };
    const Mode modes[] = {{"full", false, {}, "answers.tab"},
                          {"minimal", true, {}, "answers.tab"},
                          {"with-values", false, {6}, "answers-with-values.tab"}};
    for (const FormatCase& format : c_formats) {
        for (const Mode& mode : modes) {
            ExportFlagsScope flags(mode.flags);
            const std::string what = std::string(mode.name) + format.extension;
            AnswerDocument from;
            Fill(from.Answers(), EveryKindOfAnswer());
            AnswerDocument to;
            const std::string bytes = RoundTrip(from, to, format, mode.minimal, mode.name);
            if (format.extension == std::string(".tab")) {
                EXPECT_EQ(bytes, ReadFileBytes(ExchangeData(mode.golden))) << what;
                if (std::getenv("KEEL_WRITE_GOLDEN"))
                    WriteFileBytes(ExchangeData(mode.golden), bytes);
            }
            ExpectSameAnswers(from, to, what);
            AnswerDocument again;
            EXPECT_EQ(RoundTrip(to, again, format, mode.minimal, std::string("again-") + mode.name),
                      bytes)
                << what << " is written again byte for byte";
        }
    }
    EXPECT_EQ(PendingReports(), std::vector<Report>{c_importCompleted});
}

// No formula gives a date or a colour without a name: a date is written as the text that a date
// reads back from in any locale, and arrives as that string; a colour arrives as the whole number
// of its packed value.
TEST_F(AnswersExchangeTest, ATabFileKeepsTheContentOfDatesAndUnnamedColoursButNotTheirType) {
    const QDateTime afternoon(2024, 3, 1, 12, 34, 56);
    const QDateTime midnight(1899, 12, 30);
    AnswerDocument from;
    Fill(from.Answers(), {{"afternoon", QAnyValue(afternoon), nullptr},
                          {"midnight", QAnyValue(midnight), nullptr},
                          {"colour", Colour(0x030201), nullptr}});
    AnswerDocument to;
    const std::string bytes = RoundTrip(from, to, c_formats[0], false, "dates");
    EXPECT_NE(bytes.find("afternoon\t\"\"\"2024-03-01 12:34:56\"\"\""), std::string::npos) << bytes;
    const auto back = [&to](const char16_t* key) {
        QAnyValue value;
        FormulaText formula;
        to.Answers().GetPropertyValueWithFormulaWithNoEnsureUpToDate(PropId(key), value, formula);
        return value;
    };
    for (const auto& [key, date] :
         {std::pair{u"afternoon", afternoon}, std::pair{u"midnight", midnight}}) {
        ASSERT_TRUE(back(key).IsString()) << Describe(back(key));
        EXPECT_EQ(back(key).MakeDateTime(), date);
    }
    ASSERT_TRUE(back(u"colour").IsInt()) << Describe(back(u"colour"));
    EXPECT_EQ(back(u"colour").MakeColor(), 0x030201u);
}

// An import into answers that a change notice starts while another import is filling answers
// takes nothing; the outer import goes on.
TEST_F(AnswersExchangeTest, ImportsIntoAnswersDoNotNest) {
    WriteFileBytes(Path("inner.tab"), "inner\t1\t\t\n");
    WriteFileBytes(Path("outer.tab"), "outer\t2\t\t\nsecond\t3\t\t\n");
    AnswerDocument inner;
    AnswerDocument outer;
    int innerImports = 0;
    bool innerResult = true;
    outer.onChanged = [&] {
        if (innerImports++ == 0)
            innerResult = inner.Answers().ImportOrMergeFrom(PathOf("inner.tab"), true, nullptr);
    };
    EXPECT_TRUE(outer.Answers().ImportOrMergeFrom(PathOf("outer.tab"), false, nullptr));
    ASSERT_EQ(innerImports, 2) << "each answer set sends a change notice";
    EXPECT_FALSE(innerResult);
    EXPECT_EQ(inner.Answers().PropertyCount(), 0);
    EXPECT_EQ(outer.Answers().PropertyCount(), 2);
}

} // namespace
} // namespace keel::test
