#include "tests/support/errorreports.h"
#include "tests/support/evaluations.h"

#include "keel/formula/deferredeval.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/toplevelcontext.h"
#include "keel/formula/withformula.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace keel {
namespace {

using namespace std::chrono_literals;

// A root that answers one name, "tick", counting the reads; a read may take its time.
// Everything a read touches is atomic, because the worker reads.
class TickRoot : public QTopLevelFormulaContext {
public:
    CString SimpleTypeName() const override { return CString(u"Ticks"); }
    QProperties* Properties() const override { return nullptr; }
    void ProcessPreChangeFromChildHelper() override {}
    void ProcessChangedFromChildHelper() override {}

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool&, QCacheState& state,
                                 bool) override {
        if (!(name == PropId("tick")))
            return false;
        m_inside.store(true);
        std::this_thread::sleep_for(m_delay);
        value = QAnyValue(++m_reads);
        RaiseCacheState(state, QCS_NotCacheable);
        m_finished.store(true);
        return true;
    }

    std::atomic<int> m_reads{0};
    std::atomic<bool> m_inside{false};
    std::atomic<bool> m_finished{false};
    std::chrono::milliseconds m_delay{0};
};

std::string Text(const QAnyValue& value) {
    return value.MakeCStringUntranslated().ToUtf8();
}

std::atomic<const void*> g_changedAddress{nullptr};

void RecordChange(const void* address) {
    g_changedAddress.store(address);
}

class DeferredEvalTest : public testing::Test {
protected:
    void SetUp() override { g_changedAddress.store(nullptr); }
    void TearDown() override {
        QDeferredEval::WaitForWorker();
        QDeferredEval::SetValueChangedHandler(nullptr);
        QDeferredEval::RemoveAllPendingEvaluations();
    }

    TickRoot root;
};

using DeferredEvalGuard = DeferredEvalTest;

TEST_F(DeferredEvalGuard, TheFlagIsPerThreadAndGuardsNest) {
    EXPECT_FALSE(QDeferredEval::IsDeferred());
    {
        QDeferEnsureUpToDateEvaluation outer;
        EXPECT_TRUE(QDeferredEval::IsDeferred());
        bool deferredElsewhere = true;
        std::thread([&] { deferredElsewhere = QDeferredEval::IsDeferred(); }).join();
        EXPECT_FALSE(deferredElsewhere);
        { QDeferEnsureUpToDateEvaluation inner; }
        EXPECT_TRUE(QDeferredEval::IsDeferred());
    }
    EXPECT_FALSE(QDeferredEval::IsDeferred());
}

using DeferredEvalPending = DeferredEvalTest;

// The worker reports a value it changed, and not one it found as it was.
TEST_F(DeferredEvalPending, AStaleValueReadInADeferredStretchIsLeftToTheWorker) {
    QDeferredEval::SetValueChangedHandler(&RecordChange);
    for (const bool changes : {true, false}) {
        SCOPED_TRACE(changes ? "changed" : "unchanged");
        g_changedAddress.store(nullptr);
        root.m_reads.store(0);
        QWithFormula<QAnyValue> value(&root, changes ? QAnyValue() : QAnyValue(10),
                                      FormulaText(u"tick * 10"));
        const long before = QDeferredEval::WorkerEvaluationCount();
        {
            QDeferEnsureUpToDateEvaluation deferred;
            EXPECT_EQ(Text(value.Value()), changes ? "" : "10");
            EXPECT_EQ(Text(value.Value()), changes ? "" : "10");
            EXPECT_TRUE(QDeferredEval::HasPendingEvaluation(&value));
            EXPECT_EQ(root.m_reads.load(), 0);
        }
        QDeferredEval::WaitForWorker();
        EXPECT_FALSE(QDeferredEval::HasPendingEvaluation(&value));
        EXPECT_EQ(QDeferredEval::WorkerEvaluationCount(), before + 1);
        EXPECT_EQ(root.m_reads.load(), 1);
        EXPECT_EQ(Text(value.ValueNoEnsureUpToDate()), "10");
        EXPECT_EQ(value.State(), root.SyncState());
        EXPECT_EQ(g_changedAddress.load(), changes ? &value : nullptr);
        root.MarkAsNotUpToDate();
    }
}

