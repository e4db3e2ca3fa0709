#pragma once

#include "keel/platform/cstring.h"
#include "keel/platform/exceptions.h"
#include "keel/platform/file.h"

#include <cstdint>
#include <memory>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace keel {

class CObject;
struct CRuntimeClass;

// A failure while reading or writing an archive: the cause and the archive's file name.
class CArchiveException : public CException {
public:
    enum {
        none = 0,
        genericException = 1,
        readOnly = 2,  // writing to an archive that is loading
        endOfFile = 3, // reading past the end of the stream
        writeOnly = 4, // reading from an archive that is storing
        badIndex = 5,
        badClass = 6,
        badSchema = 7,
    };

    explicit CArchiveException(int cause = none, const CString& fileName = CString());

    int m_cause;
    CString m_strFileName;
};

[[noreturn]] void ThrowArchiveException(int cause, const CString& fileName = CString());

// The 8-byte forms below are written for std::int64_t and std::uint64_t, which on this platform
// are `long` and `unsigned long`; `long long` and `unsigned long long` are the same width and
// write the same 8 bytes. A 4-byte value from a 32-bit `long` field of an older format must be
// written as std::int32_t.
static_assert(std::is_same_v<std::int64_t, long> && std::is_same_v<std::uint64_t, unsigned long>,
              "the archive's overloads assume an LP64 platform");

// A buffered, little-endian binary stream over a CFile, either loading (reading) or storing
// (writing). Every value is written byte for byte in a fixed layout; a storing archive flushes
// its buffer when it is closed or destroyed.
class CArchive {
public:
    enum Mode { store = 0, load = 1 };

    static constexpr unsigned noSchema = 0xFFFFFFFF;

    CArchive(CFile* file, Mode mode, int bufferSize = 4096);
    // Flushes a storing archive that was not closed; a failure there is lost (call Close).
    virtual ~CArchive();
    CArchive(const CArchive&) = delete;
    CArchive& operator=(const CArchive&) = delete;

    bool IsLoading() const { return m_loading; }
    bool IsStoring() const { return !m_loading; }
    // Loading: no unread bytes are buffered. Storing: no written bytes wait for the file.
    bool IsBufferEmpty() const { return m_loading ? m_current == m_end : m_current == 0; }
    CFile* GetFile() const { return m_pFile; }
    // Loading: the bytes between the archive's place and the end of its file, so a count read
    // from the file can be checked against what the file can still hold.
    std::uint64_t RemainingBytes() const;

    // Storing: writes the buffer to the file. Loading: gives the unread part of the buffer back
    // to the file, so the file position is where the archive stopped reading.
    void Flush();
    // Flushes and lets go of the file; the archive cannot be used afterwards.
    void Close();
    // Lets go of the file without flushing.
    void Abort();

    // Raw bytes. Read returns fewer than `count` only at the end of the stream.
    unsigned Read(void* buffer, unsigned count);
    void Write(const void* buffer, unsigned count);

    // Item counts: 16 bits below 0xFFFF, else 0xFFFF and 32 bits below 0xFFFFFFFF, else
    // 0xFFFFFFFF and 64 bits.
    void WriteCount(std::uint64_t count);
    std::uint64_t ReadCount();

    CArchive& operator<<(bool value);
    CArchive& operator<<(char value);
    CArchive& operator<<(std::int8_t value);
    CArchive& operator<<(std::uint8_t value);
    CArchive& operator<<(std::int16_t value);
    CArchive& operator<<(std::uint16_t value);
    CArchive& operator<<(char16_t value);
    CArchive& operator<<(std::int32_t value);
    CArchive& operator<<(std::uint32_t value);
    CArchive& operator<<(std::int64_t value);
    CArchive& operator<<(std::uint64_t value);
    CArchive& operator<<(long long value);
    CArchive& operator<<(unsigned long long value);
    CArchive& operator<<(float value);
    CArchive& operator<<(double value);
    // wchar_t is 4 bytes here and 2 in the archive; write it as char16_t.
    CArchive& operator<<(wchar_t value) = delete;
    // Wide form: 0xFF, 0xFFFE, the length in code units, then 2 bytes a code unit.
    CArchive& operator<<(const CString& value);

    CArchive& operator>>(bool& value);
    CArchive& operator>>(char& value);
    CArchive& operator>>(std::int8_t& value);
    CArchive& operator>>(std::uint8_t& value);
    CArchive& operator>>(std::int16_t& value);
    CArchive& operator>>(std::uint16_t& value);
    CArchive& operator>>(char16_t& value);
    CArchive& operator>>(std::int32_t& value);
    CArchive& operator>>(std::uint32_t& value);
    CArchive& operator>>(std::int64_t& value);
    CArchive& operator>>(std::uint64_t& value);
    CArchive& operator>>(long long& value);
    CArchive& operator>>(unsigned long long& value);
    CArchive& operator>>(float& value);
    CArchive& operator>>(double& value);
    CArchive& operator>>(wchar_t& value) = delete;
    // Accepts the wide form and the narrow one (1 byte a character, read as Windows-1252).
    CArchive& operator>>(CString& value);

