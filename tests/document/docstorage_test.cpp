#include "tests/support/answerdocument.h"
#include "tests/support/archivebytes.h"
#include "tests/support/compoundprobe.h"
#include "tests/support/docitems.h"
#include "tests/support/errorreports.h"
#include "tests/support/gsforacle.h"
#include "tests/support/propertysets.h"
#include "tests/support/tempfolder.h"
#include "tests/support/uihosts.h"

#include "keel/document/doc.h"
#include "keel/document/filehandlerdoc.h"
#include "keel/platform/schema.h"
#include "keel/system/currentdirectory.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace keel {
namespace {

using test::Bytes;
using test::Concat;
using test::GsfElement;
using test::WideString;

class DocStorageTest : public test::TempFolderTest {
protected:
    // Items of three classes, two page images (one of them null), summary texts and answers.
    void Fill(QDoc& document) {
        document.AddItem(std::make_unique<test::TestNote>(u"first note"));
        document.AddItem(std::make_unique<test::TestShape>(123456));
        document.AddItem(std::make_unique<test::TestNote>(u"second note"));
        document.SetImagesName(u"pages");
        document.AddPageImage(std::make_unique<QEnhMetaFile>(QEnhMetaFile{{1, 2, 3, 4, 5}}));
        document.AddPageImage(nullptr);
        document.SummaryInformation().SetTitle(u"Kitchen");
        document.SummaryInformation().SetAuthor(u"Ann");
        test::AnswerDocument root;
        root.Answers().SetPropertyValueWithFormula(PropId("width"), QAnyValue(),
                                                   FormulaText("2 m"));
        root.Answers().SetPropertyValueWithFormula(PropId("label"), QAnyValue(),
                                                   FormulaText("\"oak\""));
        document.SetDocProperties(root.Answers());
    }

