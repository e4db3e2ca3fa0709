#include "keel/formula/formulacontext.h"

#include "keel/document/appservices.h"
#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/treeshape.h"
#include "keel/questions/propdeftabgroupset.h"
#include "keel/questions/properties.h"

#include <array>
#include <memory>
#include <utility>
#include <vector>

namespace keel {

namespace {

constexpr unsigned c_cacheBuckets = 17;
constexpr int c_cacheBlockSize = 10;

const char16_t c_lookupMessageContext[] = u"Message box (context,name)";

bool GiveUp(const QTString& format, const QFormulaContext& context, const CString& name) {
    QMessageBoxOrLog(CString::Formatted(format, context.WhoAmI(), name), CString(u"Construction"),
                     true);
    return false;
}

bool CannotFindValue(const QFormulaContext& context, const CString& name) {
    static const QTString format(u"In %s\nCannot find value for\n%s", c_lookupMessageContext);
    return GiveUp(format, context, name);
}

bool CannotFindFormula(const QFormulaContext& context, const CString& name) {
    static const QTString format(u"In %s\nCannot find formula for\n%s", c_lookupMessageContext);
    return GiveUp(format, context, name);
}

bool CannotFindContext(const QFormulaContext& context, const CString& name) {
    static const QTString format(u"In %s\nCannot find context for\n%s", c_lookupMessageContext);
    return GiveUp(format, context, name);
}

void ShowDebugHit(const QFormulaContext& context, const PropId& name, const QAnyValue& value) {
    QAnyValue shown(value);
    const CString text = name.ToString() + u"\nfound with value\n\t" + shown.MakeCString() +
                         u"\nin\n\t" + context.WhoAmI();
    QMessageBoxOrLog(text, CString(u"Formula Debug"), true);
}

// A dotted name split at its first dot; a name without a dot, or with one in front, is simple.
struct QSplitName {
    QSplitName() = default;
    explicit QSplitName(const CString& text) {
        const int dot = text.Find(u'.');
        m_isPath = dot > 0;
        if (m_isPath) {
            m_head = PropId(text.Left(dot));
            m_tail = FullId(text.Mid(dot + 1));
        } else {
            m_head = PropId(text);
        }
    }

    bool m_isPath = false;
    PropId m_head;
    FullId m_tail;
};

// Splitting a name reads its text and interns its parts, which costs far more than the look-up
// that follows. The parts of an interned name never change, so each thread keeps the latest
// splits, one a slot.
QSplitName SplitOf(const FullId& name) {
    struct Split {
        int index = -1;
        QSplitName parts;
    };
    constexpr std::size_t c_slots = 256;
    thread_local std::array<Split, c_slots> splits;
    if (name.IsEmpty())
        return QSplitName(name.ToString());
    Split& split = splits[static_cast<std::size_t>(name.UniqueId()) % c_slots];
    if (split.index != name.UniqueId()) {
        split.parts = QSplitName(name.ToString());
        split.index = name.UniqueId();
    }
    return split.parts;
}

std::uint32_t KeyWithAcceptor(std::uint32_t seq, const void* acceptor) {
    return seq + static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(acceptor));
}

template <class Cache>
void PrepareCache(Cache& cache) {
    cache.InitHashTable(c_cacheBuckets, false);
}

// A cache keeps its buckets until it holds as many values as it has buckets; then it takes
// twice as many and enters its values again, so that a context of very many properties finds
// each of them in one probe, as a context of few does.
template <class Key>
void GrowIfFull(QMap<Key, QAnyValue>& cache) {
    const unsigned buckets = cache.GetHashTableSize();
    if (static_cast<unsigned>(cache.GetCount()) < buckets)
        return;
    std::vector<std::pair<Key, QAnyValue>> entries;
    entries.reserve(static_cast<std::size_t>(cache.GetCount()));
    for (auto& pair : cache)
        entries.emplace_back(pair.key, std::move(pair.value));
    cache.RemoveAll();
    cache.InitHashTable(2 * buckets + 1, false);
    for (auto& [key, value] : entries)
        cache[key] = std::move(value);
}

template <class Key>
void Remember(QMap<Key, QAnyValue>& cache, const Key& key, const QAnyValue& value) {
    GrowIfFull(cache);
    cache.SetAt(key, value);
}

} // namespace

