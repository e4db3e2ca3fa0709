#include "tests/support/tempfolder.h"
#include "tests/support/uihosts.h"

#include "keel/system/currentdirectory.h"
#include "keel/system/folders.h"
#include "keel/system/fsfile.h"
#include "keel/system/pathop.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

// Gives the test the protected test behind QFSFile's own.
struct FileTest : QFSFile {
    using QFSFile::FileOrFolderTest;
};

// Files in a work folder of a home of the test's own; every report comes to a host with a
// display as a box.
class FilesOnDisk : public test::HomeFolderTest {
protected:
    void SetUp() override {
        HomeFolderTest::SetUp();
        fs::create_directory(m_root / "work");
        QFSFile::ClearFileStatusCache();
    }
    void TearDown() override {
        QFSFile::ClearFileStatusCache();
        HomeFolderTest::TearDown();
    }

    std::string P(const std::string& name) const { return Path("work/" + name); }
    CString C(const std::string& name) const { return CString::FromUtf8(P(name)); }
    CString Folder(const std::string& name) const { return C(name + "/"); }
    void MakeFile(const std::string& name, const std::string& content = "x") const {
        test::WriteText(P(name), content);
    }
    std::string Content(const std::string& name) const { return test::ReadText(P(name)); }
    // The boxes shown since the last call.
    Names Boxes() { return std::exchange(m_host.boxes, {}); }
    // An answer and the boxes shown on the way to it, as one text.
    std::string Said(bool answer) {
        std::string said = answer ? "yes" : "no";
        for (const std::string& box : Boxes())
            said += ": " + box;
        return said;
    }
    static bool RunningAsRoot() { return geteuid() == 0; }

    test::RecordingHost m_host;
    test::ScopedUIServices m_installed{m_host};
};

TEST_F(FilesOnDisk, FileOrFolderTestSaysExactlyWhy) {
    MakeFile("plain.txt");
    MakeFile(".hidden");
    fs::create_directory(P("dir"));
    fs::create_directory(P(".config"));
    ASSERT_EQ(mkfifo(P("pipe").c_str(), 0600), 0);
    using F = QFSFile;
    const struct {
        const char* name;
        int mustExist;
        unsigned mustHave, mustNotHave;
        const char* reason; // after the path; null when the test passes
    } cases[] = {
        {"missing", 1, 0, 0, " does not exist"},
        {"plain.txt", 0, 0, 0, " already exists"},
        {"dir", 1, 0, F::attrFolder, " exists, but is a folder file"},
        {"plain.txt", 1, F::attrFolder, 0, " exists, but isn't a folder file"},
        {".hidden", 1, 0, F::attrHidden | F::attrFolder, " exists, but is a hidden file"},
        {".config", 1, 0, F::attrHidden | F::attrFolder, " exists, but is a hidden folder file"},
        {".config/", 1, 0, F::attrHidden, " exists, but is a hidden file"},
        {".hidden", 1, F::attrFolder | F::attrArchived, F::attrHidden,
         " exists, but is a hidden and isn't a folder archived file"},
        {"pipe", 1, 0, F::attrSystem, " exists, but is a system file"},
        {"plain.txt", 1, 0, F::attrVolume | F::attrArchived | F::attrSystem, nullptr}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        for (const bool quiet : {false, true}) {
            const bool passed = FileTest::FileOrFolderTest(C(test.name), quiet, test.mustExist,
                                                           test.mustHave, test.mustNotHave);
            // A quiet test reports nothing.
            EXPECT_EQ(Said(passed), !test.reason ? "yes"
                                    : quiet      ? "no"
                                                 : "no: " + P(test.name) + test.reason);
        }
    }
    // An empty path fails every test, quietly.
    EXPECT_FALSE(FileTest::FileOrFolderTest(u"", false, 0, 0, 0));
    EXPECT_FALSE(QFSFile::Exists(u"  ", false));
    QFSFileStatus status;
    EXPECT_FALSE(QFSFile::GetStatus(u"", status));
    EXPECT_TRUE(Boxes().empty());
    // Exists asks for a file, and a folder is refused as one.
    EXPECT_FALSE(QFSFile::Exists(C("dir")));
    EXPECT_TRUE(QFSFolder::Exists(C("dir")));
}

