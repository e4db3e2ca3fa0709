#include "keel/questions/propdeftabgroupset.h"

#include "keel/document/appservices.h"
#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/exchange/exportattribute.h"
#include "keel/exchange/exportformatlevel.h"
#include "keel/platform/file.h"
#include "keel/platform/schema.h"
#include "keel/platform/stdiofileex.h"
#include "keel/platform/uiservices.h"
#include "keel/questions/mergeprogress.h"
#include "keel/questions/propdeftabfiles.h"
#include "keel/system/pathop.h"

#include <fstream>
#include <iterator>
#include <string>

namespace keel {

using namespace propdeftab_files;

namespace {

// Before this schema the set kept a string where the minimum width is now.
constexpr int c_schemaMinimumWidth = 103;

// Whether the bytes are well-formed UTF-8: no stray continuation, no overlong form, nothing
// above U+10FFFF and no surrogate.
bool IsUtf8(const std::string& bytes) {
    std::size_t i = 0;
    while (i < bytes.size()) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        int length = 0;
        unsigned minimum = 0;
        unsigned code = 0;
        if (lead < 0x80) {
            ++i;
            continue;
        }
        if ((lead & 0xE0) == 0xC0) {
            length = 2;
            minimum = 0x80;
            code = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3;
            minimum = 0x800;
            code = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4;
            minimum = 0x10000;
            code = lead & 0x07;
        } else {
            return false;
        }
        if (i + length > bytes.size())
            return false;
        for (int k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(bytes[i + k]);
            if ((next & 0xC0) != 0x80)
                return false;
            code = (code << 6) | (next & 0x3F);
        }
        if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return false;
        i += length;
    }
    return true;
}

// The code page a legacy question file is read in: UTF-8 when its bytes are, else the Western
// code page that older files were written in. False when the file cannot be read.
bool LegacyCodePage(const CString& path, unsigned& codePage) {
    std::ifstream in(path.ToUtf8(), std::ios::binary);
    if (!in)
        return false;
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    codePage =
        IsUtf8(bytes) ? CStdioFileEx::c_codePageUtf8 : CStdioFileEx::c_codePageWindowsWestern;
    return true;
}

// Clears the class-wide substitutions however the read ends.
class SubstitutionsScope {
public:
    SubstitutionsScope(const QArray<CString>& values, const QArray<CString>& names) {
        QPropDef::SetSubstitutions(values, names);
        QPropDefTab::ResetImportRefusalReport();
    }
    ~SubstitutionsScope() { QPropDef::ClearSubstitutions(); }
    SubstitutionsScope(const SubstitutionsScope&) = delete;
    SubstitutionsScope& operator=(const SubstitutionsScope&) = delete;
};

} // namespace

namespace propdeftab_files {

bool ReadQuestionFile(const CString& path, const QArray<CString>& values,
                      const QArray<CString>& names, QImportable& object,
                      const std::function<bool(CStdioFileEx&)>& readLegacy) {
    const SubstitutionsScope substitutions(values, names);
    if (!QPathOp::MatchDotExt(path, u".viq"))
        return object.ImportOrMergeFrom(path, false, nullptr);
    unsigned codePage = CStdioFileEx::c_codePageUtf8;
    CStdioFileEx file;
    if (LegacyCodePage(path, codePage)) {
        file.SetCodePage(codePage);
        if (!file.Open(path, CFile::modeRead | CFile::typeText | CStdioFileEx::modeUseCodePage))
            codePage = 0;
    } else {
        codePage = 0;
    }
    if (codePage == 0) {
        QMessageBoxOrLog(CString::Formatted(u"Cannot find %s", path), c_defineQuestions);
        return false;
    }
    if (!readLegacy(file)) {
        QMessageBoxOrLog(CString::Formatted(u"Load fails for %s", path), c_defineQuestions);
        return false;
    }
    return true;
}

CString QuestionFileWritePath(const CString& path) {
    return QPathOp::MatchDotExt(path, u".viq") ? QPathOp::ChangeDotExt(path, u".viqx") : path;
}

} // namespace propdeftab_files

QPropDefTabGroupSet::QPropDefTabGroupSet(const QPropDefTabGroupSet& other, QFormulaContext* context)
    : QSmartTarget(other), QWithContextConcrete(context), QNewLevelImportableExportable(other) {
    *this = other;
}

