#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/compoundstorage.h"
#include "keel/platform/cstring.h"

namespace keel {

// Something kept in a stream of its own in a compound file, written as a marker (-1), the schema
// version of the stream and then what WriteToArchive puts there. A stream of an older release has
// no marker and is read as version 21.
class QCompoundFileObject {
public:
    // The version taken for a stream without the marker.
    static constexpr int c_unmarkedVersion = 21;
    static constexpr std::int32_t c_marker = -1;
    // Create, share-exclusive, read-write; share-exclusive, read; overwrite and consolidate.
    static constexpr unsigned c_createFlags = 0x1012;
    static constexpr unsigned c_readFlags = 0x10;
    static constexpr unsigned c_commitFlags = 9;

    QCompoundFileObject() = default;
    QCompoundFileObject(const QCompoundFileObject&) = delete;
    QCompoundFileObject& operator=(const QCompoundFileObject&) = delete;

    virtual ~QCompoundFileObject();
    virtual void WriteToArchive(CArchive& archive) = 0;
    // Called when WriteToArchive or ReadFromArchive threw, before the failure goes on.
    virtual void CleanupOnFailedWrite(CArchive& archive);
    virtual void ReadFromArchive(CArchive& archive) = 0;
    virtual void CleanupOnFailedRead(CArchive& archive);

    // Replaces the stream `name` of the storage and commits the storage. A stream that cannot
    // be created because something is not found is a badSchema CArchiveException; any other
    // failure to create it, or to commit, a CFileException. True when written.
    bool WriteToStorage(CStorage& storage, const CString& name);
    // Reads the stream `name`; `version` becomes the stream's version (21 until one is read).
    // False, with nothing changed, when there is no such stream; a failure to open it is a
    // CFileException. An empty stream is there but holds nothing, and is not read.
    bool ReadFromStorage(CStorage& storage, const CString& name, int& version);
};

} // namespace keel
