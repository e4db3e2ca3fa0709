#include "tests/support/adobackendsuite.h"
#include "tests/support/postgresserver.h"
#include "tests/support/program.h"

#include "keel/document/ado.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <string>

namespace keel::test {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The database of the shared server under the suite that every backend passes alike.
class PostgresBackend : public AdoBackendUnderTest {
public:
    PostgresBackend() {
        typesTable =
            "CREATE TABLE t(i int4, small int2, big int8, r float8, f float4, num numeric, s text, "
            "v varchar(10), n int4, b boolean, bl bytea, neg int4, d date, top int4);"
            "INSERT INTO t VALUES (42, -7, 3000000000, 2.5, 0.25, 12.125, 'héllo', 'vc', NULL, "
            "true, '\\x00ff10', -2147483648, '2024-01-02', 2147483647)";
        types = {{u"i", QAnyValue(42)},
                 {u"small", QAnyValue(-7)},
                 {u"big", QAnyValue(3000000000.0)},
                 {u"r", QAnyValue(2.5)},
                 {u"f", QAnyValue(0.25)},
                 {u"num", QAnyValue(12.125)},
                 {u"s", QAnyValue(CString::FromUtf8("héllo"))},
                 {u"v", QAnyValue(u"vc")},
                 {u"n", QAnyValue()},
                 {u"b", QAnyValue(true)},
                 {u"bl", QAnyValue()},
                 {u"neg", QAnyValue(-2147483647 - 1)},
                 {u"d", QAnyValue(u"2024-01-02")},
                 {u"top", QAnyValue(2147483647)}};
        columnTypesQuery = "SELECT column_name, data_type FROM information_schema.columns "
                           "WHERE table_name = 'Items' ORDER BY ordinal_position";
        columnTypes = "Name|text;Done|boolean;Count|integer;Size|double precision;Length|text;";
        blobType = "bytea";
        noSuchColumn = "column \"nosuch\" does not exist";
        noSuchTable = "relation \"nosuch\" does not exist";
        tooFewParameters =
            "bind message supplies 1 parameters, but prepared statement \"\" requires 2";
        moreStatements = "cannot insert multiple commands into a prepared statement";
    }
    std::string Unavailable() override { return PostgresUnavailable(); }
    std::string Database(const std::string&) override { return PostgresServer::Shared().Uri(); }
    void Make(const std::string& statements) override {
        ASSERT_EQ(PostgresServer::Shared().Psql(statements), "");
    }
    std::string Rows(const std::string& query) override {
        std::string rows = PostgresServer::Shared().Psql(query);
        std::replace(rows.begin(), rows.end(), '\n', ';');
        return rows;
    }
    std::string Hex(const std::string& column) const override {
        return "encode(" + column + ", 'hex')";
    }
};

PostgresBackend postgresBackend;
INSTANTIATE_TEST_SUITE_P(Postgres, AdoBackendTest, testing::Values(&postgresBackend));

// What is the server's own: its quoting, its connections and its time limits.
class PostgresServerTest : public AdoBackendTest {
protected:
    static PostgresServer& Server() { return PostgresServer::Shared(); }
};
INSTANTIATE_TEST_SUITE_P(Postgres, PostgresServerTest, testing::Values(&postgresBackend));

// A "?" in a literal, a quoted name or a comment is no parameter; "$1" may be written too.
TEST_P(PostgresServerTest, OnlyAQuestionMarkOutsideQuotesAndCommentsIsAParameter) {
    Backend().Make("CREATE TABLE notes(id int, body text, price float8, flag boolean, extra text)");
    QAdo ado = Connected();
    const CString hostile = u"x'); DROP TABLE notes; -- ?";
    const QAnyValue values[] = {QAnyValue(1), QAnyValue(hostile), QAnyValue(2.5), QAnyValue(true),
                                QAnyValue()};
    ASSERT_TRUE(ado.Execute(u"INSERT INTO notes VALUES (?, ?, ?, ?, ?)", values)) << Error(ado);
    EXPECT_EQ(Server().Psql("SELECT id, body, price, flag, extra IS NULL FROM notes"),
              "1|x'); DROP TABLE notes; -- ?|2.5|t|t\n");
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

    EXPECT_FALSE(ado.Execute(u"INSERT INTO notes VALUES (?); SELECT 1", one));
    EXPECT_EQ(Error(ado), "DBExecute failed in ADO when trying to execute the supplied query:\n\n"
                          "INSERT INTO notes VALUES (?); SELECT 1\n\ncannot insert multiple "
                          "commands into a prepared statement");
}

TEST_P(PostgresServerTest, AConnectionThatCannotBeMadeSaysWhyAndHidesThePassword) {
    QAdo ado;
    EXPECT_FALSE(ado.SetConnection(CString::FromUtf8(Server().Uri("nosuchdb")), false));
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

TEST_P(PostgresServerTest, AStatementPastItsTimeLimitFailsAndTheConnectionServesOn) {
    QAdo ado = Connected();
    // Until told otherwise, a statement may run for 30 seconds.
    ASSERT_TRUE(ado.OpenQuery(u"SHOW statement_timeout")) << Error(ado);
    EXPECT_EQ(ado.GetString(u"statement_timeout").ToUtf8(), "30s");
    ado.GetConnection()->SetBusyTimeout(300);
    const auto start = Clock::now();
    EXPECT_FALSE(ado.OpenQuery(u"SELECT pg_sleep(5)"));
    EXPECT_LT(SecondsSince(start), 3.0);
    EXPECT_NE(Error(ado).find("\ncanceling statement due to statement timeout"), std::string::npos)
        << Error(ado);
    EXPECT_TRUE(ado.OpenQuery(u"SELECT 1 AS one")) << Error(ado);
    EXPECT_EQ(ado.GetInt(u"one"), 1);
}

TEST_P(PostgresServerTest, AServerThatStopsAnsweringIsGivenUpInTime) {
    QAdo ado = Connected();
    ado.GetConnection()->SetBusyTimeout(300);
    ASSERT_TRUE(ado.OpenQuery(u"SELECT pg_backend_pid() AS pid")) << Error(ado);
    const int frozen = ado.GetInt(u"pid");
    ASSERT_GT(frozen, 0) << "a signal to pid 0 would stop this program";
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

TEST_P(PostgresServerTest, AServerStoppedMidSessionGivesAClearErrorAndIsReachedAgainOnceBack) {
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
}

} // namespace
} // namespace keel::test
