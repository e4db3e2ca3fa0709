#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace keel {

using QBlob = std::vector<std::uint8_t>;

// One field of a record: its value, or the bytes of a blob, whose value is then empty.
struct QAdoField {
    QAnyValue value;
    std::shared_ptr<const QBlob> blob;

    bool IsBlob() const { return blob != nullptr; }
};

// Every record of one statement, read at once, so that moving about them and counting them
// agree.
struct QAdoRecords {
    std::vector<CString> names;
    std::vector<std::vector<QAdoField>> rows;

    // A statement gives at most this many records, and this many fields in all.
    static constexpr std::size_t c_maxRecords = 1'000'000;
    static constexpr std::size_t c_maxFields = 16'000'000;

    // Starts a new record of `columns` fields; false with the reason in `error` past the limits.
    bool AddRow(std::size_t columns, CString& error);
};

// One database a connection talks to: an SQLite file, an ODBC data source or a PostgreSQL
// server. The connection serialises the calls, so a backend serves one at a time. A statement's
// records are read whole before it returns; whole numbers that fit come back as integers, larger
// ones and reals as numbers, NULL as the empty value, text as strings, binary data as blobs.
class QAdoBackend {
public:
    virtual ~QAdoBackend() = default;

    // Runs one statement with `parameters` bound in order to its placeholders ("?"). Its records
    // go into `records` when given; `changed` takes the count of records it changed.
    virtual bool Run(const std::string& sql, std::span<const QAdoField> parameters,
                     QAdoRecords* records, std::int64_t& changed, CString& error) = 0;
    // Runs every statement of the text in turn; parameters need a text of one statement.
    virtual bool Execute(const std::string& sql, std::span<const QAdoField> parameters,
                         std::int64_t& changed, CString& error) = 0;
    // How long a statement may wait or run before it fails.
    virtual void SetTimeout(int milliseconds) = 0;
    virtual int CachedStatementCount() const { return 0; }
    // The declared type of a column of reals. Servers keep a REAL in four bytes, and a double
    // as DOUBLE PRECISION.
    virtual const char16_t* RealColumnType() const { return u"DOUBLE PRECISION"; }
    // A statement taking a table's name as its parameter that gives a record when the table is
    // there, whatever the case of its name.
    virtual std::string TableQuery() const {
        return "SELECT table_name FROM information_schema.tables WHERE lower(table_name) = "
               "lower(?)";
    }
};

// The backends. Each gives null with the reason in `error` when it cannot connect.
std::unique_ptr<QAdoBackend> OpenSqliteBackend(const std::string& path, CString& error);
// `connection` goes to the ODBC driver manager as it stands.
std::unique_ptr<QAdoBackend> OpenOdbcBackend(const std::string& connection, CString& error);
// `uri` is a "postgresql://" or "postgres://" URI.
std::unique_ptr<QAdoBackend> OpenPostgresBackend(const std::string& uri, CString& error);

// Whether this build has the backend.
bool HasOdbcBackend();
bool HasPostgresBackend();
// The name of the ODBC driver registered for Access-format files (MDBTools); empty when none is.
std::string AccessOdbcDriver();

// What a backend says when this build left it out.
inline CString BuiltWithout(const char16_t* what) {
    return CString(u"this keel was built without ") + what;
}

} // namespace keel
