// The exported list operations; see gnl_list.h.
#include "render/gnl_list.h"

extern "C" {

void GNL_INIT_LIST_HEAD(GnlListHead *head)
{
    head->next = head;
    head->prev = head;
}

void gnl_list_add_tail(GnlListHead *item, GnlListHead *head)
{
    gnlListLink(item, head->prev, head);
}

void gnl_list_del(GnlListHead *item)
{
    gnlListUnlink(item->prev, item->next);
    item->next = reinterpret_cast<GnlListHead *>(kGnlListPoisonNext);
    item->prev = reinterpret_cast<GnlListHead *>(kGnlListPoisonPrev);
}
}
