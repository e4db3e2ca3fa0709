#pragma once

#include "keel/platform/cstring.h"
#include "keel/platform/stdiofileex.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace keel {

// The lines of a table file from where the file stands, to its end, as the file's ReadString
// gives them. A file of one byte a character or of UTF-8 is read in large blocks, and a line of
// ASCII alone is widened as it stands, which every narrow code page reads alike; any other line
// goes through the file's own decoding. A UTF-16 file is read by the file, line by line. Once
// this reader has read, the file's position is past what it gave.
class QRowLineReader {
public:
    explicit QRowLineReader(CStdioFileEx& file);
    QRowLineReader(const QRowLineReader&) = delete;
    QRowLineReader& operator=(const QRowLineReader&) = delete;

    // The next line without its "\n" or "\r\n"; false at the end of the file.
    bool ReadLine(CString& line);

private:
    // Reads another block behind what is unread; false when the file has nothing more.
    bool ReadBlock();
    CString LineOf(const std::uint8_t* bytes, std::size_t count);

    CStdioFileEx& m_file;
    bool m_narrow;
    std::vector<std::uint8_t> m_buffer;
    std::size_t m_at = 0;
    std::u16string m_widened;
};

} // namespace keel
