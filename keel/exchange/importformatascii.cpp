#include "keel/exchange/importformatascii.h"

#include "keel/exchange/odbcfixup.h"
#include "keel/formula/evaluatingdata.h"
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

// The evaluator tokenises no text longer than this (its cursor is 16 bits wide).
constexpr int c_longestFormula = 32767;

// A field more than twice that long is too long for the evaluator even once unfixed, which at
// most halves it: the evaluator is given just enough of it to say so, and the whole is neither
// copied again nor kept among the interned formula texts.
QAnyValue EvaluateValueField(const CString& field) {
    if (field.GetLength() > 2 * (c_longestFormula + 1))
        return QEvaluatingData::Evaluate(field.Left(c_longestFormula + 1));
    return QEvaluatingData::Evaluate(ODBCUnFixup(field));
}

// A context or name in the report of unmatched content is cut as the display form of a line
// cuts its parts: a person reads it, and a file must not make it as large as itself.
CString ShortenedForReport(const CString& part) {
    constexpr int c_longest = 254;
    constexpr int c_kept = 251;
    return part.GetLength() > c_longest ? part.Left(c_kept) + u"..." : part;
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
                      QImportLinePool& childLines) {
    line.context = ContextBelow(line.context, wanted);
    if (line.context.IsEmpty())
        attributeLines.push_back(std::move(line));
    else
        childLines.Add(std::move(line));
}

CString FirstToken(const CString& context, int& end) {
    end = context.Find(u'|');
    return end < 0 ? context : context.Left(end);
}

int AsciiStyleOf(const QNewLevelImportable* importable) {
    return importable ? importable->GetImportAsciiContextStyle() : 0;
}

int PartsOf(const CString& wanted) {
    int parts = 1;
    for (int i = 0; i < wanted.GetLength(); ++i)
        parts += wanted[i] == u'|' ? 1 : 0;
    return parts;
}

// The key of a context under which lines are indexed: its first `parts` parts in lower case;
// empty when it has fewer.
bool IndexKey(const CString& context, int parts, std::u16string& key) {
    int end = -1;
    for (int part = 0; part < parts; ++part) {
        end = context.Find(u'|', end + 1);
        if (end < 0) {
            if (part + 1 < parts)
                return false;
            end = context.GetLength();
        }
    }
    CString prefix = context.Left(end);
    prefix.MakeLower();
    key.assign(prefix.View());
    return true;
}

// A block of a new child: the first line with "-1" and the lines right after it with "0".
bool SortNewBlock(QImportLinePool& lines, const QNewLevelImportable* importable,
                  Lines& attributeLines, QImportLinePool& childLines) {
    const CString newWanted =
        QImportFormatLevelASCII::GetAsciiContextForImportable(importable, u"-1");
    const int first = lines.FirstMatching(newWanted);
    if (first < 0)
        return false;
    const CString sameWanted =
        QImportFormatLevelASCII::GetAsciiContextForImportable(importable, u"0");
    std::vector<int> block{first};
    for (int next = lines.Next(first);
         next >= 0 && QImportFormatLevelASCII::ContextMatches(lines.At(next).context, sameWanted);
         next = lines.Next(next))
        block.push_back(next);
    SortMatchingLine(lines.Take(first), newWanted, attributeLines, childLines);
    for (std::size_t i = 1; i < block.size(); ++i)
        SortMatchingLine(lines.Take(block[i]), sameWanted, attributeLines, childLines);
    return true;
}

} // namespace

void QImportLinePool::Add(QImportLine line) {
    const int position = static_cast<int>(m_lines.size());
    m_lines.push_back(std::move(line));
    m_next.push_back(-1);
    m_prev.push_back(m_tail);
    m_alive.push_back(1);
    if (m_tail >= 0)
        m_next[static_cast<std::size_t>(m_tail)] = position;
    else
        m_head = position;
    m_tail = position;
    ++m_count;
    for (auto& [parts, index] : m_indexes)
        AddToIndex(parts, index, position);
}

QImportLine QImportLinePool::Take(int position) {
    const auto at = static_cast<std::size_t>(position);
    const int prev = m_prev[at];
    const int next = m_next[at];
    if (prev >= 0)
        m_next[static_cast<std::size_t>(prev)] = next;
    else
        m_head = next;
    if (next >= 0)
        m_prev[static_cast<std::size_t>(next)] = prev;
    else
        m_tail = prev;
    m_alive[at] = 0;
    --m_count;
    return std::move(m_lines[at]);
}

void QImportLinePool::AddToIndex(int parts, Index& index, int position) {
    std::u16string key;
    if (IndexKey(At(position).context, parts, key))
        index[key].positions.push_back(position);
}

QImportLinePool::Bucket* QImportLinePool::BucketFor(const CString& wanted) {
    const int parts = PartsOf(wanted);
    auto [found, added] = m_indexes.try_emplace(parts);
    if (added) {
        for (int position = m_head; position >= 0; position = Next(position))
            AddToIndex(parts, found->second, position);
    }
    CString key = wanted;
    key.MakeLower();
    const auto bucket = found->second.find(std::u16string(key.View()));
    return bucket == found->second.end() ? nullptr : &bucket->second;
}

