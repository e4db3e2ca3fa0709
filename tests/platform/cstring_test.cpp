#include "keel/platform/cstring.h"
#include "keel/platform/exceptions.h"

#include <atomic>
#include <climits>
#include <cmath>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <locale.h>
#include <string>
#include <thread>
#include <vector>

namespace keel {
namespace {

// Failures print as UTF-8 so that a wrong character can be read in the log.
std::string U8(const CString& text) {
    return text.ToUtf8();
}

// ---- Copy-on-write ------------------------------------------------------------------------------

TEST(CStringCopyOnWrite, CopySharesTheBuffer) {
    const CString original(u"hello");
    const CString copy = original;
    EXPECT_EQ(copy.GetString(), original.GetString());
    CString assigned;
    assigned = original;
    EXPECT_EQ(assigned.GetString(), original.GetString());
}

TEST(CStringCopyOnWrite, WriteToACopySeparatesIt) {
    const CString original(u"hello");
    CString copy = original;
    copy.SetAt(0, u'J');
    EXPECT_NE(copy.GetString(), original.GetString());
    EXPECT_EQ(U8(original), "hello");
    EXPECT_EQ(U8(copy), "Jello");
}

TEST(CStringCopyOnWrite, WriteToTheOriginalLeavesTheCopy) {
    CString original(u"hello");
    const CString copy = original;
    original.MakeUpper();
    EXPECT_EQ(U8(original), "HELLO");
    EXPECT_EQ(U8(copy), "hello");
}

TEST(CStringCopyOnWrite, SoleOwnerWritesInPlace) {
    CString text(u"hello");
    const char16_t* before = text.GetString();
    text.SetAt(0, u'j');
    text.MakeUpper();
    text.Replace(u'L', u'1');
    EXPECT_EQ(text.GetString(), before);
    EXPECT_EQ(U8(text), "JE11O");
}

TEST(CStringCopyOnWrite, EveryMutationLeavesTheSharedOriginalAlone) {
    struct Mutation {
        const char* name;
        std::function<void(CString&)> apply;
    };
    const Mutation mutations[] = {
        {"SetAt", [](CString& s) { s.SetAt(3, u'#'); }},
        {"MakeLower", [](CString& s) { s.MakeLower(); }},
        {"MakeUpper", [](CString& s) { s.MakeUpper(); }},
        {"MakeReverse", [](CString& s) { s.MakeReverse(); }},
        {"Trim", [](CString& s) { s.Trim(); }},
        {"TrimLeft(set)", [](CString& s) { s.TrimLeft(u" H"); }},
        {"TrimRight(ch)", [](CString& s) { s.TrimRight(u' '); }},
        {"Replace(ch)", [](CString& s) { s.Replace(u'o', u'0'); }},
        {"Replace(str)", [](CString& s) { s.Replace(CString(u"World"), CString(u"There")); }},
        {"Remove", [](CString& s) { s.Remove(u'l'); }},
        {"Insert(ch)", [](CString& s) { s.Insert(2, u'!'); }},
        {"Insert(str)", [](CString& s) { s.Insert(2, CString(u"<>")); }},
        {"Delete", [](CString& s) { s.Delete(2, 3); }},
        {"+=", [](CString& s) { s += u"!"; }},
        {"Append", [](CString& s) { s.Append(u"xyz", 2); }},
        {"Format", [](CString& s) { s.Format(u"%d", 1); }},
        {"AppendFormat", [](CString& s) { s.AppendFormat(u"%d", 1); }},
        {"Empty", [](CString& s) { s.Empty(); }},
        {"assign", [](CString& s) { s = u"other"; }},
    };
    const std::u16string_view text = u"  Hello, World  ";
    for (const Mutation& mutation : mutations) {
        SCOPED_TRACE(mutation.name);
        const CString original(text);
        CString copy = original;
        mutation.apply(copy);
        EXPECT_EQ(original.View(), text);
        EXPECT_NE(copy.View(), text);
    }
}

TEST(CStringCopyOnWrite, EmptyHasNoBufferButAValidString) {
    const CString empty;
    ASSERT_NE(empty.GetString(), nullptr);
    EXPECT_EQ(empty.GetString()[0], u'\0');
    EXPECT_TRUE(empty.IsEmpty());
    const CString alsoEmpty(u"");
    EXPECT_EQ(alsoEmpty.GetString(), empty.GetString());
    CString emptied(u"abc");
    emptied.Delete(0, 3);
    EXPECT_EQ(emptied.GetString(), empty.GetString());
}

TEST(CStringCopyOnWrite, MoveLeavesTheSourceEmpty) {
    CString source(u"moved");
    const char16_t* buffer = source.GetString();
    CString target(std::move(source));
    EXPECT_EQ(target.GetString(), buffer);
    EXPECT_TRUE(source.IsEmpty()); // NOLINT(bugprone-use-after-move): a moved-from string is empty
}

TEST(CStringCopyOnWrite, OperationsWithTheirOwnText) {
    CString text(u"ab");
    text += text;
    EXPECT_EQ(U8(text), "abab");
    text.Insert(1, text);
    EXPECT_EQ(U8(text), "aababbab");
    text = text.GetString() + 5;
    EXPECT_EQ(U8(text), "bab");
    text.Append(text.GetString(), 2);
    EXPECT_EQ(U8(text), "babba");
    text.Replace(text, text + u"!");
    EXPECT_EQ(U8(text), "babba!");
    text.Format(u"[%s]", text);
    EXPECT_EQ(U8(text), "[babba!]");
}

// After a shrink the buffer has room to spare, so an insertion of the string into itself could be
// done in place; the source must not be overwritten while it is copied.
TEST(CStringCopyOnWrite, InsertingItselfIntoSpareRoom) {
    CString text(u"abcdef");
    text.Delete(3, 3);
    EXPECT_EQ(text.Insert(1, text), 6);
    EXPECT_EQ(U8(text), "aabcbc");
    text.Delete(2, 4);
    text.Append(text.GetString(), 2);
    EXPECT_EQ(U8(text), "aaaa");
}

TEST(CStringCopyOnWrite, GrowingByAppendKeepsEveryCharacter) {
    CString text;
    std::u16string expected;
    for (int i = 0; i < 2000; ++i) {
        const auto ch = static_cast<char16_t>(u'a' + i % 26);
        text += ch;
        expected.push_back(ch);
    }
    EXPECT_EQ(text.View(), expected);
    EXPECT_EQ(text.GetString()[text.GetLength()], u'\0');
}

// ---- Construction and access --------------------------------------------------------------------

TEST(CStringAccess, Constructors) {
    EXPECT_EQ(U8(CString(u"abc", 2)), "ab");
    EXPECT_EQ(U8(CString(u'x', 3)), "xxx");
    EXPECT_TRUE(CString(u'x', 0).IsEmpty());
    EXPECT_TRUE(CString(u'x', -2).IsEmpty());
    EXPECT_TRUE(CString(static_cast<const char16_t*>(nullptr)).IsEmpty());
    EXPECT_TRUE(CString(static_cast<const char*>(nullptr)).IsEmpty());
    EXPECT_EQ(CString(std::u16string_view(u"a\0b", 3)).GetLength(), 3);
    EXPECT_THROW(CString(u"abc", -1), InvalidArgumentException);
    CString assigned;
    assigned = u'q';
    EXPECT_EQ(U8(assigned), "q");
    assigned = "caf\xC3\xA9";
    EXPECT_EQ(assigned.View(), u"caf\u00E9");
}

TEST(CStringAccess, GetAtAndSetAtOutsideTheStringThrow) {
    CString text(u"abc");
    EXPECT_EQ(text.GetAt(0), u'a');
    EXPECT_EQ(text[2], u'c');
    for (const int index : {-1, 3, 4, INT_MIN, INT_MAX}) {
        SCOPED_TRACE(index);
        EXPECT_THROW(text.GetAt(index), InvalidArgumentException);
        EXPECT_THROW(text.SetAt(index, u'x'), InvalidArgumentException);
    }
    EXPECT_THROW(CString().GetAt(0), InvalidArgumentException);
    EXPECT_EQ(U8(text), "abc");
}

// ---- Extraction ---------------------------------------------------------------------------------

struct ExtractRow {
    int first;
    int count;
    const char* expected;
};

TEST(CStringExtract, LeftClamps) {
    const CString text(u"abcdef");
    const ExtractRow rows[] = {{0, -1, ""},      {0, 0, ""},         {0, 3, "abc"},
                               {0, 6, "abcdef"}, {0, 100, "abcdef"}, {0, INT_MAX, "abcdef"}};
    for (const ExtractRow& row : rows) {
        SCOPED_TRACE(row.count);
        EXPECT_EQ(U8(text.Left(row.count)), row.expected);
    }
}

TEST(CStringExtract, RightClamps) {
    const CString text(u"abcdef");
    const ExtractRow rows[] = {{0, -1, ""},      {0, 0, ""},         {0, 2, "ef"},
                               {0, 6, "abcdef"}, {0, 100, "abcdef"}, {0, INT_MIN, ""}};
    for (const ExtractRow& row : rows) {
        SCOPED_TRACE(row.count);
        EXPECT_EQ(U8(text.Right(row.count)), row.expected);
    }
}

TEST(CStringExtract, MidClamps) {
    const CString text(u"abcdef");
    const ExtractRow rows[] = {
        {-2, 3, "abc"}, {2, 2, "cd"},     {4, 10, "ef"},        {6, 1, ""},         {7, 1, ""},
        {2, -1, ""},    {0, 6, "abcdef"}, {2, INT_MAX, "cdef"}, {INT_MIN, 2, "ab"}, {5, 0, ""},
    };
    for (const ExtractRow& row : rows) {
        SCOPED_TRACE(std::to_string(row.first) + ", " + std::to_string(row.count));
        EXPECT_EQ(U8(text.Mid(row.first, row.count)), row.expected);
    }
    EXPECT_EQ(U8(text.Mid(-1)), "abcdef");
    EXPECT_EQ(U8(text.Mid(3)), "def");
    EXPECT_EQ(U8(text.Mid(6)), "");
    EXPECT_EQ(U8(text.Mid(99)), "");
}

TEST(CStringExtract, Spans) {
    const CString text(u"aabxcab");
    EXPECT_EQ(U8(text.SpanIncluding(u"ab")), "aab");
    EXPECT_EQ(U8(text.SpanIncluding(u"xyz")), "");
    EXPECT_EQ(U8(text.SpanIncluding(u"")), "");
    EXPECT_EQ(U8(text.SpanIncluding(u"abcx")), "aabxcab");
    EXPECT_EQ(U8(text.SpanExcluding(u"xc")), "aab");
    EXPECT_EQ(U8(text.SpanExcluding(u"a")), "");
    EXPECT_EQ(U8(text.SpanExcluding(u"")), "aabxcab");
}

TEST(CStringExtract, TokenizeWalksTheTokens) {
    const CString text(u"  alpha, beta;;gamma ;");
    struct Step {
        const char* token;
        int next;
    };
    const Step steps[] = {{"alpha", 8}, {"beta", 14}, {"gamma", 21}, {"", -1}, {"", -1}};
    int start = 0;
    for (const Step& step : steps) {
        SCOPED_TRACE(step.token);
        EXPECT_EQ(U8(text.Tokenize(u" ,;", start)), step.token);
        EXPECT_EQ(start, step.next);
    }
}

TEST(CStringExtract, TokenizeEdges) {
    int start = 0;
    EXPECT_EQ(U8(CString(u"abc").Tokenize(u",", start)), "abc");
    EXPECT_EQ(start, 4);
    EXPECT_EQ(U8(CString(u"abc").Tokenize(u",", start)), "");
    EXPECT_EQ(start, -1);

    start = 0;
    EXPECT_EQ(U8(CString().Tokenize(u",", start)), "");
    EXPECT_EQ(start, -1);

    start = 0;
    EXPECT_EQ(U8(CString(u",,,").Tokenize(u",", start)), "");
    EXPECT_EQ(start, -1);

    start = 2;
    EXPECT_EQ(U8(CString(u"a,bc,d").Tokenize(u",", start)), "bc");
    EXPECT_EQ(start, 5);
}

// ---- Search -------------------------------------------------------------------------------------

TEST(CStringSearch, FindCharacter) {
    const CString text(u"abcabc");
    struct Row {
        char16_t ch;
        int start;
        int expected;
    };
    const Row rows[] = {{u'c', 0, 2},  {u'c', 3, 5},  {u'b', 2, 4},  {u'c', 6, -1},
                        {u'a', -3, 0}, {u'z', 0, -1}, {u'a', 99, -1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.start));
        EXPECT_EQ(text.Find(row.ch, row.start), row.expected);
    }
    EXPECT_EQ(CString().Find(u'a'), -1);
}

TEST(CStringSearch, FindSubstring) {
    const CString text(u"abcabc");
    struct Row {
        const char16_t* sub;
        int start;
        int expected;
    };
    const Row rows[] = {{u"cab", 0, 2}, {u"bc", 2, 4}, {u"bc", 5, -1}, {u"abcd", 0, -1},
                        {u"", 0, 0},    {u"", 6, 6},   {u"x", 99, -1}, {u"", 7, -1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(U8(row.sub) + " from " + std::to_string(row.start));
        EXPECT_EQ(text.Find(CString(row.sub), row.start), row.expected);
    }
}

TEST(CStringSearch, ReverseFindAndFindOneOf) {
    const CString text(u"abcabc");
    EXPECT_EQ(text.ReverseFind(u'b'), 4);
    EXPECT_EQ(text.ReverseFind(u'z'), -1);
    EXPECT_EQ(text.FindOneOf(u"xc"), 2);
    EXPECT_EQ(text.FindOneOf(u"cb"), 1);
    EXPECT_EQ(text.FindOneOf(u"xyz"), -1);
    EXPECT_EQ(text.FindOneOf(u""), -1);
    EXPECT_EQ(CString().ReverseFind(u'a'), -1);
}

// ---- Comparison ---------------------------------------------------------------------------------

struct CompareRow {
    const char16_t* a;
    const char16_t* b;
    int expected;
};

TEST(CStringCompare, OrdinalOverCodeUnits) {
    const CompareRow rows[] = {
        {u"abc", u"abd", -1},
        {u"abd", u"abc", 1},
        {u"abc", u"abc", 0},
        {u"ab", u"abc", -1},
        {u"", u"a", -1},
        {u"", u"", 0},
        {u"B", u"a", -1},
        {u"\u00E9", u"z", 1},
        {u"\u00C9", u"\u00E9", -1},
        {u"\uFFFD", u"\U0001F600", 1},
    };
    for (const CompareRow& row : rows) {
        SCOPED_TRACE(U8(row.a) + " vs " + U8(row.b));
        EXPECT_EQ(CString(row.a).Compare(CString(row.b)), row.expected);
        EXPECT_EQ(CString(row.b).Compare(CString(row.a)), -row.expected);
        EXPECT_EQ(CString(row.a) == CString(row.b), row.expected == 0);
        EXPECT_EQ(CString(row.a) < CString(row.b), row.expected < 0);
    }
}

TEST(CStringCompare, NoCaseLowersBothSides) {
    const CompareRow rows[] = {
        {u"ABC", u"abc", 0},
        {u"B", u"a", 1},
        {u"a", u"B", -1},
        {u"abc", u"ABCD", -1},
        {u"\u00C9COLE", u"\u00E9cole", 0},
        {u"\u0391\u0392\u0393", u"\u03B1\u03B2\u03B3", 0},
        {u"\u041F\u0420\u0418\u0412\u0415\u0422", u"\u043F\u0440\u0438\u0432\u0435\u0442", 0},
        {u"\u00C9", u"f", 1},
        {u"Zebra", u"apple", 1},
        {u"\U0001F600", u"\U0001F600", 0},
    };
    for (const CompareRow& row : rows) {
        SCOPED_TRACE(U8(row.a) + " vs " + U8(row.b));
        EXPECT_EQ(CString(row.a).CompareNoCase(CString(row.b)), row.expected);
        EXPECT_EQ(CString(row.b).CompareNoCase(CString(row.a)), -row.expected);
    }
}

// ---- Transformation -----------------------------------------------------------------------------

TEST(CStringTransform, CaseMapping) {
    CString text(u"Hello \u00C9t\u00E9 \u03A9mega \u0416\u0443\u043A \U0001F600x");
    text.MakeUpper();
    EXPECT_EQ(U8(text), U8(u"HELLO \u00C9T\u00C9 \u03A9MEGA \u0416\u0423\u041A \U0001F600X"));
    text.MakeLower();
    EXPECT_EQ(U8(text), U8(u"hello \u00E9t\u00E9 \u03C9mega \u0436\u0443\u043A \U0001F600x"));
}

TEST(CStringTransform, CaseMappingLeavesSurrogatesAlone) {
    // U+10428 has an upper-case form, but only as a pair; single units are all we map.
    CString text(u"\U00010428");
    text.MakeUpper();
    EXPECT_EQ(text.View(), u"\U00010428");
}

TEST(CStringTransform, ReverseKeepsSurrogatePairsInOrder) {
    CString text(u"ab\U0001F600c");
    text.MakeReverse();
    EXPECT_EQ(U8(text), U8(u"c\U0001F600ba"));
    const char16_t loneHighThenPair[] = {char16_t(0xD800), char16_t(0xD83D), char16_t(0xDE00), 0};
    const char16_t pairThenLoneHigh[] = {char16_t(0xD83D), char16_t(0xDE00), char16_t(0xD800), 0};
    CString mixed(loneHighThenPair);
    mixed.MakeReverse();
    EXPECT_EQ(mixed.View(), pairThenLoneHigh);
    CString single(u"x");
    EXPECT_EQ(U8(single.MakeReverse()), "x");
}

TEST(CStringTransform, TrimVariants) {
    struct Row {
        const char* name;
        const char16_t* input;
        std::function<void(CString&)> apply;
        const char16_t* expected;
    };
    const Row rows[] = {
        {"Trim", u" \t\nabc \r\n", [](CString& s) { s.Trim(); }, u"abc"},
        {"Trim ideographic", u"\u3000a b\u2003", [](CString& s) { s.Trim(); }, u"a b"},
        {"Trim all", u" \t ", [](CString& s) { s.Trim(); }, u""},
        {"TrimLeft", u"  a b  ", [](CString& s) { s.TrimLeft(); }, u"a b  "},
        {"TrimRight", u"  a b  ", [](CString& s) { s.TrimRight(); }, u"  a b"},
        {"Trim(ch)", u"xxaxbxx", [](CString& s) { s.Trim(u'x'); }, u"axb"},
        {"TrimLeft(ch)", u"xxaxbxx", [](CString& s) { s.TrimLeft(u'x'); }, u"axbxx"},
        {"TrimRight(ch)", u"xxaxbxx", [](CString& s) { s.TrimRight(u'x'); }, u"xxaxb"},
        {"Trim(ch) keeps spaces", u" x ", [](CString& s) { s.Trim(u'x'); }, u" x "},
        {"Trim(set)", u"xyyaxybyx", [](CString& s) { s.Trim(u"xy"); }, u"axyb"},
        {"TrimLeft(set)", u"xyyaxybyx", [](CString& s) { s.TrimLeft(u"yx"); }, u"axybyx"},
        {"TrimRight(set)", u"xyyaxybyx", [](CString& s) { s.TrimRight(u"xy"); }, u"xyyaxyb"},
        {"Trim(empty set)", u" a ", [](CString& s) { s.Trim(u""); }, u" a "},
        {"Trim(set) all", u"xyx", [](CString& s) { s.Trim(u"xy"); }, u""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CString text(row.input);
        row.apply(text);
        EXPECT_EQ(U8(text), U8(CString(row.expected)));
    }
}

// ---- Editing ------------------------------------------------------------------------------------

TEST(CStringEdit, ReplaceCharacterCounts) {
    CString text(u"banana");
    EXPECT_EQ(text.Replace(u'a', u'o'), 3);
    EXPECT_EQ(U8(text), "bonono");
    EXPECT_EQ(text.Replace(u'z', u'y'), 0);
    EXPECT_EQ(text.Replace(u'o', u'o'), 0);
    EXPECT_EQ(U8(text), "bonono");
}

TEST(CStringEdit, ReplaceStringCounts) {
    struct Row {
        const char16_t* from;
        const char16_t* to;
        int count;
        const char16_t* expected;
    };
    const Row rows[] = {
        {u"an", u"AN", 2, u"bANANa"},
        {u"ana", u"", 1, u"bna"},
        {u"a", u"aa", 3, u"baanaanaa"},
        {u"", u"x", 0, u"banana"},
        {u"xyz", u"q", 0, u"banana"},
        {u"banana", u"", 1, u""},
        {u"b", u"\u00E9\u00E9", 1, u"\u00E9\u00E9anana"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(U8(row.from) + " -> " + U8(row.to));
        CString text(u"banana");
        EXPECT_EQ(text.Replace(CString(row.from), CString(row.to)), row.count);
        EXPECT_EQ(U8(text), U8(CString(row.expected)));
    }
}

TEST(CStringEdit, RemoveCounts) {
    CString text(u"a,b,,c");
    EXPECT_EQ(text.Remove(u','), 3);
    EXPECT_EQ(U8(text), "abc");
    EXPECT_EQ(text.Remove(u'z'), 0);
    CString all(u"xxx");
    EXPECT_EQ(all.Remove(u'x'), 3);
    EXPECT_TRUE(all.IsEmpty());
}

TEST(CStringEdit, InsertClampsAndReturnsTheLength) {
    CString text(u"abc");
    EXPECT_EQ(text.Insert(-5, u'x'), 4);
    EXPECT_EQ(U8(text), "xabc");
    EXPECT_EQ(text.Insert(99, CString(u"yz")), 6);
    EXPECT_EQ(U8(text), "xabcyz");
    EXPECT_EQ(text.Insert(2, CString()), 6);
    EXPECT_EQ(text.Insert(2, u'-'), 7);
    EXPECT_EQ(U8(text), "xa-bcyz");
    CString empty;
    EXPECT_EQ(empty.Insert(0, u'q'), 1);
    EXPECT_EQ(U8(empty), "q");
}

TEST(CStringEdit, DeleteClampsAndReturnsTheLength) {
    struct Row {
        int index;
        int count;
        int length;
        const char* expected;
    };
    const Row rows[] = {
        {2, 2, 4, "abef"},    {-1, 2, 4, "cdef"},   {4, 99, 4, "abcd"}, {6, 1, 6, "abcdef"},
        {99, 1, 6, "abcdef"}, {1, -3, 6, "abcdef"}, {0, 6, 0, ""},      {5, INT_MAX, 5, "abcde"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.index) + ", " + std::to_string(row.count));
        CString text(u"abcdef");
        EXPECT_EQ(text.Delete(row.index, row.count), row.length);
        EXPECT_EQ(U8(text), row.expected);
    }
    CString text(u"abc");
    EXPECT_EQ(text.Delete(1), 2);
    EXPECT_EQ(U8(text), "ac");
}

TEST(CStringEdit, Concatenation) {
    const CString a(u"ab");
    EXPECT_EQ(U8(a + CString(u"cd")), "abcd");
    EXPECT_EQ(U8(a + u"cd"), "abcd");
    EXPECT_EQ(U8(u"cd" + a), "cdab");
    EXPECT_EQ(U8(a + u'!'), "ab!");
    EXPECT_EQ(U8(u'!' + a), "!ab");
    EXPECT_EQ(U8(CString() + CString()), "");
    CString text;
    text += "caf\xC3\xA9";
    text += u'-';
    text += u"x";
    text.Append(u"yz", 1);
    text.Append(nullptr, 0);
    EXPECT_EQ(text.View(), u"caf\u00E9-xy");
    EXPECT_THROW(text.Append(nullptr, 2), InvalidArgumentException);
    EXPECT_THROW(text.Append(u"a", -1), InvalidArgumentException);
}

// ---- Format -------------------------------------------------------------------------------------

struct FormatRow {
    const char* format;
    std::function<CString()> make;
    std::u16string expected;
};

void ExpectFormats(const std::vector<FormatRow>& rows) {
    for (const FormatRow& row : rows) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(U8(row.make()), U8(CString(row.expected)));
    }
}

TEST(CStringFormat, Integers) {
    ExpectFormats({
        {"%d", [] { return CString::Formatted(u"%d", 42); }, u"42"},
        {"%d negative", [] { return CString::Formatted(u"%d", -7); }, u"-7"},
        {"%i", [] { return CString::Formatted(u"%i", 13); }, u"13"},
        {"%5d|", [] { return CString::Formatted(u"%5d|", 42); }, u"   42|"},
        {"%-5d|", [] { return CString::Formatted(u"%-5d|", 42); }, u"42   |"},
        {"%05d", [] { return CString::Formatted(u"%05d", 42); }, u"00042"},
        {"%+d", [] { return CString::Formatted(u"%+d", 5); }, u"+5"},
        {"% d", [] { return CString::Formatted(u"% d", 5); }, u" 5"},
        {"%.3d", [] { return CString::Formatted(u"%.3d", 5); }, u"005"},
        {"%u", [] { return CString::Formatted(u"%u", 3000000000u); }, u"3000000000"},
        {"%x", [] { return CString::Formatted(u"%x", 255); }, u"ff"},
        {"%X", [] { return CString::Formatted(u"%X", 255); }, u"FF"},
        {"%#x", [] { return CString::Formatted(u"%#x", 255); }, u"0xff"},
        {"%08X", [] { return CString::Formatted(u"%08X", 0xBEEF); }, u"0000BEEF"},
        {"%o", [] { return CString::Formatted(u"%o", 8); }, u"10"},
        {"%x of -1", [] { return CString::Formatted(u"%x", -1); }, u"ffffffff"},
        {"%u of -1", [] { return CString::Formatted(u"%u", -1); }, u"4294967295"},
        {"%llx of -1", [] { return CString::Formatted(u"%llx", -1LL); }, u"ffffffffffffffff"},
        {"%I64d", [] { return CString::Formatted(u"%I64d", 1LL << 40); }, u"1099511627776"},
        {"%I64u", [] { return CString::Formatted(u"%I64u", ULLONG_MAX); }, u"18446744073709551615"},
        {"%I32d", [] { return CString::Formatted(u"%I32d", -3); }, u"-3"},
        {"%lld", [] { return CString::Formatted(u"%lld", LLONG_MIN); }, u"-9223372036854775808"},
        {"%ld %hd %hhd", [] { return CString::Formatted(u"%ld %hd %hhd", 1L, short{2}, 3); },
         u"1 2 3"},
        {"%zu", [] { return CString::Formatted(u"%zu", size_t{77}); }, u"77"},
        {"%d bool", [] { return CString::Formatted(u"%d", true); }, u"1"},
        {"%d char16_t", [] { return CString::Formatted(u"%d", u'A'); }, u"65"},
    });
}

TEST(CStringFormat, FloatingPoint) {
    ExpectFormats({
        {"%5.2f", [] { return CString::Formatted(u"%5.2f", 3.14159); }, u" 3.14"},
        {"%08.3f", [] { return CString::Formatted(u"%08.3f", -3.14159); }, u"-003.142"},
        {"%f", [] { return CString::Formatted(u"%f", 1.5f); }, u"1.500000"},
        {"%e", [] { return CString::Formatted(u"%e", 12345.678); }, u"1.234568e+04"},
        {"%E", [] { return CString::Formatted(u"%.2E", 0.000123); }, u"1.23E-04"},
        {"%g", [] { return CString::Formatted(u"%g", 0.0001); }, u"0.0001"},
        {"%G", [] { return CString::Formatted(u"%G", 1e-10); }, u"1E-10"},
        {"%#.0f", [] { return CString::Formatted(u"%#.0f", 2.0); }, u"2."},
        {"%a", [] { return CString::Formatted(u"%a", 1.0); }, u"0x1p+0"},
        {"%Lf", [] { return CString::Formatted(u"%.1Lf", 2.25); }, u"2.2"},
        {"%f of int", [] { return CString::Formatted(u"%.1f", 3); }, u"3.0"},
        {"%f inf", [] { return CString::Formatted(u"%f", HUGE_VAL); }, u"inf"},
    });
}

TEST(CStringFormat, HugeWidthsAndPrecisionsStopAt4096) {
    EXPECT_EQ(CString::Formatted(u"%100000000d", 1).GetLength(), 4096);
    EXPECT_EQ(CString::Formatted(u"%*d", 2147483647, 1).GetLength(), 4096);
    EXPECT_EQ(CString::Formatted(u"%.99999999f", 1.0).GetLength(), 4098);
    EXPECT_EQ(CString::Formatted(u"%4096d", 7).GetLength(), 4096);
}

TEST(CStringFormat, StarTakesWidthAndPrecisionFromArguments) {
    ExpectFormats({
        {"%*d", [] { return CString::Formatted(u"%*d", 5, 42); }, u"   42"},
        {"%-*d|", [] { return CString::Formatted(u"%-*d|", 4, 7); }, u"7   |"},
        {"%*d| negative", [] { return CString::Formatted(u"%*d|", -4, 7); }, u"7   |"},
        {"%.*f", [] { return CString::Formatted(u"%.*f", 2, 3.14159); }, u"3.14"},
        {"%*.*f", [] { return CString::Formatted(u"%*.*f", 7, 1, 2.25); }, u"    2.2"},
        {"%.*s", [] { return CString::Formatted(u"%.*s", 2, u"abcdef"); }, u"ab"},
        {"%.*s negative", [] { return CString::Formatted(u"%.*s", -1, u"abc"); }, u"abc"},
        {"%*s", [] { return CString::Formatted(u"%*s|", 4, u"ab"); }, u"  ab|"},
    });
}

TEST(CStringFormat, TextConversions) {
    const CString wide(u"w\u00EEde");
    const char16_t* pointer = u"ptr";
    const std::u16string standard = u"std";
    const std::string narrow = "n\xC3\xA4rrow";
    ExpectFormats({
        {"%s CString", [&] { return CString::Formatted(u"%s", wide); }, u"w\u00EEde"},
        {"%s char16_t*", [&] { return CString::Formatted(u"%s", pointer); }, u"ptr"},
        {"%s literal", [] { return CString::Formatted(u"<%s>", u"lit"); }, u"<lit>"},
        {"%s u16string", [&] { return CString::Formatted(u"%s", standard); }, u"std"},
        {"%ls", [&] { return CString::Formatted(u"%ls", wide); }, u"w\u00EEde"},
        {"%hs UTF-8", [] { return CString::Formatted(u"%hs", "h\xC3\xA9llo"); }, u"h\u00E9llo"},
        {"%S UTF-8", [&] { return CString::Formatted(u"%S", narrow); }, u"n\u00E4rrow"},
        {"%s given UTF-8", [] { return CString::Formatted(u"%s", "\xE2\x82\xAC"); }, u"\u20AC"},
        {"%hs given wide", [&] { return CString::Formatted(u"%hs", wide); }, u"w\u00EEde"},
        {"%-6s|", [] { return CString::Formatted(u"%-6s|", u"ab"); }, u"ab    |"},
        {"%6s|", [] { return CString::Formatted(u"%6s|", u"ab"); }, u"    ab|"},
        {"%2s shorter width", [] { return CString::Formatted(u"%2s", u"abcd"); }, u"abcd"},
        {"%.3s", [] { return CString::Formatted(u"%.3s", u"abcdef"); }, u"abc"},
        {"%.0s", [] { return CString::Formatted(u"[%.0s]", u"abc"); }, u"[]"},
        {"%5.2s|", [] { return CString::Formatted(u"%5.2s|", u"abc"); }, u"   ab|"},
        {"%s null", [] { return CString::Formatted(u"%s", static_cast<const char16_t*>(nullptr)); },
         u"(null)"},
        {"%s=%d", [] { return CString::Formatted(u"%s=%d", u"x", 5); }, u"x=5"},
    });
}

TEST(CStringFormat, PrecisionTruncatesLongText) {
    const std::u16string longText(300, u'q');
    const CString result = CString::Formatted(u"%.256s", longText);
    EXPECT_EQ(result.GetLength(), 256);
    EXPECT_EQ(result.View(), std::u16string(256, u'q'));
    EXPECT_EQ(CString::Formatted(u"%s", longText).GetLength(), 300);
}

TEST(CStringFormat, CharactersPercentAndPlainText) {
    ExpectFormats({
        {"%c", [] { return CString::Formatted(u"%c", u'A'); }, u"A"},
        {"%c int", [] { return CString::Formatted(u"%c", 0x00E9); }, u"\u00E9"},
        {"%3c", [] { return CString::Formatted(u"%3c|", u'x'); }, u"  x|"},
        {"%-3c", [] { return CString::Formatted(u"%-3c|", u'x'); }, u"x  |"},
        {"%c above BMP", [] { return CString::Formatted(u"%c", 0x1F600); }, u"\U0001F600"},
        {"%c negative", [] { return CString::Formatted(u"%c", -5); }, u"\uFFFD"},
        {"%C", [] { return CString::Formatted(u"%C", 'z'); }, u"z"},
        {"%%", [] { return CString::Formatted(u"%%"); }, u"%"},
        {"100%%", [] { return CString::Formatted(u"100%% of %d", 3); }, u"100% of 3"},
        {"plain", [] { return CString::Formatted(u"no directives \u00E9"); },
         u"no directives \u00E9"},
        {"empty", [] { return CString::Formatted(u""); }, u""},
    });
}

TEST(CStringFormat, MissingArgumentsFormatAsNothing) {
    ExpectFormats({
        {"none", [] { return CString::Formatted(u"%d and %s."); }, u" and ."},
        {"one of two", [] { return CString::Formatted(u"%d-%d", 1); }, u"1-"},
        {"width", [] { return CString::Formatted(u"[%5d]"); }, u"[]"},
        {"star", [] { return CString::Formatted(u"[%*d]", 3); }, u"[]"},
        {"extra", [] { return CString::Formatted(u"%d", 1, 2, 3); }, u"1"},
    });
}

TEST(CStringFormat, MismatchedKindsNeverMisbehave) {
    ExpectFormats({
        {"%d text", [] { return CString::Formatted(u"%d", u"text"); }, u"0"},
        {"%x text", [] { return CString::Formatted(u"%x", "narrow"); }, u"0"},
        {"%f text", [] { return CString::Formatted(u"%f", u"text"); }, u"0.000000"},
        {"%s int", [] { return CString::Formatted(u"%s", 42); }, u"42"},
        {"%s negative", [] { return CString::Formatted(u"%s", -42); }, u"-42"},
        {"%s unsigned", [] { return CString::Formatted(u"%s", 7u); }, u"7"},
        {"%s double", [] { return CString::Formatted(u"%s", 2.5); }, u"2.5"},
        {"%5s double", [] { return CString::Formatted(u"%5s|", 0.1); }, u"  0.1|"},
        {"%d double", [] { return CString::Formatted(u"%d", 2.9); }, u"2"},
        {"%x double", [] { return CString::Formatted(u"%x", 255.0); }, u"ff"},
        {"%d huge double", [] { return CString::Formatted(u"%d", 1e300); }, u"9223372036854775807"},
        {"%d -huge double", [] { return CString::Formatted(u"%d", -1e300); },
         u"-9223372036854775808"},
        {"%d NaN", [] { return CString::Formatted(u"%d", std::nan("")); }, u"0"},
        {"%c text", [] { return CString::Formatted(u"[%c]", u"text"); }, u"[]"},
        {"%#d", [] { return CString::Formatted(u"%#d", 5); }, u"5"},
    });
}

TEST(CStringFormat, UnknownOrCutShortDirectivesAreCopied) {
    ExpectFormats({
        {"%y", [] { return CString::Formatted(u"a%yb", 1); }, u"a%yb"},
        {"%n", [] { return CString::Formatted(u"%n", 1); }, u"%n"},
        {"trailing %", [] { return CString::Formatted(u"abc%"); }, u"abc%"},
        {"trailing %5", [] { return CString::Formatted(u"abc%5"); }, u"abc%5"},
        {"trailing %-", [] { return CString::Formatted(u"abc%-"); }, u"abc%-"},
        {"after unknown", [] { return CString::Formatted(u"%q%d", 4); }, u"%q4"},
    });
}

TEST(CStringFormat, PointerIsFullWidthHexadecimal) {
    const auto* pointer = reinterpret_cast<const void*>(std::uintptr_t{0xBEEF});
    const std::u16string zeros(2 * sizeof(void*) - 4, u'0');
    EXPECT_EQ(U8(CString::Formatted(u"%p", pointer)), U8(CString(zeros + u"BEEF")));
    EXPECT_EQ(U8(CString::Formatted(u"%p", static_cast<const void*>(nullptr))),
              std::string(2 * sizeof(void*), '0'));
}

TEST(CStringFormat, FormatAcceptsUtf8AndAppends) {
    CString text;
    text.Format("%s \xC3\xA9 %d", u"a", 3);
    EXPECT_EQ(U8(text), "a \xC3\xA9 3");
    text.AppendFormat(u"-%02d", 5);
    EXPECT_EQ(U8(text), "a \xC3\xA9 3-05");
    text.Format(u"%d", 9);
    EXPECT_EQ(U8(text), "9");
    text.Format(u"");
    EXPECT_TRUE(text.IsEmpty());
}

// The thread's locale stands in for the process locale: both reach snprintf the same way.
TEST(CStringFormat, NumbersIgnoreTheLocale) {
    locale_t comma = locale_t{};
    for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "nl_NL.UTF-8", "ru_RU.UTF-8"}) {
        comma = newlocale(LC_ALL_MASK, name, locale_t{});
        if (comma)
            break;
    }
    if (!comma)
        GTEST_SKIP() << "no locale with a decimal comma is installed";
    const locale_t previous = uselocale(comma);
    char plain[16];
    std::snprintf(plain, sizeof plain, "%.1f", 1.5);
    const CString formatted = CString::Formatted(u"%.2f %g %s", 1.5, 0.25, 0.75);
    uselocale(previous);
    freelocale(comma);
    ASSERT_STREQ(plain, "1,5") << "the locale should write a decimal comma";
    EXPECT_EQ(U8(formatted), "1.50 0.25 0.75");
}

