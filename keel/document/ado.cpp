#include "keel/document/ado.h"

#include "keel/document/translate.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <sqlite3.h>
#include <sys/stat.h>

namespace keel {

namespace {

// A database file begins with these 16 bytes.
constexpr std::array<char, 16> c_sqliteHeader{'S', 'Q', 'L', 'i', 't', 'e', ' ', 'f',
                                              'o', 'r', 'm', 'a', 't', ' ', '3', '\0'};
// Statements kept a connection; past this the kept ones are let go.
constexpr std::size_t c_maxKeptStatements = 64;

// Why the file at `path` is no database this connection can open; empty when it is one, or
// when there is no file (and `create`) or an empty one, which becomes a new database.
CString WhyNotDatabase(const std::string& path, bool create) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return create ? CString() : CString::FromUtf8(path) + u" does not exist";
    if (S_ISDIR(status.st_mode))
        return CString::FromUtf8(path) + u" is a folder, not a database file";
    if (status.st_size == 0)
        return CString();
    std::ifstream file(path, std::ios::binary);
    std::array<char, 16> header{};
    if (!file.read(header.data(), header.size()) || header != c_sqliteHeader)
        return CString::FromUtf8(path) + u" is not an SQLite database file";
    return CString();
}

std::map<CString, std::shared_ptr<QADOConnection>>& SharedConnections() {
    static std::map<CString, std::shared_ptr<QADOConnection>> connections;
    return connections;
}

std::mutex& SharedLock() {
    static std::mutex lock;
    return lock;
}

bool IsBlank(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; });
}

// A declared column type that holds booleans.
bool IsBooleanColumn(const char* declared) {
    if (!declared)
        return false;
    std::string type(declared);
    std::transform(type.begin(), type.end(), type.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return type.find("BOOL") != std::string::npos || type == "BIT" || type == "YESNO";
}

QAdoField ReadField(sqlite3_stmt* statement, int column) {
    QAdoField field;
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER: {
        const sqlite3_int64 number = sqlite3_column_int64(statement, column);
        if (IsBooleanColumn(sqlite3_column_decltype(statement, column)))
            field.value = QAnyValue(number != 0);
        else if (number >= INT_MIN && number <= INT_MAX)
            field.value = QAnyValue(static_cast<int>(number));
        else
            field.value = QAnyValue(static_cast<double>(number));
        break;
    }
    case SQLITE_FLOAT:
        field.value = QAnyValue(sqlite3_column_double(statement, column));
        break;
    case SQLITE_TEXT: {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
        const int bytes = sqlite3_column_bytes(statement, column);
        field.value = QAnyValue(CString::FromUtf8(std::string_view(text ? text : "", bytes)));
        break;
    }
    case SQLITE_BLOB: {
        const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement, column));
        const int bytes = sqlite3_column_bytes(statement, column);
        field.blob = std::make_shared<const QBlob>(data, data + bytes);
        break;
    }
    default:
        break;
    }
    return field;
}

