#include "keel/exchange/importformatlevel.h"

#include "keel/document/errorlog.h"
#include "keel/exchange/exportformatlevel.h"
#include "keel/exchange/importexport.h"
#include "keel/formula/toplevelcontext.h"

#include <optional>

namespace keel {

namespace {

// The same receiver under another name.
class RenamedImportAttribute : public QImportAttribute {
public:
    RenamedImportAttribute(const QImportAttribute& inner, const CString& name)
        : m_inner(inner), m_name(name) {}
    CString Name() const override { return m_name; }
    bool SetValue(const QAnyValue& value) const override { return m_inner.SetValue(value); }
    bool SetFormula(FormulaText formula) const override { return m_inner.SetFormula(formula); }

private:
    const QImportAttribute& m_inner;
    CString m_name;
};

CString LevelNameOf(const QNewLevelImportable* importable) {
    return importable ? importable->GetImportLevelName() : CString();
}

CString IdentifierOf(const QNewLevelImportable* importable) {
    return importable ? importable->GetImportableIdentifier() : CString();
}

} // namespace

QImportFormatLevel::QImportFormatLevel(QImportable& importable)
    : m_importable(importable), m_reportCount(std::make_shared<int>(0)) {}

QImportFormatLevel::QImportFormatLevel(QImportable& importable, QImportFormatLevel& parent)
    : m_importable(importable), m_reportCount(parent.m_reportCount) {}

QNewLevelImportable* QImportFormatLevel::NewLevelImportable() const {
    return m_importable.GetNewLevelImportable();
}

void QImportFormatLevel::ReportImportError(const CString& message) const {
    ++*m_reportCount;
    QMessageBoxOrLog(message, u"Import error");
}

bool QImportFormatLevel::MergeImportableIfPresent(QImportable* child) {
    std::optional<QTopLevelFormulaContext::BatchNotifications> batch;
    if (auto* context = dynamic_cast<QTopLevelFormulaContext*>(child))
        batch.emplace(context);
    return DoImportableImport(child);
}

bool QImportFormatLevel::ImportAttributeIfPresent(const QImportAttribute& attribute) {
    const CString name =
        m_arrayMode ? ArrayAttributeName(attribute.Name(), m_arrayIndex) : attribute.Name();
    const bool imported =
        m_arrayMode ? ImportAttributeIfPresentInternal(RenamedImportAttribute(attribute, name))
                    : ImportAttributeIfPresentInternal(attribute);
    if (!imported)
        ReportImportError(CString::Formatted(u"Import failed for attribute %s", name));
    return imported;
}

bool QImportFormatLevel::DoImportableImport(QImportable* child) {
    if (child == nullptr)
        return true;
    QNewLevelImportable* newLevel = child->GetNewLevelImportable();
    if (newLevel == nullptr)
        return child->ImportAttributesAndChildren(*this);
    std::unique_ptr<QImportFormatLevel> subLevel = CreateSubLevel(*newLevel);
    if (!subLevel->HasAnythingToImport())
        return true;
    const bool imported = child->ImportAttributesAndChildren(*subLevel);
    if (!imported)
        ReportImportError(CString::Formatted(u"Import failed for %s:%s", LevelNameOf(newLevel),
                                             IdentifierOf(newLevel)));
    subLevel->ReportUnmatchedContents();
    return imported;
}

bool QImportFormatLevel::ReportUnmatchedContents() const {
    if (!HasUnmatchedContents())
        return true;
    const QNewLevelImportable* newLevel = NewLevelImportable();
    ReportImportError(CString::Formatted(u"Unmatched content for %s:%s\n%s", LevelNameOf(newLevel),
                                         IdentifierOf(newLevel), UnmatchedContentDetails()));
    return false;
}

} // namespace keel
