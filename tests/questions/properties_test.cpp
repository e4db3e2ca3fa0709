#include "keel/document/appservices.h"
#include "keel/document/errorlog.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"
#include "keel/formula/toplevelcontext.h"
#include "keel/formula/withformula.h"
#include "keel/platform/archive.h"
#include "keel/platform/file.h"
#include "keel/platform/registry.h"
#include "keel/platform/uiservices.h"
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

using Bytes = std::vector<std::uint8_t>;

// --- Contexts that own answers -----------------------------------------------------------------

// A context whose answers are a QProperties of its own.
class AnswerContext : public QFormulaContext {
public:
    explicit AnswerContext(const char* type = "Box") : m_type(type) {}

    CString SimpleTypeName() const override { return m_type; }
    QProperties* Properties() const override { return &m_answers; }
    QFormulaContext* ParentContext() override { return m_parent; }
    const QFormulaContext* ParentContext() const override { return m_parent; }
    void DoSetParentContextAlways(QFormulaContext* parent) override { m_parent = parent; }

    QProperties& Answers() { return m_answers; }

private:
    CString m_type;
    QFormulaContext* m_parent = nullptr;
    mutable QProperties m_answers{this};
};

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

    std::vector<std::string> TakeNotices() { return std::exchange(m_notices, {}); }

private:
    QState m_sync;
    std::vector<std::string> m_notices;
};

// The top-level context of an application, with the two helpers that the application writes.
class AnswerDocument : public QTopLevelFormulaContext {
public:
    CString SimpleTypeName() const override { return u"Document"; }
    QProperties* Properties() const override { return &m_answers; }
    void ProcessPreChangeFromChildHelper() override { ++m_preChanges; }
    void ProcessChangedFromChildHelper() override { ++m_changes; }

    QProperties& Answers() { return m_answers; }

    int m_preChanges = 0;
    int m_changes = 0;

private:
    mutable QProperties m_answers{this};
};

// A user-interface host with a display, whose boxes answer as told and are written down.
class DisplayHost : public CHeadlessUIServices {
public:
    explicit DisplayHost(int answer) : m_answer(answer) {}
    bool HasDisplay() const override { return true; }
    int MessageBox(const CString& text, const CString&, unsigned flags) override {
        m_boxes.push_back(text.ToUtf8());
        m_flags.push_back(flags);
        return m_answer;
    }

    std::vector<std::string> m_boxes;
    std::vector<unsigned> m_flags;

private:
    int m_answer;
};

class ScopedUIServices {
public:
    explicit ScopedUIServices(IUIServices& host) { SetUIServices(&host); }
    ~ScopedUIServices() { SetUIServices(nullptr); }
    ScopedUIServices(const ScopedUIServices&) = delete;
    ScopedUIServices& operator=(const ScopedUIServices&) = delete;
};

// Application services that write down the progress display and say what they are told to.
class RecordingMergeServices : public QAppServices {
public:
    RecordingMergeServices(bool automated, bool messages)
        : m_automated(automated), m_messages(messages) {
        m_previous = SetAppServices(this);
    }
    ~RecordingMergeServices() override { SetAppServices(m_previous); }
    RecordingMergeServices(const RecordingMergeServices&) = delete;
    RecordingMergeServices& operator=(const RecordingMergeServices&) = delete;

    bool IsRunningAutomated() const override { return m_automated; }
    bool ShowsMergingMessages() const override { return m_messages; }
    int ProgressCreate(const CString& text, int low, int high, bool /*cancellable*/) override {
        m_events.push_back("create " + text.ToUtf8() + " " + std::to_string(low) + ".." +
                           std::to_string(high));
        return 7;
    }
    bool ProgressStepIt(int handle) override {
        m_events.push_back("step " + std::to_string(handle));
        return true;
    }
    void ProgressDestroy(int handle, const CString& text, bool /*redraw*/) override {
        m_events.push_back("destroy " + std::to_string(handle) + " " + text.ToUtf8());
    }

    std::vector<std::string> m_events;

private:
    QAppServices* m_previous = nullptr;
    bool m_automated;
    bool m_messages;
};

// --- Helpers
// --------------------------------------------------------------------------------------

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

std::vector<std::string> KeysOf(const QProperties& bag) {
    std::vector<std::string> keys;
    for (int i = 0; i < bag.PropertyCount(); ++i) {
        PropId key;
        FormulaText formula;
        bag.GetAtPropertyFormula(i, key, formula);
        keys.push_back(key.ToString().ToUtf8());
    }
    return keys;
}

QProp MakeProp(const char* key, const QAnyValue& value, const char* formula = nullptr) {
    return QProp(PropId(key), QWithFormula<QAnyValue>(
                                  nullptr, value, formula ? FormulaText(formula) : FormulaText()));
}

void Append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

