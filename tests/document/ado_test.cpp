#include "tests/support/adobackendsuite.h"
#include "tests/support/appfactory.h"
#include "tests/support/databases.h"
#include "tests/support/environment.h"
#include "tests/support/functioncalls.h"

#include "keel/document/ado.h"
#include "keel/document/usertrace.h"
#include "keel/document/winapp.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <string>
#include <thread>
#include <vector>

namespace keel::test {
namespace {

// SQLite files under the suite that every backend passes alike.
class SqliteBackend : public AdoBackendUnderTest {
public:
    SqliteBackend() {
        typesTable = "CREATE TABLE t(i INTEGER, r REAL, s TEXT, n, b BOOLEAN, big INTEGER, "
                     "bl BLOB, neg INTEGER);"
                     "INSERT INTO t VALUES (42, 2.5, 'héllo', NULL, 1, 3000000000, x'00ff10', "
                     "-2147483648);";
        types = {{u"i", QAnyValue(42)},
                 {u"r", QAnyValue(2.5)},
                 {u"s", QAnyValue(CString::FromUtf8("héllo"))},
                 {u"n", QAnyValue()},
                 {u"b", QAnyValue(true)},
                 {u"big", QAnyValue(3000000000.0)},
                 {u"bl", QAnyValue()},
                 {u"neg", QAnyValue(-2147483647 - 1)}};
        columnTypesQuery = "SELECT name, type FROM pragma_table_info('Items')";
        columnTypes = "Name|TEXT;Done|BOOLEAN;Count|INTEGER;Size|REAL;Length|TEXT;";
        blobType = "BLOB";
        noSuchColumn = "no such column: nosuch";
        noSuchTable = "no such table: nosuch";
        tooFewParameters = "The statement takes 2 parameters, 1 were given";
        moreStatements = "A query is one statement; more follow it:  SELECT 2";
    }
    std::string Unavailable() override { return {}; }
    std::string Database(const std::string& folder) override {
        return m_path = folder + "/prices.mdb";
    }
    void Make(const std::string& statements) override { SqliteRun(m_path, statements); }
    std::string Rows(const std::string& query) override { return SqliteRows(m_path, query); }
    std::string Hex(const std::string& column) const override {
        return "lower(hex(" + column + "))";
    }

private:
    std::string m_path;
};

SqliteBackend sqliteBackend;
INSTANTIATE_TEST_SUITE_P(Sqlite, AdoBackendTest, testing::Values(&sqliteBackend));

// What is SQLite's own: files in the table folder, locks, connections shared by path, and the
// `db` functions of formulas over files; the database has the items in stock.
class SqliteTest : public AdoBackendTest {
protected:
    void SetUp() override {
        AdoBackendTest::SetUp();
        MakeItems();
    }
};
INSTANTIATE_TEST_SUITE_P(Sqlite, SqliteTest, testing::Values(&sqliteBackend));

TEST_P(SqliteTest, FailuresSayWhatFailedInTheirOwnWords) {
    const std::string path = MakeParts();
    const std::string other = File("notes.mdb");
    WriteText(other, "These are notes, not a database, and longer than sixteen bytes.");
    QAdo notDatabase;
    EXPECT_FALSE(notDatabase.SetConnection(CString::FromUtf8(other)));
    EXPECT_EQ(Error(notDatabase),
              "Cannot connect to " + other + "\n" + other + " is not an SQLite database file");
    EXPECT_FALSE(notDatabase.SetConnection(CString::FromUtf8(File("")), true));
    EXPECT_EQ(Error(notDatabase), "Cannot connect to " + File("") + "\n" + File("") +
                                      " is a folder, not a database file");
    EXPECT_FALSE(notDatabase.SetConnection(CString::FromUtf8(File("gone.mdb")), false));
    EXPECT_EQ(Error(notDatabase), "Cannot connect to " + File("gone.mdb") + "\n" +
                                      File("gone.mdb") + " does not exist");

    QAdo ado = Connected();
    EXPECT_FALSE(ado.OpenQuery(u"  "));
    EXPECT_EQ(Error(ado),
              "Cannot open query [  ] in database " + path + "\nThe query holds no statement");
    // Every kind of value binds: empty is NULL, booleans and whole numbers integers, and any
    // other value its text.
    const QAnyValue kinds[] = {QAnyValue(), QAnyValue(true), QAnyValue(u"a\"b")};
    ASSERT_TRUE(ado.OpenQuery(u"SELECT typeof(?) AS a, ? AS b, ? AS c", kinds)) << Error(ado);
    EXPECT_TRUE(ado.GetField(u"a").Identical(QAnyValue(u"null")));
    EXPECT_TRUE(ado.GetField(u"b").Identical(QAnyValue(1)));
    EXPECT_TRUE(ado.GetField(u"c").Identical(QAnyValue(u"a\"b")));
}

TEST_P(SqliteTest, ALockedDatabaseFailsWithinTheBusyTimeout) {
    const std::string path = MakeParts();
    sqlite3* holder = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &holder), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(holder, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);

