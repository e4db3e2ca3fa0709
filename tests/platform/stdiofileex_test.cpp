#include "keel/platform/stdiofileex.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

namespace keel {
namespace {

using Bytes = std::vector<std::uint8_t>;

class TextFile : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "keel-text-XXXXXX");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_directory = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_directory); }

    CString PathOf(const std::string& name) const {
        return CString::FromUtf8((m_directory / name).string());
    }
    void WriteBytes(const std::string& name, const Bytes& bytes) const {
        std::ofstream(m_directory / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    Bytes ReadBytes(const std::string& name) const {
        std::ifstream stream(m_directory / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
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

    std::filesystem::path m_directory;
};

// How a file is written: the extra open flags and the settings made after opening.
struct Encoding {
    const char* name;
    unsigned extraFlags;
    unsigned codePage;
    bool writeBOM;
};

const Encoding c_utf16{"UTF-16", CStdioFileEx::modeWriteUnicode, 0, false};
const Encoding c_utf8{"UTF-8", 0, CStdioFileEx::c_codePageUtf8, false};
const Encoding c_utf8WithMark{"UTF-8 with mark", 0, CStdioFileEx::c_codePageUtf8, true};
const Encoding c_windowsWestern{"1252", 0, CStdioFileEx::c_codePageWindowsWestern, false};
const Encoding c_latin1{"28591", 0, CStdioFileEx::c_codePageLatin1, false};
const Encoding c_ascii{"20127", 0, CStdioFileEx::c_codePageAscii, false};

struct RoundTripCase {
    Encoding encoding;
    const char16_t* text;
    Bytes expectedBytes;
    // What reading the file gives back: the text less what the encoding could not hold.
    std::vector<const char16_t*> expectedLines;
};

void WriteWith(const CString& path, const Encoding& encoding, const CString& text) {
    CStdioFileEx file;
    ASSERT_TRUE(file.Open(path, CFile::modeCreate | CFile::modeWrite | encoding.extraFlags));
    if (encoding.codePage != 0)
        file.SetCodePage(encoding.codePage);
    file.SetWriteBOM(encoding.writeBOM);
    file.WriteString(text);
    file.Close();
}

TEST_F(TextFile, EachEncodingWritesItsBytesAndReadsBackByteForByte) {
    const RoundTripCase cases[] = {
        {c_utf16,
         u"A\u00e9\u20ac\U0001F600\nB\n",
         {0xFF, 0xFE, 0x41, 0x00, 0xE9, 0x00, 0xAC, 0x20, 0x3D, 0xD8, 0x00, 0xDE, 0x0A, 0x00, 0x42,
          0x00, 0x0A, 0x00},
         {u"A\u00e9\u20ac\U0001F600", u"B"}},
        {c_utf8,
         u"A\u00e9\u20ac\U0001F600\nB\n",
         {0x41, 0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98, 0x80, 0x0A, 0x42, 0x0A},
         {u"A\u00e9\u20ac\U0001F600", u"B"}},
        {c_utf8WithMark, u"A\u00e9\n", {0xEF, 0xBB, 0xBF, 0x41, 0xC3, 0xA9, 0x0A}, {u"A\u00e9"}},
        {c_windowsWestern,
         u"A\u00e9\u20ac\u0100\U0001F600\n\u0178\u2122\n",
         {0x41, 0xE9, 0x80, 0x3F, 0x3F, 0x0A, 0x9F, 0x99, 0x0A},
         {u"A\u00e9\u20ac??", u"\u0178\u2122"}},
        {c_latin1, u"A\u00e9\u20ac\u0085\n", {0x41, 0xE9, 0x3F, 0x85, 0x0A}, {u"A\u00e9?\u0085"}},
        {c_ascii, u"A\u00e9~\n", {0x41, 0x3F, 0x7E, 0x0A}, {u"A?~"}},
    };
    for (const RoundTripCase& test : cases) {
        SCOPED_TRACE(test.encoding.name);
        WriteWith(PathOf("first.txt"), test.encoding, test.text);
        EXPECT_EQ(ReadBytes("first.txt"), test.expectedBytes);

        const std::vector<CString> lines =
            ReadLines("first.txt", CStdioFileEx::modeUseCodePage, test.encoding.codePage);
        ASSERT_EQ(lines.size(), test.expectedLines.size());
        CString again;
        for (std::size_t index = 0; index < lines.size(); ++index) {
            EXPECT_EQ(lines[index], CString(test.expectedLines[index])) << index;
            again += lines[index] + u"\n";
        }
        WriteWith(PathOf("second.txt"), test.encoding, again);
        EXPECT_EQ(ReadBytes("second.txt"), test.expectedBytes);
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
    WriteWith(PathOf("again.txt"), c_windowsWestern, lines[0] + u"\n");
    EXPECT_EQ(ReadBytes("again.txt"), bytes);
}

TEST_F(TextFile, TheFillerCharacterStandsForWhatTheCodePageCannotHold) {
    CStdioFileEx file;
    ASSERT_TRUE(file.Open(PathOf("filled.txt"), CFile::modeCreate | CFile::modeWrite));
    file.SetCodePage(CStdioFileEx::c_codePageLatin1);
    file.SetFillerChar('#');
    // A character outside the 16-bit range is one character, so it gets one filler.
    file.WriteString(u"a\u0100\U0001F600b\xD800");
    file.Close();
    EXPECT_EQ(ReadBytes("filled.txt"), (Bytes{'a', '#', '#', 'b', '#'}));
}

TEST_F(TextFile, TheFirstBytesDecideTheEncoding) {
    struct MarkCase {
        const char* name;
        Bytes bytes;
        bool unicode;
        std::vector<const char16_t*> lines;
    };
    const MarkCase cases[] = {
        {"UTF-16 little-endian", {0xFF, 0xFE, 'A', 0, '\n', 0, 0xE9, 0}, true, {u"A", u"\u00e9"}},
        {"UTF-16 big-endian", {0xFE, 0xFF, 0, 'A', 0, '\n', 0x20, 0xAC}, true, {u"A", u"\u20ac"}},
        {"UTF-8 mark over code page 1252", {0xEF, 0xBB, 0xBF, 0xC3, 0xA9}, false, {u"\u00e9"}},
        {"no mark: the code page", {0xE9, '\n'}, false, {u"\u00e9"}},
        {"a lone byte", {0xFF}, false, {u"\u00ff"}},
    };
    for (const MarkCase& test : cases) {
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
        ASSERT_EQ(lines.size(), test.lines.size());
        for (std::size_t index = 0; index < lines.size(); ++index)
            EXPECT_EQ(lines[index], CString(test.lines[index]));
    }
}

TEST_F(TextFile, AnOddByteAtTheEndOfUtf16TextReadsAsAReplacementCharacter) {
    WriteBytes("odd.txt", {0xFF, 0xFE, 'A', 0, 'B'});
    const std::vector<CString> lines = ReadLines("odd.txt");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], CString(u"A\uFFFD"));
}

TEST_F(TextFile, OpenStartsInTheLocaleCodePageUnlessToldToKeepTheOneSet) {
    EXPECT_EQ(CStdioFileEx::GetCurrentLocaleCodePage(), 65001u);
    WriteBytes("latin.txt", {0xE9});
    CStdioFileEx file;
    file.SetCodePage(CStdioFileEx::c_codePageLatin1);
    ASSERT_TRUE(file.Open(PathOf("latin.txt"), CFile::modeRead));
    EXPECT_EQ(file.GetCodePage(), 65001u);
    CString line;
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\uFFFD"));
    file.Close();

    file.SetCodePage(CStdioFileEx::c_codePageLatin1);
    ASSERT_TRUE(file.Open(PathOf("latin.txt"), CFile::modeRead | CStdioFileEx::modeUseCodePage));
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\u00e9"));
}

TEST_F(TextFile, ACodePageSetWhileOpenAppliesFromThenOn) {
    WriteBytes("switch.txt", {0xC3, 0xA9, '\n', 0x80, '\n'});
    CStdioFileEx file;
    ASSERT_TRUE(file.Open(PathOf("switch.txt"), CFile::modeRead));
    CString line;
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\u00e9"));
    // Any page this system does not know is read as 1252.
    file.SetCodePage(437);
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, CString(u"\u20ac"));
}

TEST_F(TextFile, LinesEndAtLineFeedsWithOrWithoutCarriageReturns) {
    WriteBytes("lines.txt", {'a', '\r', '\n', 'b', '\n', '\n', 'c', '\r', 'd', '\r'});
    const std::vector<CString> lines = ReadLines("lines.txt");
    const std::vector<CString> expected = {u"a", u"b", u"", u"c\rd"};
    EXPECT_EQ(lines, expected);

    WriteBytes("final.txt", {'a', '\n'});
    EXPECT_EQ(ReadLines("final.txt"), std::vector<CString>{u"a"});
    WriteBytes("empty.txt", {});
    EXPECT_TRUE(ReadLines("empty.txt").empty());
    WriteBytes("blank.txt", {'\n'});
    EXPECT_EQ(ReadLines("blank.txt"), std::vector<CString>{u""});
}

TEST_F(TextFile, LongLinesAndCharactersAcrossTheReadBuffer) {
    // The two-byte character sits across the 64 KiB boundary of the reader's buffer.
    std::string first(65535, 'x');
    first += "\xC3\xA9";
    const std::string second(200000, 'y');
    Bytes bytes(first.begin(), first.end());
    bytes.push_back('\n');
    bytes.insert(bytes.end(), second.begin(), second.end());
    WriteBytes("long.txt", bytes);
    const std::vector<CString> lines = ReadLines("long.txt");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], CString::FromUtf8(first));
    EXPECT_EQ(lines[1].GetLength(), 200000);
}