// A counted wide string of the archive: 0xFF, 0xFFFE, a one-byte length, two bytes a unit.
Bytes Wide(const std::u16string& text) {
    Bytes bytes{0xFF, 0xFE, 0xFF, static_cast<std::uint8_t>(text.size())};
    for (char16_t unit : text) {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return bytes;
}

Bytes IntValue(std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    return {0x03, static_cast<std::uint8_t>(bits), static_cast<std::uint8_t>(bits >> 8),
            static_cast<std::uint8_t>(bits >> 16), static_cast<std::uint8_t>(bits >> 24)};
}

Bytes StringValue(const std::u16string& text) {
    Bytes bytes{0x01};
    Append(bytes, Wide(text));
    return bytes;
}

template <class Value>
Bytes StoredBytes(const Value& value) {
    CMemFile file;
    CArchive archive(&file, CArchive::store);
    archive << value;
    archive.Close();
    return file.Bytes();
}

template <class Value>
void LoadBytes(const Bytes& bytes, unsigned schema, Value& value) {
    CMemFile file(bytes);
    CArchive archive(&file, CArchive::load);
    archive.SetObjectSchema(schema);
    archive >> value;
    EXPECT_TRUE(archive.IsBufferEmpty()) << "bytes were left unread";
}

Bytes SerializedBytes(QProperties& bag) {
    CMemFile file;
    CArchive archive(&file, CArchive::store);
    bag.Serialize(archive);
    archive.Close();
    return file.Bytes();
}

void Deserialize(const Bytes& bytes, unsigned schema, QProperties& bag) {
    CMemFile file(bytes);
    CArchive archive(&file, CArchive::load);
    archive.SetObjectSchema(schema);
    bag.Serialize(archive);
    EXPECT_TRUE(archive.IsBufferEmpty()) << "bytes were left unread";
}

struct Report {
    std::string heading;
    std::string message;
    bool operator==(const Report&) const = default;
};

void PrintTo(const Report& report, std::ostream* out) {
    *out << report.heading << ": " << report.message;
}

// Keeps the error log's queue empty around each test and reads what was reported.
class PropertiesTest : public testing::Test {
protected:
    void SetUp() override {
        QErrorLog& log = TheErrorLog();
        if (!log.IsOpen())
            log.SetFilename(
                CString::FromUtf8((std::filesystem::temp_directory_path() /
                                   ("keel-properties-" + std::to_string(::getpid()) + ".txt"))
                                      .string()));
        log.DiscardPendingMessages();
    }
    void TearDown() override { TheErrorLog().DiscardPendingMessages(); }

    static std::vector<Report> Reports() {
        std::vector<Report> reports;
        QErrorLog& log = TheErrorLog();
        for (int i = 0; i < log.GetSize(); ++i)
            reports.push_back({log.ErrorType(i)->Description().ToUtf8(), log.Message(i).ToUtf8()});
        return reports;
    }
};

// --- QProp
// ----------------------------------------------------------------------------------------

TEST(PropBasics, ADefaultPropertyHasNothing) {
    const QProp prop;
    EXPECT_EQ(prop.Key().UniqueId(), -1);
    EXPECT_FALSE(prop.HasKey());
    EXPECT_TRUE(prop.Formula().IsEmpty());
    EXPECT_TRUE(prop.ValueWithFormula().ValueNoEnsureUpToDate().IsEmpty());
    EXPECT_FALSE(prop.IsFromTemplate());
    EXPECT_FALSE(prop.IsFromLibrary());
    EXPECT_FALSE(prop.IsEdited());
    EXPECT_EQ(prop.Desc().UniqueId(), -1);
    EXPECT_EQ(prop.ParentContext(), nullptr);
}

TEST(PropBasics, KeysThatDifferOnlyInCaseAreOneKey) {
    const QProp lower = MakeProp("propcasekey", 1);
    const QProp upper = MakeProp("PROPCASEKEY", 2);
    EXPECT_TRUE(lower.SameKeyAs(upper));
}

TEST(PropBasics, SettingAnAnswerFromATemplateOrLibraryMarksItEdited) {
    struct Case {
        bool fromTemplate;
        bool fromLibrary;
        bool edited;
    };
    for (const Case& c : {Case{false, false, false}, Case{true, false, true},
                          Case{false, true, true}, Case{true, true, true}}) {
        QProp prop = MakeProp("propedited", 1);
        prop.SetIsFromTemplate(c.fromTemplate);
        prop.SetIsFromLibrary(c.fromLibrary);
        prop.SetValueWithFormula(QAnyValue(2), FormulaText());
        EXPECT_EQ(prop.IsEdited(), c.edited) << c.fromTemplate << c.fromLibrary;
    }
}

TEST(PropBasics, SetValueDropsTheFormulaAndSetFormulaKeepsTheValue) {
    QProp prop = MakeProp("propsetters", 3, "1 + 2");
    prop.SetValue(QAnyValue(4));
    EXPECT_TRUE(prop.Formula().IsEmpty());
    EXPECT_EQ(prop.ValueWithFormula().ValueNoEnsureUpToDate(), QAnyValue(4));
    prop.SetFormula(FormulaText("2 + 2"));
    EXPECT_EQ(prop.Formula().ToString().ToUtf8(), "2 + 2");
    EXPECT_EQ(prop.ValueWithFormula().ValueNoEnsureUpToDate(), QAnyValue(4));
}

TEST(PropBasics, AssignmentClearsTheOriginFlagsAndCopyingKeepsThem) {
    QProp source = MakeProp("proporigin", 1);
    source.SetIsFromTemplate(true);
    source.SetIsFromLibrary(true);
    source.SetValueWithFormula(QAnyValue(2), FormulaText());
    source.SetDesc(QStringUnique("the origin"));
    ASSERT_TRUE(source.IsEdited());

    const QProp copied(source);
    EXPECT_TRUE(copied.IsFromTemplate());
    EXPECT_TRUE(copied.IsFromLibrary());
    EXPECT_TRUE(copied.IsEdited());

    QProp assigned;
    assigned = source;
    EXPECT_FALSE(assigned.IsFromTemplate());
    EXPECT_FALSE(assigned.IsFromLibrary());
    EXPECT_TRUE(assigned.IsEdited());
    EXPECT_TRUE(assigned.SameKeyAs(source));
    EXPECT_EQ(assigned.Desc(), source.Desc());
    EXPECT_EQ(assigned.ValueWithFormula().ValueNoEnsureUpToDate(), QAnyValue(2));
}

TEST(PropBasics, AssignmentTakesTheSourcesContextOnlyWithoutOneOfItsOwn) {
    AnswerContext first;
    AnswerContext second;
    QProp source(PropId("propcontext"), QWithFormula<QAnyValue>(&first, QAnyValue(1)));

    QProp orphan;
    orphan = source;
    EXPECT_EQ(orphan.ParentContext(), &first);

    QProp settled(PropId("propcontext"), QWithFormula<QAnyValue>(&second, QAnyValue(0)));
    settled = source;
    EXPECT_EQ(settled.ParentContext(), &second);
}

TEST(PropBasics, ChangesUnderARootAreAnnouncedUnlessTheValueIsIdentical) {
    RecordingRoot root;
    QProp prop(PropId("propnotice"), QWithFormula<QAnyValue>(&root, QAnyValue(1)));

    prop.SetValueWithFormula(QAnyValue(1), FormulaText());
    EXPECT_TRUE(root.TakeNotices().empty());

    prop.SetValueWithFormula(QAnyValue(2), FormulaText());
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed"}));

    prop.SetValueWithFormula(QAnyValue(2), FormulaText("1 + 1"));
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed"}));
}

TEST(PropBasics, ANewParentContextHearsOfTheChangeAndDetachingIsSilent) {
    RecordingRoot root;
    QProp prop = MakeProp("propparent", 1);

    prop.SetParentContext(&root);
    EXPECT_EQ(prop.ParentContext(), &root);
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed"}));

    prop.SetParentContext(&root);
    EXPECT_TRUE(root.TakeNotices().empty());

    prop.SetParentContext(nullptr);
    EXPECT_EQ(prop.ParentContext(), nullptr);
    EXPECT_TRUE(root.TakeNotices().empty());

    prop.DoSetParentContext(&root);
    EXPECT_EQ(prop.ParentContext(), &root);
    EXPECT_TRUE(root.TakeNotices().empty());
}

TEST(PropSpecification, WhatMakesTwoPropertiesTheSame) {
    struct Case {
        const char* what;
        QProp other;
        bool same;
    };
    const QProp base = MakeProp("propsame", 5);
    QProp withTemplate = base;
    withTemplate.SetIsFromTemplate(true);
    QProp withDesc = base;
    withDesc.SetDesc(QStringUnique("described"));
    QProp edited = base;
    edited.SetIsFromLibrary(true);
    edited.SetValueWithFormula(QAnyValue(5), FormulaText());
    edited.SetIsFromLibrary(false);

    const Case cases[] = {
        {"identical value", MakeProp("propsame", 5), true},
        {"other value", MakeProp("propsame", 6), false},
        {"other type", MakeProp("propsame", 5.0), false},
        {"other key", MakeProp("propsame2", 5), false},
        {"a formula against none", MakeProp("propsame", 5, "5"), false},
        {"template flag", withTemplate, false},
        {"description", withDesc, false},
        {"edited flag", edited, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(base.IsSameSpecificationAs(c.other), c.same) << c.what;
        EXPECT_EQ(c.other.IsSameSpecificationAs(base), c.same) << c.what;
    }
}

TEST(PropSpecification, EqualFormulasMakeTheSameSpecificationWhateverTheValues) {
    EXPECT_TRUE(MakeProp("propformula", 1, "a + b")
                    .IsSameSpecificationAs(MakeProp("propformula", 2, "a + b")));
    EXPECT_FALSE(MakeProp("propformula", 1, "a + b")
                     .IsSameSpecificationAs(MakeProp("propformula", 1, "a + c")));
}

TEST(PropHash, TheIntegerHashOfAFlagBit) {
    EXPECT_EQ(ScalarHashKey(1), 16807u);
    EXPECT_EQ(ScalarHashKey(0), 0u);
}

TEST(PropHash, SumsKeyFormulaDescriptionAndFlags) {
    const PropId key("prophash");
    const FormulaText formula("prophash * 2");
    const QStringUnique desc("hash description");
    QProp prop(key, QWithFormula<QAnyValue>(nullptr, QAnyValue(9), formula), desc);
    prop.SetIsFromTemplate(true);
    prop.SetIsFromLibrary(true);
    prop.SetValueWithFormula(QAnyValue(9), formula);
    ASSERT_TRUE(prop.IsEdited());

    const unsigned expected = static_cast<unsigned>(key.UniqueId()) +
                              static_cast<unsigned>(formula.UniqueId()) +
                              static_cast<unsigned>(desc.UniqueId()) + 3 * 16807u;
    EXPECT_EQ(prop.HashKeyCalc(), expected);
}

TEST(PropHash, WithoutAFormulaTheValuesHashCounts) {
    const PropId key("prophashvalue");
    const QProp prop = MakeProp("prophashvalue", 5);
    // No description is index -1; an integer hashes to one Lehmer step, 5 * 16807.
    const unsigned expected = static_cast<unsigned>(key.UniqueId()) + 84035u - 1u;
    EXPECT_EQ(prop.HashKeyCalc(), expected);
}

// --- The archive form of one property
// --------------------------------------------------------------

TEST(PropArchive, TheBytesOfAProperty) {
    QProp prop(PropId("archDepth"), QWithFormula<QAnyValue>(nullptr, QAnyValue(5)),
               QStringUnique("Depth"));
    prop.SetIsFromTemplate(true);
    prop.SetValueWithFormula(QAnyValue(5), FormulaText());
    prop.SetIsFromTemplate(false);
    prop.SetIsFromLibrary(true);

    Bytes expected = Wide(u"archDepth");
    Append(expected, IntValue(5));
    Append(expected, Wide(u""));
    expected.push_back(0x02 | 0x04 | 0x08);
    Append(expected, Wide(u"Depth"));
    EXPECT_EQ(StoredBytes(prop), expected);
}

TEST(PropArchive, AFormulaAndNoDescription) {
    const QProp prop = MakeProp("archWidth", 0, "archDepth * 2");
    Bytes expected = Wide(u"archWidth");
    Append(expected, IntValue(0));
    Append(expected, Wide(u"archDepth * 2"));
    expected.push_back(0x00);
    EXPECT_EQ(StoredBytes(prop), expected);
}

TEST(PropArchive, ReadsBackWhatItWrote) {
    QProp prop(PropId("archRound"),
               QWithFormula<QAnyValue>(nullptr, QAnyValue(u"text"), FormulaText("archRound + 1")),
               QStringUnique("round trip"));
    prop.SetIsFromTemplate(true);
    prop.SetValueWithFormula(QAnyValue(u"text"), FormulaText("archRound + 2"));

    const Bytes bytes = StoredBytes(prop);
    QProp loaded;
    LoadBytes(bytes, 120, loaded);
    EXPECT_TRUE(loaded.IsSameSpecificationAs(prop));
    EXPECT_EQ(StoredBytes(loaded), bytes);
}

Bytes PropBytes(const std::u16string& key, const Bytes& value, const std::u16string& formula,
                std::uint8_t flags) {
    Bytes bytes = Wide(key);
    Append(bytes, value);
    Append(bytes, Wide(formula));
    bytes.push_back(flags);
    return bytes;
}

TEST(PropArchive, TheEditedBitCountsFromSchema114) {
    const Bytes bytes = PropBytes(u"archEdited", IntValue(1), u"", 0x01 | 0x08);
    struct Case {
        unsigned schema;
        bool edited;
    };
    for (const Case& c : {Case{113, false}, Case{114, true}, Case{200, true}}) {
        QProp loaded;
        LoadBytes(bytes, c.schema, loaded);
        EXPECT_TRUE(loaded.IsFromTemplate()) << c.schema;
        EXPECT_EQ(loaded.IsEdited(), c.edited) << c.schema;
    }
}

TEST(PropArchive, TheFlagsByteOverridesTheEditedMarkOfReading) {
    QProp loaded = MakeProp("archOverride", 1);
    loaded.SetIsFromTemplate(true);
    LoadBytes(PropBytes(u"archOverride", IntValue(2), u"", 0x01), 120, loaded);
    EXPECT_TRUE(loaded.IsFromTemplate());
    EXPECT_FALSE(loaded.IsEdited());
}

TEST(PropArchive, StringFormulasBeforeSchema109AreUpgraded) {
    struct Case {
        unsigned schema;
        std::u16string stored;
        std::u16string formula;
        std::string expected;
    };
    const Case cases[] = {
        {108, u":  archLen * 2 ", u"", ":archLen * 2"},
        {108, u"=  archLen", u"", "=archLen"},
        {108, u"  plain text", u"", "  plain text"},
        {108, u": archLen", u"archLen", ": archLen"},
        {109, u":  archLen * 2 ", u"", ":  archLen * 2 "},
    };
    for (const Case& c : cases) {
        QProp loaded;
        LoadBytes(PropBytes(u"archUpgrade", StringValue(c.stored), c.formula, 0), c.schema, loaded);
        EXPECT_EQ(loaded.ValueWithFormula().ValueNoEnsureUpToDate().AsStringOrFormula().ToUtf8(),
                  c.expected)
            << c.schema;
    }
}

TEST(PropArchive, UpgradingLeavesOtherTextAlone) {
    EXPECT_EQ(UpgradeFormulaBearingText(u"no formula").ToUtf8(), "no formula");
    EXPECT_EQ(UpgradeFormulaBearingText(u"").ToUtf8(), "");
    EXPECT_EQ(UpgradeFormulaBearingText(u"=").ToUtf8(), "=");
    EXPECT_EQ(UpgradeFormulaBearingText(u":\t a  +  b").ToUtf8(), ":a  +  b");
}

// --- QProperties: keys, values and indexes
// --------------------------------------------------------

TEST(PropertiesKeys, NewKeysAreAppendedInOrderAndFound) {
    QProperties bag;
    bag.SetPropertyValue(PropId("keysWidth"), QAnyValue(1));
    bag.SetPropertyValue(PropId("keysDepth"), QAnyValue(2));
    bag.SetPropertyValue(PropId("KEYSWIDTH"), QAnyValue(3));
    EXPECT_EQ(bag.PropertyCount(), 2);
    EXPECT_EQ(bag.FindProperty(PropId("keysdepth")), 1);
    EXPECT_EQ(StoredValue(bag, "keysWidth"), QAnyValue(3));
    EXPECT_EQ(bag.FindProperty(PropId("keysHeight")), -1);
    EXPECT_FALSE(bag.HasProperty(PropId("keysHeight")));
}

TEST(PropertiesKeys, ANegativeKeyIsIgnored) {
    QProperties bag;
    bag.SetPropertyValue(PropId(), QAnyValue(1));
    bag.SetProperty(PropId(), MakeProp("keysIgnored", 1));
    EXPECT_EQ(bag.PropertyCount(), 0);
}

TEST(PropertiesKeys, RemovalsKeepTheLookUpRight) {
    QProperties bag;
    for (const char* key : {"rmA", "rmB", "rmC", "rmD"})
        bag.SetPropertyValue(PropId(key), QAnyValue(CString(key)));
    bag.RemoveProperty(PropId("rmB"));
    bag.RemoveAtProperty(0);
    bag.RemoveAtProperty(7);
    bag.RemoveProperty(PropId("rmMissing"));
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"rmC", "rmD"}));
    EXPECT_EQ(bag.FindProperty(PropId("rmD")), 1);
    EXPECT_EQ(bag.FindProperty(PropId("rmA")), -1);
    bag.SetPropertyValue(PropId("rmE"), QAnyValue(5));
    EXPECT_EQ(bag.FindProperty(PropId("rmE")), 2);
    bag.RemoveAllProperties();
    EXPECT_EQ(bag.PropertyCount(), 0);
    EXPECT_EQ(bag.FindProperty(PropId("rmD")), -1);
}

