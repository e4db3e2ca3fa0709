#include "keel/questions/propdef.h"

#include "keel/document/appservices.h"
#include "keel/document/translate.h"
#include "keel/exchange/exportformatlevel.h"
#include "keel/exchange/importattribute.h"
#include "keel/exchange/importformatlevel.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"
#include "keel/formula/stringtovalue.h"
#include "keel/formula/tokeniser.h"
#include "keel/platform/schema.h"
#include "keel/platform/stdiofileex.h"
#include "keel/questions/properties.h"

#include <atomic>
#include <iterator>
#include <memory>

namespace keel {

namespace {

// Schema versions at which the archive form of a definition changed.
constexpr int c_schemaStyleStored = 62;
constexpr int c_schemaLastStyleFromSource = 69;
constexpr int c_schemaPlaceholdersAndRadioTypes = 103;
constexpr int c_schemaGroupboxFullWidth = 107;
constexpr int c_schemaFormulaTextUpgraded = 109;
constexpr int c_schemaTransparent = 110;

// The layout byte written after the enabled formula: 2 had one string more, above 2 an action.
constexpr std::uint8_t c_layoutWithDroppedString = 2;
constexpr std::uint8_t c_layoutCurrent = 3;

constexpr const char16_t* c_controlTypeTexts[] = {
    u"Groupbox", u"Static", u"Edit",      u"Checkbox", u"Dropdown",    u"Drop List",
    u"Button",   u"Option", u"Thumbnail", u"Slider",   u"Placeholder", u"End Groupbox"};
constexpr const char16_t* c_comboSourceTexts[] = {u"List", u"From File", u"File Names",
                                                  u"Folder Names"};
constexpr const char16_t* c_comboValueTexts[] = {u"Text", u"Index"};
constexpr const char16_t* c_radioTypeTexts[] = {u"Property-Per-Button", u"Value-Per-Button"};
constexpr const char16_t* c_enableModeTexts[] = {u"Collapsed", u"Hidden", u"Disabled", u"Enabled",
                                                 u"Enabled + Allow Formula Override"};
constexpr const char16_t* c_alignmentTexts[] = {u"", u"Left", u"Center", u"Right"};
constexpr const char16_t* c_styleFlagTexts[] = {u"Bold", u"Italic", u"Underline", u"Quoted",
                                                u"Sorted"};
constexpr int c_firstStyleFlag = QPropDef::StyleBold;

constexpr const char16_t* c_translationContext = u"Friendly page control label";

template <std::size_t N>
CString TextAt(const char16_t* const (&texts)[N], int index) {
    return index >= 0 && static_cast<std::size_t>(index) < N ? CString(texts[index]) : CString();
}

template <std::size_t N>
int IndexOf(const char16_t* const (&texts)[N], const CString& text, int fallback) {
    for (std::size_t i = 0; i < N; ++i)
        if (text == CString(texts[i]))
            return static_cast<int>(i);
    return fallback;
}

template <class Enum, std::size_t N>
Enum InRangeOr(const char16_t* const (&)[N], int value, Enum fallback) {
    return value >= 0 && static_cast<std::size_t>(value) < N ? static_cast<Enum>(value) : fallback;
}

QAnyValue::TYPE TypeInRangeOrEmpty(int value) {
    return value >= QAnyValue::TYPE_EMPTY && value <= QAnyValue::TYPE_COLOR
               ? static_cast<QAnyValue::TYPE>(value)
               : QAnyValue::TYPE_EMPTY;
}

bool StartsAsFormula(const CString& text) {
    return !text.IsEmpty() && (text[0] == u'=' || text[0] == u':');
}

// The text's result in the context, or false when the text is no formula or fails.
bool EvaluateFriendly(const CString& text, QFormulaContext* context, QAnyValue& result) {
    if (context == nullptr || !StartsAsFormula(text))
        return false;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(result, FormulaText(text.Mid(1)), context, false, false, false));
    return evaluator->Evaluate();
}

CString FriendlyText(const CString& text, QFormulaContext* context) {
    QAnyValue result;
    return EvaluateFriendly(text, context, result) ? result.MakeCString() : text;
}

// A decimal number of digits alone.
bool ReadDecimal(const CString& text, int& number) {
    if (text.IsEmpty() || text.GetLength() > 9)
        return false;
    number = 0;
    for (int i = 0; i < text.GetLength(); ++i) {
        if (text[i] < u'0' || text[i] > u'9')
            return false;
        number = number * 10 + (text[i] - u'0');
    }
    return true;
}

// The leading integer of a text, as the old files wrote numbers: 0 when there is none.
int LeadingInteger(const CString& text) {
    CString trimmed(text);
    trimmed.TrimLeft();
    int i = 0;
    const bool negative = i < trimmed.GetLength() && trimmed[i] == u'-';
    if (negative || (i < trimmed.GetLength() && trimmed[i] == u'+'))
        ++i;
    long long number = 0;
    for (; i < trimmed.GetLength() && trimmed[i] >= u'0' && trimmed[i] <= u'9'; ++i)
        if (number < INT32_MAX)
            number = number * 10 + (trimmed[i] - u'0');
    if (number > INT32_MAX)
        number = INT32_MAX;
    return static_cast<int>(negative ? -number : number);
}

// A value put inside a formula as a string literal.
CString QuotedForFormula(const CString& value) {
    if (value.Find(u'"') < 0)
        return u"\"" + value + u"\"";
    if (value.Find(u'\'') < 0)
        return u"'" + value + u"'";
    CString doubled(value);
    doubled.Replace(CString(u"\""), CString(u"\"\""));
    return u"\"" + doubled + u"\"";
}

// The value a marker's name stands for; false when it stands for nothing.
bool SubstitutionFor(const CString& name, const QArray<CString>& values,
                     const QArray<CString>& names, CString& value) {
    int match = -1;
    for (int i = 0; i < names.GetSize(); ++i)
        if (names[i] == name)
            match = i;
    if (match >= 0) {
        if (match >= values.GetSize())
            return false;
        value = values[match];
        return true;
    }
    int number = 0;
    if (!ReadDecimal(name, number) || number < 1 || number > values.GetSize())
        return false;
    value = values[number - 1];
    return true;
}

// The position of the next "~" or "`" from `start`, or -1.
int FindMarker(const CString& text, int start) {
    for (int i = start; i < text.GetLength(); ++i)
        if (text[i] == u'~' || text[i] == u'`')
            return i;
    return -1;
}

struct Substitutions {
    QArray<CString> values;
    QArray<CString> names;
};

Substitutions& ClassSubstitutions() {
    static Substitutions substitutions;
    return substitutions;
}

// -1 until read from the profile.
std::atomic<int> g_suppressGroupBoxDisables{-1};

// The option the older layouts pair across one tab.
struct PreviousOption {
    QPropDef* option = nullptr;
    const QFormulaContext* context = nullptr;
};
PreviousOption g_previousOption;

} // namespace

