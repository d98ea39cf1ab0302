// The intrusive hash table and the lookup2 hash.
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "dbm/nd_cli_dbm_internal.h"
#include "test_support.h"

namespace {

// An entry with its link not at the start, so that the node offset is exercised.
struct Item {
    uint32_t key;
    uint32_t bucketHint; // the hash the compute callback returns
    GnlHashNode link;
    int id;
};
constexpr uint32_t kLinkOffset = offsetof(Item, link);

uint32_t itemCompute(const void *entry)
{
    return static_cast<const Item *>(entry)->bucketHint;
}

int32_t itemCompare(const void *probe, const void *entry)
{
    return static_cast<const Item *>(probe)->key == static_cast<const Item *>(entry)->key ? 0 : -1;
}

class GnlHashTest : public ndtest::PlatformTest {
protected:
    void TearDown() override
    {
        gnl_hash_destroy(&table);
        ndtest::PlatformTest::TearDown();
    }
    void init(uint32_t buckets) { ASSERT_EQ(gnl_hash_init(&table, kLinkOffset, itemCompute, itemCompare, buckets), 0); }

    std::vector<int> visitOrder()
    {
        std::vector<int> ids;
        GnlHashNode *cursor = nullptr;
        for (void *e = gnl_hash_start(&table, &cursor); e; e = gnl_hash_next(&table, &cursor))
            ids.push_back(static_cast<Item *>(e)->id);
        return ids;
    }

