#pragma once

#include "tests/support/tempfolder.h"

#include "keel/document/ado.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <string>

namespace keel::test {

// Runs statements on a database file through SQLite itself, the oracle of what our connections
// wrote and the maker of the files they read.
inline void SqliteRun(const std::string& path, const std::string& statements) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    char* message = nullptr;
    const int code = sqlite3_exec(database, statements.c_str(), nullptr, nullptr, &message);
    const std::string text = message ? message : "";
    sqlite3_free(message);
    sqlite3_close(database);
    ASSERT_EQ(code, SQLITE_OK) << text;
}

// The fields of every record of a query, as SQLite gives their text, "|" between fields and
// ";" after each record; NULL reads "<null>".
inline std::string SqliteRows(const std::string& path, const std::string& query) {
    sqlite3* database = nullptr;
    std::string rows;
    if (sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(database);
        return "<cannot open>";
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database, query.c_str(), -1, &statement, nullptr) != SQLITE_OK)
        rows = std::string("<error ") + sqlite3_errmsg(database) + ">";
    while (statement && sqlite3_step(statement) == SQLITE_ROW) {
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const auto* text = sqlite3_column_text(statement, i);
            rows += (i ? "|" : "") + (text ? std::string(reinterpret_cast<const char*>(text))
                                           : std::string("<null>"));
        }
        rows += ";";
    }
    sqlite3_finalize(statement);
    sqlite3_close(database);
    return rows;
}

// The folder of the ODBC driver manager's driver and data source lists (odbcinst.ini, odbc.ini)
// for the tests of a program. The driver manager reads where that folder is once in a process, so
// the tests share one, made on first use and removed when the program ends; each test writes
// the lists it needs, and points ODBCSYSINI and ODBCINI at them for its own run.
class OdbcListsFolder {
public:
    static const std::string& Path() {
        static const OdbcListsFolder folder;
        return folder.m_path;
    }
    static void Write(const std::string& drivers, const std::string& sources) {
        WriteText(Path() + "/odbcinst.ini", drivers);
        WriteText(Path() + "/odbc.ini", sources);
    }
    static void Use(ScopedEnvironment& environment) {
        environment.Set("ODBCSYSINI", Path());
        environment.Set("ODBCINI", Path() + "/odbc.ini");
    }

private:
    OdbcListsFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "keel-odbc-XXXXXX");
        if (mkdtemp(pattern.data()))
            m_path = pattern;
    }
    ~OdbcListsFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    std::string m_path;
};

// A test folder of database files; the shared connections are let go after each test, so that
// no test reads another's files.
class DatabaseFolderTest : public TempFolderTest {
protected:
    void TearDown() override {
        QADOConnection::FreeAll();
        TempFolderTest::TearDown();
    }
};

} // namespace keel::test
