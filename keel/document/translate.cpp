#include "keel/document/translate.h"

#include "keel/document/errorlog.h"
#include "keel/platform/regex.h"
#include "keel/platform/registry.h"
#include "keel/platform/stdiofileex.h"
#include "keel/platform/wchar.h"
#include "keel/system/folders.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace keel {

// ---------------------------------------------------------------------------------------------
// QTranslatable: every live object is on one doubly linked list.

namespace {

struct TranslatableList {
    CCriticalSection m_criticalSection;
    QTranslatable* m_first = nullptr;
};

// Never destroyed, so that objects made or destroyed while the process ends still find it.
TranslatableList& TheTranslatableList() {
    static TranslatableList* const list = new TranslatableList;
    return *list;
}

} // namespace

QTranslatable::QTranslatable() {
    Register();
}

QTranslatable::QTranslatable(const QTranslatable&) {
    Register();
}

QTranslatable::~QTranslatable() {
    StopTranslations();
}

void QTranslatable::Register() {
    TranslatableList& list = TheTranslatableList();
    CSingleLock lock(&list.m_criticalSection, true);
    m_next = list.m_first;
    if (m_next)
        m_next->m_previous = this;
    list.m_first = this;
    m_registered = true;
}

void QTranslatable::StopTranslations() {
    TranslatableList& list = TheTranslatableList();
    CSingleLock lock(&list.m_criticalSection, true);
    if (!m_registered)
        return;
    if (m_previous)
        m_previous->m_next = m_next;
    else
        list.m_first = m_next;
    if (m_next)
        m_next->m_previous = m_previous;
    m_previous = m_next = nullptr;
    m_registered = false;
}

void QTranslatable::InvalidateTranslatables() {
    TranslatableList& list = TheTranslatableList();
    CSingleLock lock(&list.m_criticalSection, true);
    // The next object is read after the call, so an object that the call makes (added at the
    // front) or destroys (other than the current one) leaves the walk intact.
    for (QTranslatable* object = list.m_first; object; object = object->m_next)
        object->InvalidateTranslations();
}

// ---------------------------------------------------------------------------------------------
// QTString

QTString::QTString(const char16_t* text, const char16_t* context)
    : m_text(text), m_context(context) {}

QTString::QTString(const QTString& other)
    : QTranslatable(other), m_text(other.m_text), m_context(other.m_context) {}

QTString::~QTString() {
    StopTranslations();
}

// The lock is not held while translating: the translation may report a bad translation, and the
// report may take locks of its own and use QTString objects, this one included.
CString QTString::Translated() const {
    unsigned generation = 0;
    {
        std::lock_guard lock(m_mutex);
        if (m_translated)
            return m_translation;
        generation = m_generation;
    }
    const CString translation = TranslateString(m_text, CString(), m_context);
    std::lock_guard lock(m_mutex);
    if (!m_translated && generation == m_generation) {
        m_translation = translation;
        m_translated = true;
    }
    return translation;
}

const char16_t* QTString::c_str() const {
    const CString translation = Translated();
    std::lock_guard lock(m_mutex);
    if (m_translated)
        return m_translation.GetString();
    // A change of language came between the two steps: the translation just made is kept with
    // the dropped ones, as good an answer as a call made a moment earlier would have had.
    m_retired.push_back(translation);
    return m_retired.back().GetString();
}

void QTString::InvalidateTranslations() {
    std::lock_guard lock(m_mutex);
    ++m_generation;
    if (!m_translated)
        return;
    m_retired.push_back(m_translation);
    m_translation.Empty();
    m_translated = false;
}

// ---------------------------------------------------------------------------------------------
// Switches and the messages of the translator

