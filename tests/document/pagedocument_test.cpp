#include "tests/support/archivebytes.h"
#include "tests/support/errorreports.h"
#include "tests/support/pagescene.h"
#include "tests/support/uihosts.h"

#include "keel/document/pagedocument.h"
#include "keel/platform/schema.h"

#include <gtest/gtest.h>

namespace keel::test {
namespace {

// The first schema whose lengths are doubles.
constexpr int c_schema = 18;

class PageDocumentTest : public ErrorReportsTest {
protected:
    void SetUp() override {
        ErrorReportsTest::SetUp();
        m_savedDefault = QSchema::DefaultVersion();
        QSchema::SetDefaultSchema(c_schema);
    }
    void TearDown() override {
        QSchema::SetDefaultSchema(m_savedDefault);
        ErrorReportsTest::TearDown();
    }

    PageStaticsScope m_statics;
    RecordingHost m_host{IDNO};
    ScopedUIServices m_installed{m_host};

private:
    int m_savedDefault = -1;
};

TEST_F(PageDocumentTest, ThePageHeaderFollowsTheDocumentHeaderByteForByte) {
    QPageDoc::SetManualPageSize(PageSize(420, 297));
    QPageDocument document;
    ASSERT_EQ(document.GetScale(), 20);
    const Bytes expected = Concat({Hex("BA BA"), LittleEndian32(c_schema),
                                   Hex("01 14 00 00 00 "
                                       "02 00 00 00 00 00 40 7A 40 00 00 00 00 00 90 72 40 "
                                       "00"),
                                   LittleEndian32(0)});
    const Bytes stored = Stored([&](CArchive& archive) { document.Serialize(archive); });
    EXPECT_EQ(stored, expected);

    QPageDoc::SetManualPageSize({});
    QPageDocument loaded;
    Loading loading(stored, 4096, u"Contents");
    loaded.Serialize(loading.archive);
    EXPECT_EQ(loaded.GetScale(), 20);
    EXPECT_EQ(loaded.GetPageSize(), PageSize(420, 297));
    EXPECT_EQ(Stored([&](CArchive& archive) { loaded.Serialize(archive); }), expected);
}

TEST_F(PageDocumentTest, AnUnknownPageTagFailsTheLoad) {
    QPageDocument document;
    const Bytes bytes =
        Concat({Hex("BA BA"), LittleEndian32(c_schema), Hex("03"), LittleEndian32(0)});
    Loading loading(bytes, 4096, u"Contents");
    try {
        document.Serialize(loading.archive);
        ADD_FAILURE() << "loaded";
    } catch (const CArchiveException& failure) {
        EXPECT_EQ(failure.m_cause, 4);
    }
}

} // namespace
} // namespace keel::test
