#pragma once

#include "tests/support/appfactory.h"
#include "tests/support/databases.h"
#include "tests/support/functioncalls.h"

#include "keel/document/ado.h"
#include "keel/document/adox.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel::test {

// One database backend under the suite of what every backend must do alike: an empty database
// for each test, and the backend's own tool, which makes tables and reads back what a connection
// wrote. What the backend says in its own words, and how it names its types, are its data.
class AdoBackendUnderTest {
public:
    virtual ~AdoBackendUnderTest() = default;
    // Why the backend cannot be tested here; empty when it can, and then its database is empty.
    virtual std::string Unavailable() = 0;
    // The name to connect to of the empty database of a test whose folder is `folder`.
    virtual std::string Database(const std::string& folder) = 0;
    // Runs statements with the backend's own tool.
    virtual void Make(const std::string& statements) = 0;
    // The records of a query as the tool gives their text: "|" between fields, ";" after each.
    virtual std::string Rows(const std::string& query) = 0;
    // An expression of the bytes of a binary column in lower-case hexadecimal digits.
    virtual std::string Hex(const std::string& column) const = 0;

    struct Field {
        const char16_t* name;
        QAnyValue expected;
    };
    // A table "t" of one record and what each of its fields reads as; among them "i" the
    // integer 42, "r" the real 2.5, "n" a NULL and "bl" the bytes 00 ff 10.
    std::string typesTable;
    std::vector<Field> types;
    // The query of the names and declared types of the columns of the table "Items", and its rows.
    std::string columnTypesQuery;
    std::string columnTypes;
    // The declared type of a binary column.
    std::string blobType;
    // The backend's reasons for a missing column and table, a parameter too few and a second
    // statement after a query.
    std::string noSuchColumn;
    std::string noSuchTable;
    std::string tooFewParameters;
    std::string moreStatements;
};

// Each test has a folder of its own, and formulas that call the `db` functions have database
// access; the shared connections are let go after each test.
class AdoBackendTest : public FunctionCallTest,
                       public testing::WithParamInterface<AdoBackendUnderTest*> {
protected:
    void SetUp() override {
        FunctionCallTest::SetUp();
        std::string pattern = (std::filesystem::temp_directory_path() / "keel-backend-XXXXXX");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_root = pattern;
        m_factory.SetTableFolder(m_root);
        m_factory.SetDatabase(&m_formulaDatabase);
        SetEvaluatorFactory(&m_factory);
        const std::string why = Backend().Unavailable();
        if (!why.empty())
            GTEST_SKIP() << why;
        m_database = Backend().Database(m_root.string());
    }
    void TearDown() override {
        QADOConnection::FreeAll();
        std::error_code ignored;
        std::filesystem::remove_all(m_root, ignored);
        FunctionCallTest::TearDown();
    }

    AdoBackendUnderTest& Backend() const { return *GetParam(); }
    std::string File(const std::string& name) const { return (m_root / name).string(); }
    // A connection to the test's database, or to the one named.
    QAdo Connected(const std::string& name = {}) const {
        QAdo ado;
        EXPECT_TRUE(ado.SetConnection(CString::FromUtf8(name.empty() ? m_database : name)))
            << Error(ado);
        return ado;
    }
    // A table of five parts in the test's database, whose name it gives.
    const std::string& MakeParts() const {
        Backend().Make("CREATE TABLE parts(id INTEGER, name TEXT, price DOUBLE PRECISION);"
                       "INSERT INTO parts VALUES (1,'oak',12.5),(2,'pine',4.25),(3,'ash',8),"
                       "(4,'elm',6.5),(5,'yew',20);");
        return m_database;
    }
    // A table of three items in stock.
    void MakeItems() const {
        Backend().Make("CREATE TABLE items(name TEXT, price DOUBLE PRECISION, stock INTEGER);"
                       "INSERT INTO items VALUES ('oak', 12.5, 3), ('pine', 4.25, 10), "
                       "('ash', 8, 0)");
    }
    static std::string Error(const QAdo& ado) { return ado.GetLastError().ToUtf8(); }

    std::filesystem::path m_root;
    std::string m_database;
    QAdoFormulaDatabase m_formulaDatabase;
    TestAppFactory m_factory;
};

