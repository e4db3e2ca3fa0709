#include "tests/support/appfactory.h"
#include "tests/support/databases.h"
#include "tests/support/environment.h"
#include "tests/support/functioncalls.h"

#include "keel/document/usertrace.h"
#include "keel/document/winapp.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>

namespace keel::test {
namespace {

// The `db` functions of formulas, run by the evaluator against SQLite files in the table folder
// of an application of the test's own.
class DbFunctionsTest : public FunctionCallTest {
protected:
    void SetUp() override {
        FunctionCallTest::SetUp();
        std::string pattern = (std::filesystem::temp_directory_path() / "keel-db-XXXXXX");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_folder = pattern;
        m_factory.SetTableFolder(m_folder);
        m_factory.SetDatabase(&m_database);
        SetEvaluatorFactory(&m_factory);
        SqliteRun(Prices(), "CREATE TABLE items(name TEXT, price REAL, stock INTEGER);"
                            "INSERT INTO items VALUES ('oak', 12.5, 3), ('pine', 4.25, 10),"
                            "('ash', 8, 0);");
    }
    void TearDown() override {
        FunctionCallTest::TearDown();
        QADOConnection::FreeAll();
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    std::string File(const std::string& name) const { return m_folder + "/" + name; }
    std::string Prices() const { return File("prices.mdb"); }

    static QAnyValue Strings(std::initializer_list<const char16_t*> texts) {
        QArray<QAnyValue> elements;
        for (const char16_t* text : texts)
            elements.Add(QAnyValue(text));
        return QAnyValue(elements);
    }

    std::string m_folder;
    QAdoFormulaDatabase m_database;
    TestAppFactory m_factory;
};

TEST_F(DbFunctionsTest, LookUpFieldsRowsColumnsAndLabels) {
    ExpectValues({
        {"dblookup(\"prices\", \"select price from items where name = ?\", \"price\", \"oak\")",
         QAnyValue(12.5)},
        {"dblookup(\"prices\", \"select * from items where price > ? and stock > ?\", \"NAME\", "
         "5, 1)",
         QAnyValue(u"oak")},
        {"dblookupcol(\"prices\", \"select price from items where name = 'oak'\", \"price\")",
         QAnyValue(u"12.5")},
        {"dblookupcol(\"prices\", \"select name from items order by name\", \"name\")",
         QAnyValue(u"ash|oak|pine")},
        {"dblookupcol(\"prices\", \"select name from items where 0\", \"name\")", QAnyValue(u"")},
        {"dblookupcolvalues(\"prices\", \"select name from items order by name\", \"name\")",
         Strings({u"ash", u"oak", u"pine"})},
        {"dblookuprow(\"prices\", \"select * from items\", \"PINE\")", QAnyValue(u"pine|4.25|10")},
        {"getat(dblookuprowvalues(\"prices\", \"select stock, name from items\", 0), 2)",
         QAnyValue(u"ash")},
        {"dblookupcollabels(\"prices\", \"select name, price as cost from items\")",
         QAnyValue(u"name|cost")},
        // A hostile value stays a value.
        {"dblookup(\"prices\", \"select count(*) as n from items where name = ?\", \"n\", "
         "\"x' or '1'='1\")",
         QAnyValue(0)},
    });
}

TEST_F(DbFunctionsTest, DatabaseNamesFindTheirFileInTheTableFolder) {
    SqliteRun(File("stock.accdb"), "CREATE TABLE t(a); INSERT INTO t VALUES ('accdb');");
    std::filesystem::create_directory(File("sub"));
    SqliteRun(File("sub/other.mdb"), "CREATE TABLE t(a); INSERT INTO t VALUES ('sub');");
    const std::string sub = File("sub/other.mdb");
    ExpectValues({
        // Any extension but .mdb and .accdb becomes .mdb.
        {"dblookup(\"prices.db\", \"select 1 as a from items\", \"a\")", QAnyValue(1)},
        {"dblookup(\"prices.sqlite\", \"select 1 as a from items\", \"a\")", QAnyValue(1)},
        {"dblookup(\"stock.accdb\", \"select a from t\", \"a\")", QAnyValue(u"accdb")},
        {("dblookup(\"" + sub + "\", \"select a from t\", \"a\")").c_str(), QAnyValue(u"sub")},
    });
}

TEST_F(DbFunctionsTest, ExecuteChangesRecordsAndCountsThem) {
    ExpectValues({
        {"dbexecute(\"prices\", \"update items set stock = stock + ? where price > ?\", 1, 5)",
         QAnyValue(2)},
        {"dbexecute(\"prices\", \"insert into items values (?, ?, ?)\", \"elm\", 6.5, 2)",
         QAnyValue(1)},
        {"dbexecute(\"fresh\", \"create table t(a); insert into t values (1), (2)\")",
         QAnyValue(2)},
    });
    EXPECT_EQ(SqliteRows(Prices(), "SELECT name, stock FROM items ORDER BY name"),
              "ash|1;elm|2;oak|4;pine|10;");
    EXPECT_EQ(SqliteRows(File("fresh.mdb"), "SELECT a FROM t"), "1;2;");
}

TEST_F(DbFunctionsTest, FailuresAreErrorValuesWithTheirWords) {
    WriteText(File("notes.mdb"), "Plain notes that are not a database at all.");
    const std::string prices = Prices();
    const std::string connection = "error can't make ADO connection to ";
    const std::string badSql = "select from items";
    // SQLite's own words for the statement it cannot prepare.
    std::string refused;
    {
        sqlite3* database = nullptr;
        sqlite3_open(prices.c_str(), &database);
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(database, badSql.c_str(), -1, &statement, nullptr);
        refused = sqlite3_errmsg(database);
        sqlite3_finalize(statement);
        sqlite3_close(database);
    }
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
        {"dblookupcollabels(\"notes\", \"select 1\")", connection + File("notes.mdb") + "\n" +
                                                           File("notes.mdb") +
                                                           " is not an SQLite database file"},
        {"dbexecute(\"notes\", \"select 1\")", connection + File("notes.mdb") + "\n" +
                                                   File("notes.mdb") +
                                                   " is not an SQLite database file"},
        {"dblookup(\"prices\", \"select price from items where name = 'elm'\", \"price\")",
         "No record found for query [select price from items where name = 'elm'] in database " +
             prices},
        {"dblookuprow(\"prices\", \"select * from items\", \"elm\")",
         "No record found for query [select * from items] in database " + prices},
        {"dblookupcol(\"prices\", \"select price from items\", \"cost\")",
         "No field [cost] in query [select price from items] in database " + prices},
        {"dblookup(\"prices\", \"" + badSql + "\", \"a\")",
         "Cannot open query [" + badSql + "] in database " + prices + "\n" + refused},
        {"dbexecute(\"prices\", \"" + badSql + "\")",
         "DBExecute failed in ADO when trying to execute the supplied query:\n\n" + badSql +
             "\n\n" + refused},
    };
    for (const Case& c : cases) {
        const CallOutcome outcome = Run(c.formula);
        EXPECT_TRUE(outcome.ok) << c.formula << ": " << outcome.message;
        EXPECT_EQ(MessageOf(outcome.result), c.message) << c.formula;
    }
    EXPECT_FALSE(std::filesystem::exists(File("missing.mdb")));
}

TEST_F(DbFunctionsTest, WithoutDatabaseAccessTheFunctionsCannotConnect) {
    m_factory.SetDatabase(nullptr);
    const std::string expected =
        "error can't make ADO connection to " + Prices() + "\nno database access in this program";
    EXPECT_EQ(MessageOf(Run("dblookup(\"prices\", \"select 1 as a\", \"a\")").result), expected);
    EXPECT_EQ(MessageOf(Run("dbexecute(\"prices\", \"delete from items\")").result), expected);
    EXPECT_EQ(SqliteRows(Prices(), "SELECT count(*) FROM items"), "3;");
}

// The application serves the databases; each call is traced with its upper-case name, and a
// failing one with " ERROR" after it.
TEST_F(DbFunctionsTest, TheApplicationServesTheCallsAndEachIsTraced) {
    const std::filesystem::path home = std::filesystem::path(m_folder) / "home";
    std::filesystem::create_directories(home);
    ScopedEnvironment environment;
    for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"})
        environment.Set(variable, home.string());
    const unsigned savedMask = QWinApp::c_UserTraceMask;
    std::string trace;
    {
        QWinApp app;
        app.OverrideFileLocation(QFileLocation::Table, CString::FromUtf8(m_folder));
        UserTraceRestart();
        QWinApp::c_UserTraceMask = USER_TRACE_PLAIN_LINES | USER_TRACE_EVALUATIONS;
        const CallOutcome found =
            Run("dblookup(\"prices\", \"select stock from items where name = ?\", \"stock\", "
                "\"pine\")");
        const CallOutcome missed = Run("dblookupcol(\"prices\", \"select 1 as a\", \"b\")");
        QWinApp::c_UserTraceMask = savedMask;
        EXPECT_TRUE(found.result.Identical(QAnyValue(10))) << DescribeValue(found.result);
        EXPECT_TRUE(missed.result.IsError());
        const std::string path = UserTraceFilePath().ToUtf8();
        UserTraceClose();
        trace = ReadText(path);
        UserTraceRestart();
    }
    EXPECT_NE(trace.find("DBLOOKUP(prices, select stock from items where name = ?, stock, pine) "
                         "= 10"),
              std::string::npos)
        << trace;
    EXPECT_EQ(trace.find("DBLOOKUP ERROR"), std::string::npos) << trace;
    EXPECT_NE(trace.find("DBLOOKUPCOL ERROR"), std::string::npos) << trace;
}

TEST_F(DbFunctionsTest, TheFunctionsTakeTheirCounts) {
    ExpectCountsTaken({{"dblookuprow", 3, 3},
                       {"dblookupcol", 3, 3},
                       {"dblookuprowvalues", 3, 3},
                       {"dblookupcolvalues", 3, 3},
                       {"dblookupcollabels", 2, 2}},
                      "\"prices\"");
    const QBuiltinFunction* lookup = FindBuiltinFunction(FullId("dblookup"));
    ASSERT_NE(lookup, nullptr);
    EXPECT_EQ(lookup->minArgs, 3);
    EXPECT_EQ(lookup->maxArgs, c_builtinAnyCount);
}

} // namespace
} // namespace keel::test
