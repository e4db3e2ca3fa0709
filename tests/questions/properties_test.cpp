#include "tests/support/answerdocument.h"
#include "tests/support/archivebytes.h"
#include "tests/support/errorreports.h"
#include "tests/support/progressservices.h"
#include "tests/support/questiondefs.h"
#include "tests/support/uihosts.h"

#include "keel/document/appservices.h"
#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"
#include "keel/formula/toplevelcontext.h"
#include "keel/formula/withformula.h"
#include "keel/platform/registry.h"
#include "keel/questions/propdeftabgroupset.h"
#include "keel/questions/properties.h"
#include "keel/values/wholeraw.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace keel {
namespace {

using test::AnswerContext;
using test::AnswerDocument;
using test::Bytes;
using test::Concat;
using test::Loading;
using test::Stored;
using test::WideString;
using Keys = std::vector<std::string>;
using Notices = std::vector<std::string>;

// The root of a tree that writes down every notice it hears and counts on once per change.
class RecordingRoot : public AnswerContext {
public:
    RecordingRoot() : AnswerContext("Doc") { ++m_sync; }

    const QState* SyncStateIfRoot() const override { return &m_sync; }
    void OnNotifyPreChangeFromChild() override { m_notices.push_back("pre"); }
    void OnNotifyChangedFromChild() override {
        m_notices.push_back("changed");
        ++m_sync;
    }
    void OnNotifyChildMadeUpToDate() const override { SetState(m_sync); }

    Notices TakeNotices() { return std::exchange(m_notices, {}); }

private:
    QState m_sync;
    Notices m_notices;
};

const Notices c_oneChange = {"pre", "changed"};

// Progress services for a merge, which say whether it runs automated.
class MergeServices : public test::RecordingProgressServices {
public:
    explicit MergeServices(bool automated) : m_automated(automated) {}

    bool IsRunningAutomated() const override { return m_automated; }

private:
    bool m_automated;
};

QAnyValue StoredValue(const QProperties& bag, const char* key) {
    QAnyValue value;
    FormulaText formula;
    EXPECT_TRUE(bag.GetPropertyValueWithFormulaWithNoEnsureUpToDate(PropId(key), value, formula))
        << key;
    return value;
}

std::string FormulaOf(const QProperties& bag, const char* key) {
    FormulaText formula;
    EXPECT_TRUE(bag.GetPropertyFormula(PropId(key), formula)) << key;
    return formula.ToString().ToUtf8();
}

std::string DescOf(const QProperties& bag, const char* key) {
    QStringUnique desc;
    EXPECT_TRUE(bag.GetPropertyDesc(PropId(key), desc)) << key;
    return desc.UniqueId() == -1 ? "<none>" : desc.ToString().ToUtf8();
}

Keys KeysOf(const QProperties& bag) {
    Keys keys;
    for (int i = 0; i < bag.PropertyCount(); ++i) {
        PropId key;
        FormulaText formula;
        bag.GetAtPropertyFormula(i, key, formula);
        keys.push_back(key.ToString().ToUtf8());
    }
    return keys;
}

// The contexts of the answers, by index.
std::vector<const QFormulaContext*> ContextsOf(const QProperties& bag) {
    std::vector<const QFormulaContext*> contexts;
    for (int i = 0; i < bag.PropertyCount(); ++i) {
        QProp prop;
        EXPECT_TRUE(bag.GetAtProperty(i, prop));
        contexts.push_back(prop.ParentContext());
    }
    return contexts;
}

QProperties Bag(std::initializer_list<std::pair<const char*, QAnyValue>> answers) {
    QProperties bag;
    for (const auto& [key, value] : answers)
        bag.SetPropertyValue(PropId(key), value);
    return bag;
}

QProp MakeProp(const char* key, const QAnyValue& value, const char* formula = nullptr) {
    return QProp(PropId(key), QWithFormula<QAnyValue>(
                                  nullptr, value, formula ? FormulaText(formula) : FormulaText()));
}

Bytes IntValue(std::int32_t value) {
    return Concat({{0x03}, test::LittleEndian32(static_cast<std::uint32_t>(value))});
}

Bytes StringValue(const std::u16string& text) {
    return Concat({{0x01}, WideString(text)});
}

// A property as the archive holds it: key, value, formula and the flags byte.
Bytes PropBytes(const std::u16string& key, const Bytes& value, const std::u16string& formula,
                std::uint8_t flags) {
    return Concat({WideString(key), value, WideString(formula), {flags}});
}

Bytes BagStored(QProperties& bag) {
    return Stored([&](CArchive& archive) { bag.Serialize(archive); });
}

template <class Value>
void Load(const Bytes& bytes, unsigned schema, Value& value) {
    Loading loading(bytes, 4096, CString(), schema);
    if constexpr (std::is_same_v<Value, QProp>)
        loading.archive >> value;
    else
        value.Serialize(loading.archive);
    EXPECT_TRUE(loading.archive.IsBufferEmpty()) << "bytes were left unread";
}

using test::Report;

// Keeps the error log's queue empty around each test and reads what was reported.
class PropertiesTest : public test::ErrorReportsTest {
protected:
    static std::vector<Report> Reports() { return test::PendingReports(); }
};

TEST(PropBasics, AssignmentClearsTheOriginFlagsAndTakesTheContextOnlyWithoutOne) {
    AnswerContext first;
    AnswerContext second;
    QProp source(PropId("proporigin"), QWithFormula<QAnyValue>(&first, QAnyValue(1)));
    source.SetIsFromTemplate(true);
    source.SetIsFromLibrary(true);
    source.SetValueWithFormula(QAnyValue(2), FormulaText());
    source.SetDesc(QStringUnique("the origin"));
    ASSERT_TRUE(source.IsEdited());

    const QProp copied(source);
    EXPECT_TRUE(copied.IsFromTemplate() && copied.IsFromLibrary() && copied.IsEdited());

    QProp orphan;
    orphan = source;
    EXPECT_FALSE(orphan.IsFromTemplate() || orphan.IsFromLibrary());
    EXPECT_TRUE(orphan.IsEdited());
    EXPECT_EQ(orphan.ParentContext(), &first);

    QProp settled(PropId("proporigin"), QWithFormula<QAnyValue>(&second, QAnyValue(0)));
    settled = source;
    EXPECT_EQ(settled.ParentContext(), &second);
}

// A new parent context hears of the change; the same one again and detaching are silent.
TEST(PropBasics, ANewParentContextIsAnnouncedUnlessTheSameOrDetached) {
    RecordingRoot root;
    QProp moved = MakeProp("propparent", 1);
    moved.SetParentContext(&root);
    EXPECT_EQ(root.TakeNotices(), c_oneChange);
    moved.SetParentContext(&root);
    moved.SetParentContext(nullptr);
    EXPECT_TRUE(root.TakeNotices().empty());
}

TEST(PropSpecification, WhatMakesTwoPropertiesTheSameAndHashesAlike) {
    const QProp base = MakeProp("propsame", 5);
    QProp withTemplate = base;
    withTemplate.SetIsFromTemplate(true);
    QProp withDesc = base;
    withDesc.SetDesc(QStringUnique("described"));
    QProp edited = base;
    edited.SetIsFromLibrary(true);
    edited.SetValueWithFormula(QAnyValue(5), FormulaText());
    edited.SetIsFromLibrary(false);
    const struct {
        const char* what;
        QProp first;
        QProp second;
        bool same;
    } cases[] = {{"identical value", base, MakeProp("propsame", 5), true},
                 {"other value", base, MakeProp("propsame", 6), false},
                 {"other type", base, MakeProp("propsame", 5.0), false},
                 {"other key", base, MakeProp("propsame2", 5), false},
                 {"a formula against none", base, MakeProp("propsame", 5, "5"), false},
                 {"template flag", base, withTemplate, false},
                 {"description", base, withDesc, false},
                 {"edited flag", base, edited, false},
                 {"equal formulas, other values", MakeProp("propformula", 1, "a + b"),
                  MakeProp("propformula", 2, "a + b"), true},
                 {"other formulas", MakeProp("propformula", 1, "a + b"),
                  MakeProp("propformula", 1, "a + c"), false}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.first.IsSameSpecificationAs(c.second), c.same) << c.what;
        EXPECT_EQ(c.second.IsSameSpecificationAs(c.first), c.same) << c.what;
        if (c.same) {
            EXPECT_EQ(c.first.HashKeyCalc(), c.second.HashKeyCalc()) << c.what;
        }
    }
}

