#pragma once

#include "keel/exchange/importexport.h"
#include "keel/formula/withcontext.h"
#include "keel/platform/archive.h"
#include "keel/platform/cstring.h"
#include "keel/questions/classclipboard.h"
#include "keel/values/anyvalue.h"
#include "keel/values/array.h"
#include "keel/values/smartptr.h"
#include "keel/values/stringunique.h"

#include <cstdint>

namespace keel {

class CStdioFileEx;
class QFormulaContext;

// One control of a friendly page: the kind of control, the property it edits, its label, its
// widths, when it is enabled and what it does when used. Definitions are data read from question
// files and documents; a page is generated from them.
class QPropDef : public QSmartTarget,
                 public QWithContextConcrete,
                 public QNewLevelImportableExportable,
                 public QClassClipboard<QPropDef> {
public:
    // The numbers are stored in files and documents.
    enum CONTROLTYPE : int {
        Groupbox = 0,
        Static = 1,
        Edit = 2,
        Checkbox = 3,
        Dropdown = 4,
        DropList = 5,
        Button = 6,
        Option = 7,
        Thumbnail = 8,
        Slider = 9,
        Placeholder = 10,
        EndGroupbox = 11,
    };
    // Where the items of a combo come from.
    enum COMBOSOURCE : int {
        ComboList = 0,
        ComboFromFile = 1,
        ComboFileNames = 2,
        ComboFolderNames = 3
    };
    // What a combo's answer is: the item's text or its index.
    enum COMBOVALUE : int { ComboText = 0, ComboIndex = 1 };
    enum RADIOTYPE : int { PropertyPerButton = 0, ValuePerButton = 1 };
    enum ENABLEMODE : int {
        Collapsed = 0, // takes no room
        Hidden = 1,    // keeps its room, unseen
        Disabled = 2,
        Enabled = 3,
        EnabledAllowFormulaOverride = 4,
    };
    // The style field: the alignment in the two low bits, flags above them. A slider keeps its
    // tick marks there and a thumbnail whether it keeps its aspect ratio.
    enum STYLEBITS : int {
        AlignNone = 0,
        AlignLeft = 1,
        AlignCenter = 2,
        AlignRight = 3,
        AlignMask = 3,
        StyleBold = 4,
        StyleItalic = 8,
        StyleUnderline = 16,
        StyleQuoted = 32,
        StyleSorted = 64,
        StyleFlagsMask = 124,
        TicksBottomOrRight = 0,
        TicksTopOrLeft = 4,
        TicksBoth = 8,
    };

    // Pixel corrections (at 96 dots per inch) to the edges of a control's rectangle.
    struct SizeTweaks {
        std::int32_t left = 0;
        std::int32_t right = 0;
        std::int32_t top = 0;
        std::int32_t bottom = 0;

        // "left|right|top|bottom".
        CString AsString() const;
        // Missing or unreadable numbers are 0.
        static SizeTweaks FromString(const CString& text);
        friend bool operator==(const SizeTweaks&, const SizeTweaks&) = default;
    };

    QPropDef() = default;
    // A copy has no context and no index of its own.
    QPropDef(const QPropDef& other);
    QPropDef& operator=(const QPropDef& other);
    // The converter of the older layouts forgets this definition.
    ~QPropDef() override;

    // --- Enumeration texts --------------------------------------------------------------------
    // The StringTo... functions compare with case and give the fallback for any other text:
    // Edit, ComboList, ComboText, PropertyPerButton, Enabled.

    static CString ControlTypeToString(CONTROLTYPE type);
    static CONTROLTYPE StringToControlType(const CString& text);
    static CString ComboSourceToString(COMBOSOURCE source);
    static COMBOSOURCE StringToComboSource(const CString& text);
    static CString ComboValueToString(COMBOVALUE value);
    static COMBOVALUE StringToComboValue(const CString& text);
    static CString RadioTypeToString(RADIOTYPE type);
    static RADIOTYPE StringToRadioType(const CString& text);
    static CString EnableModeToString(ENABLEMODE mode);
    static ENABLEMODE StringToEnableMode(const CString& text);
    // The alignment of the two low bits: "" for none, "Left", "Center", "Right".
    static CString AlignmentBitsToString(int style);
    // "Left", "Center", "Right" without regard to case; anything else is no alignment.
    static int StringToAlignmentBits(const CString& text);
    // The flags above the alignment, in order of their bits, joined by "|".
    static CString StyleBitsToString(int style);
    // The flags named in a "|"-separated text without regard to case; unknown names are skipped.
    static int StringToStyleBits(const CString& text);

    // --- Identity -----------------------------------------------------------------------------

    ControlId Name() const { return m_name; }
    void SetName(ControlId name) { m_name = name; }
    bool HasName() const { return !m_name.IsEmpty(); }
    // Names fold case.
    bool SameNameAs(const QPropDef& other) const { return m_name == other.m_name; }
    // Every field but the context and the index.
    bool operator==(const QPropDef& other) const;
    bool operator!=(const QPropDef& other) const { return !(*this == other); }

    // --- Fields -------------------------------------------------------------------------------

    QAnyValue::TYPE Type() const { return m_type; }
    void SetType(QAnyValue::TYPE type) { m_type = type; }
    CONTROLTYPE ControlType() const { return m_controlType; }
    // Nothing when unchanged; otherwise clears what the new kind cannot carry.
    void SetControlType(CONTROLTYPE type);
    COMBOSOURCE ComboSource() const { return m_comboSource; }
    void SetComboSource(COMBOSOURCE source) { m_comboSource = source; }
    COMBOVALUE ComboValue() const { return m_comboValue; }
    void SetComboValue(COMBOVALUE value) { m_comboValue = value; }
    // Columns; a button, thumbnail or slider keeps minus its height here.
    std::int32_t QuestionWidth() const { return m_questionWidth; }
    // A negative width is stored as 0.
    void SetQuestionWidth(std::int32_t width) { m_questionWidth = width < 0 ? 0 : width; }
    // Columns; a static keeps minus its height here.
    std::int32_t AnswerWidth() const { return m_answerWidth; }
    void SetAnswerWidth(std::int32_t width) { m_answerWidth = width < 0 ? 0 : width; }
    bool AllowControlOverlap() const { return m_allowControlOverlap; }
    void SetAllowControlOverlap(bool allow) { m_allowControlOverlap = allow; }
    std::int32_t Style() const { return m_style; }
    void SetStyle(std::int32_t style) { m_style = style; }
    RADIOTYPE RadioType() const { return m_radioType; }
    void SetRadioType(RADIOTYPE type) { m_radioType = type; }
    bool IsNewRadioGroup() const { return m_isNewRadioGroup; }
    void SetIsNewRadioGroup(bool isNew) { m_isNewRadioGroup = isNew; }
    bool IsGroupboxFullWidth() const { return m_isGroupboxFullWidth; }
    void SetIsGroupboxFullWidth(bool fullWidth) { m_isGroupboxFullWidth = fullWidth; }
    bool IsTransparent() const { return m_isTransparent; }
    void SetIsTransparent(bool transparent) { m_isTransparent = transparent; }
    const SizeTweaks& QuestionSizeTweaks() const { return m_questionSizeTweaks; }
    void SetQuestionSizeTweaks(const SizeTweaks& tweaks) { m_questionSizeTweaks = tweaks; }
    const SizeTweaks& AnswerSizeTweaks() const { return m_answerSizeTweaks; }
    void SetAnswerSizeTweaks(const SizeTweaks& tweaks) { m_answerSizeTweaks = tweaks; }
    const QAnyValue& DefaultValue() const { return m_defaultValue; }
    void SetDefaultValue(const QAnyValue& value) { m_defaultValue = value; }
    FormulaText EnabledFormula() const { return m_enabledFormula; }
    void SetEnabledFormula(FormulaText formula) { m_enabledFormula = formula; }
    FormulaText Action() const { return m_action; }
    void SetAction(FormulaText action) { m_action = action; }
    // The 1-based position in the tab, -1 when not placed; the identifier in export files.
    std::int32_t PropDefIndex() const { return m_index; }
    void SetPropDefIndex(std::int32_t index) { m_index = index; }

    // --- Friendly texts -----------------------------------------------------------------------
    // A stored text that begins with "=" or ":" is a formula: with a context the rest is
    // evaluated and its result's text given, or the stored text when it fails. Without a
    // context, or for any other text, the stored text is given as it is.

    CString Question(QFormulaContext* context = nullptr) const;
    void SetQuestion(const CString& question) { m_question = question; }
    CString Tooltip(QFormulaContext* context = nullptr) const;
    void SetTooltip(const CString& tooltip) { m_tooltip = tooltip; }
    // The source field: list, colour, option value, image path or tick spacing by kind.
    // `value`, when given, receives the evaluated value, or the text as a string value.
    CString Extra1(QFormulaContext* context = nullptr, QAnyValue* value = nullptr) const;
    void SetExtra1(const CString& source) { m_source = source; }

    // --- What each kind may carry -------------------------------------------------------------

    bool CanHaveName() const;
    bool CanHaveQuestion() const;
    bool CanHaveComboOptions() const;
    bool CanHaveExtra() const;
    // A group box only when it is not full width.
    bool CanHaveQuestionWidth() const;
    bool CanHaveAnswerWidth() const;
    bool CanHaveHeight() const;
    bool CanHaveAction() const;
    bool CanHaveAlignment() const;
    bool CanHaveAlignCenter() const;
    bool IsPlaceholder() const { return m_controlType == Placeholder; }
    // A button without a question but with a colour.
    bool IsColorSelectButton() const;

    // --- Height and ticks ---------------------------------------------------------------------

    // Rows, from the negated width of a static (answer), button, thumbnail or slider
    // (question); 1 for other kinds and whenever that is below 1.
    std::int32_t Height() const;
    // Nothing for kinds without a height.
    void SetHeight(std::int32_t height);
    // "Right"/"Bottom", "Left"/"Top" by whether the slider stands upright, "Both", or "".
    CString TickStyleAsString() const;
    // Leaves the style alone for an unknown text.
    void SetTickStyleFromString(const CString& text);

    // --- Enabling -----------------------------------------------------------------------------

    ENABLEMODE EnableMode(QFormulaContext* context, ENABLEMODE parentMode) const;
    // The profile's "SuppressGroupBoxDisables" option, read once.
    static bool SuppressGroupBoxDisables();
    static void SetSuppressGroupBoxDisables(bool suppress);

    // --- Value substitution -------------------------------------------------------------------

    // Replaces each "~name~" (or "`name`", quoted for a formula) by the value of that name, or
    // the value of that 1-based number; "~~" is a "~". An inserted value is never rescanned.
    // Without values the text is returned as it is.
    static CString SubstituteValues(const CString& text, const QArray<CString>& values,
                                    const QArray<CString>& names);
    // The same with the class-wide arrays set around a load.
    static CString SubstituteValues(const CString& text);
    static void SetSubstitutions(const QArray<CString>& values, const QArray<CString>& names);
    static void ClearSubstitutions();

    // --- Translation --------------------------------------------------------------------------

    // A formula has each string literal translated; any other text is translated whole.
    static CString TranslateFriendlyText(const CString& text);
    static void SetTranslateDuringSerialize(bool translate) {
        c_bTranslateDuringSerialize = translate;
    }
    static bool TranslateDuringSerialize() { return c_bTranslateDuringSerialize; }

    // --- Files --------------------------------------------------------------------------------

    CString GetImportExportLevelName() const override { return u"Control"; }
    CString GetImportableExportableIdentifier() const override;
    int GetAsciiContextStyle() const override { return 2; }
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override;
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override;

    // The current layout on store; every older one on load, by the archive's schema.
    void Serialize(CArchive& archive);

    // Reads the next question line of a legacy question file. False at the end of the file, and
    // for a line of another kind, which is given back to the file for the tab or group reader.
    bool ReadFromLegacyQIQFile(CStdioFileEx* file, const QArray<CString>& values,
                               const QArray<CString>& names);
    // The older layouts pair the options of one tab: a tab reader calls this before its first
    // definition. The converter keeps a pointer to the last option it saw, until that one dies.
    static void ForgetPreviousOption();

private:
    void ClearWhatTheKindCannotCarry();
    void KeepOnlyWhatTheKindCarries();
    void ConvertFromPre103Format();
    void ConvertOptionFromPre103Format();
    void TranslateAfterLoad();
    void LoadCurrentFields(CArchive& archive);
    void UpgradeAfterLoad(CArchive& archive);

    ControlId m_name;
    CString m_question;
    QAnyValue::TYPE m_type = QAnyValue::TYPE_EMPTY;
    CONTROLTYPE m_controlType = Edit;
    COMBOSOURCE m_comboSource = ComboList;
    COMBOVALUE m_comboValue = ComboText;
    FormulaText m_enabledFormula;
    CString m_source;
    std::int32_t m_questionWidth = 3;
    std::int32_t m_answerWidth = 3;
    bool m_allowControlOverlap = false;
    FormulaText m_action;
    std::int32_t m_style = 0;
    CString m_tooltip;
    RADIOTYPE m_radioType = PropertyPerButton;
    bool m_isNewRadioGroup = false;
    bool m_isGroupboxFullWidth = true;
    bool m_isTransparent = false;
    SizeTweaks m_questionSizeTweaks;
    SizeTweaks m_answerSizeTweaks;
    QAnyValue m_defaultValue;
    std::int32_t m_index = -1;

    static inline bool c_bTranslateDuringSerialize = false;
};

} // namespace keel
