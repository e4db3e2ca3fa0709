#include "tests/support/homefolder.h"
#include "tests/support/reports.h"

#include "keel/document/appservices.h"
#include "keel/document/reportmarkers.h"
#include "keel/platform/compoundstorage.h"
#include "keel/system/folders.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace keel {
namespace {

using test::ReadText;
using test::Report;
using test::ShellRecordingHost;
using test::WriteText;
using Start = ShellRecordingHost::Start;
using Strings = std::vector<std::string>;

std::string UserName() {
    return AppServices().CurrentUserName().ToUtf8();
}

TEST(ReportKindsTest, AreToldByTheExtensionInAnyCase) {
    const struct {
        const char* path;
        bool crystal, rdl, xml, batch;
    } cases[] = {
        {"/r/stock.rpt", true, false, false, false},
        {"/r/stock.rdl", false, true, false, false},
        {"/r/stock.RDLC", false, true, false, false},
        {"/r/stock.xml", false, false, true, false},
        {"/r/a.XmlBatch", false, false, true, true},
        {"/r/stock", false, false, false, false},
        {"/r.rdl/stock", false, false, false, false},
        {"/r/.rdl", false, false, false, false},
        {"/r/stock.rdl.bak", false, false, false, false},
    };
    for (const auto& c : cases) {
        const CString path = CString::FromUtf8(c.path);
        EXPECT_EQ(QDoc::IsCrystalReport(path), c.crystal) << c.path;
        EXPECT_EQ(QDoc::IsRDLReport(path), c.rdl) << c.path;
        EXPECT_EQ(QDoc::IsXMLReport(path), c.xml) << c.path;
        EXPECT_EQ(QDoc::IsXMLBatchReport(path), c.batch) << c.path;
    }
}

TEST(ReportDocumentValuesTest, SuppliesItsParametersByName) {
    QDoc document;
    document.SetPathName(u"/work/house.kdoc");
    CString value;
    ASSERT_TRUE(document.GetReportParameterValue(u"DocumentTitle", value));
    EXPECT_EQ(value.ToUtf8(), "house") << "the title comes from the path until it is set";
    for (const char16_t* other : {u"Unknown", u"username", u""})
        EXPECT_FALSE(document.GetReportParameterValue(other, value));
}

TEST(ReportDocumentValuesTest, TheReportDatabaseIsBesideTheDocument) {
    QDoc document;
    EXPECT_EQ(document.GetReportDatabasePath().ToUtf8(), "");
    document.SetFallbackPath(u"/tmp/Untitled.kdoc");
    EXPECT_EQ(document.GetReportDatabasePath().ToUtf8(), "/tmp/Untitled.mdb");
    document.SetPathName(u"/work/house.v2.kdoc");
    EXPECT_EQ(document.GetReportDatabasePath().ToUtf8(), "/work/house.v2.mdb");
}

class ReportReadingTest : public test::ReportsTest {};

TEST_F(ReportReadingTest, ATextReportGivesItsMarkers) {
    QDoc document;
    CString filter;
    CString params;
    const CString images = document.GetReportImagesFilterAndParamsStrings(
        CString::FromUtf8(ReportFixture("stock.rtx")), filter, params);
    EXPECT_EQ(images.ToUtf8(), "Plan,Elevation");
    EXPECT_EQ(filter.ToUtf8(), "{Items.Stock} > 0");
    EXPECT_EQ(params.ToUtf8(), "UserName;DocumentTitle, Unknown");
    EXPECT_EQ(test::PendingReports(), std::vector<Report>{});
}

TEST_F(ReportReadingTest, ACompoundReportKeepsItsMarkersInItsSummaryComments) {
    const CString path = PathOf("stock.rpt");
    {
        CFileException failure;
        const auto file = CStorage::CreateFile(
            path, CFile::modeCreate | CFile::shareExclusive | CFile::modeReadWrite, &failure);
        ASSERT_TRUE(file);
        QSummaryInformationPropertySet summary;
        summary.SetComments(u"Stock pictures\nrem KVNImages: Photo\nrem KVNFilter: Kind = 2");
        ASSERT_TRUE(summary.WriteToStorage(*file));
        ASSERT_TRUE(
            file->Commit(CStorage::commitOverwrite | CStorage::commitConsolidate, &failure));
    }
    QDoc document;
    EXPECT_EQ(document.GetReportSummaryInfoComments(path).ToUtf8(),
              "Stock pictures\nrem KVNImages: Photo\nrem KVNFilter: Kind = 2");
    CString filter = u"stale";
    CString params = u"stale";
    EXPECT_EQ(document.GetReportImagesFilterAndParamsStrings(path, filter, params).ToUtf8(),
              "Photo");
    EXPECT_EQ(filter.ToUtf8(), "Kind = 2");
    EXPECT_EQ(params.ToUtf8(), "");
}

// The comments of an RDL report are its description, in its namespace or in none.
TEST_F(ReportReadingTest, CommentsOfOtherReportsAreTheirDescriptionOrNone) {
    const std::pair<std::string, std::string> cases[] = {
        {ReportFixture("stock.rdl"), "Stock by item, with pictures of each"},
        {ReportFixture("plain.rdl"), "A report in no namespace"},
        {ReportFixture("query.rdl"), ""},
        {ReportFixture("stock.rtx"), ""},
        {ReportFixture("broken.rdl"), ""},
        {Path("missing.rpt"), ""},
    };
    QDoc document;
    for (const auto& [path, comments] : cases)
        EXPECT_EQ(document.GetReportSummaryInfoComments(CString::FromUtf8(path)).ToUtf8(), comments)
            << path;
    EXPECT_EQ(test::PendingReports(), std::vector<Report>{});
}

TEST_F(ReportReadingTest, AReportThatCannotBeReadIsReportedAndGivesNothing) {
    WriteText(Path("huge.rtx"), "rem KVNImages: a\n");
    std::filesystem::resize_file(Path("huge.rtx"), QReportMarkers::c_maxReportBytes + 1);
    const std::string broken = ReportFixture("broken.rdl");
    std::vector<std::pair<std::string, std::string>> failures = {
        {Path("missing.rtx"), "The \"" + Path("missing.rtx") + "\" report could not be found."},
        {Path("huge.rtx"),
         "The \"" + Path("huge.rtx") + "\" report is larger than 16 MB and was not read."},
        {broken, "The \"" + broken + "\" report could not be read: "},
    };
    // Permissions do not stop the superuser.
    if (geteuid() != 0) {
        WriteText(Path("locked.rtx"), "rem KVNImages: a\n");
        std::filesystem::permissions(Path("locked.rtx"), std::filesystem::perms::none);
        failures.emplace_back(Path("locked.rtx"),
                              "The \"" + Path("locked.rtx") +
                                  "\" report could not be read: Permission denied");
    }
    for (const auto& c : failures) {
        TheErrorLog().DiscardPendingMessages();
        QDoc document;
        CString filter = u"stale";
        CString params = u"stale";
        EXPECT_EQ(
            document
                .GetReportImagesFilterAndParamsStrings(CString::FromUtf8(c.first), filter, params)
                .ToUtf8(),
            "");
        EXPECT_TRUE(filter.IsEmpty() && params.IsEmpty());
        const std::vector<Report> reports = test::PendingReports();
        ASSERT_EQ(reports.size(), 1u) << c.first;
        EXPECT_EQ(reports[0].heading, "Report");
        EXPECT_EQ(reports[0].message.substr(0, c.second.size()), c.second);
        if (c.second.ends_with(": ")) {
            EXPECT_GT(reports[0].message.size(), c.second.size()) << "the parser's reason";
        }
        EXPECT_EQ(document.GetLastReportReadError().ToUtf8(), reports[0].message);
    }
}

class RDLReportTest : public test::ReportsTest {
protected:
    void SetUp() override {
        test::ReportsTest::SetUp();
        document.SetPathName(PathOf("house.kdoc"));
        document.SetTitle(u"Stock");
    }

