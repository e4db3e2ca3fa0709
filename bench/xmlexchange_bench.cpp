// Export and import of a tree of about 50 MB of XML, against libxml2 parsing the same bytes
// alone. Each timed run reports how many times the processor time of the bare parse it takes,
// and each counted run the peak of memory that the C++ allocations and libxml2's together hold
// above where the run started.

#include "tests/support/exporttree.h"

#include "keel/exchange/exportformatxml.h"
#include "keel/exchange/importformatxml.h"
#include "keel/exchange/xmldoc.h"
#include "keel/platform/file.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <libxml/parser.h>
#include <malloc.h>
#include <new>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <vector>

using namespace keel;
using keel::test::FakeBag;
using keel::test::FakeGroup;
using keel::test::FakeItem;
using keel::test::FakeTree;

namespace {

// --- Counting every allocation, the C++ ones and libxml2's ---------------------------------

// Counting costs a look at each block: it is on only for the runs that measure memory, so that
// the timed runs pay nothing for it.
bool g_counting = false;
std::size_t g_heldBytes = 0;
std::size_t g_peakBytes = 0;

void Held(void* block) {
    if (!block || !g_counting)
        return;
    g_heldBytes += malloc_usable_size(block);
    g_peakBytes = std::max(g_peakBytes, g_heldBytes);
}

void Released(void* block) {
    if (block && g_counting)
        g_heldBytes -= malloc_usable_size(block);
}

[[gnu::noinline]] void* CountedMalloc(std::size_t size) {
    void* block = std::malloc(size);
    Held(block);
    return block;
}

[[gnu::noinline]] void CountedFree(void* block) {
    Released(block);
    std::free(block);
}

void* CountedRealloc(void* block, std::size_t size) {
    Released(block);
    void* moved = std::realloc(block, size);
    Held(moved ? moved : block);
    return moved;
}

char* CountedStrdup(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    auto* copy = static_cast<char*>(CountedMalloc(size));
    if (copy)
        std::memcpy(copy, text, size);
    return copy;
}

// Installed before libxml2 allocates anything.
const bool g_libxmlCounted = [] {
    xmlMemSetup(CountedFree, CountedMalloc, CountedRealloc, CountedStrdup);
    xmlInitParser();
    return true;
}();

// The peak of one run above what was held when it started. Blocks made before counting began
// and freed during the run make the count fall below its start, so the start is 0 and the peak
// is what the run itself made.
class PeakMeasure {
public:
    PeakMeasure() {
        g_heldBytes = 0;
        g_peakBytes = 0;
        g_counting = true;
    }
    ~PeakMeasure() { g_counting = false; }
    double PeakMegabytes() const { return double(g_peakBytes) / (1 << 20); }
};

// --- The tree and its document --------------------------------------------------------------

constexpr int c_groups = 210000;
constexpr int c_bagEntries = 4000;

const FakeTree& SampleTree() {
    static const FakeTree tree = [] {
        FakeTree made;
        made.title = u"Benchmark plan";
        for (int i = 0; i < c_bagEntries; ++i) {
            const QAnyValue value = i % 3 == 0   ? QAnyValue(QLength(100.5 + i))
                                    : i % 3 == 1 ? QAnyValue(i)
                                                 : QAnyValue(CString::Formatted(u"finish %d", i));
            made.bag.entries.push_back({CString::Formatted(u"answer%d", i), value,
                                        i % 5 == 0 ? FormulaText(u"1+1") : FormulaText()});
        }
        for (int i = 0; i < c_groups; ++i) {
            FakeGroup& group = made.AddGroup(CString::Formatted(u"G%d", i));
            group.width = QAnyValue(QLength(500.5 + i % 1000));
            if (i % 7 == 0)
                group.widthFormula = FormulaText(u"2*300mm");
            group.shelves = i % 5;
            group.sizes = {i % 100, 300, 600, 900};
            for (int k = 1; k <= 3; ++k) {
                group.items.push_back(std::make_unique<FakeItem>(k));
                group.items.back()->label = CString::Formatted(u"item %d-%d", i, k);
                group.items.back()->count = k;
            }
        }
        return made;
    }();
    return tree;
}

const std::string& SampleBytes() {
    static const std::string bytes = [] {
        QExportFormatXML format(SampleTree(), false, nullptr);
        format.BuildDocument();
        return format.Document().ToString().ToUtf8();
    }();
    return bytes;
}

constexpr int c_parseOptions = XML_PARSE_NONET | XML_PARSE_NOBLANKS;

// Processor time of this thread: the machine is shared, and waiting for it is no one's cost.
double CpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

double SecondsOfBareParse() {
    static const double seconds = [] {
        const std::string& bytes = SampleBytes();
        double best = 1e9;
        for (int i = 0; i < 3; ++i) {
            const double start = CpuSeconds();
            xmlFreeDoc(
                xmlReadMemory(bytes.data(), int(bytes.size()), nullptr, nullptr, c_parseOptions));
            best = std::min(best, CpuSeconds() - start);
        }
        return best;
    }();
    return seconds;
}

// Runs each iteration of `run` after `prepare`, which is not timed. Argument 0 times the runs,
// against the bare parse; argument 1 counts the memory they hold at their peak.
template <class Prepare, class Run>
void Measure(benchmark::State& state, Prepare prepare, Run run) {
    SecondsOfBareParse();
    const bool counting = state.range(0) == 1;
    double seconds = 0;
    double peak = 0;
    for (auto _ : state) {
        state.PauseTiming();
        prepare();
        state.ResumeTiming();
        std::optional<PeakMeasure> measure;
        if (counting)
            measure.emplace();
        const double start = CpuSeconds();
        run();
        seconds += CpuSeconds() - start;
        if (counting)
            peak = std::max(peak, measure->PeakMegabytes());
    }
    state.SetBytesProcessed(std::int64_t(state.iterations() * SampleBytes().size()));
    state.counters["MB"] = double(SampleBytes().size()) / (1 << 20);
    if (counting) {
        state.counters["peak_MB"] = peak;
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        state.counters["maxrss_MB"] = double(usage.ru_maxrss) / 1024;
    } else {
        state.counters["x_bare_parse"] =
            seconds / double(state.iterations()) / SecondsOfBareParse();
    }
}

void NothingToPrepare() {}

void BM_BareParse(benchmark::State& state) {
    const std::string& bytes = SampleBytes();
    Measure(state, NothingToPrepare, [&] {
        xmlDoc* doc =
            xmlReadMemory(bytes.data(), int(bytes.size()), nullptr, nullptr, c_parseOptions);
        benchmark::DoNotOptimize(doc);
        xmlFreeDoc(doc);
    });
}

void BM_DocumentFromBytes(benchmark::State& state) {
    const std::string& bytes = SampleBytes();
    Measure(state, NothingToPrepare, [&] {
        QXMLDoc doc;
        if (!doc.FromBytes(bytes))
            state.SkipWithError("the document did not parse");
    });
}

// The tree read into is made and dropped outside the timing.
void BM_Import(benchmark::State& state) {
    const std::string& bytes = SampleBytes();
    std::unique_ptr<FakeTree> tree;
    Measure(
        state, [&] { tree = std::make_unique<FakeTree>(); },
        [&] {
            CMemFile file(bytes.data(), bytes.size());
            QImportFormatXML format(file, *tree);
            if (!format.ImportToImportable() || tree->groups.size() != std::size_t(c_groups))
                state.SkipWithError("the import failed");
        });
}

void BM_Export(benchmark::State& state) {
    const FakeTree& tree = SampleTree();
    Measure(state, NothingToPrepare, [&] {
        QExportFormatXML format(tree, false, nullptr);
        if (!format.BuildDocument())
            state.SkipWithError("the export failed");
        const std::string text = format.Document().ToString().ToUtf8();
        benchmark::DoNotOptimize(text.data());
    });
}

} // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    void* block = CountedMalloc(size == 0 ? 1 : size);
    if (!block)
        throw std::bad_alloc();
    return block;
}

[[gnu::noinline]] void operator delete(void* block) noexcept {
    CountedFree(block);
}

[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    CountedFree(block);
}

BENCHMARK(BM_BareParse)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_DocumentFromBytes)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Import)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Export)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
