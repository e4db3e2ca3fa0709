#pragma once

#include "tests/support/errorreports.h"
#include "tests/support/exporttree.h"
#include "tests/support/paths.h"
#include "tests/support/tempfolder.h"

#include "keel/document/doc.h"
#include "keel/platform/registry.h"
#include "keel/platform/uiservices.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace keel::test {

// A desktop whose shell starts nothing: each start is written down with its arguments and verb,
// and answered as told for its verb (a start, 42, unless told otherwise). Status bar texts are
// written down too.
class ShellRecordingHost : public CHeadlessUIServices {
public:
    struct Start {
        std::string file;
        std::vector<std::string> arguments;
        std::string verb;
        bool operator==(const Start&) const = default;
    };

    int ShellExecuteNoWait(const CString& file, const std::vector<CString>& arguments,
                           const CString& verb) override {
        Start start{file.ToUtf8(), {}, verb.ToUtf8()};
        for (const CString& argument : arguments)
            start.arguments.push_back(argument.ToUtf8());
        starts.push_back(start);
        const auto answer = answers.find(start.verb);
        return answer == answers.end() ? 42 : answer->second;
    }
    void SetStatusBarText(const CString& text) override { statusTexts.push_back(text.ToUtf8()); }

    std::map<std::string, int> answers;
    std::vector<Start> starts;
    std::vector<std::string> statusTexts;
};

// A document for the reports: it exports a small group when given one, writes down the images it
// is asked to write, and can stand in for an application whose report engine opens every job.
class ReportDocument : public QDoc {
public:
    bool OpenReportJob(const CString& reportPath) override {
        if (!hasEngine)
            return QDoc::OpenReportJob(reportPath);
        jobs.push_back(reportPath.ToUtf8());
        return true;
    }
    void SetCrystalFormulas() override { ++formulasSet; }
    bool WriteReportImages(const CString& reportPath, const CString& images) override {
        imagesWritten.push_back(reportPath.ToUtf8() + ": " + images.ToUtf8());
        return imagesWrite;
    }
    const QExportable* GetReportExportable() const override { return exported.get(); }

    bool hasEngine = false;
    std::vector<std::string> jobs;
    int formulasSet = 0;
    std::vector<std::string> imagesWritten;
    bool imagesWrite = true;
    std::unique_ptr<FakeGroup> exported;
};

// The fixture of the report tests: a home folder of its own, so that the options are the test's,
// an error log that starts empty, and the recording shell installed.
class ReportsTest : public HomeFolderTest {
protected:
    void SetUp() override {
        HomeFolderTest::SetUp();
        TheErrorLog().SetFilename(CString::FromUtf8(Path("errors.txt")));
        TheErrorLog().DiscardPendingMessages();
        SetUIServices(&host);
    }
    void TearDown() override {
        SetUIServices(nullptr);
        TheErrorLog().DiscardPendingMessages();
        HomeFolderTest::TearDown();
    }

    static std::string ReportFixture(const std::string& name) {
        return TestDataFolder() + "/document/reports/" + name;
    }
    // An executable file to stand for the viewer, named in the options.
    std::string InstallViewer(const std::string& name = "rdlview") {
        const std::string path = Path(name);
        WriteText(path, "#!/bin/sh\nexit 0\n");
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        SetViewerOption(path);
        return path;
    }
    static void SetViewerOption(const std::string& value) {
        ASSERT_TRUE(CRegistry::Current().WriteProfileString(
            QDoc::c_reportViewerSection, QDoc::c_reportViewerKey, CString::FromUtf8(value)));
    }

    ShellRecordingHost host;
};

} // namespace keel::test
