#pragma once

#include "keel/questions/classclipboard.h"
#include "keel/questions/propdef.h"

#include <cstdint>

namespace keel {

// One friendly page: its definitions in order, the columns they are laid out in, and the
// formulas that enable it and run when it is used or shown.
class QPropDefTab : public QSmartTarget,
                    public QWithContextConcrete,
                    public QNewLevelImportableExportable,
                    public QClassClipboard<QPropDefTab> {
public:
    // How wide one column is: pixels, a percent of the page width, or a share of what is left.
    struct QColumnSize {
        enum KIND : std::int32_t { Fixed = 0, Percent = 1, Fill = 2 };
        std::int32_t kind = Fill;
        std::int32_t size = 0;

        // "Fixed:%d", "Percent:%d" or "Fill".
        CString AsString() const;
        // The prefixes fold case; anything else is fill.
        static QColumnSize FromString(const CString& text);
        friend bool operator==(const QColumnSize&, const QColumnSize&) = default;
    };
    using QColumnSizeArray = QArray<QColumnSize>;
    static constexpr int c_defaultColumnCount = 6;
    // The most definitions that an import builds in one tab.
    static constexpr int c_mostImportedControls = 501;

    QPropDefTab();
    explicit QPropDefTab(const CString& name, QFormulaContext* context = nullptr);
    // A copy of every field, its definitions copied under `context`.
    QPropDefTab(const QPropDefTab& other, QFormulaContext* context = nullptr);
    // Keeps this tab's context.
    QPropDefTab& operator=(const QPropDefTab& other);

    // --- Name ---------------------------------------------------------------------------------

    const CString& Name() const { return m_name; }
    void SetName(const CString& name) { m_name = name; }
    // Names compare with case.
    bool IsName(const CString& name) const { return m_name == name; }
    bool SameNameAs(const QPropDefTab& other) const { return m_name == other.m_name; }

    // --- Definitions --------------------------------------------------------------------------

    int GetCount() const { return m_defs.GetSize(); }
    bool IsEmpty() const { return m_defs.IsEmpty(); }
    // Numbers the definition i + 1, so that its identifier in files is its place; null for a bad
    // index.
    QPropDef* GetAt(int index) const;
    // The index, or -1.
    int Find(const QPropDef* def) const;
    // The first definition of that name, or null.
    QPropDef* Lookup(ControlId name) const;
    // Appends a copy; returns its index.
    int Add(const QPropDef* def);
    // Puts a copy at the index; a bad index does nothing.
    void SetAt(int index, const QPropDef* def);
    // Removes every definition of that name; true when one went.
    bool RemoveName(ControlId name);
    // A tab that was changed is no longer from a template or a library.
    void RemoveAt(int index);
    void RemoveAll();
    void RemoveAllWithNoChange();
    void Replace(const QPropDefTab* other);

    // --- Formulas -----------------------------------------------------------------------------

    FormulaText EnabledFormula() const { return m_enabledFormula; }
    void SetEnabledFormula(FormulaText formula) { m_enabledFormula = formula; }
    FormulaText EnabledAlternativeFormula() const { return m_enabledAlternativeFormula; }
    void SetEnabledAlternativeFormula(FormulaText formula) {
        m_enabledAlternativeFormula = formula;
    }
    FormulaText Action() const { return m_action; }
    void SetAction(FormulaText action) { m_action = action; }
    FormulaText OnShow() const { return m_onShow; }
    void SetOnShow(FormulaText onShow) { m_onShow = onShow; }

    // --- Columns ------------------------------------------------------------------------------

    int ColumnCount() const { return m_columnSizes.GetSize(); }
    // Fill for an index out of range.
    QColumnSize ColumnSize(int index) const;
    // An index out of range does nothing.
    void SetColumnSize(int index, const QColumnSize& size);
    // Added columns fill.
    void SetColumnCount(int count);
    // The columns joined by "|", the form of the "colsizes" attribute.
    CString ColumnSizesAsString() const;
    void SetColumnSizesFromString(const CString& text);

    // --- Origin -------------------------------------------------------------------------------

    bool IsFromTemplate() const { return (m_flags & c_fromTemplate) != 0; }
    void SetIsFromTemplate(bool fromTemplate) { SetFlag(c_fromTemplate, fromTemplate); }
    bool IsFromLibrary() const { return (m_flags & c_fromLibrary) != 0; }
    void SetIsFromLibrary(bool fromLibrary) { SetFlag(c_fromLibrary, fromLibrary); }

    // --- Comparison ---------------------------------------------------------------------------

    // Name, formulas, flags, definitions in order and columns.
    bool operator==(const QPropDefTab& other) const;
    bool operator!=(const QPropDefTab& other) const { return !(*this == other); }

    // --- Files --------------------------------------------------------------------------------

    CString GetImportExportLevelName() const override { return u"Page"; }
    CString GetImportableExportableIdentifier() const override { return m_name; }
    int GetAsciiContextStyle() const override { return 2; }
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override;
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override;
    // Places a new definition by the number the file gives it; refuses a place beyond the most
    // an import builds, and says so once a read.
    bool SetupNewChildImportable(QNewLevelImportable* child, const CString& levelName,
                                 const CString& identifier) override;
    bool DeleteContentsPreImport(QSmartPtr<QExportSelection> selection) override;
    // The next read may report a refused definition again.
    static void ResetImportRefusalReport();

    void Serialize(CArchive& archive);
    // Reads the tab line and the question lines after it. False when the file holds no more
    // tabs here (the next line, given back, is no tab line); throws after reporting a line
    // that is neither.
    bool ReadFromLegacyQIQFile(CStdioFileEx* file, const QArray<CString>& values,
                               const QArray<CString>& names);

private:
    static constexpr std::uint8_t c_fromTemplate = 1;
    static constexpr std::uint8_t c_fromLibrary = 2;

    void SetFlag(std::uint8_t flag, bool on) {
        m_flags = static_cast<std::uint8_t>(on ? m_flags | flag : m_flags & ~flag);
    }
    void CopyDefinitions(const QPropDefTab& other);
    QSmartPtr<QPropDef> MakeDefinition(const QPropDef* from) const;
    bool ImportNewDefinitions(QImportFormatLevel& level);
    void ReadLegacyTabLine(const CString& line, const QArray<CString>& values,
                           const QArray<CString>& names);

    CString m_name;
    FormulaText m_enabledFormula;
    FormulaText m_enabledAlternativeFormula;
    FormulaText m_action;
    FormulaText m_onShow;
    QSmartPtrArray<QPropDef> m_defs;
    QColumnSizeArray m_columnSizes;
    std::uint8_t m_flags = 0;
};

} // namespace keel
