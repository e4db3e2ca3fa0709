#include "keel/system/pathop.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

std::string Utf8(const CString& text) {
    return text.ToUtf8();
}

struct TextCase {
    const char* input;
    const char* expected;
};

TEST(PathOpNormalForm, EachStepInItsOrder) {
    const TextCase cases[] = {
        {"  a/b  ", "a/b"},
        {"C:\\dir\\file.txt", "C:/dir/file.txt"},
        {"a<b>c", "a&lt_b&gt_c"},
        {"\"quoted name\"", "quoted name"},
        {"dir /file", "dir/file"},
        {"dir    /file", "dir/file"},
        {"C :/x", "C:/x"},
        {"a  :  /b", "a:/b"},
        {"a \\b", "a/b"},
        {"a \"/b", "a/b"},
        {"a/ b", "a/ b"},
        // Trimming comes before the quotes go, so blanks inside them stay.
        {"\" a\"", " a"},
        {"", ""},
    };
    for (const TextCase& test : cases) {
        EXPECT_EQ(Utf8(QPathOp::NormalForm(test.input)), test.expected) << test.input;
    }
}

struct PartsCase {
    const char* path;
    const char* root;
    const char* folder;
    const char* name;
    const char* dotExt;
    const char* drive;
    const char* uncRoot;
};

const PartsCase c_partsCases[] = {
    {"/usr/lib/libc.so.6", "/", "usr/lib/", "libc.so", ".6", "", ""},
    {"/", "/", "", "", "", "", ""},
    {"C:/Program Files/App/app.exe", "C:/", "Program Files/App/", "app", ".exe", "C:", ""},
    {"C:\\dir\\file.txt", "C:/", "dir/", "file", ".txt", "C:", ""},
    {"C:file.txt", "C:", "", "file", ".txt", "C:", ""},
    {"C:", "C:", "", "", "", "C:", ""},
    {"//server/share/dir/x.doc", "//server/share/", "dir/", "x", ".doc", "", "//server/share"},
    {"\\\\server\\share", "//server/share", "", "", "", "", "//server/share"},
    {"relative/dir/", "", "relative/dir/", "", "", "", ""},
    {"file", "", "", "file", "", "", ""},
    {".bashrc", "", "", ".bashrc", "", "", ""},
    {"dir/.config.json", "", "dir/", ".config", ".json", "", ""},
    {"archive.tar.gz", "", "", "archive.tar", ".gz", "", ""},
    {"name.", "", "", "name.", "", "", ""},
    {"...x", "", "", "...x", "", "", ""},
    {"a/..", "", "a/..", "", "", "", ""},
    {"..", "", "..", "", "", "", ""},
    {"../x.txt", "", "../", "x", ".txt", "", ""},
    {"//server", "/", "/", "server", "", "", ""},
    {"  dir /file.txt ", "", "dir/", "file", ".txt", "", ""},
    {"", "", "", "", "", "", ""},
};

TEST(PathOpParts, EachPartOfEachPath) {
    for (const PartsCase& test : c_partsCases) {
        SCOPED_TRACE(test.path);
        EXPECT_EQ(Utf8(QPathOp::Root(test.path)), test.root);
        EXPECT_EQ(Utf8(QPathOp::Folder(test.path)), test.folder);
        EXPECT_EQ(Utf8(QPathOp::FileSpecWithoutDotExt(test.path)), test.name);
        EXPECT_EQ(Utf8(QPathOp::DotExt(test.path)), test.dotExt);
        EXPECT_EQ(Utf8(QPathOp::Drive(test.path)), test.drive);
        EXPECT_EQ(Utf8(QPathOp::UNCRoot(test.path)), test.uncRoot);
    }
}

