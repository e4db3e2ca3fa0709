#include "tests/support/archivebytes.h"
#include "tests/support/compoundprobe.h"
#include "tests/support/docitems.h"
#include "tests/support/errorreports.h"
#include "tests/support/homefolder.h"
#include "tests/support/pagescene.h"
#include "tests/support/progressservices.h"
#include "tests/support/tempfolder.h"
#include "tests/support/uihosts.h"

#include "keel/document/doc.h"
#include "keel/document/pagedocument.h"
#include "keel/document/winapp.h"
#include "keel/platform/schema.h"
#include "keel/values/length.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::Bytes;
using test::Concat;
using test::Loading;
using test::Report;
using test::Stored;
using test::TestBroken;
using test::TestGroup;
using test::TestNote;
using test::TestShape;
using test::WideString;

constexpr int kDefaultSchema = 7;
constexpr int kUnsupportedSchema = 3;
const char16_t* const kPath = u"/drawings/house.drw";

Bytes NewClass(std::uint16_t schema, const std::string& name) {
    return test::NewClassRecord(schema, name);
}

Bytes Int32(std::int32_t value) {
    return test::LittleEndian32(static_cast<std::uint32_t>(value));
}

// The magic, the schema and the count of items.
Bytes Header(std::int32_t schema, std::int32_t count) {
    return Concat({{0xBA, 0xBA}, Int32(schema), Int32(count)});
}

// Notes "1" to "n", each after the first of the class met before.
Bytes Notes(int count) {
    Bytes bytes;
    for (int i = 1; i <= count; ++i) {
        const std::u16string text = std::u16string(1, static_cast<char16_t>(u'0' + i));
        bytes =
            Concat({bytes, i == 1 ? NewClass(1, "TestNote") : Bytes{0x01, 0x80}, WideString(text)});
    }
    return bytes;
}

std::string What(const std::exception& failure) {
    return failure.what();
}

std::vector<std::string> NoteTexts(const QDoc& document) {
    std::vector<std::string> texts;
    for (const auto& item : document.Items())
        texts.push_back(static_cast<const TestNote&>(*item).m_text.ToUtf8());
    return texts;
}

// Documents of schema 7 that can no longer open schema 3, with a recording host and recording
// progress, and an empty error log.
class DocTest : public test::ErrorReportsTest {
protected:
    void SetUp() override {
        ErrorReportsTest::SetUp();
        QSchema::SetUnsupportedSchema(kUnsupportedSchema);
        m_document.SetPathName(kPath);
    }

    Bytes Store(QDoc& document) {
        return Stored([&](CArchive& archive) { document.Serialize(archive); });
    }
    void Load(QDoc& document, const Bytes& bytes) {
        Loading loading(bytes, 4096, u"Contents");
        document.Serialize(loading.archive);
    }
    // Loads and gives the cause of the archive failure, or -1 without one.
    int LoadFailure(QDoc& document, const Bytes& bytes) {
        try {
            Load(document, bytes);
        } catch (const CArchiveException& failure) {
            return failure.m_cause;
        }
        return -1;
    }

    test::RecordingProgressServices m_services;
    test::RecordingHost m_host{IDYES};
    test::ScopedUIServices m_installed{m_host};
    test::ScopedSchema m_schema{kDefaultSchema};
    QDoc m_document;
};

TEST_F(DocTest, ItemsThatAreNotBlankAreStoredInOrderAndReadBackByteForByte) {
    m_document.AddItem(std::make_unique<TestNote>(u"Hi"));
    m_document.AddItem(std::make_unique<TestNote>(u""));
    m_document.AddItem(std::make_unique<TestShape>(5));
    auto group = std::make_unique<TestGroup>();
    group->m_children.emplace_back(new TestNote(u"Yo"));
    m_document.AddItem(std::move(group));
    m_document.AddItem(std::make_unique<TestGroup>());
    const Bytes expected =
        Concat({Header(kDefaultSchema, 3), NewClass(1, "TestNote"), WideString(u"Hi"),
                NewClass(3, "TestShape"), Int32(5), NewClass(1, "TestGroup"),
                Bytes{0x01, 0x00, 0x01, 0x80}, WideString(u"Yo")});
    EXPECT_EQ(Store(m_document), expected);

    // What was read is stored again byte for byte, so nothing of the items was lost.
    QDoc loaded;
    Load(loaded, expected);
    EXPECT_EQ(loaded.VersionLoaded(), kDefaultSchema);
    EXPECT_EQ(Store(loaded), expected);
    EXPECT_EQ(test::PendingReports(), std::vector<Report>{});
}

