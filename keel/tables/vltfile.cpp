#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/stringtovalue.h"
#include "keel/platform/exceptions.h"
#include "keel/system/fsfile.h"
#include "keel/system/pathop.h"
#include "keel/tables/celltokens.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/rowlines.h"
#include "keel/tables/tabtokens.h"
#include "keel/values/length.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cwctype>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace keel {

namespace {

using TYPE = QAnyValue::TYPE;
using LENGTHUNITS = QLength::LENGTHUNITS;

constexpr const char16_t* c_currentVersion = u"VltFormat=2.1";
constexpr char16_t c_byteOrderMark = 0xFEFF;

constexpr const char16_t* c_madeInImperial =
    u"The current table appears to have been created using imperial units, and may be damaged "
    u"if resaved using the current settings.\n\nSave using imperial instead?";
constexpr const char16_t* c_madeInMetric =
    u"The current table appears to have been created using metric units, and may be damaged if "
    u"resaved using the current settings.\n\nSave using metric instead?";
constexpr const char16_t* c_madeInEitherUnits =
    u"The current table appears to have been created using different units (metric/imperial), "
    u"and may be damaged if resaved using the current settings.\n\nContinue?";

enum class VltVersion { Older, V20, V21, Unsupported };

VltVersion VersionOf(const CString& token) {
    if (token.CompareNoCase(u"VltFormat=2.0") == 0)
        return VltVersion::V20;
    if (token.CompareNoCase(c_currentVersion) == 0)
        return VltVersion::V21;
    if (token.Left(9).CompareNoCase(u"VltFormat") == 0)
        return VltVersion::Unsupported;
    return VltVersion::Older;
}

// Leading white space, a sign and digits; anything after them is ignored, and a number too big
// for an int is the largest int of its sign.
int WToI(const CString& text) {
    const std::u16string_view chars = text.View();
    std::size_t i = 0;
    while (i < chars.size() && std::iswspace(static_cast<wint_t>(chars[i])))
        ++i;
    bool negative = false;
    if (i < chars.size() && (chars[i] == u'+' || chars[i] == u'-'))
        negative = chars[i++] == u'-';
    long long magnitude = 0;
    for (; i < chars.size() && chars[i] >= u'0' && chars[i] <= u'9'; ++i)
        magnitude = std::min(magnitude * 10 + (chars[i] - u'0'), 1LL + INT_MAX);
    if (negative)
        return static_cast<int>(std::max(-magnitude, static_cast<long long>(INT_MIN)));
    return static_cast<int>(std::min(magnitude, static_cast<long long>(INT_MAX)));
}

bool IsBlankLine(const CString& line) {
    for (const char16_t ch : line.View())
        if (!std::iswspace(static_cast<wint_t>(ch)))
            return false;
    return true;
}

int CountTokensBeforeEmptyOne(CString line) {
    int count = 0;
    CString token;
    while (!line.IsEmpty()) {
        GetTabDelimToken(line, token);
        if (token.IsEmpty())
            break;
        ++count;
    }
    return count;
}

// A file read again from its start shows its byte order mark as a character.
void DropByteOrderMark(CString& line) {
    if (!line.IsEmpty() && line[0] == c_byteOrderMark)
        line.Delete(0);
}

// The one type that the values share, formula cells and empty values aside; empty when they
// have none or more than one.
class TypeDeduction {
public:
    void Add(const QAnyValue& value) {
        if (m_mixed || value.IsEmpty() || QLookupTableData::IsValueFormula(value))
            return;
        if (m_type == QAnyValue::TYPE_EMPTY) {
            m_type = value.Type();
        } else if (value.Type() != m_type) {
            m_type = QAnyValue::TYPE_EMPTY;
            m_mixed = true;
        }
    }
    TYPE Type() const { return m_type; }

private:
    TYPE m_type = QAnyValue::TYPE_EMPTY;
    bool m_mixed = false;
};

TYPE DeduceType(const QArray<QAnyValue>& values) {
    TypeDeduction deduction;
    for (const QAnyValue& value : values)
        deduction.Add(value);
    return deduction.Type();
}

// Percentages that happen to be whole numbers must not be rounded as whole numbers.
bool IsMarkupLabel(const QAnyValue& label) {
    CString text = ValueToString(label);
    text.MakeLower();
    return text.Find(CString(u"markup")) >= 0;
}

bool IsMetric(LENGTHUNITS units) {
    return units == QLength::LU_MM || units == QLength::LU_CM || units == QLength::LU_METRE;
}

LENGTHUNITS OtherSystemUnits() {
    return IsMetric(QLength::DefaultUnits()) ? QLength::LU_INCH : QLength::LU_MM;
}

class ScopedDefaultLengthUnits {
public:
    explicit ScopedDefaultLengthUnits(LENGTHUNITS units) : m_saved(QLength::DefaultUnits()) {
        QLength::SetDefaultUnits(units);
    }
    ~ScopedDefaultLengthUnits() { QLength::SetDefaultUnits(m_saved); }
    ScopedDefaultLengthUnits(const ScopedDefaultLengthUnits&) = delete;
    ScopedDefaultLengthUnits& operator=(const ScopedDefaultLengthUnits&) = delete;

private:
    LENGTHUNITS m_saved;
};

// A length that prints, in the current units, as a text that reads back as another length.
bool LosesPrecisionAsText(const QAnyValue& stored) {
    QAnyValue value(stored);
    QLookupTableData::EvaluateCell(value, QAnyValue::TYPE_LENGTH, nullptr, nullptr);
    if (!value.IsType(QAnyValue::TYPE_LENGTH))
        return false;
    QAnyValue printed(value);
    QAnyValue readBack(printed.MakeCString());
    readBack.MakeLength();
    return !readBack.Identical(value);
}

bool AnyLosesPrecision(const QArray<QAnyValue>& values) {
    return std::any_of(values.begin(), values.end(), LosesPrecisionAsText);
}

int AskAboutUnits(const CString& question, unsigned flags) {
    return QMessageBoxExceptServer(u"Lookup Table", question, flags | MB_ICONEXCLAMATION);
}

class UnlockOnExit {
public:
    explicit UnlockOnExit(QLookupTableData& data) : m_data(data) {}
    ~UnlockOnExit() { m_data.Unlock(); }
    UnlockOnExit(const UnlockOnExit&) = delete;
    UnlockOnExit& operator=(const UnlockOnExit&) = delete;

private:
    QLookupTableData& m_data;
};

} // namespace