// --- Construction -----------------------------------------------------------------------------

QFormulaContext::QFormulaContext()
    : m_formulaValueCache(c_cacheBlockSize), m_propIdValueCache(c_cacheBlockSize),
      m_fullIdValueCache(c_cacheBlockSize) {
    PrepareCache(m_formulaValueCache);
    PrepareCache(m_propIdValueCache);
    PrepareCache(m_fullIdValueCache);
}

QFormulaContext::QFormulaContext(const QFormulaContext&) : QFormulaContext() {}

QFormulaContext::~QFormulaContext() {
    QTreeShape::Changed();
}

void QFormulaContext::DeleteThis() {
    m_bIsDestructing = true;
    PreDeleteThis();
    delete this;
}

void QFormulaContext::PreDeleteThis() {}

// --- Values -----------------------------------------------------------------------------------

bool QFormulaContext::LookupValue(FullId name, QAnyValue& value, bool& error, QCacheState& state,
                                  bool passthrough, bool debug, bool useCache) {
    EnsureUpToDate();
    if (useCache && !debug && HeresAFullIdValueIPreparedEarlier(value, name))
        return true;
    const QSplitName split = SplitOf(name);
    if (!split.m_isPath)
        return SimpleLookupValue(split.m_head, value, error, state, nullptr, passthrough, debug,
                                 useCache);
    QFormulaContext* context = this;
    QCacheState headState = QCS_Stable;
    if (!SimpleLookupContext(split.m_head, context, headState, nullptr) || !context)
        return false;
    const bool found =
        context->LookupValue(split.m_tail, value, error, state, passthrough, debug, useCache);
    if (found && !error && headState == QCS_Stable && state == QCS_Stable && useCache)
        RememberThisFullIdValueForNextTime(value, name);
    RaiseCacheState(state, headState);
    return found;
}

bool QFormulaContext::SimpleLookupValue(PropId name, QAnyValue& value, bool& error,
                                        QCacheState& state, const QFormulaContext* excluded,
                                        bool passthrough, bool debug, bool useCache) {
    return SimpleLookupValueWithTries(name, value, error, state, excluded, passthrough, debug,
                                      useCache, c_lookupTries);
}

bool QFormulaContext::SimpleLookupValueInThisAndChildren(PropId name, QAnyValue& value, bool& error,
                                                         QCacheState& state,
                                                         const QFormulaContext* excluded,
                                                         bool passthrough, int tries) {
    if (tries <= 0)
        return CannotFindValue(*this, name.ToString());
    if (this == excluded)
        return false;
    return SimpleLookupValueInThis(name, value, error, state, passthrough) ||
           SimpleLookupValueInChildren(name, value, error, state, excluded, passthrough, tries - 1);
}

bool QFormulaContext::SimpleLookupValueInParent(PropId name, QAnyValue& value, bool& error,
                                                QCacheState& state, bool passthrough, bool debug,
                                                bool useCache, int tries) {
    if (tries <= 0)
        return CannotFindValue(*this, name.ToString());
    QFormulaContext* parent = ParentContext();
    return parent && parent->SimpleLookupValueWithTries(name, value, error, state, this,
                                                        passthrough, debug, useCache, tries - 1);
}

bool QFormulaContext::SimpleLookupValueInThis(PropId, QAnyValue&, bool&, QCacheState&, bool) {
    return false;
}

bool QFormulaContext::SimpleLookupValueInChildren(PropId, QAnyValue&, bool&, QCacheState&,
                                                  const QFormulaContext*, bool, int) {
    return false;
}

bool QFormulaContext::SimpleLookupValueWithTries(PropId name, QAnyValue& value, bool& error,
                                                 QCacheState& state,
                                                 const QFormulaContext* excluded, bool passthrough,
                                                 bool debug, bool useCache, int tries) {
    EnsureUpToDate();
    if (useCache && !debug && HeresAPropIdValueIPreparedEarlier(value, name))
        return true;
    if (tries <= 0)
        return CannotFindValue(*this, name.ToString());
    // A hit through the parent has been shown by the parent's own walk.
    bool foundNearby = true;
    if (HasProperty(name)) {
        if (!GetPropertyValue(name, value, error, &state))
            return false;
    } else if (!SimpleLookupValueInThisAndChildren(name, value, error, state, excluded, passthrough,
                                                   tries - 1)) {
        if (!SimpleLookupValueInParent(name, value, error, state, passthrough, debug, useCache,
                                       tries - 1))
            return false;
        foundNearby = false;
    }
    if (debug && foundNearby)
        ShowDebugHit(*this, name, value);
    // A hit from the cache tells no error, so a failed value is not kept there.
    if (state == QCS_Stable && useCache && !error)
        RememberThisPropIdValueForNextTime(value, name);
    return true;
}