TEST_F(FilesOnDisk, StatusDescribesWhatIsThere) {
    MakeFile("five.txt", "12345");
    fs::create_directory(P("sub"));
    QFSFileStatus status;
    ASSERT_TRUE(QFSFile::GetStatus(C("five.txt"), status));
    EXPECT_EQ(status.m_size, 5u);
    EXPECT_EQ(status.m_attribute, 0u);
    ASSERT_TRUE(QFSFile::GetStatus(Folder("sub"), status));
    EXPECT_EQ(status.m_attribute, static_cast<unsigned>(QFSFile::attrFolder));
    EXPECT_FALSE(QFSFile::GetStatus(C("none"), status));
    if (!RunningAsRoot()) { // root may write whatever the permission bits say
        fs::permissions(P("five.txt"), fs::perms::owner_read);
        QFSFile::ClearFileStatusCache(); // the change was made behind its back
        EXPECT_EQ(Said(QFSFile::ExistsAndCanBeWritten(C("five.txt"), false)),
                  "no: " + P("five.txt") + " exists, but is a readonly file");
    }
}

TEST_F(FilesOnDisk, LookUpsAreKeptUntilTheCacheIsClearedOrAChangeIsMadeHere) {
    EXPECT_FALSE(QFSFile::Exists(C("late.txt")));
    MakeFile("late.txt");
    EXPECT_FALSE(QFSFile::Exists(C("late.txt"))) << "the look-up before is kept";
    EXPECT_FALSE(QFSFile::ExistsAndCanBeWritten(C("late.txt"), true)) << "by every test";
    QFSFileStatus status;
    EXPECT_FALSE(QFSFile::GetStatus(C("late.txt"), status)) << "and by a status";
    EXPECT_TRUE(QFSFile::Exists(C("late.txt"), true, false)) << "unless the cache is passed";
    QFSFile::ClearFileStatusCache();
    EXPECT_TRUE(QFSFile::Exists(C("late.txt")));

    EXPECT_FALSE(QFSFile::Exists(C("b.txt")));
    ASSERT_TRUE(QFSFile::Rename(C("late.txt"), C("b.txt"), false));
    EXPECT_FALSE(QFSFile::Exists(C("late.txt")));
    EXPECT_TRUE(QFSFile::Exists(C("b.txt")));
    ASSERT_TRUE(QFSFile::Delete(C("b.txt"), false));
    EXPECT_FALSE(QFSFile::Exists(C("b.txt")));
}

TEST_F(FilesOnDisk, WritableFoldersAreTestedWithoutLeavingAFile) {
    MakeFile("box/keep.txt");
    EXPECT_EQ(Said(QFSFolder::ExistsAndCanBeWritten(C("box"), false)), "yes");
    EXPECT_EQ(Listing("work/box"), Names{"keep.txt"});
    EXPECT_EQ(Said(QFSFolder::ExistsAndCanBeWritten(C("nowhere"), false)),
              "no: " + P("nowhere") + "/ does not exist");

    CString folder;
    if (RunningAsRoot()) {
        // Permission bits do not stop root; the kernel's own folders do.
        if (!fs::is_directory("/sys/kernel"))
            GTEST_SKIP() << "no folder here refuses root's writes";
        folder = u"/sys/kernel/";
    } else {
        fs::permissions(P("box"), fs::perms::owner_read | fs::perms::owner_exec);
        folder = Folder("box");
    }
    EXPECT_EQ(Said(QFSFolder::ExistsAndCanBeWritten(folder, false)),
              "no: " + folder.ToUtf8() + " cannot be written\n[System error " +
                  std::system_category().message(EACCES) + "]");
    if (!RunningAsRoot()) {
        EXPECT_EQ(Listing("work/box"), Names{"keep.txt"});
    }
    for (const auto& entry : fs::directory_iterator(folder.ToUtf8()))
        EXPECT_EQ(entry.path().string().find(".$$$test"), std::string::npos);
}

