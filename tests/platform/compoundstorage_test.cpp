#include "tests/support/archivebytes.h"
#include "tests/support/gsforacle.h"
#include "tests/support/processlimits.h"
#include "tests/support/tempfolder.h"

#include "keel/platform/compoundstorage.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace keel {
namespace {

using test::Bytes;
using test::GsfElement;
using test::GsfTree;

constexpr unsigned kCreate = 0x1012;
constexpr unsigned kRead = 0x10;
constexpr int c_denied = CFileException::accessDenied;
constexpr int c_badPath = CFileException::badPath;
constexpr int c_notFound = CFileException::fileNotFound;
constexpr int c_sharing = CFileException::sharingViolation;

Bytes Pattern(std::size_t size, unsigned seed) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>((i * 131 + seed * 7 + (i >> 8)) & 0xFF);
    return bytes;
}

GsfElement Stream(Bytes bytes) {
    return GsfElement{false, std::move(bytes)};
}
GsfElement Storage() {
    return GsfElement{true, {}};
}

// Streams on both sides of the 4096-byte line between small and big blocks, an empty one, the
// summary stream's name, and storages nested two deep, one of them empty.
GsfTree SampleTree() {
    return GsfTree{
        {"Contents", Stream(Pattern(5000, 1))},
        {"\x05SummaryInformation", Stream(Pattern(120, 2))},
        {"Empty", Stream({})},
        {"Small4095", Stream(Pattern(4095, 3))},
        {"Big4096", Stream(Pattern(4096, 4))},
        {"Big4097", Stream(Pattern(4097, 5))},
        {"Pages", Storage()},
        {"Pages/Page 1", Stream(Pattern(10, 6))},
        {"Pages/Inner", Storage()},
        {"Pages/Inner/Deep", Stream(Pattern(70000, 7))},
        {"Nothing", Storage()},
    };
}

// Puts every element of `tree` into `root` through our classes.
void Fill(CStorage& root, const GsfTree& tree) {
    for (const auto& [path, element] : tree) {
        CStorage* storage = &root;
        std::unique_ptr<CStorage> opened;
        std::string rest = path;
        for (std::size_t slash; (slash = rest.find('/')) != std::string::npos;) {
            opened = storage->OpenStorage(CString::FromUtf8(rest.substr(0, slash)), kCreate);
            ASSERT_TRUE(opened) << path;
            storage = opened.get();
            rest = rest.substr(slash + 1);
        }
        const CString name = CString::FromUtf8(rest);
        if (element.isStorage) {
            ASSERT_TRUE(storage->CreateStorage(name, kCreate)) << path;
            continue;
        }
        CStreamFile stream;
        ASSERT_TRUE(stream.CreateStream(*storage, name, kCreate)) << path;
        stream.Write(element.bytes.data(), static_cast<unsigned>(element.bytes.size()));
        stream.Close();
    }
}

// Every element under `storage` read back through our classes.
void Collect(CStorage& storage, const std::string& prefix, GsfTree& tree) {
    for (const CStorageElement& element : storage.EnumElements()) {
        const std::string path = prefix + element.m_strName.ToUtf8();
        if (element.m_type == CStorageElement::typeStorage) {
            tree[path] = Storage();
            std::unique_ptr<CStorage> inner = storage.OpenStorage(element.m_strName, kRead);
            ASSERT_TRUE(inner) << path;
            Collect(*inner, path + "/", tree);
            continue;
        }
        CStreamFile stream;
        ASSERT_TRUE(stream.OpenStream(storage, element.m_strName, kRead)) << path;
        EXPECT_EQ(stream.GetLength(), element.m_size) << path;
        Bytes bytes(element.m_size);
        EXPECT_EQ(stream.Read(bytes.data(), static_cast<unsigned>(bytes.size())), bytes.size());
        tree[path] = Stream(std::move(bytes));
    }
}

GsfTree Collected(CStorage& root) {
    GsfTree tree;
    Collect(root, "", tree);
    return tree;
}

