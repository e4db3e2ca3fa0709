#include "keel/platform/cstring.h"
#include "keel/platform/exceptions.h"
#include "keel/platform/wchar.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <locale.h>
#include <string>
#include <utility>
#include <vector>

namespace keel {
namespace {

std::string U8(const CString& text) {
    return text.ToUtf8();
}

TEST(CStringCopyOnWrite, EveryMutationLeavesTheSharedOriginalAlone) {
    struct Mutation {
        const char* name;
        std::function<void(CString&)> apply;
    };
    const Mutation mutations[] = {{"SetAt", [](CString& s) { s.SetAt(3, u'#'); }},
                                  {"MakeLower", [](CString& s) { s.MakeLower(); }},
                                  {"Trim", [](CString& s) { s.Trim(); }},
                                  {"Replace(ch)", [](CString& s) { s.Replace(u'o', u'0'); }},
                                  {"Insert(str)", [](CString& s) { s.Insert(2, CString(u"<>")); }},
                                  {"Delete", [](CString& s) { s.Delete(2, 3); }},
                                  {"+=", [](CString& s) { s += u"!"; }},
                                  {"Append", [](CString& s) { s.Append(u"xyz", 2); }},
                                  {"Format", [](CString& s) { s.Format(u"%d", 1); }}};
    const std::u16string_view text = u"  Hello, World  ";
    for (const bool spareRoom : {false, true}) {
        for (const Mutation& mutation : mutations) {
            SCOPED_TRACE(std::string(mutation.name) + (spareRoom ? " with spare room" : ""));
            // A shrunk string keeps its buffer, which has room for growing in place.
            CString original(spareRoom ? CString(text) + u"0123456789" : CString(text));
            original.Delete(static_cast<int>(text.size()), 10);
            CString copy = original;
            mutation.apply(copy);
            EXPECT_EQ(original.View(), text);
            EXPECT_NE(copy.View(), text);
        }
    }
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

    // After a shrink the buffer has room to spare, so an insertion of the string into itself
    // could be done in place; the source must not be overwritten while it is copied.
    CString spare(u"abcdef");
    spare.Delete(3, 3);
    EXPECT_EQ(spare.Insert(1, spare), 6);
    EXPECT_EQ(U8(spare), "aabcbc");
    spare.Delete(2, 4);
    spare.Append(spare.GetString(), 2);
    EXPECT_EQ(U8(spare), "aaaa");
}

TEST(CStringAccess, ConstructorsAndCharacters) {
    EXPECT_TRUE(CString(u'x', -2).IsEmpty());
    EXPECT_TRUE(CString(static_cast<const char16_t*>(nullptr)).IsEmpty());
    EXPECT_THROW(CString(u"abc", -1), InvalidArgumentException);

    CString text(u"abc");
    EXPECT_EQ(text.GetAt(0), u'a');
    EXPECT_EQ(text[2], u'c');
    for (const int index : {-1, 3, INT_MAX}) {
        SCOPED_TRACE(index);
        EXPECT_THROW(text.GetAt(index), InvalidArgumentException);
        EXPECT_THROW(text.SetAt(index, u'x'), InvalidArgumentException);
    }
    EXPECT_THROW(CString().GetAt(0), InvalidArgumentException);
    EXPECT_EQ(U8(text), "abc");
}

TEST(CStringExtract, LeftRightAndMidClamp) {
    const std::string all = "abcdef";
    const struct {
        int first;
        int count;
        std::string left, right, mid,
            toEnd; // Left(count), Right(count), Mid(first, count), Mid(first)
    } rows[] = {{2, -1, "", "", "", "cdef"},        {-2, 3, "abc", "def", "abc", all},
                {2, 2, "ab", "ef", "cd", "cdef"},   {4, 10, all, all, "ef", "ef"},
                {6, 1, "a", "f", "", ""},           {2, INT_MAX, all, all, "cdef", "cdef"},
                {INT_MIN, 2, "ab", "ef", "ab", all}};
    const CString text(u"abcdef");
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.first) + ", " + std::to_string(row.count));
        EXPECT_EQ(U8(text.Left(row.count)), row.left);
        EXPECT_EQ(U8(text.Right(row.count)), row.right);
        EXPECT_EQ(U8(text.Mid(row.first, row.count)), row.mid);
        EXPECT_EQ(U8(text.Mid(row.first)), row.toEnd);
    }
}