QPropDefTabGroupSet& QPropDefTabGroupSet::operator=(const QPropDefTabGroupSet& other) {
    if (this == &other)
        return *this;
    m_currentGroup = other.m_currentGroup;
    m_currentGroupName = other.m_currentGroupName;
    m_fileName = other.m_fileName;
    m_minimumWidth = other.m_minimumWidth;
    m_hasSubstitutions = other.m_hasSubstitutions;
    m_editMode = other.m_editMode;
    QSmartPtrArray<QPropDefTabGroup> copies;
    for (int i = 0; i < other.m_groups.GetSize(); ++i)
        copies.Add(MakeGroup(other.m_groups[i]));
    m_groups = copies;
    return *this;
}

QSmartPtr<QPropDefTabGroup> QPropDefTabGroupSet::MakeGroup(const QPropDefTabGroup* from) const {
    QFormulaContext* context = const_cast<QFormulaContext*>(ParentContext());
    return QSmartPtr<QPropDefTabGroup>(from ? new QPropDefTabGroup(*from, context)
                                            : new QPropDefTabGroup(CString(), context));
}

// --- Groups -----------------------------------------------------------------------------------

QPropDefTabGroup* QPropDefTabGroupSet::GetAt(int index) const {
    return index >= 0 && index < m_groups.GetSize() ? m_groups[index].Get() : nullptr;
}

int QPropDefTabGroupSet::Find(const QPropDefTabGroup* group) const {
    for (int i = 0; i < m_groups.GetSize(); ++i)
        if (m_groups[i].Get() == group)
            return i;
    return -1;
}

int QPropDefTabGroupSet::Find(const CString& name) const {
    for (int i = 0; i < m_groups.GetSize(); ++i)
        if (m_groups[i] && m_groups[i]->IsName(name))
            return i;
    return -1;
}

QPropDefTabGroup* QPropDefTabGroupSet::Lookup(const CString& name) const {
    return GetAt(Find(name));
}

CString QPropDefTabGroupSet::Name(int index) const {
    const QPropDefTabGroup* group = GetAt(index);
    return group ? group->Name() : CString();
}

int QPropDefTabGroupSet::Add(const QPropDefTabGroup* group) {
    if (group == nullptr)
        return -1;
    const int existing = Find(group->Name());
    if (existing >= 0) {
        *m_groups[existing] = *group;
        return existing;
    }
    return m_groups.Add(MakeGroup(group));
}

int QPropDefTabGroupSet::AddNewEmptyGroup() {
    static const QTString newGroup(u"New Group", u"Default Friendly Group Name");
    QSmartPtr<QPropDefTabGroup> group = MakeGroup(nullptr);
    group->SetName(MakeUniqueGroupName(newGroup));
    return m_groups.Add(group);
}

CString QPropDefTabGroupSet::MakeUniqueGroupName(const CString& base) const {
    return FirstFreeNumberedName(base, m_groups);
}

void QPropDefTabGroupSet::SetNameAt(int index, const CString& name) {
    QPropDefTabGroup* group = GetAt(index);
    if (group == nullptr || group->IsName(name))
        return;
    group->SetName(MakeUniqueGroupName(name));
}

bool QPropDefTabGroupSet::RemoveGroup(const CString& name) {
    const int index = Find(name);
    if (index < 0)
        return false;
    RemoveAt(index);
    return true;
}

void QPropDefTabGroupSet::RemoveAt(int index) {
    if (index >= 0 && index < m_groups.GetSize())
        m_groups.RemoveAt(index);
}

void QPropDefTabGroupSet::RemoveAll() {
    m_groups.RemoveAll();
}

int QPropDefTabGroupSet::GetTotalNumTabs() const {
    int total = 0;
    for (int i = 0; i < m_groups.GetSize(); ++i)
        if (m_groups[i])
            total += m_groups[i]->GetCount();
    return total;
}

void QPropDefTabGroupSet::DeleteTemplateTabs() {
    for (int i = m_groups.GetSize() - 1; i >= 0; --i) {
        if (!m_groups[i])
            continue;
        m_groups[i]->DeleteTemplateTabs();
        if (m_groups[i]->IsEmpty())
            m_groups.RemoveAt(i);
    }
}

void QPropDefTabGroupSet::DeleteLibraryTabs() {
    for (int i = m_groups.GetSize() - 1; i >= 0; --i) {
        if (!m_groups[i])
            continue;
        m_groups[i]->DeleteLibraryTabs();
        if (m_groups[i]->IsEmpty())
            m_groups.RemoveAt(i);
    }
}

