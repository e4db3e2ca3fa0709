#include "tools/keel/commands.h"

#include "keel/document/errorlog.h"
#include "keel/document/winapp.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/tableediting.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

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
CString LastMessage(const QLookupTable& table) {
    const CString error = table.LastError();
    return error.Mid(error.Find(u'\n') + 1);
}

// Why a file could not be opened, as far as the file itself tells; empty when it does not.
std::string WhyNotOpened(const CString& path, bool forWriting) {
    const std::string file = path.ToUtf8();
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0)
        return errno == ENOENT ? "no such file" : std::strerror(errno);
    if (S_ISDIR(status.st_mode))
        return "it is a folder";
    if (::access(file.c_str(), forWriting ? R_OK | W_OK : R_OK) != 0)
        return forWriting ? "it is read-only" : "it cannot be read";
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return std::strerror(errno);
    const bool locked = ::flock(descriptor, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(descriptor);
    return locked ? "it is locked by another process" : std::string();
}

// A table's message with its reason, when the message is that the file could not be opened.
std::string WithReason(const CString& message, const CString& path) {
    const bool forWriting = message.Find(u"for writing") >= 0;
    if (message.Find(u"Could not open") < 0 && message.Find(u"Could not keep") < 0)
        return U8(message);
    const std::string reason = WhyNotOpened(path, forWriting);
    return reason.empty() ? U8(message) : U8(message) + " (" + reason + ")";
}

// A message of several lines on one line: each line break, with the indent after it, a space.
std::string OneLine(CString message) {
    message.Replace(u"\n\t", u" ");
    message.Replace(u"\n", u" ");
    message.Replace(u"\t", u" ");
    return U8(message);
}

// The messages that the table and its formulas reported on the way, each once and on one line,
// instead of the boxes that the program shows when it ends; `shownAlready` is left out.
void PrintReportedMessages(const CString& shownAlready = CString()) {
    QErrorLog& log = TheErrorLog();
    for (int i = 0; i < log.GetSize(); ++i) {
        CString message = log.Message(i);
        if (message == shownAlready)
            continue;
        const int newline = message.Find(u'\n');
        if (log.ErrorType(i)->Description() == u"Lookup Table" && newline >= 0)
            message = message.Left(newline) + u": " + message.Mid(newline + 1);
        std::fprintf(stderr, "keel: %s\n", OneLine(message).c_str());
    }
    QErrorLog::DiscardThePendingMessages();
}

bool Open(const std::string_view file, QLookupTable& table) {
    const CString path = AbsolutePath(file);
    if (table.SetName(path))
        return true;
    PrintReportedMessages(table.LastError());
    std::fprintf(
        stderr, "keel: cannot read the table '%.*s': %s\n", static_cast<int>(file.size()),
        file.data(),
        WithReason(LastMessage(table), table.Name().IsEmpty() ? path : table.Name()).c_str());
    return false;
}

std::string TypeName(QAnyValue::TYPE type) {
    return U8(QAnyValue::TypeToString(type));
}

// The display text, tabs escaped so that they cannot pass for the separators of the output; for
// an error, its message on one line.
std::string Shown(const QAnyValue& value) {
    CString text;
    if (!value.IsErrorAndGetMessage(text) || text.IsEmpty())
        text = QAnyValue(value).MakeCString();
    text.Replace(u"\n\t", u" ");
    text.Replace(u"\n", u" ");
    text.Replace(u"\t", u"\\t");
    return U8(text);
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
    const bool printed = PrintRows(data);
    PrintReportedMessages(printed ? CString() : table.LastError());
    if (printed)
        return 0;
    std::fprintf(stderr, "keel: %s\n", U8(LastMessage(table)).c_str());
    return 1;
}

// Every message of the reader is reported as it happens and shown when the command ends; every
// row is read, so a row that is read only when touched is checked too.
int Check(std::string_view file) {
    QLookupTable table;
    if (!Open(file, table))
        return 1;
    const bool loaded = table.LoadRowsIfNecessary();
    PrintReportedMessages(loaded ? CString() : table.LastError());
    if (!loaded) {
        std::fprintf(stderr, "keel: %s\n", U8(LastMessage(table)).c_str());
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
    const bool found = exact ? table.LookupExact(row, col, cell, nullptr, nullptr)
                             : table.Lookup(row, col, cell, nullptr, nullptr);
    PrintReportedMessages();
    if (!found) {
        std::fprintf(stderr, "keel: no cell at row %s, column %s\n", Shown(row).c_str(),
                     Shown(col).c_str());
        return 1;
    }
    std::printf("%s\t%s\n", U8(cell.TypeName()).c_str(), Shown(cell).c_str());
    return 0;
}

int Convert(std::string_view folder) {
    std::error_code error;
    if (!std::filesystem::is_directory(std::filesystem::path(folder), error)) {
        return UsageError("table convert takes a folder; '" + std::string(folder) + "' is none");
    }
    // A status of several lines (the closing count of failures) is printed line by line.
    const QBatchConversion result =
        BatchConvertTables(AbsolutePath(folder),
                           [](const CString& status) { std::printf("%s\n", U8(status).c_str()); });
    // The failures were each logged; here each is told once, with its reason.
    QErrorLog::DiscardThePendingMessages();
    for (const QConversionFailure& failure : result.failures)
        std::fprintf(stderr, "keel: not converted: %s: %s\n", U8(failure.path).c_str(),
                     OneLine(CString::FromUtf8(WithReason(failure.reason, failure.path))).c_str());
    if (result.failed > 0)
        std::fprintf(stderr, "keel: error log: %s\n", U8(TheErrorLog().FilenameFullPath()).c_str());
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
