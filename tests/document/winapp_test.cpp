#include "tests/support/answerdocument.h"
#include "tests/support/homefolder.h"
#include "tests/support/processlimits.h"
#include "tests/support/uihosts.h"

#include "keel/document/ado.h"
#include "keel/document/commandline.h"
#include "keel/document/doc.h"
#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/document/usertrace.h"
#include "keel/document/winapp.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/registry.h"
#include "keel/tables/lookuptable.h"
#include "keel/values/anyvalue.h"
#include "keel/values/area.h"
#include "keel/values/formulahook.h"
#include "keel/values/length.h"
#include "keel/values/volume.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using test::ReadText;
using test::ScopedEnvironment;
using test::WriteText;

std::string U8(const CString& text) {
    return text.ToUtf8();
}

std::string Joined(const std::vector<std::string>& parts, const char* separator = " ") {
    std::string joined;
    for (const std::string& part : parts)
        joined += (joined.empty() ? "" : separator) + part;
    return joined;
}

// The statics that the tests change, directly or through the options, back at their start
// values.
void ResetOptionStatics() {
    QLength::SetDefaultUnits(QLength::LU_MM);
    QLength::c_InchHandlerType = 32;
    QArea::SetDefaultUnits(QArea::AU_SQM);
    QVolume::SetDefaultUnits(QVolume::VU_CBM);
    QOptions::Spec3D::c_contrast = 50;
    QOptions::Spec3D::c_brightness = 75;
    QOptions::Spec3D::c_bObject3DExaminationMode = false;
    QOptions::GL::c_UseOpenGLExt = true;
    QLookupTableDataStatics::c_TableCacheOverSize = 20;
    QOptions::Exportable::c_LastExportType = 0;
    QOptions::PageDoc::c_bPostscriptPrinterCheck = true;
    QOptions::AboutBox::c_strCompanyEmail.Empty();
    DoLimitDouble(true);
    QOptions::g_bCheckValueTypes = false;
    QWinApp::c_UserTraceMask = 0;
    QWinApp::c_SuppressFileLocations = false;
    QWinApp::c_SuppressPricing = false;
    QWinApp::c_bMergingMessages = false;
    QWinApp::c_bMergingPrompts = false;
    QWinApp::c_bMergingDefault = true;
}

// An application whose locale and reports the tests choose and see.
class TestApp : public QWinApp {
public:
    int LocaleMeasurement() const override { return measurement; }

    int measurement = 1;
    std::vector<std::string> problems;

protected:
    void ReportOptionsProblem(const CString& message) override { problems.push_back(U8(message)); }
};

class WinAppTest : public test::HomeFolderTest {
protected:
    void SetUp() override {
        HomeFolderTest::SetUp();
        // Open to the unprivileged user that one test writes as.
        fs::permissions(m_root, fs::perms::owner_all | fs::perms::group_read |
                                    fs::perms::group_exec | fs::perms::others_read |
                                    fs::perms::others_exec);
        CRegistry::SetCurrentFile(CString());
        CRegistry::SetMachineFolder(CString::FromUtf8((m_root / "machine").string()));
        ResetOptionStatics();
    }
    void TearDown() override {
        ResetOptionStatics();
        CRegistry::SetMachineFolder(CString());
        HomeFolderTest::TearDown();
    }

    fs::path OptionsFile() const { return m_root / "config/keel/Keel.ini"; }
    void StoreOptions(const std::string& text) const { WriteText(OptionsFile(), text); }
    int StoredInt(const CString& section, const CString& key) const {
        return CRegistry(CString::FromUtf8(OptionsFile().string()))
            .GetProfileInt(section, key, -12345);
    }
    std::string StoredString(const CString& section, const CString& key) const {
        return U8(CRegistry(CString::FromUtf8(OptionsFile().string()))
                      .GetProfileString(section, key, u"(none)"));
    }
};

// A context without a document of its own reads from the active document, which only an
// application knows; one that belongs to a document keeps to it.
TEST_F(WinAppTest, AContextWithoutADocumentFallsBackToTheActiveOne) {
    class OwnedContext : public test::AnswerDocument {
    public:
        QDoc* GetDoc() override { return owner; }
        const QDoc* GetDoc() const override { return owner; }
        QDoc* owner = nullptr;
    };
    QDoc active;
    QDoc::SetActiveDocument(&active);
    OwnedContext context;
    EXPECT_EQ(context.GetDocOrActive(), nullptr);
    TestApp app;
    EXPECT_EQ(context.GetDocOrActive(), &active);
    QDoc own;
    context.owner = &own;
    EXPECT_EQ(std::as_const(context).GetDocOrActive(), &own);
    QDoc::SetActiveDocument(nullptr);
}

