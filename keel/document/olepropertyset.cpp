#include "keel/document/olepropertyset.h"

#include "keel/platform/stdiofileex.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace keel {

namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint64_t PaddedTo4(std::uint64_t size) {
    return (size + 3) & ~std::uint64_t{3};
}

void AppendLittleEndian(Bytes& bytes, std::uint64_t value, int count) {
    for (int index = 0; index < count; ++index)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * index)));
}

std::uint64_t LittleEndianAt(const std::uint8_t* bytes, int count) {
    std::uint64_t value = 0;
    for (int index = 0; index < count; ++index)
        value |= static_cast<std::uint64_t>(bytes[index]) << (8 * index);
    return value;
}

void WriteBytes(CFile& stream, const Bytes& bytes) {
    if (!bytes.empty())
        stream.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
}

void WriteU32(CFile& stream, std::uint32_t value) {
    Bytes bytes;
    AppendLittleEndian(bytes, value, 4);
    WriteBytes(stream, bytes);
}

void WriteZeros(CFile& stream, std::uint64_t count) {
    WriteBytes(stream, Bytes(static_cast<std::size_t>(count), 0));
}

bool ReadExact(CFile& stream, void* buffer, std::uint64_t count) {
    return count == 0 || stream.Read(buffer, static_cast<unsigned>(count)) == count;
}

bool ReadBytes(CFile& stream, Bytes& bytes, std::uint64_t count) {
    bytes.assign(static_cast<std::size_t>(count), 0);
    return ReadExact(stream, bytes.data(), count);
}

bool ReadU32(CFile& stream, std::uint32_t& value) {
    std::uint8_t bytes[4];
    if (!ReadExact(stream, bytes, 4))
        return false;
    value = static_cast<std::uint32_t>(LittleEndianAt(bytes, 4));
    return true;
}

// The bytes of a fixed-size value, or -1 for a type without a fixed size.
int FixedSizeOf(std::uint32_t type) {
    switch (type) {
    case VT_EMPTY:
        return 0;
    case VT_I2:
    case VT_BOOL:
        return 2;
    case VT_I4:
    case VT_R4:
        return 4;
    case VT_R8:
    case VT_CY:
    case VT_DATE:
    case VT_FILETIME:
        return 8;
    default:
        return -1;
    }
}

bool IsNarrowStringType(std::uint32_t type) {
    return type == VT_LPSTR || type == VT_BSTR;
}

Bytes FixedBlock(const void* value, std::uint32_t type) {
    Bytes block;
    switch (type) {
    case VT_I2:
    case VT_BOOL: {
        std::int16_t number;
        std::memcpy(&number, value, sizeof number);
        AppendLittleEndian(block, static_cast<std::uint16_t>(number), 2);
        break;
    }
    case VT_I4: {
        std::int32_t number;
        std::memcpy(&number, value, sizeof number);
        AppendLittleEndian(block, static_cast<std::uint32_t>(number), 4);
        break;
    }
    case VT_R4: {
        float number;
        std::memcpy(&number, value, sizeof number);
        AppendLittleEndian(block, std::bit_cast<std::uint32_t>(number), 4);
        break;
    }
    case VT_R8:
    case VT_DATE: {
        double number;
        std::memcpy(&number, value, sizeof number);
        AppendLittleEndian(block, std::bit_cast<std::uint64_t>(number), 8);
        break;
    }
    case VT_CY: {
        std::int64_t number;
        std::memcpy(&number, value, sizeof number);
        AppendLittleEndian(block, static_cast<std::uint64_t>(number), 8);
        break;
    }
    case VT_FILETIME: {
        FILETIME time;
        std::memcpy(&time, value, sizeof time);
        AppendLittleEndian(block, time.Ticks(), 8);
        break;
    }
    default:
        break;
    }
    return block;
}