namespace {

std::atomic<bool> c_enabled{false};
std::atomic<bool> c_disabled{false};
std::atomic<bool> c_partialTranslations{false};
std::atomic<bool> c_fileUpdates{false};

constexpr int c_codePageUtf8 = 65001;
constexpr const char16_t* c_defaultTranslationComment = u"Default translation";

const QTString& HeadingTranslation() {
    static const QTString heading(u"Translation", u"Message box");
    return heading;
}

// While a thread reports a bad translation, a bad translation met by the report itself falls
// back to the original without a report of its own, so reports never nest.
thread_local bool t_reportingBadTranslation = false;

class ReportingBadTranslation {
public:
    ReportingBadTranslation() { t_reportingBadTranslation = true; }
    ~ReportingBadTranslation() { t_reportingBadTranslation = false; }
    ReportingBadTranslation(const ReportingBadTranslation&) = delete;
    ReportingBadTranslation& operator=(const ReportingBadTranslation&) = delete;
};

void ReportBadTranslation(const CString& translation, const CString& original) {
    if (t_reportingBadTranslation)
        return;
    const ReportingBadTranslation reporting;
    static const QTString format(u"Invalid translation - wrong number of format "
                                 u"specifiers:\n\t%s\nWhen translating\n\t%s\n",
                                 u"Message box (translation,original)");
    QMessageBoxOrLog(CString::Formatted(format, translation, original), HeadingTranslation(), true);
}

void ReportLoadProblems(const CString& path, const Translator::LoadProblems& problems) {
    if (!problems.m_openFailure.IsEmpty()) {
        static const QTString format(u"Cannot read the translation file %s:\n%s",
                                     u"Message box (fileName,reason)");
        QMessageBoxOrLog(CString::Formatted(format, path, problems.m_openFailure),
                         HeadingTranslation(), true);
    }
    if (problems.m_brokenLines > 0) {
        static const QTString format(
            u"The translation file %s has %d damaged lines, the first of them line %d:\n\t%s\n"
            u"Lines without the fields of a translation are kept as comments.",
            u"Message box (fileName,count,lineNumber,line)");
        QMessageBoxOrLog(CString::Formatted(format, path, problems.m_brokenLines,
                                            problems.m_firstBrokenLine, problems.m_firstBrokenText),
                         HeadingTranslation(), true);
    }
}

void ReportSaveFailure(const CString& path, const CString& failure) {
    static const QTString format(u"Cannot save the translation file %s:\n%s",
                                 u"Message box (fileName,reason)");
    QMessageBoxOrLog(CString::Formatted(format, path, failure), HeadingTranslation(), true);
}

} // namespace

// ---------------------------------------------------------------------------------------------
// The format check

namespace {

bool IsOneOf(char16_t ch, std::u16string_view set) {
    return set.find(ch) != std::u16string_view::npos;
}

std::size_t SkipDigits(std::u16string_view format, std::size_t at) {
    while (at < format.size() && IsDigit(format[at]))
        ++at;
    return at;
}

std::size_t SkipWidth(std::u16string_view format, std::size_t at) {
    if (at < format.size() && format[at] == u'*')
        return at + 1;
    return SkipDigits(format, at);
}

std::size_t SkipLengthModifier(std::u16string_view format, std::size_t at) {
    static constexpr std::u16string_view modifiers[] = {
        u"I64", u"I32", u"hh", u"ll", u"h", u"l", u"L", u"q", u"j", u"z", u"t", u"I", u"w"};
    for (const std::u16string_view modifier : modifiers)
        if (format.substr(at, modifier.size()) == modifier)
            return at + modifier.size();
    return at;
}

// The position of the conversion character of the conversion that starts after the "%" at
// `percent`, or npos when printf would not read one there.
std::size_t ConversionAt(std::u16string_view format, std::size_t percent) {
    std::size_t at = percent + 1;
    if (const std::size_t afterDigits = SkipDigits(format, at);
        afterDigits > at && afterDigits < format.size() && format[afterDigits] == u'$')
        at = afterDigits + 1;
    while (at < format.size() && IsOneOf(format[at], u"-+ #0'"))
        ++at;
    at = SkipWidth(format, at);
    if (at < format.size() && format[at] == u'.')
        at = SkipWidth(format, at + 1);
    at = SkipLengthModifier(format, at);
    if (at < format.size() && IsOneOf(format[at], u"diouxXfFeEgGaAcCsSpn%"))
        return at;
    return std::u16string_view::npos;
}

} // namespace