TEST(PropArchive, ReadingOldSchemas) {
    // The edited bit counts from schema 114; the flags byte overrides the edited mark of reading.
    for (const auto& [schema, edited] : {std::pair{113u, false}, {114u, true}, {200u, true}}) {
        QProp loaded;
        Load(PropBytes(u"archEdited", IntValue(1), u"", 0x01 | 0x08), schema, loaded);
        EXPECT_TRUE(loaded.IsFromTemplate()) << schema;
        EXPECT_EQ(loaded.IsEdited(), edited) << schema;
    }
    QProp unedited = MakeProp("archOverride", 1);
    unedited.SetIsFromTemplate(true);
    Load(PropBytes(u"archOverride", IntValue(2), u"", 0x01), 120, unedited);
    EXPECT_TRUE(unedited.IsFromTemplate());
    EXPECT_FALSE(unedited.IsEdited());

    // Before schema 109 a string value that is a formula is upgraded.
    const struct {
        unsigned schema;
        std::u16string stored;
        std::u16string formula;
        std::string expected;
    } cases[] = {{108, u":  archLen * 2 ", u"", ":archLen * 2"},
                 {108, u"  plain text", u"", "  plain text"},
                 {108, u": archLen", u"archLen", ": archLen"},
                 {109, u":  archLen * 2 ", u"", ":  archLen * 2 "}};
    for (const auto& c : cases) {
        QProp loaded;
        Load(PropBytes(u"archUpgrade", StringValue(c.stored), c.formula, 0), c.schema, loaded);
        EXPECT_EQ(loaded.ValueWithFormula().ValueNoEnsureUpToDate().AsStringOrFormula().ToUtf8(),
                  c.expected)
            << c.schema;
    }
}