Bytes NarrowStringBlock(const char* text) {
    const std::string_view view = text ? std::string_view(text) : std::string_view();
    Bytes block(view.begin(), view.end());
    block.push_back(0);
    return block;
}

Bytes WideStringBlock(const char16_t* text) {
    const std::u16string_view view = text ? std::u16string_view(text) : std::u16string_view();
    Bytes block;
    block.reserve(2 * view.size() + 2);
    for (const char16_t unit : view)
        AppendLittleEndian(block, unit, 2);
    AppendLittleEndian(block, 0, 2);
    return block;
}

// A dictionary name: in UTF-16 for the Unicode code page, else in the narrow page; either way
// ended by one null, which the length counts.
Bytes EncodeName(const CString& name, unsigned codePage) {
    if (codePage == c_unicodePropertyCodePage)
        return WideStringBlock(name.GetString());
    Bytes bytes = CStdioFileEx::EncodeNarrow(name, codePage);
    bytes.push_back(0);
    return bytes;
}

CString DecodeName(const Bytes& bytes, unsigned codePage) {
    if (codePage == c_unicodePropertyCodePage) {
        std::u16string units;
        for (std::size_t index = 0; index + 1 < bytes.size(); index += 2) {
            const auto unit = static_cast<char16_t>(LittleEndianAt(&bytes[index], 2));
            if (unit == 0)
                break;
            units.push_back(unit);
        }
        return CString(units);
    }
    const auto end = std::find(bytes.begin(), bytes.end(), std::uint8_t{0});
    return CStdioFileEx::DecodeNarrow(bytes.data(), static_cast<std::size_t>(end - bytes.begin()),
                                      codePage);
}

std::u16string Lowered(CString name) {
    return std::u16string(name.MakeLower().View());
}

// What SetName leaves when called for each entry in turn: an entry drops another id's entry of
// the same name and renames its own id's in place, and an empty name drops its id's. In linear
// time, since a hostile stream holds as many names as it has room for.
CPropertySection::NameList NamesSetInTurn(CPropertySection::NameList entries) {
    CPropertySection::NameList names;
    std::vector<bool> kept;
    std::unordered_map<std::uint32_t, std::size_t> byId;
    std::unordered_map<std::u16string, std::size_t> byName;
    const auto drop = [&](std::size_t at) {
        kept[at] = false;
        byId.erase(names[at].first);
        byName.erase(Lowered(names[at].second));
    };
    for (auto& [id, name] : entries) {
        std::u16string key = Lowered(name);
        const auto same = byName.find(key);
        if (!name.IsEmpty() && same != byName.end() && names[same->second].first != id)
            drop(same->second);
        const auto own = byId.find(id);
        if (name.IsEmpty()) {
            if (own != byId.end())
                drop(own->second);
        } else if (own != byId.end()) {
            byName.erase(Lowered(names[own->second].second));
            names[own->second].second = std::move(name);
            byName[std::move(key)] = own->second;
        } else {
            byId[id] = names.size();
            byName[std::move(key)] = names.size();
            names.emplace_back(id, std::move(name));
            kept.push_back(true);
        }
    }
    CPropertySection::NameList settled;
    for (std::size_t at = 0; at < names.size(); ++at)
        if (kept[at])
            settled.push_back(std::move(names[at]));
    return settled;
}

} // namespace

const CRuntimeClass CProperty::c_runtimeClass{"CProperty", 1, &CRuntimeClass::Make<CProperty>,
                                              &CObject::c_runtimeClass};
const CRuntimeClass CPropertySection::c_runtimeClass{
    "CPropertySection", 1, &CRuntimeClass::Make<CPropertySection>, &CObject::c_runtimeClass};
const CRuntimeClass CPropertySet::c_runtimeClass{
    "CPropertySet", 1, &CRuntimeClass::Make<CPropertySet>, &CObject::c_runtimeClass};

// --- CProperty -------------------------------------------------------------------------------

