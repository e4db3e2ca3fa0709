#include "keel/tables/rowlines.h"

#include <cstring>

namespace keel {

namespace {

constexpr std::size_t c_blockSize = 1 << 16;

} // namespace

QRowLineReader::QRowLineReader(CStdioFileEx& file)
    : m_file(file), m_narrow(!file.IsFileUnicodeText()) {}

bool QRowLineReader::ReadLine(CString& line) {
    if (!m_narrow)
        return m_file.ReadString(line);
    std::size_t searched = m_at;
    for (;;) {
        const void* newline =
            searched < m_buffer.size()
                ? std::memchr(m_buffer.data() + searched, '\n', m_buffer.size() - searched)
                : nullptr;
        if (newline) {
            const auto end = static_cast<std::size_t>(static_cast<const std::uint8_t*>(newline) -
                                                      m_buffer.data());
            line = LineOf(m_buffer.data() + m_at, end - m_at);
            m_at = end + 1;
            return true;
        }
        searched = m_buffer.size() - m_at;
        if (ReadBlock())
            continue;
        if (m_at == m_buffer.size())
            return false;
        line = LineOf(m_buffer.data() + m_at, m_buffer.size() - m_at);
        m_at = m_buffer.size();
        return true;
    }
}

bool QRowLineReader::ReadBlock() {
    m_buffer.erase(m_buffer.begin(), m_buffer.begin() + static_cast<long>(m_at));
    m_at = 0;
    const std::size_t kept = m_buffer.size();
    m_buffer.resize(kept + c_blockSize);
    const unsigned got = m_file.Read(m_buffer.data() + kept, c_blockSize);
    m_buffer.resize(kept + got);
    return got > 0;
}

// A "\r" that ends the line goes, after the decoding for a line that needs it.
CString QRowLineReader::LineOf(const std::uint8_t* bytes, std::size_t count) {
    m_widened.resize(count);
    std::uint8_t bits = 0;
    for (std::size_t i = 0; i < count; ++i) {
        bits |= bytes[i];
        m_widened[i] = bytes[i];
    }
    if ((bits & 0x80) == 0) {
        const bool withReturn = count > 0 && bytes[count - 1] == '\r';
        return CString(std::u16string_view(m_widened.data(), withReturn ? count - 1 : count));
    }
    const CString line = CStdioFileEx::DecodeNarrow(bytes, count, m_file.GetCodePage());
    const bool withReturn = !line.IsEmpty() && line[line.GetLength() - 1] == u'\r';
    return withReturn ? line.Left(line.GetLength() - 1) : line;
}

} // namespace keel
