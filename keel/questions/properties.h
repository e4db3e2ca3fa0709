#pragma once

#include "keel/exchange/importexport.h"
#include "keel/formula/state.h"
#include "keel/formula/withformula.h"
#include "keel/platform/archive.h"
#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"
#include "keel/values/array.h"
#include "keel/values/map.h"
#include "keel/values/smartptr.h"
#include "keel/values/stringunique.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace keel {

class QFormulaContext;
class QPropDefTabGroupSet;
class QProperties;
class QPropertyHandle;

// A string answer written before schema 109 held its formula as text after a leading ":" or
// "=": the rest goes through the token stream and comes back as the text the tokens span, with
// the leading character in front again. Any other text is returned as it is.
CString UpgradeFormulaBearingText(const CString& text);

// One answer: a key, a value with its own formula, a description and three origin flags.
struct QProp : QSmartTarget {
    QProp() = default;
    QProp(PropId key, const QWithFormula<QAnyValue>& valueWithFormula,
          QStringUnique desc = QStringUnique());
    // Keeps all three flags.
    QProp(const QProp& other);
    // Copies key, value with formula, the edited flag and the description, and clears the
    // template and library flags: an assigned answer is this bag's own. The source's context is
    // taken only when this property has none.
    QProp& operator=(const QProp& other);
    ~QProp() override = default;

    PropId Key() const { return m_key; }
    bool HasKey() const { return !m_key.IsEmpty(); }
    bool SameKeyAs(const QProp& other) const { return m_key == other.m_key; }
    FormulaText Formula() const { return m_valueWithFormula.Formula(); }
    // Brought up to date first.
    const QAnyValue& Value() const { return m_valueWithFormula.Value(); }
    const QWithFormula<QAnyValue>& ValueWithFormula() const { return m_valueWithFormula; }
    QWithFormula<QAnyValue>* ValueWithFormulaPointer() { return &m_valueWithFormula; }
    QStringUnique Desc() const { return m_desc; }
    bool IsFromTemplate() const { return (m_flags & c_fromTemplate) != 0; }
    bool IsFromLibrary() const { return (m_flags & c_fromLibrary) != 0; }
    bool IsEdited() const { return (m_flags & c_edited) != 0; }
    QFormulaContext* ParentContext() { return m_valueWithFormula.ParentContext(); }
    const QFormulaContext* ParentContext() const { return m_valueWithFormula.ParentContext(); }

    void SetKey(PropId key) { m_key = key; }
    void SetDesc(QStringUnique desc) { m_desc = desc; }
    // Without a formula.
    void SetValue(const QAnyValue& value);
    // Keeps the stored value.
    void SetFormula(FormulaText formula);
    // Takes value and formula with the notices of a change; an answer from a template or a
    // library that is set this way is marked as edited.
    void SetValueWithFormula(const QAnyValue& value, FormulaText formula);
    void SetIsFromTemplate(bool fromTemplate) { SetFlag(c_fromTemplate, fromTemplate); }
    void SetIsFromLibrary(bool fromLibrary) { SetFlag(c_fromLibrary, fromLibrary); }
    // Nothing when unchanged; detaching runs deferred; the error bit is cleared and a new
    // context hears of the change.
    void SetParentContext(QFormulaContext* context);
    // The pointer alone, without notices.
    void DoSetParentContext(QFormulaContext* context);
    void PreChange() { m_valueWithFormula.PreChange(); }
    void Changed() { m_valueWithFormula.Changed(); }

    // Equal keys, flags and descriptions, and equal real formulas or, both without a formula,
    // identical values.
    bool IsSameSpecificationAs(const QProp& other) const;
    // The sum of the key's index, the formula's index (the value's hash without a formula), the
    // description's index and the integer hash of each flag bit.
    virtual unsigned HashKeyCalc() const;

    // The key as a wide counted string, the value, the formula, a flags byte (bit 0 template,
    // bit 1 library, bit 2 a description follows, bit 3 edited), then the description.
    friend CArchive& operator<<(CArchive& archive, const QProp& prop);
    friend CArchive& operator>>(CArchive& archive, QProp& prop);

private:
    friend class QProperties;