class PlannerApp : public TestApp {
public:
    CString AppName() const override { return u"Planner"; }
    CString ProductName() const override { return u"Planner Pro"; }
};

TEST_F(WinAppTest, TheOptionsFileIsNamedAfterTheRunningApplication) {
    {
        PlannerApp app;
        EXPECT_EQ(U8(CRegistry::Current().FilePath()),
                  (m_root / "config/keel/Planner.ini").string());
        EXPECT_EQ(U8(app.MyDocumentsProductDir()), m_root.string() + "/Documents/Planner Pro/");
    }
    EXPECT_EQ(U8(CRegistry::Current().FilePath()), OptionsFile().string());
}

// The cache takes the stored values, whatever the case of their names, and another init builds
// it again; a key that is not cached gives the default whatever the store holds, and a cached
// read never goes back to the store.
TEST_F(WinAppTest, TheCacheTakesTheStoredValuesOrGivesTheDefault) {
    StoreOptions("[view]\nshowgrid=1\nZoom=150%\n[Options]\nCrystalDataPath=/reports/\n"
                 "Unknown=5\nName=stored\n");
    TestApp app;
    EXPECT_EQ(app.GetProfileIntFromCache(u"View", u"ShowGrid", 7), 7) << "nothing cached yet";
    app.InitRegistryOptionsCache();
    app.InitRegistryOptionsCache();
    EXPECT_EQ(app.GetProfileIntFromCache(u"View", u"ShowGrid", 0), 1);
    EXPECT_EQ(U8(app.GetProfileStringFromCache(u"Options", u"CrystalDataPath", u"")), "/reports/");
    EXPECT_EQ(app.GetProfileIntFromCache(u"VIEW", u"showGRID", 0), 1);
    EXPECT_EQ(app.GetProfileIntFromCache(u"Options", u"Unknown", 42), 42);
    EXPECT_EQ(U8(app.GetProfileStringFromCache(u"Options", u"Name", u"given")), "given");
    StoreOptions("[View]\nShowGrid=0\nZoom=300%\n");
    EXPECT_EQ(app.GetProfileIntFromCache(u"View", u"ShowGrid", 5), 1);
    EXPECT_EQ(U8(app.GetProfileStringFromCache(u"View", u"Zoom", u"x")), "150%");
}

TEST_F(WinAppTest, AWriteGoesToTheStoreAndUpdatesTheCachedElement) {
    TestApp app;
    app.InitRegistryOptionsCache();
    EXPECT_TRUE(app.WriteProfileIntAndUpdateCache(u"view", u"SHOWGRID", 1));
    EXPECT_EQ(app.GetProfileIntFromCache(u"View", u"ShowGrid", 0), 1);
    EXPECT_EQ(StoredInt(u"View", u"ShowGrid"), 1);
    EXPECT_TRUE(app.WriteProfileStringAndUpdateCache(u"View", u"Zoom", u"75%"));
    EXPECT_EQ(U8(app.GetProfileStringFromCache(u"View", u"Zoom", u"")), "75%");
    EXPECT_EQ(StoredString(u"View", u"Zoom"), "75%");

    EXPECT_TRUE(app.WriteProfileIntAndUpdateCache(u"Options", u"NotCached", 8));
    EXPECT_EQ(StoredInt(u"Options", u"NotCached"), 8);
    EXPECT_EQ(app.GetProfileIntFromCache(u"Options", u"NotCached", 0), 0);
}

TEST_F(WinAppTest, KeysOfAProductAreCachedOnRequest) {
    StoreOptions("[Options]\nHatch=4\nStyle=bold\n");
    TestApp app;
    app.InitRegistryOptionsCache();
    EXPECT_EQ(app.CacheProfileInt(u"Options", u"Hatch", 0), 4);
    EXPECT_EQ(U8(app.CacheProfileString(u"Options", u"Style", u"")), "bold");
    StoreOptions("[Options]\nHatch=5\n");
    EXPECT_EQ(app.GetProfileIntFromCache(u"Options", u"Hatch", 0), 4);
    EXPECT_EQ(app.CacheProfileInt(u"Options", u"Hatch", 0), 5) << "caching again refreshes";
}

