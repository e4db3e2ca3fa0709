#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"
#include "tests/support/hostilevalues.h"
#include "tests/support/uihosts.h"

#include "keel/exchange/odbcfixup.h"
#include "keel/formula/evaluator.h"
#include "keel/values/formulahook.h"

#include <gtest/gtest.h>
#include <string>

namespace keel::test {
namespace {

using TabSafetyTest = ExchangeFileTest;

// Values are evaluated as data: a function that would act on the machine or ask the user is
// refused as outside an action field, and the value arrives as that error.
TEST_F(TabSafetyTest, ValuesThatWouldActArriveAsErrorsAndDoNothing) {
    HostileValues hostile("tab");
    const std::vector<HostileValues::Value> values = hostile.Values();
    std::string bytes = "plain\t1+1\t\t\n";
    for (std::size_t i = 0; i < values.size(); ++i)
        bytes += "v" + std::to_string(i) + "\t" +
                 ODBCFixup(CString::FromUtf8(values[i].formula)).ToUtf8() + "\t\t\n";
    DialogHost host;
    FakeTree tree;
    {
        ScopedUIServices scoped(host);
        Import(tree, bytes);
    }
    ASSERT_EQ(tree.bag.entries.size(), values.size() + 1);
    EXPECT_EQ(tree.bag.entries[0].value, QAnyValue(2)) << "other values still evaluate";
    for (std::size_t i = 0; i < values.size(); ++i) {
        SCOPED_TRACE(values[i].formula);
        CString message;
        ASSERT_TRUE(tree.bag.entries[i + 1].value.IsErrorAndGetMessage(message))
            << values[i].family;
        EXPECT_EQ(message.Left(31), CString(u"Only allowed in an action field"))
            << message.ToUtf8();
    }
    EXPECT_EQ(hostile.Effects(), HostileValues::c_noEffects);
    EXPECT_TRUE(host.calls.empty()) << host.calls.front();
}

// Takes every attribute as a number.
class Numbers : public QImportable {
public:
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override {
        return level.ImportUnmatchedAttributes(
            [this](const CString&, const QAnyValue& value, FormulaText) {
                numbers.push_back(QAnyValue(value).MakeInt());
                return true;
            });
    }
    std::vector<int> numbers;
};

// A string value is data too when the attribute that takes it, or the object that takes what no
// attribute took, makes it a number, which runs its text as a formula.
TEST_F(TabSafetyTest, AStringMadeANumberByItsAttributeIsEvaluatedAsData) {
    HostileValues hostile("tab-attribute");
    const std::string bytes = "shelves\t4\t\tGroup|Plain\n";
    std::string hostileBytes;
    std::string unmatchedBytes = "n\t\"\"\"2+3\"\"\"\t\t\n";
    for (const HostileValues::Value& value : hostile.Values()) {
        const std::string text =
            ODBCFixup(QAnyValue(CString::FromUtf8(value.formula)).AsFormula().ToString()).ToUtf8();
        hostileBytes += "shelves\t" + text + "\t\tGroup|" + value.family + "\n";
        unmatchedBytes += "n\t" + text + "\t\t\n";
    }
    DialogHost host;
    FakeTree tree;
    Numbers numbers;
    const QFormulaEvaluatorHook previous = GetFormulaEvaluatorHook();
    QEvaluator::InstallAsFormulaHook();
    {
        ScopedUIServices scoped(host);
        Import(tree, bytes + hostileBytes);
        Import(numbers, unmatchedBytes);
    }
    SetFormulaEvaluatorHook(previous);
    ASSERT_FALSE(tree.groups.empty());
    EXPECT_EQ(tree.groups[0]->shelves, 4);
    ASSERT_FALSE(numbers.numbers.empty());
    EXPECT_EQ(numbers.numbers[0], 5) << "a string made a number is still evaluated";
    EXPECT_EQ(hostile.Effects(), HostileValues::c_noEffects);
    EXPECT_TRUE(host.calls.empty()) << host.calls.front();
}

} // namespace
} // namespace keel::test