// ---- UTF-8 --------------------------------------------------------------------------------------

TEST(CStringUtf8, ValidTextRoundTrips) {
    struct Row {
        const char* utf8;
        std::u16string_view utf16;
    };
    const Row rows[] = {
        {"", u""},
        {"abc", u"abc"},
        {"\xC3\xA9", u"\u00E9"},
        {"\xDF\xBF", u"\u07FF"},
        {"\xE0\xA0\x80", u"\u0800"},
        {"\xE2\x82\xAC", u"\u20AC"},
        {"\xED\x9F\xBF", u"\uD7FF"},
        {"\xEE\x80\x80", u"\uE000"},
        {"\xEF\xBF\xBF", u"\uFFFF"},
        {"\xF0\x90\x80\x80", u"\U00010000"},
        {"\xF0\x9F\x98\x80", u"\U0001F600"},
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
        {"a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z", u"a\u00E9\u20AC\U0001F600z"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.utf8);
        const CString decoded = CString::FromUtf8(row.utf8);
        EXPECT_EQ(decoded.View(), row.utf16);
        EXPECT_EQ(CString(row.utf8).View(), row.utf16);
        EXPECT_EQ(decoded.ToUtf8(), row.utf8);
    }
}

TEST(CStringUtf8, FourByteCharacterIsASurrogatePair) {
    const CString face = CString::FromUtf8("\xF0\x9F\x98\x80");
    ASSERT_EQ(face.GetLength(), 2);
    EXPECT_EQ(face[0], char16_t(0xD83D));
    EXPECT_EQ(face[1], char16_t(0xDE00));
}

