#include "tests/support/tempfolder.h"

#include "keel/platform/file.h"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>

namespace keel {
namespace {

using test::Bytes;

// The cause of the file exception that `action` throws, or -1; the failure names `fileName` and
// its text says it, and it keeps `osError`, when they are given.
int CauseOf(const std::function<void()>& action, const CString& fileName = CString(),
            int osError = -1) {
    try {
        action();
    } catch (const CFileException& failure) {
        if (!fileName.IsEmpty()) {
            EXPECT_EQ(failure.m_strFileName, fileName);
            EXPECT_NE(std::string(failure.what()).find(fileName.ToUtf8()), std::string::npos);
        }
        if (osError != -1) {
            EXPECT_EQ(failure.m_lOsError, osError);
        }
        return failure.m_cause;
    }
    return -1;
}

class AnyFile : public test::TempFolderTest, public testing::WithParamInterface<bool> {
protected:
    bool OnDisk() const { return GetParam(); }
    std::unique_ptr<CFile> Opened(const std::string& content) {
        if (OnDisk()) {
            WriteBytes("file.bin", Bytes(content.begin(), content.end()));
            return std::make_unique<CFile>(PathOf("file.bin"), CFile::modeReadWrite);
        }
        auto file = std::make_unique<CMemFile>(Bytes(content.begin(), content.end()));
        file->SetFilePath(PathOf("file.bin"));
        return file;
    }
    Bytes Content(CFile& file) {
        if (!OnDisk())
            return static_cast<CMemFile&>(file).Bytes();
        file.Close();
        return ReadBytes("file.bin");
    }
};

INSTANTIATE_TEST_SUITE_P(DiskAndMemory, AnyFile, testing::Bool());

TEST_P(AnyFile, SeekFromEachOrigin) {
    const std::unique_ptr<CFile> file = Opened("0123456789");
    const struct {
        long long offset;
        CFile::SeekPosition from;
        unsigned long long position;
        char next;
    } cases[] = {{3, CFile::begin, 3, '3'},
                 {2, CFile::current, 6, '6'},
                 {-3, CFile::end, 7, '7'},
                 {-8, CFile::current, 0, '0'}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.position);
        EXPECT_EQ(file->Seek(test.offset, test.from), test.position);
        EXPECT_EQ(file->GetPosition(), test.position);
        char ch = 0;
        ASSERT_EQ(file->Read(&ch, 1), 1u);
        EXPECT_EQ(ch, test.next);
    }
    EXPECT_EQ(file->SeekToEnd(), 10u);
    file->SeekToBegin();
    EXPECT_EQ(file->GetPosition(), 0u);
    // Before the start is a bad seek that leaves the position.
    file->Seek(2, CFile::begin);
    EXPECT_EQ(CauseOf([&] { file->Seek(-5, CFile::begin); }, PathOf("file.bin")),
              CFileException::badSeek);
    EXPECT_EQ(CauseOf([&] { file->Seek(-11, CFile::end); }), CFileException::badSeek);
    EXPECT_EQ(file->GetPosition(), 2u);
}

TEST_P(AnyFile, OverwriteSeekPastTheEndAndSetLength) {
    const std::unique_ptr<CFile> file = Opened("1234");
    file->Seek(1, CFile::begin);
    file->Write("xy", 2);
    EXPECT_EQ(file->Seek(3, CFile::end), 7u);
    char ch = 0;
    EXPECT_EQ(file->Read(&ch, 1), 0u);
    file->Write("b", 1);
    EXPECT_EQ(file->GetLength(), 8u);
    file->Seek(4, CFile::begin);
    char tail[8] = {};
    EXPECT_EQ(file->Read(tail, 8), 4u);
    EXPECT_EQ(std::string(tail, 4), std::string("\0\0\0b", 4));
    file->SetLength(6);
    EXPECT_EQ(file->GetLength(), 6u);
    file->SetLength(7);
    EXPECT_EQ(Content(*file), (Bytes{'1', 'x', 'y', '4', 0, 0, 0}));
}

using FileOnDisk = test::TempFolderTest;

TEST_F(FileOnDisk, CreateTruncatesUnlessToldNotToAndKeepsThePath) {
    WriteBytes("kept", {'a', 'b', 'c', 'd', 'e', 'f'});
    WriteBytes("emptied", {'a', 'b', 'c'});
    {
        CFile kept(PathOf("kept"),
                   CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite);
        EXPECT_EQ(kept.GetLength(), 6u);
        kept.Write("XY", 2);
        CFile emptied(PathOf("emptied"), CFile::modeCreate | CFile::modeReadWrite);
        EXPECT_EQ(emptied.GetLength(), 0u);
    }
    EXPECT_EQ(ReadBytes("kept"), (Bytes{'X', 'Y', 'c', 'd', 'e', 'f'}));
    EXPECT_TRUE(ReadBytes("emptied").empty());

    const CString path = PathOf("plan \u00E9\u20AC.kdf");
    CFile file(path, CFile::modeCreate | CFile::modeWrite);
    EXPECT_EQ(file.GetFilePath(), path);
    EXPECT_TRUE(std::filesystem::exists(m_root / "plan \u00E9\u20AC.kdf"));
}

TEST_F(FileOnDisk, OpenFailuresDescribeTheCause) {
    WriteBytes("plain", {'x'});
    std::filesystem::create_directory(m_root / "folder");
    const struct {
        std::string relativePath;
        unsigned flags;
        int cause;
        int osError;
    } cases[] = {{"missing.kdf", CFile::modeRead, CFileException::fileNotFound, ENOENT},
                 {"nowhere/x.kdf", CFile::modeCreate | CFile::modeWrite,
                  CFileException::fileNotFound, ENOENT},
                 {"plain/child", CFile::modeRead, CFileException::badPath, ENOTDIR},
                 {"folder", CFile::modeRead, CFileException::accessDenied, EISDIR}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.relativePath);
        const CString path = PathOf(test.relativePath);
        CFile file;
        CFileException error;
        EXPECT_FALSE(file.Open(path, test.flags, &error));
        EXPECT_FALSE(file.IsOpen());
        EXPECT_EQ(error.m_cause, test.cause);
        EXPECT_EQ(error.m_lOsError, test.osError);
        EXPECT_EQ(error.m_strFileName, path);
        EXPECT_FALSE(file.Open(path, test.flags));
        EXPECT_EQ(CauseOf([&] { CFile thrown(path, test.flags); }, path, test.osError), test.cause);
    }
}