TEST_P(AdoBackendTest, FieldsComeBackAsTheValuesOfTheirStorage) {
    Backend().Make(Backend().typesTable);
    QAdo ado = Connected();
    ASSERT_TRUE(ado.OpenQuery(u"SELECT * FROM t")) << Error(ado);
    const auto& cases = Backend().types;
    ASSERT_EQ(ado.GetFieldCount(), static_cast<int>(cases.size()));
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(CString(cases[i].name).ToUtf8());
        const QAnyValue byName = ado.GetField(cases[i].name);
        EXPECT_TRUE(byName.Identical(cases[i].expected)) << byName.AsStringOrFormula().ToUtf8();
        EXPECT_TRUE(ado.GetField(static_cast<int>(i)).Identical(cases[i].expected));
        EXPECT_EQ(ado.GetFieldName(static_cast<int>(i)), CString(cases[i].name));
    }
    EXPECT_EQ(ado.GetBlob(u"BL"), (QBlob{0x00, 0xff, 0x10}));
    EXPECT_TRUE(ado.GetBlob(u"i").empty());
    EXPECT_EQ(ado.GetInt(u"i"), 42);
    EXPECT_EQ(ado.GetInt(u"n"), 0);
    EXPECT_EQ(ado.GetString(u"r"), CString(u"2.5"));
    // A field that is not there reads empty.
    EXPECT_TRUE(ado.GetField(u"nosuch").IsEmpty());
    EXPECT_EQ(ado.GetFieldName(99), CString());
}

TEST_P(AdoBackendTest, MovesAndTheRecordCountAgree) {
    MakeParts();
    QAdo ado = Connected();
    ASSERT_TRUE(ado.OpenQuery(u"SELECT id FROM parts ORDER BY id")) << Error(ado);
    ASSERT_EQ(ado.GetRecordCount(), 5);
    int visited = 0;
    for (; !ado.IsEOF(); ado.MoveNext())
        EXPECT_EQ(ado.GetInt(u"id"), ++visited);
    EXPECT_EQ(visited, ado.GetRecordCount());
    EXPECT_FALSE(ado.MoveNext());

    struct Step {
        int move;
        bool ok;
        int id; // 0 at EOF
    };
    ASSERT_TRUE(ado.MoveFirst());
    const Step steps[] = {{2, true, 3},   {-3, false, 3}, {-2, true, 1}, {4, true, 5},
                          {1, true, 0},   {1, false, 0},  {-5, true, 1}, {5, true, 0},
                          {-6, false, 0}, {0, true, 0}};
    for (const Step& step : steps) {
        EXPECT_EQ(ado.Move(step.move), step.ok) << step.move;
        EXPECT_EQ(ado.IsEOF(), step.id == 0) << step.move;
        if (step.id != 0) {
            EXPECT_EQ(ado.GetInt(u"id"), step.id) << step.move;
        }
    }
    EXPECT_EQ(Error(ado), "Cannot move -6 records from record 6 of 5");
}

TEST_P(AdoBackendTest, FailuresSayWhatFailedInTheirOwnWords) {
    MakeParts();
    QAdo none;
    EXPECT_FALSE(none.AddNew());
    EXPECT_EQ(Error(none), "Cannot add new data record - ADO not initialised");
    EXPECT_FALSE(none.AddNewPicture(u"1", u"x.bmp"));
    EXPECT_EQ(Error(none), "Cannot add new data record - ADO not initialised");
    EXPECT_FALSE(QAdoX(nullptr).CreateTable({u"t", {}}));

    QAdo ado = Connected();
    const std::string in = " in database " + m_database;
    const QAnyValue one[] = {QAnyValue(1)};
    struct Case {
        std::function<bool()> call;
        std::string message;
    };
    const Case cases[] = {
        {[&] { return ado.OpenQuery(u"SELECT nosuch FROM parts") || ado.IsOpen(); },
         "Cannot open query [SELECT nosuch FROM parts]" + in + "\n" + Backend().noSuchColumn},
        {[&] { return ado.OpenQueryForRecord(u"SELECT * FROM parts WHERE id > 5"); },
         "No record found for query [SELECT * FROM parts WHERE id > 5]" + in},
        {[&] { return ado.Execute(u"INSERT INTO nosuch VALUES (1)"); },
         "DBExecute failed in ADO when trying to execute the supplied query:\n\nINSERT INTO "
         "nosuch VALUES (1)\n\n" +
             Backend().noSuchTable},
        {[&] { return ado.OpenQuery(u"SELECT * FROM parts WHERE id = ? AND name = ?", one); },
         "Cannot open query [SELECT * FROM parts WHERE id = ? AND name = ?]" + in + "\n" +
             Backend().tooFewParameters},
        {[&] { return ado.OpenQuery(u"SELECT 1; SELECT 2"); },
         "Cannot open query [SELECT 1; SELECT 2]" + in + "\n" + Backend().moreStatements},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(c.call()) << c.message;
        EXPECT_EQ(Error(ado), c.message);
    }
    // The connection serves on after its statements failed.
    EXPECT_TRUE(ado.OpenQueryForRecord(u"SELECT * FROM parts WHERE id = 5")) << Error(ado);
}

