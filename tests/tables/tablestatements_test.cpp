#include "tests/tables/tablefixture.h"

#include "keel/formula/evaluator.h"
#include "keel/tables/lookuptable.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

// The statements of action formulas reach table files: one run from the transaction to the file.
// What each statement does to a table is checked on the table and its values.

namespace keel {
namespace {

const std::string c_prices = "Prices\tVltFormat=2.1\t\n"
                             "2\t1\n"
                             "Size\t\"\"\"Price\"\"\"\n"
                             "Whole Number\\String\tMoney\n"
                             "5\t$2.50\n"
                             "10\t$4.00\n";

struct Outcome {
    bool ok = false;
    QAnyValue value;
    CString message;
};

class TableStatements : public test::TableFixture {
protected:
    void SetUp() override { WriteTable("prices", c_prices); }

    static Outcome Action(const char16_t* formula) {
        Outcome outcome;
        const std::unique_ptr<QEvaluator> evaluator(
            QEvaluator::New(outcome.value, FormulaText(formula), nullptr, false, false, true));
        outcome.ok = evaluator->Evaluate();
        outcome.message = evaluator->Message();
        return outcome;
    }

    // The price of a size as a fresh reading of the file gives it.
    std::string PriceOnDisk(int size) {
        QLookupTableData::SetAllReloadRequired();
        QLookupTable table;
        EXPECT_TRUE(table.SetName(u"prices")) << table.LastError().ToUtf8();
        QAnyValue price;
        table.LookupExact(QAnyValue(size), QAnyValue(u"Price"), price, nullptr, nullptr);
        return price.MakeCString().ToUtf8();
    }
};

TEST_F(TableStatements, ACommittedUpdateIsWrittenToTheFile) {
    const Outcome outcome = Action(u"begin transaction vlt \"prices\";"
                                   u"update vlt \"prices\" set cell = $9.99 "
                                   u"where row = 10 and col = \"Price\";"
                                   u"commit transaction vlt \"prices\"");
    ASSERT_TRUE(outcome.ok) << outcome.message.ToUtf8();
    EXPECT_EQ(PriceOnDisk(10), "$9.99");
    EXPECT_NE(ReadTable("prices").find("10\t$9.99\n"), std::string::npos) << ReadTable("prices");
}

} // namespace
} // namespace keel