    static constexpr std::uint8_t c_fromTemplate = 1;
    static constexpr std::uint8_t c_fromLibrary = 2;
    static constexpr std::uint8_t c_edited = 4;

    void SetFlag(std::uint8_t flag, bool on);
    void SetIsEdited(bool edited) { SetFlag(c_edited, edited); }
    void MarkEditedIfFromTemplateOrLibrary();
    // What a getter hands out: everything, flags included, and no notice to anybody. The
    // source's context is taken only when this property has none.
    void CopyQuietlyFrom(const QProp& other);

    PropId m_key;
    QWithFormula<QAnyValue> m_valueWithFormula;
    std::uint8_t m_flags = 0;
    QStringUnique m_desc;
};

// Tells whether an answer only repeats what a reference context would give anyway.
class QPropertyComparator {
public:
    explicit QPropertyComparator(const QFormulaContext* reference = nullptr)
        : m_pRefFormulaContext(reference) {}

    void SetRefFormulaContext(const QFormulaContext* reference) {
        m_pRefFormulaContext = reference;
    }
    const QFormulaContext* RefFormulaContext() const { return m_pRefFormulaContext; }
    bool HasARefFormulaContext() const { return m_pRefFormulaContext != nullptr; }

    // True for an answer without a formula whose value is identical to the reference's answer
    // of the same key.
    bool IsSameAs(const QProp& prop) const;

private:
    const QFormulaContext* m_pRefFormulaContext;
};

// How a merge treats a key that both bags have.
enum QMergeResolutionStrategy {
    MERGE_ASK = 0,           // compare, and ask (or log) for each change
    MERGE_OVERWRITE = 1,     // the source wins without comparison
    MERGE_KEEP_EXISTING = 2, // only keys that the destination lacks are added
};

// What a property handle keeps of a bag: the bag while it lives, null once it is destroyed.
struct QPropertiesLink {
    const QProperties* bag;
};

// The answers of a formula context, in insertion order, found by key through a hash map that is
// rebuilt lazily after a removal. They are written into the level of their owner, one attribute
// an answer.
class QProperties : public QImportableExportable {
public:
    // Called with each answer; the results of a walk are combined with AND.
    using PropertyCallback =
        std::function<bool(PropId key, const QAnyValue& value, FormulaText formula)>;
    // Hands one report formula to a report job.
    using CrystalFormulaSetter = void (*)(void* job, const CString& name, const CString& formula);

    explicit QProperties(QFormulaContext* parentContext = nullptr);
    // Deep copies; each copied answer keeps its flags.
    QProperties(const QProperties& other);
    // A deep copy whose answers live under `parentContext`.
    QProperties(const QProperties& other, QFormulaContext* parentContext);
    // Deep copies between the parent context's change notices; the copies live under this
    // bag's context.
    QProperties& operator=(const QProperties& other);
    // Tells the handles to its answers that it is gone.
    ~QProperties() override;

    QFormulaContext* ParentContext() const { return m_pParentContext; }
    QPropertyComparator* PropertyComparator() const { return m_pPropertyComparator; }
    void SetPropertyComparator(QPropertyComparator* comparator) const {
        m_pPropertyComparator = comparator;
    }

    // --- Count and look-up -------------------------------------------------------------------

    int PropertyCount() const { return m_properties.GetCount(); }
    bool HasProperty(PropId key) const { return FindProperty(key) >= 0; }
    // The index of the key, or -1.
    int FindProperty(PropId key) const;
    // Empties the map and enters every index again, with at least twice as many buckets as
    // answers. With `relink` each answer is also given this bag's context and its change
    // notices, as after loading.
    void RefreshMap(bool relink) const;

    // --- By key ------------------------------------------------------------------------------
    //
    // A get of a missing key returns false. The getters that do not say WithNoEnsureUpToDate
    // bring the value up to date first, and give an error value for a value in error. `state`
    // is only raised.

