#include "keel/platform/archive.h"
#include "keel/platform/file.h"
#include "keel/values/array.h"
#include "keel/values/map.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <map>
#include <vector>

// Declared after the containers, as the value types of later subsystems are: the containers must
// still find these overloads.
namespace keel_test_types {

// Equal within a tolerance, and with no operator< at all, so only its own COMPARE can order it.
struct Approx {
    double value;
};

inline int COMPARE(const Approx& a, const Approx& b) {
    if (std::fabs(a.value - b.value) <= 0.5)
        return 0;
    return a.value < b.value ? -1 : 1;
}

// A key with a chosen hash.
struct Hashed {
    unsigned hash;
    int id;
};

inline unsigned HashKey(const Hashed& key) {
    return key.hash;
}

inline int COMPARE(const Hashed& a, const Hashed& b) {
    return a.id < b.id ? -1 : (b.id < a.id ? 1 : 0);
}

} // namespace keel_test_types

namespace keel {
namespace {

using keel_test_types::Approx;
using keel_test_types::Hashed;

template <class T>
std::vector<T> Contents(const QArray<T>& array) {
    return std::vector<T>(array.begin(), array.end());
}

using Texts = std::vector<CString>;

TEST(QArray, CountsBoundsAndCheckedElementAccess) {
    QArray<int> array;
    EXPECT_TRUE(array.IsEmpty());
    EXPECT_EQ(array.Add(10), 0);
    EXPECT_EQ(array.Add(20), 1);
    EXPECT_EQ(array.Add(30), 2);
    const QArray<int>& view = array;
    EXPECT_EQ(view[2], 30);
    EXPECT_EQ(view.GetAt(1), 20);
    array.ElementAt(1) = 21;
    array[2] = 31;
    array.SetAt(0, 11);
    EXPECT_EQ(Contents(array), (std::vector<int>{11, 21, 31}));

    EXPECT_THROW(array.GetAt(-1), InvalidArgumentException);
    EXPECT_THROW(array.GetAt(3), InvalidArgumentException);
    EXPECT_THROW(array.SetAt(3, 1), InvalidArgumentException);
}

TEST(QArray, SetAtGrowExtendsWithDefaultsEvenWithOneOfItsOwnElements) {
    QArray<int> array{1};
    array.SetAtGrow(3, 4);
    EXPECT_EQ(Contents(array), (std::vector<int>{1, 0, 0, 4}));
    array.SetAtGrow(1, 2);
    EXPECT_EQ(Contents(array), (std::vector<int>{1, 2, 0, 4}));
    EXPECT_THROW(array.SetAtGrow(-1, 0), InvalidArgumentException);
    QArray<CString> strings{CString(u"kept")};
    strings.SetGrowSize(1);
    strings.SetAtGrow(5, strings[0]);
    EXPECT_EQ(Contents(strings), (Texts{u"kept", u"", u"", u"", u"", u"kept"}));
}

TEST(QArray, AddHeadAppendAndInsertAtTakeTheArrayItself) {
    QArray<int> array{2};
    EXPECT_EQ(array.AddHead(1), 0);
    EXPECT_EQ(array.Append(array), 2);
    EXPECT_EQ(Contents(array), (std::vector<int>{1, 2, 1, 2}));
    array.InsertAt(1, array);
    EXPECT_EQ(Contents(array), (std::vector<int>{1, 1, 2, 1, 2, 2, 1, 2}));
}

TEST(QArray, InsertAtBeforeAndAfterInsertCopiesAndPastTheEndExtendWithDefaults) {
    QArray<int> array{1, 5};
    array.InsertAt(1, 3, 3);
    EXPECT_EQ(Contents(array), (std::vector<int>{1, 3, 3, 3, 5}));
    array.InsertAt(0, 0);
    array.InsertAt(array.GetCount(), 9);
    EXPECT_EQ(Contents(array), (std::vector<int>{0, 1, 3, 3, 3, 5, 9}));
    EXPECT_THROW(array.InsertAt(-1, 0), InvalidArgumentException);
    EXPECT_THROW(array.InsertAt(0, 0, 0), InvalidArgumentException);
    array = {1};
    array.InsertAt(3, 7, 2);
    EXPECT_EQ(Contents(array), (std::vector<int>{1, 0, 0, 7, 7}));

    array.InsertAt(7, QArray<int>{8, 9});
    EXPECT_EQ(Contents(array), (std::vector<int>{1, 0, 0, 7, 7, 0, 0, 8, 9}));
    EXPECT_THROW(array.InsertAt(-1, QArray<int>{1}), InvalidArgumentException);
}

TEST(QArray, InsertOneOfItsOwnElementsWhileGrowing) {
    QArray<CString> array{CString(u"a"), CString(u"b")};
    array.SetGrowSize(1);
    array.InsertAt(0, array[1], 4);
    array.Add(array[0]);
    array.InsertAt(9, array[2]);
    EXPECT_EQ(Contents(array), (Texts{u"b", u"b", u"b", u"b", u"a", u"b", u"b", u"", u"", u"b"}));

    QArray<CString> geometric{CString(u"x")};
    for (int i = 0; i < 40; ++i)
        geometric.Add(geometric[i]);
    EXPECT_EQ(geometric.Find(CString()), -1);
    EXPECT_EQ(geometric.GetTail(), CString(u"x"));
}

TEST(QArray, RemoveAtChecksTheWholeRange) {
    QArray<int> array{0, 1, 2, 3, 4};
    array.RemoveAt(1, 2);
    EXPECT_EQ(Contents(array), (std::vector<int>{0, 3, 4}));
    array.RemoveAt(2);
    EXPECT_EQ(Contents(array), (std::vector<int>{0, 3}));
    array.RemoveAt(2, 0);
    EXPECT_THROW(array.RemoveAt(1, 2), InvalidArgumentException);
    EXPECT_THROW(array.RemoveAt(-1), InvalidArgumentException);
    EXPECT_THROW(array.RemoveAt(0, -1), InvalidArgumentException);
    EXPECT_EQ(Contents(array), (std::vector<int>{0, 3}));
}

TEST(QArray, FindStartsAboveAfter) {
    QArray<int> array{4, 7, 4, 9};
    EXPECT_EQ(array.Find(4), 0);
    EXPECT_EQ(array.Find(4, 0), 2);
    EXPECT_EQ(array.Find(4, 2), -1);
    EXPECT_EQ(array.Find(4, -7), 0);
    EXPECT_EQ(array.Find(9, array.GetCount() - 1), -1);
    EXPECT_EQ(array.Find(9, 1000), -1);
    QArray<CString> names{CString(u"Width"), CString(u"height"), CString(u"WIDTH")};
    EXPECT_EQ(names.Find(CString(u"WIDTH")), 2);
    EXPECT_EQ(names.Find(CString(u"width")), -1);
}

TEST(QArray, SortAndSortNoCase) {
    QArray<CString> array{CString(u"b"), CString(u"C"), CString(u"a"), CString(u"B")};
    array.Sort();
    EXPECT_EQ(Contents(array), (Texts{u"B", u"C", u"a", u"b"}));

    array.SortNoCase();
    EXPECT_EQ(array[0], CString(u"a"));
    EXPECT_EQ(array[1].CompareNoCase(CString(u"b")), 0);
    EXPECT_EQ(array[2].CompareNoCase(CString(u"b")), 0);
    EXPECT_EQ(array[3], CString(u"C"));
    QArray<int> numbers{2, 7, 1, 8};
    numbers.SortUsing([](const int* a, const int* b) { return *b - *a; });
    EXPECT_EQ(Contents(numbers), (std::vector<int>{8, 7, 2, 1}));
    EXPECT_THROW(numbers.SortUsing(nullptr), InvalidArgumentException);
}

TEST(QArray, UsesTheElementTypesOwnCompareFoundByLookup) {
    QArray<Approx> array{Approx{3.0}, Approx{1.0}, Approx{2.0}};
    EXPECT_EQ(array.Find(Approx{2.4}), 2);
    EXPECT_EQ(array.Find(Approx{2.6}), 0);
    EXPECT_EQ(array.Find(Approx{5.0}), -1);

    array.Sort();
    EXPECT_EQ(array[0].value, 1.0);
    EXPECT_EQ(array[2].value, 3.0);
}

TEST(QArray, SetSizePadsWithDefaultsAndCopiesAreDeep) {
    QArray<int> array{1, 2};
    array.SetSize(5);
    EXPECT_EQ(Contents(array), (std::vector<int>{1, 2, 0, 0, 0}));
    array.SetSize(1);
    EXPECT_EQ(Contents(array), (std::vector<int>{1}));
    EXPECT_THROW(array.SetSize(-1), InvalidArgumentException);
    EXPECT_THROW(array.SetGrowSize(-1), InvalidArgumentException);
    const QArray<int> source{1, 2, 3};
    QArray<int> copy(source);
    copy[0] = 9;
    EXPECT_EQ(source[0], 1);
    QArray<int> assigned{7, 7, 7, 7, 7};
    assigned = source;
    QArray<int>& same = assigned;
    assigned = same;
    EXPECT_EQ(Contents(assigned), (std::vector<int>{1, 2, 3}));
}

TEST(QArray, HoldsSmartPointers) {
    class Shared : public QSmartTarget {};
    QSmartPtrArray<Shared> array;
    QSmartPtr<Shared> one(new Shared);
    array.Add(one);
    array.Add(one);
    EXPECT_FALSE(one->IsSinglyReferenced());
    EXPECT_EQ(array.Find(one), 0);
    EXPECT_EQ(array.Find(one, 0), 1);
    array.RemoveAll();
    EXPECT_TRUE(one->IsSinglyReferenced());
}

std::vector<std::uint8_t> Stored(QArrayBase<int, const int&>& array) {
    CMemFile file;
    CArchive ar(&file, CArchive::store);
    array.Serialize(ar);
    ar.Close();
    return file.Bytes();
}

TEST(QArraySerialize, WritesTheCountThenEachElementAndReadsThemBackInPlaceOfTheOld) {
    QArray<int> array{1, -2, 0x01020304};
    const std::vector<std::uint8_t> expected{3, 0, 1, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 4, 3, 2, 1};
    EXPECT_EQ(Stored(array), expected);
    CMemFile file(expected);
    CArchive ar(&file, CArchive::load);
    QArray<int> loaded{9, 9, 9, 9, 9, 9};
    loaded.Serialize(ar);
    EXPECT_EQ(Contents(loaded), (std::vector<int>{1, -2, 0x01020304})) << "the old contents go";
}

std::vector<std::uint8_t> CountThenInts(std::uint64_t count, const std::vector<int>& values) {
    CMemFile file;
    CArchive ar(&file, CArchive::store);
    ar.WriteCount(count);
    for (int value : values)
        ar << value;
    ar.Close();
    return file.Bytes();
}

int LoadFailureCause(const std::vector<std::uint8_t>& bytes) {
    CMemFile file(bytes);
    CArchive ar(&file, CArchive::load);
    QArray<int> loaded;
    try {
        loaded.Serialize(ar);
    } catch (const CArchiveException& failure) {
        return failure.m_cause;
    }
    return CArchiveException::none;
}

TEST(QArraySerialize, CountAboveTheLargestIndexFailsAndOneBeyondTheDataRunsIntoTheEnd) {
    EXPECT_EQ(LoadFailureCause(CountThenInts(0x80000000ull, {1, 2})),
              CArchiveException::genericException);
    EXPECT_EQ(LoadFailureCause(CountThenInts(0x123456789ull, {})),
              CArchiveException::genericException);
    EXPECT_EQ(LoadFailureCause(CountThenInts(2000000000ull, {1, 2})), CArchiveException::endOfFile);
    EXPECT_EQ(LoadFailureCause(CountThenInts(3, {1, 2})), CArchiveException::endOfFile);
    EXPECT_EQ(LoadFailureCause(CountThenInts(2, {1, 2})), CArchiveException::none);
}

TEST(QArraySerialize, ElementsWithoutAnArchiveFormFail) {
    QSmartPtrArray<QSmartTarget> array;
    CMemFile file;
    CArchive ar(&file, CArchive::store);
    EXPECT_THROW(array.Serialize(ar), InvalidArgumentException);
}

int Erratic(const int*, const int*) {
    static unsigned state = 12345;
    state = state * 1103515245u + 12345u;
    return static_cast<int>((state >> 16) % 3) - 1;
}

TEST(QArray, SortSurvivesAComparisonThatIsNoOrder) {
    QArray<int> array;
    for (int i = 0; i < 2000; ++i)
        array.Add(i % 97);
    array.SortUsing(&Erratic);
    ASSERT_EQ(array.GetCount(), 2000);
    std::vector<int> seen(97, 0);
    for (int value : array)
        ++seen[value];
    for (int value = 0; value < 97; ++value)
        EXPECT_EQ(seen[value], value < 2000 % 97 ? 21 : 20) << value;
}

// The FNV-1 value was worked out apart from this code (python3, over UTF-16 code units).
TEST(HashKey, StringsByFnv1IntegersByValuePointersByTheirHighBitsToo) {
    EXPECT_EQ(HashKey(CString(u"\u00e9\u20ac")), 0xe877caeeu);
    EXPECT_EQ(HashKey(-1), 0xFFFFFFFFu);
    const int* low = reinterpret_cast<const int*>(std::uintptr_t{0x100000010});
    const int* high = reinterpret_cast<const int*>(std::uintptr_t{0x200000010});
    EXPECT_NE(HashKey(low), HashKey(high));
}

TEST(QMap, BucketsAreSetOnlyOnAnEmptyMap) {
    QMap<int, int> map;
    map.InitHashTable(31);
    map.SetAt(1, 2);
    EXPECT_THROW(map.InitHashTable(11), InvalidArgumentException);
    map.RemoveAll();
    map.InitHashTable(5, false);
    EXPECT_EQ(map.GetHashTableSize(), 5u);
    EXPECT_THROW(map.InitHashTable(0), InvalidArgumentException);
    EXPECT_THROW((QMap<int, int>(0)), InvalidArgumentException);
}

TEST(QMap, LookupSetAtAndOperatorBrackets) {
    QMap<int, CString> map;
    EXPECT_TRUE(map.IsEmpty());
    CString value(u"untouched");
    EXPECT_FALSE(map.Lookup(3, value));
    EXPECT_EQ(value, CString(u"untouched"));
    EXPECT_EQ(map.PLookup(3), nullptr);
    EXPECT_TRUE(map[3].IsEmpty());
    EXPECT_EQ(map.GetCount(), 1);
    map.SetAt(3, CString(u"three"));
    map.SetAt(4, CString(u"four"));
    ASSERT_TRUE(map.Lookup(3, value));
    EXPECT_EQ(value, CString(u"three"));
    ASSERT_NE(map.PLookup(4), nullptr);
    EXPECT_EQ(map.PLookup(4)->key, 4);

    QMap<CString, int> names;
    names[CString(u"Width")] = 1;
    names[CString(u"width")] = 2;
    EXPECT_EQ(names.GetCount(), 2) << "string keys are case sensitive";
    int found = 0;
    EXPECT_FALSE(names.Lookup(CString(u"WIDTH"), found));
    EXPECT_TRUE(names.RemoveKey(CString(u"width")));
    EXPECT_FALSE(names.RemoveKey(CString(u"width")));
    for (auto& pair : names)
        pair.value *= 10;
    EXPECT_EQ(names[CString(u"Width")], 10);
}

TEST(QMap, KeysOfOneBucketAreFoundAndRemovedFromTheirChainByHashThenKey) {
    QMap<Hashed, int> map;
    for (int id = 0; id < 50; ++id)
        map[Hashed{7, id}] = id + 100;
    map[Hashed{7 + 17, 99}] = 1; // same bucket, other hash
    for (int id = 0; id < 50; ++id)
        ASSERT_EQ((map[Hashed{7, id}]), id + 100) << id;
    int value = 0;
    EXPECT_TRUE(map.Lookup(Hashed{7 + 17, 99}, value));
    EXPECT_FALSE(map.Lookup(Hashed{7 + 34, 10}, value)) << "an id of the bucket under another hash";
    // The chain holds the newest first: remove at its head, its tail and its middle.
    EXPECT_TRUE(map.RemoveKey(Hashed{7 + 17, 99}));
    EXPECT_TRUE(map.RemoveKey(Hashed{7, 0}));
    EXPECT_TRUE(map.RemoveKey(Hashed{7, 25}));
    EXPECT_FALSE(map.RemoveKey(Hashed{7, 25}));
    EXPECT_FALSE(map.RemoveKey(Hashed{7 + 17, 49}));
    EXPECT_EQ(map.GetCount(), 48);
    for (int id = 0; id < 50; ++id)
        EXPECT_EQ(map.PLookup(Hashed{7, id}) == nullptr, id == 0 || id == 25) << id;
}

TEST(QMap, IterationVisitsEveryEntryOnceAndCopiesKeepBuckets) {
    QMap<int, int> map(3);
    map.InitHashTable(7);
    std::map<int, int> expected;
    for (int key = 0; key < 60; key += 3)
        expected[key] = map[key] = key * key;
    QMap<int, int> copy(map);
    QMap<int, int> assigned;
    assigned[100] = 1;
    assigned = map;
    copy[0] = 5;
    EXPECT_EQ(map[0], 0);
    for (const QMap<int, int>* each : {&map, &copy, &assigned}) {
        EXPECT_EQ(each->GetHashTableSize(), 7u);
        std::map<int, int> ranged;
        for (const auto& pair : *each)
            EXPECT_TRUE(ranged.emplace(pair.key, pair.value).second) << pair.key;
        ranged[0] = 0;
        EXPECT_EQ(ranged, expected);
    }
}

} // namespace
} // namespace keel
