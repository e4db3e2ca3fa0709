// The page header of a drawing from anywhere: the first byte picks the schema the document header
// before it set (odd: lengths as doubles, even: the older whole-number form), the rest is the
// header. Only CArchiveException may come out; a header that loaded must store the same bytes
// after a second trip.
#include "keel/document/errorlog.h"
#include "keel/geometry/pagedoc.h"
#include "keel/platform/archive.h"
#include "keel/platform/schema.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace keel;

constexpr std::size_t c_maxInputBytes = 4096;
constexpr unsigned c_lengthsAsDoubles = 18;
constexpr unsigned c_lengthsAsWholeNumbers = 17;

void Require(bool condition) {
    if (!condition)
        std::abort();
}

std::vector<std::uint8_t> Store(QPageDoc& doc) {
    CMemFile file;
    CArchive archive(&file, CArchive::store);
    doc.SerializeHeader(archive);
    archive.Close();
    return file.Bytes();
}

void Load(QPageDoc& doc, const std::uint8_t* data, std::size_t size, unsigned schema) {
    CMemFile file(data, size);
    CArchive archive(&file, CArchive::load);
    archive.SetObjectSchema(schema);
    doc.SerializeHeader(archive);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const std::filesystem::path log =
        std::filesystem::temp_directory_path() /
        ("keel-pageheader-fuzz-" + std::to_string(::getpid()) + ".log");
    TheErrorLog().SetFilename(CString::FromUtf8(log.string()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > c_maxInputBytes)
        return 0;
    const unsigned schema = data[0] % 2 == 1 ? c_lengthsAsDoubles : c_lengthsAsWholeNumbers;
    QPageDoc doc;
    try {
        Load(doc, data + 1, size - 1, schema);
    } catch (const CArchiveException&) {
        QErrorLog::DiscardThePendingMessages();
        return 0;
    }
    Require(doc.GetScale() > 0);
    const std::vector<std::uint8_t> first = Store(doc);
    QPageDoc again;
    Load(again, first.data(), first.size(), c_lengthsAsDoubles);
    Require(again.GetScale() == doc.GetScale());
    Require(Store(again) == first);
    QErrorLog::DiscardThePendingMessages();
    return 0;
}