int CountFormatSpecifiers(const CString& format) {
    const std::u16string_view text = format.View();
    int count = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != u'%')
            continue;
        const std::size_t conversion = ConversionAt(text, at);
        if (conversion == std::u16string_view::npos)
            continue;
        if (text[conversion] != u'%')
            ++count;
        at = conversion;
    }
    return count;
}

// ---------------------------------------------------------------------------------------------
// Escapes of the file

namespace {

constexpr char16_t c_escape = u'\\';

// The letter of the escape of a character, or 0 when it is written as it is.
char16_t EscapeLetter(char16_t ch) {
    switch (ch) {
    case u'\t':
        return u't';
    case u'\n':
        return u'n';
    case u'\r':
        return u'r';
    case c_escape:
        return c_escape;
    default:
        return 0;
    }
}

char16_t UnescapedCharacter(char16_t letter) {
    switch (letter) {
    case u't':
        return u'\t';
    case u'n':
        return u'\n';
    case u'r':
        return u'\r';
    case c_escape:
        return c_escape;
    default:
        return 0;
    }
}

// Whether a backslash before `next` must be doubled: when "\" and what `next` is written as
// would be read as an escape.
bool BackslashNeedsEscape(char16_t next) {
    return EscapeLetter(next) != 0 || UnescapedCharacter(next) != 0;
}

} // namespace

CString Translator::EscapeText(const CString& text) {
    const std::u16string_view units = text.View();
    CString escaped;
    for (std::size_t i = 0; i < units.size(); ++i) {
        const char16_t ch = units[i];
        const bool lastOne = i + 1 == units.size();
        if (ch == c_escape && (lastOne || !BackslashNeedsEscape(units[i + 1]))) {
            escaped += ch;
        } else if (const char16_t letter = EscapeLetter(ch)) {
            escaped += c_escape;
            escaped += letter;
        } else {
            escaped += ch;
        }
    }
    return escaped;
}

CString Translator::UnescapeText(const CString& text) {
    const std::u16string_view units = text.View();
    CString unescaped;
    for (std::size_t i = 0; i < units.size(); ++i) {
        const char16_t next = i + 1 < units.size() ? units[i + 1] : 0;
        if (units[i] == c_escape && UnescapedCharacter(next) != 0) {
            unescaped += UnescapedCharacter(next);
            ++i;
        } else {
            unescaped += units[i];
        }
    }
    return unescaped;
}

// ---------------------------------------------------------------------------------------------
// The table