TEST(CStringUtf8, MalformedInputBecomesReplacementCharacters) {
    struct Row {
        const char* name;
        std::string_view utf8;
        std::u16string_view expected;
    };
    const Row rows[] = {
        {"lone continuation", "\x80", u"\uFFFD"},
        {"continuation inside", "a\x80z", u"a\uFFFDz"},
        {"two continuations", "\x80\xBF", u"\uFFFD\uFFFD"},
        {"overlong slash", "\xC0\xAF", u"\uFFFD\uFFFD"},
        {"overlong C1", "\xC1\xBF", u"\uFFFD\uFFFD"},
        {"overlong three bytes", "\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},
        {"overlong four bytes", "\xF0\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"high surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
        {"low surrogate", "\xED\xBF\xBF", u"\uFFFD\uFFFD\uFFFD"},
        {"past U+10FFFF", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"F5 lead", "\xF5\x80", u"\uFFFD\uFFFD"},
        {"FF byte", "\xFF", u"\uFFFD"},
        {"FE byte", "a\xFE", u"a\uFFFD"},
        {"truncated two bytes", "\xC3", u"\uFFFD"},
        {"truncated three bytes", "\xE2\x82", u"\uFFFD"},
        {"truncated four bytes", "\xF0\x9F\x98", u"\uFFFD"},
        {"broken then ASCII", "\xE2\x82x", u"\uFFFDx"},
        {"broken four then ASCII", "\xF0\x9F\x98\x41", u"\uFFFDA"},
        {"lead then lead", "\xC3\xC3\xA9", u"\uFFFD\u00E9"},
        {"embedded null", std::string_view("a\0b", 3), std::u16string_view(u"a\0b", 3)},
        {"mixed", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
         u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(U8(CString::FromUtf8(row.utf8)), U8(CString(row.expected)));
        EXPECT_EQ(CString::FromUtf8(row.utf8).View(), row.expected);
    }
}

TEST(CStringUtf8, DecodingStopsAtTheEndOfTheInput) {
    const std::string euro = "\xE2\x82\xAC";
    EXPECT_EQ(CString::FromUtf8(std::string_view(euro.data(), 2)).View(), u"\uFFFD");
    EXPECT_EQ(CString::FromUtf8(std::string_view(euro.data(), 0)).View(), u"");
}

TEST(CStringUtf8, LoneSurrogatesEncodeAsReplacement) {
    struct Row {
        std::u16string_view utf16;
        const char* utf8;
    };
    const char16_t high[] = {u'a', char16_t(0xD800), u'b', 0};
    const char16_t low[] = {char16_t(0xDC00), 0};
    const char16_t highAtEnd[] = {u'x', char16_t(0xD83D), 0};
    const char16_t swapped[] = {char16_t(0xDE00), char16_t(0xD83D), 0};
    const Row rows[] = {
        {high, "a\xEF\xBF\xBD"
               "b"},
        {low, "\xEF\xBF\xBD"},
        {highAtEnd, "x\xEF\xBF\xBD"},
        {swapped, "\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.utf8);
        EXPECT_EQ(CString(row.utf16).ToUtf8(), row.utf8);
    }
}

// ---- Threads ------------------------------------------------------------------------------------

// Two threads copy and release one shared string many times over. A reference count that lost an
// update would either free the buffer under a live copy (the sanitizers report it) or leave the
// original believing it is shared, so that its next write would move to a new buffer.
TEST(CStringThreads, ConcurrentCopiesOfOneSharedString) {
    CString original(u"shared between threads");
    const CString& shared = original;
    std::atomic<bool> go = false;
    const auto copier = [&shared, &go](bool writeToCopies) {
        while (!go)
            std::this_thread::yield();
        int wrong = 0;
        std::vector<CString> copies;
        for (int round = 0; round < 2000; ++round) {
            for (int i = 0; i < 100; ++i)
                copies.push_back(shared);
            for (CString& copy : copies) {
                wrong += copy.GetString() != shared.GetString();
                if (writeToCopies) {
                    copy.SetAt(0, u'S');
                    wrong += copy.View() != u"Shared between threads";
                }
            }
            copies.clear();
        }
        return wrong;
    };
    int wrongA = -1;
    int wrongB = -1;
    std::thread a([&] { wrongA = copier(false); });
    std::thread b([&] { wrongB = copier(true); });
    go = true;
    a.join();
    b.join();
    EXPECT_EQ(wrongA, 0);
    EXPECT_EQ(wrongB, 0);

    const char16_t* before = original.GetString();
    original.SetAt(0, u'S');
    EXPECT_EQ(original.GetString(), before);
    EXPECT_EQ(original.View(), u"Shared between threads");
}

} // namespace
} // namespace keel