    // Objects with their class. Each is written as a tag of 16 bits: 0 for null; 0xFFFF for a
    // class not written before, followed by its schema (16 bits), its name's length (16 bits) and
    // the name's bytes, and then the object; 0x8000 | n for the class of index n, followed by the
    // object; n alone for the object of index n written before. Every new class and every new
    // object takes the next index, from 1 on. An index past 0x7FFE is written as the tag 0x7FFF
    // and 32 bits: the index for an object, 0x80000000 | the index for a class.
    void WriteObject(const CObject* object);
    // Reads what WriteObject wrote: nullptr, an object read before (still owned where it was
    // owned), or a new one, made by its registered class, which the caller owns. While the new
    // object reads itself, the object schema is the schema stored for its class. An unknown
    // class name fails with badClass, as does a class that is not `requested` or derived from
    // it; an index not read yet with badIndex; a stored schema that the class does not accept
    // with badSchema. A new object whose Serialize fails is deleted before the failure goes on.
    CObject* ReadObject(const CRuntimeClass* requested = nullptr);
    // The same for a reader that takes the object over: only null or a new object will do, and a
    // reference to one read before fails with badIndex.
    std::unique_ptr<CObject> ReadNewObject(const CRuntimeClass* requested = nullptr);
    CArchive& operator<<(const CObject* object) {
        WriteObject(object);
        return *this;
    }
    CArchive& operator>>(CObject*& object) {
        object = ReadObject();
        return *this;
    }

    // Objects inside objects are read this deep at most; deeper is a corrupt stream.
    static constexpr int c_maxObjectDepth = 200;
    // Classes and objects beyond this many in one archive fail with badIndex.
    static constexpr std::uint32_t c_maxMapCount = 0x3FFFFFFE;

    // The version of the object being loaded. Reading it consumes it: a second call gives
    // noSchema, so a nested object never takes its parent's version for its own.
    unsigned GetObjectSchema();
    void SetObjectSchema(unsigned schema) { m_nObjectSchema = schema; }

    const CString& GetFileName() const { return m_strFileName; }
    void SetFileName(const CString& fileName) { m_strFileName = fileName; }

    unsigned m_nObjectSchema = noSchema;
    CString m_strFileName;
    // The document being loaded or stored, for objects that need it.
    void* m_pDocument = nullptr;

protected:
    [[noreturn]] void Fail(int cause) const;
    void RequireLoading() const;
    void RequireStoring() const;
    // Reads exactly `count` bytes or fails with endOfFile.
    void ReadExactly(void* buffer, unsigned count);

    template <class Unsigned>
    Unsigned ReadLittleEndian() {
        RequireLoading();
        std::uint8_t bytes[sizeof(Unsigned)];
        ReadExactly(bytes, sizeof bytes);
        Unsigned value = 0;
        for (std::size_t i = sizeof bytes; i-- > 0;)
            value = static_cast<Unsigned>((value << 8) | bytes[i]);
        return value;
    }
    template <class Unsigned>
    void WriteLittleEndian(Unsigned value) {
        RequireStoring();
        std::uint8_t bytes[sizeof(Unsigned)];
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(value & 0xFF);
            value = static_cast<Unsigned>(value >> 8);
        }
        Write(bytes, sizeof bytes);
    }

private:
    CFile& File() const;
    bool RefillBuffer();
    unsigned TakeFromBuffer(std::uint8_t* out, unsigned count);
    void WriteBuffer();
    // Reads one length prefix; false when it was the wide marker instead of a length.
    bool ReadStringLength(std::uint64_t& length);
    CString ReadWideCharacters(std::uint64_t length);
    CString ReadNarrowCharacters(std::uint64_t length);

    // One class or object read, at its index; entry 0 stands for null.
    struct LoadedEntry {
        const CRuntimeClass* runtimeClass = nullptr;
        CObject* object = nullptr;
        unsigned schema = 0;
        bool isClass = false;
    };
    struct ClassRecord {
        const CRuntimeClass* runtimeClass = nullptr;
        unsigned schema = 0;
        // The index of an object written before, when the tag referred to one.
        std::uint32_t objectIndex = 0;
    };

    void WriteIndexTag(std::uint32_t index, std::uint32_t bigFlag, std::uint16_t smallFlag);
    void WriteClass(const CRuntimeClass* runtimeClass);
    ClassRecord ReadClass(const CRuntimeClass* requested);
    const CRuntimeClass* ReadNewClass(unsigned& schema);
    CObject* ReadObjectOf(const ClassRecord& record);
    std::uint32_t NextMapIndex();

    CFile* m_pFile;
    bool m_loading;
    std::uint32_t m_nMapCount = 1;
    std::unordered_map<const void*, std::uint32_t> m_storeMap;
    std::vector<LoadedEntry> m_loadArray = std::vector<LoadedEntry>(1);
    int m_objectDepth = 0;
    std::vector<std::uint8_t> m_buffer;
    // Loading: the unread bytes are [m_current, m_end). Storing: the pending ones are
    // [0, m_current) and m_end is the buffer's size.
    std::size_t m_current = 0;
    std::size_t m_end = 0;
};

} // namespace keel