    Strings StockArguments() const {
        return {ReportFixture("stock.rdl"),
                Path("house.mdb"),
                "Plan",
                "Stock > 0",
                "-p",
                "UserName=" + UserName(),
                "DocumentTitle=Stock",
                "DocumentPath=" + Path("house.kdoc")};
    }
    bool ProduceStock(bool toPrinter = false, int copies = 1) {
        return document.ProduceReport(CString::FromUtf8(ReportFixture("stock.rdl")), toPrinter,
                                      copies);
    }

    test::ReportDocument document;
};

TEST_F(RDLReportTest, StartsTheViewerWithTheVerbAndCopies) {
    const std::string viewer = InstallViewer();
    const struct {
        const char* name;
        bool toPrinter;
        int copies;
        std::map<std::string, int> answers;
        Strings verbs;
        bool started;
    } cases[] = {
        {"Shown", false, 1, {}, {"open"}, true},
        {"PrintedForEachCopy", true, 3, {}, {"print", "print", "print"}, true},
        {"NoCopiesPrintsOne", true, 0, {}, {"print"}, true},
        {"CopiesStopAt999", true, 1'000'000, {}, Strings(999, "print"), true},
        {"WithoutAPrinterItIsShownOnce", true, 2, {{"print", 31}}, {"print", "open"}, true},
        {"AStartThatFailsEndsThePrinting", true, 3, {{"print", 0}}, {"print"}, false},
        {"ThePlainStartFailsToo", true, 1, {{"print", 31}, {"open", 5}}, {"print", "open"}, false},
        {"TheShell_sLastFailure", false, 1, {{"open", 32}}, {"open"}, false},
        {"TheShell_sFirstStart", false, 1, {{"open", 33}}, {"open"}, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TheErrorLog().DiscardPendingMessages();
        host.starts.clear();
        host.answers = c.answers;
        EXPECT_EQ(ProduceStock(c.toPrinter, c.copies), c.started);
        std::vector<Start> expected;
        for (const std::string& verb : c.verbs)
            expected.push_back({viewer, StockArguments(), verb});
        EXPECT_EQ(host.starts, expected);
        std::vector<Report> reports;
        if (!c.started)
            reports.push_back(
                {"Report", "\"" + viewer + "\" could not be started for the report (error " +
                               std::to_string(host.answers.at(c.verbs.back())) + ")."});
        EXPECT_EQ(test::PendingReports(), reports);
    }
    EXPECT_EQ(host.statusTexts, Strings{});
}

TEST_F(RDLReportTest, WithoutAViewerItSaysWhatToInstall) {
    const std::string notExecutable = Path("viewer.sh");
    WriteText(notExecutable, "#!/bin/sh\n");
    const struct {
        const char* option; // nullptr: not set
        std::string named;
    } cases[] = {
        {nullptr, "RdlViewer"},
        {notExecutable.c_str(), "viewer.sh"},
        {"/", "RdlViewer"},
    };
    for (const auto& c : cases) {
        TheErrorLog().DiscardPendingMessages();
        if (c.option)
            SetViewerOption(c.option);
        EXPECT_FALSE(ProduceStock()) << c.named;
        EXPECT_EQ(
            test::PendingReports(),
            (std::vector<Report>{{"Report", "RDL reporting has not been installed, you need " +
                                                c.named + " copied into your ProgramFolder"}}));
    }
    EXPECT_EQ(host.starts, std::vector<Start>{});
}

TEST_F(RDLReportTest, ARelativeViewerIsTakenFromTheProgramFolder) {
    SetViewerOption("tools/rdlview");
    EXPECT_EQ(QDoc::ReportViewerPath().ToUtf8(), QFolders::ProgramDir().ToUtf8() + "tools/rdlview");
    SetViewerOption(Path("rdlview"));
    EXPECT_EQ(QDoc::ReportViewerPath().ToUtf8(), Path("rdlview"));
}

TEST_F(RDLReportTest, AMissingOrUnreadableReportStartsNothing) {
    InstallViewer();
    const std::string missing = Path("missing.rdl");
    const std::string broken = ReportFixture("broken.rdl");
    EXPECT_FALSE(document.ProduceReport(CString::FromUtf8(missing), false, 1));
    EXPECT_FALSE(document.ProduceReport(CString::FromUtf8(broken), true, 1));
    // Their words are those of reading a report, checked where the reading makes them.
    EXPECT_EQ(test::PendingReports().size(), 2u);
    EXPECT_EQ(host.starts, std::vector<Start>{});
    EXPECT_EQ(host.statusTexts, Strings{});
}

TEST_F(RDLReportTest, ThePicturesAreWrittenBeforeTheViewerStarts) {
    InstallViewer();
    ASSERT_TRUE(ProduceStock());
    EXPECT_EQ(document.imagesWritten, Strings{ReportFixture("stock.rdl") + ": Plan"});
    EXPECT_EQ(host.starts.size(), 1u);
    document.imagesWrite = false;
    EXPECT_FALSE(ProduceStock());
    EXPECT_EQ(document.imagesWritten.size(), 2u);
    EXPECT_EQ(host.starts.size(), 1u);
}

TEST_F(RDLReportTest, OnlyTheParametersTheDocumentSuppliesFollowTheFlag) {
    const std::string viewer = InstallViewer();
    const std::string query = ReportFixture("query.rdl");
    const std::string plain = ReportFixture("plain.rdl");
    ASSERT_TRUE(document.ProduceReport(CString::FromUtf8(query), false, 1));
    WriteText(Path("bare.rdl"), "<Report xmlns=\"urn:r\"><ReportParameters><ReportParameter "
                                "Name=\"Region\"/></ReportParameters></Report>");
    ASSERT_TRUE(document.ProduceReport(PathOf("bare.rdl"), false, 1));
    EXPECT_EQ(
        host.starts,
        (std::vector<Start>{
            {viewer,
             {query, Path("house.mdb"), "Photo,Sketch", "Kind = 2", "-p", "DocumentTitle=Stock"},
             "open"},
            {viewer, {Path("bare.rdl"), Path("house.mdb"), "", ""}, "open"}}));
}

class EngineReportTest : public test::ReportsTest {};

TEST_F(EngineReportTest, AJobIsOpenedOnlyWithAnEngineAndAReport) {
    const std::string missing = Path("nothere.rpt");
    const std::string stock = ReportFixture("stock.rtx");
    const struct {
        std::string path;
        bool hasEngine;
        bool produced;
        std::string message;
    } cases[] = {
        {missing, true, false, "The \"" + missing + "\" report could not be found."},
        {stock, false, false,
         "There is no report engine here to produce the \"" + stock + "\" report."},
        {stock, true, true, ""},
    };
    for (const auto& c : cases) {
        TheErrorLog().DiscardPendingMessages();
        test::ReportDocument document;
        document.hasEngine = c.hasEngine;
        EXPECT_EQ(document.ProduceReport(CString::FromUtf8(c.path), true, 2), c.produced);
        EXPECT_EQ(document.jobs, c.produced ? Strings{c.path} : Strings{});
        EXPECT_EQ(document.formulasSet, c.produced ? 1 : 0);
        const std::vector<Report> expected =
            c.message.empty() ? std::vector<Report>{} : std::vector<Report>{{"Report", c.message}};
        EXPECT_EQ(test::PendingReports(), expected);
    }
    EXPECT_EQ(host.starts, std::vector<Start>{});
}

// The export of the group that the document of these tests gives.
constexpr const char* kStockExport =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Group width=\"0.0\" shelves=\"4\"/>\n";

class XMLReportTest : public test::ReportsTest {
protected:
    void GiveExport() {
        document.exported = std::make_unique<test::FakeGroup>(u"Stock");
        document.exported->shelves = 4;
    }

    test::ReportDocument document;
};

// A batch is written beside it and not shown.
TEST_F(XMLReportTest, WritesTheDocument_sExportAndOpensIt) {
    GiveExport();
    const std::string path = Path("stock.xml");
    ASSERT_TRUE(document.ProduceReport(PathOf("stock.xml"), false, 1));
    EXPECT_EQ(ReadText(path), kStockExport);
    ASSERT_TRUE(document.ProduceReport(PathOf("stock.xml"), true, 2));
    std::filesystem::remove(path);
    ASSERT_TRUE(document.ProduceReport(PathOf("stock.xmlbatch"), true, 1));
    EXPECT_EQ(ReadText(path), kStockExport);
    EXPECT_FALSE(std::filesystem::exists(Path("stock.xmlbatch")));
    EXPECT_EQ(host.starts,
              (std::vector<Start>{{path, {}, "open"}, {path, {}, "print"}, {path, {}, "print"}}));
    EXPECT_EQ(test::PendingReports(), std::vector<Report>{});
}

TEST_F(XMLReportTest, FailuresAreReportedAndNothingIsShown) {
    EXPECT_FALSE(document.ProduceReport(PathOf("stock.xml"), false, 1));
    EXPECT_EQ(test::PendingReports(),
              (std::vector<Report>{{"Report", "The document has nothing to export to the \"" +
                                                  Path("stock.xml") + "\" report."}}));
    EXPECT_FALSE(std::filesystem::exists(Path("stock.xml")));

    TheErrorLog().DiscardPendingMessages();
    GiveExport();
    EXPECT_FALSE(document.ProduceReport(PathOf("no/folder/stock.xml"), false, 1));
    const std::vector<Report> reports = test::PendingReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_NE(reports[0].message.find("Cannot write export data to"), std::string::npos);
    EXPECT_EQ(host.starts, std::vector<Start>{});
}

class ShellStartTest : public test::TempFolderTest {};

TEST_F(ShellStartTest, RunsProgramsWithTheirArgumentsAndPrintsNothing) {
    CHeadlessUIServices shell;
    EXPECT_EQ(shell.ShellExecuteNoWait(PathOf("missing"), {}, u"open"), SE_ERR_FNF);
    EXPECT_EQ(shell.ShellExecuteNoWait(u"", {}, u"open"), SE_ERR_FNF);
    EXPECT_EQ(shell.ShellExecuteNoWait(u"/bin/sh", {}, u"print"), SE_ERR_NOASSOC);

    const std::string out = Path("out.txt");
    ASSERT_GT(shell.ShellExecuteNoWait(u"/bin/sh",
                                       {u"-c",
                                        u"printf '%s|%s' \"$1\" \"$2\" > \"$3\".tmp && mv "
                                        u"\"$3\".tmp \"$3\"",
                                        u"sh", u"two words", u"", CString::FromUtf8(out)},
                                       u"open"),
              32);
    for (int waited = 0; waited < 500 && !std::filesystem::exists(out); ++waited)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(ReadText(out), "two words|");
}

} // namespace
} // namespace keel