// The cause of a failure reported through `error`, or -1 when `action` succeeded.
int CauseOf(const std::function<bool(CFileException*)>& action) {
    CFileException error;
    return action(&error) ? -1 : error.m_cause;
}

class CompoundStorage : public test::TempFolderTest {
protected:
    std::unique_ptr<CStorage> Created(const std::string& name, const GsfTree& tree) {
        std::unique_ptr<CStorage> root = CStorage::CreateFile(PathOf(name), kCreate);
        EXPECT_TRUE(root);
        Fill(*root, tree);
        CFileException error;
        EXPECT_TRUE(root->Commit(CStorage::commitOverwrite | CStorage::commitConsolidate, &error))
            << error.what();
        return root;
    }
    // The cause of a failure to open or create the file `name`, or -1.
    int OpenCause(const std::string& name, unsigned flags) const {
        return CauseOf(
            [&](CFileException* e) { return !!CStorage::OpenFile(PathOf(name), flags, e); });
    }
    int CreateCause(const std::string& name, unsigned flags) const {
        return CauseOf(
            [&](CFileException* e) { return !!CStorage::CreateFile(PathOf(name), flags, e); });
    }
};

TEST_F(CompoundStorage, WrittenFilesReadBackThroughLibgsf) {
    const GsfTree tree = SampleTree();
    Created("doc.kdoc", tree).reset();
    EXPECT_EQ(test::ReadWithGsf(ReadBytes("doc.kdoc")), tree);
    EXPECT_EQ(Listing("."), std::vector<std::string>{"doc.kdoc"});
}

TEST_F(CompoundStorage, FilesOfLibgsfAreReadAndOursWriteBackByteForByte) {
    WriteBytes("theirs.kdoc", test::WriteWithGsf(SampleTree()));
    std::unique_ptr<CStorage> root = CStorage::OpenFile(PathOf("theirs.kdoc"), 0x12);
    ASSERT_TRUE(root);
    EXPECT_EQ(Collected(*root), SampleTree());
    ASSERT_TRUE(root->Commit(CStorage::commitOverwrite));
    const Bytes ours = ReadBytes("theirs.kdoc");
    EXPECT_EQ(test::ReadWithGsf(ours), SampleTree());

    // Read and written again, our file comes back the same, whatever order it was built in.
    std::unique_ptr<CStorage> memory = CStorage::OpenBytes(ours, kRead);
    ASSERT_TRUE(memory);
    EXPECT_EQ(memory->SaveToBytes(), ours);
    std::unique_ptr<CStorage> rebuilt = CStorage::OpenBytes({}, kCreate);
    const GsfTree tree = SampleTree();
    for (auto element = tree.rbegin(); element != tree.rend(); ++element) {
        if (element->first.find('/') == std::string::npos)
            Fill(*rebuilt, {*element});
    }
    for (const auto& element : tree) {
        if (element.first.find('/') != std::string::npos)
            Fill(*rebuilt, {element});
    }
    EXPECT_EQ(rebuilt->SaveToBytes(), ours);
}

// A stream seeks, writes and cuts as a memory file does, up to the 4 GiB that a stream can hold:
// a seek past the end leaves a gap of zeros at the next write, and a seek that fails leaves the
// position where it was.
TEST_F(CompoundStorage, StreamsSeekWriteAndCutUpToFourGiB) {
    std::unique_ptr<CStorage> root = CStorage::OpenBytes({}, kCreate);
    CStreamFile stream;
    ASSERT_TRUE(stream.CreateStream(*root, u"Data", kCreate));
    stream.Write("0123456789", 10);
    EXPECT_EQ(stream.Seek(4, CFile::end), 14u);
    stream.Write("z", 1);
    stream.SetLength(13);
    stream.SeekToBegin();
    char all[16] = {};
    EXPECT_EQ(stream.Read(all, sizeof all), 13u);
    EXPECT_EQ(std::string(all, 13), std::string("0123456789\0\0\0", 13));
    EXPECT_EQ(stream.Seek(0xFFFFFFFFll, CFile::begin), 0xFFFFFFFFu);
    stream.Seek(4, CFile::begin);
    const std::pair<long long, CFile::SeekPosition> refused[] = {
        {-5, CFile::current},
        {0x100000000ll, CFile::begin},
        {std::numeric_limits<long long>::max(), CFile::end}};
    for (const auto& [offset, from] : refused) {
        EXPECT_THROW(stream.Seek(offset, from), CFileException) << offset;
        EXPECT_EQ(stream.GetPosition(), 4u);
    }
    EXPECT_THROW(stream.Seek(0, static_cast<CFile::SeekPosition>(3)), InvalidArgumentException);
}