namespace {

// Unambiguous whatever characters the two texts hold: the length of the first says where the
// second begins.
CString MakeKey(const CString& original, const CString& qualifier) {
    return CString::Formatted(u"%d:", original.GetLength()) + original + qualifier;
}

bool IsFriendlyNameRecord(const CString& original, const CString& qualifier) {
    return original == Translator::c_specialOriginal &&
           qualifier == Translator::c_friendlyNameQualifier;
}

bool IsWordCharacter(char16_t ch) {
    return IsAlnum(ch) || ch == u'_';
}

// Whether `piece` at `at` in `text` stands as whole words: where the piece begins (or ends) with
// a letter, digit or underscore, the text must not continue with one before (or after) it.
bool IsWholeWordsAt(std::u16string_view text, std::size_t at, std::u16string_view piece) {
    const std::size_t end = at + piece.size();
    const bool joinedBefore =
        at > 0 && IsWordCharacter(piece.front()) && IsWordCharacter(text[at - 1]);
    const bool joinedAfter =
        end < text.size() && IsWordCharacter(piece.back()) && IsWordCharacter(text[end]);
    return !joinedBefore && !joinedAfter;
}

// The partial translation replaces whole words only, so that the translation of "Open" changes
// "Open the file" but leaves "Opening" and "Reopen" alone. Returns whether `text` changed.
bool ReplaceWholeWords(CString& text, const CString& piece, const CString& replacement) {
    const std::u16string_view units = text.View();
    const std::u16string_view wanted = piece.View();
    CString result;
    std::size_t copied = 0;
    bool replaced = false;
    for (std::size_t at = units.find(wanted); at != std::u16string_view::npos;
         at = units.find(wanted, at)) {
        if (!IsWholeWordsAt(units, at, wanted)) {
            ++at;
            continue;
        }
        result.Append(units.data() + copied, static_cast<int>(at - copied));
        result += replacement;
        at += wanted.size();
        copied = at;
        replaced = true;
    }
    if (!replaced)
        return false;
    result.Append(units.data() + copied, static_cast<int>(units.size() - copied));
    const bool changed = result != text;
    text = result;
    return changed;
}

// The fields of a line cut at its tabs, unescaped.
std::vector<CString> SplitFields(const CString& line) {
    std::vector<CString> fields;
    const std::u16string_view units = line.View();
    std::size_t start = 0;
    for (;;) {
        const std::size_t tab = units.find(u'\t', start);
        const std::u16string_view field = units.substr(start, tab - start);
        fields.push_back(Translator::UnescapeText(CString(field)));
        if (tab == std::u16string_view::npos)
            return fields;
        start = tab + 1;
    }
}

// Lines of the file that are no records and are not reported: empty lines, lines without a tab
// (free text), and lines that begin with "//" or "#" (which may comment out a record).
bool IsCommentLine(const CString& line) {
    const std::u16string_view units = line.View();
    return units.empty() || units.find(u'\t') == std::u16string_view::npos ||
           units.starts_with(u"//") || units.starts_with(u"#");
}

bool IsRecordFieldCount(std::size_t count) {
    return count == 3 || count == 5;
}

// The unreadable bytes of a line come in as replacement characters.
bool HoldsUnreadableCharacters(const CString& line) {
    return line.Find(u'\xFFFD') >= 0;
}

CString RecordLine(const Translation& record, const ContextMatch& match) {
    CString line = Translator::EscapeText(record.m_original) + u'\t' +
                   Translator::EscapeText(record.m_qualifier) + u'\t' +
                   Translator::EscapeText(match.m_translation);
    if (!match.m_contextPattern.IsEmpty() || !match.m_comment.IsEmpty())
        line += u'\t' + Translator::EscapeText(match.m_contextPattern) + u'\t' +
                Translator::EscapeText(match.m_comment);
    return line + u'\n';
}

} // namespace

// Never destroyed: the error log and other objects that live to the end of the process
// translate their last messages while statics are being destroyed.
Translator& Translator::TheTranslator() {
    static Translator* const translator = new Translator;
    return *translator;
}

CString Translator::GetFilePath() {
    CSingleLock lock(&m_criticalSection, true);
    return m_filePath;
}

bool Translator::IsLoaded() {
    CSingleLock lock(&m_criticalSection, true);
    return m_loaded;
}

bool Translator::IsModified() {
    CSingleLock lock(&m_criticalSection, true);
    return m_modified;
}

int Translator::GetCount() {
    CSingleLock lock(&m_criticalSection, true);
    return m_translations.GetCount();
}

Translation Translator::GetAt(int index) {
    CSingleLock lock(&m_criticalSection, true);
    return m_translations.GetAt(index);
}

bool Translator::Lookup(const CString& original, const CString& qualifier, Translation& found) {
    CSingleLock lock(&m_criticalSection, true);
    const int index = Find(original, qualifier);
    if (index < 0)
        return false;
    found = m_translations[index];
    return true;
}

QArray<Translator::CommentLine> Translator::GetCommentLines() {
    CSingleLock lock(&m_criticalSection, true);
    return m_commentLines;
}

int Translator::Find(const CString& original, const CString& qualifier) const {
    int index = -1;
    return m_index.Lookup(MakeKey(original, qualifier), index) ? index : -1;
}

int Translator::AddRecord(const CString& original, const CString& qualifier,
                          const ContextMatch& match) {
    Translation record{original, qualifier, {}};
    record.m_matches.Add(match);
    const int index = m_translations.Add(record);
    m_index.SetAt(MakeKey(original, qualifier), index);
    RebuildIndexIfCrowded();
    return index;
}

