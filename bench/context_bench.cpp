// The costs of a tree of formula contexts: the read of a property that is up to date, through
// the context, by name and through a handle (beside muparser evaluating "a*2" from compiled byte
// code), one edit followed by the re-reading of 100 000 properties in a chain and in a wide tree,
// the edit alone in trees of two sizes, and the look-up of a name three levels up. After the usual
// table the program prints the ratios that matter: ours over muparser, and the edit in the large
// tree over the edit in the small one.
//
// The trees hang their properties on groups of 100 under one model context, as a drawing holds
// its values on many objects of few properties each. The chain in one context holds them all in
// the model instead: its re-read must cost the same a property at 10 000 as at 1 000, which
// holds only while a context's property map and value caches grow with what they hold.
#include "keel/formula/formulacontext.h"
#include "keel/formula/toplevelcontext.h"
#include "keel/questions/properties.h"
#include "keel/questions/propertyhandle.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <muParser.h>
#include <string>
#include <unistd.h>
#include <unordered_map>
#include <vector>

using namespace keel;

namespace {

constexpr int c_smallTree = 1000;
constexpr int c_largeTree = 100000;
constexpr int c_groupSize = 100;
// Edits followed by a re-reading of the whole tree, and edits alone.
constexpr int c_rounds = 5;
constexpr int c_edits = 100000;
// The counter that says how many items one iteration handles, when that is more than one.
constexpr const char* c_itemsCounter = "items";

// The root keeps the change counter and nothing else: the properties live below it.
class BenchRoot : public QTopLevelFormulaContext {
public:
    CString SimpleTypeName() const override { return u"Root"; }
    QProperties* Properties() const override { return nullptr; }
    void ProcessPreChangeFromChildHelper() override {}
    void ProcessChangedFromChildHelper() override {}
};

// A scope with properties of its own under a parent. It may have a name of its own, by which
// its parent finds it among its children: "g7.v100".
class BenchScope : public QFormulaContext {
public:
    BenchScope(QFormulaContext* parent, const char16_t* type, PropId name = PropId())
        : m_type(type), m_name(name) {
        DoSetParentContextAlways(parent);
    }

    CString SimpleTypeName() const override { return m_type; }
    QProperties* Properties() const override { return &m_properties; }
    QFormulaContext* ParentContext() override { return m_parent; }
    const QFormulaContext* ParentContext() const override { return m_parent; }
    void DoSetParentContextAlways(QFormulaContext* parent) override { m_parent = parent; }

    bool IsNamed(PropId name) const override {
        return m_name.IsEmpty() ? QFormulaContext::IsNamed(name) : name == m_name;
    }
    void AddNamedChild(BenchScope& child) { m_namedChildren[child.m_name.UniqueId()] = &child; }
    bool SimpleLookupContextInChildren(PropId name, QFormulaContext*& context, QCacheState&,
                                       const QFormulaContext* excluded, int) const override {
        const auto found = m_namedChildren.find(name.UniqueId());
        if (found == m_namedChildren.end() || found->second == excluded)
            return false;
        context = found->second;
        return true;
    }

private:
    CString m_type;
    PropId m_name;
    QFormulaContext* m_parent = nullptr;
    mutable QProperties m_properties{this};
    std::unordered_map<int, BenchScope*> m_namedChildren;
};

PropId Name(const std::string& text) {
    return PropId(CString::FromUtf8(text));
}

FormulaText Formula(const std::string& text) {
    return FormulaText(CString::FromUtf8(text));
}

QAnyValue Read(QFormulaContext& context, PropId name) {
    QAnyValue value;
    bool error = false;
    QCacheState state = QCS_Stable;
    context.GetPropertyValue(name, value, error, &state);
    return value;
}

int ReadInt(QFormulaContext& context, PropId name) {
    return Read(context, name).MakeInt();
}

// Each edit gives the edited property another value, so that it is a change.
QAnyValue EditedValue(int edit) {
    return QAnyValue(edit % 2 == 0 ? 1000 : 2000);
}

// What all the trees share: a model under the root, holding the property "base" that is edited.
class Tree {
public:
    Tree() { m_model.SetPropertyValue(m_base, EditedValue(0)); }
    virtual ~Tree() = default;
    // Brings every property up to date, and says whether each has the value that "base"
    // implies.
    virtual bool ReadAll() = 0;
    // One cheap read that puts the root in step with its counter again, so that the next edit
    // is the first of a burst and moves the counter: the edit's dearest case.
    virtual void ReadOne() = 0;
    void Edit(int edit) { m_model.SetPropertyValue(m_base, EditedValue(edit)); }

protected:
    int Base() { return ReadInt(m_model, m_base); }