TEST_F(WinAppTest, AMalformedOptionsFileIsReportedOnceAndTheDefaultsAreUsed) {
    StoreOptions("ShowGrid=1\n[View]\n");
    TestApp app;
    app.LoadOptions();
    app.InitRegistryOptionsCache();
    app.LoadDefaultUnits();
    app.InitRegistryOptionsCache();
    ASSERT_EQ(app.problems.size(), 1u);
    EXPECT_TRUE(app.problems[0].starts_with("Cannot read the options file \"" +
                                            OptionsFile().string() + "\": "))
        << app.problems[0];
    EXPECT_EQ(app.GetProfileIntFromCache(u"View", u"ShowGrid", 9), 0);
    EXPECT_EQ(QLength::DefaultUnits(), 3);

    // The library's own application reports it to the error log under the heading "Options".
    StoreOptions("not an options file\n");
    QErrorLog::DiscardThePendingMessages();
    {
        QWinApp plain;
        plain.InitRegistryOptionsCache();
    }
    QErrorLog& log = TheErrorLog();
    ASSERT_EQ(log.GetSize(), 1);
    EXPECT_EQ(U8(log.ErrorType(0)->Description()), "Options");
    EXPECT_TRUE(U8(log.Message(0)).starts_with("Cannot read the options file"))
        << U8(log.Message(0));
    QErrorLog::DiscardThePendingMessages();
}

TEST_F(WinAppTest, WritesIntoAnUnwritableFolderAreReportedOnce) {
    StoreOptions("[View]\nShowGrid=1\n");
    fs::permissions(OptionsFile().parent_path(), fs::perms::owner_read | fs::perms::owner_exec |
                                                     fs::perms::others_read |
                                                     fs::perms::others_exec);
    TestApp app;
    app.InitRegistryOptionsCache();
    {
        test::UnprivilegedScope unprivileged;
        EXPECT_FALSE(app.WriteProfileIntAndUpdateCache(u"View", u"ShowGrid", 0));
        EXPECT_FALSE(app.WriteProfileIntAndUpdateCache(u"View", u"ShowSnap", 1));
    }
    EXPECT_EQ(app.GetProfileIntFromCache(u"View", u"ShowGrid", 9), 0) << "in force for this run";
    ASSERT_EQ(app.problems.size(), 1u);
    EXPECT_EQ(app.problems[0], "Cannot write the options file \"" + OptionsFile().string() +
                                   "\": Permission denied");
}

TEST_F(WinAppTest, DefaultUnitsFollowTheLocaleThenTheStoredLengthUnits) {
    struct Case {
        int measurement;
        std::string stored;
        int length, area, volume, inch;
    };
    const Case cases[] = {
        {1, "", 3, 7, 7, 32},
        {2, "", 5, 6, 6, 32},
        {2, "LengthUnits=7\n", 7, 7, 7, 32},
        // A unit outside the known ones is ignored, and the locale's units stay.
        {1, "LengthUnits=8\n", 3, 7, 7, 32},
        {2, "LengthUnits=-3\nAreaUnits=12\n", 5, 6, 6, 32},
        // The raw unit fixes neither area nor volume.
        {2, "LengthUnits=0\n", 0, 6, 6, 32},
        {1, "LengthUnits=5\nAreaUnits=2\n", 5, 2, 6, 32},
        {1, "VolumeUnits=3\n", 3, 7, 3, 32},
        {1, "InchAsFraction=1\n", 3, 7, 7, 32},
        {1, "InchAsFraction=2\n", 3, 7, 7, 2},
    };
    for (const Case& c : cases) {
        ResetOptionStatics();
        StoreOptions("[Options]\n" + c.stored);
        TestApp app;
        app.measurement = c.measurement;
        app.LoadDefaultUnits();
        const std::string label = std::to_string(c.measurement) + " " + c.stored;
        EXPECT_EQ(QLength::DefaultUnits(), c.length) << label;
        EXPECT_EQ(QArea::DefaultUnits(), c.area) << label;
        EXPECT_EQ(QVolume::DefaultUnits(), c.volume) << label;
        EXPECT_EQ(QLength::c_InchHandlerType, c.inch) << label;
    }
}

