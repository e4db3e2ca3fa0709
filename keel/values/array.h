#pragma once

#include "keel/platform/archive.h"
#include "keel/platform/exceptions.h"
#include "keel/values/compare.h"
#include "keel/values/smartptr.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace keel {

// A type that a CArchive can write and read back.
template <class T>
concept ArchivableElement = requires(CArchive& ar, T& loaded, const T& stored) {
    ar << stored;
    ar >> loaded;
};

namespace array_failure {

[[noreturn]] inline void BadIndex(const char* operation, int index, int count) {
    ThrowInvalidArgument(std::string(operation) + ": index " + std::to_string(index) +
                         " outside an array of " + std::to_string(count));
}

[[noreturn]] inline void Empty(const char* operation) {
    ThrowInvalidArgument(std::string(operation) + " on an empty array");
}

} // namespace array_failure

// The framework's array: elements in one block, a count, a capacity and a grow-by step.
// Positions are plain indexes. ArgT is how an element is passed in.
template <class T, class ArgT>
class QArrayBase {
    static_assert(!std::is_same_v<T, bool>,
                  "std::vector<bool> hands out no references to its elements; store char");

public:
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    QArrayBase() = default;
    virtual ~QArrayBase() = default;

    int GetCount() const { return static_cast<int>(m_data.size()); }
    int GetSize() const { return GetCount(); }
    bool IsEmpty() const { return m_data.empty(); }
    int GetUpperBound() const { return GetCount() - 1; }

    const T& GetAt(int index) const { return m_data[Checked(index, "QArray::GetAt")]; }
    T& GetAt(int index) { return m_data[Checked(index, "QArray::GetAt")]; }
    const T& operator[](int index) const { return GetAt(index); }
    T& operator[](int index) { return GetAt(index); }
    const T& ElementAt(int index) const { return GetAt(index); }
    T& ElementAt(int index) { return GetAt(index); }
    T* GetData() { return m_data.data(); }
    const T* GetData() const { return m_data.data(); }

    void SetAt(int index, ArgT item) { m_data[Checked(index, "QArray::SetAt")] = item; }
    // Past the end, the array is first extended with default elements.
    void SetAtGrow(int index, ArgT item) {
        if (index < 0)
            array_failure::BadIndex("QArray::SetAtGrow", index, GetCount());
        if (index < GetCount()) {
            m_data[index] = item;
            return;
        }
        T value(item); // `item` may be one of our own elements, which the growth moves
        Resize(static_cast<std::size_t>(index) + 1);
        m_data[index] = std::move(value);
    }

    const T& GetHead() const { return m_data[CheckedNotEmpty("QArray::GetHead", 0)]; }
    T& GetHead() { return m_data[CheckedNotEmpty("QArray::GetHead", 0)]; }
    const T& GetTail() const { return m_data[CheckedNotEmpty("QArray::GetTail", GetCount() - 1)]; }
    T& GetTail() { return m_data[CheckedNotEmpty("QArray::GetTail", GetCount() - 1)]; }

    int GetHeadPosition() const { return 0; }
    int GetTailPosition() const { return GetCount() - 1; }
    int FindIndex(int index) const { return index; }
    // The element at `pos`, then `pos` moves on by one.
    const T& GetNext(int& pos) const { return m_data[StepNext(pos)]; }
    T& GetNext(int& pos) { return m_data[StepNext(pos)]; }
    // Unlike GetNext, `pos` moves back first and then the element there is given.
    const T& GetPrev(int& pos) const { return m_data[StepPrev(pos)]; }
    T& GetPrev(int& pos) { return m_data[StepPrev(pos)]; }

    // Each returns the index of the (first) new element.
    int Add(ArgT item) {
        InsertCopies(m_data.size(), 1, item);
        return GetCount() - 1;
    }
    int AddTail(ArgT item) { return Add(item); }
    int AddHead(ArgT item) {
        InsertCopies(0, 1, item);
        return 0;
    }
    int Append(const QArrayBase& source) {
        const int first = GetCount();
        InsertAt(first, source);
        return first;
    }
    int AddTail(const QArrayBase& source) { return Append(source); }
    int AddHead(const QArrayBase& source) {
        InsertAt(0, source);
        return 0;
    }

