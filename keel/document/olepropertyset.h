#pragma once

#include "keel/platform/cstring.h"
#include "keel/platform/file.h"
#include "keel/platform/guid.h"
#include "keel/platform/object.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace keel {

// Variant type numbers of property values.
inline constexpr std::uint32_t VT_EMPTY = 0;
inline constexpr std::uint32_t VT_I2 = 2;
inline constexpr std::uint32_t VT_I4 = 3;
inline constexpr std::uint32_t VT_R4 = 4;
inline constexpr std::uint32_t VT_R8 = 5;
inline constexpr std::uint32_t VT_CY = 6;
inline constexpr std::uint32_t VT_DATE = 7;
inline constexpr std::uint32_t VT_BSTR = 8;
inline constexpr std::uint32_t VT_BOOL = 11;
inline constexpr std::uint32_t VT_LPSTR = 30;
inline constexpr std::uint32_t VT_LPWSTR = 31;
inline constexpr std::uint32_t VT_FILETIME = 64;

// The property ids with a meaning in every section.
inline constexpr std::uint32_t c_dictionaryPropertyId = 0;
inline constexpr std::uint32_t c_codePagePropertyId = 1;

// The code page of a section without a code page property, and the one that holds UTF-16.
inline constexpr unsigned c_defaultPropertyCodePage = 1252;
inline constexpr unsigned c_unicodePropertyCodePage = 1200;

// The format ids of the summary and the document summary sets.
inline constexpr GUID FMTID_SummaryInformation{
    0xF29F85E0, 0x4FF9, 0x1068, {0xAB, 0x91, 0x08, 0x00, 0x2B, 0x27, 0xB3, 0xD9}};
inline constexpr GUID FMTID_DocSummaryInformation{
    0xD5CDD502, 0x2E9C, 0x101B, {0x93, 0x97, 0x08, 0x00, 0x2B, 0x2C, 0xF9, 0xAE}};

// One property: an id, a variant type and the value block. The block holds the value as it
// stands in the stream, little-endian, without the type word, the length word of a string or
// the padding: an integer's bytes, a string's bytes with their terminating null (a wide
// string's UTF-16 units). A type this code does not know keeps every byte up to the next
// property, so that it is written back as it was read.
class CProperty : public CObject {
public:
    static const CRuntimeClass c_runtimeClass;

    CProperty() = default;
    // `value` points to an object of the type: std::int16_t for I2 and BOOL, std::int32_t,
    // float, double, std::int64_t for CY, double for DATE, FILETIME, a null-terminated narrow
    // string for LPSTR and BSTR, a null-terminated char16_t string for LPWSTR. EMPTY and the
    // other types take no value.
    CProperty(std::uint32_t id, const void* value, std::uint32_t type) { Set(id, value, type); }
    CProperty(const CProperty&) = default;
    CProperty& operator=(const CProperty&) = default;

    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }

    std::uint32_t GetID() const { return m_id; }
    void SetID(std::uint32_t id) { m_id = id; }
    std::uint32_t GetType() const { return m_type; }
    // The value block and its size in bytes.
    const std::uint8_t* Get(std::uint32_t* size = nullptr) const;
    const std::vector<std::uint8_t>& Block() const { return m_block; }

    // False, leaving the property as it was, for a type whose value cannot be made from a
    // pointer (those this code does not know; use SetBlock).
    bool Set(std::uint32_t id, const void* value, std::uint32_t type);
    bool Set(const void* value, std::uint32_t type) { return Set(m_id, value, type); }
    void SetBlock(std::uint32_t type, std::vector<std::uint8_t> block);

    // The type word, the value and zeros up to a multiple of 4 bytes.
    void WriteToStream(CFile& stream) const;
    // Reads a property whose bytes run to `extent` bytes from the stream's position. False when
    // the value does not fit in them.
    bool ReadFromStream(CFile& stream, std::uint32_t extent);

    // The bytes the property takes in a stream, padding included.
    std::uint64_t StreamSize() const;

private:
    std::uint32_t m_id = 0;
    std::uint32_t m_type = VT_EMPTY;
    std::vector<std::uint8_t> m_block;
};

// One section: a format id, its properties in stream order, and the dictionary of names given
// to property ids, kept in the order the names were given. The dictionary is written as
// property 0, in the code page of property 1 (Windows-1252 without one).
class CPropertySection : public CObject {
public:
    static const CRuntimeClass c_runtimeClass;

    using PropertyList = std::vector<std::unique_ptr<CProperty>>;
    using NameList = std::vector<std::pair<std::uint32_t, CString>>;

