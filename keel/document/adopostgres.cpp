#include "keel/document/adobackend.h"

#ifdef KEEL_HAVE_POSTGRES

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <libpq-fe.h>
#include <poll.h>
#include <string_view>

namespace keel {

namespace {

// Seconds that a connection may take to be made, unless the URI says otherwise.
constexpr const char* c_connectTimeoutSeconds = "10";
constexpr int c_defaultStatementTimeoutMs = 30'000;
// The server's own statement timeout ends a statement first; the client waits this much longer
// for its answer before it gives up on the connection.
constexpr int c_answerGraceMs = 1000;

// Type numbers of the server's built-in types.
constexpr Oid c_boolOid = 16;
constexpr Oid c_byteaOid = 17;
constexpr Oid c_int8Oid = 20;
constexpr Oid c_int2Oid = 21;
constexpr Oid c_int4Oid = 23;
constexpr Oid c_oidOid = 26;
constexpr Oid c_float4Oid = 700;
constexpr Oid c_float8Oid = 701;
constexpr Oid c_numericOid = 1700;

struct ResultFree {
    void operator()(PGresult* result) const { PQclear(result); }
};
using Result = std::unique_ptr<PGresult, ResultFree>;

CString Trimmed(const char* text) {
    std::string_view message(text ? text : "");
    while (!message.empty() && std::isspace(static_cast<unsigned char>(message.back())))
        message.remove_suffix(1);
    return CString::FromUtf8(message);
}

// The server's message of a failed statement, without its severity and position.
CString ResultMessage(const PGresult* result) {
    const char* primary = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
    return Trimmed(primary ? primary : PQresultErrorMessage(result));
}

// The tag that opens a dollar-quoted string at `at` ("$$" or "$name$"); empty where none does.
std::string_view DollarTag(std::string_view sql, std::size_t at) {
    if (sql[at] != '$' || at + 1 >= sql.size() ||
        std::isdigit(static_cast<unsigned char>(sql[at + 1])))
        return {};
    std::size_t end = at + 1;
    while (end < sql.size() &&
           (std::isalnum(static_cast<unsigned char>(sql[end])) || sql[end] == '_'))
        ++end;
    return end < sql.size() && sql[end] == '$' ? sql.substr(at, end - at + 1) : std::string_view();
}

// The statement with each "?" outside quotes, quoted names, dollar-quoted strings and comments
// made the numbered parameter the server reads ($1, $2, ...).
std::string NumberedParameters(std::string_view sql) {
    std::string out;
    out.reserve(sql.size() + 8);
    int number = 0;
    for (std::size_t i = 0; i < sql.size(); ++i) {
        const char c = sql[i];
        std::size_t end = i;
        if (c == '\'' || c == '"') {
            end = sql.find(c, i + 1);
            // A doubled quote stays inside.
            while (end != std::string_view::npos && end + 1 < sql.size() && sql[end + 1] == c)
                end = sql.find(c, end + 2);
        } else if (sql.substr(i, 2) == "--") {
            end = sql.find('\n', i);
        } else if (sql.substr(i, 2) == "/*") {
            end = sql.find("*/", i + 2);
            end = end == std::string_view::npos ? end : end + 1;
        } else if (const std::string_view tag = DollarTag(sql, i); !tag.empty()) {
            end = sql.find(tag, i + tag.size());
            end = end == std::string_view::npos ? end : end + tag.size() - 1;
        } else if (c == '?') {
            out += "$" + std::to_string(++number);
            continue;
        }
        end = std::min(end, sql.size() - 1);
        out.append(sql.substr(i, end - i + 1));
        i = end;
    }
    return out;
}

std::string NumberText(double number) {
    if (std::isnan(number))
        return "NaN";
    if (std::isinf(number))
        return number > 0 ? "Infinity" : "-Infinity";
    char text[40];
    const auto end = std::to_chars(text, text + sizeof text, number).ptr;
    return std::string(text, end);
}

QAnyValue WholeNumber(std::string_view text) {
    long long number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size())
        return QAnyValue(CString::FromUtf8(text));
    if (number >= INT_MIN && number <= INT_MAX)
        return QAnyValue(static_cast<int>(number));
    return QAnyValue(static_cast<double>(number));
}

QAnyValue RealNumber(std::string_view text) {
    if (text == "NaN")
        return QAnyValue(std::nan(""));
    if (text == "Infinity" || text == "-Infinity")
        return QAnyValue(text[0] == '-' ? -HUGE_VAL : HUGE_VAL);
    double number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size())
        return QAnyValue(CString::FromUtf8(text));
    return QAnyValue(number);
}