// The map keeps the number of buckets it was given, so it is rebuilt larger as the table grows
// to keep a look-up to about one comparison.
void Translator::RebuildIndexIfCrowded() {
    const unsigned count = static_cast<unsigned>(m_index.GetCount());
    if (count <= m_index.GetHashTableSize())
        return;
    m_index.RemoveAll();
    m_index.InitHashTable(count * 2 + 1);
    for (int i = 0; i < m_translations.GetCount(); ++i)
        m_index.SetAt(MakeKey(m_translations[i].m_original, m_translations[i].m_qualifier), i);
}

void Translator::Clear() {
    m_translations.RemoveAll();
    m_index.RemoveAll();
    m_index.InitHashTable(QMap<CString, int>::c_defaultHashTableSize);
    m_commentLines.RemoveAll();
    m_filePath.Empty();
    m_loaded = false;
    m_modified = false;
}

CString Translator::Translate(const CString& text, const CString& qualifier,
                              const CString& context) {
    CSingleLock lock(&m_criticalSection, true);
    if (!m_loaded)
        return text;
    if (const int index = Find(text, qualifier); index >= 0)
        return TranslationForContext(m_translations[index], context);
    if (ArePartialTranslationsEnabled())
        return PartialTranslation(text, qualifier);
    if (AreTranslationsFileUpdatesEnabled()) {
        AddRecord(text, qualifier, ContextMatch{text, CString(), CString()});
        m_modified = true;
    }
    return text;
}

// With one match its pattern is not looked at. With several, the first whose pattern matches
// the context gives the translation; when none does, the context is added (quoted, so that it
// matches itself next time) with the text as its translation, for a translator to fill in.
CString Translator::TranslationForContext(Translation& record, const CString& context) {
    QArray<ContextMatch>& matches = record.m_matches;
    if (matches.GetCount() == 1)
        return matches[0].m_translation;
    for (const ContextMatch& match : matches)
        if (RegexMatch(context, match.m_contextPattern))
            return match.m_translation;
    matches.Add(ContextMatch{record.m_original, RegexQuote(context), c_defaultTranslationComment});
    m_modified = true;
    return record.m_original;
}

// Replaces in the text the originals of the records with one match by their translations,
// trying only originals longer than the longest one that has changed the text so far. The
// outcome becomes a record of its own.
CString Translator::PartialTranslation(const CString& text, const CString& qualifier) {
    CString result = text;
    int longestUsed = 0;
    for (const Translation& record : m_translations) {
        if (record.m_matches.GetCount() != 1 || record.m_original.GetLength() <= longestUsed ||
            IsFriendlyNameRecord(record.m_original, record.m_qualifier))
            continue;
        if (ReplaceWholeWords(result, record.m_original, record.m_matches[0].m_translation))
            longestUsed = record.m_original.GetLength();
    }
    AddRecord(text, qualifier, ContextMatch{result, CString(), CString()});
    m_modified = true;
    return result;
}

bool Translator::Load(const CString& path, LoadProblems& problems) {
    CSingleLock lock(&m_criticalSection, true);
    Clear();
    if (path.IsEmpty())
        return false;
    m_filePath = path;
    m_loaded = true;
    std::error_code error;
    if (!std::filesystem::exists(std::filesystem::path(path.ToUtf8()), error))
        return false;
    CStdioFileEx file;
    CFileException failure;
    if (!file.Open(path, CFile::modeRead | CFile::typeText, &failure)) {
        problems.m_openFailure = CString::FromUtf8(failure.what());
        return false;
    }
    file.SetCodePage(c_codePageUtf8);
    ReadLines(file, problems);
    return true;
}

void Translator::ReadLines(CStdioFileEx& file, LoadProblems& problems) {
    CString line;
    for (int lineNumber = 1; file.ReadString(line); ++lineNumber) {
        const std::vector<CString> fields = SplitFields(line);
        const bool commentLine = IsCommentLine(line);
        const bool broken =
            (!commentLine && !IsRecordFieldCount(fields.size())) || HoldsUnreadableCharacters(line);
        if (broken && problems.m_brokenLines++ == 0) {
            problems.m_firstBrokenLine = lineNumber;
            problems.m_firstBrokenText = line;
        }
        if (commentLine || !IsRecordFieldCount(fields.size()))
            m_commentLines.Add(CommentLine{line, m_translations.GetCount(), 0});
        else
            AddLine(fields);
    }
}

