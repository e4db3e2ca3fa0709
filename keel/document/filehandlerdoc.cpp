#include "keel/document/filehandlerdoc.h"

#include "keel/platform/schema.h"

namespace keel {

namespace {

void RequireBytes(CArchive& archive, unsigned long long needed) {
    if (needed > archive.RemainingBytes())
        ThrowArchiveException(CArchiveException::endOfFile, archive.GetFileName());
}

} // namespace

QFileHandlerDoc::~QFileHandlerDoc() = default;

void QFileHandlerDoc::AddPageImage(std::unique_ptr<QEnhMetaFile> image) {
    m_pageImages.push_back(std::move(image));
}

void QFileHandlerDoc::ReleaseAllPageImages() {
    m_pageImages.clear();
}

void QFileHandlerDoc::SerializeHeader(CArchive&) {}

void QFileHandlerDoc::LoadFromStorage(CStorage& root) {
    int version = c_unmarkedVersion;
    ReadFromStorage(root, c_streamName, version);
}

void QFileHandlerDoc::SaveToStorage(CStorage& root) {
    WriteToStorage(root, c_streamName);
}

void QFileHandlerDoc::WriteToArchive(CArchive& archive) {
    archive << m_strImagesName;
    archive << static_cast<std::uint32_t>(m_pageImages.size());
    for (const std::unique_ptr<QEnhMetaFile>& image : m_pageImages) {
        if (!image || image->m_bytes.empty() || image->m_bytes.size() > 0xFFFFFFFFu) {
            archive << std::uint32_t{0};
            continue;
        }
        archive << static_cast<std::uint32_t>(image->m_bytes.size());
        archive.Write(image->m_bytes.data(), static_cast<unsigned>(image->m_bytes.size()));
    }
}

void QFileHandlerDoc::ReadFromArchive(CArchive& archive) {
    if (QSchema::Version(archive) <= c_lastVersionWithoutImages)
        return;
    CString name;
    archive >> name;
    std::uint32_t count = 0;
    archive >> count;
    // Each image takes at least its 4-byte size.
    RequireBytes(archive, 4ull * count);
    std::vector<std::unique_ptr<QEnhMetaFile>> images;
    images.reserve(count);
    for (std::uint32_t index = 0; index < count; ++index) {
        std::uint32_t size = 0;
        archive >> size;
        if (size == 0) {
            images.push_back(nullptr);
            continue;
        }
        RequireBytes(archive, size);
        auto image = std::make_unique<QEnhMetaFile>();
        image->m_bytes.resize(size);
        if (archive.Read(image->m_bytes.data(), size) != size)
            ThrowArchiveException(CArchiveException::endOfFile, archive.GetFileName());
        images.push_back(std::move(image));
    }
    m_strImagesName = name;
    m_pageImages = std::move(images);
}

} // namespace keel
