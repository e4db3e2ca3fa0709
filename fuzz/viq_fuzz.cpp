// Legacy question files from anywhere: the bytes are written as a .viq file and read into a set
// of groups, with values and names for the markers of the file. A malformed file may throw
// CFileException after its report; nothing else may come out. A set that was read must store the
// same bytes after a trip through the archive.
//
// A default value may be a formula, run as the line is read, so the formula guard watches every
// evaluator made on the way, with a budget of evaluations for each input.
#include "fuzz/formulaguard.h"
#include "fuzz/questionsarchive_fuzz.h"

#include "keel/document/errorlog.h"
#include "keel/questions/propdeftabgroupset.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <unistd.h>

namespace {

using namespace keel;
using keel::fuzz::CheckArchiveRoundTrip;
using keel::fuzz::GuardingFactory;

constexpr std::size_t c_maxInputBytes = 131072;
constexpr int c_maxEvaluationsPerInput = 2000;

std::filesystem::path& FilePath() {
    static std::filesystem::path path;
    return path;
}

void RemoveFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(FilePath().parent_path(), ignored);
}

QArray<CString> Texts(std::initializer_list<const char16_t*> texts) {
    QArray<CString> array;
    for (const char16_t* text : texts)
        array.Add(CString(text));
    return array;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("keel-viq-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    FilePath() = folder / "fuzz.viq";
    std::atexit(RemoveFolder);
    keel::fuzz::InstallGuard();
    TheErrorLog().SetFilename(CString::FromUtf8((folder / "errors.log").string()));
    SetNoEvalReportErrors(true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > c_maxInputBytes)
        return 0;
    std::ofstream(FilePath(), std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), std::streamsize(size));
    const CString path = CString::FromUtf8(FilePath().string());
    keel::fuzz::Guard().StartInput(c_maxEvaluationsPerInput);
    try {
        QPropDefTabGroupSet set;
        if (set.ReadFromFile(path, Texts({u"1", u"two words", u"~1~"}),
                             Texts({u"width", u"", u"finish"})))
            CheckArchiveRoundTrip(set);
    } catch (const CFileException&) {
    }
    QErrorLog::DiscardThePendingMessages();
    return 0;
}
