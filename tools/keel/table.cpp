#include "tools/keel/commands.h"

#include "keel/document/errorlog.h"
#include "keel/document/winapp.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/tableediting.h"

#include <cstdio>
#include <filesystem>
#include <string>

namespace keel::tool {

namespace {

constexpr std::string_view c_tableUsage =
    "table takes: show FILE | check FILE | lookup FILE ROW COL [--exact] | convert FOLDER";

std::string U8(const CString& text) {
    return text.ToUtf8();
}

CString AbsolutePath(std::string_view path) {
    return CString::FromUtf8(std::filesystem::absolute(std::filesystem::path(path)).string());
}

// The table's own message: its last error without the name the table puts ahead of it.
std::string LastMessage(const QLookupTable& table) {
    const CString error = table.LastError();
    const int newline = error.Find(u'\n');
    return U8(newline < 0 ? error : error.Mid(newline + 1));
}

bool Open(const std::string_view file, QLookupTable& table) {
    if (table.SetName(AbsolutePath(file)))
        return true;
    std::fprintf(stderr, "keel: cannot read the table '%.*s': %s\n", static_cast<int>(file.size()),
                 file.data(), LastMessage(table).c_str());
    return false;
}

std::string TypeName(QAnyValue::TYPE type) {
    return U8(QAnyValue::TypeToString(type));
}

// The display text; for an error, its message on one line.
std::string Shown(const QAnyValue& value) {
    CString message;
    if (value.IsErrorAndGetMessage(message) && !message.IsEmpty()) {
        message.Replace(u"\n", u" ");
        return U8(message);
    }
    return U8(QAnyValue(value).MakeCString());
}

void PrintHeadings(QLookupTableData& data) {
    QAnyValue::TYPE type{};
    std::printf("%s", U8(data.TLDesc()).c_str());
    for (int col = 0; col < data.ColCount(); ++col) {
        QAnyValue label;
        data.ColLabel(col, label, nullptr, nullptr);
        std::printf("\t%s", Shown(label).c_str());
    }
    std::printf("\n%s\\%s", TypeName(data.RowLabelType()).c_str(),
                TypeName(data.ColLabelType()).c_str());
    for (int col = 0; col < data.ColCount(); ++col) {
        data.ColType(col, type);
        std::printf("\t%s", TypeName(type).c_str());
    }
    std::printf("\n");
}

// Rows as the file holds them, cells as they show; formula cells as their text.
bool PrintRows(QLookupTableData& data) {
    for (int row = 0; row < data.RowCount(); ++row) {
        QAnyValue label;
        data.RowLabel(row, label, nullptr, nullptr);
        std::printf("%s", Shown(label).c_str());
        for (int col = 0; col < data.ColCount(); ++col) {
            QAnyValue cell;
            if (!data.LookupByIndex(row, col, cell, nullptr, nullptr))
                return false;
            std::printf("\t%s", Shown(cell).c_str());
        }
        std::printf("\n");
    }
    return true;
}

int Show(std::string_view file) {
    QLookupTable table;
    if (!Open(file, table))
        return 1;
    QLookupTableData& data = *table.Data();
    std::printf("%s\n%d rows, %d columns%s\n", U8(data.Comment()).c_str(), data.RowCount(),
                data.ColCount(), data.IsSorted() ? ", rows sorted" : "");
    PrintHeadings(data);
    if (PrintRows(data))
        return 0;
    std::fprintf(stderr, "keel: %s\n", LastMessage(table).c_str());
    return 1;
}

// Every message of the reader is reported as it happens and shown when the command ends; every
// row is read, so a row that is read only when touched is checked too.
int Check(std::string_view file) {
    QLookupTable table;
    if (!Open(file, table))
        return 1;
    if (!table->LoadRowsIfNecessary()) {
        std::fprintf(stderr, "keel: %s\n", LastMessage(table).c_str());
        return 1;
    }
    int rows = 0;
    int cols = 0;
    table.RowCount(rows);
    table.ColCount(cols);
    std::printf("%d rows, %d columns: readable\n", rows, cols);
    return 0;
}

// A key as a person types it: a formula when it is one ("7", "3 ft", "$2"), else the text.
QAnyValue Key(std::string_view text) {
    QAnyValue value;
    CString message;
    if (!EvaluateQuietly(text, nullptr, false, value, message) || value.IsErrorOrNA())
        value = QAnyValue(CString::FromUtf8(text));
    return value;
}

int Lookup(std::span<const std::string_view> args) {
    bool exact = false;
    std::vector<std::string_view> words;
    for (const std::string_view arg : args) {
        if (arg == "--exact")
            exact = true;
        else
            words.push_back(arg);
    }
    if (words.size() != 3)
        return UsageError(c_tableUsage);
    PrepareEvaluation();
    QLookupTable table;
    if (!Open(words[0], table))
        return 1;
    QAnyValue cell;
    const QAnyValue row = Key(words[1]);
    const QAnyValue col = Key(words[2]);
    const bool found = exact ? table->LookupExact(row, col, cell, nullptr, nullptr)
                             : table->Lookup(row, col, cell, nullptr, nullptr);
    if (!found) {
        std::fprintf(stderr, "keel: no cell at row %s, column %s\n", Shown(row).c_str(),
                     Shown(col).c_str());
        return 1;
    }
    std::printf("%s\t%s\n", U8(cell.TypeName()).c_str(), Shown(cell).c_str());
    return 0;
}

int Convert(std::string_view folder) {
    const QBatchConversion result =
        BatchConvertTables(AbsolutePath(folder),
                           [](const CString& status) { std::printf("%s\n", U8(status).c_str()); });
    return result.failed > 0 ? 1 : 0;
}

} // namespace

int RunTable(std::span<const std::string_view> args) {
    if (args.size() == 2 && args[0] == "show")
        return Show(args[1]);
    if (args.size() == 2 && args[0] == "check")
        return Check(args[1]);
    if (args.size() >= 1 && args[0] == "lookup")
        return Lookup(args.subspan(1));
    if (args.size() == 2 && args[0] == "convert")
        return Convert(args[1]);
    return UsageError(c_tableUsage);
}

} // namespace keel::tool