    CPropertySection() = default;
    explicit CPropertySection(const GUID& formatId) : m_formatId(formatId) {}
    CPropertySection(const CPropertySection& other);
    CPropertySection& operator=(const CPropertySection& other);

    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }

    const GUID& GetFormatID() const { return m_formatId; }
    void SetFormatID(const GUID& formatId) { m_formatId = formatId; }
    void SetSectionName(const CString& name) { m_name = name; }
    const CString& GetSectionName() const { return m_name; }

    // Appends a copy, replacing a property of the same id in its place.
    CProperty* AddProperty(const CProperty& property);
    // Sets the property of that id, appending it when there is none. See CProperty::Set.
    bool Set(std::uint32_t id, const void* value, std::uint32_t type);
    CProperty* GetProperty(std::uint32_t id);
    const CProperty* GetProperty(std::uint32_t id) const;
    // The value block of the property, or nullptr.
    const std::uint8_t* Get(std::uint32_t id, std::uint32_t* size = nullptr) const;
    void Remove(std::uint32_t id);
    // Removes the properties and the names.
    void RemoveAll();
    int GetCount() const { return static_cast<int>(m_properties.size()); }
    const PropertyList& GetList() const { return m_properties; }
    // The size in bytes of the section as last written or read.
    std::uint32_t GetSize() const { return m_size; }

    // The name dictionary. A name belongs to one id and an id has one name; names are compared
    // without regard to case. An empty name removes the id's name.
    void SetName(std::uint32_t id, const CString& name);
    bool GetID(const CString& name, std::uint32_t& id) const;
    CString GetName(std::uint32_t id) const;
    const NameList& GetNames() const { return m_names; }

    // Property 1 as an unsigned 16-bit number, or Windows-1252.
    unsigned GetCodePage() const;

    // The section at the stream's position: the size and count, the table of ids and offsets,
    // the properties. Property 0 is made first when missing, so that the dictionary is always
    // written. Throws CFileException when the stream fails.
    void WriteToStream(CFile& stream);
    // Reads a section at the stream's position, which must not run past the stream's end. False
    // for a section whose counts, offsets or values do not fit.
    bool ReadFromStream(CFile& stream);
    void WriteNameDictToStream(CFile& stream) const;
    bool ReadNameDictFromStream(CFile& stream, std::uint32_t extent);

private:
    std::vector<std::pair<std::uint32_t, std::vector<std::uint8_t>>>
    NamesAsRead(unsigned codePage) const;

    PropertyList m_properties;
    NameList m_names;
    GUID m_formatId;
    CString m_name;
    std::uint32_t m_size = 0;
};

// A property set stream: the 28-byte header (byte order 0xFFFE, format version, the operating
// system's version, a class id, the section count), a table of format ids and offsets, then
// the sections.
class CPropertySet : public CObject {
public:
    static const CRuntimeClass c_runtimeClass;

    using SectionList = std::vector<std::unique_ptr<CPropertySection>>;

    static constexpr std::uint16_t c_byteOrder = 0xFFFE;
    // Win32 (2) in the high word, version 6.1 in the low one.
    static constexpr std::uint32_t c_defaultOSVersion = 0x00020106;
    static constexpr std::uint32_t c_headerSize = 28;
    static constexpr std::uint32_t c_sectionEntrySize = 20;

    CPropertySet() = default;
    CPropertySet(const CPropertySet& other);
    CPropertySet& operator=(const CPropertySet& other);

    const CRuntimeClass* GetRuntimeClass() const override { return &c_runtimeClass; }

    // The section of that format id, made and appended when there is none.
    CPropertySection* AddSection(const GUID& formatId);
    CPropertySection* AddSection(const CPropertySection& section);
    CPropertySection* GetSection(const GUID& formatId);
    const CPropertySection* GetSection(const GUID& formatId) const;
    void Remove(const GUID& formatId);
    void RemoveAll();
    int GetCount() const { return static_cast<int>(m_sections.size()); }
    const SectionList& GetList() const { return m_sections; }

    std::uint16_t GetByteOrder() const { return m_byteOrder; }
    std::uint16_t GetFormatVersion() const { return m_formatVersion; }
    void SetFormatVersion(std::uint16_t version) { m_formatVersion = version; }
    std::uint32_t GetOSVersion() const { return m_osVersion; }
    void SetOSVersion(std::uint32_t version) { m_osVersion = version; }
    const GUID& GetClassID() const { return m_classId; }
    void SetClassID(const GUID& classId) { m_classId = classId; }

    // The property of a section, which is made for AddProperty and Set when missing.
    CProperty* GetProperty(const GUID& formatId, std::uint32_t id);
    CProperty* AddProperty(const GUID& formatId, const CProperty& property);
    bool Set(const GUID& formatId, std::uint32_t id, const void* value, std::uint32_t type);
    const std::uint8_t* Get(const GUID& formatId, std::uint32_t id,
                            std::uint32_t* size = nullptr) const;

    // From the stream's position on. False when the stream fails; nothing is reported.
    bool WriteToStream(CFile& stream);
    // Replaces the content with the set at the stream's position. False, leaving the set empty,
    // for a stream that fails or holds no well-formed set.
    bool ReadFromStream(CFile& stream);

private:
    bool ReadSections(CFile& stream);

    std::uint16_t m_byteOrder = c_byteOrder;
    std::uint16_t m_formatVersion = 0;
    std::uint32_t m_osVersion = c_defaultOSVersion;
    GUID m_classId;
    SectionList m_sections;
};

} // namespace keel