// --- SizeTweaks -------------------------------------------------------------------------------

CString QPropDef::SizeTweaks::AsString() const {
    return CString::Formatted(u"%d|%d|%d|%d", left, right, top, bottom);
}

QPropDef::SizeTweaks QPropDef::SizeTweaks::FromString(const CString& text) {
    std::int32_t parts[4] = {0, 0, 0, 0};
    int start = 0;
    for (std::int32_t& part : parts) {
        if (start < 0)
            break;
        const int bar = text.Find(u'|', start);
        part = LeadingInteger(bar < 0 ? text.Mid(start) : text.Mid(start, bar - start));
        start = bar < 0 ? -1 : bar + 1;
    }
    return {parts[0], parts[1], parts[2], parts[3]};
}

// --- Construction -----------------------------------------------------------------------------

QPropDef::QPropDef(const QPropDef& other)
    : QSmartTarget(other), QWithContextConcrete(), QNewLevelImportableExportable() {
    *this = other;
}

QPropDef& QPropDef::operator=(const QPropDef& other) {
    if (this == &other)
        return *this;
    m_name = other.m_name;
    m_question = other.m_question;
    m_type = other.m_type;
    m_controlType = other.m_controlType;
    m_comboSource = other.m_comboSource;
    m_comboValue = other.m_comboValue;
    m_enabledFormula = other.m_enabledFormula;
    m_source = other.m_source;
    m_questionWidth = other.m_questionWidth;
    m_answerWidth = other.m_answerWidth;
    m_allowControlOverlap = other.m_allowControlOverlap;
    m_action = other.m_action;
    m_style = other.m_style;
    m_tooltip = other.m_tooltip;
    m_radioType = other.m_radioType;
    m_isNewRadioGroup = other.m_isNewRadioGroup;
    m_isGroupboxFullWidth = other.m_isGroupboxFullWidth;
    m_isTransparent = other.m_isTransparent;
    m_questionSizeTweaks = other.m_questionSizeTweaks;
    m_answerSizeTweaks = other.m_answerSizeTweaks;
    m_defaultValue = other.m_defaultValue;
    return *this;
}

bool QPropDef::operator==(const QPropDef& other) const {
    return m_name == other.m_name && m_question == other.m_question && m_type == other.m_type &&
           m_controlType == other.m_controlType && m_comboSource == other.m_comboSource &&
           m_comboValue == other.m_comboValue && m_enabledFormula == other.m_enabledFormula &&
           m_source == other.m_source && m_questionWidth == other.m_questionWidth &&
           m_answerWidth == other.m_answerWidth &&
           m_allowControlOverlap == other.m_allowControlOverlap && m_action == other.m_action &&
           m_style == other.m_style && m_tooltip == other.m_tooltip &&
           m_radioType == other.m_radioType && m_isNewRadioGroup == other.m_isNewRadioGroup &&
           m_isGroupboxFullWidth == other.m_isGroupboxFullWidth &&
           m_isTransparent == other.m_isTransparent &&
           m_questionSizeTweaks == other.m_questionSizeTweaks &&
           m_answerSizeTweaks == other.m_answerSizeTweaks &&
           m_defaultValue.Identical(other.m_defaultValue);
}

QPropDef::~QPropDef() {
    if (g_previousOption.option == this)
        g_previousOption = PreviousOption();
}

// --- Enumeration texts ------------------------------------------------------------------------

