#include "tests/support/evaluations.h"
#include "tests/support/functioncalls.h"
#include "tests/tables/memorytable.h"
#include "tests/tables/tablefixture.h"

#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::MemoryTable;

using Outcome = test::Evaluation;
using test::DescribeValue;
using test::Error;
using test::NA;

// The table "prices" in the table folder: whole-number rows 5, 10 and 15, columns "small" and
// "large", and whole-number cells 1 to 6 row by row.
class FunctionsTablesTest : public test::TableFixture {
protected:
    void SetUp() override {
        QEvaluator::InstallAsFormulaHook();
        QLookupTable table =
            MemoryTable({5, 10, 15}, {u"small", u"large"}, {{1, 2}, {3, 4}, {5, 6}});
        table.UpdateRowLabelType(QAnyValue::TYPE_INT);
        table.UpdateColLabelType(QAnyValue::TYPE_STRING);
        table.UpdateColType(0, QAnyValue::TYPE_INT);
        table.UpdateColType(1, QAnyValue::TYPE_INT);
        CStdioFileEx file;
        ASSERT_TRUE(file.Open(TableCString("prices"),
                              CFile::modeCreate | CFile::modeWrite | CFile::typeText));
        ASSERT_TRUE(table.WriteToFile(file));
        file.Close();
        QLookupTableData::CleanupCache();
        m_t = QAnyValue(MemoryTable({u"a", u"b"}, {u"x"}, {{1}, {2}}).AsHandle());
        m_context.Set("t", m_t);
        m_context.Set("nothing", QAnyValue());
    }

    Outcome Run(const std::string& formula) {
        return test::Evaluated(formula, &m_context, {.report = true});
    }

    struct Case {
        const char* formula;
        QAnyValue expected;
    };
    // Each formula is evaluated afresh, as after a change of the document: a table read is kept
    // in the context's formula cache like any other value.
    void ExpectValues(std::initializer_list<Case> cases) {
        for (const Case& c : cases) {
            m_context.ForgetEverythingIKnow();
            const Outcome outcome = Run(c.formula);
            EXPECT_TRUE(outcome.ok) << c.formula << ": " << outcome.message;
            EXPECT_EQ(DescribeValue(outcome.value), DescribeValue(c.expected)) << c.formula;
        }
    }

    test::NamesContext m_context;
    QAnyValue m_t;
};

TEST_F(FunctionsTablesTest, ReadsByLabelsIndexesAndTests) {
    ExpectValues({
        {"lookup(\"prices\", 7, \"large\")", 4},
        {"lookup(\"nosuch\", 7, \"large\")", Error("Cannot find lookup table nosuch")},
        {"lookup(\"nosuch\", 7, \"large\", -1)", -1},
        {"lookup(\"prices\", 99, \"large\", -1)", NA()},
        {"lookup(t, \"B\", \"x\")", 2},
        {"lookupexact(\"prices\", 10, \"SMALL\")", 3},
        {"lookupexact(\"nosuch\", 10, \"small\", \"none\")", u"none"},
        {"lookupbyindex(\"prices\", 3, 2)", 6},
        {"rowcount(\"prices\")", 3},
        {"colcount(\"prices\")", 2},
        {"rowlabel(\"prices\", 2)", 10},
        {"collabel(\"prices\", 1)", u"small"},
        {"rowlabels(\"prices\")", u"5|10|15"},
        {"collabels(\"prices\")", u"small|large"},
        {"rowvalues(\"prices\", 10)", u"3|4"},
        {"colvalues(\"prices\", \"large\")", u"2|4|6"},
        {"colvaluesbyindex(\"prices\", 2)", u"2|4|6"},
        {"rowlabelsforval(\"prices\", 4)", u"10"},
        {"rowlabelsforval(\"prices\", 4, false)", u"5|10|15"},
        {"rowlabelsforval(\"prices\", 4, cverr(\"f\"))", Error("f")},
        {"collabelsforval(\"prices\", 6)", u"large"},
        {"rowlabelsforcol(\"prices\", \"small\", 3)", u"10"},
        {"collabelsforrow(\"prices\", 15, 5)", u"small"},
        {"rowlabelsforcol2(\"prices\", \"small\", 1, \"large\", 2)", u"5"},
        {"rowlabelsforcol2(\"prices\", \"small\", 1, cverr(\"s\"), \"large\", 2, true)",
         Error("s")},
        {"collabelsforrow2(\"prices\", 5, 1, 10, 3)", u"small"},
        {"rowvaluesfilterbyrow2(\"prices\", 5, 10, 3)", u"1"},
        {"colvaluesfilterbycol2(\"prices\", \"small\", \"large\", 4)", u"3"},
        {"colvaluesfilterbycol2(\"prices\", \"small\", \"large\", 4, cverr(\"e\"))", Error("e")},
    });
}

TEST_F(FunctionsTablesTest, EditsChangeTheSharedTable) {
    ExpectValues({
        {"addrow(\"prices\", 20)", true},
        {"rowcount(\"prices\")", 4},
        {"lookup(\"prices\", 17, \"small\")", QAnyValue()},
        {"removerow(\"prices\", 5)", true},
        {"removerowbyindex(\"prices\", 1)", true},
        {"rowlabels(\"prices\")", u"15|20"},
        {"addcol(\"prices\", \"extra\")", true},
        {"addcol(\"prices\", \"money\", 5)", true},
        {"addcol(\"prices\", \"odd\", cverr(\"t\"))", Error("t")},
        {"collabels(\"prices\")", u"small|large|extra|money"},
        {"removecol(\"prices\", \"EXTRA\")", true},
        {"removecolbyindex(\"prices\", 1)", true},
        {"collabels(\"prices\")", u"large|money"},
    });
    QLookupTable table;
    ASSERT_TRUE(table.SetName(u"prices"));
    QAnyValue::TYPE type = QAnyValue::TYPE_EMPTY;
    ASSERT_TRUE(table.ColType(1, type));
    EXPECT_EQ(type, QAnyValue::TYPE_MONEY);
}

TEST_F(FunctionsTablesTest, AnEditIsNeverTakenFromTheFormulaCache) {
    const Outcome first = Run("removerow(\"prices\", 5)");
    const Outcome second = Run("removerow(\"prices\", 5)");
    EXPECT_EQ(DescribeValue(first.value), DescribeValue(QAnyValue(true)));
    EXPECT_TRUE(second.value.IsNA());
    EXPECT_EQ(DescribeValue(Run("addcol(t, \"y\")").value), DescribeValue(QAnyValue(true)));
    EXPECT_EQ(DescribeValue(Run("addcol(t, \"y\")").value), DescribeValue(QAnyValue(true)));
    int cols = 0;
    ASSERT_TRUE(QLookupTable(m_t.MakeLookupTable()).ColCount(cols));
    EXPECT_EQ(cols, 3);
}

} // namespace
} // namespace keel
