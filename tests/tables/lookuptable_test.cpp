#include "tests/support/anyvalues.h"
#include "tests/support/errorreports.h"
#include "tests/tables/memorytable.h"
#include "tests/tables/tablefixture.h"

#include "keel/document/errorlog.h"
#include "keel/platform/archive.h"
#include "keel/platform/schema.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/lookuptablesource.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;
using TYPE = QAnyValue::TYPE;

std::string U(const CString& text) {
    return text.ToUtf8();
}

// The fields of a table in the order its document form keeps them.
struct TableImage {
    CString name;
    CString comment;
    CString tlDesc;
    CString secondComment;
    int rows = 0;
    int cols = 0;
    std::vector<QAnyValue> colLabels;
    std::vector<QAnyValue> rowLabels;
    std::vector<QAnyValue> cells;
};

// What `write` stores in a document of the schema.
Bytes StoredAt(int schema, const std::function<void(CArchive&)>& write) {
    CMemFile file;
    CArchive archive(&file, CArchive::store);
    QSchema::SetSchemaDirect(archive, schema);
    write(archive);
    archive.Close();
    return file.Bytes();
}

// Reads the bytes with `read` as a document of the schema.
void LoadAt(const Bytes& bytes, int schema, const std::function<void(CArchive&)>& read) {
    CMemFile file(bytes);
    CArchive archive(&file, CArchive::load);
    QSchema::SetSchemaDirect(archive, schema);
    read(archive);
}

// The document form written field by field, as a reader of the document expects it.
Bytes ImageBytes(const TableImage& image, int schema) {
    return StoredAt(schema, [&](CArchive& archive) {
        archive << image.name << image.comment << image.tlDesc;
        archive << static_cast<std::int32_t>(image.rows) << static_cast<std::int32_t>(image.cols);
        if (schema >= 109)
            archive << image.secondComment;
        for (const auto* part : {&image.colLabels, &image.rowLabels, &image.cells})
            for (const QAnyValue& value : *part)
                archive << value;
    });
}

Bytes StoredBytes(QLookupTableData& data, int schema) {
    return StoredAt(schema, [&](CArchive& archive) { data.Serialize(archive); });
}

QSmartPtr<QLookupTableData> LoadedTable(const Bytes& bytes, int schema) {
    QSmartPtr<QLookupTableData> data(new QLookupTableData);
    LoadAt(bytes, schema, [&](CArchive& archive) { data->Serialize(archive); });
    return data;
}

TableImage PriceImage(const CString& name) {
    TableImage image{name, u"Prices", u"Item", u"checked", 2, 3, {}, {}, {}};
    image.colLabels = {QAnyValue(u"Small"), QAnyValue(u"Medium"), QAnyValue(u"Large")};
    image.rowLabels = {QAnyValue(u"Pine"), QAnyValue(u"Oak")};
    image.cells = {QAnyValue(1), QAnyValue(2), QAnyValue(3),
                   QAnyValue(4), QAnyValue(),  QAnyValue(u"=1+1")};
    return image;
}

// A table named `name` made from its document form, so that no table file is read.
QSmartPtr<QLookupTableData> NamedTableInMemory(const CString& name) {
    return LoadedTable(ImageBytes(PriceImage(name), 109), 109);
}

const char* const c_priceFile = "Prices\tVltFormat=2.1\tchecked\n"
                                "2\t2\n"
                                "Item\t\"\"\"Small\"\"\"\t\"\"\"Large\"\"\"\n"
                                "String\\String\tWhole Number\tWhole Number\n"
                                "\"\"\"Pine\"\"\"\t1\t2\n"
                                "\"\"\"Oak\"\"\"\t3\t4\n";

const char* const c_otherFile = "Other\tVltFormat=2.1\t\n1\t1\nItem\t\"\"\"Only\"\"\"\n"
                                "String\\String\tWhole Number\n\"\"\"Fir\"\"\"\t9\n";

class LookupTable : public test::TableFixture {};