// A locale that cannot be read measures nothing.
TEST_F(WinAppTest, TheLibrarysApplicationReadsTheLocaleFromTheEnvironment) {
    QWinApp plain;
    m_environment.Set("LC_ALL", "C");
    EXPECT_EQ(plain.LocaleMeasurement(), 1);
    m_environment.Set("LC_ALL", "xx_NOWHERE.UTF-8");
    EXPECT_EQ(plain.LocaleMeasurement(), 0);
}

TEST_F(WinAppTest, ExitInstanceClosesTheTraceAndSavesNewTranslations) {
    struct ClosingApp : QWinApp {
        int closings = 0;
        void OnClosing() override { ++closings; }
    } app;
    const fs::path translations = m_root / "translations_test.txt";
    WriteText(translations, "Open\t\tOuvrir\n");
    ASSERT_TRUE(SwitchToTranslationFile(CString::FromUtf8(translations.string()), false, false));
    EnableTranslationsFileUpdates(true);
    EXPECT_EQ(U8(TranslateString(u"Gathered text", CString(), u"Test")), "Gathered text");
    UserTraceWriteLine(u"a line");
    ASSERT_FALSE(UserTraceFilePath().IsEmpty());

    EXPECT_EQ(app.ExitInstance(), 0);
    EnableTranslationsFileUpdates(false);
    SwitchToTranslationFile(CString(), false, false);

    EXPECT_EQ(app.closings, 1);
    EXPECT_TRUE(app.IsClosing());
    EXPECT_TRUE(UserTraceFilePath().IsEmpty());
    EXPECT_NE(ReadText(translations).find("Gathered text"), std::string::npos)
        << ReadText(translations);
}

TEST_F(WinAppTest, TheApplicationLetsGoOfItsDatabasesOnExit) {
    QWinApp app;
    app.OverrideFileLocation(QFileLocation::Table, CString::FromUtf8(m_root.string()));
    QAnyValue result;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(result, FormulaText(u"dbexecute(\"stock\", \"create table t(a)\")"),
                        nullptr, false, true, false));
    ASSERT_TRUE(evaluator->Evaluate()) << U8(evaluator->Message());
    EXPECT_EQ(QADOConnection::SharedCount(), 1);
    app.ExitInstance();
    EXPECT_EQ(QADOConnection::SharedCount(), 0);
}

TEST_F(WinAppTest, LoadOptionsCopiesStoredOptionsIntoTheirFields) {
    StoreOptions("[Options]\nContrast=60\nXFileLocations=1\nUserTraceMask=8192\n"
                 "MergingPrompts=1\nMergingDefault=0\nMaximized=0\nAutoSave=15\n"
                 "TableCacheOverSize=0\nLimitDouble=0\nCompanyEmail=sales@example.com\n"
                 "LengthUnits=5\n");
    TestApp app;
    app.LoadOptions();
    EXPECT_EQ(QOptions::Spec3D::c_contrast, 60);
    EXPECT_TRUE(QWinApp::c_SuppressFileLocations);
    EXPECT_EQ(QWinApp::c_UserTraceMask, 0x2000u);
    EXPECT_EQ(QWinApp::MergingStrategy(), 0);
    EXPECT_FALSE(app.IsMaximized());
    EXPECT_EQ(app.AutoSaveTime(), 15);
    EXPECT_EQ(QLookupTableDataStatics::c_TableCacheOverSize, 0);
    EXPECT_FALSE(IsLimitDouble());
    EXPECT_EQ(U8(QOptions::AboutBox::c_strCompanyEmail), "sales@example.com");
    EXPECT_EQ(QLength::DefaultUnits(), 5);

    // The values read their own options; how they compare is theirs to test.
    StoreOptions("[Options]\nUseCompareNoCase=0\n");
    app.LoadOptions();
    EXPECT_FALSE(QAnyValue::UseCompareNoCase());
    StoreOptions("[Options]\nUseCompareNoCase=1\n");
    app.LoadOptions();
    EXPECT_TRUE(QAnyValue::UseCompareNoCase());
}

