#include "keel/platform/uiservices.h"
#include "keel/system/currentdirectory.h"
#include "keel/system/fsfile.h"
#include "keel/system/pathop.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;

// Gives the test the protected test behind QFSFile's own.
struct FileTest : QFSFile {
    using QFSFile::FileOrFolderTest;
};

// A host with a display, so that every report comes here as a box.
class RecordingHost : public IUIServices {
public:
    bool HasDisplay() const override { return true; }
    int MessageBox(const CString& text, const CString&, unsigned) override {
        boxes.push_back(text.ToUtf8());
        return IDOK;
    }
    void ShowPendingMessages(const std::vector<CPendingMessage>&) override {}
    bool Customise(CCheckList&, CCheckList&, const std::function<void()>&) override {
        return false;
    }
    bool OpenFile(const CString&) override { return false; }

    std::vector<std::string> boxes;
};

class SavedVariable {
public:
    SavedVariable(const char* name, const std::string& value) : m_name(name) {
        if (const char* old = std::getenv(name))
            m_old = old;
        setenv(name, value.c_str(), 1);
    }
    ~SavedVariable() {
        if (m_old)
            setenv(m_name, m_old->c_str(), 1);
        else
            unsetenv(m_name);
    }

private:
    const char* m_name;
    std::optional<std::string> m_old;
};

class FilesOnDisk : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "keel-fsfile-XXXXXX");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_root = pattern;
        m_variables.emplace_back("HOME", m_root.string());
        m_variables.emplace_back("XDG_CONFIG_HOME", (m_root / "config").string());
        m_variables.emplace_back("XDG_DATA_HOME", (m_root / "data").string());
        fs::create_directory(m_root / "work");
        SetUIServices(&m_host);
        QFSFile::ClearFileStatusCache();
    }
    void TearDown() override {
        SetUIServices(nullptr);
        QFSFile::ClearFileStatusCache();
        // Tests take write permission away; give it back so that everything can go.
        std::error_code error;
        for (const auto& entry : fs::recursive_directory_iterator(m_root, error)) {
            if (entry.is_directory(error) && !entry.is_symlink(error))
                fs::permissions(entry.path(), fs::perms::owner_all, fs::perm_options::add, error);
        }
        fs::remove_all(m_root, error);
    }

    // The path of a name in the work folder, as the classes see it.
    std::string Path(const std::string& name) const { return (m_root / "work" / name).string(); }
    CString PathOf(const std::string& name) const { return CString::FromUtf8(Path(name)); }
    CString FolderOf(const std::string& name) const { return PathOf(name + "/"); }
    void MakeFile(const std::string& name, const std::string& content = "x") const {
        fs::create_directories(fs::path(Path(name)).parent_path());
        std::ofstream(Path(name), std::ios::binary) << content;
    }
    std::string Content(const std::string& name) const {
        std::ifstream stream(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    std::vector<std::string> Listing(const std::string& folder) const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(Path(folder)))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    static bool RunningAsRoot() { return geteuid() == 0; }

    fs::path m_root;
    std::vector<SavedVariable> m_variables;
    RecordingHost m_host;
};

struct AttributeCase {
    const char* name;
    int mustExist;
    unsigned mustHave;
    unsigned mustNotHave;
    bool passes;
    // The report after the path; empty when there is none.
    const char* reason;
};

TEST_F(FilesOnDisk, FileOrFolderTestSaysExactlyWhy) {
    MakeFile("plain.txt");
    MakeFile(".hidden");
    fs::create_directory(Path("dir"));
    fs::create_directory(Path(".config"));
    ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
    const AttributeCase cases[] = {
        {"missing", 1, 0, 0, false, " does not exist"},
        {"missing", 0, 0, 0, true, ""},
        {"plain.txt", 0, 0, 0, false, " already exists"},
        {"plain.txt", 1, 0, QFSFile::attrFolder, true, ""},
        {"dir", 1, 0, QFSFile::attrFolder, false, " exists, but is a folder file"},
        {"plain.txt", 1, QFSFile::attrFolder, 0, false, " exists, but isn't a folder file"},
        {".hidden", 1, 0, QFSFile::attrHidden | QFSFile::attrFolder, false,
         " exists, but is a hidden file"},
        {".config", 1, 0, QFSFile::attrHidden | QFSFile::attrFolder, false,
         " exists, but is a hidden folder file"},
        {".hidden", 1, QFSFile::attrFolder | QFSFile::attrArchived, QFSFile::attrHidden, false,
         " exists, but is a hidden and isn't a folder archived file"},
        {"pipe", 1, 0, QFSFile::attrSystem, false, " exists, but is a system file"},
        {"plain.txt", 1, 0, QFSFile::attrVolume | QFSFile::attrArchived | QFSFile::attrSystem, true,
         ""},
    };
    for (const AttributeCase& test : cases) {
        SCOPED_TRACE(test.name);
        m_host.boxes.clear();
        EXPECT_EQ(FileTest::FileOrFolderTest(PathOf(test.name), false, test.mustExist,
                                             test.mustHave, test.mustNotHave),
                  test.passes);
        if (test.passes) {
            EXPECT_TRUE(m_host.boxes.empty());
            continue;
        }
        ASSERT_EQ(m_host.boxes.size(), 1u);
        EXPECT_EQ(m_host.boxes[0], Path(test.name) + test.reason);
        m_host.boxes.clear();
        EXPECT_FALSE(FileTest::FileOrFolderTest(PathOf(test.name), true, test.mustExist,
                                                test.mustHave, test.mustNotHave));
        EXPECT_TRUE(m_host.boxes.empty()) << "a quiet test reports nothing";
    }
}