// --- Reading -------------------------------------------------------------------------------------

bool QLookupTableData::ReadFromFile(bool sortRows, bool repairCounts, int forcedRows,
                                    int forcedCols) {
    if (m_strName.IsEmpty()) {
        ReportError(u"No name supplied");
        return false;
    }
    LockAndUnlock lock(*this, false);
    if (!lock) {
        ReportError(u"Could not open");
        return false;
    }
    const QEvaluator::ExtraContextInfoForErrors errorContext(m_strName);
    switch (ReadLines(sortRows, repairCounts, forcedRows, forcedCols)) {
    case ReadStep::Good:
        RecreateCache();
        return true;
    case ReadStep::Failed:
        return false;
    case ReadStep::Repair:
        Delete();
        return ReadFromFile(sortRows, repairCounts, forcedRows, forcedCols);
    }
    return false;
}

QLookupTableData::ReadStep QLookupTableData::ReadLines(bool sortRows, bool repairCounts,
                                                       int& forcedRows, int& forcedCols) {
    m_file.SeekToBegin();
    CString line;
    if (!m_file.ReadString(line)) {
        ReportError(u"Cannot read description line");
        return ReadStep::Failed;
    }
    DropByteOrderMark(line);
    CString versionToken;
    GetTabDelimToken(line, m_strComment);
    GetTabDelimToken(line, versionToken);
    GetTabDelimToken(line, m_strSecondComment);
    const VltVersion version = VersionOf(versionToken);
    if (version == VltVersion::Unsupported) {
        ReportError(u"Unsupported VLT format version string");
        return ReadStep::Failed;
    }

    int rows = 0;
    int cols = 0;
    if (!ReadCountsLine(repairCounts, forcedRows, forcedCols, rows, cols))
        return ReadStep::Failed;
    if (static_cast<long long>(rows) * cols > INT_MAX) {
        ReportError(u"Out of memory");
        return ReadStep::Failed;
    }
    const bool withHeadings = m_file.ReadString(line);
    if (!withHeadings)
        line.Empty();
    GetTabDelimToken(line, m_strTLDesc);
    FitCountsToFile(line, rows, cols);
    if (!AllocateArrays(rows, cols))
        return ReadStep::Failed;
    if (!withHeadings) {
        ReportError(u"No column headings line");
        return ReadStep::Failed;
    }

    ReadStep step = ReadColumnHeadings(line, repairCounts, forcedCols);
    if (step != ReadStep::Good)
        return step;
    if (version != VltVersion::Older && !ReadColumnTypes(version == VltVersion::V21))
        return ReadStep::Failed;

    const bool lazy = QLookupTableDataStatics::IsTableCacheOverSize(m_nRows) || sortRows;
    QRowLineReader lines(m_file);
    step = ReadRowLines(lines, lazy, repairCounts, forcedRows);
    if (step != ReadStep::Good)
        return step;
    m_bAllRowsLoaded = !lazy;
    if (sortRows)
        SortRowsByLabel();
    m_bSorted = sortRows || AreRowLabelsAscending();
    if (version == VltVersion::Older) {
        if (!DeduceTypes(true))
            return ReadStep::Failed;
    } else if (version == VltVersion::V20) {
        DeduceTypes(false);
    }
    return ReadPastLastRow(lines, repairCounts, forcedRows);
}