    BenchRoot m_root;
    BenchScope m_model{&m_root, u"Model"};
    const PropId m_base = Name("base");
};

// Groups of properties "v1" to "v100" under the model.
class GroupedTree : public Tree {
protected:
    GroupedTree() {
        for (int k = 1; k <= c_groupSize; ++k)
            m_names.push_back(Name("v" + std::to_string(k)));
    }

    BenchScope& AddGroup(int group) {
        m_groups.push_back(
            std::make_unique<BenchScope>(&m_model, u"Group", Name("g" + std::to_string(group))));
        m_model.AddNamedChild(*m_groups.back());
        return *m_groups.back();
    }

    // Reads every property in order and compares it with `expected(group, k)`.
    template <class Expected>
    bool ReadAllAndCompare(Expected expected) {
        bool right = true;
        for (size_t group = 0; group < m_groups.size(); ++group)
            for (int k = 0; k < c_groupSize; ++k)
                right =
                    ReadInt(*m_groups[group], m_names[k]) == expected(int(group), k + 1) && right;
        return right;
    }

    std::vector<PropId> m_names;
    std::vector<std::unique_ptr<BenchScope>> m_groups;
};

// One chain through all the groups: each property adds one to the one before, "v7 + 1", and
// the first of a group to the last of the group before, "g3.v100 + 1"; the very first to "base".
class Chain : public GroupedTree {
public:
    explicit Chain(int size) {
        for (int group = 0; group < size / c_groupSize; ++group) {
            BenchScope& scope = AddGroup(group);
            scope.SetPropertyFormula(
                m_names[0], Formula(group == 0 ? std::string("base + 1")
                                               : "g" + std::to_string(group - 1) + ".v100 + 1"));
            for (int k = 2; k <= c_groupSize; ++k)
                scope.SetPropertyFormula(m_names[k - 1],
                                         Formula("v" + std::to_string(k - 1) + " + 1"));
        }
    }

    bool ReadAll() override {
        const int base = Base();
        return ReadAllAndCompare(
            [base](int group, int k) { return base + group * c_groupSize + k; });
    }
    void ReadOne() override { ReadInt(*m_groups.front(), m_names.front()); }
};

// Every property depends on "base" alone: "base + 1" to "base + 100" in each group.
class WideTree : public GroupedTree {
public:
    explicit WideTree(int size) {
        std::vector<FormulaText> formulas;
        for (int k = 1; k <= c_groupSize; ++k)
            formulas.push_back(Formula("base + " + std::to_string(k)));
        for (int group = 0; group < size / c_groupSize; ++group) {
            BenchScope& scope = AddGroup(group);
            for (int k = 0; k < c_groupSize; ++k)
                scope.SetPropertyFormula(m_names[k], formulas[k]);
        }
    }

    bool ReadAll() override {
        const int base = Base();
        return ReadAllAndCompare([base](int, int k) { return base + k; });
    }
    void ReadOne() override { ReadInt(*m_groups.front(), m_names.front()); }
};

// The chain with all its properties in the model itself: "p1" is "base + 1", "p7" is "p6 + 1".
class ChainInOneContext : public Tree {
public:
    explicit ChainInOneContext(int size) {
        for (int i = 1; i <= size; ++i) {
            m_names.push_back(Name("p" + std::to_string(i)));
            m_model.SetPropertyFormula(
                m_names.back(),
                Formula(i == 1 ? std::string("base + 1") : "p" + std::to_string(i - 1) + " + 1"));
        }
    }