CString QPropDef::ControlTypeToString(CONTROLTYPE type) {
    return TextAt(c_controlTypeTexts, type);
}
QPropDef::CONTROLTYPE QPropDef::StringToControlType(const CString& text) {
    return static_cast<CONTROLTYPE>(IndexOf(c_controlTypeTexts, text, Edit));
}
CString QPropDef::ComboSourceToString(COMBOSOURCE source) {
    return TextAt(c_comboSourceTexts, source);
}
QPropDef::COMBOSOURCE QPropDef::StringToComboSource(const CString& text) {
    return static_cast<COMBOSOURCE>(IndexOf(c_comboSourceTexts, text, ComboList));
}
CString QPropDef::ComboValueToString(COMBOVALUE value) {
    return TextAt(c_comboValueTexts, value);
}
QPropDef::COMBOVALUE QPropDef::StringToComboValue(const CString& text) {
    return static_cast<COMBOVALUE>(IndexOf(c_comboValueTexts, text, ComboText));
}
CString QPropDef::RadioTypeToString(RADIOTYPE type) {
    return TextAt(c_radioTypeTexts, type);
}
QPropDef::RADIOTYPE QPropDef::StringToRadioType(const CString& text) {
    return static_cast<RADIOTYPE>(IndexOf(c_radioTypeTexts, text, PropertyPerButton));
}
CString QPropDef::EnableModeToString(ENABLEMODE mode) {
    return TextAt(c_enableModeTexts, mode);
}
QPropDef::ENABLEMODE QPropDef::StringToEnableMode(const CString& text) {
    return static_cast<ENABLEMODE>(IndexOf(c_enableModeTexts, text, Enabled));
}

CString QPropDef::AlignmentBitsToString(int style) {
    return TextAt(c_alignmentTexts, style & AlignMask);
}

int QPropDef::StringToAlignmentBits(const CString& text) {
    for (int bits = AlignLeft; bits <= AlignRight; ++bits)
        if (text.CompareNoCase(CString(c_alignmentTexts[bits])) == 0)
            return bits;
    return AlignNone;
}

CString QPropDef::StyleBitsToString(int style) {
    CString text;
    for (std::size_t i = 0; i < std::size(c_styleFlagTexts); ++i) {
        if ((style & (c_firstStyleFlag << i)) == 0)
            continue;
        if (!text.IsEmpty())
            text += u'|';
        text += c_styleFlagTexts[i];
    }
    return text;
}

int QPropDef::StringToStyleBits(const CString& text) {
    int bits = 0;
    int start = 0;
    while (start >= 0 && start <= text.GetLength()) {
        const int bar = text.Find(u'|', start);
        CString word = bar < 0 ? text.Mid(start) : text.Mid(start, bar - start);
        word.Trim();
        for (std::size_t i = 0; i < std::size(c_styleFlagTexts); ++i)
            if (word.CompareNoCase(CString(c_styleFlagTexts[i])) == 0)
                bits |= c_firstStyleFlag << i;
        start = bar < 0 ? -1 : bar + 1;
    }
    return bits;
}

// --- Control kinds ----------------------------------------------------------------------------

void QPropDef::SetControlType(CONTROLTYPE type) {
    if (type == m_controlType)
        return;
    m_controlType = type;
    ClearWhatTheKindCannotCarry();
}

void QPropDef::ClearWhatTheKindCannotCarry() {
    const CONTROLTYPE type = m_controlType;
    if (type == Groupbox || type == Static || type == Thumbnail || type == Placeholder ||
        type == EndGroupbox) {
        m_name = ControlId();
        m_type = QAnyValue::TYPE_EMPTY;
    }
    if (type >= Thumbnail && type <= EndGroupbox)
        m_question.Empty();
    if (!CanHaveQuestionWidth())
        m_questionWidth = 0;
    if (type == Groupbox || type == Static || type == Placeholder || type == EndGroupbox) {
        m_answerWidth = 0;
        m_action = FormulaText();
    }
    if (type != Dropdown && type != DropList)
        m_source.Empty();
}

bool QPropDef::CanHaveName() const {
    switch (m_controlType) {
    case Edit:
    case Checkbox:
    case Dropdown:
    case DropList:
    case Button:
    case Option:
    case Slider:
        return true;
    default:
        return false;
    }
}

bool QPropDef::CanHaveQuestion() const {
    return m_controlType >= Groupbox && m_controlType <= Option;
}

bool QPropDef::CanHaveComboOptions() const {
    return m_controlType == Dropdown || m_controlType == DropList;
}

bool QPropDef::CanHaveExtra() const {
    return m_controlType >= Dropdown && m_controlType <= Slider;
}

bool QPropDef::CanHaveQuestionWidth() const {
    switch (m_controlType) {
    case Groupbox:
        return !m_isGroupboxFullWidth;
    case Static:
    case Edit:
    case Dropdown:
    case DropList:
    case Placeholder:
        return true;
    default:
        return false;
    }
}

bool QPropDef::CanHaveAnswerWidth() const {
    return m_controlType >= Edit && m_controlType <= Slider;
}

bool QPropDef::CanHaveHeight() const {
    return m_controlType == Static || m_controlType == Button || m_controlType == Thumbnail ||
           m_controlType == Slider;
}

bool QPropDef::CanHaveAction() const {
    return CanHaveAnswerWidth();
}