bool QLookupTableData::ReadCountsLine(bool repairCounts, int forcedRows, int forcedCols, int& rows,
                                      int& cols) {
    CString line;
    if (!m_file.ReadString(line)) {
        ReportError(u"Cannot read row/col counts line");
        return false;
    }
    CString token;
    GetTabDelimToken(line, token);
    rows = WToI(token);
    GetTabDelimToken(line, token);
    cols = WToI(token);
    if (repairCounts && forcedRows != -1)
        rows = forcedRows;
    if (repairCounts && forcedCols != -1)
        cols = forcedCols;
    if (rows < 0 || cols < 0) {
        ReportError(u"Row/col counts invalid");
        return false;
    }
    return true;
}

// Each column needs at least a character of the headings line, and each row a line of its own
// with something on it. A count beyond that is brought down to one more than the file can hold,
// so that nothing is allocated for what is not there: the reader then runs out where it would
// have, with the same message, or finds the true count when it repairs.
void QLookupTableData::FitCountsToFile(const CString& headings, int& rows, int& cols) {
    cols = std::min(cols, headings.GetLength() + 1);
    const unsigned long long bytesLeft = m_file.GetLength() - m_file.GetPosition();
    const unsigned long long rowsRoom = (bytesLeft + 1) / 2;
    if (static_cast<unsigned long long>(rows) > rowsRoom)
        rows = static_cast<int>(rowsRoom + 1);
}

QLookupTableData::ReadStep QLookupTableData::ReadColumnHeadings(CString& line, bool repairCounts,
                                                                int& forcedCols) {
    const bool mayRepair = repairCounts && forcedCols == -1;
    CString token;
    for (int col = 0; col < m_nCols; ++col) {
        if (line.IsEmpty()) {
            if (mayRepair) {
                forcedCols = col;
                return ReadStep::Repair;
            }
            ReportError(u"Not enough column headings");
            return ReadStep::Failed;
        }
        const bool good = ReadCellToken(line, m_colLabels[col], token);
        if (!good || token.IsEmpty())
            ReportErrorCol(u"Bad column %d label", col);
        if (!good)
            NoteBadToken();
    }
    if (line.IsEmpty())
        return ReadStep::Good;
    if (mayRepair) {
        forcedCols = m_nCols + CountTokensBeforeEmptyOne(line);
        return ReadStep::Repair;
    }
    ReportError(u"Too many column headings");
    return ReadStep::Failed;
}

bool QLookupTableData::ReadColumnTypes(bool withColLabelType) {
    CString line;
    if (!m_file.ReadString(line)) {
        ReportError(u"No column types line");
        return false;
    }
    CString token;
    GetTabDelimToken(line, token);
    if (token.IsEmpty()) {
        ReportError(u"Not enough column types");
        return false;
    }
    if (withColLabelType) {
        const int backslash = token.Find(u'\\');
        const CString rowLabelType = backslash < 0 ? token : token.Left(backslash);
        const CString colLabelType = backslash < 0 ? CString() : token.Mid(backslash + 1);
        m_rowLabelType = QAnyValue::StringToType(rowLabelType);
        m_colLabelType = QAnyValue::StringToType(colLabelType);
    } else {
        m_rowLabelType = QAnyValue::StringToType(token);
    }
    for (int col = 0; col < m_nCols; ++col) {
        GetTabDelimToken(line, token);
        if (token.IsEmpty()) {
            ReportError(u"Not enough column types");
            return false;
        }
        m_colTypes[col] = QAnyValue::StringToType(token);
    }
    if (!line.IsEmpty()) {
        ReportError(u"Too many column types");
        return false;
    }
    return true;
}