const std::uint8_t* CProperty::Get(std::uint32_t* size) const {
    if (size)
        *size = static_cast<std::uint32_t>(m_block.size());
    return m_block.data();
}

bool CProperty::Set(std::uint32_t id, const void* value, std::uint32_t type) {
    Bytes block;
    if (IsNarrowStringType(type))
        block = NarrowStringBlock(static_cast<const char*>(value));
    else if (type == VT_LPWSTR)
        block = WideStringBlock(static_cast<const char16_t*>(value));
    else if (type == VT_EMPTY)
        block.clear();
    else if (FixedSizeOf(type) > 0 && value != nullptr)
        block = FixedBlock(value, type);
    else
        return false;
    m_id = id;
    SetBlock(type, std::move(block));
    return true;
}

void CProperty::SetBlock(std::uint32_t type, std::vector<std::uint8_t> block) {
    m_type = type;
    m_block = std::move(block);
}

std::uint64_t CProperty::StreamSize() const {
    const bool counted = IsNarrowStringType(m_type) || m_type == VT_LPWSTR;
    return 4 + (counted ? 4 : 0) + PaddedTo4(m_block.size());
}

void CProperty::WriteToStream(CFile& stream) const {
    Bytes bytes;
    AppendLittleEndian(bytes, m_type, 4);
    if (IsNarrowStringType(m_type))
        AppendLittleEndian(bytes, m_block.size(), 4);
    else if (m_type == VT_LPWSTR)
        AppendLittleEndian(bytes, m_block.size() / 2, 4);
    bytes.insert(bytes.end(), m_block.begin(), m_block.end());
    bytes.resize(static_cast<std::size_t>(StreamSize()), 0);
    WriteBytes(stream, bytes);
}

bool CProperty::ReadFromStream(CFile& stream, std::uint32_t extent) {
    std::uint32_t type = 0;
    if (extent < 4 || !ReadU32(stream, type))
        return false;
    const std::uint64_t rest = extent - 4;
    std::uint64_t blockSize = rest;
    if (const int fixed = FixedSizeOf(type); fixed >= 0) {
        blockSize = static_cast<std::uint64_t>(fixed);
    } else if (IsNarrowStringType(type) || type == VT_LPWSTR) {
        std::uint32_t length = 0;
        if (rest < 4 || !ReadU32(stream, length))
            return false;
        blockSize = type == VT_LPWSTR ? 2 * std::uint64_t{length} : length;
        if (blockSize > rest - 4)
            return false;
    }
    if (blockSize > rest)
        return false;
    Bytes block;
    if (!ReadBytes(stream, block, blockSize))
        return false;
    SetBlock(type, std::move(block));
    return true;
}

// --- CPropertySection ------------------------------------------------------------------------

CPropertySection::CPropertySection(const CPropertySection& other)
    : CObject(other), m_names(other.m_names), m_formatId(other.m_formatId), m_name(other.m_name),
      m_size(other.m_size) {
    for (const auto& property : other.m_properties)
        m_properties.push_back(std::make_unique<CProperty>(*property));
}

CPropertySection& CPropertySection::operator=(const CPropertySection& other) {
    if (this != &other) {
        CPropertySection copy(other);
        std::swap(m_properties, copy.m_properties);
        std::swap(m_names, copy.m_names);
        m_formatId = copy.m_formatId;
        m_name = copy.m_name;
        m_size = copy.m_size;
    }
    return *this;
}

CProperty* CPropertySection::AddProperty(const CProperty& property) {
    if (CProperty* existing = GetProperty(property.GetID())) {
        *existing = property;
        return existing;
    }
    m_properties.push_back(std::make_unique<CProperty>(property));
    return m_properties.back().get();
}

bool CPropertySection::Set(std::uint32_t id, const void* value, std::uint32_t type) {
    CProperty property;
    if (!property.Set(id, value, type))
        return false;
    AddProperty(property);
    return true;
}