// --- Formulas ---------------------------------------------------------------------------------

bool QFormulaContext::LookupFormula(FullId name, FormulaText& formula) {
    const QSplitName split = SplitOf(name);
    if (!split.m_isPath)
        return SimpleLookupFormula(split.m_head, formula, nullptr);
    QFormulaContext* context = this;
    QCacheState headState = QCS_Stable;
    if (!SimpleLookupContext(split.m_head, context, headState, nullptr) || !context)
        return false;
    return context->LookupFormula(split.m_tail, formula);
}

bool QFormulaContext::SimpleLookupFormula(PropId name, FormulaText& formula,
                                          const QFormulaContext* excluded) {
    return SimpleLookupFormulaWithTries(name, formula, excluded, c_lookupTries);
}

bool QFormulaContext::SimpleLookupFormulaInThisAndChildren(PropId name, FormulaText& formula,
                                                           const QFormulaContext* excluded,
                                                           int tries) {
    if (tries <= 0)
        return CannotFindFormula(*this, name.ToString());
    if (this == excluded)
        return false;
    return SimpleLookupFormulaInThis(name, formula) ||
           SimpleLookupFormulaInChildren(name, formula, excluded, tries - 1);
}

bool QFormulaContext::SimpleLookupFormulaInParent(PropId name, FormulaText& formula, int tries) {
    if (tries <= 0)
        return CannotFindFormula(*this, name.ToString());
    QFormulaContext* parent = ParentContext();
    return parent && parent->SimpleLookupFormulaWithTries(name, formula, this, tries - 1);
}

bool QFormulaContext::SimpleLookupFormulaInThis(PropId, FormulaText&) {
    return false;
}

bool QFormulaContext::SimpleLookupFormulaInChildren(PropId, FormulaText&, const QFormulaContext*,
                                                    int) {
    return false;
}

bool QFormulaContext::SimpleLookupFormulaWithTries(PropId name, FormulaText& formula,
                                                   const QFormulaContext* excluded, int tries) {
    if (tries <= 0)
        return CannotFindFormula(*this, name.ToString());
    if (HasProperty(name))
        return GetPropertyFormula(name, formula);
    return SimpleLookupFormulaInThisAndChildren(name, formula, excluded, tries - 1) ||
           SimpleLookupFormulaInParent(name, formula, tries - 1);
}

// --- Setting values ---------------------------------------------------------------------------

bool QFormulaContext::SetValue(FullId name, const QAnyValue& value) {
    ForgetEverythingIKnow();
    const QSplitName split = SplitOf(name);
    if (!split.m_isPath)
        return SimpleSetValue(split.m_head, value, nullptr);
    QFormulaContext* context = this;
    QCacheState headState = QCS_Stable;
    if (!SimpleLookupContext(split.m_head, context, headState, nullptr) || !context)
        return false;
    return context->SetValue(split.m_tail, value);
}

bool QFormulaContext::SimpleSetValue(PropId name, const QAnyValue& value,
                                     QFormulaContext* excluded) {
    if (HasProperty(name) || !SimpleSetValueInThisAndChildren(name, value, excluded))
        SetPropertyValue(name, value);
    if (m_bNamedUpdates)
        DoNamedUpdates(name.ToString());
    return true;
}

bool QFormulaContext::SimpleSetValueInThisAndChildren(PropId name, const QAnyValue& value,
                                                      QFormulaContext* excluded) {
    if (this == excluded)
        return false;
    return SimpleSetValueInThis(name, value) || SimpleSetValueInChildren(name, value, excluded);
}

bool QFormulaContext::SimpleSetValueInThis(PropId, const QAnyValue&) {
    return false;
}

bool QFormulaContext::SimpleSetValueInChildren(PropId, const QAnyValue&, QFormulaContext*) {
    return false;
}

