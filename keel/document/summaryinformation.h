#pragma once

#include "keel/document/propertyset.h"
#include "keel/platform/cstring.h"
#include "keel/platform/guid.h"

#include <cstdint>
#include <functional>

namespace keel {

class QFormulaContext;

// The standard summary set ("SummaryInformation") of a document: texts, dates, counts and the
// time spent editing, each under its standard id and reachable from formulas by its name.
// Texts are narrow strings, the dates and the edit time file times, the counts and the security
// flags 32-bit integers; the thumbnail stays empty.
class QSummaryInformationPropertySet : public QPropertySet {
public:
    enum : std::uint32_t {
        PID_TITLE = 2,
        PID_SUBJECT = 3,
        PID_AUTHOR = 4,
        PID_KEYWORDS = 5,
        PID_COMMENTS = 6,
        PID_TEMPLATE = 7,
        PID_LASTAUTHOR = 8,
        PID_REVNUMBER = 9,
        PID_EDITTIME = 10,
        PID_LASTPRINTED = 11,
        PID_CREATE_DTM = 12,
        PID_LASTSAVE_DTM = 13,
        PID_PAGECOUNT = 14,
        PID_WORDCOUNT = 15,
        PID_CHARCOUNT = 16,
        PID_THUMBNAIL = 17,
        PID_APPNAME = 18,
        PID_SECURITY = 19,
    };
    static constexpr std::uint32_t c_firstId = PID_TITLE;
    static constexpr std::uint32_t c_lastId = PID_SECURITY;

    // The time now; the system clock unless a test gives its own.
    using Clock = std::function<FILETIME()>;

    explicit QSummaryInformationPropertySet(QFormulaContext* context = nullptr);

    // The formula name and the variant type of a summary id; empty and VT_EMPTY for others.
    static CString NameOf(std::uint32_t id);
    static std::uint32_t TypeOf(std::uint32_t id);

    CString GetTitle() const { return GetString(PID_TITLE); }
    void SetTitle(const CString& text) { SetString(PID_TITLE, text); }
    CString GetSubject() const { return GetString(PID_SUBJECT); }
    void SetSubject(const CString& text) { SetString(PID_SUBJECT, text); }
    CString GetAuthor() const { return GetString(PID_AUTHOR); }
    void SetAuthor(const CString& text) { SetString(PID_AUTHOR, text); }
    CString GetKeywords() const { return GetString(PID_KEYWORDS); }
    void SetKeywords(const CString& text) { SetString(PID_KEYWORDS, text); }
    CString GetComments() const { return GetString(PID_COMMENTS); }
    void SetComments(const CString& text) { SetString(PID_COMMENTS, text); }
    CString GetTemplate() const { return GetString(PID_TEMPLATE); }
    void SetTemplate(const CString& text) { SetString(PID_TEMPLATE, text); }
    CString GetLastAuthor() const { return GetString(PID_LASTAUTHOR); }
    void SetLastAuthor(const CString& text) { SetString(PID_LASTAUTHOR, text); }
    CString GetRevNumber() const { return GetString(PID_REVNUMBER); }
    void SetRevNumber(const CString& text) { SetString(PID_REVNUMBER, text); }
    CString GetAppname() const { return GetString(PID_APPNAME); }
    void SetAppname(const CString& text) { SetString(PID_APPNAME, text); }

    // A span of 100-nanosecond steps.
    FILETIME GetEditTime() const { return FileTimeOf(PID_EDITTIME); }
    void SetEditTime(const FILETIME& span) { SetFILETIME(PID_EDITTIME, span); }
    FILETIME GetLastPrinted() const { return FileTimeOf(PID_LASTPRINTED); }
    void SetLastPrinted(const FILETIME& time) { SetFILETIME(PID_LASTPRINTED, time); }
    FILETIME GetCreateDate() const { return FileTimeOf(PID_CREATE_DTM); }
    void SetCreateDate(const FILETIME& time) { SetFILETIME(PID_CREATE_DTM, time); }
    FILETIME GetLastSaveDate() const { return FileTimeOf(PID_LASTSAVE_DTM); }
    void SetLastSaveDate(const FILETIME& time) { SetFILETIME(PID_LASTSAVE_DTM, time); }

    int GetPageCount() const { return IntOf(PID_PAGECOUNT); }
    void SetPageCount(int count) { SetInt(PID_PAGECOUNT, count); }
    int GetWordCount() const { return IntOf(PID_WORDCOUNT); }
    void SetWordCount(int count) { SetInt(PID_WORDCOUNT, count); }
    int GetCharCount() const { return IntOf(PID_CHARCOUNT); }
    void SetCharCount(int count) { SetInt(PID_CHARCOUNT, count); }
    int GetSecurity() const { return IntOf(PID_SECURITY); }
    void SetSecurity(int flags) { SetInt(PID_SECURITY, flags); }

    // The user's name, from the application services.
    void SetUserAsAuthor();
    void SetUserAsLastAuthor();
    // The revision number counts up from its number, or from 0 when it holds none.
    void IncrRevNumber();

    // Keeps the time now as the start of the count. A new set starts counting when it is made.
    void StartEditTimeCount();
    // Adds the time since the start to the edit time and starts again from now. An edit time
    // that stays the same is not written.
    bool AddCountToEditTime();
    // Dates a save at the time now: the create date when the set has none yet, the last-save
    // date, and the edit time counted up to now.
    void RecordSave();

    // Names ids 2 to 19 and adds each that is missing with an empty value of its type.
    void InitialisePropsIfNotFound();
    void Reset() override;
    void FixupNames() override;

    // The count of the edit time starts again from the new clock's time.
    void SetClock(Clock clock);

private:
    FILETIME FileTimeOf(std::uint32_t id) const;
    int IntOf(std::uint32_t id) const;
    void AddCountToEditTimeUpTo(const FILETIME& now);

    FILETIME m_startEditTime;
    Clock m_clock = CurrentFileTime;
};

} // namespace keel