CProperty* CPropertySection::GetProperty(std::uint32_t id) {
    for (const auto& property : m_properties) {
        if (property->GetID() == id)
            return property.get();
    }
    return nullptr;
}

const CProperty* CPropertySection::GetProperty(std::uint32_t id) const {
    return const_cast<CPropertySection*>(this)->GetProperty(id);
}

const std::uint8_t* CPropertySection::Get(std::uint32_t id, std::uint32_t* size) const {
    const CProperty* property = GetProperty(id);
    return property ? property->Get(size) : nullptr;
}

void CPropertySection::Remove(std::uint32_t id) {
    std::erase_if(m_properties, [id](const auto& property) { return property->GetID() == id; });
}

void CPropertySection::RemoveAll() {
    m_properties.clear();
    m_names.clear();
}

void CPropertySection::SetName(std::uint32_t id, const CString& name) {
    std::erase_if(m_names, [&](const auto& entry) {
        return entry.first != id && entry.second.CompareNoCase(name) == 0;
    });
    const auto own = std::find_if(m_names.begin(), m_names.end(),
                                  [id](const auto& entry) { return entry.first == id; });
    if (name.IsEmpty()) {
        if (own != m_names.end())
            m_names.erase(own);
    } else if (own != m_names.end()) {
        own->second = name;
    } else {
        m_names.emplace_back(id, name);
    }
}

bool CPropertySection::GetID(const CString& name, std::uint32_t& id) const {
    for (const auto& [entryId, entryName] : m_names) {
        if (entryName.CompareNoCase(name) == 0) {
            id = entryId;
            return true;
        }
    }
    return false;
}

CString CPropertySection::GetName(std::uint32_t id) const {
    for (const auto& [entryId, entryName] : m_names) {
        if (entryId == id)
            return entryName;
    }
    return CString();
}

unsigned CPropertySection::GetCodePage() const {
    const CProperty* property = GetProperty(c_codePagePropertyId);
    if (!property || property->GetType() != VT_I2 || property->Block().size() != 2)
        return c_defaultPropertyCodePage;
    return static_cast<unsigned>(LittleEndianAt(property->Block().data(), 2));
}

void CPropertySection::WriteToStream(CFile& stream) {
    if (!GetProperty(c_dictionaryPropertyId))
        Set(c_dictionaryPropertyId, nullptr, VT_EMPTY);
    const auto count = static_cast<std::uint32_t>(m_properties.size());
    const unsigned long long start = stream.GetPosition();
    WriteU32(stream, 0);
    WriteU32(stream, count);
    if (count == 0) {
        m_size = 8;
        return;
    }
    WriteZeros(stream, 8ull * count);
    Bytes entries;
    for (const auto& property : m_properties) {
        AppendLittleEndian(entries, property->GetID(), 4);
        AppendLittleEndian(entries, stream.GetPosition() - start, 4);
        if (property->GetID() == c_dictionaryPropertyId)
            WriteNameDictToStream(stream);
        else
            property->WriteToStream(stream);
    }
    const unsigned long long end = stream.GetPosition();
    m_size = static_cast<std::uint32_t>(end - start);
    stream.Seek(static_cast<long long>(start), CFile::begin);
    WriteU32(stream, m_size);
    WriteU32(stream, count);
    WriteBytes(stream, entries);
    stream.Seek(static_cast<long long>(end), CFile::begin);
}

