#include "tests/tables/tablefixture.h"

#include "keel/formula/evaluator.h"
#include "keel/tables/lookuptable.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

// The statements of action formulas that change tables, run against table files: an update
// changes the shared table at once, and only a committed transaction writes the file.

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

TEST_F(TableStatements, AnUpdateByIndexesCountsFromOneAndTheKeysComeInEitherOrder) {
    const Outcome outcome = Action(u"begintrans vlt \"prices\";"
                                   u"update vlt \"prices\" set cell := $1.25 "
                                   u"where colindex = 1 and rowindex = 1;"
                                   u"committrans vlt \"prices\"");
    ASSERT_TRUE(outcome.ok) << outcome.message.ToUtf8();
    EXPECT_EQ(PriceOnDisk(5), "$1.25");
    EXPECT_EQ(PriceOnDisk(10), "$4.00");
}

TEST_F(TableStatements, AnUpdateChangesTheSharedTableAtOnceAndARollbackReadsTheFileAgain) {
    QLookupTable held;
    ASSERT_TRUE(held.SetName(u"prices"));
    const Outcome updated = Action(u"begin transaction vlt \"prices\";"
                                   u"update vlt \"prices\" set cell = $7.00 "
                                   u"where row = 5 and col = \"Price\"");
    ASSERT_TRUE(updated.ok) << updated.message.ToUtf8();
    QAnyValue price;
    ASSERT_TRUE(held.LookupByIndexNoEval(0, 0, price));
    EXPECT_EQ(price.MakeCString().ToUtf8(), "$7.00") << "a handle sees the change before any write";
    EXPECT_EQ(ReadTable("prices"), c_prices) << "nothing is written before the commit";

    const Outcome rolledBack = Action(u"rollback vlt \"prices\"");
    ASSERT_TRUE(rolledBack.ok) << rolledBack.message.ToUtf8();
    ASSERT_TRUE(held.LookupByIndexNoEval(0, 0, price));
    EXPECT_EQ(price.MakeCString().ToUtf8(), "$2.50");
    EXPECT_EQ(ReadTable("prices"), c_prices);
}

TEST_F(TableStatements, ReloadOfEveryTableDropsTheUnheldAndRereadsTheHeldAtTheirNextName) {
    QLookupTable held;
    ASSERT_TRUE(held.SetName(u"prices"));
    WriteTable("prices", c_prices.substr(0, c_prices.find("10\t")) + "10\t$4.40\n");
    const Outcome outcome = Action(u"reload vlt *");
    ASSERT_TRUE(outcome.ok) << outcome.message.ToUtf8();
    EXPECT_TRUE(held.Data()->IsReloadRequired());
    QLookupTable again;
    ASSERT_TRUE(again.SetName(u"prices"));
    QAnyValue price;
    ASSERT_TRUE(again.LookupByIndexNoEval(1, 0, price));
    EXPECT_EQ(price.MakeCString().ToUtf8(), "$4.40");
}

TEST_F(TableStatements, AnUpdateOfAMissingCellOrTableIsAnErrorValueNotAFailure) {
    const Outcome missingCell = Action(u"update vlt \"prices\" set cell = 1 "
                                       u"where row = 7 and col = \"Price\"");
    EXPECT_TRUE(missingCell.ok) << missingCell.message.ToUtf8();
    const Outcome missingTable = Action(u"begin transaction vlt \"nosuch\"");
    EXPECT_TRUE(missingTable.ok) << missingTable.message.ToUtf8();
    CString message;
    EXPECT_TRUE(QAnyValue(missingTable.value).IsErrorAndGetMessage(message));
    EXPECT_EQ(message.ToUtf8(), "Cannot find lookup table nosuch");
}

} // namespace
} // namespace keel