void QPropDefTabGroupSet::SetCurrentTabGroup(int index) {
    if (index < 0)
        index = 0;
    if (index >= m_groups.GetSize())
        index = m_groups.GetSize() - 1;
    m_currentGroup = index;
}

void QPropDefTabGroupSet::SetEditMode(bool editMode) {
    m_editMode = editMode;
    for (int i = 0; i < m_groups.GetSize(); ++i)
        if (m_groups[i])
            m_groups[i]->SetEditMode(editMode);
}

QPSCategoryPtr QPropDefTabGroupSet::GetCategory(const CString& name, QFormulaContext* context,
                                                bool viewUsesAlternative) const {
    const QPropDefTabGroup* group = Lookup(name);
    if (group == nullptr)
        return QPSCategoryPtr();
    QPSCategoryPtr category(new QPSCategory(group->Name(), true));
    group->AddPages(category, context, viewUsesAlternative);
    return category;
}

CString QPropDefTabGroupSet::GetControllingFriendlyPageQuestion(PropId key) const {
    CString result;
    for (int g = 0; g < m_groups.GetSize(); ++g) {
        const QPropDefTabGroup* group = m_groups[g];
        for (int t = 0; group && t < group->GetCount(); ++t) {
            const QPropDefTab* tab = group->GetAt(t);
            for (int d = 0; tab && d < tab->GetCount(); ++d) {
                const QPropDef* def = tab->GetAt(d);
                if (def == nullptr || !def->HasName() ||
                    def->Name().ToString().CompareNoCase(key.ToString()) != 0)
                    continue;
                if (!result.IsEmpty())
                    result += u";";
                result += group->Name() + u":" + tab->Name() + u":" + def->Question();
            }
        }
    }
    return result;
}

// --- Merge ------------------------------------------------------------------------------------

void QPropDefTabGroupSet::Merge(const QPropDefTabGroupSet* source,
                                QMergeResolutionStrategy strategy, bool asTemplate, bool asLibrary,
                                bool keepOrigin) {
    if (source == nullptr || source == this || source->IsEmpty())
        return;
    static const QTString mergingTitle(u"Merging questions", u"Status bar");
    static const QTString mergedTitle(u"Merged questions", u"Status bar");
    QMergeProgress progress(source->GetCount(), mergingTitle, mergedTitle);
    for (int i = 0; i < source->GetCount(); ++i) {
        progress.Step();
        const QPropDefTabGroup* from = source->GetAt(i);
        if (from == nullptr)
            continue;
        QPropDefTabGroup* existing = Lookup(from->Name());
        if (existing) {
            existing->Merge(from, strategy, asTemplate, asLibrary, keepOrigin);
            continue;
        }
        QPropDefTabGroup* added = GetAt(Add(from));
        if (asTemplate && keepOrigin)
            added->SetIsFromTemplate(true);
        if (asLibrary && keepOrigin)
            added->SetIsFromLibrary(true);
    }
    m_minimumWidth = source->m_minimumWidth;
}

void QPropDefTabGroupSet::MergeFromClipboard(QMergeResolutionStrategy strategy,
                                             const CString& groupName) {
    QPropDefTabGroup* group = groupName.IsEmpty() ? CurrentTabGroupPtr() : Lookup(groupName);
    if (group)
        group->MergeFromClipboard(strategy);
}

bool QPropDefTabGroupSet::operator==(const QPropDefTabGroupSet& other) const {
    if (m_groups.GetSize() != other.m_groups.GetSize())
        return false;
    const auto theirs = FirstOfEachName(other.m_groups);
    for (int i = 0; i < m_groups.GetSize(); ++i) {
        if (!m_groups[i])
            continue;
        const auto found = theirs.find(m_groups[i]->Name().View());
        if (found == theirs.end() || *found->second != *m_groups[i])
            return false;
    }
    return true;
}

// --- Export and import ------------------------------------------------------------------------

const QArray<CString>& QPropDefTabGroupSet::ExternalPropDefFileExts() {
    static const QArray<CString> extensions = [] {
        QArray<CString> made;
        made.Add(CString(u".viqx"));
        made.Add(CString(u".viq"));
        return made;
    }();
    return extensions;
}

bool QPropDefTabGroupSet::AddAttributesAndChildrenToExport(QExportFormatLevel& level) const {
    bool ok = level.AddExportableAttribute(
        QExportAttribute(u"minimumwidth", QAnyValue(m_minimumWidth), QAnyValue(0)));
    for (int i = 0; i < m_groups.GetSize(); ++i)
        if (m_groups[i])
            ok = level.AddExportable(m_groups[i], false) && ok;
    return ok;
}

