#include "tests/support/tempfolder.h"

#include "keel/platform/stdiofileex.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

namespace keel {
namespace {

using test::Bytes;
using namespace std::string_view_literals;

Bytes B(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

class TextFile : public test::TempFolderTest {
protected:
    // Every line read, each followed by a line feed.
    CString ReadLines(const std::string& name, unsigned extraFlags = 0,
                      unsigned codePage = 0) const {
        CStdioFileEx file;
        if (codePage != 0)
            file.SetCodePage(codePage);
        EXPECT_TRUE(file.Open(PathOf(name), CFile::modeRead | CFile::typeText | extraFlags));
        CString lines;
        for (CString line; file.ReadString(line);)
            lines += line + u'\n';
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

TEST_F(TextFile, EachEncodingWritesItsBytesAndReadsBackByteForByte) {
    constexpr unsigned unicode = CStdioFileEx::modeWriteUnicode;
    // What reading the file gives back is the text less what the encoding could not hold.
    const struct {
        unsigned extraFlags, codePage;
        bool mark;
        const char16_t* text;
        std::string_view bytes;
        const char16_t* lines;
    } cases[] = {{unicode, 0, false, u"A\u00e9\u20ac\U0001F600\nB\n",
                  "\xFF\xFE\x41\x00\xE9\x00\xAC\x20\x3D\xD8\x00\xDE\x0A\x00\x42\x00\x0A\x00"sv,
                  u"A\u00e9\u20ac\U0001F600\nB\n"},
                 {0, CStdioFileEx::c_codePageUtf8, false, u"A\u00e9\u20ac\U0001F600\nB\n",
                  "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\nB\n", u"A\u00e9\u20ac\U0001F600\nB\n"},
                 {0, CStdioFileEx::c_codePageUtf8, true, u"A\u00e9\n", "\xEF\xBB\xBF\x41\xC3\xA9\n",
                  u"A\u00e9\n"},
                 {0, CStdioFileEx::c_codePageWindowsWestern, false,
                  u"A\u00e9\u20ac\u0100\U0001F600\n\u0178\u2122\n", "A\xE9\x80??\n\x9F\x99\n",
                  u"A\u00e9\u20ac??\n\u0178\u2122\n"},
                 {0, CStdioFileEx::c_codePageLatin1, false, u"A\u00e9\u20ac\u0085\n",
                  "A\xE9?\x85\n", u"A\u00e9?\u0085\n"},
                 {0, CStdioFileEx::c_codePageAscii, false, u"A\u00e9~\n", "A?~\n", u"A?~\n"}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.codePage);
        WriteWith("first.txt", test.extraFlags, test.codePage, test.mark, test.text);
        EXPECT_EQ(ReadBytes("first.txt"), B(test.bytes));
        const CString lines = ReadLines("first.txt", CStdioFileEx::modeUseCodePage, test.codePage);
        EXPECT_EQ(lines, CString(test.lines));
        WriteWith("second.txt", test.extraFlags, test.codePage, test.mark, lines);
        EXPECT_EQ(ReadBytes("second.txt"), B(test.bytes));
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
    const CString lines =
        ReadLines("all.txt", CStdioFileEx::modeUseCodePage, CStdioFileEx::c_codePageWindowsWestern);
    ASSERT_EQ(lines.GetLength(), 255);
    // Byte 0x80, after the 0x80 bytes before it less line feed and carriage return.
    EXPECT_EQ(lines[0x80 - 2], u'\u20ac');
    WriteWith("again.txt", 0, CStdioFileEx::c_codePageWindowsWestern, false, lines);
    EXPECT_EQ(ReadBytes("again.txt"), bytes);
}

TEST_F(TextFile, TheFirstBytesDecideTheEncodingAndLinesEndAtLineFeeds) {
    const struct {
        std::string_view bytes;
        bool unicode;
        const char16_t* lines;
    } cases[] = {{"\xFF\xFE\x41\0\n\0\xE9\0"sv, true, u"A\n\u00e9\n"},
                 {"\xFE\xFF\0\x41\0\n\x20\xAC"sv, true, u"A\n\u20ac\n"},
                 {"\xFF\xFE\x41\0\x42"sv, true, u"A\uFFFD\n"},
                 {"\xEF\xBB\xBF\xC3\xA9", false, u"\u00e9\n"},
                 {"\xE9\n", false, u"\u00e9\n"},
                 {"\xFF", false, u"\u00ff\n"},
                 {"a\r\nb\n\nc\rd\r", false, u"a\nb\n\nc\rd\n"},
                 {"", false, u""},
                 {"\n", false, u"\n"}};
    for (const auto& test : cases) {
        SCOPED_TRACE(CString(test.lines).ToUtf8());
        WriteBytes("marked.txt", B(test.bytes));
        CStdioFileEx file;
        file.SetCodePage(CStdioFileEx::c_codePageWindowsWestern);
        ASSERT_TRUE(
            file.Open(PathOf("marked.txt"), CFile::modeRead | CStdioFileEx::modeUseCodePage));
        EXPECT_EQ(file.IsFileUnicodeText(), test.unicode);
        CString lines;
        for (CString line; file.ReadString(line);)
            lines += line + u'\n';
        EXPECT_EQ(lines, CString(test.lines));
    }
}

TEST_F(TextFile, TheCodePageIsUtf8UnlessKeptAndAnUnknownPageReadsAs1252) {
    WriteBytes("latin.txt", B("\xE9\n\xC3\xA9\n\x80\n"));
    CStdioFileEx file;
    file.SetCodePage(CStdioFileEx::c_codePageLatin1);
    ASSERT_TRUE(file.Open(PathOf("latin.txt"), CFile::modeRead));
    EXPECT_EQ(file.GetCodePage(), 65001u);
    CString line;
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\uFFFD"));
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\u00e9"));
    file.SetCodePage(437);
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\u20ac")) << "from the next line on";
}

TEST_F(TextFile, LongLinesAndCharactersAcrossTheReadBuffer) {
    // The two-byte character sits across the 64 KiB boundary of the reader's buffer.
    const std::string first = std::string(65535, 'x') + "\xC3\xA9";
    WriteBytes("long.txt", B(first + "\n" + std::string(200000, 'y')));
    EXPECT_EQ(ReadLines("long.txt"),
              CString::FromUtf8(first) + u'\n' + CString(u'y', 200000) + u'\n');
}

TEST_F(TextFile, WritingTranslatesNoLineEndsAndPutsTheMarkOnlyAtTheStart) {
    WriteWith("as-is.txt", 0, CStdioFileEx::c_codePageUtf8, false, u"a\nb\r\nc");
    EXPECT_EQ(ReadBytes("as-is.txt"), B("a\nb\r\nc"));
    {
        CStdioFileEx file;
        ASSERT_TRUE(file.Open(PathOf("mark.txt"), CFile::modeCreate | CFile::modeWrite |
                                                      CStdioFileEx::modeWriteUnicode));
        EXPECT_TRUE(file.IsFileUnicodeText());
        file.WriteString(u"a");
        file.WriteString(u"b");
        // What is buffered reaches the disk when the object goes.
    }
    EXPECT_EQ(ReadBytes("mark.txt"), B("\xFF\xFE\x61\0\x62\0"sv));
    // Abort closes the file and drops what is still buffered.
    CStdioFileEx file(PathOf("aborted.txt"), CFile::modeCreate | CFile::modeWrite);
    file.WriteString(u"lost");
    file.Abort();
    EXPECT_FALSE(file.IsOpen());
    EXPECT_TRUE(ReadBytes("aborted.txt").empty());
}

TEST_F(TextFile, CharCountLeavesTheMarkOutAndThePositionAlone) {
    WriteBytes("count.txt", B("\xFF\xFE\x61\0\x62\0\n\0"sv));
    CStdioFileEx file(PathOf("count.txt"), CFile::modeRead);
    CString line;
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(file.GetCharCount(), 3u);
    EXPECT_EQ(file.GetPosition(), 8u);
}

TEST_F(TextFile, SeekingDropsWhatWasReadAhead) {
    WriteBytes("seek.txt", B("a\nb\nc\n"));
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

} // namespace
} // namespace keel