// --- Setting formulas -------------------------------------------------------------------------

bool QFormulaContext::SetFormula(FullId name, FormulaText formula) {
    ForgetEverythingIKnow();
    const QSplitName split = SplitOf(name);
    if (!split.m_isPath)
        return SimpleSetFormula(split.m_head, formula, nullptr);
    QFormulaContext* context = this;
    QCacheState headState = QCS_Stable;
    if (!SimpleLookupContext(split.m_head, context, headState, nullptr) || !context)
        return false;
    return context->SetFormula(split.m_tail, formula);
}

bool QFormulaContext::SimpleSetFormula(PropId name, FormulaText formula,
                                       QFormulaContext* excluded) {
    if (!HasProperty(name) && SimpleSetFormulaInThisAndChildren(name, formula, excluded))
        return true;
    SetPropertyFormula(name, formula);
    return true;
}

bool QFormulaContext::SimpleSetFormulaInThisAndChildren(PropId name, FormulaText formula,
                                                        QFormulaContext* excluded) {
    if (this == excluded)
        return false;
    return SimpleSetFormulaInThis(name, formula) ||
           SimpleSetFormulaInChildren(name, formula, excluded);
}

bool QFormulaContext::SimpleSetFormulaInThis(PropId, FormulaText) {
    return false;
}

bool QFormulaContext::SimpleSetFormulaInChildren(PropId, FormulaText, QFormulaContext*) {
    return false;
}

// --- Contexts ---------------------------------------------------------------------------------

bool QFormulaContext::LookupContext(FullId name, QFormulaContext*& context,
                                    QCacheState& state) const {
    return LookupContextWithTries(name, context, state, c_lookupTries);
}

bool QFormulaContext::LookupContext(FullId name, QFormulaContext*& context, QCacheState& state) {
    return std::as_const(*this).LookupContext(name, context, state);
}

bool QFormulaContext::SimpleLookupContext(PropId name, QFormulaContext*& context,
                                          QCacheState& state,
                                          const QFormulaContext* excluded) const {
    return SimpleLookupContextWithTries(name, context, state, excluded, c_lookupTries);
}

bool QFormulaContext::SimpleLookupContext(PropId name, QFormulaContext*& context,
                                          QCacheState& state, const QFormulaContext* excluded) {
    return std::as_const(*this).SimpleLookupContext(name, context, state, excluded);
}

bool QFormulaContext::SimpleLookupContextInThisAndChildren(PropId name, QFormulaContext*& context,
                                                           QCacheState& state,
                                                           const QFormulaContext* excluded,
                                                           int tries) const {
    if (tries <= 0)
        return CannotFindContext(*this, name.ToString());
    if (this == excluded)
        return false;
    return SimpleLookupContextInThis(name, context, state) ||
           SimpleLookupContextInChildren(name, context, state, excluded, tries - 1);
}

bool QFormulaContext::SimpleLookupContextInParent(PropId name, QFormulaContext*& context,
                                                  QCacheState& state, int tries) const {
    if (tries <= 0)
        return CannotFindContext(*this, name.ToString());
    const QFormulaContext* parent = ParentContext();
    return parent && parent->SimpleLookupContextWithTries(name, context, state, this, tries - 1);
}

bool QFormulaContext::SimpleLookupContextInThis(PropId name, QFormulaContext*& context,
                                                QCacheState&) const {
    if (!IsNamed(name))
        return false;
    // Look-ups hand out the contexts they find for the caller to work on.
    context = const_cast<QFormulaContext*>(this);
    return true;
}

bool QFormulaContext::SimpleLookupContextInChildren(PropId, QFormulaContext*&, QCacheState&,
                                                    const QFormulaContext*, int) const {
    return false;
}

bool QFormulaContext::LookupContextWithTries(FullId name, QFormulaContext*& context,
                                             QCacheState& state, int tries) const {
    context = const_cast<QFormulaContext*>(this);
    if (tries <= 0)
        return CannotFindContext(*this, name.ToString());
    const QSplitName split = SplitOf(name);
    if (!SimpleLookupContextWithTries(split.m_head, context, state, nullptr, tries - 1))
        return false;
    if (!split.m_isPath)
        return true;
    return context && context->LookupContextWithTries(split.m_tail, context, state, tries - 1);
}

