#include "tools/keel/commands.h"
#include "tools/keel/output.h"

#include "keel/document/ado.h"

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace keel::tool {

namespace {

constexpr std::string_view c_dbUsage = "db takes: query DB SQL [--json] | exec DB SQL";

// A blob as SQLite writes one in a statement: X'0A1B'.
std::string BlobText(const QBlob& bytes) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text = "X'";
    for (std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text + "'";
}

std::string PlainField(const QAdo& records, int index) {
    const CString name = records.GetFieldName(index);
    const QBlob blob = records.GetBlob(name);
    if (!blob.empty())
        return BlobText(blob);
    return records.GetField(index).AsStringOrFormula().ToUtf8();
}

void AppendJsonField(std::string& out, const QAdo& records, int index) {
    const CString name = records.GetFieldName(index);
    const QBlob blob = records.GetBlob(name);
    QAnyValue value = records.GetField(index);
    if (!blob.empty()) {
        AppendJsonString(out, BlobText(blob));
        return;
    }
    switch (value.Type()) {
    case QAnyValue::TYPE_EMPTY:
        out += "null";
        return;
    case QAnyValue::TYPE_BOOL:
        out += value.MakeBool() ? "true" : "false";
        return;
    case QAnyValue::TYPE_INT:
        out += std::to_string(value.MakeInt());
        return;
    case QAnyValue::TYPE_DOUBLE: {
        const double number = value.MakeDouble();
        if (std::isfinite(number)) {
            char text[40];
            std::snprintf(text, sizeof text, "%.17g", number);
            out += text;
            return;
        }
        break;
    }
    default:
        break;
    }
    AppendJsonString(out, value.AsStringOrFormula().ToUtf8());
}

// Prints a line of field names, then a line for each record, the fields parted by tabs; with
// `json` one object a record.
void PrintRecords(QAdo& records, bool json) {
    if (!json) {
        std::string names;
        for (int i = 0; i < records.GetFieldCount(); ++i)
            names += (i ? "\t" : "") + records.GetFieldName(i).ToUtf8();
        std::printf("%s\n", names.c_str());
    }
    for (; !records.IsEOF(); records.MoveNext()) {
        std::string line = json ? "{" : "";
        for (int i = 0; i < records.GetFieldCount(); ++i) {
            if (i > 0)
                line += json ? ", " : "\t";
            if (json) {
                AppendJsonString(line, records.GetFieldName(i).ToUtf8());
                line += ": ";
                AppendJsonField(line, records, i);
            } else {
                line += PlainField(records, i);
            }
        }
        if (json)
            line += "}";
        std::printf("%s\n", line.c_str());
    }
}

int Failed(const QAdo& ado) {
    std::fflush(stdout);
    std::fprintf(stderr, "keel db: %s\n", ado.GetLastError().ToUtf8().c_str());
    return 1;
}

int RunQuery(std::span<const std::string_view> args) {
    bool json = false;
    std::vector<std::string_view> operands;
    for (std::string_view arg : args) {
        if (arg == "--json")
            json = true;
        else
            operands.push_back(arg);
    }
    if (operands.size() != 2)
        return UsageError("db", "query takes a database and one statement: query DB SQL [--json]");
    QAdo ado;
    if (!ado.SetConnection(CString::FromUtf8(operands[0]), false) ||
        !ado.OpenQuery(CString::FromUtf8(operands[1])))
        return Failed(ado);
    PrintRecords(ado, json);
    return 0;
}

int RunExec(std::span<const std::string_view> args) {
    if (args.size() != 2)
        return UsageError("db", "exec takes a database and its statements: exec DB SQL");
    QAdo ado;
    if (!ado.SetConnection(CString::FromUtf8(args[0])) || !ado.Execute(CString::FromUtf8(args[1])))
        return Failed(ado);
    std::printf("%lld records changed\n", static_cast<long long>(ado.ChangedCount()));
    return 0;
}

} // namespace

int RunDb(std::span<const std::string_view> args) {
    if (!args.empty() && args.front() == "query")
        return RunQuery(args.subspan(1));
    if (!args.empty() && args.front() == "exec")
        return RunExec(args.subspan(1));
    return UsageError(c_dbUsage);
}

} // namespace keel::tool
