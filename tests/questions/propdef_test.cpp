#include "tests/support/answerdocument.h"
#include "tests/support/archivebytes.h"
#include "tests/support/exchangetests.h"
#include "tests/support/questiondump.h"

#include "keel/document/translate.h"
#include "keel/exchange/exportformatlevel.h"
#include "keel/platform/schema.h"
#include "keel/platform/stdiofileex.h"
#include "keel/questions/propdef.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel::test {
namespace {

using D = QPropDef;

QArray<CString> Strings(std::initializer_list<const char*> texts) {
    QArray<CString> array;
    for (const char* text : texts)
        array.Add(CString(text));
    return array;
}

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

// --- One row a kind: what it may carry, what changing to it clears, what it writes ----------

struct KindCase {
    D::CONTROLTYPE kind;
    bool fullWidth;
    // Name, Question, ComboOptions, Extra, QuestionWidth, AnswerWidth, Height, Action,
    // Alignment, AlignCenter.
    const char* predicates;
    // After the change from a drop list: name, question, question width, answer width, action,
    // source kept ("k") or cleared (".").
    const char* kept;
    const char* attributes;
};

const KindCase c_kinds[] = {
    {D::Groupbox, true, ".x........", ".k....",
     "controltype question align style enabledformula asizetweaks tooltip fullpagewidth"},
    {D::Groupbox, false, ".x..x.....", ".kk...",
     "controltype question align style enabledformula qwidth qsizetweaks asizetweaks "
     "allowoverlap tooltip fullpagewidth"},
    {D::Static, true, ".x..x.x.xx", ".kk...",
     "controltype question align style enabledformula qwidth qsizetweaks height allowoverlap "
     "tooltip"},
    {D::Edit, true, "xx..xx.xxx", "kkkkk.",
     "controltype question align style name type enabledformula qwidth qsizetweaks awidth "
     "asizetweaks allowoverlap action tooltip"},
    {D::Checkbox, true, "xx...x.xx.", "kk.kk.",
     "controltype question align style name type enabledformula awidth asizetweaks allowoverlap "
     "action tooltip"},
    {D::Dropdown, true, "xxxxxx.xxx", "kkkkkk",
     "controltype question align style name type sourcetype valuetype source enabledformula "
     "qwidth qsizetweaks awidth asizetweaks allowoverlap action tooltip"},
    {D::Button, true, "xx.x.xxx..", "kk.kk.",
     "controltype question align style name type enabledformula awidth asizetweaks height "
     "allowoverlap action tooltip"},
    {D::Option, true, "xx.x.x.xx.", "kk.kk.",
     "controltype question align style name type enabledformula awidth asizetweaks allowoverlap "
     "action tooltip radiotype newradiogroup value"},
    {D::Thumbnail, true, "...x.xxxxx", "...kk.",
     "controltype enabledformula awidth asizetweaks height allowoverlap action tooltip imgpath "
     "keepaspect transparent"},
    {D::Slider, true, "x..x.xxxxx", "k..kk.",
     "controltype name type enabledformula awidth asizetweaks height allowoverlap action tooltip "
     "tickstyle tickspacing"},
    {D::Placeholder, true, "....x.....", "..k...",
     "controltype enabledformula qwidth qsizetweaks allowoverlap tooltip"},
    {D::EndGroupbox, true, "..........", "......", "controltype enabledformula tooltip"},
};

std::string Predicates(const QPropDef& def) {
    const bool all[] = {def.CanHaveName(),          def.CanHaveQuestion(),
                        def.CanHaveComboOptions(),  def.CanHaveExtra(),
                        def.CanHaveQuestionWidth(), def.CanHaveAnswerWidth(),
                        def.CanHaveHeight(),        def.CanHaveAction(),
                        def.CanHaveAlignment(),     def.CanHaveAlignCenter()};
    std::string marks;
    for (bool on : all)
        marks += on ? 'x' : '.';
    return marks;
}

std::string Kept(const QPropDef& def) {
    const bool all[] = {def.HasName(),          !def.Question().IsEmpty(), def.QuestionWidth() == 4,
                        def.AnswerWidth() == 5, !def.Action().IsEmpty(),   !def.Extra1().IsEmpty()};
    std::string marks;
    for (bool on : all)
        marks += on ? 'k' : '.';
    return marks;
}

TEST(QPropDefKinds, EachKindCarriesClearsAndWritesItsOwnFields) {
    for (const KindCase& c : c_kinds) {
        const QPropDef def = FullDefinitionOf(c.kind, c.fullWidth);
        const std::string kind = D::ControlTypeToString(c.kind).ToUtf8();
        EXPECT_EQ(Predicates(def), c.predicates) << kind;
        EXPECT_EQ(Kept(def), c.kept) << kind;
        EXPECT_EQ(WrittenAttributes(def), c.attributes) << kind;
        if (!def.HasName()) {
            EXPECT_EQ(def.Type(), QAnyValue::TYPE_EMPTY) << kind;
        }
    }
    // A drop list is the starting point itself: nothing is cleared.
    const QPropDef dropList = FullDefinitionOf(D::DropList, true);
    EXPECT_EQ(Predicates(dropList), "xxxxxx.xxx");
    EXPECT_EQ(Kept(dropList), "kkkkkk");
}

TEST(QPropDefKinds, AButtonWithoutQuestionButWithAColourWritesItsColour) {
    QPropDef button;
    button.SetControlType(D::Button);
    button.SetExtra1(u"RGB(255,0,0)");
    EXPECT_TRUE(button.IsColorSelectButton());
    EXPECT_EQ(WrittenAttributes(button, true), "controltype awidth height btncolor");
    button.SetQuestion(u"Paint");
    EXPECT_FALSE(button.IsColorSelectButton());
}

TEST(QPropDefKinds, AMinimalExportOfTheDefaultsWritesOnlyWhatHasNoDefault) {
    const QPropDef def;
    EXPECT_EQ(WrittenAttributes(def, true), "controltype qwidth awidth");
    QPropDef groupbox;
    groupbox.SetControlType(D::Groupbox);
    EXPECT_EQ(WrittenAttributes(groupbox, true), "controltype");
    QPropDef withDefault;
    withDefault.SetDefaultValue(QAnyValue(CString()));
    EXPECT_EQ(WrittenAttributes(withDefault, true), "controltype qwidth awidth")
        << "an empty string is no default value";
    withDefault.SetDefaultValue(QAnyValue(7));
    EXPECT_EQ(WrittenAttributes(withDefault, true), "controltype qwidth awidth defaultval");
}

TEST(QPropDefKinds, ChangingKindClearsForGoodAndSameKindIsNoChange) {
    QPropDef def = FullDefinitionOf(D::Dropdown, true);
    def.SetControlType(D::Dropdown);
    EXPECT_EQ(def.Extra1(), CString(u"1|2|3"));
    def.SetControlType(D::Thumbnail);
    def.SetControlType(D::Edit);
    EXPECT_FALSE(def.HasName());
    EXPECT_TRUE(def.Question().IsEmpty());
    EXPECT_TRUE(def.Extra1().IsEmpty());
    def.SetQuestionWidth(-4);
    def.SetAnswerWidth(-1);
    EXPECT_EQ(def.QuestionWidth(), 0);
    EXPECT_EQ(def.AnswerWidth(), 0);
}

// --- Height and ticks -----------------------------------------------------------------------

TEST(QPropDefHeight, RowsLiveInTheNegatedWidthOfTheKindsThatHaveThem) {
    struct Case {
        D::CONTROLTYPE kind;
        int setHeight;
        int questionWidth;
        int answerWidth;
        int height;
    };
    const Case cases[] = {
        {D::Static, 4, 3, -4, 4}, {D::Button, 2, -2, 3, 2},  {D::Thumbnail, 6, -6, 3, 6},
        {D::Slider, 3, -3, 3, 3}, {D::Edit, 5, 3, 3, 1},     {D::Static, 0, 3, 0, 1},
        {D::Button, -2, 2, 3, 1}, {D::Groupbox, 9, 3, 3, 1},
    };
    for (const Case& c : cases) {
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

TEST(QPropDefHeight, TicksNameTheirSideByWhetherTheSliderStandsUpright) {
    struct Case {
        int height;
        int answerWidth;
        int style;
        const char* text;
    };
    const Case cases[] = {{3, 2, 0, "Right"}, {1, 2, 0, "Bottom"}, {2, 2, 0, "Bottom"},
                          {3, 2, 4, "Left"},  {1, 2, 4, "Top"},    {1, 2, 8, "Both"},
                          {3, 2, 8, "Both"},  {3, 2, 12, ""},      {1, 2, 1, ""}};
    for (const Case& c : cases) {
        QPropDef slider;
        slider.SetControlType(D::Slider);
        slider.SetHeight(c.height);
        slider.SetAnswerWidth(c.answerWidth);
        slider.SetStyle(c.style);
        EXPECT_EQ(slider.TickStyleAsString().ToUtf8(), c.text) << c.height << " " << c.style;
    }
    QPropDef slider;
    slider.SetControlType(D::Slider);
    const std::pair<const char16_t*, int> reads[] = {{u"top", 4},  {u"BOTH", 8},   {u"Right", 0},
                                                     {u"Left", 4}, {u"bottom", 0}, {u"Middle", 0}};
    slider.SetStyle(0);
    for (const auto& [text, style] : reads) {
        slider.SetTickStyleFromString(text);
        EXPECT_EQ(slider.Style(), style) << CString(text).ToUtf8();
    }
    slider.SetStyle(8);
    slider.SetTickStyleFromString(u"sideways");
    EXPECT_EQ(slider.Style(), 8) << "an unknown text leaves the style alone";
}

// --- Enumeration texts ----------------------------------------------------------------------

TEST(QPropDefTexts, EachTableReadsBackWithCaseAndFallsBackOtherwise) {
    for (int i = 0; i <= D::EndGroupbox; ++i)
        EXPECT_EQ(D::StringToControlType(D::ControlTypeToString(static_cast<D::CONTROLTYPE>(i))),
                  i);
    EXPECT_EQ(D::ControlTypeToString(D::DropList), CString(u"Drop List"));
    EXPECT_EQ(D::ControlTypeToString(D::EndGroupbox), CString(u"End Groupbox"));
    EXPECT_EQ(D::StringToControlType(u"static"), D::Edit);
    EXPECT_EQ(D::StringToControlType(u"Knob"), D::Edit);
    EXPECT_EQ(D::StringToComboSource(u"Folder Names"), D::ComboFolderNames);
    EXPECT_EQ(D::StringToComboSource(u"folder names"), D::ComboList);
    EXPECT_EQ(D::ComboSourceToString(D::ComboFromFile), CString(u"From File"));
    EXPECT_EQ(D::StringToComboValue(u"Index"), D::ComboIndex);
    EXPECT_EQ(D::StringToComboValue(u"INDEX"), D::ComboText);
    EXPECT_EQ(D::RadioTypeToString(D::ValuePerButton), CString(u"Value-Per-Button"));
    EXPECT_EQ(D::StringToRadioType(u"Value-Per-Button"), D::ValuePerButton);
    EXPECT_EQ(D::StringToRadioType(u"Value Per Button"), D::PropertyPerButton);
    EXPECT_EQ(D::EnableModeToString(D::EnabledAllowFormulaOverride),
              CString(u"Enabled + Allow Formula Override"));
    EXPECT_EQ(D::StringToEnableMode(u"Hidden"), D::Hidden);
    EXPECT_EQ(D::StringToEnableMode(u"hidden"), D::Enabled);
}

TEST(QPropDefTexts, AlignmentAndStyleFlagsAsText) {
    EXPECT_EQ(D::AlignmentBitsToString(0), CString());
    EXPECT_EQ(D::AlignmentBitsToString(D::AlignCenter | D::StyleBold), CString(u"Center"));
    EXPECT_EQ(D::AlignmentBitsToString(D::AlignRight), CString(u"Right"));
    EXPECT_EQ(D::StringToAlignmentBits(u"center"), D::AlignCenter);
    EXPECT_EQ(D::StringToAlignmentBits(u"LEFT"), D::AlignLeft);
    EXPECT_EQ(D::StringToAlignmentBits(u"None"), D::AlignNone);
    EXPECT_EQ(D::StyleBitsToString(D::StyleSorted | D::StyleBold | D::StyleUnderline | 3),
              CString(u"Bold|Underline|Sorted"));
    EXPECT_EQ(D::StyleBitsToString(D::AlignLeft), CString());
    EXPECT_EQ(D::StringToStyleBits(u"bold|ITALIC|Glowing|quoted"),
              D::StyleBold | D::StyleItalic | D::StyleQuoted);
    EXPECT_EQ(D::StringToStyleBits(u""), 0);
    EXPECT_EQ(D::SizeTweaks::FromString(u"1|-2").AsString(), CString(u"1|-2|0|0"));
    EXPECT_EQ(D::SizeTweaks::FromString(u"4|3|2|1"), (D::SizeTweaks{4, 3, 2, 1}));
}

// --- Value substitution ---------------------------------------------------------------------

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
        {"~w~mm", Strings({"5"}), Strings({"w"}), "5mm"},
        {"~W~", Strings({"5"}), Strings({"w"}), ""},
        {"~w~", Strings({"1", "2"}), Strings({"w", "w"}), "2"},
        {"<~3~>", Strings({"a", "b"}), {}, "<>"},
        {"<~0~>", Strings({"a"}), {}, "<>"},
        {"<~x~>", Strings({"a"}), Strings({"y"}), "<>"},
        {"=`1`", Strings({"abc"}), {}, "=\"abc\""},
        {"=`1`", Strings({"a\"b"}), {}, "='a\"b'"},
        {"=`1`", Strings({"a\"b'c"}), {}, "=\"a\"\"b'c\""},
        {"=~1~", Strings({"abc"}), {}, "=abc"},
        {"half~1", Strings({"a"}), {}, "half~1"},
        {"~1~2~", Strings({"~", "Z"}), {}, "~2~"},
        {"~1~~2~", Strings({"~1~", "Z"}), {}, "~1~Z"},
        {"~a`b~", Strings({"v"}), Strings({"a`b"}), "v"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(D::SubstituteValues(CString(c.text), c.values, c.names).ToUtf8(), c.expected)
            << c.text;
}

TEST(QPropDefSubstitution, TheClassWideArraysServeImports) {
    D::SetSubstitutions(Strings({"600"}), Strings({"width"}));
    EXPECT_EQ(D::SubstituteValues(u"~width~"), CString(u"600"));
    D::ClearSubstitutions();
    EXPECT_EQ(D::SubstituteValues(u"~width~"), CString(u"~width~"));
}

// --- Friendly texts and enabling ------------------------------------------------------------

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
    EXPECT_TRUE(value.IsInt() || value.IsDouble());
    def.SetQuestion(u"=nosuchfunction(");
    EXPECT_EQ(def.Question(&doc), CString(u"=nosuchfunction("));
    def.SetQuestion(u"plinth+1");
    EXPECT_EQ(def.Question(&doc), CString(u"plinth+1"));
    def.SetExtra1(u"red");
    EXPECT_EQ(def.Extra1(&doc, &value), CString(u"red"));
    EXPECT_EQ(value.AsStringOrFormula(), CString(u"red"));
}

TEST_F(QPropDefContextTest, EnableModeFollowsParentFormulaAndFormulaDrivenAnswers) {
    struct Case {
        bool suppress;
        const char16_t* formula; // nullptr: none
        const char16_t* name;    // nullptr: none
        bool withContext;
        D::ENABLEMODE parent;
        D::ENABLEMODE expected;
    };
    const Case cases[] = {
        {false, nullptr, nullptr, true, D::Collapsed, D::Collapsed},
        {true, nullptr, nullptr, true, D::Collapsed, D::Collapsed},
        {false, u"3", nullptr, true, D::Hidden, D::Hidden},
        {true, u"3", nullptr, true, D::Hidden, D::Enabled},
        {false, u"1", nullptr, false, D::Enabled, D::Hidden},
        {false, u"Yes", nullptr, false, D::Enabled, D::Enabled},
        {false, u"No", nullptr, false, D::Enabled, D::Collapsed},
        {false, u"plinth-3", nullptr, true, D::Enabled, D::Hidden},
        {false, u"plinth>3", nullptr, true, D::Enabled, D::Enabled},
        {false, u"plinth<3", nullptr, true, D::Enabled, D::Collapsed},
        {false, u"\"yes\"", nullptr, true, D::Enabled, D::Enabled},
        {false, u"nosuchfunction(", nullptr, true, D::Enabled, D::Collapsed},
        {false, u"2.0", nullptr, true, D::Enabled, D::Disabled},
        {false, nullptr, u"width", true, D::Enabled, D::Disabled},
        {false, nullptr, u"width", false, D::Enabled, D::Enabled},
        {false, nullptr, u"plinth", true, D::Enabled, D::Enabled},
        {false, u"4", u"width", true, D::Enabled, D::EnabledAllowFormulaOverride},
        {false, nullptr, u"width", true, D::EnabledAllowFormulaOverride,
         D::EnabledAllowFormulaOverride},
    };
    for (const Case& c : cases) {
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

// --- Identity -------------------------------------------------------------------------------

TEST(QPropDefIdentity, EveryFieldButIndexAndContextCounts) {
    QPropDef a = FullDefinitionOf(D::Dropdown, true);
    a.SetPropDefIndex(3);
    QPropDef b(a);
    EXPECT_EQ(b.PropDefIndex(), -1);
    EXPECT_TRUE(a == b);
    b.SetName(ControlId(u"SHELVES"));
    EXPECT_TRUE(a == b) << "names fold case";
    EXPECT_TRUE(a.SameNameAs(b));
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

// --- Archive --------------------------------------------------------------------------------

Bytes Int32(std::int32_t value) {
    const auto u = static_cast<std::uint32_t>(value);
    return {static_cast<std::uint8_t>(u), static_cast<std::uint8_t>(u >> 8),
            static_cast<std::uint8_t>(u >> 16), static_cast<std::uint8_t>(u >> 24)};
}

const Bytes c_empty = WideString(u"");

void LoadInto(QPropDef& def, const Bytes& bytes, int schema) {
    Loading loading(bytes, 4096, CString(), static_cast<unsigned>(schema));
    def.Serialize(loading.archive);
    EXPECT_TRUE(loading.archive.IsBufferEmpty()) << "every byte is read, schema " << schema;
}

QPropDef LoadAt(const Bytes& bytes, int schema) {
    QPropDef def;
    LoadInto(def, bytes, schema);
    return def;
}

Bytes Store(QPropDef& def) {
    return Stored([&def](CArchive& archive) { def.Serialize(archive); });
}

// A drop list in the current layout.
// What every layout begins with: name, question, type, control type, combo source and value,
// the enabled formula, the layout byte, the source and both widths.
Bytes Head(const char16_t* name, const char16_t* question, Bytes kinds, std::uint8_t layout,
           const char16_t* source, std::int32_t questionWidth, std::int32_t answerWidth,
           const char16_t* enabled = u"") {
    return Concat({WideString(name),
                   WideString(question),
                   kinds,
                   WideString(enabled),
                   {layout},
                   WideString(source),
                   Int32(questionWidth),
                   Int32(answerWidth)});
}

Bytes Tweaks(std::initializer_list<std::int32_t> numbers) {
    Bytes bytes;
    for (std::int32_t number : numbers)
        bytes = Concat({bytes, Int32(number)});
    return bytes;
}

// A drop list in the current layout: then the action, style, overlap, tooltip, radio type, the
// three flags and both size tweaks.
const Bytes c_currentDropList =
    Concat({Head(u"Shelves", u"How many?", {3, 5, 1, 1}, 3, u"shelves.txt", 4, -2, u"plinth>2"),
            WideString(u"beep()"),
            Int32(0x22),
            {1},
            WideString(u"Pick"),
            {0, 0, 0, 1},
            Tweaks({1, 2, -3, 4, 0, 0, 0, -1})});

QPropDef CurrentDropList() {
    QPropDef def;
    def.SetControlType(D::DropList);
    def.SetName(ControlId(u"Shelves"));
    def.SetQuestion(u"How many?");
    def.SetType(QAnyValue::TYPE_INT);
    def.SetComboSource(D::ComboFromFile);
    def.SetComboValue(D::ComboIndex);
    def.SetEnabledFormula(FormulaText(u"plinth>2"));
    def.SetExtra1(u"shelves.txt");
    def.SetQuestionWidth(4);
    def.SetAnswerWidth(3);
    def.SetHeight(2); // no height: the field stays
    def.SetAction(FormulaText(u"beep()"));
    def.SetStyle(0x22);
    def.SetAllowControlOverlap(true);
    def.SetTooltip(u"Pick");
    def.SetIsTransparent(true);
    def.SetIsGroupboxFullWidth(false);
    def.SetQuestionSizeTweaks({1, 2, -3, 4});
    def.SetAnswerSizeTweaks({0, 0, 0, -1});
    return def;
}

TEST(QPropDefArchive, TheCurrentLayoutIsWrittenReadAndWrittenAgainByteForByte) {
    QPropDef def = CurrentDropList();
    // The answer width of -2 only comes from a file: a setter keeps widths at 0 or above.
    QPropDef loaded = LoadAt(c_currentDropList, 110);
    EXPECT_EQ(loaded.AnswerWidth(), -2);
    loaded.SetAnswerWidth(3);
    EXPECT_TRUE(loaded == def);
    loaded = LoadAt(c_currentDropList, 110);
    EXPECT_EQ(Store(loaded), c_currentDropList);
    def.SetDefaultValue(QAnyValue(5));
    Bytes written = Store(def);
    EXPECT_EQ(written.size(), c_currentDropList.size()) << "the default value is not written";
}

struct SchemaCase {
    const char* what;
    int schema;
    Bytes bytes;
    std::string line;
};

std::vector<SchemaCase> SchemaCases() {
    const Bytes action = Concat({WideString(u"go()"), Int32(0)});
    const Bytes tail103 = Concat({{0}, WideString(u"Tip"), {1, 1}});
    const Bytes tweaks = Tweaks({1, 2, 3, 4, 5, 6, 7, 8});
    const Bytes box = Concat({Head(u"", u"Box", {0, 0, 0, 0}, 3, u"", 3, 0), c_empty, Int32(4)});
    const Bytes plinth = Head(u"Plinth", u"Plinth", {4, 2, 0, 0}, 3, u"12", 3, 3);
    const Bytes labelled = Concat({Head(u"a", u"= 1+2", {1, 2, 0, 0}, 3, u"", 3, 3),
                                   c_empty,
                                   Int32(1),
                                   tail103,
                                   {0},
                                   tweaks});
    const std::string radio = " tooltip=Tip radio=Value-Per-Button newradiogroup=1";
    const std::string tweaked = " qtweaks=1|2|3|4 atweaks=5|6|7|8";
    const std::string box103 = "Groupbox question=Box awidth=0 style=4" + radio;
    const std::string label = " type=String style=1" + radio + " fullwidth=0" + tweaked;
    return {
        {"61: no style, layout 1 without action; the style comes from the source", 61,
         Head(u"Plinth", u"Plinth", {4, 2, 0, 0}, 1, u"12", 3, 3),
         "Edit name=plinth question=Plinth type=Number extra=12 style=12"},
        {"62: layout 2 drops a string; a combo keeps style 0", 62,
         Concat({Head(u"Kind", u"Kind", {1, 4, 0, 0}, 2, u"3", 3, 3), WideString(u"dropped"),
                 Int32(0)}),
         "Dropdown name=kind question=Kind type=String extra=3"},
        {"69: the last with the style from the source", 69, Concat({plinth, action}),
         "Edit name=plinth question=Plinth type=Number extra=12 action=go() style=12"},
        {"70: style 0 stays 0", 70, Concat({plinth, action}),
         "Edit name=plinth question=Plinth type=Number extra=12 action=go()"},
        {"102: an empty static becomes a placeholder", 102,
         Concat({Head(u"", u"", {0, 1, 0, 0}, 3, u"", 2, 0), c_empty, Int32(0)}),
         "Placeholder qwidth=2 awidth=0"},
        {"102: an empty group box ends the open one", 102,
         Concat({Head(u"", u"", {0, 0, 0, 0}, 3, u"", 0, 0), c_empty, Int32(0)}),
         "End Groupbox qwidth=0 awidth=0"},
        {"102: a lone blank is no question", 102,
         Concat({Head(u"a", u" ", {1, 2, 0, 0}, 3, u"", 3, 3), c_empty, Int32(1)}),
         "Edit name=a type=String style=1"},
        {"103: overlap, tooltip and radio fields, no full-width flag", 103,
         Concat({box, tail103, tweaks}), box103 + tweaked},
        {"107: the full-width flag, no transparency", 107, Concat({box, tail103, {0}, tweaks}),
         box103 + " fullwidth=0" + tweaked},
        {"108: label formulas are brought to the token stream's text", 108, labelled,
         "Edit name=a question==1+2" + label},
        {"109: label formulas stay as written", 109, labelled,
         "Edit name=a question== 1+2" + label},
        {"110: transparency", 110, Concat({box, tail103, {0, 1}, tweaks}),
         box103 + " fullwidth=0 transparent=1" + tweaked},
    };
}

TEST(QPropDefArchive, EachOlderLayoutIsReadAndWrittenAgainInTheCurrentOne) {
    for (const SchemaCase& c : SchemaCases()) {
        D::ForgetPreviousOption();
        QPropDef loaded = LoadAt(c.bytes, c.schema);
        EXPECT_EQ(DefinitionLine(loaded), c.line) << c.what;
        Bytes rewritten = Store(loaded);
        QPropDef again = LoadAt(rewritten, 110);
        EXPECT_TRUE(again == loaded) << c.what;
        EXPECT_EQ(Store(again), rewritten) << c.what;
    }
}

TEST(QPropDefArchive, OlderOptionsOfOneTabPairByName) {
    auto option = [](const char16_t* name, const char16_t* value) {
        return Concat({Head(name, u"Q", {2, 7, 0, 0}, 3, value, 3, 3), c_empty, Int32(0)});
    };
    D::ForgetPreviousOption();
    QPropDef first, second, third, fourth, fifth, nextTab;
    LoadInto(first, option(u"Finish", u"Oak"), 100);
    LoadInto(second, option(u"finish", u"Ash"), 100);
    LoadInto(third, option(u"Glazed", u""), 100);
    LoadInto(fourth, option(u"Lit", u"1"), 100);
    EXPECT_EQ(first.RadioType(), D::ValuePerButton) << "paired by the one after it";
    EXPECT_EQ(second.RadioType(), D::ValuePerButton);
    EXPECT_TRUE(first.IsNewRadioGroup()) << "no option before it";
    EXPECT_FALSE(second.IsNewRadioGroup());
    EXPECT_EQ(third.RadioType(), D::PropertyPerButton);
    EXPECT_TRUE(third.IsNewRadioGroup()) << "the radio type changed";
    EXPECT_EQ(fourth.RadioType(), D::PropertyPerButton);
    EXPECT_TRUE(fourth.IsNewRadioGroup()) << "a value and a name of its own";
    LoadInto(fifth, option(u"Plain", u""), 100);
    EXPECT_FALSE(fifth.IsNewRadioGroup());
    D::ForgetPreviousOption();
    LoadInto(nextTab, option(u"Plain", u""), 100);
    D::ForgetPreviousOption();
    {
        QPropDef gone;
        LoadInto(gone, option(u"Gone", u""), 100);
    }
    QPropDef afterGone;
    LoadInto(afterGone, option(u"Gone", u""), 100);
    EXPECT_EQ(afterGone.RadioType(), D::PropertyPerButton) << "a dead option pairs with nothing";
    EXPECT_TRUE(afterGone.IsNewRadioGroup());
    D::ForgetPreviousOption();
    EXPECT_TRUE(nextTab.IsNewRadioGroup());
}

TEST(QPropDefArchive, EveryShortenedArchiveFailsAsAnArchive) {
    for (std::size_t size = 0; size < c_currentDropList.size(); ++size) {
        Loading loading(Bytes(c_currentDropList.begin(), c_currentDropList.begin() + size), 4096,
                        CString(), 110);
        QPropDef def;
        EXPECT_THROW(def.Serialize(loading.archive), CArchiveException) << size;
    }
}

// --- The legacy question line ---------------------------------------------------------------

class QPropDefLegacyTest : public ExchangeFileTest {
protected:
    CStdioFileEx& Open(const std::string& text) {
        const std::string path = Path("questions.viq");
        WriteFileBytes(path, text);
        m_file = std::make_unique<CStdioFileEx>(CString::FromUtf8(path),
                                                CFile::modeRead | CFile::typeText);
        return *m_file;
    }
    std::unique_ptr<CStdioFileEx> m_file;
};

TEST_F(QPropDefLegacyTest, AQuestionLineFillsEveryFieldAndEmptyFieldsTakeTheirDefaults) {
    CStdioFileEx& file = Open("Width\tWidth of ~1~\t3\t4\t1\t1\tplinth>1\tw.txt\t5\t6\tgo()\t2\tT\t"
                              "2+3\n"
                              "\n"
                              "bare\n"
                              "~2~\t\t\t\t\t\t\t\t\t\t\t\t\tnot a formula (\n"
                              "_x\tUnder\n"
                              "[tab]\tNext\n");
    const QArray<CString> values = Strings({"cabinet", "Height"});
    // A blank line is skipped; an empty default clears the one there was; a default that does
    // not parse is kept as text.
    const char* lines[] = {
        ("Dropdown name=width question=Width of cabinet type=Whole Number source=From File "
         "value=Index enabled=plinth>1 extra=w.txt qwidth=5 awidth=6 action=go() style=2 "
         "tooltip=T default=Whole Number:5"),
        "Edit name=bare type=String",
        "Edit name=height type=String default=String:not a formula (",
        "Edit name=_x question=Under type=String",
    };
    for (const char* line : lines) {
        QPropDef def;
        def.SetDefaultValue(QAnyValue(1));
        ASSERT_TRUE(def.ReadFromLegacyQIQFile(&file, values, {})) << line;
        EXPECT_EQ(DefinitionLine(def), line);
    }

    QPropDef none;
    EXPECT_FALSE(none.ReadFromLegacyQIQFile(&file, values, {}));
    CString line;
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"[tab]\tNext")) << "the line is given back to the tab reader";
    EXPECT_FALSE(none.ReadFromLegacyQIQFile(&file, values, {})) << "end of file";
}

TEST_F(QPropDefLegacyTest, OnlyLettersDigitsBlanksMarkersAndUnderscoreStartAQuestion) {
    const std::pair<const char*, bool> starts[] = {
        {"[group]\tg", false}, {"#note", false},       {"-x", false},    {"~1~", true},
        {"`1`", true},         {"\tempty name", true}, {"9lives", true}, {"zed", true},
    };
    for (const auto& [start, question] : starts) {
        CStdioFileEx& file = Open(std::string(start) + "\n");
        QPropDef def;
        EXPECT_EQ(def.ReadFromLegacyQIQFile(&file, {}, {}), question) << start;
        if (!question) {
            CString line;
            EXPECT_TRUE(file.ReadString(line));
            EXPECT_EQ(line.ToUtf8(), start);
        }
    }
}

TEST_F(QPropDefLegacyTest, AnOldEmptyStaticBecomesAPlaceholderAndOutOfRangeNumbersFallBack) {
    CStdioFileEx& file = Open("\t\t1\t1\n"
                              "x\tX\t99\t42\t7\t9\n");
    for (const char* line : {"Placeholder awidth=0", "Edit name=x question=X"}) {
        QPropDef def;
        ASSERT_TRUE(def.ReadFromLegacyQIQFile(&file, {}, {}));
        EXPECT_EQ(DefinitionLine(def), line);
    }
}

// --- Export files ---------------------------------------------------------------------------

// The definitions of a tab, each a level of its own named by its position.
class DefinitionList : public QImportableExportable {
public:
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override {
        bool ok = true;
        for (const QSmartPtr<QPropDef>& def : defs)
            ok = level.AddExportable(def.Get(), false) && ok;
        return ok;
    }
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override {
        bool ok = true;
        for (const QSmartPtr<QPropDef>& def : defs)
            ok = level.MergeImportableIfPresent(def.Get()) && ok;
        return ok;
    }
    QPropDef& Add(const QPropDef& def) {
        defs.Add(QSmartPtr<QPropDef>(new QPropDef(def)));
        defs[defs.GetSize() - 1]->SetPropDefIndex(defs.GetSize());
        return *defs[defs.GetSize() - 1];
    }
    // As many fresh definitions, numbered alike.
    DefinitionList Blank() const {
        DefinitionList blank;
        for (int i = 0; i < defs.GetSize(); ++i)
            blank.Add(QPropDef());
        return blank;
    }
    QSmartPtrArray<QPropDef> defs;
};

DefinitionList EveryKind() {
    DefinitionList list;
    QPropDef group;
    group.SetControlType(D::Groupbox);
    group.SetQuestion(u"Carcass");
    group.SetStyle(D::StyleBold | D::AlignCenter);
    group.SetIsGroupboxFullWidth(false);
    group.SetQuestionWidth(6);
    group.SetAnswerSizeTweaks({1, 1, 0, 0});
    list.Add(group);
    QPropDef label;
    label.SetControlType(D::Static);
    label.SetQuestion(u"=\"Plinth \" & plinth");
    label.SetHeight(2);
    label.SetAllowControlOverlap(true);
    list.Add(label);
    QPropDef edit;
    edit.SetName(ControlId(u"Plinth"));
    edit.SetType(QAnyValue::TYPE_LENGTH);
    edit.SetQuestion(u"Plinth");
    edit.SetStyle(D::AlignRight | D::StyleItalic);
    edit.SetEnabledFormula(FormulaText(u"width>3"));
    edit.SetAction(FormulaText(u"plinth:=plinth+1"));
    edit.SetTooltip(u"How deep, \"inside\"");
    edit.SetQuestionSizeTweaks({-1, 2, -3, 4});
    edit.SetDefaultValue(QAnyValue(12));
    list.Add(edit);
    QPropDef combo = FullDefinitionOf(D::Dropdown, true);
    combo.SetComboSource(D::ComboFolderNames);
    combo.SetComboValue(D::ComboIndex);
    list.Add(combo);
    QPropDef colour;
    colour.SetControlType(D::Button);
    colour.SetName(ControlId(u"Colour"));
    colour.SetExtra1(u"RGB(0,0,255)");
    colour.SetHeight(2);
    list.Add(colour);
    QPropDef option;
    option.SetControlType(D::Option);
    option.SetName(ControlId(u"Finish"));
    option.SetQuestion(u"Oak");
    option.SetRadioType(D::ValuePerButton);
    option.SetIsNewRadioGroup(true);
    option.SetExtra1(u"light oak");
    list.Add(option);
    QPropDef picture;
    picture.SetControlType(D::Thumbnail);
    picture.SetExtra1(u"door.png");
    picture.SetStyle(1);
    picture.SetIsTransparent(true);
    picture.SetHeight(4);
    list.Add(picture);
    QPropDef slider;
    slider.SetControlType(D::Slider);
    slider.SetName(ControlId(u"Shelves"));
    slider.SetHeight(3);
    slider.SetAnswerWidth(2);
    slider.SetStyle(D::TicksTopOrLeft);
    slider.SetExtra1(u"2");
    list.Add(slider);
    QPropDef spacer;
    spacer.SetControlType(D::Placeholder);
    spacer.SetQuestionWidth(2);
    list.Add(spacer);
    QPropDef end;
    end.SetControlType(D::EndGroupbox);
    list.Add(end);
    list.Add(QPropDef());
    return list;
}

class QPropDefExchangeTest : public ExchangeFileTest {
protected:
    const std::vector<Report> c_completed{{"Import", "Import completed with no errors."}};
    void TearDown() override {
        D::ClearSubstitutions();
        ExchangeFileTest::TearDown();
    }
};

TEST_F(QPropDefExchangeTest, EveryKindGoesThroughTabAndXmlFilesWhole) {
    const DefinitionList written = EveryKind();
    for (const char* name : {"full.tab", "minimal.tab", "full.xml", "minimal.xml"}) {
        const bool minimal = std::string(name).rfind("minimal", 0) == 0;
        ASSERT_TRUE(written.ExportData(PathOf(name), minimal, false, nullptr)) << name;
        DefinitionList read = written.Blank();
        EXPECT_TRUE(read.ImportOrMergeFrom(PathOf(name), true, nullptr)) << name;
        for (int i = 0; i < written.defs.GetSize(); ++i)
            EXPECT_TRUE(*read.defs[i] == *written.defs[i])
                << name << " " << D::ControlTypeToString(written.defs[i]->ControlType()).ToUtf8();
        EXPECT_EQ(read.defs[2]->DefaultValue().Type(), QAnyValue::TYPE_INT) << name;
        EXPECT_EQ(PendingReports(), c_completed) << name;
        TheErrorLog().DiscardPendingMessages();
    }
}

TEST_F(QPropDefExchangeTest, ImportsSubstituteEveryAttributeAndTheLastSourceWins) {
    D::SetSubstitutions(Strings({"Plinth", "7", "Yes", "oak.png"}), Strings({"n"}));
    DefinitionList read;
    read.Add(QPropDef());
    read.Add(QPropDef());
    read.Add(QPropDef());
    // Texts are quoted as the writer quotes them; a formula has a column of its own.
    const std::string text = "controltype\t\"\"\"Edit\"\"\"\t\t1\n"
                             "name\t\"\"\"~n~\"\"\"\t\t1\n"
                             "question\t\"\"\"How ~n~?\"\"\"\t\t1\n"
                             "qwidth\t\"\"\"~2~\"\"\"\t\t1\n"
                             "enabledformula\t\t~n~>`4`\t1\n"
                             "defaultval\t\"\"\"~2~\"\"\"\t\t1\n"
                             "controltype\t\"\"\"Thumbnail\"\"\"\t\t2\n"
                             "imgpath\t\"\"\"~4~\"\"\"\t\t2\n"
                             "source\t\"\"\"last.png\"\"\"\t\t2\n"
                             "keepaspect\t\"\"\"~3~\"\"\"\t\t2\n"
                             "controltype\t\"\"\"Knob\"\"\"\t\t3\n"
                             "align\t\"\"\"center\"\"\"\t\t3\n"
                             "style\t\"\"\"bold\"\"\"\t\t3\n"
                             "awidth\t\"\"\"wide\"\"\"\t\t3\n";
    EXPECT_TRUE(Import(read, text));
    // Unknown kinds are edit boxes; the texts of alignment and style are read without case; a
    // width that is no number becomes 0, a whole number's default, and the import still succeeds.
    const char* lines[] = {
        ("Edit name=plinth question=How Plinth? enabled=Plinth>\"oak.png\" qwidth=7 "
         "default=String:7"),
        "Thumbnail extra=last.png qwidth=0 style=1",
        "Edit awidth=0 style=6",
    };
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(DefinitionLine(*read.defs[i]), lines[i]);
}

TEST_F(QPropDefExchangeTest, TheIdentifierIsThePositionAndTheLevelIsControl) {
    QPropDef def;
    def.SetPropDefIndex(12);
    EXPECT_EQ(def.GetExportableIdentifier(), CString(u"12"));
    EXPECT_EQ(def.GetExportLevelName(), CString(u"Control"));
    EXPECT_EQ(def.GetExportAsciiContextStyle(), 2);
}

} // namespace
} // namespace keel::test

namespace keel::test {
namespace {

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
        D::SetTranslateDuringSerialize(false);
        SwitchToTranslationFile(CString(), false, false);
        ExchangeFileTest::TearDown();
    }
};

TEST_F(QPropDefTranslationTest, FormulasHaveTheirStringsTranslatedAndOtherTextsTheWhole) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"Width", u"Largeur"},
        {u"Height", u"Height"},
        {u"=\"Deep\" & plinth", u"=\"Profond\" & plinth"},
        {u":plinth & \"Width\"", u":plinth & \"Largeur\""},
        {u"=plinth+1", u"=plinth+1"},
        {u"", u""},
    };
    for (const auto& [text, translated] : cases)
        EXPECT_EQ(D::TranslateFriendlyText(text), CString(translated)) << CString(text).ToUtf8();
}