    GnlHashTable table{};
};

TEST_F(GnlHashTest, InitSetsEveryFieldAndAllocatesOnePointerPerBucket)
{
    init(7);
    EXPECT_EQ(table.nodeOffset, kLinkOffset);
    EXPECT_EQ(table.compute, itemCompute);
    EXPECT_EQ(table.compare, itemCompare);
    EXPECT_EQ(table.bucketCount, 7u) << "no rounding of the bucket count";
    EXPECT_EQ(table.count, 0u);
    EXPECT_EQ(table.magic, 0xCBCECBCEu);
    ASSERT_NE(table.buckets, nullptr);
    for (uint32_t i = 0; i < 7; ++i)
        EXPECT_EQ(table.buckets[i], nullptr);
    EXPECT_EQ(ndplat::trace_of("__UMV2L_malloc"),
              std::vector<std::string>{"__UMV2L_malloc(" + std::to_string(7 * sizeof(void *)) + ")"});
}

TEST_F(GnlHashTest, BucketCountLimit)
{
    GnlHashTable t{};
    t.magic = 0x1234;
    EXPECT_EQ(gnl_hash_init(&t, 0, itemCompute, itemCompare, 16777215), -1);
    EXPECT_EQ(t.magic, 0x1234u) << "refused before touching the table";
    EXPECT_EQ(t.bucketCount, 0u);
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_malloc").empty());
    EXPECT_EQ(gnl_hash_init(&t, 0, itemCompute, itemCompare, 0xFFFFFFFFu), -1);
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_malloc").empty());

    // Just below the limit the allocation is attempted; let it fail to keep the test small.
    ndplat::fault_inject("__UMV2L_malloc", 0);
    EXPECT_EQ(gnl_hash_init(&t, 0, itemCompute, itemCompare, 16777214), -1);
    EXPECT_EQ(ndplat::trace_of("__UMV2L_malloc"),
              std::vector<std::string>{"__UMV2L_malloc(" + std::to_string(16777214ull * sizeof(void *)) + ")"});
    EXPECT_EQ(t.bucketCount, 16777214u) << "fields are set before the allocation";
    EXPECT_EQ(t.buckets, nullptr);
}

TEST_F(GnlHashTest, EmptyTableIteration)
{
    init(16);
    GnlHashNode *cursor = reinterpret_cast<GnlHashNode *>(0x1);
    EXPECT_EQ(gnl_hash_start(&table, &cursor), nullptr);
    EXPECT_EQ(cursor, nullptr);
    EXPECT_EQ(gnl_hash_next(&table, &cursor), nullptr);
    EXPECT_EQ(gnl_hash_next_cursor(&table, nullptr), nullptr);
    Item probe{1, 1, {}, 0};
    EXPECT_EQ(gnl_hash_find(&table, &probe), nullptr);
}

TEST_F(GnlHashTest, InsertAndRemoveReturnTheNewCount)
{
    init(4);
    Item a{1, 1, {}, 1};
    Item b{2, 2, {}, 2};
    EXPECT_EQ(gnl_hash_insert(&table, &a), 1u);
    EXPECT_EQ(a.link.hash, 1u);
    EXPECT_EQ(gnl_hash_insert(&table, &b), 2u);
    EXPECT_EQ(gnl_hash_remove(&table, &a), 1u);
    EXPECT_EQ(gnl_hash_remove(&table, &b), 0u);
    EXPECT_EQ(table.buckets[1], nullptr);
    EXPECT_EQ(table.buckets[2], nullptr);
}

TEST_F(GnlHashTest, EqualEntriesAreBothKeptAndTheNewestIsFound)
{
    init(8);
    Item first{5, 5, {}, 1};
    Item second{5, 5, {}, 2};
    gnl_hash_insert(&table, &first);
    gnl_hash_insert(&table, &second);
    EXPECT_EQ(table.count, 2u);
    Item probe{5, 5, {}, 0};
    EXPECT_EQ(gnl_hash_find(&table, &probe), &second);
    gnl_hash_remove(&table, &second);
    EXPECT_EQ(gnl_hash_find(&table, &probe), &first);
}

TEST_F(GnlHashTest, FindLeavesTheDecisionToTheCompareCallback)
{
    init(8);
    // Same bucket (13 mod 8 = 5 mod 8), different full hashes: the stored hash is not compared.
    Item stored{9, 13, {}, 1};
    gnl_hash_insert(&table, &stored);
    Item probe{9, 5, {}, 0};
    EXPECT_EQ(gnl_hash_find(&table, &probe), &stored);
    Item other{10, 5, {}, 0};
    EXPECT_EQ(gnl_hash_find(&table, &other), nullptr);
}

TEST_F(GnlHashTest, BucketIndexIsTheRemainderNotAMask)
{
    init(10);
    Item a{1, 25, {}, 1}; // 25 mod 10 = 5 (a mask of 15 would give 9)
    gnl_hash_insert(&table, &a);
    EXPECT_EQ(table.buckets[5], &a.link);
}

TEST_F(GnlHashTest, IterationOrderBucketsAscendingNewestFirstWithinABucket)
{
    init(5);
    Item e1{1, 3, {}, 1};  // bucket 3
    Item e2{2, 8, {}, 2};  // bucket 3
    Item e3{3, 0, {}, 3};  // bucket 0
    Item e4{4, 13, {}, 4}; // bucket 3
    Item e5{5, 4, {}, 5};  // bucket 4
    Item e6{6, 5, {}, 6};  // bucket 0
    for (Item *e : {&e1, &e2, &e3, &e4, &e5, &e6})
        gnl_hash_insert(&table, e);
    EXPECT_EQ(visitOrder(), (std::vector<int>{6, 3, 4, 2, 1, 5}));
    EXPECT_EQ(gnl_hash_next_cursor(&table, &e6.link), &e3.link);
    EXPECT_EQ(gnl_hash_next_cursor(&table, &e3.link), &e4.link);
    EXPECT_EQ(gnl_hash_next_cursor(&table, &e1.link), &e5.link);
    EXPECT_EQ(gnl_hash_next_cursor(&table, &e5.link), nullptr);
}

TEST_F(GnlHashTest, CursorStaysOneAheadSoTheReturnedEntryMayBeRemovedAndFreed)
{
    init(3);
    std::set<int> visited;
    for (int i = 0; i < 20; ++i) {
        auto *e = static_cast<Item *>(__UMV2L_malloc(sizeof(Item)));
        *e = Item{static_cast<uint32_t>(i), static_cast<uint32_t>(i * 7), {}, i};
        gnl_hash_insert(&table, e);
    }
    GnlHashNode *cursor = nullptr;
    void *e = gnl_hash_start(&table, &cursor);
    ASSERT_NE(e, nullptr);
    // The cursor already points at the following node.
    EXPECT_EQ(cursor, gnl_hash_next_cursor(&table, reinterpret_cast<GnlHashNode *>(static_cast<char *>(e) + kLinkOffset)));
    while (e) {
        auto *item = static_cast<Item *>(e);
        EXPECT_TRUE(visited.insert(item->id).second) << "visited twice: " << item->id;
        gnl_hash_remove(&table, item);
        memset(item, 0xA5, sizeof *item); // what a freed entry may hold
        __UMV2L_free(item);
        e = gnl_hash_next(&table, &cursor);
    }
    EXPECT_EQ(visited.size(), 20u);
    EXPECT_EQ(table.count, 0u);
}

TEST_F(GnlHashTest, RemovingFromTheMiddleAndTailOfAChain)
{
    init(1);
    Item a{1, 0, {}, 1}, b{2, 0, {}, 2}, c{3, 0, {}, 3};
    gnl_hash_insert(&table, &a);
    gnl_hash_insert(&table, &b);
    gnl_hash_insert(&table, &c); // chain: c b a
    gnl_hash_remove(&table, &b);
    EXPECT_EQ(visitOrder(), (std::vector<int>{3, 1}));
    gnl_hash_remove(&table, &a);
    EXPECT_EQ(visitOrder(), (std::vector<int>{3}));
    EXPECT_EQ(c.link.next, nullptr);
    gnl_hash_remove(&table, &c);
    EXPECT_EQ(table.buckets[0], nullptr);
}

TEST_F(GnlHashTest, DestroyFreesTheBucketsAndClearsTheMagicAndNullIsIgnored)
{
    init(4);
    gnl_hash_destroy(&table);
    EXPECT_EQ(table.buckets, nullptr);
    EXPECT_EQ(table.magic, 0u);
    EXPECT_EQ(ndplat::trace_of("__UMV2L_free").size(), 1u);
    gnl_hash_destroy(&table); // no bucket array left: nothing freed twice
    EXPECT_EQ(ndplat::trace_of("__UMV2L_free").size(), 1u);
    gnl_hash_destroy(nullptr);
    init(4); // a destroyed table can be initialised again
    EXPECT_EQ(table.magic, 0xCBCECBCEu);
}

// Hash values computed once, independently, from the published lookup2 algorithm (a short
// script following Bob Jenkins' hash() and mix()), for the prefixes of length 0 to 30 of
// "Four score and seven years ago": every tail length, zero, one and two loop rounds.
constexpr uint32_t kPrefixHashes[31] = {
    0xBD49D10Du, 0x2F128C38u, 0x3A88B547u, 0xED7FE140u, 0xBFA65111u, 0xE412B220u, 0x13425875u, 0x35392A09u,
    0x6F8EA12Bu, 0x618CEE90u, 0x466CF6BBu, 0xF2AADE2Bu, 0xCC6600D8u, 0xF4692621u, 0xAE5040F5u, 0x28FA85FEu,
    0xFA7E388Eu, 0x94048756u, 0xDBE95B7Au, 0x483BAB9Bu, 0x935D0788u, 0x3710B11Cu, 0x490B3962u, 0xE324FCD8u,
    0x9357C18Cu, 0x532E732Fu, 0xCB2506E2u, 0xE41786B9u, 0xAD425124u, 0x38A3C37Du, 0x50F2424Bu,
};

TEST(GnlHashValue, MatchesThePublishedAlgorithmForEveryTailLength)
{
    const char *text = "Four score and seven years ago";
    for (uint32_t n = 0; n <= 30; ++n)
        EXPECT_EQ(gnl_hash_value(text, n, 0), kPrefixHashes[n]) << "length " << n;
}

TEST(GnlHashValue, InitialValueAndLongKeys)
{
    EXPECT_EQ(gnl_hash_value("Four score and seven years ago", 30, 0x12345678u), 0x6747FD70u);
    uint8_t bytes[256];
    for (int i = 0; i < 256; ++i)
        bytes[i] = static_cast<uint8_t>(i);
    EXPECT_EQ(gnl_hash_value(bytes, 256, 0), 0x95D7FC03u);
}

TEST(GnlHashValue, CacheKeys)
{
    EXPECT_EQ(gnl_hash_value("vlan 1", 6, 0), 0xE3FA5397u);
    EXPECT_EQ(gnl_hash_value("vlan 4094", 9, 0), 0xE9F43F1Eu);
    EXPECT_EQ(gnl_hash_value("nd_nbr_if_vlan-if10", 19, 0), 0x4CE4D880u);
}

TEST(GnlHashValue, WordsAreAssembledLittleEndianOnEveryHost)
{
    // The same bytes give the same hash whatever the host's byte order: a 12-byte key of
    // three words, stored byte by byte.
    const uint8_t twelve[12] = {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0};
    const uint8_t shifted[12] = {0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3};
    EXPECT_NE(gnl_hash_value(twelve, 12, 0), gnl_hash_value(shifted, 12, 0));
    EXPECT_EQ(gnl_hash_value("Four score a", 12, 0), kPrefixHashes[12]);
}

// lookup2's mix, written out here to count the rounds that gnl_hash_value performs.
void refMix(uint32_t &a, uint32_t &b, uint32_t &c)
{
    a -= b; a -= c; a ^= (c >> 13);
    b -= c; b -= a; b ^= (a << 8);
    c -= a; c -= b; c ^= (b >> 13);
    a -= b; a -= c; a ^= (c >> 12);
    b -= c; b -= a; b ^= (a << 16);
    c -= a; c -= b; c ^= (b >> 5);
    a -= b; a -= c; a ^= (c >> 3);
    b -= c; b -= a; b ^= (a << 10);
    c -= a; c -= b; c ^= (b >> 15);
}

TEST(GnlHashValue, TwelveBytesMixInTheLoopAndOnceMoreWithTheLength)
{
    const uint8_t key[12] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC};
    uint32_t a = 0x9E3779B9u + 0x44332211u, b = 0x9E3779B9u + 0x88776655u, c = 0xCCBBAA99u;
    refMix(a, b, c);
    c += 12;
    refMix(a, b, c);
    EXPECT_EQ(gnl_hash_value(key, 12, 0), c);

