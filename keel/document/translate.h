#pragma once

#include "keel/platform/cstring.h"
#include "keel/platform/lock.h"
#include "keel/values/array.h"
#include "keel/values/map.h"

#include <mutex>
#include <vector>

namespace keel {

class CStdioFileEx;

// Base of the objects that hold translated text. Every live one is on a list, so that a change of
// language can tell them all to drop what they hold.
class QTranslatable {
public:
    virtual ~QTranslatable();
    QTranslatable& operator=(const QTranslatable&) = delete;

    // Drops the translations held, so that they are made again at their next use.
    virtual void InvalidateTranslations() = 0;
    // Calls InvalidateTranslations of every live object.
    static void InvalidateTranslatables();

protected:
    QTranslatable();
    QTranslatable(const QTranslatable& other);

    // Takes the object off the list. A derived class whose InvalidateTranslations uses its own
    // members calls this first in its destructor, so that no change of language running on
    // another thread reaches those members while they are destroyed.
    void StopTranslations();

private:
    void Register();

    QTranslatable* m_previous = nullptr;
    QTranslatable* m_next = nullptr;
    bool m_registered = false;
};

// A text for the user with the context of its use, translated on first use and kept. Built as a
// static, it may be built before any translation file is loaded. Safe to use from several threads.
class QTString : public QTranslatable {
public:
    QTString(const char16_t* text, const char16_t* context);
    QTString(const QTString& other);
    ~QTString() override;

    operator CString() const { return Translated(); }
    // Stays valid for the life of this object, also after a change of language.
    const char16_t* c_str() const;
    CString TranslationContext() const { return m_context; }
    CString OriginalText() const { return m_text; }

    void InvalidateTranslations() override;

private:
    CString Translated() const;

    const CString m_text;
    const CString m_context;
    mutable std::mutex m_mutex;
    mutable CString m_translation;
    mutable bool m_translated = false;
    // Counts the invalidations, so that a translation made across one is not kept.
    mutable unsigned m_generation = 0;
    // Translations dropped by a change of language, kept for pointers handed out by c_str.
    mutable std::vector<CString> m_retired;
};

// One translation of a text, for the contexts that `m_contextPattern` (a regular expression)
// matches.
struct ContextMatch {
    CString m_translation;
    CString m_contextPattern;
    CString m_comment;
};

// One record of a translation file: a text, the qualifier that keeps apart its different
// meanings, and its translations.
struct Translation {
    CString m_original;
    CString m_qualifier;
    QArray<ContextMatch> m_matches;
};

// A translation file that can be switched to, with the name of its language.
struct AvailableTranslation {
    CString m_filePath;
    CString m_displayName;
};

// The process-wide table of translations read from the current translation file. Each public
// operation takes the table's lock.
class Translator {
public:
    // A line of the file that is no record, and the place it had: before line `m_match` of the
    // record `m_record` (which is past the last record for the lines at the end of the file).
    struct CommentLine {
        CString m_text;
        int m_record = 0;
        int m_match = 0;
    };

    // What went wrong reading a file, for one report after the table's lock is released.
    struct LoadProblems {
        CString m_openFailure;
        int m_brokenLines = 0;
        int m_firstBrokenLine = 0;
        CString m_firstBrokenText;
    };

    static Translator& TheTranslator();
    // Held by the operations below; callers that join several of them hold it around them.
    CCriticalSection& GetCriticalSection() { return m_criticalSection; }

    CString GetFilePath();
    bool IsLoaded();
    bool IsModified();
    int GetCount();
    Translation GetAt(int index);
    // Whether a record with this original and qualifier is in the table, and a copy of it.
    bool Lookup(const CString& original, const CString& qualifier, Translation& found);
    QArray<CommentLine> GetCommentLines();

    // Steps 3 to 7 of TranslateString: the translation of `text` from the table, which is
    // brought up to date with what was asked.
    CString Translate(const CString& text, const CString& qualifier, const CString& context);

    // Empties the table and reads `path` into it. An empty path leaves the table unloaded; a
    // path to no file leaves it loaded and empty. Returns whether a file was read.
    bool Load(const CString& path, LoadProblems& problems);
    // Writes the table to its file. Returns false with the reason when it cannot.
    bool Save(CString& failure);

    // The escapes of a text in a field of the file: tab, line feed and carriage return become
    // "\t", "\n" and "\r". A backslash is doubled only where it would otherwise be read as the
    // start of one of those escapes (before "t", "n", "r", a backslash or one of the three
    // characters), so that regular expressions such as "\d+" keep their look in the file. On
    // reading, any backslash that does not start one of the four escapes stands for itself.
    static CString EscapeText(const CString& text);
    static CString UnescapeText(const CString& text);

    // The original and qualifier of the record that holds, as its translation, the name of the
    // file's language.
    static constexpr const char16_t* c_specialOriginal = u"<Special>";
    static constexpr const char16_t* c_friendlyNameQualifier = u"<FriendlyName>";

private:
    Translator() = default;

    void Clear();
    int Find(const CString& original, const CString& qualifier) const;
    int AddRecord(const CString& original, const CString& qualifier, const ContextMatch& match);
    void AddLine(const std::vector<CString>& fields);
    void RebuildIndexIfCrowded();
    CString TranslationForContext(Translation& record, const CString& context);
    CString PartialTranslation(const CString& text, const CString& qualifier);
    void ReadLines(CStdioFileEx& file, LoadProblems& problems);
    bool WriteFile(const CString& path, CString& failure);
    void WriteLines(CStdioFileEx& file);

    CCriticalSection m_criticalSection;
    QArray<Translation> m_translations;
    // Key: MakeKey(original, qualifier); value: index into m_translations.
    QMap<CString, int> m_index;
    QArray<CommentLine> m_commentLines;
    CString m_filePath;
    bool m_loaded = false;
    bool m_modified = false;
};

// The translation of `text` for `context`, with the format check; see translate.cpp for the
// steps. An empty text gives an empty string at once.
CString TranslateString(const CString& text, const CString& qualifier, const CString& context);

// The number of conversions printf would read in `format`; "%%" is none.
int CountFormatSpecifiers(const CString& format);

// True when a translation file is in force and translations are not disabled for the moment.
bool AreTranslationsEnabled();
// Sets or clears the temporary disabling of translations; returns the former setting.
bool DisableTranslations(bool disable);

CString GetCurrentTranslationFile();
// Saves the current file first when it is modified and file updates are enabled, then loads
// `path` (an empty path turns translations off). `remember` stores the path as the option
// "TranslationsFile"; `refresh` tells every QTranslatable to translate again. Returns whether a
// file was read.
bool SwitchToTranslationFile(const CString& path, bool refresh, bool remember);
// Writes the current table to its file, reporting a failure. Returns false when nothing was
// written: after a failure, or when no translation file is in force.
bool SaveTranslationFile();

// The translation files, named "translations*.*", in the program's folder or in `folder`, in
// the order of their names.
QArray<AvailableTranslation> GetAvailableTranslations();
QArray<AvailableTranslation> GetAvailableTranslations(const CString& folder);

void EnablePartialTranslations(bool enable);
bool ArePartialTranslationsEnabled();
void EnableTranslationsFileUpdates(bool enable);
bool AreTranslationsFileUpdatesEnabled();

} // namespace keel
