#pragma once

#include "keel/platform/cstring.h"
#include "keel/platform/exceptions.h"

#include <cstdint>
#include <string>
#include <vector>

namespace keel {

// A failure of a file operation: what went wrong (m_cause), the operating system's error number
// (m_lOsError, an errno value or -1 when there is none) and the file concerned.
class CFileException : public CException {
public:
    enum {
        none = 0,
        genericException = 1,
        fileNotFound = 2,
        badPath = 3,
        tooManyOpenFiles = 4,
        accessDenied = 5,
        invalidFile = 6,
        removeCurrentDir = 7,
        directoryFull = 8,
        badSeek = 9,
        hardIO = 10,
        sharingViolation = 11,
        lockViolation = 12,
        diskFull = 13,
        endOfFile = 14,
    };

    explicit CFileException(int cause = none, long osError = -1,
                            const CString& fileName = CString());
    // The same with a sentence on what exactly was wrong, added to the text of the failure.
    CFileException(int cause, long osError, const CString& fileName, const std::string& detail);

    // The cause that best describes an errno value.
    static int OsErrorToException(long osError);
    [[noreturn]] static void ThrowOsError(long osError, const CString& fileName = CString());

    int m_cause;
    long m_lOsError;
    CString m_strFileName;
};

[[noreturn]] void ThrowFileException(int cause, long osError = -1,
                                     const CString& fileName = CString());

// Puts a file just written in place of `target`, in one rename, so that a reader sees the old
// file or the new one and never half of either. An old target's mode and owner pass to the new
// file. False with the reason when it could not be done; the written file is then left for the
// caller to remove.
bool ReplaceFileWithWritten(const CString& written, const CString& target, CString& reason);

// A byte stream over a disk file. Derived classes replace the storage (memory, text files) and
// keep the interface.
class CFile {
public:
    enum OpenFlags : unsigned {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        // Sharing is an advisory lock that every opener of this library takes (flock): denying
        // writers lets readers share the file and keeps a writer alone with it; denying readers,
        // or everyone, keeps the opener alone. A refused open fails with sharingViolation.
        shareCompat = 0x0000,
        shareExclusive = 0x0010,
        shareDenyWrite = 0x0020,
        shareDenyRead = 0x0030,
        shareDenyNone = 0x0040,
        modeNoInherit = 0x0080,
        modeCreate = 0x1000,
        modeNoTruncate = 0x2000,
        typeText = 0x4000,
        typeBinary = 0x8000,
    };
    enum SeekPosition { begin = 0, current = 1, end = 2 };

    static constexpr int hFileNull = -1;

    CFile() = default;
    // Opens the file or throws CFileException.
    CFile(const CString& path, unsigned flags);
    // Closes an open file; errors on that close are lost (call Close to see them).
    virtual ~CFile();
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    // On failure returns false and, when `error` is given, describes the failure there.
    virtual bool Open(const CString& path, unsigned flags, CFileException* error = nullptr);
    // Reads up to `count` bytes; fewer only at the end of the file.
    virtual unsigned Read(void* buffer, unsigned count);
    virtual void Write(const void* buffer, unsigned count);
    // Returns the new position.
    virtual unsigned long long Seek(long long offset, SeekPosition from);
    void SeekToBegin() { Seek(0, begin); }
    unsigned long long SeekToEnd() { return Seek(0, end); }
    virtual unsigned long long GetPosition() const;
    virtual unsigned long long GetLength() const;
    virtual void SetLength(unsigned long long length);
    // Pushes the written bytes to the device.
    virtual void Flush();
    virtual void Close();
    // Closes without throwing, for clean-up after a failure.
    virtual void Abort();
    virtual bool IsOpen() const { return m_hFile != hFileNull; }

    CString GetFilePath() const { return m_strFileName; }
    // The last component of the path.
    CString GetFileName() const;
    void SetFilePath(const CString& path) { m_strFileName = path; }

protected:
    // The descriptor of an open file; a closed file is an invalidFile failure.
    int Handle() const;
    // Where a seek of `offset` from `from` lands in a file of `length` bytes at `position`. A
    // place before the start or past `limit` is a badSeek failure, an unknown origin an invalid
    // argument.
    unsigned long long SeekTarget(long long offset, SeekPosition from, unsigned long long position,
                                  unsigned long long length, unsigned long long limit) const;
    [[noreturn]] void ThrowLastError() const;

    int m_hFile = hFileNull;
    CString m_strFileName;
};

// A growing file in memory. Constructed from bytes it reads them; Bytes() shows what is there.
class CMemFile : public CFile {
public:
    CMemFile() = default;
    explicit CMemFile(std::vector<std::uint8_t> bytes);
    CMemFile(const void* data, std::size_t size);

    // Replaces the content and moves to its start.
    void Attach(std::vector<std::uint8_t> bytes);
    // Hands the content over and leaves the file empty.
    std::vector<std::uint8_t> Detach();
    const std::vector<std::uint8_t>& Bytes() const { return m_bytes; }

    // A memory file has no path to open.
    bool Open(const CString& path, unsigned flags, CFileException* error = nullptr) override;
    unsigned Read(void* buffer, unsigned count) override;
    // Writing past the end grows the file, filling any gap left by a seek with zeros.
    void Write(const void* buffer, unsigned count) override;
    unsigned long long Seek(long long offset, SeekPosition from) override;
    unsigned long long GetPosition() const override { return m_position; }
    unsigned long long GetLength() const override { return m_bytes.size(); }
    void SetLength(unsigned long long length) override;
    void Flush() override {}
    // Closing releases the content.
    void Close() override;
    void Abort() override { Close(); }
    bool IsOpen() const override { return true; }

private:
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_position = 0;
};

} // namespace keel
