#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"

#include <cstdint>
#include <span>
#include <vector>

namespace keel {

// The records a query gave, every one of them, with the names of their fields.
struct QDatabaseRecords {
    std::vector<CString> fieldNames;
    std::vector<std::vector<QAnyValue>> rows;

    // The position of the field of that name, ignoring case; -1 when there is none.
    int FieldIndex(const CString& name) const;
};

// Why a database call failed: no connection could be made to the file, or the database refused
// the statement. `message` is the database's own text.
struct QDatabaseFailure {
    enum class Kind { None, Connection, Statement };
    Kind kind = Kind::None;
    CString message;

    explicit operator bool() const { return kind != Kind::None; }
};

// What names a database: a file, an ODBC connection string (one of its "key=value" pairs, parted
// by ";", has the key "Driver" or "DSN" in any case) or a PostgreSQL server's URI (it begins with
// "postgresql://" or "postgres://" in any case).
enum class QDatabaseNameKind { File, OdbcConnection, PostgresUri };
QDatabaseNameKind DatabaseNameKind(const CString& name);
// The name as messages show it: the password of a connection string ("PWD", "Password", the
// user's password in a URI or its "password" parameter) hidden as "***".
CString DatabaseDisplayName(const CString& name);

// The database access of the formula functions `dblookup` and its kin. The layer of documents
// implements it and the application hands it out (QEvaluatorFactory::Database); without it the
// functions can reach no database. `path` is the database file as the function resolved it, or a
// connection string as it was given.
// Parameters are bound in order to the statement's placeholders ("?"), never pasted into it.
class QFormulaDatabase {
public:
    virtual ~QFormulaDatabase() = default;

    // Runs a statement that gives records, and gathers them all.
    virtual QDatabaseFailure Query(const CString& path, const CString& sql,
                                   std::span<const QAnyValue> parameters,
                                   QDatabaseRecords& records) = 0;
    // Runs statements that change the database; `changed` is the count of records they changed.
    virtual QDatabaseFailure Execute(const CString& path, const CString& sql,
                                     std::span<const QAnyValue> parameters,
                                     std::int64_t& changed) = 0;
};

} // namespace keel
