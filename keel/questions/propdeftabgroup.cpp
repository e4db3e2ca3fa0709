#include "keel/questions/propdeftabgroup.h"

#include "keel/document/appservices.h"
#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/exchange/exportattribute.h"
#include "keel/exchange/exportformatlevel.h"
#include "keel/formula/evaluator.h"
#include "keel/platform/file.h"
#include "keel/platform/schema.h"
#include "keel/platform/stdiofileex.h"
#include "keel/platform/uiservices.h"
#include "keel/questions/propdeftabfiles.h"
#include "keel/system/pathop.h"

namespace keel {

using namespace propdeftab_files;

namespace {

// Schema versions at which the archive form of a group changed.
constexpr int c_schemaNameOnly = 38;
constexpr int c_schemaAlternativeFormula = 63;

constexpr char16_t c_groupMarker[] = u"[group]";
constexpr int c_groupMarkerLength = 7;

bool IsGroupLine(const CString& line) {
    return line.Left(c_groupMarkerLength + 1) == CString(c_groupMarker) + u"\t";
}

} // namespace

QPropDefTabGroup::QPropDefTabGroup(const CString& name, QFormulaContext* context)
    : QWithContextConcrete(context), m_name(name) {}

QPropDefTabGroup::QPropDefTabGroup(const QPropDefTabGroup& other, QFormulaContext* context)
    : QSmartTarget(other), QWithContextConcrete(context), QNewLevelImportableExportable(other) {
    *this = other;
}

QPropDefTabGroup& QPropDefTabGroup::operator=(const QPropDefTabGroup& other) {
    if (this == &other)
        return *this;
    m_currentTab = other.m_currentTab;
    m_name = other.m_name;
    m_currentTabName = other.m_currentTabName;
    m_enabledFormula = other.m_enabledFormula;
    m_enabledAlternativeFormula = other.m_enabledAlternativeFormula;
    m_format = other.m_format;
    m_rowLocked = other.m_rowLocked;
    m_defaultVlt = other.m_defaultVlt;
    m_quoteRowHeadings = other.m_quoteRowHeadings;
    m_autoSortRows = other.m_autoSortRows;
    m_editMode = other.m_editMode;
    QSmartPtrArray<QPropDefTab> copies;
    for (int i = 0; i < other.m_tabs.GetSize(); ++i)
        copies.Add(MakeTab(other.m_tabs[i]));
    m_tabs = copies;
    return *this;
}

QSmartPtr<QPropDefTab> QPropDefTabGroup::MakeTab(const QPropDefTab* from) const {
    QFormulaContext* context = const_cast<QFormulaContext*>(ParentContext());
    return QSmartPtr<QPropDefTab>(from ? new QPropDefTab(*from, context)
                                       : new QPropDefTab(CString(), context));
}

// --- Tabs -------------------------------------------------------------------------------------

QPropDefTab* QPropDefTabGroup::GetAt(int index) const {
    return index >= 0 && index < m_tabs.GetSize() ? m_tabs[index].Get() : nullptr;
}

int QPropDefTabGroup::Find(const QPropDefTab* tab) const {
    for (int i = 0; i < m_tabs.GetSize(); ++i)
        if (m_tabs[i].Get() == tab)
            return i;
    return -1;
}

int QPropDefTabGroup::Find(const CString& name) const {
    for (int i = 0; i < m_tabs.GetSize(); ++i)
        if (m_tabs[i] && m_tabs[i]->IsName(name))
            return i;
    return -1;
}

QPropDefTab* QPropDefTabGroup::Lookup(const CString& name) const {
    return GetAt(Find(name));
}

int QPropDefTabGroup::Add(const QPropDefTab* tab) {
    if (tab == nullptr)
        return -1;
    const int existing = Find(tab->Name());
    if (existing >= 0) {
        m_tabs[existing]->Replace(tab);
        return existing;
    }
    return m_tabs.Add(MakeTab(tab));
}

void QPropDefTabGroup::SetAt(int index, const QPropDefTab* tab) {
    if (index >= 0 && index < m_tabs.GetSize())
        m_tabs[index] = MakeTab(tab);
}

int QPropDefTabGroup::AddNewEmptyTab() {
    static const QTString newTab(u"New Tab", u"Default Friendly Tab Name");
    QSmartPtr<QPropDefTab> tab = MakeTab(nullptr);
    tab->SetName(MakeUniqueTabName(newTab));
    return m_tabs.Add(tab);
}

CString QPropDefTabGroup::MakeUniqueTabName(const CString& base) const {
    return FirstFreeNumberedName(base, m_tabs);
}

void QPropDefTabGroup::SetNameAt(int index, const CString& name) {
    QPropDefTab* tab = GetAt(index);
    if (tab == nullptr || tab->IsName(name))
        return;
    tab->SetName(MakeUniqueTabName(name));
}

bool QPropDefTabGroup::RemoveTab(const CString& name) {
    const int index = Find(name);
    if (index < 0)
        return false;
    RemoveAt(index);
    return true;
}

void QPropDefTabGroup::RemoveAt(int index) {
    if (index >= 0 && index < m_tabs.GetSize())
        m_tabs.RemoveAt(index);
}

void QPropDefTabGroup::RemoveAll() {
    m_tabs.RemoveAll();
}

void QPropDefTabGroup::DeleteTabsWithFlag(bool (QPropDefTab::*isFlagged)() const) {
    for (int i = m_tabs.GetSize() - 1; i >= 0; --i)
        if (m_tabs[i] && ((*m_tabs[i]).*isFlagged)())
            m_tabs.RemoveAt(i);
}

void QPropDefTabGroup::DeleteTemplateTabs() {
    DeleteTabsWithFlag(&QPropDefTab::IsFromTemplate);
}

void QPropDefTabGroup::DeleteLibraryTabs() {
    DeleteTabsWithFlag(&QPropDefTab::IsFromLibrary);
}

void QPropDefTabGroup::SetIsFromTemplate(bool fromTemplate) {
    for (int i = 0; i < m_tabs.GetSize(); ++i)
        if (m_tabs[i])
            m_tabs[i]->SetIsFromTemplate(fromTemplate);
}

void QPropDefTabGroup::SetIsFromLibrary(bool fromLibrary) {
    for (int i = 0; i < m_tabs.GetSize(); ++i)
        if (m_tabs[i])
            m_tabs[i]->SetIsFromLibrary(fromLibrary);
}

void QPropDefTabGroup::SetCurrentTab(int index) {
    if (index < 0)
        index = 0;
    if (index >= m_tabs.GetSize())
        index = m_tabs.GetSize() - 1;
    m_currentTab = index;
}

// --- Enabling ---------------------------------------------------------------------------------

bool QPropDefTabGroup::IsEnabled(int index, QFormulaContext* context) const {
    const QPropDefTab* tab = GetAt(index);
    return tab &&
           QEvaluator::EvaluateFormulaAsBool(tab->EnabledFormula(), context, true, true, false);
}

bool QPropDefTabGroup::IsEnabledAlternative(int index, QFormulaContext* context) const {
    const QPropDefTab* tab = GetAt(index);
    return tab && QEvaluator::EvaluateFormulaAsBool(tab->EnabledAlternativeFormula(), context, true,
                                                    true, false);
}

bool QPropDefTabGroup::IsEnabledInActiveView(int index, QFormulaContext* context,
                                             bool viewUsesAlternative) const {
    if (m_editMode)
        return true;
    return viewUsesAlternative ? IsEnabledAlternative(index, context) : IsEnabled(index, context);
}

bool QPropDefTabGroup::AddPages(QPSCategoryPtr category, QFormulaContext* context,
                                bool viewUsesAlternative) const {
    if (!category)
        return false;
    bool added = false;
    for (int i = 0; i < m_tabs.GetSize(); ++i) {
        if (!IsEnabledInActiveView(i, context, viewUsesAlternative))
            continue;
        category->AddPage(QPropPageClass::QuestionPage(i));
        added = true;
    }
    if (!added)
        category->AddPage(QDefaultPropPage);
    return added;
}

// --- Merge and clipboard ----------------------------------------------------------------------

void QPropDefTabGroup::Merge(const QPropDefTabGroup* source, QMergeResolutionStrategy strategy,
                             bool asTemplate, bool asLibrary, bool keepOrigin) {
    if (source == nullptr || source == this)
        return;
    for (int i = 0; i < source->GetCount(); ++i) {
        const QPropDefTab* from = source->GetAt(i);
        if (from == nullptr)
            continue;
        const int found = from->Name().IsEmpty() ? -1 : Find(from->Name());
        int target = found;
        if (found < 0) {
            target = Add(from);
        } else if (from->Name().CompareNoCase(CString(c_DeleteMeMarker)) == 0) {
            if (strategy == MERGE_OVERWRITE)
                RemoveAt(found);
            continue;
        } else if (*m_tabs[found] == *from) {
            continue;
        } else if (strategy == MERGE_KEEP_EXISTING) {
            continue;
        } else if (strategy == MERGE_ASK) {
            static const QTString ask(u"Replace tab for\n'%s'\nin group\n'%s'",
                                      u"Message box (tab,group)");
            if (UIServices().MessageBox(CString::Formatted(ask, from->Name(), m_name),
                                        ApplicationNameOrDefault(),
                                        MB_YESNO | MB_ICONQUESTION) != IDYES)
                continue;
            m_tabs[found]->Replace(from);
        } else {
            m_tabs[found]->Replace(from);
        }
        QPropDefTab* tab = GetAt(target);
        tab->SetIsFromTemplate(asTemplate || (keepOrigin && from->IsFromTemplate()));
        tab->SetIsFromLibrary(asLibrary || (keepOrigin && from->IsFromLibrary()));
    }
}

void QPropDefTabGroup::MergeFromClipboard(QMergeResolutionStrategy strategy) {
    Merge(&Clipboard(), strategy, false, false, false);
}

bool QPropDefTabGroup::operator==(const QPropDefTabGroup& other) const {
    if (m_name != other.m_name || m_enabledFormula != other.m_enabledFormula ||
        m_enabledAlternativeFormula != other.m_enabledAlternativeFormula ||
        m_tabs.GetSize() != other.m_tabs.GetSize())
        return false;
    const auto theirs = FirstOfEachName(other.m_tabs);
    for (int i = 0; i < m_tabs.GetSize(); ++i) {
        if (!m_tabs[i])
            continue;
        const auto found = theirs.find(m_tabs[i]->Name().View());
        if (found == theirs.end() || *found->second != *m_tabs[i])
            return false;
    }
    return true;
}

// --- Export and import ------------------------------------------------------------------------

bool QPropDefTabGroup::AddAttributesAndChildrenToExport(QExportFormatLevel& level) const {
    bool ok = true;
    const auto add = [&level, &ok](const QExportAttribute& attribute) {
        ok = level.AddExportableAttribute(attribute) && ok;
    };
    add(QExportAttribute(u"enabledformula", m_enabledFormula, FormulaText()));
    add(QExportAttribute(u"enabledlcmformula", m_enabledAlternativeFormula, FormulaText()));
    if (IsFormEditorFormat()) {
        add(QExportAttribute(u"defaultvlt", QAnyValue(m_defaultVlt), QAnyValue(CString())));
        add(QExportAttribute(u"rowlocked", QAnyValue(m_rowLocked), QAnyValue(false)));
        add(QExportAttribute(u"quoteheadings", QAnyValue(m_quoteRowHeadings), QAnyValue(false)));
        add(QExportAttribute(u"sortrows", QAnyValue(m_autoSortRows), QAnyValue(true)));
    }
    for (int i = 0; i < m_tabs.GetSize(); ++i)
        if (m_tabs[i])
            ok = level.AddExportable(m_tabs[i], false) && ok;
    return ok;
}

bool QPropDefTabGroup::ImportAttributesAndChildren(QImportFormatLevel& level) {
    bool ok = ImportSubstitutedFormula(level, u"enabledformula", m_enabledFormula);
    ok = ImportSubstitutedFormula(level, u"enabledlcmformula", m_enabledAlternativeFormula) && ok;
    ok = ImportSubstituted(level, u"defaultvlt", m_defaultVlt) && ok;
    m_format = m_defaultVlt.IsEmpty() ? 0 : c_formEditorFormat;
    ok = ImportSubstituted(level, u"rowlocked", m_rowLocked) && ok;
    ok = ImportSubstituted(level, u"quoteheadings", m_quoteRowHeadings) && ok;
    ok = ImportSubstituted(level, u"sortrows", m_autoSortRows) && ok;
    for (int i = 0; i < m_tabs.GetSize(); ++i)
        if (m_tabs[i])
            ok = level.MergeImportableIfPresent(m_tabs[i]) && ok;
    return ImportNewTabs(level) && ok;
}

bool QPropDefTabGroup::ImportNewTabs(QImportFormatLevel& level) {
    bool ok = true;
    QPropDefTab probe;
    CString levelName;
    CString identifier;
    for (int made = 0;
         made < c_mostNewChildren && level.MatchesRequiredImportable(&probe, levelName, identifier);
         ++made) {
        QSmartPtr<QPropDefTab> tab = MakeTab(nullptr);
        tab->SetName(identifier);
        ok = SetupNewChildImportable(tab, levelName, identifier) && ok;
        ok = level.MergeImportableIfPresent(tab) && ok;
        Add(tab);
        if (identifier.IsEmpty() && tab->IsEmpty())
            break;
    }
    return ok;
}

bool QPropDefTabGroup::DeleteContentsPreImport(QSmartPtr<QExportSelection> selection) {
    bool ok = true;
    for (int i = 0; i < m_tabs.GetSize(); ++i)
        if (m_tabs[i])
            ok = m_tabs[i]->DeleteContentsPreImport(selection) && ok;
    return ok;
}

// --- Files ------------------------------------------------------------------------------------

bool QPropDefTabGroup::ReadFromFile(const CString& path, const QArray<CString>& values,
                                    const QArray<CString>& names, const CString& groupName) {
    return ReadQuestionFile(path, values, names, *this, [&](CStdioFileEx& file) {
        return ReadFromLegacyQIQFile(&file, values, names, groupName);
    });
}

bool QPropDefTabGroup::WriteToFile(const CString& path) {
    return ExportData(QuestionFileWritePath(path), false, false, nullptr);
}

void QPropDefTabGroup::ReadLegacyGroupLine(const QArray<CString>& fields) {
    const auto field = [&fields](int i) { return i < fields.GetSize() ? fields[i] : CString(); };
    const auto flag = [&field](int i, bool whenEmpty) {
        return field(i).IsEmpty() ? whenEmpty : field(i) != CString(u"0");
    };
    m_name = field(0);
    m_enabledFormula = FormulaText(field(1));
    m_enabledAlternativeFormula = FormulaText(field(2));
    m_format = field(3) == CString(u"1") ? c_formEditorFormat : 0;
    m_rowLocked = flag(4, false);
    m_defaultVlt = field(5);
    m_quoteRowHeadings = flag(6, false);
    m_autoSortRows = flag(7, true);
}

bool QPropDefTabGroup::ReadLegacyTabs(CStdioFileEx* file, const QArray<CString>& values,
                                      const QArray<CString>& names) {
    m_tabs.RemoveAll();
    for (;;) {
        QSmartPtr<QPropDefTab> tab = MakeTab(nullptr);
        if (!tab->ReadFromLegacyQIQFile(file, values, names))
            return true;
        m_tabs.Add(tab);
    }
}

bool QPropDefTabGroup::ReadFromLegacyQIQFile(CStdioFileEx* file, const QArray<CString>& values,
                                             const QArray<CString>& names,
                                             const CString& wantedGroup) {
    CString line;
    bool haveLine = false;
    while ((haveLine = file->ReadString(line)) && line.IsEmpty()) {
    }

    if (wantedGroup.IsEmpty()) {
        if (!haveLine)
            return false;
        if (!IsGroupLine(line))
            FailLegacyRead(CString::Formatted(u"Error while reading question definitions\n"
                                              u"Expecting [group] at start of groupname but "
                                              u"found\n%s",
                                              line));
        ReadLegacyGroupLine(LegacyFields(line, c_groupMarkerLength + 1, values, names));
        return ReadLegacyTabs(file, values, names);
    }

    CString otherGroup;
    for (; haveLine; haveLine = file->ReadString(line)) {
        if (IsGroupLine(line)) {
            const QArray<CString> fields =
                LegacyFields(line, c_groupMarkerLength + 1, values, names);
            const CString name = fields.IsEmpty() ? CString() : fields[0];
            if (name == wantedGroup) {
                ReadLegacyGroupLine(fields);
                return ReadLegacyTabs(file, values, names);
            }
            if (otherGroup.IsEmpty())
                otherGroup = name;
        }
    }
    if (!otherGroup.IsEmpty() &&
        UIServices().MessageBox(CString::Formatted(u"Trying to read %s, not found, but we can "
                                                   u"import %s\nProceed?",
                                                   wantedGroup, otherGroup),
                                c_defineQuestions, MB_YESNO | MB_ICONQUESTION) == IDYES) {
        file->SeekToBegin();
        return ReadFromLegacyQIQFile(file, values, names, otherGroup);
    }
    FailLegacyRead(CString::Formatted(
        u"Error while reading question definitions\nCould not find %s", wantedGroup));
}

// --- Archive ----------------------------------------------------------------------------------

void QPropDefTabGroup::Serialize(CArchive& archive) {
    if (archive.IsStoring()) {
        archive << m_name << m_enabledFormula.ToString() << m_enabledAlternativeFormula.ToString();
        archive.WriteCount(static_cast<std::uint64_t>(m_tabs.GetSize()));
        for (int i = 0; i < m_tabs.GetSize(); ++i) {
            if (!m_tabs[i]) {
                QMessageBoxOrLog(u"Unusual - gap in tabs list, may be a corrupt library",
                                 c_defineQuestions);
                m_tabs[i] = MakeTab(nullptr);
            }
            m_tabs[i]->Serialize(archive);
        }
        return;
    }
    CString text;
    archive >> m_name;
    m_enabledFormula = m_enabledAlternativeFormula = FormulaText();
    if (!QSchema::IsUptoVersion(archive, c_schemaNameOnly)) {
        archive >> text;
        m_enabledFormula = FormulaText(text);
        if (QSchema::IsAtLeastVersion(archive, c_schemaAlternativeFormula)) {
            archive >> text;
            m_enabledAlternativeFormula = FormulaText(text);
        }
    }
    const int count = ReadCheckedCount(archive, 1);
    m_tabs.RemoveAll();
    for (int i = 0; i < count; ++i) {
        QSmartPtr<QPropDefTab> tab = MakeTab(nullptr);
        m_tabs.Add(tab);
        tab->Serialize(archive);
    }
}

} // namespace keel