TEST_F(FilesOnDisk, AnExistingFolderExpectedToBeAFileIsRefusedAsAFolder) {
    fs::create_directory(Path("folder"));
    EXPECT_FALSE(QFSFile::Exists(PathOf("folder"), false));
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_NE(m_host.boxes[0].find("is a "), std::string::npos);
    EXPECT_NE(m_host.boxes[0].find("folder "), std::string::npos);
    EXPECT_TRUE(QFSFolder::Exists(PathOf("folder")));
}

TEST_F(FilesOnDisk, AnEmptyPathFailsEveryTest) {
    EXPECT_FALSE(FileTest::FileOrFolderTest(u"", false, 0, 0, 0));
    EXPECT_FALSE(QFSFile::Exists(u"  ", false));
    QFSFileStatus status;
    EXPECT_FALSE(QFSFile::GetStatus(u"", status));
    EXPECT_TRUE(m_host.boxes.empty());
}

TEST_F(FilesOnDisk, ReadOnlyMeansTheUserMayNotWrite) {
    if (RunningAsRoot())
        GTEST_SKIP() << "root may write whatever the permission bits say";
    MakeFile("locked.txt");
    fs::permissions(Path("locked.txt"), fs::perms::owner_read);
    EXPECT_FALSE(QFSFile::ExistsAndCanBeWritten(PathOf("locked.txt"), false));
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0], Path("locked.txt") + " exists, but is a readonly file");
}

TEST_F(FilesOnDisk, StatusDescribesWhatIsThere) {
    MakeFile("five.txt", "12345");
    fs::create_directory(Path("sub"));
    QFSFileStatus status;
    ASSERT_TRUE(QFSFile::GetStatus(PathOf("five.txt"), status));
    EXPECT_EQ(status.m_size, 5u);
    EXPECT_EQ(status.m_attribute, 0u);
    EXPECT_EQ(status.m_strFullName, PathOf("five.txt"));
    EXPECT_GT(status.m_mtime, 0);
    ASSERT_TRUE(QFSFile::GetStatus(FolderOf("sub"), status));
    EXPECT_EQ(status.m_attribute, static_cast<unsigned>(QFSFile::attrFolder));
    EXPECT_FALSE(QFSFile::GetStatus(PathOf("none"), status));
}

TEST_F(FilesOnDisk, LookUpsAreKeptUntilTheCacheIsCleared) {
    EXPECT_FALSE(QFSFile::Exists(PathOf("late.txt")));
    MakeFile("late.txt");
    EXPECT_FALSE(QFSFile::Exists(PathOf("late.txt"))) << "the look-up before is kept";
    EXPECT_TRUE(QFSFile::Exists(PathOf("late.txt"), true, false)) << "unless the cache is passed";
    fs::remove(Path("late.txt"));
    QFSFile::ClearFileStatusCache();
    EXPECT_FALSE(QFSFile::Exists(PathOf("late.txt")));
    MakeFile("late.txt");
    QFSFile::ClearFileStatusCache();
    EXPECT_TRUE(QFSFile::Exists(PathOf("late.txt")));
}