TEST(PropertiesGetters, AMissingKeyClearsTheValueAndTheErrorFlag) {
    QProperties bag;
    QAnyValue value(7);
    bool error = true;
    QCacheState state = QCS_BySeq;
    EXPECT_FALSE(bag.GetPropertyValue(PropId("getMissing"), value, error, &state));
    EXPECT_TRUE(value.IsEmpty());
    EXPECT_FALSE(error);
    EXPECT_EQ(state, QCS_BySeq);

    FormulaText formula;
    QStringUnique desc;
    QProp prop;
    EXPECT_FALSE(bag.GetPropertyFormula(PropId("getMissing"), formula));
    EXPECT_FALSE(bag.GetPropertyDesc(PropId("getMissing"), desc));
    EXPECT_FALSE(bag.GetProperty(PropId("getMissing"), prop));
    EXPECT_FALSE(bag.IsFromTemplate(PropId("getMissing")));
    EXPECT_FALSE(bag.IsFromLibrary(PropId("getMissing")));
}

TEST(PropertiesGetters, AnIndexOutOfRangeGivesKeyMinusOne) {
    QProperties bag;
    bag.SetPropertyValue(PropId("getOnly"), QAnyValue(1));
    for (int index : {-1, 1, 5}) {
        PropId key("getOnly");
        QAnyValue value(3);
        FormulaText formula;
        QStringUnique desc;
        bool error = false;
        EXPECT_FALSE(bag.GetAtPropertyValue(index, key, value, error, nullptr));
        EXPECT_EQ(key.UniqueId(), -1);
        EXPECT_TRUE(value.IsEmpty());

        key = PropId("getOnly");
        EXPECT_FALSE(bag.GetAtPropertyFormula(index, key, formula));
        EXPECT_EQ(key.UniqueId(), -1);
        key = PropId("getOnly");
        EXPECT_FALSE(bag.GetAtPropertyDesc(index, key, desc));
        EXPECT_EQ(key.UniqueId(), -1);
        key = PropId("getOnly");
        EXPECT_FALSE(
            bag.GetAtPropertyValueWithFormulaWithNoEnsureUpToDate(index, key, value, formula));
        EXPECT_EQ(key.UniqueId(), -1);
    }
}

TEST(PropertiesGetters, GetPropertyCopiesTheAnswerWithItsFlags) {
    QProperties bag;
    bag.SetPropertyValue(PropId("getCopy"), QAnyValue(4));
    bag.SetPropertyDesc(PropId("getCopy"), QStringUnique("copied"));
    bag.SetIsFromTemplate(PropId("getCopy"), true);
    bag.SetIsFromLibrary(PropId("getCopy"), true);
    QProp prop;
    ASSERT_TRUE(bag.GetProperty(PropId("getCopy"), prop));
    EXPECT_TRUE(prop.IsFromTemplate());
    EXPECT_TRUE(prop.IsFromLibrary());
    EXPECT_EQ(prop.Desc().ToString().ToUtf8(), "copied");
    EXPECT_EQ(prop.ValueWithFormula().ValueNoEnsureUpToDate(), QAnyValue(4));
}

TEST(PropertiesGetters, DescriptionsAreSetOnExistingAnswersOnly) {
    QProperties bag;
    bag.SetPropertyDesc(PropId("descLater"), QStringUnique("nobody"));
    EXPECT_EQ(bag.PropertyCount(), 0);
    bag.SetPropertyValue(PropId("descLater"), QAnyValue(1));
    bag.SetAtPropertyDesc(0, PropId("descOther"), QStringUnique("wrong key"));
    QStringUnique desc;
    ASSERT_TRUE(bag.GetPropertyDesc(PropId("descLater"), desc));
    EXPECT_EQ(desc.UniqueId(), -1);
    bag.SetAtPropertyDesc(0, PropId("descLater"), QStringUnique("by index"));
    ASSERT_TRUE(bag.GetPropertyDesc(PropId("descLater"), desc));
    EXPECT_EQ(desc.ToString().ToUtf8(), "by index");
}

