#include "tests/support/anyvalues.h"
#include "tests/support/errorreports.h"

#include "keel/formula/toplevelcontext.h"
#include "keel/formula/withformula.h"
#include "keel/platform/archive.h"
#include "keel/platform/file.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace keel {
namespace {

std::string Text(const QAnyValue& value) {
    return value.MakeCStringUntranslated().ToUtf8();
}

// A context whose names are values with formulas of its own, and one extra name, "counter",
// that counts how often it is read and may say how long its value may be kept.
template <class Base>
class ValuesContext : public Base {
public:
    explicit ValuesContext(const char* type = "Sheet") : m_type(CString(type)) {}

    CString SimpleTypeName() const override { return m_type; }
    QProperties* Properties() const override { return nullptr; }

    QWithFormula<QAnyValue>& Add(const char* name, const QAnyValue& value,
                                 const char* formula = nullptr) {
        auto& slot = m_values[PropId(name).UniqueId()];
        slot = std::make_unique<QWithFormula<QAnyValue>>(
            this, value, formula ? FormulaText(formula) : FormulaText());
        return *slot;
    }
    QWithFormula<QAnyValue>& Add(const char* name, const char* formula) {
        return Add(name, QAnyValue(), formula);
    }

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool& error, QCacheState& state,
                                 bool) override {
        if (name == PropId("counter")) {
            value = QAnyValue(++m_counterReads);
            RaiseCacheState(state, m_counterState);
            if (m_moveRootOnFirstCount && m_counterReads == 1)
                this->TopLevelContext()->MarkAsNotUpToDate();
            return true;
        }
        const auto found = m_values.find(name.UniqueId());
        if (found == m_values.end())
            return false;
        value = found->second->Value();
        error = found->second->IsErrorBit();
        return true;
    }

    int m_counterReads = 0;
    QCacheState m_counterState = QCS_Stable;
    bool m_moveRootOnFirstCount = false;

private:
    CString m_type;
    std::map<int, std::unique_ptr<QWithFormula<QAnyValue>>> m_values;
};

class Root : public ValuesContext<QTopLevelFormulaContext> {
public:
    using ValuesContext::ValuesContext;
    void ProcessPreChangeFromChildHelper() override { m_notices.push_back("pre"); }
    void ProcessChangedFromChildHelper() override { m_notices.push_back("changed"); }

    std::vector<std::string> m_notices;
};

// A context that is not a root and has none above it.
class Loose : public ValuesContext<QFormulaContext> {
public:
    using ValuesContext::ValuesContext;
};

class WithFormulaTest : public test::ErrorReportsTest {
protected:
    // What a property does when something else changes.
    static void ChangeSomething(QFormulaContext& root) {
        QWithContextConcrete other(&root);
        other.PreChange();
        other.Changed();
    }
};

using WithFormulaRead = WithFormulaTest;

TEST_F(WithFormulaRead, AValueWithoutARootIsNeverEvaluatedButTakesWhatIsAssigned) {
    Loose loose;
    QWithFormula<QAnyValue>& value = loose.Add("a", QAnyValue(7), "2 + 3");
    EXPECT_EQ(Text(value.Value()), "7");
    EXPECT_EQ(value.State().Number(), 0u);
    QWithFormula<QAnyValue> detached(nullptr, QAnyValue(1), FormulaText(u"2 + 3"));
    EXPECT_EQ(Text(detached.Value()), "1");
}

TEST_F(WithFormulaRead, TheFirstReadEvaluatesAndTakesTheRootsNumberAndLaterReadsWaitForAChange) {
    Root root;
    QWithFormula<QAnyValue>& value = root.Add("a", "counter");
    QWithFormula<QAnyValue>& plain = root.Add("b", QAnyValue(12));
    EXPECT_EQ(Text(value.ValueNoEnsureUpToDate()), "");
    EXPECT_EQ(Text(value.Value()), "1");
    EXPECT_EQ(value.State(), root.SyncState());
    EXPECT_EQ(root.State(), root.SyncState());
    EXPECT_EQ(Text(plain.Value()), "12") << "without a formula the value stays";
    EXPECT_EQ(plain.State(), root.SyncState());

    EXPECT_EQ(Text(value.Value()), "1");
    EXPECT_EQ(root.m_counterReads, 1);
    ChangeSomething(root);
    EXPECT_EQ(Text(value.Value()), "2");
    EXPECT_EQ(root.m_counterReads, 2);
}

