// The intrusive list: empty heads, appending, unlinking with poisoned links.
#include <gtest/gtest.h>

#include "render/gnl_list.h"

namespace {

TEST(GnlList, InitPointsTheHeadAtItself)
{
    GnlListHead head = {nullptr, nullptr};
    GNL_INIT_LIST_HEAD(&head);
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
}

TEST(GnlList, AddTailAppendsInOrderBothWays)
{
    GnlListHead head;
    GnlListHead a, b, c;
    GNL_INIT_LIST_HEAD(&head);
    gnl_list_add_tail(&a, &head);
    gnl_list_add_tail(&b, &head);
    gnl_list_add_tail(&c, &head);
    EXPECT_EQ(head.next, &a);
    EXPECT_EQ(a.next, &b);
    EXPECT_EQ(b.next, &c);
    EXPECT_EQ(c.next, &head);
    EXPECT_EQ(head.prev, &c);
    EXPECT_EQ(c.prev, &b);
    EXPECT_EQ(b.prev, &a);
    EXPECT_EQ(a.prev, &head);
}

TEST(GnlList, InternalAddLinksBetweenTwoNeighbours)
{
    GnlListHead head, a, b;
    GNL_INIT_LIST_HEAD(&head);
    gnl_list_add_tail(&a, &head);
    gnlListLink(&b, &head, head.next); // in front of a
    EXPECT_EQ(head.next, &b);
    EXPECT_EQ(b.prev, &head);
    EXPECT_EQ(b.next, &a);
    EXPECT_EQ(a.prev, &b);
    EXPECT_EQ(head.prev, &a);
}

TEST(GnlList, DelUnlinksAndPoisonsTheElement)
{
    GnlListHead head, a, b, c;
    GNL_INIT_LIST_HEAD(&head);
    gnl_list_add_tail(&a, &head);
    gnl_list_add_tail(&b, &head);
    gnl_list_add_tail(&c, &head);
    gnl_list_del(&b);
    EXPECT_EQ(a.next, &c);
    EXPECT_EQ(c.prev, &a);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b.next), 0x00100100u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b.prev), 0x00200200u);
    gnl_list_del(&a);
    gnl_list_del(&c);
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
}

TEST(GnlList, InternalDelJoinsNeighbours)
{
    GnlListHead head, a, b;
    GNL_INIT_LIST_HEAD(&head);
    gnl_list_add_tail(&a, &head);
    gnl_list_add_tail(&b, &head);
    gnlListUnlink(&head, &b); // drops a, leaves a's own links alone
    EXPECT_EQ(head.next, &b);
    EXPECT_EQ(b.prev, &head);
    EXPECT_EQ(a.next, &b);
    EXPECT_EQ(a.prev, &head);
}

} // namespace
