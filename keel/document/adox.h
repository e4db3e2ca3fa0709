#pragma once

#include "keel/document/ado.h"
#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"
#include "keel/values/array.h"

#include <memory>

namespace keel {

// A column of a table to create: its name and the type of the values it holds.
struct ColumnAndType {
    CString name;
    QAnyValue::TYPE type = QAnyValue::TYPE_STRING;
};

// A table to create.
struct TableSpec {
    CString name;
    QArray<ColumnAndType> columns;

    bool HasAnyColumns() const { return !columns.IsEmpty(); }
};

// Makes the tables of a database. A column's type comes from QAnyValue::TypeToADOXEnum: text for
// strings, a boolean, an integer, a real; any other value is kept as its text.
class QAdoX {
public:
    explicit QAdoX(std::shared_ptr<QADOConnection> connection);

    // The declared type of a column for an ADOX type number; `realType` is the database's type of
    // reals.
    static CString ColumnType(int adoxType, const char16_t* realType = u"REAL");
    // The statement that creates the table.
    static CString CreateStatement(const TableSpec& table, const char16_t* realType = u"REAL");

    // Creates the table; a table of that name that is there already is a failure.
    bool CreateTable(const TableSpec& table);
    // Creates each table that is not there yet, all or none.
    bool CreateMissingTables(std::span<const TableSpec> tables);
    bool HasTable(const CString& name);

    CString GetLastError() const { return m_lastError; }

private:
    bool Fail(const CString& message);

    std::shared_ptr<QADOConnection> m_connection;
    CString m_lastError;
};

} // namespace keel
