#include "tests/support/answerdocument.h"
#include "tests/support/archivebytes.h"
#include "tests/support/exchangetests.h"
#include "tests/support/questiondefs.h"
#include "tests/support/questiondump.h"

#include "keel/document/translate.h"
#include "keel/exchange/exportformatlevel.h"
#include "keel/platform/schema.h"
#include "keel/questions/propdef.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel::test {
namespace {

using D = QPropDef;

// Collects the names of the attributes that reach the file.
class RecordingLevel : public QExportFormatLevel {
public:
    RecordingLevel(const QExportable& exportable, bool minimal)
        : QExportFormatLevel(exportable, minimal, nullptr) {}
    std::unique_ptr<QExportFormatLevel> CreateSubLevel(const QNewLevelExportable&) override {
        return nullptr;
    }
    bool AddExportableAttributeInternal(const QExportAttribute& attribute) override {
        names += (names.empty() ? "" : " ") + attribute.GetName().ToUtf8();
        return true;
    }
    std::string names;
};

std::string WrittenAttributes(const QPropDef& def, bool minimal = false) {
    RecordingLevel level(def, minimal);
    EXPECT_TRUE(def.AddAttributesAndChildrenToExport(level));
    return level.names;
}

// A definition of the kind, reached from a drop list that carries every field.
QPropDef FullDefinitionOf(D::CONTROLTYPE kind, bool fullWidth) {
    QPropDef def;
    def.SetControlType(D::DropList);
    def.SetName(ControlId(u"Shelves"));
    def.SetType(QAnyValue::TYPE_INT);
    def.SetQuestion(u"How many shelves?");
    def.SetExtra1(u"1|2|3");
    def.SetQuestionWidth(4);
    def.SetAnswerWidth(5);
    def.SetAction(FormulaText(u"beep()"));
    def.SetIsGroupboxFullWidth(fullWidth);
    def.SetControlType(kind);
    return def;
}

// One mark a flag: `on` where it is set, "." where not.
std::string Marks(std::initializer_list<bool> flags, char on) {
    std::string marks;
    for (bool flag : flags)
        marks += flag ? on : '.';
    return marks;
}

// What each kind may carry, what changing to it clears and what it writes: a row a kind in
// the data file.
TEST(QPropDefKinds, EachKindCarriesClearsAndWritesItsOwnFields) {
    for (const auto& row : CaseRows("questions/kinds.txt")) {
        SCOPED_TRACE(row[0] + " " + row[1]);
        const QPropDef def =
            FullDefinitionOf(D::StringToControlType(CString::FromUtf8(row[0])), row[1] == "1");
        EXPECT_EQ(D::ControlTypeToString(def.ControlType()).ToUtf8(), row[0]);
        EXPECT_EQ(Marks({def.CanHaveName(), def.CanHaveQuestion(), def.CanHaveComboOptions(),
                         def.CanHaveExtra(), def.CanHaveQuestionWidth(), def.CanHaveAnswerWidth(),
                         def.CanHaveHeight(), def.CanHaveAction(), def.CanHaveAlignment(),
                         def.CanHaveAlignCenter()},
                        'x'),
                  row[2]);
        EXPECT_EQ(Marks({def.HasName(), !def.Question().IsEmpty(), def.QuestionWidth() == 4,
                         def.AnswerWidth() == 5, !def.Action().IsEmpty(), !def.Extra1().IsEmpty()},
                        'k'),
                  row[3]);
        EXPECT_EQ(WrittenAttributes(def), row[4]);
        if (!def.HasName()) {
            EXPECT_EQ(def.Type(), QAnyValue::TYPE_EMPTY);
        }
    }
}

// A minimal export writes only what differs from the default; a button without a question
// but with a colour is a colour button and writes it.
TEST(QPropDefKinds, AMinimalExportOfTheDefaultsWritesOnlyWhatHasNoDefault) {
    QPropDef def;
    def.SetDefaultValue(QAnyValue(CString()));
    EXPECT_EQ(WrittenAttributes(def, true), "controltype qwidth awidth")
        << "an empty string is no default value";
    def.SetDefaultValue(QAnyValue(7));
    EXPECT_EQ(WrittenAttributes(def, true), "controltype qwidth awidth defaultval");
    QPropDef other;
    other.SetControlType(D::Button);
    other.SetExtra1(u"RGB(255,0,0)");
    EXPECT_TRUE(other.IsColorSelectButton());
    EXPECT_EQ(WrittenAttributes(other, true), "controltype awidth height btncolor");
    other.SetQuestion(u"Paint");
    EXPECT_FALSE(other.IsColorSelectButton());
}

TEST(QPropDefKinds, ChangingKindClearsForGoodAndWidthsAreNeverNegative) {
    QPropDef def = FullDefinitionOf(D::Thumbnail, true);
    def.SetControlType(D::Edit);
    def.SetQuestionWidth(-4);
    EXPECT_EQ(DefinitionLine(def), "Edit qwidth=0 awidth=5 action=beep()");
    def.SetAnswerWidth(-1);
    EXPECT_EQ(def.AnswerWidth(), 0);
}

TEST(QPropDefHeight, RowsLiveInTheNegatedWidthOfTheKindsThatHaveThem) {
    const struct {
        D::CONTROLTYPE kind;
        int setHeight, questionWidth, answerWidth, height;
    } cases[] = {
        {D::Static, 4, 3, -4, 4}, {D::Button, 2, -2, 3, 2}, {D::Edit, 5, 3, 3, 1},
        {D::Static, 0, 3, 0, 1},  {D::Button, -2, 2, 3, 1}, {D::Groupbox, 9, 3, 3, 1},
    };
    for (const auto& c : cases) {
        QPropDef def;
        def.SetControlType(c.kind);
        def.SetQuestionWidth(3);
        def.SetAnswerWidth(3);
        def.SetHeight(c.setHeight);
        EXPECT_EQ(def.QuestionWidth(), c.questionWidth) << D::ControlTypeToString(c.kind).ToUtf8();
        EXPECT_EQ(def.AnswerWidth(), c.answerWidth) << D::ControlTypeToString(c.kind).ToUtf8();
        EXPECT_EQ(def.Height(), c.height) << D::ControlTypeToString(c.kind).ToUtf8();
    }
}

// A text of a file that no entry of its table spells exactly gives the first entry; a style
// word that is unknown is passed over, and missing size tweaks are 0.
TEST(QPropDefTexts, ATextNoEntrySpellsFallsBackToTheFirst) {
    EXPECT_EQ(D::StringToComboSource(u"folder names"), D::ComboList);
    EXPECT_EQ(D::StringToComboValue(u"INDEX"), D::ComboText);
    EXPECT_EQ(D::StringToRadioType(u"Value Per Button"), D::PropertyPerButton);
    EXPECT_EQ(D::StringToEnableMode(u"hidden"), D::Enabled);
    EXPECT_EQ(D::StringToStyleBits(u"bold|ITALIC|Glowing|quoted"),
              D::StyleBold | D::StyleItalic | D::StyleQuoted);
    EXPECT_EQ(D::SizeTweaks::FromString(u"1|-2").AsString(), CString(u"1|-2|0|0"));
}

TEST(QPropDefSubstitution, MarkersTakeNamedOrNumberedValuesOnce) {
    struct Case {
        const char* text;
        QArray<CString> values;
        QArray<CString> names;
        const char* expected;
    };
    const Case cases[] = {
        {"~~", {}, {}, "~~"},
        {"a~~b``c", Strings({"x"}), {}, "a~b`c"},
        {"a~1~b~2~", Strings({"X", "Y"}), {}, "aXbY"},
        {"~W~", Strings({"5"}), Strings({"w"}), ""},
        {"~w~", Strings({"1", "2"}), Strings({"w", "w"}), "2"},
        {"<~3~>", Strings({"a", "b"}), {}, "<>"},
        {"<~0~>", Strings({"a"}), {}, "<>"},
        {"=`1`", Strings({"abc"}), {}, "=\"abc\""},
        {"=`1`", Strings({"a\"b"}), {}, "='a\"b'"},
        {"=`1`", Strings({"a\"b'c"}), {}, "=\"a\"\"b'c\""},
        {"half~1", Strings({"a"}), {}, "half~1"},
        {"~1~2~", Strings({"~", "Z"}), {}, "~2~"},
        {"~1~~2~", Strings({"~1~", "Z"}), {}, "~1~Z"},
        {"~a`b~", Strings({"v"}), Strings({"a`b"}), "v"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(D::SubstituteValues(CString(c.text), c.values, c.names).ToUtf8(), c.expected)
            << c.text;
}

class QPropDefContextTest : public ErrorReportsTest {
protected:
    void SetUp() override {
        ErrorReportsTest::SetUp();
        SetNoEvalReportErrors(true);
        m_suppress = D::SuppressGroupBoxDisables();
        doc.Answers().SetPropertyValueWithFormula(PropId(u"plinth"), QAnyValue(4), FormulaText());
        doc.Answers().SetPropertyValueWithFormula(PropId(u"width"), QAnyValue(8),
                                                  FormulaText(u"plinth*2"));
    }
    void TearDown() override {
        D::SetSuppressGroupBoxDisables(m_suppress);
        ErrorReportsTest::TearDown();
    }

    AnswerDocument doc;
    bool m_suppress = false;
};

TEST_F(QPropDefContextTest, TextsBeginningAsFormulasAreEvaluatedInTheContext) {
    QPropDef def;
    def.SetQuestion(u"=plinth+1");
    def.SetTooltip(u":plinth*10");
    def.SetExtra1(u"=plinth*3");
    EXPECT_EQ(def.Question(&doc), CString(u"5"));
    EXPECT_EQ(def.Question(nullptr), CString(u"=plinth+1"));
    EXPECT_EQ(def.Tooltip(&doc), CString(u"40"));
    QAnyValue value;
    EXPECT_EQ(def.Extra1(&doc, &value), CString(u"12"));
    def.SetQuestion(u"=nosuchfunction(");
    EXPECT_EQ(def.Question(&doc), CString(u"=nosuchfunction("));
    def.SetExtra1(u"red");
    EXPECT_EQ(def.Extra1(&doc, &value), CString(u"red"));
    EXPECT_EQ(value.AsStringOrFormula(), CString(u"red"));
}

TEST_F(QPropDefContextTest, EnableModeFollowsParentFormulaAndFormulaDrivenAnswers) {
    const struct {
        bool suppress;
        const char16_t* formula; // nullptr: none
        const char16_t* name;    // nullptr: none
        bool withContext;
        D::ENABLEMODE parent, expected;
    } cases[] = {
        {false, nullptr, nullptr, true, D::Collapsed, D::Collapsed},
        {false, u"3", nullptr, true, D::Hidden, D::Hidden},
        {true, u"3", nullptr, true, D::Hidden, D::Enabled},
        {false, u"1", nullptr, false, D::Enabled, D::Hidden},
        {false, u"Yes", nullptr, false, D::Enabled, D::Enabled},
        {false, u"No", nullptr, false, D::Enabled, D::Collapsed},
        {false, u"plinth-3", nullptr, true, D::Enabled, D::Hidden},
        {false, u"nosuchfunction(", nullptr, true, D::Enabled, D::Collapsed},
        {false, u"2.0", nullptr, true, D::Enabled, D::Disabled},
        {false, nullptr, u"width", true, D::Enabled, D::Disabled},
        {false, nullptr, u"width", false, D::Enabled, D::Enabled},
        {false, nullptr, u"plinth", true, D::Enabled, D::Enabled},
        {false, u"4", u"width", true, D::Enabled, D::EnabledAllowFormulaOverride},
        {false, nullptr, u"width", true, D::EnabledAllowFormulaOverride,
         D::EnabledAllowFormulaOverride},
    };
    for (const auto& c : cases) {
        D::SetSuppressGroupBoxDisables(c.suppress);
        QPropDef def;
        if (c.formula)
            def.SetEnabledFormula(FormulaText(c.formula));
        if (c.name)
            def.SetName(ControlId(c.name));
        EXPECT_EQ(def.EnableMode(c.withContext ? &doc : nullptr, c.parent), c.expected)
            << (c.formula ? CString(c.formula).ToUtf8() : "-") << " "
            << (c.name ? CString(c.name).ToUtf8() : "-") << " suppress " << c.suppress;
    }
}

TEST(QPropDefIdentity, EveryFieldButIndexAndContextCounts) {
    QPropDef a = FullDefinitionOf(D::Dropdown, true);
    a.SetPropDefIndex(3);
    QPropDef b(a);
    EXPECT_EQ(b.PropDefIndex(), -1);
    EXPECT_TRUE(a == b);
    b.SetName(ControlId(u"SHELVES"));
    EXPECT_TRUE(a == b) << "names fold case";
    b.SetQuestion(u"How many Shelves?");
    EXPECT_TRUE(a != b) << "questions keep case";
    b = a;
    b.SetAnswerSizeTweaks({0, 0, 0, 1});
    EXPECT_FALSE(a == b);
    b = a;
    b.SetDefaultValue(QAnyValue(2));
    EXPECT_FALSE(a == b);
    b = a;
    b.SetIsTransparent(true);
    EXPECT_FALSE(a == b);
}

// Labels translated by a file of the test's own, and turned off again afterwards.
class QPropDefTranslationTest : public ExchangeFileTest {
protected:
    void SetUp() override {
        ExchangeFileTest::SetUp();
        const std::string path = Path("translations_fr.txt");
        WriteFileBytes(path, "Width\t\tLargeur\nDeep\t\tProfond\n");
        ASSERT_TRUE(SwitchToTranslationFile(CString::FromUtf8(path), false, false));
    }
    void TearDown() override {
        SwitchToTranslationFile(CString(), false, false);
        ExchangeFileTest::TearDown();
    }
};

TEST_F(QPropDefTranslationTest, FormulasHaveTheirStringsTranslatedAndOtherTextsTheWhole) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"Width", u"Largeur"},
        {u"Height", u"Height"},
        {u"=\"Deep\" & plinth", u"=\"Profond\" & plinth"},
        {u"=\"Deep\"\t& plinth", u"=\"Profond\"\t& plinth"},
        {u":plinth & \"Width\"", u":plinth & \"Largeur\""},
        {u"=plinth+1", u"=plinth+1"},
        {u"", u""},
    };
    for (const auto& [text, translated] : cases)
        EXPECT_EQ(D::TranslateFriendlyText(text), CString(translated)) << CString(text).ToUtf8();
}

} // namespace
} // namespace keel::test
