#include "keel/system/pathop.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

std::string Utf8(const CString& text) {
    return text.ToUtf8();
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
    {"C:file.txt", "C:", "", "file", ".txt", "C:", ""},
    {"C:", "C:", "", "", "", "C:", ""},
    {"//server/share/dir/x.doc", "//server/share/", "dir/", "x", ".doc", "", "//server/share"},
    {"\\\\server\\share", "//server/share", "", "", "", "", "//server/share"},
    {".bashrc", "", "", ".bashrc", "", "", ""},
    {"dir/.config.json", "", "dir/", ".config", ".json", "", ""},
    {"archive.tar.gz", "", "", "archive.tar", ".gz", "", ""},
    {"name.", "", "", "name.", "", "", ""},
    {"...x", "", "", "...x", "", "", ""},
    {"a/..", "", "a/..", "", "", "", ""},
    {"..", "", "..", "", "", "", ""},
    {"../x.txt", "", "../", "x", ".txt", "", ""},
    {"//server", "/", "/", "server", "", "", ""},
    {"", "", "", "", "", "", ""}};

// Each part of each path; and the parts, the Has tests and the joins agree: every way of taking a
// path apart and putting it together again gives its normal form.
TEST(PathOpParts, EachPartOfEachPathAndJoiningThemRestoresThePath) {
    for (const PartsCase& test : c_partsCases) {
        SCOPED_TRACE(test.path);
        const CString path = test.path;
        EXPECT_EQ(Utf8(QPathOp::Root(path)), test.root);
        EXPECT_EQ(Utf8(QPathOp::Folder(path)), test.folder);
        EXPECT_EQ(Utf8(QPathOp::FileSpecWithoutDotExt(path)), test.name);
        EXPECT_EQ(Utf8(QPathOp::DotExt(path)), test.dotExt);
        EXPECT_EQ(Utf8(QPathOp::Drive(path)), test.drive);
        EXPECT_EQ(Utf8(QPathOp::UNCRoot(path)), test.uncRoot);
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

void ExpectTest(const char* name, const std::function<bool(const CString&)>& test,
                std::initializer_list<const char*> accepted,
                std::initializer_list<const char*> refused) {
    for (const char* text : accepted)
        EXPECT_TRUE(test(text)) << name << "(\"" << text << "\")";
    for (const char* text : refused)
        EXPECT_FALSE(test(text)) << name << "(\"" << text << "\")";
}

// The tests of relative folders and paths are checked on the paths built from parts above.
TEST(PathOpTests, WhatEachTestAccepts) {
    ExpectTest("IsName", QPathOp::IsName, {"abc", "  abc  ", "a<b"},
               {"", "\"\"", "a.b", "a:b", "a\\b", "a/b", "a;b", "a|b"});
    ExpectTest("IsDotExt", QPathOp::IsDotExt, {".txt"}, {"txt", ".", "..", ".a.b", ".t/x", ""});
    ExpectTest("IsFileSpec", QPathOp::IsFileSpec, {"a.txt", "a", "a;b", ".hidden"},
               {"..", ".", "a/b", "a:b", "a|b", ""});
    ExpectTest("IsDots", QPathOp::IsDots, {".", ".."}, {"...", "./", ""});
    ExpectTest("IsDrive", QPathOp::IsDrive, {"C:", "c:"}, {"C:/", "CD:", "1:", "C"});
    ExpectTest("IsUNCRoot", QPathOp::IsUNCRoot, {"//s/h", "\\\\s\\h"},
               {"//s/h/", "//s", "//s/", "///h", "//s/h/x", "//a:b/h"});
    ExpectTest("IsRoot", QPathOp::IsRoot, {"/", "C:", "C:/", "//s/h", "//s/h/"}, {"", "a", "C:/a"});
    ExpectTest("IsFolder", QPathOp::IsFolder, {"/", "a/", "/a/b/", "C:/", "C:a/", "//s/h/", "../"},
               {"a", "a//b/", "a/..", "C:", "/a:b/", "", "  ", "\"\""});
    ExpectTest("IsPath", QPathOp::IsPath, {"/a/b.txt", "a", "C:", "a/.."},
               {"", "   ", "\"\"", "a//b", "a/b:c", "//s", "a|b"});
    // A path ending in a separator has no file spec and no extension; an empty one has no root.
    for (const auto& has : {QPathOp::HasFileSpec, QPathOp::HasDotExt})
        ExpectTest("Has", has, {}, {"/a/b/", "a/", "C:/", "//s/h/", "/"});
    ExpectTest("HasRoot", QPathOp::HasRoot, {}, {"", "  ", "\"\""});
    ExpectTest("MatchDotExt",
               [](const CString& path) { return QPathOp::MatchDotExt(path, u".vlt"); },
               {"t.VLT", "/x/t.vlt"}, {"t", "t.vltx"});
    EXPECT_TRUE(QPathOp::MatchDotExt("/x/t.vlt", "vlt"));
    EXPECT_FALSE(QPathOp::MatchDotExt("t.vlt", ""));
}

struct TextRow {
    const char* input;
    const char* expected;
};

template <std::size_t N>
void ExpectTexts(const char* name, const std::function<CString(const CString&)>& function,
                 const TextRow (&rows)[N]) {
    for (const TextRow& row : rows)
        EXPECT_EQ(Utf8(function(row.input)), row.expected) << name << "(\"" << row.input << "\")";
}

// A repair in place as a function of the text.
std::function<CString(const CString&)> Repaired(const std::function<void(CString&)>& fix) {
    return [fix](const CString& text) {
        CString repaired = text;
        fix(repaired);
        return repaired;
    };
}

TEST(PathOpTexts, WhatEachFunctionGives) {
    // Trimming comes before the quotes go, so blanks inside them stay.
    const TextRow normal[] = {{"  a/b  ", "a/b"},       {"C:\\dir\\file.txt", "C:/dir/file.txt"},
                              {"a<b>c", "a&lt_b&gt_c"}, {"a  :  /b", "a:/b"},
                              {"a/ b", "a/ b"},         {"\" a\"", " a"}};
    ExpectTexts("NormalForm", QPathOp::NormalForm, normal);
    const TextRow parents[] = {
        {"/a/b/f.txt", "/a/b/"}, {"/a/", "/"},          {"/", ""}, {"a/", ""}, {"C:a/", ""},
        {"a/b/..", "a/b/"},      {"//s/h/d/", "//s/h/"}};
    ExpectTexts("ParentFolder", QPathOp::ParentFolder, parents);
    const TextRow asFile[] = {{"/a/b/", "/a/b"}, {"/", "/"}, {"//s/h/", "//s/h/"}};
    ExpectTexts("FolderAsFilePath", QPathOp::FolderAsFilePath, asFile);
    const TextRow names[] = {
        {"My.File:Name", "My_File_Name"}, {"  .name.  ", "_name_"}, {"a;b", ""}};
    ExpectTexts("FixExpectedName", Repaired(QPathOp::FixExpectedName), names);
    const TextRow fileSpecs[] = {
        {"a/b.txt", "a_b.txt"}, {" x.txt ", "x.txt"}, {"a:b|c", "a_b_c"}, {"..", ""}};
    ExpectTexts("FixExpectedFileSpec", Repaired(QPathOp::FixExpectedFileSpec), fileSpecs);
    const TextRow dotExts[] = {{"txt", ".txt"}, {"file.doc", ".doc"}, {".", ""}};
    ExpectTexts("FixExpectedDotExt", Repaired(QPathOp::FixExpectedDotExt), dotExts);
    const TextRow drives[] = {{"c", "c:"}, {"C:\\x", "C:"}, {"1", ""}};
    ExpectTexts("FixExpectedDrive", Repaired(QPathOp::FixExpectedDrive), drives);
    const TextRow uncRoots[] = {{"\\\\srv\\share\\dir", "//srv/share"},
                                {"srv/share", "//srv/share"},
                                {"//a:b/c", "//a_b/c"},
                                {"//srv", ""}};
    ExpectTexts("FixExpectedUNCRoot", Repaired(QPathOp::FixExpectedUNCRoot), uncRoots);
    const TextRow roots[] = {
        {"c", "c:"}, {"C:\\dir", "C:/"}, {"/usr/x", "/"}, {"//s/h/x", "//s/h/"}, {"rel", ""}};
    ExpectTexts("FixExpectedRoot", Repaired(QPathOp::FixExpectedRoot), roots);
    const TextRow dots[] = {{"...", ".."}, {"./", "."}, {"a", ""}};
    ExpectTexts("FixExpectedDots", Repaired(QPathOp::FixExpectedDots), dots);
    const TextRow folders[] = {
        {"a//b\\", "a/b/"}, {"C:", "C:/"}, {"/a:b/", "/a_b/"}, {"//s/h", "//s/h/"}};
    ExpectTexts("FixExpectedFolder", Repaired(QPathOp::FixExpectedFolder), folders);
    const TextRow paths[] = {
        {"/x/a:b.txt", "/x/a_b.txt"}, {"dir\\sub\\", "dir/sub/"}, {"C:", "C:"}};
    ExpectTexts("FixExpectedPath", Repaired(QPathOp::FixExpectedPath), paths);
    const TextRow vlt[] = {
        {"prices.VLT", "prices.VLT"}, {"prices.2019", "prices.2019.vlt"}, {"dir/", "dir/"}};
    ExpectTexts("FixupDotExt", Repaired([](CString& p) { QPathOp::FixupDotExt(p, u".vlt"); }), vlt);
    const TextRow txt[] = {{"a.mp3", "a.mp3"}, {"v1.2", "v1.2.txt"}, {"a.3d", "a.3d.txt"}};
    ExpectTexts("FixupDotExtIfNoDotABC",
                Repaired([](CString& p) { QPathOp::FixupDotExtIfNoDotABC(p, u"txt"); }), txt);
}

struct JoinRow {
    const char* first;
    const char* second;
    const char* expected;
};

template <std::size_t N>
void ExpectJoins(const char* name, CString (*join)(const CString&, const CString&),
                 const JoinRow (&rows)[N]) {
    for (const JoinRow& row : rows)
        EXPECT_EQ(Utf8(join(row.first, row.second)), row.expected)
            << name << "(\"" << row.first << "\", \"" << row.second << "\")";
}

TEST(PathOpJoins, JoinsAndChanges) {
    const JoinRow folders[] = {
        {"/a", "b/c/", "/a/b/c/"}, {"/a/", "/x/", "/x/"}, {"C:", "x", "C:/x/"}};
    ExpectJoins("FolderPlusFolder", QPathOp::FolderPlusFolder, folders);
    const JoinRow fileSpecs[] = {{"C:", "f", "C:/f"}, {"C:\\data\\", "f", "C:/data/f"}};
    ExpectJoins("FolderPlusFileSpec", QPathOp::FolderPlusFileSpec, fileSpecs);
    const JoinRow paths[] = {{"/base/", "C:/x", "C:/x"}, {"/base", "../f", "/base/../f"}};
    ExpectJoins("FolderPlusPath", QPathOp::FolderPlusPath, paths);
    const JoinRow pathFileSpecs[] = {
        {"/a/b", "f", "/a/b/f"}, {"C:", "f", "C:f"}, {"/a/", "f", "/a/f"}};
    ExpectJoins("PathPlusFileSpec", QPathOp::PathPlusFileSpec, pathFileSpecs);
    const JoinRow dotExts[] = {
        {"/a/f", "txt", "/a/f.txt"}, {"/a/f.b", ".txt", "/a/f.b.txt"}, {"/a/", ".txt", "/a/"}};
    ExpectJoins("PathPlusDotExt", QPathOp::PathPlusDotExt, dotExts);
    const JoinRow leadingOfPaths[] = {{"/tables/sub/t.vlt", "/tables", "sub/t.vlt"},
                                      {"/other/t.vlt", "/tables", "/other/t.vlt"},
                                      {"/Tables/t.vlt", "/tables", "/Tables/t.vlt"}};
    ExpectJoins("RemoveLeadingFolderFromPath", QPathOp::RemoveLeadingFolderFromPath,
                leadingOfPaths);
    const JoinRow changedSpecs[] = {{"C:f", "g", "C:g"}, {"/a/", "g", "/a/g"}};
    ExpectJoins("ChangeFileSpec", QPathOp::ChangeFileSpec, changedSpecs);
    const JoinRow changedExts[] = {
        {"/a/f.txt", "", "/a/f"}, {"/a/f", "doc", "/a/f.doc"}, {"/a/", ".doc", "/a/"}};
    ExpectJoins("ChangeDotExt", QPathOp::ChangeDotExt, changedExts);

    EXPECT_TRUE(QPathOp::MatchLeadingFolderFromPath("/data/tables/a/", "/data/tables/"));
    EXPECT_FALSE(QPathOp::MatchLeadingFolderFromPath("/data/tablesX/t", "/data/tables/"));
    EXPECT_FALSE(QPathOp::MatchLeadingFolderFromPath("/data/t", u""));
}

TEST(PathOpRepairs, ARepairedTextIsEmptyOrPassesItsTest) {
    const struct {
        void (*repair)(CString&);
        bool (*test)(const CString&);
        const char* name;
    } pairs[] = {{QPathOp::FixExpectedName, QPathOp::IsName, "Name"},
                 {QPathOp::FixExpectedFileSpec, QPathOp::IsFileSpec, "FileSpec"},
                 {QPathOp::FixExpectedDotExt, QPathOp::IsDotExt, "DotExt"},
                 {QPathOp::FixExpectedDrive, QPathOp::IsDrive, "Drive"},
                 {QPathOp::FixExpectedUNCRoot, QPathOp::IsUNCRoot, "UNCRoot"},
                 {QPathOp::FixExpectedRoot, QPathOp::IsRoot, "Root"},
                 {QPathOp::FixExpectedDots, QPathOp::IsDots, "Dots"},
                 {QPathOp::FixExpectedFolder, QPathOp::IsFolder, "Folder"},
                 {QPathOp::FixExpectedPath, QPathOp::IsPath, "Path"}};
    const char* inputs[] = {
        "",          " ",           "a",           "a.b.c",   "C:\\x\\y.z", "c",     "//",
        "///x",      "\\\\s\\h\\",  "//a:b/c|d/e", "a//b//c", "..",         "...",   "./",
        "a/./b/../", "\" q \"",     "<a>:<b>",     "x:y:z",   "a;b|c",      "  /  ", "C :  \\ d ",
        "//s/h",     "a/b:c/d.e:f", "|",           ":",       ".",          "a..",   ". a .",
        "\"\"/x",    "1:/x",        "//s/h\t/x",   "//s/\t/x"};
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

struct MatchRow {
    const char* text;
    const char* pattern;
    bool expected;
};

TEST(PathOpMatch, WildcardsAndAlternatives) {
    const MatchRow wildcards[] = {{"abc", "a?c", true},
                                  {"abc", "a?", false},
                                  {"ABC", "abc", true},
                                  {"", "*", true},
                                  {"a", "", false},
                                  {"", "?", false},
                                  {"mississippi", "m*iss*ppi", true},
                                  {"mississippi", "m*iss*ppix", false},
                                  {"ab", "a**b", true}};
    EXPECT_TRUE(MatchWildcardExpression(CString::FromUtf8("\xc3\x89t\xc3\xa9"),
                                        CString::FromUtf8("\xc3\xa9T\xc3\x89")));
    const MatchRow paths[] = {{"/data/report.doc", "*.txt|*.doc", true},
                              {"/data/r.doc", "*.txt|*.xls", false},
                              {"C:\\dir\\f.txt", "C:/dir/*", true},
                              {" /x/f.txt ", " *.xls ; *.txt ", true},
                              {"/x/f.txt", ";", false},
                              {"a//b", "*", false},
                              {"", "*", false}};
    for (const auto& test : wildcards) {
        EXPECT_EQ(
            MatchWildcardExpression(CString::FromUtf8(test.text), CString::FromUtf8(test.pattern)),
            test.expected)
            << "\"" << test.text << "\" against \"" << test.pattern << "\"";
    }
    for (const auto& test : paths) {
        EXPECT_EQ(QPathOp::Match(test.text, test.pattern), test.expected)
            << "path \"" << test.text << "\" against \"" << test.pattern << "\"";
    }
    // Many stars before a letter that never comes: a backtracking matcher would not finish.
    const CString text(u'a', 4000);
    CString pattern;
    for (int index = 0; index < 200; ++index)
        pattern += u"*a";
    EXPECT_TRUE(MatchWildcardExpression(text, pattern));
    pattern += u"*b";
    EXPECT_FALSE(MatchWildcardExpression(text, pattern));
}

} // namespace
} // namespace keel