TEST_F(TextFile, WriteStringTranslatesNoLineEnds) {
    WriteWith(PathOf("as-is.txt"), c_utf8, u"a\nb\r\nc");
    EXPECT_EQ(ReadBytes("as-is.txt"), (Bytes{'a', '\n', 'b', '\r', '\n', 'c'}));
}

TEST_F(TextFile, TheMarkIsWrittenOnlyAtTheStart) {
    CStdioFileEx file;
    ASSERT_TRUE(file.Open(PathOf("mark.txt"),
                          CFile::modeCreate | CFile::modeWrite | CStdioFileEx::modeWriteUnicode));
    EXPECT_TRUE(file.IsFileUnicodeText());
    file.WriteString(u"a");
    file.WriteString(u"b");
    file.Close();
    EXPECT_EQ(ReadBytes("mark.txt"), (Bytes{0xFF, 0xFE, 'a', 0, 'b', 0}));
}

TEST_F(TextFile, CharCountLeavesTheMarkOut) {
    struct CountCase {
        Bytes bytes;
        unsigned long long count;
    };
    const CountCase cases[] = {
        {{0xFF, 0xFE, 'a', 0, 'b', 0, '\n', 0}, 3},
        {{0xEF, 0xBB, 0xBF, 0xC3, 0xA9, 0xF0, 0x9F, 0x98, 0x80}, 3},
        {{'a', 'b'}, 2},
        {{}, 0},
    };
    for (const CountCase& test : cases) {
        WriteBytes("count.txt", test.bytes);
        CStdioFileEx file(PathOf("count.txt"), CFile::modeRead);
        CString line;
        file.ReadString(line);
        const unsigned long long position = file.GetPosition();
        EXPECT_EQ(file.GetCharCount(), test.count);
        EXPECT_EQ(file.GetPosition(), position);
    }
}