TEST_F(WithFormulaRead, AValueThatMayNotBeKeptIsEvaluatedOnEveryRead) {
    for (const bool moveRoot : {false, true}) {
        Root root;
        root.m_counterState = QCS_NotCacheable;
        root.m_moveRootOnFirstCount = moveRoot;
        QWithFormula<QAnyValue>& value = root.Add("a", "counter");
        // A root moved by the evaluation makes it go round once.
        EXPECT_EQ(Text(value.Value()), moveRoot ? "2" : "1");
        EXPECT_EQ(value.CacheState(), QCS_NotCacheable);
        EXPECT_EQ(value.State(), root.SyncState());
        EXPECT_EQ(Text(value.Value()), moveRoot ? "3" : "2");
    }
}

TEST_F(WithFormulaRead, AChangeOfOneValueReachesTheValuesThatReadIt) {
    Root root;
    QWithFormula<QAnyValue>& depth = root.Add("depth", QAnyValue(4));
    QWithFormula<QAnyValue>& width = root.Add("width", "depth * 2");
    EXPECT_EQ(Text(width.Value()), "8");
    depth = QAnyValue(5);
    EXPECT_EQ(Text(width.Value()), "10");
    depth.Assign(QAnyValue(), FormulaText(u"1 + 2"));
    EXPECT_EQ(Text(width.Value()), "6");
}

TEST_F(WithFormulaRead, AFailingFormulaSetsTheErrorBitAndEvaluateNowSaysSo) {
    Root root;
    QWithFormula<QAnyValue>& value = root.Add("a", "nosuchname + 1");
    value.Value();
    EXPECT_TRUE(value.IsErrorBit());
    // Put right, the next read clears it.
    value.Assign(QAnyValue(), FormulaText(u"1 + 1"));
    EXPECT_EQ(Text(value.Value()), "2");
    EXPECT_FALSE(value.IsErrorBit());

    QWithFormula<QAnyValue>& good = root.Add("good", "3 * 3");
    QWithFormula<QAnyValue>& bad = root.Add("bad", "3 *");
    EXPECT_TRUE(good.EvaluateNow(false));
    EXPECT_EQ(Text(good.ValueNoEnsureUpToDate()), "9");
    EXPECT_FALSE(bad.EvaluateNow(false));
    EXPECT_TRUE(bad.IsErrorBit());
}

