#include "keel/values/stringunique.h"

#include "keel/platform/exceptions.h"
#include "keel/platform/lock.h"
#include "keel/platform/wchar.h"
#include "keel/values/array.h"
#include "keel/values/map.h"

#include <atomic>

namespace keel {

namespace {

constexpr unsigned c_initialBuckets = 17;
constexpr int c_mapBlockSize = 10;
constexpr int c_shortestCompletion = 3;

// The one table behind every interned string, built on first use so that interned constants of
// other translation units can be made during static initialisation.
struct InternTable {
    QArray<QStringUniqueCommon::KnownString> c_array;
    QMap<CString, int> c_map{c_mapBlockSize};
    QArray<int> c_sorted;
    CCriticalSection c_criticalsection;

    InternTable() { c_map.InitHashTable(c_initialBuckets); }
};

InternTable& Table() {
    static InternTable table;
    return table;
}

std::atomic<QStringUniqueCommon::RespellHook> c_respellHook{nullptr};

CString Lowered(const CString& text) {
    CString lower = text;
    lower.MakeLower();
    return lower;
}

// Callers hold the lock.
const CString& SpellingAt(InternTable& table, int index) {
    if (index >= table.c_array.GetCount())
        ThrowInvalidArgument("interned string index " + std::to_string(index));
    return table.c_array[index].m_spelling;
}

const CString& SortedSpellingAt(InternTable& table, int position) {
    if (position < 0 || position >= table.c_sorted.GetCount())
        ThrowInvalidArgument("completion position " + std::to_string(position));
    return SpellingAt(table, table.c_sorted[position]);
}

void EnterInMap(InternTable& table, const CString& spelling, int index) {
    table.c_map.SetAt(spelling, index);
    table.c_map.SetAt(Lowered(spelling), index);
}

// The map never grows by itself: once it is half full it is rebuilt with 2n - 3 buckets.
void GrowMapIfHalfFull(InternTable& table) {
    const unsigned buckets = table.c_map.GetHashTableSize();
    if (2u * static_cast<unsigned>(table.c_map.GetCount()) < buckets)
        return;
    table.c_map.RemoveAll();
    table.c_map.InitHashTable(2 * buckets - 3);
    for (int index = 0; index < table.c_array.GetCount(); ++index)
        EnterInMap(table, table.c_array[index].m_spelling, index);
}

int FindExisting(InternTable& table, const CString& text) {
    int index = -1;
    if (table.c_map.Lookup(text, index) || table.c_map.Lookup(Lowered(text), index))
        return index;
    return -1;
}

void Respell(InternTable& table, int index, const CString& text) {
    table.c_array[index].m_spelling = text;
    if (const auto hook = c_respellHook.load())
        hook(index);
}

void AddToSorted(InternTable& table, const CString& text, int index) {
    int low = -1;
    int high = table.c_sorted.GetCount();
    while (high - low > 1) {
        const int middle = (low + high) / 2;
        if (text.CompareNoCase(SortedSpellingAt(table, middle)) < 0)
            high = middle;
        else
            low = middle;
    }
    table.c_sorted.InsertAt(high, index);
    table.c_array[index].m_inSorted = true;
}

bool StartsWithNoCase(const CString& spelling, const CString& prefix) {
    return spelling.Left(prefix.GetLength()).CompareNoCase(prefix) == 0;
}

// The first position of the sorted list whose spelling is not below `text`, ignoring case.
int FirstNotBelow(InternTable& table, const CString& text) {
    int low = -1;
    int high = table.c_sorted.GetCount();
    while (high - low > 1) {
        const int middle = (low + high) / 2;
        if (text.CompareNoCase(SortedSpellingAt(table, middle)) > 0)
            low = middle;
        else
            high = middle;
    }
    return high;
}

// Steps n matches on from the candidate; asking for more than there are wraps round them,
// except at the end of the list, where the walk stops on the last entry.
int NthMatch(InternTable& table, const CString& text, int candidate, int n) {
    const int last = table.c_sorted.GetCount() - 1;
    int position = candidate;
    while (n > 0) {
        --n;
        if (position == last)
            break;
        ++position;
        if (!StartsWithNoCase(SortedSpellingAt(table, position), text)) {
            const int matches = position - candidate;
            return candidate + n % matches;
        }
    }
    return position;
}

} // namespace

void QStringUniqueCommon::FromString(const CString& text, bool addToSorted, bool respell) {
    InternTable& table = Table();
    CSingleLock lock(&table.c_criticalsection, true);
    int index = FindExisting(table, text);
    if (index >= 0) {
        if (respell)
            Respell(table, index, text);
    } else {
        GrowMapIfHalfFull(table);
        index = table.c_array.Add(KnownString{text, false});
        EnterInMap(table, text, index);
    }
    m_index = index;
    if (addToSorted && text.GetLength() >= c_shortestCompletion && !table.c_array[index].m_inSorted)
        AddToSorted(table, text, index);
}

CString QStringUniqueCommon::ToString() const {
    if (IsEmpty())
        return CString();
    InternTable& table = Table();
    CSingleLock lock(&table.c_criticalsection, true);
    return SpellingAt(table, m_index);
}

const char16_t* QStringUniqueCommon::ToLPCTSTR() const {
    return ToString().GetString();
}

int QStringUniqueCommon::GetLength() const {
    return IsEmpty() ? 0 : ToString().GetLength();
}

char16_t QStringUniqueCommon::GetAt(int index) const {
    return IsEmpty() ? char16_t(0) : ToString().GetAt(index);
}

CString QStringUniqueCommon::Left(int count) const {
    return IsEmpty() ? CString() : ToString().Left(count);
}

CString QStringUniqueCommon::Mid(int first) const {
    return IsEmpty() ? CString() : ToString().Mid(first);
}

CString QStringUniqueCommon::Mid(int first, int count) const {
    return IsEmpty() ? CString() : ToString().Mid(first, count);
}

CString QStringUniqueCommon::Right(int count) const {
    return IsEmpty() ? CString() : ToString().Right(count);
}

int QStringUniqueCommon::StringsCount() {
    InternTable& table = Table();
    CSingleLock lock(&table.c_criticalsection, true);
    return table.c_sorted.GetCount();
}

CString QStringUniqueCommon::StringAt(int position) {
    InternTable& table = Table();
    CSingleLock lock(&table.c_criticalsection, true);
    return SortedSpellingAt(table, position);
}

int QStringUniqueCommon::SuggestCompletion(CString& text, int n) {
    if (text.IsEmpty() || IsDigit(text[0]))
        return -1;
    InternTable& table = Table();
    CSingleLock lock(&table.c_criticalsection, true);
    if (table.c_sorted.IsEmpty())
        return -1;
    const int candidate = FirstNotBelow(table, text);
    if (candidate == table.c_sorted.GetCount() ||
        !StartsWithNoCase(SortedSpellingAt(table, candidate), text))
        return -1;
    const int chosen = NthMatch(table, text, candidate, n);
    text = SortedSpellingAt(table, chosen).Mid(text.GetLength());
    return chosen;
}

void QStringUniqueCommon::SetRespellHook(RespellHook hook) {
    c_respellHook.store(hook);
}

CString IdentifierCanonicalForm(const CString& text, bool allowDot, bool allowTilde) {
    CString result = text;
    result.Trim();
    for (int i = 0; i < result.GetLength(); ++i) {
        const int last = result.GetLength() - 1;
        const char16_t ch = result[i];
        if (ch == u'_' || IsAlpha(ch))
            continue;
        if (IsDigit(ch)) {
            if (i == 0) {
                result.Insert(0, u'_');
                ++i;
            }
            continue;
        }
        const bool stays = (ch == u'.' && allowDot && i >= 1 && i < last) ||
                           (ch == u'~' && allowTilde) || (ch == u'[' && i < last) ||
                           (ch == u']' && i > 0);
        if (!stays)
            result.SetAt(i, u'_');
    }
    return result;
}

CString FormulaCanonicalForm(const CString& text) {
    int first = 0;
    int end = text.GetLength();
    while (first < end && text[first] <= 32)
        ++first;
    while (end > first && text[end - 1] <= 32)
        --end;
    return text.Mid(first, end - first);
}

} // namespace keel
