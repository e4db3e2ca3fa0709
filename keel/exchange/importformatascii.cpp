#include "keel/exchange/importformatascii.h"

#include "keel/exchange/odbcfixup.h"
#include "keel/formula/evaluator.h"
#include "keel/platform/stdiofileex.h"
#include "keel/platform/uiservices.h"

#include <array>
#include <iterator>

namespace keel {

namespace {

using ImportLine = QImportFormatLevelASCII::ImportLine;
using Lines = QImportFormatLevelASCII::Lines;

// The first three tab-separated fields and the rest of the line as the fourth; missing fields
// are empty.
std::array<CString, 4> SplitFields(const CString& text) {
    std::array<CString, 4> fields;
    int start = 0;
    for (int field = 0; field < 3; ++field) {
        const int tab = text.Find(u'\t', start);
        if (tab < 0) {
            fields[field] = text.Mid(start);
            return fields;
        }
        fields[field] = text.Mid(start, tab - start);
        start = tab + 1;
    }
    fields[3] = text.Mid(start);
    return fields;
}

QAnyValue EvaluateValueText(const CString& text) {
    QAnyValue result;
    std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(result, FormulaText(text), nullptr, false, false, false));
    evaluator->Evaluate();
    return result;
}

// The line's context after the matched part and the "|" that follows it.
CString ContextBelow(const CString& lineContext, const CString& wanted) {
    if (wanted.IsEmpty())
        return lineContext;
    if (lineContext.GetLength() == wanted.GetLength())
        return CString();
    return lineContext.Mid(wanted.GetLength() + 1);
}

void SortMatchingLine(ImportLine&& line, const CString& wanted, Lines& attributeLines,
                      Lines& childLines) {
    line.context = ContextBelow(line.context, wanted);
    if (line.context.IsEmpty())
        attributeLines.push_back(std::move(line));
    else
        childLines.push_back(std::move(line));
}

CString FirstToken(const CString& context, int& end) {
    end = context.Find(u'|');
    return end < 0 ? context : context.Left(end);
}

int AsciiStyleOf(const QNewLevelImportable* importable) {
    return importable ? importable->GetImportAsciiContextStyle() : 0;
}

// A block of a new child: the first line with "-1" and the lines after it with "0". Lines that
// come before the block stay; when there are none, the block comes off the front without
// copying what follows, so siblings in file order are taken in linear time.
void SortNewBlock(Lines& lines, const QNewLevelImportable* importable, Lines& attributeLines,
                  Lines& childLines) {
    const CString newWanted =
        QImportFormatLevelASCII::GetAsciiContextForImportable(importable, u"-1");
    const CString sameWanted =
        QImportFormatLevelASCII::GetAsciiContextForImportable(importable, u"0");
    std::size_t first = 0;
    while (first < lines.size() &&
           !QImportFormatLevelASCII::ContextMatches(lines[first].context, newWanted))
        ++first;
    if (first == lines.size())
        return;
    std::size_t end = first + 1;
    while (end < lines.size() &&
           QImportFormatLevelASCII::ContextMatches(lines[end].context, sameWanted))
        ++end;
    SortMatchingLine(std::move(lines[first]), newWanted, attributeLines, childLines);
    for (std::size_t i = first + 1; i < end; ++i)
        SortMatchingLine(std::move(lines[i]), sameWanted, attributeLines, childLines);
    const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(first);
    lines.erase(begin, begin + static_cast<std::ptrdiff_t>(end - first));
}

} // namespace

QImportFormatLevelASCII::QImportFormatLevelASCII(QImportable& importable)
    : QImportFormatLevel(importable) {}

QImportFormatLevelASCII::QImportFormatLevelASCII(Lines& parentLines,
                                                 QNewLevelImportable& importable,
                                                 QImportFormatLevel& parent)
    : QImportFormatLevel(importable, parent) {
    SortImportLines(parentLines, &importable, m_attributeLines, m_childLines);
}

bool QImportFormatLevelASCII::ContextMatches(const CString& lineContext, const CString& wanted) {
    const int length = wanted.GetLength();
    if (lineContext.GetLength() < length || lineContext.Left(length).CompareNoCase(wanted) != 0)
        return false;
    return length == 0 || lineContext.GetLength() == length || lineContext[length] == u'|';
}

CString QImportFormatLevelASCII::GetAsciiContextForImportable(const QNewLevelImportable* importable,
                                                              const CString& identifier) {
    const int style = AsciiStyleOf(importable);
    CString context;
    if (style & 1)
        context = importable->GetImportLevelName();
    if (style & 2) {
        if (!context.IsEmpty())
            context += u"|";
        context += identifier.IsEmpty() ? importable->GetImportableIdentifier() : identifier;
    }
    return context;
}

void QImportFormatLevelASCII::SortImportLines(Lines& lines, const QNewLevelImportable* importable,
                                              Lines& attributeLines, Lines& childLines) {
    if (AsciiStyleOf(importable) & 2) {
        const std::size_t before = attributeLines.size() + childLines.size();
        SortNewBlock(lines, importable, attributeLines, childLines);
        if (attributeLines.size() + childLines.size() != before)
            return;
    }
    const CString wanted = GetAsciiContextForImportable(importable, CString());
    Lines remainder;
    for (ImportLine& line : lines) {
        if (ContextMatches(line.context, wanted))
            SortMatchingLine(std::move(line), wanted, attributeLines, childLines);
        else
            remainder.push_back(std::move(line));
    }
    lines.swap(remainder);
}

