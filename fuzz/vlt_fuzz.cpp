// Table files from anywhere: the bytes are written as a .vlt file of a private table folder and
// read through a table handle, plain, with the counts repaired and with the rows sorted; every
// label and cell of a table that opens is then read, which parses the rows held as text.
//
// The cells of a table are formulas, run as the file is read, so the formula guard watches
// every evaluator made on the way, with a budget of evaluations for each input. The counts of the
// second line decide how much is allocated before anything else is read, so an input that claims
// large counts is left out.
#include "fuzz/formulaguard.h"

#include "keel/document/errorlog.h"
#include "keel/tables/lookuptable.h"

#include <cstddef>
#include <cstdint>
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
// A repair can raise a count by what the rest of the file holds, so this bound and the input
// size together keep a table within a few million cells.
constexpr long c_maxClaimedCount = 256;
constexpr int c_maxEvaluationsPerInput = 2000;

GuardingFactory& Factory() {
    static GuardingFactory factory;
    return factory;
}

std::filesystem::path& TablePath() {
    static std::filesystem::path path;
    return path;
}

// The number at the start of a count token, as the reader takes it, its sign dropped.
long CountAtStart(std::string_view token) {
    std::size_t i = 0;
    while (i < token.size() && (token[i] == ' ' || (token[i] >= '\t' && token[i] <= '\r')))
        ++i;
    if (i < token.size() && (token[i] == '+' || token[i] == '-'))
        ++i;
    long count = 0;
    for (; i < token.size() && token[i] >= '0' && token[i] <= '9'; ++i)
        if ((count = count * 10 + (token[i] - '0')) > c_maxClaimedCount)
            return count;
    return count;
}

bool ClaimsSmallCounts(std::string_view bytes) {
    const std::size_t firstEnd = bytes.find('\n');
    if (firstEnd == std::string_view::npos)
        return true;
    std::string_view line = bytes.substr(firstEnd + 1);
    line = line.substr(0, line.find('\n'));
    const std::size_t tab = line.find('\t');
    const std::string_view second = tab == std::string_view::npos ? "" : line.substr(tab + 1);
    return CountAtStart(line.substr(0, tab)) <= c_maxClaimedCount &&
           CountAtStart(second) <= c_maxClaimedCount;
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

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("keel-vlt-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    TablePath() = folder / "fuzz.vlt";
    std::atexit(RemoveTableFolder);
    Factory().SetTableFolder(CString::FromUtf8(folder.string()));
    SetEvaluatorFactory(&Factory());
    QEvaluator::InstallAsFormulaHook();
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
    if (!ClaimsSmallCounts(bytes))
        return 0;
    std::ofstream(TablePath(), std::ios::binary | std::ios::trunc)
        .write(bytes.data(), std::streamsize(size));
    Factory().StartInput(c_maxEvaluationsPerInput);
    Open(false, false);
    Open(false, true);
    Open(true, false);
    QErrorLog::DiscardThePendingMessages();
    return 0;
}