QAdoField ReadField(const PGresult* result, int row, int column) {
    QAdoField field;
    if (PQgetisnull(result, row, column))
        return field;
    const std::string_view text(PQgetvalue(result, row, column),
                                static_cast<std::size_t>(PQgetlength(result, row, column)));
    switch (PQftype(result, column)) {
    case c_boolOid:
        field.value = QAnyValue(text == "t");
        break;
    case c_int2Oid:
    case c_int4Oid:
    case c_int8Oid:
    case c_oidOid:
        field.value = WholeNumber(text);
        break;
    case c_float4Oid:
    case c_float8Oid:
    case c_numericOid:
        field.value = RealNumber(text);
        break;
    case c_byteaOid: {
        std::size_t length = 0;
        unsigned char* bytes =
            PQunescapeBytea(reinterpret_cast<const unsigned char*>(text.data()), &length);
        field.blob = std::make_shared<const QBlob>(bytes, bytes + (bytes ? length : 0));
        PQfreemem(bytes);
        break;
    }
    default:
        field.value = QAnyValue(CString::FromUtf8(text));
        break;
    }
    return field;
}

// Adds the records of a result; the first result of a statement gives the names of the fields.
bool ReadRecords(const PGresult* result, bool first, QAdoRecords& records, CString& error) {
    const int columns = PQnfields(result);
    if (first) {
        records.names.clear();
        records.rows.clear();
        for (int i = 0; i < columns; ++i)
            records.names.push_back(CString::FromUtf8(PQfname(result, i)));
    }
    for (int row = 0; row < PQntuples(result); ++row) {
        if (!records.AddRow(static_cast<std::size_t>(columns), error))
            return false;
        for (int i = 0; i < columns; ++i)
            records.rows.back().push_back(ReadField(result, row, i));
    }
    return true;
}

// Whether a statement that gave records also changed some (INSERT ... RETURNING and its kin).
bool ChangesRecords(const PGresult* result) {
    const std::string_view status = PQcmdStatus(const_cast<PGresult*>(result));
    return status.starts_with("INSERT") || status.starts_with("UPDATE") ||
           status.starts_with("DELETE") || status.starts_with("MERGE");
}

// Parameters as the server reads them: text, NULL as no value, a blob as binary bytea. The
// server infers the type of the others from the statement.
struct Parameters {
    // The texts are made room for at once, so that the values may point into them.
    explicit Parameters(std::size_t count) : texts(count) {}

    std::vector<std::string> texts;
    std::vector<const char*> values;
    std::vector<int> lengths;
    std::vector<int> formats;
    std::vector<Oid> types;

    bool Add(const QAdoField& field, CString& error) {
        const std::size_t i = values.size();
        values.push_back(nullptr);
        lengths.push_back(0);
        formats.push_back(0);
        types.push_back(0);
        if (field.blob) {
            if (field.blob->size() > static_cast<std::size_t>(INT_MAX)) {
                error = u"A blob parameter is too large to send";
                return false;
            }
            // An empty blob is no NULL: its value points somewhere, at no bytes.
            values[i] =
                field.blob->empty() ? "" : reinterpret_cast<const char*>(field.blob->data());
            lengths[i] = static_cast<int>(field.blob->size());
            formats[i] = 1;
            types[i] = c_byteaOid;
            return true;
        }
        QAnyValue value = field.value;
        switch (value.Type()) {
        case QAnyValue::TYPE_EMPTY:
            return true;
        case QAnyValue::TYPE_BOOL:
        case QAnyValue::TYPE_INT:
            texts[i] = std::to_string(value.MakeInt());
            break;
        case QAnyValue::TYPE_DOUBLE:
            texts[i] = NumberText(value.MakeDouble());
            break;
        default:
            texts[i] = value.AsStringOrFormula().ToUtf8();
            if (texts[i].find('\0') != std::string::npos) {
                error = u"A text parameter holds a NUL character, which the server cannot store";
                return false;
            }
            break;
        }
        values[i] = texts[i].c_str();
        return true;
    }
};

