#include "tests/support/tempfolder.h"

#include "keel/platform/stdiofileex.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

using test::Bytes;

class TextFile : public test::TempFolderTest {
protected:
    std::vector<CString> ReadLines(const std::string& name, unsigned extraFlags = 0,
                                   unsigned codePage = 0) const {
        CStdioFileEx file;
        if (codePage != 0)
            file.SetCodePage(codePage);
        EXPECT_TRUE(file.Open(PathOf(name), CFile::modeRead | CFile::typeText | extraFlags));
        std::vector<CString> lines;
        for (CString line; file.ReadString(line);)
            lines.push_back(line);
        return lines;
    }
    // How a file is written: the extra open flags and the settings made after opening.
    void WriteWith(const std::string& name, unsigned extraFlags, unsigned codePage, bool mark,
                   const CString& text) const {
        CStdioFileEx file;
        ASSERT_TRUE(file.Open(PathOf(name), CFile::modeCreate | CFile::modeWrite | extraFlags));
        if (codePage != 0)
            file.SetCodePage(codePage);
        file.SetWriteBOM(mark);
        file.WriteString(text);
        file.Close();
    }
};

std::vector<CString> Lines(std::initializer_list<const char16_t*> lines) {
    return std::vector<CString>(lines.begin(), lines.end());
}

TEST_F(TextFile, EachEncodingWritesItsBytesAndReadsBackByteForByte) {
    const struct {
        const char* name;
        unsigned extraFlags;
        unsigned codePage;
        bool mark;
        const char16_t* text;
        Bytes bytes;
        // What reading the file gives back: the text less what the encoding could not hold.
        std::vector<CString> lines;
    } cases[] = {{"UTF-16",
                  CStdioFileEx::modeWriteUnicode,
                  0,
                  false,
                  u"A\u00e9\u20ac\U0001F600\nB\n",
                  {0xFF, 0xFE, 0x41, 0x00, 0xE9, 0x00, 0xAC, 0x20, 0x3D, 0xD8, 0x00, 0xDE, 0x0A,
                   0x00, 0x42, 0x00, 0x0A, 0x00},
                  Lines({u"A\u00e9\u20ac\U0001F600", u"B"})},
                 {"UTF-8",
                  0,
                  CStdioFileEx::c_codePageUtf8,
                  false,
                  u"A\u00e9\u20ac\U0001F600\nB\n",
                  {0x41, 0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98, 0x80, 0x0A, 0x42, 0x0A},
                  Lines({u"A\u00e9\u20ac\U0001F600", u"B"})},
                 {"UTF-8 with mark",
                  0,
                  CStdioFileEx::c_codePageUtf8,
                  true,
                  u"A\u00e9\n",
                  {0xEF, 0xBB, 0xBF, 0x41, 0xC3, 0xA9, 0x0A},
                  Lines({u"A\u00e9"})},
                 {"1252",
                  0,
                  CStdioFileEx::c_codePageWindowsWestern,
                  false,
                  u"A\u00e9\u20ac\u0100\U0001F600\n\u0178\u2122\n",
                  {0x41, 0xE9, 0x80, 0x3F, 0x3F, 0x0A, 0x9F, 0x99, 0x0A},
                  Lines({u"A\u00e9\u20ac??", u"\u0178\u2122"})},
                 {"28591",
                  0,
                  CStdioFileEx::c_codePageLatin1,
                  false,
                  u"A\u00e9\u20ac\u0085\n",
                  {0x41, 0xE9, 0x3F, 0x85, 0x0A},
                  Lines({u"A\u00e9?\u0085"})},
                 {"20127",
                  0,
                  CStdioFileEx::c_codePageAscii,
                  false,
                  u"A\u00e9~\n",
                  {0x41, 0x3F, 0x7E, 0x0A},
                  Lines({u"A?~"})}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        WriteWith("first.txt", test.extraFlags, test.codePage, test.mark, test.text);
        EXPECT_EQ(ReadBytes("first.txt"), test.bytes);
        const std::vector<CString> lines =
            ReadLines("first.txt", CStdioFileEx::modeUseCodePage, test.codePage);
        EXPECT_EQ(lines, test.lines);
        CString again;
        for (const CString& line : lines)
            again += line + u"\n";
        WriteWith("second.txt", test.extraFlags, test.codePage, test.mark, again);
        EXPECT_EQ(ReadBytes("second.txt"), test.bytes);
    }
}