// A null handle and one on a table that did not read answer with false (or no index), leave what
// they would give untouched, and name nothing but the table's own name and error.
TEST_F(LookupTable, HandlesWithoutAValidTableAnswerFalse) {
    WriteTable("broken", "c\tVltFormat=2.1\t\n-1\t1\n");
    QLookupTable invalid;
    ASSERT_FALSE(invalid.SetName(u"broken"));
    ASSERT_NE(invalid.Data(), nullptr);
    const QAnyValue k(1);
    QAnyValue v;
    CString l;
    int n = 7;
    TYPE type = QAnyValue::TYPE_MONEY;
    const std::vector<std::function<bool(QLookupTable&)>> operations = {
        [&](QLookupTable& t) { return t.IsValid() || t.IsSorted() || t.SetIsSorted(true); },
        [&](QLookupTable& t) { return t.RowCount(n) || t.RowLabelType(type); },
        // An invalid table of a name still begins a transaction: it is locked by name.
        [&](QLookupTable& t) { return t.CommitTrans() || t.Rollback() || t.Reload(); },
        [&](QLookupTable& t) { return t.Lookup(k, k, v, nullptr, nullptr); },
        [&](QLookupTable& t) { return t.UpdateByIndex(0, 0, k); },
        [&](QLookupTable& t) { return t.RowLabels(l, nullptr, nullptr); },
        [&](QLookupTable& t) { return t.AddRow(k, n) || t.RemoveRowByIndex(0); },
        [&](QLookupTable& t) { return t.FindRow(k, nullptr) != -1; },
        [&](QLookupTable& t) { return t.FindRowExact(k, nullptr) != -1; },
    };
    QLookupTable null;
    for (std::size_t i = 0; i < operations.size(); ++i) {
        EXPECT_FALSE(operations[i](null)) << "operation " << i;
        EXPECT_FALSE(operations[i](invalid)) << "operation " << i;
    }
    EXPECT_EQ(n, 7);
    EXPECT_EQ(type, QAnyValue::TYPE_MONEY);
    // The table behind the handle answers so too.
    EXPECT_FALSE(invalid.Data()->Lookup(k, k, v, nullptr, nullptr));
    EXPECT_FALSE(invalid.Data()->LookupExact(k, k, v, nullptr, nullptr));
    EXPECT_FALSE(null.IsSameNameAs(null));
    EXPECT_FALSE(null.BeginTrans());
    EXPECT_TRUE(null.Name().IsEmpty());
    EXPECT_TRUE(invalid.Comment().IsEmpty());
    EXPECT_EQ(U(invalid.Name()), U(TableCString("broken")));
}

TEST_F(LookupTable, ANewTableIsOneStringCellSortedAndNameless) {
    QLookupTable table;
    table.CreateNewFile();
    EXPECT_TRUE(table.IsSorted());
    // Column types exist for the columns only.
    TYPE cell = QAnyValue::TYPE_STRING;
    for (int index : {-1, 1})
        EXPECT_FALSE(table.ColType(index, cell) || table.UpdateColType(index, QAnyValue::TYPE_INT))
            << index;
    EXPECT_EQ(cell, QAnyValue::TYPE_STRING);
    EXPECT_TRUE(table.UpdateColType(0, QAnyValue::TYPE_INT));
    EXPECT_EQ(test::Types(table), "1/1: 3");
}

TEST_F(LookupTable, DeleteFreesTheContentsButKeepsNameAndDescription) {
    QSmartPtr<QLookupTableData> data = NamedTableInMemory(TableCString("kept"));
    ASSERT_TRUE(data->IsValid());
    data->Delete();
    EXPECT_FALSE(data->IsValid());
    EXPECT_EQ(data->RowCount(), 0);
    EXPECT_EQ(data->ColCount(), 0);
    EXPECT_EQ(data->RowLabelType(), TYPE(0));
    EXPECT_TRUE(data->Comment().IsEmpty());
    EXPECT_TRUE(data->SecondComment().IsEmpty());
    EXPECT_EQ(U(data->Name()), U(TableCString("kept")));
    EXPECT_EQ(U(data->TLDesc()), "Item");
}