TEST_F(WinAppTest, MissingOptionsTakeTheTableDefaultOrThePresentFieldValue) {
    // Fixed defaults in the table: the field's own value does not count.
    QOptions::Spec3D::c_contrast = 10;
    QWinApp::c_bMergingDefault = false;
    QOptions::PageDoc::c_bPostscriptPrinterCheck = false;
    // "Field value" defaults: what a product set before loading stays.
    QOptions::GL::c_UseOpenGLExt = false;
    QOptions::Spec3D::c_bObject3DExaminationMode = true;
    QLookupTableDataStatics::c_TableCacheOverSize = 50;
    TestApp app;
    app.SetAutoSaveTime(5);
    app.SetMaximized(false);
    app.SetFriendlyPagesOnly(false);
    app.LoadOptions();
    EXPECT_EQ(QOptions::Spec3D::c_contrast, 50);
    EXPECT_TRUE(QWinApp::c_bMergingDefault);
    EXPECT_TRUE(QOptions::PageDoc::c_bPostscriptPrinterCheck);
    EXPECT_FALSE(QOptions::GL::c_UseOpenGLExt);
    EXPECT_TRUE(QOptions::Spec3D::c_bObject3DExaminationMode);
    EXPECT_EQ(QLookupTableDataStatics::c_TableCacheOverSize, 50);
    EXPECT_EQ(app.AutoSaveTime(), 5);
    EXPECT_FALSE(app.IsMaximized());
    EXPECT_TRUE(app.IsFriendlyPagesOnly()) << "the table's default is true";
    EXPECT_TRUE(app.problems.empty());
}

TEST_F(WinAppTest, SaveOptionsWritesWhatTheUserCanChangeAndLoadOptionsReadsItBack) {
    {
        TestApp app;
        QOptions::Spec3D::c_contrast = 61;
        QWinApp::c_bMergingPrompts = true;
        QLength::SetDefaultUnits(QLength::LU_INCH);
        QArea::SetDefaultUnits(QArea::AU_SQCM);
        QLength::c_InchHandlerType = 16;
        QOptions::Exportable::c_LastExportType = 1;
        QWinApp::c_SuppressPricing = true;
        QOptions::g_bCheckValueTypes = true;
        app.SetAutoSaveTime(20);
        app.SetMaximized(false);
        app.SetFriendlyPagesOnly(false);
        app.SaveOptions();
        EXPECT_TRUE(app.problems.empty());
    }
    // What is read back below was stored; these two are checked in the file.
    EXPECT_EQ(StoredInt(u"Options", u"ShowFriendlyPagesOnly"), 0);
    EXPECT_EQ(StoredInt(u"Options", u"CheckValueTypes"), -12345) << "not the user's to change";

    ResetOptionStatics();
    TestApp app;
    app.LoadOptions();
    EXPECT_EQ(QOptions::Spec3D::c_contrast, 61);
    EXPECT_TRUE(QWinApp::c_bMergingPrompts);
    EXPECT_EQ(QLength::DefaultUnits(), 5);
    EXPECT_EQ(QArea::DefaultUnits(), 4);
    EXPECT_EQ(QVolume::DefaultUnits(), 7) << "as saved, not as the length units suggest";
    EXPECT_EQ(QLength::c_InchHandlerType, 16);
    EXPECT_EQ(QOptions::Exportable::c_LastExportType, 1);
    EXPECT_FALSE(QWinApp::c_SuppressPricing) << "not the user's to change";
    EXPECT_EQ(app.AutoSaveTime(), 20);
    EXPECT_FALSE(app.IsMaximized());
}

// A file location is stored under its key and read with a trailing slash; an override wins for
// the run, is not stored, and is only for the location named. The last open/save folder starts
// at the data folder.
TEST_F(WinAppTest, AFileLocationIsStoredUnderItsKeyAndReadWithATrailingSlash) {
    TestApp app;
    EXPECT_EQ(U8(app.LastOpenSaveDir()), m_root.string() + "/Documents/Keel/");
    app.SetLastOpenSaveDir(u"/work/drawings");
    EXPECT_EQ(U8(app.LastOpenSaveDir()), "/work/drawings/");
    EXPECT_TRUE(app.SetBackupDir(u"/backups"));
    EXPECT_EQ(StoredString(u"Options", u"Backup"), "/backups");
    EXPECT_EQ(U8(app.BackupDir()), "/backups/");
    EXPECT_TRUE(app.SetFileLocation(QFileLocation::Table, u"/tables/"));
    EXPECT_EQ(U8(app.FileLocation(QFileLocation::Table)), "/tables/");

    app.OverrideFileLocation(QFileLocation::Table, u"/run/tables");
    EXPECT_EQ(U8(app.FileLocation(QFileLocation::Table)), "/run/tables/");
    EXPECT_EQ(StoredString(u"Options", u"Table"), "/tables/");
    EXPECT_EQ(U8(app.FileLocation(QFileLocation::Library)),
              m_root.string() + "/Documents/Keel/Library/");
    app.OverrideFileLocation(QFileLocation::Table, u"");
    EXPECT_EQ(U8(app.FileLocation(QFileLocation::Table)), "/tables/");

    // The library folder is one of the cached options: a write updates the cache.
    app.InitRegistryOptionsCache();
    EXPECT_TRUE(app.SetFileLocation(QFileLocation::Library, u"/parts"));
    EXPECT_EQ(U8(app.GetProfileStringFromCache(u"Options", u"Library", u"")), "/parts");
    EXPECT_EQ(U8(app.FileLocation(QFileLocation::Library)), "/parts/");
}

