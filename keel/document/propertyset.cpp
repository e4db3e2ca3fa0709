#include "keel/document/propertyset.h"

#include "keel/exchange/exportattribute.h"
#include "keel/exchange/exportformatlevel.h"
#include "keel/exchange/importformatlevel.h"
#include "keel/platform/stdiofileex.h"
#include "keel/platform/wchar.h"
#include "keel/values/datetime.h"
#include "keel/values/money.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <string_view>

namespace keel {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t c_fileTimeTicksPerMinute = 60 * c_fileTimeTicksPerSecond;
constexpr double c_currencyScale = 10000.0;

std::uint64_t LittleEndianOf(const CProperty& property) {
    std::uint64_t value = 0;
    const Bytes& block = property.Block();
    for (std::size_t index = 0; index < block.size() && index < 8; ++index)
        value |= static_cast<std::uint64_t>(block[index]) << (8 * index);
    return value;
}

bool HasBlockOf(const CProperty& property, std::size_t size) {
    return property.Block().size() == size;
}

bool IsNarrowString(std::uint32_t type) {
    return type == VT_LPSTR || type == VT_BSTR;
}

CString DecodeUtf16(const std::uint8_t* bytes, std::size_t size) {
    std::u16string units;
    for (std::size_t index = 0; index + 1 < size; index += 2) {
        const auto unit = static_cast<char16_t>(bytes[index] | bytes[index + 1] << 8);
        if (unit == 0)
            break;
        units.push_back(unit);
    }
    return CString(units);
}

Bytes EncodeUtf16(const CString& text) {
    Bytes bytes;
    for (const char16_t unit : text.View()) {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    bytes.push_back(0);
    bytes.push_back(0);
    return bytes;
}

// The bits of one character of a packed set name: A to Z are 0 to 25 and 0 to 5 are 26 to 31;
// any other character gives the low five bits of its code.
unsigned PackedCharacterBits(char16_t ch) {
    const char16_t upper = ToUpper(ch);
    if (upper >= u'A' && upper <= u'Z')
        return upper - u'A';
    if (upper >= u'0' && upper <= u'5')
        return 26u + (upper - u'0');
    return upper & 0x1Fu;
}

// The kind of value a property of the variant type holds; empty for the types without one.
QAnyValue::TYPE KindOfVariantType(std::uint32_t type) {
    switch (type) {
    case VT_I2:
    case VT_I4:
        return QAnyValue::TYPE_INT;
    case VT_R4:
    case VT_R8:
        return QAnyValue::TYPE_DOUBLE;
    case VT_CY:
        return QAnyValue::TYPE_MONEY;
    case VT_DATE:
    case VT_FILETIME:
        return QAnyValue::TYPE_DATETIME;
    case VT_BSTR:
    case VT_LPSTR:
    case VT_LPWSTR:
        return QAnyValue::TYPE_STRING;
    case VT_BOOL:
        return QAnyValue::TYPE_BOOL;
    default:
        return QAnyValue::TYPE_EMPTY;
    }
}

const CPropertySection::NameList c_noNames;
const CPropertySection::PropertyList c_noProperties;

} // namespace

QPropertySet::QPropertySet(const CString& setName, QFormulaContext* context)
    : QWithContextConcrete(context), m_formatId(NameToGUID(setName)), m_setName(setName),
      m_streamName(CString(char16_t{5}) + setName) {
    QPropertySet::Reset();
}

CPropertySection* QPropertySet::GetCurrentSection() {
    return GetSection(m_formatId);
}

const CPropertySection* QPropertySet::GetCurrentSection() const {
    return GetSection(m_formatId);
}

void QPropertySet::Reset() {
    RemoveAll();
    AddSection(m_formatId)->SetSectionName(m_setName);
}

bool QPropertySet::ReadFromPropertyStream(CFile& stream) {
    PreChange();
    const bool read = ReadFromStream(stream);
    Changed();
    CPropertySection* section = read ? GetCurrentSection() : nullptr;
    if (!section) {
        RemoveAll();
        return false;
    }
    section->SetSectionName(m_setName);
    FixupNames();
    return true;
}

bool QPropertySet::WriteToStorage(CStorage& storage) {
    CStreamFile stream;
    bool written = stream.CreateStream(storage, m_streamName, c_createStreamMode);
    if (written) {
        try {
            written = WriteToPropertyStream(stream);
        } catch (const CFileException&) {
            written = false;
        }
        stream.Close();
    }
    if (written)
        written = storage.Commit(CStorage::commitOverwrite | CStorage::commitConsolidate);
    if (!written)
        storage.Revert();
    return written;
}

bool QPropertySet::ReadFromStorage(CStorage& storage) {
    CStreamFile stream;
    if (!stream.OpenStream(storage, m_streamName, c_openStreamMode))
        return false;
    return ReadFromPropertyStream(stream);
}

GUID QPropertySet::NameToGUID(const CString& name) {
    if (name == u"SummaryInformation")
        return FMTID_SummaryInformation;
    if (name == u"DocumentSummaryInformation")
        return FMTID_DocSummaryInformation;
    GUID::Bytes bytes{};
    const int bitCount = static_cast<int>(bytes.size()) * 8;
    for (int index = 0; index < name.GetLength() && index * 5 < bitCount; ++index) {
        const unsigned bits = PackedCharacterBits(name[index]);
        for (int bit = 0; bit < 5 && index * 5 + bit < bitCount; ++bit) {
            if (bits & (1u << bit)) {
                const int position = index * 5 + bit;
                bytes[position / 8] |= static_cast<std::uint8_t>(1u << (position % 8));
            }
        }
    }
    return GUID::FromBytes(bytes.data());
}

void QPropertySet::Store(const CProperty& property) {
    CPropertySection* section = GetCurrentSection();
    if (!section)
        return;
    PreChange();
    section->AddProperty(property);
    Changed();
}

// --- By id -----------------------------------------------------------------------------------

const std::uint8_t* QPropertySet::Get(std::uint32_t id, std::uint32_t* size) const {
    const CPropertySection* section = GetCurrentSection();
    return section ? section->Get(id, size) : nullptr;
}

bool QPropertySet::Set(std::uint32_t id, const void* value, std::uint32_t type) {
    CProperty property;
    if (!GetCurrentSection() || !property.Set(id, value, type))
        return false;
    Store(property);
    return true;
}

bool QPropertySet::GetType(std::uint32_t id, std::uint32_t& type) const {
    const CPropertySection* section = GetCurrentSection();
    const CProperty* property = section ? section->GetProperty(id) : nullptr;
    if (!property)
        return false;
    type = property->GetType();
    return true;
}

void QPropertySet::Remove(std::uint32_t id) {
    CPropertySection* section = GetCurrentSection();
    if (!section || !section->GetProperty(id))
        return;
    PreChange();
    section->Remove(id);
    Changed();
}

CString QPropertySet::GetName(std::uint32_t id) const {
    const CPropertySection* section = GetCurrentSection();
    return section ? section->GetName(id) : CString();
}

void QPropertySet::SetName(std::uint32_t id, const CString& name) {
    if (CPropertySection* section = GetCurrentSection())
        section->SetName(id, name);
}

bool QPropertySet::SetNewName(std::uint32_t id, const CString& name) {
    std::uint32_t holder = 0;
    if (name.IsEmpty() || !GetName(id).IsEmpty() || GetID(name, holder) || !GetCurrentSection())
        return false;
    SetName(id, name);
    return true;
}

CString QPropertySet::GetString(std::uint32_t id) const {
    const CPropertySection* section = GetCurrentSection();
    const CProperty* property = section ? section->GetProperty(id) : nullptr;
    if (!property)
        return CString();
    const Bytes& block = property->Block();
    if (property->GetType() == VT_LPWSTR)
        return DecodeUtf16(block.data(), block.size());
    if (!IsNarrowString(property->GetType()))
        return CString();
    const unsigned codePage = section->GetCodePage();
    if (codePage == c_unicodePropertyCodePage)
        return DecodeUtf16(block.data(), block.size());
    const auto end = std::find(block.begin(), block.end(), std::uint8_t{0});
    return CStdioFileEx::DecodeNarrow(block.data(), static_cast<std::size_t>(end - block.begin()),
                                      codePage);
}

void QPropertySet::SetString(std::uint32_t id, const CString& text) {
    const CPropertySection* section = GetCurrentSection();
    if (!section)
        return;
    std::uint32_t type = VT_LPSTR;
    if (GetType(id, type) && type != VT_BSTR)
        type = VT_LPSTR;
    const unsigned codePage = section->GetCodePage();
    Bytes block;
    if (codePage == c_unicodePropertyCodePage) {
        block = EncodeUtf16(text);
    } else {
        block = CStdioFileEx::EncodeNarrow(text, codePage);
        block.push_back(0);
    }
    CProperty property;
    property.SetID(id);
    property.SetBlock(type, std::move(block));
    Store(property);
}

void QPropertySet::SetWideString(std::uint32_t id, const CString& text) {
    Set(id, text.GetString(), VT_LPWSTR);
}

bool QPropertySet::GetInt(std::uint32_t id, int& value) const {
    const CPropertySection* section = GetCurrentSection();
    const CProperty* property = section ? section->GetProperty(id) : nullptr;
    if (property && property->GetType() == VT_I2 && HasBlockOf(*property, 2)) {
        value = static_cast<std::int16_t>(LittleEndianOf(*property));
        return true;
    }
    if (property && property->GetType() == VT_I4 && HasBlockOf(*property, 4)) {
        value = static_cast<std::int32_t>(LittleEndianOf(*property));
        return true;
    }
    return false;
}

void QPropertySet::SetInt(std::uint32_t id, int value) {
    const std::int32_t number = value;
    Set(id, &number, VT_I4);
}

bool QPropertySet::GetBOOL(std::uint32_t id, bool& value) const {
    const CPropertySection* section = GetCurrentSection();
    const CProperty* property = section ? section->GetProperty(id) : nullptr;
    if (!property || property->GetType() != VT_BOOL || !HasBlockOf(*property, 2))
        return false;
    value = LittleEndianOf(*property) != 0;
    return true;
}

void QPropertySet::SetBOOL(std::uint32_t id, bool value) {
    const std::int16_t word = value ? -1 : 0;
    Set(id, &word, VT_BOOL);
}

bool QPropertySet::GetDouble(std::uint32_t id, double& value) const {
    const CPropertySection* section = GetCurrentSection();
    const CProperty* property = section ? section->GetProperty(id) : nullptr;
    if (property && property->GetType() == VT_R4 && HasBlockOf(*property, 4)) {
        value = std::bit_cast<float>(static_cast<std::uint32_t>(LittleEndianOf(*property)));
        return true;
    }
    if (property && property->GetType() == VT_R8 && HasBlockOf(*property, 8)) {
        value = std::bit_cast<double>(LittleEndianOf(*property));
        return true;
    }
    return false;
}

void QPropertySet::SetDouble(std::uint32_t id, double value) {
    Set(id, &value, VT_R8);
}

bool QPropertySet::GetFILETIME(std::uint32_t id, FILETIME& value) const {
    const CPropertySection* section = GetCurrentSection();
    const CProperty* property = section ? section->GetProperty(id) : nullptr;
    if (!property || property->GetType() != VT_FILETIME || !HasBlockOf(*property, 8))
        return false;
    value = FILETIME::FromTicks(LittleEndianOf(*property));
    return true;
}

void QPropertySet::SetFILETIME(std::uint32_t id, const FILETIME& value) {
    Set(id, &value, VT_FILETIME);
}

bool QPropertySet::GetValue(std::uint32_t id, QAnyValue& value) const {
    value.MakeEmpty();
    const CPropertySection* section = GetCurrentSection();
    const CProperty* property = section ? section->GetProperty(id) : nullptr;
    if (!property)
        return false;
    const std::uint32_t type = property->GetType();
    switch (type) {
    case VT_EMPTY:
        return true;
    case VT_I2:
    case VT_I4: {
        int number = 0;
        if (!GetInt(id, number))
            return false;
        value = QAnyValue(number);
        return true;
    }
    case VT_R4:
    case VT_R8: {
        double number = 0;
        if (!GetDouble(id, number))
            return false;
        value = QAnyValue(number);
        return true;
    }
    case VT_CY: {
        if (!HasBlockOf(*property, 8))
            return false;
        const auto units = static_cast<std::int64_t>(LittleEndianOf(*property));
        const double amount = static_cast<double>(units) / c_currencyScale;
        value = QAnyValue(QMoney::FromRaw(QMoney::double_to_raw(amount)));
        return true;
    }
    case VT_DATE:
        if (!HasBlockOf(*property, 8))
            return false;
        value = QAnyValue(QDateTime(std::bit_cast<double>(LittleEndianOf(*property))));
        return true;
    case VT_BSTR:
    case VT_LPSTR:
    case VT_LPWSTR:
        value = QAnyValue(GetString(id));
        return true;
    case VT_BOOL: {
        bool truth = false;
        if (!GetBOOL(id, truth))
            return false;
        value = QAnyValue(truth);
        return true;
    }
    case VT_FILETIME: {
        FILETIME time;
        if (!GetFILETIME(id, time))
            return false;
        value = QAnyValue(QDateTime(FileTimeToOleDate(time)));
        return true;
    }
    default:
        return false;
    }
}

bool QPropertySet::SetValue(std::uint32_t id, const QAnyValue& value) {
    if (!GetCurrentSection())
        return false;
    std::uint32_t existing = VT_EMPTY;
    const bool exists = GetType(id, existing);
    QAnyValue typed(value);
    const QAnyValue::TYPE kind = exists ? KindOfVariantType(existing) : QAnyValue::TYPE_EMPTY;
    if (kind != QAnyValue::TYPE_EMPTY && !value.IsEmpty() && value.Type() != kind) {
        typed.ChangeType(kind);
        if (typed.IsErrorOrNA())
            return false;
    }
    switch (typed.Type()) {
    case QAnyValue::TYPE_EMPTY:
        return Set(id, nullptr, VT_EMPTY);
    case QAnyValue::TYPE_BOOL:
        return SetValueOfType(id, typed, VT_BOOL);
    case QAnyValue::TYPE_INT:
        return SetValueOfType(id, typed, existing == VT_I2 ? VT_I2 : VT_I4);
    case QAnyValue::TYPE_DOUBLE:
        return SetValueOfType(id, typed, existing == VT_R4 ? VT_R4 : VT_R8);
    case QAnyValue::TYPE_MONEY:
        return SetValueOfType(id, typed, VT_CY);
    case QAnyValue::TYPE_DATETIME:
        return SetValueOfType(id, typed, existing == VT_DATE ? VT_DATE : VT_FILETIME);
    case QAnyValue::TYPE_STRING:
        if (existing == VT_LPWSTR)
            SetWideString(id, typed.AsStringOrFormula());
        else
            SetString(id, typed.AsStringOrFormula());
        return true;
    default:
        return false;
    }
}

bool QPropertySet::SetValueOfType(std::uint32_t id, const QAnyValue& value, std::uint32_t type) {
    QAnyValue copy(value);
    switch (type) {
    case VT_BOOL: {
        const std::int16_t word = copy.MakeBool() ? -1 : 0;
        return Set(id, &word, VT_BOOL);
    }
    case VT_I2: {
        const int number = copy.MakeInt();
        if (number < SHRT_MIN || number > SHRT_MAX)
            return SetValueOfType(id, value, VT_I4);
        const auto small = static_cast<std::int16_t>(number);
        return Set(id, &small, VT_I2);
    }
    case VT_I4: {
        const std::int32_t number = copy.MakeInt();
        return Set(id, &number, VT_I4);
    }
    case VT_R4: {
        const auto number = static_cast<float>(copy.MakeDouble());
        return Set(id, &number, VT_R4);
    }
    case VT_R8: {
        const double number = copy.MakeDouble();
        return Set(id, &number, VT_R8);
    }
    case VT_CY: {
        const double amount = QMoney::raw_to_double(copy.MakeMoney().GetRaw());
        const auto units = static_cast<std::int64_t>(std::llround(amount * c_currencyScale));
        return Set(id, &units, VT_CY);
    }
    case VT_DATE: {
        const double date = copy.MakeDateTime().GetOleDate();
        return Set(id, &date, VT_DATE);
    }
    case VT_FILETIME: {
        const QDateTime date = copy.MakeDateTime();
        FILETIME time;
        if (!date.IsValid() || !OleDateToFileTime(date.GetOleDate(), time))
            return false;
        return Set(id, &time, VT_FILETIME);
    }
    default:
        return false;
    }
}

CString QPropertySet::GetAsString(std::uint32_t id) const {
    QAnyValue value;
    if (!GetValue(id, value) || value.IsEmpty())
        return CString();
    return value.MakeCString();
}

// --- By name ---------------------------------------------------------------------------------

bool QPropertySet::GetID(const CString& name, std::uint32_t& id) const {
    const CPropertySection* section = GetCurrentSection();
    return section && section->GetID(name, id);
}

bool QPropertySet::Lookup(QAnyValue& value, const CString& name) {
    std::uint32_t id = 0;
    if (!GetID(name, id)) {
        value.MakeEmpty();
        return false;
    }
    return GetValue(id, value);
}

bool QPropertySet::Set(const QAnyValue& value, const CString& name) {
    std::uint32_t id = 0;
    return GetID(name, id) && SetValue(id, value);
}

// --- The whole set ---------------------------------------------------------------------------

const CPropertySection::NameList& QPropertySet::Dictionary() const {
    const CPropertySection* section = GetCurrentSection();
    return section ? section->GetNames() : c_noNames;
}

const CPropertySection::PropertyList& QPropertySet::GetList() const {
    const CPropertySection* section = GetCurrentSection();
    return section ? section->GetList() : c_noProperties;
}

void QPropertySet::FixupNames() {
    CPropertySection* section = GetCurrentSection();
    if (!section)
        return;
    const CPropertySection::NameList names = section->GetNames();
    for (const auto& [id, name] : names) {
        if (!section->GetProperty(id))
            section->SetName(id, CString());
    }
}

bool QPropertySet::ForEachPropertyDo(const PropertyFunction& function) const {
    bool succeeded = true;
    for (const auto& property : GetList()) {
        const CString name = GetName(property->GetID());
        if (name.IsEmpty())
            continue;
        QAnyValue value;
        FILETIME editTime;
        if (name.CompareNoCase(c_editTimeName) == 0 && GetFILETIME(property->GetID(), editTime)) {
            const std::uint64_t minutes = editTime.Ticks() / c_fileTimeTicksPerMinute;
            value = QAnyValue(static_cast<int>(std::min<std::uint64_t>(minutes, INT_MAX)));
        } else {
            GetValue(property->GetID(), value);
        }
        if (!function(name, value))
            succeeded = false;
    }
    return succeeded;
}

void QPropertySet::Merge(const QPropertySet& other, QMergeResolutionStrategy strategy) {
    if (!GetCurrentSection())
        return;
    for (const auto& property : other.GetList()) {
        const std::uint32_t id = property->GetID();
        if (id == c_dictionaryPropertyId || id == c_codePagePropertyId)
            continue;
        std::uint32_t type = VT_EMPTY;
        if (strategy == MERGE_KEEP_EXISTING && GetType(id, type))
            continue;
        CopyPropertyFrom(other, *property);
    }
    for (const auto& [id, name] : other.Dictionary()) {
        if (strategy != MERGE_KEEP_EXISTING || GetName(id).IsEmpty())
            SetName(id, name);
    }
}

// A narrow string is read in the other set's code page and written in this one's.
void QPropertySet::CopyPropertyFrom(const QPropertySet& other, const CProperty& property) {
    if (IsNarrowString(property.GetType())) {
        CProperty typed;
        typed.Set(property.GetID(), "", property.GetType());
        Store(typed);
        SetString(property.GetID(), other.GetString(property.GetID()));
        return;
    }
    Store(property);
}

void QPropertySet::SetCrystalFormulas(void* job, QProperties::CrystalFormulaSetter setter) const {
    ForEachPropertyDo([&](const CString& name, const QAnyValue& value) {
        setter(job, name, value.AsCrystalFormula());
        return true;
    });
}

bool QPropertySet::AddAttributesAndChildrenToExport(QExportFormatLevel& level) const {
    bool succeeded = true;
    for (const auto& property : GetList()) {
        const CString name = GetName(property->GetID());
        QAnyValue value;
        if (name.IsEmpty() || !GetValue(property->GetID(), value))
            continue;
        if (!level.AddExportableAttribute(QVariableTypeExportAttribute(name, value)))
            succeeded = false;
    }
    return succeeded;
}

bool QPropertySet::ImportAttributesAndChildren(QImportFormatLevel& level) {
    return level.ImportUnmatchedAttributes([this](const CString& name, const QAnyValue& value,
                                                  FormulaText) { return Set(value, name); });
}

} // namespace keel