// A value that reads itself, directly or through another, holds the report with its error bit;
// the report is shown only while reports are on, and names the context when it has a name.
TEST_F(WithFormulaRead, ARecursiveFormulaHoldsTheReport) {
    const struct {
        const char* rootName;
        bool reports;
        const char* shown;
    } cases[] = {
        {"Sheet", false, ""},
        {"Sheet", true, "Recursive formula\n\tb + 1\nin\n\tSheet"},
        {"", true, "Recursive formula\n\tb + 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.shown);
        TheErrorLog().DiscardPendingMessages();
        SetNoEvalReportErrors(!c.reports);
        Root root(c.rootName);
        QWithFormula<QAnyValue>& a = root.Add("a", "b + 1");
        QWithFormula<QAnyValue>& b = root.Add("b", "a + 1");
        const std::string where = *c.rootName ? "\nin\n\tSheet" : "";
        EXPECT_EQ(test::MessageOf(c.reports ? a.Value(true) : a.Value()),
                  "Recursive formula\n\tb + 1" + where);
        EXPECT_TRUE(a.IsErrorBit());
        EXPECT_FALSE(a.IsEvaluatingNow());
        EXPECT_TRUE(b.IsErrorBit());
        EXPECT_EQ(test::MessageOf(b.ValueNoEnsureUpToDate()), "Recursive formula\n\ta + 1" + where);
        const std::vector<test::Report> reports = test::PendingReports();
        EXPECT_EQ(reports.empty(), !*c.shown);
        if (!reports.empty()) {
            EXPECT_EQ(reports.front(), (test::Report{"Formula", c.shown}));
        }
    }
}

using WithFormulaAssign = WithFormulaTest;

struct RootInStep {
    RootInStep() { QWithContextConcrete(&root).MakeUpToDate(); }
    Root root;
};

TEST_F(WithFormulaAssign, AFormulaIsTakenWithBothNoticesAndOnlyADifferentOneClearsTheErrorBit) {
    RootInStep tree;
    QWithFormula<QAnyValue> value(&tree.root);
    value.Assign(QAnyValue(1), FormulaText(u"1 + 1"));
    EXPECT_EQ(tree.root.m_notices, (std::vector<std::string>{"pre", "changed"}));
    EXPECT_EQ(value.Formula(), FormulaText(u"1 + 1"));
    EXPECT_EQ(Text(value.ValueNoEnsureUpToDate()), "1");

    value.SetErrorBit();
    value.Assign(QAnyValue(), FormulaText(u"1 + 1"));
    EXPECT_TRUE(value.IsErrorBit());
    value.Assign(QAnyValue(), FormulaText(u"1 + 2"));
    EXPECT_FALSE(value.IsErrorBit());
}

TEST_F(WithFormulaAssign, AValueDropsTheFormulaAndTheErrorBitAndOnlyADifferentOneIsTold) {
    for (const int assigned : {5, 6}) {
        RootInStep tree;
        QWithFormula<QAnyValue> value(&tree.root, QAnyValue(5), FormulaText(u"2 + 3"));
        value.SetErrorBit();
        value = QAnyValue(assigned);
        EXPECT_EQ(tree.root.m_notices.size(), assigned == 5 ? 0u : 2u) << assigned;
        EXPECT_EQ(Text(value.ValueNoEnsureUpToDate()), std::to_string(assigned));
        EXPECT_TRUE(value.IsFormulaEmpty());
        EXPECT_FALSE(value.IsErrorBit());
    }
}

using WithFormulaBase = WithFormulaTest;

TEST_F(WithFormulaBase, SetFormulaTellsTheRootAndTheNoChangeFormsDoNot) {
    RootInStep tree;
    QWithFormulaBase holder(&tree.root);
    holder.SetFormulaNoChange(FormulaText(u"a + 1"));
    EXPECT_EQ(holder.Formula(), FormulaText(u"a + 1"));
    holder.ClearFormulaNoChange();
    EXPECT_TRUE(holder.IsFormulaEmpty());
    EXPECT_TRUE(tree.root.m_notices.empty());
    holder.SetFormula(FormulaText(u"a + 2"));
    EXPECT_EQ(tree.root.m_notices, (std::vector<std::string>{"pre", "changed"}));
}

std::vector<std::uint8_t> Stored(const QWithFormulaBase& holder) {
    CMemFile file;
    {
        CArchive archive(&file, CArchive::store);
        holder.StoreIntoArchive(archive);
        archive.Close();
    }
    return file.Detach();
}

FormulaText Loaded(std::vector<std::uint8_t> bytes) {
    CMemFile file(std::move(bytes));
    CArchive archive(&file, CArchive::load);
    QWithFormulaBase holder(nullptr, FormulaText(u"left over"));
    holder.LoadFromArchive(archive);
    return holder.Formula();
}

TEST_F(WithFormulaBase, TheFormulaIsArchivedAsACountedStringAndReadsBack) {
    EXPECT_EQ(Stored(QWithFormulaBase(nullptr, FormulaText(u"a+1"))),
              (std::vector<std::uint8_t>{0xFF, 0xFE, 0xFF, 3, 'a', 0, '+', 0, '1', 0}));
    EXPECT_EQ(Stored(QWithFormulaBase()), (std::vector<std::uint8_t>{0xFF, 0xFE, 0xFF, 0}));

    EXPECT_EQ(Loaded(Stored(QWithFormulaBase(nullptr, FormulaText(u"width * 2")))),
              FormulaText(u"width * 2"));
    EXPECT_TRUE(Loaded(Stored(QWithFormulaBase())).IsEmpty());
    // A narrow string from an older file reads as well.
    EXPECT_EQ(Loaded({2, 'x', '1'}), FormulaText(u"x1"));
}

} // namespace
} // namespace keel