    // Eleven bytes: no loop round; byte 8 and up enter c from its second byte.
    a = 0x9E3779B9u + 0x44332211u;
    b = 0x9E3779B9u + 0x88776655u;
    c = 11u + (0xBBAA99u << 8);
    refMix(a, b, c);
    EXPECT_EQ(gnl_hash_value(key, 11, 0), c);

    // No bytes at all: one mix of the start values with c = length 0.
    a = b = 0x9E3779B9u;
    c = 0;
    refMix(a, b, c);
    EXPECT_EQ(gnl_hash_value(key, 0, 0), c);
    EXPECT_EQ(c, kPrefixHashes[0]);
}

TEST(GnlHashValue, ThreeAndTwoWords)
{
    EXPECT_EQ(gnl_hash_value_3words(1, 2, 3, 0), 0x17E8BDC2u);
    EXPECT_EQ(gnl_hash_value_3words(1, 2, 3, 0xDEADBEEFu), 0x32919337u);
    EXPECT_EQ(gnl_hash_value_2words(7, 6, 0), 0x41BA1013u);
    EXPECT_EQ(gnl_hash_value_2words(0xFFFFFFFFu, 6, 0), 0xFF24258Du);
    EXPECT_EQ(gnl_hash_value_2words(7, 6, 0), gnl_hash_value_3words(7, 6, 0, 0));
}

} // namespace