TEST_F(FileOnDisk, ReadOnlyClosedAndReopenedFiles) {
    WriteBytes("first", {'1'});
    WriteBytes("second", {'2'});
    CFile file(PathOf("first"), CFile::modeRead);
    EXPECT_EQ(CauseOf([&] { file.Write("y", 1); }, PathOf("first"), EBADF),
              CFileException::invalidFile);
    EXPECT_THROW(file.Open(PathOf("second"), CFile::modeRead), InvalidArgumentException);

    file.Close();
    EXPECT_FALSE(file.IsOpen());
    char ch = 0;
    EXPECT_EQ(CauseOf([&] { file.Read(&ch, 1); }), CFileException::invalidFile);
    EXPECT_THROW(file.GetLength(), CFileException);
    EXPECT_NO_THROW(file.Close());
    EXPECT_NO_THROW(file.Abort());

    ASSERT_TRUE(file.Open(PathOf("second"), CFile::modeRead | CFile::shareDenyNone));
    EXPECT_EQ(file.Read(&ch, 1), 1u);
    EXPECT_EQ(ch, '2');
    EXPECT_EQ(file.GetFileName(), u"second");
}

TEST_F(FileOnDisk, SharingModesHoldOffOtherOpenersUntilTheFirstCloses) {
    constexpr unsigned read = CFile::modeRead;
    constexpr unsigned write = CFile::modeReadWrite;
    const struct {
        unsigned first;
        unsigned second;
        bool secondOpens;
    } cases[] = {{read | CFile::shareDenyWrite, read | CFile::shareDenyWrite, true},
                 {read | CFile::shareDenyWrite, write | CFile::shareDenyWrite, false},
                 {read | CFile::shareExclusive, read | CFile::shareDenyWrite, false},
                 {write | CFile::shareDenyWrite, read | CFile::shareDenyNone, true},
                 {write | CFile::shareExclusive, write | CFile::shareCompat, true}};
    WriteBytes("shared", {'x'});
    for (const auto& c : cases) {
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

TEST(FileException, ADiskFullErrorNamesItsCauseAndFile) {
    const auto full = [] { CFileException::ThrowOsError(ENOSPC, u"/full/disk.kdf"); };
    EXPECT_EQ(CauseOf(full, u"/full/disk.kdf", ENOSPC), CFileException::diskFull);
    EXPECT_THAT(full, testing::ThrowsMessage<CException>(testing::HasSubstr("disk full")));
}

TEST(MemFile, PositionsBytesAndPaths) {
    CMemFile file(Bytes{1, 2, 3, 4, 5});
    file.Seek(2, CFile::begin);
    EXPECT_THROW(file.Seek(std::numeric_limits<long long>::max(), CFile::current), CFileException);
    EXPECT_EQ(file.GetPosition(), 2u);
    // Cutting the length brings a position past the end back to it.
    file.SeekToEnd();
    file.SetLength(2);
    EXPECT_EQ(file.GetPosition(), 2u);

    file.Attach(Bytes{7, 8, 9});
    EXPECT_EQ(file.GetPosition(), 0u);
    std::uint8_t first = 0;
    file.Read(&first, 1);
    EXPECT_EQ(first, 7);
    EXPECT_EQ(file.Detach(), (Bytes{7, 8, 9}));
    EXPECT_EQ(file.GetLength(), 0u);
    EXPECT_EQ(file.GetPosition(), 0u);
}

} // namespace
} // namespace keel