bool QImportFormatLevelASCII::ImportUnmatchedAttributes(
    const UnmatchedAttributeCallback& callback) {
    bool all = true;
    for (const ImportLine& line : m_attributeLines)
        all = callback(line.name, line.value, line.formula) && all;
    m_attributeLines.clear();
    return all;
}

std::unique_ptr<QImportFormatLevel>
QImportFormatLevelASCII::CreateSubLevel(QNewLevelImportable& child) {
    return std::make_unique<QImportFormatLevelASCII>(m_childLines, child, *this);
}

bool QImportFormatLevelASCII::HasAnythingToImport() {
    return !m_attributeLines.empty() || !m_childLines.empty();
}

bool QImportFormatLevelASCII::ImportAttributeIfPresentInternal(const QImportAttribute& attribute) {
    const CString name = attribute.Name();
    for (auto line = m_attributeLines.begin(); line != m_attributeLines.end(); ++line) {
        if (line->name.Compare(name) != 0)
            continue;
        const bool taken = attribute.SetValue(line->value) && attribute.SetFormula(line->formula);
        m_attributeLines.erase(line);
        return taken;
    }
    return true;
}

bool QImportFormatLevelASCII::MatchesRequiredImportable(QNewLevelImportable* importable,
                                                        CString& levelName, CString& identifier) {
    if (m_childLines.empty() || importable == nullptr)
        return false;
    const int style = importable->GetImportAsciiContextStyle();
    if (style & 1) {
        const CString wantedLevel = importable->GetImportLevelName();
        for (const ImportLine& line : m_childLines) {
            int end = 0;
            const CString token = FirstToken(line.context, end);
            if (token.Compare(wantedLevel) != 0)
                continue;
            levelName = token;
            if ((style & 2) && end >= 0) {
                int next = 0;
                identifier = FirstToken(line.context.Mid(end + 1), next);
            }
            return true;
        }
        return false;
    }
    if (style & 2) {
        int end = 0;
        identifier = FirstToken(m_childLines.front().context, end);
        return true;
    }
    return false;
}

bool QImportFormatLevelASCII::HasUnmatchedContents() const {
    return !m_attributeLines.empty() || !m_childLines.empty();
}

CString QImportFormatLevelASCII::UnmatchedContentDetails() const {
    CString details;
    for (const Lines* lines : {&m_attributeLines, &m_childLines}) {
        for (const ImportLine& line : *lines)
            details += u"\n" + line.context + u"\t" + line.name + u"\t";
    }
    return details;
}

QImportFormatASCII::QImportFormatASCII(CStdioFileEx& file, QImportable& importable)
    : QImportFormatLevelASCII(importable), m_file(file) {}

bool QImportFormatASCII::CheckContextFirst(const std::vector<CString>& sample) {
    int first = 0;
    int last = 0;
    for (const CString& line : sample) {
        const std::array<CString, 4> fields = SplitFields(line);
        const int lastField = fields[3].Find(u'\t');
        const CString fourth = lastField < 0 ? fields[3] : fields[3].Left(lastField);
        if (fields[0].Find(u'|') >= 0 && fourth.Find(u'|') < 0)
            ++first;
        else
            ++last;
    }
    return first > last;
}

QImportFormatASCII::ImportLine QImportFormatASCII::ParseLine(const CString& text,
                                                             bool contextFirst) {
    const std::array<CString, 4> fields = SplitFields(text);
    const int offset = contextFirst ? 1 : 0;
    ImportLine line;
    line.context = ODBCUnFixup(fields[contextFirst ? 0 : 3]);
    line.name = ODBCUnFixup(fields[offset]);
    const CString& valueText = fields[offset + 1];
    if (!valueText.IsEmpty())
        line.value = EvaluateValueText(ODBCUnFixup(valueText));
    line.formula = FormulaText(ODBCUnFixup(fields[offset + 2]));
    return line;
}

bool QImportFormatASCII::ImportToImportable() {
    UIServices().SetStatusBarText(u"Loading import file...");
    std::vector<CString> sample;
    CString text;
    while (static_cast<int>(sample.size()) < c_contextSampleLines && m_file.ReadString(text)) {
        if (!text.IsEmpty())
            sample.push_back(text);
    }
    const bool contextFirst = CheckContextFirst(sample);
    Lines lines;
    for (const CString& sampleLine : sample)
        lines.push_back(ParseLine(sampleLine, contextFirst));
    sample.clear();
    while (m_file.ReadString(text)) {
        if (!text.IsEmpty())
            lines.push_back(ParseLine(text, contextFirst));
    }
    SortImportLines(lines, NewLevelImportable(), m_attributeLines, m_childLines);
    for (ImportLine& line : lines)
        m_childLines.push_back(std::move(line));
    const bool imported = Importable().ImportAttributesAndChildren(*this);
    const bool allMatched = ReportUnmatchedContents();
    return imported && allMatched && ReportCount() == 0;
}

} // namespace keel
