#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"

#include "keel/exchange/odbcfixup.h"
#include "keel/formula/evaluator.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace keel::test {
namespace {

// The text as UTF-16 little-endian, each unit as given (a lone surrogate stays one).
std::string Utf16(const std::u16string& text) {
    std::string bytes;
    for (const char16_t unit : text) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

const std::string c_utf16Mark = "\xFF\xFE";

std::string Deep(int parts) {
    std::string context = "Group|A";
    for (int i = 0; i < parts; ++i)
        context += "|L";
    return context;
}

// What the import left in the tree: the title's units in hexadecimal where they are not ASCII,
// the bag's names and values, and each group with its shelves.
std::string Summary(const FakeTree& tree) {
    const auto text = [](const CString& value) {
        std::string out;
        for (const char16_t unit : value.View()) {
            if (unit >= 0x20 && unit < 0x7F) {
                out += static_cast<char>(unit);
            } else {
                char hex[8];
                std::snprintf(hex, sizeof hex, "<%04X>", static_cast<unsigned>(unit));
                out += hex;
            }
        }
        return out;
    };
    const auto value = [&text](const QAnyValue& value) {
        CString message;
        return value.IsErrorAndGetMessage(message) ? "error(" + text(message) + ")"
                                                   : text(QAnyValue(value).MakeCString());
    };
    std::string summary = "title=" + text(tree.title) + " bag=";
    for (const FakeBag::Entry& entry : tree.bag.entries)
        summary += text(entry.name) + ":" + value(entry.value) + ";";
    summary += " groups=";
    for (const auto& group : tree.groups)
        summary += text(group->name) + ":" + std::to_string(group->shelves) + ";";
    return summary;
}

using TabBadInputTest = ExchangeFileTest;

// Whether the file was refused, what the tree holds and each report, cut to 300 characters.
TEST_F(TabBadInputTest, EachBadFileGivesItsClearResult) {
    const std::string notText = "refused; title= bag= groups=; Import error: Cannot read import "
                                "data: line ";
    const struct {
        const char* name;
        std::string bytes;
        std::string outcome;
    } cases[] = {
        {"UTF-16 with lone surrogates",
         c_utf16Mark + Utf16(u"title\t\"\"\"a\xD800"
                             u"b\xDC00\"\"\"\t\t\n"),
         "title=a<D800>b<DC00> bag= groups="},
        {"UTF-16 without its mark", Utf16(u"title\t\"\"\"abc\"\"\"\t\t\n"),
         notText + "1 is not text"},
        // Nothing of the file is imported, not even the lines before the one that is not text.
        {"binary after text",
         "title\t\"\"\"t\"\"\"\t\t\n\nshelves\t1\t\tGroup|A\n" + std::string(1, '\0') + "z\n",
         notText + "4 is not text"},
        // Lines of tabs are attributes without a name, or lines of a context of tabs.
        {"only tabs", "\t\t\t\t\t\t\n\t\n\t\t\t\n",
         "refused; title= bag=:;:; groups=; Import error: Unmatched content for :\n\n\t\t\t\t\t"},
        {"deep context", "shelves\t2\t\t" + Deep(10000) + "\n",
         "refused; title= bag= groups=A:1;; Import error: Import failed for Group:A; Import error: "
         "Unmatched content for Group:A\n\n" +
             Deep(126).substr(8) + "...\tshelves\t"},
        {"a long value and a long context",
         "note\t\"\"\"" + std::string(3'000'000, 'y') + "\"\"\"\t\t\nwidth\t1\t\tShelf|" +
             std::string(3'000'000, 'z') + "\n",
         "refused; title= bag=note:error(Formula too long to evaluate (more than 32767 "
         "characters)); groups=; Import error: Unmatched content for :\n\nShelf|" +
             std::string(245, 'z') + "...\twidth\t"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TheErrorLog().DiscardPendingMessages();
        FakeTree tree;
        std::string outcome = Import(tree, c.bytes) ? "" : "refused; ";
        outcome += Summary(tree);
        for (const Report& report : PendingReports())
            outcome += "; " + report.heading + ": " + report.message.substr(0, 300);
        EXPECT_EQ(outcome, c.outcome);
    }
}

std::string ErrorOf(const QAnyValue& value) {
    CString message;
    return value.IsErrorAndGetMessage(message) ? message.ToUtf8() : "no error";
}

// A value field far too long for the evaluator is not unfixed and interned whole; around the
// length where that begins, the value is what the evaluator makes of the unfixed text.
TEST(TabValueLength, AValueTooLongForTheEvaluatorIsTheEvaluatorsError) {
    const auto quotes = [](int doubled) {
        std::string field = "\"";
        for (int i = 0; i < doubled; ++i)
            field += "\"\"";
        return field + "\"";
    };
    const std::string fields[] = {quotes(32766),           quotes(32767),
                                  quotes(32768),           std::string(65536, '7'),
                                  std::string(65537, '7'), std::string(32767, '7')};
    for (const std::string& field : fields) {
        const CString text = CString::FromUtf8(field);
        QAnyValue direct;
        std::unique_ptr<QEvaluator>(
            QEvaluator::New(direct, FormulaText(ODBCUnFixup(text)), nullptr, false, false, false))
            ->Evaluate();
        const QImportLine line = QImportFormatASCII::ParseLine(u"v\t" + text + u"\t\t", false);
        EXPECT_EQ(ErrorOf(line.value), ErrorOf(direct)) << field.size();
    }
}

// Formula texts are interned without regard to case; a value keeps the spelling of its file.
TEST(TabValueLength, StringValuesKeepTheirOwnSpelling) {
    QAnyValue seen;
    std::unique_ptr<QEvaluator>(
        QEvaluator::New(seen, FormulaText(u"\"SPELLED\""), nullptr, false, false, false))
        ->Evaluate();
    for (const char16_t* spelling : {u"Spelled", u"spelled", u"SPELLED"}) {
        const QImportLine line =
            QImportFormatASCII::ParseLine(u"v\t\"\"\"" + CString(spelling) + u"\"\"\"\t\t", false);
        EXPECT_EQ(line.value, QAnyValue(CString(spelling)));
        EXPECT_EQ(QAnyValue(line.value).MakeCString().ToUtf8(), CString(spelling).ToUtf8());
    }
}

} // namespace
} // namespace keel::test