TEST(CStringExtract, TokenizeWalksTheTokens) {
    const struct {
        const char16_t* text;
        int start;
        const char* token;
        int next;
    } steps[] = {{u"  alpha, beta;;gamma ;", 0, "alpha", 8},
                 {u"  alpha, beta;;gamma ;", 8, "beta", 14},
                 {u"  alpha, beta;;gamma ;", 21, "", -1},
                 {u"abc", 0, "abc", 4},
                 {u"abc", 4, "", -1},
                 {u",,,", 0, "", -1}};
    for (const auto& step : steps) {
        SCOPED_TRACE(U8(step.text) + " from " + std::to_string(step.start));
        int start = step.start;
        EXPECT_EQ(U8(CString(step.text).Tokenize(u" ,;", start)), step.token);
        EXPECT_EQ(start, step.next);
    }
}

TEST(CStringSearch, FindReverseFindAndFindOneOf) {
    const CString text(u"abcabc");
    const struct {
        char16_t ch;
        int start;
        int expected;
    } characters[] = {{u'c', 3, 5}, {u'c', 6, -1}, {u'a', -3, 0}, {u'z', 0, -1}};
    for (const auto& row : characters) {
        SCOPED_TRACE(std::to_string(row.start));
        EXPECT_EQ(text.Find(row.ch, row.start), row.expected);
    }
    const struct {
        const char16_t* sub;
        int start;
        int expected;
    } substrings[] = {{u"bc", 2, 4}, {u"bc", 5, -1}, {u"abcd", 0, -1}, {u"", 6, 6}, {u"", 7, -1}};
    for (const auto& row : substrings) {
        SCOPED_TRACE(U8(row.sub) + " from " + std::to_string(row.start));
        EXPECT_EQ(text.Find(CString(row.sub), row.start), row.expected);
    }
    EXPECT_EQ(text.ReverseFind(u'b'), 4);
    EXPECT_EQ(CString().ReverseFind(u'a'), -1);
    EXPECT_EQ(text.FindOneOf(u"cb"), 1);
    EXPECT_EQ(text.FindOneOf(u"xyz"), -1);
}

