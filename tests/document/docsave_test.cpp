#include "tests/support/compoundprobe.h"
#include "tests/support/docitems.h"
#include "tests/support/environment.h"
#include "tests/support/errorreports.h"
#include "tests/support/propertysets.h"
#include "tests/support/tempfolder.h"
#include "tests/support/uihosts.h"

#include "keel/document/doc.h"
#include "keel/document/winapp.h"
#include "keel/system/currentdirectory.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace keel {
namespace {

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

struct SuggestedNameCase {
    const char* title;
    const char* path;
    const char* extensions;
    int extensionNumber;
    bool replace;
    const char* expected;
};

class SuggestedSaveName : public testing::TestWithParam<SuggestedNameCase> {};

TEST_P(SuggestedSaveName, ComesFromThePathOrTheTitle) {
    const SuggestedNameCase& c = GetParam();
    SavingDoc document;
    document.SetTitle(CString::FromUtf8(c.title));
    document.SetPathName(CString::FromUtf8(c.path));
    document.extensions = CString::FromUtf8(c.extensions);
    document.extensionNumber = c.extensionNumber;
    EXPECT_EQ(document.SuggestedSaveName(c.replace).ToUtf8(), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SuggestedSaveName,
    testing::Values(
        SuggestedNameCase{"Kitchen", "/plans/k.kdoc", ".kdoc", 0, true, "/plans/k.kdoc"},
        SuggestedNameCase{"Kitchen", "/plans/k.kdoc", ".kdoc", 0, false, "/plans/k.kdoc"},
        // A copy of a document without a path has no name to start from.
        SuggestedNameCase{"Kitchen", "", ".kdoc", 0, false, ""},
        SuggestedNameCase{"Kitchen", "", "", 0, true, "Kitchen"},
        SuggestedNameCase{"Kitchen", "", ".kdoc", 0, true, "Kitchen.kdoc"},
        // The title is cut at the first character that a file name should not begin with.
        SuggestedNameCase{"Kitchen plan", "", ".kdoc", 0, true, "Kitchen.kdoc"},
        SuggestedNameCase{"Plan#2", "", ".kdoc", 0, true, "Plan.kdoc"},
        SuggestedNameCase{"50%", "", ".kdoc", 0, true, "50.kdoc"},
        SuggestedNameCase{"a;b", "", ".kdoc", 0, true, "a.kdoc"},
        SuggestedNameCase{"up/down", "", ".kdoc", 0, true, "up.kdoc"},
        SuggestedNameCase{"back\\slash", "", ".kdoc", 0, true, "back.kdoc"},
        SuggestedNameCase{"#1", "", ".kdoc", 0, true, ".kdoc"},
        // The extension is picked from the list by number; past its end, the last one.
        SuggestedNameCase{"Roof", "", ".kdoc;.kbak;.ktpl", 0, true, "Roof.kdoc"},
        SuggestedNameCase{"Roof", "", ".kdoc;.kbak;.ktpl", 1, true, "Roof.kbak"},
        SuggestedNameCase{"Roof", "", ".kdoc;.kbak;.ktpl", 2, true, "Roof.ktpl"},
        SuggestedNameCase{"Roof", "", ".kdoc;.kbak;.ktpl", 7, true, "Roof.ktpl"}));

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
}

TEST_F(DocSaveTest, AnEmbeddedDocumentTakesTheNameOfACopy) {
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

// Without a name the host's file dialog is asked, titled by the kind of save, with the
// document's extensions as its filter and the suggested name to start from.
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
    EXPECT_EQ(host.dialogs[0].title, "Save As");
    EXPECT_EQ(host.dialogs[2].title, "Save Copy As");
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
    const test::Bytes saved = ReadBytes("d.kdoc");

    EXPECT_FALSE(m_document.DoSave(PathOf("plain.txt/d.kdoc")));
    EXPECT_EQ(m_document.GetPathName(), PathOf("d.kdoc"));
    EXPECT_EQ(test::PendingReports(), (std::vector<test::Report>{{"Error", reason.ToUtf8()}}));
    EXPECT_NE(reason.Find(PathOf("plain.txt/d.kdoc")), -1);
    TheErrorLog().DiscardPendingMessages();

    m_document.AddItem(std::make_unique<test::TestBroken>());
    EXPECT_FALSE(m_document.DoSave(PathOf("d.kdoc")));
    EXPECT_EQ(ReadBytes("d.kdoc"), saved);
    const std::vector<test::Report> reports = test::PendingReports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].message.rfind("Failed during attempt to save document item 2 of 2", 0),
              0u);
    EXPECT_EQ(
        reports[1],
        (test::Report{
            "Error",
            ErrorMessage(CFileException(CFileException::diskFull, -1, u"broken.doc")).ToUtf8()}));
}

// Save and Save As with an application: they run in its folder of the last open or save, which
// then follows the document.
class DocFileCommandTest : public DocSaveTest {
protected:
    void SetUp() override {
        DocSaveTest::SetUp();
        m_environment.Set("HOME", Path("home"));
        m_environment.Set("XDG_CONFIG_HOME", Path("home/config"));
        m_environment.Set("XDG_DATA_HOME", Path("home/data"));
        m_app = std::make_unique<QWinApp>();
        m_app->SetLastOpenSaveDir(PathOf("last"));
        std::filesystem::create_directories(m_root / "last");
        m_startFolder = QCurrentDirectory::Get();
    }
    void TearDown() override {
        m_app.reset();
        DocSaveTest::TearDown();
    }

    test::ScopedEnvironment m_environment;
    std::unique_ptr<QWinApp> m_app;
    CString m_startFolder;
};

TEST_F(DocFileCommandTest, SaveAsTakesARelativeNameFromTheLastFolder) {
    ASSERT_TRUE(m_document.OnFileSaveAs(u"plan.kdoc"));
    EXPECT_EQ(m_document.GetPathName(), PathOf("last/plan.kdoc"));
    EXPECT_EQ(NotesIn("last/plan.kdoc"), std::vector<std::string>{"kept"});
    EXPECT_EQ(QCurrentDirectory::Get(), m_startFolder);

    ASSERT_TRUE(m_document.OnFileSaveAs(PathOf("other/plan.kdoc")));
    EXPECT_EQ(m_app->LastOpenSaveDir(), PathOf("other/"));
    EXPECT_EQ(m_document.saveActions, 0);
}

TEST_F(DocFileCommandTest, SaveWritesThePathUnlessTheApplicationTakesItOver) {
    ASSERT_TRUE(m_document.OnFileSaveAs(PathOf("plan.kdoc")));
    EXPECT_EQ(m_app->LastOpenSaveDir(), PathOf(""));
    const std::uint64_t firstSave = m_clock.ticks;

    m_clock.Advance(60);
    m_document.saveActionTakesOver = true;
    EXPECT_TRUE(m_document.OnFileSave());
    QDoc loaded;
    loaded.LoadDocument(PathOf("plan.kdoc"));
    EXPECT_EQ(loaded.SummaryInformation().GetLastSaveDate().Ticks(), firstSave);

    m_document.saveActionTakesOver = false;
    EXPECT_TRUE(m_document.OnFileSave());
    loaded.LoadDocument(PathOf("plan.kdoc"));
    EXPECT_EQ(loaded.SummaryInformation().GetLastSaveDate().Ticks(), m_clock.ticks);
    EXPECT_EQ(m_document.saveActions, 2);
    EXPECT_EQ(QCurrentDirectory::Get(), m_startFolder);
}

} // namespace
} // namespace keel
