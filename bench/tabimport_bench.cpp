// A .tab file of 10 000 and of 100 000 sibling objects (named groups of the tests' fake tree, two
// lines each), exported and imported; and the import of one line of 100 MB. Each level finds its
// lines through an index, so the time of a line should not grow with the file: after the usual
// table the program prints the time of one line for each size, and the ratio of the larger file's
// time to the smaller's, which is 10 when the work is linear.

#include "bench/benchfolder.h"
#include "tests/support/exporttree.h"

#include "keel/exchange/exportformatascii.h"
#include "keel/exchange/importformatascii.h"
#include "keel/platform/stdiofileex.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

using namespace keel;
using keel::test::FakeTree;

namespace {

constexpr int c_smallTree = 10000;
constexpr int c_largeTree = 100000;
// Width and shelves for each group.
constexpr int c_linesPerGroup = 2;

std::filesystem::path BenchFolder() {
    static const std::filesystem::path folder = bench::NewBenchFolder("tabimport_bench");
    return folder;
}

void MakeGroups(FakeTree& tree, int groups) {
    for (int i = 0; i < groups; ++i) {
        auto& group = tree.AddGroup(CString::Formatted(u"G%d", i));
        group.width = QAnyValue(100.0 + i);
        group.shelves = 2 + i % 7;
    }
}

std::string TabPath(int groups) {
    return (BenchFolder() / ("tree" + std::to_string(groups) + ".tab")).string();
}

bool Export(const FakeTree& tree, const std::string& path) {
    CStdioFileEx file(CString::FromUtf8(path), CFile::modeCreate | CFile::modeWrite);
    QExportFormatASCII format(tree, false, nullptr);
    const bool written = format.WriteToFile(file);
    file.Close();
    return written;
}

// The file of a tree of that many groups, written once before any clock starts.
const std::string& TabFile(int groups) {
    static std::map<int, std::string> files;
    auto [found, added] = files.try_emplace(groups, TabPath(groups));
    if (added) {
        FakeTree tree;
        MakeGroups(tree, groups);
        Export(tree, found->second);
    }
    return found->second;
}

void SetLineCounters(benchmark::State& state, int groups) {
    state.SetItemsProcessed(state.iterations() * groups * c_linesPerGroup);
}

void BM_Import(benchmark::State& state) {
    const int groups = static_cast<int>(state.range(0));
    const std::string& path = TabFile(groups);
    for (auto _ : state) {
        FakeTree tree;
        CStdioFileEx file(CString::FromUtf8(path), CFile::modeRead | CFile::typeText);
        QImportFormatASCII format(file, tree);
        const bool imported = format.ImportToImportable();
        if (!imported || static_cast<int>(tree.groups.size()) != groups) {
            state.SkipWithError("the file did not import whole");
            break;
        }
    }
    SetLineCounters(state, groups);
}
BENCHMARK(BM_Import)->Arg(c_smallTree)->Arg(c_largeTree)->Unit(benchmark::kMillisecond);

void BM_Export(benchmark::State& state) {
    const int groups = static_cast<int>(state.range(0));
    FakeTree tree;
    MakeGroups(tree, groups);
    const std::string path = (BenchFolder() / "export.tab").string();
    for (auto _ : state) {
        if (!Export(tree, path)) {
            state.SkipWithError("the export failed");
            break;
        }
    }
    SetLineCounters(state, groups);
}
BENCHMARK(BM_Export)->Arg(c_smallTree)->Arg(c_largeTree)->Unit(benchmark::kMillisecond);

// /proc/self/status in kB: VmHWM, the peak resident size since the last reset, or VmRSS.
long StatusKb(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(field) + ":";
    while (std::getline(status, line))
        if (line.rfind(prefix, 0) == 0)
            return std::stol(line.substr(prefix.size()));
    return -1;
}

bool ResetPeakResidentSize() {
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
    clear.flush();
    return static_cast<bool>(clear);
}

// A hostile file: one line of 100 MB, a string value that no evaluator takes. Besides the time,
// the peak resident size during the import, above the size before it.
void BM_ImportOneLineOf100MB(benchmark::State& state) {
    const std::string path = (BenchFolder() / "longline.tab").string();
    {
        std::ofstream out(path, std::ios::binary);
        const std::string chunk(1 << 20, 'y');
        out << "title\t\"\"\"";
        for (int i = 0; i < 100; ++i)
            out << chunk;
        out << "\"\"\"\t\t\n";
    }
    long peakKb = 0;
    for (auto _ : state) {
        const long startKb = StatusKb("VmRSS");
        if (!ResetPeakResidentSize()) {
            state.SkipWithError("the peak resident size cannot be reset");
            break;
        }
        {
            FakeTree tree;
            CStdioFileEx file(CString::FromUtf8(path), CFile::modeRead | CFile::typeText);
            QImportFormatASCII format(file, tree);
            benchmark::DoNotOptimize(format.ImportToImportable());
        }
        peakKb = std::max(peakKb, StatusKb("VmHWM") - startKb);
    }
    state.counters["peak_MB_above_start"] = static_cast<double>(peakKb) / 1024;
    std::filesystem::remove(path);
}
BENCHMARK(BM_ImportOneLineOf100MB)->Iterations(2)->Unit(benchmark::kSecond);

// The console table, then one line's time for each size and the ratio of the sizes' times.
class LinearityReporter : public benchmark::ConsoleReporter {
public:
    LinearityReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

    // Single runs, or the median of repetitions.
    void ReportRuns(const std::vector<Run>& reports) override {
        ConsoleReporter::ReportRuns(reports);
        for (const Run& run : reports) {
            const auto rate = run.counters.find("items_per_second");
            const bool typical = run.run_type == Run::RT_Iteration ? run.repetitions <= 1
                                                                   : run.aggregate_name == "median";
            if (!run.error_occurred && typical && rate != run.counters.end())
                m_secondsPerLine[run.run_name.str()] = 1 / rate->second.value;
        }
    }

    void PrintRatios() const {
        std::printf("\nOne line, by CPU time; linear work gives a ratio of files near 10\n");
        for (const char* name : {"BM_Import", "BM_Export"}) {
            const auto small = m_secondsPerLine.find(NameOf(name, c_smallTree));
            const auto large = m_secondsPerLine.find(NameOf(name, c_largeTree));
            if (small == m_secondsPerLine.end() || large == m_secondsPerLine.end())
                continue;
            const double ratio =
                large->second / small->second * (static_cast<double>(c_largeTree) / c_smallTree);
            std::printf("  %-10s %6d groups %8.3f us a line  %6d groups %8.3f us a line  "
                        "ratio of files %6.2f\n",
                        name + 3, c_smallTree, small->second * 1e6, c_largeTree,
                        large->second * 1e6, ratio);
        }
    }

private:
    static std::string NameOf(const char* name, int groups) {
        return std::string(name) + "/" + std::to_string(groups);
    }

    std::map<std::string, double> m_secondsPerLine;
};

} // namespace

// benchmark_main is a static library: this main is the program's, and it is never pulled in.
int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    LinearityReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    std::error_code ignored;
    std::filesystem::remove_all(BenchFolder(), ignored);
    return 0;
}