    QAdo ado = Connected();
    ado.GetConnection()->SetBusyTimeout(300);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(ado.Execute(u"INSERT INTO parts VALUES (9, 'fir', 1)"));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_NE(Error(ado).find("database is locked"), std::string::npos) << Error(ado);
    EXPECT_GE(waited, std::chrono::milliseconds(250));
    EXPECT_LT(waited, std::chrono::seconds(5));

    ASSERT_EQ(sqlite3_exec(holder, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(holder);
    EXPECT_TRUE(ado.Execute(u"INSERT INTO parts VALUES (9, 'fir', 1)")) << Error(ado);
}

TEST_P(SqliteTest, ConnectionsAreSharedByPathAndStatementsKeptByText) {
    const std::string path = MakeParts();
    CString error;
    const auto first = QADOConnection::MakeShared(CString::FromUtf8(path), error);
    ASSERT_NE(first, nullptr) << error.ToUtf8();
    EXPECT_EQ(QADOConnection::MakeShared(CString::FromUtf8(path), error), first);
    EXPECT_EQ(QADOConnection::SharedCount(), 1);

    QAdo ado(first);
    const CString count = u"SELECT count(*) AS n FROM parts";
    ASSERT_TRUE(ado.OpenQuery(count));
    EXPECT_EQ(ado.GetInt(u"n"), 5);
    ASSERT_TRUE(ado.Execute(u"DELETE FROM parts WHERE id > 3; DELETE FROM parts WHERE id = 1"));
    EXPECT_EQ(ado.ChangedCount(), 3);
    // The kept statement reads the records as they are now.
    ASSERT_TRUE(ado.OpenQuery(count));
    EXPECT_EQ(ado.GetInt(u"n"), 2);
    EXPECT_EQ(first->CachedStatementCount(), 1);
    ASSERT_TRUE(ado.OpenQuery(u"SELECT 1 AS n"));
    EXPECT_EQ(first->CachedStatementCount(), 2);

    QADOConnection::FreeAll();
    EXPECT_EQ(QADOConnection::SharedCount(), 0);
    // A connection still held stays open; the next one shared is new.
    ASSERT_TRUE(ado.OpenQuery(count));
    EXPECT_NE(QADOConnection::MakeShared(CString::FromUtf8(path), error), first);
}

TEST_P(SqliteTest, ThreadsShareOneConnectionAndEachGetsItsOwnRecords) {
    const std::string path = MakeParts();
    CString error;
    const auto shared = QADOConnection::MakeShared(CString::FromUtf8(path), error);
    ASSERT_NE(shared, nullptr) << error.ToUtf8();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            QAdo ado(shared);
            for (int i = 0; i < 200; ++i) {
                const int id = (t + i) % 5 + 1;
                const QAnyValue key[] = {QAnyValue(id)};
                if (!ado.OpenQueryForRecord(u"SELECT id FROM parts WHERE id = ?", key) ||
                    ado.GetInt(u"id") != id)
                    ++wrong;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(shared->CachedStatementCount(), 1);
}

TEST_P(SqliteTest, ANewOrEmptyFileBecomesADatabase) {
    for (const char* name : {"new.mdb", "empty.mdb"}) {
        if (std::string(name) == "empty.mdb")
            WriteText(File(name), "");
        QAdo ado = Connected(File(name));
        ASSERT_TRUE(ado.Execute(u"CREATE TABLE t(a); INSERT INTO t VALUES (1)")) << Error(ado);
        EXPECT_EQ(SqliteRows(File(name), "SELECT a FROM t"), "1;") << name;
    }
}

TEST_P(SqliteTest, DatabaseNamesFindTheirFileInTheTableFolder) {
    SqliteRun(File("stock.accdb"), "CREATE TABLE t(a); INSERT INTO t VALUES ('accdb');");
    std::filesystem::create_directory(File("sub"));
    SqliteRun(File("sub/other.mdb"), "CREATE TABLE t(a); INSERT INTO t VALUES ('sub');");
    const std::string sub = File("sub/other.mdb");
    ExpectValues({
        // Any extension but .mdb and .accdb becomes .mdb.
        {"dblookup(\"prices.db\", \"select 1 as a from items\", \"a\")", QAnyValue(1)},
        {"dblookup(\"stock.accdb\", \"select a from t\", \"a\")", QAnyValue(u"accdb")},
        {("dblookup(\"" + sub + "\", \"select a from t\", \"a\")").c_str(), QAnyValue(u"sub")},
        {"dbexecute(\"fresh\", \"create table t(a); insert into t values (1), (2)\")",
         QAnyValue(2)},
    });
    EXPECT_EQ(SqliteRows(File("fresh.mdb"), "SELECT a FROM t"), "1;2;");
}

TEST_P(SqliteTest, FailuresAreErrorValuesWithTheirWords) {
    WriteText(File("notes.mdb"), "Plain notes that are not a database at all.");
    const std::string prices = m_database;
    const std::string connection = "error can't make ADO connection to ";
    struct Case {
        std::string formula;
        std::string message;
    };
    const Case cases[] = {
        {"dblookup(cverr(\"gone\"), \"select 1\", \"a\")", "error bad database path:gone"},
        {"dblookup(\"\", \"select 1\", \"a\")", "error bad database path:"},
        {"dblookup(\"prices\", cverr(\"bad\"), \"a\")", "error in sql string:bad"},
        {"dblookup(\"prices\", \"select 1 as a\", cverr(\"nf\"))", "error in sql fieldname:nf"},
        {"dblookup(\"prices\", \"select ? as a\", \"a\", cverr(\"p\"))", "error in sql param:p"},
        {"dbexecute(\"prices\", \"delete from items where name = ?\", cverr(\"q\"))",
         "error in sql param:q"},
        {"dblookup(\"missing\", \"select 1 as a\", \"a\")",
         connection + File("missing.mdb") + "\n" + File("missing.mdb") + " does not exist"},
        {"dbexecute(\"notes\", \"select 1\")", connection + File("notes.mdb") + "\n" +
                                                   File("notes.mdb") +
                                                   " is not an SQLite database file"},
        {"dblookuprow(\"prices\", \"select * from items\", \"elm\")",
         "No record found for query [select * from items] in database " + prices},
        {"dblookupcol(\"prices\", \"select price from items\", \"cost\")",
         "No field [cost] in query [select price from items] in database " + prices},
    };
    for (const Case& c : cases) {
        const CallOutcome outcome = Run(c.formula);
        EXPECT_TRUE(outcome.ok) << c.formula << ": " << outcome.message;
        EXPECT_EQ(MessageOf(outcome.result), c.message) << c.formula;
    }
    EXPECT_FALSE(std::filesystem::exists(File("missing.mdb")));
}

TEST_P(SqliteTest, WithoutDatabaseAccessTheFunctionsCannotConnect) {
    m_factory.SetDatabase(nullptr);
    const std::string expected =
        "error can't make ADO connection to " + m_database + "\nno database access in this program";
    EXPECT_EQ(MessageOf(Run("dblookup(\"prices\", \"select 1 as a\", \"a\")").result), expected);
    EXPECT_EQ(MessageOf(Run("dbexecute(\"prices\", \"delete from items\")").result), expected);
    EXPECT_EQ(SqliteRows(m_database, "SELECT count(*) FROM items"), "3;");
}

} // namespace
} // namespace keel::test