TEST(PropertiesGetters, SetPropertyTakesTheDescriptionButNotTheFlags) {
    QProperties bag;
    QProp prop = MakeProp("setWhole", 3, "1 + 2");
    prop.SetDesc(QStringUnique("whole"));
    prop.SetIsFromTemplate(true);
    bag.SetProperty(PropId("setWhole"), prop);
    EXPECT_EQ(FormulaOf(bag, "setWhole"), "1 + 2");
    EXPECT_EQ(StoredValue(bag, "setWhole"), QAnyValue(3));
    EXPECT_FALSE(bag.IsFromTemplate(PropId("setWhole")));
    QStringUnique desc;
    ASSERT_TRUE(bag.GetPropertyDesc(PropId("setWhole"), desc));
    EXPECT_EQ(desc.ToString().ToUtf8(), "whole");

    prop.SetDesc(QStringUnique("again"));
    bag.SetProperty(PropId("setWhole"), prop);
    ASSERT_TRUE(bag.GetPropertyDesc(PropId("setWhole"), desc));
    EXPECT_EQ(desc.ToString().ToUtf8(), "again");
    EXPECT_EQ(bag.PropertyCount(), 1);
}

TEST(PropertiesGetters, SetPropertyFormulaKeepsTheStoredValue) {
    QProperties bag;
    bag.SetPropertyValue(PropId("fmlKeep"), QAnyValue(8));
    bag.SetPropertyFormula(PropId("fmlKeep"), FormulaText("4 * 2"));
    EXPECT_EQ(StoredValue(bag, "fmlKeep"), QAnyValue(8));
    EXPECT_EQ(FormulaOf(bag, "fmlKeep"), "4 * 2");
    bag.SetPropertyFormula(PropId("fmlNew"), FormulaText("1"));
    EXPECT_TRUE(StoredValue(bag, "fmlNew").IsEmpty());
}

// --- Notices to the parent context
// ----------------------------------------------------------------

TEST(PropertiesNotices, ANewAnswerLivesUnderTheBagsContextAndIsAnnounced) {
    RecordingRoot root;
    root.TakeNotices();
    root.SetPropertyValue(PropId("noteNew"), QAnyValue(1));
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed"}));
    QProp prop;
    ASSERT_TRUE(root.GetProperty(PropId("noteNew"), prop));
    EXPECT_EQ(prop.ParentContext(), &root);
}

TEST(PropertiesNotices, SettingTheSameAnswerAgainChangesNothing) {
    RecordingRoot root;
    root.SetPropertyValue(PropId("noteSame"), QAnyValue(1));
    root.SetPropertyValueWithFormula(PropId("noteFormula"), QAnyValue(), FormulaText("1 + 1"));
    root.TakeNotices();

    root.SetPropertyValue(PropId("noteSame"), QAnyValue(1));
    root.SetPropertyValueWithFormula(PropId("noteFormula"), QAnyValue(5), FormulaText("1 + 1"));
    EXPECT_TRUE(root.TakeNotices().empty());
    EXPECT_TRUE(StoredValue(root.Answers(), "noteFormula").IsEmpty());

    root.SetPropertyValue(PropId("noteSame"), QAnyValue(2));
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed"}));
}

TEST(PropertiesNotices, AnotherKeyAtAnIndexReplacesTheAnswerThere) {
    RecordingRoot root;
    root.SetPropertyValue(PropId("slotOld"), QAnyValue(1));
    root.SetPropertyValue(PropId("slotNext"), QAnyValue(2));
    root.TakeNotices();

    root.SetAtPropertyValueWithFormula(0, PropId("slotNew"), QAnyValue(3), FormulaText());
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed"}));
    EXPECT_EQ(KeysOf(root.Answers()), (std::vector<std::string>{"slotNew", "slotNext"}));
    EXPECT_EQ(root.FindProperty(PropId("slotOld")), -1);
    EXPECT_EQ(root.FindProperty(PropId("slotNew")), 0);
    EXPECT_EQ(StoredValue(root.Answers(), "slotNew"), QAnyValue(3));
    QProp replaced;
    ASSERT_TRUE(root.GetAtProperty(0, replaced));
    EXPECT_EQ(replaced.ParentContext(), &root);

    root.SetAtPropertyValue(0, PropId(), QAnyValue(4));
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed"}));
    EXPECT_EQ(KeysOf(root.Answers()), (std::vector<std::string>{"slotNext"}));
    EXPECT_EQ(root.FindProperty(PropId("slotNext")), 0);

    root.SetAtPropertyValue(3, PropId("slotFar"), QAnyValue(4));
    EXPECT_TRUE(root.TakeNotices().empty());
    EXPECT_EQ(root.PropertyCount(), 1);
}

TEST(PropertiesNotices, ReadingAnAnswerTellsNobody) {
    RecordingRoot root;
    root.SetPropertyValueWithFormula(PropId("quietRead"), QAnyValue(2), FormulaText("quietRead"));
    root.SetPropertyDesc(PropId("quietRead"), QStringUnique("quiet"));
    root.Answers().SetIsFromLibrary(PropId("quietRead"), true);
    root.TakeNotices();

    QProp copy;
    ASSERT_TRUE(root.GetProperty(PropId("quietRead"), copy));
    ASSERT_TRUE(root.GetAtProperty(0, copy));
    EXPECT_TRUE(root.TakeNotices().empty());
    EXPECT_EQ(copy.ParentContext(), &root);
    EXPECT_EQ(copy.Formula().ToString().ToUtf8(), "quietRead");
    EXPECT_EQ(copy.ValueWithFormula().ValueNoEnsureUpToDate(), QAnyValue(2));
    EXPECT_EQ(copy.Desc().ToString().ToUtf8(), "quiet");
    EXPECT_TRUE(copy.IsFromLibrary());
}

TEST(PropertiesNotices, TheContextForwardsByIndex) {
    RecordingRoot root;
    root.SetPropertyValue(PropId("fwdFirst"), QAnyValue(1));
    root.SetAtPropertyFormula(0, PropId("fwdFirst"), FormulaText("fwdSecond"));
    root.SetAtPropertyDesc(0, PropId("fwdFirst"), QStringUnique("forwarded"));
    root.SetAtProperty(0, MakeProp("fwdFirst", 5));

    PropId key;
    QAnyValue value;
    FormulaText formula;
    QStringUnique desc;
    ASSERT_TRUE(root.GetAtPropertyValueWithFormulaWithNoEnsureUpToDate(0, key, value, formula));
    EXPECT_EQ(key.ToString().ToUtf8(), "fwdFirst");
    EXPECT_EQ(value, QAnyValue(5));
    EXPECT_TRUE(formula.IsEmpty());
    ASSERT_TRUE(root.GetAtPropertyDesc(0, key, desc));
    EXPECT_EQ(desc.UniqueId(), -1);
    ASSERT_TRUE(root.GetPropertyDesc(PropId("fwdFirst"), desc));
    EXPECT_EQ(desc.UniqueId(), -1);

    root.RemoveAtProperty(0);
    EXPECT_EQ(root.PropertyCount(), 0);
    EXPECT_FALSE(root.GetAtPropertyFormula(0, key, formula));
    EXPECT_EQ(key.UniqueId(), -1);
}

TEST(PropertiesNotices, RemovalsAreAnnounced) {
    RecordingRoot root;
    root.SetPropertyValue(PropId("noteGone"), QAnyValue(1));
    root.SetPropertyValue(PropId("noteKept"), QAnyValue(1));
    root.TakeNotices();
    root.RemoveProperty(PropId("noteGone"));
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed"}));
    root.RemoveAllProperties();
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed"}));
    root.RemoveAllProperties();
    EXPECT_TRUE(root.TakeNotices().empty());
}

// --- Evaluation through the getters
// ---------------------------------------------------------------

TEST(PropertiesEvaluation, AFormulaReadsAPropertyOfItsContext) {
    RecordingRoot root;
    root.SetPropertyValue(PropId("depth"), QAnyValue(5));
    QAnyValue result;
    QEvaluator evaluator(result, FormulaText(u"depth * 2"), &root, false, false, false);
    ASSERT_TRUE(evaluator.Evaluate()) << evaluator.Message().ToUtf8();
    EXPECT_EQ(result, QAnyValue(10));
}

TEST(PropertiesEvaluation, AnAnswerWithAFormulaIsEvaluatedWhenReadAndAgainAfterAChange) {
    AnswerDocument document;
    document.SetPropertyValue(PropId("evalDepth"), QAnyValue(5));
    document.SetPropertyFormula(PropId("evalWidth"), FormulaText("evalDepth * 2"));

    QAnyValue value;
    bool error = true;
    QCacheState state = QCS_Stable;
    ASSERT_TRUE(document.GetPropertyValue(PropId("evalWidth"), value, error, &state));
    EXPECT_EQ(value, QAnyValue(10));
    EXPECT_FALSE(error);

    document.SetPropertyValue(PropId("evalDepth"), QAnyValue(7));
    ASSERT_TRUE(document.GetPropertyValue(PropId("evalWidth"), value, error, &state));
    EXPECT_EQ(value, QAnyValue(14));
    EXPECT_GT(document.m_changes, 0);

    QAnyValue stored;
    FormulaText formula;
    ASSERT_TRUE(document.GetPropertyValueWithFormulaWithNoEnsureUpToDate(PropId("evalWidth"),
                                                                         stored, formula));
    EXPECT_EQ(stored, QAnyValue(14));
}

