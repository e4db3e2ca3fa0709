// Question sets from archives of anywhere: the first byte picks the schema the archive was
// written at, the rest is what a set loads. Only CArchiveException may come out; a set that was
// loaded must store the same bytes after a trip at the current schema.
#include "fuzz/questionsarchive_fuzz.h"

#include "keel/document/errorlog.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

using namespace keel;

constexpr std::size_t c_maxInputBytes = 131072;
constexpr unsigned c_oldestSchema = 30;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const std::filesystem::path log =
        std::filesystem::temp_directory_path() /
        ("keel-questionsarchive-fuzz-" + std::to_string(::getpid()) + ".log");
    TheErrorLog().SetFilename(CString::FromUtf8(log.string()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > c_maxInputBytes)
        return 0;
    const unsigned span = keel::fuzz::c_currentQuestionSchema - c_oldestSchema + 1;
    CMemFile file(data + 1, size - 1);
    CArchive archive(&file, CArchive::load);
    archive.SetObjectSchema(c_oldestSchema + data[0] % span);
    QPropDefTabGroupSet set;
    try {
        set.Serialize(archive);
    } catch (const CArchiveException&) {
        QErrorLog::DiscardThePendingMessages();
        return 0;
    }
    keel::fuzz::CheckArchiveRoundTrip(set);
    QErrorLog::DiscardThePendingMessages();
    return 0;
}