TEST(PropertiesKeys, NewKeysAreAppendedInOrderFoundAndRemoved) {
    QProperties bag = Bag({{"keysWidth", 1}, {"keysDepth", 2}, {"KEYSWIDTH", 3}});
    EXPECT_EQ(bag.PropertyCount(), 2);
    EXPECT_EQ(bag.FindProperty(PropId("keysdepth")), 1);
    EXPECT_EQ(StoredValue(bag, "keysWidth"), QAnyValue(3));
    EXPECT_EQ(bag.FindProperty(PropId("keysHeight")), -1);
    EXPECT_FALSE(bag.HasProperty(PropId("keysHeight")));
    bag.SetPropertyValue(PropId(), QAnyValue(1));
    bag.SetProperty(PropId(), MakeProp("keysIgnored", 1));
    EXPECT_EQ(bag.PropertyCount(), 2) << "a negative key is ignored";

    QProperties removed = Bag({{"rmA", 1}, {"rmB", 2}, {"rmC", 3}, {"rmD", 4}});
    removed.RemoveProperty(PropId("rmB"));
    removed.RemoveAtProperty(0);
    removed.RemoveAtProperty(7);
    removed.RemoveProperty(PropId("rmMissing"));
    EXPECT_EQ(KeysOf(removed), (Keys{"rmC", "rmD"}));
    EXPECT_EQ(removed.FindProperty(PropId("rmD")), 1);
    EXPECT_EQ(removed.FindProperty(PropId("rmA")), -1);
    removed.SetPropertyValue(PropId("rmE"), QAnyValue(5));
    EXPECT_EQ(removed.FindProperty(PropId("rmE")), 2);
    removed.RemoveAllProperties();
    EXPECT_EQ(removed.PropertyCount(), 0);
    EXPECT_EQ(removed.FindProperty(PropId("rmD")), -1);
}

TEST(PropertiesGetters, MissingKeysAndIndexesGiveNothing) {
    QProperties bag = Bag({{"getOnly", 1}});
    QAnyValue value(7);
    bool error = true;
    QCacheState state = QCS_BySeq;
    EXPECT_FALSE(bag.GetPropertyValue(PropId("getMissing"), value, error, &state));
    EXPECT_TRUE(value.IsEmpty());
    EXPECT_FALSE(error);
    EXPECT_EQ(state, QCS_BySeq);
    FormulaText formula;

    // An index out of range, on either side, gives key -1 and an empty value.
    for (const int index : {-1, 1}) {
        PropId key("getOnly");
        QAnyValue got(3);
        EXPECT_FALSE(bag.GetAtPropertyValue(index, key, got, error, nullptr)) << index;
        EXPECT_EQ(key.UniqueId(), -1) << index;
        EXPECT_TRUE(got.IsEmpty()) << index;
        key = PropId("getOnly");
        EXPECT_FALSE(bag.GetAtPropertyFormula(index, key, formula)) << index;
        EXPECT_EQ(key.UniqueId(), -1) << index;
    }
}

TEST(PropertiesGetters, SettersOfAnswersDescriptionsFlagsAndFormulas) {
    QProperties bag = Bag({{"getCopy", 4}});
    // Descriptions are set on existing answers only, by key or by an index with its key.
    bag.SetPropertyDesc(PropId("descLater"), QStringUnique("nobody"));
    EXPECT_EQ(bag.PropertyCount(), 1);
    bag.SetPropertyValue(PropId("descLater"), QAnyValue(1));
    bag.SetAtPropertyDesc(1, PropId("descOther"), QStringUnique("wrong key"));
    EXPECT_EQ(DescOf(bag, "descLater"), "<none>");
    bag.SetAtPropertyDesc(1, PropId("descLater"), QStringUnique("by index"));
    EXPECT_EQ(DescOf(bag, "descLater"), "by index");

    // SetProperty takes the description but not the flags.
    QProp whole = MakeProp("setWhole", 3, "1 + 2");
    whole.SetDesc(QStringUnique("whole"));
    whole.SetIsFromTemplate(true);
    bag.SetProperty(PropId("setWhole"), whole);
    EXPECT_EQ(FormulaOf(bag, "setWhole"), "1 + 2");
    EXPECT_EQ(StoredValue(bag, "setWhole"), QAnyValue(3));
    EXPECT_FALSE(bag.IsFromTemplate(PropId("setWhole")));
    EXPECT_EQ(DescOf(bag, "setWhole"), "whole");

    // SetPropertyFormula keeps the stored value.
    bag.SetPropertyFormula(PropId("getCopy"), FormulaText("4 * 2"));
    EXPECT_EQ(StoredValue(bag, "getCopy"), QAnyValue(4));
    EXPECT_EQ(FormulaOf(bag, "getCopy"), "4 * 2");
    bag.SetPropertyFormula(PropId("fmlNew"), FormulaText("1"));
    EXPECT_TRUE(StoredValue(bag, "fmlNew").IsEmpty());
}

