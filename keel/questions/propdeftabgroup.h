#pragma once

#include "keel/questions/classclipboard.h"
#include "keel/questions/propdeftab.h"
#include "keel/questions/properties.h"
#include "keel/questions/pscategory.h"

#include <cstdint>

namespace keel {

// A named set of friendly pages, with the tab last shown and the formulas that enable it.
class QPropDefTabGroup : public QSmartTarget,
                         public QWithContextConcrete,
                         public QNewLevelImportableExportable,
                         public QClassClipboard<QPropDefTabGroup> {
public:
    // The format of a group laid out for the form editor.
    static constexpr std::int32_t c_formEditorFormat = 1;

    QPropDefTabGroup() = default;
    explicit QPropDefTabGroup(const CString& name, QFormulaContext* context = nullptr);
    // A copy of every field, its tabs copied under `context`.
    QPropDefTabGroup(const QPropDefTabGroup& other, QFormulaContext* context = nullptr);
    // Keeps this group's context.
    QPropDefTabGroup& operator=(const QPropDefTabGroup& other);

    // --- Name and fields ----------------------------------------------------------------------

    const CString& Name() const { return m_name; }
    void SetName(const CString& name) { m_name = name; }
    bool IsName(const CString& name) const { return m_name == name; }
    FormulaText EnabledFormula() const { return m_enabledFormula; }
    void SetEnabledFormula(FormulaText formula) { m_enabledFormula = formula; }
    FormulaText EnabledAlternativeFormula() const { return m_enabledAlternativeFormula; }
    void SetEnabledAlternativeFormula(FormulaText formula) {
        m_enabledAlternativeFormula = formula;
    }
    std::int32_t Format() const { return m_format; }
    void SetFormat(std::int32_t format) { m_format = format; }
    bool IsFormEditorFormat() const { return m_format == c_formEditorFormat; }
    bool IsRowLocked() const { return m_rowLocked; }
    void SetRowLocked(bool locked) { m_rowLocked = locked; }
    const CString& DefaultVlt() const { return m_defaultVlt; }
    void SetDefaultVlt(const CString& table) { m_defaultVlt = table; }
    bool QuoteRowHeadings() const { return m_quoteRowHeadings; }
    void SetQuoteRowHeadings(bool quote) { m_quoteRowHeadings = quote; }
    bool AutoSortRows() const { return m_autoSortRows; }
    void SetAutoSortRows(bool sort) { m_autoSortRows = sort; }
    // In edit mode every tab is offered, enabled or not.
    bool IsEditMode() const { return m_editMode; }
    void SetEditMode(bool editMode) { m_editMode = editMode; }
    // Combo answers of a group are indices from 0 in the form editor's format.
    bool AreComboIndicesZeroBased() const { return IsFormEditorFormat(); }

    // --- Tabs ---------------------------------------------------------------------------------

    int GetCount() const { return m_tabs.GetSize(); }
    bool IsEmpty() const { return m_tabs.IsEmpty(); }
    QPropDefTab* GetAt(int index) const;
    int Find(const QPropDefTab* tab) const;
    // The index of the tab of that name (with case), or -1.
    int Find(const CString& name) const;
    QPropDefTab* Lookup(const CString& name) const;
    // A tab of the same name takes the other's content; otherwise a copy is appended. The index.
    int Add(const QPropDefTab* tab);
    void SetAt(int index, const QPropDefTab* tab);
    // Appends an empty tab named after "New Tab", made unique; its index.
    int AddNewEmptyTab();
    // `base`, else "base 2", "base 3", ... whichever is free first.
    CString MakeUniqueTabName(const CString& base) const;
    // A bad index or an unchanged name does nothing; the name is made unique.
    void SetNameAt(int index, const CString& name);
    bool RemoveTab(const CString& name);
    void RemoveAt(int index);
    void RemoveAll();
    void DeleteTemplateTabs();
    void DeleteLibraryTabs();
    void SetIsFromTemplate(bool fromTemplate);
    void SetIsFromLibrary(bool fromLibrary);

    // --- Current tab --------------------------------------------------------------------------

    int CurrentTab() const { return m_currentTab; }
    // Clamped to the tabs there are: -1 for an empty group.
    void SetCurrentTab(int index);
    QPropDefTab* CurrentTabPtr() const { return GetAt(m_currentTab); }
    const CString& CurrentTabName() const { return m_currentTabName; }
    // Kept until a reader finds the tab by name and sets the index.
    void SetCurrentTabName(const CString& name) { m_currentTabName = name; }

    // --- Enabling -----------------------------------------------------------------------------

    // False for a bad index.
    bool IsEnabled(int index, QFormulaContext* context) const;
    bool IsEnabledAlternative(int index, QFormulaContext* context) const;
    // True in edit mode; else the enabled formula, or the alternative one when the active view
    // asks for it.
    bool IsEnabledInActiveView(int index, QFormulaContext* context,
                               bool viewUsesAlternative = false) const;
    // Adds to the category the page of each tab enabled in the active view, in order. Without
    // any, the category gets the default page and the answer is false.
    bool AddPages(QPSCategoryPtr category, QFormulaContext* context,
                  bool viewUsesAlternative = false) const;

    // --- Merge and clipboard ------------------------------------------------------------------

    // Tab by tab: a tab is replaced whole or not at all.
    void Merge(const QPropDefTabGroup* source, QMergeResolutionStrategy strategy, bool asTemplate,
               bool asLibrary, bool keepOrigin);
    void MergeFromClipboard(QMergeResolutionStrategy strategy);

    // Name, formulas and, in any order, tabs of the same names that are equal.
    bool operator==(const QPropDefTabGroup& other) const;
    bool operator!=(const QPropDefTabGroup& other) const { return !(*this == other); }

    // --- Files --------------------------------------------------------------------------------

    CString GetImportExportLevelName() const override { return u"Group"; }
    CString GetImportableExportableIdentifier() const override { return m_name; }
    int GetAsciiContextStyle() const override { return 2; }
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override;
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override;
    bool DeleteContentsPreImport(QSmartPtr<QExportSelection> selection) override;

    // A ".viq" file, or an export file holding this group; `groupName`, when given, is the
    // group wanted from a legacy file.
    bool ReadFromFile(const CString& path, const QArray<CString>& values,
                      const QArray<CString>& names, const CString& groupName = CString());
    // A path ending ".viq" is written as ".viqx".
    bool WriteToFile(const CString& path);
    // False at the end of the file or before a line of another group; throws after reporting
    // a malformed file.
    bool ReadFromLegacyQIQFile(CStdioFileEx* file, const QArray<CString>& values,
                               const QArray<CString>& names,
                               const CString& wantedGroup = CString());
    void Serialize(CArchive& archive);

private:
    QSmartPtr<QPropDefTab> MakeTab(const QPropDefTab* from) const;
    bool ImportNewTabs(QImportFormatLevel& level);
    void DeleteTabsWithFlag(bool (QPropDefTab::*isFlagged)() const);
    void ReadLegacyGroupLine(const QArray<CString>& fields);
    bool ReadLegacyTabs(CStdioFileEx* file, const QArray<CString>& values,
                        const QArray<CString>& names);

    std::int32_t m_currentTab = 0;
    CString m_name;
    CString m_currentTabName;
    FormulaText m_enabledFormula;
    FormulaText m_enabledAlternativeFormula;
    std::int32_t m_format = 0;
    bool m_rowLocked = false;
    CString m_defaultVlt;
    bool m_quoteRowHeadings = false;
    bool m_autoSortRows = true;
    QSmartPtrArray<QPropDefTab> m_tabs;
    bool m_editMode = false;
};

} // namespace keel
