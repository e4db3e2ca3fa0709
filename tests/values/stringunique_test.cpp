#include "tests/support/anyvalues.h"

#include "keel/platform/exceptions.h"
#include "keel/values/array.h"
#include "keel/values/stringunique.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using namespace keel;

namespace {

using keel::test::Utf8;

std::string Completion(const char16_t* prefix, int n) {
    CString text = prefix;
    const int position = QStringUniqueCommon::SuggestCompletion(text, n);
    return position < 0 ? "-" : Utf8(QStringUniqueCommon::StringAt(position));
}

struct CanonicalCase {
    const char* kind;
    const char16_t* text;
    const char16_t* canonical;
};

CString CanonicalOf(const CanonicalCase& c) {
    const std::string kind = c.kind;
    if (kind == "PropId")
        return PropId(c.text).ToString();
    if (kind == "ControlId")
        return ControlId(c.text).ToString();
    if (kind == "FullId")
        return FullId(c.text).ToString();
    if (kind == "FormulaText")
        return FormulaText(c.text).ToString();
    return QStringUnique(c.text).ToString();
}

std::vector<int> g_respelt;
void RecordRespelling(int index) {
    g_respelt.push_back(index);
}

} // namespace

TEST(StringUnique, CanonicalFormsOfEachKind) {
    const CanonicalCase cases[] = {
        {"PropId", u"My Var-2", u"My_Var_2"},
        {"PropId", u"3D", u"_3D"},
        {"PropId", u"  padded  ", u"padded"},
        {"PropId", u"a~b", u"a_b"},
        {"PropId", u"cell[2]", u"cell[2]"},
        {"PropId", u"open[", u"open_"},
        {"PropId", u"]close", u"_close"},
        {"PropId", u"Größe", u"Größe"},
        {"ControlId", u"a~b", u"a~b"},
        {"ControlId", u"a.b", u"a_b"},
        {"FullId", u"room.area", u"room.area"},
        {"FullId", u"room.", u"room_"},
        {"FullId", u"a~b", u"a_b"},
        {"FormulaText", u" 1+2 ", u"1+2"},
        {"FormulaText", u"\t\r\n a + b \n", u"a + b"},
        {"FormulaText", u"\"x y\"", u"\"x y\""},
        {"QStringUnique", u"  free text, kept  ", u"  free text, kept  "},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Utf8(CanonicalOf(c)), Utf8(CString(c.canonical)))
            << c.kind << " " << Utf8(c.text);
}

TEST(StringUnique, BlankTextsAreTheEmptyIndexSpellingsFoldForCaseAndAreReadThroughTheTable) {
    const int sortedBefore = QStringUniqueCommon::StringsCount();
    const PropId blank(u"   \t ");
    const FormulaText controls(u"\n\r ");
    const PropId none;
    EXPECT_EQ(blank.UniqueId(), -1);
    EXPECT_TRUE(blank.IsEmpty());
    EXPECT_EQ(controls.UniqueId(), -1);
    EXPECT_EQ(blank, none);
    EXPECT_EQ(QStringUniqueCommon::StringsCount(), sortedBefore);
    EXPECT_EQ(blank.GetAt(5), u'\0');
    const PropId first(u"Caseword");
    const PropId second(u"CASEWORD");
    EXPECT_EQ(first, second);
    EXPECT_EQ(Utf8(second.ToString()), "Caseword");
    const PropId prop(u"sharedacross");
    const FullId full(u"sharedacross");
    const FormulaText formula(u"SHAREDACROSS");
    EXPECT_EQ(prop.UniqueId(), full.UniqueId());
    EXPECT_EQ(prop.UniqueId(), formula.UniqueId());
    EXPECT_EQ(HashKey(prop), static_cast<unsigned>(prop.UniqueId()));
    g_respelt.clear();
    QStringUniqueCommon::SetRespellHook(&RecordRespelling);
    const PropId original(u"Respelt");
    const PropId upper(u"RESPELT");
    EXPECT_TRUE(g_respelt.empty());
    const PropId respelt(u"RESPELT", true, true);
    QStringUniqueCommon::SetRespellHook(nullptr);

    EXPECT_EQ(respelt, original);
    EXPECT_EQ(Utf8(original.ToString()), "RESPELT");
    EXPECT_EQ(Utf8(upper.ToString()), "RESPELT");
    ASSERT_EQ(g_respelt.size(), 1u);
    EXPECT_EQ(g_respelt[0], original.UniqueId());
    const PropId id(u"Accessor");
    EXPECT_EQ(Utf8(id.Mid(5)), "sor");
    EXPECT_THROW(id.GetAt(8), InvalidArgumentException);
    const PropId apple(u"apple_cmp");
    const PropId banana(u"Banana_cmp");
    EXPECT_EQ(COMPARE(apple, apple), 0);
    EXPECT_GT(COMPARE(apple, banana), 0); // 'a' sorts after 'B' by code unit

    QArray<PropId> ids;
    ids.Add(banana);
    ids.Add(apple);
    EXPECT_EQ(ids.Find(PropId(u"APPLE_CMP")), 1);
    ids.SortNoCase();
    EXPECT_EQ(ids[0], apple);
}

