#pragma once

#include "tests/support/errorreports.h"
#include "tests/support/paths.h"

#include "keel/exchange/exportflags.h"
#include "keel/exchange/importformatascii.h"
#include "keel/platform/stdiofileex.h"

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

namespace keel::test {

inline std::string ReadFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void WriteFileBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// A file of tests/data/exchange/.
inline std::string ExchangeData(const std::string& name) {
    return TestDataFolder() + "/exchange/" + name;
}

// The summaries that an import leaves in the error log.
inline const Report c_importCompleted{"Import", "Import completed with no errors."};
inline const Report c_importHadErrors{
    "Import", "Some errors occurred during import. See error log for details."};

// The process's export flags as Init leaves them with `flags` set, for a scope.
class ExportFlagsScope {
public:
    explicit ExportFlagsScope(std::initializer_list<int> flags)
        : m_saved(*QExport::TheExportFlags()) {
        QExport::TheExportFlags()->Init();
        for (int flag : flags)
            QExport::TheExportFlags()->SetExportFlag(flag, true);
    }
    ~ExportFlagsScope() { *QExport::TheExportFlags() = m_saved; }
    ExportFlagsScope(const ExportFlagsScope&) = delete;
    ExportFlagsScope& operator=(const ExportFlagsScope&) = delete;

private:
    QExport m_saved;
};

// Tests that write and read export files: each name is a file of the process's own in the
// temporary folder, removed when the test ends, and the error log is watched.
class ExchangeFileTest : public ErrorReportsTest {
protected:
    void TearDown() override {
        std::error_code error;
        for (const std::string& path : m_paths)
            std::filesystem::remove(path, error);
        ErrorReportsTest::TearDown();
    }

    std::string Path(const std::string& name) {
        const std::string path = (std::filesystem::temp_directory_path() /
                                  ("keel-exchange-" + std::to_string(::getpid()) + "-" + name))
                                     .string();
        m_paths.push_back(path);
        return path;
    }
    CString PathOf(const std::string& name) { return CString::FromUtf8(Path(name)); }

    // Reads the bytes as a .tab file into the object through the root level alone.
    bool Import(QImportable& object, const std::string& bytes) {
        const std::string path = Path("import.tab");
        WriteFileBytes(path, bytes);
        CStdioFileEx file(CString::FromUtf8(path), CFile::modeRead | CFile::typeText);
        QImportFormatASCII format(file, object);
        return format.ImportToImportable();
    }

private:
    std::vector<std::string> m_paths;
};

} // namespace keel::test