bool QPropDef::CanHaveAlignment() const {
    return (m_controlType >= Static && m_controlType <= Slider) && m_controlType != Button;
}

bool QPropDef::CanHaveAlignCenter() const {
    switch (m_controlType) {
    case Static:
    case Edit:
    case Dropdown:
    case DropList:
    case Thumbnail:
    case Slider:
        return true;
    default:
        return false;
    }
}

bool QPropDef::IsColorSelectButton() const {
    return m_controlType == Button && m_question.IsEmpty() && !m_source.IsEmpty();
}

// --- Height and ticks -------------------------------------------------------------------------

std::int32_t QPropDef::Height() const {
    std::int64_t height = 1;
    if (m_controlType == Static)
        height = -static_cast<std::int64_t>(m_answerWidth);
    else if (m_controlType == Button || m_controlType == Thumbnail || m_controlType == Slider)
        height = -static_cast<std::int64_t>(m_questionWidth);
    return height < 1 || height > INT32_MAX ? 1 : static_cast<std::int32_t>(height);
}

void QPropDef::SetHeight(std::int32_t height) {
    if (m_controlType == Static)
        m_answerWidth = -height;
    else if (m_controlType == Button || m_controlType == Thumbnail || m_controlType == Slider)
        m_questionWidth = -height;
}

CString QPropDef::TickStyleAsString() const {
    const bool upright = Height() > m_answerWidth;
    switch (m_style) {
    case TicksBottomOrRight:
        return upright ? u"Right" : u"Bottom";
    case TicksTopOrLeft:
        return upright ? u"Left" : u"Top";
    case TicksBoth:
        return u"Both";
    default:
        return CString();
    }
}

void QPropDef::SetTickStyleFromString(const CString& text) {
    if (text.CompareNoCase(u"Right") == 0 || text.CompareNoCase(u"Bottom") == 0)
        m_style = TicksBottomOrRight;
    else if (text.CompareNoCase(u"Left") == 0 || text.CompareNoCase(u"Top") == 0)
        m_style = TicksTopOrLeft;
    else if (text.CompareNoCase(u"Both") == 0)
        m_style = TicksBoth;
}

// --- Friendly texts ---------------------------------------------------------------------------

CString QPropDef::Question(QFormulaContext* context) const {
    return FriendlyText(m_question, context);
}

CString QPropDef::Tooltip(QFormulaContext* context) const {
    return FriendlyText(m_tooltip, context);
}

CString QPropDef::Extra1(QFormulaContext* context, QAnyValue* value) const {
    QAnyValue result;
    if (EvaluateFriendly(m_source, context, result)) {
        if (value)
            *value = result;
        return result.MakeCString();
    }
    if (value)
        *value = QAnyValue(m_source);
    return m_source;
}

// --- Enabling ---------------------------------------------------------------------------------

bool QPropDef::SuppressGroupBoxDisables() {
    int known = g_suppressGroupBoxDisables.load();
    if (known < 0) {
        const QAppServices* services = GetAppServices();
        known = services && services->ProfileInt(u"Options", u"SuppressGroupBoxDisables", 0) != 0
                    ? 1
                    : 0;
        g_suppressGroupBoxDisables.store(known);
    }
    return known != 0;
}

void QPropDef::SetSuppressGroupBoxDisables(bool suppress) {
    g_suppressGroupBoxDisables.store(suppress ? 1 : 0);
}

namespace {

int ModeOfText(const CString& text) {
    int mode = 0;
    if (QAnyValue::ParseInt(mode, text))
        return mode;
    bool truth = false;
    QAnyValue::ParseBool(truth, text);
    return truth ? QPropDef::Enabled : QPropDef::Collapsed;
}

int ModeOfResult(QAnyValue& result) {
    if (result.IsString()) {
        bool truth = false;
        QAnyValue::ParseBool(truth, result.AsStringOrFormula());
        return truth ? QPropDef::Enabled : QPropDef::Collapsed;
    }
    if (result.IsBool())
        return result.MakeBool() ? QPropDef::Enabled : QPropDef::Collapsed;
    if (result.IsErrorOrNA() || result.IsEmpty())
        return QPropDef::Collapsed;
    return result.MakeInt();
}

} // namespace

QPropDef::ENABLEMODE QPropDef::EnableMode(QFormulaContext* context, ENABLEMODE parentMode) const {
    if (!SuppressGroupBoxDisables() && parentMode < Enabled)
        return parentMode;
    int mode = parentMode;
    if (!m_enabledFormula.IsEmpty()) {
        if (context == nullptr) {
            mode = ModeOfText(m_enabledFormula.ToString());
        } else {
            QAnyValue result;
            const std::unique_ptr<QEvaluator> evaluator(
                QEvaluator::New(result, m_enabledFormula, context, false, false, false));
            mode = evaluator->Evaluate() ? ModeOfResult(result) : Collapsed;
        }
    }
    if (mode == Enabled && HasName() && context != nullptr) {
        FormulaText formula;
        if (context->GetPropertyFormula(PropId(m_name.ToString()), formula) && !formula.IsEmpty())
            mode = Disabled;
    }
    return static_cast<ENABLEMODE>(mode);
}