QLookupTableData::ReadStep QLookupTableData::ReadRowLines(QRowLineReader& lines, bool lazy,
                                                          bool repairCounts, int& forcedRows) {
    if (lazy)
        m_pendingRowText.SetSize(m_nRows);
    CString line;
    for (int row = 0; row < m_nRows; ++row) {
        if (!lines.ReadLine(line) || IsBlankLine(line)) {
            if (repairCounts && forcedRows == -1) {
                forcedRows = row;
                return ReadStep::Repair;
            }
            ReportError(u"Not enough rows of data");
            return ReadStep::Failed;
        }
        std::size_t at = 0;
        const std::u16string_view label = TakeTabDelimToken(line.View(), at);
        const bool good = ReadPlainCellToken(label, m_rowLabels[row]) ||
                          ReadCellTokenAsFormula(CString(label), m_rowLabels[row]);
        if (!good || label.empty())
            ReportErrorRow(u"Bad row %d label", row);
        if (!good)
            NoteBadToken();
        CString rest = at < line.View().size() ? line.Mid(static_cast<int>(at)) : CString();
        if (lazy)
            m_pendingRowText[row] = std::move(rest);
        else if (!LoadRow(row, rest))
            return ReadStep::Failed;
    }
    return ReadStep::Good;
}

QLookupTableData::ReadStep QLookupTableData::ReadPastLastRow(QRowLineReader& lines,
                                                             bool repairCounts, int& forcedRows) {
    int linesRead = 0;
    int linesThatMatter = 0;
    CString line;
    while (lines.ReadLine(line)) {
        ++linesRead;
        if (!IsBlankLine(line))
            linesThatMatter = linesRead;
    }
    if (linesThatMatter == 0)
        return ReadStep::Good;
    if (repairCounts && forcedRows == -1) {
        forcedRows = m_nRows + linesThatMatter;
        return ReadStep::Repair;
    }
    ReportError(u"Too many rows of data");
    return ReadStep::Failed;
}

void QLookupTableData::NoteBadToken() {
    if (m_strFirstBadToken.IsEmpty())
        m_strFirstBadToken = m_strLastError.Mid(m_strLastError.Find(u'\n') + 1);
}

// The row is read in place. Only before a cell that runs as a formula is `rest` cut to the cells
// after it, which is all that formula could see of the row were it to read it again; the reading
// then goes on from whatever that left.
bool QLookupTableData::LoadRow(int row, CString& rest) {
    if (m_bRowLoadFailed)
        return false;
    CString line = rest;
    std::size_t at = 0;
    for (int col = 0; col < m_nCols; ++col) {
        const std::u16string_view token = TakeTabDelimToken(line.View(), at);
        if (ReadPlainCellToken(token, Cell(row, col)))
            continue;
        const CString formula(token);
        rest = line.Mid(static_cast<int>(at));
        if (!ReadCellTokenAsFormula(formula, Cell(row, col))) {
            ReportErrorRowCol(u"Bad value at row %d column %d", row, col);
            NoteBadToken();
        }
        line = rest;
        at = 0;
    }
    const bool tooManyColumns = at < line.View().size();
    rest.Empty();
    if (tooManyColumns) {
        ReportErrorRow(u"Too many columns for row %d", row);
        m_bRowLoadFailed = true;
        return false;
    }
    return true;
}

// The labels are sorted with the text of their rows, which is still unparsed: nothing is
// evaluated on the way.
void QLookupTableData::SortRowsByLabel() {
    std::vector<std::pair<QAnyValue, CString>> rows;
    rows.reserve(static_cast<std::size_t>(m_nRows));
    for (int row = 0; row < m_nRows; ++row)
        rows.emplace_back(m_rowLabels[row], m_pendingRowText[row]);
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        bool failed = false;
        return a.first.Compare(b.first, failed) < 0 && !failed;
    });
    for (int row = 0; row < m_nRows; ++row) {
        m_rowLabels[row] = std::move(rows[static_cast<std::size_t>(row)].first);
        m_pendingRowText[row] = std::move(rows[static_cast<std::size_t>(row)].second);
    }
}