int QImportLinePool::FirstMatching(const CString& wanted) {
    if (wanted.IsEmpty())
        return m_head;
    Bucket* bucket = BucketFor(wanted);
    if (bucket == nullptr)
        return -1;
    while (bucket->cursor < bucket->positions.size() && !IsAlive(bucket->positions[bucket->cursor]))
        ++bucket->cursor;
    return bucket->cursor < bucket->positions.size() ? bucket->positions[bucket->cursor] : -1;
}

std::vector<QImportLine> QImportLinePool::TakeMatching(const CString& wanted) {
    std::vector<QImportLine> taken;
    if (wanted.IsEmpty()) {
        while (m_head >= 0)
            taken.push_back(Take(m_head));
        return taken;
    }
    Bucket* bucket = BucketFor(wanted);
    if (bucket == nullptr)
        return taken;
    for (; bucket->cursor < bucket->positions.size(); ++bucket->cursor) {
        const int position = bucket->positions[bucket->cursor];
        if (IsAlive(position))
            taken.push_back(Take(position));
    }
    return taken;
}

QImportFormatLevelASCII::QImportFormatLevelASCII(QImportable& importable)
    : QImportFormatLevel(importable) {}

QImportFormatLevelASCII::QImportFormatLevelASCII(QImportLinePool& parentLines,
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

void QImportFormatLevelASCII::SortImportLines(QImportLinePool& lines,
                                              const QNewLevelImportable* importable,
                                              Lines& attributeLines, QImportLinePool& childLines) {
    if ((AsciiStyleOf(importable) & 2) &&
        SortNewBlock(lines, importable, attributeLines, childLines))
        return;
    const CString wanted = GetAsciiContextForImportable(importable, CString());
    for (ImportLine& line : lines.TakeMatching(wanted))
        SortMatchingLine(std::move(line), wanted, attributeLines, childLines);
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
    return !m_attributeLines.empty() || !m_childLines.IsEmpty();
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
    if (m_childLines.IsEmpty() || importable == nullptr)
        return false;
    const int style = importable->GetImportAsciiContextStyle();
    if (style & 1) {
        const CString wantedLevel = importable->GetImportLevelName();
        for (int position = m_childLines.Head(); position >= 0;
             position = m_childLines.Next(position)) {
            const ImportLine& line = m_childLines.At(position);
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
        identifier = FirstToken(m_childLines.At(m_childLines.Head()).context, end);
        return true;
    }
    return false;
}

bool QImportFormatLevelASCII::HasUnmatchedContents() const {
    return !m_attributeLines.empty() || !m_childLines.IsEmpty();
}

CString QImportFormatLevelASCII::UnmatchedContentDetails() const {
    CString details;
    const auto add = [&details](const ImportLine& line) {
        details += u"\n";
        details += ShortenedForReport(line.context);
        details += u"\t";
        details += ShortenedForReport(line.name);
        details += u"\t";
    };
    for (const ImportLine& line : m_attributeLines)
        add(line);
    for (int position = m_childLines.Head(); position >= 0; position = m_childLines.Next(position))
        add(m_childLines.At(position));
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
        line.value = EvaluateValueField(valueText);
    line.formula = FormulaText(ODBCUnFixup(fields[offset + 2]));
    return line;
}

bool QImportFormatASCII::ReadNonBlankLine(CString& text) {
    while (m_file.ReadString(text)) {
        ++m_lineNumber;
        if (!text.IsEmpty())
            return true;
    }
    return false;
}

bool QImportFormatASCII::ReportNotText() const {
    ReportImportError(
        CString::Formatted(u"Cannot read import data: line %d is not text", m_lineNumber));
    return false;
}

bool QImportFormatASCII::ImportToImportable() {
    UIServices().SetStatusBarText(u"Loading import file...");
    std::vector<CString> sample;
    CString text;
    while (static_cast<int>(sample.size()) < c_contextSampleLines && ReadNonBlankLine(text)) {
        if (text.Find(u'\0') >= 0)
            return ReportNotText();
        sample.push_back(text);
    }
    const bool contextFirst = CheckContextFirst(sample);
    QImportLinePool lines;
    for (const CString& sampleLine : sample)
        lines.Add(ParseLine(sampleLine, contextFirst));
    sample.clear();
    while (ReadNonBlankLine(text)) {
        if (text.Find(u'\0') >= 0)
            return ReportNotText();
        lines.Add(ParseLine(text, contextFirst));
    }
    SortImportLines(lines, NewLevelImportable(), m_attributeLines, m_childLines);
    while (!lines.IsEmpty())
        m_childLines.Add(lines.Take(lines.Head()));
    const bool imported = Importable().ImportAttributesAndChildren(*this);
    const bool allMatched = ReportUnmatchedContents();
    return imported && allMatched && ReportCount() == 0;
}

} // namespace keel
