#include "keel/document/translate.h"
#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/formula/formuladatabase.h"
#include "keel/formula/stringtovalue.h"
#include "keel/system/pathop.h"

#include <cstdint>
#include <limits>
#include <span>

namespace keel {

int QDatabaseRecords::FieldIndex(const CString& name) const {
    for (std::size_t i = 0; i < fieldNames.size(); ++i)
        if (fieldNames[i].CompareNoCase(name) == 0)
            return static_cast<int>(i);
    return -1;
}

namespace {

using namespace builtin;

// One call of a database function: the database it names and the statement it runs, once both
// arguments were found good. Each failure is the call's error value; the formula goes on.
struct DatabaseCall {
    QBuiltinCall& call;
    CString path;
    CString sql;
};

// The table folder of the application, ending in "/"; empty without one.
CString TableFolder() {
    const QEvaluatorFactory* factory = GetEvaluatorFactory();
    const CString folder = factory ? factory->FolderForConstant(QConstantFolder::Table) : CString();
    return folder.IsEmpty() ? folder : folder + u"/";
}

// A name without a folder lives in the table folder; any extension but ".mdb" and ".accdb"
// becomes ".mdb". A connection string is taken as it stands.
CString DatabasePath(const CString& name) {
    if (DatabaseNameKind(name) != QDatabaseNameKind::File)
        return name;
    CString path = QPathOp::NormalForm(name);
    if (!QPathOp::HasFolder(path) && !QPathOp::HasRoot(path))
        path = QPathOp::FolderPlusPath(TableFolder(), path);
    if (!QPathOp::MatchDotExt(path, u".mdb") && !QPathOp::MatchDotExt(path, u".accdb"))
        path = QPathOp::HasDotExt(path) ? QPathOp::ChangeDotExt(path, u".mdb")
                                        : QPathOp::PathPlusDotExt(path, u".mdb");
    return path;
}

// The result, traced as the table functions trace theirs.
bool Give(QBuiltinCall& call, const QAnyValue& value, bool& succeeded) {
    call.result = value;
    TraceCall(call, value);
    succeeded = true;
    return true;
}

bool GiveError(QBuiltinCall& call, const CString& message, bool& succeeded) {
    return Give(call, ErrorValue(message), succeeded);
}

// An argument that is an error or N/A gives the error `word` followed by its message.
bool BadArgument(const QAnyValue& argument, const char16_t* word, CString& message) {
    if (!argument.IsErrorOrNA())
        return false;
    QAnyValue copy(argument);
    message = CString(word) + copy.MakeError();
    return true;
}

// Reads the database and statement arguments; false when the call already has its result.
bool Begin(DatabaseCall& db, bool& succeeded) {
    QBuiltinCall& call = db.call;
    // What a database holds can change at any time, so no value read from one is kept.
    call.evaluator.RaiseCacheState(QCS_NotCacheable);
    CString message;
    if (BadArgument(call.args[0], u"error bad database path:", message) ||
        BadArgument(call.args[1], u"error in sql string:", message)) {
        GiveError(call, message, succeeded);
        return false;
    }
    const CString name = Text(call.args[0]);
    if (name.IsEmpty()) {
        GiveError(call, u"error bad database path:", succeeded);
        return false;
    }
    db.path = DatabasePath(name);
    db.sql = Text(call.args[1]);
    return true;
}

// The parameters from `first` on; false with the call's result when one of them is an error.
bool Parameters(DatabaseCall& db, std::size_t first, bool& succeeded) {
    CString message;
    for (std::size_t i = first; i < db.call.args.size(); ++i)
        if (BadArgument(db.call.args[i], u"error in sql param:", message)) {
            GiveError(db.call, message, succeeded);
            return false;
        }
    return true;
}

// The application's database access; none without an application that has it.
QFormulaDatabase* FormulaDatabase() {
    QEvaluatorFactory* factory = GetEvaluatorFactory();
    return factory ? factory->Database() : nullptr;
}

CString ConnectionFailure(const DatabaseCall& db, const CString& reason) {
    CString message = u"error can't make ADO connection to " + DatabaseDisplayName(db.path);
    if (!reason.IsEmpty())
        message += u"\n" + reason;
    return message;
}

CString InDatabase(const DatabaseCall& db) {
    return u"[" + db.sql + u"] in database " + DatabaseDisplayName(db.path);
}

// Runs the query; false with the call's result when it failed.
bool Query(DatabaseCall& db, std::size_t firstParameter, QDatabaseRecords& records,
           bool& succeeded) {
    if (!Parameters(db, firstParameter, succeeded))
        return false;
    QFormulaDatabase* database = FormulaDatabase();
    if (!database) {
        GiveError(db.call, ConnectionFailure(db, u"no database access in this program"), succeeded);
        return false;
    }
    const auto parameters = std::span(db.call.args).subspan(firstParameter);
    const QDatabaseFailure failure = database->Query(db.path, db.sql, parameters, records);
    if (!failure)
        return true;
    if (failure.kind == QDatabaseFailure::Kind::Connection)
        GiveError(db.call, ConnectionFailure(db, failure.message), succeeded);
    else
        GiveError(db.call, u"Cannot open query " + InDatabase(db) + u"\n" + failure.message,
                  succeeded);
    return false;
}

CString NoRecord(const DatabaseCall& db) {
    return u"No record found for query " + InDatabase(db);
}

// The field named by the argument at `index`; false with the call's result when there is none.
bool Field(DatabaseCall& db, std::size_t index, const QDatabaseRecords& records, int& field,
           bool& succeeded) {
    CString message;
    if (BadArgument(db.call.args[index], u"error in sql fieldname:", message)) {
        GiveError(db.call, message, succeeded);
        return false;
    }
    const CString name = Text(db.call.args[index]);
    field = records.FieldIndex(name);
    if (field >= 0)
        return true;
    GiveError(db.call, u"No field [" + name + u"] in query " + InDatabase(db), succeeded);
    return false;
}

// The values as a list ("a|b|c"), or as an array.
QAnyValue List(const std::vector<QAnyValue>& values, bool asArray) {
    if (asArray) {
        QArray<QAnyValue> elements;
        for (const QAnyValue& value : values)
            elements.Add(value);
        return QAnyValue(elements);
    }
    CString text;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i > 0)
            text += u'|';
        text += ValueToString(values[i]);
    }
    return QAnyValue(text);
}

