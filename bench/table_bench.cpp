// A price list of 100 000 rows: opened lazily and read whole, looked up exactly and by nearest
// match, and, as the peer, imported into SQLite from the same rows as CSV.

#include "bench/benchfolder.h"
#include "tests/support/appfactory.h"

#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/lookuptablesource.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sqlite3.h>
#include <string>

using namespace keel;

namespace {

constexpr int c_rows = 100000;
constexpr int c_labelStep = 10;

std::filesystem::path BenchFolder() {
    static const std::filesystem::path folder = bench::NewBenchFolder("table_bench");
    return folder;
}

// Row labels 0, 10, 20, ...; a code, a price, a length and a description a row.
std::string RowText(int row, char separator, bool quoteStrings) {
    const std::string code =
        quoteStrings ? "\"\"\"C" + std::to_string(row) + "\"\"\"" : "C" + std::to_string(row);
    const std::string description = quoteStrings ? "\"\"\"Board " + std::to_string(row) + "\"\"\""
                                                 : "Board " + std::to_string(row);
    return std::to_string(row * c_labelStep) + separator + code + separator +
           std::to_string(row % 997) + "." + std::to_string(row % 100) + separator +
           std::to_string(100 + row % 5000) + separator + description;
}

const std::string& VltPath() {
    static const std::string path = [] {
        const std::string file = (BenchFolder() / "prices.vlt").string();
        std::ofstream out(file);
        out << "Prices\tVltFormat=2.1\t\n" << c_rows << "\t4\n";
        out << "Size\t\"\"\"Code\"\"\"\t\"\"\"Price\"\"\"\t\"\"\"Width\"\"\"\t\"\"\"Name\"\"\"\n";
        out << "Whole Number\\String\tString\tNumber\tNumber\tString\n";
        for (int row = 0; row < c_rows; ++row)
            out << RowText(row, '\t', true) << '\n';
        return file;
    }();
    return path;
}

const std::string& CsvPath() {
    static const std::string path = [] {
        const std::string file = (BenchFolder() / "prices.csv").string();
        std::ofstream out(file);
        out << "Size,Code,Price,Width,Name\n";
        for (int row = 0; row < c_rows; ++row)
            out << RowText(row, ',', false) << '\n';
        return file;
    }();
    return path;
}

QLookupTable OpenFresh(const std::string& path) {
    QLookupTableData::CleanupCache();
    QLookupTable table;
    if (!table.SetName(CString::FromUtf8(path)))
        std::fprintf(stderr, "cannot open the benchmark table: %s\n",
                     table.LastError().ToUtf8().c_str());
    return table;
}

struct CacheOverSize {
    explicit CacheOverSize(int value) : saved(QLookupTableDataStatics::c_TableCacheOverSize) {
        QLookupTableDataStatics::c_TableCacheOverSize = value;
    }
    ~CacheOverSize() { QLookupTableDataStatics::c_TableCacheOverSize = saved; }
    int saved;
};

void BM_OpenLazy(benchmark::State& state) {
    QLookupTableSource::Install();
    const std::string& path = VltPath(); // written before the clock starts
    for (auto _ : state) {
        QLookupTable table = OpenFresh(path);
        benchmark::DoNotOptimize(table.Data());
    }
    state.SetItemsProcessed(state.iterations() * c_rows);
}
BENCHMARK(BM_OpenLazy)->Unit(benchmark::kMillisecond);

void BM_OpenAndReadWhole(benchmark::State& state) {
    QLookupTableSource::Install();
    const std::string& path = VltPath(); // written before the clock starts
    for (auto _ : state) {
        QLookupTable table = OpenFresh(path);
        benchmark::DoNotOptimize(table.LoadRowsIfNecessary());
    }
    state.SetItemsProcessed(state.iterations() * c_rows);
}
BENCHMARK(BM_OpenAndReadWhole)->Unit(benchmark::kMillisecond);

void BM_OpenEager(benchmark::State& state) {
    QLookupTableSource::Install();
    const std::string& path = VltPath(); // written before the clock starts
    const CacheOverSize eager(0);
    for (auto _ : state) {
        QLookupTable table = OpenFresh(path);
        benchmark::DoNotOptimize(table.Data());
    }
    state.SetItemsProcessed(state.iterations() * c_rows);
}
BENCHMARK(BM_OpenEager)->Unit(benchmark::kMillisecond);

void BM_LookupExact(benchmark::State& state) {
    QLookupTableSource::Install();
    const std::string& path = VltPath(); // written before the clock starts
    QLookupTable table = OpenFresh(path);
    table.LoadRowsIfNecessary();
    const QAnyValue column(u"Price");
    QAnyValue cell;
    int row = 0;
    for (auto _ : state) {
        const QAnyValue key(row * c_labelStep);
        benchmark::DoNotOptimize(table.LookupExact(key, column, cell, nullptr, nullptr));
        row = (row + 7919) % c_rows;
    }
}
BENCHMARK(BM_LookupExact);

// The key falls between two labels, so the index misses and the walk passes 1 000 rows.
void BM_LookupNearestWalking1000Rows(benchmark::State& state) {
    QLookupTableSource::Install();
    const std::string& path = VltPath(); // written before the clock starts
    QLookupTable table = OpenFresh(path);
    table.LoadRowsIfNecessary();
    const QAnyValue column(u"Price");
    const QAnyValue key(1000 * c_labelStep - c_labelStep / 2);
    QAnyValue cell;
    for (auto _ : state)
        benchmark::DoNotOptimize(table.Lookup(key, column, cell, nullptr, nullptr));
}
BENCHMARK(BM_LookupNearestWalking1000Rows)->Unit(benchmark::kMicrosecond);

// The same exact look-up from a formula: the table is found by its name in the table folder on
// every evaluation, the keys are evaluated and the function dispatched.
void BM_LookupExactFromAFormula(benchmark::State& state) {
    QLookupTableSource::Install();
    static test::TestAppFactory factory;
    factory.SetTableFolder(BenchFolder());
    SetEvaluatorFactory(&factory);
    QLookupTable table = OpenFresh(VltPath());
    table.LoadRowsIfNecessary();
    const FormulaText formula(u"lookupexact(\"prices\", 50000, \"Price\")");
    QAnyValue result;
    for (auto _ : state) {
        QEvaluator evaluator(result, formula, nullptr, false, false, false);
        benchmark::DoNotOptimize(evaluator.Evaluate());
    }
    SetEvaluatorFactory(nullptr);
    if (!result.IsDouble())
        state.SkipWithError("the formula found no price");
}
BENCHMARK(BM_LookupExactFromAFormula);

void SplitCsvLine(const std::string& line, std::string (&fields)[5]) {
    std::size_t start = 0;
    for (int i = 0; i < 5; ++i) {
        const std::size_t comma = line.find(',', start);
        fields[i] = line.substr(start, comma == std::string::npos ? comma : comma - start);
        start = comma == std::string::npos ? line.size() : comma + 1;
    }
}

// What a user of SQLite does to get a CSV price list into a table it can query: one transaction
// of prepared inserts into an in-memory database.
void BM_SQLiteImportCsv(benchmark::State& state) {
    const std::string& csv = CsvPath();
    for (auto _ : state) {
        sqlite3* db = nullptr;
        sqlite3_open(":memory:", &db);
        sqlite3_exec(db,
                     "CREATE TABLE prices(size INTEGER PRIMARY KEY, code TEXT, price REAL, "
                     "width REAL, name TEXT); BEGIN",
                     nullptr, nullptr, nullptr);
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO prices VALUES(?,?,?,?,?)", -1, &insert, nullptr);
        std::ifstream in(csv);
        std::string line;
        std::getline(in, line);
        std::string fields[5];
        while (std::getline(in, line)) {
            SplitCsvLine(line, fields);
            sqlite3_bind_int(insert, 1, std::stoi(fields[0]));
            sqlite3_bind_text(insert, 2, fields[1].c_str(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_double(insert, 3, std::stod(fields[2]));
            sqlite3_bind_double(insert, 4, std::stod(fields[3]));
            sqlite3_bind_text(insert, 5, fields[4].c_str(), -1, SQLITE_TRANSIENT);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
        sqlite3_close(db);
    }
    state.SetItemsProcessed(state.iterations() * c_rows);
}
BENCHMARK(BM_SQLiteImportCsv)->Unit(benchmark::kMillisecond);

} // namespace
