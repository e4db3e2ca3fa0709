#pragma once

#include "keel/exchange/importexport.h"
#include "keel/exchange/importformatlevel.h"

#include <deque>
#include <vector>

namespace keel {

class CStdioFileEx;

// A level of a .tab file being read: the lines of this level's own attributes, and the lines of
// the levels below it, which its sub-levels take out in turn. Whatever is left at the end is the
// unmatched content.
class QImportFormatLevelASCII : public QImportFormatLevel {
public:
    // One line of the file: the value already evaluated, the context cut down to what lies
    // below the level that holds the line.
    struct ImportLine {
        CString name;
        QAnyValue value;
        FormulaText formula;
        CString context;
    };
    using Lines = std::deque<ImportLine>;

    // A sub-level: takes the lines of `importable` out of `parentLines`.
    QImportFormatLevelASCII(Lines& parentLines, QNewLevelImportable& importable,
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
    // levels below it into `childLines`; the others stay in `lines`, in order. One pass.
    static void SortImportLines(Lines& lines, const QNewLevelImportable* importable,
                                Lines& attributeLines, Lines& childLines);

protected:
    // The root level.
    explicit QImportFormatLevelASCII(QImportable& importable);

    Lines m_attributeLines;
    Lines m_childLines;
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
    CStdioFileEx& m_file;
};

} // namespace keel
