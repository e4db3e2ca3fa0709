// The evaluator side by side with muparser, a compiling expression parser, on the same texts:
// the first evaluation of formulas never seen before, and the repeated evaluation of one formula
// (from its compiled form, after the first two rounds): arithmetic on numbers, on names a context
// answers, a sum of lengths in units, a conditional on numbers and one on names, and calls.
// After the usual table the program prints each pair's ratio, ours over muparser, by CPU time
// (the machine may be shared, so wall time is noisier).
#include "keel/formula/compiledformula.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <muParser.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

using namespace keel;

namespace {

constexpr int c_formulasPerBatch = 10000;
constexpr int c_batches = 5;

// Formulas of the shape "a * 2 + b - c / 3" with literals, distinct over all batches, so that
// each is new to the token cache and to the table of interned texts. The operators stand
// between spaces: "9/3" would be a single fraction token for us, and both parsers must do the
// same work.
std::vector<std::string> MakeFormulas(int batch) {
    std::vector<std::string> formulas;
    formulas.reserve(c_formulasPerBatch);
    for (int i = 0; i < c_formulasPerBatch; ++i)
        formulas.push_back(std::to_string(i + 1) + " * 2 + " + std::to_string(batch + 7) + " - " +
                           std::to_string((i * 7) % 1000 + 1) + " / 3");
    return formulas;
}

const std::vector<std::vector<std::string>>& Batches() {
    static const std::vector<std::vector<std::string>> batches = [] {
        std::vector<std::vector<std::string>> made;
        for (int batch = 0; batch < c_batches; ++batch)
            made.push_back(MakeFormulas(batch));
        return made;
    }();
    return batches;
}

// Each batch is converted for us beforehand, as muparser's strings are made beforehand.
std::vector<std::vector<CString>> OurBatches() {
    std::vector<std::vector<CString>> batches;
    for (const std::vector<std::string>& formulas : Batches()) {
        std::vector<CString> texts;
        texts.reserve(formulas.size());
        for (const std::string& formula : formulas)
            texts.push_back(CString::FromUtf8(formula));
        batches.push_back(std::move(texts));
    }
    return batches;
}

double OurValue(const FormulaText& formula) {
    QAnyValue result;
    QEvaluator evaluator(result, formula, nullptr, false, false, false);
    evaluator.Evaluate();
    return result.MakeDouble();
}

double MuparserValue(mu::Parser& parser, const std::string& formula) {
    parser.SetExpr(formula);
    return parser.Eval();
}

// Both must compute the same number, or the comparison means nothing.
bool SameResults(const std::string& formula) {
    mu::Parser parser;
    return OurValue(FormulaText(CString::FromUtf8(formula))) == MuparserValue(parser, formula);
}

void FirstEvaluationOurs(benchmark::State& state) {
    const std::vector<std::vector<CString>> batches = OurBatches();
    if (!SameResults("17 * 2 + 4 - 9 / 3") || !SameResults("10 * 2 + 4 - 8 / 3"))
        state.SkipWithError("the two evaluators disagree");
    size_t batch = 0;
    for (auto _ : state) {
        for (const CString& text : batches[batch % batches.size()]) {
            QAnyValue result;
            QEvaluator evaluator(result, FormulaText(text), nullptr, false, false, false);
            benchmark::DoNotOptimize(evaluator.Evaluate());
        }
        ++batch;
    }
    state.SetItemsProcessed(state.iterations() * c_formulasPerBatch);
}

void FirstEvaluationMuparser(benchmark::State& state) {
    mu::Parser parser;
    size_t batch = 0;
    for (auto _ : state) {
        for (const std::string& formula : Batches()[batch % Batches().size()])
            benchmark::DoNotOptimize(MuparserValue(parser, formula));
        ++batch;
    }
    state.SetItemsProcessed(state.iterations() * c_formulasPerBatch);
}

constexpr const char* c_repeated = "17 * 2 + 4 - 9 / 3";

// A context that answers "a" and "b" with values that may change at any time, so that neither
// the formula's value nor a name's is kept between evaluations: each one evaluates.
class ChangingNames : public QFormulaContext {
public:
    CString SimpleTypeName() const override { return CString(u"Bench"); }
    QProperties* Properties() const override { return nullptr; }
    QFormulaContext* ParentContext() override { return nullptr; }
    const QFormulaContext* ParentContext() const override { return nullptr; }
    bool SimpleLookupValueInThis(PropId name, QAnyValue& value, bool& error, QCacheState& state,
                                 bool) override {
        error = false;
        state = QCS_NotCacheable;
        if (name == m_a)
            value = 17;
        else if (name == m_b)
            value = 4.5;
        else
            return false;
        return true;
    }
    bool GetPropertyValue(PropId, QAnyValue&, bool&, QCacheState*) override { return false; }

private:
    PropId m_a{u"a"};
    PropId m_b{u"b"};
};

// Each formula of the repeated runs in both syntaxes; muparser has no units, so its sum of
// lengths is the same sum in millimetres.
struct Repeated {
    const char* ours;
    const char* muparser;
    bool names;
};

constexpr Repeated c_repeatedFormulas[] = {
    {c_repeated, c_repeated, false},
    {"a * 2 + b", "a * 2 + b", true},
    {"3 m + 20 cm + 4 mm", "3 * 1000 + 20 * 10 + 4", false},
    {"17 > 4 ? 17 * 2 : 4 - 9 / 3", "17 > 4 ? 17 * 2 : 4 - 9 / 3", false},
    {"a > 4 ? a * 2 : b - 9 / 3", "a > 4 ? a * 2 : b - 9 / 3", true},
    {"max(a, b) + abs(b - a)", "max(a, b) + abs(b - a)", true},
};

// The tokens are cached after the first round and the formula compiled at the second; every
// round still makes an evaluator, as each read of a property does.
void RepeatedEvaluationOurs(benchmark::State& state, int which) {
    const Repeated& repeated = c_repeatedFormulas[which];
    const FormulaText formula{CString(repeated.ours)};
    ChangingNames names;
    QFormulaContext* context = repeated.names ? &names : nullptr;
    for (auto _ : state) {
        QAnyValue result;
        QEvaluator evaluator(result, formula, context, false, false, false);
        benchmark::DoNotOptimize(evaluator.Evaluate());
    }
    state.SetItemsProcessed(state.iterations());
}

// muparser compiles the expression to byte code at the first Eval and runs that afterwards.
void RepeatedEvaluationMuparser(benchmark::State& state, int which) {
    const Repeated& repeated = c_repeatedFormulas[which];
    mu::Parser parser;
    double a = 17;
    double b = 4.5;
    parser.DefineVar("a", &a);
    parser.DefineVar("b", &b);
    parser.SetExpr(repeated.muparser);
    parser.Eval();
    for (auto _ : state)
        benchmark::DoNotOptimize(parser.Eval());
    state.SetItemsProcessed(state.iterations());
}

// Both must compute the same number for each repeated formula.
bool SameRepeatedResults() {
    for (const Repeated& repeated : c_repeatedFormulas) {
        ChangingNames names;
        QAnyValue result;
        QEvaluator evaluator(result, FormulaText(CString(repeated.ours)),
                             repeated.names ? &names : nullptr, false, false, false);
        evaluator.Evaluate();
        mu::Parser parser;
        double a = 17;
        double b = 4.5;
        parser.DefineVar("a", &a);
        parser.DefineVar("b", &b);
        parser.SetExpr(repeated.muparser);
        if (result.MakeDouble() != parser.Eval())
            return false;
    }
    return true;
}

// Every batch is new only once: the first-evaluation runs take one batch per iteration.
BENCHMARK(FirstEvaluationOurs)
    ->Name("FirstEvaluation10000/keel")
    ->Iterations(c_batches)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(FirstEvaluationMuparser)
    ->Name("FirstEvaluation10000/muparser")
    ->Iterations(c_batches)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(RepeatedEvaluationOurs, numbers, 0)->Name("RepeatedEvaluation/keel");
BENCHMARK_CAPTURE(RepeatedEvaluationMuparser, numbers, 0)->Name("RepeatedEvaluation/muparser");
BENCHMARK_CAPTURE(RepeatedEvaluationOurs, names, 1)->Name("RepeatedNames/keel");
BENCHMARK_CAPTURE(RepeatedEvaluationMuparser, names, 1)->Name("RepeatedNames/muparser");
BENCHMARK_CAPTURE(RepeatedEvaluationOurs, units, 2)->Name("RepeatedUnitSum/keel");
BENCHMARK_CAPTURE(RepeatedEvaluationMuparser, units, 2)->Name("RepeatedUnitSum/muparser");
BENCHMARK_CAPTURE(RepeatedEvaluationOurs, conditional, 3)->Name("RepeatedConditional/keel");
BENCHMARK_CAPTURE(RepeatedEvaluationMuparser, conditional, 3)->Name("RepeatedConditional/muparser");
BENCHMARK_CAPTURE(RepeatedEvaluationOurs, namedConditional, 4)
    ->Name("RepeatedNamedConditional/keel");
BENCHMARK_CAPTURE(RepeatedEvaluationMuparser, namedConditional, 4)
    ->Name("RepeatedNamedConditional/muparser");
BENCHMARK_CAPTURE(RepeatedEvaluationOurs, calls, 5)->Name("RepeatedCalls/keel");
BENCHMARK_CAPTURE(RepeatedEvaluationMuparser, calls, 5)->Name("RepeatedCalls/muparser");

// The console table, then the time of one formula for each pair and their ratio.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& reports) override {
        ConsoleReporter::ReportRuns(reports);
        for (const Run& run : reports) {
            const auto rate = run.counters.find("items_per_second");
            if (!run.error_occurred && run.run_type == Run::RT_Iteration &&
                rate != run.counters.end())
                m_seconds[run.benchmark_name()] = 1 / rate->second.value;
        }
    }

    void PrintRatios() const {
        std::printf("\nOne formula, by CPU time; a ratio above 1 means we are slower\n");
        for (const auto& [name, seconds] : m_seconds) {
            const std::string::size_type at = name.find(c_ours);
            if (at == std::string::npos)
                continue;
            const std::string pair = name.substr(0, at);
            const auto peer = m_seconds.find(std::string(name).replace(at, c_ours.size(), c_peer));
            if (peer == m_seconds.end())
                continue;
            std::printf("  %-22s keel %10.3f us  muparser %10.3f us  ratio %6.2f\n", pair.c_str(),
                        seconds * 1e6, peer->second * 1e6, seconds / peer->second);
        }
    }

private:
    static constexpr std::string_view c_ours = "/keel";
    static constexpr std::string_view c_peer = "/muparser";
    std::map<std::string, double> m_seconds;
};

} // namespace

// "--walk" leaves every formula to the walk of its tokens, as before formulas were compiled.
int main(int argc, char** argv) {
    if (argc > 1 && std::string_view(argv[argc - 1]) == "--walk") {
        SetFormulaCompilation(QFormulaCompilation::Off);
        --argc;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    if (!SameRepeatedResults()) {
        std::fprintf(stderr, "the two evaluators disagree on a repeated formula\n");
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