// The parts, the Has tests and the joins agree: every way of taking a path apart and putting it
// together again gives its normal form.
TEST(PathOpParts, JoiningThePartsRestoresThePath) {
    for (const PartsCase& test : c_partsCases) {
        SCOPED_TRACE(test.path);
        const CString path = test.path;
        const CString normal = QPathOp::NormalForm(path);
        EXPECT_EQ(QPathOp::Root(path) + QPathOp::Folder(path) +
                      QPathOp::FileSpecWithoutDotExt(path) + QPathOp::DotExt(path),
                  normal);
        EXPECT_EQ(QPathOp::Root(path) + QPathOp::PathWithoutRoot(path), normal);
        EXPECT_EQ(QPathOp::PathWithoutFileSpec(path) + QPathOp::FileSpec(path), normal);
        EXPECT_EQ(QPathOp::PathWithoutFolder(path), QPathOp::FileSpec(path));
        EXPECT_EQ(
            QPathOp::PathPlusFileSpec(QPathOp::PathWithoutFileSpec(path), QPathOp::FileSpec(path)),
            normal);
        EXPECT_EQ(QPathOp::ChangeFileSpec(path, QPathOp::FileSpec(path)), normal);
        EXPECT_EQ(QPathOp::ChangeDotExt(path, QPathOp::DotExt(path)), normal);
        EXPECT_EQ(QPathOp::HasRoot(path), !QPathOp::Root(path).IsEmpty());
        EXPECT_EQ(QPathOp::HasFolder(path), !QPathOp::Folder(path).IsEmpty());
        EXPECT_EQ(QPathOp::HasFileSpec(path), !QPathOp::FileSpec(path).IsEmpty());
        EXPECT_EQ(QPathOp::HasDotExt(path), !QPathOp::DotExt(path).IsEmpty());
        EXPECT_EQ(QPathOp::HasDrive(path), !QPathOp::Drive(path).IsEmpty());
        EXPECT_EQ(QPathOp::HasUNCRoot(path), !QPathOp::UNCRoot(path).IsEmpty());
    }
}

// Paths built from every root, folder and file spec: each part comes back as it went in, and the
// tests of the whole say what the pieces were.
TEST(PathOpParts, PathsBuiltFromPartsComeApartTheSameWay) {
    const std::vector<std::string> roots = {"", "/", "C:", "C:/", "//srv/share/"};
    const std::vector<std::string> folders = {"", "a/", "a/b c/", "../", "./x/", "x/../y/"};
    const std::vector<std::string> fileSpecs = {"", "f", "f.txt", "a.b.c", ".hidden", "a;b"};
    for (const std::string& root : roots) {
        for (const std::string& folder : folders) {
            for (const std::string& fileSpec : fileSpecs) {
                const std::string text = root + folder + fileSpec;
                SCOPED_TRACE(text);
                const CString path = CString::FromUtf8(text);
                EXPECT_EQ(Utf8(QPathOp::Root(path)), root);
                EXPECT_EQ(Utf8(QPathOp::Folder(path)), folder);
                EXPECT_EQ(Utf8(QPathOp::FileSpec(path)), fileSpec);
                EXPECT_EQ(QPathOp::IsPath(path), !text.empty());
                const bool anchored = !root.empty() && root.back() == '/';
                EXPECT_EQ(QPathOp::IsPathWithoutRoot(path), !text.empty() && root.empty());
                EXPECT_EQ(QPathOp::IsPathRelative(path), !text.empty() && !anchored);
                const bool isFolder = fileSpec.empty() && !text.empty() && text.back() == '/';
                EXPECT_EQ(QPathOp::IsFolder(path), isFolder);
                EXPECT_EQ(QPathOp::IsFolderWithoutRoot(path), isFolder && root.empty());
                EXPECT_EQ(QPathOp::IsFolderRelative(path), isFolder && !anchored);
                // A bare drive given as a folder is repaired to the drive's root folder.
                const std::string expectedJoin = root + folder == "C:" ? "C:/" + fileSpec : text;
                EXPECT_EQ(Utf8(QPathOp::FolderPlusFileSpec(CString::FromUtf8(root + folder),
                                                           CString::FromUtf8(fileSpec))),
                          expectedJoin);
            }
        }
    }
}

struct TestCase {
    const char* text;
    bool expected;
};

