#include "keel/document/ado.h"

#include "keel/document/translate.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <iterator>
#include <map>
#include <sys/stat.h>

namespace keel {

namespace {

// A database file begins with these 16 bytes.
constexpr std::array<char, 16> c_sqliteHeader{'S', 'Q', 'L', 'i', 't', 'e', ' ', 'f',
                                              'o', 'r', 'm', 'a', 't', ' ', '3', '\0'};
// An Access-format file begins with 00 01 00 00 and one of these names, each ending in a NUL.
constexpr std::string_view c_jetName{"Standard Jet DB\0", 16};
constexpr std::string_view c_aceName{"Standard ACE DB\0", 16};

enum class FileKind { Missing, Empty, Folder, Sqlite, Access, Other };

FileKind KindOfFile(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return FileKind::Missing;
    if (S_ISDIR(status.st_mode))
        return FileKind::Folder;
    if (status.st_size == 0)
        return FileKind::Empty;
    std::ifstream file(path, std::ios::binary);
    std::array<char, 20> header{};
    file.read(header.data(), header.size());
    const std::string_view read(header.data(), static_cast<std::size_t>(file.gcount()));
    if (read.size() >= c_sqliteHeader.size() &&
        std::equal(c_sqliteHeader.begin(), c_sqliteHeader.end(), read.begin()))
        return FileKind::Sqlite;
    const std::string_view access = read.size() == header.size() ? read.substr(4) : "";
    if (read.starts_with(std::string_view("\0\1\0\0", 4)) &&
        (access == c_jetName || access == c_aceName))
        return FileKind::Access;
    return FileKind::Other;
}

// An Access-format file goes to the MDBTools ODBC driver, which reads it and never writes.
std::unique_ptr<QAdoBackend> OpenAccessFile(const std::string& path, CString& error) {
    const CString name = CString::FromUtf8(path);
    if (!HasOdbcBackend()) {
        error = name + u" is an Access database file, and " + BuiltWithout(u"ODBC");
        return nullptr;
    }
    const std::string driver = AccessOdbcDriver();
    if (driver.empty()) {
        error = name + u" is an Access database file; reading one needs the MDBTools ODBC "
                       u"driver, which is not installed";
        return nullptr;
    }
    return OpenOdbcBackend("Driver={" + driver + "};DBQ=" + path, error);
}

// The backend of a database file; where no file is, a new SQLite database when `create`.
std::unique_ptr<QAdoBackend> OpenFile(const std::string& path, bool create, CString& error) {
    const CString name = CString::FromUtf8(path);
    switch (KindOfFile(path)) {
    case FileKind::Missing:
        if (create)
            return OpenSqliteBackend(path, error);
        error = name + u" does not exist";
        return nullptr;
    case FileKind::Folder:
        error = name + u" is a folder, not a database file";
        return nullptr;
    case FileKind::Empty:
    case FileKind::Sqlite:
        return OpenSqliteBackend(path, error);
    case FileKind::Access:
        return OpenAccessFile(path, error);
    case FileKind::Other:
        break;
    }
    error = name + u" is not an SQLite database file";
    return nullptr;
}

std::map<CString, std::shared_ptr<QADOConnection>>& SharedConnections() {
    static std::map<CString, std::shared_ptr<QADOConnection>> connections;
    return connections;
}

std::mutex& SharedLock() {
    static std::mutex lock;
    return lock;
}

// A table or field name in a statement, quoted so that it stays one name.
CString Quoted(const CString& name) {
    CString quoted = name;
    quoted.Replace(u"\"", u"\"\"");
    return u"\"" + quoted + u"\"";
}

CString InDatabase(const CString& sql, const CString& path) {
    return u"[" + sql + u"] in database " + path;
}

} // namespace

// --- QADOConnection -------------------------------------------------------------------------

QADOConnection::QADOConnection(const CString& path, std::unique_ptr<QAdoBackend> backend)
    : m_path(path), m_backend(std::move(backend)) {}

QADOConnection::~QADOConnection() = default;

std::shared_ptr<QADOConnection> QADOConnection::Open(const CString& name, CString& error,
                                                     bool create) {
    const std::string text = name.ToUtf8();
    std::unique_ptr<QAdoBackend> backend;
    switch (DatabaseNameKind(name)) {
    case QDatabaseNameKind::PostgresUri:
        backend = OpenPostgresBackend(text, error);
        break;
    case QDatabaseNameKind::OdbcConnection:
        backend = OpenOdbcBackend(text, error);
        break;
    case QDatabaseNameKind::File:
        backend = OpenFile(text, create, error);
        break;
    }
    if (!backend)
        return nullptr;
    return std::shared_ptr<QADOConnection>(
        new QADOConnection(DatabaseDisplayName(name), std::move(backend)));
}

std::shared_ptr<QADOConnection> QADOConnection::MakeShared(const CString& name, CString& error,
                                                           bool create) {
    const std::lock_guard guard(SharedLock());
    auto& connections = SharedConnections();
    const auto found = connections.find(name);
    if (found != connections.end())
        return found->second;
    std::shared_ptr<QADOConnection> connection = Open(name, error, create);
    if (connection)
        connections.emplace(name, connection);
    return connection;
}

void QADOConnection::FreeAll() {
    std::map<CString, std::shared_ptr<QADOConnection>> freed;
    const std::lock_guard guard(SharedLock());
    freed.swap(SharedConnections());
}

int QADOConnection::SharedCount() {
    const std::lock_guard guard(SharedLock());
    return static_cast<int>(SharedConnections().size());
}

void QADOConnection::SetBusyTimeout(int milliseconds) {
    const std::lock_guard guard(m_lock);
    m_backend->SetTimeout(milliseconds);
}

int QADOConnection::CachedStatementCount() const {
    const std::lock_guard guard(m_lock);
    return m_backend->CachedStatementCount();
}

bool QADOConnection::Run(const CString& sql, std::span<const QAdoField> parameters,
                         QAdoRecords* records, std::int64_t& changed, CString& error) {
    const std::lock_guard guard(m_lock);
    return m_backend->Run(sql.ToUtf8(), parameters, records, changed, error);
}

bool QADOConnection::Execute(const CString& sql, std::span<const QAdoField> parameters,
                             std::int64_t& changed, CString& error) {
    const std::lock_guard guard(m_lock);
    return m_backend->Execute(sql.ToUtf8(), parameters, changed, error);
}

// --- QAdo -----------------------------------------------------------------------------------

std::vector<QAdoField> AdoParameters(std::span<const QAnyValue> values) {
    std::vector<QAdoField> fields;
    fields.reserve(values.size());
    for (const QAnyValue& value : values)
        fields.push_back(QAdoField{value, nullptr});
    return fields;
}

QAdo::QAdo(std::shared_ptr<QADOConnection> connection) : m_connection(std::move(connection)) {}

void QAdo::SetConnection(std::shared_ptr<QADOConnection> connection) {
    Close();
    m_connection = std::move(connection);
}

bool QAdo::SetConnection(const CString& path, bool create) {
    Close();
    CString error;
    m_connection = QADOConnection::MakeShared(path, error, create);
    if (!m_connection)
        return Fail(u"Cannot connect to " + DatabaseDisplayName(path) + u"\n" + error);
    return true;
}

bool QAdo::Fail(const CString& message) {
    m_lastError = message;
    return false;
}

bool QAdo::Connected() {
    if (m_connection)
        return true;
    return Fail(u"Cannot add new data record - ADO not initialised");
}

bool QAdo::Open(const CString& sql, std::span<const QAnyValue> parameters) {
    Close();
    if (!Connected())
        return false;
    CString error;
    const std::vector<QAdoField> fields = AdoParameters(parameters);
    if (!m_connection->Run(sql, fields, &m_records, m_changed, error)) {
        m_records = QAdoRecords();
        return Fail(u"Cannot open query " + InDatabase(sql, m_connection->Path()) + u"\n" + error);
    }
    m_open = true;
    return true;
}

bool QAdo::OpenQuery(const CString& sql, std::span<const QAnyValue> parameters) {
    return Open(sql, parameters);
}

bool QAdo::OpenQueryForRecord(const CString& sql, std::span<const QAnyValue> parameters) {
    if (!Open(sql, parameters))
        return false;
    if (m_records.rows.empty())
        return Fail(u"No record found for query " + InDatabase(sql, m_connection->Path()));
    return true;
}

bool QAdo::OpenTable(const CString& table) {
    if (!Open(u"SELECT * FROM " + Quoted(table), {}))
        return false;
    m_table = table;
    return true;
}

bool QAdo::Execute(const CString& sql, std::span<const QAnyValue> parameters) {
    if (!Connected())
        return false;
    CString error;
    const std::vector<QAdoField> fields = AdoParameters(parameters);
    if (m_connection->Execute(sql, fields, m_changed, error))
        return true;
    static const QTString text(
        u"DBExecute failed in ADO when trying to execute the supplied query:\n\n%s\n\n%s",
        u"Message box (query,error)");
    return Fail(CString::Formatted(text, sql, error));
}

void QAdo::Close() {
    m_records = QAdoRecords();
    m_table.Empty();
    m_position = 0;
    m_open = false;
    m_adding = false;
    m_changes.clear();
}

bool QAdo::IsEOF() const {
    return m_position >= GetRecordCount();
}

bool QAdo::HasRecord() const {
    return m_open && !IsEOF();
}

bool QAdo::Move(int n) {
    const long long target = static_cast<long long>(m_position) + n;
    if (!m_open || target < 0 || target > GetRecordCount())
        return Fail(CString::Formatted(u"Cannot move %d records from record %d of %d", n,
                                       m_position + 1, GetRecordCount()));
    m_position = static_cast<int>(target);
    m_changes.clear();
    return true;
}

bool QAdo::MoveFirst() {
    if (!m_open)
        return Fail(u"No query is open");
    m_position = 0;
    m_changes.clear();
    return true;
}

CString QAdo::GetFieldName(int index) const {
    if (index < 0 || index >= GetFieldCount())
        return CString();
    return m_records.names[static_cast<std::size_t>(index)];
}

int QAdo::FieldIndex(const CString& name) const {
    for (int i = 0; i < GetFieldCount(); ++i)
        if (m_records.names[static_cast<std::size_t>(i)].CompareNoCase(name) == 0)
            return i;
    return -1;
}

const QAdoField* QAdo::Field(const CString& name) const {
    const int index = FieldIndex(name);
    if (index < 0 || !HasRecord())
        return nullptr;
    return &m_records.rows[static_cast<std::size_t>(m_position)][static_cast<std::size_t>(index)];
}

QAnyValue QAdo::GetField(int index) const {
    return GetField(GetFieldName(index));
}

QAnyValue QAdo::GetField(const CString& name) const {
    const QAdoField* field = Field(name);
    return field ? field->value : QAnyValue();
}

int QAdo::GetInt(const CString& name) const {
    QAnyValue value = GetField(name);
    return value.IsEmpty() ? 0 : value.MakeInt();
}

CString QAdo::GetString(const CString& name) const {
    return GetField(name).AsStringOrFormula();
}

QBlob QAdo::GetBlob(const CString& name) const {
    const QAdoField* field = Field(name);
    return field && field->blob ? *field->blob : QBlob();
}

bool QAdo::AddNew() {
    if (!Connected())
        return false;
    m_adding = true;
    m_changes.clear();
    return true;
}

bool QAdo::Put(const CString& name, QAdoField field) {
    if (!m_adding) {
        if (!HasRecord())
            return Fail(u"No current record to change");
        const int index = FieldIndex(name);
        if (index < 0)
            return Fail(u"No field [" + name + u"] in the record");
        m_records.rows[static_cast<std::size_t>(m_position)][static_cast<std::size_t>(index)] =
            field;
    }
    const auto same = [&](const auto& change) { return change.first.CompareNoCase(name) == 0; };
    const auto found = std::find_if(m_changes.begin(), m_changes.end(), same);
    if (found != m_changes.end())
        found->second = std::move(field);
    else
        m_changes.emplace_back(name, std::move(field));
    return true;
}

bool QAdo::PutField(int index, const QAnyValue& value) {
    if (index < 0 || index >= GetFieldCount())
        return Fail(CString::Formatted(u"No field %d in the record", index));
    return PutField(GetFieldName(index), value);
}

bool QAdo::PutField(const CString& name, const QAnyValue& value) {
    return Put(name, QAdoField{value, nullptr});
}

bool QAdo::PutInt(const CString& name, int value) {
    return PutField(name, QAnyValue(value));
}

bool QAdo::PutFieldMemo(const CString& name, const CString& text) {
    return PutField(name, QAnyValue(text));
}

bool QAdo::PutFieldBlob(const CString& name, QBlob bytes) {
    return Put(name, QAdoField{QAnyValue(), std::make_shared<const QBlob>(std::move(bytes))});
}

bool QAdo::PutFieldBmpPath(const CString& name, const CString& path) {
    std::ifstream file(path.ToUtf8(), std::ios::binary);
    if (!file)
        return Fail(u"Cannot read picture file " + path);
    QBlob bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad())
        return Fail(u"Cannot read picture file " + path);
    return PutFieldBlob(name, std::move(bytes));
}