    bool ReadAll() override {
        const int base = Base();
        bool right = true;
        for (size_t i = 0; i < m_names.size(); ++i)
            right = ReadInt(m_model, m_names[i]) == base + int(i) + 1 && right;
        return right;
    }
    void ReadOne() override { ReadInt(m_model, m_names.front()); }

private:
    std::vector<PropId> m_names;
};

enum class Shape { Chain, Wide, ChainInOneContext };

std::unique_ptr<Tree> MakeTree(Shape shape, int size) {
    switch (shape) {
    case Shape::Chain:
        return std::make_unique<Chain>(size);
    case Shape::Wide:
        return std::make_unique<WideTree>(size);
    case Shape::ChainInOneContext:
        break;
    }
    return std::make_unique<ChainInOneContext>(size);
}

// --- (a) The read of a property that is up to date ----------------------------------------------

void UpToDateReadOurs(benchmark::State& state) {
    BenchRoot root;
    BenchScope model(&root, u"Model");
    const PropId a = Name("a");
    const PropId b = Name("b");
    model.SetPropertyValue(a, QAnyValue(21));
    model.SetPropertyFormula(b, Formula("a*2"));
    if (ReadInt(model, b) != 42)
        state.SkipWithError("the property has the wrong value");
    QAnyValue value;
    bool error = false;
    QCacheState cacheState = QCS_Stable;
    for (auto _ : state) {
        model.GetPropertyValue(b, value, error, &cacheState);
        benchmark::DoNotOptimize(value);
    }
    state.SetItemsProcessed(state.iterations());
}

// The same property through a handle resolved once: the value is read in place, without a copy,
// as muparser hands back its double.
void UpToDateHandleOurs(benchmark::State& state) {
    BenchRoot root;
    BenchScope model(&root, u"Model");
    model.SetPropertyValue(Name("a"), QAnyValue(21));
    model.SetPropertyFormula(Name("b"), Formula("a*2"));
    QPropertyHandle b(model, Name("b"));
    if (QAnyValue(b.Value()).MakeInt() != 42)
        state.SkipWithError("the property has the wrong value");
    for (auto _ : state)
        benchmark::DoNotOptimize(&b.Value());
    state.SetItemsProcessed(state.iterations());
}

// The handle's read into a value of the caller's, as GetPropertyValue gives it: with the copy.
void UpToDateHandleCopyOurs(benchmark::State& state) {
    BenchRoot root;
    BenchScope model(&root, u"Model");
    model.SetPropertyValue(Name("a"), QAnyValue(21));
    model.SetPropertyFormula(Name("b"), Formula("a*2"));
    QPropertyHandle b(model, Name("b"));
    QAnyValue value;
    bool error = false;
    for (auto _ : state) {
        b.Read(value, error);
        benchmark::DoNotOptimize(value);
    }
    if (value.MakeInt() != 42)
        state.SkipWithError("the property has the wrong value");
    state.SetItemsProcessed(state.iterations());
}

// The same property read through its name, as a formula reads it: the context's value cache.
void UpToDateLookupOurs(benchmark::State& state) {
    BenchRoot root;
    BenchScope model(&root, u"Model");
    model.SetPropertyValue(Name("a"), QAnyValue(21));
    model.SetPropertyFormula(Name("b"), Formula("a*2"));
    const FullId b("b");
    QAnyValue value;
    bool error = false;
    QCacheState cacheState = QCS_Stable;
    for (auto _ : state) {
        model.LookupValue(b, value, error, cacheState, false, false, true);
        benchmark::DoNotOptimize(value);
    }
    if (QAnyValue(value).MakeInt() != 42)
        state.SkipWithError("the property has the wrong value");
    state.SetItemsProcessed(state.iterations());
}

void UpToDateReadMuparser(benchmark::State& state) {
    double a = 21;
    mu::Parser parser;
    parser.DefineVar("a", &a);
    parser.SetExpr("a*2");
    if (parser.Eval() != 42)
        state.SkipWithError("muparser has the wrong value");
    for (auto _ : state)
        benchmark::DoNotOptimize(parser.Eval());
    state.SetItemsProcessed(state.iterations());
}

// --- (b) One edit, then every property read again -----------------------------------------------

void EditAndReadAll(benchmark::State& state, Shape shape) {
    const std::unique_ptr<Tree> tree = MakeTree(shape, static_cast<int>(state.range(0)));
    if (!tree->ReadAll())
        state.SkipWithError("the tree has wrong values");
    int edit = 0;
    for (auto _ : state) {
        tree->Edit(++edit);
        benchmark::DoNotOptimize(tree->ReadAll());
    }
    tree->Edit(++edit);
    if (!tree->ReadAll())
        state.SkipWithError("the tree did not follow the edit");
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters[c_itemsCounter] = static_cast<double>(state.range(0));
}

// The edit alone, timed by hand around the one call; between edits one read puts the root in
// step again, so that every edit moves the counter.
void EditAlone(benchmark::State& state, Shape shape) {
    const std::unique_ptr<Tree> tree = MakeTree(shape, static_cast<int>(state.range(0)));
    if (!tree->ReadAll())
        state.SkipWithError("the tree has wrong values");
    int edit = 0;
    for (auto _ : state) {
        tree->ReadOne();
        const auto start = std::chrono::steady_clock::now();
        tree->Edit(++edit);
        const auto stop = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
    }
    if (!tree->ReadAll())
        state.SkipWithError("the tree did not follow the edits");
    state.SetItemsProcessed(state.iterations());
}

// --- (c) A name three levels up -----------------------------------------------------------------

void LookupThreeLevelsUp(benchmark::State& state, bool useCache) {
    BenchRoot root;
    BenchScope model(&root, u"Model");
    BenchScope room(&model, u"Room");
    BenchScope wall(&room, u"Wall");
    BenchScope opening(&wall, u"Opening");
    model.SetPropertyValue(Name("height"), QAnyValue(2400));
    const FullId height("height");
    QAnyValue value;
    bool error = false;
    QCacheState cacheState = QCS_Stable;
    for (auto _ : state) {
        opening.LookupValue(height, value, error, cacheState, false, false, useCache);
        benchmark::DoNotOptimize(value);
    }
    if (QAnyValue(value).MakeInt() != 2400)
        state.SkipWithError("the name was not found");
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(UpToDateReadOurs)->Name("UpToDateRead/keel");
BENCHMARK(UpToDateHandleOurs)->Name("UpToDateRead/keel-handle");
BENCHMARK(UpToDateHandleCopyOurs)->Name("UpToDateRead/keel-handle-copy");
BENCHMARK(UpToDateLookupOurs)->Name("UpToDateRead/keel-by-name");
BENCHMARK(UpToDateReadMuparser)->Name("UpToDateRead/muparser");
// A tree of 100 000 takes a while to build: fixed counts of iterations build each tree once.
BENCHMARK_CAPTURE(EditAndReadAll, chain, Shape::Chain)
    ->Name("EditAndReadAll/chain")
    ->Arg(c_largeTree)
    ->Iterations(c_rounds)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(EditAndReadAll, wide, Shape::Wide)
    ->Name("EditAndReadAll/wide")
    ->Arg(c_largeTree)
    ->Iterations(c_rounds)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(EditAndReadAll, oneContext, Shape::ChainInOneContext)
    ->Name("EditAndReadAll/chain-in-one-context")
    ->Arg(c_smallTree)
    ->Arg(c_smallTree * 10)
    ->Iterations(c_rounds)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(EditAlone, chain, Shape::Chain)
    ->Name("EditAlone/chain")
    ->Arg(c_smallTree)
    ->Arg(c_largeTree)
    ->Iterations(c_edits)
    ->UseManualTime();
BENCHMARK_CAPTURE(EditAlone, wide, Shape::Wide)
    ->Name("EditAlone/wide")
    ->Arg(c_smallTree)
    ->Arg(c_largeTree)
    ->Iterations(c_edits)
    ->UseManualTime();
BENCHMARK_CAPTURE(LookupThreeLevelsUp, cached, true)->Name("LookupThreeLevelsUp/cached");
BENCHMARK_CAPTURE(LookupThreeLevelsUp, walked, false)->Name("LookupThreeLevelsUp/walked");

// The console table, then the time of one item of each benchmark and the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

    // By CPU time, as the machine may be shared, except for the edits timed by hand.
    void ReportRuns(const std::vector<Run>& reports) override {
        ConsoleReporter::ReportRuns(reports);
        for (const Run& run : reports) {
            if (run.error_occurred || run.run_type != Run::RT_Iteration)
                continue;
            const std::string name = run.benchmark_name();
            const bool timedByHand = name.ends_with("/manual_time");
            const double perIteration =
                (timedByHand ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) /
                benchmark::GetTimeUnitMultiplier(run.time_unit);
            const auto items = run.counters.find(c_itemsCounter);
            m_seconds[name] =
                perIteration / (items == run.counters.end() ? 1.0 : items->second.value);
        }
    }

    void PrintRatios() const {
        std::printf("\nOne item (a read, a property re-read, an edit, a look-up)\n");
        for (const auto& [name, seconds] : m_seconds)
            std::printf("  %-60s %12.1f ns\n", name.c_str(), seconds * 1e9);
        std::printf("\nRatios\n");
        PrintRatio("read of an up-to-date property / muparser \"a*2\"", "UpToDateRead/keel",
                   "UpToDateRead/muparser");
        PrintRatio("the same by name / muparser \"a*2\"", "UpToDateRead/keel-by-name",
                   "UpToDateRead/muparser");
        PrintRatio("the same through a handle / muparser \"a*2\"", "UpToDateRead/keel-handle",
                   "UpToDateRead/muparser");
        PrintRatio("the same through a handle, copied out / muparser \"a*2\"",
                   "UpToDateRead/keel-handle-copy", "UpToDateRead/muparser");
        const std::string edits = "/iterations:" + std::to_string(c_edits) + "/manual_time";
        const std::string small = "/" + std::to_string(c_smallTree) + edits;
        const std::string large = "/" + std::to_string(c_largeTree) + edits;
        PrintRatio("edit alone, chain of 100 000 / of 1 000", "EditAlone/chain" + large,
                   "EditAlone/chain" + small);
        PrintRatio("edit alone, wide tree of 100 000 / of 1 000", "EditAlone/wide" + large,
                   "EditAlone/wide" + small);
        PrintRatio("re-read in one context, 10 000 properties / 1 000",
                   "EditAndReadAll/chain-in-one-context/" + std::to_string(c_smallTree * 10) +
                       "/iterations:" + std::to_string(c_rounds),
                   "EditAndReadAll/chain-in-one-context/" + std::to_string(c_smallTree) +
                       "/iterations:" + std::to_string(c_rounds));
        PrintRatio("look-up three levels up, walked / cached", "LookupThreeLevelsUp/walked",
                   "LookupThreeLevelsUp/cached");
    }

private:
    void PrintRatio(const std::string& what, const std::string& over,
                    const std::string& under) const {
        const auto a = m_seconds.find(over);
        const auto b = m_seconds.find(under);
        if (a == m_seconds.end() || b == m_seconds.end())
            return;
        std::printf("  %-60s %8.2f\n", what.c_str(), a->second / b->second);
    }

    std::map<std::string, double> m_seconds;
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