void ExpectTest(bool (*test)(const CString&), const char* testName,
                std::initializer_list<TestCase> cases) {
    for (const TestCase& row : cases) {
        EXPECT_EQ(test(row.text), row.expected) << testName << "(\"" << row.text << "\")";
    }
}

TEST(PathOpTests, NamesExtensionsAndFileSpecs) {
    ExpectTest(QPathOp::IsName, "IsName",
               {{"abc", true},
                {"  abc  ", true},
                {"a<b", true},
                {"", false},
                {"\"\"", false},
                {"a.b", false},
                {"a:b", false},
                {"a\\b", false},
                {"a/b", false},
                {"a;b", false},
                {"a|b", false}});
    ExpectTest(QPathOp::IsDotExt, "IsDotExt",
               {{".txt", true},
                {"txt", false},
                {".", false},
                {"..", false},
                {".a.b", false},
                {".t/x", false},
                {"", false}});
    ExpectTest(QPathOp::IsFileSpec, "IsFileSpec",
               {{"a.txt", true},
                {"a", true},
                {"a;b", true},
                {".hidden", true},
                {"..", false},
                {".", false},
                {"a/b", false},
                {"a:b", false},
                {"a|b", false},
                {"", false}});
    ExpectTest(QPathOp::IsDots, "IsDots",
               {{".", true}, {"..", true}, {"...", false}, {"./", false}, {"", false}});
}

TEST(PathOpTests, DrivesAndRoots) {
    ExpectTest(
        QPathOp::IsDrive, "IsDrive",
        {{"C:", true}, {"c:", true}, {"C:/", false}, {"CD:", false}, {"1:", false}, {"C", false}});
    ExpectTest(QPathOp::IsUNCRoot, "IsUNCRoot",
               {{"//s/h", true},
                {"\\\\s\\h", true},
                {"//s/h/", false},
                {"//s", false},
                {"//s/", false},
                {"///h", false},
                {"//s/h/x", false},
                {"//a:b/h", false}});
    ExpectTest(QPathOp::IsRoot, "IsRoot",
               {{"/", true},
                {"C:", true},
                {"C:/", true},
                {"//s/h", true},
                {"//s/h/", true},
                {"", false},
                {"a", false},
                {"C:/a", false}});
}

TEST(PathOpTests, FoldersAndPaths) {
    ExpectTest(QPathOp::IsFolder, "IsFolder",
               {{"/", true},
                {"a/", true},
                {"/a/b/", true},
                {"C:/", true},
                {"C:a/", true},
                {"//s/h/", true},
                {"../", true},
                {"a", false},
                {"a//b/", false},
                {"a/..", false},
                {"C:", false},
                {"/a:b/", false},
                {"", false}});
    ExpectTest(QPathOp::IsFolderRelative, "IsFolderRelative",
               {{"a/", true},
                {"../a/", true},
                {"C:a/", true},
                {"/a/", false},
                {"C:/a/", false},
                {"//s/h/a/", false}});
    ExpectTest(QPathOp::IsFolderWithoutRoot, "IsFolderWithoutRoot",
               {{"a/", true}, {"C:a/", false}, {"/a/", false}});
    ExpectTest(QPathOp::IsPath, "IsPath",
               {{"/a/b.txt", true},
                {"a", true},
                {"C:", true},
                {"a/..", true},
                {"", false},
                {"   ", false},
                {"a//b", false},
                {"a/b:c", false},
                {"//s", false},
                {"a|b", false}});
    ExpectTest(QPathOp::IsPathRelative, "IsPathRelative",
               {{"a/b", true}, {"C:b", true}, {"/a", false}, {"C:/a", false}});
    ExpectTest(QPathOp::IsPathWithoutRoot, "IsPathWithoutRoot",
               {{"a/b", true}, {"C:b", false}, {"/a", false}});
}

TEST(PathOpTests, APathEndingInASeparatorHasNoFileSpec) {
    for (const char* path : {"/a/b/", "a/", "C:/", "//s/h/", "/"}) {
        EXPECT_FALSE(QPathOp::HasFileSpec(path)) << path;
        EXPECT_EQ(QPathOp::FileSpec(path), CString()) << path;
        EXPECT_FALSE(QPathOp::HasDotExt(path)) << path;
    }
}