TEST(PropertiesNotices, NewChangedAndRemovedAnswersAreAnnouncedAndSameOnesAreNot) {
    RecordingRoot root;
    root.TakeNotices();
    root.SetPropertyValue(PropId("noteSame"), QAnyValue(1));
    EXPECT_EQ(root.TakeNotices(), c_oneChange);
    EXPECT_EQ(ContextsOf(root.Answers()), std::vector<const QFormulaContext*>{&root});
    root.SetPropertyValueWithFormula(PropId("noteFormula"), QAnyValue(), FormulaText("1 + 1"));
    root.TakeNotices();

    root.SetPropertyValue(PropId("noteSame"), QAnyValue(1));
    root.SetPropertyValueWithFormula(PropId("noteFormula"), QAnyValue(5), FormulaText("1 + 1"));
    EXPECT_TRUE(root.TakeNotices().empty());
    EXPECT_TRUE(StoredValue(root.Answers(), "noteFormula").IsEmpty());
    root.SetPropertyValue(PropId("noteSame"), QAnyValue(2));
    EXPECT_EQ(root.TakeNotices(), c_oneChange);

    // Reading tells nobody.
    QProp copy;
    ASSERT_TRUE(root.GetProperty(PropId("noteFormula"), copy));
    ASSERT_TRUE(root.GetAtProperty(1, copy));
    EXPECT_TRUE(root.TakeNotices().empty());

    root.RemoveProperty(PropId("noteSame"));
    EXPECT_EQ(root.TakeNotices(), c_oneChange);
    root.RemoveAllProperties();
    EXPECT_EQ(root.TakeNotices(), c_oneChange);
    root.RemoveAllProperties();
    EXPECT_TRUE(root.TakeNotices().empty());
}

TEST(PropertiesNotices, AnotherKeyAtAnIndexReplacesTheAnswerAndTheContextForwardsByIndex) {
    RecordingRoot root;
    root.SetPropertyValue(PropId("slotOld"), QAnyValue(1));
    root.SetPropertyValue(PropId("slotNext"), QAnyValue(2));
    root.TakeNotices();
    root.SetAtPropertyValueWithFormula(0, PropId("slotNew"), QAnyValue(3), FormulaText());
    EXPECT_EQ(root.TakeNotices(), c_oneChange);
    EXPECT_EQ(KeysOf(root.Answers()), (Keys{"slotNew", "slotNext"}));
    EXPECT_EQ(root.FindProperty(PropId("slotOld")), -1);
    EXPECT_EQ(ContextsOf(root.Answers())[0], &root);
    root.SetAtPropertyValue(0, PropId(), QAnyValue(4));
    EXPECT_EQ(root.TakeNotices(), c_oneChange);
    EXPECT_EQ(KeysOf(root.Answers()), (Keys{"slotNext"}));
    EXPECT_EQ(root.FindProperty(PropId("slotNext")), 0);
    root.SetAtPropertyValue(3, PropId("slotFar"), QAnyValue(4));
    EXPECT_TRUE(root.TakeNotices().empty());
    EXPECT_EQ(root.PropertyCount(), 1);

    // A whole answer set at an index replaces formula and description.
    root.SetAtPropertyFormula(0, PropId("slotNext"), FormulaText("fwdSecond"));
    root.SetAtPropertyDesc(0, PropId("slotNext"), QStringUnique("forwarded"));
    root.SetAtProperty(0, MakeProp("slotNext", 5));
    EXPECT_EQ(StoredValue(root.Answers(), "slotNext"), QAnyValue(5));
    EXPECT_EQ(FormulaOf(root.Answers(), "slotNext"), "");
    EXPECT_EQ(DescOf(root.Answers(), "slotNext"), "<none>");
}

TEST(PropertiesEvaluation, AnAnswerWithAFormulaIsEvaluatedWhenReadAndAgainAfterAChange) {
    AnswerDocument document;
    document.SetPropertyValue(PropId("evalDepth"), QAnyValue(5));
    document.SetPropertyFormula(PropId("evalWidth"), FormulaText("evalDepth * 2"));
    document.SetPropertyValueWithFormula(PropId("evalStale"), QAnyValue(1), FormulaText("2 + 3"));
    QAnyValue value;
    bool error = true;
    QCacheState state = QCS_Stable;
    ASSERT_TRUE(document.GetPropertyValue(PropId("evalWidth"), value, error, &state));
    EXPECT_EQ(value, QAnyValue(10));
    EXPECT_FALSE(error);
    document.SetPropertyValue(PropId("evalDepth"), QAnyValue(7));
    ASSERT_TRUE(document.GetPropertyValue(PropId("evalWidth"), value, error, &state));
    EXPECT_EQ(value, QAnyValue(14));

    // The WithNoEnsureUpToDate forms read the stored value.
    EXPECT_EQ(StoredValue(document.Answers(), "evalStale"), QAnyValue(1));
    FormulaText formula;
    ASSERT_TRUE(
        document.GetPropertyValueWithFormula(PropId("evalStale"), value, formula, error, nullptr));
    EXPECT_EQ(value, QAnyValue(5));
    EXPECT_EQ(formula.ToString().ToUtf8(), "2 + 3");
}

TEST_F(PropertiesTest, AFormulaInErrorIsReadAsAnErrorAndSetValueMakesAnAnswer) {
    AnswerDocument document;
    document.SetPropertyFormula(PropId("evalBroken"), FormulaText("1 +"));
    QAnyValue value;
    FormulaText formula;
    bool error = false;
    PropId key;
    ASSERT_TRUE(document.GetAtPropertyValueWithFormula(0, key, value, formula, error, nullptr));
    EXPECT_TRUE(error);
    EXPECT_TRUE(value.IsError());

    AnswerContext context;
    ASSERT_TRUE(context.SetValue(FullId("ctxMade"), QAnyValue(12)));
    EXPECT_EQ(context.PropertyCount(), 1);
    EXPECT_EQ(StoredValue(context.Answers(), "ctxMade"), QAnyValue(12));
}