TEST_F(DocTest, ADocumentOfBlankItemsStoresACountOfZeroAndLoadsEmpty) {
    m_document.AddItem(std::make_unique<TestNote>());
    m_document.AddItem(std::make_unique<TestGroup>());
    const Bytes bytes = Store(m_document);
    EXPECT_EQ(bytes, Header(kDefaultSchema, 0));
    EXPECT_EQ((std::vector<std::string>{"create Saving house 0..0", "destroy Saved house"}),
              m_services.events);

    QDoc loaded;
    Load(loaded, bytes);
    EXPECT_EQ(loaded.GetItemCount(), 0);
}

const std::string c_newer =
    "This document can only be opened in a more recent release of Drafter.\n\nhouse data has a "
    "v8 schema data,\nand this release can only open v7 or older.\n\nHint: If you must open in "
    "this version, try Export Ascii Minimal\nfrom later release, then make a new empty drawing in "
    "this older\nversion and Merge Ascii";
const std::string c_tooOld =
    "This document is a schema ver 3 drawing which is too old to be\nopened in the current "
    "release of Drafter.\n\nPlease open it in an older (intermediate) version and resave, "
    "thentry again.\n\nContact support for further assistance.";

TEST_F(DocTest, AVersionOpensOrIsRefusedWithItsMessage) {
    const struct {
        int version;
        // The message of a refused stream; empty when it opens.
        std::string refusal;
        std::vector<std::string> progress;
    } cases[] = {
        {kDefaultSchema + 1, c_newer, {}},
        {kDefaultSchema, "", {"create Loading house  0..1", "step", "destroy Loaded house "}},
        {kUnsupportedSchema + 1,
         "",
         {"create Loading house   [old schema ver=4] 0..1", "step",
          "destroy Loaded house   [old schema ver=4]"}},
        {kUnsupportedSchema, c_tooOld, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.version);
        TheErrorLog().DiscardPendingMessages();
        m_services.events.clear();
        QDoc document;
        document.SetPathName(kPath);
        const int cause = LoadFailure(
            document, Concat({Header(c.version, 1), NewClass(1, "TestNote"), WideString(u"a")}));
        EXPECT_EQ(document.VersionLoaded(), c.version);
        EXPECT_EQ(m_services.events, c.progress);
        EXPECT_EQ(cause, c.refusal.empty() ? -1 : CArchiveException::badSchema);
        EXPECT_EQ(document.GetItemCount(), c.refusal.empty() ? 1 : 0);
        EXPECT_EQ(test::PendingReports(),
                  (c.refusal.empty() ? std::vector<Report>{}
                                     : std::vector<Report>{{"Error", c.refusal}}));
    }
}

// Nothing of the items was read, so no one is asked about keeping any.
TEST_F(DocTest, BrokenHeadersFailWithoutAQuestion) {
    const struct {
        const char* name;
        Bytes bytes;
        int cause;
    } cases[] = {
        {"wrong magic", Concat({{0xBA, 0xBB}, Int32(kDefaultSchema), Int32(0)}),
         CArchiveException::genericException},
        {"negative count", Header(kDefaultSchema, -1), CArchiveException::genericException},
        {"no schema", {0xBA, 0xBA, 0x07}, CArchiveException::endOfFile},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QDoc document;
        EXPECT_EQ(LoadFailure(document, c.bytes), c.cause);
    }
    EXPECT_TRUE(m_host.boxes.empty());
}

// Seven items of which the third breaks off: two are read when it fails.
Bytes SevenItemsBrokenAtTheThird() {
    return Concat({Header(kDefaultSchema, 7), Notes(2), {0x01, 0x80, 0xFF, 0xFE, 0xFF, 0x05, 'x'}});
}

std::string CorruptionQuestion(const std::string& failure) {
    return "Document corrupted, 2 of 7 read\n" + failure +
           "\n\nA possible cause of this is trying to read a drawing saved with a later version "
           "of\n  Drafter\nThe current version is 9.1.2\n\nCheck version where drawing was last "
           "saved by selecting 'About' from the 'Help' menu\nand comparing the \"File Version\" "
           "shown\n\nKeep partial document?";
}

TEST_F(DocTest, YesToTheCorruptionQuestionKeepsTheItemsRead) {
    EXPECT_EQ(LoadFailure(m_document, SevenItemsBrokenAtTheThird()), -1);
    EXPECT_EQ(NoteTexts(m_document), (std::vector<std::string>{"1", "2"}));
    const std::string failure = What(CArchiveException(CArchiveException::endOfFile, u"Contents"));
    EXPECT_EQ(m_host.boxes, std::vector<std::string>{CorruptionQuestion(failure)});
    EXPECT_EQ(m_host.boxFlags, std::vector<unsigned>{0x124});
    EXPECT_EQ((std::vector<std::string>{"create Loading house  0..7", "step", "step",
                                        "destroy Load house failed"}),
              m_services.events);
    EXPECT_FALSE(m_document.AbortEvent().Lock(0));
}

