#include "keel/document/adobackend.h"

#ifdef KEEL_HAVE_ODBC

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdint>
#include <sql.h>
#include <sqlext.h>

namespace keel {

namespace {

// Seconds that a connection may take to be made, and that a statement may run.
constexpr SQLULEN c_loginTimeoutSeconds = 10;
constexpr int c_defaultQueryTimeoutMs = 30'000;
// A field read in parts is refused past this many bytes.
constexpr std::size_t c_maxFieldBytes = 256u << 20;

// The messages of the handle's diagnostic records, one a line, each followed by its state.
CString Diagnostics(SQLSMALLINT type, SQLHANDLE handle) {
    std::string joined;
    for (SQLSMALLINT record = 1;; ++record) {
        SQLCHAR state[6] = {};
        SQLINTEGER native = 0;
        SQLCHAR message[1024] = {};
        SQLSMALLINT length = 0;
        const SQLRETURN code =
            SQLGetDiagRec(type, handle, record, state, &native, message, sizeof message, &length);
        if (!SQL_SUCCEEDED(code))
            break;
        joined += (joined.empty() ? "" : "\n") + std::string(reinterpret_cast<char*>(message)) +
                  " (" + reinterpret_cast<char*>(state) + ")";
    }
    return joined.empty() ? CString(u"The ODBC driver gave no message") : CString::FromUtf8(joined);
}

struct StatementHandle {
    SQLHSTMT handle = SQL_NULL_HSTMT;
    ~StatementHandle() {
        if (handle != SQL_NULL_HSTMT)
            SQLFreeHandle(SQL_HANDLE_STMT, handle);
    }
};

// A parameter's value where the driver reads it when the statement runs.
struct BoundValue {
    SQLBIGINT integer = 0;
    double real = 0;
    std::string text;
    SQLLEN length = 0;
};

SQLRETURN BindParameter(SQLHSTMT statement, SQLUSMALLINT position, const QAdoField& field,
                        BoundValue& bound) {
    if (field.blob) {
        bound.length = static_cast<SQLLEN>(field.blob->size());
        auto* data = const_cast<std::uint8_t*>(field.blob->data());
        return SQLBindParameter(statement, position, SQL_PARAM_INPUT, SQL_C_BINARY,
                                SQL_LONGVARBINARY, std::max<SQLULEN>(1, field.blob->size()), 0,
                                data, bound.length, &bound.length);
    }
    QAnyValue value = field.value;
    switch (value.Type()) {
    case QAnyValue::TYPE_EMPTY:
        bound.length = SQL_NULL_DATA;
        return SQLBindParameter(statement, position, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 1, 0,
                                nullptr, 0, &bound.length);
    case QAnyValue::TYPE_BOOL:
    case QAnyValue::TYPE_INT:
        bound.integer = value.MakeInt();
        return SQLBindParameter(statement, position, SQL_PARAM_INPUT, SQL_C_SBIGINT, SQL_BIGINT, 0,
                                0, &bound.integer, 0, nullptr);
    case QAnyValue::TYPE_DOUBLE:
        bound.real = value.MakeDouble();
        return SQLBindParameter(statement, position, SQL_PARAM_INPUT, SQL_C_DOUBLE, SQL_DOUBLE, 0,
                                0, &bound.real, 0, nullptr);
    default:
        bound.text = value.AsStringOrFormula().ToUtf8();
        bound.length = static_cast<SQLLEN>(bound.text.size());
        return SQLBindParameter(statement, position, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR,
                                std::max<SQLULEN>(1, bound.text.size()), 0, bound.text.data(),
                                bound.length, &bound.length);
    }
}

// The bytes of a long field, read in parts; false past the limit or on the driver's failure.
bool ReadParts(SQLHSTMT statement, SQLUSMALLINT column, SQLSMALLINT type, std::string& bytes,
               bool& isNull, CString& error) {
    char part[8192];
    // Text parts end in a NUL that is not theirs.
    const std::size_t room = type == SQL_C_CHAR ? sizeof part - 1 : sizeof part;
    while (true) {
        SQLLEN length = 0;
        const SQLRETURN code = SQLGetData(statement, column, type, part, sizeof part, &length);
        if (code == SQL_NO_DATA)
            return true;
        if (!SQL_SUCCEEDED(code)) {
            error = Diagnostics(SQL_HANDLE_STMT, statement);
            return false;
        }
        if (length == SQL_NULL_DATA) {
            isNull = true;
            return true;
        }
        const std::size_t got = (length == SQL_NO_TOTAL || static_cast<std::size_t>(length) > room)
                                    ? room
                                    : static_cast<std::size_t>(length);
        if (bytes.size() + got > c_maxFieldBytes) {
            error = CString::Formatted(u"A field holds more than %d bytes",
                                       static_cast<int>(c_maxFieldBytes));
            return false;
        }
        bytes.append(part, got);
        if (code == SQL_SUCCESS)
            return true;
    }
}

bool ReadField(SQLHSTMT statement, SQLUSMALLINT column, SQLSMALLINT sqlType, QAdoField& field,
               CString& error) {
    SQLLEN length = 0;
    SQLRETURN code = SQL_SUCCESS;
    switch (sqlType) {
    case SQL_BIT: {
        unsigned char bit = 0;
        code = SQLGetData(statement, column, SQL_C_BIT, &bit, sizeof bit, &length);
        if (SQL_SUCCEEDED(code) && length != SQL_NULL_DATA)
            field.value = QAnyValue(bit != 0);
        break;
    }
    case SQL_TINYINT:
    case SQL_SMALLINT:
    case SQL_INTEGER:
    case SQL_BIGINT: {
        SQLBIGINT number = 0;
        code = SQLGetData(statement, column, SQL_C_SBIGINT, &number, sizeof number, &length);
        if (SQL_SUCCEEDED(code) && length != SQL_NULL_DATA)
            field.value = number >= INT_MIN && number <= INT_MAX
                              ? QAnyValue(static_cast<int>(number))
                              : QAnyValue(static_cast<double>(number));
        break;
    }
    case SQL_REAL:
    case SQL_FLOAT:
    case SQL_DOUBLE:
    case SQL_DECIMAL:
    case SQL_NUMERIC: {
        double number = 0;
        code = SQLGetData(statement, column, SQL_C_DOUBLE, &number, sizeof number, &length);
        if (SQL_SUCCEEDED(code) && length != SQL_NULL_DATA)
            field.value = QAnyValue(number);
        break;
    }
    case SQL_BINARY:
    case SQL_VARBINARY:
    case SQL_LONGVARBINARY: {
        std::string bytes;
        bool isNull = false;
        if (!ReadParts(statement, column, SQL_C_BINARY, bytes, isNull, error))
            return false;
        if (!isNull)
            field.blob = std::make_shared<const QBlob>(bytes.begin(), bytes.end());
        return true;
    }
    default: {
        std::string text;
        bool isNull = false;
        if (!ReadParts(statement, column, SQL_C_CHAR, text, isNull, error))
            return false;
        if (!isNull)
            field.value = QAnyValue(CString::FromUtf8(text));
        return true;
    }
    }
    if (!SQL_SUCCEEDED(code)) {
        error = Diagnostics(SQL_HANDLE_STMT, statement);
        return false;
    }
    return true;
}

// A data source reached through the ODBC driver manager. Every record of a result is fetched
// before the statement returns.
class OdbcBackend : public QAdoBackend {
public:
    OdbcBackend(SQLHENV environment, SQLHDBC connection)
        : m_environment(environment), m_connection(connection) {}
    ~OdbcBackend() override {
        SQLDisconnect(m_connection);
        SQLFreeHandle(SQL_HANDLE_DBC, m_connection);
        SQLFreeHandle(SQL_HANDLE_ENV, m_environment);
    }
    OdbcBackend(const OdbcBackend&) = delete;
    OdbcBackend& operator=(const OdbcBackend&) = delete;