TEST(PropertiesCopy, ACopyIsDeepKeepsTheFlagsAndAssignmentRelinks) {
    AnswerContext owner;
    QProperties& original = owner.Answers();
    original.SetPropertyValue(PropId("copyA"), QAnyValue(1));
    original.SetPropertyValue(PropId("copyB"), QAnyValue(2));
    original.SetIsFromTemplate(PropId("copyA"), true);
    original.SetIsFromLibrary(PropId("copyB"), true);
    QProperties copy(original);
    copy.SetPropertyValue(PropId("copyA"), QAnyValue(2));
    EXPECT_EQ(StoredValue(original, "copyA"), QAnyValue(1));
    EXPECT_TRUE(copy.IsFromTemplate(PropId("copyA")));
    AnswerContext other;
    const QProperties moved(original, &other);
    EXPECT_EQ(ContextsOf(moved)[0], &other);

    RecordingRoot root;
    root.SetPropertyValue(PropId("assignOld"), QAnyValue(0));
    root.TakeNotices();
    root.Answers() = original;
    EXPECT_EQ(root.TakeNotices(), c_oneChange);
    EXPECT_EQ(root.FindProperty(PropId("assignOld")), -1);
    EXPECT_EQ(ContextsOf(root.Answers()), (std::vector<const QFormulaContext*>{&root, &root}));
    EXPECT_TRUE(root.Answers().IsSameSpecificationAs(original));
}

TEST(PropertiesCopy, TheSameSpecificationNeedsTheSameOrderButTheHashDoesNot) {
    QProperties first = Bag({{"orderA", 1}, {"orderB", 2}});
    QProperties second = Bag({{"orderB", 2}, {"orderA", 1}});
    EXPECT_FALSE(first.IsSameSpecificationAs(second));
    EXPECT_EQ(first.HashKeyCalc(), second.HashKeyCalc());
    second.RemoveProperty(PropId("orderB"));
    EXPECT_FALSE(first.IsSameSpecificationAs(second));
    EXPECT_TRUE(QProperties().IsSameSpecificationAs(QProperties()));
}

TEST(PropertiesReference, OnlyPlainAnswersEqualToTheReferenceGo) {
    AnswerDocument reference;
    reference.SetPropertyValue(PropId("refSame"), QAnyValue(1));
    reference.SetPropertyValue(PropId("refOther"), QAnyValue(1));
    reference.SetPropertyValue(PropId("refFormula"), QAnyValue(4));
    QProperties bag = Bag({{"refSame", 1}, {"refOther", 2}});
    bag.SetPropertyValueWithFormula(PropId("refFormula"), QAnyValue(4), FormulaText("2 * 2"));
    bag.SetPropertyValue(PropId("refOwn"), QAnyValue(1));

    QPropertyComparator comparator;
    bag.SetPropertyComparator(&comparator);
    bag.RemovePropertiesIfSameAsRef();
    EXPECT_EQ(bag.PropertyCount(), 4) << "a comparator without a reference removes nothing";
    comparator.SetRefFormulaContext(&reference);
    bag.RemovePropertiesIfSameAsRef();
    EXPECT_EQ(KeysOf(bag), (Keys{"refOther", "refFormula", "refOwn"}));
    EXPECT_EQ(bag.FindProperty(PropId("refOwn")), 2);
}

TEST(PropertiesOrigin, DeletingTemplateAndLibraryAnswers) {
    const struct {
        bool library;
        bool includeEdited;
        Keys left;
    } cases[] = {{false, false, {"orgEditedTemplate", "orgLibrary", "orgOwn"}},
                 {false, true, {"orgLibrary", "orgOwn"}},
                 {true, false, {"orgTemplate", "orgEditedTemplate", "orgOwn"}},
                 {true, true, {"orgTemplate", "orgEditedTemplate", "orgOwn"}}};
    for (const auto& c : cases) {
        QProperties bag =
            Bag({{"orgTemplate", 1}, {"orgEditedTemplate", 1}, {"orgLibrary", 1}, {"orgOwn", 1}});
        bag.SetIsFromTemplate(PropId("orgTemplate"), true);
        bag.SetIsFromTemplate(PropId("orgEditedTemplate"), true);
        bag.SetPropertyValue(PropId("orgEditedTemplate"), QAnyValue(2));
        bag.SetIsFromLibrary(PropId("orgLibrary"), true);
        if (c.library)
            bag.DeleteLibraryProperties(c.includeEdited);
        else
            bag.DeleteTemplateProperties(c.includeEdited);
        EXPECT_EQ(KeysOf(bag), c.left) << c.library << c.includeEdited;
        EXPECT_EQ(bag.FindProperty(PropId("orgOwn")), static_cast<int>(c.left.size()) - 1);
    }
}

TEST(PropertiesWalk, InInsertionOrderOrAlphabeticallyAndTheResultIsTheAndOfTheCallbacks) {
    QProperties bag = Bag({{"walkBeta", 1}, {"WALKALPHA", 1}, {"walkGamma", 1}, {"walkdelta", 1}});
    const auto walk = [&bag](bool sorted) {
        Keys keys;
        const bool all = bag.ForEachPropertyDo(
            [&keys](PropId key, const QAnyValue&, FormulaText) {
                keys.push_back(key.ToString().ToUtf8());
                return !(key == PropId("walkGamma"));
            },
            sorted, false);
        EXPECT_FALSE(all);
        return keys;
    };
    EXPECT_EQ(walk(false), (Keys{"walkBeta", "WALKALPHA", "walkGamma", "walkdelta"}));
    EXPECT_EQ(walk(true), (Keys{"WALKALPHA", "walkBeta", "walkdelta", "walkGamma"}));
    EXPECT_TRUE(QProperties().ForEachPropertyDo(
        [](PropId, const QAnyValue&, FormulaText) { return false; }, true, true));
}