// dblookup(db, sql, field, parameter...): the field of the first record.
bool DbLookup(QBuiltinCall& call, bool& succeeded) {
    DatabaseCall db{call, {}, {}};
    QDatabaseRecords records;
    int field = -1;
    if (!Begin(db, succeeded) || !Query(db, 3, records, succeeded) ||
        !Field(db, 2, records, field, succeeded))
        return true;
    if (records.rows.empty())
        return GiveError(call, NoRecord(db), succeeded);
    return Give(call, records.rows.front()[static_cast<std::size_t>(field)], succeeded);
}

// dblookuprow(db, sql, key): every field of the first record whose first field is the key.
bool ServeRow(QBuiltinCall& call, bool& succeeded, bool asArray) {
    DatabaseCall db{call, {}, {}};
    QDatabaseRecords records;
    if (!Begin(db, succeeded))
        return true;
    if (call.args[2].IsErrorOrNA())
        return Give(call, call.args[2], succeeded);
    if (!Query(db, 3, records, succeeded))
        return true;
    for (const std::vector<QAnyValue>& row : records.rows)
        if (!row.empty() && QAnyValue::EquivalentNoCase(row.front(), call.args[2]))
            return Give(call, List(row, asArray), succeeded);
    return GiveError(call, NoRecord(db), succeeded);
}