TEST_F(CompoundStorage, OpenModesAndNamesGiveTheirCauses) {
    const Bytes file = test::WriteWithGsf(SampleTree());
    std::unique_ptr<CStorage> writable = CStorage::OpenBytes(file, kCreate);
    std::unique_ptr<CStorage> readOnly = CStorage::OpenBytes(file, kRead);
    ASSERT_TRUE(writable && readOnly);
    CStreamFile held;
    ASSERT_TRUE(held.OpenStream(*writable, u"Big4096", kRead));
    const CString longest(std::u16string(31, u'n'));
    std::unique_ptr<CStorage> pagesForReading = writable->OpenStorage(u"Pages", kRead);

    enum Action { openStream, createStream, openStorage, createStorage, commit };
    const struct {
        const char* what;
        Action action;
        CStorage& storage;
        CString name;
        unsigned flags;
        int cause;
    } cases[] = {
        {"missing stream", openStream, *writable, u"Absent", kRead, c_notFound},
        {"stream opened as storage", openStorage, *writable, u"Contents", kRead, c_denied},
        {"storage opened as stream", openStream, *writable, u"Pages", kRead, c_denied},
        {"existing name without create", createStream, *writable, u"contents", 0x12, c_denied},
        {"stream open twice", openStream, *writable, u"BIG4096", kRead, c_sharing},
        {"create in read-only file", createStream, *readOnly, u"New", kCreate, c_denied},
        {"stream in storage opened for reading", createStream, *pagesForReading, u"New", kCreate,
         c_denied},
        {"commit of read-only file", commit, *readOnly, u"", 9, c_denied},
        {"empty name", createStream, *writable, u"", kCreate, c_badPath},
        {"32 characters", createStream, *writable, longest + u"n", kCreate, c_badPath},
        {"slash", createStorage, *writable, u"a/b", kCreate, c_badPath},
        {"exclamation mark", createStream, *writable, u"a!b", kCreate, c_badPath},
        {"31 characters", createStream, *writable, longest, kCreate, -1},
        {"existing name with create", createStream, *writable, u"CONTENTS", kCreate, -1},
        {"storage over an open element", createStorage, *writable, u"big4096", kCreate, c_denied},
        {"storage over a closed element", createStorage, *writable, u"EMPTY", kCreate, -1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CauseOf([&](CFileException* e) {
                      switch (c.action) {
                      case openStream:
                          return CStreamFile().OpenStream(c.storage, c.name, c.flags, e);
                      case createStream:
                          return CStreamFile().CreateStream(c.storage, c.name, c.flags, e);
                      case openStorage:
                          return !!c.storage.OpenStorage(c.name, c.flags, e);
                      case createStorage:
                          return !!c.storage.CreateStorage(c.name, c.flags, e);
                      case commit:
                          return c.storage.Commit(c.flags, e);
                      }
                      return false;
                  }),
                  c.cause)
            << c.what;
    }

    // Creating over an existing stream emptied it and kept the name as it was first written.
    const std::vector<CStorageElement> elements = writable->EnumElements();
    const auto contents = std::find_if(elements.begin(), elements.end(),
                                       [](const auto& e) { return e.m_strName == u"Contents"; });
    ASSERT_NE(contents, elements.end());
    EXPECT_EQ(contents->m_size, 0u);
    CStreamFile reading;
    ASSERT_TRUE(reading.OpenStream(*readOnly, u"Contents", kRead));
    EXPECT_THROW(reading.Write("x", 1), CFileException);
    EXPECT_THROW(reading.SetLength(0), CFileException);
}