bool QFormulaContext::SimpleLookupContextWithTries(PropId name, QFormulaContext*& context,
                                                   QCacheState& state,
                                                   const QFormulaContext* excluded,
                                                   int tries) const {
    if (tries <= 0)
        return CannotFindContext(*this, name.ToString());
    return SimpleLookupContextInThisAndChildren(name, context, state, excluded, tries - 1) ||
           SimpleLookupContextInParent(name, context, state, tries - 1);
}

// --- Identity ---------------------------------------------------------------------------------

bool QFormulaContext::IsNamed(PropId name) const {
    return Prefix() == name;
}

CString QFormulaContext::TypeName() const {
    return SimpleTypeName();
}

bool QFormulaContext::IsAbleToHaveName() const {
    return false;
}

CString QFormulaContext::SimpleWhoAmI() const {
    return TypeName();
}

bool QFormulaContext::IsWithinDocument() const {
    return false;
}

void QFormulaContext::SetCanBeShared(bool canBeShared) {
    // A shared context that has been given a parent keeps it.
    if (m_bCanBeShared == canBeShared && (!canBeShared || ParentContext()))
        return;
    m_bCanBeShared = canBeShared;
    if (canBeShared)
        DoSetParentContextAlwaysNull();
}

QDoc* QFormulaContext::GetDoc() {
    QFormulaContext* parent = ParentContext();
    return parent ? parent->GetDoc() : nullptr;
}

const QDoc* QFormulaContext::GetDoc() const {
    const QFormulaContext* parent = ParentContext();
    return parent ? parent->GetDoc() : nullptr;
}

// A context that belongs to no document reads from the document of the active view.
QDoc* QFormulaContext::GetDocOrActive() {
    QDoc* document = GetDoc();
    return document ? document : AppServices().ActiveDocument();
}

const QDoc* QFormulaContext::GetDocOrActive() const {
    const QDoc* document = GetDoc();
    return document ? document : AppServices().ActiveDocument();
}

PropId QFormulaContext::Prefix() const {
    return PropId(SimpleTypeName());
}

CString QFormulaContext::WhoAmI() const {
    const CString mine = SimpleWhoAmI();
    const QFormulaContext* parent = ParentContext();
    if (!parent)
        return mine;
    const CString parents = parent->WhoAmI();
    if (parents.IsEmpty())
        return mine;
    if (mine.IsEmpty())
        return parents;
    return parents + u" " + mine;
}

// --- Hooks ------------------------------------------------------------------------------------

bool QFormulaContext::DoNamedUpdates(CString) {
    return false;
}

int QFormulaContext::ConstructionAnswerCheck(CString) {
    return 0;
}

void QFormulaContext::NotifyChildrenFullRecalc() {}

void QFormulaContext::OnNotifyFullRecalcFromParent() {
    if (!CanBeSharedOrIsDestructing())
        NotifyChildrenFullRecalc();
}

void QFormulaContext::FullRecalc() {
    if (CanBeSharedOrIsDestructing())
        return;
    NotifyTopLevelOfPreChangeFromChild();
    OnNotifyFullRecalcFromParent();
    NotifyTopLevelOfChangedFromChild();
}

// --- Question definitions ---------------------------------------------------------------------

QPropDefTabGroupSet* QFormulaContext::PropDefTabGroupSet() {
    return nullptr;
}

QPropDefTabGroup* QFormulaContext::PropDefTabGroup() {
    const QPropDefTabGroupSet* set = PropDefTabGroupSet();
    return set ? set->CurrentTabGroupPtr() : nullptr;
}

QPropDefTab* QFormulaContext::PropDefTab() {
    const QPropDefTabGroup* group = PropDefTabGroup();
    return group ? group->CurrentTabPtr() : nullptr;
}

// --- Properties: forwarded to Properties(); a context without them has none ------------------

int QFormulaContext::PropertyCount() const {
    const QProperties* properties = Properties();
    return properties ? properties->PropertyCount() : 0;
}

int QFormulaContext::FindProperty(PropId name) const {
    const QProperties* properties = Properties();
    return properties ? properties->FindProperty(name) : -1;
}

bool QFormulaContext::HasProperty(PropId name) const {
    const QProperties* properties = Properties();
    return properties && properties->HasProperty(name);
}

