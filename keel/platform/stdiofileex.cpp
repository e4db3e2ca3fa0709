#include "keel/platform/stdiofileex.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace keel {

namespace {

constexpr std::size_t c_bufferSize = 64 * 1024;
constexpr char16_t c_replacementChar = 0xFFFD;

// Code page 1252 differs from Latin-1 only in 0x80..0x9F. The five bytes it leaves undefined
// stand for the control characters of the same number, so that every byte reads and writes back.
constexpr char16_t c_windowsWestern80To9F[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

enum class NarrowPage { Utf8, WindowsWestern, Latin1, Ascii };

NarrowPage PageKind(unsigned codePage) {
    switch (codePage) {
    case CStdioFileEx::c_codePageUtf8:
        return NarrowPage::Utf8;
    case CStdioFileEx::c_codePageLatin1:
        return NarrowPage::Latin1;
    case CStdioFileEx::c_codePageAscii:
        return NarrowPage::Ascii;
    default:
        return NarrowPage::WindowsWestern;
    }
}

char16_t DecodeNarrowByte(std::uint8_t byte, NarrowPage page) {
    if (byte < 0x80)
        return byte;
    switch (page) {
    case NarrowPage::Ascii:
        return c_replacementChar;
    case NarrowPage::WindowsWestern:
        if (byte < 0xA0)
            return c_windowsWestern80To9F[byte - 0x80];
        return byte;
    default:
        return byte;
    }
}

// The byte of `codePoint` in a one-byte page, or -1 when the page has none.
int EncodeNarrowByte(char32_t codePoint, NarrowPage page) {
    if (codePoint < 0x80)
        return static_cast<int>(codePoint);
    switch (page) {
    case NarrowPage::Ascii:
        return -1;
    case NarrowPage::Latin1:
        return codePoint <= 0xFF ? static_cast<int>(codePoint) : -1;
    default:
        if (codePoint >= 0xA0 && codePoint <= 0xFF)
            return static_cast<int>(codePoint);
        for (int index = 0; index < 32; ++index) {
            if (c_windowsWestern80To9F[index] == codePoint)
                return 0x80 + index;
        }
        return -1;
    }
}

bool IsHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendUtf8(std::vector<std::uint8_t>& out, char32_t codePoint) {
    if (codePoint < 0x80) {
        out.push_back(static_cast<std::uint8_t>(codePoint));
    } else if (codePoint < 0x800) {
        out.push_back(static_cast<std::uint8_t>(0xC0 | (codePoint >> 6)));
        out.push_back(static_cast<std::uint8_t>(0x80 | (codePoint & 0x3F)));
    } else if (codePoint < 0x10000) {
        out.push_back(static_cast<std::uint8_t>(0xE0 | (codePoint >> 12)));
        out.push_back(static_cast<std::uint8_t>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<std::uint8_t>(0x80 | (codePoint & 0x3F)));
    } else {
        out.push_back(static_cast<std::uint8_t>(0xF0 | (codePoint >> 18)));
        out.push_back(static_cast<std::uint8_t>(0x80 | ((codePoint >> 12) & 0x3F)));
        out.push_back(static_cast<std::uint8_t>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<std::uint8_t>(0x80 | (codePoint & 0x3F)));
    }
}

// Calls `each` with every code point of the text; a surrogate without its partner is passed as
// itself, for the caller to refuse.
template <class Each>
void ForEachCodePoint(const CString& text, Each each) {
    const std::u16string_view units = text.View();
    for (std::size_t index = 0; index < units.size(); ++index) {
        const char16_t unit = units[index];
        if (IsHighSurrogate(unit) && index + 1 < units.size() && IsLowSurrogate(units[index + 1])) {
            each(0x10000 + ((char32_t(unit) - 0xD800) << 10) + (units[index + 1] - 0xDC00));
            ++index;
        } else {
            each(char32_t(unit));
        }
    }
}

bool IsSurrogate(char32_t codePoint) {
    return codePoint >= 0xD800 && codePoint <= 0xDFFF;
}

bool StartsWith(const std::vector<std::uint8_t>& bytes, std::initializer_list<std::uint8_t> mark) {
    return bytes.size() >= mark.size() && std::equal(mark.begin(), mark.end(), bytes.begin());
}

bool IsReadable(unsigned flags) {
    return (flags & 0x3) != CFile::modeWrite;
}

} // namespace

CStdioFileEx::CStdioFileEx() = default;

CStdioFileEx::CStdioFileEx(const CString& path, unsigned flags) {
    CFileException error;
    if (!Open(path, flags, &error))
        throw error;
}

CStdioFileEx::~CStdioFileEx() {
    if (!IsOpen())
        return;
    try {
        FlushWriteBuffer();
    } catch (const CFileException&) {
        // A destructor cannot report; Close is the call that tells.
    }
}

unsigned CStdioFileEx::ProcessFlags(const CString&, unsigned flags) {
    ResetState();
    if (!(flags & modeUseCodePage))
        m_codePage = GetCurrentLocaleCodePage();
    m_encoding = (flags & modeWriteUnicode) ? Encoding::Utf16LittleEndian : Encoding::Narrow;
    return flags & ~(modeWriteUnicode | modeUseCodePage);
}

bool CStdioFileEx::Open(const CString& path, unsigned flags, CFileException* error) {
    const unsigned plainFlags = ProcessFlags(path, flags);
    if (!CFile::Open(path, plainFlags, error))
        return false;
    if (!IsReadable(plainFlags))
        return true;
    try {
        DetectEncoding();
    } catch (const CFileException& failure) {
        Abort();
        if (error)
            *error = failure;
        return false;
    }
    return true;
}

void CStdioFileEx::ResetState() {
    m_readBuffer.clear();
    m_readOffset = 0;
    m_writeBuffer.clear();
    m_bomSize = 0;
    m_encoding = Encoding::Narrow;
}

void CStdioFileEx::DetectEncoding() {
    std::vector<std::uint8_t> start(3);
    start.resize(CFile::Read(start.data(), 3));
    if (start.empty())
        return;
    m_encoding = Encoding::Narrow;
    if (StartsWith(start, {0xFF, 0xFE})) {
        m_encoding = Encoding::Utf16LittleEndian;
        m_bomSize = 2;
    } else if (StartsWith(start, {0xFE, 0xFF})) {
        m_encoding = Encoding::Utf16BigEndian;
        m_bomSize = 2;
    } else if (StartsWith(start, {0xEF, 0xBB, 0xBF})) {
        m_codePage = c_codePageUtf8;
        m_bomSize = 3;
    }
    CFile::Seek(m_bomSize, begin);
}

std::vector<std::uint8_t> CStdioFileEx::ByteOrderMark() const {
    switch (m_encoding) {
    case Encoding::Utf16LittleEndian:
        return {0xFF, 0xFE};
    case Encoding::Utf16BigEndian:
        return {0xFE, 0xFF};
    case Encoding::Narrow:
        if (m_writeBOM && m_codePage == c_codePageUtf8)
            return {0xEF, 0xBB, 0xBF};
        return {};
    }
    return {};
}

std::vector<std::uint8_t> CStdioFileEx::Encode(const CString& text) const {
    std::vector<std::uint8_t> bytes;
    if (m_encoding != Encoding::Narrow) {
        const bool bigEndian = m_encoding == Encoding::Utf16BigEndian;
        bytes.reserve(2 * static_cast<std::size_t>(text.GetLength()));
        for (const char16_t unit : text.View()) {
            const auto low = static_cast<std::uint8_t>(unit & 0xFF);
            const auto high = static_cast<std::uint8_t>(unit >> 8);
            bytes.push_back(bigEndian ? high : low);
            bytes.push_back(bigEndian ? low : high);
        }
        return bytes;
    }
    return EncodeNarrow(text, m_codePage, m_fillerChar);
}

CString CStdioFileEx::Decode(const std::uint8_t* bytes, std::size_t count) const {
    if (m_encoding != Encoding::Narrow) {
        const bool bigEndian = m_encoding == Encoding::Utf16BigEndian;
        std::u16string units;
        units.reserve(count / 2 + 1);
        for (std::size_t index = 0; index + 1 < count; index += 2) {
            const char16_t first = bytes[index];
            const char16_t second = bytes[index + 1];
            units.push_back(bigEndian ? char16_t(first << 8 | second)
                                      : char16_t(second << 8 | first));
        }
        if (count % 2 != 0)
            units.push_back(c_replacementChar);
        return CString(units);
    }
    return DecodeNarrow(bytes, count, m_codePage);
}

std::vector<std::uint8_t> CStdioFileEx::EncodeNarrow(const CString& text, unsigned codePage,
                                                     char fillerChar) {
    std::vector<std::uint8_t> bytes;
    const NarrowPage page = PageKind(codePage);
    const auto filler = static_cast<std::uint8_t>(fillerChar);
    bytes.reserve(static_cast<std::size_t>(text.GetLength()));
    ForEachCodePoint(text, [&](char32_t codePoint) {
        if (page == NarrowPage::Utf8) {
            if (IsSurrogate(codePoint))
                bytes.push_back(filler);
            else
                AppendUtf8(bytes, codePoint);
            return;
        }
        const int byte = EncodeNarrowByte(codePoint, page);
        bytes.push_back(byte < 0 ? filler : static_cast<std::uint8_t>(byte));
    });
    return bytes;
}

CString CStdioFileEx::DecodeNarrow(const std::uint8_t* bytes, std::size_t count,
                                   unsigned codePage) {
    const NarrowPage page = PageKind(codePage);
    if (page == NarrowPage::Utf8)
        return CString::FromUtf8(std::string_view(reinterpret_cast<const char*>(bytes), count));
    std::u16string units(count, u'\0');
    for (std::size_t index = 0; index < count; ++index)
        units[index] = DecodeNarrowByte(bytes[index], page);
    return CString(units);
}

bool CStdioFileEx::ReadString(CString& line) {
    FlushWriteBuffer();
    const std::size_t unit = IsFileUnicodeText() ? 2 : 1;
    const bool bigEndian = m_encoding == Encoding::Utf16BigEndian;
    std::vector<std::uint8_t> bytes;
    bool consumedAny = false;
    bool endOfLine = false;
    while (!endOfLine) {
        if (UnreadBytes() < unit && !FillReadBuffer())
            break;
        const std::uint8_t* data = m_readBuffer.data() + m_readOffset;
        const std::size_t available = UnreadBytes() - UnreadBytes() % unit;
        std::size_t taken = 0;
        while (taken < available) {
            const bool isNewline = unit == 1 ? data[taken] == '\n'
                                             : data[taken + (bigEndian ? 1 : 0)] == '\n' &&
                                                   data[taken + (bigEndian ? 0 : 1)] == 0;
            if (isNewline) {
                endOfLine = true;
                break;
            }
            taken += unit;
        }
        bytes.insert(bytes.end(), data, data + taken);
        m_readOffset += endOfLine ? taken + unit : taken;
        consumedAny = true;
    }
    // An odd byte at the end of a UTF-16 file.
    if (!endOfLine && UnreadBytes() > 0) {
        bytes.insert(bytes.end(), m_readBuffer.begin() + static_cast<long>(m_readOffset),
                     m_readBuffer.end());
        m_readOffset = m_readBuffer.size();
        consumedAny = true;
    }
    if (!consumedAny)
        return false;
    line = Decode(bytes.data(), bytes.size());
    if (!line.IsEmpty() && line[line.GetLength() - 1] == u'\r')
        line = line.Left(line.GetLength() - 1);
    return true;
}

void CStdioFileEx::WriteString(const CString& text) {
    std::vector<std::uint8_t> bytes;
    if (GetPosition() == 0) {
        bytes = ByteOrderMark();
        m_bomSize = static_cast<unsigned>(bytes.size());
    }
    const std::vector<std::uint8_t> encoded = Encode(text);
    bytes.insert(bytes.end(), encoded.begin(), encoded.end());
    if (!bytes.empty())
        Write(bytes.data(), static_cast<unsigned>(bytes.size()));
}

unsigned long long CStdioFileEx::GetCharCount() {
    SyncPosition();
    const unsigned long long position = CFile::GetPosition();
    CFile::Seek(m_bomSize, begin);
    std::vector<std::uint8_t> content;
    std::vector<std::uint8_t> chunk(c_bufferSize);
    for (unsigned got; (got = CFile::Read(chunk.data(), c_bufferSize)) > 0;)
        content.insert(content.end(), chunk.begin(), chunk.begin() + got);
    CFile::Seek(static_cast<long long>(position), begin);
    return static_cast<unsigned long long>(Decode(content.data(), content.size()).GetLength());
}

bool CStdioFileEx::FillReadBuffer() {
    m_readBuffer.erase(m_readBuffer.begin(),
                       m_readBuffer.begin() + static_cast<long>(m_readOffset));
    m_readOffset = 0;
    const std::size_t kept = m_readBuffer.size();
    m_readBuffer.resize(kept + c_bufferSize);
    const unsigned got = CFile::Read(m_readBuffer.data() + kept, c_bufferSize);
    m_readBuffer.resize(kept + got);
    return got > 0;
}

void CStdioFileEx::FlushWriteBuffer() {
    if (m_writeBuffer.empty())
        return;
    std::vector<std::uint8_t> pending;
    pending.swap(m_writeBuffer);
    CFile::Write(pending.data(), static_cast<unsigned>(pending.size()));
}

void CStdioFileEx::DropReadBuffer() {
    const std::size_t unread = UnreadBytes();
    m_readBuffer.clear();
    m_readOffset = 0;
    if (unread > 0)
        CFile::Seek(-static_cast<long long>(unread), current);
}

void CStdioFileEx::SyncPosition() {
    FlushWriteBuffer();
    DropReadBuffer();
}

unsigned CStdioFileEx::Read(void* buffer, unsigned count) {
    FlushWriteBuffer();
    const std::size_t fromBuffer = std::min<std::size_t>(count, UnreadBytes());
    if (fromBuffer > 0)
        std::memcpy(buffer, m_readBuffer.data() + m_readOffset, fromBuffer);
    m_readOffset += fromBuffer;
    if (fromBuffer == count)
        return count;
    const unsigned rest = count - static_cast<unsigned>(fromBuffer);
    return static_cast<unsigned>(fromBuffer) +
           CFile::Read(static_cast<std::uint8_t*>(buffer) + fromBuffer, rest);
}

void CStdioFileEx::Write(const void* buffer, unsigned count) {
    DropReadBuffer();
    const auto* bytes = static_cast<const std::uint8_t*>(buffer);
    m_writeBuffer.insert(m_writeBuffer.end(), bytes, bytes + count);
    if (m_writeBuffer.size() >= c_bufferSize)
        FlushWriteBuffer();
}

unsigned long long CStdioFileEx::Seek(long long offset, SeekPosition from) {
    SyncPosition();
    return CFile::Seek(offset, from);
}

unsigned long long CStdioFileEx::GetPosition() const {
    return CFile::GetPosition() - UnreadBytes() + m_writeBuffer.size();
}

unsigned long long CStdioFileEx::GetLength() const {
    return std::max(CFile::GetLength(), CFile::GetPosition() + m_writeBuffer.size());
}

void CStdioFileEx::SetLength(unsigned long long length) {
    SyncPosition();
    CFile::SetLength(length);
}

void CStdioFileEx::Flush() {
    FlushWriteBuffer();
    CFile::Flush();
}

void CStdioFileEx::Close() {
    if (IsOpen()) {
        try {
            FlushWriteBuffer();
        } catch (const CFileException&) {
            Abort();
            throw;
        }
    }
    ResetState();
    CFile::Close();
}

void CStdioFileEx::Abort() {
    ResetState();
    CFile::Abort();
}

} // namespace keel