TEST_F(FilesOnDisk, DeleteAndRenameAndTheirFailures) {
    MakeFile("gone.txt");
    fs::create_directory(P("folder"));
    EXPECT_EQ(Said(QFSFile::Delete(C("gone.txt"), false)), "yes");
    EXPECT_FALSE(fs::exists(P("gone.txt")));
    EXPECT_EQ(Said(QFSFile::Delete(C("gone.txt"), false)),
              "no: Can't delete file " + P("gone.txt"));
    EXPECT_EQ(Said(QFSFile::Delete(C("folder"), true)), "no");
    EXPECT_TRUE(fs::is_directory(P("folder"))) << "Delete removes files only";

    EXPECT_EQ(Said(QFSFile::DeleteIfExists(C("never.txt"), false)), "yes");

    // Rename never overwrites; RenameIfExists replaces an old file.
    MakeFile("from.txt", "from");
    MakeFile("to.txt", "to");
    EXPECT_EQ(Said(QFSFile::Rename(C("from.txt"), C("to.txt"), false)),
              "no: Can't rename file " + P("from.txt") + " to " + P("to.txt"));
    EXPECT_EQ(Content("to.txt"), "to");
    EXPECT_EQ(Said(QFSFile::Rename(C("from.txt"), C("new.txt"), false)), "yes");
    EXPECT_EQ(Content("new.txt"), "from");
    EXPECT_FALSE(fs::exists(P("from.txt")));

    EXPECT_EQ(Said(QFSFile::RenameIfExists(C("absent.txt"), C("other.txt"), false)), "yes");
    EXPECT_EQ(Said(QFSFile::RenameIfExists(C("new.txt"), C("to.txt"), false)), "yes");
    EXPECT_EQ(Content("to.txt"), "from");
    EXPECT_FALSE(fs::exists(P("new.txt")));
    MakeFile("from.txt", "newer");
    EXPECT_EQ(Said(QFSFile::RenameIfExists(C("from.txt"), C("folder"), false)),
              "no: Can't delete old file " + P("folder"));
    EXPECT_EQ(Content("from.txt"), "newer");
}

TEST_F(FilesOnDisk, AWrittenFileReplacesTheOldOneWithItsModeOrLeavesItAlone) {
    MakeFile("kept.tab", "old");
    ASSERT_EQ(::chmod(P("kept.tab").c_str(), 0640), 0);
    MakeFile("written", "new");
    ASSERT_EQ(::chmod(P("written").c_str(), 0600), 0);
    CString reason;
    EXPECT_TRUE(QFSFile::ReplaceWithWritten(C("written"), C("kept.tab"), reason));
    EXPECT_EQ(Content("kept.tab"), "new");
    EXPECT_EQ(fs::status(P("kept.tab")).permissions(), fs::perms(0640));
    EXPECT_FALSE(fs::exists(P("written")));

    // A folder in the way cannot be replaced by a file: the written file stays for the caller.
    fs::create_directory(P("folder"));
    MakeFile("written", "newest");
    EXPECT_FALSE(QFSFile::ReplaceWithWritten(C("written"), C("folder"), reason));
    EXPECT_FALSE(reason.IsEmpty());
    EXPECT_TRUE(fs::is_directory(P("folder")));
    EXPECT_EQ(Content("written"), "newest");
    EXPECT_TRUE(Boxes().empty());
}