// --- Value substitution -----------------------------------------------------------------------

CString QPropDef::SubstituteValues(const CString& text, const QArray<CString>& values,
                                   const QArray<CString>& names) {
    if (values.GetSize() == 0)
        return text;
    // The text is scanned once and the result built beside it, so an inserted value is never
    // searched again.
    CString result;
    int start = 0;
    while (true) {
        const int open = FindMarker(text, start);
        const int close = open < 0 ? -1 : text.Find(text[open], open + 1);
        if (close < 0)
            break;
        const char16_t character = text[open];
        const CString name = text.Mid(open + 1, close - open - 1);
        result.Append(text.GetString() + start, open - start);
        CString value;
        if (name.IsEmpty())
            result += character;
        else if (SubstitutionFor(name, values, names, value))
            result += character == u'`' ? QuotedForFormula(value) : value;
        start = close + 1;
    }
    result.Append(text.GetString() + start, text.GetLength() - start);
    return result;
}

CString QPropDef::SubstituteValues(const CString& text) {
    const Substitutions& substitutions = ClassSubstitutions();
    return SubstituteValues(text, substitutions.values, substitutions.names);
}

void QPropDef::SetSubstitutions(const QArray<CString>& values, const QArray<CString>& names) {
    ClassSubstitutions().values = values;
    ClassSubstitutions().names = names;
}

void QPropDef::ClearSubstitutions() {
    ClassSubstitutions() = Substitutions();
}

// --- Translation ------------------------------------------------------------------------------

CString QPropDef::TranslateFriendlyText(const CString& text) {
    if (!StartsAsFormula(text))
        return TranslateString(text, CString(), c_translationContext);
    const CString formula = text.Mid(1);
    QSmartPtr<QTokenStream> stream(new QTokenStream(FormulaTextAsSpelled(formula)));
    if (!stream->Create(true))
        return text;
    // Each string literal runs from its token's offset to the next token's, blanks excepted.
    CString translated(text[0]);
    int copied = 0;
    for (short i = 0; i < stream->Count(); ++i) {
        const QToken* token = stream->GetToken(i);
        if (!token->IsValue() || !token->Value().IsString())
            continue;
        const int first = token->Cursor();
        int end = i + 1 < stream->Count() ? stream->GetToken(static_cast<short>(i + 1))->Cursor()
                                          : formula.GetLength();
        while (end > first && (formula[end - 1] == u' ' || formula[end - 1] == u'\t'))
            --end;
        translated += formula.Mid(copied, first - copied);
        translated += QuotedForFormula(
            TranslateString(token->Value().AsStringOrFormula(), CString(), c_translationContext));
        copied = end;
    }
    translated += formula.Mid(copied);
    return translated;
}

// --- Export and import ------------------------------------------------------------------------

CString QPropDef::GetImportableExportableIdentifier() const {
    return CString::Formatted(u"%d", m_index);
}

bool QPropDef::AddAttributesAndChildrenToExport(QExportFormatLevel& level) const {
    const QAnyValue noText{CString()};
    const QAnyValue noTweaks{SizeTweaks().AsString()};
    bool ok = true;
    auto add = [&level, &ok](const QExportAttribute& attribute) {
        ok = level.AddExportableAttribute(attribute) && ok;
    };
    auto addText = [&](const char16_t* name, const CString& text) {
        add(QExportAttribute(name, QAnyValue(text), noText));
    };
    auto addBool = [&](const char16_t* name, bool value, bool defaultValue) {
        add(QExportAttribute(name, QAnyValue(value), QAnyValue(defaultValue)));
    };

    add(QExportAttribute(u"controltype", QAnyValue(ControlTypeToString(m_controlType))));
    if (CanHaveQuestion()) {
        addText(u"question", m_question);
        addText(u"align", AlignmentBitsToString(m_style));
        addText(u"style", StyleBitsToString(m_style));
    }
    if (CanHaveName()) {
        addText(u"name", m_name.ToString());
        add(QExportAttribute(u"type", QAnyValue(QAnyValue::TypeToString(m_type)),
                             QAnyValue(QAnyValue::TypeToString(QAnyValue::TYPE_EMPTY))));
    }
    if (CanHaveComboOptions()) {
        add(QExportAttribute(u"sourcetype", QAnyValue(ComboSourceToString(m_comboSource))));
        add(QExportAttribute(u"valuetype", QAnyValue(ComboValueToString(m_comboValue))));
        addText(u"source", m_source);
    }
    add(QExportAttribute(u"enabledformula", m_enabledFormula, FormulaText()));
    if (CanHaveQuestionWidth()) {
        add(QExportAttribute(u"qwidth", QAnyValue(m_questionWidth)));
        add(QExportAttribute(u"qsizetweaks", QAnyValue(m_questionSizeTweaks.AsString()), noTweaks));
    }
    if (CanHaveAnswerWidth())
        add(QExportAttribute(u"awidth", QAnyValue(m_answerWidth)));
    if (CanHaveAnswerWidth() || m_controlType == Groupbox)
        add(QExportAttribute(u"asizetweaks", QAnyValue(m_answerSizeTweaks.AsString()), noTweaks));
    if (CanHaveHeight())
        add(QExportAttribute(u"height", QAnyValue(Height())));
    if (m_controlType != EndGroupbox && !(m_controlType == Groupbox && m_isGroupboxFullWidth))
        addBool(u"allowoverlap", m_allowControlOverlap, false);
    if (CanHaveAction())
        add(QExportAttribute(u"action", m_action, FormulaText()));
    addText(u"tooltip", m_tooltip);
    if (IsColorSelectButton())
        addText(u"btncolor", m_source);
    if (m_controlType == Groupbox)
        addBool(u"fullpagewidth", m_isGroupboxFullWidth, true);
    if (m_controlType == Option) {
        add(QExportAttribute(u"radiotype", QAnyValue(RadioTypeToString(m_radioType))));
        addBool(u"newradiogroup", m_isNewRadioGroup, false);
        addText(u"value", m_source);
    }
    if (m_controlType == Thumbnail) {
        addText(u"imgpath", m_source);
        addBool(u"keepaspect", m_style != 0, false);
        addBool(u"transparent", m_isTransparent, false);
    }
    if (m_controlType == Slider) {
        addText(u"tickstyle", TickStyleAsString());
        addText(u"tickspacing", m_source);
    }
    if (!m_defaultValue.IsEmptyOrEmptyString())
        add(QVariableTypeExportAttribute(u"defaultval", m_defaultValue));
    return ok;
}

