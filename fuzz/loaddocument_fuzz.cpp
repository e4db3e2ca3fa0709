// Opens arbitrary bytes as a document file, the whole way a document is opened: the bytes are
// written to a file and loaded from there. The first byte answers the question on a corrupt
// "Contents" stream (odd: keep the items read), the rest is the file. Only CFileException and
// CArchiveException may come out. A document that loaded is saved, loaded and saved again: the
// two saved files must be the same bytes.
#include "tests/support/docitems.h"
#include "tests/support/uihosts.h"

#include "keel/document/doc.h"
#include "keel/document/errorlog.h"
#include "keel/platform/schema.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace keel;

constexpr std::size_t c_maxInputBytes = 65536;
// Documents of schema 1 to 120 open; the program writes schema 1. Above 105 the page images are
// written and read.
constexpr int c_defaultSchema = 120;
constexpr int c_unsupportedSchema = 0;
// 14 November 2023 22:13:20 UTC: every save is made at this time, so that saves compare.
constexpr std::uint64_t c_saveTime =
    c_fileTimeTicksAtUnixEpoch + 1'700'000'000ull * c_fileTimeTicksPerSecond;

std::filesystem::path s_folder;

void Require(bool condition) {
    if (!condition)
        std::abort();
}

CString PathOf(const char* name) {
    return CString::FromUtf8((s_folder / name).string());
}

void WriteFile(const char* name, const std::uint8_t* data, std::size_t size) {
    std::ofstream file(s_folder / name, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    Require(file.good());
}

std::vector<char> ReadFile(const char* name) {
    std::ifstream file(s_folder / name, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(file), {});
}

void StillClock(QDoc& document) {
    document.SummaryInformation().SetClock([] { return FILETIME::FromTicks(c_saveTime); });
}

void CheckRoundTrip(QDoc& loaded) {
    loaded.SaveDocument(PathOf("first.kdoc"));
    QDoc again;
    StillClock(again);
    again.LoadDocument(PathOf("first.kdoc"));
    again.SaveDocument(PathOf("second.kdoc"));
    Require(ReadFile("first.kdoc") == ReadFile("second.kdoc"));
}

} // namespace

// libgsf loses a directory entry of some damaged files while it opens them. Leaks are still
// looked for everywhere else: the full stacks this needs let the suppression see libgsf's frames.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:gsf_infile_msole_new\n";
}
extern "C" const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    s_folder = std::filesystem::temp_directory_path() /
               ("keel-loaddocument-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(s_folder);
    TheErrorLog().SetFilename(PathOf("errors.log"));
    QSchema::SetDefaultSchema(c_defaultSchema);
    QSchema::SetUnsupportedSchema(c_unsupportedSchema);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > c_maxInputBytes)
        return 0;
    test::RecordingHost host(data[0] % 2 == 1 ? IDYES : IDNO);
    test::ScopedUIServices installed(host);
    WriteFile("input.kdoc", data + 1, size - 1);
    QDoc document;
    StillClock(document);
    try {
        document.LoadDocument(PathOf("input.kdoc"));
    } catch (const CArchiveException&) {
        QErrorLog::DiscardThePendingMessages();
        return 0;
    } catch (const CFileException&) {
        QErrorLog::DiscardThePendingMessages();
        return 0;
    }
    CheckRoundTrip(document);
    QErrorLog::DiscardThePendingMessages();
    return 0;
}
