// Opens arbitrary bytes as a document file: the compound file is read whole, every storage is
// walked and every stream read, and the "FileHandlers" stream is loaded as a document loads it.
// Only CFileException and CArchiveException may come out. A file that opens must write out and
// read back to the same tree.
#include "keel/document/filehandlerdoc.h"
#include "keel/platform/compoundstorage.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using keel::CArchiveException;
using keel::CFileException;
using keel::CStorage;
using keel::CStorageElement;
using keel::CStreamFile;

void Require(bool condition) {
    if (!condition)
        std::abort();
}

// Every element under the storage, as names, types and bytes in order.
void Walk(CStorage& storage, std::vector<std::uint8_t>& summary) {
    for (const CStorageElement& element : storage.EnumElements()) {
        const std::string name = element.m_strName.ToUtf8();
        summary.insert(summary.end(), name.begin(), name.end());
        summary.push_back(static_cast<std::uint8_t>(element.m_type));
        if (element.m_type == CStorageElement::typeStorage) {
            std::unique_ptr<CStorage> inner = storage.OpenStorage(element.m_strName, 0x10);
            Require(inner != nullptr);
            Walk(*inner, summary);
            summary.push_back(0);
            continue;
        }
        CStreamFile stream;
        Require(stream.OpenStream(storage, element.m_strName, 0x10));
        Require(stream.GetLength() == element.m_size);
        std::vector<std::uint8_t> bytes(element.m_size);
        Require(stream.Read(bytes.data(), static_cast<unsigned>(bytes.size())) == bytes.size());
        summary.insert(summary.end(), bytes.begin(), bytes.end());
    }
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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::unique_ptr<CStorage> root =
        CStorage::OpenBytes(std::vector<std::uint8_t>(data, data + size), 0x10);
    if (!root)
        return 0;
    std::vector<std::uint8_t> summary;
    Walk(*root, summary);

    std::unique_ptr<CStorage> again = CStorage::OpenBytes(root->SaveToBytes(), 0x10);
    Require(again != nullptr);
    std::vector<std::uint8_t> summaryAgain;
    Walk(*again, summaryAgain);
    Require(summary == summaryAgain);

    keel::QFileHandlerDoc doc;
    try {
        doc.LoadFromStorage(*root);
    } catch (const CArchiveException&) {
    } catch (const CFileException&) {
    }
    return 0;
}
