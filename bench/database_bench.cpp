// 10 000 look-ups of a price by name in an SQLite file of 1 000 items: through the formula
// function dblookup (parse, dispatch, the shared connection and its kept statement, the values
// made), and, as the peer, through one prepared statement of SQLite's own, bound and stepped.

#include "bench/benchfolder.h"
#include "tests/support/appfactory.h"

#include "keel/document/ado.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sqlite3.h>
#include <string>

using namespace keel;

namespace {

constexpr int c_items = 1000;
constexpr int c_lookups = 10000;

std::filesystem::path BenchFolder() {
    static const std::filesystem::path folder = bench::NewBenchFolder("database_bench");
    return folder;
}

const std::string& DatabasePath() {
    static const std::string path = [] {
        const std::string file = (BenchFolder() / "prices.mdb").string();
        std::filesystem::remove(file);
        sqlite3* database = nullptr;
        sqlite3_open(file.c_str(), &database);
        std::string sql = "CREATE TABLE items(name TEXT PRIMARY KEY, price REAL); BEGIN;";
        for (int i = 0; i < c_items; ++i)
            sql += "INSERT INTO items VALUES ('item" + std::to_string(i) + "', " +
                   std::to_string(i) + ".5);";
        sql += "COMMIT;";
        sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr);
        sqlite3_close(database);
        return file;
    }();
    return path;
}

void BM_DbLookupFormula(benchmark::State& state) {
    DatabasePath();
    QAdoFormulaDatabase database;
    test::TestAppFactory factory;
    factory.SetTableFolder(BenchFolder());
    factory.SetDatabase(&database);
    SetEvaluatorFactory(&factory);
    QEvaluator::InstallAsFormulaHook();
    const FormulaText formula(
        u"dblookup(\"prices\", \"select price from items where name = ?\", \"price\", "
        u"\"item777\")");
    for (auto _ : state) {
        double total = 0;
        for (int i = 0; i < c_lookups; ++i) {
            QAnyValue result;
            const std::unique_ptr<QEvaluator> evaluator(
                QEvaluator::New(result, formula, nullptr, false, false, false));
            evaluator->Evaluate();
            total += result.MakeDouble();
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * c_lookups);
    SetEvaluatorFactory(nullptr);
    QADOConnection::FreeAll();
}
BENCHMARK(BM_DbLookupFormula)->Unit(benchmark::kMillisecond);

void BM_SqlitePreparedStatement(benchmark::State& state) {
    sqlite3* database = nullptr;
    sqlite3_open(DatabasePath().c_str(), &database);
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(database, "select price from items where name = ?", -1, &statement, nullptr);
    for (auto _ : state) {
        double total = 0;
        for (int i = 0; i < c_lookups; ++i) {
            sqlite3_bind_text(statement, 1, "item777", -1, SQLITE_STATIC);
            if (sqlite3_step(statement) == SQLITE_ROW)
                total += sqlite3_column_double(statement, 0);
            sqlite3_reset(statement);
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetItemsProcessed(state.iterations() * c_lookups);
    sqlite3_finalize(statement);
    sqlite3_close(database);
}
BENCHMARK(BM_SqlitePreparedStatement)->Unit(benchmark::kMillisecond);

} // namespace
