// Table files from anywhere: the bytes are written as a .vlt file of a private table folder and
// read through a table handle, plain, with the counts repaired and with the rows sorted; every
// label and cell of a table that opens is then read, which parses the rows held as text.
//
// Every token of every line, decoded as the reader decodes the file, is also read both ways: a
// token that reads directly as a plain cell must give what the formula gives, or the harness
// aborts. So does a difference between the lines that the row reader gives and those of the
// file's own ReadString.
//
// The cells of a table are formulas, run as the file is read, so the formula guard watches
// every evaluator made on the way, with a budget of evaluations for each input. Counts that claim
// more than the file can hold are brought down by the reader before it allocates, so inputs that
// claim huge counts are kept.
#include "fuzz/formulaguard.h"
#include "tests/support/plaincells.h"

#include "keel/document/errorlog.h"
#include "keel/platform/stdiofileex.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/rowlines.h"
#include "keel/tables/tabtokens.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace {

using namespace keel;
using keel::fuzz::GuardingFactory;

constexpr std::size_t c_maxInputBytes = 2048;
constexpr int c_maxEvaluationsPerInput = 2000;

std::filesystem::path& TablePath() {
    static std::filesystem::path path;
    return path;
}

void ReadEverything(QLookupTable& table) {
    QLookupTableData* data = table.Data();
    if (!data || !table.IsValid())
        return;
    QAnyValue value;
    for (int col = 0; col < data->ColCount(); ++col)
        data->ColLabel(col, value, nullptr, nullptr);
    for (int row = 0; row < data->RowCount(); ++row) {
        data->RowLabel(row, value, nullptr, nullptr);
        for (int col = 0; col < data->ColCount(); ++col)
            data->LookupByIndex(row, col, value, nullptr, nullptr);
    }
    data->LoadRowsIfNecessary();
}

void RemoveTableFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(TablePath().parent_path(), ignored);
}

void Open(bool sortRows, bool repairCounts) {
    {
        QLookupTable table;
        table.SetName(CString::FromUtf8(TablePath().string()), false, sortRows, repairCounts);
        ReadEverything(table);
    }
    QLookupTableData::CleanupCache();
}

[[noreturn]] void Fail(const char* what, const std::string& detail) {
    std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
    std::abort();
}

// A plain text is a literal, which cannot run away, so its formula runs without the guard; the
// guard would empty a literal that merely names a loop ("'do'").
void CheckPlainCells() {
    CStdioFileEx file;
    if (!file.Open(CString::FromUtf8(TablePath().string()), CFile::modeRead | CFile::typeText))
        return;
    SetEvaluatorFactory(nullptr);
    CString line;
    while (file.ReadString(line)) {
        const std::u16string_view text = line.View();
        for (std::size_t at = 0; at < text.size();) {
            const test::CellReading reading =
                test::ReadCellBothWays(CString(TakeTabDelimToken(text, at)));
            if (!reading.difference.empty())
                Fail("a plain cell read differently", reading.difference);
        }
    }
    SetEvaluatorFactory(&keel::fuzz::Guard());
}

void CheckRowLines() {
    CStdioFileEx byFile;
    CStdioFileEx byReader;
    const CString path = CString::FromUtf8(TablePath().string());
    if (!byFile.Open(path, CFile::modeRead | CFile::typeText) ||
        !byReader.Open(path, CFile::modeRead | CFile::typeText))
        return;
    CString expected;
    CString line;
    // The row reader takes over after the lines before the rows, as the table reader does.
    for (int i = 0; i < 2; ++i)
        if (byFile.ReadString(expected) != byReader.ReadString(line) || expected != line)
            Fail("the file read differently", line.ToUtf8());
    QRowLineReader reader(byReader);
    for (;;) {
        const bool more = byFile.ReadString(expected);
        if (more != reader.ReadLine(line) || (more && line != expected))
            Fail("a row line read differently", expected.ToUtf8() + " / " + line.ToUtf8());
        if (!more)
            return;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("keel-vlt-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    TablePath() = folder / "fuzz.vlt";
    std::atexit(RemoveTableFolder);
    keel::fuzz::Guard().SetTableFolder(CString::FromUtf8(folder.string()));
    keel::fuzz::InstallGuard();
    TheErrorLog().SetFilename(CString::FromUtf8((folder / "errors.log").string()));
    SetNoEvalReportErrors(true);
    // Small enough that most inputs also take the path of rows parsed on demand.
    QLookupTableDataStatics::c_TableCacheOverSize = 3;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > c_maxInputBytes)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    std::ofstream(TablePath(), std::ios::binary | std::ios::trunc)
        .write(bytes.data(), std::streamsize(size));
    CheckPlainCells();
    CheckRowLines();
    keel::fuzz::Guard().StartInput(c_maxEvaluationsPerInput);
    Open(false, false);
    Open(false, true);
    Open(true, false);
    QErrorLog::DiscardThePendingMessages();
    return 0;
}