TEST(PathOpTests, AnEmptyPathIsNoPath) {
    for (const char* text : {"", "  ", "\"\""}) {
        EXPECT_FALSE(QPathOp::IsPath(text)) << text;
        EXPECT_FALSE(QPathOp::IsFolder(text)) << text;
        EXPECT_FALSE(QPathOp::HasRoot(text)) << text;
        EXPECT_FALSE(QPathOp::Match(text, u"*")) << text;
    }
}

struct JoinCase {
    CString (*join)(const CString&, const CString&);
    const char* name;
    const char* first;
    const char* second;
    const char* expected;
};

TEST(PathOpJoins, JoinsAndChanges) {
    const JoinCase cases[] = {
        {QPathOp::FolderPlusFolder, "FolderPlusFolder", "/a/", "b", "/a/b/"},
        {QPathOp::FolderPlusFolder, "FolderPlusFolder", "/a", "b/c/", "/a/b/c/"},
        {QPathOp::FolderPlusFolder, "FolderPlusFolder", "/a/", "/x/", "/x/"},
        {QPathOp::FolderPlusFolder, "FolderPlusFolder", "", "b", "b/"},
        {QPathOp::FolderPlusFolder, "FolderPlusFolder", "C:", "x", "C:/x/"},
        {QPathOp::FolderPlusFileSpec, "FolderPlusFileSpec", "/a", "f.txt", "/a/f.txt"},
        {QPathOp::FolderPlusFileSpec, "FolderPlusFileSpec", "C:", "f", "C:/f"},
        {QPathOp::FolderPlusFileSpec, "FolderPlusFileSpec", "", "f", "f"},
        {QPathOp::FolderPlusFileSpec, "FolderPlusFileSpec", "C:\\data\\", "f", "C:/data/f"},
        {QPathOp::FolderPlusPath, "FolderPlusPath", "/base/", "sub/f.txt", "/base/sub/f.txt"},
        {QPathOp::FolderPlusPath, "FolderPlusPath", "/base/", "C:/x", "C:/x"},
        {QPathOp::FolderPlusPath, "FolderPlusPath", "/base/", "/abs/f", "/abs/f"},
        {QPathOp::FolderPlusPath, "FolderPlusPath", "/base", "../f", "/base/../f"},
        {QPathOp::PathPlusFileSpec, "PathPlusFileSpec", "/a/b", "f", "/a/b/f"},
        {QPathOp::PathPlusFileSpec, "PathPlusFileSpec", "C:", "f", "C:f"},
        {QPathOp::PathPlusFileSpec, "PathPlusFileSpec", "/a/", "f", "/a/f"},
        {QPathOp::PathPlusFileSpec, "PathPlusFileSpec", "", "f", "f"},
        {QPathOp::PathPlusDotExt, "PathPlusDotExt", "/a/f", "txt", "/a/f.txt"},
        {QPathOp::PathPlusDotExt, "PathPlusDotExt", "/a/f.b", ".txt", "/a/f.b.txt"},
        {QPathOp::PathPlusDotExt, "PathPlusDotExt", "/a/", ".txt", "/a/"},
        {QPathOp::RemoveLeadingFolderFromFolder, "RemoveLeadingFolderFromFolder", "/a/b/c/", "/a/",
         "b/c/"},
        {QPathOp::RemoveLeadingFolderFromFolder, "RemoveLeadingFolderFromFolder", "/a/b/", "/a/b",
         ""},
        {QPathOp::RemoveLeadingFolderFromFolder, "RemoveLeadingFolderFromFolder", "/x/b/", "/a/",
         "/x/b/"},
        {QPathOp::RemoveLeadingFolderFromFolder, "RemoveLeadingFolderFromFolder", "/A/b/", "/a/",
         "/A/b/"},
        {QPathOp::RemoveLeadingFolderFromFolder, "RemoveLeadingFolderFromFolder", "/ab/c/", "/a/",
         "/ab/c/"},
        {QPathOp::RemoveLeadingFolderFromPath, "RemoveLeadingFolderFromPath", "/tables/sub/t.vlt",
         "/tables", "sub/t.vlt"},
        {QPathOp::RemoveLeadingFolderFromPath, "RemoveLeadingFolderFromPath", "/other/t.vlt",
         "/tables", "/other/t.vlt"},
        {QPathOp::ChangeFileSpec, "ChangeFileSpec", "/a/f.txt", "g.doc", "/a/g.doc"},
        {QPathOp::ChangeFileSpec, "ChangeFileSpec", "C:f", "g", "C:g"},
        {QPathOp::ChangeFileSpec, "ChangeFileSpec", "/a/", "g", "/a/g"},
        {QPathOp::ChangeDotExt, "ChangeDotExt", "/a/f.txt", ".doc", "/a/f.doc"},
        {QPathOp::ChangeDotExt, "ChangeDotExt", "/a/f.txt", "", "/a/f"},
        {QPathOp::ChangeDotExt, "ChangeDotExt", "/a/f", "doc", "/a/f.doc"},
        {QPathOp::ChangeDotExt, "ChangeDotExt", "/a/", ".doc", "/a/"},
        {QPathOp::ChangeFolder, "ChangeFolder", "/a/f.txt", "/b", "/b/f.txt"},
        {QPathOp::ChangeFolder, "ChangeFolder", "f.txt", "C:\\x", "C:/x/f.txt"},
    };
    for (const JoinCase& test : cases) {
        EXPECT_EQ(Utf8(test.join(test.first, test.second)), test.expected)
            << test.name << "(\"" << test.first << "\", \"" << test.second << "\")";
    }
}

