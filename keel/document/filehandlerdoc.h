#pragma once

#include "keel/document/compoundfileobject.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace keel {

// An enhanced metafile, held as its bytes.
struct QEnhMetaFile {
    std::vector<std::uint8_t> m_bytes;
};

// The part of a document kept in the "FileHandlers" stream: the page images (owned metafiles, a
// null one allowed) and the name they go by.
//
// Stream layout after the marker and version: the images name (archive string), the image count
// (32 bits), then each image as a 32-bit size and its bytes, size 0 for a null image. Streams of
// version 105 or older hold none of that.
class QFileHandlerDoc : public QCompoundFileObject {
public:
    static constexpr const char16_t* c_streamName = u"FileHandlers";
    // The newest version whose stream holds no images.
    static constexpr int c_lastVersionWithoutImages = 105;

    QFileHandlerDoc() = default;
    ~QFileHandlerDoc() override;

    const CString& GetImagesName() const { return m_strImagesName; }
    void SetImagesName(const CString& name) { m_strImagesName = name; }

    const std::vector<std::unique_ptr<QEnhMetaFile>>& GetPageImages() const { return m_pageImages; }
    // Takes the image over; null stands for a page without one.
    void AddPageImage(std::unique_ptr<QEnhMetaFile> image);
    void ReleaseAllPageImages();

    // What the document writes ahead of its own data; nothing here.
    virtual void SerializeHeader(CArchive& archive);

    // The "FileHandlers" stream of the root storage. A missing stream leaves everything as it
    // was.
    virtual void LoadFromStorage(CStorage& root);
    virtual void SaveToStorage(CStorage& root);

    void WriteToArchive(CArchive& archive) override;
    // Reading replaces every page image, and only once all of them were read.
    void ReadFromArchive(CArchive& archive) override;

protected:
    CString m_strImagesName;
    std::vector<std::unique_ptr<QEnhMetaFile>> m_pageImages;
};

} // namespace keel