TEST_P(AdoBackendTest, ValuesAreBoundAsParametersAndNeverBecomeStatementText) {
    MakeParts();
    QAdo ado = Connected();
    const CString hostile = u"x'); DROP TABLE parts; --";
    const QAnyValue values[] = {QAnyValue(6), QAnyValue(hostile), QAnyValue(1.25)};
    ASSERT_TRUE(ado.Execute(u"INSERT INTO parts VALUES (?, ?, ?)", values)) << Error(ado);
    EXPECT_EQ(ado.ChangedCount(), 1);
    EXPECT_EQ(Backend().Rows("SELECT count(*) FROM parts"), "6;");
    EXPECT_EQ(Backend().Rows("SELECT name, price FROM parts WHERE id = 6"),
              hostile.ToUtf8() + "|1.25;");
    const QAnyValue key[] = {QAnyValue(hostile)};
    ASSERT_TRUE(ado.OpenQueryForRecord(u"SELECT id FROM parts WHERE name = ?", key));
    EXPECT_EQ(ado.GetInt(u"id"), 6);

    // Numbers go to the database as the same double.
    for (const double number : {0.1, 1e300, -2.5e-300, 123456789.123456789, -0.0}) {
        const QAnyValue parameter[] = {QAnyValue(number)};
        ASSERT_TRUE(ado.OpenQuery(u"SELECT CAST(? AS DOUBLE PRECISION) AS v", parameter))
            << Error(ado);
        EXPECT_TRUE(ado.GetField(u"v").Identical(QAnyValue(number))) << number;
    }
}

TEST_P(AdoBackendTest, RecordsAreAddedAndChangedThroughTheOpenTable) {
    MakeParts();
    QAdo ado = Connected();
    ASSERT_TRUE(ado.OpenTable(u"parts")) << Error(ado);
    ASSERT_TRUE(ado.AddNew());
    ASSERT_TRUE(ado.PutInt(u"id", 7));
    ASSERT_TRUE(ado.PutFieldMemo(u"name", CString(u"walnut ") + CString(u"burr")));
    ASSERT_TRUE(ado.PutField(u"price", QAnyValue(0.1)));
    ASSERT_TRUE(ado.Update()) << Error(ado);
    EXPECT_EQ(Backend().Rows("SELECT * FROM parts WHERE id = 7"), "7|walnut burr|0.1;");

    ASSERT_TRUE(ado.Move(1));
    EXPECT_EQ(ado.GetInt(u"id"), 2);
    ASSERT_TRUE(ado.PutField(1, QAnyValue(u"spruce")));
    EXPECT_TRUE(ado.GetField(u"name").Identical(QAnyValue(u"spruce")));
    EXPECT_FALSE(ado.Update(u"parts"));
    EXPECT_EQ(Error(ado), "A changed record needs its key field to be written into parts");
    ASSERT_TRUE(ado.Update(u"parts", u"id")) << Error(ado);
    EXPECT_EQ(ado.ChangedCount(), 1);
    EXPECT_EQ(Backend().Rows("SELECT name FROM parts WHERE id = 2"), "spruce;");
    EXPECT_FALSE(ado.Update(u"parts", u"id"));
    EXPECT_EQ(Error(ado), "No field was set to write into parts");
    EXPECT_FALSE(ado.PutField(u"colour", QAnyValue(1)));
    EXPECT_EQ(Error(ado), "No field [colour] in the record");
    EXPECT_FALSE(ado.PutField(9, QAnyValue(1)));
    EXPECT_EQ(Error(ado), "No field 9 in the record");

    ASSERT_TRUE(ado.OpenQuery(u"SELECT price FROM parts WHERE id = 7"));
    EXPECT_TRUE(ado.GetField(u"price").Identical(QAnyValue(0.1)));
}