bool CPropertySection::ReadFromStream(CFile& stream) {
    RemoveAll();
    const unsigned long long start = stream.GetPosition();
    const unsigned long long length = stream.GetLength();
    if (start > length || length - start < 8)
        return false;
    std::uint32_t size = 0;
    std::uint32_t count = 0;
    if (!ReadU32(stream, size) || !ReadU32(stream, count))
        return false;
    if (size < 8 || size > length - start || count > (size - 8) / 8)
        return false;
    const std::uint64_t tableEnd = 8 + 8ull * count;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> table(count);
    for (auto& [id, offset] : table) {
        if (!ReadU32(stream, id) || !ReadU32(stream, offset))
            return false;
        if (offset < tableEnd || std::uint64_t{offset} + 4 > size)
            return false;
    }
    std::vector<std::uint32_t> offsets;
    for (const auto& entry : table)
        offsets.push_back(entry.second);
    std::sort(offsets.begin(), offsets.end());
    const auto extentAt = [&](std::uint32_t offset) {
        const auto next = std::upper_bound(offsets.begin(), offsets.end(), offset);
        return (next == offsets.end() ? size : *next) - offset;
    };
    // The dictionary's names are in the code page of property 1, so they are read last. A later
    // entry of the same id replaces an earlier one in place, as AddProperty does, found through a
    // map since a hostile stream holds as many entries as it has room for.
    std::unordered_map<std::uint32_t, std::size_t> indexOfId;
    for (const auto& [id, offset] : table) {
        auto property = std::make_unique<CProperty>();
        property->SetID(id);
        if (id != c_dictionaryPropertyId) {
            stream.Seek(static_cast<long long>(start + offset), CFile::begin);
            if (!property->ReadFromStream(stream, extentAt(offset)))
                return false;
        }
        if (const auto [known, added] = indexOfId.try_emplace(id, m_properties.size()); added)
            m_properties.push_back(std::move(property));
        else
            m_properties[known->second] = std::move(property);
    }
    for (const auto& [id, offset] : table) {
        if (id != c_dictionaryPropertyId)
            continue;
        stream.Seek(static_cast<long long>(start + offset), CFile::begin);
        if (!ReadNameDictFromStream(stream, extentAt(offset)))
            return false;
    }
    m_size = size;
    stream.Seek(static_cast<long long>(start + size), CFile::begin);
    return true;
}

// The names encoded as a reader takes them back. In a narrow code page two names can come out
// alike (both "??"), and a reader keeps only the last of them, as it keeps no empty name: those
// are left out, so that what is written reads back as it was written.
std::vector<std::pair<std::uint32_t, Bytes>>
CPropertySection::NamesAsRead(unsigned codePage) const {
    std::vector<std::pair<std::uint32_t, Bytes>> names;
    std::unordered_set<std::u16string> later;
    for (auto entry = m_names.rbegin(); entry != m_names.rend(); ++entry) {
        Bytes encoded = EncodeName(entry->second, codePage);
        CString readBack = DecodeName(encoded, codePage);
        if (readBack.IsEmpty() || !later.insert(Lowered(readBack)).second)
            continue;
        names.emplace_back(entry->first, std::move(encoded));
    }
    std::reverse(names.begin(), names.end());
    return names;
}

void CPropertySection::WriteNameDictToStream(CFile& stream) const {
    const unsigned codePage = GetCodePage();
    const bool unicode = codePage == c_unicodePropertyCodePage;
    const std::vector<std::pair<std::uint32_t, Bytes>> names = NamesAsRead(codePage);
    Bytes bytes;
    AppendLittleEndian(bytes, names.size(), 4);
    for (const auto& [id, encoded] : names) {
        AppendLittleEndian(bytes, id, 4);
        AppendLittleEndian(bytes, unicode ? encoded.size() / 2 : encoded.size(), 4);
        bytes.insert(bytes.end(), encoded.begin(), encoded.end());
        if (unicode)
            bytes.resize(static_cast<std::size_t>(PaddedTo4(bytes.size())), 0);
    }
    bytes.resize(static_cast<std::size_t>(PaddedTo4(bytes.size())), 0);
    WriteBytes(stream, bytes);
}

