#pragma once

#include "keel/platform/exceptions.h"
#include "keel/values/compare.h"

#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace keel {

// An opaque place in an iteration over a container; null means there is no next element.
struct QPositionTag;
using POSITION = QPositionTag*;

// The framework's hash map. The number of buckets is whatever InitHashTable last set and never
// changes by itself: an owner that wants fewer collisions rebuilds the map. A key goes to bucket
// HashKey(key) % buckets; each node keeps the full hash, which is compared before the keys are
// (COMPARE(a, b) == 0 is equality). Nodes come in blocks and go back to a free list, so removing
// and adding again reuses memory instead of allocating.
template <class K, class V, class AK = const K&, class AV = const V&>
class QMapBase {
    struct Node;

public:
    struct CPair {
        const K key;
        V value;
    };

    template <class Pair>
    class Iterator {
    public:
        Pair& operator*() const { return m_node->pair; }
        Pair* operator->() const { return &m_node->pair; }
        Iterator& operator++() {
            m_node = m_map->NextNode(m_node);
            return *this;
        }
        bool operator==(const Iterator&) const = default;

    private:
        friend class QMapBase;
        Iterator(const QMapBase* map, Node* node) : m_map(map), m_node(node) {}

        const QMapBase* m_map;
        Node* m_node;
    };
    using iterator = Iterator<CPair>;
    using const_iterator = Iterator<const CPair>;

    static constexpr unsigned c_defaultHashTableSize = 17;

    explicit QMapBase(int blockSize = 10) : m_blockSize(blockSize) {
        if (blockSize <= 0)
            ThrowInvalidArgument("QMap: block size " + std::to_string(blockSize));
    }
    ~QMapBase() { RemoveAll(); }

    int GetCount() const { return m_count; }
    int GetSize() const { return m_count; }
    bool IsEmpty() const { return m_count == 0; }
    unsigned GetHashTableSize() const { return m_bucketCount; }

    // Sets the number of buckets; only an empty map may change it. Without allocNow the
    // buckets are allocated by the first insertion.
    void InitHashTable(unsigned buckets, bool allocNow = true) {
        if (m_count > 0)
            ThrowInvalidArgument("QMap::InitHashTable on a map that is not empty");
        if (buckets == 0)
            ThrowInvalidArgument("QMap::InitHashTable: no buckets");
        m_bucketCount = buckets;
        std::vector<Node*>(allocNow ? buckets : 0, nullptr).swap(m_buckets);
    }

    bool Lookup(AK key, V& value) const {
        const CPair* pair = PLookup(key);
        if (!pair)
            return false;
        value = pair->value;
        return true;
    }
    const CPair* PLookup(AK key) const {
        if (m_count == 0) // an empty map need not hash the key
            return nullptr;
        const K& wanted = key;
        const Node* node = FindNode(wanted, HashKey(wanted));
        return node ? &node->pair : nullptr;
    }
    CPair* PLookup(AK key) {
        if (m_count == 0)
            return nullptr;
        const K& wanted = key;
        Node* node = FindNode(wanted, HashKey(wanted));
        return node ? &node->pair : nullptr;
    }

    // The value under `key`, entered with a default value if the key is new.
    V& operator[](AK key) {
        const K& wanted = key;
        const unsigned hash = HashKey(wanted);
        if (Node* node = FindNode(wanted, hash))
            return node->pair.value;
        if (m_buckets.empty())
            m_buckets.assign(m_bucketCount, nullptr);
        Node* node = NewNode(wanted, hash);
        Node*& head = m_buckets[hash % m_bucketCount];
        node->next = head;
        head = node;
        return node->pair.value;
    }
    void SetAt(AK key, AV value) { (*this)[key] = value; }

    bool RemoveKey(AK key) {
        if (m_buckets.empty())
            return false;
        const K& wanted = key;
        const unsigned hash = HashKey(wanted);
        for (Node** link = &m_buckets[hash % m_bucketCount]; *link; link = &(*link)->next) {
            Node* node = *link;
            if (node->hash == hash && COMPARE(node->pair.key, wanted) == 0) {
                *link = node->next;
                FreeNode(node);
                return true;
            }
        }
        return false;
    }
    // Empties the map; the buckets and the node blocks stay for the next entries.
    void RemoveAll() {
        for (Node*& head : m_buckets) {
            while (Node* node = head) {
                head = node->next;
                FreeNode(node);
            }
        }
    }