TEST_F(DeferredEvalPending, OnlyStaleValuesWithAFormulaAndARootWait) {
    QWithFormula<QAnyValue> plain(&root, QAnyValue(3));
    QWithFormula<QAnyValue> rootless(nullptr, QAnyValue(), FormulaText(u"1"));
    QWithFormula<QAnyValue> fresh(&root, QAnyValue(), FormulaText(u"2 + 2"));
    fresh.Value();
    QDeferEnsureUpToDateEvaluation deferred;
    EXPECT_EQ(Text(plain.Value()), "3");
    EXPECT_EQ(Text(fresh.Value()), "4");
    rootless.Value();
    EXPECT_FALSE(QDeferredEval::HasPendingEvaluation(&plain));
    EXPECT_FALSE(QDeferredEval::HasPendingEvaluation(&rootless));
    EXPECT_FALSE(QDeferredEval::HasPendingEvaluation(&fresh));
}

TEST_F(DeferredEvalPending, AValueDestroyedWhilePendingIsNeverEvaluated) {
    auto doomed =
        std::make_unique<QWithFormula<QAnyValue>>(&root, QAnyValue(), FormulaText(u"tick + 1000"));
    const void* doomedAddress = doomed.get();
    QWithFormula<QAnyValue> survivor(&root, QAnyValue(), FormulaText(u"tick"));
    const long before = QDeferredEval::WorkerEvaluationCount();
    {
        QDeferEnsureUpToDateEvaluation deferred;
        doomed->Value();
        survivor.Value();
        ASSERT_TRUE(QDeferredEval::HasPendingEvaluation(doomedAddress));
        doomed.reset();
        EXPECT_FALSE(QDeferredEval::HasPendingEvaluation(doomedAddress));
        EXPECT_TRUE(QDeferredEval::HasPendingEvaluation(&survivor));
    }
    QDeferredEval::WaitForWorker();
    EXPECT_EQ(QDeferredEval::WorkerEvaluationCount(), before + 1);
    EXPECT_EQ(root.m_reads.load(), 1);
    EXPECT_EQ(Text(survivor.ValueNoEnsureUpToDate()), "1");
}

TEST_F(DeferredEvalPending, TheFirstGuardWaitsForTheEvaluationInHand) {
    root.m_delay = 50ms;
    QWithFormula<QAnyValue> value(&root, QAnyValue(), FormulaText(u"tick"));
    {
        QDeferEnsureUpToDateEvaluation deferred;
        value.Value();
    }
    while (!root.m_inside.load())
        std::this_thread::yield();
    {
        QDeferEnsureUpToDateEvaluation deferred;
        EXPECT_TRUE(root.m_finished.load());
    }
    QDeferredEval::WaitForWorker();
    EXPECT_EQ(root.m_reads.load(), 1);
}

// Names s0 .. s<depth - 1> hold the strings "=s1" .. "=s<depth>"; s<depth> holds 7.
class StringChain : public QFormulaContext {
public:
    explicit StringChain(int depth) : m_depth(depth) {}
    CString SimpleTypeName() const override { return CString(u"Chain"); }
    QProperties* Properties() const override { return nullptr; }

    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool&, QCacheState&,
                                 bool) override {
        const CString text = name.ToString();
        if (text.GetLength() < 2 || text[0] != u's')
            return false;
        const int index = std::stoi(text.Mid(1).ToUtf8());
        if (index < m_depth)
            value = QAnyValue(CString::Formatted(CString(u"=s%d"), index + 1));
        else
            value = QAnyValue(7);
        return true;
    }

private:
    int m_depth;
};

test::Evaluation EvaluateChain(int depth, bool report = false) {
    StringChain chain(depth);
    return test::Evaluated("s0", &chain, {.report = report});
}

class DeferredEvalStringFormula : public test::ErrorReportsTest {
protected:
    void SetUp() override {
        ErrorReportsTest::SetUp();
        SetNoEvalReportErrors(false);
    }
};

TEST_F(DeferredEvalStringFormula, AChainOf100SucceedsAndOf101FailsAtTheLastLink) {
    const test::Evaluation result = EvaluateChain(100, true);
    EXPECT_EQ(result.Shown(), "7");
    EXPECT_TRUE(test::PendingReports().empty());
    EXPECT_EQ(QEvaluator::DeferredDepth(), 0);

    EXPECT_FALSE(EvaluateChain(101, true).ok);
    const std::vector<test::Report> reports = test::PendingReports();
    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.front().heading, "Formula");
    EXPECT_EQ(reports.front().message.rfind("Stack depth exceeded, formula looping trying to "
                                            "evaluate [s100] deferred string formula:\ns101\n",
                                            0),
              0u)
        << reports.front().message;
    // The next evaluation succeeds.
    EXPECT_EQ(EvaluateChain(100).Shown(), "7");
}

} // namespace
} // namespace keel