bool QAdo::Update(const CString& table, const CString& keyField) {
    if (!Connected())
        return false;
    if (m_changes.empty())
        return Fail(u"No field was set to write into " + table);
    std::vector<QAdoField> parameters;
    CString sql;
    if (m_adding) {
        CString names;
        CString marks;
        for (const auto& [name, field] : m_changes) {
            names += (names.IsEmpty() ? u"" : u", ") + Quoted(name);
            marks += marks.IsEmpty() ? u"?" : u", ?";
            parameters.push_back(field);
        }
        sql = u"INSERT INTO " + Quoted(table) + u" (" + names + u") VALUES (" + marks + u")";
    } else {
        if (keyField.IsEmpty() || FieldIndex(keyField) < 0)
            return Fail(u"A changed record needs its key field to be written into " + table);
        CString settings;
        for (const auto& [name, field] : m_changes) {
            settings += (settings.IsEmpty() ? u"" : u", ") + Quoted(name) + u" = ?";
            parameters.push_back(field);
        }
        sql = u"UPDATE " + Quoted(table) + u" SET " + settings + u" WHERE " + Quoted(keyField) +
              u" = ?";
        parameters.push_back(*Field(keyField));
    }
    CString error;
    if (!m_connection->Run(sql, parameters, nullptr, m_changed, error))
        return Fail(u"Cannot update " + table + u" in database " + m_connection->Path() + u"\n" +
                    error);
    m_adding = false;
    m_changes.clear();
    return true;
}