TEST(PropertiesWalk, SurvivesACallbackThatRemovesAnswersAndEvaluatesWhenAsked) {
    QProperties bag =
        Bag({{"surA", u"surA"}, {"surB", u"surB"}, {"surC", u"surC"}, {"surD", u"surD"}});
    Keys seen;
    bag.ForEachPropertyDo(
        [&](PropId key, const QAnyValue& value, FormulaText) {
            seen.push_back(key.ToString().ToUtf8() + "=" + QAnyValue(value).MakeCString().ToUtf8());
            if (key == PropId("surA"))
                bag.RemoveProperty(PropId("surC"));
            if (key == PropId("surB"))
                bag.RemoveProperty(PropId("surB"));
            return true;
        },
        false, false);
    EXPECT_EQ(seen, (Keys{"surA=surA", "surB=surB", "surD=surD"}));
    EXPECT_EQ(KeysOf(bag), (Keys{"surA", "surD"}));

    AnswerDocument document;
    document.SetPropertyValueWithFormula(PropId("walkEval"), QAnyValue(0), FormulaText("2 * 3"));
    for (const auto& [evaluate, expected] : {std::pair{false, 0}, {true, 6}}) {
        QAnyValue seenValue;
        document.Answers().ForEachPropertyDo(
            [&seenValue](PropId, const QAnyValue& value, FormulaText formula) {
                EXPECT_EQ(formula.ToString().ToUtf8(), "2 * 3");
                seenValue = value;
                return true;
            },
            false, evaluate);
        EXPECT_EQ(seenValue, QAnyValue(expected));
    }
}

TEST_F(PropertiesTest, MergeOfNothingOrIntoAnEmptyBagOrOfTheSameAnswersAsksNothing) {
    {
        MergeServices services(true);
        QProperties bag = Bag({{"mrgKept", 1}});
        const QProperties empty;
        bag.MergeProperties(nullptr, MERGE_OVERWRITE, true, true, true);
        bag.MergeProperties(&bag, MERGE_OVERWRITE, true, true, true);
        bag.MergeProperties(&empty, MERGE_OVERWRITE, true, true, true);
        EXPECT_EQ(bag.PropertyCount(), 1);
        EXPECT_FALSE(bag.IsFromTemplate(PropId("mrgKept")));
    }
    test::RecordingHost host(IDNO);
    test::ScopedUIServices installed(host);
    MergeServices services(false);
    QProperties source = Bag({{"mrgFirst", 1}, {"mrgSecond", 2}});
    QProperties bag;
    bag.MergeProperties(&source, MERGE_ASK, false, false, false);
    EXPECT_EQ(KeysOf(bag), (Keys{"mrgFirst", "mrgSecond"}));
    EXPECT_EQ(bag.FindProperty(PropId("mrgSecond")), 1);

    // Identical answers are neither asked about nor changed, whatever the stored value.
    QProperties identical = Bag({{"mrgSame", 1}});
    identical.SetPropertyValueWithFormula(PropId("mrgSameFormula"), QAnyValue(3),
                                          FormulaText("1 + 1"));
    QProperties same = Bag({{"mrgSame", 1}});
    same.SetPropertyValueWithFormula(PropId("mrgSameFormula"), QAnyValue(2), FormulaText("1 + 1"));
    same.SetIsFromTemplate(PropId("mrgSame"), true);
    same.MergeProperties(&identical, MERGE_ASK, false, true, false);
    EXPECT_TRUE(host.boxes.empty());
    EXPECT_TRUE(same.IsFromTemplate(PropId("mrgSame")));
    EXPECT_FALSE(same.IsFromLibrary(PropId("mrgSame")));
    EXPECT_EQ(StoredValue(same, "mrgSameFormula"), QAnyValue(2));
    EXPECT_TRUE(Reports().empty());
}

TEST_F(PropertiesTest, MergeAskPutsEachChangeToThePersonOrLogsItWhenAutomated) {
    for (int answer : {IDYES, IDNO}) {
        test::RecordingHost host(answer);
        test::ScopedUIServices installed(host);
        MergeServices services(false);
        QProperties source = Bag({{"mrgColour", u"new"}});
        QProperties bag = Bag({{"mrgColour", u"old"}});
        bag.MergeProperties(&source, MERGE_ASK, true, false, false);
        EXPECT_EQ(host.boxes, Keys{"Change answer for 'mrgColour'\nfrom old\nto new"});
        EXPECT_EQ(host.boxFlags.at(0) & MB_TYPEMASK, MB_YESNO);
        EXPECT_EQ(StoredValue(bag, "mrgColour"), QAnyValue(answer == IDYES ? u"new" : u"old"));
        EXPECT_EQ(bag.IsFromTemplate(PropId("mrgColour")), answer == IDYES);
        EXPECT_TRUE(Reports().empty());
    }
    MergeServices services(true);
    QProperties source = Bag({{"mrgLogged", 2}});
    source.SetPropertyValueWithFormula(PropId("mrgLoggedFormula"), QAnyValue(3),
                                       FormulaText("1 + 2"));
    QProperties bag = Bag({{"mrgLogged", 1}, {"mrgLoggedFormula", 3}});
    bag.MergeProperties(&source, MERGE_ASK, false, false, false);
    EXPECT_EQ(StoredValue(bag, "mrgLogged"), QAnyValue(2));
    EXPECT_EQ(FormulaOf(bag, "mrgLoggedFormula"), "1 + 2");
    EXPECT_EQ(Reports(), (std::vector<Report>{
                             {"Recalc", "Changed answer for 'mrgLogged'\nfrom 1\nto 2"},
                             {"Recalc", "Changed answer for 'mrgLoggedFormula'\nfrom 3\nto 3"}}));
}