TEST(PropertiesEvaluation, TheWithNoEnsureUpToDateFormsReadTheStoredValue) {
    AnswerDocument document;
    document.SetPropertyValueWithFormula(PropId("evalStale"), QAnyValue(1), FormulaText("2 + 3"));
    QAnyValue value;
    FormulaText formula;
    ASSERT_TRUE(document.Answers().GetPropertyValueWithFormulaWithNoEnsureUpToDate(
        PropId("evalStale"), value, formula));
    EXPECT_EQ(value, QAnyValue(1));
    bool error = false;
    ASSERT_TRUE(
        document.GetPropertyValueWithFormula(PropId("evalStale"), value, formula, error, nullptr));
    EXPECT_EQ(value, QAnyValue(5));
    EXPECT_EQ(formula.ToString().ToUtf8(), "2 + 3");
}

TEST_F(PropertiesTest, AValueInErrorIsReadAsAnErrorWithItsFormula) {
    AnswerDocument document;
    document.SetPropertyFormula(PropId("evalBroken"), FormulaText("1 +"));
    QAnyValue value;
    FormulaText formula;
    bool error = false;
    PropId key;
    ASSERT_TRUE(document.GetAtPropertyValueWithFormula(0, key, value, formula, error, nullptr));
    EXPECT_TRUE(error);
    EXPECT_TRUE(value.IsError());
    EXPECT_EQ(formula.ToString().ToUtf8(), "1 +");
    EXPECT_EQ(key.ToString().ToUtf8(), "evalBroken");
}

TEST(PropertiesEvaluation, AContextWithoutPropertiesHasNone) {
    struct Bare : QFormulaContext {
        CString SimpleTypeName() const override { return u"Bare"; }
        QProperties* Properties() const override { return nullptr; }
    } bare;
    bare.SetPropertyValue(PropId("bareKey"), QAnyValue(1));
    QAnyValue value(2);
    bool error = false;
    EXPECT_EQ(bare.PropertyCount(), 0);
    EXPECT_EQ(bare.FindProperty(PropId("bareKey")), -1);
    EXPECT_FALSE(bare.HasProperty(PropId("bareKey")));
    EXPECT_FALSE(bare.GetPropertyValue(PropId("bareKey"), value, error, nullptr));
    EXPECT_EQ(value, QAnyValue(2));
}

TEST(PropertiesEvaluation, SetValueOnTheContextCreatesAnAnswerThere) {
    AnswerContext context;
    ASSERT_TRUE(context.SetValue(FullId("ctxMade"), QAnyValue(12)));
    EXPECT_EQ(context.PropertyCount(), 1);
    EXPECT_EQ(StoredValue(context.Answers(), "ctxMade"), QAnyValue(12));
}

// --- Copy and assignment
// ----------------------------------------------------------------------------

TEST(PropertiesCopy, ACopyIsDeepAndKeepsTheFlags) {
    AnswerContext owner;
    QProperties& original = owner.Answers();
    original.SetPropertyValue(PropId("copyA"), QAnyValue(1));
    original.SetIsFromTemplate(PropId("copyA"), true);

    QProperties copy(original);
    copy.SetPropertyValue(PropId("copyA"), QAnyValue(2));
    EXPECT_EQ(StoredValue(original, "copyA"), QAnyValue(1));
    EXPECT_TRUE(copy.IsFromTemplate(PropId("copyA")));

    AnswerContext other;
    const QProperties moved(original, &other);
    QProp prop;
    ASSERT_TRUE(moved.GetProperty(PropId("copyA"), prop));
    EXPECT_EQ(prop.ParentContext(), &other);
}

TEST(PropertiesCopy, AssignmentIsAnnouncedAndRelinksToTheOwnContext) {
    AnswerContext source;
    source.SetPropertyValue(PropId("assignA"), QAnyValue(1));
    source.SetPropertyValue(PropId("assignB"), QAnyValue(2));
    source.Answers().SetIsFromLibrary(PropId("assignB"), true);

    RecordingRoot root;
    root.SetPropertyValue(PropId("assignOld"), QAnyValue(0));
    root.TakeNotices();
    root.Answers() = source.Answers();
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed"}));
    EXPECT_EQ(KeysOf(root.Answers()), (std::vector<std::string>{"assignA", "assignB"}));
    EXPECT_TRUE(root.Answers().IsFromLibrary(PropId("assignB")));
    EXPECT_EQ(root.FindProperty(PropId("assignOld")), -1);
    for (int i = 0; i < 2; ++i) {
        QProp prop;
        ASSERT_TRUE(root.GetAtProperty(i, prop));
        EXPECT_EQ(prop.ParentContext(), &root);
    }
    EXPECT_TRUE(root.Answers().IsSameSpecificationAs(source.Answers()));
}

TEST(PropertiesCopy, TheSameSpecificationNeedsTheSameOrder) {
    QProperties first;
    QProperties second;
    first.SetPropertyValue(PropId("orderA"), QAnyValue(1));
    first.SetPropertyValue(PropId("orderB"), QAnyValue(2));
    second.SetPropertyValue(PropId("orderB"), QAnyValue(2));
    second.SetPropertyValue(PropId("orderA"), QAnyValue(1));
    EXPECT_FALSE(first.IsSameSpecificationAs(second));
    EXPECT_EQ(first.HashKeyCalc(), second.HashKeyCalc());
    second.RemoveProperty(PropId("orderB"));
    EXPECT_FALSE(first.IsSameSpecificationAs(second));
    EXPECT_EQ(QProperties().HashKeyCalc(), 0u);
    EXPECT_TRUE(QProperties().IsSameSpecificationAs(QProperties()));
}

TEST(PropertiesCopy, TheBagsHashIsTheSumOfItsAnswers) {
    QProperties bag;
    bag.SetPropertyValue(PropId("sumA"), QAnyValue(1));
    bag.SetPropertyValueWithFormula(PropId("sumB"), QAnyValue(), FormulaText("sumA"));
    unsigned expected = 0;
    for (int i = 0; i < bag.PropertyCount(); ++i) {
        QProp prop;
        ASSERT_TRUE(bag.GetAtProperty(i, prop));
        expected += prop.HashKeyCalc();
    }
    EXPECT_EQ(bag.HashKeyCalc(), expected);
}

// --- Removing by reference and by origin -------------------------------------------------------

TEST(PropertiesReference, OnlyPlainAnswersEqualToTheReferenceGo) {
    AnswerDocument reference;
    reference.SetPropertyValue(PropId("refSame"), QAnyValue(1));
    reference.SetPropertyValue(PropId("refOther"), QAnyValue(1));
    reference.SetPropertyValue(PropId("refFormula"), QAnyValue(4));

    QProperties bag;
    bag.SetPropertyValue(PropId("refSame"), QAnyValue(1));
    bag.SetPropertyValue(PropId("refOther"), QAnyValue(2));
    bag.SetPropertyValueWithFormula(PropId("refFormula"), QAnyValue(4), FormulaText("2 * 2"));
    bag.SetPropertyValue(PropId("refOwn"), QAnyValue(1));

    bag.RemovePropertiesIfSameAsRef();
    EXPECT_EQ(bag.PropertyCount(), 4);

    QPropertyComparator comparator;
    bag.SetPropertyComparator(&comparator);
    bag.RemovePropertiesIfSameAsRef();
    EXPECT_EQ(bag.PropertyCount(), 4);

    comparator.SetRefFormulaContext(&reference);
    ASSERT_TRUE(comparator.HasARefFormulaContext());
    bag.RemovePropertiesIfSameAsRef();
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"refOther", "refFormula", "refOwn"}));
    EXPECT_EQ(bag.FindProperty(PropId("refOwn")), 2);
}

