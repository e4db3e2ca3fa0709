#pragma once

#include "tests/support/appfactory.h"
#include "tests/support/environment.h"
#include "tests/support/formulacases.h"
#include "tests/support/paths.h"

#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/uiservices.h"
#include "keel/system/fsfile.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/lookuptablesource.h"
#include "keel/tables/tablebasedon.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>
#include <zip.h>

namespace keel::test {

// A zip archive of the members, named and given as text; a name ending in "/" is a folder entry.
inline void WriteZip(const std::filesystem::path& path,
                     const std::vector<std::pair<std::string, std::string>>& members) {
    int error = 0;
    zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    ASSERT_NE(archive, nullptr);
    for (const auto& [name, text] : members) {
        if (!name.empty() && name.back() == '/') {
            ASSERT_GE(zip_dir_add(archive, name.c_str(), ZIP_FL_ENC_UTF_8), 0);
            continue;
        }
        zip_source_t* source = zip_source_buffer(archive, text.data(), text.size(), 0);
        ASSERT_NE(source, nullptr);
        ASSERT_GE(zip_file_add(archive, name.c_str(), source, ZIP_FL_OVERWRITE | ZIP_FL_ENC_UTF_8),
                  0);
    }
    ASSERT_EQ(zip_close(archive), 0);
    QFSFile::ClearFileStatusCache();
}

// The cases of a file of tests/data/tables: the columns of each line that is neither empty nor a
// comment ("//"), with \n, \t and \\ standing for a newline, a tab and a backslash.
inline std::vector<std::vector<std::string>> TableCases(const std::string& name) {
    std::ifstream file(std::filesystem::path(TestDataFolder()) / "tables" / name);
    EXPECT_TRUE(file.is_open()) << name;
    std::vector<std::vector<std::string>> cases;
    for (std::string line; std::getline(file, line);)
        if (!line.empty() && !line.starts_with("//"))
            cases.push_back(Columns(line));
    return cases;
}

// A host with a display that answers every box with `otherwise` and the text dialog with
// `editAnswer` (cancelled when unset), and keeps every box and title.
class ScriptedHost : public CHeadlessUIServices {
public:
    bool HasDisplay() const override { return true; }
    int MessageBox(const CString& text, const CString&, unsigned) override {
        questions.push_back(text.ToUtf8());
        return otherwise;
    }
    bool EditText(CString& text, const CString& title) override {
        titles.push_back(title.ToUtf8());
        if (editAnswer)
            text = CString::FromUtf8(*editAnswer);
        return editAnswer.has_value();
    }

    int otherwise = IDCANCEL;
    std::optional<std::string> editAnswer;
    std::vector<std::string> questions;
    std::vector<std::string> titles;
};

// A fresh table folder for each test, installed as the application's, with the tables' source
// installed, so that names resolve there and table values open through the tables; the error
// log is kept beside the folder and starts empty. On the way out every table nobody holds is
// dropped and the process-wide settings are put back.
class TableFixture : public testing::Test {
protected:
    TableFixture()
        : m_folder(std::filesystem::temp_directory_path() /
                   ("keel-tables-" + std::to_string(::getpid()) + "-" + std::to_string(++s_made))),
          m_savedCacheOverSize(QLookupTableDataStatics::c_TableCacheOverSize) {
        std::filesystem::remove_all(m_folder);
        std::filesystem::create_directories(m_folder);
        TheErrorLog().SetFilename(CString::FromUtf8(LogPath().string()));
        TheErrorLog().DiscardPendingMessages();
        m_factory.SetTableFolder(m_folder);
        m_previousFactory = SetEvaluatorFactory(&m_factory);
        m_previousSource = QLookupTableSource::Install();
        QTableBasedOn::Reset();
        QLookupTableDataStatics::ForgetForceAsciiWrite();
        QFSFile::ClearFileStatusCache();
    }
    ~TableFixture() override {
        QLookupTableData::CleanupCache();
        QTableBasedOn::Reset();
        QLookupTableDataStatics::ForgetForceAsciiWrite();
        QLookupTableDataStatics::c_TableCacheOverSize = m_savedCacheOverSize;
        SetTableHandleSource(m_previousSource);
        SetEvaluatorFactory(m_previousFactory);
        std::filesystem::remove_all(m_folder);
        TheErrorLog().DiscardPendingMessages();
        std::filesystem::remove(LogPath());
        QFSFile::ClearFileStatusCache();
    }

    std::filesystem::path LogPath() const { return m_folder.string() + ".log"; }

    // The path of a file in the table folder; ".vlt" is added to a name without an extension.
    std::filesystem::path TablePath(const std::string& name) const {
        std::filesystem::path path = m_folder / name;
        if (!path.has_extension())
            path += ".vlt";
        return path;
    }
    CString TableCString(const std::string& name) const {
        return CString::FromUtf8(TablePath(name).string());
    }
    // Writes the text (bytes as given, newlines included) as a table file and returns its path.
    std::filesystem::path WriteTable(const std::string& name, const std::string& text) const {
        const std::filesystem::path path = TablePath(name);
        WriteText(path, text);
        QFSFile::ClearFileStatusCache();
        return path;
    }
    std::string ReadTable(const std::string& name) const { return ReadText(TablePath(name)); }
    // The table written by the public writer into a file of the table folder, read back; the file
    // is opened in the narrow code page when asked.
    std::string WriteCopy(const QLookupTable& table, const std::string& name,
                          bool narrow = false) const {
        CStdioFileEx file;
        file.SetCodePage(CStdioFileEx::c_codePageWindowsWestern);
        const unsigned mode = CFile::modeCreate | CFile::modeWrite | CFile::typeText;
        EXPECT_TRUE(
            file.Open(TableCString(name), narrow ? mode | CStdioFileEx::modeUseCodePage : mode));
        EXPECT_TRUE(table.WriteToFile(file));
        file.Close();
        QFSFile::ClearFileStatusCache();
        return ReadTable(name);
    }

    inline static int s_made = 0;
    std::filesystem::path m_folder;
    TestAppFactory m_factory;

private:
    QEvaluatorFactory* m_previousFactory = nullptr;
    QTableHandleSource* m_previousSource = nullptr;
    int m_savedCacheOverSize;
};

} // namespace keel::test
