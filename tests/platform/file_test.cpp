#include "keel/platform/file.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace keel {
namespace {

using Bytes = std::vector<std::uint8_t>;

class FileOnDisk : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "keel-file-XXXXXX");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_directory = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_directory); }

    CString PathOf(const std::string& name) const {
        return CString::FromUtf8((m_directory / name).string());
    }
    void WriteFile(const std::string& name, const std::string& content) const {
        std::ofstream(m_directory / name, std::ios::binary) << content;
    }
    std::string ReadFile(const std::string& name) const {
        std::ifstream stream(m_directory / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

    std::filesystem::path m_directory;
};

TEST_F(FileOnDisk, WriteThenReadBack) {
    const CString path = PathOf("data.bin");
    {
        CFile file(path, CFile::modeCreate | CFile::modeWrite | CFile::typeBinary);
        file.Write("hello, world", 12);
        EXPECT_EQ(file.GetPosition(), 12u);
        EXPECT_EQ(file.GetLength(), 12u);
        file.Flush();
        file.Close();
    }
    EXPECT_EQ(ReadFile("data.bin"), "hello, world");

    CFile file(path, CFile::modeRead);
    char buffer[32] = {};
    EXPECT_EQ(file.Read(buffer, 5), 5u);
    EXPECT_EQ(std::string(buffer, 5), "hello");
    EXPECT_EQ(file.Read(buffer, 32), 7u);
    EXPECT_EQ(std::string(buffer, 7), ", world");
    EXPECT_EQ(file.Read(buffer, 32), 0u);
}

TEST_F(FileOnDisk, SeekFromEachOrigin) {
    WriteFile("digits", "0123456789");
    CFile file(PathOf("digits"), CFile::modeRead);
    char ch = 0;
    struct SeekCase {
        long long offset;
        CFile::SeekPosition from;
        unsigned long long position;
        char next;
    };
    const SeekCase cases[] = {
        {3, CFile::begin, 3, '3'},
        {2, CFile::current, 6, '6'},
        {-3, CFile::end, 7, '7'},
        {-8, CFile::current, 0, '0'},
    };
    for (const SeekCase& test : cases) {
        SCOPED_TRACE(test.position);
        EXPECT_EQ(file.Seek(test.offset, test.from), test.position);
        EXPECT_EQ(file.GetPosition(), test.position);
        ASSERT_EQ(file.Read(&ch, 1), 1u);
        EXPECT_EQ(ch, test.next);
    }
    EXPECT_EQ(file.SeekToEnd(), 10u);
    file.SeekToBegin();
    EXPECT_EQ(file.GetPosition(), 0u);
}

TEST_F(FileOnDisk, SeekBeforeTheStartIsBadSeek) {
    WriteFile("short", "ab");
    CFile file(PathOf("short"), CFile::modeRead);
    try {
        file.Seek(-5, CFile::begin);
        ADD_FAILURE() << "no exception";
    } catch (const CFileException& failure) {
        EXPECT_EQ(failure.m_cause, CFileException::badSeek);
        EXPECT_EQ(failure.m_strFileName, PathOf("short"));
    }
}

TEST_F(FileOnDisk, CreateTruncatesUnlessToldNotTo) {
    WriteFile("kept", "abcdef");
    WriteFile("emptied", "abcdef");
    {
        CFile kept(PathOf("kept"),
                   CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite);
        EXPECT_EQ(kept.GetLength(), 6u);
        kept.Write("XY", 2);
    }
    {
        CFile emptied(PathOf("emptied"), CFile::modeCreate | CFile::modeReadWrite);
        EXPECT_EQ(emptied.GetLength(), 0u);
    }
    EXPECT_EQ(ReadFile("kept"), "XYcdef");
    EXPECT_EQ(ReadFile("emptied"), "");
}

TEST_F(FileOnDisk, SetLengthCutsAndExtends) {
    CFile file(PathOf("sized"), CFile::modeCreate | CFile::modeReadWrite);
    file.Write("abcdef", 6);
    file.SetLength(3);
    EXPECT_EQ(file.GetLength(), 3u);
    file.SetLength(5);
    file.SeekToBegin();
    char buffer[8] = {};
    EXPECT_EQ(file.Read(buffer, 8), 5u);
    EXPECT_EQ(std::string(buffer, 5), std::string("abc\0\0", 5));
}

TEST_F(FileOnDisk, PathAndNameAreKept) {
    const CString path = PathOf("plan \u00E9\u20AC.kdf");
    CFile file(path, CFile::modeCreate | CFile::modeWrite);
    EXPECT_EQ(file.GetFilePath(), path);
    EXPECT_EQ(file.GetFileName(), u"plan \u00E9\u20AC.kdf");
    EXPECT_TRUE(std::filesystem::exists(m_directory / "plan \u00E9\u20AC.kdf"));
}

struct OpenFailureCase {
    const char* name;
    std::string relativePath;
    unsigned flags;
    int cause;
    int osError;
};

TEST_F(FileOnDisk, OpenFailuresDescribeTheCause) {
    WriteFile("plain", "x");
    std::filesystem::create_directory(m_directory / "folder");
    const OpenFailureCase cases[] = {
        {"missing", "missing.kdf", CFile::modeRead, CFileException::fileNotFound, ENOENT},
        {"missing folder", "nowhere/x.kdf", CFile::modeCreate | CFile::modeWrite,
         CFileException::fileNotFound, ENOENT},
        {"file used as folder", "plain/child", CFile::modeRead, CFileException::badPath, ENOTDIR},
        {"directory", "folder", CFile::modeRead, CFileException::accessDenied, EISDIR},
    };
    for (const OpenFailureCase& test : cases) {
        SCOPED_TRACE(test.name);
        const CString path = PathOf(test.relativePath);
        CFile file;
        CFileException error;
        EXPECT_FALSE(file.Open(path, test.flags, &error));
        EXPECT_FALSE(file.IsOpen());
        EXPECT_EQ(error.m_cause, test.cause);
        EXPECT_EQ(error.m_lOsError, test.osError);
        EXPECT_EQ(error.m_strFileName, path);
        EXPECT_NE(std::string(error.what()).find(path.ToUtf8()), std::string::npos);
        EXPECT_FALSE(file.Open(path, test.flags));
    }
}

TEST_F(FileOnDisk, ConstructorThrowsWhenOpenFails) {
    const CString path = PathOf("absent.kdf");
    try {
        CFile file(path, CFile::modeRead);
        ADD_FAILURE() << "no exception";
    } catch (const CFileException& failure) {
        EXPECT_EQ(failure.m_cause, CFileException::fileNotFound);
        EXPECT_EQ(failure.m_strFileName, path);
        EXPECT_NE(std::string(failure.what()).find("absent.kdf"), std::string::npos);
    }
}

TEST_F(FileOnDisk, WritingAReadOnlyFileFails) {
    WriteFile("readonly", "x");
    CFile file(PathOf("readonly"), CFile::modeRead);
    try {
        file.Write("y", 1);
        ADD_FAILURE() << "no exception";
    } catch (const CFileException& failure) {
        EXPECT_EQ(failure.m_cause, CFileException::invalidFile);
        EXPECT_EQ(failure.m_lOsError, EBADF);
        EXPECT_EQ(failure.m_strFileName, PathOf("readonly"));
    }
}

TEST_F(FileOnDisk, ClosedFileRefusesWork) {
    CFile file(PathOf("closed"), CFile::modeCreate | CFile::modeWrite);
    file.Close();
    EXPECT_FALSE(file.IsOpen());
    char ch = 0;
    try {
        file.Read(&ch, 1);
        ADD_FAILURE() << "no exception";
    } catch (const CFileException& failure) {
        EXPECT_EQ(failure.m_cause, CFileException::invalidFile);
    }
    EXPECT_THROW(file.GetLength(), CFileException);
    EXPECT_NO_THROW(file.Close());
    EXPECT_NO_THROW(file.Abort());
}

TEST_F(FileOnDisk, OpeningAnOpenFileIsAnInvalidArgument) {
    WriteFile("twice", "x");
    CFile file(PathOf("twice"), CFile::modeRead);
    EXPECT_THROW(file.Open(PathOf("twice"), CFile::modeRead), InvalidArgumentException);
}

TEST_F(FileOnDisk, OpenAfterCloseReusesTheObject) {
    WriteFile("first", "1");
    WriteFile("second", "2");
    CFile file(PathOf("first"), CFile::modeRead);
    file.Close();
    ASSERT_TRUE(file.Open(PathOf("second"), CFile::modeRead | CFile::shareDenyNone));
    char ch = 0;
    EXPECT_EQ(file.Read(&ch, 1), 1u);
    EXPECT_EQ(ch, '2');
    EXPECT_EQ(file.GetFileName(), u"second");
}

struct SharingCase {
    unsigned first;
    unsigned second;
    bool secondOpens;
};

TEST_F(FileOnDisk, SharingModesHoldOffOtherOpenersUntilTheFirstCloses) {
    constexpr unsigned read = CFile::modeRead;
    constexpr unsigned write = CFile::modeReadWrite;
    const SharingCase cases[] = {
        {read | CFile::shareDenyWrite, read | CFile::shareDenyWrite, true},
        {read | CFile::shareDenyWrite, write | CFile::shareDenyWrite, false},
        {write | CFile::shareDenyWrite, read | CFile::shareDenyWrite, false},
        {write | CFile::shareDenyWrite, write | CFile::shareDenyWrite, false},
        {read | CFile::shareExclusive, read | CFile::shareDenyWrite, false},
        {read | CFile::shareDenyRead, read | CFile::shareExclusive, false},
        {write | CFile::shareDenyWrite, read | CFile::shareDenyNone, true},
        {write | CFile::shareExclusive, write | CFile::shareCompat, true},
    };
    WriteFile("shared", "x");
    for (const SharingCase& c : cases) {
        CFile first;
        ASSERT_TRUE(first.Open(PathOf("shared"), c.first));
        CFile second;
        CFileException error;
        EXPECT_EQ(second.Open(PathOf("shared"), c.second, &error), c.secondOpens)
            << std::hex << c.first << " then " << c.second;
        if (!c.secondOpens) {
            EXPECT_EQ(error.m_cause, CFileException::sharingViolation);
            first.Close();
            EXPECT_TRUE(second.Open(PathOf("shared"), c.second)) << "the lock goes with the file";
        }
    }
}

struct ErrnoCase {
    int osError;
    int cause;
};

TEST(FileException, OsErrorsMapToCauses) {
    const ErrnoCase cases[] = {
        {0, CFileException::none},
        {ENOENT, CFileException::fileNotFound},
        {ENOTDIR, CFileException::badPath},
        {ENAMETOOLONG, CFileException::badPath},
        {EMFILE, CFileException::tooManyOpenFiles},
        {ENFILE, CFileException::tooManyOpenFiles},
        {EACCES, CFileException::accessDenied},
        {EPERM, CFileException::accessDenied},
        {EROFS, CFileException::accessDenied},
        {EBADF, CFileException::invalidFile},
        {ESPIPE, CFileException::badSeek},
        {EIO, CFileException::hardIO},
        {ETXTBSY, CFileException::sharingViolation},
        {ENOLCK, CFileException::lockViolation},
        {ENOSPC, CFileException::diskFull},
        {EDQUOT, CFileException::diskFull},
        {EINVAL, CFileException::genericException},
    };
    for (const ErrnoCase& test : cases) {
        SCOPED_TRACE(test.osError);
        EXPECT_EQ(CFileException::OsErrorToException(test.osError), test.cause);
    }
}

TEST(FileException, CauseValuesAreFixed) {
    const int values[] = {
        CFileException::none,
        CFileException::genericException,
        CFileException::fileNotFound,
        CFileException::badPath,
        CFileException::tooManyOpenFiles,
        CFileException::accessDenied,
        CFileException::invalidFile,
        CFileException::removeCurrentDir,
        CFileException::directoryFull,
        CFileException::badSeek,
        CFileException::hardIO,
        CFileException::sharingViolation,
        CFileException::lockViolation,
        CFileException::diskFull,
        CFileException::endOfFile,
    };
    for (int i = 0; i < static_cast<int>(std::size(values)); ++i)
        EXPECT_EQ(values[i], i);
}

TEST(FileException, ThrowOsErrorCarriesEverything) {
    try {
        CFileException::ThrowOsError(ENOSPC, u"/full/disk.kdf");
    } catch (const CException& failure) {
        const auto& fileFailure = dynamic_cast<const CFileException&>(failure);
        EXPECT_EQ(fileFailure.m_cause, CFileException::diskFull);
        EXPECT_EQ(fileFailure.m_lOsError, ENOSPC);
        EXPECT_EQ(fileFailure.m_strFileName, u"/full/disk.kdf");
        EXPECT_NE(std::string(failure.what()).find("/full/disk.kdf"), std::string::npos);
        EXPECT_NE(std::string(failure.what()).find("disk full"), std::string::npos);
    }
}

TEST(FileFlags, ValuesAreFixed) {
    EXPECT_EQ(CFile::modeRead, 0u);
    EXPECT_EQ(CFile::modeWrite, 1u);
    EXPECT_EQ(CFile::modeReadWrite, 2u);
    EXPECT_EQ(CFile::modeCreate, 0x1000u);
    EXPECT_EQ(CFile::modeNoTruncate, 0x2000u);
    EXPECT_EQ(CFile::begin, 0);
    EXPECT_EQ(CFile::current, 1);
    EXPECT_EQ(CFile::end, 2);
}

// --- In memory ------------------------------------------------------------------------------

TEST(MemFile, WritesGrowAndReadBack) {
    CMemFile file;
    EXPECT_EQ(file.GetLength(), 0u);
    file.Write("abc", 3);
    file.Write("de", 2);
    EXPECT_EQ(file.GetLength(), 5u);
    EXPECT_EQ(file.GetPosition(), 5u);
    EXPECT_EQ(file.Bytes(), (Bytes{'a', 'b', 'c', 'd', 'e'}));
    file.SeekToBegin();
    char buffer[8] = {};
    EXPECT_EQ(file.Read(buffer, 8), 5u);
    EXPECT_EQ(std::string(buffer, 5), "abcde");
    EXPECT_EQ(file.Read(buffer, 8), 0u);
}

TEST(MemFile, OverwriteInTheMiddle) {
    CMemFile file(Bytes{'1', '2', '3', '4'});
    file.Seek(1, CFile::begin);
    file.Write("xy", 2);
    EXPECT_EQ(file.Bytes(), (Bytes{'1', 'x', 'y', '4'}));
}

TEST(MemFile, SeekPastTheEndThenWriteFillsWithZeros) {
    CMemFile file;
    file.Write("a", 1);
    EXPECT_EQ(file.Seek(3, CFile::end), 4u);
    char ch = 0;
    EXPECT_EQ(file.Read(&ch, 1), 0u);
    file.Write("b", 1);
    EXPECT_EQ(file.Bytes(), (Bytes{'a', 0, 0, 0, 'b'}));
}

TEST(MemFile, SeekOrigins) {
    CMemFile file(Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    EXPECT_EQ(file.Seek(4, CFile::begin), 4u);
    EXPECT_EQ(file.Seek(-1, CFile::current), 3u);
    EXPECT_EQ(file.Seek(-2, CFile::end), 8u);
    EXPECT_EQ(file.SeekToEnd(), 10u);
}

TEST(MemFile, SeekBeforeTheStartIsBadSeek) {
    CMemFile file(Bytes{1, 2});
    file.SetFilePath(u"memory.kdf");
    try {
        file.Seek(-3, CFile::end);
        ADD_FAILURE() << "no exception";
    } catch (const CFileException& failure) {
        EXPECT_EQ(failure.m_cause, CFileException::badSeek);
        EXPECT_EQ(failure.m_strFileName, u"memory.kdf");
    }
    EXPECT_EQ(file.GetPosition(), 0u);
    file.Seek(2, CFile::begin);
    EXPECT_THROW(file.Seek(std::numeric_limits<long long>::max(), CFile::current), CFileException);
    EXPECT_EQ(file.GetPosition(), 2u);
}

TEST(MemFile, SetLengthMovesAPositionPastTheEnd) {
    CMemFile file(Bytes{1, 2, 3, 4, 5});
    file.SeekToEnd();
    file.SetLength(2);
    EXPECT_EQ(file.GetPosition(), 2u);
    EXPECT_EQ(file.Bytes(), (Bytes{1, 2}));
    file.SetLength(4);
    EXPECT_EQ(file.Bytes(), (Bytes{1, 2, 0, 0}));
}

TEST(MemFile, AttachDetachAndClose) {
    CMemFile file;
    file.Write("zz", 2);
    file.Attach(Bytes{7, 8, 9});
    EXPECT_EQ(file.GetPosition(), 0u);
    std::uint8_t first = 0;
    file.Read(&first, 1);
    EXPECT_EQ(first, 7);
    EXPECT_EQ(file.Detach(), (Bytes{7, 8, 9}));
    EXPECT_EQ(file.GetLength(), 0u);
    EXPECT_EQ(file.GetPosition(), 0u);

    CMemFile closing(Bytes{1, 2, 3});
    closing.Close();
    EXPECT_TRUE(closing.Bytes().empty());
}

TEST(MemFile, ConstructFromRawBytes) {
    const char raw[] = {'k', 'e', 'e', 'l'};
    CMemFile file(raw, sizeof raw);
    EXPECT_EQ(file.Bytes(), (Bytes{'k', 'e', 'e', 'l'}));
}

TEST(MemFile, HasNoPathToOpen) {
    CMemFile file;
    CFileException error;
    EXPECT_FALSE(file.Open(u"/tmp/anything", CFile::modeRead, &error));
    EXPECT_EQ(error.m_cause, CFileException::genericException);
    EXPECT_TRUE(file.IsOpen());
}

} // namespace
} // namespace keel
