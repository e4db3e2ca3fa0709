#include "tests/support/archivebytes.h"
#include "tests/support/compoundprobe.h"
#include "tests/support/gsforacle.h"
#include "tests/support/tempfolder.h"

#include "keel/document/filehandlerdoc.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace keel {
namespace {

using test::Bytes;
using test::Concat;
using test::GsfElement;
using test::WideString;

Bytes Int32(std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    return {static_cast<std::uint8_t>(bits), static_cast<std::uint8_t>(bits >> 8),
            static_cast<std::uint8_t>(bits >> 16), static_cast<std::uint8_t>(bits >> 24)};
}

std::unique_ptr<QEnhMetaFile> Image(Bytes bytes) {
    auto image = std::make_unique<QEnhMetaFile>();
    image->m_bytes = std::move(bytes);
    return image;
}

// The images of a document as byte lists, nullopt for a null image.
std::vector<std::optional<Bytes>> ImagesOf(const QFileHandlerDoc& doc) {
    std::vector<std::optional<Bytes>> images;
    for (const auto& image : doc.GetPageImages())
        images.push_back(image ? std::optional<Bytes>(image->m_bytes) : std::nullopt);
    return images;
}

// A root storage in memory holding one stream "FileHandlers" with the given bytes, or none.
std::unique_ptr<CStorage> RootWith(const std::optional<Bytes>& stream) {
    test::GsfTree tree{{"Other", GsfElement{false, {9}}}};
    if (stream)
        tree["FileHandlers"] = GsfElement{false, *stream};
    return CStorage::OpenBytes(test::WriteWithGsf(tree), 0x12);
}

// A document holding three images, one of them null, that a load must replace or keep.
void GiveOldImages(QFileHandlerDoc& doc) {
    doc.SetImagesName(u"old");
    doc.AddPageImage(Image({7, 7}));
    doc.AddPageImage(nullptr);
    doc.AddPageImage(Image({8}));
}

const std::vector<std::optional<Bytes>> kOldImages = {Bytes{7, 7}, std::nullopt, Bytes{8}};

class FileHandlerDoc : public test::TempFolderTest {
protected:
    test::ScopedSchema m_schema{120};
};

TEST_F(FileHandlerDoc, TheStreamIsLaidOutByteForByteAndReadsBack) {
    QFileHandlerDoc doc;
    doc.SetImagesName(u"Pics");
    doc.AddPageImage(Image({1, 2, 3}));
    doc.AddPageImage(nullptr);
    // A metafile without bytes cannot be written whole: it goes as a null one.
    doc.AddPageImage(Image({}));
    const Bytes large = Bytes(10000, 0x5A);
    doc.AddPageImage(Image(large));

    std::unique_ptr<CStorage> root = CStorage::CreateFile(PathOf("doc.kdoc"), 0x1012);
    ASSERT_TRUE(root);
    doc.SaveToStorage(*root);
    // Saving committed the file: libgsf finds the stream on disk.
    const Bytes expected = Concat({Int32(-1),
                                   Int32(120),
                                   WideString(u"Pics"),
                                   Int32(4),
                                   Int32(3),
                                   {1, 2, 3},
                                   Int32(0),
                                   Int32(0),
                                   Int32(10000),
                                   large});
    EXPECT_EQ(test::ReadWithGsf(ReadBytes("doc.kdoc")).at("FileHandlers").bytes, expected);
    root.reset();

    QFileHandlerDoc back;
    GiveOldImages(back);
    std::unique_ptr<CStorage> reopened = CStorage::OpenFile(PathOf("doc.kdoc"), 0x10);
    ASSERT_TRUE(reopened);
    back.LoadFromStorage(*reopened);
    EXPECT_EQ(back.GetImagesName(), u"Pics");
    const std::vector<std::optional<Bytes>> images = {Bytes{1, 2, 3}, std::nullopt, std::nullopt,
                                                      large};
    EXPECT_EQ(ImagesOf(back), images);
    back.ReleaseAllPageImages();
    EXPECT_TRUE(back.GetPageImages().empty());
}

// What a load does with each kind of "FileHandlers" stream.
TEST_F(FileHandlerDoc, StreamsOfEachKindLoadAsTheyShould) {
    const Bytes oneImage = Concat({WideString(u"new"), Int32(1), Int32(2), {4, 5}});
    const struct {
        const char* what;
        std::optional<Bytes> stream;
        CString name;
        std::vector<std::optional<Bytes>> images;
    } cases[] = {
        {"missing stream", std::nullopt, u"old", kOldImages},
        {"empty stream", Bytes{}, u"old", kOldImages},
        {"version 106 reads the images",
         Concat({Int32(-1), Int32(106), oneImage}),
         u"new",
         {Bytes{4, 5}}},
        {"version 105 holds none", Concat({Int32(-1), Int32(105), oneImage}), u"old", kOldImages},
        {"no marker is version 21", Concat({Int32(-2), Int32(200), oneImage}), u"old", kOldImages},
        {"no images", Concat({Int32(-1), Int32(300), WideString(u""), Int32(0)}), u"", {}},
    };
    for (const auto& c : cases) {
        QFileHandlerDoc doc;
        GiveOldImages(doc);
        std::unique_ptr<CStorage> root = RootWith(c.stream);
        ASSERT_TRUE(root) << c.what;
        EXPECT_NO_THROW(doc.LoadFromStorage(*root)) << c.what;
        EXPECT_EQ(doc.GetImagesName(), c.name) << c.what;
        EXPECT_EQ(ImagesOf(doc), c.images) << c.what;
    }
}

// Damaged streams fail with the end of the stream and leave the images as they were; no count
// or size is trusted before the bytes are there.
TEST_F(FileHandlerDoc, DamagedStreamsFailAndKeepTheImages) {
    const Bytes head = Concat({Int32(-1), Int32(120), WideString(u"x")});
    const struct {
        const char* what;
        Bytes stream;
    } cases[] = {
        {"count beyond the stream", Concat({head, Int32(-1)})},
        {"count one too many", Concat({head, Int32(2), Int32(1), {1}})},
        {"size beyond the stream", Concat({head, Int32(1), Int32(0x7FFFFFFF), {1, 2}})},
        {"size one too many", Concat({head, Int32(1), Int32(3), {1, 2}})},
        {"cut in the name", Bytes(head.begin(), head.end() - 1)},
        {"cut in the marker", Bytes{0xFF, 0xFF}},
    };
    for (const auto& c : cases) {
        QFileHandlerDoc doc;
        GiveOldImages(doc);
        std::unique_ptr<CStorage> root = RootWith(c.stream);
        try {
            doc.LoadFromStorage(*root);
            ADD_FAILURE() << c.what << " was read";
        } catch (const CArchiveException& failure) {
            EXPECT_EQ(failure.m_cause, CArchiveException::endOfFile) << c.what;
        }
        EXPECT_EQ(doc.GetImagesName(), u"old") << c.what;
        EXPECT_EQ(ImagesOf(doc), kOldImages) << c.what;
    }
}

TEST_F(FileHandlerDoc, ReadingGivesTheVersionAndTheBytesAfterTheHeader) {
    const struct {
        const char* what;
        std::optional<Bytes> stream;
        bool found;
        int version;
        int reads;
        Bytes read;
    } cases[] = {
        {"missing", std::nullopt, false, 21, 0, {}},
        {"empty", Bytes{}, true, 21, 0, {}},
        {"marked", Concat({Int32(-1), Int32(77), {1, 2}}), true, 77, 1, {1, 2}},
        {"marked, nothing after", Concat({Int32(-1), Int32(130)}), true, 130, 1, {}},
        {"unmarked reads from the start", Concat({Int32(5), {1}}), true, 21, 1,
         Concat({Int32(5), {1}})},
    };
    for (const auto& c : cases) {
        test::CompoundProbe probe;
        std::unique_ptr<CStorage> root = RootWith(c.stream);
        int version = -5;
        EXPECT_EQ(probe.ReadFromStorage(*root, u"FileHandlers", version), c.found) << c.what;
        EXPECT_EQ(version, c.version) << c.what;
        EXPECT_EQ(probe.m_reads, c.reads) << c.what;
        if (c.reads) {
            EXPECT_EQ(probe.m_versionSeen, c.version) << c.what;
            EXPECT_EQ(probe.m_read, c.read) << c.what;
        }
    }
}

TEST_F(FileHandlerDoc, FailuresRunTheCleanUpsAndLeaveTheFile) {
    std::unique_ptr<CStorage> root = CStorage::CreateFile(PathOf("doc.kdoc"), 0x1012);
    test::CompoundProbe probe;
    probe.m_toWrite = {1, 2, 3};
    ASSERT_TRUE(probe.WriteToStorage(*root, u"Mine"));
    const Bytes saved = ReadBytes("doc.kdoc");
    EXPECT_EQ(test::ReadWithGsf(saved).at("Mine").bytes,
              Concat({Int32(-1), Int32(120), {1, 2, 3}}));

    probe.m_failWrite = true;
    EXPECT_THROW(probe.WriteToStorage(*root, u"Mine"), CArchiveException);
    EXPECT_EQ(probe.m_writeCleanups, 1);
    EXPECT_EQ(ReadBytes("doc.kdoc"), saved) << "nothing was committed";
    root->Revert();

    probe.m_failRead = true;
    int version = 0;
    EXPECT_THROW(probe.ReadFromStorage(*root, u"Mine", version), CArchiveException);
    EXPECT_EQ(probe.m_readCleanups, 1);
    EXPECT_EQ(probe.m_writeCleanups, 1);

    // A storage that refuses the stream gives its file failure.
    root.reset();
    std::unique_ptr<CStorage> readOnly = CStorage::OpenFile(PathOf("doc.kdoc"), 0x10);
    ASSERT_TRUE(readOnly);
    probe.m_failWrite = false;
    try {
        probe.WriteToStorage(*readOnly, u"Mine");
        ADD_FAILURE() << "wrote into a file open for reading";
    } catch (const CFileException& failure) {
        EXPECT_EQ(failure.m_cause, CFileException::accessDenied);
    }
}

} // namespace
} // namespace keel
