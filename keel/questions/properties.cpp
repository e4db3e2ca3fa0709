#include "keel/questions/properties.h"

#include "keel/document/appservices.h"
#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/exchange/exportattribute.h"
#include "keel/exchange/exportflags.h"
#include "keel/exchange/exportformatlevel.h"
#include "keel/exchange/importformatlevel.h"
#include "keel/formula/formulacontext.h"
#include "keel/formula/tokeniser.h"
#include "keel/formula/treeshape.h"
#include "keel/platform/regex.h"
#include "keel/platform/registry.h"
#include "keel/platform/schema.h"
#include "keel/platform/uiservices.h"
#include "keel/questions/mergeprogress.h"
#include "keel/questions/propdeftabgroupset.h"
#include "keel/values/wholeraw.h"

#include <algorithm>
#include <climits>

namespace keel {

namespace {

// Schema versions at which the archive form of an answer changed.
constexpr int c_schemaFormulaTextUpgraded = 109;
constexpr int c_schemaEditedFlagStored = 114;

// The bits of the flags byte in the archive, which differ from the bits kept in memory.
constexpr std::uint8_t c_archiveFromTemplate = 1;
constexpr std::uint8_t c_archiveFromLibrary = 2;
constexpr std::uint8_t c_archiveHasDesc = 4;
constexpr std::uint8_t c_archiveEdited = 8;

bool StartsAsFormula(const CString& text) {
    return !text.IsEmpty() && (text[0] == u':' || text[0] == u'=');
}

bool IsQuoteOrBlank(char16_t ch) {
    return ch == u'"' || ch == u' ' || ch == u'\t';
}

// A string value that, without the double quotes and blanks around it, is the deletion marker.
bool IsDeleteMarkerValue(const QAnyValue& value) {
    if (!value.IsString())
        return false;
    const CString text = QAnyValue(value).MakeCString();
    int first = 0;
    int end = text.GetLength();
    while (first < end && IsQuoteOrBlank(text[first]))
        ++first;
    while (end > first && IsQuoteOrBlank(text[end - 1]))
        --end;
    return text.Mid(first, end - first).CompareNoCase(c_DeleteMeMarker) == 0;
}

} // namespace

CString UpgradeFormulaBearingText(const CString& text) {
    if (!StartsAsFormula(text))
        return text;
    const CString rest = text.Mid(1);
    QSmartPtr<QTokenStream> stream(new QTokenStream(FormulaText(rest)));
    if (!stream->Create(true) || stream->Count() == 0)
        return text;
    CString upgraded(text[0]);
    upgraded += stream->FormulaStringBetween(0, static_cast<short>(stream->Count() - 1), INT_MAX);
    return upgraded;
}

// --- QProp ------------------------------------------------------------------------------------

QProp::QProp(PropId key, const QWithFormula<QAnyValue>& valueWithFormula, QStringUnique desc)
    : m_key(key), m_valueWithFormula(valueWithFormula), m_desc(desc) {}

QProp::QProp(const QProp& other)
    : QSmartTarget(other), m_key(other.m_key), m_valueWithFormula(other.m_valueWithFormula),
      m_flags(other.m_flags), m_desc(other.m_desc) {}

QProp& QProp::operator=(const QProp& other) {
    if (this == &other)
        return *this;
    m_key = other.m_key;
    m_valueWithFormula = other.m_valueWithFormula;
    m_flags = other.m_flags & c_edited;
    m_desc = other.m_desc;
    return *this;
}

void QProp::SetValue(const QAnyValue& value) {
    SetValueWithFormula(value, FormulaText());
}

void QProp::SetFormula(FormulaText formula) {
    SetValueWithFormula(m_valueWithFormula.ValueNoEnsureUpToDate(), formula);
}

void QProp::SetValueWithFormula(const QAnyValue& value, FormulaText formula) {
    m_valueWithFormula.Assign(value, formula);
    MarkEditedIfFromTemplateOrLibrary();
}

void QProp::SetParentContext(QFormulaContext* context) {
    m_valueWithFormula.SetParentContext(context);
}

void QProp::DoSetParentContext(QFormulaContext* context) {
    m_valueWithFormula.DoSetParentContext(context);
}

bool QProp::IsSameSpecificationAs(const QProp& other) const {
    if (!(m_key == other.m_key) || m_flags != other.m_flags || !(m_desc == other.m_desc))
        return false;
    if (!(Formula() == other.Formula()))
        return false;
    return !Formula().IsEmpty() || m_valueWithFormula.ValueNoEnsureUpToDate().Identical(
                                       other.m_valueWithFormula.ValueNoEnsureUpToDate());
}

unsigned QProp::HashKeyCalc() const {
    const FormulaText formula = Formula();
    unsigned hash = static_cast<unsigned>(m_key.UniqueId());
    hash += formula.IsEmpty() ? m_valueWithFormula.ValueNoEnsureUpToDate().HashKey()
                              : static_cast<unsigned>(formula.UniqueId());
    hash += static_cast<unsigned>(m_desc.UniqueId());
    hash += ScalarHashKey(IsFromTemplate() ? 1 : 0);
    hash += ScalarHashKey(IsFromLibrary() ? 1 : 0);
    hash += ScalarHashKey(IsEdited() ? 1 : 0);
    return hash;
}

void QProp::SetFlag(std::uint8_t flag, bool on) {
    m_flags = static_cast<std::uint8_t>(on ? (m_flags | flag) : (m_flags & ~flag));
}

void QProp::CopyQuietlyFrom(const QProp& other) {
    const QWithFormula<QAnyValue>& source = other.m_valueWithFormula;
    m_key = other.m_key;
    m_flags = other.m_flags;
    m_desc = other.m_desc;
    if (m_valueWithFormula.IsParentContextEmpty())
        m_valueWithFormula.DoSetParentContext(const_cast<QFormulaContext*>(source.ParentContext()));
    m_valueWithFormula.SetFormulaNoChange(source.Formula());
    m_valueWithFormula.SetValueNoChange(source.ValueNoEnsureUpToDate());
    m_valueWithFormula.SetState(source.State());
    m_valueWithFormula.SetCacheState(source.CacheState());
    m_valueWithFormula.SetErrorBit(source.IsErrorBit());
}

void QProp::MarkEditedIfFromTemplateOrLibrary() {
    if (IsFromTemplate() || IsFromLibrary())
        SetIsEdited(true);
}

CArchive& operator<<(CArchive& archive, const QProp& prop) {
    archive << prop.m_key.ToString();
    archive << prop.m_valueWithFormula.ValueNoEnsureUpToDate();
    prop.m_valueWithFormula.StoreIntoArchive(archive);
    std::uint8_t flags = 0;
    if (prop.IsFromTemplate())
        flags |= c_archiveFromTemplate;
    if (prop.IsFromLibrary())
        flags |= c_archiveFromLibrary;
    if (!prop.m_desc.IsEmpty())
        flags |= c_archiveHasDesc;
    if (prop.IsEdited())
        flags |= c_archiveEdited;
    archive << flags;
    if (!prop.m_desc.IsEmpty())
        archive << prop.m_desc.ToString();
    return archive;
}

CArchive& operator>>(CArchive& archive, QProp& prop) {
    CString key;
    archive >> key;
    prop.m_key = PropId(key);

    QAnyValue value;
    archive >> value;
    QWithFormulaBase formula;
    formula.LoadFromArchive(archive);
    if (formula.IsFormulaEmpty() && value.IsString() &&
        QSchema::IsBeforeVersion(archive, c_schemaFormulaTextUpgraded))
        value = QAnyValue(UpgradeFormulaBearingText(value.AsStringOrFormula()));
    prop.SetValueWithFormula(value, formula.Formula());

    std::uint8_t flags = 0;
    archive >> flags;
    prop.SetIsFromTemplate((flags & c_archiveFromTemplate) != 0);
    prop.SetIsFromLibrary((flags & c_archiveFromLibrary) != 0);
    prop.SetIsEdited((flags & c_archiveEdited) != 0 &&
                     !QSchema::IsBeforeVersion(archive, c_schemaEditedFlagStored));
    prop.m_desc = QStringUnique();
    if (flags & c_archiveHasDesc) {
        CString desc;
        archive >> desc;
        prop.m_desc = QStringUnique(desc);
    }
    return archive;
}

// --- QPropertyComparator ----------------------------------------------------------------------

bool QPropertyComparator::IsSameAs(const QProp& prop) const {
    if (!m_pRefFormulaContext || !prop.Formula().IsEmpty())
        return false;
    QProp reference;
    if (!m_pRefFormulaContext->GetProperty(prop.Key(), reference))
        return false;
    return prop.ValueWithFormula().ValueNoEnsureUpToDate().Identical(reference.Value());
}

// --- QProperties: construction ----------------------------------------------------------------

QProperties::QProperties(QFormulaContext* parentContext) : m_pParentContext(parentContext) {}

QProperties::QProperties(const QProperties& other) : QProperties(other, other.m_pParentContext) {}

QProperties::QProperties(const QProperties& other, QFormulaContext* parentContext)
    : m_pParentContext(parentContext), m_pPropertyComparator(other.m_pPropertyComparator) {
    CopyPropertiesOf(other);
}

QProperties::~QProperties() {
    if (m_link)
        m_link->bag = nullptr;
    QTreeShape::Changed();
}

const std::shared_ptr<QPropertiesLink>& QProperties::Link() const {
    if (!m_link)
        m_link = std::make_shared<QPropertiesLink>(QPropertiesLink{this});
    return m_link;
}

QProperties& QProperties::operator=(const QProperties& other) {
    if (this == &other)
        return *this;
    NotifyParentOfPreChange();
    m_properties.RemoveAll();
    QTreeShape::Changed();
    CopyPropertiesOf(other);
    NotifyParentOfChanged();
    return *this;
}

void QProperties::CopyPropertiesOf(const QProperties& other) {
    m_properties.SetSize(other.PropertyCount());
    for (int i = 0; i < other.PropertyCount(); ++i) {
        m_properties[i] = new QProp(*other.m_properties[i]);
        m_properties[i]->DoSetParentContext(m_pParentContext);
    }
    m_bMapIsStale = true;
}

// --- Count and look-up ------------------------------------------------------------------------

int QProperties::FindProperty(PropId key) const {
    if (m_bMapIsStale)
        RefreshMap(false);
    int index = -1;
    return m_map.Lookup(key, index) ? index : -1;
}

void QProperties::RefreshMap(bool relink) const {
    m_map.RemoveAll();
    m_map.InitHashTable(
        std::max(m_map.GetHashTableSize(), 2 * static_cast<unsigned>(PropertyCount())), false);
    for (int i = 0; i < PropertyCount(); ++i)
        m_map[m_properties[i]->Key()] = i;
    m_bMapIsStale = false;
    if (!relink)
        return;
    for (const QSmartPtr<QProp>& prop : m_properties) {
        prop->DoSetParentContext(m_pParentContext);
        prop->PreChange();
        prop->Changed();
    }
}

const QProp* QProperties::PropertyOf(PropId key) const {
    const int index = FindProperty(key);
    return index < 0 ? nullptr : m_properties[index].Get();
}

QProp* QProperties::PropertyOf(PropId key) {
    const int index = FindProperty(key);
    return index < 0 ? nullptr : m_properties[index].Get();
}

// --- By key -----------------------------------------------------------------------------------

bool QProperties::GetProperty(PropId key, QProp& prop) const {
    const int index = FindProperty(key);
    return index >= 0 && GetAtProperty(index, prop);
}

bool QProperties::GetPropertyValue(PropId key, QAnyValue& value, bool& error,
                                   QCacheState* state) const {
    FormulaText formula;
    if (GetPropertyValueWithFormula(key, value, formula, error, state))
        return true;
    value.MakeEmpty();
    error = false;
    return false;
}

bool QProperties::GetPropertyValueWithFormula(PropId key, QAnyValue& value, FormulaText& formula,
                                              bool& error, QCacheState* state) const {
    PropId found;
    const int index = FindProperty(key);
    return index >= 0 && GetAtPropertyValueWithFormula(index, found, value, formula, error, state);
}

bool QProperties::GetPropertyValueWithFormulaWithNoEnsureUpToDate(PropId key, QAnyValue& value,
                                                                  FormulaText& formula) const {
    PropId found;
    const int index = FindProperty(key);
    return index >= 0 &&
           GetAtPropertyValueWithFormulaWithNoEnsureUpToDate(index, found, value, formula);
}

bool QProperties::GetPropertyFormula(PropId key, FormulaText& formula) const {
    const QProp* prop = PropertyOf(key);
    if (!prop)
        return false;
    formula = prop->Formula();
    return true;
}

bool QProperties::GetPropertyDesc(PropId key, QStringUnique& desc) const {
    const QProp* prop = PropertyOf(key);
    if (!prop)
        return false;
    desc = prop->Desc();
    return true;
}

bool QProperties::IsFromTemplate(PropId key) const {
    const QProp* prop = PropertyOf(key);
    return prop && prop->IsFromTemplate();
}

bool QProperties::IsFromLibrary(PropId key) const {
    const QProp* prop = PropertyOf(key);
    return prop && prop->IsFromLibrary();
}

void QProperties::SetProperty(PropId key, const QProp& prop) {
    if (key.UniqueId() < 0)
        return;
    const int index = FindProperty(key);
    if (index >= 0) {
        SetAtPropertyValueWithFormula(index, key, prop.ValueWithFormula().ValueNoEnsureUpToDate(),
                                      prop.Formula());
        m_properties[index]->SetDesc(prop.Desc());
        return;
    }
    AppendProperty(key, prop.ValueWithFormula().ValueNoEnsureUpToDate(), prop.Formula(),
                   prop.Desc());
}

void QProperties::SetPropertyValueWithFormula(PropId key, const QAnyValue& value,
                                              FormulaText formula) {
    if (key.UniqueId() < 0)
        return;
    const int index = FindProperty(key);
    if (index >= 0)
        SetAtPropertyValueWithFormula(index, key, value, formula);
    else
        AppendProperty(key, value, formula, QStringUnique());
}

void QProperties::SetPropertyValue(PropId key, const QAnyValue& value) {
    SetPropertyValueWithFormula(key, value, FormulaText());
}

void QProperties::SetPropertyFormula(PropId key, FormulaText formula) {
    const QProp* prop = PropertyOf(key);
    SetPropertyValueWithFormula(
        key, prop ? prop->ValueWithFormula().ValueNoEnsureUpToDate() : QAnyValue(), formula);
}

void QProperties::SetPropertyDesc(PropId key, QStringUnique desc) {
    if (QProp* prop = PropertyOf(key))
        prop->SetDesc(desc);
}

void QProperties::SetIsFromTemplate(PropId key, bool fromTemplate) {
    if (QProp* prop = PropertyOf(key))
        prop->SetIsFromTemplate(fromTemplate);
}

void QProperties::SetIsFromLibrary(PropId key, bool fromLibrary) {
    if (QProp* prop = PropertyOf(key))
        prop->SetIsFromLibrary(fromLibrary);
}

void QProperties::RemoveProperty(PropId key) {
    const int index = FindProperty(key);
    if (index >= 0)
        RemoveAtProperty(index);
}

void QProperties::AppendProperty(PropId key, const QAnyValue& value, FormulaText formula,
                                 QStringUnique desc) {
    QSmartPtr<QProp> prop(
        new QProp(key, QWithFormula<QAnyValue>(m_pParentContext, value, formula), desc));
    const int index = m_properties.Add(prop);
    // The map keeps its buckets; once the bag outgrows them, the next look-up rebuilds it with
    // twice as many as there are properties, so a bag filled key by key stays one probe deep.
    if (static_cast<unsigned>(PropertyCount()) > m_map.GetHashTableSize())
        m_bMapIsStale = true;
    else if (!m_bMapIsStale)
        m_map[key] = index;
    prop->DoSetParentContext(m_pParentContext);
    prop->PreChange();
    prop->Changed();
}

// --- By index ---------------------------------------------------------------------------------

bool QProperties::GetAtProperty(int index, QProp& prop) const {
    if (!IsValidIndex(index))
        return false;
    prop.CopyQuietlyFrom(*m_properties[index]);
    return true;
}

bool QProperties::GetAtPropertyValue(int index, PropId& key, QAnyValue& value, bool& error,
                                     QCacheState* state) const {
    FormulaText formula;
    if (GetAtPropertyValueWithFormula(index, key, value, formula, error, state))
        return true;
    value.MakeEmpty();
    return false;
}

bool QProperties::GetAtPropertyValueWithFormula(int index, PropId& key, QAnyValue& value,
                                                FormulaText& formula, bool& error,
                                                QCacheState* state) const {
    if (!IsValidIndex(index)) {
        key = PropId();
        return false;
    }
    const QProp& prop = *m_properties[index];
    const QWithFormula<QAnyValue>& valueWithFormula = prop.ValueWithFormula();
    key = prop.Key();
    value = valueWithFormula.Value();
    formula = prop.Formula();
    error = valueWithFormula.IsErrorBit();
    if (error)
        value.MakeError();
    if (state)
        RaiseCacheState(*state, valueWithFormula.CacheState());
    return true;
}

bool QProperties::GetAtPropertyValueWithFormulaWithNoEnsureUpToDate(int index, PropId& key,
                                                                    QAnyValue& value,
                                                                    FormulaText& formula) const {
    if (!IsValidIndex(index)) {
        key = PropId();
        return false;
    }
    const QProp& prop = *m_properties[index];
    key = prop.Key();
    value = prop.ValueWithFormula().ValueNoEnsureUpToDate();
    formula = prop.Formula();
    return true;
}

bool QProperties::GetAtPropertyFormula(int index, PropId& key, FormulaText& formula) const {
    if (!IsValidIndex(index)) {
        key = PropId();
        return false;
    }
    key = m_properties[index]->Key();
    formula = m_properties[index]->Formula();
    return true;
}

bool QProperties::GetAtPropertyDesc(int index, PropId& key, QStringUnique& desc) const {
    if (!IsValidIndex(index)) {
        key = PropId();
        return false;
    }
    key = m_properties[index]->Key();
    desc = m_properties[index]->Desc();
    return true;
}

void QProperties::SetAtProperty(int index, const QProp& prop) {
    if (!IsValidIndex(index))
        return;
    SetAtPropertyValueWithFormula(index, prop.Key(),
                                  prop.ValueWithFormula().ValueNoEnsureUpToDate(), prop.Formula());
    if (IsValidIndex(index) && m_properties[index]->SameKeyAs(prop))
        m_properties[index]->SetDesc(prop.Desc());
}

void QProperties::SetAtPropertyValueWithFormula(int index, PropId key, const QAnyValue& value,
                                                FormulaText formula) {
    if (!IsValidIndex(index))
        return;
    QProp& prop = *m_properties[index];
    if (!(prop.Key() == key)) {
        ReplaceAt(index, key, value, formula);
        return;
    }
    const FormulaText stored = prop.Formula();
    if (!formula.IsEmpty() && formula == stored)
        return;
    if (formula.IsEmpty() && stored.IsEmpty() &&
        value.Identical(prop.ValueWithFormula().ValueNoEnsureUpToDate()))
        return;
    prop.SetValueWithFormula(value, formula);
}

void QProperties::SetAtPropertyValue(int index, PropId key, const QAnyValue& value) {
    SetAtPropertyValueWithFormula(index, key, value, FormulaText());
}

void QProperties::SetAtPropertyFormula(int index, PropId key, FormulaText formula) {
    if (!IsValidIndex(index))
        return;
    const QProp& prop = *m_properties[index];
    SetAtPropertyValueWithFormula(
        index, key,
        prop.Key() == key ? prop.ValueWithFormula().ValueNoEnsureUpToDate() : QAnyValue(), formula);
}

void QProperties::SetAtPropertyDesc(int index, PropId key, QStringUnique desc) {
    if (IsValidIndex(index) && m_properties[index]->Key() == key)
        m_properties[index]->SetDesc(desc);
}

void QProperties::RemoveAtProperty(int index) {
    if (!IsValidIndex(index))
        return;
    NotifyParentOfPreChange();
    RemoveAtIndexQuietly(index);
    NotifyParentOfChanged();
}

void QProperties::ReplaceAt(int index, PropId key, const QAnyValue& value, FormulaText formula) {
    NotifyParentOfPreChange();
    if (!m_bMapIsStale)
        m_map.RemoveKey(m_properties[index]->Key());
    if (key.UniqueId() < 0) {
        RemoveAtIndexQuietly(index);
    } else {
        QSmartPtr<QProp> prop(
            new QProp(key, QWithFormula<QAnyValue>(m_pParentContext, value, formula)));
        prop->DoSetParentContext(m_pParentContext);
        m_properties[index] = prop;
        QTreeShape::Changed();
        if (!m_bMapIsStale)
            m_map[key] = index;
    }
    NotifyParentOfChanged();
}

void QProperties::RemoveAtIndexQuietly(int index) {
    m_properties.RemoveAt(index);
    m_bMapIsStale = true;
    QTreeShape::Changed();
}

void QProperties::NotifyParentOfPreChange() {
    if (m_pParentContext)
        m_pParentContext->NotifyTopLevelOfPreChangeFromChild();
}

void QProperties::NotifyParentOfChanged() {
    if (m_pParentContext)
        m_pParentContext->NotifyTopLevelOfChangedFromChild();
}

// --- The whole bag ----------------------------------------------------------------------------

void QProperties::RemoveAllProperties() {
    if (m_properties.IsEmpty())
        return;
    NotifyParentOfPreChange();
    m_properties.RemoveAll();
    m_bMapIsStale = true;
    QTreeShape::Changed();
    NotifyParentOfChanged();
}

template <class IsDoomed>
void QProperties::RemoveFromLastWhere(IsDoomed isDoomed) {
    for (int i = PropertyCount() - 1; i >= 0; --i)
        if (isDoomed(*m_properties[i]))
            RemoveAtProperty(i);
}

void QProperties::RemovePropertiesIfSameAsRef() {
    const QPropertyComparator* comparator = m_pPropertyComparator;
    if (!comparator || !comparator->HasARefFormulaContext())
        return;
    RemoveFromLastWhere([comparator](const QProp& prop) { return comparator->IsSameAs(prop); });
}

void QProperties::DeleteTemplateProperties(bool includeEdited) {
    RemoveFromLastWhere([includeEdited](const QProp& prop) {
        return prop.IsFromTemplate() && (includeEdited || !prop.IsEdited());
    });
}

void QProperties::DeleteLibraryProperties(bool includeEdited) {
    RemoveFromLastWhere([includeEdited](const QProp& prop) {
        return prop.IsFromLibrary() && (includeEdited || !prop.IsEdited());
    });
}

// --- Merge ------------------------------------------------------------------------------------

namespace {

bool IsDeleteMarker(FormulaText formula) {
    return !formula.IsEmpty() && formula.ToString().CompareNoCase(c_DeleteMeMarker) == 0;
}

// Whether two answers differ in what a person would see: their formula texts (with case), or,
// both without a formula, their values.
bool AnswersDiffer(const QAnyValue& value, FormulaText formula, const QAnyValue& otherValue,
                   FormulaText otherFormula) {
    if (formula.IsEmpty() && otherFormula.IsEmpty())
        return !value.Identical(otherValue);
    return formula.ToString().Compare(otherFormula.ToString()) != 0;
}

// Restores the growth step of an array at the end of a scope.
class KeepGrowSize {
public:
    explicit KeepGrowSize(QSmartPtrArray<QProp>& array)
        : m_array(array), m_growSize(array.GrowSize()) {}
    ~KeepGrowSize() { m_array.SetGrowSize(m_growSize); }
    KeepGrowSize(const KeepGrowSize&) = delete;
    KeepGrowSize& operator=(const KeepGrowSize&) = delete;

private:
    QSmartPtrArray<QProp>& m_array;
    int m_growSize;
};

} // namespace

void QProperties::MergeProperties(const QProperties* source, QMergeResolutionStrategy strategy,
                                  bool asTemplate, bool asLibrary, bool keepOrigin) {
    if (!source || source == this || source->PropertyCount() == 0)
        return;
    const int count = source->PropertyCount();
    KeepGrowSize growSize(m_properties);
    if (PropertyCount() == 0) {
        m_map.RemoveAll();
        m_map.InitHashTable(std::max(m_map.GetHashTableSize(), 2 * static_cast<unsigned>(count)),
                            false);
        m_bMapIsStale = false;
        m_properties.SetGrowSize(count);
        strategy = MERGE_OVERWRITE;
    }
    static const QTString mergingTitle(u"Merging answers", u"Status bar");
    static const QTString mergedTitle(u"Merged answers", u"Status bar");
    QMergeProgress progress(count, mergingTitle, mergedTitle);
    for (int i = 0; i < count; ++i) {
        MergeOne(*source->m_properties[i], strategy, asTemplate, asLibrary, keepOrigin);
        progress.Step();
    }
}

void QProperties::MergeOne(const QProp& sourceProp, QMergeResolutionStrategy strategy,
                           bool asTemplate, bool asLibrary, bool keepOrigin) {
    const PropId key = sourceProp.Key();
    const QAnyValue& value = sourceProp.ValueWithFormula().ValueNoEnsureUpToDate();
    const FormulaText formula = sourceProp.Formula();
    const bool isDeleteMarker = IsDeleteMarker(formula);

    if (strategy != MERGE_OVERWRITE && HasProperty(key)) {
        if (strategy == MERGE_KEEP_EXISTING || !AcceptsChange(key, value, formula))
            return;
    }
    if (!isDeleteMarker || strategy == MERGE_KEEP_EXISTING) {
        SetPropertyValueWithFormula(key, value, formula);
        if (asTemplate || (keepOrigin && sourceProp.IsFromTemplate()))
            SetIsFromTemplate(key, true);
        if (asLibrary || (keepOrigin && sourceProp.IsFromLibrary()))
            SetIsFromLibrary(key, true);
        return;
    }
    if (IsFromTemplate(key))
        RemoveProperty(key);
}

// Asks (or, running automated, logs) whether the answer of `key` may change to the source's;
// true when it may.
bool QProperties::AcceptsChange(PropId key, const QAnyValue& value, FormulaText formula) {
    QAnyValue existing;
    FormulaText existingFormula;
    GetPropertyValueWithFormulaWithNoEnsureUpToDate(key, existing, existingFormula);
    if (!AnswersDiffer(existing, existingFormula, value, formula))
        return false;
    const CString keyText = key.ToString();
    if (!AppServices().IsRunningAutomated()) {
        static const QTString ask(u"Change answer for '%s'\nfrom %s\nto %s",
                                  u"Message box (key,from,to)");
        return UIServices().MessageBox(
                   CString::Formatted(ask, keyText, existing.Format(), value.Format()),
                   ApplicationNameOrDefault(), MB_YESNO | MB_ICONQUESTION) == IDYES;
    }
    static const QTString told(u"Changed answer for '%s'\nfrom %s\nto %s",
                               u"Message box (key,from,to)");
    QMessageBoxOrLog(CString::Formatted(told, keyText, existing.Format(), value.Format()),
                     CString(u"Recalc"), true);
    return true;
}

// --- Catalogue clean-up -----------------------------------------------------------------------

namespace {

// The expressions of an option, one between each pair of semicolons.
QArray<CString> ExpressionsOf(const CString& option) {
    QArray<CString> expressions;
    int start = 0;
    while (start >= 0) {
        CString expression = option.Tokenize(u";", start);
        if (!expression.Trim().IsEmpty())
            expressions.Add(expression);
    }
    return expressions;
}

// A whole-text match of any of the expressions.
bool AnyMatches(const QArray<CString>& expressions, const CString& text) {
    return std::any_of(expressions.begin(), expressions.end(), [&text](const CString& expression) {
        return RegexMatch(text, u"^(?:" + expression + u")$");
    });
}

bool IsProtectedKey(const CString& lowerKey, const QArray<CString>& protectKeys) {
    static const char16_t* const protectedKeys[] = {u"_basedonlibrary", u"basedonlibrary",
                                                    u"_generatepalettesalways",
                                                    u"_generatepalettesnever"};
    if (lowerKey.Left(14) == u"_ribbonpalette")
        return true;
    for (const char16_t* key : protectedKeys)
        if (lowerKey == key)
            return true;
    return AnyMatches(protectKeys, lowerKey);
}

void ReportCleanup(const QProp& prop) {
    static const QTString deleted(u"Catalog Cleanup of %s deleted key=[%s] value=[%s]",
                                  u"Message box (context,key,value)");
    static const QTString withFormula(u" formula=[%s]", u"Message box (formula)");
    CString message =
        CString::Formatted(deleted, QProperties::c_WhoAmIContext, prop.Key().ToString(),
                           prop.ValueWithFormula().ValueNoEnsureUpToDate().Format());
    if (!prop.Formula().IsEmpty())
        message += CString::Formatted(withFormula, prop.Formula().ToString());
    QMessageBoxOrLog(message, CString(u"Cleanup"), true);
}

} // namespace

void QProperties::ReloadCatalogCleanupOptions() {
    c_bCatalogCleanupOptionsRead = false;
}

void QProperties::ReadCatalogCleanupOptionsOnce() {
    if (c_bCatalogCleanupOptionsRead)
        return;
    CRegistry& store = CRegistry::Current();
    c_bCatalogCleanupFormulas = store.GetProfileInt(u"Options", u"CatalogCleanupFormulas", 0) != 0;
    c_CatalogCleanupProtectKeys =
        ExpressionsOf(store.GetProfileString(u"Options", u"CatalogCleanupProtectKeys", CString()));
    c_CatalogCleanupTargetFormulas = ExpressionsOf(
        store.GetProfileString(u"Options", u"CatalogCleanupTargetFormulas", CString()));
    c_bCatalogCleanupOptionsRead = true;
}

int QProperties::CatalogCleanup(const QPropDefTabGroupSet* groupSet) {
    ReadCatalogCleanupOptionsOnce();
    int deleted = 0;
    for (int i = PropertyCount() - 1; i >= 0; --i) {
        const QSmartPtr<QProp> prop = m_properties[i];
        if (IsForCatalogue(*prop, groupSet))
            continue;
        ++deleted;
        RemoveAtProperty(i);
        ReportCleanup(*prop);
    }
    return deleted;
}

// Whether a clean-up keeps the answer.
bool QProperties::IsForCatalogue(const QProp& prop, const QPropDefTabGroupSet* groupSet) const {
    CString lowerKey = prop.Key().ToString();
    lowerKey.MakeLower();
    if (IsProtectedKey(lowerKey, c_CatalogCleanupProtectKeys))
        return true;
    const bool hasController =
        groupSet && !groupSet->GetControllingFriendlyPageQuestion(prop.Key()).IsEmpty();
    const bool hasFormula = !prop.Formula().IsEmpty();
    if (hasFormula && !c_CatalogCleanupTargetFormulas.IsEmpty()) {
        CString lowerFormula = prop.Formula().ToString();
        lowerFormula.MakeLower();
        if (AnyMatches(c_CatalogCleanupTargetFormulas, lowerFormula))
            return false;
    }
    const QAnyValue& value = prop.ValueWithFormula().ValueNoEnsureUpToDate();
    if (!hasFormula && value.IsString() && StartsAsFormula(value.AsStringOrFormula()))
        return false;
    if (groupSet && !hasController)
        return hasFormula;
    return !(c_bCatalogCleanupFormulas && hasFormula);
}

// --- Export and import ------------------------------------------------------------------------

bool QProperties::AddAttributesAndChildrenToExport(QExportFormatLevel& level) const {
    return ForEachPropertyDo(
        [&level](PropId key, const QAnyValue& value, FormulaText formula) {
            return level.AddExportableAttribute(
                QVariableTypeExportAttribute(key.ToString(), value, formula));
        },
        true, QExport::IsFlagSet(6));
}

bool QProperties::ImportAttributesAndChildren(QImportFormatLevel& level) {
    if (c_pImportingProperties != nullptr)
        return false;
    c_pImportingProperties = this;
    struct EndOfImport {
        ~EndOfImport() { c_pImportingProperties = nullptr; }
    } endOfImport;
    return level.ImportUnmatchedAttributes(
        [](const CString& name, const QAnyValue& value, FormulaText formula) {
            const PropId key(name);
            if (IsDeleteMarkerValue(value))
                c_pImportingProperties->RemoveProperty(key);
            else
                c_pImportingProperties->SetPropertyValueWithFormula(key, value, formula);
            return true;
        });
}

// --- Walking, comparing, hashing --------------------------------------------------------------

bool QProperties::ForEachPropertyDo(const PropertyCallback& callback, bool sorted,
                                    bool evaluate) const {
    QArray<PropId> keys;
    for (const QSmartPtr<QProp>& prop : m_properties)
        keys.Add(prop->Key());
    if (sorted)
        keys.SortNoCase();
    bool succeeded = true;
    for (const PropId& key : keys) {
        if (key.UniqueId() < 0)
            continue;
        QAnyValue value;
        FormulaText formula;
        bool error = false;
        const bool found =
            evaluate ? GetPropertyValueWithFormula(key, value, formula, error, nullptr)
                     : GetPropertyValueWithFormulaWithNoEnsureUpToDate(key, value, formula);
        if (found && !callback(key, value, formula))
            succeeded = false;
    }
    return succeeded;
}

bool QProperties::IsSameSpecificationAs(const QProperties& other) const {
    if (PropertyCount() != other.PropertyCount())
        return false;
    for (int i = 0; i < PropertyCount(); ++i)
        if (!m_properties[i]->IsSameSpecificationAs(*other.m_properties[i]))
            return false;
    return true;
}

unsigned QProperties::HashKeyCalc() const {
    unsigned hash = 0;
    for (const QSmartPtr<QProp>& prop : m_properties)
        hash += prop->HashKeyCalc();
    return hash;
}

void QProperties::DumpProperties(QArray<CString>& lines) const {
    for (int i = 0; i < PropertyCount(); ++i) {
        const QProp& prop = *m_properties[i];
        lines.Add(CString::Formatted(CString(u"\t\t%d %s\t%s\t%s"), i, prop.Key().ToString(),
                                     prop.ValueWithFormula().ValueNoEnsureUpToDate().Format(),
                                     prop.Formula().ToString()));
    }
}

namespace {

// The report job of the walk of SetCrystalFormulas.
void* g_crystalJob = nullptr;
QProperties::CrystalFormulaSetter g_crystalSetter = nullptr;

} // namespace

void QProperties::SetCrystalFormulas(void* job, CrystalFormulaSetter setter) const {
    g_crystalJob = job;
    g_crystalSetter = setter;
    ForEachPropertyDo(
        [](PropId key, const QAnyValue& value, FormulaText) {
            g_crystalSetter(g_crystalJob, key.ToString(), value.AsCrystalFormula());
            return true;
        },
        false, true);
    g_crystalJob = nullptr;
    g_crystalSetter = nullptr;
}

// --- Archive ----------------------------------------------------------------------------------

void QProperties::Serialize(CArchive& archive) {
    if (archive.IsStoring()) {
        const QPropertyComparator* comparator = m_pPropertyComparator;
        const bool filter = comparator && comparator->HasARefFormulaContext();
        QArray<const QProp*> written;
        for (const QSmartPtr<QProp>& prop : m_properties)
            if (!filter || !comparator->IsSameAs(*prop))
                written.Add(prop.Get());
        archive.WriteCount(static_cast<std::uint64_t>(written.GetCount()));
        for (const QProp* prop : written)
            archive << *prop;
        return;
    }
    const std::uint64_t count = archive.ReadCount();
    if (count > static_cast<std::uint64_t>(INT_MAX))
        ThrowArchiveException(CArchiveException::genericException, archive.GetFileName());
    m_properties.RemoveAll();
    QTreeShape::Changed();
    for (std::uint64_t i = 0; i < count; ++i) {
        QSmartPtr<QProp> prop(new QProp);
        archive >> *prop;
        m_properties.Add(prop);
    }
    RefreshMap(true);
}

} // namespace keel