    bool Run(const std::string& sql, std::span<const QAdoField> parameters, QAdoRecords* records,
             std::int64_t& changed, CString& error) override {
        changed = 0;
        return RunText(sql, parameters, records, changed, error);
    }
    // The driver takes the whole text, and gives a result for each of its statements.
    bool Execute(const std::string& sql, std::span<const QAdoField> parameters,
                 std::int64_t& changed, CString& error) override {
        changed = 0;
        return RunText(sql, parameters, nullptr, changed, error);
    }
    void SetTimeout(int milliseconds) override { m_timeoutMs = milliseconds; }

private:
    bool RunText(const std::string& sql, std::span<const QAdoField> parameters,
                 QAdoRecords* records, std::int64_t& changed, CString& error);
    bool ReadRecords(SQLHSTMT statement, SQLSMALLINT columns, QAdoRecords& records, CString& error);

    SQLHENV m_environment;
    SQLHDBC m_connection;
    int m_timeoutMs = c_defaultQueryTimeoutMs;
};

bool OdbcBackend::ReadRecords(SQLHSTMT statement, SQLSMALLINT columns, QAdoRecords& records,
                              CString& error) {
    records.names.clear();
    records.rows.clear();
    std::vector<SQLSMALLINT> types;
    for (SQLUSMALLINT i = 1; i <= static_cast<SQLUSMALLINT>(columns); ++i) {
        SQLCHAR name[256] = {};
        SQLSMALLINT nameLength = 0, type = 0, digits = 0, nullable = 0;
        SQLULEN size = 0;
        if (!SQL_SUCCEEDED(SQLDescribeCol(statement, i, name, sizeof name, &nameLength, &type,
                                          &size, &digits, &nullable))) {
            error = Diagnostics(SQL_HANDLE_STMT, statement);
            return false;
        }
        records.names.push_back(CString::FromUtf8(reinterpret_cast<char*>(name)));
        types.push_back(type);
    }
    while (true) {
        const SQLRETURN code = SQLFetch(statement);
        if (code == SQL_NO_DATA)
            return true;
        if (!SQL_SUCCEEDED(code)) {
            error = Diagnostics(SQL_HANDLE_STMT, statement);
            return false;
        }
        if (!records.AddRow(types.size(), error))
            return false;
        std::vector<QAdoField>& row = records.rows.back();
        for (std::size_t i = 0; i < types.size(); ++i)
            if (!ReadField(statement, static_cast<SQLUSMALLINT>(i + 1), types[i],
                           row.emplace_back(), error))
                return false;
    }
}

bool OdbcBackend::RunText(const std::string& sql, std::span<const QAdoField> parameters,
                          QAdoRecords* records, std::int64_t& changed, CString& error) {
    StatementHandle statement;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, m_connection, &statement.handle))) {
        error = Diagnostics(SQL_HANDLE_DBC, m_connection);
        return false;
    }
    const SQLULEN seconds = static_cast<SQLULEN>(std::max(1, (m_timeoutMs + 999) / 1000));
    SQLSetStmtAttr(statement.handle, SQL_ATTR_QUERY_TIMEOUT, reinterpret_cast<SQLPOINTER>(seconds),
                   0);
    auto* text = reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql.c_str()));
    SQLRETURN code = SQL_SUCCESS;
    if (parameters.empty()) {
        code = SQLExecDirect(statement.handle, text, SQL_NTS);
    } else {
        std::vector<BoundValue> bound(parameters.size());
        code = SQLPrepare(statement.handle, text, SQL_NTS);
        for (std::size_t i = 0; SQL_SUCCEEDED(code) && i < parameters.size(); ++i)
            code = BindParameter(statement.handle, static_cast<SQLUSMALLINT>(i + 1), parameters[i],
                                 bound[i]);
        if (SQL_SUCCEEDED(code))
            code = SQLExecute(statement.handle);
    }
    // A statement that changed no record may answer that there was no data.
    while (SQL_SUCCEEDED(code) || code == SQL_NO_DATA) {
        SQLSMALLINT columns = 0;
        SQLNumResultCols(statement.handle, &columns);
        if (columns > 0 && records && !ReadRecords(statement.handle, columns, *records, error))
            return false;
        SQLLEN count = 0;
        if (columns == 0 && SQL_SUCCEEDED(SQLRowCount(statement.handle, &count)) && count > 0)
            changed += count;
        code = SQLMoreResults(statement.handle);
        if (code == SQL_NO_DATA)
            return true;
    }
    error = Diagnostics(SQL_HANDLE_STMT, statement.handle);
    return false;
}

} // namespace