    POSITION GetStartPosition() const { return ToPosition(FirstNodeFrom(0)); }
    // Gives the entry at `pos` and moves `pos` to the next one, or to null after the last.
    void GetNextAssoc(POSITION& pos, K& key, V& value) const {
        if (!pos)
            ThrowInvalidArgument("QMap::GetNextAssoc past the last entry");
        const Node* node = reinterpret_cast<const Node*>(pos);
        key = node->pair.key;
        value = node->pair.value;
        pos = ToPosition(NextNode(node));
    }

    iterator begin() { return iterator(this, FirstNodeFrom(0)); }
    iterator end() { return iterator(this, nullptr); }
    const_iterator begin() const { return const_iterator(this, FirstNodeFrom(0)); }
    const_iterator end() const { return const_iterator(this, nullptr); }

protected:
    // A copy has the same buckets and block size and equal entries.
    QMapBase(const QMapBase& other) : QMapBase(other.m_blockSize) { CopyEntries(other); }
    QMapBase& operator=(const QMapBase& other) {
        if (&other != this) {
            RemoveAll();
            CopyEntries(other);
        }
        return *this;
    }

private:
    struct Node {
        Node() {}
        ~Node() {}

        Node* next = nullptr;
        unsigned hash = 0;
        // Constructed only while the node is in use.
        union {
            CPair pair;
        };
    };

    static POSITION ToPosition(Node* node) { return reinterpret_cast<POSITION>(node); }

    Node* FindNode(const K& key, unsigned hash) const {
        if (m_buckets.empty())
            return nullptr;
        for (Node* node = m_buckets[hash % m_bucketCount]; node; node = node->next)
            if (node->hash == hash && COMPARE(node->pair.key, key) == 0)
                return node;
        return nullptr;
    }
    Node* FirstNodeFrom(std::size_t bucket) const {
        for (; bucket < m_buckets.size(); ++bucket)
            if (m_buckets[bucket])
                return m_buckets[bucket];
        return nullptr;
    }
    Node* NextNode(const Node* node) const {
        return node->next ? node->next : FirstNodeFrom(node->hash % m_bucketCount + 1);
    }

    Node* NewNode(const K& key, unsigned hash) {
        if (!m_free)
            AddBlock();
        Node* node = m_free;
        ::new (static_cast<void*>(&node->pair)) CPair{key, V()};
        m_free = node->next;
        node->hash = hash;
        ++m_count;
        return node;
    }
    void FreeNode(Node* node) {
        node->pair.~CPair();
        node->next = m_free;
        m_free = node;
        --m_count;
    }
    // Chained from the back, so that a block's nodes are handed out in address order.
    void AddBlock() {
        auto block = std::make_unique<Node[]>(static_cast<std::size_t>(m_blockSize));
        for (int i = m_blockSize; i-- > 0;) {
            block[i].next = m_free;
            m_free = &block[i];
        }
        m_blocks.push_back(std::move(block));
    }

    void CopyEntries(const QMapBase& other) {
        InitHashTable(other.m_bucketCount);
        for (const CPair& pair : other)
            (*this)[pair.key] = pair.value;
    }

    std::vector<Node*> m_buckets;
    unsigned m_bucketCount = c_defaultHashTableSize;
    int m_count = 0;
    Node* m_free = nullptr;
    std::vector<std::unique_ptr<Node[]>> m_blocks;
    int m_blockSize;
};

// The map of the framework with copying: a copy keeps the bucket count and the block size.
template <class K, class V, class AK = const K&, class AV = const V&>
class QMap : public QMapBase<K, V, AK, AV> {
public:
    explicit QMap(int blockSize = 10) : QMapBase<K, V, AK, AV>(blockSize) {}
    QMap(const QMap&) = default;
    QMap& operator=(const QMap&) = default;
};

} // namespace keel