TEST(PropertiesOrigin, DeletingTemplateAndLibraryAnswers) {
    struct Case {
        bool library;
        bool includeEdited;
        std::vector<std::string> left;
    };
    const Case cases[] = {
        {false, false, {"orgEditedTemplate", "orgLibrary", "orgOwn"}},
        {false, true, {"orgLibrary", "orgOwn"}},
        {true, false, {"orgTemplate", "orgEditedTemplate", "orgOwn"}},
        {true, true, {"orgTemplate", "orgEditedTemplate", "orgOwn"}},
    };
    for (const Case& c : cases) {
        QProperties bag;
        for (const char* key : {"orgTemplate", "orgEditedTemplate", "orgLibrary", "orgOwn"})
            bag.SetPropertyValue(PropId(key), QAnyValue(1));
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

// --- Walking ------------------------------------------------------------------------------------

TEST(PropertiesWalk, InInsertionOrderOrAlphabeticallyWithoutCase) {
    QProperties bag;
    for (const char* key : {"walkBeta", "WALKALPHA", "walkGamma", "walkdelta"})
        bag.SetPropertyValue(PropId(key), QAnyValue(1));
    const auto walk = [&bag](bool sorted) {
        std::vector<std::string> keys;
        bag.ForEachPropertyDo(
            [&keys](PropId key, const QAnyValue&, FormulaText) {
                keys.push_back(key.ToString().ToUtf8());
                return true;
            },
            sorted, false);
        return keys;
    };
    EXPECT_EQ(walk(false),
              (std::vector<std::string>{"walkBeta", "WALKALPHA", "walkGamma", "walkdelta"}));
    EXPECT_EQ(walk(true),
              (std::vector<std::string>{"WALKALPHA", "walkBeta", "walkdelta", "walkGamma"}));
}

TEST(PropertiesWalk, SurvivesACallbackThatRemovesAnswers) {
    QProperties bag;
    for (const char* key : {"surA", "surB", "surC", "surD"})
        bag.SetPropertyValue(PropId(key), QAnyValue(CString(key)));
    std::vector<std::string> seen;
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
    EXPECT_EQ(seen, (std::vector<std::string>{"surA=surA", "surB=surB", "surD=surD"}));
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"surA", "surD"}));
}

TEST(PropertiesWalk, TheResultIsTheAndOfTheCallbacksAndEveryAnswerIsVisited) {
    QProperties bag;
    for (const char* key : {"andA", "andB", "andC"})
        bag.SetPropertyValue(PropId(key), QAnyValue(1));
    int calls = 0;
    EXPECT_FALSE(bag.ForEachPropertyDo(
        [&calls](PropId key, const QAnyValue&, FormulaText) {
            ++calls;
            return !(key == PropId("andB"));
        },
        false, false));
    EXPECT_EQ(calls, 3);
    EXPECT_TRUE(QProperties().ForEachPropertyDo(
        [](PropId, const QAnyValue&, FormulaText) { return false; }, true, true));
}

TEST(PropertiesWalk, EvaluatingReadsTheValueOfTheFormula) {
    AnswerDocument document;
    document.SetPropertyValueWithFormula(PropId("walkEval"), QAnyValue(0), FormulaText("2 * 3"));
    const auto valueSeen = [&document](bool evaluate) {
        QAnyValue seen;
        document.Answers().ForEachPropertyDo(
            [&seen](PropId, const QAnyValue& value, FormulaText formula) {
                EXPECT_EQ(formula.ToString().ToUtf8(), "2 * 3");
                seen = value;
                return true;
            },
            false, evaluate);
        return seen;
    };
    EXPECT_EQ(valueSeen(false), QAnyValue(0));
    EXPECT_EQ(valueSeen(true), QAnyValue(6));
}

// --- Merge --------------------------------------------------------------------------------------

TEST_F(PropertiesTest, MergeOfNothingChangesNothingAndShowsNoProgress) {
    RecordingMergeServices services(true, true);
    QProperties bag;
    bag.SetPropertyValue(PropId("mrgKept"), QAnyValue(1));
    const QProperties empty;
    for (QMergeResolutionStrategy strategy : {MERGE_ASK, MERGE_OVERWRITE, MERGE_KEEP_EXISTING}) {
        bag.MergeProperties(nullptr, strategy, true, true, true);
        bag.MergeProperties(&bag, strategy, true, true, true);
        bag.MergeProperties(&empty, strategy, true, true, true);
    }
    EXPECT_EQ(bag.PropertyCount(), 1);
    EXPECT_FALSE(bag.IsFromTemplate(PropId("mrgKept")));
    EXPECT_TRUE(services.m_events.empty());
    EXPECT_TRUE(Reports().empty());
}

TEST_F(PropertiesTest, MergeIntoAnEmptyBagNeverAsks) {
    DisplayHost host(IDNO);
    ScopedUIServices installed(host);
    RecordingMergeServices services(false, false);
    QProperties source;
    source.SetPropertyValue(PropId("mrgFirst"), QAnyValue(1));
    source.SetPropertyValue(PropId("mrgSecond"), QAnyValue(2));
    QProperties bag;
    bag.MergeProperties(&source, MERGE_ASK, false, false, false);
    EXPECT_TRUE(host.m_boxes.empty());
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"mrgFirst", "mrgSecond"}));
    EXPECT_EQ(bag.FindProperty(PropId("mrgSecond")), 1);
}

TEST_F(PropertiesTest, MergeAskWithAnIdenticalAnswerNeitherAsksNorChanges) {
    DisplayHost host(IDYES);
    ScopedUIServices installed(host);
    RecordingMergeServices services(false, false);
    QProperties source;
    source.SetPropertyValue(PropId("mrgSame"), QAnyValue(1));
    source.SetPropertyValueWithFormula(PropId("mrgSameFormula"), QAnyValue(3),
                                       FormulaText("1 + 1"));
    QProperties bag;
    bag.SetPropertyValue(PropId("mrgSame"), QAnyValue(1));
    bag.SetPropertyValueWithFormula(PropId("mrgSameFormula"), QAnyValue(2), FormulaText("1 + 1"));
    bag.SetIsFromTemplate(PropId("mrgSame"), true);

    bag.MergeProperties(&source, MERGE_ASK, false, true, false);
    EXPECT_TRUE(host.m_boxes.empty());
    EXPECT_TRUE(bag.IsFromTemplate(PropId("mrgSame")));
    EXPECT_FALSE(bag.IsFromLibrary(PropId("mrgSame")));
    QProp prop;
    ASSERT_TRUE(bag.GetProperty(PropId("mrgSame"), prop));
    EXPECT_FALSE(prop.IsEdited());
    EXPECT_EQ(StoredValue(bag, "mrgSameFormula"), QAnyValue(2));
}

TEST_F(PropertiesTest, MergeAskPutsEachChangeToThePerson) {
    for (int answer : {IDYES, IDNO}) {
        DisplayHost host(answer);
        ScopedUIServices installed(host);
        RecordingMergeServices services(false, false);
        QProperties source;
        source.SetPropertyValue(PropId("mrgColour"), QAnyValue(u"new"));
        QProperties bag;
        bag.SetPropertyValue(PropId("mrgColour"), QAnyValue(u"old"));

        bag.MergeProperties(&source, MERGE_ASK, true, false, false);
        ASSERT_EQ(host.m_boxes.size(), 1u);
        EXPECT_EQ(host.m_boxes[0], "Change answer for 'mrgColour'\nfrom old\nto new");
        EXPECT_EQ(host.m_flags[0] & MB_TYPEMASK, MB_YESNO);
        EXPECT_EQ(StoredValue(bag, "mrgColour"), QAnyValue(answer == IDYES ? u"new" : u"old"));
        EXPECT_EQ(bag.IsFromTemplate(PropId("mrgColour")), answer == IDYES);
        EXPECT_TRUE(Reports().empty());
    }
}

TEST_F(PropertiesTest, MergeAskRunningAutomatedLogsTheChange) {
    RecordingMergeServices services(true, false);
    QProperties source;
    source.SetPropertyValue(PropId("mrgLogged"), QAnyValue(2));
    source.SetPropertyValueWithFormula(PropId("mrgLoggedFormula"), QAnyValue(3),
                                       FormulaText("1 + 2"));
    QProperties bag;
    bag.SetPropertyValue(PropId("mrgLogged"), QAnyValue(1));
    bag.SetPropertyValue(PropId("mrgLoggedFormula"), QAnyValue(3));

    bag.MergeProperties(&source, MERGE_ASK, false, false, false);
    EXPECT_EQ(StoredValue(bag, "mrgLogged"), QAnyValue(2));
    EXPECT_EQ(FormulaOf(bag, "mrgLoggedFormula"), "1 + 2");
    EXPECT_EQ(Reports(), (std::vector<Report>{
                             {"Recalc", "Changed answer for 'mrgLogged'\nfrom 1\nto 2"},
                             {"Recalc", "Changed answer for 'mrgLoggedFormula'\nfrom 3\nto 3"}}));
}

TEST_F(PropertiesTest, WithoutAnApplicationAMergeRunsAutomatedOnAHostWithoutDisplay) {
    EXPECT_TRUE(AppServices().IsRunningAutomated());
    DisplayHost host(IDNO);
    ScopedUIServices installed(host);
    EXPECT_FALSE(AppServices().IsRunningAutomated());
}

TEST_F(PropertiesTest, OverwriteAndKeepExisting) {
    struct Case {
        QMergeResolutionStrategy strategy;
        int shared;
    };
    for (const Case& c : {Case{MERGE_OVERWRITE, 2}, Case{MERGE_KEEP_EXISTING, 1}}) {
        DisplayHost host(IDNO);
        ScopedUIServices installed(host);
        RecordingMergeServices services(false, false);
        QProperties source;
        source.SetPropertyValue(PropId("mrgShared"), QAnyValue(2));
        source.SetPropertyValue(PropId("mrgAdded"), QAnyValue(3));
        QProperties bag;
        bag.SetPropertyValue(PropId("mrgShared"), QAnyValue(1));

        bag.MergeProperties(&source, c.strategy, false, false, false);
        EXPECT_TRUE(host.m_boxes.empty());
        EXPECT_EQ(StoredValue(bag, "mrgShared"), QAnyValue(c.shared)) << c.strategy;
        EXPECT_EQ(StoredValue(bag, "mrgAdded"), QAnyValue(3)) << c.strategy;
        EXPECT_TRUE(Reports().empty());
    }
}

