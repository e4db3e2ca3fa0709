#include "tests/support/environment.h"
#include "tests/support/paths.h"

#include "keel/document/reportmarkers.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

using namespace std::string_literals;

struct Expected {
    std::string images;
    std::string filter;
    std::string params;
};

void ExpectMarkers(const QReportMarkers& markers, const Expected& expected) {
    EXPECT_EQ(markers.images.ToUtf8(), expected.images);
    EXPECT_EQ(markers.filter.ToUtf8(), expected.filter);
    EXPECT_EQ(markers.params.ToUtf8(), expected.params);
}

TEST(TextMarkersTest, ReadsTheCommentLines) {
    const struct {
        const char* name;
        std::string text;
        Expected expected;
    } cases[] = {
        {"AllThree", "rem KVNImages: a\nrem KVNFilter: b\nrem KVNParams: c\n", {"a", "b", "c"}},
        {"AnyCaseOfRem", "REM KVNImages: a\nRem KVNFilter: b", {"a", "b", ""}},
        {"BlanksAndTabsAround", "  \trem\t KVNFilter:\t x y \t\n", {"", "x y", ""}},
        {"RemMustBeAWord", "remark KVNImages: a\nrem: KVNFilter: b\n", {"", "", ""}},
        {"RemAloneCarriesNothing", "rem\nrem KVNImages\n", {"", "", ""}},
        {"MarkersAreCaseSensitive", "rem kvnimages: a\nrem KVNIMAGES: b", {"", "", ""}},
        {"EachTakenOnce", "rem KVNImages: first\nrem KVNImages: second\n", {"first", "", ""}},
        {"TheFirstMarkerOfALineIsItsOwn",
         "rem KVNFilter: a KVNImages: b\nrem KVNImages: c",
         {"c", "a KVNImages: b", ""}},
        {"ALineOfATakenMarkerGivesNoOther",
         "rem KVNImages: a\nrem KVNImages: b KVNFilter: c\n",
         {"a", "", ""}},
        {"StopsWhenAllThreeCame",
         "rem KVNParams: p\nrem KVNFilter: f\nrem KVNImages: i\nrem KVNFilter: later",
         {"i", "f", "p"}},
        {"EmptyValueCountsAsTaken", "rem KVNImages:   \nrem KVNImages: b", {"", "", ""}},
        {"CarriageReturnsEndLines",
         "rem KVNImages: a\r\nrem KVNFilter: b\rrem KVNParams: c",
         {"a", "b", "c"}},
        {"NulBytesEndNothing", "\0rem KVNImages: x\nrem KVNFilter: ok\n\0\0"s, {"", "ok", ""}},
        {"Empty", "", {"", "", ""}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ExpectMarkers(QReportMarkers::FromText(c.text), c.expected);
    }
}

TEST(ReportFixturesTest, ReadsTheMarkersOfTheFile) {
    const struct {
        const char* file;
        Expected expected;
    } cases[] = {// Parameters first, then the query's markers for what they left open; the query's
                 // parameter names join the report's own.
                 {"stock.rdl", {"Plan", "Stock > 0", "UserName,DocumentTitle,DocumentPath"}},
                 {"query.rdl", {"Photo,Sketch", "Kind = 2", "DocumentTitle"}},
                 // Without a namespace the names are plain; the first value is taken, trimmed.
                 {"plain.rdl", {"Logo", "", "DocumentPath"}},
                 // Elements of another namespace under another prefix are not the report's.
                 {"prefixed.rdl", {"", "a", ""}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const std::string bytes =
            test::ReadText(test::TestDataFolder() + "/document/reports/" + c.file);
        ASSERT_FALSE(bytes.empty());
        QReportMarkers markers;
        CString error;
        ASSERT_TRUE(QReportMarkers::FromRDL(bytes, markers, error)) << error.ToUtf8();
        EXPECT_TRUE(error.IsEmpty());
        ExpectMarkers(markers, c.expected);
    }
}

std::string Nested(int depth) {
    std::string text = "<Report xmlns=\"urn:r\">";
    for (int i = 0; i < depth; ++i)
        text += "<a>";
    for (int i = 0; i < depth; ++i)
        text += "</a>";
    return text + "</Report>";
}

TEST(BadRDLTest, FailsWithTheParser_sReason) {
    const struct {
        const char* name;
        std::string bytes;
        const char* errorPart;
    } cases[] = {
        {"Broken", test::ReadText(test::TestDataFolder() + "/document/reports/broken.rdl"), ""},
        {"Entity", test::ReadText(test::TestDataFolder() + "/document/reports/entity.rdl"), "ntit"},
        {"DeeplyNested", Nested(400), ""},
        {"Empty", "", ""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QReportMarkers markers;
        markers.images = u"left over";
        CString error;
        EXPECT_FALSE(QReportMarkers::FromRDL(c.bytes, markers, error));
        EXPECT_FALSE(error.IsEmpty());
        EXPECT_NE(error.ToUtf8().find(c.errorPart), std::string::npos) << error.ToUtf8();
        EXPECT_TRUE(markers.images.IsEmpty());
    }
}

// Hostile reports may name parameters by the hundred thousand; each is still taken once.
TEST(ReportParameterNamesTest, ManyNamesAreReadWithoutQuadraticWork) {
    constexpr int count = 100'000;
    std::string line = "rem KVNParams: ";
    std::string rdl = "<Report xmlns=\"urn:r\"><ReportParameters>";
    for (int i = 0; i < count; ++i) {
        line += "p" + std::to_string(i) + ",p0,";
        if (i < count / 4)
            rdl += "<ReportParameter Name=\"q" + std::to_string(i) +
                   "\"/><ReportParameter Name=\"q0\"/>";
    }
    rdl += "</ReportParameters></Report>";
    const std::vector<CString> names = ReportParameterNames(QReportMarkers::FromText(line).params);
    ASSERT_EQ(names.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(names.back().ToUtf8(), "p" + std::to_string(count - 1));
    QReportMarkers markers;
    CString error;
    ASSERT_TRUE(QReportMarkers::FromRDL(rdl, markers, error)) << error.ToUtf8();
    EXPECT_EQ(ReportParameterNames(markers.params).size(), static_cast<std::size_t>(count / 4));
}

TEST(ReportParameterNamesTest, SplitsAtCommasSemicolonsAndBlanksOnce) {
    const struct {
        const char* params;
        std::vector<std::string> names;
    } cases[] = {
        {"", {}},
        {"UserName;DocumentTitle, Unknown", {"UserName", "DocumentTitle", "Unknown"}},
        {" ,;a\tb;;a,B ", {"a", "b", "B"}},
    };
    for (const auto& c : cases) {
        std::vector<std::string> names;
        for (const CString& name : ReportParameterNames(CString::FromUtf8(c.params)))
            names.push_back(name.ToUtf8());
        EXPECT_EQ(names, c.names) << c.params;
    }
}

} // namespace
} // namespace keel
