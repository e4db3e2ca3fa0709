#include "keel/document/compoundfileobject.h"

#include "keel/platform/schema.h"

namespace keel {

QCompoundFileObject::~QCompoundFileObject() = default;

void QCompoundFileObject::CleanupOnFailedWrite(CArchive&) {}

void QCompoundFileObject::CleanupOnFailedRead(CArchive&) {}

bool QCompoundFileObject::WriteToStorage(CStorage& storage, const CString& name) {
    CStreamFile stream;
    CFileException failure;
    if (!stream.CreateStream(storage, name, c_createFlags, &failure)) {
        if (failure.m_cause == CFileException::fileNotFound)
            ThrowArchiveException(CArchiveException::badSchema, name);
        throw failure;
    }
    {
        CArchive archive(&stream, CArchive::store, 4096);
        archive << c_marker << static_cast<std::int32_t>(QSchema::DefaultVersion());
        QSchema::SetSchemaDefault(archive);
        try {
            WriteToArchive(archive);
        } catch (...) {
            CleanupOnFailedWrite(archive);
            archive.Abort();
            throw;
        }
        archive.Close();
    }
    stream.Close();
    if (!storage.Commit(c_commitFlags, &failure))
        throw failure;
    return true;
}

bool QCompoundFileObject::ReadFromStorage(CStorage& storage, const CString& name, int& version) {
    version = c_unmarkedVersion;
    CStreamFile stream;
    CFileException failure;
    if (!stream.OpenStream(storage, name, c_readFlags, &failure)) {
        if (failure.m_cause == CFileException::fileNotFound)
            return false;
        throw failure;
    }
    if (stream.GetLength() == 0)
        return true;
    CArchive archive(&stream, CArchive::load, 4096);
    std::int32_t marker = 0;
    archive >> marker;
    if (marker == c_marker) {
        std::int32_t stored = 0;
        archive >> stored;
        version = stored;
    } else {
        archive.Flush();
        stream.SeekToBegin();
    }
    QSchema::SetSchemaDirect(archive, version);
    try {
        ReadFromArchive(archive);
    } catch (...) {
        CleanupOnFailedRead(archive);
        archive.Abort();
        throw;
    }
    archive.Close();
    return true;
}

} // namespace keel