TEST_F(FilesOnDisk, FoldersAreMadeWhenNeeded) {
    EXPECT_TRUE(QFSFile::CreateContainingFolderIfRequired(C("x/y/z/file.txt")));
    EXPECT_TRUE(fs::is_directory(P("x/y/z")));
    EXPECT_FALSE(fs::exists(P("x/y/z/file.txt")));
    EXPECT_TRUE(QFSFolder::CreateIfRequired(C("x\\w")));
    EXPECT_TRUE(fs::is_directory(P("x/w")));
    MakeFile("plain");
    EXPECT_FALSE(QFSFolder::CreateIfRequired(C("plain")));
    EXPECT_FALSE(QFSFolder::CreateIfRequired(u""));
}

TEST_F(FilesOnDisk, UniqueStemsNumberTheNameAndTempPathsAreFree) {
    EXPECT_EQ(QFSFile::GetFileUniqueStem(C("report.txt")), C("report.txt"));
    MakeFile("report.txt", "first");
    EXPECT_EQ(QFSFile::GetFileUniqueStem(C("report.txt")), C("report_1.txt"));
    MakeFile("report_1.txt");
    EXPECT_EQ(QFSFile::GetFileUniqueStem(C("report.txt")), C("report_2.txt"));

    const CString first = QFSFile::GenerateTempPath(C(""));
    const CString second = QFSFile::GenerateTempPath(C(""));
    EXPECT_NE(first, second);
    for (const CString& path : {first, second}) {
        EXPECT_EQ(QPathOp::PathWithoutFileSpec(path), C(""));
        EXPECT_TRUE(QPathOp::MatchDotExt(path, u".tmp"));
        EXPECT_FALSE(fs::exists(path.ToUtf8()));
    }
    EXPECT_TRUE(QPathOp::HasRoot(QFSFile::GenerateTempPath(u"")));
}

TEST_F(FilesOnDisk, SearchesThroughFoldersAndTrees) {
    for (const char* name :
         {"b/f.txt", "b/sub/g.txt", "c/deep/er/h.txt", "c/h.txt.not", "d/x/k.txt", "d/x/y/k.txt"})
        MakeFile(name);
    QArray<CString> folders;
    for (const CString& folder : {Folder("a"), C("b"), Folder("c"), Folder("d")})
        folders.Add(folder);
    const struct {
        bool tree;
        const char16_t* name;
        const char* found; // empty when not found
    } cases[] = {{false, u"f.txt", "b/f.txt"},  {false, u"sub\\g.txt", "b/sub/g.txt"},
                 {false, u"g.txt", ""},         {true, u"h.txt", "c/deep/er/h.txt"},
                 {true, u"k.txt", "d/x/k.txt"}, // the shallower file comes first
                 {true, u"none.txt", ""}};
    for (const auto& test : cases) {
        CString found = u"stale";
        EXPECT_EQ(test.tree ? QFSFile::ExistsTreeSearch(test.name, found, folders)
                            : QFSFile::ExistsFolderSearch(test.name, found, folders),
                  *test.found != '\0')
            << CString(test.name).ToUtf8();
        if (*test.found || !test.tree) {
            EXPECT_EQ(found, *test.found ? C(test.found) : CString());
        }
    }
    CString found;
    EXPECT_TRUE(QFSFile::ExistsFolderSearch(C("c/h.txt.not"), found, {}));
    EXPECT_TRUE(Boxes().empty());
}

TEST_F(FilesOnDisk, DeleteContentsByPatternAndDeleteAllFollowsNoLink) {
    for (const char* name : {"box/a.txt", "box/B.TXT", "box/c.log", "box/sub/inner.log",
                             "box/keep/inner.txt", "tree/a/b/c.txt", "target/precious.txt"})
        MakeFile(name);
    EXPECT_EQ(Said(QFSFolder::DeleteContents(C("box"), false, u"*.txt;sub")), "yes");
    EXPECT_EQ(Listing("work/box"), (Names{"c.log", "keep"}));
    EXPECT_TRUE(fs::exists(P("box/keep/inner.txt")));
    EXPECT_EQ(Said(QFSFolder::DeleteContents(C("box"), false)), "yes");
    EXPECT_TRUE(Listing("work/box").empty());
    EXPECT_TRUE(fs::is_directory(P("box")));

    fs::create_directory_symlink(P("target"), P("tree/link"));
    EXPECT_TRUE(QFSFolder::DeleteAll(C("tree")));
    EXPECT_FALSE(fs::exists(P("tree")));
    EXPECT_TRUE(fs::exists(P("target/precious.txt"))) << "a link is not followed";
    fs::create_directory_symlink(P("target"), P("alias"));
    EXPECT_TRUE(QFSFolder::DeleteAll(Folder("alias")));
    EXPECT_FALSE(fs::exists(fs::symlink_status(P("alias"))));
    EXPECT_TRUE(fs::exists(P("target/precious.txt")));
}