TEST(PathOpJoins, ALeadingFolderRemovedAndAddedAgainRestoresTheFolder) {
    const char* leading = "/data/tables/";
    for (const char* folder : {"/data/tables/", "/data/tables/a/", "/data/tables/a/b c/"}) {
        const CString rest = QPathOp::RemoveLeadingFolderFromFolder(folder, leading);
        EXPECT_TRUE(rest.IsEmpty() || QPathOp::IsFolderWithoutRoot(rest)) << folder;
        EXPECT_EQ(Utf8(QPathOp::FolderPlusFolder(leading, rest)), folder);
        EXPECT_TRUE(QPathOp::MatchLeadingFolderFromPath(folder, leading)) << folder;
    }
    EXPECT_FALSE(QPathOp::MatchLeadingFolderFromPath("/data/tablesX/t", leading));
    EXPECT_FALSE(QPathOp::MatchLeadingFolderFromPath("/data/t", u""));
}

struct PartCase {
    CString (*part)(const CString&);
    const char* name;
    const char* path;
    const char* expected;
};

TEST(PathOpParts, ParentFolderAndFolderAsFilePath) {
    const PartCase cases[] = {
        {QPathOp::ParentFolder, "ParentFolder", "/a/b/f.txt", "/a/b/"},
        {QPathOp::ParentFolder, "ParentFolder", "/a/b/", "/a/"},
        {QPathOp::ParentFolder, "ParentFolder", "/a/", "/"},
        {QPathOp::ParentFolder, "ParentFolder", "/", ""},
        {QPathOp::ParentFolder, "ParentFolder", "a/", ""},
        {QPathOp::ParentFolder, "ParentFolder", "a/b/", "a/"},
        {QPathOp::ParentFolder, "ParentFolder", "C:/a/", "C:/"},
        {QPathOp::ParentFolder, "ParentFolder", "C:a/", ""},
        {QPathOp::ParentFolder, "ParentFolder", "a/b/..", "a/b/"},
        {QPathOp::ParentFolder, "ParentFolder", "//s/h/d/", "//s/h/"},
        {QPathOp::ParentFolder, "ParentFolder", "f.txt", ""},
        {QPathOp::FolderAsFilePath, "FolderAsFilePath", "/a/b/", "/a/b"},
        {QPathOp::FolderAsFilePath, "FolderAsFilePath", "/", "/"},
        {QPathOp::FolderAsFilePath, "FolderAsFilePath", "C:/", "C:/"},
        {QPathOp::FolderAsFilePath, "FolderAsFilePath", "//s/h/", "//s/h/"},
        {QPathOp::FolderAsFilePath, "FolderAsFilePath", "a", "a"},
        {QPathOp::FolderAsFilePath, "FolderAsFilePath", "C:\\Data\\", "C:/Data"},
    };
    for (const PartCase& test : cases) {
        EXPECT_EQ(Utf8(test.part(test.path)), test.expected)
            << test.name << "(\"" << test.path << "\")";
    }
}