// A PostgreSQL server reached through libpq. Statements run with their parameters bound, never
// pasted into the text; every record of a result is read before the statement returns. A
// statement is limited by the server's statement timeout, and the client gives up on a server
// that does not answer a little after it; a connection lost is made again on the next
// statement.
class PostgresBackend : public QAdoBackend {
public:
    PostgresBackend(std::string uri, PGconn* connection)
        : m_uri(std::move(uri)), m_connection(connection) {}
    ~PostgresBackend() override { PQfinish(m_connection); }
    PostgresBackend(const PostgresBackend&) = delete;
    PostgresBackend& operator=(const PostgresBackend&) = delete;

    static PGconn* Connect(const std::string& uri, CString& error);

    bool Run(const std::string& sql, std::span<const QAdoField> parameters, QAdoRecords* records,
             std::int64_t& changed, CString& error) override {
        changed = 0;
        return Send(sql, parameters, true, error) && Collect(records, changed, error);
    }
    bool Execute(const std::string& sql, std::span<const QAdoField> parameters,
                 std::int64_t& changed, CString& error) override {
        changed = 0;
        return Send(sql, parameters, false, error) && Collect(nullptr, changed, error);
    }
    // Tables of the schemas on the search path only.
    std::string TableQuery() const override {
        return "SELECT table_name FROM information_schema.tables WHERE lower(table_name) = "
               "lower(?) AND table_schema = ANY (current_schemas(false))";
    }
    void SetTimeout(int milliseconds) override {
        m_timeoutMs = std::max(1, milliseconds);
        m_timeoutSet = false;
    }

private:
    bool Ready(CString& error);
    bool Send(const std::string& sql, std::span<const QAdoField> parameters, bool oneStatement,
              CString& error);
    bool Wait(CString& error);
    bool Collect(QAdoRecords* records, std::int64_t& changed, CString& error);
    CString Lost(const CString& message);

    std::string m_uri;
    PGconn* m_connection = nullptr;
    int m_timeoutMs = c_defaultStatementTimeoutMs;
    bool m_timeoutSet = false;
};

PGconn* PostgresBackend::Connect(const std::string& uri, CString& error) {
    // What the URI says comes after the defaults and wins over them.
    const char* keys[] = {"connect_timeout", "client_encoding", "fallback_application_name",
                          "dbname", nullptr};
    const char* values[] = {c_connectTimeoutSeconds, "UTF8", "keel", uri.c_str(), nullptr};
    PGconn* connection = PQconnectdbParams(keys, values, 1);
    if (!connection) {
        error = u"Out of memory for a connection";
        return nullptr;
    }
    if (PQstatus(connection) != CONNECTION_OK) {
        error = Trimmed(PQerrorMessage(connection));
        PQfinish(connection);
        return nullptr;
    }
    PQsetnonblocking(connection, 1);
    // The server's notices (a shutdown's warning among them) are not the program's output.
    PQsetNoticeProcessor(
        connection, [](void*, const char*) {}, nullptr);
    return connection;
}

CString PostgresBackend::Lost(const CString& message) {
    PQfinish(m_connection);
    m_connection = nullptr;
    return u"The connection to the server was lost: " + message;
}

// A connection that works, made again when it was lost, with the statement timeout in force.
bool PostgresBackend::Ready(CString& error) {
    if (m_connection && PQstatus(m_connection) != CONNECTION_OK) {
        PQfinish(m_connection);
        m_connection = nullptr;
    }
    if (!m_connection) {
        m_connection = Connect(m_uri, error);
        m_timeoutSet = false;
        if (!m_connection) {
            error = u"The connection to the server was lost and cannot be made again: " + error;
            return false;
        }
    }
    if (m_timeoutSet)
        return true;
    // Set ahead of the first statement of each connection; the statement that sets it finds it
    // set already.
    m_timeoutSet = true;
    std::int64_t ignored = 0;
    const QAdoField field{QAnyValue(CString::FromUtf8(std::to_string(m_timeoutMs))), nullptr};
    return Send("SELECT set_config('statement_timeout', $1, false)", std::span(&field, 1), true,
                error) &&
           Collect(nullptr, ignored, error);
}