TEST_P(AdoBackendTest, BlobsAndPicturesKeepEveryByte) {
    Backend().Make("CREATE TABLE \"Pictures\"(\"ID\" TEXT, \"Picture\" " + Backend().blobType +
                   ")");
    QBlob picture;
    std::string hex;
    for (int i = 0; i < 600; ++i) {
        picture.push_back(static_cast<std::uint8_t>((i * 37) & 0xff));
        hex += "0123456789abcdef"[picture.back() >> 4];
        hex += "0123456789abcdef"[picture.back() & 15];
    }
    const std::string door = File("door.bmp");
    WriteText(door, std::string(picture.begin(), picture.end()));

    QAdo ado = Connected();
    ASSERT_TRUE(ado.OpenTable(u"Pictures")) << Error(ado);
    ASSERT_TRUE(ado.AddNewPicture(u"door", CString::FromUtf8(door))) << Error(ado);
    ASSERT_TRUE(ado.AddNew());
    ASSERT_TRUE(ado.PutField(u"ID", QAnyValue(u"empty")));
    ASSERT_TRUE(ado.PutFieldBlob(u"Picture", {}));
    ASSERT_TRUE(ado.Update()) << Error(ado);
    EXPECT_FALSE(ado.AddNewPicture(u"gone", CString::FromUtf8(door + "x")));
    EXPECT_EQ(Error(ado), "Cannot read picture file " + door + "x");

    EXPECT_EQ(Backend().Rows("SELECT \"ID\", " + Backend().Hex("\"Picture\"") +
                             ", length(\"Picture\") FROM \"Pictures\" ORDER BY \"ID\""),
              "door|" + hex + "|600;empty||0;");
    ASSERT_TRUE(ado.OpenQuery(u"SELECT \"Picture\" FROM \"Pictures\" WHERE \"ID\" = 'door'"));
    EXPECT_EQ(ado.GetBlob(u"Picture"), picture);
}

TEST_P(AdoBackendTest, ExecuteCountsTheChangesOfEveryStatement) {
    QAdo ado = Connected();
    ASSERT_TRUE(ado.Execute(u"CREATE TABLE c(a int); INSERT INTO c VALUES (1), (2), (3); "
                            u"UPDATE c SET a = a + 10 WHERE a > 1; DELETE FROM c WHERE a = 1"))
        << Error(ado);
    EXPECT_EQ(ado.ChangedCount(), 6);
    EXPECT_EQ(Backend().Rows("SELECT a FROM c ORDER BY a"), "12;13;");
    const QAnyValue nine[] = {QAnyValue(9)};
    ASSERT_TRUE(ado.OpenQuery(u"INSERT INTO c VALUES (?) RETURNING a", nine)) << Error(ado);
    EXPECT_EQ(ado.GetInt(u"a"), 9);
    EXPECT_EQ(ado.ChangedCount(), 1);
    ASSERT_TRUE(ado.OpenQuery(u"SELECT a FROM c"));
    EXPECT_EQ(ado.ChangedCount(), 0);
}

