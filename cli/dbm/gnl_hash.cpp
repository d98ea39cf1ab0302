// Intrusive hash table with caller-supplied hash and compare callbacks, and Bob Jenkins'
// lookup2 hash that those callbacks use. The table never grows, has no lock and owns nothing
// but its bucket array; entries are linked through a GnlHashNode at a fixed offset inside them.
#include <cstring>

#include "dbm/nd_cli_dbm_internal.h"

namespace {

constexpr uint32_t kGoldenRatio = 0x9E3779B9u;
constexpr uint32_t kLiveMagic = 0xCBCECBCEu;
constexpr uint32_t kBucketLimit = 0xFFFFFFu;

GnlHashNode *nodeOf(const GnlHashTable *t, void *entry)
{
    return reinterpret_cast<GnlHashNode *>(static_cast<unsigned char *>(entry) + t->nodeOffset);
}

void *entryOf(const GnlHashTable *t, GnlHashNode *node)
{
    return reinterpret_cast<unsigned char *>(node) - t->nodeOffset;
}

uint32_t bucketOf(const GnlHashTable *t, uint32_t hash)
{
    return hash % t->bucketCount;
}

// The first chain head at or above bucket `from`, or null.
GnlHashNode *firstHeadFrom(const GnlHashTable *t, uint32_t from)
{
    for (uint32_t i = from; i < t->bucketCount; ++i)
        if (t->buckets[i])
            return t->buckets[i];
    return nullptr;
}

// lookup2's mixing step of three words.
constexpr void mix(uint32_t &a, uint32_t &b, uint32_t &c)
{
    // Not reformatted: the mixing steps in their rounds of three.
    // clang-format off
    a -= b; a -= c; a ^= (c >> 13);
    b -= c; b -= a; b ^= (a << 8);
    c -= a; c -= b; c ^= (b >> 13);
    a -= b; a -= c; a ^= (c >> 12);
    b -= c; b -= a; b ^= (a << 16);
    c -= a; c -= b; c ^= (b >> 5);
    a -= b; a -= c; a ^= (c >> 3);
    b -= c; b -= a; b ^= (a << 10);
    c -= a; c -= b; c ^= (b >> 15);
    // clang-format on
}

// Four bytes as a little-endian word, whatever the host's byte order, so that a byte string
// hashes to the same value on every host.
constexpr uint32_t wordLe(const unsigned char *k)
{
    return static_cast<uint32_t>(k[0]) | (static_cast<uint32_t>(k[1]) << 8) | (static_cast<uint32_t>(k[2]) << 16) |
           (static_cast<uint32_t>(k[3]) << 24);
}

} // namespace

extern "C" {

int32_t gnl_hash_init(GnlHashTable *t, uint32_t nodeOffset, GnlHashComputeFn compute, GnlHashCompareFn compare,
                      uint32_t bucketCount)
{
    if (bucketCount >= kBucketLimit)
        return -1;
    t->nodeOffset = nodeOffset;
    t->compute = compute;
    t->compare = compare;
    t->bucketCount = bucketCount;
    t->buckets = static_cast<GnlHashNode **>(__UMV2L_malloc(static_cast<size_t>(bucketCount) * sizeof(GnlHashNode *)));
    if (!t->buckets)
        return -1;
    for (uint32_t i = 0; i < bucketCount; ++i)
        t->buckets[i] = nullptr;
    t->count = 0;
    t->magic = kLiveMagic;
    return 0;
}

void gnl_hash_destroy(GnlHashTable *t)
{
    if (!t)
        return;
    if (t->buckets) {
        __UMV2L_free(t->buckets);
        t->buckets = nullptr;
    }
    t->magic = 0;
}

uint32_t gnl_hash_insert(GnlHashTable *t, void *entry)
{
    GnlHashNode *node = nodeOf(t, entry);
    node->hash = t->compute(entry);
    GnlHashNode **head = &t->buckets[bucketOf(t, node->hash)];
    node->prev = nullptr;
    node->next = *head;
    if (*head)
        (*head)->prev = node;
    *head = node;
    return ++t->count;
}

uint32_t gnl_hash_remove(GnlHashTable *t, void *entry)
{
    GnlHashNode *node = nodeOf(t, entry);
    if (node->prev)
        node->prev->next = node->next;
    else
        t->buckets[bucketOf(t, node->hash)] = node->next;
    if (node->next)
        node->next->prev = node->prev;
    return --t->count;
}

void *gnl_hash_find(GnlHashTable *t, const void *probe)
{
    uint32_t hash = t->compute(probe);
    for (GnlHashNode *node = t->buckets[bucketOf(t, hash)]; node; node = node->next) {
        void *entry = entryOf(t, node);
        if (t->compare(probe, entry) == 0)
            return entry;
    }
    return nullptr;
}

GnlHashNode *gnl_hash_next_cursor(GnlHashTable *t, GnlHashNode *node)
{
    if (!node)
        return nullptr;
    if (node->next)
        return node->next;
    return firstHeadFrom(t, bucketOf(t, node->hash) + 1);
}

void *gnl_hash_start(GnlHashTable *t, GnlHashNode **cursor)
{
    GnlHashNode *head = firstHeadFrom(t, 0);
    if (!head) {
        *cursor = nullptr;
        return nullptr;
    }
    *cursor = gnl_hash_next_cursor(t, head);
    return entryOf(t, head);
}

void *gnl_hash_next(GnlHashTable *t, GnlHashNode **cursor)
{
    GnlHashNode *node = *cursor;
    if (!node)
        return nullptr;
    *cursor = gnl_hash_next_cursor(t, node);
    return entryOf(t, node);
}

uint32_t gnl_hash_value(const void *key, uint32_t length, uint32_t initval)
{
    const auto *k = static_cast<const unsigned char *>(key);
    uint32_t a = kGoldenRatio;
    uint32_t b = kGoldenRatio;
    uint32_t c = initval;
    uint32_t left = length;
    while (left >= 12) {
        a += wordLe(k);
        b += wordLe(k + 4);
        c += wordLe(k + 8);
        mix(a, b, c);
        k += 12;
        left -= 12;
    }
    c += length;
    // The last 0 to 11 bytes: bytes 0-3 into a, 4-7 into b, 8-10 into c from its second byte
    // on (its lowest byte took the length).
    for (uint32_t i = 0; i < left; ++i) {
        uint32_t byte = k[i];
        if (i < 4)
            a += byte << (8 * i);
        else if (i < 8)
            b += byte << (8 * (i - 4));
        else
            c += byte << (8 * (i - 7));
    }
    mix(a, b, c);
    return c;
}

uint32_t gnl_hash_value_3words(uint32_t a, uint32_t b, uint32_t c, uint32_t initval)
{
    a += kGoldenRatio;
    b += kGoldenRatio;
    c += initval;
    mix(a, b, c);
    return c;
}

uint32_t gnl_hash_value_2words(uint32_t a, uint32_t b, uint32_t initval)
{
    return gnl_hash_value_3words(a, b, 0, initval);
}

} // extern "C"