bool CPropertySection::ReadNameDictFromStream(CFile& stream, std::uint32_t extent) {
    const unsigned codePage = GetCodePage();
    const bool unicode = codePage == c_unicodePropertyCodePage;
    std::uint32_t count = 0;
    if (extent < 4 || !ReadU32(stream, count))
        return false;
    std::uint64_t remaining = extent - 4;
    if (count > remaining / 8)
        return false;
    NameList entries = m_names;
    entries.reserve(entries.size() + count);
    for (std::uint32_t entry = 0; entry < count; ++entry) {
        std::uint32_t id = 0;
        std::uint32_t length = 0;
        if (remaining < 8 || !ReadU32(stream, id) || !ReadU32(stream, length))
            return false;
        remaining -= 8;
        const std::uint64_t byteCount = unicode ? 2 * std::uint64_t{length} : length;
        Bytes name;
        if (byteCount > remaining || !ReadBytes(stream, name, byteCount))
            return false;
        remaining -= byteCount;
        if (unicode) {
            const std::uint64_t padding =
                std::min<std::uint64_t>(PaddedTo4(byteCount) - byteCount, remaining);
            Bytes skipped;
            if (!ReadBytes(stream, skipped, padding))
                return false;
            remaining -= padding;
        }
        entries.emplace_back(id, DecodeName(name, codePage));
    }
    m_names = NamesSetInTurn(std::move(entries));
    return true;
}

// --- CPropertySet ----------------------------------------------------------------------------

CPropertySet::CPropertySet(const CPropertySet& other)
    : CObject(other), m_byteOrder(other.m_byteOrder), m_formatVersion(other.m_formatVersion),
      m_osVersion(other.m_osVersion), m_classId(other.m_classId) {
    for (const auto& section : other.m_sections)
        m_sections.push_back(std::make_unique<CPropertySection>(*section));
}

CPropertySet& CPropertySet::operator=(const CPropertySet& other) {
    if (this != &other) {
        CPropertySet copy(other);
        std::swap(m_sections, copy.m_sections);
        m_byteOrder = copy.m_byteOrder;
        m_formatVersion = copy.m_formatVersion;
        m_osVersion = copy.m_osVersion;
        m_classId = copy.m_classId;
    }
    return *this;
}

CPropertySection* CPropertySet::AddSection(const GUID& formatId) {
    if (CPropertySection* existing = GetSection(formatId))
        return existing;
    m_sections.push_back(std::make_unique<CPropertySection>(formatId));
    return m_sections.back().get();
}

CPropertySection* CPropertySet::AddSection(const CPropertySection& section) {
    if (CPropertySection* existing = GetSection(section.GetFormatID())) {
        *existing = section;
        return existing;
    }
    m_sections.push_back(std::make_unique<CPropertySection>(section));
    return m_sections.back().get();
}

CPropertySection* CPropertySet::GetSection(const GUID& formatId) {
    for (const auto& section : m_sections) {
        if (section->GetFormatID() == formatId)
            return section.get();
    }
    return nullptr;
}

const CPropertySection* CPropertySet::GetSection(const GUID& formatId) const {
    return const_cast<CPropertySet*>(this)->GetSection(formatId);
}

void CPropertySet::Remove(const GUID& formatId) {
    std::erase_if(m_sections,
                  [&](const auto& section) { return section->GetFormatID() == formatId; });
}

void CPropertySet::RemoveAll() {
    m_sections.clear();
}

CProperty* CPropertySet::GetProperty(const GUID& formatId, std::uint32_t id) {
    CPropertySection* section = GetSection(formatId);
    return section ? section->GetProperty(id) : nullptr;
}

CProperty* CPropertySet::AddProperty(const GUID& formatId, const CProperty& property) {
    return AddSection(formatId)->AddProperty(property);
}

bool CPropertySet::Set(const GUID& formatId, std::uint32_t id, const void* value,
                       std::uint32_t type) {
    return AddSection(formatId)->Set(id, value, type);
}