TEST_F(CompoundStorage, RevertedElementsFailTheirHandles) {
    Created("doc.kdoc", SampleTree()).reset();
    const Bytes before = ReadBytes("doc.kdoc");
    std::unique_ptr<CStorage> root = CStorage::OpenFile(PathOf("doc.kdoc"), 0x12);
    ASSERT_TRUE(root);
    std::unique_ptr<CStorage> pages = root->OpenStorage(u"Pages", 0x12);
    CStreamFile contents;
    ASSERT_TRUE(contents.CreateStream(*root, u"Contents", kCreate));
    contents.Write("changed", 7);
    root->SetClassID({1, 2, 3});
    root->Revert();
    EXPECT_THROW(contents.Write("x", 1), CFileException);
    EXPECT_THROW(contents.Flush(), CFileException);
    EXPECT_EQ(CauseOf([&](CFileException* e) { return !!pages->CreateStorage(u"X", kCreate, e); }),
              CFileException::invalidFile);
    EXPECT_EQ(Collected(*root), SampleTree());
    EXPECT_EQ(root->GetClassID(), (std::array<std::uint8_t, 16>{}));
    EXPECT_EQ(ReadBytes("doc.kdoc"), before);
}

TEST_F(CompoundStorage, TheClassIdOfTheFileIsKept) {
    std::unique_ptr<CStorage> root = CStorage::OpenBytes({}, kCreate);
    const std::array<std::uint8_t, 16> rootID{0x10, 0x20, 0x30, 0x40, 5,  6,  7,  8,
                                              9,    10,   11,   12,   13, 14, 15, 16};
    root->SetClassID(rootID);
    ASSERT_TRUE(root->Commit(9));
    std::unique_ptr<CStorage> back = CStorage::OpenBytes(root->Bytes(), kRead);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->GetClassID(), rootID);
}

TEST_F(CompoundStorage, SharingModesHoldAgainstOtherOpeners) {
    Created("doc.kdoc", SampleTree()).reset();
    std::unique_ptr<CStorage> first = CStorage::OpenFile(PathOf("doc.kdoc"), 0x12);
    ASSERT_TRUE(first);
    EXPECT_EQ(OpenCause("doc.kdoc", kRead), c_sharing);
    // The lock passes to the new file when a commit replaces the old one.
    ASSERT_TRUE(first->Commit(9));
    EXPECT_EQ(OpenCause("doc.kdoc", kRead), c_sharing);
    first.reset();
    EXPECT_TRUE(CStorage::OpenFile(PathOf("doc.kdoc"), kRead));
}

TEST_F(CompoundStorage, CreatingRefusesAnExistingFileWithoutCreateAndAMissingFolder) {
    WriteBytes("old.kdoc", {1, 2, 3});
    EXPECT_EQ(CreateCause("old.kdoc", 0x12), c_denied);
    EXPECT_EQ(CreateCause("absent/new.kdoc", kCreate), c_badPath);
    EXPECT_EQ(OpenCause("absent.kdoc", kRead), c_notFound);
    // With create the old file is replaced, but only at the commit.
    std::unique_ptr<CStorage> root = CStorage::CreateFile(PathOf("old.kdoc"), kCreate);
    ASSERT_TRUE(root);
    EXPECT_EQ(ReadBytes("old.kdoc"), (Bytes{1, 2, 3}));
    ASSERT_TRUE(root->Commit(9));
    EXPECT_TRUE(test::ReadWithGsf(ReadBytes("old.kdoc")).empty());
}

