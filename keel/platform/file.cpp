#include "keel/platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace keel {

namespace {

const char* CauseName(int cause) {
    static const char* const names[] = {
        "no error",
        "unspecified error",
        "file not found",
        "bad path",
        "too many open files",
        "access denied",
        "invalid file",
        "cannot remove directory",
        "directory full",
        "bad seek",
        "hardware I/O error",
        "sharing violation",
        "lock violation",
        "disk full",
        "end of file",
    };
    if (cause < 0 || cause >= static_cast<int>(std::size(names)))
        return "unknown error";
    return names[cause];
}

std::string DescribeFileFailure(int cause, long osError, const CString& fileName,
                                const std::string& detail = std::string()) {
    std::string text = "File error: ";
    text += CauseName(cause);
    if (!fileName.IsEmpty())
        text += " in '" + fileName.ToUtf8() + "'";
    if (osError > 0)
        text += std::string(" (") + std::strerror(static_cast<int>(osError)) + ")";
    if (!detail.empty())
        text += ": " + detail;
    return text;
}

int OpenFlagsFor(unsigned flags) {
    int result = O_CLOEXEC;
    switch (flags & 0x3) {
    case CFile::modeWrite:
        result |= O_WRONLY;
        break;
    case CFile::modeReadWrite:
        result |= O_RDWR;
        break;
    default:
        result |= O_RDONLY;
        break;
    }
    if (flags & CFile::modeCreate) {
        result |= O_CREAT;
        if (!(flags & CFile::modeNoTruncate))
            result |= O_TRUNC;
    }
    return result;
}

// The sharing modes are advisory locks that every opener of this library takes: denying writers
// lets readers share the file and keeps a writer alone with it; denying readers, or everyone,
// keeps the opener alone. Compatibility and deny-none take no lock.
int ShareLockFor(unsigned flags) {
    switch (flags & 0x70) {
    case CFile::shareExclusive:
    case CFile::shareDenyRead:
        return LOCK_EX;
    case CFile::shareDenyWrite:
        return (flags & 0x3) == CFile::modeRead ? LOCK_SH : LOCK_EX;
    default:
        return 0;
    }
}

// False, with errno set, when another opener's sharing mode refuses this one.
bool TakeShareLock(int descriptor, unsigned flags) {
    const int lock = ShareLockFor(flags);
    if (lock == 0)
        return true;
    while (::flock(descriptor, lock | LOCK_NB) != 0) {
        if (errno != EINTR)
            return false;
    }
    return true;
}

bool IsDirectory(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

CFileException::CFileException(int cause, long osError, const CString& fileName)
    : CException(DescribeFileFailure(cause, osError, fileName)), m_cause(cause),
      m_lOsError(osError), m_strFileName(fileName) {}

CFileException::CFileException(int cause, long osError, const CString& fileName,
                               const std::string& detail)
    : CException(DescribeFileFailure(cause, osError, fileName, detail)), m_cause(cause),
      m_lOsError(osError), m_strFileName(fileName) {}

int CFileException::OsErrorToException(long osError) {
    switch (osError) {
    case 0:
        return none;
    case ENOENT:
        return fileNotFound;
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
        return badPath;
    case EMFILE:
    case ENFILE:
        return tooManyOpenFiles;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    case EEXIST:
        return accessDenied;
    case EBADF:
        return invalidFile;
    case EMLINK:
        return directoryFull;
    case ESPIPE:
    case EOVERFLOW:
        return badSeek;
    case EIO:
        return hardIO;
    case EBUSY:
    case ETXTBSY:
        return sharingViolation;
    case ENOLCK:
    case EDEADLK:
        return lockViolation;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return diskFull;
    default:
        return genericException;
    }
}

void CFileException::ThrowOsError(long osError, const CString& fileName) {
    throw CFileException(OsErrorToException(osError), osError, fileName);
}

void ThrowFileException(int cause, long osError, const CString& fileName) {
    throw CFileException(cause, osError, fileName);
}

bool ReplaceFileWithWritten(const CString& written, const CString& target, CString& reason) {
    const std::string writtenPath = written.ToUtf8();
    const std::string targetPath = target.ToUtf8();
    struct stat old {};
    if (::stat(targetPath.c_str(), &old) == 0) {
        struct stat made {};
        if (::chmod(writtenPath.c_str(), old.st_mode & 07777) != 0 ||
            ::stat(writtenPath.c_str(), &made) != 0 ||
            ((made.st_uid != old.st_uid || made.st_gid != old.st_gid) &&
             ::chown(writtenPath.c_str(), old.st_uid, old.st_gid) != 0)) {
            reason = u"Could not keep the owner and mode of the file";
            return false;
        }
    }
    if (std::rename(writtenPath.c_str(), targetPath.c_str()) != 0) {
        reason = CString::FromUtf8(std::strerror(errno));
        return false;
    }
    return true;
}

CFile::CFile(const CString& path, unsigned flags) {
    CFileException error;
    if (!Open(path, flags, &error))
        throw error;
}

CFile::~CFile() {
    if (m_hFile != hFileNull)
        ::close(m_hFile);
}

bool CFile::Open(const CString& path, unsigned flags, CFileException* error) {
    if (m_hFile != hFileNull)
        ThrowInvalidArgument("CFile::Open on a file that is already open");
    const int descriptor = ::open(path.ToUtf8().c_str(), OpenFlagsFor(flags), 0666);
    int failure = descriptor < 0 ? errno : 0;
    // Directories open for reading on this system but are not files.
    if (descriptor >= 0 && IsDirectory(descriptor)) {
        ::close(descriptor);
        failure = EISDIR;
    } else if (descriptor >= 0 && !TakeShareLock(descriptor, flags)) {
        failure = errno;
        ::close(descriptor);
        if (failure == EWOULDBLOCK) {
            if (error)
                *error = CFileException(CFileException::sharingViolation, failure, path);
            return false;
        }
    }
    if (failure != 0) {
        if (error)
            *error = CFileException(CFileException::OsErrorToException(failure), failure, path);
        return false;
    }
    m_hFile = descriptor;
    m_strFileName = path;
    return true;
}

unsigned CFile::Read(void* buffer, unsigned count) {
    const int descriptor = Handle();
    auto* bytes = static_cast<char*>(buffer);
    unsigned done = 0;
    while (done < count) {
        const ssize_t got = ::read(descriptor, bytes + done, count - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            ThrowLastError();
        if (got == 0)
            break;
        done += static_cast<unsigned>(got);
    }
    return done;
}

void CFile::Write(const void* buffer, unsigned count) {
    const int descriptor = Handle();
    const auto* bytes = static_cast<const char*>(buffer);
    unsigned done = 0;
    while (done < count) {
        const ssize_t written = ::write(descriptor, bytes + done, count - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            ThrowLastError();
        done += static_cast<unsigned>(written);
    }
}

unsigned long long CFile::Seek(long long offset, SeekPosition from) {
    static constexpr int whence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (from < begin || from > end)
        ThrowInvalidArgument("CFile::Seek origin");
    const off_t position = ::lseek(Handle(), offset, whence[from]);
    if (position < 0)
        throw CFileException(CFileException::badSeek, errno, m_strFileName);
    return static_cast<unsigned long long>(position);
}

unsigned long long CFile::SeekTarget(long long offset, SeekPosition from,
                                     unsigned long long position, unsigned long long length,
                                     unsigned long long limit) const {
    long long origin = 0;
    switch (from) {
    case begin:
        break;
    case current:
        origin = static_cast<long long>(position);
        break;
    case end:
        origin = static_cast<long long>(length);
        break;
    default:
        ThrowInvalidArgument("CFile::Seek origin");
    }
    long long target = 0;
    if (__builtin_add_overflow(origin, offset, &target) || target < 0 ||
        static_cast<unsigned long long>(target) > limit)
        throw CFileException(CFileException::badSeek, EINVAL, m_strFileName);
    return static_cast<unsigned long long>(target);
}

unsigned long long CFile::GetPosition() const {
    const off_t position = ::lseek(Handle(), 0, SEEK_CUR);
    if (position < 0)
        ThrowLastError();
    return static_cast<unsigned long long>(position);
}

unsigned long long CFile::GetLength() const {
    struct stat status {};
    if (fstat(Handle(), &status) != 0)
        ThrowLastError();
    return static_cast<unsigned long long>(status.st_size);
}

void CFile::SetLength(unsigned long long length) {
    if (::ftruncate(Handle(), static_cast<off_t>(length)) != 0)
        ThrowLastError();
}

void CFile::Flush() {
    // Pipes and character devices cannot be synchronised, and need not be.
    if (::fsync(Handle()) != 0 && errno != EINVAL && errno != EROFS)
        ThrowLastError();
}

void CFile::Close() {
    const int descriptor = m_hFile;
    m_hFile = hFileNull;
    if (descriptor != hFileNull && ::close(descriptor) != 0 && errno != EINTR)
        ThrowLastError();
}

void CFile::Abort() {
    if (m_hFile != hFileNull)
        ::close(m_hFile);
    m_hFile = hFileNull;
}

CString CFile::GetFileName() const {
    const int slash = m_strFileName.ReverseFind(u'/');
    return slash < 0 ? m_strFileName : m_strFileName.Mid(slash + 1);
}

int CFile::Handle() const {
    if (m_hFile == hFileNull)
        throw CFileException(CFileException::invalidFile, EBADF, m_strFileName);
    return m_hFile;
}

void CFile::ThrowLastError() const {
    CFileException::ThrowOsError(errno, m_strFileName);
}

CMemFile::CMemFile(std::vector<std::uint8_t> bytes) : m_bytes(std::move(bytes)) {}

CMemFile::CMemFile(const void* data, std::size_t size)
    : m_bytes(static_cast<const std::uint8_t*>(data),
              static_cast<const std::uint8_t*>(data) + size) {}

void CMemFile::Attach(std::vector<std::uint8_t> bytes) {
    m_bytes = std::move(bytes);
    m_position = 0;
}

std::vector<std::uint8_t> CMemFile::Detach() {
    std::vector<std::uint8_t> bytes = std::move(m_bytes);
    Close();
    return bytes;
}

bool CMemFile::Open(const CString& path, unsigned, CFileException* error) {
    if (error)
        *error = CFileException(CFileException::genericException, -1, path);
    return false;
}

unsigned CMemFile::Read(void* buffer, unsigned count) {
    if (m_position >= m_bytes.size())
        return 0;
    const std::size_t available = std::min<std::size_t>(count, m_bytes.size() - m_position);
    std::memcpy(buffer, m_bytes.data() + m_position, available);
    m_position += available;
    return static_cast<unsigned>(available);
}

void CMemFile::Write(const void* buffer, unsigned count) {
    if (count == 0)
        return;
    if (m_position + count > m_bytes.size())
        m_bytes.resize(m_position + count);
    std::memcpy(m_bytes.data() + m_position, buffer, count);
    m_position += count;
}

unsigned long long CMemFile::Seek(long long offset, SeekPosition from) {
    m_position = static_cast<std::size_t>(SeekTarget(offset, from, m_position, m_bytes.size(),
                                                     std::numeric_limits<long long>::max()));
    return m_position;
}

void CMemFile::SetLength(unsigned long long length) {
    m_bytes.resize(length);
    m_position = std::min<std::size_t>(m_position, m_bytes.size());
}

void CMemFile::Close() {
    m_bytes.clear();
    m_bytes.shrink_to_fit();
    m_position = 0;
}

} // namespace keel
