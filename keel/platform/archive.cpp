#include "keel/platform/archive.h"

#include "keel/platform/object.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>
#include <string>

namespace keel {

namespace {

constexpr std::uint8_t kLengthEscape8 = 0xFF;
constexpr std::uint16_t kWideMarker = 0xFFFE;
constexpr std::uint16_t kLengthEscape16 = 0xFFFF;
constexpr std::uint32_t kLengthEscape32 = 0xFFFFFFFF;

constexpr std::uint16_t kNullTag = 0;
constexpr std::uint16_t kNewClassTag = 0xFFFF;
constexpr std::uint16_t kClassTag = 0x8000;
constexpr std::uint16_t kBigObjectTag = 0x7FFF;
constexpr std::uint32_t kBigClassTag = 0x80000000;

// A claimed length is only trusted as far as the bytes that actually arrive, so a corrupt
// length costs at most one chunk of memory before the end of the stream is found.
constexpr unsigned kStringChunkUnits = 4096;

const char* CauseName(int cause) {
    static const char* const names[] = {
        "no error",
        "unspecified error",
        "attempt to write to an archive opened for loading",
        "end of file reached",
        "attempt to read from an archive opened for storing",
        "bad index",
        "unexpected class",
        "unexpected object schema",
    };
    if (cause < 0 || cause >= static_cast<int>(std::size(names)))
        return "unknown error";
    return names[cause];
}

std::string DescribeArchiveFailure(int cause, const CString& fileName) {
    std::string text = "Archive error: ";
    text += CauseName(cause);
    if (!fileName.IsEmpty())
        text += " in '" + fileName.ToUtf8() + "'";
    return text;
}

// Windows-1252 at 0x80-0x9F; the five undefined positions keep their own value.
constexpr char16_t kWindows1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

char16_t DecodeWindows1252(std::uint8_t byte) {
    if (byte >= 0x80 && byte <= 0x9F)
        return kWindows1252High[byte - 0x80];
    return byte;
}

} // namespace

CArchiveException::CArchiveException(int cause, const CString& fileName)
    : CException(DescribeArchiveFailure(cause, fileName)), m_cause(cause), m_strFileName(fileName) {
}

void ThrowArchiveException(int cause, const CString& fileName) {
    throw CArchiveException(cause, fileName);
}

CArchive::CArchive(CFile* file, Mode mode, int bufferSize)
    : m_pFile(file), m_loading(mode == load) {
    if (file == nullptr)
        ThrowInvalidArgument("CArchive needs a file");
    if (bufferSize < 1)
        ThrowInvalidArgument("CArchive buffer size");
    m_strFileName = file->GetFilePath();
    m_buffer.resize(static_cast<std::size_t>(bufferSize));
    if (!m_loading)
        m_end = m_buffer.size();
}

CArchive::~CArchive() {
    if (m_pFile != nullptr && IsStoring()) {
        try {
            WriteBuffer();
        } catch (...) {
            // A destructor cannot report; Close is the call that does.
        }
    }
}

void CArchive::Flush() {
    if (IsStoring()) {
        WriteBuffer();
        return;
    }
    if (m_current != m_end)
        File().Seek(-static_cast<long long>(m_end - m_current), CFile::current);
    m_current = m_end = 0;
}

std::uint64_t CArchive::RemainingBytes() const {
    const std::uint64_t length = m_pFile->GetLength();
    const std::uint64_t position = m_pFile->GetPosition();
    const std::uint64_t inFile = position < length ? length - position : 0;
    return inFile + static_cast<std::uint64_t>(m_end - m_current);
}

void CArchive::Close() {
    Flush();
    m_pFile = nullptr;
}

void CArchive::Abort() {
    m_pFile = nullptr;
    m_current = 0;
    m_end = m_loading ? 0 : m_buffer.size();
}

unsigned CArchive::Read(void* buffer, unsigned count) {
    RequireLoading();
    auto* out = static_cast<std::uint8_t*>(buffer);
    unsigned done = TakeFromBuffer(out, count);
    while (done < count) {
        const unsigned remaining = count - done;
        if (remaining >= m_buffer.size()) {
            const unsigned got = File().Read(out + done, remaining);
            if (got == 0)
                break;
            done += got;
        } else {
            if (!RefillBuffer())
                break;
            done += TakeFromBuffer(out + done, remaining);
        }
    }
    return done;
}

void CArchive::Write(const void* buffer, unsigned count) {
    RequireStoring();
    const auto* in = static_cast<const std::uint8_t*>(buffer);
    if (count <= m_end - m_current) {
        std::memcpy(m_buffer.data() + m_current, in, count);
        m_current += count;
        return;
    }
    WriteBuffer();
    if (count >= m_buffer.size()) {
        File().Write(in, count);
        return;
    }
    std::memcpy(m_buffer.data(), in, count);
    m_current = count;
}

void CArchive::WriteCount(std::uint64_t count) {
    if (count < kLengthEscape16) {
        WriteLittleEndian(static_cast<std::uint16_t>(count));
        return;
    }
    WriteLittleEndian(kLengthEscape16);
    if (count < kLengthEscape32) {
        WriteLittleEndian(static_cast<std::uint32_t>(count));
        return;
    }
    WriteLittleEndian(kLengthEscape32);
    WriteLittleEndian(count);
}

std::uint64_t CArchive::ReadCount() {
    const auto word = ReadLittleEndian<std::uint16_t>();
    if (word != kLengthEscape16)
        return word;
    const auto doubleWord = ReadLittleEndian<std::uint32_t>();
    if (doubleWord != kLengthEscape32)
        return doubleWord;
    return ReadLittleEndian<std::uint64_t>();
}

CArchive& CArchive::operator<<(bool value) {
    WriteLittleEndian<std::uint8_t>(value ? 1 : 0);
    return *this;
}
CArchive& CArchive::operator<<(char value) {
    WriteLittleEndian(static_cast<std::uint8_t>(value));
    return *this;
}
CArchive& CArchive::operator<<(std::int8_t value) {
    WriteLittleEndian(static_cast<std::uint8_t>(value));
    return *this;
}
CArchive& CArchive::operator<<(std::uint8_t value) {
    WriteLittleEndian(value);
    return *this;
}
CArchive& CArchive::operator<<(std::int16_t value) {
    WriteLittleEndian(static_cast<std::uint16_t>(value));
    return *this;
}
CArchive& CArchive::operator<<(std::uint16_t value) {
    WriteLittleEndian(value);
    return *this;
}
CArchive& CArchive::operator<<(char16_t value) {
    WriteLittleEndian(static_cast<std::uint16_t>(value));
    return *this;
}
CArchive& CArchive::operator<<(std::int32_t value) {
    WriteLittleEndian(static_cast<std::uint32_t>(value));
    return *this;
}
CArchive& CArchive::operator<<(std::uint32_t value) {
    WriteLittleEndian(value);
    return *this;
}
CArchive& CArchive::operator<<(std::int64_t value) {
    WriteLittleEndian(static_cast<std::uint64_t>(value));
    return *this;
}
CArchive& CArchive::operator<<(std::uint64_t value) {
    WriteLittleEndian(value);
    return *this;
}
CArchive& CArchive::operator<<(long long value) {
    return *this << static_cast<std::int64_t>(value);
}
CArchive& CArchive::operator<<(unsigned long long value) {
    return *this << static_cast<std::uint64_t>(value);
}
CArchive& CArchive::operator<<(float value) {
    WriteLittleEndian(std::bit_cast<std::uint32_t>(value));
    return *this;
}
CArchive& CArchive::operator<<(double value) {
    WriteLittleEndian(std::bit_cast<std::uint64_t>(value));
    return *this;
}

CArchive& CArchive::operator<<(const CString& value) {
    const auto length = static_cast<std::uint32_t>(value.GetLength());
    WriteLittleEndian(kLengthEscape8);
    WriteLittleEndian(kWideMarker);
    // A CString stays below 0xFFFFFFFF code units, so the 64-bit length form is never needed
    // here; ReadStringLength still accepts it.
    if (length < kLengthEscape8) {
        WriteLittleEndian(static_cast<std::uint8_t>(length));
    } else {
        WriteLittleEndian(kLengthEscape8);
        if (length < kWideMarker) {
            WriteLittleEndian(static_cast<std::uint16_t>(length));
        } else {
            WriteLittleEndian(kLengthEscape16);
            WriteLittleEndian(length);
        }
    }
    for (const char16_t unit : value.View())
        WriteLittleEndian(static_cast<std::uint16_t>(unit));
    return *this;
}

CArchive& CArchive::operator>>(bool& value) {
    value = ReadLittleEndian<std::uint8_t>() != 0;
    return *this;
}
CArchive& CArchive::operator>>(char& value) {
    value = static_cast<char>(ReadLittleEndian<std::uint8_t>());
    return *this;
}
CArchive& CArchive::operator>>(std::int8_t& value) {
    value = static_cast<std::int8_t>(ReadLittleEndian<std::uint8_t>());
    return *this;
}
CArchive& CArchive::operator>>(std::uint8_t& value) {
    value = ReadLittleEndian<std::uint8_t>();
    return *this;
}
CArchive& CArchive::operator>>(std::int16_t& value) {
    value = static_cast<std::int16_t>(ReadLittleEndian<std::uint16_t>());
    return *this;
}
CArchive& CArchive::operator>>(std::uint16_t& value) {
    value = ReadLittleEndian<std::uint16_t>();
    return *this;
}
CArchive& CArchive::operator>>(char16_t& value) {
    value = static_cast<char16_t>(ReadLittleEndian<std::uint16_t>());
    return *this;
}
CArchive& CArchive::operator>>(std::int32_t& value) {
    value = static_cast<std::int32_t>(ReadLittleEndian<std::uint32_t>());
    return *this;
}
CArchive& CArchive::operator>>(std::uint32_t& value) {
    value = ReadLittleEndian<std::uint32_t>();
    return *this;
}
CArchive& CArchive::operator>>(std::int64_t& value) {
    value = static_cast<std::int64_t>(ReadLittleEndian<std::uint64_t>());
    return *this;
}
CArchive& CArchive::operator>>(std::uint64_t& value) {
    value = ReadLittleEndian<std::uint64_t>();
    return *this;
}
CArchive& CArchive::operator>>(long long& value) {
    value = static_cast<long long>(ReadLittleEndian<std::uint64_t>());
    return *this;
}
CArchive& CArchive::operator>>(unsigned long long& value) {
    value = ReadLittleEndian<std::uint64_t>();
    return *this;
}
CArchive& CArchive::operator>>(float& value) {
    value = std::bit_cast<float>(ReadLittleEndian<std::uint32_t>());
    return *this;
}
CArchive& CArchive::operator>>(double& value) {
    value = std::bit_cast<double>(ReadLittleEndian<std::uint64_t>());
    return *this;
}

CArchive& CArchive::operator>>(CString& value) {
    std::uint64_t length = 0;
    const bool wide = !ReadStringLength(length);
    // The marker comes once, before the real length.
    if (wide && !ReadStringLength(length))
        Fail(CArchiveException::genericException);
    // A CString cannot hold more; such a length is a corrupt stream, not a short one.
    if (length > static_cast<std::uint64_t>(INT_MAX))
        Fail(CArchiveException::genericException);
    value = wide ? ReadWideCharacters(length) : ReadNarrowCharacters(length);
    return *this;
}

void CArchive::WriteObject(const CObject* object) {
    if (object == nullptr) {
        WriteLittleEndian(kNullTag);
        return;
    }
    const auto found = m_storeMap.find(object);
    if (found != m_storeMap.end()) {
        WriteIndexTag(found->second, 0, 0);
        return;
    }
    WriteClass(object->GetRuntimeClass());
    m_storeMap[object] = NextMapIndex();
    // Storing leaves the object as it was; Serialize serves both directions and so is not const.
    const_cast<CObject*>(object)->Serialize(*this);
}

CObject* CArchive::ReadObject(const CRuntimeClass* requested) {
    return ReadObjectOf(ReadClass(requested));
}

std::unique_ptr<CObject> CArchive::ReadNewObject(const CRuntimeClass* requested) {
    const ClassRecord record = ReadClass(requested);
    if (record.runtimeClass == nullptr && record.objectIndex != 0)
        Fail(CArchiveException::badIndex);
    return std::unique_ptr<CObject>(ReadObjectOf(record));
}

void CArchive::WriteIndexTag(std::uint32_t index, std::uint32_t bigFlag, std::uint16_t smallFlag) {
    if (index < kBigObjectTag) {
        WriteLittleEndian(static_cast<std::uint16_t>(smallFlag | index));
        return;
    }
    WriteLittleEndian(kBigObjectTag);
    WriteLittleEndian(bigFlag | index);
}

void CArchive::WriteClass(const CRuntimeClass* runtimeClass) {
    const auto found = m_storeMap.find(runtimeClass);
    if (found != m_storeMap.end()) {
        WriteIndexTag(found->second, kBigClassTag, kClassTag);
        return;
    }
    const std::string_view name = runtimeClass->Name();
    if (name.empty() || name.size() > CRuntimeClass::c_maxNameLength)
        ThrowInvalidArgument("CArchive::WriteObject: class name length");
    WriteLittleEndian(kNewClassTag);
    WriteLittleEndian(static_cast<std::uint16_t>(runtimeClass->StoredSchema()));
    WriteLittleEndian(static_cast<std::uint16_t>(name.size()));
    Write(name.data(), static_cast<unsigned>(name.size()));
    m_storeMap[runtimeClass] = NextMapIndex();
}

CArchive::ClassRecord CArchive::ReadClass(const CRuntimeClass* requested) {
    const auto tag = ReadLittleEndian<std::uint16_t>();
    ClassRecord record;
    if (tag == kNewClassTag) {
        record.runtimeClass = ReadNewClass(record.schema);
    } else {
        const std::uint32_t fullTag =
            tag == kBigObjectTag
                ? ReadLittleEndian<std::uint32_t>()
                : (static_cast<std::uint32_t>(tag & kClassTag) << 16) | (tag & ~kClassTag & 0xFFFF);
        const std::uint32_t index = fullTag & ~kBigClassTag;
        if ((fullTag & kBigClassTag) == 0) {
            if (index >= m_loadArray.size() || m_loadArray[index].isClass)
                Fail(CArchiveException::badIndex);
            const CObject* object = m_loadArray[index].object;
            if (requested != nullptr && object != nullptr && !object->IsKindOf(requested))
                Fail(CArchiveException::badClass);
            record.objectIndex = index;
            return record;
        }
        if (index == 0 || index >= m_loadArray.size() || !m_loadArray[index].isClass)
            Fail(CArchiveException::badIndex);
        record.runtimeClass = m_loadArray[index].runtimeClass;
        record.schema = m_loadArray[index].schema;
    }
    if (requested != nullptr && !record.runtimeClass->IsDerivedFrom(requested))
        Fail(CArchiveException::badClass);
    return record;
}

const CRuntimeClass* CArchive::ReadNewClass(unsigned& schema) {
    schema = ReadLittleEndian<std::uint16_t>();
    const auto length = ReadLittleEndian<std::uint16_t>();
    if (length == 0 || length > CRuntimeClass::c_maxNameLength)
        Fail(CArchiveException::badClass);
    char name[CRuntimeClass::c_maxNameLength];
    ReadExactly(name, length);
    const CRuntimeClass* runtimeClass = CRuntimeClass::FromName(std::string_view(name, length));
    if (runtimeClass == nullptr)
        Fail(CArchiveException::badClass);
    if (!runtimeClass->AcceptsSchema(schema))
        Fail(CArchiveException::badSchema);
    NextMapIndex();
    m_loadArray.push_back({runtimeClass, nullptr, schema, true});
    return runtimeClass;
}

CObject* CArchive::ReadObjectOf(const ClassRecord& record) {
    if (record.runtimeClass == nullptr)
        return m_loadArray[record.objectIndex].object;
    if (m_objectDepth >= c_maxObjectDepth)
        Fail(CArchiveException::genericException);
    std::unique_ptr<CObject> object(record.runtimeClass->CreateObject());
    if (object == nullptr)
        Fail(CArchiveException::badClass);
    const std::size_t index = NextMapIndex();
    m_loadArray.push_back({record.runtimeClass, object.get(), record.schema, false});

    // Restores the archive whichever way Serialize ends; on a failure the entry forgets the
    // object, which is deleted with `object`.
    struct Nesting {
        CArchive& archive;
        unsigned savedSchema;
        std::size_t index;
        bool done = false;
        ~Nesting() {
            --archive.m_objectDepth;
            archive.m_nObjectSchema = savedSchema;
            if (!done)
                archive.m_loadArray[index].object = nullptr;
        }
    } nesting{*this, m_nObjectSchema, index};
    ++m_objectDepth;
    m_nObjectSchema = record.schema;
    object->Serialize(*this);
    nesting.done = true;
    return object.release();
}

std::uint32_t CArchive::NextMapIndex() {
    if (m_nMapCount >= c_maxMapCount)
        Fail(CArchiveException::badIndex);
    return m_nMapCount++;
}

unsigned CArchive::GetObjectSchema() {
    const unsigned schema = m_nObjectSchema;
    m_nObjectSchema = noSchema;
    return schema;
}

void CArchive::Fail(int cause) const {
    ThrowArchiveException(cause, m_strFileName);
}

void CArchive::RequireLoading() const {
    if (!m_loading)
        Fail(CArchiveException::writeOnly);
}

void CArchive::RequireStoring() const {
    if (m_loading)
        Fail(CArchiveException::readOnly);
}

void CArchive::ReadExactly(void* buffer, unsigned count) {
    if (count <= m_end - m_current) {
        std::memcpy(buffer, m_buffer.data() + m_current, count);
        m_current += count;
        return;
    }
    if (Read(buffer, count) != count)
        Fail(CArchiveException::endOfFile);
}

CFile& CArchive::File() const {
    if (m_pFile == nullptr)
        Fail(CArchiveException::genericException);
    return *m_pFile;
}

bool CArchive::RefillBuffer() {
    m_current = 0;
    m_end = File().Read(m_buffer.data(), static_cast<unsigned>(m_buffer.size()));
    return m_end > 0;
}

unsigned CArchive::TakeFromBuffer(std::uint8_t* out, unsigned count) {
    const auto taken = static_cast<unsigned>(std::min<std::size_t>(count, m_end - m_current));
    std::memcpy(out, m_buffer.data() + m_current, taken);
    m_current += taken;
    return taken;
}

void CArchive::WriteBuffer() {
    if (m_current > 0)
        File().Write(m_buffer.data(), static_cast<unsigned>(m_current));
    m_current = 0;
}

bool CArchive::ReadStringLength(std::uint64_t& length) {
    const auto byte = ReadLittleEndian<std::uint8_t>();
    if (byte != kLengthEscape8) {
        length = byte;
        return true;
    }
    const auto word = ReadLittleEndian<std::uint16_t>();
    if (word == kWideMarker)
        return false;
    if (word != kLengthEscape16) {
        length = word;
        return true;
    }
    const auto doubleWord = ReadLittleEndian<std::uint32_t>();
    length = doubleWord != kLengthEscape32 ? doubleWord : ReadLittleEndian<std::uint64_t>();
    return true;
}

CString CArchive::ReadWideCharacters(std::uint64_t length) {
    std::u16string text;
    std::uint8_t chunk[2 * kStringChunkUnits];
    while (text.size() < length) {
        const auto units =
            static_cast<unsigned>(std::min<std::uint64_t>(length - text.size(), kStringChunkUnits));
        ReadExactly(chunk, 2 * units);
        for (unsigned i = 0; i < units; ++i)
            text.push_back(static_cast<char16_t>(chunk[2 * i] | (chunk[2 * i + 1] << 8)));
    }
    return CString(std::u16string_view(text));
}

CString CArchive::ReadNarrowCharacters(std::uint64_t length) {
    std::u16string text;
    std::uint8_t chunk[kStringChunkUnits];
    while (text.size() < length) {
        const auto count =
            static_cast<unsigned>(std::min<std::uint64_t>(length - text.size(), kStringChunkUnits));
        ReadExactly(chunk, count);
        for (unsigned i = 0; i < count; ++i)
            text.push_back(DecodeWindows1252(chunk[i]));
    }
    return CString(std::u16string_view(text));
}

} // namespace keel