// DeleteAll refuses an empty path and every root. A fault there removes whatever the root holds,
// so the check runs in a child process shut in a folder of the test (chroot, which needs root):
// at worst it empties that folder. Without that right the check is skipped, never pointed at the
// real root.
TEST_F(FilesOnDisk, DeleteAllNeverRemovesARoot) {
    if (!RunningAsRoot())
        GTEST_SKIP() << "a chroot needs root";
    MakeFile("jail/keep.txt");
    const std::string jail = P("jail");
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        if (::chroot(jail.c_str()) != 0 || ::chdir("/") != 0)
            ::_exit(100);
        int accepted = 0;
        for (const char16_t* root : {u"", u"/", u"C:\\", u"//server/share/"})
            accepted += QFSFolder::DeleteAll(root) ? 1 : 0;
        ::_exit(accepted + (fs::exists("/keep.txt") ? 0 : 10));
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "roots accepted, plus 10 if the jail was emptied";
}

TEST_F(FilesOnDisk, TheCurrentFolderIsEnteredAndRestored) {
    const CString before = QCurrentDirectory::Get();
    ASSERT_FALSE(before.IsEmpty());
    EXPECT_EQ(before[before.GetLength() - 1], u'/');
    for (const bool exists : {true, false}) {
        const CString folder = exists ? C("") : C("missing");
        QSaveAndRestoreCurrentDirectory scope(folder);
        EXPECT_EQ(scope.IsEntered(), exists);
        EXPECT_EQ(QCurrentDirectory::Get(), exists ? folder : before);
        if (exists) {
            EXPECT_EQ(scope.SavedFolder(), before);
            MakeFile("here.txt");
            EXPECT_TRUE(QFSFile::Exists(u"here.txt"));
        }
    }
    EXPECT_EQ(QCurrentDirectory::Get(), before);
    EXPECT_FALSE(QCurrentDirectory::Set(u""));
}

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

TEST_F(Folders, TheDataAndTempFoldersFollowTheEnvironment) {
    const std::pair<std::optional<std::string>, std::string> cases[] = {
        {"/var/data", "/var/data/keel/"},
        {"relative", "HOME/.local/share/keel/"},
    };
    for (const auto& [dataHome, expected] : cases) {
        m_environment.Set("XDG_DATA_HOME", dataHome);
        EXPECT_EQ(QFolders::DataDir().ToUtf8(), InHome(expected)) << dataHome.value_or("(unset)");
    }
    m_environment.Set("TMPDIR", "/var/tmp");
    EXPECT_EQ(Location(QSpecialFolder::Temp), "/var/tmp/");
    m_environment.Set("TMPDIR", std::nullopt);
    EXPECT_EQ(Location(QSpecialFolder::Temp), "/tmp/");
}

TEST_F(Folders, TheProgramsFolderHoldsTheRunningProgram) {
    const std::string program = QFolders::ProgramPathAndName().ToUtf8();
    EXPECT_TRUE(std::filesystem::is_regular_file(program)) << program;
    EXPECT_EQ(QFolders::ProgramDir().ToUtf8() + std::filesystem::path(program).filename().string(),
              program);
}

} // namespace
} // namespace keel