bool QFormulaContext::GetProperty(PropId name, QProp& property) const {
    const QProperties* properties = Properties();
    return properties && properties->GetProperty(name, property);
}

bool QFormulaContext::GetPropertyValueWithFormula(PropId name, QAnyValue& value,
                                                  FormulaText& formula, bool& error,
                                                  QCacheState* state) {
    const QProperties* properties = Properties();
    return properties &&
           properties->GetPropertyValueWithFormula(name, value, formula, error, state);
}

bool QFormulaContext::GetPropertyValueWithFormulaWithNoEnsureUpToDate(PropId name, QAnyValue& value,
                                                                      FormulaText& formula) const {
    const QProperties* properties = Properties();
    return properties &&
           properties->GetPropertyValueWithFormulaWithNoEnsureUpToDate(name, value, formula);
}

bool QFormulaContext::GetPropertyValue(PropId name, QAnyValue& value, bool& error,
                                       QCacheState* state) {
    const QProperties* properties = Properties();
    return properties && properties->GetPropertyValue(name, value, error, state);
}

bool QFormulaContext::GetPropertyFormula(PropId name, FormulaText& formula) const {
    const QProperties* properties = Properties();
    return properties && properties->GetPropertyFormula(name, formula);
}

bool QFormulaContext::GetPropertyDesc(PropId name, QStringUnique& desc) const {
    const QProperties* properties = Properties();
    return properties && properties->GetPropertyDesc(name, desc);
}

void QFormulaContext::SetProperty(PropId name, const QProp& property) {
    if (QProperties* properties = Properties())
        properties->SetProperty(name, property);
}

void QFormulaContext::SetPropertyValueWithFormula(PropId name, const QAnyValue& value,
                                                  FormulaText formula) {
    if (QProperties* properties = Properties())
        properties->SetPropertyValueWithFormula(name, value, formula);
}

void QFormulaContext::SetPropertyValue(PropId name, const QAnyValue& value) {
    if (QProperties* properties = Properties())
        properties->SetPropertyValue(name, value);
}

void QFormulaContext::SetPropertyFormula(PropId name, FormulaText formula) {
    if (QProperties* properties = Properties())
        properties->SetPropertyFormula(name, formula);
}

void QFormulaContext::SetPropertyDesc(PropId name, QStringUnique desc) {
    if (QProperties* properties = Properties())
        properties->SetPropertyDesc(name, desc);
}

bool QFormulaContext::GetAtProperty(int index, QProp& property) const {
    const QProperties* properties = Properties();
    return properties && properties->GetAtProperty(index, property);
}

bool QFormulaContext::GetAtPropertyValueWithFormula(int index, PropId& name, QAnyValue& value,
                                                    FormulaText& formula, bool& error,
                                                    QCacheState* state) {
    const QProperties* properties = Properties();
    return properties &&
           properties->GetAtPropertyValueWithFormula(index, name, value, formula, error, state);
}

bool QFormulaContext::GetAtPropertyValueWithFormulaWithNoEnsureUpToDate(
    int index, PropId& name, QAnyValue& value, FormulaText& formula) const {
    const QProperties* properties = Properties();
    return properties && properties->GetAtPropertyValueWithFormulaWithNoEnsureUpToDate(
                             index, name, value, formula);
}

bool QFormulaContext::GetAtPropertyValue(int index, PropId& name, QAnyValue& value, bool& error,
                                         QCacheState* state) {
    const QProperties* properties = Properties();
    return properties && properties->GetAtPropertyValue(index, name, value, error, state);
}

bool QFormulaContext::GetAtPropertyFormula(int index, PropId& name, FormulaText& formula) const {
    const QProperties* properties = Properties();
    return properties && properties->GetAtPropertyFormula(index, name, formula);
}

bool QFormulaContext::GetAtPropertyDesc(int index, PropId& name, QStringUnique& desc) const {
    const QProperties* properties = Properties();
    return properties && properties->GetAtPropertyDesc(index, name, desc);
}

void QFormulaContext::SetAtProperty(int index, const QProp& property) {
    if (QProperties* properties = Properties())
        properties->SetAtProperty(index, property);
}