// A line whose original and qualifier are in the table already adds a match to that record.
void Translator::AddLine(const std::vector<CString>& fields) {
    ContextMatch match{fields[2], CString(), CString()};
    if (fields.size() == 5) {
        match.m_contextPattern = fields[3];
        match.m_comment = fields[4];
    }
    const int index = Find(fields[0], fields[1]);
    if (index < 0) {
        AddRecord(fields[0], fields[1], match);
        return;
    }
    // A comment just read stood before this line, not before the next record.
    for (int i = m_commentLines.GetCount() - 1;
         i >= 0 && m_commentLines[i].m_record == m_translations.GetCount(); --i) {
        m_commentLines[i].m_record = index;
        m_commentLines[i].m_match = m_translations[index].m_matches.GetCount();
    }
    m_translations[index].m_matches.Add(match);
}

bool Translator::Save(CString& failure) {
    CSingleLock lock(&m_criticalSection, true);
    if (m_filePath.IsEmpty()) {
        failure = u"There is no translation file.";
        return false;
    }
    // Written beside the file and then renamed over it, so that a failed write leaves the file
    // as it was. The name does not begin with "translations", so a file left behind by a crash
    // is not offered as a translation.
    const std::filesystem::path target(m_filePath.ToUtf8());
    const std::filesystem::path temporary =
        target.parent_path() / ("~" + target.filename().string());
    std::error_code error;
    if (!WriteFile(CString::FromUtf8(temporary.string()), failure)) {
        std::filesystem::remove(temporary, error);
        return false;
    }
    std::filesystem::rename(temporary, target, error);
    if (error) {
        failure = CString::FromUtf8(error.message());
        std::filesystem::remove(temporary, error);
        return false;
    }
    m_modified = false;
    return true;
}

bool Translator::WriteFile(const CString& path, CString& failure) {
    try {
        CStdioFileEx file;
        CFileException openFailure;
        if (!file.Open(path, CFile::modeCreate | CFile::modeWrite | CFile::typeText,
                       &openFailure)) {
            failure = CString::FromUtf8(openFailure.what());
            return false;
        }
        file.SetCodePage(c_codePageUtf8);
        file.SetWriteBOM(false);
        WriteLines(file);
        file.Close();
        return true;
    } catch (const CFileException& writeFailure) {
        failure = CString::FromUtf8(writeFailure.what());
        return false;
    }
}

// The records in their order, each match on a line of its own, and each comment line before
// the line it stood before when the file was read.
void Translator::WriteLines(CStdioFileEx& file) {
    QArray<CommentLine> comments = m_commentLines;
    std::stable_sort(
        comments.begin(), comments.end(), [](const CommentLine& a, const CommentLine& b) {
            return a.m_record != b.m_record ? a.m_record < b.m_record : a.m_match < b.m_match;
        });
    auto nextComment = comments.begin();
    auto writeCommentsBefore = [&](int record, int match) {
        for (; nextComment != comments.end() &&
               (nextComment->m_record < record ||
                (nextComment->m_record == record && nextComment->m_match <= match));
             ++nextComment)
            file.WriteString(nextComment->m_text + u'\n');
    };
    for (int i = 0; i < m_translations.GetCount(); ++i) {
        const Translation& record = m_translations[i];
        for (int j = 0; j < record.m_matches.GetCount(); ++j) {
            writeCommentsBefore(i, j);
            file.WriteString(RecordLine(record, record.m_matches[j]));
        }
    }
    writeCommentsBefore(m_translations.GetCount(), 0);
    for (; nextComment != comments.end(); ++nextComment)
        file.WriteString(nextComment->m_text + u'\n');
}

// ---------------------------------------------------------------------------------------------
// The functions of the translator

