#include "tests/support/exchangetests.h"
#include "tests/support/paths.h"
#include "tests/support/xmloracle.h"

#include "keel/questions/propdeftabgroupset.h"

#include <gtest/gtest.h>
#include <regex>
#include <string>

namespace keel::test {
namespace {

class ViqxSchemaTest : public ExchangeFileTest {
protected:
    void SetUp() override {
        ExchangeFileTest::SetUp();
        if (!HasXmllint())
            GTEST_SKIP() << "xmllint is not installed";
        const std::string legacy = TestDataFolder() + "/questions/every-kind.viq";
        ASSERT_TRUE(m_set.ReadFromFile(CString::FromUtf8(legacy)));
        m_set.SetMinimumWidth(250);
    }

    // The file of the whole set, as a user's export writes it: valid, so that each change below
    // is what the grammar refuses.
    std::string WrittenSet() {
        const std::string path = Path("set.viqx");
        EXPECT_TRUE(m_set.WriteToFile(CString::FromUtf8(path)));
        EXPECT_TRUE(IsValidQuestionFile(path));
        return path;
    }

    QPropDefTabGroupSet m_set;
};

// Written sets and groups are checked where they are written; the empty set is the boundary.
TEST_F(ViqxSchemaTest, AnEmptySetIsValid) {
    const std::string empty = Path("empty.viqx");
    ASSERT_TRUE(QPropDefTabGroupSet().WriteToFile(CString::FromUtf8(empty)));
    EXPECT_TRUE(IsValidQuestionFile(empty));
}

// One change to a valid file, each of which the grammar refuses.
TEST_F(ViqxSchemaTest, ValuesOutsideTheListsAndUnknownAttributesAreRefused) {
    const std::string valid = ReadFileBytes(WrittenSet());
    const struct {
        const char* from;
        const char* to;
    } changes[] = {
        {"controltype=\"Edit\"", "controltype=\"Editor\""},
        {"rowlocked=\"Yes\"", "rowlocked=\"True\""},
        {"sourcetype=\"List\"", "sourcetype=\"Table\""},
        {"radiotype=\"Value-Per-Button\"", "radiotype=\"Per-Button\""},
        {"type=\"String\"", "type=\"Text\""},
        {"qwidth=\"4\"", "qwidth=\"four\""},
        {"colsizes=\"Fill|", "colsizes=\"Wide|"},
        {"tooltip=\"\"", "tooltip=\"\" colour=\"red\""},
        {"<Control id=\"1\"", "<Row id=\"1\""},
    };
    for (const auto& change : changes) {
        const std::size_t at = valid.find(change.from);
        ASSERT_NE(at, std::string::npos) << change.from;
        std::string changed = valid;
        changed.replace(at, std::string(change.from).size(), change.to);
        if (std::string(change.from).starts_with("<Control"))
            changed = std::regex_replace(changed, std::regex("(<Row [^>]*)/>"), "$1></Row>",
                                         std::regex_constants::format_first_only);
        const std::string path = Path("changed.viqx");
        WriteFileBytes(path, changed);
        EXPECT_FALSE(IsValidQuestionFile(path)) << change.to;
    }
}

} // namespace
} // namespace keel::test