    bool GetProperty(PropId key, QProp& prop) const;
    bool GetPropertyValue(PropId key, QAnyValue& value, bool& error, QCacheState* state) const;
    bool GetPropertyValueWithFormula(PropId key, QAnyValue& value, FormulaText& formula,
                                     bool& error, QCacheState* state) const;
    bool GetPropertyValueWithFormulaWithNoEnsureUpToDate(PropId key, QAnyValue& value,
                                                         FormulaText& formula) const;
    bool GetPropertyFormula(PropId key, FormulaText& formula) const;
    bool GetPropertyDesc(PropId key, QStringUnique& desc) const;
    bool IsFromTemplate(PropId key) const;
    bool IsFromLibrary(PropId key) const;

    // A negative key is ignored; a new key is appended.
    void SetProperty(PropId key, const QProp& prop);
    void SetPropertyValueWithFormula(PropId key, const QAnyValue& value, FormulaText formula);
    void SetPropertyValue(PropId key, const QAnyValue& value);
    // Keeps the stored value of an existing answer.
    void SetPropertyFormula(PropId key, FormulaText formula);
    // Only on an existing answer.
    void SetPropertyDesc(PropId key, QStringUnique desc);
    void SetIsFromTemplate(PropId key, bool fromTemplate);
    void SetIsFromLibrary(PropId key, bool fromLibrary);
    void RemoveProperty(PropId key);

    // --- By index ----------------------------------------------------------------------------
    //
    // A get with an index out of range sets the key to -1 and returns false. A set at an index
    // out of range does nothing; a set with another key than the one at the index replaces the
    // answer there (a negative key removes it).

    bool GetAtProperty(int index, QProp& prop) const;
    bool GetAtPropertyValue(int index, PropId& key, QAnyValue& value, bool& error,
                            QCacheState* state) const;
    bool GetAtPropertyValueWithFormula(int index, PropId& key, QAnyValue& value,
                                       FormulaText& formula, bool& error, QCacheState* state) const;
    bool GetAtPropertyValueWithFormulaWithNoEnsureUpToDate(int index, PropId& key, QAnyValue& value,
                                                           FormulaText& formula) const;
    bool GetAtPropertyFormula(int index, PropId& key, FormulaText& formula) const;
    bool GetAtPropertyDesc(int index, PropId& key, QStringUnique& desc) const;

    void SetAtProperty(int index, const QProp& prop);
    void SetAtPropertyValueWithFormula(int index, PropId key, const QAnyValue& value,
                                       FormulaText formula);
    void SetAtPropertyValue(int index, PropId key, const QAnyValue& value);
    void SetAtPropertyFormula(int index, PropId key, FormulaText formula);
    void SetAtPropertyDesc(int index, PropId key, QStringUnique desc);
    void RemoveAtProperty(int index);

    // --- The whole bag -----------------------------------------------------------------------

    void RemoveAllProperties();
    // Removes each answer that the comparator's reference context gives anyway; nothing without
    // a comparator that has a reference.
    void RemovePropertiesIfSameAsRef();
    // Remove the answers from a template (a library), last first; edited ones only when
    // `includeEdited`.
    void DeleteTemplateProperties(bool includeEdited);
    void DeleteLibraryProperties(bool includeEdited);

    // Merges `source` into this bag, reading its answers without evaluating them. A source
    // formula of ":DeleteMe:" removes this bag's answer when that came from a template (except
    // when keeping existing answers, which stores the marker for a new key). Added answers get
    // the template (library) flag with `asTemplate` (`asLibrary`), or with `keepOrigin` when
    // the source's answer has it.
    void MergeProperties(const QProperties* source, QMergeResolutionStrategy strategy,
                         bool asTemplate, bool asLibrary, bool keepOrigin);

    // Deletes the answers that do not belong in a catalogue and returns how many. With question
    // definitions, a plain answer that no question controls goes too; `groupSet` may be null.
    int CatalogCleanup(const QPropDefTabGroupSet* groupSet);