// 1. An empty text gives an empty string. 2. While translations are disabled the text is the
// result. 3-7. The table gives the translation (see Translator::Translate). 8. A translation
// with another number of format conversions than the text is reported and the text is used, so
// that a format never meets a wrong number of arguments.
CString TranslateString(const CString& text, const CString& qualifier, const CString& context) {
    if (text.IsEmpty())
        return CString();
    if (!AreTranslationsEnabled())
        return text;
    const CString translation = Translator::TheTranslator().Translate(text, qualifier, context);
    if (CountFormatSpecifiers(translation) == CountFormatSpecifiers(text))
        return translation;
    ReportBadTranslation(translation, text);
    return text;
}

bool AreTranslationsEnabled() {
    return c_enabled.load() && !c_disabled.load();
}

bool DisableTranslations(bool disable) {
    return c_disabled.exchange(disable);
}

CString GetCurrentTranslationFile() {
    return Translator::TheTranslator().GetFilePath();
}

bool SwitchToTranslationFile(const CString& path, bool refresh, bool remember) {
    Translator& translator = Translator::TheTranslator();
    CString formerPath;
    CString saveFailure;
    Translator::LoadProblems problems;
    bool read = false;
    {
        CSingleLock lock(&translator.GetCriticalSection(), true);
        formerPath = translator.GetFilePath();
        if (translator.IsModified() && AreTranslationsFileUpdatesEnabled())
            translator.Save(saveFailure);
        read = translator.Load(path, problems);
        c_enabled = !path.IsEmpty();
    }
    if (!saveFailure.IsEmpty())
        ReportSaveFailure(formerPath, saveFailure);
    ReportLoadProblems(path, problems);
    if (remember)
        CRegistry::Current().WriteProfileString(u"Options", u"TranslationsFile", path);
    if (refresh)
        QTranslatable::InvalidateTranslatables();
    return read;
}

bool SaveTranslationFile() {
    Translator& translator = Translator::TheTranslator();
    const CString path = translator.GetFilePath();
    if (path.IsEmpty())
        return false;
    CString failure;
    if (translator.Save(failure))
        return true;
    ReportSaveFailure(path, failure);
    return false;
}

namespace {

bool IsTranslationFileName(const CString& fileName) {
    static constexpr std::u16string_view prefix = u"translations";
    const int prefixLength = static_cast<int>(prefix.size());
    return fileName.GetLength() > prefixLength &&
           fileName.Left(prefixLength).CompareNoCase(CString(prefix)) == 0 &&
           fileName.Find(u'.', prefixLength) >= 0;
}

// The translation of the "<Special>" "<FriendlyName>" record, or the file name without its
// extension when the file has none.
CString DisplayNameOf(const CString& path) {
    CStdioFileEx file;
    if (file.Open(path, CFile::modeRead | CFile::typeText)) {
        file.SetCodePage(c_codePageUtf8);
        CString line;
        while (file.ReadString(line)) {
            const std::vector<CString> fields = SplitFields(line);
            if (!IsCommentLine(line) && IsRecordFieldCount(fields.size()) &&
                IsFriendlyNameRecord(fields[0], fields[1]))
                return fields[2];
        }
    }
    return CString::FromUtf8(std::filesystem::path(path.ToUtf8()).stem().string());
}

} // namespace

QArray<AvailableTranslation> GetAvailableTranslations() {
    return GetAvailableTranslations(QFolders::ProgramDir());
}

QArray<AvailableTranslation> GetAvailableTranslations(const CString& folder) {
    std::vector<CString> paths;
    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(folder.ToUtf8()), error)) {
        const CString name = CString::FromUtf8(entry.path().filename().string());
        if (entry.is_regular_file(error) && IsTranslationFileName(name))
            paths.push_back(CString::FromUtf8(entry.path().string()));
    }
    std::sort(paths.begin(), paths.end());
    QArray<AvailableTranslation> available;
    for (const CString& path : paths)
        available.Add(AvailableTranslation{path, DisplayNameOf(path)});
    return available;
}

void EnablePartialTranslations(bool enable) {
    c_partialTranslations = enable;
}

bool ArePartialTranslationsEnabled() {
    return c_partialTranslations.load();
}

void EnableTranslationsFileUpdates(bool enable) {
    c_fileUpdates = enable;
}

bool AreTranslationsFileUpdatesEnabled() {
    return c_fileUpdates.load();
}

} // namespace keel