TEST_F(TextFile, ThePositionCountsWhatWasReadNotWhatWasBuffered) {
    WriteBytes("position.txt", {'o', 'n', 'e', '\n', 't', 'w', 'o', '\n'});
    CStdioFileEx file(PathOf("position.txt"), CFile::modeReadWrite);
    CString line;
    ASSERT_TRUE(file.ReadString(line));
    EXPECT_EQ(file.GetPosition(), 4u);
    file.WriteString(u"TWO\n");
    EXPECT_EQ(file.GetPosition(), 8u);
    EXPECT_EQ(file.GetLength(), 8u);
    file.Close();
    EXPECT_EQ(ReadBytes("position.txt"), (Bytes{'o', 'n', 'e', '\n', 'T', 'W', 'O', '\n'}));
}

TEST_F(TextFile, SeekingDropsWhatWasReadAhead) {
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

TEST_F(TextFile, WhatIsBufferedReachesTheDiskWhenTheObjectGoes) {
    {
        CStdioFileEx file(PathOf("kept.txt"), CFile::modeCreate | CFile::modeWrite);
        file.WriteString(u"kept\n");
    }
    EXPECT_EQ(ReadBytes("kept.txt"), (Bytes{'k', 'e', 'p', 't', '\n'}));
}

} // namespace
} // namespace keel