namespace {

// Reads one attribute of a definition through the substitution pass.
template <class T>
bool ImportSubstituted(QImportFormatLevel& level, const char16_t* name, T& target,
                       bool* found = nullptr) {
    CString (*substitute)(const CString&) = &QPropDef::SubstituteValues;
    return level.ImportAttributeIfPresent(
        QImportAttrWithSubstitutions<T>(name, target, substitute, nullptr, found));
}

// A formula comes in the formula's place of the file, or as the text of the value.
bool ImportSubstitutedFormula(QImportFormatLevel& level, const char16_t* name,
                              FormulaText& target) {
    CString (*substitute)(const CString&) = &QPropDef::SubstituteValues;
    return level.ImportAttributeIfPresent(
        QImportAttrWithSubstitutions<FormulaText>(name, target, substitute, &target));
}

} // namespace

bool QPropDef::ImportAttributesAndChildren(QImportFormatLevel& level) {
    CString text;
    bool ok = ImportSubstituted(level, u"controltype", text);
    if (!text.IsEmpty())
        SetControlType(StringToControlType(text));

    CString typeText;
    CString sourceTypeText;
    CString valueTypeText;
    CString radioTypeText;
    ok = ImportSubstituted(level, u"name", m_name) && ok;
    ok = ImportSubstituted(level, u"question", m_question) && ok;
    ok = ImportSubstituted(level, u"type", typeText) && ok;
    ok = ImportSubstituted(level, u"sourcetype", sourceTypeText) && ok;
    ok = ImportSubstituted(level, u"valuetype", valueTypeText) && ok;
    ok = ImportSubstitutedFormula(level, u"enabledformula", m_enabledFormula) && ok;

    std::int32_t questionWidth = m_questionWidth;
    std::int32_t answerWidth = m_answerWidth;
    std::int32_t height = Height();
    bool hasQuestionWidth = false;
    bool hasAnswerWidth = false;
    bool hasHeight = false;
    ok = ImportSubstituted(level, u"qwidth", questionWidth, &hasQuestionWidth) && ok;
    if (hasQuestionWidth)
        SetQuestionWidth(questionWidth);
    ok = ImportSubstituted(level, u"awidth", answerWidth, &hasAnswerWidth) && ok;
    if (hasAnswerWidth)
        SetAnswerWidth(answerWidth);
    ok = ImportSubstituted(level, u"height", height, &hasHeight) && ok;
    if (hasHeight)
        SetHeight(height);
    ok = ImportSubstituted(level, u"allowoverlap", m_allowControlOverlap) && ok;

    ok = ImportSubstitutedFormula(level, u"action", m_action) && ok;
    ok = ImportSubstituted(level, u"tooltip", m_tooltip) && ok;
    ok = ImportSubstituted(level, u"radiotype", radioTypeText) && ok;
    ok = ImportSubstituted(level, u"newradiogroup", m_isNewRadioGroup) && ok;
    ok = ImportSubstituted(level, u"fullpagewidth", m_isGroupboxFullWidth) && ok;
    ok = ImportSubstituted(level, u"transparent", m_isTransparent) && ok;

    CString alignText;
    CString styleText;
    CString tickText;
    bool keepAspect = false;
    ok = ImportSubstituted(level, u"align", alignText) && ok;
    ok = ImportSubstituted(level, u"style", styleText) && ok;
    ok = ImportSubstituted(level, u"tickstyle", tickText) && ok;
    ok = ImportSubstituted(level, u"keepaspect", keepAspect) && ok;
    if (!alignText.IsEmpty() || !styleText.IsEmpty())
        m_style = StringToAlignmentBits(alignText) | StringToStyleBits(styleText);
    else if (!tickText.IsEmpty())
        SetTickStyleFromString(tickText);
    else
        m_style = keepAspect ? 1 : 0;

    CString source = m_source;
    for (const char16_t* name : {u"btncolor", u"tickspacing", u"value", u"imgpath", u"source"})
        ok = ImportSubstituted(level, name, source) && ok;
    if (source != m_source)
        m_source = source;

    CString questionTweaks;
    CString answerTweaks;
    ok = ImportSubstituted(level, u"qsizetweaks", questionTweaks) && ok;
    ok = ImportSubstituted(level, u"asizetweaks", answerTweaks) && ok;
    if (!questionTweaks.IsEmpty())
        m_questionSizeTweaks = SizeTweaks::FromString(questionTweaks);
    if (!answerTweaks.IsEmpty())
        m_answerSizeTweaks = SizeTweaks::FromString(answerTweaks);
    if (!typeText.IsEmpty())
        m_type = QAnyValue::StringToType(typeText);
    if (!sourceTypeText.IsEmpty())
        m_comboSource = StringToComboSource(sourceTypeText);
    if (!valueTypeText.IsEmpty())
        m_comboValue = StringToComboValue(valueTypeText);
    if (!radioTypeText.IsEmpty())
        m_radioType = StringToRadioType(radioTypeText);
    return ImportSubstituted(level, u"defaultval", m_defaultValue) && ok;
}

