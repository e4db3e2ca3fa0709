#pragma once

#include "keel/document/errorlog.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

namespace keel::test {

// One message waiting in the error log: its heading and text.
struct Report {
    std::string heading;
    std::string message;
    bool operator==(const Report&) const = default;
};

inline void PrintTo(const Report& report, std::ostream* out) {
    *out << report.heading << ": " << report.message;
}

inline std::vector<Report> PendingReports() {
    std::vector<Report> reports;
    QErrorLog& log = TheErrorLog();
    for (int i = 0; i < log.GetSize(); ++i)
        reports.push_back({log.ErrorType(i)->Description().ToUtf8(), log.Message(i).ToUtf8()});
    return reports;
}

// Tests that read what reaches the error log: it is kept in a file of the process's own, starts
// each test empty, and the switch that silences formula reports is put back after each test.
class ErrorReportsTest : public testing::Test {
protected:
    void SetUp() override {
        TheErrorLog().SetFilename(CString::FromUtf8(LogPath().string()));
        TheErrorLog().DiscardPendingMessages();
        m_noReports = NoEvalReportErrors();
    }
    void TearDown() override {
        TheErrorLog().DiscardPendingMessages();
        SetNoEvalReportErrors(m_noReports);
    }

    static std::filesystem::path LogPath() {
        return std::filesystem::temp_directory_path() /
               ("keel-errorreports-" + std::to_string(::getpid()) + ".txt");
    }

private:
    bool m_noReports = false;
};

} // namespace keel::test
