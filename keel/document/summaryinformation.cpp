#include "keel/document/summaryinformation.h"

#include "keel/document/appservices.h"
#include "keel/values/anyvalue.h"

#include <iterator>

namespace keel {

namespace {

struct SummaryProperty {
    const char16_t* name;
    std::uint32_t type;
};

// Ids 2 to 19 in order.
constexpr SummaryProperty c_summaryProperties[] = {
    {u"title", VT_LPSTR},          {u"subject", VT_LPSTR},       {u"author", VT_LPSTR},
    {u"keywords", VT_LPSTR},       {u"comments", VT_LPSTR},      {u"template", VT_LPSTR},
    {u"lastauthor", VT_LPSTR},     {u"revnumber", VT_LPSTR},     {u"edittime", VT_FILETIME},
    {u"lastprinted", VT_FILETIME}, {u"create_dtm", VT_FILETIME}, {u"lastsave_dtm", VT_FILETIME},
    {u"pagecount", VT_I4},         {u"wordcount", VT_I4},        {u"charcount", VT_I4},
    {u"thumbnail", VT_EMPTY},      {u"appname", VT_LPSTR},       {u"security", VT_I4},
};
static_assert(std::size(c_summaryProperties) == QSummaryInformationPropertySet::c_lastId -
                                                    QSummaryInformationPropertySet::c_firstId + 1);

const SummaryProperty* SummaryPropertyOf(std::uint32_t id) {
    if (id < QSummaryInformationPropertySet::c_firstId ||
        id > QSummaryInformationPropertySet::c_lastId)
        return nullptr;
    return &c_summaryProperties[id - QSummaryInformationPropertySet::c_firstId];
}

} // namespace

QSummaryInformationPropertySet::QSummaryInformationPropertySet(QFormulaContext* context)
    : QPropertySet(u"SummaryInformation", context) {
    InitialisePropsIfNotFound();
    StartEditTimeCount();
}

CString QSummaryInformationPropertySet::NameOf(std::uint32_t id) {
    const SummaryProperty* property = SummaryPropertyOf(id);
    return property ? CString(property->name) : CString();
}

std::uint32_t QSummaryInformationPropertySet::TypeOf(std::uint32_t id) {
    const SummaryProperty* property = SummaryPropertyOf(id);
    return property ? property->type : VT_EMPTY;
}

void QSummaryInformationPropertySet::SetUserAsAuthor() {
    SetAuthor(AppServices().CurrentUserName());
}

void QSummaryInformationPropertySet::SetUserAsLastAuthor() {
    SetLastAuthor(AppServices().CurrentUserName());
}

void QSummaryInformationPropertySet::IncrRevNumber() {
    int revision = 0;
    if (!QAnyValue::ParseInt(revision, GetRevNumber()))
        revision = 0;
    SetRevNumber(CString::Formatted(u"%d", revision + 1));
}

void QSummaryInformationPropertySet::StartEditTimeCount() {
    m_startEditTime = m_clock();
}

bool QSummaryInformationPropertySet::AddCountToEditTime() {
    AddCountToEditTimeUpTo(m_clock());
    return true;
}

void QSummaryInformationPropertySet::RecordSave() {
    const FILETIME now = m_clock();
    if (GetCreateDate().Ticks() == 0)
        SetCreateDate(now);
    SetLastSaveDate(now);
    AddCountToEditTimeUpTo(now);
}

void QSummaryInformationPropertySet::SetClock(Clock clock) {
    m_clock = std::move(clock);
    StartEditTimeCount();
}

void QSummaryInformationPropertySet::AddCountToEditTimeUpTo(const FILETIME& now) {
    const FILETIME start = m_startEditTime;
    m_startEditTime = now;
    const std::uint64_t elapsed = now.Ticks() > start.Ticks() ? now.Ticks() - start.Ticks() : 0;
    const FILETIME stored = GetEditTime();
    FILETIME sum;
    sum.dwLowDateTime = stored.dwLowDateTime + static_cast<std::uint32_t>(elapsed);
    const std::uint32_t carry = sum.dwLowDateTime < stored.dwLowDateTime ? 1 : 0;
    sum.dwHighDateTime = stored.dwHighDateTime + static_cast<std::uint32_t>(elapsed >> 32) + carry;
    std::uint32_t type = VT_EMPTY;
    if (sum == stored && GetType(PID_EDITTIME, type) && type == VT_FILETIME)
        return;
    SetEditTime(sum);
}

void QSummaryInformationPropertySet::InitialisePropsIfNotFound() {
    for (std::uint32_t id = c_firstId; id <= c_lastId; ++id) {
        SetName(id, NameOf(id));
        std::uint32_t type = VT_EMPTY;
        if (GetType(id, type))
            continue;
        switch (TypeOf(id)) {
        case VT_LPSTR:
            SetString(id, CString());
            break;
        case VT_FILETIME:
            SetFILETIME(id, FILETIME());
            break;
        case VT_I4:
            SetInt(id, 0);
            break;
        default:
            Set(id, nullptr, VT_EMPTY);
            break;
        }
    }
}

void QSummaryInformationPropertySet::Reset() {
    QPropertySet::Reset();
    InitialisePropsIfNotFound();
}

void QSummaryInformationPropertySet::FixupNames() {
    InitialisePropsIfNotFound();
    QPropertySet::FixupNames();
}

FILETIME QSummaryInformationPropertySet::FileTimeOf(std::uint32_t id) const {
    FILETIME time;
    return GetFILETIME(id, time) ? time : FILETIME();
}

int QSummaryInformationPropertySet::IntOf(std::uint32_t id) const {
    int value = 0;
    return GetInt(id, value) ? value : 0;
}

} // namespace keel