const std::uint8_t* CPropertySet::Get(const GUID& formatId, std::uint32_t id,
                                      std::uint32_t* size) const {
    const CPropertySection* section = GetSection(formatId);
    return section ? section->Get(id, size) : nullptr;
}

bool CPropertySet::WriteToStream(CFile& stream) {
    try {
        const auto count = static_cast<std::uint32_t>(m_sections.size());
        const unsigned long long start = stream.GetPosition();
        Bytes header;
        AppendLittleEndian(header, m_byteOrder, 2);
        AppendLittleEndian(header, m_formatVersion, 2);
        AppendLittleEndian(header, m_osVersion, 4);
        const GUID::Bytes classId = m_classId.ToBytes();
        header.insert(header.end(), classId.begin(), classId.end());
        AppendLittleEndian(header, count, 4);
        WriteBytes(stream, header);
        if (count == 0)
            return true;
        const unsigned long long table = stream.GetPosition();
        WriteZeros(stream, std::uint64_t{c_sectionEntrySize} * count);
        Bytes entries;
        for (const auto& section : m_sections) {
            const GUID::Bytes formatId = section->GetFormatID().ToBytes();
            entries.insert(entries.end(), formatId.begin(), formatId.end());
            AppendLittleEndian(entries, stream.GetPosition() - start, 4);
            section->WriteToStream(stream);
        }
        const unsigned long long end = stream.GetPosition();
        stream.Seek(static_cast<long long>(table), CFile::begin);
        WriteBytes(stream, entries);
        stream.Seek(static_cast<long long>(end), CFile::begin);
        return true;
    } catch (const CFileException&) {
        return false;
    }
}

bool CPropertySet::ReadFromStream(CFile& stream) {
    RemoveAll();
    bool read = false;
    try {
        read = ReadSections(stream);
    } catch (const CFileException&) {
        read = false;
    }
    if (!read)
        RemoveAll();
    return read;
}

bool CPropertySet::ReadSections(CFile& stream) {
    const unsigned long long start = stream.GetPosition();
    const unsigned long long length = stream.GetLength();
    if (start > length || length - start < c_headerSize)
        return false;
    const unsigned long long available = length - start;
    std::uint8_t header[c_headerSize];
    if (!ReadExact(stream, header, c_headerSize))
        return false;
    if (LittleEndianAt(header, 2) != c_byteOrder)
        return false;
    const auto count = static_cast<std::uint32_t>(LittleEndianAt(header + 24, 4));
    if (count > (available - c_headerSize) / c_sectionEntrySize)
        return false;
    const std::uint64_t tableEnd = c_headerSize + std::uint64_t{c_sectionEntrySize} * count;
    std::vector<std::pair<GUID, std::uint32_t>> table(count);
    for (auto& [formatId, offset] : table) {
        std::uint8_t entry[c_sectionEntrySize];
        if (!ReadExact(stream, entry, c_sectionEntrySize))
            return false;
        formatId = GUID::FromBytes(entry);
        offset = static_cast<std::uint32_t>(LittleEndianAt(entry + 16, 4));
        if (offset < tableEnd || offset > available)
            return false;
    }
    m_byteOrder = static_cast<std::uint16_t>(LittleEndianAt(header, 2));
    m_formatVersion = static_cast<std::uint16_t>(LittleEndianAt(header + 2, 2));
    m_osVersion = static_cast<std::uint32_t>(LittleEndianAt(header + 4, 4));
    m_classId = GUID::FromBytes(header + 8);
    unsigned long long end = start + tableEnd;
    for (const auto& [formatId, offset] : table) {
        stream.Seek(static_cast<long long>(start + offset), CFile::begin);
        auto section = std::make_unique<CPropertySection>(formatId);
        if (!section->ReadFromStream(stream))
            return false;
        end = std::max(end, stream.GetPosition());
        m_sections.push_back(std::move(section));
    }
    stream.Seek(static_cast<long long>(end), CFile::begin);
    return true;
}

} // namespace keel