TEST_F(FilesOnDisk, ChangesMadeHereEmptyTheCache) {
    MakeFile("a.txt");
    EXPECT_TRUE(QFSFile::Exists(PathOf("a.txt")));
    EXPECT_FALSE(QFSFile::Exists(PathOf("b.txt")));
    ASSERT_TRUE(QFSFile::Rename(PathOf("a.txt"), PathOf("b.txt"), false));
    EXPECT_FALSE(QFSFile::Exists(PathOf("a.txt")));
    EXPECT_TRUE(QFSFile::Exists(PathOf("b.txt")));
    ASSERT_TRUE(QFSFile::Delete(PathOf("b.txt"), false));
    EXPECT_FALSE(QFSFile::Exists(PathOf("b.txt")));
}

TEST_F(FilesOnDisk, AWritableFolderIsTestedWithoutLeavingAFile) {
    MakeFile("box/keep.txt");
    EXPECT_TRUE(QFSFolder::ExistsAndCanBeWritten(PathOf("box"), false));
    EXPECT_EQ(Listing("box"), std::vector<std::string>{"keep.txt"});
    EXPECT_TRUE(m_host.boxes.empty());
}

TEST_F(FilesOnDisk, AMissingFolderCannotBeWritten) {
    EXPECT_FALSE(QFSFolder::ExistsAndCanBeWritten(PathOf("nowhere"), false));
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0], Path("nowhere") + "/ does not exist");
}

TEST_F(FilesOnDisk, AFolderThatRefusesWritesIsReportedAndLeftAsItWas) {
    CString folder;
    std::vector<std::string> before;
    if (RunningAsRoot()) {
        // Permission bits do not stop root; the kernel's own folders do.
        if (!fs::is_directory("/sys/kernel"))
            GTEST_SKIP() << "no folder here refuses root's writes";
        folder = u"/sys/kernel/";
    } else {
        MakeFile("locked/keep.txt");
        fs::permissions(Path("locked"), fs::perms::owner_read | fs::perms::owner_exec);
        folder = FolderOf("locked");
        before = Listing("locked");
    }
    EXPECT_FALSE(QFSFolder::ExistsAndCanBeWritten(folder, false));
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0], folder.ToUtf8() + " cannot be written\n[System error " +
                                   std::system_category().message(EACCES) + "]");
    if (!RunningAsRoot()) {
        EXPECT_EQ(Listing("locked"), before);
    }
    for (const auto& entry : fs::directory_iterator(folder.ToUtf8()))
        EXPECT_EQ(entry.path().string().find(".$$$test"), std::string::npos);
}

TEST_F(FilesOnDisk, DeleteAndItsFailures) {
    MakeFile("gone.txt");
    EXPECT_TRUE(QFSFile::Delete(PathOf("gone.txt"), false));
    EXPECT_FALSE(fs::exists(Path("gone.txt")));
    EXPECT_TRUE(m_host.boxes.empty());

    EXPECT_FALSE(QFSFile::Delete(PathOf("gone.txt"), false));
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0], "Can't delete file " + Path("gone.txt"));

    fs::create_directory(Path("folder"));
    m_host.boxes.clear();
    EXPECT_FALSE(QFSFile::Delete(PathOf("folder"), true));
    EXPECT_TRUE(fs::is_directory(Path("folder"))) << "Delete removes files only";
    EXPECT_TRUE(m_host.boxes.empty());
}

TEST_F(FilesOnDisk, DeleteIfExists) {
    EXPECT_TRUE(QFSFile::DeleteIfExists(PathOf("never.txt"), false));
    MakeFile("old.txt");
    EXPECT_TRUE(QFSFile::DeleteIfExists(PathOf("old.txt"), false));
    EXPECT_FALSE(fs::exists(Path("old.txt")));
    EXPECT_TRUE(m_host.boxes.empty());

    fs::create_directory(Path("old"));
    EXPECT_FALSE(QFSFile::DeleteIfExists(PathOf("old"), false));
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0], "Can't delete old file " + Path("old"));
}

TEST_F(FilesOnDisk, RenameNeverOverwrites) {
    MakeFile("from.txt", "from");
    MakeFile("to.txt", "to");
    EXPECT_FALSE(QFSFile::Rename(PathOf("from.txt"), PathOf("to.txt"), false));
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0], "Can't rename file " + Path("from.txt") + " to " + Path("to.txt"));
    EXPECT_EQ(Content("to.txt"), "to");

    EXPECT_TRUE(QFSFile::Rename(PathOf("from.txt"), PathOf("new.txt"), false));
    EXPECT_EQ(Content("new.txt"), "from");
    EXPECT_FALSE(fs::exists(Path("from.txt")));
}