TEST(CStringCompare, OrdinalOverCodeUnitsAndNoCaseLowersBothSides) {
    const struct {
        const char16_t* a;
        const char16_t* b;
        int ordinal;
        int noCase;
    } rows[] = {{u"abc", u"abc", 0, 0},
                {u"ab", u"abc", -1, -1},
                {u"B", u"a", -1, 1},
                {u"abc", u"ABCD", 1, -1},
                {u"\u00C9COLE", u"\u00E9cole", -1, 0},
                {u"\u00E9", u"z", 1, 1},
                {u"\uFFFD", u"\U0001F600", 1, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(U8(row.a) + " vs " + U8(row.b));
        EXPECT_EQ(CString(row.a).Compare(CString(row.b)), row.ordinal);
        EXPECT_EQ(CString(row.b).Compare(CString(row.a)), -row.ordinal);
        EXPECT_EQ(CString(row.a) == CString(row.b), row.ordinal == 0);
        EXPECT_EQ(CString(row.a) < CString(row.b), row.ordinal < 0);
        EXPECT_EQ(CString(row.a).CompareNoCase(CString(row.b)), row.noCase);
        EXPECT_EQ(CString(row.b).CompareNoCase(CString(row.a)), -row.noCase);
    }
}

TEST(CStringTransform, CaseMapping) {
    CString text(u"Hello \u00C9t\u00E9 \u03A9mega \u0416\u0443\u043A \U0001F600x");
    text.MakeUpper();
    EXPECT_EQ(U8(text), U8(u"HELLO \u00C9T\u00C9 \u03A9MEGA \u0416\u0423\u041A \U0001F600X"));
    text.MakeLower();
    EXPECT_EQ(U8(text), U8(u"hello \u00E9t\u00E9 \u03C9mega \u0436\u0443\u043A \U0001F600x"));
    // U+10428 has an upper-case form, but only as a pair; single units are all we map.
    CString pair(u"\U00010428");
    pair.MakeUpper();
    EXPECT_EQ(pair.View(), u"\U00010428");
}

TEST(CStringTransform, TrimVariants) {
    struct Row {
        const char* name;
        const char16_t* input;
        std::function<void(CString&)> apply;
        const char16_t* expected;
    };
    const Row rows[] = {{"Trim", u" \t\nabc \r\n", [](CString& s) { s.Trim(); }, u"abc"},
                        {"Trim all", u" \t ", [](CString& s) { s.Trim(); }, u""},
                        {"TrimLeft", u"  a b  ", [](CString& s) { s.TrimLeft(); }, u"a b  "},
                        {"TrimRight", u"  a b  ", [](CString& s) { s.TrimRight(); }, u"  a b"},
                        {"Trim(ch)", u"xxaxbxx", [](CString& s) { s.Trim(u'x'); }, u"axb"},
                        {"Trim(ch) keeps spaces", u" x ", [](CString& s) { s.Trim(u'x'); }, u" x "},
                        {"Trim(set)", u"xyyaxybyx", [](CString& s) { s.Trim(u"xy"); }, u"axyb"},
                        {"Trim(set) all", u"xyx", [](CString& s) { s.Trim(u"xy"); }, u""}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CString text(row.input);
        row.apply(text);
        EXPECT_EQ(U8(text), U8(CString(row.expected)));
    }
}

TEST(CStringEdit, ReplaceAndRemoveCount) {
    CString text(u"banana");
    EXPECT_EQ(text.Replace(u'a', u'o'), 3);
    EXPECT_EQ(U8(text), "bonono");
    EXPECT_EQ(text.Replace(u'o', u'o'), 0);
    const struct {
        const char16_t* from;
        const char16_t* to;
        int count;
        const char16_t* expected;
    } rows[] = {{u"ana", u"", 1, u"bna"},
                {u"a", u"aa", 3, u"baanaanaa"},
                {u"", u"x", 0, u"banana"},
                {u"banana", u"", 1, u""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(U8(row.from) + " -> " + U8(row.to));
        CString banana(u"banana");
        EXPECT_EQ(banana.Replace(CString(row.from), CString(row.to)), row.count);
        EXPECT_EQ(U8(banana), U8(CString(row.expected)));
    }
    CString list(u"a,b,,c");
    EXPECT_EQ(list.Remove(u','), 3);
    EXPECT_EQ(U8(list), "abc");
}

TEST(CStringEdit, InsertAndDeleteClampAndReturnTheLength) {
    CString text(u"abc");
    EXPECT_EQ(text.Insert(-5, u'x'), 4);
    EXPECT_EQ(U8(text), "xabc");
    EXPECT_EQ(text.Insert(99, CString(u"yz")), 6);
    EXPECT_EQ(U8(text), "xabcyz");
    EXPECT_EQ(text.Insert(2, CString()), 6);

    const struct {
        int index;
        int count;
        int length;
        const char* expected;
    } rows[] = {{2, 2, 4, "abef"},   {-1, 2, 4, "cdef"},   {4, 99, 4, "abcd"},
                {6, 1, 6, "abcdef"}, {1, -3, 6, "abcdef"}, {5, INT_MAX, 5, "abcde"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.index) + ", " + std::to_string(row.count));
        CString deleted(u"abcdef");
        EXPECT_EQ(deleted.Delete(row.index, row.count), row.length);
        EXPECT_EQ(U8(deleted), row.expected);
    }
}

TEST(CStringEdit, Concatenation) {
    const CString a(u"ab");
    EXPECT_EQ(U8(u"cd" + a), "cdab");
    EXPECT_EQ(U8(u'!' + a), "!ab");
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

// A formatted text and what it should be; the format names the row that fails.
struct FormatRow {
    std::u16string expected;
    CString actual;
    const char16_t* format;
};

template <class... Args>
FormatRow F(std::u16string expected, const char16_t* format, const Args&... args) {
    return {std::move(expected), CString::Formatted(format, args...), format};
}

void ExpectFormats(std::initializer_list<FormatRow> rows) {
    for (const FormatRow& row : rows)
        EXPECT_EQ(U8(row.actual), U8(CString(row.expected))) << U8(row.format);
}

TEST(CStringFormat, Numbers) {
    // Flags, widths and precisions reach the C formatter as written; every length spelling is
    // read past, and only the 64-bit ones widen a negative int shown unsigned.
    ExpectFormats({F(u"13", u"%i", 13), F(u"00042", u"%05d", 42), F(u"0xff", u"%#x", 255),
                   F(u"ffffffff", u"%x", -1), F(u"4294967295", u"%u", -1)});
    ExpectFormats({F(u"ffffffffffffffff", u"%llx", -1LL), F(u"ffffffffffffffff", u"%tx", -1),
                   F(u"ffffffff", u"%I32x", -1), F(u"ffffffff", u"%lx", -1),
                   F(u"-9223372036854775808", u"%lld", LLONG_MIN),
                   F(u"18446744073709551615", u"%I64u", ULLONG_MAX), F(u"1 2", u"%hd %Ld", 1, 2)});
    ExpectFormats({F(u"1", u"%d", true), F(u"65", u"%d", u'A'), F(u" 3.14", u"%5.2f", 3.14159),
                   F(u"1.500000", u"%f", 1.5f), F(u"2.2", u"%.1Lf", 2.25), F(u"3.0", u"%.1f", 3)});
}

TEST(CStringFormat, WidthsAndPrecisions) {
    EXPECT_EQ(CString::Formatted(u"%100000000d", 1).GetLength(), 4096);
    EXPECT_EQ(CString::Formatted(u"%.99999999f", 1.0).GetLength(), 4098);
    EXPECT_EQ(CString::Formatted(u"%4096d", 7).GetLength(), 4096);
    const std::u16string longText(300, u'q');
    EXPECT_EQ(CString::Formatted(u"%.256s", longText).View(), std::u16string(256, u'q'));
    ExpectFormats({F(u"7   |", u"%*d|", -4, 7), F(u"    2.2", u"%*.*f", 7, 1, 2.25),
                   F(u"ab", u"%.*s", 2, u"abcdef"), F(u"abc", u"%.*s", -1, u"abc")});
}

TEST(CStringFormat, TextCharactersAndPercent) {
    // Every kind of text argument, wide or narrow whatever the size asked for.
    const CString wide(u"w\u00EEde");
    const char16_t* pointer = u"ptr";
    ExpectFormats({F(u"w\u00EEde", u"%s", wide), F(u"ptr", u"%s", pointer),
                   F(u"std", u"%s", std::u16string(u"std")), F(u"w\u00EEde", u"%hs", wide),
                   F(u"n\u00E4rrow", u"%S", std::string("n\xC3\xA4rrow")),
                   F(u"\u20AC", u"%ls", "\xE2\x82\xAC")});
    ExpectFormats({F(u"ab    |", u"%-6s|", u"ab"), F(u"abcd", u"%2s", u"abcd"),
                   F(u"   ab|", u"%5.2s|", u"abc"),
                   F(u"(null)", u"%s", static_cast<const char16_t*>(nullptr))});
    ExpectFormats({F(u"x  |", u"%-3c|", u'x'), F(u"\U0001F600", u"%c", 0x1F600),
                   F(u"\uFFFD", u"%c", -5), F(u"z", u"%C", 'z'), F(u"%", u"%%")});
}

TEST(CStringFormat, MissingMismatchedAndUnknownNeverMisbehave) {
    // Missing arguments format as nothing and extra ones are ignored; arguments are converted by
    // their kind; unknown or cut-short directives are copied.
    ExpectFormats({F(u" and .", u"%d and %s."), F(u"[]", u"[%*d]", 3), F(u"1", u"%d", 1, 2, 3),
                   F(u"0", u"%d", u"text"), F(u"0.000000", u"%f", u"text")});
    ExpectFormats({F(u"-42", u"%s", -42), F(u"7", u"%s", 7u), F(u"  0.1|", u"%5s|", 0.1),
                   F(u"2", u"%d", 2.9), F(u"10000000000000000000", u"%llu", 1e19)});
    ExpectFormats({F(u"9223372036854775807", u"%d", 1e300),
                   F(u"-9223372036854775808", u"%d", -1e300), F(u"0", u"%d", std::nan("")),
                   F(u"[]", u"[%c]", u"text"), F(u"5", u"%#d", 5), F(u"a%yb", u"a%yb", 1)});
    ExpectFormats(
        {F(u"%n", u"%n", 1), F(u"abc%5", u"abc%5"), F(u"abc%-", u"abc%-"), F(u"%q4", u"%q%d", 4)});
}

TEST(CStringFormat, Utf8FormatsAndAppending) {
    CString text;
    text.Format("%s \xC3\xA9 %d", u"a", 3);
    EXPECT_EQ(U8(text), "a \xC3\xA9 3");
    text.AppendFormat(u"-%02d", 5);
    EXPECT_EQ(U8(text), "a \xC3\xA9 3-05");
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

TEST(CStringUtf8, ValidTextRoundTrips) {
    const struct {
        const char* utf8;
        std::u16string_view utf16;
    } rows[] = {{"", u""},
                {"\xDF\xBF", u"\u07FF"},
                {"\xE0\xA0\x80", u"\u0800"},
                {"\xED\x9F\xBF", u"\uD7FF"},
                {"\xEE\x80\x80", u"\uE000"},
                {"\xEF\xBF\xBF", u"\uFFFF"},
                {"\xF0\x90\x80\x80", u"\U00010000"},
                {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
                {"a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z", u"a\u00E9\u20AC\U0001F600z"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.utf8);
        const CString decoded = CString::FromUtf8(row.utf8);
        EXPECT_EQ(decoded.View(), row.utf16);
        EXPECT_EQ(CString(row.utf8).View(), row.utf16);
        EXPECT_EQ(decoded.ToUtf8(), row.utf8);
    }
}

TEST(CStringUtf8, MalformedInputBecomesReplacementCharacters) {
    const std::string euro = "\xE2\x82\xAC";
    const struct {
        const char* name;
        std::string_view utf8;
        std::u16string_view expected;
    } rows[] = {{"lone continuation", "\x80", u"\uFFFD"},
                {"overlong C1", "\xC1\xBF", u"\uFFFD\uFFFD"},
                {"overlong three bytes", "\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},
                {"overlong four bytes", "\xF0\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
                {"high surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
                {"past U+10FFFF", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
                {"F5 lead", "\xF5\x80", u"\uFFFD\uFFFD"},
                {"truncated two bytes", "\xC3", u"\uFFFD"},
                {"broken then ASCII", "\xE2\x82x", u"\uFFFDx"},
                {"broken four then ASCII", "\xF0\x9F\x98\x41", u"\uFFFDA"},
                {"lead then lead", "\xC3\xC3\xA9", u"\uFFFD\u00E9"},
                {"mixed", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
                 u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"},
                // Decoding stops at the end of the view, inside a character or before it.
                {"view cut inside", std::string_view(euro.data(), 2), u"\uFFFD"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(CString::FromUtf8(row.utf8).View(), row.expected);
    }
}

TEST(CStringUtf8, LoneSurrogatesEncodeAsReplacement) {
    const char16_t high[] = {u'a', char16_t(0xD800), u'b', 0};
    const char16_t highAtEnd[] = {u'x', char16_t(0xD83D), 0};
    const char16_t swapped[] = {char16_t(0xDE00), char16_t(0xD83D), 0};
    const struct {
        std::u16string_view utf16;
        const char* utf8;
    } rows[] = {{high, "a\xEF\xBF\xBD"
                       "b"},
                {highAtEnd, "x\xEF\xBF\xBD"},
                {swapped, "\xEF\xBF\xBD\xEF\xBF\xBD"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.utf8);
        EXPECT_EQ(CString(row.utf16).ToUtf8(), row.utf8);
    }
}

// Two threads copy one shared string many times over. A reference count that lost an update
// would free the buffer under a live copy or leave the original's next write on a new buffer.
TEST(CStringThreads, ConcurrentCopiesOfOneSharedString) {
    CString original(u"shared between threads");
    const CString& shared = original;
    const auto copier = [&shared](bool writeToCopies) {
        int wrong = 0;
        for (int round = 0; round < 2000; ++round) {
            std::vector<CString> copies(100, shared);
            for (CString& copy : copies) {
                wrong += copy.GetString() != shared.GetString();
                if (writeToCopies) {
                    copy.SetAt(0, u'S');
                    wrong += copy.View() != u"Shared between threads";
                }
            }
        }
        return wrong;
    };
    std::future<int> reader = std::async(std::launch::async, copier, false);
    std::future<int> writer = std::async(std::launch::async, copier, true);
    EXPECT_EQ(reader.get(), 0);
    EXPECT_EQ(writer.get(), 0);
    const char16_t* before = original.GetString();
    original.SetAt(0, u'S');
    EXPECT_EQ(original.GetString(), before);
    EXPECT_EQ(original.View(), u"Shared between threads");
}

// In the C locale the C library knows no letter past ASCII: the answers are our own.
TEST(WCharClasses, ClassifyAsciiAndBeyond) {
    const std::u16string alpha = u"aZ\u00C9\u00DF\u03A9\u0416\u4E2D\u0663\uFF21";
    const std::u16string digit = u"09";
    const std::u16string space = u" \t\n\v\f\r\u3000\u2003";
    const std::u16string neither{u'_', u'-', u'\0', u'\u20AC', u'\u00B2', 0xD800, 0xDFFF};
    for (const char16_t ch : alpha + digit + space + neither) {
        SCOPED_TRACE(static_cast<unsigned>(ch));
        EXPECT_EQ(IsAlpha(ch), alpha.find(ch) != std::u16string::npos);
        EXPECT_EQ(IsDigit(ch), digit.find(ch) != std::u16string::npos);
        EXPECT_EQ(IsSpace(ch), space.find(ch) != std::u16string::npos);
        EXPECT_EQ(IsAlnum(ch), IsAlpha(ch) || IsDigit(ch));
    }
}

TEST(WCharClasses, CaseMapsBothWaysAndLeavesUnitsWithoutSingleUnitCase) {
    // Pairs at the same place; the last units have no case of their own as single units.
    const std::u16string noCase{0xD83D, 0xDE00, 0xDC00};
    const std::u16string upper =
        u"AZ\u00C9\u00C0\u0178\u03A9\u0394\u0416\u04015 \u20AC\u4E2D\u00DF\uFF21" + noCase;
    const std::u16string lower =
        u"az\u00E9\u00E0\u00FF\u03C9\u03B4\u0436\u04515 \u20AC\u4E2D\u00DF\uFF41" + noCase;
    for (std::size_t i = 0; i < upper.size(); ++i) {
        SCOPED_TRACE(static_cast<unsigned>(upper[i]));
        EXPECT_EQ(ToLower(upper[i]), lower[i]);
        EXPECT_EQ(ToUpper(lower[i]), upper[i]);
        EXPECT_EQ(ToLower(lower[i]), lower[i]);
        EXPECT_EQ(ToUpper(upper[i]), upper[i]);
    }
}

} // namespace
} // namespace keel