TEST_F(CompoundStorage, AFailedSaveLeavesTheOldFileByteForByte) {
    Created("doc.kdoc", SampleTree()).reset();
    const Bytes before = ReadBytes("doc.kdoc");
    std::unique_ptr<CStorage> root = CStorage::OpenFile(PathOf("doc.kdoc"), 0x12);
    ASSERT_TRUE(root);
    CStreamFile big;
    ASSERT_TRUE(big.CreateStream(*root, u"Large", kCreate));
    const Bytes large = Pattern(1 << 20, 9);
    big.Write(large.data(), static_cast<unsigned>(large.size()));
    big.Close();
    CFileException error;
    {
        const test::FileSizeLimit limit(before.size() + 8192);
        EXPECT_FALSE(root->Commit(9, &error));
    }
    EXPECT_EQ(error.m_cause, CFileException::diskFull) << error.what();
    EXPECT_EQ(ReadBytes("doc.kdoc"), before);
    EXPECT_EQ(Listing("."), std::vector<std::string>{"doc.kdoc"}) << "the partial file is gone";
    // The changes are still there to be saved once the disk has room.
    ASSERT_TRUE(root->Commit(9, &error)) << error.what();
    root.reset();
    EXPECT_EQ(test::ReadWithGsf(ReadBytes("doc.kdoc")).at("Large").bytes, large);
}

// Damaged files are refused with invalidFile; that no damage crashes the reader is the fuzz
// harness's part.
TEST_F(CompoundStorage, TruncatedAndDamagedFilesAreRefused) {
    const Bytes good = test::WriteWithGsf(SampleTree());
    const struct {
        const char* what;
        Bytes bytes;
    } refused[] = {
        {"nothing", {}},
        {"header only", Bytes(good.begin(), good.begin() + 512)},
        {"half", Bytes(good.begin(), good.begin() + good.size() / 2)},
        {"all but the last sector", Bytes(good.begin(), good.end() - 512)},
    };
    for (const auto& c : refused) {
        WriteBytes("bad.kdoc", c.bytes);
        CFileException error;
        EXPECT_FALSE(CStorage::OpenFile(PathOf("bad.kdoc"), kRead, &error)) << c.what;
        EXPECT_EQ(error.m_cause, CFileException::invalidFile) << c.what;
        EXPECT_NE(std::string(error.what()).find("bad.kdoc"), std::string::npos) << error.what();
        if (!c.bytes.empty()) {
            EXPECT_FALSE(CStorage::OpenBytes(c.bytes, kRead, &error)) << c.what;
        }
    }
    // A stream that claims more bytes than it has: the file is refused, or the stream left out
    // (libgsf drops a directory entry it finds wrong), never handed out with that size.
    const Bytes name = test::WideUnits(u"Contents");
    const auto entry = std::search(good.begin(), good.end(), name.begin(), name.end());
    ASSERT_NE(entry, good.end());
    const std::size_t sizeField = static_cast<std::size_t>(entry - good.begin()) + 120;
    for (const Bytes& claimed : {Bytes{0x00, 0x00, 0x01, 0x00}, Bytes{0x00, 0x00, 0x10, 0x00}}) {
        Bytes oversized = good;
        std::copy(claimed.begin(), claimed.end(), oversized.begin() + sizeField);
        CFileException error;
        std::unique_ptr<CStorage> root = CStorage::OpenBytes(oversized, kRead, &error);
        if (!root) {
            EXPECT_EQ(error.m_cause, CFileException::invalidFile) << error.what();
            continue;
        }
        for (const CStorageElement& element : root->EnumElements())
            EXPECT_NE(element.m_strName, u"Contents");
    }
}

TEST_F(CompoundStorage, NestingIsBoundedAtThirtyTwoStorages) {
    for (const int depth : {CStorage::c_maxDepth, CStorage::c_maxDepth + 1}) {
        std::string path;
        for (int level = 0; level < depth; ++level)
            path += (level ? "/S" : "S") + std::to_string(level);
        const Bytes file = test::WriteWithGsf({{path + "/leaf", Stream({1, 2, 3})}});
        CFileException error;
        std::unique_ptr<CStorage> root = CStorage::OpenBytes(file, kRead, &error);
        EXPECT_EQ(!!root, depth == CStorage::c_maxDepth) << depth;
        if (!root) {
            EXPECT_NE(std::string(error.what()).find("nested more than 32"), std::string::npos)
                << error.what();
        }
    }
}

} // namespace
} // namespace keel
