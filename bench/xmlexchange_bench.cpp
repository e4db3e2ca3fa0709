// Export and import of a tree of about 50 MB of XML, against libxml2 parsing the same bytes
// alone. Each run reports how many times the bare parse it takes, and the peak of memory that
// the C++ allocations and libxml2's together hold above where the run started.

#include "tests/support/exporttree.h"

#include "keel/exchange/exportformatxml.h"
#include "keel/exchange/importformatxml.h"
#include "keel/exchange/xmldoc.h"
#include "keel/platform/file.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <libxml/parser.h>
#include <malloc.h>
#include <new>
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

std::size_t g_heldBytes = 0;
std::size_t g_peakBytes = 0;

void Held(void* block) {
    if (!block)
        return;
    g_heldBytes += malloc_usable_size(block);
    g_peakBytes = std::max(g_peakBytes, g_heldBytes);
}

void Released(void* block) {
    if (block)
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

// The peak of one run above what was held when it started.
class PeakMeasure {
public:
    PeakMeasure() : m_start(g_heldBytes) { g_peakBytes = g_heldBytes; }
    double PeakMegabytes() const { return double(g_peakBytes - m_start) / (1 << 20); }

private:
    std::size_t m_start;
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

double SecondsOfBareParse() {
    static const double seconds = [] {
        const std::string& bytes = SampleBytes();
        double best = 1e9;
        for (int i = 0; i < 3; ++i) {
            const auto start = std::chrono::steady_clock::now();
            xmlFreeDoc(
                xmlReadMemory(bytes.data(), int(bytes.size()), nullptr, nullptr, c_parseOptions));
            best = std::min(
                best,
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        }
        return best;
    }();
    return seconds;
}

void Report(benchmark::State& state, double peakMegabytes, double seconds) {
    state.SetBytesProcessed(std::int64_t(state.iterations() * SampleBytes().size()));
    state.counters["MB"] = double(SampleBytes().size()) / (1 << 20);
    state.counters["peak_MB"] = peakMegabytes;
    state.counters["x_bare_parse"] = seconds / double(state.iterations()) / SecondsOfBareParse();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["maxrss_MB"] = double(usage.ru_maxrss) / 1024;
}

template <class Run>
void Measure(benchmark::State& state, Run run) {
    SecondsOfBareParse();
    double peak = 0;
    double seconds = 0;
    for (auto _ : state) {
        const PeakMeasure measure;
        const auto start = std::chrono::steady_clock::now();
        run();
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        peak = std::max(peak, measure.PeakMegabytes());
    }
    Report(state, peak, seconds);
}

void BM_BareParse(benchmark::State& state) {
    const std::string& bytes = SampleBytes();
    Measure(state, [&] {
        xmlDoc* doc =
            xmlReadMemory(bytes.data(), int(bytes.size()), nullptr, nullptr, c_parseOptions);
        benchmark::DoNotOptimize(doc);
        xmlFreeDoc(doc);
    });
}

void BM_DocumentFromBytes(benchmark::State& state) {
    const std::string& bytes = SampleBytes();
    Measure(state, [&] {
        QXMLDoc doc;
        if (!doc.FromBytes(bytes))
            state.SkipWithError("the document did not parse");
    });
}

void BM_Import(benchmark::State& state) {
    const std::string& bytes = SampleBytes();
    Measure(state, [&] {
        CMemFile file(bytes.data(), bytes.size());
        FakeTree tree;
        QImportFormatXML format(file, tree);
        if (!format.ImportToImportable() || tree.groups.size() != std::size_t(c_groups))
            state.SkipWithError("the import failed");
    });
}

void BM_Export(benchmark::State& state) {
    const FakeTree& tree = SampleTree();
    Measure(state, [&] {
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

BENCHMARK(BM_BareParse)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_DocumentFromBytes)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Import)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Export)->Unit(benchmark::kMillisecond)->Iterations(3);