TEST_F(FilesOnDisk, RenameIfExistsReplacesAnOldFile) {
    EXPECT_TRUE(QFSFile::RenameIfExists(PathOf("absent.txt"), PathOf("to.txt"), false));
    EXPECT_FALSE(fs::exists(Path("to.txt")));

    MakeFile("from.txt", "new");
    MakeFile("to.txt", "old");
    EXPECT_TRUE(QFSFile::RenameIfExists(PathOf("from.txt"), PathOf("to.txt"), false));
    EXPECT_EQ(Content("to.txt"), "new");
    EXPECT_FALSE(fs::exists(Path("from.txt")));

    MakeFile("from.txt", "newer");
    fs::create_directory(Path("blocked"));
    EXPECT_FALSE(QFSFile::RenameIfExists(PathOf("from.txt"), PathOf("blocked"), false));
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0], "Can't delete old file " + Path("blocked"));
    EXPECT_EQ(Content("from.txt"), "newer");
}

TEST_F(FilesOnDisk, TheContainingFolderIsMadeWhenNeeded) {
    EXPECT_TRUE(QFSFile::CreateContainingFolderIfRequired(PathOf("x/y/z/file.txt")));
    EXPECT_TRUE(fs::is_directory(Path("x/y/z")));
    EXPECT_FALSE(fs::exists(Path("x/y/z/file.txt")));
    EXPECT_TRUE(QFSFile::CreateContainingFolderIfRequired(PathOf("x/y/z/file.txt")));
    EXPECT_TRUE(QFSFolder::CreateIfRequired(PathOf("x\\w")));
    EXPECT_TRUE(fs::is_directory(Path("x/w")));
    MakeFile("plain");
    EXPECT_FALSE(QFSFolder::CreateIfRequired(PathOf("plain")));
    EXPECT_FALSE(QFSFolder::CreateIfRequired(u""));
}

TEST_F(FilesOnDisk, UniqueStemsNumberTheName) {
    EXPECT_EQ(QFSFile::GetFileUniqueStem(PathOf("report.txt")), PathOf("report.txt"));
    MakeFile("report.txt", "first");
    EXPECT_EQ(QFSFile::GetFileUniqueStem(PathOf("report.txt")), PathOf("report_1.txt"));
    MakeFile("report_1.txt");
    EXPECT_EQ(QFSFile::GetFileUniqueStem(PathOf("report.txt")), PathOf("report_2.txt"));
    MakeFile("plain");
    EXPECT_EQ(QFSFile::GetFileUniqueStem(PathOf("plain")), PathOf("plain_1"));

    MakeFile("source.txt", "content");
    EXPECT_EQ(QFSFile::CopyFileUniqueStem(PathOf("source.txt"), PathOf("report.txt")),
              PathOf("report_2.txt"));
    EXPECT_EQ(Content("report_2.txt"), "content");
    EXPECT_EQ(Content("report.txt"), "first");
    EXPECT_EQ(QFSFile::CopyFileUniqueStem(PathOf("missing"), PathOf("copy.txt")), CString());
    EXPECT_FALSE(fs::exists(Path("copy.txt")));
}

TEST_F(FilesOnDisk, TempPathsAreFreeAndDiffer) {
    const CString first = QFSFile::GenerateTempPath(PathOf(""));
    const CString second = QFSFile::GenerateTempPath(PathOf(""));
    EXPECT_NE(first, second);
    for (const CString& path : {first, second}) {
        EXPECT_EQ(QPathOp::PathWithoutFileSpec(path), PathOf(""));
        EXPECT_TRUE(QPathOp::MatchDotExt(path, u".tmp"));
        EXPECT_FALSE(fs::exists(path.ToUtf8()));
    }
    EXPECT_TRUE(QPathOp::HasRoot(QFSFile::GenerateTempPath(u"")));
}