TEST_F(PropertiesTest, OverwriteAndKeepExistingWithAndWithoutTheDeletionMarker) {
    for (const auto& [strategy, shared] :
         {std::pair{MERGE_OVERWRITE, 2}, {MERGE_KEEP_EXISTING, 1}}) {
        test::RecordingHost host(IDNO);
        test::ScopedUIServices installed(host);
        MergeServices services(false);
        QProperties source = Bag({{"mrgShared", 2}, {"mrgAdded", 3}});
        QProperties bag = Bag({{"mrgShared", 1}});
        bag.MergeProperties(&source, strategy, false, false, false);
        EXPECT_TRUE(host.boxes.empty());
        EXPECT_EQ(StoredValue(bag, "mrgShared"), QAnyValue(shared)) << strategy;
        EXPECT_EQ(StoredValue(bag, "mrgAdded"), QAnyValue(3)) << strategy;
        EXPECT_TRUE(Reports().empty());
    }
    // The marker removes only what a template gave; under keep-existing it is stored for a new
    // key.
    QProperties source;
    for (const char* key : {"dmTemplate", "dmOwn", "dmMissing"})
        source.SetPropertyValueWithFormula(PropId(key), QAnyValue(), FormulaText(":deleteme:"));
    QProperties bag = Bag({{"dmTemplate", 1}, {"dmOwn", 2}});
    bag.SetIsFromTemplate(PropId("dmTemplate"), true);
    bag.MergeProperties(&source, MERGE_OVERWRITE, false, false, false);
    EXPECT_EQ(KeysOf(bag), (Keys{"dmOwn"}));
    EXPECT_EQ(StoredValue(bag, "dmOwn"), QAnyValue(2));

    QProperties marked;
    marked.SetPropertyValueWithFormula(PropId("dmKeepNew"), QAnyValue(), FormulaText(":DeleteMe:"));
    marked.SetPropertyValueWithFormula(PropId("dmKeepOld"), QAnyValue(), FormulaText(":DeleteMe:"));
    QProperties kept = Bag({{"dmKeepOld", 1}});
    kept.SetIsFromTemplate(PropId("dmKeepOld"), true);
    kept.MergeProperties(&marked, MERGE_KEEP_EXISTING, false, false, false);
    EXPECT_EQ(KeysOf(kept), (Keys{"dmKeepOld", "dmKeepNew"}));
    EXPECT_EQ(CString::FromUtf8(FormulaOf(kept, "dmKeepNew")).CompareNoCase(u":DeleteMe:"), 0);
    EXPECT_TRUE(FormulaOf(kept, "dmKeepOld").empty());
}

TEST_F(PropertiesTest, MergedAnswersTakeTheirOriginFlagsAndAMergeReadsWithoutEvaluating) {
    const struct {
        bool asTemplate, asLibrary, keepOrigin, fromTemplate, fromLibrary;
    } cases[] = {{false, false, false, false, false},
                 {true, false, false, true, false},
                 {false, true, false, false, true},
                 {false, false, true, true, false}};
    for (const auto& c : cases) {
        QProperties source = Bag({{"flagNew", 1}});
        source.SetIsFromTemplate(PropId("flagNew"), true);
        QProperties bag = Bag({{"flagOld", 1}});
        bag.SetIsFromTemplate(PropId("flagOld"), true);
        bag.SetIsFromLibrary(PropId("flagOld"), true);
        bag.MergeProperties(&source, MERGE_OVERWRITE, c.asTemplate, c.asLibrary, c.keepOrigin);
        EXPECT_EQ(bag.IsFromTemplate(PropId("flagNew")), c.fromTemplate);
        EXPECT_EQ(bag.IsFromLibrary(PropId("flagNew")), c.fromLibrary);
        EXPECT_TRUE(bag.IsFromTemplate(PropId("flagOld")));
        EXPECT_TRUE(bag.IsFromLibrary(PropId("flagOld")));
    }
    AnswerDocument document;
    document.SetPropertyValueWithFormula(PropId("mrgLazy"), QAnyValue(1), FormulaText("40 + 2"));
    QProperties lazy;
    lazy.MergeProperties(&document.Answers(), MERGE_OVERWRITE, false, false, false);
    EXPECT_EQ(StoredValue(lazy, "mrgLazy"), QAnyValue(1));
    EXPECT_EQ(StoredValue(document.Answers(), "mrgLazy"), QAnyValue(1));
}