std::string Describe(const QProgressEvent& event) {
    static const char* const c_kinds[] = {"create", "step", "text", "destroy"};
    return std::string(c_kinds[static_cast<int>(event.kind)]) + " " + U8(event.text) + " " +
           std::to_string(event.position) + "/" + std::to_string(event.low) + ".." +
           std::to_string(event.high) + (event.redraw ? " redraw" : "");
}

TEST_F(WinAppTest, ProgressGoesToTheCallbackOneEventAChange) {
    TestApp app;
    std::vector<std::string> events;
    app.SetProgressCallback([&events](const QProgressEvent& event) {
        events.push_back(Describe(event));
        return true;
    });
    const int handle = app.ProgressCreate(u"Merging answers", 10, 12, false);
    ASSERT_NE(handle, -1);
    EXPECT_TRUE(app.ProgressStepIt(handle));
    app.ProgressSetText(handle, u"Merging questions", false);
    EXPECT_TRUE(app.ProgressStepIt(handle));
    EXPECT_TRUE(app.ProgressStepIt(handle));
    app.ProgressDestroy(handle, u"Merged answers", true);
    EXPECT_EQ(events, (std::vector<std::string>{
                          "create Merging answers 10/10..12 redraw",
                          "step Merging answers 11/10..12",
                          "text Merging questions 11/10..12",
                          "step Merging questions 12/10..12",
                          "step Merging questions 12/10..12",
                          "destroy Merged answers 12/10..12 redraw",
                      }));

    events.clear();
    EXPECT_TRUE(app.ProgressStepIt(handle));
    app.ProgressSetText(handle, u"closed", true);
    app.ProgressDestroy(handle, u"closed", true);
    EXPECT_TRUE(events.empty()) << "a closed handle is ignored";

    // A range must have a step.
    EXPECT_EQ(app.ProgressCreate(u"none", 5, 5, false), -1);
    EXPECT_NE(app.ProgressCreate(u"one step", 5, 6, false), -1);
}

TEST_F(WinAppTest, ACallbackCancelsOnlyACancellableProgress) {
    TestApp app;
    app.SetProgressCallback([](const QProgressEvent& event) { return event.position < 1; });
    const int cancellable = app.ProgressCreate(u"Importing", 0, 10, true);
    const int steady = app.ProgressCreate(u"Saving", 0, 10, false);
    EXPECT_FALSE(app.ProgressStepIt(cancellable));
    EXPECT_TRUE(app.IsProgressCancelled(cancellable));
    EXPECT_FALSE(app.ProgressStepIt(cancellable)) << "it stays cancelled";
    EXPECT_TRUE(app.ProgressStepIt(steady));
    EXPECT_FALSE(app.IsProgressCancelled(steady));
}

// A product whose evaluators know the constant "product".
class ProductEvaluator : public QEvaluator {
public:
    using QEvaluator::QEvaluator;
    bool EvaluateNamedConstantExtras(QAnyValue& result, PropId name) override {
        if (!(name == PropId("product")))
            return false;
        if (IsEval())
            result = QAnyValue(u"made by the product");
        return true;
    }
};

class ProductApp : public TestApp {
public:
    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override {
        return new ProductEvaluator(result, formula, context, passThrough, reportErrors, isAction);
    }
};

std::string Evaluated(const char* formula) {
    QAnyValue result;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(result, FormulaText(formula), nullptr, false, false, false));
    evaluator->Evaluate();
    return U8(result.MakeCString());
}

