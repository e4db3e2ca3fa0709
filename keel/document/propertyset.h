#pragma once

#include "keel/document/olepropertyset.h"
#include "keel/exchange/importexport.h"
#include "keel/formula/namedvalues.h"
#include "keel/formula/withcontext.h"
#include "keel/platform/compoundstorage.h"
#include "keel/platform/cstring.h"
#include "keel/platform/file.h"
#include "keel/platform/guid.h"
#include "keel/questions/properties.h"
#include "keel/values/anyvalue.h"

#include <cstdint>
#include <functional>

namespace keel {

class QFormulaContext;

// A property set joined to the formula language: the set of one name (its format id comes from
// the name) whose section of that format id is the current one, whose properties are read and
// set by id, or by their dictionary names from the formulas of the owning context. Setting a
// property tells the context's root of the change.
class QPropertySet : public CPropertySet,
                     public QImportableExportable,
                     public QNamedValues,
                     public QWithContextConcrete {
public:
    // Called with the name and the value of each named property.
    using PropertyFunction = std::function<bool(const CString& name, const QAnyValue& value)>;

    // The mode flags of the set's stream in its storage: created exclusive for reading and
    // writing, opened exclusive for reading.
    static constexpr unsigned c_createStreamMode = 0x1012;
    static constexpr unsigned c_openStreamMode = 0x10;

    QPropertySet(const CString& setName, QFormulaContext* context);
    QPropertySet(const QPropertySet&) = delete;
    QPropertySet& operator=(const QPropertySet&) = delete;
    ~QPropertySet() override = default;

    const CString& GetSetName() const { return m_setName; }
    // The character 5 and the set's name.
    const CString& GetStreamName() const { return m_streamName; }
    const GUID& GetFormatID() const { return m_formatId; }
    // The section of the set's format id, or nullptr after a failed read.
    CPropertySection* GetCurrentSection();
    const CPropertySection* GetCurrentSection() const;

    // Empties the set and makes the current section again, empty but for its name.
    virtual void Reset();

    // What reading from a storage does once the stream is open: tells the context that a change
    // comes, reads, tells it the change happened, and takes the section of the set's format id.
    // A stream that cannot be read, or that lacks the section, leaves the set without sections
    // and gives false. Otherwise the names are fixed up.
    bool ReadFromPropertyStream(CFile& stream);
    bool WriteToPropertyStream(CFile& stream) { return WriteToStream(stream); }

    // The set's stream of the storage (GetStreamName). Writing replaces it and commits the
    // storage, or reverts the storage when the stream cannot be made or written. Reading gives
    // false when the stream cannot be opened, and otherwise as ReadFromPropertyStream.
    bool WriteToStorage(CStorage& storage);
    bool ReadFromStorage(CStorage& storage);

    // --- By id -------------------------------------------------------------------------------
    //
    // Without a current section every getter fails and every setter does nothing.

    using CPropertySet::Get;
    using CPropertySet::Remove;
    using CPropertySet::Set;

    const std::uint8_t* Get(std::uint32_t id, std::uint32_t* size = nullptr) const;
    // See CProperty::Set.
    bool Set(std::uint32_t id, const void* value, std::uint32_t type);
    bool GetType(std::uint32_t id, std::uint32_t& type) const;
    void Remove(std::uint32_t id);
    CString GetName(std::uint32_t id) const;
    // The id's name becomes `name`, which any other id loses.
    void SetName(std::uint32_t id, const CString& name);
    // Only a name that no id has, for an id without one; false otherwise.
    bool SetNewName(std::uint32_t id, const CString& name);

    // The text of a narrow (in the section's code page) or wide string; empty for other types.
    CString GetString(std::uint32_t id) const;
    // A narrow string in the section's code page, where a character the page lacks becomes '?'.
    void SetString(std::uint32_t id, const CString& text);
    void SetWideString(std::uint32_t id, const CString& text);
    // 16- and 32-bit integers.
    bool GetInt(std::uint32_t id, int& value) const;
    void SetInt(std::uint32_t id, int value);
    bool GetBOOL(std::uint32_t id, bool& value) const;
    void SetBOOL(std::uint32_t id, bool value);
    // Single and double precision.
    bool GetDouble(std::uint32_t id, double& value) const;
    void SetDouble(std::uint32_t id, double value);
    bool GetFILETIME(std::uint32_t id, FILETIME& value) const;
    void SetFILETIME(std::uint32_t id, const FILETIME& value);

    // By the variant type: empty, integers, reals, currency as money, dates and file times as
    // dates, strings, booleans. Any other type clears the value and gives false.
    bool GetValue(std::uint32_t id, QAnyValue& value) const;
    // The reverse. A value for a property that exists is first converted to the kind the
    // property holds (false when it cannot be), and the property keeps its type where that can
    // hold the value (a 16-bit integer that fits, a single, a date, a wide string or a BSTR);
    // new properties take 32-bit integers, doubles, file times and narrow strings. False for
    // other kinds of value.
    bool SetValue(std::uint32_t id, const QAnyValue& value);
    // The value's text, empty when there is none.
    CString GetAsString(std::uint32_t id) const;

    // --- By name -----------------------------------------------------------------------------

    bool GetID(const CString& name, std::uint32_t& id) const;
    bool Lookup(QAnyValue& value, const CString& name) override;
    // Only names in the dictionary: formulas never make properties here.
    bool Set(const QAnyValue& value, const CString& name) override;

    // --- The whole set -----------------------------------------------------------------------

    const CPropertySection::NameList& Dictionary() const;
    const CPropertySection::PropertyList& GetList() const;
    // Drops the names of ids that have no property.
    virtual void FixupNames();
    // Each named property in the section's order; "edittime" as whole minutes. The results are
    // combined with AND.
    bool ForEachPropertyDo(const PropertyFunction& function) const;
    // Takes the properties (but the dictionary and the code page) and the names of the other
    // set's current section. A property both hold is taken unless keeping the existing ones;
    // asking is not possible here and overwrites.
    void Merge(const QPropertySet& other, QMergeResolutionStrategy strategy);
    // Hands each named property to the report job as a formula.
    void SetCrystalFormulas(void* job, QProperties::CrystalFormulaSetter setter) const;

    // One attribute of its own type a named property.
    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override;
    // Takes each attribute that names a property of the set.
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override;

    // The name of the edit time, handed over in minutes.
    static constexpr char16_t c_editTimeName[] = u"edittime";

protected:
    // The standard ids of the two summary sets; any other name packed five bits a character,
    // folded to capitals.
    static GUID NameToGUID(const CString& name);

    // Replaces the property, between the change notices.
    void Store(const CProperty& property);

private:
    void CopyPropertyFrom(const QPropertySet& other, const CProperty& property);
    bool SetValueOfType(std::uint32_t id, const QAnyValue& value, std::uint32_t type);

    GUID m_formatId;
    CString m_setName;
    CString m_streamName;
};

} // namespace keel