    // Streams of versions up to 105 hold no page images.
    test::ScopedSchema m_schema{120};
    // 14 November 2023 22:13:20 UTC.
    static constexpr std::uint64_t c_savedAt =
        c_fileTimeTicksAtUnixEpoch + 1'700'000'000ull * c_fileTimeTicksPerSecond;
};

TEST_F(DocStorageTest, SavedDocumentLoadsBackEqual) {
    test::StillClock clock{c_savedAt};
    QDoc saved;
    saved.SummaryInformation().SetClock(clock.Reader());
    Fill(saved);
    saved.SaveDocument(PathOf("kitchen.kdoc"));

    QDoc loaded;
    loaded.SummaryInformation().SetClock(clock.Reader());
    loaded.LoadDocument(PathOf("kitchen.kdoc"));
    EXPECT_EQ(loaded.GetItemCount(), 4);
    EXPECT_EQ(loaded.GetPathName(), PathOf("kitchen.kdoc"));

    // Saving what was loaded, at the same time, gives the same file again: the items, the
    // images, the summary and the answers all came back.
    loaded.SaveDocument(PathOf("again.kdoc"));
    EXPECT_EQ(ReadBytes("again.kdoc"), ReadBytes("kitchen.kdoc"));
}

TEST_F(DocStorageTest, LibgsfReadsTheStreams) {
    QDoc document;
    Fill(document);
    document.SaveDocument(PathOf("d.kdoc"));

    const test::GsfTree tree = test::ReadWithGsf(ReadBytes("d.kdoc"));
    ASSERT_EQ(tree.size(), 3u);
    ASSERT_TRUE(tree.contains("Contents"));
    ASSERT_TRUE(tree.contains("FileHandlers"));
    ASSERT_TRUE(tree.contains("\x05SummaryInformation"));
    const Bytes& contents = tree.at("Contents").bytes;
    // The magic, the schema, and the count of items that are not blank.
    ASSERT_GE(contents.size(), 10u);
    EXPECT_EQ(Bytes(contents.begin(), contents.begin() + 10),
              (Bytes{0xBA, 0xBA, 120, 0, 0, 0, 4, 0, 0, 0}));
}

// The summary's dates follow the saves of the document and of the file it was loaded from: the
// create date is that of the first save, the edit time adds up the spans from the start (or the
// load) to each save.
TEST_F(DocStorageTest, EachSaveDatesTheSummary) {
    constexpr std::uint64_t c_minute = 60 * c_fileTimeTicksPerSecond;
    test::StillClock clock{c_savedAt};
    QDoc document;
    document.SummaryInformation().SetClock(clock.Reader());
    const QSummaryInformationPropertySet& summary = document.SummaryInformation();
    clock.Advance(5 * 60);
    const std::uint64_t firstSave = clock.ticks;
    document.SaveDocument(PathOf("d.kdoc"));
    EXPECT_EQ(summary.GetCreateDate().Ticks(), firstSave);
    EXPECT_EQ(summary.GetLastSaveDate().Ticks(), firstSave);
    EXPECT_EQ(summary.GetEditTime().Ticks(), 5 * c_minute);

    clock.Advance(2 * 60);
    document.SaveDocument(PathOf("d.kdoc"));
    EXPECT_EQ(summary.GetCreateDate().Ticks(), firstSave);
    EXPECT_EQ(summary.GetLastSaveDate().Ticks(), clock.ticks);
    EXPECT_EQ(summary.GetEditTime().Ticks(), 7 * c_minute);

    // An hour passes before the file is opened again; it does not count as editing.
    clock.Advance(60 * 60);
    QDoc reopened;
    reopened.SummaryInformation().SetClock(clock.Reader());
    reopened.LoadDocument(PathOf("d.kdoc"));
    clock.Advance(60);
    reopened.SaveDocument(PathOf("copy.kdoc"));
    const QSummaryInformationPropertySet& copy = reopened.SummaryInformation();
    EXPECT_EQ(copy.GetCreateDate().Ticks(), firstSave);
    EXPECT_EQ(copy.GetLastSaveDate().Ticks(), clock.ticks);
    EXPECT_EQ(copy.GetEditTime().Ticks(), 8 * c_minute);
}

// A file whose summary is missing or cannot be read loads with an empty summary that takes
// texts and dates again.
TEST_F(DocStorageTest, AFileWithoutASummaryLoadsWithAnEmptyOne) {
    const Bytes contents{0xBA, 0xBA, 120, 0, 0, 0, 0, 0, 0, 0};
    const Bytes damaged{0xFE, 0xFF, 0, 0};
    for (const test::GsfTree& tree :
         {test::GsfTree{{"Contents", {false, contents}}},
          test::GsfTree{{"Contents", {false, contents}},
                        {"\x05SummaryInformation", {false, damaged}}}}) {
        WriteBytes("bare.kdoc", test::WriteWithGsf(tree));
        QDoc document;
        document.LoadDocument(PathOf("bare.kdoc"));
        EXPECT_TRUE(document.SummaryInformation().GetTitle().IsEmpty());
        EXPECT_EQ(document.SummaryInformation().GetCreateDate().Ticks(), 0u);
        document.SummaryInformation().SetTitle(u"Named later");
        document.SaveDocument(PathOf("named.kdoc"));

        QDoc loaded;
        loaded.LoadDocument(PathOf("named.kdoc"));
        EXPECT_EQ(loaded.SummaryInformation().GetTitle(), u"Named later");
        EXPECT_NE(loaded.SummaryInformation().GetCreateDate().Ticks(), 0u);
    }
}

TEST_F(DocStorageTest, FailedSaveLeavesTheFileAsItWas) {
    QDoc first;
    Fill(first);
    first.SaveDocument(PathOf("d.kdoc"));
    const Bytes before = ReadBytes("d.kdoc");

    QDoc second;
    second.AddItem(std::make_unique<test::TestNote>(u"kept out"));
    second.AddItem(std::make_unique<test::TestBroken>());
    second.SummaryInformation().SetTitle(u"Other");
    EXPECT_THROW(second.SaveDocument(PathOf("d.kdoc")), CFileException);
    EXPECT_EQ(ReadBytes("d.kdoc"), before);
    EXPECT_EQ(Listing(""), std::vector<std::string>{"d.kdoc"});
    EXPECT_TRUE(second.GetPathName().IsEmpty());
}

TEST_F(DocStorageTest, ADocumentKeepsOneItemOfAnswersOrNone) {
    QDoc document;
    document.SetDocProperties(QProperties());
    document.SaveDocument(PathOf("empty.kdoc"));
    QDoc loaded;
    loaded.LoadDocument(PathOf("empty.kdoc"));
    EXPECT_EQ(loaded.GetItemCount(), 0);
    EXPECT_EQ(loaded.GetDocProperties(), nullptr);

    // Setting answers twice keeps one item.
    test::AnswerDocument root;
    root.Answers().SetPropertyValueWithFormula(PropId("a"), QAnyValue(), FormulaText("1"));
    document.SetDocProperties(root.Answers());
    root.Answers().SetPropertyValueWithFormula(PropId("b"), QAnyValue(), FormulaText("2"));
    document.SetDocProperties(root.Answers());
    ASSERT_EQ(document.GetItemCount(), 1);
    EXPECT_EQ(document.GetDocProperties()->PropertyCount(), 2);
}

TEST_F(DocStorageTest, LoadRefusesWhatIsNoDocument) {
    WriteBytes("text.kdoc", Bytes{'h', 'e', 'l', 'l', 'o'});
    WriteBytes("nocontents.kdoc", test::WriteWithGsf({{"Other", {false, {1, 2}}}}));
    WriteBytes("badmagic.kdoc", test::WriteWithGsf({{"Contents", {false, {0xAB, 0xAB, 7, 0}}}}));
    const struct {
        const char* file;
        bool fileFailure; // else an archive failure
        int cause;
    } cases[] = {
        {"text.kdoc", true, CFileException::invalidFile},
        {"nocontents.kdoc", true, CFileException::fileNotFound},
        {"badmagic.kdoc", false, CArchiveException::genericException},
        {"missing.kdoc", true, CFileException::fileNotFound},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        QDoc document;
        try {
            document.LoadDocument(PathOf(c.file));
            ADD_FAILURE() << "loaded";
        } catch (const CFileException& failure) {
            EXPECT_TRUE(c.fileFailure);
            EXPECT_EQ(failure.m_cause, c.cause);
        } catch (const CArchiveException& failure) {
            EXPECT_FALSE(c.fileFailure);
            EXPECT_EQ(failure.m_cause, c.cause);
        }
    }
}

TEST_F(DocStorageTest, PropertySetStorageRefusals) {
    std::unique_ptr<CStorage> root = CStorage::OpenBytes({}, 0x1012);
    QSummaryInformationPropertySet written;
    written.SetTitle(u"Plan");
    ASSERT_TRUE(written.WriteToStorage(*root));

    // A set of another name finds no stream of its own in the storage.
    QPropertySet other(u"DocumentSummaryInformation", nullptr);
    EXPECT_FALSE(other.ReadFromStorage(*root));

    // A storage opened for reading refuses the write and is left as it was.
    std::unique_ptr<CStorage> readOnly = CStorage::OpenBytes(root->Bytes(), 0x10);
    EXPECT_FALSE(written.WriteToStorage(*readOnly));
    EXPECT_EQ(readOnly->Bytes(), root->Bytes());
}

Bytes Int32(std::int32_t value) {
    return test::LittleEndian32(static_cast<std::uint32_t>(value));
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

TEST_F(DocStorageTest, TheStreamIsLaidOutByteForByteAndReadsBack) {
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

TEST_F(DocStorageTest, StreamsOfEachKindLoadAsTheyShould) {
    const Bytes oneImage = Concat({WideString(u"new"), Int32(1), Int32(2), {4, 5}});
    const struct {
        const char* what;
        std::optional<Bytes> stream;
        CString name;
        std::vector<std::optional<Bytes>> images;
    } cases[] = {
        {"missing stream", std::nullopt, u"old", kOldImages},
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
TEST_F(DocStorageTest, DamagedStreamsFailAndKeepTheImages) {
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

TEST_F(DocStorageTest, ReadingGivesTheVersionAndTheBytesAfterTheHeader) {
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

TEST_F(DocStorageTest, FailuresRunTheCleanUpsAndLeaveTheFile) {
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

// A document of a kind with file extensions, whose application hooks are written down.
class SavingDoc : public QDoc {
public:
    CString GetFilterExtensions() const override { return extensions; }
    int ExtensionNumberToUse() override { return extensionNumber; }
    void CopyRenameAncillaryFiles(const CString& oldPath, const CString& newPath) override {
        ancillaryMoves.emplace_back(oldPath.ToUtf8(), newPath.ToUtf8());
    }
    bool OnFileSaveAction() override {
        ++saveActions;
        return saveActionTakesOver;
    }

    CString extensions;
    int extensionNumber = 0;
    bool saveActionTakesOver = false;
    int saveActions = 0;
    std::vector<std::pair<std::string, std::string>> ancillaryMoves;
};

TEST(SuggestedSaveName, ComesFromThePathOrTheTitle) {
    const struct {
        const char* title;
        const char* path;
        const char* extensions;
        int extensionNumber;
        bool replace;
        const char* expected;
    } cases[] = {{"Kitchen", "/plans/k.kdoc", ".kdoc", 0, false, "/plans/k.kdoc"},
                 // A copy of a document without a path has no name to start from.
                 {"Kitchen", "", ".kdoc", 0, false, ""},
                 {"Kitchen", "", "", 0, true, "Kitchen"},
                 // The title is cut at the first character that a file name should not begin with.
                 {"Kitchen plan", "", ".kdoc", 0, true, "Kitchen.kdoc"},
                 {"#1", "", ".kdoc", 0, true, ".kdoc"},
                 // The extension is picked from the list by number; past its end, the last one.
                 {"Roof", "", ".kdoc;.kbak;.ktpl", 2, true, "Roof.ktpl"},
                 {"Roof", "", ".kdoc;.kbak;.ktpl", 7, true, "Roof.ktpl"}};
    for (const auto& c : cases) {
        SavingDoc document;
        document.SetTitle(CString::FromUtf8(c.title));
        document.SetPathName(CString::FromUtf8(c.path));
        document.extensions = CString::FromUtf8(c.extensions);
        document.extensionNumber = c.extensionNumber;
        EXPECT_EQ(document.SuggestedSaveName(c.replace).ToUtf8(), c.expected)
            << c.title << "|" << c.path << "|" << c.extensionNumber << c.replace;
    }
}

// Saves into a folder of the test's own, with the error log empty and a still clock.
class DocSaveTest : public test::TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        // The error log is kept outside the folder, whose files the tests count.
        TheErrorLog().SetFilename(
            CString::FromUtf8((std::filesystem::temp_directory_path() /
                               ("keel-docsave-" + std::to_string(::getpid()) + ".txt"))
                                  .string()));
        TheErrorLog().DiscardPendingMessages();
        m_document.SummaryInformation().SetClock(m_clock.Reader());
        m_document.AddItem(std::make_unique<test::TestNote>(u"kept"));
    }
    void TearDown() override {
        TheErrorLog().DiscardPendingMessages();
        TempFolderTest::TearDown();
    }

    // The notes of the document saved at `name`.
    std::vector<std::string> NotesIn(const std::string& name) {
        QDoc loaded;
        loaded.LoadDocument(PathOf(name));
        std::vector<std::string> notes;
        for (const auto& item : loaded.Items())
            notes.push_back(static_cast<const test::TestNote&>(*item).m_text.ToUtf8());
        return notes;
    }

    test::StillClock m_clock{c_fileTimeTicksAtUnixEpoch};
    SavingDoc m_document;
    test::ScopedSchema m_schema{7};
};

TEST_F(DocSaveTest, SaveAsTakesTheNameAndACopyLeavesThePath) {
    ASSERT_TRUE(m_document.DoSave(PathOf("first.kdoc")));
    EXPECT_EQ(m_document.GetPathName(), PathOf("first.kdoc"));
    EXPECT_EQ(NotesIn("first.kdoc"), std::vector<std::string>{"kept"});

    ASSERT_TRUE(m_document.DoSave(PathOf("copy.kdoc"), false));
    EXPECT_EQ(m_document.GetPathName(), PathOf("first.kdoc"));
    EXPECT_EQ(NotesIn("copy.kdoc"), std::vector<std::string>{"kept"});

    // The same name again moves no ancillary files.
    ASSERT_TRUE(m_document.DoSave(PathOf("first.kdoc")));
    EXPECT_EQ(m_document.ancillaryMoves,
              (std::vector<std::pair<std::string, std::string>>{
                  {"", Path("first.kdoc")}, {Path("first.kdoc"), Path("copy.kdoc")}}));
    EXPECT_EQ(test::PendingReports(), std::vector<test::Report>{});

    // An embedded document takes the name of a copy.
    m_document.SetEmbedded(true);
    ASSERT_TRUE(m_document.DoSave(PathOf("inner.kdoc"), false));
    EXPECT_EQ(m_document.GetPathName(), PathOf("inner.kdoc"));
}

TEST_F(DocSaveTest, MissingFoldersAreMadeAndARelativeNameIsTakenFromTheCurrentFolder) {
    ASSERT_TRUE(m_document.DoSave(PathOf("new/deeper/d.kdoc")));
    EXPECT_EQ(NotesIn("new/deeper/d.kdoc"), std::vector<std::string>{"kept"});

    const QSaveAndRestoreCurrentDirectory inside(PathOf("new"));
    ASSERT_TRUE(inside.IsEntered());
    ASSERT_TRUE(m_document.DoSave(u"relative.kdoc"));
    EXPECT_EQ(m_document.GetPathName(), PathOf("new/relative.kdoc"));
    EXPECT_EQ(NotesIn("new/relative.kdoc"), std::vector<std::string>{"kept"});
}

// Without a name the host's file dialog is asked, with the document's extensions as its filter.
TEST_F(DocSaveTest, WithoutANameTheHostIsAsked) {
    m_document.SetTitle(u"Roof plan");
    m_document.extensions = u".kdoc;.kbak";
    test::ExportDialogHost host;
    const test::ScopedUIServices installed(host);

    EXPECT_FALSE(m_document.DoSave(CString()));
    EXPECT_EQ(Listing(""), std::vector<std::string>{});
    EXPECT_TRUE(m_document.GetPathName().IsEmpty());

    host.chosenPath = Path("chosen.kdoc");
    EXPECT_TRUE(m_document.DoSave(CString()));
    EXPECT_EQ(m_document.GetPathName(), PathOf("chosen.kdoc"));
    host.chosenPath = Path("copy.kdoc");
    EXPECT_TRUE(m_document.DoSave(CString(), false));
    EXPECT_EQ(m_document.GetPathName(), PathOf("chosen.kdoc"));
    EXPECT_EQ(Listing(""), (std::vector<std::string>{"chosen.kdoc", "copy.kdoc"}));

    ASSERT_EQ(host.dialogs.size(), 3u);
    for (const auto& dialog : host.dialogs) {
        EXPECT_TRUE(dialog.save);
        EXPECT_EQ(dialog.filter, "*.kdoc;*.kbak|*.kdoc;*.kbak||");
        EXPECT_EQ(dialog.defaultExt, "kdoc");
    }
}

TEST_F(DocSaveTest, WithoutADisplayASaveWithoutANameSavesNothing) {
    EXPECT_FALSE(m_document.DoSave(CString()));
    EXPECT_FALSE(m_document.OnFileSave());
    EXPECT_EQ(Listing(""), std::vector<std::string>{});
    EXPECT_EQ(test::PendingReports(), std::vector<test::Report>{});
}

// A failed save reports the reason in the error log and keeps the document's path; the file
// that was there stays as it was.
TEST_F(DocSaveTest, AFailedSaveIsReportedAndChangesNothing) {
    WriteBytes("plain.txt", {'x'});
    CString reason;
    try {
        QDoc().SaveDocument(PathOf("plain.txt/d.kdoc"));
        FAIL() << "a file was written inside a file";
    } catch (const CFileException& failure) {
        reason = ErrorMessage(failure);
    }
    ASSERT_TRUE(m_document.DoSave(PathOf("d.kdoc")));

    EXPECT_FALSE(m_document.DoSave(PathOf("plain.txt/d.kdoc")));
    EXPECT_EQ(m_document.GetPathName(), PathOf("d.kdoc"));
    EXPECT_EQ(test::PendingReports(), (std::vector<test::Report>{{"Error", reason.ToUtf8()}}));
    EXPECT_NE(reason.Find(PathOf("plain.txt/d.kdoc")), -1);
}

} // namespace
} // namespace keel
