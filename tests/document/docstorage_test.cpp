#include "tests/support/answerdocument.h"
#include "tests/support/compoundprobe.h"
#include "tests/support/docitems.h"
#include "tests/support/gsforacle.h"
#include "tests/support/propertysets.h"
#include "tests/support/tempfolder.h"

#include "keel/document/doc.h"
#include "keel/platform/schema.h"

#include <gtest/gtest.h>

namespace keel {
namespace {

using test::Bytes;

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
    ASSERT_EQ(loaded.GetItemCount(), 4);
    EXPECT_EQ(static_cast<test::TestNote&>(*loaded.Items()[0]).m_text, u"first note");
    EXPECT_EQ(static_cast<test::TestShape&>(*loaded.Items()[1]).m_size, 123456);
    EXPECT_EQ(static_cast<test::TestNote&>(*loaded.Items()[2]).m_text, u"second note");
    EXPECT_EQ(loaded.VersionLoaded(), 120);
    EXPECT_EQ(loaded.GetImagesName(), u"pages");
    ASSERT_EQ(loaded.GetPageImages().size(), 2u);
    EXPECT_EQ(loaded.GetPageImages()[0]->m_bytes, (std::vector<std::uint8_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(loaded.GetPageImages()[1], nullptr);
    EXPECT_EQ(loaded.SummaryInformation().GetTitle(), u"Kitchen");
    EXPECT_EQ(loaded.SummaryInformation().GetAuthor(), u"Ann");
    ASSERT_NE(loaded.GetDocProperties(), nullptr);
    EXPECT_TRUE(loaded.GetDocProperties()->IsSameSpecificationAs(*saved.GetDocProperties()));
    EXPECT_EQ(loaded.GetPathName(), PathOf("kitchen.kdoc"));

    // Saving what was loaded, at the same time, gives the same file again.
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
    const Bytes& handlers = tree.at("FileHandlers").bytes;
    ASSERT_GE(handlers.size(), 8u);
    EXPECT_EQ(Bytes(handlers.begin(), handlers.begin() + 8),
              (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 120, 0, 0, 0}));
    const test::GsfSummary summary =
        test::ReadSummaryWithGsf(tree.at("\x05SummaryInformation").bytes);
    ASSERT_TRUE(summary.read);
    EXPECT_EQ(summary.texts.at("title"), "Kitchen");
    EXPECT_EQ(summary.texts.at("author"), "Ann");
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
    const test::GsfSummary read = test::ReadSummaryWithGsf(
        test::ReadWithGsf(ReadBytes("d.kdoc")).at("\x05SummaryInformation").bytes);
    EXPECT_EQ(read.times.at("create_dtm"), clock.UnixSeconds() - 2 * 60);
    EXPECT_EQ(read.times.at("lastsave_dtm"), clock.UnixSeconds());

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

TEST_F(DocStorageTest, SavesAreDatedByTheSystemClock) {
    QDoc document;
    const std::uint64_t before = CurrentFileTime().Ticks();
    document.SaveDocument(PathOf("d.kdoc"));
    const std::uint64_t after = CurrentFileTime().Ticks();
    const QSummaryInformationPropertySet& summary = document.SummaryInformation();
    EXPECT_LE(before, summary.GetLastSaveDate().Ticks());
    EXPECT_LE(summary.GetLastSaveDate().Ticks(), after);
    EXPECT_EQ(summary.GetCreateDate(), summary.GetLastSaveDate());
    EXPECT_LE(summary.GetEditTime().Ticks(), after - before);
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

TEST_F(DocStorageTest, DocumentWithoutAnswersKeepsNone) {
    QDoc document;
    document.SetDocProperties(QProperties());
    document.SaveDocument(PathOf("empty.kdoc"));
    const test::GsfTree tree = test::ReadWithGsf(ReadBytes("empty.kdoc"));
    EXPECT_EQ(tree.at("Contents").bytes, (Bytes{0xBA, 0xBA, 120, 0, 0, 0, 0, 0, 0, 0}));
    QDoc loaded;
    loaded.LoadDocument(PathOf("empty.kdoc"));
    EXPECT_EQ(loaded.GetItemCount(), 0);
    EXPECT_EQ(loaded.GetDocProperties(), nullptr);
}

TEST_F(DocStorageTest, SettingAnswersTwiceKeepsOneItem) {
    QDoc document;
    test::AnswerDocument root;
    root.Answers().SetPropertyValueWithFormula(PropId("a"), QAnyValue(), FormulaText("1"));
    document.SetDocProperties(root.Answers());
    root.Answers().SetPropertyValueWithFormula(PropId("b"), QAnyValue(), FormulaText("2"));
    document.SetDocProperties(root.Answers());
    ASSERT_EQ(document.GetItemCount(), 1);
    EXPECT_EQ(document.GetDocProperties()->PropertyCount(), 2);
}

// Files that are not documents: each load fails with the failure that names what is wrong.
TEST_F(DocStorageTest, LoadRefusesWhatIsNoDocument) {
    WriteBytes("text.kdoc", Bytes{'h', 'e', 'l', 'l', 'o'});
    QDoc document;
    try {
        document.LoadDocument(PathOf("text.kdoc"));
        FAIL() << "a text file loaded";
    } catch (const CFileException& failure) {
        EXPECT_EQ(failure.m_cause, CFileException::invalidFile);
    }

    WriteBytes("nocontents.kdoc", test::WriteWithGsf({{"Other", {false, {1, 2}}}}));
    try {
        document.LoadDocument(PathOf("nocontents.kdoc"));
        FAIL() << "a file without Contents loaded";
    } catch (const CFileException& failure) {
        EXPECT_EQ(failure.m_cause, CFileException::fileNotFound);
    }

    WriteBytes("badmagic.kdoc", test::WriteWithGsf({{"Contents", {false, {0xAB, 0xAB, 7, 0}}}}));
    try {
        document.LoadDocument(PathOf("badmagic.kdoc"));
        FAIL() << "a wrong magic loaded";
    } catch (const CArchiveException& failure) {
        EXPECT_EQ(failure.m_cause, CArchiveException::genericException);
    }

    try {
        document.LoadDocument(PathOf("missing.kdoc"));
        FAIL() << "a missing file loaded";
    } catch (const CFileException& failure) {
        EXPECT_EQ(failure.m_cause, CFileException::fileNotFound);
    }
}

TEST_F(DocStorageTest, PropertySetStorageRoundTrip) {
    std::unique_ptr<CStorage> root = CStorage::OpenBytes({}, 0x1012);
    QSummaryInformationPropertySet written;
    written.SetTitle(u"Plan");
    written.SetPageCount(3);
    ASSERT_TRUE(written.WriteToStorage(*root));
    const test::GsfTree tree = test::ReadWithGsf(root->Bytes());
    ASSERT_TRUE(tree.contains("\x05SummaryInformation"));

    QSummaryInformationPropertySet read;
    ASSERT_TRUE(read.ReadFromStorage(*root));
    EXPECT_EQ(read.GetTitle(), u"Plan");
    EXPECT_EQ(read.GetPageCount(), 3);

    // A set of another name finds no stream of its own in the storage.
    QPropertySet other(u"DocumentSummaryInformation", nullptr);
    EXPECT_FALSE(other.ReadFromStorage(*root));

    // A storage opened for reading refuses the write and is left as it was.
    std::unique_ptr<CStorage> readOnly = CStorage::OpenBytes(root->Bytes(), 0x10);
    EXPECT_FALSE(written.WriteToStorage(*readOnly));
    EXPECT_EQ(readOnly->Bytes(), root->Bytes());
}

} // namespace
} // namespace keel
