#pragma once

#include "keel/document/compoundfileobject.h"
#include "keel/platform/schema.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace keel::test {

// A compound file object that writes the bytes it is given and records what reading saw: the
// version in force, the bytes that followed, and which clean-ups ran. Either direction can be
// made to fail.
class CompoundProbe : public QCompoundFileObject {
public:
    void WriteToArchive(CArchive& archive) override {
        for (const std::uint8_t byte : m_toWrite)
            archive << byte;
        if (m_failWrite)
            ThrowArchiveException(CArchiveException::genericException);
    }
    void CleanupOnFailedWrite(CArchive&) override { ++m_writeCleanups; }
    void ReadFromArchive(CArchive& archive) override {
        ++m_reads;
        m_versionSeen = QSchema::Version(archive);
        m_read.clear();
        std::uint8_t byte = 0;
        while (archive.Read(&byte, 1) == 1)
            m_read.push_back(byte);
        if (m_failRead)
            ThrowArchiveException(CArchiveException::badIndex);
    }
    void CleanupOnFailedRead(CArchive&) override { ++m_readCleanups; }

    std::vector<std::uint8_t> m_toWrite;
    bool m_failWrite = false;
    bool m_failRead = false;
    int m_reads = 0;
    int m_versionSeen = 0;
    std::vector<std::uint8_t> m_read;
    int m_writeCleanups = 0;
    int m_readCleanups = 0;
};

// Keeps the document schema numbers of a test and puts the old ones back.
class ScopedSchema {
public:
    explicit ScopedSchema(int defaultVersion) { QSchema::SetDefaultSchema(defaultVersion); }
    ~ScopedSchema() {
        QSchema::SetDefaultSchema(m_default);
        QSchema::SetUnsupportedSchema(m_unsupported);
    }
    ScopedSchema(const ScopedSchema&) = delete;
    ScopedSchema& operator=(const ScopedSchema&) = delete;

private:
    int m_default = QSchema::DefaultVersion();
    int m_unsupported = QSchema::UnsupportedVersion();
};

} // namespace keel::test
