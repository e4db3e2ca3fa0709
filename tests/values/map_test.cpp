#include "keel/values/map.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <map>
#include <set>

namespace keel_test_types {

// A key with a chosen hash that counts how often keys are compared.
struct Hashed {
    unsigned hash;
    int id;
    static inline int compares = 0;
};

inline unsigned HashKey(const Hashed& key) {
    return key.hash;
}

inline int COMPARE(const Hashed& a, const Hashed& b) {
    ++Hashed::compares;
    return a.id < b.id ? -1 : (b.id < a.id ? 1 : 0);
}

} // namespace keel_test_types

namespace keel {
namespace {

using keel_test_types::Hashed;

// Expected FNV-1 values worked out apart from this code (python3, over UTF-16 code units).
TEST(HashKey, StringsByFnv1IntegersByValuePointersByTheirHighBitsToo) {
    EXPECT_EQ(HashKey(CString()), 0x811c9dc5u);
    EXPECT_EQ(HashKey(CString(u"a")), 0x050c5d7eu);
    EXPECT_EQ(HashKey(CString(u"Width")), 0x985ab0cbu);
    EXPECT_EQ(HashKey(CString(u"width")), 0x182e64ebu);
    EXPECT_EQ(HashKey(CString(u"\u00e9\u20ac")), 0xe877caeeu);
    EXPECT_EQ(HashKey(42), 42u);
    EXPECT_EQ(HashKey(-1), 0xFFFFFFFFu);
    EXPECT_EQ(HashKey(std::uint16_t{65535}), 65535u);
    const int* low = reinterpret_cast<const int*>(std::uintptr_t{0x100000010});
    const int* high = reinterpret_cast<const int*>(std::uintptr_t{0x200000010});
    EXPECT_NE(HashKey(low), HashKey(high));
}

TEST(QMap, BucketsAreSetOnlyOnAnEmptyMapAndNeverRehash) {
    QMap<int, int> map;
    EXPECT_EQ(map.GetHashTableSize(), 17u);
    map.InitHashTable(31);
    for (int i = 0; i < 1000; ++i)
        map.SetAt(i, i * 2);
    EXPECT_EQ(map.GetHashTableSize(), 31u);
    EXPECT_EQ(map.GetCount(), 1000);
    for (int i = 0; i < 1000; ++i) {
        int value = -1;
        ASSERT_TRUE(map.Lookup(i, value));
        EXPECT_EQ(value, i * 2);
    }
    EXPECT_THROW(map.InitHashTable(11), InvalidArgumentException);
    map.RemoveAll();
    EXPECT_EQ(map.GetHashTableSize(), 31u);
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
    EXPECT_EQ(map.GetSize(), 2);
    ASSERT_TRUE(map.Lookup(3, value));
    EXPECT_EQ(value, CString(u"three"));
    ASSERT_NE(map.PLookup(4), nullptr);
    EXPECT_EQ(map.PLookup(4)->key, 4);
    map.PLookup(4)->value = u"FOUR";
    EXPECT_EQ(map[4], CString(u"FOUR"));

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
    Hashed::compares = 0;
    QMap<Hashed, int> map;
    for (int id = 0; id < 50; ++id)
        map[Hashed{7, id}] = id + 100;
    map[Hashed{7 + 17, 99}] = 1; // same bucket, other hash
    for (int id = 0; id < 50; ++id)
        ASSERT_EQ((map[Hashed{7, id}]), id + 100) << id;
    Hashed::compares = 0;
    int value = 0;
    EXPECT_TRUE(map.Lookup(Hashed{7 + 17, 99}, value));
    EXPECT_EQ(Hashed::compares, 1) << "only the node of the same hash is compared";
    EXPECT_FALSE(map.Lookup(Hashed{7 + 34, 10}, value));
    EXPECT_EQ(Hashed::compares, 1);
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

TEST(QMap, FreedNodesAreUsedAgain) {
    QMap<int, int> map(4);
    std::set<const void*> nodes;
    for (int key = 0; key < 4; ++key)
        nodes.insert(&(map[key] = key));
    map.RemoveAll();
    EXPECT_TRUE(map.IsEmpty());
    for (int key = 10; key < 14; ++key)
        EXPECT_TRUE(nodes.count(&(map[key] = key))) << key;
    const void* removed = map.PLookup(12);
    ASSERT_TRUE(map.RemoveKey(12));
    map[99] = 99;
    EXPECT_EQ(static_cast<const void*>(map.PLookup(99)), removed);
}

TEST(QMap, IterationVisitsEveryEntryOnceAndCopiesKeepBuckets) {
    QMap<int, int> map(3);
    map.InitHashTable(7);
    EXPECT_EQ(map.GetStartPosition(), nullptr);
    std::map<int, int> expected;
    for (int key = 0; key < 60; key += 3)
        expected[key] = map[key] = key * key;
    std::map<int, int> seen;
    for (POSITION pos = map.GetStartPosition(); pos;) {
        int key = 0;
        int value = 0;
        map.GetNextAssoc(pos, key, value);
        EXPECT_TRUE(seen.emplace(key, value).second) << key;
    }
    EXPECT_EQ(seen, expected);
    POSITION end = nullptr;
    int key = 0;
    EXPECT_THROW(map.GetNextAssoc(end, key, key), InvalidArgumentException);

    QMap<int, int> copy(map);
    QMap<int, int> assigned;
    assigned[100] = 1;
    assigned = map;
    copy[0] = 5;
    EXPECT_EQ(map[0], 0);
    for (const QMap<int, int>* each : {&copy, &assigned}) {
        EXPECT_EQ(each->GetHashTableSize(), 7u);
        std::map<int, int> ranged;
        for (const auto& pair : *each)
            ranged.emplace(pair.key, pair.value);
        ranged[0] = 0;
        EXPECT_EQ(ranged, expected);
    }
}

} // namespace
} // namespace keel