    // Inserts `count` copies before `index`; past the end, the array is first extended with
    // default elements up to `index`.
    void InsertAt(int index, ArgT item, int count = 1) {
        if (index < 0 || count <= 0)
            ThrowInvalidArgument("QArray::InsertAt: index " + std::to_string(index) + ", count " +
                                 std::to_string(count));
        if (index <= GetCount()) {
            InsertCopies(static_cast<std::size_t>(index), static_cast<std::size_t>(count), item);
            return;
        }
        const T value(item); // `item` may be one of our own elements, which the growth moves
        Resize(static_cast<std::size_t>(index));
        InsertCopies(static_cast<std::size_t>(index), static_cast<std::size_t>(count), value);
    }
    void InsertAt(int index, const QArrayBase& source) {
        if (index < 0)
            array_failure::BadIndex("QArray::InsertAt", index, GetCount());
        if (&source == this)
            InsertElements(static_cast<std::size_t>(index), std::vector<T>(m_data));
        else
            InsertElements(static_cast<std::size_t>(index), source.m_data);
    }
    int InsertBefore(int index, ArgT item) {
        InsertAt(index, item);
        return index;
    }
    int InsertAfter(int index, ArgT item) {
        InsertAt(index + 1, item);
        return index + 1;
    }

    void RemoveAt(int index, int count = 1) {
        if (index < 0 || count < 0 || index > GetCount() || count > GetCount() - index)
            ThrowInvalidArgument("QArray::RemoveAt: index " + std::to_string(index) + ", count " +
                                 std::to_string(count) + " in an array of " +
                                 std::to_string(GetCount()));
        const auto first = m_data.begin() + index;
        m_data.erase(first, first + count);
    }
    // Frees the storage as well.
    void RemoveAll() { std::vector<T>().swap(m_data); }
    T RemoveHead() {
        T head = std::move(m_data[CheckedNotEmpty("QArray::RemoveHead", 0)]);
        m_data.erase(m_data.begin());
        return head;
    }
    T RemoveTail() {
        T tail = std::move(m_data[CheckedNotEmpty("QArray::RemoveTail", GetCount() - 1)]);
        m_data.pop_back();
        return tail;
    }

    // The first index above `after` whose element compares equal to `item`, or -1.
    int Find(ArgT item, int after = -1) const {
        const T& wanted = item;
        for (std::size_t i = FirstAfter(after); i < m_data.size(); ++i)
            if (COMPARE(m_data[i], wanted) == 0)
                return static_cast<int>(i);
        return -1;
    }
    int FindNoCase(ArgT item, int after = -1) const {
        const T& wanted = item;
        for (std::size_t i = FirstAfter(after); i < m_data.size(); ++i)
            if (COMPARENOCASE(m_data[i], wanted) == 0)
                return static_cast<int>(i);
        return -1;
    }

    // Sorting promises no order among equal elements. The comparison may be one with a tolerance
    // (lengths), which is no strict weak order, so the sort never relies on one.
    void Sort() {
        SortWith([](const T& a, const T& b) { return COMPARE(a, b); });
    }
    void SortNoCase() {
        SortWith([](const T& a, const T& b) { return COMPARENOCASE(a, b); });
    }
    // `compare` answers as a qsort comparison does: below, at or above 0.
    void SortUsing(int (*compare)(const T*, const T*)) {
        if (!compare)
            ThrowInvalidArgument("QArray::SortUsing: no comparison");
        SortWith([compare](const T& a, const T& b) { return compare(&a, &b); });
    }

    void SetSize(int count) {
        if (count < 0)
            ThrowInvalidArgument("QArray::SetSize: " + std::to_string(count));
        Resize(static_cast<std::size_t>(count));
    }
    // 0 lets the storage grow geometrically; a positive step makes each growth add that many
    // places at least.
    void SetGrowSize(int growBy) {
        if (growBy < 0)
            ThrowInvalidArgument("QArray::SetGrowSize: " + std::to_string(growBy));
        m_growBy = growBy;
    }
    int GrowSize() const { return m_growBy; }
    void FreeExtra() { m_data.shrink_to_fit(); }

    // Replaces the contents by a copy of `source`'s; the grow-by step stays, as it does through
    // assignment.
    void Copy(const QArrayBase& source) {
        if (&source != this)
            std::vector<T>(source.m_data).swap(m_data);
    }

    iterator begin() { return m_data.begin(); }
    iterator end() { return m_data.end(); }
    const_iterator begin() const { return m_data.begin(); }
    const_iterator end() const { return m_data.end(); }