int Bind(sqlite3_stmt* statement, int position, const QAdoField& field) {
    // An empty blob is no NULL: it binds as a blob of no bytes.
    if (field.blob && field.blob->empty())
        return sqlite3_bind_zeroblob(statement, position, 0);
    if (field.blob)
        return sqlite3_bind_blob64(statement, position, field.blob->data(), field.blob->size(),
                                   SQLITE_TRANSIENT);
    const QAnyValue& value = field.value;
    switch (value.Type()) {
    case QAnyValue::TYPE_EMPTY:
        return sqlite3_bind_null(statement, position);
    case QAnyValue::TYPE_BOOL:
    case QAnyValue::TYPE_INT:
        return sqlite3_bind_int64(statement, position, QAnyValue(value).MakeInt());
    case QAnyValue::TYPE_DOUBLE:
        return sqlite3_bind_double(statement, position, QAnyValue(value).MakeDouble());
    default: {
        const std::string text = value.AsStringOrFormula().ToUtf8();
        return sqlite3_bind_text64(statement, position, text.data(), text.size(), SQLITE_TRANSIENT,
                                   SQLITE_UTF8);
    }
    }
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

void QADOConnection::Finalizer::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

QADOConnection::QADOConnection(const CString& path, sqlite3* database)
    : m_path(path), m_database(database) {}

QADOConnection::~QADOConnection() {
    m_statements.clear();
    sqlite3_close_v2(m_database);
}

std::shared_ptr<QADOConnection> QADOConnection::Open(const CString& path, CString& error,
                                                     bool create) {
    const std::string name = path.ToUtf8();
    error = WhyNotDatabase(name, create);
    if (!error.IsEmpty())
        return nullptr;
    sqlite3* database = nullptr;
    const int code = sqlite3_open_v2(
        name.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
        nullptr);
    if (code != SQLITE_OK) {
        error = CString::FromUtf8(database ? sqlite3_errmsg(database) : sqlite3_errstr(code));
        sqlite3_close_v2(database);
        return nullptr;
    }
    sqlite3_extended_result_codes(database, 1);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_busy_timeout(database, c_defaultBusyTimeoutMs);
    return std::shared_ptr<QADOConnection>(new QADOConnection(path, database));
}

std::shared_ptr<QADOConnection> QADOConnection::MakeShared(const CString& path, CString& error,
                                                           bool create) {
    const std::lock_guard guard(SharedLock());
    auto& connections = SharedConnections();
    const auto found = connections.find(path);
    if (found != connections.end())
        return found->second;
    std::shared_ptr<QADOConnection> connection = Open(path, error, create);
    if (connection)
        connections.emplace(path, connection);
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
    sqlite3_busy_timeout(m_database, milliseconds);
}

int QADOConnection::CachedStatementCount() const {
    const std::lock_guard guard(m_lock);
    return static_cast<int>(m_statements.size());
}

CString QADOConnection::Message(int code) const {
    const char* text = sqlite3_errmsg(m_database);
    if (!text || !*text || std::string_view(text) == "unknown error") {
        char buffer[40];
        std::snprintf(buffer, sizeof buffer, "Unknown error 0x%0lX",
                      static_cast<unsigned long>(code));
        return CString::FromUtf8(buffer);
    }
    return CString::FromUtf8(text);
}

sqlite3_stmt* QADOConnection::Prepare(const std::string& text, bool keep, std::size_t& rest,
                                      Statement& owned, CString& error) {
    rest = text.size();
    const auto kept = m_statements.find(text);
    if (kept != m_statements.end())
        return kept->second.get();
    sqlite3_stmt* statement = nullptr;
    const char* tail = nullptr;
    const int code = sqlite3_prepare_v2(m_database, text.data(), static_cast<int>(text.size()),
                                        &statement, &tail);
    if (code != SQLITE_OK) {
        error = Message(code);
        return nullptr;
    }
    rest = tail ? static_cast<std::size_t>(tail - text.data()) : text.size();
    if (!statement)
        return nullptr;
    if (!keep || !IsBlank(std::string_view(text).substr(rest))) {
        owned.reset(statement);
        return statement;
    }
    rest = text.size();
    if (m_statements.size() >= c_maxKeptStatements)
        m_statements.clear();
    return m_statements.emplace(text, Statement(statement)).first->second.get();
}

bool QADOConnection::Step(sqlite3_stmt* statement, std::span<const QAdoField> parameters,
                          QAdoRecords* records, std::int64_t& changed, CString& error) {
    // A kept statement is left reset and unbound for its next use, whatever happens here.
    struct Reset {
        sqlite3_stmt* statement;
        ~Reset() {
            sqlite3_reset(statement);
            sqlite3_clear_bindings(statement);
        }
    } reset{statement};

    const int wanted = sqlite3_bind_parameter_count(statement);
    if (wanted != static_cast<int>(parameters.size())) {
        error = CString::Formatted(u"The statement takes %d parameters, %d were given", wanted,
                                   static_cast<int>(parameters.size()));
        return false;
    }
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        const int code = Bind(statement, static_cast<int>(i) + 1, parameters[i]);
        if (code != SQLITE_OK) {
            error = Message(code);
            return false;
        }
    }
    const int columns = sqlite3_column_count(statement);
    if (records) {
        records->names.clear();
        records->rows.clear();
        for (int i = 0; i < columns; ++i)
            records->names.push_back(CString::FromUtf8(sqlite3_column_name(statement, i)));
    }
    const sqlite3_int64 before = sqlite3_total_changes64(m_database);
    std::size_t fields = 0;
    while (true) {
        const int code = sqlite3_step(statement);
        if (code == SQLITE_DONE)
            break;
        if (code != SQLITE_ROW) {
            error = Message(code);
            return false;
        }
        if (!records)
            continue;
        fields += static_cast<std::size_t>(columns);
        if (records->rows.size() >= c_maxRecords || fields > c_maxFields) {
            error =
                CString::Formatted(u"The statement gives more than %d records or %d fields",
                                   static_cast<int>(c_maxRecords), static_cast<int>(c_maxFields));
            return false;
        }
        std::vector<QAdoField>& row = records->rows.emplace_back();
        row.reserve(static_cast<std::size_t>(columns));
        for (int i = 0; i < columns; ++i)
            row.push_back(ReadField(statement, i));
    }
    changed += sqlite3_total_changes64(m_database) - before;
    return true;
}

bool QADOConnection::Run(const CString& sql, std::span<const QAdoField> parameters,
                         QAdoRecords* records, std::int64_t& changed, CString& error) {
    const std::lock_guard guard(m_lock);
    const std::string text = sql.ToUtf8();
    std::size_t rest = 0;
    Statement owned;
    sqlite3_stmt* statement = Prepare(text, true, rest, owned, error);
    if (!statement) {
        if (error.IsEmpty())
            error = u"The query holds no statement";
        return false;
    }
    if (rest < text.size()) {
        error = u"A query is one statement; more follow it: " +
                CString::FromUtf8(std::string_view(text).substr(rest));
        return false;
    }
    changed = 0;
    return Step(statement, parameters, records, changed, error);
}

bool QADOConnection::Execute(const CString& sql, std::span<const QAdoField> parameters,
                             std::int64_t& changed, CString& error) {
    const std::lock_guard guard(m_lock);
    std::string text = sql.ToUtf8();
    changed = 0;
    // The statements of a text of several are prepared for each run, and not kept.
    bool single = true;
    while (!IsBlank(text)) {
        std::size_t rest = 0;
        Statement owned;
        sqlite3_stmt* statement = Prepare(text, single, rest, owned, error);
        if (!statement && !error.IsEmpty())
            return false;
        if (!IsBlank(std::string_view(text).substr(rest))) {
            single = false;
            if (!parameters.empty()) {
                error = u"Parameters need a text of one statement";
                return false;
            }
        }
        if (statement && !Step(statement, parameters, nullptr, changed, error))
            return false;
        if (rest == 0)
            break;
        text.erase(0, rest);
    }
    return true;
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
        return Fail(u"Cannot connect to " + path + u"\n" + error);
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
