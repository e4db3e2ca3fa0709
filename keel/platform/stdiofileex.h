#pragma once

#include "keel/platform/cstring.h"
#include "keel/platform/file.h"

#include <cstdint>
#include <vector>

namespace keel {

// A text file, line by line, in one of three encodings:
// - UTF-16 ("Unicode" text), little-endian when written; read in either byte order;
// - UTF-8, the code page 65001;
// - a narrow code page of one byte a character: 1252 (Windows Western), 28591 (Latin-1) or
//   20127 (ASCII). Any other page number is read and written as 1252.
// When a file is opened for reading, its first bytes decide: FF FE is UTF-16 little-endian,
// FE FF UTF-16 big-endian, EF BB BF UTF-8; without such a mark the text is in the code page.
// Lines end with "\n"; a "\r" before it is dropped on reading. Nothing is translated on writing:
// a "\n" in the text is written as it is.
class CStdioFileEx : public CFile {
public:
    // Flags added to CFile's open flags.
    // Writes UTF-16 little-endian text (a file opened for reading decides for itself).
    static constexpr unsigned modeWriteUnicode = 0x20000;
    // Keeps the code page set before Open; without it every Open starts in the code page of the
    // current locale.
    static constexpr unsigned modeUseCodePage = 0x40000;

    static constexpr unsigned c_codePageUtf8 = 65001;
    static constexpr unsigned c_codePageWindowsWestern = 1252;
    static constexpr unsigned c_codePageLatin1 = 28591;
    static constexpr unsigned c_codePageAscii = 20127;

    CStdioFileEx();
    // Opens the file or throws CFileException.
    CStdioFileEx(const CString& path, unsigned flags);
    // Writes what is still buffered; errors on the way are lost (call Close to see them).
    ~CStdioFileEx() override;

    bool Open(const CString& path, unsigned flags, CFileException* error = nullptr) override;

    // The next line without its "\n" or "\r\n"; false at the end of the file.
    bool ReadString(CString& line);
    // Writes the text in the file's encoding, starting the file with its byte order mark when
    // the text is the first thing written.
    void WriteString(const CString& text);

    // The code page of narrow text; it may be changed while the file is open.
    void SetCodePage(unsigned codePage) { m_codePage = codePage; }
    unsigned GetCodePage() const { return m_codePage; }
    // The byte written for a character that the code page cannot hold; '?' unless set.
    void SetFillerChar(char filler) { m_fillerChar = filler; }
    // Whether a file in code page 65001 starts with the UTF-8 byte order mark; off unless set.
    // UTF-16 files always start with their mark, which is how a reader knows them.
    void SetWriteBOM(bool writeBOM) { m_writeBOM = writeBOM; }
    // Whether the file's text is UTF-16.
    bool IsFileUnicodeText() const { return m_encoding != Encoding::Narrow; }
    // The characters (16-bit units) of text in the file, its byte order mark left out. The file
    // is read for it, so one opened for writing only throws CFileException.
    unsigned long long GetCharCount();
    // Text files on this system are UTF-8 whatever the locale says.
    static unsigned GetCurrentLocaleCodePage() { return c_codePageUtf8; }
    // Text in a narrow code page of the list above, and back; a character that the page cannot
    // hold is written as `filler`.
    static std::vector<std::uint8_t> EncodeNarrow(const CString& text, unsigned codePage,
                                                  char filler = '?');
    static CString DecodeNarrow(const std::uint8_t* bytes, std::size_t count, unsigned codePage);

    unsigned Read(void* buffer, unsigned count) override;
    void Write(const void* buffer, unsigned count) override;
    unsigned long long Seek(long long offset, SeekPosition from) override;
    unsigned long long GetPosition() const override;
    unsigned long long GetLength() const override;
    void SetLength(unsigned long long length) override;
    void Flush() override;
    void Close() override;
    void Abort() override;

protected:
    // Takes the extra flags out of `flags`, sets up the encoding they ask for, and returns the
    // flags that CFile understands.
    unsigned ProcessFlags(const CString& path, unsigned flags);

private:
    enum class Encoding { Narrow, Utf16LittleEndian, Utf16BigEndian };

    void ResetState();
    // Reads the byte order mark, if any, and leaves the file after it.
    void DetectEncoding();
    // The mark that starts a file of the current encoding; empty when it gets none.
    std::vector<std::uint8_t> ByteOrderMark() const;
    std::vector<std::uint8_t> Encode(const CString& text) const;
    CString Decode(const std::uint8_t* bytes, std::size_t count) const;
    // Fills the read buffer; false when the file has nothing more.
    bool FillReadBuffer();
    // Writes out what is buffered for writing and gives back what was read ahead, so that the
    // descriptor's position is the file's position.
    void SyncPosition();
    void FlushWriteBuffer();
    void DropReadBuffer();
    std::size_t UnreadBytes() const { return m_readBuffer.size() - m_readOffset; }

    Encoding m_encoding = Encoding::Narrow;
    unsigned m_codePage = GetCurrentLocaleCodePage();
    char m_fillerChar = '?';
    bool m_writeBOM = false;
    // The size of the byte order mark found or written at the start of the file.
    unsigned m_bomSize = 0;
    std::vector<std::uint8_t> m_readBuffer;
    std::size_t m_readOffset = 0;
    std::vector<std::uint8_t> m_writeBuffer;
};

} // namespace keel