TEST_F(FilesOnDisk, SearchesThroughFoldersAndTrees) {
    MakeFile("b/f.txt");
    MakeFile("b/sub/g.txt");
    MakeFile("c/deep/er/h.txt");
    MakeFile("c/h.txt.not");
    MakeFile("d/x/k.txt");
    MakeFile("d/x/y/k.txt");
    QArray<CString> folders;
    folders.Add(FolderOf("a"));
    folders.Add(PathOf("b"));
    folders.Add(FolderOf("c"));
    folders.Add(FolderOf("d"));
    CString found;
    EXPECT_TRUE(QFSFile::ExistsFolderSearch(u"f.txt", found, folders));
    EXPECT_EQ(found, PathOf("b/f.txt"));
    EXPECT_TRUE(QFSFile::ExistsFolderSearch(u"sub\\g.txt", found, folders));
    EXPECT_EQ(found, PathOf("b/sub/g.txt"));
    EXPECT_FALSE(QFSFile::ExistsFolderSearch(u"g.txt", found, folders));
    EXPECT_EQ(found, CString());
    EXPECT_TRUE(QFSFile::ExistsFolderSearch(PathOf("c/h.txt.not"), found, {}));

    EXPECT_TRUE(QFSFile::ExistsTreeSearch(u"g.txt", found, folders));
    EXPECT_EQ(found, PathOf("b/sub/g.txt"));
    EXPECT_TRUE(QFSFile::ExistsTreeSearch(u"h.txt", found, folders));
    EXPECT_EQ(found, PathOf("c/deep/er/h.txt"));
    EXPECT_TRUE(QFSFile::ExistsTreeSearch(u"k.txt", found, folders));
    EXPECT_EQ(found, PathOf("d/x/k.txt")) << "the shallower file comes first";
    EXPECT_FALSE(QFSFile::ExistsTreeSearch(u"none.txt", found, folders));
    EXPECT_TRUE(m_host.boxes.empty());
}

TEST_F(FilesOnDisk, DeleteContentsByPattern) {
    MakeFile("box/a.txt");
    MakeFile("box/B.TXT");
    MakeFile("box/c.log");
    MakeFile("box/sub/inner.log");
    MakeFile("box/keep/inner.txt");
    EXPECT_TRUE(QFSFolder::DeleteContents(PathOf("box"), false, u"*.txt;sub"));
    EXPECT_EQ(Listing("box"), (std::vector<std::string>{"c.log", "keep"}));
    EXPECT_TRUE(fs::exists(Path("box/keep/inner.txt")));
    EXPECT_TRUE(QFSFolder::DeleteContents(PathOf("box"), false));
    EXPECT_TRUE(Listing("box").empty());
    EXPECT_TRUE(fs::is_directory(Path("box")));
    EXPECT_TRUE(m_host.boxes.empty());

    EXPECT_FALSE(QFSFolder::DeleteContents(PathOf("nobox"), false));
    ASSERT_EQ(m_host.boxes.size(), 1u);
    EXPECT_EQ(m_host.boxes[0], Path("nobox") + "/ does not exist");
}

TEST_F(FilesOnDisk, DeleteAllRemovesTheTreeButNeverARoot) {
    MakeFile("tree/a/b/c.txt");
    MakeFile("target/precious.txt");
    fs::create_directory_symlink(Path("target"), Path("tree/link"));
    EXPECT_TRUE(QFSFolder::DeleteAll(PathOf("tree")));
    EXPECT_FALSE(fs::exists(Path("tree")));
    EXPECT_TRUE(fs::exists(Path("target/precious.txt"))) << "a link is not followed";

    fs::create_directory_symlink(Path("target"), Path("alias"));
    EXPECT_TRUE(QFSFolder::DeleteAll(FolderOf("alias")));
    EXPECT_FALSE(fs::exists(fs::symlink_status(Path("alias"))));
    EXPECT_TRUE(fs::exists(Path("target/precious.txt")));

    EXPECT_FALSE(QFSFolder::DeleteAll(u""));
    EXPECT_FALSE(QFSFolder::DeleteAll(u"/"));
    EXPECT_FALSE(QFSFolder::DeleteAll(u"C:\\"));
}

TEST_F(FilesOnDisk, TheCurrentFolderIsEnteredAndRestored) {
    const CString before = QCurrentDirectory::Get();
    ASSERT_FALSE(before.IsEmpty());
    EXPECT_EQ(before[before.GetLength() - 1], u'/');
    {
        QSaveAndRestoreCurrentDirectory scope(PathOf(""));
        EXPECT_TRUE(scope.IsEntered());
        EXPECT_EQ(scope.SavedFolder(), before);
        EXPECT_EQ(QCurrentDirectory::Get(), PathOf(""));
        MakeFile("here.txt");
        EXPECT_TRUE(QFSFile::Exists(u"here.txt"));
    }
    EXPECT_EQ(QCurrentDirectory::Get(), before);
    {
        QSaveAndRestoreCurrentDirectory scope(PathOf("missing"));
        EXPECT_FALSE(scope.IsEntered());
        EXPECT_EQ(QCurrentDirectory::Get(), before);
    }
    EXPECT_EQ(QCurrentDirectory::Get(), before);
    EXPECT_FALSE(QCurrentDirectory::Set(u""));
}

} // namespace
} // namespace keel