void QFormulaContext::SetAtPropertyValueWithFormula(int index, PropId name, const QAnyValue& value,
                                                    FormulaText formula) {
    if (QProperties* properties = Properties())
        properties->SetAtPropertyValueWithFormula(index, name, value, formula);
}

void QFormulaContext::SetAtPropertyValue(int index, PropId name, const QAnyValue& value) {
    if (QProperties* properties = Properties())
        properties->SetAtPropertyValue(index, name, value);
}

void QFormulaContext::SetAtPropertyFormula(int index, PropId name, FormulaText formula) {
    if (QProperties* properties = Properties())
        properties->SetAtPropertyFormula(index, name, formula);
}

void QFormulaContext::SetAtPropertyDesc(int index, PropId name, QStringUnique desc) {
    if (QProperties* properties = Properties())
        properties->SetAtPropertyDesc(index, name, desc);
}

void QFormulaContext::RemoveProperty(PropId name) {
    if (QProperties* properties = Properties())
        properties->RemoveProperty(name);
}

void QFormulaContext::RemoveAllProperties() {
    if (QProperties* properties = Properties())
        properties->RemoveAllProperties();
}

void QFormulaContext::RemoveAtProperty(int index) {
    if (QProperties* properties = Properties())
        properties->RemoveAtProperty(index);
}

// --- Inspector and subscribers ----------------------------------------------------------------

void QFormulaContext::SetAsPropertyInspectorSubject() {
    QFormulaContext* parent = ParentContext();
    if (parent && parent != this)
        parent->SetAsPropertyInspectorSubject();
}

QPropertySheetSubject* QFormulaContext::PropertySheetSubject() {
    QFormulaContext* parent = ParentContext();
    return parent ? parent->PropertySheetSubject() : nullptr;
}

void QFormulaContext::RegisterChangedSubscriber(QFormulaContextChangedSubscriber* subscriber) {
    if (QFormulaContext* parent = ParentContext())
        parent->RegisterChangedSubscriber(subscriber);
}

void QFormulaContext::DeregisterChangedSubscriber(QFormulaContextChangedSubscriber* subscriber) {
    if (QFormulaContext* parent = ParentContext())
        parent->DeregisterChangedSubscriber(subscriber);
}

// --- Cache keys -------------------------------------------------------------------------------

bool QFormulaContext::HasSeqForValueCache() const {
    return false;
}

std::uint32_t QFormulaContext::SeqForValueCache() const {
    return 0;
}

const void* QFormulaContext::AcceptorForValueCache() const {
    return nullptr;
}

void QFormulaContext::ForgetEverythingIKnowInThisAndParents() {
    ForgetEverythingIKnow();
    if (QFormulaContext* parent = ParentContext())
        parent->ForgetEverythingIKnowInThisAndParents();
}

// --- Parent -----------------------------------------------------------------------------------

void QFormulaContext::DoSetParentContext(QFormulaContext* context) {
    QTreeShape::Changed();
    if (m_bCanBeShared || !context)
        DoSetParentContextAlwaysNull();
    else
        DoSetParentContextAlways(context);
}

void QFormulaContext::DoSetParentContextIfNotShared(QFormulaContext* context) {
    if (m_bCanBeShared)
        DoSetParentContextAlwaysNull();
    else
        DoSetParentContext(context);
}

void QFormulaContext::OnEnsureUpToDate() const {
    ClearValueCaches();
    ClearErrorBit();
}

// --- Value caches -----------------------------------------------------------------------------

bool QFormulaContext::HeresAFormulaValueIPreparedEarlier(QAnyValue& out, QCacheState& state,
                                                         const FormulaText& formula) const {
    if (m_formulaValueCache.IsEmpty() || CanBeSharedOrIsDestructing())
        return false;
    const std::uint32_t seq = SeqForValueCache();
    if (const void* acceptor = AcceptorForValueCache();
        acceptor && m_formulaValueCache.Lookup({formula, KeyWithAcceptor(seq, acceptor)}, out)) {
        RaiseCacheState(state, QCS_ByAcceptor);
        return true;
    }
    if (seq != 0 && m_formulaValueCache.Lookup({formula, seq}, out)) {
        RaiseCacheState(state, QCS_BySeq);
        return true;
    }
    return m_formulaValueCache.Lookup({formula, 0}, out);
}

