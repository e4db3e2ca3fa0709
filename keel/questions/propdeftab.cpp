#include "keel/questions/propdeftab.h"

#include "keel/document/errorlog.h"
#include "keel/exchange/exportattribute.h"
#include "keel/exchange/exportflags.h"
#include "keel/exchange/exportformatlevel.h"
#include "keel/platform/file.h"
#include "keel/platform/schema.h"
#include "keel/platform/stdiofileex.h"
#include "keel/questions/propdeftabfiles.h"

#include <limits>

namespace keel {

using namespace propdeftab_files;

namespace {

// Schema versions at which the archive form of a tab changed.
constexpr int c_schemaNameOnly = 34;
constexpr int c_schemaNameAndAction = 37;
constexpr int c_schemaEnabledFormulas = 63;
constexpr int c_schemaOnShow = 69;
constexpr int c_schemaColumnSizes = 103;

// A column keeps its kind and size as two 4-byte integers.
constexpr unsigned c_columnBytes = 8;

constexpr char16_t c_tabMarker[] = u"[tab]";
constexpr int c_tabMarkerLength = 5;

bool g_importRefusalReported = false;

// The leading decimal of a text: sign, then digits; false when there are none.
bool ReadSignedInteger(const CString& text, long long& number) {
    int i = 0;
    const bool negative = i < text.GetLength() && text[i] == u'-';
    if (negative)
        ++i;
    if (i >= text.GetLength())
        return false;
    number = 0;
    for (; i < text.GetLength(); ++i) {
        if (text[i] < u'0' || text[i] > u'9' || number > 1000000000)
            return false;
        number = number * 10 + (text[i] - u'0');
    }
    if (negative)
        number = -number;
    return true;
}

} // namespace

namespace propdeftab_files {

void FailLegacyRead(const CString& message) {
    QMessageBoxOrLog(message, c_defineQuestions);
    ThrowFileException(CFileException::genericException, -1);
}

QArray<CString> LegacyFields(const CString& line, int first, const QArray<CString>& values,
                             const QArray<CString>& names) {
    QArray<CString> fields;
    int start = first;
    while (start >= 0 && start <= line.GetLength()) {
        const int tab = line.Find(u'\t', start);
        fields.Add(QPropDef::SubstituteValues(
            tab < 0 ? line.Mid(start) : line.Mid(start, tab - start), values, names));
        start = tab < 0 ? -1 : tab + 1;
    }
    return fields;
}

int NumberInFamily(const CString& name, const CString& base) {
    if (name == base)
        return 1;
    const int length = base.GetLength();
    if (name.GetLength() < length + 2 || name[length] != u' ' || name.Left(length) != base ||
        name[length + 1] == u'0')
        return 0;
    long long number = 0;
    for (int i = length + 1; i < name.GetLength(); ++i) {
        if (name[i] < u'0' || name[i] > u'9' || number > 1000000000)
            return 0;
        number = number * 10 + (name[i] - u'0');
    }
    return number >= 2 && number <= 1000000000 ? static_cast<int>(number) : 0;
}

int ReadCheckedCount(CArchive& archive, unsigned leastBytesEach) {
    const std::uint64_t count = archive.ReadCount();
    const std::uint64_t fits = archive.RemainingBytes() / leastBytesEach;
    if (count > fits || count > static_cast<std::uint64_t>(std::numeric_limits<int>::max()))
        ThrowArchiveException(CArchiveException::badIndex);
    return static_cast<int>(count);
}

} // namespace propdeftab_files

// --- Columns ----------------------------------------------------------------------------------

CString QPropDefTab::QColumnSize::AsString() const {
    switch (kind) {
    case Fixed:
        return CString::Formatted(u"Fixed:%d", size);
    case Percent:
        return CString::Formatted(u"Percent:%d", size);
    default:
        return u"Fill";
    }
}

QPropDefTab::QColumnSize QPropDefTab::QColumnSize::FromString(const CString& text) {
    long long number = 0;
    const auto numberAfter = [&text, &number](int prefix) {
        CString rest = text.Mid(prefix);
        rest.Trim();
        return ReadSignedInteger(rest, number) ? static_cast<std::int32_t>(number) : 0;
    };
    if (text.Left(6).CompareNoCase(u"Fixed:") == 0)
        return {Fixed, numberAfter(6)};
    if (text.Left(8).CompareNoCase(u"Percent:") == 0)
        return {Percent, numberAfter(8)};
    return {};
}

QPropDefTab::QColumnSize QPropDefTab::ColumnSize(int index) const {
    return index >= 0 && index < m_columnSizes.GetSize() ? m_columnSizes[index] : QColumnSize();
}

void QPropDefTab::SetColumnSize(int index, const QColumnSize& size) {
    if (index >= 0 && index < m_columnSizes.GetSize())
        m_columnSizes[index] = size;
}

void QPropDefTab::SetColumnCount(int count) {
    m_columnSizes.SetSize(count < 0 ? 0 : count);
}

CString QPropDefTab::ColumnSizesAsString() const {
    CString text;
    for (int i = 0; i < m_columnSizes.GetSize(); ++i) {
        if (i > 0)
            text += u"|";
        text += m_columnSizes[i].AsString();
    }
    return text;
}

void QPropDefTab::SetColumnSizesFromString(const CString& text) {
    m_columnSizes.RemoveAll();
    int start = 0;
    while (start >= 0) {
        const int bar = text.Find(u'|', start);
        m_columnSizes.Add(
            QColumnSize::FromString(bar < 0 ? text.Mid(start) : text.Mid(start, bar - start)));
        start = bar < 0 ? -1 : bar + 1;
    }
}

// --- Construction -----------------------------------------------------------------------------

QPropDefTab::QPropDefTab() {
    m_columnSizes.SetSize(c_defaultColumnCount);
}

QPropDefTab::QPropDefTab(const CString& name, QFormulaContext* context)
    : QWithContextConcrete(context), m_name(name) {
    m_columnSizes.SetSize(c_defaultColumnCount);
}

QPropDefTab::QPropDefTab(const QPropDefTab& other, QFormulaContext* context)
    : QSmartTarget(other), QWithContextConcrete(context), QNewLevelImportableExportable(other),
      m_name(other.m_name), m_enabledFormula(other.m_enabledFormula),
      m_enabledAlternativeFormula(other.m_enabledAlternativeFormula), m_action(other.m_action),
      m_onShow(other.m_onShow), m_columnSizes(other.m_columnSizes), m_flags(other.m_flags) {
    CopyDefinitions(other);
}

QPropDefTab& QPropDefTab::operator=(const QPropDefTab& other) {
    if (this == &other)
        return *this;
    m_name = other.m_name;
    m_enabledFormula = other.m_enabledFormula;
    m_enabledAlternativeFormula = other.m_enabledAlternativeFormula;
    m_action = other.m_action;
    m_onShow = other.m_onShow;
    m_columnSizes = other.m_columnSizes;
    m_flags = other.m_flags;
    CopyDefinitions(other);
    return *this;
}

void QPropDefTab::CopyDefinitions(const QPropDefTab& other) {
    QSmartPtrArray<QPropDef> copies;
    for (int i = 0; i < other.m_defs.GetSize(); ++i)
        copies.Add(MakeDefinition(other.m_defs[i]));
    m_defs = copies;
}

QSmartPtr<QPropDef> QPropDefTab::MakeDefinition(const QPropDef* from) const {
    QSmartPtr<QPropDef> def(from ? new QPropDef(*from) : new QPropDef());
    def->DoSetParentContextAlways(const_cast<QFormulaContext*>(ParentContext()));
    return def;
}

// --- Definitions ------------------------------------------------------------------------------

QPropDef* QPropDefTab::GetAt(int index) const {
    if (index < 0 || index >= m_defs.GetSize())
        return nullptr;
    QPropDef* def = m_defs[index];
    if (def)
        def->SetPropDefIndex(index + 1);
    return def;
}

int QPropDefTab::Find(const QPropDef* def) const {
    for (int i = 0; i < m_defs.GetSize(); ++i)
        if (m_defs[i].Get() == def)
            return i;
    return -1;
}

QPropDef* QPropDefTab::Lookup(ControlId name) const {
    for (int i = 0; i < m_defs.GetSize(); ++i)
        if (m_defs[i] && m_defs[i]->Name() == name)
            return m_defs[i];
    return nullptr;
}

int QPropDefTab::Add(const QPropDef* def) {
    return m_defs.Add(MakeDefinition(def));
}

void QPropDefTab::SetAt(int index, const QPropDef* def) {
    if (index >= 0 && index < m_defs.GetSize())
        m_defs[index] = MakeDefinition(def);
}

bool QPropDefTab::RemoveName(ControlId name) {
    bool removed = false;
    for (int i = m_defs.GetSize() - 1; i >= 0; --i) {
        if (m_defs[i] && m_defs[i]->Name() == name) {
            RemoveAt(i);
            removed = true;
        }
    }
    return removed;
}

void QPropDefTab::RemoveAt(int index) {
    if (index < 0 || index >= m_defs.GetSize())
        return;
    m_defs.RemoveAt(index);
    m_flags = 0;
}

void QPropDefTab::RemoveAll() {
    m_defs.RemoveAll();
    m_flags = 0;
}

void QPropDefTab::RemoveAllWithNoChange() {
    m_defs.RemoveAll();
}

void QPropDefTab::Replace(const QPropDefTab* other) {
    if (other)
        *this = *other;
}

// --- Comparison -------------------------------------------------------------------------------

bool QPropDefTab::operator==(const QPropDefTab& other) const {
    if (m_name != other.m_name || m_enabledFormula != other.m_enabledFormula ||
        m_enabledAlternativeFormula != other.m_enabledAlternativeFormula ||
        m_action != other.m_action || m_onShow != other.m_onShow || m_flags != other.m_flags ||
        m_defs.GetSize() != other.m_defs.GetSize() ||
        m_columnSizes.GetSize() != other.m_columnSizes.GetSize())
        return false;
    for (int i = 0; i < m_columnSizes.GetSize(); ++i)
        if (!(m_columnSizes[i] == other.m_columnSizes[i]))
            return false;
    for (int i = 0; i < m_defs.GetSize(); ++i) {
        const QPropDef* mine = m_defs[i];
        const QPropDef* theirs = other.m_defs[i];
        if (mine == nullptr || theirs == nullptr ? mine != theirs : *mine != *theirs)
            return false;
    }
    return true;
}

// --- Export and import ------------------------------------------------------------------------

bool QPropDefTab::AddAttributesAndChildrenToExport(QExportFormatLevel& level) const {
    bool ok = true;
    const auto add = [&level, &ok](const QExportAttribute& attribute) {
        ok = level.AddExportableAttribute(attribute) && ok;
    };
    add(QExportAttribute(u"enabledformula", m_enabledFormula, FormulaText()));
    add(QExportAttribute(u"enabledlcmformula", m_enabledAlternativeFormula, FormulaText()));
    add(QExportAttribute(u"onshow", m_onShow, FormulaText()));
    add(QExportAttribute(u"action", m_action, FormulaText()));
    add(QExportAttribute(u"isfromtemplate", QAnyValue(IsFromTemplate()), QAnyValue(false)));
    add(QExportAttribute(u"isfromlibrary", QAnyValue(IsFromLibrary()), QAnyValue(false)));
    add(QExportAttribute(u"colsizes", QAnyValue(ColumnSizesAsString()),
                         QAnyValue(QPropDefTab().ColumnSizesAsString())));
    const bool numbered = !QExport::IsFlagSet(1);
    for (int i = 0; i < m_defs.GetSize(); ++i) {
        if (!m_defs[i])
            continue;
        m_defs[i]->SetPropDefIndex(numbered ? i + 1 : 0);
        ok = level.AddExportable(m_defs[i], false) && ok;
    }
    return ok;
}

bool QPropDefTab::ImportAttributesAndChildren(QImportFormatLevel& level) {
    bool ok = ImportSubstitutedFormula(level, u"enabledformula", m_enabledFormula);
    ok = ImportSubstitutedFormula(level, u"enabledlcmformula", m_enabledAlternativeFormula) && ok;
    ok = ImportSubstitutedFormula(level, u"onshow", m_onShow) && ok;
    ok = ImportSubstitutedFormula(level, u"action", m_action) && ok;
    bool fromTemplate = IsFromTemplate();
    bool fromLibrary = IsFromLibrary();
    ok = ImportSubstituted(level, u"isfromtemplate", fromTemplate) && ok;
    ok = ImportSubstituted(level, u"isfromlibrary", fromLibrary) && ok;
    SetIsFromTemplate(fromTemplate);
    SetIsFromLibrary(fromLibrary);
    CString columns;
    ok = ImportSubstituted(level, u"colsizes", columns) && ok;
    if (!columns.IsEmpty())
        SetColumnSizesFromString(columns);
    for (int i = 0; i < m_defs.GetSize(); ++i) {
        if (!m_defs[i])
            continue;
        m_defs[i]->SetPropDefIndex(i + 1);
        ok = level.MergeImportableIfPresent(m_defs[i]) && ok;
    }
    return ImportNewDefinitions(level) && ok;
}

bool QPropDefTab::ImportNewDefinitions(QImportFormatLevel& level) {
    bool ok = true;
    QPropDef probe;
    CString levelName;
    CString identifier;
    for (int made = 0;
         made < c_mostNewChildren && level.MatchesRequiredImportable(&probe, levelName, identifier);
         ++made) {
        long long number = 0;
        // A level is found again by its identifier: one that a number does not spell stays
        // for the report of unmatched content.
        if (!ReadSignedInteger(identifier, number) ||
            CString::Formatted(u"%d", static_cast<int>(number)) != identifier)
            break;
        QSmartPtr<QPropDef> def = MakeDefinition(nullptr);
        def->SetPropDefIndex(static_cast<std::int32_t>(number));
        const bool placed = SetupNewChildImportable(def, levelName, identifier);
        ok = level.MergeImportableIfPresent(def) && ok;
        if (!placed)
            continue;
        const int index = Find(def);
        if (index >= 0)
            def->SetPropDefIndex(index + 1);
    }
    return ok;
}

bool QPropDefTab::SetupNewChildImportable(QNewLevelImportable* child, const CString&,
                                          const CString& identifier) {
    auto* def = dynamic_cast<QPropDef*>(child);
    if (def == nullptr)
        return false;
    long long number = 0;
    if (!ReadSignedInteger(identifier, number))
        number = -2;
    long long target = number - 1;
    if (number == 0)
        target = m_defs.GetSize();
    else if (number == -1)
        target = m_defs.GetSize() + 1LL;
    if (target < 0 || target >= c_mostImportedControls) {
        if (!g_importRefusalReported)
            QMessageBoxOrLog(u"Friendly page has too many controls, import file may be corrupt",
                             u"Import error");
        g_importRefusalReported = true;
        return false;
    }
    const int index = static_cast<int>(target);
    while (m_defs.GetSize() < index) {
        QSmartPtr<QPropDef> empty = MakeDefinition(nullptr);
        empty->SetPropDefIndex(m_defs.GetSize() + 1);
        m_defs.Add(empty);
    }
    if (index == m_defs.GetSize())
        m_defs.Add(QSmartPtr<QPropDef>(def));
    else
        m_defs[index] = def;
    return true;
}

void QPropDefTab::ResetImportRefusalReport() {
    g_importRefusalReported = false;
}

bool QPropDefTab::DeleteContentsPreImport(QSmartPtr<QExportSelection> selection) {
    if (!selection) {
        RemoveAllWithNoChange();
        return true;
    }
    for (int i = 0; i < m_defs.GetSize(); ++i)
        if (!m_defs[i] || !m_defs[i]->HasName())
            return true;
    for (int i = 0; i < selection->GetSize(); ++i)
        RemoveName(ControlId((*selection)[i]));
    return true;
}

// --- Archive ----------------------------------------------------------------------------------

void QPropDefTab::Serialize(CArchive& archive) {
    if (archive.IsStoring()) {
        archive << m_name << m_enabledFormula.ToString() << m_enabledAlternativeFormula.ToString()
                << m_action.ToString() << m_onShow.ToString() << m_flags;
        archive.WriteCount(static_cast<std::uint64_t>(m_columnSizes.GetSize()));
        for (int i = 0; i < m_columnSizes.GetSize(); ++i)
            archive << m_columnSizes[i].kind << m_columnSizes[i].size;
        archive.WriteCount(static_cast<std::uint64_t>(m_defs.GetSize()));
        for (int i = 0; i < m_defs.GetSize(); ++i) {
            if (!m_defs[i]) {
                QMessageBoxOrLog(u"Unusual - gap in questions list, may be a corrupt library",
                                 c_defineQuestions);
                m_defs[i] = MakeDefinition(nullptr);
            }
            m_defs[i]->Serialize(archive);
        }
        return;
    }
    CString text;
    const auto readFormula = [&archive, &text](FormulaText& formula) {
        archive >> text;
        formula = FormulaText(text);
    };
    archive >> m_name;
    m_enabledFormula = m_enabledAlternativeFormula = m_action = m_onShow = FormulaText();
    m_flags = 0;
    if (QSchema::IsUptoVersion(archive, c_schemaNameAndAction)) {
        if (!QSchema::IsUptoVersion(archive, c_schemaNameOnly))
            readFormula(m_action);
    } else {
        if (QSchema::IsAtLeastVersion(archive, c_schemaEnabledFormulas)) {
            readFormula(m_enabledFormula);
            readFormula(m_enabledAlternativeFormula);
        }
        readFormula(m_action);
        if (QSchema::IsAtLeastVersion(archive, c_schemaOnShow))
            readFormula(m_onShow);
        archive >> m_flags;
    }
    m_columnSizes.SetSize(c_defaultColumnCount);
    for (int i = 0; i < c_defaultColumnCount; ++i)
        m_columnSizes[i] = QColumnSize();
    if (QSchema::IsAtLeastVersion(archive, c_schemaColumnSizes)) {
        m_columnSizes.SetSize(ReadCheckedCount(archive, c_columnBytes));
        for (int i = 0; i < m_columnSizes.GetSize(); ++i)
            archive >> m_columnSizes[i].kind >> m_columnSizes[i].size;
    }
    const int count = ReadCheckedCount(archive, 1);
    m_defs.RemoveAll();
    QPropDef::ForgetPreviousOption();
    for (int i = 0; i < count; ++i) {
        QSmartPtr<QPropDef> def = MakeDefinition(nullptr);
        m_defs.Add(def);
        def->Serialize(archive);
    }
    QPropDef::ForgetPreviousOption();
}

// --- The legacy question file -----------------------------------------------------------------

void QPropDefTab::ReadLegacyTabLine(const CString& line, const QArray<CString>& values,
                                    const QArray<CString>& names) {
    QArray<CString> fields;
    if (line.GetLength() > c_tabMarkerLength && line[c_tabMarkerLength] == u'\t') {
        fields = LegacyFields(line, c_tabMarkerLength + 1, values, names);
    } else {
        // The old form names the tab right after the marker, with nothing else.
        CString name = QPropDef::SubstituteValues(line.Mid(c_tabMarkerLength), values, names);
        fields.Add(name.Trim());
    }
    const auto field = [&fields](int i) { return i < fields.GetSize() ? fields[i] : CString(); };
    m_name = field(0);
    m_enabledFormula = FormulaText(field(1));
    m_enabledAlternativeFormula = FormulaText(field(2));
    m_action = FormulaText(field(3));
    m_onShow = FormulaText(field(4));
}

bool QPropDefTab::ReadFromLegacyQIQFile(CStdioFileEx* file, const QArray<CString>& values,
                                        const QArray<CString>& names) {
    CString line;
    unsigned long long lineStart = 0;
    do {
        lineStart = file->GetPosition();
        if (!file->ReadString(line))
            return false;
    } while (line.IsEmpty());
    if (line.Left(c_tabMarkerLength) != CString(c_tabMarker)) {
        if (line.Left(7) == CString(u"[group]")) {
            file->Seek(static_cast<long long>(lineStart), CFile::begin);
            return false;
        }
        FailLegacyRead(CString::Formatted(u"Error while reading question definitions\nExpecting "
                                          u"[tab] at start of tabname but found\n%s",
                                          line));
    }
    ReadLegacyTabLine(line, values, names);
    m_defs.RemoveAll();
    QPropDef::ForgetPreviousOption();
    for (;;) {
        QSmartPtr<QPropDef> def = MakeDefinition(nullptr);
        if (!def->ReadFromLegacyQIQFile(file, values, names))
            break;
        m_defs.Add(def);
    }
    QPropDef::ForgetPreviousOption();
    return true;
}

} // namespace keel
