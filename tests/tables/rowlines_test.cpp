#include "tests/support/tempfolder.h"

#include "keel/platform/stdiofileex.h"
#include "keel/tables/rowlines.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace keel {
namespace {

using Lines = std::vector<std::u16string>;

// The row reader must give every line as the file's own ReadString gives it, from wherever the
// file stands when it takes over.
class RowLinesTest : public test::TempFolderTest {
protected:
    // The lines after the first `skipped`, read by the file alone or by the row reader.
    Lines Read(const std::string& bytes, int skipped, bool byRowReader, unsigned codePage = 0) {
        WriteBytes("lines.vlt", test::Bytes(bytes.begin(), bytes.end()));
        CStdioFileEx file;
        EXPECT_TRUE(file.Open(PathOf("lines.vlt"), CFile::modeRead | CFile::typeText));
        if (codePage != 0)
            file.SetCodePage(codePage);
        CString line;
        for (int i = 0; i < skipped; ++i)
            file.ReadString(line);
        Lines lines;
        QRowLineReader reader(file);
        while (byRowReader ? reader.ReadLine(line) : file.ReadString(line))
            lines.emplace_back(line.View());
        return lines;
    }

    void ExpectSameLines(const std::string& bytes, const char* what, unsigned codePage = 0) {
        for (int skipped = 0; skipped <= 2; ++skipped) {
            const Lines expected = Read(bytes, skipped, false, codePage);
            const Lines read = Read(bytes, skipped, true, codePage);
            EXPECT_EQ(read, expected) << what << ", after " << skipped << " lines";
        }
    }
};

TEST_F(RowLinesTest, GivesTheLinesTheFileGives) {
    const std::string blockEdge(65535, 'x');
    const struct {
        const char* what;
        std::string bytes;
    } cases[] = {
        {"an empty file", ""},
        {"one empty line", "\n"},
        {"no newline at the end", "a\nb"},
        {"carriage returns", "a\r\nb\r\n\r\n\r\r\nc\rd\n\r"},
        {"UTF-8", "caf\xc3\xa9\t\xf0\x9f\x98\x80\r\n\xc3\xa9\n"},
        {"invalid UTF-8", "a\xff\n\xc3\r\nb\xc3\n\xe2\x82"},
        {"a null byte", std::string("a\0b\n", 4)},
        {"a byte order mark", "\xef\xbb\xbf"
                              "a\nb\xc3\xa9\r\n"},
        {"UTF-16", std::string("\xff\xfe"
                               "a\0\n\0b\0\r\0\n\0",
                               12)},
        {"a return and its newline in two blocks", blockEdge + "\r\nnext\r\n"},
        {"a character in two blocks", std::string(65535, 'y') + "\xc3\xa9\n"},
        {"a line longer than a block", std::string(200000, 'z') + "\nend"},
    };
    for (const auto& c : cases)
        ExpectSameLines(c.bytes, c.what);
}

TEST_F(RowLinesTest, ReadsANarrowCodePageAsTheFileDoes) {
    ExpectSameLines("caf\xe9\r\n\x80\x9f\xff\n", "Windows Western",
                    CStdioFileEx::c_codePageWindowsWestern);
}

} // namespace
} // namespace keel