struct RepairCase {
    void (*repair)(CString&);
    const char* name;
    const char* input;
    const char* expected;
};

TEST(PathOpRepairs, EachRepairInPlace) {
    const RepairCase cases[] = {
        {QPathOp::FixExpectedName, "FixExpectedName", "My.File:Name", "My_File_Name"},
        {QPathOp::FixExpectedName, "FixExpectedName", "  .name.  ", "_name_"},
        {QPathOp::FixExpectedName, "FixExpectedName", "a\\b", "a_b"},
        {QPathOp::FixExpectedName, "FixExpectedName", "<x>", "&lt_x&gt_"},
        {QPathOp::FixExpectedName, "FixExpectedName", "a;b", ""},
        {QPathOp::FixExpectedName, "FixExpectedName", "a|b", ""},
        {QPathOp::FixExpectedFileSpec, "FixExpectedFileSpec", "a/b.txt", "a_b.txt"},
        {QPathOp::FixExpectedFileSpec, "FixExpectedFileSpec", " x.txt ", "x.txt"},
        {QPathOp::FixExpectedFileSpec, "FixExpectedFileSpec", "a:b|c", "a_b_c"},
        {QPathOp::FixExpectedFileSpec, "FixExpectedFileSpec", "..", ""},
        {QPathOp::FixExpectedDotExt, "FixExpectedDotExt", "txt", ".txt"},
        {QPathOp::FixExpectedDotExt, "FixExpectedDotExt", ".txt", ".txt"},
        {QPathOp::FixExpectedDotExt, "FixExpectedDotExt", "file.doc", ".doc"},
        {QPathOp::FixExpectedDotExt, "FixExpectedDotExt", ".", ""},
        {QPathOp::FixExpectedDotExt, "FixExpectedDotExt", "", ""},
        {QPathOp::FixExpectedDrive, "FixExpectedDrive", "c", "c:"},
        {QPathOp::FixExpectedDrive, "FixExpectedDrive", "C:\\x", "C:"},
        {QPathOp::FixExpectedDrive, "FixExpectedDrive", "1", ""},
        {QPathOp::FixExpectedDrive, "FixExpectedDrive", "", ""},
        {QPathOp::FixExpectedUNCRoot, "FixExpectedUNCRoot", "\\\\srv\\share\\dir", "//srv/share"},
        {QPathOp::FixExpectedUNCRoot, "FixExpectedUNCRoot", "srv/share", "//srv/share"},
        {QPathOp::FixExpectedUNCRoot, "FixExpectedUNCRoot", "//a:b/c", "//a_b/c"},
        {QPathOp::FixExpectedUNCRoot, "FixExpectedUNCRoot", "//srv", ""},
        {QPathOp::FixExpectedRoot, "FixExpectedRoot", "c", "c:"},
        {QPathOp::FixExpectedRoot, "FixExpectedRoot", "C:\\dir", "C:/"},
        {QPathOp::FixExpectedRoot, "FixExpectedRoot", "/usr/x", "/"},
        {QPathOp::FixExpectedRoot, "FixExpectedRoot", "//s/h/x", "//s/h/"},
        {QPathOp::FixExpectedRoot, "FixExpectedRoot", "rel", ""},
        {QPathOp::FixExpectedDots, "FixExpectedDots", "...", ".."},
        {QPathOp::FixExpectedDots, "FixExpectedDots", "./", "."},
        {QPathOp::FixExpectedDots, "FixExpectedDots", "a", ""},
        {QPathOp::FixExpectedFolder, "FixExpectedFolder", "/a/b", "/a/b/"},
        {QPathOp::FixExpectedFolder, "FixExpectedFolder", "a//b\\", "a/b/"},
        {QPathOp::FixExpectedFolder, "FixExpectedFolder", "C:", "C:/"},
        {QPathOp::FixExpectedFolder, "FixExpectedFolder", "/a:b/", "/a_b/"},
        {QPathOp::FixExpectedFolder, "FixExpectedFolder", "//s/h", "//s/h/"},
        {QPathOp::FixExpectedFolder, "FixExpectedFolder", "\" /x \"", "/x/"},
        {QPathOp::FixExpectedFolder, "FixExpectedFolder", "", ""},
        {QPathOp::FixExpectedPath, "FixExpectedPath", "a//b", "a/b"},
        {QPathOp::FixExpectedPath, "FixExpectedPath", "/x/a:b.txt", "/x/a_b.txt"},
        {QPathOp::FixExpectedPath, "FixExpectedPath", "dir\\sub\\", "dir/sub/"},
        {QPathOp::FixExpectedPath, "FixExpectedPath", "C:", "C:"},
        {QPathOp::FixExpectedPath, "FixExpectedPath", "a/../b", "a/../b"},
    };
    for (const RepairCase& test : cases) {
        CString text = test.input;
        test.repair(text);
        EXPECT_EQ(Utf8(text), test.expected) << test.name << "(\"" << test.input << "\")";
    }
}