bool PostgresBackend::Send(const std::string& sql, std::span<const QAdoField> parameters,
                           bool oneStatement, CString& error) {
    if (!Ready(error))
        return false;
    int sent = 0;
    if (parameters.empty() && !oneStatement) {
        sent = PQsendQuery(m_connection, sql.c_str());
    } else {
        Parameters bound(parameters.size());
        for (const QAdoField& field : parameters)
            if (!bound.Add(field, error))
                return false;
        const std::string text = parameters.empty() ? sql : NumberedParameters(sql);
        sent = PQsendQueryParams(m_connection, text.c_str(), static_cast<int>(parameters.size()),
                                 bound.types.data(), bound.values.data(), bound.lengths.data(),
                                 bound.formats.data(), 0);
    }
    // Records come one at a time, so that a result past the limits is refused as it comes.
    if (sent && oneStatement)
        PQsetSingleRowMode(m_connection);
    if (sent)
        return true;
    const CString message = Trimmed(PQerrorMessage(m_connection));
    error = PQstatus(m_connection) == CONNECTION_OK ? message : Lost(message);
    return false;
}

// Waits until the next result has come, sending what is still to send; false when the server
// goes away or does not answer in time.
bool PostgresBackend::Wait(CString& error) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline =
        Clock::now() + std::chrono::milliseconds(m_timeoutMs + c_answerGraceMs);
    while (true) {
        // What has come is read only when the next result needs more: reading moves what is
        // buffered, and a large result read a record at a time would be moved again and again.
        const int flushed = PQflush(m_connection);
        if (flushed < 0) {
            error = Lost(Trimmed(PQerrorMessage(m_connection)));
            return false;
        }
        if (flushed == 0 && !PQisBusy(m_connection))
            return true;
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            error = Lost(CString::Formatted(u"the server gave no answer within %d ms",
                                            m_timeoutMs + c_answerGraceMs));
            return false;
        }
        pollfd socket{PQsocket(m_connection),
                      static_cast<short>(POLLIN | (flushed == 1 ? POLLOUT : 0)), 0};
        ::poll(&socket, 1, static_cast<int>(std::min<long long>(left, INT_MAX)));
        if (!PQconsumeInput(m_connection)) {
            error = Lost(Trimmed(PQerrorMessage(m_connection)));
            return false;
        }
    }
}

bool PostgresBackend::Collect(QAdoRecords* records, std::int64_t& changed, CString& error) {
    CString failure;
    bool first = true;
    while (true) {
        if (!Wait(error))
            return false;
        Result result(PQgetResult(m_connection));
        if (!result)
            break;
        switch (PQresultStatus(result.get())) {
        case PGRES_SINGLE_TUPLE:
        case PGRES_TUPLES_OK:
            if (ChangesRecords(result.get()))
                changed += std::atoll(PQcmdTuples(result.get()));
            if (records && !ReadRecords(result.get(), first, *records, error)) {
                // The rest of a result past the limits is not worth reading.
                PQfinish(m_connection);
                m_connection = nullptr;
                return false;
            }
            first = false;
            break;
        case PGRES_COMMAND_OK:
            changed += std::atoll(PQcmdTuples(result.get()));
            break;
        case PGRES_EMPTY_QUERY:
            break;
        case PGRES_COPY_IN:
        case PGRES_COPY_OUT:
        case PGRES_COPY_BOTH:
            error = Lost(u"COPY cannot run through this connection");
            return false;
        default:
            if (failure.IsEmpty())
                failure = ResultMessage(result.get());
            break;
        }
    }
    if (failure.IsEmpty())
        return true;
    error = PQstatus(m_connection) == CONNECTION_OK ? failure : Lost(failure);
    return false;
}

} // namespace

bool HasPostgresBackend() {
    return true;
}

std::unique_ptr<QAdoBackend> OpenPostgresBackend(const std::string& uri, CString& error) {
    PGconn* connection = PostgresBackend::Connect(uri, error);
    if (!connection)
        return nullptr;
    auto backend = std::make_unique<PostgresBackend>(uri, connection);
    std::int64_t changed = 0;
    // The statement timeout is set with the first statement; a server that refuses it fails here.
    if (!backend->Run("SELECT 1", {}, nullptr, changed, error))
        return nullptr;
    return backend;
}

} // namespace keel

#else

namespace keel {

bool HasPostgresBackend() {
    return false;
}

std::unique_ptr<QAdoBackend> OpenPostgresBackend(const std::string&, CString& error) {
    error = BuiltWithout(u"PostgreSQL (libpq)");
    return nullptr;
}

} // namespace keel

#endif