// The first application object is the application, the evaluator factory and the services of
// the layers below while it lives; a second one is none of them. Without it, a run is automated
// on a host without a display.
TEST_F(WinAppTest, TheFirstApplicationObjectIsTheApplicationWhileItLives) {
    QAppServices& defaults = AppServices();
    EXPECT_FALSE(defaults.IsApplication());
    EXPECT_TRUE(defaults.IsRunningAutomated()) << "the headless host has no display";
    {
        test::RecordingHost host;
        test::ScopedUIServices installed(host);
        EXPECT_FALSE(defaults.IsRunningAutomated()) << "a host with a display";
    }
    const auto isTheApplication = [](QWinApp* app) {
        EXPECT_EQ(QWinApp::GetApp(), app);
        EXPECT_EQ(GetEvaluatorFactory(), app);
        EXPECT_EQ(&AppServices(), static_cast<QAppServices*>(app));
    };
    {
        ProductApp app;
        isTheApplication(&app);
        EXPECT_EQ(Evaluated("product"), "made by the product");
        {
            TestApp second;
            isTheApplication(&app);
        }
        isTheApplication(&app);
        QAppServices& services = AppServices();
        EXPECT_TRUE(services.IsApplication());
        EXPECT_TRUE(services.IsRunningAutomated()) << "the headless host has no display";
    }
    EXPECT_EQ(QWinApp::GetApp(), nullptr);
    EXPECT_EQ(GetEvaluatorFactory(), nullptr);
    EXPECT_EQ(&AppServices(), &defaults) << "the defaults come back with the application gone";
    EXPECT_EQ(Evaluated("product"), "#ERR!");
}

TEST_F(WinAppTest, TheApplicationLetsTheValuesRunFormulas) {
    const QFormulaEvaluatorHook previous = SetFormulaEvaluatorHook(nullptr);
    TestApp app;
    QAnyValue value;
    EXPECT_TRUE(EvaluateFormula(FormulaText("2 ft"), nullptr, value));
    EXPECT_DOUBLE_EQ(value.MakeLength().GetRaw(), 609.6);
    QAnyValue text(u"=3 * 4");
    EXPECT_EQ(text.MakeInt(), 12);
    SetFormulaEvaluatorHook(previous);
}

TEST_F(WinAppTest, FolderConstantsAreTheApplicationsFoldersAsFilePaths) {
    TestApp app;
    const std::string documents = m_root.string() + "/Documents";
    std::string program = U8(QWinApp::ProgramDir());
    program.pop_back();
    const std::pair<const char*, std::string> defaults[] = {
        {"programfolder", program},
        {"datafolder", documents + "/Keel"},
        {"drawingsubfolder", documents + "/Keel"},
        {"reportfolder", documents + "/Keel/Reports"},
        {"basedonlibraryfolder", documents + "/Keel/Library"},
        {"mydocumentsfolder", documents},
        {"mydocumentsproductfolder", documents + "/Keel"},
    };
    for (const auto& [name, folder] : defaults)
        EXPECT_EQ(Evaluated(name), folder) << name;

    EXPECT_TRUE(app.SetFileLocation(QFileLocation::Data, u"/drawings"));
    app.SetLastOpenSaveDir(u"/drawings/2024");
    EXPECT_EQ(Evaluated("drawing_folder"), "/drawings");
    EXPECT_EQ(Evaluated("drawing_subfolder"), "/drawings/2024");
}

// An application that records the hooks of start-up in the order they are called, and whose
// product steps answer as the test asks.
class StartupApp : public TestApp {
public:
    void PreProcessShellCommand() override { Record("PreProcessShellCommand"); }
    void DoSetupOfRegistryKey() override {
        Record(IsServer() ? "DoSetupOfRegistryKey:server" : "DoSetupOfRegistryKey:user");
    }
    void CreateSplash() override { Record("CreateSplash"); }
    void KillSplash() override { Record("KillSplash"); }
    CString MostRecentFile() const override {
        Record("MostRecentFile");
        return QWinApp::MostRecentFile();
    }
    bool LoadResources() override { return Record("LoadResources", resourcesLoad); }
    void LoadOptions() override {
        Record("LoadOptions");
        QWinApp::LoadOptions();
    }
    void InitRegistryOptionsCache() override {
        Record("InitRegistryOptionsCache");
        QWinApp::InitRegistryOptionsCache();
    }
    bool AddDocTemplate() override { return Record("AddDocTemplate", templatesLoad); }
    void OnFileNew() override { Record("OnFileNew"); }
    bool ProcessShellCommand(QCommandLineInfo& info) override {
        Record("ProcessShellCommand");
        return QWinApp::ProcessShellCommand(info);
    }
    bool InitInstanceFinish() override {
        return Record("InitInstanceFinish:" + std::to_string(ShowCommand()) +
                          (IsStarted() ? ":started" : ""),
                      finishes);
    }