bool QPropDefTabGroupSet::ImportAttributesAndChildren(QImportFormatLevel& level) {
    bool ok = ImportSubstituted(level, u"minimumwidth", m_minimumWidth);
    for (int i = 0; i < m_groups.GetSize(); ++i)
        if (m_groups[i])
            ok = level.MergeImportableIfPresent(m_groups[i]) && ok;
    return ImportNewGroups(level) && ok;
}

bool QPropDefTabGroupSet::ImportNewGroups(QImportFormatLevel& level) {
    bool ok = true;
    QPropDefTabGroup probe;
    CString levelName;
    CString identifier;
    for (int made = 0;
         made < c_mostNewChildren && level.MatchesRequiredImportable(&probe, levelName, identifier);
         ++made) {
        QSmartPtr<QPropDefTabGroup> group = MakeGroup(nullptr);
        group->SetName(identifier);
        ok = SetupNewChildImportable(group, levelName, identifier) && ok;
        ok = level.MergeImportableIfPresent(group) && ok;
        Add(group);
        if (identifier.IsEmpty() && group->IsEmpty())
            break;
    }
    return ok;
}

bool QPropDefTabGroupSet::DeleteContentsPreImport(QSmartPtr<QExportSelection> selection) {
    bool ok = true;
    for (int i = 0; i < m_groups.GetSize(); ++i)
        if (m_groups[i])
            ok = m_groups[i]->DeleteContentsPreImport(selection) && ok;
    return ok;
}

// --- Files ------------------------------------------------------------------------------------

bool QPropDefTabGroupSet::ReadFromFile(const CString& path, const QArray<CString>& values,
                                       const QArray<CString>& names) {
    const bool read = ReadQuestionFile(path, values, names, *this, [&](CStdioFileEx& file) {
        return ReadFromLegacyQIQFile(&file, values, names);
    });
    SetFileName(path);
    m_hasSubstitutions = !values.IsEmpty();
    return read;
}

bool QPropDefTabGroupSet::WriteToFile(const CString& path) {
    if (m_hasSubstitutions &&
        UIServices().MessageBox(u"Value substitutions will be lost. Continue with save?",
                                c_defineQuestions, MB_YESNO | MB_ICONQUESTION) != IDYES)
        return false;
    CString chosen = path;
    if (chosen.IsEmpty() &&
        !UIServices().PickExportFile(true, u"Export Questions", u"Questions (*.viqx)|*.viqx||",
                                     u".viqx", chosen))
        return false;
    const CString target = QuestionFileWritePath(chosen);
    SetFileName(target);
    return ExportData(target, false, false, nullptr);
}

bool QPropDefTabGroupSet::ReadFromLegacyQIQFile(CStdioFileEx* file, const QArray<CString>& values,
                                                const QArray<CString>& names) {
    m_groups.RemoveAll();
    for (;;) {
        QSmartPtr<QPropDefTabGroup> group = MakeGroup(nullptr);
        if (!group->ReadFromLegacyQIQFile(file, values, names))
            return !m_groups.IsEmpty();
        m_groups.Add(group);
    }
}

// --- Archive ----------------------------------------------------------------------------------

void QPropDefTabGroupSet::Serialize(CArchive& archive) {
    if (archive.IsStoring()) {
        archive << m_minimumWidth;
        archive.WriteCount(static_cast<std::uint64_t>(m_groups.GetSize()));
        for (int i = 0; i < m_groups.GetSize(); ++i) {
            if (!m_groups[i]) {
                QMessageBoxOrLog(u"Unusual - gap in groups list, may be a corrupt library",
                                 c_defineQuestions);
                m_groups[i] = MakeGroup(nullptr);
            }
            m_groups[i]->Serialize(archive);
        }
        return;
    }
    m_minimumWidth = 0;
    if (QSchema::IsBeforeVersion(archive, c_schemaMinimumWidth)) {
        CString dropped;
        archive >> dropped;
    } else {
        archive >> m_minimumWidth;
    }
    const int count = ReadCheckedCount(archive, 1);
    m_groups.RemoveAll();
    for (int i = 0; i < count; ++i) {
        QSmartPtr<QPropDefTabGroup> group = MakeGroup(nullptr);
        m_groups.Add(group);
        group->Serialize(archive);
    }
}

} // namespace keel
