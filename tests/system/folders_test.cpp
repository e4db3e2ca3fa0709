#include "tests/support/tempfolder.h"

#include "keel/system/folders.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace keel {
namespace {

class Folders : public test::HomeFolderTest {
protected:
    // The expected folder with "HOME" at its start standing for the test's home folder.
    std::string InHome(std::string expected) const {
        if (expected.starts_with("HOME"))
            expected.replace(0, 4, m_root.string());
        return expected;
    }
    static std::string Location(QSpecialFolder folder) {
        return QFolders::SpecialFolderLocation(folder).ToUtf8();
    }
};

TEST_F(Folders, TheDesktopsFoldersComeFromItsUserDirsFile) {
    struct Case {
        std::optional<std::string> userDirs;
        std::string documents;
        std::string desktop;
    };
    const Case cases[] = {
        {std::nullopt, "HOME/Documents/", "HOME/Desktop/"},
        {"XDG_DESKTOP_DIR=\"$HOME/Desk\"\nXDG_DOCUMENTS_DIR=\"$HOME/Papers\"\n", "HOME/Papers/",
         "HOME/Desk/"},
        {"# comment\nXDG_DOCUMENTS_DIR=\"/srv/docs\"\n", "/srv/docs/", "HOME/Desktop/"},
        {"#XDG_DOCUMENTS_DIR=\"/old\"\nXDG_DOCUMENTS_DIR=\"/srv/docs\"\n", "/srv/docs/",
         "HOME/Desktop/"},
        {"XDG_DOCUMENTS_DIR=\"$HOME/\"\n", "HOME/", "HOME/Desktop/"},
        {"XDG_DOCUMENTS_DIR=relative\nXDG_DESKTOP_DIR=\"\"\n", "HOME/Documents/", "HOME/Desktop/"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.userDirs.value_or("(no file)"));
        std::filesystem::remove(Path("config/user-dirs.dirs"));
        if (c.userDirs)
            test::WriteText(Path("config/user-dirs.dirs"), *c.userDirs);
        EXPECT_EQ(Location(QSpecialFolder::Documents), InHome(c.documents));
        EXPECT_EQ(QFolders::MyDocumentsDir().ToUtf8(), InHome(c.documents));
        EXPECT_EQ(Location(QSpecialFolder::Desktop), InHome(c.desktop));
    }
}

TEST_F(Folders, TheDataFolderFollowsTheEnvironment) {
    const std::pair<std::optional<std::string>, std::string> cases[] = {
        {"/var/data", "/var/data/keel/"},
        {"/var/data/", "/var/data/keel/"},
        {"relative", "HOME/.local/share/keel/"},
        {std::nullopt, "HOME/.local/share/keel/"},
    };
    for (const auto& [dataHome, expected] : cases) {
        m_environment.Set("XDG_DATA_HOME", dataHome);
        EXPECT_EQ(QFolders::DataDir().ToUtf8(), InHome(expected)) << dataHome.value_or("(unset)");
    }
}

TEST_F(Folders, SpecialFoldersEndInASlash) {
    m_environment.Set("TMPDIR", "/var/tmp");
    EXPECT_EQ(Location(QSpecialFolder::Temp), "/var/tmp/");
    m_environment.Set("TMPDIR", std::nullopt);
    EXPECT_EQ(Location(QSpecialFolder::Temp), "/tmp/");
    EXPECT_EQ(Location(QSpecialFolder::Home), InHome("HOME/"));
    EXPECT_EQ(Location(QSpecialFolder::Config), InHome("HOME/config/"));
    EXPECT_EQ(Location(QSpecialFolder::Data), InHome("HOME/data/"));
}

TEST_F(Folders, TheProgramsFolderHoldsTheRunningProgram) {
    const std::string program = QFolders::ProgramPathAndName().ToUtf8();
    EXPECT_TRUE(std::filesystem::is_regular_file(program)) << program;
    EXPECT_EQ(QFolders::ProgramDir().ToUtf8() + std::filesystem::path(program).filename().string(),
              program);
}

} // namespace
} // namespace keel