bool QAdo::Update() {
    if (m_table.IsEmpty())
        return Fail(u"No table is open to write into");
    return Update(m_table);
}

bool QAdo::AddNewPicture(const CString& id, const CString& path) {
    if (!Connected())
        return false;
    if (m_table.IsEmpty())
        return Fail(u"No table is open to add the picture to");
    return AddNew() && PutField(c_pictureIdField, QAnyValue(id)) &&
           PutFieldBmpPath(c_pictureField, path) && Update();
}

// --- QAdoFormulaDatabase --------------------------------------------------------------------

QDatabaseFailure QAdoFormulaDatabase::Query(const CString& path, const CString& sql,
                                            std::span<const QAnyValue> parameters,
                                            QDatabaseRecords& records) {
    CString error;
    const std::shared_ptr<QADOConnection> connection =
        QADOConnection::MakeShared(path, error, false);
    if (!connection)
        return {QDatabaseFailure::Kind::Connection, error};
    QAdoRecords read;
    std::int64_t changed = 0;
    if (!connection->Run(sql, AdoParameters(parameters), &read, changed, error))
        return {QDatabaseFailure::Kind::Statement, error};
    records.fieldNames = std::move(read.names);
    records.rows.clear();
    records.rows.reserve(read.rows.size());
    for (std::vector<QAdoField>& row : read.rows) {
        std::vector<QAnyValue>& values = records.rows.emplace_back();
        values.reserve(row.size());
        for (QAdoField& field : row)
            values.push_back(std::move(field.value));
    }
    return {};
}

QDatabaseFailure QAdoFormulaDatabase::Execute(const CString& path, const CString& sql,
                                              std::span<const QAnyValue> parameters,
                                              std::int64_t& changed) {
    CString error;
    const std::shared_ptr<QADOConnection> connection = QADOConnection::MakeShared(path, error);
    if (!connection)
        return {QDatabaseFailure::Kind::Connection, error};
    if (!connection->Execute(sql, AdoParameters(parameters), changed, error))
        return {QDatabaseFailure::Kind::Statement, error};
    return {};
}

} // namespace keel
