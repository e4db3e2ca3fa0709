#include "keel/values/map.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <map>
#include <set>

namespace keel_test_types {

// Every key falls into one chain.
struct Colliding {
    int id;
};

inline unsigned HashKey(const Colliding&) {
    return 7;
}

inline int COMPARE(const Colliding& a, const Colliding& b) {
    return a.id < b.id ? -1 : (b.id < a.id ? 1 : 0);
}

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

using keel_test_types::Colliding;
using keel_test_types::Hashed;

// Expected FNV-1 values worked out apart from this code (python3, over UTF-16 code units).
TEST(HashKey, StringsHashByFnv1OverCodeUnits) {
    EXPECT_EQ(HashKey(CString()), 0x811c9dc5u);
    EXPECT_EQ(HashKey(CString(u"a")), 0x050c5d7eu);
    EXPECT_EQ(HashKey(CString(u"Width")), 0x985ab0cbu);
    EXPECT_EQ(HashKey(CString(u"width")), 0x182e64ebu);
    EXPECT_EQ(HashKey(CString(u"\u00e9\u20ac")), 0xe877caeeu);
}

TEST(HashKey, IntegersAreTheirValueAndPointersKeepTheirHighBits) {
    EXPECT_EQ(HashKey(42), 42u);
    EXPECT_EQ(HashKey(-1), 0xFFFFFFFFu);
    EXPECT_EQ(HashKey(std::uint16_t{65535}), 65535u);
    const int* low = reinterpret_cast<const int*>(std::uintptr_t{0x100000010});
    const int* high = reinterpret_cast<const int*>(std::uintptr_t{0x200000010});
    EXPECT_NE(HashKey(low), HashKey(high));
}

TEST(QMap, StartsWithSeventeenBucketsAndNeverRehashes) {
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
}

TEST(QMap, InitHashTableOnlyOnAnEmptyMap) {
    QMap<int, int> map;
    map.InitHashTable(5, false);
    EXPECT_EQ(map.GetHashTableSize(), 5u);
    map[1] = 1;
    EXPECT_THROW(map.InitHashTable(11), InvalidArgumentException);
    EXPECT_EQ(map.GetHashTableSize(), 5u);
    map.RemoveAll();
    EXPECT_EQ(map.GetHashTableSize(), 5u);
    map.InitHashTable(11);
    EXPECT_EQ(map.GetHashTableSize(), 11u);
    EXPECT_THROW(map.InitHashTable(0), InvalidArgumentException);
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
    const auto* pair = map.PLookup(4);
    ASSERT_NE(pair, nullptr);
    EXPECT_EQ(pair->key, 4);
    EXPECT_EQ(pair->value, CString(u"four"));
    map.PLookup(4)->value = u"FOUR";
    EXPECT_EQ(map[4], CString(u"FOUR"));
}

TEST(QMap, StringKeysAreCaseSensitive) {
    QMap<CString, int> map;
    map[CString(u"Width")] = 1;
    map[CString(u"width")] = 2;
    EXPECT_EQ(map.GetCount(), 2);
    int value = 0;
    EXPECT_TRUE(map.Lookup(CString(u"Width"), value));
    EXPECT_EQ(value, 1);
    EXPECT_FALSE(map.Lookup(CString(u"WIDTH"), value));
    EXPECT_TRUE(map.RemoveKey(CString(u"width")));
    EXPECT_FALSE(map.RemoveKey(CString(u"width")));
    EXPECT_EQ(map.GetCount(), 1);
}

TEST(QMap, CollidingKeysAreAllFoundAndRemovedFromTheirChain) {
    QMap<Colliding, int> map;
    for (int id = 0; id < 50; ++id)
        map[Colliding{id}] = id + 100;
    EXPECT_EQ(map.GetCount(), 50);
    for (int id = 0; id < 50; ++id) {
        int value = 0;
        ASSERT_TRUE(map.Lookup(Colliding{id}, value)) << id;
        EXPECT_EQ(value, id + 100);
    }
    // The chain holds the newest first: remove at its head, its tail and its middle.
    EXPECT_TRUE(map.RemoveKey(Colliding{49}));
    EXPECT_TRUE(map.RemoveKey(Colliding{0}));
    EXPECT_TRUE(map.RemoveKey(Colliding{25}));
    EXPECT_FALSE(map.RemoveKey(Colliding{25}));
    EXPECT_FALSE(map.RemoveKey(Colliding{50}));
    EXPECT_EQ(map.GetCount(), 47);
    for (int id = 0; id < 50; ++id) {
        const bool removed = id == 0 || id == 25 || id == 49;
        EXPECT_EQ(map.PLookup(Colliding{id}) == nullptr, removed) << id;
    }
}

TEST(QMap, TheStoredHashIsComparedBeforeTheKeys) {
    Hashed::compares = 0;
    QMap<Hashed, int> map;
    map[Hashed{1, 10}] = 1;
    map[Hashed{1 + 17, 20}] = 2; // same bucket, other hash
    EXPECT_EQ(Hashed::compares, 0);

    int value = 0;
    ASSERT_TRUE(map.Lookup(Hashed{1, 10}, value));
    EXPECT_EQ(value, 1);
    EXPECT_EQ(Hashed::compares, 1);
    EXPECT_FALSE(map.Lookup(Hashed{1 + 34, 10}, value));
    EXPECT_EQ(Hashed::compares, 1);
}

TEST(QMap, FreedNodesAreUsedAgain) {
    QMap<int, int> map(4);
    std::set<const void*> nodes;
    for (int key = 0; key < 4; ++key) {
        map[key] = key;
        nodes.insert(map.PLookup(key));
    }
    map.RemoveAll();
    EXPECT_TRUE(map.IsEmpty());
    for (int key = 10; key < 14; ++key) {
        map[key] = key;
        EXPECT_TRUE(nodes.count(map.PLookup(key))) << key;
    }

    const void* removed = map.PLookup(12);
    ASSERT_TRUE(map.RemoveKey(12));
    map[99] = 99;
    EXPECT_EQ(static_cast<const void*>(map.PLookup(99)), removed);
}

TEST(QMap, IterationVisitsEveryEntryOnce) {
    QMap<int, int> map;
    EXPECT_EQ(map.GetStartPosition(), nullptr);
    std::map<int, int> expected;
    for (int key = 0; key < 60; key += 3) {
        map[key] = key * key;
        expected[key] = key * key;
    }
    std::map<int, int> seen;
    for (POSITION pos = map.GetStartPosition(); pos;) {
        int key = 0;
        int value = 0;
        map.GetNextAssoc(pos, key, value);
        EXPECT_TRUE(seen.emplace(key, value).second) << key;
    }
    EXPECT_EQ(seen, expected);

    std::map<int, int> ranged;
    for (const auto& pair : map)
        ranged.emplace(pair.key, pair.value);
    EXPECT_EQ(ranged, expected);

    POSITION end = nullptr;
    int key = 0;
    int value = 0;
    EXPECT_THROW(map.GetNextAssoc(end, key, value), InvalidArgumentException);
}

TEST(QMap, RangeForCanChangeValues) {
    QMap<CString, int> map;
    map[CString(u"a")] = 1;
    map[CString(u"b")] = 2;
    for (auto& pair : map)
        pair.value *= 10;
    EXPECT_EQ(map[CString(u"a")], 10);
    EXPECT_EQ(map[CString(u"b")], 20);
}

TEST(QMap, CopyKeepsBucketsAndEntries) {
    QMap<int, int> source(3);
    source.InitHashTable(7);
    for (int key = 0; key < 20; ++key)
        source[key] = -key;
    QMap<int, int> copy(source);
    EXPECT_EQ(copy.GetHashTableSize(), 7u);
    EXPECT_EQ(copy.GetCount(), 20);
    copy[0] = 5;
    EXPECT_EQ(source[0], 0);

    QMap<int, int> assigned;
    assigned[100] = 1;
    assigned = source;
    EXPECT_EQ(assigned.GetHashTableSize(), 7u);
    EXPECT_EQ(assigned.GetCount(), 20);
    EXPECT_EQ(assigned.PLookup(100), nullptr);
    int value = 0;
    ASSERT_TRUE(assigned.Lookup(19, value));
    EXPECT_EQ(value, -19);
}

TEST(QMap, BlockSizeMustBePositive) {
    EXPECT_THROW((QMap<int, int>(0)), InvalidArgumentException);
}

} // namespace
} // namespace keel
