#include "keel/document/adox.h"

#include <cstdint>

namespace keel {

namespace {

CString Quoted(const CString& name) {
    CString quoted = name;
    quoted.Replace(u"\"", u"\"\"");
    return u"\"" + quoted + u"\"";
}

} // namespace

QAdoX::QAdoX(std::shared_ptr<QADOConnection> connection) : m_connection(std::move(connection)) {}

bool QAdoX::Fail(const CString& message) {
    m_lastError = message;
    return false;
}

CString QAdoX::ColumnType(int adoxType, const char16_t* realType) {
    switch (adoxType) {
    case 202:
        return u"TEXT";
    case 11:
        return u"BOOLEAN";
    case 3:
        return u"INTEGER";
    case 5:
        return realType;
    default:
        return u"TEXT";
    }
}

CString QAdoX::CreateStatement(const TableSpec& table, const char16_t* realType) {
    CString sql = u"CREATE TABLE " + Quoted(table.name) + u" (";
    for (int i = 0; i < table.columns.GetCount(); ++i) {
        const ColumnAndType& column = table.columns[i];
        if (i > 0)
            sql += u", ";
        sql += Quoted(column.name) + u" " +
               ColumnType(QAnyValue::TypeToADOXEnum(column.type), realType);
    }
    return sql + u")";
}

bool QAdoX::CreateTable(const TableSpec& table) {
    if (!m_connection)
        return Fail(u"Cannot add new data record - ADO not initialised");
    if (!table.HasAnyColumns())
        return Fail(u"Cannot create table " + table.name + u": it has no columns");
    std::int64_t changed = 0;
    CString error;
    if (!m_connection->Execute(CreateStatement(table, m_connection->RealColumnType()), {}, changed,
                               error))
        return Fail(u"Cannot create table " + table.name + u" in database " + m_connection->Path() +
                    u"\n" + error);
    return true;
}

bool QAdoX::HasTable(const CString& name) {
    if (!m_connection)
        return false;
    QAdoRecords records;
    std::int64_t changed = 0;
    CString error;
    const QAdoField parameter{QAnyValue(name), nullptr};
    return m_connection->Run(m_connection->TableQuery(), std::span(&parameter, 1), &records,
                             changed, error) &&
           !records.rows.empty();
}

bool QAdoX::CreateMissingTables(std::span<const TableSpec> tables) {
    if (!m_connection)
        return Fail(u"Cannot add new data record - ADO not initialised");
    std::int64_t changed = 0;
    CString error;
    m_connection->Execute(u"BEGIN", {}, changed, error);
    for (const TableSpec& table : tables)
        if (!HasTable(table.name) && !CreateTable(table)) {
            m_connection->Execute(u"ROLLBACK", {}, changed, error);
            return false;
        }
    if (!m_connection->Execute(u"COMMIT", {}, changed, error))
        return Fail(u"Cannot create tables in database " + m_connection->Path() + u"\n" + error);
    return true;
}

} // namespace keel
