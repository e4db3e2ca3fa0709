#include "keel/document/adobackend.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <mutex>
#include <sqlite3.h>
#include <string_view>
#include <unordered_map>

namespace keel {

namespace {

// Statements kept a connection; past this the kept ones are let go.
constexpr std::size_t c_maxKeptStatements = 64;
constexpr int c_defaultBusyTimeoutMs = 2000;

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

// A database file opened with SQLite. A database that another connection holds locked is waited
// for up to the busy timeout, and then the statement fails. Statements are prepared once for each
// text and kept.
class SqliteBackend : public QAdoBackend {
public:
    explicit SqliteBackend(sqlite3* database) : m_database(database) {}
    ~SqliteBackend() override {
        m_statements.clear();
        sqlite3_close_v2(m_database);
    }
    SqliteBackend(const SqliteBackend&) = delete;
    SqliteBackend& operator=(const SqliteBackend&) = delete;

    bool Run(const std::string& text, std::span<const QAdoField> parameters, QAdoRecords* records,
             std::int64_t& changed, CString& error) override;
    bool Execute(const std::string& sql, std::span<const QAdoField> parameters,
                 std::int64_t& changed, CString& error) override;
    void SetTimeout(int milliseconds) override { sqlite3_busy_timeout(m_database, milliseconds); }
    int CachedStatementCount() const override { return static_cast<int>(m_statements.size()); }
    const char16_t* RealColumnType() const override { return u"REAL"; }
    std::string TableQuery() const override {
        return "SELECT name FROM sqlite_master WHERE type = 'table' AND name = ? COLLATE NOCASE";
    }

private:
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

    // The kept statement of the whole text, or a new one, kept when `keep`. `rest` is where
    // what follows the first statement begins; a statement of a text with more is not kept.
    sqlite3_stmt* Prepare(const std::string& text, bool keep, std::size_t& rest, Statement& owned,
                          CString& error);
    bool Step(sqlite3_stmt* statement, std::span<const QAdoField> parameters, QAdoRecords* records,
              std::int64_t& changed, CString& error);
    CString Message(int code) const;

    sqlite3* m_database = nullptr;
    std::unordered_map<std::string, Statement> m_statements;
};

CString SqliteBackend::Message(int code) const {
    const char* text = sqlite3_errmsg(m_database);
    if (!text || !*text || std::string_view(text) == "unknown error") {
        char buffer[40];
        std::snprintf(buffer, sizeof buffer, "Unknown error 0x%0lX",
                      static_cast<unsigned long>(code));
        return CString::FromUtf8(buffer);
    }
    return CString::FromUtf8(text);
}

sqlite3_stmt* SqliteBackend::Prepare(const std::string& text, bool keep, std::size_t& rest,
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

bool SqliteBackend::Step(sqlite3_stmt* statement, std::span<const QAdoField> parameters,
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
        if (!records->AddRow(static_cast<std::size_t>(columns), error))
            return false;
        std::vector<QAdoField>& row = records->rows.back();
        for (int i = 0; i < columns; ++i)
            row.push_back(ReadField(statement, i));
    }
    changed += sqlite3_total_changes64(m_database) - before;
    return true;
}

bool SqliteBackend::Run(const std::string& text, std::span<const QAdoField> parameters,
                        QAdoRecords* records, std::int64_t& changed, CString& error) {
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

bool SqliteBackend::Execute(const std::string& sql, std::span<const QAdoField> parameters,
                            std::int64_t& changed, CString& error) {
    std::string text = sql;
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

} // namespace

bool QAdoRecords::AddRow(std::size_t columns, CString& error) {
    if (rows.size() >= c_maxRecords || (rows.size() + 1) * columns > c_maxFields) {
        error = CString::Formatted(u"The statement gives more than %d records or %d fields",
                                   static_cast<int>(c_maxRecords), static_cast<int>(c_maxFields));
        return false;
    }
    rows.emplace_back().reserve(columns);
    return true;
}

std::unique_ptr<QAdoBackend> OpenSqliteBackend(const std::string& path, CString& error) {
    sqlite3* database = nullptr;
    const int code = sqlite3_open_v2(
        path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
        nullptr);
    if (code != SQLITE_OK) {
        error = CString::FromUtf8(database ? sqlite3_errmsg(database) : sqlite3_errstr(code));
        sqlite3_close_v2(database);
        return nullptr;
    }
    sqlite3_extended_result_codes(database, 1);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_busy_timeout(database, c_defaultBusyTimeoutMs);
    return std::make_unique<SqliteBackend>(database);
}

} // namespace keel