TEST(StringUnique, CompletionOffersTheRestOfLongerSpellingsAndWrapsRoundTheMatches) {
    const PropId shortName(u"qj");
    EXPECT_EQ(Completion(u"qj", 0), "-");
    const FormulaText formula(u"qjformula");
    EXPECT_EQ(Completion(u"qj", 0), "-");
    const PropId longer(u"qjk");
    EXPECT_EQ(Completion(u"qj", 0), "qjk");
    const PropId sameAsFormula(u"QJFORMULA");
    EXPECT_EQ(Completion(u"qj", 0), "qjformula");
    EXPECT_EQ(Completion(u"qj", 1), "qjk");
    const PropId vx(u"Vxwidth");
    CString text = u"VXW";
    const int position = QStringUniqueCommon::SuggestCompletion(text, 0);
    ASSERT_GE(position, 0);
    EXPECT_EQ(Utf8(text), "idth");
    EXPECT_EQ(Utf8(QStringUniqueCommon::StringAt(position)), "Vxwidth");
    const PropId refusal(u"Refusal");
    for (const char16_t* prefix : {u"", u"1abc", u"refusalx", u"nothing_starts_so"}) {
        CString text = prefix;
        EXPECT_EQ(QStringUniqueCommon::SuggestCompletion(text, 0), -1) << Utf8(prefix);
        EXPECT_EQ(text, CString(prefix));
    }
    for (const char16_t* word : {u"wrp_b", u"wrp_a", u"wrp_c", u"wrq_after"})
        PropId{word};
    const char* wrapped[] = {"wrp_a", "wrp_b", "wrp_c", "wrp_a", "wrp_b", "wrp_c", "wrp_a"};
    for (int n = 0; n < 7; ++n)
        EXPECT_EQ(Completion(u"wrp", n), wrapped[n]) << n;
    // At the end of the list the walk stops on the last entry; full-width letters sort after
    // every other name of these tests.
    PropId{u"ｚｚｚa"};
    PropId{u"ｚｚｚb"};
    ASSERT_EQ(Utf8(QStringUniqueCommon::StringAt(QStringUniqueCommon::StringsCount() - 1)),
              "ｚｚｚb");
    EXPECT_EQ(Completion(u"ｚｚｚ", 0), "ｚｚｚa");
    EXPECT_EQ(Completion(u"ｚｚｚ", 1), "ｚｚｚb");
    EXPECT_EQ(Completion(u"ｚｚｚ", 2), "ｚｚｚb");
    EXPECT_THROW(QStringUniqueCommon::StringAt(-1), InvalidArgumentException);
    EXPECT_THROW(QStringUniqueCommon::StringAt(QStringUniqueCommon::StringsCount()),
                 InvalidArgumentException);
}

TEST(StringUnique, TwoThreadsInterningTheSameWordsAgree) {
    constexpr int count = 5000;
    auto intern = [](bool reverse, bool upper, std::vector<int>& out) {
        out.assign(count, -1);
        for (int k = 0; k < count; ++k) {
            const int i = reverse ? count - 1 - k : k;
            CString text = CString::Formatted(u"thread_word_%d", i);
            if (upper)
                text.MakeUpper();
            out[i] = PropId(text).UniqueId();
        }
    };
    std::vector<int> first;
    std::vector<int> second;
    std::thread a(intern, false, false, std::ref(first));
    std::thread b(intern, true, true, std::ref(second));
    a.join();
    b.join();
    EXPECT_EQ(first, second);
    std::vector<int> sorted = first;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
    for (int i = 0; i < count; i += 97)
        EXPECT_EQ(PropId(CString::Formatted(u"Thread_Word_%d", i)).UniqueId(), first[i]);
}