bool QLookupTableData::AreRowLabelsAscending() const {
    for (int row = 0; row + 1 < m_nRows; ++row) {
        bool failed = false;
        if (m_rowLabels[row].Compare(m_rowLabels[row + 1], failed) > 0 || failed)
            return false;
    }
    return true;
}

bool QLookupTableData::DeduceTypes(bool olderFormat) {
    m_colLabelType = DeduceType(m_colLabels);
    if (!olderFormat)
        return true;
    m_rowLabelType = DeduceType(m_rowLabels);
    if (!LoadRowsIfNecessary())
        return false;
    for (int col = 0; col < m_nCols; ++col) {
        TypeDeduction deduction;
        for (int row = 0; row < m_nRows; ++row)
            deduction.Add(Cell(row, col));
        m_colTypes[col] = deduction.Type();
        if (m_colTypes[col] == QAnyValue::TYPE_INT && IsMarkupLabel(m_colLabels[col]))
            m_colTypes[col] = QAnyValue::TYPE_DOUBLE;
    }
    return true;
}

// --- Writing -------------------------------------------------------------------------------------

bool QLookupTableData::WriteToFile(CStdioFileEx& file) {
    if (!IsValid())
        return false;
    if (!QLookupTableDataStatics::IsForceAsciiWrite())
        file.SetCodePage(CStdioFileEx::c_codePageUtf8);
    file.SetLength(0);
    file.SeekToBegin();
    file.WriteString(m_strComment + u'\t' + c_currentVersion + u'\t' + m_strSecondComment + u'\n');
    file.WriteString(CString::Formatted(u"%d\t%d\n", m_nRows, m_nCols));

    CString line;
    PutTabDelimToken(line, m_strTLDesc);
    for (int col = 0; col < m_nCols; ++col)
        PutTabDelimToken(line, CellToken(m_colLabels[col], m_colLabelType));
    file.WriteString(line);
    file.WriteString(u"\n");

    line.Empty();
    PutTabDelimToken(line, QAnyValue::TypeToString(m_rowLabelType) + u'\\' +
                               QAnyValue::TypeToString(m_colLabelType));
    for (int col = 0; col < m_nCols; ++col)
        PutTabDelimToken(line, QAnyValue::TypeToString(m_colTypes[col]));
    file.WriteString(line + u'\n');

    if (!LoadRowsIfNecessary())
        return false;
    for (int row = 0; row < m_nRows; ++row) {
        line.Empty();
        PutTabDelimToken(line, CellToken(m_rowLabels[row], m_rowLabelType));
        for (int col = 0; col < m_nCols; ++col)
            PutTabDelimToken(line, CellToken(Cell(row, col), m_colTypes[col]));
        file.WriteString(line + u'\n');
    }
    return true;
}

bool QLookupTableData::WriteToFile() {
    if (m_strName.IsEmpty()) {
        ReportError(u"No name supplied");
        return false;
    }
    const int lockCount = m_nLockCount;
    if (!Lock(true)) {
        m_nLockCount = lockCount;
        ReportError(u"Could not open for writing");
        return false;
    }
    const UnlockOnExit unlock(*this);
    const QEvaluator::ExtraContextInfoForErrors errorContext(m_strName);
    if (!HasLengthPrecisionErrors())
        return WriteThroughTemporaryFile();

    const LENGTHUNITS otherUnits = OtherSystemUnits();
    bool otherUnitsLosePrecision = false;
    {
        const ScopedDefaultLengthUnits trial(otherUnits);
        otherUnitsLosePrecision = HasLengthPrecisionErrors();
    }
    if (otherUnitsLosePrecision) {
        if (AskAboutUnits(c_madeInEitherUnits, MB_YESNO | MB_DEFBUTTON2) != IDYES)
            return false;
        return WriteThroughTemporaryFile();
    }
    switch (
        AskAboutUnits(IsMetric(otherUnits) ? c_madeInMetric : c_madeInImperial, MB_YESNOCANCEL)) {
    case IDYES: {
        const ScopedDefaultLengthUnits units(otherUnits);
        return WriteThroughTemporaryFile();
    }
    case IDNO:
        return WriteThroughTemporaryFile();
    default:
        return false;
    }
}

