#include "keel/platform/file.h"
#include "keel/platform/schema.h"

#include <functional>
#include <gtest/gtest.h>

namespace keel {
namespace {

class SchemaTest : public ::testing::Test {
protected:
    void TearDown() override {
        QSchema::SetDefaultSchema(m_default);
        QSchema::SetUnsupportedSchema(m_unsupported);
    }

    // An archive whose schema field holds `schema`.
    CArchive& With(unsigned schema) {
        m_archive.SetObjectSchema(schema);
        return m_archive;
    }

    CMemFile m_file;
    CArchive m_archive{&m_file, CArchive::load};

private:
    int m_default = QSchema::DefaultVersion();
    int m_unsupported = QSchema::UnsupportedVersion();
};

TEST_F(SchemaTest, VersionIsTheArchivesSchemaOrTheDefaultAndStaysThere) {
    EXPECT_EQ(QSchema::DefaultVersion(), -1);
    EXPECT_EQ(QSchema::UnsupportedVersion(), -1);
    EXPECT_EQ(QSchema::Version(With(CArchive::noSchema)), -1);
    EXPECT_EQ(QSchema::Version(m_archive), -1);
    QSchema::SetDefaultSchema(120);

    CArchive& archive = With(17);
    EXPECT_EQ(QSchema::Version(archive), 17);
    EXPECT_EQ(QSchema::Version(archive), 17) << "reading the version consumed it";
    EXPECT_EQ(archive.GetObjectSchema(), 17u);
    // A negative schema is replaced by the default, which is stored.
    for (const unsigned none : {CArchive::noSchema, 0x80000000u}) {
        EXPECT_EQ(QSchema::Version(With(none)), 120);
        EXPECT_EQ(m_archive.GetObjectSchema(), 120u);
    }
    QSchema::SetDefaultSchema(33);
    QSchema::SetSchemaDirect(With(CArchive::noSchema), 17);
    EXPECT_EQ(m_archive.m_nObjectSchema, 17u);
    QSchema::SetSchemaDefault(m_archive);
    EXPECT_EQ(m_archive.m_nObjectSchema, 33u);
    QSchema::SetSchemaDirect(m_archive, -1);
    EXPECT_EQ(m_archive.m_nObjectSchema, CArchive::noSchema);
}

TEST_F(SchemaTest, ComparisonsAgainstTheArchivesVersion) {
    using Compare = std::function<bool(CArchive&, int)>;
    const struct {
        const char* name;
        Compare compare;
        bool below, equal, above; // the archive's version 10 against 11, 10 and 9
    } rows[] = {
        {"IsVersion", QSchema::IsVersion, false, true, false},
        {"IsUptoVersion", QSchema::IsUptoVersion, true, true, false},
        {"IsAtLeastVersion", QSchema::IsAtLeastVersion, false, true, true},
        {"IsBeforeVersion", QSchema::IsBeforeVersion, true, false, false},
        {"IsAfterVersion", QSchema::IsAfterVersion, false, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.compare(With(10), 11), row.below);
        EXPECT_EQ(row.compare(With(10), 10), row.equal);
        EXPECT_EQ(row.compare(With(10), 9), row.above);
        QSchema::SetDefaultSchema(11);
        EXPECT_EQ(row.compare(With(10), -1), row.below) << "-1 stands for the default";
        QSchema::SetDefaultSchema(10);
        EXPECT_EQ(row.compare(With(10), -1), row.equal);
        EXPECT_EQ(row.compare(With(CArchive::noSchema), 10), row.equal)
            << "an archive without a schema has the default";
        QSchema::SetDefaultSchema(9);
        EXPECT_EQ(row.compare(With(10), -1), row.above);
    }
}

} // namespace
} // namespace keel
