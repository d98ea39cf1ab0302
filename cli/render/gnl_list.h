// The intrusive, circular, doubly linked list: a GnlListHead link sits at the start of each
// element, and the list head is a link of its own that is never an element. The exported
// functions are declared in nd_cli.h; the two primitives below stay inside the library.
#ifndef ND_GNL_LIST_H
#define ND_GNL_LIST_H

#include <cstdint>

#include "nd_cli.h"

// Written into a deleted element's links so that a stale use faults at a recognisable address
// instead of walking into a live list.
constexpr uintptr_t kGnlListPoisonNext = 0x00100100u;
constexpr uintptr_t kGnlListPoisonPrev = 0x00200200u;

// Links `item` in between `prev` and `next`, which are adjacent.
inline void gnlListLink(GnlListHead *item, GnlListHead *prev, GnlListHead *next)
{
    next->prev = item;
    item->next = next;
    item->prev = prev;
    prev->next = item;
}

// Joins `prev` and `next`, dropping whatever lay between them.
inline void gnlListUnlink(GnlListHead *prev, GnlListHead *next)
{
    next->prev = prev;
    prev->next = next;
}

#endif