TEST_F(TextFile, EveryByteOfCodePage1252ReadsAndWritesBack) {
    Bytes bytes;
    for (int byte = 0; byte < 256; ++byte) {
        if (byte != '\n' && byte != '\r')
            bytes.push_back(static_cast<std::uint8_t>(byte));
    }
    bytes.push_back('\n');
    WriteBytes("all.txt", bytes);
    const std::vector<CString> lines =
        ReadLines("all.txt", CStdioFileEx::modeUseCodePage, CStdioFileEx::c_codePageWindowsWestern);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].GetLength(), 254);
    // Byte 0x80, after the 0x80 bytes before it less line feed and carriage return.
    EXPECT_EQ(lines[0][0x80 - 2], u'\u20ac');
    WriteWith("again.txt", 0, CStdioFileEx::c_codePageWindowsWestern, false, lines[0] + u"\n");
    EXPECT_EQ(ReadBytes("again.txt"), bytes);

    // The filler stands for what the code page cannot hold, one for a character beyond 16 bits.
    CStdioFileEx file;
    ASSERT_TRUE(file.Open(PathOf("filled.txt"), CFile::modeCreate | CFile::modeWrite));
    file.SetCodePage(CStdioFileEx::c_codePageLatin1);
    file.SetFillerChar('#');
    file.WriteString(u"a\u0100\U0001F600b\xD800");
    file.Close();
    EXPECT_EQ(ReadBytes("filled.txt"), (Bytes{'a', '#', '#', 'b', '#'}));
}

TEST_F(TextFile, TheFirstBytesDecideTheEncodingAndLinesEndAtLineFeeds) {
    const struct {
        const char* name;
        Bytes bytes;
        bool unicode;
        std::vector<CString> lines;
    } cases[] = {
        {"UTF-16 LE", {0xFF, 0xFE, 'A', 0, '\n', 0, 0xE9, 0}, true, Lines({u"A", u"\u00e9"})},
        {"UTF-16 BE", {0xFE, 0xFF, 0, 'A', 0, '\n', 0x20, 0xAC}, true, Lines({u"A", u"\u20ac"})},
        {"UTF-16 odd byte", {0xFF, 0xFE, 'A', 0, 'B'}, true, Lines({u"A\uFFFD"})},
        {"UTF-8 mark over 1252", {0xEF, 0xBB, 0xBF, 0xC3, 0xA9}, false, Lines({u"\u00e9"})},
        {"no mark: the code page", {0xE9, '\n'}, false, Lines({u"\u00e9"})},
        {"a lone byte", {0xFF}, false, Lines({u"\u00ff"})},
        {"line ends",
         {'a', '\r', '\n', 'b', '\n', '\n', 'c', '\r', 'd', '\r'},
         false,
         Lines({u"a", u"b", u"", u"c\rd"})},
        {"final line feed", {'a', '\n'}, false, Lines({u"a"})},
        {"empty", {}, false, {}},
        {"blank line", {'\n'}, false, Lines({u""})}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        WriteBytes("marked.txt", test.bytes);
        CStdioFileEx file;
        file.SetCodePage(CStdioFileEx::c_codePageWindowsWestern);
        ASSERT_TRUE(
            file.Open(PathOf("marked.txt"), CFile::modeRead | CStdioFileEx::modeUseCodePage));
        EXPECT_EQ(file.IsFileUnicodeText(), test.unicode);
        std::vector<CString> lines;
        for (CString line; file.ReadString(line);)
            lines.push_back(line);
        EXPECT_EQ(lines, test.lines);
    }
}

TEST_F(TextFile, TheCodePageIsTheLocalesUnlessKeptOrChangedWhileOpen) {
    EXPECT_EQ(CStdioFileEx::GetCurrentLocaleCodePage(), 65001u);
    WriteBytes("latin.txt", {0xE9, '\n', 0xC3, 0xA9, '\n', 0x80, '\n'});
    CStdioFileEx file;
    file.SetCodePage(CStdioFileEx::c_codePageLatin1);
    ASSERT_TRUE(file.Open(PathOf("latin.txt"), CFile::modeRead));
    EXPECT_EQ(file.GetCodePage(), 65001u);
    CString line;
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\uFFFD"));
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\u00e9"));
    // Any page this system does not know is read as 1252, from the next line on.
    file.SetCodePage(437);
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\u20ac"));
    file.Close();

    file.SetCodePage(CStdioFileEx::c_codePageLatin1);
    ASSERT_TRUE(file.Open(PathOf("latin.txt"), CFile::modeRead | CStdioFileEx::modeUseCodePage));
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\u00e9"));
}