// dblookupcol(db, sql, field): the field of every record.
bool ServeCol(QBuiltinCall& call, bool& succeeded, bool asArray) {
    DatabaseCall db{call, {}, {}};
    QDatabaseRecords records;
    int field = -1;
    if (!Begin(db, succeeded) || !Query(db, 3, records, succeeded) ||
        !Field(db, 2, records, field, succeeded))
        return true;
    std::vector<QAnyValue> column;
    column.reserve(records.rows.size());
    for (const std::vector<QAnyValue>& row : records.rows)
        column.push_back(row[static_cast<std::size_t>(field)]);
    return Give(call, List(column, asArray), succeeded);
}

bool DbLookupRow(QBuiltinCall& call, bool& succeeded) {
    return ServeRow(call, succeeded, false);
}

bool DbLookupRowValues(QBuiltinCall& call, bool& succeeded) {
    return ServeRow(call, succeeded, true);
}

bool DbLookupCol(QBuiltinCall& call, bool& succeeded) {
    return ServeCol(call, succeeded, false);
}

bool DbLookupColValues(QBuiltinCall& call, bool& succeeded) {
    return ServeCol(call, succeeded, true);
}

// dblookupcollabels(db, sql): the names of the fields.
bool DbLookupColLabels(QBuiltinCall& call, bool& succeeded) {
    DatabaseCall db{call, {}, {}};
    QDatabaseRecords records;
    if (!Begin(db, succeeded) || !Query(db, 2, records, succeeded))
        return true;
    std::vector<QAnyValue> names(records.fieldNames.begin(), records.fieldNames.end());
    return Give(call, List(names, false), succeeded);
}

// dbexecute(db, sql, parameter...): the count of records changed.
bool DbExecute(QBuiltinCall& call, bool& succeeded) {
    DatabaseCall db{call, {}, {}};
    if (!Begin(db, succeeded) || !Parameters(db, 2, succeeded))
        return true;
    QFormulaDatabase* database = FormulaDatabase();
    if (!database)
        return GiveError(call, ConnectionFailure(db, u"no database access in this program"),
                         succeeded);
    std::int64_t changed = 0;
    const QDatabaseFailure failure =
        database->Execute(db.path, db.sql, std::span(call.args).subspan(2), changed);
    if (failure.kind == QDatabaseFailure::Kind::Connection)
        return GiveError(call, ConnectionFailure(db, failure.message), succeeded);
    if (failure) {
        static const QTString text(
            u"DBExecute failed in ADO when trying to execute the supplied query:\n\n%s\n\n%s",
            u"Message box (query,error)");
        return GiveError(call, CString::Formatted(text, db.sql, failure.message), succeeded);
    }
    const bool fitsInt = changed <= std::numeric_limits<int>::max();
    return Give(call,
                fitsInt ? QAnyValue(static_cast<int>(changed))
                        : QAnyValue(static_cast<double>(changed)),
                succeeded);
}

constexpr QBuiltinFunction c_functions[] = {
    {u"dblookup", 3, c_builtinAnyCount, u"db, sql, field, parameter...", false, DbLookup},
    {u"dblookuprow", 3, 3, u"db, sql, key", false, DbLookupRow},
    {u"dblookupcol", 3, 3, u"db, sql, field", false, DbLookupCol},
    {u"dblookuprowvalues", 3, 3, u"db, sql, key", false, DbLookupRowValues},
    {u"dblookupcolvalues", 3, 3, u"db, sql, field", false, DbLookupColValues},
    {u"dblookupcollabels", 2, 2, u"db, sql", false, DbLookupColLabels},
    {u"dbexecute", 2, c_builtinAnyCount, u"db, sql, parameter...", false, DbExecute},
};

} // namespace

const QBuiltinGroup& DatabaseFunctions() {
    static const QBuiltinGroup group{u"Databases", c_functions};
    return group;
}

} // namespace keel