    // Calls `callback` for each key in order (alphabetical without regard to case when
    // `sorted`), looking each key up anew, so that the callback may remove answers; a removed
    // key is skipped. `evaluate` reads through the evaluating getter.
    bool ForEachPropertyDo(const PropertyCallback& callback, bool sorted, bool evaluate) const;

    // The same answers in the same order.
    bool IsSameSpecificationAs(const QProperties& other) const;
    // The sum of the answers' hashes: independent of order, 0 when empty.
    unsigned HashKeyCalc() const;

    // Appends one line an answer: "\t\t%d %s\t%s\t%s", index, key, value, formula.
    void DumpProperties(QArray<CString>& lines) const;
    void TraceProperties() const {}
    // Hands each answer, evaluated, to `setter` as a report formula.
    void SetCrystalFormulas(void* job, CrystalFormulaSetter setter) const;

    // The count, then each answer; with a comparator that has a reference, only the answers
    // that differ from it are written. Loading replaces the answers and then relinks them all.
    void Serialize(CArchive& archive);

    // One attribute of its own type an answer, with its formula, in alphabetical order of the
    // keys; with export flag 6 the values are brought up to date first. True when every answer
    // was taken.
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override;
    // Takes every attribute of the level that nobody took: a string value of ":DeleteMe:"
    // (quotes and blanks around it and case do not count) removes the answer of that name, any
    // other value sets it with its formula. An import into a bag that starts while another is
    // under way takes nothing and fails.
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override;

    // The options of the catalogue clean-up, from section "Options": the expressions of
    // "CatalogCleanupProtectKeys" and "CatalogCleanupTargetFormulas", separated by semicolons,
    // and the flag "CatalogCleanupFormulas". The first clean-up of the process reads them.
    static inline QArray<CString> c_CatalogCleanupProtectKeys;
    static inline QArray<CString> c_CatalogCleanupTargetFormulas;
    static inline bool c_bCatalogCleanupFormulas = false;
    // Makes the next clean-up read the options again.
    static void ReloadCatalogCleanupOptions();
    // What a clean-up names in its reports; the caller of the clean-up sets it.
    static inline CString c_WhoAmIContext;

private:
    friend class QPropertyHandle;
    using PropertyArray = QSmartPtrArray<QProp>;

    // Made on the first call; shared by the handles to this bag's answers.
    const std::shared_ptr<QPropertiesLink>& Link() const;

    bool IsValidIndex(int index) const { return index >= 0 && index < PropertyCount(); }
    const QProp* PropertyOf(PropId key) const;
    QProp* PropertyOf(PropId key);
    void CopyPropertiesOf(const QProperties& other);
    void AppendProperty(PropId key, const QAnyValue& value, FormulaText formula,
                        QStringUnique desc);
    void ReplaceAt(int index, PropId key, const QAnyValue& value, FormulaText formula);
    void RemoveAtIndexQuietly(int index);
    void NotifyParentOfPreChange();
    void NotifyParentOfChanged();
    template <class IsDoomed>
    void RemoveFromLastWhere(IsDoomed isDoomed);
    void MergeOne(const QProp& sourceProp, QMergeResolutionStrategy strategy, bool asTemplate,
                  bool asLibrary, bool keepOrigin);
    bool AcceptsChange(PropId key, const QAnyValue& value, FormulaText formula);
    bool IsForCatalogue(const QProp& prop, const QPropDefTabGroupSet* groupSet) const;
    static void ReadCatalogCleanupOptionsOnce();

    PropertyArray m_properties;
    mutable QMap<PropId, int> m_map;
    mutable bool m_bMapIsStale = false;
    QFormulaContext* m_pParentContext;
    mutable QPropertyComparator* m_pPropertyComparator = nullptr;
    mutable std::shared_ptr<QPropertiesLink> m_link;

    static inline bool c_bCatalogCleanupOptionsRead = false;
    // The bag that an import is filling, while it does.
    static inline QProperties* c_pImportingProperties = nullptr;
};

} // namespace keel
