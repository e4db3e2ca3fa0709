#pragma once

#include "keel/document/adobackend.h"
#include "keel/formula/formuladatabase.h"
#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace keel {

// An open database: an SQLite file (or a new one made where no file was), an ODBC data source or
// a PostgreSQL server, told apart by the name: a "postgresql://" or "postgres://" URI goes to
// PostgreSQL, a connection string that names a "Driver" or a "DSN" to ODBC as it stands, and a
// file by its first bytes (an Access-format file to the MDBTools ODBC driver where it is
// installed). The connections that formulas and reports share come from MakeShared, one a
// name, and live until FreeAll (the application's way out). One statement runs at a time on a
// connection; any thread may use it.
class QADOConnection {
public:
    static constexpr int c_defaultBusyTimeoutMs = 2000;
    static constexpr std::size_t c_maxRecords = QAdoRecords::c_maxRecords;
    static constexpr std::size_t c_maxFields = QAdoRecords::c_maxFields;

    // A connection of its own to the database `name`; null with the reason in `error`. Where
    // no file is, a new database is made when `create`, and otherwise that is the failure.
    static std::shared_ptr<QADOConnection> Open(const CString& name, CString& error,
                                                bool create = true);
    // The shared connection of `name`, made on first use.
    static std::shared_ptr<QADOConnection> MakeShared(const CString& name, CString& error,
                                                      bool create = true);
    // Lets go of every shared connection; one still in use closes with its last user.
    static void FreeAll();
    static int SharedCount();

    ~QADOConnection();
    QADOConnection(const QADOConnection&) = delete;
    QADOConnection& operator=(const QADOConnection&) = delete;

    // The database's name as messages show it.
    const CString& Path() const { return m_path; }
    // How long a statement waits for a locked database file, or may run on a server.
    void SetBusyTimeout(int milliseconds);

    // Runs one statement with `parameters` bound in order to its placeholders. Its records go
    // into `records` when given; `changed` takes the count of records it changed. False with the
    // database's message in `error`.
    bool Run(const CString& sql, std::span<const QAdoField> parameters, QAdoRecords* records,
             std::int64_t& changed, CString& error);
    // Runs every statement of the text in turn; parameters need a text of one statement.
    bool Execute(const CString& sql, std::span<const QAdoField> parameters, std::int64_t& changed,
                 CString& error);
    // The count of prepared statements kept.
    int CachedStatementCount() const;
    // The backend's declared type of a column of reals, and its statement that finds a table.
    const char16_t* RealColumnType() const { return m_backend->RealColumnType(); }
    CString TableQuery() const { return CString::FromUtf8(m_backend->TableQuery()); }

private:
    QADOConnection(const CString& path, std::unique_ptr<QAdoBackend> backend);

    CString m_path;
    mutable std::mutex m_lock;
    std::unique_ptr<QAdoBackend> m_backend;
};

// A connection and the records of its latest query, with a current record. Copies share the
// connection and hold their own records. Each failure returns false (or an empty value) and
// leaves its text in GetLastError.
class QAdo {
public:
    // The fields that AddNewPicture fills.
    static constexpr const char16_t* c_pictureIdField = u"ID";
    static constexpr const char16_t* c_pictureField = u"Picture";

    QAdo() = default;
    explicit QAdo(std::shared_ptr<QADOConnection> connection);

    void SetConnection(std::shared_ptr<QADOConnection> connection);
    // The shared connection of the database at `path`.
    bool SetConnection(const CString& path, bool create = true);
    const std::shared_ptr<QADOConnection>& GetConnection() const { return m_connection; }

    // Runs the query and reads all its records; the first is current.
    bool OpenQuery(const CString& sql, std::span<const QAnyValue> parameters = {});
    // As OpenQuery, and fails when the query gives no record.
    bool OpenQueryForRecord(const CString& sql, std::span<const QAnyValue> parameters = {});
    // Every record of a table, which Update and AddNewPicture then write to.
    bool OpenTable(const CString& table);
    // Runs statements that give no records.
    bool Execute(const CString& sql, std::span<const QAnyValue> parameters = {});
    // The count of records the latest Execute or Update changed.
    std::int64_t ChangedCount() const { return m_changed; }
    void Close();
    bool IsOpen() const { return m_open; }

    bool IsEOF() const;
    bool MoveNext() { return Move(1); }
    // Moves by `n` records, back when negative; a move outside the records fails and leaves the
    // current record where it was. The place after the last record is EOF.
    bool Move(int n);
    bool MoveFirst();
    int GetRecordCount() const { return static_cast<int>(m_records.rows.size()); }
    int GetPosition() const { return m_position; }

    int GetFieldCount() const { return static_cast<int>(m_records.names.size()); }
    CString GetFieldName(int index) const;
    // The position of the field of that name, ignoring case; -1 when there is none.
    int FieldIndex(const CString& name) const;
    // The field of the current record: NULL is the empty value, a whole number an integer (a
    // number when it is too large for one, a boolean in a column declared so), a real a number,
    // text a string; a blob's value is empty and its bytes come from GetBlob.
    QAnyValue GetField(int index) const;
    QAnyValue GetField(const CString& name) const;
    int GetInt(const CString& name) const;
    CString GetString(const CString& name) const;
    // The bytes of a blob field; empty for any other.
    QBlob GetBlob(const CString& name) const;

    // Starts a new record of the open table; PutField and its kin then fill it, and Update
    // writes it.
    bool AddNew();
    // Sets a field of the new record, or of the current one (which Update then writes back).
    bool PutField(int index, const QAnyValue& value);
    bool PutField(const CString& name, const QAnyValue& value);
    bool PutInt(const CString& name, int value);
    // A long text.
    bool PutFieldMemo(const CString& name, const CString& text);
    bool PutFieldBlob(const CString& name, QBlob bytes);
    // The bytes of the file at `path` as a blob.
    bool PutFieldBmpPath(const CString& name, const CString& path);
    // Writes the new record into `table`, or the fields changed in the current record, found by
    // the value its field `keyField` had when read.
    bool Update(const CString& table, const CString& keyField = CString());
    // Update into the open table.
    bool Update();
    // Adds a record to the open table holding `id` and the bytes of the picture file.
    bool AddNewPicture(const CString& id, const CString& path);

    CString GetLastError() const { return m_lastError; }

private:
    bool Fail(const CString& message);
    bool HasRecord() const;
    bool Connected();
    const QAdoField* Field(const CString& name) const;
    bool Put(const CString& name, QAdoField field);
    bool Open(const CString& sql, std::span<const QAnyValue> parameters);

    std::shared_ptr<QADOConnection> m_connection;
    QAdoRecords m_records;
    CString m_table;
    int m_position = 0;
    bool m_open = false;
    // The record that AddNew started, or the changes to the current one.
    bool m_adding = false;
    std::vector<std::pair<CString, QAdoField>> m_changes;
    std::int64_t m_changed = 0;
    CString m_lastError;
};

// The values of parameters as fields: anything but the empty value, a boolean, a whole number
// and a number is bound as its text.
std::vector<QAdoField> AdoParameters(std::span<const QAnyValue> values);

// The database access of formulas, over the shared connections.
class QAdoFormulaDatabase : public QFormulaDatabase {
public:
    QDatabaseFailure Query(const CString& path, const CString& sql,
                           std::span<const QAnyValue> parameters,
                           QDatabaseRecords& records) override;
    QDatabaseFailure Execute(const CString& path, const CString& sql,
                             std::span<const QAnyValue> parameters, std::int64_t& changed) override;
};

} // namespace keel