TEST(PathOpRepairs, ARepairedTextIsEmptyOrPassesItsTest) {
    const struct {
        void (*repair)(CString&);
        bool (*test)(const CString&);
        const char* name;
    } pairs[] = {
        {QPathOp::FixExpectedName, QPathOp::IsName, "Name"},
        {QPathOp::FixExpectedFileSpec, QPathOp::IsFileSpec, "FileSpec"},
        {QPathOp::FixExpectedDotExt, QPathOp::IsDotExt, "DotExt"},
        {QPathOp::FixExpectedDrive, QPathOp::IsDrive, "Drive"},
        {QPathOp::FixExpectedUNCRoot, QPathOp::IsUNCRoot, "UNCRoot"},
        {QPathOp::FixExpectedRoot, QPathOp::IsRoot, "Root"},
        {QPathOp::FixExpectedDots, QPathOp::IsDots, "Dots"},
        {QPathOp::FixExpectedFolder, QPathOp::IsFolder, "Folder"},
        {QPathOp::FixExpectedPath, QPathOp::IsPath, "Path"},
    };
    const char* inputs[] = {
        "",          " ",           "a",           "a.b.c",    "C:\\x\\y.z", "c",     "//",
        "///x",      "\\\\s\\h\\",  "//a:b/c|d/e", "a//b//c",  "..",         "...",   "./",
        "a/./b/../", "\" q \"",     "<a>:<b>",     "x:y:z",    "a;b|c",      "  /  ", "C :  \\ d ",
        "//s/h",     "a/b:c/d.e:f", "|",           ":",        ".",          "a..",   ". a .",
        "\"\"/x",    "1:/x",        "//s/h\t/x",   "//s/\t/x",
    };
    for (const auto& pair : pairs) {
        for (const char* input : inputs) {
            CString text = input;
            pair.repair(text);
            EXPECT_TRUE(text.IsEmpty() || pair.test(text))
                << "FixExpected" << pair.name << "(\"" << input << "\") gave \"" << Utf8(text)
                << "\"";
            CString again = text;
            pair.repair(again);
            EXPECT_EQ(again, text) << "FixExpected" << pair.name << " twice on \"" << input << "\"";
        }
    }
}