void QFormulaContext::RememberThisFormulaValueForNextTime(const QAnyValue& value,
                                                          const FormulaText& formula,
                                                          QCacheState state) {
    if (CanBeSharedOrIsDestructing())
        return;
    switch (state) {
    case QCS_Stable:
        Remember(m_formulaValueCache, {formula, 0}, value);
        break;
    case QCS_BySeq:
        Remember(m_formulaValueCache, {formula, SeqForValueCache()}, value);
        break;
    case QCS_ByAcceptor:
        if (const void* acceptor = AcceptorForValueCache())
            Remember(m_formulaValueCache, {formula, KeyWithAcceptor(SeqForValueCache(), acceptor)},
                     value);
        break;
    case QCS_NotCacheable:
        break;
    }
}

void QFormulaContext::ForgetThisFormulaValueForNextTime(const FormulaText& formula) {
    m_formulaValueCache.RemoveKey({formula, SeqForValueCache()});
    m_formulaValueCache.RemoveKey({formula, 0});
}

bool QFormulaContext::HeresAPropIdValueIPreparedEarlier(QAnyValue& out, const PropId& name) const {
    return !m_propIdValueCache.IsEmpty() && !CanBeSharedOrIsDestructing() &&
           m_propIdValueCache.Lookup({name, SeqForValueCache()}, out);
}

void QFormulaContext::RememberThisPropIdValueForNextTime(const QAnyValue& value,
                                                         const PropId& name) {
    if (!CanBeSharedOrIsDestructing())
        Remember(m_propIdValueCache, {name, SeqForValueCache()}, value);
}

void QFormulaContext::ForgetThisPropIdValueForNextTime(const PropId& name) {
    m_propIdValueCache.RemoveKey({name, SeqForValueCache()});
}

bool QFormulaContext::HeresAFullIdValueIPreparedEarlier(QAnyValue& out, const FullId& name) const {
    return !m_fullIdValueCache.IsEmpty() && !CanBeSharedOrIsDestructing() &&
           m_fullIdValueCache.Lookup({name, SeqForValueCache()}, out);
}

void QFormulaContext::RememberThisFullIdValueForNextTime(const QAnyValue& value,
                                                         const FullId& name) {
    if (!CanBeSharedOrIsDestructing())
        Remember(m_fullIdValueCache, {name, SeqForValueCache()}, value);
}

void QFormulaContext::ForgetThisFullIdValueForNextTime(const FullId& name) {
    m_fullIdValueCache.RemoveKey({name, SeqForValueCache()});
}

void QFormulaContext::ForgetEverythingIKnow() {
    ClearValueCaches();
}

void QFormulaContext::ClearValueCaches() const {
    m_formulaValueCache.RemoveAll();
    m_propIdValueCache.RemoveAll();
    m_fullIdValueCache.RemoveAll();
}

// --- Evaluation -------------------------------------------------------------------------------

bool QFormulaContext::Evaluate(QAnyValue& out, QCacheState& state, FormulaText formula,
                               bool passthrough, bool report, bool action) {
    if (CanBeSharedOrIsDestructing())
        return true;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(out, formula, this, passthrough, report, action));
    const bool succeeded = evaluator->Evaluate();
    RaiseCacheState(state, evaluator->CacheState());
    return succeeded;
}

bool QFormulaContext::EvaluateVarAsBool(const CString& formula, bool report) {
    return QEvaluator::EvaluateFormulaAsBool(FormulaText(formula), this, false, report, false);
}

int QFormulaContext::EvaluateVarAsInt(const CString& formula, bool report) {
    return QEvaluator::EvaluateFormulaAsInt(FormulaText(formula), this, false, report, false);
}

double QFormulaContext::EvaluateVarAsDouble(const CString& formula, bool report) {
    return QEvaluator::EvaluateFormulaAsDouble(FormulaText(formula), this, false, report, false);
}

QAngle QFormulaContext::EvaluateVarAsAngle(const CString& formula, bool report) {
    return QEvaluator::EvaluateFormulaAsAngle(FormulaText(formula), this, false, report, false);
}

QLength QFormulaContext::EvaluateVarAsLength(const CString& formula, bool report) {
    return QEvaluator::EvaluateFormulaAsLength(FormulaText(formula), this, false, report, false);
}

} // namespace keel
