#include "tests/support/hostilevalues.h"
#include "tests/support/uihosts.h"
#include "tests/tables/tablefixture.h"

#include "keel/formula/evaluator.h"
#include "keel/tables/celltokens.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/tabtokens.h"
#include "keel/values/formulahook.h"

#include <gtest/gtest.h>
#include <string>

namespace keel::test {
namespace {

using CellSafety = TableFixture;

// The cells of a table file are data: a cell whose formula would act on the machine or ask the
// user is refused as outside an action field, whether it is read as a value or is a formula cell
// looked up without a context.
TEST_F(CellSafety, CellsThatWouldActAreRefusedAndDoNothing) {
    HostileValues hostile("vlt");
    const std::vector<HostileValues::Value> values = hostile.Values();
    std::string text = "hostile\tVltFormat=2.1\n" + std::to_string(values.size() + 1) +
                       "\t2\n\t\"\"\"value\"\"\"\t\"\"\"formula\"\"\"\n"
                       "String\\String\tString\tString\n\"\"\"plain\"\"\"\t1+1\t\"\"\"=2+2\"\"\"\n";
    for (std::size_t i = 0; i < values.size(); ++i) {
        const CString formulaCell = DoubleQuotesAndEnclose(
            InsertEscapesDoubleQuotesAndEnclose(CString::FromUtf8("=" + values[i].formula)));
        text += "\"\"\"r" + std::to_string(i) + "\"\"\"\t" + values[i].formula + "\t" +
                formulaCell.ToUtf8() + "\n";
    }
    WriteTable("hostile", text);
    DialogHost host;
    ScopedUIServices scoped(host);
    QLookupTable table;
    table.SetName(TableCString("hostile"), false, false, false);
    QAnyValue value;
    ASSERT_TRUE(table.LookupByIndex(0, 0, value, nullptr, nullptr));
    EXPECT_EQ(QAnyValue(value).MakeCString(), CString(u"2"));
    ASSERT_TRUE(table.LookupByIndex(0, 1, value, nullptr, nullptr));
    EXPECT_EQ(QAnyValue(value).MakeCString(), CString(u"4")) << "formula cells still evaluate";
    for (std::size_t i = 0; i < values.size(); ++i) {
        SCOPED_TRACE(values[i].formula);
        const int row = static_cast<int>(i) + 1;
        ASSERT_TRUE(table.LookupByIndexNoEval(row, 0, value));
        CString message;
        ASSERT_TRUE(value.IsErrorAndGetMessage(message)) << values[i].family;
        EXPECT_EQ(message.Left(31), CString(u"Only allowed in an action field"))
            << message.ToUtf8();
        table.LookupByIndex(row, 1, value, nullptr, nullptr);
    }
    EXPECT_EQ(hostile.Effects(), HostileValues::c_noEffects);
    // A bad cell is reported as any bad cell is; nothing else is shown.
    for (const std::string& call : host.calls)
        EXPECT_NE(call.find("Only allowed in an action field"), std::string::npos) << call;
}

// A string cell in a column of numbers is made a number when it is looked up, which evaluates its
// text: as data, wherever the look-up comes from.
TEST_F(CellSafety, AStringCellMadeANumberIsData) {
    HostileValues hostile("vlt-number");
    const std::vector<HostileValues::Value> values = hostile.Values();
    std::string text = "hostile\tVltFormat=2.1\n" + std::to_string(values.size() + 1) +
                       "\t1\n\t\"\"\"n\"\"\"\nString\\String\tNumber\n\"\"\"plain\"\"\"\t" +
                       CellToken(QAnyValue(u"2+3"), QAnyValue::TYPE_STRING).ToUtf8() + "\n";
    for (std::size_t i = 0; i < values.size(); ++i)
        text += "\"\"\"r" + std::to_string(i) + "\"\"\"\t" +
                CellToken(QAnyValue(CString::FromUtf8(values[i].formula)), QAnyValue::TYPE_STRING)
                    .ToUtf8() +
                "\n";
    WriteTable("numbers", text);
    DialogHost host;
    ScopedUIServices scoped(host);
    const QFormulaEvaluatorHook previous = GetFormulaEvaluatorHook();
    QEvaluator::InstallAsFormulaHook();
    QLookupTable table;
    table.SetName(TableCString("numbers"), false, false, false);
    QAnyValue value;
    std::string numbers;
    for (int row = 0; row <= static_cast<int>(values.size()); ++row) {
        table.LookupByIndex(row, 0, value, nullptr, nullptr);
        numbers += QAnyValue(value).MakeCString().ToUtf8() + " ";
    }
    SetFormulaEvaluatorHook(previous);
    EXPECT_EQ(numbers.substr(0, 2), "5 ") << numbers;
    EXPECT_EQ(hostile.Effects(), HostileValues::c_noEffects);
    EXPECT_TRUE(host.calls.empty()) << host.calls.front();
}

} // namespace
} // namespace keel::test