bool QLookupTableData::HasLengthPrecisionErrors() {
    if (!IsValid())
        return false;
    for (int col = 0; col < m_nCols; ++col) {
        if (m_colTypes[col] != QAnyValue::TYPE_LENGTH)
            continue;
        for (int row = 0; row < m_nRows; ++row)
            if (LoadRowIfNecessary(row) && LosesPrecisionAsText(Cell(row, col)))
                return true;
    }
    if (m_colLabelType == QAnyValue::TYPE_LENGTH && AnyLosesPrecision(m_colLabels))
        return true;
    return m_rowLabelType == QAnyValue::TYPE_LENGTH && AnyLosesPrecision(m_rowLabels);
}

bool QLookupTableData::WriteThroughTemporaryFile() {
    const CString target = QFSFile::FollowLinks(m_strName);
    const CString tempPath = QFSFile::GenerateTempPath(QPathOp::PathWithoutFileSpec(target));
    CStdioFileEx temp;
    if (!temp.Open(tempPath, CFile::modeCreate | CFile::modeWrite | CFile::typeText)) {
        ReportError(u"Could not open for writing");
        return false;
    }
    bool written = false;
    try {
        written = WriteToFile(temp);
        temp.Close();
    } catch (const CFileException&) {
        temp.Abort();
        written = false;
    }
    if (written && ReadsBackAsItIs(tempPath) && ReplaceFileWith(tempPath, target))
        return true;
    std::remove(tempPath.ToUtf8().c_str());
    return false;
}

// The written file is read as a table of its own and compared with this one, so that a table
// is never replaced by one that reads differently.
bool QLookupTableData::ReadsBackAsItIs(const CString& writtenPath) {
    QSmartPtr<QLookupTableData> written(new QLookupTableData);
    written->m_strName = writtenPath;
    const bool read = written->ReadFromFile(false, false, -1, -1) &&
                      written->LoadRowsIfNecessary() && written->FirstBadToken().IsEmpty();
    const CString difference = read ? DifferenceFrom(*written) : CString(u"it does not read");
    written->CloseFile();
    LeaveList(written.Get());
    if (difference.IsEmpty())
        return true;
    ReportError(CString::Formatted(TranslateString(u"The table would not read back as it is: %s",
                                                   CString(), u"Lookup table error"),
                                   difference),
                true);
    return false;
}

// Where the other table reads differently from this one, in words; empty when nowhere.
CString QLookupTableData::DifferenceFrom(const QLookupTableData& other) {
    if (m_strComment != other.m_strComment || m_strSecondComment != other.m_strSecondComment)
        return u"the comments";
    if (m_strTLDesc != other.m_strTLDesc)
        return u"the top-left description";
    if (m_nRows != other.m_nRows || m_nCols != other.m_nCols)
        return u"the counts";
    if (m_rowLabelType != other.m_rowLabelType || m_colLabelType != other.m_colLabelType)
        return u"the label types";
    for (int col = 0; col < m_nCols; ++col) {
        if (m_colTypes[col] != other.m_colTypes[col])
            return CString::Formatted(u"the type of column %d", col + 1);
        if (!IsSameCell(other.m_colLabels[col], m_colLabels[col], m_colLabelType))
            return CString::Formatted(u"the label of column %d", col + 1);
    }
    for (int row = 0; row < m_nRows; ++row) {
        if (!IsSameCell(other.m_rowLabels[row], m_rowLabels[row], m_rowLabelType))
            return CString::Formatted(u"the label of row %d", row + 1);
        for (int col = 0; col < m_nCols; ++col) {
            const QAnyValue& cell = m_cells[row * m_nCols + col];
            if (!IsSameCell(other.m_cells[row * m_nCols + col], cell, m_colTypes[col]))
                return CString::Formatted(u"row %d column %d", row + 1, col + 1);
        }
    }
    return CString();
}

// The written file takes the place of the target with the target's mode and owner; a target
// whose owner cannot be kept is left alone.
bool QLookupTableData::ReplaceFileWith(const CString& writtenPath, const CString& target) {
    CString reason;
    if (!QFSFile::ReplaceWithWritten(writtenPath, target, reason)) {
        ReportError(u"Could not open for writing");
        return false;
    }
    // The lock held the file that was replaced; it now holds the new one.
    CloseFile();
    m_bFileOpen =
        m_file.Open(m_strName, CFile::modeReadWrite | CFile::modeCreate | CFile::modeNoTruncate |
                                   CFile::typeText | CFile::shareDenyWrite);
    return true;
}

} // namespace keel