// --- Archive ----------------------------------------------------------------------------------

void QPropDef::Serialize(CArchive& archive) {
    if (archive.IsStoring()) {
        archive << m_name.ToString() << m_question;
        archive << static_cast<std::uint8_t>(m_type) << static_cast<std::uint8_t>(m_controlType)
                << static_cast<std::uint8_t>(m_comboSource)
                << static_cast<std::uint8_t>(m_comboValue);
        archive << m_enabledFormula.ToString() << c_layoutCurrent << m_source;
        archive << m_questionWidth << m_answerWidth << m_action.ToString() << m_style;
        archive << m_allowControlOverlap << m_tooltip << static_cast<std::uint8_t>(m_radioType);
        archive << m_isNewRadioGroup << m_isGroupboxFullWidth << m_isTransparent;
        for (const SizeTweaks* tweaks : {&m_questionSizeTweaks, &m_answerSizeTweaks})
            archive << tweaks->left << tweaks->right << tweaks->top << tweaks->bottom;
        return;
    }
    LoadCurrentFields(archive);
    UpgradeAfterLoad(archive);
}

void QPropDef::LoadCurrentFields(CArchive& archive) {
    CString text;
    archive >> text;
    m_name = ControlId(text);
    archive >> m_question;
    std::uint8_t bytes[4] = {0, 0, 0, 0};
    for (std::uint8_t& byte : bytes)
        archive >> byte;
    m_type = TypeInRangeOrEmpty(bytes[0]);
    m_controlType = InRangeOr(c_controlTypeTexts, bytes[1], Edit);
    m_comboSource = InRangeOr(c_comboSourceTexts, bytes[2], ComboList);
    m_comboValue = InRangeOr(c_comboValueTexts, bytes[3], ComboText);
    archive >> text;
    m_enabledFormula = FormulaText(text);
    std::uint8_t layout = 0;
    archive >> layout >> m_source >> m_questionWidth >> m_answerWidth;
    if (layout == c_layoutWithDroppedString)
        archive >> text;
    m_action = FormulaText();
    if (layout > c_layoutWithDroppedString) {
        archive >> text;
        m_action = FormulaText(text);
    }
    if (QSchema::IsAtLeastVersion(archive, c_schemaStyleStored))
        archive >> m_style;
    if (QSchema::IsBeforeVersion(archive, c_schemaPlaceholdersAndRadioTypes))
        return;
    std::uint8_t radioType = 0;
    archive >> m_allowControlOverlap >> m_tooltip >> radioType >> m_isNewRadioGroup;
    m_radioType = InRangeOr(c_radioTypeTexts, radioType, PropertyPerButton);
    if (QSchema::IsAtLeastVersion(archive, c_schemaGroupboxFullWidth))
        archive >> m_isGroupboxFullWidth;
    if (QSchema::IsAtLeastVersion(archive, c_schemaTransparent))
        archive >> m_isTransparent;
    for (SizeTweaks* tweaks : {&m_questionSizeTweaks, &m_answerSizeTweaks})
        archive >> tweaks->left >> tweaks->right >> tweaks->top >> tweaks->bottom;
}

void QPropDef::UpgradeAfterLoad(CArchive& archive) {
    if (QSchema::IsBeforeVersion(archive, c_schemaPlaceholdersAndRadioTypes))
        ConvertFromPre103Format();
    if (QSchema::IsUptoVersion(archive, c_schemaLastStyleFromSource) && m_style == 0 &&
        !CanHaveComboOptions())
        m_style = LeadingInteger(m_source);
    if (QSchema::IsBeforeVersion(archive, c_schemaFormulaTextUpgraded)) {
        m_question = UpgradeFormulaBearingText(m_question);
        m_tooltip = UpgradeFormulaBearingText(m_tooltip);
        m_source = UpgradeFormulaBearingText(m_source);
    }
    TranslateAfterLoad();
}

void QPropDef::TranslateAfterLoad() {
    if (!c_bTranslateDuringSerialize || m_question.IsEmpty())
        return;
    m_question = TranslateFriendlyText(m_question);
    m_tooltip = TranslateFriendlyText(m_tooltip);
}