    // The count, then each element by its archive operator. Elements with no archive form are
    // left to a derived class, which overrides this.
    virtual void Serialize(CArchive& ar) {
        if constexpr (ArchivableElement<T>) {
            if (ar.IsStoring())
                Store(ar);
            else
                Load(ar);
        } else {
            ThrowInvalidArgument("QArray::Serialize: the elements have no archive form");
        }
    }

protected:
    QArrayBase(const QArrayBase&) = default;
    QArrayBase(QArrayBase&&) noexcept = default;
    QArrayBase& operator=(const QArrayBase& other) {
        Copy(other);
        return *this;
    }
    QArrayBase& operator=(QArrayBase&& other) noexcept {
        if (&other != this)
            m_data = std::move(other.m_data);
        return *this;
    }

private:
    // A bottom-up merge sort of pointers, then one move of each element into place: whatever
    // the comparison answers, no step reads outside the array.
    template <class Compare>
    void SortWith(Compare compare) {
        const std::size_t count = m_data.size();
        std::vector<T*> order(count);
        std::vector<T*> merged(count);
        for (std::size_t i = 0; i < count; ++i)
            order[i] = &m_data[i];
        const auto less = [&compare](const T* a, const T* b) { return compare(*a, *b) < 0; };
        for (std::size_t width = 1; width < count; width *= 2) {
            for (std::size_t low = 0; low < count; low += 2 * width) {
                const std::size_t middle = std::min(low + width, count);
                const std::size_t high = std::min(low + 2 * width, count);
                std::merge(order.begin() + low, order.begin() + middle, order.begin() + middle,
                           order.begin() + high, merged.begin() + low, less);
            }
            order.swap(merged);
        }
        std::vector<T> sorted;
        sorted.reserve(count);
        for (T* element : order)
            sorted.push_back(std::move(*element));
        m_data.swap(sorted);
    }

    // A larger count from a damaged archive must run into the end of the data, not into one
    // huge allocation, so a load grows by at most this many elements before reading them.
    static constexpr std::size_t c_loadBatch = 65536;

    std::size_t Checked(int index, const char* operation) const {
        if (index < 0 || index >= GetCount())
            array_failure::BadIndex(operation, index, GetCount());
        return static_cast<std::size_t>(index);
    }
    // A failed step leaves `pos` as it was.
    std::size_t StepNext(int& pos) const {
        const std::size_t at = Checked(pos, "QArray::GetNext");
        ++pos;
        return at;
    }
    std::size_t StepPrev(int& pos) const {
        if (pos <= 0 || pos > GetCount())
            array_failure::BadIndex("QArray::GetPrev", pos, GetCount());
        return static_cast<std::size_t>(--pos);
    }
    std::size_t CheckedNotEmpty(const char* operation, int index) const {
        if (m_data.empty())
            array_failure::Empty(operation);
        return static_cast<std::size_t>(index);
    }
    static std::size_t FirstAfter(int after) {
        return after < 0 ? 0 : static_cast<std::size_t>(after) + 1;
    }

    // With a grow-by step, makes room for `needed` elements by that step at least; without
    // one, the vector's own geometric growth applies.
    void Reserve(std::size_t needed) {
        if (m_growBy > 0 && needed > m_data.capacity())
            m_data.reserve(
                std::max(needed, m_data.capacity() + static_cast<std::size_t>(m_growBy)));
    }
    void Resize(std::size_t count) {
        Reserve(count);
        m_data.resize(count);
    }
    void InsertCopies(std::size_t at, std::size_t count, const T& item) {
        const std::size_t needed = m_data.size() + count;
        if (m_growBy > 0 && needed > m_data.capacity()) {
            const T value(item); // `item` may be one of our own elements, which Reserve moves
            Reserve(needed);
            m_data.insert(m_data.begin() + static_cast<std::ptrdiff_t>(at), count, value);
        } else {
            m_data.insert(m_data.begin() + static_cast<std::ptrdiff_t>(at), count, item);
        }
    }
    void InsertElements(std::size_t at, const std::vector<T>& source) {
        if (at > m_data.size())
            Resize(at);
        Reserve(m_data.size() + source.size());
        m_data.insert(m_data.begin() + static_cast<std::ptrdiff_t>(at), source.begin(),
                      source.end());
    }

    void Store(CArchive& ar) const {
        ar.WriteCount(m_data.size());
        for (const T& element : m_data)
            ar << element;
    }
    void Load(CArchive& ar) {
        const std::uint64_t count = ar.ReadCount();
        if (count > static_cast<std::uint64_t>(INT_MAX))
            ThrowArchiveException(CArchiveException::genericException, ar.GetFileName());
        RemoveAll();
        while (m_data.size() < count) {
            const std::size_t loaded = m_data.size();
            Resize(loaded +
                   static_cast<std::size_t>(std::min<std::uint64_t>(count - loaded, c_loadBatch)));
            for (std::size_t i = loaded; i < m_data.size(); ++i)
                ar >> m_data[i];
        }
    }

    std::vector<T> m_data;
    int m_growBy = 0;
};

// The array everything else keeps its lists in.
template <class T>
class QArray : public QArrayBase<T, const T&> {
public:
    QArray() = default;
    QArray(std::initializer_list<T> items) {
        for (const T& item : items)
            this->Add(item);
    }
    QArray(const QArray&) = default;
    QArray(QArray&&) noexcept = default;
    QArray& operator=(const QArray&) = default;
    QArray& operator=(QArray&&) noexcept = default;
};

template <class T>
using QSmartPtrArray = QArray<QSmartPtr<T>>;

} // namespace keel
