// The "Contents" stream of a document from anywhere: the first byte answers the question on a
// corrupt stream (odd: keep the items read), the rest is the stream. Only CArchiveException may
// come out; a document that loaded must store the same bytes after a second trip.
#include "tests/support/docitems.h"
#include "tests/support/uihosts.h"

#include "keel/document/doc.h"
#include "keel/document/errorlog.h"
#include "keel/platform/schema.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace keel;

constexpr std::size_t c_maxInputBytes = 131072;
constexpr int c_defaultSchema = 7;
constexpr int c_unsupportedSchema = 3;

void Require(bool condition) {
    if (!condition)
        std::abort();
}

std::vector<std::uint8_t> Store(QDoc& document) {
    CMemFile file;
    CArchive archive(&file, CArchive::store);
    document.Serialize(archive);
    archive.Close();
    return file.Bytes();
}

void Load(QDoc& document, const std::uint8_t* data, std::size_t size) {
    CMemFile file(data, size);
    CArchive archive(&file, CArchive::load);
    document.Serialize(archive);
}

void CheckRoundTrip(QDoc& loaded) {
    const std::vector<std::uint8_t> first = Store(loaded);
    QDoc again;
    Load(again, first.data(), first.size());
    Require(again.GetItemCount() ==
            loaded.GetItemCount() -
                static_cast<int>(std::count_if(loaded.Items().begin(), loaded.Items().end(),
                                               [](const auto& item) { return item->IsBlank(); })));
    Require(Store(again) == first);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const std::filesystem::path log =
        std::filesystem::temp_directory_path() /
        ("keel-docarchive-fuzz-" + std::to_string(::getpid()) + ".log");
    TheErrorLog().SetFilename(CString::FromUtf8(log.string()));
    QSchema::SetDefaultSchema(c_defaultSchema);
    QSchema::SetUnsupportedSchema(c_unsupportedSchema);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > c_maxInputBytes)
        return 0;
    test::RecordingHost host(data[0] % 2 == 1 ? IDYES : IDNO);
    test::ScopedUIServices installed(host);
    QDoc document;
    try {
        Load(document, data + 1, size - 1);
    } catch (const CArchiveException&) {
        QErrorLog::DiscardThePendingMessages();
        return 0;
    }
    CheckRoundTrip(document);
    QErrorLog::DiscardThePendingMessages();
    return 0;
}