TEST_F(QPropDefTranslationTest, LoadsTranslateQuestionAndTooltipOnlyWhenAsked) {
    auto archived = [](const char16_t* question) {
        return Concat({Head(u"w", question, {3, 2, 0, 0}, 3, u"", 3, 3),
                       c_empty,
                       Int32(0),
                       {0},
                       WideString(u"=\"Deep\""),
                       {0, 0, 1, 0},
                       Bytes(32, 0)});
    };
    QPropDef plain = LoadAt(archived(u"Width"), 110);
    EXPECT_EQ(plain.Question(), CString(u"Width"));
    D::SetTranslateDuringSerialize(true);
    QPropDef translated = LoadAt(archived(u"Width"), 110);
    EXPECT_EQ(translated.Question(), CString(u"Largeur"));
    EXPECT_EQ(translated.Tooltip(), CString(u"=\"Profond\""));
    QPropDef noQuestion = LoadAt(archived(u""), 110);
    EXPECT_EQ(noQuestion.Tooltip(), CString(u"=\"Deep\"")) << "without a question nothing is";
    const std::string path = Path("line.viq");
    WriteFileBytes(path, "w\tWidth\t\t\t\t\t\t\t\t\t\t\tDeep\n");
    CStdioFileEx file(CString::FromUtf8(path), CFile::modeRead | CFile::typeText);
    QPropDef line;
    ASSERT_TRUE(line.ReadFromLegacyQIQFile(&file, {}, {}));
    EXPECT_EQ(line.Question(), CString(u"Largeur"));
    EXPECT_EQ(line.Tooltip(), CString(u"Profond"));
}

} // namespace
} // namespace keel::test
