#include "tests/support/evaluations.h"
#include "tests/support/tables.h"

#include "keel/values/tablehandle.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::MessageOf;

// The statements that need tables; the rest are in tests/formula/cases/statements.txt.

test::Evaluation Action(const char* formula, bool eval = true) {
    return test::Evaluated(formula, nullptr, {.action = true, .eval = eval});
}

testing::AssertionResult Gives(const char* formula, const QAnyValue& expected) {
    const test::Evaluation outcome = Action(formula);
    if (!outcome.ok)
        return testing::AssertionFailure() << formula << " failed: " << outcome.message;
    if (!(outcome.value == expected))
        return testing::AssertionFailure()
               << formula << " gives " << outcome.value.Format().ToUtf8();
    return testing::AssertionSuccess();
}

// --- Lookup-table statements

class StatementsTables : public testing::Test {
protected:
    void SetUp() override { m_previous = SetTableHandleSource(&m_source); }
    void TearDown() override { SetTableHandleSource(m_previous); }

    // Every journal entry of every table opened, in order.
    std::vector<std::string> Journal() const {
        std::vector<std::string> entries;
        for (const QSmartPtr<test::NamedTable>& table : m_source.m_opened)
            entries.insert(entries.end(), table->m_journal.begin(), table->m_journal.end());
        return entries;
    }

    test::NamedTableSource m_source;
    QTableHandleSource* m_previous = nullptr;
};

using Entries = std::vector<std::string>;

TEST_F(StatementsTables, EachStatementRunsOnTheTable) {
    const std::pair<const char*, QAnyValue> cases[] = {
        {"begin transaction vlt 'prices'", QAnyValue(true)},
        {"commit transaction vlt 'prices'", QAnyValue(true)},
        {"rollback vlt 'prices'", QAnyValue(true)},
        {"reload vlt 'prices'", QAnyValue(true)},
        {"x := 'p'; begin transaction vlt x; 3", QAnyValue(3)},
        {"update vlt 'p' set cell = 5 where row = 'a' and col = 'b'", QAnyValue(true)},
        {"update vlt 'p' set cell := 2 * 3 where col = 'b' and row = 'a'", QAnyValue(true)},
        {"update vlt 'p' set cell = 6 where rowindex = 3 and colindex = 2", QAnyValue(true)},
        {"update vlt 'p' set cell = 7 where colindex = 1 and rowindex = 1 + 1", QAnyValue(true)},
        {"commit := 2; commit + 1", QAnyValue(3)},
    };
    for (const auto& [formula, expected] : cases)
        EXPECT_TRUE(Gives(formula, expected));
    EXPECT_EQ(Journal(), (Entries{"BeginTrans", "CommitTrans", "Rollback", "Reload", "BeginTrans",
                                  "UpdateExact a b 5", "UpdateExact a b 6", "UpdateByIndex 2 1 6",
                                  "UpdateByIndex 1 0 7"}));
}

TEST_F(StatementsTables, ReloadAllTables) {
    EXPECT_TRUE(Action("reload vlt *").ok);
    EXPECT_EQ(m_source.m_reloadAllCount, 1);
    EXPECT_TRUE(Action("if 0 then reload vlt * endif").ok);
    EXPECT_EQ(m_source.m_reloadAllCount, 1);
}

TEST_F(StatementsTables, AnUnknownTableIsAnErrorValue) {
    test::NamedTableSource known({"prices"});
    SetTableHandleSource(&known);
    const test::Evaluation outcome = Action("rollback vlt 'costs'");
    EXPECT_TRUE(outcome.ok) << outcome.message;
    EXPECT_EQ(MessageOf(outcome.value), "Cannot find lookup table costs");
}

} // namespace
} // namespace keel