TEST_F(PropertiesTest, TheDeletionMarkerRemovesOnlyWhatATemplateGave) {
    QProperties source;
    for (const char* key : {"dmTemplate", "dmOwn", "dmMissing"})
        source.SetPropertyValueWithFormula(PropId(key), QAnyValue(), FormulaText(":deleteme:"));

    QProperties bag;
    bag.SetPropertyValue(PropId("dmTemplate"), QAnyValue(1));
    bag.SetPropertyValue(PropId("dmOwn"), QAnyValue(2));
    bag.SetIsFromTemplate(PropId("dmTemplate"), true);
    bag.MergeProperties(&source, MERGE_OVERWRITE, false, false, false);
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"dmOwn"}));
    EXPECT_EQ(StoredValue(bag, "dmOwn"), QAnyValue(2));
}

TEST_F(PropertiesTest, TheDeletionMarkerUnderKeepExistingIsStoredForANewKey) {
    QProperties source;
    source.SetPropertyValueWithFormula(PropId("dmKeepNew"), QAnyValue(), FormulaText(":DeleteMe:"));
    source.SetPropertyValueWithFormula(PropId("dmKeepOld"), QAnyValue(), FormulaText(":DeleteMe:"));
    QProperties bag;
    bag.SetPropertyValue(PropId("dmKeepOld"), QAnyValue(1));
    bag.SetIsFromTemplate(PropId("dmKeepOld"), true);
    bag.MergeProperties(&source, MERGE_KEEP_EXISTING, false, false, false);
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"dmKeepOld", "dmKeepNew"}));
    FormulaText marker;
    ASSERT_TRUE(bag.GetPropertyFormula(PropId("dmKeepNew"), marker));
    EXPECT_EQ(marker.ToString().CompareNoCase(u":DeleteMe:"), 0);
    EXPECT_TRUE(FormulaOf(bag, "dmKeepOld").empty());
}

TEST_F(PropertiesTest, MergedAnswersTakeTheirOriginFlags) {
    struct Case {
        bool asTemplate;
        bool asLibrary;
        bool keepOrigin;
        bool fromTemplate;
        bool fromLibrary;
    };
    const Case cases[] = {
        {false, false, false, false, false}, {true, false, false, true, false},
        {false, true, false, false, true},   {false, false, true, true, false},
        {true, true, true, true, true},
    };
    for (const Case& c : cases) {
        QProperties source;
        source.SetPropertyValue(PropId("flagNew"), QAnyValue(1));
        source.SetIsFromTemplate(PropId("flagNew"), true);
        QProperties bag;
        bag.SetPropertyValue(PropId("flagOld"), QAnyValue(1));
        bag.SetIsFromTemplate(PropId("flagOld"), true);
        bag.SetIsFromLibrary(PropId("flagOld"), true);
        bag.MergeProperties(&source, MERGE_OVERWRITE, c.asTemplate, c.asLibrary, c.keepOrigin);
        EXPECT_EQ(bag.IsFromTemplate(PropId("flagNew")), c.fromTemplate);
        EXPECT_EQ(bag.IsFromLibrary(PropId("flagNew")), c.fromLibrary);
        EXPECT_TRUE(bag.IsFromTemplate(PropId("flagOld")));
        EXPECT_TRUE(bag.IsFromLibrary(PropId("flagOld")));
    }
}

TEST_F(PropertiesTest, MergingMessagesShowTheProgressOfAMerge) {
    RecordingMergeServices services(true, true);
    QProperties source;
    for (const char* key : {"progA", "progB", "progC"})
        source.SetPropertyValue(PropId(key), QAnyValue(1));
    QProperties bag;
    bag.MergeProperties(&source, MERGE_OVERWRITE, false, false, false);
    EXPECT_EQ(services.m_events,
              (std::vector<std::string>{"create Merging answers 0..3", "step 7", "step 7", "step 7",
                                        "destroy 7 Merged answers"}));
}

TEST_F(PropertiesTest, AMergeReadsWithoutEvaluating) {
    AnswerDocument document;
    document.SetPropertyValueWithFormula(PropId("mrgLazy"), QAnyValue(1), FormulaText("40 + 2"));
    QProperties bag;
    bag.MergeProperties(&document.Answers(), MERGE_OVERWRITE, false, false, false);
    EXPECT_EQ(StoredValue(bag, "mrgLazy"), QAnyValue(1));
    EXPECT_EQ(StoredValue(document.Answers(), "mrgLazy"), QAnyValue(1));
}

// --- Catalogue clean-up --------------------------------------------------------------------------

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

    static void SetOption(const char16_t* key, const CString& value) {
        ASSERT_TRUE(CRegistry::Current().WriteProfileString(u"Options", key, value));
    }

    std::filesystem::path m_options;
};

TEST_F(PropertiesCleanupTest, WithoutQuestionsOnlyFormulaTextGoes) {
    QProperties bag;
    bag.SetPropertyValue(PropId("cleanPlain"), QAnyValue(u"plain text"));
    bag.SetPropertyValue(PropId("cleanColon"), QAnyValue(u":cleanPlain"));
    bag.SetPropertyValue(PropId("cleanEquals"), QAnyValue(u"=1+1"));
    bag.SetPropertyValue(PropId("cleanNumber"), QAnyValue(3));
    bag.SetPropertyValueWithFormula(PropId("cleanFormula"), QAnyValue(2), FormulaText("1 + 1"));

    EXPECT_EQ(bag.CatalogCleanup(QProperties::ControllingQuestion()), 2);
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"cleanPlain", "cleanNumber", "cleanFormula"}));
    EXPECT_EQ(Reports(),
              (std::vector<Report>{
                  {"Cleanup", "Catalog Cleanup of Kitchen deleted key=[cleanEquals] value=[=1+1]"},
                  {"Cleanup",
                   "Catalog Cleanup of Kitchen deleted key=[cleanColon] value=[:cleanPlain]"}}));
}

TEST_F(PropertiesCleanupTest, ProtectedKeysStay) {
    QProperties bag;
    for (const char* key : {"_RibbonPaletteKitchen", "_BASEDONLIBRARY", "BasedOnLibrary",
                            "_GeneratePalettesAlways", "_generatepalettesnever", "_RibbonPalett"})
        bag.SetPropertyValue(PropId(key), QAnyValue(u":formula"));
    EXPECT_EQ(bag.CatalogCleanup([](PropId) { return CString(); }), 1);
    EXPECT_EQ(bag.FindProperty(PropId("_RibbonPalett")), -1);
    EXPECT_EQ(bag.PropertyCount(), 5);
}

TEST_F(PropertiesCleanupTest, WithQuestionsAnAnswerWithoutAControllerGoes) {
    QProperties bag;
    bag.SetPropertyValue(PropId("ctlAsked"), QAnyValue(1));
    bag.SetPropertyValue(PropId("ctlOrphan"), QAnyValue(1));
    bag.SetPropertyValueWithFormula(PropId("ctlOrphanFormula"), QAnyValue(2), FormulaText("1+1"));
    const auto controllers = [](PropId key) {
        return key == PropId("ctlAsked") ? CString(u"Main:Sizes:How big?") : CString();
    };
    EXPECT_EQ(bag.CatalogCleanup(controllers), 1);
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"ctlAsked", "ctlOrphanFormula"}));
    EXPECT_EQ(Reports(),
              (std::vector<Report>{
                  {"Cleanup", "Catalog Cleanup of Kitchen deleted key=[ctlOrphan] value=[1]"}}));
}

TEST_F(PropertiesCleanupTest, TheFormulasOptionDeletesEveryFormula) {
    SetOption(u"CatalogCleanupFormulas", u"1");
    QProperties bag;
    bag.SetPropertyValueWithFormula(PropId("optFormula"), QAnyValue(2), FormulaText("1+1"));
    bag.SetPropertyValue(PropId("optPlain"), QAnyValue(2));
    EXPECT_EQ(bag.CatalogCleanup([](PropId) { return CString(u"g:t:q"); }), 1);
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"optPlain"}));
    EXPECT_EQ(Reports(), (std::vector<Report>{
                             {"Cleanup", "Catalog Cleanup of Kitchen deleted key=[optFormula] "
                                         "value=[2] formula=[1+1]"}}));
}

TEST_F(PropertiesCleanupTest, TheOptionsAreReadOnceUntilReloaded) {
    QProperties bag;
    bag.SetPropertyValueWithFormula(PropId("onceFormula"), QAnyValue(2), FormulaText("1+1"));
    EXPECT_EQ(bag.CatalogCleanup(QProperties::ControllingQuestion()), 0);
    SetOption(u"CatalogCleanupFormulas", u"1");
    EXPECT_EQ(bag.CatalogCleanup(QProperties::ControllingQuestion()), 0);
    QProperties::ReloadCatalogCleanupOptions();
    EXPECT_EQ(bag.CatalogCleanup(QProperties::ControllingQuestion()), 1);
}