class PropertiesCleanupTest : public PropertiesTest {
protected:
    void SetUp() override {
        PropertiesTest::SetUp();
        m_options = std::filesystem::temp_directory_path() /
                    ("keel-properties-options-" + std::to_string(::getpid()) + ".ini");
        std::filesystem::remove(m_options);
        CRegistry::SetCurrentFile(CString::FromUtf8(m_options.string()));
        QProperties::ReloadCatalogCleanupOptions();
        QProperties::c_WhoAmIContext = u"Kitchen";
    }
    void TearDown() override {
        CRegistry::SetCurrentFile(CString());
        std::filesystem::remove(m_options);
        QProperties::ReloadCatalogCleanupOptions();
        QProperties::c_WhoAmIContext = CString();
        PropertiesTest::TearDown();
    }

    std::filesystem::path m_options;
};

TEST_F(PropertiesCleanupTest, WithQuestionsAnAnswerWithoutAControllerGoes) {
    QProperties bag = Bag({{"ctlAsked", 1}, {"ctlOrphan", 1}});
    bag.SetPropertyValueWithFormula(PropId("ctlOrphanFormula"), QAnyValue(2), FormulaText("1+1"));
    QPropDefTabGroupSet questions;
    const QPropDefTabGroup main =
        test::Group("Main", {test::Tab("Sizes", {"CTLASKED"}), test::Tab("Other", {"ctlOther"})});
    questions.Add(&main);
    EXPECT_EQ(bag.CatalogCleanup(&questions), 1);
    EXPECT_EQ(KeysOf(bag), (Keys{"ctlAsked", "ctlOrphanFormula"}));
    EXPECT_EQ(Reports(),
              (std::vector<Report>{
                  {"Cleanup", "Catalog Cleanup of Kitchen deleted key=[ctlOrphan] value=[1]"}}));
}

// Each answer keeps key, value, formula, a byte of flags (template, library, description,
// edited) and the description when it has one.
TEST(PropertiesArchive, TheBytesOfABagAndTheirRoundTrip) {
    QProperties bag = Bag({{"bagFirst", 0}});
    bag.SetIsFromLibrary(PropId("bagFirst"), true);
    bag.SetPropertyValue(PropId("bagFirst"), QAnyValue(1));
    bag.SetPropertyValueWithFormula(PropId("bagSecond"), QAnyValue(u"x"), FormulaText("bagFirst"));
    bag.SetPropertyDesc(PropId("bagSecond"), QStringUnique("second"));
    EXPECT_EQ(BagStored(bag), Concat({{0x02, 0x00},
                                      PropBytes(u"bagFirst", IntValue(1), u"", 0x02 | 0x08),
                                      PropBytes(u"bagSecond", StringValue(u"x"), u"bagFirst", 0x04),
                                      WideString(u"second")}));

    QProperties mixed = Bag({{"rtLength", QAnyValue(QLength::FromRaw(1234.5))}});
    mixed.SetPropertyValueWithFormula(PropId("rtFormula"), QAnyValue(7), FormulaText("3 + 4"));
    mixed.SetPropertyValue(PropId("rtText"), QAnyValue(u"=not upgraded"));
    mixed.SetIsFromTemplate(PropId("rtText"), true);
    mixed.SetPropertyValue(PropId("rtText"), QAnyValue(u"=edited"));
    mixed.SetIsFromLibrary(PropId("rtLength"), true);
    mixed.SetPropertyDesc(PropId("rtFormula"), QStringUnique("seven"));
    const Bytes bytes = BagStored(mixed);
    QProperties loaded;
    Load(bytes, 120, loaded);
    EXPECT_TRUE(loaded.IsSameSpecificationAs(mixed));
    EXPECT_EQ(BagStored(loaded), bytes);
}

TEST(PropertiesArchive, AnOldBagHandsItsSchemaToEachAnswer) {
    const Bytes bytes =
        Concat({{0x01, 0x00}, PropBytes(u"oldText", StringValue(u":  oldLen * 2 "), u"", 0x00)});
    QProperties loaded;
    Load(bytes, 108, loaded);
    EXPECT_EQ(StoredValue(loaded, "oldText"), QAnyValue(u":oldLen * 2"));
}

TEST(PropertiesArchive, LoadingRelinksEveryAnswerAndAReferenceLeavesOutWhatItGivesAnyway) {
    QProperties source = Bag({{"relinkA", 1}, {"relinkB", 2}});
    RecordingRoot root;
    root.SetPropertyValue(PropId("relinkGone"), QAnyValue(0));
    root.TakeNotices();
    Load(BagStored(source), 120, root.Answers());
    EXPECT_EQ(root.TakeNotices(), (Notices{"pre", "changed", "pre", "changed"}));
    EXPECT_EQ(KeysOf(root.Answers()), (Keys{"relinkA", "relinkB"}));
    EXPECT_EQ(root.FindProperty(PropId("relinkB")), 1);
    EXPECT_EQ(ContextsOf(root.Answers()), (std::vector<const QFormulaContext*>{&root, &root}));

    AnswerDocument reference;
    reference.SetPropertyValue(PropId("savedSame"), QAnyValue(1));
    QProperties bag = Bag({{"savedSame", 1}, {"savedOwn", 2}});
    QPropertyComparator comparator(&reference);
    bag.SetPropertyComparator(&comparator);
    EXPECT_EQ(BagStored(bag),
              Concat({{0x01, 0x00}, PropBytes(u"savedOwn", IntValue(2), u"", 0x00)}));
    EXPECT_EQ(bag.PropertyCount(), 2);
}

} // namespace
} // namespace keel