// Records are counted as they come, so a result past the limits is refused without waiting for
// its end.
TEST_P(AdoBackendTest, AResultPastTheLimitsIsRefused) {
    QAdo ado = Connected();
    const auto series = [](int last) {
        return CString::FromUtf8("WITH RECURSIVE g(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM g "
                                 "WHERE x < " +
                                 std::to_string(last) + ") SELECT x FROM g");
    };
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(ado.OpenQuery(series(1000001)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    EXPECT_NE(Error(ado).find("\nThe statement gives more than 1000000 records or 16000000 fields"),
              std::string::npos)
        << Error(ado);
    EXPECT_EQ(ado.GetRecordCount(), 0);
    ASSERT_TRUE(ado.OpenQuery(series(1000))) << Error(ado);
    EXPECT_EQ(ado.GetRecordCount(), 1000);
}

TEST_P(AdoBackendTest, TablesAreCreatedWithTheColumnTypesOfTheirValues) {
    // A column of each type a value may have in a column of its own.
    TableSpec spec{u"Items", {}};
    for (const auto& [name, type] :
         {std::pair{u"Name", QAnyValue::TYPE_STRING}, std::pair{u"Done", QAnyValue::TYPE_BOOL},
          std::pair{u"Count", QAnyValue::TYPE_INT}, std::pair{u"Size", QAnyValue::TYPE_DOUBLE},
          std::pair{u"Length", QAnyValue::TYPE_LENGTH}})
        spec.columns.Add(ColumnAndType{name, type});
    QAdo ado = Connected();
    QAdoX adox(ado.GetConnection());
    const TableSpec empty{u"Nothing", {}};
    EXPECT_FALSE(empty.HasAnyColumns());
    EXPECT_FALSE(adox.CreateTable(empty));
    EXPECT_EQ(adox.GetLastError(), CString(u"Cannot create table Nothing: it has no columns"));
    ASSERT_TRUE(adox.CreateTable(spec)) << adox.GetLastError().ToUtf8();
    EXPECT_EQ(Backend().Rows(Backend().columnTypesQuery), Backend().columnTypes);
    EXPECT_FALSE(adox.CreateTable(spec));
    EXPECT_TRUE(adox.HasTable(u"items"));

    // A boolean column gives booleans back.
    const QAnyValue row[] = {QAnyValue(u"a"), QAnyValue(false), QAnyValue(3), QAnyValue(1.5)};
    ASSERT_TRUE(ado.Execute(u"INSERT INTO \"Items\" VALUES (?, ?, ?, ?, NULL)", row)) << Error(ado);
    ASSERT_TRUE(ado.OpenQuery(u"SELECT * FROM \"Items\""));
    EXPECT_TRUE(ado.GetField(u"Done").Identical(QAnyValue(false)));

    // All tables or none: a second spec that cannot be made leaves the first out too.
    TableSpec more[] = {TableSpec{u"Extra", {}}, spec, TableSpec{u"Broken", {}}};
    more[0].columns.Add(ColumnAndType{u"X", QAnyValue::TYPE_INT});
    EXPECT_FALSE(adox.CreateMissingTables(more));
    EXPECT_FALSE(adox.HasTable(u"Extra"));
    EXPECT_TRUE(adox.CreateMissingTables(std::span(more, 2))) << adox.GetLastError().ToUtf8();
    EXPECT_TRUE(adox.HasTable(u"EXTRA"));
}

// The `db` functions of formulas take the path or URI of the database.
TEST_P(AdoBackendTest, FormulasLookUpAndChangeRecords) {
    MakeItems();
    const std::string at = "(\"" + m_database + "\", \"";
    QArray<QAnyValue> names;
    for (const char16_t* name : {u"ash", u"oak", u"pine"})
        names.Add(QAnyValue(name));
    struct Case {
        std::string formula;
        QAnyValue expected;
    };
    const Case cases[] = {
        {"dblookup" + at + "select * from items where price > ? and stock > ?\", \"NAME\", 5, 1)",
         QAnyValue(u"oak")},
        {"dblookupcol" + at + "select name from items order by name\", \"name\")",
         QAnyValue(u"ash|oak|pine")},
        {"dblookupcol" + at + "select name from items where 1 = 0\", \"name\")", QAnyValue(u"")},
        {"dblookupcolvalues" + at + "select name from items order by name\", \"name\")",
         QAnyValue(names)},
        {"dblookuprow" + at + "select * from items\", \"PINE\")", QAnyValue(u"pine|4.25|10")},
        {"getat(dblookuprowvalues" + at + "select stock, name from items\", 0), 2)",
         QAnyValue(u"ash")},
        {"dblookupcollabels" + at + "select name, price as cost from items\")",
         QAnyValue(u"name|cost")},
        // A hostile value stays a value.
        {"dblookup" + at +
             "select count(*) as n from items where name = ?\", \"n\", \"x' or "
             "'1'='1\")",
         QAnyValue(0)},
        {"dbexecute" + at + "update items set stock = stock + ? where price > ?\", 1, 5)",
         QAnyValue(2)},
        {"dbexecute" + at + "insert into items values (?, ?, ?)\", \"elm\", 6.5, 2)", QAnyValue(1)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.formula);
        const CallOutcome outcome = Run(c.formula);
        EXPECT_TRUE(outcome.ok) << outcome.message;
        EXPECT_TRUE(outcome.result.Identical(c.expected)) << DescribeValue(outcome.result);
    }
    EXPECT_EQ(Backend().Rows("SELECT name, stock FROM items ORDER BY name"),
              "ash|1;elm|2;oak|4;pine|10;");
    EXPECT_EQ(MessageOf(Run("dblookup" + at + "select nosuch from items\", \"nosuch\")").result),
              "Cannot open query [select nosuch from items] in database " + m_database + "\n" +
                  Backend().noSuchColumn);
}

} // namespace keel::test
