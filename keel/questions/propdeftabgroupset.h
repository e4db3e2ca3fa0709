#pragma once

#include "keel/questions/propdeftabgroup.h"

#include <cstdint>

namespace keel {

// The root of a document's or library's question definitions: its groups of friendly pages,
// named "Questions" in files.
class QPropDefTabGroupSet : public QSmartTarget,
                            public QWithContextConcrete,
                            public QNewLevelImportableExportable {
public:
    QPropDefTabGroupSet() = default;
    explicit QPropDefTabGroupSet(QFormulaContext* context) : QWithContextConcrete(context) {}
    // A copy of every field, its groups copied under `context`.
    QPropDefTabGroupSet(const QPropDefTabGroupSet& other, QFormulaContext* context = nullptr);
    // Keeps this set's context.
    QPropDefTabGroupSet& operator=(const QPropDefTabGroupSet& other);

    // --- Groups -------------------------------------------------------------------------------

    int GetCount() const { return m_groups.GetSize(); }
    bool IsEmpty() const { return m_groups.IsEmpty(); }
    QPropDefTabGroup* GetAt(int index) const;
    int Find(const QPropDefTabGroup* group) const;
    // The index of the group of that name (with case), or -1.
    int Find(const CString& name) const;
    QPropDefTabGroup* Lookup(const CString& name) const;
    // The group's name; empty for a bad index.
    CString Name(int index) const;
    // A group of the same name takes the other's content; otherwise a copy is appended.
    int Add(const QPropDefTabGroup* group);
    // Appends an empty group named after "New Group", made unique; its index.
    int AddNewEmptyGroup();
    CString MakeUniqueGroupName(const CString& base) const;
    void SetNameAt(int index, const CString& name);
    bool RemoveGroup(const CString& name);
    void RemoveAt(int index);
    void RemoveAll();
    int GetTotalNumTabs() const;
    // On each group; a group left without tabs goes.
    void DeleteTemplateTabs();
    void DeleteLibraryTabs();

    // --- Current group ------------------------------------------------------------------------

    int CurrentTabGroup() const { return m_currentGroup; }
    // Clamped to the groups there are: -1 for an empty set.
    void SetCurrentTabGroup(int index);
    void SetCurrentTabGroupName(const CString& name) { m_currentGroupName = name; }
    QPropDefTabGroup* CurrentTabGroupPtr() const { return GetAt(m_currentGroup); }
    const CString& CurrentTabGroupName() const { return m_currentGroupName; }

    // --- Fields -------------------------------------------------------------------------------

    std::int32_t MinimumWidth() const { return m_minimumWidth; }
    void SetMinimumWidth(std::int32_t width) { m_minimumWidth = width; }
    const CString& FileName() const { return m_fileName; }
    void SetFileName(const CString& path) const { m_fileName = path; }
    // Whether the last read put values into the definitions, which a write would lose.
    bool HasSubstitutions() const { return m_hasSubstitutions; }
    bool IsEditMode() const { return m_editMode; }
    void SetEditMode(bool editMode);

    // A question category named after the group of that name, with the pages of its tabs that
    // are enabled in the active view; null for a name that no group has.
    QPSCategoryPtr GetCategory(const CString& name, QFormulaContext* context,
                               bool viewUsesAlternative = false) const;

    // "group:tab:question" for each definition of that name, joined by ";".
    CString GetControllingFriendlyPageQuestion(PropId key) const;

    // --- Merge and clipboard ------------------------------------------------------------------

    void Merge(const QPropDefTabGroupSet* source, QMergeResolutionStrategy strategy,
               bool asTemplate, bool asLibrary, bool keepOrigin);
    // Merges the group clipboard into the group of that name, or the current group.
    void MergeFromClipboard(QMergeResolutionStrategy strategy,
                            const CString& groupName = CString());

    // By group name, in any order.
    bool operator==(const QPropDefTabGroupSet& other) const;
    bool operator!=(const QPropDefTabGroupSet& other) const { return !(*this == other); }

    // --- Files --------------------------------------------------------------------------------

    static CString MyTypeName() { return u"Questions"; }
    static CString SimpleTypeName() { return u"Questions"; }
    // ".viqx", ".viq".
    static const QArray<CString>& ExternalPropDefFileExts();

    CString GetImportExportLevelName() const override { return MyTypeName(); }
    int GetAsciiContextStyle() const override { return 1; }
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override;
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override;
    bool DeleteContentsPreImport(QSmartPtr<QExportSelection> selection) override;

    // Reads a ".viq" file or an export file, putting `values` (or those of `names`) in place of
    // the markers of the file. A malformed legacy file throws CFileException after its report.
    bool ReadFromFile(const CString& path, const QArray<CString>& values = {},
                      const QArray<CString>& names = {});
    // Asks before losing substitutions; an empty path asks for one; ".viq" is written as ".viqx".
    bool WriteToFile(const CString& path);
    bool ReadFromLegacyQIQFile(CStdioFileEx* file, const QArray<CString>& values,
                               const QArray<CString>& names);
    void Serialize(CArchive& archive);

private:
    QSmartPtr<QPropDefTabGroup> MakeGroup(const QPropDefTabGroup* from) const;
    bool ImportNewGroups(QImportFormatLevel& level);

    std::int32_t m_currentGroup = 0;
    CString m_currentGroupName;
    QSmartPtrArray<QPropDefTabGroup> m_groups;
    mutable CString m_fileName;
    std::int32_t m_minimumWidth = 0;
    bool m_hasSubstitutions = false;
    bool m_editMode = false;
};

} // namespace keel