TEST_F(TextFile, LongLinesAndCharactersAcrossTheReadBuffer) {
    // The two-byte character sits across the 64 KiB boundary of the reader's buffer.
    std::string first(65535, 'x');
    first += "\xC3\xA9";
    Bytes bytes(first.begin(), first.end());
    bytes.push_back('\n');
    bytes.insert(bytes.end(), 200000, 'y');
    WriteBytes("long.txt", bytes);
    const std::vector<CString> lines = ReadLines("long.txt");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], CString::FromUtf8(first));
    EXPECT_EQ(lines[1].GetLength(), 200000);
}

TEST_F(TextFile, WritingTranslatesNoLineEndsAndPutsTheMarkOnlyAtTheStart) {
    WriteWith("as-is.txt", 0, CStdioFileEx::c_codePageUtf8, false, u"a\nb\r\nc");
    EXPECT_EQ(ReadBytes("as-is.txt"), (Bytes{'a', '\n', 'b', '\r', '\n', 'c'}));
    {
        CStdioFileEx file;
        ASSERT_TRUE(file.Open(PathOf("mark.txt"), CFile::modeCreate | CFile::modeWrite |
                                                      CStdioFileEx::modeWriteUnicode));
        EXPECT_TRUE(file.IsFileUnicodeText());
        file.WriteString(u"a");
        file.WriteString(u"b");
        // What is buffered reaches the disk when the object goes.
    }
    EXPECT_EQ(ReadBytes("mark.txt"), (Bytes{0xFF, 0xFE, 'a', 0, 'b', 0}));
}

TEST_F(TextFile, CharCountLeavesTheMarkOutAndThePositionAlone) {
    const struct {
        Bytes bytes;
        unsigned long long count;
    } cases[] = {{{0xFF, 0xFE, 'a', 0, 'b', 0, '\n', 0}, 3},
                 {{0xEF, 0xBB, 0xBF, 0xC3, 0xA9, 0xF0, 0x9F, 0x98, 0x80}, 3},
                 {{'a', 'b'}, 2},
                 {{}, 0}};
    for (const auto& test : cases) {
        WriteBytes("count.txt", test.bytes);
        CStdioFileEx file(PathOf("count.txt"), CFile::modeRead);
        CString line;
        file.ReadString(line);
        const unsigned long long position = file.GetPosition();
        EXPECT_EQ(file.GetCharCount(), test.count);
        EXPECT_EQ(file.GetPosition(), position);
    }
}

TEST_F(TextFile, ThePositionCountsWhatWasReadAndSeekingDropsWhatWasReadAhead) {
    WriteBytes("position.txt", {'o', 'n', 'e', '\n', 't', 'w', 'o', '\n'});
    {
        CStdioFileEx file(PathOf("position.txt"), CFile::modeReadWrite);
        CString line;
        ASSERT_TRUE(file.ReadString(line));
        EXPECT_EQ(file.GetPosition(), 4u);
        file.WriteString(u"TWO\n");
        EXPECT_EQ(file.GetPosition(), 8u);
        EXPECT_EQ(file.GetLength(), 8u);
    }
    EXPECT_EQ(ReadBytes("position.txt"), (Bytes{'o', 'n', 'e', '\n', 'T', 'W', 'O', '\n'}));

    WriteBytes("seek.txt", {'a', '\n', 'b', '\n', 'c', '\n'});
    CStdioFileEx file(PathOf("seek.txt"), CFile::modeRead);
    CString line;
    ASSERT_TRUE(file.ReadString(line));
    ASSERT_TRUE(file.ReadString(line));
    file.Seek(2, CFile::begin);
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"b"));
    char byte = 0;
    EXPECT_EQ(file.Read(&byte, 1), 1u);
    EXPECT_EQ(byte, 'c');
}

TEST_F(TextFile, AFileThatCannotBeOpenedSaysWhy) {
    CStdioFileEx file;
    CFileException error;
    EXPECT_FALSE(file.Open(PathOf("missing.txt"), CFile::modeRead, &error));
    EXPECT_EQ(error.m_cause, CFileException::fileNotFound);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_THROW(CStdioFileEx(PathOf("missing.txt"), CFile::modeRead), CFileException);
}

} // namespace
} // namespace keel