    // Writes the call down and gives `result`.
    bool Record(const std::string& call, bool result = true) const {
        calls.push_back(call);
        return result;
    }

    mutable std::vector<std::string> calls;
    bool resourcesLoad = true;
    bool templatesLoad = true;
    bool finishes = true;
};

TEST_F(WinAppTest, StartUpCallsItsHooksInOrder) {
    StoreOptions("[Options]\nAutoSave=7\n[Recent File List]\nFile1=/drawings/a.kd\n");
    StartupApp app;
    EXPECT_FALSE(app.IsStartupComplete());
    ASSERT_TRUE(app.InitInstance());
    // Without a file to open the show command is -1 while start-up finishes.
    EXPECT_EQ(Joined(app.calls), "PreProcessShellCommand DoSetupOfRegistryKey:user CreateSplash "
                                 "MostRecentFile LoadResources LoadOptions "
                                 "InitRegistryOptionsCache AddDocTemplate OnFileNew "
                                 "ProcessShellCommand InitInstanceFinish:-1");
    EXPECT_TRUE(app.IsStarted());
    EXPECT_TRUE(app.IsStartupComplete());
    EXPECT_EQ(app.ShowCommand(), 3) << "maximized, and put back after the last step";
    EXPECT_EQ(U8(app.MostRecentFileName()), "/drawings/a.kd");
    EXPECT_EQ(app.AutoSaveTime(), 7) << "the options were loaded";
}

// A product step that fails stops start-up there: without resources the options are not loaded;
// without templates the splash goes.
TEST_F(WinAppTest, AProductStepThatFailsStopsStartUp) {
    const struct {
        bool resources, templates, finishes;
        const char* lastCall;
    } cases[] = {{false, true, true, "LoadResources"},
                 {true, false, true, "KillSplash"},
                 {true, true, false, "InitInstanceFinish:-1"}};
    for (const auto& c : cases) {
        StartupApp app;
        app.resourcesLoad = c.resources;
        app.templatesLoad = c.templates;
        app.finishes = c.finishes;
        EXPECT_FALSE(app.InitInstance());
        EXPECT_EQ(app.calls.back(), c.lastCall);
        EXPECT_FALSE(app.IsStarted()) << c.lastCall;
        EXPECT_FALSE(app.IsStartupComplete()) << c.lastCall;
    }
}

bool Parse(QCommandLineInfo& info, std::vector<const char*> params) {
    params.insert(params.begin(), "program");
    return info.ParseCommandLine(static_cast<int>(params.size()), params.data());
}

TEST(CommandLineTest, TheFrameworkFieldsFollowTheParameters) {
    struct Case {
        std::vector<const char*> params;
        std::string fileName;
        QCommandLineInfo::ShellCommand command;
        bool embedded;
        bool automated;
    };
    using Info = QCommandLineInfo;
    const Case cases[] = {
        {{}, "", Info::FileNew, false, false},
        {{"drawing.kdoc"}, "drawing.kdoc", Info::FileOpen, false, false},
        {{"-Embedding"}, "", Info::FileNew, true, false},
        {{"-embedding", "drawing.kdoc"}, "drawing.kdoc", Info::FileOpen, true, false},
        {{"--Automation"}, "", Info::FileNew, false, true},
        // On this platform a parameter with a slash is a path, never a flag.
        {{"/Embedding"}, "/Embedding", Info::FileOpen, false, false},
        {{"--", "-Embedding"}, "-Embedding", Info::FileOpen, false, false},
        {{"--"}, "", Info::FileNew, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.params));
        QCommandLineInfo info;
        EXPECT_TRUE(Parse(info, c.params));
        EXPECT_EQ(U8(info.m_strFileName), c.fileName);
        EXPECT_EQ(info.m_nShellCommand, c.command);
        EXPECT_EQ(info.m_bRunEmbedded, c.embedded);
        EXPECT_EQ(info.m_bRunAutomated, c.automated);
        EXPECT_EQ(info.IsServerStart(), c.embedded || c.automated);
        EXPECT_EQ(info.m_bShowSplash, !(c.embedded || c.automated));
    }
}

} // namespace
} // namespace keel