TEST(PathOpExtensions, MatchAndFixupOfExtensions) {
    EXPECT_TRUE(QPathOp::MatchDotExt("t.VLT", ".vlt"));
    EXPECT_TRUE(QPathOp::MatchDotExt("/x/t.vlt", "vlt"));
    EXPECT_FALSE(QPathOp::MatchDotExt("t", ".vlt"));
    EXPECT_FALSE(QPathOp::MatchDotExt("t.vlt", ""));
    EXPECT_FALSE(QPathOp::MatchDotExt("t.vltx", ".vlt"));

    const TextCase fixups[] = {
        {"prices", "prices.vlt"},
        {"prices.vlt", "prices.vlt"},
        {"prices.VLT", "prices.VLT"},
        {"prices.2019", "prices.2019.vlt"},
        {"dir/", "dir/"},
    };
    for (const TextCase& test : fixups) {
        CString path = test.input;
        QPathOp::FixupDotExt(path, u".vlt");
        EXPECT_EQ(Utf8(path), test.expected) << test.input;
    }
    const TextCase ifNoLetters[] = {
        {"notes", "notes.txt"}, {"notes.csv", "notes.csv"}, {"a.mp3", "a.mp3"},
        {"v1.2", "v1.2.txt"},   {"a.3d", "a.3d.txt"},
    };
    for (const TextCase& test : ifNoLetters) {
        CString path = test.input;
        QPathOp::FixupDotExtIfNoDotABC(path, u"txt");
        EXPECT_EQ(Utf8(path), test.expected) << test.input;
    }
}

struct MatchCase {
    const char* text;
    const char* pattern;
    bool expected;
};

TEST(PathOpMatch, WildcardExpressions) {
    const MatchCase cases[] = {
        {"abc", "abc", true},
        {"abc", "a*", true},
        {"abc", "*c", true},
        {"abc", "a?c", true},
        {"abc", "a?", false},
        {"ABC", "abc", true},
        {"\xc3\x89t\xc3\xa9", "\xc3\xa9T\xc3\x89", true},
        {"", "*", true},
        {"", "", true},
        {"a", "", false},
        {"", "?", false},
        {"abc", "*b*", true},
        {"abc", "*d*", false},
        {"a*c", "a*c", true},
        {"*x", "*x", true},
        {"mississippi", "*sip*", true},
        {"mississippi", "m*iss*ppi", true},
        {"mississippi", "m*iss*ppix", false},
        {"x", "??", false},
        {"ab", "a**b", true},
        {"a/b/c.txt", "*.txt", true},
    };
    for (const MatchCase& test : cases) {
        EXPECT_EQ(
            MatchWildcardExpression(CString::FromUtf8(test.text), CString::FromUtf8(test.pattern)),
            test.expected)
            << "\"" << test.text << "\" against \"" << test.pattern << "\"";
    }
}

// Many stars before a letter that never comes: a backtracking matcher would not finish.
TEST(PathOpMatch, ManyStarsFailWithoutBacktrackingForEver) {
    const CString text(u'a', 4000);
    CString pattern;
    for (int index = 0; index < 200; ++index)
        pattern += u"*a";
    EXPECT_TRUE(MatchWildcardExpression(text, pattern));
    pattern += u"*b";
    EXPECT_FALSE(MatchWildcardExpression(text, pattern));
}

TEST(PathOpMatch, PathsAgainstAlternatives) {
    const MatchCase cases[] = {
        {"/data/report.TXT", "*.txt", true},
        {"/data/report.doc", "*.txt;*.doc", true},
        {"/data/report.doc", "*.txt|*.doc", true},
        {"/data/r.doc", "*.txt|*.xls", false},
        {"C:\\dir\\f.txt", "C:/dir/*", true},
        {" /x/f.txt ", " *.xls ; *.txt ", true},
        {"/x/f.txt", "", false},
        {"/x/f.txt", ";", false},
        {"a//b", "*", false},
        {"a:b:c", "*", false},
    };
    for (const MatchCase& test : cases) {
        EXPECT_EQ(QPathOp::Match(test.text, test.pattern), test.expected)
            << "\"" << test.text << "\" against \"" << test.pattern << "\"";
    }
}

} // namespace
} // namespace keel
