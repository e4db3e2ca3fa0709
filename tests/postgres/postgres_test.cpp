#include "tests/support/appfactory.h"
#include "tests/support/environment.h"
#include "tests/support/functioncalls.h"
#include "tests/support/postgresserver.h"
#include "tests/support/program.h"

#include "keel/document/ado.h"
#include "keel/document/adox.h"

#include <chrono>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel::test {
namespace {

using Clock = std::chrono::steady_clock;

std::string Error(const QAdo& ado) {
    return ado.GetLastError().ToUtf8();
}

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string Hex(const QBlob& bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

class PostgresAdoTest : public PostgresTest {
protected:
    QAdo Connected() {
        QAdo ado;
        EXPECT_TRUE(ado.SetConnection(Uri(), false)) << Error(ado);
        return ado;
    }
    void Make(const std::string& statements) { ASSERT_EQ(Server().Psql(statements), ""); }
};

TEST_F(PostgresAdoTest, FieldsComeBackAsTheSqliteBackendGivesThem) {
    Make("CREATE TABLE t(i int4, small int2, big int8, r float8, f float4, n numeric, s text, "
         "v varchar(10), nul int4, b boolean, bl bytea, neg int4, d date, top int4);"
         "INSERT INTO t VALUES (42, -7, 3000000000, 2.5, 0.25, 12.125, 'héllo', 'vc', NULL, true, "
         "'\\x00ff10', -2147483648, '2024-01-02', 2147483647)");
    QAdo ado = Connected();
    ASSERT_TRUE(ado.OpenQuery(u"SELECT * FROM t")) << Error(ado);
    struct Case {
        const char16_t* field;
        QAnyValue expected;
    };
    const Case cases[] = {
        {u"i", QAnyValue(42)},
        {u"small", QAnyValue(-7)},
        {u"big", QAnyValue(3000000000.0)},
        {u"r", QAnyValue(2.5)},
        {u"f", QAnyValue(0.25)},
        {u"n", QAnyValue(12.125)},
        {u"s", QAnyValue(CString::FromUtf8("héllo"))},
        {u"v", QAnyValue(u"vc")},
        {u"nul", QAnyValue()},
        {u"b", QAnyValue(true)},
        {u"bl", QAnyValue()},
        {u"neg", QAnyValue(-2147483647 - 1)},
        {u"d", QAnyValue(u"2024-01-02")},
        {u"top", QAnyValue(2147483647)},
    };
    ASSERT_EQ(ado.GetFieldCount(), static_cast<int>(std::size(cases)));
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(ado.GetFieldName(static_cast<int>(i)), CString(cases[i].field));
        EXPECT_TRUE(ado.GetField(cases[i].field).Identical(cases[i].expected))
            << CString(cases[i].field).ToUtf8() << " gave "
            << ado.GetField(cases[i].field).AsStringOrFormula().ToUtf8();
    }
    EXPECT_EQ(ado.GetBlob(u"bl"), (QBlob{0x00, 0xff, 0x10}));
    EXPECT_TRUE(ado.GetBlob(u"i").empty());
}

TEST_F(PostgresAdoTest, ValuesAreBoundAsParametersAndNeverBecomeStatementText) {
    Make("CREATE TABLE notes(id int, body text, price float8, flag boolean, extra text)");
    QAdo ado = Connected();
    const CString hostile = u"x'); DROP TABLE notes; -- ?";
    const QAnyValue values[] = {QAnyValue(1), QAnyValue(hostile), QAnyValue(2.5), QAnyValue(true),
                                QAnyValue()};
    ASSERT_TRUE(ado.Execute(u"INSERT INTO notes VALUES (?, ?, ?, ?, ?)", values)) << Error(ado);
    EXPECT_EQ(ado.ChangedCount(), 1);
    EXPECT_EQ(Server().Psql("SELECT id, body, price, flag, extra IS NULL FROM notes"),
              "1|x'); DROP TABLE notes; -- ?|2.5|t|t\n");

    // A "?" in a literal, a quoted name or a comment is no parameter; "$1" may be written too.
    const QAnyValue one[] = {QAnyValue(1)};
    ASSERT_TRUE(ado.OpenQuery(
        u"SELECT body AS \"what?\" FROM notes WHERE body <> '?''?' /* ? */ AND id = ? -- ?\n", one))
        << Error(ado);
    EXPECT_EQ(ado.GetString(u"what?"), hostile);
    const QAnyValue x[] = {QAnyValue(u"x")};
    ASSERT_TRUE(ado.OpenQuery(u"SELECT $$a?$$ || $t$?$$?$t$ || ? || '$$' AS q", x)) << Error(ado);
    EXPECT_EQ(ado.GetString(u"q"), CString(u"a??$$?x$$"));
    const QAnyValue text[] = {QAnyValue(hostile)};
    ASSERT_TRUE(ado.OpenQuery(u"SELECT id FROM notes WHERE body = $1", text)) << Error(ado);
    EXPECT_EQ(ado.GetRecordCount(), 1);

    // Numbers go as text that reads back to the same double.
    for (const double number : {0.1, 1e300, -2.5e-300, 123456789.123456789, -0.0}) {
        const QAnyValue parameter[] = {QAnyValue(number)};
        ASSERT_TRUE(ado.OpenQuery(u"SELECT ?::float8 AS v", parameter)) << Error(ado);
        EXPECT_TRUE(ado.GetField(u"v").Identical(QAnyValue(number))) << number;
    }

    const QAnyValue tooFew[] = {QAnyValue(1)};
    EXPECT_FALSE(ado.OpenQuery(u"SELECT id FROM notes WHERE id = ? AND price = ?", tooFew));
    EXPECT_NE(Error(ado).find("bind message supplies 1 parameters, but prepared statement \"\" "
                              "requires 2"),
              std::string::npos)
        << Error(ado);
}

TEST_F(PostgresAdoTest, PicturesAndBlobsKeepEveryByte) {
    Make("CREATE TABLE pictures(\"ID\" text, \"Picture\" bytea)");
    QBlob bytes;
    for (int i = 0; i < 4 * 256; ++i)
        bytes.push_back(static_cast<std::uint8_t>((i * 7) % 256));
    const std::string file = Server().Folder() + "/picture.bin";
    WriteText(file, std::string(bytes.begin(), bytes.end()));
    QAdo ado = Connected();
    ASSERT_TRUE(ado.OpenTable(u"pictures")) << Error(ado);
    ASSERT_TRUE(ado.AddNewPicture(u"p1", CString::FromUtf8(file))) << Error(ado);
    ASSERT_TRUE(ado.AddNew());
    ASSERT_TRUE(ado.PutField(u"ID", QAnyValue(u"empty")));
    ASSERT_TRUE(ado.PutFieldBlob(u"Picture", {}));
    ASSERT_TRUE(ado.Update()) << Error(ado);
    std::filesystem::remove(file);

    EXPECT_EQ(Server().Psql("SELECT encode(\"Picture\", 'hex') FROM pictures WHERE \"ID\" = 'p1'"),
              Hex(bytes) + "\n");
    EXPECT_EQ(Server().Psql("SELECT length(\"Picture\") FROM pictures WHERE \"ID\" = 'empty'"),
              "0\n");
    const QAnyValue id[] = {QAnyValue(u"p1")};
    ASSERT_TRUE(ado.OpenQuery(u"SELECT \"Picture\" FROM pictures WHERE \"ID\" = ?", id));
    EXPECT_EQ(ado.GetBlob(u"Picture"), bytes);
}

TEST_F(PostgresAdoTest, FailuresSayWhatFailedInTheirOwnWords) {
    Make("CREATE TABLE parts(id int)");
    QAdo ado = Connected();
    const std::string in = "] in database " + Server().Uri();
    struct Case {
        std::function<bool()> call;
        std::string message;
    };
    const Case cases[] = {
        {[&] { return ado.OpenQuery(u"SELECT nosuch FROM parts"); },
         "Cannot open query [SELECT nosuch FROM parts" + in + "\ncolumn \"nosuch\" does not exist"},
        {[&] { return ado.OpenQueryForRecord(u"SELECT id FROM parts"); },
         "No record found for query [SELECT id FROM parts" + in},
        {[&] { return ado.OpenQuery(u"SELECT 1; SELECT 2"); },
         "Cannot open query [SELECT 1; SELECT 2" + in +
             "\ncannot insert multiple commands into a prepared statement"},
        {[&] { return ado.Execute(u"INSERT INTO nosuch VALUES (1)"); },
         "DBExecute failed in ADO when trying to execute the supplied query:\n\nINSERT INTO "
         "nosuch VALUES (1)\n\nrelation \"nosuch\" does not exist"},
        {[&] {
             return ado.Execute(u"INSERT INTO parts VALUES (?); SELECT 1",
                                std::vector{QAnyValue(1)});
         },
         "DBExecute failed in ADO when trying to execute the supplied query:\n\nINSERT INTO "
         "parts VALUES (?); SELECT 1\n\ncannot insert multiple commands into a prepared statement"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(c.call());
        EXPECT_EQ(Error(ado), c.message);
    }
    // The connection serves on after its statements failed.
    EXPECT_TRUE(ado.OpenQuery(u"SELECT count(*) AS n FROM parts")) << Error(ado);
}

TEST_F(PostgresAdoTest, AResultPastTheLimitsIsRefusedAsItComes) {
    QAdo ado = Connected();
    const auto start = Clock::now();
    EXPECT_FALSE(ado.OpenQuery(u"SELECT g FROM generate_series(1, 1000001) g"));
    EXPECT_LT(SecondsSince(start), 30.0);
    EXPECT_NE(Error(ado).find("\nThe statement gives more than 1000000 records or 16000000 fields"),
              std::string::npos)
        << Error(ado);
    EXPECT_EQ(ado.GetRecordCount(), 0);
    ASSERT_TRUE(ado.OpenQuery(u"SELECT g FROM generate_series(1, 1000) g")) << Error(ado);
    EXPECT_EQ(ado.GetRecordCount(), 1000);
}

TEST_F(PostgresAdoTest, AConnectionThatCannotBeMadeSaysWhyAndHidesThePassword) {
    QAdo ado;
    EXPECT_FALSE(ado.SetConnection(Uri("nosuchdb"), false));
    EXPECT_EQ(Error(ado).rfind("Cannot connect to " + Server().Uri("nosuchdb") + "\n", 0), 0u)
        << Error(ado);
    EXPECT_NE(Error(ado).find("database \"nosuchdb\" does not exist"), std::string::npos);

    const std::string secret =
        "postgresql://keel:s3cret@/nosuchdb?host=" + Server().Folder() + "&password=s3cret";
    EXPECT_FALSE(ado.SetConnection(CString::FromUtf8(secret), false));
    EXPECT_EQ(Error(ado).find("s3cret"), std::string::npos) << Error(ado);
    EXPECT_NE(Error(ado).find("postgresql://keel:***@/nosuchdb"), std::string::npos);

    const std::string nowhere = "postgres:///keeltest?host=" + Server().Folder() + "/nowhere";
    const auto start = Clock::now();
    EXPECT_FALSE(ado.SetConnection(CString::FromUtf8(nowhere), false));
    EXPECT_LT(SecondsSince(start), 5.0);
    EXPECT_NE(Error(ado).find("Cannot connect to " + nowhere +
                              "\nconnection to server on socket \"" + Server().Folder() +
                              "/nowhere/.s.PGSQL.5432\" failed"),
              std::string::npos)
        << Error(ado);
}

TEST_F(PostgresAdoTest, ExecuteCountsTheChangesOfEveryStatement) {
    QAdo ado = Connected();
    ASSERT_TRUE(ado.Execute(u"CREATE TABLE c(a int); INSERT INTO c VALUES (1), (2), (3); "
                            u"UPDATE c SET a = a + 10 WHERE a > 1; DELETE FROM c WHERE a = 1"))
        << Error(ado);
    EXPECT_EQ(ado.ChangedCount(), 6);
    EXPECT_EQ(Server().Psql("SELECT a FROM c ORDER BY a"), "12\n13\n");
    const QAnyValue nine[] = {QAnyValue(9)};
    ASSERT_TRUE(ado.OpenQuery(u"INSERT INTO c VALUES (?) RETURNING a", nine)) << Error(ado);
    EXPECT_EQ(ado.GetInt(u"a"), 9);
    EXPECT_EQ(ado.ChangedCount(), 1);
    ASSERT_TRUE(ado.OpenQuery(u"SELECT a FROM c"));
    EXPECT_EQ(ado.ChangedCount(), 0);
}

TEST_F(PostgresAdoTest, AStatementPastItsTimeLimitFailsAndTheConnectionServesOn) {
    QAdo ado = Connected();
    ado.GetConnection()->SetBusyTimeout(300);
    const auto start = Clock::now();
    EXPECT_FALSE(ado.OpenQuery(u"SELECT pg_sleep(5)"));
    EXPECT_LT(SecondsSince(start), 3.0);
    EXPECT_NE(Error(ado).find("\ncanceling statement due to statement timeout"), std::string::npos)
        << Error(ado);
    EXPECT_TRUE(ado.OpenQuery(u"SELECT 1 AS one")) << Error(ado);
    EXPECT_EQ(ado.GetInt(u"one"), 1);
}

TEST_F(PostgresAdoTest, AServerThatStopsAnsweringIsGivenUpInTime) {
    QAdo ado = Connected();
    ado.GetConnection()->SetBusyTimeout(300);
    ASSERT_TRUE(ado.OpenQuery(u"SELECT pg_backend_pid() AS pid")) << Error(ado);
    const int frozen = ado.GetInt(u"pid");
    ASSERT_EQ(::kill(frozen, SIGSTOP), 0);
    const auto start = Clock::now();
    const bool answered = ado.OpenQuery(u"SELECT 1 AS one");
    const double waited = SecondsSince(start);
    ::kill(frozen, SIGCONT);
    EXPECT_FALSE(answered);
    EXPECT_LT(waited, 4.0);
    EXPECT_NE(Error(ado).find("\nThe connection to the server was lost: the server gave no answer "
                              "within 1300 ms"),
              std::string::npos)
        << Error(ado);
    // The next statement connects again.
    ASSERT_TRUE(ado.OpenQuery(u"SELECT pg_backend_pid() AS pid")) << Error(ado);
    EXPECT_NE(ado.GetInt(u"pid"), frozen);
}

TEST_F(PostgresAdoTest, AServerStoppedMidSessionGivesAClearErrorAndIsReachedAgainOnceBack) {
    QAdo ado = Connected();
    ASSERT_TRUE(ado.OpenQuery(u"SELECT 1 AS one")) << Error(ado);
    ASSERT_TRUE(Server().Stop());
    const auto start = Clock::now();
    EXPECT_FALSE(ado.OpenQuery(u"SELECT 1 AS one"));
    EXPECT_NE(Error(ado).find("\nThe connection to the server was lost"), std::string::npos)
        << Error(ado);
    EXPECT_FALSE(ado.OpenQuery(u"SELECT 1 AS one"));
    EXPECT_NE(Error(ado).find("\nThe connection to the server was lost and cannot be made again: "
                              "connection to server on socket"),
              std::string::npos)
        << Error(ado);
    EXPECT_LT(SecondsSince(start), 5.0);
    ASSERT_TRUE(Server().Start());
    EXPECT_TRUE(ado.OpenQuery(u"SELECT 1 AS one")) << Error(ado);
}

TEST_F(PostgresAdoTest, TablesAreCreatedAndRecordsChangedThroughTheOpenTable) {
    QAdo ado = Connected();
    TableSpec stock{u"Stock", {}};
    stock.columns.Add({u"name", QAnyValue::TYPE_STRING});
    stock.columns.Add({u"count", QAnyValue::TYPE_INT});
    stock.columns.Add({u"price", QAnyValue::TYPE_DOUBLE});
    stock.columns.Add({u"done", QAnyValue::TYPE_BOOL});
    TableSpec broken{u"Broken", {}};
    QAdoX adox(ado.GetConnection());
    const TableSpec both[] = {stock, broken};
    EXPECT_FALSE(adox.CreateMissingTables(both));
    EXPECT_FALSE(adox.HasTable(u"stock"));
    ASSERT_TRUE(adox.CreateMissingTables(std::span(both, 1))) << adox.GetLastError().ToUtf8();
    EXPECT_TRUE(adox.HasTable(u"STOCK"));
    EXPECT_TRUE(adox.CreateMissingTables(std::span(both, 1))) << adox.GetLastError().ToUtf8();
    EXPECT_EQ(Server().Psql("SELECT column_name, data_type FROM information_schema.columns "
                            "WHERE table_name = 'Stock' ORDER BY ordinal_position"),
              "name|text\ncount|integer\nprice|double precision\ndone|boolean\n");

    ASSERT_TRUE(ado.OpenTable(u"Stock")) << Error(ado);
    ASSERT_TRUE(ado.AddNew());
    ASSERT_TRUE(ado.PutField(u"name", QAnyValue(u"oak")));
    ASSERT_TRUE(ado.PutInt(u"count", 3));
    ASSERT_TRUE(ado.PutField(u"price", QAnyValue(0.1)));
    ASSERT_TRUE(ado.PutField(u"done", QAnyValue(false)));
    ASSERT_TRUE(ado.Update()) << Error(ado);
    ASSERT_TRUE(ado.OpenTable(u"Stock")) << Error(ado);
    EXPECT_TRUE(ado.GetField(u"price").Identical(QAnyValue(0.1)));
    EXPECT_TRUE(ado.GetField(u"done").Identical(QAnyValue(false)));
    ASSERT_TRUE(ado.PutInt(u"count", 4));
    ASSERT_TRUE(ado.Update(u"Stock", u"name")) << Error(ado);
    EXPECT_EQ(Server().Psql("SELECT name, count, price, done FROM \"Stock\""), "oak|4|0.1|f\n");
}

// The `db` functions of formulas, with a server's URI for the database's name.
class PostgresFunctionsTest : public FunctionCallTest {
protected:
    void SetUp() override {
        FunctionCallTest::SetUp();
        const std::string why = PostgresUnavailable();
        if (!why.empty())
            GTEST_SKIP() << why;
        m_factory.SetDatabase(&m_database);
        SetEvaluatorFactory(&m_factory);
        ASSERT_EQ(
            PostgresServer::Shared().Psql(
                "CREATE TABLE items(name text, price float8, stock int);"
                "INSERT INTO items VALUES ('oak', 12.5, 3), ('pine', 4.25, 10), ('ash', 8, 0)"),
            "");
    }
    void TearDown() override {
        FunctionCallTest::TearDown();
        QADOConnection::FreeAll();
    }

    // A call of `function` on the test's database with the rest of its arguments.
    static std::string Call(const std::string& function, const std::string& rest,
                            const std::string& database = PostgresServer::c_database) {
        return function + "(\"" + PostgresServer::Shared().Uri(database) + "\", " + rest + ")";
    }

    QAdoFormulaDatabase m_database;
    TestAppFactory m_factory;
};

TEST_F(PostgresFunctionsTest, LookUpsAndExecuteTakeTheUriAsTheDatabase) {
    const std::string uri = PostgresServer::Shared().Uri();
    const std::string badSql = "\"select nosuch from items\", \"nosuch\"";
    ExpectValues({
        {Call("dblookup", "\"select price from items where name = ?\", \"price\", \"oak\"").c_str(),
         QAnyValue(12.5)},
        {Call("dblookupcol", "\"select name from items order by name\", \"name\"").c_str(),
         QAnyValue(u"ash|oak|pine")},
        {Call("dblookuprow", "\"select name, stock from items\", \"PINE\"").c_str(),
         QAnyValue(u"pine|10")},
        {Call("dblookupcollabels", "\"select name, price as cost from items\"").c_str(),
         QAnyValue(u"name|cost")},
        {Call("dbexecute", "\"update items set stock = stock + ? where price > ?\", 1, 5").c_str(),
         QAnyValue(2)},
    });
    EXPECT_EQ(PostgresServer::Shared().Psql("SELECT name, stock FROM items ORDER BY name"),
              "ash|1\noak|4\npine|10\n");
    ExpectErrors({
        {Call("dblookup", badSql).c_str(),
         ("Cannot open query [select nosuch from items] in database " + uri +
          "\ncolumn \"nosuch\" does not exist")
             .c_str()},
    });
    const CallOutcome missing = Run(Call("dblookup", "\"select 1 as a\", \"a\"", "nosuchdb"));
    EXPECT_EQ(MessageOf(missing.result)
                  .rfind("error can't make ADO connection to " +
                             PostgresServer::Shared().Uri("nosuchdb") + "\n",
                         0),
              0u)
        << MessageOf(missing.result);
}

class PostgresProgramTest : public KeelProgramTest {
protected:
    void SetUp() override {
        KeelProgramTest::SetUp();
        const std::string why = PostgresUnavailable();
        if (!why.empty())
            GTEST_SKIP() << why;
    }
};

TEST_F(PostgresProgramTest, QueryAndExecTakeAUri) {
    const std::string uri = PostgresServer::Shared().Uri();
    ProgramOutcome outcome =
        Run({"db", "exec", uri,
             "CREATE TABLE items(name text, price float8, stock int, photo bytea); "
             "INSERT INTO items VALUES ('oak', 12.5, 3, '\\x0aff'), ('pine', 4.25, NULL, NULL)"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "2 records changed\n");
    outcome = Run({"db", "query", uri, "SELECT * FROM items ORDER BY name", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out,
              "{\"name\": \"oak\", \"price\": 12.5, \"stock\": 3, \"photo\": \"X'0AFF'\"}\n"
              "{\"name\": \"pine\", \"price\": 4.25, \"stock\": null, \"photo\": null}\n");
    outcome = Run({"db", "query", uri, "SELECT name, stock FROM items ORDER BY name"});
    EXPECT_EQ(outcome.out, "name\tstock\noak\t3\npine\t\n");
    outcome = Run({"db", "exec", uri, "DELETE FROM nosuch"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "keel db: DBExecute failed in ADO when trying to execute the supplied "
                           "query:\n\nDELETE FROM nosuch\n\nrelation \"nosuch\" does not exist\n");
}

} // namespace
} // namespace keel::test
