#pragma once

#include "keel/exchange/importexport.h"
#include "keel/exchange/importformatlevel.h"

#include <deque>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace keel {

class CStdioFileEx;

// One line of a .tab file: the value already evaluated, the context cut down to what lies below
// the level that holds the line.
struct QImportLine {
    CString name;
    QAnyValue value;
    FormulaText formula;
    CString context;
};

// The lines that a level keeps for the levels below it, in file order. A sub-level takes its
// lines out and leaves the rest in order. Lines are found through an index of their leading
// context parts, built when first asked for, so that each of many siblings finds its own lines
// without a pass over the lines of all the others.
class QImportLinePool {
public:
    void Add(QImportLine line);
    bool IsEmpty() const { return m_count == 0; }
    int GetCount() const { return m_count; }
    // Positions of the lines left, in order; -1 after the last.
    int Head() const { return m_head; }
    int Next(int position) const { return m_next[static_cast<std::size_t>(position)]; }
    const QImportLine& At(int position) const {
        return m_lines[static_cast<std::size_t>(position)];
    }
    QImportLine Take(int position);
    // The first line left whose context matches `wanted`, or -1.
    int FirstMatching(const CString& wanted);
    // Takes every line whose context matches `wanted`, in order.
    std::vector<QImportLine> TakeMatching(const CString& wanted);

private:
    struct Bucket {
        std::vector<int> positions;
        std::size_t cursor = 0;
    };
    using Index = std::unordered_map<std::u16string, Bucket>;

    bool IsAlive(int position) const { return m_alive[static_cast<std::size_t>(position)] != 0; }
    Bucket* BucketFor(const CString& wanted);
    void AddToIndex(int parts, Index& index, int position);

    std::vector<QImportLine> m_lines;
    std::vector<int> m_next;
    std::vector<int> m_prev;
    std::vector<char> m_alive;
    int m_head = -1;
    int m_tail = -1;
    int m_count = 0;
    // By the number of "|"-separated parts of the wanted context.
    std::map<int, Index> m_indexes;
};

// A level of a .tab file being read: the lines of this level's own attributes, and the lines of
// the levels below it, which its sub-levels take out in turn. Whatever is left at the end is the
// unmatched content.
class QImportFormatLevelASCII : public QImportFormatLevel {
public:
    using ImportLine = QImportLine;
    using Lines = std::deque<ImportLine>;

    // A sub-level: takes the lines of `importable` out of `parentLines`.
    QImportFormatLevelASCII(QImportLinePool& parentLines, QNewLevelImportable& importable,
                            QImportFormatLevel& parent);

    bool ImportUnmatchedAttributes(const UnmatchedAttributeCallback& callback) override;
    std::unique_ptr<QImportFormatLevel> CreateSubLevel(QNewLevelImportable& child) override;
    bool HasAnythingToImport() override;
    bool ImportAttributeIfPresentInternal(const QImportAttribute& attribute) override;
    bool MatchesRequiredImportable(QNewLevelImportable* importable, CString& levelName,
                                   CString& identifier) override;
    bool HasUnmatchedContents() const override;
    CString UnmatchedContentDetails() const override;

    // The first characters of `lineContext` are `wanted`, in any case, and end there or at a
    // "|".
    static bool ContextMatches(const CString& lineContext, const CString& wanted);
    // The context of an importable relative to its parent: its level name with style bit 1, its
    // identifier with bit 2 (`identifier`, or its own when that is empty).
    static CString GetAsciiContextForImportable(const QNewLevelImportable* importable,
                                                const CString& identifier);
    // Moves the lines of `importable` out of `lines`: its own into `attributeLines`, those of
    // levels below it into `childLines`; the others stay in `lines`, in order.
    static void SortImportLines(QImportLinePool& lines, const QNewLevelImportable* importable,
                                Lines& attributeLines, QImportLinePool& childLines);

protected:
    // The root level.
    explicit QImportFormatLevelASCII(QImportable& importable);

    Lines m_attributeLines;
    QImportLinePool m_childLines;
};

// A whole .tab file being read into its object.
class QImportFormatASCII : public QImportFormatLevelASCII, public QImportFormat {
public:
    // The file is open for reading; its text is UTF-8, or UTF-16 with a byte order mark.
    QImportFormatASCII(CStdioFileEx& file, QImportable& importable);

    bool ImportToImportable() override;

    static constexpr int c_contextSampleLines = 100;
    // Whether lines with the context first outnumber the others in the sample.
    static bool CheckContextFirst(const std::vector<CString>& sample);
    static ImportLine ParseLine(const CString& text, bool contextFirst);

private:
    // The next line that is not blank; false at the end of the file.
    bool ReadNonBlankLine(CString& text);
    // A line holding a null character, which no text holds (a binary file, or UTF-16 without its
    // byte order mark), ends the import: reported, and nothing is imported.
    bool ReportNotText() const;

    CStdioFileEx& m_file;
    int m_lineNumber = 0;
};

} // namespace keel