TEST_F(LookupTable, NamesResolveInTheTableFolderWithTheTableExtension) {
    const std::string folder = m_folder.string();
    const struct {
        const char16_t* given;
        std::string expected;
    } cases[] = {
        {u"prices", folder + "/prices.vlt"},
        {u"prices.vlt", folder + "/prices.vlt"},
        {u"prices.VLT", folder + "/prices.VLT"},
        {u"prices.2019", folder + "/prices.2019.vlt"},
        {u"sub/prices", folder + "/sub/prices.vlt"},
        {u"/elsewhere/prices", "/elsewhere/prices.vlt"},
        {u"", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(U(QLookupTable::ResolveName(c.given)), c.expected) << U(CString(c.given));
}

TEST_F(LookupTable, AnEmptyNameIsNoNameAndChangesNothing) {
    QLookupTable table;
    table.CreateNewFile();
    QLookupTableData* before = table.Data();
    EXPECT_FALSE(table.SetName(CString()));
    EXPECT_EQ(table.Data(), before);
    EXPECT_TRUE(table.IsValid());
    EXPECT_EQ(U(table.LastError()), "\nNo name supplied");
}

TEST_F(LookupTable, AMissingFileFailsAndStaysListed) {
    for (bool forWriting : {false, true}) {
        QLookupTableData::CleanupCache();
        QLookupTable table;
        EXPECT_FALSE(table.SetName(u"missing", forWriting));
        const CString fullName = TableCString("missing");
        EXPECT_EQ(U(table.LastError()),
                  U(fullName) + (forWriting ? "\nCould not open for writing" : "\nCould not open"));
        EXPECT_FALSE(table.IsValid());
        EXPECT_EQ(U(table.Name()), U(fullName));
        EXPECT_EQ(QLookupTableData::Find(fullName).Get(), table.Data());
        EXPECT_FALSE(table.Data()->IsFileOpen());
        EXPECT_FALSE(fs::exists(TablePath("missing")));
    }
}

TEST_F(LookupTable, LocksNestAndTheLastUnlockClosesTheFile) {
    WriteTable("locked", "contents stay\n");
    QSmartPtr<QLookupTableData> data = NamedTableInMemory(TableCString("locked"));
    ASSERT_TRUE(data->Lock(false));
    EXPECT_TRUE(data->IsFileOpen());
    EXPECT_FALSE(data->IsWritable());
    ASSERT_TRUE(data->Lock(false));
    data->Unlock();
    EXPECT_TRUE(data->IsFileOpen());
    // A write lock upgrades a read lock it nests in.
    ASSERT_TRUE(data->Lock(true));
    EXPECT_TRUE(data->IsWritable());
    data->Unlock();
    data->Unlock();
    EXPECT_FALSE(data->IsFileOpen());
    // The writable flag outlives the lock, and the file was not truncated.
    EXPECT_TRUE(data->IsWritable());
    EXPECT_EQ(ReadTable("locked"), "contents stay\n");
}

TEST_F(LookupTable, AFailedLockRestoresTheCount) {
    QSmartPtr<QLookupTableData> data = NamedTableInMemory(TableCString("absent"));
    EXPECT_FALSE(data->Lock(false));
    EXPECT_FALSE(data->Lock(true));
    EXPECT_FALSE(data->IsFileOpen());
    EXPECT_FALSE(fs::exists(TablePath("absent")));
    // Had a count been left behind, this lock would be nested and find no open file.
    WriteTable("absent", "now here\n");
    EXPECT_TRUE(data->Lock(false));
    data->Unlock();
    EXPECT_FALSE(data->IsFileOpen());
}

// Another holder of the file: a writer keeps everyone else out, a reader only writers.
class FileHolder {
public:
    FileHolder(const fs::path& path, bool writing)
        : m_file(CString::FromUtf8(path.string()),
                 (writing ? CFile::modeReadWrite : CFile::modeRead) | CFile::shareDenyWrite) {}

private:
    CFile m_file;
};

TEST_F(LookupTable, ALockOnAFileHeldByAnotherWriterFails) {
    WriteTable("prices", c_priceFile);
    QSmartPtr<QLookupTableData> data = NamedTableInMemory(TableCString("prices"));
    FileHolder holder(TablePath("prices"), true);
    EXPECT_FALSE(data->Lock(false));
    EXPECT_FALSE(data->IsFileOpen());
}

TEST_F(LookupTable, ReadersShareAFileThatNoOneWrites) {
    WriteTable("read", "x\n");
    WriteTable("prices", c_priceFile);
    QSmartPtr<QLookupTableData> data = NamedTableInMemory(TableCString("read"));
    FileHolder reader(TablePath("read"), false);
    FileHolder priceReader(TablePath("prices"), false);
    EXPECT_TRUE(data->Lock(false));
    data->Unlock();
    EXPECT_FALSE(data->Lock(true));
    // Opened for writing, a table others read is read-only, without complaint.
    QLookupTable table;
    ASSERT_TRUE(table.SetName(u"prices", true)) << U(table.LastError());
    EXPECT_FALSE(table.Data()->IsWritable());
    EXPECT_TRUE(table.LastError().IsEmpty());
}

TEST_F(LookupTable, AReportIsLedByTheTableName) {
    QSmartPtr<QLookupTableData> data = NamedTableInMemory(u"/t/shown.vlt");
    const bool saved = NoEvalReportErrors();
    SetNoEvalReportErrors(false);
    data->ReportError(u"loud one");
    const std::vector<test::Report> loud = test::PendingReports();
    SetNoEvalReportErrors(saved);
    EXPECT_EQ(loud, (std::vector<test::Report>{{"Lookup Table", "/t/shown.vlt\nloud one"}}));
    EXPECT_EQ(U(data->LastError()), "/t/shown.vlt\nloud one");
}

TEST_F(LookupTable, TheDocumentFormRoundTripsByteForByteWithTheSecondCommentFrom109) {
    for (int schema : {108, 109, 110}) {
        const TableImage image = PriceImage(u"/t/prices.vlt");
        const Bytes bytes = ImageBytes(image, schema);
        QSmartPtr<QLookupTableData> data = LoadedTable(bytes, schema);
        ASSERT_TRUE(data->IsValid()) << schema;
        EXPECT_EQ(StoredBytes(*data, schema), bytes) << schema;
        EXPECT_EQ(U(data->Name()) + "|" + U(data->Comment()) + "|" + U(data->TLDesc()) + "|" +
                      U(data->SecondComment()),
                  std::string("/t/prices.vlt|Prices|Item|") + (schema < 109 ? "" : "checked"));
        EXPECT_EQ(data->RowCount(), 2);
        EXPECT_EQ(data->ColCount(), 3);
        EXPECT_TRUE(data->AreAllRowsLoaded());
    }
}

TEST_F(LookupTable, AnEmptyTableWritesItselfAsNoRowsAndReadsBackInvalid) {
    QLookupTableSource source;
    QTableHandlePtr empty = source.CreateEmpty();
    const Bytes bytes = StoredBytes(*QLookupTable(empty).Data(), 109);
    EXPECT_EQ(bytes, ImageBytes(TableImage(), 109));
    EXPECT_FALSE(LoadedTable(bytes, 109)->IsValid());
}

TEST_F(LookupTable, ADocumentFormTooBigForMemoryIsOutOfMemory) {
    TableImage huge{u"/t/huge.vlt", CString(), CString(), CString(), 100000, 100000, {}, {}, {}};
    const Bytes bytes = ImageBytes(huge, 109);
    QSmartPtr<QLookupTableData> data(new QLookupTableData);
    EXPECT_THROW(LoadAt(bytes, 109, [&](CArchive& archive) { data->Serialize(archive); }),
                 CArchiveException);
    EXPECT_EQ(U(data->LastError()), "/t/huge.vlt\nOut of memory");
    EXPECT_FALSE(data->IsValid());
}

// A new column label type rebuilds the label index under the present threshold.
TEST_F(LookupTable, ANewColumnLabelTypeRebuildsTheIndex) {
    QLookupTableDataStatics::c_TableCacheOverSize = -1;
    QSmartPtr<QLookupTableData> data = NamedTableInMemory(u"/t/prices.vlt");
    ASSERT_FALSE(data->HasColIndex());
    QLookupTableDataStatics::c_TableCacheOverSize = 2;
    data->UpdateColLabelType(QAnyValue::TYPE_STRING);
    EXPECT_TRUE(data->HasColIndex());
    EXPECT_EQ(data->ColLabelType(), QAnyValue::TYPE_STRING);
}

TEST_F(LookupTable, ANamelessTableCommitsNothingAndRollsBackToANewTable) {
    QLookupTable table;
    table.CreateNewFile();
    table.SetComment(u"changed");
    EXPECT_TRUE(table.CommitTrans());
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder), fs::directory_iterator()), 0);
    EXPECT_FALSE(table.BeginTrans());
    QAnyValue begin(table.AsHandle());
    begin.BEGINTRANSit();
    EXPECT_EQ(test::MessageOf(begin), "Failed BEGINTRANS for ");
    const QLookupTableData* before = table.Data();
    EXPECT_TRUE(table.Rollback());
    EXPECT_NE(table.Data(), before);
    EXPECT_TRUE(table.Comment().IsEmpty());
}