// --- The older layouts ------------------------------------------------------------------------

void QPropDef::ForgetPreviousOption() {
    g_previousOption = PreviousOption();
}

void QPropDef::ConvertFromPre103Format() {
    if (m_question.IsEmpty()) {
        if (m_controlType == Static)
            m_controlType = Placeholder;
        else if (m_controlType == Groupbox)
            m_controlType = EndGroupbox;
    } else if (m_question == CString(u" ")) {
        m_question.Empty();
    }
    if (m_controlType == Option)
        ConvertOptionFromPre103Format();
}

void QPropDef::ConvertOptionFromPre103Format() {
    QPropDef* previous = g_previousOption.option;
    const bool shared = previous != nullptr && g_previousOption.context == ParentContext() &&
                        previous->SameNameAs(*this);
    if (shared) {
        previous->m_radioType = ValuePerButton;
        m_radioType = ValuePerButton;
    } else {
        m_radioType = PropertyPerButton;
    }
    m_isNewRadioGroup = previous == nullptr || previous->m_radioType != m_radioType ||
                        (!m_source.IsEmpty() && !shared);
    g_previousOption = {this, ParentContext()};
}

namespace {

enum LegacyField {
    FieldName,
    FieldQuestion,
    FieldType,
    FieldControlType,
    FieldComboSource,
    FieldComboValue,
    FieldEnabledFormula,
    FieldSource,
    FieldQuestionWidth,
    FieldAnswerWidth,
    FieldAction,
    FieldStyle,
    FieldTooltip,
    FieldDefault,
    LegacyFieldCount,
};

// A line that opens with a visible character other than a marker, "_" or a letter or digit
// belongs to the tab or group reader.
bool IsQuestionLine(const CString& line) {
    const char16_t first = line[0];
    if (first <= u' ' || first == u'~' || first == u'`' || first == u'_')
        return true;
    return (first >= u'0' && first <= u'9') || (first >= u'a' && first <= u'z') ||
           (first >= u'A' && first <= u'Z') || first >= 0x80;
}

int NumberOr(const CString& field, int whenEmpty) {
    return field.IsEmpty() ? whenEmpty : LeadingInteger(field);
}

} // namespace

bool QPropDef::ReadFromLegacyQIQFile(CStdioFileEx* file, const QArray<CString>& values,
                                     const QArray<CString>& names) {
    CString line;
    unsigned long long lineStart = 0;
    do {
        lineStart = file->GetPosition();
        if (!file->ReadString(line))
            return false;
    } while (line.IsEmpty());
    if (!IsQuestionLine(line)) {
        file->Seek(static_cast<long long>(lineStart), CFile::begin);
        return false;
    }

    CString fields[LegacyFieldCount];
    int start = 0;
    for (CString& field : fields) {
        if (start < 0)
            break;
        const int tab = line.Find(u'\t', start);
        field = SubstituteValues(tab < 0 ? line.Mid(start) : line.Mid(start, tab - start), values,
                                 names);
        start = tab < 0 ? -1 : tab + 1;
    }

    m_name = ControlId(fields[FieldName]);
    m_question = fields[FieldQuestion];
    m_type = TypeInRangeOrEmpty(NumberOr(fields[FieldType], QAnyValue::TYPE_STRING));
    m_controlType = InRangeOr(c_controlTypeTexts, NumberOr(fields[FieldControlType], Edit), Edit);
    m_comboSource = InRangeOr(c_comboSourceTexts, NumberOr(fields[FieldComboSource], 0), ComboList);
    m_comboValue = InRangeOr(c_comboValueTexts, NumberOr(fields[FieldComboValue], 0), ComboText);
    m_enabledFormula = FormulaText(fields[FieldEnabledFormula]);
    m_source = fields[FieldSource];
    m_questionWidth = NumberOr(fields[FieldQuestionWidth], 3);
    m_answerWidth = NumberOr(fields[FieldAnswerWidth], 3);
    m_action = FormulaText(fields[FieldAction]);
    m_style = NumberOr(fields[FieldStyle], 0);
    m_tooltip = fields[FieldTooltip];
    m_defaultValue = QAnyValue();
    if (!fields[FieldDefault].IsEmpty() &&
        !StringToValue(m_defaultValue, fields[FieldDefault], nullptr, true, nullptr))
        m_defaultValue = QAnyValue(fields[FieldDefault]);

    ConvertFromPre103Format();
    KeepOnlyWhatTheKindCarries();
    TranslateAfterLoad();
    return true;
}

// A legacy line may give fields its kind has no use for; they go as they would on a change of
// kind, so the definition equals what the current file gives back. The height shares a width
// field, and the source is also a button's colour, an option's value, a picture or the tick
// spacing: those are kept.
void QPropDef::KeepOnlyWhatTheKindCarries() {
    const std::int32_t height = Height();
    const CString source = m_source;
    const bool carriesSource = IsColorSelectButton() || m_controlType == Option ||
                               m_controlType == Thumbnail || m_controlType == Slider;
    ClearWhatTheKindCannotCarry();
    if (CanHaveHeight())
        SetHeight(height);
    if (carriesSource)
        m_source = source;
}

} // namespace keel