bool HasOdbcBackend() {
    return true;
}

std::unique_ptr<QAdoBackend> OpenOdbcBackend(const std::string& connection, CString& error) {
    SQLHENV environment = SQL_NULL_HENV;
    SQLHDBC handle = SQL_NULL_HDBC;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &environment))) {
        error = u"The ODBC driver manager cannot start";
        return nullptr;
    }
    SQLSetEnvAttr(environment, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3),
                  0);
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, environment, &handle))) {
        error = Diagnostics(SQL_HANDLE_ENV, environment);
        SQLFreeHandle(SQL_HANDLE_ENV, environment);
        return nullptr;
    }
    SQLSetConnectAttr(handle, SQL_ATTR_LOGIN_TIMEOUT,
                      reinterpret_cast<SQLPOINTER>(c_loginTimeoutSeconds), 0);
    auto* text = reinterpret_cast<SQLCHAR*>(const_cast<char*>(connection.c_str()));
    const SQLRETURN code =
        SQLDriverConnect(handle, nullptr, text, SQL_NTS, nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT);
    if (!SQL_SUCCEEDED(code)) {
        error = Diagnostics(SQL_HANDLE_DBC, handle);
        SQLFreeHandle(SQL_HANDLE_DBC, handle);
        SQLFreeHandle(SQL_HANDLE_ENV, environment);
        return nullptr;
    }
    return std::make_unique<OdbcBackend>(environment, handle);
}

std::string AccessOdbcDriver() {
    SQLHENV environment = SQL_NULL_HENV;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &environment)))
        return {};
    SQLSetEnvAttr(environment, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3),
                  0);
    std::string found;
    SQLUSMALLINT direction = SQL_FETCH_FIRST;
    SQLCHAR name[256];
    SQLCHAR attributes[1024];
    SQLSMALLINT nameLength = 0, attributesLength = 0;
    while (found.empty() &&
           SQL_SUCCEEDED(SQLDrivers(environment, direction, name, sizeof name, &nameLength,
                                    attributes, sizeof attributes, &attributesLength))) {
        direction = SQL_FETCH_NEXT;
        std::string lowered(reinterpret_cast<char*>(name));
        std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (lowered.find("mdbtools") != std::string::npos)
            found = reinterpret_cast<char*>(name);
    }
    SQLFreeHandle(SQL_HANDLE_ENV, environment);
    return found;
}

} // namespace keel

#else

namespace keel {

bool HasOdbcBackend() {
    return false;
}

std::unique_ptr<QAdoBackend> OpenOdbcBackend(const std::string&, CString& error) {
    error = BuiltWithout(u"ODBC (unixODBC)");
    return nullptr;
}

std::string AccessOdbcDriver() {
    return {};
}

} // namespace keel

#endif