TEST_F(LookupTable, NamesDifferingInCaseOrExtensionShareOneTableReadOnce) {
    WriteTable("prices", c_priceFile);
    QLookupTable first;
    QLookupTable second;
    QLookupTable third;
    ASSERT_TRUE(first.SetName(u"prices")) << U(first.LastError());
    EXPECT_EQ(first.Data()->RowCount(), 2);
    EXPECT_EQ(U(first.Name()), U(TableCString("prices")));
    EXPECT_FALSE(first.Data()->IsFileOpen());
    ASSERT_TRUE(second.SetName(u"prices.vlt"));
    ASSERT_TRUE(third.SetName(CString::FromUtf8((m_folder / "PRICES.VLT").string())));
    EXPECT_EQ(first.Data(), second.Data());
    EXPECT_EQ(first.Data(), third.Data());
    EXPECT_TRUE(first.IsSameNameAs(third));
    first.SetComment(u"not kept");
    ASSERT_TRUE(first.Reload());
    EXPECT_EQ(U(third.Comment()), "Prices");
    // A commit without a transaction is refused and writes nothing.
    EXPECT_FALSE(first.Data()->IsWritable());
    EXPECT_FALSE(first.CommitTrans());
    EXPECT_EQ(ReadTable("prices"), c_priceFile);
}