TEST_F(DocTest, NoToTheCorruptionQuestionFailsTheLoad) {
    test::RecordingHost refusing(IDNO);
    test::ScopedUIServices installed(refusing);
    EXPECT_EQ(LoadFailure(m_document, SevenItemsBrokenAtTheThird()), CArchiveException::endOfFile);
    EXPECT_EQ(refusing.boxes.size(), 1u);
}

// An item in the list is owned there: a second reference to it is a corrupt stream, as is an
// object that is no document item.
TEST_F(DocTest, AnItemReadTwiceIsACorruptStream) {
    EXPECT_EQ(LoadFailure(m_document, Concat({Header(kDefaultSchema, 7), Notes(2), {0x02, 0x00}})),
              -1);
    EXPECT_EQ(NoteTexts(m_document), (std::vector<std::string>{"1", "2"}));
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0], CorruptionQuestion(What(
                                   CArchiveException(CArchiveException::badIndex, u"Contents"))));
}

TEST_F(DocTest, SignallingTheAbortEventEndsTheLoadWithAPartialDocument) {
    m_services.onStep = [this](int step) {
        if (step == 2)
            m_document.AbortEvent().SetEvent();
    };
    EXPECT_EQ(LoadFailure(m_document, Concat({Header(kDefaultSchema, 5), Notes(5)})), -1);
    EXPECT_EQ(NoteTexts(m_document), (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(m_document.ItemsToLoad(), 3);
    EXPECT_TRUE(m_host.boxes.empty());
    EXPECT_EQ(test::PendingReports(), std::vector<Report>{});
    EXPECT_EQ((std::vector<std::string>{"create Loading house  0..5", "step", "step",
                                        "destroy Loaded house "}),
              m_services.events);
    EXPECT_FALSE(m_document.AbortEvent().Lock(0));
}

TEST_F(DocTest, AnItemThatFailsToSaveIsReportedAndTheSaveFails) {
    m_document.AddItem(std::make_unique<TestNote>(u"a"));
    m_document.AddItem(std::make_unique<TestBroken>());
    m_document.AddItem(std::make_unique<TestNote>(u"b"));
    EXPECT_THROW(Store(m_document), CFileException);
    const std::string failure = What(CFileException(CFileException::diskFull, -1, u"broken.doc"));
    EXPECT_EQ(test::PendingReports(),
              (std::vector<Report>{{"Error", "Failed during attempt to save document item 2 of "
                                             "3\n\nSystem Message:\n" +
                                                 failure}}));
    EXPECT_EQ((std::vector<std::string>{"create Saving house 0..3", "step", "step",
                                        "destroy Failed to save house"}),
              m_services.events);
}

// An item that carries a whole document of its own in the same stream.
class TestSubDocument : public CDocItem {
public:
    static const CRuntimeClass c_runtimeClass;
    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }
    void Serialize(CArchive& archive) override { m_inner.Serialize(archive); }
    QDoc m_inner;
};
const CRuntimeClass TestSubDocument::c_runtimeClass{
    "TestSubDocument", 1, &CRuntimeClass::Make<TestSubDocument>, &CDocItem::c_runtimeClass};
const CClassRegistration c_subDocumentRegistration(TestSubDocument::c_runtimeClass);

TEST_F(DocTest, OnlyTheOutermostDocumentShowsProgress) {
    auto sub = std::make_unique<TestSubDocument>();
    sub->m_inner.SetPathName(u"/drawings/inner.drw");
    sub->m_inner.AddItem(std::make_unique<TestNote>(u"in"));
    m_document.AddItem(std::move(sub));
    const Bytes bytes = Store(m_document);
    EXPECT_EQ(bytes,
              Concat({Header(kDefaultSchema, 1), NewClass(1, "TestSubDocument"),
                      Header(kDefaultSchema, 1), NewClass(1, "TestNote"), WideString(u"in")}));
    QDoc loaded;
    Load(loaded, bytes);
    ASSERT_EQ(loaded.GetItemCount(), 1);
    EXPECT_EQ(NoteTexts(static_cast<TestSubDocument&>(*loaded.Items()[0]).m_inner),
              std::vector<std::string>{"in"});
    EXPECT_EQ((std::vector<std::string>{"create Saving house 0..1", "step", "destroy Saved house",
                                        "create Loading   0..1", "step", "destroy Loaded  "}),
              m_services.events);
}

TEST_F(DocTest, AFailedLimitOfADoubleNamesTheFileUnderCorruption) {
    const struct {
        unsigned schema;
        std::string message;
    } cases[] = {
        {8, "This item can only be opened correctly in a more recent "
            "release.\n\n/drawings/house.drw has "
            "a v8 schema,\nand this release can only open v7 or older.\n\nHint: This may occur "
            "when you "
            "use a file created in a later release.\n\nCheck your drws and try again."},
        {7, "A bad area was stored in this file;\n\n/drawings/house.drw\n\nPlease re-save to fix"},
        {CArchive::noSchema,
         "A bad area was stored in this file;\n\n/drawings/house.drw\n\nPlease re-save to fix"},
    };
    for (const auto& c : cases) {
        TheErrorLog().DiscardPendingMessages();
        Loading loading(Bytes{}, 4096, kPath, c.schema);
        ReportLimitDoubleFailed(loading.archive, u"area");
        EXPECT_EQ(test::PendingReports(), (std::vector<Report>{{"Corruption", c.message}}))
            << c.schema;
    }
}

// The quantities report through the document layer once the application is there.
class LimitDoubleReporterTest : public test::ErrorReportsTest {};

TEST_F(LimitDoubleReporterTest, TheApplicationInstallsTheReport) {
    const LimitDoubleFailedReporter before = SetLimitDoubleFailedReporter(nullptr);
    {
        const QWinApp app;
        Loading loading(Bytes{}, 4096, u"/a/b.drw");
        QMessageBoxOrLog_LimitDoubleFailed(loading.archive, u"volume");
    }
    SetLimitDoubleFailedReporter(before);
    ASSERT_EQ(test::PendingReports().size(), 1u);
    EXPECT_EQ(test::PendingReports()[0].heading, "Corruption");
    EXPECT_NE(test::PendingReports()[0].message.find("A bad volume was stored"), std::string::npos);
}

TEST_F(DocTest, SaveAndLoadFailuresAreReportedUnlessAlreadyShown) {
    const CArchiveException badSchema(CArchiveException::badSchema, kPath);
    const CArchiveException endOfFile(CArchiveException::endOfFile, kPath);
    m_document.ReportSaveLoadException(kPath, &badSchema, false, 0);
    EXPECT_EQ(test::PendingReports(), std::vector<Report>{});
    m_document.ReportSaveLoadException(kPath, &endOfFile, false, 0);
    m_document.ReportSaveLoadException(kPath, nullptr, true, 0);
    EXPECT_EQ(test::PendingReports(),
              (std::vector<Report>{{"Error", What(endOfFile)},
                                   {"Error", "Unknown error during ReportSaveLoadException"}}));
}

TEST_F(DocTest, UpdatesAreHeldOffForAScopeAndPutBackAsTheyWere) {
    {
        const QDoc::DisableViewAndItemUpdates outer(&m_document);
        EXPECT_FALSE(m_document.AreViewAndItemUpdatesEnabled());
        { const QDoc::DisableViewAndItemUpdates inner(&m_document); }
        EXPECT_FALSE(m_document.AreViewAndItemUpdatesEnabled());
    }
    EXPECT_TRUE(m_document.AreViewAndItemUpdatesEnabled());
}

TEST_F(DocTest, TheActiveDocumentIsForgottenWhenItCloses) {
    auto document = std::make_unique<QDoc>();
    QDoc::SetActiveDocument(document.get());
    EXPECT_EQ(QDoc::TheActiveDocument(), document.get());
    QDoc::SetActiveDocument(&m_document);
    document.reset();
    EXPECT_EQ(QDoc::TheActiveDocument(), &m_document);
    document = std::make_unique<QDoc>();
    QDoc::SetActiveDocument(document.get());
    document.reset();
    EXPECT_EQ(QDoc::TheActiveDocument(), nullptr);
}

// The header of a page document follows the document's; from schema 18 on, its lengths are
// doubles.
TEST_F(DocTest, ThePageHeaderFollowsTheDocumentHeaderByteForByte) {
    const test::ScopedSchema schema(18);
    const test::PageStaticsScope statics;
    QPageDoc::SetManualPageSize(test::PageSize(420, 297));
    QPageDocument document;
    ASSERT_EQ(document.GetScale(), 20);
    const Bytes expected = Concat({test::Hex("BA BA"), test::LittleEndian32(18),
                                   test::Hex("01 14 00 00 00 "
                                             "02 00 00 00 00 00 40 7A 40 00 00 00 00 00 90 72 40 "
                                             "00"),
                                   test::LittleEndian32(0)});
    const Bytes stored = Stored([&](CArchive& archive) { document.Serialize(archive); });
    EXPECT_EQ(stored, expected);

    QPageDoc::SetManualPageSize({});
    QPageDocument loaded;
    Loading loading(stored, 4096, u"Contents");
    loaded.Serialize(loading.archive);
    EXPECT_EQ(Stored([&](CArchive& archive) { loaded.Serialize(archive); }), expected);
}

} // namespace
} // namespace keel
