#include "tests/support/exchangetests.h"
#include "tests/support/exporttree.h"

#include "keel/exchange/exportformatascii.h"
#include "keel/exchange/odbcfixup.h"

#include <gtest/gtest.h>
#include <string>

namespace keel::test {
namespace {

using ImportLine = QImportFormatLevelASCII::ImportLine;
using Lines = QImportFormatLevelASCII::Lines;

// A text is escaped and quoted as the value column needs, and unfixed back; the escapes and the
// quoting themselves are the tab tokens' own, so here it is when a text is quoted.
TEST(ODBCFixupTest, EscapesAndQuotesAsTheColumnNeedsAndReverses) {
    const struct {
        const char16_t* text;
        const char16_t* fixed;
        bool fixesToIt;
    } cases[] = {
        {u"", u"", true},
        {u"1st", u"1st", true},
        {u"=A", u"\"=A\"", true},
        {u"a\tb", u"a\\tb", true},
        {u"say \"hi\"", u"\"say \"\"hi\"\"\"", true},
        {u"\t", u"\"\\t\"", true},
        {u"\"open", u"\"open", false},
        {u"", u"\"\"", false},
    };
    for (const auto& c : cases) {
        if (c.fixesToIt) {
            EXPECT_EQ(ODBCFixup(c.text), CString(c.fixed)) << CString(c.text).ToUtf8();
        }
        EXPECT_EQ(ODBCUnFixup(c.fixed), CString(c.text)) << CString(c.fixed).ToUtf8();
    }
}

TEST(CheckContextFirstTest, ContextFirstMustOutnumberTheOthers) {
    const struct {
        std::vector<CString> sample;
        bool first;
    } cases[] = {
        {{}, false},
        {{u"a\t1\t\tG|x"}, false},
        {{u"G|x\ta\t1\t"}, true},
        {{u"G|x\ta\t1\t", u"a\t1\t\tG|x"}, false},
        {{u"G|x\ta\t1\t", u"G|y\tb\t1\t", u"a\t1\t\tG|x"}, true},
        {{u"G|x\ta\t1\tG|y"}, false},
        {{u"G|x\ta\t1\t\textra|x"}, true},
        {{u"|x\ta\t1\t"}, true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(QImportFormatASCII::CheckContextFirst(c.sample), c.first)
            << (c.sample.empty() ? std::string() : c.sample[0].ToUtf8());
}

TEST(ParseLineTest, SplitsAtThreeTabsAndEvaluatesTheValue) {
    const ImportLine last = QImportFormatASCII::ParseLine(u"w\t12mm\t\tG|x", false);
    EXPECT_EQ(last.name, CString(u"w"));
    EXPECT_EQ(last.value.Type(), QAnyValue::TYPE_LENGTH);
    EXPECT_TRUE(last.formula.IsEmpty());
    EXPECT_EQ(last.context, CString(u"G|x"));

    const ImportLine first =
        QImportFormatASCII::ParseLine(u"G|x\tw\t\"\"\"a\\\\tb\"\"\"\ta+1", true);
    EXPECT_EQ(first.context, CString(u"G|x"));
    EXPECT_EQ(first.name, CString(u"w"));
    EXPECT_EQ(first.value, QAnyValue(u"a\tb"));
    EXPECT_EQ(first.formula.ToString(), "a+1");

    const ImportLine shortLine = QImportFormatASCII::ParseLine(u"w", false);
    EXPECT_EQ(shortLine.name, CString(u"w"));
    EXPECT_EQ(shortLine.value.Type(), QAnyValue::TYPE_EMPTY);

    const ImportLine rest = QImportFormatASCII::ParseLine(u"w\t1\t\tG|x\tmore", false);
    EXPECT_EQ(rest.context, CString(u"G|x\tmore"));
}

void AddLines(QImportLinePool& lines, std::initializer_list<const char16_t*> contexts) {
    int n = 0;
    for (const char16_t* context : contexts)
        lines.Add({CString::Formatted(u"a%d", n++), QAnyValue(), FormulaText(), context});
}

std::string Names(const ImportLine& line) {
    return line.name.ToUtf8() + "@" + line.context.ToUtf8() + " ";
}

std::string Names(const Lines& lines) {
    std::string names;
    for (const ImportLine& line : lines)
        names += Names(line);
    return names;
}

std::string Names(const QImportLinePool& lines) {
    std::string names;
    for (int position = lines.Head(); position >= 0; position = lines.Next(position))
        names += Names(lines.At(position));
    return names;
}

// Sorts the lines of the level's own context out of the pool: "attributes | children".
std::string Sorted(QImportLinePool& lines, const QNewLevelImportable& level) {
    Lines attributes;
    QImportLinePool children;
    QImportFormatLevelASCII::SortImportLines(lines, &level, attributes, children);
    return Names(attributes) + "| " + Names(children);
}

TEST(SortImportLinesTest, NewBlocksStartAtMinusOneAndRunWhileZero) {
    QImportLinePool lines;
    AddLines(lines, {u"7", u"-1", u"0", u"0|Sub", u"-1", u"0", u"5", u"0"});
    const FakeItem first(3);
    EXPECT_EQ(Sorted(lines, first), "a1@ a2@ | a3@Sub ");
    EXPECT_EQ(Names(lines), "a0@7 a4@-1 a5@0 a6@5 a7@0 ");
    EXPECT_EQ(Sorted(lines, first), "a4@ a5@ | ") << "the block ends at the first line not 0";
    EXPECT_EQ(Names(lines), "a0@7 a6@5 a7@0 ");
}

TEST(SortImportLinesTest, WithoutABlockEveryLineOfTheOwnContextIsTaken) {
    QImportLinePool lines;
    AddLines(lines, {u"7", u"5", u"7|Sub", u"70", u"7"});
    EXPECT_EQ(Sorted(lines, FakeItem(7)), "a0@ a4@ | a2@Sub ");
    EXPECT_EQ(Names(lines), "a1@5 a3@70 ");

    QImportLinePool groupLines;
    AddLines(groupLines, {u"Group|A", u"group|a|1", u"Group|AB", u""});
    EXPECT_EQ(Sorted(groupLines, FakeGroup(u"A")), "a0@ | a1@1 ");
    EXPECT_EQ(Names(groupLines), "a2@Group|AB a3@ ");
}

using TabFileTest = ExchangeFileTest;

// Asks the root level, once, for each probe what new child the file offers.
class Prober : public QImportable {
public:
    struct Answer {
        bool matches;
        CString level;
        CString identifier;
    };
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override {
        for (QNewLevelImportable* probe : probes) {
            Answer answer{};
            answer.matches =
                level.MatchesRequiredImportable(probe, answer.level, answer.identifier);
            answers.push_back(answer);
        }
        return true;
    }
    std::vector<QNewLevelImportable*> probes;
    std::vector<Answer> answers;
};

class LowerGroup : public FakeGroup {
public:
    CString GetImportExportLevelName() const override { return u"group"; }
};

class NamedOnly : public FakeGroup {
public:
    int GetAsciiContextStyle() const override { return 1; }
};

TEST_F(TabFileTest, MatchesRequiredImportableNamesTheNewChild) {
    FakeGroup group;
    LowerGroup lower;
    FakeItem item;
    NamedOnly named;
    Prober prober;
    prober.probes = {&group, &lower, &item, &named};
    Import(prober, "a\t1\t\tItem|4\nb\t1\t\tGroup|Wall|2\n");
    ASSERT_EQ(prober.answers.size(), 4u);
    EXPECT_TRUE(prober.answers[0].matches);
    EXPECT_EQ(prober.answers[0].level, CString(u"Group"));
    EXPECT_EQ(prober.answers[0].identifier, CString(u"Wall"));
    EXPECT_FALSE(prober.answers[1].matches) << "level names are compared with case";
    EXPECT_TRUE(prober.answers[2].matches);
    EXPECT_EQ(prober.answers[2].identifier, CString(u"Item")) << "the first line's first part";
    EXPECT_TRUE(prober.answers[3].matches);
    EXPECT_TRUE(prober.answers[3].identifier.IsEmpty());

    Prober empty;
    empty.probes = {&group, &item};
    Import(empty, "a\t1\t\t\n");
    EXPECT_FALSE(empty.answers[0].matches);
    EXPECT_FALSE(empty.answers[1].matches);
}

TEST_F(TabFileTest, TheContextSampleStopsAtOneHundredLines) {
    std::string bytes;
    for (int i = 0; i < QImportFormatASCII::c_contextSampleLines; ++i)
        bytes += "shelves\t" + std::to_string(i) + "\t\tGroup|A\n";
    for (int i = 0; i < 150; ++i)
        bytes += "Group|B\tshelves\t3\t\n";
    FakeTree tree;
    Import(tree, bytes);
    ASSERT_EQ(tree.groups.size(), 1u) << "the lines after the sample are read context last";
    EXPECT_EQ(tree.groups[0]->shelves, 0) << "the first of two equal names is taken";
    EXPECT_EQ(tree.bag.entries.size(), 150u);
    EXPECT_EQ(tree.bag.entries[0].name, CString(u"Group|B"));
}

} // namespace
} // namespace keel::test