TEST_F(LookupTable, WithoutTheSizeThresholdATableIsReadWholeAndHasNoIndex) {
    WriteTable("prices", c_priceFile);
    QLookupTableDataStatics::c_TableCacheOverSize = 0;
    QLookupTable whole;
    ASSERT_TRUE(whole.SetName(u"prices")) << U(whole.LastError());
    EXPECT_TRUE(whole.Data()->AreAllRowsLoaded());
    EXPECT_FALSE(whole.Data()->HasRowIndex());
    EXPECT_FALSE(whole.Data()->HasColIndex());
}

TEST_F(LookupTable, ARollbackDropsTheChangesAndTheLock) {
    WriteTable("prices", c_priceFile);
    QLookupTable table;
    ASSERT_TRUE(table.SetName(u"prices"));
    ASSERT_TRUE(table.BeginTrans());
    EXPECT_TRUE(table.Data()->IsWritable());
    EXPECT_TRUE(table.Data()->IsFileOpen());
    table.SetComment(u"not kept");
    EXPECT_TRUE(table.Rollback());
    EXPECT_FALSE(table.Data()->IsFileOpen());
    EXPECT_EQ(U(table.Comment()), "Prices");
    EXPECT_EQ(ReadTable("prices"), c_priceFile);
}

TEST_F(LookupTable, TableValuesRunTransactionsOnTheirTable) {
    WriteTable("prices", c_priceFile);
    QAnyValue table(u"prices");
    QLookupTable handle(table.MakeLookupTable());
    ASSERT_TRUE(handle.IsValid());
    QAnyValue begin(table);
    begin.BEGINTRANSit();
    ASSERT_TRUE(begin.IsBool()) << test::MessageOf(begin);
    EXPECT_TRUE(handle.Data()->IsWritable());
    handle.SetComment(u"By value");
    QAnyValue commit(table);
    commit.COMMITTRANSit();
    ASSERT_TRUE(commit.IsBool()) << test::MessageOf(commit);
    EXPECT_EQ(ReadTable("prices").rfind("By value\t", 0), 0u);
    QAnyValue reload(table);
    reload.RELOADit();
    EXPECT_TRUE(reload.IsBool()) << test::MessageOf(reload);
    EXPECT_EQ(U(handle.Comment()), "By value");
}

TEST_F(LookupTable, AMissingFileIsReadFromTheArchiveAndTheFirstWriteLockGivesItItsOwnFile) {
    test::WriteZip(m_folder / "TableBasedOn.zip", {{"sub/shipped.vlt", c_priceFile}});
    QLookupTable table;
    ASSERT_TRUE(table.SetName(u"sub/shipped")) << U(table.LastError());
    EXPECT_TRUE(table.Data()->IsTakenFromArchive());
    EXPECT_EQ(U(table.Comment()), "Prices");
    EXPECT_FALSE(fs::exists(TablePath("sub/shipped")));
    ASSERT_TRUE(table.BeginTrans());
    EXPECT_FALSE(table.Data()->IsTakenFromArchive());
    EXPECT_TRUE(fs::exists(TablePath("sub/shipped")));
    table.SetComment(u"Mine now");
    ASSERT_TRUE(table.CommitTrans()) << U(table.LastError());
    EXPECT_EQ(ReadTable("sub/shipped").rfind("Mine now\t", 0), 0u);
    QLookupTableData::SetAllReloadRequired();
    QLookupTable reread;
    ASSERT_TRUE(reread.SetName(u"sub/shipped"));
    EXPECT_FALSE(reread.Data()->IsTakenFromArchive());
}

TEST_F(LookupTable, TheSourceSaysWhyItOpensNoTable) {
    QLookupTableSource source;
    CString error;
    // Quiet opening leaves the report switch as it was.
    const bool saved = NoEvalReportErrors();
    SetNoEvalReportErrors(false);
    EXPECT_EQ(source.Open(u"missing", false, error).Get(), nullptr);
    EXPECT_FALSE(NoEvalReportErrors());
    SetNoEvalReportErrors(saved);
    EXPECT_EQ(U(error), U(TableCString("missing") + u"\nCould not open"));
}

} // namespace
} // namespace keel