TEST_F(PropertiesCleanupTest, TargetFormulasMatchTheWholeLowerCasedText) {
    SetOption(u"CatalogCleanupTargetFormulas", u"old.* ; .*legacy\\(\\)");
    QProperties bag;
    bag.SetPropertyValueWithFormula(PropId("tgtOld"), QAnyValue(), FormulaText("OLD_price + 1"));
    bag.SetPropertyValueWithFormula(PropId("tgtLegacy"), QAnyValue(), FormulaText("1 + Legacy()"));
    bag.SetPropertyValueWithFormula(PropId("tgtInside"), QAnyValue(), FormulaText("1 + old"));
    bag.SetPropertyValueWithFormula(PropId("tgtOther"), QAnyValue(), FormulaText("price"));
    EXPECT_EQ(bag.CatalogCleanup(QProperties::ControllingQuestion()), 2);
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"tgtInside", "tgtOther"}));
}

TEST_F(PropertiesCleanupTest, ProtectKeysAreExpressionsOverTheLowerCasedKey) {
    SetOption(u"CatalogCleanupProtectKeys", u"keep.*;exact");
    QProperties bag;
    bag.SetPropertyValue(PropId("KeepMe"), QAnyValue(u"=1"));
    bag.SetPropertyValue(PropId("EXACT"), QAnyValue(u"=1"));
    bag.SetPropertyValue(PropId("notExact"), QAnyValue(u"=1"));
    bag.SetPropertyValue(PropId("exactly"), QAnyValue(u"=1"));
    EXPECT_EQ(bag.CatalogCleanup(QProperties::ControllingQuestion()), 2);
    EXPECT_EQ(KeysOf(bag), (std::vector<std::string>{"KeepMe", "EXACT"}));
}

// --- Archive of a bag ----------------------------------------------------------------------------

TEST(PropertiesArchive, TheBytesOfABag) {
    QProperties bag;
    bag.SetPropertyValue(PropId("bagFirst"), QAnyValue(1));
    bag.SetPropertyValueWithFormula(PropId("bagSecond"), QAnyValue(u"x"), FormulaText("bagFirst"));
    bag.SetPropertyDesc(PropId("bagSecond"), QStringUnique("second"));

    Bytes expected{0x02, 0x00};
    Append(expected, PropBytes(u"bagFirst", IntValue(1), u"", 0x00));
    Append(expected, PropBytes(u"bagSecond", StringValue(u"x"), u"bagFirst", 0x04));
    Append(expected, Wide(u"second"));
    EXPECT_EQ(SerializedBytes(bag), expected);
}

TEST(PropertiesArchive, WriteReadWriteGivesTheSameBytes) {
    QProperties bag;
    bag.SetPropertyValue(PropId("rtLength"), QAnyValue(QLength::FromRaw(1234.5)));
    bag.SetPropertyValueWithFormula(PropId("rtFormula"), QAnyValue(7), FormulaText("3 + 4"));
    bag.SetPropertyValue(PropId("rtText"), QAnyValue(u"=not upgraded"));
    bag.SetIsFromTemplate(PropId("rtText"), true);
    bag.SetPropertyValue(PropId("rtText"), QAnyValue(u"=edited"));
    bag.SetIsFromLibrary(PropId("rtLength"), true);
    bag.SetPropertyDesc(PropId("rtFormula"), QStringUnique("seven"));

    const Bytes bytes = SerializedBytes(bag);
    QProperties loaded;
    Deserialize(bytes, 120, loaded);
    EXPECT_TRUE(loaded.IsSameSpecificationAs(bag));
    EXPECT_EQ(SerializedBytes(loaded), bytes);
}

TEST(PropertiesArchive, AnOldSchemaBagByHand) {
    Bytes bytes{0x03, 0x00};
    Append(bytes, PropBytes(u"oldText", StringValue(u":  oldLen * 2 "), u"", 0x01 | 0x08));
    Append(bytes, PropBytes(u"oldPlain", StringValue(u"plain"), u"", 0x02));
    Append(bytes, PropBytes(u"oldFormula", IntValue(4), u"2 * 2", 0x04));
    Append(bytes, Wide(u"four"));

    QProperties loaded;
    Deserialize(bytes, 108, loaded);
    EXPECT_EQ(KeysOf(loaded), (std::vector<std::string>{"oldText", "oldPlain", "oldFormula"}));
    EXPECT_EQ(StoredValue(loaded, "oldText"), QAnyValue(u":oldLen * 2"));
    EXPECT_TRUE(loaded.IsFromTemplate(PropId("oldText")));
    QProp text;
    ASSERT_TRUE(loaded.GetProperty(PropId("oldText"), text));
    EXPECT_FALSE(text.IsEdited());
    EXPECT_TRUE(loaded.IsFromLibrary(PropId("oldPlain")));
    EXPECT_EQ(FormulaOf(loaded, "oldFormula"), "2 * 2");
    QStringUnique desc;
    ASSERT_TRUE(loaded.GetPropertyDesc(PropId("oldFormula"), desc));
    EXPECT_EQ(desc.ToString().ToUtf8(), "four");
}

TEST(PropertiesArchive, LoadingRelinksEveryAnswerAfterTheWholeBag) {
    QProperties source;
    source.SetPropertyValue(PropId("relinkA"), QAnyValue(1));
    source.SetPropertyValue(PropId("relinkB"), QAnyValue(2));
    const Bytes bytes = SerializedBytes(source);

    RecordingRoot root;
    root.SetPropertyValue(PropId("relinkGone"), QAnyValue(0));
    root.TakeNotices();
    Deserialize(bytes, 120, root.Answers());
    EXPECT_EQ(root.TakeNotices(), (std::vector<std::string>{"pre", "changed", "pre", "changed"}));
    EXPECT_EQ(KeysOf(root.Answers()), (std::vector<std::string>{"relinkA", "relinkB"}));
    EXPECT_EQ(root.FindProperty(PropId("relinkB")), 1);
    for (int i = 0; i < 2; ++i) {
        QProp prop;
        ASSERT_TRUE(root.GetAtProperty(i, prop));
        EXPECT_EQ(prop.ParentContext(), &root);
    }
}

TEST(PropertiesArchive, AReferenceLeavesOutWhatItGivesAnyway) {
    AnswerDocument reference;
    reference.SetPropertyValue(PropId("savedSame"), QAnyValue(1));
    QProperties bag;
    bag.SetPropertyValue(PropId("savedSame"), QAnyValue(1));
    bag.SetPropertyValue(PropId("savedOwn"), QAnyValue(2));
    QPropertyComparator comparator(&reference);
    bag.SetPropertyComparator(&comparator);

    Bytes expected{0x01, 0x00};
    Append(expected, PropBytes(u"savedOwn", IntValue(2), u"", 0x00));
    EXPECT_EQ(SerializedBytes(bag), expected);
    EXPECT_EQ(bag.PropertyCount(), 2);
}

// --- Dump and report formulas --------------------------------------------------------------------

TEST(PropertiesDump, OneLineAnAnswer) {
    QProperties bag;
    bag.SetPropertyValue(PropId("dumpWidth"), QAnyValue(5));
    bag.SetPropertyValueWithFormula(PropId("dumpArea"), QAnyValue(4), FormulaText("2*2"));
    QArray<CString> lines;
    lines.Add(u"before");
    bag.DumpProperties(lines);
    ASSERT_EQ(lines.GetCount(), 3);
    EXPECT_EQ(lines[0].ToUtf8(), "before");
    EXPECT_EQ(lines[1].ToUtf8(), "\t\t0 dumpWidth\t5\t");
    EXPECT_EQ(lines[2].ToUtf8(), "\t\t1 dumpArea\t4\t2*2");
}

struct CrystalCalls {
    static inline void* job = nullptr;
    static inline std::vector<std::string> calls;
    static void Set(void* theJob, const CString& name, const CString& formula) {
        job = theJob;
        calls.push_back(name.ToUtf8() + " " + formula.ToUtf8());
    }
};

TEST(PropertiesDump, ReportFormulasInOrderAndEvaluated) {
    AnswerDocument document;
    document.SetPropertyValue(PropId("crysName"), QAnyValue(u"say \"hi\""));
    document.SetPropertyValueWithFormula(PropId("crysCount"), QAnyValue(0), FormulaText("1 + 2"));
    int job = 0;
    CrystalCalls::calls.clear();
    document.Answers().SetCrystalFormulas(&job, &CrystalCalls::Set);
    EXPECT_EQ(CrystalCalls::job, &job);
    EXPECT_EQ(CrystalCalls::calls,
              (std::vector<std::string>{"crysName \"say \"\"hi\"\"\"", "crysCount 3"}));
}

} // namespace
} // namespace keel
