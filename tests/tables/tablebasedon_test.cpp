#include "tests/tables/tablefixture.h"

#include "keel/platform/file.h"
#include "keel/tables/tablebasedon.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;

using Texts = std::vector<std::string>;
using test::WriteZip;

Texts Names(VZLib* archive) {
    Texts names;
    QTableBasedOn::DoForEachFileInZip(
        archive, [&names](const CString& name) { names.push_back(name.ToUtf8()); });
    return names;
}

Texts NamesOfTheTableFolder() {
    Texts names;
    QTableBasedOn::DoForEachFileInZip(
        [&names](const CString& name) { names.push_back(name.ToUtf8()); });
    return names;
}

std::string Text(const CMemFile& file) {
    return std::string(file.Bytes().begin(), file.Bytes().end());
}

class TableBasedOn : public test::TableFixture {
protected:
    fs::path ZipPath() const { return m_folder / "TableBasedOn.zip"; }
    CString InFolder(const std::string& name) const {
        return CString::FromUtf8((m_folder / name).string());
    }
};

TEST_F(TableBasedOn, TheReaderListsFilesButNotFoldersAndExtractsAMemberWhole) {
    const std::string big(100000, 'x');
    WriteZip(ZipPath(), {{"a.vlt", "first\tline\n"}, {"dir/", ""}, {"dir/Big.vlt", big}});
    VZLib archive;
    ASSERT_TRUE(archive.Open(CString::FromUtf8(ZipPath().string())));
    EXPECT_TRUE(archive.IsOpen());
    EXPECT_EQ(Names(&archive), (Texts{"a.vlt", "dir/Big.vlt"}));
    // At the file position, whatever the case of the name.
    CMemFile file;
    file.Write("head:", 5);
    ASSERT_TRUE(archive.Extract(u"a.vlt", file));
    EXPECT_EQ(Text(file), "head:first\tline\n");
    CMemFile large;
    ASSERT_TRUE(archive.Extract(u"DIR/big.VLT", large));
    EXPECT_EQ(Text(large), big);
}

TEST_F(TableBasedOn, TheReaderRefusesWhatItCannotGive) {
    WriteZip(ZipPath(), {{"a.vlt", "one"}});
    VZLib archive;
    CMemFile file;
    EXPECT_FALSE(archive.Extract(u"a.vlt", file));
    EXPECT_FALSE(archive.Open(InFolder("none.zip")));
    test::WriteText(m_folder / "plain.zip", "this is no archive");
    EXPECT_FALSE(archive.Open(InFolder("plain.zip")));
    EXPECT_FALSE(archive.IsOpen());

    ASSERT_TRUE(archive.Open(CString::FromUtf8(ZipPath().string())));
    EXPECT_FALSE(archive.Extract(u"b.vlt", file));
    EXPECT_TRUE(file.Bytes().empty());
}

TEST_F(TableBasedOn, TheArchiveOfTheTableFolderListsAndFindsItsMembersIgnoringCase) {
    WriteZip(ZipPath(), {{"a.vlt", "one"}, {"Sub/B.vlt", "two"}});
    const struct {
        CString fullName;
        bool exists;
    } cases[] = {
        {InFolder("A.VLT"), true}, {InFolder("sub/b.vlt"), true}, {InFolder("b.vlt"), false},
        {InFolder("sub"), false},  {u"/elsewhere/a.vlt", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(QTableBasedOn::FileExistsInZip(c.fullName), c.exists) << c.fullName.ToUtf8();
    EXPECT_EQ(NamesOfTheTableFolder(), (Texts{"a.vlt", "Sub/B.vlt"}));
}

} // namespace
} // namespace keel
